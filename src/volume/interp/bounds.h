// What remap and the affine warp share in their frames: the accepted codes,
// the box test, the clipping of the source box into inclusive bounds and the
// silent downgrade of the code on small source volumes.
#pragma once

#include "lumr.h"

// Codes 0 and 3 do not exist; every other value outside 1..7 neither.
inline bool ownIsInterpolationCode(Lum32s code) {
    return code == LUM_RESAMPLE_NEAREST || code == LUM_RESAMPLE_LINEAR ||
           (code >= LUM_RESAMPLE_LAGRANGE && code <= LUM_RESAMPLE_CUBIC_BC);
}

inline bool ownIsBadVolume(const LumVolume& v) {
    return v.width <= 0 || v.height <= 0 || v.depth <= 0;
}

// A negative corner or a non-positive extent, tested x, width, y, height, z,
// depth; all give the same status, so the order is only for the reader.
inline bool ownIsBadBox(const LumBox& b) {
    return b.x < 0 || b.width <= 0 || b.y < 0 || b.height <= 0 || b.z < 0 || b.depth <= 0;
}

// The corner of the box lies at or beyond the volume: nothing can overlap.
inline bool ownIsCornerOutside(const LumBox& b, const LumVolume& v) {
    return b.x >= v.width || b.y >= v.height || b.z >= v.depth;
}

// The box cut to the volume, as inclusive bounds.  Only called once the
// corner is known to be inside, so volume - corner is positive.
inline LumSampleBounds ownClipToBounds(const LumBox& b, const LumVolume& v) {
    const Lum32s w = b.width < v.width - b.x ? b.width : v.width - b.x;
    const Lum32s h = b.height < v.height - b.y ? b.height : v.height - b.y;
    const Lum32s d = b.depth < v.depth - b.z ? b.depth : v.depth - b.z;
    return {b.x, b.y, b.z, b.x + w - 1, b.y + h - 1, b.z + d - 1};
}

// Cubic taps need four samples and linear two on every axis of the whole
// source volume (not the box): below that the code falls back without a
// word, cubic to linear and, below 2, anything to nearest.
inline Lum32s ownDowngradeCode(Lum32s code, const LumVolume& v) {
    if (v.width < 4 || v.height < 4 || v.depth < 4) {
        if (code >= LUM_RESAMPLE_LAGRANGE) code = LUM_RESAMPLE_LINEAR;
        if (v.width < 2 || v.height < 2 || v.depth < 2) code = LUM_RESAMPLE_NEAREST;
    }
    return code;
}
