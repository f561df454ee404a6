// The tree's front end: argument checks in their fixed order, the trivial
// list build, the hand-off to the surface-area build, and the release.
#include <climits>

#include "frame/own.h"
#include "kdtree/block.h"
#include "kdtree/sah.h"

namespace {

constexpr Lum32s kMaxDepthLimit = 50;

// One list leaf holding every triangle in number order.  Vertices and
// triangles are not read: every ray will test every triangle.
LumStatus localBuildList(LumKDTreeNode** ppTree, Lum32s nTriangles, Lum32s* pSize) {
    // The size must be reported as a Lum32s; a count whose list cannot be
    // described there is refused as memory that cannot be had, rather than
    // letting the size wrap.
    if (nTriangles > (INT_MAX - 16) / 4) return lumStatusNoMem;
    const Lum32s size = 4 * nTriangles + 16;
    auto* block = static_cast<LumKDTreeNode*>(ownAlloc64((size >> 3) + 1));
    if (!block) return lumStatusNoMem;
    Lum32s* list = reinterpret_cast<Lum32s*>(block + 2);
    for (Lum32s i = 0; i < nTriangles; ++i) list[i] = i;
    // Deliberate: even one to three triangles stay a list leaf here, never
    // the compact form; with no triangles word1 is 0, an empty leaf.
    ownWriteListLeaf(block, list, nTriangles);
    block[1].word0 = 0;
    block[1].word1 = 0;
    *ppTree = block;
    *pSize = size;
    return lumStatusOk;
}

}  // namespace

// This function alone looks at a pointer (the parameter block) after the
// sizes; the order is part of its contract.
LUMR_EXPORT LumStatus lumrKDTreeBuildAlloc(LumKDTreeNode** ppTree, const Lum32f* pVertices,
                                           const Lum32s* pTriangles, Lum32s nVertices,
                                           Lum32s nTriangles, Lum32s* pSize,
                                           const LumKDTreeBuildParams* pParams) {
    if (!ppTree || !pVertices || !pTriangles || !pSize) return lumStatusNullPtr;
    if (nVertices < 0) return lumStatusSize;
    if (nTriangles < 0) return lumStatusSize;
    if (!pParams) return lumStatusNullPtr;

    if (pParams->tag == Lum32u(lumKDTreeTagList)) {
        // The depth is checked for a list build and then has nothing to limit.
        if (pParams->maxDepth < 0 || pParams->maxDepth > kMaxDepthLimit)
            return lumStatusBadBuildParam;
        return localBuildList(ppTree, nTriangles, pSize);
    }
    if (pParams->tag == Lum32u(lumKDTreeTagSAH)) {
        if (pParams->maxDepth < 0 || pParams->maxDepth > kMaxDepthLimit)
            return lumStatusBadBuildParam;
        // A NaN quality fails both comparisons and is accepted.
        if (pParams->splitQuality < 0.0f) return lumStatusBadBuildParam;
        if (pParams->splitQuality > 1.0f) return lumStatusBadBuildParam;
        // Deliberate: both shifts run in 32 bits and drop high bits.  The test
        // accepts 32 MiB and up only when the limit modulo 8192 is at least 32,
        // a negative limit can pass, and 4096 passes with a byte limit of 0,
        // which the build itself then refuses.
        const Lum32u mb = Lum32u(pParams->memoryLimitMB);
        if ((mb << 19) < 0x1000000u) return lumStatusNoMem;
        return ownKDTreeBuildSAH(pVertices, pTriangles, nVertices, nTriangles, ppTree, pSize,
                                 pParams->splitQuality, pParams->maxDepth, mb << 20,
                                 pParams->pClipBox);
    }
    return lumStatusBadArg;
}

// No check: a null block goes on to the core's release as it stands.
LUMR_EXPORT void lumrKDTreeFree(LumKDTreeNode* pTree) { ownFree(pTree); }
