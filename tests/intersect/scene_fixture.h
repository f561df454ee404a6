// Shared by the intersection suites: scenes with their records, box and
// tree, and ray grids whose streams can be placed on or off a 16-byte boundary.
#pragma once

#include "ref/brute_hit.h"
#include "rays/ray_buffers.h"

enum class TreeKind { List, Median3, Median8, SAH };

// A mesh made ready for rays: records, box and a tree (the list or SAH
// build, or the test-only median tree with leaves of up to 3 or 8).
struct Scene {
    RefMesh mesh;
    std::vector<LumTriangleAccel> accel;
    Lum32f box[6];
    LumKDTreeNode* built = nullptr;
    std::vector<LumKDTreeNode> median;
    LumRayScene scene{};

    Scene(RefMesh m, TreeKind kind) : mesh(std::move(m)) {
        const Lum32s n = mesh.triangleCount(), nv = Lum32s(mesh.verts.size() / 3);
        accel.resize(size_t(n) + 1);
        lumrTriangleAccelInit(accel.data(), mesh.verts.data(), mesh.tris.data(), n);
        lumrSetBoundBox_32f(mesh.verts.data(), nv, box);
        if (kind == TreeKind::Median3 || kind == TreeKind::Median8) {
            median = refMedianTree(mesh, box, kind == TreeKind::Median3 ? 3 : 8, 24);
            scene = {box, accel.data(), median.data()};
            return;
        }
        const LumKDTreeBuildParams p{Lum32u(kind == TreeKind::List ? lumKDTreeTagList : lumKDTreeTagSAH),
                                     kind == TreeKind::List ? 0 : 50, 1.0f, 1024, nullptr};
        Lum32s size = 0;
        const Lum32f dummy = 0;  // an empty mesh still passes real pointers
        const Lum32s* tris = n ? mesh.tris.data() : &size;
        EXPECT_EQ(lumrKDTreeBuildAlloc(&built, nv ? mesh.verts.data() : &dummy, tris, nv, n, &size, &p), lumStatusOk);
        scene = {box, accel.data(), built};
    }
    ~Scene() { lumrKDTreeFree(built); }
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;
};

// A grid of rays with every stream the four intersection functions take;
// the outputs have `depth` layers and start at recognisable values.
struct Grid {
    Lum32s width, height, depth;
    Stream<Lum32f> ox, oy, oz, dx, dy, dz, dist, u, v;
    Stream<Lum32s> tri, occ, mask;
    Grid(Lum32s w, Lum32s h, size_t shift = 0, Lum32s layers = 1)
        : width(w), height(h), depth(layers), ox(n(), shift), oy(n(), shift), oz(n(), shift),
          dx(n(), shift), dy(n(), shift), dz(n(), shift), dist(all(), shift, -3.0f),
          u(all(), shift, -7.0f), v(all(), shift, -7.0f), tri(all(), shift, -99),
          occ(n(), shift, -99), mask(n(), shift, 0) {}
    size_t n() const { return size_t(width) * size_t(height); }
    size_t all() const { return n() * size_t(depth); }
    size_t at(Lum32s layer, size_t i) const { return size_t(layer) * n() + i; }
    void setRay(size_t i, const Lum32f o[3], const Lum32f d[3]) {
        ox[i] = o[0], oy[i] = o[1], oz[i] = o[2];
        dx[i] = d[0], dy[i] = d[1], dz[i] = d[2];
    }
    void resetOutputs(Lum32f limit) { dist.fill(limit), u.fill(-7.0f), v.fill(-7.0f), tri.fill(-99); }
    LumPlanes3 origin() { return {ox.data(), oy.data(), oz.data()}; }
    LumPlanes3 dir() { return {dx.data(), dy.data(), dz.data()}; }
    // Nearest hits with a per-ray origin, or with `shared` where it is given.
    void runNearest(const LumRayScene& s, const Lum32f* shared = nullptr) {
        LumPlanes3 o = origin(), d = dir();
        Lum32f* hit[2] = {u.data(), v.data()};
        EXPECT_EQ(shared ? lumrIntersectEyeSO_32f(shared, &d, dist.data(), hit, tri.data(), &s, {width, height})
                         : lumrIntersectMO_32f(&o, &d, dist.data(), hit, tri.data(), &s, {width, height}),
                  lumStatusOk);
    }
    void runLayers(const Lum32f o[3], const LumRayScene& s) {
        LumPlanes3 d = dir();
        Lum32f* hit[2] = {u.data(), v.data()};
        const LumVolume roi{width, height, depth};
        EXPECT_EQ(lumrIntersectMultipleSO_32f(o, &d, dist.data(), hit, tri.data(), &roi, &s), lumStatusOk);
    }
    void runAny(const Lum32f o[3], const LumRayScene* s) {
        LumPlanes3 d = dir();
        EXPECT_EQ(lumrIntersectAnySO_32f(o, &d, occ.data(), mask.data(), {width, height}, s), lumStatusOk);
    }
};

// The layouts the reference comparisons run: 16 x 16 aligned takes the
// packet body; 15 x 16, or streams one element off, the plain one.
struct Layout {
    Lum32s width;
    size_t shift;
    bool packet;
};
constexpr Layout kLayouts[3] = {{16, 0, true}, {15, 0, false}, {16, 1, false}};
