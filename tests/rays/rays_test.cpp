// Eye and shadow rays, each body against its own operation order on aligned
// and misaligned streams; and the contracts of the whole family: pointer
// checks, all-off lanes that read no input, empty lengths.
#include <sys/mman.h>
#include <unistd.h>

#include "ray_buffers.h"

namespace {

// Each row base (stepRow y0 + corner) + stepColumn x0 is stepped by adding
// stepRow, and column c adds stepColumn x c; a width that is no multiple of
// 4 recomputes every point.  Widths from 16 up take the eight-lane steps.
TEST(CastEye, EachBodyFollowsItsOwnOrder) {
    const Lum32f corner[3] = {-1.25f, 0.7f, 3.1f}, col[3] = {0.013f, -0.0071f, 0.00031f},
                 row[3] = {-0.0009f, 0.011f, 0.0051f};
    const Lum32f x0 = -27.0f, y0 = 77.0f;  // block (-3, 7) of 9 x 11
    for (int width : {6, 8, 12, 13, 16, 18, 20, 28, 44})
        for (int shift : {0, 1}) {
            const int height = 5;
            Planes out(width * height + 4, shift, kCanary);
            ASSERT_EQ(lumrCastEye_32f(corner, col, row, -3, 7, {9, 11}, &out.pl, {width, height}), lumStatusOk);
            int differ = 0;
            for (int k = 0; k < 3; ++k) {
                Lum32f b = (row[k] * y0 + corner[k]) + col[k] * x0;
                for (int r = 0; r < height; ++r) {
                    if (r > 0) b = b + row[k];
                    for (int c = 0; c < width; ++c) {
                        const Lum32f direct = ((y0 + r) * row[k] + corner[k]) + (x0 + c) * col[k];
                        const Lum32f stepped = b + col[k] * static_cast<Lum32f>(c);
                        differ += stepped != direct;
                        ASSERT_EQ(bitsOf(out[k][r * width + c]), bitsOf(width % 4 ? direct : stepped))
                            << width << " " << shift << " " << r << " " << c;
                    }
                }
                EXPECT_EQ(out[k][width * height], kCanary);
            }
            EXPECT_GT(differ, 0);  // the data tell the two orders apart
        }
}

// Whole groups follow the vector rule (a failing lane, an off one included,
// gets mask -1), the last lanes the tail rule (an off lane keeps its mask).
// Lanes 24 to 31 are worked by hand: normal (1, 0, 0) and the light's x at
// 0, so that v is exactly the point's x.
TEST(CastShadow, ThresholdSignAndTheTailMaskRule) {
    const Lum32f thr = 0.00174532924f, below = std::nextafter(thr, 0.0f);
    ASSERT_EQ(bitsOf(thr), 0x3AE4C388u);
    // pass, pass at the threshold, just below, wrong side, off, just below on
    // the right side, pass, NaN; lanes 28 to 30 fall in the tail for lengths 29 to 31
    const Lum32f v[8] = {1.0f, thr, below, -2.0f, 5.0f, -below, -thr, NAN};
    const Lum32f facing[8] = {1, 1, 1, 1, 1, -1, -1, 1};
    const Lum32s maskIn[8] = {0, 7, 0, 0, -5, 0, 0, 0};
    const bool kPass[8] = {true, true, false, false, false, false, true, false};
    EdgeData in(91);
    for (int j = 0, i = 24; j < 8; ++j, ++i) {
        in.a[0][i] = 1, in.a[1][i] = 0, in.a[2][i] = 0, in.b[0][i] = v[j], in.b[1][i] = 9, in.b[2][i] = 0;
        in.s[i] = facing[j], in.m[i] = maskIn[j];
    }
    const int n = EdgeData::n;
    const Lum32f light[3] = {0.0f, -0.5f, 1.0f};
    for (int len : {32, 31, 30, 29})
        for (int shift : {0, 1}) {
            SCOPED_TRACE(testing::Message() << "len " << len << " shift " << shift);
            Stream<Lum32f> face(n, shift), dot(n, shift, kCanary);
            Stream<Lum32s> m(n, shift);
            Planes nrm(n, shift), pts(n, shift), rays(n, shift, kCanary);
            std::copy(in.s, in.s + n, face.p), std::copy(in.m, in.m + n, m.p);
            in.put(nrm, in.a), in.put(pts, in.b);
            ASSERT_EQ(lumrCastShadowSO_32f(light, face.p, &nrm.pl, &pts.pl, m.p, dot.p, &rays.pl, len), lumStatusOk);
            for (int i = 0; i < n; ++i) {
                Lum32f dv[3];
                for (int k = 0; k < 3; ++k) dv[k] = in.b[k][i] - light[k];
                const Lum32f vi = (dv[0] * in.a[0][i] + dv[1] * in.a[1][i]) + dv[2] * in.a[2][i];
                const bool pass = in.m[i] >= 0 && std::fabs(vi) >= thr && vi * in.s[i] > 0;
                if (i >= 24) { ASSERT_EQ(pass, kPass[i - 24]) << i; }
                if (i >= len) {
                    EXPECT_EQ(m[i], in.m[i]);
                    EXPECT_EQ(dot[i], kCanary);
                    continue;
                }
                const bool tail = i >= (len & ~3);
                EXPECT_EQ(m[i], pass || (tail && in.m[i] < 0) ? in.m[i] : -1) << i;
                EXPECT_TRUE(sameLane(dot[i], pass ? std::fabs(vi) : 0.0f)) << i;
                for (int k = 0; k < 3; ++k) EXPECT_TRUE(sameLane(rays[k][i], pass ? dv[k] : 0.0f)) << i;
            }
        }
}

// Two pointers broken at once report the first failure: the null pointer
// status, with nothing written.
TEST(RaysFamily, PointerChecksWriteNothing) {
    Planes p(4), out(4, 0, kCanary);
    Stream<Lum32f> s(4), o(4, 0, kCanary);
    Stream<Lum32s> m(4), idx(4);
    const Lum32f k3[3] = {1, 1, 1};
    Lum32f* pair[2] = {s.p, s.p};
    const LumStatus got[] = {
        lumrMul_32f_C1P3IM(nullptr, nullptr, &out.pl, 4),
        lumrMul_32f_C1P3IM(s.p, m.p, nullptr, 4),
        lumrAddMulMul_32f_AC1P3IM(k3, s.p, &p.pl, nullptr, &out.pl, 4),
        lumrDiv_32f_C1IM(s.p, m.p, nullptr, 4),
        lumrDot_32f_P3C1M(&p.pl, nullptr, m.p, o.p, 4),
        lumrDotChangeNorm_32f_IM(&p.pl, m.p, &out.pl, nullptr, 4),
        lumrDistAttenuationSO_32f_M(k3, &p.pl, m.p, nullptr, 4),
        lumrCastEye_32f(k3, k3, k3, 0, 0, {4, 4}, nullptr, {4, 1}),
        lumrCastReflectionRay_32f(nullptr, nullptr, &p.pl, &out.pl, 4),
        lumrCastReflectionRay_32f(&p.pl, m.p, nullptr, &out.pl, 4),
        lumrCastReflectionRay_32f(&p.pl, m.p, &p.pl, nullptr, 4),
        lumrCastShadowSO_32f(k3, nullptr, &p.pl, &p.pl, m.p, nullptr, &out.pl, 4),
        lumrCastShadowSO_32f(k3, s.p, &p.pl, &p.pl, nullptr, o.p, nullptr, 4),
        // distance, mask, direction, hit, then the per-ray origin
        lumrHitPoint3DEpsM0_32f_M(nullptr, &p.pl, nullptr, m.p, &out.pl, 4, 1.0f),
        lumrHitPoint3DEpsM0_32f_M(nullptr, &p.pl, s.p, m.p, &out.pl, 4, 1.0f),
        lumrHitPoint3DEpsS0_32f_M(k3, nullptr, s.p, nullptr, &out.pl, 4, 1.0f),
        lumrSurfFlatNormal_32f(nullptr, nullptr, &out.pl, 4),
        lumrSurfFlatNormal_32f(s.p, nullptr, &out.pl, 4),
        lumrSurfSmoothNormal_32f(nullptr, idx.p, m.p, pair, nullptr, 4, 3),
        lumrSurfSmoothNormal_32f(s.p, idx.p, m.p, nullptr, &out.pl, 4, 3),
        lumrTriangleNormal_32f(nullptr, idx.p, nullptr, 1),
        lumrTriangleNormal_32f(s.p, nullptr, o.p, 1),
        lumrTriangleAccelGetSize(nullptr),
        lumrSetBoundBox_32f(nullptr, 1, o.p),
    };
    for (size_t c = 0; c < sizeof got / sizeof got[0]; ++c) EXPECT_EQ(got[c], lumStatusNullPtr) << c;
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(o[i], kCanary) << i;
        for (int k = 0; k < 3; ++k) EXPECT_EQ(out[k][i], kCanary) << i;
    }
}

// Every input lies on a page that faults on any access; only the mask (all
// off) and the destination are real.  Both bodies must store the off-lane
// value without reading an input.
TEST(RaysFamily, AllOffLanesReadNoInput) {
    const size_t size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void* page = mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(page, MAP_FAILED);
    Lum32f* f = static_cast<Lum32f*>(page);
    Lum32s* idx = static_cast<Lum32s*>(page);
    LumPlanes3 none = {f, f, f};
    Lum32f* pair[2] = {f, f};
    Stream<Lum32s> off(8);
    for (int i = 0; i < 8; ++i) off[i] = i % 2 ? -1 : INT32_MIN;
    struct Call { Lum32f want; int outputs; };  // outputs: 1 the scalar stream, 3 the planes
    const Call calls[] = {{0, 3}, {kCanary, 3}, {0, 1}, {0, 1}, {1, 1}, {0, 3}, {0, 3}, {0, 3}, {0, 3}, {0, 3}};
    for (int len : {8, 7})
        for (int c = 0; c < 10; ++c) {
            Planes out(8, 0, kCanary);
            Stream<Lum32f> o(8, 0, kCanary);
            const LumStatus st =
                c == 0 ? lumrMul_32f_C1P3IM(f, off.p, &out.pl, len)
              : c == 1 ? lumrAddMulMul_32f_AC1P3IM(f, f, &none, off.p, &out.pl, len)
              : c == 2 ? lumrDot_32f_P3C1M(&none, &none, off.p, o.p, len)
              : c == 3 ? lumrDotChangeNorm_32f_IM(&none, off.p, &none, o.p, len)
              : c == 4 ? lumrDistAttenuationSO_32f_M(f, &none, off.p, o.p, len)
              : c == 5 ? lumrCastReflectionRay_32f(&none, off.p, &none, &out.pl, len)
              : c == 6 ? lumrHitPoint3DEpsS0_32f_M(f, &none, f, off.p, &out.pl, len, 1.0f)
              : c == 7 ? lumrHitPoint3DEpsM0_32f_M(&none, &none, f, off.p, &out.pl, len, 1.0f)
              : c == 8 ? lumrSurfFlatNormal_32f(f, off.p, &out.pl, len)
                       : lumrSurfSmoothNormal_32f(f, idx, off.p, pair, &out.pl, len, 3);
            ASSERT_EQ(st, lumStatusOk) << c;
            for (int i = 0; i < 8; ++i)
                for (int k = 0; k < calls[c].outputs; ++k)
                    EXPECT_EQ(bitsOf(calls[c].outputs == 1 ? o[i] : out[k][i]), bitsOf(i < len ? calls[c].want : kCanary))
                        << len << " " << c << " " << i;
        }
    munmap(page, size);
}

// Zero, negative and the most negative lengths run nothing and write nothing,
// whether or not they pass the gate's multiple-of-4 test; the pointers left
// unchecked are null here, and the plane pointers inside a LumPlanes3 are
// not looked at either.
TEST(RaysFamily, EmptyLengthsReadAndWriteNothing) {
    const int n = 8;
    Planes p(n, 0, 1.0f), out(n, 0, kCanary);
    Stream<Lum32f> s(n, 0, 1.0f), o(n, 0, kCanary);
    Stream<Lum32s> m(n, 0, 0), idx(n, 0, 0);
    Lum32f* pair[2] = {s.p, s.p};
    LumPlanes3 holes = {nullptr, nullptr, nullptr};
    for (Lum32s len : {0, -3, -4, INT32_MIN}) {
        SCOPED_TRACE(len);
        LumTriangleAccel rec;
        std::memset(&rec, 0x5A, sizeof rec);
        const LumStatus got[] = {
            lumrMul_32f_C1IM(nullptr, nullptr, nullptr, len),
            lumrDiv_32f_C1IM(s.p, nullptr, o.p, len),
            lumrMul_32f_C1P3IM(s.p, m.p, &out.pl, len),
            lumrAddMulMul_32f_AC1P3IM(nullptr, s.p, &holes, m.p, &out.pl, len),
            lumrDot_32f_P3C1M(&holes, &holes, m.p, o.p, len),
            lumrDotChangeNorm_32f_IM(&p.pl, m.p, &out.pl, o.p, len),
            lumrDistAttenuationSO_32f_M(nullptr, &p.pl, m.p, o.p, len),
            lumrCastReflectionRay_32f(&p.pl, m.p, &p.pl, &out.pl, len),
            lumrCastShadowSO_32f(nullptr, s.p, &p.pl, &p.pl, m.p, o.p, &out.pl, len),
            lumrCastEye_32f(nullptr, nullptr, nullptr, 0, 0, {1, 1}, &out.pl, {4, len}),
            lumrCastEye_32f(nullptr, nullptr, nullptr, 0, 0, {1, 1}, &out.pl, {len, 4}),
            lumrHitPoint3DEpsS0_32f_M(nullptr, &p.pl, s.p, m.p, &out.pl, len, 1.0f),
            lumrHitPoint3DEpsM0_32f_M(&p.pl, &p.pl, s.p, m.p, &out.pl, len, 1.0f),
            lumrSurfFlatNormal_32f(s.p, m.p, nullptr, len),
            lumrSurfSmoothNormal_32f(s.p, idx.p, m.p, pair, &out.pl, len, 3),
            lumrTriangleNormal_32f(s.p, idx.p, o.p, len),
            lumrTriangleAccelInit(&rec, nullptr, nullptr, len),
        };
        for (size_t c = 0; c < sizeof got / sizeof got[0]; ++c) EXPECT_EQ(got[c], lumStatusOk) << c;
        EXPECT_EQ(rec.axisCode, 0x5A5A5A5Au);
        for (int i = 0; i < n; ++i) {
            EXPECT_EQ(o[i], kCanary) << i;
            EXPECT_EQ(m[i], 0) << i;
            for (int k = 0; k < 3; ++k) EXPECT_EQ(out[k][i], kCanary) << i;
        }
    }
}

}  // namespace
