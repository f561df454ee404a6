// Surface normals: flat copies, interpolated normals in both bodies, and the
// triangle normal table against its double arithmetic under one and two threads.
#include <immintrin.h>

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
}

// Deliberate: the loop divides by the square root, the vector body refines
// the processor's estimate, so the two differ in the last bits; and at s
// exactly 2^-23 only the loop still divides.
TEST(SurfSmoothNormal, PlainDividesVectorRefinesRsqrt) {
    const int kStride = 5, n = 16;
    std::mt19937 rng(5);
    Stream<Lum32f> vn(36), vnU(36, 1), u0(n), u1(n, 1), v(n);
    Stream<Lum32s> index(8 * kStride), indexU(8 * kStride, 1), hits(n);
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
    std::copy(u0.p, u0.p + n, u1.p), std::copy(vn.p, vn.p + 36, vnU.p);
    std::copy(index.p, index.p + 8 * kStride, indexU.p);
    Planes out[2] = {Planes(n), Planes(n)};
    // Vector, then plain through a misaligned u plane, vertex normal array
    // or index array: all three are in the gate.
    for (int body = 0; body < 4; ++body) {
        Lum32f* hit[2] = {body == 1 ? u1.p : u0.p, v.p};
        Planes& o = out[body > 0];
        ASSERT_EQ(lumrSurfSmoothNormal_32f(body == 2 ? vnU.p : vn.p, body == 3 ? indexU.p : index.p, hits.p, hit,
                                           &o.pl, n, kStride), lumStatusOk);
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
            for (int k = 0; k < 3; ++k) EXPECT_EQ(bitsOf(o[k][i]), bitsOf(want[k])) << body << " " << i;
        }
    }
    EXPECT_EQ(out[0][0][8], 0.0f);
    EXPECT_NEAR(out[1][0][8], std::sqrt(0.5f), 1e-6f);
    EXPECT_EQ(out[0][0][12], 0.0f); EXPECT_EQ(out[1][0][12], 0.0f);  // opposite normals: zero in both
}

// Worked in double from widened vertices and rounded once: the float
// evaluation of the same steps differs on some triangles.
TEST(TriangleNormal, RoundsOnceFromDoubleWhateverTheThreads) {
    const int nv = 3000, nt = 20000;
    std::mt19937 rng(9);
    std::vector<Lum32f> verts(3 * nv);
    fillUniform(verts.data(), 3 * nv, rng, -100, 100);
    std::vector<Lum32s> tris(4 * nt);
    for (int i = 0; i < 4 * nt; ++i) tris[i] = i % 4 == 3 ? -1 : static_cast<Lum32s>(rng() % nv);
    // Counter-clockwise seen from +z; legs 2^-13 (s = 2^-52 exactly, kept);
    // legs 2^-14 and 2^-13 (s = 2^-54, dropped); three collinear points.
    const Lum32f h = std::ldexp(1.0f, -13);
    const Lum32f extra[] = {0, 0, 0, 1, 0, 0, 0, 1, 0, h, 0, 0, 0, h, 0, h / 2, 0, 0, 1, 1, 1, 2, 2, 2, 3, 3, 3};
    verts.insert(verts.end(), std::begin(extra), std::end(extra));
    const Lum32s special[] = {nv, nv + 1, nv + 2, 0, nv + 3, nv + 4, nv, 0, nv + 5, nv + 4, nv, 0, nv + 6, nv + 7, nv + 8, 0};
    tris.insert(tris.end(), std::begin(special), std::end(special));
    std::vector<Lum32f> one(3 * (nt + 4), kCanary), two(one.size(), kCanary);
    const Lum32s saved = lumGetNumThreads();
    for (std::vector<Lum32f>* out : {&one, &two}) {
        lumSetNumThreads(out == &one ? 1 : 2);
        ASSERT_EQ(lumrTriangleNormal_32f(verts.data(), tris.data(), out->data(), nt + 4), lumStatusOk);
    }
    lumSetNumThreads(saved);
    ASSERT_EQ(0, std::memcmp(one.data(), two.data(), one.size() * 4));
    int differ = 0;
    for (int t = 0; t < nt; ++t) {
        const Lum32f *p0 = &verts[3 * tris[4 * t]], *p1 = &verts[3 * tris[4 * t + 1]], *p2 = &verts[3 * tris[4 * t + 2]];
        double a[3], b[3];
        float af[3], bf[3];
        for (int k = 0; k < 3; ++k) {
            a[k] = double(p0[k]) - p2[k], b[k] = double(p1[k]) - p2[k];
            af[k] = p0[k] - p2[k], bf[k] = p1[k] - p2[k];
        }
        const double nn[3] = {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
        const float nf[3] = {af[1] * bf[2] - af[2] * bf[1], af[2] * bf[0] - af[0] * bf[2], af[0] * bf[1] - af[1] * bf[0]};
        const double s = (nn[0] * nn[0] + nn[1] * nn[1]) + nn[2] * nn[2];
        const float rf = std::sqrt((nf[0] * nf[0] + nf[1] * nf[1]) + nf[2] * nf[2]);
        for (int k = 0; k < 3; ++k) {
            const Lum32f want = s < std::ldexp(1.0, -52) ? 0.0f : static_cast<Lum32f>(nn[k] / std::sqrt(s));
            EXPECT_EQ(bitsOf(one[3 * t + k]), bitsOf(want)) << t << " " << k;
            differ += want != nf[k] / rf;
        }
    }
    EXPECT_GT(differ, 0);
    const Lum32f up[12] = {0, 0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0};
    for (int i = 0; i < 12; ++i) EXPECT_EQ(bitsOf(one[3 * nt + i]), bitsOf(up[i])) << i;
}

}  // namespace
