// Exported filter functions: argument checks in their fixed order, then the
// driver.  Nothing is written before every check has passed.
#include <climits>
#include <cstdint>

#include "frame/own.h"
#include "volume/filter/filter.h"

namespace {

bool localBadExtent(const LumVolume& v) { return v.width < 1 || v.height < 1 || v.depth < 1; }

}  // namespace

LUMR_EXPORT LumStatus lumrFilterGetBufSize(const LumVolume* dstVolume,
                                           const LumVolume* kernelVolume, Lum32s nChannels,
                                           Lum32s* pSize) {
    if (!pSize) return lumStatusNullPtr;
    // The volumes come by address here; a null one is refused after pSize
    // rather than read.
    if (!dstVolume || !kernelVolume) return lumStatusNullPtr;
    if (localBadExtent(*dstVolume) || localBadExtent(*kernelVolume)) return lumStatusSize;
    if (nChannels != 1) return lumStatusBadChannels;
    // Deliberate: the size is never less than the vector paths use, which for
    // wide rows is more than the classic formula gives; a size beyond the
    // Lum32s range is refused rather than wrapped.
    const int64_t size = ownFilterBufSize(dstVolume->width, nChannels, kernelVolume->width,
                                          kernelVolume->height, kernelVolume->depth);
    if (size > INT_MAX) return lumStatusSize;
    *pSize = static_cast<Lum32s>(size);
    return lumStatusOk;
}

LUMR_EXPORT LumStatus lumrFilter_16s_C1PV(const Lum16s* const srcPlanes[], Lum32s srcStep,
                                          Lum16s* const dstPlanes[], Lum32s dstStep,
                                          const LumVolume* dstVolume, const Lum32s* kernel,
                                          const LumVolume* kernelVolume, const LumPoint3D* anchor,
                                          Lum32s divisor, Lum8u* buffer) {
    if (!srcPlanes || !dstPlanes || !kernel || !buffer) return lumStatusNullPtr;
    // The records come by address; null ones are refused after the four data
    // pointers.  The plane entries and the anchor's values are not looked at.
    if (!dstVolume || !kernelVolume || !anchor) return lumStatusNullPtr;
    if (localBadExtent(*dstVolume) || localBadExtent(*kernelVolume)) return lumStatusSize;
    // Deliberate: a divisor of 0 is a size fault; there is no divisor status.
    if (divisor == 0) return lumStatusSize;
    // The sign bit alone passes the power-of-two test but has no shift
    // count; it is refused the same way instead of being counted forever.
    if (divisor == INT_MIN) return lumStatusSize;

    FilterArgs a;
    a.srcPlanes = srcPlanes;
    a.srcStepN = srcStep >> 1;  // Deliberate: an odd byte step is truncated.
    a.dstPlanes = dstPlanes;
    a.dstStepN = dstStep >> 1;
    a.width = dstVolume->width, a.height = dstVolume->height, a.depth = dstVolume->depth;
    a.kernel = kernel;
    a.kw = kernelVolume->width, a.kh = kernelVolume->height, a.kd = kernelVolume->depth;
    a.ax = anchor->x, a.ay = anchor->y, a.az = anchor->z;
    ownFilter_16s_C1PV(a, divisor, buffer);
    return lumStatusOk;
}
