// Triangle records and the scene box, checked word for word on triangles
// whose normals and weights are worked out by hand.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstring>
#include <vector>

#include "lumr.h"

namespace {

Lum32u Bits(Lum32f f) {
    Lum32u u;
    std::memcpy(&u, &f, 4);
    return u;
}

struct Words {
    Lum32u w[10];
};

// Record for triangle (a, b, c) as ten raw words.
Words Record(std::vector<Lum32f> verts) {
    const Lum32s tri[4] = {0, 1, 2, 0x7EADBEEF};  // fourth word is never read
    LumTriangleAccel r;
    std::memset(&r, 0xCD, sizeof r);
    EXPECT_EQ(lumrTriangleAccelInit(&r, verts.data(), tri, 1), lumStatusOk);
    Words out;
    std::memcpy(out.w, &r, 40);
    return out;
}

// axisCode, nP, baseW, nQ, baseP, baseQ, e2P, e2Q, e1P, e1Q
void ExpectWords(const Words& got, Lum32u code, std::vector<Lum32f> f) {
    EXPECT_EQ(got.w[0], code) << std::hex << got.w[0];
    for (int k = 0; k < 9; ++k)
        EXPECT_EQ(got.w[k + 1], Bits(f[k])) << "word " << k + 1 << " expected " << f[k];
}

TEST(TriangleAccel, SizeIsFortyBytes) {
    Lum32s size = -1;
    EXPECT_EQ(lumrTriangleAccelGetSize(&size), lumStatusOk);
    EXPECT_EQ(size, 40);
    EXPECT_EQ(lumrTriangleAccelGetSize(nullptr), lumStatusNullPtr);
}

TEST(TriangleAccel, RecordsOfEachDominantAxis) {
    // x dominant: E1 = (0,2,0), E2 = (1,0,4), N = (8, 0, -2); base C = (1,1,1).
    ExpectWords(Record({1, 3, 1, 2, 1, 5, 1, 1, 1}), 6,
                {0.0f, 1.0f, -0.25f, 1.0f, 1.0f, 0.0f, 0.5f, 0.25f, 0.0f});
    // y dominant: E1 = (1,0,0), E2 = (0,1,4), N = (0,-4,1); s = -1, so the
    // weights flip sign back, and nP = 0 x (1/-4) keeps its negative zero.
    ExpectWords(Record({2, 2, 3, 1, 3, 7, 1, 2, 3}), 18,
                {-0.0f, 2.0f, -0.25f, 1.0f, 3.0f, 0.0f, 1.0f, 0.25f, 0.0f});
    // z dominant, tilted: E1 = (2,0,1), E2 = (0,2,0), N = (-2,0,4); C = origin.
    ExpectWords(Record({2, 0, 1, 0, 2, 0, 0, 0, 0}), 33,
                {-0.5f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.5f, 0.5f, 0.0f});
    // Plane z = 5: N = (0,0,6) exactly, so the axis-aligned bit is set and the
    // slopes are stored as zeros.
    ExpectWords(Record({3, 1, 5, 1, 4, 5, 1, 1, 5}), 0x80000021u,
                {0.0f, 5.0f, 0.0f, 1.0f, 1.0f, 0.0f, 0.5f, 1.0f / 3.0f, 0.0f});
}

TEST(TriangleAccel, TiesGoToTheLowerAxis) {
    // E1 = (1,-1,0), E2 = (0,1,-1): N = (1,1,1), all equal: x wins.
    ExpectWords(Record({1, -1, 0, 0, 1, -1, 0, 0, 0}), 6,
                {1.0f, 0.0f, 1.0f, 0.0f, 0.0f, 1.0f, -1.0f, -1.0f, 0.0f});
    // E1 = (1,0,0), E2 = (0,1,1): N = (0,-1,1), y and z tie: y wins, s = -1.
    ExpectWords(Record({1, 0, 0, 0, 1, 1, 0, 0, 0}), 18,
                {-0.0f, 0.0f, -1.0f, 0.0f, 0.0f, 0.0f, 1.0f, 1.0f, 0.0f});
}

TEST(TriangleAccel, ArithmeticIsDouble) {
    // E1 = (4097,0,0), E2 = (0,4097,1): N.z = 4097^2 = 16785409 is exact in
    // double but not in float.  e1P = 4097 / N.z = 1/4097 and nQ = -1/4097
    // come out as the float nearest to the true quotient.
    const Words got = Record({4097, 0, 0, 0, 4097, 1, 0, 0, 0});
    EXPECT_EQ(got.w[0], 33u);
    EXPECT_EQ(got.w[3], Bits(Lum32f(-1.0 / 4097.0)));
    EXPECT_EQ(got.w[8], Bits(Lum32f(1.0 / 4097.0)));
    EXPECT_EQ(got.w[7], Bits(Lum32f(1.0 / 4097.0)));  // e2Q = 4097 / N.z
    // The same quotient in float arithmetic is one unit off: the record would
    // differ if its products were rounded before the division.
    volatile Lum32f nzf = 4097.0f * 4097.0f;
    EXPECT_NE(Bits(Lum32f(1.0 / 4097.0)), Bits(4097.0f / nzf));
}

TEST(TriangleAccel, DegenerateTrianglesAreAllZero) {
    const Words zero{};
    // Two equal vertices.
    Words got = Record({1, 2, 3, 1, 2, 3, 4, 5, 6});
    EXPECT_EQ(0, std::memcmp(got.w, zero.w, 40));
    // Three collinear vertices whose products cancel exactly.
    got = Record({1, 1, 1, 2, 2, 2, 3, 3, 3});
    EXPECT_EQ(0, std::memcmp(got.w, zero.w, 40));
}

TEST(TriangleAccel, CountBelowOneWritesNothingAndRecordsFollowIndexOrder) {
    const std::vector<Lum32f> v = {0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1};
    // Index entries have four words; the fourth is junk on purpose.
    const Lum32s tris[8] = {0, 1, 2, -77, 0, 2, 3, 1 << 30};
    LumTriangleAccel r[2];
    std::memset(r, 0xAB, sizeof r);
    EXPECT_EQ(lumrTriangleAccelInit(r, v.data(), tris, 0), lumStatusOk);
    EXPECT_EQ(lumrTriangleAccelInit(r, v.data(), tris, -3), lumStatusOk);
    EXPECT_EQ(r[0].axisCode, 0xABABABABu);
    EXPECT_EQ(lumrTriangleAccelInit(r, v.data(), tris, 2), lumStatusOk);
    EXPECT_EQ(r[0].axisCode, 0x80000021u);  // in the plane z = 0
    EXPECT_EQ(r[1].axisCode, 0x80000006u);  // in the plane x = 0
}

TEST(BoundBox, EmptyAndSinglePointBoxes) {
    Lum32f box[6];
    const Lum32f origin[3] = {0, 0, 0};
    for (Lum32s count : {0, -4}) {
        std::memset(box, 0, sizeof box);
        EXPECT_EQ(lumrSetBoundBox_32f(origin, count, box), lumStatusOk);
        for (int k = 0; k < 3; ++k) {
            EXPECT_EQ(box[k], 3.4024831e38f);
            EXPECT_EQ(box[3 + k], -3.4024831e38f);
        }
    }
    EXPECT_EQ(lumrSetBoundBox_32f(origin, 1, box), lumStatusOk);
    for (int k = 0; k < 3; ++k) {
        EXPECT_LT(box[k], 0.0f);
        EXPECT_GT(box[k], -1.3e-42f);
        EXPECT_LT(box[k], -1.1e-42f);
        EXPECT_EQ(box[3 + k], -box[k]);
    }
}

TEST(BoundBox, MarginFollowsLargestMagnitudeAndNaNNeverWins) {
    const Lum32f nan = NAN;
    // A small model far out on x and z: the margin is 1e-4 of the largest
    // magnitude (1500 on z), on every axis, not 1e-4 of an extent.
    const Lum32f v[9] = {1000, nan, 1, 1001, 2, nan, nan, 3, -1500};
    Lum32f box[6];
    ASSERT_EQ(lumrSetBoundBox_32f(v, 3, box), lumStatusOk);
    const Lum32f m = 0.15f;
    const Lum32f expectLo[3] = {1000, 2, -1500}, expectHi[3] = {1001, 3, 1};
    for (int k = 0; k < 3; ++k) {
        EXPECT_FALSE(std::isnan(box[k]) || std::isnan(box[3 + k]));
        EXPECT_NEAR(box[k], expectLo[k] - m, 1e-3f) << k;
        EXPECT_NEAR(box[3 + k], expectHi[k] + m, 1e-3f) << k;
    }
    // Only the vertex array is checked.
    Lum32f canary[6] = {7, 7, 7, 7, 7, 7};
    EXPECT_EQ(lumrSetBoundBox_32f(nullptr, 3, canary), lumStatusNullPtr);
    EXPECT_EQ(canary[0], 7.0f);
}

}  // namespace
