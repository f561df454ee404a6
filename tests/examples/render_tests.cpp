// Scene setup and the renderer, down to a small image checked against an
// independent double-precision ray cast of the same scene.
#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <set>

#include "render/mesh.h"
#include "render/renderer.h"
#include "render/scene.h"

using namespace demo;

namespace {

Mesh bunnyOnGround() {
    Mesh mesh;
    std::string error;
    EXPECT_TRUE(loadEmbeddedBunny(&mesh, &error)) << error;
    standOnGround(&mesh, 1.0f);
    addGround(&mesh, 4.0f);
    return mesh;
}

// Nearest triangle along a ray, in double, by the classic edge-and-determinant
// test: what the renderer's hits are compared with.
int32_t nearestTriangle(const Mesh& m, const double o[3], const double d[3]) {
    double best = INFINITY;
    int32_t hit = -1;
    for (int32_t t = 0; t < m.triangleCount(); ++t) {
        const float* v[3];
        for (int c = 0; c < 3; ++c) v[c] = &m.vertices[3 * static_cast<size_t>(m.triangles[4 * t + c])];
        double e1[3], e2[3], s[3];
        for (int k = 0; k < 3; ++k) e1[k] = v[1][k] - v[0][k], e2[k] = v[2][k] - v[0][k], s[k] = o[k] - v[0][k];
        const double p[3] = {d[1] * e2[2] - d[2] * e2[1], d[2] * e2[0] - d[0] * e2[2],
                             d[0] * e2[1] - d[1] * e2[0]};
        const double det = e1[0] * p[0] + e1[1] * p[1] + e1[2] * p[2];
        if (std::fabs(det) < 1e-14) continue;
        const double u = (s[0] * p[0] + s[1] * p[1] + s[2] * p[2]) / det;
        if (u < 0 || u > 1) continue;
        const double q[3] = {s[1] * e1[2] - s[2] * e1[1], s[2] * e1[0] - s[0] * e1[2],
                             s[0] * e1[1] - s[1] * e1[0]};
        const double w = (d[0] * q[0] + d[1] * q[1] + d[2] * q[2]) / det;
        if (w < 0 || u + w > 1) continue;
        const double t_ = (e2[0] * q[0] + e2[1] * q[1] + e2[2] * q[2]) / det;
        if (t_ > 0 && t_ < best) best = t_, hit = t;
    }
    return hit;
}

}  // namespace

TEST(DemoScene, MeshStandsOnTheGroundAndNormalsAreSound) {
    const Mesh mesh = bunnyOnGround();
    EXPECT_EQ(mesh.triangleCount(), 3674 + 2);
    EXPECT_EQ(mesh.vertexCount(), 1839 + 4);
    float lo[3] = {1e30f, 1e30f, 1e30f}, hi[3] = {-1e30f, -1e30f, -1e30f};
    for (int32_t v = 0; v < 1839; ++v)
        for (int k = 0; k < 3; ++k) {
            lo[k] = std::min(lo[k], mesh.vertices[3 * v + k]);
            hi[k] = std::max(hi[k], mesh.vertices[3 * v + k]);
        }
    EXPECT_NEAR(lo[1], 0.0f, 1e-6);
    EXPECT_NEAR(hi[1], 1.0f, 1e-6);
    EXPECT_NEAR(lo[0] + hi[0], 0.0f, 1e-6);
    EXPECT_NEAR(lo[2] + hi[2], 0.0f, 1e-6);

    Scene scene;
    std::string error, note;
    ASSERT_EQ(scene.build(bunnyOnGround(), TreeOptions{}, &error, &note), lumStatusOk) << error;
    EXPECT_EQ(scene.treeKind(), TreeKind::SAH) << note;
    EXPECT_GT(scene.treeBytes(), 16);
    const Mesh& m = scene.mesh();
    for (int32_t v = 0; v < m.vertexCount(); ++v)
        for (int k = 0; k < 3; ++k) {
            EXPECT_LE(scene.bound()[k], m.vertices[3 * v + k]);
            EXPECT_GE(scene.bound()[3 + k], m.vertices[3 * v + k]);
        }
    int unit = 0;
    for (int32_t v = 0; v < m.vertexCount(); ++v) {
        const float* n = scene.vertexNormals() + 3 * v;
        unit += std::fabs(n[0] * n[0] + n[1] * n[1] + n[2] * n[2] - 1.0f) < 1e-5f;
    }
    EXPECT_EQ(unit, m.vertexCount());
    for (int32_t t = m.triangleCount() - 2; t < m.triangleCount(); ++t) {
        EXPECT_EQ(m.material[static_cast<size_t>(t)], kGround);
        EXPECT_FLOAT_EQ(scene.triangleNormals()[3 * t + 1], 1.0f);  // the ground faces up
    }
    const LumRayScene& view = scene.rays();
    EXPECT_EQ(view.pBound, scene.bound());
    EXPECT_NE(view.pRoot, nullptr);
}

TEST(DemoScene, MeshesComeInThroughTheImportLibraryAndTheBuiltInText) {
    // One tetrahedron in four file formats.
    const char* files[][2] = {
        {"obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nv 0 0 1\nf 1 3 2\nf 1 2 4\nf 1 4 3\nf 2 3 4\n"},
        {"off", "OFF\n4 4 0\n0 0 0\n1 0 0\n0 1 0\n0 0 1\n3 0 2 1\n3 0 1 3\n3 0 3 2\n3 1 2 3\n"},
        {"ply", "ply\nformat ascii 1.0\nelement vertex 4\nproperty float x\nproperty float y\n"
                "property float z\nelement face 4\nproperty list uchar int vertex_indices\n"
                "end_header\n0 0 0\n1 0 0\n0 1 0\n0 0 1\n3 0 2 1\n3 0 1 3\n3 0 3 2\n3 1 2 3\n"},
        {"stl", "solid t\nfacet normal 0 0 -1\nouter loop\nvertex 0 0 0\nvertex 0 1 0\nvertex 1 0 0\n"
                "endloop\nendfacet\nfacet normal 0 -1 0\nouter loop\nvertex 0 0 0\nvertex 1 0 0\n"
                "vertex 0 0 1\nendloop\nendfacet\nfacet normal -1 0 0\nouter loop\nvertex 0 0 0\n"
                "vertex 0 0 1\nvertex 0 1 0\nendloop\nendfacet\nfacet normal 1 1 1\nouter loop\n"
                "vertex 1 0 0\nvertex 0 1 0\nvertex 0 0 1\nendloop\nendfacet\nendsolid t\n"},
    };
    for (const auto& f : files) {
        const std::string path =
            (std::filesystem::path(::testing::TempDir()) / (std::string("lumr_demo_tetra.") + f[0])).string();
        FILE* out = std::fopen(path.c_str(), "w");
        ASSERT_NE(out, nullptr);
        std::fputs(f[1], out);
        std::fclose(out);
        Mesh m;
        std::string error;
        ASSERT_TRUE(importMesh(path, &m, &error)) << f[0] << ": " << error;
        EXPECT_EQ(m.triangleCount(), 4) << f[0];
        EXPECT_EQ(m.vertexCount(), 4) << f[0];  // shared corners joined, also from STL
        double volume = 0;  // closed and consistently wound: |signed volume| = 1/6
        for (int t = 0; t < 4; ++t) {
            const float* a = &m.vertices[3 * static_cast<size_t>(m.triangles[4 * t])];
            const float* b = &m.vertices[3 * static_cast<size_t>(m.triangles[4 * t + 1])];
            const float* c = &m.vertices[3 * static_cast<size_t>(m.triangles[4 * t + 2])];
            volume += (a[0] * (b[1] * c[2] - b[2] * c[1]) - a[1] * (b[0] * c[2] - b[2] * c[0]) +
                       a[2] * (b[0] * c[1] - b[1] * c[0])) / 6.0;
        }
        EXPECT_NEAR(std::fabs(volume), 1.0 / 6.0, 1e-6) << f[0];
    }
    Mesh m;
    std::string error;
    EXPECT_FALSE(importMesh("/nonexistent/mesh.obj", &m, &error));
    EXPECT_FALSE(error.empty());

    ASSERT_TRUE(parseMeshText("# c\n# d\n3 1\n0 0 0\n1 0 0\n0 1 0\n0 2 1\n", &m, &error)) << error;
    EXPECT_EQ(m.triangles, (std::vector<int32_t>{0, 2, 1, 0}));
    EXPECT_EQ(m.vertices[3], 1.0f);
    EXPECT_FALSE(parseMeshText("3 1\n0 0 0\n1 0 0\n0 1 0\n0 3 1\n", &m, &error));
    EXPECT_FALSE(parseMeshText("3 2\n0 0 0\n1 0 0\n0 1 0\n0 2 1\n", &m, &error));
    EXPECT_FALSE(parseMeshText("# only a comment\n", &m, &error));
}

TEST(DemoScene, VertexNormalsAverageTheirTriangles) {
    Mesh m;
    m.vertices = {0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1};
    m.addTriangle(0, 1, 2, kModel);
    m.addTriangle(0, 2, 3, kModel);
    const float tri[6] = {0, 0, 1, 1, 0, 0};
    float out[12];
    vertexNormalsFrom(m, tri, out);
    const float h = 1.0f / std::sqrt(2.0f);
    EXPECT_FLOAT_EQ(out[0], h);  // shared by both
    EXPECT_FLOAT_EQ(out[2], h);
    EXPECT_FLOAT_EQ(out[5], 1.0f);  // vertex 1: first triangle only
    EXPECT_FLOAT_EQ(out[9], 1.0f);  // vertex 3: second triangle only
    Mesh bad = m;
    bad.triangles[1] = 9;
    Scene scene;
    std::string error;
    EXPECT_EQ(scene.build(bad, TreeOptions{}, &error, nullptr), lumStatusBadArg);
}

TEST(DemoRender, CameraGridSpansTheView) {
    Camera cam;
    float corner[3], col[3], row[3];
    cameraGrid(cam, 5, 3, corner, col, row);
    double f[3], centre[3];
    for (int k = 0; k < 3; ++k) {
        f[k] = cam.target[k] - cam.eye[k];
        centre[k] = corner[k] + 2 * col[k] + row[k];
    }
    const double fl = std::sqrt(f[0] * f[0] + f[1] * f[1] + f[2] * f[2]);
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(centre[k], f[k] / fl, 1e-6);
    const double pixel = 2 * std::tan(cam.fovDegrees * M_PI / 360) / 3;
    EXPECT_NEAR(std::sqrt(col[0] * col[0] + col[1] * col[1] + col[2] * col[2]), pixel, 1e-6);
    EXPECT_NEAR(std::sqrt(row[0] * row[0] + row[1] * row[1] + row[2] * row[2]), pixel, 1e-6);
    EXPECT_NEAR(col[0] * f[0] + col[1] * f[1] + col[2] * f[2], 0.0, 1e-6);
    EXPECT_NEAR(col[1], 0.0, 1e-7);  // rows stay level
    EXPECT_LT(row[1], 0.0f);         // and run downwards
}

TEST(DemoRender, SmallImageMatchesTheSilhouette) {
    Scene scene;
    std::string error, note;
    ASSERT_EQ(scene.build(bunnyOnGround(), TreeOptions{}, &error, &note), lumStatusOk) << error;
    ShLighting sh;
    Sky sky;
    ASSERT_EQ(sh.init(2), lumStatusOk);
    ASSERT_EQ(sh.project(sky, 1024), lumStatusOk);
    RenderOptions o;
    o.width = o.height = 64;
    o.progress = false;
    o.sky = sky;
    Image img;
    RenderStats stats;
    std::vector<int32_t> hits;
    ASSERT_TRUE(render(scene, sh, o, &img, &stats, &error, &hits)) << error;
    ASSERT_EQ(img.width, 64);
    EXPECT_EQ(stats.eyeRays, 64 * 64);
    EXPECT_GT(stats.shadowRays, 0);
    EXPECT_GT(stats.reflectionRays, 0);

    // Not blank: many colours, and the model differs from the sky behind it.
    std::set<int> colours;
    for (size_t i = 0; i < img.pixels.size(); i += 3)
        colours.insert(img.pixels[i] << 16 | img.pixels[i + 1] << 8 | img.pixels[i + 2]);
    EXPECT_GT(colours.size(), 200u);

    // The model covers the pixels an independent cast says it covers, up to
    // a few along the outline.
    float corner[3], col[3], row[3];
    cameraGrid(o.camera, 64, 64, corner, col, row);
    const Mesh& m = scene.mesh();
    int expected = 0, differ = 0, covered = 0;
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x) {
            const double o3[3] = {o.camera.eye[0], o.camera.eye[1], o.camera.eye[2]};
            double d[3];
            for (int k = 0; k < 3; ++k) d[k] = double(corner[k]) + x * double(col[k]) + y * double(row[k]);
            const int32_t ref = nearestTriangle(m, o3, d);
            const int32_t got = hits[static_cast<size_t>(y * 64 + x)];
            const bool refModel = ref >= 0 && m.material[static_cast<size_t>(ref)] == kModel;
            const bool gotModel = got >= 0 && m.material[static_cast<size_t>(got)] == kModel;
            expected += refModel;
            covered += gotModel;
            differ += refModel != gotModel;
        }
    EXPECT_GT(expected, 64 * 64 / 10);  // the bunny fills a good part of the view
    EXPECT_EQ(covered, stats.modelPixels);
    EXPECT_LE(differ, 3);
    EXPECT_LE(std::abs(covered - expected), 3);
}

TEST(DemoRender, ShadowsDarkenTheGroundBehindTheModel) {
    Scene scene;
    std::string error, note;
    ASSERT_EQ(scene.build(bunnyOnGround(), TreeOptions{}, &error, &note), lumStatusOk) << error;
    ShLighting sh;
    ASSERT_EQ(sh.init(2), lumStatusOk);
    ASSERT_EQ(sh.project(Sky{}, 256), lumStatusOk);
    RenderOptions o;
    o.width = o.height = 48;
    o.progress = false;
    o.reflections = false;
    Image lit, shadowed;
    RenderStats stats;
    o.shadows = false;
    ASSERT_TRUE(render(scene, sh, o, &lit, &stats, &error));
    EXPECT_EQ(stats.shadowRays, 0);
    o.shadows = true;
    ASSERT_TRUE(render(scene, sh, o, &shadowed, &stats, &error));
    int darker = 0, lighter = 0;
    for (size_t i = 0; i < lit.pixels.size(); ++i) {
        darker += shadowed.pixels[i] + 8 < lit.pixels[i];
        lighter += shadowed.pixels[i] > lit.pixels[i];
    }
    EXPECT_GT(darker, 3 * 40);  // a visible shadow, in all three channels
    EXPECT_EQ(lighter, 0);      // and nothing gains light from it
}

TEST(DemoRender, SameImageOnAnyNumberOfThreads) {
    Scene scene;
    std::string error, note;
    ASSERT_EQ(scene.build(bunnyOnGround(), TreeOptions{}, &error, &note), lumStatusOk) << error;
    ShLighting sh;
    ASSERT_EQ(sh.init(2), lumStatusOk);
    ASSERT_EQ(sh.project(Sky{}, 256), lumStatusOk);
    RenderOptions o;
    o.width = 52;  // partial blocks at the right and bottom edges
    o.height = 38;
    o.progress = false;
    Image one, two;
    RenderStats s1, s2;
    const int before = omp_get_max_threads();
    omp_set_num_threads(1);
    ASSERT_TRUE(render(scene, sh, o, &one, &s1, &error));
    omp_set_num_threads(3);
    ASSERT_TRUE(render(scene, sh, o, &two, &s2, &error));
    omp_set_num_threads(before);
    EXPECT_EQ(s1.threads, 1);
    EXPECT_EQ(s2.threads, 3);
    EXPECT_EQ(one.pixels, two.pixels);
    EXPECT_EQ(s1.shadowRays, s2.shadowRays);
    EXPECT_EQ(s1.reflectionRays, s2.reflectionRays);
}
