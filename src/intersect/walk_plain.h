// One ray at a time: the KD-tree walk and the triangle test shared by every
// intersection entry point's plain body.  What differs between the entry
// points (the slack of the near/far decision, which triangles are skipped,
// what counts as a hit and what a hit does) is supplied by a Hits policy:
//
//   static constexpr Lum32f kSlack;      near/far slack of the walk
//   bool leafTriangle(ray, record, n);   test one triangle; true leaves the leaf
//   Lum32f limit() const;                a stretch ending at or past this is last
//
// The walk is the same for all of them: near child first, the far child
// pushed with the current exit, and after a leaf the next stretch only if
// it can still hold something nearer than the limit.
#pragma once

#include <cmath>

#include "kdtree/block.h"
#include "rays/triangle_accel.h"

// The walk's stack has exactly as many entries as a tree may be deep; the
// build's depth limit is what keeps it from overflowing.
constexpr int kWalkStackDepth = 50;

struct OwnRay {
    Lum32f o[3];    // origin
    Lum32f d[3];    // direction
    Lum32f r[3];    // per-axis reciprocal used by the walk
    int sign[3];    // 1 where the walk treats the axis as negative: near = children[sign]
};

// min and max written as the comparisons the walk states, so a NaN falls
// the same way in the plain and packet bodies (the second operand wins).
inline Lum32f ownMin(Lum32f a, Lum32f b) { return a < b ? a : b; }
inline Lum32f ownMax(Lum32f a, Lum32f b) { return a > b ? a : b; }

// The terms of the triangle test.  U, V and W are the barycentric weights of
// the first, second and third vertex, each times det; num / det is the
// distance.  The sums run in the order written.
struct OwnPlainTri {
    Lum32f det, num, U, V, W;
};

inline Lum32f ownTriDet(const OwnRay& ray, const LumTriangleAccel& R, const OwnAccelAxes& ax) {
    return (R.nP * ray.d[ax.p] + R.nQ * ray.d[ax.q]) + ray.d[ax.w];
}

inline OwnPlainTri ownTriTerms(const OwnRay& ray, const LumTriangleAccel& R,
                               const OwnAccelAxes& ax, Lum32f det) {
    OwnPlainTri h;
    h.det = det;
    const Lum32f a = R.baseP - ray.o[ax.p];
    const Lum32f b = R.baseQ - ray.o[ax.q];
    h.num = ((R.baseW + R.nP * a) + R.nQ * b) - ray.o[ax.w];
    const Lum32f dp = ray.d[ax.p] * h.num - a * det;
    const Lum32f dq = ray.d[ax.q] * h.num - b * det;
    h.U = R.e2Q * dp - R.e2P * dq;
    h.V = R.e1P * dq - R.e1Q * dp;
    h.W = (det - h.U) - h.V;
    return h;
}

// Inside when no two weights have opposite signs: edges and vertices count,
// both faces are hit, and a NaN product fails.
inline bool ownInsidePairs(const OwnPlainTri& h) {
    return h.W * h.U >= 0.0f && h.U * h.V >= 0.0f && h.W * h.V >= 0.0f;
}

template <class Hits>
void ownWalkPlain(const OwnRay& ray, Lum32f tMin, Lum32f tMax, const LumKDTreeNode* root,
                  const LumTriangleAccel* accel, Hits& hits) {
    struct Entry {
        const LumKDTreeNode* node;
        Lum32f tMax;
    } stack[kWalkStackDepth];
    int top = 0;
    // The signs as bits of one register: the next node's address then
    // follows from the node word by shifts alone, with no load between.
    const unsigned signBits = unsigned(ray.sign[0]) | unsigned(ray.sign[1]) << 1 |
                              unsigned(ray.sign[2]) << 2;
    const LumKDTreeNode* node = root;
    for (;;) {
        while (!ownNodeIsLeaf(node)) {
            const int axis = ownNodeAxis(node);
            const Lum32f ts = (ownNodeSplit(node) - ray.o[axis]) * ray.r[axis];
            const LumKDTreeNode* pair = ownNodeChildren(node);
            const unsigned nearSide = (signBits >> axis) & 1u;
            const LumKDTreeNode* nearChild = pair + nearSide;
            const LumKDTreeNode* farChild = pair + (nearSide ^ 1u);
            if (tMin - ts > Hits::kSlack) {
                node = farChild;
            } else if (ts - tMax > Hits::kSlack) {
                node = nearChild;
            } else {
                stack[top++] = {farChild, tMax};
                tMax = ownMax(tMin, ownMin(ts, tMax));
                node = nearChild;
            }
        }
        const OwnLeafTriangles tris = ownLeafTriangles(node);
        for (Lum32s k = 0; k < tris.count; ++k) {
            const Lum32s n = tris[k];
            const LumTriangleAccel& R = accel[n];
            if (ownAccelIsDegenerate(R)) continue;
            if (hits.leafTriangle(ray, R, n)) break;
        }
        if (top == 0) return;
        // A hit before the end of the stretch just tested cannot be beaten
        // by anything behind it.
        if (tMax >= hits.limit()) return;
        --top;
        tMin = tMax;
        node = stack[top].node;
        tMax = stack[top].tMax;
    }
}
