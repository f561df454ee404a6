// SAH trees through the exported build and the nearest-hit walk: no triangle
// that the double-precision brute force hits robustly is missed, and the
// answer is the one the one-leaf list tree gives.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "kdtree/sah_mesh.h"
#include "ref/brute_hit.h"
#include "ref/tree_validator.h"

namespace {

struct Grid {
    Lum32s n;
    std::vector<Lum32f> ox, oy, oz, dx, dy, dz, dist, u, v;
    std::vector<Lum32s> tri;
    explicit Grid(Lum32s count)
        : n(count), ox(size_t(n)), oy(size_t(n)), oz(size_t(n)), dx(size_t(n)), dy(size_t(n)),
          dz(size_t(n)), dist(size_t(n)), u(size_t(n)), v(size_t(n)), tri(size_t(n)) {}
    void run(const LumRayScene& s, Lum32f limit) {
        std::fill(dist.begin(), dist.end(), limit);
        std::fill(tri.begin(), tri.end(), -99);
        LumPlanes3 o{ox.data(), oy.data(), oz.data()}, d{dx.data(), dy.data(), dz.data()};
        Lum32f* hit[2] = {u.data(), v.data()};
        ASSERT_EQ(lumrIntersectMO_32f(&o, &d, dist.data(), hit, tri.data(), &s, {n / 4, 4}),
                  lumStatusOk);
    }
};

TEST(SahIntersect, NoRobustHitIsMissed) {
    std::vector<RefMesh> meshes;
    meshes.push_back(refRandomMesh(17, 3000, 0.08));
    {
        const SahMesh s = sahBumpySphere(60, 80);
        meshes.push_back(RefMesh{s.v, s.t});
    }
    {
        const SahMesh s = sahSoup(2000, 8);
        meshes.push_back(RefMesh{s.v, s.t});
    }
    std::mt19937 rng(99);
    std::uniform_real_distribution<float> u(-1.5f, 1.5f);
    int compared = 0, hits = 0;
    for (const RefMesh& mesh : meshes) {
        const Lum32s nt = mesh.triangleCount(), nv = Lum32s(mesh.verts.size() / 3);
        std::vector<LumTriangleAccel> accel(static_cast<size_t>(nt));
        lumrTriangleAccelInit(accel.data(), mesh.verts.data(), mesh.tris.data(), nt);
        Lum32f box[6];
        lumrSetBoundBox_32f(mesh.verts.data(), nv, box);
        for (float quality : {0.0f, 1.0f}) {
            LumKDTreeNode *sah = nullptr, *list = nullptr;
            Lum32s sahSize = 0, listSize = 0;
            const LumKDTreeBuildParams ps{Lum32u(lumKDTreeTagSAH), 30, quality, 256, nullptr};
            const LumKDTreeBuildParams pl{Lum32u(lumKDTreeTagList), 0, 0, 0, nullptr};
            ASSERT_EQ(lumrKDTreeBuildAlloc(&sah, mesh.verts.data(), mesh.tris.data(), nv, nt,
                                           &sahSize, &ps),
                      lumStatusOk);
            ASSERT_EQ(lumrKDTreeBuildAlloc(&list, mesh.verts.data(), mesh.tris.data(), nv, nt,
                                           &listSize, &pl),
                      lumStatusOk);
            ASSERT_TRUE(lumrTreeIsValid(sah, sahSize, nt, 30));

            Grid g(1024), h(1024);
            for (Lum32s i = 0; i < g.n; ++i) {
                g.ox[i] = u(rng), g.oy[i] = u(rng), g.oz[i] = u(rng);
                g.dx[i] = u(rng), g.dy[i] = u(rng), g.dz[i] = u(rng);
            }
            h = g;
            g.run(LumRayScene{box, accel.data(), sah}, 10.0f);
            h.run(LumRayScene{box, accel.data(), list}, 10.0f);
            for (Lum32s i = 0; i < g.n; ++i) {
                const double o[3] = {g.ox[i], g.oy[i], g.oz[i]}, d[3] = {g.dx[i], g.dy[i], g.dz[i]};
                const RefNearest ref = refNearest(mesh, o, d, 10.0);
                if (!ref.robust) continue;
                ++compared;
                hits += ref.hit.tri >= 0;
                EXPECT_EQ(g.tri[i] < 0 ? -1 : g.tri[i], ref.hit.tri) << "ray " << i;
                EXPECT_EQ(g.tri[i], h.tri[i]) << "ray " << i;
                if (ref.hit.tri >= 0) {
                    EXPECT_EQ(g.dist[i], h.dist[i]) << "ray " << i;
                }
            }
            lumrKDTreeFree(sah);
            lumrKDTreeFree(list);
        }
    }
    EXPECT_GT(compared, 5000);
    EXPECT_GT(hits, 1000);
}

}  // namespace
