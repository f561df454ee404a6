// The resampler's frame: the plan that the checks fill, the size of the
// caller's scratch, the two storage forms and the worker that every entry
// point runs.  Kernels live in nearest.h, linear.h and cubic.h.
#pragma once

#include <cstddef>
#include <cstdint>

#include "lumr.h"

// What the checks leave for the worker: the inverse mapping of each axis and
// the destination region, in the destination's own coordinates.
struct LumResizePlan {
    Lum64f invXFactor, invYFactor, invZFactor;
    Lum64f xOffset, yOffset, zOffset;
    Lum32s xBegin, yBegin, zBegin;
    Lum32s xEnd, yEnd, zEnd;
    Lum32s dstWidth, dstHeight, dstDepth;
};

// Sizes, steps and offsets wrap in 32 bits, as the interface's integers do.
inline Lum32s ownMul32(Lum32s a, Lum32s b) {
    return static_cast<Lum32s>(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b));
}
inline Lum32s ownAdd32(Lum32s a, Lum32s b) {
    return static_cast<Lum32s>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

inline bool ownIsResizeCode(Lum32s code) {
    return code == 1 || code == 2 || (code >= 4 && code <= 7);
}

// Checks in their fixed order, clipping and the forward mapping.  Nonzero
// results (warnings included) mean: return it, write nothing.
LumStatus ownResizePrepare(const void* src, const LumVolume* srcVolume, const LumBox* srcBox,
                           const void* dst, const LumBox* dstBox, Lum64f xFactor,
                           Lum64f yFactor, Lum64f zFactor, Lum64f xShift, Lum64f yShift,
                           Lum64f zShift, Lum32s interpolation, const Lum8u* buffer,
                           LumResizePlan* pPlan);

// Scratch bytes one worker needs for a region of width x height x depth, the
// 32-bit figure before it is multiplied by the thread count.
Lum32s ownResizeBufSizeOne(Lum32s width, Lum32s height, Lum32s depth, Lum32s interpolation);

// ---- Storage forms ---------------------------------------------------------
// ContiguousV: one base pointer and a plane step; a z entry is a plane offset
// in samples.  PlanePointers: one pointer per plane; a z entry is the plane
// index itself.
struct ContiguousV {};
struct PlanePointers {};

template <class T, class Storage>
struct OwnResizeSrc;

template <class T>
struct OwnResizeSrc<T, ContiguousV> {
    const T* base;
    Lum32s planeStepN;
    Lum32s entry(Lum32s z) const { return ownMul32(z, planeStepN); }
    Lum32s entryStep() const { return planeStepN; }
    const T* plane(Lum32s e) const { return base + e; }
};

template <class T>
struct OwnResizeSrc<T, PlanePointers> {
    const T* const* planes;
    Lum32s entry(Lum32s z) const { return z; }
    Lum32s entryStep() const { return 1; }
    const T* plane(Lum32s e) const { return planes[e]; }
};

// Destination: plane k of a worker's run, already at its first written sample.
template <class T, class Storage>
struct OwnResizeDst;

template <class T>
struct OwnResizeDst<T, ContiguousV> {
    T* origin;  // dst + yBegin * step + xBegin + zStart * planeStep, offset in 32 bits
    Lum32s planeStepN;
    T* plane(Lum32s k) const { return origin + static_cast<std::ptrdiff_t>(k) * planeStepN; }
};

template <class T>
struct OwnResizeDst<T, PlanePointers> {
    T* const* planes;
    Lum32s zStart;
    Lum32s inPlane;  // yBegin * step + xBegin, in 32 bits
    T* plane(Lum32s k) const { return planes[zStart + k] + inPlane; }
};

// One worker's job: the whole source, the region it writes and the mapping.
template <class T, class Storage>
struct OwnResizeJob {
    OwnResizeSrc<T, Storage> src;
    OwnResizeDst<T, Storage> dst;
    Lum32s nx, ny, nz;  // whole source volume
    Lum32s srcStepN;    // source row step in samples
    Lum32s dstStepN;    // destination row step in samples
    Lum32s xBegin, yBegin, zStart;
    Lum32s width, height, depth;
    Lum64f inv[3], off[3];
    Lum32s code;
    Lum8u* scratch;
};

template <class T, class Storage>
LumStatus ownResizeWorker(const OwnResizeJob<T, Storage>& job);

// The complete contiguous float resampler, called once per thread.  Steps are
// in samples; zStart and depth give the thread's run of destination planes.
LumStatus ownResizeWorker_32f_C1V(const Lum32f* src, const LumVolume* srcVolume, Lum32s srcStepN,
                                  Lum32s srcPlaneStepN, Lum32f* dst, Lum32s dstStepN,
                                  Lum32s dstPlaneStepN, Lum32s xBegin, Lum32s yBegin,
                                  Lum32s zStart, Lum32s width, Lum32s height, Lum32s depth,
                                  Lum64f invX, Lum64f invY, Lum64f invZ, Lum64f xOffset,
                                  Lum64f yOffset, Lum64f zOffset, Lum32s interpolation,
                                  Lum8u* scratch);

// The four cubic coefficient routines: a table of fractions to four
// coefficients per entry.
void ownResizeCoefLagrange(const Lum32f* pFrac, Lum32s count, Lum32f* pCoef);
void ownResizeCoefBSpline(const Lum32f* pFrac, Lum32s count, Lum32f* pCoef);
void ownResizeCoefCatmullRom(const Lum32f* pFrac, Lum32s count, Lum32f* pCoef);
void ownResizeCoefCubicBC(const Lum32f* pFrac, Lum32s count, Lum32f* pCoef);
