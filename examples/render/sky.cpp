#include "render/sky.h"

#include <algorithm>
#include <cmath>

namespace demo {

namespace {
constexpr double kPi = 3.14159265358979323846;
}

void Sky::radiance(float dx, float dy, float dz, float rgb[3]) const {
    const float len = std::sqrt(dx * dx + dy * dy + dz * dz);
    if (!(len > 0.0f)) {
        rgb[0] = rgb[1] = rgb[2] = 0.0f;
        return;
    }
    const float x = dx / len, y = dy / len, z = dz / len;
    if (y >= 0.0f) {
        const float t = std::sqrt(y);
        for (int c = 0; c < 3; ++c) rgb[c] = horizon[c] + (zenith[c] - horizon[c]) * t;
    } else {
        const float t = std::min(1.0f, -y * 4.0f);
        for (int c = 0; c < 3; ++c) rgb[c] = horizon[c] + (ground[c] - horizon[c]) * t;
    }
    const float toward = std::max(0.0f, x * sun[0] + y * sun[1] + z * sun[2]);
    // toward^32 and toward^512 by squaring: cheaper than pow on every miss.
    float p32 = toward;
    for (int i = 0; i < 5; ++i) p32 *= p32;
    float p512 = p32;
    for (int i = 0; i < 4; ++i) p512 *= p512;
    const float glow = p32 * 0.6f + p512 * 4.0f;
    for (int c = 0; c < 3; ++c) rgb[c] += sunGlow[c] * glow;
}

double cosineLobe(int l) {
    if (l == 0) return kPi;
    if (l == 1) return 2.0 * kPi / 3.0;
    if (l % 2 == 1) return 0.0;
    // Even l: 2 pi (-1)^(l/2 - 1) / ((l + 2)(l - 1)) * l! / (2^l ((l/2)!)^2).
    double ratio = 1.0;  // l! / (2^l ((l/2)!)^2), built factor by factor
    for (int k = 1; k <= l / 2; ++k) ratio *= (2.0 * k - 1.0) / (2.0 * k);
    const double sign = (l / 2 - 1) % 2 == 0 ? 1.0 : -1.0;
    return 2.0 * kPi * sign / ((l + 2.0) * (l - 1.0)) * ratio;
}

void sphereDirections(int count, float* x, float* y, float* z) {
    const double golden = kPi * (3.0 - std::sqrt(5.0));
    for (int i = 0; i < count; ++i) {
        const double h = 1.0 - (2.0 * i + 1.0) / count;  // heights evenly spaced
        const double r = std::sqrt(std::max(0.0, 1.0 - h * h));
        const double a = golden * i;
        x[i] = static_cast<float>(r * std::cos(a));
        y[i] = static_cast<float>(h);
        z[i] = static_cast<float>(r * std::sin(a));
    }
}

LumStatus ShLighting::init(unsigned band) {
    if (band > 15) return lumStatusBadBand;
    Lum32u bytes = 0;
    LumStatus s = lumrSHGetSize_32f(band, lumSHRecurrence, &bytes);
    if (s != lumStatusOk) return s;
    state_.resize(bytes);
    s = lumrSHInit_32f(reinterpret_cast<LumSHState*>(state_.data()), band, lumSHRecurrence);
    if (s != lumStatusOk) return s;
    band_ = band;
    // Each coefficient plane starts on a 16-float boundary.
    const size_t n = static_cast<size_t>((band + 1) * (band + 1));
    const size_t stride = (n + 15) / 16 * 16;
    coeffs_.resize(6 * stride);
    float* p = coeffs_.data();
    radiance_ = LumPlanes3{p, p + stride, p + 2 * stride};
    diffuse_ = LumPlanes3{p + 3 * stride, p + 4 * stride, p + 5 * stride};
    return lumStatusOk;
}

LumStatus ShLighting::finishProjection(const float* x, const float* y, const float* z,
                                       const LumPlanes3& samples, int count) {
    if (!state_.data()) return lumStatusNullPtr;
    const int n = coefficientCount();
    for (int i = 0; i < n; ++i) radiance_.X[i] = radiance_.Y[i] = radiance_.Z[i] = 0.0f;
    // The forward transform sums basis times sample; the sphere's area over
    // the count turns the sum into the integral.
    const LumStatus s = lumrSHTFwd_32f_P3I(x, y, z, &samples, count, &radiance_, band_, state());
    if (s != lumStatusOk) return s;
    const float weight = static_cast<float>(4.0 * kPi / count);
    for (int l = 0; l <= static_cast<int>(band_); ++l) {
        const float lobe = static_cast<float>(cosineLobe(l) / kPi);
        for (int m = -l; m <= l; ++m) {
            const int i = l * l + l + m;
            float* planes[3][2] = {{radiance_.X, diffuse_.X}, {radiance_.Y, diffuse_.Y},
                                   {radiance_.Z, diffuse_.Z}};
            for (auto& p : planes) {
                p[0][i] *= weight;
                p[1][i] = p[0][i] * lobe;
            }
        }
    }
    return lumStatusOk;
}

LumStatus ShLighting::diffuse(const float* nx, const float* ny, const float* nz,
                              const LumPlanes3& out, int count) const {
    return lumrSHTInv_32f_P3(&diffuse_, band_, nx, ny, nz, &out, count, state());
}

}  // namespace demo
