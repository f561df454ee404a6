// The volume tool's resize, warp and swirl steps through the library.
#include <gtest/gtest.h>

#include <omp.h>

#include "common/aligned.h"
#include "volume/ops.h"
#include "volume/phantom.h"

using namespace demo;

namespace {

int countDifferences(const Volume& a, const Volume& b) {
    if (a.width() != b.width() || a.height() != b.height() || a.depth() != b.depth()) return -1;
    int n = 0;
    for (int z = 0; z < a.depth(); ++z)
        for (int y = 0; y < a.height(); ++y)
            for (int x = 0; x < a.width(); ++x) n += a.get(x, y, z) != b.get(x, y, z);
    return n;
}

}  // namespace

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

TEST(DemoResample, ResizeBySlabsOnThreadsEqualsOneCall) {
    const Volume v = makePhantom(SampleType::U16, 40, 36, 44);
    Volume out;
    const int before = omp_get_max_threads();
    omp_set_num_threads(3);
    ASSERT_EQ(resizeVolume(v, &out, LUM_RESAMPLE_CATMULLROM, 0.6, 1.5, 2.0, nullptr), lumStatusOk);
    omp_set_num_threads(before);
    ASSERT_EQ(out.width(), 24);
    ASSERT_EQ(out.height(), 54);
    ASSERT_EQ(out.depth(), 88);
    EXPECT_DOUBLE_EQ(out.spacing[2], 0.5);

    Volume whole(SampleType::U16, 24, 54, 88);
    const LumVolume size{40, 36, 44};
    const LumBox srcBox{0, 0, 0, 40, 36, 44}, dstBox{0, 0, 0, 24, 54, 88};
    Lum32s bytes = 0;
    ASSERT_EQ(lumrResizeGetBufSize(&srcBox, &dstBox, 1, LUM_RESAMPLE_CATMULLROM, &bytes), lumStatusOk);
    AlignedArray<Lum8u> buffer(static_cast<size_t>(bytes));
    const auto in = v.planes<Lum16u>();
    const auto dst = whole.planes<Lum16u>();
    ASSERT_EQ(lumrResize_16u_C1PV(in.data(), &size, v.step(), &srcBox, dst.data(), whole.step(), &dstBox,
                                  0.6, 1.5, 2.0, 0, 0, 0, LUM_RESAMPLE_CATMULLROM, buffer.data()),
              lumStatusOk);
    EXPECT_EQ(countDifferences(out, whole), 0);
}

TEST(DemoResample, QuarterTurnMovesSamplesWhereExpected) {
    Volume v(SampleType::F32, 9, 9, 3);
    for (int z = 0; z < 3; ++z)
        for (int y = 0; y < 9; ++y)
            for (int x = 0; x < 9; ++x) v.set(x, y, z, x + 10 * y + 100 * z);
    Volume out;
    ASSERT_EQ(warpVolume(v, &out, LUM_RESAMPLE_NEAREST, 90.0, 'z', 1.0, nullptr), lumStatusOk);
    // Forward map: x' = 8 - y, y' = x about the centre (4, 4); so out(x, y) = v(y, 8 - x).
    int wrong = 0;
    for (int z = 0; z < 3; ++z)
        for (int y = 0; y < 9; ++y)
            for (int x = 0; x < 9; ++x) wrong += out.get(x, y, z) != v.get(y, 8 - x, z);
    EXPECT_EQ(wrong, 0);
    Lum64f c[3][4];
    affineAboutCentre(9, 9, 3, 90.0, 'z', 1.0, c);
    EXPECT_EQ(c[0][0], 0.0);  // a quarter turn is exact, edges stay inside the source
    EXPECT_EQ(c[0][1], -1.0);

    // The swirl turns the same way at the centre and leaves the corners.
    Volume s;
    ASSERT_EQ(swirlVolume(v, &s, LUM_RESAMPLE_NEAREST, 90.0, nullptr), lumStatusOk);
    EXPECT_EQ(s.get(4, 4, 1), v.get(4, 4, 1));
    EXPECT_EQ(s.get(0, 0, 1), v.get(0, 0, 1));
    EXPECT_EQ(s.get(8, 8, 1), v.get(8, 8, 1));
}
