// Streams for the ray tests: on a 64-byte boundary plus a chosen number of
// elements, so that one call runs aligned and another misaligned, and filled
// with a canary so that untouched outputs show.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "lumr.h"

constexpr Lum32f kCanary = -12345.678f;

template <class T>
struct Stream {
    Stream(int n, int shift = 0, T fill = T(0)) : store(n + 32) {
        const auto base = reinterpret_cast<std::uintptr_t>(store.data());
        p = reinterpret_cast<T*>((base + 63) & ~std::uintptr_t{63}) + shift;
        std::fill(p, p + n, fill);
    }
    T& operator[](int i) { return p[i]; }
    std::vector<T> store;
    T* p;
};

struct Planes {
    Planes(int n, int shift = 0, Lum32f fill = 0.0f) : s{{n, shift, fill}, {n, shift, fill}, {n, shift, fill}} {
        pl = {s[0].p, s[1].p, s[2].p};
    }
    Lum32f* operator[](int k) { return s[k].p; }
    Stream<Lum32f> s[3];
    LumPlanes3 pl;
};

inline Lum32u bitsOf(Lum32f f) {
    Lum32u u;
    std::memcpy(&u, &f, 4);
    return u;
}

// Group 0 all off, group 1 all on, the rest mixed at random; both -1 and the
// most negative value stand for off.
inline void fillMask(Lum32s* m, int n, std::mt19937& rng) {
    for (int i = 0; i < n; ++i) {
        const bool on = i < 4 ? false : i < 8 ? true : rng() % 3 != 0;
        m[i] = on ? static_cast<Lum32s>(rng() % 7) : (i % 2 ? -1 : INT32_MIN);
    }
}

inline void fillUniform(Lum32f* p, int n, std::mt19937& rng, Lum32f lo = -2, Lum32f hi = 2) {
    std::uniform_real_distribution<Lum32f> d(lo, hi);
    for (int i = 0; i < n; ++i) p[i] = d(rng);
}
