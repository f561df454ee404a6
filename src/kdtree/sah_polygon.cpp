// Triangles as convex polygons: clipping to the caller's box, cutting at a
// split plane, and the packed extreme corners.  A child's bounds are those
// of the part of a triangle inside it, which is what keeps the cost model
// honest for long triangles.
#include <cstdint>
#include <cstring>

#include "kdtree/sah_context.h"

namespace {

// Polygons are convex up to rounding, so a corner list never grows beyond a
// few entries past the nine of a triangle clipped by a box; the buffers leave
// room for the rounding cases and anything beyond nine is refused.
constexpr int kCornerBuffer = 32;

// A new corner copied to the vertex arena, 12 bytes at a time.
LumStatus localNewVertex(LumSAHContext* ctx, const Lum32f* v, const Lum32f** pOut) {
    void* p = nullptr;
    const LumStatus st = ownSAHArenaTake(&ctx->vertexCursor, ctx->vertexEnd, 12, &p);
    if (st != lumStatusOk) return st;
    std::memcpy(p, v, 12);
    *pOut = static_cast<const Lum32f*>(p);
    return lumStatusOk;
}

// The item for a corner list: array from the free lists or polygon chunks.
LumStatus localMakeItem(LumSAHContext* ctx, Lum32s triangle, const Lum32f* const* corners,
                        Lum32s n, LumSAHItem* out) {
    if (n > kSAHMaxCorners) return lumStatusInternal;
    const Lum32f** arr = nullptr;
    const LumStatus st = ownSAHPolygonArrayTake(ctx, n, &arr);
    if (st != lumStatusOk) return st;
    for (Lum32s i = 0; i < n; ++i) arr[i] = corners[i];
    out->id = (Lum32u(triangle) << kSAHIdShift) | Lum32u(n);
    out->vertices = arr;
    out->extremes = ownPolygonExtremes(arr, n);
    return lumStatusOk;
}

}  // namespace

void ownEdgeCut(const Lum32f* a, const Lum32f* b, Lum32f plane, int axis, Lum32f* out) {
    const Lum64f f = (Lum64f(plane) - Lum64f(a[axis])) / (Lum64f(b[axis]) - Lum64f(a[axis]));
    for (int k = 0; k < 3; ++k)
        out[k] = Lum32f((Lum64f(b[k]) - Lum64f(a[k])) * f + Lum64f(a[k]));
    out[axis] = plane;  // exactly on the split, whatever the rounding above
}

Lum32u ownPolygonExtremes(const Lum32f* const* vertices, Lum32s count) {
    Lum32u packed = 0;
    for (int a = 0; a < 3; ++a) {
        Lum32f lo = vertices[0][a], hi = lo;
        Lum32u iLo = 0, iHi = 0;
        for (Lum32s i = 1; i < count; ++i) {
            const Lum32f c = vertices[i][a];
            // An equal coordinate keeps the earlier corner; NaN never wins.
            if (c > hi) hi = c, iHi = Lum32u(i);
            if (c < lo) lo = c, iLo = Lum32u(i);
        }
        packed |= (iHi << (5 * a)) | (iLo << (15 + 5 * a));
    }
    return packed;
}

LumStatus ownPolygonSplit(const LumSAHItem* item, LumSAHItem* left, LumSAHItem* right, Lum32f s,
                          int axis, LumSAHContext* ctx) {
    const Lum32s n = ownItemCount(*item);
    const Lum32f* const* v = item->vertices;
    const int lo = ownItemMinCorner(*item, axis), hi = ownItemMaxCorner(*item, axis);
    const Lum32f* lp[kCornerBuffer];
    const Lum32f* rp[kCornerBuffer];
    int nl = 0, nr = 0;
    // Every step forward counts; a walk that needs more than one turn round
    // the polygon only happens with NaN corners and is refused.
    int walked = 0;
    auto step = [&](int i) { ++walked; return i + 1 == n ? 0 : i + 1; };
    auto pushL = [&](const Lum32f* p) { if (nl < kCornerBuffer) lp[nl] = p; ++nl; };
    auto pushR = [&](const Lum32f* p) { if (nr < kCornerBuffer) rp[nr] = p; ++nr; };
    LumStatus st = lumStatusOk;

    // From the least corner forward while below the plane.
    int p = lo;
    pushL(v[lo]);
    int j = step(lo);
    while (v[j][axis] < s && walked <= n) {
        pushL(v[j]);
        p = j;
        j = step(j);
    }
    if (walked > n) return lumStatusInternal;
    const Lum32f* cut1 = nullptr;
    if (v[j][axis] == s) {  // a corner on the plane serves as the cut
        cut1 = v[j];
        p = j;
        j = step(j);
    } else {
        Lum32f c[3];
        ownEdgeCut(v[p], v[j], s, axis, c);
        if ((st = localNewVertex(ctx, c, &cut1)) != lumStatusOk) return st;
    }
    pushL(cut1);
    pushR(cut1);

    // On to the greatest corner, then forward while above the plane.
    for (;;) {
        if (walked > n) return lumStatusInternal;
        pushR(v[j]);
        if (j == hi) break;
        j = step(j);
    }
    p = j;
    j = step(j);
    while (v[j][axis] > s && walked <= n) {
        pushR(v[j]);
        p = j;
        j = step(j);
    }
    if (walked > n) return lumStatusInternal;
    const Lum32f* cut2 = nullptr;
    if (v[j][axis] == s) {
        cut2 = v[j];
        j = step(j);
    } else {
        Lum32f c[3];
        ownEdgeCut(v[p], v[j], s, axis, c);
        if ((st = localNewVertex(ctx, c, &cut2)) != lumStatusOk) return st;
    }
    pushR(cut2);
    pushL(cut2);

    // Back round to the least corner.
    while (j != lo) {
        if (walked > n) return lumStatusInternal;
        pushL(v[j]);
        j = step(j);
    }
    if (walked > n || nl > kSAHMaxCorners || nr > kSAHMaxCorners) return lumStatusInternal;

    const Lum32s tri = ownItemTriangle(*item);
    if ((st = localMakeItem(ctx, tri, lp, nl, left)) != lumStatusOk) return st;
    if ((st = localMakeItem(ctx, tri, rp, nr, right)) != lumStatusOk) return st;
    ownSAHPolygonArrayRelease(ctx, item->vertices, n);
    return lumStatusOk;
}

LumStatus ownClipTriangles(LumSAHContext* ctx, const Lum32f* pClipBox, Lum32s nTriangles,
                           LumSAHItem** ppItems, Lum32s* pCount) {
    *ppItems = reinterpret_cast<LumSAHItem*>(ctx->itemCursor);
    *pCount = 0;
    // Corners made by cutting live here until the triangle is known to stay.
    Lum32f made[3][kCornerBuffer][3];
    const Lum32f* bufA[kCornerBuffer];
    const Lum32f* bufB[kCornerBuffer];
    for (Lum32s t = 0; t < nTriangles; ++t) {
        const Lum32s* tri = ctx->triangles + size_t(t) * 4;
        const Lum32f** cur = bufA;
        const Lum32f** out = bufB;
        int n = 3;
        for (int k = 0; k < 3; ++k) cur[k] = ctx->vertices + size_t(tri[k]) * 3;

        for (int axis = 0; axis < 3 && n >= 3; ++axis) {
            const Lum32f mn = pClipBox[axis], mx = pClipBox[axis + 3];
            int m = 0, nMade = 0;
            auto cutAt = [&](const Lum32f* a, const Lum32f* b, Lum32f plane) {
                if (m < kCornerBuffer && nMade < kCornerBuffer) {
                    ownEdgeCut(a, b, plane, axis, made[axis][nMade]);
                    out[m] = made[axis][nMade++];
                }
                ++m;
            };
            for (int i = 0; i < n; ++i) {
                const Lum32f* a = cur[i];
                const Lum32f* b = cur[i + 1 == n ? 0 : i + 1];
                const Lum32f ca = a[axis], cb = b[axis];
                if (mn <= ca && ca <= mx) {
                    if (m < kCornerBuffer) out[m] = a;
                    ++m;
                }
                if (cb > ca) {
                    if (ca < mn && mn < cb) cutAt(a, b, mn);
                    if (ca < mx && mx < cb) cutAt(a, b, mx);
                } else {
                    if (ca > mx && mx > cb) cutAt(a, b, mx);
                    if (ca > mn && mn > cb) cutAt(a, b, mn);
                }
            }
            if (m > kSAHMaxCorners) return lumStatusInternal;  // beyond any convex case
            n = m;
            const Lum32f** t2 = cur;
            cur = out;
            out = t2;
        }
        // Dropped as soon as fewer than three corners remain after an axis:
        // what is left has no area inside the box.
        if (n < 3) continue;

        // Made corners go to the vertex arena; the caller's stay as pointers.
        const Lum32f* corners[kSAHMaxCorners];
        for (int i = 0; i < n; ++i) {
            const Lum32f* c = cur[i];
            const std::uintptr_t at = reinterpret_cast<std::uintptr_t>(c);
            const std::uintptr_t base = reinterpret_cast<std::uintptr_t>(&made[0][0][0]);
            const bool isMade = at >= base && at < base + sizeof(made);
            if (isMade) {
                const LumStatus st = localNewVertex(ctx, c, &c);
                if (st != lumStatusOk) return st;
            }
            corners[i] = c;
        }
        void* slot = nullptr;
        LumStatus st = ownSAHArenaTake(&ctx->itemCursor, ctx->itemEnd, sizeof(LumSAHItem), &slot);
        if (st != lumStatusOk) return st;
        st = localMakeItem(ctx, t, corners, n, static_cast<LumSAHItem*>(slot));
        if (st != lumStatusOk) return st;
        ++*pCount;
    }
    return lumStatusOk;
}
