/* The public header must compile as strict C99 and link against the shared
 * objects; a few calls prove the types line up with the library. */
#include "lumr.h"

#include <stdio.h>
#include <string.h>

int main(void) {
    const LumLibVersion* v = lumrGetLibVersion();
    LumTriangleAccel accel;
    LumKDTreeNode node;
    Lum32f x[4] = {1, 2, 3, 4}, y[4] = {5, 6, 7, 8};
    Lum32s mask[4] = {0, -1, 0, 0};
    if (sizeof accel != 40 || sizeof node != 8) return 1;
    if (v->versionMajor != 6 || strcmp(v->fileName, "lumre9-6.1.dll") != 0) return 2;
    if (lumrMul_32f_C1IM(x, mask, y, 4) != lumStatusOk) return 3;
    if (y[0] != 5.0f || y[1] != 0.0f || y[3] != 32.0f) return 4;
    if (lumSetNumThreads(0) != lumStatusSize || lumGetNumThreads() < 1) return 5;
    printf("lumr %s\n", v->versionText);
    return 0;
}
