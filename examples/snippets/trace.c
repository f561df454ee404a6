/* Rays: a 4 x 4 block of eye rays meets one triangle; hit points and the
   triangle's normal follow for the rays that hit. */
#include <stdio.h>
#include "lumr.h"

int main(void) {
    const Lum32f v[] = {-1, -1, 0, 1, -1, 0, 0, 1, 0};
    const Lum32s t[] = {0, 1, 2, 0};
    Lum32f box[6], normal[3];
    LumTriangleAccel record;
    Lum32s bytes;
    LumKDTreeNode* tree;
    LumKDTreeBuildParams list = {lumKDTreeTagList, 0, 0, 0, NULL};
    lumrSetBoundBox_32f(v, 3, box);
    lumrTriangleAccelInit(&record, v, t, 1);
    lumrTriangleNormal_32f(v, t, normal, 1);
    lumrKDTreeBuildAlloc(&tree, v, t, 3, 1, &bytes, &list);
    LumRayScene scene = {box, &record, tree};

    Lum32f dx[16], dy[16], dz[16], dist[16], u[16], w[16], hx[16], hy[16], hz[16];
    Lum32f nx[16], ny[16], nz[16], *uv[2] = {u, w};
    Lum32s tri[16];
    LumPlanes3 dir = {dx, dy, dz}, hit = {hx, hy, hz}, nrm = {nx, ny, nz};
    const Lum32f eye[3] = {0, 0, 4}, corner[3] = {-0.3f, 0.3f, -1};
    const Lum32f column[3] = {0.2f, 0, 0}, row[3] = {0, -0.2f, 0};
    const LumRect2D block = {4, 4};

    lumrCastEye_32f(corner, column, row, 0, 0, block, &dir, block);  /* eye -> pixel */
    for (int i = 0; i < 16; ++i) dist[i] = 1e30f;                     /* farthest hit taken */
    lumrIntersectEyeSO_32f(eye, &dir, dist, uv, tri, &scene, block);  /* tri: -1 = miss */
    lumrHitPoint3DEpsS0_32f_M(eye, &dir, dist, tri, &hit, 16, 1.0f);
    lumrSurfFlatNormal_32f(normal, tri, &nrm, 16);

    int hits = 0;
    for (int i = 0; i < 16; ++i) hits += tri[i] == 0;
    printf("%d of 16 rays hit; ray 9 at (%.2f, %.2f, %.2f), normal z %.0f\n", hits, hx[9], hy[9],
           hz[9], nz[9]);
    lumrKDTreeFree(tree);
    return !(hits > 0 && hits < 16 && tri[9] == 0 && hz[9] > -1e-5f && hz[9] < 1e-5f && nz[9] == 1.0f);
}
