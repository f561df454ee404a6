// Spherical-harmonic basis: known values, statuses, the two algorithms
// against an independent double evaluation and against each other, the
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

TEST(SHBasis, ListedDirectionsBothAlgorithms) {
    SHState closed(15, lumSHClosedForm), recur(15, lumSHRecurrence);
    struct Case {
        Lum32f x, y, z;
        Lum32u L;
        std::vector<float> want;
    };
    const Case cases[] = {
        {0, 0, 1, 1, {0.28209479f, 0, 0.48860252f, 0}},
        {1, 0, 0, 2, {0.28209479f, 0, 0, -0.48860252f, 0, 0, -0.31539157f, 0, 0.54627424f}},
        {0, 1, 0, 2, {0.28209479f, -0.48860252f, 0, 0, 0, 0, -0.31539157f, 0, -0.54627424f}},
    };
    for (LumSHState* st : {closed.get(), recur.get()}) {
        for (const Case& c : cases) {
            // Two directions: the second block starts right after the first.
            Directions d{{c.x, c.x}, {c.y, c.y}, {c.z, c.z}};
            const std::vector<Lum32f> out = evalBlock(d, c.L, st);
            const std::size_t n = c.want.size();
            ASSERT_EQ(out.size(), 2 * n);
            for (std::size_t k = 0; k < n; ++k) {
                EXPECT_NEAR(out[k], c.want[k], 1e-7) << st->algorithm << " k=" << k;
                EXPECT_EQ(bitsOf(out[n + k]), bitsOf(out[k]));
            }
            EXPECT_EQ(bitsOf(out[0]), 0x3E906EBBu);
        }
    }
    // Not normalised: the polynomials are taken as they stand.
    Directions twoX{{2}, {0}, {0}};
    const std::vector<Lum32f> out = evalBlock(twoX, 3, closed.get());
    EXPECT_NEAR(out[3], -0.97720504f, 1e-7);
    EXPECT_NEAR(out[15], -4.7203488f, 4e-7);
    const std::vector<Lum32f> rec = evalBlock(twoX, 3, recur.get());
    EXPECT_NEAR(rec[3], -0.97720504f, 1e-7);
    EXPECT_NEAR(rec[15], -4.7203488f, 4e-7);
}

TEST(SHBasis, StatusesAndTheirOrder) {
    SHState closed(3, lumSHClosedForm), recur(20, lumSHRecurrence);
    Lum32f x[2] = {0, 1}, y[2] = {0, 0}, z[2] = {1, 0};
    std::vector<Lum32f> dst(2 * 400, kCanary);
    auto untouched = [&] {
        for (Lum32f v : dst)
            if (bitsOf(v) != bitsOf(kCanary)) return false;
        return true;
    };
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
    EXPECT_EQ(lumrSH_32f(x, y, z, 2, dst.data(), 20, recur.get()), lumStatusBadBand);
    // An unknown algorithm in a hand-made state.
    LumSHState odd = {15, 2, nullptr, nullptr};
    EXPECT_EQ(lumrSH_32f(x, y, z, 2, dst.data(), 1, &odd), lumStatusBadBand);
    EXPECT_TRUE(untouched());

    // The single band: pointers, then the band, then the count.
    EXPECT_EQ(lumrSHBand_32f(x, y, z, 2, nullptr, 16), lumStatusNullPtr);
    EXPECT_EQ(lumrSHBand_32f(x, nullptr, z, 2, dst.data(), 1), lumStatusNullPtr);
    EXPECT_EQ(lumrSHBand_32f(x, y, z, 0, dst.data(), 16), lumStatusBadBand);
    EXPECT_EQ(lumrSHBand_32f(x, y, z, 0, dst.data(), 15), lumStatusSize);
    EXPECT_EQ(lumrSHBand_32f(x, y, z, -4, dst.data(), 15), lumStatusOk);
    EXPECT_TRUE(untouched());

    // A state of band 3 serves every band up to 3.
    for (Lum32u L = 0; L <= 3; ++L)
        EXPECT_EQ(lumrSH_32f(x, y, z, 2, dst.data(), L, c), lumStatusOk);
}

TEST(SHBasis, SingleBandZeroIsTheConstant) {
    Directions d = randomUnitDirections(13, 5);
    d.x[3] = 1e30f, d.y[4] = -7.0f;
    std::vector<Lum32f> out(13, kCanary);
    ASSERT_EQ(lumrSHBand_32f(d.x.data(), d.y.data(), d.z.data(), 13, out.data(), 0), lumStatusOk);
    for (Lum32f v : out) EXPECT_EQ(bitsOf(v), 0x3E906EBBu);
}

// Per band: the largest and the root-mean-square absolute difference.
struct BandError {
    double max = 0, sumSq = 0;
    long count = 0;
    void add(double d) { max = std::fmax(max, std::fabs(d)), sumSq += d * d, ++count; }
    double rms() const { return std::sqrt(sumSq / count); }
};

// Both algorithms against the independent double evaluation, and against
// each other.  Bounds per band: the recurrence stays near the rounding of
// its results; the closed form carries the rounding of its Lum32f powers
// through integer polynomials whose terms cancel, which grows with the band.
TEST(SHBasis, AlgorithmsAgainstReferenceAndEachOther) {
    const int count = 3000;
    const Directions d = randomUnitDirections(count, 11);
    SHState closed(15, lumSHClosedForm), recur(15, lumSHRecurrence);
    const std::vector<Lum32f> cf = evalBlock(d, 15, closed.get());
    const std::vector<Lum32f> rc = evalBlock(d, 15, recur.get());
    BandError eClosed[16], eRecur[16], eBoth[16];
    for (int i = 0; i < count; ++i) {
        const std::vector<double> ref = refSHBlock(d.x[i], d.y[i], d.z[i], 15);
        for (int l = 0; l <= 15; ++l)
            for (int k = l * l; k < (l + 1) * (l + 1); ++k) {
                eClosed[l].add(cf[i * 256 + k] - ref[k]);
                eRecur[l].add(rc[i * 256 + k] - ref[k]);
                eBoth[l].add(cf[i * 256 + k] - rc[i * 256 + k]);
            }
    }
    for (int l = 0; l <= 15; ++l) {
        const double maxBoth = l <= 5 ? 1.5e-6 : l <= 9 ? 2e-5 : 4e-3;
        const double rmsBoth = l <= 5 ? 1e-7 : l <= 9 ? 1e-6 : 1e-4;
        EXPECT_LE(eBoth[l].max, maxBoth) << "band " << l;
        EXPECT_LE(eBoth[l].rms(), rmsBoth) << "band " << l;
        EXPECT_LE(eRecur[l].max, 1e-6 * (l + 1)) << "band " << l;
        EXPECT_LE(eClosed[l].max, maxBoth + 1e-6 * (l + 1)) << "band " << l;
        EXPECT_LE(eClosed[l].rms(), rmsBoth) << "band " << l;
    }
}

// The single band is bit for bit the matching block of the closed form, in
// both bodies, for a count with a packed part and a rest.
TEST(SHBasis, SingleBandIsTheBlocksBand) {
    const Directions d = randomUnitDirections(19, 3);
    SHState closed(15, lumSHClosedForm);
    const std::vector<Lum32f> all = evalBlock(d, 15, closed.get());
    for (Lum32u L = 0; L <= 15; ++L) {
        const int w = 2 * L + 1;
        std::vector<Lum32f> band(d.x.size() * w, kCanary);
        ASSERT_EQ(lumrSHBand_32f(d.x.data(), d.y.data(), d.z.data(), d.count(), band.data(), L),
                  lumStatusOk);
        std::vector<Lum32f> plain(band.size(), kCanary);
        ownSHBandClosed(d.x.data(), d.y.data(), d.z.data(), d.count(), plain.data(), L,
                        ShBody::Plain);
        EXPECT_TRUE(sameBits(band, plain)) << L;
        for (int i = 0; i < d.count(); ++i)
            ASSERT_EQ(0, std::memcmp(&band[i * w], &all[i * 256 + L * L], 4 * w))
                << "L=" << L << " i=" << i;
    }
}

// Eight directions per AVX register give the bits of one at a time, for every
// band limit, with and without a rest, for unit and for unnormalised input.
TEST(SHBasis, PackedBodyEqualsPlainBody) {
    SHState recur(15, lumSHRecurrence);
    Directions d = randomUnitDirections(37, 21);
    for (int i = 0; i < 37; i += 3) d.x[i] *= 3.5f, d.z[i] *= -0.25f;
    for (Lum32u L = 0; L <= 15; ++L) {
        for (Lum32s count : {8, 37}) {
            const std::size_t size = count * (L + 1) * (L + 1);
            std::vector<Lum32f> a(size, kCanary), b(size, 1.0f), c(size, kCanary), e(size, 1.0f);
            ownSHClosed(d.x.data(), d.y.data(), d.z.data(), count, a.data(), L, ShBody::Packed);
            ownSHClosed(d.x.data(), d.y.data(), d.z.data(), count, b.data(), L, ShBody::Plain);
            ownSHRecurrence(d.x.data(), d.y.data(), d.z.data(), count, c.data(), L, recur.get(),
                            ShBody::Packed);
            ownSHRecurrence(d.x.data(), d.y.data(), d.z.data(), count, e.data(), L, recur.get(),
                            ShBody::Plain);
            EXPECT_TRUE(sameBits(a, b)) << "closed L=" << L << " count=" << count;
            EXPECT_TRUE(sameBits(c, e)) << "recurrence L=" << L << " count=" << count;
        }
    }
}

}  // namespace
