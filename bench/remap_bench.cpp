// Remap throughput: a 256^3 source read through a smooth coordinate field
// into a 256 x 256 x 32 destination, per sample type, code and thread count.
// Reported as items per second = destination voxels per second.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "lumr.h"

namespace {

constexpr Lum32s kSrc = 256, kDx = 256, kDy = 256, kDz = 32;

// The smooth field, the same formula the scipy peer script uses.
void fieldAt(int x, int y, int z, float* X, float* Y, float* Z) {
    const double tau = 6.283185307179586;
    *X = float(1.0 + 0.98 * x + 2.0 * std::sin(tau * y / 256.0));
    *Y = float(1.0 + 0.98 * y + 2.0 * std::sin(tau * z / 64.0 + x / 80.0));
    *Z = float(100.0 + 1.5 * z + 3.0 * std::sin(tau * x / 256.0));
}

struct Field {
    std::vector<float> x, y, z;
    std::vector<const Lum32f*> px, py, pz;
    Field() : x(size_t(kDx) * kDy * kDz), y(x.size()), z(x.size()) {
        for (int k = 0; k < kDz; ++k)
            for (int j = 0; j < kDy; ++j)
                for (int i = 0; i < kDx; ++i) {
                    const size_t n = (size_t(k) * kDy + j) * kDx + i;
                    fieldAt(i, j, k, &x[n], &y[n], &z[n]);
                }
        for (int k = 0; k < kDz; ++k) {
            px.push_back(x.data() + size_t(k) * kDx * kDy);
            py.push_back(y.data() + size_t(k) * kDx * kDy);
            pz.push_back(z.data() + size_t(k) * kDx * kDy);
        }
    }
};

const Field& field() {
    static const Field f;
    return f;
}

template <class T>
struct Volumes {
    std::vector<T> src, dst;
    std::vector<const T*> ps;
    std::vector<T*> pd;
    Volumes() : src(size_t(kSrc) * kSrc * kSrc), dst(size_t(kDx) * kDy * kDz) {
        for (size_t n = 0; n < src.size(); ++n) {  // a smooth volume with some texture
            const size_t x = n % kSrc, y = (n / kSrc) % kSrc, z = n / (size_t(kSrc) * kSrc);
            src[n] = T(120.0 + 100.0 * std::sin(x * 0.05) * std::cos(y * 0.07) + (z % 7));
        }
        for (int k = 0; k < kSrc; ++k) ps.push_back(src.data() + size_t(k) * kSrc * kSrc);
        for (int k = 0; k < kDz; ++k) pd.push_back(dst.data() + size_t(k) * kDx * kDy);
    }
};

LumStatus call(const Lum8u* const* s, const LumVolume* v, const LumBox* b, const Field& f,
               Lum8u* const* d, const LumVolume* dv, Lum32s code) {
    return lumrRemap_8u_C1PV(s, v, kSrc, b, f.px.data(), f.py.data(), f.pz.data(), kDx * 4, d, kDx,
                             dv, code);
}
LumStatus call(const Lum16u* const* s, const LumVolume* v, const LumBox* b, const Field& f,
               Lum16u* const* d, const LumVolume* dv, Lum32s code) {
    return lumrRemap_16u_C1PV(s, v, kSrc * 2, b, f.px.data(), f.py.data(), f.pz.data(), kDx * 4, d,
                              kDx * 2, dv, code);
}
LumStatus call(const Lum32f* const* s, const LumVolume* v, const LumBox* b, const Field& f,
               Lum32f* const* d, const LumVolume* dv, Lum32s code) {
    return lumrRemap_32f_C1PV(s, v, kSrc * 4, b, f.px.data(), f.py.data(), f.pz.data(), kDx * 4, d,
                              kDx * 4, dv, code);
}

template <class T>
void remapBench(benchmark::State& state, Lum32s code, Lum32s threads) {
    static Volumes<T> vol;
    const Field& f = field();
    const LumVolume sv{kSrc, kSrc, kSrc}, dv{kDx, kDy, kDz};
    const LumBox box{0, 0, 0, kSrc, kSrc, kSrc};
    lumSetNumThreads(threads);
    for (auto _ : state) {
        benchmark::DoNotOptimize(call(vol.ps.data(), &sv, &box, f, vol.pd.data(), &dv, code));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * int64_t(kDx) * kDy * kDz);
}

}  // namespace

int main(int argc, char** argv) {
    const char* names[] = {"", "nearest", "linear", "", "lagrange", "bspline", "catmullrom", "cubicbc"};
    for (Lum32s threads : {1, 2})
        for (Lum32s code : {1, 2, 4, 5, 6, 7}) {
            const std::string tail = std::string("/") + names[code] + "/threads:" + std::to_string(threads);
            benchmark::RegisterBenchmark(("remap_8u" + tail).c_str(), remapBench<Lum8u>, code, threads)
                ->Unit(benchmark::kMillisecond)->UseRealTime();
            benchmark::RegisterBenchmark(("remap_16u" + tail).c_str(), remapBench<Lum16u>, code, threads)
                ->Unit(benchmark::kMillisecond)->UseRealTime();
            benchmark::RegisterBenchmark(("remap_32f" + tail).c_str(), remapBench<Lum32f>, code, threads)
                ->Unit(benchmark::kMillisecond)->UseRealTime();
        }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
