// Phantom, montage, NIfTI files, the pipeline's geometry and the smoothing
// step of the volume tool.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

#include "volume/montage.h"
#include "volume/nifti_io.h"
#include "volume/ops.h"
#include "volume/phantom.h"

using namespace demo;

TEST(DemoPhantom, DensitiesOfTheHead) {
    EXPECT_NEAR(phantomDensity(0, 0, 0), 0.2, 1e-12);       // brain
    EXPECT_NEAR(phantomDensity(0, 0.9, 0), 1.0, 1e-12);     // skull above the brain
    EXPECT_EQ(phantomDensity(0.95, 0.95, 0.95), 0.0);       // outside
    EXPECT_NEAR(phantomDensity(0.22, 0, 0), 0.0, 1e-12);    // the right ventricle
    EXPECT_NEAR(phantomDensity(0, 0.35, -0.15), 0.3, 1e-12);
    EXPECT_EQ(headEllipsoids().size(), 10u);
}

TEST(DemoPhantom, TypesAgreeAndTheCentreIsBrain) {
    const Volume f = makePhantom(SampleType::F32, 33, 31, 29);
    const Volume b = makePhantom(SampleType::U8, 33, 31, 29);
    const Volume w = makePhantom(SampleType::U16, 33, 31, 29);
    ASSERT_EQ(f.width(), 33);
    ASSERT_EQ(w.depth(), 29);
    EXPECT_EQ(b.step() % 16, 0);
    EXPECT_NEAR(f.get(16, 15, 14), 0.2, 1e-6);
    EXPECT_EQ(b.get(16, 15, 14), 51);
    EXPECT_EQ(w.get(16, 15, 14), 13107);
    int mismatches = 0, nonzero = 0;
    for (int z = 0; z < 29; ++z)
        for (int y = 0; y < 31; ++y)
            for (int x = 0; x < 33; ++x) {
                // The double density, not the stored float: halves like 76.5
                // must round as the phantom rounded them.
                double d = phantomDensity((x + 0.5) / 33 * 2 - 1, 1 - (y + 0.5) / 31 * 2,
                                          (z + 0.5) / 29 * 2 - 1);
                if (d < 1e-12) d = 0;
                nonzero += d > 0;
                EXPECT_FLOAT_EQ(static_cast<float>(f.get(x, y, z)), static_cast<float>(d));
                mismatches += b.get(x, y, z) != std::nearbyint(d * 255.0);
                mismatches += w.get(x, y, z) != std::nearbyint(d * 65535.0);
            }
    EXPECT_EQ(mismatches, 0);
    EXPECT_GT(nonzero, 33 * 31 * 29 / 4);  // the head fills a good part of the cube
    // The head stands upright: the skull's top (small row numbers) is hit
    // before its bottom when walking down the middle column of the middle plane.
    int first = -1;
    for (int y = 0; y < 31 && first < 0; ++y)
        if (f.get(16, y, 14) > 0) first = y;
    EXPECT_GE(first, 0);
    EXPECT_LT(first, 4);
}

TEST(DemoMontage, LaysOutThreeSlicesBeforeAndAfter) {
    Volume v(SampleType::U16, 8, 6, 4);
    for (int z = 0; z < 4; ++z)
        for (int y = 0; y < 6; ++y)
            for (int x = 0; x < 8; ++x) v.set(x, y, z, x * 10 + z * 100);
    Volume empty;
    const Image m = makeMontage(v, empty, 0.0, 370.0, 16);
    // Cells are 8 wide and 6 tall at zoom 2 (16 / 8), gaps of 6.
    ASSERT_EQ(m.channels, 1);
    EXPECT_EQ(m.width, 3 * 16 + 4 * 6);
    EXPECT_EQ(m.height, 2 * 12 + 3 * 6);
    auto grey = [](double value) { return static_cast<int>(std::nearbyint(255.0 * value / 370.0)); };
    // Axial slice at z = 2: column x shows x * 10 + 200.
    EXPECT_EQ(m.at(6 + 2 * 3, 6)[0], grey(230));
    // Coronal slice: z up, so its top row is z = 3.
    const int coronalX = 6 + 16 + 6;
    const int coronalY = 6 + (12 - 8) / 2;
    EXPECT_EQ(m.at(coronalX + 2 * 5, coronalY)[0], grey(350));
    EXPECT_EQ(m.at(coronalX + 2 * 5, coronalY + 7)[0], grey(50));
    // Sagittal slice at x = 4: every sample of a row of z reads 40 + z * 100.
    const int sagittalX = 6 + 2 * (16 + 6) + (16 - 12) / 2;
    EXPECT_EQ(m.at(sagittalX, coronalY)[0], grey(340));
    // The empty second row is backdrop.
    EXPECT_EQ(m.at(coronalX, 6 + 12 + 6 + 3)[0], m.at(0, 0)[0]);
}

TEST(DemoGeometry, AffineAndSwirlKeepTheCentre) {
    Lum64f c[3][4];
    affineAboutCentre(21, 11, 31, 90.0, 'z', 2.0, c);
    // The centre (10, 5, 15) maps onto itself.
    const double p[3] = {10, 5, 15};
    for (int i = 0; i < 3; ++i)
        EXPECT_NEAR(c[i][0] * p[0] + c[i][1] * p[1] + c[i][2] * p[2] + c[i][3], p[i], 1e-9);
    // One step along x becomes two steps along y.
    EXPECT_NEAR(c[0][0], 0.0, 1e-12);
    EXPECT_NEAR(c[1][0], 2.0, 1e-12);
    EXPECT_NEAR(c[2][2], 2.0, 1e-12);
    affineAboutCentre(9, 9, 9, 90.0, 'x', 1.0, c);
    EXPECT_NEAR(c[2][1], 1.0, 1e-12);  // y turns into z
    EXPECT_NEAR(c[0][0], 1.0, 1e-12);

    float sx, sy, sz;
    swirlSource(33, 33, 9, 90.0, 16, 16, 4, &sx, &sy, &sz);
    EXPECT_FLOAT_EQ(sx, 16.0f);
    EXPECT_FLOAT_EQ(sy, 16.0f);
    swirlSource(33, 33, 9, 90.0, 0, 0, 4, &sx, &sy, &sz);  // beyond the rim: no turn
    EXPECT_FLOAT_EQ(sx, 0.0f);
    EXPECT_FLOAT_EQ(sy, 0.0f);
    swirlSource(33, 33, 9, 90.0, 20, 16, 4, &sx, &sy, &sz);  // inside: turned, same radius
    EXPECT_NEAR(std::hypot(sx - 16.0, sy - 16.0), 4.0, 1e-5);
    EXPECT_GT(sy, 16.0f);
    EXPECT_FLOAT_EQ(sz, 4.0f);

    Lum32s code = 0;
    EXPECT_TRUE(parseInterpolation("catmullrom", &code));
    EXPECT_EQ(code, LUM_RESAMPLE_CATMULLROM);
    EXPECT_TRUE(parseInterpolation("2", &code));
    EXPECT_EQ(code, LUM_RESAMPLE_LINEAR);
    EXPECT_FALSE(parseInterpolation("3", &code));
    EXPECT_FALSE(parseInterpolation("sinc", &code));
    EXPECT_EQ(slabPlanes(10), 16);
    EXPECT_EQ(slabPlanes(512), 32);
}

TEST(DemoFilter, SmoothingKeepsFlatVolumesAndSpreadsAnImpulse) {
    // Widths 20 (vector rows) and 7 (scalar rows) give the same answers.
    for (int width : {20, 7}) {
        Volume flat(SampleType::U16, width, 9, 6);
        for (int z = 0; z < 6; ++z)
            for (int y = 0; y < 9; ++y)
                for (int x = 0; x < width; ++x) flat.set(x, y, z, 1000);
        Volume out;
        ASSERT_EQ(filterVolume(flat, &out, 5, nullptr), lumStatusOk);
        double lo, hi;
        out.range(&lo, &hi);
        EXPECT_EQ(lo, 1000.0);  // replicated edges: even the corners stay flat
        EXPECT_EQ(hi, 1000.0);

        Volume dot(SampleType::U8, width, 9, 6);
        dot.set(3, 4, 2, 64);
        ASSERT_EQ(filterVolume(dot, &out, 3, nullptr), lumStatusOk);
        EXPECT_EQ(out.get(3, 4, 2), 8);  // 64 * 8 / 64
        EXPECT_EQ(out.get(4, 4, 2), 4);
        EXPECT_EQ(out.get(2, 5, 2), 2);
        EXPECT_EQ(out.get(4, 5, 3), 1);
        EXPECT_EQ(out.get(5, 4, 2), 0);
        EXPECT_EQ(out.type(), SampleType::U8);

        Volume spike(SampleType::U16, width, 9, 6);
        spike.set(2, 4, 2, 8192);  // 4096 in 16s
        ASSERT_EQ(filterVolume(spike, &out, 5, nullptr), lumStatusOk);
        EXPECT_EQ(out.get(2, 4, 2), 2 * 216);  // 6 * 6 * 6 of 4096, halved in, doubled out
        EXPECT_EQ(out.get(0, 4, 2), 2 * 36);
    }
    Volume f(SampleType::F32, 18, 5, 5);
    for (int x = 0; x < 18; ++x) f.set(x, 2, 2, x < 9 ? -2.0 : 2.0);
    Volume out;
    ASSERT_EQ(filterVolume(f, &out, 3, nullptr), lumStatusOk);
    EXPECT_NEAR(out.get(4, 2, 2), -0.5, 1e-3);  // weights 4 * 2 * 2 of 64 fall on the row
    EXPECT_NEAR(out.get(4, 2, 2) + out.get(13, 2, 2), 0.0, 1e-3);
    EXPECT_EQ(filterVolume(f, &out, 4, nullptr), lumStatusBadArg);
}

#ifdef DEMO_HAVE_NIFTI
TEST(DemoNifti, VolumesRoundTripInEveryType) {
    for (SampleType t : {SampleType::U8, SampleType::U16, SampleType::F32}) {
        Volume v(t, 5, 4, 3);
        v.spacing[0] = 0.5, v.spacing[1] = 0.75, v.spacing[2] = 2.0;
        for (int z = 0; z < 3; ++z)
            for (int y = 0; y < 4; ++y)
                for (int x = 0; x < 5; ++x) v.set(x, y, z, x + 5 * y + 20 * z + 0.25 * (t == SampleType::F32));
        for (const char* ext : {".nii", ".nii.gz"}) {
            const std::string path = (std::filesystem::path(::testing::TempDir()) /
                                      (std::string("lumr_demo_rt_") + sampleTypeName(t) + ext)).string();
            std::string error;
            ASSERT_TRUE(writeNifti(path, v, &error)) << error;
            Volume back;
            ASSERT_TRUE(readNifti(path, &back, &error)) << error;
            ASSERT_EQ(back.type(), t);
            ASSERT_EQ(back.width(), 5);
            ASSERT_EQ(back.height(), 4);
            ASSERT_EQ(back.depth(), 3);
            for (int k = 0; k < 3; ++k) EXPECT_DOUBLE_EQ(back.spacing[k], v.spacing[k]);
            int diff = 0;
            for (int z = 0; z < 3; ++z)
                for (int y = 0; y < 4; ++y)
                    for (int x = 0; x < 5; ++x) diff += back.get(x, y, z) != v.get(x, y, z);
            EXPECT_EQ(diff, 0) << sampleTypeName(t) << ext;
        }
    }
    std::string error;
    Volume none;
    EXPECT_FALSE(readNifti("/nonexistent/volume.nii", &none, &error));
    EXPECT_FALSE(error.empty());
}
#endif
