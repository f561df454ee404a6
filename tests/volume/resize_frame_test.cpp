// The resize frame: buffer size, checks and their order, clipping with its
// rounding constants, storage forms, negative steps and the thread split.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
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

TEST(ResizeFrame, BufSizeStatusesInOrder) {
    const LumBox good{0, 0, 0, 4, 4, 4}, badOrigin{-1, 0, 0, 4, 4, 4}, badExtent{0, 0, 0, 4, 0, 4};
    Lum32s size = 12345;
    EXPECT_EQ(lumrResizeGetBufSize(&badOrigin, &good, 7, 3, nullptr), lumStatusNullPtr);
    EXPECT_EQ(lumrResizeGetBufSize(&badOrigin, &badExtent, 7, 3, &size), lumStatusSize);
    EXPECT_EQ(lumrResizeGetBufSize(&good, &badExtent, 7, 3, &size), lumStatusSize);
    EXPECT_EQ(lumrResizeGetBufSize(&good, &good, 2, 3, &size), lumStatusBadChannels);
    for (int code : {0, 3, 8, -1})
        EXPECT_EQ(lumrResizeGetBufSize(&good, &good, 1, code, &size), lumStatusBadInterpolation);
    EXPECT_EQ(size, 12345);  // untouched by every failure
    for (int code : {1, 2, 4, 5, 6, 7}) {
        size = 0;
        EXPECT_EQ(lumrResizeGetBufSize(&good, &good, 1, code, &size), lumStatusOk);
        EXPECT_GT(size, 0);
    }
}

TEST(ResizeFrame, BufSizeExactFigures) {
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
    for (const Row& r : rows) {
        Lum32s s = 0;
        ASSERT_EQ(lumrResizeGetBufSize(&src, &r.dst, 1, 1, &s), lumStatusOk);
        EXPECT_EQ(s, r.nearest);
        ASSERT_EQ(lumrResizeGetBufSize(&src, &r.dst, 1, 2, &s), lumStatusOk);
        EXPECT_EQ(s, r.linear);
        for (int code : {4, 5, 6, 7}) {
            ASSERT_EQ(lumrResizeGetBufSize(&src, &r.dst, 1, code, &s), lumStatusOk);
            EXPECT_EQ(s, r.cubic) << code;
        }
    }
    ThreadCount three(3);  // every entry point gets the thread count's multiple
    Lum32s s = 0;
    ASSERT_EQ(lumrResizeGetBufSize(&src, &rows[2].dst, 1, 2, &s), lumStatusOk);
    EXPECT_EQ(s, 137472);
    ASSERT_EQ(lumrResizeGetBufSize(&src, &rows[3].dst, 1, 4, &s), lumStatusOk);
    EXPECT_EQ(s, -455637888);
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
    using C8 = const Lum8u*;
    using C16 = const Lum16u*;
    using C32 = const Lum32f*;
    const Lum32s st = 64, ps = 64 * 8;
    switch (which) {
        case 0:
            return lumrResize_8u_C1V(C8(c.src), c.vol, st, ps, c.sb, (Lum8u*)c.dst, st, ps, c.db,
                                     c.f[0], c.f[1], c.f[2], c.s[0], c.s[1], c.s[2], c.code, c.buf);
        case 1:
            return lumrResize_16u_C1V(C16(c.src), c.vol, st, ps, c.sb, (Lum16u*)c.dst, st, ps,
                                      c.db, c.f[0], c.f[1], c.f[2], c.s[0], c.s[1], c.s[2],
                                      c.code, c.buf);
        case 2:
            return lumrResize_32f_C1V(C32(c.src), c.vol, st, ps, c.sb, (Lum32f*)c.dst, st, ps,
                                      c.db, c.f[0], c.f[1], c.f[2], c.s[0], c.s[1], c.s[2],
                                      c.code, c.buf);
        case 3:
            return lumrResize_8u_C1PV((const C8*)c.src, c.vol, st, c.sb, (Lum8u* const*)c.dst, st,
                                      c.db, c.f[0], c.f[1], c.f[2], c.s[0], c.s[1], c.s[2],
                                      c.code, c.buf);
        case 4:
            return lumrResize_16u_C1PV((const C16*)c.src, c.vol, st, c.sb, (Lum16u* const*)c.dst,
                                       st, c.db, c.f[0], c.f[1], c.f[2], c.s[0], c.s[1], c.s[2],
                                       c.code, c.buf);
        default:
            return lumrResize_32f_C1PV((const C32*)c.src, c.vol, st, c.sb, (Lum32f* const*)c.dst,
                                       st, c.db, c.f[0], c.f[1], c.f[2], c.s[0], c.s[1], c.s[2],
                                       c.code, c.buf);
    }
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

// Destination x range and values of a 4-sample row under factor 1 and a
// given x shift, code 1.
std::vector<float> nearestRow(double shift, int* written) {
    ResizeCase c{{4, 1, 1}, {0, 0, 0, 4, 1, 1}, {0, 0, 0, 10, 1, 1},
                 {1, 1, 1}, {shift, 0, 0}, {10, 1, 1}};
    const std::vector<float> src = {10, 11, 12, 13};
    std::vector<float> dst(10, -1.0f);
    EXPECT_EQ(refRunResize(c, src, dst, 1, ResizeForm::V), lumStatusOk);
    *written = 0;
    for (float v : dst) *written += v != -1.0f;
    return dst;
}

TEST(ResizeFrame, ClippingAndRoundingConstants) {
    int n = 0;
    // Shift 0.5: the mapped start 0.5 rounds down with +0.4999999999 (sample 0
    // is kept) and the stop 4.5 rounds up with +0.5000000001 (sample 4 kept).
    // Each centre X + 0.5 maps exactly onto a source boundary, and the 1e-10
    // of the nearest coordinate sends it to the lower sample.
    std::vector<float> d = nearestRow(0.5, &n);
    EXPECT_EQ(n, 5);
    EXPECT_EQ(d[0], 10);
    EXPECT_EQ(d[1], 10);
    EXPECT_EQ(d[2], 11);
    EXPECT_EQ(d[4], 13);
    // A stop a hair below 4.5 still keeps sample 4 thanks to the 1e-10 margin.
    nearestRow(0.49999999995, &n);
    EXPECT_EQ(n, 5);
    nearestRow(0.0, &n);
    EXPECT_EQ(n, 4);

    // A source box reaching past the volume is clipped silently; the
    // destination box limits what is written.
    ResizeCase c{{6, 5, 4}, {2, 1, 1, 50, 50, 50}, {1, 0, 2, 20, 20, 3}, {2, 2, 2},
                 {0, 0, 0}, {24, 12, 9}};
    const auto src = refRandomVolume<float>(c.vol, 1);
    std::vector<float> dst(24 * 12 * 9, -1000.0f);
    ASSERT_EQ(refRunResize(c, src, dst, 2, ResizeForm::V), lumStatusOk);
    int b[3], e[3];
    ASSERT_TRUE(refResizeRegion(c, b, e));
    EXPECT_EQ(b[0], 4);
    EXPECT_EQ(e[0], 12);  // source x 2..5 -> 4..12
    EXPECT_EQ(b[1], 2);
    EXPECT_EQ(e[1], 10);
    EXPECT_EQ(b[2], 2);
    EXPECT_EQ(e[2], 5);   // cut by the destination box
    for (int z = 0; z < 9; ++z)
        for (int y = 0; y < 12; ++y)
            for (int x = 0; x < 24; ++x) {
                const bool in = x >= b[0] && x < e[0] && y >= b[1] && y < e[1] && z >= b[2] &&
                                z < e[2];
                EXPECT_EQ(dst[(z * 12 + y) * 24 + x] != -1000.0f, in) << x << ' ' << y << ' ' << z;
            }
}

template <class T>
void expectIdentity(int code) {
    ResizeCase c{{9, 7, 5}, {0, 0, 0, 9, 7, 5}, {0, 0, 0, 9, 7, 5}, {1, 1, 1}, {0, 0, 0}, {9, 7, 5}};
    const auto src = refRandomVolume<T>(c.vol, 3);
    for (ResizeForm f : {ResizeForm::V, ResizeForm::PV}) {
        std::vector<T> dst(src.size());
        ASSERT_EQ(refRunResize(c, src, dst, code, f), lumStatusOk);
        EXPECT_TRUE(sameBits(dst, src)) << "code " << code << " size " << sizeof(T);
    }
}

TEST(ResizeFrame, IdentityMappingCopiesEveryType) {
    for (int code : {1, 2, 4, 6}) {
        expectIdentity<Lum8u>(code);
        expectIdentity<Lum16u>(code);
        expectIdentity<Lum32f>(code);
    }
}

// A spread of cases: enlargements, reductions, shifts, clipped and offset
// boxes, extents of 1 and 2.
std::vector<ResizeCase> someCases() {
    std::vector<ResizeCase> out;
    const double factors[][3] = {{2, 2, 2},   {0.5, 0.5, 0.5}, {1.3, 0.7, 1.0},
                                 {3.7, 1, 0.37}, {1, 1, 2.5},   {0.9, 2.2, 1.7}};
    const double shifts[][3] = {{0, 0, 0}, {0.25, -1.3, 2.5}, {-3, 0.5, -0.75}};
    const LumVolume vols[] = {{7, 6, 5}, {1, 4, 3}, {5, 1, 2}, {2, 3, 1}, {12, 9, 6}};
    int k = 0;
    for (const auto& v : vols)
        for (const auto& f : factors)
            for (const auto& s : shifts) {
                ResizeCase c{};
                c.vol = v;
                c.srcBox = (k % 3 == 0) ? LumBox{0, 0, 0, v.width, v.height, v.depth}
                                        : LumBox{v.width / 3, v.height / 4, 0, v.width, 2 * v.height, v.depth};
                for (int a = 0; a < 3; ++a) c.factor[a] = f[a], c.shift[a] = s[a];
                const int w = int(v.width * f[0] + 8), h = int(v.height * f[1] + 8),
                          d = int(v.depth * f[2] + 8);
                c.dstBox = (k % 2 == 0) ? LumBox{0, 0, 0, w, h, d} : LumBox{1, 2, 1, w - 3, h - 4, d - 2};
                c.dstVol = {w, h, d};
                out.push_back(c);
                ++k;
            }
    return out;
}

template <class T>
void expectFormsAgree(int code) {
    unsigned seed = 10;
    for (const ResizeCase& c : someCases()) {
        const auto src = refRandomVolume<T>(c.vol, ++seed);
        const size_t n = size_t(c.dstVol.width) * c.dstVol.height * c.dstVol.depth;
        std::vector<T> v(n, T(77)), pv(n, T(77)), neg(n, T(77));
        const LumStatus sv = refRunResize(c, src, v, code, ResizeForm::V, seed % 16);
        ASSERT_EQ(refRunResize(c, src, pv, code, ResizeForm::PV), sv);
        ASSERT_EQ(refRunResize(c, src, neg, code, ResizeForm::VNegative), sv);
        EXPECT_TRUE(sameBits(v, pv)) << "code " << code << " case " << seed;
        // The cubic rim reads its class d rows differently with a negative row
        // step; that is checked against the model with the cubic kernels.
        if (code <= 2) {
            EXPECT_TRUE(sameBits(v, neg)) << "code " << code << " case " << seed;
        }
    }
}

TEST(ResizeFrame, PlanePointersAndNegativeStepsMatchContiguous) {
    for (int code : {1, 2, 4, 5, 6, 7}) {
        expectFormsAgree<Lum8u>(code);
        expectFormsAgree<Lum16u>(code);
        expectFormsAgree<Lum32f>(code);
    }
}

TEST(ResizeFrame, ThreadCountDoesNotChangeFloatResult) {
    // 16 and more in every destination extent, so the team splits z.
    ResizeCase c{{20, 18, 17}, {0, 0, 0, 20, 18, 17}, {0, 0, 0, 40, 23, 37},
                 {1.9, 1.2, 2.1}, {0.3, -0.2, 0.1}, {40, 23, 37}};
    const auto src = refRandomVolume<float>(c.vol, 5);
    for (int code : {1, 2, 4, 5, 6, 7}) {
        std::vector<float> one(40 * 23 * 37, 0.0f);
        {
            ThreadCount t(1);
            ASSERT_EQ(refRunResize(c, src, one, code, ResizeForm::V), lumStatusOk);
        }
        // 17 and 40 threads: a slice of 2 or 0 planes, the last thread taking
        // the remainder or everything.
        for (int threads : {2, 3, 5, 17, 40}) {
            ThreadCount t(threads);
            std::vector<float> many(one.size(), 0.0f);
            ASSERT_EQ(refRunResize(c, src, many, code, ResizeForm::V, 4), lumStatusOk);
            EXPECT_TRUE(sameBits(one, many)) << "code " << code << " threads " << threads;
        }
    }
}

}  // namespace
