// The filter's driver: divisor mode, path choice, the vector plane and row
// loops, and the scalar paths with their own rounding.
#include "volume/filter/filter.h"

#include <cstdint>

namespace {

constexpr int64_t kVectorSumLimit = 98301;  // three times 32767

// ---- scalar paths ---------------------------------------------------------
// The sum is kept in 64 bits, but each product is a 32-bit one: a sample
// times a kernel element, wrapping at 32 bits and then sign-extended.

inline Lum16s localClamp(int64_t v) {
    return static_cast<Lum16s>(v > 32767 ? 32767 : (v < -32768 ? -32768 : v));
}

struct ScalarNone {
    static Lum16s finish(int64_t sum, const FilterDivisor&) { return localClamp(sum); }
};

// Round half to even by parts: the floor quotient t, then u = 1 exactly when
// the remainder passes half, or equals it with t odd.
struct ScalarShift {
    static Lum16s finish(int64_t sum, const FilterDivisor& d) {
        const int64_t t = sum >> d.sh;
        const Lum32s low = static_cast<Lum32s>((sum & d.mask) + d.half + (t & 1) - 1);
        const Lum32s u = low >> d.sh;
        return localClamp(t + u);
    }
};

// Deliberate: divides in double by the divisor as it stands after a trip
// through single precision, so divisors beyond 2^24 are first rounded.  Ties
// go to even; this can differ by one from the vector paths' reciprocal.
struct ScalarDivide {
    static Lum16s finish(int64_t sum, const FilterDivisor& d) {
        const double q = static_cast<double>(sum) / d.divisorD;
        Lum32s r;
        if (q >= 32767.0) {
            r = 32767;
        } else if (q <= -32768.0) {
            r = -32768;
        } else if (q > 0.5) {
            r = static_cast<Lum32s>(q + 0.5);
            if (static_cast<double>(r) - q == 0.5) r &= ~1;
        } else if (q < -0.5) {
            r = static_cast<Lum32s>(q - 0.5);
            if (static_cast<double>(r) - q == -0.5) r += r & 1;
        } else {
            r = 0;
        }
        return localClamp(r);
    }
};

inline int64_t localProduct(Lum16s s, Lum32s k) {
    return static_cast<Lum32s>(static_cast<uint32_t>(Lum32s{s}) * static_cast<uint32_t>(k));
}

// KW, KH, KD fixed when above 0: the 3x3x3 and 5x5x5 forms are this loop
// unrolled, with the same results.
template <int KW, int KH, int KD, class Mode>
void localScalar(const FilterArgs& a, const FilterDivisor& d) {
    const Lum32s kw = KW ? KW : a.kw, kh = KH ? KH : a.kh, kd = KD ? KD : a.kd;
    for (Lum32s z = 0; z < a.depth; ++z) {
        const ptrdiff_t zc = static_cast<ptrdiff_t>(z) + a.az;
        for (Lum32s y = 0; y < a.height; ++y) {
            const ptrdiff_t yc = static_cast<ptrdiff_t>(y) + a.ay;
            Lum16s* dst = a.dstPlanes[z] + static_cast<ptrdiff_t>(y) * a.dstStepN;
            for (Lum32s x = 0; x < a.width; ++x) {
                const ptrdiff_t xc = static_cast<ptrdiff_t>(x) + a.ax;
                int64_t sum = 0;
                const Lum32s* kern = a.kernel;
                for (Lum32s k = 0; k < kd; ++k) {
                    const Lum16s* plane = a.srcPlanes[zc - k];
                    for (Lum32s j = 0; j < kh; ++j) {
                        const Lum16s* s = plane + (yc - j) * a.srcStepN + xc;
                        for (Lum32s i = 0; i < kw; ++i) sum += localProduct(s[-i], kern[i]);
                        kern += kw;
                    }
                }
                dst[x] = Mode::finish(sum, d);
            }
        }
    }
}

template <class Mode>
void localScalarBranch(FilterBranch b, const FilterArgs& a, const FilterDivisor& d) {
    switch (b) {
        case FilterBranch::Cube3: localScalar<3, 3, 3, Mode>(a, d); break;
        case FilterBranch::Cube5: localScalar<5, 5, 5, Mode>(a, d); break;
        case FilterBranch::General: localScalar<0, 0, 0, Mode>(a, d); break;
    }
}

// ---- vector paths ---------------------------------------------------------
// Rows are independent: each output row reads all its taps afresh into the
// accumulator row, which the store then finishes.
void localVector(const FilterArgs& a, const FilterDivisor& d, const FilterPlan& plan) {
    const Lum32s groups = ownFilterGroupsPerRow(a.kw);
    for (Lum32s z = 0; z < a.depth; ++z) {
        for (Lum32s y = 0; y < a.height; ++y) {
            const FilterRowSrc src{
                a.srcPlanes, static_cast<ptrdiff_t>(z) + a.az,
                (static_cast<ptrdiff_t>(y) + a.ay) * a.srcStepN + a.ax - (a.kw - 1), a.srcStepN};
            switch (plan.branch) {
                case FilterBranch::Cube3:
                    ownFilterRow3x3x3(src, plan.table, plan.acc, a.width);
                    break;
                case FilterBranch::Cube5:
                    ownFilterRow5x5x5(src, plan.table, plan.acc, a.width);
                    break;
                case FilterBranch::General: {
                    // Table order: last plane first, last row first.
                    const Lum16s* rowTable = plan.table;
                    bool first = true;
                    for (Lum32s k = a.kd - 1; k >= 0; --k) {
                        for (Lum32s j = a.kh - 1; j >= 0; --j) {
                            ownFilterAccumRow(src.row(k, j), rowTable, a.kw, plan.acc, a.width,
                                              first);
                            rowTable += 8 * groups;
                            first = false;
                        }
                    }
                    break;
                }
            }
            ownFilterStoreRow(plan.acc, a.dstPlanes[z] + static_cast<ptrdiff_t>(y) * a.dstStepN,
                              a.width, d);
        }
    }
}

}  // namespace

FilterDivisor ownFilterDivisor(Lum32s divisor) {
    FilterDivisor d{};
    const uint32_t u = static_cast<uint32_t>(divisor);
    if (divisor == 1) {
        d.mode = FilterMode::None;
        d.rcp = 1.0f;
    } else if (((u | 0x80000000u) & (u - 1u)) == 0) {
        // A positive power of two from 2 up (the caller has turned away the
        // sign bit alone).
        d.mode = FilterMode::Shift;
        d.sh = __builtin_ctz(u);
        d.half = Lum32s{1} << (d.sh - 1);
        d.mask = divisor - 1;
    } else {
        d.mode = FilterMode::Divide;
        d.rcp = 1.0f / static_cast<Lum32f>(divisor);
        d.divisorD = static_cast<Lum64f>(static_cast<Lum32f>(divisor));
    }
    return d;
}

FilterPlan ownFilterPlan(const FilterArgs& a, Lum8u* buffer) {
    FilterPlan plan{};
    Lum8u* base =
        reinterpret_cast<Lum8u*>((reinterpret_cast<uintptr_t>(buffer) + 15) & ~uintptr_t{15});
    plan.table = reinterpret_cast<Lum16s*>(base);
    // The table is a whole number of 16-byte groups, so the accumulator
    // row after it is aligned as well.
    plan.acc = reinterpret_cast<Lum32s*>(base + ownFilterTableBytes(a.kw, a.kh, a.kd));

    if (a.kw == 3 && a.kh == 3 && a.kd == 3) {
        plan.branch = FilterBranch::Cube3;
    } else if (a.kw == 5 && a.kh == 5 && a.kd == 5) {
        plan.branch = FilterBranch::Cube5;
    } else {
        plan.branch = FilterBranch::General;
    }

    const size_t count =
        static_cast<size_t>(a.kw) * static_cast<size_t>(a.kh) * static_cast<size_t>(a.kd);
    int64_t sum = 0;
    for (size_t n = 0; n < count; ++n) sum += a.kernel[n];

    int fits;
    switch (plan.branch) {
        case FilterBranch::Cube3: fits = ownFilterKernelTable3x3x3(a.kernel, plan.table); break;
        case FilterBranch::Cube5: fits = ownFilterKernelTable5x5x5(a.kernel, plan.table); break;
        default: fits = ownFilterKernelTable(a.kernel, a.kw, a.kh, a.kd, plan.table); break;
    }

    // Deliberate: the limit is on the plain signed sum, not on the sum of
    // magnitudes; a kernel of large elements of both signs passes it and
    // its accumulators may then wrap where the scalar path would not.
    plan.vector = sum <= kVectorSumLimit && fits == 1 && a.width >= 16 &&
                  (plan.branch != FilterBranch::General || (a.kw >= 3 && a.kh >= 3 && a.kd >= 3));
    return plan;
}

int64_t ownFilterBufSize(Lum32s width, Lum32s nChannels, Lum32s kw, Lum32s kh, Lum32s kd) {
    // Huge kernels would overflow even 64 bits; anything past the Lum32s
    // range is refused by the caller anyway.
    constexpr int64_t kTooBig = INT64_MAX;
    // The formula callers have always been given: tables counted twice over
    // and the width term rounded down to 64 after adding 15.
    const int64_t perRow = ((((int64_t{kw} + 1) & ~int64_t{1}) * 8 + 15) & ~int64_t{15});
    int64_t tableTerm;
    if (__builtin_mul_overflow(perRow, int64_t{kh}, &tableTerm) ||
        __builtin_mul_overflow(tableTerm, int64_t{kd}, &tableTerm) || tableTerm > (kTooBig >> 4))
        return kTooBig;
    const int64_t formula =
        2 * (((int64_t{width} * nChannels + 15) & ~int64_t{63}) + 2 * tableTerm);
    // What the vector paths use: up to 15 bytes to align the start, the
    // tables, and a 32-bit accumulator per sample of a row.  For wide rows
    // and small kernels the formula falls short of this.
    const int64_t used =
        15 + static_cast<int64_t>(ownFilterTableBytes(kw, kh, kd)) + 4 * int64_t{width};
    return formula > used ? formula : used;
}

void ownFilter_16s_C1PV(const FilterArgs& a, Lum32s divisor, Lum8u* buffer) {
    const FilterDivisor d = ownFilterDivisor(divisor);
    // The tables are rebuilt at every call, even when the scalar path runs:
    // their range check is part of the choice.
    const FilterPlan plan = ownFilterPlan(a, buffer);
    if (plan.vector) {
        localVector(a, d, plan);
        return;
    }
    switch (d.mode) {
        case FilterMode::None: localScalarBranch<ScalarNone>(plan.branch, a, d); break;
        case FilterMode::Shift: localScalarBranch<ScalarShift>(plan.branch, a, d); break;
        case FilterMode::Divide: localScalarBranch<ScalarDivide>(plan.branch, a, d); break;
    }
}
