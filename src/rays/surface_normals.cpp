// Surface normals at hit points: the flat normal of the hit triangle, the
// normal interpolated from its vertices, and once per mesh the table of
// triangle normals.  The hit index stream is the mask: a negative triangle
// number is a ray that hit nothing.
#include <cmath>
#include <cstddef>

#include "frame/own.h"
#include "frame/parallel.h"
#include "frame/vec4.h"

namespace {

inline __m128 localOffLanes(const Lum32s* p) {
    return _mm_castsi128_ps(
        _mm_srai_epi32(_mm_load_si128(reinterpret_cast<const __m128i*>(p)), 31));
}

// Three consecutive floats as (x, y, z, 0), never reading a fourth: the last
// item of an array may end at the end of its block.
inline __m128 localLoad3(const Lum32f* p) {
    const __m128 xy = _mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(p));
    return _mm_movelh_ps(xy, _mm_load_ss(p + 2));
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

// A copy, so the values move through registers untouched, NaN payloads
// included.  Off lanes of a partly off group never touch the table (their
// triangle numbers are negative) and are zero from the start.
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
            __m128 lane[4];
            for (int j = 0; j < 4; ++j)
                lane[j] = t[j] < 0 ? _mm_setzero_ps()
                                   : localLoad3(table + 3 * static_cast<std::ptrdiff_t>(t[j]));
            _MM_TRANSPOSE4_PS(lane[0], lane[1], lane[2], lane[3]);
            x = lane[0], y = lane[1], z = lane[2];
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

// The three normals of each lane as x, y, z planes.  Lanes that are off use 1
// for every component, so that no invalid arithmetic arises from data that
// was never fetched; they are cleared afterwards.
inline void localGatherCorners(const SmoothArgs& a, const Lum32s* t, __m128 (&n)[3][3]) {
    __m128 lane[3][4];
    for (int j = 0; j < 4; ++j) {
        if (t[j] < 0) {
            lane[0][j] = lane[1][j] = lane[2][j] = _mm_set1_ps(1.0f);
            continue;
        }
        const Lum32s* c = localCorners(a, t[j]);
        for (int v = 0; v < 3; ++v) lane[v][j] = localLoad3(localVertexNormal(a, c[v]));
    }
    for (int v = 0; v < 3; ++v) {
        _MM_TRANSPOSE4_PS(lane[v][0], lane[v][1], lane[v][2], lane[v][3]);
        n[v][0] = lane[v][0], n[v][1] = lane[v][1], n[v][2] = lane[v][2];
    }
}

// Deliberate: the processor's reciprocal square root with one Newton step in
// place of the square root and divisions of the plain loop, so the two bodies
// differ in the last bits; and the estimate is zeroed unless s is greater than
// 2^-23, so s exactly at the threshold gives a zero normal here only.  Below
// the threshold the result is m x 0, a zero that keeps the sign of m.
void localSmoothVec(const SmoothArgs& a, Lum32s len) {
    const LumPlanes3& d = *a.dst;
    Lum32f* const dst[3] = {d.X, d.Y, d.Z};
    const __m128 one = _mm_set1_ps(1.0f), minS = _mm_set1_ps(kMinSquaredLength);
    for (Lum32s i = 0; i < len; i += 4) {
        const int offBits = ownOffBits(a.trngl + i);
        if (offBits == kAllOff) {
            for (int k = 0; k < 3; ++k) _mm_store_ps(dst[k] + i, _mm_setzero_ps());
            continue;
        }
        const Lum32s* t = a.trngl + i;
        __m128 n[3][3];
        if (offBits == kAllOn && localSameTriangle(t)) {
            const Lum32s* c = localCorners(a, t[0]);
            for (int v = 0; v < 3; ++v) {
                const Lum32f* p = localVertexNormal(a, c[v]);
                for (int k = 0; k < 3; ++k) n[v][k] = _mm_set1_ps(p[k]);
            }
        } else {
            localGatherCorners(a, t, n);
        }
        const __m128 u = _mm_load_ps(a.u + i), v = _mm_load_ps(a.v + i);
        const __m128 w = _mm_sub_ps(_mm_sub_ps(one, u), v);
        __m128 m[3];
        for (int k = 0; k < 3; ++k)
            m[k] = _mm_add_ps(_mm_mul_ps(n[2][k], w),
                              _mm_add_ps(_mm_mul_ps(v, n[1][k]), _mm_mul_ps(u, n[0][k])));
        const __m128 s = _mm_add_ps(_mm_add_ps(_mm_mul_ps(m[0], m[0]), _mm_mul_ps(m[1], m[1])),
                                    _mm_mul_ps(m[2], m[2]));
        const __m128 y = _mm_and_ps(_mm_rsqrt_ps(s), _mm_cmpgt_ps(s, minS));
        const __m128 z = ownRsqrtNewton(s, y);
        const __m128 off = localOffLanes(a.trngl + i);
        for (int k = 0; k < 3; ++k) {
            const __m128 r = _mm_mul_ps(m[k], z);
            _mm_store_ps(dst[k] + i, offBits == kAllOn ? r : _mm_andnot_ps(off, r));
        }
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
