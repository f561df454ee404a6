// Remap through a coordinate field: statuses, the weight tables and tap
// rules, hand-worked faces and conversions, the downgrade, and the whole
// family against the reference on one to three threads.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "volume/interp/interp.h"
#include "volume/volume_fixture.h"

namespace {

using namespace voltest;

template <class T, class... Args>
LumStatus callRemap(const T* const* s, Args... args) {
    if constexpr (sizeof(T) == 1) return lumrRemap_8u_C1PV(s, args...);
    else if constexpr (sizeof(T) == 2) return lumrRemap_16u_C1PV(s, args...);
    else return lumrRemap_32f_C1PV(s, args...);
}

// A source, a coordinate field and a destination for one remap call.
template <class T>
struct Remap {
    Lum32s srcStep;  // as passed; the rows lie (srcStep >> shift) samples apart
    PlanarVolume<T> src;
    LumBox box;
    PlanarVolume<Lum32f> mx, my, mz;
    PlanarVolume<T> dst;

    Remap(LumVolume sv, LumBox b, LumVolume dv, Lum32s srcStep_ = 0, Lum32s mapStep = 0,
          Lum32s dstStep = 0)
        : srcStep(srcStep_ ? srcStep_ : sv.width * Lum32s(sizeof(T))),
          src(sv.width, sv.height, sv.depth, (srcStep >> (sizeof(T) / 2)) * Lum32s(sizeof(T))), box(b),
          mx(dv.width, dv.height, dv.depth, mapStep), my(dv.width, dv.height, dv.depth, mapStep),
          mz(dv.width, dv.height, dv.depth, mapStep), dst(dv.width, dv.height, dv.depth, dstStep) {}

    LumStatus run(Lum32s code) {
        const LumVolume sv{src.w, src.h, src.d}, dv{dst.w, dst.h, dst.d};
        return callRemap(src.src(), &sv, srcStep, &box, mx.src(), my.src(), mz.src(),
                         mx.stepBytes, dst.dst(), dst.stepBytes, &dv, code);
    }
    void at(Lum32s x, Lum32s y, Lum32s z, float X, float Y, float Z) {
        mx.set(x, y, z, X), my.set(x, y, z, Y), mz.set(x, y, z, Z);
    }
    // Every destination element against the reference, bit for bit.
    void expectReference(Lum32s code) {
        const LumSampleBounds b = clipBounds(box, src.w, src.h, src.d);
        const ref::Source rs{refType<T>(), reinterpret_cast<const void* const*>(src.src()),
                             srcStep >> (sizeof(T) / 2)};
        PlanarVolume<T> want(dst.w, dst.h, dst.d, dst.stepBytes);
        for (Lum32s z = 0; z < dst.d; ++z)
            for (Lum32s y = 0; y < dst.h; ++y)
                for (Lum32s x = 0; x < dst.w; ++x) {
                    const ref::Result r =
                        ref::remapSample(rs, b, code, mx.get(x, y, z), my.get(x, y, z), mz.get(x, y, z));
                    if (r.written) std::memcpy(want.bytes(x, y, z), &r.bits, sizeof(T));
                }
        expectSameBits(dst, want, code);
    }
};

template <class T>
class RemapTyped : public ::testing::Test {};
using SampleTypes = ::testing::Types<Lum8u, Lum16u, Lum32f>;
TYPED_TEST_SUITE(RemapTyped, SampleTypes);

TYPED_TEST(RemapTyped, StatusesInOrderAndNothingWritten) {
    using T = TypeParam;
    Remap<T> r({8, 8, 8}, {0, 0, 0, 8, 8, 8}, {4, 4, 4});
    r.mx.fill([](int x, int, int) { return float(x); });
    r.my.fill([](int, int y, int) { return float(y); });
    r.mz.fill([](int, int, int z) { return float(z); });
    PlanarVolume<T> canary(4, 4, 4);
    LumVolume sv{8, 8, 8}, dv{4, 4, 4};
    LumBox box{0, 0, 0, 8, 8, 8};
    auto call = [&](const T* const* s, const Lum32f* const* x, const Lum32f* const* y,
                    const Lum32f* const* z, T* const* d, Lum32s code) {
        return callRemap(s, &sv, r.srcStep, &box, x, y, z, r.mx.stepBytes, d, r.dst.stepBytes, &dv,
                         code);
    };
    const T* const* s = r.src.src();
    const Lum32f *const *x = r.mx.src(), *const *y = r.my.src(), *const *z = r.mz.src();
    T* const* d = r.dst.dst();
    EXPECT_EQ(call(nullptr, x, y, z, d, 1), lumStatusNullPtr);
    EXPECT_EQ(call(s, x, y, z, nullptr, 1), lumStatusNullPtr);
    EXPECT_EQ(call(s, nullptr, y, z, d, 1), lumStatusNullPtr);
    EXPECT_EQ(call(s, x, nullptr, z, d, 1), lumStatusNullPtr);
    sv.width = 0;  // a null field comes before a bad size
    EXPECT_EQ(call(s, x, y, nullptr, d, 1), lumStatusNullPtr);
    EXPECT_EQ(call(s, x, y, z, d, 99), lumStatusSize);  // sizes before the code
    sv = {8, 8, -1};
    EXPECT_EQ(call(s, x, y, z, d, 1), lumStatusSize);
    sv = {8, 8, 8};
    for (int f = 0; f < 6; ++f) {  // each corner negative, each extent empty
        box = {0, 0, 0, 8, 8, 8};
        (&box.x)[f] = f < 3 ? -1 : 0;
        EXPECT_EQ(call(s, x, y, z, d, 1), lumStatusSize) << f;
    }
    box = {0, 0, 0, 8, 8, 8};
    dv = {4, 0, 4};
    EXPECT_EQ(call(s, x, y, z, d, 1), lumStatusSize);
    dv = {4, 4, 4};
    box = {8, 0, 0, 2, 2, 2};  // corner beyond the volume, but a bad code first
    for (Lum32s code : {0, 3, 8, -1, 1000})
        EXPECT_EQ(call(s, x, y, z, d, code), lumStatusBadInterpolation);
    EXPECT_EQ(call(s, x, y, z, d, 1), lumWarnNoOverlap);
    box = {0, 0, 8, 2, 2, 2};
    EXPECT_EQ(call(s, x, y, z, d, 1), lumWarnNoOverlap);
    // An overhanging box is clipped without complaint; a field wholly outside
    // it (positions 0..3, box from 7) writes nothing and succeeds.
    box = {7, 7, 7, 100, 100, 100};
    for (Lum32s code : kCodes) EXPECT_EQ(call(s, x, y, z, d, code), lumStatusOk);
    EXPECT_TRUE(r.dst.same(canary));
}

TEST(CubicTables, EntriesAndLookup) {
    for (Lum32s code = 4; code <= 7; ++code) {
        const OwnCubicTable* t = ownCubicTableOf(code);
        float mine[208];
        ref::cubicTable(code, mine);
        for (int k = 0; k < 208; ++k) {
            EXPECT_EQ(t->w[k], mine[k]) << code << " " << k;  // the formula, rounded once
            EXPECT_FALSE(t->w[k] == 0.0f && std::signbit(t->w[k])) << code << " " << k;  // +0 only
        }
    }
    struct Row { int k; float w[4]; };
    const Row rows[] = {{0, {1.0f, 0.66666669f, 1.0f, 0.83333331f}},
                        {1, {0.99490052f, 0.66656715f, 0.99975151f, 0.83316427f}},
                        {100, {0.0f, 0.16666667f, 0.0f, 0.083333328f}},
                        {200, {0.0f, 0.0f, 0.0f, 0.0f}}};
    for (const Row& row : rows)
        for (int c = 0; c < 4; ++c)  // the last bit may differ by the evaluation
            EXPECT_NEAR(ownCubicTableOf(4 + c)->w[row.k], row.w[c], 1e-8f) << row.k << " " << c;

    float w[4];
    auto expectWeights = [&](const OwnCubicTable& t, float f, std::vector<float> want) {
        _mm_storeu_ps(w, ownCubicWeights(t.w, f));
        EXPECT_EQ(std::vector<float>(w, w + 4), want) << f;
    };
    expectWeights(ownCubicTable4, 0.0f, {0.0f, 1.0f, 0.0f, 0.0f});  // Lagrange reproduces samples
    // A fraction of exactly 1 gives the distances 2, 1, 0, 1; a NaN reads
    // no entry outside the table.
    expectWeights(ownCubicTable6, 1.0f, {0.0f, 0.0f, 1.0f, 0.0f});
    expectWeights(ownCubicTable4, std::numeric_limits<float>::quiet_NaN(), {0.0f, 0.0f, 0.0f, 0.0f});

    // The lookup stays apart from the polynomials themselves, by up to
    // 2.5e-5 (codes 4, 5), 6.2e-5 (6) and 4.3e-5 (7); a routine that
    // evaluated the polynomial would come within float rounding.
    const double bound[8] = {0, 0, 0, 0, 2.5e-5, 2.5e-5, 6.2e-5, 4.3e-5};
    for (Lum32s code = 4; code <= 7; ++code) {
        double worst = 0;
        for (int s = 0; s <= 20000; ++s) {
            const float f = float(s) / 20000.0f;
            _mm_storeu_ps(w, ownCubicWeights(ownCubicTableOf(code)->w, f));
            for (int o = -1; o <= 2; ++o)
                worst = std::fmax(worst,
                                  std::fabs(w[o + 1] - ref::cubicFilter(code, std::fabs(o - double(f)))));
        }
        EXPECT_LE(worst, bound[code] * 1.005) << code;
        EXPECT_GE(worst, bound[code] * 0.9) << code;
    }
}

TEST(CubicTables, TapRules) {
    // The low side is tested against 0, the high side against the box, and a
    // box ending at 0 or 1 keeps the taps 0, 0, 1, 2.
    struct Case { Lum32s i, hi; Lum32s taps[4]; bool border; };
    const Case cases[] = {{0, 9, {0, 0, 1, 2}, true},   {1, 9, {0, 1, 2, 3}, false},
                          {7, 9, {6, 7, 8, 9}, false},  {8, 9, {7, 8, 9, 9}, true},
                          {9, 9, {8, 9, 9, 9}, true},   {0, 1, {0, 0, 1, 2}, true},
                          {1, 1, {0, 1, 1, 1}, true},   {0, 0, {0, 0, 1, 2}, true}};
    for (const Case& c : cases) {
        Lum32s taps[4];
        EXPECT_EQ(ownCubicTaps(c.i, c.hi, taps), c.border) << c.i << " " << c.hi;
        EXPECT_EQ(std::vector<Lum32s>(taps, taps + 4), std::vector<Lum32s>(c.taps, c.taps + 4))
            << c.i << " " << c.hi;
    }
    // End to end: a box 3..6 on x in a volume 10 wide; column 2 lies one
    // below the box, columns 7..9 beyond it.
    Remap<Lum32f> a({10, 8, 8}, {3, 0, 0, 4, 8, 8}, {3, 1, 1});
    a.src.fill([](int x, int, int) { return x == 2 ? 600.0f : x >= 7 ? 900.0f : 0.0f; });
    a.at(0, 0, 0, 3.0f, 4.0f, 4.0f);  // i = 3: interior, tap -1 on column 2
    a.at(1, 0, 0, 5.5f, 4.0f, 4.0f);  // i = hi - 1: taps 4, 5, 6, 6
    a.at(2, 0, 0, 6.0f, 4.0f, 4.0f);  // i = hi: taps 5, 6, 6, 6
    ASSERT_EQ(a.run(LUM_RESAMPLE_BSPLINE), lumStatusOk);
    EXPECT_GT(a.dst.get(0, 0, 0), 90.0f);  // 600 x 1/6
    EXPECT_EQ(a.dst.get(1, 0, 0), 0.0f);
    EXPECT_EQ(a.dst.get(2, 0, 0), 0.0f);
}

TEST(Remap, InteriorAndBorderRoundingDiffer) {
    // Lagrange at f = 0.5 on x has the exact weights -1/16, 9/16, 9/16, -1/16,
    // at integer y and z the weights 0, 1, 0, 0: the row 2, 2, 3, 3 sums to
    // exactly 2.5.  Interior rounds half to even, the border adds 0.5000001.
    Remap<Lum8u> r8({8, 8, 8}, {0, 0, 0, 8, 8, 8}, {2, 1, 1});
    r8.src.fill([](int x, int, int) { return Lum8u(x < 3 ? 2 : 3); });
    r8.at(0, 0, 0, 2.5f, 3.0f, 3.0f);  // interior on every axis
    r8.at(1, 0, 0, 2.5f, 3.0f, 7.0f);  // z at the face of the box
    ASSERT_EQ(r8.run(LUM_RESAMPLE_LAGRANGE), lumStatusOk);
    EXPECT_EQ(r8.dst.get(0, 0, 0), 2);
    EXPECT_EQ(r8.dst.get(1, 0, 0), 3);
    Remap<Lum16u> r16({8, 8, 8}, {0, 0, 0, 8, 8, 8}, {2, 1, 1});
    r16.src.fill([](int x, int, int) { return Lum16u(x < 3 ? 4000 : 4001); });
    r16.at(0, 0, 0, 2.5f, 3.0f, 3.0f);
    r16.at(1, 0, 0, 2.5f, 6.0f, 3.0f);  // y at hi - 1
    ASSERT_EQ(r16.run(LUM_RESAMPLE_LAGRANGE), lumStatusOk);
    EXPECT_EQ(r16.dst.get(0, 0, 0), 4000);
    EXPECT_EQ(r16.dst.get(1, 0, 0), 4001);
}

TEST(Remap, NearestAndLinearAtTheFaces) {
    Remap<Lum16u> r({6, 6, 6}, {0, 0, 0, 6, 6, 6}, {4, 1, 1});
    r.src.fill([](int x, int y, int z) { return Lum16u(1 + x + 10 * y + 100 * z); });
    r.at(0, 0, 0, 0.5f, 1.5f, 2.5f);  // half to even: 0, 2, 2
    r.at(1, 0, 0, 5.0f, 5.0f, 5.0f);  // linear at xMax: the far sample
    r.at(2, 0, 0, 3.5f, 0.0f, 1.0f);
    ASSERT_EQ(r.run(LUM_RESAMPLE_NEAREST), lumStatusOk);
    EXPECT_EQ(r.dst.get(0, 0, 0), 1 + 0 + 20 + 200);
    ASSERT_EQ(r.run(LUM_RESAMPLE_LINEAR), lumStatusOk);
    EXPECT_EQ(r.dst.get(1, 0, 0), 1 + 5 + 50 + 500);
    EXPECT_EQ(r.dst.get(2, 0, 0), 1 + 3 + 0 + 100);  // 104.5 rounds to even

    // A box one sample wide at 0 lowers the index to -1 and reads that
    // column with weight zero: a NaN there poisons the float result.
    // Rows of 5 floats, plane pointers one float in, so column -1 exists.
    Remap<Lum32f> f({4, 4, 4}, {0, 0, 0, 1, 4, 4}, {1, 1, 1}, 5 * 4);
    f.src.fill([](int, int, int) { return 7.0f; });
    for (Lum32s z = 0; z < 4; ++z) {
        f.src.set(0, 0, z, std::numeric_limits<float>::quiet_NaN());
        f.src.planes[z] += 1;
    }
    f.at(0, 0, 0, 0.0f, 0.0f, 1.0f);
    ASSERT_EQ(f.run(LUM_RESAMPLE_LINEAR), lumStatusOk);
    EXPECT_TRUE(std::isnan(f.dst.get(0, 0, 0)));
}

// Random fields that hit the faces, integers, halves, and the floats just
// inside and just outside the box.
template <class T>
void fillRandomRemap(Remap<T>& r, std::mt19937& rng) {
    r.src.fill([&](int, int, int) { return randomSample<T>(rng); });
    const LumBox& b = r.box;
    auto coord = [&](Lum32s lo, Lum32s n, Lum32s size) {
        const Lum32s hi = lo + std::min(n, size - lo) - 1;
        const float v = std::uniform_real_distribution<float>(float(lo) - 0.6f, float(hi) + 0.6f)(rng);
        switch (std::uniform_int_distribution<int>(0, 11)(rng)) {
            case 0: return std::round(v);
            case 1: return std::floor(v) + 0.5f;
            case 2: return float(hi);
            case 3: return float(lo);
            case 4: return std::nextafter(float(hi), 0.0f);
            case 5: return std::nextafter(float(hi), 1e9f);
            case 6: return std::nextafter(float(lo), -1e9f);
            default: return v;
        }
    };
    r.mx.fill([&](int, int, int) { return coord(b.x, b.width, r.src.w); });
    r.my.fill([&](int, int, int) { return coord(b.y, b.height, r.src.h); });
    r.mz.fill([&](int, int, int) { return coord(b.z, b.depth, r.src.d); });
}

TEST(Remap, DowngradeOnSmallSourceVolumes) {
    // Below 4 on any axis of the volume cubic runs as linear, below 2 all
    // runs as nearest.  The test looks at the volume, not the clipped box.
    const LumBox all{0, 0, 0, 50, 50, 50}, thin{5, 0, 0, 1, 50, 50};
    const struct {
        LumVolume v;
        LumBox box;
        Lum32s code, runsAs;
    } cases[] = {{{3, 20, 20}, all, 6, 2}, {{4, 20, 20}, all, 6, 6}, {{20, 1, 20}, all, 7, 1},
                 {{20, 20, 1}, all, 2, 1}, {{2, 2, 2}, all, 7, 2},   {{20, 20, 20}, thin, 6, 6}};
    std::mt19937 rng(5);
    for (const auto& c : cases) {
        Remap<Lum32f> r(c.v, c.box, {7, 5, 3});
        fillRandomRemap(r, rng);
        ASSERT_EQ(r.run(c.code), lumStatusOk);
        r.expectReference(c.runsAs);
    }
}

TYPED_TEST(RemapTyped, MatchesReferenceOnOneToThreeThreads) {
    using T = TypeParam;
    std::mt19937 rng(1234 + sizeof(T));
    const LumBox boxes[] = {{0, 0, 0, 13, 11, 9}, {2, 1, 3, 8, 7, 40}, {1, 4, 2, 2, 3, 5}};
    for (Lum32s code : kCodes) {
        for (int n = 0; n < 3; ++n) {
            // Odd byte steps, field rows at odd addresses; the source step of
            // the middle case negative, which floors to -16 samples.
            const Lum32s srcStep = (n == 1 ? -1 : 1) * Lum32s(15 * sizeof(T) + 1);
            Remap<T> r({13, 11, 9}, boxes[n], {9, 7, 6}, srcStep, 9 * 4 + 3, 9 * sizeof(T) + 5);
            fillRandomRemap(r, rng);
            ASSERT_EQ(r.run(code), lumStatusOk);
            r.expectReference(code);
        }
        // 16 and more in every destination extent: the planes are split.
        Remap<T> r({24, 20, 18}, {1, 1, 1, 22, 18, 16}, {17, 16, 19});
        fillRandomRemap(r, rng);
        for (Lum32s n : {1, 2, 3}) {
            ThreadCount threads(n);
            r.dst.reset();
            ASSERT_EQ(r.run(code), lumStatusOk);
            r.expectReference(code);
        }
    }
}

}  // namespace
