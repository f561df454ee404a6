// Remap and affine warp, second look: step units for negative steps, the
// warp's nearest rounding of the double position, the thresholds of the
// singularity tests, saturation of cubic overshoots, the 32f border rule of
// every cubic code in both families, and the distance between the table
// weights and the polynomials.  Expected values are worked out by hand from
// the rules in the comments.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "volume/interp/interp.h"
#include "volume/remap_fixture.h"

namespace {

using namespace remaptest;
using Matrix = Lum64f[3][4];

// Rows that run backwards: plane pointers at the start of their last row,
// a negative row step in bytes.  Every sample holds its own offset in its
// block, so a read tells where it came from.
TEST(RemapAudit, NegativeSourceStepIsShiftedArithmetically) {
    // 16u: -101 bytes >> 1 is -51 samples (a division would give -50).
    const Lum32s rows = 4, back = 51;
    std::vector<Lum16u> block(back * rows + 64);
    for (size_t i = 0; i < block.size(); ++i) block[i] = Lum16u(i);
    const Lum16u* planes[1] = {block.data() + back * (rows - 1)};
    const LumVolume sv{40, rows, 1}, dv{2, 3, 1};
    const LumBox box{0, 0, 0, 40, rows, 1};
    PlanarVolume<Lum32f> mx(2, 3, 1), my(2, 3, 1), mz(2, 3, 1);
    mx.fill([](int x, int, int) { return float(3 + x); });
    my.fill([](int, int y, int) { return float(y); });
    mz.fill([](int, int, int) { return 0.0f; });
    PlanarVolume<Lum16u> dst(2, 3, 1);
    ASSERT_EQ(lumrRemap_16u_C1PV(planes, &sv, -101, &box, mx.src(), my.src(), mz.src(),
                                 mx.stepBytes, dst.dst(), dst.stepBytes, &dv, LUM_RESAMPLE_NEAREST),
              lumStatusOk);
    for (Lum32s y = 0; y < 3; ++y)
        for (Lum32s x = 0; x < 2; ++x) EXPECT_EQ(dst.get(x, y, 0), back * (rows - 1 - y) + 3 + x);

    // The warp converts the same way: 32f, -55 bytes >> 2 is -14 samples
    // (not -13).  Identity map, destination box 2 x 3 at (3, 0, 0).
    const Lum32s back32 = 14;
    std::vector<Lum32f> fblock(back32 * rows + 64);
    for (size_t i = 0; i < fblock.size(); ++i) fblock[i] = float(i);
    const Lum32f* fplanes[1] = {fblock.data() + back32 * (rows - 1)};
    const LumVolume fv{10, rows, 1};
    const LumBox fbox{0, 0, 0, 10, rows, 1}, dbox{3, 0, 0, 2, 3, 1};
    PlanarVolume<Lum32f> fdst(6, 3, 1);
    const Matrix id = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}};
    ASSERT_EQ(lumrWarpAffine_32f_C1PV(fplanes, &fv, -55, &fbox, fdst.dst(), fdst.stepBytes, &dbox,
                                      id, LUM_RESAMPLE_NEAREST),
              lumStatusOk);
    for (Lum32s y = 0; y < 3; ++y)
        for (Lum32s x = 3; x < 5; ++x)
            EXPECT_EQ(fdst.get(x, y, 0), float(back32 * (rows - 1 - y) + x)) << x << " " << y;
}

TEST(WarpAudit, NearestRoundsTheDoublePosition) {
    // Forward map x + c03 with c03 = -(0.5 + 2^-30): the inverse adds
    // 0.5 + 2^-30, exactly, and every increment is 1.  Column x reads the
    // position x + 0.5 + 2^-30, which rounds to x + 1 from the double; its
    // float would be x + 0.5 and go to the even neighbour (0.5 -> 0,
    // 2.5 -> 2).  Rows alike with c13.
    const Lum64f e = std::ldexp(1.0, -30);
    Matrix c = {{1, 0, 0, -(0.5 + e)}, {0, 1, 0, -(0.5 + e)}, {0, 0, 1, 0}};
    PlanarVolume<Lum8u> src(8, 6, 2), dst(6, 4, 2);
    src.fill([](int x, int y, int z) { return Lum8u(x + 8 * y + 60 * z); });
    const LumVolume sv{8, 6, 2};
    const LumBox sb{0, 0, 0, 8, 6, 2}, db{0, 0, 1, 6, 4, 1};
    ASSERT_EQ(lumrWarpAffine_8u_C1PV(src.src(), &sv, src.stepBytes, &sb, dst.dst(), dst.stepBytes,
                                     &db, c, LUM_RESAMPLE_NEAREST),
              lumStatusOk);
    for (Lum32s y = 0; y < 4; ++y)
        for (Lum32s x = 0; x < 6; ++x) EXPECT_EQ(dst.get(x, y, 1), (x + 1) + 8 * (y + 1) + 60) << x << " " << y;
}

TEST(WarpAudit, SingularityTestThresholds) {
    PlanarVolume<Lum8u> src(8, 8, 8), dst(8, 8, 8);
    const LumVolume sv{8, 8, 8};
    const LumBox box{0, 0, 0, 8, 8, 8};
    auto call = [&](const Matrix& c, Lum32s code) {
        return lumrWarpAffine_8u_C1PV(src.src(), &sv, 8, &box, dst.dst(), 8, &box, c, code);
    };
    // Second test, relative branch.  Rows 2 and 3 with c10 = c20 = 0 make
    // pairs 2 and 3 (0, 0), balanced.  Pair 1 is (1e12, 1e6 (1e6 - d)):
    // d = 1e-5 leaves a relative gap of 1e-11, balanced, so the matrix is
    // refused before the code is looked at, although its determinant is 10.
    // d = 1e-3 leaves 1e-9: not balanced, and the code decides.
    Matrix rel = {{1, 0, 0, 0}, {0, 1e6, 1e6, 0}, {0, 1e6 - 1e-5, 1e6, 0}};
    EXPECT_EQ(call(rel, 3), lumStatusBadCoeffs);
    rel[2][1] = 1e6 - 1e-3;
    EXPECT_EQ(call(rel, 3), lumStatusBadInterpolation);
    EXPECT_EQ(call(rel, 1), lumStatusOk);
    // Second test, absolute branch: c11 c22 = 1e-202 is at most 1e-200, so
    // pair 1 is balanced when |c12 c21| is at most 1e-10 (here exactly
    // 1e-10).  The determinant, 1e-202 - 1e-10, would pass the third test.
    // With c21 = 2 the product is 2e-10 and the pair is not balanced.
    Matrix tiny = {{1, 0, 0, 0}, {0, 1e-101, 1e-10, 0}, {0, 1, 1e-101, 0}};
    EXPECT_EQ(call(tiny, 3), lumStatusBadCoeffs);
    tiny[2][1] = 2;
    EXPECT_EQ(call(tiny, 3), lumStatusBadInterpolation);
    EXPECT_EQ(call(tiny, 1), lumStatusOk);
    // First test: all three diagonal entries at most 1e-100, even with an
    // invertible matrix (a permutation, determinant 1).
    const Matrix perm = {{1e-100, 0, 1, 0}, {1, -1e-100, 0, 0}, {0, 1, 1e-100, 0}};
    EXPECT_EQ(call(perm, 3), lumStatusBadCoeffs);
    // Third test, strict: D = c00 when the rest is the identity.  D = 1e-10
    // and -1e-10 go through; 9.9e-11 is refused, but only after the code.
    for (Lum64f d : {1e-10, -1e-10}) {
        const Matrix m = {{d, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}};
        EXPECT_EQ(call(m, 1), lumStatusOk) << d;
    }
    const Matrix small = {{9.9e-11, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}};
    EXPECT_EQ(call(small, 1), lumStatusBadCoeffs);
    EXPECT_EQ(call(small, 3), lumStatusBadInterpolation);
}

TEST(RemapAudit, CubicOvershootsSaturate) {
    // Catmull-Rom at fx = 0.5 has the distances 1.5, 0.5, 0.5, 1.5 and the
    // table weights -0.0625, 0.5625, 0.5625, -0.0625 (dyadic, so exact); at
    // fy = fz = 0 the weights are 0, 1, 0, 0.  Taps of X = 2.5 are columns
    // 1..4.  A lone top value at column 1 sums to -0.0625 top, a step up
    // from column 2 to 1.0625 top: both leave the range and saturate, in
    // the interior (Z = 3) and at the border (Z = 7, the last plane).
    auto run = [](auto top) {
        using T = decltype(top);
        PlanarVolume<Lum32f> mx(2, 1, 1), my(2, 1, 1), mz(2, 1, 1);
        PlanarVolume<T> lone(8, 8, 8), step(8, 8, 8), dst(2, 1, 1);
        lone.fill([&](int x, int, int) { return T(x == 1 ? top : 0); });
        step.fill([&](int x, int, int) { return T(x >= 2 ? top : 0); });
        for (int e = 0; e < 2; ++e)
            mx.set(e, 0, 0, 2.5f), my.set(e, 0, 0, 3.0f), mz.set(e, 0, 0, e ? 7.0f : 3.0f);
        const LumVolume sv{8, 8, 8}, dv{2, 1, 1};
        const LumBox box{0, 0, 0, 8, 8, 8};
        std::vector<T> got;
        for (auto* s : {&lone, &step}) {
            LumStatus st;
            if constexpr (sizeof(T) == 1)
                st = lumrRemap_8u_C1PV(s->src(), &sv, 8, &box, mx.src(), my.src(), mz.src(), 8,
                                       dst.dst(), 2, &dv, LUM_RESAMPLE_CATMULLROM);
            else
                st = lumrRemap_16u_C1PV(s->src(), &sv, 16, &box, mx.src(), my.src(), mz.src(), 8,
                                        dst.dst(), 4, &dv, LUM_RESAMPLE_CATMULLROM);
            EXPECT_EQ(st, lumStatusOk);
            got.push_back(dst.get(0, 0, 0)), got.push_back(dst.get(1, 0, 0));
        }
        return got;
    };
    EXPECT_EQ(run(Lum8u(255)), (std::vector<Lum8u>{0, 0, 255, 255}));
    EXPECT_EQ(run(Lum16u(65535)), (std::vector<Lum16u>{0, 0, 65535, 65535}));
}

TEST(RemapAudit, Float32BorderOfEveryCubicCode) {
    // A constant source at integer positions: codes 4 and 6 have weights
    // 0, 1, 0, 0 and give the constant exactly; 5 and 7 give a value near
    // it (their weights sum to about 1).  At the faces of the box remap
    // passes the result through an integer (10.75 -> 10, -0.75 -> +0.0),
    // the warp keeps it as computed; inside both keep the fraction.
    const LumVolume v{8, 8, 8};
    const LumBox box{0, 0, 0, 8, 8, 8};
    const Matrix id = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}};
    PlanarVolume<Lum32f> mx(8, 1, 1), my(8, 1, 1), mz(8, 1, 1);
    for (Lum32s x = 0; x < 8; ++x) mx.set(x, 0, 0, float(x)), my.set(x, 0, 0, 3.0f), mz.set(x, 0, 0, 4.0f);
    const LumVolume dv{8, 1, 1};
    const LumBox db{0, 3, 4, 8, 1, 1};
    for (float value : {10.75f, -0.75f}) {
        PlanarVolume<Lum32f> src(8, 8, 8);
        src.fill([&](int, int, int) { return value; });
        for (Lum32s code = 4; code <= 7; ++code) {
            const bool exact = code == 4 || code == 6;
            PlanarVolume<Lum32f> r(8, 1, 1), w(8, 8, 8);
            ASSERT_EQ(lumrRemap_32f_C1PV(src.src(), &v, 32, &box, mx.src(), my.src(), mz.src(), 32,
                                         r.dst(), 32, &dv, code),
                      lumStatusOk);
            ASSERT_EQ(lumrWarpAffine_32f_C1PV(src.src(), &v, 32, &box, w.dst(), 32, &db, id, code),
                      lumStatusOk);
            for (Lum32s x = 0; x < 8; ++x) {
                const bool border = x == 0 || x >= 6;  // i <= 0, i = xMax - 1, i = xMax
                const float fromRemap = r.get(x, 0, 0), fromWarp = w.get(x, 3, 4);
                if (exact) {
                    EXPECT_EQ(fromWarp, value) << code << " " << x;
                }
                EXPECT_NEAR(fromWarp, value, 0.01f) << code << " " << x;
                if (!border) {
                    EXPECT_EQ(fromRemap, fromWarp) << code << " " << x;
                } else if (value > 0) {
                    EXPECT_EQ(fromRemap, 10.0f) << code << " " << x;
                } else {
                    EXPECT_EQ(r.bits(x, 0, 0), 0u) << code << " " << x;  // +0.0
                }
            }
        }
    }
}

TEST(CubicTablesAudit, LookupStaysApartFromThePolynomial) {
    // The lookup weights differ from the filters themselves by up to
    // 2.5e-5 (codes 4, 5), 6.2e-5 (6) and 4.3e-5 (7); a routine that
    // evaluated the polynomial would come within float rounding.
    const double bound[8] = {0, 0, 0, 0, 2.5e-5, 2.5e-5, 6.2e-5, 4.3e-5};
    for (Lum32s code = 4; code <= 7; ++code) {
        const OwnCubicTable* table = ownCubicTableOf(code);
        double worst = 0;
        for (int s = 0; s <= 20000; ++s) {
            const float f = float(s) / 20000.0f;
            float w[4];
            _mm_storeu_ps(w, ownCubicWeights(table->w, f));
            for (int o = -1; o <= 2; ++o)
                worst = std::fmax(worst, std::fabs(w[o + 1] - ownCubicFilter(code, std::fabs(o - double(f)))));
        }
        EXPECT_LE(worst, bound[code] * 1.005) << code;
        EXPECT_GE(worst, bound[code] * 0.9) << code;
    }
}

}  // namespace
