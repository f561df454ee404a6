// Shared by the volume suites: planar test volumes for remap and the warp
// (each plane its own block, rows a chosen number of bytes apart, every byte
// canary-filled), random samples, and a scoped thread count.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "lumr.h"
#include "ref/remap_ref.h"

// Own namespace: other suites link into the same test binary.
namespace voltest {

template <class T>
struct PlanarVolume {
    Lum32s w, h, d, stepBytes;
    std::vector<std::vector<uint8_t>> blocks;
    std::vector<T*> planes;

    // A negative step runs the rows backwards: each plane starts at its last row.
    PlanarVolume(Lum32s w_, Lum32s h_, Lum32s d_, Lum32s stepBytes_ = 0, uint8_t canary = 0xA5)
        : w(w_), h(h_), d(d_), stepBytes(stepBytes_ ? stepBytes_ : w_ * Lum32s(sizeof(T))) {
        const size_t pitch = size_t(stepBytes < 0 ? -stepBytes : stepBytes);
        for (Lum32s z = 0; z < d; ++z) {
            blocks.emplace_back(pitch * h + 16, canary);
            uint8_t* first = blocks.back().data() + (stepBytes < 0 ? pitch * (h - 1) : 0);
            planes.push_back(reinterpret_cast<T*>(first));
        }
    }
    PlanarVolume(const PlanarVolume&) = delete;
    PlanarVolume& operator=(const PlanarVolume&) = delete;

    void reset(uint8_t canary = 0xA5) {
        for (auto& b : blocks) std::fill(b.begin(), b.end(), canary);
    }
    uint8_t* bytes(Lum32s x, Lum32s y, Lum32s z) {
        return reinterpret_cast<uint8_t*>(planes[z]) + std::ptrdiff_t(y) * stepBytes +
               std::ptrdiff_t(x) * sizeof(T);
    }
    T get(Lum32s x, Lum32s y, Lum32s z) {
        T v;
        std::memcpy(&v, bytes(x, y, z), sizeof v);
        return v;
    }
    void set(Lum32s x, Lum32s y, Lum32s z, T v) { std::memcpy(bytes(x, y, z), &v, sizeof v); }
    uint32_t bits(Lum32s x, Lum32s y, Lum32s z) {
        uint32_t u = 0;
        std::memcpy(&u, bytes(x, y, z), sizeof(T));
        return u;
    }
    template <class F>
    void fill(F f) {
        for (Lum32s z = 0; z < d; ++z)
            for (Lum32s y = 0; y < h; ++y)
                for (Lum32s x = 0; x < w; ++x) set(x, y, z, f(x, y, z));
    }
    const T* const* src() const { return planes.data(); }
    T* const* dst() { return planes.data(); }
    bool same(PlanarVolume& o) {
        for (Lum32s z = 0; z < d; ++z)
            if (blocks[z] != o.blocks[z]) return false;
        return true;
    }
};

// Every element against the expected volume, bit for bit; the first few
// differences are reported.
template <class T>
void expectSameBits(PlanarVolume<T>& got, PlanarVolume<T>& want, Lum32s code) {
    int bad = 0;
    for (Lum32s z = 0; z < got.d; ++z)
        for (Lum32s y = 0; y < got.h; ++y)
            for (Lum32s x = 0; x < got.w; ++x)
                if (got.bits(x, y, z) != want.bits(x, y, z) && ++bad < 5)
                    ADD_FAILURE() << "code " << code << " at " << x << "," << y << "," << z << " got "
                                  << got.bits(x, y, z) << " want " << want.bits(x, y, z);
    EXPECT_EQ(bad, 0) << "code " << code;
}

// A source box clipped to its volume, as inclusive bounds.
inline LumSampleBounds clipBounds(const LumBox& b, Lum32s w, Lum32s h, Lum32s d) {
    return {b.x, b.y, b.z, b.x + std::min(b.width, w - b.x) - 1, b.y + std::min(b.height, h - b.y) - 1,
            b.z + std::min(b.depth, d - b.z) - 1};
}

template <class T>
constexpr ref::SampleType refType() {
    return sizeof(T) == 1 ? ref::SampleType::U8
                          : sizeof(T) == 2 ? ref::SampleType::U16 : ref::SampleType::F32;
}

// Random source values: the full range of integers, fractions for floats.
template <class T>
T randomSample(std::mt19937& rng) {
    if constexpr (sizeof(T) == 4) {
        return std::uniform_real_distribution<float>(-300.0f, 300.0f)(rng);
    } else {
        return T(std::uniform_int_distribution<uint32_t>(0, sizeof(T) == 1 ? 255 : 65535)(rng));
    }
}

struct ThreadCount {  // restores the thread count after a test
    explicit ThreadCount(Lum32s n) { lumSetNumThreads(n); }
    ~ThreadCount() { lumSetNumThreads(saved); }
    Lum32s saved = lumGetNumThreads();
};

constexpr Lum32s kCodes[] = {1, 2, 4, 5, 6, 7};

}  // namespace voltest
