// Successive hits along each ray: a stack of parallel quads worked by hand,
// what later layers hold, and agreement of both bodies with the ordered
// crossings of the double-precision reference.
#include <algorithm>
#include <random>

#include "scene_fixture.h"

namespace {

constexpr Lum32f kFar = 3.4028235e38f;  // where a layer after a hit starts

// Quads of two triangles each over [-1, 1]^2 at z = 1, 2, ..., 5; the
// diagonal runs from (-1,-1) to (1,1), and triangle 2k + 1 lies above it.
TEST(IntersectLayers, StackOfParallelQuads) {
    RefMesh m;
    for (int k = 0; k < 5; ++k) {
        const Lum32f z = Lum32f(k + 1);
        m.verts.insert(m.verts.end(), {-1, -1, z, 1, -1, z, 1, 1, z, -1, 1, z});
        m.tris.insert(m.tris.end(), {4 * k, 4 * k + 1, 4 * k + 2, 0, 4 * k, 4 * k + 2, 4 * k + 3, 0});
    }
    const Lum32f o[3] = {0.013f, 0.021f, 0.0f};
    for (TreeKind kind : {TreeKind::List, TreeKind::Median3}) {
        Scene s(m, kind);
        for (int packet = 0; packet < 2; ++packet) {
            Grid g(packet ? 4 : 3, packet ? 4 : 1, 0, 7);  // two layers more than quads
            for (size_t i = 0; i < g.n(); ++i) {  // each ray stays above the diagonal
                g.dx[i] = 0.01f + 0.001f * Lum32f(i), g.dy[i] = 0.03f + 0.001f * Lum32f(i), g.dz[i] = 1.0f;
                g.dist[i] = 1e30f;
            }
            g.runLayers(o, s.scene);
            for (size_t i = 0; i < g.n(); ++i) {
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
                EXPECT_EQ(g.dist[g.at(5, i)], kFar);
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
        for (const Layout& lay : kLayouts) {
            const Lum32f o[3] = {2 * uni(rng), 2 * uni(rng), 2 * uni(rng)};
            Grid g(lay.width, 16, lay.shift, kDepth);
            for (size_t i = 0; i < g.n(); ++i) {
                // Aim near the middle of the scene so most rays cross several triangles.
                g.dx[i] = 0.4f * uni(rng) - o[0], g.dy[i] = 0.4f * uni(rng) - o[1], g.dz[i] = 0.4f * uni(rng) - o[2];
                g.dist[i] = i % 9 == 4 ? 0.0f : 1e30f;  // a limit of 0 never hits
            }
            g.runLayers(o, s.scene);
            for (size_t i = 0; i < g.n(); ++i) {
                if (i % 9 == 4) {
                    EXPECT_EQ(g.tri[i], -1);
                    EXPECT_EQ(g.dist[i], 0.0f);
                    EXPECT_EQ(g.dist[g.at(1, i)], -3.0f);
                    continue;
                }
                const double od[3] = {o[0], o[1], o[2]}, dd[3] = {g.dx[i], g.dy[i], g.dz[i]};
                const RefCrossings c = refCrossings(s.mesh, od, dd, 0.0, 1e30);
                const Lum32s want = Lum32s(std::min<size_t>(kDepth, c.hits.size()));
                if (c.ambiguous() && (want < kDepth || c.firstAmbiguousT <= c.hits[want - 1].t * (1 + 1e-4) + 1e-4))
                    continue;
                ++robust;
                for (Lum32s l = 0; l < kDepth; ++l) {
                    const size_t at = g.at(l, i);
                    if (l >= want) {  // the layer after the last hit starts far; later ones are untouched
                        EXPECT_EQ(g.tri[at], -1);
                        EXPECT_EQ(g.dist[at], l > want ? -3.0f : want > 0 ? kFar : 1e30f) << "layer " << l;
                        continue;
                    }
                    ASSERT_EQ(g.tri[at], c.hits[l].tri) << "layer " << l << " ray " << i;
                    EXPECT_NEAR(g.dist[at], c.hits[l].t, 2e-4 * (1 + c.hits[l].t)) << "layer " << l;
                    EXPECT_NEAR(g.u[at], c.hits[l].u, 2e-3);
                    EXPECT_NEAR(g.v[at], c.hits[l].v, 2e-3);
                    ++layersSeen;
                }
            }
        }
    }
    EXPECT_GT(robust, 1500);
    EXPECT_GT(layersSeen, 2000);
}

}  // namespace
