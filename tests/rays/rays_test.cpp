// Ray generation and hit points: each body against its own operation order,
// aligned and misaligned streams, off lanes, and the argument checks.
#include <gtest/gtest.h>

#include <cmath>

#include "ray_buffers.h"

namespace {

const Lum32f kCorner[3] = {-1.25f, 0.7f, 3.1f};
const Lum32f kCol[3] = {0.013f, -0.0071f, 0.0003f};
const Lum32f kRow[3] = {-0.0009f, 0.011f, 0.0051f};

TEST(CastEye, EachBodyFollowsItsOwnOrder) {
    for (int width : {6, 8, 12, 13}) {  // the width alone chooses the body
        const int height = 5, n = width * height;
        Planes aligned(n), shifted(n, 1);
        for (Planes* p : {&aligned, &shifted})
            ASSERT_EQ(lumrCastEye_32f(kCorner, kCol, kRow, 2, 3, {8, 8}, &p->pl, {width, height}), lumStatusOk);
        int differ = 0;
        for (int k = 0; k < 3; ++k)
            for (int r = 0; r < height; ++r) {
                Lum32f b = (kRow[k] * 24.0f + kCorner[k]) + kCol[k] * 16.0f;  // stepped row base
                for (int i = 0; i < r; ++i) b = b + kRow[k];
                for (int c = 0; c < width; ++c) {
                    const Lum32f stepped = b + kCol[k] * c;
                    const Lum32f direct = ((24.0f + r) * kRow[k] + kCorner[k]) + (16.0f + c) * kCol[k];
                    const Lum32f got = aligned[k][r * width + c];
                    ASSERT_EQ(bitsOf(got), bitsOf(shifted[k][r * width + c]));
                    ASSERT_EQ(bitsOf(got), bitsOf(width % 4 ? direct : stepped)) << width << " " << r << " " << c;
                    differ += stepped != direct;
                }
            }
        EXPECT_GT(differ, 0);  // the data tell the two orders apart
    }
    Planes out(16, 0, kCanary);
    ASSERT_EQ(lumrCastEye_32f(kCorner, kCol, kRow, 0, 0, {8, 8}, &out.pl, {1, 1}), lumStatusOk);
    for (int k = 0; k < 3; ++k) EXPECT_EQ(out[k][0], kCorner[k]);
    EXPECT_EQ(out[0][1], kCanary);
    EXPECT_EQ(lumrCastEye_32f(kCorner, kCol, kRow, 0, 0, {4, 4}, nullptr, {4, 4}), lumStatusNullPtr);
    // The triples are not checked: with nothing to produce they are not read.
    for (LumRect2D size : {LumRect2D{0, 4}, LumRect2D{4, 0}, LumRect2D{-4, 4}})
        EXPECT_EQ(lumrCastEye_32f(nullptr, nullptr, nullptr, 0, 0, {4, 4}, &out.pl, size), lumStatusOk);
    EXPECT_EQ(out[0][1], kCanary);
}

TEST(CastReflection, BodiesMasksAndChecks) {
    std::mt19937 rng(7);
    const int n = 32;
    Planes in(n), nrm(n), vec(n), vecU(n, 3), plain(n, 0, kCanary);
    Stream<Lum32s> mask(n);
    for (int k = 0; k < 3; ++k) fillUniform(in[k], n, rng), fillUniform(nrm[k], n, rng);
    fillMask(mask.p, n, rng);
    for (Planes* out : {&vec, &vecU, &plain})
        ASSERT_EQ(lumrCastReflectionRay_32f(&in.pl, mask.p, &nrm.pl, &out->pl, out == &plain ? n - 1 : n), lumStatusOk);
    int differ = 0;
    for (int i = 0; i < n - 1; ++i) {
        const Lum32f tv = (in[0][i] * nrm[0][i] + in[1][i] * nrm[1][i]) + in[2][i] * nrm[2][i];
        const Lum32f tp = (in[1][i] * nrm[1][i] + in[2][i] * nrm[2][i]) + nrm[0][i] * in[0][i];
        differ += tv != tp;
        for (int k = 0; k < 3; ++k) {
            const bool off = mask[i] < 0;
            EXPECT_EQ(bitsOf(vec[k][i]), bitsOf(off ? 0.0f : in[k][i] - (tv + tv) * nrm[k][i])) << i;
            EXPECT_EQ(bitsOf(vecU[k][i]), bitsOf(vec[k][i])) << i;
            EXPECT_EQ(bitsOf(plain[k][i]), bitsOf(off ? 0.0f : in[k][i] - (tp + tp) * nrm[k][i])) << i;
        }
    }
    EXPECT_GT(differ, 0);
    EXPECT_EQ(plain[0][n - 1], kCanary);
    in[0][0] = 0, in[1][0] = 0, in[2][0] = -1, nrm[0][0] = 0, nrm[1][0] = 0, nrm[2][0] = 1, mask[0] = 0;
    lumrCastReflectionRay_32f(&in.pl, mask.p, &nrm.pl, &plain.pl, 1);
    EXPECT_EQ(plain[0][0], 0.0f); EXPECT_EQ(plain[2][0], 1.0f);  // straight down comes straight back
    // Two pointers broken at once report the first; nothing is written.
    Planes canary(4, 0, kCanary);
    EXPECT_EQ(lumrCastReflectionRay_32f(nullptr, nullptr, &nrm.pl, &canary.pl, 4), lumStatusNullPtr);
    EXPECT_EQ(lumrCastReflectionRay_32f(&in.pl, mask.p, nullptr, &canary.pl, 4), lumStatusNullPtr);
    EXPECT_EQ(lumrCastReflectionRay_32f(&in.pl, mask.p, &nrm.pl, nullptr, 4), lumStatusNullPtr);
    EXPECT_EQ(canary[0][0], kCanary);
}

// Light at the origin and normal (1, 0, 0): v is exactly the point's x.
TEST(CastShadow, ThresholdSignAndTheTailMaskRule) {
    const Lum32f thr = 0.00174532924f, below = std::nextafter(thr, 0.0f), light[3] = {0, 0, 0};
    ASSERT_EQ(bitsOf(thr), 0x3AE4C388u);
    // pass, pass at the threshold, just below, wrong side, off, just below on
    // the right side, pass, NaN; lanes 4 to 6 fall in the tail for lengths 5 to 7
    const Lum32f v[8] = {1.0f, thr, below, -2.0f, 5.0f, -below, -thr, NAN};
    const Lum32f facing[8] = {1, 1, 1, 1, 1, -1, -1, 1};
    const Lum32s maskIn[8] = {0, 7, 0, 0, -5, 0, 0, 0};
    const bool pass[8] = {true, true, false, false, false, false, true, false};
    for (int len : {8, 7, 6, 5})
        for (int shift : {0, 1}) {
            Planes nrm(8, shift), pts(8, shift), rays(8, shift, kCanary);
            Stream<Lum32f> face(8, shift), dot(8, shift, kCanary);
            Stream<Lum32s> mask(8, shift);
            for (int i = 0; i < 8; ++i)
                nrm[0][i] = 1, pts[0][i] = v[i], pts[1][i] = 9, face[i] = facing[i], mask[i] = maskIn[i];
            ASSERT_EQ(lumrCastShadowSO_32f(light, face.p, &nrm.pl, &pts.pl, mask.p, dot.p, &rays.pl, len), lumStatusOk);
            for (int i = 0; i < 8; ++i) {
                const bool done = i < len, tail = i >= (len & ~3);
                EXPECT_EQ(dot[i], !done ? kCanary : pass[i] ? std::fabs(v[i]) : 0.0f) << len << " " << i;
                EXPECT_EQ(rays[1][i], !done ? kCanary : pass[i] ? 9.0f : 0.0f);
                // Deliberate asymmetry: an off lane keeps its value in the tail only.
                const bool keep = !done || pass[i] || (maskIn[i] < 0 && tail);
                EXPECT_EQ(mask[i], keep ? maskIn[i] : -1) << len << " " << i;
            }
        }
    Stream<Lum32f> f(4), d(4, 0, kCanary);
    Stream<Lum32s> m(4);
    Planes p(4);
    EXPECT_EQ(lumrCastShadowSO_32f(light, nullptr, &p.pl, &p.pl, m.p, nullptr, &p.pl, 4), lumStatusNullPtr);
    EXPECT_EQ(lumrCastShadowSO_32f(light, f.p, &p.pl, &p.pl, nullptr, d.p, nullptr, 4), lumStatusNullPtr);
    EXPECT_EQ(d[0], kCanary);
    EXPECT_EQ(lumrCastShadowSO_32f(nullptr, f.p, &p.pl, &p.pl, m.p, d.p, &p.pl, 0), lumStatusOk);  // light unchecked
}

TEST(HitPoint, BothOriginsBothOrders) {
    std::mt19937 rng(11);
    const int n = 24;
    Planes dir(n), org(n), orgU(n, 1);
    Stream<Lum32f> dist(n);
    Stream<Lum32s> mask(n);
    for (int k = 0; k < 3; ++k) {
        fillUniform(dir[k], n, rng), fillUniform(org[k], n, rng, -50, 50);
        std::copy(org[k], org[k] + n, orgU[k]);
    }
    fillUniform(dist.p, n, rng, -3, 100);
    fillMask(mask.p, n, rng);
    const Lum32f eps = 0.9993f, one[3] = {4.5f, -7.25f, 0.125f};
    int differ = 0;
    // S0 vector, S0 plain (odd length), M0 vector, M0 plain (misaligned origin)
    for (int form = 0; form < 4; ++form) {
        const bool vec = form % 2 == 0, perRay = form >= 2;
        const int len = form == 1 ? n - 1 : n;
        Planes hit(n, 0, kCanary);
        ASSERT_EQ(perRay ? lumrHitPoint3DEpsM0_32f_M(vec ? &org.pl : &orgU.pl, &dir.pl, dist.p, mask.p, &hit.pl, len, eps)
                         : lumrHitPoint3DEpsS0_32f_M(one, &dir.pl, dist.p, mask.p, &hit.pl, len, eps),
                  lumStatusOk);
        for (int i = 0; i < n; ++i)
            for (int k = 0; k < 3; ++k) {
                const Lum32f o = perRay ? org[k][i] : one[k], d = dir[k][i];
                const Lum32f ev = (dist[i] * d) * eps + o, ep = (eps * d) * dist[i] + o;
                differ += ev != ep;
                const Lum32f want = i >= len ? kCanary : mask[i] < 0 ? 0.0f : vec ? ev : ep;
                EXPECT_EQ(bitsOf(hit[k][i]), bitsOf(want)) << form << " " << i;
            }
    }
    EXPECT_GT(differ, 0);
    // Check order: distance, mask, direction, hit, then the per-ray origin.
    // The shared origin is never checked, and an all-off stream never reads it.
    Planes canary(4, 0, kCanary);
    Stream<Lum32s> off(4, 0, -1);
    EXPECT_EQ(lumrHitPoint3DEpsM0_32f_M(nullptr, &dir.pl, nullptr, mask.p, &canary.pl, 4, eps), lumStatusNullPtr);
    EXPECT_EQ(lumrHitPoint3DEpsM0_32f_M(nullptr, &dir.pl, dist.p, mask.p, &canary.pl, 4, eps), lumStatusNullPtr);
    EXPECT_EQ(lumrHitPoint3DEpsS0_32f_M(one, nullptr, dist.p, nullptr, &canary.pl, 4, eps), lumStatusNullPtr);
    EXPECT_EQ(canary[0][0], kCanary);
    for (int len : {4, 3}) EXPECT_EQ(lumrHitPoint3DEpsS0_32f_M(nullptr, &dir.pl, dist.p, off.p, &canary.pl, len, eps), lumStatusOk);
    EXPECT_EQ(canary[1][0], 0.0f);
}

}  // namespace
