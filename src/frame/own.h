// Internal operations shared by the families: allocation wrappers, small
// vector operations and the sort.  Every status-returning operation answers
// lumStatusNullPtr for a null pointer and lumStatusSize for a count below 1.
#pragma once

#include "lumr.h"

// Internal symbols stay hidden; only lumr* leaves the shared object.
#define LUMR_EXPORT extern "C" __attribute__((visibility("default")))

void  ownFree(void* p);           // lumFree, null passed through as it stands
void* ownAlloc32(Lum32s count);   // count 32-bit items; null without a call below 1
void* ownAlloc64(Lum32s count);   // count 64-bit items; null without a call below 1

LumStatus ownCopy32(const void* pSrc, void* pDst, Lum32s count);
LumStatus ownZero16(void* pDst, Lum32s count);
LumStatus ownZero32(void* pDst, Lum32s count);

LumStatus ownAdd_32f_I(const Lum32f* pSrc, Lum32f* pSrcDst, Lum32s count);
LumStatus ownMulC_32f_I(Lum32f val, Lum32f* pSrcDst, Lum32s count);
LumStatus ownMulC_32f(const Lum32f* pSrc, Lum32f val, Lum32f* pDst, Lum32s count);
LumStatus ownDotProd_32f(const Lum32f* pSrc1, const Lum32f* pSrc2, Lum32s count, Lum32f* pDp);

LumStatus ownSortAscend_32f(Lum32f* pSrcDst, Lum32s count);
