#include "ref/tree_validator.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

namespace {

struct Decoded {
    bool leaf = false, compact = false;
    int axis = 0;
    uint32_t pairOffset = 0;
    float split = 0;
    std::vector<Lum32s> tris;  // list leaves: sized, read by readList
    int64_t listOffset = 0;    // list leaves: offset of the list in the block
};

Decoded decode(const LumKDTreeNode* tree, int64_t at) {
    const LumKDTreeNode& n = tree[at / 8];
    Decoded d;
    d.leaf = (n.word0 & 0x80000000u) != 0;
    if (!d.leaf) {
        d.axis = int(n.word0 & 3u);
        d.pairOffset = n.word0 & ~7u;
        std::memcpy(&d.split, &n.word1, 4);
    } else if (n.word1 != 0 && (n.word1 & 0x80000000u) == 0) {
        d.listOffset = at - int64_t(int32_t(n.word0));
        d.tris.resize(n.word1);
    } else if (n.word1 != 0) {
        d.compact = true;
        const int32_t m = int32_t((n.word1 & 0x7FFFFFFCu) >> 2);
        const int32_t g = int32_t(n.word0 & 0x7FFFFFFFu);
        const uint32_t count = n.word1 & 3u;  // 0 is malformed and stays empty
        if (count == 1) d.tris = {g};
        if (count == 2) d.tris = {g, m};
        if (count == 3) d.tris = {m - (g >> 16), m, m + int32_t(n.word0 & 0xFFFFu)};
    }
    return d;
}

void readList(const LumKDTreeNode* tree, Decoded& d) {
    if (!d.compact && !d.tris.empty())
        std::memcpy(d.tris.data(), reinterpret_cast<const char*>(tree) + d.listOffset,
                    d.tris.size() * 4);
}

// Would these numbers be written as a compact node?
bool fitsCompact(std::vector<Lum32s> t) {
    std::sort(t.begin(), t.end());
    if (t.size() == 1) return true;
    if (t.size() == 2) return t[0] <= 0x1FFFFFFF;
    return t.size() == 3 && t[1] < 0x20000000 && t[1] - t[0] < 32768 && t[2] - t[1] < 65536;
}

// One depth-first walk checking the exact layout a depth-first writer
// produces; the lists' order is checked once the node area is known.
struct Walker {
    const LumKDTreeNode* tree;
    int64_t size;
    Lum32s nTriangles, maxDepth;
    bool requireCompact;
    TreeReport& r;
    int64_t nodeCursor = 16;
    std::vector<std::pair<int64_t, int64_t>> lists;  // offset and bytes, in walking order
    std::string err;

    bool fail(const std::string& what, int64_t at) {
        err = what + " (node at byte " + std::to_string(at) + ")";
        return false;
    }

    bool walk(int64_t at, int depth) {
        if (at + 8 > size) return fail("node outside the block", at);
        if (depth > maxDepth) return fail("node deeper than maxDepth", at);
        ++r.nodes;
        Decoded d = decode(tree, at);
        const LumKDTreeNode& n = tree[at / 8];
        if (!d.leaf) {
            if (n.word0 & 4u) return fail("bit 2 of an interior node set", at);
            if (d.axis > 2) return fail("axis 3", at);
            if (std::isnan(d.split)) return fail("NaN split position", at);
            // Pairs stand in the order they are placed, so the walk ends.
            if (at + d.pairOffset != nodeCursor) return fail("child pair out of depth-first order", at);
            nodeCursor += 16;
            return walk(at + d.pairOffset, depth + 1) && walk(at + d.pairOffset + 8, depth + 1);
        }
        r.depth = std::max(r.depth, depth);
        if (n.word1 == 0) {
            if (int32_t(n.word0) >= 0) return fail("empty leaf with non-negative word0", at);
            ++r.emptyLeaves;
            return true;
        }
        if (d.compact) {
            if (d.tris.empty()) return fail("compact leaf of count 0", at);
            ++r.compactLeaves;
        } else {
            const int64_t bytes = 4 * int64_t(d.tris.size());
            if (d.listOffset < 16 || d.listOffset + bytes > size) return fail("list outside the block", at);
            readList(tree, d);
            if (requireCompact && fitsCompact(d.tris)) return fail("list leaf that fits a compact node", at);
            lists.emplace_back(d.listOffset, bytes);
            r.listEntries += int64_t(d.tris.size());
        }
        ++r.leaves;
        for (Lum32s t : d.tris) {
            if (t < 0 || t >= nTriangles) return fail("triangle number out of range", at);
            r.reached[size_t(t)] = 1;
            ++r.references;
        }
        return true;
    }
};

}  // namespace

TreeReport lumrInspectTree(const LumKDTreeNode* tree, Lum32s size, Lum32s nTriangles,
                           Lum32s maxDepth, bool requireCompact) {
    TreeReport r;
    r.reached.assign(size_t(std::max<Lum32s>(nTriangles, 0)), 0);
    if (!tree || size < 16 || tree[1].word0 != 0 || tree[1].word1 != 0) {
        r.error = "block missing, smaller than 16 bytes, or words 2 and 3 not zero";
        return r;
    }
    Walker w{tree, size, nTriangles, std::min<Lum32s>(maxDepth, 50), requireCompact, r, 16, {}, {}};
    if (!w.walk(0, 0)) {
        r.error = w.err;
        return r;
    }
    // The lists follow the nodes, one after the other in walking order.
    int64_t cursor = w.nodeCursor;
    for (const auto& l : w.lists) {
        if (l.first != cursor) {
            r.error = "list out of order or outside the lists (at byte " + std::to_string(l.first) + ")";
            return r;
        }
        cursor += l.second;
    }
    if (cursor != size)
        r.error = "size " + std::to_string(size) + " but the nodes and lists need " + std::to_string(cursor);
    return r;
}

::testing::AssertionResult lumrTreeIsValid(const LumKDTreeNode* tree, Lum32s size,
                                           Lum32s nTriangles, Lum32s maxDepth,
                                           const std::vector<char>& required,
                                           bool requireCompact) {
    const TreeReport r = lumrInspectTree(tree, size, nTriangles, maxDepth, requireCompact);
    if (!r.error.empty()) return ::testing::AssertionFailure() << r.error;
    for (Lum32s t = 0; t < nTriangles; ++t) {
        if ((required.empty() || required[size_t(t)]) && !r.reached[size_t(t)])
            return ::testing::AssertionFailure() << "triangle " << t << " stands in no leaf";
    }
    return ::testing::AssertionSuccess();
}

void lumrTreeVisitBox(const LumKDTreeNode* tree, const float* query,
                      const std::function<void(const std::vector<Lum32s>&)>& leaf) {
    std::vector<int64_t> stack{0};
    while (!stack.empty()) {
        const int64_t at = stack.back();
        stack.pop_back();
        Decoded d = decode(tree, at);
        if (d.leaf) {
            readList(tree, d);
            leaf(d.tris);
            continue;
        }
        if (query[d.axis] <= d.split) stack.push_back(at + d.pairOffset);
        if (query[d.axis + 3] >= d.split) stack.push_back(at + d.pairOffset + 8);
    }
}

::testing::AssertionResult lumrTreeCoversTriangles(const LumKDTreeNode* tree, const float* vertices,
                                                   const Lum32s* triangles, Lum32s nTriangles,
                                                   const float* clip, uint32_t seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> u(0.02, 0.96);
    int tested = 0;
    for (Lum32s k = 0; k < nTriangles; ++k) {
        for (int s = 0; s < 3; ++s) {
            const double a = u(rng), b = u(rng) * (1 - a);
            float q[6];
            bool inside = true;
            for (int c = 0; c < 3; ++c) {
                const double A = vertices[3 * triangles[4 * k] + c],
                             B = vertices[3 * triangles[4 * k + 1] + c],
                             C = vertices[3 * triangles[4 * k + 2] + c];
                const double p = A + a * (B - A) + b * (C - A), e = 1e-5 * (1 + std::fabs(p));
                q[c] = float(p - e);
                q[c + 3] = float(p + e);
                inside &= std::isfinite(p) && (!clip || (p > clip[c] + 2 * e && p < clip[c + 3] - 2 * e));
            }
            if (!inside) continue;
            bool found = false;
            ++tested;
            lumrTreeVisitBox(tree, q, [&](const std::vector<Lum32s>& tris) {
                for (Lum32s x : tris) found |= x == k;
            });
            if (!found) return ::testing::AssertionFailure() << "triangle " << k << " missing at a point";
        }
    }
    if (tested == 0) return ::testing::AssertionFailure() << "no point inside";
    return ::testing::AssertionSuccess();
}
