// The core library: aligned memory and the one thread count that every
// primitive of the family obeys.
#include "lumr.h"

#include <omp.h>

#include <atomic>
#include <cstdlib>

#define LUMCORE_API extern "C" __attribute__((visibility("default")))

namespace {
// Zero means "not set by the application": follow OpenMP's maximum, so that
// OMP_NUM_THREADS works without any call.
std::atomic<Lum32s> gThreads{0};
}  // namespace

LUMCORE_API void* lumMalloc(int64_t size) {
    if (size < 1) return nullptr;
    // 64-byte blocks suit both cache lines and any vector width we use.
    const int64_t rounded = (size + 63) & ~int64_t{63};
    return std::aligned_alloc(64, static_cast<size_t>(rounded));
}

LUMCORE_API void lumFree(void* ptr) { std::free(ptr); }

LUMCORE_API Lum32s ownGetNumThreads(void) {
    const Lum32s n = gThreads.load(std::memory_order_relaxed);
    if (n > 0) return n;
    const int max = omp_get_max_threads();
    return max > 0 ? max : 1;
}

LUMCORE_API LumStatus lumSetNumThreads(Lum32s n) {
    if (n < 1) return lumStatusSize;
    gThreads.store(n, std::memory_order_relaxed);
    return lumStatusOk;
}

LUMCORE_API Lum32s lumGetNumThreads(void) { return ownGetNumThreads(); }
