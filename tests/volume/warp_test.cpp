// Affine warp: statuses and the places of the singularity tests, the
// inversion, identity and rotation, positions by addition, the 32f border
// that keeps its fraction, thread splits, and the family against the
// reference.
#include <gtest/gtest.h>

#include <cmath>

#include "volume/interp/interp.h"
#include "volume/remap_fixture.h"
#include "volume/warp/warp.h"

namespace {

using namespace remaptest;

using Matrix = Lum64f[3][4];

LumStatus callWarp(const Lum8u* const* s, const LumVolume* sv, Lum32s ss, const LumBox* sb,
                   Lum8u* const* d, Lum32s ds, const LumBox* db, const Matrix& c, Lum32s code) {
    return lumrWarpAffine_8u_C1PV(s, sv, ss, sb, d, ds, db, c, code);
}
LumStatus callWarp(const Lum16u* const* s, const LumVolume* sv, Lum32s ss, const LumBox* sb,
                   Lum16u* const* d, Lum32s ds, const LumBox* db, const Matrix& c, Lum32s code) {
    return lumrWarpAffine_16u_C1PV(s, sv, ss, sb, d, ds, db, c, code);
}
LumStatus callWarp(const Lum32f* const* s, const LumVolume* sv, Lum32s ss, const LumBox* sb,
                   Lum32f* const* d, Lum32s ds, const LumBox* db, const Matrix& c, Lum32s code) {
    return lumrWarpAffine_32f_C1PV(s, sv, ss, sb, d, ds, db, c, code);
}

template <class T>
struct Warp {
    PlanarVolume<T> src;
    LumBox srcBox;
    PlanarVolume<T> dst;
    LumBox dstBox;
    Matrix c = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}};

    Warp(LumVolume sv, LumBox sb, LumVolume dv, LumBox db)
        : src(sv.width, sv.height, sv.depth), srcBox(sb), dst(dv.width, dv.height, dv.depth),
          dstBox(db) {}
    LumStatus run(Lum32s code) {
        const LumVolume sv{src.w, src.h, src.d};
        return callWarp(src.src(), &sv, src.stepBytes, &srcBox, dst.dst(), dst.stepBytes, &dstBox, c,
                        code);
    }
    LumSampleBounds bounds() const {
        return {srcBox.x, srcBox.y, srcBox.z, srcBox.x + std::min(srcBox.width, src.w - srcBox.x) - 1,
                srcBox.y + std::min(srcBox.height, src.h - srcBox.y) - 1,
                srcBox.z + std::min(srcBox.depth, src.d - srcBox.z) - 1};
    }
    // The expected destination: positions by the addition rule over the
    // planes z0..z1 (a slab), each sample from the reference.  Elements
    // outside the slabs or out of range keep the canary.
    void expectReference(Lum32s code, std::vector<std::pair<Lum32s, Lum32s>> slabs = {}) {
        Matrix I;
        ASSERT_EQ(ownInvertAffine(c, I), lumStatusOk);
        if (slabs.empty()) slabs.push_back({dstBox.z, dstBox.z + dstBox.depth - 1});
        const ref::Source rs{refType<T>(), reinterpret_cast<const void* const*>(src.src()),
                             src.stepBytes / Lum32s(sizeof(T))};
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
                        const ref::Result r = ref::warpSample(rs, bounds(), code, p[0], p[1], p[2]);
                        if (r.written) std::memcpy(want.bytes(x, y, z), &r.bits, sizeof(T));
                        for (int a = 0; a < 3; ++a) p[a] += I[a][0];
                    }
                    for (int a = 0; a < 3; ++a) l[a] += I[a][1];
                }
            }
        }
        int bad = 0;
        for (Lum32s z = 0; z < dst.d; ++z)
            for (Lum32s y = 0; y < dst.h; ++y)
                for (Lum32s x = 0; x < dst.w; ++x)
                    if (dst.bits(x, y, z) != want.bits(x, y, z) && ++bad < 5)
                        ADD_FAILURE() << "code " << code << " at " << x << "," << y << "," << z
                                      << " got " << dst.bits(x, y, z) << " want " << want.bits(x, y, z);
        EXPECT_EQ(bad, 0) << "code " << code;
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

TEST(WarpAffine, StatusesAndThePlacesOfTheSingularityTests) {
    Warp<Lum8u> w({8, 8, 8}, {0, 0, 0, 8, 8, 8}, {8, 8, 8}, {0, 0, 0, 8, 8, 8});
    const LumVolume sv{8, 8, 8};
    auto call = [&](const Lum8u* const* s, Lum8u* const* d, Lum32s code) {
        return lumrWarpAffine_8u_C1PV(s, &sv, 8, &w.srcBox, d, 8, &w.dstBox, w.c, code);
    };
    auto set = [&](std::initializer_list<Lum64f> v) {
        std::copy(v.begin(), v.end(), &w.c[0][0]);
    };
    EXPECT_EQ(call(nullptr, w.dst.dst(), 1), lumStatusNullPtr);
    EXPECT_EQ(call(w.src.src(), nullptr, 1), lumStatusNullPtr);
    w.srcBox.depth = 0;
    set({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});  // sizes come before the coefficients
    EXPECT_EQ(call(w.src.src(), w.dst.dst(), 1), lumStatusSize);
    w.srcBox = {0, 0, 0, 8, 8, 8};
    w.dstBox.x = -1;
    EXPECT_EQ(call(w.src.src(), w.dst.dst(), 1), lumStatusSize);
    w.dstBox = {0, 0, 0, 8, 8, 8};
    EXPECT_EQ(call(w.src.src(), w.dst.dst(), 0), lumStatusBadCoeffs);  // zero matrix, first test
    // Two equal lower rows: the second test, ahead of the bad code.
    set({1, 0, 0, 0, 0, 1, 2, 0, 0, 1, 2, 0});
    EXPECT_EQ(call(w.src.src(), w.dst.dst(), 3), lumStatusBadCoeffs);
    // Singular through the first row only (rows 2 and 3 independent): the
    // code and the overlap come first, the determinant last.
    set({0, 1, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0});
    EXPECT_EQ(call(w.src.src(), w.dst.dst(), 3), lumStatusBadInterpolation);
    w.srcBox.x = 8;
    EXPECT_EQ(call(w.src.src(), w.dst.dst(), 1), lumWarnNoOverlap);
    w.srcBox.x = 0;
    EXPECT_EQ(call(w.src.src(), w.dst.dst(), 1), lumStatusBadCoeffs);
    // A plain scaling by 1e-4 has a determinant of 1e-12 and is refused; by
    // 1e-3 (1e-9) it goes through.
    set({1e-4, 0, 0, 0, 0, 1e-4, 0, 0, 0, 0, 1e-4, 0});
    EXPECT_EQ(call(w.src.src(), w.dst.dst(), 1), lumStatusBadCoeffs);
    PlanarVolume<Lum8u> canary(8, 8, 8);
    EXPECT_TRUE(w.dst.same(canary));
    set({1e-3, 0, 0, 0, 0, 1e-3, 0, 0, 0, 0, 1e-3, 0});
    EXPECT_EQ(call(w.src.src(), w.dst.dst(), 1), lumStatusOk);
    // A rotation by 90 degrees about z has c00 = c11 = 0 and passes.
    set({0, -1, 0, 7, 1, 0, 0, 0, 0, 0, 1, 0});
    EXPECT_EQ(call(w.src.src(), w.dst.dst(), 1), lumStatusOk);
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
        // faces; 5 and 7 smooth.  Outside the box nothing is written.
        bool same = true;
        for (Lum32s z = 0; z < 10; ++z)
            for (Lum32s y = 0; y < 11; ++y)
                for (Lum32s x = 0; x < 12; ++x) {
                    const bool in = x >= 1 && x <= 8 && y >= 1 && y <= 7 && z >= 1 && z <= 6;
                    if (!in) EXPECT_EQ(w.dst.bits(x, y, z), PlanarVolume<T>(1, 1, 1).bits(0, 0, 0));
                    else same = same && w.dst.get(x, y, z) == w.src.get(x, y, z);
                }
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
                    ASSERT_EQ(r.dst.get(x, y, z), r.src.get(y, 9 - x, z)) << code << " " << x << " " << y;
    }
}

TEST(WarpAffine, PositionsAdvanceByAddition) {
    // Scaling x by 10 makes the x increment 0.1: ten additions give
    // 0.9999999999999999, below xMin = 1, where 10 x 0.1 would give 1.
    Warp<Lum16u> w({8, 4, 4}, {1, 0, 0, 7, 4, 4}, {30, 2, 3}, {0, 1, 2, 30, 1, 1});
    w.src.fill([](int x, int y, int z) { return Lum16u(1000 + x + 10 * y + 100 * z); });
    w.c[0][0] = 10.0;
    ASSERT_EQ(w.run(LUM_RESAMPLE_NEAREST), lumStatusOk);
    EXPECT_EQ(w.dst.get(10, 1, 2), 0xA5A5);  // not written
    EXPECT_EQ(w.dst.get(11, 1, 2), 1000 + 1 + 10 + 200);
    w.expectReference(LUM_RESAMPLE_NEAREST);
    ASSERT_EQ(w.run(LUM_RESAMPLE_LINEAR), lumStatusOk);
    EXPECT_EQ(w.dst.get(10, 1, 2), 0xA5A5);
    w.expectReference(LUM_RESAMPLE_LINEAR);
}

TEST(WarpAffine, DoublePositionsAgainstRemap) {
    // The source position is the destination's shifted by a hair.  At +1e-11
    // (x = 2.99999999999) the index is 2 but the float position is 3.0, so
    // the fraction is exactly 1 and cubic taps pick sample 3 on the tap set
    // of 2; at -1e-11 the position xMax + 1e-11 is out of range, while a
    // remap field holding the float of it is in range.
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

    // 32f, code 5, identity: at the faces of the box the warp keeps the
    // fraction that remap cuts off from the same positions.
    Warp<Lum32f> b({8, 8, 8}, {0, 0, 0, 8, 8, 8}, {8, 8, 8}, {0, 0, 0, 8, 8, 8});
    b.src.fill([](int x, int y, int z) { return 0.3f * x + 0.7f * y + 1.1f * z + 0.37f; });
    ASSERT_EQ(b.run(LUM_RESAMPLE_BSPLINE), lumStatusOk);
    PlanarVolume<Lum32f> mx(8, 8, 8), my(8, 8, 8), mz(8, 8, 8), out(8, 8, 8);
    mx.fill([](int x, int, int) { return float(x); });
    my.fill([](int, int y, int) { return float(y); });
    mz.fill([](int, int, int z) { return float(z); });
    const LumVolume v{8, 8, 8};
    const LumBox box{0, 0, 0, 8, 8, 8};
    ASSERT_EQ(lumrRemap_32f_C1PV(b.src.src(), &v, 32, &box, mx.src(), my.src(), mz.src(), 32,
                                 out.dst(), 32, &v, LUM_RESAMPLE_BSPLINE),
              lumStatusOk);
    int borders = 0;
    for (Lum32s z = 0; z < 8; ++z)
        for (Lum32s y = 0; y < 8; ++y)
            for (Lum32s x = 0; x < 8; ++x) {
                const bool inside = x >= 1 && x <= 5 && y >= 1 && y <= 5 && z >= 1 && z <= 5;
                const float warp = b.dst.get(x, y, z), remap = out.get(x, y, z);
                if (inside) {
                    EXPECT_EQ(warp, remap);
                } else {
                    EXPECT_EQ(remap, float(int(warp)));
                    borders += warp != remap;
                }
            }
    EXPECT_GT(borders, 300);
}

TYPED_TEST(WarpTyped, MatchesReferenceBitForBit) {
    using T = TypeParam;
    std::mt19937 rng(31 + sizeof(T));
    const double a = 20.0 * 3.14159265358979 / 180.0;
    const Matrix c = {{1.2 * std::cos(a), -1.2 * std::sin(a), 0.05, 2.3},
                      {1.2 * std::sin(a), 1.2 * std::cos(a), -0.1, -1.7},
                      {0.02, 0.07, 1.15, 0.4}};
    const LumBox boxes[] = {{0, 0, 0, 14, 12, 10}, {2, 1, 2, 9, 30, 6}};
    for (const LumBox& box : boxes)
        for (Lum32s code : kCodes) {
            Warp<T> w({14, 12, 10}, box, {21, 17, 14}, {1, 2, 1, 19, 14, 12});
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
            ThreadCount threads(1);
            ASSERT_EQ(w.run(code), lumStatusOk);
        }
        w.expectReference(code);
        if (code == 1) {
            // With more threads than planes only the last one works, with the
            // whole box: the same as one thread.
            Warp<T> s({18, 18, 18}, {0, 0, 0, 18, 18, 18}, {18, 17, 25}, {1, 1, 5, 17, 16, 16});
            std::copy(&c[0][0], &c[0][0] + 12, &s.c[0][0]);
            s.src.fill([&](int x, int y, int z) { return T(w.src.get(x, y, z)); });
            ThreadCount threads(20);
            ASSERT_EQ(s.run(code), lumStatusOk);
            s.expectReference(code);
        }
    }
}

}  // namespace
