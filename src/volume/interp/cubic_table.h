// The weight tables of the cubic family for remap and the affine warp.  Each
// filter is sampled at t = k/100 for k = 0..200 and read back with linear
// interpolation between entries, so these weights are deliberately not the
// polynomial weights that resize evaluates: the two differ by up to 6.2e-5
// and must never share a routine.
//
// The tables are built by the compiler from the formulas (in double, rounded
// once to float), so they are constant data with no start-up work.
#pragma once

#include "lumr.h"

// 201 samples of the filter and 7 zeros.  Entry 201 is really read: a
// distance of exactly 2 looks up u = 200 and interpolates towards it.
struct OwnCubicTable {
    Lum32f w[208];
};

// The filters as functions of the distance t in [0, 2], in double.
constexpr double ownLagrangeFilter(double t) {
    if (t < 1.0) return (t - 1.0) * (t + 1.0) * (t - 2.0) / 2.0;
    if (t < 2.0) return -(t - 1.0) * (t - 2.0) * (t - 3.0) / 6.0;
    return 0.0;
}

constexpr double ownTwoParamFilter(double t, double b, double c) {
    if (t < 1.0)
        return ((12.0 - 9.0 * b - 6.0 * c) * t * t * t + (-18.0 + 12.0 * b + 6.0 * c) * t * t +
                (6.0 - 2.0 * b)) /
               6.0;
    if (t < 2.0)
        return ((-b - 6.0 * c) * t * t * t + (6.0 * b + 30.0 * c) * t * t +
                (-12.0 * b - 48.0 * c) * t + (8.0 * b + 24.0 * c)) /
               6.0;
    return 0.0;
}

// The filter of a cubic code: 4 Lagrange, 5 B-spline (B 1, C 0), 6
// Catmull-Rom (B 0, C 1/2), 7 two-parameter cubic (B 1/2, C 3/10).
constexpr double ownCubicFilter(Lum32s code, double t) {
    switch (code) {
        case LUM_RESAMPLE_LAGRANGE: return ownLagrangeFilter(t);
        case LUM_RESAMPLE_BSPLINE: return ownTwoParamFilter(t, 1.0, 0.0);
        case LUM_RESAMPLE_CATMULLROM: return ownTwoParamFilter(t, 0.0, 0.5);
        case LUM_RESAMPLE_CUBIC_BC: return ownTwoParamFilter(t, 0.5, 0.3);
        default: return 0.0;
    }
}

constexpr OwnCubicTable ownBuildCubicTable(Lum32s code) {
    OwnCubicTable table{};
    // Adding +0 stores the zeros of the filter (the Lagrange formula gives
    // -0 at t = 1) as +0, as every zero entry of the tables.
    for (int k = 0; k <= 200; ++k)
        table.w[k] = static_cast<Lum32f>(ownCubicFilter(code, k / 100.0)) + 0.0f;
    return table;  // entries 201..207 stay zero
}

inline constexpr OwnCubicTable ownCubicTable4 = ownBuildCubicTable(LUM_RESAMPLE_LAGRANGE);
inline constexpr OwnCubicTable ownCubicTable5 = ownBuildCubicTable(LUM_RESAMPLE_BSPLINE);
inline constexpr OwnCubicTable ownCubicTable6 = ownBuildCubicTable(LUM_RESAMPLE_CATMULLROM);
inline constexpr OwnCubicTable ownCubicTable7 = ownBuildCubicTable(LUM_RESAMPLE_CUBIC_BC);

// The table of a cubic code, for tests and tools; kernels take theirs as a
// template argument.
inline const OwnCubicTable* ownCubicTableOf(Lum32s code) {
    switch (code) {
        case LUM_RESAMPLE_LAGRANGE: return &ownCubicTable4;
        case LUM_RESAMPLE_BSPLINE: return &ownCubicTable5;
        case LUM_RESAMPLE_CATMULLROM: return &ownCubicTable6;
        case LUM_RESAMPLE_CUBIC_BC: return &ownCubicTable7;
        default: return nullptr;
    }
}
