// Brute-force ray/triangle reference in double precision on the original
// vertices, with a robustness verdict: a ray whose outcome could flip under
// float rounding (a hit near an edge, near t = 0 or the limit, or two hits
// at nearly the same distance) is reported as not robust and not compared.
#pragma once

#include <vector>

#include "lumr.h"

struct RefMesh {
    std::vector<Lum32f> verts;  // three per vertex
    std::vector<Lum32s> tris;   // four per triangle
    Lum32s triangleCount() const { return Lum32s(tris.size() / 4); }
};

struct RefCandidate {
    Lum32s tri;
    double t, u, v;
};

// Every triangle the line o + t d crosses with t in (tLo, tHi), sorted by t,
// plus whether any crossing in that range lies within `edgeEps` of an edge
// (relative barycentric margin) or within `tEps` of a range end.
struct RefCrossings {
    std::vector<RefCandidate> hits;
    double firstAmbiguousT = 1e300;  // where the first doubtful crossing lies
    bool ambiguous() const { return firstAmbiguousT < 1e300; }
};

RefCrossings refCrossings(const RefMesh& mesh, const double o[3], const double d[3], double tLo,
                          double tHi, double edgeEps = 1e-4, double tEps = 1e-4);

// Nearest hit in (0, limit): tri -1 for none; robust says the verdict holds
// with margins.
struct RefNearest {
    RefCandidate hit{-1, 0, 0, 0};
    bool robust = true;
};
RefNearest refNearest(const RefMesh& mesh, const double o[3], const double d[3], double limit);

// Random scenes: `count` triangles of about `size` inside the cube [-1, 1]^3.
RefMesh refRandomMesh(unsigned seed, int count, double size);

// A test-only KD tree over the mesh: spatial median splits on the longest
// axis of the cell, triangles going to every side their bounding box
// touches, leaves of at most maxLeaf triangles.  Written through the
// library's block encoders, in the block layout (root, two zero words,
// child pairs depth-first, lists last).
std::vector<LumKDTreeNode> refMedianTree(const RefMesh& mesh, const Lum32f box[6], int maxLeaf,
                                         int maxDepth);
