// Hit points: origin + direction scaled by the hit distance and by eps, a
// factor (not an offset) that a caller sets a little below 1 to stop just
// short of the surface.  The shared-origin and per-ray-origin forms differ in
// the origin alone and in one shortcut of the vector body.
#include "frame/own.h"
#include "frame/vec4.h"

namespace {

// One origin for every ray.  Its vector body has no all-on shortcut: every
// group that is not all off goes through the blend.
struct SharedOrigin {
    static constexpr bool kSkipBlendWhenAllOn = false;
    // Read only for groups and lanes that are on, as the per-ray planes are.
    explicit SharedOrigin(const Lum32f* o) : p(o) {}
    Lum32f at(int k, Lum32s) const { return p[k]; }
    __m128 at4(int k, Lum32s) const { return _mm_set1_ps(p[k]); }
    const Lum32f* p;
};

// An origin per ray, its planes inside the gate.
struct PerRayOrigin {
    static constexpr bool kSkipBlendWhenAllOn = true;
    explicit PerRayOrigin(const LumPlanes3* o) : p{o->X, o->Y, o->Z} {}
    Lum32f at(int k, Lum32s i) const { return p[k][i]; }
    __m128 at4(int k, Lum32s i) const { return _mm_load_ps(p[k] + i); }
    const Lum32f* p[3];
};

// Deliberate: the plain loop scales as (eps x direction) x distance and the
// vector body as (distance x direction) x eps; both orders are kept, so the
// two bodies may differ in the last bit.
template <class Origin>
void localHitPlain(const Origin& o, const LumPlanes3& dir, const Lum32f* dist, const Lum32s* m,
                   const LumPlanes3& hit, Lum32s len, Lum32f eps) {
    const Lum32f* const d[3] = {dir.X, dir.Y, dir.Z};
    Lum32f* const h[3] = {hit.X, hit.Y, hit.Z};
    for (Lum32s i = 0; i < len; ++i)
        for (int k = 0; k < 3; ++k)
            h[k][i] = m[i] < 0 ? 0.0f : (eps * d[k][i]) * dist[i] + o.at(k, i);
}

template <class Origin>
void localHitVec(const Origin& o, const LumPlanes3& dir, const Lum32f* dist, const Lum32s* m,
                 const LumPlanes3& hit, Lum32s len, Lum32f eps) {
    const Lum32f* const d[3] = {dir.X, dir.Y, dir.Z};
    Lum32f* const h[3] = {hit.X, hit.Y, hit.Z};
    const __m128 epsV = _mm_set1_ps(eps);
    for (Lum32s i = 0; i < len; i += 4) {
        const int offBits = ownOffBits(m + i);
        if (offBits == kAllOff) {
            for (int k = 0; k < 3; ++k) _mm_store_ps(h[k] + i, _mm_setzero_ps());
            continue;
        }
        const __m128 distV = _mm_load_ps(dist + i);
        const __m128 off = _mm_castsi128_ps(
            _mm_srai_epi32(_mm_load_si128(reinterpret_cast<const __m128i*>(m + i)), 31));
        for (int k = 0; k < 3; ++k) {
            const __m128 p = _mm_add_ps(
                _mm_mul_ps(_mm_mul_ps(distV, _mm_load_ps(d[k] + i)), epsV), o.at4(k, i));
            const bool allOn = Origin::kSkipBlendWhenAllOn && offBits == kAllOn;
            _mm_store_ps(h[k] + i, allOn ? p : _mm_andnot_ps(off, p));
        }
    }
}

}  // namespace

// The origin is not checked.
LUMR_EXPORT LumStatus lumrHitPoint3DEpsS0_32f_M(const Lum32f pOrigin[3],
                                                const LumPlanes3* pDirection,
                                                const Lum32f* pDist, const Lum32s* pMask,
                                                const LumPlanes3* pHit, Lum32s len, Lum32f eps) {
    if (!pDist || !pMask || !pDirection || !pHit) return lumStatusNullPtr;
    const SharedOrigin o(pOrigin);
    if (ownGate4(len, pDist, pMask, pDirection->X, pDirection->Y, pDirection->Z, pHit->X,
                 pHit->Y, pHit->Z))
        localHitVec(o, *pDirection, pDist, pMask, *pHit, len, eps);
    else
        localHitPlain(o, *pDirection, pDist, pMask, *pHit, len, eps);
    return lumStatusOk;
}

LUMR_EXPORT LumStatus lumrHitPoint3DEpsM0_32f_M(const LumPlanes3* pOrigin,
                                                const LumPlanes3* pDirection,
                                                const Lum32f* pDist, const Lum32s* pMask,
                                                const LumPlanes3* pHit, Lum32s len, Lum32f eps) {
    if (!pDist || !pMask || !pDirection || !pHit || !pOrigin) return lumStatusNullPtr;
    const PerRayOrigin o(pOrigin);
    if (ownGate4(len, pDist, pMask, pOrigin->X, pOrigin->Y, pOrigin->Z, pDirection->X,
                 pDirection->Y, pDirection->Z, pHit->X, pHit->Y, pHit->Z))
        localHitVec(o, *pDirection, pDist, pMask, *pHit, len, eps);
    else
        localHitPlain(o, *pDirection, pDist, pMask, *pHit, len, eps);
    return lumStatusOk;
}
