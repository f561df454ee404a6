// Independent double-precision real spherical harmonics for unit vectors:
// associated Legendre functions by the classic three-term recurrence in
// cos(theta), azimuth by atan2 and cos/sin, Condon-Shortley phase included.
#pragma once

#include <vector>

// Y(l, m) of the direction of (x, y, z), normalised in double first, for
// l = 0 .. L at index l * l + l + m.
std::vector<double> refSHBlock(double x, double y, double z, int L);
