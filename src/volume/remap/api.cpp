// The exported remap functions: checks in their fixed order, clipping,
// downgrade, and the split of destination planes among threads.
#include "frame/own.h"
#include "frame/parallel.h"
#include "volume/interp/bounds.h"
#include "volume/remap/remap.h"

namespace {

// kBlock is the entry point's fixed block of the table, so nothing is
// computed from the sample type at run time.
template <class T, int kBlock, int kStepShift>
LumStatus localRemap(const T* const pSrc[], const LumVolume* srcVolume, Lum32s srcStep,
                     const LumBox* srcBox, const Lum32f* const pxMap[],
                     const Lum32f* const pyMap[], const Lum32f* const pzMap[], Lum32s mapStep,
                     T* const pDst[], Lum32s dstStep, const LumVolume* dstVolume,
                     Lum32s interpolation) {
    if (!pSrc || !pDst) return lumStatusNullPtr;
    if (!pxMap || !pyMap || !pzMap) return lumStatusNullPtr;
    // srcVolume, srcBox and dstVolume are required to be valid; not tested.
    if (ownIsBadVolume(*srcVolume)) return lumStatusSize;
    if (ownIsBadBox(*srcBox)) return lumStatusSize;
    if (ownIsBadVolume(*dstVolume)) return lumStatusSize;
    if (!ownIsInterpolationCode(interpolation)) return lumStatusBadInterpolation;
    if (ownIsCornerOutside(*srcBox, *srcVolume)) return lumWarnNoOverlap;

    const LumSampleBounds bounds = ownClipToBounds(*srcBox, *srcVolume);
    const OwnRemapDriver driver =
        ownRemapTable[kBlock * 8 + ownDowngradeCode(interpolation, *srcVolume)];
    // Deliberate: only the source step becomes a sample count (rounded down
    // by the arithmetic shift); dstStep and mapStep stay in bytes.
    const Lum32s srcStepN = srcStep >> kStepShift;
    const auto* src = reinterpret_cast<const void* const*>(pSrc);
    const auto* dst = reinterpret_cast<void* const*>(pDst);
    const Lum32s width = dstVolume->width, height = dstVolume->height;

    // Coordinates are absolute, so a slab offsets the destination and the
    // three fields but never the source.
    ownSlabPattern(width, height, dstVolume->depth,
                   [&](Lum32s z0, Lum32s planes, Lum32s, Lum32s) {
                       const LumSampleBounds own = bounds;
                       const LumVolume size{width, height, planes};
                       driver(src, dst + z0, srcStepN, dstStep, pxMap + z0, pyMap + z0,
                              pzMap + z0, mapStep, &own, &size);
                   });
    return lumStatusOk;
}

}  // namespace

LUMR_EXPORT LumStatus lumrRemap_8u_C1PV(const Lum8u* const pSrc[], const LumVolume* srcVolume,
                                        Lum32s srcStep, const LumBox* srcBox,
                                        const Lum32f* const pxMap[], const Lum32f* const pyMap[],
                                        const Lum32f* const pzMap[], Lum32s mapStep,
                                        Lum8u* const pDst[], Lum32s dstStep,
                                        const LumVolume* dstVolume, Lum32s interpolation) {
    return localRemap<Lum8u, 0, 0>(pSrc, srcVolume, srcStep, srcBox, pxMap, pyMap, pzMap, mapStep,
                                   pDst, dstStep, dstVolume, interpolation);
}

LUMR_EXPORT LumStatus lumrRemap_16u_C1PV(const Lum16u* const pSrc[], const LumVolume* srcVolume,
                                         Lum32s srcStep, const LumBox* srcBox,
                                         const Lum32f* const pxMap[], const Lum32f* const pyMap[],
                                         const Lum32f* const pzMap[], Lum32s mapStep,
                                         Lum16u* const pDst[], Lum32s dstStep,
                                         const LumVolume* dstVolume, Lum32s interpolation) {
    return localRemap<Lum16u, 1, 1>(pSrc, srcVolume, srcStep, srcBox, pxMap, pyMap, pzMap, mapStep,
                                    pDst, dstStep, dstVolume, interpolation);
}

LUMR_EXPORT LumStatus lumrRemap_32f_C1PV(const Lum32f* const pSrc[], const LumVolume* srcVolume,
                                         Lum32s srcStep, const LumBox* srcBox,
                                         const Lum32f* const pxMap[], const Lum32f* const pyMap[],
                                         const Lum32f* const pzMap[], Lum32s mapStep,
                                         Lum32f* const pDst[], Lum32s dstStep,
                                         const LumVolume* dstVolume, Lum32s interpolation) {
    return localRemap<Lum32f, 2, 2>(pSrc, srcVolume, srcStep, srcBox, pxMap, pyMap, pzMap, mapStep,
                                    pDst, dstStep, dstVolume, interpolation);
}
