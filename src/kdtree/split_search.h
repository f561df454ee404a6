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

// Sweep over the sorted starts and ends of n items, none flat on the axis.
// cost holds the leaf cost on entry and the best cost on return.
void ownSweepSplit(const Lum32f* starts, const Lum32f* ends, Lum32s n, Lum32f boxMin,
                   Lum32f boxMax, Lum32f extentA, Lum32f extentB, Lum64f* cost,
                   Lum32f* splitPos, Lum32s* leftCount, Lum32s* rightCount);

// The same with m > 0 items flat on the axis at the sorted planars.
void ownSweepSplitPlanar(const Lum32f* starts, const Lum32f* ends, const Lum32f* planars, Lum32s n,
                         Lum32s m, Lum32f boxMin, Lum32f boxMax, Lum32f extentA, Lum32f extentB,
                         Lum64f* cost, Lum32f* splitPos, Lum32s* leftCount, Lum32s* rightCount,
                         Lum32s* planarSide);
