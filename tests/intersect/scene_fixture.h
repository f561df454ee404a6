// Shared by the intersection suites: scenes with their records, box and
// tree, and ray streams that can be placed on or off a 16-byte boundary.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "lumr.h"
#include "ref/brute_hit.h"

// n elements starting `shift` elements past a 32-byte boundary.
template <class T>
class Stream {
public:
    Stream(size_t n = 0, size_t shift = 0) : n_(n), store_(n + 16) {
        auto p = reinterpret_cast<std::uintptr_t>(store_.data());
        p = (p + 31) & ~std::uintptr_t(31);
        data_ = reinterpret_cast<T*>(p) + shift;
    }
    Stream(const Stream& o) : Stream(o.n_, o.data_ - o.aligned()) {
        std::memcpy(data_, o.data_, n_ * sizeof(T));
    }
    Stream& operator=(const Stream&) = delete;
    T* data() { return data_; }
    const T* data() const { return data_; }
    T& operator[](size_t i) { return data_[i]; }
    const T& operator[](size_t i) const { return data_[i]; }
    size_t size() const { return n_; }
    void fill(T v) {
        for (size_t i = 0; i < n_; ++i) data_[i] = v;
    }

private:
    T* aligned() const {
        auto p = reinterpret_cast<std::uintptr_t>(store_.data());
        return reinterpret_cast<T*>((p + 31) & ~std::uintptr_t(31));
    }
    size_t n_;
    std::vector<T> store_;
    T* data_;
};

enum class TreeKind { List, Median3, Median8 };

// A mesh made ready for rays: records, box and a tree.
struct Scene {
    RefMesh mesh;
    std::vector<LumTriangleAccel> accel;
    Lum32f box[6];
    LumKDTreeNode* listTree = nullptr;
    std::vector<LumKDTreeNode> ownTree;
    LumRayScene scene{};

    Scene(RefMesh m, TreeKind kind) : mesh(std::move(m)) {
        const Lum32s n = mesh.triangleCount();
        accel.resize(size_t(n) + 1);
        lumrTriangleAccelInit(accel.data(), mesh.verts.data(), mesh.tris.data(), n);
        lumrSetBoundBox_32f(mesh.verts.data(), Lum32s(mesh.verts.size() / 3), box);
        if (kind == TreeKind::List) {
            const LumKDTreeBuildParams p{Lum32u(lumKDTreeTagList), 0, 0.0f, 0, nullptr};
            Lum32s size = 0;
            const Lum32f dummy = 0;
            const Lum32s* tris = n ? mesh.tris.data() : reinterpret_cast<const Lum32s*>(&size);
            EXPECT_EQ(lumrKDTreeBuildAlloc(&listTree, mesh.verts.empty() ? &dummy : mesh.verts.data(),
                                           tris, Lum32s(mesh.verts.size() / 3), n, &size, &p),
                      lumStatusOk);
            scene = {box, accel.data(), listTree};
        } else {
            ownTree = refMedianTree(mesh, box, kind == TreeKind::Median3 ? 3 : 8, 24);
            scene = {box, accel.data(), ownTree.data()};
        }
    }
    ~Scene() { lumrKDTreeFree(listTree); }
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;
};

// One grid of rays with every stream the nearest-hit functions take.
struct RayGrid {
    Lum32s width, height;
    Stream<Lum32f> ox, oy, oz, dx, dy, dz, dist, u, v;
    Stream<Lum32s> tri;
    RayGrid(Lum32s w, Lum32s h, size_t shift = 0)
        : width(w), height(h), ox(n(), shift), oy(n(), shift), oz(n(), shift), dx(n(), shift),
          dy(n(), shift), dz(n(), shift), dist(n(), shift), u(n(), shift), v(n(), shift),
          tri(n(), shift) {}
    size_t n() const { return size_t(width) * size_t(height); }
    LumPlanes3 origin() { return {ox.data(), oy.data(), oz.data()}; }
    LumPlanes3 dir() { return {dx.data(), dy.data(), dz.data()}; }
    void setRay(size_t i, const Lum32f o[3], const Lum32f d[3]) {
        ox[i] = o[0], oy[i] = o[1], oz[i] = o[2];
        dx[i] = d[0], dy[i] = d[1], dz[i] = d[2];
    }
    // Outputs set to recognisable values before a call.
    void resetOutputs(Lum32f limit) {
        dist.fill(limit);
        u.fill(-7.0f);
        v.fill(-7.0f);
        tri.fill(-99);
    }
    LumStatus runMO(const LumRayScene& s) {
        LumPlanes3 o = origin(), d = dir();
        Lum32f* hit[2] = {u.data(), v.data()};
        return lumrIntersectMO_32f(&o, &d, dist.data(), hit, tri.data(), &s, {width, height});
    }
    LumStatus runEye(const Lum32f o[3], const LumRayScene& s) {
        LumPlanes3 d = dir();
        Lum32f* hit[2] = {u.data(), v.data()};
        return lumrIntersectEyeSO_32f(o, &d, dist.data(), hit, tri.data(), &s, {width, height});
    }
};
