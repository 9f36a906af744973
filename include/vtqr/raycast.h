/* vtqr: ray casting and shading of ray packets. */
#ifndef VTQR_RAYCAST_H
#define VTQR_RAYCAST_H

#include "accel.h"
#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Eye rays ---------------------------------------------------------------------------------- */

/* Writes the directions of the eye rays of one block of the image, as three planes x, y, z; the
 * directions are not normalised.
 *   imPlaneOrg  direction from the eye to pixel (0, 0) of the whole image.
 *   dW, dH      step from a pixel to its right neighbour and to the one below.
 *   wB, hB      the block's column and row among the image's blocks.
 *   cBlock      size of a block: places the block only. Its first pixel is x0 = wB *
 *               cBlock.width, y0 = hB * cBlock.height, products in 32-bit integers (wrapping)
 *               converted to float.
 *   dst         three planes receiving blockSize.width * blockSize.height directions: pixel
 *               (i, j) of the block goes to element j * blockSize.width + i, densely packed.
 *   blockSize   pixels written per row and rows written; may be smaller than cBlock for the
 *               last blocks of an image.
 * Arithmetic, per component c, in float and in this order:
 *   - blockSize.width not a multiple of 4: D.c = (dH.c * (j + y0) + imPlaneOrg.c) +
 *     dW.c * (i + x0), with i + x0 and j + y0 summed in float.
 *   - blockSize.width a multiple of 4, whatever the alignment of the planes: a row base
 *     B.c = (dH.c * y0 + imPlaneOrg.c) + dW.c * x0, advanced by adding dH.c after each row, and
 *     D.c = dW.c * i + B.c with i counted in float. The accumulated row base may differ from
 *     the first form in the last bit; both are exact enough for eye rays.
 * Checks: dst (the plane array, not the planes in it); imPlaneOrg, dW, dH and the planes are
 * not tested. A width or height below 1 writes nothing. Returns vtqStsOk. */
VTQR_API VtqStatus vtqrCastEye_32f(const Vtq32f imPlaneOrg[3], const Vtq32f dW[3],
                                   const Vtq32f dH[3], int wB, int hB, VtqSize cBlock,
                                   Vtq32f* const dst[3], VtqSize blockSize);

/* Intersection -------------------------------------------------------------------------------
 *
 * The intersection functions find, for each ray of a block, the triangles of an object hit by
 * the ray E + t D (t > 0, in units of the direction's length; directions need not be
 * normalised). An object is described by a VtqrIntersectContext. Per-ray arrays are planes of
 * blockSize.width * blockSize.height elements, row after row; a width or height below 1 does
 * nothing.
 *
 * The walk: each ray's [0, dist] is clipped to the object's bound box, widened by 1e-4 at the
 * far end, and the tree is walked front to back (near child first, 1e-5 tolerance at the split
 * planes), testing the triangles of each leaf in list order. A direction component of
 * magnitude at most 1.1920929e-7 does not clip the ray on that axis (the ray is taken as
 * parallel to the axis' planes there, so keep directions roughly unit length or longer).
 *
 * The triangle test (exact operation order, 32-bit float, never fused), with the record's
 * words c1..c9 and axes a0 (bits 0-1), a1 (bits 2-3), a2 (bits 4-5) of its first word:
 *   den = (c1 * D[a1] + c3 * D[a0]) + D[a2];  p = c4 - E[a1];  q = c5 - E[a0];
 *   num = ((c2 + c1 * p) + c3 * q) - E[a2];
 *   s = D[a1] * num - p * den;  r = D[a0] * num - q * den;
 *   beta = c7 * s - c6 * r;  gamma = c8 * r - c9 * s;
 *   inside when ((den - beta) - gamma) * beta >= 0, beta * gamma >= 0 and
 *   ((den - beta) - gamma) * gamma >= 0; then t = num / den.
 * A hit is taken when dist > t > 0 (strictly), so t = 0 and t = dist are never hits, and of
 * two triangles at the same distance the one tested first is kept. Records whose first word
 * is 0 (zero-area triangles) are never hit. The weights written are u = beta / den, the weight
 * of the triangle's vertex 0 (index entry 0), and v = gamma / den, the weight of vertex 1;
 * vertex 2 has 1 - u - v: the barycentric planes that vtqrSurfSmoothNormal_32f reads.
 * The test is not watertight: a ray through an edge or vertex shared by two triangles may hit
 * both, one, or (rarely, by rounding) neither. A ray lying in a split plane of the tree (a
 * direction component of at most 1.1920929e-7, the origin in the plane) is walked on one side
 * of the plane only, so where it crosses an edge in that plane it sees only the triangle on its
 * side, and passes through the surface when the test rounds that one out.
 *
 * Defined results for input users do send:
 *   - dist zero, negative or NaN: the ray misses (nothing can be nearer); +inf: unlimited.
 *   - NaN or infinite components in a direction or origin, or a zero direction: the ray finds
 *     no hit (every candidate fails the test or gives t = 0, +-inf or NaN).
 *   - An origin inside the box, on a split plane or on a triangle: handled by the same rules
 *     (a triangle through the origin gives t = 0, which is not a hit).
 *   - Empty trees (an empty leaf at the root) and single-leaf trees of any size: every walk
 *     ends after at most one visit per node.
 * Trees are trusted: they must come from vtqrKDTreeBuildAlloc over the same mesh as the
 * records (depth at most 50). The walk reads nodes and records without checks.
 *
 * Paths: when blockSize.width and blockSize.height are multiples of 4 and every per-ray array
 * is 16-byte aligned, the rays go in 2x2 tiles of the block, four rays sharing one walk;
 * otherwise one ray at a time in row-major order. Both give the same bits for every ray (hits,
 * distances, weights, triangle numbers), as do both code paths. No function of this group
 * allocates memory or uses threads: split an image into blocks to cast it from several
 * threads. */

/* One object for the intersection functions: three pointers, read only. */
typedef struct VtqrIntersectContext {
  const Vtq32f* pBound;            /* bound box: x, y, z minimum, then x, y, z maximum, as
                                      written by vtqrSetBoundBox_32f */
  const VtqrTriangleAccel* pAccel; /* records from vtqrTriangleAccelInit, by triangle number */
  const VtqrKDTreeNode* pRootNode; /* the tree from vtqrKDTreeBuildAlloc over the same mesh */
} VtqrIntersectContext;

/* Nearest hit of eye rays: every ray starts at originEye.
 *   pDirection   P3 directions.
 *   pDist        in: the largest distance of interest; out: the hit's distance t, unchanged
 *                when nothing nearer was hit.
 *   pHit         two planes, out: the weights u and v of the hit; unchanged on a miss.
 *   pTrianIndex  out: the triangle hit, or -1. Every ray is cast: the input is not read.
 * No pointer is tested (the caller's arrays must all be there), the context's contents are
 * trusted, and the function always returns vtqStsOk. */
VTQR_API VtqStatus vtqrIntersectEyeSO_32f(const Vtq32f originEye[3],
                                          const Vtq32f* const pDirection[3], Vtq32f* pDist,
                                          Vtq32f* const pHit[2], Vtq32s* pTrianIndex,
                                          const VtqrIntersectContext* pContext, VtqSize blockSize);

/* Nearest hit of rays with their own origins (reflection rays, rays from hit points), the same
 * walk and test as vtqrIntersectEyeSO_32f with E = the ray's origin.
 *   pOrigin      P3 origins.
 *   pTrianIndex  in/out, the ray's mask: a ray whose value is negative is skipped and keeps
 *                all its values. Any other ray is cast and gets the triangle hit, or -1. Pass
 *                a copy of the eye rays' triangle numbers to cast only from surfaces that were
 *                hit, or zeros to cast every ray.
 *   pDirection, pDist, pHit as in vtqrIntersectEyeSO_32f.
 * Checks, in order: pOrigin, pDirection, pDist, pHit, pTrianIndex, pContext null:
 * vtqStsErrNullPtr before anything is written (the planes and the context's contents are not
 * tested). Returns vtqStsOk otherwise. */
VTQR_API VtqStatus vtqrIntersectMultipleSO_32f(const Vtq32f* const pOrigin[3],
                                               const Vtq32f* const pDirection[3], Vtq32f* pDist,
                                               Vtq32f* const pHit[2], Vtq32s* pTrianIndex,
                                               const VtqrIntersectContext* pContext,
                                               VtqSize blockSize);

/* Any hit, for shadow rays: is some triangle hit at 0 < t < pDist? Every ray starts at
 * originEye; the walk ends at the first such hit.
 *   pDirection  P3 directions.
 *   pDist       in: each ray's end; not written.
 *   pMask       in/out: a ray whose value is negative is skipped and keeps its value. A cast
 *               ray that is occluded gets -1; one that is not keeps its value.
 * Reads only the records and the root node of the context: rays are not clipped to a bound
 * box, so [0, pDist] is walked as it is (otherwise the walk and the test are those of
 * vtqrIntersectEyeSO_32f: the rays that are occluded are exactly those for which that
 * function, given a box that clips nothing and the same pDist, finds a hit).
 * With the output of vtqrCastShadowSO_32f: pass the light as originEye, its dstDir as
 * pDirection (from the light to each hit point, reached at t = 1), an end a little below 1
 * (such as 0.999f, so that the surface the point lies on does not shadow it) and its mask;
 * afterwards the lit rays are those whose mask is still zero or positive, ready for
 * vtqrAddMulMul_32f_AC1P3IM.
 * Checks, in order: pDirection, pDist, pMask, pContext null: vtqStsErrNullPtr before anything
 * is written (originEye, the planes and the context's contents are not tested). Returns
 * vtqStsOk otherwise. */
VTQR_API VtqStatus vtqrIntersectAnySO_32f(const Vtq32f originEye[3],
                                          const Vtq32f* const pDirection[3], const Vtq32f* pDist,
                                          Vtq32s* pMask, VtqSize blockSize,
                                          const VtqrIntersectContext* pContext);

/* Nearest hit over several objects (instancing): rays with their own origins against
 * objectCount objects, each with its own context and an optional affine world-to-object
 * transform.
 *   pOrigin, pDirection  P3, in world space.
 *   pDist, pHit          as in vtqrIntersectMultipleSO_32f; the distance is in the caller's
 *                        (world) ray units, whatever the transforms.
 *   pTrianIndex          in/out mask as in vtqrIntersectMultipleSO_32f: negative = skipped;
 *                        a cast ray gets the triangle number within its object, or -1.
 *   pObjectIndex         out for cast rays: the number of the object hit (its position in
 *                        pContext), or -1; skipped rays keep their value.
 *   pContext             objectCount context pointers. Several may point to one context.
 *   pTransform           NULL (no transforms) or objectCount pointers, each NULL (the object
 *                        is in world space) or twelve floats m[0..11], a row-major 3x4 matrix
 *                        mapping world points to object points:
 *                          o'.x = ((m[0] * o.x + m[1] * o.y) + m[2] * o.z) + m[3],
 *                          d'.x = (m[0] * d.x + m[1] * d.y) + m[2] * d.z,
 *                        likewise with m[4..7] for y and m[8..11] for z, in float. A point at
 *                        distance t along the world ray lies at t along the object ray, so
 *                        distances and weights need no conversion.
 *   objectCount          number of objects; 0 gives every cast ray -1 in both numbers.
 * The objects are cast in order, each ray keeping its nearest hit so far as the distance of
 * interest of the next object: the result equals intersecting each object in turn with
 * vtqrIntersectMultipleSO_32f on the transformed rays and passing the distance on. A later
 * object replaces a hit only when strictly nearer, so ties go to the lower object number.
 * Checks, in order: pOrigin, pDirection, pDist, pHit, pTrianIndex, pObjectIndex, pContext
 * null: vtqStsErrNullPtr; objectCount < 0: vtqStsErrSize; a null pContext[i]:
 * vtqStsErrNullPtr. Nothing is written after a failed check. Returns vtqStsOk otherwise. */
VTQR_API VtqStatus vtqrIntersectMO_32f(const Vtq32f* const pOrigin[3],
                                       const Vtq32f* const pDirection[3], Vtq32f* pDist,
                                       Vtq32f* const pHit[2], Vtq32s* pTrianIndex,
                                       Vtq32s* pObjectIndex,
                                       const VtqrIntersectContext* const pContext[],
                                       const Vtq32f* const pTransform[], int objectCount,
                                       VtqSize blockSize);

/* Hit points and normals ---------------------------------------------------------------------
 *
 * Geometry for shading, from the intersection results: the point each ray hit and the surface
 * normal there. The per-ray functions follow the conventions of the shading arithmetic below:
 * `len` rays, element i of every plane belonging to ray i, a mask that is live when zero or
 * positive (the intersection functions' triangle numbers serve as it directly), only the
 * listed pointers tested, in the order listed (vtqStsErrNullPtr before anything is written),
 * then a `len` below 1 returns vtqStsOk and writes nothing. 32-bit float, operations in the
 * order written, never fused. Every dead ray gets (0, 0, 0) in every output plane.
 *
 * Speed: when every per-ray array a function touches is 16-byte aligned and `len` is a
 * multiple of 4, four rays are processed at a time, with the same bits for every ray as one
 * at a time (and the same on both code paths). Arrays read through the rays' numbers (normals
 * of triangles and vertices) need no alignment. The per-ray functions use no threads. */

/* Hit points of rays from one common origin (eye rays). For a live ray and c = x, y, z:
 *   dst.c = (direction.c * eps) * dist + origin.c,
 * with dist as written by the intersection functions. eps scales the distance: slightly below
 * 1 (such as 0.9999f) puts the point just in front of the surface, on the side the ray came
 * from, which is where rays leaving the surface (shadow, reflection) must start; slightly
 * above 1 puts it just behind.
 * Checks: pDist, pMask, pDirection, pDst. pOrigin is not tested. */
VTQR_API VtqStatus vtqrHitPoint3DEpsS0_32f_M(const Vtq32f pOrigin[3],
                                             const Vtq32f* const pDirection[3], const Vtq32f* pDist,
                                             const Vtq32s* pMask, Vtq32f* const pDst[3], int len,
                                             Vtq32f eps);

/* Hit points of rays with one origin each (P3 pOrigin), otherwise as
 * vtqrHitPoint3DEpsS0_32f_M: dst.c = (direction.c * eps) * dist + origin.c for live rays.
 * Checks: pDist, pMask, pDirection, pDst, pOrigin. */
VTQR_API VtqStatus vtqrHitPoint3DEpsM0_32f_M(const Vtq32f* const pOrigin[3],
                                             const Vtq32f* const pDirection[3], const Vtq32f* pDist,
                                             const Vtq32s* pMask, Vtq32f* const pDst[3], int len,
                                             Vtq32f eps);

/* Unit normal of each of nTrian triangles, for flat shading or to average into vertex
 * normals. Triangle t has vertex numbers i0, i1, i2 at pTrianIndex[4t .. 4t+2] (entry 4t+3 is
 * not read) and vertex k's coordinates at pVertexCoord[3k .. 3k+2]; its normal goes to
 * pTrianNorm[3t .. 3t+2]. In double precision from the float coordinates:
 *   e1 = V[i0] - V[i2], e2 = V[i1] - V[i2],
 *   n = (e1.y*e2.z - e1.z*e2.y, e1.z*e2.x - e2.z*e1.x, e2.y*e1.x - e1.y*e2.x),
 *   s = (n.x*n.x + n.y*n.y) + n.z*n.z;
 * s below 2.220446049250313e-16 (the double epsilon: collinear or coincident vertices) gives
 * (0, 0, 0), never NaN; otherwise each component is n.c / sqrt(s) in double, rounded to float.
 * A NaN or infinite coordinate gives NaN components. The normal points to the side from which
 * i0, i1, i2 run counter-clockwise (right-handed coordinates).
 * Vertex numbers are trusted: they must lie in the vertex array.
 * Checks: pVertexCoord, pTrianIndex, pTrianNorm; then nTrian below 1 returns vtqStsOk and
 * writes nothing.
 * Threads: always one OpenMP region of ownGetNumThreads() threads (none of its own when called
 * from inside a parallel region), each writing a contiguous share of the triangles. Every
 * triangle's bits are the same whatever the thread count. */
VTQR_API VtqStatus vtqrTriangleNormal_32f(const Vtq32f* pVertexCoord, const Vtq32s* pTrianIndex,
                                          Vtq32f* pTrianNorm, int nTrian);

/* Flat normal per ray: for a live ray (pTrianIndex[i] = k >= 0, the triangle hit), dst =
 * pTrianNorm[3k .. 3k+2], copied bit for bit; a dead ray gets (0, 0, 0) and its number is not
 * used to index pTrianNorm.
 * Checks: pTrianNorm, pTrianIndex. pDst is not tested. */
VTQR_API VtqStatus vtqrSurfFlatNormal_32f(const Vtq32f* pTrianNorm, const Vtq32s* pTrianIndex,
                                          Vtq32f* const pDst[3], int len);

/* Smooth normal per ray, blending the vertex normals of the triangle hit with the hit's
 * barycentric weights. For a live ray with triangle k = pTrianIndex[i]:
 *   the normal numbers a, b, c = pNormIndex[k*stride], pNormIndex[k*stride + 1],
 *   pNormIndex[k*stride + 2] (k*stride in 64 bits; with stride 4 the mesh's own triangle index
 *   array serves, its vertex numbers naming per-vertex normals), whose normals A, B, C stand
 *   at pVertNorm[3a ..], pVertNorm[3b ..], pVertNorm[3c ..];
 *   u = pHit[0][i], v = pHit[1][i] (the weights of corners 0 and 1 from the intersection
 *   functions), w = (1 - u) - v;
 *   N.c = (B.c * v + A.c * u) + w * C.c;  s = (N.x*N.x + N.y*N.y) + N.z*N.z, all in float;
 *   dst = (0, 0, 0) when s is below 1.1920929e-7 (the float epsilon: the corner normals
 *   cancel), else N.c / sqrtf(s) per component.
 * A dead ray gets (0, 0, 0) and reads nothing through its number. Normal numbers and stride
 * are trusted: they must lie in their arrays.
 * Checks: pVertNorm, pNormIndex, pTrianIndex, pHit, pDst (the plane arrays, not the planes in
 * them). */
VTQR_API VtqStatus vtqrSurfSmoothNormal_32f(const Vtq32f* pVertNorm, const Vtq32s* pNormIndex,
                                            const Vtq32s* pTrianIndex, const Vtq32f* const pHit[2],
                                            Vtq32f* const pDst[3], int len, int stride);

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
VTQR_API VtqStatus vtqrDistAttenuationSO_32f_M(const Vtq32f pPoint[3], const Vtq32f* const pPos[3],
                                               const Vtq32s* pMask, Vtq32f* pDst, int len);

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
VTQR_API VtqStatus vtqrCastReflectionRay_32f(const Vtq32f* const pIncident[3], const Vtq32s* pMask,
                                             const Vtq32f* const pNormal[3], Vtq32f* const pDst[3],
                                             int len);

#ifdef __cplusplus
}
#endif

#endif /* VTQR_RAYCAST_H */
