// The cubic family (codes 4 to 7): coefficients, identity mappings, the rim
// and core conversions, and every sample against a per-sample model that
// follows the promised order of operations.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "lumr.h"
#include "ref/resize_ref.h"
#include "volume/resize/cubic.h"

namespace {

using CoefFn = void (*)(const Lum32f*, Lum32s, Lum32f*);
const CoefFn kRoutines[4] = {ownResizeCoefLagrange, ownResizeCoefBSpline, ownResizeCoefCatmullRom,
                             ownResizeCoefCubicBC};

TEST(ResizeCubic, CoefficientRoutines) {
    const Lum32f nan = std::numeric_limits<Lum32f>::quiet_NaN();
    const Lum32f fr[] = {0.0f, 0.25f, 0.5f, 0.999f, nan};
    Lum32f k[4 * 5];
    for (int code = 4; code <= 7; ++code) {
        kRoutines[code - 4](fr, 5, k);
        for (int e = 0; e < 4; ++e) {
            float want[4];
            refCubicCoefs(code, fr[e], want);
            for (int m = 0; m < 4; ++m) EXPECT_EQ(k[4 * e + m], want[m]) << code << ' ' << e;
            const double sum = double(k[4 * e]) + k[4 * e + 1] + k[4 * e + 2] + k[4 * e + 3];
            EXPECT_NEAR(sum, 1.0, 1e-6) << code << ' ' << e;
        }
        for (int m = 0; m < 4; ++m) EXPECT_EQ(k[16 + m], 1.0f);  // NaN weighs 1 on each tap
    }
    // At f = 0: Lagrange and Catmull-Rom pass the sample, the B-spline smooths
    // with 1/6, 2/3, 1/6, and the B = 0.5, C = 0.3 filter does not pass it.
    ownResizeCoefCatmullRom(fr, 1, k);
    EXPECT_EQ(k[0], 0.0f);
    EXPECT_EQ(k[1], 1.0f);
    EXPECT_EQ(k[2], 0.0f);
    EXPECT_EQ(k[3], 0.0f);
    // Lagrange's outer polynomial, evaluated in the stated order, leaves
    // 1.1e-16 rather than 0 on the two neighbours.
    ownResizeCoefLagrange(fr, 1, k);
    EXPECT_EQ(k[0], 1.1102230246251565e-16f);
    EXPECT_EQ(k[1], 1.0f);
    EXPECT_EQ(k[2], 1.1102230246251565e-16f);
    EXPECT_EQ(k[3], 0.0f);
    ownResizeCoefBSpline(fr, 1, k);
    EXPECT_FLOAT_EQ(k[0], 1.0f / 6);
    EXPECT_FLOAT_EQ(k[1], 2.0f / 3);
    EXPECT_FLOAT_EQ(k[2], 1.0f / 6);
    EXPECT_EQ(k[3], 0.0f);
    ownResizeCoefCubicBC(fr, 1, k);
    EXPECT_LT(k[1], 0.9f);
    EXPECT_GT(k[0], 0.05f);
}

TEST(ResizeCubic, RimRoundsCoreTruncates) {
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

template <class T>
void expectIdentity(int code) {
    ResizeCase c{{9, 8, 7}, {0, 0, 0, 9, 8, 7}, {0, 0, 0, 9, 8, 7}, {1, 1, 1}, {0, 0, 0}, {9, 8, 7}};
    const auto src = refRandomVolume<T>(c.vol, 8);
    std::vector<T> dst(src.size());
    ASSERT_EQ(refRunResize(c, src, dst, code, ResizeForm::V), lumStatusOk);
    EXPECT_EQ(0, std::memcmp(dst.data(), src.data(), src.size() * sizeof(T))) << code << ' ' << sizeof(T);
}

TEST(ResizeCubic, IdentityMappings) {
    for (int code : {4, 6}) {  // both pass the samples through, core and rim
        expectIdentity<Lum8u>(code);
        expectIdentity<Lum16u>(code);
        expectIdentity<Lum32f>(code);
    }
    // The B-spline smooths: on a volume varying along x only, an interior
    // sample becomes (v[i - 1] + 4 v[i] + v[i + 1]) / 6.
    ResizeCase c{{9, 8, 7}, {0, 0, 0, 9, 8, 7}, {0, 0, 0, 9, 8, 7}, {1, 1, 1}, {0, 0, 0}, {9, 8, 7}};
    std::vector<float> src(9 * 8 * 7), dst(src.size());
    for (size_t i = 0; i < src.size(); ++i) src[i] = float((i % 9) * (i % 9));
    ASSERT_EQ(refRunResize(c, src, dst, 5, ResizeForm::V), lumStatusOk);
    for (int x = 1; x < 8; ++x) {
        const double want = ((x - 1) * (x - 1) + 4.0 * x * x + (x + 1) * (x + 1)) / 6;
        EXPECT_NEAR(dst[(3 * 8 + 4) * 9 + x], want, 1e-4) << x;
    }
}

std::vector<ResizeCase> cubicCases() {
    std::vector<ResizeCase> out;
    const double factors[][3] = {{2, 2, 2}, {0.5, 0.5, 0.5}, {1.3, 0.7, 1.0}, {3.5, 1.7, 0.4},
                                 {0.8, 2.6, 1.2}, {1, 1, 4.5}};
    const double shifts[][3] = {{0, 0, 0}, {0.3, -1.2, 0.7}, {-2.5, 2, -0.4}};
    const LumVolume vols[] = {{9, 8, 7}, {3, 4, 5}, {2, 6, 3}, {5, 1, 4}, {4, 5, 2}, {12, 10, 6}};
    int k = 0;
    for (const auto& v : vols)
        for (const auto& f : factors)
            for (const auto& s : shifts) {
                ResizeCase c{};
                c.vol = v;
                c.srcBox = (k % 2) ? LumBox{0, 0, 0, v.width, v.height, v.depth}
                                   : LumBox{v.width / 2, v.height / 3, v.depth / 3, v.width, v.height, 3};
                for (int a = 0; a < 3; ++a) c.factor[a] = f[a], c.shift[a] = s[a];
                const int w = int(v.width * f[0] + 6), h = int(v.height * f[1] + 6),
                          d = int(v.depth * f[2] + 6);
                c.dstBox = LumBox{1, 0, 0, w - 1, h, d};
                c.dstVol = {w, h, d};
                out.push_back(c);
                ++k;
            }
    return out;
}

// Every destination sample against the model; returns the cases whose
// negative-step result differed from the positive-step one.
template <class T>
int expectCubicModel(int code, const std::vector<ResizeCase>& cases, ResizeForm form) {
    unsigned seed = 700;
    int quirkSeen = 0;
    const bool neg = form == ResizeForm::VNegative;
    for (const ResizeCase& c : cases) {
        const auto src = refRandomVolume<T>(c.vol, ++seed);
        const size_t n = size_t(c.dstVol.width) * c.dstVol.height * c.dstVol.depth;
        std::vector<T> dst(n, T(9));
        int b[3], e[3];
        const LumStatus st = refRunResize(c, src, dst, code, form, seed % 16);
        EXPECT_EQ(st, refResizeRegion(c, b, e) ? lumStatusOk : lumWarnEmptyResult);
        const auto want = refExpected(c, std::vector<T>(n, T(9)), [&](int x, int y, int z) {
            return refCubicSample(c, src.data(), code, x, y, z, neg);
        });
        size_t bad = 0, first = 0;
        for (size_t i = 0; i < n; ++i)
            if (std::memcmp(&dst[i], &want[i], sizeof(T)) != 0 && bad++ == 0) first = i;
        EXPECT_EQ(bad, 0u) << "code " << code << " size " << sizeof(T) << " case " << seed
                           << " first " << first << " got " << double(dst[first]) << " want "
                           << double(want[first]);
        if (neg) {
            const auto plain = refExpected(c, std::vector<T>(n, T(9)), [&](int x, int y, int z) {
                return refCubicSample(c, src.data(), code, x, y, z, false);
            });
            quirkSeen += std::memcmp(plain.data(), want.data(), n * sizeof(T)) != 0;
        }
    }
    return quirkSeen;
}

TEST(ResizeCubic, FloatMatchesModelBitForBit) {
    const auto cases = cubicCases();
    for (int code = 4; code <= 7; ++code) {
        expectCubicModel<Lum32f>(code, cases, ResizeForm::V);
        expectCubicModel<Lum32f>(code, cases, ResizeForm::PV);
    }
}

TEST(ResizeCubic, IntegerTypesMatchModel) {
    const auto cases = cubicCases();
    for (int code : {4, 7}) {
        expectCubicModel<Lum8u>(code, cases, ResizeForm::V);
        expectCubicModel<Lum16u>(code, cases, ResizeForm::PV);
    }
    // Constant integer volumes: the rim keeps the value; the core may come out
    // one below it where the float sum falls just short of the integer.
    ResizeCase c{{8, 7, 6}, {0, 0, 0, 8, 7, 6}, {0, 0, 0, 18, 15, 13}, {2.3, 2.1, 2.2},
                 {0, 0, 0}, {18, 15, 13}};
    std::vector<Lum8u> s8(8 * 7 * 6, 200), d8(18 * 15 * 13, 0);
    ASSERT_EQ(refRunResize(c, s8, d8, 6, ResizeForm::V), lumStatusOk);
    for (Lum8u v : d8) EXPECT_TRUE(v == 200 || v == 199) << int(v);
}

TEST(ResizeCubic, NegativeRowStepKeepsClassCRows) {
    // Trailing rows of class d reuse the rows of the class c row before them
    // when the row step is negative; everything else matches.
    const auto cases = cubicCases();
    int seen = 0;
    for (int code : {5, 6}) {
        seen += expectCubicModel<Lum32f>(code, cases, ResizeForm::VNegative);
        seen += expectCubicModel<Lum16u>(code, cases, ResizeForm::VNegative);
    }
    EXPECT_GT(seen, 0);  // the cases do reach the quirk
}

TEST(ResizeCubic, LargeEnlargementBeyondRimCapacity) {
    // 8x on x and y: about 24 rim rows and columns, far past 12 (W + H) per
    // plane; the buffer is exactly the reported size.
    ResizeCase c{{10, 9, 4}, {0, 0, 0, 10, 9, 4}, {0, 0, 0, 80, 72, 6}, {8, 8, 1.5},
                 {0, 0, 0}, {80, 72, 6}};
    expectCubicModel<Lum32f>(6, {c}, ResizeForm::V);
    expectCubicModel<Lum8u>(5, {c}, ResizeForm::PV);
    expectCubicModel<Lum16u>(7, {c}, ResizeForm::V);
}

}  // namespace
