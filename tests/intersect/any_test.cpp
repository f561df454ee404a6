// Any hit along segments from a shared origin: the ends of the segment,
// already-dark rays, agreement of both bodies with the reference, and the
// renderer's shadow chain.
#include <random>

#include "scene_fixture.h"

namespace {

// A square at z = 5 over [-1, 1]^2 and a light below it.
TEST(IntersectAny, SegmentEndsAndZeroDirections) {
    Scene s(RefMesh{{-1, -1, 5, 1, -1, 5, 1, 1, 5, -1, 1, 5}, {0, 1, 2, 0, 0, 2, 3, 0}}, TreeKind::List);
    LumRayScene noBox = s.scene;
    noBox.pBound = nullptr;  // the box is never read
    const Lum32f light[3] = {0.1f, 0.2f, 0.0f}, onPlane[3] = {0.1f, 0.2f, 5.0f};
    // Ray 0 meets the square at t = 0.5 above its diagonal (triangle 1);
    // ray 1 ends on it at t = 1; ray 2 ends short of it, at t = 1.00008 of
    // the walk's 1.0001 reach; ray 3 has no direction; ray 4 is already
    // dark and would be blocked.
    const Lum32f d[5][3] = {{0.2f, 0.1f, 10}, {0.3f, -0.1f, 5}, {0.2f, 0.2f, 4.9996f}, {0, 0, 0}, {0.1f, 0.1f, 10}};
    for (int packet = 0; packet < 2; ++packet) {
        Grid g(packet ? 4 : 5, packet ? 4 : 1);
        for (size_t i = 0; i < g.n(); ++i) {
            const size_t k = i % 5;
            g.dx[i] = d[k][0], g.dy[i] = d[k][1], g.dz[i] = d[k][2];
            g.mask[i] = k == 4 ? -3 : Lum32s(i);
        }
        g.runAny(light, &noBox);
        for (size_t i = 0; i < g.n(); ++i) {
            const size_t k = i % 5;
            if (k == 0 || k == 4) {
                EXPECT_LT(g.mask[i], 0) << i;
            } else if (k != 1 || !packet) {
                // Exactly t = 1 is open only where t is a true quotient; the
                // packet's estimated reciprocal may land either side of it.
                EXPECT_EQ(g.mask[i], Lum32s(i)) << i;
            }
            if (!packet) { EXPECT_EQ(g.occ[i], k == 0 ? 1 : -1) << i; }  // exact in the plain body
        }
        // From a light on the square itself every blocker is at t = 0.
        Grid h(packet ? 4 : 3, packet ? 4 : 1);
        for (size_t i = 0; i < h.n(); ++i) h.dx[i] = 0.1f, h.dy[i] = 0.1f, h.dz[i] = 1.0f;
        h.runAny(onPlane, &noBox);
        for (size_t i = 0; i < h.n(); ++i) EXPECT_EQ(h.mask[i], 0);
    }
}

// Segments from a light to points spread through the scene, or (coherent)
// to points of one small patch, so that whole tiles share an octant and the
// cached blocker comes into play; some masks start dark.
TEST(IntersectAny, BothBodiesAgreeWithReference) {
    int robust = 0, blocked = 0;
    unsigned seed = 90;
    for (TreeKind kind : {TreeKind::List, TreeKind::Median3, TreeKind::Median8}) {
        Scene s(refRandomMesh(seed++, 150, 0.35), kind);
        std::mt19937 rng(seed++);
        std::uniform_real_distribution<float> uni(-1, 1);
        for (int rep = 0; rep < 4; ++rep) {
            const Lum32f light[3] = {2.5f * uni(rng), 2.5f * uni(rng), 2.5f * uni(rng)};
            for (const Layout& l : kLayouts) {
                Grid g(l.width, 16, l.shift);
                const bool coherent = rep % 2 == 1;
                const Lum32f centre[3] = {0.5f * uni(rng), 0.5f * uni(rng), 0.5f * uni(rng)};
                for (size_t i = 0; i < g.n(); ++i) {
                    Lum32f* d[3] = {&g.dx[i], &g.dy[i], &g.dz[i]};
                    for (int k = 0; k < 3; ++k) *d[k] = (coherent ? centre[k] + 0.25f * uni(rng) : 1.2f * uni(rng)) - light[k];
                    g.mask[i] = i % 11 == 3 ? -1 - Lum32s(i) : Lum32s(i);
                }
                g.runAny(light, &s.scene);
                for (size_t i = 0; i < g.n(); ++i) {
                    if (i % 11 == 3) {  // already dark stays dark
                        EXPECT_LT(g.mask[i], 0);
                        if (!l.packet) { EXPECT_EQ(g.occ[i], -1); }
                        continue;
                    }
                    const double o[3] = {light[0], light[1], light[2]}, d[3] = {g.dx[i], g.dy[i], g.dz[i]};
                    const RefCrossings c = refCrossings(s.mesh, o, d, 0.0, 1.0);
                    if (c.hits.empty() && c.ambiguous()) continue;
                    ++robust;
                    blocked += !c.hits.empty();
                    ASSERT_EQ(g.mask[i] < 0, !c.hits.empty()) << "ray " << i;
                    if (c.hits.empty()) {
                        EXPECT_EQ(g.mask[i], Lum32s(i));
                        if (!l.packet) { EXPECT_EQ(g.occ[i], -1); }
                    } else if (!l.packet && !c.ambiguous()) {  // the plain body names a blocker
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

// The renderer's shadow chain, every step through the library: eye hits,
// hit points pulled back towards the eye, flat normals turned to face the
// eye, shadow rays from the light, then any hit.  A lane still lit after the
// shadow-ray step is blocked exactly when the reference finds a crossing
// strictly inside its segment; a lane that went dark stays dark.
TEST(IntersectAny, ShadowChainFromPrimaryHits) {
    Scene s(refRandomMesh(123, 200, 0.35), TreeKind::Median3);
    const Lum32f eye[3] = {0.05f, 0.1f, -3.0f}, light[3] = {1.5f, 2.5f, -1.0f};
    Grid g(16, 16);
    for (Lum32s y = 0; y < 16; ++y)
        for (Lum32s x = 0; x < 16; ++x) {
            const Lum32f d[3] = {(x + 0.5f) / 16 - 0.52f, (y + 0.5f) / 16 - 0.53f, 1.0f};
            g.setRay(size_t(y) * 16 + x, eye, d);
        }
    g.resetOutputs(1e30f);
    g.runNearest(s.scene, eye);
    const size_t n = g.n();
    const Lum32s nTri = Lum32s(s.mesh.tris.size() / 4);
    std::vector<Lum32f> triNormals(3 * size_t(nTri));
    ASSERT_EQ(lumrTriangleNormal_32f(s.mesh.verts.data(), s.mesh.tris.data(), triNormals.data(), nTri),
              lumStatusOk);
    Stream<Lum32f> px(n), py(n), pz(n), nx(n), ny(n), nz(n), facing(n), lightDot(n), sx(n), sy(n), sz(n);
    Stream<Lum32s> mask(g.tri), occ(n);
    LumPlanes3 dir = g.dir(), points{px.data(), py.data(), pz.data()}, normal{nx.data(), ny.data(), nz.data()},
               rays{sx.data(), sy.data(), sz.data()};
    ASSERT_EQ(lumrHitPoint3DEpsS0_32f_M(eye, &dir, g.dist.data(), mask.data(), &points, Lum32s(n), 0.999f),
              lumStatusOk);
    ASSERT_EQ(lumrSurfFlatNormal_32f(triNormals.data(), mask.data(), &normal, Lum32s(n)), lumStatusOk);
    ASSERT_EQ(lumrDotChangeNorm_32f_IM(&dir, mask.data(), &normal, facing.data(), Lum32s(n)), lumStatusOk);
    ASSERT_EQ(lumrCastShadowSO_32f(light, facing.data(), &normal, &points, mask.data(), lightDot.data(),
                                   &rays, Lum32s(n)),
              lumStatusOk);
    Stream<Lum32s> before(mask);
    ASSERT_EQ(lumrIntersectAnySO_32f(light, &rays, occ.data(), mask.data(), {16, 16}, &s.scene), lumStatusOk);
    int checked = 0, blocked = 0;
    for (size_t i = 0; i < n; ++i) {
        if (before[i] < 0) {
            EXPECT_LT(mask[i], 0) << i;
            continue;
        }
        const double o[3] = {light[0], light[1], light[2]}, d[3] = {sx[i], sy[i], sz[i]};
        const RefCrossings c = refCrossings(s.mesh, o, d, 0.0, 1.0);
        if (c.hits.empty() && c.ambiguous()) continue;
        ++checked;
        blocked += !c.hits.empty();
        EXPECT_EQ(mask[i] < 0, !c.hits.empty()) << i;
    }
    EXPECT_GT(checked, 20);
    EXPECT_GT(blocked, 0);
}

}  // namespace
