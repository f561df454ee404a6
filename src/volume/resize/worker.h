// The one resampler behind all six entry points: the sample type and the
// storage form are template parameters, the interpolation code picks the
// kernel family once per call.
#pragma once

#include <cmath>

#include "volume/resize/cubic.h"
#include "volume/resize/linear.h"
#include "volume/resize/nearest.h"
#include "volume/resize/tables.h"

namespace own_resize_detail {

template <class T, class Storage>
LumStatus localNearest(const OwnResizeJob<T, Storage>& j) {
    OwnCarve c(j.scratch);
    c.align(16);
    Lum32s* xi = c.take<Lum32s>(j.width, 16);
    Lum32s* yo = c.take<Lum32s>(j.height, 16);
    Lum32s* zo = c.take<Lum32s>(j.depth, 16);
    for (Lum32s k = 0; k < j.width; ++k)
        xi[k] = ownResizeNearestIndex(ownResizeCoordNearest(j.inv[0], j.xBegin + k, j.off[0]), j.nx);
    for (Lum32s k = 0; k < j.height; ++k)
        yo[k] = ownMul32(ownResizeNearestIndex(
                             ownResizeCoordNearest(j.inv[1], j.yBegin + k, j.off[1]), j.ny),
                         j.srcStepN);
    for (Lum32s k = 0; k < j.depth; ++k) {
        const Lum32s zi =
            ownResizeNearestIndex(ownResizeCoordNearest(j.inv[2], j.zStart + k, j.off[2]), j.nz);
        zo[k] = j.src.entry(zi);
        T* out = j.dst.plane(k);
        if (k > 0 && zo[k] == zo[k - 1]) {
            // A repeated source plane costs a copy, not a gather.
            const LumStatus st =
                ownResizeCopyPlane<T>(j.dst.plane(k - 1), out, j.width, j.height, j.dstStepN);
            if (st != lumStatusOk) return st;
        } else {
            ownResizeGather<T>(j.src.plane(zo[k]), xi, yo, j.width, j.height, out, j.dstStepN);
        }
    }
    return lumStatusOk;
}

// Linear table of one axis: index (times mult) and fraction per destination
// index; lead samples (s < 0) and trail samples (s >= n - 1) are counted and
// get the clamped index 0 or n - 1.
template <class Put>
void localLinearAxis(double inv, double off, Lum32s begin, Lum32s count, Lum32s n, Lum32s mult,
                     Lum32s* idx, Lum32s* lead, Lum32s* trail, Put&& put) {
    *lead = 0, *trail = 0;
    for (Lum32s k = 0; k < count; ++k) {
        const double s = ownResizeCoord(inv, begin + k, off);
        const double fi = std::floor(s);
        Lum32s i;
        if (s < 0.0) {
            ++*lead, i = 0;
        } else if (s >= static_cast<double>(n - 1)) {
            ++*trail, i = n - 1;
        } else {
            i = static_cast<Lum32s>(fi);
        }
        idx[k] = ownMul32(i, mult);
        put(k, s - fi);
    }
}

// Leading samples among the first two indices of an axis: the integer tables
// are shifted so that the first core entry falls on a 16-byte boundary.
inline Lum32s localLeadOfFirstTwo(double inv, double off, Lum32s begin, Lum32s count) {
    Lum32s lead = 0;
    for (Lum32s k = 0; k < count && k < 2; ++k)
        if (ownResizeCoord(inv, begin + k, off) < 0.0) ++lead;
    return lead;
}

template <class T, class Storage>
LumStatus localLinear(const OwnResizeJob<T, Storage>& j) {
    using Form = OwnLinearForm<T>;
    using Q = typename Form::Q;
    using W = typename Form::W;
    const Lum32s Wd = j.width, Hd = j.height, Dd = j.depth;
    OwnCarve c(j.scratch);
    c.align(16);
    Lum32s* xi = c.take<Lum32s>(Wd, 16);
    Lum32s* yo = c.take<Lum32s>(Hd, 16);
    Lum32s* zo = c.take<Lum32s>(Dd, 16);
    W *wx, *wy, *wz;
    if constexpr (sizeof(T) == 4) {
        wx = c.take<W>(Wd, 64);
        wy = c.take<W>(Hd, 64);
        wz = c.take<W>(Dd, 64);
    } else {
        // One lead sample moves the x table on by 3 pairs (y: 7 entries), two
        // by 2 pairs (y: 6 entries); the 16 spare bytes take the move.
        Lum8u* rx = c.take<Lum8u>(4 * static_cast<std::size_t>(Wd) + 16, 64);
        Lum8u* ry = c.take<Lum8u>(2 * static_cast<std::size_t>(Hd) + 16, 64);
        wz = c.take<W>(Dd, 64);
        const Lum32s lx = localLeadOfFirstTwo(j.inv[0], j.off[0], j.xBegin, Wd);
        const Lum32s ly = localLeadOfFirstTwo(j.inv[1], j.off[1], j.yBegin, Hd);
        wx = reinterpret_cast<W*>(rx + (lx == 1 ? 12 : lx == 2 ? 8 : 0));
        wy = reinterpret_cast<W*>(ry + (ly == 1 ? 14 : ly == 2 ? 12 : 0));
    }
    OwnRimShape s{Wd, Hd, 0, 0, 0, 0};
    Lum32s zl = 0, zt = 0;
    auto putX = [&](Lum32s k, double f) {
        if constexpr (sizeof(T) == 4) {
            wx[k] = static_cast<Lum32f>(f);
        } else {
            const Lum16u wb = ownResizeQ14(f);
            wx[2 * k] = static_cast<Lum16u>(16384 - wb), wx[2 * k + 1] = wb;
        }
    };
    auto putW = [](W* t) {
        return [t](Lum32s k, double f) {
            if constexpr (sizeof(T) == 4)
                t[k] = static_cast<Lum32f>(f);
            else
                t[k] = ownResizeQ14(f);
        };
    };
    localLinearAxis(j.inv[0], j.off[0], j.xBegin, Wd, j.nx, 1, xi, &s.L, &s.R, putX);
    localLinearAxis(j.inv[1], j.off[1], j.yBegin, Hd, j.ny, j.srcStepN, yo, &s.T, &s.B, putW(wy));
    localLinearAxis(j.inv[2], j.off[2], j.zStart, Dd, j.nz, 1, zo, &zl, &zt, putW(wz));
    for (Lum32s k = 0; k < Dd; ++k) zo[k] = j.src.entry(zo[k]);

    const Lum32s cw = s.coreW(), ch = s.coreH();
    const bool core = cw > 0 && ch > 0;
    Q* slot[2];
    slot[0] = c.take<Q>(cw > 0 ? cw : 0, 64);
    slot[1] = c.take<Q>(cw > 0 ? cw : 0, 64);
    OwnPlaneSlots<Q, 2> ps;
    const std::size_t rimCap = 4 * (static_cast<std::size_t>(Wd) + Hd);
    if (s.elems() <= rimCap) {
        ownCutCorePlanes<Q, 2>(c, s, ownA64(cw > 0 ? cw : 0), &ps);
        ownCutRimPlanes<Q, 2>(c, rimCap * sizeof(Q), &ps);
    } else {
        const std::uintptr_t end = reinterpret_cast<std::uintptr_t>(j.scratch) +
                                   static_cast<std::uint32_t>(ownResizeBufSizeOne(Wd, Hd, Dd, 2));
        if (!ownPoolPlaneSlots<Q, 2>(c, end, s, &ps)) return lumStatusSize;  // cannot happen
    }

    const OwnLinearTables<T> tb{xi, wx, yo, wy, zo, wz};
    const Lum32s srcStep = j.srcStepN;
    auto plane2D = [&](const T* plane, T* out) {
        ownResizeLinearRim<T, T>(plane, srcStep, j.nx, j.ny, tb, s,
                                 ownRimDstSink<T>(out, j.dstStepN, s));
        if (core) ownResizeLinearCore2D<T>(plane, srcStep, tb, s, slot, out, j.dstStepN);
    };
    for (Lum32s k = 0; k < zl; ++k) plane2D(j.src.plane(j.src.entry(0)), j.dst.plane(k));
    for (Lum32s k = Dd - zt; k < Dd; ++k)
        plane2D(j.src.plane(j.src.entry(j.nz - 1)), j.dst.plane(k));
    if (zl + zt >= Dd) return lumStatusOk;

    // The plane ring: a source plane is filtered once, when the sampling
    // position first reaches it; each destination plane is one z step.
    OwnTagRing<2> ring;
    for (Lum32s k = zl; k < Dd - zt; ++k) {
        const Lum32s o = zo[k];
        const Lum32s want[2] = {o, ownAdd32(o, j.src.entryStep())};
        ring.ensure(want, [&](int id, Lum32s e) {
            const T* plane = j.src.plane(e);
            ownResizeLinearRim<T, Q>(plane, srcStep, j.nx, j.ny, tb, s,
                                     ownRimPlaneSink<Q>(ps.rim[id], s));
            if (core)
                ownResizeLinearCorePlane<T>(plane, srcStep, tb, s, slot, ps.core[id],
                                            ps.coreStride);
        });
        T* out = j.dst.plane(k);
        const int a = ring.id[0], b = ring.id[1];
        ownResizeLinearRimZ<T>(ps.rim[a], ps.rim[b], wz[k], s, ownRimDstSink<T>(out, j.dstStepN, s));
        if (core)
            ownResizeLinearCoreZ<T>(ps.core[a], ps.core[b], ps.coreStride, wz[k], s, out,
                                    j.dstStepN);
    }
    return lumStatusOk;
}

}  // namespace own_resize_detail

template <class T, class Storage>
LumStatus ownResizeWorker(const OwnResizeJob<T, Storage>& job) {
    if (job.code == LUM_RESAMPLE_NEAREST) return own_resize_detail::localNearest(job);
    if (job.code == LUM_RESAMPLE_LINEAR) return own_resize_detail::localLinear(job);
    return ownResizeCubic(job);
}
