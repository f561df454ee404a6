// The split search's pieces against slow models and against their plain
// forms: the radix sort against a key order, the quick sorts against the
// frame's comparison sort, and all three sweeps against a brute-force
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

constexpr float kInf = std::numeric_limits<float>::infinity();

// Bounds as a node gathers them: repeated values (shared corners), and by
// kind infinities and denormals (1), signed zeros (2) or NaN (3); kinds 4 to
// 9 are narrow ranges whose keys span about 11, 12, 22, 23, 26 and 27 bits,
// on both sides of each pass-count gate of the ranged radix sort.
std::vector<float> gatheredBounds(std::mt19937& rng, int n, int kind) {
    static const float kWidth[6] = {1.0f / 4096, 1.0f / 2048, 0.5f, 1.0f, 64.0f, 512.0f};
    std::uniform_real_distribution<float> u(-3.f, 3.f);
    std::vector<float> v(static_cast<size_t>(n));
    for (float& x : v) {
        x = (rng() % 3 == 0) ? std::round(4 * u(rng)) / 4 : u(rng);
        const unsigned r = rng() % 16;
        if (kind == 1 && r == 0) x = (rng() % 2) ? kInf : -kInf;
        if (kind == 1 && r == 1) x *= 1e-39f;
        if (kind == 2 && r == 0) x = (rng() % 2) ? 0.0f : -0.0f;
        if (kind == 3 && r == 0) x = std::numeric_limits<float>::quiet_NaN();
        if (kind >= 4) x = 1.0f + std::fabs(x) / 3.5f * kWidth[kind - 4];
    }
    return v;
}

std::vector<Lum32u> bitsOf(const float* p, int n) {
    std::vector<Lum32u> b(static_cast<size_t>(n));
    if (n > 0) std::memcpy(b.data(), p, size_t(n) * 4);
    return b;
}

// Radix: float order with -0 below +0.  The exact sort leaves what the
// frame's sort leaves.  The ranged sort leaves, wherever it says, what the
// search's plain sorts leave: the radix sort above the gate, the comparison
// sort at or below it (at any count for flat items).
TEST(SahSort, SortsMatchTheirReferences) {
    std::mt19937 rng(17);
    for (int n : {0, 1, 2, 15, 16, 17, 63, 64, 65, 200, 320, 321, 500, 767, 768, 769, 3000}) {
        for (int kind = 0; kind < 10; ++kind) {
            const std::vector<float> in = gatheredBounds(rng, n, kind);
            std::vector<float> scratch(in.size() + 1);
            LumBoundsRange range;
            for (Lum32u b : bitsOf(in.data(), n)) range.add(b);
            std::vector<float> r = in, ref = in, e = in, f = in;
            if (kind != 3) {  // NaN has no place in the key order's reference
                ownSortRadix_32f(r.data(), scratch.data(), n);
                std::stable_sort(ref.begin(), ref.end(), [](float a, float b) {
                    return a < b || (a == b && std::signbit(a) && !std::signbit(b));
                });
                EXPECT_EQ(bitsOf(r.data(), n), bitsOf(ref.data(), n)) << n << " kind " << kind;
            }
            ownSortAscendExact_32f(e.data(), n);
            ownSortAscend_32f(f.data(), n);
            EXPECT_EQ(bitsOf(e.data(), n), bitsOf(f.data(), n)) << n << " kind " << kind;
            for (bool flat : {false, true}) {
                std::vector<float> want = flat ? e : in, got = in;
                if (!flat) ownSortBounds_32f(want.data(), scratch.data(), n);
                const Lum32f* out = ownSortBoundsRanged_32f(got.data(), scratch.data(), n, range,
                                                            flat ? n : kSAHRadixGate);
                ASSERT_TRUE(out == got.data() || out == scratch.data());
                EXPECT_EQ(bitsOf(out, n), bitsOf(want.data(), n))
                    << "n " << n << " kind " << kind << " flat " << flat;
            }
        }
    }
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
    const float loMin = n ? *std::min_element(lo.begin(), lo.end()) : bmin;
    float first = loMin, last = n ? *std::max_element(hi.begin(), hi.end()) : bmax;
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
    const float lastFlat = m ? flat.back() : -kInf;
    for (float x : xs) {
        if (n && x < loMin && (m == 0 || x < flat[0])) continue;
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
    // One item in the corner of a large box: the empty-space cut at its far
    // end wins at a cost of (e1 + e2) x 0.7 x sum, 0.7 as a float.
    const float lo1 = 0.5f, hi1 = 1.0f;
    Cut got{};
    Lum32s l = -1, r = -1, side = 1;
    ownSweepSplit(&lo1, &hi1, 1, 0.0f, 10.0f, 10.0f, 10.0f, &got.cost, &got.pos, &l, &r);
    EXPECT_EQ(got.cost, 20.0 * double(0.7f) * (5.0 + 1.0));
    EXPECT_EQ(got.pos, 1.0f);
    EXPECT_TRUE(l == 1 && r == 0) << l << " " << r;

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

        std::sort(lo.begin(), lo.end());
        std::sort(hi.begin(), hi.end());
        side = 1;
        if (m == 0) {
            // The quick sweep first, for bounds free of NaN and -0.
            ownSweepSplitClean(lo.data(), hi.data(), n, bmin, bmax, ea, eb, &got.cost, &got.pos,
                               &l, &r);
            ASSERT_TRUE(got.cost == want.cost && got.pos == want.pos && l == want.nL &&
                        r == want.nR)
                << "quick sweep, round " << round;
            ownSweepSplit(lo.data(), hi.data(), n, bmin, bmax, ea, eb, &got.cost, &got.pos, &l, &r);
        } else {
            ownSweepSplitPlanar(lo.data(), hi.data(), flat.data(), n, m, bmin, bmax, ea, eb,
                                &got.cost, &got.pos, &l, &r, &side);
        }
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

}  // namespace
