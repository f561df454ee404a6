// Spherical-harmonic basis: known values, statuses, both algorithms against an
// independent double evaluation and against their own rules bit for bit, the
// single band against the block, and the packed body against the plain one.
#include "ref/sh_ref.h"
#include "sh/sh.h"
#include "sh/sh_test_util.h"

namespace {

std::vector<Lum32f> evalBlock(const Directions& d, Lum32u L, LumSHState* st) {
    std::vector<Lum32f> out(d.x.size() * (L + 1) * (L + 1), kCanary);
    EXPECT_EQ(lumrSH_32f(d.x.data(), d.y.data(), d.z.data(), d.count(), out.data(), L, st),
              lumStatusOk);
    return out;
}

// An input that is not unit is taken as it stands: both algorithms evaluate
// the polynomials at (2, 0, 0) without normalising.
TEST(SHBasis, ListedValuesOfAnInputNotUnit) {
    SHState closed(3, lumSHClosedForm), recur(3, lumSHRecurrence);
    const float want[16] = {0.28209479f, 0, 0, -0.97720504f, 0, 0, -0.31539157f, 0, 2.1850969f,
                            0, 0, 0, 0, 0.9140916f, 0, -4.7203488f};
    for (LumSHState* st : {closed.get(), recur.get()}) {
        const std::vector<Lum32f> out = evalBlock({{2}, {0}, {0}}, 3, st);
        EXPECT_EQ(bitsOf(out[0]), 0x3E906EBBu);
        for (int k = 0; k < 16; ++k)
            EXPECT_NEAR(out[k], want[k], 2.5e-7 * std::fmax(1, std::fabs(want[k]))) << k;
    }
}

// With dyadic coordinates every power and polynomial of bands 1 to 4 is exact
// in Lum64f whatever its factoring, so each result is the band's binary64
// constant with its stated digits times the exact polynomial, rounded to
// double and then to float: constants, signs and order hold bit for bit.
TEST(SHBasis, LowBandsFollowTheirStatedForms) {
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

TEST(SHBasis, StatusesAndTheirOrder) {
    SHState closed(3, lumSHClosedForm), recur(20, lumSHRecurrence);
    Lum32f x[2] = {0, 1}, y[2] = {0, 0}, z[2] = {1, 0};
    std::vector<Lum32f> dst(2 * 400, kCanary);
    LumSHState* c = closed.get();
    EXPECT_EQ(lumrSH_32f(nullptr, y, z, 0, dst.data(), 99, c), lumStatusNullPtr);
    EXPECT_EQ(lumrSH_32f(x, nullptr, z, 1, dst.data(), 1, c), lumStatusNullPtr);
    EXPECT_EQ(lumrSH_32f(x, y, nullptr, 1, dst.data(), 1, c), lumStatusNullPtr);
    EXPECT_EQ(lumrSH_32f(x, y, z, 1, nullptr, 1, c), lumStatusNullPtr);
    EXPECT_EQ(lumrSH_32f(x, y, z, 1, dst.data(), 1, nullptr), lumStatusNullPtr);
    EXPECT_EQ(lumrSH_32f(x, y, z, 0, dst.data(), 99, c), lumStatusSize);  // count before band
    EXPECT_EQ(lumrSH_32f(x, y, z, -1, dst.data(), 99, c), lumStatusBadBand);
    EXPECT_EQ(lumrSH_32f(x, y, z, -1, dst.data(), 3, c), lumStatusOk);
    EXPECT_EQ(lumrSH_32f(x, y, z, 2, dst.data(), 4, c), lumStatusBadBand);
    // Above 15 the kernel refuses even where the state's band allows it.
    EXPECT_EQ(lumrSH_32f(x, y, z, 2, dst.data(), 16, recur.get()), lumStatusBadBand);
    LumSHState odd = {15, 2, nullptr, nullptr};  // an unknown algorithm
    EXPECT_EQ(lumrSH_32f(x, y, z, 2, dst.data(), 1, &odd), lumStatusBadBand);
    // The single band: pointers, then the band, then the count.
    EXPECT_EQ(lumrSHBand_32f(x, y, z, 2, nullptr, 16), lumStatusNullPtr);
    EXPECT_EQ(lumrSHBand_32f(x, nullptr, z, 2, dst.data(), 1), lumStatusNullPtr);
    EXPECT_EQ(lumrSHBand_32f(x, y, z, 0, dst.data(), 16), lumStatusBadBand);
    EXPECT_EQ(lumrSHBand_32f(x, y, z, 0, dst.data(), 15), lumStatusSize);
    EXPECT_EQ(lumrSHBand_32f(x, y, z, -4, dst.data(), 15), lumStatusOk);
    for (Lum32f v : dst) ASSERT_EQ(bitsOf(v), bitsOf(kCanary));
    // A state of band 3 serves every band up to 3.
    for (Lum32u L = 0; L <= 3; ++L)
        EXPECT_EQ(lumrSH_32f(x, y, z, 2, dst.data(), L, c), lumStatusOk);
}

// Both algorithms against the independent double evaluation and against each
// other, per band: the recurrence stays near the rounding of its results;
// the closed form carries the rounding of its Lum32f powers through integer
// polynomials whose terms cancel, which grows with the band.
TEST(SHBasis, AlgorithmsAgainstReferenceAndEachOther) {
    const int count = 3000;
    const Directions d = randomUnitDirections(count, 11);
    SHState closed(15, lumSHClosedForm), recur(15, lumSHRecurrence);
    const std::vector<Lum32f> cf = evalBlock(d, 15, closed.get());
    const std::vector<Lum32f> rc = evalBlock(d, 15, recur.get());
    double maxErr[16][3] = {}, sumSq[16][3] = {};  // closed, recurrence, between them
    for (int i = 0; i < count; ++i) {
        const std::vector<double> ref = refSHBlock(d.x[i], d.y[i], d.z[i], 15);
        for (int l = 0; l <= 15; ++l)
            for (int k = l * l; k < (l + 1) * (l + 1); ++k) {
                const double e[3] = {cf[i * 256 + k] - ref[k], rc[i * 256 + k] - ref[k],
                                     double(cf[i * 256 + k]) - rc[i * 256 + k]};
                for (int j = 0; j < 3; ++j) {
                    maxErr[l][j] = std::fmax(maxErr[l][j], std::fabs(e[j]));
                    sumSq[l][j] += e[j] * e[j];
                }
            }
    }
    for (int l = 0; l <= 15; ++l) {
        const double maxBoth = l <= 5 ? 1.5e-6 : l <= 9 ? 2e-5 : 4e-3;
        const double rmsBoth = l <= 5 ? 1e-7 : l <= 9 ? 1e-6 : 1e-4;
        auto rms = [&](int j) { return std::sqrt(sumSq[l][j] / (count * (2 * l + 1))); };
        EXPECT_LE(maxErr[l][2], maxBoth) << "band " << l;
        EXPECT_LE(rms(2), rmsBoth) << "band " << l;
        EXPECT_LE(maxErr[l][1], 1e-6 * (l + 1)) << "band " << l;
        EXPECT_LE(maxErr[l][0], maxBoth + 1e-6 * (l + 1)) << "band " << l;
        EXPECT_LE(rms(0), rmsBoth) << "band " << l;
    }
}

// The recurrence in Lum32f with the grouping of each step as it is defined:
// sectoral pair times d(l), (z a) times the band below, plus b times two
// bands below.  Two packed groups and a rest, some input not unit.
TEST(SHBasis, RecurrenceFollowsItsGroupingBitForBit) {
    SHState s(15, lumSHRecurrence);
    const Lum32f* A = s.get()->tableA;
    const Lum32f* B = s.get()->tableB;
    Directions d = randomUnitDirections(19, 77);
    d.x[4] *= 2.5f, d.y[11] *= -0.3f, d.z[17] = 0.0f;
    for (int L = 0; L <= 15; ++L) {
        const int n = (L + 1) * (L + 1);
        const std::vector<Lum32f> got = evalBlock(d, L, s.get());
        std::vector<Lum32f> want(got.size());
        for (int i = 0; i < d.count(); ++i) {
            const Lum32f x = d.x[i], y = d.y[i], z = d.z[i];
            auto at = [&](int l, int m) -> Lum32f& { return want[i * n + l * l + l + m]; };
            at(0, 0) = A[0];
            if (L >= 1) at(1, -1) = y * A[2], at(1, 0) = z * A[1], at(1, 1) = x * A[2];
            for (int l = 2; l <= L; ++l) {
                const Lum32f* a = A + l * (l + 1) / 2;
                const Lum32f* b = B + l * (l + 1) / 2;
                const Lum32f sp = at(l - 1, l - 1), sn = at(l - 1, -(l - 1));
                at(l, l) = (x * sp - y * sn) * a[l];
                at(l, -l) = (x * sn + y * sp) * a[l];
                at(l, l - 1) = (z * a[l - 1]) * sp;
                at(l, -(l - 1)) = (z * a[l - 1]) * sn;
                for (int m = -(l - 2); m <= l - 2; ++m)
                    at(l, m) = (z * a[std::abs(m)]) * at(l - 1, m) + b[std::abs(m)] * at(l - 2, m);
            }
        }
        EXPECT_TRUE(sameBits(got, want)) << "L=" << L;
    }
}

// The single band is bit for bit the matching block of the closed form, in
// both bodies, for a count with packed groups and a rest, unit or not; so
// the packed closed form is also the plain one.
TEST(SHBasis, SingleBandIsTheBlocksBand) {
    Directions d = randomUnitDirections(19, 3);
    for (int i = 0; i < 19; i += 3) d.x[i] *= 3.5f, d.z[i] *= -0.25f;
    SHState closed(15, lumSHClosedForm);
    const std::vector<Lum32f> all = evalBlock(d, 15, closed.get());
    for (Lum32u L = 0; L <= 15; ++L) {
        const int w = 2 * L + 1;
        std::vector<Lum32f> band(d.x.size() * w, kCanary), plain(band.size(), kCanary);
        ASSERT_EQ(lumrSHBand_32f(d.x.data(), d.y.data(), d.z.data(), d.count(), band.data(), L),
                  lumStatusOk);
        ownSHBandClosed(d.x.data(), d.y.data(), d.z.data(), d.count(), plain.data(), L,
                        ShBody::Plain);
        EXPECT_TRUE(sameBits(band, plain)) << L;
        for (int i = 0; i < d.count(); ++i)
            ASSERT_EQ(0, std::memcmp(&band[i * w], &all[i * 256 + L * L], 4 * w)) << L << " " << i;
    }
    // Band 0 is the constant, whatever the coordinates.
    Directions odd = randomUnitDirections(13, 5);
    odd.x[3] = 1e30f, odd.y[4] = -7.0f;
    std::vector<Lum32f> out(13, kCanary);
    ASSERT_EQ(lumrSHBand_32f(odd.x.data(), odd.y.data(), odd.z.data(), 13, out.data(), 0),
              lumStatusOk);
    for (Lum32f v : out) EXPECT_EQ(bitsOf(v), 0x3E906EBBu);
}

}  // namespace
