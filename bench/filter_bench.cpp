// Volume filter throughput on a 256^3 signed 16-bit volume, in Mvoxel/s,
// one thread.  Each kernel runs twice with the same amount of work: once
// with small elements (the vector path) and once with elements whose sum
// passes 98301 (the scalar path).  Compare the two in the same run; rates
// are per CPU second, since the machine may be shared.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "lumr.h"

namespace {

constexpr Lum32s kN = 256;
constexpr Lum32s kPad = 4;  // room for every tap of kernels up to 7 (8 in x)

struct Volumes {
    Volumes()
        : srcStepN(kN + 2 * kPad),
          src(size_t(srcStepN) * srcStepN * srcStepN),
          dst(size_t(kN) * kN * kN) {
        std::mt19937 rng(7);
        std::uniform_int_distribution<int> u(-2000, 2000);
        for (Lum16s& s : src) s = static_cast<Lum16s>(u(rng));
        for (Lum32s z = 0; z < srcStepN; ++z)
            srcPlanes.push_back(src.data() + (size_t(z) * srcStepN + kPad) * srcStepN + kPad);
        for (Lum32s z = 0; z < kN; ++z) dstPlanes.push_back(dst.data() + size_t(z) * kN * kN);
    }
    Lum32s srcStepN;
    std::vector<Lum16s> src, dst;
    std::vector<const Lum16s*> srcPlanes;
    std::vector<Lum16s*> dstPlanes;
};

Volumes& volumes() {
    static Volumes v;
    return v;
}

// args: kw, kh, kd, scalar (0 or 1)
void BM_Filter(benchmark::State& state) {
    const Lum32s kw = state.range(0), kh = state.range(1), kd = state.range(2);
    const bool scalar = state.range(3) != 0;
    const Lum32s count = kw * kh * kd;
    // Same shape, same work; only the sum of the elements decides the path.
    const Lum32s element = scalar ? 98301 / count + 1 : 1;
    const std::vector<Lum32s> kernel(count, element);
    const Lum32s divisor = element * count;  // a divide-mode divisor for all three shapes

    Volumes& v = volumes();
    const LumVolume dv{kN, kN, kN}, kv{kw, kh, kd};
    const LumPoint3D anchor{kw / 2, kh / 2, kd / 2};
    Lum32s size = 0;
    if (lumrFilterGetBufSize(&dv, &kv, 1, &size) != lumStatusOk) state.SkipWithError("buffer size");
    std::vector<Lum8u> buffer(size);
    for (auto _ : state) {
        const LumStatus st =
            lumrFilter_16s_C1PV(v.srcPlanes.data() + kPad, v.srcStepN * 2, v.dstPlanes.data(),
                                kN * 2, &dv, kernel.data(), &kv, &anchor, divisor, buffer.data());
        if (st != lumStatusOk) state.SkipWithError("filter failed");
        benchmark::DoNotOptimize(v.dst.data());
        benchmark::ClobberMemory();
    }
    const double voxels = double(kN) * kN * kN;
    state.counters["Mvoxel/s"] =
        benchmark::Counter(voxels * 1e-6 * double(state.iterations()), benchmark::Counter::kIsRate);
    state.SetLabel(scalar ? "scalar" : "vector");
}

BENCHMARK(BM_Filter)
    ->ArgNames({"kw", "kh", "kd", "scalar"})
    ->Args({3, 3, 3, 0})
    ->Args({3, 3, 3, 1})
    ->Args({5, 5, 5, 0})
    ->Args({5, 5, 5, 1})
    ->Args({3, 5, 7, 0})
    ->Args({3, 5, 7, 1})
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
