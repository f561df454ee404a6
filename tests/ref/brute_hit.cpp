#include "ref/brute_hit.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <random>

#include "kdtree/block.h"

namespace {

struct Vec {
    double x, y, z;
};
Vec sub(Vec a, Vec b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
Vec cross(Vec a, Vec b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
double dot(Vec a, Vec b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

Vec vertex(const RefMesh& m, Lum32s i) {
    return {m.verts[3 * i], m.verts[3 * i + 1], m.verts[3 * i + 2]};
}

}  // namespace

RefCrossings refCrossings(const RefMesh& mesh, const double o[3], const double d[3], double tLo,
                          double tHi, double edgeEps, double tEps) {
    RefCrossings out;
    const Vec O{o[0], o[1], o[2]}, D{d[0], d[1], d[2]};
    const double dLen = std::sqrt(dot(D, D));
    for (Lum32s n = 0; n < mesh.triangleCount(); ++n) {
        const Vec A = vertex(mesh, mesh.tris[4 * n]), B = vertex(mesh, mesh.tris[4 * n + 1]),
                  C = vertex(mesh, mesh.tris[4 * n + 2]);
        const Vec e1 = sub(A, C), e2 = sub(B, C);
        const Vec p = cross(D, e2);
        const double det = dot(e1, p);
        const Vec nrm = cross(e1, e2);
        const double area2 = std::sqrt(dot(nrm, nrm));
        if (area2 == 0) continue;
        // Grazing rays are ambiguous whatever they meet.
        const double cosine = std::fabs(det) / (area2 * dLen);
        const Vec tv = sub(O, C);
        const Vec q = cross(tv, e1);
        const double u = dot(tv, p) / det, v = dot(D, q) / det, t = dot(e2, q) / det;
        const double w = 1.0 - u - v;
        const double margin = std::min(u, std::min(v, w));
        if (!(t > tLo - tEps * (1 + std::fabs(tLo)) && t < tHi + tEps * (1 + std::fabs(tHi))))
            continue;
        const bool nearEnd = std::fabs(t - tLo) <= tEps * (1 + std::fabs(tLo)) ||
                             std::fabs(t - tHi) <= tEps * (1 + std::fabs(tHi));
        if (std::fabs(margin) <= edgeEps || (margin > 0 && (nearEnd || cosine < 1e-3))) {
            out.firstAmbiguousT = std::min(out.firstAmbiguousT, t);
            continue;
        }
        if (margin > 0) out.hits.push_back({n, t, u, v});
    }
    std::sort(out.hits.begin(), out.hits.end(),
              [](const RefCandidate& a, const RefCandidate& b) { return a.t < b.t; });
    for (size_t k = 1; k < out.hits.size(); ++k)
        if (out.hits[k].t - out.hits[k - 1].t <= tEps * (1 + out.hits[k].t))
            out.firstAmbiguousT = std::min(out.firstAmbiguousT, out.hits[k - 1].t);
    return out;
}

RefNearest refNearest(const RefMesh& mesh, const double o[3], const double d[3], double limit) {
    const RefCrossings c = refCrossings(mesh, o, d, 0.0, limit);
    RefNearest r;
    if (!c.hits.empty()) r.hit = c.hits[0];
    // Doubt beyond the nearest clear hit cannot change it.
    r.robust = c.hits.empty() ? !c.ambiguous()
                              : c.firstAmbiguousT > c.hits[0].t + 1e-4 * (1 + c.hits[0].t);
    return r;
}

RefMesh refRandomMesh(unsigned seed, int count, double size) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> pos(-1.0, 1.0), off(-size, size);
    RefMesh m;
    for (int n = 0; n < count; ++n) {
        const double cx = pos(rng), cy = pos(rng), cz = pos(rng);
        for (int k = 0; k < 3; ++k) {
            m.verts.push_back(Lum32f(cx + off(rng)));
            m.verts.push_back(Lum32f(cy + off(rng)));
            m.verts.push_back(Lum32f(cz + off(rng)));
        }
        m.tris.insert(m.tris.end(), {3 * n, 3 * n + 1, 3 * n + 2, 0});
    }
    return m;
}

std::vector<LumKDTreeNode> refMedianTree(const RefMesh& mesh, const Lum32f box[6], int maxLeaf,
                                         int maxDepth) {
    struct TNode {
        int axis = -1;
        Lum32f split = 0;
        int lo = -1, hi = -1;
        std::vector<Lum32s> tris;
    };
    std::vector<TNode> nodes;
    std::vector<std::array<Lum32f, 6>> tb(mesh.triangleCount());
    for (Lum32s n = 0; n < mesh.triangleCount(); ++n) {
        for (int k = 0; k < 3; ++k) {
            tb[n][k] = 3e38f;
            tb[n][3 + k] = -3e38f;
        }
        for (int c = 0; c < 3; ++c)
            for (int k = 0; k < 3; ++k) {
                const Lum32f x = mesh.verts[3 * mesh.tris[4 * n + c] + k];
                tb[n][k] = std::min(tb[n][k], x);
                tb[n][3 + k] = std::max(tb[n][3 + k], x);
            }
    }
    std::function<int(std::vector<Lum32s>, std::array<Lum32f, 6>, int)> build =
        [&](std::vector<Lum32s> tris, std::array<Lum32f, 6> cell, int depth) -> int {
        const int id = int(nodes.size());
        nodes.emplace_back();
        if (int(tris.size()) <= maxLeaf || depth >= maxDepth) {
            nodes[id].tris = tris;
            return id;
        }
        int axis = 0;
        for (int k = 1; k < 3; ++k)
            if (cell[3 + k] - cell[k] > cell[3 + axis] - cell[axis]) axis = k;
        const Lum32f split = 0.5f * (cell[axis] + cell[3 + axis]);
        std::vector<Lum32s> lo, hi;
        for (Lum32s n : tris) {
            if (tb[n][axis] <= split) lo.push_back(n);
            if (tb[n][3 + axis] >= split) hi.push_back(n);
        }
        if (lo.size() == tris.size() && hi.size() == tris.size()) {
            nodes[id].tris = tris;
            return id;
        }
        std::array<Lum32f, 6> lc = cell, hc = cell;
        lc[3 + axis] = split;
        hc[axis] = split;
        const int l = build(lo, lc, depth + 1);
        const int h = build(hi, hc, depth + 1);
        nodes[id].axis = axis;
        nodes[id].split = split;
        nodes[id].lo = l;
        nodes[id].hi = h;
        return id;
    };
    std::vector<Lum32s> all(mesh.triangleCount());
    for (Lum32s n = 0; n < mesh.triangleCount(); ++n) all[n] = n;
    build(all, {box[0], box[1], box[2], box[3], box[4], box[5]}, 0);

    size_t listEntries = 0;
    for (const TNode& t : nodes)
        if (t.axis < 0) listEntries += ownLeafListEntries(t.tris.data(), Lum32s(t.tris.size()));
    const size_t nodeSlots = nodes.size() + 1;  // root, the zero pair half, the others
    std::vector<LumKDTreeNode> block(nodeSlots + listEntries / 2 + 2, LumKDTreeNode{0, 0});
    Lum32s* cursor = reinterpret_cast<Lum32s*>(block.data() + nodeSlots);
    size_t nextPair = 2;
    std::function<void(int, LumKDTreeNode*)> write = [&](int id, LumKDTreeNode* at) {
        const TNode& t = nodes[id];
        if (t.axis < 0) {
            ownWriteLeaf(at, t.tris.data(), Lum32s(t.tris.size()), cursor);
            return;
        }
        LumKDTreeNode* pair = block.data() + nextPair;
        nextPair += 2;
        ownWriteInterior(at, t.axis, reinterpret_cast<char*>(pair) - reinterpret_cast<char*>(at),
                         t.split);
        write(t.lo, pair);
        write(t.hi, pair + 1);
    };
    write(0, block.data());
    return block;
}
