// The six rows of the resize family: sample type x storage form.
#include "volume/resize/worker.h"

template LumStatus ownResizeWorker<Lum8u, ContiguousV>(const OwnResizeJob<Lum8u, ContiguousV>&);
template LumStatus ownResizeWorker<Lum16u, ContiguousV>(const OwnResizeJob<Lum16u, ContiguousV>&);
template LumStatus ownResizeWorker<Lum32f, ContiguousV>(const OwnResizeJob<Lum32f, ContiguousV>&);
template LumStatus ownResizeWorker<Lum8u, PlanePointers>(const OwnResizeJob<Lum8u, PlanePointers>&);
template LumStatus ownResizeWorker<Lum16u, PlanePointers>(
    const OwnResizeJob<Lum16u, PlanePointers>&);
template LumStatus ownResizeWorker<Lum32f, PlanePointers>(
    const OwnResizeJob<Lum32f, PlanePointers>&);

LumStatus ownResizeWorker_32f_C1V(const Lum32f* src, const LumVolume* srcVolume, Lum32s srcStepN,
                                  Lum32s srcPlaneStepN, Lum32f* dst, Lum32s dstStepN,
                                  Lum32s dstPlaneStepN, Lum32s xBegin, Lum32s yBegin,
                                  Lum32s zStart, Lum32s width, Lum32s height, Lum32s depth,
                                  Lum64f invX, Lum64f invY, Lum64f invZ, Lum64f xOffset,
                                  Lum64f yOffset, Lum64f zOffset, Lum32s interpolation,
                                  Lum8u* scratch) {
    const Lum32s origin = ownAdd32(ownAdd32(ownMul32(yBegin, dstStepN), xBegin),
                                   ownMul32(zStart, dstPlaneStepN));
    const OwnResizeJob<Lum32f, ContiguousV> job{
        {src, srcPlaneStepN},
        {dst + origin, dstPlaneStepN},
        srcVolume->width, srcVolume->height, srcVolume->depth,
        srcStepN, dstStepN,
        xBegin, yBegin, zStart,
        width, height, depth,
        {invX, invY, invZ}, {xOffset, yOffset, zOffset},
        interpolation, scratch};
    return ownResizeWorker(job);
}
