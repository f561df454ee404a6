// Surface normals at hit points: the flat normal of the hit triangle, the
// normal interpolated from its vertices, and once per mesh the table of
// triangle normals.  The hit index stream is the mask: a negative triangle
// number is a ray that hit nothing.
#include <cmath>
#include <cstddef>
#include <cstring>

#include "frame/own.h"
#include "frame/parallel.h"
#include "frame/vec4.h"

namespace {

inline __m128 localOffLanes(const Lum32s* p) {
    return _mm_castsi128_ps(
        _mm_srai_epi32(_mm_load_si128(reinterpret_cast<const __m128i*>(p)), 31));
}

// Four items of three consecutive floats each, turned into x, y and z planes.
// Each item is read as 8 + 4 bytes, never a fourth float: the last item of
// an array may end at the end of its block.
inline __m128 localLoad2(const Lum32f* p) {
    double xy;
    std::memcpy(&xy, p, 8);
    return _mm_castpd_ps(_mm_set_sd(xy));
}

inline void localPlanes3(const Lum32f* a, const Lum32f* b, const Lum32f* c, const Lum32f* d,
                         __m128& x, __m128& y, __m128& z) {
    const __m128 ab = _mm_unpacklo_ps(localLoad2(a), localLoad2(b));  // ax bx ay by
    const __m128 cd = _mm_unpacklo_ps(localLoad2(c), localLoad2(d));  // cx dx cy dy
    x = _mm_movelh_ps(ab, cd);
    y = _mm_movehl_ps(cd, ab);
    z = _mm_movelh_ps(_mm_unpacklo_ps(_mm_load_ss(a + 2), _mm_load_ss(b + 2)),
                      _mm_unpacklo_ps(_mm_load_ss(c + 2), _mm_load_ss(d + 2)));
}

inline bool localSameTriangle(const Lum32s* t) {
    return t[0] == t[1] && t[0] == t[2] && t[0] == t[3];
}

// ---- lumrSurfFlatNormal_32f ----------------------------------------------------

void localFlatPlain(const Lum32f* table, const Lum32s* trngl, const LumPlanes3& dst, Lum32s len) {
    for (Lum32s i = 0; i < len; ++i) {
        if (trngl[i] < 0) {
            dst.X[i] = 0.0f, dst.Y[i] = 0.0f, dst.Z[i] = 0.0f;
            continue;
        }
        const Lum32f* n = table + 3 * static_cast<std::ptrdiff_t>(trngl[i]);
        dst.X[i] = n[0], dst.Y[i] = n[1], dst.Z[i] = n[2];
    }
}

inline const Lum32f* localFlatEntry(const Lum32f* table, Lum32s t) {
    static const Lum32f kZeros[3] = {0.0f, 0.0f, 0.0f};
    return t < 0 ? kZeros : table + 3 * static_cast<std::ptrdiff_t>(t);
}

// A copy, so the values move through registers untouched, NaN payloads
// included.  Off lanes of a partly off group never touch the table (their
// triangle numbers are negative): they read zeros instead.
void localFlatVec(const Lum32f* table, const Lum32s* trngl, const LumPlanes3& dst, Lum32s len) {
    for (Lum32s i = 0; i < len; i += 4) {
        const int offBits = ownOffBits(trngl + i);
        const Lum32s* t = trngl + i;
        __m128 x, y, z;
        if (offBits == kAllOff) {
            x = y = z = _mm_setzero_ps();
        } else if (offBits == kAllOn && localSameTriangle(t)) {
            const Lum32f* n = table + 3 * static_cast<std::ptrdiff_t>(t[0]);
            x = _mm_set1_ps(n[0]), y = _mm_set1_ps(n[1]), z = _mm_set1_ps(n[2]);
        } else {
            localPlanes3(localFlatEntry(table, t[0]), localFlatEntry(table, t[1]),
                         localFlatEntry(table, t[2]), localFlatEntry(table, t[3]), x, y, z);
        }
        _mm_store_ps(dst.X + i, x), _mm_store_ps(dst.Y + i, y), _mm_store_ps(dst.Z + i, z);
    }
}

// ---- lumrSurfSmoothNormal_32f -----------------------------------------------------

// 2^-23, the binary32 machine epsilon: below it the interpolated normal is
// too short to give a direction.
constexpr Lum32f kMinSquaredLength = 1.1920929e-7f;

struct SmoothArgs {
    const Lum32f* vertNorm;
    const Lum32s* index;
    const Lum32s* trngl;
    const Lum32f* u;
    const Lum32f* v;
    const LumPlanes3* dst;
    Lum32s stride;
};

inline const Lum32s* localCorners(const SmoothArgs& a, Lum32s t) {
    return a.index + static_cast<std::ptrdiff_t>(t) * a.stride;
}

inline const Lum32f* localVertexNormal(const SmoothArgs& a, Lum32s vertex) {
    return a.vertNorm + 3 * static_cast<std::ptrdiff_t>(vertex);
}

// Square root and three divisions; a zero normal strictly below the
// threshold, so s exactly 2^-23 is still divided here.
void localSmoothPlain(const SmoothArgs& a, Lum32s len) {
    const LumPlanes3& d = *a.dst;
    for (Lum32s i = 0; i < len; ++i) {
        if (a.trngl[i] < 0) {
            d.X[i] = 0.0f, d.Y[i] = 0.0f, d.Z[i] = 0.0f;
            continue;
        }
        const Lum32s* c = localCorners(a, a.trngl[i]);
        const Lum32f *n0 = localVertexNormal(a, c[0]), *n1 = localVertexNormal(a, c[1]),
                     *n2 = localVertexNormal(a, c[2]);
        const Lum32f u = a.u[i], v = a.v[i], w = (1.0f - u) - v;
        Lum32f m[3];
        for (int k = 0; k < 3; ++k) m[k] = n2[k] * w + (v * n1[k] + u * n0[k]);
        const Lum32f s = (m[0] * m[0] + m[1] * m[1]) + m[2] * m[2];
        if (s < kMinSquaredLength) {
            d.X[i] = 0.0f, d.Y[i] = 0.0f, d.Z[i] = 0.0f;
            continue;
        }
        const Lum32f r = std::sqrt(s);
        d.X[i] = m[0] / r, d.Y[i] = m[1] / r, d.Z[i] = m[2] / r;
    }
}

// The normal of one corner of lane t's triangle.  An off lane reads
// (1, 1, 1) instead, so that no invalid arithmetic arises from data that was
// never fetched; it is cleared afterwards.
inline const Lum32f* localCornerNormal(const SmoothArgs& a, Lum32s t, int corner) {
    static const Lum32f kOnes[3] = {1.0f, 1.0f, 1.0f};
    return t < 0 ? kOnes : localVertexNormal(a, localCorners(a, t)[corner]);
}

struct CornerPlanes {
    __m128 x, y, z;
};

inline CornerPlanes localGatherCorner(const SmoothArgs& a, const Lum32s* t, int corner) {
    CornerPlanes n;
    localPlanes3(localCornerNormal(a, t[0], corner), localCornerNormal(a, t[1], corner),
                 localCornerNormal(a, t[2], corner), localCornerNormal(a, t[3], corner), n.x, n.y,
                 n.z);
    return n;
}

inline CornerPlanes localBroadcast(const Lum32f* p) {
    return {_mm_set1_ps(p[0]), _mm_set1_ps(p[1]), _mm_set1_ps(p[2])};
}

// Deliberate: the processor's reciprocal square root with one Newton step in
// place of the square root and divisions of the plain loop, so the two bodies
// differ in the last bits; and the estimate is zeroed unless s is greater than
// 2^-23, so s exactly at the threshold gives a zero normal here only.  Below
// the threshold the result is m x 0, a zero that keeps the sign of m.
void localSmoothVec(const SmoothArgs& a, Lum32s len) {
    const LumPlanes3& d = *a.dst;
    const __m128 one = _mm_set1_ps(1.0f), minS = _mm_set1_ps(kMinSquaredLength);
    for (Lum32s i = 0; i < len; i += 4) {
        const int offBits = ownOffBits(a.trngl + i);
        if (offBits == kAllOff) {
            const __m128 zero = _mm_setzero_ps();
            _mm_store_ps(d.X + i, zero), _mm_store_ps(d.Y + i, zero), _mm_store_ps(d.Z + i, zero);
            continue;
        }
        const Lum32s* t = a.trngl + i;
        CornerPlanes n0, n1, n2;
        if (offBits == kAllOn && localSameTriangle(t)) {
            const Lum32s* c = localCorners(a, t[0]);
            n0 = localBroadcast(localVertexNormal(a, c[0]));
            n1 = localBroadcast(localVertexNormal(a, c[1]));
            n2 = localBroadcast(localVertexNormal(a, c[2]));
        } else {
            n0 = localGatherCorner(a, t, 0);
            n1 = localGatherCorner(a, t, 1);
            n2 = localGatherCorner(a, t, 2);
        }
        const __m128 u = _mm_load_ps(a.u + i), v = _mm_load_ps(a.v + i);
        const __m128 w = _mm_sub_ps(_mm_sub_ps(one, u), v);
        const __m128 mx =
            _mm_add_ps(_mm_mul_ps(n2.x, w), _mm_add_ps(_mm_mul_ps(v, n1.x), _mm_mul_ps(u, n0.x)));
        const __m128 my =
            _mm_add_ps(_mm_mul_ps(n2.y, w), _mm_add_ps(_mm_mul_ps(v, n1.y), _mm_mul_ps(u, n0.y)));
        const __m128 mz =
            _mm_add_ps(_mm_mul_ps(n2.z, w), _mm_add_ps(_mm_mul_ps(v, n1.z), _mm_mul_ps(u, n0.z)));
        const __m128 s =
            _mm_add_ps(_mm_add_ps(_mm_mul_ps(mx, mx), _mm_mul_ps(my, my)), _mm_mul_ps(mz, mz));
        const __m128 y = _mm_and_ps(_mm_rsqrt_ps(s), _mm_cmpgt_ps(s, minS));
        const __m128 z = ownRsqrtNewton(s, y);
        __m128 rx = _mm_mul_ps(mx, z), ry = _mm_mul_ps(my, z), rz = _mm_mul_ps(mz, z);
        if (offBits != kAllOn) {
            const __m128 off = localOffLanes(t);
            rx = _mm_andnot_ps(off, rx), ry = _mm_andnot_ps(off, ry), rz = _mm_andnot_ps(off, rz);
        }
        _mm_store_ps(d.X + i, rx), _mm_store_ps(d.Y + i, ry), _mm_store_ps(d.Z + i, rz);
    }
}

// ---- lumrTriangleNormal_32f ---------------------------------------------------------

// 2^-52, the binary64 machine epsilon.
constexpr Lum64f kMinSquaredArea = 2.220446049250313e-16;

inline void localTriangleNormal(const Lum32f* vertices, const Lum32s* tri, Lum32f* out) {
    const Lum32f* p0 = vertices + 3 * static_cast<std::ptrdiff_t>(tri[0]);
    const Lum32f* p1 = vertices + 3 * static_cast<std::ptrdiff_t>(tri[1]);
    const Lum32f* p2 = vertices + 3 * static_cast<std::ptrdiff_t>(tri[2]);
    const Lum64f x2 = p2[0], y2 = p2[1], z2 = p2[2];
    const Lum64f ax = Lum64f{p0[0]} - x2, ay = Lum64f{p0[1]} - y2, az = Lum64f{p0[2]} - z2;
    const Lum64f bx = Lum64f{p1[0]} - x2, by = Lum64f{p1[1]} - y2, bz = Lum64f{p1[2]} - z2;
    const Lum64f nx = ay * bz - az * by;
    const Lum64f ny = az * bx - ax * bz;
    const Lum64f nz = ax * by - ay * bx;
    const Lum64f s = (nx * nx + ny * ny) + nz * nz;
    // A degenerate triangle gets a zero normal and no failure.
    if (s < kMinSquaredArea) {
        out[0] = 0.0f, out[1] = 0.0f, out[2] = 0.0f;
        return;
    }
    const Lum64f r = std::sqrt(s);
    out[0] = static_cast<Lum32f>(nx / r);
    out[1] = static_cast<Lum32f>(ny / r);
    out[2] = static_cast<Lum32f>(nz / r);
}

}  // namespace

// The destination planes are not checked: the one output of this family left
// to the caller.
LUMR_EXPORT LumStatus lumrSurfFlatNormal_32f(const Lum32f* pTrnglNorm, const Lum32s* pTrngl,
                                             const LumPlanes3* pNorm, Lum32s len) {
    if (!pTrnglNorm || !pTrngl) return lumStatusNullPtr;
    // An empty stream must not look at the unchecked destination either.
    if (len <= 0) return lumStatusOk;
    if (ownGate4(len, pTrnglNorm, pTrngl, pNorm->X, pNorm->Y, pNorm->Z))
        localFlatVec(pTrnglNorm, pTrngl, *pNorm, len);
    else
        localFlatPlain(pTrnglNorm, pTrngl, *pNorm, len);
    return lumStatusOk;
}

// Neither triangle nor vertex numbers are checked against anything, nor is
// indexStride held to 3 or more: the index array is the caller's.
LUMR_EXPORT LumStatus lumrSurfSmoothNormal_32f(const Lum32f* pVertNorm, const Lum32s* pIndex,
                                               const Lum32s* pTrngl, Lum32f* const pHit[2],
                                               const LumPlanes3* pNorm, Lum32s len,
                                               Lum32s indexStride) {
    if (!pVertNorm || !pIndex || !pTrngl || !pHit || !pNorm) return lumStatusNullPtr;
    const SmoothArgs a{pVertNorm, pIndex, pTrngl, pHit[0], pHit[1], pNorm, indexStride};
    if (ownGate4(len, pVertNorm, pIndex, pTrngl, pNorm->X, pNorm->Y, pNorm->Z, pHit[0], pHit[1]))
        localSmoothVec(a, len);
    else
        localSmoothPlain(a, len);
    return lumStatusOk;
}

// Every triangle writes its own entry, so the static loop needs no lock.  The
// region opens for any count, a count of zero or below included.  Vertex
// numbers are not checked.
LUMR_EXPORT LumStatus lumrTriangleNormal_32f(const Lum32f* pVertices, const Lum32s* pTriangles,
                                             Lum32f* pTrnglNorm, Lum32s count) {
    if (!pVertices || !pTriangles || !pTrnglNorm) return lumStatusNullPtr;
    ownStaticLoop(count, [=](Lum32s t) {
        localTriangleNormal(pVertices, pTriangles + 4 * static_cast<std::ptrdiff_t>(t),
                            pTrnglNorm + 3 * static_cast<std::ptrdiff_t>(t));
    });
    return lumStatusOk;
}
