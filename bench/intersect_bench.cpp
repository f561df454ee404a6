// Rays per second of the intersection functions, plain body against packet
// body on the same rays in the same run, and, when the peer ray-tracing
// kernel library is installed, its single-ray and eight-ray calls on the
// same meshes, rays and thread counts.  The plain body is reached with the
// same streams shifted off their 16-byte boundary.  At the end the ratios
// are printed.
//
// First scene: a closed sphere of 320 triangles in a list tree, so every ray
// tests every triangle, under lumrIntersectMO_32f.  Camera rays are made here
// from a pinhole, one direction per pixel, with no component exactly 0.
#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "../tests/kdtree/sah_mesh.h"
#include "lumr.h"

#if __has_include(<embree3/rtcore.h>)
#include <embree3/rtcore.h>
#define HAVE_PEER 1
#endif

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
    std::vector<std::array<int, 3>> f = {
        {0, 11, 5},  {0, 5, 1},  {0, 1, 7},  {0, 7, 10}, {0, 10, 11}, {1, 5, 9}, {5, 11, 4},
        {11, 10, 2}, {10, 7, 6}, {7, 1, 8},  {3, 9, 4},  {3, 4, 2},   {3, 2, 6}, {3, 6, 8},
        {3, 8, 9},   {4, 9, 5},  {2, 4, 11}, {6, 2, 10}, {8, 6, 7},   {9, 8, 1}};
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
            p.push_back(
                norm({(p[a][0] + p[b][0]) / 2, (p[a][1] + p[b][1]) / 2, (p[a][2] + p[b][2]) / 2}));
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
        : ox(n(), shift),
          oy(n(), shift),
          oz(n(), shift),
          dx(n(), shift),
          dy(n(), shift),
          dz(n(), shift),
          dist(n(), shift),
          u(n(), shift),
          v(n(), shift),
          tri(n(), shift) {}
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

// ---- Meshes with an SAH tree: primary, shadow and layered rays ------------------
//
// The scanned bunny and a generated bumpy sphere of about a million
// triangles, each with the SAH tree of the library's own build.  A pinhole
// frames the mesh from the front; the primary rays' hits, pulled back a
// little towards the eye, are the ends of segments from a point light, and
// rays that missed start dark, as a renderer's hit stream serves as the
// shadow mask.  The caller cuts the grid into bands of 16 rows that the
// threads take in turn, one call per band, as a renderer would.  On a
// machine whose cores are busy with other work, run with
// OMP_WAIT_POLICY=passive: a thread that waits for the other at the end of
// a frame then sleeps instead of spinning on the CPU time the ratios count.

constexpr Lum32s kFrameW = 512, kFrameH = 512, kBand = 16, kLayers = 4;
constexpr size_t kFrameN = size_t(kFrameW) * kFrameH;


#ifdef HAVE_PEER
// The peer ray-tracing kernel library, loaded at run time so that the
// benchmark builds and runs without it.
struct Peer {
    void* lib = nullptr;
    RTCDevice (*newDevice)(const char*);
    RTCScene (*newScene)(RTCDevice);
    void (*setQuality)(RTCScene, enum RTCBuildQuality);
    RTCGeometry (*newGeometry)(RTCDevice, enum RTCGeometryType);
    void* (*newBuffer)(RTCGeometry, enum RTCBufferType, unsigned, enum RTCFormat, size_t, size_t);
    void (*commitGeometry)(RTCGeometry);
    unsigned (*attach)(RTCScene, RTCGeometry);
    void (*releaseGeometry)(RTCGeometry);
    void (*commitScene)(RTCScene);
    void (*intersect1)(RTCScene, RTCIntersectContext*, RTCRayHit*);
    void (*occluded1)(RTCScene, RTCIntersectContext*, RTCRay*);
    void (*intersect8)(const int*, RTCScene, RTCIntersectContext*, RTCRayHit8*);
    void (*occluded8)(const int*, RTCScene, RTCIntersectContext*, RTCRay8*);
    ssize_t (*property)(RTCDevice, enum RTCDeviceProperty);
    RTCDevice device = nullptr;
    bool packets = false;  // the 8-wide calls run natively

    template <class F>
    bool get(F& f, const char* name) {
        f = reinterpret_cast<F>(dlsym(lib, name));
        return f != nullptr;
    }
    bool load() {
        lib = dlopen("libembree3.so.3", RTLD_NOW);
        if (!(lib && get(newDevice, "rtcNewDevice") && get(newScene, "rtcNewScene") &&
              get(setQuality, "rtcSetSceneBuildQuality") && get(newGeometry, "rtcNewGeometry") &&
              get(newBuffer, "rtcSetNewGeometryBuffer") &&
              get(commitGeometry, "rtcCommitGeometry") && get(attach, "rtcAttachGeometry") &&
              get(releaseGeometry, "rtcReleaseGeometry") && get(commitScene, "rtcCommitScene") &&
              get(intersect1, "rtcIntersect1") && get(occluded1, "rtcOccluded1") &&
              get(intersect8, "rtcIntersect8") && get(occluded8, "rtcOccluded8") &&
              get(property, "rtcGetDeviceProperty")))
            return false;
        // One build thread: no worker of the peer's stays around beside the
        // timed calls, which run on the caller's threads either way.
        device = newDevice("threads=1");
        if (!device) return false;
        packets = property(device, RTC_DEVICE_PROPERTY_NATIVE_RAY8_SUPPORTED) != 0;
        return true;
    }
    RTCScene build(const SahMesh& m) {
        RTCScene scene = newScene(device);
        setQuality(scene, RTC_BUILD_QUALITY_HIGH);  // with spatial splits, its best trees
        RTCGeometry g = newGeometry(device, RTC_GEOMETRY_TYPE_TRIANGLE);
        auto* vb = static_cast<float*>(
            newBuffer(g, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, 12, size_t(m.nv())));
        auto* ib = static_cast<unsigned*>(
            newBuffer(g, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, 12, size_t(m.nt())));
        std::copy(m.v.begin(), m.v.end(), vb);
        for (Lum32s t = 0; t < m.nt(); ++t)
            for (int k = 0; k < 3; ++k) ib[3 * t + k] = unsigned(m.t[size_t(4 * t + k)]);
        commitGeometry(g);
        attach(scene, g);
        releaseGeometry(g);
        commitScene(scene);
        return scene;
    }
};

Peer* LoadedPeer() {
    static Peer peer;
    static const bool ok = peer.load();
    return ok ? &peer : nullptr;
}
#endif

// Everything one mesh needs: records, box, tree, the frame's rays and the
// primary hits and shadow segments derived from them.  Streams live twice:
// on a 32-byte boundary (packet body) and one element past it (plain body).
struct Frame {
    SahMesh mesh;
    std::vector<LumTriangleAccel> accel;
    Lum32f box[6];
    LumKDTreeNode* tree = nullptr;
    LumRayScene scene{};
    Lum32f eye[3], light[3];
    Buf<Lum32f> dir[2][3] = {
        {Buf<Lum32f>(kFrameN, 0), Buf<Lum32f>(kFrameN, 0), Buf<Lum32f>(kFrameN, 0)},
        {Buf<Lum32f>(kFrameN, 1), Buf<Lum32f>(kFrameN, 1), Buf<Lum32f>(kFrameN, 1)}};
    Buf<Lum32f> seg[2][3] = {
        {Buf<Lum32f>(kFrameN, 0), Buf<Lum32f>(kFrameN, 0), Buf<Lum32f>(kFrameN, 0)},
        {Buf<Lum32f>(kFrameN, 1), Buf<Lum32f>(kFrameN, 1), Buf<Lum32f>(kFrameN, 1)}};
    std::vector<Lum32s> lit;  // the shadow mask: the primary triangle numbers
    double hitFraction = 0, litFraction = 0, layerHits = 0;
#ifdef HAVE_PEER
    RTCScene peerScene = nullptr;
#endif

    explicit Frame(SahMesh m) : mesh(std::move(m)) {
        const Lum32s nt = mesh.nt();
        accel.resize(size_t(nt));
        lumrTriangleAccelInit(accel.data(), mesh.v.data(), mesh.t.data(), nt);
        lumrSetBoundBox_32f(mesh.v.data(), mesh.nv(), box);
        const LumKDTreeBuildParams p{Lum32u(lumKDTreeTagSAH), 50, 1.0f, 3000, nullptr};
        Lum32s size = 0;
        if (lumrKDTreeBuildAlloc(&tree, mesh.v.data(), mesh.t.data(), mesh.nv(), nt, &size, &p) !=
            lumStatusOk)
            std::abort();
        scene = {box, accel.data(), tree};
        Lum32f c[3], e[3];
        for (int a = 0; a < 3; ++a) c[a] = 0.5f * (box[a] + box[3 + a]), e[a] = box[3 + a] - box[a];
        eye[0] = c[0] + 0.1f * e[0], eye[1] = c[1] + 0.2f * e[1], eye[2] = box[5] + 1.5f * e[2];
        light[0] = c[0] - 0.8f * e[0], light[1] = box[4] + 0.7f * e[1],
        light[2] = box[5] + 0.6f * e[2];
        // The pixel grid spans 1.1 times the box's x and y extents at its middle depth.
        for (Lum32s y = 0; y < kFrameH; ++y)
            for (Lum32s x = 0; x < kFrameW; ++x) {
                const size_t i = size_t(y) * kFrameW + x;
                const Lum32f d[3] = {c[0] + 1.1f * e[0] * ((x + 0.5f) / kFrameW - 0.5f) - eye[0],
                                     c[1] - 1.1f * e[1] * ((y + 0.5f) / kFrameH - 0.5f) - eye[1],
                                     c[2] - eye[2]};
                for (int b = 0; b < 2; ++b)
                    for (int a = 0; a < 3; ++a) dir[b][a].p[i] = d[a];
            }
        Buf<Lum32f> dist(kFrameN, 0), u(kFrameN, 0), v(kFrameN, 0);
        Buf<Lum32s> tri(kFrameN, 0);
        for (size_t i = 0; i < kFrameN; ++i) dist.p[i] = 1e30f;
        LumPlanes3 dp{dir[0][0].p, dir[0][1].p, dir[0][2].p};
        Lum32f* hit[2] = {u.p, v.p};
        lumrIntersectEyeSO_32f(eye, &dp, dist.p, hit, tri.p, &scene, {kFrameW, kFrameH});
        lit.assign(tri.p, tri.p + kFrameN);
        for (size_t i = 0; i < kFrameN; ++i) {
            const bool h = tri.p[i] >= 0;
            hitFraction += h;
            for (int a = 0; a < 3; ++a) {
                const Lum32f end = h ? eye[a] + 0.999f * dist.p[i] * dir[0][a].p[i] : eye[a];
                seg[0][a].p[i] = seg[1][a].p[i] = end - light[a];
            }
        }
        hitFraction /= double(kFrameN);
#ifdef HAVE_PEER
        if (Peer* peer = LoadedPeer()) peerScene = peer->build(mesh);
#endif
    }
    ~Frame() { lumrKDTreeFree(tree); }
};

Frame& FrameOf(int which) {
    static std::map<int, std::unique_ptr<Frame>> cache;
    auto& slot = cache[which];
    if (!slot) slot = std::make_unique<Frame>(which == 0 ? sahBunny() : sahBumpySphere(708, 708));
    return *slot;
}
const char* MeshName(int which) { return which == 0 ? "bunny" : "sphere1M"; }

enum Query { kPrimary, kShadow, kLayered };
enum Impl { kPlain, kPacket, kPeer1, kPeer8 };
const char* QueryName(int q) {
    return q == kPrimary ? "primary" : q == kShadow ? "shadow" : "4 layers";
}
const char* ImplName(int i) {
    return i == kPlain    ? "lumr plain"
           : i == kPacket ? "lumr packet"
           : i == kPeer1  ? "peer 1-ray"
                          : "peer 8-ray";
}

// Outputs of one run, sized for the layered query.
struct Outputs {
    Buf<Lum32f> dist[2] = {Buf<Lum32f>(kFrameN * kLayers, 0), Buf<Lum32f>(kFrameN* kLayers, 1)};
    Buf<Lum32f> u[2] = {Buf<Lum32f>(kFrameN * kLayers, 0), Buf<Lum32f>(kFrameN* kLayers, 1)};
    Buf<Lum32f> v[2] = {Buf<Lum32f>(kFrameN * kLayers, 0), Buf<Lum32f>(kFrameN* kLayers, 1)};
    Buf<Lum32s> tri[2] = {Buf<Lum32s>(kFrameN * kLayers, 0), Buf<Lum32s>(kFrameN* kLayers, 1)};
    Buf<Lum32s> mask[2] = {Buf<Lum32s>(kFrameN, 0), Buf<Lum32s>(kFrameN, 1)};
};

// One band of rows [row, row + kBand) of the library's calls.  The layered
// query cannot take a band of its layer stack (layers are whole planes), so
// its bands are separate calls over band-sized stacks.
void LumrBand(Frame& f, Outputs& out, int query, int b, Lum32s row) {
    const size_t at = size_t(row) * kFrameW;
    const size_t band = size_t(kBand) * kFrameW;
    if (query == kPrimary) {
        LumPlanes3 d{f.dir[b][0].p + at, f.dir[b][1].p + at, f.dir[b][2].p + at};
        Lum32f* dist = out.dist[b].p + at;
        for (size_t i = 0; i < band; ++i) dist[i] = 1e30f;
        Lum32f* hit[2] = {out.u[b].p + at, out.v[b].p + at};
        lumrIntersectEyeSO_32f(f.eye, &d, dist, hit, out.tri[b].p + at, &f.scene, {kFrameW, kBand});
    } else if (query == kShadow) {
        LumPlanes3 d{f.seg[b][0].p + at, f.seg[b][1].p + at, f.seg[b][2].p + at};
        Lum32s* mask = out.mask[b].p + at;
        std::copy(f.lit.begin() + std::ptrdiff_t(at), f.lit.begin() + std::ptrdiff_t(at + band),
                  mask);
        lumrIntersectAnySO_32f(f.light, &d, out.tri[b].p + at, mask, {kFrameW, kBand}, &f.scene);
    } else {
        LumPlanes3 d{f.dir[b][0].p + at, f.dir[b][1].p + at, f.dir[b][2].p + at};
        const size_t stack = at * kLayers;  // band k's stack starts after k full stacks
        Lum32f* dist = out.dist[b].p + stack;
        for (size_t i = 0; i < band; ++i) dist[i] = 1e30f;
        Lum32f* hit[2] = {out.u[b].p + stack, out.v[b].p + stack};
        const LumVolume roi{kFrameW, kBand, kLayers};
        lumrIntersectMultipleSO_32f(f.eye, &d, dist, hit, out.tri[b].p + stack, &roi, &f.scene);
    }
}

#ifdef HAVE_PEER
void PeerBand(Frame& f, Outputs& out, int query, bool eight, Lum32s row) {
    Peer& peer = *LoadedPeer();
    RTCIntersectContext ctx;
    rtcInitIntersectContext(&ctx);
    const Lum32f* o = query == kShadow ? f.light : f.eye;
    const Buf<Lum32f>* d = query == kShadow ? f.seg[0] : f.dir[0];
    const Lum32f tfar = query == kShadow ? 1.0f : 1e30f;
    if (!eight) {
        for (Lum32s y = row; y < row + kBand; ++y)
            for (Lum32s x = 0; x < kFrameW; ++x) {
                const size_t i = size_t(y) * kFrameW + x;
                if (query == kShadow) {
                    out.mask[0].p[i] = f.lit[i];
                    if (f.lit[i] < 0) continue;
                    RTCRay r{o[0],      o[1], o[2], 0.0f, d[0].p[i], d[1].p[i],
                             d[2].p[i], 0.0f, tfar, ~0u,  0,         0};
                    peer.occluded1(f.peerScene, &ctx, &r);
                    if (r.tfar < 0) out.mask[0].p[i] = -1;
                    continue;
                }
                RTCRayHit rh;
                rh.ray = {o[0],      o[1], o[2], 0.0f, d[0].p[i], d[1].p[i],
                          d[2].p[i], 0.0f, tfar, ~0u,  0,         0};
                // Successive hits: the next search starts just past the last.
                const int layers = query == kLayered ? kLayers : 1;
                for (int l = 0; l < layers; ++l) {
                    rh.hit.geomID = RTC_INVALID_GEOMETRY_ID;
                    peer.intersect1(f.peerScene, &ctx, &rh);
                    const size_t k = size_t(l) * kFrameN + i;
                    out.dist[0].p[k] = rh.ray.tfar;
                    out.tri[0].p[k] =
                        rh.hit.geomID == RTC_INVALID_GEOMETRY_ID ? -1 : Lum32s(rh.hit.primID);
                    if (out.tri[0].p[k] < 0) break;
                    rh.ray.tnear = rh.ray.tfar * 1.000001f + 1e-7f;
                    rh.ray.tfar = 1e30f;
                }
            }
        return;
    }
    // Packets of two rows by four columns, the library's eight-ray shape.
    alignas(32) int valid[8];
    for (Lum32s y = row; y < row + kBand; y += 2)
        for (Lum32s x = 0; x < kFrameW; x += 4) {
            if (query == kShadow) {
                alignas(32) RTCRay8 r;
                bool any = false;
                for (int l = 0; l < 8; ++l) {
                    const size_t i = size_t(y + l / 4) * kFrameW + size_t(x + l % 4);
                    out.mask[0].p[i] = f.lit[i];
                    valid[l] = f.lit[i] >= 0 ? -1 : 0;
                    any |= valid[l] != 0;
                    r.org_x[l] = o[0], r.org_y[l] = o[1], r.org_z[l] = o[2];
                    r.dir_x[l] = d[0].p[i], r.dir_y[l] = d[1].p[i], r.dir_z[l] = d[2].p[i];
                    r.tnear[l] = 0, r.tfar[l] = tfar, r.time[l] = 0;
                    r.mask[l] = ~0u, r.id[l] = 0, r.flags[l] = 0;
                }
                if (!any) continue;
                peer.occluded8(valid, f.peerScene, &ctx, &r);
                for (int l = 0; l < 8; ++l)
                    if (valid[l] && r.tfar[l] < 0)
                        out.mask[0].p[size_t(y + l / 4) * kFrameW + size_t(x + l % 4)] = -1;
                continue;
            }
            alignas(32) RTCRayHit8 rh;
            for (int l = 0; l < 8; ++l) {
                const size_t i = size_t(y + l / 4) * kFrameW + size_t(x + l % 4);
                valid[l] = -1;
                rh.ray.org_x[l] = o[0], rh.ray.org_y[l] = o[1], rh.ray.org_z[l] = o[2];
                rh.ray.dir_x[l] = d[0].p[i], rh.ray.dir_y[l] = d[1].p[i],
                rh.ray.dir_z[l] = d[2].p[i];
                rh.ray.tnear[l] = 0, rh.ray.tfar[l] = tfar, rh.ray.time[l] = 0;
                rh.ray.mask[l] = ~0u, rh.ray.id[l] = 0, rh.ray.flags[l] = 0;
                rh.hit.geomID[l] = RTC_INVALID_GEOMETRY_ID;
            }
            peer.intersect8(valid, f.peerScene, &ctx, &rh);
            for (int l = 0; l < 8; ++l) {
                const size_t i = size_t(y + l / 4) * kFrameW + size_t(x + l % 4);
                out.dist[0].p[i] = rh.ray.tfar[l];
                out.tri[0].p[i] =
                    rh.hit.geomID[l] == RTC_INVALID_GEOMETRY_ID ? -1 : Lum32s(rh.hit.primID[l]);
            }
        }
}
#endif

// args: mesh (0 bunny, 1 sphere1M), query, implementation, threads
void BM_Frame(benchmark::State& state) {
    const int which = int(state.range(0)), query = int(state.range(1)), impl = int(state.range(2));
    const int threads = int(state.range(3));
    Frame& f = FrameOf(which);
#ifdef HAVE_PEER
    const bool peerOk = LoadedPeer() != nullptr;
#else
    const bool peerOk = false;
#endif
    if (impl >= kPeer1 && (!peerOk || (impl == kPeer8 && query == kLayered))) {
        state.SkipWithError(peerOk ? "no packet form of this query" : "peer library not loadable");
        return;
    }
    static Outputs out;
    const int b = impl == kPlain ? 1 : 0;
    for (auto _ : state) {
#pragma omp parallel for num_threads(threads) schedule(dynamic, 1)
        for (Lum32s row = 0; row < kFrameH; row += kBand) {
            if (impl <= kPacket) {
                LumrBand(f, out, query, b, row);
            } else {
#ifdef HAVE_PEER
                PeerBand(f, out, query, impl == kPeer8, row);
#endif
            }
        }
        benchmark::ClobberMemory();
    }
    size_t found = 0;
    const Lum32s* t = query == kShadow ? out.mask[impl == kPlain].p : out.tri[b].p;
    for (size_t i = 0; i < kFrameN; ++i) {
        // The library's layered bands are stacks of their own; count layer 0.
        const size_t band = size_t(kBand) * kFrameW;
        const size_t k =
            query == kLayered && impl <= kPacket ? (i / band) * band * kLayers + i % band : i;
        found += t[k] >= 0;
    }
    state.counters["Mrays/s"] =
        benchmark::Counter(double(kFrameN) * 1e-6, benchmark::Counter::kIsIterationInvariantRate);
    state.counters[query == kShadow ? "litFraction" : "hitFraction"] =
        double(found) / double(kFrameN);
    state.SetLabel(std::string(MeshName(which)) + " " + QueryName(query) + " " + ImplName(impl) +
                   " " + std::to_string(threads) + "T");
}
BENCHMARK(BM_Frame)
    ->ArgsProduct(
        {{0, 1}, {kPrimary, kShadow, kLayered}, {kPlain, kPacket, kPeer1, kPeer8}, {1, 2}})
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

// ---- Ratios -----------------------------------------------------------------------

// Collects every run's rate beside the usual console table and, at the end,
// prints the ratios the figures are read by.  Rays per second of one thread
// are taken over CPU time (the machine is shared, and a preempted thread
// does no work); the two-thread speed-up is taken over wall time, and
// beside it the rays per CPU second of the whole process, which shows what
// cutting the rays costs when the cores are not free.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    struct Rate {
        double cpu = 0, real = 0;
    };
    std::map<std::string, Rate> rates;  // by label

    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& r : runs) {
            if (r.error_occurred || r.iterations == 0) continue;
            rates[r.report_label] = {r.cpu_accumulated_time, r.real_accumulated_time};
            iterations[r.report_label] = double(r.iterations);
        }
    }
    std::map<std::string, double> iterations;

    double rate(const std::string& label, bool cpu, double rays) const {
        const auto it = rates.find(label);
        if (it == rates.end()) return 0;
        const double seconds = cpu ? it->second.cpu : it->second.real;
        return seconds > 0 ? rays * iterations.at(label) / seconds * 1e-6 : 0;
    }
};

void PrintRatios(const RatioReporter& rep) {
    auto line = [](const char* what, double num, double den) {
        if (num > 0 && den > 0) std::printf("  %-58s %6.2f\n", what, num / den);
    };
    std::printf(
        "\nRatios (Mrays/s over CPU time for one thread; wall and process CPU time for 2T/1T)\n");
#ifdef HAVE_PEER
    if (const Peer* peer = LoadedPeer())
        std::printf("peer: BVH built at high quality (spatial splits); eight-ray calls %s\n",
                    peer->packets ? "native" : "emulated by the peer");
#endif
    for (int m = 0; m < 2; ++m)
        for (int q = 0; q < 3; ++q) {
            auto label = [&](int impl, int t) {
                return std::string(MeshName(m)) + " " + QueryName(q) + " " + ImplName(impl) + " " +
                       std::to_string(t) + "T";
            };
            auto cpu1 = [&](int impl) { return rep.rate(label(impl, 1), true, double(kFrameN)); };
            std::printf("%s, %s rays, 1 thread:", MeshName(m), QueryName(q));
            for (int i = 0; i < 4; ++i)
                if (cpu1(i) > 0) std::printf("  %s %.2f", ImplName(i), cpu1(i));
            std::printf(" Mrays/s\n");
            line("lumr packet / lumr plain", cpu1(kPacket), cpu1(kPlain));
            line("lumr packet / peer 1-ray", cpu1(kPacket), cpu1(kPeer1));
            line("lumr packet / peer 8-ray", cpu1(kPacket), cpu1(kPeer8));
            line("lumr plain / peer 1-ray", cpu1(kPlain), cpu1(kPeer1));
            for (int i = 0; i < 4; ++i) {
                const std::string what = std::string(ImplName(i)) + ": 2 threads / 1 thread (wall)";
                line(what.c_str(), rep.rate(label(i, 2), false, double(kFrameN)),
                     rep.rate(label(i, 1), false, double(kFrameN)));
                // Rays per CPU second of both threads together against one
                // thread: 1.00 means that cutting the rays costs nothing, so
                // that two free cores would give twice the rate.
                const std::string cpu = std::string(ImplName(i)) + ": 2 threads / 1 thread (CPU)";
                line(cpu.c_str(), rep.rate(label(i, 2), true, double(kFrameN)),
                     rep.rate(label(i, 1), true, double(kFrameN)));
            }
            for (int i = 0; i < 2; ++i) {
                const std::string what =
                    std::string("lumr packet / ") + ImplName(2 + i) + ", 2 threads (wall)";
                line(what.c_str(), rep.rate(label(kPacket, 2), false, double(kFrameN)),
                     rep.rate(label(2 + i, 2), false, double(kFrameN)));
            }
        }
    const double listRays = double(Rays::n());
    for (const char* kind : {"camera", "random"}) {
        const std::string name = std::string(kind);
        line((name + " rays, list tree of 320: MO packet / MO plain").c_str(),
             rep.rate(name + " packet", true, listRays), rep.rate(name + " plain", true, listRays));
    }
}
}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    PrintRatios(reporter);
    benchmark::Shutdown();
    return 0;
}
