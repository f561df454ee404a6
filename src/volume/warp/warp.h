// Affine warp: the inversion of the forward map and the table of drivers.
#pragma once

#include "lumr.h"

// Inverts the forward map c (source to destination, 3 x 4, row-major) by
// cofactors in double.  Refuses a determinant strictly between -1e-10 and
// 1e-10 with lumStatusBadCoeffs, whatever the scale of the matrix.
LumStatus ownInvertAffine(const Lum64f c[3][4], Lum64f inv[3][4]);

// A driver fills the destination bounds (inclusive, absolute) from the
// source bounds through the inverse map.  srcStepN is in samples, dstStep in
// bytes; plane pointers are indexed by absolute z on both sides.
using OwnWarpDriver = void (*)(const void* const* pSrc, void* const* pDst, Lum32s srcStepN,
                               Lum32s dstStep, const LumSampleBounds* pSrcBounds,
                               const LumSampleBounds* pDstBounds, const Lum64f inv[3][4]);

// Three blocks of eight, 8u, 16u, 32f, indexed by the interpolation code;
// slots 0 and 3 are null.
extern const OwnWarpDriver ownWarpAffineTable[24];
