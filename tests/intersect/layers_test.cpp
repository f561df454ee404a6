// Successive hits along each ray: a stack of parallel quads worked by hand,
// what later layers hold, and agreement of both bodies with the ordered
// crossings of the double-precision reference.
#include <algorithm>
#include <random>

#include "scene_fixture.h"

namespace {

// A grid of rays sharing one origin, with `depth` layers of outputs.
struct LayerGrid {
    Lum32s width, height, depth;
    Stream<Lum32f> dx, dy, dz, dist, u, v;
    Stream<Lum32s> tri;
    LayerGrid(Lum32s w, Lum32s h, Lum32s d, size_t shift = 0)
        : width(w), height(h), depth(d), dx(plane(), shift), dy(plane(), shift), dz(plane(), shift),
          dist(all(), shift), u(all(), shift), v(all(), shift), tri(all(), shift) {
        dist.fill(-3.0f), u.fill(-7.0f), v.fill(-7.0f), tri.fill(-99);
    }
    size_t plane() const { return size_t(width) * size_t(height); }
    size_t all() const { return plane() * size_t(depth); }
    size_t at(Lum32s layer, size_t i) const { return size_t(layer) * plane() + i; }
    void run(const Lum32f o[3], const LumRayScene& s) {
        LumPlanes3 d{dx.data(), dy.data(), dz.data()};
        Lum32f* hit[2] = {u.data(), v.data()};
        const LumVolume roi{width, height, depth};
        EXPECT_EQ(lumrIntersectMultipleSO_32f(o, &d, dist.data(), hit, tri.data(), &roi, &s),
                  lumStatusOk);
    }
};

// Quads of two triangles each over [-1, 1]^2 at z = 1, 2, ..., count; the
// diagonal runs from (-1,-1) to (1,1), and triangle 2k + 1 lies above it.
RefMesh QuadStack(int count) {
    RefMesh m;
    for (int k = 0; k < count; ++k) {
        const Lum32f z = Lum32f(k + 1);
        m.verts.insert(m.verts.end(), {-1, -1, z, 1, -1, z, 1, 1, z, -1, 1, z});
        const Lum32s b = 4 * k;
        m.tris.insert(m.tris.end(), {b, b + 1, b + 2, 0, b, b + 2, b + 3, 0});
    }
    return m;
}

TEST(IntersectLayers, StackOfParallelQuads) {
    const Lum32f o[3] = {0.013f, 0.021f, 0.0f};
    for (TreeKind kind : {TreeKind::List, TreeKind::Median3}) {
        Scene s(QuadStack(5), kind);
        for (int packet = 0; packet < 2; ++packet) {
            // Seven layers for five quads: two layers too many.
            LayerGrid g(packet ? 4 : 3, packet ? 4 : 1, 7);
            for (size_t i = 0; i < g.plane(); ++i) {  // each ray stays above the diagonal
                g.dx[i] = 0.01f + 0.001f * Lum32f(i);
                g.dy[i] = 0.03f + 0.001f * Lum32f(i);
                g.dz[i] = 1.0f;
            }
            for (size_t i = 0; i < g.plane(); ++i) g.dist[i] = 1e30f;
            g.run(o, s.scene);
            for (size_t i = 0; i < g.plane(); ++i) {
                for (Lum32s l = 0; l < 5; ++l) {
                    // Layer l meets z = l + 1 at t = l + 1, measured from the origin.
                    ASSERT_EQ(g.tri[g.at(l, i)], 2 * l + 1) << "layer " << l << " ray " << i;
                    EXPECT_NEAR(g.dist[g.at(l, i)], Lum32f(l + 1), 1e-5f * (l + 1));
                    // Above the diagonal, with A = (-1,-1), B = (1,1), C = (-1,1):
                    // u = (1 - y) / 2, v = (1 + x) / 2.
                    const Lum32f x = o[0] + (l + 1) * g.dx[i], y = o[1] + (l + 1) * g.dy[i];
                    EXPECT_NEAR(g.u[g.at(l, i)], (1 - y) / 2, 1e-5f);
                    EXPECT_NEAR(g.v[g.at(l, i)], (1 + x) / 2, 1e-5f);
                }
                // No sixth hit: layer 5 says so and starts from the far
                // distance; layer 6 is never written.
                EXPECT_EQ(g.tri[g.at(5, i)], -1);
                EXPECT_EQ(g.dist[g.at(5, i)], 3.4028235e38f);
                EXPECT_EQ(g.tri[g.at(6, i)], -1);
                EXPECT_EQ(g.dist[g.at(6, i)], -3.0f);
                EXPECT_EQ(g.u[g.at(6, i)], -7.0f);
            }
        }
    }
}

TEST(IntersectLayers, BothBodiesAgreeWithOrderedCrossings) {
    constexpr Lum32s kDepth = 4;
    int robust = 0, layersSeen = 0;
    unsigned seed = 40;
    for (TreeKind kind : {TreeKind::List, TreeKind::Median3, TreeKind::Median8}) {
        Scene s(refRandomMesh(seed++, 120, 0.4), kind);
        std::mt19937 rng(seed++);
        std::uniform_real_distribution<float> uni(-1, 1);
        for (int layout = 0; layout < 3; ++layout) {
            const Lum32f o[3] = {2 * uni(rng), 2 * uni(rng), 2 * uni(rng)};
            LayerGrid g(layout == 1 ? 15 : 16, 16, kDepth, layout == 2 ? 1 : 0);
            for (size_t i = 0; i < g.plane(); ++i) {
                // Aim near the middle of the scene so most rays cross several triangles.
                g.dx[i] = 0.4f * uni(rng) - o[0], g.dy[i] = 0.4f * uni(rng) - o[1];
                g.dz[i] = 0.4f * uni(rng) - o[2];
                g.dist[i] = i % 9 == 4 ? 0.0f : 1e30f;  // a limit of 0 never hits
            }
            g.run(o, s.scene);
            for (size_t i = 0; i < g.plane(); ++i) {
                const double od[3] = {o[0], o[1], o[2]}, dd[3] = {g.dx[i], g.dy[i], g.dz[i]};
                if (i % 9 == 4) {
                    EXPECT_EQ(g.tri[i], -1);
                    EXPECT_EQ(g.dist[i], 0.0f);
                    EXPECT_EQ(g.dist[g.at(1, i)], -3.0f);
                    continue;
                }
                const RefCrossings c = refCrossings(s.mesh, od, dd, 0.0, 1e30);
                const size_t want = std::min<size_t>(kDepth, c.hits.size());
                if (c.ambiguous() && (want < size_t(kDepth) ||
                                      c.firstAmbiguousT <= c.hits[want - 1].t * (1 + 1e-4) + 1e-4))
                    continue;
                ++robust;
                for (size_t l = 0; l < want; ++l) {
                    const size_t at = g.at(Lum32s(l), i);
                    ASSERT_EQ(g.tri[at], c.hits[l].tri) << "layer " << l << " ray " << i;
                    EXPECT_NEAR(g.dist[at], c.hits[l].t, 2e-4 * (1 + c.hits[l].t)) << "layout " << layout << " layer " << l;
                    EXPECT_NEAR(g.u[at], c.hits[l].u, 2e-3);
                    EXPECT_NEAR(g.v[at], c.hits[l].v, 2e-3);
                    ++layersSeen;
                }
                if (want < size_t(kDepth)) {
                    const size_t at = g.at(Lum32s(want), i);
                    EXPECT_EQ(g.tri[at], -1);
                    if (want > 0) {
                        EXPECT_EQ(g.dist[at], 3.4028235e38f);  // the layer after the last hit
                    }
                    for (size_t l = want + 1; l < size_t(kDepth); ++l) {
                        EXPECT_EQ(g.tri[g.at(Lum32s(l), i)], -1);
                        EXPECT_EQ(g.dist[g.at(Lum32s(l), i)], -3.0f);
                    }
                }
            }
        }
    }
    EXPECT_GT(robust, 1500);
    EXPECT_GT(layersSeen, 2000);
}

}  // namespace
