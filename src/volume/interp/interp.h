// The per-sample interpolation shared by remap and the affine warp, once the
// caller has turned a position into integer indices and float fractions:
// the linear sum, the cubic weights from the tables, the cubic tap rules and
// the two cubic summation trees.  The families differ only in how they reach
// indices and fractions and in how a 32f border result is stored.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstring>
#include <type_traits>

#include "lumr.h"
#include "volume/interp/cubic_table.h"
#include "volume/interp/sample.h"

// Interpolation kinds as template arguments of drivers and row kernels.
struct OwnNearest {};
struct OwnLinear {};
template <const OwnCubicTable* Table>
struct OwnCubic {
    static const Lum32f* table() { return Table->w; }
};

// The four cubic codes, 4 to 7, by their tables.
using OwnCubic4 = OwnCubic<&ownCubicTable4>;
using OwnCubic5 = OwnCubic<&ownCubicTable5>;
using OwnCubic6 = OwnCubic<&ownCubicTable6>;
using OwnCubic7 = OwnCubic<&ownCubicTable7>;

template <class K>
struct OwnIsCubic : std::false_type {};
template <const OwnCubicTable* Table>
struct OwnIsCubic<OwnCubic<Table>> : std::true_type {};

// A planar source volume in samples: plane pointers and the row step.
template <class S>
struct OwnSource {
    using T = typename S::Type;
    const T* const* planes;
    Lum32s stepN;
    // The row offset is a 64-bit product everywhere, so no plane size can
    // overflow it.
    const T* row(Lum32s y, Lum32s z) const {
        return planes[z] + static_cast<std::ptrdiff_t>(y) * stepN;
    }
};

// Linear on the eight samples from (i, j, k) to (i+1, j+1, k+1), x first,
// then y, then z; the indices are already lowered at the far faces.
template <class S>
inline Lum32f ownLinearSum(const OwnSource<S>& src, Lum32s i, Lum32s j, Lum32s k, Lum32f fx,
                           Lum32f fy, Lum32f fz) {
    const Lum32f gx = 1.0f - fx, gy = 1.0f - fy, gz = 1.0f - fz;
    const auto* r00 = src.row(j, k) + i;
    const auto* r10 = src.row(j + 1, k) + i;
    const auto* r01 = src.row(j, k + 1) + i;
    const auto* r11 = src.row(j + 1, k + 1) + i;
    const Lum32f a00 = S::toFloat(r00[0]) * gx + S::toFloat(r00[1]) * fx;
    const Lum32f a10 = S::toFloat(r10[0]) * gx + S::toFloat(r10[1]) * fx;
    const Lum32f a01 = S::toFloat(r01[0]) * gx + S::toFloat(r01[1]) * fx;
    const Lum32f a11 = S::toFloat(r11[0]) * gx + S::toFloat(r11[1]) * fx;
    const Lum32f b0 = a00 * gy + a10 * fy;
    const Lum32f b1 = a01 * gy + a11 * fy;
    return b0 * gz + b1 * fz;
}

// The linear index of eight lanes from their truncations (lanes 0-3 in lo,
// 4-7 in hi): lowered by one where it equals the upper bound, written to out
// and returned as float for the fractions.
inline __m256 ownLinearIndex8(__m128i lo, __m128i hi, Lum32s top, Lum32s out[8]) {
    const __m128i h = _mm_set1_epi32(top);
    lo = _mm_add_epi32(lo, _mm_cmpeq_epi32(lo, h));
    hi = _mm_add_epi32(hi, _mm_cmpeq_epi32(hi, h));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), lo);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 4), hi);
    return _mm256_cvtepi32_ps(_mm256_set_m128i(hi, lo));
}

// Lanes out of range borrow the indices of the first lane in range, so that
// they read nothing a one-sample loop would not; their results are dropped.
inline void ownBorrowIndices8(int mask, Lum32s i[8], Lum32s j[8], Lum32s k[8]) {
    if (mask == 0xFF) return;
    const int first = __builtin_ctz(static_cast<unsigned>(mask));
    for (int l = 0; l < 8; ++l)
        if (!(mask & (1 << l))) i[l] = i[first], j[l] = j[first], k[l] = k[first];
}

// Eight linear samples at once, lane l at (i[l], j[l], k[l]) with the
// fractions in lane l of fx, fy, fz.  Each lane runs the operations of
// ownLinearSum in the same order; the x pairs are read in one load each.
template <class S>
inline __m256 ownLinearSum8(const OwnSource<S>& src, const Lum32s i[8], const Lum32s j[8],
                            const Lum32s k[8], __m256 fx, __m256 fy, __m256 fz) {
    using T = typename S::Type;
    const T *r00[8], *r10[8], *r01[8], *r11[8];
    const std::ptrdiff_t step = src.stepN;
    for (int l = 0; l < 8; ++l) {
        const std::ptrdiff_t off = static_cast<std::ptrdiff_t>(j[l]) * step + i[l];
        r00[l] = src.planes[k[l]] + off, r10[l] = r00[l] + step;
        r01[l] = src.planes[k[l] + 1] + off, r11[l] = r01[l] + step;
    }
    const __m256 one = _mm256_set1_ps(1.0f);
    const __m256 gx = _mm256_sub_ps(one, fx), gy = _mm256_sub_ps(one, fy), gz = _mm256_sub_ps(one, fz);
    auto lerpX = [&](const T* const rows[8]) {
        __m256 lo, hi;
        S::gatherPairs8(rows, lo, hi);
        return _mm256_add_ps(_mm256_mul_ps(lo, gx), _mm256_mul_ps(hi, fx));
    };
    const __m256 a00 = lerpX(r00), a10 = lerpX(r10), a01 = lerpX(r01), a11 = lerpX(r11);
    const __m256 b0 = _mm256_add_ps(_mm256_mul_ps(a00, gy), _mm256_mul_ps(a10, fy));
    const __m256 b1 = _mm256_add_ps(_mm256_mul_ps(a01, gy), _mm256_mul_ps(a11, fy));
    return _mm256_add_ps(_mm256_mul_ps(b0, gz), _mm256_mul_ps(b1, fz));
}

// Stores the linear results of eight lanes from element e on, only the
// lanes whose bit is set in mask.
template <class S>
inline void ownStoreLinear8(void* row, Lum32s e, __m256 c, int mask) {
    using T = typename S::Type;
    T out[8];
    if constexpr (std::is_same_v<T, Lum32f>) {
        _mm256_storeu_ps(out, c);
    } else {
        alignas(32) Lum32s v[8];  // rounded half to even, low bits kept
        _mm256_store_si256(reinterpret_cast<__m256i*>(v), _mm256_cvtps_epi32(c));
        for (int l = 0; l < 8; ++l) out[l] = static_cast<T>(v[l]);
    }
    if (mask == 0xFF) {
        std::memcpy(static_cast<char*>(row) + static_cast<std::ptrdiff_t>(e) * sizeof(T), out, sizeof out);
        return;
    }
    for (int l = 0; l < 8; ++l)
        if (mask & (1 << l)) ownStoreAt(row, e + l, out[l]);
}

// The linear index on one axis: at the upper bound it moves down by one, so
// the far face is reached with a fraction of 1 and the pair stays in the box.
inline Lum32s ownLinearLower(Lum32s i, Lum32s hi) { return i == hi ? i - 1 : i; }

// The four tap weights of one axis for taps at offsets -1, 0, 1, 2 from the
// fraction f, looked up with linear interpolation in the table:
// t = |offset - f|, u = min(t, 2) x 100, n = trunc(u),
// w = T[n] + (T[n+1] - T[n]) x (u - n), all in float.  Every lane runs that
// scalar sequence exactly.  A NaN distance takes the min's second operand,
// 2, so no lookup ever leaves the table.
namespace ownDetail {

// Distances scaled to table positions: u = min(|offset - f|, 2) x 100.
inline __m256 tablePositions(__m256 f) {
    const __m256 offsets = _mm256_setr_ps(-1.0f, 0.0f, 1.0f, 2.0f, -1.0f, 0.0f, 1.0f, 2.0f);
    const __m256 t = _mm256_andnot_ps(_mm256_set1_ps(-0.0f), _mm256_sub_ps(offsets, f));
    return _mm256_mul_ps(_mm256_min_ps(t, _mm256_set1_ps(2.0f)), _mm256_set1_ps(100.0f));
}

// T[a], T[a+1] and T[b], T[b+1] in one register, one 8-byte load each.
inline __m128 tablePairs(const Lum32f* table, Lum32s a, Lum32s b) {
    return _mm_loadh_pi(_mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(table + a)),
                        reinterpret_cast<const __m64*>(table + b));
}

}  // namespace ownDetail

// The weights of the three axes of one sample: x in the low half of xy, y in
// its high half, z in z.
struct OwnCubicWeightSet {
    __m256 xy;
    __m128 z;
};

inline OwnCubicWeightSet ownCubicWeights3(const Lum32f* table, Lum32f fx, Lum32f fy, Lum32f fz) {
    using ownDetail::tablePairs;
    const __m256 uxy = ownDetail::tablePositions(_mm256_set_m128(_mm_set1_ps(fy), _mm_set1_ps(fx)));
    const __m256 uzz = ownDetail::tablePositions(_mm256_set1_ps(fz));
    const __m256i nxy = _mm256_cvttps_epi32(uxy), nzz = _mm256_cvttps_epi32(uzz);
    alignas(32) Lum32s n[16];
    _mm256_store_si256(reinterpret_cast<__m256i*>(n), nxy);
    _mm256_store_si256(reinterpret_cast<__m256i*>(n + 8), nzz);
    // Lane pairs regrouped into all T[n] (shuffle 2020) and all T[n+1] (3131).
    const __m256 a = _mm256_set_m128(tablePairs(table, n[4], n[5]), tablePairs(table, n[0], n[1]));
    const __m256 b = _mm256_set_m128(tablePairs(table, n[6], n[7]), tablePairs(table, n[2], n[3]));
    const __m128 c = tablePairs(table, n[8], n[9]), d = tablePairs(table, n[10], n[11]);
    const __m256 loXY = _mm256_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0));
    const __m256 hiXY = _mm256_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1));
    const __m128 loZ = _mm_shuffle_ps(c, d, _MM_SHUFFLE(2, 0, 2, 0));
    const __m128 hiZ = _mm_shuffle_ps(c, d, _MM_SHUFFLE(3, 1, 3, 1));
    const __m256 fracXY = _mm256_sub_ps(uxy, _mm256_cvtepi32_ps(nxy));
    const __m128 fracZ = _mm_sub_ps(_mm256_castps256_ps128(uzz),
                                    _mm256_castps256_ps128(_mm256_cvtepi32_ps(nzz)));
    return {_mm256_add_ps(loXY, _mm256_mul_ps(_mm256_sub_ps(hiXY, loXY), fracXY)),
            _mm_add_ps(loZ, _mm_mul_ps(_mm_sub_ps(hiZ, loZ), fracZ))};
}

inline __m128 ownCubicWeights(const Lum32f* table, Lum32f f) {
    return ownCubicWeights3(table, f, f, f).z;
}

// Tap positions of one axis for the index i and the upper bound hi of the
// clipped box; returns true when the axis is on the border.  The first rule
// that applies decides.
// Deliberate: the low side is tested against 0, the edge of the volume, and
// not against the box, so a box starting above 0 lets its first tap read one
// sample below the box; the high side never passes the box, except that a box
// ending at 0 or 1 keeps the taps 0, 0, 1, 2.
inline bool ownCubicTaps(Lum32s i, Lum32s hi, Lum32s taps[4]) {
    if (i <= 0) {
        taps[0] = 0, taps[1] = 0, taps[2] = 1, taps[3] = 2;
        return true;
    }
    if (i == hi - 1) {
        taps[0] = i - 1, taps[1] = i, taps[2] = i + 1, taps[3] = i + 1;
        return true;
    }
    if (i >= hi) {
        taps[0] = i - 1, taps[1] = i, taps[2] = i, taps[3] = i;
        return true;
    }
    taps[0] = i - 1, taps[1] = i, taps[2] = i + 1, taps[3] = i + 2;
    return false;
}

// An axis whose taps are i-1..i+2, as the rules above give for 1 <= i <= hi-2.
inline bool ownCubicAxisInterior(Lum32s i, Lum32s hi) { return i >= 1 && i <= hi - 2; }

namespace ownDetail {

// The sums over the tap rows of two planes at once: rows[m] holds tap row m
// of one plane in the low half and of the other in the high half.  Each row
// is (wx0 s0 + wx1 s1) + (wx2 s2 + wx3 s3); row m comes back in lane m of
// each half.
inline __m256 rowSums2(__m256 r0, __m256 r1, __m256 r2, __m256 r3, __m256 wx) {
    r0 = _mm256_mul_ps(r0, wx), r1 = _mm256_mul_ps(r1, wx);
    r2 = _mm256_mul_ps(r2, wx), r3 = _mm256_mul_ps(r3, wx);
    // Transpose each half so that register c holds column c of every row.
    const __m256 t0 = _mm256_unpacklo_ps(r0, r1), t1 = _mm256_unpackhi_ps(r0, r1);
    const __m256 t2 = _mm256_unpacklo_ps(r2, r3), t3 = _mm256_unpackhi_ps(r2, r3);
    const __m256 c0 = _mm256_shuffle_ps(t0, t2, _MM_SHUFFLE(1, 0, 1, 0));
    const __m256 c1 = _mm256_shuffle_ps(t0, t2, _MM_SHUFFLE(3, 2, 3, 2));
    const __m256 c2 = _mm256_shuffle_ps(t1, t3, _MM_SHUFFLE(1, 0, 1, 0));
    const __m256 c3 = _mm256_shuffle_ps(t1, t3, _MM_SHUFFLE(3, 2, 3, 2));
    return _mm256_add_ps(_mm256_add_ps(c0, c1), _mm256_add_ps(c2, c3));
}

// From the row sums of planes 0 and 1 (q01) and 2 and 3 (q23) to the result:
// each plane is p = (wy0 r0 + wy1 r1) + (wy2 r2 + wy3 r3), then the terms
// t[n] = wz[n] p[n] are summed (t0 + t1) + (t2 + t3) at the border and
// (t0 + t2) + (t1 + t3) inside.
template <bool kBorder>
inline Lum32f planeSums2(__m256 q01, __m256 q23, __m256 wy, __m128 wz) {
    const __m256 y01 = _mm256_mul_ps(q01, wy), y23 = _mm256_mul_ps(q23, wy);
    // Low half [p0 p2 p0 p2], high half [p1 p3 p1 p3].
    const __m256 h = _mm256_hadd_ps(y01, y23);
    const __m256 p = _mm256_hadd_ps(h, h);
    const __m256 w = _mm256_set_m128(_mm_shuffle_ps(wz, wz, _MM_SHUFFLE(3, 1, 3, 1)),
                                     _mm_shuffle_ps(wz, wz, _MM_SHUFFLE(2, 0, 2, 0)));
    const __m256 t = _mm256_mul_ps(p, w);
    const __m128 even = _mm256_castps256_ps128(t), odd = _mm256_extractf128_ps(t, 1);
    if constexpr (kBorder) {
        const __m128 s = _mm_add_ps(even, odd);  // t0 + t1, t2 + t3
        return _mm_cvtss_f32(_mm_add_ss(s, _mm_shuffle_ps(s, s, 1)));
    } else {
        const __m128 s = _mm_hadd_ps(even, odd);  // t0 + t2, ., t1 + t3, .
        return _mm_cvtss_f32(_mm_add_ss(s, _mm_movehl_ps(s, s)));
    }
}

}  // namespace ownDetail

// One cubic sample from the taps around (i, j, k).  Inside the box
// on every axis the four samples of a tap row are adjacent and are read
// together; otherwise the 64 taps are gathered one by one through the tap
// rules.  Both end in the same row and plane sums; only the last sum and the
// conversion differ.
template <class S, class Border32f>
__attribute__((always_inline)) inline typename S::Type ownCubicSample(
    const OwnSource<S>& src, const LumSampleBounds& b, Lum32s i, Lum32s j, Lum32s k,
    const OwnCubicWeightSet& w) {
    using ownDetail::rowSums2;
    const __m256 wxy = w.xy;
    const __m128 wz = w.z;
    const __m256 wx = _mm256_permute2f128_ps(wxy, wxy, 0x00);
    const __m256 wy = _mm256_permute2f128_ps(wxy, wxy, 0x11);
    if (ownCubicAxisInterior(i, b.xMax) && ownCubicAxisInterior(j, b.yMax) &&
        ownCubicAxisInterior(k, b.zMax)) {
        const std::ptrdiff_t step = src.stepN;
        auto tapPlanes = [&](Lum32s first) {  // planes first and first + 1
            const auto* a = src.row(j - 1, first) + (i - 1);
            const auto* c = src.row(j - 1, first + 1) + (i - 1);
            return rowSums2(S::loadRows2(a, c), S::loadRows2(a + step, c + step),
                            S::loadRows2(a + 2 * step, c + 2 * step),
                            S::loadRows2(a + 3 * step, c + 3 * step), wx);
        };
        const __m256 q01 = tapPlanes(k - 1), q23 = tapPlanes(k + 1);
        return S::fromCubicInterior(ownDetail::planeSums2<false>(q01, q23, wy, wz));
    }
    Lum32s tx[4], ty[4], tz[4];
    ownCubicTaps(i, b.xMax, tx);
    ownCubicTaps(j, b.yMax, ty);
    ownCubicTaps(k, b.zMax, tz);
    __m256 q[2];
    for (int h = 0; h < 2; ++h) {
        __m256 r[4];
        for (int m = 0; m < 4; ++m) {
            const auto* a = src.row(ty[m], tz[2 * h]);
            const auto* c = src.row(ty[m], tz[2 * h + 1]);
            r[m] = _mm256_setr_ps(S::toFloat(a[tx[0]]), S::toFloat(a[tx[1]]), S::toFloat(a[tx[2]]),
                                  S::toFloat(a[tx[3]]), S::toFloat(c[tx[0]]), S::toFloat(c[tx[1]]),
                                  S::toFloat(c[tx[2]]), S::toFloat(c[tx[3]]));
        }
        q[h] = rowSums2(r[0], r[1], r[2], r[3], wx);
    }
    return S::template fromCubicBorder<Border32f>(ownDetail::planeSums2<true>(q[0], q[1], wy, wz));
}
