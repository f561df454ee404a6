// Volume resize: buffer size and checks in their order, clipping with its
// rounding constants, the thread split, every code, type and storage form
// against the per-sample models, and hand-worked values of the rounding
// rules that the models share with the library.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "lumr.h"
#include "ref/resize_ref.h"
#include "volume/resize/cubic.h"
#include "volume/volume_fixture.h"

namespace {

using voltest::ThreadCount;

template <class T>
bool sameBits(const std::vector<T>& a, const std::vector<T>& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0;
}

TEST(ResizeFrame, BufSizeChecksAndFigures) {
    const LumBox good{0, 0, 0, 4, 4, 4}, badOrigin{-1, 0, 0, 4, 4, 4}, badExtent{0, 0, 0, 4, 0, 4};
    Lum32s size = 12345;
    EXPECT_EQ(lumrResizeGetBufSize(&badOrigin, &good, 7, 3, nullptr), lumStatusNullPtr);
    EXPECT_EQ(lumrResizeGetBufSize(&badOrigin, &badExtent, 7, 3, &size), lumStatusSize);
    EXPECT_EQ(lumrResizeGetBufSize(&good, &badExtent, 7, 3, &size), lumStatusSize);
    EXPECT_EQ(lumrResizeGetBufSize(&good, &good, 2, 3, &size), lumStatusBadChannels);
    for (int code : {0, 3, 8, -1})
        EXPECT_EQ(lumrResizeGetBufSize(&good, &good, 1, code, &size), lumStatusBadInterpolation);
    EXPECT_EQ(size, 12345);  // untouched by every failure

    ThreadCount one(1);
    struct Row {
        LumBox dst;
        Lum32s nearest, linear, cubic;
    };
    // Worked by hand from the per-code sums; the last row wraps in 32 bits.
    const Row rows[] = {
        {{0, 0, 0, 10, 10, 10}, 256, 7680, 19968},
        {{5, 6, 7, 1, 1, 1}, 256, 2560, 7424},
        {{0, 0, 0, 100, 37, 5}, 768, 45824, 112384},
        {{0, 0, 0, 40000, 40000, 1}, 320128, -81380992, -151879296},
    };
    const LumBox src{3, 3, 3, 2, 2, 2};  // the source box plays no part
    for (const Row& r : rows)
        for (int code : {1, 2, 4, 5, 6, 7}) {
            ASSERT_EQ(lumrResizeGetBufSize(&src, &r.dst, 1, code, &size), lumStatusOk);
            EXPECT_EQ(size, code == 1 ? r.nearest : code == 2 ? r.linear : r.cubic) << code;
        }
    ThreadCount three(3);  // every entry point gets the thread count's multiple
    ASSERT_EQ(lumrResizeGetBufSize(&src, &rows[2].dst, 1, 2, &size), lumStatusOk);
    EXPECT_EQ(size, 137472);
    ASSERT_EQ(lumrResizeGetBufSize(&src, &rows[3].dst, 1, 4, &size), lumStatusOk);
    EXPECT_EQ(size, -455637888);
}

// Calls entry point `which` (0..2: 8u, 16u, 32f C1V; 3..5: the C1PV forms) on
// small float-sized storage; null fields stand for null arguments.
struct Call {
    const void* src;
    const LumVolume* vol;
    const LumBox* sb;
    void* dst;
    const LumBox* db;
    double f[3], s[3];
    int code;
    Lum8u* buf;
};

LumStatus callEntry(int which, const Call& c) {
    const Lum32s st = 64, ps = 64 * 8;
#define LUMR_TAIL c.f[0], c.f[1], c.f[2], c.s[0], c.s[1], c.s[2], c.code, c.buf
#define LUMR_V(T) (const T*)c.src, c.vol, st, ps, c.sb, (T*)c.dst, st, ps, c.db, LUMR_TAIL
#define LUMR_PV(T) (const T* const*)c.src, c.vol, st, c.sb, (T* const*)c.dst, st, c.db, LUMR_TAIL
    switch (which) {
        case 0: return lumrResize_8u_C1V(LUMR_V(Lum8u));
        case 1: return lumrResize_16u_C1V(LUMR_V(Lum16u));
        case 2: return lumrResize_32f_C1V(LUMR_V(Lum32f));
        case 3: return lumrResize_8u_C1PV(LUMR_PV(Lum8u));
        case 4: return lumrResize_16u_C1PV(LUMR_PV(Lum16u));
        default: return lumrResize_32f_C1PV(LUMR_PV(Lum32f));
    }
#undef LUMR_V
#undef LUMR_PV
#undef LUMR_TAIL
}

TEST(ResizeFrame, EntryPointStatusesInOrderAndNothingWritten) {
    // 8 x 8 x 8 volumes of rows of 64 bytes; the PV forms get plane arrays.
    std::vector<Lum8u> srcMem(64 * 8 * 8, 7), dstMem(64 * 8 * 8, 0xA5);
    std::vector<const Lum8u*> srcPlanes(8);
    std::vector<Lum8u*> dstPlanes(8);
    for (int z = 0; z < 8; ++z) srcPlanes[z] = &srcMem[z * 512], dstPlanes[z] = &dstMem[z * 512];
    std::vector<Lum8u> buf(1 << 16);
    const LumVolume vol{8, 8, 8}, badVol{8, 0, 8};
    const LumBox box{0, 0, 0, 8, 8, 8}, badBox{0, 0, -1, 8, 8, 8}, outside{8, 0, 0, 2, 2, 2};
    const LumBox farDst{100, 100, 100, 4, 4, 4};
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::vector<Lum8u> canary = dstMem;
    for (int which = 0; which < 6; ++which) {
        const bool pv = which >= 3;
        const void* src = pv ? (const void*)srcPlanes.data() : (const void*)srcMem.data();
        void* dst = pv ? (void*)dstPlanes.data() : (void*)dstMem.data();
        const Call ok{src, &vol, &box, dst, &box, {1, 1, 1}, {0, 0, 0}, 2, buf.data()};
        auto with = [&](auto edit) {
            Call c = ok;
            edit(c);
            return callEntry(which, c);
        };
        // Two faults at once: the earlier check decides.
        EXPECT_EQ(with([](Call& c) { c.src = nullptr, c.vol = nullptr; }), lumStatusNullPtr);
        EXPECT_EQ(with([](Call& c) { c.dst = nullptr, c.f[0] = 0; }), lumStatusNullPtr);
        EXPECT_EQ(with([](Call& c) { c.buf = nullptr, c.code = 1; }), lumStatusNullPtr);
        EXPECT_EQ(with([&](Call& c) { c.vol = &badVol, c.f[1] = -1; }), lumStatusSize);
        EXPECT_EQ(with([&](Call& c) { c.sb = &badBox, c.code = 3; }), lumStatusSize);
        EXPECT_EQ(with([&](Call& c) { c.db = &badBox, c.sb = &outside; }), lumStatusSize);
        EXPECT_EQ(with([](Call& c) { c.f[2] = 0.0, c.code = 3; }), lumStatusBadResizeFactor);
        EXPECT_EQ(with([](Call& c) { c.f[0] = -2.0; }), lumStatusBadResizeFactor);
        // A NaN factor passes the factor check, so the code check decides.
        EXPECT_EQ(with([&](Call& c) { c.f[1] = nan, c.code = 0; }), lumStatusBadInterpolation);
        EXPECT_EQ(with([&](Call& c) { c.code = 3, c.sb = &outside; }), lumStatusBadInterpolation);
        EXPECT_EQ(with([&](Call& c) { c.sb = &outside, c.db = &farDst; }), lumWarnNoOverlap);
        EXPECT_EQ(with([&](Call& c) { c.db = &farDst; }), lumWarnEmptyResult);
        EXPECT_EQ(with([&](Call& c) { c.f[2] = nan; }), lumWarnEmptyResult);
        EXPECT_EQ(dstMem, canary) << which;
    }
}

TEST(ResizeFrame, ClippingAndRoundingConstants) {
    // A 4-sample row under factor 1, code 1.  Shift 0.5: the mapped start 0.5
    // rounds down with +0.4999999999 (sample 0 kept) and the stop 4.5 up with
    // +0.5000000001 (sample 4 kept).  Each centre X + 0.5 then maps exactly
    // onto a source boundary, and the 1e-10 of the nearest coordinate sends it
    // to the lower sample.  A stop a hair below 4.5 keeps sample 4 too.
    const std::vector<float> row = {10, 11, 12, 13};
    const struct {
        double shift;
        std::vector<float> want;
    } rows[] = {{0.5, {10, 10, 11, 12, 13, -1}},
                {0.49999999995, {10, 10, 11, 12, 13, -1}},
                {0.0, {10, 11, 12, 13, -1, -1}}};
    for (const auto& r : rows) {
        ResizeCase c{{4, 1, 1}, {0, 0, 0, 4, 1, 1}, {0, 0, 0, 6, 1, 1},
                     {1, 1, 1}, {r.shift, 0, 0}, {6, 1, 1}};
        std::vector<float> dst(6, -1.0f);
        ASSERT_EQ(refRunResize(c, row, dst, 1, ResizeForm::V), lumStatusOk);
        EXPECT_EQ(dst, r.want) << r.shift;
    }
}

TEST(ResizeFrame, ThreadSplitOfOffsetClippedRegion) {
    // The region starts at destination plane 3 and is cut by the destination
    // box; z has all four cubic border classes and the lead and trail runs
    // of linear.  Teams of 3, 7 and 50 (slices of several planes, of 1, and of
    // none) give what one thread gives, for either orientation of the steps.
    ResizeCase c{{19, 17, 9}, {1, 0, 0, 40, 17, 9}, {2, 1, 3, 38, 35, 30}, {2.2, 2.1, 3.3},
                 {-1.1, 0.4, 0.6}, {42, 37, 34}};
    const auto src = refRandomVolume<Lum32f>(c.vol, 31);
    int b[3], e[3];
    ASSERT_TRUE(refResizeRegion(c, b, e));
    ASSERT_EQ(b[2], 3);
    for (int a = 0; a < 3; ++a) ASSERT_GE(e[a] - b[a], 16);
    for (ResizeForm form : {ResizeForm::V, ResizeForm::VNegative})
        for (int code : {1, 2, 4, 5, 6, 7}) {
            std::vector<Lum32f> one(size_t(42) * 37 * 34, -7.0f);
            {
                ThreadCount t(1);
                ASSERT_EQ(refRunResize(c, src, one, code, form), lumStatusOk);
            }
            for (int threads : {3, 7, 50}) {
                ThreadCount t(threads);
                std::vector<Lum32f> many(one.size(), -7.0f);
                ASSERT_EQ(refRunResize(c, src, many, code, form, 8), lumStatusOk);
                EXPECT_TRUE(sameBits(one, many)) << "code " << code << " threads " << threads;
            }
        }
}

// One case against the per-sample model of its code, and for code 2 against
// the double trilinear within the type's rounding: floats to a few units of
// their precision, integers to 1.5 (the rim rounds after each of three axes)
// plus the truncation of each axis's Q14 weight.  Returns 1 on a mismatch.
template <class T>
int checkCase(const ResizeCase& c, int code, ResizeForm form, unsigned seed, int* quirks) {
    const auto src = refRandomVolume<T>(c.vol, seed);
    const size_t n = size_t(c.dstVol.width) * c.dstVol.height * c.dstVol.depth;
    std::vector<T> dst(n, T(9));
    int b[3], e[3];
    const bool some = refResizeRegion(c, b, e);
    const LumStatus st = refRunResize(c, src, dst, code, form, seed % 16);
    EXPECT_EQ(st, some ? lumStatusOk : lumWarnEmptyResult) << seed;
    const bool neg = form == ResizeForm::VNegative;
    auto model = [&](bool negativeRows) {
        return refExpected(c, std::vector<T>(n, T(9)), [&](int x, int y, int z) {
            if (code == 1) return refNearestSample(c, src.data(), x, y, z);
            if (code == 2) return refLinearSample(c, src.data(), x, y, z);
            return refCubicSample(c, src.data(), code, x, y, z, negativeRows);
        });
    };
    const auto want = model(neg);
    const bool same = sameBits(dst, want);
    EXPECT_TRUE(same) << "code " << code << " size " << sizeof(T) << " form " << int(form)
                      << " seed " << seed;
    // With a negative row step, class d rows of the cubic rim keep the rows
    // of the class c row before them; count the cases that show it.
    if (neg && code > 2) *quirks += !sameBits(want, model(false));
    if (code == 2 && some) {
        const std::vector<double> srcD(src.begin(), src.end());
        double worst = 0;
        for (int z = b[2]; z < e[2]; ++z)
            for (int y = b[1]; y < e[1]; ++y)
                for (int x = b[0]; x < e[0]; ++x)
                    worst = std::fmax(worst, std::fabs(refTrilinear(c, srcD, x, y, z) -
                                                       dst[(size_t(z) * c.dstVol.height + y) *
                                                               c.dstVol.width + x]));
        const double range = sizeof(T) == 1 ? 255.0 : 65535.0;
        EXPECT_LE(worst, sizeof(T) == 4 ? 1e-4 : 1.5 + 3 * range / 16384) << "seed " << seed;
    }
    return !same || st != (some ? lumStatusOk : lumWarnEmptyResult);
}

TEST(ResizeKernels, RandomGeometryMatchesModels) {
    // Volumes of 1 to 30 per axis, reductions to enlargements of 7 (a rim far
    // beyond the capacity the layout gives it), shifts of up to 4 samples,
    // offset and overreaching boxes, the three forms with byte steps that
    // floor to whole samples, and for floats thread counts of 1 to 20.
    std::mt19937 g(1234);
    auto U = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(g); };
    const double fs[] = {0.17, 0.3, 0.5, 0.77, 1.0, 1.0, 1.25, 2.0, 3.0, 4.5, 7.0};
    const int codes[] = {1, 2, 4, 5, 6, 7};
    int fails = 0, quirks = 0;
    for (int it = 0; it < 1500 && fails < 5; ++it) {
        ResizeCase c{};
        const int big = U(0, 3) == 0 ? 30 : 12;
        c.vol = {U(1, big), U(1, big), U(1, big)};
        const int ve[3] = {c.vol.width, c.vol.height, c.vol.depth};
        int so[3], se[3], dor[3], de[3];
        for (int a = 0; a < 3; ++a) {
            c.factor[a] = fs[U(0, 10)];
            c.shift[a] = U(0, 3) == 0 ? 0.0 : U(-400, 400) / 100.0;
            so[a] = U(0, 2) ? 0 : U(0, ve[a] - 1);
            se[a] = U(1, ve[a] + 2);
            dor[a] = U(0, 2) ? 0 : U(0, 3);
            de[a] = U(1, int(ve[a] * c.factor[a] + 6));
        }
        c.srcBox = {so[0], so[1], so[2], se[0], se[1], se[2]};
        c.dstBox = {dor[0], dor[1], dor[2], de[0], de[1], de[2]};
        c.dstVol = {dor[0] + de[0], dor[1] + de[1], dor[2] + de[2]};
        const int code = codes[U(0, 5)];
        const ResizeForm form = ResizeForm(U(0, 2));
        const unsigned seed = 5000 + it;
        switch (U(0, 2)) {
            case 0: fails += checkCase<Lum8u>(c, code, form, seed, &quirks); break;
            case 1: fails += checkCase<Lum16u>(c, code, form, seed, &quirks); break;
            default: {
                ThreadCount t(U(0, 1) ? 1 : U(2, 20));
                fails += checkCase<Lum32f>(c, code, form, seed, &quirks);
            }
        }
    }
    EXPECT_GT(quirks, 0);  // the cases do reach the negative-step rim rule
}

TEST(ResizeKernels, IdentityMappings) {
    // Codes 1, 2, 4 and 6 pass every sample through, in the rim and in the
    // core, where 8u and 16u truncate exact integers to themselves.
    ResizeCase c{{9, 7, 5}, {0, 0, 0, 9, 7, 5}, {0, 0, 0, 9, 7, 5}, {1, 1, 1}, {0, 0, 0}, {9, 7, 5}};
    auto expectCopy = [&](auto sample) {
        using T = decltype(sample);
        const auto src = refRandomVolume<T>(c.vol, 3);
        for (int code : {1, 2, 4, 6})
            for (ResizeForm f : {ResizeForm::V, ResizeForm::PV}) {
                std::vector<T> dst(src.size());
                ASSERT_EQ(refRunResize(c, src, dst, code, f), lumStatusOk);
                EXPECT_TRUE(sameBits(dst, src)) << "code " << code << " size " << sizeof(T);
            }
    };
    expectCopy(Lum8u{});
    expectCopy(Lum16u{});
    expectCopy(Lum32f{});
    // The B-spline smooths: on a volume varying along x only, an interior
    // sample becomes (v[i - 1] + 4 v[i] + v[i + 1]) / 6.
    std::vector<float> src(9 * 7 * 5), dst(src.size());
    for (size_t i = 0; i < src.size(); ++i) src[i] = float((i % 9) * (i % 9));
    ASSERT_EQ(refRunResize(c, src, dst, 5, ResizeForm::V), lumStatusOk);
    for (int x = 1; x < 8; ++x)
        EXPECT_NEAR(dst[(2 * 7 + 3) * 9 + x], ((x - 1) * (x - 1) + 4.0 * x * x + (x + 1) * (x + 1)) / 6,
                    1e-4) << x;
}

TEST(ResizeKernels, CubicCoefficientsAtTheTelltaleFractions) {
    using CoefFn = void (*)(const Lum32f*, Lum32s, Lum32f*);
    const CoefFn routines[4] = {ownResizeCoefLagrange, ownResizeCoefBSpline, ownResizeCoefCatmullRom,
                                ownResizeCoefCubicBC};
    const Lum32f fr[2] = {0.0f, std::numeric_limits<Lum32f>::quiet_NaN()};
    Lum32f k[4][8];
    for (int code = 4; code <= 7; ++code) {
        routines[code - 4](fr, 2, k[code - 4]);
        for (int m = 0; m < 4; ++m) EXPECT_EQ(k[code - 4][4 + m], 1.0f) << code;  // NaN weighs 1
    }
    // At f = 0: Catmull-Rom passes the sample; Lagrange's outer polynomial,
    // evaluated in the stated order, leaves 1.1e-16 rather than 0 on the two
    // neighbours; the B-spline smooths with 1/6, 2/3, 1/6; B = 0.5, C = 0.3
    // does not pass the sample either.
    EXPECT_EQ(std::vector<float>(k[2], k[2] + 4), (std::vector<float>{0.0f, 1.0f, 0.0f, 0.0f}));
    const float e = 1.1102230246251565e-16f;
    EXPECT_EQ(std::vector<float>(k[0], k[0] + 4), (std::vector<float>{e, 1.0f, e, 0.0f}));
    EXPECT_FLOAT_EQ(k[1][0], 1.0f / 6);
    EXPECT_FLOAT_EQ(k[1][1], 2.0f / 3);
    EXPECT_FLOAT_EQ(k[1][2], 1.0f / 6);
    EXPECT_EQ(k[1][3], 0.0f);
    EXPECT_LT(k[3][1], 0.9f);
    EXPECT_GT(k[3][0], 0.05f);
}

TEST(ResizeKernels, CubicRimRoundsCoreTruncates) {
    EXPECT_EQ(ownCubicCoreOut<Lum8u>(100.9f), 100);
    EXPECT_EQ(ownCubicRimOut<Lum8u>(100.9f), 101);
    EXPECT_EQ(ownCubicRimOut<Lum8u>(0.49999997f), 1);  // the bias of 0.5000001
    EXPECT_EQ(ownCubicRimOut<Lum8u>(0.4999998f), 0);
    EXPECT_EQ(ownCubicRimOut<Lum8u>(100.4999f), 100);
    EXPECT_EQ(ownCubicRimOut<Lum8u>(-3.7f), 0);
    EXPECT_EQ(ownCubicRimOut<Lum8u>(300.0f), 255);
    EXPECT_EQ(ownCubicCoreOut<Lum8u>(-0.7f), 0);
    EXPECT_EQ(ownCubicCoreOut<Lum8u>(255.99f), 255);
    EXPECT_EQ(ownCubicCoreOut<Lum8u>(9.0e9f), 0);  // the processor's indefinite integer
    EXPECT_EQ(ownCubicCoreOut<Lum16u>(65534.9f), 65534);
    EXPECT_EQ(ownCubicRimOut<Lum16u>(65534.6f), 65535);
    EXPECT_EQ(ownCubicRimOut<Lum16u>(70000.0f), 65535);
    EXPECT_EQ(ownCubicCoreOut<Lum32f>(-1.25f), -1.25f);  // no clamp for floats
}

TEST(ResizeKernels, LinearIntegerExtremesAndSingleSampleAxes) {
    // 65535 on both taps stays 65535 on every axis; 255 likewise in 8u.
    ResizeCase c{{5, 4, 3}, {0, 0, 0, 5, 4, 3}, {0, 0, 0, 13, 9, 8},
                 {2.5, 2.25, 2.5}, {0.1, 0, 0}, {13, 9, 8}};
    std::vector<Lum16u> s16(60, 65535), d16(13 * 9 * 8, 0);
    ASSERT_EQ(refRunResize(c, s16, d16, 2, ResizeForm::V), lumStatusOk);
    EXPECT_EQ(d16, std::vector<Lum16u>(d16.size(), 65535));
    std::vector<Lum8u> s8(60, 255), d8(13 * 9 * 8, 0);
    ASSERT_EQ(refRunResize(c, s8, d8, 2, ResizeForm::V), lumStatusOk);
    EXPECT_EQ(d8, std::vector<Lum8u>(d8.size(), 255));

    // One source sample on an axis: every destination sample is lead or trail
    // there.  Integer rims give (wa a + wb a + 8192) >> 14 = a, so a
    // single-sample volume comes out as its value all over the region.
    ResizeCase one{{1, 1, 1}, {0, 0, 0, 1, 1, 1}, {0, 0, 0, 5, 4, 3},
                   {4.3, 3.1, 2.6}, {0.3, 0.45, -0.05}, {5, 4, 3}};
    std::vector<Lum8u> o8{201}, p8(60, 0);
    ASSERT_EQ(refRunResize(one, o8, p8, 2, ResizeForm::V), lumStatusOk);
    EXPECT_EQ(p8, std::vector<Lum8u>(60, 201));
    std::vector<Lum16u> o16{54321}, p16(60, 0);
    ASSERT_EQ(refRunResize(one, o16, p16, 2, ResizeForm::PV), lumStatusOk);
    EXPECT_EQ(p16, std::vector<Lum16u>(60, 54321));
}

}  // namespace
