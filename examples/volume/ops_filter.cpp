// Smoothing through lumrFilter_16s_C1PV.  The filter has no border handling
// and runs on the calling thread, so this step pads the volume itself and
// spreads slabs of planes over threads.
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "common/aligned.h"
#include "common/progress.h"
#include "volume/ops.h"

namespace demo {

namespace {

// How samples of each type enter and leave the signed 16-bit range.
struct To16s {
    SampleType type;
    double scale;  // 32f only: 16-bit units per sample unit

    Lum16s in(double v) const {
        switch (type) {
            case SampleType::U8: return static_cast<Lum16s>(v);
            case SampleType::U16: return static_cast<Lum16s>(static_cast<int>(v) >> 1);
            case SampleType::F32: break;
        }
        const double s = std::nearbyint(v * scale);
        return static_cast<Lum16s>(std::max(-32767.0, std::min(32767.0, s)));
    }
    double out(Lum16s v) const {
        switch (type) {
            case SampleType::U8: return v;
            case SampleType::U16: return 2.0 * v;
            case SampleType::F32: break;
        }
        return v / scale;
    }
};

}  // namespace

LumStatus filterVolume(const Volume& src, Volume* dst, int size, Progress* progress) {
    if (size != 3 && size != 5) return lumStatusBadArg;
    if (src.empty()) return lumStatusSize;
    const int r = size / 2;
    const int w = src.width(), h = src.height(), d = src.depth();

    To16s conv{src.type(), 1.0};
    if (src.type() == SampleType::F32) {
        double lo, hi;
        src.range(&lo, &hi);
        const double peak = std::max(std::fabs(lo), std::fabs(hi));
        conv.scale = peak > 0.0 ? 32767.0 / peak : 1.0;
    }

    // Padded 16s copy: edges replicated r samples out on every side.
    const int pw = w + 2 * r, ph = h + 2 * r, pd = d + 2 * r;
    const int32_t padStep = ((pw * 2 + 15) / 16) * 16;
    const size_t padRow = static_cast<size_t>(padStep / 2), padPlane = padRow * ph;
    AlignedArray<Lum16s> padded(padPlane * pd);
#pragma omp parallel for schedule(static)
    for (int pz = 0; pz < pd; ++pz) {
        const int z = std::min(std::max(pz - r, 0), d - 1);
        for (int py = 0; py < ph; ++py) {
            const int y = std::min(std::max(py - r, 0), h - 1);
            Lum16s* row = padded.data() + padPlane * pz + padRow * py;
            for (int px = 0; px < pw; ++px)
                row[px] = conv.in(src.get(std::min(std::max(px - r, 0), w - 1), y, z));
        }
    }
    // Plane pointers at (r, r) of each padded plane: index q is source z = q - r.
    std::vector<const Lum16s*> srcPlanes(static_cast<size_t>(pd));
    for (int q = 0; q < pd; ++q)
        srcPlanes[static_cast<size_t>(q)] = padded.data() + padPlane * q + padRow * r + r;

    const int32_t outStep = ((w * 2 + 15) / 16) * 16;
    const size_t outRow = static_cast<size_t>(outStep / 2), outPlane = outRow * h;
    AlignedArray<Lum16s> out(outPlane * d);
    std::vector<Lum16s*> dstPlanes(static_cast<size_t>(d));
    for (int z = 0; z < d; ++z) dstPlanes[static_cast<size_t>(z)] = out.data() + outPlane * z;

    // Binomial weights: separable, symmetric, summing to a power of two.
    const int b3[3] = {1, 2, 1}, b5[5] = {1, 4, 6, 4, 1};
    const int* b = size == 3 ? b3 : b5;
    std::vector<Lum32s> kernel(static_cast<size_t>(size * size * size));
    Lum32s sum = 0;
    for (int k = 0; k < size; ++k)
        for (int j = 0; j < size; ++j)
            for (int i = 0; i < size; ++i) {
                kernel[static_cast<size_t>((k * size + j) * size + i)] = b[i] * b[j] * b[k];
                sum += b[i] * b[j] * b[k];
            }
    const LumVolume kernelVolume{size, size, size};
    const LumPoint3D anchor{r, r, r};

    const int slab = std::max(1, std::min(8, d / 32));
    const int slabs = (d + slab - 1) / slab;
    LumStatus status = lumStatusOk;
#pragma omp parallel
    {
        const LumVolume widest{w, h, slab};
        Lum32s bytes = 0;
        LumStatus mine = lumrFilterGetBufSize(&widest, &kernelVolume, 1, &bytes);
        AlignedArray<Lum8u> buffer(mine == lumStatusOk ? static_cast<size_t>(bytes) : 0);
#pragma omp for schedule(dynamic)
        for (int s = 0; s < slabs; ++s) {
            if (mine != lumStatusOk) continue;
            const int z0 = s * slab, n = std::min(slab, d - z0);
            const LumVolume part{w, h, n};
            mine = lumrFilter_16s_C1PV(srcPlanes.data() + r + z0, padStep, dstPlanes.data() + z0,
                                       outStep, &part, kernel.data(), &kernelVolume, &anchor,
                                       sum, buffer.data());
            if (progress) progress->advance(n);
        }
        if (mine != lumStatusOk) {
#pragma omp critical(demoFilterStatus)
            status = mine;
        }
    }
    if (status != lumStatusOk) return status;

    *dst = Volume(src.type(), w, h, d);
    for (int k = 0; k < 3; ++k) dst->spacing[k] = src.spacing[k];
#pragma omp parallel for schedule(static)
    for (int z = 0; z < d; ++z)
        for (int y = 0; y < h; ++y) {
            const Lum16s* row = dstPlanes[static_cast<size_t>(z)] + outRow * y;
            for (int x = 0; x < w; ++x) dst->set(x, y, z, conv.out(row[x]));
        }
    return lumStatusOk;
}

}  // namespace demo
