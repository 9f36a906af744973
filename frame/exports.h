// The library's exports, one row each, in byte-wise ascending order of their names. This order
// is the row order of the dispatch table. Every piece of the frame that has to name all exports
// (kernel declarations, the table, the exported forwarders, the symbol test) expands this list,
// so adding a row here is all it takes to wire a new kernel in.
//
// X(Name, Columns, ReturnType, (parameters), (arguments))
//   Name     the export without its "vtqr" prefix; the kernels are vtqr::u8::Name and
//            vtqr::n8::Name.
//   Columns  SHARED: u8's implementation serves both columns; DISTINCT: n8 has its own build.
#ifndef VTQR_FRAME_EXPORTS_H_
#define VTQR_FRAME_EXPORTS_H_

#include "vtqr.h"

// clang-format off
#define VTQR_FOR_EACH_EXPORT(X)                                                                  \
  X(AddMulMul_32f_AC1P3IM, SHARED, VtqStatus,                                                    \
    (const Vtq32f pScale[3], const Vtq32f* pSrc, const Vtq32f* const pSrc2[3],                   \
     const Vtq32s* pMask, Vtq32f* const pSrcDst[3], int len),                                    \
    (pScale, pSrc, pSrc2, pMask, pSrcDst, len))                                                  \
  X(CastEye_32f, SHARED, VtqStatus,                                                              \
    (const Vtq32f imPlaneOrg[3], const Vtq32f dW[3], const Vtq32f dH[3], int wB, int hB,         \
     VtqSize cBlock, Vtq32f* const dst[3], VtqSize blockSize),                                   \
    (imPlaneOrg, dW, dH, wB, hB, cBlock, dst, blockSize))                                        \
  X(CastReflectionRay_32f, SHARED, VtqStatus,                                                    \
    (const Vtq32f* const pIncident[3], const Vtq32s* pMask, const Vtq32f* const pNormal[3],      \
     Vtq32f* const pDst[3], int len),                                                            \
    (pIncident, pMask, pNormal, pDst, len))                                                      \
  X(CastShadowSO_32f, SHARED, VtqStatus,                                                         \
    (const Vtq32f pLightPos[3], const Vtq32f* pEyeDot, const Vtq32f* const pNormal[3],           \
     const Vtq32f* const pHitPoint[3], Vtq32s* pMask, Vtq32f* pDstDot, Vtq32f* const pDstDir[3], \
     int len),                                                                                   \
    (pLightPos, pEyeDot, pNormal, pHitPoint, pMask, pDstDot, pDstDir, len))                      \
  X(DistAttenuationSO_32f_M, SHARED, VtqStatus,                                                  \
    (const Vtq32f pPoint[3], const Vtq32f* const pPos[3], const Vtq32s* pMask, Vtq32f* pDst,     \
     int len),                                                                                   \
    (pPoint, pPos, pMask, pDst, len))                                                            \
  X(Div_32f_C1IM, SHARED, VtqStatus,                                                             \
    (const Vtq32f* pSrc, const Vtq32s* pMask, Vtq32f* pSrcDst, int len),                         \
    (pSrc, pMask, pSrcDst, len))                                                                 \
  X(DotChangeNorm_32f_IM, DISTINCT, VtqStatus,                                                   \
    (const Vtq32f* const pSrc[3], const Vtq32s* pMask, Vtq32f* const pSrcDst[3], Vtq32f* pDst,   \
     int len),                                                                                   \
    (pSrc, pMask, pSrcDst, pDst, len))                                                           \
  X(Dot_32f_P3C1M, SHARED, VtqStatus,                                                            \
    (const Vtq32f* const pSrc1[3], const Vtq32f* const pSrc2[3], const Vtq32s* pMask,            \
     Vtq32f* pDst, int len),                                                                     \
    (pSrc1, pSrc2, pMask, pDst, len))                                                            \
  X(FilterGetBufSize, SHARED, VtqStatus,                                                         \
    (const VtqVolumeSize* dstVolume, const VtqVolumeSize* kernelVolume, int nChannel,            \
     int* pSize),                                                                                \
    (dstVolume, kernelVolume, nChannel, pSize))                                                  \
  X(Filter_16s_C1PV, SHARED, VtqStatus,                                                          \
    (const Vtq16s* const* pSrc, int srcStep, Vtq16s* const* pDst, int dstStep,                   \
     VtqVolumeSize dstVolume, const Vtq16s* pKernel, VtqVolumeSize kernelVolume,                 \
     VtqPoint3D anchor, int divisor, Vtq8u* pBuffer),                                            \
    (pSrc, srcStep, pDst, dstStep, dstVolume, pKernel, kernelVolume, anchor, divisor, pBuffer))  \
  X(GetLibVersion, DISTINCT, const VtqLibVersion*, (void), ())                                   \
  X(GetResizeCuboid, SHARED, VtqStatus,                                                          \
    (const VtqCuboid* srcVOI, VtqCuboid* pDstCuboid, double xFactor, double yFactor,             \
     double zFactor, double xShift, double yShift, double zShift, int interpolation),            \
    (srcVOI, pDstCuboid, xFactor, yFactor, zFactor, xShift, yShift, zShift, interpolation))      \
  X(HitPoint3DEpsM0_32f_M, SHARED, VtqStatus,                                                    \
    (const Vtq32f* const pOrigin[3], const Vtq32f* const pDirection[3], const Vtq32f* pDist,     \
     const Vtq32s* pMask, Vtq32f* const pDst[3], int len, Vtq32f eps),                           \
    (pOrigin, pDirection, pDist, pMask, pDst, len, eps))                                         \
  X(HitPoint3DEpsS0_32f_M, SHARED, VtqStatus,                                                    \
    (const Vtq32f pOrigin[3], const Vtq32f* const pDirection[3], const Vtq32f* pDist,            \
     const Vtq32s* pMask, Vtq32f* const pDst[3], int len, Vtq32f eps),                           \
    (pOrigin, pDirection, pDist, pMask, pDst, len, eps))                                         \
  X(IntersectAnySO_32f, SHARED, VtqStatus,                                                       \
    (const Vtq32f originEye[3], const Vtq32f* const pDirection[3], const Vtq32f* pDist,          \
     Vtq32s* pMask, VtqSize blockSize, const VtqrIntersectContext* pContext),                    \
    (originEye, pDirection, pDist, pMask, blockSize, pContext))                                  \
  X(IntersectEyeSO_32f, SHARED, VtqStatus,                                                       \
    (const Vtq32f originEye[3], const Vtq32f* const pDirection[3], Vtq32f* pDist,                \
     Vtq32f* const pHit[2], Vtq32s* pTrianIndex, const VtqrIntersectContext* pContext,           \
     VtqSize blockSize),                                                                         \
    (originEye, pDirection, pDist, pHit, pTrianIndex, pContext, blockSize))                      \
  X(IntersectMO_32f, SHARED, VtqStatus,                                                          \
    (const Vtq32f* const pOrigin[3], const Vtq32f* const pDirection[3], Vtq32f* pDist,           \
     Vtq32f* const pHit[2], Vtq32s* pTrianIndex, Vtq32s* pObjectIndex,                           \
     const VtqrIntersectContext* const pContext[], const Vtq32f* const pTransform[],             \
     int objectCount, VtqSize blockSize),                                                        \
    (pOrigin, pDirection, pDist, pHit, pTrianIndex, pObjectIndex, pContext, pTransform,          \
     objectCount, blockSize))                                                                    \
  X(IntersectMultipleSO_32f, SHARED, VtqStatus,                                                  \
    (const Vtq32f* const pOrigin[3], const Vtq32f* const pDirection[3], Vtq32f* pDist,           \
     Vtq32f* const pHit[2], Vtq32s* pTrianIndex, const VtqrIntersectContext* pContext,           \
     VtqSize blockSize),                                                                         \
    (pOrigin, pDirection, pDist, pHit, pTrianIndex, pContext, blockSize))                        \
  X(KDTreeBuildAlloc, SHARED, VtqStatus,                                                         \
    (VtqrKDTreeNode** ppTree, const Vtq32f* pVert, const Vtq32s* pTriIndex, int vertCount,       \
     int triCount, int* pTreeSize, const VtqrKDTreeBuildParams* pParams),                        \
    (ppTree, pVert, pTriIndex, vertCount, triCount, pTreeSize, pParams))                         \
  X(KDTreeFree, SHARED, VtqStatus, (VtqrKDTreeNode* pTree), (pTree))                             \
  X(Mul_32f_C1IM, DISTINCT, VtqStatus,                                                           \
    (const Vtq32f* pSrc, const Vtq32s* pMask, Vtq32f* pSrcDst, int len),                         \
    (pSrc, pMask, pSrcDst, len))                                                                 \
  X(Mul_32f_C1P3IM, DISTINCT, VtqStatus,                                                         \
    (const Vtq32f* pSrc, const Vtq32s* pMask, Vtq32f* const pSrcDst[3], int len),                \
    (pSrc, pMask, pSrcDst, len))                                                                 \
  X(Remap_16u_C1PV, DISTINCT, VtqStatus,                                                         \
    (const Vtq16u* const* pSrc, VtqVolumeSize srcVolume, int srcStep, VtqCuboid srcVOI,          \
     const Vtq32f* const* pxMap, const Vtq32f* const* pyMap, const Vtq32f* const* pzMap,         \
     int mapStep, Vtq16u* const* pDst, int dstStep, VtqVolumeSize dstVolume, int interpolation), \
    (pSrc, srcVolume, srcStep, srcVOI, pxMap, pyMap, pzMap, mapStep, pDst, dstStep, dstVolume,   \
     interpolation))                                                                             \
  X(Remap_32f_C1PV, DISTINCT, VtqStatus,                                                         \
    (const Vtq32f* const* pSrc, VtqVolumeSize srcVolume, int srcStep, VtqCuboid srcVOI,          \
     const Vtq32f* const* pxMap, const Vtq32f* const* pyMap, const Vtq32f* const* pzMap,         \
     int mapStep, Vtq32f* const* pDst, int dstStep, VtqVolumeSize dstVolume, int interpolation), \
    (pSrc, srcVolume, srcStep, srcVOI, pxMap, pyMap, pzMap, mapStep, pDst, dstStep, dstVolume,   \
     interpolation))                                                                             \
  X(Remap_8u_C1PV, DISTINCT, VtqStatus,                                                          \
    (const Vtq8u* const* pSrc, VtqVolumeSize srcVolume, int srcStep, VtqCuboid srcVOI,           \
     const Vtq32f* const* pxMap, const Vtq32f* const* pyMap, const Vtq32f* const* pzMap,         \
     int mapStep, Vtq8u* const* pDst, int dstStep, VtqVolumeSize dstVolume, int interpolation),  \
    (pSrc, srcVolume, srcStep, srcVOI, pxMap, pyMap, pzMap, mapStep, pDst, dstStep, dstVolume,   \
     interpolation))                                                                             \
  X(ResizeGetBufSize, SHARED, VtqStatus,                                                         \
    (const VtqCuboid* srcVOI, const VtqCuboid* dstVOI, int nChannel, int interpolation,          \
     int* pSize),                                                                                \
    (srcVOI, dstVOI, nChannel, interpolation, pSize))                                            \
  X(Resize_16u_C1PV, SHARED, VtqStatus,                                                          \
    (const Vtq16u* const* pSrc, VtqVolumeSize srcVolume, int srcStep, VtqCuboid srcVOI,          \
     Vtq16u* const* pDst, int dstStep, VtqCuboid dstVOI, double xFactor, double yFactor,         \
     double zFactor, double xShift, double yShift, double zShift, int interpolation,             \
     Vtq8u* pBuffer),                                                                            \
    (pSrc, srcVolume, srcStep, srcVOI, pDst, dstStep, dstVOI, xFactor, yFactor, zFactor, xShift, \
     yShift, zShift, interpolation, pBuffer))                                                    \
  X(Resize_16u_C1V, SHARED, VtqStatus,                                                           \
    (const Vtq16u* pSrc, VtqVolumeSize srcVolume, int srcStep, int srcPlaneStep,                 \
     VtqCuboid srcVOI, Vtq16u* pDst, int dstStep, int dstPlaneStep, VtqCuboid dstVOI,            \
     double xFactor, double yFactor, double zFactor, double xShift, double yShift,               \
     double zShift, int interpolation, Vtq8u* pBuffer),                                          \
    (pSrc, srcVolume, srcStep, srcPlaneStep, srcVOI, pDst, dstStep, dstPlaneStep, dstVOI,        \
     xFactor, yFactor, zFactor, xShift, yShift, zShift, interpolation, pBuffer))                 \
  X(Resize_32f_C1PV, SHARED, VtqStatus,                                                          \
    (const Vtq32f* const* pSrc, VtqVolumeSize srcVolume, int srcStep, VtqCuboid srcVOI,          \
     Vtq32f* const* pDst, int dstStep, VtqCuboid dstVOI, double xFactor, double yFactor,         \
     double zFactor, double xShift, double yShift, double zShift, int interpolation,             \
     Vtq8u* pBuffer),                                                                            \
    (pSrc, srcVolume, srcStep, srcVOI, pDst, dstStep, dstVOI, xFactor, yFactor, zFactor, xShift, \
     yShift, zShift, interpolation, pBuffer))                                                    \
  X(Resize_32f_C1V, SHARED, VtqStatus,                                                           \
    (const Vtq32f* pSrc, VtqVolumeSize srcVolume, int srcStep, int srcPlaneStep,                 \
     VtqCuboid srcVOI, Vtq32f* pDst, int dstStep, int dstPlaneStep, VtqCuboid dstVOI,            \
     double xFactor, double yFactor, double zFactor, double xShift, double yShift,               \
     double zShift, int interpolation, Vtq8u* pBuffer),                                          \
    (pSrc, srcVolume, srcStep, srcPlaneStep, srcVOI, pDst, dstStep, dstPlaneStep, dstVOI,        \
     xFactor, yFactor, zFactor, xShift, yShift, zShift, interpolation, pBuffer))                 \
  X(Resize_8u_C1PV, SHARED, VtqStatus,                                                           \
    (const Vtq8u* const* pSrc, VtqVolumeSize srcVolume, int srcStep, VtqCuboid srcVOI,           \
     Vtq8u* const* pDst, int dstStep, VtqCuboid dstVOI, double xFactor, double yFactor,          \
     double zFactor, double xShift, double yShift, double zShift, int interpolation,             \
     Vtq8u* pBuffer),                                                                            \
    (pSrc, srcVolume, srcStep, srcVOI, pDst, dstStep, dstVOI, xFactor, yFactor, zFactor, xShift, \
     yShift, zShift, interpolation, pBuffer))                                                    \
  X(Resize_8u_C1V, SHARED, VtqStatus,                                                            \
    (const Vtq8u* pSrc, VtqVolumeSize srcVolume, int srcStep, int srcPlaneStep,                  \
     VtqCuboid srcVOI, Vtq8u* pDst, int dstStep, int dstPlaneStep, VtqCuboid dstVOI,             \
     double xFactor, double yFactor, double zFactor, double xShift, double yShift,               \
     double zShift, int interpolation, Vtq8u* pBuffer),                                          \
    (pSrc, srcVolume, srcStep, srcPlaneStep, srcVOI, pDst, dstStep, dstPlaneStep, dstVOI,        \
     xFactor, yFactor, zFactor, xShift, yShift, zShift, interpolation, pBuffer))                 \
  X(SHBand_32f, SHARED, VtqStatus,                                                               \
    (const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ, int n, Vtq32f* pDst, Vtq32u band),    \
    (pX, pY, pZ, n, pDst, band))                                                                 \
  X(SHGetSize_32f, SHARED, VtqStatus, (Vtq32u order, int method, Vtq32u* pSize),                 \
    (order, method, pSize))                                                                      \
  X(SHInit_32f, SHARED, VtqStatus, (VtqrSHState* pState, Vtq32u order, int method),              \
    (pState, order, method))                                                                     \
  X(SHTFwd_32f_C1I, SHARED, VtqStatus,                                                           \
    (const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ, const Vtq32f* pSrc, int n,            \
     Vtq32f* pSrcDst, Vtq32u order, const VtqrSHState* pState),                                  \
    (pX, pY, pZ, pSrc, n, pSrcDst, order, pState))                                               \
  X(SHTFwd_32f_C3P3I, SHARED, VtqStatus,                                                         \
    (const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ, const Vtq32f* pSrc, int n,            \
     Vtq32f* const pSrcDst[3], Vtq32u order, const VtqrSHState* pState),                         \
    (pX, pY, pZ, pSrc, n, pSrcDst, order, pState))                                               \
  X(SHTFwd_32f_P3I, SHARED, VtqStatus,                                                           \
    (const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ, const Vtq32f* const pSrc[3], int n,   \
     Vtq32f* const pSrcDst[3], Vtq32u order, const VtqrSHState* pState),                         \
    (pX, pY, pZ, pSrc, n, pSrcDst, order, pState))                                               \
  X(SHTInv_32f_C1, SHARED, VtqStatus,                                                            \
    (const Vtq32f* pSrc, Vtq32u order, const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ,     \
     Vtq32f* pDst, int n, const VtqrSHState* pState),                                            \
    (pSrc, order, pX, pY, pZ, pDst, n, pState))                                                  \
  X(SHTInv_32f_P3, SHARED, VtqStatus,                                                            \
    (const Vtq32f* const pSrc[3], Vtq32u order, const Vtq32f* pX, const Vtq32f* pY,              \
     const Vtq32f* pZ, Vtq32f* const pDst[3], int n, const VtqrSHState* pState),                 \
    (pSrc, order, pX, pY, pZ, pDst, n, pState))                                                  \
  X(SHTInv_32f_P3C3, SHARED, VtqStatus,                                                          \
    (const Vtq32f* const pSrc[3], Vtq32u order, const Vtq32f* pX, const Vtq32f* pY,              \
     const Vtq32f* pZ, Vtq32f* pDst, int n, const VtqrSHState* pState),                          \
    (pSrc, order, pX, pY, pZ, pDst, n, pState))                                                  \
  X(SH_32f, SHARED, VtqStatus,                                                                   \
    (const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ, int n, Vtq32f* pDst, Vtq32u order,    \
     const VtqrSHState* pState),                                                                 \
    (pX, pY, pZ, n, pDst, order, pState))                                                        \
  X(SetBoundBox_32f, SHARED, VtqStatus, (const Vtq32f* pVert, int vertCount, Vtq32f pBound[6]),  \
    (pVert, vertCount, pBound))                                                                  \
  X(SurfFlatNormal_32f, SHARED, VtqStatus,                                                       \
    (const Vtq32f* pTrianNorm, const Vtq32s* pTrianIndex, Vtq32f* const pDst[3], int len),       \
    (pTrianNorm, pTrianIndex, pDst, len))                                                        \
  X(SurfSmoothNormal_32f, SHARED, VtqStatus,                                                     \
    (const Vtq32f* pVertNorm, const Vtq32s* pNormIndex, const Vtq32s* pTrianIndex,               \
     const Vtq32f* const pHit[2], Vtq32f* const pDst[3], int len, int stride),                   \
    (pVertNorm, pNormIndex, pTrianIndex, pHit, pDst, len, stride))                               \
  X(TriangleAccelGetSize, SHARED, VtqStatus, (Vtq32s* pSize), (pSize))                           \
  X(TriangleAccelInit, SHARED, VtqStatus,                                                        \
    (VtqrTriangleAccel* pAccel, const Vtq32f* pVert, const Vtq32s* pTriIndex, int triCount),     \
    (pAccel, pVert, pTriIndex, triCount))                                                        \
  X(TriangleNormal_32f, SHARED, VtqStatus,                                                       \
    (const Vtq32f* pVertexCoord, const Vtq32s* pTrianIndex, Vtq32f* pTrianNorm, int nTrian),     \
    (pVertexCoord, pTrianIndex, pTrianNorm, nTrian))                                             \
  X(WarpAffineGetBufSize, SHARED, VtqStatus,                                                     \
    (const VtqCuboid* srcVOI, const VtqCuboid* dstVOI, int nChannel, int interpolation,          \
     int* pSize),                                                                                \
    (srcVOI, dstVOI, nChannel, interpolation, pSize))                                            \
  X(WarpAffine_16u_C1PV, SHARED, VtqStatus,                                                      \
    (const Vtq16u* const* pSrc, VtqVolumeSize srcVolume, int srcStep, VtqCuboid srcVOI,          \
     Vtq16u* const* pDst, int dstStep, VtqCuboid dstVOI, const double coeffs[3][4],              \
     int interpolation, Vtq8u* pBuffer),                                                         \
    (pSrc, srcVolume, srcStep, srcVOI, pDst, dstStep, dstVOI, coeffs, interpolation, pBuffer))   \
  X(WarpAffine_32f_C1PV, SHARED, VtqStatus,                                                      \
    (const Vtq32f* const* pSrc, VtqVolumeSize srcVolume, int srcStep, VtqCuboid srcVOI,          \
     Vtq32f* const* pDst, int dstStep, VtqCuboid dstVOI, const double coeffs[3][4],              \
     int interpolation, Vtq8u* pBuffer),                                                         \
    (pSrc, srcVolume, srcStep, srcVOI, pDst, dstStep, dstVOI, coeffs, interpolation, pBuffer))   \
  X(WarpAffine_8u_C1PV, SHARED, VtqStatus,                                                       \
    (const Vtq8u* const* pSrc, VtqVolumeSize srcVolume, int srcStep, VtqCuboid srcVOI,           \
     Vtq8u* const* pDst, int dstStep, VtqCuboid dstVOI, const double coeffs[3][4],               \
     int interpolation, Vtq8u* pBuffer),                                                         \
    (pSrc, srcVolume, srcStep, srcVOI, pDst, dstStep, dstVOI, coeffs, interpolation, pBuffer))
// clang-format on

#endif  // VTQR_FRAME_EXPORTS_H_
