// Sample types of remap and the affine warp: how a stored sample becomes a
// float and how a result becomes a stored sample again.  Linear results and
// the two kinds of cubic result (interior, border) are converted differently
// on purpose; each conversion is written once here for both families.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstring>
#include <type_traits>

#include "lumr.h"

// How a 32f cubic result at the border of the box is stored: remap passes
// it through an integer, the warp keeps it as computed.
struct OwnBorderTruncate {};
struct OwnBorderKeepFraction {};

// Nearest integer in the processor's rounding mode, which the library never
// changes: a half goes to the even neighbour.
inline Lum32s ownRoundEven(Lum32f v) { return _mm_cvtss_si32(_mm_set_ss(v)); }
inline Lum32s ownRoundEven(Lum64f v) { return _mm_cvtsd_si32(_mm_set_sd(v)); }
// Truncation toward zero with the processor's defined answer for values out
// of range or NaN (the most negative integer), never undefined behaviour.
inline Lum32s ownTruncate(Lum32f v) { return _mm_cvttss_si32(_mm_set_ss(v)); }
inline Lum32s ownTruncate(Lum64f v) { return _mm_cvttsd_si32(_mm_set_sd(v)); }

// The border rounding of integer samples: widened, nudged up by a little
// more than a half and truncated, so that 2.5 gives 3 and 0.49999997 gives 1
// where the interior would give 2 and 0.
inline Lum32s ownBorderRound(Lum32f c) {
    return ownTruncate(static_cast<Lum64f>(c) + 0.5000001);
}

inline Lum32s ownClampTo(Lum32s v, Lum32s hi) { return v < 0 ? 0 : (v > hi ? hi : v); }

template <class T>
inline void ownStoreAt(void* row, Lum32s x, T v) {
    std::memcpy(static_cast<char*>(row) + static_cast<std::ptrdiff_t>(x) * sizeof(T), &v, sizeof(T));
}

template <class T, Lum32s kTop>
struct OwnSampleInt {
    using Type = T;
    static Lum32f toFloat(T s) { return static_cast<Lum32f>(s); }
    // A convex combination stays in range, so linear stores the low bits of
    // the rounded value without a clamp.
    static T fromLinear(Lum32f c) { return static_cast<T>(ownRoundEven(c)); }
    static T fromCubicInterior(Lum32f c) { return static_cast<T>(ownClampTo(ownRoundEven(c), kTop)); }
    template <class Border32f>
    static T fromCubicBorder(Lum32f c) {
        return static_cast<T>(ownClampTo(ownBorderRound(c), kTop));
    }
};

// The gathers of the eight-lane linear body: lane l reads the adjacent pair
// rows[l][0], rows[l][1] in one load; lo gets the first of every pair, hi
// the second, exactly converted to float.

struct OwnSample8u : OwnSampleInt<Lum8u, 255> {
    static constexpr int kStepShift = 0;
    static void gatherPairs8(const Lum8u* const rows[8], __m256& lo, __m256& hi) {
        auto w = [&](int l) {
            Lum16u v;
            std::memcpy(&v, rows[l], 2);
            return Lum32s(v);
        };
        __m128i p = _mm_cvtsi32_si128(w(0));
        p = _mm_insert_epi16(p, w(1), 1), p = _mm_insert_epi16(p, w(2), 2);
        p = _mm_insert_epi16(p, w(3), 3), p = _mm_insert_epi16(p, w(4), 4);
        p = _mm_insert_epi16(p, w(5), 5), p = _mm_insert_epi16(p, w(6), 6);
        p = _mm_insert_epi16(p, w(7), 7);
        const __m128i a = _mm_and_si128(p, _mm_set1_epi16(0xFF)), b = _mm_srli_epi16(p, 8);
        lo = _mm256_cvtepi32_ps(_mm256_set_m128i(_mm_cvtepu16_epi32(_mm_srli_si128(a, 8)),
                                                 _mm_cvtepu16_epi32(a)));
        hi = _mm256_cvtepi32_ps(_mm256_set_m128i(_mm_cvtepu16_epi32(_mm_srli_si128(b, 8)),
                                                 _mm_cvtepu16_epi32(b)));
    }
    // Four adjacent samples from a and four from b: a in the low half.
    static __m256 loadRows2(const Lum8u* a, const Lum8u* b) {
        Lum32s wa, wb;
        std::memcpy(&wa, a, 4), std::memcpy(&wb, b, 4);
        const __m128i v = _mm_insert_epi32(_mm_cvtsi32_si128(wa), wb, 1);
        return _mm256_cvtepi32_ps(
            _mm256_set_m128i(_mm_cvtepu8_epi32(_mm_srli_si128(v, 4)), _mm_cvtepu8_epi32(v)));
    }
};

struct OwnSample16u : OwnSampleInt<Lum16u, 65535> {
    static constexpr int kStepShift = 1;
    static void gatherPairs8(const Lum16u* const rows[8], __m256& lo, __m256& hi) {
        auto w = [&](int l) {
            Lum32s v;
            std::memcpy(&v, rows[l], 4);
            return v;
        };
        __m128i p0 = _mm_cvtsi32_si128(w(0)), p1 = _mm_cvtsi32_si128(w(4));
        p0 = _mm_insert_epi32(p0, w(1), 1), p1 = _mm_insert_epi32(p1, w(5), 1);
        p0 = _mm_insert_epi32(p0, w(2), 2), p1 = _mm_insert_epi32(p1, w(6), 2);
        p0 = _mm_insert_epi32(p0, w(3), 3), p1 = _mm_insert_epi32(p1, w(7), 3);
        const __m128i low = _mm_set1_epi32(0xFFFF);
        lo = _mm256_cvtepi32_ps(_mm256_set_m128i(_mm_and_si128(p1, low), _mm_and_si128(p0, low)));
        hi = _mm256_cvtepi32_ps(_mm256_set_m128i(_mm_srli_epi32(p1, 16), _mm_srli_epi32(p0, 16)));
    }
    static __m256 loadRows2(const Lum16u* a, const Lum16u* b) {
        return _mm256_cvtepi32_ps(
            _mm256_set_m128i(_mm_cvtepu16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(b))),
                             _mm_cvtepu16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(a)))));
    }
};

struct OwnSample32f {
    using Type = Lum32f;
    static constexpr int kStepShift = 2;
    static Lum32f toFloat(Lum32f s) { return s; }
    static Lum32f fromLinear(Lum32f c) { return c; }
    static Lum32f fromCubicInterior(Lum32f c) { return c; }
    template <class Border32f>
    static Lum32f fromCubicBorder(Lum32f c) {
        if constexpr (std::is_same_v<Border32f, OwnBorderTruncate>) {
            // Deliberate: through an integer, so 10.75 gives 10 and -0.75
            // gives +0.0 at the faces of the box, while the interior keeps
            // its fraction.
            return static_cast<Lum32f>(ownTruncate(c));
        } else {
            return c;
        }
    }
    static __m256 loadRows2(const Lum32f* a, const Lum32f* b) {
        return _mm256_set_m128(_mm_loadu_ps(b), _mm_loadu_ps(a));
    }
    static void gatherPairs8(const Lum32f* const rows[8], __m256& lo, __m256& hi) {
        auto two = [&](int l) {
            const __m128 a = _mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(rows[l]));
            return _mm_loadh_pi(a, reinterpret_cast<const __m64*>(rows[l + 1]));
        };
        // [s0 t0 s1 t1] per pair of lanes, regrouped into all s and all t.
        const __m256 ac = _mm256_set_m128(two(4), two(0)), bd = _mm256_set_m128(two(6), two(2));
        lo = _mm256_shuffle_ps(ac, bd, _MM_SHUFFLE(2, 0, 2, 0));
        hi = _mm256_shuffle_ps(ac, bd, _MM_SHUFFLE(3, 1, 3, 1));
    }
};
