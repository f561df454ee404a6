// Scene setup and the renderer, down to a small image checked against an
// independent double-precision ray cast of the same scene.
#include <omp.h>

#include <cmath>
#include <set>

#include "demo_test_util.h"
#include "render/mesh.h"
#include "render/renderer.h"
#include "render/scene.h"

using namespace demo;

namespace {

const float* corner(const Mesh& m, int32_t t, int c) {
    return &m.vertices[3 * static_cast<size_t>(m.triangles[4 * static_cast<size_t>(t) + c])];
}

// Nearest triangle along a ray, in double, by the classic edge-and-determinant
// test: what the renderer's hits are compared with.
int32_t nearestTriangle(const Mesh& m, const double o[3], const double d[3]) {
    double best = INFINITY;
    int32_t hit = -1;
    for (int32_t t = 0; t < m.triangleCount(); ++t) {
        const float* v[3] = {corner(m, t, 0), corner(m, t, 1), corner(m, t, 2)};
        double e1[3], e2[3], s[3];
        for (int k = 0; k < 3; ++k)
            e1[k] = v[1][k] - v[0][k], e2[k] = v[2][k] - v[0][k], s[k] = o[k] - v[0][k];
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
        const double dist = (e2[0] * q[0] + e2[1] * q[1] + e2[2] * q[2]) / det;
        if (dist > 0 && dist < best) best = dist, hit = t;
    }
    return hit;
}

// The bunny on its ground with the default sky light, built once for all the
// renderer's tests.
struct LitScene {
    Scene scene;
    ShLighting sh;
};
const LitScene& litBunny() {
    static const LitScene* lit = [] {
        auto* l = new LitScene;
        Mesh mesh;
        std::string error, note;
        EXPECT_TRUE(loadEmbeddedBunny(&mesh, &error)) << error;
        standOnGround(&mesh, 1.0f);
        addGround(&mesh, 4.0f);
        EXPECT_EQ(l->scene.build(std::move(mesh), TreeOptions{}, &error, &note), lumStatusOk)
            << error;
        EXPECT_EQ(l->scene.treeKind(), TreeKind::SAH) << note;
        EXPECT_EQ(l->sh.init(2), lumStatusOk);
        EXPECT_EQ(l->sh.project(Sky{}, 1024), lumStatusOk);
        return l;
    }();
    return *lit;
}

}  // namespace

// The bunny stands one unit tall on the ground, centred; the box holds every
// vertex, vertex normals are unit, the ground faces up.
TEST(DemoScene, BunnyStandsOnTheGroundWithSoundNormals) {
    const Scene& scene = litBunny().scene;
    const Mesh& m = scene.mesh();
    ASSERT_EQ(m.triangleCount(), 3674 + 2);
    ASSERT_EQ(m.vertexCount(), 1839 + 4);
    float lo[3] = {1e30f, 1e30f, 1e30f}, hi[3] = {-1e30f, -1e30f, -1e30f};
    int unit = 0, outside = 0;
    for (int32_t v = 0; v < m.vertexCount(); ++v) {
        const float* n = scene.vertexNormals() + 3 * v;
        unit += std::fabs(n[0] * n[0] + n[1] * n[1] + n[2] * n[2] - 1.0f) < 1e-5f;
        for (int k = 0; k < 3; ++k) {
            const float p = m.vertices[3 * v + k];
            outside += p < scene.bound()[k] || p > scene.bound()[3 + k];
            if (v < 1839) lo[k] = std::min(lo[k], p), hi[k] = std::max(hi[k], p);
        }
    }
    EXPECT_EQ(unit, m.vertexCount());
    EXPECT_EQ(outside, 0);
    EXPECT_NEAR(lo[1], 0.0f, 1e-6);
    EXPECT_NEAR(hi[1], 1.0f, 1e-6);
    EXPECT_NEAR(lo[0] + hi[0], 0.0f, 1e-6);
    EXPECT_NEAR(lo[2] + hi[2], 0.0f, 1e-6);
    for (int32_t t = m.triangleCount() - 2; t < m.triangleCount(); ++t) {
        EXPECT_EQ(m.material[static_cast<size_t>(t)], kGround);
        EXPECT_FLOAT_EQ(scene.triangleNormals()[3 * t + 1], 1.0f);
    }
    EXPECT_GT(scene.treeBytes(), 16);
    EXPECT_EQ(scene.rays().pBound, scene.bound());
    EXPECT_NE(scene.rays().pRoot, nullptr);

    // Vertex normals average the unit normals around them; a triangle naming
    // a vertex that does not exist is refused.
    Mesh two;
    two.vertices = {0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1};
    two.addTriangle(0, 1, 2, kModel);
    two.addTriangle(0, 2, 3, kModel);
    const float tri[6] = {0, 0, 1, 1, 0, 0};
    float out[12];
    vertexNormalsFrom(two, tri, out);
    const float h = 1.0f / std::sqrt(2.0f);
    EXPECT_TRUE(std::fabs(out[0] - h) < 1e-6f && std::fabs(out[2] - h) < 1e-6f);  // shared
    EXPECT_TRUE(out[5] == 1.0f && out[9] == 1.0f);  // vertices 1 and 3: one triangle each
    two.triangles[1] = 9;
    Scene bad;
    std::string error;
    EXPECT_EQ(bad.build(two, TreeOptions{}, &error, nullptr), lumStatusBadArg);
}

TEST(DemoScene, MeshesComeInThroughTheImportLibraryAndTheBuiltInText) {
    // One tetrahedron as OBJ, and as STL whose corners must be joined.
    const char* files[][2] = {
        {"obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nv 0 0 1\nf 1 3 2\nf 1 2 4\nf 1 4 3\nf 2 3 4\n"},
        {"stl", "solid t\nfacet normal 0 0 -1\nouter loop\nvertex 0 0 0\nvertex 0 1 0\n"
                "vertex 1 0 0\nendloop\nendfacet\nfacet normal 0 -1 0\nouter loop\nvertex 0 0 0\n"
                "vertex 1 0 0\nvertex 0 0 1\nendloop\nendfacet\nfacet normal -1 0 0\nouter loop\n"
                "vertex 0 0 0\nvertex 0 0 1\nvertex 0 1 0\nendloop\nendfacet\nfacet normal 1 1 1\n"
                "outer loop\nvertex 1 0 0\nvertex 0 1 0\nvertex 0 0 1\nendloop\nendfacet\n"
                "endsolid t\n"},
    };
    Mesh m;
    std::string error;
    for (const auto& f : files) {
        ASSERT_TRUE(importMesh(tempPath(std::string("tetra.") + f[0], f[1]), &m, &error))
            << f[0] << ": " << error;
        EXPECT_EQ(m.triangleCount(), 4) << f[0];
        EXPECT_EQ(m.vertexCount(), 4) << f[0];  // shared corners joined, also from STL
        double volume = 0;  // closed and consistently wound: |signed volume| = 1/6
        for (int t = 0; t < 4; ++t) {
            const float *a = corner(m, t, 0), *b = corner(m, t, 1), *c = corner(m, t, 2);
            volume += (a[0] * (b[1] * c[2] - b[2] * c[1]) - a[1] * (b[0] * c[2] - b[2] * c[0]) +
                       a[2] * (b[0] * c[1] - b[1] * c[0])) / 6.0;
        }
        EXPECT_NEAR(std::fabs(volume), 1.0 / 6.0, 1e-6) << f[0];
    }
    EXPECT_FALSE(importMesh("/nonexistent/mesh.obj", &m, &error));
    EXPECT_FALSE(error.empty());
    ASSERT_TRUE(parseMeshText("# c\n# d\n3 1\n0 0 0\n1 0 0\n0 1 0\n0 2 1\n", &m, &error)) << error;
    EXPECT_EQ(m.triangles, (std::vector<int32_t>{0, 2, 1, 0}));
    EXPECT_EQ(m.vertices[3], 1.0f);
    EXPECT_FALSE(parseMeshText("3 1\n0 0 0\n1 0 0\n0 1 0\n0 3 1\n", &m, &error));
    EXPECT_FALSE(parseMeshText("3 2\n0 0 0\n1 0 0\n0 1 0\n0 2 1\n", &m, &error));
    EXPECT_FALSE(parseMeshText("# only a comment\n", &m, &error));
}

// The grid's centre is the unit view direction; steps are one pixel long,
// level across and downwards.
TEST(DemoScene, CameraGridSpansTheView) {
    Camera cam;
    float c[3], col[3], row[3];
    cameraGrid(cam, 5, 3, c, col, row);
    double f[3];
    for (int k = 0; k < 3; ++k) f[k] = cam.target[k] - cam.eye[k];
    const double fl = std::sqrt(f[0] * f[0] + f[1] * f[1] + f[2] * f[2]);
    const double pixel = 2 * std::tan(cam.fovDegrees * M_PI / 360) / 3;
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(c[k] + 2 * col[k] + row[k], f[k] / fl, 1e-6);
    EXPECT_NEAR(std::sqrt(col[0] * col[0] + col[1] * col[1] + col[2] * col[2]), pixel, 1e-6);
    EXPECT_NEAR(std::sqrt(row[0] * row[0] + row[1] * row[1] + row[2] * row[2]), pixel, 1e-6);
    EXPECT_NEAR(col[0] * f[0] + col[1] * f[1] + col[2] * f[2], 0.0, 1e-6);
    EXPECT_NEAR(col[1], 0.0, 1e-7);
    EXPECT_LT(row[1], 0.0f);
}

// A 64 x 64 image is not blank, and the model covers the pixels an
// independent cast says it covers, up to a few along the outline.
TEST(DemoRender, SmallImageMatchesTheSilhouette) {
    const LitScene& lit = litBunny();
    RenderOptions o;
    o.width = o.height = 64, o.progress = false;
    Image img;
    RenderStats stats;
    std::vector<int32_t> hits;
    std::string error;
    ASSERT_TRUE(render(lit.scene, lit.sh, o, &img, &stats, &error, &hits)) << error;
    ASSERT_EQ(img.width, 64);
    EXPECT_EQ(stats.eyeRays, 64 * 64);
    EXPECT_GT(stats.shadowRays, 0);
    EXPECT_GT(stats.reflectionRays, 0);
    std::set<int> colours;
    for (size_t i = 0; i < img.pixels.size(); i += 3)
        colours.insert(img.pixels[i] << 16 | img.pixels[i + 1] << 8 | img.pixels[i + 2]);
    EXPECT_GT(colours.size(), 200u);

    float c[3], col[3], row[3];
    cameraGrid(o.camera, 64, 64, c, col, row);
    const Mesh& m = lit.scene.mesh();
    auto isModel = [&](int32_t t) { return t >= 0 && m.material[size_t(t)] == kModel; };
    const double eye[3] = {o.camera.eye[0], o.camera.eye[1], o.camera.eye[2]};
    int expected = 0, differ = 0, covered = 0;
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x) {
            double d[3];
            for (int k = 0; k < 3; ++k) d[k] = c[k] + x * double(col[k]) + y * double(row[k]);
            const bool want = isModel(nearestTriangle(m, eye, d));
            const bool got = isModel(hits[static_cast<size_t>(y * 64 + x)]);
            expected += want, covered += got, differ += want != got;
        }
    EXPECT_GT(expected, 64 * 64 / 10);  // the bunny fills a good part of the view
    EXPECT_EQ(covered, stats.modelPixels);
    EXPECT_LE(differ, 3);
}

// Shadows take light away, visibly, and never add any; the image is the same
// on one thread and on three, with partial blocks at the right and bottom.
TEST(DemoRender, ShadowsDarkenAndThreadsAgree) {
    const LitScene& lit = litBunny();
    RenderOptions o;
    o.width = 60, o.height = 46, o.progress = false, o.shadows = false;
    Image bright, one, three;
    RenderStats s0, s1, s3;
    std::string error;
    ASSERT_TRUE(render(lit.scene, lit.sh, o, &bright, &s0, &error)) << error;
    EXPECT_EQ(s0.shadowRays, 0);
    o.shadows = true;
    const int before = omp_get_max_threads();
    omp_set_num_threads(1);
    ASSERT_TRUE(render(lit.scene, lit.sh, o, &one, &s1, &error)) << error;
    omp_set_num_threads(3);
    ASSERT_TRUE(render(lit.scene, lit.sh, o, &three, &s3, &error)) << error;
    omp_set_num_threads(before);
    int darker = 0, lighter = 0;
    for (size_t i = 0; i < bright.pixels.size(); ++i) {
        darker += one.pixels[i] + 8 < bright.pixels[i];
        lighter += one.pixels[i] > bright.pixels[i];
    }
    EXPECT_GT(darker, 3 * 40);  // a visible shadow, in all three channels
    EXPECT_EQ(lighter, 0);
    EXPECT_TRUE(s1.threads == 1 && s3.threads == 3);
    EXPECT_EQ(one.pixels, three.pixels);
    EXPECT_TRUE(s1.shadowRays == s3.shadowRays && s1.reflectionRays == s3.reflectionRays);
}
