#include "ref/tree_validator.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <sstream>

namespace {

struct Decoded {
    bool leaf;
    int axis;
    uint32_t pairOffset;
    float split;
    std::vector<Lum32s> tris;
    bool compact;
    int64_t listOffset;  // list leaves: offset of the list in the block
};

Decoded decode(const LumKDTreeNode* tree, int64_t at) {
    const LumKDTreeNode& n = tree[at / 8];
    Decoded d{};
    d.leaf = (n.word0 & 0x80000000u) != 0;
    if (!d.leaf) {
        d.axis = int(n.word0 & 3u);
        d.pairOffset = n.word0 & ~7u;
        std::memcpy(&d.split, &n.word1, 4);
        return d;
    }
    if (n.word1 == 0) return d;
    if ((n.word1 & 0x80000000u) == 0) {
        d.listOffset = at - int64_t(int32_t(n.word0));
        d.tris.resize(n.word1);
        return d;
    }
    d.compact = true;
    const int32_t m = int32_t((n.word1 & 0x7FFFFFFCu) >> 2);
    const int32_t g = int32_t(n.word0 & 0x7FFFFFFFu);
    switch (n.word1 & 3u) {
        case 1: d.tris = {g}; break;
        case 2: d.tris = {g, m}; break;
        case 3: d.tris = {m - (g >> 16), m, m + int32_t(n.word0 & 0xFFFFu)}; break;
        default: d.tris = {}; d.listOffset = -1; break;  // count 0 in a compact leaf
    }
    return d;
}

// Would these numbers be written as a compact node?
bool fitsCompact(std::vector<Lum32s> t) {
    if (t.size() == 1) return true;
    if (t.size() == 2) return t[0] <= 0x1FFFFFFF || t[1] <= 0x1FFFFFFF;
    if (t.size() == 3) {
        std::sort(t.begin(), t.end());
        return t[1] < 0x20000000 && t[1] - t[0] < 32768 && t[2] - t[1] < 65536;
    }
    return false;
}

struct Walker {
    const LumKDTreeNode* tree;
    int64_t size;
    Lum32s nTriangles;
    Lum32s maxDepth;
    bool requireCompact;
    TreeReport& r;
    int64_t nodeCursor = 16;
    int64_t listCursor = 0;
    std::ostringstream err;

    bool fail(const std::string& what, int64_t at) {
        if (err.tellp() == 0) err << what << " (node at byte " << at << ")";
        return false;
    }

    // First pass: nodes reachable, inside the block, depth bounded.
    bool count(int64_t at, int depth) {
        if (depth > 50) return fail("deeper than 50", at);
        if (at < 0 || at + 8 > size || at % 8) return fail("node outside the block", at);
        ++r.nodes;
        const Decoded d = decode(tree, at);
        if (d.leaf) return true;
        const int64_t pair = at + d.pairOffset;
        if (d.pairOffset == 0 || pair + 16 > size) return fail("child pair outside the block", at);
        return count(pair, depth + 1) && count(pair + 8, depth + 1);
    }

    // Second pass: the exact layout a depth-first writer produces.
    bool check(int64_t at, int depth) {
        const Decoded d = decode(tree, at);
        const LumKDTreeNode& n = tree[at / 8];
        if (!d.leaf) {
            if (n.word0 & 4u) return fail("bit 2 of an interior node set", at);
            if (d.axis > 2) return fail("axis 3", at);
            if (std::isnan(d.split)) return fail("NaN split position", at);
            if (at + d.pairOffset != nodeCursor) return fail("child pair out of depth-first order", at);
            nodeCursor += 16;
            const int64_t pair = at + d.pairOffset;
            return check(pair, depth + 1) && check(pair + 8, depth + 1);
        }
        if (depth > maxDepth) return fail("leaf deeper than maxDepth", at);
        r.depth = std::max(r.depth, depth);
        if (n.word1 == 0) {
            if (int32_t(n.word0) >= 0) return fail("empty leaf with non-negative word0", at);
            ++r.emptyLeaves;
            return true;
        }
        std::vector<Lum32s> tris = d.tris;
        if (d.compact) {
            if (tris.empty()) return fail("compact leaf of count 0", at);
            ++r.compactLeaves;
        } else {
            if (d.listOffset != listCursor) return fail("list out of order or outside the lists", at);
            if (d.listOffset + 4 * int64_t(tris.size()) > size) return fail("list past the end", at);
            std::memcpy(tris.data(), reinterpret_cast<const char*>(tree) + d.listOffset,
                        tris.size() * 4);
            if (requireCompact && fitsCompact(tris)) return fail("list leaf that fits a compact node", at);
            listCursor += 4 * int64_t(tris.size());
            r.listEntries += int64_t(tris.size());
        }
        ++r.leaves;
        for (Lum32s t : tris) {
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
    if (!tree || size < 16) {
        r.error = "block missing or smaller than 16 bytes";
        return r;
    }
    if (tree[1].word0 != 0 || tree[1].word1 != 0) {
        r.error = "words 2 and 3 are not zero";
        return r;
    }
    Walker w{tree, size, nTriangles, maxDepth, requireCompact, r, 16, 0, {}};
    if (!w.count(0, 0)) {
        r.error = w.err.str();
        return r;
    }
    w.listCursor = 16 + 8 * (r.nodes - 1);
    if (!w.check(0, 0)) {
        r.error = w.err.str();
        return r;
    }
    if (w.nodeCursor != 16 + 8 * (r.nodes - 1)) r.error = "node pairs do not tile the node area";
    const int64_t expected = 16 + 8 * (r.nodes - 1) + 4 * r.listEntries;
    if (r.error.empty() && expected != size) {
        std::ostringstream s;
        s << "size " << size << " but the nodes and lists need " << expected;
        r.error = s.str();
    }
    return r;
}

::testing::AssertionResult lumrTreeIsValid(const LumKDTreeNode* tree, Lum32s size,
                                           Lum32s nTriangles, Lum32s maxDepth,
                                           const std::vector<char>& required,
                                           bool requireCompact) {
    const TreeReport r = lumrInspectTree(tree, size, nTriangles, maxDepth, requireCompact);
    if (!r.error.empty()) return ::testing::AssertionFailure() << r.error;
    for (Lum32s t = 0; t < nTriangles; ++t) {
        const bool need = required.empty() || required[size_t(t)];
        if (need && !r.reached[size_t(t)])
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
        const Decoded d = decode(tree, at);
        if (d.leaf) {
            std::vector<Lum32s> tris = d.tris;
            if (!d.compact && !tris.empty())
                std::memcpy(tris.data(), reinterpret_cast<const char*>(tree) + d.listOffset,
                            tris.size() * 4);
            leaf(tris);
            continue;
        }
        const int64_t pair = at + d.pairOffset;
        if (query[d.axis] <= d.split) stack.push_back(pair);
        if (query[d.axis + 3] >= d.split) stack.push_back(pair + 8);
    }
}

Lum32s lumrBruteNearest(const float* v, const Lum32s* tri, Lum32s nTriangles, const double* o,
                        const double* dir, double* tOut) {
    Lum32s best = -1;
    double bestT = INFINITY;
    for (Lum32s t = 0; t < nTriangles; ++t) {
        const float* a = v + 3 * tri[4 * t];
        const float* b = v + 3 * tri[4 * t + 1];
        const float* c = v + 3 * tri[4 * t + 2];
        double e1[3], e2[3], s[3], p[3], q[3];
        for (int k = 0; k < 3; ++k) {
            e1[k] = double(b[k]) - a[k];
            e2[k] = double(c[k]) - a[k];
            s[k] = o[k] - a[k];
        }
        p[0] = dir[1] * e2[2] - dir[2] * e2[1];
        p[1] = dir[2] * e2[0] - dir[0] * e2[2];
        p[2] = dir[0] * e2[1] - dir[1] * e2[0];
        const double det = e1[0] * p[0] + e1[1] * p[1] + e1[2] * p[2];
        if (std::fabs(det) < 1e-300) continue;
        const double inv = 1.0 / det;
        const double u = (s[0] * p[0] + s[1] * p[1] + s[2] * p[2]) * inv;
        if (u < 0 || u > 1) continue;
        q[0] = s[1] * e1[2] - s[2] * e1[1];
        q[1] = s[2] * e1[0] - s[0] * e1[2];
        q[2] = s[0] * e1[1] - s[1] * e1[0];
        const double w = (dir[0] * q[0] + dir[1] * q[1] + dir[2] * q[2]) * inv;
        if (w < 0 || u + w > 1) continue;
        const double tt = (e2[0] * q[0] + e2[1] * q[1] + e2[2] * q[2]) * inv;
        if (tt > 0 && tt < bestT) bestT = tt, best = t;
    }
    if (tOut) *tOut = bestT;
    return best;
}
