// Small vector operations of the spherical-harmonic and KD-tree code.
//
// The element-wise operations round each element once, so their vector and
// plain bodies give identical bits; only the dot product fixes a summation
// order, which is part of its result.
#include <immintrin.h>

#include <cstdint>

#include "frame/own.h"

namespace {

// Element-wise body shared by add and the two scalings: below 11 values a
// plain loop; from 11 up single steps to a 16-byte boundary of the
// destination, eight values a step, then a plain tail.  A destination that
// is not even 4-byte aligned takes unaligned stores throughout.
template <class Op>
void localElementwise(Lum32s count, Lum32f* pDst, Op op) {
    Lum32s i = 0;
    if (count >= 11) {
        if ((reinterpret_cast<std::uintptr_t>(pDst) & 3u) == 0) {
            while ((reinterpret_cast<std::uintptr_t>(pDst + i) & 15u) != 0) {
                op.one(i);
                ++i;
            }
        }
        for (; count - i >= 8; i += 8) op.eight(i);
    }
    for (; i < count; ++i) op.one(i);
}

struct AddOp {
    const Lum32f* s;
    Lum32f* d;
    void one(Lum32s i) const { d[i] = d[i] + s[i]; }
    void eight(Lum32s i) const {
        _mm256_storeu_ps(d + i, _mm256_add_ps(_mm256_loadu_ps(d + i), _mm256_loadu_ps(s + i)));
    }
};

struct MulOp {
    const Lum32f* s;
    Lum32f* d;
    Lum32f k;
    void one(Lum32s i) const { d[i] = s[i] * k; }
    void eight(Lum32s i) const {
        _mm256_storeu_ps(d + i, _mm256_mul_ps(_mm256_loadu_ps(s + i), _mm256_set1_ps(k)));
    }
};

}  // namespace

LumStatus ownAdd_32f_I(const Lum32f* pSrc, Lum32f* pSrcDst, Lum32s count) {
    if (!pSrc || !pSrcDst) return lumStatusNullPtr;
    if (count < 1) return lumStatusSize;
    localElementwise(count, pSrcDst, AddOp{pSrc, pSrcDst});
    return lumStatusOk;
}

LumStatus ownMulC_32f_I(Lum32f val, Lum32f* pSrcDst, Lum32s count) {
    if (!pSrcDst) return lumStatusNullPtr;
    if (count < 1) return lumStatusSize;
    if (val == 1.0f) return lumStatusOk;
    // Clearing instead of multiplying keeps inf x 0 and NaN x 0 out of the result.
    if (val == 0.0f) return ownZero32(pSrcDst, count);
    localElementwise(count, pSrcDst, MulOp{pSrcDst, pSrcDst, val});
    return lumStatusOk;
}

LumStatus ownMulC_32f(const Lum32f* pSrc, Lum32f val, Lum32f* pDst, Lum32s count) {
    if (!pSrc || !pDst) return lumStatusNullPtr;
    if (count < 1) return lumStatusSize;
    if (val == 1.0f) return ownCopy32(pSrc, pDst, count);
    if (val == 0.0f) return ownZero32(pDst, count);
    localElementwise(count, pDst, MulOp{pSrc, pDst, val});
    return lumStatusOk;
}

// Summation order: below 16 values an even and an odd partial sum, added at
// the end.  From 16 up sixteen partial sums by position modulo 16, kept as
// four groups of four lanes; the tail (count % 16 values) goes into the first
// group by position modulo 4; the groups are added as (g0 + g1) + (g2 + g3)
// and the four lanes fold as (l0 + l2) + (l1 + l3).  Positions count from the
// first element whatever the operands' alignment, so the result depends on
// the values alone.
LumStatus ownDotProd_32f(const Lum32f* pSrc1, const Lum32f* pSrc2, Lum32s count, Lum32f* pDp) {
    if (!pSrc1 || !pSrc2 || !pDp) return lumStatusNullPtr;
    if (count < 1) return lumStatusSize;
    if (count < 16) {
        Lum32f even = 0.0f, odd = 0.0f;
        Lum32s i = 0;
        for (; i + 1 < count; i += 2) {
            even = even + pSrc1[i] * pSrc2[i];
            odd = odd + pSrc1[i + 1] * pSrc2[i + 1];
        }
        if (i < count) even = even + pSrc1[i] * pSrc2[i];
        *pDp = even + odd;
        return lumStatusOk;
    }
    __m128 g0 = _mm_setzero_ps(), g1 = g0, g2 = g0, g3 = g0;
    Lum32s i = 0;
    for (; count - i >= 16; i += 16) {
        g0 = _mm_add_ps(g0, _mm_mul_ps(_mm_loadu_ps(pSrc1 + i), _mm_loadu_ps(pSrc2 + i)));
        g1 = _mm_add_ps(g1, _mm_mul_ps(_mm_loadu_ps(pSrc1 + i + 4), _mm_loadu_ps(pSrc2 + i + 4)));
        g2 = _mm_add_ps(g2, _mm_mul_ps(_mm_loadu_ps(pSrc1 + i + 8), _mm_loadu_ps(pSrc2 + i + 8)));
        g3 = _mm_add_ps(g3, _mm_mul_ps(_mm_loadu_ps(pSrc1 + i + 12), _mm_loadu_ps(pSrc2 + i + 12)));
    }
    alignas(16) Lum32f lane[4];
    _mm_store_ps(lane, g0);
    for (Lum32s k = 0; i < count; ++i, ++k) lane[k & 3] = lane[k & 3] + pSrc1[i] * pSrc2[i];
    g0 = _mm_load_ps(lane);
    const __m128 g = _mm_add_ps(_mm_add_ps(g0, g1), _mm_add_ps(g2, g3));
    _mm_store_ps(lane, g);
    *pDp = (lane[0] + lane[2]) + (lane[1] + lane[3]);
    return lumStatusOk;
}
