/* Remap: read every sample of a 4 x 4 x 2 volume from its mirror image in x,
   through a coordinate field of absolute source positions. */
#include <stdio.h>
#include "lumr.h"

int main(void) {
    Lum32f src[2][16], dst[2][16], mx[2][16], my[2][16], mz[2][16];
    for (int z = 0; z < 2; ++z)
        for (int i = 0; i < 16; ++i) {
            src[z][i] = (Lum32f)(i + 16 * z);
            mx[z][i] = (Lum32f)(3 - i % 4), my[z][i] = (Lum32f)(i / 4), mz[z][i] = (Lum32f)z;
        }
    const Lum32f* s[2] = {src[0], src[1]};
    const Lum32f *px[2] = {mx[0], mx[1]}, *py[2] = {my[0], my[1]}, *pz[2] = {mz[0], mz[1]};
    Lum32f* d[2] = {dst[0], dst[1]};
    const LumVolume size = {4, 4, 2};
    const LumBox box = {0, 0, 0, 4, 4, 2};                        /* what may be read */
    LumStatus st = lumrRemap_32f_C1PV(s, &size, 16, &box, px, py, pz, 16, d, 16, &size,
                                      LUM_RESAMPLE_LINEAR);       /* steps in bytes */
    printf("status %d; row 0 of plane 1: %g %g %g %g\n", st, dst[1][0], dst[1][1], dst[1][2],
           dst[1][3]);
    return st != lumStatusOk || dst[1][0] != 19 || dst[1][3] != 16;
}
