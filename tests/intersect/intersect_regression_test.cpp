// Output fingerprints of the four intersection functions, both bodies, on a
// fixed set of scenes and rays.  The walks are tuned for speed, and a tuning
// must not move a single output bit; the brute-force suites cannot see a
// change inside their tolerance, so every output word (pDist, both weights,
// pTrngl, pOccluder, pMask) is hashed here.
//
// The expected values were recorded from the walks as they stood before
// they were tuned for speed, to prove that the tuning preserves every
// output.  They are not derived from any rule: if a deliberate change of
// behaviour ever moves them, record them again with
//   LUMR_PRINT_HASHES=1 build/tests/test_intersect --gtest_filter='*Fingerprint*'
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <map>
#include <random>
#include <string>

#include "../kdtree/sah_mesh.h"
#include "scene_fixture.h"

namespace {

struct Fnv {
    uint64_t h = 1469598103934665603ull;
    template <class T>
    void add(const T* p, size_t n) {
        const unsigned char* b = reinterpret_cast<const unsigned char*>(p);
        for (size_t i = 0; i < n * sizeof(T); ++i) h = (h ^ b[i]) * 1099511628211ull;
    }
};

RefMesh FromSah(const SahMesh& m) {
    RefMesh r;
    r.verts = m.v;
    r.tris = m.t;
    return r;
}

RefMesh Bunny() {
    std::string path = __FILE__;
    path = path.substr(0, path.find_last_of('/')) + "/../../data/bunny.txt";
    std::ifstream in(path);
    RefMesh m;
    std::string comment;
    std::getline(in, comment);
    int nv = 0, nt = 0;
    in >> nv >> nt;
    for (int i = 0; i < 3 * nv; ++i) {
        float x = 0;
        in >> x;
        m.verts.push_back(x);
    }
    for (int i = 0; i < nt; ++i) {
        Lum32s a = 0, b = 0, c = 0;
        in >> a >> b >> c;
        m.tris.insert(m.tris.end(), {a, b, c, 0});
    }
    return m;
}

// A mesh with its records, box and a tree: the list build, the test-only
// median tree (compact leaves of one to three triangles) or the SAH build.
enum class Tree { List, Median, SAH };
struct Built {
    RefMesh mesh;
    std::vector<LumTriangleAccel> accel;
    Lum32f box[6];
    LumKDTreeNode* tree = nullptr;
    std::vector<LumKDTreeNode> median;
    LumRayScene scene{};
    Built(RefMesh m, Tree kind) : mesh(std::move(m)) {
        const Lum32s n = mesh.triangleCount(), nv = Lum32s(mesh.verts.size() / 3);
        accel.resize(size_t(n));
        lumrTriangleAccelInit(accel.data(), mesh.verts.data(), mesh.tris.data(), n);
        lumrSetBoundBox_32f(mesh.verts.data(), nv, box);
        if (kind == Tree::Median) {
            median = refMedianTree(mesh, box, 3, 24);
            scene = {box, accel.data(), median.data()};
            return;
        }
        const LumKDTreeBuildParams p{
            Lum32u(kind == Tree::List ? lumKDTreeTagList : lumKDTreeTagSAH),
            kind == Tree::List ? 0 : 50, 1.0f, 1024, nullptr};
        Lum32s size = 0;
        EXPECT_EQ(
            lumrKDTreeBuildAlloc(&tree, mesh.verts.data(), mesh.tris.data(), nv, n, &size, &p),
            lumStatusOk);
        scene = {box, accel.data(), tree};
    }
    ~Built() { lumrKDTreeFree(tree); }
};

constexpr Lum32s kW = 32, kH = 32;
constexpr size_t kN = size_t(kW) * kH;

// One set of rays over a scene: an eye (the shared origin), per-ray origins
// and directions, and the input distances.
struct RaySet {
    Lum32f eye[3];
    std::vector<Lum32f> o[3], d[3], dist;
};

// kind 0: a pinhole in front of the box looking through it, with a column
// of d.x = 0, a first row of a pair with d.y = 0, a row of finite limits, a
// tile of limits at or below 0 and a NaN limit.  kind 1: a panorama from
// inside the box, with zero and tiny components sprinkled in.  kind 2:
// random origins through the box and random directions.
RaySet MakeRays(const Lum32f box[6], int kind, unsigned seed) {
    RaySet r;
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> uni(-1, 1);
    Lum32f c[3], e[3];
    for (int a = 0; a < 3; ++a) c[a] = 0.5f * (box[a] + box[3 + a]), e[a] = box[3 + a] - box[a];
    if (kind == 0) {
        r.eye[0] = c[0] + 0.1f * e[0], r.eye[1] = c[1] - 0.05f * e[1],
        r.eye[2] = box[2] - 1.5f * e[2];
    } else {
        for (int a = 0; a < 3; ++a) r.eye[a] = c[a] + 0.1f * e[a] * uni(rng);
    }
    for (int a = 0; a < 3; ++a) r.o[a].resize(kN), r.d[a].resize(kN);
    r.dist.assign(kN, 1e30f);
    for (Lum32s y = 0; y < kH; ++y)
        for (Lum32s x = 0; x < kW; ++x) {
            const size_t i = size_t(y) * kW + x;
            for (int a = 0; a < 3; ++a) r.o[a][i] = r.eye[a];
            if (kind == 0) {
                const Lum32f tx = box[0] + e[0] * (x + 0.5f) / kW,
                             ty = box[1] + e[1] * (y + 0.5f) / kH;
                r.d[0][i] = x == 9 ? 0.0f : tx - r.eye[0];
                r.d[1][i] = y == 16 ? 0.0f : ty - r.eye[1];
                r.d[2][i] = c[2] - r.eye[2];
                if (y == 5) r.dist[i] = 1.2f + 0.02f * Lum32f(x);
                if (y >= 8 && y < 12 && x >= 4 && x < 8) r.dist[i] = (x & 1) ? 0.0f : -1.0f;
                if (i == 77) r.dist[i] = std::numeric_limits<Lum32f>::quiet_NaN();
            } else if (kind == 1) {
                const double th = 3.14159 * (y + 0.5) / kH, ph = 6.28318 * (x + 0.5) / kW;
                r.d[0][i] = Lum32f(std::sin(th) * std::cos(ph));
                r.d[1][i] = Lum32f(std::sin(th) * std::sin(ph));
                r.d[2][i] = Lum32f(std::cos(th));
                if (i % 7 == 0) r.d[0][i] = 0.0f;
                if (i % 11 == 0) r.d[1][i] = 0.0f;
                if (i % 13 == 0) r.d[2][i] = 1e-9f;
                if (i % 17 == 0) r.d[1][i] = -1e-8f;
            } else {
                for (int a = 0; a < 3; ++a) {
                    r.o[a][i] = c[a] + 0.7f * e[a] * uni(rng);
                    r.d[a][i] = uni(rng);
                }
                if (i % 19 == 0) r.d[2][i] = 0.0f;
            }
        }
    return r;
}

// The outputs of one call, placed on a 16-byte boundary (packet body) or one
// element past it (plain body), with recognisable values before the call.
template <class T>
struct Out {
    Stream<T> s;
    Out(size_t n, bool packet, T fill) : s(n, packet ? 0 : 1) { s.fill(fill); }
};

struct Planes {
    Stream<Lum32f> p[3];
    Planes(const std::vector<Lum32f>* v, bool packet)
        : p{Stream<Lum32f>(kN, packet ? 0 : 1), Stream<Lum32f>(kN, packet ? 0 : 1),
            Stream<Lum32f>(kN, packet ? 0 : 1)} {
        for (int a = 0; a < 3; ++a)
            for (size_t i = 0; i < kN; ++i) p[a][i] = v[a][i];
    }
    LumPlanes3 planes() { return {p[0].data(), p[1].data(), p[2].data()}; }
};

struct Counts {
    size_t hits = 0, layered = 0, blocked = 0;
};

// Runs the four functions with one body on one ray set and adds their
// outputs to the fingerprints fp[0..3] (MO, eye, layers, any).
void RunAll(const Built& b, const RaySet& r, bool packet, Lum32s depth, Fnv fp[4], Counts& n) {
    Planes dir(r.d, packet), org(r.o, packet);
    LumPlanes3 d = dir.planes(), o = org.planes();
    const LumRect2D roi{kW, kH};
    Lum32s primaryTri[kN];
    Lum32f primaryT[kN];
    for (int f = 0; f < 2; ++f) {
        Out<Lum32f> dist(kN, packet, 0), u(kN, packet, -7), v(kN, packet, -7);
        Out<Lum32s> tri(kN, packet, -99);
        for (size_t i = 0; i < kN; ++i) dist.s[i] = r.dist[i];
        Lum32f* hit[2] = {u.s.data(), v.s.data()};
        if (f == 0)
            lumrIntersectMO_32f(&o, &d, dist.s.data(), hit, tri.s.data(), &b.scene, roi);
        else
            lumrIntersectEyeSO_32f(r.eye, &d, dist.s.data(), hit, tri.s.data(), &b.scene, roi);
        fp[f].add(dist.s.data(), kN), fp[f].add(u.s.data(), kN), fp[f].add(v.s.data(), kN);
        fp[f].add(tri.s.data(), kN);
        for (size_t i = 0; i < kN; ++i) {
            n.hits += tri.s[i] >= 0;
            if (f == 1) primaryTri[i] = tri.s[i], primaryT[i] = dist.s[i];
        }
    }
    {
        const size_t total = kN * size_t(depth);
        Out<Lum32f> dist(total, packet, -5), u(total, packet, -7), v(total, packet, -7);
        Out<Lum32s> tri(total, packet, -99);
        for (size_t i = 0; i < kN; ++i) dist.s[i] = r.dist[i];
        Lum32f* hit[2] = {u.s.data(), v.s.data()};
        const LumVolume roi3{kW, kH, depth};
        lumrIntersectMultipleSO_32f(r.eye, &d, dist.s.data(), hit, tri.s.data(), &roi3, &b.scene);
        fp[2].add(dist.s.data(), total), fp[2].add(u.s.data(), total), fp[2].add(v.s.data(), total);
        fp[2].add(tri.s.data(), total);
        for (size_t i = kN; i < total; ++i) n.layered += tri.s[i] >= 0;
    }
    // Segments from a light above the box to the eye rays' hits, pulled back
    // a little, and from misses to points spread through the box; a few rays
    // start dark.
    Lum32f light[3];
    for (int a = 0; a < 3; ++a) light[a] = b.box[3 + a] + 0.4f * (b.box[3 + a] - b.box[a]);
    std::vector<Lum32f> seg[3];
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> uni(0, 1);
    for (int a = 0; a < 3; ++a) seg[a].resize(kN);
    Out<Lum32s> mask(kN, packet, 0), occ(kN, packet, -99);
    for (size_t i = 0; i < kN; ++i) {
        const bool hit = primaryTri[i] >= 0;
        for (int a = 0; a < 3; ++a) {
            const Lum32f p = hit ? r.eye[a] + 0.999f * primaryT[i] * r.d[a][i]
                                 : b.box[a] + uni(rng) * (b.box[3 + a] - b.box[a]);
            seg[a][i] = p - light[a];
        }
        mask.s[i] = i % 23 == 4 ? -2 : Lum32s(i);
    }
    Planes sd(seg, packet);
    LumPlanes3 sp = sd.planes();
    lumrIntersectAnySO_32f(light, &sp, occ.s.data(), mask.s.data(), roi, &b.scene);
    fp[3].add(occ.s.data(), kN), fp[3].add(mask.s.data(), kN);
    for (size_t i = 0; i < kN; ++i) n.blocked += mask.s[i] < 0 && i % 23 != 4;
}

// Recorded from the walks before their speed tuning (see the top of the file).
const std::map<std::string, uint64_t> kRecorded = {
    {"soup-list/MO/plain", 0xee4bda56d10335a8ull},
    {"soup-list/eye/plain", 0x5c4c91a319f7d6cfull},
    {"soup-list/layers/plain", 0xa4d7ac4325878bd2ull},
    {"soup-list/any/plain", 0xef4cf466ddf92cb5ull},
    {"soup-list/MO/packet", 0xf114bf38cb2562bcull},
    {"soup-list/eye/packet", 0x4b8795810ede83feull},
    {"soup-list/layers/packet", 0x3721752c486fb5d4ull},
    {"soup-list/any/packet", 0xd64ea0de9c1a0ca7ull},
    {"soup-median/MO/plain", 0xee4bda56d10335a8ull},
    {"soup-median/eye/plain", 0xb99eb585c1e54822ull},
    {"soup-median/layers/plain", 0x90bd8dce5d31c4caull},
    {"soup-median/any/plain", 0x0a69f0a58b07446cull},
    {"soup-median/MO/packet", 0xa7d4f40a769135f4ull},
    {"soup-median/eye/packet", 0x59ff934c2efbba1aull},
    {"soup-median/layers/packet", 0x3cc983c49085fff4ull},
    {"soup-median/any/packet", 0x8f202cbb13d32097ull},
    {"flats-sah/MO/plain", 0x0e2a9f03ad49cb09ull},
    {"flats-sah/eye/plain", 0x9a2c4aec638302dbull},
    {"flats-sah/layers/plain", 0xaf096327d36edf46ull},
    {"flats-sah/any/plain", 0x480e3997d4dc4035ull},
    {"flats-sah/MO/packet", 0xccc83e2c9a87e9d5ull},
    {"flats-sah/eye/packet", 0x20e214a1dd7df35full},
    {"flats-sah/layers/packet", 0xcc4e8ef465385044ull},
    {"flats-sah/any/packet", 0x55dd93ad2aafa238ull},
    {"sphere-sah/MO/plain", 0x9c17bf82faca6770ull},
    {"sphere-sah/eye/plain", 0x1b630d160222ade8ull},
    {"sphere-sah/layers/plain", 0xd5c182fb3c5957eaull},
    {"sphere-sah/any/plain", 0xa7b47513f6d232b2ull},
    {"sphere-sah/MO/packet", 0xb77ee137ddaf8c0dull},
    {"sphere-sah/eye/packet", 0xc182b2bf1c07a5daull},
    {"sphere-sah/layers/packet", 0x54b41dca723e77a7ull},
    {"sphere-sah/any/packet", 0xeb3fd35be8b016baull},
    {"twins-list/MO/plain", 0x47a0875f29e4e1ebull},
    {"twins-list/eye/plain", 0xe3e5477c1ed385b9ull},
    {"twins-list/layers/plain", 0x4f90570a79f5985aull},
    {"twins-list/any/plain", 0x7b66ad95052a6ed7ull},
    {"twins-list/MO/packet", 0xa288e784767b93d5ull},
    {"twins-list/eye/packet", 0x631822c5e848a39full},
    {"twins-list/layers/packet", 0x3a24e637584041fdull},
    {"twins-list/any/packet", 0xe829094e44995bdfull},
    {"twins-sah/MO/plain", 0x47a0875f29e4e1ebull},
    {"twins-sah/eye/plain", 0x35341ab61d2f6153ull},
    {"twins-sah/layers/plain", 0xff522100257883d4ull},
    {"twins-sah/any/plain", 0x6316d89c59529c39ull},
    {"twins-sah/MO/packet", 0x9fb0a64fde267357ull},
    {"twins-sah/eye/packet", 0xccfe62bdd7c0a549ull},
    {"twins-sah/layers/packet", 0xa4b3884bc7479387ull},
    {"twins-sah/any/packet", 0xc0f1cc2a60bd78c1ull},
    {"bunny-sah/MO/plain", 0x4cde09c2a0c8cdb6ull},
    {"bunny-sah/eye/plain", 0x29611c6d5631c944ull},
    {"bunny-sah/layers/plain", 0x3d44cdcc5059ae69ull},
    {"bunny-sah/any/plain", 0xf6df61ae3d7658eaull},
    {"bunny-sah/MO/packet", 0xb9670e60c08ba4d8ull},
    {"bunny-sah/eye/packet", 0x92c5da8f29562cbcull},
    {"bunny-sah/layers/packet", 0x9590bf5fc8af6da7ull},
    {"bunny-sah/any/packet", 0xc624985225340081ull},
};

TEST(IntersectRegression, FingerprintsOfAllOutputs) {
    struct Case {
        const char* name;
        RefMesh mesh;
        Tree tree;
        Lum32s depth;
    };
    std::vector<Case> cases;
    cases.push_back({"soup-list", refRandomMesh(5, 300, 0.35), Tree::List, 10});
    cases.push_back({"soup-median", refRandomMesh(5, 300, 0.35), Tree::Median, 10});
    cases.push_back({"flats-sah", FromSah(sahSoup(600, 3)), Tree::SAH, 4});
    cases.push_back({"sphere-sah", FromSah(sahBumpySphere(32, 32)), Tree::SAH, 4});
    // Every triangle twice: exact ties between two triangle numbers decide
    // which one a hit reports.
    RefMesh twins = refRandomMesh(7, 150, 0.35);
    const size_t once = twins.tris.size();
    for (size_t k = 0; k < once; ++k) twins.tris.push_back(twins.tris[k]);
    cases.push_back({"twins-list", twins, Tree::List, 4});
    cases.push_back({"twins-sah", twins, Tree::SAH, 4});
    cases.push_back({"bunny-sah", Bunny(), Tree::SAH, 4});
    ASSERT_EQ(cases.back().mesh.triangleCount(), 3674) << "data/bunny.txt not read";
    const char* fn[4] = {"MO", "eye", "layers", "any"};
    const bool print = std::getenv("LUMR_PRINT_HASHES") != nullptr;
    int checked = 0;
    for (const Case& c : cases) {
        const Built b(c.mesh, c.tree);
        for (int packet = 0; packet < 2; ++packet) {
            Fnv fp[4];
            Counts n;
            for (int kind = 0; kind < 3; ++kind)
                RunAll(b, MakeRays(b.box, kind, 40u + unsigned(kind)), packet != 0, c.depth, fp, n);
            // The scenes must give every function work to do.
            EXPECT_GT(n.hits, kN) << c.name;
            EXPECT_GT(n.layered, kN / 4) << c.name;
            EXPECT_GT(n.blocked, kN / 8) << c.name;
            for (int f = 0; f < 4; ++f) {
                const std::string key =
                    std::string(c.name) + "/" + fn[f] + (packet ? "/packet" : "/plain");
                if (print)
                    std::printf("    {\"%s\", 0x%016llxull},\n", key.c_str(),
                                (unsigned long long)fp[f].h);
                const auto it = kRecorded.find(key);
                if (it == kRecorded.end()) {
                    ADD_FAILURE() << "no recorded fingerprint for " << key;
                    continue;
                }
                EXPECT_EQ(fp[f].h, it->second) << key;
                ++checked;
            }
        }
    }
    EXPECT_EQ(checked, 56);
}

}  // namespace
