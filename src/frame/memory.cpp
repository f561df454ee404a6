// Allocation wrappers and the copy and clear operations.
#include <cstring>

#include "frame/own.h"

void ownFree(void* p) { lumFree(p); }

void* ownAlloc32(Lum32s count) {
    if (count < 1) return nullptr;
    return lumMalloc(int64_t{count} * 4);
}

void* ownAlloc64(Lum32s count) {
    if (count < 1) return nullptr;
    return lumMalloc(int64_t{count} * 8);
}

LumStatus ownCopy32(const void* pSrc, void* pDst, Lum32s count) {
    if (!pSrc || !pDst) return lumStatusNullPtr;
    if (count < 1) return lumStatusSize;
    std::memmove(pDst, pSrc, size_t(count) * 4);
    return lumStatusOk;
}

LumStatus ownZero16(void* pDst, Lum32s count) {
    if (!pDst) return lumStatusNullPtr;
    if (count < 1) return lumStatusSize;
    std::memset(pDst, 0, size_t(count) * 2);
    return lumStatusOk;
}

LumStatus ownZero32(void* pDst, Lum32s count) {
    if (!pDst) return lumStatusNullPtr;
    if (count < 1) return lumStatusSize;
    std::memset(pDst, 0, size_t(count) * 4);
    return lumStatusOk;
}
