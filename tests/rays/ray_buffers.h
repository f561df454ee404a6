// Streams for the ray and intersection tests: on a 64-byte boundary plus a
// chosen number of elements, so that one call runs aligned and another
// misaligned, and filled with a canary so that untouched outputs show.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "lumr.h"

constexpr Lum32f kCanary = -12345.678f;

template <class T>
struct Stream {
    Stream(size_t count, size_t shift = 0, T fill = T(0)) : n(count), shift(shift), store(count + 32) {
        const auto base = reinterpret_cast<std::uintptr_t>(store.data());
        p = reinterpret_cast<T*>((base + 63) & ~std::uintptr_t{63}) + shift;
        std::fill(p, p + n, fill);
    }
    Stream(const Stream& o) : Stream(o.n, o.shift) { std::copy(o.p, o.p + n, p); }
    Stream& operator=(const Stream&) = delete;
    T* data() { return p; }
    T& operator[](size_t i) { return p[i]; }
    const T& operator[](size_t i) const { return p[i]; }
    void fill(T v) { std::fill(p, p + n, v); }
    size_t n, shift;
    std::vector<T> store;
    T* p;
};

struct Planes {
    Planes(size_t n, size_t shift = 0, Lum32f fill = 0.0f) : s{{n, shift, fill}, {n, shift, fill}, {n, shift, fill}} {
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

// The same bits, or any NaN where a NaN is due (payloads are not fixed).
inline ::testing::AssertionResult sameLane(Lum32f got, Lum32f want) {
    if (std::isnan(want) ? std::isnan(got) : bitsOf(got) == bitsOf(want))
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "got " << got << " (0x" << std::hex << bitsOf(got)
                                         << "), want " << want << " (0x" << bitsOf(want) << ")";
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

// Inputs with values on the rules' edges (signed zeros, infinities, NaN, a
// subnormal, exact small numbers) mixed with ordinary ones.
struct EdgeData {
    static constexpr int n = 32;
    explicit EdgeData(unsigned seed) {
        std::mt19937 rng(seed);
        static const Lum32f kEdge[] = {0.0f, -0.0f, 1.0f, -1.0f, 0.5f, 3.0f, INFINITY, -INFINITY, NAN, 1e-40f, -2.5f};
        auto pick = [&] { return rng() % 3 == 0 ? kEdge[rng() % 11] : std::uniform_real_distribution<Lum32f>(-4, 4)(rng); };
        for (int i = 0; i < n; ++i) {
            s[i] = pick();
            for (int k = 0; k < 3; ++k) a[k][i] = pick(), b[k][i] = pick(), d[k][i] = pick();
        }
        fillMask(m, n, rng);
    }
    void put(Planes& p, const Lum32f (&src)[3][n]) const {
        for (int k = 0; k < 3; ++k) std::copy(src[k], src[k] + n, p[k]);
    }
    Lum32f s[n], a[3][n], b[3][n], d[3][n];
    Lum32s m[n];
};
