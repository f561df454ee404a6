// The spherical-harmonic state: sizes, statuses and their order, the block's
// layout and the recurrence tables.
#include <cstdint>

#include "sh/sh_test_util.h"

namespace {

TEST(SHState, SizeByAlgorithmAndBand) {
    const std::pair<Lum32u, Lum32u> recurrence[] = {{0, 64}, {1, 64}, {2, 96}, {3, 128},
                                                    {15, 1120}, {16, 1280}};
    for (auto [band, want] : recurrence) {
        Lum32u size = 0;
        EXPECT_EQ(lumrSHGetSize_32f(band, lumSHRecurrence, &size), lumStatusOk);
        EXPECT_EQ(size, want) << band;
    }
    for (Lum32u band : {0u, 7u, 15u}) {
        Lum32u size = 0;
        EXPECT_EQ(lumrSHGetSize_32f(band, lumSHClosedForm, &size), lumStatusOk);
        EXPECT_EQ(size, 16u);
    }
    // Failures write nothing; the pointer is looked at before the algorithm.
    Lum32u size = 777;
    EXPECT_EQ(lumrSHGetSize_32f(16, lumSHClosedForm, &size), lumStatusSize);
    EXPECT_EQ(lumrSHGetSize_32f(16, 2, &size), lumStatusBadBand);
    EXPECT_EQ(lumrSHGetSize_32f(0, 0xFFFFFFFFu, &size), lumStatusBadBand);
    EXPECT_EQ(size, 777u);
    EXPECT_EQ(lumrSHGetSize_32f(16, 2, nullptr), lumStatusNullPtr);
    EXPECT_EQ(lumrSHGetSize_32f(16, lumSHClosedForm, nullptr), lumStatusNullPtr);
}

TEST(SHState, InitStatusesWriteNothingOnFailure) {
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
    for (int i = 8; i < 16; ++i) EXPECT_EQ(block[i], 0) << i;
    for (int i = 16; i < 256; ++i) ASSERT_EQ(block[i], 0xAB) << i;
}

// Table A begins at the first 16-byte boundary after the four fields and B at
// the first after A; the block is cleared to its reported size and no further.
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
            EXPECT_EQ(a % 16, 0u);
            EXPECT_EQ(b % 16, 0u);
            EXPECT_GE(a, base + sizeof(LumSHState));
            EXPECT_LT(a, base + sizeof(LumSHState) + 16);
            EXPECT_GE(b, a + 4 * n);
            EXPECT_LT(b, a + 4 * n + 16);
            EXPECT_LE(b + 4 * std::max<std::size_t>(n, 4), base + size);
            for (std::size_t i = 0; i < shift; ++i) ASSERT_EQ(raw[i], 0xAB);
            for (std::size_t i = size; i < sizeof raw - shift; ++i) ASSERT_EQ(block[i], 0xAB);
            // Bands 0 and 1 of table B and the last entry of every band are never
            // written: they stay as cleared.
            EXPECT_EQ(st->tableB[0], 0.0f);
            EXPECT_EQ(st->tableB[1], 0.0f);
            EXPECT_EQ(st->tableB[2], 0.0f);
            for (Lum32u l = 2; l <= band; ++l)
                EXPECT_EQ(bitsOf(st->tableB[l * (l + 1) / 2 + l]), 0u);
        }
    }
}

TEST(SHState, TablesOfBandTwo) {
    SHState s(2, lumSHRecurrence);
    const Lum32f* a = s.get()->tableA;
    const Lum32f* b = s.get()->tableB;
    const Lum32f wantA[6] = {0.2820948f, 0.4886025f, -0.4886025f,
                             1.9364917f, 2.236068f,  -1.118034f};
    const Lum32f wantB[6] = {0, 0, 0, -1.118034f, 0, 0};
    for (int i = 0; i < 6; ++i) {
        EXPECT_NEAR(a[i], wantA[i], 1e-7) << i;
        EXPECT_NEAR(b[i], wantB[i], 1e-7) << i;
    }
    EXPECT_EQ(bitsOf(a[0]), 0x3E906EBBu);
}

// Every entry against the exact coefficient, to the precision each is built
// in: a(l, m) from a Lum32f square root, the others from Lum64f ones.
TEST(SHState, TablesAgainstTheirDefinitions) {
    const Lum32u maxBand = 20;  // above 15 is accepted and filled
    SHState s(maxBand, lumSHRecurrence);
    for (int l = 2; l <= static_cast<int>(maxBand); ++l) {
        const Lum32f* a = s.get()->tableA + l * (l + 1) / 2;
        const Lum32f* b = s.get()->tableB + l * (l + 1) / 2;
        for (int m = 0; m < l; ++m) {
            const double ea = std::sqrt((4.0 * l * l - 1) / (1.0 * l * l - 1.0 * m * m));
            const double eb = -std::sqrt(((l - 1.0) * (l - 1.0) - 1.0 * m * m) * (2.0 * l + 1) /
                                         ((1.0 * l * l - 1.0 * m * m) * (2.0 * l - 3)));
            EXPECT_NEAR(a[m], ea, 2.5e-7 * ea) << l << "," << m;
            EXPECT_NEAR(b[m], eb, 1.5e-7 * std::fabs(eb) + 1e-30) << l << "," << m;
        }
        const double ed = -std::sqrt((2.0 * l + 1) / (2.0 * l));
        EXPECT_EQ(a[l], static_cast<Lum32f>(ed)) << l;
    }
}

}  // namespace
