/* Scene structures: a mesh becomes a box, triangle records and a SAH tree,
   which together are the LumRayScene every intersection function takes. */
#include <stdio.h>
#include <stdlib.h>
#include "lumr.h"

int main(void) {
    const Lum32f v[] = {0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1};         /* x y z per vertex */
    const Lum32s t[] = {0, 2, 1, 0, 0, 1, 3, 0, 0, 3, 2, 0, 1, 2, 3, 0}; /* 3 corners + unused */
    Lum32f box[6];
    Lum32s recordSize, treeBytes;
    LumKDTreeNode* tree = NULL;

    lumrSetBoundBox_32f(v, 4, box);
    lumrTriangleAccelGetSize(&recordSize);
    LumTriangleAccel* records = malloc(4 * (size_t)recordSize);
    lumrTriangleAccelInit(records, v, t, 4);
    LumKDTreeBuildParams sah = {lumKDTreeTagSAH, 40, 1.0f, 128, NULL};  /* depth, quality, MiB */
    LumStatus s = lumrKDTreeBuildAlloc(&tree, v, t, 4, 4, &treeBytes, &sah);
    LumRayScene scene = {box, records, tree};

    printf("status %d: tree of %d bytes, box %g..%g\n", s, treeBytes, box[0], box[3]);
    (void)scene;
    lumrKDTreeFree(tree);
    free(records);
    return s != lumStatusOk;
}
