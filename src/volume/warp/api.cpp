// The exported affine warp: checks in their fixed order with the three
// singularity tests in their places, clipping, downgrade, inversion and the
// split of destination planes among threads.
#include <cmath>

#include "frame/own.h"
#include "frame/parallel.h"
#include "volume/interp/bounds.h"
#include "volume/warp/warp.h"

namespace {

// A pair of cross-product terms that cancel to within a relative 1e-10 (or,
// for a tiny first term, an absolute 1e-10).
bool localBalanced(Lum64f a, Lum64f b) {
    if (std::fabs(a) > 1e-200) return std::fabs((a - b) / a) <= 1e-10;
    return std::fabs(b) <= 1e-10;
}

// The two tests that run before the code is looked at.
// Deliberate: the second test looks only at the cross product of rows 2
// and 3, so a matrix singular through its first row alone passes both and is
// caught later by the determinant, after the code and overlap checks.
bool localLooksSingular(const Lum64f c[3][4]) {
    if (std::fabs(c[0][0]) <= 1e-100 && std::fabs(c[1][1]) <= 1e-100 && std::fabs(c[2][2]) <= 1e-100)
        return true;
    return localBalanced(c[1][1] * c[2][2], c[1][2] * c[2][1]) &&
           localBalanced(c[1][0] * c[2][2], c[1][2] * c[2][0]) &&
           localBalanced(c[1][0] * c[2][1], c[1][1] * c[2][0]);
}

template <class T, int kBlock, int kStepShift>
LumStatus localWarp(const T* const pSrc[], const LumVolume* srcVolume, Lum32s srcStep,
                    const LumBox* srcBox, T* const pDst[], Lum32s dstStep, const LumBox* dstBox,
                    const Lum64f coeffs[3][4], Lum32s interpolation) {
    if (!pSrc || !pDst) return lumStatusNullPtr;
    // coeffs, the volume and the boxes are required to be valid; not tested.
    if (ownIsBadVolume(*srcVolume)) return lumStatusSize;
    if (ownIsBadBox(*srcBox)) return lumStatusSize;
    if (ownIsBadBox(*dstBox)) return lumStatusSize;
    if (localLooksSingular(coeffs)) return lumStatusBadCoeffs;
    if (!ownIsInterpolationCode(interpolation)) return lumStatusBadInterpolation;
    if (ownIsCornerOutside(*srcBox, *srcVolume)) return lumWarnNoOverlap;

    const LumSampleBounds srcBounds = ownClipToBounds(*srcBox, *srcVolume);
    // The destination volume is not known here: the box is taken as it is.
    const LumBox& db = *dstBox;
    const LumSampleBounds dstBounds{db.x, db.y, db.z, db.x + db.width - 1, db.y + db.height - 1,
                                    db.z + db.depth - 1};
    const OwnWarpDriver driver =
        ownWarpAffineTable[kBlock * 8 + ownDowngradeCode(interpolation, *srcVolume)];
    Lum64f inv[3][4];
    const LumStatus status = ownInvertAffine(coeffs, inv);
    if (status != lumStatusOk) return status;

    const Lum32s srcStepN = srcStep >> kStepShift;
    const auto* src = reinterpret_cast<const void* const*>(pSrc);
    const auto* dst = reinterpret_cast<void* const*>(pDst);
    // Drivers index planes by absolute z, so a slab changes only the z range
    // of its bounds.  Each slab starts its positions afresh from its own
    // first plane, so they may differ in the last bits from a single pass.
    ownSlabPattern(db.width, db.height, db.depth, [&](Lum32s z0, Lum32s planes, Lum32s, Lum32s) {
        const LumSampleBounds ownSrc = srcBounds;
        LumSampleBounds ownDst = dstBounds;
        ownDst.zMin = dstBounds.zMin + z0;
        ownDst.zMax = ownDst.zMin + planes - 1;
        driver(src, dst, srcStepN, dstStep, &ownSrc, &ownDst, inv);
    });
    return status;
}

}  // namespace

LUMR_EXPORT LumStatus lumrWarpAffineGetBufSize(const LumBox* srcBox, const LumBox* dstBox,
                                               Lum32s nChannels, Lum32s interpolation,
                                               Lum32s* pSize) {
    if (!pSize) return lumStatusNullPtr;
    // The boxes are required to be valid pointers; not tested.
    if (ownIsBadBox(*srcBox)) return lumStatusSize;
    if (ownIsBadBox(*dstBox)) return lumStatusSize;
    if (nChannels != 1) return lumStatusBadChannels;
    if (!ownIsInterpolationCode(interpolation)) return lumStatusBadInterpolation;
    *pSize = 0;  // the warp needs no buffer at all
    return lumStatusOk;
}

LUMR_EXPORT LumStatus lumrWarpAffine_8u_C1PV(const Lum8u* const pSrc[], const LumVolume* srcVolume,
                                             Lum32s srcStep, const LumBox* srcBox,
                                             Lum8u* const pDst[], Lum32s dstStep,
                                             const LumBox* dstBox, const Lum64f coeffs[3][4],
                                             Lum32s interpolation) {
    return localWarp<Lum8u, 0, 0>(pSrc, srcVolume, srcStep, srcBox, pDst, dstStep, dstBox, coeffs,
                                  interpolation);
}

LUMR_EXPORT LumStatus lumrWarpAffine_16u_C1PV(const Lum16u* const pSrc[],
                                              const LumVolume* srcVolume, Lum32s srcStep,
                                              const LumBox* srcBox, Lum16u* const pDst[],
                                              Lum32s dstStep, const LumBox* dstBox,
                                              const Lum64f coeffs[3][4], Lum32s interpolation) {
    return localWarp<Lum16u, 1, 1>(pSrc, srcVolume, srcStep, srcBox, pDst, dstStep, dstBox, coeffs,
                                   interpolation);
}

LUMR_EXPORT LumStatus lumrWarpAffine_32f_C1PV(const Lum32f* const pSrc[],
                                              const LumVolume* srcVolume, Lum32s srcStep,
                                              const LumBox* srcBox, Lum32f* const pDst[],
                                              Lum32s dstStep, const LumBox* dstBox,
                                              const Lum64f coeffs[3][4], Lum32s interpolation) {
    return localWarp<Lum32f, 2, 2>(pSrc, srcVolume, srcStep, srcBox, pDst, dstStep, dstBox, coeffs,
                                   interpolation);
}
