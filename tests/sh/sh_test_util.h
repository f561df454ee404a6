// Helpers of the spherical-harmonic suites: a state in a block of exactly the
// reported size, and direction sets.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "lumr.h"

// A state built by the library in a heap block of exactly the reported size,
// so that the sanitizer sees any access beyond it.
class SHState {
public:
    SHState(Lum32u maxBand, Lum32u algorithm) {
        Lum32u size = 0;
        EXPECT_EQ(lumrSHGetSize_32f(maxBand, algorithm, &size), lumStatusOk);
        block_ = std::malloc(size);
        EXPECT_EQ(lumrSHInit_32f(get(), maxBand, algorithm), lumStatusOk);
    }
    ~SHState() { std::free(block_); }
    SHState(const SHState&) = delete;
    SHState& operator=(const SHState&) = delete;
    LumSHState* get() { return static_cast<LumSHState*>(block_); }

private:
    void* block_ = nullptr;
};

struct Directions {
    std::vector<Lum32f> x, y, z;
    Lum32s count() const { return static_cast<Lum32s>(x.size()); }
};

// count directions spread over the sphere, unit length in Lum32f.
inline Directions randomUnitDirections(int count, unsigned seed) {
    std::mt19937 rng(seed);
    std::normal_distribution<float> g;
    Directions d;
    for (int i = 0; i < count; ++i) {
        float a = g(rng), b = g(rng), c = g(rng);
        const float r = std::sqrt(a * a + b * b + c * c);
        d.x.push_back(a / r), d.y.push_back(b / r), d.z.push_back(c / r);
    }
    return d;
}

inline bool sameBits(const std::vector<Lum32f>& a, const std::vector<Lum32f>& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * 4) == 0;
}

inline Lum32u bitsOf(Lum32f v) {
    Lum32u u;
    std::memcpy(&u, &v, 4);
    return u;
}

constexpr Lum32f kCanary = -12345.0f;
