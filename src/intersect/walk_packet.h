// Packets of rays: the walk, the triangle test and the tile driver shared by
// every intersection entry point's packet body.
//
// A packet is one AVX register of eight lanes.  The eight-ray walk fills it
// with two rows of four rays of a tile; the four-ray walk uses the low four
// lanes for one row and keeps the high four inert (never active, never
// accepting), so both walks are this one loop and the per-lane arithmetic is
// the same as on rows of four.
//
// What differs between entry points is supplied by a Hits policy:
//
//   bool leafTriangle(packet, record, n, active&);  test one triangle for all
//                                                   lanes; true ends the walk
//   __m256 resume(tMax) const;                      lanes active after a leaf
//
// and by a Recent policy: the ring of the last four triangles tested (the
// eight-ray walks of the nearest and layered searches) or nothing.
#pragma once

#include <immintrin.h>

#include "frame/vec4.h"
#include "intersect/walk_plain.h"

struct OwnPacket {
    __m256 o[3];  // origins (one broadcast origin for the single-origin entries)
    __m256 d[3];  // directions
    __m256 r[3];  // walk reciprocals
    int sign[3];  // octant of every lane: near = children[sign]
};

inline __m256 ownLt8(__m256 a, __m256 b) { return _mm256_cmp_ps(a, b, _CMP_LT_OQ); }
inline __m256 ownLe8(__m256 a, __m256 b) { return _mm256_cmp_ps(a, b, _CMP_LE_OQ); }
inline bool ownAny8(__m256 m) { return _mm256_movemask_ps(m) != 0; }
inline __m256 ownAbs8(__m256 v) { return _mm256_andnot_ps(_mm256_set1_ps(-0.0f), v); }
inline __m256 ownIntBits8(Lum32s n) { return _mm256_castsi256_ps(_mm256_set1_epi32(n)); }
// Lanes of `ifSet` where `mask` is all ones, of `ifClear` where it is zero:
// the blend of a comparison's mask written with bitwise operations, which
// the compiler keeps in registers (its blend form of such a mask can fall
// apart into lane-by-lane code without 256-bit integer instructions).
inline __m256 ownSelect8(__m256 mask, __m256 ifSet, __m256 ifClear) {
    return _mm256_or_ps(_mm256_and_ps(mask, ifSet), _mm256_andnot_ps(mask, ifClear));
}

// Two rows of four as one packet, or one row in the low lanes with zeros above.
inline __m256 ownLoadRows(const Lum32f* row0, const Lum32f* row1) {
    return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_load_ps(row0)), _mm_load_ps(row1), 1);
}
inline __m256 ownLoadRow(const Lum32f* row) {
    return _mm256_insertf128_ps(_mm256_setzero_ps(), _mm_load_ps(row), 0);
}
inline __m256 ownLoadRows(const Lum32s* row0, const Lum32s* row1) {
    return ownLoadRows(reinterpret_cast<const Lum32f*>(row0), reinterpret_cast<const Lum32f*>(row1));
}
inline __m256 ownLoadRow(const Lum32s* row) {
    return ownLoadRow(reinterpret_cast<const Lum32f*>(row));
}
inline void ownStoreRows(Lum32f* row0, Lum32f* row1, __m256 v) {
    _mm_store_ps(row0, _mm256_castps256_ps128(v));
    _mm_store_ps(row1, _mm256_extractf128_ps(v, 1));
}
inline void ownStoreRows(Lum32s* row0, Lum32s* row1, __m256 v) {
    ownStoreRows(reinterpret_cast<Lum32f*>(row0), reinterpret_cast<Lum32f*>(row1), v);
}
// Stores the low four lanes where `lanes` is set, keeping the others.
inline void ownStoreRowMasked(Lum32f* row, __m256 v, __m256 lanes) {
    const __m128 old = _mm_load_ps(row);
    _mm_store_ps(row, _mm_blendv_ps(old, _mm256_castps256_ps128(v), _mm256_castps256_ps128(lanes)));
}
inline void ownStoreRowMasked(Lum32s* row, __m256 v, __m256 lanes) {
    ownStoreRowMasked(reinterpret_cast<Lum32f*>(row), v, lanes);
}
// The low four lanes of a four-bit lane set, as a packet mask.
inline __m256 ownLaneMask(int bits) {
    return _mm256_castsi256_ps(_mm256_setr_epi32(bits & 1 ? -1 : 0, bits & 2 ? -1 : 0,
                                                 bits & 4 ? -1 : 0, bits & 8 ? -1 : 0, 0, 0, 0, 0));
}

// Per-lane terms of the triangle test: inside, distance and weights, with
// the reciprocal of det as fast estimate plus one Newton step (the estimate
// is zeroed where a lane is outside, so such a lane gets t = 0 and fails).
struct OwnPacketTri {
    __m256 inside, t, u, v;
    __m256 r0;  // the estimate as used, zero outside
};

// False when no lane is inside; the distances are then not computed.
inline bool ownTriPacket(const OwnPacket& pk, const LumTriangleAccel& R, OwnPacketTri& h) {
    const OwnAccelAxes ax = ownAccelAxes(R);
    const __m256 nP = _mm256_set1_ps(R.nP), nQ = _mm256_set1_ps(R.nQ);
    const __m256 dp = pk.d[ax.p], dq = pk.d[ax.q];
    const __m256 det =
        _mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(nP, dp), _mm256_mul_ps(nQ, dq)), pk.d[ax.w]);
    const __m256 a = _mm256_sub_ps(_mm256_set1_ps(R.baseP), pk.o[ax.p]);
    const __m256 b = _mm256_sub_ps(_mm256_set1_ps(R.baseQ), pk.o[ax.q]);
    const __m256 num = _mm256_sub_ps(
        _mm256_add_ps(_mm256_add_ps(_mm256_set1_ps(R.baseW), _mm256_mul_ps(nP, a)),
                      _mm256_mul_ps(nQ, b)),
        pk.o[ax.w]);
    const __m256 Dp = _mm256_sub_ps(_mm256_mul_ps(dp, num), _mm256_mul_ps(a, det));
    const __m256 Dq = _mm256_sub_ps(_mm256_mul_ps(dq, num), _mm256_mul_ps(b, det));
    const __m256 U = _mm256_sub_ps(_mm256_mul_ps(_mm256_set1_ps(R.e2Q), Dp),
                                   _mm256_mul_ps(_mm256_set1_ps(R.e2P), Dq));
    const __m256 V = _mm256_sub_ps(_mm256_mul_ps(_mm256_set1_ps(R.e1P), Dq),
                                   _mm256_mul_ps(_mm256_set1_ps(R.e1Q), Dp));
    const __m256 W = _mm256_sub_ps(_mm256_sub_ps(det, U), V);
    // Inside means no product is negative: a NaN product passes here and
    // fails at the distance comparison instead.
    const __m256 zero = _mm256_setzero_ps();
    const __m256 neg = _mm256_or_ps(
        _mm256_or_ps(ownLt8(_mm256_mul_ps(W, U), zero), ownLt8(_mm256_mul_ps(U, V), zero)),
        ownLt8(_mm256_mul_ps(W, V), zero));
    h.inside = _mm256_xor_ps(neg, _mm256_castsi256_ps(_mm256_set1_epi32(-1)));
    if (!ownAny8(h.inside)) return false;
    h.r0 = _mm256_and_ps(_mm256_rcp_ps(det), h.inside);
    const __m256 r = ownRcpNewton8(det, h.r0);
    h.t = _mm256_mul_ps(num, r);
    h.u = _mm256_mul_ps(U, r);
    h.v = _mm256_mul_ps(V, r);
    return true;
}

// ---- Recent-triangle policies ------------------------------------------------

// The last four triangles tested, filled round-robin: a triangle listed in
// several leaves is not tested again while it is among them.
struct OwnRecentRing {
    Lum32s ring[4] = {-1, -1, -1, -1};
    int next = 0;
    bool seen(Lum32s n) const { return ring[0] == n || ring[1] == n || ring[2] == n || ring[3] == n; }
    void note(Lum32s n) {
        ring[next] = n;
        next = (next + 1) & 3;
    }
};

struct OwnRecentNone {
    bool seen(Lum32s) const { return false; }
    void note(Lum32s) {}
};

// ---- The walk --------------------------------------------------------------

// tMin, tMax and active come from the caller's box test (or fixed start
// values where there is no box).  Every triangle of a visited leaf is tested
// for all lanes, active or not; active lanes only steer the walk.  There is
// no slack in the near/far decisions.
template <class Hits, class Recent>
void ownWalkPacket(const OwnPacket& pk, __m256 tMin, __m256 tMax, __m256 active,
                   const LumKDTreeNode* root, const LumTriangleAccel* accel, Hits& hits) {
    struct Entry {
        __m256 tMax;
        const LumKDTreeNode* node;
    } stack[kWalkStackDepth];
    int top = 0;
    Recent recent;
    // The octant as bits of one register, so that the next node's address
    // follows from the node word by shifts alone.
    const unsigned signBits = unsigned(pk.sign[0]) | unsigned(pk.sign[1]) << 1 |
                              unsigned(pk.sign[2]) << 2;
    const LumKDTreeNode* node = root;
    for (;;) {
        while (!ownNodeIsLeaf(node)) {
            const int axis = ownNodeAxis(node);
            const __m256 ts = _mm256_mul_ps(
                _mm256_sub_ps(_mm256_set1_ps(ownNodeSplit(node)), pk.o[axis]), pk.r[axis]);
            const LumKDTreeNode* pair = ownNodeChildren(node);
            const unsigned nearSide = (signBits >> axis) & 1u;
            const LumKDTreeNode* nearChild = pair + nearSide;
            const LumKDTreeNode* farChild = pair + (nearSide ^ 1u);
            if (!ownAny8(_mm256_and_ps(active, ownLe8(tMin, ts)))) {
                node = farChild;
            } else if (!ownAny8(_mm256_and_ps(active, ownLe8(ts, tMax)))) {
                node = nearChild;
            } else {
                stack[top++] = {tMax, farChild};
                const __m256 m = _mm256_min_ps(tMax, ts);
                active = _mm256_and_ps(active, ownLe8(tMin, m));
                tMax = _mm256_max_ps(m, tMin);
                node = nearChild;
            }
        }
        const OwnLeafTriangles tris = ownLeafTriangles(node);
        for (Lum32s k = 0; k < tris.count; ++k) {
            const Lum32s n = tris[k];
            if (recent.seen(n)) continue;
            recent.note(n);
            const LumTriangleAccel& R = accel[n];
            if (ownAccelIsDegenerate(R)) continue;
            if (hits.leafTriangle(pk, R, n, active)) return;
        }
        if (top == 0) return;
        active = hits.resume(tMax);
        if (!ownAny8(active)) return;
        --top;
        tMin = tMax;
        node = stack[top].node;
        tMax = stack[top].tMax;
    }
}

// ---- Reciprocals -------------------------------------------------------------

constexpr Lum32f kParallelLimit = 1.1920929e-7f;  // |d| at or below: parallel

// How a packet replaces a near-zero direction component before its
// reciprocal: either the estimate itself (then the Newton step runs on the
// true d) or the component (then estimate and step both see the stand-in).
struct OwnNearZero {
    enum Kind { ReplaceEstimate, ReplaceDirection } kind;
    Lum32f value;
};

// Walk reciprocals of one axis.  `standIn` marks lanes whose component is
// replaced by 838860800 before the estimate whatever the rule: the
// first-row exception of some eight-ray walks.
inline __m256 ownPacketRcp(__m256 d, OwnNearZero rule, __m256 standIn) {
    const __m256 nearZero = ownLe8(ownAbs8(d), _mm256_set1_ps(kParallelLimit));
    __m256 dr = d;
    if (rule.kind == OwnNearZero::ReplaceDirection)
        dr = ownSelect8(nearZero, _mm256_set1_ps(rule.value), dr);
    const __m256 exception = _mm256_and_ps(nearZero, standIn);
    dr = ownSelect8(exception, _mm256_set1_ps(838860800.0f), dr);
    __m256 r0 = _mm256_rcp_ps(dr);
    if (rule.kind == OwnNearZero::ReplaceEstimate)
        r0 = ownSelect8(_mm256_andnot_ps(exception, nearZero), _mm256_set1_ps(rule.value), r0);
    return ownRcpNewton8(dr, r0);
}

// ---- Tiles ---------------------------------------------------------------------

// Octant code per lane of one row of four: bit 0 x negative, bit 1 y, bit 2 z
// (-0 and NaN count as not negative).  Returns the four codes packed 3 bits each.
inline int ownRowOctants(const Lum32f* x, const Lum32f* y, const Lum32f* z) {
    const __m128 zero = _mm_setzero_ps();
    const int mx = _mm_movemask_ps(_mm_cmplt_ps(_mm_load_ps(x), zero));
    const int my = _mm_movemask_ps(_mm_cmplt_ps(_mm_load_ps(y), zero));
    const int mz = _mm_movemask_ps(_mm_cmplt_ps(_mm_load_ps(z), zero));
    int codes = 0;
    for (int l = 0; l < 4; ++l)
        codes |= (((mx >> l) & 1) | (((my >> l) & 1) << 1) | (((mz >> l) & 1) << 2)) << (3 * l);
    return codes;
}

// The tile driver of every packet body: tiles of 4 x 4 rays, tile rows
// outermost.  A tile whose 16 rays share one octant goes to two eight-ray
// walks (rows 0-1, rows 2-3); otherwise, for each octant present from the
// lowest code to the highest, each row holding rays of it gets a four-ray
// walk over those lanes.  The body supplies:
//   bool begin(row, col);            false skips the tile
//   void eight(row, col, octant);    rows row and row + 1
//   void four(row, col, octant, lanes);
template <class Body>
void ownForTiles(Lum32s width, Lum32s height, const LumPlanes3& dir, Body& body) {
    for (Lum32s row = 0; row < height; row += 4) {
        for (Lum32s col = 0; col < width; col += 4) {
            if (!body.begin(row, col)) continue;
            int codes[4];
            int present = 0;
            for (int k = 0; k < 4; ++k) {
                const std::ptrdiff_t at = std::ptrdiff_t(row + k) * width + col;
                codes[k] = ownRowOctants(dir.X + at, dir.Y + at, dir.Z + at);
                for (int l = 0; l < 4; ++l) present |= 1 << ((codes[k] >> (3 * l)) & 7);
            }
            if ((present & (present - 1)) == 0) {
                const int octant = codes[0] & 7;
                body.eight(row, col, octant);
                body.eight(row + 2, col, octant);
                continue;
            }
            for (int octant = 0; octant < 8; ++octant) {
                if (!(present & (1 << octant))) continue;
                for (int k = 0; k < 4; ++k) {
                    int lanes = 0;
                    for (int l = 0; l < 4; ++l)
                        if (((codes[k] >> (3 * l)) & 7) == octant) lanes |= 1 << l;
                    if (lanes) body.four(row + k, col, octant, lanes);
                }
            }
        }
    }
}

inline void ownOctantSigns(int octant, int sign[3]) {
    sign[0] = octant & 1;
    sign[1] = (octant >> 1) & 1;
    sign[2] = (octant >> 2) & 1;
}
