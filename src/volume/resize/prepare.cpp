// Checks, clipping and the forward mapping shared by the six resize entry
// points, and the size of the caller's scratch.
#include <cmath>

#include "frame/own.h"
#include "volume/resize/resize.h"

namespace {

using U32 = std::uint32_t;

inline U32 localA16(U32 n) { return (n + 15u) & ~U32{15}; }
inline U32 localA64(U32 n) { return (n + 63u) & ~U32{63}; }
inline U32 localLow6(U32 n) { return n & ~U32{63}; }

bool localBoxBad(const LumBox& b) {
    return b.x < 0 || b.width <= 0 || b.y < 0 || b.height <= 0 || b.z < 0 || b.depth <= 0;
}

// Destination index range of one axis.  The rounding constants are not
// symmetric: a sample whose centre lies exactly on the mapped start is kept,
// and one exactly on the mapped stop is kept too.
bool localAxisRange(Lum32s origin, Lum32s clipped, Lum64f factor, Lum64f shift,
                    Lum32s dstOrigin, Lum32s dstExtent, Lum32s* pBegin, Lum32s* pEnd) {
    const double start = origin * factor + shift;
    const double stop = (static_cast<double>(origin) + clipped) * factor + shift;
    // A NaN or infinite mapping has no destination region; truncating it
    // would be undefined, so the axis is reported empty.
    if (!std::isfinite(start) || !std::isfinite(stop)) return false;
    const double lo = start > dstOrigin ? start : static_cast<double>(dstOrigin);
    const double dstStop = static_cast<double>(dstOrigin) + dstExtent;
    const double hi = stop < dstStop ? stop : dstStop;
    const double b = lo + 0.4999999999, e = hi + 0.5000000001;
    if (b >= 2147483647.0 || e < 0.0) return false;  // outside the index range
    *pBegin = static_cast<Lum32s>(b);
    *pEnd = static_cast<Lum32s>(e >= 2147483647.0 ? 2147483647.0 : e);
    return *pBegin < *pEnd;
}

}  // namespace

Lum32s ownResizeBufSizeOne(Lum32s width, Lum32s height, Lum32s depth, Lum32s code) {
    const U32 w = static_cast<U32>(width), h = static_cast<U32>(height),
              d = static_cast<U32>(depth);
    const U32 index = 4u * (localA16(w) + localA16(h) + localA16(d));
    if (code == LUM_RESAMPLE_NEAREST) return static_cast<Lum32s>(index + 64u);
    // Every partial total wraps in 32 bits before the next term is added.
    U32 size = index + 4u * (localA64(w) + localA64(h) + localA64(d));
    if (code == LUM_RESAMPLE_LINEAR) {
        size += 4u * localLow6(2u * w + 127u);           // two row slots
        size += 4u * (2u * h * localA64(w));             // two core planes
        size += 4u * localLow6(8u * (w + h) + 127u);     // two rim planes
        return static_cast<Lum32s>(size + 64u);
    }
    const U32 wt = localLow6(4u * w + 255u), ht = localLow6(4u * h + 255u),
              dt = localLow6(4u * d + 255u), rt = localLow6(48u * (w + h) + 255u);
    size += 4u * wt;                       // four row slots
    size += 4u * (4u * h * localA64(w));   // four core planes
    size += 4u * wt;                       // x coefficients
    size += 4u * ht;                       // y coefficients
    size += 4u * dt;                       // z coefficients
    size += 4u * rt;                       // four rim planes
    return static_cast<Lum32s>(size + 64u);
}

LUMR_EXPORT LumStatus lumrResizeGetBufSize(const LumBox* srcBox, const LumBox* dstBox,
                                           Lum32s nChannels, Lum32s interpolation,
                                           Lum32s* pSize) {
    if (!pSize) return lumStatusNullPtr;
    // The boxes themselves are read, so a null box is refused like pSize.
    if (!srcBox || !dstBox) return lumStatusNullPtr;
    if (localBoxBad(*srcBox)) return lumStatusSize;
    if (localBoxBad(*dstBox)) return lumStatusSize;
    if (nChannels != 1) return lumStatusBadChannels;
    if (!ownIsResizeCode(interpolation)) return lumStatusBadInterpolation;
    // Deliberate: the unclipped destination box sizes the buffer and every
    // entry point gets the thread count's multiple, also the serial ones.
    const Lum32s one =
        ownResizeBufSizeOne(dstBox->width, dstBox->height, dstBox->depth, interpolation);
    *pSize = ownMul32(one, ownGetNumThreads());
    return lumStatusOk;
}

LumStatus ownResizePrepare(const void* src, const LumVolume* srcVolume, const LumBox* srcBox,
                           const void* dst, const LumBox* dstBox, Lum64f xFactor,
                           Lum64f yFactor, Lum64f zFactor, Lum64f xShift, Lum64f yShift,
                           Lum64f zShift, Lum32s interpolation, const Lum8u* buffer,
                           LumResizePlan* pPlan) {
    if (!src || !dst || !buffer) return lumStatusNullPtr;
    // The three records are read as well; a null one is refused after the
    // data pointers rather than dereferenced.
    if (!srcVolume || !srcBox || !dstBox) return lumStatusNullPtr;
    const LumVolume& v = *srcVolume;
    if (v.width <= 0 || v.height <= 0 || v.depth <= 0) return lumStatusSize;
    if (localBoxBad(*srcBox)) return lumStatusSize;
    if (localBoxBad(*dstBox)) return lumStatusSize;
    // Deliberate: written as 0 >= factor, so a NaN factor passes this check.
    if (0.0 >= xFactor) return lumStatusBadResizeFactor;
    if (0.0 >= yFactor) return lumStatusBadResizeFactor;
    if (0.0 >= zFactor) return lumStatusBadResizeFactor;
    if (!ownIsResizeCode(interpolation)) return lumStatusBadInterpolation;
    const LumBox& s = *srcBox;
    const LumBox& d = *dstBox;
    if (s.x >= v.width || s.y >= v.height || s.z >= v.depth) return lumWarnNoOverlap;

    const Lum32s cw = v.width - s.x < s.width ? v.width - s.x : s.width;
    const Lum32s ch = v.height - s.y < s.height ? v.height - s.y : s.height;
    const Lum32s cd = v.depth - s.z < s.depth ? v.depth - s.z : s.depth;
    LumResizePlan p;
    const bool okX = localAxisRange(s.x, cw, xFactor, xShift, d.x, d.width, &p.xBegin, &p.xEnd);
    const bool okY = localAxisRange(s.y, ch, yFactor, yShift, d.y, d.height, &p.yBegin, &p.yEnd);
    const bool okZ = localAxisRange(s.z, cd, zFactor, zShift, d.z, d.depth, &p.zBegin, &p.zEnd);
    if (!okX || !okY || !okZ) return lumWarnEmptyResult;
    p.dstWidth = p.xEnd - p.xBegin;
    p.dstHeight = p.yEnd - p.yBegin;
    p.dstDepth = p.zEnd - p.zBegin;
    p.invXFactor = 1.0 / xFactor;
    p.invYFactor = 1.0 / yFactor;
    p.invZFactor = 1.0 / zFactor;
    p.xOffset = (0.0 - xShift) / xFactor;
    p.yOffset = (0.0 - yShift) / yFactor;
    p.zOffset = (0.0 - zShift) / zFactor;
    // A denormal factor leaves a finite region but an infinite inverse, from
    // which no source coordinate can be formed: nothing is produced.
    if (!std::isfinite(p.invXFactor) || !std::isfinite(p.invYFactor) ||
        !std::isfinite(p.invZFactor) || !std::isfinite(p.xOffset) ||
        !std::isfinite(p.yOffset) || !std::isfinite(p.zOffset))
        return lumWarnEmptyResult;
    *pPlan = p;
    return lumStatusOk;
}
