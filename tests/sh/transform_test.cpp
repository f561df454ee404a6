// Spherical-harmonic transforms: checks and their order, and every layout of
// the forward and inverse transforms against a model of their point order.
#include "frame/own.h"
#include "sh/sh_test_util.h"

namespace {

// The model: the forward transforms add each point's basis times its sample
// (1 keeps, 0 clears) in point order, one rounding per addition; the inverse
// ones take the lane-wise dot product of each point's basis with each set.
// Coefficients start non-zero, since they are added to, and every output
// carries a canary past its end.
TEST(SHTransform, AllLayoutsFollowThePointOrder) {
    const int count = 29;
    const Directions d = randomUnitDirections(count, 4);
    const Lum32f *X = d.x.data(), *Y = d.y.data(), *Z = d.z.data();
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> u(-2.0f, 2.0f);
    std::vector<Lum32f> c3(3 * count), pl[3];
    for (int i = 0; i < 3 * count; ++i) c3[i] = i % 7 == 3 ? 0.0f : i % 5 == 1 ? 1.0f : u(rng);
    for (int c = 0; c < 3; ++c)
        for (int i = 0; i < count; ++i) pl[c].push_back(c3[3 * i + c]);
    const LumPlanes3 src{pl[0].data(), pl[1].data(), pl[2].data()};
    auto planes = [](std::vector<Lum32f>* v) {
        return LumPlanes3{v[0].data(), v[1].data(), v[2].data()};
    };

    for (Lum32u alg : {lumSHClosedForm, lumSHRecurrence}) {
        SHState st(15, alg);
        LumSHState* S = st.get();
        for (Lum32u L : {0u, 3u, 5u, 15u}) {
            const int n = (L + 1) * (L + 1);
            std::vector<Lum32f> basis(count * n), start(n + 1, kCanary);
            ASSERT_EQ(lumrSH_32f(X, Y, Z, count, basis.data(), L, S), lumStatusOk);
            for (int k = 0; k < n; ++k) start[k] = 0.125f * k - 1.0f;
            std::vector<Lum32f> want[3] = {start, start, start};
            for (int c = 0; c < 3; ++c)
                for (int i = 0; i < count; ++i)
                    for (int k = 0; k < n; ++k) {
                        const Lum32f v = c3[3 * i + c], b = basis[i * n + k];
                        want[c][k] = want[c][k] + (v == 1.0f ? b : v == 0.0f ? 0.0f : b * v);
                    }
            // One channel, in one call and split at a point off the group of eight.
            std::vector<Lum32f> one = start, split = start;
            ASSERT_EQ(lumrSHTFwd_32f_C1I(X, Y, Z, pl[0].data(), count, one.data(), L, S),
                      lumStatusOk);
            lumrSHTFwd_32f_C1I(X, Y, Z, pl[0].data(), 13, split.data(), L, S);
            lumrSHTFwd_32f_C1I(X + 13, Y + 13, Z + 13, pl[0].data() + 13, count - 13, split.data(),
                               L, S);
            EXPECT_TRUE(sameBits(one, want[0])) << alg << " L=" << L;
            EXPECT_TRUE(sameBits(split, want[0])) << alg << " L=" << L;
            // Three channels, interleaved and planar.
            std::vector<Lum32f> ci[3] = {start, start, start}, cp[3] = {start, start, start};
            const LumPlanes3 pi = planes(ci), pp = planes(cp);
            ASSERT_EQ(lumrSHTFwd_32f_C3P3I(X, Y, Z, c3.data(), count, &pi, L, S), lumStatusOk);
            ASSERT_EQ(lumrSHTFwd_32f_P3I(X, Y, Z, &src, count, &pp, L, S), lumStatusOk);
            for (int c = 0; c < 3; ++c) {
                EXPECT_TRUE(sameBits(ci[c], want[c])) << "C3P3I " << alg << " " << L << " " << c;
                EXPECT_TRUE(sameBits(cp[c], want[c])) << "P3I " << alg << " " << L << " " << c;
            }
            // The inverse of the sets just accumulated, in all three layouts.
            const LumPlanes3 sets = planes(want);
            std::vector<Lum32f> outP[3], outC(3 * count + 1, kCanary), out1(count + 1, kCanary);
            for (auto& v : outP) v.assign(count + 1, kCanary);
            const LumPlanes3 dstP = planes(outP);
            ASSERT_EQ(lumrSHTInv_32f_P3(&sets, L, X, Y, Z, &dstP, count, S), lumStatusOk);
            ASSERT_EQ(lumrSHTInv_32f_P3C3(&sets, L, X, Y, Z, outC.data(), count, S), lumStatusOk);
            for (int c = 0; c < 3; ++c) {
                ASSERT_EQ(lumrSHTInv_32f_C1(want[c].data(), L, X, Y, Z, out1.data(), count, S),
                          lumStatusOk);
                for (int i = 0; i < count; ++i) {
                    Lum32f dot = 0;
                    ownDotProd_32f(&basis[i * n], want[c].data(), n, &dot);
                    EXPECT_EQ(bitsOf(out1[i]), bitsOf(dot)) << alg << " L=" << L << " c=" << c;
                    EXPECT_EQ(bitsOf(outP[c][i]), bitsOf(dot)) << alg << " L=" << L << " c=" << c;
                    EXPECT_EQ(bitsOf(outC[3 * i + c]), bitsOf(dot)) << alg << " L=" << L;
                }
                EXPECT_EQ(bitsOf(outP[c][count]), bitsOf(kCanary));
            }
            EXPECT_EQ(bitsOf(outC[3 * count]), bitsOf(kCanary));
            EXPECT_EQ(bitsOf(out1[count]), bitsOf(kCanary));
            // Entry 0 alone gives the constant everywhere.
            std::vector<Lum32f> dc(n, 0.0f);
            dc[0] = 1.0f;
            ASSERT_EQ(lumrSHTInv_32f_C1(dc.data(), L, X, Y, Z, out1.data(), count, S), lumStatusOk);
            for (int i = 0; i < count; ++i) EXPECT_EQ(bitsOf(out1[i]), 0x3E906EBBu);
        }
    }
}

// A zero sample clears rather than multiplies: an infinite basis value adds
// nothing, a NaN already in the coefficients stays, and -0 becomes +0.
TEST(SHTransform, ZeroSampleAddsAPositiveZero) {
    SHState st(15, lumSHRecurrence);
    const Lum32f inf = std::numeric_limits<Lum32f>::infinity();
    Lum32f x[2] = {inf, 0.6f}, y[2] = {0.0f, -0.8f}, z[2] = {0.0f, 0.0f}, zero[2] = {0, 0};
    std::vector<Lum32f> c(36, 0.5f);
    c[0] = std::numeric_limits<Lum32f>::quiet_NaN(), c[1] = -0.0f;
    ASSERT_EQ(lumrSHTFwd_32f_C1I(x, y, z, zero, 2, c.data(), 5, st.get()), lumStatusOk);
    EXPECT_TRUE(std::isnan(c[0]));
    EXPECT_EQ(bitsOf(c[1]), 0u);
    for (int k = 2; k < 36; ++k) EXPECT_EQ(c[k], 0.5f) << k;
}

// Every pointer, plane pointers included, is looked at before the count and
// the band; then count zero, the band against the state, and the guards that
// keep the band within the scratch block and refuse an unknown algorithm.
// Nothing is written on failure.
TEST(SHTransform, ChecksAndTheirOrder) {
    SHState st(3, lumSHClosedForm), big(20, lumSHRecurrence);
    Lum32f x[2] = {0, 1}, y[2] = {1, 0}, z[2] = {0, 0}, s[6] = {1, 1, 1, 1, 1, 1};
    std::vector<Lum32f> a(512, kCanary), b(512, kCanary), c(512, kCanary), o(8, kCanary);
    LumPlanes3 pc{a.data(), b.data(), c.data()}, ps{s, s, s};
    LumSHState* S = st.get();
    LumSHState odd = {15, 7, nullptr, nullptr};

    // fn(k, count, L, state) runs a transform with its k-th pointer made null:
    // with count 0 and band 99 the pointer must win; then the other statuses.
    auto checkAll = [&](int nptr, auto fn) {
        for (int k = 0; k < nptr; ++k) EXPECT_EQ(fn(k, 0, 99u, S), lumStatusNullPtr) << k;
        EXPECT_EQ(fn(-1, 0, 99u, S), lumStatusSize);
        EXPECT_EQ(fn(-1, -3, 4u, S), lumStatusBadBand);
        EXPECT_EQ(fn(-1, 2, 16u, big.get()), lumStatusBadBand);
        EXPECT_EQ(fn(-1, 2, 1u, &odd), lumStatusBadBand);
        EXPECT_EQ(fn(-1, -3, 3u, S), lumStatusOk);
    };
    auto nul = [](int k, int i, auto* p) { return k == i ? nullptr : p; };
    // A copy of p with plane k - first made null.
    auto planes = [](int k, int first, LumPlanes3 p) {
        if (k == first) p.X = nullptr;
        if (k == first + 1) p.Y = nullptr;
        if (k == first + 2) p.Z = nullptr;
        return p;
    };
    checkAll(6, [&](int k, Lum32s n, Lum32u L, LumSHState* t) {
        return lumrSHTFwd_32f_C1I(nul(k, 0, x), nul(k, 1, y), nul(k, 2, z), nul(k, 3, s), n,
                                  nul(k, 4, a.data()), L, nul(k, 5, t));
    });
    checkAll(9, [&](int k, Lum32s n, Lum32u L, LumSHState* t) {
        LumPlanes3 q = planes(k, 6, pc);
        return lumrSHTFwd_32f_C3P3I(nul(k, 0, x), nul(k, 1, y), nul(k, 2, z), nul(k, 3, s), n,
                                    nul(k, 4, &q), L, nul(k, 5, t));
    });
    checkAll(12, [&](int k, Lum32s n, Lum32u L, LumSHState* t) {
        LumPlanes3 p = planes(k, 6, ps), q = planes(k, 9, pc);
        return lumrSHTFwd_32f_P3I(nul(k, 0, x), nul(k, 1, y), nul(k, 2, z), nul(k, 3, &p), n,
                                  nul(k, 4, &q), L, nul(k, 5, t));
    });
    checkAll(6, [&](int k, Lum32s n, Lum32u L, LumSHState* t) {
        return lumrSHTInv_32f_C1(nul(k, 0, s), L, nul(k, 1, x), nul(k, 2, y), nul(k, 3, z),
                                 nul(k, 4, o.data()), n, nul(k, 5, t));
    });
    checkAll(12, [&](int k, Lum32s n, Lum32u L, LumSHState* t) {
        LumPlanes3 p = planes(k, 6, ps), q = planes(k, 9, pc);
        return lumrSHTInv_32f_P3(nul(k, 0, &p), L, nul(k, 1, x), nul(k, 2, y), nul(k, 3, z),
                                 nul(k, 4, &q), n, nul(k, 5, t));
    });
    checkAll(9, [&](int k, Lum32s n, Lum32u L, LumSHState* t) {
        LumPlanes3 p = planes(k, 6, ps);
        return lumrSHTInv_32f_P3C3(nul(k, 0, &p), L, nul(k, 1, x), nul(k, 2, y), nul(k, 3, z),
                                   nul(k, 4, o.data()), n, nul(k, 5, t));
    });
    for (const auto* v : {&a, &b, &c, &o})
        for (Lum32f e : *v) ASSERT_EQ(bitsOf(e), bitsOf(kCanary));
}

}  // namespace
