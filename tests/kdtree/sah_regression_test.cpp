// A guard for speed work on the SAH build: every block it produces, and every
// status it returns, must stay the same bit for bit.  Each case builds a
// generated mesh and hashes the status, the reported size and all words of
// the block (FNV-1a).
//
// The expected hashes were recorded from the build as it stood before its
// sorts, sweeps and classification were made faster; they are not derived
// from any independent model.  What they pin is that the faster code gives
// exactly what the straightforward code gave: the order of float operations
// in the sweeps, the sort results, the acceptance tests and the memory
// accounting all show up in these bits.  The other suites, and the validity
// and coverage checks on every tree here, check that those blocks are right;
// the hashes check that they do not move.
#include <gtest/gtest.h>
#include <omp.h>

#include <fstream>
#include <limits>
#include <random>
#include <string>

#include "kdtree/sah.h"
#include "kdtree/sah_mesh.h"
#include "ref/tree_validator.h"

namespace {

// Tight clusters of small triangles far apart in a large box, so that
// empty-space cuts and cuts between clusters both occur.
SahMesh clusteredMesh(int clusters, int perCluster, uint32_t seed) {
    SahMesh m;
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> u(0.f, 1.f);
    for (int c = 0; c < clusters; ++c) {
        const float cx = 10 * u(rng), cy = 10 * u(rng), cz = 3 * u(rng);
        const float r = 0.05f + 0.4f * u(rng);
        for (int k = 0; k < perCluster; ++k) {
            const float px = cx + r * (u(rng) - 0.5f), py = cy + r * (u(rng) - 0.5f),
                        pz = cz + r * (u(rng) - 0.5f);
            const float s = 0.02f * r;
            const Lum32s a = m.vert(px, py, pz);
            const Lum32s b = m.vert(px + s * u(rng), py + s * u(rng), pz - s * u(rng));
            const Lum32s d = m.vert(px - s * u(rng), py + s * u(rng), pz + s * u(rng));
            m.tri(a, b, d);
        }
    }
    return m;
}

// Corners on a coarse lattice through the origin, with both signed zeros:
// many equal bounds, flat triangles on every axis, and -0 beside +0 in the
// sorted lists.
SahMesh latticeMesh(int count, uint32_t seed) {
    SahMesh m;
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> g(-8, 8);
    auto coord = [&](int k) {
        const int q = g(rng);
        if (q == 0) return (k & 1) ? -0.0f : 0.0f;
        return float(q) / 8.0f;
    };
    for (int t = 0; t < count; ++t) {
        Lum32s idx[3];
        const int flatAxis = t % 5 < 3 ? t % 5 : -1;
        const float flatAt = coord(t);
        for (int c = 0; c < 3; ++c) {
            float p[3] = {coord(t + c), coord(t + 2 * c), coord(t + 3 * c)};
            if (flatAxis >= 0) p[flatAxis] = flatAt;
            idx[c] = m.vert(p[0], p[1], p[2]);
        }
        m.tri(idx[0], idx[1], idx[2]);
    }
    return m;
}

// Status, size and block words of one build, hashed (FNV-1a).
uint64_t buildHash(const SahMesh& m, float quality, Lum32s maxDepth, const float* clip) {
    LumKDTreeNode* tree = nullptr;
    Lum32s size = -1;
    const LumStatus st = ownKDTreeBuildSAH(m.v.data(), m.t.data(), m.nv(), m.nt(), &tree, &size,
                                           quality, maxDepth, 256u << 20, clip);
    uint64_t h = 0xCBF29CE484222325ull;
    auto add = [&h](const void* data, size_t bytes) {
        const unsigned char* p = static_cast<const unsigned char*>(data);
        for (size_t i = 0; i < bytes; ++i) h = (h ^ p[i]) * 0x100000001B3ull;
    };
    add(&st, sizeof(st));
    if (st != lumStatusOk) return h;
    add(&size, sizeof(size));
    add(tree, size_t(size));
    // Well formed, and every triangle point (in the clip box) lies in a leaf
    // of its triangle.  Clipped, a triangle with a corner strictly inside
    // the box stays, and one entirely beyond a face is dropped.
    std::vector<char> inside(clip ? m.nt() : 0), outside(inside.size());
    for (Lum32s k = 0; k < Lum32s(inside.size()); ++k) {
        int below[3] = {}, above[3] = {};
        for (int j = 0; j < 3; ++j) {
            bool in = true;
            for (int c = 0; c < 3; ++c) {
                const float x = m.v[3 * size_t(m.t[4 * k + j]) + c];
                below[c] += x < clip[c];
                above[c] += x > clip[c + 3];
                in &= x > clip[c] && x < clip[c + 3];
            }
            inside[size_t(k)] |= in;
        }
        for (int c = 0; c < 3; ++c) outside[size_t(k)] |= below[c] == 3 || above[c] == 3;
    }
    EXPECT_TRUE(lumrTreeIsValid(tree, size, m.nt(), maxDepth, inside));
    const TreeReport r = lumrInspectTree(tree, size, m.nt(), maxDepth);
    for (size_t k = 0; k < outside.size(); ++k) EXPECT_FALSE(outside[k] && r.reached[k]) << k;
    EXPECT_TRUE(lumrTreeCoversTriangles(tree, m.v.data(), m.t.data(), m.nt(), clip, 5));
    lumFree(tree);
    return h;
}

struct Scene {
    const char* name;
    SahMesh mesh;
    float clip[6];
    // Recorded from the build before it was made faster (see the top of
    // file): unclipped then clipped, quality 0, 0.5, 1, depth 10 then 50.
    uint64_t expected[12];
};

const Scene kScenes[] = {
    {"soup", sahSoup(3000, 77), {0.2f, 0.15f, 0.3f, 0.8f, 0.75f, 0.9f},
     {0x5a12120e981447b7ull, 0x3f06d054b7892508ull, 0x8bd399b1aa9a899eull, 0x1abcdd4c73188f52ull,
      0xfa6a8da84e5011fbull, 0x612a13ced94ea371ull, 0xce8af7d6714540caull, 0xce8af7d6714540caull,
      0x6fd2bf76ec40655full, 0x6fd2bf76ec40655full, 0x816c10b717754eebull, 0xf2f12c2e77c2749bull}},
    {"sphere", sahBumpySphere(48, 64), {-0.7f, -1.3f, -0.5f, 0.9f, 0.6f, 1.3f},
     {0x7b5017e16991227full, 0xbc85621ba6be2931ull, 0x7b5017e16991227full, 0xf0ad03c4632ce6aaull,
      0x7b5017e16991227full, 0xf84c0887876aeccdull, 0x5eb848887f50fadaull, 0xc6960c9d26aa80eeull,
      0x5479fcfb89dac2e0ull, 0x3913a52a9fd2ce89ull, 0xd1dee136bb70df10ull, 0xbb5ca759a87f764dull}},
    {"clustered", clusteredMesh(12, 300, 5), {1.0f, 2.0f, 0.5f, 8.0f, 9.0f, 2.5f},
     {0xeed83a8c85e3fccull, 0xd13931ec69e7f71aull, 0xeed83a8c85e3fccull, 0xb43649efb57bc2d0ull,
      0xeed83a8c85e3fccull, 0xb82b537099c9cc2eull, 0xf2eab6e064b48291ull, 0xfe393d5047ec502bull,
      0xf2eab6e064b48291ull, 0x13c10bdb5cbc25e0ull, 0xcf54dd30929e8bbdull, 0xd237f74cc29edf97ull}},
    {"lattice", latticeMesh(2500, 9), {-0.5f, -0.0f, -1.0f, 0.75f, 1.0f, 0.0f},
     {0x77d19865a1f13309ull, 0x2b49332ea0527775ull, 0xf6b855434b68bc8ull, 0xbd9897d596c0e46aull,
      0x2f37ae3b3223b215ull, 0x358456d77d18b7d5ull, 0xca7dc89a046fa5dull, 0xbad3e7f74fb79e2dull,
      0x7ad86d2679e95e68ull, 0x63d34f7f9f137afdull, 0x8e9fe8490a8627ebull, 0x184b2c5b1aeab888ull}},
    {"bunny", sahBunny(), {-2.0f, 1.0f, -1.0f, 3.0f, 6.0f, 2.5f},
     {0xc718c6dcb52469d6ull, 0x19e9eff29099ff18ull, 0x86831bb6a98084bull, 0xc3cec7cff7ff407full,
      0x86831bb6a98084bull, 0x5ed84c8a9077e466ull, 0x17b523f38834d2afull, 0xf76bc642d495312full,
      0x8706224096ebb174ull, 0x65e9023214999413ull, 0x17e555ee1db3bfa1ull, 0x91f2125fb1283c70ull}},
};

// Run as it stands, then as two builds at once whose sections may not fork
// and so run one after the other in each thread: the same bits.
TEST(SahRegression, BlocksStayBitIdentical) {
    ASSERT_EQ(kScenes[4].mesh.nt(), 3674);  // the data file was found
    auto check = [](int c, int threads) {
        const Scene& s = kScenes[c / 12];
        const int k = c % 12;
        const float quality = 0.5f * float(k / 2 % 3);
        const float* clip = k < 6 ? nullptr : s.clip;
        EXPECT_EQ(buildHash(s.mesh, quality, k % 2 ? 50 : 10, clip), s.expected[k])
            << s.name << " case " << k << " threads " << threads;
    };
    for (int c = 0; c < 60; ++c) check(c, 1);
    const int levels = omp_get_max_active_levels();
    omp_set_max_active_levels(1);
#pragma omp parallel for num_threads(2) schedule(static, 1)
    for (int c = 0; c < 60; ++c) check(c, 2);
    omp_set_max_active_levels(levels);
}

// Statuses other than success, and trees, reached through coordinates that
// the comparisons cannot order: a NaN corner, once (the counts disagree) and
// in many triangles, and infinite corners.
TEST(SahRegression, OddCoordinatesStayTheSame) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    const struct {
        float x, y, z;
        int corner;  // where the odd vertex stands in its triangles
        int copies;
        float quality;
        uint64_t expected;
    } odd[] = {
        {nan, nan, nan, 0, 1, 0.0f, 0x7053767088d9a6c0ull},
        {nan, nan, nan, 1, 1, 1.0f, 0x7099eaa50782cc4aull},
        {nan, 0.5f, 0.5f, 0, 40, 0.5f, 0x7053767088d9a6c0ull},
        {nan, 0.5f, 0.5f, 2, 40, 0.5f, 0x7053767088d9a6c0ull},
        {0.5f, nan, 0.5f, 1, 3, 0.0f, 0x84433b012bc4ab3eull},
        {0.5f, 0.5f, nan, 2, 3, 1.0f, 0x334edb261c740963ull},
        {inf, 0.5f, 0.5f, 0, 3, 0.5f, 0x17c1447a36090057ull},
        {-inf, -inf, 0.5f, 1, 3, 1.0f, 0x17c1447a36090057ull},
        {0.5f, 0.5f, -inf, 2, 1, 0.0f, 0x5fd25bd46899f602ull},
    };
    for (const auto& o : odd) {
        SahMesh m = sahSoup(1500, 31);
        for (int k = 0; k < o.copies; ++k) {
            Lum32s v[3];
            v[o.corner] = m.vert(o.x, o.y, o.z);
            v[(o.corner + 1) % 3] = m.vert(0.5f + 0.01f * float(k), 0.5f, 0.5f);
            v[(o.corner + 2) % 3] = m.vert(0.6f, 0.55f + 0.01f * float(k), 0.4f);
            m.tri(v[0], v[1], v[2]);
        }
        EXPECT_EQ(buildHash(m, o.quality, 50, nullptr), o.expected)
            << o.x << " " << o.y << " " << o.z << " at corner " << o.corner << " x" << o.copies;
    }
}

}  // namespace
