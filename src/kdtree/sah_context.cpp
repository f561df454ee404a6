// The SAH build's memory: admission against the caller's limit, the chunk
// lists, the two arenas and the free lists of vertex-pointer arrays.
#include <cstring>

#include "frame/own.h"
#include "kdtree/sah_context.h"

namespace {

void localFreeChunks(LumSAHBlock* head) {
    LumSAHBlock* b = head->next;
    while (b) {
        LumSAHBlock* next = b->next;
        ownFree(b);
        b = next;
    }
    head->next = head->prev = nullptr;
    head->buffer = head->end = head->cursor = nullptr;
}

}  // namespace

LumStatus ownSAHContextInit(LumSAHContext** ppCtx, const Lum32f* pVertices, Lum32s nVertices,
                            const Lum32s* pTriangles, Lum32s nTriangles, Lum32u byteLimit) {
    const Lum32u nT = Lum32u(nTriangles), nV = Lum32u(nVertices);
    // Deliberate: the admission sum is taken modulo 2^32, so very large
    // meshes can wrap below the limit and be admitted; the arenas then run
    // out with lumStatusPoolExhausted instead.
    const Lum32u need = 84u * nT + 12u * nV + 0x20001E0u;
    if (byteLimit < need) return lumStatusNoMem;

    // The limit stands in for an allocation check in the original design;
    // a null from the allocator is still answered with lumStatusNoMem here,
    // since nothing else could be done with it safely.
    LumSAHContext* ctx = static_cast<LumSAHContext*>(ownAlloc32(Lum32s(kSAHContextCharge / 4)));
    if (!ctx) return lumStatusNoMem;
    std::memset(ctx, 0, sizeof(*ctx));
    ctx->total = byteLimit;
    ctx->remaining = byteLimit - kSAHContextCharge;
    ctx->vertices = pVertices;
    ctx->verticesEnd = pVertices + size_t(nV) * 3;
    ctx->triangles = pTriangles;
    ctx->trianglesEnd = pTriangles + size_t(nT) * 4;
    *ppCtx = ctx;

    for (int i = 0; i < kSAHWorkArrays; ++i) {
        ctx->work[i] = static_cast<Lum32f*>(ownAlloc32(nTriangles));
        ctx->remaining -= 4u * nT;
        if (nTriangles > 0 && !ctx->work[i]) return lumStatusNoMem;
    }

    // Deliberate: the arenas are sized by whole 16 MiB units plus one spare
    // unit and never grow; their charge may exceed what admission assumed,
    // and the remaining budget is plain unsigned arithmetic (it may wrap).
    const Lum32u itemBytes = ((36u * nT) & ~0xFFFFFFu) + 0x1000000u;
    const Lum32u vertexBytes = ((48u * nV) & ~0xFFFFFFu) + 0x1000000u;
    ctx->itemStart = static_cast<char*>(ownAlloc32(Lum32s(itemBytes / 4)));
    ctx->remaining -= itemBytes;
    if (!ctx->itemStart) return lumStatusNoMem;
    ctx->itemEnd = ctx->itemStart + itemBytes;
    ctx->itemCursor = ctx->itemStart;
    ctx->vertexStart = static_cast<char*>(ownAlloc32(Lum32s(vertexBytes / 4)));
    ctx->remaining -= vertexBytes;
    if (!ctx->vertexStart) return lumStatusNoMem;
    ctx->vertexEnd = ctx->vertexStart + vertexBytes;
    ctx->vertexCursor = ctx->vertexStart;
    return lumStatusOk;
}

void ownSAHReleaseWorkMemory(LumSAHContext* ctx) {
    localFreeChunks(&ctx->polygonChunks);
    for (void*& head : ctx->freeLists) head = nullptr;  // they lived in the polygon chunks
    ownFree(ctx->itemStart);
    ctx->itemStart = ctx->itemEnd = ctx->itemCursor = nullptr;
    ownFree(ctx->vertexStart);
    ctx->vertexStart = ctx->vertexEnd = ctx->vertexCursor = nullptr;
    for (Lum32f*& w : ctx->work) {
        ownFree(w);
        w = nullptr;
    }
}

void ownSAHContextFree(LumSAHContext* ctx) {
    if (!ctx) return;
    ownSAHReleaseWorkMemory(ctx);
    localFreeChunks(&ctx->nodeChunks);
    localFreeChunks(&ctx->leafChunks);
    ownFree(ctx);
}

LumStatus ownSAHChunkTake(LumSAHContext* ctx, LumSAHBlock* head, size_t size, void** pOut) {
    if (head->cursor && size < size_t(head->end - head->cursor)) {
        *pOut = head->cursor;
        head->cursor += size;
        return lumStatusOk;
    }
    // The limit counts whole blocks.
    if (ctx->remaining < kSAHBlockCharge) return lumStatusPoolExhausted;
    // A request larger than a block could never be served (a leaf of more
    // than four million triangles); it is refused like an exhausted pool.
    if (size >= kSAHBlockBytes) return lumStatusPoolExhausted;
    LumSAHBlock* b = static_cast<LumSAHBlock*>(ownAlloc32(Lum32s(kSAHBlockCharge / 4)));
    if (!b) return lumStatusNoMem;
    ctx->remaining -= kSAHBlockCharge;
    b->buffer = reinterpret_cast<char*>(b + 1);
    b->end = b->buffer + kSAHBlockBytes;
    b->cursor = b->buffer + size;
    b->prev = head;
    b->next = head->next;
    if (head->next) head->next->prev = b;
    head->next = b;
    head->buffer = b->buffer;
    head->end = b->end;
    head->cursor = b->cursor;
    *pOut = b->buffer;
    return lumStatusOk;
}

LumStatus ownSAHArenaTake(char** pCursor, const char* end, size_t size, void** pOut) {
    // Deliberate: reaching the end exactly already counts as full.
    if (!*pCursor || size >= size_t(end - *pCursor)) return lumStatusPoolExhausted;
    *pOut = *pCursor;
    *pCursor += size;
    return lumStatusOk;
}

LumStatus ownSAHPolygonArrayTake(LumSAHContext* ctx, Lum32s n, const Lum32f*** pOut) {
    void*& head = ctx->freeLists[n];
    if (head) {
        void* arr = head;
        std::memcpy(&head, arr, sizeof(void*));  // a free array's first 8 bytes link the next
        *pOut = static_cast<const Lum32f**>(arr);
        return lumStatusOk;
    }
    void* p = nullptr;
    const LumStatus st = ownSAHChunkTake(ctx, &ctx->polygonChunks, size_t(n) * 8, &p);
    *pOut = static_cast<const Lum32f**>(p);
    return st;
}

void ownSAHPolygonArrayRelease(LumSAHContext* ctx, const Lum32f** arr, Lum32s n) {
    void*& head = ctx->freeLists[n];
    std::memcpy(static_cast<void*>(arr), &head, sizeof(void*));
    head = arr;
}
