// Planar test volumes for the remap and warp suites: each plane its own
// block, rows a chosen number of bytes apart, every byte canary-filled.
#pragma once

#include <cstdint>
#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "lumr.h"
#include "ref/remap_ref.h"

// Own namespace: other suites link into the same test binary.
namespace remaptest {

template <class T>
struct PlanarVolume {
    Lum32s w, h, d, stepBytes;
    std::vector<std::vector<uint8_t>> blocks;
    std::vector<T*> planes;

    PlanarVolume(Lum32s w_, Lum32s h_, Lum32s d_, Lum32s stepBytes_ = 0, uint8_t canary = 0xA5)
        : w(w_), h(h_), d(d_), stepBytes(stepBytes_ ? stepBytes_ : w_ * Lum32s(sizeof(T))) {
        for (Lum32s z = 0; z < d; ++z) {
            blocks.emplace_back(size_t(stepBytes) * h + 16, canary);
            planes.push_back(reinterpret_cast<T*>(blocks.back().data()));
        }
    }
    PlanarVolume(const PlanarVolume&) = delete;
    PlanarVolume& operator=(const PlanarVolume&) = delete;
    PlanarVolume(PlanarVolume&&) = default;
    PlanarVolume& operator=(PlanarVolume&&) = default;

    void reset(uint8_t canary = 0xA5) {
        for (auto& b : blocks) std::fill(b.begin(), b.end(), canary);
    }
    uint8_t* bytes(Lum32s x, Lum32s y, Lum32s z) {
        return blocks[z].data() + size_t(y) * stepBytes + size_t(x) * sizeof(T);
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

}  // namespace remaptest
