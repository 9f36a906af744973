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
 * element i of each plane belonging to ray i, and honours the mask: a ray is live when its
 * mask value is zero or positive, dead when it is negative (not only -1). Arguments written
 * P3 are an array of three plane pointers x, y, z.
 *
 * Checks: only the pointers listed under "Checks" are tested, in the order listed; the first
 * null one returns vtqStsErrNullPtr before anything is written. For a P3 argument the array of
 * plane pointers is tested, not the planes in it. The constant three-value vectors (pScale,
 * pPoint, pLightPos) are never tested. After the null checks a `len` below 1 returns vtqStsOk
 * and writes nothing.
 *
 * Arithmetic: 32-bit float, products and sums formed in the order written, never fused. The
 * result of every ray depends only on that ray's inputs, never on the alignment of the arrays,
 * on `len` or on the code path, except where a function says otherwise below. Where both
 * operands of one operation are NaNs with different payloads, which payload comes through is
 * not promised.
 *
 * Speed: when every array a function touches is 16-byte aligned and `len` is a multiple of 4,
 * four rays are processed at a time. None of these functions allocates memory or uses threads.
 */

/* dst = src1.x*src2.x + src1.y*src2.y + src1.z*src2.z for live rays; dead rays get +0.
 * Checks: pSrc1, pSrc2, pMask, pDst. */
VTQR_API VtqStatus vtqrDot_32f_P3C1M(const Vtq32f* const pSrc1[3], const Vtq32f* const pSrc2[3],
                                     const Vtq32s* pMask, Vtq32f* pDst, int len);

/* Turns each normal in pSrcDst to face against the ray direction in pSrc. For a live ray,
 * d = src . n; s = -1 when d > 0, else +1 (also for a NaN d); each component of the normal
 * is multiplied by s in place and dst = d * s, so dst is never positive and d = 0 leaves the
 * normal as it was with dst = 0. The multiply by s is a real multiply: a signalling NaN in a
 * live normal comes back quiet. A dead ray gets dst = +0 and keeps its normal bit for bit.
 * Checks: pSrc, pMask, pSrcDst, pDst. */
VTQR_API VtqStatus vtqrDotChangeNorm_32f_IM(const Vtq32f* const pSrc[3], const Vtq32s* pMask,
                                            Vtq32f* const pSrcDst[3], Vtq32f* pDst, int len);

/* srcDst = (srcDst * src) * m with m = 1 for a live ray and 0 for a dead one. A dead ray is
 * multiplied by zero rather than skipped: an infinite or NaN value becomes NaN, a negative
 * value -0.
 * Checks: none at all; the first test is len < 1, so len < 1 returns vtqStsOk whatever the
 * pointers. Arrays at any 4-byte alignment run four rays at a time after single rays up to the
 * first 16-byte boundary of pSrcDst. */
VTQR_API VtqStatus vtqrMul_32f_C1IM(const Vtq32f* pSrc, const Vtq32s* pMask, Vtq32f* pSrcDst,
                                    int len);

/* Each of the three planes p: p = (p * src) * m, m as in vtqrMul_32f_C1IM.
 * Checks: pSrc, pMask, pSrcDst. Runs four rays at a time after single rays up to the first
 * 16-byte boundary of the x plane. */
VTQR_API VtqStatus vtqrMul_32f_C1P3IM(const Vtq32f* pSrc, const Vtq32s* pMask,
                                      Vtq32f* const pSrcDst[3], int len);

/* srcDst = srcDst / src for live rays, +0 for dead rays. A zero divisor (either sign) on a
 * live ray gives +inf for a positive dividend, -inf for a negative one, and the quiet NaN
 * 0xFFC00000 for a zero or NaN dividend; the function carries on with the remaining rays and
 * then returns vtqStsWarnDivByZero (6) if that happened at least once, else vtqStsOk. A zero
 * divisor on a dead ray is no division and raises no warning.
 * Checks: pSrc, pSrcDst; the mask is read but not tested. Runs four rays at a time after
 * single rays up to the first 16-byte boundary of pSrcDst. Rays that take no quotient (dead,
 * zero divisor) are not divided at all, so no division-by-zero flag is raised. */
VTQR_API VtqStatus vtqrDiv_32f_C1IM(const Vtq32f* pSrc, const Vtq32s* pMask, Vtq32f* pSrcDst,
                                    int len);

/* Accumulates a light's contribution into a colour. For a live ray and each channel c:
 * srcDst.c = srcDst.c + (src2.c * scale[c]) * src. Dead rays keep their colour bit for bit.
 * Checks: pSrc, pSrc2, pMask, pSrcDst. Runs four rays at a time after single rays up to the
 * first 16-byte boundary of the x plane of pSrcDst. */
VTQR_API VtqStatus vtqrAddMulMul_32f_AC1P3IM(const Vtq32f pScale[3], const Vtq32f* pSrc,
                                             const Vtq32f* const pSrc2[3], const Vtq32s* pMask,
                                             Vtq32f* const pSrcDst[3], int len);

/* Distance from one point, clamped below at one. For a live ray,
 * q = (pos.x - point[0])^2 + (pos.y - point[1])^2 + (pos.z - point[2])^2 and dst = sqrt(q)
 * when q >= 1, else 1. Dead rays get 1, so dividing by dst leaves them unchanged.
 * A NaN q (NaN or infinite positions) is not "at least one" and gives 1 on every path.
 * On the four-wide path a group of four dead rays gets 1 without its positions being read.
 * Checks: pPos, pMask, pDst. */
VTQR_API VtqStatus vtqrDistAttenuationSO_32f_M(const Vtq32f pPoint[3],
                                               const Vtq32f* const pPos[3], const Vtq32s* pMask,
                                               Vtq32f* pDst, int len);

/* Builds the shadow rays from a light to the hit points and culls points lit from behind.
 * dir = hit - lightPos; c = normal.x*dir.x + normal.y*dir.y + normal.z*dir.z, taken as 0 when
 * |c| < 0.0017453292 (a tenth of a degree: grazing light). A ray passes when it is live and
 * eyeDot * c > 0 (eyeDot as written by vtqrDotChangeNorm_32f_IM): it gets dstDot = |c| and
 * dstDir = dir (not normalised; its length is the light distance), mask unchanged. Every other
 * ray gets dstDot = 0 and dstDir = (0, 0, 0), and its mask is made negative:
 *   - rays 0 .. 4*floor(len/4)-1 go in groups of four, whatever the alignment, and every
 *     failing ray's mask is set to -1, also a dead ray's that held another negative value;
 *   - the last len % 4 rays go one at a time, and only a ray that was live is set to -1; a
 *     dead ray keeps its mask value.
 * Checks: pEyeDot, pNormal, pHitPoint, pMask, pDstDir, pDstDot. */
VTQR_API VtqStatus vtqrCastShadowSO_32f(const Vtq32f pLightPos[3], const Vtq32f* pEyeDot,
                                        const Vtq32f* const pNormal[3],
                                        const Vtq32f* const pHitPoint[3], Vtq32s* pMask,
                                        Vtq32f* pDstDot, Vtq32f* const pDstDir[3], int len);

/* Mirror reflection: d = incident . n; dst = incident - n * (d + d) per plane, not
 * normalised, for live rays; dead rays get (0, 0, 0).
 * Checks: pIncident, pMask, pNormal, pDst. Runs four rays at a time whenever len is a
 * multiple of 4, aligned or not. */
VTQR_API VtqStatus vtqrCastReflectionRay_32f(const Vtq32f* const pIncident[3],
                                             const Vtq32s* pMask, const Vtq32f* const pNormal[3],
                                             Vtq32f* const pDst[3], int len);

#ifdef __cplusplus
}
#endif

#endif /* VTQR_RAYCAST_H */
