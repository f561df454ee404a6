// Nearest hit with an origin per ray and with one shared origin: hand-worked
// hits, limits, misses, skipped triangles, the packet body's own rules, and
// agreement of both bodies with the double-precision reference.
#include <random>

#include "scene_fixture.h"

namespace {

// The same ray in every lane: a 4 x 4 aligned grid takes the packet body,
// a 3 x 1 grid the plain one.
Grid uniform(bool packet, const Lum32f o[3], const Lum32f d[3], Lum32f limit) {
    Grid g = packet ? Grid(4, 4) : Grid(3, 1);
    for (size_t i = 0; i < g.n(); ++i) g.setRay(i, o, d);
    g.resetOutputs(limit);
    return g;
}

// Triangle 0: A = (1,0,5), B = (0,1,5), C = (0,0,5).  Triangle 1 is a
// larger one in the same plane around it, met at the same t after it.
TEST(IntersectNearest, HandWorkedHitsLimitsAndMisses) {
    Scene s(RefMesh{{1, 0, 5, 0, 1, 5, 0, 0, 5, -1, -1, 5, 2, -1, 5, -1, 2, 5}, {0, 1, 2, 0, 3, 4, 5, 0}}, TreeKind::List);
    // From below and from above, each meeting the plane at (0.25, 0.25, 5)
    // at t = 5: weights 0.25 for A and B; the miss rays meet it at (0.75, 0.75).
    const Lum32f orig[2][3] = {{0, 0, 0}, {0.5f, 0.5f, 10}};
    const Lum32f hit[2][3] = {{0.05f, 0.05f, 1}, {-0.05f, -0.05f, -1}};
    const Lum32f miss[2][3] = {{0.15f, 0.15f, 1}, {0.05f, 0.05f, -1}};
    for (int packet = 0; packet < 2; ++packet)
        for (int face = 0; face < 2; ++face)
            for (int mo = 0; mo < 2; ++mo)
                for (Lum32f limit : {100.0f, 5.000005f, 4.9f, 0.0f, -1.0f}) {
                    if (packet && limit == 5.000005f) continue;  // inside the packet's error
                    Grid g = uniform(packet, orig[face], hit[face], limit);
                    g.setRay(0, orig[face], miss[face]), g.setRay(1, orig[face], miss[face]);
                    g.runNearest(s.scene, mo ? nullptr : orig[face]);
                    // The per-ray-origin function wants an improvement of 1e-5
                    // over the limit, the shared-origin one does not.
                    const bool hits = limit > (mo ? 5.00001f : 5.0f);
                    for (size_t i = 0; i < g.n(); ++i) {
                        SCOPED_TRACE(testing::Message() << "packet " << packet << " face " << face << " MO " << mo
                                                        << " limit " << limit << " ray " << i);
                        if (i < 2 || !hits) {
                            EXPECT_EQ(g.tri[i], -1);
                            EXPECT_EQ(g.dist[i], limit);
                            // Deliberate: a packet walk that ran writes 0 weights for its misses.
                            const bool walked = packet && limit > 5.0f;  // past the box entry
                            EXPECT_EQ(g.u[i], walked ? 0.0f : -7.0f);
                            continue;
                        }
                        ASSERT_EQ(g.tri[i], 0);  // the first of equal hits stays
                        // Exact where the divisions are true ones; the packet
                        // body refines a reciprocal estimate by one Newton step.
                        EXPECT_NEAR(g.dist[i], 5.0f, packet ? 5e-6f : 0.0f);
                        EXPECT_NEAR(g.u[i], 0.25f, packet ? 1e-6f : 0.0f);
                        EXPECT_NEAR(g.v[i], 0.25f, packet ? 1e-6f : 0.0f);
                    }
                }
}

TEST(IntersectNearest, DegenerateAndEmptyScenesNeverHit) {
    // A zero record read as a triangle would give det = d.x and t = -o.x / d.x
    // = 1 for these rays; it must be skipped, not tested.
    Scene degenerate(RefMesh{{0, 0, 0, 1, 1, 1, 2, 2, 2}, {0, 1, 2, 0}}, TreeKind::List);
    Scene empty(RefMesh{}, TreeKind::List);
    for (int k = 0; k < 6; ++k) empty.box[k] = k < 3 ? -10.0f : 10.0f;
    const Lum32f o[3] = {-1, 0.5f, 0.6f}, d[3] = {1, 0.01f, 0.02f};
    for (Scene* s : {&degenerate, &empty})
        for (int packet = 0; packet < 2; ++packet) {
            Grid g = uniform(packet, o, d, 50.0f);
            g.runNearest(s->scene);
            g.runNearest(s->scene, o);
            for (size_t i = 0; i < g.n(); ++i) {
                EXPECT_EQ(g.tri[i], -1);
                EXPECT_EQ(g.dist[i], 50.0f);
            }
        }
}

TEST(IntersectNearest, FirstRowStandInOfTheEightRayWalk) {
    // A triangle in the plane x = 5.  Rows 0 and 2 of the tile aim at it
    // with one direction component exactly 0; rows 1 and 3 leave the box
    // through its y side, so they never make the walk run.  In the packet
    // body the first row of each pair has its near-zero y (per-ray and
    // shared origin) or z (per-ray origin only) replaced before the
    // reciprocal, its slab interval collapses and the tile walks nothing.
    Scene s(RefMesh{{5, 0, 0, 5, 1, 0, 5, 0, 1}, {0, 1, 2, 0}}, TreeKind::List);
    const Lum32f o[3] = {0, 0.25f, 0.25f}, away[3] = {1, 1, 0.05f};
    const Lum32f zero[2][3] = {{1, 0, 0.05f}, {1, 0.05f, 0}};
    for (int axis = 0; axis < 2; ++axis)
        for (int mo = 0; mo < 2; ++mo)
            for (int packet = 0; packet < 2; ++packet) {
                Grid g = packet ? Grid(4, 4) : Grid(4, 3);
                for (size_t i = 0; i < g.n(); ++i) g.setRay(i, o, (i / 4) % 2 ? away : zero[axis]);
                g.resetOutputs(100.0f);
                g.runNearest(s.scene, mo ? nullptr : o);
                const bool standIn = packet && (mo || axis == 0);
                for (size_t i = 0; i < g.n(); ++i)
                    EXPECT_EQ(g.tri[i], (i / 4) % 2 || standIn ? -1 : 0) << "ray " << i << " MO " << mo << " axis " << axis;
            }
}

// Random rays, or a small cone aimed through the scene; some with a finite
// limit.  Random directions never have a zero component, so the first-row
// stand-in does not apply.
void randomRays(Grid& g, std::mt19937& rng, bool coherent) {
    std::uniform_real_distribution<float> u(-1, 1), l(0.5f, 6.0f);
    const Lum32f base[3] = {u(rng), u(rng), u(rng)};
    for (size_t i = 0; i < g.n(); ++i) {
        Lum32f o[3] = {3.0f * u(rng), 3.0f * u(rng), 3.0f * u(rng)}, d[3] = {u(rng), u(rng), u(rng)};
        if (coherent) {
            const Lum32f fx = Lum32f(i % size_t(g.width)) / g.width - 0.5f, fy = Lum32f(i / size_t(g.width)) / g.height - 0.5f;
            for (int k = 0; k < 3; ++k)
                o[k] = 2.5f * base[k], d[k] = -base[k] + 0.3f * fx * (k == 0) + 0.3f * fy * (k == 1) + 0.001f;
        }
        g.setRay(i, o, d);
        g.dist[i] = i % 5 == 0 ? l(rng) : 1e30f;
    }
}

TEST(IntersectNearest, BothBodiesAgreeWithReference) {
    int robust = 0, hits = 0;
    unsigned seed = 1;
    for (TreeKind kind : {TreeKind::List, TreeKind::Median3, TreeKind::Median8})
        for (int rep = 0; rep < 3; ++rep) {
            Scene s(refRandomMesh(seed++, 150, 0.35), kind);
            std::mt19937 rng(seed++);
            for (int coherent = 0; coherent < 2; ++coherent)
                for (const Layout& l : kLayouts) {
                    Grid g(l.width, 16, l.shift);
                    randomRays(g, rng, coherent);
                    const Stream<Lum32f> limits(g.dist);
                    Grid eye(l.width, 16, l.shift);
                    const Lum32f shared[3] = {g.ox[0], g.oy[0], g.oz[0]};
                    for (size_t i = 0; i < g.n(); ++i) {
                        const Lum32f d[3] = {g.dx[i], g.dy[i], g.dz[i]};
                        eye.setRay(i, shared, d), eye.dist[i] = limits[i];
                    }
                    g.runNearest(s.scene);
                    eye.runNearest(s.scene, shared);
                    for (Grid* r : {&g, &eye})
                        for (size_t i = 0; i < r->n(); ++i) {
                            const double o[3] = {r->ox[i], r->oy[i], r->oz[i]}, d[3] = {r->dx[i], r->dy[i], r->dz[i]};
                            const RefNearest ref = refNearest(s.mesh, o, d, limits[i]);
                            if (!ref.robust) continue;
                            ++robust;
                            const char* what = r == &g ? "MO" : "Eye";
                            ASSERT_EQ(r->tri[i], ref.hit.tri) << what << " ray " << i;
                            if (ref.hit.tri < 0) {
                                EXPECT_EQ(r->dist[i], limits[i]);
                                if (!l.packet) { EXPECT_EQ(r->u[i], -7.0f); }
                                continue;
                            }
                            ++hits;
                            EXPECT_NEAR(r->dist[i], ref.hit.t, 1e-4 * (1 + ref.hit.t)) << what << " ray " << i;
                            EXPECT_NEAR(r->u[i], ref.hit.u, 2e-3) << what << " ray " << i;
                            EXPECT_NEAR(r->v[i], ref.hit.v, 2e-3) << what << " ray " << i;
                        }
                }
        }
    // The comparison must have had substance.
    EXPECT_GT(robust, 9000);
    EXPECT_GT(hits, 2000);
}

}  // namespace
