// The remap driver and row kernel.  Coordinates arrive as float; the range
// test, the nearest rounding, the truncation to indices and the fractions
// are all taken from that one float value.
#pragma once

#include <cstring>

#include "volume/interp/interp.h"
#include "volume/remap/remap.h"

inline Lum32f ownLoadCoord(const Lum32f* row, Lum32s x) {
    Lum32f v;  // rows are mapStep bytes apart, so may sit at any address
    std::memcpy(&v, row + x, sizeof v);
    return v;
}

namespace ownDetail {

inline __m256 remapLinearIndex8(__m256 v, Lum32s top, Lum32s out[8]) {
    const __m256i t = _mm256_cvttps_epi32(v);
    return ownLinearIndex8(_mm256_castsi256_si128(t), _mm256_extractf128_si256(t, 1), top, out);
}

// The linear body eight elements at a time, up to the last full block;
// returns where the one-at-a-time loop takes over.  Lane by lane it does the
// arithmetic of the plain loop.
template <class S>
Lum32s remapLinear8(const OwnSource<S>& src, void* dstRow, const LumSampleBounds& b, Lum32s width,
                    const Lum32f* pX, const Lum32f* pY, const Lum32f* pZ) {
    const __m256 lx = _mm256_set1_ps(Lum32f(b.xMin)), hx = _mm256_set1_ps(Lum32f(b.xMax));
    const __m256 ly = _mm256_set1_ps(Lum32f(b.yMin)), hy = _mm256_set1_ps(Lum32f(b.yMax));
    const __m256 lz = _mm256_set1_ps(Lum32f(b.zMin)), hz = _mm256_set1_ps(Lum32f(b.zMax));
    Lum32s e = 0;
    for (; e + 8 <= width; e += 8) {
        const __m256 X = _mm256_loadu_ps(pX + e), Y = _mm256_loadu_ps(pY + e);
        const __m256 Z = _mm256_loadu_ps(pZ + e);
        // "Not less than" is true for NaN, as the plain test lets NaN pass.
        __m256 in = _mm256_and_ps(_mm256_cmp_ps(X, lx, _CMP_NLT_UQ), _mm256_cmp_ps(hx, X, _CMP_NLT_UQ));
        in = _mm256_and_ps(in, _mm256_and_ps(_mm256_cmp_ps(Y, ly, _CMP_NLT_UQ),
                                             _mm256_cmp_ps(hy, Y, _CMP_NLT_UQ)));
        in = _mm256_and_ps(in, _mm256_and_ps(_mm256_cmp_ps(Z, lz, _CMP_NLT_UQ),
                                             _mm256_cmp_ps(hz, Z, _CMP_NLT_UQ)));
        const int mask = _mm256_movemask_ps(in);
        if (mask == 0) continue;
        Lum32s i[8], j[8], k[8];
        const __m256 fx = _mm256_sub_ps(X, remapLinearIndex8(X, b.xMax, i));
        const __m256 fy = _mm256_sub_ps(Y, remapLinearIndex8(Y, b.yMax, j));
        const __m256 fz = _mm256_sub_ps(Z, remapLinearIndex8(Z, b.zMax, k));
        ownBorrowIndices8(mask, i, j, k);
        ownStoreLinear8<S>(dstRow, e, ownLinearSum8(src, i, j, k, fx, fy, fz), mask);
    }
    return e;
}

}  // namespace ownDetail

// One row of the destination: elements 0..width-1, each on its own.  A
// position outside the clipped box leaves its element untouched; the tests
// are strict and in float, so X = xMax is in range and xMax + 0.25 is not, and
// a NaN passes (no guard: its index is the caller's fault).
template <class S, class K>
void ownRemapRow(const typename S::Type* const* pSrc, void* dstRow, Lum32s srcStepN, Lum32s xMin,
                 Lum32s xMax, Lum32s yMin, Lum32s yMax, Lum32s zMin, Lum32s zMax, Lum32s width,
                 const Lum32f* pX, const Lum32f* pY, const Lum32f* pZ) {
    const OwnSource<S> src{pSrc, srcStepN};
    const LumSampleBounds b{xMin, yMin, zMin, xMax, yMax, zMax};
    const Lum32f lx = static_cast<Lum32f>(xMin), hx = static_cast<Lum32f>(xMax);
    const Lum32f ly = static_cast<Lum32f>(yMin), hy = static_cast<Lum32f>(yMax);
    const Lum32f lz = static_cast<Lum32f>(zMin), hz = static_cast<Lum32f>(zMax);
    Lum32s e = 0;
    if constexpr (std::is_same_v<K, OwnLinear>) e = ownDetail::remapLinear8(src, dstRow, b, width, pX, pY, pZ);
    for (; e < width; ++e) {
        const Lum32f X = ownLoadCoord(pX, e), Y = ownLoadCoord(pY, e), Z = ownLoadCoord(pZ, e);
        if (X < lx || hx < X || Y < ly || hy < Y || Z < lz || hz < Z) continue;
        if constexpr (std::is_same_v<K, OwnNearest>) {
            // In range before rounding, so the rounded index is in the box.
            const auto v = src.row(ownRoundEven(Y), ownRoundEven(Z))[ownRoundEven(X)];
            ownStoreAt(dstRow, e, v);
        } else if constexpr (std::is_same_v<K, OwnLinear>) {
            // Deliberate: a box one sample wide at 0 lowers the index to -1
            // and reads that sample (or plane pointer) with weight zero.
            const Lum32s i = ownLinearLower(ownTruncate(X), xMax);
            const Lum32s j = ownLinearLower(ownTruncate(Y), yMax);
            const Lum32s k = ownLinearLower(ownTruncate(Z), zMax);
            const Lum32f fx = X - static_cast<Lum32f>(i);
            const Lum32f fy = Y - static_cast<Lum32f>(j);
            const Lum32f fz = Z - static_cast<Lum32f>(k);
            ownStoreAt(dstRow, e, S::fromLinear(ownLinearSum(src, i, j, k, fx, fy, fz)));
        } else {
            static_assert(OwnIsCubic<K>::value, "unknown interpolation kind");
            const Lum32s i = ownTruncate(X), j = ownTruncate(Y), k = ownTruncate(Z);
            const Lum32f fx = X - static_cast<Lum32f>(i);
            const Lum32f fy = Y - static_cast<Lum32f>(j);
            const Lum32f fz = Z - static_cast<Lum32f>(k);
            const OwnCubicWeightSet w = ownCubicWeights3(K::table(), fx, fy, fz);
            ownStoreAt(dstRow, e, ownCubicSample<S, OwnBorderTruncate>(src, b, i, j, k, w));
        }
    }
}

// Plane by plane, row by row: the row kernel, then every row pointer moves
// on by its own step in bytes.
template <class S, class K>
void ownRemap(const void* const* pSrc, void* const* pDst, Lum32s srcStepN, Lum32s dstStep,
              const Lum32f* const* pxMap, const Lum32f* const* pyMap, const Lum32f* const* pzMap,
              Lum32s mapStep, const LumSampleBounds* pBounds, const LumVolume* pSize) {
    using T = typename S::Type;
    const auto* src = reinterpret_cast<const T* const*>(pSrc);
    const LumSampleBounds b = *pBounds;
    const Lum32s width = pSize->width, height = pSize->height, planes = pSize->depth;
    for (Lum32s z = 0; z < planes; ++z) {
        char* d = static_cast<char*>(pDst[z]);
        const char* mx = reinterpret_cast<const char*>(pxMap[z]);
        const char* my = reinterpret_cast<const char*>(pyMap[z]);
        const char* mz = reinterpret_cast<const char*>(pzMap[z]);
        for (Lum32s y = 0; y < height; ++y) {
            ownRemapRow<S, K>(src, d, srcStepN, b.xMin, b.xMax, b.yMin, b.yMax, b.zMin, b.zMax, width,
                              reinterpret_cast<const Lum32f*>(mx), reinterpret_cast<const Lum32f*>(my),
                              reinterpret_cast<const Lum32f*>(mz));
            d += dstStep, mx += mapStep, my += mapStep, mz += mapStep;
        }
    }
}
