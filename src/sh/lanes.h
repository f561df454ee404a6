// Lane types of the spherical-harmonic kernels.  Every kernel is written once
// over a lane type: ShLane1 is one direction in plain float and double, ShLane8 is
// eight directions in AVX registers.  Each operation of ShLane8 is the IEEE
// operation of ShLane1 applied per lane (no contraction, default rounding), so
// both give the same bits for every direction.
#pragma once

#include <immintrin.h>

#include "lumr.h"

struct ShF8 {
    __m256 v;
};
struct ShD8 {
    __m256d lo, hi;  // lanes 0-3 and 4-7
};

inline ShF8 operator*(ShF8 a, ShF8 b) { return {_mm256_mul_ps(a.v, b.v)}; }
inline ShF8 operator+(ShF8 a, ShF8 b) { return {_mm256_add_ps(a.v, b.v)}; }
inline ShF8 operator-(ShF8 a, ShF8 b) { return {_mm256_sub_ps(a.v, b.v)}; }
inline ShF8 operator*(ShF8 a, Lum32f b) { return {_mm256_mul_ps(a.v, _mm256_set1_ps(b))}; }
inline ShF8 operator*(Lum32f a, ShF8 b) { return {_mm256_mul_ps(_mm256_set1_ps(a), b.v)}; }

inline ShD8 operator*(ShD8 a, ShD8 b) {
    return {_mm256_mul_pd(a.lo, b.lo), _mm256_mul_pd(a.hi, b.hi)};
}
inline ShD8 operator+(ShD8 a, ShD8 b) {
    return {_mm256_add_pd(a.lo, b.lo), _mm256_add_pd(a.hi, b.hi)};
}
inline ShD8 operator-(ShD8 a, ShD8 b) {
    return {_mm256_sub_pd(a.lo, b.lo), _mm256_sub_pd(a.hi, b.hi)};
}
inline ShD8 operator*(double a, ShD8 b) {
    const __m256d k = _mm256_set1_pd(a);
    return {_mm256_mul_pd(k, b.lo), _mm256_mul_pd(k, b.hi)};
}
inline ShD8 operator+(ShD8 a, double b) {
    const __m256d k = _mm256_set1_pd(b);
    return {_mm256_add_pd(a.lo, k), _mm256_add_pd(a.hi, k)};
}
inline ShD8 operator-(ShD8 a, double b) {
    const __m256d k = _mm256_set1_pd(b);
    return {_mm256_sub_pd(a.lo, k), _mm256_sub_pd(a.hi, k)};
}

struct ShLane1 {
    using F = Lum32f;
    using D = Lum64f;
    static constexpr int kWidth = 1;
    static F splat(Lum32f a) { return a; }
    static D widen(F a) { return a; }
    static F narrow(D a) { return static_cast<Lum32f>(a); }
    static F load(const Lum32f* p) { return *p; }
};

struct ShLane8 {
    using F = ShF8;
    using D = ShD8;
    static constexpr int kWidth = 8;
    static F splat(Lum32f a) { return {_mm256_set1_ps(a)}; }
    static D widen(F a) {
        return {_mm256_cvtps_pd(_mm256_castps256_ps128(a.v)),
                _mm256_cvtps_pd(_mm256_extractf128_ps(a.v, 1))};
    }
    // Rounds to nearest under the default mode, as the scalar conversion does.
    static F narrow(D a) {
        return {_mm256_insertf128_ps(_mm256_castps128_ps256(_mm256_cvtpd_ps(a.lo)),
                                     _mm256_cvtpd_ps(a.hi), 1)};
    }
    static F load(const Lum32f* p) { return {_mm256_loadu_ps(p)}; }
};

// Writes eight directions' blocks of n values from lane-major form: pRows[k]
// holds value k of the eight directions, lane j going to pDst + j * n + k.
// Groups of eight values go through an 8 x 8 transpose; a rest of n % 8
// values is scattered one by one.
inline void ownSHStoreRows(const ShF8* pRows, int n, Lum32f* pDst) {
    int k = 0;
    for (; k + 8 <= n; k += 8) {
        const __m256 r0 = pRows[k].v, r1 = pRows[k + 1].v, r2 = pRows[k + 2].v,
                     r3 = pRows[k + 3].v, r4 = pRows[k + 4].v, r5 = pRows[k + 5].v,
                     r6 = pRows[k + 6].v, r7 = pRows[k + 7].v;
        const __m256 t0 = _mm256_unpacklo_ps(r0, r1), t1 = _mm256_unpackhi_ps(r0, r1);
        const __m256 t2 = _mm256_unpacklo_ps(r2, r3), t3 = _mm256_unpackhi_ps(r2, r3);
        const __m256 t4 = _mm256_unpacklo_ps(r4, r5), t5 = _mm256_unpackhi_ps(r4, r5);
        const __m256 t6 = _mm256_unpacklo_ps(r6, r7), t7 = _mm256_unpackhi_ps(r6, r7);
        const __m256 u0 = _mm256_shuffle_ps(t0, t2, 0x44), u1 = _mm256_shuffle_ps(t0, t2, 0xEE);
        const __m256 u2 = _mm256_shuffle_ps(t1, t3, 0x44), u3 = _mm256_shuffle_ps(t1, t3, 0xEE);
        const __m256 u4 = _mm256_shuffle_ps(t4, t6, 0x44), u5 = _mm256_shuffle_ps(t4, t6, 0xEE);
        const __m256 u6 = _mm256_shuffle_ps(t5, t7, 0x44), u7 = _mm256_shuffle_ps(t5, t7, 0xEE);
        Lum32f* d = pDst + k;
        _mm256_storeu_ps(d, _mm256_permute2f128_ps(u0, u4, 0x20));
        _mm256_storeu_ps(d + n, _mm256_permute2f128_ps(u1, u5, 0x20));
        _mm256_storeu_ps(d + 2 * n, _mm256_permute2f128_ps(u2, u6, 0x20));
        _mm256_storeu_ps(d + 3 * n, _mm256_permute2f128_ps(u3, u7, 0x20));
        _mm256_storeu_ps(d + 4 * n, _mm256_permute2f128_ps(u0, u4, 0x31));
        _mm256_storeu_ps(d + 5 * n, _mm256_permute2f128_ps(u1, u5, 0x31));
        _mm256_storeu_ps(d + 6 * n, _mm256_permute2f128_ps(u2, u6, 0x31));
        _mm256_storeu_ps(d + 7 * n, _mm256_permute2f128_ps(u3, u7, 0x31));
    }
    for (; k < n; ++k) {
        alignas(32) Lum32f lane[8];
        _mm256_store_ps(lane, pRows[k].v);
        for (int j = 0; j < 8; ++j) pDst[j * n + k] = lane[j];
    }
}
