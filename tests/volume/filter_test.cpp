// Volume filter: checks, scratch size, divisor modes and their rounding,
// saturation and the wrap of the vector store, path choice at every
// boundary, the convolution's flip and anchor on every axis, and agreement
// with a slow reference under each path's rules.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <random>
#include <vector>

#include "lumr.h"
#include "ref/filter_ref.h"

namespace {

// A source volume with `pad` samples of room on every side, reached through
// plane pointers that may be indexed below 0.
struct Source {
    Source(Lum32s w, Lum32s h, Lum32s d, Lum32s pad, Lum32s extraRow = 0)
        : pad(pad), stepN(w + 2 * pad + extraRow), data(size_t(stepN) * (h + 2 * pad) * (d + 2 * pad)),
          planes(d + 2 * pad) {
        for (Lum32s z = 0; z < d + 2 * pad; ++z)
            planes[z] = data.data() + (size_t(z) * (h + 2 * pad) + pad) * stepN + pad;
    }
    Lum16s& at(Lum32s x, Lum32s y, Lum32s z) {
        return const_cast<Lum16s*>(planes[z + pad])[ptrdiff_t(y) * stepN + x];
    }
    const Lum16s* const* planes0() const { return planes.data() + pad; }
    void fillRandom(std::mt19937& rng, Lum32s lo, Lum32s hi) {
        std::uniform_int_distribution<Lum32s> u(lo, hi);
        for (Lum16s& s : data) s = static_cast<Lum16s>(u(rng));
    }
    Lum32s pad, stepN;
    std::vector<Lum16s> data;
    std::vector<const Lum16s*> planes;
};

// A destination with a canary-filled margin after each row.
struct Dest {
    static constexpr Lum16s kCanary = 0x5A5A;
    Dest(Lum32s w, Lum32s h, Lum32s d)
        : w(w), h(h), d(d), stepN(w + 3), data(size_t(stepN) * h * d, kCanary), planes(d) {
        for (Lum32s z = 0; z < d; ++z) planes[z] = data.data() + size_t(z) * h * stepN;
    }
    // The samples, x fastest; the margins must still hold the canary.
    std::vector<Lum16s> dense() const {
        std::vector<Lum16s> out;
        for (Lum32s z = 0; z < d; ++z)
            for (Lum32s y = 0; y < h; ++y)
                for (Lum32s x = 0; x < stepN; ++x) {
                    const Lum16s v = planes[z][y * stepN + x];
                    if (x < w) {
                        out.push_back(v);
                    } else {
                        EXPECT_EQ(v, kCanary) << "margin written at " << x << "," << y << "," << z;
                    }
                }
        return out;
    }
    Lum32s w, h, d, stepN;
    std::vector<Lum16s> data;
    std::vector<Lum16s*> planes;
};

struct Kernel {
    Kernel(Lum32s kw, Lum32s kh, Lum32s kd) : kw(kw), kh(kh), kd(kd), e(size_t(kw) * kh * kd, 0) {}
    Lum32s& at(Lum32s i, Lum32s j, Lum32s k) { return e[(size_t(k) * kh + j) * kw + i]; }
    Lum32s kw, kh, kd;
    std::vector<Lum32s> e;
};

// Large elements of both signs that add up to `sum` exactly, all inside the
// table range; `fixed` (if any) is then set and the others rebalanced.
Kernel mixedKernel(Lum32s kw, Lum32s kh, Lum32s kd, int64_t sum, int fixed = -1, Lum32s value = 0) {
    Kernel k(kw, kh, kd);
    for (size_t t = 0; t < k.e.size(); ++t) k.e[t] = t % 2 ? -30000 : 30000;
    if (fixed >= 0) k.e[fixed] = value;
    int64_t delta = sum;
    for (Lum32s v : k.e) delta -= v;
    for (size_t t = 0; t < k.e.size() && delta != 0; ++t) {
        if (static_cast<int>(t) == fixed) continue;
        const int64_t step =
            std::clamp<int64_t>(delta, -32767 - int64_t{k.e[t]}, 32766 - int64_t{k.e[t]});
        k.e[t] += static_cast<Lum32s>(step);
        delta -= step;
    }
    EXPECT_EQ(delta, 0) << "kernel cannot reach the sum";
    return k;
}

// Runs the filter with exactly the reported scratch, one byte in so that its
// start needs rounding; the run must succeed.  Returns the samples.
std::vector<Lum16s> runFilter(const Source& s, Dest& d, const Kernel& k, LumPoint3D anchor, Lum32s divisor,
                              Lum32s srcStepExtraByte = 0) {
    const LumVolume dv{d.w, d.h, d.d}, kv{k.kw, k.kh, k.kd};
    Lum32s size = 0;
    EXPECT_EQ(lumrFilterGetBufSize(&dv, &kv, 1, &size), lumStatusOk);
    std::vector<Lum8u> buf(static_cast<size_t>(size) + 1);
    EXPECT_EQ(lumrFilter_16s_C1PV(s.planes0(), s.stepN * 2 + srcStepExtraByte, d.planes.data(), d.stepN * 2,
                                  &dv, k.e.data(), &kv, &anchor, divisor, buf.data() + 1),
              lumStatusOk);
    return d.dense();
}

std::vector<Lum16s> reference(const Source& s, const Dest& d, const Kernel& k, LumPoint3D a,
                              Lum32s divisor, RefFilterRules rules) {
    const RefFilterCase c{s.planes0(), s.stepN, d.w, d.h, d.d, k.e.data(), k.kw,
                          k.kh,        k.kd,    a.x, a.y, a.z, divisor};
    return refFilter(c, rules);
}

// The vector paths take a width of 16 or more, elements in -32767 .. 32766,
// a plain sum of at most 98301 and, outside the two cubes, extents of 3 up.
bool takesVectorPath(const Kernel& k, Lum32s width) {
    int64_t sum = 0;
    bool fits = true;
    for (Lum32s v : k.e) sum += v, fits = fits && v >= -32767 && v <= 32766;
    const bool cube =
        (k.kw == 3 && k.kh == 3 && k.kd == 3) || (k.kw == 5 && k.kh == 5 && k.kd == 5);
    return width >= 16 && fits && sum <= 98301 && (cube || (k.kw >= 3 && k.kh >= 3 && k.kd >= 3));
}

TEST(FilterBufSize, FormulaChecksAndWideRows) {
    LumVolume dv{16, 4, 4}, kv{3, 3, 3};
    Lum32s size = -1;
    // Checks in order: pointer, sizes, channels.
    LumVolume bad{0, 4, 4};
    EXPECT_EQ(lumrFilterGetBufSize(&bad, &kv, 2, nullptr), lumStatusNullPtr);
    EXPECT_EQ(lumrFilterGetBufSize(&bad, &kv, 2, &size), lumStatusSize);
    EXPECT_EQ(lumrFilterGetBufSize(&dv, &bad, 2, &size), lumStatusSize);
    EXPECT_EQ(lumrFilterGetBufSize(&dv, &kv, 2, &size), lumStatusBadChannels);
    EXPECT_EQ(lumrFilterGetBufSize(&dv, &kv, 0, &size), lumStatusBadChannels);
    EXPECT_EQ(size, -1);

    // Where the classic formula covers the vector paths it is the answer:
    // 2 * (((W + 15) rounded down to 64) + 2 * tables).
    struct Row {
        Lum32s w, kw, kh, kd, bytes;
    };
    for (const Row r : {Row{16, 3, 3, 3, 1152}, Row{100, 3, 3, 3, 1280}, Row{16, 5, 5, 5, 4800},
                        Row{256, 3, 5, 7, 4992}}) {
        dv.width = r.w, kv = LumVolume{r.kw, r.kh, r.kd};
        ASSERT_EQ(lumrFilterGetBufSize(&dv, &kv, 1, &size), lumStatusOk);
        EXPECT_EQ(size, r.bytes) << r.w << " " << r.kw << "x" << r.kh << "x" << r.kd;
    }
    // Wide rows need a 32-bit accumulator per sample, more than the formula's
    // 3072 bytes at width 1000.
    dv.width = 1000, kv = LumVolume{3, 3, 3};
    ASSERT_EQ(lumrFilterGetBufSize(&dv, &kv, 1, &size), lumStatusOk);
    EXPECT_GE(size, 15 + 288 + 4 * 1000);
    // A size beyond the 32-bit range is refused.
    kv = LumVolume{4096, 4096, 4096};
    EXPECT_EQ(lumrFilterGetBufSize(&dv, &kv, 1, &size), lumStatusSize);
}

TEST(Filter, ChecksInOrderAndWritesNothingOnFailure) {
    Source s(16, 2, 2, 3);
    Dest d(16, 2, 2);
    Kernel k(3, 3, 3);
    k.at(1, 1, 1) = 1;
    const LumVolume dv{16, 2, 2}, kv{3, 3, 3}, zeroDepth{16, 2, 0}, zeroKernel{3, 0, 3};
    const LumPoint3D a{1, 1, 1};
    std::vector<Lum8u> buf(8192, 0xEE);
    auto call = [&](const Lum16s* const* sp, Lum16s* const* dp, const LumVolume* v,
                    const Lum32s* ke, const LumVolume* kvp, const LumPoint3D* ap, Lum32s div,
                    Lum8u* b) {
        return lumrFilter_16s_C1PV(sp, s.stepN * 2, dp, d.stepN * 2, v, ke, kvp, ap, div, b);
    };
    const auto* sp = s.planes0();
    auto* dp = d.planes.data();
    // Each pointer, with a size and the divisor broken as well.
    EXPECT_EQ(call(nullptr, dp, &zeroDepth, k.e.data(), &kv, &a, 0, buf.data()), lumStatusNullPtr);
    EXPECT_EQ(call(sp, nullptr, &zeroDepth, k.e.data(), &kv, &a, 0, buf.data()), lumStatusNullPtr);
    EXPECT_EQ(call(sp, dp, &zeroDepth, nullptr, &kv, &a, 0, buf.data()), lumStatusNullPtr);
    EXPECT_EQ(call(sp, dp, &zeroDepth, k.e.data(), &kv, &a, 0, nullptr), lumStatusNullPtr);
    EXPECT_EQ(call(sp, dp, nullptr, k.e.data(), &kv, &a, 1, buf.data()), lumStatusNullPtr);
    EXPECT_EQ(call(sp, dp, &dv, k.e.data(), nullptr, &a, 1, buf.data()), lumStatusNullPtr);
    EXPECT_EQ(call(sp, dp, &dv, k.e.data(), &kv, nullptr, 1, buf.data()), lumStatusNullPtr);
    // Sizes before the divisor.
    EXPECT_EQ(call(sp, dp, &zeroDepth, k.e.data(), &kv, &a, 0, buf.data()), lumStatusSize);
    EXPECT_EQ(call(sp, dp, &dv, k.e.data(), &zeroKernel, &a, 0, buf.data()), lumStatusSize);
    EXPECT_EQ(call(sp, dp, &dv, k.e.data(), &kv, &a, 0, buf.data()), lumStatusSize);
    EXPECT_EQ(call(sp, dp, &dv, k.e.data(), &kv, &a, INT_MIN, buf.data()), lumStatusSize);
    // Neither the destination nor the scratch was touched.
    EXPECT_TRUE(
        std::all_of(d.data.begin(), d.data.end(), [](Lum16s v) { return v == Dest::kCanary; }));
    EXPECT_TRUE(std::all_of(buf.begin(), buf.end(), [](Lum8u v) { return v == 0xEE; }));
    // The neighbours of the refused divisor work.
    EXPECT_EQ(call(sp, dp, &dv, k.e.data(), &kv, &a, INT_MIN + 1, buf.data()), lumStatusOk);
    EXPECT_EQ(call(sp, dp, &dv, k.e.data(), &kv, &a, 1 << 30, buf.data()), lumStatusOk);
}

// The centre tap copies the source, so each output is the sum it was given.
TEST(Filter, DivisorModesRoundHalfToEvenOnBothPaths) {
    const std::vector<Lum16s> sums = {1, 3, 5, 7, -1, -3, -5, -7, 2, 6, 10, -2, -6, -10, 0, 25};
    struct Mode {
        Lum32s divisor;
        std::vector<Lum16s> want;
    };
    const std::vector<Mode> modes = {
        {1, sums},
        {2, {0, 2, 2, 4, 0, -2, -2, -4, 1, 3, 5, -1, -3, -5, 0, 12}},
        {4, {0, 1, 1, 2, 0, -1, -1, -2, 0, 2, 2, 0, -2, -2, 0, 6}},
        {-2, {0, -2, -2, -4, 0, 2, 2, 4, -1, -3, -5, 1, 3, 5, 0, -12}},
        {10, {0, 0, 0, 1, 0, 0, 0, -1, 0, 1, 1, 0, -1, -1, 0, 2}},
        {3, {0, 1, 2, 2, 0, -1, -2, -2, 1, 2, 3, -1, -2, -3, 0, 8}},
    };
    Kernel k(3, 3, 3);
    k.at(1, 1, 1) = 1;
    for (Lum32s width : {16, 15}) {  // vector, then scalar
        Source s(width, 1, 1, 2);
        for (Lum32s x = 0; x < width; ++x) s.at(x, 0, 0) = sums[x];
        for (const Mode& m : modes) {
            Dest d(width, 1, 1);
            const std::vector<Lum16s> r = runFilter(s, d, k, LumPoint3D{1, 1, 1}, m.divisor);
            EXPECT_EQ(r, std::vector<Lum16s>(m.want.begin(), m.want.begin() + width))
                << "divisor " << m.divisor << " width " << width;
        }
    }
}

// One tap times one sample value, on the vector path (width 16) and on the
// scalar path (width 15).
TEST(Filter, SingleTapEdges) {
    struct Case {
        const char* what;
        Lum32s tap;
        Lum16s sample;
        Lum32s divisor;
        Lum16s vector, scalar;
    };
    const Case cases[] = {
        // 3 x 32767 = 98301 lands exactly on the top, -98304 on the bottom.
        {"top", 3, 32767, 3, 32767, 32767},
        {"bottom", 3, -32768, 3, -32768, -32768},
        {"below top", 3, 32766, 3, 32766, 32766},
        // 30000500 / 1000: exact division gives the tie 30000.5 and so 30000;
        // the reciprocal 0.001f lifts it just above the half.
        {"reciprocal", 14500, 2069, 1000, 30001, 30000},
        // 16777217 passes through single precision as 16777216 on both
        // paths, so 25165824 gives 1.5 and rounds to 2.
        {"large divisor", 1536, 16384, 16777217, 2, 2},
        // An element beyond 16 bits means the scalar path, whose products
        // wrap at 32 bits: 70000 x 32767 becomes -2001277296.
        {"wrapped product", 70000, 32767, 1, -32768, -32768},
        {"wrapped product divided", 70000, 32767, 100000, -20013, -20013},
    };
    for (const Case& c : cases) {
        Kernel k(3, 3, 3);
        k.at(1, 1, 1) = c.tap;
        for (Lum32s width : {16, 15}) {
            Source s(width, 1, 1, 2);
            std::fill(s.data.begin(), s.data.end(), c.sample);
            Dest d(width, 1, 1);
            EXPECT_EQ(runFilter(s, d, k, LumPoint3D{1, 1, 1}, c.divisor),
                      std::vector<Lum16s>(width, width >= 16 ? c.vector : c.scalar))
                << c.what << " width " << width;
        }
    }
}

// With large elements of both signs and full-range samples the vector
// accumulator wraps where the scalar sum does not, so the output tells the
// two paths apart.  Each case must match the reference of the path it
// should take, and that reference must differ from the other path's.
TEST(Filter, PathChoiceAtEveryBoundary) {
    struct Case {
        const char* what;
        Kernel k;
        Lum32s width;
        bool vector;
    };
    const std::vector<Case> cases = {
        {"3x3x3 sum 98301", mixedKernel(3, 3, 3, 98301), 16, true},
        {"3x3x3 sum 98302", mixedKernel(3, 3, 3, 98302), 16, false},
        {"3x3x3 width 15", mixedKernel(3, 3, 3, 100), 15, false},
        {"3x3x3 width 16", mixedKernel(3, 3, 3, 100), 16, true},
        {"3x3x3 element 32767", mixedKernel(3, 3, 3, 100, 13, 32767), 16, false},
        {"3x3x3 element 32766", mixedKernel(3, 3, 3, 100, 13, 32766), 16, true},
        {"3x3x3 element -32768", mixedKernel(3, 3, 3, 100, 26, -32768), 16, false},
        {"3x3x3 element -32767", mixedKernel(3, 3, 3, 100, 26, -32767), 16, true},
        {"5x5x5 sum 98301", mixedKernel(5, 5, 5, 98301), 16, true},
        {"5x5x5 sum 98302", mixedKernel(5, 5, 5, 98302), 16, false},
        {"5x5x5 element 32767", mixedKernel(5, 5, 5, 0, 0, 32767), 16, false},
        {"3x3x5 general", mixedKernel(3, 3, 5, 98301), 16, true},
        {"3x3x5 general sum 98302", mixedKernel(3, 3, 5, 98302), 16, false},
        {"7x4x3 general", mixedKernel(7, 4, 3, -5), 21, true},
        {"3x2x3 general", mixedKernel(3, 2, 3, 5), 16, false},
        {"2x3x3 general", mixedKernel(2, 3, 3, 5), 16, false},
        {"3x3x2 general", mixedKernel(3, 3, 2, 5), 16, false},
        {"3x3x5 width 15", mixedKernel(3, 3, 5, 5), 15, false},
    };
    std::mt19937 rng(12);
    for (const Case& c : cases) {
        ASSERT_EQ(takesVectorPath(c.k, c.width), c.vector) << c.what;
        Source s(c.width, 3, 2, 8);
        s.fillRandom(rng, -32768, 32767);
        Dest d(c.width, 3, 2);
        const LumPoint3D a{c.k.kw / 2, c.k.kh / 2, c.k.kd / 2};
        const std::vector<Lum16s> r = runFilter(s, d, c.k, a, 1);
        const auto vec = reference(s, d, c.k, a, 1, RefFilterRules::Vector);
        const auto sca = reference(s, d, c.k, a, 1, RefFilterRules::Scalar);
        ASSERT_NE(vec, sca) << c.what << ": the data do not tell the paths apart";
        EXPECT_EQ(r, c.vector ? vec : sca) << c.what;
    }
}

// One element set, in kernels of the cubes and of the general branch (even
// and odd widths), meets the sample at position + anchor - (i, j, k).  Width
// 15 runs the scalar paths; 27 the vector ones, ending in a step of sixteen,
// one of eight and three single samples.
TEST(Filter, ConvolutionFlipsKernelAndHonoursAnchor) {
    struct Case {
        LumVolume kv;
        Lum32s i, j, k;
        LumPoint3D anchor;
    };
    const Case cases[] = {
        {{3, 3, 3}, 0, 0, 0, {0, 0, 0}},  {{3, 3, 3}, 2, 0, 0, {0, 0, 0}},
        {{3, 3, 3}, 0, 2, 0, {0, 0, 0}},  {{3, 3, 3}, 0, 0, 2, {0, 0, 0}},
        {{3, 3, 3}, 2, 1, 2, {0, 0, 0}},  {{3, 3, 3}, 0, 0, 0, {2, 1, 2}},
        {{3, 3, 3}, 1, 2, 0, {-1, 3, 1}}, {{5, 5, 5}, 4, 1, 3, {2, 2, 2}},
        {{4, 3, 5}, 3, 0, 4, {1, 2, 0}},  {{4, 3, 5}, 0, 2, 1, {-2, 1, 3}},
        {{7, 3, 3}, 6, 1, 0, {3, 1, 1}},  {{7, 3, 3}, 0, 0, 2, {0, 0, 2}},
        {{3, 4, 3}, 1, 3, 2, {2, -1, 1}}, {{5, 5, 3}, 4, 4, 0, {4, 0, 2}},
    };
    std::mt19937 rng(3);
    for (Lum32s width : {15, 27}) {
        Source s(width, 3, 2, 8);
        s.fillRandom(rng, -1000, 1000);
        for (const Case& c : cases) {
            Kernel k(c.kv.width, c.kv.height, c.kv.depth);
            k.at(c.i, c.j, c.k) = 3;
            Dest d(width, 3, 2);
            const std::vector<Lum16s> r = runFilter(s, d, k, c.anchor, 3);
            std::vector<Lum16s> want;
            for (Lum32s z = 0; z < 2; ++z)
                for (Lum32s y = 0; y < 3; ++y)
                    for (Lum32s x = 0; x < width; ++x)
                        want.push_back(
                            s.at(x + c.anchor.x - c.i, y + c.anchor.y - c.j, z + c.anchor.z - c.k));
            EXPECT_EQ(r, want) << c.kv.width << "x" << c.kv.height << "x" << c.kv.depth << " tap "
                                   << c.i << c.j << c.k << " width " << width;
        }
    }
}

// Three taps of a 3x3x3 kernel (sum 4, all inside the table range, so the
// vector path runs at width 16) meet samples 32767, -32768 and 30000:
//   a = 32766 * 32767 + (-32767) * (-32768) + 5 * 30000 = 2147469778.
// Divisor 65536 is the shift mode with sh = 16, half = 32768.
// Vector store, 32-bit: (a >>> 16) & 1 = 32767 & 1 = 1, and
//   a + 32767 + 1 = 2147502546 wraps to -2147464750, >> 16 = -32768.
// Scalar path, 64-bit sum: t = 32767, u = (51666 + 32768 + 1 - 1) >> 16 = 1,
//   t + u = 32768, clamped to 32767.
TEST(Filter, ShiftRoundingWrapsInTheVectorStoreOnly) {
    Kernel k(3, 3, 3);
    k.e[0] = 32766, k.e[1] = -32767, k.e[2] = 5;  // i = 0, 1, 2 of row 0, plane 0
    for (Lum32s width : {16, 15}) {
        Source s(width, 1, 1, 3);
        // Anchor (2, 0, 0): element i meets src(x + 2 - i, y, z).
        for (Lum32s x = -3; x < width + 3; ++x) {
            const Lum32s r = ((x % 3) + 3) % 3;
            s.at(x, 0, 0) = r == 2 ? 32767 : r == 1 ? -32768 : 30000;
        }
        Dest d(width, 1, 1);
        const std::vector<Lum16s> o = runFilter(s, d, k, LumPoint3D{2, 0, 0}, 65536);
        // Only outputs whose taps see 32767, -32768, 30000 in that order have
        // the worked sum: x + 2 = 2 (mod 3).
        for (Lum32s x = 0; x < width; x += 3)
            EXPECT_EQ(o[x], width >= 16 ? -32768 : 32767) << "width " << width << " x " << x;
    }
}

// Kernels of every shape class, anchors inside and outside the kernel, all
// three divisor modes, widths that end in each kind of step (sixteen, eight,
// single samples) and a wide one whose accumulator row outgrows the classic
// formula (the scratch is exactly the reported size), and an odd byte step,
// against the reference of the expected path.
TEST(Filter, MatchesReferenceOnRandomVolumes) {
    struct Shape {
        Lum32s kw, kh, kd;
    };
    const std::vector<Shape> shapes = {{3, 3, 3}, {5, 5, 5}, {3, 5, 7}, {4, 3, 3}, {7, 4, 3},
                                       {6, 3, 4}, {1, 1, 1}, {2, 3, 3}, {3, 1, 3}, {5, 5, 3}};
    const std::vector<Lum32s> divisors = {1, 8, 7, -3, 1000, 16777217, 1 << 30};
    std::mt19937 rng(2024);
    Lum32s vectorCases = 0, scalarCases = 0;
    for (const Shape& sh : shapes) {
        for (Lum32s width : {15, 16, 29, 37, 1203}) {
            Source s(width, 4, 3, 8, 5);
            s.fillRandom(rng, -32768, 32767);
            Kernel k(sh.kw, sh.kh, sh.kd);
            std::uniform_int_distribution<Lum32s> e(-400, 700);
            for (Lum32s& v : k.e) v = e(rng);
            std::uniform_int_distribution<Lum32s> off(-1, 1);
            const LumPoint3D a{sh.kw / 2 + off(rng), sh.kh / 2 + off(rng), sh.kd / 2 + off(rng)};
            const bool vector = takesVectorPath(k, width);
            (vector ? vectorCases : scalarCases) += 1;
            for (Lum32s divisor : divisors) {
                Dest d(width, 4, 3);
                // The odd extra byte of the step is dropped.
                const std::vector<Lum16s> r = runFilter(s, d, k, a, divisor, 1);
                const auto want = reference(
                    s, d, k, a, divisor, vector ? RefFilterRules::Vector : RefFilterRules::Scalar);
                EXPECT_EQ(r, want) << sh.kw << "x" << sh.kh << "x" << sh.kd << " width " << width
                                   << " divisor " << divisor;
            }
        }
    }
    EXPECT_GT(vectorCases, 10);
    EXPECT_GT(scalarCases, 10);
}

}  // namespace
