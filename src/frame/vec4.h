// Four-lane helpers shared by every vector and packet body: the alignment
// gate and the processor's fast reciprocal and reciprocal square root with
// their Newton steps.  These live once so that every body refines the same way.
#pragma once

#include <immintrin.h>

#include <cstdint>

#include "lumr.h"

inline bool ownIsAligned16(const void* p) {
    return (reinterpret_cast<std::uintptr_t>(p) & 15u) == 0;
}

inline bool ownIsAligned16(const LumPlanes3* p) {
    return ownIsAligned16(p->X) && ownIsAligned16(p->Y) && ownIsAligned16(p->Z);
}

// The gate of a two-body stream function: every named stream on a 16-byte
// boundary and a length that is a multiple of 4.  The order of the tests
// cannot change a result.
template <class... P>
inline bool ownGate4(Lum32s len, const P*... p) {
    return (len & 3) == 0 && (ownIsAligned16(p) && ...);
}

// Lane masks: a lane is on when its mask value is zero or more, so the sign
// bits alone decide.  movemask gives bit i set for an off lane i.
inline int ownOffBits(const Lum32s* pMask) {
    return _mm_movemask_ps(_mm_castsi128_ps(
        _mm_load_si128(reinterpret_cast<const __m128i*>(pMask))));
}
enum OwnMaskCase { kAllOn = 0, kAllOff = 0xF };

// Fast reciprocal with one Newton step, written as 2 r0 - (r0 r0) d.
inline __m128 ownRcpNewton(__m128 d, __m128 r0) {
    return _mm_sub_ps(_mm_add_ps(r0, r0), _mm_mul_ps(_mm_mul_ps(r0, r0), d));
}

// The same step on eight lanes, for the packet walks that hold eight rays.
inline __m256 ownRcpNewton8(__m256 d, __m256 r0) {
    return _mm256_sub_ps(_mm256_add_ps(r0, r0), _mm256_mul_ps(_mm256_mul_ps(r0, r0), d));
}

// Reciprocal square root refined by one Newton step in the form
// (y x -0.5) x ((s x y) x y - 3), where y is the processor's estimate.
inline __m128 ownRsqrtNewton(__m128 s, __m128 y) {
    const __m128 t = _mm_sub_ps(_mm_mul_ps(_mm_mul_ps(s, y), y), _mm_set1_ps(3.0f));
    return _mm_mul_ps(_mm_mul_ps(y, _mm_set1_ps(-0.5f)), t);
}
