/* vtqr: ray casting and shading of ray packets. */
#ifndef VTQR_RAYCAST_H
#define VTQR_RAYCAST_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Shading arithmetic ------------------------------------------------------------------------
 *
 * Per-ray arithmetic strung together after intersection. Every function works on `len` rays,
 * element i of each plane belonging to ray i, and honours the mask (negative = dead ray).
 * A `len` below 1 returns vtqStsOk after the null checks and writes nothing. Only the pointers
 * listed under "Checks" are tested; the P3 arrays themselves are tested, not their planes.
 * None of these functions allocates memory or uses threads.
 *
 * Speed: when every array a function touches is 16-byte aligned and `len` is a multiple of 4,
 * four rays are processed at a time; the results are bit-identical to one ray at a time.
 */

/* dst = src1 . src2 (x*x + y*y + z*z, in that order); dead rays get 0.
 * Checks: pSrc1, pSrc2, pMask, pDst (vtqStsErrNullPtr). */
VTQR_API VtqStatus vtqrDot_32f_P3C1M(const Vtq32f* const pSrc1[3], const Vtq32f* const pSrc2[3],
                                     const Vtq32s* pMask, Vtq32f* pDst, int len);

/* Turns each normal in pSrcDst to face against the ray direction in pSrc: with d = src . n,
 * the normal is negated when d > 0 and dst = d * s (never positive; 0 stays 0). Dead rays get
 * dst = 0 and an unchanged normal.
 * Checks: pSrc, pMask, pSrcDst, pDst (vtqStsErrNullPtr). */
VTQR_API VtqStatus vtqrDotChangeNorm_32f_IM(const Vtq32f* const pSrc[3], const Vtq32s* pMask,
                                            Vtq32f* const pSrcDst[3], Vtq32f* pDst, int len);

/* srcDst = srcDst * src * m with m = 1 for a live ray and 0 for a dead one: a dead ray is
 * multiplied by zero, so an infinite or NaN value becomes NaN.
 * Checks: none at all; the first test is len < 1. */
VTQR_API VtqStatus vtqrMul_32f_C1IM(const Vtq32f* pSrc, const Vtq32s* pMask, Vtq32f* pSrcDst,
                                    int len);

/* Each of the three planes p: p = p * src * m, m as in vtqrMul_32f_C1IM.
 * Checks: pSrc, pMask, pSrcDst (vtqStsErrNullPtr). */
VTQR_API VtqStatus vtqrMul_32f_C1P3IM(const Vtq32f* pSrc, const Vtq32s* pMask,
                                      Vtq32f* const pSrcDst[3], int len);

/* srcDst = srcDst / src for live rays, 0 for dead rays. A zero divisor on a live ray gives
 * +inf or -inf by the sign of the dividend, or the quiet NaN 0xFFC00000 for a zero or NaN
 * dividend; the function completes and returns vtqStsWarnDivByZero if that happened at least
 * once. Checks: pSrc, pSrcDst (vtqStsErrNullPtr); the mask is not tested. */
VTQR_API VtqStatus vtqrDiv_32f_C1IM(const Vtq32f* pSrc, const Vtq32s* pMask, Vtq32f* pSrcDst,
                                    int len);

/* Accumulates a light's contribution: srcDst.c += src2.c * scale[c] * src for live rays.
 * Checks: pSrc, pSrc2, pMask, pSrcDst (vtqStsErrNullPtr); pScale is not tested. */
VTQR_API VtqStatus vtqrAddMulMul_32f_AC1P3IM(const Vtq32f pScale[3], const Vtq32f* pSrc,
                                             const Vtq32f* const pSrc2[3], const Vtq32s* pMask,
                                             Vtq32f* const pSrcDst[3], int len);

/* dst = max(1, |pos - point|) for live rays (the square root is taken only when the squared
 * distance is at least 1), 1 for dead rays.
 * Checks: pPos, pMask, pDst (vtqStsErrNullPtr); pPoint is not tested. */
VTQR_API VtqStatus vtqrDistAttenuationSO_32f_M(const Vtq32f pPoint[3],
                                               const Vtq32f* const pPos[3], const Vtq32s* pMask,
                                               Vtq32f* pDst, int len);

/* Builds the shadow rays from a light to the hit points and culls points lit from behind or at
 * a grazing angle (|normal . dir| below 0.0017453292, a tenth of a degree). A passing ray gets
 * dstDot = |normal . dir| and dstDir = hit - light (not normalised); a failing ray gets zeros
 * and a negative mask.
 * Checks: pEyeDot, pNormal, pHitPoint, pMask, pDstDir, pDstDot (vtqStsErrNullPtr); pLightPos
 * is not tested. */
VTQR_API VtqStatus vtqrCastShadowSO_32f(const Vtq32f pLightPos[3], const Vtq32f* pEyeDot,
                                        const Vtq32f* const pNormal[3],
                                        const Vtq32f* const pHitPoint[3], Vtq32s* pMask,
                                        Vtq32f* pDstDot, Vtq32f* const pDstDir[3], int len);

/* dst = incident - n * (2 (incident . n)), not normalised; dead rays get (0, 0, 0).
 * Checks: pIncident, pMask, pNormal, pDst (vtqStsErrNullPtr). */
VTQR_API VtqStatus vtqrCastReflectionRay_32f(const Vtq32f* const pIncident[3],
                                             const Vtq32s* pMask, const Vtq32f* const pNormal[3],
                                             Vtq32f* const pDst[3], int len);

#ifdef __cplusplus
}
#endif

#endif /* VTQR_RAYCAST_H */
