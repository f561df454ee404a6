// The exact sweeps of the split search and the float radix sort they use.
// The order of float operations in the sweeps is part of their result: the
// same bounds give the same cut, bit for bit, whichever thread sweeps them.
#pragma once

#include "lumr.h"

// Lists of more sorted bounds than this take the radix sort.
constexpr Lum32s kSAHRadixGate = 320;

// Ascending sort of count floats through three 11-bit passes; scratch holds
// count floats.  Negative zero sorts below positive zero.
void ownSortRadix_32f(Lum32f* data, Lum32f* scratch, Lum32s count);

// The array ownSortAscend_32f leaves, bit for bit, by a quicker sort when the
// order is unique (no NaN, not both zeros); otherwise by that sort itself.
void ownSortAscendExact_32f(Lum32f* data, Lum32s count);

// The split search's sort of count bounds: the radix sort above the gate,
// the comparison sort at or below it.
inline void ownSortBounds_32f(Lum32f* data, Lum32f* scratch, Lum32s count) {
    if (count > kSAHRadixGate)
        ownSortRadix_32f(data, scratch, count);
    else
        ownSortAscendExact_32f(data, count);
}

// The radix sort's key of a float: unsigned key order is float order, with
// -0 below +0 and NaN beyond the infinities.
inline Lum32u ownBoundKey(Lum32u bits) {
    return bits ^ (Lum32u(Lum32s(bits) >> 31) | 0x80000000u);
}

// What gathering a list of bounds learnt on the way: the least and greatest
// key, and whether a NaN or a -0 is among them.  Without either, equal
// values have equal bits, so the ascending arrangement is unique and any
// sort makes it; the sweeps then also need no guard against NaN.
struct LumBoundsRange {
    Lum32u keyMin = 0xFFFFFFFFu;
    Lum32u keyMax = 0;
    Lum32u odd = 0;  // nonzero: NaN or -0 seen
    void add(Lum32u bits) {
        const Lum32u k = ownBoundKey(bits);
        keyMin = k < keyMin ? k : keyMin;
        keyMax = k > keyMax ? k : keyMax;
        // -0 is 0x80000000; NaN has all exponent bits and a mantissa.
        odd |= Lum32u(bits == 0x80000000u) | Lum32u((bits & 0x7FFFFFFFu) > 0x7F800000u);
    }
};

// The same arrangement as ownSortBounds_32f leaves in data, bit for bit, for
// the count bounds at data whose range is given; the sorted bounds end in
// data or in scratch, and the one holding them is returned.  Lists with a
// unique arrangement, and all lists above the gate, take a radix sort on the
// key's offset from the least key, with only as many passes as the range
// needs; the others keep the comparison sort's own arrangement.
// gate is the count up to which lists that are not unique take the
// comparison sort: kSAHRadixGate for starts and ends, any count for planars.
Lum32f* ownSortBoundsRanged_32f(Lum32f* data, Lum32f* scratch, Lum32s count,
                                const LumBoundsRange& range, Lum32s gate);

// Sweep over the sorted starts and ends of n items, none flat on the axis.
// cost holds the leaf cost on entry and the best cost on return.
void ownSweepSplit(const Lum32f* starts, const Lum32f* ends, Lum32s n, Lum32f boxMin,
                   Lum32f boxMax, Lum32f extentA, Lum32f extentB, Lum64f* cost,
                   Lum32f* splitPos, Lum32s* leftCount, Lum32s* rightCount);

// ownSweepSplit for bounds free of NaN and of -0 (see LumBoundsRange): the
// same candidates and sums in the same order, by a walk that needs no guard
// against bounds the comparisons cannot order.
void ownSweepSplitClean(const Lum32f* starts, const Lum32f* ends, Lum32s n, Lum32f boxMin,
                        Lum32f boxMax, Lum32f extentA, Lum32f extentB, Lum64f* cost,
                        Lum32f* splitPos, Lum32s* leftCount, Lum32s* rightCount);

// The same with m > 0 items flat on the axis at the sorted planars.
void ownSweepSplitPlanar(const Lum32f* starts, const Lum32f* ends, const Lum32f* planars, Lum32s n,
                         Lum32s m, Lum32f boxMin, Lum32f boxMax, Lum32f extentA, Lum32f extentB,
                         Lum64f* cost, Lum32f* splitPos, Lum32s* leftCount, Lum32s* rightCount,
                         Lum32s* planarSide);
