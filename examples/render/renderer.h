// The ray tracer: image blocks spread over threads, each block taken down
// the library's road from eye rays to a shaded colour.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/image.h"
#include "render/scene.h"
#include "render/sky.h"

namespace demo {

struct Camera {
    float eye[3] = {-1.2f, 1.0f, 2.6f};
    float target[3] = {0.0f, 0.42f, 0.0f};
    float up[3] = {0.0f, 1.0f, 0.0f};
    float fovDegrees = 36.0f;  // vertical
};

struct PointLight {
    float position[3] = {-2.4f, 3.6f, 1.6f};
    float color[3] = {1.0f, 0.95f, 0.85f};
    float power = 45.0f;  // irradiance at distance 1, facing the light, is power
};

struct RenderOptions {
    int width = 800;
    int height = 600;
    int block = 16;  // block edge in pixels; a multiple of 4 keeps the packet bodies
    Camera camera;
    PointLight light;
    Sky sky;
    bool reflections = true;
    bool shadows = true;
    bool progress = true;
    float exposure = 1.0f;
    float modelReflectance = 0.06f;
    float groundReflectance = 0.28f;
};

struct RenderStats {
    int64_t eyeRays = 0;
    int64_t shadowRays = 0;
    int64_t reflectionRays = 0;
    int64_t modelPixels = 0;  // pixels whose eye ray hit the model
    double seconds = 0.0;
    int threads = 1;
};

// The grid lumrCastEye_32f spans for a camera: the direction through the
// centre of pixel (0, 0), and the steps to the next column and row.
void cameraGrid(const Camera& camera, int width, int height, float corner[3],
                float stepColumn[3], float stepRow[3]);

// Renders into *image (RGB).  When `hitTriangle` is given it receives, per
// pixel, the triangle the eye ray hit or -1.
bool render(const Scene& scene, const ShLighting& lighting, const RenderOptions& options,
            Image* image, RenderStats* stats, std::string* error,
            std::vector<int32_t>* hitTriangle = nullptr);

}  // namespace demo
