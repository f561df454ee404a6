// Working structures of the SAH build: the context with its memory budget,
// the polygons that stand for (parts of) triangles, the working nodes and the
// split record.  Everything the build allocates is charged against the
// caller's byte limit here, so that running out of the limit is an ordinary
// status and never a failed allocation deep inside the subdivision.
#pragma once

#include <cstddef>
#include <cstdint>

#include "lumr.h"

// One polygon of a node's list: a triangle, or the part of it inside the
// node's box.
//   id        triangle number x 32 + corner count (3 to 9)
//   extremes  six 5-bit corner positions: bits 5a..5a+4 the corner with the
//             greatest coordinate on axis a, bits 15+5a..19+5a the least.
//             Kept packed so that the split search never walks a polygon.
//   vertices  corner pointers in cyclic order, into the caller's vertex array
//             or into the vertex arena.
struct LumSAHItem {
    Lum32u id;
    Lum32u extremes;
    const Lum32f** vertices;
};
static_assert(sizeof(LumSAHItem) == 16, "items are laid out in 16-byte slots");

constexpr Lum32s kSAHMaxCorners = 9;  // a triangle clipped by a box
constexpr Lum32u kSAHCountMask = 31;
constexpr int kSAHIdShift = 5;

inline Lum32s ownItemCount(const LumSAHItem& it) { return Lum32s(it.id & kSAHCountMask); }
inline Lum32s ownItemTriangle(const LumSAHItem& it) { return Lum32s(it.id >> kSAHIdShift); }
inline int ownItemMaxCorner(const LumSAHItem& it, int axis) {
    return int((it.extremes >> (5 * axis)) & 31u);
}
inline int ownItemMinCorner(const LumSAHItem& it, int axis) {
    return int((it.extremes >> (15 + 5 * axis)) & 31u);
}
inline Lum32f ownItemLo(const LumSAHItem& it, int axis) {
    return it.vertices[ownItemMinCorner(it, axis)][axis];
}
inline Lum32f ownItemHi(const LumSAHItem& it, int axis) {
    return it.vertices[ownItemMaxCorner(it, axis)][axis];
}

// A working node, always allocated as one of a pair (low child first).
//   kind 0..2  interior, split on that axis; value = split position bits,
//              link = the child pair
//   kind 3     leaf or not yet decided; value = count; link = the item array
//              while undecided, then the leaf's triangle numbers (null when
//              empty)
constexpr Lum32s kSAHLeafKind = 3;
struct LumSAHNode {
    Lum32s kind;
    Lum32u value;
    void* link;
};

// One 16 MiB block of a chunk list.  A list's head has the same form with
// no buffer, so the first allocation from a list always opens a block; the
// head's end and cursor mirror the newest block.
struct LumSAHBlock {
    LumSAHBlock* next;
    LumSAHBlock* prev;
    char* buffer;
    char* end;
    char* cursor;
};
static_assert(sizeof(LumSAHBlock) == 0x28, "a block header is charged as 40 bytes");

constexpr Lum32u kSAHBlockBytes = 0x1000000u;   // buffer of one chunk block
constexpr Lum32u kSAHBlockCharge = 0x1000028u;  // buffer and header
constexpr Lum32u kSAHContextCharge = 400;
constexpr int kSAHWorkArrays = 12;  // starts, ends, planars, scratch per axis
constexpr int kSAHFreeLists = 10;   // vertex-pointer arrays by corner count

struct LumSAHContext {
    Lum32u total;
    Lum32u remaining;
    const Lum32f* vertices;
    const Lum32f* verticesEnd;
    const Lum32s* triangles;
    const Lum32s* trianglesEnd;
    char* itemStart;
    char* itemEnd;
    char* itemCursor;
    char* vertexStart;
    char* vertexEnd;
    char* vertexCursor;
    Lum32f* work[kSAHWorkArrays];
    LumSAHBlock nodeChunks;
    LumSAHBlock leafChunks;
    void* freeLists[kSAHFreeLists];
    LumSAHBlock polygonChunks;
};
static_assert(sizeof(LumSAHContext) <= kSAHContextCharge, "the context is charged as 400 bytes");

// The cut chosen for a node, per axis during the search.
struct LumSplitResult {
    Lum64f cost;      // leaf cost on entry, best cost after a sweep
    Lum32f splitPos;
    Lum32s axis;      // 0, 1, 2, or -1 for no split
    Lum32s leftCount;
    Lum32s rightCount;
    Lum32s planarSide;  // 0: items lying in the plane go low, else high
};

// ---- Context and memory ------------------------------------------------------

// Admits the build against the limit, allocates and charges the context, the
// twelve work arrays and the two arenas.  lumStatusNoMem when the limit is
// below the admission formula (nothing allocated then).
LumStatus ownSAHContextInit(LumSAHContext** ppCtx, const Lum32f* pVertices, Lum32s nVertices,
                            const Lum32s* pTriangles, Lum32s nTriangles, Lum32u byteLimit);
// Releases everything still held, then the context.
void ownSAHContextFree(LumSAHContext* ctx);
// Releases what the subdivision needed and the final write does not: the
// polygon chunks, both arenas and the work arrays.
void ownSAHReleaseWorkMemory(LumSAHContext* ctx);

// size bytes from a chunk list; opens (and charges) a block when the
// current one cannot hold them.
LumStatus ownSAHChunkTake(LumSAHContext* ctx, LumSAHBlock* head, size_t size, void** pOut);
// size bytes from an arena (no growth).
LumStatus ownSAHArenaTake(char** pCursor, const char* end, size_t size, void** pOut);

// A vertex-pointer array of n corners: from free list n, else new.
LumStatus ownSAHPolygonArrayTake(LumSAHContext* ctx, Lum32s n, const Lum32f*** pOut);
void ownSAHPolygonArrayRelease(LumSAHContext* ctx, const Lum32f** arr, Lum32s n);

// ---- Polygons ------------------------------------------------------------------

void ownEdgeCut(const Lum32f* a, const Lum32f* b, Lum32f plane, int axis, Lum32f* out);
Lum32u ownPolygonExtremes(const Lum32f* const* vertices, Lum32s count);
LumStatus ownPolygonSplit(const LumSAHItem* item, LumSAHItem* left, LumSAHItem* right, Lum32f s,
                          int axis, LumSAHContext* ctx);
// The root list clipped to a box; *pCount items at *ppItems (item arena).
LumStatus ownClipTriangles(LumSAHContext* ctx, const Lum32f* pClipBox, Lum32s nTriangles,
                           LumSAHItem** ppItems, Lum32s* pCount);

// ---- Subdivision and the final block ---------------------------------------

LumStatus ownOptimizationPSAH(LumSAHContext* ctx, LumSAHNode* root, Lum32f splitQuality,
                              Lum32s maxDepth, const Lum32f* box);
// Size in bytes of the block that the tree under root needs.
int64_t ownMeasureTree(const LumSAHNode* root);
void ownWriteTree(const LumSAHNode* node, LumKDTreeNode* out, LumKDTreeNode*& nodeCursor,
                  Lum32s*& listCursor);
LumStatus ownFlattenTree(const LumSAHNode* root, LumKDTreeNode** ppTree, Lum32s* pSize);
