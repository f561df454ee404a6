// Nearest hit with an origin per ray and with one shared origin: hand-worked
// hits, limits, misses, skipped triangles, the packet body's own rules, and
// agreement of both bodies with the double-precision reference.
#include <cmath>
#include <random>

#include "scene_fixture.h"

namespace {

// One triangle in the plane z = 5: A = (1,0,5), B = (0,1,5), C = (0,0,5).
RefMesh UnitTriangleAtZ5() {
    RefMesh m;
    m.verts = {1, 0, 5, 0, 1, 5, 0, 0, 5};
    m.tris = {0, 1, 2, 0};
    return m;
}

enum class Body { Plain, Packet };

// The same ray in every lane: a 4 x 4 aligned grid takes the packet body,
// a 3 x 1 grid the plain one.
RayGrid Uniform(Body body, const Lum32f o[3], const Lum32f d[3], Lum32f limit) {
    RayGrid g = body == Body::Packet ? RayGrid(4, 4) : RayGrid(3, 1);
    for (size_t i = 0; i < g.n(); ++i) g.setRay(i, o, d);
    g.resetOutputs(limit);
    return g;
}

TEST(IntersectNearest, HandWorkedHitFromBothFaces) {
    Scene s(UnitTriangleAtZ5(), TreeKind::List);
    // From below and from above, each meeting the plane at (0.25, 0.25, 5)
    // at t = 5: weights 0.25 for A and B, 0.5 for C.
    const Lum32f below[3] = {0, 0, 0}, up[3] = {0.05f, 0.05f, 1};
    const Lum32f above[3] = {0.5f, 0.5f, 10}, down[3] = {-0.05f, -0.05f, -1};
    for (Body body : {Body::Plain, Body::Packet}) {
        for (int face = 0; face < 2; ++face) {
            const Lum32f* o = face ? above : below;
            const Lum32f* d = face ? down : up;
            for (int fn = 0; fn < 2; ++fn) {
                RayGrid g = Uniform(body, o, d, 100.0f);
                ASSERT_EQ(fn ? g.runEye(o, s.scene) : g.runMO(s.scene), lumStatusOk);
                for (size_t i = 0; i < g.n(); ++i) {
                    ASSERT_EQ(g.tri[i], 0);
                    if (body == Body::Plain) {  // exact: the divisions are true ones
                        EXPECT_EQ(g.dist[i], 5.0f);
                        EXPECT_EQ(g.u[i], 0.25f);
                        EXPECT_EQ(g.v[i], 0.25f);
                    } else {  // reciprocal estimate plus one Newton step
                        EXPECT_NEAR(g.dist[i], 5.0f, 5e-6f);
                        EXPECT_NEAR(g.u[i], 0.25f, 1e-6f);
                        EXPECT_NEAR(g.v[i], 0.25f, 1e-6f);
                    }
                }
            }
        }
    }
}

TEST(IntersectNearest, DistanceIsALimitAndMissesKeepIt) {
    Scene s(UnitTriangleAtZ5(), TreeKind::List);
    const Lum32f o[3] = {0, 0, 0}, d[3] = {0.05f, 0.05f, 1};
    for (Body body : {Body::Plain, Body::Packet}) {
        for (Lum32f limit : {4.9f, 0.0f, -1.0f}) {
            RayGrid g = Uniform(body, o, d, limit);
            g.runMO(s.scene);
            for (size_t i = 0; i < g.n(); ++i) {
                EXPECT_EQ(g.tri[i], -1);
                EXPECT_EQ(g.dist[i], limit);
            }
        }
    }
    // The per-ray-origin function wants an improvement of 1e-5 over the
    // limit, the shared-origin one does not.
    RayGrid g = Uniform(Body::Plain, o, d, 5.000005f);
    g.runMO(s.scene);
    EXPECT_EQ(g.tri[0], -1);
    g.resetOutputs(5.000005f);
    g.runEye(o, s.scene);
    EXPECT_EQ(g.tri[0], 0);
    EXPECT_EQ(g.dist[0], 5.0f);
}

TEST(IntersectNearest, MissesInThePacketBodyClearTheWeights) {
    Scene s(UnitTriangleAtZ5(), TreeKind::List);
    // Lanes 0-1 of row 0 pass by the triangle's hypotenuse, the rest hit;
    // the walk runs for the whole tile.
    const Lum32f o[3] = {0, 0, 0}, hit[3] = {0.05f, 0.05f, 1}, miss[3] = {0.15f, 0.15f, 1};
    for (Body body : {Body::Plain, Body::Packet}) {
        RayGrid g = Uniform(body, o, hit, 100.0f);
        g.setRay(0, o, miss);
        g.setRay(1, o, miss);
        g.runMO(s.scene);
        EXPECT_EQ(g.tri[0], -1);
        EXPECT_EQ(g.tri[1], -1);
        EXPECT_EQ(g.tri[2], 0);
        EXPECT_EQ(g.dist[0], 100.0f);
        const Lum32f untouched = body == Body::Plain ? -7.0f : 0.0f;
        EXPECT_EQ(g.u[0], untouched);
        EXPECT_EQ(g.v[1], untouched);
    }
}

TEST(IntersectNearest, DegenerateAndEmptyScenesNeverHit) {
    // A zero record read as a triangle would give det = d.x and t = -o.x / d.x
    // = 1 for these rays; it must be skipped, not tested.
    RefMesh line;
    line.verts = {0, 0, 0, 1, 1, 1, 2, 2, 2};
    line.tris = {0, 1, 2, 0};
    Scene degenerate(line, TreeKind::List);
    Scene empty(RefMesh{}, TreeKind::List);
    const Lum32f o[3] = {-1, 0.5f, 0.6f}, d[3] = {1, 0.01f, 0.02f};
    for (Scene* s : {&degenerate, &empty}) {
        if (s == &empty) {
            for (int k = 0; k < 6; ++k) s->box[k] = k < 3 ? -10.0f : 10.0f;
        }
        for (Body body : {Body::Plain, Body::Packet}) {
            RayGrid g = Uniform(body, o, d, 50.0f);
            g.runMO(s->scene);
            g.runEye(o, s->scene);
            for (size_t i = 0; i < g.n(); ++i) {
                EXPECT_EQ(g.tri[i], -1);
                EXPECT_EQ(g.dist[i], 50.0f);
            }
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
    RefMesh m;
    m.verts = {5, 0, 0, 5, 1, 0, 5, 0, 1};
    m.tris = {0, 1, 2, 0};
    Scene s(m, TreeKind::List);
    const Lum32f o[3] = {0, 0.25f, 0.25f}, away[3] = {1, 1, 0.05f};
    const Lum32f zeroY[3] = {1, 0, 0.05f}, zeroZ[3] = {1, 0.05f, 0};
    for (int which = 0; which < 2; ++which) {
        const Lum32f* d = which ? zeroZ : zeroY;
        for (int fn = 0; fn < 2; ++fn) {
            for (Body body : {Body::Plain, Body::Packet}) {
                RayGrid g = body == Body::Packet ? RayGrid(4, 4) : RayGrid(4, 3);
                for (size_t i = 0; i < g.n(); ++i) g.setRay(i, o, (i / 4) % 2 ? away : d);
                g.resetOutputs(100.0f);
                fn ? g.runEye(o, s.scene) : g.runMO(s.scene);
                const bool standIn = body == Body::Packet && (fn == 0 || which == 0);
                for (size_t i = 0; i < g.n(); ++i)
                    EXPECT_EQ(g.tri[i], (i / 4) % 2 || standIn ? -1 : 0)
                        << "ray " << i << " fn " << fn << " axis " << which;
            }
        }
    }
}

TEST(IntersectNearest, FirstOfEqualHitsStays) {
    // Triangle 1 is a larger triangle in the same plane, met at the same t
    // after triangle 0: the first found stays in both bodies.
    RefMesh m;
    m.verts = {1, 0, 5, 0, 1, 5, 0, 0, 5, -1, -1, 5, 2, -1, 5, -1, 2, 5};
    m.tris = {0, 1, 2, 0, 3, 4, 5, 0};
    Scene s(m, TreeKind::List);
    const Lum32f o[3] = {0, 0, 0}, d[3] = {0.05f, 0.05f, 1};
    for (Body body : {Body::Plain, Body::Packet}) {
        RayGrid g = Uniform(body, o, d, 100.0f);
        g.runMO(s.scene);
        EXPECT_EQ(g.tri[0], 0);
        g.resetOutputs(100.0f);
        g.runEye(o, s.scene);
        EXPECT_EQ(g.tri[0], 0);
    }
}

// ---- Agreement with the reference ---------------------------------------------------

struct Tally {
    int robust = 0, hits = 0;
};

void ExpectAgrees(const RayGrid& g, const Scene& s, const std::vector<Lum32f>& limits,
                  const Lum32f* shared, bool packet, Tally& tally, const char* what) {
    for (size_t i = 0; i < g.n(); ++i) {
        const double o[3] = {shared ? shared[0] : g.ox[i], shared ? shared[1] : g.oy[i],
                             shared ? shared[2] : g.oz[i]};
        const double d[3] = {g.dx[i], g.dy[i], g.dz[i]};
        const RefNearest ref = refNearest(s.mesh, o, d, limits[i]);
        if (!ref.robust) continue;
        ++tally.robust;
        ASSERT_EQ(g.tri[i], ref.hit.tri) << what << " ray " << i;
        if (ref.hit.tri < 0) {
            EXPECT_EQ(g.dist[i], limits[i]);
            if (!packet) {
                EXPECT_EQ(g.u[i], -7.0f);
            }
            continue;
        }
        ++tally.hits;
        EXPECT_NEAR(g.dist[i], ref.hit.t, 1e-4 * (1 + ref.hit.t)) << what << " ray " << i;
        EXPECT_NEAR(g.u[i], ref.hit.u, 2e-3) << what << " ray " << i;
        EXPECT_NEAR(g.v[i], ref.hit.v, 2e-3) << what << " ray " << i;
    }
}

// Random directions never have a zero component, so the first-row stand-in
// of the packet walks does not apply.
void RandomRays(RayGrid& g, std::mt19937& rng, bool coherent, std::vector<Lum32f>& limits) {
    std::uniform_real_distribution<float> u(-1, 1), l(0.5f, 6.0f);
    const Lum32f base[3] = {u(rng), u(rng), u(rng)};
    for (size_t i = 0; i < g.n(); ++i) {
        Lum32f o[3] = {3.0f * u(rng), 3.0f * u(rng), 3.0f * u(rng)};
        Lum32f d[3] = {u(rng), u(rng), u(rng)};
        if (coherent) {  // a small cone aimed through the scene
            for (int k = 0; k < 3; ++k) {
                o[k] = 2.5f * base[k];
                d[k] = -base[k] + 0.3f * (Lum32f(i % Lum32s(g.width)) / g.width - 0.5f) * (k == 0) +
                       0.3f * (Lum32f(i / Lum32s(g.width)) / g.height - 0.5f) * (k == 1) + 0.001f;
            }
        }
        g.setRay(i, o, d);
        limits[i] = i % 5 == 0 ? l(rng) : 1e30f;
    }
    for (size_t i = 0; i < g.n(); ++i) g.dist[i] = limits[i];
    g.u.fill(-7.0f), g.v.fill(-7.0f), g.tri.fill(-99);
}

TEST(IntersectNearest, BothBodiesAgreeWithReference) {
    Tally tally;
    unsigned seed = 1;
    for (TreeKind kind : {TreeKind::List, TreeKind::Median3, TreeKind::Median8}) {
        for (int rep = 0; rep < 3; ++rep) {
            Scene s(refRandomMesh(seed++, 150, 0.35), kind);
            std::mt19937 rng(seed++);
            for (int coherent = 0; coherent < 2; ++coherent) {
                // 16 x 16 aligned: packet; 15 x 16, or a shifted stream: plain.
                for (int layout = 0; layout < 3; ++layout) {
                    RayGrid g(layout == 1 ? 15 : 16, 16, layout == 2 ? 1 : 0);
                    std::vector<Lum32f> limits(g.n());
                    RandomRays(g, rng, coherent, limits);
                    RayGrid eye(g);
                    g.runMO(s.scene);
                    ExpectAgrees(g, s, limits, nullptr, layout == 0, tally, "MO");
                    const Lum32f shared[3] = {eye.ox[0], eye.oy[0], eye.oz[0]};
                    eye.runEye(shared, s.scene);
                    ExpectAgrees(eye, s, limits, shared, layout == 0, tally, "Eye");
                }
            }
        }
    }
    // The comparison must have had substance.
    EXPECT_GT(tally.robust, 9000);
    EXPECT_GT(tally.hits, 2000);
}

}  // namespace
