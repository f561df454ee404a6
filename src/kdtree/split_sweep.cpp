// The exact sweeps over sorted polygon bounds.  A candidate plane at x
// costs nL (c + lL) + nR (c + lR), the child half-surfaces divided by the sum
// of the two other extents; multiplying by that sum only at the end keeps
// the comparisons cheap and the result in the unit of the leaf cost.
#include <limits>

#include "kdtree/split_search.h"

namespace {

constexpr Lum64f kEmptySpaceDiscount = Lum64f(0.7f);  // 0.699999988079071
constexpr Lum64f kNoCandidate = std::numeric_limits<Lum64f>::infinity();

// c = e1 e2 / (e1 + e2), or 0 for a box too thin in both other axes.
inline Lum64f localCostC(Lum64f e1, Lum64f e2) {
    const Lum64f area = e1 * e2;
    return area < 1e-9 ? 0.0 : area / (e1 + e2);
}

// Differences of positions in float, widened; sums in double.
inline Lum64f localSum(Lum32s nL, Lum32s nR, Lum64f c, Lum32f x, Lum32f boxMin, Lum32f boxMax) {
    return Lum64f(nL) * (c + Lum64f(x - boxMin)) + Lum64f(nR) * (c + Lum64f(boxMax - x));
}

struct Best {
    Lum64f sum;
    Lum32f pos;
    Lum32s nL, nR, side;
    // Strictly better only: among equal sums the earlier (lower) cut stays.
    bool offer(Lum64f s, Lum32f x, Lum32s l, Lum32s r) {
        if (!(s < sum)) return false;
        sum = s, pos = x, nL = l, nR = r;
        return true;
    }
};

// Empty-space cuts: cutting off a tenth of the box or more of nothing is
// taken at once, at a discount, without looking at ordinary cuts.
bool localEmptySpace(Lum32f first, Lum32f last, Lum32s count, Lum64f c, Lum32f boxMin,
                     Lum32f boxMax, Best& best, Lum32s& side) {
    const Lum64f gap = 0.1 * Lum64f(boxMax - boxMin);
    bool found = false;
    if (Lum64f(first - boxMin) > gap) {
        best.sum = Lum64f(count) * (c + Lum64f(boxMax - first));
        best.pos = first, best.nL = 0, best.nR = count, side = 1;
        found = true;
    }
    if (Lum64f(boxMax - last) > gap) {
        const Lum64f s = Lum64f(count) * (c + Lum64f(last - boxMin));
        if (!found || s < best.sum) {
            best.sum = s, best.pos = last, best.nL = count, best.nR = 0, side = 0;
            found = true;
        }
    }
    return found;
}

}  // namespace

void ownSweepSplit(const Lum32f* starts, const Lum32f* ends, Lum32s n, Lum32f boxMin,
                   Lum32f boxMax, Lum32f extentA, Lum32f extentB, Lum64f* cost,
                   Lum32f* splitPos, Lum32s* leftCount, Lum32s* rightCount) {
    const Lum64f e1 = extentA, e2 = extentB;
    const Lum64f c = localCostC(e1, e2);
    const Lum32f first = n > 0 ? starts[0] : boxMin;
    const Lum32f last = n > 0 ? ends[n - 1] : boxMax;
    Best best{kNoCandidate, boxMin, 0, n, 1};
    Lum32s side = 1;
    if (localEmptySpace(first, last, n, c, boxMin, boxMax, best, side)) {
        *cost = (e1 + e2) * kEmptySpaceDiscount * best.sum;
    } else if (n > 0) {
        Lum32f x = starts[0];
        Lum32s nL = 0, nR = n;
        Lum32s iS = 0, iE = 0;  // stepping cursors
        Lum32s cL = 0, cR = 0;  // starts below x, ends at or below x
        for (;;) {
            best.offer(localSum(nL, nR, c, x, boxMin, boxMax), x, nL, nR);
            const Lum32s iS0 = iS, iE0 = iE;
            while (iS < n && starts[iS] <= x) ++iS;
            while (iE < n && ends[iE] <= x) ++iE;
            if (iE >= n) break;
            if (iS == iS0 && iE == iE0) break;  // only a NaN bound stops the walk here
            x = (iS < n && starts[iS] < ends[iE]) ? starts[iS] : ends[iE];
            while (cL < n && starts[cL] < x) ++cL;
            while (cR < n && ends[cR] <= x) ++cR;
            // An item from start to end across x counts on both sides, as
            // the subdivision classifies it.
            nL = cL;
            nR = n - cR;
        }
        *cost = (e1 + e2) * best.sum;
    } else {
        *cost = (e1 + e2) * best.sum;
    }
    *splitPos = best.pos;
    *leftCount = best.nL;
    *rightCount = best.nR;
}

void ownSweepSplitClean(const Lum32f* starts, const Lum32f* ends, Lum32s n, Lum32f boxMin,
                        Lum32f boxMax, Lum32f extentA, Lum32f extentB, Lum64f* cost,
                        Lum32f* splitPos, Lum32s* leftCount, Lum32s* rightCount) {
    const Lum64f e1 = extentA, e2 = extentB;
    const Lum64f c = localCostC(e1, e2);
    const Lum32f first = n > 0 ? starts[0] : boxMin;
    const Lum32f last = n > 0 ? ends[n - 1] : boxMax;
    Best best{kNoCandidate, boxMin, 0, n, 1};
    Lum32s side = 1;
    if (localEmptySpace(first, last, n, c, boxMin, boxMax, best, side)) {
        *cost = (e1 + e2) * kEmptySpaceDiscount * best.sum;
    } else {
        // Every distinct bound is a candidate, in ascending order: nL
        // items start below it, nR end above it.  An end always lies above
        // its own start, so the first candidate is starts[0] with nL = 0,
        // nR = n, and the last is the greatest end: the same candidates,
        // with the same counts, as the general walk visits.
        Lum32s i = 0, j = 0;  // starts below x, ends at or below x
        while (n > 0) {
            const Lum32f xe = ends[j];
            const bool haveStart = i < n;
            const Lum32f xs = haveStart ? starts[i] : xe;
            const Lum32f x = xs < xe ? xs : xe;
            const Lum32s nL = i;
            i += Lum32s(haveStart & (xs <= xe));
            j += Lum32s(xe <= xs);
            while (i < n && starts[i] == x) ++i;  // shared corners repeat bounds
            while (j < n && ends[j] == x) ++j;
            best.offer(localSum(nL, n - j, c, x, boxMin, boxMax), x, nL, n - j);
            if (j >= n) break;
        }
        *cost = (e1 + e2) * best.sum;
    }
    *splitPos = best.pos;
    *leftCount = best.nL;
    *rightCount = best.nR;
}

void ownSweepSplitPlanar(const Lum32f* starts, const Lum32f* ends, const Lum32f* planars, Lum32s n,
                         Lum32s m, Lum32f boxMin, Lum32f boxMax, Lum32f extentA, Lum32f extentB,
                         Lum64f* cost, Lum32f* splitPos, Lum32s* leftCount, Lum32s* rightCount,
                         Lum32s* planarSide) {
    const Lum64f e1 = extentA, e2 = extentB;
    const Lum64f c = localCostC(e1, e2);
    const Lum32s total = n + m;
    // Deliberate: with no item spanning the axis, first and last start from
    // the box itself, so flat items alone never make an empty-space cut; the
    // sweep below cuts them off instead.
    Lum32f first = n > 0 ? starts[0] : boxMin;
    Lum32f last = n > 0 ? ends[n - 1] : boxMax;
    if (planars[0] < first) first = planars[0];
    if (planars[m - 1] > last) last = planars[m - 1];
    Best best{kNoCandidate, boxMin, 0, total, 1};
    Lum32s side = 1;
    if (localEmptySpace(first, last, total, c, boxMin, boxMax, best, side)) {
        *cost = (e1 + e2) * kEmptySpaceDiscount * best.sum;
    } else {
        // Flat items lying on a face of the box.
        if (planars[0] == boxMin) {
            Lum32s k = 0;
            while (k < m && planars[k] == boxMin) ++k;
            if (best.offer(localSum(k, total - k, c, boxMin, boxMin, boxMax), boxMin, k, total - k))
                side = 0;
        }
        if (planars[m - 1] == boxMax) {
            Lum32s k = 0;
            while (k < m && planars[m - 1 - k] == boxMax) ++k;
            if (best.offer(localSum(total - k, k, c, boxMax, boxMin, boxMax), boxMax, total - k, k))
                side = 1;
        }

        Lum32f x = (n > 0 && starts[0] < planars[0]) ? starts[0] : planars[0];
        Lum32s nL = 0, nR = total;
        Lum32s iS = 0, iE = 0, iP = 0;  // stepping cursors
        Lum32s cL = 0, cR = 0, cP = 0;  // starts below, ends at or below, planars below x
        for (;;) {
            const bool planarsLeft = iP < m;
            // Flat items in the plane on the high side first, then low.
            if (best.offer(localSum(nL, nR, c, x, boxMin, boxMax), x, nL, nR) && planarsLeft)
                side = 1;
            if (planarsLeft) {
                Lum32s k = 0;
                while (iP + k < m && planars[iP + k] == x) ++k;
                if (k > 0 &&
                    best.offer(localSum(nL + k, nR - k, c, x, boxMin, boxMax), x, nL + k, nR - k))
                    side = 0;
            }
            const Lum32s iS0 = iS, iE0 = iE, iP0 = iP;
            while (iS < n && starts[iS] <= x) ++iS;
            while (iE < n && ends[iE] <= x) ++iE;
            while (iP < m && planars[iP] <= x) ++iP;
            if (iE >= n && iP >= m) break;
            if (iS == iS0 && iE == iE0 && iP == iP0) break;  // NaN bounds only
            Lum32f next = iE < n ? ends[iE] : planars[iP];
            if (iS < n && starts[iS] < next) next = starts[iS];
            if (iP < m && planars[iP] < next) next = planars[iP];
            x = next;
            while (cL < n && starts[cL] < x) ++cL;
            while (cR < n && ends[cR] <= x) ++cR;
            while (cP < m && planars[cP] < x) ++cP;
            nL = cL + cP;
            nR = (n - cR) + (m - cP);
        }
        *cost = (e1 + e2) * best.sum;
    }
    *splitPos = best.pos;
    *leftCount = best.nL;
    *rightCount = best.nR;
    *planarSide = side;
}
