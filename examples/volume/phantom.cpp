#include "volume/phantom.h"

#include <cmath>

namespace demo {

const std::vector<Ellipsoid>& headEllipsoids() {
    static const std::vector<Ellipsoid> table = {
        // density  a       b      c      x0     y0      z0     phi
        {1.0, 0.6900, 0.920, 0.810, 0.00, 0.0000, 0.00, 0.0},   // skull
        {-0.8, 0.6624, 0.874, 0.780, 0.00, -0.0184, 0.00, 0.0}, // brain
        {-0.2, 0.1100, 0.310, 0.220, 0.22, 0.0000, 0.00, -18.0},
        {-0.2, 0.1600, 0.410, 0.280, -0.22, 0.0000, 0.00, 18.0},
        {0.1, 0.2100, 0.250, 0.410, 0.00, 0.3500, -0.15, 0.0},
        {0.1, 0.0460, 0.046, 0.050, 0.00, 0.1000, 0.25, 0.0},
        {0.1, 0.0460, 0.046, 0.050, 0.00, -0.1000, 0.25, 0.0},
        {0.1, 0.0460, 0.023, 0.050, -0.08, -0.6050, 0.00, 0.0},
        {0.1, 0.0230, 0.023, 0.020, 0.00, -0.6060, 0.00, 0.0},
        {0.1, 0.0230, 0.046, 0.020, 0.06, -0.6050, 0.00, 0.0},
    };
    return table;
}

namespace {

constexpr double kDegree = 3.14159265358979323846 / 180.0;

struct Turned {
    Ellipsoid e;
    double c, s;
};

const std::vector<Turned>& turnedEllipsoids() {
    static const std::vector<Turned> table = [] {
        std::vector<Turned> t;
        for (const Ellipsoid& e : headEllipsoids())
            t.push_back({e, std::cos(e.phiDegrees * kDegree), std::sin(e.phiDegrees * kDegree)});
        return t;
    }();
    return table;
}

}  // namespace

double phantomDensity(double x, double y, double z) {
    double sum = 0.0;
    for (const Turned& t : turnedEllipsoids()) {
        const Ellipsoid& e = t.e;
        const double dx = x - e.x0, dy = y - e.y0, dz = z - e.z0;
        const double u = (dx * t.c + dy * t.s) / e.a;
        const double v = (-dx * t.s + dy * t.c) / e.b;
        const double w = dz / e.c;
        if (u * u + v * v + w * w <= 1.0) sum += e.density;
    }
    return sum;
}

double phantomScale(SampleType type) {
    switch (type) {
        case SampleType::U8: return 255.0;
        case SampleType::U16: return 65535.0;
        case SampleType::F32: return 1.0;
    }
    return 1.0;
}

Volume makePhantom(SampleType type, int width, int height, int depth) {
    Volume v(type, width, height, depth);
    const double scale = phantomScale(type);
    turnedEllipsoids();  // built once, before the threads read it
#pragma omp parallel for schedule(static)
    for (int k = 0; k < v.depth(); ++k) {
        const double z = (k + 0.5) / depth * 2.0 - 1.0;
        for (int j = 0; j < v.height(); ++j) {
            const double y = 1.0 - (j + 0.5) / height * 2.0;
            for (int i = 0; i < v.width(); ++i) {
                const double x = (i + 0.5) / width * 2.0 - 1.0;
                // Rounding leaves a tiny negative sum where densities cancel.
                const double d = phantomDensity(x, y, z);
                v.set(i, j, k, (d < 1e-12 ? 0.0 : d) * scale);
            }
        }
    }
    return v;
}

}  // namespace demo
