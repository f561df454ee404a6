// Slow reference for the volume filter: a direct triple sum per output
// sample in wide integers, finished by one of two rule sets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "lumr.h"

enum class RefFilterRules {
    Scalar,  // 64-bit sum of 32-bit-wrapped products; exact division in double
    Vector,  // sum wrapped to 32 bits; single-precision reciprocal for division
};

struct RefFilterCase {
    const Lum16s* const* srcPlanes;  // indexed z + az - k, may go below 0
    ptrdiff_t srcStepN;              // samples
    Lum32s width, height, depth;
    const Lum32s* kernel;
    Lum32s kw, kh, kd;
    Lum32s ax, ay, az;
    Lum32s divisor;
};

// The finished samples, x fastest, dense.
std::vector<Lum16s> refFilter(const RefFilterCase& c, RefFilterRules rules);

// One sum finished by the given rules.
Lum16s refFilterFinish(int64_t sum, Lum32s divisor, RefFilterRules rules);
