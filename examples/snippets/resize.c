/* Resize: a 4 x 4 x 4 volume of 8-bit samples to 8 x 8 x 8, linear. */
#include <stdio.h>
#include <stdlib.h>
#include "lumr.h"

int main(void) {
    Lum8u src[4 * 4 * 4], dst[8 * 8 * 8];
    for (int i = 0; i < 64; ++i) src[i] = (Lum8u)(i * 4);
    const LumVolume srcSize = {4, 4, 4};
    const LumBox srcBox = {0, 0, 0, 4, 4, 4}, dstBox = {0, 0, 0, 8, 8, 8};
    Lum32s bytes;
    lumrResizeGetBufSize(&srcBox, &dstBox, 1, LUM_RESAMPLE_LINEAR, &bytes);
    Lum8u* scratch = malloc((size_t)bytes);
    LumStatus s = lumrResize_8u_C1V(src, &srcSize, 4, 16, &srcBox,  /* row and plane steps */
                                    dst, 8, 64, &dstBox, 2.0, 2.0, 2.0, 0.0, 0.0, 0.0,
                                    LUM_RESAMPLE_LINEAR, scratch);
    printf("status %d; corners %d and %d\n", s, dst[0], dst[511]);
    free(scratch);
    return s != lumStatusOk || dst[0] != src[0] || dst[511] != src[63];
}
