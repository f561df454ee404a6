/* Affine warp: turn an 8-bit 5 x 5 x 1 volume a quarter turn about its centre.
   The matrix maps source positions to destination positions. */
#include <stdio.h>
#include "lumr.h"

int main(void) {
    Lum8u src[25], dst[25] = {0};
    for (int i = 0; i < 25; ++i) src[i] = (Lum8u)i;
    const Lum8u* s[1] = {src};
    Lum8u* d[1] = {dst};
    const Lum64f quarter[3][4] = {{0, -1, 0, 4},   /* x' = 4 - y */
                                  {1, 0, 0, 0},    /* y' = x */
                                  {0, 0, 1, 0}};   /* z' = z */
    const LumVolume size = {5, 5, 1};
    const LumBox box = {0, 0, 0, 5, 5, 1};
    LumStatus st = lumrWarpAffine_8u_C1PV(s, &size, 5, &box, d, 5, &box, quarter,
                                          LUM_RESAMPLE_NEAREST);
    printf("status %d; first row after the turn: %d %d %d %d %d\n", st, dst[0], dst[1], dst[2],
           dst[3], dst[4]);
    return st != lumStatusOk || dst[0] != 20 || dst[4] != 0;
}
