// Ray generation and hit points: each body against its own operation order,
// aligned and misaligned streams alike, off lanes, and the argument checks.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>

#include "ray_buffers.h"

namespace {

const Lum32f kCorner[3] = {-1.25f, 0.7f, 3.1f};
const Lum32f kStepCol[3] = {0.013f, -0.0071f, 0.0003f};
const Lum32f kStepRow[3] = {-0.0009f, 0.011f, 0.0051f};

// Row base stepped by addition, column offset from a float counter.
Lum32f eyeStepped(int k, Lum32f x0, Lum32f y0, int r, int c) {
    Lum32f b = (kStepRow[k] * y0 + kCorner[k]) + kStepCol[k] * x0;
    for (int i = 0; i < r; ++i) b = b + kStepRow[k];
    return b + kStepCol[k] * static_cast<Lum32f>(c);
}

Lum32f eyeDirect(int k, Lum32f x0, Lum32f y0, int r, int c) {
    return ((y0 + r) * kStepRow[k] + kCorner[k]) + (x0 + c) * kStepCol[k];
}

TEST(CastEye, EachBodyFollowsItsOwnOrder) {
    const LumRect2D block{8, 8};
    for (int width : {6, 8, 12, 13}) {
        const int height = 5, n = width * height;
        const bool vec = width % 4 == 0;
        Planes aligned(n), shifted(n, 1);
        ASSERT_EQ(lumrCastEye_32f(kCorner, kStepCol, kStepRow, 2, 3, block, &aligned.pl, {width, height}), lumStatusOk);
        ASSERT_EQ(lumrCastEye_32f(kCorner, kStepCol, kStepRow, 2, 3, block, &shifted.pl, {width, height}), lumStatusOk);
        int differ = 0;
        for (int k = 0; k < 3; ++k)
            for (int r = 0; r < height; ++r)
                for (int c = 0; c < width; ++c) {
                    const Lum32f got = aligned.c(k)[r * width + c];
                    ASSERT_EQ(bitsOf(got), bitsOf(shifted.c(k)[r * width + c]));
                    const Lum32f stepped = eyeStepped(k, 16, 24, r, c), direct = eyeDirect(k, 16, 24, r, c);
                    ASSERT_EQ(bitsOf(got), bitsOf(vec ? stepped : direct)) << width << " " << r << " " << c;
                    EXPECT_NEAR(stepped, direct, 1e-6f);
                    differ += bitsOf(stepped) != bitsOf(direct);
                }
        EXPECT_GT(differ, 0);  // the data really tell the two orders apart
        // Block 2,3 of 8 by 8: the first point is (24 stepRow + corner) + 16 stepColumn.
        EXPECT_EQ(aligned.x[0], (24.0f * kStepRow[0] + kCorner[0]) + 16.0f * kStepCol[0]);
    }
    Planes one(1);
    EXPECT_EQ(lumrCastEye_32f(kCorner, kStepCol, kStepRow, 0, 0, {8, 8}, &one.pl, {1, 1}), lumStatusOk);
    EXPECT_EQ(one.x[0], kCorner[0]); EXPECT_EQ(one.y[0], kCorner[1]); EXPECT_EQ(one.z[0], kCorner[2]);
}

// Past 2^24 columns the vector body steps its float counter four lanes at a
// time as written; the row's last points must still follow that counter.
TEST(CastEye, RowWiderThanTheExactCounter) {
    const int width = (1 << 24) + 32;
    Planes out(width);
    ASSERT_EQ(lumrCastEye_32f(kCorner, kStepCol, kStepRow, 0, 0, {4, 4}, &out.pl, {width, 1}), lumStatusOk);
    Lum32f f[4] = {0, 1, 2, 3};
    for (int c = 0; c < width; c += 4)
        for (int j = 0; j < 4; ++j) {
            if (c + j >= width - 64) {
                const Lum32f base = (kStepRow[1] * 0.0f + kCorner[1]) + kStepCol[1] * 0.0f;
                ASSERT_EQ(bitsOf(out.y[c + j]), bitsOf(base + kStepCol[1] * f[j])) << c + j;
            }
            f[j] = f[j] + 4.0f;
        }
}

TEST(CastEye, ChecksOnlyTheDestination) {
    Planes out(16, 0, kCanary);
    EXPECT_EQ(lumrCastEye_32f(kCorner, kStepCol, kStepRow, 0, 0, {4, 4}, nullptr, {4, 4}), lumStatusNullPtr);
    // The triples are not checked: with nothing to produce they are never read.
    for (LumRect2D size : {LumRect2D{0, 4}, LumRect2D{4, 0}, LumRect2D{-4, 4}, LumRect2D{4, -1}})
        EXPECT_EQ(lumrCastEye_32f(nullptr, nullptr, nullptr, 0, 0, {4, 4}, &out.pl, size), lumStatusOk);
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(out.x[i], kCanary);
    }
}

TEST(CastReflection, BodiesMasksAndChecks) {
    std::mt19937 rng(7);
    const int n = 32;
    Planes in(n), nrm(n);
    Stream<Lum32s> mask(n);
    for (Planes* p : {&in, &nrm})
        for (int k = 0; k < 3; ++k) fillUniform(p->c(k), n, rng);
    fillMask(mask, rng);
    in.x[0] = NAN;  // an all-off group is stored as zeros without reading it
    Planes vec(n, 0, kCanary), vecU(n, 3, kCanary), plain(n - 1, 0, kCanary);
    ASSERT_EQ(lumrCastReflectionRay_32f(&in.pl, mask.p, &nrm.pl, &vec.pl, n), lumStatusOk);
    ASSERT_EQ(lumrCastReflectionRay_32f(&in.pl, mask.p, &nrm.pl, &vecU.pl, n), lumStatusOk);
    ASSERT_EQ(lumrCastReflectionRay_32f(&in.pl, mask.p, &nrm.pl, &plain.pl, n - 1), lumStatusOk);
    int differ = 0;
    for (int i = 0; i < n; ++i) {
        const Lum32f tv = (in.x[i] * nrm.x[i] + in.y[i] * nrm.y[i]) + in.z[i] * nrm.z[i];
        const Lum32f tp = (in.y[i] * nrm.y[i] + in.z[i] * nrm.z[i]) + nrm.x[i] * in.x[i];
        differ += mask[i] >= 0 && tv != tp;
        for (int k = 0; k < 3; ++k) {
            const Lum32f ev = mask[i] < 0 ? 0.0f : in.c(k)[i] - (tv + tv) * nrm.c(k)[i];
            const Lum32f ep = mask[i] < 0 ? 0.0f : in.c(k)[i] - (tp + tp) * nrm.c(k)[i];
            EXPECT_EQ(bitsOf(vec.c(k)[i]), bitsOf(ev)) << i;
            EXPECT_EQ(bitsOf(vecU.c(k)[i]), bitsOf(ev)) << i;
            if (i < n - 1) {
                EXPECT_EQ(bitsOf(plain.c(k)[i]), bitsOf(ep)) << i;
            }
        }
    }
    EXPECT_GT(differ, 0);
    // Straight down onto an upward normal comes straight back.
    Planes down(1), up(1), back(1);
    down.z[0] = -1.0f, up.z[0] = 1.0f;
    Lum32s on = 0;
    lumrCastReflectionRay_32f(&down.pl, &on, &up.pl, &back.pl, 1);
    EXPECT_EQ(back.x[0], 0.0f); EXPECT_EQ(back.y[0], 0.0f); EXPECT_EQ(back.z[0], 1.0f);
    // Pointers in argument order; two broken at once report the first, and
    // nothing is written.
    Planes canary(4, 0, kCanary);
    EXPECT_EQ(lumrCastReflectionRay_32f(nullptr, nullptr, &nrm.pl, &canary.pl, 4), lumStatusNullPtr);
    EXPECT_EQ(lumrCastReflectionRay_32f(&in.pl, mask.p, nullptr, &canary.pl, 4), lumStatusNullPtr);
    EXPECT_EQ(lumrCastReflectionRay_32f(&in.pl, mask.p, &nrm.pl, nullptr, 4), lumStatusNullPtr);
    EXPECT_EQ(canary.x[0], kCanary);
}

// Lanes built so that v is exactly the x of the point: light at the origin,
// normal (1, 0, 0).
TEST(CastShadow, ThresholdSignAndTheTailMaskRule) {
    const Lum32f thr = 0.00174532924f;
    ASSERT_EQ(bitsOf(thr), 0x3AE4C388u);
    const Lum32f below = std::nextafter(thr, 0.0f);
    const Lum32f v[8] = {1.0f, thr, below, -2.0f, 5.0f, -below, -thr, NAN};
    const Lum32f facing[8] = {1, 1, 1, 1, 1, -1, -1, 1};
    const Lum32s maskIn[8] = {0, 7, 0, 0, -5, 0, 0, 0};
    // pass, pass at the threshold, just below, wrong side, off, just below on
    // the right side, pass, NaN; lanes 4 to 6 fall in the tail for lengths 5 to 7
    const bool pass[8] = {true, true, false, false, false, false, true, false};
    const Lum32f light[3] = {0, 0, 0};
    for (int len : {8, 7, 6, 5}) {
        for (int shift : {0, 1}) {
            Planes nrm(8, shift), pts(8, shift), rays(8, shift, kCanary);
            Stream<Lum32f> face(8, shift), dot(8, shift, kCanary);
            Stream<Lum32s> mask(8, shift);
            for (int i = 0; i < 8; ++i) {
                nrm.x[i] = 1.0f, pts.x[i] = v[i], pts.y[i] = 9.0f, face[i] = facing[i];
                mask[i] = maskIn[i];
            }
            ASSERT_EQ(lumrCastShadowSO_32f(light, face.p, &nrm.pl, &pts.pl, mask.p, dot.p, &rays.pl, len), lumStatusOk);
            for (int i = 0; i < len; ++i) {
                const bool tail = i >= (len & ~3);
                EXPECT_EQ(dot[i], pass[i] ? std::fabs(v[i]) : 0.0f) << len << " " << i;
                EXPECT_EQ(rays.x[i], pass[i] ? v[i] : 0.0f);
                EXPECT_EQ(rays.y[i], pass[i] ? 9.0f : 0.0f);
                // Deliberate asymmetry: an off lane keeps -5 in the tail only.
                const Lum32s want = pass[i] ? maskIn[i] : (maskIn[i] < 0 && tail) ? maskIn[i] : -1;
                EXPECT_EQ(mask[i], want) << len << " " << i;
            }
            for (int i = len; i < 8; ++i) {
                EXPECT_EQ(dot[i], kCanary);
                EXPECT_EQ(mask[i], maskIn[i]);
            }
        }
    }
    Stream<Lum32f> f(4), d(4, 0, kCanary);
    Stream<Lum32s> m(4);
    Planes p(4);
    EXPECT_EQ(lumrCastShadowSO_32f(light, nullptr, &p.pl, &p.pl, m.p, nullptr, &p.pl, 4), lumStatusNullPtr);
    EXPECT_EQ(lumrCastShadowSO_32f(light, f.p, &p.pl, &p.pl, nullptr, d.p, nullptr, 4), lumStatusNullPtr);
    EXPECT_EQ(d[0], kCanary);
    // The light is not checked.
    EXPECT_EQ(lumrCastShadowSO_32f(nullptr, f.p, &p.pl, &p.pl, m.p, d.p, &p.pl, 0), lumStatusOk);
}

TEST(HitPoint, BothOriginsBothOrders) {
    std::mt19937 rng(11);
    const int n = 24;
    Planes dir(n), org(n), orgShifted(n, 1);
    Stream<Lum32f> dist(n);
    Stream<Lum32s> mask(n);
    for (int k = 0; k < 3; ++k) fillUniform(dir.c(k), n, rng), fillUniform(org.c(k), n, rng, -50, 50);
    fillUniform(dist.p, n, rng, -3.0f, 100.0f);
    orgShifted.copyFrom(org);
    fillMask(mask, rng);
    const Lum32f eps = 0.9993f, one[3] = {4.5f, -7.25f, 0.125f};
    int differ = 0;
    for (int form = 0; form < 4; ++form) {
        // 0: S0 vector, 1: S0 plain (odd length), 2: M0 vector, 3: M0 plain (misaligned origin)
        const bool vec = form % 2 == 0, perRay = form >= 2;
        const int len = form == 1 ? n - 1 : n;
        Planes hit(n, 0, kCanary);
        const LumPlanes3* o = form == 3 ? &orgShifted.pl : &org.pl;
        ASSERT_EQ(perRay ? lumrHitPoint3DEpsM0_32f_M(o, &dir.pl, dist.p, mask.p, &hit.pl, len, eps)
                         : lumrHitPoint3DEpsS0_32f_M(one, &dir.pl, dist.p, mask.p, &hit.pl, len, eps),
                  lumStatusOk);
        for (int i = 0; i < len; ++i)
            for (int k = 0; k < 3; ++k) {
                const Lum32f ok = perRay ? org.c(k)[i] : one[k], d = dir.c(k)[i];
                const Lum32f ev = (dist[i] * d) * eps + ok, ep = (eps * d) * dist[i] + ok;
                differ += ev != ep;
                EXPECT_EQ(bitsOf(hit.c(k)[i]), bitsOf(mask[i] < 0 ? 0.0f : vec ? ev : ep)) << form << " " << i;
            }
        if (len < n) {
            EXPECT_EQ(hit.x[n - 1], kCanary);
        }
    }
    EXPECT_GT(differ, 0);
    // Eps 0 gives the origin whatever the distance.
    Planes hit(4);
    Stream<Lum32s> on(4);
    lumrHitPoint3DEpsS0_32f_M(one, &dir.pl, dist.p, on.p, &hit.pl, 4, 0.0f);
    EXPECT_EQ(hit.x[3], one[0]); EXPECT_EQ(hit.z[2], one[2]);
    // Check order: distance, mask, direction, hit, then the per-ray origin;
    // the shared origin is never checked, and an all-off stream never reads it.
    Planes canary(4, 0, kCanary);
    Stream<Lum32s> off(4, 0, -1);
    EXPECT_EQ(lumrHitPoint3DEpsM0_32f_M(nullptr, &dir.pl, nullptr, mask.p, &canary.pl, 4, eps), lumStatusNullPtr);
    EXPECT_EQ(lumrHitPoint3DEpsM0_32f_M(nullptr, &dir.pl, dist.p, mask.p, &canary.pl, 4, eps), lumStatusNullPtr);
    EXPECT_EQ(lumrHitPoint3DEpsS0_32f_M(one, nullptr, dist.p, nullptr, &canary.pl, 4, eps), lumStatusNullPtr);
    EXPECT_EQ(canary.x[0], kCanary);
    for (int len : {4, 3}) {
        EXPECT_EQ(lumrHitPoint3DEpsS0_32f_M(nullptr, &dir.pl, dist.p, off.p, &canary.pl, len, eps), lumStatusOk);
        EXPECT_EQ(canary.y[0], 0.0f);
    }
}

}  // namespace
