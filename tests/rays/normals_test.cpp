// Surface normals: flat copies, interpolated normals in both bodies, and the
// triangle normal table under one and two threads.
#include <gtest/gtest.h>
#include <immintrin.h>

#include <cmath>

#include "ray_buffers.h"

namespace {

// Groups of four: all off, one triangle four times, mixed, four triangles.
const Lum32s kHits[16] = {-1, INT32_MIN, -3, -1, 2, 2, 2, 2, 4, -1, 0, -7, 5, 1, 3, 0};

TEST(SurfFlatNormal, CopiesBitsInBothBodies) {
    std::mt19937 rng(3);
    for (int body = 0; body < 3; ++body) {  // vector, odd length, misaligned table
        Stream<Lum32f> table(18, body == 2 ? 1 : 0);
        fillUniform(table.p, 18, rng);
        const Lum32u payload = 0x7F800001u;  // a signalling NaN must arrive unquieted
        std::memcpy(&table[7], &payload, 4);
        Stream<Lum32s> hits(16);
        for (int i = 0; i < 16; ++i) hits[i] = kHits[i];
        const int len = body == 1 ? 15 : 16;
        Planes out(16, 0, kCanary);
        ASSERT_EQ(lumrSurfFlatNormal_32f(table.p, hits.p, &out.pl, len), lumStatusOk);
        for (int i = 0; i < len; ++i)
            for (int k = 0; k < 3; ++k)
                EXPECT_EQ(bitsOf(out.c(k)[i]), hits[i] < 0 ? 0u : bitsOf(table[3 * hits[i] + k]))
                    << body << " " << i;
        if (len < 16) {
            EXPECT_EQ(out.x[15], kCanary);
        }
    }
    Stream<Lum32f> table(3);
    Stream<Lum32s> hits(4);
    Planes canary(4, 0, kCanary);
    EXPECT_EQ(lumrSurfFlatNormal_32f(nullptr, nullptr, &canary.pl, 4), lumStatusNullPtr);
    EXPECT_EQ(lumrSurfFlatNormal_32f(table.p, nullptr, &canary.pl, 4), lumStatusNullPtr);
    EXPECT_EQ(canary.x[0], kCanary);
    // The destination is not checked; an empty stream never looks at it.
    EXPECT_EQ(lumrSurfFlatNormal_32f(table.p, hits.p, nullptr, 0), lumStatusOk);
}

struct SmoothCase {
    static constexpr int kVerts = 12, kStride = 5, kTris = 8, n = 16;
    SmoothCase(int shift) : vn(3 * kVerts), index(kStride * kTris), hits(n), u(n, shift), v(n) {
        std::mt19937 rng(5);
        fillUniform(vn.p, 3 * kVerts, rng, -1, 1);
        for (int i = 0; i < kStride * kTris; ++i) index[i] = i % kStride < 3 ? static_cast<Lum32s>(rng() % kVerts) : -99;
        for (int i = 0; i < n; ++i) {
            hits[i] = kHits[i];
            u[i] = hits[i] < 0 ? NAN : std::uniform_real_distribution<Lum32f>(0, 0.5f)(rng);
            v[i] = hits[i] < 0 ? 1e30f : std::uniform_real_distribution<Lum32f>(0, 0.5f)(rng);
        }
        // Triangle 4 (lane 8): u = 1 on a vertex normal of squared length 2^-23
        // exactly.  Triangle 5 (lane 12): opposite normals at two vertices, u = v = 1/2.
        index[4 * kStride] = 0, u[8] = 1.0f, v[8] = 0.0f;
        vn[0] = std::ldexp(1.0f, -12), vn[1] = std::ldexp(1.0f, -12), vn[2] = 0.0f;
        index[5 * kStride] = 1, index[5 * kStride + 1] = 2, u[12] = 0.5f, v[12] = 0.5f;
        for (int k = 0; k < 3; ++k) vn[6 + k] = -vn[3 + k];
    }
    // m for lane i, in the order both bodies share.
    void interpolate(int i, Lum32f m[3]) {
        const Lum32s* c = index.p + hits[i] * kStride;
        const Lum32f w = (1.0f - u[i]) - v[i];
        for (int k = 0; k < 3; ++k)
            m[k] = vn[3 * c[2] + k] * w + (v[i] * vn[3 * c[1] + k] + u[i] * vn[3 * c[0] + k]);
    }
    Stream<Lum32f> vn;
    Stream<Lum32s> index, hits;
    Stream<Lum32f> u, v;
};

TEST(SurfSmoothNormal, PlainDividesVectorRefinesRsqrt) {
    const Lum32f eps = 1.1920929e-7f;
    Planes outs[2] = {Planes(16, 0, kCanary), Planes(16, 0, kCanary)};
    for (int body = 0; body < 2; ++body) {  // vector, then plain through a misaligned u plane
        SmoothCase c(body);
        Lum32f* hit[2] = {c.u.p, c.v.p};
        Planes& out = outs[body];
        ASSERT_EQ(lumrSurfSmoothNormal_32f(c.vn.p, c.index.p, c.hits.p, hit, &out.pl, 16, c.kStride), lumStatusOk);
        for (int i = 0; i < 16; ++i) {
            Lum32f m[3], want[3] = {0, 0, 0};
            if (c.hits[i] >= 0) {
                c.interpolate(i, m);
                const Lum32f s = (m[0] * m[0] + m[1] * m[1]) + m[2] * m[2];
                const Lum32f y = s > eps ? _mm_cvtss_f32(_mm_rsqrt_ss(_mm_set_ss(s))) : 0.0f;
                const Lum32f z = (y * -0.5f) * ((s * y) * y - 3.0f);
                for (int k = 0; k < 3; ++k)
                    want[k] = body == 0 ? m[k] * z : s < eps ? 0.0f : m[k] / std::sqrt(s);
            }
            for (int k = 0; k < 3; ++k)
                EXPECT_EQ(bitsOf(out.c(k)[i]), bitsOf(want[k])) << body << " " << i << " " << k;
        }
    }
    // At exactly 2^-23 only the plain loop still divides; opposite normals
    // give zero in both; elsewhere the two agree closely.
    EXPECT_EQ(outs[0].x[8], 0.0f);
    EXPECT_NEAR(outs[1].x[8], std::sqrt(0.5f), 1e-6f);
    EXPECT_EQ(outs[0].x[12], 0.0f); EXPECT_EQ(outs[1].x[12], 0.0f);
    for (int i : {4, 5, 6, 7, 10, 13, 14, 15})
        for (int k = 0; k < 3; ++k) {
            EXPECT_NEAR(outs[0].c(k)[i], outs[1].c(k)[i], 2e-6f) << i;
        }

    SmoothCase c(0);
    Lum32f* hit[2] = {c.u.p, c.v.p};
    Planes canary(4, 0, kCanary);
    EXPECT_EQ(lumrSurfSmoothNormal_32f(nullptr, c.index.p, c.hits.p, hit, nullptr, 4, 3), lumStatusNullPtr);
    EXPECT_EQ(lumrSurfSmoothNormal_32f(c.vn.p, c.index.p, c.hits.p, nullptr, &canary.pl, 4, 3), lumStatusNullPtr);
    EXPECT_EQ(canary.x[0], kCanary);
}

struct ThreadCount {
    explicit ThreadCount(Lum32s n) { lumSetNumThreads(n); }
    ~ThreadCount() { lumSetNumThreads(saved); }
    Lum32s saved = lumGetNumThreads();
};

TEST(TriangleNormal, UnitOrientedAndThreadIndependent) {
    const int nv = 3000, nt = 20000;
    std::mt19937 rng(9);
    std::vector<Lum32f> verts(3 * nv);
    fillUniform(verts.data(), 3 * nv, rng, -10, 10);
    std::vector<Lum32s> tris(4 * nt);
    for (int i = 0; i < 4 * nt; ++i) tris[i] = i % 4 == 3 ? -1 : static_cast<Lum32s>(rng() % nv);
    // Counter-clockwise seen from +z, legs 2^-13 (s = 2^-52 exactly, kept), legs
    // 2^-13 and 2^-14 (s = 2^-54, dropped), and three collinear points.
    const Lum32f h = std::ldexp(1.0f, -13);
    const Lum32f extra[] = {0, 0, 0, 1, 0, 0, 0, 1, 0, h, 0, 0, 0, h, 0, h / 2, 0, 0, 1, 1, 1, 2, 2, 2, 3, 3, 3};
    verts.insert(verts.end(), std::begin(extra), std::end(extra));
    const Lum32s special[] = {nv, nv + 1, nv + 2, 0, nv + 3, nv + 4, nv, 0,
                              nv + 5, nv + 4, nv, 0, nv + 6, nv + 7, nv + 8, 0};
    tris.insert(tris.end(), std::begin(special), std::end(special));
    const int count = nt + 4;
    std::vector<Lum32f> one(3 * count, kCanary), two(3 * count, kCanary);
    {
        ThreadCount t(1);
        ASSERT_EQ(lumrTriangleNormal_32f(verts.data(), tris.data(), one.data(), count), lumStatusOk);
    }
    {
        ThreadCount t(2);
        ASSERT_EQ(lumrTriangleNormal_32f(verts.data(), tris.data(), two.data(), count), lumStatusOk);
    }
    ASSERT_EQ(0, std::memcmp(one.data(), two.data(), one.size() * 4));
    for (int t = 0; t < nt; ++t) {
        const Lum32f* n = &one[3 * t];
        const Lum32f* p[3] = {&verts[3 * tris[4 * t]], &verts[3 * tris[4 * t + 1]], &verts[3 * tris[4 * t + 2]]};
        const double len = std::sqrt(double(n[0]) * n[0] + double(n[1]) * n[1] + double(n[2]) * n[2]);
        if (len == 0.0) continue;  // a repeated vertex
        EXPECT_NEAR(len, 1.0, 1e-6);
        for (int e = 0; e < 2; ++e) {  // perpendicular to both edges from p2
            double dot = 0, el = 0;
            for (int k = 0; k < 3; ++k) dot += n[k] * (double(p[e][k]) - p[2][k]), el += std::pow(double(p[e][k]) - p[2][k], 2);
            EXPECT_NEAR(dot / std::sqrt(el), 0.0, 1e-5);
        }
    }
    const Lum32f* s = &one[3 * nt];
    const Lum32f up[12] = {0, 0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0};
    for (int i = 0; i < 12; ++i) {
        EXPECT_EQ(bitsOf(s[i]), bitsOf(up[i])) << i;
    }

    std::vector<Lum32f> canary(6, kCanary);
    for (Lum32s empty : {0, -3}) {
        ThreadCount t(2);
        EXPECT_EQ(lumrTriangleNormal_32f(verts.data(), tris.data(), canary.data(), empty), lumStatusOk);
    }
    EXPECT_EQ(lumrTriangleNormal_32f(nullptr, tris.data(), nullptr, 2), lumStatusNullPtr);
    EXPECT_EQ(lumrTriangleNormal_32f(verts.data(), nullptr, canary.data(), 2), lumStatusNullPtr);
    EXPECT_EQ(canary[0], kCanary); EXPECT_EQ(canary[5], kCanary);
}

}  // namespace
