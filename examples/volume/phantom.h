// A 3D head phantom after Shepp and Logan: ten ellipsoids whose densities add
// up, with the contrast-enhanced ("modified") densities, so that brain
// matter stands at 0.2, the skull at 1 and the small features at 0.3.
#pragma once

#include <vector>

#include "volume/volume.h"

namespace demo {

struct Ellipsoid {
    double density;          // added inside
    double a, b, c;          // semi-axes along x, y, z
    double x0, y0, z0;       // centre
    double phiDegrees;       // rotation about z
};

const std::vector<Ellipsoid>& headEllipsoids();

// Density at a point of the normalised cube [-1, 1]^3 (y up, z towards the
// top of the head).
double phantomDensity(double x, double y, double z);

// A phantom volume.  Densities 0..1 are scaled by 255 for 8u and 65535 for
// 16u; 32f keeps them.  Voxel (i, j, k) samples the centre of its cell, rows
// running from the top (y = 1) down, so slices show the head upright.
Volume makePhantom(SampleType type, int width, int height, int depth);

// The factor makePhantom applies to densities for a type.
double phantomScale(SampleType type);

}  // namespace demo
