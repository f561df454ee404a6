// The frame: version record, core thread count, allocation wrappers, small
// vector operations, the sort and the two parallel patterns.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "frame/own.h"
#include "frame/parallel.h"

namespace {

struct ThreadCount {  // restores the thread count after a test
    explicit ThreadCount(Lum32s n) { lumSetNumThreads(n); }
    ~ThreadCount() { lumSetNumThreads(saved); }
    Lum32s saved = lumGetNumThreads();
};

TEST(Frame, VersionRecordIsConstant) {
    const LumLibVersion* v = lumrGetLibVersion();
    ASSERT_EQ(v, lumrGetLibVersion());
    EXPECT_EQ(v->versionMajor, 6);
    EXPECT_EQ(v->versionMinor, 1);
    EXPECT_EQ(v->buildMajor, 137);
    EXPECT_EQ(v->buildNumber, 667);
    EXPECT_EQ(0, std::memcmp(v->cpuTag, "e9\0\0", 4));
    EXPECT_STREQ(v->fileName, "lumre9-6.1.dll");
    EXPECT_STREQ(v->versionText, "6.1 build 137.20");
    EXPECT_STREQ(v->dateText, "Jun 10 2009");
}

TEST(Frame, MemoryThreadCountAndStatuses) {
    EXPECT_EQ(lumMalloc(0), nullptr);
    EXPECT_EQ(lumMalloc(-5), nullptr);
    void* p = lumMalloc(100);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 64, 0u);
    lumFree(p);
    lumFree(nullptr);
    EXPECT_EQ(ownAlloc32(0), nullptr);
    EXPECT_EQ(ownAlloc64(-1), nullptr);
    const Lum32s before = lumGetNumThreads();
    EXPECT_GE(before, 1);
    EXPECT_EQ(lumSetNumThreads(0), lumStatusSize);
    EXPECT_EQ(lumGetNumThreads(), before);
    {
        ThreadCount three(3);
        EXPECT_EQ(ownGetNumThreads(), 3);
    }
    EXPECT_EQ(lumGetNumThreads(), before);
    // Pointers first, then the count; nothing written on failure.
    Lum32f a[4] = {1, 2, 3, 4}, b[4] = {0}, dp;
    EXPECT_EQ(ownCopy32(nullptr, b, 0), lumStatusNullPtr);
    EXPECT_EQ(ownCopy32(a, b, 0), lumStatusSize);
    EXPECT_EQ(ownZero16(nullptr, 1), lumStatusNullPtr);
    EXPECT_EQ(ownZero32(b, -1), lumStatusSize);
    EXPECT_EQ(ownAdd_32f_I(a, nullptr, 4), lumStatusNullPtr);
    EXPECT_EQ(ownMulC_32f_I(2.0f, b, 0), lumStatusSize);
    EXPECT_EQ(ownMulC_32f(a, 2.0f, nullptr, 4), lumStatusNullPtr);
    EXPECT_EQ(ownDotProd_32f(a, a, 0, &dp), lumStatusSize);
    EXPECT_EQ(ownDotProd_32f(a, a, 4, nullptr), lumStatusNullPtr);
    EXPECT_EQ(ownSortAscend_32f(nullptr, 4), lumStatusNullPtr);
    EXPECT_EQ(ownSortAscend_32f(a, 0), lumStatusSize);
    for (Lum32f v : b) EXPECT_EQ(v, 0.0f);
}

// The element-wise operations agree with a plain loop for every length and
// every misalignment of the destination (the alignment steps and the
// eight-wide body must not change a bit); scaling by 1 copies bit for bit
// and scaling by 0 clears, so inf x 0 gives no NaN.
TEST(Frame, ElementwiseOperationsMatchPlainLoop) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> dist(-100.f, 100.f);
    std::vector<Lum32f> src(300), dst(300), ref(300);
    for (auto& v : src) v = dist(rng);
    const Lum32f k = 1.37f;
    for (int n : {1, 5, 10, 11, 12, 17, 64, 257})
        for (int off = 0; off < 4; ++off) {
            for (int i = 0; i < 300; ++i) dst[i] = ref[i] = src[(i * 7) % 300];
            ASSERT_EQ(ownAdd_32f_I(src.data() + 1, dst.data() + off, n), lumStatusOk);
            for (int i = 0; i < n; ++i) ref[off + i] = ref[off + i] + src[1 + i];
            ASSERT_EQ(0, std::memcmp(dst.data(), ref.data(), 300 * 4)) << n << " " << off;
            ASSERT_EQ(ownMulC_32f_I(k, dst.data() + off, n), lumStatusOk);
            for (int i = 0; i < n; ++i) ref[off + i] = ref[off + i] * k;
            ASSERT_EQ(0, std::memcmp(dst.data(), ref.data(), 300 * 4)) << n << " " << off;
            ASSERT_EQ(ownMulC_32f(src.data() + 3, -k, dst.data() + off, n), lumStatusOk);
            for (int i = 0; i < n; ++i) ref[off + i] = src[3 + i] * -k;
            ASSERT_EQ(0, std::memcmp(dst.data(), ref.data(), 300 * 4)) << n << " " << off;
        }
    Lum32f v[3] = {INFINITY, NAN, -0.0f}, w[3] = {INFINITY, NAN, -0.0f}, d[3];
    ASSERT_EQ(ownMulC_32f_I(0.0f, v, 3), lumStatusOk);
    for (Lum32f x : v) EXPECT_FALSE(std::signbit(x) || x != 0.0f) << x;
    ASSERT_EQ(ownMulC_32f(w, 1.0f, d, 3), lumStatusOk);
    EXPECT_EQ(0, std::memcmp(w, d, sizeof w));
    ASSERT_EQ(ownMulC_32f_I(NAN, w, 3), lumStatusOk);  // NaN multiplies
    EXPECT_TRUE(std::isnan(w[0]) && std::isnan(w[2]));
}

// The dot product's summation order is part of its result: even/odd partial
// sums below 16 values, sixteen partial sums from 16 up, whatever the alignment.
TEST(Frame, DotProductSummationOrder) {
    std::mt19937 rng(11);
    std::uniform_real_distribution<float> dist(-1.f, 1.f);
    for (int n : {1, 2, 7, 15, 16, 17, 31, 33, 256}) {
        std::vector<Lum32f> a(n + 1), b(n + 1);
        for (int i = 0; i <= n; ++i) a[i] = dist(rng) * 1000.f, b[i] = dist(rng);
        float expect;
        if (n < 16) {
            float e = 0, o = 0;
            for (int i = 0; i < n; ++i) (i % 2 ? o : e) = (i % 2 ? o : e) + a[i] * b[i];
            expect = e + o;
        } else {
            float acc[16] = {0}, l[4];
            const int whole = n / 16 * 16;
            for (int i = 0; i < whole; ++i) acc[i % 16] = acc[i % 16] + a[i] * b[i];
            for (int i = whole; i < n; ++i) acc[(i - whole) % 4] = acc[(i - whole) % 4] + a[i] * b[i];
            for (int k = 0; k < 4; ++k) l[k] = (acc[k] + acc[4 + k]) + (acc[8 + k] + acc[12 + k]);
            expect = (l[0] + l[2]) + (l[1] + l[3]);
        }
        std::vector<Lum32f> a1(n + 1);  // the same values one element off
        std::copy(a.begin(), a.begin() + n, a1.begin() + 1);
        Lum32f got = 0, got1 = 0;
        ASSERT_EQ(ownDotProd_32f(a.data(), b.data(), n, &got), lumStatusOk);
        ASSERT_EQ(ownDotProd_32f(a1.data() + 1, b.data(), n, &got1), lumStatusOk);
        EXPECT_EQ(got, expect) << n;
        EXPECT_EQ(got1, expect) << n;
    }
}

TEST(Frame, SortAscending) {
    std::mt19937 rng(3);
    for (int n : {1, 2, 9, 10, 11, 100, 1000, 5000})
        for (int kind = 0; kind < 4; ++kind) {  // many ties, sorted, reversed, all equal
            std::vector<Lum32f> v(n);
            for (int i = 0; i < n; ++i)
                v[i] = kind == 0 ? float(rng() % 1000) - 500.f : kind == 1 ? float(i) : kind == 2 ? float(n - i) : 4.25f;
            std::vector<Lum32f> ref = v;
            std::sort(ref.begin(), ref.end());
            ASSERT_EQ(ownSortAscend_32f(v.data(), n), lumStatusOk);
            ASSERT_EQ(v, ref) << "n=" << n << " kind=" << kind;
        }
    // NaN values may land anywhere but must not break a bound or a loop; the
    // other values stay a permutation of the input.
    std::vector<Lum32f> v(257);
    for (int i = 0; i < 257; ++i) v[i] = (i % 5 == 0) ? NAN : float(rng() % 50);
    std::vector<Lum32f> before = v;
    ASSERT_EQ(ownSortAscend_32f(v.data(), 257), lumStatusOk);
    auto strip = [](std::vector<Lum32f> x) {
        x.erase(std::remove_if(x.begin(), x.end(), [](float f) { return std::isnan(f); }), x.end());
        std::sort(x.begin(), x.end());
        return x;
    };
    EXPECT_EQ(strip(v), strip(before));
}

// The slab split gives the remainder to the last thread; every plane is
// done exactly once whatever the thread count, region size or nesting, and
// small regions and one thread stay on the calling thread.  The static loop
// visits each item once.
TEST(Frame, ParallelPatternsCoverEachItemOnce) {
    const Lum32s expect5[] = {3, 3, 3, 3, 4};
    for (Lum32s t = 0, next = 0; t < 5; next += expect5[t], ++t) {
        EXPECT_EQ(ownSlabOf(t, 5, 16).z0, next);
        EXPECT_EQ(ownSlabOf(t, 5, 16).depth, expect5[t]);
    }
    for (Lum32s t = 0; t < 16; ++t) EXPECT_EQ(ownSlabOf(t, 17, 16).depth, 0);
    EXPECT_EQ(ownSlabOf(16, 17, 16).depth, 16);
    EXPECT_EQ(ownSlabOf(16, 17, 16).z0, 0);
    for (Lum32s threads : {1, 2, 3, 17}) {
        ThreadCount tc(threads);
        for (Lum32s depth : {1, 15, 16, 37})
            for (Lum32s width : {15, 16}) {
                std::vector<int> hits(depth, 0), teamSeen(32, 0);  // one slot per thread: no shared write
                ownSlabPattern(width, 16, depth, [&](Lum32s z0, Lum32s nz, Lum32s t, Lum32s team) {
                    for (Lum32s z = z0; z < z0 + nz; ++z) hits[z] += 1;
                    teamSeen[t] = team;
                });
                for (int h : hits) ASSERT_EQ(h, 1);
                if (width < 16 || depth < 16 || threads == 1) { EXPECT_EQ(*std::max_element(teamSeen.begin(), teamSeen.end()), 1); }
            }
        std::vector<int> items(1001, 0);
        ownStaticLoop(1001, [&](Lum32s i) { items[i] += 1; });
        for (int h : items) ASSERT_EQ(h, 1);
        ownStaticLoop(0, [&](Lum32s) { FAIL(); });
    }
    ThreadCount tc(2);
    std::vector<int> hits(32, 0);
#pragma omp parallel num_threads(1)
    ownSlabPattern(16, 16, 32, [&](Lum32s z0, Lum32s nz, Lum32s, Lum32s) {
        for (Lum32s z = z0; z < z0 + nz; ++z) hits[z] += 1;
    });
    for (int h : hits) EXPECT_EQ(h, 1);
}

}  // namespace
