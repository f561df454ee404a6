// Environment lighting projected onto spherical harmonics.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "render/sky.h"

using namespace demo;

namespace {
constexpr double kPi = 3.14159265358979323846;
}

TEST(DemoSky, CosineLobeFactors) {
    EXPECT_NEAR(cosineLobe(0), kPi, 1e-12);
    EXPECT_NEAR(cosineLobe(1), 2 * kPi / 3, 1e-12);
    EXPECT_NEAR(cosineLobe(2), kPi / 4, 1e-12);
    EXPECT_EQ(cosineLobe(3), 0.0);
    EXPECT_NEAR(cosineLobe(4), -kPi / 24, 1e-12);
    EXPECT_EQ(cosineLobe(5), 0.0);
}

TEST(DemoSky, SphereDirectionsAreUnitAndBalanced) {
    const int n = 2000;
    std::vector<float> x(n), y(n), z(n);
    sphereDirections(n, x.data(), y.data(), z.data());
    double sum[3] = {0, 0, 0};
    for (int i = 0; i < n; ++i) {
        EXPECT_NEAR(x[i] * x[i] + y[i] * y[i] + z[i] * z[i], 1.0, 1e-5);
        sum[0] += x[i], sum[1] += y[i], sum[2] += z[i];
    }
    for (double s : sum) EXPECT_NEAR(s / n, 0.0, 2e-3);
}

TEST(DemoSky, ProjectionKeepsConstantAndLinearLight) {
    ShLighting sh;
    ASSERT_EQ(sh.init(2), lumStatusOk);
    EXPECT_EQ(sh.coefficientCount(), 9);

    // A uniform sky of radiance 1 lights a white diffuse surface to exactly 1
    // whichever way it faces, and has only the band-0 coefficient sqrt(4 pi).
    ASSERT_EQ(sh.project([](float, float, float, float* rgb) { rgb[0] = rgb[1] = rgb[2] = 1.0f; },
                         4096),
              lumStatusOk);
    EXPECT_NEAR(sh.radianceCoeffs().X[0], std::sqrt(4 * kPi), 1e-3);
    for (int i = 1; i < 9; ++i) EXPECT_NEAR(sh.radianceCoeffs().Y[i], 0.0, 2e-3) << i;

    const float nx[4] = {0, 0, 1, 0.6f}, ny[4] = {1, -1, 0, 0}, nz[4] = {0, 0, 0, 0.8f};
    float r[4], g[4], b[4];
    const LumPlanes3 out{r, g, b};
    ASSERT_EQ(sh.diffuse(nx, ny, nz, out, 4), lumStatusOk);
    for (int i = 0; i < 4; ++i) {
        EXPECT_NEAR(r[i], 1.0f, 2e-3) << i;
        EXPECT_NEAR(b[i], 1.0f, 2e-3) << i;
    }

    // Radiance equal to the z component (red only): the surface sends back
    // two thirds of its normal's z, nothing in the other colours.
    ASSERT_EQ(sh.project([](float, float, float z, float* rgb) { rgb[0] = z, rgb[1] = rgb[2] = 0; },
                         4096),
              lumStatusOk);
    ASSERT_EQ(sh.diffuse(nx, ny, nz, out, 4), lumStatusOk);
    for (int i = 0; i < 4; ++i) {
        EXPECT_NEAR(r[i], 2.0 / 3.0 * nz[i], 2e-3) << i;
        EXPECT_NEAR(g[i], 0.0f, 1e-6) << i;
    }
}

TEST(DemoSky, ProceduralSkyLightsFromAbove) {
    Sky sky;
    float up[3], down[3], side[3], justAbove[3], justBelow[3];
    sky.sun[0] = 1, sky.sun[1] = 0, sky.sun[2] = 0;  // glow away from the up/down probes
    sky.radiance(0, 5, 0, up);                        // length does not matter
    sky.radiance(0, -1, 0, down);
    sky.radiance(0, 0, 1, side);
    sky.radiance(0, 1e-6f, 1, justAbove);
    sky.radiance(0, -1e-6f, 1, justBelow);
    for (int c = 0; c < 3; ++c) {
        EXPECT_NEAR(up[c], sky.zenith[c], 1e-5);
        EXPECT_NEAR(down[c], sky.ground[c], 1e-5);
        EXPECT_NEAR(side[c], sky.horizon[c], 1e-5);
        EXPECT_NEAR(justAbove[c], justBelow[c], 1e-2);  // no seam at the horizon
    }
    float zero[3];
    sky.radiance(0, 0, 0, zero);
    EXPECT_EQ(zero[0], 0.0f);

    ShLighting sh;
    ASSERT_EQ(sh.init(2), lumStatusOk);
    sky.sun[0] = 0, sky.sun[1] = 1;
    ASSERT_EQ(sh.project(sky, 4096), lumStatusOk);
    const float nx[2] = {0, 0}, ny[2] = {1, -1}, nz[2] = {0, 0};
    float r[2], g[2], b[2];
    ASSERT_EQ(sh.diffuse(nx, ny, nz, LumPlanes3{r, g, b}, 2), lumStatusOk);
    EXPECT_GT(b[0], 2 * b[1]);  // a face turned up sees the blue sky
    EXPECT_GT(b[0], 0.2f);
}
