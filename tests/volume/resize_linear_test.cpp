// Nearest and linear resizing against per-sample models: the bit model of
// the promised arithmetic, and an independent double trilinear.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "lumr.h"
#include "ref/resize_ref.h"

namespace {

std::vector<ResizeCase> linearCases() {
    std::vector<ResizeCase> out;
    const double factors[][3] = {{2, 2, 2},     {0.5, 0.5, 0.5}, {1.3, 0.7, 1.0}, {3.3, 1.6, 0.45},
                                 {1, 1, 3},     {0.8, 2.5, 1.2}, {5, 0.3, 2}};
    const double shifts[][3] = {{0, 0, 0}, {0.4, -1.1, 0.75}, {-2.5, 3, -0.3}};
    const LumVolume vols[] = {{9, 8, 7}, {1, 5, 4}, {6, 1, 3}, {4, 3, 1}, {2, 2, 2}, {17, 11, 5}};
    int k = 0;
    for (const auto& v : vols)
        for (const auto& f : factors)
            for (const auto& s : shifts) {
                ResizeCase c{};
                c.vol = v;
                c.srcBox = (k % 2) ? LumBox{0, 0, 0, v.width, v.height, v.depth}
                                   : LumBox{v.width / 2, v.height / 3, v.depth / 2, v.width, v.height, 2};
                for (int a = 0; a < 3; ++a) c.factor[a] = f[a], c.shift[a] = s[a];
                const int w = int(v.width * f[0] + 6), h = int(v.height * f[1] + 6),
                          d = int(v.depth * f[2] + 6);
                c.dstBox = LumBox{0, 1, 0, w, h - 1, d};
                c.dstVol = {w, h, d};
                out.push_back(c);
                ++k;
            }
    return out;
}

template <class T>
void expectBitModel(int code, const std::vector<ResizeCase>& cases) {
    unsigned seed = 100;
    for (const ResizeCase& c : cases) {
        const auto src = refRandomVolume<T>(c.vol, ++seed);
        std::vector<T> dst(size_t(c.dstVol.width) * c.dstVol.height * c.dstVol.depth, T(3));
        const LumStatus st = refRunResize(c, src, dst, code, ResizeForm::V, seed % 16);
        int b[3], e[3];
        ASSERT_EQ(st, refResizeRegion(c, b, e) ? lumStatusOk : lumWarnEmptyResult);
        const auto want = refExpected(c, std::vector<T>(dst.size(), T(3)), [&](int x, int y, int z) {
            return code == 1 ? refNearestSample(c, src.data(), x, y, z)
                             : refLinearSample(c, src.data(), x, y, z);
        });
        size_t bad = 0, first = 0;
        for (size_t i = 0; i < dst.size(); ++i)
            if (std::memcmp(&dst[i], &want[i], sizeof(T)) != 0 && bad++ == 0) first = i;
        EXPECT_EQ(bad, 0u) << "type size " << sizeof(T) << " case " << seed << " first " << first
                           << " got " << double(dst[first]) << " want " << double(want[first]);
    }
}

TEST(ResizeNearest, MatchesIndexModelEverywhere) {
    const auto cases = linearCases();
    expectBitModel<Lum8u>(1, cases);
    expectBitModel<Lum16u>(1, cases);
    expectBitModel<Lum32f>(1, cases);
}

TEST(ResizeLinear, MatchesBitModelOfEveryType) {
    const auto cases = linearCases();
    expectBitModel<Lum8u>(2, cases);
    expectBitModel<Lum16u>(2, cases);
    expectBitModel<Lum32f>(2, cases);
}

// Within each type's rounding of the exact trilinear: float to a few units of
// its precision; integers to 1.5 (the rim rounds after each of three axes)
// plus the truncation of each axis's Q14 weight, up to 1/16384 of the
// sample range per axis.
template <class T>
void expectNearTrilinear(const std::vector<ResizeCase>& cases) {
    unsigned seed = 500;
    for (const ResizeCase& c : cases) {
        const auto src = refRandomVolume<T>(c.vol, ++seed);
        const std::vector<double> srcD(src.begin(), src.end());
        std::vector<T> dst(size_t(c.dstVol.width) * c.dstVol.height * c.dstVol.depth, T(0));
        if (refRunResize(c, src, dst, 2, ResizeForm::PV) != lumStatusOk) continue;
        int b[3], e[3];
        refResizeRegion(c, b, e);
        double worst = 0;
        for (int z = b[2]; z < e[2]; ++z)
            for (int y = b[1]; y < e[1]; ++y)
                for (int x = b[0]; x < e[0]; ++x) {
                    const double want = refTrilinear(c, srcD, x, y, z);
                    const double got =
                        dst[(size_t(z) * c.dstVol.height + y) * c.dstVol.width + x];
                    worst = std::max(worst, std::fabs(got - want));
                }
        const double range = sizeof(T) == 1 ? 255.0 : 65535.0;
        EXPECT_LE(worst, sizeof(T) == 4 ? 1e-4 : 1.5 + 3 * range / 16384) << "case " << seed;
    }
}

TEST(ResizeLinear, CloseToDoubleTrilinearWithEdgeClamping) {
    const auto cases = linearCases();
    expectNearTrilinear<Lum8u>(cases);
    expectNearTrilinear<Lum16u>(cases);
    expectNearTrilinear<Lum32f>(cases);
}

// 8x on x and y: the rim of a plane outgrows the capacity the layout gives it,
// and the buffer stays exactly the reported size (the sanitizer build sees
// any overrun).
TEST(ResizeLinear, LargeEnlargementBeyondRimCapacity) {
    ResizeCase c{{12, 10, 4}, {0, 0, 0, 12, 10, 4}, {0, 0, 0, 96, 80, 6},
                 {8, 8, 1.5}, {0, 0, 0}, {96, 80, 6}};
    // The rim holds about 8 rows and 8 columns: 8 x 96 + 8 x 72 > 4 x (96 + 80).
    for (int code : {1, 2}) {
        expectBitModel<Lum8u>(code, {c});
        expectBitModel<Lum16u>(code, {c});
        expectBitModel<Lum32f>(code, {c});
    }
    expectNearTrilinear<Lum32f>({c});
    expectNearTrilinear<Lum16u>({c});
}

TEST(ResizeLinear, IntegerExtremesAndWeightZeroPlanes) {
    // 65535 on both taps stays 65535 on every axis; 255 likewise in 8u.
    ResizeCase c{{5, 4, 3}, {0, 0, 0, 5, 4, 3}, {0, 0, 0, 13, 9, 8}, {2.5, 2.25, 2.5},
                 {0.1, 0, 0}, {13, 9, 8}};
    std::vector<Lum16u> s16(60, 65535), d16(13 * 9 * 8, 0);
    ASSERT_EQ(refRunResize(c, s16, d16, 2, ResizeForm::V), lumStatusOk);
    for (Lum16u v : d16) EXPECT_EQ(v, 65535);
    std::vector<Lum8u> s8(60, 255), d8(13 * 9 * 8, 0);
    ASSERT_EQ(refRunResize(c, s8, d8, 2, ResizeForm::V), lumStatusOk);
    for (Lum8u v : d8) EXPECT_EQ(v, 255);

    // Factor 1 on z puts every ring plane at weight 0: it yields plane i as it
    // stands, in every format, even with a huge neighbour plane.
    ResizeCase z{{6, 6, 4}, {0, 0, 0, 6, 6, 4}, {0, 0, 0, 6, 6, 4}, {1, 1, 1}, {0, 0, 0}, {6, 6, 4}};
    std::vector<Lum32f> f(144, 1.0f);
    for (int i = 0; i < 36; ++i) f[72 + i] = 1e30f;  // plane 2
    std::vector<Lum32f> out(144, 0.0f);
    ASSERT_EQ(refRunResize(z, f, out, 2, ResizeForm::V), lumStatusOk);
    for (int i = 0; i < 36; ++i) {
        EXPECT_EQ(out[36 + i], 1.0f);  // plane 1 blended with plane 2 at weight 0
        EXPECT_EQ(out[72 + i], 1e30f);
    }
}

TEST(ResizeNearest, RepeatedSourcePlanesAreCopies) {
    // z factor 3: three destination planes per source plane, all equal.
    ResizeCase c{{7, 5, 3}, {0, 0, 0, 7, 5, 3}, {0, 0, 0, 7, 5, 9}, {1, 1, 3}, {0, 0, 0}, {7, 5, 9}};
    const auto src = refRandomVolume<Lum16u>(c.vol, 4);
    std::vector<Lum16u> dst(7 * 5 * 9);
    ASSERT_EQ(refRunResize(c, src, dst, 1, ResizeForm::PV), lumStatusOk);
    for (int z = 0; z < 9; ++z)
        EXPECT_EQ(0, std::memcmp(&dst[z * 35], &src[(z / 3) * 35], 35 * sizeof(Lum16u))) << z;
}

}  // namespace
