// The split search's pieces against slow models: the sorts against the
// frame's comparison sort and a key order, the sweeps against a brute-force
// evaluation of every candidate plane by its definition.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "frame/own.h"
#include "kdtree/split_search.h"

namespace {

std::vector<Lum32u> bitsOf(const std::vector<float>& v) {
    std::vector<Lum32u> b(v.size());
    std::memcpy(b.data(), v.data(), v.size() * 4);
    return b;
}

std::vector<float> randomBounds(std::mt19937& rng, int n, bool zeros) {
    std::uniform_real_distribution<float> u(-50.f, 50.f);
    std::vector<float> v(static_cast<size_t>(n));
    for (float& x : v) {
        x = u(rng);
        if (rng() % 4 == 0) x = std::round(x);  // repeated values, as shared vertices give
        if (zeros && rng() % 8 == 0) x = (rng() % 2) ? 0.0f : -0.0f;
    }
    return v;
}

TEST(SahSort, RadixOrdersByKeyAndExactSortMatchesTheFrameSort) {
    std::mt19937 rng(3);
    for (int n : {2, 9, 10, 100, 320, 321, 1000, 5000}) {
        for (bool zeros : {false, true}) {
            const std::vector<float> in = randomBounds(rng, n, zeros);
            // Radix: float order with -0 below +0.
            std::vector<float> r = in, scratch(in.size());
            ownSortRadix_32f(r.data(), scratch.data(), n);
            std::vector<float> ref = in;
            std::stable_sort(ref.begin(), ref.end(), [](float a, float b) {
                return a < b || (a == b && std::signbit(a) && !std::signbit(b));
            });
            EXPECT_EQ(bitsOf(r), bitsOf(ref)) << n;
            // The quick path leaves exactly what the frame's sort leaves.
            std::vector<float> e = in, f = in;
            ownSortAscendExact_32f(e.data(), n);
            ownSortAscend_32f(f.data(), n);
            EXPECT_EQ(bitsOf(e), bitsOf(f)) << n;
        }
    }
    // Negative values, infinities and denormals keep float order.
    std::vector<float> odd = {3.0f, -std::numeric_limits<float>::infinity(), 1e-40f, -1e-40f,
                              std::numeric_limits<float>::infinity(), -2.5f, 0.0f};
    for (int i = 0; i < 400; ++i) odd.push_back(float(i % 13) - 6.5f);
    std::vector<float> s = odd, scratch(odd.size());
    ownSortRadix_32f(s.data(), scratch.data(), Lum32s(s.size()));
    EXPECT_TRUE(std::is_sorted(s.begin(), s.end()));
    EXPECT_EQ(s.front(), -std::numeric_limits<float>::infinity());
    EXPECT_EQ(s.back(), std::numeric_limits<float>::infinity());
}

struct Cut {
    double cost;
    float pos;
    int nL, nR, side;
};

// Every candidate by its definition: nL items starting below x, nR items
// ending above x; flat items at x counted high (side 1) and then low
// (side 0).  Faces of the box first, then positions ascending; strictly
// better only.  Sums as the cost model writes them.
Cut bruteSweep(const std::vector<float>& lo, const std::vector<float>& hi,
               const std::vector<float>& flat, float bmin, float bmax, float ea, float eb) {
    const double e1 = ea, e2 = eb, area = e1 * e2;
    const double c = area < 1e-9 ? 0.0 : area / (e1 + e2);
    const int n = int(lo.size()), m = int(flat.size()), total = n + m;
    auto sum = [&](int l, int r, float x) {
        return double(l) * (c + double(x - bmin)) + double(r) * (c + double(bmax - x));
    };
    Cut best{std::numeric_limits<double>::infinity(), bmin, 0, total, 1};
    auto offer = [&](double s, float x, int l, int r, int side) {
        if (s < best.cost) best = {s, x, l, r, side};
    };
    float first = n ? *std::min_element(lo.begin(), lo.end()) : bmin;
    float last = n ? *std::max_element(hi.begin(), hi.end()) : bmax;
    for (float p : flat) first = std::min(first, p), last = std::max(last, p);
    const double gap = 0.1 * double(bmax - bmin);
    bool empty = false;
    if (double(first - bmin) > gap) {
        best = {double(total) * (c + double(bmax - first)), first, 0, total, 1};
        empty = true;
    }
    if (double(bmax - last) > gap) {
        const double s = double(total) * (c + double(last - bmin));
        if (!empty || s < best.cost) best = {s, last, total, 0, 0};
        empty = true;
    }
    if (empty) {
        best.cost = (e1 + e2) * double(0.7f) * best.cost;
        return best;
    }
    const int atMin = int(std::count(flat.begin(), flat.end(), bmin));
    const int atMax = int(std::count(flat.begin(), flat.end(), bmax));
    if (atMin) offer(sum(atMin, total - atMin, bmin), bmin, atMin, total - atMin, 0);
    if (atMax) offer(sum(total - atMax, atMax, bmax), bmax, total - atMax, atMax, 1);
    std::vector<float> xs(lo);
    xs.insert(xs.end(), hi.begin(), hi.end());
    xs.insert(xs.end(), flat.begin(), flat.end());
    std::sort(xs.begin(), xs.end());
    xs.erase(std::unique(xs.begin(), xs.end()), xs.end());
    const float lastFlat = m ? *std::max_element(flat.begin(), flat.end()) : -INFINITY;
    for (float x : xs) {
        if (n && x < *std::min_element(lo.begin(), lo.end()) && (m == 0 || x < flat[0])) continue;
        int l = 0, r = 0, k = 0;
        for (int i = 0; i < n; ++i) l += lo[size_t(i)] < x, r += hi[size_t(i)] > x;
        for (float p : flat) l += p < x, r += p >= x, k += p == x;
        const int side = (m && x <= lastFlat) ? 1 : best.side;  // no side once flats are passed
        offer(sum(l, r, x), x, l, r, side);
        if (k) offer(sum(l + k, r - k, x), x, l + k, r - k, 0);
    }
    best.cost = (e1 + e2) * best.cost;
    return best;
}

TEST(SahSweep, MatchesEveryCandidateByDefinition) {
    std::mt19937 rng(41);
    int emptyCuts = 0, planarWins = 0;
    for (int round = 0; round < 3000; ++round) {
        const float bmin = float(int(rng() % 5)) - 2.0f, bmax = bmin + 1.0f + float(rng() % 9);
        const int n = int(rng() % 12), m = (round % 3 == 0) ? 0 : int(rng() % 5);
        if (n + m == 0) continue;
        // Bounds on a coarse grid, so that ties and shared positions abound.
        auto grid = [&]() { return bmin + (bmax - bmin) * float(rng() % 9) / 8.0f; };
        std::vector<float> lo, hi, flat;
        for (int i = 0; i < n; ++i) {
            float a = grid(), b = grid();
            if (a == b) b = std::nextafter(a, bmax + 1);
            lo.push_back(std::min(a, b));
            hi.push_back(std::max(a, b));
        }
        for (int i = 0; i < m; ++i) flat.push_back(grid());
        const float ea = float(rng() % 4) * 0.5f, eb = float(rng() % 3) + 0.25f;
        std::sort(flat.begin(), flat.end());
        const Cut want = bruteSweep(lo, hi, flat, bmin, bmax, ea, eb);

        std::vector<float> s = lo, e = hi;
        std::sort(s.begin(), s.end());
        std::sort(e.begin(), e.end());
        Cut got{};
        Lum32s l = -1, r = -1, side = 1;
        if (m == 0)
            ownSweepSplit(s.data(), e.data(), n, bmin, bmax, ea, eb, &got.cost, &got.pos, &l, &r);
        else
            ownSweepSplitPlanar(s.data(), e.data(), flat.data(), n, m, bmin, bmax, ea, eb,
                                &got.cost, &got.pos, &l, &r, &side);
        ASSERT_EQ(got.cost, want.cost) << "round " << round;
        ASSERT_EQ(got.pos, want.pos) << "round " << round;
        ASSERT_EQ(l, want.nL) << "round " << round;
        ASSERT_EQ(r, want.nR) << "round " << round;
        if (m) {
            ASSERT_EQ(side, want.side) << "round " << round;
        }
        emptyCuts += (l == 0 || r == 0);
        planarWins += m && side == 0;
    }
    EXPECT_GT(emptyCuts, 100);
    EXPECT_GT(planarWins, 100);
}

// One item in the corner of a large box: the empty-space cut at its far end
// wins at a cost of (e1 + e2) x 0.7 x sum.
TEST(SahSweep, EmptySpaceCutIsDiscounted) {
    const float lo = 0.5f, hi = 1.0f;
    double cost = 0;
    float pos = 0;
    Lum32s l = -1, r = -1;
    ownSweepSplit(&lo, &hi, 1, 0.0f, 10.0f, 10.0f, 10.0f, &cost, &pos, &l, &r);
    EXPECT_EQ(pos, 1.0f);
    EXPECT_EQ(l, 1);
    EXPECT_EQ(r, 0);
    EXPECT_EQ(cost, 20.0 * double(0.7f) * (5.0 + 1.0));
}

}  // namespace
