// Streams for the ray tests: placed on a 64-byte boundary plus a chosen
// number of elements, so one call can run aligned and another misaligned on
// the same values, and filled with a canary so untouched outputs show.
#pragma once

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "lumr.h"

template <class T>
struct Stream {
    Stream(int n, int shift = 0, T fill = T(0)) : store(n + 32) {
        auto base = reinterpret_cast<std::uintptr_t>(store.data());
        p = reinterpret_cast<T*>((base + 63) & ~std::uintptr_t{63}) + shift;
        for (int i = 0; i < n; ++i) p[i] = fill;
        size = n;
    }
    T& operator[](int i) { return p[i]; }
    std::vector<T> values() const { return std::vector<T>(p, p + size); }
    std::vector<T> store;
    T* p;
    int size;
};

struct Planes {
    Planes(int n, int shift = 0, Lum32f fill = 0.0f) : x(n, shift, fill), y(n, shift, fill), z(n, shift, fill) {
        pl = {x.p, y.p, z.p};
    }
    Stream<Lum32f> x, y, z;
    LumPlanes3 pl;
    Lum32f* c(int k) { return k == 0 ? x.p : k == 1 ? y.p : z.p; }
    // Copy the values of another stream of the same length.
    void copyFrom(const Planes& o) {
        std::memcpy(x.p, o.x.p, 4 * x.size), std::memcpy(y.p, o.y.p, 4 * y.size);
        std::memcpy(z.p, o.z.p, 4 * z.size);
    }
};

inline Lum32u bitsOf(Lum32f f) {
    Lum32u u;
    std::memcpy(&u, &f, 4);
    return u;
}

// Canary that no computation produces.
constexpr Lum32f kCanary = -12345.678f;

// One group of four all off, one all on, one mixed, then mixed at random;
// -1 and the most negative value both appear as off.
inline void fillMask(Stream<Lum32s>& m, std::mt19937& rng) {
    for (int i = 0; i < m.size; ++i) {
        const int group = i / 4;
        const bool on = group == 0 ? false : group == 1 ? true : (rng() % 3 != 0);
        m[i] = on ? static_cast<Lum32s>(rng() % 7) : (i % 2 ? -1 : INT32_MIN);
    }
}

inline void fillUniform(Lum32f* p, int n, std::mt19937& rng, Lum32f lo = -2.0f, Lum32f hi = 2.0f) {
    std::uniform_real_distribution<Lum32f> d(lo, hi);
    for (int i = 0; i < n; ++i) p[i] = d(rng);
}
