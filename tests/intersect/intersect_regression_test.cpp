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
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <limits>
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

RefMesh bunny() {
    std::string path = __FILE__;
    std::ifstream in(path.substr(0, path.find_last_of('/')) + "/../../data/bunny.txt");
    RefMesh m;
    std::string comment;
    std::getline(in, comment);
    int nv = 0, nt = 0;
    in >> nv >> nt;
    m.verts.resize(3 * size_t(nv));
    for (Lum32f& x : m.verts) in >> x;
    for (int i = 0; i < nt; ++i) {
        Lum32s a = 0, b = 0, c = 0;
        in >> a >> b >> c;
        m.tris.insert(m.tris.end(), {a, b, c, 0});
    }
    return m;
}

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
RaySet makeRays(const Lum32f box[6], int kind, unsigned seed) {
    RaySet r;
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> uni(-1, 1);
    Lum32f c[3], e[3];
    for (int a = 0; a < 3; ++a) c[a] = 0.5f * (box[a] + box[3 + a]), e[a] = box[3 + a] - box[a];
    if (kind == 0) {
        r.eye[0] = c[0] + 0.1f * e[0], r.eye[1] = c[1] - 0.05f * e[1], r.eye[2] = box[2] - 1.5f * e[2];
    } else {
        for (int a = 0; a < 3; ++a) r.eye[a] = c[a] + 0.1f * e[a] * uni(rng);
    }
    for (int a = 0; a < 3; ++a) r.o[a].assign(kN, r.eye[a]), r.d[a].resize(kN);
    r.dist.assign(kN, 1e30f);
    for (Lum32s y = 0; y < kH; ++y)
        for (Lum32s x = 0; x < kW; ++x) {
            const size_t i = size_t(y) * kW + x;
            if (kind == 0) {
                const Lum32f tx = box[0] + e[0] * (x + 0.5f) / kW, ty = box[1] + e[1] * (y + 0.5f) / kH;
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
                for (int a = 0; a < 3; ++a) r.o[a][i] = c[a] + 0.7f * e[a] * uni(rng), r.d[a][i] = uni(rng);
                if (i % 19 == 0) r.d[2][i] = 0.0f;
            }
        }
    return r;
}

// Runs the four functions with one body on one ray set and adds their
// outputs to the fingerprints fp[0..3] (MO, eye, layers, any) and their
// hits, later-layer hits and blocked rays to n.  The streams
// sit on a 16-byte boundary (packet body) or one element past it (plain).
void runAll(const Scene& b, const RaySet& r, bool packet, Lum32s depth, Fnv fp[4], size_t (&n)[3]) {
    Grid g(kW, kH, packet ? 0 : 1, depth), sh(kW, kH, packet ? 0 : 1);
    for (size_t i = 0; i < kN; ++i) {
        const Lum32f o[3] = {r.o[0][i], r.o[1][i], r.o[2][i]}, d[3] = {r.d[0][i], r.d[1][i], r.d[2][i]};
        g.setRay(i, o, d);
    }
    auto run = [&](int f, Lum32f fill) {
        g.resetOutputs(fill);
        std::copy(r.dist.begin(), r.dist.end(), g.dist.data());
        f < 2 ? g.runNearest(b.scene, f ? r.eye : nullptr) : g.runLayers(r.eye, b.scene);
        const size_t count = f == 2 ? g.all() : kN;
        fp[f].add(g.dist.data(), count), fp[f].add(g.u.data(), count), fp[f].add(g.v.data(), count);
        fp[f].add(g.tri.data(), count);
    };
    run(0, 0.0f);
    for (size_t i = 0; i < kN; ++i) n[0] += g.tri[i] >= 0;
    run(1, 0.0f);
    // Segments from a light above the box to the eye rays' hits, pulled back
    // a little, and from misses to points spread through the box; a few rays
    // start dark.
    Lum32f light[3];
    for (int a = 0; a < 3; ++a) light[a] = b.box[3 + a] + 0.4f * (b.box[3 + a] - b.box[a]);
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> uni(0, 1);
    for (size_t i = 0; i < kN; ++i) {
        n[0] += g.tri[i] >= 0;
        Lum32f seg[3];
        for (int a = 0; a < 3; ++a)
            seg[a] = (g.tri[i] >= 0 ? r.eye[a] + 0.999f * g.dist[i] * r.d[a][i]
                                    : b.box[a] + uni(rng) * (b.box[3 + a] - b.box[a])) - light[a];
        sh.setRay(i, light, seg);
        sh.mask[i] = i % 23 == 4 ? -2 : Lum32s(i);
    }
    run(2, -5.0f);
    for (size_t i = kN; i < g.all(); ++i) n[1] += g.tri[i] >= 0;
    sh.runAny(light, &b.scene);
    fp[3].add(sh.occ.data(), kN), fp[3].add(sh.mask.data(), kN);
    for (size_t i = 0; i < kN; ++i) n[2] += sh.mask[i] < 0 && i % 23 != 4;
}

// Recorded from the walks before their speed tuning (see the top of the
// file), per scene: plain then packet, each MO, eye, layers, any.
const struct {
    const char* name;
    TreeKind tree;
    Lum32s depth;
    uint64_t hash[2][4];
} kRecorded[] = {
    {"soup-list", TreeKind::List, 10,
     {{0xee4bda56d10335a8ull, 0x5c4c91a319f7d6cfull, 0xa4d7ac4325878bd2ull, 0xef4cf466ddf92cb5ull},
      {0xf114bf38cb2562bcull, 0x4b8795810ede83feull, 0x3721752c486fb5d4ull, 0xd64ea0de9c1a0ca7ull}}},
    {"soup-median", TreeKind::Median3, 10,
     {{0xee4bda56d10335a8ull, 0xb99eb585c1e54822ull, 0x90bd8dce5d31c4caull, 0x0a69f0a58b07446cull},
      {0xa7d4f40a769135f4ull, 0x59ff934c2efbba1aull, 0x3cc983c49085fff4ull, 0x8f202cbb13d32097ull}}},
    {"flats-sah", TreeKind::SAH, 4,
     {{0x0e2a9f03ad49cb09ull, 0x9a2c4aec638302dbull, 0xaf096327d36edf46ull, 0x480e3997d4dc4035ull},
      {0xccc83e2c9a87e9d5ull, 0x20e214a1dd7df35full, 0xcc4e8ef465385044ull, 0x55dd93ad2aafa238ull}}},
    {"sphere-sah", TreeKind::SAH, 4,
     {{0x9c17bf82faca6770ull, 0x1b630d160222ade8ull, 0xd5c182fb3c5957eaull, 0xa7b47513f6d232b2ull},
      {0xb77ee137ddaf8c0dull, 0xc182b2bf1c07a5daull, 0x54b41dca723e77a7ull, 0xeb3fd35be8b016baull}}},
    {"twins-list", TreeKind::List, 4,
     {{0x47a0875f29e4e1ebull, 0xe3e5477c1ed385b9ull, 0x4f90570a79f5985aull, 0x7b66ad95052a6ed7ull},
      {0xa288e784767b93d5ull, 0x631822c5e848a39full, 0x3a24e637584041fdull, 0xe829094e44995bdfull}}},
    {"twins-sah", TreeKind::SAH, 4,
     {{0x47a0875f29e4e1ebull, 0x35341ab61d2f6153ull, 0xff522100257883d4ull, 0x6316d89c59529c39ull},
      {0x9fb0a64fde267357ull, 0xccfe62bdd7c0a549ull, 0xa4b3884bc7479387ull, 0xc0f1cc2a60bd78c1ull}}},
    {"bunny-sah", TreeKind::SAH, 4,
     {{0x4cde09c2a0c8cdb6ull, 0x29611c6d5631c944ull, 0x3d44cdcc5059ae69ull, 0xf6df61ae3d7658eaull},
      {0xb9670e60c08ba4d8ull, 0x92c5da8f29562cbcull, 0x9590bf5fc8af6da7ull, 0xc624985225340081ull}}},
};

TEST(IntersectRegression, FingerprintsOfAllOutputs) {
    // Every triangle twice: exact ties between two triangle numbers decide
    // which one a hit reports.
    const RefMesh soup = refRandomMesh(5, 300, 0.35);
    RefMesh twins = refRandomMesh(7, 150, 0.35);
    const std::vector<Lum32s> once = twins.tris;
    twins.tris.insert(twins.tris.end(), once.begin(), once.end());
    const SahMesh flats = sahSoup(600, 3), sphere = sahBumpySphere(32, 32);
    const RefMesh meshes[7] = {soup, soup, {flats.v, flats.t}, {sphere.v, sphere.t}, twins, twins, bunny()};
    ASSERT_EQ(meshes[6].triangleCount(), 3674) << "data/bunny.txt not read";
    const char* fn[4] = {"MO", "eye", "layers", "any"};
    const bool print = std::getenv("LUMR_PRINT_HASHES") != nullptr;
    for (int c = 0; c < 7; ++c) {
        const Scene b(meshes[c], kRecorded[c].tree);
        for (int packet = 0; packet < 2; ++packet) {
            Fnv fp[4];
            size_t n[3] = {0, 0, 0};  // hits, hits past the first layer, blocked
            for (int kind = 0; kind < 3; ++kind)
                runAll(b, makeRays(b.box, kind, 40u + unsigned(kind)), packet != 0, kRecorded[c].depth, fp, n);
            // The scenes must give every function work to do.
            EXPECT_GT(n[0], kN) << kRecorded[c].name;
            EXPECT_GT(n[1], kN / 4) << kRecorded[c].name;
            EXPECT_GT(n[2], kN / 8) << kRecorded[c].name;
            if (print)
                std::printf("%s %s: 0x%016llxull, 0x%016llxull, 0x%016llxull, 0x%016llxull\n", kRecorded[c].name,
                            packet ? "packet" : "plain", (unsigned long long)fp[0].h, (unsigned long long)fp[1].h,
                            (unsigned long long)fp[2].h, (unsigned long long)fp[3].h);
            for (int f = 0; f < 4; ++f)
                EXPECT_EQ(fp[f].h, kRecorded[c].hash[packet][f]) << kRecorded[c].name << "/" << fn[f] << (packet ? "/packet" : "/plain");
        }
    }
}

}  // namespace
