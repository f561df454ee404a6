// Spherical-harmonic basis: all bands up to L by closed forms or by the
// recurrence, and one band alone by its closed form.  Directions go eight at a
// time through AVX lanes, computed lane-major and transposed into the
// caller's direction-major blocks; a rest of up to seven goes one by one with
// the same operations.
#include "frame/own.h"
#include "sh/closed_form.h"
#include "sh/recurrence.h"
#include "sh/sh.h"

namespace {

constexpr int kMaxBlock = (kSHMaxBand + 1) * (kSHMaxBand + 1);

template <int L>
void localBandPlain(const Lum32f* pX, const Lum32f* pY, const Lum32f* pZ, Lum32s count,
                    Lum32f* pDst, Lum32s first) {
    const int n = 2 * L + 1;
    for (Lum32s i = first; i < count; ++i) {
        ShSink1 s{pDst + static_cast<std::ptrdiff_t>(i) * n};
        ownSHClosedBandOnly<ShLane1, L>(pX[i], pY[i], pZ[i], s);
    }
}

template <int L>
Lum32s localBandPacked(const Lum32f* pX, const Lum32f* pY, const Lum32f* pZ, Lum32s count,
                       Lum32f* pDst) {
    const int n = 2 * L + 1;
    alignas(32) ShF8 rows[2 * L + 1];
    Lum32s i = 0;
    for (; count - i >= 8; i += 8) {
        ShSink8 s{rows};
        ownSHClosedBandOnly<ShLane8, L>(ShLane8::load(pX + i), ShLane8::load(pY + i),
                                      ShLane8::load(pZ + i), s);
        ownSHStoreRows(rows, n, pDst + static_cast<std::ptrdiff_t>(i) * n);
    }
    return i;
}

template <int L>
void localBand(const Lum32f* pX, const Lum32f* pY, const Lum32f* pZ, Lum32s count,
               Lum32f* pDst, ShBody body) {
    const Lum32s done = body == ShBody::Packed ? localBandPacked<L>(pX, pY, pZ, count, pDst) : 0;
    localBandPlain<L>(pX, pY, pZ, count, pDst, done);
}

using BandFn = void (*)(const Lum32f*, const Lum32f*, const Lum32f*, Lum32s, Lum32f*, ShBody);

// One expansion per band, selected by L.
constexpr BandFn kBandTable[kSHMaxBand + 1] = {
    localBand<0>, localBand<1>,  localBand<2>,  localBand<3>,  localBand<4>,  localBand<5>,
    localBand<6>, localBand<7>,  localBand<8>,  localBand<9>,  localBand<10>, localBand<11>,
    localBand<12>, localBand<13>, localBand<14>, localBand<15>};

}  // namespace

LumStatus ownSHClosed(const Lum32f* pX, const Lum32f* pY, const Lum32f* pZ, Lum32s count,
                      Lum32f* pDst, Lum32u L, ShBody body) {
    if (L > kSHMaxBand) return lumStatusBadBand;
    if (count < 1) return lumStatusOk;
    const int n = static_cast<int>((L + 1) * (L + 1));
    Lum32s i = 0;
    if (body == ShBody::Packed) {
        alignas(32) ShF8 rows[kMaxBlock];
        for (; count - i >= 8; i += 8) {
            ShSink8 s{rows};
            ownSHClosedBlock<ShLane8>(ShLane8::load(pX + i), ShLane8::load(pY + i),
                                      ShLane8::load(pZ + i), L, s);
            ownSHStoreRows(rows, n, pDst + static_cast<std::ptrdiff_t>(i) * n);
        }
    }
    for (; i < count; ++i) {
        ShSink1 s{pDst + static_cast<std::ptrdiff_t>(i) * n};
        ownSHClosedBlock<ShLane1>(pX[i], pY[i], pZ[i], L, s);
    }
    return lumStatusOk;
}

LumStatus ownSHRecurrence(const Lum32f* pX, const Lum32f* pY, const Lum32f* pZ, Lum32s count,
                          Lum32f* pDst, Lum32u L, const LumSHState* pState, ShBody body) {
    if (L > kSHMaxBand) return lumStatusBadBand;
    if (count < 1) return lumStatusOk;
    const Lum32f* pA = pState->tableA;
    const Lum32f* pB = pState->tableB;
    const int n = static_cast<int>((L + 1) * (L + 1));
    Lum32s i = 0;
    if (body == ShBody::Packed) {
        alignas(32) ShF8 rows[kMaxBlock];
        for (; count - i >= 8; i += 8) {
            ownSHRecurBlock<ShLane8>(ShLane8::load(pX + i), ShLane8::load(pY + i),
                                     ShLane8::load(pZ + i), pA, pB, L, rows);
            ownSHStoreRows(rows, n, pDst + static_cast<std::ptrdiff_t>(i) * n);
        }
    }
    for (; i < count; ++i)
        ownSHRecurBlock<ShLane1>(pX[i], pY[i], pZ[i], pA, pB, L,
                               pDst + static_cast<std::ptrdiff_t>(i) * n);
    return lumStatusOk;
}

void ownSHBandClosed(const Lum32f* pX, const Lum32f* pY, const Lum32f* pZ, Lum32s count,
                     Lum32f* pDst, Lum32u L, ShBody body) {
    kBandTable[L](pX, pY, pZ, count, pDst, body);
}

LumStatus ownSHEval(const Lum32f* pX, const Lum32f* pY, const Lum32f* pZ, Lum32s count,
                    Lum32f* pDst, Lum32u L, const LumSHState* pState) {
    if (pState->algorithm == lumSHClosedForm)
        return ownSHClosed(pX, pY, pZ, count, pDst, L, ShBody::Packed);
    return ownSHRecurrence(pX, pY, pZ, count, pDst, L, pState, ShBody::Packed);
}

LUMR_EXPORT LumStatus lumrSH_32f(const Lum32f* pX, const Lum32f* pY, const Lum32f* pZ,
                                 Lum32s count, Lum32f* pDst, Lum32u L, const LumSHState* pState) {
    if (!pX || !pY || !pZ || !pDst || !pState) return lumStatusNullPtr;
    if (count == 0) return lumStatusSize;
    if (L > pState->maxBand) return lumStatusBadBand;
    if (pState->algorithm == lumSHClosedForm)
        return ownSHClosed(pX, pY, pZ, count, pDst, L, ShBody::Packed);
    if (pState->algorithm == lumSHRecurrence)
        return ownSHRecurrence(pX, pY, pZ, count, pDst, L, pState, ShBody::Packed);
    return lumStatusBadBand;
}

LUMR_EXPORT LumStatus lumrSHBand_32f(const Lum32f* pX, const Lum32f* pY, const Lum32f* pZ,
                                     Lum32s count, Lum32f* pDst, Lum32u L) {
    if (!pX || !pY || !pZ || !pDst) return lumStatusNullPtr;
    // Deliberate: the band is checked before the count here, the other way
    // round from lumrSH_32f.
    if (L > kSHMaxBand) return lumStatusBadBand;
    if (count == 0) return lumStatusSize;
    if (count < 0) return lumStatusOk;
    ownSHBandClosed(pX, pY, pZ, count, pDst, L, ShBody::Packed);
    return lumStatusOk;
}
