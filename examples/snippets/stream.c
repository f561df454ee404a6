/* Masked stream arithmetic: a point light's colour on four hit points, with
   the inverse-square fall-off; the ray that missed (mask -1) is left alone. */
#include <stdio.h>
#include "lumr.h"

int main(void) {
    Lum32f px[4] = {0, 3, 0, 0}, py[4] = {0, 0, 0, 0}, pz[4] = {0, 0, 0, 2};
    Lum32f ar[4] = {1, 1, 1, 1}, ag[4] = {1, 1, 1, 1}, ab[4] = {1, 1, 1, 1};  /* albedo */
    Lum32f r[4] = {0}, g[4] = {0}, b[4] = {0};                                /* colour */
    Lum32f dist[4], power[4] = {16, 16, 16, 16};
    Lum32s hit[4] = {7, 2, -1, 5};                      /* triangle per ray; -1: missed */
    const Lum32f light[3] = {0, 0, 4}, tint[3] = {1.0f, 0.9f, 0.8f};
    LumPlanes3 points = {px, py, pz}, albedo = {ar, ag, ab}, colour = {r, g, b};

    lumrDistAttenuationSO_32f_M(light, &points, hit, dist, 4);  /* |p - light|, at least 1 */
    lumrDiv_32f_C1IM(dist, hit, power, 4);                      /* power / d */
    lumrDiv_32f_C1IM(dist, hit, power, 4);                      /* power / d^2, 0 where off */
    lumrAddMulMul_32f_AC1P3IM(tint, power, &albedo, hit, &colour, 4);  /* colour += tint*albedo*w */

    for (int i = 0; i < 4; ++i) printf("ray %d: %.3f %.3f %.3f\n", i, r[i], g[i], b[i]);
    return !(r[0] == 1.0f && r[1] == 0.64f && r[2] == 0.0f && r[3] == 4.0f);
}
