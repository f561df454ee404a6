// Masked stream arithmetic: checks and their order, off-lane values, and the
// agreement of the plain and vector bodies up to the differences they keep.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "lumr.h"

namespace {

// A float or mask stream placed on a 16-byte boundary, or one float past it
// so that the gate fails and the plain loop runs.
template <class T>
struct Stream {
    Stream(int n, bool misalign) : buf(n + 8) {
        auto addr = reinterpret_cast<std::uintptr_t>(buf.data());
        p = buf.data() + ((16 - addr % 16) % 16) / sizeof(T) + (misalign ? 1 : 0);
    }
    std::vector<T> buf;
    T* p;
};

struct Planes {
    Planes(int n, bool misalign) : x(n, misalign), y(n, misalign), z(n, misalign) {
        pl = {x.p, y.p, z.p};
    }
    Stream<Lum32f> x, y, z;
    LumPlanes3 pl;
};

Lum32u bits(Lum32f f) {
    Lum32u u;
    std::memcpy(&u, &f, 4);
    return u;
}

// Two identical sets of inputs, one aligned (vector body) and one misaligned
// (plain loop), filled with the same random values; masks mix all-on,
// all-off and mixed groups of four.
struct Pair {
    static constexpr int n = 64;
    Pair() : va(n, false), vb(n, false), vd(n, false), pa(n, true), pb(n, true), pd(n, true),
             vs(n, false), ps(n, true), vm(n, false), pm(n, true), vo(n, false), po(n, true) {
        std::mt19937 rng(42);
        std::uniform_real_distribution<float> u(-4.f, 4.f);
        for (int i = 0; i < n; ++i) {
            for (auto [v, p] : {std::pair{&va, &pa}, {&vb, &pb}, {&vd, &pd}}) {
                v->x.p[i] = p->x.p[i] = u(rng);
                v->y.p[i] = p->y.p[i] = u(rng);
                v->z.p[i] = p->z.p[i] = u(rng);
            }
            vs.p[i] = ps.p[i] = u(rng);
            vo.p[i] = po.p[i] = u(rng);
            const int group = i / 4;
            const Lum32s m = group % 3 == 0 ? 0 : group % 3 == 1 ? INT32_MIN : (i % 2 ? -1 : 7);
            vm.p[i] = pm.p[i] = m;
        }
    }
    Planes va, vb, vd, pa, pb, pd;
    Stream<Lum32f> vs, ps;
    Stream<Lum32s> vm, pm;
    Stream<Lum32f> vo, po;  // a scalar output stream
};

void expectSameBits(const Lum32f* a, const Lum32f* b, int n, const char* what) {
    for (int i = 0; i < n; ++i) ASSERT_EQ(bits(a[i]), bits(b[i])) << what << " lane " << i;
}

TEST(StreamMath, ChecksInOrderAndNothingWrittenOnFailure) {
    Lum32f a[4] = {1, 2, 3, 4}, d[4] = {9, 9, 9, 9};
    Lum32s m[4] = {0, 0, 0, 0};
    LumPlanes3 p = {a, a, a};
    LumPlanes3 dp = {d, d, d};
    const Lum32f k[3] = {1, 1, 1};
    EXPECT_EQ(lumrMul_32f_C1P3IM(nullptr, nullptr, &dp, 4), lumStatusNullPtr);
    EXPECT_EQ(lumrMul_32f_C1P3IM(a, m, nullptr, 4), lumStatusNullPtr);
    EXPECT_EQ(lumrAddMulMul_32f_AC1P3IM(k, a, &p, nullptr, &dp, 4), lumStatusNullPtr);
    EXPECT_EQ(lumrDiv_32f_C1IM(a, m, nullptr, 4), lumStatusNullPtr);
    EXPECT_EQ(lumrDot_32f_P3C1M(&p, nullptr, m, d, 4), lumStatusNullPtr);
    EXPECT_EQ(lumrDotChangeNorm_32f_IM(&p, m, &dp, nullptr, 4), lumStatusNullPtr);
    EXPECT_EQ(lumrDistAttenuationSO_32f_M(k, &p, m, nullptr, 4), lumStatusNullPtr);
    for (Lum32f v : d) EXPECT_EQ(v, 9.0f);
    // Deliberately unchecked: all of lumrMul_32f_C1IM, the mask of the
    // division, the constants of the accumulation and the light origin.
    EXPECT_EQ(lumrMul_32f_C1IM(nullptr, nullptr, nullptr, 4 * 0), lumStatusOk);
    EXPECT_EQ(lumrDiv_32f_C1IM(a, nullptr, d, 0), lumStatusOk);
    EXPECT_EQ(lumrAddMulMul_32f_AC1P3IM(nullptr, a, &p, m, &dp, 0), lumStatusOk);
    EXPECT_EQ(lumrDistAttenuationSO_32f_M(nullptr, &p, m, d, -3), lumStatusOk);
    // Plane pointers inside a LumPlanes3 are not looked at.
    LumPlanes3 holes = {nullptr, nullptr, nullptr};
    EXPECT_EQ(lumrDot_32f_P3C1M(&holes, &holes, m, d, 0), lumStatusOk);
    for (Lum32f v : d) EXPECT_EQ(v, 9.0f);
}

TEST(StreamMath, DivisionZeroRuleAndOffLanes) {
    const Lum32f nan = NAN, inf = INFINITY;
    Lum32f s[8] = {0.f, 0.f, 0.f, 0.f, -0.f, 2.f, 0.f, nan};
    Lum32f d[8] = {1.f, -1.f, 0.f, nan, 1.f, 5.f, 3.f, 6.f};
    Lum32s m[8] = {0, 0, 0, 0, 0, 0, -1, 0};
    ASSERT_EQ(lumrDiv_32f_C1IM(s, m, d, 8), lumStatusOk);
    EXPECT_EQ(d[0], inf);
    EXPECT_EQ(d[1], -inf);
    EXPECT_EQ(bits(d[2]), 0xFFC00000u);
    EXPECT_EQ(bits(d[3]), 0xFFC00000u);
    EXPECT_EQ(d[4], inf);  // a negative-zero divisor still follows the numerator's sign
    EXPECT_EQ(d[5], 2.5f);
    EXPECT_EQ(bits(d[6]), 0u);
    EXPECT_TRUE(std::isnan(d[7]));  // a NaN divisor is no zero
}

TEST(StreamMath, AttenuationIsDistanceHeldToOne) {
    for (bool misalign : {false, true}) {
        Planes p(8, misalign);
        Stream<Lum32f> d(8, misalign);
        Stream<Lum32s> m(8, misalign);
        const Lum32f o[3] = {1, 2, 3};
        const Lum32f pts[8][3] = {{1, 2, 3}, {2, 2, 3}, {1, 5, 3}, {1, 2, 3.5f},
                                  {4, 6, 3}, {NAN, 0, 0}, {9, 9, 9}, {1, 2, 3}};
        for (int i = 0; i < 8; ++i) {
            p.x.p[i] = pts[i][0], p.y.p[i] = pts[i][1], p.z.p[i] = pts[i][2];
            m.p[i] = i == 6 ? -5 : 0;
        }
        ASSERT_EQ(lumrDistAttenuationSO_32f_M(o, &p.pl, m.p, d.p, 8), lumStatusOk);
        EXPECT_EQ(d.p[0], 1.0f);
        EXPECT_EQ(d.p[1], 1.0f);
        EXPECT_EQ(d.p[2], 3.0f);
        EXPECT_EQ(d.p[3], 1.0f);
        EXPECT_EQ(d.p[4], 5.0f);
        EXPECT_EQ(d.p[6], 1.0f);  // off lanes give one, never zero
        // Deliberate: a NaN squared distance gives NaN in the plain loop and
        // 1 in the vector body.
        if (misalign) {
            EXPECT_TRUE(std::isnan(d.p[5]));
        } else {
            EXPECT_EQ(d.p[5], 1.0f);
        }
    }
}

TEST(StreamMath, NormalFlipsToFaceTheDirection) {
    Lum32f wx[4] = {0, 0, 0, 0}, wy[4] = {0, 0, 0, 0}, wz[4] = {1, 1, 1, 1};
    Lum32f nx[4] = {0, 0, 1, 0}, ny[4] = {0, 0, 0, 0}, nz[4] = {2, -2, 0, 3};
    Lum32f d[4];
    Lum32s m[4] = {0, 0, 0, -1};
    LumPlanes3 w = {wx, wy, wz}, n = {nx, ny, nz};
    ASSERT_EQ(lumrDotChangeNorm_32f_IM(&w, m, &n, d, 3 + 1), lumStatusOk);
    EXPECT_EQ(nz[0], -2.0f);  // faced away: flipped, -t written
    EXPECT_EQ(d[0], -2.0f);
    EXPECT_EQ(nz[1], -2.0f);  // already facing: unchanged, t written
    EXPECT_EQ(d[1], -2.0f);
    EXPECT_EQ(nx[2], 1.0f);   // t exactly 0 leaves it
    EXPECT_EQ(bits(d[2]), 0u);
    EXPECT_EQ(nz[3], 3.0f);   // off lane keeps its normal and gives 0
    EXPECT_EQ(d[3], 0.0f);
}

// Each function run on the same data through the vector body (aligned) and
// the plain loop (misaligned): identical bits except where the bodies keep
// their own operation order.
TEST(StreamMath, VectorAndPlainBodiesAgree) {
    const int n = Pair::n;
    {
        Pair t;
        lumrMul_32f_C1P3IM(t.vs.p, t.vm.p, &t.vd.pl, n);
        lumrMul_32f_C1P3IM(t.ps.p, t.pm.p, &t.pd.pl, n);
        expectSameBits(t.vd.x.p, t.pd.x.p, n, "mul x");
        expectSameBits(t.vd.z.p, t.pd.z.p, n, "mul z");
        for (int i = 0; i < n; ++i)
            if (t.vm.p[i] < 0) {
                ASSERT_EQ(bits(t.vd.y.p[i]), 0u);
            }
    }
    {
        Pair t;
        lumrDot_32f_P3C1M(&t.va.pl, &t.vb.pl, t.vm.p, t.vo.p, n);
        lumrDot_32f_P3C1M(&t.pa.pl, &t.pb.pl, t.pm.p, t.po.p, n);
        expectSameBits(t.vo.p, t.po.p, n, "dot");
    }
    {
        Pair t;
        lumrDotChangeNorm_32f_IM(&t.va.pl, t.vm.p, &t.vb.pl, t.vo.p, n);
        lumrDotChangeNorm_32f_IM(&t.pa.pl, t.pm.p, &t.pb.pl, t.po.p, n);
        expectSameBits(t.vo.p, t.po.p, n, "change-norm dot");
        expectSameBits(t.vb.y.p, t.pb.y.p, n, "change-norm normal");
    }
    {
        Pair t;
        const Lum32f o[3] = {0.5f, -1.f, 0.25f};
        lumrDistAttenuationSO_32f_M(o, &t.va.pl, t.vm.p, t.vo.p, n);
        lumrDistAttenuationSO_32f_M(o, &t.pa.pl, t.pm.p, t.po.p, n);
        expectSameBits(t.vo.p, t.po.p, n, "attenuation");
    }
    {
        // Deliberate difference: (k x b) x a in the plain loop, (b x a) x k
        // in the vector body; each is checked against its own order.
        Pair t;
        const Lum32f k[3] = {0.3f, 1.7f, -2.9f};
        std::vector<Lum32f> before(t.vd.x.p, t.vd.x.p + n);
        lumrAddMulMul_32f_AC1P3IM(k, t.vs.p, &t.va.pl, t.vm.p, &t.vd.pl, n);
        lumrAddMulMul_32f_AC1P3IM(k, t.ps.p, &t.pa.pl, t.pm.p, &t.pd.pl, n);
        for (int i = 0; i < n; ++i) {
            const bool on = t.vm.p[i] >= 0;
            const Lum32f a = t.vs.p[i], b = t.va.x.p[i];
            ASSERT_EQ(t.vd.x.p[i], on ? before[i] + (b * a) * k[0] : before[i]) << i;
            ASSERT_EQ(t.pd.x.p[i], on ? before[i] + (k[0] * b) * a : before[i]) << i;
        }
    }
}

TEST(StreamMath, AccumulatingTwiceDoubles) {
    Stream<Lum32f> s(8, false), x(8, false), y(8, false), z(8, false);
    Stream<Lum32s> m(8, false);
    for (int i = 0; i < 8; ++i) s.p[i] = 1.0f, x.p[i] = y.p[i] = z.p[i] = 0.0f, m.p[i] = i < 4 ? 0 : -1;
    LumPlanes3 acc = {x.p, y.p, z.p}, colour = {s.p, s.p, s.p};
    const Lum32f k[3] = {0.25f, 0.5f, 2.0f};
    for (int rep = 0; rep < 2; ++rep) lumrAddMulMul_32f_AC1P3IM(k, s.p, &colour, m.p, &acc, 8);
    EXPECT_EQ(x.p[0], 0.5f);
    EXPECT_EQ(y.p[3], 1.0f);
    EXPECT_EQ(z.p[2], 4.0f);
    EXPECT_EQ(z.p[5], 0.0f);  // off lanes keep what they had
}

TEST(StreamMath, PlainMultiplyZeroesOffLanes) {
    Lum32f s[5] = {2, 2, 2, 2, 2}, d[5] = {1, 2, 3, NAN, 5};
    Lum32s m[5] = {0, -1, 0, INT32_MIN, 0};
    ASSERT_EQ(lumrMul_32f_C1IM(s, m, d, 5), lumStatusOk);
    EXPECT_EQ(d[0], 2.0f);
    EXPECT_EQ(d[1], 0.0f);
    EXPECT_EQ(d[3], 0.0f);
    EXPECT_EQ(d[4], 10.0f);
}

}  // namespace
