// Environment light: a procedural sky, projected once onto spherical
// harmonics and evaluated at surface normals as diffuse light.
#pragma once

#include <string>

#include "common/aligned.h"
#include "lumr.h"

namespace demo {

// Linear RGB radiance of the sky by direction; y is up.
struct Sky {
    float zenith[3] = {0.10f, 0.22f, 0.55f};
    float horizon[3] = {0.55f, 0.58f, 0.64f};
    float ground[3] = {0.16f, 0.14f, 0.12f};
    float sun[3] = {0.0f, 1.0f, 0.0f};      // unit direction towards the sun
    float sunGlow[3] = {1.2f, 1.0f, 0.8f};  // added around the sun

    // d need not be unit length.
    void radiance(float dx, float dy, float dz, float rgb[3]) const;
};

// The cosine lobe's band factor: the irradiance of band l is A(l) times the
// radiance's band l (A(0) = pi, A(1) = 2 pi / 3, A(2) = pi / 4, odd l > 1: 0).
double cosineLobe(int l);

// Directions spread evenly over the sphere (a Fibonacci spiral), unit length.
void sphereDirections(int count, float* x, float* y, float* z);

class ShLighting {
public:
    // Prepares a recurrence state for bands 0..band (band at most 15).
    LumStatus init(unsigned band);
    // Projects `radianceAt(x, y, z, rgb)` sampled at `samples` directions and
    // keeps, per colour, the coefficients of the light a white diffuse
    // surface sends back: (A(l) / pi) times the radiance's coefficients.
    template <class F>
    LumStatus project(F radianceAt, int samples);
    LumStatus project(const Sky& sky, int samples) {
        return project([&](float x, float y, float z, float* rgb) { sky.radiance(x, y, z, rgb); },
                       samples);
    }
    // Diffuse light for unit normals, into three planes of `count` values.
    LumStatus diffuse(const float* nx, const float* ny, const float* nz, const LumPlanes3& out,
                      int count) const;

    unsigned band() const { return band_; }
    int coefficientCount() const { return static_cast<int>((band_ + 1) * (band_ + 1)); }
    const LumPlanes3& radianceCoeffs() const { return radiance_; }
    const LumPlanes3& diffuseCoeffs() const { return diffuse_; }
    const LumSHState* state() const { return reinterpret_cast<const LumSHState*>(state_.data()); }

private:
    LumStatus finishProjection(const float* x, const float* y, const float* z,
                               const LumPlanes3& samples, int count);

    unsigned band_ = 0;
    AlignedArray<unsigned char> state_;
    AlignedArray<float> coeffs_;  // radiance then diffuse, three planes each
    LumPlanes3 radiance_{nullptr, nullptr, nullptr};
    LumPlanes3 diffuse_{nullptr, nullptr, nullptr};
};

template <class F>
LumStatus ShLighting::project(F radianceAt, int samples) {
    if (samples < 1) return lumStatusSize;
    const size_t n = static_cast<size_t>(samples);
    AlignedArray<float> dirs(3 * n), values(3 * n);
    float* x = dirs.data();
    float* y = x + n;
    float* z = y + n;
    sphereDirections(samples, x, y, z);
    const LumPlanes3 planes{values.data(), values.data() + n, values.data() + 2 * n};
    for (size_t i = 0; i < n; ++i) {
        float rgb[3];
        radianceAt(x[i], y[i], z[i], rgb);
        planes.X[i] = rgb[0], planes.Y[i] = rgb[1], planes.Z[i] = rgb[2];
    }
    return finishProjection(x, y, z, planes, samples);
}

}  // namespace demo
