// Aligned and unaligned four-lane memory access for the ray generators, which
// pick one or the other by the alignment of their streams.  The two differ in
// the instructions only: every value loaded or stored is the same.
#pragma once

#include <immintrin.h>

#include "lumr.h"

struct AlignedAccess {
    static __m128 load(const Lum32f* p) { return _mm_load_ps(p); }
    static void store(Lum32f* p, __m128 v) { _mm_store_ps(p, v); }
    // Eight lanes on a 16-byte boundary: no aligned 32-byte store fits, and
    // one unaligned 32-byte store is faster here than two aligned halves.
    static void store8(Lum32f* p, __m256 v) { _mm256_storeu_ps(p, v); }
    static __m128i loadMask(const Lum32s* p) {
        return _mm_load_si128(reinterpret_cast<const __m128i*>(p));
    }
    static void storeMask(Lum32s* p, __m128i v) {
        _mm_store_si128(reinterpret_cast<__m128i*>(p), v);
    }
};

struct UnalignedAccess {
    static __m128 load(const Lum32f* p) { return _mm_loadu_ps(p); }
    static void store(Lum32f* p, __m128 v) { _mm_storeu_ps(p, v); }
    static void store8(Lum32f* p, __m256 v) { _mm256_storeu_ps(p, v); }
    static __m128i loadMask(const Lum32s* p) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    }
    static void storeMask(Lum32s* p, __m128i v) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
    }
};

// All bits set in the off lanes (mask negative), clear in the on lanes.
inline __m128 ownOffLanes(__m128i mask) { return _mm_castsi128_ps(_mm_srai_epi32(mask, 31)); }

// Bit i set for an off lane i; kAllOn and kAllOff of vec4.h name the extremes.
inline int ownOffBitsOf(__m128i mask) { return _mm_movemask_ps(_mm_castsi128_ps(mask)); }
