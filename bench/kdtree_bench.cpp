// KD-tree builds: the SAH build on a scanned mesh and on generated meshes of
// about 100k and 1M triangles, with the sections' fork refused (one thread)
// and allowed; the tree's shape as counters; nearest-hit rays over the SAH
// tree against the one-leaf list tree; and, when the peer ray-tracing kernel
// library is installed, its BVH builds on the same meshes on one thread.
//
// Meshes beyond the committed bunny are generated here, never stored.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "../tests/kdtree/sah_mesh.h"
#include "kdtree/block.h"
#include "kdtree/sah.h"

#if __has_include(<embree3/rtcore.h>)
#include <embree3/rtcore.h>
#define HAVE_PEER_BVH 1
#endif

namespace {


const SahMesh& mesh(int which) {
    static std::map<int, std::unique_ptr<SahMesh>> cache;
    auto& slot = cache[which];
    if (!slot) {
        if (which == 0) slot = std::make_unique<SahMesh>(sahBunny());
        if (which == 1) slot = std::make_unique<SahMesh>(sahBumpySphere(224, 224));  // 100,352
        if (which == 2) slot = std::make_unique<SahMesh>(sahBumpySphere(708, 708));  // 1,002,528
    }
    return *slot;
}
const char* meshName(int which) {
    return which == 0 ? "bunny" : which == 1 ? "sphere100k" : "sphere1M";
}

constexpr Lum32s kLimitMB = 3000;

// The tree's shape, read through the block accessors.
struct Shape {
    int64_t nodes = 0, leaves = 0, empty = 0, refs = 0;
    int depth = 0;
    void walk(const LumKDTreeNode* n, int d) {
        ++nodes;
        if (!ownNodeIsLeaf(n)) {
            walk(ownNodeChildren(n), d + 1);
            walk(ownNodeChildren(n) + 1, d + 1);
            return;
        }
        depth = std::max(depth, d);
        const Lum32s c = ownLeafTriangles(n).count;
        if (c == 0) ++empty;
        else ++leaves, refs += c;
    }
};

LumStatus buildSAH(const SahMesh& m, float quality, LumKDTreeNode** tree, Lum32s* size) {
    const LumKDTreeBuildParams p{Lum32u(lumKDTreeTagSAH), 50, quality, kLimitMB, nullptr};
    return lumrKDTreeBuildAlloc(tree, m.v.data(), m.t.data(), m.nv(), m.nt(), size, &p);
}

// args: mesh, quality x 10, threads (1: fork refused; 2: sections may fork)
void BM_SahBuild(benchmark::State& state) {
    const SahMesh& m = mesh(int(state.range(0)));
    const float quality = float(state.range(1)) / 10.0f;
    const int levels = omp_get_max_active_levels();
    if (state.range(2) == 1) omp_set_max_active_levels(0);
    LumStatus st = lumStatusOk;
    LumKDTreeNode* tree = nullptr;
    Lum32s size = 0;
    for (auto _ : state) {
        st = buildSAH(m, quality, &tree, &size);
        if (st != lumStatusOk) break;
        state.PauseTiming();
        lumrKDTreeFree(tree);
        tree = nullptr;
        state.ResumeTiming();
    }
    omp_set_max_active_levels(levels);
    state.SetLabel(std::string(meshName(int(state.range(0)))) + (st ? " status " + std::to_string(st) : ""));
    if (st != lumStatusOk) {
        state.SkipWithError("build failed");
        return;
    }
    buildSAH(m, quality, &tree, &size);
    Shape r;
    r.walk(tree, 0);
    lumrKDTreeFree(tree);
    state.counters["tris"] = m.nt();
    state.counters["nodes"] = double(r.nodes);
    state.counters["leaves"] = double(r.leaves);
    state.counters["empty"] = double(r.empty);
    state.counters["perLeaf"] = double(r.refs) / double(r.leaves);
    state.counters["depth"] = r.depth;
    state.counters["MB"] = double(size) / 1048576.0;
}
BENCHMARK(BM_SahBuild)
    ->ArgsProduct({{0, 1, 2}, {0, 5, 10}, {1, 2}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// Camera rays from outside the mesh at a 256 x 256 grid over its box.
void BM_IntersectMO(benchmark::State& state) {
    const SahMesh& m = mesh(int(state.range(0)));
    const bool sah = state.range(1) != 0;
    const Lum32s nt = m.nt();
    std::vector<LumTriangleAccel> accel(static_cast<size_t>(nt));
    lumrTriangleAccelInit(accel.data(), m.v.data(), m.t.data(), nt);
    Lum32f box[6];
    lumrSetBoundBox_32f(m.v.data(), m.nv(), box);
    LumKDTreeNode* tree = nullptr;
    Lum32s size = 0;
    if (sah) {
        buildSAH(m, 1.0f, &tree, &size);
    } else {
        const LumKDTreeBuildParams p{Lum32u(lumKDTreeTagList), 0, 0, 0, nullptr};
        lumrKDTreeBuildAlloc(&tree, m.v.data(), m.t.data(), m.nv(), nt, &size, &p);
    }
    const Lum32s w = sah ? 256 : 64, h = w, n = w * h;
    const size_t count = static_cast<size_t>(n);
    std::vector<Lum32f> ox(count), oy(count), oz(count), dx(count), dy(count), dz(count),
        dist(count), u(count), v(count);
    std::vector<Lum32s> tri(count);
    const float cx = 0.5f * (box[0] + box[3]), cy = 0.5f * (box[1] + box[4]);
    const float ex = box[3] - box[0], ey = box[4] - box[1], ez = box[5] - box[2];
    for (Lum32s j = 0; j < h; ++j)
        for (Lum32s i = 0; i < w; ++i) {
            const size_t k = size_t(j * w + i);
            ox[k] = cx, oy[k] = cy, oz[k] = box[5] + 2 * ez;
            dx[k] = (float(i) / float(w) - 0.5f) * ex;
            dy[k] = (float(j) / float(h) - 0.5f) * ey;
            dz[k] = -3 * ez;
        }
    const LumRayScene scene{box, accel.data(), tree};
    Lum32s hits = 0;
    for (auto _ : state) {
        std::fill(dist.begin(), dist.end(), 1e30f);
        LumPlanes3 o{ox.data(), oy.data(), oz.data()}, d{dx.data(), dy.data(), dz.data()};
        Lum32f* hit[2] = {u.data(), v.data()};
        lumrIntersectMO_32f(&o, &d, dist.data(), hit, tri.data(), &scene, {w, h});
        benchmark::DoNotOptimize(tri.data());
    }
    for (Lum32s t : tri) hits += t >= 0;
    lumrKDTreeFree(tree);
    state.SetLabel(std::string(meshName(int(state.range(0)))) + (sah ? " SAH tree" : " list tree"));
    state.counters["Mrays/s"] =
        benchmark::Counter(double(n) * 1e-6, benchmark::Counter::kIsIterationInvariantRate);
    state.counters["hitFraction"] = double(hits) / double(n);
}
BENCHMARK(BM_IntersectMO)->Args({0, 0})->Args({0, 1})->Args({1, 1})->Args({2, 1})->UseRealTime();

#ifdef HAVE_PEER_BVH
// The peer library is loaded at run time, so the benchmark builds without it.
struct Peer {
    void* lib = nullptr;
    RTCDevice (*newDevice)(const char*);
    void (*releaseDevice)(RTCDevice);
    RTCScene (*newScene)(RTCDevice);
    void (*releaseScene)(RTCScene);
    void (*setQuality)(RTCScene, enum RTCBuildQuality);
    RTCGeometry (*newGeometry)(RTCDevice, enum RTCGeometryType);
    void* (*newBuffer)(RTCGeometry, enum RTCBufferType, unsigned, enum RTCFormat, size_t, size_t);
    void (*commitGeometry)(RTCGeometry);
    unsigned (*attach)(RTCScene, RTCGeometry);
    void (*releaseGeometry)(RTCGeometry);
    void (*commitScene)(RTCScene);
    template <class F>
    bool get(F& f, const char* name) {
        f = reinterpret_cast<F>(dlsym(lib, name));
        return f != nullptr;
    }
    bool load() {
        lib = dlopen("libembree3.so.3", RTLD_NOW);
        return lib && get(newDevice, "rtcNewDevice") && get(releaseDevice, "rtcReleaseDevice") &&
               get(newScene, "rtcNewScene") && get(releaseScene, "rtcReleaseScene") &&
               get(setQuality, "rtcSetSceneBuildQuality") && get(newGeometry, "rtcNewGeometry") &&
               get(newBuffer, "rtcSetNewGeometryBuffer") &&
               get(commitGeometry, "rtcCommitGeometry") && get(attach, "rtcAttachGeometry") &&
               get(releaseGeometry, "rtcReleaseGeometry") && get(commitScene, "rtcCommitScene");
    }
};

// args: mesh, quality (1 medium, 2 high: spatial splits)
void BM_PeerBVHBuild(benchmark::State& state) {
    static Peer peer;
    static const bool ok = peer.load();
    if (!ok) {
        state.SkipWithError("peer library not loadable");
        return;
    }
    const SahMesh& m = mesh(int(state.range(0)));
    RTCDevice dev = peer.newDevice("threads=1");
    for (auto _ : state) {
        state.PauseTiming();
        RTCScene scene = peer.newScene(dev);
        peer.setQuality(scene, RTCBuildQuality(state.range(1)));
        RTCGeometry g = peer.newGeometry(dev, RTC_GEOMETRY_TYPE_TRIANGLE);
        auto* vb = static_cast<float*>(peer.newBuffer(g, RTC_BUFFER_TYPE_VERTEX, 0,
                                                      RTC_FORMAT_FLOAT3, 12, size_t(m.nv())));
        auto* ib = static_cast<unsigned*>(peer.newBuffer(g, RTC_BUFFER_TYPE_INDEX, 0,
                                                         RTC_FORMAT_UINT3, 12, size_t(m.nt())));
        std::copy(m.v.begin(), m.v.end(), vb);
        for (Lum32s t = 0; t < m.nt(); ++t)
            for (int k = 0; k < 3; ++k) ib[3 * t + k] = unsigned(m.t[size_t(4 * t + k)]);
        peer.commitGeometry(g);
        peer.attach(scene, g);
        peer.releaseGeometry(g);
        state.ResumeTiming();
        peer.commitScene(scene);
        state.PauseTiming();
        peer.releaseScene(scene);
        state.ResumeTiming();
    }
    peer.releaseDevice(dev);
    state.SetLabel(std::string(meshName(int(state.range(0)))) +
                   (state.range(1) == 2 ? " high (spatial splits)" : " medium"));
}
BENCHMARK(BM_PeerBVHBuild)
    ->ArgsProduct({{0, 1, 2}, {1, 2}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
#endif

}  // namespace

BENCHMARK_MAIN();
