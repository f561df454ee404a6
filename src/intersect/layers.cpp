// Successive hits along each ray: lumrIntersectMultipleSO_32f.  A hit is
// found, the ray restarts from it, and the next hit goes to the next layer
// of the outputs.  The walks are the shared ones; the columns of
// OwnRowLayers and the hooks below are all that set this search apart.
#include <cmath>
#include <limits>

#include "frame/own.h"
#include "frame/vec4.h"
#include "intersect/rows.h"

namespace {

constexpr Lum32f kFar = 3.4028235e38f;  // the distance a later layer starts from

struct LayerStreams {
    const Lum32f* origin;
    const LumPlanes3* dir;
    Lum32f* dist;
    Lum32f* const* hit;
    Lum32s* tri;
    const LumRayScene* scene;
    Lum32s width, height, depth;
    std::ptrdiff_t plane() const { return std::ptrdiff_t(width) * height; }
};

// ---- Plain body ------------------------------------------------------------------

struct PlainLayer {
    static constexpr Lum32f kSlack = OwnRowLayers::kSlack;
    Lum32f* dist;
    Lum32f* u;
    Lum32f* v;
    Lum32s* tri;
    Lum32s previous;       // the last layer's triangle
    const Lum32s* found;   // triangles of the layers since the last multiple of 8
    int foundCount;

    bool leafTriangle(const OwnRay& ray, const LumTriangleAccel& R, Lum32s n) {
        if (n == previous) return false;
        const OwnAccelAxes ax = ownAccelAxes(R);
        const OwnPlainTri h = ownTriTerms(ray, R, ax, ownTriDet(ray, R, ax));
        if (!ownInsidePairs(h)) return false;
        const Lum32f t = h.num / h.det;
        if (!(*dist > t && t > 0.0f)) return false;
        for (int k = 0; k < foundCount; ++k)
            if (found[k] == n) return false;
        *dist = t;
        *u = h.U / h.det;
        *v = h.V / h.det;
        *tri = n;
        return false;
    }
    Lum32f limit() const { return *dist; }
};

// Exit of the box from the ray's current origin: the smallest far-side
// distance over x, y, z, no slab test.
inline Lum32f localExit(const Lum32f* box, const OwnRay& ray) {
    Lum32f m = kFar;
    for (int a = 0; a < 3; ++a) {
        const Lum32f t1 = (box[a] - ray.o[a]) * ray.r[a];
        const Lum32f t2 = (box[3 + a] - ray.o[a]) * ray.r[a];
        m = ownMin(m, ownMax(t1, t2));
    }
    return kBoxExitPad + m;
}

void localLayersPlain(const LayerStreams& s) {
    const Lum32f* box = s.scene->pBound;
    Lum32f shifted[6];
    for (int k = 0; k < 6; ++k) shifted[k] = box[k] - s.origin[k % 3];
    const std::ptrdiff_t plane = s.plane();
    for (std::ptrdiff_t i = 0; i < plane; ++i) {
        OwnRay ray;
        for (int a = 0; a < 3; ++a) ray.o[a] = s.origin[a];
        ray.d[0] = s.dir->X[i], ray.d[1] = s.dir->Y[i], ray.d[2] = s.dir->Z[i];
        Lum32f tMin = 0.0f, tMax = s.dist[i];
        if (!ownSlabPlain<OwnSlab::SharedDivision>(box, shifted, ray, tMin, tMax)) continue;
        tMax += kBoxExitPad;
        // Deliberate: the list of found triangles has eight places and is
        // forgotten whenever the layer number passes a multiple of 8, so a
        // triangle met in several leaves can come back after eight layers.
        Lum32s found[8] = {-1, -1, -1, -1, -1, -1, -1, -1};
        Lum32s previous = -1;
        for (Lum32s layer = 0;; ++layer) {
            const std::ptrdiff_t at = layer * plane + i;
            PlainLayer hits{s.dist + at, s.hit[0] + at, s.hit[1] + at, s.tri + at,
                            previous, found, int(layer & 7)};
            ownWalkPlain(ray, tMin, tMax, s.scene->pRoot, s.scene->pAccel, hits);
            if (s.tri[at] < 0) break;
            const Lum32f t = s.dist[at];
            for (int a = 0; a < 3; ++a) ray.o[a] = ray.o[a] + t * ray.d[a];
            // Each walk ran from the previous hit; every layer's distance is
            // reported from the shared origin.
            if (layer >= 1) s.dist[at] = t + s.dist[at - plane];
            found[layer & 7] = s.tri[at];
            previous = s.tri[at];
            if (layer + 1 >= s.depth) break;
            s.tri[at + plane] = -1;
            s.dist[at + plane] = kFar;  // the caller's limit holds for layer 0 only
            tMin = 0.0f;
            tMax = localExit(box, ray);
        }
    }
}

// ---- Packet body -----------------------------------------------------------------

inline __m256 localEqualInt(__m256 a, Lum32s n) {
    const __m128i v = _mm_set1_epi32(n);
    const __m128i lo = _mm_cmpeq_epi32(_mm_castps_si128(_mm256_castps256_ps128(a)), v);
    const __m128i hi = _mm_cmpeq_epi32(_mm_castps_si128(_mm256_extractf128_ps(a, 1)), v);
    return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_castsi128_ps(lo)), _mm_castsi128_ps(hi), 1);
}

struct PacketLayer {
    __m256 t, u, v, tri;
    const __m256* found;  // four per lane, compared all four at each test

    bool leafTriangle(const OwnPacket& pk, const LumTriangleAccel& R, Lum32s n, __m256&) {
        OwnPacketTri h;
        if (!ownTriPacket(pk, R, h)) return false;
        __m256 take =
            _mm256_and_ps(ownLt8(h.t, t), _mm256_cmp_ps(h.t, _mm256_setzero_ps(), _CMP_GT_OQ));
        if (!ownAny8(take)) return false;
        for (int k = 0; k < 4; ++k) take = _mm256_andnot_ps(localEqualInt(found[k], n), take);
        t = ownSelect8(take, h.t, t);
        u = ownSelect8(take, h.u, u);
        v = ownSelect8(take, h.v, v);
        tri = ownSelect8(take, ownIntBits8(n), tri);
        return false;
    }
    __m256 resume(__m256 tMax) const { return ownLt8(tMax, t); }
};

struct LayerTiles {
    const LayerStreams& s;

    template <class T>
    T* at(T* plane, Lum32s layer, Lum32s row, Lum32s col) const {
        return plane + layer * s.plane() + std::ptrdiff_t(row) * s.width + col;
    }

    bool begin(Lum32s row, Lum32s col) const {
        const __m256 zero = _mm256_setzero_ps();
        for (int k = 0; k < 4; k += 2) {
            const __m256 d = ownLoadRows(at(s.dist, 0, row + k, col), at(s.dist, 0, row + k + 1, col));
            if (ownAny8(_mm256_cmp_ps(d, zero, _CMP_GT_OQ))) return true;
        }
        return false;
    }

    // Reads the low four lanes from `row` and, for two rows, the high four
    // from the next row; one row leaves the high lanes 0.
    template <class T>
    __m256 load(T* plane, Lum32s layer, Lum32s row, Lum32s col, bool two) const {
        return two ? ownLoadRows(at(plane, layer, row, col), at(plane, layer, row + 1, col))
                   : ownLoadRow(at(plane, layer, row, col));
    }
    template <class T>
    void store(T* plane, Lum32s layer, Lum32s row, Lum32s col, bool two, __m256 v,
               __m256 lanes) const {
        ownStoreRowMasked(at(plane, layer, row, col), v, lanes);
        if (two)
            ownStoreRowMasked(at(plane, layer, row + 1, col), _mm256_permute2f128_ps(v, v, 1),
                              _mm256_permute2f128_ps(lanes, lanes, 1));
    }

    template <class Recent>
    void walk(Lum32s row, Lum32s col, int octant, __m256 lanes, bool two) const {
        OwnPacket pk;
        const Lum32f* const dirs[3] = {s.dir->X, s.dir->Y, s.dir->Z};
        for (int a = 0; a < 3; ++a) {
            pk.d[a] = load(dirs[a], 0, row, col, two);
            pk.o[a] = _mm256_set1_ps(s.origin[a]);
        }
        ownPacketReciprocals<OwnRowLayers>(pk, octant, two);
        const __m256 dist0 = load(s.dist, 0, row, col, two);
        __m256 tMin, tMax = _mm256_and_ps(dist0, lanes);
        __m256 active = ownBoxPacket(pk, s.scene->pBound, tMin, tMax);
        if (!ownAny8(active)) return;
        tMax = _mm256_add_ps(tMax, _mm256_set1_ps(kBoxExitPad));

        const __m256 none = ownIntBits8(-1);
        __m256 found[4] = {none, none, none, none};
        __m256 in = lanes;  // lanes still in the packet
        const __m256 inert = _mm256_set1_ps(-std::numeric_limits<Lum32f>::infinity());
        __m256 startT = dist0;
        for (Lum32s layer = 0;; ++layer) {
            PacketLayer hits{ownSelect8(in, startT, inert), _mm256_setzero_ps(),
                             _mm256_setzero_ps(), load(s.tri, layer, row, col, two), found};
            ownWalkPacket<PacketLayer, Recent>(pk, tMin, tMax, active, s.scene->pRoot,
                                               s.scene->pAccel, hits);
            store(s.dist, layer, row, col, two, hits.t, in);
            store(s.hit[0], layer, row, col, two, hits.u, in);
            store(s.hit[1], layer, row, col, two, hits.v, in);
            store(s.tri, layer, row, col, two, hits.tri, in);
            // Lanes that found nothing leave the packet.
            const __m128i triLo = _mm_castps_si128(_mm256_castps256_ps128(hits.tri));
            const __m128i triHi = _mm_castps_si128(_mm256_extractf128_ps(hits.tri, 1));
            const __m256 missed = _mm256_insertf128_ps(
                _mm256_castps128_ps256(_mm_castsi128_ps(_mm_cmplt_epi32(triLo, _mm_setzero_si128()))),
                _mm_castsi128_ps(_mm_cmplt_epi32(triHi, _mm_setzero_si128())), 1);
            in = _mm256_andnot_ps(missed, in);
            if (!ownAny8(in)) return;
            // Every layer's distance, the last included, is reported from
            // the shared origin.
            if (layer >= 1) {
                const __m256 sum = _mm256_add_ps(hits.t, load(s.dist, layer - 1, row, col, two));
                store(s.dist, layer, row, col, two, sum, in);
            }
            if (layer + 1 >= s.depth) return;
            for (int a = 0; a < 3; ++a)
                pk.o[a] = ownSelect8(
                    in, _mm256_add_ps(pk.o[a], _mm256_mul_ps(hits.t, pk.d[a])), pk.o[a]);
            found[layer & 3] = ownSelect8(in, hits.tri, found[layer & 3]);
            store(s.tri, layer + 1, row, col, two, none, in);
            store(s.dist, layer + 1, row, col, two, _mm256_set1_ps(kFar), in);
            startT = _mm256_set1_ps(kFar);
            // Restart from the hit: tMin 0, tMax the box exit, no slab test.
            __m256 m = _mm256_set1_ps(kFar);
            for (int a = 0; a < 3; ++a) {
                const Lum32f* box = s.scene->pBound;
                const __m256 t1 = _mm256_mul_ps(_mm256_sub_ps(_mm256_set1_ps(box[a]), pk.o[a]), pk.r[a]);
                const __m256 t2 =
                    _mm256_mul_ps(_mm256_sub_ps(_mm256_set1_ps(box[3 + a]), pk.o[a]), pk.r[a]);
                m = _mm256_min_ps(m, _mm256_max_ps(t1, t2));
            }
            tMin = _mm256_setzero_ps();
            tMax = _mm256_and_ps(_mm256_add_ps(_mm256_set1_ps(kBoxExitPad), m), in);
            active = in;
        }
    }

    void eight(Lum32s row, Lum32s col, int octant) const {
        walk<OwnRecentRing>(row, col, octant, _mm256_castsi256_ps(_mm256_set1_epi32(-1)), true);
    }
    void four(Lum32s row, Lum32s col, int octant, int lanes) const {
        walk<OwnRecentNone>(row, col, octant, ownLaneMask(lanes), false);
    }
};

}  // namespace

// No pointer is checked; the size is read through its pointer and not changed.
LUMR_EXPORT LumStatus lumrIntersectMultipleSO_32f(const Lum32f pOrigin[3],
                                                  const LumPlanes3* pDirection, Lum32f* pDist,
                                                  Lum32f* pHit[2], Lum32s* pTrngl,
                                                  const LumVolume* roi, const LumRayScene* pScene) {
    const LayerStreams s{pOrigin, pDirection, pDist, pHit, pTrngl, pScene,
                         roi->width, roi->height, roi->depth};
    // Sizes below 1 do nothing (two negative extents would otherwise make a
    // positive count).  A depth below 1 leaves no layer to write into, so
    // nothing is computed rather than writing past the caller's layers.
    if (s.height < 1 || s.width < 1 || s.depth < 1) return lumStatusOk;
    const std::ptrdiff_t total = s.plane() * s.depth;
    for (std::ptrdiff_t i = 0; i < total; ++i) pTrngl[i] = -1;
    const bool packet = (s.width & 3) == 0 && (s.height & 3) == 0 && ownIsAligned16(pDist) &&
                        ownIsAligned16(pDirection) && ownIsAligned16(pHit[0]) &&
                        ownIsAligned16(pHit[1]) && ownIsAligned16(pTrngl);
    if (packet) {
        LayerTiles body{s};
        ownForTiles(s.width, s.height, *pDirection, body);
    } else {
        localLayersPlain(s);
    }
    return lumStatusOk;
}
