// Masked stream arithmetic: the shading arithmetic of a ray stream.  A lane
// is on when its mask value is zero or more.  Each two-body function has a
// plain loop and a four-lane body behind ownGate4; where the two round
// differently the operation order of each is written out literally.
#include <cmath>
#include <cstring>

#include "frame/own.h"
#include "frame/vec4.h"

namespace {

// All bits set in the off lanes (mask negative), clear in the on lanes.
inline __m128 localOffLanes(const Lum32s* pMask, Lum32s i) {
    const __m128i m = _mm_load_si128(reinterpret_cast<const __m128i*>(pMask + i));
    return _mm_castsi128_ps(_mm_srai_epi32(m, 31));
}

inline __m128 localNegate(__m128 v) { return _mm_xor_ps(v, _mm_set1_ps(-0.0f)); }

// ---- lumrMul_32f_C1P3IM ---------------------------------------------------
void localMulP3Plain(const Lum32f* s, const Lum32s* m, const LumPlanes3& d, Lum32s len) {
    for (Lum32s i = 0; i < len; ++i) {
        if (m[i] < 0) {
            d.X[i] = 0.0f, d.Y[i] = 0.0f, d.Z[i] = 0.0f;
        } else {
            d.X[i] = s[i] * d.X[i], d.Y[i] = s[i] * d.Y[i], d.Z[i] = s[i] * d.Z[i];
        }
    }
}

void localMulP3Vec(const Lum32f* s, const Lum32s* m, const LumPlanes3& d, Lum32s len) {
    const __m128 zero = _mm_setzero_ps();
    for (Lum32s i = 0; i < len; i += 4) {
        if (ownOffBits(m + i) == kAllOff) {
            _mm_store_ps(d.X + i, zero), _mm_store_ps(d.Y + i, zero), _mm_store_ps(d.Z + i, zero);
            continue;
        }
        const __m128 off = localOffLanes(m, i), sv = _mm_load_ps(s + i);
        _mm_store_ps(d.X + i, _mm_andnot_ps(off, _mm_mul_ps(sv, _mm_load_ps(d.X + i))));
        _mm_store_ps(d.Y + i, _mm_andnot_ps(off, _mm_mul_ps(sv, _mm_load_ps(d.Y + i))));
        _mm_store_ps(d.Z + i, _mm_andnot_ps(off, _mm_mul_ps(sv, _mm_load_ps(d.Z + i))));
    }
}

// ---- lumrAddMulMul_32f_AC1P3IM ---------------------------------------------
// Deliberate: the plain loop multiplies (k x b) x a, the vector body
// (b x a) x k; both are kept, so the last bit may differ between them.
void localAddMulMulPlain(const Lum32f* k, const Lum32f* a, const LumPlanes3& b, const Lum32s* m,
                         const LumPlanes3& d, Lum32s len) {
    for (Lum32s i = 0; i < len; ++i) {
        if (m[i] < 0) continue;
        d.X[i] = d.X[i] + (k[0] * b.X[i]) * a[i];
        d.Y[i] = d.Y[i] + (k[1] * b.Y[i]) * a[i];
        d.Z[i] = d.Z[i] + (k[2] * b.Z[i]) * a[i];
    }
}

// The gate leaves the operand's planes out; they are read with unaligned
// loads, which cost nothing on aligned data and keep a caller who passes the
// gate with misaligned operand planes from faulting.
void localAddMulMulVec(const Lum32f* k, const Lum32f* a, const LumPlanes3& b, const Lum32s* m,
                       const LumPlanes3& d, Lum32s len) {
    const __m128 k0 = _mm_set1_ps(k[0]), k1 = _mm_set1_ps(k[1]), k2 = _mm_set1_ps(k[2]);
    Lum32f* const dst[3] = {d.X, d.Y, d.Z};
    const Lum32f* const op[3] = {b.X, b.Y, b.Z};
    const __m128 kc[3] = {k0, k1, k2};
    for (Lum32s i = 0; i < len; i += 4) {
        const int offBits = ownOffBits(m + i);
        if (offBits == kAllOff) continue;
        const __m128 av = _mm_load_ps(a + i);
        const __m128 off = localOffLanes(m, i);
        for (int c = 0; c < 3; ++c) {
            const __m128 dv = _mm_load_ps(dst[c] + i);
            const __m128 sum =
                _mm_add_ps(dv, _mm_mul_ps(_mm_mul_ps(_mm_loadu_ps(op[c] + i), av), kc[c]));
            _mm_store_ps(dst[c] + i, offBits == kAllOn ? sum : _mm_blendv_ps(sum, dv, off));
        }
    }
}

// ---- lumrDot_32f_P3C1M -----------------------------------------------------
void localDotPlain(const LumPlanes3& u, const LumPlanes3& v, const Lum32s* m, Lum32f* d,
                   Lum32s len) {
    for (Lum32s i = 0; i < len; ++i)
        d[i] = m[i] < 0 ? 0.0f : (u.X[i] * v.X[i] + u.Y[i] * v.Y[i]) + u.Z[i] * v.Z[i];
}

inline __m128 localDot4(const LumPlanes3& u, const LumPlanes3& v, Lum32s i) {
    const __m128 xy = _mm_add_ps(_mm_mul_ps(_mm_load_ps(u.X + i), _mm_load_ps(v.X + i)),
                                 _mm_mul_ps(_mm_load_ps(u.Y + i), _mm_load_ps(v.Y + i)));
    return _mm_add_ps(xy, _mm_mul_ps(_mm_load_ps(u.Z + i), _mm_load_ps(v.Z + i)));
}

void localDotVec(const LumPlanes3& u, const LumPlanes3& v, const Lum32s* m, Lum32f* d,
                 Lum32s len) {
    for (Lum32s i = 0; i < len; i += 4) {
        if (ownOffBits(m + i) == kAllOff) {
            _mm_store_ps(d + i, _mm_setzero_ps());
            continue;
        }
        _mm_store_ps(d + i, _mm_andnot_ps(localOffLanes(m, i), localDot4(u, v, i)));
    }
}

// ---- lumrDotChangeNorm_32f_IM ----------------------------------------------
void localChangeNormPlain(const LumPlanes3& w, const Lum32s* m, const LumPlanes3& n, Lum32f* d,
                          Lum32s len) {
    for (Lum32s i = 0; i < len; ++i) {
        if (m[i] < 0) {
            d[i] = 0.0f;
            continue;
        }
        const Lum32f t = (w.X[i] * n.X[i] + w.Y[i] * n.Y[i]) + w.Z[i] * n.Z[i];
        if (t > 0.0f) {
            n.X[i] = -n.X[i], n.Y[i] = -n.Y[i], n.Z[i] = -n.Z[i];
            d[i] = -t;
        } else {
            d[i] = t;
        }
    }
}

void localChangeNormVec(const LumPlanes3& w, const Lum32s* m, const LumPlanes3& n, Lum32f* d,
                        Lum32s len) {
    for (Lum32s i = 0; i < len; i += 4) {
        if (ownOffBits(m + i) == kAllOff) {
            _mm_store_ps(d + i, _mm_setzero_ps());
            continue;
        }
        const __m128 off = localOffLanes(m, i);
        const __m128 t = localDot4(w, n, i);
        const __m128 flip = _mm_andnot_ps(off, _mm_cmpgt_ps(t, _mm_setzero_ps()));
        const __m128 sign = _mm_and_ps(flip, _mm_set1_ps(-0.0f));
        _mm_store_ps(n.X + i, _mm_xor_ps(_mm_load_ps(n.X + i), sign));
        _mm_store_ps(n.Y + i, _mm_xor_ps(_mm_load_ps(n.Y + i), sign));
        _mm_store_ps(n.Z + i, _mm_xor_ps(_mm_load_ps(n.Z + i), sign));
        _mm_store_ps(d + i, _mm_andnot_ps(off, _mm_xor_ps(t, sign)));
    }
}

// ---- lumrDistAttenuationSO_32f_M -------------------------------------------
void localDistPlain(const Lum32f* o, const LumPlanes3& p, const Lum32s* m, Lum32f* d, Lum32s len) {
    for (Lum32s i = 0; i < len; ++i) {
        if (m[i] < 0) {
            d[i] = 1.0f;
            continue;
        }
        const Lum32f dx = p.X[i] - o[0], dy = p.Y[i] - o[1], dz = p.Z[i] - o[2];
        const Lum32f q = (dx * dx + dy * dy) + dz * dz;
        d[i] = q < 1.0f ? 1.0f : std::sqrt(q);  // a NaN q gives NaN here
    }
}

// Deliberate: the vector body keeps q only where 1 < q, so a NaN q gives 1.
void localDistVec(const Lum32f* o, const LumPlanes3& p, const Lum32s* m, Lum32f* d, Lum32s len) {
    const __m128 one = _mm_set1_ps(1.0f);
    const __m128 ox = _mm_set1_ps(o[0]), oy = _mm_set1_ps(o[1]), oz = _mm_set1_ps(o[2]);
    for (Lum32s i = 0; i < len; i += 4) {
        if (ownOffBits(m + i) == kAllOff) {
            _mm_store_ps(d + i, one);
            continue;
        }
        const __m128 dx = _mm_sub_ps(_mm_load_ps(p.X + i), ox);
        const __m128 dy = _mm_sub_ps(_mm_load_ps(p.Y + i), oy);
        const __m128 dz = _mm_sub_ps(_mm_load_ps(p.Z + i), oz);
        const __m128 q = _mm_add_ps(_mm_add_ps(_mm_mul_ps(dx, dx), _mm_mul_ps(dy, dy)),
                                    _mm_mul_ps(dz, dz));
        const __m128 keep = _mm_andnot_ps(localOffLanes(m, i), _mm_cmplt_ps(one, q));
        _mm_store_ps(d + i, _mm_blendv_ps(one, _mm_sqrt_ps(q), keep));
    }
}

}  // namespace

// No pointer is checked here and there is no vector body: with null pointers
// and a positive length the call faults, as its contract allows.
LUMR_EXPORT LumStatus lumrMul_32f_C1IM(const Lum32f* pSrc, const Lum32s* pMask, Lum32f* pSrcDst,
                                       Lum32s len) {
    for (Lum32s i = 0; i < len; ++i) pSrcDst[i] = pMask[i] < 0 ? 0.0f : pSrcDst[i] * pSrc[i];
    return lumStatusOk;
}

LUMR_EXPORT LumStatus lumrMul_32f_C1P3IM(const Lum32f* pSrc, const Lum32s* pMask,
                                         const LumPlanes3* pSrcDst, Lum32s len) {
    if (!pSrc || !pMask || !pSrcDst) return lumStatusNullPtr;
    if (ownGate4(len, pSrc, pMask, pSrcDst->X, pSrcDst->Y, pSrcDst->Z))
        localMulP3Vec(pSrc, pMask, *pSrcDst, len);
    else
        localMulP3Plain(pSrc, pMask, *pSrcDst, len);
    return lumStatusOk;
}

// The triple of constants is not checked.
LUMR_EXPORT LumStatus lumrAddMulMul_32f_AC1P3IM(const Lum32f pSrc1[3], const Lum32f* pSrc2,
                                                const LumPlanes3* pSrc3, const Lum32s* pMask,
                                                const LumPlanes3* pSrcDst, Lum32s len) {
    if (!pSrc2 || !pSrc3 || !pMask || !pSrcDst) return lumStatusNullPtr;
    if (ownGate4(len, pSrc2, pMask, pSrcDst->X, pSrcDst->Y, pSrcDst->Z))
        localAddMulMulVec(pSrc1, pSrc2, *pSrc3, pMask, *pSrcDst, len);
    else
        localAddMulMulPlain(pSrc1, pSrc2, *pSrc3, pMask, *pSrcDst, len);
    return lumStatusOk;
}

// The mask is not checked.  A zero divisor (either sign) gives the infinity
// of the numerator's sign, and the NaN 0xFFC00000 for a zero or NaN numerator.
LUMR_EXPORT LumStatus lumrDiv_32f_C1IM(const Lum32f* pSrc, const Lum32s* pMask, Lum32f* pSrcDst,
                                       Lum32s len) {
    if (!pSrc || !pSrcDst) return lumStatusNullPtr;
    const Lum32u kNaN = 0xFFC00000u;
    Lum32f nan;
    std::memcpy(&nan, &kNaN, 4);
    const Lum32f inf = HUGE_VALF;
    for (Lum32s i = 0; i < len; ++i) {
        if (pMask[i] < 0) {
            pSrcDst[i] = 0.0f;
        } else if (pSrc[i] == 0.0f) {
            const Lum32f d = pSrcDst[i];
            pSrcDst[i] = d > 0.0f ? inf : d < 0.0f ? -inf : nan;
        } else {
            pSrcDst[i] = pSrcDst[i] / pSrc[i];
        }
    }
    return lumStatusOk;
}

LUMR_EXPORT LumStatus lumrDot_32f_P3C1M(const LumPlanes3* pSrc1, const LumPlanes3* pSrc2,
                                        const Lum32s* pMask, Lum32f* pDst, Lum32s len) {
    if (!pSrc1 || !pSrc2 || !pMask || !pDst) return lumStatusNullPtr;
    if (ownGate4(len, pSrc2->X, pSrc2->Y, pSrc2->Z, pMask, pDst, pSrc1->X, pSrc1->Y, pSrc1->Z))
        localDotVec(*pSrc1, *pSrc2, pMask, pDst, len);
    else
        localDotPlain(*pSrc1, *pSrc2, pMask, pDst, len);
    return lumStatusOk;
}

LUMR_EXPORT LumStatus lumrDotChangeNorm_32f_IM(const LumPlanes3* pSrc, const Lum32s* pMask,
                                               const LumPlanes3* pSrcDst, Lum32f* pDst,
                                               Lum32s len) {
    if (!pSrc || !pMask || !pSrcDst || !pDst) return lumStatusNullPtr;
    if (ownGate4(len, pSrc->X, pSrc->Y, pSrc->Z, pMask, pDst, pSrcDst->X, pSrcDst->Y, pSrcDst->Z))
        localChangeNormVec(*pSrc, pMask, *pSrcDst, pDst, len);
    else
        localChangeNormPlain(*pSrc, pMask, *pSrcDst, pDst, len);
    return lumStatusOk;
}

// The origin is not checked.
LUMR_EXPORT LumStatus lumrDistAttenuationSO_32f_M(const Lum32f pOrigin[3],
                                                  const LumPlanes3* pPoints, const Lum32s* pMask,
                                                  Lum32f* pDst, Lum32s len) {
    if (!pPoints || !pMask || !pDst) return lumStatusNullPtr;
    if (ownGate4(len, pDst, pMask, pPoints->X, pPoints->Y, pPoints->Z))
        localDistVec(pOrigin, *pPoints, pMask, pDst, len);
    else
        localDistPlain(pOrigin, *pPoints, pMask, pDst, len);
    return lumStatusOk;
}
