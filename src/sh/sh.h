// Internal entry points of the spherical-harmonic kernels, shared by the
// exported functions, the transforms, the tests and the benchmark.
#pragma once

#include "lumr.h"

// Which body evaluates the directions.  Packed takes groups of eight
// directions in AVX lanes and the rest one by one; Plain takes all one by
// one.  Both give the same bits.
enum class ShBody { Plain, Packed };

constexpr Lum32u kSHMaxBand = 15;

// Blocks of bands 0 to L for count directions.  lumStatusBadBand for L above
// 15 before anything else, lumStatusOk at once for a count below 1.
LumStatus ownSHClosed(const Lum32f* pX, const Lum32f* pY, const Lum32f* pZ, Lum32s count,
                      Lum32f* pDst, Lum32u L, ShBody body);
LumStatus ownSHRecurrence(const Lum32f* pX, const Lum32f* pY, const Lum32f* pZ, Lum32s count,
                          Lum32f* pDst, Lum32u L, const LumSHState* pState, ShBody body);
// Band L alone, L at most 15 and count at least 1 (checked by the caller).
void ownSHBandClosed(const Lum32f* pX, const Lum32f* pY, const Lum32f* pZ, Lum32s count,
                     Lum32f* pDst, Lum32u L, ShBody body);
// The kernel that the state selects; the state is trusted (algorithm 0 or 1).
LumStatus ownSHEval(const Lum32f* pX, const Lum32f* pY, const Lum32f* pZ, Lum32s count,
                    Lum32f* pDst, Lum32u L, const LumSHState* pState);
