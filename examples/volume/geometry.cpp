// Pure geometry of the pipeline steps: no library calls, so tests can take
// it without the resampling families.
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "volume/ops.h"

namespace demo {

namespace {
constexpr double kPi = 3.14159265358979323846;
}

bool parseInterpolation(const std::string& text, Lum32s* code) {
    static const struct { const char* name; Lum32s code; } kNames[] = {
        {"nearest", LUM_RESAMPLE_NEAREST},       {"linear", LUM_RESAMPLE_LINEAR},
        {"lagrange", LUM_RESAMPLE_LAGRANGE},     {"cubic", LUM_RESAMPLE_LAGRANGE},
        {"bspline", LUM_RESAMPLE_BSPLINE},       {"catmullrom", LUM_RESAMPLE_CATMULLROM},
        {"cubicbc", LUM_RESAMPLE_CUBIC_BC},
    };
    for (const auto& n : kNames)
        if (text == n.name) {
            *code = n.code;
            return true;
        }
    char* end = nullptr;
    const long v = std::strtol(text.c_str(), &end, 10);
    if (end == text.c_str() || *end != '\0') return false;
    if (v != 1 && v != 2 && (v < 4 || v > 7)) return false;
    *code = static_cast<Lum32s>(v);
    return true;
}

const char* interpolationName(Lum32s code) {
    switch (code) {
        case LUM_RESAMPLE_NEAREST: return "nearest";
        case LUM_RESAMPLE_LINEAR: return "linear";
        case LUM_RESAMPLE_LAGRANGE: return "lagrange";
        case LUM_RESAMPLE_BSPLINE: return "bspline";
        case LUM_RESAMPLE_CATMULLROM: return "catmullrom";
        case LUM_RESAMPLE_CUBIC_BC: return "cubicbc";
    }
    return "?";
}

void affineAboutCentre(int width, int height, int depth, double degrees, char axis,
                       double scale, Lum64f coeffs[3][4]) {
    double c = std::cos(degrees * kPi / 180.0), s = std::sin(degrees * kPi / 180.0);
    // Quarter turns exactly: cos 90 degrees is 6e-17 in doubles, enough to
    // push an edge sample just outside the source box.
    auto snap = [](double v) {
        const double r = std::nearbyint(v);
        return std::fabs(v - r) < 1e-12 ? r : v;
    };
    c = snap(c), s = snap(s);
    double r[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    // Turn in the plane of the two other axes, counter-clockwise from the
    // first of them to the second.
    const int a = axis == 'x' ? 1 : (axis == 'y' ? 2 : 0);
    const int b = axis == 'x' ? 2 : (axis == 'y' ? 0 : 1);
    r[a][a] = c, r[a][b] = -s;
    r[b][a] = s, r[b][b] = c;
    const double centre[3] = {(width - 1) * 0.5, (height - 1) * 0.5, (depth - 1) * 0.5};
    for (int i = 0; i < 3; ++i) {
        double t = centre[i];
        for (int j = 0; j < 3; ++j) {
            coeffs[i][j] = scale * r[i][j];
            t -= coeffs[i][j] * centre[j];
        }
        coeffs[i][3] = t;
    }
}

void swirlSource(int width, int height, int depth, double degrees, int x, int y, int z,
                 float* sx, float* sy, float* sz) {
    const double cx = (width - 1) * 0.5, cy = (height - 1) * 0.5, cz = (depth - 1) * 0.5;
    const double radius = 0.5 * std::min(width, height);
    const double dx = x - cx, dy = y - cy;
    const double r = std::sqrt(dx * dx + dy * dy);
    const double fall = std::max(0.0, 1.0 - r / radius);
    const double along = cz > 0 ? 1.0 - 0.5 * std::fabs(z - cz) / cz : 1.0;
    const double angle = degrees * kPi / 180.0 * fall * fall * along;
    const double c = std::cos(angle), s = std::sin(angle);
    *sx = static_cast<float>(cx + dx * c - dy * s);
    *sy = static_cast<float>(cy + dx * s + dy * c);
    *sz = static_cast<float>(z);
}

int slabPlanes(int count) { return std::max(16, (count + 15) / 16); }

}  // namespace demo
