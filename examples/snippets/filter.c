/* Filter: a 3 x 3 x 3 box mean over a 16 x 16 plane of 16-bit samples; the
   caller's planes carry the one-sample border the taps reach into. */
#include <stdio.h>
#include <stdlib.h>
#include "lumr.h"

int main(void) {
    static Lum16s in[3][18 * 18], out[16 * 16];
    for (int p = 0; p < 3; ++p)
        for (int i = 0; i < 18 * 18; ++i) in[p][i] = (Lum16s)(100 * p + i % 18);
    const Lum16s* src[3] = {in[0] + 19, in[1] + 19, in[2] + 19};  /* (1, 1) of each plane */
    Lum16s* dst[1] = {out};
    Lum32s kernel[27], bytes;
    for (int i = 0; i < 27; ++i) kernel[i] = 1;
    const LumVolume size = {16, 16, 1}, kernelSize = {3, 3, 3};
    const LumPoint3D anchor = {1, 1, 1};                            /* the kernel's centre */
    lumrFilterGetBufSize(&size, &kernelSize, 1, &bytes);
    Lum8u* scratch = malloc((size_t)bytes);
    LumStatus s = lumrFilter_16s_C1PV(src + 1, 18 * 2, dst, 16 * 2, &size, kernel, &kernelSize,
                                      &anchor, 27, scratch);       /* divide by 27, round */
    printf("status %d; out(0,0) %d, out(5,5) %d\n", s, out[0], out[5 * 16 + 5]);
    free(scratch);
    return s != lumStatusOk || out[0] != 101 || out[5 * 16 + 5] != 106;
}
