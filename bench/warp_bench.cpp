// Affine warp throughput: a 256^3 source rotated by 20 degrees about z and
// scaled by 1.2 about the centre, into a 256 x 256 x 32 destination box in
// the middle of the volume, per sample type, code and thread count.
// Reported as items per second = destination voxels per second (samples
// mapping outside the source count too: they are tested and skipped).
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "lumr.h"

namespace {

constexpr Lum32s kN = 256, kDz = 32, kZ0 = 112;

// Forward map, source to destination: 1.2 R (p - c) + c, R about z.
void forwardMap(Lum64f c[3][4]) {
    const double a = 20.0 * 3.14159265358979323846 / 180.0, s = 1.2, m = 127.5;
    const double r[3][3] = {{s * std::cos(a), -s * std::sin(a), 0}, {s * std::sin(a), s * std::cos(a), 0}, {0, 0, s}};
    for (int i = 0; i < 3; ++i) {
        double t = m;
        for (int j = 0; j < 3; ++j) c[i][j] = r[i][j], t -= r[i][j] * m;
        c[i][3] = t;
    }
}

template <class T>
struct Volumes {
    std::vector<T> src, dst;
    std::vector<const T*> ps;
    std::vector<T*> pd;
    Volumes() : src(size_t(kN) * kN * kN), dst(size_t(kN) * kN * kN) {
        for (size_t n = 0; n < src.size(); ++n) {
            const size_t x = n % kN, y = (n / kN) % kN, z = n / (size_t(kN) * kN);
            src[n] = T(120.0 + 100.0 * std::sin(x * 0.05) * std::cos(y * 0.07) + (z % 7));
        }
        for (int k = 0; k < kN; ++k) ps.push_back(src.data() + size_t(k) * kN * kN);
        for (int k = 0; k < kN; ++k) pd.push_back(dst.data() + size_t(k) * kN * kN);
    }
};

LumStatus call(const Lum8u* const* s, const LumVolume* v, const LumBox* b, Lum8u* const* d,
               const LumBox* db, const Lum64f c[3][4], Lum32s code) {
    return lumrWarpAffine_8u_C1PV(s, v, kN, b, d, kN, db, c, code);
}
LumStatus call(const Lum16u* const* s, const LumVolume* v, const LumBox* b, Lum16u* const* d,
               const LumBox* db, const Lum64f c[3][4], Lum32s code) {
    return lumrWarpAffine_16u_C1PV(s, v, kN * 2, b, d, kN * 2, db, c, code);
}
LumStatus call(const Lum32f* const* s, const LumVolume* v, const LumBox* b, Lum32f* const* d,
               const LumBox* db, const Lum64f c[3][4], Lum32s code) {
    return lumrWarpAffine_32f_C1PV(s, v, kN * 4, b, d, kN * 4, db, c, code);
}

template <class T>
void warpBench(benchmark::State& state, Lum32s code, Lum32s threads) {
    static Volumes<T> vol;
    Lum64f c[3][4];
    forwardMap(c);
    const LumVolume sv{kN, kN, kN};
    const LumBox box{0, 0, 0, kN, kN, kN}, dbox{0, 0, kZ0, kN, kN, kDz};
    lumSetNumThreads(threads);
    for (auto _ : state) {
        benchmark::DoNotOptimize(call(vol.ps.data(), &sv, &box, vol.pd.data(), &dbox, c, code));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * int64_t(kN) * kN * kDz);
}

}  // namespace

int main(int argc, char** argv) {
    const char* names[] = {"", "nearest", "linear", "", "lagrange", "bspline", "catmullrom", "cubicbc"};
    for (Lum32s threads : {1, 2})
        for (Lum32s code : {1, 2, 4, 5, 6, 7}) {
            const std::string tail = std::string("/") + names[code] + "/threads:" + std::to_string(threads);
            benchmark::RegisterBenchmark(("warp_8u" + tail).c_str(), warpBench<Lum8u>, code, threads)
                ->Unit(benchmark::kMillisecond)->UseRealTime();
            benchmark::RegisterBenchmark(("warp_16u" + tail).c_str(), warpBench<Lum16u>, code, threads)
                ->Unit(benchmark::kMillisecond)->UseRealTime();
            benchmark::RegisterBenchmark(("warp_32f" + tail).c_str(), warpBench<Lum32f>, code, threads)
                ->Unit(benchmark::kMillisecond)->UseRealTime();
        }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
