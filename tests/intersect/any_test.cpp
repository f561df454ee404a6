// Any hit along segments from a shared origin: the ends of the segment,
// already-dark rays, agreement of both bodies with the reference, and the
// chain from shadow-ray generation.
#include <cmath>
#include <random>

#include "scene_fixture.h"

namespace {

struct ShadowGrid {
    Lum32s width, height;
    Stream<Lum32f> dx, dy, dz;
    Stream<Lum32s> occ, mask;
    ShadowGrid(Lum32s w, Lum32s h, size_t shift = 0)
        : width(w), height(h), dx(n(), shift), dy(n(), shift), dz(n(), shift), occ(n(), shift),
          mask(n(), shift) {
        occ.fill(-99), mask.fill(0);
    }
    size_t n() const { return size_t(width) * size_t(height); }
    void run(const Lum32f o[3], const LumRayScene* s) {
        LumPlanes3 d{dx.data(), dy.data(), dz.data()};
        EXPECT_EQ(lumrIntersectAnySO_32f(o, &d, occ.data(), mask.data(), {width, height}, s),
                  lumStatusOk);
    }
};

// A square at z = 5 over [-1, 1]^2 and a light below it.
RefMesh SquareAtZ5() {
    RefMesh m;
    m.verts = {-1, -1, 5, 1, -1, 5, 1, 1, 5, -1, 1, 5};
    m.tris = {0, 1, 2, 0, 0, 2, 3, 0};
    return m;
}

TEST(IntersectAny, SegmentEndsAndZeroDirections) {
    Scene s(SquareAtZ5(), TreeKind::List);
    LumRayScene noBox = s.scene;
    noBox.pBound = nullptr;  // the box is never read
    const Lum32f light[3] = {0.1f, 0.2f, 0.0f}, onPlane[3] = {0.1f, 0.2f, 5.0f};
    for (int packet = 0; packet < 2; ++packet) {
        ShadowGrid g(packet ? 4 : 5, packet ? 4 : 1);
        // Ray 0 meets the square at t = 0.5 above its diagonal (triangle 1);
        // ray 1 ends on it at t = 1; ray 2 ends short of it, at t = 1.00008 of
        // the walk's 1.0001 reach; ray 3 has no direction; ray 4 is already
        // dark and would be blocked.
        const Lum32f d[5][3] = {{0.2f, 0.1f, 10}, {0.3f, -0.1f, 5}, {0.2f, 0.2f, 4.9996f},
                                {0, 0, 0}, {0.1f, 0.1f, 10}};
        for (size_t i = 0; i < g.n(); ++i) {
            const size_t k = i % 5;
            g.dx[i] = d[k][0], g.dy[i] = d[k][1], g.dz[i] = d[k][2];
            g.mask[i] = k == 4 ? -3 : Lum32s(i);
        }
        g.run(light, &noBox);
        for (size_t i = 0; i < g.n(); ++i) {
            const size_t k = i % 5;
            if (k == 0 || k == 4) {
                EXPECT_LT(g.mask[i], 0) << i;
            } else if (k != 1 || !packet) {
                // Exactly t = 1 is open only where t is a true quotient; the
                // packet's estimated reciprocal may land either side of it.
                EXPECT_EQ(g.mask[i], Lum32s(i)) << i;
            }
            if (!packet) {  // in the plain body the occluder is exact
                EXPECT_EQ(g.occ[i], k == 0 ? 1 : -1) << i;
            }
        }
        // From a light on the square itself every blocker is at t = 0.
        ShadowGrid h(packet ? 4 : 3, packet ? 4 : 1);
        for (size_t i = 0; i < h.n(); ++i) h.dx[i] = 0.1f, h.dy[i] = 0.1f, h.dz[i] = 1.0f;
        h.run(onPlane, &noBox);
        for (size_t i = 0; i < h.n(); ++i) EXPECT_EQ(h.mask[i], 0);
    }
}

// Segments from a light to points spread through the scene, or (coherent)
// to points of one small patch, so that whole tiles share an octant and the
// cached blocker comes into play; some masks start dark.
void Segments(ShadowGrid& g, std::mt19937& rng, const Lum32f light[3], bool coherent) {
    std::uniform_real_distribution<float> uni(-1, 1);
    const Lum32f centre[3] = {0.5f * uni(rng), 0.5f * uni(rng), 0.5f * uni(rng)};
    const Lum32f spread = coherent ? 0.25f : 1.2f;
    for (size_t i = 0; i < g.n(); ++i) {
        g.dx[i] = (coherent ? centre[0] : 0.0f) + spread * uni(rng) - light[0];
        g.dy[i] = (coherent ? centre[1] : 0.0f) + spread * uni(rng) - light[1];
        g.dz[i] = (coherent ? centre[2] : 0.0f) + spread * uni(rng) - light[2];
        g.mask[i] = i % 11 == 3 ? -1 - Lum32s(i) : Lum32s(i);
        g.occ[i] = -99;
    }
}

TEST(IntersectAny, BothBodiesAgreeWithReference) {
    int robust = 0, blocked = 0;
    unsigned seed = 90;
    for (TreeKind kind : {TreeKind::List, TreeKind::Median3, TreeKind::Median8}) {
        Scene s(refRandomMesh(seed++, 150, 0.35), kind);
        std::mt19937 rng(seed++);
        std::uniform_real_distribution<float> uni(-1, 1);
        for (int rep = 0; rep < 4; ++rep) {
            const Lum32f light[3] = {2.5f * uni(rng), 2.5f * uni(rng), 2.5f * uni(rng)};
            for (int layout = 0; layout < 3; ++layout) {
                ShadowGrid g(layout == 1 ? 15 : 16, 16, layout == 2 ? 1 : 0);
                Segments(g, rng, light, rep % 2 == 1);
                g.run(light, &s.scene);
                for (size_t i = 0; i < g.n(); ++i) {
                    if (i % 11 == 3) {  // already dark stays dark
                        EXPECT_LT(g.mask[i], 0);
                        if (layout != 0) {
                            EXPECT_EQ(g.occ[i], -1);
                        }
                        continue;
                    }
                    const double o[3] = {light[0], light[1], light[2]};
                    const double d[3] = {g.dx[i], g.dy[i], g.dz[i]};
                    const RefCrossings c = refCrossings(s.mesh, o, d, 0.0, 1.0);
                    if (c.hits.empty() && c.ambiguous()) continue;
                    ++robust;
                    const bool isBlocked = !c.hits.empty();
                    blocked += isBlocked;
                    ASSERT_EQ(g.mask[i] < 0, isBlocked) << "layout " << layout << " ray " << i;
                    if (!isBlocked) {
                        EXPECT_EQ(g.mask[i], Lum32s(i));
                        if (layout != 0) {
                            EXPECT_EQ(g.occ[i], -1);
                        }
                    } else if (layout != 0 && !c.ambiguous()) {
                        // The plain body names one of the blockers.
                        bool named = false;
                        for (const RefCandidate& h : c.hits) named |= h.tri == g.occ[i];
                        EXPECT_TRUE(named) << "ray " << i << " occluder " << g.occ[i];
                    }
                }
            }
        }
    }
    EXPECT_GT(robust, 7000);
    EXPECT_GT(blocked, 1600);
}

TEST(IntersectAny, ShadowChainFromPrimaryHits) {
    Scene s(refRandomMesh(123, 200, 0.35), TreeKind::Median3);
    const Lum32f eye[3] = {0.05f, 0.1f, -3.0f}, light[3] = {1.5f, 2.5f, -1.0f};
    RayGrid g(16, 16);
    for (Lum32s y = 0; y < 16; ++y)
        for (Lum32s x = 0; x < 16; ++x) {
            const Lum32f d[3] = {(x + 0.5f) / 16 - 0.52f, (y + 0.5f) / 16 - 0.53f, 1.0f};
            g.setRay(size_t(y) * 16 + x, eye, d);
        }
    g.resetOutputs(1e30f);
    g.runEye(eye, s.scene);
    // Surface points pulled back towards the eye, the geometric normal and
    // the side the eye sees.
    const size_t n = g.n();
    Stream<Lum32f> px(n), py(n), pz(n), nx(n), ny(n), nz(n), facing(n), lightDot(n), sx(n), sy(n),
        sz(n);
    Stream<Lum32s> mask(n), occ(n);
    for (size_t i = 0; i < n; ++i) {
        mask[i] = g.tri[i];
        const Lum32f t = g.tri[i] >= 0 ? 0.999f * g.dist[i] : 0.0f;
        px[i] = eye[0] + t * g.dx[i], py[i] = eye[1] + t * g.dy[i], pz[i] = eye[2] + t * g.dz[i];
        nx[i] = ny[i] = nz[i] = 0, facing[i] = 0;
        if (g.tri[i] < 0) continue;
        const Lum32s* tri = &s.mesh.tris[4 * size_t(g.tri[i])];
        const Lum32f* a = &s.mesh.verts[3 * tri[0]];
        const Lum32f* b = &s.mesh.verts[3 * tri[1]];
        const Lum32f* c = &s.mesh.verts[3 * tri[2]];
        const Lum32f e1[3] = {a[0] - c[0], a[1] - c[1], a[2] - c[2]};
        const Lum32f e2[3] = {b[0] - c[0], b[1] - c[1], b[2] - c[2]};
        nx[i] = e1[1] * e2[2] - e1[2] * e2[1];
        ny[i] = e1[2] * e2[0] - e1[0] * e2[2];
        nz[i] = e1[0] * e2[1] - e1[1] * e2[0];
        facing[i] = -(g.dx[i] * nx[i] + g.dy[i] * ny[i] + g.dz[i] * nz[i]);
    }
    LumPlanes3 normal{nx.data(), ny.data(), nz.data()}, points{px.data(), py.data(), pz.data()},
        rays{sx.data(), sy.data(), sz.data()};
    ASSERT_EQ(lumrCastShadowSO_32f(light, facing.data(), &normal, &points, mask.data(), lightDot.data(),
                         &rays, Lum32s(n)),
              lumStatusOk);
    Stream<Lum32s> before(mask);
    ASSERT_EQ(lumrIntersectAnySO_32f(light, &rays, occ.data(), mask.data(), {16, 16}, &s.scene),
              lumStatusOk);
    int checked = 0;
    for (size_t i = 0; i < n; ++i) {
        if (before[i] < 0) {
            EXPECT_LT(mask[i], 0);
            continue;
        }
        const double o[3] = {light[0], light[1], light[2]}, d[3] = {sx[i], sy[i], sz[i]};
        const RefCrossings c = refCrossings(s.mesh, o, d, 0.0, 1.0);
        if (c.hits.empty() && c.ambiguous()) continue;
        ++checked;
        EXPECT_EQ(mask[i] < 0, !c.hits.empty()) << i;
    }
    EXPECT_GT(checked, 20);
}

}  // namespace
