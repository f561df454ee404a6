// Codes 4 to 7, the cubic family: separable four-tap filters that share one
// pipeline and differ only in the routine that turns a fraction into four
// coefficients.  Everything runs in float from the first product on; 8u and
// 16u differ from 32f only in how a sample is read and how a result is stored.
//
// Every four-tap sum is (t0 + t1) + (t2 + t3), tk = coefficient k x tap k,
// except in the rim, where the repeated taps of a border class are merged by
// adding their coefficients first, in the orders written below.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "volume/resize/tables.h"

// Border classes of one axis.  a: s < 0; b: 0 <= s < 1; core; c: n - 2 <= s
// < n - 1; d: s >= n - 1.  With n >= 3 their tap lists are edge replication.
// Below 3 samples the lists would overlap and leave the volume, so such an
// axis is "clamped": every sample is rim, its taps i - 1 .. i + 2 each clamped
// into the volume and summed plainly.
struct OwnCubicAxis {
    Lum32s a, b, c, d;
    bool clamped;
    Lum32s lead() const { return a + b; }
    Lum32s trail() const { return c + d; }
};

// x index (plain), y offset (plain index on a clamped axis), z index (plain),
// with four coefficients per entry.
struct OwnCubicTables {
    const Lum32s* x;
    const Lum32s* y;
    const Lum32s* z;
    const Lum32f* cx;
    const Lum32f* cy;
    const Lum32f* cz;
    OwnCubicAxis ax, ay, az;
    Lum32s nx, ny, nz;
};

inline Lum32s ownClampTap(Lum32s i, Lum32s n) { return i < 0 ? 0 : i >= n ? n - 1 : i; }

// Tap list of a sample of an axis from its class.
inline void ownCubicTaps(const OwnCubicAxis& ax, Lum32s pos, Lum32s count, Lum32s i, Lum32s n,
                         Lum32s taps[4]) {
    if (ax.clamped) {
        for (int m = 0; m < 4; ++m) taps[m] = ownClampTap(i - 1 + m, n);
    } else if (pos < ax.a) {
        taps[0] = 0, taps[1] = 0, taps[2] = 0, taps[3] = 1;
    } else if (pos < ax.a + ax.b) {
        taps[0] = 0, taps[1] = 0, taps[2] = 1, taps[3] = 2;
    } else if (pos >= count - ax.d) {
        taps[0] = n - 2, taps[1] = n - 1, taps[2] = n - 1, taps[3] = n - 1;
    } else if (pos >= count - ax.d - ax.c) {
        taps[0] = n - 3, taps[1] = n - 2, taps[2] = n - 1, taps[3] = n - 1;
    } else {
        taps[0] = i - 1, taps[1] = i, taps[2] = i + 1, taps[3] = i + 2;
    }
}

inline Lum32f ownCubicSum(const Lum32f* k, Lum32f s0, Lum32f s1, Lum32f s2, Lum32f s3) {
    return (k[0] * s0 + k[1] * s1) + (k[2] * s2 + k[3] * s3);
}

// ---- Final conversions -------------------------------------------------------
// Deliberate: the rim rounds to nearest with a slight upward bias, the core
// truncates; the two are not to be unified.  Floats are stored unchanged,
// overshoot included.
template <class T>
inline T ownCubicRimOut(Lum32f v) {
    if constexpr (sizeof(T) == 4) {
        return v;
    } else {
        constexpr double kMax = sizeof(T) == 1 ? 255.0 : 65535.0;
        const double x = static_cast<double>(v) + 0.5000001;
        if (!(x >= 1.0)) return 0;  // negative, below one, or not a number
        if (x >= kMax) return static_cast<T>(kMax);
        return static_cast<T>(static_cast<Lum32s>(x));
    }
}

// Truncation toward zero in single precision, as the processor does it: a
// value outside the 32-bit range or NaN becomes the integer indefinite
// (most negative), which then saturates to 0.
inline Lum32s ownTruncF(Lum32f v) {
    if (!(v > -2147483648.0f && v < 2147483648.0f)) return INT32_MIN;
    return static_cast<Lum32s>(v);
}

template <class T>
inline T ownCubicCoreOut(Lum32f v) {
    if constexpr (sizeof(T) == 4) {
        return v;
    } else {
        constexpr Lum32s kMax = sizeof(T) == 1 ? 255 : 65535;
        const Lum32s t = ownTruncF(v);
        return static_cast<T>(t < 0 ? 0 : t > kMax ? kMax : t);
    }
}

// ---- Core passes ---------------------------------------------------------------
template <class T>
inline __m128 ownLoad4AsFloat(const T* p) {
    if constexpr (sizeof(T) == 4) {
        return _mm_loadu_ps(p);
    } else if constexpr (sizeof(T) == 2) {
        return _mm_cvtepi32_ps(
            _mm_cvtepu16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))));
    } else {
        std::int32_t w;
        std::memcpy(&w, p, 4);
        return _mm_cvtepi32_ps(_mm_cvtepu8_epi32(_mm_cvtsi32_si128(w)));
    }
}

// x pass of one source row: four neighbouring samples in one unaligned load
// per column; two horizontal adds give exactly (t0 + t1) + (t2 + t3).
template <class T>
void ownResizeCubicRowX(const T* row, const Lum32s* x, const Lum32f* cx, Lum32s cw, Lum32f* out) {
    Lum32s c = 0;
    for (; c + 4 <= cw; c += 4) {
        const __m128 p0 = _mm_mul_ps(_mm_loadu_ps(cx + 4 * c), ownLoad4AsFloat(row + x[c] - 1));
        const __m128 p1 =
            _mm_mul_ps(_mm_loadu_ps(cx + 4 * c + 4), ownLoad4AsFloat(row + x[c + 1] - 1));
        const __m128 p2 =
            _mm_mul_ps(_mm_loadu_ps(cx + 4 * c + 8), ownLoad4AsFloat(row + x[c + 2] - 1));
        const __m128 p3 =
            _mm_mul_ps(_mm_loadu_ps(cx + 4 * c + 12), ownLoad4AsFloat(row + x[c + 3] - 1));
        _mm_storeu_ps(out + c, _mm_hadd_ps(_mm_hadd_ps(p0, p1), _mm_hadd_ps(p2, p3)));
    }
    for (; c < cw; ++c) {
        const T* s = row + x[c] - 1;
        out[c] = ownCubicSum(cx + 4 * c, Lum32f(s[0]), Lum32f(s[1]), Lum32f(s[2]), Lum32f(s[3]));
    }
}

// Four rows combined with one set of coefficients, eight lanes at a time;
// each lane is the plain four-tap sum.  The y pass of every type and the z
// pass of the float core.
inline void ownResizeCubicRowY(const Lum32f* const S[4], const Lum32f* k, Lum32f* out, Lum32s n) {
    const __m256 k0 = _mm256_set1_ps(k[0]), k1 = _mm256_set1_ps(k[1]);
    const __m256 k2 = _mm256_set1_ps(k[2]), k3 = _mm256_set1_ps(k[3]);
    Lum32s c = 0;
    for (; c + 8 <= n; c += 8) {
        const __m256 a = _mm256_add_ps(_mm256_mul_ps(k0, _mm256_loadu_ps(S[0] + c)),
                                       _mm256_mul_ps(k1, _mm256_loadu_ps(S[1] + c)));
        const __m256 b = _mm256_add_ps(_mm256_mul_ps(k2, _mm256_loadu_ps(S[2] + c)),
                                       _mm256_mul_ps(k3, _mm256_loadu_ps(S[3] + c)));
        _mm256_storeu_ps(out + c, _mm256_add_ps(a, b));
    }
    for (; c < n; ++c) out[c] = ownCubicSum(k, S[0][c], S[1][c], S[2][c], S[3][c]);
}

// z pass of the core into the destination type: the four-tap sum, then the
// core conversion (truncation and saturation for the integer types).
template <class T>
void ownResizeCubicCoreZRow(const Lum32f* const S[4], const Lum32f* k, T* out, Lum32s n) {
    if constexpr (sizeof(T) == 4) {
        ownResizeCubicRowY(S, k, out, n);
    } else {
        const __m256 k0 = _mm256_set1_ps(k[0]), k1 = _mm256_set1_ps(k[1]);
        const __m256 k2 = _mm256_set1_ps(k[2]), k3 = _mm256_set1_ps(k[3]);
        Lum32s c = 0;
        for (; c + 8 <= n; c += 8) {
            const __m256 a = _mm256_add_ps(_mm256_mul_ps(k0, _mm256_loadu_ps(S[0] + c)),
                                           _mm256_mul_ps(k1, _mm256_loadu_ps(S[1] + c)));
            const __m256 b = _mm256_add_ps(_mm256_mul_ps(k2, _mm256_loadu_ps(S[2] + c)),
                                           _mm256_mul_ps(k3, _mm256_loadu_ps(S[3] + c)));
            const __m256i t = _mm256_cvttps_epi32(_mm256_add_ps(a, b));
            const __m128i lo = _mm256_castsi256_si128(t), hi = _mm256_extractf128_si256(t, 1);
            if constexpr (sizeof(T) == 2) {
                _mm_storeu_si128(reinterpret_cast<__m128i*>(out + c), _mm_packus_epi32(lo, hi));
            } else {
                const __m128i v16 = _mm_packs_epi32(lo, hi);
                _mm_storel_epi64(reinterpret_cast<__m128i*>(out + c), _mm_packus_epi16(v16, v16));
            }
        }
        for (; c < n; ++c) out[c] = ownCubicCoreOut<T>(ownCubicSum(k, S[0][c], S[1][c], S[2][c], S[3][c]));
    }
}

// Core of one source plane into a core plane, with the four-slot row ring
// holding the filtered rows i - 1 .. i + 2 of each core row.
template <class T>
void ownResizeCubicCorePlane(const T* plane, Lum32s srcStepN, const OwnCubicTables& tb,
                             const OwnRimShape& s, Lum32f* const slot[4], Lum32f* core,
                             std::ptrdiff_t stride) {
    const Lum32s cw = s.coreW(), ch = s.coreH();
    const Lum32s* x = tb.x + s.L;
    const Lum32f* cx = tb.cx + 4 * static_cast<std::ptrdiff_t>(s.L);
    OwnTagRing<4> ring;
    for (Lum32s r = 0; r < ch; ++r) {
        const Lum32s o = tb.y[s.T + r];
        const Lum32s want[4] = {ownAdd32(o, -srcStepN), o, ownAdd32(o, srcStepN),
                                ownAdd32(o, ownMul32(2, srcStepN))};
        ring.ensure(want, [&](int id, Lum32s e) {
            ownResizeCubicRowX<T>(plane + e, x, cx, cw, slot[id]);
        });
        const Lum32f* const S[4] = {slot[ring.id[0]], slot[ring.id[1]], slot[ring.id[2]],
                                    slot[ring.id[3]]};
        ownResizeCubicRowY(S, tb.cy + 4 * static_cast<std::ptrdiff_t>(s.T + r), core + r * stride,
                           cw);
    }
}

// ---- Rim of one source plane -------------------------------------------------
// Rows of the rim take x taps by the column's class list, summed plainly.
template <class T>
inline Lum32f ownCubicRimRowX(const T* row, const OwnCubicTables& tb, Lum32s W, Lum32s c) {
    Lum32s t[4];
    ownCubicTaps(tb.ax, c, W, tb.x[c], tb.nx, t);
    return ownCubicSum(tb.cx + 4 * c, Lum32f(row[t[0]]), Lum32f(row[t[1]]), Lum32f(row[t[2]]),
                       Lum32f(row[t[3]]));
}

// Columns of the rim merge repeated x taps, class by class.
template <class T>
inline Lum32f ownCubicRimColX(const T* s, const OwnCubicTables& tb, Lum32s W, Lum32s c) {
    const Lum32f* k = tb.cx + 4 * c;
    const OwnCubicAxis& ax = tb.ax;
    const Lum32s n = tb.nx;
    if (ax.clamped) {
        Lum32s t[4];
        ownCubicTaps(ax, c, W, tb.x[c], n, t);
        return ownCubicSum(k, Lum32f(s[t[0]]), Lum32f(s[t[1]]), Lum32f(s[t[2]]), Lum32f(s[t[3]]));
    }
    if (c < ax.a) return ((k[0] + k[1]) + k[2]) * Lum32f(s[0]) + k[3] * Lum32f(s[1]);
    if (c < ax.a + ax.b)
        return (k[3] * Lum32f(s[2]) + (k[0] + k[1]) * Lum32f(s[0])) + k[2] * Lum32f(s[1]);
    if (c >= W - ax.d) return k[0] * Lum32f(s[n - 2]) + ((k[1] + k[2]) + k[3]) * Lum32f(s[n - 1]);
    return ((k[2] + k[3]) * Lum32f(s[n - 1]) + k[0] * Lum32f(s[n - 3])) + k[1] * Lum32f(s[n - 2]);
}

template <class T>
void ownResizeCubicRimPlane(const T* plane, Lum32s srcStepN, const OwnCubicTables& tb,
                            const OwnRimShape& s, Lum32f* rim) {
    const OwnRimSink<Lum32f> out = ownRimPlaneSink<Lum32f>(rim, s);
    const OwnCubicAxis& ay = tb.ay;
    const Lum32s W = s.W, ny = tb.ny;
    auto row = [&](Lum32s off) { return plane + off; };
    // Leading rows: classes a and b merge their repeated row taps.
    for (Lum32s t = 0; t < s.T; ++t) {
        const Lum32f* k = tb.cy + 4 * t;
        Lum32f* o = out.top + t * out.topStride;
        if (ay.clamped) {
            const Lum32s i = tb.y[t];
            const T* R[4];
            for (int m = 0; m < 4; ++m)
                R[m] = row(ownMul32(ownClampTap(i - 1 + m, ny), srcStepN));
            for (Lum32s c = 0; c < W; ++c)
                o[c] = ownCubicSum(k, ownCubicRimRowX(R[0], tb, W, c), ownCubicRimRowX(R[1], tb, W, c),
                                   ownCubicRimRowX(R[2], tb, W, c), ownCubicRimRowX(R[3], tb, W, c));
        } else if (t < ay.a) {
            const T *A = row(0), *B = row(srcStepN);
            for (Lum32s c = 0; c < W; ++c)
                o[c] = ((k[0] + k[1]) + k[2]) * ownCubicRimRowX(A, tb, W, c) +
                       k[3] * ownCubicRimRowX(B, tb, W, c);
        } else {
            const T *A = row(0), *B = row(srcStepN), *C = row(ownMul32(2, srcStepN));
            for (Lum32s c = 0; c < W; ++c)
                o[c] = ((k[0] + k[1]) * ownCubicRimRowX(A, tb, W, c) +
                        k[3] * ownCubicRimRowX(C, tb, W, c)) +
                       k[2] * ownCubicRimRowX(B, tb, W, c);
        }
    }
    // Trailing rows: all four tap rows, duplicates included, summed plainly.
    // Deliberate: the class is found by comparing the row offset with that of
    // row n - 2 as signed numbers.  Greater is class d, equal class c, and
    // anything else keeps the tap rows of the trailing row before it (row 0
    // for all four if none).  With a negative row step class d is never
    // recognised and reuses the class c rows before it.
    Lum32s tap[4] = {0, 0, 0, 0};
    const Lum32s limit = ownMul32(ny - 2, srcStepN);
    for (Lum32s b = 0; b < s.B; ++b) {
        const Lum32s r = s.H - s.B + b;
        const Lum32s off = tb.y[r];
        if (off > limit) {
            tap[0] = limit;
            tap[1] = tap[2] = tap[3] = ownMul32(ny - 1, srcStepN);
        } else if (off == limit) {
            tap[0] = ownMul32(ny - 3, srcStepN);
            tap[1] = limit;
            tap[2] = tap[3] = ownMul32(ny - 1, srcStepN);
        }
        const Lum32f* k = tb.cy + 4 * r;
        Lum32f* o = out.bottom + b * out.bottomStride;
        const T *R0 = row(tap[0]), *R1 = row(tap[1]), *R2 = row(tap[2]), *R3 = row(tap[3]);
        for (Lum32s c = 0; c < W; ++c)
            o[c] = ownCubicSum(k, ownCubicRimRowX(R0, tb, W, c), ownCubicRimRowX(R1, tb, W, c),
                               ownCubicRimRowX(R2, tb, W, c), ownCubicRimRowX(R3, tb, W, c));
    }
    // Columns of the core rows: merged x taps on each of rows i - 1 .. i + 2,
    // then the plain four-tap sum on y.
    const Lum32s ch = s.coreH();
    for (Lum32s r = 0; r < ch; ++r) {
        const Lum32s o = tb.y[s.T + r];
        const T* R[4] = {row(ownAdd32(o, -srcStepN)), row(o), row(ownAdd32(o, srcStepN)),
                         row(ownAdd32(o, ownMul32(2, srcStepN)))};
        const Lum32f* k = tb.cy + 4 * (s.T + r);
        auto col = [&](Lum32s c) {
            return ownCubicSum(k, ownCubicRimColX(R[0], tb, W, c), ownCubicRimColX(R[1], tb, W, c),
                               ownCubicRimColX(R[2], tb, W, c), ownCubicRimColX(R[3], tb, W, c));
        };
        for (Lum32s j = 0; j < s.L; ++j) out.left[j * out.colStride + r] = col(j);
        for (Lum32s j = 0; j < s.R; ++j) out.right[j * out.colStride + r] = col(W - s.R + j);
    }
}

// z pass of the rim: four rim planes into the destination's rim positions,
// with the rim conversion.
template <class T>
void ownResizeCubicRimZ(const Lum32f* const P[4], const Lum32f* k, const OwnRimShape& s,
                        const OwnRimSink<T>& out) {
    auto run = [&](std::ptrdiff_t e0, Lum32s n, T* o, std::ptrdiff_t stride) {
        if constexpr (sizeof(T) == 4) {
            if (stride == 1) {
                const Lum32f* const S[4] = {P[0] + e0, P[1] + e0, P[2] + e0, P[3] + e0};
                ownResizeCubicRowY(S, k, o, n);
                return;
            }
        }
        for (Lum32s e = 0; e < n; ++e)
            o[e * stride] = ownCubicRimOut<T>(
                ownCubicSum(k, P[0][e0 + e], P[1][e0 + e], P[2][e0 + e], P[3][e0 + e]));
    };
    for (Lum32s t = 0; t < s.T; ++t)
        run(static_cast<std::ptrdiff_t>(t) * s.W, s.W, out.top + t * out.topStride, 1);
    for (Lum32s b = 0; b < s.B; ++b)
        run(static_cast<std::ptrdiff_t>(s.T + b) * s.W, s.W, out.bottom + b * out.bottomStride, 1);
    const Lum32s ch = s.coreH();
    const std::ptrdiff_t cols = static_cast<std::ptrdiff_t>(s.T + s.B) * s.W;
    for (Lum32s j = 0; j < s.L; ++j)
        run(cols + static_cast<std::ptrdiff_t>(j) * ch, ch, out.left + j * out.colStride,
            out.elemStride);
    for (Lum32s j = 0; j < s.R; ++j)
        run(cols + static_cast<std::ptrdiff_t>(s.L + j) * ch, ch, out.right + j * out.colStride,
            out.elemStride);
}

// ---- The cubic worker ------------------------------------------------------------
namespace own_resize_detail {

using OwnCoefFn = void (*)(const Lum32f*, Lum32s, Lum32f*);
inline constexpr OwnCoefFn kCubicCoef[4] = {ownResizeCoefLagrange, ownResizeCoefBSpline,
                                            ownResizeCoefCatmullRom, ownResizeCoefCubicBC};

// Classes, plain indices and float fractions of one axis.
inline OwnCubicAxis localCubicAxis(double inv, double off, Lum32s begin, Lum32s count, Lum32s n,
                                   Lum32s* idx, Lum32f* frac) {
    OwnCubicAxis ax{0, 0, 0, 0, n < 3};
    for (Lum32s k = 0; k < count; ++k) {
        const double s = ownResizeCoord(inv, begin + k, off);
        const double fi = std::floor(s);
        frac[k] = static_cast<Lum32f>(s - fi);
        idx[k] = ownResizeFloorIndex(fi, n);
        if (ax.clamped) continue;
        if (s < 0.0)
            ++ax.a;
        else if (s < 1.0)
            ++ax.b;
        else if (s >= static_cast<double>(n - 1))
            ++ax.d;
        else if (s >= static_cast<double>(n - 2))
            ++ax.c;
    }
    return ax;
}

}  // namespace own_resize_detail

template <class T, class Storage>
LumStatus ownResizeCubic(const OwnResizeJob<T, Storage>& j) {
    using namespace own_resize_detail;
    const Lum32s Wd = j.width, Hd = j.height, Dd = j.depth;
    OwnCarve c(j.scratch);
    c.align(16);
    Lum32s* xi = c.take<Lum32s>(Wd, 16);
    Lum32s* yo = c.take<Lum32s>(Hd, 16);
    Lum32s* zi = c.take<Lum32s>(Dd, 16);
    Lum32f* fx = c.take<Lum32f>(Wd, 64);
    Lum32f* fy = c.take<Lum32f>(Hd, 64);
    Lum32f* fz = c.take<Lum32f>(Dd, 64);
    OwnCubicTables tb{};
    tb.nx = j.nx, tb.ny = j.ny, tb.nz = j.nz;
    tb.ax = localCubicAxis(j.inv[0], j.off[0], j.xBegin, Wd, j.nx, xi, fx);
    tb.ay = localCubicAxis(j.inv[1], j.off[1], j.yBegin, Hd, j.ny, yo, fy);
    tb.az = localCubicAxis(j.inv[2], j.off[2], j.zStart, Dd, j.nz, zi, fz);
    // A clamped axis keeps plain indices; otherwise y entries are row offsets.
    if (!tb.ay.clamped)
        for (Lum32s k = 0; k < Hd; ++k) yo[k] = ownMul32(yo[k], j.srcStepN);
    tb.x = xi, tb.y = yo, tb.z = zi;

    OwnRimShape s{Wd, Hd, tb.ay.clamped ? Hd : tb.ay.lead(), tb.ay.trail(),
                  tb.ax.clamped ? Wd : tb.ax.lead(), tb.ax.trail()};
    const Lum32s cw = s.coreW(), ch = s.coreH();
    const bool core = cw > 0 && ch > 0;
    const std::size_t cwz = cw > 0 ? static_cast<std::size_t>(cw) : 0;
    Lum32f* slot[4];
    for (auto& p : slot) p = c.take<Lum32f>(cwz, 64);
    OwnPlaneSlots<Lum32f, 4> ps;
    Lum32f *cx, *cy, *cz;
    auto takeCoefs = [&] {
        cx = c.take<Lum32f>(4 * static_cast<std::size_t>(Wd), 64);
        cy = c.take<Lum32f>(4 * static_cast<std::size_t>(Hd), 64);
        cz = c.take<Lum32f>(4 * static_cast<std::size_t>(Dd), 64);
    };
    const std::size_t rimCap = 12 * (static_cast<std::size_t>(Wd) + Hd);
    if (s.elems() <= rimCap) {
        ownCutCorePlanes<Lum32f, 4>(c, s, ownA64(cwz), &ps);
        takeCoefs();
        ownCutRimPlanes<Lum32f, 4>(c, ownA64(rimCap * sizeof(Lum32f)), &ps);
    } else {
        takeCoefs();
        const std::uintptr_t end = reinterpret_cast<std::uintptr_t>(j.scratch) +
                                   static_cast<std::uint32_t>(ownResizeBufSizeOne(Wd, Hd, Dd, j.code));
        if (!ownPoolPlaneSlots<Lum32f, 4>(c, end, s, &ps)) return lumStatusSize;  // cannot happen
    }
    const OwnCoefFn coef = kCubicCoef[j.code - LUM_RESAMPLE_LAGRANGE];
    coef(fx, Wd, cx);
    coef(fy, Hd, cy);
    coef(fz, Dd, cz);
    tb.cx = cx, tb.cy = cy, tb.cz = cz;

    // Each destination plane names four source planes by its z class; the
    // ring filters a source plane (rim and core) only when no slot holds it.
    OwnTagRing<4> ring;
    for (Lum32s k = 0; k < Dd; ++k) {
        Lum32s taps[4];
        ownCubicTaps(tb.az, k, Dd, zi[k], j.nz, taps);
        const Lum32s want[4] = {j.src.entry(taps[0]), j.src.entry(taps[1]),
                                j.src.entry(taps[2]), j.src.entry(taps[3])};
        ring.ensure(want, [&](int id, Lum32s e) {
            const T* plane = j.src.plane(e);
            ownResizeCubicRimPlane<T>(plane, j.srcStepN, tb, s, ps.rim[id]);
            if (core) ownResizeCubicCorePlane<T>(plane, j.srcStepN, tb, s, slot, ps.core[id], ps.coreStride);
        });
        T* out = j.dst.plane(k);
        const Lum32f* kz = cz + 4 * static_cast<std::ptrdiff_t>(k);
        const Lum32f* const R[4] = {ps.rim[ring.id[0]], ps.rim[ring.id[1]], ps.rim[ring.id[2]],
                                    ps.rim[ring.id[3]]};
        ownResizeCubicRimZ<T>(R, kz, s, ownRimDstSink<T>(out, j.dstStepN, s));
        if (!core) continue;
        const std::ptrdiff_t stride = ps.coreStride;
        T* o0 = out + static_cast<std::ptrdiff_t>(s.T) * j.dstStepN + s.L;
        for (Lum32s r = 0; r < ch; ++r) {
            const Lum32f* const S[4] = {ps.core[ring.id[0]] + r * stride, ps.core[ring.id[1]] + r * stride,
                                        ps.core[ring.id[2]] + r * stride, ps.core[ring.id[3]] + r * stride};
            ownResizeCubicCoreZRow<T>(S, kz, o0 + static_cast<std::ptrdiff_t>(r) * j.dstStepN, cw);
        }
    }
    return lumStatusOk;
}
