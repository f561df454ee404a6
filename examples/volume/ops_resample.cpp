// Resize, affine warp and swirl remap over the three sample types.
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "common/aligned.h"
#include "common/progress.h"
#include "volume/ops.h"

namespace demo {

namespace {

template <class T>
struct Calls;
template <>
struct Calls<Lum8u> {
    static constexpr auto resize = lumrResize_8u_C1PV;
    static constexpr auto warp = lumrWarpAffine_8u_C1PV;
    static constexpr auto remap = lumrRemap_8u_C1PV;
};
template <>
struct Calls<Lum16u> {
    static constexpr auto resize = lumrResize_16u_C1PV;
    static constexpr auto warp = lumrWarpAffine_16u_C1PV;
    static constexpr auto remap = lumrRemap_16u_C1PV;
};
template <>
struct Calls<Lum32f> {
    static constexpr auto resize = lumrResize_32f_C1PV;
    static constexpr auto warp = lumrWarpAffine_32f_C1PV;
    static constexpr auto remap = lumrRemap_32f_C1PV;
};

// The first failure of any thread, warnings included.
void keepFirst(LumStatus* shared, LumStatus mine) {
    if (mine == lumStatusOk) return;
#pragma omp critical(demoResampleStatus)
    if (*shared == lumStatusOk) *shared = mine;
}

template <class T>
LumStatus resizeTyped(const Volume& src, Volume* dst, Lum32s code, const double f[3],
                      Progress* progress) {
    const std::vector<const T*> in = src.planes<T>();
    const std::vector<T*> out = dst->planes<T>();
    const LumVolume srcVolume{src.width(), src.height(), src.depth()};
    const LumBox srcBox{0, 0, 0, src.width(), src.height(), src.depth()};
    const int depth = dst->depth();
    // Resize in this form stays on the calling thread: slabs of planes go to
    // threads here, each with its own scratch.  Every destination sample
    // depends on its own index alone, so the cut changes no value.
    const int slab = std::max(8, depth / 16);
    const int slabs = (depth + slab - 1) / slab;
    LumStatus status = lumStatusOk;
#pragma omp parallel
    {
        const LumBox widest{0, 0, 0, dst->width(), dst->height(), slab};
        Lum32s bytes = 0;
        LumStatus mine = lumrResizeGetBufSize(&srcBox, &widest, 1, code, &bytes);
        AlignedArray<Lum8u> buffer(mine == lumStatusOk ? static_cast<size_t>(bytes) : 0);
#pragma omp for schedule(dynamic)
        for (int s = 0; s < slabs; ++s) {
            if (mine != lumStatusOk) continue;
            const int z0 = s * slab, n = std::min(slab, depth - z0);
            const LumBox dstBox{0, 0, z0, dst->width(), dst->height(), n};
            mine = Calls<T>::resize(in.data(), &srcVolume, src.step(), &srcBox, out.data(),
                                    dst->step(), &dstBox, f[0], f[1], f[2], 0.0, 0.0, 0.0,
                                    code, buffer.data());
            if (progress) progress->advance(n);
        }
        keepFirst(&status, mine);
    }
    return status;
}

template <class T>
LumStatus warpTyped(const Volume& src, Volume* dst, Lum32s code, const Lum64f coeffs[3][4],
                    Progress* progress) {
    const std::vector<const T*> in = src.planes<T>();
    const std::vector<T*> out = dst->planes<T>();
    const LumVolume srcVolume{src.width(), src.height(), src.depth()};
    const LumBox srcBox{0, 0, 0, src.width(), src.height(), src.depth()};
    // The warp spreads planes over threads itself; slabs here only pace the
    // progress bar and stay deep enough for its split.
    const int depth = dst->depth(), slab = slabPlanes(depth);
    for (int z0 = 0; z0 < depth; z0 += slab) {
        const int n = std::min(slab, depth - z0);
        const LumBox dstBox{0, 0, z0, dst->width(), dst->height(), n};
        const LumStatus s = Calls<T>::warp(in.data(), &srcVolume, src.step(), &srcBox, out.data(),
                                           dst->step(), &dstBox, coeffs, code);
        if (s != lumStatusOk) return s;
        if (progress) progress->advance(n);
    }
    return lumStatusOk;
}

template <class T>
LumStatus remapTyped(const Volume& src, Volume* dst, Lum32s code, const Volume& mx,
                     const Volume& my, const Volume& mz, Progress* progress) {
    const std::vector<const T*> in = src.planes<T>();
    const std::vector<T*> out = dst->planes<T>();
    const std::vector<const Lum32f*> px = mx.planes<Lum32f>(), py = my.planes<Lum32f>(),
                                     pz = mz.planes<Lum32f>();
    const LumVolume srcVolume{src.width(), src.height(), src.depth()};
    const LumBox srcBox{0, 0, 0, src.width(), src.height(), src.depth()};
    const int depth = dst->depth(), slab = slabPlanes(depth);
    for (int z0 = 0; z0 < depth; z0 += slab) {
        const int n = std::min(slab, depth - z0);
        const LumVolume part{dst->width(), dst->height(), n};
        const LumStatus s = Calls<T>::remap(in.data(), &srcVolume, src.step(), &srcBox,
                                            px.data() + z0, py.data() + z0, pz.data() + z0,
                                            mx.step(), out.data() + z0, dst->step(), &part, code);
        if (s != lumStatusOk) return s;
        if (progress) progress->advance(n);
    }
    return lumStatusOk;
}

}  // namespace

LumStatus resizeVolume(const Volume& src, Volume* dst, Lum32s code, double fx, double fy,
                       double fz, Progress* progress) {
    if (src.empty()) return lumStatusSize;
    if (!(fx > 0.0) || !(fy > 0.0) || !(fz > 0.0)) return lumStatusBadResizeFactor;
    const double f[3] = {fx, fy, fz};
    const int w = std::max(1, static_cast<int>(std::lround(src.width() * fx)));
    const int h = std::max(1, static_cast<int>(std::lround(src.height() * fy)));
    const int d = std::max(1, static_cast<int>(std::lround(src.depth() * fz)));
    *dst = Volume(src.type(), w, h, d);
    for (int k = 0; k < 3; ++k) dst->spacing[k] = src.spacing[k] / f[k];
    switch (src.type()) {
        case SampleType::U8: return resizeTyped<Lum8u>(src, dst, code, f, progress);
        case SampleType::U16: return resizeTyped<Lum16u>(src, dst, code, f, progress);
        case SampleType::F32: return resizeTyped<Lum32f>(src, dst, code, f, progress);
    }
    return lumStatusBadArg;
}

LumStatus warpVolume(const Volume& src, Volume* dst, Lum32s code, double degrees, char axis,
                     double scale, Progress* progress) {
    if (src.empty()) return lumStatusSize;
    Lum64f coeffs[3][4];
    affineAboutCentre(src.width(), src.height(), src.depth(), degrees, axis, scale, coeffs);
    // Samples that come from outside the source are not written: they stay 0.
    *dst = Volume(src.type(), src.width(), src.height(), src.depth());
    for (int k = 0; k < 3; ++k) dst->spacing[k] = src.spacing[k];
    switch (src.type()) {
        case SampleType::U8: return warpTyped<Lum8u>(src, dst, code, coeffs, progress);
        case SampleType::U16: return warpTyped<Lum16u>(src, dst, code, coeffs, progress);
        case SampleType::F32: return warpTyped<Lum32f>(src, dst, code, coeffs, progress);
    }
    return lumStatusBadArg;
}

LumStatus swirlVolume(const Volume& src, Volume* dst, Lum32s code, double degrees,
                      Progress* progress) {
    if (src.empty()) return lumStatusSize;
    const int w = src.width(), h = src.height(), d = src.depth();
    Volume mx(SampleType::F32, w, h, d), my(SampleType::F32, w, h, d), mz(SampleType::F32, w, h, d);
#pragma omp parallel for schedule(static)
    for (int z = 0; z < d; ++z)
        for (int y = 0; y < h; ++y) {
            float* rx = mx.row<float>(y, z);
            float* ry = my.row<float>(y, z);
            float* rz = mz.row<float>(y, z);
            for (int x = 0; x < w; ++x) swirlSource(w, h, d, degrees, x, y, z, rx + x, ry + x, rz + x);
        }
    *dst = Volume(src.type(), w, h, d);
    for (int k = 0; k < 3; ++k) dst->spacing[k] = src.spacing[k];
    switch (src.type()) {
        case SampleType::U8: return remapTyped<Lum8u>(src, dst, code, mx, my, mz, progress);
        case SampleType::U16: return remapTyped<Lum16u>(src, dst, code, mx, my, mz, progress);
        case SampleType::F32: return remapTyped<Lum32f>(src, dst, code, mx, my, mz, progress);
    }
    return lumStatusBadArg;
}

}  // namespace demo
