// Rays per second of the intersection functions, plain body against packet
// body on the same rays in the same run.  The plain body is reached with the
// same streams shifted off their 16-byte boundary.
//
// Scenes: a closed sphere of 320 triangles (list tree: every ray tests every
// triangle) for the nearest-hit comparison.  Camera rays are made here from
// a pinhole, one direction per pixel, with no component exactly 0.
#include <benchmark/benchmark.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "lumr.h"

namespace {

template <class T>
struct Buf {  // n values, 32-byte aligned, then shifted by `shift` elements
    std::vector<T> store;
    T* p;
    Buf(size_t n, size_t shift) : store(n + 16) {
        auto a = (reinterpret_cast<std::uintptr_t>(store.data()) + 31) & ~std::uintptr_t(31);
        p = reinterpret_cast<T*>(a) + shift;
    }
};

struct Mesh {
    std::vector<Lum32f> v;
    std::vector<Lum32s> t;
};

// Icosahedron subdivided `levels` times onto the unit sphere.
Mesh Sphere(int levels) {
    const double g = (1 + std::sqrt(5.0)) / 2;
    std::vector<std::array<double, 3>> p = {{-1, g, 0}, {1, g, 0}, {-1, -g, 0}, {1, -g, 0},
                                            {0, -1, g}, {0, 1, g}, {0, -1, -g}, {0, 1, -g},
                                            {g, 0, -1}, {g, 0, 1}, {-g, 0, -1}, {-g, 0, 1}};
    std::vector<std::array<int, 3>> f = {{0, 11, 5}, {0, 5, 1},  {0, 1, 7},   {0, 7, 10}, {0, 10, 11},
                                         {1, 5, 9},  {5, 11, 4}, {11, 10, 2}, {10, 7, 6}, {7, 1, 8},
                                         {3, 9, 4},  {3, 4, 2},  {3, 2, 6},   {3, 6, 8},  {3, 8, 9},
                                         {4, 9, 5},  {2, 4, 11}, {6, 2, 10},  {8, 6, 7},  {9, 8, 1}};
    auto norm = [](std::array<double, 3> a) {
        const double l = std::sqrt(a[0] * a[0] + a[1] * a[1] + a[2] * a[2]);
        return std::array<double, 3>{a[0] / l, a[1] / l, a[2] / l};
    };
    for (auto& q : p) q = norm(q);
    for (int l = 0; l < levels; ++l) {
        std::map<std::pair<int, int>, int> mid;
        auto midpoint = [&](int a, int b) {
            auto key = std::make_pair(std::min(a, b), std::max(a, b));
            auto it = mid.find(key);
            if (it != mid.end()) return it->second;
            p.push_back(norm({(p[a][0] + p[b][0]) / 2, (p[a][1] + p[b][1]) / 2,
                              (p[a][2] + p[b][2]) / 2}));
            return mid[key] = int(p.size()) - 1;
        };
        std::vector<std::array<int, 3>> nf;
        for (auto& t : f) {
            const int a = midpoint(t[0], t[1]), b = midpoint(t[1], t[2]), c = midpoint(t[2], t[0]);
            nf.push_back({t[0], a, c});
            nf.push_back({t[1], b, a});
            nf.push_back({t[2], c, b});
            nf.push_back({a, b, c});
        }
        f = nf;
    }
    Mesh m;
    for (auto& q : p)
        for (double c : q) m.v.push_back(Lum32f(c));
    for (auto& t : f) m.t.insert(m.t.end(), {t[0], t[1], t[2], 0});
    return m;
}

struct World {
    Mesh mesh;
    std::vector<LumTriangleAccel> accel;
    Lum32f box[6];
    LumKDTreeNode* tree = nullptr;
    LumRayScene scene;
    explicit World(Mesh m) : mesh(std::move(m)) {
        const Lum32s n = Lum32s(mesh.t.size() / 4), nv = Lum32s(mesh.v.size() / 3);
        accel.resize(n);
        lumrTriangleAccelInit(accel.data(), mesh.v.data(), mesh.t.data(), n);
        lumrSetBoundBox_32f(mesh.v.data(), nv, box);
        const LumKDTreeBuildParams p{Lum32u(lumKDTreeTagList), 0, 0.0f, 0, nullptr};
        Lum32s size;
        lumrKDTreeBuildAlloc(&tree, mesh.v.data(), mesh.t.data(), nv, n, &size, &p);
        scene = {box, accel.data(), tree};
    }
    ~World() { lumrKDTreeFree(tree); }
};

World& SphereWorld() {
    static World w(Sphere(2));  // 320 triangles
    return w;
}

constexpr Lum32s kW = 256, kH = 256;
const Lum32f kEye[3] = {0.1f, 0.2f, -3.0f};

struct Rays {
    Buf<Lum32f> ox, oy, oz, dx, dy, dz, dist, u, v;
    Buf<Lum32s> tri;
    explicit Rays(size_t shift)
        : ox(n(), shift), oy(n(), shift), oz(n(), shift), dx(n(), shift), dy(n(), shift),
          dz(n(), shift), dist(n(), shift), u(n(), shift), v(n(), shift), tri(n(), shift) {}
    static size_t n() { return size_t(kW) * kH; }
};

// Pinhole camera rays at the sphere, or random origins and directions.
void MakeRays(Rays& r, bool coherent) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> u(-1, 1);
    for (Lum32s y = 0; y < kH; ++y)
        for (Lum32s x = 0; x < kW; ++x) {
            const size_t i = size_t(y) * kW + x;
            if (coherent) {
                r.ox.p[i] = kEye[0], r.oy.p[i] = kEye[1], r.oz.p[i] = kEye[2];
                r.dx.p[i] = (x + 0.5f) / kW - 0.5f - 0.1f / 3;
                r.dy.p[i] = (y + 0.5f) / kH - 0.5f - 0.2f / 3;
                r.dz.p[i] = 1.0f;
            } else {
                r.ox.p[i] = 2 * u(rng), r.oy.p[i] = 2 * u(rng), r.oz.p[i] = 2 * u(rng);
                r.dx.p[i] = u(rng), r.dy.p[i] = u(rng), r.dz.p[i] = u(rng);
            }
        }
}

void BM_IntersectMO(benchmark::State& state) {
    const bool coherent = state.range(0) != 0, packet = state.range(1) != 0;
    World& w = SphereWorld();
    Rays r(packet ? 0 : 1);
    MakeRays(r, coherent);
    LumPlanes3 o{r.ox.p, r.oy.p, r.oz.p}, d{r.dx.p, r.dy.p, r.dz.p};
    Lum32f* hit[2] = {r.u.p, r.v.p};
    for (auto _ : state) {
        for (size_t i = 0; i < Rays::n(); ++i) r.dist.p[i] = 1e30f;
        lumrIntersectMO_32f(&o, &d, r.dist.p, hit, r.tri.p, &w.scene, {kW, kH});
        benchmark::DoNotOptimize(r.tri.p[0]);
    }
    state.SetItemsProcessed(state.iterations() * Lum64f(Rays::n()));
    state.SetLabel(std::string(coherent ? "camera" : "random") + (packet ? " packet" : " plain"));
}
BENCHMARK(BM_IntersectMO)->ArgsProduct({{1, 0}, {0, 1}})->Unit(benchmark::kMillisecond);

void BM_IntersectEyeSO(benchmark::State& state) {
    const bool packet = state.range(0) != 0;
    World& w = SphereWorld();
    Rays r(packet ? 0 : 1);
    MakeRays(r, true);
    LumPlanes3 d{r.dx.p, r.dy.p, r.dz.p};
    Lum32f* hit[2] = {r.u.p, r.v.p};
    for (auto _ : state) {
        for (size_t i = 0; i < Rays::n(); ++i) r.dist.p[i] = 1e30f;
        lumrIntersectEyeSO_32f(kEye, &d, r.dist.p, hit, r.tri.p, &w.scene, {kW, kH});
        benchmark::DoNotOptimize(r.tri.p[0]);
    }
    state.SetItemsProcessed(state.iterations() * Lum64f(Rays::n()));
    state.SetLabel(packet ? "camera packet" : "camera plain");
}
BENCHMARK(BM_IntersectEyeSO)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
