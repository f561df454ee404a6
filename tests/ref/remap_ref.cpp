#include "ref/remap_ref.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace ref {

float Source::at(int32_t x, int32_t y, int32_t z) const {
    const int64_t off = static_cast<int64_t>(y) * stepN + x;
    switch (type) {
        case SampleType::U8: return static_cast<const uint8_t*>(planes[z])[off];
        case SampleType::U16: return static_cast<const uint16_t*>(planes[z])[off];
        default: return static_cast<const float*>(planes[z])[off];
    }
}

double cubicFilter(int32_t code, double t) {
    if (code == 4) {
        if (t < 1) return (t - 1) * (t + 1) * (t - 2) / 2;
        if (t < 2) return -(t - 1) * (t - 2) * (t - 3) / 6;
        return 0;
    }
    const double B = code == 5 ? 1.0 : code == 6 ? 0.0 : 0.5;
    const double C = code == 5 ? 0.0 : code == 6 ? 0.5 : 0.3;
    if (t < 1) return ((12 - 9 * B - 6 * C) * t * t * t + (-18 + 12 * B + 6 * C) * t * t + (6 - 2 * B)) / 6;
    if (t < 2)
        return ((-B - 6 * C) * t * t * t + (6 * B + 30 * C) * t * t + (-12 * B - 48 * C) * t +
                (8 * B + 24 * C)) /
               6;
    return 0;
}

namespace {

struct Tables {
    float t[8][208];
    Tables() {
        for (int32_t code = 4; code <= 7; ++code) cubicTable(code, t[code]);
    }
};
const Tables& tables() {
    static const Tables instance;
    return instance;
}

uint32_t bitsOf(float v) {
    uint32_t u;
    std::memcpy(&u, &v, 4);
    return u;
}

float weight(const float* T, int32_t offset, float f) {
    float t = std::fabs(static_cast<float>(offset) - f);
    if (!(t <= 2.0f)) t = 2.0f;
    const float u = t * 100.0f;
    const int32_t n = static_cast<int32_t>(u);
    return T[n] + (T[n + 1] - T[n]) * (u - static_cast<float>(n));
}

// Tap positions of one axis; true on the border.
bool taps(int32_t i, int32_t hi, int32_t out[4]) {
    if (i <= 0) {
        const int32_t v[4] = {0, 0, 1, 2};
        std::copy(v, v + 4, out);
        return true;
    }
    if (i == hi - 1) {
        const int32_t v[4] = {i - 1, i, i + 1, i + 1};
        std::copy(v, v + 4, out);
        return true;
    }
    if (i >= hi) {
        const int32_t v[4] = {i - 1, i, i, i};
        std::copy(v, v + 4, out);
        return true;
    }
    for (int32_t n = 0; n < 4; ++n) out[n] = i - 1 + n;
    return false;
}

uint32_t storeLinear(SampleType type, float c) {
    if (type == SampleType::F32) return bitsOf(c);
    const long r = std::lrint(c);  // default mode: half to even
    return type == SampleType::U8 ? static_cast<uint32_t>(r & 0xFF) : static_cast<uint32_t>(r & 0xFFFF);
}

uint32_t storeCubic(SampleType type, float c, bool border, bool truncate32f) {
    if (type == SampleType::F32) {
        if (border && truncate32f) return bitsOf(static_cast<float>(static_cast<int32_t>(c)));
        return bitsOf(c);
    }
    const long top = type == SampleType::U8 ? 255 : 65535;
    long v = border ? static_cast<long>(static_cast<double>(c) + 0.5000001) : std::lrint(c);
    return static_cast<uint32_t>(std::clamp(v, 0L, top));
}

// Linear from indices already lowered and fractions.
float linear(const Source& s, int32_t i, int32_t j, int32_t k, float fx, float fy, float fz) {
    float b[2];
    for (int32_t dz = 0; dz < 2; ++dz) {
        float a[2];
        for (int32_t dy = 0; dy < 2; ++dy) {
            const float s0 = s.at(i, j + dy, k + dz), s1 = s.at(i + 1, j + dy, k + dz);
            const float p0 = s0 * (1.0f - fx);
            const float p1 = s1 * fx;
            a[dy] = p0 + p1;
        }
        const float q0 = a[0] * (1.0f - fy);
        const float q1 = a[1] * fy;
        b[dz] = q0 + q1;
    }
    const float r0 = b[0] * (1.0f - fz);
    const float r1 = b[1] * fz;
    return r0 + r1;
}

// The cubic sum and whether any axis was on the border.
float cubic(const Source& s, const LumSampleBounds& bd, const float* T, int32_t i, int32_t j,
            int32_t k, float fx, float fy, float fz, bool* border) {
    int32_t tx[4], ty[4], tz[4];
    const bool bx = taps(i, bd.xMax, tx), by = taps(j, bd.yMax, ty), bz = taps(k, bd.zMax, tz);
    *border = bx || by || bz;
    float wx[4], wy[4], wz[4];
    for (int32_t n = 0; n < 4; ++n) {
        wx[n] = weight(T, n - 1, fx);
        wy[n] = weight(T, n - 1, fy);
        wz[n] = weight(T, n - 1, fz);
    }
    float t[4];
    for (int32_t n = 0; n < 4; ++n) {
        float r[4];
        for (int32_t m = 0; m < 4; ++m) {
            float p[4];
            for (int32_t c = 0; c < 4; ++c) p[c] = wx[c] * s.at(tx[c], ty[m], tz[n]);
            const float left = p[0] + p[1];
            const float right = p[2] + p[3];
            r[m] = left + right;
        }
        float q[4];
        for (int32_t m = 0; m < 4; ++m) q[m] = wy[m] * r[m];
        const float left = q[0] + q[1];
        const float right = q[2] + q[3];
        t[n] = wz[n] * (left + right);
    }
    if (*border) {
        const float a = t[0] + t[1], b = t[2] + t[3];
        return a + b;
    }
    const float a = t[0] + t[2], b = t[1] + t[3];
    return a + b;
}

}  // namespace

void cubicTable(int32_t code, float table[208]) {
    for (int32_t k = 0; k < 208; ++k) table[k] = k <= 200 ? static_cast<float>(cubicFilter(code, k / 100.0)) + 0.0f : 0.0f;
}

namespace {

// Remap and the warp differ only in the type of the position, which the range
// test, the nearest rounding and the indices take as it is while the
// fractions take it rounded to float, and in the 32f cubic border.
template <class P>
Result sample(const Source& s, const LumSampleBounds& b, int32_t code, P X, P Y, P Z, bool truncate32f) {
    const bool inX = X >= static_cast<P>(b.xMin) && X <= static_cast<P>(b.xMax);
    const bool inY = Y >= static_cast<P>(b.yMin) && Y <= static_cast<P>(b.yMax);
    const bool inZ = Z >= static_cast<P>(b.zMin) && Z <= static_cast<P>(b.zMax);
    if (!(inX && inY && inZ)) return {false, 0};
    if (code == 1) {
        const float v = s.at(static_cast<int32_t>(std::nearbyint(X)), static_cast<int32_t>(std::nearbyint(Y)),
                             static_cast<int32_t>(std::nearbyint(Z)));
        return {true, s.type == SampleType::F32 ? bitsOf(v) : static_cast<uint32_t>(v)};
    }
    int32_t i = static_cast<int32_t>(X), j = static_cast<int32_t>(Y), k = static_cast<int32_t>(Z);
    const float xf = static_cast<float>(X), yf = static_cast<float>(Y), zf = static_cast<float>(Z);
    if (code == 2) {
        if (i == b.xMax) --i;
        if (j == b.yMax) --j;
        if (k == b.zMax) --k;
        return {true, storeLinear(s.type, linear(s, i, j, k, xf - static_cast<float>(i),
                                                 yf - static_cast<float>(j), zf - static_cast<float>(k)))};
    }
    bool border = false;
    const float c = cubic(s, b, tables().t[code], i, j, k, xf - static_cast<float>(i),
                          yf - static_cast<float>(j), zf - static_cast<float>(k), &border);
    return {true, storeCubic(s.type, c, border, truncate32f)};
}

}  // namespace

Result remapSample(const Source& s, const LumSampleBounds& b, int32_t code, float X, float Y,
                   float Z) {
    return sample<float>(s, b, code, X, Y, Z, true);
}

Result warpSample(const Source& s, const LumSampleBounds& b, int32_t code, double X, double Y,
                  double Z) {
    return sample<double>(s, b, code, X, Y, Z, false);
}

}  // namespace ref
