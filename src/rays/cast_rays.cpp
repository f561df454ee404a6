// Ray generation: eye rays for a block of the image, reflection rays at hit
// points and shadow rays towards a light.  Nothing here normalises: every
// direction keeps the length its arithmetic gives it.
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "frame/own.h"
#include "frame/vec4.h"
#include "rays/access.h"

namespace {

// ---- lumrCastEye_32f ---------------------------------------------------------

// Block number times block extent, wrapping as a two's-complement product so
// that absurd block numbers shift the grid instead of being undefined.
inline Lum32f localBlockOrigin(Lum32s block, Lum32s extent) {
    const Lum32u product = static_cast<Lum32u>(block) * static_cast<Lum32u>(extent);
    return static_cast<Lum32f>(static_cast<Lum32s>(product));
}

struct EyeGrid {
    Lum32f corner[3], stepColumn[3], stepRow[3];
    Lum32f x0, y0;
};

// Each point from its own row and column number.
void localEyePlain(const EyeGrid& g, const LumPlanes3& rays, Lum32s width, Lum32s height) {
    Lum32f* const dst[3] = {rays.X, rays.Y, rays.Z};
    for (Lum32s r = 0; r < height; ++r) {
        const Lum32f ry = g.y0 + static_cast<Lum32f>(r);
        const std::ptrdiff_t row = static_cast<std::ptrdiff_t>(r) * width;
        for (Lum32s c = 0; c < width; ++c) {
            const Lum32f cx = g.x0 + static_cast<Lum32f>(c);
            for (int k = 0; k < 3; ++k)
                dst[k][row + c] = (ry * g.stepRow[k] + g.corner[k]) + cx * g.stepColumn[k];
        }
    }
}

// Deliberate: rows are stepped by repeated addition here, where the plain
// loop recomputes each point, so the two bodies may differ in rounding.
// The row base b = (stepRow y0 + corner) + stepColumn x0 is computed once and
// then stepped by adding stepRow per row; within a row the column offset is
// stepColumn x f for a float counter f that starts at 0, 1, 2, 3 and steps by
// 4.  Below 2^24 that counter holds exact integers, so two counters stepped
// by 16 (four groups a step) give the very same values; past 2^24 columns the
// counter is stepped literally, four lanes at a time, because it no longer
// counts exactly.
template <class Access>
void localEyeVec(const EyeGrid& g, const LumPlanes3& rays, Lum32s width, Lum32s height) {
    __m128 bx = _mm_set1_ps((g.stepRow[0] * g.y0 + g.corner[0]) + g.stepColumn[0] * g.x0);
    __m128 by = _mm_set1_ps((g.stepRow[1] * g.y0 + g.corner[1]) + g.stepColumn[1] * g.x0);
    __m128 bz = _mm_set1_ps((g.stepRow[2] * g.y0 + g.corner[2]) + g.stepColumn[2] * g.x0);
    const __m128 srx = _mm_set1_ps(g.stepRow[0]), sry = _mm_set1_ps(g.stepRow[1]),
                 srz = _mm_set1_ps(g.stepRow[2]);
    const __m128 scx = _mm_set1_ps(g.stepColumn[0]), scy = _mm_set1_ps(g.stepColumn[1]),
                 scz = _mm_set1_ps(g.stepColumn[2]);
    const __m256 scx8 = _mm256_set_m128(scx, scx), scy8 = _mm256_set_m128(scy, scy),
                 scz8 = _mm256_set_m128(scz, scz);
    const __m128 four = _mm_set1_ps(4.0f);
    const __m256 sixteen = _mm256_set1_ps(16.0f);
    const bool exactCounter = width <= (1 << 24);
    for (Lum32s r = 0; r < height; ++r) {
        if (r > 0) bx = _mm_add_ps(bx, srx), by = _mm_add_ps(by, sry), bz = _mm_add_ps(bz, srz);
        const std::ptrdiff_t row = static_cast<std::ptrdiff_t>(r) * width;
        Lum32f* const px = rays.X + row;
        Lum32f* const py = rays.Y + row;
        Lum32f* const pz = rays.Z + row;
        Lum32s c = 0;
        __m128 f = _mm_setr_ps(0.0f, 1.0f, 2.0f, 3.0f);
        if (exactCounter) {
            const __m256 bx8 = _mm256_set_m128(bx, bx), by8 = _mm256_set_m128(by, by),
                         bz8 = _mm256_set_m128(bz, bz);
            __m256 fa = _mm256_setr_ps(0.0f, 1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f, 7.0f);
            __m256 fb = _mm256_add_ps(fa, _mm256_set1_ps(8.0f));
            for (; c + 16 <= width; c += 16) {
                Access::store8(px + c, _mm256_add_ps(bx8, _mm256_mul_ps(scx8, fa)));
                Access::store8(px + c + 8, _mm256_add_ps(bx8, _mm256_mul_ps(scx8, fb)));
                Access::store8(py + c, _mm256_add_ps(by8, _mm256_mul_ps(scy8, fa)));
                Access::store8(py + c + 8, _mm256_add_ps(by8, _mm256_mul_ps(scy8, fb)));
                Access::store8(pz + c, _mm256_add_ps(bz8, _mm256_mul_ps(scz8, fa)));
                Access::store8(pz + c + 8, _mm256_add_ps(bz8, _mm256_mul_ps(scz8, fb)));
                fa = _mm256_add_ps(fa, sixteen), fb = _mm256_add_ps(fb, sixteen);
            }
            f = _mm256_castps256_ps128(fa);
        }
        for (; c < width; c += 4) {
            Access::store(px + c, _mm_add_ps(bx, _mm_mul_ps(scx, f)));
            Access::store(py + c, _mm_add_ps(by, _mm_mul_ps(scy, f)));
            Access::store(pz + c, _mm_add_ps(bz, _mm_mul_ps(scz, f)));
            f = _mm_add_ps(f, four);
        }
    }
}

// ---- lumrCastReflectionRay_32f -------------------------------------------------

// Deliberate: the plain loop sums the dot as (y + z) + x, the vector body as
// (x + y) + z, so the two may differ in the last bit of t.
void localReflectPlain(const LumPlanes3& in, const Lum32s* m, const LumPlanes3& n,
                       const LumPlanes3& out, Lum32s len) {
    for (Lum32s i = 0; i < len; ++i) {
        if (m[i] < 0) {
            out.X[i] = 0.0f, out.Y[i] = 0.0f, out.Z[i] = 0.0f;
            continue;
        }
        const Lum32f t = (in.Y[i] * n.Y[i] + in.Z[i] * n.Z[i]) + n.X[i] * in.X[i];
        const Lum32f t2 = t + t;
        out.X[i] = in.X[i] - t2 * n.X[i];
        out.Y[i] = in.Y[i] - t2 * n.Y[i];
        out.Z[i] = in.Z[i] - t2 * n.Z[i];
    }
}

template <class Access>
void localReflectVec(const LumPlanes3& in, const Lum32s* m, const LumPlanes3& n,
                     const LumPlanes3& out, Lum32s len) {
    const __m128 zero = _mm_setzero_ps();
    for (Lum32s i = 0; i < len; i += 4) {
        const __m128i mask = Access::loadMask(m + i);
        if (ownOffBitsOf(mask) == kAllOff) {
            Access::store(out.X + i, zero), Access::store(out.Y + i, zero);
            Access::store(out.Z + i, zero);
            continue;
        }
        const __m128 ix = Access::load(in.X + i), iy = Access::load(in.Y + i),
                     iz = Access::load(in.Z + i);
        const __m128 nx = Access::load(n.X + i), ny = Access::load(n.Y + i),
                     nz = Access::load(n.Z + i);
        const __m128 t = _mm_add_ps(_mm_add_ps(_mm_mul_ps(ix, nx), _mm_mul_ps(iy, ny)),
                                    _mm_mul_ps(iz, nz));
        const __m128 t2 = _mm_add_ps(t, t);
        const __m128 off = ownOffLanes(mask);
        Access::store(out.X + i, _mm_andnot_ps(off, _mm_sub_ps(ix, _mm_mul_ps(t2, nx))));
        Access::store(out.Y + i, _mm_andnot_ps(off, _mm_sub_ps(iy, _mm_mul_ps(t2, ny))));
        Access::store(out.Z + i, _mm_andnot_ps(off, _mm_sub_ps(iz, _mm_mul_ps(t2, nz))));
    }
}

// ---- lumrCastShadowSO_32f --------------------------------------------------------

// A tenth of a degree in radians, as binary32 (0x3AE4C388).
constexpr Lum32f kMinLightDot = 0.00174532924f;

struct ShadowArgs {
    const Lum32f* light;
    const Lum32f* facing;
    const LumPlanes3* normal;
    const LumPlanes3* points;
    Lum32s* mask;
    Lum32f* lightDot;
    const LumPlanes3* rays;
};

// Whole groups of four; every group is computed, whatever its mask.  A lane
// that fails gets zeros and the mask value -1.
template <class Access>
void localShadowVec(const ShadowArgs& a, Lum32s groupsEnd) {
    const __m128 lx = _mm_set1_ps(a.light[0]), ly = _mm_set1_ps(a.light[1]),
                 lz = _mm_set1_ps(a.light[2]);
    const __m128 minDot = _mm_set1_ps(kMinLightDot), zero = _mm_setzero_ps();
    const __m128 signBit = _mm_set1_ps(-0.0f);
    const LumPlanes3 &n = *a.normal, &p = *a.points, &s = *a.rays;
    for (Lum32s i = 0; i < groupsEnd; i += 4) {
        const __m128 dx = _mm_sub_ps(Access::load(p.X + i), lx);
        const __m128 dy = _mm_sub_ps(Access::load(p.Y + i), ly);
        const __m128 dz = _mm_sub_ps(Access::load(p.Z + i), lz);
        const __m128 v = _mm_add_ps(
            _mm_add_ps(_mm_mul_ps(dx, Access::load(n.X + i)), _mm_mul_ps(dy, Access::load(n.Y + i))),
            _mm_mul_ps(dz, Access::load(n.Z + i)));
        const __m128 absV = _mm_andnot_ps(signBit, v);
        const __m128i mask = Access::loadMask(a.mask + i);
        const __m128 pass = _mm_andnot_ps(
            ownOffLanes(mask),
            _mm_and_ps(_mm_cmpge_ps(absV, minDot),
                       _mm_cmpgt_ps(_mm_mul_ps(v, Access::load(a.facing + i)), zero)));
        Access::store(a.lightDot + i, _mm_and_ps(pass, absV));
        Access::store(s.X + i, _mm_and_ps(pass, dx));
        Access::store(s.Y + i, _mm_and_ps(pass, dy));
        Access::store(s.Z + i, _mm_and_ps(pass, dz));
        // A failing lane's mask becomes all ones, that is -1.
        const __m128i fail = _mm_xor_si128(_mm_castps_si128(pass), _mm_set1_epi32(-1));
        Access::storeMask(a.mask + i, _mm_or_si128(mask, fail));
    }
}

// The last one to three lanes.  Deliberate: a lane already off here writes
// zeros but leaves its mask value as it stands, where the vector part would
// have set it to -1.  Below the threshold v is set to 0, which fails the
// sign test exactly as the vector part's threshold test fails.
void localShadowTail(const ShadowArgs& a, Lum32s from, Lum32s len) {
    const LumPlanes3 &n = *a.normal, &p = *a.points, &s = *a.rays;
    for (Lum32s i = from; i < len; ++i) {
        if (a.mask[i] < 0) {
            a.lightDot[i] = 0.0f, s.X[i] = 0.0f, s.Y[i] = 0.0f, s.Z[i] = 0.0f;
            continue;
        }
        const Lum32f dx = p.X[i] - a.light[0], dy = p.Y[i] - a.light[1],
                     dz = p.Z[i] - a.light[2];
        Lum32f v = (dx * n.X[i] + dy * n.Y[i]) + dz * n.Z[i];
        if (std::fabs(v) < kMinLightDot) v = 0.0f;
        if (v * a.facing[i] > 0.0f) {
            a.lightDot[i] = std::fabs(v), s.X[i] = dx, s.Y[i] = dy, s.Z[i] = dz;
        } else {
            a.lightDot[i] = 0.0f, s.X[i] = 0.0f, s.Y[i] = 0.0f, s.Z[i] = 0.0f;
            a.mask[i] = -1;
        }
    }
}

}  // namespace

// The three input triples are not checked; only the destination is.
LUMR_EXPORT LumStatus lumrCastEye_32f(const Lum32f pCorner[3], const Lum32f pStepColumn[3],
                                      const Lum32f pStepRow[3], Lum32s blockColumn,
                                      Lum32s blockRow, LumRect2D blockSize,
                                      const LumPlanes3* pRays, LumRect2D size) {
    if (!pRays) return lumStatusNullPtr;
    if (size.width <= 0 || size.height <= 0) return lumStatusOk;
    EyeGrid g;
    for (int k = 0; k < 3; ++k)
        g.corner[k] = pCorner[k], g.stepColumn[k] = pStepColumn[k], g.stepRow[k] = pStepRow[k];
    g.x0 = localBlockOrigin(blockColumn, blockSize.width);
    g.y0 = localBlockOrigin(blockRow, blockSize.height);
    // Only the width and the destination planes choose the body; the planes'
    // alignment picks aligned or unaligned stores, with the same values.
    if ((size.width & 3) != 0)
        localEyePlain(g, *pRays, size.width, size.height);
    else if (ownIsAligned16(pRays))
        localEyeVec<AlignedAccess>(g, *pRays, size.width, size.height);
    else
        localEyeVec<UnalignedAccess>(g, *pRays, size.width, size.height);
    return lumStatusOk;
}

LUMR_EXPORT LumStatus lumrCastReflectionRay_32f(const LumPlanes3* pIncident, const Lum32s* pMask,
                                                const LumPlanes3* pNormal,
                                                const LumPlanes3* pReflected, Lum32s len) {
    if (!pIncident || !pMask || !pNormal || !pReflected) return lumStatusNullPtr;
    // A length that is a multiple of 4 takes the vector body whatever the
    // alignment, which only picks the kind of memory access.
    if ((len & 3) != 0)
        localReflectPlain(*pIncident, pMask, *pNormal, *pReflected, len);
    else if (ownGate4(len, pIncident->X, pIncident->Y, pIncident->Z, pNormal->X, pNormal->Y,
                      pNormal->Z, pReflected->X, pReflected->Y, pReflected->Z, pMask))
        localReflectVec<AlignedAccess>(*pIncident, pMask, *pNormal, *pReflected, len);
    else
        localReflectVec<UnalignedAccess>(*pIncident, pMask, *pNormal, *pReflected, len);
    return lumStatusOk;
}

// The light position is not checked.
LUMR_EXPORT LumStatus lumrCastShadowSO_32f(const Lum32f pLight[3], const Lum32f* pFacing,
                                           const LumPlanes3* pNormal, const LumPlanes3* pPoints,
                                           Lum32s* pMask, Lum32f* pLightDot,
                                           const LumPlanes3* pShadowRays, Lum32s len) {
    if (!pFacing || !pNormal || !pPoints || !pMask || !pLightDot || !pShadowRays)
        return lumStatusNullPtr;
    if (len <= 0) return lumStatusOk;
    const ShadowArgs a{pLight, pFacing, pNormal, pPoints, pMask, pLightDot, pShadowRays};
    const Lum32s groupsEnd = len & ~3;
    // The gate picks the kind of memory access only: every whole group of
    // four goes through the vector body whatever the alignment.
    if (ownGate4(groupsEnd, pShadowRays->X, pShadowRays->Y, pShadowRays->Z, pNormal->X,
                 pNormal->Y, pNormal->Z, pPoints->X, pPoints->Y, pPoints->Z, pFacing, pMask,
                 pLightDot))
        localShadowVec<AlignedAccess>(a, groupsEnd);
    else
        localShadowVec<UnalignedAccess>(a, groupsEnd);
    localShadowTail(a, groupsEnd, len);
    return lumStatusOk;
}
