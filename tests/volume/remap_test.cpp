// Remap through a coordinate field: statuses, range test, weight tables,
// taps, conversions, downgrade, and the whole family against the reference.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "volume/interp/interp.h"
#include "volume/remap_fixture.h"

namespace {

using namespace remaptest;

LumStatus callRemap(const Lum8u* const* s, const LumVolume* sv, Lum32s ss, const LumBox* sb,
                    const Lum32f* const* x, const Lum32f* const* y, const Lum32f* const* z,
                    Lum32s ms, Lum8u* const* d, Lum32s ds, const LumVolume* dv, Lum32s c) {
    return lumrRemap_8u_C1PV(s, sv, ss, sb, x, y, z, ms, d, ds, dv, c);
}
LumStatus callRemap(const Lum16u* const* s, const LumVolume* sv, Lum32s ss, const LumBox* sb,
                    const Lum32f* const* x, const Lum32f* const* y, const Lum32f* const* z,
                    Lum32s ms, Lum16u* const* d, Lum32s ds, const LumVolume* dv, Lum32s c) {
    return lumrRemap_16u_C1PV(s, sv, ss, sb, x, y, z, ms, d, ds, dv, c);
}
LumStatus callRemap(const Lum32f* const* s, const LumVolume* sv, Lum32s ss, const LumBox* sb,
                    const Lum32f* const* x, const Lum32f* const* y, const Lum32f* const* z,
                    Lum32s ms, Lum32f* const* d, Lum32s ds, const LumVolume* dv, Lum32s c) {
    return lumrRemap_32f_C1PV(s, sv, ss, sb, x, y, z, ms, d, ds, dv, c);
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

    LumVolume srcVolume() const { return {src.w, src.h, src.d}; }
    LumVolume dstVolume() const { return {dst.w, dst.h, dst.d}; }
    LumStatus run(Lum32s code) {
        const LumVolume sv = srcVolume(), dv = dstVolume();
        return callRemap(src.src(), &sv, srcStep, &box, mx.src(), my.src(), mz.src(),
                         mx.stepBytes, dst.dst(), dst.stepBytes, &dv, code);
    }
    void at(Lum32s x, Lum32s y, Lum32s z, float X, float Y, float Z) {
        mx.set(x, y, z, X), my.set(x, y, z, Y), mz.set(x, y, z, Z);
    }
    // Every destination element against the reference, bit for bit.
    void expectReference(Lum32s code) {
        const LumVolume sv = srcVolume();
        const LumSampleBounds b = {box.x, box.y, box.z,
                                   box.x + std::min(box.width, sv.width - box.x) - 1,
                                   box.y + std::min(box.height, sv.height - box.y) - 1,
                                   box.z + std::min(box.depth, sv.depth - box.z) - 1};
        const ref::Source rs{refType<T>(), reinterpret_cast<const void* const*>(src.src()),
                             srcStep >> (sizeof(T) / 2)};
        PlanarVolume<T> canary(dst.w, dst.h, dst.d, dst.stepBytes);
        int bad = 0;
        for (Lum32s z = 0; z < dst.d; ++z)
            for (Lum32s y = 0; y < dst.h; ++y)
                for (Lum32s x = 0; x < dst.w; ++x) {
                    const ref::Result r =
                        ref::remapSample(rs, b, code, mx.get(x, y, z), my.get(x, y, z), mz.get(x, y, z));
                    const uint32_t want = r.written ? r.bits : canary.bits(x, y, z);
                    if (dst.bits(x, y, z) != want && ++bad < 5)
                        ADD_FAILURE() << "code " << code << " at " << x << "," << y << "," << z
                                      << " pos " << mx.get(x, y, z) << "," << my.get(x, y, z) << ","
                                      << mz.get(x, y, z) << " got " << dst.bits(x, y, z)
                                      << " want " << want;
                }
        EXPECT_EQ(bad, 0) << "code " << code;
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
        return callRemap(s, &sv, r.srcStep, &box, x, y, z, r.mx.stepBytes, d,
                         r.dst.stepBytes, &dv, code);
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
    for (Lum32s code : {0, 3, 8, -1, 1000}) EXPECT_EQ(call(s, x, y, z, d, code), lumStatusBadInterpolation);
    EXPECT_EQ(call(s, x, y, z, d, 1), lumWarnNoOverlap);
    box = {0, 0, 8, 2, 2, 2};
    EXPECT_EQ(call(s, x, y, z, d, 1), lumWarnNoOverlap);
    EXPECT_TRUE(r.dst.same(canary));
    box = {7, 7, 7, 100, 100, 100};  // overhang is clipped without complaint
    for (Lum32s code : kCodes) EXPECT_EQ(call(s, x, y, z, d, code), lumStatusOk);
}

TEST(Remap, RangeTestIsStrictInFloat) {
    Remap<Lum8u> r({10, 10, 10}, {2, 2, 2, 4, 4, 4}, {6, 1, 1});  // bounds 2..5
    r.src.fill([](int x, int y, int z) { return Lum8u(x + 10 * y + 100 * (z % 2)); });
    const float in[] = {2.0f, 5.0f, 5.0f};
    const float out[] = {std::nextafter(2.0f, 0.0f), std::nextafter(5.0f, 6.0f), 5.25f};
    for (Lum32s code : kCodes) {
        r.dst.reset();
        for (int e = 0; e < 3; ++e) r.at(e, 0, 0, in[e], 3.0f, in[e]);
        for (int e = 0; e < 3; ++e) r.at(3 + e, 0, 0, 3.0f, out[e], 3.0f);
        ASSERT_EQ(r.run(code), lumStatusOk);
        for (int e = 0; e < 3; ++e) EXPECT_NE(r.dst.get(e, 0, 0), 0xA5) << code << " in " << e;
        for (int e = 3; e < 6; ++e) EXPECT_EQ(r.dst.get(e, 0, 0), 0xA5) << code << " out " << e;
        if (code <= 2) {  // the samples themselves at the faces of the box
            EXPECT_EQ(r.dst.get(0, 0, 0), 2 + 30 + 0);
            EXPECT_EQ(r.dst.get(1, 0, 0), 5 + 30 + 100);
        }
    }
}

TEST(CubicTables, FormulaTellingRowsAndReference) {
    for (Lum32s code = 4; code <= 7; ++code) {
        const OwnCubicTable* t = ownCubicTableOf(code);
        float mine[208];
        ref::cubicTable(code, mine);
        for (int k = 0; k < 208; ++k) {
            const double f = k <= 200 ? ref::cubicFilter(code, k / 100.0) : 0.0;
            EXPECT_LE(std::fabs(double(t->w[k]) - f), 6e-8) << code << " " << k;
            EXPECT_EQ(t->w[k], mine[k]) << code << " " << k;
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
}

TEST(CubicTables, WeightsAndTapRules) {
    float w[4];
    auto expectWeights = [&](const OwnCubicTable& t, float f, std::vector<float> want) {
        _mm_storeu_ps(w, ownCubicWeights(t.w, f));
        EXPECT_EQ(std::vector<float>(w, w + 4), want) << f;
    };
    expectWeights(ownCubicTable4, 0.0f, {0.0f, 1.0f, 0.0f, 0.0f});  // Lagrange reproduces samples
    const float s6 = ownCubicTable5.w[100], s23 = ownCubicTable5.w[0];
    expectWeights(ownCubicTable5, 0.0f, {s6, s23, s6, 0.0f});  // the B-spline smooths
    // A fraction of exactly 1 gives the distances 2, 1, 0, 1.
    expectWeights(ownCubicTable6, 1.0f, {0.0f, 0.0f, 1.0f, 0.0f});
    // Lookup between entries, against a scalar evaluation of the rule.
    for (float f : {0.123f, 0.5f, 0.999f}) {
        _mm_storeu_ps(w, ownCubicWeights(ownCubicTable7.w, f));
        for (int o = -1; o <= 2; ++o) {
            const float u = std::fabs(float(o) - f) * 100.0f;
            const int n = int(u);
            const float* T = ownCubicTable7.w;
            EXPECT_EQ(w[o + 1], T[n] + (T[n + 1] - T[n]) * (u - float(n))) << f << " " << o;
        }
    }
    _mm_storeu_ps(w, ownCubicWeights(ownCubicTable4.w, std::numeric_limits<float>::quiet_NaN()));
    for (float v : w) EXPECT_EQ(v, 0.0f);  // no lookup leaves the table

    struct Case { Lum32s i, hi; Lum32s taps[4]; bool border; };
    const Case cases[] = {{0, 9, {0, 0, 1, 2}, true},   {1, 9, {0, 1, 2, 3}, false},
                          {7, 9, {6, 7, 8, 9}, false},  {8, 9, {7, 8, 9, 9}, true},
                          {9, 9, {8, 9, 9, 9}, true},   {0, 1, {0, 0, 1, 2}, true},
                          {1, 1, {0, 1, 1, 1}, true},   {0, 0, {0, 0, 1, 2}, true}};
    for (const Case& c : cases) {
        Lum32s taps[4];
        EXPECT_EQ(ownCubicTaps(c.i, c.hi, taps), c.border) << c.i << " " << c.hi;
        for (int n = 0; n < 4; ++n) EXPECT_EQ(taps[n], c.taps[n]) << c.i << " " << c.hi;
    }
}

TEST(Remap, CubicTapsReachBelowTheBoxButNotAbove) {
    // Box 3..6 on x in a volume 10 wide; column 2 is one below the box,
    // columns 7..9 beyond it.
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

TEST(Remap, InteriorAndBorderConversionsDiffer) {
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

    // 32f: the interior keeps the fraction, the border passes through an
    // integer (10.75 -> 10, -0.75 -> +0.0); linear keeps it everywhere.
    Remap<Lum32f> rf({8, 8, 8}, {0, 0, 0, 8, 8, 8}, {4, 1, 1});
    rf.src.fill([](int, int y, int) { return y == 0 ? -0.75f : 10.75f; });
    rf.at(0, 0, 0, 3.0f, 3.0f, 3.0f);
    rf.at(1, 0, 0, 0.0f, 3.0f, 3.0f);
    rf.at(2, 0, 0, 3.0f, 0.0f, 3.0f);
    rf.at(3, 0, 0, 7.0f, 0.0f, 7.0f);
    ASSERT_EQ(rf.run(LUM_RESAMPLE_LAGRANGE), lumStatusOk);
    EXPECT_EQ(rf.dst.get(0, 0, 0), 10.75f);
    EXPECT_EQ(rf.dst.get(1, 0, 0), 10.0f);
    EXPECT_EQ(rf.dst.bits(2, 0, 0), 0u);  // +0.0, not -0.0
    ASSERT_EQ(rf.run(LUM_RESAMPLE_LINEAR), lumStatusOk);
    EXPECT_EQ(rf.dst.get(1, 0, 0), 10.75f);
    EXPECT_EQ(rf.dst.get(3, 0, 0), -0.75f);
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

TEST(Remap, DowngradeOnSmallSourceVolumes) {
    auto run = [](LumVolume sv, LumBox box, Lum32s code) {
        Remap<Lum32f> r(sv, box, {7, 5, 3});
        r.src.fill([](int x, int y, int z) { return float(x * x + 3 * y - z) * 0.37f; });
        std::mt19937 rng(5);
        auto pos = [&](Lum32s lo, Lum32s n) {
            return std::uniform_real_distribution<float>(float(lo), float(lo + n - 1))(rng);
        };
        r.mx.fill([&](int, int, int) { return pos(box.x, std::min(box.width, sv.width - box.x)); });
        r.my.fill([&](int, int, int) { return pos(box.y, std::min(box.height, sv.height - box.y)); });
        r.mz.fill([&](int, int, int) { return pos(box.z, std::min(box.depth, sv.depth - box.z)); });
        EXPECT_EQ(r.run(code), lumStatusOk);
        return r.dst.blocks;
    };
    const LumBox all{0, 0, 0, 50, 50, 50};
    EXPECT_EQ(run({3, 20, 20}, all, 6), run({3, 20, 20}, all, 2));
    EXPECT_NE(run({4, 20, 20}, all, 6), run({4, 20, 20}, all, 2));
    for (Lum32s code : kCodes) EXPECT_EQ(run({20, 1, 20}, all, code), run({20, 1, 20}, all, 1));
    EXPECT_EQ(run({2, 2, 2}, all, 7), run({2, 2, 2}, all, 2));
    EXPECT_NE(run({2, 2, 2}, all, 7), run({2, 2, 2}, all, 1));
    // The test looks at the volume, not the clipped box.
    const LumBox thin{5, 0, 0, 1, 50, 50};
    EXPECT_NE(run({20, 20, 20}, thin, 6), run({20, 20, 20}, thin, 2));
}

TEST(Remap, StepUnitsAndFieldsOutsideTheBox) {
    // 16u with a source step of 101 bytes walks 50 samples per row; the
    // destination step of 101 bytes is taken in bytes.
    Remap<Lum16u> r({40, 4, 4}, {0, 0, 0, 40, 4, 4}, {2, 3, 1}, 101, 0, 101);
    for (Lum32s z = 0; z < 4; ++z)
        for (Lum32s i = 0; i < 50 * 4; ++i) {
            const Lum16u v = Lum16u(i + 1000 * z);
            std::memcpy(r.src.blocks[z].data() + 2 * i, &v, 2);
        }
    r.mx.fill([](int x, int, int) { return float(3 + x); });
    r.my.fill([](int, int y, int) { return float(y); });
    r.mz.fill([](int, int, int) { return 2.0f; });
    ASSERT_EQ(r.run(LUM_RESAMPLE_NEAREST), lumStatusOk);
    for (Lum32s y = 0; y < 3; ++y)
        for (Lum32s x = 0; x < 2; ++x) {
            Lum16u got;
            std::memcpy(&got, r.dst.blocks[0].data() + 101 * y + 2 * x, 2);
            EXPECT_EQ(got, 2000 + 50 * y + 3 + x);
        }
    // A field wholly outside the box writes nothing and succeeds.
    Remap<Lum8u> o({8, 8, 8}, {2, 2, 2, 3, 3, 3}, {5, 4, 3});
    o.mx.fill([](int x, int, int) { return x % 2 ? 1.5f : 4.25f; });
    o.my.fill([](int, int, int) { return 3.0f; });
    o.mz.fill([](int, int, int) { return 3.0f; });
    PlanarVolume<Lum8u> canary(5, 4, 3);
    for (Lum32s code : kCodes) {
        EXPECT_EQ(o.run(code), lumStatusOk);
        EXPECT_TRUE(o.dst.same(canary)) << code;
    }
}

// Random fields that hit the faces, integers, halves and just outside.
template <class T>
void fillRandomRemap(Remap<T>& r, std::mt19937& rng) {
    r.src.fill([&](int, int, int) { return randomSample<T>(rng); });
    const LumBox& b = r.box;
    auto coord = [&](Lum32s lo, Lum32s n, Lum32s size) {
        const Lum32s hi = lo + std::min(n, size - lo) - 1;
        const int kind = std::uniform_int_distribution<int>(0, 9)(rng);
        std::uniform_real_distribution<float> any(float(lo) - 0.6f, float(hi) + 0.6f);
        const float v = any(rng);
        switch (kind) {
            case 0: return std::round(v);
            case 1: return std::floor(v) + 0.5f;
            case 2: return float(hi);
            case 3: return float(lo);
            case 4: return std::nextafter(float(hi), 0.0f);
            default: return v;
        }
    };
    r.mx.fill([&](int, int, int) { return coord(b.x, b.width, r.src.w); });
    r.my.fill([&](int, int, int) { return coord(b.y, b.height, r.src.h); });
    r.mz.fill([&](int, int, int) { return coord(b.z, b.depth, r.src.d); });
}

TYPED_TEST(RemapTyped, MatchesReferenceBitForBit) {
    using T = TypeParam;
    std::mt19937 rng(1234 + sizeof(T));
    const LumBox boxes[] = {{0, 0, 0, 13, 11, 9}, {2, 1, 3, 8, 7, 40}, {1, 4, 2, 2, 3, 5}};
    for (const LumBox& box : boxes)
        for (Lum32s code : kCodes) {
            // Odd source and destination steps, field rows at odd addresses.
            Remap<T> r({13, 11, 9}, box, {9, 7, 6}, 13 * sizeof(T) + 2 * sizeof(T) + 1, 9 * 4 + 3,
                       9 * sizeof(T) + 5);
            fillRandomRemap(r, rng);
            ASSERT_EQ(r.run(code), lumStatusOk);
            r.expectReference(code);
        }
}

TYPED_TEST(RemapTyped, SameResultWithOneTwoAndThreeThreads) {
    using T = TypeParam;
    std::mt19937 rng(99);
    for (Lum32s code : kCodes) {
        Remap<T> r({24, 20, 18}, {1, 1, 1, 22, 18, 16}, {17, 16, 19});
        fillRandomRemap(r, rng);
        std::vector<std::vector<std::vector<uint8_t>>> out;
        for (Lum32s n : {1, 2, 3}) {
            ThreadCount threads(n);
            r.dst = PlanarVolume<T>(17, 16, 19);
            ASSERT_EQ(r.run(code), lumStatusOk);
            out.push_back(r.dst.blocks);
        }
        r.expectReference(code);
        EXPECT_EQ(out[0], out[1]) << code;
        EXPECT_EQ(out[0], out[2]) << code;
    }
}

}  // namespace
