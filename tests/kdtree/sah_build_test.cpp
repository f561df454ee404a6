// The SAH build end to end through its entry: block validity on every tree,
// hand-worked scenes whose cut follows from the cost model, coverage of every
// triangle point by the leaves, clipping, and thread independence.
#include <gtest/gtest.h>
#include <omp.h>

#include <cstring>
#include <random>
#include <set>
#include <vector>

#include "kdtree/sah.h"
#include "kdtree/sah_mesh.h"
#include "ref/tree_validator.h"

namespace {

struct Built {
    LumStatus status;
    LumKDTreeNode* tree;
    Lum32s size;
    std::vector<Lum32u> words() const {
        std::vector<Lum32u> w(size_t(size) / 4);
        std::memcpy(w.data(), tree, w.size() * 4);
        return w;
    }
};

struct Tree : Built {
    Tree(const SahMesh& m, float quality, Lum32s maxDepth, const float* clip = nullptr,
         Lum32s limitMB = 256)
        : Built{lumStatusOk, nullptr, -1} {
        LumKDTreeNode* canary = reinterpret_cast<LumKDTreeNode*>(&size);
        tree = canary;
        status = ownKDTreeBuildSAH(m.v.data(), m.t.data(), m.nv(), m.nt(), &tree, &size, quality,
                                   maxDepth, Lum32u(limitMB) << 20, clip);
        if (status != lumStatusOk) {
            EXPECT_EQ(tree, canary);  // untouched on failure
            EXPECT_EQ(size, -1);
            tree = nullptr;
        }
    }
    ~Tree() { lumFree(tree); }
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;
};

struct Node {
    bool leaf;
    int axis;
    float split;
    const LumKDTreeNode* low;
    const LumKDTreeNode* high;
};

Node readNode(const LumKDTreeNode* n) {
    Node r{};
    r.leaf = (n->word0 & 0x80000000u) != 0;
    if (!r.leaf) {
        r.axis = int(n->word0 & 3u);
        std::memcpy(&r.split, &n->word1, 4);
        r.low = reinterpret_cast<const LumKDTreeNode*>(reinterpret_cast<const char*>(n) +
                                                       (n->word0 & ~7u));
        r.high = r.low + 1;
    }
    return r;
}

// All triangle numbers in the subtree under n.
std::set<Lum32s> subtreeTriangles(const LumKDTreeNode* n) {
    const float everywhere[6] = {-1e30f, -1e30f, -1e30f, 1e30f, 1e30f, 1e30f};
    std::set<Lum32s> all;
    lumrTreeVisitBox(n, everywhere, [&](const std::vector<Lum32s>& t) { all.insert(t.begin(), t.end()); });
    return all;
}

// A box vertex pair that sets the root box without belonging to a triangle.
void addBoxCorners(SahMesh& m, float lo, float hi) {
    m.vert(lo, lo, lo);
    m.vert(hi, hi, hi);
}

TEST(SahBuild, EmptyInputsAndDepthZero) {
    SahMesh none;
    none.vert(1, 2, 3);  // one vertex is read even with no triangles
    const Lum32u emptyRoot[4] = {0xFFFFFFF0u, 0, 0, 0};  // the list build's empty tree
    {
        Tree t(none, 0.5f, 20);
        ASSERT_EQ(t.status, lumStatusOk);
        ASSERT_EQ(t.size, 16);
        EXPECT_EQ(t.words(), std::vector<Lum32u>(emptyRoot, emptyRoot + 4));
    }
    // All triangles outside the clip box: the same empty tree.
    SahMesh far = sahSoup(40, 3);
    const float clip[6] = {5, 5, 5, 6, 6, 6};
    {
        Tree t(far, 0.5f, 20, clip);
        ASSERT_EQ(t.status, lumStatusOk);
        EXPECT_EQ(t.words(), std::vector<Lum32u>(emptyRoot, emptyRoot + 4));
    }
    // maxDepth 0: one leaf, compact for one to three triangles.
    for (int n = 1; n <= 5; ++n) {
        SahMesh m = sahSoup(n, 11);
        Tree t(m, 1.0f, 0);
        ASSERT_EQ(t.status, lumStatusOk);
        EXPECT_TRUE(lumrTreeIsValid(t.tree, t.size, m.nt(), 0));
        const TreeReport r = lumrInspectTree(t.tree, t.size, m.nt(), 0);
        EXPECT_EQ(r.nodes, 1);
        EXPECT_EQ(r.compactLeaves, n <= 3 ? 1 : 0);
        EXPECT_EQ(t.size, n <= 3 ? 16 : 16 + 4 * n);
    }
}

// One triangle in the corner of a 10-unit box.  On each axis the far side is
// empty beyond a tenth of the box, so the sweep stops at the empty-space cut
// at the triangle's top: cost 20 x 0.7 x (c + 1) with c = 100 / 20, far below
// the leaf cost 300.  All three axes tie and ties go to the later axis: z.
// Whether the saving 300 - 84 beats 300 x ratio decides: it does at quality
// 1 (ratio 0.506), not at quality 0 (ratio 5.06).
TEST(SahBuild, EmptySpaceCutFollowsTheCostModel) {
    SahMesh m;
    addBoxCorners(m, 0, 10);
    m.tri(m.vert(0.5f, 0.5f, 0.5f), m.vert(1, 0.5f, 1), m.vert(0.5f, 1, 1));
    {
        Tree t(m, 1.0f, 1);
        ASSERT_EQ(t.status, lumStatusOk);
        ASSERT_TRUE(lumrTreeIsValid(t.tree, t.size, 1, 1));
        const Node root = readNode(t.tree);
        ASSERT_FALSE(root.leaf);
        EXPECT_EQ(root.axis, 2);
        EXPECT_EQ(root.split, 1.0f);
        EXPECT_EQ(subtreeTriangles(root.low), std::set<Lum32s>{0});
        EXPECT_TRUE(subtreeTriangles(root.high).empty());
        EXPECT_EQ(t.size, 16 + 16);  // a compact leaf and an empty one
    }
    {
        Tree t(m, 0.0f, 1);
        ASSERT_EQ(t.status, lumStatusOk);
        EXPECT_EQ(t.size, 16);
        EXPECT_EQ(t.tree[0].word1, 0x80000001u);  // the root is the compact leaf
    }
}

// Three triangles over x in [0, 1] and five over [9, 10], each spanning the
// unit y and z extents.  Between the clusters the sum 3 (c + x) + 5 (c + 10 - x)
// falls with x, so the cut sits at the start of the larger cluster, x = 9,
// with the three on the low side and the five on the high side.
TEST(SahBuild, CutBetweenTwoClusters) {
    SahMesh m;
    for (int i = 0; i < 3; ++i) m.tri(m.vert(0, 0, 0), m.vert(1, 1, 0), m.vert(0.25f * i, 0, 1));
    for (int i = 0; i < 5; ++i)
        m.tri(m.vert(9, 0, 0), m.vert(10, 1, 0), m.vert(9 + 0.2f * i, 0, 1));
    Tree t(m, 1.0f, 1);
    ASSERT_EQ(t.status, lumStatusOk);
    ASSERT_TRUE(lumrTreeIsValid(t.tree, t.size, m.nt(), 1));
    const Node root = readNode(t.tree);
    ASSERT_FALSE(root.leaf);
    EXPECT_EQ(root.axis, 0);
    EXPECT_EQ(root.split, 9.0f);
    EXPECT_EQ(subtreeTriangles(root.low), (std::set<Lum32s>{0, 1, 2}));
    EXPECT_EQ(subtreeTriangles(root.high), (std::set<Lum32s>{3, 4, 5, 6, 7}));
}

// Two triangles over x in [0, p], two over [p, 10], two lying in the plane
// x = p, all spanning y and z in [0, 10].  At x = p the flat pair goes to the
// shorter child, which is the cheaper of the two candidates there: low for
// p = 4 (planarSide 0), high for p = 6.  No triangle is cut.
TEST(SahBuild, FlatTrianglesInTheCutGoToThePlanarSide) {
    for (float p : {4.0f, 6.0f}) {
        SahMesh m;
        for (int i = 0; i < 2; ++i) m.tri(m.vert(0, 0, 0), m.vert(p, 10, 0), m.vert(1.0f + i, 0, 10));
        for (int i = 0; i < 2; ++i) m.tri(m.vert(p, 0, 10), m.vert(10, 10, 0), m.vert(7.0f + i, 0, 0));
        for (int i = 0; i < 2; ++i) m.tri(m.vert(p, 0, 0), m.vert(p, 10, 0), m.vert(p, 3.0f * i, 10));
        Tree t(m, 1.0f, 1);
        ASSERT_EQ(t.status, lumStatusOk);
        ASSERT_TRUE(lumrTreeIsValid(t.tree, t.size, m.nt(), 1));
        const Node root = readNode(t.tree);
        ASSERT_FALSE(root.leaf);
        EXPECT_EQ(root.axis, 0);
        EXPECT_EQ(root.split, p);
        const std::set<Lum32s> low = subtreeTriangles(root.low), high = subtreeTriangles(root.high);
        if (p < 5) {
            EXPECT_EQ(low, (std::set<Lum32s>{0, 1, 4, 5}));
            EXPECT_EQ(high, (std::set<Lum32s>{2, 3}));
        } else {
            EXPECT_EQ(low, (std::set<Lum32s>{0, 1}));
            EXPECT_EQ(high, (std::set<Lum32s>{2, 3, 4, 5}));
        }
    }
}

// Every point of every triangle lies in a leaf that lists the triangle.
// Points are taken inside each triangle; the leaves meeting a tiny box
// around the point must include it.
void expectCovered(const Tree& t, const SahMesh& m, const float* clip, uint32_t seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> u(0.02, 0.96);
    int missed = 0, tested = 0;
    for (Lum32s k = 0; k < m.nt(); ++k) {
        for (int s = 0; s < 3; ++s) {
            double a = u(rng), b = u(rng) * (1 - a);
            double p[3];
            for (int c = 0; c < 3; ++c) {
                const double A = m.v[3 * m.t[4 * k] + c], B = m.v[3 * m.t[4 * k + 1] + c],
                             C = m.v[3 * m.t[4 * k + 2] + c];
                p[c] = A + a * (B - A) + b * (C - A);
            }
            float q[6];
            bool inside = true;
            for (int c = 0; c < 3; ++c) {
                const double e = 1e-5 * (1 + std::fabs(p[c]));
                q[c] = float(p[c] - e);
                q[c + 3] = float(p[c] + e);
                if (clip && !(p[c] > clip[c] + 2 * e && p[c] < clip[c + 3] - 2 * e)) inside = false;
            }
            if (!inside) continue;
            bool found = false;
            lumrTreeVisitBox(t.tree, q, [&](const std::vector<Lum32s>& tris) {
                for (Lum32s x : tris) found |= x == k;
            });
            ++tested;
            if (!found) ++missed;
        }
    }
    EXPECT_GT(tested, 0);
    EXPECT_EQ(missed, 0) << "of " << tested << " points";
}

TEST(SahBuild, EveryTrianglePointIsInALeafOfItsTriangle) {
    const SahMesh sphere = sahBumpySphere(40, 60);
    const SahMesh soup = sahSoup(3000, 7);
    for (const SahMesh* m : {&sphere, &soup}) {
        for (float q : {0.0f, 0.5f, 1.0f}) {
            for (Lum32s depth : {3, 12, 50}) {
                Tree t(*m, q, depth);
                ASSERT_EQ(t.status, lumStatusOk);
                ASSERT_TRUE(lumrTreeIsValid(t.tree, t.size, m->nt(), depth));
                const TreeReport r = lumrInspectTree(t.tree, t.size, m->nt(), depth);
                if (depth == 50) {
                    EXPECT_GT(r.leaves, 50);  // the cost model does split
                }
                expectCovered(t, *m, nullptr, 5);
            }
        }
    }
}

TEST(SahBuild, ClippedTrianglesCoverTheClipBox) {
    const SahMesh soup = sahSoup(4000, 21);
    const float clip[6] = {0.2f, 0.3f, 0.1f, 0.7f, 0.9f, 0.55f};
    Tree t(soup, 1.0f, 30, clip);
    ASSERT_EQ(t.status, lumStatusOk);
    // Triangles entirely outside the box must be dropped; those with a
    // corner strictly inside must stay.
    std::vector<char> inside(size_t(soup.nt()), 0);
    std::vector<char> outside(size_t(soup.nt()), 0);
    for (Lum32s k = 0; k < soup.nt(); ++k) {
        bool anyIn = false, allOutOneSide = false;
        for (int c = 0; c < 3; ++c) {
            int below = 0, above = 0;
            for (int j = 0; j < 3; ++j) {
                const float x = soup.v[3 * soup.t[4 * k + j] + c];
                below += x < clip[c];
                above += x > clip[c + 3];
            }
            allOutOneSide |= below == 3 || above == 3;
        }
        for (int j = 0; j < 3; ++j) {
            bool in = true;
            for (int c = 0; c < 3; ++c) {
                const float x = soup.v[3 * soup.t[4 * k + j] + c];
                in &= x > clip[c] && x < clip[c + 3];
            }
            anyIn |= in;
        }
        inside[size_t(k)] = anyIn;
        outside[size_t(k)] = allOutOneSide;
    }
    ASSERT_TRUE(lumrTreeIsValid(t.tree, t.size, soup.nt(), 30, inside));
    const TreeReport r = lumrInspectTree(t.tree, t.size, soup.nt(), 30);
    for (Lum32s k = 0; k < soup.nt(); ++k)
        if (outside[size_t(k)]) {
            EXPECT_FALSE(r.reached[size_t(k)]) << "triangle " << k;
        }
    expectCovered(t, soup, clip, 9);
}

// The block is the same bit for bit whatever the application's thread count
// and whether the search's sections fork or run serially.
TEST(SahBuild, SameBlockWithAnyThreadCount) {
    const SahMesh m = sahBumpySphere(90, 120);  // nodes far above 75 and 320 items
    const Lum32s saved = lumGetNumThreads();
    lumSetNumThreads(1);
    Tree one(m, 0.7f, 40);
    lumSetNumThreads(2);
    Tree two(m, 0.7f, 40);
    lumSetNumThreads(saved);
    ASSERT_EQ(one.status, lumStatusOk);
    ASSERT_EQ(two.status, lumStatusOk);
    ASSERT_TRUE(lumrTreeIsValid(one.tree, one.size, m.nt(), 40));
    EXPECT_EQ(one.words(), two.words());

    // Two builds at once, each inside a region that may not fork again, so
    // the sections run one after the other in each thread.
    const int levels = omp_get_max_active_levels();
    omp_set_max_active_levels(1);
    std::vector<Lum32u> serial[2];
#pragma omp parallel num_threads(2)
    {
        Tree t(m, 0.7f, 40);
        if (t.status == lumStatusOk) serial[omp_get_thread_num()] = t.words();
    }
    omp_set_max_active_levels(levels);
    EXPECT_EQ(serial[0], one.words());
    if (!serial[1].empty()) {
        EXPECT_EQ(serial[1], one.words());
    }
}

TEST(TreeValidator, CatchesBrokenBlocks) {
    const SahMesh m = sahSoup(500, 4);
    Tree t(m, 1.0f, 20);
    ASSERT_EQ(t.status, lumStatusOk);
    ASSERT_TRUE(lumrTreeIsValid(t.tree, t.size, m.nt(), 20));
    const TreeReport r = lumrInspectTree(t.tree, t.size, m.nt(), 20);
    ASSERT_GT(r.listEntries, 0);
    EXPECT_FALSE(lumrTreeIsValid(t.tree, t.size + 4, m.nt(), 20));        // size
    EXPECT_FALSE(lumrTreeIsValid(t.tree, t.size, m.nt(), r.depth - 1));   // depth
    EXPECT_FALSE(lumrTreeIsValid(t.tree, t.size, m.nt() - 1, 20));        // numbers
    // A list leaf moved by one entry breaks the order of the lists.
    std::vector<Lum32u> w = t.words();
    for (size_t i = 0; i < size_t(r.nodes) * 2; i += 2) {
        if ((w[i] & 0x80000000u) && w[i + 1] && !(w[i + 1] & 0x80000000u)) {
            w[i] -= 4;
            break;
        }
    }
    EXPECT_FALSE(lumrTreeIsValid(reinterpret_cast<const LumKDTreeNode*>(w.data()), t.size,
                                 m.nt(), 20));
    std::vector<char> all(size_t(m.nt()), 1);
    std::vector<Lum32u> w2 = t.words();
    w2[0] ^= 4u;  // bit 2 of the root
    EXPECT_FALSE(lumrTreeIsValid(reinterpret_cast<const LumKDTreeNode*>(w2.data()), t.size,
                                 m.nt(), 20, all));
}

}  // namespace
