// Masked stream arithmetic: vector body against the plain loop (forced by a
// length that is not a multiple of 4) and against memcpy moving the same
// number of bytes, in cache (4 Ki lanes) and out of cache (16 Mi lanes).
// Bytes counted per lane are those each function reads plus writes.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

#include "lumr.h"

namespace {

struct Streams {
    explicit Streams(int n) : n(n) {
        for (auto& v : f) {
            v.assign(size_t(n) + 16, 0.0f);
        }
        m.assign(size_t(n) + 16, 0);
        std::mt19937 rng(1);
        std::uniform_real_distribution<float> u(0.5f, 2.0f);
        for (int i = 0; i < n; ++i) {
            for (auto& v : f) v[i] = u(rng);
            f[9][i] = (i & 1) ? 1.0f : -1.0f;  // in-place products stay clear of denormals
            m[i] = (i / 64) % 8 == 7 ? -1 : 0;  // mostly on, some all-off groups
        }
        for (int k = 0; k < 3; ++k) {
            a = {ptr(0), ptr(1), ptr(2)};
            b = {ptr(3), ptr(4), ptr(5)};
            d = {ptr(6), ptr(7), ptr(8)};
        }
    }
    Lum32f* ptr(int k) { return f[k].data(); }
    int n;
    std::vector<Lum32f> f[11];  // vectors allocate on 16-byte boundaries here
    std::vector<Lum32s> m;
    LumPlanes3 a, b, d;
};

Streams& streams(int n) {
    static Streams small(4096), large(16 << 20);
    return n == 4096 ? small : large;
}

enum Body { kVector, kPlain };

template <class Fn>
void run(benchmark::State& state, int bytesPerLane, Fn fn) {
    Streams& s = streams(int(state.range(0)));
    const int len = state.range(1) == kVector ? s.n : s.n - 1;
    for (auto _ : state) {
        fn(s, len);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * len * bytesPerLane);
}

void Mul_C1P3IM(benchmark::State& st) {
    run(st, 32, [](Streams& s, int len) { lumrMul_32f_C1P3IM(s.ptr(9), s.m.data(), &s.d, len); });
}
void AddMulMul_AC1P3IM(benchmark::State& st) {
    const Lum32f k[3] = {0.5f, 0.25f, 0.125f};
    run(st, 44, [&](Streams& s, int len) {
        lumrAddMulMul_32f_AC1P3IM(k, s.ptr(9), &s.a, s.m.data(), &s.d, len);
    });
}
void Dot_P3C1M(benchmark::State& st) {
    run(st, 32, [](Streams& s, int len) { lumrDot_32f_P3C1M(&s.a, &s.b, s.m.data(), s.ptr(9), len); });
}
void DotChangeNorm_IM(benchmark::State& st) {
    run(st, 44, [](Streams& s, int len) {
        lumrDotChangeNorm_32f_IM(&s.a, s.m.data(), &s.b, s.ptr(9), len);
    });
}
void DistAttenuationSO_M(benchmark::State& st) {
    const Lum32f o[3] = {0.1f, 0.2f, 0.3f};
    run(st, 20, [&](Streams& s, int len) {
        lumrDistAttenuationSO_32f_M(o, &s.a, s.m.data(), s.ptr(9), len);
    });
}

// memcpy moving the same traffic as a 32-byte-per-lane function: 16 bytes
// read and 16 written per lane.
void Memcpy32PerLane(benchmark::State& state) {
    Streams& s = streams(int(state.range(0)));
    for (auto _ : state) {
        std::memcpy(s.ptr(6), s.ptr(0), size_t(s.n) * 4);
        std::memcpy(s.ptr(7), s.ptr(1), size_t(s.n) * 4);
        std::memcpy(s.ptr(8), s.ptr(2), size_t(s.n) * 4);
        std::memcpy(s.ptr(10), s.ptr(3), size_t(s.n) * 4);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * s.n * 32);
}

void Args(benchmark::internal::Benchmark* b) {
    for (int n : {4096, 16 << 20})
        for (int body : {kVector, kPlain}) b->Args({n, body});
    b->ArgNames({"lanes", "plain"});
}

BENCHMARK(Mul_C1P3IM)->Apply(Args);
BENCHMARK(AddMulMul_AC1P3IM)->Apply(Args);
BENCHMARK(Dot_P3C1M)->Apply(Args);
BENCHMARK(DotChangeNorm_IM)->Apply(Args);
BENCHMARK(DistAttenuationSO_M)->Apply(Args);
BENCHMARK(Memcpy32PerLane)->Arg(4096)->Arg(16 << 20)->ArgName("lanes");

}  // namespace

BENCHMARK_MAIN();
