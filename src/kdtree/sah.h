// The surface-area-heuristic build, called by the front end after all of
// its checks, with the byte limit already shifted to 32 bits.
#pragma once

#include "lumr.h"

LumStatus ownKDTreeBuildSAH(const Lum32f* pVertices, const Lum32s* pTriangles, Lum32s nVertices,
                            Lum32s nTriangles, LumKDTreeNode** ppTree, Lum32s* pSize,
                            Lum32f splitQuality, Lum32s maxDepth, Lum32u byteLimit,
                            const Lum32f* pClipBox);
