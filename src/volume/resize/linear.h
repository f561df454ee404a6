// Code 2, linear.  A plane is cut into a rim, whose taps are clamped to the
// volume, and a core with no border checks.  The rim and the core round
// differently on purpose: the float rim interpolates as (1 - f) a + f b, the
// float core as a + (b - a) f; the 8-bit rim rounds to an integer after each
// axis, the 8-bit core keeps 6 fraction bits until the last axis.  The two
// are never routed through one helper.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "volume/resize/tables.h"

// Storage form of a sample type: float throughout for 32f; Q14 weights and
// 16-bit rim and core samples for the integer types (x weights in pairs).
template <class T>
struct OwnLinearForm {
    using Q = Lum16u;
    using W = Lum16u;
    static constexpr int kXW = 2;  // (wa, wb) per column
};
template <>
struct OwnLinearForm<Lum32f> {
    using Q = Lum32f;
    using W = Lum32f;
    static constexpr int kXW = 1;  // f per column
};

template <class T>
struct OwnLinearTables {
    using W = typename OwnLinearForm<T>::W;
    const Lum32s* x;  // column index; 0 and n - 1 in the lead and trail runs
    const W* wx;      // kXW entries per column
    const Lum32s* y;  // row offset in samples
    const W* wy;
    const Lum32s* z;  // z entry of each destination plane
    const W* wz;
};

// ---- Rim arithmetic -------------------------------------------------------
template <class T>
inline typename OwnLinearForm<T>::Q ownLinearRimX(const T* row, Lum32s ia, Lum32s ib,
                                                  const typename OwnLinearForm<T>::W* wx,
                                                  Lum32s c) {
    if constexpr (sizeof(T) == 4) {
        const Lum32f f = wx[c];
        return (1.0f - f) * row[ia] + f * row[ib];
    } else {
        const std::uint32_t wa = wx[2 * c], wb = wx[2 * c + 1];
        return static_cast<Lum16u>((wa * row[ia] + wb * row[ib] + 8192u) >> 14);
    }
}

// Deliberate: the rim's y form is written b f + (1 - f) a, its x form
// (1 - f) a + f b; both round the same, and are kept as they are.
template <class T>
inline typename OwnLinearForm<T>::Q ownLinearRimY(T a, T b, typename OwnLinearForm<T>::W w) {
    if constexpr (sizeof(T) == 4) {
        return b * w + (1.0f - w) * a;
    } else {
        const std::uint32_t wb = w, wa = 16384u - wb;
        return static_cast<Lum16u>((wa * a + wb * b + 8192u) >> 14);
    }
}

// ---- Row kernels, shared by y and z steps -----------------------------------
// (1 - w) A + w B, eight lanes at a time; the lanes round as the plain loop.
inline void ownResizeLinearRowY_32f(const Lum32f* A, const Lum32f* B, Lum32f w, Lum32f* out,
                                    Lum32s n) {
    const Lum32f omw = 1.0f - w;
    const __m256 vo = _mm256_set1_ps(omw), vw = _mm256_set1_ps(w);
    Lum32s c = 0;
    for (; c + 16 <= n; c += 16) {
        const __m256 r0 = _mm256_add_ps(_mm256_mul_ps(vo, _mm256_loadu_ps(A + c)),
                                        _mm256_mul_ps(vw, _mm256_loadu_ps(B + c)));
        const __m256 r1 = _mm256_add_ps(_mm256_mul_ps(vo, _mm256_loadu_ps(A + c + 8)),
                                        _mm256_mul_ps(vw, _mm256_loadu_ps(B + c + 8)));
        _mm256_storeu_ps(out + c, r0);
        _mm256_storeu_ps(out + c + 8, r1);
    }
    for (; c + 8 <= n; c += 8)
        _mm256_storeu_ps(out + c, _mm256_add_ps(_mm256_mul_ps(vo, _mm256_loadu_ps(A + c)),
                                                _mm256_mul_ps(vw, _mm256_loadu_ps(B + c))));
    for (; c < n; ++c) out[c] = omw * A[c] + w * B[c];
}

// (wa A + wb B + round) >> shift on eight 16-bit lanes, exact in 32 bits:
// the 16 x 16 products are rebuilt from their low and high halves.
template <int kShift>
inline void localQBlend8(const Lum16u* A, const Lum16u* B, __m128i wa, __m128i wb, __m128i& lo,
                         __m128i& hi) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(A));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(B));
    const __m128i al = _mm_mullo_epi16(a, wa), ah = _mm_mulhi_epu16(a, wa);
    const __m128i bl = _mm_mullo_epi16(b, wb), bh = _mm_mulhi_epu16(b, wb);
    const __m128i rnd = _mm_set1_epi32(1 << (kShift - 1));
    lo = _mm_add_epi32(_mm_add_epi32(_mm_unpacklo_epi16(al, ah), _mm_unpacklo_epi16(bl, bh)), rnd);
    hi = _mm_add_epi32(_mm_add_epi32(_mm_unpackhi_epi16(al, ah), _mm_unpackhi_epi16(bl, bh)), rnd);
    lo = _mm_srli_epi32(lo, kShift);
    hi = _mm_srli_epi32(hi, kShift);
}

// ((16384 - w) A + w B + 8192) >> 14 in 16 bits: the 16u y and z steps and
// the 8-bit core planes (which stay in Q6).
inline void ownResizeLinearRowYQ(const Lum16u* A, const Lum16u* B, Lum16u w, Lum16u* out,
                                 Lum32s n) {
    const std::uint32_t wb = w, wa = 16384u - wb;
    const __m128i va = _mm_set1_epi16(static_cast<short>(wa)),
                  vb = _mm_set1_epi16(static_cast<short>(wb));
    Lum32s c = 0;
    for (; c + 8 <= n; c += 8) {
        __m128i lo, hi;
        localQBlend8<14>(A + c, B + c, va, vb, lo, hi);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + c), _mm_packus_epi32(lo, hi));
    }
    for (; c < n; ++c) out[c] = static_cast<Lum16u>((wa * A[c] + wb * B[c] + 8192u) >> 14);
}

// ((16384 - w) A + w B + 524288) >> 20 from Q6 to 8 bits, saturated: the last
// axis of the 8-bit core, the only place it rounds.
inline void ownResizeLinearRowY_8u(const Lum16u* A, const Lum16u* B, Lum16u w, Lum8u* out,
                                   Lum32s n) {
    const std::uint32_t wb = w, wa = 16384u - wb;
    const __m128i va = _mm_set1_epi16(static_cast<short>(wa)),
                  vb = _mm_set1_epi16(static_cast<short>(wb));
    Lum32s c = 0;
    for (; c + 8 <= n; c += 8) {
        __m128i lo, hi;
        localQBlend8<20>(A + c, B + c, va, vb, lo, hi);
        const __m128i v16 = _mm_packs_epi32(lo, hi);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out + c), _mm_packus_epi16(v16, v16));
    }
    for (; c < n; ++c) {
        const std::uint32_t v = (wa * A[c] + wb * B[c] + 524288u) >> 20;
        out[c] = static_cast<Lum8u>(v > 255u ? 255u : v);
    }
}

// Rim z step of one run of n values into the destination type.
template <class T>
inline void ownLinearRimZRun(const typename OwnLinearForm<T>::Q* P,
                             const typename OwnLinearForm<T>::Q* Q,
                             typename OwnLinearForm<T>::W w, T* out, Lum32s n) {
    if constexpr (sizeof(T) == 4) {
        ownResizeLinearRowY_32f(P, Q, w, out, n);
    } else if constexpr (sizeof(T) == 2) {
        ownResizeLinearRowYQ(P, Q, w, out, n);
    } else {
        const std::uint32_t wb = w, wa = 16384u - wb;
        for (Lum32s c = 0; c < n; ++c)
            out[c] = static_cast<Lum8u>((wa * P[c] + wb * Q[c] + 8192u) >> 14);
    }
}

// ---- Core x pass -------------------------------------------------------------
// One source row into a row slot; x and wx already start at the first core
// column, so no tap leaves the volume.
template <class T>
void ownResizeLinearRowX(const T* row, const Lum32s* x, const typename OwnLinearForm<T>::W* wx,
                         Lum32s cw, typename OwnLinearForm<T>::Q* out) {
    if constexpr (sizeof(T) == 4) {
        // Four columns at a time: each tap pair in one 64-bit load, split
        // into a and b lanes; the lanes compute what the plain loop does.
        auto pair = [row](Lum32s i) {
            return _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(row + i)));
        };
        Lum32s c = 0;
        for (; c + 4 <= cw; c += 4) {
            const __m128 p01 = _mm_movelh_ps(pair(x[c]), pair(x[c + 1]));
            const __m128 p23 = _mm_movelh_ps(pair(x[c + 2]), pair(x[c + 3]));
            const __m128 a = _mm_shuffle_ps(p01, p23, _MM_SHUFFLE(2, 0, 2, 0));
            const __m128 b = _mm_shuffle_ps(p01, p23, _MM_SHUFFLE(3, 1, 3, 1));
            _mm_storeu_ps(out + c,
                          _mm_add_ps(a, _mm_mul_ps(_mm_sub_ps(b, a), _mm_loadu_ps(wx + c))));
        }
        for (; c < cw; ++c) {
            const Lum32f a = row[x[c]], b = row[x[c] + 1];
            out[c] = a + (b - a) * wx[c];
        }
    } else if constexpr (sizeof(T) == 2) {
        for (Lum32s c = 0; c < cw; ++c) {
            const std::uint32_t a = row[x[c]], b = row[x[c] + 1];
            out[c] = static_cast<Lum16u>((wx[2 * c] * a + wx[2 * c + 1] * b + 8192u) >> 14);
        }
    } else {
        for (Lum32s c = 0; c < cw; ++c) {
            const std::uint32_t a = row[x[c]], b = row[x[c] + 1];
            const std::uint32_t v = (wx[2 * c] * a + wx[2 * c + 1] * b + 128u) >> 8;
            out[c] = static_cast<Lum16u>(v > 32767u ? 32767u : v);  // Q6, int16 range
        }
    }
}

// ---- Rim of one source plane ----------------------------------------------
// Top rows from source row 0, bottom rows from row n - 1, both with clamped x
// taps; left and right columns from source columns 0 and n - 1, interpolated
// on y.  Shared by the rim plane (O = storage form) and the 2D path (O = T).
template <class T, class O>
void ownResizeLinearRim(const T* plane, Lum32s srcStepN, Lum32s nx, Lum32s ny,
                        const OwnLinearTables<T>& tb, const OwnRimShape& s,
                        const OwnRimSink<O>& out) {
    const Lum32s* x = tb.x;
    auto rimRow = [&](const T* row, O* o) {
        Lum32s c = 0;
        for (; c < s.L; ++c) o[c] = static_cast<O>(ownLinearRimX(row, 0, 0, tb.wx, c));
        for (; c < s.W - s.R; ++c)
            o[c] = static_cast<O>(ownLinearRimX(row, x[c], x[c] + 1, tb.wx, c));
        for (; c < s.W; ++c) o[c] = static_cast<O>(ownLinearRimX(row, nx - 1, nx - 1, tb.wx, c));
    };
    const T* last = plane + static_cast<std::ptrdiff_t>(ny - 1) * srcStepN;
    for (Lum32s t = 0; t < s.T; ++t) rimRow(plane, out.top + t * out.topStride);
    for (Lum32s b = 0; b < s.B; ++b) rimRow(last, out.bottom + b * out.bottomStride);
    const Lum32s ch = s.coreH();
    for (Lum32s r = 0; r < ch; ++r) {
        const T* a = plane + tb.y[s.T + r];
        const T* b = a + srcStepN;
        const auto w = tb.wy[s.T + r];
        const O vl = static_cast<O>(ownLinearRimY<T>(a[0], b[0], w));
        const O vr = static_cast<O>(ownLinearRimY<T>(a[nx - 1], b[nx - 1], w));
        for (Lum32s j = 0; j < s.L; ++j) out.left[j * out.colStride + r * out.elemStride] = vl;
        for (Lum32s j = 0; j < s.R; ++j) out.right[j * out.colStride + r * out.elemStride] = vr;
    }
}

// z step of the rim: two rim planes into the destination's rim positions.
template <class T>
void ownResizeLinearRimZ(const typename OwnLinearForm<T>::Q* P,
                         const typename OwnLinearForm<T>::Q* Q, typename OwnLinearForm<T>::W w,
                         const OwnRimShape& s, const OwnRimSink<T>& out) {
    for (Lum32s t = 0; t < s.T; ++t)
        ownLinearRimZRun<T>(P + t * s.W, Q + t * s.W, w, out.top + t * out.topStride, s.W);
    for (Lum32s b = 0; b < s.B; ++b) {
        const std::ptrdiff_t o = static_cast<std::ptrdiff_t>(s.T + b) * s.W;
        ownLinearRimZRun<T>(P + o, Q + o, w, out.bottom + b * out.bottomStride, s.W);
    }
    const Lum32s ch = s.coreH();
    const std::ptrdiff_t cols = static_cast<std::ptrdiff_t>(s.T + s.B) * s.W;
    T tmp[64];
    auto column = [&](const typename OwnLinearForm<T>::Q* p,
                      const typename OwnLinearForm<T>::Q* q, T* o) {
        for (Lum32s r0 = 0; r0 < ch; r0 += 64) {
            const Lum32s n = ch - r0 < 64 ? ch - r0 : 64;
            ownLinearRimZRun<T>(p + r0, q + r0, w, tmp, n);
            for (Lum32s r = 0; r < n; ++r) o[(r0 + r) * out.elemStride] = tmp[r];
        }
    };
    for (Lum32s j = 0; j < s.L; ++j)
        column(P + cols + j * ch, Q + cols + j * ch, out.left + j * out.colStride);
    for (Lum32s j = 0; j < s.R; ++j) {
        const std::ptrdiff_t o = cols + static_cast<std::ptrdiff_t>(s.L + j) * ch;
        column(P + o, Q + o, out.right + j * out.colStride);
    }
}

// ---- Core of one source plane, with the two-slot row ring --------------------
// emit(r, A, B, w) receives core row r with A the filtered source row i and B
// the row i + 1.
template <class T, class Emit>
void ownResizeLinearCoreRows(const T* plane, Lum32s srcStepN, const OwnLinearTables<T>& tb,
                             const OwnRimShape& s, typename OwnLinearForm<T>::Q* const slot[2],
                             Emit&& emit) {
    constexpr int kXW = OwnLinearForm<T>::kXW;
    const Lum32s cw = s.coreW(), ch = s.coreH();
    const Lum32s* x = tb.x + s.L;
    const auto* wx = tb.wx + static_cast<std::ptrdiff_t>(s.L) * kXW;
    OwnTagRing<2> ring;
    for (Lum32s r = 0; r < ch; ++r) {
        const Lum32s o = tb.y[s.T + r];
        const Lum32s want[2] = {o, ownAdd32(o, srcStepN)};
        ring.ensure(want, [&](int id, Lum32s e) {
            ownResizeLinearRowX<T>(plane + e, x, wx, cw, slot[id]);
        });
        emit(r, slot[ring.id[0]], slot[ring.id[1]], tb.wy[s.T + r]);
    }
}

// Core of a source plane into a core plane (the ring path).
template <class T>
void ownResizeLinearCorePlane(const T* plane, Lum32s srcStepN, const OwnLinearTables<T>& tb,
                              const OwnRimShape& s, typename OwnLinearForm<T>::Q* const slot[2],
                              typename OwnLinearForm<T>::Q* core, std::ptrdiff_t stride) {
    const Lum32s cw = s.coreW();
    ownResizeLinearCoreRows<T>(plane, srcStepN, tb, s, slot, [&](Lum32s r, auto* A, auto* B, auto w) {
        if constexpr (sizeof(T) == 4)
            ownResizeLinearRowY_32f(A, B, w, core + r * stride, cw);
        else
            ownResizeLinearRowYQ(A, B, w, core + r * stride, cw);
    });
}

// Core of a z-clamped plane straight into the destination.
template <class T>
void ownResizeLinearCore2D(const T* plane, Lum32s srcStepN, const OwnLinearTables<T>& tb,
                           const OwnRimShape& s, typename OwnLinearForm<T>::Q* const slot[2],
                           T* dst, Lum32s dstStepN) {
    const Lum32s cw = s.coreW();
    T* o0 = dst + static_cast<std::ptrdiff_t>(s.T) * dstStepN + s.L;
    ownResizeLinearCoreRows<T>(plane, srcStepN, tb, s, slot, [&](Lum32s r, auto* A, auto* B, auto w) {
        T* o = o0 + static_cast<std::ptrdiff_t>(r) * dstStepN;
        if constexpr (sizeof(T) == 4)
            ownResizeLinearRowY_32f(A, B, w, o, cw);
        else if constexpr (sizeof(T) == 2)
            ownResizeLinearRowYQ(A, B, w, o, cw);
        else
            ownResizeLinearRowY_8u(A, B, w, o, cw);
    });
}

// z step of the core: two core planes into the destination's core.
template <class T>
void ownResizeLinearCoreZ(const typename OwnLinearForm<T>::Q* P,
                          const typename OwnLinearForm<T>::Q* Q, std::ptrdiff_t stride,
                          typename OwnLinearForm<T>::W w, const OwnRimShape& s, T* dst,
                          Lum32s dstStepN) {
    const Lum32s cw = s.coreW(), ch = s.coreH();
    T* o0 = dst + static_cast<std::ptrdiff_t>(s.T) * dstStepN + s.L;
    for (Lum32s r = 0; r < ch; ++r) {
        T* o = o0 + static_cast<std::ptrdiff_t>(r) * dstStepN;
        if constexpr (sizeof(T) == 4)
            ownResizeLinearRowY_32f(P + r * stride, Q + r * stride, w, o, cw);
        else if constexpr (sizeof(T) == 2)
            ownResizeLinearRowYQ(P + r * stride, Q + r * stride, w, o, cw);
        else
            ownResizeLinearRowY_8u(P + r * stride, Q + r * stride, w, o, cw);
    }
}
