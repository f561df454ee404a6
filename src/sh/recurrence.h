// The three-term recurrence of the real spherical harmonics, in Lum32f only,
// written once over a lane type (sh/lanes.h).  Tables A and B are those of the
// state; band l's entries start at l(l + 1) / 2.
#pragma once

#include "sh/lanes.h"

// Writes the block of bands 0 to L of the lane group (x, y, z) to pY, index
// l * l + l + m, reading only earlier bands of the same block.
template <class Ln>
inline void ownSHRecurBlock(typename Ln::F x, typename Ln::F y, typename Ln::F z,
                            const Lum32f* pA, const Lum32f* pB, unsigned L, typename Ln::F* pY) {
    using F = typename Ln::F;
    pY[0] = Ln::splat(pA[0]);
    if (L < 1) return;
    pY[1] = y * pA[2];
    pY[2] = z * pA[1];
    pY[3] = x * pA[2];
    for (int l = 2; l <= static_cast<int>(L); ++l) {
        const Lum32f* a = pA + l * (l + 1) / 2;
        const Lum32f* b = pB + l * (l + 1) / 2;
        F* cur = pY + l * l + l;                    // Y(l, 0)
        const F* p1 = pY + (l - 1) * (l - 1) + l - 1;  // Y(l - 1, 0)
        const F* p2 = pY + (l - 2) * (l - 2) + l - 2;  // Y(l - 2, 0)
        const F sPos = p1[l - 1], sNeg = p1[-(l - 1)];
        cur[l] = (x * sPos - y * sNeg) * a[l];
        cur[-l] = (x * sNeg + y * sPos) * a[l];
        const F za = z * a[l - 1];
        cur[l - 1] = za * sPos;
        cur[-(l - 1)] = za * sNeg;
        cur[0] = (z * a[0]) * p1[0] + b[0] * p2[0];
        for (int m = 1; m <= l - 2; ++m) {
            const F zm = z * a[m];
            cur[m] = zm * p1[m] + b[m] * p2[m];
            cur[-m] = zm * p1[-m] + b[m] * p2[-m];
        }
    }
}
