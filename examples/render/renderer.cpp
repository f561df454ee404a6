#include "render/renderer.h"

#include <omp.h>

#include <algorithm>
#include <atomic>
#include <cfloat>
#include <cmath>

#include "common/aligned.h"
#include "common/progress.h"

namespace demo {

namespace {

constexpr double kPi = 3.14159265358979323846;
// Hit points stop this fraction short of the surface, so that shadow and
// reflection rays leave from the viewer's side of it.
constexpr float kHitEps = 0.9995f;

// Every stream one block needs, carved from two aligned arrays.
struct Work {
    explicit Work(int capacity) {
        const size_t n = (static_cast<size_t>(capacity) + 15) / 16 * 16;
        floats.resize(n * 38);
        ints.resize(n * 5);
        float* f = floats.data();
        auto plane = [&]() { float* p = f; f += n; return p; };
        auto planes = [&]() { return LumPlanes3{plane(), plane(), plane()}; };
        dir = planes(), pts = planes(), pts2 = planes(), nrm = planes(), shadow = planes();
        refl = planes(), albedo = planes(), color = planes(), color2 = planes();
        dist = plane(), u = plane(), v = plane(), facing = plane(), lightDot = plane();
        atten = plane(), reflect = plane(), keep = plane(), dist2 = plane(), u2 = plane();
        v2 = plane();
        Lum32s* s = ints.data();
        trngl = s, mask = s + n, occluder = s + 2 * n, reflMask = s + 3 * n, trngl2 = s + 4 * n;
    }
    AlignedArray<float> floats;
    AlignedArray<Lum32s> ints;
    LumPlanes3 dir, pts, pts2, nrm, shadow, refl, albedo, color, color2;
    float *dist, *u, *v, *facing, *lightDot, *atten, *reflect, *keep, *dist2, *u2, *v2;
    Lum32s *trngl, *mask, *occluder, *reflMask, *trngl2;
};

struct Context {
    const Scene& scene;
    const ShLighting& sh;
    const RenderOptions& o;
    float lightK[3];
    std::atomic<LumStatus>* failure;

    void check(LumStatus s) const {
        if (s != lumStatusOk) failure->store(s, std::memory_order_relaxed);
    }
};

void albedoOf(const Context& c, Lum32s tri, float px, float pz, float* rgb) {
    if (c.scene.mesh().material[static_cast<size_t>(tri)] == kGround) {
        const int cell = static_cast<int>(std::floor(px * 4.0f)) + static_cast<int>(std::floor(pz * 4.0f));
        const float g = (cell & 1) ? 0.50f : 0.28f;
        rgb[0] = g, rgb[1] = g, rgb[2] = g * 0.96f;
    } else {
        rgb[0] = 0.72f, rgb[1] = 0.48f, rgb[2] = 0.34f;
    }
}

float reflectanceOf(const Context& c, Lum32s tri) {
    return c.scene.mesh().material[static_cast<size_t>(tri)] == kGround ? c.o.groundReflectance
                                                                        : c.o.modelReflectance;
}

// Shades the lanes whose `trngl` is not negative: hit points, smooth normals
// turned towards the ray, diffuse sky light from the SH coefficients, and the
// key light with its shadow.  Lanes that missed get 0.
void shade(const Context& c, Work& w, const LumPlanes3& dir, const float* eye,
           const LumPlanes3* origins, const float* dist, float* const hit[2], Lum32s* trngl,
           const LumPlanes3& pts, const LumPlanes3& color, int n, LumRect2D roi,
           int64_t* shadowRays) {
    const Scene& scene = c.scene;
    if (eye)
        c.check(lumrHitPoint3DEpsS0_32f_M(eye, &dir, dist, trngl, &pts, n, kHitEps));
    else
        c.check(lumrHitPoint3DEpsM0_32f_M(origins, &dir, dist, trngl, &pts, n, kHitEps));
    c.check(lumrSurfSmoothNormal_32f(scene.vertexNormals(), scene.mesh().triangles.data(), trngl,
                                     hit, &w.nrm, n, 4));
    c.check(lumrDotChangeNorm_32f_IM(&dir, trngl, &w.nrm, w.facing, n));
    for (int i = 0; i < n; ++i) {
        float rgb[3] = {0.0f, 0.0f, 0.0f};
        if (trngl[i] >= 0) albedoOf(c, trngl[i], pts.X[i], pts.Z[i], rgb);
        w.albedo.X[i] = rgb[0], w.albedo.Y[i] = rgb[1], w.albedo.Z[i] = rgb[2];
    }
    // Sky light: albedo times the diffuse light at the normal.
    c.check(c.sh.diffuse(w.nrm.X, w.nrm.Y, w.nrm.Z, color, n));
    c.check(lumrMul_32f_C1IM(w.albedo.X, trngl, color.X, n));
    c.check(lumrMul_32f_C1IM(w.albedo.Y, trngl, color.Y, n));
    c.check(lumrMul_32f_C1IM(w.albedo.Z, trngl, color.Z, n));

    // Key light: lanes that face it keep their mask, blocked lanes lose it.
    const float* light = c.o.light.position;
    std::copy(trngl, trngl + n, w.mask);
    c.check(lumrCastShadowSO_32f(light, w.facing, &w.nrm, &pts, w.mask, w.lightDot, &w.shadow, n));
    if (c.o.shadows) {
        for (int i = 0; i < n; ++i) *shadowRays += w.mask[i] >= 0;
        c.check(lumrIntersectAnySO_32f(light, &w.shadow, w.occluder, w.mask, roi, &scene.rays()));
    }
    // lightDot is |(p - L) . n| = d cos; three divisions by the distance d
    // (held at 1 or more) leave cos / d^2.
    c.check(lumrDistAttenuationSO_32f_M(light, &pts, w.mask, w.atten, n));
    for (int k = 0; k < 3; ++k) c.check(lumrDiv_32f_C1IM(w.atten, w.mask, w.lightDot, n));
    c.check(lumrAddMulMul_32f_AC1P3IM(c.lightK, w.lightDot, &w.albedo, w.mask, &color, n));
}

float toneMap(float v, float exposure) { return 1.0f - std::exp(-v * exposure); }

}  // namespace

void cameraGrid(const Camera& camera, int width, int height, float corner[3],
                float stepColumn[3], float stepRow[3]) {
    double f[3], r[3], u[3];
    for (int k = 0; k < 3; ++k) f[k] = camera.target[k] - camera.eye[k];
    auto normalise = [](double* v) {
        const double len = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
        if (len > 0)
            for (int k = 0; k < 3; ++k) v[k] /= len;
    };
    normalise(f);
    r[0] = f[1] * camera.up[2] - f[2] * camera.up[1];
    r[1] = f[2] * camera.up[0] - f[0] * camera.up[2];
    r[2] = f[0] * camera.up[1] - f[1] * camera.up[0];
    normalise(r);
    u[0] = r[1] * f[2] - r[2] * f[1];
    u[1] = r[2] * f[0] - r[0] * f[2];
    u[2] = r[0] * f[1] - r[1] * f[0];
    const double pixel = 2.0 * std::tan(camera.fovDegrees * kPi / 360.0) / height;
    for (int k = 0; k < 3; ++k) {
        stepColumn[k] = static_cast<float>(pixel * r[k]);
        stepRow[k] = static_cast<float>(-pixel * u[k]);
        corner[k] = static_cast<float>(f[k] + (0.5 - width * 0.5) * pixel * r[k] -
                                       (0.5 - height * 0.5) * pixel * u[k]);
    }
}

bool render(const Scene& scene, const ShLighting& lighting, const RenderOptions& o, Image* image,
            RenderStats* stats, std::string* error, std::vector<int32_t>* hitTriangle) {
    if (o.width < 1 || o.height < 1 || o.block < 1 || o.block > 256) {
        if (error) *error = "bad image or block size";
        return false;
    }
    *image = Image(o.width, o.height, 3);
    if (hitTriangle) hitTriangle->assign(static_cast<size_t>(o.width) * o.height, -1);
    float corner[3], stepColumn[3], stepRow[3];
    cameraGrid(o.camera, o.width, o.height, corner, stepColumn, stepRow);

    std::atomic<LumStatus> failure{lumStatusOk};
    Context c{scene, lighting, o, {}, &failure};
    for (int k = 0; k < 3; ++k)
        c.lightK[k] = static_cast<float>(o.light.color[k] * o.light.power / kPi);

    const int B = o.block;
    const int across = (o.width + B - 1) / B, down = (o.height + B - 1) / B;
    const int blocks = across * down;
    Progress bar("render", blocks, o.progress);
    Stopwatch clock;
    int64_t eyeRays = 0, shadowRays = 0, reflectionRays = 0, modelPixels = 0;
    int threads = 1;
#pragma omp parallel reduction(+ : eyeRays, shadowRays, reflectionRays, modelPixels)
    {
#pragma omp single
        threads = omp_get_num_threads();
        Work w(B * B);
        float* hit[2] = {w.u, w.v};
        float* hit2[2] = {w.u2, w.v2};
        const float one[3] = {1.0f, 1.0f, 1.0f};
#pragma omp for schedule(dynamic, 1)
        for (int b = 0; b < blocks; ++b) {
            const int bx = b % across, by = b / across;
            const int bw = std::min(B, o.width - bx * B), bh = std::min(B, o.height - by * B);
            const int n = bw * bh;
            const LumRect2D roi{bw, bh};
            c.check(lumrCastEye_32f(corner, stepColumn, stepRow, bx, by, LumRect2D{B, B}, &w.dir, roi));
            std::fill(w.dist, w.dist + n, FLT_MAX);
            lumrIntersectEyeSO_32f(o.camera.eye, &w.dir, w.dist, hit, w.trngl, &scene.rays(), roi);
            eyeRays += n;
            shade(c, w, w.dir, o.camera.eye, nullptr, w.dist, hit, w.trngl, w.pts, w.color, n, roi,
                  &shadowRays);

            // One bounce off reflective surfaces, from the points just found.
            int reflective = 0;
            for (int i = 0; i < n; ++i) {
                const float r = w.trngl[i] >= 0 ? reflectanceOf(c, w.trngl[i]) : 0.0f;
                w.reflect[i] = r;
                w.keep[i] = 1.0f - r;
                w.reflMask[i] = r > 0.0f ? w.trngl[i] : -1;
                w.dist2[i] = r > 0.0f ? FLT_MAX : 0.0f;  // a zero reach leaves a lane at once
                reflective += r > 0.0f;
            }
            if (o.reflections && reflective > 0) {
                c.check(lumrCastReflectionRay_32f(&w.dir, w.reflMask, &w.nrm, &w.refl, n));
                lumrIntersectMO_32f(&w.pts, &w.refl, w.dist2, hit2, w.trngl2, &scene.rays(), roi);
                reflectionRays += reflective;
                shade(c, w, w.refl, nullptr, &w.pts, w.dist2, hit2, w.trngl2, w.pts2, w.color2, n,
                      roi, &shadowRays);
                for (int i = 0; i < n; ++i)
                    if (w.reflMask[i] >= 0 && w.trngl2[i] < 0) {
                        float rgb[3];
                        o.sky.radiance(w.refl.X[i], w.refl.Y[i], w.refl.Z[i], rgb);
                        w.color2.X[i] = rgb[0], w.color2.Y[i] = rgb[1], w.color2.Z[i] = rgb[2];
                    }
                c.check(lumrMul_32f_C1P3IM(w.keep, w.trngl, &w.color, n));
                c.check(lumrAddMulMul_32f_AC1P3IM(one, w.reflect, &w.color2, w.reflMask, &w.color, n));
            }

            for (int r = 0; r < bh; ++r)
                for (int col = 0; col < bw; ++col) {
                    const int i = r * bw + col;
                    const int x = bx * B + col, y = by * B + r;
                    float rgb[3] = {w.color.X[i], w.color.Y[i], w.color.Z[i]};
                    if (w.trngl[i] < 0) o.sky.radiance(w.dir.X[i], w.dir.Y[i], w.dir.Z[i], rgb);
                    else if (scene.mesh().material[static_cast<size_t>(w.trngl[i])] == kModel)
                        ++modelPixels;
                    uint8_t* px = image->at(x, y);
                    for (int k = 0; k < 3; ++k) px[k] = toDisplay8(toneMap(rgb[k], o.exposure));
                    if (hitTriangle)
                        (*hitTriangle)[static_cast<size_t>(y) * o.width + x] = w.trngl[i];
                }
            bar.advance();
        }
    }
    bar.finish();
    if (stats) {
        stats->eyeRays = eyeRays;
        stats->shadowRays = shadowRays;
        stats->reflectionRays = reflectionRays;
        stats->modelPixels = modelPixels;
        stats->seconds = clock.seconds();
        stats->threads = threads;
    }
    if (failure.load() != lumStatusOk) {
        if (error) *error = "a library call answered status " + std::to_string(failure.load());
        return false;
    }
    return true;
}

}  // namespace demo
