/* Spherical harmonics: project a light that is bright above and dark below
   onto bands 0 to 2, then evaluate it looking straight up. */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include "lumr.h"

int main(void) {
    Lum32u size;
    lumrSHGetSize_32f(2, lumSHRecurrence, &size);
    LumSHState* state = malloc(size);
    lumrSHInit_32f(state, 2, lumSHRecurrence);

    const Lum32f x[6] = {1, -1, 0, 0, 0, 0}, y[6] = {0, 0, 1, -1, 0, 0}, z[6] = {0, 0, 0, 0, 1, -1};
    const Lum32f light[6] = {0.5f, 0.5f, 0.5f, 0.5f, 1.0f, 0.0f};  /* samples at six directions */
    Lum32f coeffs[9] = {0}, up;
    const Lum32f ux = 0, uy = 0, uz = 1;
    lumrSHTFwd_32f_C1I(x, y, z, light, 6, coeffs, 2, state);       /* coeffs += Y(dir) * sample */
    for (int i = 0; i < 9; ++i) coeffs[i] *= 4.0f * 3.14159265f / 6; /* sphere area / count */
    lumrSHTInv_32f_C1(coeffs, 2, &ux, &uy, &uz, &up, 1, state);     /* back at a direction */

    printf("light looking up: %.4f\n", up);
    free(state);
    return fabsf(up - 1.0f) > 1e-4f;
}
