// Environment lighting projected onto spherical harmonics.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "render/sky.h"

using namespace demo;

namespace {
constexpr double kPi = 3.14159265358979323846;
}

TEST(DemoSky, CosineLobeAndSphereDirections) {
    const double lobe[6] = {kPi, 2 * kPi / 3, kPi / 4, 0, -kPi / 24, 0};
    for (int l = 0; l < 6; ++l) EXPECT_NEAR(cosineLobe(l), lobe[l], 1e-12) << l;
    const int n = 2000;
    std::vector<float> x(n), y(n), z(n);
    sphereDirections(n, x.data(), y.data(), z.data());
    double sum[3] = {0, 0, 0};
    for (int i = 0; i < n; ++i) {
        ASSERT_NEAR(x[i] * x[i] + y[i] * y[i] + z[i] * z[i], 1.0, 1e-5) << i;
        sum[0] += x[i], sum[1] += y[i], sum[2] += z[i];
    }
    for (double s : sum) EXPECT_NEAR(s / n, 0.0, 2e-3);  // balanced over the sphere
}

// A uniform sky of radiance 1 has only the band-0 coefficient sqrt(4 pi) and
// lights a white diffuse surface to 1 whichever way it faces; radiance equal
// to z, in red only, comes back as two thirds of the normal's z.
TEST(DemoSky, ProjectionKeepsConstantAndLinearLight) {
    ShLighting sh;
    ASSERT_EQ(sh.init(2), lumStatusOk);
    EXPECT_EQ(sh.coefficientCount(), 9);
    const float nx[4] = {0, 0, 1, 0.6f}, ny[4] = {1, -1, 0, 0}, nz[4] = {0, 0, 0, 0.8f};
    float r[4], g[4], b[4];
    auto uniform = [](float, float, float, float* rgb) { rgb[0] = rgb[1] = rgb[2] = 1; };
    ASSERT_EQ(sh.project(uniform, 4096), lumStatusOk);
    EXPECT_NEAR(sh.radianceCoeffs().X[0], std::sqrt(4 * kPi), 1e-3);
    for (int i = 1; i < 9; ++i) EXPECT_NEAR(sh.radianceCoeffs().Y[i], 0.0, 2e-3) << i;
    ASSERT_EQ(sh.diffuse(nx, ny, nz, LumPlanes3{r, g, b}, 4), lumStatusOk);
    for (int i = 0; i < 4; ++i)
        EXPECT_TRUE(std::fabs(r[i] - 1) < 2e-3 && std::fabs(b[i] - 1) < 2e-3) << i;
    auto redZ = [](float, float, float z, float* rgb) { rgb[0] = z, rgb[1] = rgb[2] = 0; };
    ASSERT_EQ(sh.project(redZ, 4096), lumStatusOk);
    ASSERT_EQ(sh.diffuse(nx, ny, nz, LumPlanes3{r, g, b}, 4), lumStatusOk);
    for (int i = 0; i < 4; ++i) {
        EXPECT_NEAR(r[i], 2.0 / 3.0 * nz[i], 2e-3) << i;
        EXPECT_NEAR(g[i], 0.0f, 1e-6) << i;
    }
}

// A sky lit by the sun overhead lights a face turned up with its blue; a
// direction of no length has no light.
TEST(DemoSky, ProceduralSkyLightsFromAbove) {
    Sky sky;
    float none[3];
    sky.radiance(0, 0, 0, none);
    EXPECT_TRUE(none[0] == 0.0f && none[1] == 0.0f && none[2] == 0.0f);
    ShLighting sh;
    ASSERT_EQ(sh.init(2), lumStatusOk);
    ASSERT_EQ(sh.project(sky, 4096), lumStatusOk);
    const float nx[2] = {0, 0}, ny[2] = {1, -1}, nz[2] = {0, 0};
    float r[2], g[2], b[2];
    ASSERT_EQ(sh.diffuse(nx, ny, nz, LumPlanes3{r, g, b}, 2), lumStatusOk);
    EXPECT_GT(b[0], 2 * b[1]);
    EXPECT_GT(b[0], 0.2f);
}
