// The per-sample interpolation shared by remap and the affine warp, once the
// caller has turned a position into integer indices and float fractions:
// the linear sum, the cubic weights from the tables, the cubic tap rules and
// the two cubic summation trees.  The families differ only in how they reach
// indices and fractions and in how a 32f border result is stored.
#pragma once

#include <immintrin.h>

#include <cstddef>

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

// The linear index on one axis: at the upper bound it moves down by one, so
// the far face is reached with a fraction of 1 and the pair stays in the box.
inline Lum32s ownLinearLower(Lum32s i, Lum32s hi) { return i == hi ? i - 1 : i; }

// The four tap weights of one axis for taps at offsets -1, 0, 1, 2 from the
// fraction f, looked up with linear interpolation in the table:
// t = |offset - f|, u = min(t, 2) x 100, n = trunc(u),
// w = T[n] + (T[n+1] - T[n]) x (u - n), all in float.  The four lanes run
// the scalar sequence exactly.  A NaN distance takes the min's second
// operand, 2, so no lookup ever leaves the table.
inline __m128 ownCubicWeights(const Lum32f* table, Lum32f f) {
    const __m128 t = _mm_andnot_ps(_mm_set1_ps(-0.0f),
                                   _mm_sub_ps(_mm_setr_ps(-1.0f, 0.0f, 1.0f, 2.0f), _mm_set1_ps(f)));
    const __m128 u = _mm_mul_ps(_mm_min_ps(t, _mm_set1_ps(2.0f)), _mm_set1_ps(100.0f));
    const __m128i n = _mm_cvttps_epi32(u);
    const __m128 frac = _mm_sub_ps(u, _mm_cvtepi32_ps(n));
    const Lum32s n0 = _mm_cvtsi128_si32(n), n1 = _mm_extract_epi32(n, 1);
    const Lum32s n2 = _mm_extract_epi32(n, 2), n3 = _mm_extract_epi32(n, 3);
    const __m128 lo = _mm_setr_ps(table[n0], table[n1], table[n2], table[n3]);
    const __m128 hi = _mm_setr_ps(table[n0 + 1], table[n1 + 1], table[n2 + 1], table[n3 + 1]);
    return _mm_add_ps(lo, _mm_mul_ps(_mm_sub_ps(hi, lo), frac));
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

inline void transpose4(__m128& a, __m128& b, __m128& c, __m128& d) { _MM_TRANSPOSE4_PS(a, b, c, d); }

// The sum over one tap plane: rows[m] holds the four samples of tap row m.
// Each row is (wx0 s0 + wx1 s1) + (wx2 s2 + wx3 s3); the four row sums come
// back in the lanes of one register, row m in lane m.
inline __m128 rowSums(__m128 r0, __m128 r1, __m128 r2, __m128 r3, __m128 wx) {
    r0 = _mm_mul_ps(r0, wx), r1 = _mm_mul_ps(r1, wx);
    r2 = _mm_mul_ps(r2, wx), r3 = _mm_mul_ps(r3, wx);
    transpose4(r0, r1, r2, r3);  // now r<c> holds column c of every row
    return _mm_add_ps(_mm_add_ps(r0, r1), _mm_add_ps(r2, r3));
}

// From the row sums of the four planes to the result: each plane is
// (wy0 r0 + wy1 r1) + (wy2 r2 + wy3 r3), then t[n] = wz[n] p[n] is summed
// (t0 + t1) + (t2 + t3) at the border and (t0 + t2) + (t1 + t3) inside.
template <bool kBorder>
inline Lum32f planeSums(__m128 q0, __m128 q1, __m128 q2, __m128 q3, __m128 wy, __m128 wz) {
    q0 = _mm_mul_ps(q0, wy), q1 = _mm_mul_ps(q1, wy);
    q2 = _mm_mul_ps(q2, wy), q3 = _mm_mul_ps(q3, wy);
    transpose4(q0, q1, q2, q3);  // q<m> holds row m of every plane
    const __m128 t = _mm_mul_ps(_mm_add_ps(_mm_add_ps(q0, q1), _mm_add_ps(q2, q3)), wz);
    __m128 h;
    if constexpr (kBorder)
        h = _mm_hadd_ps(t, t);  // t0 + t1, t2 + t3
    else
        h = _mm_add_ps(t, _mm_movehl_ps(t, t));  // t0 + t2, t1 + t3
    return _mm_cvtss_f32(_mm_add_ss(h, _mm_shuffle_ps(h, h, 1)));
}

}  // namespace ownDetail

// One cubic sample from the taps around (i, j, k) with the weights of the
// three axes.  Inside the box on every axis the four samples of a tap row are
// adjacent and are read together; otherwise the 64 taps are gathered one by
// one through the tap rules.  Both end in the same row and plane sums; only
// the last sum and the conversion differ.
template <class S, class Border32f>
inline typename S::Type ownCubicSample(const OwnSource<S>& src, const LumSampleBounds& b, Lum32s i,
                                       Lum32s j, Lum32s k, __m128 wx, __m128 wy, __m128 wz) {
    using ownDetail::rowSums;
    if (ownCubicAxisInterior(i, b.xMax) && ownCubicAxisInterior(j, b.yMax) &&
        ownCubicAxisInterior(k, b.zMax)) {
        __m128 q[4];
        for (int n = 0; n < 4; ++n) {
            const auto* p0 = src.row(j - 1, k - 1 + n) + (i - 1);
            const std::ptrdiff_t step = src.stepN;
            q[n] = rowSums(S::loadRow4(p0), S::loadRow4(p0 + step), S::loadRow4(p0 + 2 * step),
                           S::loadRow4(p0 + 3 * step), wx);
        }
        return S::fromCubicInterior(ownDetail::planeSums<false>(q[0], q[1], q[2], q[3], wy, wz));
    }
    Lum32s tx[4], ty[4], tz[4];
    ownCubicTaps(i, b.xMax, tx);
    ownCubicTaps(j, b.yMax, ty);
    ownCubicTaps(k, b.zMax, tz);
    __m128 q[4];
    for (int n = 0; n < 4; ++n) {
        __m128 r[4];
        for (int m = 0; m < 4; ++m) {
            const auto* row = src.row(ty[m], tz[n]);
            r[m] = _mm_setr_ps(S::toFloat(row[tx[0]]), S::toFloat(row[tx[1]]), S::toFloat(row[tx[2]]),
                               S::toFloat(row[tx[3]]));
        }
        q[n] = rowSums(r[0], r[1], r[2], r[3], wx);
    }
    return S::template fromCubicBorder<Border32f>(
        ownDetail::planeSums<true>(q[0], q[1], q[2], q[3], wy, wz));
}
