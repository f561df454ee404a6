// Second look at the resizer: byte steps that are not whole samples, a
// random spread of geometries against the per-sample models, axes of one
// sample, and the thread split of an offset, clipped region.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "lumr.h"
#include "ref/resize_ref.h"

namespace {

struct ThreadCount {  // restores the thread count after a test
    explicit ThreadCount(Lum32s n) { lumSetNumThreads(n); }
    ~ThreadCount() { lumSetNumThreads(saved); }
    Lum32s saved = lumGetNumThreads();
};

template <class T>
bool sameBits(const std::vector<T>& a, const std::vector<T>& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0;
}

LumStatus callV(const Lum16u* s, const LumVolume* v, Lum32s ss, Lum32s sp, const LumBox* sb,
                Lum16u* d, Lum32s ds, Lum32s dp, const LumBox* db, const double* f,
                const double* sh, int code, Lum8u* buf) {
    return lumrResize_16u_C1V(s, v, ss, sp, sb, d, ds, dp, db, f[0], f[1], f[2], sh[0], sh[1],
                              sh[2], code, buf);
}
LumStatus callV(const Lum32f* s, const LumVolume* v, Lum32s ss, Lum32s sp, const LumBox* sb,
                Lum32f* d, Lum32s ds, Lum32s dp, const LumBox* db, const double* f,
                const double* sh, int code, Lum8u* buf) {
    return lumrResize_32f_C1V(s, v, ss, sp, sb, d, ds, dp, db, f[0], f[1], f[2], sh[0], sh[1],
                              sh[2], code, buf);
}

// Runs a C1V resize with both volumes stored in padded rows and planes, upright
// (sign 1) or upside down and back to front (sign -1), every byte step being
// sign x pitch x sample size + extra.  Returns the destination, densely.
template <class T>
std::vector<T> runPadded(const ResizeCase& c, const std::vector<T>& dense, int code, int sign,
                         int extra) {
    const int w = c.vol.width, h = c.vol.height, d = c.vol.depth;
    const int dw = c.dstVol.width, dh = c.dstVol.height, dd = c.dstVol.depth;
    const int P = w + 3, PP = P * (h + 2), Q = dw + 5, QQ = Q * (dh + 1);
    auto at = [sign](int x, int y, int z, int row, int plane, int hh, int depth) {
        return sign > 0 ? size_t(z) * plane + size_t(y) * row + x
                        : size_t(depth - 1 - z) * plane + size_t(hh - 1 - y) * row + x;
    };
    std::vector<T> s(size_t(PP) * d, T(0)), o(size_t(QQ) * dd, T(9));
    for (int z = 0; z < d; ++z)
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                s[at(x, y, z, P, PP, h, d)] = dense[(size_t(z) * h + y) * w + x];
    const Lum32s sz = sizeof(T);
    Lum32s size = 0;
    EXPECT_EQ(lumrResizeGetBufSize(&c.srcBox, &c.dstBox, 1, code, &size), lumStatusOk);
    std::vector<Lum8u> buf(size_t(size) + 1);
    const LumStatus st =
        callV(s.data() + at(0, 0, 0, P, PP, h, d), &c.vol, sign * P * sz + extra,
              sign * PP * sz + extra, &c.srcBox, o.data() + at(0, 0, 0, Q, QQ, dh, dd), sign * Q * sz + extra,
              sign * QQ * sz + extra, &c.dstBox, c.factor, c.shift, code, buf.data() + 1);
    EXPECT_EQ(st, lumStatusOk);
    std::vector<T> out(size_t(dw) * dh * dd);
    for (int z = 0; z < dd; ++z)
        for (int y = 0; y < dh; ++y)
            for (int x = 0; x < dw; ++x)
                out[(size_t(z) * dh + y) * dw + x] = o[at(x, y, z, Q, QQ, dh, dd)];
    return out;
}

template <class T>
void expectStepsFloor() {
    ResizeCase c{{7, 6, 5}, {0, 0, 0, 7, 6, 5}, {1, 0, 1, 14, 9, 8}, {1.8, 1.4, 1.7},
                 {0.3, -0.2, 0.1}, {15, 9, 9}};
    const auto src = refRandomVolume<T>(c.vol, 21);
    for (int code : {1, 2, 6}) {
        // The padded, exact-step run matches the dense one.
        std::vector<T> dense(size_t(15) * 9 * 9, T(9));
        ASSERT_EQ(refRunResize(c, src, dense, code, ResizeForm::V), lumStatusOk);
        EXPECT_TRUE(sameBits(runPadded(c, src, code, 1, 0), dense)) << code;
        // A byte step of pitch x size + (size - 1) shifts down to the pitch:
        // floor(4P + 3) / 4 = P.  Negative: floor((-4P + 3) / 4) = -P, which a
        // division rounding toward zero would make -P + 1.
        const int extra = int(sizeof(T)) - 1;
        for (int sign : {1, -1})
            EXPECT_TRUE(sameBits(runPadded(c, src, code, sign, extra),
                                 runPadded(c, src, code, sign, 0)))
                << "code " << code << " sign " << sign << " size " << sizeof(T);
    }
}

TEST(ResizeAudit, ByteStepsFloorByArithmeticShift) {
    expectStepsFloor<Lum16u>();
    expectStepsFloor<Lum32f>();
}

// One random case against the per-sample model of its code; 1 on a mismatch.
template <class T>
int checkCase(const ResizeCase& c, int code, ResizeForm form, unsigned seed) {
    const auto src = refRandomVolume<T>(c.vol, seed);
    const size_t n = size_t(c.dstVol.width) * c.dstVol.height * c.dstVol.depth;
    std::vector<T> dst(n, T(9));
    int b[3], e[3];
    const LumStatus want = refResizeRegion(c, b, e) ? lumStatusOk : lumWarnEmptyResult;
    const LumStatus st = refRunResize(c, src, dst, code, form, seed % 16);
    EXPECT_EQ(st, want) << seed;
    const auto model = refExpected(c, std::vector<T>(n, T(9)), [&](int x, int y, int z) {
        if (code == 1) return refNearestSample(c, src.data(), x, y, z);
        if (code == 2) return refLinearSample(c, src.data(), x, y, z);
        return refCubicSample(c, src.data(), code, x, y, z, form == ResizeForm::VNegative);
    });
    const bool same = sameBits(dst, model);
    EXPECT_TRUE(same) << "code " << code << " size " << sizeof(T) << " form " << int(form)
                      << " seed " << seed;
    return st != want || !same;
}

TEST(ResizeAudit, RandomGeometryMatchesModel) {
    // Volumes of 1 to 30 per axis, reductions to enlargements of 7, shifts of
    // up to 4 samples, offset and overreaching boxes, the three forms, and for
    // floats thread counts of 1 to 20.
    std::mt19937 g(1234);
    auto U = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(g); };
    const double fs[] = {0.17, 0.3, 0.5, 0.77, 1.0, 1.0, 1.25, 2.0, 3.0, 4.5, 7.0};
    const int codes[] = {1, 2, 4, 5, 6, 7};
    int fails = 0;
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
            case 0: fails += checkCase<Lum8u>(c, code, form, seed); break;
            case 1: fails += checkCase<Lum16u>(c, code, form, seed); break;
            default: {
                ThreadCount t(U(0, 1) ? 1 : U(2, 20));
                fails += checkCase<Lum32f>(c, code, form, seed);
            }
        }
    }
}

TEST(ResizeAudit, AxisOfOneSampleIsCopied) {
    // Linear, one source sample on an axis: every destination sample is lead
    // or trail there.  Integer rims give (wa a + wb a + 8192) >> 14 = a, so a
    // single-sample volume comes out as its value all over the region.
    ResizeCase one{{1, 1, 1}, {0, 0, 0, 1, 1, 1}, {0, 0, 0, 5, 4, 3}, {4.3, 3.1, 2.6},
                   {0.3, 0.45, -0.05}, {5, 4, 3}};
    int b[3], e[3];
    ASSERT_TRUE(refResizeRegion(one, b, e));
    ASSERT_EQ(b[0] + b[1] + b[2], 0);
    ASSERT_EQ(e[0] * e[1] * e[2], 60);  // the whole destination
    std::vector<Lum8u> s8{201}, d8(60, 0);
    ASSERT_EQ(refRunResize(one, s8, d8, 2, ResizeForm::V), lumStatusOk);
    for (Lum8u v : d8) EXPECT_EQ(v, 201);
    std::vector<Lum16u> s16{54321}, d16(60, 0);
    ASSERT_EQ(refRunResize(one, s16, d16, 2, ResizeForm::PV), lumStatusOk);
    for (Lum16u v : d16) EXPECT_EQ(v, 54321);
    // Floats with one row and one plane: z planes come from plane 0 without a
    // z step and rows from row 0 without a y step, so every row of every plane
    // is the same x-filtered row.
    ResizeCase row{{6, 1, 1}, {0, 0, 0, 6, 1, 1}, {0, 0, 0, 13, 3, 3}, {2.1, 3.3, 2.9},
                   {0.2, -0.6, -0.3}, {13, 3, 3}};
    ASSERT_TRUE(refResizeRegion(row, b, e));
    ASSERT_EQ(b[0] + b[1] + b[2], 0);
    ASSERT_EQ(e[0] * e[1] * e[2], 13 * 3 * 3);
    const auto src = refRandomVolume<Lum32f>(row.vol, 8);
    std::vector<Lum32f> d(13 * 3 * 3, 0.0f);
    ASSERT_EQ(refRunResize(row, src, d, 2, ResizeForm::V), lumStatusOk);
    for (int r = 1; r < 9; ++r) EXPECT_EQ(0, std::memcmp(&d[r * 13], &d[0], 13 * 4)) << r;
}

TEST(ResizeAudit, ThreadSplitOfOffsetClippedRegion) {
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
    ASSERT_GE(e[0] - b[0], 16);
    ASSERT_GE(e[1] - b[1], 16);
    ASSERT_GE(e[2] - b[2], 16);
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

}  // namespace
