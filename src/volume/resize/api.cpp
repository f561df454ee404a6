// The six exported resize entry points: checks through ownResizePrepare, the
// byte steps turned into sample steps, then the one templated worker.  Only
// the contiguous float form splits its work over a thread team.
#include "frame/own.h"
#include "frame/parallel.h"
#include "volume/resize/resize.h"

namespace {

// Steps arrive in bytes; an arithmetic shift makes them sample counts, so a
// step that is not a multiple of the sample size is floored silently.
template <class T>
constexpr int kStepShift = sizeof(T) == 1 ? 0 : sizeof(T) == 2 ? 1 : 2;

template <class T, class Storage>
OwnResizeJob<T, Storage> localJob(const LumResizePlan& p, const LumVolume* v, Lum32s srcStepN,
                                  Lum32s dstStepN, Lum32s code, Lum8u* buffer) {
    OwnResizeJob<T, Storage> j{};
    j.nx = v->width, j.ny = v->height, j.nz = v->depth;
    j.srcStepN = srcStepN, j.dstStepN = dstStepN;
    j.xBegin = p.xBegin, j.yBegin = p.yBegin, j.zStart = p.zBegin;
    j.width = p.dstWidth, j.height = p.dstHeight, j.depth = p.dstDepth;
    j.inv[0] = p.invXFactor, j.inv[1] = p.invYFactor, j.inv[2] = p.invZFactor;
    j.off[0] = p.xOffset, j.off[1] = p.yOffset, j.off[2] = p.zOffset;
    j.code = code;
    j.scratch = buffer;
    return j;
}

template <class T>
LumStatus localResizeV(const T* src, const LumVolume* srcVolume, Lum32s srcStep,
                       Lum32s srcPlaneStep, const LumBox* srcBox, T* dst, Lum32s dstStep,
                       Lum32s dstPlaneStep, const LumBox* dstBox, Lum64f xFactor, Lum64f yFactor,
                       Lum64f zFactor, Lum64f xShift, Lum64f yShift, Lum64f zShift,
                       Lum32s interpolation, Lum8u* buffer) {
    LumResizePlan p;
    const LumStatus st = ownResizePrepare(src, srcVolume, srcBox, dst, dstBox, xFactor, yFactor,
                                          zFactor, xShift, yShift, zShift, interpolation, buffer,
                                          &p);
    if (st != lumStatusOk) return st;
    constexpr int sh = kStepShift<T>;
    const Lum32s dstStepN = dstStep >> sh, dstPlaneStepN = dstPlaneStep >> sh;
    auto j = localJob<T, ContiguousV>(p, srcVolume, srcStep >> sh, dstStepN, interpolation,
                                      buffer);
    j.src = {src, srcPlaneStep >> sh};
    const Lum32s origin = ownAdd32(ownAdd32(ownMul32(p.yBegin, dstStepN), p.xBegin),
                                   ownMul32(p.zBegin, dstPlaneStepN));
    j.dst = {dst + origin, dstPlaneStepN};
    return ownResizeWorker(j);
}

template <class T>
LumStatus localResizePV(const T* const srcPlanes[], const LumVolume* srcVolume, Lum32s srcStep,
                        const LumBox* srcBox, T* const dstPlanes[], Lum32s dstStep,
                        const LumBox* dstBox, Lum64f xFactor, Lum64f yFactor, Lum64f zFactor,
                        Lum64f xShift, Lum64f yShift, Lum64f zShift, Lum32s interpolation,
                        Lum8u* buffer) {
    LumResizePlan p;
    // Only the pointer arrays are tested for null, not their entries.
    const LumStatus st = ownResizePrepare(srcPlanes, srcVolume, srcBox, dstPlanes, dstBox,
                                          xFactor, yFactor, zFactor, xShift, yShift, zShift,
                                          interpolation, buffer, &p);
    if (st != lumStatusOk) return st;
    constexpr int sh = kStepShift<T>;
    const Lum32s dstStepN = dstStep >> sh;
    auto j = localJob<T, PlanePointers>(p, srcVolume, srcStep >> sh, dstStepN, interpolation,
                                        buffer);
    j.src = {srcPlanes};
    j.dst = {dstPlanes, p.zBegin, ownAdd32(ownMul32(p.yBegin, dstStepN), p.xBegin)};
    return ownResizeWorker(j);
}

}  // namespace

LUMR_EXPORT LumStatus lumrResize_8u_C1V(const Lum8u* src, const LumVolume* srcVolume,
                                        Lum32s srcStep, Lum32s srcPlaneStep,
                                        const LumBox* srcBox, Lum8u* dst, Lum32s dstStep,
                                        Lum32s dstPlaneStep, const LumBox* dstBox,
                                        Lum64f xFactor, Lum64f yFactor, Lum64f zFactor,
                                        Lum64f xShift, Lum64f yShift, Lum64f zShift,
                                        Lum32s interpolation, Lum8u* buffer) {
    return localResizeV(src, srcVolume, srcStep, srcPlaneStep, srcBox, dst, dstStep, dstPlaneStep,
                        dstBox, xFactor, yFactor, zFactor, xShift, yShift, zShift, interpolation,
                        buffer);
}

LUMR_EXPORT LumStatus lumrResize_16u_C1V(const Lum16u* src, const LumVolume* srcVolume,
                                         Lum32s srcStep, Lum32s srcPlaneStep,
                                         const LumBox* srcBox, Lum16u* dst, Lum32s dstStep,
                                         Lum32s dstPlaneStep, const LumBox* dstBox,
                                         Lum64f xFactor, Lum64f yFactor, Lum64f zFactor,
                                         Lum64f xShift, Lum64f yShift, Lum64f zShift,
                                         Lum32s interpolation, Lum8u* buffer) {
    return localResizeV(src, srcVolume, srcStep, srcPlaneStep, srcBox, dst, dstStep, dstPlaneStep,
                        dstBox, xFactor, yFactor, zFactor, xShift, yShift, zShift, interpolation,
                        buffer);
}

LUMR_EXPORT LumStatus lumrResize_32f_C1V(const Lum32f* src, const LumVolume* srcVolume,
                                         Lum32s srcStep, Lum32s srcPlaneStep,
                                         const LumBox* srcBox, Lum32f* dst, Lum32s dstStep,
                                         Lum32s dstPlaneStep, const LumBox* dstBox,
                                         Lum64f xFactor, Lum64f yFactor, Lum64f zFactor,
                                         Lum64f xShift, Lum64f yShift, Lum64f zShift,
                                         Lum32s interpolation, Lum8u* buffer) {
    LumResizePlan p;
    const LumStatus st = ownResizePrepare(src, srcVolume, srcBox, dst, dstBox, xFactor, yFactor,
                                          zFactor, xShift, yShift, zShift, interpolation, buffer,
                                          &p);
    if (st != lumStatusOk) return st;
    const Lum32s srcStepN = srcStep >> 2, srcPlaneStepN = srcPlaneStep >> 2;
    const Lum32s dstStepN = dstStep >> 2, dstPlaneStepN = dstPlaneStep >> 2;
    auto worker = [&](Lum32s zStart, Lum32s depth, Lum8u* scratch) {
        return ownResizeWorker_32f_C1V(src, srcVolume, srcStepN, srcPlaneStepN, dst, dstStepN,
                                       dstPlaneStepN, p.xBegin, p.yBegin, zStart, p.dstWidth,
                                       p.dstHeight, depth, p.invXFactor, p.invYFactor,
                                       p.invZFactor, p.xOffset, p.yOffset, p.zOffset,
                                       interpolation, scratch);
    };
    if (p.dstWidth < 16 || p.dstHeight < 16 || p.dstDepth < 16 || ownGetNumThreads() <= 1)
        return worker(p.zBegin, p.dstDepth, buffer);

    // Each thread rebuilds its own tables and rings in its own slice of the
    // buffer, so the result does not depend on the team size.
    const LumBox srcCopy = *srcBox, dstCopy = *dstBox;
    Lum32s total = 0;
    LumStatus status = lumrResizeGetBufSize(&srcCopy, &dstCopy, 1, interpolation, &total);
    ownSlabPattern(p.dstWidth, p.dstHeight, p.dstDepth,
                   [&](Lum32s z0, Lum32s depth, Lum32s t, Lum32s team) {
                       Lum8u* slice = buffer + ownMul32(total, t) / team;
                       const LumStatus s = worker(p.zBegin + z0, depth, slice);
                       // The worker cannot fail here; only a failure is stored,
                       // so the threads write the shared status only then.
                       if (s != lumStatusOk) status = s;
                   });
    return status;
}

LUMR_EXPORT LumStatus lumrResize_8u_C1PV(const Lum8u* const srcPlanes[],
                                         const LumVolume* srcVolume, Lum32s srcStep,
                                         const LumBox* srcBox, Lum8u* const dstPlanes[],
                                         Lum32s dstStep, const LumBox* dstBox, Lum64f xFactor,
                                         Lum64f yFactor, Lum64f zFactor, Lum64f xShift,
                                         Lum64f yShift, Lum64f zShift, Lum32s interpolation,
                                         Lum8u* buffer) {
    return localResizePV(srcPlanes, srcVolume, srcStep, srcBox, dstPlanes, dstStep, dstBox,
                         xFactor, yFactor, zFactor, xShift, yShift, zShift, interpolation,
                         buffer);
}

LUMR_EXPORT LumStatus lumrResize_16u_C1PV(const Lum16u* const srcPlanes[],
                                          const LumVolume* srcVolume, Lum32s srcStep,
                                          const LumBox* srcBox, Lum16u* const dstPlanes[],
                                          Lum32s dstStep, const LumBox* dstBox, Lum64f xFactor,
                                          Lum64f yFactor, Lum64f zFactor, Lum64f xShift,
                                          Lum64f yShift, Lum64f zShift, Lum32s interpolation,
                                          Lum8u* buffer) {
    return localResizePV(srcPlanes, srcVolume, srcStep, srcBox, dstPlanes, dstStep, dstBox,
                         xFactor, yFactor, zFactor, xShift, yShift, zShift, interpolation,
                         buffer);
}

LUMR_EXPORT LumStatus lumrResize_32f_C1PV(const Lum32f* const srcPlanes[],
                                          const LumVolume* srcVolume, Lum32s srcStep,
                                          const LumBox* srcBox, Lum32f* const dstPlanes[],
                                          Lum32s dstStep, const LumBox* dstBox, Lum64f xFactor,
                                          Lum64f yFactor, Lum64f zFactor, Lum64f xShift,
                                          Lum64f yShift, Lum64f zShift, Lum32s interpolation,
                                          Lum8u* buffer) {
    return localResizePV(srcPlanes, srcVolume, srcStep, srcBox, dstPlanes, dstStep, dstBox,
                         xFactor, yFactor, zFactor, xShift, yShift, zShift, interpolation,
                         buffer);
}
