// The vector rows of the filter: packed kernel tables, the fixed 3x3x3 and
// 5x5x5 rows, the general accumulating row and the store.
//
// Every tap pair is one 16-bit multiply-add into 32 bits.  Table elements
// lie in -32767 .. 32766, so a pair never overflows; the sums of pairs wrap
// at 32 bits.  Since wrapping addition does not care about order, steps of
// sixteen and of eight outputs and the single outputs after them (32-bit
// products, wrapping additions) give the same accumulator values.
#include <immintrin.h>

#include <cstdint>

#include "volume/filter/filter.h"

namespace {

constexpr Lum32s kTableMin = -32767;
constexpr Lum32s kTableMax = 32766;

// ---- packed tables --------------------------------------------------------
// KW, KH, KD fixed when above 0, else taken from the arguments.
template <int KW, int KH, int KD>
int localKernelTable(const Lum32s* kernel, Lum32s kwArg, Lum32s khArg, Lum32s kdArg,
                     Lum16s* table) {
    const Lum32s kw = KW ? KW : kwArg, kh = KH ? KH : khArg, kd = KD ? KD : kdArg;
    const Lum32s groups = ownFilterGroupsPerRow(kw);
    for (Lum32s k = kd - 1; k >= 0; --k) {
        for (Lum32s j = kh - 1; j >= 0; --j) {
            const Lum32s* row = kernel + (static_cast<ptrdiff_t>(k) * kh + j) * kw;
            for (Lum32s g = 0; g < groups; ++g) {
                const Lum32s i0 = kw - 1 - 2 * g;
                const Lum32s e0 = row[i0];
                const Lum32s e1 = i0 >= 1 ? row[i0 - 1] : 0;
                if (e0 < kTableMin || e0 > kTableMax || e1 < kTableMin || e1 > kTableMax) return 0;
                for (int n = 0; n < 4; ++n) {
                    table[2 * n] = static_cast<Lum16s>(e0);
                    table[2 * n + 1] = static_cast<Lum16s>(e1);
                }
                table += 8;
            }
        }
    }
    return 1;
}

// ---- taps of one kernel row -----------------------------------------------
inline __m128i localLoad(const Lum16s* p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}
inline __m128i localGroup(const Lum16s* rowTable, Lum32s g) {
    return _mm_load_si128(reinterpret_cast<const __m128i*>(rowTable + 8 * g));
}

// Outputs x .. x+7 of one kernel row, p at the first tap of output x.  A
// group's four pairs, read straight from memory at p + 2g, are the taps of
// the even outputs x, x+2, x+4, x+6; read at p + 2g + 1, those of the odd
// outputs.  So no sample is shuffled in the loop: the products go to `even`
// and `odd`, interleaved once per group of eight by localInterleave.
template <int KW, int B = 1>
inline void localTaps8(const Lum16s* p, const Lum16s* rowTable, Lum32s kwArg, __m128i* even,
                       __m128i* odd) {
    const Lum32s kw = KW ? KW : kwArg;
    const Lum32s pairs = kw / 2;
    for (Lum32s g = 0; g < pairs; ++g) {
        const __m128i t = localGroup(rowTable, g);
        for (int b = 0; b < B; ++b) {
            even[b] = _mm_add_epi32(even[b], _mm_madd_epi16(localLoad(p + 8 * b + 2 * g), t));
            odd[b] = _mm_add_epi32(odd[b], _mm_madd_epi16(localLoad(p + 8 * b + 2 * g + 1), t));
        }
    }
    if (kw & 1) {
        // The last element e0 pairs with a zero.  One load at p + kw - 1
        // serves both: its pairs times (e0, 0) are the even outputs' last
        // taps, times (0, e0) the odd outputs'.  No sample beyond the
        // kernel's reach is read.
        const __m128i t = localGroup(rowTable, pairs);
        const __m128i tOdd = _mm_slli_epi32(t, 16);
        for (int b = 0; b < B; ++b) {
            const __m128i v = localLoad(p + 8 * b + kw - 1);
            even[b] = _mm_add_epi32(even[b], _mm_madd_epi16(v, t));
            odd[b] = _mm_add_epi32(odd[b], _mm_madd_epi16(v, tOdd));
        }
    }
    // Keep the sums as running accumulators, row by row.  Left alone, the
    // compiler reassociates the unrolled chain of additions into a tree,
    // computes every product of all rows first and spills most of them.
    for (int b = 0; b < B; ++b) __asm__("" : "+x"(even[b]), "+x"(odd[b]));
}

// Even and odd outputs back into order: x .. x+3 and x+4 .. x+7.
inline void localInterleave(__m128i even, __m128i odd, __m128i& lo, __m128i& hi) {
    lo = _mm_unpacklo_epi32(even, odd);
    hi = _mm_unpackhi_epi32(even, odd);
}

// One output of one kernel row, as a 32-bit pattern: products in 32 bits,
// additions wrapping.
template <int KW>
inline uint32_t localTaps1(const Lum16s* p, const Lum16s* rowTable, Lum32s kwArg) {
    const Lum32s kw = KW ? KW : kwArg;
    const Lum32s pairs = kw / 2;
    uint32_t a = 0;
    for (Lum32s g = 0; g < pairs; ++g) {
        const Lum16s* t = rowTable + 8 * g;
        a += static_cast<uint32_t>(Lum32s{p[2 * g]} * Lum32s{t[0]});
        a += static_cast<uint32_t>(Lum32s{p[2 * g + 1]} * Lum32s{t[1]});
    }
    if (kw & 1) a += static_cast<uint32_t>(Lum32s{p[kw - 1]} * Lum32s{rowTable[8 * pairs]});
    return a;
}

// ---- fixed cubes ----------------------------------------------------------
// All N x N rows of the kernel in one pass, one accumulator store per output.
template <int N>
void localRowCube(const FilterRowSrc& src, const Lum16s* table, Lum32s* acc, Lum32s width) {
    constexpr Lum32s kGroups = (N + 1) / 2;
    constexpr Lum32s kRows = N * N;
    const Lum16s* rows[kRows];
    for (Lum32s t = 0; t < kRows; ++t) rows[t] = src.row(N - 1 - t / N, N - 1 - t % N);

    // Sixteen outputs a step while they last, so that each table group
    // serves four multiply-adds; then eight.
    Lum32s x = 0;
    for (; x + 16 <= width; x += 16) {
        __m128i even[2] = {_mm_setzero_si128(), _mm_setzero_si128()};
        __m128i odd[2] = {_mm_setzero_si128(), _mm_setzero_si128()};
#pragma GCC unroll 25
        for (Lum32s t = 0; t < kRows; ++t)
            localTaps8<N, 2>(rows[t] + x, table + 8 * kGroups * t, N, even, odd);
        for (int b = 0; b < 2; ++b) {
            __m128i lo, hi;
            localInterleave(even[b], odd[b], lo, hi);
            _mm_store_si128(reinterpret_cast<__m128i*>(acc + x + 8 * b), lo);
            _mm_store_si128(reinterpret_cast<__m128i*>(acc + x + 8 * b + 4), hi);
        }
    }
    for (; x + 8 <= width; x += 8) {
        __m128i even = _mm_setzero_si128(), odd = _mm_setzero_si128(), lo, hi;
#pragma GCC unroll 25
        for (Lum32s t = 0; t < kRows; ++t)
            localTaps8<N>(rows[t] + x, table + 8 * kGroups * t, N, &even, &odd);
        localInterleave(even, odd, lo, hi);
        _mm_store_si128(reinterpret_cast<__m128i*>(acc + x), lo);
        _mm_store_si128(reinterpret_cast<__m128i*>(acc + x + 4), hi);
    }
    for (; x < width; ++x) {
        uint32_t a = 0;
        for (Lum32s t = 0; t < kRows; ++t)
            a += localTaps1<N>(rows[t] + x, table + 8 * kGroups * t, N);
        acc[x] = static_cast<Lum32s>(a);
    }
}

// ---- general row ----------------------------------------------------------
struct Store {
    static __m128i combine(const Lum32s*, __m128i v) { return v; }
    static uint32_t combine1(Lum32s, uint32_t v) { return v; }
};
struct Add {
    static __m128i combine(const Lum32s* acc, __m128i v) {
        return _mm_add_epi32(_mm_load_si128(reinterpret_cast<const __m128i*>(acc)), v);
    }
    static uint32_t combine1(Lum32s a, uint32_t v) { return static_cast<uint32_t>(a) + v; }
};

template <int KW, class Into>
void localAccumRow(const Lum16s* srcRow, const Lum16s* rowTable, Lum32s kw, Lum32s* acc,
                   Lum32s width) {
    Lum32s x = 0;
    for (; x + 16 <= width; x += 16) {
        __m128i even[2] = {_mm_setzero_si128(), _mm_setzero_si128()};
        __m128i odd[2] = {_mm_setzero_si128(), _mm_setzero_si128()};
        localTaps8<KW, 2>(srcRow + x, rowTable, kw, even, odd);
        for (int b = 0; b < 2; ++b) {
            __m128i lo, hi;
            localInterleave(even[b], odd[b], lo, hi);
            Lum32s* a = acc + x + 8 * b;
            _mm_store_si128(reinterpret_cast<__m128i*>(a), Into::combine(a, lo));
            _mm_store_si128(reinterpret_cast<__m128i*>(a + 4), Into::combine(a + 4, hi));
        }
    }
    for (; x + 8 <= width; x += 8) {
        __m128i even = _mm_setzero_si128(), odd = _mm_setzero_si128(), lo, hi;
        localTaps8<KW>(srcRow + x, rowTable, kw, &even, &odd);
        localInterleave(even, odd, lo, hi);
        _mm_store_si128(reinterpret_cast<__m128i*>(acc + x), Into::combine(acc + x, lo));
        _mm_store_si128(reinterpret_cast<__m128i*>(acc + x + 4), Into::combine(acc + x + 4, hi));
    }
    for (; x < width; ++x)
        acc[x] =
            static_cast<Lum32s>(Into::combine1(acc[x], localTaps1<KW>(srcRow + x, rowTable, kw)));
}

// ---- store ----------------------------------------------------------------
inline Lum16s localSaturate(Lum32s v) {
    return static_cast<Lum16s>(v > 32767 ? 32767 : (v < -32768 ? -32768 : v));
}

struct StoreNone {
    static __m128i finish(__m128i a, const FilterDivisor&) { return a; }
    static Lum32s finish1(Lum32s a, const FilterDivisor&) { return a; }
};

// (a + (half - 1) + ((a >>> sh) & 1)) >> sh: round half to even, the
// additions wrapping at 32 bits as in the accumulator.
struct StoreShift {
    static __m128i finish(__m128i a, const FilterDivisor& d) {
        const __m128i count = _mm_cvtsi32_si128(d.sh);
        const __m128i odd = _mm_and_si128(_mm_srl_epi32(a, count), _mm_set1_epi32(1));
        const __m128i b = _mm_add_epi32(_mm_add_epi32(a, _mm_set1_epi32(d.half - 1)), odd);
        return _mm_sra_epi32(b, count);
    }
    static Lum32s finish1(Lum32s a, const FilterDivisor& d) {
        const uint32_t u = static_cast<uint32_t>(a);
        const uint32_t b = u + static_cast<uint32_t>(d.half - 1) + ((u >> d.sh) & 1u);
        return static_cast<Lum32s>(b) >> d.sh;
    }
};

// Deliberate: multiplies by the single-precision reciprocal instead of
// dividing, so a large sum can land one away from the exact quotient.  The
// conversion rounds to nearest even (the default mode); a product beyond
// the 32-bit range converts to -2147483648 and saturates to -32768.
struct StoreDivide {
    static __m128i finish(__m128i a, const FilterDivisor& d) {
        return _mm_cvtps_epi32(_mm_mul_ps(_mm_cvtepi32_ps(a), _mm_set1_ps(d.rcp)));
    }
    static Lum32s finish1(Lum32s a, const FilterDivisor& d) {
        return _mm_cvtss_si32(_mm_mul_ss(_mm_cvtsi32_ss(_mm_setzero_ps(), a), _mm_set_ss(d.rcp)));
    }
};

template <class Mode>
void localStoreRow(const Lum32s* acc, Lum16s* dst, Lum32s width, const FilterDivisor& d) {
    Lum32s x = 0;
    for (; x + 8 <= width; x += 8) {
        const __m128i lo =
            Mode::finish(_mm_load_si128(reinterpret_cast<const __m128i*>(acc + x)), d);
        const __m128i hi =
            Mode::finish(_mm_load_si128(reinterpret_cast<const __m128i*>(acc + x + 4)), d);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x), _mm_packs_epi32(lo, hi));
    }
    for (; x < width; ++x) dst[x] = localSaturate(Mode::finish1(acc[x], d));
}

}  // namespace

int ownFilterKernelTable3x3x3(const Lum32s* kernel, Lum16s* table) {
    return localKernelTable<3, 3, 3>(kernel, 3, 3, 3, table);
}
int ownFilterKernelTable5x5x5(const Lum32s* kernel, Lum16s* table) {
    return localKernelTable<5, 5, 5>(kernel, 5, 5, 5, table);
}
int ownFilterKernelTable(const Lum32s* kernel, Lum32s kw, Lum32s kh, Lum32s kd, Lum16s* table) {
    return localKernelTable<0, 0, 0>(kernel, kw, kh, kd, table);
}

void ownFilterRow3x3x3(const FilterRowSrc& src, const Lum16s* table, Lum32s* acc, Lum32s width) {
    localRowCube<3>(src, table, acc, width);
}
void ownFilterRow5x5x5(const FilterRowSrc& src, const Lum16s* table, Lum32s* acc, Lum32s width) {
    localRowCube<5>(src, table, acc, width);
}

void ownFilterAccumRow(const Lum16s* srcRow, const Lum16s* rowTable, Lum32s kw, Lum32s* acc,
                       Lum32s width, bool first) {
    if (kw == 3) {
        first ? localAccumRow<3, Store>(srcRow, rowTable, kw, acc, width)
              : localAccumRow<3, Add>(srcRow, rowTable, kw, acc, width);
    } else if (kw == 5) {
        first ? localAccumRow<5, Store>(srcRow, rowTable, kw, acc, width)
              : localAccumRow<5, Add>(srcRow, rowTable, kw, acc, width);
    } else {
        first ? localAccumRow<0, Store>(srcRow, rowTable, kw, acc, width)
              : localAccumRow<0, Add>(srcRow, rowTable, kw, acc, width);
    }
}

void ownFilterStoreRow(const Lum32s* acc, Lum16s* dst, Lum32s width, const FilterDivisor& div) {
    switch (div.mode) {
        case FilterMode::None: localStoreRow<StoreNone>(acc, dst, width, div); break;
        case FilterMode::Shift: localStoreRow<StoreShift>(acc, dst, width, div); break;
        case FilterMode::Divide: localStoreRow<StoreDivide>(acc, dst, width, div); break;
    }
}
