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

struct OwnSample8u : OwnSampleInt<Lum8u, 255> {
    static constexpr int kStepShift = 0;
    static __m128 loadRow4(const Lum8u* p) {
        Lum32s word;
        std::memcpy(&word, p, 4);
        return _mm_cvtepi32_ps(_mm_cvtepu8_epi32(_mm_cvtsi32_si128(word)));
    }
};

struct OwnSample16u : OwnSampleInt<Lum16u, 65535> {
    static constexpr int kStepShift = 1;
    static __m128 loadRow4(const Lum16u* p) {
        return _mm_cvtepi32_ps(
            _mm_cvtepu16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))));
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
    static __m128 loadRow4(const Lum32f* p) { return _mm_loadu_ps(p); }
};
