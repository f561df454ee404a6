// Resize throughput in output Mvoxel/s on a 256^3 source: factors 2.0, 0.5
// and (1.3, 0.7, 1.0), every sample type and interpolation code on one
// thread, and the contiguous float form (the one that splits its work) on two.
// A plain copy of the same output size runs alongside as the memory baseline.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "lumr.h"

namespace {

constexpr int kN = 256;
const double kFactors[3][3] = {{2.0, 2.0, 2.0}, {0.5, 0.5, 0.5}, {1.3, 0.7, 1.0}};
const char* const kFactorNames[3] = {"x2.0", "x0.5", "x1.3,0.7,1.0"};

template <class T>
std::vector<T>& source() {
    static std::vector<T> v = [] {
        std::vector<T> s(size_t(kN) * kN * kN);
        std::mt19937 g(1);
        for (T& x : s) x = static_cast<T>(g() % 251);
        return s;
    }();
    return v;
}

LumStatus run(const Lum8u* s, Lum8u* d, const LumVolume* v, const LumBox* sb, const LumBox* db,
              Lum32s ds, const double* f, int code, Lum8u* buf) {
    return lumrResize_8u_C1V(s, v, kN, kN * kN, sb, d, ds, ds * db->height, db, f[0], f[1], f[2],
                             0, 0, 0, code, buf);
}
LumStatus run(const Lum16u* s, Lum16u* d, const LumVolume* v, const LumBox* sb, const LumBox* db,
              Lum32s ds, const double* f, int code, Lum8u* buf) {
    return lumrResize_16u_C1V(s, v, 2 * kN, 2 * kN * kN, sb, d, ds, ds * db->height, db, f[0],
                              f[1], f[2], 0, 0, 0, code, buf);
}
LumStatus run(const Lum32f* s, Lum32f* d, const LumVolume* v, const LumBox* sb, const LumBox* db,
              Lum32s ds, const double* f, int code, Lum8u* buf) {
    return lumrResize_32f_C1V(s, v, 4 * kN, 4 * kN * kN, sb, d, ds, ds * db->height, db, f[0],
                              f[1], f[2], 0, 0, 0, code, buf);
}

LumBox outBox(int fi) {
    const double* f = kFactors[fi];
    return {0, 0, 0, int(kN * f[0] + 0.5), int(kN * f[1] + 0.5), int(kN * f[2] + 0.5)};
}

template <class T>
void BM_Resize(benchmark::State& st, int fi, int code, int threads) {
    lumSetNumThreads(threads);
    const LumVolume vol{kN, kN, kN};
    const LumBox sb{0, 0, 0, kN, kN, kN}, db = outBox(fi);
    Lum32s size = 0;
    lumrResizeGetBufSize(&sb, &db, 1, code, &size);
    std::vector<Lum8u> buf(size_t(size) + 64);
    const size_t voxels = size_t(db.width) * db.height * db.depth;
    std::vector<T> dst(voxels);
    const Lum32s ds = db.width * Lum32s(sizeof(T));
    for (auto _ : st) {
        if (run(source<T>().data(), dst.data(), &vol, &sb, &db, ds, kFactors[fi], code,
                buf.data()) != lumStatusOk)
            st.SkipWithError("resize failed");
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    st.counters["Mvoxel/s"] = benchmark::Counter(double(voxels) * st.iterations() / 1e6,
                                                 benchmark::Counter::kIsRate);
    lumSetNumThreads(1);
}

// The memory baseline: one float copy of the output volume.
void BM_CopyBaseline(benchmark::State& st, int fi) {
    const LumBox db = outBox(fi);
    const size_t voxels = size_t(db.width) * db.height * db.depth;
    std::vector<float> a(voxels, 1.0f), b(voxels);
    for (auto _ : st) {
        std::memcpy(b.data(), a.data(), voxels * sizeof(float));
        benchmark::ClobberMemory();
    }
    st.counters["Mvoxel/s"] = benchmark::Counter(double(voxels) * st.iterations() / 1e6,
                                                 benchmark::Counter::kIsRate);
}

}  // namespace

int main(int argc, char** argv) {
    const int codes[] = {1, 2, 4, 5, 6, 7};
    for (int fi = 0; fi < 3; ++fi) {
        const std::string f = kFactorNames[fi];
        benchmark::RegisterBenchmark(("copy32f/" + f).c_str(), BM_CopyBaseline, fi)
            ->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(0.5);
        for (int code : codes) {
            const std::string c = "/code" + std::to_string(code) + "/" + f;
            benchmark::RegisterBenchmark(("8u_C1V" + c + "/t1").c_str(), BM_Resize<Lum8u>, fi, code, 1)
                ->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(0.5);
            benchmark::RegisterBenchmark(("16u_C1V" + c + "/t1").c_str(), BM_Resize<Lum16u>, fi, code, 1)
                ->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(0.5);
            for (int t : {1, 2})
                benchmark::RegisterBenchmark(("32f_C1V" + c + "/t" + std::to_string(t)).c_str(),
                                             BM_Resize<Lum32f>, fi, code, t)
                    ->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(0.5);
        }
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
