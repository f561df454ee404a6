// The volume tool's pipeline steps, each one call family of the library run
// slab by slab (for progress, and over threads where the library stays on
// the calling thread).
#pragma once

#include <cstdint>
#include <string>

#include "lumr.h"
#include "volume/volume.h"

namespace demo {

class Progress;

// Interpolation codes by name or number: nearest 1, linear 2, lagrange 4,
// bspline 5, catmullrom 6, cubicbc 7.
bool parseInterpolation(const std::string& text, Lum32s* code);
const char* interpolationName(Lum32s code);

// Forward affine map (source to destination position, absolute samples) that
// scales by `scale` and turns by `degrees` about `axis` ('x', 'y' or 'z')
// around the volume's centre (w - 1) / 2, (h - 1) / 2, (d - 1) / 2.
void affineAboutCentre(int width, int height, int depth, double degrees, char axis,
                       double scale, Lum64f coeffs[3][4]);

// Source position of destination voxel (x, y, z) under the swirl: a turn
// about the z axis through the centre by `degrees` at the centre, falling
// off to none at half the smaller of width and height, and weaker towards the
// first and last planes.
void swirlSource(int width, int height, int depth, double degrees, int x, int y, int z,
                 float* sx, float* sy, float* sz);

// Splits `count` planes into slabs of at least 16 (so the library's own
// thread split still applies) and at most about count / 16.
int slabPlanes(int count);

// Each step fills *dst (allocated here) and returns the library's status
// (warnings included); progress, when given, counts destination planes.
LumStatus resizeVolume(const Volume& src, Volume* dst, Lum32s code, double fx, double fy,
                       double fz, Progress* progress);
LumStatus warpVolume(const Volume& src, Volume* dst, Lum32s code, double degrees, char axis,
                     double scale, Progress* progress);
LumStatus swirlVolume(const Volume& src, Volume* dst, Lum32s code, double degrees,
                      Progress* progress);
// Smooths with the binomial kernel of size 3 or 5 in each direction, through
// the signed 16-bit filter: samples go to 16s and back (8u as they are, 16u
// halved, 32f scaled to the 16-bit range), edges replicated.
LumStatus filterVolume(const Volume& src, Volume* dst, int size, Progress* progress);

}  // namespace demo
