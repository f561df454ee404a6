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
// accounting all show up in these bits.  The other suites check that those
// blocks are right; this one checks that they do not move.
#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "frame/own.h"
#include "kdtree/sah.h"
#include "kdtree/sah_mesh.h"
#include "kdtree/split_search.h"
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

SahMesh bunnyMesh() {
    std::string path = __FILE__;
    path = path.substr(0, path.find_last_of('/')) + "/../../data/bunny.txt";
    std::ifstream in(path);
    SahMesh m;
    std::string comment;
    std::getline(in, comment);
    int nv = 0, nt = 0;
    in >> nv >> nt;
    for (int i = 0; i < nv; ++i) {
        float x, y, z;
        in >> x >> y >> z;
        m.vert(x, y, z);
    }
    for (int i = 0; i < nt; ++i) {
        Lum32s a, b, c;
        in >> a >> b >> c;
        m.tri(a, b, c);
    }
    return m;
}

uint64_t fnv1a(uint64_t h, const void* data, size_t bytes) {
    const unsigned char* p = static_cast<const unsigned char*>(data);
    for (size_t i = 0; i < bytes; ++i) {
        h ^= p[i];
        h *= 0x100000001B3ull;
    }
    return h;
}

// Status, size and block words of one build, hashed.
uint64_t buildHash(const SahMesh& m, float quality, Lum32s maxDepth, const float* clip,
                   Lum32u limit) {
    LumKDTreeNode* tree = nullptr;
    Lum32s size = -1;
    const LumStatus st = ownKDTreeBuildSAH(m.v.data(), m.t.data(), m.nv(), m.nt(), &tree, &size,
                                           quality, maxDepth, limit, clip);
    uint64_t h = 0xCBF29CE484222325ull;
    h = fnv1a(h, &st, sizeof(st));
    if (st != lumStatusOk) return h;
    h = fnv1a(h, &size, sizeof(size));
    h = fnv1a(h, tree, size_t(size));
    if (!clip) {
        EXPECT_TRUE(lumrTreeIsValid(tree, size, m.nt(), maxDepth, {}));
    }
    lumFree(tree);
    return h;
}

struct Case {
    const char* mesh;
    bool clip;
    float quality;
    Lum32s depth;
    uint64_t expected;
};

// Recorded from the build before it was made faster (see the top of file).
const Case kCases[] = {
    {"soup", false, 0.0f, 10, 0x5a12120e981447b7ull},
    {"soup", false, 0.0f, 50, 0x3f06d054b7892508ull},
    {"soup", false, 0.5f, 10, 0x8bd399b1aa9a899eull},
    {"soup", false, 0.5f, 50, 0x1abcdd4c73188f52ull},
    {"soup", false, 1.0f, 10, 0xfa6a8da84e5011fbull},
    {"soup", false, 1.0f, 50, 0x612a13ced94ea371ull},
    {"soup", true, 0.0f, 10, 0xce8af7d6714540caull},
    {"soup", true, 0.0f, 50, 0xce8af7d6714540caull},
    {"soup", true, 0.5f, 10, 0x6fd2bf76ec40655full},
    {"soup", true, 0.5f, 50, 0x6fd2bf76ec40655full},
    {"soup", true, 1.0f, 10, 0x816c10b717754eebull},
    {"soup", true, 1.0f, 50, 0xf2f12c2e77c2749bull},
    {"sphere", false, 0.0f, 10, 0x7b5017e16991227full},
    {"sphere", false, 0.0f, 50, 0xbc85621ba6be2931ull},
    {"sphere", false, 0.5f, 10, 0x7b5017e16991227full},
    {"sphere", false, 0.5f, 50, 0xf0ad03c4632ce6aaull},
    {"sphere", false, 1.0f, 10, 0x7b5017e16991227full},
    {"sphere", false, 1.0f, 50, 0xf84c0887876aeccdull},
    {"sphere", true, 0.0f, 10, 0x5eb848887f50fadaull},
    {"sphere", true, 0.0f, 50, 0xc6960c9d26aa80eeull},
    {"sphere", true, 0.5f, 10, 0x5479fcfb89dac2e0ull},
    {"sphere", true, 0.5f, 50, 0x3913a52a9fd2ce89ull},
    {"sphere", true, 1.0f, 10, 0xd1dee136bb70df10ull},
    {"sphere", true, 1.0f, 50, 0xbb5ca759a87f764dull},
    {"clustered", false, 0.0f, 10, 0xeed83a8c85e3fccull},
    {"clustered", false, 0.0f, 50, 0xd13931ec69e7f71aull},
    {"clustered", false, 0.5f, 10, 0xeed83a8c85e3fccull},
    {"clustered", false, 0.5f, 50, 0xb43649efb57bc2d0ull},
    {"clustered", false, 1.0f, 10, 0xeed83a8c85e3fccull},
    {"clustered", false, 1.0f, 50, 0xb82b537099c9cc2eull},
    {"clustered", true, 0.0f, 10, 0xf2eab6e064b48291ull},
    {"clustered", true, 0.0f, 50, 0xfe393d5047ec502bull},
    {"clustered", true, 0.5f, 10, 0xf2eab6e064b48291ull},
    {"clustered", true, 0.5f, 50, 0x13c10bdb5cbc25e0ull},
    {"clustered", true, 1.0f, 10, 0xcf54dd30929e8bbdull},
    {"clustered", true, 1.0f, 50, 0xd237f74cc29edf97ull},
    {"lattice", false, 0.0f, 10, 0x77d19865a1f13309ull},
    {"lattice", false, 0.0f, 50, 0x2b49332ea0527775ull},
    {"lattice", false, 0.5f, 10, 0xf6b855434b68bc8ull},
    {"lattice", false, 0.5f, 50, 0xbd9897d596c0e46aull},
    {"lattice", false, 1.0f, 10, 0x2f37ae3b3223b215ull},
    {"lattice", false, 1.0f, 50, 0x358456d77d18b7d5ull},
    {"lattice", true, 0.0f, 10, 0xca7dc89a046fa5dull},
    {"lattice", true, 0.0f, 50, 0xbad3e7f74fb79e2dull},
    {"lattice", true, 0.5f, 10, 0x7ad86d2679e95e68ull},
    {"lattice", true, 0.5f, 50, 0x63d34f7f9f137afdull},
    {"lattice", true, 1.0f, 10, 0x8e9fe8490a8627ebull},
    {"lattice", true, 1.0f, 50, 0x184b2c5b1aeab888ull},
    {"bunny", false, 0.0f, 10, 0xc718c6dcb52469d6ull},
    {"bunny", false, 0.0f, 50, 0x19e9eff29099ff18ull},
    {"bunny", false, 0.5f, 10, 0x86831bb6a98084bull},
    {"bunny", false, 0.5f, 50, 0xc3cec7cff7ff407full},
    {"bunny", false, 1.0f, 10, 0x86831bb6a98084bull},
    {"bunny", false, 1.0f, 50, 0x5ed84c8a9077e466ull},
    {"bunny", true, 0.0f, 10, 0x17b523f38834d2afull},
    {"bunny", true, 0.0f, 50, 0xf76bc642d495312full},
    {"bunny", true, 0.5f, 10, 0x8706224096ebb174ull},
    {"bunny", true, 0.5f, 50, 0x65e9023214999413ull},
    {"bunny", true, 1.0f, 10, 0x17e555ee1db3bfa1ull},
    {"bunny", true, 1.0f, 50, 0x91f2125fb1283c70ull},
};

const SahMesh& meshByName(const std::string& name) {
    static const SahMesh soup = sahSoup(3000, 77);
    static const SahMesh sphere = sahBumpySphere(48, 64);
    static const SahMesh clustered = clusteredMesh(12, 300, 5);
    static const SahMesh lattice = latticeMesh(2500, 9);
    static const SahMesh bunny = bunnyMesh();
    if (name == "soup") return soup;
    if (name == "sphere") return sphere;
    if (name == "clustered") return clustered;
    if (name == "lattice") return lattice;
    return bunny;
}

const float* clipFor(const std::string& name) {
    static const float unit[6] = {0.2f, 0.15f, 0.3f, 0.8f, 0.75f, 0.9f};
    static const float round[6] = {-0.7f, -1.3f, -0.5f, 0.9f, 0.6f, 1.3f};
    static const float wide[6] = {1.0f, 2.0f, 0.5f, 8.0f, 9.0f, 2.5f};
    static const float lattice[6] = {-0.5f, -0.0f, -1.0f, 0.75f, 1.0f, 0.0f};
    static const float bunny[6] = {-2.0f, 1.0f, -1.0f, 3.0f, 6.0f, 2.5f};
    if (name == "soup") return unit;
    if (name == "sphere") return round;
    if (name == "clustered") return wide;
    if (name == "lattice") return lattice;
    return bunny;
}

TEST(SahRegression, BlocksStayBitIdentical) {
    ASSERT_EQ(meshByName("bunny").nt(), 3674);  // the data file was found
    const int levels = omp_get_max_active_levels();
    for (int forks : {1, 0}) {
        // Sections allowed to fork, then every fork refused: the same bits.
        omp_set_max_active_levels(forks ? levels : 0);
        for (const Case& c : kCases) {
            const SahMesh& m = meshByName(c.mesh);
            const uint64_t h =
                buildHash(m, c.quality, c.depth, c.clip ? clipFor(c.mesh) : nullptr, 256u << 20);
            EXPECT_EQ(h, c.expected) << c.mesh << (c.clip ? " clipped" : "") << " quality "
                                     << c.quality << " depth " << c.depth;
        }
    }
    omp_set_max_active_levels(levels);
}

// Statuses other than success, reached through the memory limit and through
// coordinates that the comparisons cannot order.
TEST(SahRegression, StatusesStayTheSame) {
    const SahMesh& sphere = meshByName("sphere");
    // Room for the context, the arrays, the arenas and exactly the three
    // blocks this tree needs (polygons, node pairs, leaf lists) gives the
    // same tree; one byte less runs the pool dry.
    const Lum32u fixed = 400u + 48u * Lum32u(sphere.nt()) + 2 * 0x1000000u;
    EXPECT_EQ(buildHash(sphere, 0.5f, 50, nullptr, fixed + 3 * 0x1000028u),
              buildHash(sphere, 0.5f, 50, nullptr, 256u << 20));
    LumKDTreeNode* tree = nullptr;
    Lum32s size = 0;
    EXPECT_EQ(ownKDTreeBuildSAH(sphere.v.data(), sphere.t.data(), sphere.nv(), sphere.nt(), &tree,
                                &size, 0.5f, 50, fixed + 3 * 0x1000028u - 1, nullptr),
              lumStatusPoolExhausted);

    // A NaN corner, once (the counts disagree) and in many triangles, and
    // infinite corners.
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
        const uint64_t h = buildHash(m, o.quality, 50, nullptr, 256u << 20);
        EXPECT_EQ(h, o.expected) << o.x << " " << o.y << " " << o.z << " at corner " << o.corner
                                 << " x" << o.copies << " quality " << o.quality;
    }
}

// Bounds as a node gathers them: repeated values (shared corners), and on
// request infinities, signed zeros or NaN.
std::vector<float> gatheredBounds(std::mt19937& rng, int n, int kind) {
    std::uniform_real_distribution<float> u(-3.f, 3.f);
    std::vector<float> v(static_cast<size_t>(n));
    const float inf = std::numeric_limits<float>::infinity();
    for (float& x : v) {
        x = (rng() % 3 == 0) ? std::round(4 * u(rng)) / 4 : u(rng);
        const unsigned r = rng() % 16;
        if (kind == 1 && r == 0) x = (rng() % 2) ? inf : -inf;
        if (kind == 2 && r == 0) x = (rng() % 2) ? 0.0f : -0.0f;
        if (kind == 3 && r == 0) x = std::numeric_limits<float>::quiet_NaN();
        // Narrow ranges, which need fewer radix passes.
        if (kind == 4) x = 1.0f + std::fabs(x) * 1e-6f;
        if (kind == 5) x = 1.0f + std::fabs(x) * 1e-3f;
        if (kind == 6) x = 1.0f + std::fabs(x) / 4;
        if (kind == 7) x = 2.0f + std::fabs(x);
    }
    return v;
}

LumBoundsRange rangeOf(const std::vector<float>& v) {
    LumBoundsRange r;
    for (float x : v) {
        Lum32u b;
        std::memcpy(&b, &x, 4);
        r.add(b);
    }
    return r;
}

// The ranged sort leaves, wherever it says, what the search's plain sorts
// leave in place: the radix sort above the gate, the comparison sort at or
// below it (at any count for flat items).
TEST(SahRegression, RangedSortMatchesThePlainSorts) {
    std::mt19937 rng(17);
    for (int n : {0, 1, 2, 15, 16, 17, 63, 64, 65, 200, 320, 321, 500, 767, 768, 769, 3000}) {
        for (int kind = 0; kind < 8; ++kind) {
            for (bool flat : {false, true}) {
                const std::vector<float> in = gatheredBounds(rng, n, kind);
                std::vector<float> want = in, scratch(in.size() + 1);
                if (flat)
                    ownSortAscendExact_32f(want.data(), n);
                else
                    ownSortBounds_32f(want.data(), scratch.data(), n);
                std::vector<float> got = in, scratch2(in.size() + 1);
                const Lum32f* out = ownSortBoundsRanged_32f(got.data(), scratch2.data(), n,
                                                            rangeOf(in), flat ? n : kSAHRadixGate);
                ASSERT_TRUE(out == got.data() || out == scratch2.data());
                if (n == 0) continue;
                EXPECT_EQ(0, std::memcmp(out, want.data(), size_t(n) * 4))
                    << "n " << n << " kind " << kind << " flat " << flat;
            }
        }
    }
}

// The quick sweep gives the general sweep's cut, bit for bit, on bounds
// without NaN or -0: repeated values, starts equal to other items' ends,
// infinities, empty-space cuts and thin boxes included.
TEST(SahRegression, QuickSweepMatchesTheGeneralSweep) {
    std::mt19937 rng(23);
    int emptyCuts = 0, interior = 0;
    for (int round = 0; round < 3000; ++round) {
        const int n = 1 + int(rng() % 200);
        const int kind = round % 5 == 0 ? 1 : 0;
        std::vector<float> a = gatheredBounds(rng, n, kind), b = gatheredBounds(rng, n, kind);
        std::vector<float> lo(a.size()), hi(a.size());
        for (size_t i = 0; i < a.size(); ++i) {
            a[i] += 0.0f;  // rounding leaves -0, which the quick sweep is not for
            b[i] += 0.0f;
            if (a[i] == b[i]) b[i] = std::nextafter(a[i], 10.f);
            lo[i] = std::min(a[i], b[i]);
            hi[i] = std::max(a[i], b[i]);
        }
        std::sort(lo.begin(), lo.end());
        std::sort(hi.begin(), hi.end());
        const float bmin = (round % 3 == 0) ? -6.f : std::min(lo[0], -3.f);
        const float bmax = (round % 4 == 0) ? 9.f : std::max(hi[size_t(n) - 1], 3.f);
        const float ea = float(rng() % 4) * 0.5f, eb = float(rng() % 3) + 0.25f * float(round % 2);
        Lum64f c0 = 0, c1 = 0;
        Lum32f p0 = 0, p1 = 0;
        Lum32s l0 = -1, r0 = -1, l1 = -2, r1 = -2;
        ownSweepSplit(lo.data(), hi.data(), n, bmin, bmax, ea, eb, &c0, &p0, &l0, &r0);
        ownSweepSplitClean(lo.data(), hi.data(), n, bmin, bmax, ea, eb, &c1, &p1, &l1, &r1);
        ASSERT_EQ(0, std::memcmp(&c0, &c1, sizeof(c0))) << "round " << round;
        ASSERT_EQ(0, std::memcmp(&p0, &p1, sizeof(p0))) << "round " << round;
        ASSERT_EQ(l0, l1) << "round " << round;
        ASSERT_EQ(r0, r1) << "round " << round;
        (l0 == 0 || r0 == 0) ? ++emptyCuts : ++interior;
    }
    EXPECT_GT(emptyCuts, 100);
    EXPECT_GT(interior, 1000);
}

}  // namespace
