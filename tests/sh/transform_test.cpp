// Spherical-harmonic transforms: checks and their order, layouts, and the
// point-by-point accumulation of the forward transforms.
#include "frame/own.h"
#include "sh/sh_test_util.h"

namespace {

constexpr Lum32u kL = 5;
constexpr int kN = (kL + 1) * (kL + 1);

struct Points {
    Directions d;
    std::vector<Lum32f> s0, s1, s2, interleaved;  // three channels, and as C3
};

Points makePoints(int count, unsigned seed) {
    Points p{randomUnitDirections(count, seed), {}, {}, {}, {}};
    std::mt19937 rng(seed + 1);
    std::uniform_real_distribution<float> u(-2.0f, 2.0f);
    for (int i = 0; i < count; ++i) {
        p.s0.push_back(u(rng)), p.s1.push_back(u(rng)), p.s2.push_back(u(rng));
        // Exact 0 and 1 take the shortcuts of the scaling.
        if (i % 7 == 3) p.s1.back() = 0.0f;
        if (i % 5 == 1) p.s2.back() = 1.0f;
        p.interleaved.insert(p.interleaved.end(), {p.s0.back(), p.s1.back(), p.s2.back()});
    }
    return p;
}

struct Coeffs3 {
    std::vector<Lum32f> x, y, z;
    explicit Coeffs3(int n, Lum32f v = 0.0f) : x(n, v), y(n, v), z(n, v) {}
    LumPlanes3 planes() { return {x.data(), y.data(), z.data()}; }
};

// The forward transform as a plain model: one direction at a time, scaled
// and added in point order.
std::vector<Lum32f> modelForward(const Directions& d, const std::vector<Lum32f>& s, int first,
                                 int last, std::vector<Lum32f> acc, LumSHState* st) {
    for (int i = first; i < last; ++i) {
        std::vector<Lum32f> b(kN);
        EXPECT_EQ(lumrSH_32f(&d.x[i], &d.y[i], &d.z[i], 1, b.data(), kL, st), lumStatusOk);
        ownMulC_32f_I(s[i], b.data(), kN);
        ownAdd_32f_I(b.data(), acc.data(), kN);
    }
    return acc;
}

TEST(SHTransform, ForwardAccumulatesPointByPoint) {
    for (Lum32u alg : {lumSHClosedForm, lumSHRecurrence}) {
        SHState st(15, alg);
        const Points p = makePoints(29, 4 + alg);
        const Directions& d = p.d;
        std::vector<Lum32f> start(kN);
        for (int k = 0; k < kN; ++k) start[k] = 0.125f * k - 1.0f;

        std::vector<Lum32f> one = start;
        ASSERT_EQ(lumrSHTFwd_32f_C1I(d.x.data(), d.y.data(), d.z.data(), p.s0.data(), 29,
                                     one.data(), kL, st.get()),
                  lumStatusOk);
        EXPECT_TRUE(sameBits(one, modelForward(d, p.s0, 0, 29, start, st.get())));

        // Split at a point that is no multiple of the packed group.
        std::vector<Lum32f> split = start;
        lumrSHTFwd_32f_C1I(d.x.data(), d.y.data(), d.z.data(), p.s0.data(), 13, split.data(), kL,
                           st.get());
        lumrSHTFwd_32f_C1I(d.x.data() + 13, d.y.data() + 13, d.z.data() + 13, p.s0.data() + 13, 16,
                           split.data(), kL, st.get());
        EXPECT_TRUE(sameBits(one, split));

        // Three channels: interleaved and planar samples agree with each other,
        // with split calls, and channel by channel with the one-channel form.
        Coeffs3 c3(kN), p3(kN), sp(kN);
        LumPlanes3 c3p = c3.planes(), p3p = p3.planes(), spp = sp.planes();
        std::vector<Lum32f> s0 = p.s0, s1 = p.s1, s2 = p.s2;
        LumPlanes3 samples{s0.data(), s1.data(), s2.data()};
        ASSERT_EQ(lumrSHTFwd_32f_C3P3I(d.x.data(), d.y.data(), d.z.data(), p.interleaved.data(),
                                       29, &c3p, kL, st.get()),
                  lumStatusOk);
        ASSERT_EQ(lumrSHTFwd_32f_P3I(d.x.data(), d.y.data(), d.z.data(), &samples, 29, &p3p, kL,
                                     st.get()),
                  lumStatusOk);
        lumrSHTFwd_32f_C3P3I(d.x.data(), d.y.data(), d.z.data(), p.interleaved.data(), 10, &spp,
                             kL, st.get());
        lumrSHTFwd_32f_C3P3I(d.x.data() + 10, d.y.data() + 10, d.z.data() + 10,
                             p.interleaved.data() + 30, 19, &spp, kL, st.get());
        const std::vector<Lum32f>* planes[3][3] = {
            {&c3.x, &p3.x, &sp.x}, {&c3.y, &p3.y, &sp.y}, {&c3.z, &p3.z, &sp.z}};
        const std::vector<Lum32f>* chan[3] = {&p.s0, &p.s1, &p.s2};
        for (int c = 0; c < 3; ++c) {
            const std::vector<Lum32f> want =
                modelForward(d, *chan[c], 0, 29, std::vector<Lum32f>(kN), st.get());
            for (int v = 0; v < 3; ++v) EXPECT_TRUE(sameBits(*planes[c][v], want)) << c << v;
        }
    }
}

TEST(SHTransform, ForwardSmallCases) {
    SHState st(15, lumSHClosedForm);
    // One sample of 1 at the pole gives the basis block itself.
    Lum32f x = 0, y = 0, z = 1, one = 1;
    std::vector<Lum32f> c(4, 0.0f), basis(4);
    ASSERT_EQ(lumrSHTFwd_32f_C1I(&x, &y, &z, &one, 1, c.data(), 1, st.get()), lumStatusOk);
    lumrSH_32f(&x, &y, &z, 1, basis.data(), 1, st.get());
    for (int k = 0; k < 4; ++k) EXPECT_EQ(c[k], basis[k]) << k;  // -0 + 0 gives +0
    // Twice the same point doubles exactly.
    Lum32f s = 0.75f;
    std::vector<Lum32f> once(kN, 0.0f);
    const Directions d = randomUnitDirections(1, 8);
    lumrSHTFwd_32f_C1I(d.x.data(), d.y.data(), d.z.data(), &s, 1, once.data(), kL, st.get());
    std::vector<Lum32f> twice = once;
    lumrSHTFwd_32f_C1I(d.x.data(), d.y.data(), d.z.data(), &s, 1, twice.data(), kL, st.get());
    for (int k = 0; k < kN; ++k) EXPECT_EQ(twice[k], 2.0f * once[k]);

    // L = 0: one coefficient per channel, nothing beyond it.
    Coeffs3 c3(2, kCanary);
    c3.x[0] = c3.y[0] = c3.z[0] = 0.0f;
    LumPlanes3 c3p = c3.planes();
    const Lum32f rgb[3] = {1.0f, 2.0f, -4.0f};
    ASSERT_EQ(lumrSHTFwd_32f_C3P3I(&x, &y, &z, rgb, 1, &c3p, 0, st.get()), lumStatusOk);
    EXPECT_EQ(bitsOf(c3.x[0]), 0x3E906EBBu);
    EXPECT_EQ(c3.y[0], 2.0f * c3.x[0]);
    EXPECT_EQ(c3.z[0], -4.0f * c3.x[0]);
    EXPECT_EQ(c3.x[1], kCanary);
}

// A zero sample clears rather than multiplies: an infinite basis value adds
// nothing, a NaN already in the coefficients stays, and -0 becomes +0.
TEST(SHTransform, ZeroSampleAddsAPositiveZero) {
    SHState st(15, lumSHRecurrence);
    const Lum32f inf = std::numeric_limits<Lum32f>::infinity();
    const Lum32f nan = std::numeric_limits<Lum32f>::quiet_NaN();
    Lum32f x[2] = {inf, 0.6f}, y[2] = {0.0f, -0.8f}, z[2] = {0.0f, 0.0f}, zero[2] = {0, 0};
    std::vector<Lum32f> c(kN, 0.5f);
    c[0] = nan, c[1] = -0.0f;
    ASSERT_EQ(lumrSHTFwd_32f_C1I(x, y, z, zero, 2, c.data(), kL, st.get()), lumStatusOk);
    EXPECT_TRUE(std::isnan(c[0]));
    EXPECT_EQ(bitsOf(c[1]), 0u);
    for (int k = 2; k < kN; ++k) EXPECT_EQ(c[k], 0.5f) << k;
}

TEST(SHTransform, InverseLayouts) {
    for (Lum32u alg : {lumSHClosedForm, lumSHRecurrence}) {
        SHState st(15, alg);
        const Directions d = randomUnitDirections(21, 30 + alg);
        // Entry 0 alone gives the constant everywhere.
        std::vector<Lum32f> dc(kN, 0.0f), out(21, kCanary);
        dc[0] = 1.0f;
        ASSERT_EQ(lumrSHTInv_32f_C1(dc.data(), kL, d.x.data(), d.y.data(), d.z.data(), out.data(),
                                    21, st.get()),
                  lumStatusOk);
        for (Lum32f v : out) EXPECT_EQ(bitsOf(v), 0x3E906EBBu);

        Coeffs3 sets(kN);
        for (int k = 0; k < kN; ++k)
            sets.x[k] = 0.5f - 0.03f * k, sets.y[k] = 0.01f * k * k, sets.z[k] = (k % 3) - 1.0f;
        LumPlanes3 setp = sets.planes();
        Coeffs3 planar(21, kCanary);
        LumPlanes3 planarp = planar.planes();
        std::vector<Lum32f> inter(63, kCanary);
        ASSERT_EQ(lumrSHTInv_32f_P3(&setp, kL, d.x.data(), d.y.data(), d.z.data(), &planarp, 21,
                                    st.get()),
                  lumStatusOk);
        ASSERT_EQ(lumrSHTInv_32f_P3C3(&setp, kL, d.x.data(), d.y.data(), d.z.data(), inter.data(),
                                      21, st.get()),
                  lumStatusOk);
        const std::vector<Lum32f>* setv[3] = {&sets.x, &sets.y, &sets.z};
        const std::vector<Lum32f>* planev[3] = {&planar.x, &planar.y, &planar.z};
        for (int c = 0; c < 3; ++c) {
            std::vector<Lum32f> c1(21, kCanary);
            lumrSHTInv_32f_C1(setv[c]->data(), kL, d.x.data(), d.y.data(), d.z.data(), c1.data(),
                              21, st.get());
            EXPECT_TRUE(sameBits(*planev[c], c1)) << c;
            for (int i = 0; i < 21; ++i) {
                EXPECT_EQ(bitsOf(inter[3 * i + c]), bitsOf(c1[i])) << c << " " << i;
                // Each value is the lane-wise dot product of the point's basis.
                std::vector<Lum32f> b(kN);
                lumrSH_32f(&d.x[i], &d.y[i], &d.z[i], 1, b.data(), kL, st.get());
                Lum32f want = 0;
                ownDotProd_32f(b.data(), setv[c]->data(), kN, &want);
                EXPECT_EQ(bitsOf(c1[i]), bitsOf(want)) << c << " " << i;
            }
        }
    }
}

// Every pointer, plane pointers included, is looked at before the count and
// the band; then count zero, the band against the state, and the guard that
// keeps the band within the scratch block.  Nothing is written on failure.
TEST(SHTransform, ChecksAndTheirOrder) {
    SHState st(3, lumSHClosedForm), big(20, lumSHRecurrence);
    Lum32f x[2] = {0, 1}, y[2] = {1, 0}, z[2] = {0, 0}, s[6] = {1, 1, 1, 1, 1, 1};
    std::vector<Lum32f> a(512, kCanary), b(512, kCanary), c(512, kCanary), o(8, kCanary);
    LumPlanes3 pc{a.data(), b.data(), c.data()}, ps{s, s, s};
    LumSHState* S = st.get();
    LumSHState odd = {15, 7, nullptr, nullptr};

    // Runs fn with each pointer in turn made null, count 0 and band 99: the
    // pointer must win.  Then the remaining statuses in order.
    auto checkAll = [&](auto fn, int nptr) {
        for (int k = 0; k < nptr; ++k) EXPECT_EQ(fn(k, 0, 99u, S), lumStatusNullPtr) << k;
        EXPECT_EQ(fn(-1, 0, 99u, S), lumStatusSize);
        EXPECT_EQ(fn(-1, -3, 4u, S), lumStatusBadBand);
        EXPECT_EQ(fn(-1, 2, 16u, big.get()), lumStatusBadBand);
        EXPECT_EQ(fn(-1, 2, 1u, &odd), lumStatusBadBand);
        EXPECT_EQ(fn(-1, -3, 3u, S), lumStatusOk);
    };
    auto nul = [](int k, int i, auto* p) { return k == i ? nullptr : p; };
    // Plane pointers are replaced inside copies, so null planes reach the call.
    auto planes = [&](int k, int first, LumPlanes3 p) {
        if (k == first) p.X = nullptr;
        if (k == first + 1) p.Y = nullptr;
        if (k == first + 2) p.Z = nullptr;
        return p;
    };
    checkAll(
        [&](int k, Lum32s n, Lum32u L, LumSHState* t) {
            return lumrSHTFwd_32f_C1I(nul(k, 0, x), nul(k, 1, y), nul(k, 2, z), nul(k, 3, s), n,
                                      nul(k, 4, a.data()), L, nul(k, 5, t));
        },
        6);
    checkAll(
        [&](int k, Lum32s n, Lum32u L, LumSHState* t) {
            LumPlanes3 q = planes(k, 6, pc);
            return lumrSHTFwd_32f_C3P3I(nul(k, 0, x), nul(k, 1, y), nul(k, 2, z), nul(k, 3, s), n,
                                        nul(k, 4, &q), L, nul(k, 5, t));
        },
        9);
    checkAll(
        [&](int k, Lum32s n, Lum32u L, LumSHState* t) {
            LumPlanes3 src = planes(k, 6, ps), q = planes(k, 9, pc);
            return lumrSHTFwd_32f_P3I(nul(k, 0, x), nul(k, 1, y), nul(k, 2, z), nul(k, 3, &src),
                                      n, nul(k, 4, &q), L, nul(k, 5, t));
        },
        12);
    // The inverse transforms read what a failed forward would have written:
    // untouched coefficients.
    for (Lum32f v : a) ASSERT_EQ(bitsOf(v), bitsOf(kCanary));
    checkAll(
        [&](int k, Lum32s n, Lum32u L, LumSHState* t) {
            return lumrSHTInv_32f_C1(nul(k, 0, s), L, nul(k, 1, x), nul(k, 2, y), nul(k, 3, z),
                                     nul(k, 4, o.data()), n, nul(k, 5, t));
        },
        6);
    checkAll(
        [&](int k, Lum32s n, Lum32u L, LumSHState* t) {
            LumPlanes3 q = planes(k, 6, ps), dst = planes(k, 9, pc);
            return lumrSHTInv_32f_P3(nul(k, 0, &q), L, nul(k, 1, x), nul(k, 2, y), nul(k, 3, z),
                                     nul(k, 4, &dst), n, nul(k, 5, t));
        },
        12);
    checkAll(
        [&](int k, Lum32s n, Lum32u L, LumSHState* t) {
            LumPlanes3 q = planes(k, 6, ps);
            return lumrSHTInv_32f_P3C3(nul(k, 0, &q), L, nul(k, 1, x), nul(k, 2, y), nul(k, 3, z),
                                       nul(k, 4, o.data()), n, nul(k, 5, t));
        },
        9);
    for (const auto* v : {&a, &b, &c, &o})
        for (Lum32f e : *v) ASSERT_EQ(bitsOf(e), bitsOf(kCanary));
}

}  // namespace
