// Spherical-harmonic transforms: forward projection of samples onto
// coefficients, accumulated point by point, and inverse evaluation of
// coefficient sets at directions.
//
// The basis of up to eight points is evaluated in one kernel call (the
// packed body, same bits as one at a time) into a fixed scratch of eight
// blocks; every point then goes through the small vector operations on its
// own block in rising point order, so each coefficient still takes one
// rounded addition per point, in point order.
#include "frame/own.h"
#include "sh/sh.h"

namespace {

constexpr int kGroup = 8;
constexpr int kMaxBlock = (kSHMaxBand + 1) * (kSHMaxBand + 1);

struct Scratch {
    alignas(32) Lum32f basis[kGroup * kMaxBlock];
};

// Evaluates the basis of points i .. i + g - 1 into s; returns g.
inline Lum32s localBasis(const Lum32f* pX, const Lum32f* pY, const Lum32f* pZ, Lum32s i,
                         Lum32s count, Lum32u L, const LumSHState* pState, Scratch& s) {
    const Lum32s g = count - i < kGroup ? count - i : kGroup;
    // The status is not looked at: the checks before the loop leave nothing
    // for the kernel to refuse.
    (void)ownSHEval(pX + i, pY + i, pZ + i, g, s.basis, L, pState);
    return g;
}

// The checks after the pointers, common to all six: lumStatusOk to go on
// (a negative count then does nothing), or the status to give back.
inline LumStatus localCheckSizes(Lum32s count, Lum32u L, const LumSHState* pState) {
    if (count == 0) return lumStatusSize;
    if (L > pState->maxBand) return lumStatusBadBand;
    // A band above 15 would need more than the 256 entries of a scratch block,
    // and an unknown algorithm would leave the block unwritten: both are
    // refused here, where the evaluation inside the loop would refuse them
    // with a status nobody reads.
    if (L > kSHMaxBand) return lumStatusBadBand;
    if (pState->algorithm != lumSHClosedForm && pState->algorithm != lumSHRecurrence)
        return lumStatusBadBand;
    return lumStatusOk;
}

// Samples of three channels: interleaved (C3) or planes (P3).
struct Interleaved {
    const Lum32f* p;
    Lum32f at(Lum32s i, int c) const { return p[3 * i + c]; }
};
struct Planes {
    const LumPlanes3* p;
    Lum32f at(Lum32s i, int c) const { return c == 0 ? p->X[i] : c == 1 ? p->Y[i] : p->Z[i]; }
};

Lum32f* localPlane(const LumPlanes3* p, int c) { return c == 0 ? p->X : c == 1 ? p->Y : p->Z; }

LumStatus localFwd1(const Lum32f* pX, const Lum32f* pY, const Lum32f* pZ, const Lum32f* pSrc,
                    Lum32s count, Lum32f* pCoeffs, Lum32u L, const LumSHState* pState) {
    const Lum32s n = static_cast<Lum32s>((L + 1) * (L + 1));
    Scratch s;
    for (Lum32s i = 0; i < count;) {
        const Lum32s g = localBasis(pX, pY, pZ, i, count, L, pState, s);
        for (Lum32s j = 0; j < g; ++j, ++i) {
            Lum32f* b = s.basis + j * n;
            ownMulC_32f_I(pSrc[i], b, n);
            ownAdd_32f_I(b, pCoeffs, n);
        }
    }
    return lumStatusOk;
}

template <class Samples>
LumStatus localFwd3(const Lum32f* pX, const Lum32f* pY, const Lum32f* pZ, Samples src,
                    Lum32s count, const LumPlanes3* pCoeffs, Lum32u L, const LumSHState* pState) {
    const Lum32s n = static_cast<Lum32s>((L + 1) * (L + 1));
    Scratch s;
    alignas(32) Lum32f scaled[kMaxBlock];
    for (Lum32s i = 0; i < count;) {
        const Lum32s g = localBasis(pX, pY, pZ, i, count, L, pState, s);
        for (Lum32s j = 0; j < g; ++j, ++i) {
            const Lum32f* b = s.basis + j * n;
            for (int c = 0; c < 3; ++c) {
                ownMulC_32f(b, src.at(i, c), scaled, n);
                ownAdd_32f_I(scaled, localPlane(pCoeffs, c), n);
            }
        }
    }
    return lumStatusOk;
}

// Where the inverse writes channel c of point i.
struct OutC1 {
    Lum32f* p;
    Lum32f* at(Lum32s i, int) const { return p + i; }
};
struct OutP3 {
    const LumPlanes3* p;
    Lum32f* at(Lum32s i, int c) const { return localPlane(p, c) + i; }
};
struct OutC3 {
    Lum32f* p;
    Lum32f* at(Lum32s i, int c) const { return p + 3 * i + c; }
};

template <int Channels, class Out>
LumStatus localInv(const Lum32f* const* pSets, Lum32u L, const Lum32f* pX, const Lum32f* pY,
                   const Lum32f* pZ, Out dst, Lum32s count, const LumSHState* pState) {
    const Lum32s n = static_cast<Lum32s>((L + 1) * (L + 1));
    Scratch s;
    for (Lum32s i = 0; i < count;) {
        const Lum32s g = localBasis(pX, pY, pZ, i, count, L, pState, s);
        for (Lum32s j = 0; j < g; ++j, ++i) {
            const Lum32f* b = s.basis + j * n;
            for (int c = 0; c < Channels; ++c) ownDotProd_32f(b, pSets[c], n, dst.at(i, c));
        }
    }
    return lumStatusOk;
}

}  // namespace

LUMR_EXPORT LumStatus lumrSHTFwd_32f_C1I(const Lum32f* pX, const Lum32f* pY, const Lum32f* pZ,
                                         const Lum32f* pSrc, Lum32s count, Lum32f* pSrcDstCoeffs,
                                         Lum32u L, const LumSHState* pState) {
    if (!pX || !pY || !pZ || !pSrc || !pSrcDstCoeffs || !pState) return lumStatusNullPtr;
    const LumStatus st = localCheckSizes(count, L, pState);
    if (st != lumStatusOk || count < 0) return st;
    return localFwd1(pX, pY, pZ, pSrc, count, pSrcDstCoeffs, L, pState);
}

LUMR_EXPORT LumStatus lumrSHTFwd_32f_C3P3I(const Lum32f* pX, const Lum32f* pY, const Lum32f* pZ,
                                           const Lum32f* pSrc, Lum32s count,
                                           const LumPlanes3* pSrcDstCoeffs, Lum32u L,
                                           const LumSHState* pState) {
    if (!pX || !pY || !pZ || !pSrc || !pSrcDstCoeffs || !pState) return lumStatusNullPtr;
    if (!pSrcDstCoeffs->X || !pSrcDstCoeffs->Y || !pSrcDstCoeffs->Z) return lumStatusNullPtr;
    const LumStatus st = localCheckSizes(count, L, pState);
    if (st != lumStatusOk || count < 0) return st;
    return localFwd3(pX, pY, pZ, Interleaved{pSrc}, count, pSrcDstCoeffs, L, pState);
}

LUMR_EXPORT LumStatus lumrSHTFwd_32f_P3I(const Lum32f* pX, const Lum32f* pY, const Lum32f* pZ,
                                         const LumPlanes3* pSrc, Lum32s count,
                                         const LumPlanes3* pSrcDstCoeffs, Lum32u L,
                                         const LumSHState* pState) {
    if (!pX || !pY || !pZ || !pSrc || !pSrcDstCoeffs || !pState) return lumStatusNullPtr;
    if (!pSrc->X || !pSrc->Y || !pSrc->Z) return lumStatusNullPtr;
    if (!pSrcDstCoeffs->X || !pSrcDstCoeffs->Y || !pSrcDstCoeffs->Z) return lumStatusNullPtr;
    const LumStatus st = localCheckSizes(count, L, pState);
    if (st != lumStatusOk || count < 0) return st;
    return localFwd3(pX, pY, pZ, Planes{pSrc}, count, pSrcDstCoeffs, L, pState);
}

LUMR_EXPORT LumStatus lumrSHTInv_32f_C1(const Lum32f* pSrcCoeffs, Lum32u L, const Lum32f* pX,
                                        const Lum32f* pY, const Lum32f* pZ, Lum32f* pDst,
                                        Lum32s count, const LumSHState* pState) {
    if (!pSrcCoeffs || !pX || !pY || !pZ || !pDst || !pState) return lumStatusNullPtr;
    const LumStatus st = localCheckSizes(count, L, pState);
    if (st != lumStatusOk || count < 0) return st;
    const Lum32f* sets[1] = {pSrcCoeffs};
    return localInv<1>(sets, L, pX, pY, pZ, OutC1{pDst}, count, pState);
}

LUMR_EXPORT LumStatus lumrSHTInv_32f_P3(const LumPlanes3* pSrcCoeffs, Lum32u L, const Lum32f* pX,
                                        const Lum32f* pY, const Lum32f* pZ, const LumPlanes3* pDst,
                                        Lum32s count, const LumSHState* pState) {
    if (!pSrcCoeffs || !pX || !pY || !pZ || !pDst || !pState) return lumStatusNullPtr;
    if (!pSrcCoeffs->X || !pSrcCoeffs->Y || !pSrcCoeffs->Z) return lumStatusNullPtr;
    if (!pDst->X || !pDst->Y || !pDst->Z) return lumStatusNullPtr;
    const LumStatus st = localCheckSizes(count, L, pState);
    if (st != lumStatusOk || count < 0) return st;
    const Lum32f* sets[3] = {pSrcCoeffs->X, pSrcCoeffs->Y, pSrcCoeffs->Z};
    return localInv<3>(sets, L, pX, pY, pZ, OutP3{pDst}, count, pState);
}

LUMR_EXPORT LumStatus lumrSHTInv_32f_P3C3(const LumPlanes3* pSrcCoeffs, Lum32u L,
                                          const Lum32f* pX, const Lum32f* pY, const Lum32f* pZ,
                                          Lum32f* pDst, Lum32s count, const LumSHState* pState) {
    if (!pSrcCoeffs || !pX || !pY || !pZ || !pDst || !pState) return lumStatusNullPtr;
    if (!pSrcCoeffs->X || !pSrcCoeffs->Y || !pSrcCoeffs->Z) return lumStatusNullPtr;
    const LumStatus st = localCheckSizes(count, L, pState);
    if (st != lumStatusOk || count < 0) return st;
    const Lum32f* sets[3] = {pSrcCoeffs->X, pSrcCoeffs->Y, pSrcCoeffs->Z};
    return localInv<3>(sets, L, pX, pY, pZ, OutC3{pDst}, count, pState);
}
