// Triangle records and the scene box: what a mesh becomes before rays meet it.
//
// A record sees its triangle along the dominant axis w of its normal N, with
// everything pre-divided by N[w], so that the ray test needs neither a cross
// product nor a division by the normal.  All arithmetic is done in double on
// coordinates widened from float, and each field is rounded to float once.
#include <cmath>
#include <cstring>

#include "frame/own.h"

namespace {

// Double-precision epsilon: the absolute threshold under which both
// off-axis normal components count as zero.
constexpr Lum64f kAxisAlignedEps = 2.220446049250313e-16;
constexpr Lum32u kAxisAlignedBit = 0x80000000u;

// (w, p, q, s) per dominant axis.  The sign flips on y so that the weights
// of all three forms come out with one formula in the kernels.
struct LocalAxes {
    int w, p, q;
    Lum64f s;
};
constexpr LocalAxes kAxes[3] = {{0, 1, 2, 1.0}, {1, 0, 2, -1.0}, {2, 0, 1, 1.0}};

void localOneRecord(LumTriangleAccel* r, const Lum32f* pVertices, const Lum32s* tri) {
    const Lum32f* va = pVertices + 3 * std::ptrdiff_t(tri[0]);
    const Lum32f* vb = pVertices + 3 * std::ptrdiff_t(tri[1]);
    const Lum32f* vc = pVertices + 3 * std::ptrdiff_t(tri[2]);
    Lum64f c[3], e1[3], e2[3];
    for (int k = 0; k < 3; ++k) {
        c[k] = vc[k];
        e1[k] = Lum64f(va[k]) - c[k];
        e2[k] = Lum64f(vb[k]) - c[k];
    }
    const Lum64f n[3] = {e1[1] * e2[2] - e1[2] * e2[1], e1[2] * e2[0] - e2[2] * e1[0],
                         e2[1] * e1[0] - e1[1] * e2[0]};

    // Strict comparisons only: a tie goes to the lower axis.
    int w = 0;
    if (std::fabs(n[1]) > std::fabs(n[0])) w = 1;
    if (std::fabs(n[2]) > std::fabs(n[w])) w = 2;
    // A NaN in N[w] does not compare equal to 0 and goes on as a usable
    // record; the kernels then fail its comparisons on their own.
    if (std::fabs(n[w]) == 0.0) {
        std::memset(r, 0, sizeof *r);
        return;
    }
    const LocalAxes& ax = kAxes[w];
    const Lum64f inv = 1.0 / n[w];

    Lum32u code = Lum32u(ax.w * 16 + ax.p * 4 + ax.q);
    // Deliberate: the test is absolute, on the unscaled normal, so only
    // planes that are axis-aligned to the last bit of a double get the flag
    // and exact zeros; nothing downstream acts on the flag.
    if (std::fabs(n[ax.q]) < kAxisAlignedEps && std::fabs(n[ax.p]) < kAxisAlignedEps) {
        r->nP = 0.0f;
        r->nQ = 0.0f;
        code |= kAxisAlignedBit;
    } else {
        r->nP = Lum32f(inv * n[ax.p]);
        r->nQ = Lum32f(inv * n[ax.q]);
    }
    r->baseW = Lum32f(c[ax.w]);
    r->baseP = Lum32f(c[ax.p]);
    r->baseQ = Lum32f(c[ax.q]);
    const Lum64f f = ax.s * inv;
    r->e2P = Lum32f(f * e2[ax.p]);
    r->e2Q = Lum32f(f * e2[ax.q]);
    r->e1P = Lum32f(f * e1[ax.p]);
    r->e1Q = Lum32f(f * e1[ax.q]);
    r->axisCode = code;
}

}  // namespace

LUMR_EXPORT LumStatus lumrTriangleAccelGetSize(Lum32s* pSize) {
    if (!pSize) return lumStatusNullPtr;
    *pSize = Lum32s(sizeof(LumTriangleAccel));
    return lumStatusOk;
}

// No pointer is checked: the records are built on the caller's word, and
// vertex numbers are not range-checked either.
LUMR_EXPORT LumStatus lumrTriangleAccelInit(LumTriangleAccel* pAccel, const Lum32f* pVertices,
                                            const Lum32s* pTriangles, Lum32s count) {
    for (Lum32s i = 0; i < count; ++i)
        localOneRecord(pAccel + i, pVertices, pTriangles + 4 * std::ptrdiff_t(i));
    return lumStatusOk;
}

// pBound is not checked; only the vertex array is.
LUMR_EXPORT LumStatus lumrSetBoundBox_32f(const Lum32f* pVertices, Lum32s count, Lum32f* pBound) {
    if (!pVertices) return lumStatusNullPtr;
    constexpr Lum32f kBig = 3.4028235e38f;
    Lum32f lo[3] = {kBig, kBig, kBig}, hi[3] = {-kBig, -kBig, -kBig};
    for (Lum32s i = 0; i < count; ++i) {
        const Lum32f* v = pVertices + 3 * std::ptrdiff_t(i);
        for (int k = 0; k < 3; ++k) {
            // A NaN compares false both ways and so never replaces a bound.
            if (v[k] < lo[k]) lo[k] = v[k];
            if (v[k] > hi[k]) hi[k] = v[k];
        }
    }
    // Deliberate: the margin scales with the largest coordinate magnitude,
    // not with the box's extent, so a small model far from the origin gets a
    // wide margin and an empty scene keeps an inverted box.
    Lum32f big = 1.1754944e-38f;
    for (int k = 0; k < 3; ++k) {
        big = std::fmax(big, std::fabs(lo[k]));
        big = std::fmax(big, std::fabs(hi[k]));
    }
    const Lum32f m = 1e-4f * big;
    for (int k = 0; k < 3; ++k) {
        pBound[k] = lo[k] - m;
        pBound[3 + k] = hi[k] + m;
    }
    return lumStatusOk;
}
