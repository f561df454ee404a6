// The spherical-harmonic state: sizes, statuses and their order, the block's
// layout, and every table entry in the precision it is built in.
#include <cstdint>

#include "sh/sh_test_util.h"

namespace {

TEST(SHState, SizesAndStatusesWriteNothingOnFailure) {
    const std::pair<Lum32u, Lum32u> recurrence[] = {{0, 64},    {1, 64},    {2, 96},
                                                    {3, 128},   {15, 1120}, {16, 1280}};
    for (auto [band, want] : recurrence) {
        Lum32u size = 0;
        EXPECT_EQ(lumrSHGetSize_32f(band, lumSHRecurrence, &size), lumStatusOk);
        EXPECT_EQ(size, want) << band;
        EXPECT_EQ(lumrSHGetSize_32f(band % 16, lumSHClosedForm, &size), lumStatusOk);
        EXPECT_EQ(size, 16u);
    }
    // The pointer is looked at before the algorithm's own test.
    Lum32u size = 777;
    EXPECT_EQ(lumrSHGetSize_32f(16, lumSHClosedForm, &size), lumStatusSize);
    EXPECT_EQ(lumrSHGetSize_32f(16, 2, &size), lumStatusBadBand);
    EXPECT_EQ(lumrSHGetSize_32f(0, 0xFFFFFFFFu, &size), lumStatusBadBand);
    EXPECT_EQ(size, 777u);
    EXPECT_EQ(lumrSHGetSize_32f(16, 2, nullptr), lumStatusNullPtr);
    EXPECT_EQ(lumrSHGetSize_32f(16, lumSHClosedForm, nullptr), lumStatusNullPtr);

    alignas(16) unsigned char block[256];
    std::memset(block, 0xAB, sizeof block);
    auto* st = reinterpret_cast<LumSHState*>(block);
    EXPECT_EQ(lumrSHInit_32f(nullptr, 99, 7), lumStatusNullPtr);
    EXPECT_EQ(lumrSHInit_32f(st, 16, lumSHClosedForm), lumStatusSize);
    EXPECT_EQ(lumrSHInit_32f(st, 3, 2), lumStatusBadBand);
    for (unsigned char c : block) ASSERT_EQ(c, 0xAB);
    // A closed-form state is 16 bytes: cleared, two fields, nothing beyond.
    EXPECT_EQ(lumrSHInit_32f(st, 15, lumSHClosedForm), lumStatusOk);
    EXPECT_EQ(st->maxBand, 15u);
    EXPECT_EQ(st->algorithm, 0u);
    for (int i = 8; i < 256; ++i) ASSERT_EQ(block[i], i < 16 ? 0 : 0xAB) << i;
}

// Table A begins at the first 16-byte boundary after the four fields and B at
// the first after A; the block is cleared to its reported size and no further,
// and the entries never written (bands 0 and 1 of B, the last of every band
// of B) stay as cleared.
TEST(SHState, RecurrenceLayoutInsideTheBlock) {
    for (std::size_t shift : {0u, 8u}) {  // a 16-byte and an 8-byte-only boundary
        for (Lum32u band : {0u, 1u, 2u, 5u, 15u}) {
            Lum32u size = 0;
            ASSERT_EQ(lumrSHGetSize_32f(band, lumSHRecurrence, &size), lumStatusOk);
            alignas(16) unsigned char raw[1200 + 64];
            std::memset(raw, 0xAB, sizeof raw);
            unsigned char* block = raw + shift;
            auto* st = reinterpret_cast<LumSHState*>(block);
            ASSERT_EQ(lumrSHInit_32f(st, band, lumSHRecurrence), lumStatusOk);
            const std::size_t n = (band + 1) * (band + 2) / 2;
            const auto base = reinterpret_cast<std::uintptr_t>(block);
            const auto a = reinterpret_cast<std::uintptr_t>(st->tableA);
            const auto b = reinterpret_cast<std::uintptr_t>(st->tableB);
            EXPECT_EQ(a % 16 + b % 16, 0u);
            EXPECT_GE(a, base + sizeof(LumSHState));
            EXPECT_LT(a, base + sizeof(LumSHState) + 16);
            EXPECT_GE(b, a + 4 * n);
            EXPECT_LT(b, a + 4 * n + 16);
            EXPECT_LE(b + 4 * std::max<std::size_t>(n, 4), base + size);
            for (std::size_t i = 0; i < shift; ++i) ASSERT_EQ(raw[i], 0xAB);
            for (std::size_t i = size; i < sizeof raw - shift; ++i) ASSERT_EQ(block[i], 0xAB);
            for (int i = 0; i < 3; ++i) EXPECT_EQ(bitsOf(st->tableB[i]), 0u);
            for (Lum32u l = 2; l <= band; ++l)
                EXPECT_EQ(bitsOf(st->tableB[l * (l + 1) / 2 + l]), 0u);
        }
    }
}

// Every entry bit for bit from its definition in the precision it is built
// in: which quotients are Lum32f, which square roots Lum32f or Lum64f (so
// b(l, l - 1) is -0).  Bands above 15 are accepted and filled.
TEST(SHState, TableEntriesInTheirPrecision) {
    SHState s(20, lumSHRecurrence);
    const Lum32f* a = s.get()->tableA;
    const Lum32f* b = s.get()->tableB;
    // c0 in double from the stated constant; c1 from the rounded c0.
    const Lum32f c0 = static_cast<Lum32f>(1.0 / std::sqrt(12.566370614359172));
    const Lum32f c1 = static_cast<Lum32f>(static_cast<double>(c0) * 1.7320508075688772);
    EXPECT_EQ(bitsOf(a[0]), 0x3E906EBBu);
    EXPECT_EQ(bitsOf(a[0]), bitsOf(c0));
    EXPECT_EQ(bitsOf(a[1]), bitsOf(c1));
    EXPECT_EQ(bitsOf(a[2]), bitsOf(-c1));
    for (int l = 2; l <= 20; ++l) {
        const Lum32f* al = a + l * (l + 1) / 2;
        const Lum32f* bl = b + l * (l + 1) / 2;
        const Lum32f q0 = static_cast<Lum32f>(2 * l + 1) / static_cast<Lum32f>(2 * l - 3);
        EXPECT_EQ(bitsOf(al[0]), bitsOf(static_cast<Lum32f>(std::sqrt(4.0 * l * l - 1) / l))) << l;
        EXPECT_EQ(bitsOf(bl[0]), bitsOf(static_cast<Lum32f>((1.0 / l - 1) * std::sqrt(double(q0)))))
            << l;
        for (int m = 1; m < l; ++m) {
            const Lum32f qa =
                static_cast<Lum32f>(4 * l * l - 1) / static_cast<Lum32f>(l * l - m * m);
            const Lum32f qb = static_cast<Lum32f>(((l - 1) * (l - 1) - m * m) * (2 * l + 1)) /
                              static_cast<Lum32f>((l * l - m * m) * (2 * l - 3));
            EXPECT_EQ(bitsOf(al[m]), bitsOf(std::sqrt(qa))) << l << "," << m;
            EXPECT_EQ(bitsOf(bl[m]), bitsOf(static_cast<Lum32f>(-std::sqrt(double(qb)))))
                << l << "," << m;
        }
        EXPECT_EQ(bitsOf(al[l]), bitsOf(static_cast<Lum32f>(-std::sqrt((2.0 * l + 1) / (2.0 * l)))))
            << l;
    }
}

}  // namespace
