// Code 1, nearest: a gather per destination plane, or a copy of the previous
// destination plane when both come from the same source plane.
#pragma once

#include <cstring>

#include "volume/resize/resize.h"

template <class T>
void ownResizeGather(const T* plane, const Lum32s* xIdx, const Lum32s* yOff, Lum32s width,
                     Lum32s height, T* dst, Lum32s dstStepN) {
    for (Lum32s r = 0; r < height; ++r) {
        const T* row = plane + yOff[r];
        T* out = dst + static_cast<std::ptrdiff_t>(r) * dstStepN;
        Lum32s c = 0;
        for (; c + 4 <= width; c += 4) {
            const T v0 = row[xIdx[c]], v1 = row[xIdx[c + 1]];
            const T v2 = row[xIdx[c + 2]], v3 = row[xIdx[c + 3]];
            out[c] = v0, out[c + 1] = v1, out[c + 2] = v2, out[c + 3] = v3;
        }
        for (; c < width; ++c) out[c] = row[xIdx[c]];
    }
}

template <class T>
LumStatus ownResizeCopyPlane(const T* prev, T* cur, Lum32s width, Lum32s height,
                             Lum32s dstStepN) {
    if (!prev || !cur) return lumStatusNullPtr;
    if (width < 1 || height < 1) return lumStatusSize;
    // memmove: a plane step of 0 makes both planes the same memory.
    for (Lum32s r = 0; r < height; ++r) {
        const std::ptrdiff_t o = static_cast<std::ptrdiff_t>(r) * dstStepN;
        std::memmove(cur + o, prev + o, static_cast<std::size_t>(width) * sizeof(T));
    }
    return lumStatusOk;
}
