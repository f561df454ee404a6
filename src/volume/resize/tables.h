// Coordinate tables, scratch carving and the tag ring shared by the kernels.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>

#include "volume/resize/resize.h"

// Source coordinate of destination index X, formed afresh for every index
// (never by accumulating a step), in this order of operations.
inline double ownResizeCoordNearest(double inv, Lum32s X, double off) {
    return inv * (X + 0.5) - 1e-10 + off;
}
inline double ownResizeCoord(double inv, Lum32s X, double off) {
    return inv * (X + 0.5) - 0.5 + off;
}

// Nearest index: truncation toward zero.  Clipping keeps the coordinate
// inside the volume up to a rounding sliver; the clamp only guards that
// sliver (and absurd factors) against a read past the volume.
inline Lum32s ownResizeNearestIndex(double s, Lum32s n) {
    if (s >= static_cast<double>(n - 1)) return n - 1;
    return s > 0.0 ? static_cast<Lum32s>(s) : 0;
}

// Q14 weight of the integer forms.  A fraction that is not a number (only
// reachable with absurd factors) gives weight 0 instead of an undefined
// conversion.
inline Lum16u ownResizeQ14(double frac) {
    const double q = 16384.0 * frac + 1e-7;
    if (!(q >= 0.0)) return 0;
    return static_cast<Lum16u>(q >= 16384.0 ? 16384 : static_cast<Lum32s>(q));
}

// Integer floor of a coordinate, limited to [-2, n + 1]: border classes only
// need the index near the volume, and the limit keeps the conversion defined.
inline Lum32s ownResizeFloorIndex(double fi, Lum32s n) {
    if (!(fi >= -2.0)) return -2;
    if (fi > static_cast<double>(n) + 1.0) return n + 1;
    return static_cast<Lum32s>(fi);
}

// A bump allocator over the caller's scratch, low to high addresses.
struct OwnCarve {
    std::uintptr_t at;
    explicit OwnCarve(void* p) : at(reinterpret_cast<std::uintptr_t>(p)) {}
    void align(std::size_t a) { at = (at + a - 1) & ~static_cast<std::uintptr_t>(a - 1); }
    template <class E>
    E* take(std::size_t count, std::size_t a) {
        align(a);
        E* p = reinterpret_cast<E*>(at);
        at += count * sizeof(E);
        return p;
    }
    void skip(std::size_t bytes) { at += bytes; }
};

inline std::size_t ownA64(std::size_t n) { return (n + 63) & ~std::size_t{63}; }

// A ring of K slots tagged with the source row (or plane) entry they hold.
// ensure() maps each wanted entry to a slot (id[k] for position k), filtering
// only entries that no slot holds yet into slots that no wanted entry needs;
// so a source row is filtered once however many destination rows use it, a
// reduction filters just the rows it needs, and a repeated entry (a clamped
// tap list) shares one slot.
template <int K>
struct OwnTagRing {
    int id[K];
    Lum32s tag[K];  // per slot
    bool valid[K];  // per slot
    OwnTagRing() {
        for (int k = 0; k < K; ++k) id[k] = k, tag[k] = 0, valid[k] = false;
    }
    template <class Fill>
    void ensure(const Lum32s (&want)[K], Fill&& fill) {
        bool keep[K], have[K];
        for (int k = 0; k < K; ++k) keep[k] = false, have[k] = false;
        for (int k = 0; k < K; ++k)
            for (int p = 0; p < K; ++p)
                if (valid[p] && tag[p] == want[k]) {
                    id[k] = p, keep[p] = true, have[k] = true;
                    break;
                }
        for (int k = 0; k < K; ++k) {
            if (have[k]) continue;
            for (int q = 0; q < k; ++q)
                if (want[q] == want[k]) {  // filled a moment ago
                    id[k] = id[q], have[k] = true;
                    break;
                }
            if (have[k]) continue;
            for (int p = 0; p < K; ++p)
                if (!keep[p]) {
                    keep[p] = true, valid[p] = true, tag[p] = want[k], id[k] = p;
                    fill(p, want[k]);
                    break;
                }
        }
    }
};

// Where the rim of a plane goes: T top rows and B bottom rows of full width,
// then the L left and R right columns of the core rows.  A rim plane stores
// them back to back (columns column by column); the destination spreads them
// over the region.
template <class O>
struct OwnRimSink {
    O* top;
    std::ptrdiff_t topStride;
    O* bottom;
    std::ptrdiff_t bottomStride;
    O* left;
    O* right;
    std::ptrdiff_t colStride, elemStride;  // column j, element r: j*colStride + r*elemStride
};

struct OwnRimShape {
    Lum32s W, H, T, B, L, R;
    Lum32s coreW() const { return W - L - R; }
    Lum32s coreH() const { return H - T - B; }
    std::size_t elems() const {
        return static_cast<std::size_t>(T + B) * W + static_cast<std::size_t>(L + R) * coreH();
    }
};

template <class O>
inline OwnRimSink<O> ownRimPlaneSink(O* rim, const OwnRimShape& s) {
    O* cols = rim + static_cast<std::ptrdiff_t>(s.T + s.B) * s.W;
    return {rim, s.W, rim + static_cast<std::ptrdiff_t>(s.T) * s.W, s.W,
            cols, cols + static_cast<std::ptrdiff_t>(s.L) * s.coreH(), s.coreH(), 1};
}

template <class O>
inline OwnRimSink<O> ownRimDstSink(O* dst, Lum32s dstStepN, const OwnRimShape& s) {
    const std::ptrdiff_t step = dstStepN;
    O* rows = dst + s.T * step;
    return {dst, step, dst + (s.H - s.B) * step, step, rows, rows + (s.W - s.R), 1, step};
}

// Ring storage for K slots of (rim plane, core plane).  The specified layout
// gives each rim plane rimCap elements; a large enlargement can need more.
// Then the rim and core regions are pooled and re-cut per slot: a rim and its
// core never exceed the region's width x height, which the core planes alone
// were sized for, so the specified buffer size holds for every enlargement.
template <class Q, int K>
struct OwnPlaneSlots {
    Q* rim[K];
    Q* core[K];
    std::ptrdiff_t coreStride;
};

// The specified layout: K core planes of ch rows at coreStride, back to back.
template <class Q, int K>
inline void ownCutCorePlanes(OwnCarve& c, const OwnRimShape& s, std::size_t coreStride,
                             OwnPlaneSlots<Q, K>* out) {
    const std::size_t ch = static_cast<std::size_t>(s.coreH() > 0 ? s.coreH() : 0);
    Q* core = c.take<Q>(K * ch * coreStride, 64);
    for (int k = 0; k < K; ++k) out->core[k] = core + k * ch * coreStride;
    out->coreStride = static_cast<std::ptrdiff_t>(coreStride);
}

// The specified layout: K rim planes whose starts lie apartBytes apart.
template <class Q, int K>
inline void ownCutRimPlanes(OwnCarve& c, std::size_t apartBytes, OwnPlaneSlots<Q, K>* out) {
    c.align(64);
    for (int k = 0; k < K; ++k) out->rim[k] = reinterpret_cast<Q*>(c.at + k * apartBytes);
    c.skip(K * apartBytes);
}

// The pooled layout for a rim beyond its capacity: everything from the carve
// position to end is cut into K slots, each a rim followed by its core plane
// at the widest row stride that fits.
template <class Q, int K>
inline bool ownPoolPlaneSlots(OwnCarve& c, std::uintptr_t end, const OwnRimShape& s,
                              OwnPlaneSlots<Q, K>* out) {
    const std::size_t cw = static_cast<std::size_t>(s.coreW() > 0 ? s.coreW() : 0);
    const std::size_t ch = static_cast<std::size_t>(s.coreH() > 0 ? s.coreH() : 0);
    c.align(64);
    if (end <= c.at) return false;
    const std::size_t half = ((end - c.at) / K) & ~std::size_t{63};
    const std::size_t rimBytes = ownA64(s.elems() * sizeof(Q));
    const std::size_t strides[3] = {(cw + 15) & ~std::size_t{15}, (cw + 7) & ~std::size_t{7}, cw};
    for (std::size_t stride : strides) {
        if (rimBytes + ch * stride * sizeof(Q) > half) continue;
        out->coreStride = static_cast<std::ptrdiff_t>(stride);
        for (int k = 0; k < K; ++k) {
            const std::uintptr_t base = c.at + k * half;
            out->rim[k] = reinterpret_cast<Q*>(base);
            out->core[k] = reinterpret_cast<Q*>(base + rimBytes);
        }
        c.skip(K * half);
        return true;
    }
    return false;
}
