// The masked two-body streams (arithmetic, reflection rays, hit points):
// every lane of both bodies against its formula written out independently.
#include "ray_buffers.h"

namespace {

// Each function on edge-laden data through the vector body (aligned, length
// 32) and the plain loop (length 31, or misaligned).  The accumulation's
// operand planes and the attenuation's origin lie outside their gates: a
// misaligned operand or origin still takes the vector body.
TEST(RayStreams, BothBodiesFollowTheirWrittenFormulas) {
    EdgeData in(77);
    // Lanes 8 to 11 divide zero, one, minus one and NaN by signed zeros.
    const Lum32f numerator[4] = {0.0f, 1.0f, -1.0f, NAN};
    for (int i = 8; i < 12; ++i) in.s[i] = i % 2 ? -0.0f : 0.0f, in.d[0][i] = numerator[i - 8], in.m[i] = 0;
    const int n = EdgeData::n;
    const Lum32f k3[3] = {0.3f, -1.7f, INFINITY};
    alignas(16) Lum32f originStore[4] = {0.0f, 0.5f, -1.0f, 2.0f};
    const Lum32f* org = originStore + 1;  // never 16-byte aligned
    struct Layout { int len, shift, operandShift; };
    for (const Layout& l : {Layout{32, 0, 0}, Layout{31, 0, 0}, Layout{32, 1, 0}, Layout{32, 0, 1}}) {
        const int len = l.len;
        const bool vec = len % 4 == 0 && l.shift == 0;
        SCOPED_TRACE(testing::Message() << "len " << len << " shift " << l.shift << " operand " << l.operandShift);
        Stream<Lum32f> s(n, l.shift), o(n, l.shift);
        Stream<Lum32s> m(n, l.shift);
        Planes a(n, l.shift), b(n, l.shift + l.operandShift), d(n, l.shift);
        auto load = [&] {
            std::copy(in.s, in.s + n, s.p), std::copy(in.m, in.m + n, m.p);
            std::fill(o.p, o.p + n, kCanary);
            in.put(a, in.a), in.put(b, in.b), in.put(d, in.d);
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
            const bool zeroRule = on(i) && sv == 0.0f;
            const Lum32f want = i >= len ? q : !on(i) ? 0.0f : !zeroRule ? q / sv : q > 0 ? INFINITY : q < 0 ? -INFINITY : NAN;
            EXPECT_TRUE(sameLane(d[0][i], want)) << i;
            if (zeroRule && std::isnan(want)) { EXPECT_EQ(bitsOf(d[0][i]), 0xFFC00000u) << i; }
        }

        load();  // d.k = s x d.k, off all three 0
        ASSERT_EQ(lumrMul_32f_C1P3IM(s.p, m.p, &d.pl, len), lumStatusOk);
        for (int i = 0; i < n; ++i)
            for (int k = 0; k < 3; ++k)
                EXPECT_TRUE(sameLane(d[k][i], i >= len ? in.d[k][i] : on(i) ? in.s[i] * in.d[k][i] : 0.0f)) << i;

        // Deliberate: d.k += (k x b.k) x a plain, (b.k x a) x k vector; off unchanged.
        load();
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
            for (int k = 0; k < 3; ++k) EXPECT_EQ(bitsOf(d[k][i]), bitsOf(flip ? -in.d[k][i] : in.d[k][i])) << i;
        }

        // Deliberate: the reflection's dot runs (x + y) + z in the vector body,
        // (y + z) + x in the loop; whole groups take the vector body whatever
        // the alignment.
        load();
        ASSERT_EQ(lumrCastReflectionRay_32f(&a.pl, m.p, &b.pl, &d.pl, len), lumStatusOk);
        for (int i = 0; i < n; ++i) {
            const Lum32f t = len % 4 == 0 ? dot(in.a, in.b, i)
                                          : (in.a[1][i] * in.b[1][i] + in.a[2][i] * in.b[2][i]) + in.b[0][i] * in.a[0][i];
            for (int k = 0; k < 3; ++k)
                EXPECT_TRUE(sameLane(d[k][i], i >= len ? in.d[k][i] : on(i) ? in.a[k][i] - (t + t) * in.b[k][i] : 0.0f)) << i;
        }

        // Deliberate: hit points scale as (distance x d) x eps in the vector
        // body, (eps x d) x distance in the loop.  The shared origin is outside
        // the gate, the per-ray origin (b here) inside.
        const Lum32f eps = 0.9993f;
        for (int perRay = 0; perRay < 2; ++perRay) {
            load();
            ASSERT_EQ(perRay ? lumrHitPoint3DEpsM0_32f_M(&b.pl, &a.pl, s.p, m.p, &d.pl, len, eps)
                             : lumrHitPoint3DEpsS0_32f_M(org, &a.pl, s.p, m.p, &d.pl, len, eps),
                      lumStatusOk);
            const bool vecHit = vec && !(perRay && l.operandShift);
            for (int i = 0; i < n; ++i)
                for (int k = 0; k < 3; ++k) {
                    const Lum32f o = perRay ? in.b[k][i] : org[k], dk = in.a[k][i];
                    const Lum32f want = vecHit ? (in.s[i] * dk) * eps + o : (eps * dk) * in.s[i] + o;
                    EXPECT_TRUE(sameLane(d[k][i], i >= len ? in.d[k][i] : on(i) ? want : 0.0f)) << perRay << " " << i;
                }
        }

        // Deliberate: distance held to 1; a NaN q gives NaN plain, 1 vector; off 1.
        load();
        ASSERT_EQ(lumrDistAttenuationSO_32f_M(org, &a.pl, m.p, o.p, len), lumStatusOk);
        for (int i = 0; i < n; ++i) {
            const Lum32f dx = in.a[0][i] - org[0], dy = in.a[1][i] - org[1], dz = in.a[2][i] - org[2];
            const Lum32f q = (dx * dx + dy * dy) + dz * dz;
            const Lum32f r = vec ? (1.0f < q ? std::sqrt(q) : 1.0f) : (q < 1.0f ? 1.0f : std::sqrt(q));
            EXPECT_TRUE(sameLane(o[i], i >= len ? kCanary : on(i) ? r : 1.0f)) << i;
        }
    }
    // Each point plane is in the attenuation's gate: one misaligned plane
    // turns the vector body's 1 for a NaN distance into the loop's NaN.
    Planes pts(8, 0, NAN);
    Stream<Lum32f> plane(8, 1, NAN), out(8);
    Stream<Lum32s> m(8);
    ASSERT_EQ(lumrDistAttenuationSO_32f_M(org, &pts.pl, m.p, out.p, 8), lumStatusOk);
    EXPECT_EQ(out[0], 1.0f);
    for (int k = 0; k < 3; ++k) {
        LumPlanes3 oneOff = pts.pl;
        (k == 0 ? oneOff.X : k == 1 ? oneOff.Y : oneOff.Z) = plane.p;
        ASSERT_EQ(lumrDistAttenuationSO_32f_M(org, &oneOff, m.p, out.p, 8), lumStatusOk);
        EXPECT_TRUE(std::isnan(out[0])) << k;
    }
}

}  // namespace
