// Slow per-sample models of the volume resizer: a double-precision trilinear
// with edge clamping (independent of the library's arithmetic), and bit
// models that evaluate each destination sample on its own, with the rounding
// and operation order the resizer promises but with no tables, rings, rims
// stored in planes or vector bodies.
#pragma once

#include <cstddef>
#include <vector>

#include "lumr.h"

struct ResizeCase {
    LumVolume vol;     // whole source volume, stored densely
    LumBox srcBox;
    LumBox dstBox;
    double factor[3];  // x, y, z
    double shift[3];
    LumVolume dstVol;  // dense destination extents, holding dstBox
};

// Destination region [begin, end) per axis; false when empty on any axis.
bool refResizeRegion(const ResizeCase& c, int begin[3], int end[3]);

// Source coordinate (sample centres at integer + 0.5 mapped back to source
// space, minus 0.5) of destination index X on axis a, for codes 2 and up.
double refResizeCoord(const ResizeCase& c, int axis, int X);

// Double trilinear of the dense source at destination sample (X, Y, Z),
// taps clamped into the volume.
double refTrilinear(const ResizeCase& c, const std::vector<double>& src, int X, int Y, int Z);

// Bit models of one destination sample, for Lum8u, Lum16u and Lum32f.
template <class T>
T refNearestSample(const ResizeCase& c, const T* src, int X, int Y, int Z);
template <class T>
T refLinearSample(const ResizeCase& c, const T* src, int X, int Y, int Z);
// Codes 4 to 7.  negativeRowStep models a source stored with a negative row
// step, where class d rows of the rim keep the taps of the row before them.
template <class T>
T refCubicSample(const ResizeCase& c, const T* src, int code, int X, int Y, int Z,
                 bool negativeRowStep = false);

// The four coefficients of a cubic code for a fraction, in double then float.
void refCubicCoefs(int code, float f, float out[4]);

// ---- Running the library on a case ------------------------------------------
// How a run stores its volumes: contiguous (V), plane pointers (PV), or
// contiguous with negative row and plane steps (the volumes stored upside
// down and back to front, read through their logical origin).  Rows and
// planes are padded, and each byte step carries sizeof(T) - 1 bytes beyond
// its whole samples, which the entry points must floor away.
enum class ResizeForm { V, PV, VNegative };

// Runs the entry point of type T and form on src (dense, vol extents) into
// dst (dense, dstVol extents; samples outside the region keep their values,
// and a write into the padding fails the test).
// The scratch is exactly lumrResizeGetBufSize bytes, starting misalign bytes
// past an aligned block, so a sanitizer build sees any overrun.
template <class T>
LumStatus refRunResize(const ResizeCase& c, const std::vector<T>& src, std::vector<T>& dst,
                       int code, ResizeForm form, int misalign = 0);

// A dense volume of random samples: the full range for the integer types,
// -100 to 100 for floats.
template <class T>
std::vector<T> refRandomVolume(const LumVolume& v, unsigned seed);

// The expected destination of a case: dst as given outside the region, the
// model's value inside.  model(X, Y, Z) gives one sample.
template <class T, class Model>
std::vector<T> refExpected(const ResizeCase& c, const std::vector<T>& dst, Model&& model) {
    std::vector<T> out = dst;
    int b[3], e[3];
    if (!refResizeRegion(c, b, e)) return out;
    for (int z = b[2]; z < e[2]; ++z)
        for (int y = b[1]; y < e[1]; ++y)
            for (int x = b[0]; x < e[0]; ++x)
                out[(static_cast<size_t>(z) * c.dstVol.height + y) * c.dstVol.width + x] =
                    model(x, y, z);
    return out;
}
