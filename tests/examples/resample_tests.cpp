// The volume tool's geometry and its resize, warp and swirl steps.
#include <omp.h>

#include <cmath>

#include "common/aligned.h"
#include "demo_test_util.h"
#include "volume/ops.h"
#include "volume/phantom.h"

using namespace demo;

TEST(DemoResample, IdentityStepsCopyTheVolume) {
    for (SampleType t : {SampleType::U8, SampleType::U16, SampleType::F32}) {
        const Volume v = makePhantom(t, 24, 20, 18);
        Volume out;
        ASSERT_EQ(resizeVolume(v, &out, LUM_RESAMPLE_NEAREST, 1, 1, 1, nullptr), lumStatusOk);
        EXPECT_EQ(countDifferences(v, out), 0) << sampleTypeName(t);
        ASSERT_EQ(warpVolume(v, &out, LUM_RESAMPLE_NEAREST, 0.0, 'y', 1.0, nullptr), lumStatusOk);
        EXPECT_EQ(countDifferences(v, out), 0) << sampleTypeName(t);
        ASSERT_EQ(swirlVolume(v, &out, LUM_RESAMPLE_NEAREST, 0.0, nullptr), lumStatusOk);
        EXPECT_EQ(countDifferences(v, out), 0) << sampleTypeName(t);
    }
}

// Slabs of planes on three threads give what one call over the whole volume gives.
TEST(DemoResample, ResizeBySlabsOnThreadsEqualsOneCall) {
    const Volume v = makePhantom(SampleType::U16, 40, 36, 44);
    Volume out;
    const int before = omp_get_max_threads();
    omp_set_num_threads(3);
    ASSERT_EQ(resizeVolume(v, &out, LUM_RESAMPLE_CATMULLROM, 0.6, 1.5, 2.0, nullptr), lumStatusOk);
    omp_set_num_threads(before);
    EXPECT_DOUBLE_EQ(out.spacing[2], 0.5);

    Volume whole(SampleType::U16, 24, 54, 88);
    const LumVolume size{40, 36, 44};
    const LumBox srcBox{0, 0, 0, 40, 36, 44}, dstBox{0, 0, 0, 24, 54, 88};
    Lum32s bytes = 0;
    ASSERT_EQ(lumrResizeGetBufSize(&srcBox, &dstBox, 1, LUM_RESAMPLE_CATMULLROM, &bytes),
              lumStatusOk);
    AlignedArray<Lum8u> buffer(static_cast<size_t>(bytes));
    const auto in = v.planes<Lum16u>();
    const auto dst = whole.planes<Lum16u>();
    ASSERT_EQ(lumrResize_16u_C1PV(in.data(), &size, v.step(), &srcBox, dst.data(), whole.step(),
                                  &dstBox, 0.6, 1.5, 2.0, 0, 0, 0, LUM_RESAMPLE_CATMULLROM,
                                  buffer.data()),
              lumStatusOk);
    EXPECT_EQ(countDifferences(out, whole), 0);  // sizes included
}

// The affine map turns about the centre, exactly for a quarter turn; the warp
// moves samples where that map says, and the swirl turns the centre alone.
TEST(DemoResample, TurnsMoveSamplesWhereExpected) {
    Lum64f c[3][4];
    affineAboutCentre(21, 11, 31, 90.0, 'z', 2.0, c);
    const double p[3] = {10, 5, 15};  // the centre maps onto itself
    for (int i = 0; i < 3; ++i)
        EXPECT_NEAR(c[i][0] * p[0] + c[i][1] * p[1] + c[i][2] * p[2] + c[i][3], p[i], 1e-9);
    EXPECT_EQ(c[0][0], 0.0);  // exact: edges stay inside the source
    EXPECT_NEAR(c[1][0], 2.0, 1e-12);  // one step along x becomes two along y
    EXPECT_NEAR(c[2][2], 2.0, 1e-12);
    affineAboutCentre(9, 9, 9, 90.0, 'x', 1.0, c);
    EXPECT_NEAR(c[2][1], 1.0, 1e-12);  // y turns into z
    EXPECT_NEAR(c[0][0], 1.0, 1e-12);

    Volume v(SampleType::F32, 9, 9, 3), out;
    for (int z = 0; z < 3; ++z)
        for (int y = 0; y < 9; ++y)
            for (int x = 0; x < 9; ++x) v.set(x, y, z, x + 10 * y + 100 * z);
    ASSERT_EQ(warpVolume(v, &out, LUM_RESAMPLE_NEAREST, 90.0, 'z', 1.0, nullptr), lumStatusOk);
    int wrong = 0;  // x' = 8 - y, y' = x about (4, 4): out(x, y) = v(y, 8 - x)
    for (int z = 0; z < 3; ++z)
        for (int y = 0; y < 9; ++y)
            for (int x = 0; x < 9; ++x) wrong += out.get(x, y, z) != v.get(y, 8 - x, z);
    EXPECT_EQ(wrong, 0);
    ASSERT_EQ(swirlVolume(v, &out, LUM_RESAMPLE_NEAREST, 90.0, nullptr), lumStatusOk);
    for (int xy : {4, 0, 8}) EXPECT_EQ(out.get(xy, xy, 1), v.get(xy, xy, 1));

    float sx, sy, sz;  // inside the rim: turned, at the same radius
    swirlSource(33, 33, 9, 90.0, 20, 16, 4, &sx, &sy, &sz);
    EXPECT_NEAR(std::hypot(sx - 16.0, sy - 16.0), 4.0, 1e-5);
    EXPECT_GT(sy, 16.0f);
    EXPECT_FLOAT_EQ(sz, 4.0f);
}
