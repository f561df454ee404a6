// Spherical harmonics: directions per second for the closed forms and the
// recurrence (packed and plain bodies) against a straightforward scalar
// double-precision Legendre recurrence measured in the same run, and the
// transforms in points per second.  Outputs stay in cache: 128 directions.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdlib>
#include <vector>

#include "lumr.h"
#include "sh/sh.h"

namespace {

constexpr int kCount = 128;

struct Data {
    std::vector<Lum32f> x, y, z, s, s3, out;
    Data() {
        for (int i = 0; i < kCount; ++i) {
            const float a = std::sin(1.3f * i), b = std::cos(0.7f * i + 0.2f),
                        c = std::sin(2.1f * i + 1.0f);
            const float r = std::sqrt(a * a + b * b + c * c);
            x.push_back(a / r), y.push_back(b / r), z.push_back(c / r);
            s.push_back(0.5f + 0.25f * std::sin(0.3f * i));
            for (int k = 0; k < 3; ++k) s3.push_back(0.1f * k + s.back());
        }
        out.resize(kCount * 256 * 3);
    }
};

Data& data() {
    static Data d;
    return d;
}

struct State {
    std::vector<unsigned char> block;
    LumSHState* get() { return reinterpret_cast<LumSHState*>(block.data()); }
    explicit State(Lum32u algorithm) {
        Lum32u size = 0;
        lumrSHGetSize_32f(15, algorithm, &size);
        block.resize(size + 16);
        lumrSHInit_32f(get(), 15, algorithm);
    }
};

// The baseline: associated Legendre functions by the three-term recurrence in
// double for each direction, (x + iy)^m by complex products, normalisation
// from a table, one direction at a time.
class Baseline {
public:
    explicit Baseline(int L) : L_(L), k_((L + 1) * (L + 1)) {
        const double pi = std::acos(-1.0);
        for (int l = 0; l <= L; ++l)
            for (int m = 0; m <= l; ++m) {
                double ratio = 1.0;
                for (int i = l - m + 1; i <= l + m; ++i) ratio /= i;
                k_[l * l + l + m] = std::sqrt((2 * l + 1) / (4 * pi) * ratio) *
                                    (m ? std::sqrt(2.0) : 1.0);
            }
    }
    void eval(double x, double y, double z, Lum32f* out) const {
        double pmm = 1.0, re = 1.0, im = 0.0;
        for (int m = 0; m <= L_; ++m) {
            if (m > 0) {
                pmm *= -(2.0 * m - 1.0);
                const double r = re * x - im * y;
                im = re * y + im * x, re = r;
            }
            double p2 = 0.0, p1 = pmm;
            for (int l = m; l <= L_; ++l) {
                double p = p1;
                if (l == m + 1) {
                    p = z * (2.0 * m + 1.0) * pmm;
                } else if (l > m + 1) {
                    p = ((2.0 * l - 1.0) * z * p1 - (l + m - 1.0) * p2) / (l - m);
                }
                if (l > m) p2 = p1, p1 = p;
                const int c = l * l + l;
                const double kp = k_[c + m] * p;
                if (m == 0) {
                    out[c] = static_cast<Lum32f>(kp);
                } else {
                    out[c + m] = static_cast<Lum32f>(kp * re);
                    out[c - m] = static_cast<Lum32f>(kp * im);
                }
            }
        }
    }

private:
    int L_;
    std::vector<double> k_;
};

void BM_BaselineDouble(benchmark::State& st) {
    Data& d = data();
    const int L = static_cast<int>(st.range(0)), n = (L + 1) * (L + 1);
    const Baseline base(L);
    for (auto _ : st) {
        for (int i = 0; i < kCount; ++i) base.eval(d.x[i], d.y[i], d.z[i], d.out.data() + i * n);
        benchmark::ClobberMemory();
    }
    st.SetItemsProcessed(st.iterations() * kCount);
}

void BM_Basis(benchmark::State& st, Lum32u algorithm, ShBody body) {
    Data& d = data();
    State s(algorithm);
    const Lum32u L = static_cast<Lum32u>(st.range(0));
    for (auto _ : st) {
        if (algorithm == lumSHClosedForm)
            ownSHClosed(d.x.data(), d.y.data(), d.z.data(), kCount, d.out.data(), L, body);
        else
            ownSHRecurrence(d.x.data(), d.y.data(), d.z.data(), kCount, d.out.data(), L, s.get(),
                            body);
        benchmark::ClobberMemory();
    }
    st.SetItemsProcessed(st.iterations() * kCount);
}

void BM_SingleBand(benchmark::State& st) {
    Data& d = data();
    const Lum32u L = static_cast<Lum32u>(st.range(0));
    for (auto _ : st) {
        lumrSHBand_32f(d.x.data(), d.y.data(), d.z.data(), kCount, d.out.data(), L);
        benchmark::ClobberMemory();
    }
    st.SetItemsProcessed(st.iterations() * kCount);
}

enum Transform { FwdC1, FwdC3P3, FwdP3, InvC1, InvP3, InvP3C3 };

void BM_Transform(benchmark::State& st, Transform t, Lum32u algorithm) {
    Data& d = data();
    State s(algorithm);
    const Lum32u L = static_cast<Lum32u>(st.range(0));
    std::vector<Lum32f> c0(256, 0.0f), c1(256, 0.0f), c2(256, 0.0f);
    LumPlanes3 coeffs{c0.data(), c1.data(), c2.data()};
    LumPlanes3 samples{d.s.data(), d.s.data(), d.s.data()};
    Lum32f* o = d.out.data();
    LumPlanes3 outPlanes{o, o + kCount, o + 2 * kCount};
    const Lum32f *x = d.x.data(), *y = d.y.data(), *z = d.z.data();
    for (auto _ : st) {
        switch (t) {
            case FwdC1:
                lumrSHTFwd_32f_C1I(x, y, z, d.s.data(), kCount, c0.data(), L, s.get());
                break;
            case FwdC3P3:
                lumrSHTFwd_32f_C3P3I(x, y, z, d.s3.data(), kCount, &coeffs, L, s.get());
                break;
            case FwdP3: lumrSHTFwd_32f_P3I(x, y, z, &samples, kCount, &coeffs, L, s.get()); break;
            case InvC1: lumrSHTInv_32f_C1(c0.data(), L, x, y, z, o, kCount, s.get()); break;
            case InvP3: lumrSHTInv_32f_P3(&coeffs, L, x, y, z, &outPlanes, kCount, s.get()); break;
            case InvP3C3: lumrSHTInv_32f_P3C3(&coeffs, L, x, y, z, o, kCount, s.get()); break;
        }
        benchmark::ClobberMemory();
    }
    st.SetItemsProcessed(st.iterations() * kCount);
}

void bands(benchmark::internal::Benchmark* b) { b->Arg(3)->Arg(7)->Arg(15); }

}  // namespace

BENCHMARK(BM_BaselineDouble)->Apply(bands);
BENCHMARK_CAPTURE(BM_Basis, Closed, lumSHClosedForm, ShBody::Packed)->Apply(bands);
BENCHMARK_CAPTURE(BM_Basis, ClosedPlain, lumSHClosedForm, ShBody::Plain)->Apply(bands);
BENCHMARK_CAPTURE(BM_Basis, Recurrence, lumSHRecurrence, ShBody::Packed)->Apply(bands);
BENCHMARK_CAPTURE(BM_Basis, RecurrencePlain, lumSHRecurrence, ShBody::Plain)->Apply(bands);
BENCHMARK(BM_SingleBand)->Apply(bands);
BENCHMARK_CAPTURE(BM_Transform, FwdC1Rec, FwdC1, lumSHRecurrence)->Apply(bands);
BENCHMARK_CAPTURE(BM_Transform, FwdC1Closed, FwdC1, lumSHClosedForm)->Apply(bands);
BENCHMARK_CAPTURE(BM_Transform, FwdC3P3Rec, FwdC3P3, lumSHRecurrence)->Apply(bands);
BENCHMARK_CAPTURE(BM_Transform, FwdP3Rec, FwdP3, lumSHRecurrence)->Apply(bands);
BENCHMARK_CAPTURE(BM_Transform, InvC1Rec, InvC1, lumSHRecurrence)->Apply(bands);
BENCHMARK_CAPTURE(BM_Transform, InvC1Closed, InvC1, lumSHClosedForm)->Apply(bands);
BENCHMARK_CAPTURE(BM_Transform, InvP3Rec, InvP3, lumSHRecurrence)->Apply(bands);
BENCHMARK_CAPTURE(BM_Transform, InvP3C3Rec, InvP3C3, lumSHRecurrence)->Apply(bands);

BENCHMARK_MAIN();
