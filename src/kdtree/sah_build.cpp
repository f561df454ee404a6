// The SAH build: context, root list (the triangles as they are, or clipped
// to the caller's box), subdivision, and the final block.  Everything but
// the block is released before returning, on every path.
#include "frame/own.h"
#include "kdtree/sah.h"
#include "kdtree/sah_context.h"

namespace {

// The root list without a clip box: each triangle as a polygon of its three
// corners, in a box around all vertices with no margin.
LumStatus localRootList(LumSAHContext* ctx, Lum32s nVertices, Lum32s nTriangles, Lum32f* box,
                        LumSAHItem** ppItems) {
    const Lum32f* v = ctx->vertices;
    // Deliberate: the first vertex is read even when nVertices is 0.
    for (int a = 0; a < 3; ++a) box[a] = box[a + 3] = v[a];
    for (Lum32s i = 1; i < nVertices; ++i) {
        for (int a = 0; a < 3; ++a) {
            const Lum32f c = v[size_t(i) * 3 + a];
            if (c < box[a]) box[a] = c;
            if (c > box[a + 3]) box[a + 3] = c;
        }
    }
    void* p = nullptr;
    LumStatus st = ownSAHArenaTake(&ctx->itemCursor, ctx->itemEnd,
                                   size_t(nTriangles) * sizeof(LumSAHItem), &p);
    if (st != lumStatusOk) return st;
    LumSAHItem* items = static_cast<LumSAHItem*>(p);
    for (Lum32s t = 0; t < nTriangles; ++t) {
        const Lum32s* tri = ctx->triangles + size_t(t) * 4;
        const Lum32f** corners = nullptr;
        if ((st = ownSAHPolygonArrayTake(ctx, 3, &corners)) != lumStatusOk) return st;
        for (int k = 0; k < 3; ++k) corners[k] = v + size_t(tri[k]) * 3;
        items[t].id = (Lum32u(t) << kSAHIdShift) | 3u;
        items[t].vertices = corners;
        items[t].extremes = ownPolygonExtremes(corners, 3);
    }
    *ppItems = items;
    return lumStatusOk;
}

LumStatus localBuild(LumSAHContext* ctx, Lum32s nVertices, Lum32s nTriangles,
                     LumKDTreeNode** ppTree, Lum32s* pSize, Lum32f splitQuality, Lum32s maxDepth,
                     const Lum32f* pClipBox) {
    Lum32f box[6];
    LumSAHItem* items = nullptr;
    Lum32s count = nTriangles;
    LumStatus st;
    if (pClipBox) {
        for (int a = 0; a < 6; ++a) box[a] = pClipBox[a];
        st = ownClipTriangles(ctx, pClipBox, nTriangles, &items, &count);
    } else {
        st = localRootList(ctx, nVertices, nTriangles, box, &items);
    }
    if (st != lumStatusOk) return st;

    void* p = nullptr;
    if ((st = ownSAHChunkTake(ctx, &ctx->nodeChunks, 2 * sizeof(LumSAHNode), &p)) != lumStatusOk)
        return st;
    LumSAHNode* root = static_cast<LumSAHNode*>(p);
    root[0] = LumSAHNode{kSAHLeafKind, Lum32u(count), count > 0 ? items : nullptr};
    root[1] = LumSAHNode{kSAHLeafKind, 0, nullptr};
    if (count != 0) {
        st = ownOptimizationPSAH(ctx, root, splitQuality, maxDepth, box);
        if (st != lumStatusOk) return st;
    }
    // The working memory goes before the block is asked for.
    ownSAHReleaseWorkMemory(ctx);
    return ownFlattenTree(root, ppTree, pSize);
}

}  // namespace

LumStatus ownKDTreeBuildSAH(const Lum32f* pVertices, const Lum32s* pTriangles, Lum32s nVertices,
                            Lum32s nTriangles, LumKDTreeNode** ppTree, Lum32s* pSize,
                            Lum32f splitQuality, Lum32s maxDepth, Lum32u byteLimit,
                            const Lum32f* pClipBox) {
    LumSAHContext* ctx = nullptr;
    LumStatus st =
        ownSAHContextInit(&ctx, pVertices, nVertices, pTriangles, nTriangles, byteLimit);
    if (st == lumStatusOk)
        st = localBuild(ctx, nVertices, nTriangles, ppTree, pSize, splitQuality, maxDepth,
                        pClipBox);
    ownSAHContextFree(ctx);
    return st;
}
