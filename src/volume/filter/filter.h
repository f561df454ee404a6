// Volume filter: 3D integer convolution of a signed 16-bit volume held as
// plane pointers, with an integer divisor and 16-bit saturation.  Three
// vector paths (3x3x3, 5x5x5, general) run 16-bit pair multiply-adds into a
// 32-bit accumulator row that wraps; scalar fallbacks sum in 64 bits.  All
// of it runs on the calling thread.
#pragma once

#include <cstddef>

#include "lumr.h"

// How the accumulated sum becomes a sample, decided once per call.
enum class FilterMode { None, Shift, Divide };

struct FilterDivisor {
    FilterMode mode;
    Lum32s sh;        // Shift: log2(divisor)
    Lum32s half;      // Shift: 2^(sh - 1)
    Lum32s mask;      // Shift: divisor - 1
    Lum32f rcp;       // Divide, vector paths: 1.0f / float(divisor)
    Lum64f divisorD;  // Divide, scalar paths: float(divisor) widened to double
};

// The divisor must be neither 0 nor -2147483648 (the entry point rejects both).
FilterDivisor ownFilterDivisor(Lum32s divisor);

// Everything a path needs, with steps already in samples.
struct FilterArgs {
    const Lum16s* const* srcPlanes;
    ptrdiff_t srcStepN;
    Lum16s* const* dstPlanes;
    ptrdiff_t dstStepN;
    Lum32s width, height, depth;
    const Lum32s* kernel;
    Lum32s kw, kh, kd;
    Lum32s ax, ay, az;
};

// The source rows of one output row.  Row (k, j) of the kernel, at output
// x = 0, starts its ascending taps at
//   srcPlanes[zc - k] + rowOff - j * stepN,
// with zc = z + az and rowOff = (y + ay) * stepN + ax - (kw - 1).
struct FilterRowSrc {
    const Lum16s* const* srcPlanes;
    ptrdiff_t zc;
    ptrdiff_t rowOff;
    ptrdiff_t stepN;
    const Lum16s* row(Lum32s k, Lum32s j) const {
        return srcPlanes[zc - k] + rowOff - static_cast<ptrdiff_t>(j) * stepN;
    }
};

// Packed kernel tables.  Kernel rows are taken last row of the last plane
// first, and each row from its end to its start, so that the table runs in
// the order of ascending source addresses.  Each neighbouring pair (e0, e1),
// e0 the later in memory, becomes one 16-byte group of the pair four times;
// an odd row ends with its first element paired with 0.  Result 1 when every
// element lies in -32767 .. 32766, else 0 (the build stops at the first that
// does not).
inline Lum32s ownFilterGroupsPerRow(Lum32s kw) { return (kw + 1) / 2; }
inline size_t ownFilterTableBytes(Lum32s kw, Lum32s kh, Lum32s kd) {
    return static_cast<size_t>(ownFilterGroupsPerRow(kw)) * 16u * static_cast<size_t>(kh) *
           static_cast<size_t>(kd);
}
int ownFilterKernelTable3x3x3(const Lum32s* kernel, Lum16s* table);
int ownFilterKernelTable5x5x5(const Lum32s* kernel, Lum16s* table);
int ownFilterKernelTable(const Lum32s* kernel, Lum32s kw, Lum32s kh, Lum32s kd, Lum16s* table);

// One output row into the accumulator row, all taps of all planes at once.
void ownFilterRow3x3x3(const FilterRowSrc& src, const Lum16s* table, Lum32s* acc, Lum32s width);
void ownFilterRow5x5x5(const FilterRowSrc& src, const Lum16s* table, Lum32s* acc, Lum32s width);

// One kernel row (its part of the table) over one source row: stores into
// the accumulator row when `first`, adds otherwise.  Forms for kw 3, 5 and
// any other.
void ownFilterAccumRow(const Lum16s* srcRow, const Lum16s* rowTable, Lum32s kw, Lum32s* acc,
                       Lum32s width, bool first);

// Accumulator row to destination row: divisor mode, rounding, saturation.
void ownFilterStoreRow(const Lum32s* acc, Lum16s* dst, Lum32s width, const FilterDivisor& div);

// The path of a call, as decided from the kernel, its table and the width.
enum class FilterBranch { Cube3, Cube5, General };
struct FilterPlan {
    FilterBranch branch;
    bool vector;
    Lum16s* table;  // in the caller's buffer, 16-byte aligned
    Lum32s* acc;    // accumulator row after the tables
};
// Builds the table in `buffer` and decides the path.
FilterPlan ownFilterPlan(const FilterArgs& a, Lum8u* buffer);

// Scratch bytes: at least the formula callers have always been given, and
// never less than the vector paths actually use.  May exceed the Lum32s
// range, which the entry point refuses.  Extents must be at least 1.
int64_t ownFilterBufSize(Lum32s width, Lum32s nChannels, Lum32s kw, Lum32s kh, Lum32s kd);

// Chooses the path and runs the plane, row and sample loops.
void ownFilter_16s_C1PV(const FilterArgs& a, Lum32s divisor, Lum8u* buffer);
