// The affine warp driver and row kernel.  A source position is three
// doubles carried from sample to sample by repeated addition; the order of
// those additions is part of the result.  From the position the kernel takes
// the range test and the nearest rounding in double, the indices by
// truncating the double, and the fractions from the position rounded to
// float.  Taps, weights, tables and integer conversions are the remap ones.
#pragma once

#include <cstdint>

#include "volume/interp/interp.h"
#include "volume/warp/warp.h"

namespace ownDetail {

// The linear body eight columns at a time.  Positions still advance one
// addition per column, in order; only what follows runs on eight lanes,
// each lane doing the operations of the one-column loop.  Returns the number
// of columns done.
template <class S>
int64_t warpLinear8(const OwnSource<S>& src, void* dstRow, const LumSampleBounds& b, Lum32s x0,
                    int64_t count, Lum64f& sx, Lum64f& sy, Lum64f& sz, Lum64f dx, Lum64f dy,
                    Lum64f dz) {
    const __m256d lx = _mm256_set1_pd(b.xMin), hx = _mm256_set1_pd(b.xMax);
    const __m256d ly = _mm256_set1_pd(b.yMin), hy = _mm256_set1_pd(b.yMax);
    const __m256d lz = _mm256_set1_pd(b.zMin), hz = _mm256_set1_pd(b.zMax);
    auto inRange = [](__m256d v, __m256d lo, __m256d hi) {  // NaN passes, as one by one
        return _mm256_and_pd(_mm256_cmp_pd(v, lo, _CMP_NLT_UQ), _mm256_cmp_pd(v, hi, _CMP_NGT_UQ));
    };
    int64_t e = 0;
    for (; e + 8 <= count; e += 8) {
        Lum64f px[8], py[8], pz[8];
        for (int l = 0; l < 8; ++l) {
            px[l] = sx, py[l] = sy, pz[l] = sz;
            sx += dx, sy += dy, sz += dz;
        }
        const __m256d X0 = _mm256_setr_pd(px[0], px[1], px[2], px[3]);
        const __m256d X1 = _mm256_setr_pd(px[4], px[5], px[6], px[7]);
        const __m256d Y0 = _mm256_setr_pd(py[0], py[1], py[2], py[3]);
        const __m256d Y1 = _mm256_setr_pd(py[4], py[5], py[6], py[7]);
        const __m256d Z0 = _mm256_setr_pd(pz[0], pz[1], pz[2], pz[3]);
        const __m256d Z1 = _mm256_setr_pd(pz[4], pz[5], pz[6], pz[7]);
        const __m256d in0 = _mm256_and_pd(inRange(X0, lx, hx),
                                          _mm256_and_pd(inRange(Y0, ly, hy), inRange(Z0, lz, hz)));
        const __m256d in1 = _mm256_and_pd(inRange(X1, lx, hx),
                                          _mm256_and_pd(inRange(Y1, ly, hy), inRange(Z1, lz, hz)));
        const int mask = _mm256_movemask_pd(in0) | (_mm256_movemask_pd(in1) << 4);
        if (mask == 0) continue;
        Lum32s i[8], j[8], k[8];
        auto fraction = [](__m256d v0, __m256d v1, Lum32s top, Lum32s idx[8]) {
            const __m256 index = ownLinearIndex8(_mm256_cvttpd_epi32(v0), _mm256_cvttpd_epi32(v1), top, idx);
            const __m256 single = _mm256_set_m128(_mm256_cvtpd_ps(v1), _mm256_cvtpd_ps(v0));
            return _mm256_sub_ps(single, index);
        };
        const __m256 fx = fraction(X0, X1, b.xMax, i);
        const __m256 fy = fraction(Y0, Y1, b.yMax, j);
        const __m256 fz = fraction(Z0, Z1, b.zMax, k);
        ownBorrowIndices8(mask, i, j, k);
        ownStoreLinear8<S>(dstRow, static_cast<Lum32s>(x0 + e), ownLinearSum8(src, i, j, k, fx, fy, fz),
                           mask);
    }
    return e;
}

}  // namespace ownDetail

// One line of the destination box: columns x0..x1, absolute.  Out-of-range
// positions leave their element untouched; the increments are added after
// every column either way.
template <class S, class K>
void ownWarpAffineRow(const typename S::Type* const* pSrc, void* dstRow, Lum32s srcStepN,
                      Lum32s xMin, Lum32s xMax, Lum32s yMin, Lum32s yMax, Lum32s zMin, Lum32s zMax,
                      Lum32s x0, Lum32s x1, Lum64f sx, Lum64f sy, Lum64f sz, Lum64f dx, Lum64f dy,
                      Lum64f dz) {
    if (x0 > x1) return;
    const OwnSource<S> src{pSrc, srcStepN};
    const LumSampleBounds b{xMin, yMin, zMin, xMax, yMax, zMax};
    const int64_t count = int64_t{x1} - x0 + 1;
    int64_t e = 0;
    if constexpr (std::is_same_v<K, OwnLinear>)
        e = ownDetail::warpLinear8(src, dstRow, b, x0, count, sx, sy, sz, dx, dy, dz);
    const Lum64f lx = xMin, hx = xMax, ly = yMin, hy = yMax, lz = zMin, hz = zMax;
    for (; e < count; ++e, sx += dx, sy += dy, sz += dz) {
        if (sx < lx || sx > hx || sy < ly || sy > hy || sz < lz || sz > hz) continue;
        const Lum32s x = static_cast<Lum32s>(x0 + e);
        if constexpr (std::is_same_v<K, OwnNearest>) {
            const auto v = src.row(ownRoundEven(sy), ownRoundEven(sz))[ownRoundEven(sx)];
            ownStoreAt(dstRow, x, v);
            continue;
        }
        // Deliberate: the index truncates the double and the fraction comes
        // from the float-rounded position, so a position just below an
        // integer gets a fraction of exactly 1.
        const Lum32f X = static_cast<Lum32f>(sx), Y = static_cast<Lum32f>(sy);
        const Lum32f Z = static_cast<Lum32f>(sz);
        if constexpr (std::is_same_v<K, OwnLinear>) {
            const Lum32s i = ownLinearLower(ownTruncate(sx), xMax);
            const Lum32s j = ownLinearLower(ownTruncate(sy), yMax);
            const Lum32s k = ownLinearLower(ownTruncate(sz), zMax);
            const Lum32f fx = X - static_cast<Lum32f>(i);
            const Lum32f fy = Y - static_cast<Lum32f>(j);
            const Lum32f fz = Z - static_cast<Lum32f>(k);
            ownStoreAt(dstRow, x, S::fromLinear(ownLinearSum(src, i, j, k, fx, fy, fz)));
        } else if constexpr (OwnIsCubic<K>::value) {
            const Lum32s i = ownTruncate(sx), j = ownTruncate(sy), k = ownTruncate(sz);
            const Lum32f fx = X - static_cast<Lum32f>(i);
            const Lum32f fy = Y - static_cast<Lum32f>(j);
            const Lum32f fz = Z - static_cast<Lum32f>(k);
            const OwnCubicWeightSet w = ownCubicWeights3(K::table(), fx, fy, fz);
            // Deliberate: unlike remap, a 32f border sample keeps its fraction.
            ownStoreAt(dstRow, x, ownCubicSample<S, OwnBorderKeepFraction>(src, b, i, j, k, w));
        }
    }
}

// The destination bounds plane by plane and line by line.  The start of a
// line is the start of its plane plus x0 times the x increment; lines and
// planes advance by addition, never by multiplication.
template <class S, class K>
void ownWarpAffine(const void* const* pSrc, void* const* pDst, Lum32s srcStepN, Lum32s dstStep,
                   const LumSampleBounds* pSrcBounds, const LumSampleBounds* pDstBounds,
                   const Lum64f inv[3][4]) {
    using T = typename S::Type;
    const auto* src = reinterpret_cast<const T* const*>(pSrc);
    const LumSampleBounds s = *pSrcBounds, d = *pDstBounds;
    const Lum32s x0 = d.xMin, y0 = d.yMin, z0 = d.zMin, x1 = d.xMax, y1 = d.yMax, z1 = d.zMax;
    Lum64f bx = (y0 * inv[0][1] + inv[0][3]) + inv[0][2] * z0;
    Lum64f by = (y0 * inv[1][1] + inv[1][3]) + z0 * inv[1][2];
    Lum64f bz = (y0 * inv[2][1] + inv[2][3]) + z0 * inv[2][2];
    const Lum64f ex = x0 * inv[0][0], ey = x0 * inv[1][0], ez = x0 * inv[2][0];
    for (int64_t z = z0; z <= z1; ++z) {
        Lum64f lx = bx, ly = by, lz = bz;
        char* row = static_cast<char*>(pDst[z]) + static_cast<std::ptrdiff_t>(y0) * dstStep;
        for (int64_t y = y0; y <= y1; ++y) {
            ownWarpAffineRow<S, K>(src, row, srcStepN, s.xMin, s.xMax, s.yMin, s.yMax, s.zMin,
                                   s.zMax, x0, x1, lx + ex, ly + ey, lz + ez, inv[0][0], inv[1][0],
                                   inv[2][0]);
            lx += inv[0][1], ly += inv[1][1], lz += inv[2][1];
            row += dstStep;
        }
        bx += inv[0][2], by += inv[1][2], bz += inv[2][2];
    }
}
