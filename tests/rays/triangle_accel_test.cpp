// Triangle records and the scene box, checked word for word on triangles
// whose normals and weights are worked out by hand.
#include "ray_buffers.h"

namespace {

LumTriangleAccel record(std::vector<Lum32f> verts) {
    const Lum32s tri[4] = {0, 1, 2, 0x7EADBEEF};  // fourth word is never read
    LumTriangleAccel r;
    std::memset(&r, 0xCD, sizeof r);
    EXPECT_EQ(lumrTriangleAccelInit(&r, verts.data(), tri, 1), lumStatusOk);
    return r;
}

TEST(TriangleAccel, RecordsWorkedByHand) {
    struct Case {
        std::vector<Lum32f> verts;  // A, B, C; E1 = A - C, E2 = B - C, N = E1 x E2
        Lum32u code;
        Lum32f words[9];  // nP, baseW, nQ, baseP, baseQ, e2P, e2Q, e1P, e1Q
    };
    const Lum32f below = std::ldexp(1.0f, -53), at = std::ldexp(1.0f, -52);
    const Case cases[] = {
        // x dominant: E1 = (0,2,0), E2 = (1,0,4), N = (8, 0, -2); base C = (1,1,1).
        {{1, 3, 1, 2, 1, 5, 1, 1, 1}, 6, {0.0f, 1.0f, -0.25f, 1.0f, 1.0f, 0.0f, 0.5f, 0.25f, 0.0f}},
        // y dominant: E1 = (1,0,0), E2 = (0,1,4), N = (0,-4,1); s = -1, so the
        // weights flip sign back, and nP = 0 x (1/-4) keeps its negative zero.
        {{2, 2, 3, 1, 3, 7, 1, 2, 3}, 18, {-0.0f, 2.0f, -0.25f, 1.0f, 3.0f, 0.0f, 1.0f, 0.25f, 0.0f}},
        // z dominant, tilted: E1 = (2,0,1), E2 = (0,2,0), N = (-2,0,4); C = origin.
        {{2, 0, 1, 0, 2, 0, 0, 0, 0}, 33, {-0.5f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.5f, 0.5f, 0.0f}},
        // Plane z = 5: N = (0,0,6) exactly, the axis-aligned bit set and the slopes zeros.
        {{3, 1, 5, 1, 4, 5, 1, 1, 5}, 0x80000021u, {0.0f, 5.0f, 0.0f, 1.0f, 1.0f, 0.0f, 0.5f, 1.0f / 3.0f, 0.0f}},
        // N = (1,1,1), all equal: x wins; N = (0,-1,1), y and z tie: y wins, s = -1.
        {{1, -1, 0, 0, 1, -1, 0, 0, 0}, 6, {1.0f, 0.0f, 1.0f, 0.0f, 0.0f, 1.0f, -1.0f, -1.0f, 0.0f}},
        {{1, 0, 0, 0, 1, 1, 0, 0, 0}, 18, {-0.0f, 0.0f, -1.0f, 0.0f, 0.0f, 0.0f, 1.0f, 1.0f, 0.0f}},
        // The flag needs both off-axis components strictly below 2^-52:
        // E1 = (1, 0, e), E2 = (0, 1, 0), N = (-e, 0, 1).
        {{1, 0, below, 0, 1, 0, 0, 0, 0}, 0x80000021u, {0, 0, 0, 0, 0, 0, 1, 1, 0}},
        {{1, 0, at, 0, 1, 0, 0, 0, 0}, 33, {-at, 0, 0, 0, 0, 0, 1, 1, 0}},
        // Plane y = 2 (N = (0,-1,0)) takes y with s = -1 and 1/N.y = -1: f = 1.
        {{1, 2, 0, 0, 2, 1, 0, 2, 0}, 0x80000012u, {0, 2, 0, 0, 0, 0, 1, 1, 0}},
        // Two equal vertices, and three collinear ones: all ten words zero.
        {{1, 2, 3, 1, 2, 3, 4, 5, 6}, 0, {}},
        {{1, 1, 1, 2, 2, 2, 3, 3, 3}, 0, {}},
    };
    for (const Case& c : cases) {
        const LumTriangleAccel r = record(c.verts);
        EXPECT_EQ(r.axisCode, c.code) << std::hex << r.axisCode;
        const Lum32f got[9] = {r.nP, r.baseW, r.nQ, r.baseP, r.baseQ, r.e2P, r.e2Q, r.e1P, r.e1Q};
        for (int k = 0; k < 9; ++k) EXPECT_EQ(bitsOf(got[k]), bitsOf(c.words[k])) << "word " << k + 1 << " code " << c.code;
    }
    Lum32s size = -1;
    EXPECT_EQ(lumrTriangleAccelGetSize(&size), lumStatusOk);
    EXPECT_EQ(size, 40);
}

TEST(TriangleAccel, ArithmeticIsDouble) {
    // E1 = (4097,0,0), E2 = (0,4097,1): N.z = 4097^2 = 16785409 is exact in
    // double but not in float; e1P, e2Q and -nQ come out as the float nearest
    // to 1/4097, which the float quotient misses by one unit.
    const LumTriangleAccel r = record({4097, 0, 0, 0, 4097, 1, 0, 0, 0});
    EXPECT_EQ(r.axisCode, 33u);
    EXPECT_EQ(bitsOf(r.nQ), bitsOf(Lum32f(-1.0 / 4097.0)));
    EXPECT_EQ(bitsOf(r.e1P), bitsOf(Lum32f(1.0 / 4097.0)));
    EXPECT_EQ(bitsOf(r.e2Q), bitsOf(Lum32f(1.0 / 4097.0)));
    volatile Lum32f nzf = 4097.0f * 4097.0f;
    EXPECT_NE(bitsOf(Lum32f(1.0 / 4097.0)), bitsOf(4097.0f / nzf));
}

TEST(TriangleAccel, RecordsFollowIndexOrder) {
    const std::vector<Lum32f> v = {0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1};
    const Lum32s tris[8] = {0, 1, 2, -77, 0, 2, 3, 1 << 30};  // fourth words are junk
    LumTriangleAccel r[2];
    EXPECT_EQ(lumrTriangleAccelInit(r, v.data(), tris, 2), lumStatusOk);
    EXPECT_EQ(r[0].axisCode, 0x80000021u);  // in the plane z = 0
    EXPECT_EQ(r[1].axisCode, 0x80000006u);  // in the plane x = 0
}

TEST(BoundBox, MarginFollowsLargestMagnitudeAndNaNNeverWins) {
    Lum32f box[6];
    const Lum32f origin[3] = {0, 0, 0};
    for (Lum32s count : {0, -4}) {  // an empty scene keeps an inverted box
        ASSERT_EQ(lumrSetBoundBox_32f(origin, count, box), lumStatusOk);
        EXPECT_EQ(std::vector<Lum32f>(box, box + 6), std::vector<Lum32f>({3.4024831e38f, 3.4024831e38f, 3.4024831e38f, -3.4024831e38f, -3.4024831e38f, -3.4024831e38f}));
    }
    ASSERT_EQ(lumrSetBoundBox_32f(origin, 1, box), lumStatusOk);
    for (int k = 0; k < 3; ++k) {  // a margin of 1e-4 of the smallest normal number
        EXPECT_GT(box[k], -1.3e-42f);
        EXPECT_LT(box[k], -1.1e-42f);
        EXPECT_EQ(box[3 + k], -box[k]);
    }
    // A small model far out on x and z: the margin is 1e-4 of the largest
    // magnitude (1500 on z), on every axis, not 1e-4 of an extent.
    const Lum32f nan = NAN;
    const Lum32f v[9] = {1000, nan, 1, 1001, 2, nan, nan, 3, -1500};
    ASSERT_EQ(lumrSetBoundBox_32f(v, 3, box), lumStatusOk);
    const Lum32f lo[3] = {1000, 2, -1500}, hi[3] = {1001, 3, 1};
    for (int k = 0; k < 3; ++k) {
        EXPECT_NEAR(box[k], lo[k] - 0.15f, 1e-3f) << k;
        EXPECT_NEAR(box[3 + k], hi[k] + 0.15f, 1e-3f) << k;
    }
}

}  // namespace
