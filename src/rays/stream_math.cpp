// Masked stream arithmetic: the shading arithmetic of a ray stream.  A lane
// is on when its mask value is zero or more.  Each two-body function has a
// plain loop and a vector body behind ownGate4; where the two round
// differently the operation order of each is written out literally.
#include <cmath>
#include <cstring>

#include "frame/own.h"
#include "frame/lanes.h"
#include "frame/vec4.h"

namespace {

// Vector bodies are steps over groups of four or eight lanes (Lanes<W>); a
// group whose mask signs are all negative stores the off-lane value without
// reading its inputs.  Off lanes are selected by the mask words' sign bits.

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

struct MulP3Step {
    const Lum32f* s;
    const Lum32s* m;
    LumPlanes3 d;
    template <int W>
    void run(Lum32s i) const {
        using L = Lanes<W>;
        const auto off = L::mask(m + i);
        Lum32f* const planes[3] = {d.X, d.Y, d.Z};
        if (L::signs(off) == L::kAllOff) {
            for (Lum32f* p : planes) L::store(p + i, L::zero());
            return;
        }
        const auto sv = L::load(s + i);
        for (Lum32f* p : planes) L::store(p + i, L::blend(L::mul(sv, L::load(p + i)), L::zero(), off));
    }
};

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

// The gate leaves the operand's planes out; every access here is an
// unaligned form, so a caller who passes the gate with misaligned operand
// planes gets the same values instead of a fault.
struct AddMulMulStep {
    const Lum32f* k;
    const Lum32f* a;
    LumPlanes3 b;
    const Lum32s* m;
    LumPlanes3 d;
    template <int W>
    void run(Lum32s i) const {
        using L = Lanes<W>;
        const auto off = L::mask(m + i);
        const int offBits = L::signs(off);
        if (offBits == L::kAllOff) return;  // the destination stays as it is
        const auto av = L::load(a + i);
        Lum32f* const dst[3] = {d.X, d.Y, d.Z};
        const Lum32f* const op[3] = {b.X, b.Y, b.Z};
        for (int c = 0; c < 3; ++c) {
            const auto dv = L::load(dst[c] + i);
            const auto sum = L::add(dv, L::mul(L::mul(L::load(op[c] + i), av), L::set1(k[c])));
            L::store(dst[c] + i, offBits == 0 ? sum : L::blend(sum, dv, off));
        }
    }
};

// ---- lumrDot_32f_P3C1M -----------------------------------------------------
void localDotPlain(const LumPlanes3& u, const LumPlanes3& v, const Lum32s* m, Lum32f* d,
                   Lum32s len) {
    for (Lum32s i = 0; i < len; ++i)
        d[i] = m[i] < 0 ? 0.0f : (u.X[i] * v.X[i] + u.Y[i] * v.Y[i]) + u.Z[i] * v.Z[i];
}

template <class L>
inline typename L::V localDot(const LumPlanes3& u, const LumPlanes3& v, Lum32s i) {
    const auto xy = L::add(L::mul(L::load(u.X + i), L::load(v.X + i)),
                           L::mul(L::load(u.Y + i), L::load(v.Y + i)));
    return L::add(xy, L::mul(L::load(u.Z + i), L::load(v.Z + i)));
}

struct DotStep {
    LumPlanes3 u, v;
    const Lum32s* m;
    Lum32f* d;
    template <int W>
    void run(Lum32s i) const {
        using L = Lanes<W>;
        const auto off = L::mask(m + i);
        if (L::signs(off) == L::kAllOff) {
            L::store(d + i, L::zero());
            return;
        }
        L::store(d + i, L::blend(localDot<L>(u, v, i), L::zero(), off));
    }
};

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

struct ChangeNormStep {
    LumPlanes3 w;
    const Lum32s* m;
    LumPlanes3 n;
    Lum32f* d;
    template <int W>
    void run(Lum32s i) const {
        using L = Lanes<W>;
        const auto off = L::mask(m + i);
        if (L::signs(off) == L::kAllOff) {
            L::store(d + i, L::zero());
            return;
        }
        const auto t = localDot<L>(w, n, i);
        // Negation flips the sign bit alone, as the plain loop's unary minus.
        const auto flip = L::blend(L::gt(t, L::zero()), L::zero(), off);
        const auto sign = L::and_(flip, L::set1(-0.0f));
        Lum32f* const planes[3] = {n.X, n.Y, n.Z};
        for (Lum32f* p : planes) L::store(p + i, L::xor_(L::load(p + i), sign));
        L::store(d + i, L::blend(L::xor_(t, sign), L::zero(), off));
    }
};

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
struct DistStep {
    const Lum32f* o;
    LumPlanes3 p;
    const Lum32s* m;
    Lum32f* d;
    template <int W>
    void run(Lum32s i) const {
        using L = Lanes<W>;
        const auto one = L::set1(1.0f);
        const auto off = L::mask(m + i);
        if (L::signs(off) == L::kAllOff) {
            L::store(d + i, one);
            return;
        }
        const auto dx = L::sub(L::load(p.X + i), L::set1(o[0]));
        const auto dy = L::sub(L::load(p.Y + i), L::set1(o[1]));
        const auto dz = L::sub(L::load(p.Z + i), L::set1(o[2]));
        const auto q = L::add(L::add(L::mul(dx, dx), L::mul(dy, dy)), L::mul(dz, dz));
        const auto keep = L::blend(L::lt(one, q), L::zero(), off);
        L::store(d + i, L::blend(one, L::sqrt(q), keep));
    }
};

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
        ownForLanes(len, MulP3Step{pSrc, pMask, *pSrcDst});
    else
        localMulP3Plain(pSrc, pMask, *pSrcDst, len);
    return lumStatusOk;
}

// The triple of constants is not checked.
LUMR_EXPORT LumStatus lumrAddMulMul_32f_AC1P3IM(const Lum32f pSrc1[3], const Lum32f* pSrc2,
                                                const LumPlanes3* pSrc3, const Lum32s* pMask,
                                                const LumPlanes3* pSrcDst, Lum32s len) {
    if (!pSrc2 || !pSrc3 || !pMask || !pSrcDst) return lumStatusNullPtr;
    if (len <= 0) return lumStatusOk;  // the unchecked constants are not read either
    if (ownGate4(len, pSrc2, pMask, pSrcDst->X, pSrcDst->Y, pSrcDst->Z))
        ownForLanes(len, AddMulMulStep{pSrc1, pSrc2, *pSrc3, pMask, *pSrcDst});
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
        ownForLanes(len, DotStep{*pSrc1, *pSrc2, pMask, pDst});
    else
        localDotPlain(*pSrc1, *pSrc2, pMask, pDst, len);
    return lumStatusOk;
}

LUMR_EXPORT LumStatus lumrDotChangeNorm_32f_IM(const LumPlanes3* pSrc, const Lum32s* pMask,
                                               const LumPlanes3* pSrcDst, Lum32f* pDst,
                                               Lum32s len) {
    if (!pSrc || !pMask || !pSrcDst || !pDst) return lumStatusNullPtr;
    if (ownGate4(len, pSrc->X, pSrc->Y, pSrc->Z, pMask, pDst, pSrcDst->X, pSrcDst->Y, pSrcDst->Z))
        ownForLanes(len, ChangeNormStep{*pSrc, pMask, *pSrcDst, pDst});
    else
        localChangeNormPlain(*pSrc, pMask, *pSrcDst, pDst, len);
    return lumStatusOk;
}

// The origin is not checked.
LUMR_EXPORT LumStatus lumrDistAttenuationSO_32f_M(const Lum32f pOrigin[3],
                                                  const LumPlanes3* pPoints, const Lum32s* pMask,
                                                  Lum32f* pDst, Lum32s len) {
    if (!pPoints || !pMask || !pDst) return lumStatusNullPtr;
    if (len <= 0) return lumStatusOk;  // the unchecked origin is not read either
    if (ownGate4(len, pDst, pMask, pPoints->X, pPoints->Y, pPoints->Z))
        ownForLanes(len, DistStep{pOrigin, *pPoints, pMask, pDst});
    else
        localDistPlain(pOrigin, *pPoints, pMask, pDst, len);
    return lumStatusOk;
}
