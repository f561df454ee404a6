// Nearest hit: lumrIntersectMO_32f (an origin per ray) and
// lumrIntersectEyeSO_32f (one origin for all rays).  Both run the shared
// walks; their differences are the columns of OwnRowMO and OwnRowEye.
#include <cmath>
#include <limits>

#include "frame/own.h"
#include "frame/vec4.h"
#include "intersect/rows.h"

namespace {

// ---- Plain body ------------------------------------------------------------------

template <class Row>
struct PlainNearest {
    static constexpr Lum32f kSlack = Row::kSlack;
    Lum32f* dist;
    Lum32f* u;
    Lum32f* v;
    Lum32s* tri;

    bool leafTriangle(const OwnRay& ray, const LumTriangleAccel& R, Lum32s n) {
        // A triangle listed in several leaves is not tested again right
        // after it has won.
        if (Row::kSkipCurrentBest && n == *tri) return false;
        const OwnAccelAxes ax = ownAccelAxes(R);
        const Lum32f det = ownTriDet(ray, R, ax);
        if (std::fabs(det) < Row::kMinDet) return false;
        const OwnPlainTri h = ownTriTerms(ray, R, ax, det);
        if (!ownInsidePairs(h)) return false;
        const Lum32f t = h.num / det;
        // Among hits closer together than the slack the first found stays,
        // and t = 0 is never taken.
        if (*dist - Row::kAcceptSlack > t && t > 0.0f) {
            *dist = t;
            *u = h.U / det;
            *v = h.V / det;
            *tri = n;
        }
        return false;
    }
    Lum32f limit() const { return *dist; }
};

struct Streams {
    const LumPlanes3* origin;  // per-ray origins, or null
    const Lum32f* shared;      // the common origin, or null
    const LumPlanes3* dir;
    Lum32f* dist;
    Lum32f* const* hit;
    Lum32s* tri;
    const LumRayScene* scene;
    Lum32s width, height;
};

template <class Row>
void localNearestPlain(const Streams& s) {
    const Lum32f* box = s.scene->pBound;
    Lum32f shifted[6] = {};
    if (Row::kSlab == OwnSlab::SharedDivision)
        for (int k = 0; k < 6; ++k) shifted[k] = box[k] - s.shared[k % 3];
    const std::ptrdiff_t count = std::ptrdiff_t(s.width) * s.height;
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        s.tri[i] = -1;
        OwnRay ray;
        const Lum32f* const dirs[3] = {s.dir->X, s.dir->Y, s.dir->Z};
        for (int a = 0; a < 3; ++a) ray.d[a] = dirs[a][i];
        if (s.origin) {
            ray.o[0] = s.origin->X[i], ray.o[1] = s.origin->Y[i], ray.o[2] = s.origin->Z[i];
        } else {
            ray.o[0] = s.shared[0], ray.o[1] = s.shared[1], ray.o[2] = s.shared[2];
        }
        Lum32f tMin = 0.0f, tMax = s.dist[i];
        if (!ownSlabPlain<Row::kSlab>(box, shifted, ray, tMin, tMax)) continue;
        tMax += kBoxExitPad;
        PlainNearest<Row> hits{s.dist + i, s.hit[0] + i, s.hit[1] + i, s.tri + i};
        ownWalkPlain(ray, tMin, tMax, s.scene->pRoot, s.scene->pAccel, hits);
    }
}

// ---- Packet body -----------------------------------------------------------------

struct PacketNearest {
    __m256 t, u, v, tri;  // current best per lane; tri holds integer bits

    bool leafTriangle(const OwnPacket& pk, const LumTriangleAccel& R, Lum32s n, __m256&) {
        OwnPacketTri h;
        if (!ownTriPacket(pk, R, h)) return false;
        // Equal t keeps the first found; no slack here.
        const __m256 take =
            _mm256_and_ps(ownLt8(h.t, t), _mm256_cmp_ps(h.t, _mm256_setzero_ps(), _CMP_GT_OQ));
        t = ownSelect8(take, h.t, t);
        u = ownSelect8(take, h.u, u);
        v = ownSelect8(take, h.v, v);
        tri = ownSelect8(take, ownIntBits8(n), tri);
        return false;
    }
    __m256 resume(__m256 tMax) const { return ownLt8(tMax, t); }
};

template <class Row>
struct NearestTiles {
    const Streams& s;

    const Lum32f* at(const Lum32f* plane, Lum32s row, Lum32s col) const {
        return plane + std::ptrdiff_t(row) * s.width + col;
    }
    template <class T>
    T* at(T* plane, Lum32s row, Lum32s col) const {
        return plane + std::ptrdiff_t(row) * s.width + col;
    }

    bool begin(Lum32s row, Lum32s col) const {
        if (Row::kTileSkip == OwnTileSkip::Never) return true;
        // A NaN counts as not above 0.
        const __m256 zero = _mm256_setzero_ps();
        for (int k = 0; k < 4; k += 2) {
            const __m256 dist = ownLoadRows(at(s.dist, row + k, col), at(s.dist, row + k + 1, col));
            if (ownAny8(_mm256_cmp_ps(dist, zero, _CMP_GT_OQ))) return true;
        }
        return false;
    }

    void eight(Lum32s row, Lum32s col, int octant) const {
        OwnPacket pk;
        loadRaysAt(pk, row, col, true);
        ownPacketReciprocals<Row>(pk, octant, true);
        __m256 tMin, tMax = ownLoadRows(at(s.dist, row, col), at(s.dist, row + 1, col));
        PacketNearest hits{tMax, _mm256_setzero_ps(), _mm256_setzero_ps(),
                           ownLoadRows(at(s.tri, row, col), at(s.tri, row + 1, col))};
        const __m256 active = ownBoxPacket(pk, s.scene->pBound, tMin, tMax);
        // No active lane: nothing at all is written for this walk.
        if (!ownAny8(active)) return;
        tMax = _mm256_add_ps(tMax, _mm256_set1_ps(kBoxExitPad));
        ownWalkPacket<PacketNearest, OwnRecentRing>(pk, tMin, tMax, active, s.scene->pRoot,
                                                    s.scene->pAccel, hits);
        ownStoreRows(at(s.dist, row, col), at(s.dist, row + 1, col), hits.t);
        ownStoreRows(at(s.hit[0], row, col), at(s.hit[0], row + 1, col), hits.u);
        ownStoreRows(at(s.hit[1], row, col), at(s.hit[1], row + 1, col), hits.v);
        ownStoreRows(at(s.tri, row, col), at(s.tri, row + 1, col), hits.tri);
    }

    void four(Lum32s row, Lum32s col, int octant, int lanes) const {
        OwnPacket pk;
        loadRaysAt(pk, row, col, false);
        ownPacketReciprocals<Row>(pk, octant, false);
        const __m256 mask = ownLaneMask(lanes);
        const __m256 low = ownLaneMask(0xF);
        const __m256 dist = ownLoadRow(at(s.dist, row, col));
        // The high lanes are inert: a best of -inf accepts nothing and
        // keeps them from ever becoming active.
        const __m256 best =
            ownSelect8(low, dist, _mm256_set1_ps(-std::numeric_limits<Lum32f>::infinity()));
        __m256 tMin, tMax = _mm256_and_ps(dist, mask);  // lanes outside the mask start at 0
        PacketNearest hits{best, _mm256_setzero_ps(), _mm256_setzero_ps(),
                           ownLoadRow(at(s.tri, row, col))};
        const __m256 active = ownBoxPacket(pk, s.scene->pBound, tMin, tMax);
        if (!ownAny8(active)) return;
        tMax = _mm256_add_ps(tMax, _mm256_set1_ps(kBoxExitPad));
        ownWalkPacket<PacketNearest, OwnRecentNone>(pk, tMin, tMax, active, s.scene->pRoot,
                                                    s.scene->pAccel, hits);
        ownStoreRowMasked(at(s.dist, row, col), hits.t, mask);
        ownStoreRowMasked(at(s.hit[0], row, col), hits.u, mask);
        ownStoreRowMasked(at(s.hit[1], row, col), hits.v, mask);
        ownStoreRowMasked(at(s.tri, row, col), hits.tri, mask);
    }

    void loadRaysAt(OwnPacket& pk, Lum32s row, Lum32s col, bool eightRay) const {
        const Lum32f* const dirs[3] = {s.dir->X, s.dir->Y, s.dir->Z};
        for (int a = 0; a < 3; ++a) {
            pk.d[a] = eightRay ? ownLoadRows(at(dirs[a], row, col), at(dirs[a], row + 1, col))
                               : ownLoadRow(at(dirs[a], row, col));
            if (s.origin) {
                const Lum32f* const os[3] = {s.origin->X, s.origin->Y, s.origin->Z};
                pk.o[a] = eightRay ? ownLoadRows(at(os[a], row, col), at(os[a], row + 1, col))
                                   : ownLoadRow(at(os[a], row, col));
            } else {
                pk.o[a] = _mm256_set1_ps(s.shared[a]);
            }
        }
    }
};

template <class Row>
void localNearestPacket(const Streams& s) {
    const std::ptrdiff_t count = std::ptrdiff_t(s.width) * s.height;
    for (std::ptrdiff_t i = 0; i < count; ++i) s.tri[i] = -1;
    NearestTiles<Row> body{s};
    ownForTiles(s.width, s.height, *s.dir, body);
}

template <class Row>
void localNearest(const Streams& s, bool packet) {
    if (packet)
        localNearestPacket<Row>(s);
    else
        localNearestPlain<Row>(s);
}

}  // namespace

// No pointer is checked, and triangle numbers in the tree are trusted to
// index the record array.
LUMR_EXPORT LumStatus lumrIntersectMO_32f(const LumPlanes3* pOrigin, const LumPlanes3* pDirection,
                                          Lum32f* pDist, Lum32f* pHit[2], Lum32s* pTrngl,
                                          const LumRayScene* pScene, LumRect2D roi) {
    if (roi.width < 1 || roi.height < 1) return lumStatusOk;
    const Streams s{pOrigin, nullptr, pDirection, pDist, pHit, pTrngl, pScene, roi.width, roi.height};
    const bool packet = (roi.width & 3) == 0 && (roi.height & 3) == 0 &&
                        ownIsAligned16(pOrigin) && ownIsAligned16(pDist) &&
                        ownIsAligned16(pDirection) && ownIsAligned16(pHit[0]) &&
                        ownIsAligned16(pHit[1]) && ownIsAligned16(pTrngl);
    localNearest<OwnRowMO>(s, packet);
    return lumStatusOk;
}

// As above; the shared origin needs no alignment.
LUMR_EXPORT LumStatus lumrIntersectEyeSO_32f(const Lum32f pOrigin[3], const LumPlanes3* pDirection,
                                             Lum32f* pDist, Lum32f* pHit[2], Lum32s* pTrngl,
                                             const LumRayScene* pScene, LumRect2D roi) {
    if (roi.width < 1 || roi.height < 1) return lumStatusOk;
    const Streams s{nullptr, pOrigin, pDirection, pDist, pHit, pTrngl, pScene, roi.width, roi.height};
    const bool packet = (roi.width & 3) == 0 && (roi.height & 3) == 0 &&
                        ownIsAligned16(pDist) && ownIsAligned16(pDirection) &&
                        ownIsAligned16(pHit[0]) && ownIsAligned16(pHit[1]) &&
                        ownIsAligned16(pTrngl);
    localNearest<OwnRowEye>(s, packet);
    return lumStatusOk;
}
