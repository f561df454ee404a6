// Phantom, montage, smoothing and NIfTI files of the volume tool.
#include <cmath>

#include "demo_test_util.h"
#include "volume/montage.h"
#include "volume/nifti_io.h"
#include "volume/ops.h"
#include "volume/phantom.h"

using namespace demo;

// Densities at known points of the head, and each sample type against them:
// 32f keeps the density, 8u and 16u round its scaled value (halves like 76.5
// as the double density gives them), and the head stands upright.
TEST(DemoPhantom, DensitiesInEveryTypeAndUpright) {
    EXPECT_EQ(headEllipsoids().size(), 10u);
    const double probes[][4] = {{0, 0, 0, 0.2},          {0, 0.9, 0, 1.0},  // brain, skull
                                {0.95, 0.95, 0.95, 0.0}, {0.22, 0, 0, 0.0},  // outside, ventricle
                                {0, 0.35, -0.15, 0.3}};
    for (const auto& p : probes) EXPECT_NEAR(phantomDensity(p[0], p[1], p[2]), p[3], 1e-12);
    const Volume f = makePhantom(SampleType::F32, 33, 31, 29);
    const Volume b = makePhantom(SampleType::U8, 33, 31, 29);
    const Volume w = makePhantom(SampleType::U16, 33, 31, 29);
    ASSERT_TRUE(f.width() == 33 && b.height() == 31 && w.depth() == 29);
    EXPECT_EQ(b.step() % 16, 0);
    EXPECT_EQ(b.get(16, 15, 14), 51);  // brain at the centre
    EXPECT_EQ(w.get(16, 15, 14), 13107);
    int mismatches = 0, nonzero = 0, top = -1;
    for (int z = 0; z < 29; ++z)
        for (int y = 0; y < 31; ++y)
            for (int x = 0; x < 33; ++x) {
                double d = phantomDensity((x + 0.5) / 33 * 2 - 1, 1 - (y + 0.5) / 31 * 2,
                                          (z + 0.5) / 29 * 2 - 1);
                if (d < 1e-12) d = 0;
                nonzero += d > 0;
                mismatches += f.get(x, y, z) != static_cast<float>(d);
                mismatches += b.get(x, y, z) != std::nearbyint(d * 255.0);
                mismatches += w.get(x, y, z) != std::nearbyint(d * 65535.0);
                if (x == 16 && z == 14 && top < 0 && f.get(x, y, z) > 0) top = y;
            }
    EXPECT_EQ(mismatches, 0);
    EXPECT_GT(nonzero, 33 * 31 * 29 / 4);  // the head fills a good part of the cube
    // Walking down the middle column, the skull's top comes in the first rows.
    EXPECT_GE(top, 0);
    EXPECT_LT(top, 4);
}

TEST(DemoMontage, LaysOutThreeSlicesBeforeAndAfter) {
    Volume v(SampleType::U16, 8, 6, 4);
    for (int z = 0; z < 4; ++z)
        for (int y = 0; y < 6; ++y)
            for (int x = 0; x < 8; ++x) v.set(x, y, z, x * 10 + z * 100);
    const Image m = makeMontage(v, Volume(), 0.0, 370.0, 16);
    // Cells are 8 wide and 6 tall at zoom 2 (16 / 8), gaps of 6.
    ASSERT_EQ(m.channels, 1);
    EXPECT_EQ(m.width, 3 * 16 + 4 * 6);
    EXPECT_EQ(m.height, 2 * 12 + 3 * 6);
    auto grey = [](double value) { return int(std::nearbyint(255.0 * value / 370.0)); };
    EXPECT_EQ(m.at(6 + 2 * 3, 6)[0], grey(230));  // axial at z = 2: column x shows x * 10 + 200
    const int coronalX = 6 + 16 + 6, coronalY = 6 + (12 - 8) / 2;
    EXPECT_EQ(m.at(coronalX + 2 * 5, coronalY)[0], grey(350));  // coronal: z up, top row z = 3
    EXPECT_EQ(m.at(coronalX + 2 * 5, coronalY + 7)[0], grey(50));
    EXPECT_EQ(m.at(6 + 2 * (16 + 6) + 2, coronalY)[0], grey(340));  // sagittal at x = 4
    EXPECT_EQ(m.at(coronalX, 6 + 12 + 6 + 3)[0], m.at(0, 0)[0]);  // empty second row: backdrop
}

// Widths 20 (vector rows) and 7 (scalar rows) give the same answers: a flat
// volume stays flat to its corners (edges replicated), an impulse spreads as
// the binomial weights, 16u halved in and doubled out, 32f scaled and back.
TEST(DemoFilter, SmoothingKeepsFlatVolumesAndSpreadsAnImpulse) {
    Volume out;
    for (int width : {20, 7}) {
        Volume flat(SampleType::U16, width, 9, 6), dot(SampleType::U8, width, 9, 6),
            spike(SampleType::U16, width, 9, 6);
        for (int z = 0; z < 6; ++z)
            for (int y = 0; y < 9; ++y)
                for (int x = 0; x < width; ++x) flat.set(x, y, z, 1000);
        ASSERT_EQ(filterVolume(flat, &out, 5, nullptr), lumStatusOk);
        double lo, hi;
        out.range(&lo, &hi);
        EXPECT_TRUE(lo == 1000.0 && hi == 1000.0) << lo << " " << hi;
        dot.set(3, 4, 2, 64);
        ASSERT_EQ(filterVolume(dot, &out, 3, nullptr), lumStatusOk);
        EXPECT_EQ(out.type(), SampleType::U8);
        const int at[5][4] = {{3, 4, 2, 8}, {4, 4, 2, 4}, {2, 5, 2, 2}, {4, 5, 3, 1}, {5, 4, 2, 0}};
        for (const auto& p : at) EXPECT_EQ(out.get(p[0], p[1], p[2]), p[3]) << p[0] << p[1] << p[2];
        spike.set(2, 4, 2, 8192);  // 4096 in 16s
        ASSERT_EQ(filterVolume(spike, &out, 5, nullptr), lumStatusOk);
        EXPECT_EQ(out.get(2, 4, 2), 2 * 216);  // 6 * 6 * 6 of 4096
        EXPECT_EQ(out.get(0, 4, 2), 2 * 36);
    }
    Volume f(SampleType::F32, 18, 5, 5);
    for (int x = 0; x < 18; ++x) f.set(x, 2, 2, x < 9 ? -2.0 : 2.0);
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
                for (int x = 0; x < 5; ++x)
                    v.set(x, y, z, x + 5 * y + 20 * z + 0.25 * (t == SampleType::F32));
        for (const char* ext : {".nii", ".nii.gz"}) {
            const std::string path = tempPath(std::string("rt_") + sampleTypeName(t) + ext);
            std::string error;
            ASSERT_TRUE(writeNifti(path, v, &error)) << error;
            Volume back;
            ASSERT_TRUE(readNifti(path, &back, &error)) << error;
            ASSERT_EQ(back.type(), t);
            EXPECT_EQ(countDifferences(back, v), 0) << sampleTypeName(t) << ext;
            for (int k = 0; k < 3; ++k) EXPECT_DOUBLE_EQ(back.spacing[k], v.spacing[k]);
        }
    }
    std::string error;
    Volume none;
    EXPECT_FALSE(readNifti("/nonexistent/volume.nii", &none, &error));
    EXPECT_FALSE(error.empty());
}
#endif
