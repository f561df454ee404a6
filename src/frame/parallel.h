// The library's two parallel patterns.  Both take their team size from the
// core library's thread count, so an application sets one number for all of
// its primitives.  Kernels never see OpenMP: they get a slab or an item.
#pragma once

#include <omp.h>

#include "lumr.h"

// Thread t's share of count z slices: slice = count / team each, the last
// thread also taking the remainder.  With fewer slices than threads, all but
// the last get nothing.
struct OwnSlab {
    Lum32s z0;
    Lum32s depth;
};

inline OwnSlab ownSlabOf(Lum32s t, Lum32s team, Lum32s count) {
    const Lum32s slice = count / team;
    const Lum32s remainder = count % team;
    return {t * slice, slice + (t == team - 1 ? remainder : 0)};
}

// The slab pattern: cuts a destination region into whole z slabs.  Small
// regions (any extent below 16) or a thread count of 1 call the kernel once
// on the calling thread, with no OpenMP call at all.
//
// kernel(z0, depth, t, team) does one slab.  The team size is what the
// runtime actually gave, so a smaller team still covers the whole region; a
// refused fork (nested region) gives a team of one.  A thread whose slab is
// empty does not call the kernel, so it writes nothing.
template <class Kernel>
void ownSlabPattern(Lum32s width, Lum32s height, Lum32s depth, Kernel&& kernel) {
    if (width < 16 || height < 16 || depth < 16 || ownGetNumThreads() <= 1) {
        kernel(Lum32s{0}, depth, Lum32s{0}, Lum32s{1});
        return;
    }
    const Lum32s requested = ownGetNumThreads();
    Lum32s team = 1;
#pragma omp parallel num_threads(requested) shared(team)
    {
#pragma omp master
        team = omp_get_num_threads();
#pragma omp barrier
        const Lum32s t = omp_get_thread_num();
        const OwnSlab slab = ownSlabOf(t, team, depth);
        if (slab.depth > 0) kernel(slab.z0, slab.depth, t, team);
    }
}

// The static loop: always opens a region of ownGetNumThreads() threads, with
// no size threshold; each thread gets one contiguous block of items chosen by
// the runtime's static schedule, and an explicit barrier closes the loop.
template <class Body>
void ownStaticLoop(Lum32s count, Body&& body) {
    const Lum32s requested = ownGetNumThreads();
#pragma omp parallel num_threads(requested)
    {
        if (count > 0) {
#pragma omp for schedule(static) nowait
            for (Lum32s i = 0; i < count; ++i) body(i);
#pragma omp barrier
        }
    }
}
