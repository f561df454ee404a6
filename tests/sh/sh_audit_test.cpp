// Spherical harmonics, checked bit for bit against each rule written out
// again here from its definition: the precision of every table entry, the
// grouping of every recurrence product, the fixed constants of the low
// closed-form bands, and the per-point order of the transforms.
#include "sh/sh_test_util.h"

namespace {

// Table entries by their recipes: which quotients are Lum32f, which square
// roots Lum32f or Lum64f, and where each rounds.
Lum32f recipeA(int l, int m) {
    if (m == 0) return static_cast<Lum32f>(std::sqrt(4.0 * l * l - 1.0) / l);
    if (m == l) return static_cast<Lum32f>(-std::sqrt((2.0 * l + 1.0) / (2.0 * l)));
    const Lum32f q = static_cast<Lum32f>(4 * l * l - 1) / static_cast<Lum32f>(l * l - m * m);
    return std::sqrt(q);  // float square root
}
Lum32f recipeB(int l, int m) {
    if (m == 0) {
        const Lum32f q = static_cast<Lum32f>(2 * l + 1) / static_cast<Lum32f>(2 * l - 3);
        return static_cast<Lum32f>((1.0 / l - 1.0) * std::sqrt(static_cast<double>(q)));
    }
    const Lum32f q = static_cast<Lum32f>(((l - 1) * (l - 1) - m * m) * (2 * l + 1)) /
                     static_cast<Lum32f>((l * l - m * m) * (2 * l - 3));
    return static_cast<Lum32f>(-std::sqrt(static_cast<double>(q)));
}

TEST(SHAudit, TableEntriesFollowTheirPrecisionBitForBit) {
    SHState s(20, lumSHRecurrence);
    const Lum32f* a = s.get()->tableA;
    const Lum32f* b = s.get()->tableB;
    // c0 = 1 / sqrt(4 pi) in double from the stated constant; c1 from the
    // rounded c0.
    const Lum32f c0 = static_cast<Lum32f>(1.0 / std::sqrt(12.566370614359172));
    const Lum32f c1 = static_cast<Lum32f>(static_cast<double>(c0) * 1.7320508075688772);
    EXPECT_EQ(bitsOf(a[0]), bitsOf(c0));
    EXPECT_EQ(bitsOf(a[1]), bitsOf(c1));
    EXPECT_EQ(bitsOf(a[2]), bitsOf(-c1));
    for (int l = 2; l <= 20; ++l) {
        const int first = l * (l + 1) / 2;
        for (int m = 0; m <= l; ++m)
            EXPECT_EQ(bitsOf(a[first + m]), bitsOf(recipeA(l, m))) << "A l=" << l << " m=" << m;
        for (int m = 0; m < l; ++m)
            EXPECT_EQ(bitsOf(b[first + m]), bitsOf(recipeB(l, m))) << "B l=" << l << " m=" << m;
    }
}

// The recurrence in Lum32f with the grouping of each step as it is defined:
// sectoral pair times d(l), (z a) times the band below, plus b times two
// bands below.
void recurrenceModel(Lum32f x, Lum32f y, Lum32f z, const Lum32f* A, const Lum32f* B, int L,
                     Lum32f* Y) {
    auto at = [&](int l, int m) -> Lum32f& { return Y[l * l + l + m]; };
    at(0, 0) = A[0];
    if (L < 1) return;
    at(1, -1) = y * A[2];
    at(1, 0) = z * A[1];
    at(1, 1) = x * A[2];
    for (int l = 2; l <= L; ++l) {
        const Lum32f* a = A + l * (l + 1) / 2;
        const Lum32f* b = B + l * (l + 1) / 2;
        const Lum32f sp = at(l - 1, l - 1), sn = at(l - 1, -(l - 1));
        at(l, l) = (x * sp - y * sn) * a[l];
        at(l, -l) = (x * sn + y * sp) * a[l];
        at(l, l - 1) = (z * a[l - 1]) * sp;
        at(l, -(l - 1)) = (z * a[l - 1]) * sn;
        at(l, 0) = (z * a[0]) * at(l - 1, 0) + b[0] * at(l - 2, 0);
        for (int m = 1; m <= l - 2; ++m) {
            at(l, m) = (z * a[m]) * at(l - 1, m) + b[m] * at(l - 2, m);
            at(l, -m) = (z * a[m]) * at(l - 1, -m) + b[m] * at(l - 2, -m);
        }
    }
}

TEST(SHAudit, RecurrenceFollowsItsGroupingBitForBit) {
    SHState s(15, lumSHRecurrence);
    Directions d = randomUnitDirections(19, 77);  // two packed groups and a rest
    d.x[4] *= 2.5f, d.y[11] *= -0.3f, d.z[17] = 0.0f;
    for (Lum32u L : {0u, 1u, 2u, 7u, 15u}) {
        const int n = (L + 1) * (L + 1);
        std::vector<Lum32f> got(d.x.size() * n, kCanary), want(got.size());
        ASSERT_EQ(lumrSH_32f(d.x.data(), d.y.data(), d.z.data(), d.count(), got.data(), L,
                             s.get()),
                  lumStatusOk);
        for (int i = 0; i < d.count(); ++i)
            recurrenceModel(d.x[i], d.y[i], d.z[i], s.get()->tableA, s.get()->tableB, L,
                            &want[i * n]);
        EXPECT_TRUE(sameBits(got, want)) << "L=" << L;
    }
}

// With dyadic coordinates every power and every polynomial of bands 1 to 4
// is exact in Lum64f, whatever its factoring, so each result is the band's
// binary64 constant, with the digits it is given with, times the exact
// polynomial, rounded to double and then to float: the polynomials, signs
// and order of the low bands hold bit for bit.
TEST(SHAudit, LowBandsFollowTheirStatedForms) {
    const Lum32f x = 0.75f, y = -0.375f, z = 0.5f;  // not unit: that is allowed
    SHState s(4, lumSHClosedForm);
    Lum32f got[25];
    ASSERT_EQ(lumrSH_32f(&x, &y, &z, 1, got, 4, s.get()), lumStatusOk);
    const double X = x, Y = y, Z = z;
    const double want[25] = {
        0.28209479177387814,
        -0.4886025119029199 * Y, 0.4886025119029199 * Z, -0.4886025119029199 * X,
        1.092548430592079 * (X * Y), -1.092548430592079 * (Y * Z),
        0.31539156525252 * (3 * Z * Z - 1), -1.092548430592079 * (X * Z),
        0.5462742152960395 * (X * X - Y * Y),
        0.5900435899266435 * (Y * Y * Y - 3 * X * X * Y), 2.890611442640554 * (X * Y * Z),
        -0.4570457994644657 * (Y * (5 * Z * Z - 1)), 0.3731763325901154 * (Z * (5 * Z * Z - 3)),
        -0.4570457994644657 * (X * (5 * Z * Z - 1)), 1.445305721320277 * (Z * (X * X - Y * Y)),
        -0.5900435899266435 * (X * X * X - 3 * X * Y * Y),
        2.503342941796705 * (X * Y * (X * X - Y * Y)),
        -1.770130769779931 * (Z * (3 * X * X * Y - Y * Y * Y)),
        0.94617469575756 * (X * Y * (7 * Z * Z - 1)),
        -0.6690465435572892 * (Y * Z * (7 * Z * Z - 3)),
        0.1057855469152043 * (35 * Z * Z * Z * Z - 30 * Z * Z + 3),
        -0.6690465435572892 * (X * Z * (7 * Z * Z - 3)),
        0.47308734787878 * ((X * X - Y * Y) * (7 * Z * Z - 1)),
        -1.770130769779931 * (Z * (X * X * X - 3 * X * Y * Y)),
        0.6258357354491761 * (X * X * X * X - 6 * X * X * Y * Y + Y * Y * Y * Y)};
    for (int k = 0; k < 25; ++k)
        EXPECT_EQ(bitsOf(got[k]), bitsOf(static_cast<Lum32f>(want[k]))) << k;
}

// The three-channel transforms, both ways, as loops of one-point basis
// calls: forward scales a copy per channel (1 keeps, 0 clears) and adds it in
// point order; inverse sums lane-wise (even/odd below 16 values, sixteen
// partial sums from 16 up, the tail into the first group).
Lum32f dotModel(const Lum32f* a, const Lum32f* b, int n) {
    if (n < 16) {
        Lum32f s[2] = {0.0f, 0.0f};
        for (int i = 0; i < n; ++i) s[i & 1] = s[i & 1] + a[i] * b[i];
        return s[0] + s[1];
    }
    Lum32f p[16] = {};
    const int whole = n - n % 16;
    for (int i = 0; i < whole; ++i) p[i % 16] = p[i % 16] + a[i] * b[i];
    for (int i = whole; i < n; ++i) p[(i - whole) % 4] = p[(i - whole) % 4] + a[i] * b[i];
    Lum32f lane[4];
    for (int k = 0; k < 4; ++k) lane[k] = (p[k] + p[4 + k]) + (p[8 + k] + p[12 + k]);
    return (lane[0] + lane[2]) + (lane[1] + lane[3]);
}

TEST(SHAudit, ThreeChannelTransformsPointByPoint) {
    const int count = 21;
    const Directions d = randomUnitDirections(count, 5);
    std::mt19937 rng(9);
    std::uniform_real_distribution<float> u(-3.0f, 3.0f);
    std::vector<Lum32f> c3(3 * count);
    for (auto& v : c3) v = u(rng);
    c3[3 * 2 + 1] = 0.0f, c3[3 * 5 + 2] = 1.0f, c3[3 * 8] = -0.0f;
    std::vector<Lum32f> pl[3];
    for (int c = 0; c < 3; ++c)
        for (int i = 0; i < count; ++i) pl[c].push_back(c3[3 * i + c]);

    for (Lum32u alg : {lumSHClosedForm, lumSHRecurrence}) {
        SHState s(15, alg);
        for (Lum32u L : {1u, 3u, 15u}) {  // 4, 16 and 256 entries
            const int n = (L + 1) * (L + 1);
            std::vector<Lum32f> want[3], inv(3 * count);
            for (int c = 0; c < 3; ++c) want[c].assign(n, 0.5f);
            for (int i = 0; i < count; ++i) {
                std::vector<Lum32f> basis(n);
                ASSERT_EQ(lumrSH_32f(&d.x[i], &d.y[i], &d.z[i], 1, basis.data(), L, s.get()),
                          lumStatusOk);
                for (int c = 0; c < 3; ++c) {
                    const Lum32f v = c3[3 * i + c];
                    for (int k = 0; k < n; ++k)
                        want[c][k] = want[c][k] + (v == 1.0f ? basis[k]
                                                   : v == 0.0f ? 0.0f
                                                               : basis[k] * v);
                }
            }
            // The inverse reads the coefficient sets just accumulated.
            for (int i = 0; i < count; ++i) {
                std::vector<Lum32f> basis(n);
                lumrSH_32f(&d.x[i], &d.y[i], &d.z[i], 1, basis.data(), L, s.get());
                for (int c = 0; c < 3; ++c) inv[3 * i + c] = dotModel(basis.data(), want[c].data(), n);
            }

            std::vector<Lum32f> gc[3], gp[3];
            for (int c = 0; c < 3; ++c) gc[c].assign(n, 0.5f), gp[c].assign(n, 0.5f);
            LumPlanes3 coefC{gc[0].data(), gc[1].data(), gc[2].data()};
            LumPlanes3 coefP{gp[0].data(), gp[1].data(), gp[2].data()};
            LumPlanes3 src{pl[0].data(), pl[1].data(), pl[2].data()};
            ASSERT_EQ(lumrSHTFwd_32f_C3P3I(d.x.data(), d.y.data(), d.z.data(), c3.data(), count,
                                           &coefC, L, s.get()),
                      lumStatusOk);
            ASSERT_EQ(lumrSHTFwd_32f_P3I(d.x.data(), d.y.data(), d.z.data(), &src, count, &coefP,
                                         L, s.get()),
                      lumStatusOk);
            for (int c = 0; c < 3; ++c) {
                EXPECT_TRUE(sameBits(gc[c], want[c])) << "C3P3I alg " << alg << " L=" << L;
                EXPECT_TRUE(sameBits(gp[c], want[c])) << "P3I alg " << alg << " L=" << L;
            }

            std::vector<Lum32f> outC3(3 * count, kCanary), outP[3];
            for (int c = 0; c < 3; ++c) outP[c].assign(count, kCanary);
            LumPlanes3 dstP{outP[0].data(), outP[1].data(), outP[2].data()};
            ASSERT_EQ(lumrSHTInv_32f_P3C3(&coefC, L, d.x.data(), d.y.data(), d.z.data(),
                                          outC3.data(), count, s.get()),
                      lumStatusOk);
            ASSERT_EQ(lumrSHTInv_32f_P3(&coefC, L, d.x.data(), d.y.data(), d.z.data(), &dstP,
                                        count, s.get()),
                      lumStatusOk);
            EXPECT_TRUE(sameBits(outC3, inv)) << "P3C3 alg " << alg << " L=" << L;
            for (int c = 0; c < 3; ++c)
                for (int i = 0; i < count; ++i)
                    ASSERT_EQ(bitsOf(outP[c][i]), bitsOf(inv[3 * i + c]))
                        << "P3 alg " << alg << " L=" << L << " c=" << c << " i=" << i;
        }
    }
}

}  // namespace
