// Affine warp: statuses and the places and thresholds of the singularity
// tests, the inversion, identity and rotation, positions by addition in
// double, what sets the warp apart from remap (double positions, the 32f
// border that keeps its fraction), thread splits, and the family against the
// reference, also with a negative source step.
#include <gtest/gtest.h>

#include <cmath>

#include "volume/interp/interp.h"
#include "volume/volume_fixture.h"
#include "volume/warp/warp.h"

namespace {

using namespace voltest;

using Matrix = Lum64f[3][4];

template <class T, class... Args>
LumStatus callWarp(const T* const* s, Args... args) {
    if constexpr (sizeof(T) == 1) return lumrWarpAffine_8u_C1PV(s, args...);
    else if constexpr (sizeof(T) == 2) return lumrWarpAffine_16u_C1PV(s, args...);
    else return lumrWarpAffine_32f_C1PV(s, args...);
}

template <class T>
struct Warp {
    Lum32s srcStep;  // as passed; the rows lie (srcStep >> shift) samples apart
    PlanarVolume<T> src;
    LumBox srcBox;
    PlanarVolume<T> dst;
    LumBox dstBox;
    Matrix c = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}};

    Warp(LumVolume sv, LumBox sb, LumVolume dv, LumBox db, Lum32s srcStep_ = 0)
        : srcStep(srcStep_ ? srcStep_ : sv.width * Lum32s(sizeof(T))),
          src(sv.width, sv.height, sv.depth, (srcStep >> (sizeof(T) / 2)) * Lum32s(sizeof(T))),
          srcBox(sb), dst(dv.width, dv.height, dv.depth), dstBox(db) {}
    LumStatus run(Lum32s code) {
        const LumVolume sv{src.w, src.h, src.d};
        return callWarp(src.src(), &sv, srcStep, &srcBox, dst.dst(), dst.stepBytes, &dstBox, c, code);
    }
    // The expected destination: positions by the addition rule over the
    // planes z0..z1 (a slab), each sample from the reference.  Elements
    // outside the slabs or out of range keep the canary.
    void expectReference(Lum32s code, std::vector<std::pair<Lum32s, Lum32s>> slabs = {}) {
        Matrix I;
        ASSERT_EQ(ownInvertAffine(c, I), lumStatusOk);
        if (slabs.empty()) slabs.push_back({dstBox.z, dstBox.z + dstBox.depth - 1});
        const ref::Source rs{refType<T>(), reinterpret_cast<const void* const*>(src.src()),
                             srcStep >> (sizeof(T) / 2)};
        const LumSampleBounds bounds = clipBounds(srcBox, src.w, src.h, src.d);
        PlanarVolume<T> want(dst.w, dst.h, dst.d);
        const Lum32s x0 = dstBox.x, y0 = dstBox.y;
        for (auto [z0, z1] : slabs) {
            Lum64f b[3], e[3];
            for (int a = 0; a < 3; ++a) e[a] = x0 * I[a][0];
            b[0] = (y0 * I[0][1] + I[0][3]) + I[0][2] * z0;
            b[1] = (y0 * I[1][1] + I[1][3]) + z0 * I[1][2];
            b[2] = (y0 * I[2][1] + I[2][3]) + z0 * I[2][2];
            for (Lum32s z = z0; z <= z1; ++z, b[0] += I[0][2], b[1] += I[1][2], b[2] += I[2][2]) {
                Lum64f l[3] = {b[0], b[1], b[2]};
                for (Lum32s y = y0; y < y0 + dstBox.height; ++y) {
                    Lum64f p[3] = {l[0] + e[0], l[1] + e[1], l[2] + e[2]};
                    for (Lum32s x = x0; x < x0 + dstBox.width; ++x) {
                        const ref::Result r = ref::warpSample(rs, bounds, code, p[0], p[1], p[2]);
                        if (r.written) std::memcpy(want.bytes(x, y, z), &r.bits, sizeof(T));
                        for (int a = 0; a < 3; ++a) p[a] += I[a][0];
                    }
                    for (int a = 0; a < 3; ++a) l[a] += I[a][1];
                }
            }
        }
        expectSameBits(dst, want, code);
    }
};

template <class T>
class WarpTyped : public ::testing::Test {};
using SampleTypes = ::testing::Types<Lum8u, Lum16u, Lum32f>;
TYPED_TEST_SUITE(WarpTyped, SampleTypes);

TEST(WarpAffine, BufferSizeQuery) {
    const LumBox good{0, 0, 0, 4, 4, 4}, bad{0, -1, 0, 4, 4, 4};
    Lum32s size = 77;
    EXPECT_EQ(lumrWarpAffineGetBufSize(&bad, &good, 3, 0, nullptr), lumStatusNullPtr);
    EXPECT_EQ(lumrWarpAffineGetBufSize(&bad, &good, 3, 0, &size), lumStatusSize);
    EXPECT_EQ(lumrWarpAffineGetBufSize(&good, &bad, 3, 0, &size), lumStatusSize);
    EXPECT_EQ(lumrWarpAffineGetBufSize(&good, &good, 3, 0, &size), lumStatusBadChannels);
    EXPECT_EQ(lumrWarpAffineGetBufSize(&good, &good, 1, 3, &size), lumStatusBadInterpolation);
    EXPECT_EQ(size, 77);
    for (Lum32s code : kCodes) {
        size = 77;
        EXPECT_EQ(lumrWarpAffineGetBufSize(&good, &good, 1, code, &size), lumStatusOk);
        EXPECT_EQ(size, 0);
    }
}

TEST(WarpAffine, StatusesAndTheSingularityTests) {
    PlanarVolume<Lum8u> src(8, 8, 8), dst(8, 8, 8), canary(8, 8, 8);
    const LumVolume sv{8, 8, 8};
    const LumBox box{0, 0, 0, 8, 8, 8}, outside{8, 0, 0, 8, 8, 8};
    const LumBox noDepth{0, 0, 0, 8, 8, 0}, negX{-1, 0, 0, 8, 8, 8};
    using M = std::initializer_list<Lum64f>;
    auto call = [&](M m, Lum32s code, const LumBox* sb = nullptr, const LumBox* db = nullptr) {
        Matrix c;
        std::copy(m.begin(), m.end(), &c[0][0]);
        return lumrWarpAffine_8u_C1PV(src.src(), &sv, 8, sb ? sb : &box, dst.dst(), 8, db ? db : &box, c,
                                      code);
    };
    const M id = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0}, zero = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    Matrix c = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}};
    EXPECT_EQ(lumrWarpAffine_8u_C1PV(nullptr, &sv, 8, &box, dst.dst(), 8, &box, c, 1), lumStatusNullPtr);
    EXPECT_EQ(lumrWarpAffine_8u_C1PV(src.src(), &sv, 8, &box, nullptr, 8, &box, c, 1), lumStatusNullPtr);
    EXPECT_EQ(call(zero, 1, &noDepth), lumStatusSize);  // sizes come before the coefficients
    EXPECT_EQ(call(zero, 1, &box, &negX), lumStatusSize);
    EXPECT_EQ(call(zero, 0), lumStatusBadCoeffs);  // first test, ahead of the bad code
    // First test: all three diagonal entries at most 1e-100, even with an
    // invertible matrix (a permutation, determinant 1).
    EXPECT_EQ(call({1e-100, 0, 1, 0, 1, -1e-100, 0, 0, 0, 1, 1e-100, 0}, 3), lumStatusBadCoeffs);
    // Second test, on rows 2 and 3 only: two equal lower rows are refused
    // ahead of the bad code.
    EXPECT_EQ(call({1, 0, 0, 0, 0, 1, 2, 0, 0, 1, 2, 0}, 3), lumStatusBadCoeffs);
    // Relative branch: c10 = c20 = 0 make pairs 2 and 3 (0, 0), balanced.
    // Pair 1 is (1e12, 1e6 (1e6 - d)): d = 1e-5 leaves a relative gap of
    // 1e-11, balanced, so the matrix is refused although its determinant is
    // 10; d = 1e-3 leaves 1e-9, not balanced, and the code decides.
    EXPECT_EQ(call({1, 0, 0, 0, 0, 1e6, 1e6, 0, 0, 1e6 - 1e-5, 1e6, 0}, 3), lumStatusBadCoeffs);
    EXPECT_EQ(call({1, 0, 0, 0, 0, 1e6, 1e6, 0, 0, 1e6 - 1e-3, 1e6, 0}, 3), lumStatusBadInterpolation);
    // Absolute branch: c11 c22 = 1e-202 is at most 1e-200, so pair 1 is
    // balanced when |c12 c21| is at most 1e-10 (here exactly 1e-10), though
    // the determinant 1e-202 - 1e-10 would pass the third test.  With c21 = 2
    // the product is 2e-10 and the pair is not balanced.
    EXPECT_EQ(call({1, 0, 0, 0, 0, 1e-101, 1e-10, 0, 0, 1, 1e-101, 0}, 3), lumStatusBadCoeffs);
    EXPECT_EQ(call({1, 0, 0, 0, 0, 1e-101, 1e-10, 0, 0, 2, 1e-101, 0}, 3), lumStatusBadInterpolation);
    // Singular through the first row only (rows 2 and 3 independent): the
    // code and the overlap come first, the determinant last.
    const M firstRow = {0, 1, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0};
    EXPECT_EQ(call(firstRow, 3), lumStatusBadInterpolation);
    EXPECT_EQ(call(firstRow, 1, &outside), lumWarnNoOverlap);
    EXPECT_EQ(call(firstRow, 1), lumStatusBadCoeffs);
    // Third test, strict: D = c00 when the rest is the identity, and 9.9e-11
    // is refused, but only after the code.  A plain scaling by 1e-4 has a
    // determinant of 1e-12 and is refused too.
    EXPECT_EQ(call({9.9e-11, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0}, 3), lumStatusBadInterpolation);
    EXPECT_EQ(call({9.9e-11, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0}, 1), lumStatusBadCoeffs);
    EXPECT_EQ(call({1e-4, 0, 0, 0, 0, 1e-4, 0, 0, 0, 0, 1e-4, 0}, 1), lumStatusBadCoeffs);
    EXPECT_EQ(call(id, 1, &outside), lumWarnNoOverlap);
    EXPECT_TRUE(dst.same(canary));
    // Passing: D = +-1e-10, a scaling by 1e-3 (1e-9), a rotation by 90
    // degrees about z (c00 = c11 = 0, c22 = 1), a near-balanced pair.
    for (M m : {M{1e-10, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0}, M{-1e-10, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0},
                M{1e-3, 0, 0, 0, 0, 1e-3, 0, 0, 0, 0, 1e-3, 0}, M{0, -1, 0, 7, 1, 0, 0, 0, 0, 0, 1, 0},
                M{1, 0, 0, 0, 0, 1e6, 1e6, 0, 0, 1e6 - 1e-3, 1e6, 0}})
        EXPECT_EQ(call(m, 1), lumStatusOk) << *m.begin();
}

TEST(WarpAffine, InverseByCofactors) {
    const Matrix c = {{1.2, -0.3, 0.1, 4.5}, {0.2, 0.9, -0.4, -2.0}, {-0.1, 0.5, 1.1, 3.25}};
    Matrix I;
    ASSERT_EQ(ownInvertAffine(c, I), lumStatusOk);
    // I applied after c gives back the source position.
    const Lum64f p[3] = {3.0, -7.5, 11.0};
    Lum64f q[3], back[3];
    for (int r = 0; r < 3; ++r) q[r] = c[r][0] * p[0] + c[r][1] * p[1] + c[r][2] * p[2] + c[r][3];
    for (int r = 0; r < 3; ++r) back[r] = I[r][0] * q[0] + I[r][1] * q[1] + I[r][2] * q[2] + I[r][3];
    for (int r = 0; r < 3; ++r) EXPECT_NEAR(back[r], p[r], 1e-12);
    // A pure translation inverts exactly.
    const Matrix t = {{1, 0, 0, 2.5}, {0, 1, 0, -3}, {0, 0, 1, 7}};
    ASSERT_EQ(ownInvertAffine(t, I), lumStatusOk);
    EXPECT_EQ(I[0][3], -2.5);
    EXPECT_EQ(I[1][3], 3.0);
    EXPECT_EQ(I[2][3], -7.0);
}

TYPED_TEST(WarpTyped, IdentityPerCodeAndRotation) {
    using T = TypeParam;
    std::mt19937 rng(7);
    Warp<T> w({10, 9, 8}, {1, 1, 1, 8, 7, 6}, {12, 11, 10}, {0, 0, 0, 12, 11, 10});
    w.src.fill([&](int, int, int) { return randomSample<T>(rng); });
    for (Lum32s code : kCodes) {
        w.dst.reset();
        ASSERT_EQ(w.run(code), lumStatusOk);
        w.expectReference(code);
        // Codes 1, 2, 4 and 6 reproduce the samples of the box, also at its
        // faces; 5 and 7 smooth.
        bool same = true;
        for (Lum32s z = 1; z <= 6; ++z)
            for (Lum32s y = 1; y <= 7; ++y)
                for (Lum32s x = 1; x <= 8; ++x) same = same && w.dst.get(x, y, z) == w.src.get(x, y, z);
        EXPECT_EQ(same, code != 5 && code != 7) << code;
    }
    // 90 degrees about z: destination (x, y) comes from source (y, 9 - x).
    Warp<T> r({10, 10, 4}, {0, 0, 0, 10, 10, 4}, {10, 10, 4}, {0, 0, 0, 10, 10, 4});
    r.src.fill([&](int, int, int) { return randomSample<T>(rng); });
    const Matrix rot = {{0, -1, 0, 9}, {1, 0, 0, 0}, {0, 0, 1, 0}};
    std::copy(&rot[0][0], &rot[0][0] + 12, &r.c[0][0]);
    for (Lum32s code : {1, 2, 4}) {
        ASSERT_EQ(r.run(code), lumStatusOk);
        for (Lum32s z = 0; z < 4; ++z)
            for (Lum32s y = 0; y < 10; ++y)
                for (Lum32s x = 0; x < 10; ++x)
                    ASSERT_EQ(r.dst.get(x, y, z), r.src.get(y, 9 - x, z))
                        << code << " " << x << " " << y;
    }
}

TEST(WarpAffine, PositionsAdvanceByAddition) {
    // Increments of 0.1: ten additions give 0.9999999999999999, below the
    // box's minimum 1, where 10 x 0.1 would give 1.  Scaling x by 10 makes
    // the column increment 0.1, so column 10 stays unwritten; the shear
    // x + 0.1 y makes the row increment of x 0.1, so row 10 does at column 0.
    for (int shear = 0; shear < 2; ++shear) {
        Warp<Lum16u> w({8, 12, 4}, {1, 0, 0, 7, 12, 4}, {30, 12, 3}, {0, 0, 2, 30, 12, 1});
        w.src.fill([](int x, int y, int z) { return Lum16u(1000 + x + 10 * y + 100 * z); });
        (shear ? w.c[0][1] : w.c[0][0]) = shear ? -0.1 : 10.0;
        for (Lum32s code : {LUM_RESAMPLE_NEAREST, LUM_RESAMPLE_LINEAR}) {
            w.dst.reset();
            ASSERT_EQ(w.run(code), lumStatusOk);
            EXPECT_EQ(shear ? w.dst.get(0, 10, 2) : w.dst.get(10, 0, 2), 0xA5A5) << code;
            if (code == LUM_RESAMPLE_NEAREST) {  // position 1.0999999999999999 on x
                EXPECT_EQ(shear ? w.dst.get(0, 11, 2) : w.dst.get(11, 0, 2),
                          1000 + 1 + 10 * 11 * shear + 200);
            }
            w.expectReference(code);
        }
    }
}

TEST(WarpAffine, PositionsStayDouble) {
    // Forward map x + c03 with c03 = -(0.5 + 2^-30): the inverse adds
    // 0.5 + 2^-30, exactly, and every increment is 1.  Column x reads the
    // position x + 0.5 + 2^-30, which rounds to x + 1 from the double; its
    // float would be x + 0.5 and go to the even neighbour.  Rows alike.
    const Lum64f e = std::ldexp(1.0, -30);
    Warp<Lum8u> n({8, 6, 2}, {0, 0, 0, 8, 6, 2}, {6, 4, 2}, {0, 0, 1, 6, 4, 1});
    n.src.fill([](int x, int y, int z) { return Lum8u(x + 8 * y + 60 * z); });
    n.c[0][3] = n.c[1][3] = -(0.5 + e);
    ASSERT_EQ(n.run(LUM_RESAMPLE_NEAREST), lumStatusOk);
    for (Lum32s y = 0; y < 4; ++y)
        for (Lum32s x = 0; x < 6; ++x)
            EXPECT_EQ(n.dst.get(x, y, 1), (x + 1) + 8 * (y + 1) + 60) << x << " " << y;

    // At +1e-11 (x = 2.99999999999) the index is 2 but the float position is
    // 3.0, so the fraction is exactly 1 and the cubic taps pick sample 3 on
    // the tap set of 2; at -1e-11 the position xMax + 1e-11 is out of range,
    // where a remap field holding the float of it would be in range.
    Warp<Lum32f> w({8, 8, 8}, {0, 0, 0, 8, 8, 8}, {8, 4, 4}, {0, 3, 3, 8, 1, 1});
    w.src.fill([](int x, int y, int z) { return float(x * x) + 0.25f * y + 0.5f * z; });
    w.c[0][3] = 1e-11;
    ASSERT_EQ(w.run(LUM_RESAMPLE_LAGRANGE), lumStatusOk);
    for (Lum32s x = 1; x < 8; ++x) EXPECT_EQ(w.dst.get(x, 3, 3), w.src.get(x, 3, 3)) << x;
    EXPECT_EQ(w.dst.bits(0, 3, 3), 0xA5A5A5A5u);  // x = -1e-11 is below xMin
    w.c[0][3] = -1e-11;
    w.dst.reset();
    ASSERT_EQ(w.run(LUM_RESAMPLE_LINEAR), lumStatusOk);
    EXPECT_EQ(w.dst.bits(7, 3, 3), 0xA5A5A5A5u);
    EXPECT_EQ(w.dst.get(0, 3, 3), w.src.get(0, 3, 3));
}

TEST(WarpAffine, Float32BorderKeepsWhatRemapCuts) {
    // A constant source at integer positions: codes 4 and 6 have weights
    // 0, 1, 0, 0 and give the constant exactly; 5 and 7 a value near it.  At
    // the faces of the box remap passes the result through an integer
    // (10.75 -> 10, -0.75 -> +0.0), the warp keeps it; inside both agree.
    const LumVolume v{8, 8, 8}, dv{8, 1, 1};
    const LumBox box{0, 0, 0, 8, 8, 8}, db{0, 3, 4, 8, 1, 1};
    const Matrix id = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}};
    PlanarVolume<Lum32f> mx(8, 1, 1), my(8, 1, 1), mz(8, 1, 1);
    mx.fill([](int x, int, int) { return float(x); });
    my.fill([](int, int, int) { return 3.0f; });
    mz.fill([](int, int, int) { return 4.0f; });
    for (float value : {10.75f, -0.75f}) {
        PlanarVolume<Lum32f> src(8, 8, 8);
        src.fill([&](int, int, int) { return value; });
        for (Lum32s code = 4; code <= 7; ++code) {
            PlanarVolume<Lum32f> r(8, 1, 1), w(8, 8, 8);
            ASSERT_EQ(lumrRemap_32f_C1PV(src.src(), &v, 32, &box, mx.src(), my.src(), mz.src(), 32,
                                         r.dst(), 32, &dv, code), lumStatusOk);
            ASSERT_EQ(lumrWarpAffine_32f_C1PV(src.src(), &v, 32, &box, w.dst(), 32, &db, id, code),
                      lumStatusOk);
            for (Lum32s x = 0; x < 8; ++x) {
                const bool border = x == 0 || x >= 6;  // i <= 0, i = xMax - 1, i = xMax
                const float fromWarp = w.get(x, 3, 4);
                if (code == 4 || code == 6) {
                    EXPECT_EQ(fromWarp, value) << code << " " << x;
                }
                EXPECT_NEAR(fromWarp, value, 0.01f) << code << " " << x;
                // Through an integer at the border: 10.0f or +0.0f.
                const uint32_t want = !border ? w.bits(x, 3, 4) : value > 0 ? 0x41200000u : 0u;
                EXPECT_EQ(r.bits(x, 0, 0), want) << code << " " << x;
            }
        }
    }
}

TYPED_TEST(WarpTyped, MatchesReferenceBitForBit) {
    using T = TypeParam;
    std::mt19937 rng(31 + sizeof(T));
    const double a = 20.0 * 3.14159265358979 / 180.0;
    const Matrix c = {{1.2 * std::cos(a), -1.2 * std::sin(a), 0.05, 2.3},
                      {1.2 * std::sin(a), 1.2 * std::cos(a), -0.1, -1.7},
                      {0.02, 0.07, 1.15, 0.4}};
    // The second box with a negative odd source step, which floors to -16 samples.
    const LumBox boxes[] = {{0, 0, 0, 14, 12, 10}, {2, 1, 2, 9, 30, 6}};
    for (int n = 0; n < 2; ++n)
        for (Lum32s code : kCodes) {
            Warp<T> w({14, 12, 10}, boxes[n], {21, 17, 14}, {1, 2, 1, 19, 14, 12},
                      n ? 1 - Lum32s(16 * sizeof(T)) : 0);
            std::copy(&c[0][0], &c[0][0] + 12, &w.c[0][0]);
            w.src.fill([&](int, int, int) { return randomSample<T>(rng); });
            ASSERT_EQ(w.run(code), lumStatusOk);
            w.expectReference(code);
        }
}

TYPED_TEST(WarpTyped, ThreadSplitsStartEachSlabAfresh) {
    using T = TypeParam;
    std::mt19937 rng(3);
    // Increments that are inexact in binary, a box of depth 20 from z = 5.
    const Matrix c = {{0.7, 0.1, 0.0, 0.3}, {-0.1, 0.7, 0.05, 0.1}, {0.0, 0.1, 0.7, -2.9}};
    for (Lum32s code : kCodes) {
        Warp<T> w({18, 18, 18}, {0, 0, 0, 18, 18, 18}, {18, 17, 25}, {1, 1, 5, 17, 16, 20});
        std::copy(&c[0][0], &c[0][0] + 12, &w.c[0][0]);
        w.src.fill([&](int, int, int) { return randomSample<T>(rng); });
        {
            ThreadCount threads(3);  // slabs 5..10, 11..16, 17..24
            ASSERT_EQ(w.run(code), lumStatusOk);
        }
        w.expectReference(code, {{5, 10}, {11, 16}, {17, 24}});
        w.dst.reset();
        {
            // With more threads than planes only the last one works, with the
            // whole box: the same as one thread.
            ThreadCount threads(code == 1 ? 30 : 1);
            ASSERT_EQ(w.run(code), lumStatusOk);
        }
        w.expectReference(code);
    }
}

}  // namespace
