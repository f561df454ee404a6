// Audit of the ray-stream family: every lane against its arithmetic written
// out independently, the gate members that choose a body, all-off groups
// that must not read their inputs, empty lengths, and the boundary values of
// the triangle records and triangle normals.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <climits>
#include <cmath>
#include <utility>

#include "ray_buffers.h"

namespace {

// The same bits, or any NaN where a NaN is due (payloads are not fixed).
::testing::AssertionResult sameLane(Lum32f got, Lum32f want) {
    if (std::isnan(want) ? std::isnan(got) : bitsOf(got) == bitsOf(want))
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "got " << got << " (0x" << std::hex << bitsOf(got)
                                         << "), want " << want << " (0x" << bitsOf(want) << ")";
}

// Values on the rules' edges (signed zeros, infinities, NaN, a subnormal,
// exact small numbers) mixed with ordinary ones.
Lum32f pick(std::mt19937& rng) {
    static const Lum32f kEdge[] = {0.0f, -0.0f, 1.0f, -1.0f, 0.5f, 3.0f, INFINITY, -INFINITY, NAN, 1e-40f, -2.5f};
    if (rng() % 3 == 0) return kEdge[rng() % 11];
    return std::uniform_real_distribution<Lum32f>(-4, 4)(rng);
}

// Group 0 all off, group 1 all on (0 included), the rest mixed.
Lum32s pickMask(int i, std::mt19937& rng) {
    if (i < 4) return i % 2 ? -1 : INT32_MIN;
    if (i < 8) return i == 4 ? 0 : 5;
    return rng() % 3 == 0 ? (rng() % 2 ? -1 : INT32_MIN) : static_cast<Lum32s>(rng() % 3);
}

struct Data {
    static constexpr int n = 32;
    explicit Data(unsigned seed) {
        std::mt19937 rng(seed);
        for (int i = 0; i < n; ++i) {
            s[i] = pick(rng), m[i] = pickMask(i, rng);
            for (int k = 0; k < 3; ++k) a[k][i] = pick(rng), b[k][i] = pick(rng), d[k][i] = pick(rng);
        }
    }
    Lum32f s[n], a[3][n], b[3][n], d[3][n];
    Lum32s m[n];
};

void put(Planes& p, const Lum32f (&src)[3][Data::n]) {
    for (int k = 0; k < 3; ++k) std::copy(src[k], src[k] + Data::n, p[k]);
}

// Each function on the same edge-laden data through the vector body
// (aligned, length 32) and the plain loop (length 31, or misaligned).
TEST(RaysAudit, StreamArithmeticFollowsItsWrittenFormulas) {
    const Data in(77);
    const int n = Data::n;
    const Lum32f k3[3] = {0.3f, -1.7f, INFINITY};
    for (auto [len, shift] : {std::pair{32, 0}, {31, 0}, {32, 1}}) {
        const bool vec = len % 4 == 0 && shift == 0;
        SCOPED_TRACE(testing::Message() << "len " << len << " shift " << shift);
        Stream<Lum32f> s(n, shift), o(n, shift);
        Stream<Lum32s> m(n, shift);
        Planes a(n, shift), b(n, shift), d(n, shift);
        auto load = [&] {
            std::copy(in.s, in.s + n, s.p), std::copy(in.m, in.m + n, m.p);
            std::fill(o.p, o.p + n, kCanary);
            put(a, in.a), put(b, in.b), put(d, in.d);
        };
        auto on = [&](int i) { return i < len && in.m[i] >= 0; };

        load();  // d = d x s, off 0 (plain loop only)
        ASSERT_EQ(lumrMul_32f_C1IM(s.p, m.p, d[0], len), lumStatusOk);
        for (int i = 0; i < n; ++i)
            EXPECT_TRUE(sameLane(d[0][i], i >= len ? in.d[0][i] : on(i) ? in.d[0][i] * in.s[i] : 0.0f)) << i;

        load();  // d = d / s; a zero s gives +-inf by the sign of d, else 0xFFC00000
        ASSERT_EQ(lumrDiv_32f_C1IM(s.p, m.p, d[0], len), lumStatusOk);
        for (int i = 0; i < n; ++i) {
            const Lum32f q = in.d[0][i], sv = in.s[i];
            const Lum32f want = i >= len ? q : !on(i) ? 0.0f : sv != 0.0f ? q / sv : q > 0 ? INFINITY : q < 0 ? -INFINITY : NAN;
            EXPECT_TRUE(sameLane(d[0][i], want)) << i;
            if (on(i) && sv == 0.0f && !(q > 0) && !(q < 0)) {
                EXPECT_EQ(bitsOf(d[0][i]), 0xFFC00000u) << i;
            }
        }

        load();  // d.k = s x d.k, off all three 0
        ASSERT_EQ(lumrMul_32f_C1P3IM(s.p, m.p, &d.pl, len), lumStatusOk);
        for (int i = 0; i < n; ++i)
            for (int k = 0; k < 3; ++k)
                EXPECT_TRUE(sameLane(d[k][i], i >= len ? in.d[k][i] : on(i) ? in.s[i] * in.d[k][i] : 0.0f)) << i;

        load();  // d.k += (k x b.k) x a plain, (b.k x a) x k vector; off unchanged
        ASSERT_EQ(lumrAddMulMul_32f_AC1P3IM(k3, s.p, &b.pl, m.p, &d.pl, len), lumStatusOk);
        for (int i = 0; i < n; ++i)
            for (int k = 0; k < 3; ++k) {
                const Lum32f t = vec ? (in.b[k][i] * in.s[i]) * k3[k] : (k3[k] * in.b[k][i]) * in.s[i];
                EXPECT_TRUE(sameLane(d[k][i], on(i) ? in.d[k][i] + t : in.d[k][i])) << i;
            }

        auto dot = [&](const Lum32f (&u)[3][n], const Lum32f (&v)[3][n], int i) {
            return (u[0][i] * v[0][i] + u[1][i] * v[1][i]) + u[2][i] * v[2][i];
        };
        load();  // (u.x v.x + u.y v.y) + u.z v.z, off 0
        ASSERT_EQ(lumrDot_32f_P3C1M(&a.pl, &b.pl, m.p, o.p, len), lumStatusOk);
        for (int i = 0; i < n; ++i)
            EXPECT_TRUE(sameLane(o[i], i >= len ? kCanary : on(i) ? dot(in.a, in.b, i) : 0.0f)) << i;

        load();  // t > 0 flips n and writes -t; otherwise t; off 0 with n kept
        ASSERT_EQ(lumrDotChangeNorm_32f_IM(&a.pl, m.p, &d.pl, o.p, len), lumStatusOk);
        for (int i = 0; i < n; ++i) {
            const Lum32f t = dot(in.a, in.d, i);
            const bool flip = on(i) && t > 0;
            EXPECT_TRUE(sameLane(o[i], i >= len ? kCanary : !on(i) ? 0.0f : flip ? -t : t)) << i;
            for (int k = 0; k < 3; ++k)
                EXPECT_EQ(bitsOf(d[k][i]), bitsOf(flip ? -in.d[k][i] : in.d[k][i])) << i;
        }

        load();  // distance held to 1; a NaN q gives NaN plain, 1 vector; off 1
        const Lum32f org[3] = {0.5f, -1.0f, 2.0f};
        ASSERT_EQ(lumrDistAttenuationSO_32f_M(org, &a.pl, m.p, o.p, len), lumStatusOk);
        for (int i = 0; i < n; ++i) {
            const Lum32f dx = in.a[0][i] - org[0], dy = in.a[1][i] - org[1], dz = in.a[2][i] - org[2];
            const Lum32f q = (dx * dx + dy * dy) + dz * dz;
            const Lum32f r = vec ? (1.0f < q ? std::sqrt(q) : 1.0f) : (q < 1.0f ? 1.0f : std::sqrt(q));
            EXPECT_TRUE(sameLane(o[i], i >= len ? kCanary : on(i) ? r : 1.0f)) << i;
        }
    }
}

// Shadow rays on edge-laden data: whole groups by the vector rule (a failing
// lane, an off one included, gets mask -1), the last lanes by the tail rule
// (an off lane keeps its mask value).
TEST(RaysAudit, ShadowRaysFollowTheirWrittenRule) {
    const Data in(91);
    const int n = Data::n;
    const Lum32f light[3] = {0.25f, -0.5f, 1.0f}, thr = 0.00174532924f;
    for (int len : {32, 31, 30, 29})
        for (int shift : {0, 1}) {
            SCOPED_TRACE(testing::Message() << "len " << len << " shift " << shift);
            Stream<Lum32f> face(n, shift), dot(n, shift, kCanary);
            Stream<Lum32s> m(n, shift);
            Planes nrm(n, shift), pts(n, shift), rays(n, shift, kCanary);
            std::copy(in.s, in.s + n, face.p), std::copy(in.m, in.m + n, m.p);
            put(nrm, in.a), put(pts, in.b);
            ASSERT_EQ(lumrCastShadowSO_32f(light, face.p, &nrm.pl, &pts.pl, m.p, dot.p, &rays.pl, len), lumStatusOk);
            for (int i = 0; i < n; ++i) {
                Lum32f dv[3];
                for (int k = 0; k < 3; ++k) dv[k] = in.b[k][i] - light[k];
                const Lum32f v = (dv[0] * in.a[0][i] + dv[1] * in.a[1][i]) + dv[2] * in.a[2][i];
                const bool pass = in.m[i] >= 0 && std::fabs(v) >= thr && v * in.s[i] > 0;
                const bool tail = i >= (len & ~3);
                if (i >= len) {
                    EXPECT_EQ(m[i], in.m[i]);
                    EXPECT_EQ(dot[i], kCanary);
                    continue;
                }
                EXPECT_EQ(m[i], pass || (tail && in.m[i] < 0) ? in.m[i] : -1) << i;
                EXPECT_TRUE(sameLane(dot[i], pass ? std::fabs(v) : 0.0f)) << i;
                for (int k = 0; k < 3; ++k) EXPECT_TRUE(sameLane(rays[k][i], pass ? dv[k] : 0.0f)) << i;
            }
        }
}

// Which streams are in a gate decides the body, and so the order of the
// operations: the accumulation's operand planes, the attenuation's origin
// and the shared hit origin are outside their gates; the smooth normal's
// vertex normal and index arrays are inside.
TEST(RaysAudit, GateMembersChooseTheBody) {
    std::mt19937 rng(5);
    const int n = 16;
    {
        Stream<Lum32f> sc(n), scU(n, 1);
        Stream<Lum32s> m(n, 0, 0);
        Planes op(n), opU(n, 1);
        for (int k = 0; k < 3; ++k) fillUniform(op[k], n, rng), std::copy(op[k], op[k] + n, opU[k]);
        fillUniform(sc.p, n, rng), std::copy(sc.p, sc.p + n, scU.p);
        const Lum32f k3[3] = {0.3f, 1.7f, -2.9f};
        int differ = 0;
        for (int form = 0; form < 2; ++form) {  // misaligned operand: vector; misaligned scale: plain
            Planes acc(n);
            ASSERT_EQ(lumrAddMulMul_32f_AC1P3IM(k3, form ? scU.p : sc.p, form ? &op.pl : &opU.pl, m.p, &acc.pl, n), lumStatusOk);
            for (int i = 0; i < n; ++i)
                for (int k = 0; k < 3; ++k) {
                    const Lum32f v = (op[k][i] * sc[i]) * k3[k], p = (k3[k] * op[k][i]) * sc[i];
                    differ += v != p;
                    EXPECT_EQ(bitsOf(acc[k][i]), bitsOf(0.0f + (form ? p : v))) << form << " " << i;
                }
        }
        EXPECT_GT(differ, 0);
    }
    {
        // q is NaN on every lane: 1 from the vector body, NaN from the loop.
        Planes pts(n, 0, NAN), ptsU(n, 1, NAN);
        Stream<Lum32s> m(n, 0, 0);
        Stream<Lum32f> out(n), outU(n, 1);
        Lum32f originStore[4] = {0, 1, 2, 3};
        const Lum32f* origin = originStore + 1;  // a triple outside the gate
        ASSERT_EQ(lumrDistAttenuationSO_32f_M(origin, &pts.pl, m.p, out.p, n), lumStatusOk);
        EXPECT_EQ(out[0], 1.0f);
        ASSERT_EQ(lumrDistAttenuationSO_32f_M(origin, &pts.pl, m.p, outU.p, n), lumStatusOk);
        EXPECT_TRUE(std::isnan(outU[0]));
        LumPlanes3 oneOff = pts.pl;
        oneOff.Z = ptsU[2];
        ASSERT_EQ(lumrDistAttenuationSO_32f_M(origin, &oneOff, m.p, out.p, n), lumStatusOk);
        EXPECT_TRUE(std::isnan(out[0]));
    }
    {
        // u = 1 on a vertex normal of squared length 2^-23 exactly: the loop
        // divides (2^-12 / 2^-11.5 = sqrt(1/2)), the vector body gives 0.
        const Lum32f h = std::ldexp(1.0f, -12);
        Stream<Lum32f> vn(24), vnU(24, 1), u(n, 0, 1.0f), v(n, 0, 0.0f);
        Stream<Lum32s> idx(8), idxU(8, 1), hits(n, 0, 0);
        for (Lum32f* p : {vn.p, vnU.p}) p[0] = p[1] = h, p[2] = 0;
        for (Lum32s* p : {idx.p, idxU.p}) p[0] = 0, p[1] = 0, p[2] = 0;
        Lum32f* pair[2] = {u.p, v.p};
        for (int form = 0; form < 3; ++form) {  // aligned, misaligned normals, misaligned index
            Planes out(n, 0, kCanary);
            ASSERT_EQ(lumrSurfSmoothNormal_32f(form == 1 ? vnU.p : vn.p, form == 2 ? idxU.p : idx.p, hits.p, pair, &out.pl, n, 3), lumStatusOk);
            EXPECT_EQ(out[0][3], form == 0 ? 0.0f : h / std::sqrt(h * h + h * h)) << form;
            EXPECT_EQ(bitsOf(out[2][3]), 0u) << form;
        }
    }
    {
        Planes dir(n), hit(n);
        Stream<Lum32f> dist(n);
        Stream<Lum32s> m(n, 0, 0);
        for (int k = 0; k < 3; ++k) fillUniform(dir[k], n, rng);
        fillUniform(dist.p, n, rng, 0, 100);
        Lum32f originStore[4] = {0, 4.5f, -7.25f, 0.125f};
        const Lum32f* origin = originStore + 1, eps = 0.9993f;
        ASSERT_EQ(lumrHitPoint3DEpsS0_32f_M(origin, &dir.pl, dist.p, m.p, &hit.pl, n, eps), lumStatusOk);
        int differ = 0;
        for (int i = 0; i < n; ++i)
            for (int k = 0; k < 3; ++k) {
                const Lum32f v = (dist[i] * dir[k][i]) * eps + origin[k];
                differ += v != (eps * dir[k][i]) * dist[i] + origin[k];
                EXPECT_EQ(bitsOf(hit[k][i]), bitsOf(v)) << i;
            }
        EXPECT_GT(differ, 0);
    }
}

// A page that faults on any access: an all-off group of four must store its
// off-lane value without reading any input.
struct NoAccessPage {
    NoAccessPage() : size(static_cast<size_t>(sysconf(_SC_PAGESIZE))) {
        p = mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    }
    ~NoAccessPage() { munmap(p, size); }
    size_t size;
    void* p;
};

TEST(RaysAudit, AllOffGroupsReadNoInput) {
    NoAccessPage page;
    ASSERT_NE(page.p, MAP_FAILED);
    Lum32f* f = static_cast<Lum32f*>(page.p);
    Lum32s* idx = static_cast<Lum32s*>(page.p);
    LumPlanes3 none = {f, f, f};
    const int n = 8;
    Stream<Lum32s> off(n);
    for (int i = 0; i < n; ++i) off[i] = i % 2 ? -1 : INT32_MIN;
    Planes out(n, 0, kCanary);
    Stream<Lum32f> o(n, 0, kCanary);
    auto expectAll = [&](Lum32f want, const char* what) {
        for (int i = 0; i < n; ++i)
            for (int k = 0; k < 3; ++k) EXPECT_EQ(bitsOf(out[k][i]), bitsOf(want)) << what << " " << i;
    };
    ASSERT_EQ(lumrMul_32f_C1P3IM(f, off.p, &out.pl, n), lumStatusOk);
    expectAll(0.0f, "mul");
    std::fill(out[0], out[0] + n, kCanary), std::fill(out[1], out[1] + n, kCanary), std::fill(out[2], out[2] + n, kCanary);
    ASSERT_EQ(lumrAddMulMul_32f_AC1P3IM(f, f, &none, off.p, &out.pl, n), lumStatusOk);
    expectAll(kCanary, "accumulate");
    ASSERT_EQ(lumrDot_32f_P3C1M(&none, &none, off.p, o.p, n), lumStatusOk);
    for (int i = 0; i < n; ++i) EXPECT_EQ(bitsOf(o[i]), 0u) << i;
    std::fill(o.p, o.p + n, kCanary);
    ASSERT_EQ(lumrDotChangeNorm_32f_IM(&none, off.p, &none, o.p, n), lumStatusOk);
    for (int i = 0; i < n; ++i) EXPECT_EQ(bitsOf(o[i]), 0u) << i;
    ASSERT_EQ(lumrDistAttenuationSO_32f_M(f, &none, off.p, o.p, n), lumStatusOk);
    for (int i = 0; i < n; ++i) EXPECT_EQ(o[i], 1.0f) << i;
    // Every input of these calls lies on the page; only the mask and the
    // destination are real.
    using Call = LumStatus (*)(Lum32f*, Lum32s*, LumPlanes3*, const Lum32s*, const LumPlanes3*);
    const Call calls[] = {
        [](Lum32f*, Lum32s*, LumPlanes3* in, const Lum32s* m, const LumPlanes3* dst) {
            return lumrCastReflectionRay_32f(in, m, in, dst, 8);
        },
        [](Lum32f* fp, Lum32s*, LumPlanes3* in, const Lum32s* m, const LumPlanes3* dst) {
            return lumrHitPoint3DEpsS0_32f_M(fp, in, fp, m, dst, 8, 1.0f);
        },
        [](Lum32f* fp, Lum32s*, LumPlanes3* in, const Lum32s* m, const LumPlanes3* dst) {
            return lumrHitPoint3DEpsM0_32f_M(in, in, fp, m, dst, 8, 1.0f);
        },
        [](Lum32f* fp, Lum32s*, LumPlanes3*, const Lum32s* m, const LumPlanes3* dst) {
            return lumrSurfFlatNormal_32f(fp, m, dst, 8);
        },
        [](Lum32f* fp, Lum32s* ip, LumPlanes3*, const Lum32s* m, const LumPlanes3* dst) {
            Lum32f* pair[2] = {fp, fp};
            return lumrSurfSmoothNormal_32f(fp, ip, m, pair, dst, 8, 3);
        },
    };
    for (Call call : calls) {
        for (int k = 0; k < 3; ++k) std::fill(out[k], out[k] + n, kCanary);
        ASSERT_EQ(call(f, idx, &none, off.p, &out.pl), lumStatusOk);
        expectAll(0.0f, "gathered or cast");
    }
}

// Rows of 16 columns and more, on aligned and misaligned planes: each row
// base (stepRow y0 + corner) + stepColumn x0 is stepped by adding stepRow,
// and column c adds stepColumn x c.  Width 18 recomputes every point.
TEST(RaysAudit, EyeRowsOfAnyWidthFollowTheirOrder) {
    const Lum32f corner[3] = {-1.25f, 0.7f, 3.1f}, col[3] = {0.013f, -0.0071f, 0.00031f},
                 row[3] = {-0.0009f, 0.011f, 0.0051f};
    const Lum32s bc = -3, br = 7;
    const LumRect2D block = {9, 11};
    const Lum32f x0 = -27.0f, y0 = 77.0f;  // -3 x 9 and 7 x 11
    for (int width : {16, 20, 28, 44, 18})
        for (int shift : {0, 1}) {
            const int height = 4;
            Planes out(width * height + 4, shift, kCanary);
            ASSERT_EQ(lumrCastEye_32f(corner, col, row, bc, br, block, &out.pl, {width, height}), lumStatusOk);
            for (int k = 0; k < 3; ++k) {
                Lum32f b = (row[k] * y0 + corner[k]) + col[k] * x0;
                for (int r = 0; r < height; ++r) {
                    if (r > 0) b = b + row[k];
                    for (int c = 0; c < width; ++c) {
                        const Lum32f direct = ((y0 + r) * row[k] + corner[k]) + (x0 + c) * col[k];
                        const Lum32f want = width % 4 ? direct : b + col[k] * static_cast<Lum32f>(c);
                        ASSERT_EQ(bitsOf(out[k][r * width + c]), bitsOf(want)) << width << " " << shift << " " << r << " " << c;
                    }
                }
                EXPECT_EQ(out[k][width * height], kCanary);
            }
        }
}

// Zero, negative and the most negative lengths run nothing and write nothing,
// whether or not they pass the gate's multiple-of-4 test.
TEST(RaysAudit, EmptyLengthsWriteNothing) {
    const int n = 8;
    Planes p(n, 0, 1.0f), out(n, 0, kCanary);
    Stream<Lum32f> s(n, 0, 1.0f), o(n, 0, kCanary);
    Stream<Lum32s> m(n, 0, 0), idx(n, 0, 0);
    const Lum32f k3[3] = {1, 1, 1};
    Lum32f* pair[2] = {s.p, s.p};
    for (Lum32s len : {0, -3, -4, INT32_MIN}) {
        SCOPED_TRACE(len);
        EXPECT_EQ(lumrMul_32f_C1IM(s.p, m.p, o.p, len), lumStatusOk);
        EXPECT_EQ(lumrDiv_32f_C1IM(s.p, m.p, o.p, len), lumStatusOk);
        EXPECT_EQ(lumrMul_32f_C1P3IM(s.p, m.p, &out.pl, len), lumStatusOk);
        EXPECT_EQ(lumrAddMulMul_32f_AC1P3IM(k3, s.p, &p.pl, m.p, &out.pl, len), lumStatusOk);
        EXPECT_EQ(lumrDot_32f_P3C1M(&p.pl, &p.pl, m.p, o.p, len), lumStatusOk);
        EXPECT_EQ(lumrDotChangeNorm_32f_IM(&p.pl, m.p, &out.pl, o.p, len), lumStatusOk);
        EXPECT_EQ(lumrDistAttenuationSO_32f_M(k3, &p.pl, m.p, o.p, len), lumStatusOk);
        EXPECT_EQ(lumrCastReflectionRay_32f(&p.pl, m.p, &p.pl, &out.pl, len), lumStatusOk);
        EXPECT_EQ(lumrCastShadowSO_32f(k3, s.p, &p.pl, &p.pl, m.p, o.p, &out.pl, len), lumStatusOk);
        EXPECT_EQ(lumrCastEye_32f(k3, k3, k3, 0, 0, {1, 1}, &out.pl, {4, len}), lumStatusOk);
        EXPECT_EQ(lumrCastEye_32f(k3, k3, k3, 0, 0, {1, 1}, &out.pl, {len, 4}), lumStatusOk);
        EXPECT_EQ(lumrHitPoint3DEpsS0_32f_M(k3, &p.pl, s.p, m.p, &out.pl, len, 1.0f), lumStatusOk);
        EXPECT_EQ(lumrHitPoint3DEpsM0_32f_M(&p.pl, &p.pl, s.p, m.p, &out.pl, len, 1.0f), lumStatusOk);
        EXPECT_EQ(lumrSurfFlatNormal_32f(s.p, m.p, &out.pl, len), lumStatusOk);
        EXPECT_EQ(lumrSurfSmoothNormal_32f(s.p, idx.p, m.p, pair, &out.pl, len, 3), lumStatusOk);
        EXPECT_EQ(lumrTriangleNormal_32f(s.p, idx.p, o.p, len), lumStatusOk);
        LumTriangleAccel rec;
        std::memset(&rec, 0x5A, sizeof rec);
        EXPECT_EQ(lumrTriangleAccelInit(&rec, s.p, idx.p, len), lumStatusOk);
        EXPECT_EQ(rec.axisCode, 0x5A5A5A5Au);
        for (int i = 0; i < n; ++i) {
            EXPECT_EQ(o[i], kCanary) << i;
            EXPECT_EQ(m[i], 0) << i;
            for (int k = 0; k < 3; ++k) EXPECT_EQ(out[k][i], kCanary) << i;
        }
    }
}

// The axis-aligned flag needs both off-axis components strictly below
// 2^-52.  Third vertex at the origin, E1 = (1, 0, e), E2 = (0, 1, 0):
// N = (-e, 0, 1), so z is dominant (w 2, p 0, q 1, s +1, 1/N.z = 1).
// A plane y = 2 (N = (0, -1, 0)) takes y with s = -1 and inv = -1, so
// f = s x inv = 1.
TEST(RaysAudit, AxisAlignedFlagIsStrictAndCarriedForY) {
    auto record = [](std::vector<Lum32f> v) {
        const Lum32s tri[4] = {0, 1, 2, 0};
        LumTriangleAccel r;
        std::memset(&r, 0xCD, sizeof r);
        EXPECT_EQ(lumrTriangleAccelInit(&r, v.data(), tri, 1), lumStatusOk);
        return r;
    };
    // axisCode, then nP, baseW, nQ, baseP, baseQ, e2P, e2Q, e1P, e1Q.
    auto expect = [](const LumTriangleAccel& r, Lum32u code, std::vector<Lum32f> f) {
        EXPECT_EQ(r.axisCode, code) << std::hex << r.axisCode;
        const Lum32f got[9] = {r.nP, r.baseW, r.nQ, r.baseP, r.baseQ, r.e2P, r.e2Q, r.e1P, r.e1Q};
        for (int k = 0; k < 9; ++k) EXPECT_EQ(bitsOf(got[k]), bitsOf(f[k])) << "word " << k + 1;
    };
    const Lum32f below = std::ldexp(1.0f, -53), at = std::ldexp(1.0f, -52);
    expect(record({1, 0, below, 0, 1, 0, 0, 0, 0}), 0x80000021u, {0, 0, 0, 0, 0, 0, 1, 1, 0});
    expect(record({1, 0, at, 0, 1, 0, 0, 0, 0}), 33u, {-at, 0, 0, 0, 0, 0, 1, 1, 0});
    // A = (1,2,0), B = (0,2,1), C = (0,2,0): E1 = (1,0,0), E2 = (0,0,1).
    expect(record({1, 2, 0, 0, 2, 1, 0, 2, 0}), 0x80000012u, {0, 2, 0, 0, 0, 0, 1, 1, 0});
}

// Triangle normals are worked in double from widened vertices and rounded
// once: the float evaluation of the same steps differs on some triangles.
TEST(RaysAudit, TriangleNormalsRoundOnceFromDouble) {
    std::mt19937 rng(13);
    const int nt = 256;
    std::vector<Lum32f> v(9 * nt);
    fillUniform(v.data(), 9 * nt, rng, -100, 100);
    std::vector<Lum32s> tri(4 * nt);
    for (int t = 0; t < nt; ++t)
        tri[4 * t] = 3 * t, tri[4 * t + 1] = 3 * t + 1, tri[4 * t + 2] = 3 * t + 2, tri[4 * t + 3] = -9;
    std::vector<Lum32f> out(3 * nt, kCanary);
    ASSERT_EQ(lumrTriangleNormal_32f(v.data(), tri.data(), out.data(), nt), lumStatusOk);
    int differ = 0;
    for (int t = 0; t < nt; ++t) {
        const Lum32f *p0 = &v[9 * t], *p1 = p0 + 3, *p2 = p0 + 6;
        double a[3], b[3];
        float af[3], bf[3];
        for (int k = 0; k < 3; ++k) {
            a[k] = double(p0[k]) - p2[k], b[k] = double(p1[k]) - p2[k];
            af[k] = p0[k] - p2[k], bf[k] = p1[k] - p2[k];
        }
        const double nn[3] = {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
        const float nf[3] = {af[1] * bf[2] - af[2] * bf[1], af[2] * bf[0] - af[0] * bf[2], af[0] * bf[1] - af[1] * bf[0]};
        const double r = std::sqrt((nn[0] * nn[0] + nn[1] * nn[1]) + nn[2] * nn[2]);
        const float rf = std::sqrt((nf[0] * nf[0] + nf[1] * nf[1]) + nf[2] * nf[2]);
        for (int k = 0; k < 3; ++k) {
            EXPECT_EQ(bitsOf(out[3 * t + k]), bitsOf(static_cast<Lum32f>(nn[k] / r))) << t << " " << k;
            differ += static_cast<Lum32f>(nn[k] / r) != nf[k] / rf;
        }
    }
    EXPECT_GT(differ, 0);
}

}  // namespace
