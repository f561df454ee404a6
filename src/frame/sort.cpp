// In-place ascending sort of floats: an iterative quicksort with an explicit
// stack, median-of-three pivots and selection sort for short ranges.
#include <utility>

#include "frame/own.h"

namespace {

constexpr Lum32s kShortRange = 9;
constexpr int kStackRanges = 64;

// Moves the maximum (the first of equal maxima) to the end, then shrinks.
void localSelectionSort(Lum32f* a, Lum32s lo, Lum32s hi) {
    for (Lum32s end = hi; end > lo; --end) {
        Lum32s m = lo;
        for (Lum32s i = lo + 1; i <= end; ++i)
            if (a[i] > a[m]) m = i;
        std::swap(a[m], a[end]);
    }
}

}  // namespace

LumStatus ownSortAscend_32f(Lum32f* pSrcDst, Lum32s count) {
    if (!pSrcDst) return lumStatusNullPtr;
    if (count < 1) return lumStatusSize;
    if (count == 1) return lumStatusOk;

    Lum32f* a = pSrcDst;
    Lum32s stackLo[kStackRanges], stackHi[kStackRanges];
    int top = 0;
    Lum32s lo = 0, hi = count - 1;
    for (;;) {
        if (hi - lo + 1 <= kShortRange) {
            localSelectionSort(a, lo, hi);
            if (top == 0) break;
            --top;
            lo = stackLo[top];
            hi = stackHi[top];
            continue;
        }
        // Median of first, middle and last, ordered in place; the pivot then
        // waits at the first position while the rest is partitioned.
        const Lum32s mid = lo + (hi - lo + 1) / 2;
        if (a[mid] < a[lo]) std::swap(a[mid], a[lo]);
        if (a[hi] < a[mid]) std::swap(a[hi], a[mid]);
        if (a[mid] < a[lo]) std::swap(a[mid], a[lo]);
        std::swap(a[lo], a[mid]);
        const Lum32f pivot = a[lo];

        // Every step either advances a cursor or swaps and advances both, so
        // NaN values (which compare false) cannot stall or overrun the scan.
        Lum32s i = lo + 1, j = hi;
        for (;;) {
            while (i <= j && !(a[i] > pivot)) ++i;
            while (j >= i && a[j] > pivot) --j;
            if (i >= j) break;
            std::swap(a[i], a[j]);
            ++i;
            --j;
        }
        // Here j = i - 1: [lo + 1, j] holds values not greater than the pivot.
        std::swap(a[lo], a[j]);
        Lum32s leftHi = j - 1, rightLo = j + 1;
        // Runs of values equal to the pivot leave the recursion.
        while (leftHi >= lo && a[leftHi] == pivot) --leftHi;
        while (rightLo <= hi && a[rightLo] == pivot) ++rightLo;

        const Lum32s leftLen = leftHi - lo + 1, rightLen = hi - rightLo + 1;
        // Push the larger part, sort the smaller next: the stack stays below
        // log2(count) entries.
        if (leftLen >= rightLen) {
            if (leftLen > 0) { stackLo[top] = lo; stackHi[top] = leftHi; ++top; }
            if (rightLen > 0) { lo = rightLo; continue; }
        } else {
            if (rightLen > 0) { stackLo[top] = rightLo; stackHi[top] = hi; ++top; }
            if (leftLen > 0) { hi = leftHi; continue; }
        }
        if (top == 0) break;
        --top;
        lo = stackLo[top];
        hi = stackHi[top];
    }
    return lumStatusOk;
}
