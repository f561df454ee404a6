// The intersection entry points as rows of one table.  Each column is a point
// in which the siblings differ; the shared walks, slab tests and tile driver
// read these columns and nothing else tells the entry points apart.
#pragma once

#include "intersect/walk_packet.h"

// How the plain body clips a ray to the scene box before the walk.
enum class OwnSlab {
    // (min - o) x (1 / d); a parallel axis (|d| at or below 1.1920929e-7)
    // misses unless the origin is strictly inside its slab, reciprocal 83886.08.
    PerRayReciprocal,
    // (min - o) computed once per call, then divided by d; a parallel axis
    // adds no constraint, reciprocal 838860800.
    SharedDivision,
    // No box at all: the walk starts at tMin = 0, tMax = 1.0001.
    None,
};

// Whether the packet body skips a tile none of whose rays has pDist above 0.
enum class OwnTileSkip { NonPositiveDist, Never };

constexpr int kAxisY = 2, kAxisZ = 4;  // bits of the first-row exception column

struct OwnRowMO {  // lumrIntersectMO_32f
    static constexpr OwnSlab kSlab = OwnSlab::PerRayReciprocal;
    static constexpr Lum32f kSlack = 1e-5f;        // near/far slack, plain walk
    static constexpr Lum32f kMinDet = 1.1920929e-6f;
    static constexpr bool kSkipCurrentBest = true;  // a winner is not retested
    static constexpr Lum32f kAcceptSlack = 1e-5f;   // a new hit must improve by this
    static constexpr OwnTileSkip kTileSkip = OwnTileSkip::NonPositiveDist;
    static constexpr OwnNearZero kNearZero = {OwnNearZero::ReplaceEstimate, 838860800.0f};
    static constexpr int kFirstRowStandIn = kAxisY | kAxisZ;
};

struct OwnRowEye {  // lumrIntersectEyeSO_32f
    static constexpr OwnSlab kSlab = OwnSlab::SharedDivision;
    static constexpr Lum32f kSlack = 1e-5f;
    static constexpr Lum32f kMinDet = 0.0f;  // no threshold: |det| < 0 never holds
    static constexpr bool kSkipCurrentBest = false;
    static constexpr Lum32f kAcceptSlack = 0.0f;
    static constexpr OwnTileSkip kTileSkip = OwnTileSkip::Never;
    static constexpr OwnNearZero kNearZero = {OwnNearZero::ReplaceEstimate, 838860800.0f};
    static constexpr int kFirstRowStandIn = kAxisY;
};

struct OwnRowLayers {  // lumrIntersectMultipleSO_32f
    static constexpr OwnSlab kSlab = OwnSlab::SharedDivision;
    static constexpr Lum32f kSlack = 0.00019f;
    static constexpr Lum32f kMinDet = 0.0f;
    static constexpr OwnTileSkip kTileSkip = OwnTileSkip::NonPositiveDist;
    static constexpr OwnNearZero kNearZero = {OwnNearZero::ReplaceDirection, 1.1920929e-5f};
    static constexpr int kFirstRowStandIn = 0;
};

struct OwnRowAny {  // lumrIntersectAnySO_32f
    static constexpr OwnSlab kSlab = OwnSlab::None;
    static constexpr Lum32f kSlack = 1e-5f;
    static constexpr OwnNearZero kNearZero = {OwnNearZero::ReplaceEstimate, 8388608.0f};
    static constexpr int kFirstRowStandIn = 0;
};

// ---- Plain-body ray setup ----------------------------------------------------

constexpr Lum32f kBoxExitPad = 1e-4f;  // added to the box exit before a walk

// Reciprocals, signs and the box clip of one ray; false when it misses the
// box.  `shifted` is the box minus the shared origin (SharedDivision only).
template <OwnSlab kSlab>
inline bool ownSlabPlain(const Lum32f* box, const Lum32f* shifted, OwnRay& ray, Lum32f& tMin,
                         Lum32f& tMax) {
    for (int a = 0; a < 3; ++a) {
        const Lum32f d = ray.d[a], o = ray.o[a];
        if (std::fabs(d) <= kParallelLimit) {
            ray.sign[a] = 0;
            if (kSlab == OwnSlab::SharedDivision) {
                ray.r[a] = 838860800.0f;
                continue;
            }
            ray.r[a] = 83886.08f;
            if (!(box[a] < o && o < box[3 + a])) return false;
            continue;
        }
        ray.sign[a] = d < 0.0f;
        ray.r[a] = 1.0f / d;
        Lum32f t1, t2;
        if (kSlab == OwnSlab::SharedDivision) {
            t1 = shifted[a] / d;
            t2 = shifted[3 + a] / d;
        } else {
            t1 = (box[a] - o) * ray.r[a];
            t2 = (box[3 + a] - o) * ray.r[a];
        }
        tMin = ownMax(tMin, ownMin(t1, t2));
        tMax = ownMin(tMax, ownMax(t1, t2));
        if (tMin > tMax) return false;
    }
    return true;
}

// ---- Packet ray setup ----------------------------------------------------------

// Walk reciprocals and signs of a packet.  In an eight-ray walk the low four
// lanes are the first row, which some entries treat specially on some axes.
template <class Row>
inline void ownPacketReciprocals(OwnPacket& pk, int octant, bool eightRay) {
    const __m256 firstRow = ownLaneMask(eightRay ? 0xF : 0);
    for (int a = 0; a < 3; ++a) {
        const __m256 standIn = (Row::kFirstRowStandIn >> a) & 1 ? firstRow : _mm256_setzero_ps();
        pk.r[a] = ownPacketRcp(pk.d[a], Row::kNearZero, standIn);
    }
    ownOctantSigns(octant, pk.sign);
}

// The packet box test: tMin from 0, tMax from the given start, per axis
// t1 = (min - o) r, t2 = (max - o) r.  Returns the active lanes.
inline __m256 ownBoxPacket(const OwnPacket& pk, const Lum32f* box, __m256& tMin, __m256& tMax) {
    tMin = _mm256_setzero_ps();
    for (int a = 0; a < 3; ++a) {
        const __m256 t1 = _mm256_mul_ps(_mm256_sub_ps(_mm256_set1_ps(box[a]), pk.o[a]), pk.r[a]);
        const __m256 t2 =
            _mm256_mul_ps(_mm256_sub_ps(_mm256_set1_ps(box[3 + a]), pk.o[a]), pk.r[a]);
        tMin = _mm256_max_ps(tMin, _mm256_min_ps(t1, t2));
        tMax = _mm256_min_ps(tMax, _mm256_max_ps(t1, t2));
    }
    return ownLt8(tMin, tMax);
}
