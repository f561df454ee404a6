// A slow per-sample model of remap and the affine warp, written from the
// rules alone: one sample at a time, scalar float arithmetic in the stated
// order, its own weight tables built at run time.  Suites compare the
// library against it bit for bit.
#pragma once

#include <cstdint>

#include "lumr.h"

namespace ref {

enum class SampleType { U8, U16, F32 };

// A planar source: plane pointers indexed by absolute z, row step in
// samples.
struct Source {
    SampleType type;
    const void* const* planes;
    int32_t stepN;
    float at(int32_t x, int32_t y, int32_t z) const;
};

// The stored result of one sample: 8u and 16u values as integers, 32f as its
// bits.  written is false when the position is out of range.
struct Result {
    bool written;
    uint32_t bits;
};

// The filter of a cubic code (4..7) at the distance t, in double.
double cubicFilter(int32_t code, double t);

// Table of a cubic code (4..7), 208 entries, evaluated at run time.
void cubicTable(int32_t code, float table[208]);

// Remap: position in float.  The code is the one after the downgrade.
Result remapSample(const Source& src, const LumSampleBounds& b, int32_t code, float X, float Y,
                   float Z);

// Affine warp: position in double.
Result warpSample(const Source& src, const LumSampleBounds& b, int32_t code, double X, double Y,
                  double Z);

}  // namespace ref
