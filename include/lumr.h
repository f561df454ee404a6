/*
 * lumr: numeric primitives for ray-traced rendering, spherical-harmonic
 * lighting and 3D volume resampling.
 *
 * Plain C interface, usable from C99 and C++.  Every function returns a
 * status (or, for the two exceptions, a pointer or nothing); a failed check
 * leaves every output untouched.
 */
#ifndef LUMR_H
#define LUMR_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(LUMR_BUILDING)
#define LUMR_API __attribute__((visibility("default")))
#else
#define LUMR_API
#endif

/* ---- Scalars ---------------------------------------------------------- */
typedef uint8_t  Lum8u;
typedef uint16_t Lum16u;
typedef int16_t  Lum16s;
typedef int32_t  Lum32s;
typedef uint32_t Lum32u;
typedef float    Lum32f;
typedef double   Lum64f;
typedef int32_t  LumStatus;

/* ---- Status values ---------------------------------------------------- */
enum {
    lumWarnNoOverlap          = 40,
    lumWarnEmptyResult        = 1,
    lumStatusOk               = 0,
    lumStatusInternal         = -2,
    lumStatusNoMem            = -4,
    lumStatusBadArg           = -5,
    lumStatusSize             = -6,
    lumStatusBadBand          = -7,
    lumStatusNullPtr          = -8,
    lumStatusPoolExhausted    = -9,
    lumStatusBadBuildParam    = -11,
    lumStatusBadInterpolation = -22,
    lumStatusBadResizeFactor  = -23,
    lumStatusBadChannels      = -53,
    lumStatusBadCoeffs        = -56
};

/* ---- Interpolation codes (resize, remap, affine warp) ------------------ */
enum {
    LUM_RESAMPLE_NEAREST    = 1,
    LUM_RESAMPLE_LINEAR     = 2,
    LUM_RESAMPLE_LAGRANGE   = 4,
    LUM_RESAMPLE_BSPLINE    = 5,
    LUM_RESAMPLE_CATMULLROM = 6,
    LUM_RESAMPLE_CUBIC_BC   = 7
};

/* ---- KD-tree build tags ------------------------------------------------ */
enum {
    lumKDTreeTagList = 0x499D3DC2,
    lumKDTreeTagSAH  = 0x2D07705B
};

/* ---- Spherical-harmonic algorithm selectors ---------------------------- */
enum {
    lumSHClosedForm = 0,
    lumSHRecurrence = 1
};

/* ---- Aggregates -------------------------------------------------------- */
typedef struct { Lum32s width, height, depth; } LumVolume;
typedef struct { Lum32s x, y, z, width, height, depth; } LumBox;
typedef struct { Lum32s x, y, z; } LumPoint3D;
typedef struct { Lum32s width, height; } LumRect2D;

/* A stream of 3-vectors as three planes (structure of arrays). */
typedef struct { Lum32f *X, *Y, *Z; } LumPlanes3;

/* The clipped source box, inclusive bounds. */
typedef struct { Lum32s xMin, yMin, zMin, xMax, yMax, zMax; } LumSampleBounds;

/* One triangle prepared for intersection: ten 32-bit words, 40 bytes. */
typedef struct {
    Lum32u axisCode;
    Lum32f nP;
    Lum32f baseW;
    Lum32f nQ;
    Lum32f baseP;
    Lum32f baseQ;
    Lum32f e2P;
    Lum32f e2Q;
    Lum32f e1P;
    Lum32f e1Q;
} LumTriangleAccel;

/* One node of the flat KD-tree block: two 32-bit words. */
typedef struct { Lum32u word0, word1; } LumKDTreeNode;

typedef struct {
    Lum32u        tag;           /* lumKDTreeTagList or lumKDTreeTagSAH */
    Lum32s        maxDepth;      /* 0 to 50 */
    Lum32f        splitQuality;  /* SAH: 0 to 1 */
    Lum32s        memoryLimitMB; /* SAH: units of 2^20 bytes */
    const Lum32f* pClipBox;      /* SAH: null or six Lum32f */
} LumKDTreeBuildParams;

typedef struct {
    const Lum32f*           pBound; /* min x, y, z, max x, y, z */
    const LumTriangleAccel* pAccel;
    const LumKDTreeNode*    pRoot;
} LumRayScene;

typedef struct {
    Lum32u  maxBand;
    Lum32u  algorithm;
    Lum32f* tableA;
    Lum32f* tableB;
} LumSHState;

typedef struct {
    Lum32s      versionMajor;
    Lum32s      versionMinor;
    Lum32s      buildMajor;
    Lum32s      buildNumber;
    char        cpuTag[4];
    const char* fileName;
    const char* versionText;
    const char* dateText;
} LumLibVersion;

/* ---- Version ----------------------------------------------------------- */
LUMR_API const LumLibVersion* lumrGetLibVersion(void);

/* ---- Masked stream arithmetic ------------------------------------------ */
LUMR_API LumStatus lumrMul_32f_C1IM(const Lum32f* pSrc, const Lum32s* pMask,
                                    Lum32f* pSrcDst, Lum32s len);
LUMR_API LumStatus lumrMul_32f_C1P3IM(const Lum32f* pSrc, const Lum32s* pMask,
                                      const LumPlanes3* pSrcDst, Lum32s len);
LUMR_API LumStatus lumrAddMulMul_32f_AC1P3IM(const Lum32f pSrc1[3], const Lum32f* pSrc2,
                                             const LumPlanes3* pSrc3, const Lum32s* pMask,
                                             const LumPlanes3* pSrcDst, Lum32s len);
LUMR_API LumStatus lumrDiv_32f_C1IM(const Lum32f* pSrc, const Lum32s* pMask,
                                    Lum32f* pSrcDst, Lum32s len);
LUMR_API LumStatus lumrDot_32f_P3C1M(const LumPlanes3* pSrc1, const LumPlanes3* pSrc2,
                                     const Lum32s* pMask, Lum32f* pDst, Lum32s len);
LUMR_API LumStatus lumrDotChangeNorm_32f_IM(const LumPlanes3* pSrc, const Lum32s* pMask,
                                            const LumPlanes3* pSrcDst, Lum32f* pDst,
                                            Lum32s len);
LUMR_API LumStatus lumrDistAttenuationSO_32f_M(const Lum32f pOrigin[3], const LumPlanes3* pPoints,
                                               const Lum32s* pMask, Lum32f* pDst, Lum32s len);

/* ---- Ray generation ---------------------------------------------------- */
LUMR_API LumStatus lumrCastEye_32f(const Lum32f pCorner[3], const Lum32f pStepColumn[3],
                                   const Lum32f pStepRow[3], Lum32s blockColumn,
                                   Lum32s blockRow, LumRect2D blockSize,
                                   const LumPlanes3* pRays, LumRect2D size);
LUMR_API LumStatus lumrCastReflectionRay_32f(const LumPlanes3* pIncident, const Lum32s* pMask,
                                             const LumPlanes3* pNormal,
                                             const LumPlanes3* pReflected, Lum32s len);
LUMR_API LumStatus lumrCastShadowSO_32f(const Lum32f pLight[3], const Lum32f* pFacing,
                                        const LumPlanes3* pNormal, const LumPlanes3* pPoints,
                                        Lum32s* pMask, Lum32f* pLightDot,
                                        const LumPlanes3* pShadowRays, Lum32s len);

/* ---- Hit points and surface normals ------------------------------------ */
LUMR_API LumStatus lumrHitPoint3DEpsS0_32f_M(const Lum32f pOrigin[3], const LumPlanes3* pDirection,
                                             const Lum32f* pDist, const Lum32s* pMask,
                                             const LumPlanes3* pHit, Lum32s len, Lum32f eps);
LUMR_API LumStatus lumrHitPoint3DEpsM0_32f_M(const LumPlanes3* pOrigin, const LumPlanes3* pDirection,
                                             const Lum32f* pDist, const Lum32s* pMask,
                                             const LumPlanes3* pHit, Lum32s len, Lum32f eps);
LUMR_API LumStatus lumrSurfFlatNormal_32f(const Lum32f* pTrnglNorm, const Lum32s* pTrngl,
                                          const LumPlanes3* pNorm, Lum32s len);
LUMR_API LumStatus lumrSurfSmoothNormal_32f(const Lum32f* pVertNorm, const Lum32s* pIndex,
                                            const Lum32s* pTrngl, Lum32f* const pHit[2],
                                            const LumPlanes3* pNorm, Lum32s len,
                                            Lum32s indexStride);
LUMR_API LumStatus lumrTriangleNormal_32f(const Lum32f* pVertices, const Lum32s* pTriangles,
                                          Lum32f* pTrnglNorm, Lum32s count);

/* ---- Triangle records and bounding box ---------------------------------- */
LUMR_API LumStatus lumrTriangleAccelGetSize(Lum32s* pSize);
LUMR_API LumStatus lumrTriangleAccelInit(LumTriangleAccel* pAccel, const Lum32f* pVertices,
                                         const Lum32s* pTriangles, Lum32s count);
LUMR_API LumStatus lumrSetBoundBox_32f(const Lum32f* pVertices, Lum32s count, Lum32f* pBound);

/* ---- KD-tree ------------------------------------------------------------ */
LUMR_API LumStatus lumrKDTreeBuildAlloc(LumKDTreeNode** ppTree, const Lum32f* pVertices,
                                        const Lum32s* pTriangles, Lum32s nVertices,
                                        Lum32s nTriangles, Lum32s* pSize,
                                        const LumKDTreeBuildParams* pParams);
LUMR_API void lumrKDTreeFree(LumKDTreeNode* pTree);

/* ---- Intersection ------------------------------------------------------- */
LUMR_API LumStatus lumrIntersectMO_32f(const LumPlanes3* pOrigin, const LumPlanes3* pDirection,
                                       Lum32f* pDist, Lum32f* pHit[2], Lum32s* pTrngl,
                                       const LumRayScene* pScene, LumRect2D roi);
LUMR_API LumStatus lumrIntersectEyeSO_32f(const Lum32f pOrigin[3], const LumPlanes3* pDirection,
                                          Lum32f* pDist, Lum32f* pHit[2], Lum32s* pTrngl,
                                          const LumRayScene* pScene, LumRect2D roi);
LUMR_API LumStatus lumrIntersectMultipleSO_32f(const Lum32f pOrigin[3],
                                               const LumPlanes3* pDirection, Lum32f* pDist,
                                               Lum32f* pHit[2], Lum32s* pTrngl,
                                               const LumVolume* roi, const LumRayScene* pScene);
LUMR_API LumStatus lumrIntersectAnySO_32f(const Lum32f pOrigin[3], const LumPlanes3* pDirection,
                                          Lum32s* pOccluder, Lum32s* pMask, LumRect2D roi,
                                          const LumRayScene* pScene);

/* ---- Spherical harmonics ------------------------------------------------- */
LUMR_API LumStatus lumrSHGetSize_32f(Lum32u maxBand, Lum32u algorithm, Lum32u* pSize);
LUMR_API LumStatus lumrSHInit_32f(LumSHState* pState, Lum32u maxBand, Lum32u algorithm);
LUMR_API LumStatus lumrSH_32f(const Lum32f* pX, const Lum32f* pY, const Lum32f* pZ, Lum32s count,
                              Lum32f* pDst, Lum32u L, const LumSHState* pState);
LUMR_API LumStatus lumrSHBand_32f(const Lum32f* pX, const Lum32f* pY, const Lum32f* pZ,
                                  Lum32s count, Lum32f* pDst, Lum32u L);
LUMR_API LumStatus lumrSHTFwd_32f_C1I(const Lum32f* pX, const Lum32f* pY, const Lum32f* pZ,
                                      const Lum32f* pSrc, Lum32s count, Lum32f* pSrcDstCoeffs,
                                      Lum32u L, const LumSHState* pState);
LUMR_API LumStatus lumrSHTFwd_32f_C3P3I(const Lum32f* pX, const Lum32f* pY, const Lum32f* pZ,
                                        const Lum32f* pSrc, Lum32s count,
                                        const LumPlanes3* pSrcDstCoeffs, Lum32u L,
                                        const LumSHState* pState);
LUMR_API LumStatus lumrSHTFwd_32f_P3I(const Lum32f* pX, const Lum32f* pY, const Lum32f* pZ,
                                      const LumPlanes3* pSrc, Lum32s count,
                                      const LumPlanes3* pSrcDstCoeffs, Lum32u L,
                                      const LumSHState* pState);
LUMR_API LumStatus lumrSHTInv_32f_C1(const Lum32f* pSrcCoeffs, Lum32u L, const Lum32f* pX,
                                     const Lum32f* pY, const Lum32f* pZ, Lum32f* pDst,
                                     Lum32s count, const LumSHState* pState);
LUMR_API LumStatus lumrSHTInv_32f_P3(const LumPlanes3* pSrcCoeffs, Lum32u L, const Lum32f* pX,
                                     const Lum32f* pY, const Lum32f* pZ, const LumPlanes3* pDst,
                                     Lum32s count, const LumSHState* pState);
LUMR_API LumStatus lumrSHTInv_32f_P3C3(const LumPlanes3* pSrcCoeffs, Lum32u L, const Lum32f* pX,
                                       const Lum32f* pY, const Lum32f* pZ, Lum32f* pDst,
                                       Lum32s count, const LumSHState* pState);

/* ---- Volume resize ------------------------------------------------------ */
LUMR_API LumStatus lumrResizeGetBufSize(const LumBox* srcBox, const LumBox* dstBox,
                                        Lum32s nChannels, Lum32s interpolation, Lum32s* pSize);
LUMR_API LumStatus lumrResize_8u_C1V(const Lum8u* src, const LumVolume* srcVolume, Lum32s srcStep,
                                     Lum32s srcPlaneStep, const LumBox* srcBox, Lum8u* dst,
                                     Lum32s dstStep, Lum32s dstPlaneStep, const LumBox* dstBox,
                                     Lum64f xFactor, Lum64f yFactor, Lum64f zFactor,
                                     Lum64f xShift, Lum64f yShift, Lum64f zShift,
                                     Lum32s interpolation, Lum8u* buffer);
LUMR_API LumStatus lumrResize_16u_C1V(const Lum16u* src, const LumVolume* srcVolume,
                                      Lum32s srcStep, Lum32s srcPlaneStep, const LumBox* srcBox,
                                      Lum16u* dst, Lum32s dstStep, Lum32s dstPlaneStep,
                                      const LumBox* dstBox, Lum64f xFactor, Lum64f yFactor,
                                      Lum64f zFactor, Lum64f xShift, Lum64f yShift,
                                      Lum64f zShift, Lum32s interpolation, Lum8u* buffer);
LUMR_API LumStatus lumrResize_32f_C1V(const Lum32f* src, const LumVolume* srcVolume,
                                      Lum32s srcStep, Lum32s srcPlaneStep, const LumBox* srcBox,
                                      Lum32f* dst, Lum32s dstStep, Lum32s dstPlaneStep,
                                      const LumBox* dstBox, Lum64f xFactor, Lum64f yFactor,
                                      Lum64f zFactor, Lum64f xShift, Lum64f yShift,
                                      Lum64f zShift, Lum32s interpolation, Lum8u* buffer);
LUMR_API LumStatus lumrResize_8u_C1PV(const Lum8u* const srcPlanes[], const LumVolume* srcVolume,
                                      Lum32s srcStep, const LumBox* srcBox,
                                      Lum8u* const dstPlanes[], Lum32s dstStep,
                                      const LumBox* dstBox, Lum64f xFactor, Lum64f yFactor,
                                      Lum64f zFactor, Lum64f xShift, Lum64f yShift,
                                      Lum64f zShift, Lum32s interpolation, Lum8u* buffer);
LUMR_API LumStatus lumrResize_16u_C1PV(const Lum16u* const srcPlanes[],
                                       const LumVolume* srcVolume, Lum32s srcStep,
                                       const LumBox* srcBox, Lum16u* const dstPlanes[],
                                       Lum32s dstStep, const LumBox* dstBox, Lum64f xFactor,
                                       Lum64f yFactor, Lum64f zFactor, Lum64f xShift,
                                       Lum64f yShift, Lum64f zShift, Lum32s interpolation,
                                       Lum8u* buffer);
LUMR_API LumStatus lumrResize_32f_C1PV(const Lum32f* const srcPlanes[],
                                       const LumVolume* srcVolume, Lum32s srcStep,
                                       const LumBox* srcBox, Lum32f* const dstPlanes[],
                                       Lum32s dstStep, const LumBox* dstBox, Lum64f xFactor,
                                       Lum64f yFactor, Lum64f zFactor, Lum64f xShift,
                                       Lum64f yShift, Lum64f zShift, Lum32s interpolation,
                                       Lum8u* buffer);

/* ---- Volume remap ------------------------------------------------------- */
LUMR_API LumStatus lumrRemap_8u_C1PV(const Lum8u* const pSrc[], const LumVolume* srcVolume,
                                     Lum32s srcStep, const LumBox* srcBox,
                                     const Lum32f* const pxMap[], const Lum32f* const pyMap[],
                                     const Lum32f* const pzMap[], Lum32s mapStep,
                                     Lum8u* const pDst[], Lum32s dstStep,
                                     const LumVolume* dstVolume, Lum32s interpolation);
LUMR_API LumStatus lumrRemap_16u_C1PV(const Lum16u* const pSrc[], const LumVolume* srcVolume,
                                      Lum32s srcStep, const LumBox* srcBox,
                                      const Lum32f* const pxMap[], const Lum32f* const pyMap[],
                                      const Lum32f* const pzMap[], Lum32s mapStep,
                                      Lum16u* const pDst[], Lum32s dstStep,
                                      const LumVolume* dstVolume, Lum32s interpolation);
LUMR_API LumStatus lumrRemap_32f_C1PV(const Lum32f* const pSrc[], const LumVolume* srcVolume,
                                      Lum32s srcStep, const LumBox* srcBox,
                                      const Lum32f* const pxMap[], const Lum32f* const pyMap[],
                                      const Lum32f* const pzMap[], Lum32s mapStep,
                                      Lum32f* const pDst[], Lum32s dstStep,
                                      const LumVolume* dstVolume, Lum32s interpolation);

/* ---- Volume affine warp ------------------------------------------------- */
LUMR_API LumStatus lumrWarpAffineGetBufSize(const LumBox* srcBox, const LumBox* dstBox,
                                            Lum32s nChannels, Lum32s interpolation,
                                            Lum32s* pSize);
LUMR_API LumStatus lumrWarpAffine_8u_C1PV(const Lum8u* const pSrc[], const LumVolume* srcVolume,
                                          Lum32s srcStep, const LumBox* srcBox,
                                          Lum8u* const pDst[], Lum32s dstStep,
                                          const LumBox* dstBox, const Lum64f coeffs[3][4],
                                          Lum32s interpolation);
LUMR_API LumStatus lumrWarpAffine_16u_C1PV(const Lum16u* const pSrc[],
                                           const LumVolume* srcVolume, Lum32s srcStep,
                                           const LumBox* srcBox, Lum16u* const pDst[],
                                           Lum32s dstStep, const LumBox* dstBox,
                                           const Lum64f coeffs[3][4], Lum32s interpolation);
LUMR_API LumStatus lumrWarpAffine_32f_C1PV(const Lum32f* const pSrc[],
                                           const LumVolume* srcVolume, Lum32s srcStep,
                                           const LumBox* srcBox, Lum32f* const pDst[],
                                           Lum32s dstStep, const LumBox* dstBox,
                                           const Lum64f coeffs[3][4], Lum32s interpolation);

/* ---- Volume filter ------------------------------------------------------ */
LUMR_API LumStatus lumrFilterGetBufSize(const LumVolume* dstVolume, const LumVolume* kernelVolume,
                                        Lum32s nChannels, Lum32s* pSize);
LUMR_API LumStatus lumrFilter_16s_C1PV(const Lum16s* const srcPlanes[], Lum32s srcStep,
                                       Lum16s* const dstPlanes[], Lum32s dstStep,
                                       const LumVolume* dstVolume, const Lum32s* kernel,
                                       const LumVolume* kernelVolume, const LumPoint3D* anchor,
                                       Lum32s divisor, Lum8u* buffer);

/* ---- Core library (liblumcore64): memory and the shared thread count ---- */
void*  lumMalloc(int64_t size);
void   lumFree(void* ptr);
Lum32s ownGetNumThreads(void);
LumStatus lumSetNumThreads(Lum32s n);
Lum32s lumGetNumThreads(void);

#ifdef __cplusplus
}
#endif

#endif /* LUMR_H */
