// Lane-width wrappers: a vector body is written once against Lanes<W>, with
// the same per-lane operations whatever the width.  Loads and stores are
// unaligned forms, which cost nothing on aligned data.
#pragma once

#include <immintrin.h>

#include "lumr.h"

template <int W>
struct Lanes;

template <>
struct Lanes<4> {
    using V = __m128;
    static constexpr int kAllOff = 0xF;
    static V load(const Lum32f* p) { return _mm_loadu_ps(p); }
    static void store(Lum32f* p, V v) { _mm_storeu_ps(p, v); }
    // The mask stream's words as floats: their sign bits select off lanes.
    static V mask(const Lum32s* p) {
        return _mm_castsi128_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
    }
    static void storeMask(Lum32s* p, V v) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm_castps_si128(v));
    }
    static int signs(V v) { return _mm_movemask_ps(v); }
    static V set1(Lum32f f) { return _mm_set1_ps(f); }
    static V zero() { return _mm_setzero_ps(); }
    static V add(V a, V b) { return _mm_add_ps(a, b); }
    static V sub(V a, V b) { return _mm_sub_ps(a, b); }
    static V mul(V a, V b) { return _mm_mul_ps(a, b); }
    static V sqrt(V a) { return _mm_sqrt_ps(a); }
    static V lt(V a, V b) { return _mm_cmplt_ps(a, b); }
    static V gt(V a, V b) { return _mm_cmpgt_ps(a, b); }
    static V and_(V a, V b) { return _mm_and_ps(a, b); }
    static V andnot(V a, V b) { return _mm_andnot_ps(a, b); }
    static V xor_(V a, V b) { return _mm_xor_ps(a, b); }
    // Per lane: sel's sign bit set ? b : a.
    static V blend(V a, V b, V sel) { return _mm_blendv_ps(a, b, sel); }
};

// Runs a step over groups of four lanes, two groups an iteration; the caller
// has checked that len is a multiple of 4.  Eight-lane registers measured
// slower for these streams: the gate promises only 16-byte alignment, so
// half of all 32-byte accesses would split a cache line.
template <class Step>
inline void ownForLanes(Lum32s len, Step&& step) {
    Lum32s i = 0;
    for (; len - i >= 8; i += 8) {  // no overflow near the largest lengths
        step.template run<4>(i);
        step.template run<4>(i + 4);
    }
    if (i < len) step.template run<4>(i);
}
