// Any hit: lumrIntersectAnySO_32f, the shadow question.  Each ray spans a
// segment from the common origin (t = 0) to its surface point (t = 1); the
// walk stops at the first blocker, which need not be the nearest, and a
// blocked ray's mask turns negative.  The box is not used: every walk starts
// at tMin = 0, tMax = 1.0001.  The walks are the shared ones; this file holds
// the any-hit hooks, the seed ray and the per-tile cache of the last blocker.
#include <cmath>

#include "frame/own.h"
#include "frame/vec4.h"
#include "intersect/rows.h"

namespace {

constexpr Lum32f kReach = 1.0001f;  // 0x3F800347: the walk's first tMax
constexpr Lum32f kSeedSlack = 1.1920929e-7f;

struct AnyStreams {
    const Lum32f* origin;
    const LumPlanes3* dir;
    Lum32s* occ;
    Lum32s* mask;
    const LumRayScene* scene;
    Lum32s width, height;
};

// Reciprocals and signs of the plain walks.
// Deliberate: the sign follows d even for a near-zero component, while the
// reciprocal is then a positive constant, so such a ray with a tiny negative
// component takes the high child as near.
OwnRay localPlainRay(const Lum32f* o, const LumPlanes3& dir, std::ptrdiff_t i) {
    OwnRay ray;
    const Lum32f* const dirs[3] = {dir.X, dir.Y, dir.Z};
    for (int a = 0; a < 3; ++a) {
        ray.o[a] = o[a];
        ray.d[a] = dirs[a][i];
        ray.sign[a] = ray.d[a] >= 0.0f ? 0 : 1;
        ray.r[a] = std::fabs(ray.d[a]) <= kParallelLimit ? 83886.08f : 1.0f / ray.d[a];
    }
    return ray;
}

// ---- Plain body ------------------------------------------------------------------

struct PlainAny {
    static constexpr Lum32f kSlack = OwnRowAny::kSlack;
    Lum32s* occ;
    Lum32s* mask;
    Lum32f limitT = 1.0f;

    bool leafTriangle(const OwnRay& ray, const LumTriangleAccel& R, Lum32s n) {
        if (n == *occ) return false;
        const OwnAccelAxes ax = ownAccelAxes(R);
        const OwnPlainTri h = ownTriTerms(ray, R, ax, ownTriDet(ray, R, ax));
        if (!ownInsidePairs(h)) return false;
        const Lum32f t = h.num / h.det;
        if (!(t < limitT && t > 0.0f)) return false;
        *mask = -1;
        *occ = n;
        limitT = 0.0f;  // no stretch can end below 0: the walk is over
        return true;
    }
    Lum32f limit() const { return limitT; }
};

void localAnyPlain(const AnyStreams& s) {
    const std::ptrdiff_t count = std::ptrdiff_t(s.width) * s.height;
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        s.occ[i] = -1;  // also for rays that are already dark
        if (s.mask[i] < 0) continue;
        const OwnRay ray = localPlainRay(s.origin, *s.dir, i);
        PlainAny hits{s.occ + i, s.mask + i};
        ownWalkPlain(ray, 0.0f, kReach, s.scene->pRoot, s.scene->pAccel, hits);
    }
}

// ---- The seed: nearest blocker of one ray -------------------------------------------

// The plain walk, going on after a hit and keeping the nearest.  Its inside
// test is its own: the three weights all non-negative or all negative.
struct SeedNearest {
    static constexpr Lum32f kSlack = OwnRowAny::kSlack;
    Lum32f best = 1.0f;
    Lum32s tri = -1;

    bool leafTriangle(const OwnRay& ray, const LumTriangleAccel& R, Lum32s n) {
        const OwnAccelAxes ax = ownAccelAxes(R);
        const OwnPlainTri h = ownTriTerms(ray, R, ax, ownTriDet(ray, R, ax));
        const bool inside = (h.U >= 0.0f && h.V >= 0.0f && h.W >= 0.0f) ||
                            (h.U < 0.0f && h.V < 0.0f && h.W < 0.0f);
        if (!inside) return false;
        const Lum32f t = h.num / h.det;
        if (best - kSeedSlack > t && t > 0.0f) {
            best = t;
            tri = n;
        }
        return false;
    }
    Lum32f limit() const { return best; }
};

// ---- Packet body -----------------------------------------------------------------

// Blocks lanes that are still alive.  The eight-ray walk blends the number
// into the occluder rows as it goes; the four-ray walk rewrites its whole row
// at each blocking triangle (hit lanes the number, others 0), and only the
// lanes it blocked take that row at the end.
enum class OccluderRow { Blend, Overwrite };

template <OccluderRow kRow>
struct PacketAny {
    __m256 alive;
    __m256 occ;               // occluder values as integer bits
    __m256 blocked = _mm256_setzero_ps();

    bool leafTriangle(const OwnPacket& pk, const LumTriangleAccel& R, Lum32s n, __m256& active) {
        OwnPacketTri h;
        if (!ownTriPacket(pk, R, h)) return false;
        const __m256 hit = _mm256_and_ps(
            _mm256_and_ps(h.inside, alive),
            _mm256_and_ps(ownLt8(h.t, _mm256_set1_ps(1.0f)),
                          _mm256_cmp_ps(h.t, _mm256_setzero_ps(), _CMP_GT_OQ)));
        if (!ownAny8(hit)) return false;
        if (kRow == OccluderRow::Blend)
            occ = ownSelect8(hit, ownIntBits8(n), occ);
        else
            occ = _mm256_and_ps(ownIntBits8(n), hit);
        blocked = _mm256_or_ps(blocked, hit);
        alive = _mm256_andnot_ps(hit, alive);
        // A blocked lane no longer steers the walk.
        active = _mm256_andnot_ps(hit, active);
        return !ownAny8(alive);
    }
    // After a leaf every lane still alive is active again.
    __m256 resume(__m256) const { return alive; }
};

// All bits set in lanes whose mask is zero or more.
inline __m256 localLit(__m256 mask) {
    const __m128i ones = _mm_set1_epi32(-1);
    const __m128i lo = _mm_xor_si128(_mm_srai_epi32(_mm_castps_si128(_mm256_castps256_ps128(mask)), 31), ones);
    const __m128i hi = _mm_xor_si128(_mm_srai_epi32(_mm_castps_si128(_mm256_extractf128_ps(mask, 1)), 31), ones);
    return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_castsi128_ps(lo)), _mm_castsi128_ps(hi), 1);
}

struct AnyTiles {
    const AnyStreams& s;
    Lum32s cached;  // the triangle that blocked last, or -1

    Lum32s* at(Lum32s* plane, Lum32s row, Lum32s col) const {
        return plane + std::ptrdiff_t(row) * s.width + col;
    }
    const Lum32f* at(const Lum32f* plane, Lum32s row, Lum32s col) const {
        return plane + std::ptrdiff_t(row) * s.width + col;
    }

    void setup(OwnPacket& pk, Lum32s row, Lum32s col, int octant, bool two) const {
        const Lum32f* const dirs[3] = {s.dir->X, s.dir->Y, s.dir->Z};
        for (int a = 0; a < 3; ++a) {
            pk.d[a] = two ? ownLoadRows(at(dirs[a], row, col), at(dirs[a], row + 1, col))
                          : ownLoadRow(at(dirs[a], row, col));
            pk.o[a] = _mm256_set1_ps(s.origin[a]);
        }
        ownPacketReciprocals<OwnRowAny>(pk, octant, two);
    }

    // The cached blocker against the tile, two rows at a time, on lanes
    // whose mask is not negative.
    // Deliberate: row 0 writes only its blocked lanes, but a row below it in
    // which any tested lane is inside rewrites all four occluder entries:
    // blocked lanes the number, inside but out of range the bits of the
    // reciprocal estimate, outside 0.  pMask alone is the result.
    void tryCached(Lum32s row, Lum32s col) const {
        const LumTriangleAccel& R = s.scene->pAccel[cached];
        for (int k = 0; k < 4; k += 2) {
            OwnPacket pk;
            const Lum32f* const dirs[3] = {s.dir->X, s.dir->Y, s.dir->Z};
            for (int a = 0; a < 3; ++a) {
                pk.d[a] = ownLoadRows(at(dirs[a], row + k, col), at(dirs[a], row + k + 1, col));
                pk.o[a] = _mm256_set1_ps(s.origin[a]);
            }
            Lum32s* m0 = at(s.mask, row + k, col);
            Lum32s* m1 = at(s.mask, row + k + 1, col);
            Lum32s* o0 = at(s.occ, row + k, col);
            Lum32s* o1 = at(s.occ, row + k + 1, col);
            const __m256 mask = ownLoadRows(m0, m1);
            const __m256 on = localLit(mask);
            OwnPacketTri h;
            if (!ownTriPacket(pk, R, h)) continue;
            const __m256 inside = _mm256_and_ps(h.inside, on);
            const __m256 hit = _mm256_and_ps(
                inside, _mm256_and_ps(ownLt8(h.t, _mm256_set1_ps(1.0f)),
                                      _mm256_cmp_ps(h.t, _mm256_setzero_ps(), _CMP_GT_OQ)));
            const __m256 number = ownIntBits8(cached);
            ownStoreRows(m0, m1, ownSelect8(hit, ownIntBits8(-1), mask));
            const __m256 raw = ownSelect8(hit, number, _mm256_and_ps(h.r0, inside));
            const int insideBits = _mm256_movemask_ps(inside);
            const __m256 old = ownLoadRows(o0, o1);
            const __m256 kept = ownSelect8(hit, number, old);
            const __m256 lo = (k == 0 || !(insideBits & 0x0F)) ? kept : raw;
            const __m256 hi = (insideBits & 0xF0) ? raw : kept;
            _mm_store_ps(reinterpret_cast<Lum32f*>(o0), _mm256_castps256_ps128(lo));
            _mm_store_ps(reinterpret_cast<Lum32f*>(o1), _mm256_extractf128_ps(hi, 1));
        }
    }

    bool allDark(Lum32s row, Lum32s col) const {
        int dark = 0xFF;
        for (int k = 0; k < 4; k += 2)
            dark &= _mm256_movemask_ps(ownLoadRows(at(s.mask, row + k, col), at(s.mask, row + k + 1, col)));
        return dark == 0xFF;
    }

    bool begin(Lum32s row, Lum32s col) {
        for (int k = 0; k < 4; ++k) {
            Lum32s* o = at(s.occ, row + k, col);
            o[0] = o[1] = o[2] = o[3] = -1;
        }
        if (allDark(row, col)) return false;
        if (cached >= 0) {
            tryCached(row, col);
            if (allDark(row, col)) return false;
        }
        return true;
    }

    // Masks are not read: every lane of the pair is traced, dark or not.
    void eight(Lum32s row, Lum32s col, int octant) {
        OwnPacket pk;
        setup(pk, row, col, octant, true);
        Lum32s* o0 = at(s.occ, row, col);
        Lum32s* o1 = at(s.occ, row + 1, col);
        const __m256 all = _mm256_castsi256_ps(_mm256_set1_epi32(-1));
        PacketAny<OccluderRow::Blend> hits{all, ownLoadRows(o0, o1)};
        ownWalkPacket<PacketAny<OccluderRow::Blend>, OwnRecentNone>(
            pk, _mm256_setzero_ps(), _mm256_set1_ps(1.0f + 1e-4f), all, s.scene->pRoot,
            s.scene->pAccel, hits);
        ownStoreRows(o0, o1, hits.occ);
        Lum32s* m0 = at(s.mask, row, col);
        Lum32s* m1 = at(s.mask, row + 1, col);
        ownStoreRows(m0, m1, ownSelect8(_mm256_andnot_ps(hits.alive, all), ownIntBits8(-1),
                                        ownLoadRows(m0, m1)));
        // The cache follows the pair's second row: one fixed ray of it once
        // none of that row is still alive.
        cached = (_mm256_movemask_ps(hits.alive) & 0xF0) ? -1 : o1[2];
    }

    void four(Lum32s row, Lum32s col, int octant, int lanes) {
        OwnPacket pk;
        setup(pk, row, col, octant, false);
        const __m256 walkLanes = ownLaneMask(lanes);
        PacketAny<OccluderRow::Overwrite> hits{walkLanes, _mm256_setzero_ps()};
        ownWalkPacket<PacketAny<OccluderRow::Overwrite>, OwnRecentNone>(
            pk, _mm256_setzero_ps(), _mm256_and_ps(_mm256_set1_ps(kReach), walkLanes), walkLanes,
            s.scene->pRoot, s.scene->pAccel, hits);
        if (!ownAny8(hits.blocked)) return;
        // Deliberate: a lane blocked by an earlier triangle of this walk reads
        // 0 once a later triangle blocks others, since the row was rewritten.
        ownStoreRowMasked(at(s.occ, row, col), hits.occ, hits.blocked);
        ownStoreRowMasked(at(s.mask, row, col), ownIntBits8(-1), hits.blocked);
    }
};

Lum32s localSeed(const AnyStreams& s) {
    // The first lit ray of row 3, columns 0 to 3.
    for (Lum32s col = 0; col < 4; ++col) {
        const std::ptrdiff_t i = 3 * std::ptrdiff_t(s.width) + col;
        if (s.mask[i] < 0) continue;
        const OwnRay ray = localPlainRay(s.origin, *s.dir, i);
        SeedNearest seed;
        ownWalkPlain(ray, 0.0f, kReach, s.scene->pRoot, s.scene->pAccel, seed);
        return seed.tri;
    }
    return -1;
}

void localAnyPacket(const AnyStreams& s) {
    // The seed reads row 3 before the height is looked at; a grid without
    // four full rows (height 0 passes the gate) has no such row to read, and
    // the seed is skipped, which changes no output since no tile follows.
    AnyTiles body{s, s.height >= 4 && s.width >= 4 ? localSeed(s) : -1};
    ownForTiles(s.width, s.height, *s.dir, body);
}

}  // namespace

// No pointer is checked; the box of the scene is never read and may be null.
LUMR_EXPORT LumStatus lumrIntersectAnySO_32f(const Lum32f pOrigin[3], const LumPlanes3* pDirection,
                                             Lum32s* pOccluder, Lum32s* pMask, LumRect2D roi,
                                             const LumRayScene* pScene) {
    const AnyStreams s{pOrigin, pDirection, pOccluder, pMask, pScene, roi.width, roi.height};
    if ((roi.width & 3) == 0 && (roi.height & 3) == 0 && ownIsAligned16(pOccluder) &&
        ownIsAligned16(pMask) && ownIsAligned16(pDirection)) {
        localAnyPacket(s);
        return lumStatusOk;
    }
    if (roi.width < 1 || roi.height < 1) return lumStatusOk;
    localAnyPlain(s);
    return lumStatusOk;
}
