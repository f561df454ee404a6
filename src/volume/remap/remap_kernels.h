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
    for (Lum32s e = 0; e < width; ++e) {
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
            const __m128 wx = ownCubicWeights(K::table(), fx);
            const __m128 wy = ownCubicWeights(K::table(), fy);
            const __m128 wz = ownCubicWeights(K::table(), fz);
            ownStoreAt(dstRow, e, ownCubicSample<S, OwnBorderTruncate>(src, b, i, j, k, wx, wy, wz));
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
