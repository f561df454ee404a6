// Remap through a coordinate field: the table of drivers that the exported
// functions dispatch on.
#pragma once

#include "lumr.h"

// A driver does a whole destination (or one thread's planes of it): pSrc
// and the plane-pointer arrays are type-erased so that the three sample
// types share one table.  srcStepN is in samples; dstStep and mapStep stay
// in bytes.
using OwnRemapDriver = void (*)(const void* const* pSrc, void* const* pDst, Lum32s srcStepN,
                                Lum32s dstStep, const Lum32f* const* pxMap,
                                const Lum32f* const* pyMap, const Lum32f* const* pzMap,
                                Lum32s mapStep, const LumSampleBounds* pBounds,
                                const LumVolume* pSize);

// Three blocks of eight, 8u, 16u, 32f, indexed by the interpolation code.
// Slots 0 and 3 are null: those codes do not exist and are refused before
// the table is read.
extern const OwnRemapDriver ownRemapTable[24];
