// Placeholders until the kernels land; each returns vtqStsErrNullPtr.
#include "frame/code_path.h"
#include "frame/kernels.h"

VTQR_PATH_BEGIN
VtqStatus AddMulMul_32f_AC1P3IM(const Vtq32f pScale[3], const Vtq32f* pSrc, const Vtq32f* const pSrc2[3], const Vtq32s* pMask, Vtq32f* const pSrcDst[3], int len) { return vtqStsErrNullPtr; }
VtqStatus CastReflectionRay_32f(const Vtq32f* const pIncident[3], const Vtq32s* pMask, const Vtq32f* const pNormal[3], Vtq32f* const pDst[3], int len) { return vtqStsErrNullPtr; }
VtqStatus CastShadowSO_32f(const Vtq32f pLightPos[3], const Vtq32f* pEyeDot, const Vtq32f* const pNormal[3], const Vtq32f* const pHitPoint[3], Vtq32s* pMask, Vtq32f* pDstDot, Vtq32f* const pDstDir[3], int len) { return vtqStsErrNullPtr; }
VtqStatus DistAttenuationSO_32f_M(const Vtq32f pPoint[3], const Vtq32f* const pPos[3], const Vtq32s* pMask, Vtq32f* pDst, int len) { return vtqStsErrNullPtr; }
VtqStatus Div_32f_C1IM(const Vtq32f* pSrc, const Vtq32s* pMask, Vtq32f* pSrcDst, int len) { return vtqStsErrNullPtr; }
VtqStatus DotChangeNorm_32f_IM(const Vtq32f* const pSrc[3], const Vtq32s* pMask, Vtq32f* const pSrcDst[3], Vtq32f* pDst, int len) { return vtqStsErrNullPtr; }
VtqStatus Dot_32f_P3C1M(const Vtq32f* const pSrc1[3], const Vtq32f* const pSrc2[3], const Vtq32s* pMask, Vtq32f* pDst, int len) { return vtqStsErrNullPtr; }
VtqStatus Mul_32f_C1IM(const Vtq32f* pSrc, const Vtq32s* pMask, Vtq32f* pSrcDst, int len) { return vtqStsErrNullPtr; }
VtqStatus Mul_32f_C1P3IM(const Vtq32f* pSrc, const Vtq32s* pMask, Vtq32f* const pSrcDst[3], int len) { return vtqStsErrNullPtr; }
VTQR_PATH_END
