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
        Stream<Lum32f> table(18, body == 2);
        fillUniform(table.p, 18, rng);
        const Lum32u payload = 0x7F800001u;  // a signalling NaN must arrive unquieted
        std::memcpy(&table[7], &payload, 4);  // through the shared-triangle fetch
        std::memcpy(&table[9], &payload, 4);  // through the gather
        Stream<Lum32s> hits(16);
        std::copy(kHits, kHits + 16, hits.p);
        const int len = body == 1 ? 15 : 16;
        Planes out(16, 0, kCanary);
        ASSERT_EQ(lumrSurfFlatNormal_32f(table.p, hits.p, &out.pl, len), lumStatusOk);
        for (int i = 0; i < 16; ++i)
            for (int k = 0; k < 3; ++k)
                EXPECT_EQ(bitsOf(out[k][i]), i >= len ? bitsOf(kCanary) : hits[i] < 0 ? 0u : bitsOf(table[3 * hits[i] + k]))
                    << body << " " << i;
    }
    Stream<Lum32f> table(3);
    Stream<Lum32s> hits(4);
    Planes canary(4, 0, kCanary);
    EXPECT_EQ(lumrSurfFlatNormal_32f(nullptr, nullptr, &canary.pl, 4), lumStatusNullPtr);
    EXPECT_EQ(lumrSurfFlatNormal_32f(table.p, nullptr, &canary.pl, 4), lumStatusNullPtr);
    EXPECT_EQ(canary[0][0], kCanary);
    EXPECT_EQ(lumrSurfFlatNormal_32f(table.p, hits.p, nullptr, 0), lumStatusOk);  // destination unchecked
}

TEST(SurfSmoothNormal, PlainDividesVectorRefinesRsqrt) {
    const int kStride = 5, n = 16;
    std::mt19937 rng(5);
    Stream<Lum32f> vn(36), u0(n), u1(n, 1), v(n);
    Stream<Lum32s> index(8 * kStride), hits(n);
    fillUniform(vn.p, 36, rng, -1, 1);
    for (int i = 0; i < 8 * kStride; ++i) index[i] = i % kStride < 3 ? static_cast<Lum32s>(rng() % 12) : -99;
    std::copy(kHits, kHits + n, hits.p);
    fillUniform(u0.p, n, rng, 0, 0.5f), fillUniform(v.p, n, rng, 0, 0.5f);
    for (int i = 0; i < n; ++i)
        if (hits[i] < 0) u0[i] = NAN, v[i] = 1e30f;  // garbage that off lanes must not show
    // Lane 8: u = 1 on a vertex normal of squared length 2^-23 exactly.
    // Lane 12: opposite normals at two vertices and u = v = 1/2.
    index[4 * kStride] = 0, u0[8] = 1, v[8] = 0, vn[0] = vn[1] = std::ldexp(1.0f, -12), vn[2] = 0;
    index[5 * kStride] = 1, index[5 * kStride + 1] = 2, u0[12] = v[12] = 0.5f;
    for (int k = 0; k < 3; ++k) vn[6 + k] = -vn[3 + k];
    std::copy(u0.p, u0.p + n, u1.p);
    Planes out[2] = {Planes(n), Planes(n)};
    for (int body = 0; body < 2; ++body) {  // vector, then plain through a misaligned u plane
        Lum32f* hit[2] = {body ? u1.p : u0.p, v.p};
        ASSERT_EQ(lumrSurfSmoothNormal_32f(vn.p, index.p, hits.p, hit, &out[body].pl, n, kStride), lumStatusOk);
        for (int i = 0; i < n; ++i) {
            Lum32f m[3], want[3] = {0, 0, 0};
            if (hits[i] >= 0) {
                const Lum32s* c = index.p + hits[i] * kStride;
                const Lum32f w = (1.0f - u0[i]) - v[i];
                for (int k = 0; k < 3; ++k)
                    m[k] = vn[3 * c[2] + k] * w + (v[i] * vn[3 * c[1] + k] + u0[i] * vn[3 * c[0] + k]);
                const Lum32f s = (m[0] * m[0] + m[1] * m[1]) + m[2] * m[2];
                const Lum32f y = s > 1.1920929e-7f ? _mm_cvtss_f32(_mm_rsqrt_ss(_mm_set_ss(s))) : 0.0f;
                const Lum32f z = (y * -0.5f) * ((s * y) * y - 3.0f);
                for (int k = 0; k < 3; ++k)
                    want[k] = body == 0 ? m[k] * z : s < 1.1920929e-7f ? 0.0f : m[k] / std::sqrt(s);
            }
            for (int k = 0; k < 3; ++k) EXPECT_EQ(bitsOf(out[body][k][i]), bitsOf(want[k])) << body << " " << i;
        }
    }
    // At exactly 2^-23 only the plain loop still divides; opposite normals give
    // zero in both; elsewhere the two bodies agree closely.
    EXPECT_EQ(out[0][0][8], 0.0f);
    EXPECT_NEAR(out[1][0][8], std::sqrt(0.5f), 1e-6f);
    EXPECT_EQ(out[0][0][12], 0.0f); EXPECT_EQ(out[1][0][12], 0.0f);
    for (int i : {4, 5, 6, 7, 10, 13, 14, 15})
        for (int k = 0; k < 3; ++k) EXPECT_NEAR(out[0][k][i], out[1][k][i], 2e-6f) << i;
    Lum32f* hit[2] = {u0.p, v.p};
    Planes canary(4, 0, kCanary);
    EXPECT_EQ(lumrSurfSmoothNormal_32f(nullptr, index.p, hits.p, hit, nullptr, 4, 3), lumStatusNullPtr);
    EXPECT_EQ(lumrSurfSmoothNormal_32f(vn.p, index.p, hits.p, nullptr, &canary.pl, 4, 3), lumStatusNullPtr);
    EXPECT_EQ(canary[0][0], kCanary);
}

struct ThreadCount {
    explicit ThreadCount(Lum32s n) { lumSetNumThreads(n); }
    ~ThreadCount() { lumSetNumThreads(saved); }
    Lum32s saved = lumGetNumThreads();
};

std::vector<Lum32f> triangleNormals(const std::vector<Lum32f>& verts, const std::vector<Lum32s>& tris, Lum32s threads) {
    ThreadCount t(threads);
    std::vector<Lum32f> out(3 * tris.size() / 4, kCanary);
    EXPECT_EQ(lumrTriangleNormal_32f(verts.data(), tris.data(), out.data(), tris.size() / 4), lumStatusOk);
    return out;
}

TEST(TriangleNormal, UnitOrientedAndThreadIndependent) {
    const int nv = 3000, nt = 20000;
    std::mt19937 rng(9);
    std::vector<Lum32f> verts(3 * nv);
    fillUniform(verts.data(), 3 * nv, rng, -10, 10);
    std::vector<Lum32s> tris(4 * nt);
    for (int i = 0; i < 4 * nt; ++i) tris[i] = i % 4 == 3 ? -1 : static_cast<Lum32s>(rng() % nv);
    // Counter-clockwise seen from +z; legs 2^-13 (s = 2^-52 exactly, kept);
    // legs 2^-14 and 2^-13 (s = 2^-54, dropped); three collinear points.
    const Lum32f h = std::ldexp(1.0f, -13);
    const Lum32f extra[] = {0, 0, 0, 1, 0, 0, 0, 1, 0, h, 0, 0, 0, h, 0, h / 2, 0, 0, 1, 1, 1, 2, 2, 2, 3, 3, 3};
    verts.insert(verts.end(), std::begin(extra), std::end(extra));
    const Lum32s special[] = {nv, nv + 1, nv + 2, 0, nv + 3, nv + 4, nv, 0, nv + 5, nv + 4, nv, 0, nv + 6, nv + 7, nv + 8, 0};
    tris.insert(tris.end(), std::begin(special), std::end(special));
    const std::vector<Lum32f> one = triangleNormals(verts, tris, 1);
    ASSERT_EQ(0, std::memcmp(one.data(), triangleNormals(verts, tris, 2).data(), one.size() * 4));
    for (int t = 0; t < nt; ++t) {
        const Lum32f* n = &one[3 * t];
        const double len = std::sqrt(double(n[0]) * n[0] + double(n[1]) * n[1] + double(n[2]) * n[2]);
        if (len == 0.0) continue;  // a repeated vertex
        EXPECT_NEAR(len, 1.0, 1e-6);
        const Lum32f* p2 = &verts[3 * tris[4 * t + 2]];
        for (int e = 0; e < 2; ++e) {  // perpendicular to both edges from p2
            const Lum32f* p = &verts[3 * tris[4 * t + e]];
            const double d[3] = {double(p[0]) - p2[0], double(p[1]) - p2[1], double(p[2]) - p2[2]};
            EXPECT_NEAR((n[0] * d[0] + n[1] * d[1] + n[2] * d[2]) / std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]), 0.0, 1e-5);
        }
    }
    const Lum32f up[12] = {0, 0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0};
    for (int i = 0; i < 12; ++i) EXPECT_EQ(bitsOf(one[3 * nt + i]), bitsOf(up[i])) << i;
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
