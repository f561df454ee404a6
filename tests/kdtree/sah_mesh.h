// Generated meshes for the SAH build's tests and benchmark.
#pragma once

#include <cmath>
#include <cstdint>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "lumr.h"

struct SahMesh {
    std::vector<float> v;   // three floats per vertex
    std::vector<Lum32s> t;  // four numbers per triangle, the fourth unused
    Lum32s nv() const { return Lum32s(v.size() / 3); }
    Lum32s nt() const { return Lum32s(t.size() / 4); }
    void tri(Lum32s a, Lum32s b, Lum32s c) { t.insert(t.end(), {a, b, c, -7}); }
    Lum32s vert(float x, float y, float z) {
        v.insert(v.end(), {x, y, z});
        return nv() - 1;
    }
};

// A closed bumpy sphere of rings x segments quads (2 triangles each), a
// smooth surface with varied triangle sizes and orientations.
inline SahMesh sahBumpySphere(int rings, int segments) {
    SahMesh m;
    const double pi = 3.14159265358979323846;
    for (int i = 0; i <= rings; ++i) {
        const double th = pi * i / rings;
        for (int j = 0; j < segments; ++j) {
            const double ph = 2 * pi * j / segments;
            const double r = 1.0 + 0.15 * std::sin(5 * th) * std::cos(7 * ph) +
                             0.05 * std::sin(23 * ph + 3 * th);
            m.vert(float(r * std::sin(th) * std::cos(ph)), float(r * std::sin(th) * std::sin(ph)),
                   float(r * std::cos(th)));
        }
    }
    for (int i = 0; i < rings; ++i)
        for (int j = 0; j < segments; ++j) {
            const int j1 = (j + 1) % segments;
            const Lum32s a = i * segments + j, b = i * segments + j1;
            const Lum32s c = (i + 1) * segments + j, d = (i + 1) * segments + j1;
            m.tri(a, c, b);
            m.tri(b, c, d);
        }
    return m;
}

// Random small triangles in a unit cube, some long ones across it, and a few
// axis-aligned ones (flat on an axis) to reach the planar paths.
inline SahMesh sahSoup(int count, uint32_t seed) {
    SahMesh m;
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> u(0.f, 1.f);
    for (int k = 0; k < count; ++k) {
        const float cx = u(rng), cy = u(rng), cz = u(rng);
        const float s = (k % 17 == 0) ? 0.8f : 0.05f;
        Lum32s idx[3];
        for (int c = 0; c < 3; ++c) {
            float p[3] = {cx + s * (u(rng) - 0.5f), cy + s * (u(rng) - 0.5f),
                          cz + s * (u(rng) - 0.5f)};
            if (k % 11 == 0) p[k % 3] = (k % 2) ? cx : 0.5f;  // flat on an axis
            idx[c] = m.vert(p[0], p[1], p[2]);
        }
        m.tri(idx[0], idx[1], idx[2]);
    }
    return m;
}

// The Stanford bunny of data/bunny.txt: a comment line, the vertex and
// triangle counts, then x y z per vertex and three corners per triangle.
inline SahMesh sahBunny() {
    std::string path = __FILE__;
    path = path.substr(0, path.find_last_of('/')) + "/../../data/bunny.txt";
    std::ifstream in(path);
    SahMesh m;
    std::string comment;
    std::getline(in, comment);
    int nv = 0, nt = 0;
    in >> nv >> nt;
    for (int i = 0; i < nv; ++i) {
        float x, y, z;
        in >> x >> y >> z;
        m.vert(x, y, z);
    }
    for (int i = 0; i < nt; ++i) {
        Lum32s a, b, c;
        in >> a >> b >> c;
        m.tri(a, b, c);
    }
    return m;
}
