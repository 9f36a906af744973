/* vtqr: resampling and filtering of single-channel volumes. */
#ifndef VTQR_VOLUME_H
#define VTQR_VOLUME_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Volumes and regions -------------------------------------------------------------------------
 *
 * A volume is addressed by voxel coordinates (x, y, z), x fastest. Two layouts:
 *  - V  (one block): voxel (x, y, z) lies at  pBase + z*planeStep + y*rowStep + x*sizeof(T);
 *  - PV (slice pointers): an array of one pointer per slice, and voxel (x, y, z) lies at
 *       pSlices[z] + y*rowStep + x*sizeof(T).
 * Steps are in bytes, signed 32-bit, and are not checked: negative steps (a volume stored
 * bottom-up or back-to-front, addressed from its last row or plane) work, and every voxel
 * address is formed in 64-bit pointer arithmetic, so volumes beyond 4 GiB (a 1024^3 32f
 * volume) are fine. Each row must start on a multiple of the element size. The slice pointers
 * inside a PV array are not checked either.
 *
 * Voxel coordinates are positions: voxel i of an axis has its centre at coordinate i. A region
 * of interest (VOI) is a VtqCuboid in the voxel coordinates of its volume. */

typedef struct VtqVolumeSize {
  int32_t width;  /* voxels along x */
  int32_t height; /* voxels along y */
  int32_t depth;  /* voxels along z */
} VtqVolumeSize;

typedef struct VtqCuboid {
  int32_t x, y, z;              /* origin, in voxels */
  int32_t width, height, depth; /* extents, in voxels */
} VtqCuboid;

/* Interpolation codes. The cubic codes use four taps per axis at the positions i-1, i, i+1,
 * i+2 around a position s = i + t (i = floor(s), 0 <= t < 1), with the weights
 * K(1+t), K(t), K(1-t), K(2-t) of their kernel K(d) (d >= 0, K = 0 for d >= 2):
 *   Lagrange:  K(d) = (d-1)(d-2)(d+1)/2 for d < 1, -(d-1)(d-2)(d-3)/6 for 1 <= d < 2, the
 *              cubic through the four taps;
 *   the family of Mitchell and Netravali with parameters B and C:
 *              K(d) = ((12-9B-6C)d^3 + (-18+12B+6C)d^2 + (6-2B)) / 6 for d < 1,
 *              K(d) = ((-B-6C)d^3 + (6B+30C)d^2 + (-12B-48C)d + (8B+24C)) / 6 for 1 <= d < 2;
 *              B-spline (B = 1, C = 0), Catmull-Rom (B = 0, C = 0.5), and B = 0.5, C = 0.3.
 * Nearest, trilinear, Lagrange and Catmull-Rom pass through the voxel values (a position on a
 * voxel centre gives that voxel); the B-spline and the (0.5, 0.3) cubic smooth, and do not.
 * Lagrange, Catmull-Rom and (0.5, 0.3) can overshoot the range of their taps. */
enum VtqInterpolation {
  vtqInterNearest = 1,
  vtqInterLinear = 2,
  vtqInterCubicLagrange = 4,
  vtqInterCubicBSpline = 5,
  vtqInterCubicCatmullRom = 6,
  vtqInterCubicB05C03 = 7
};

/* Resize ------------------------------------------------------------------------------------
 *
 * Scales the source VOI by xFactor, yFactor, zFactor with a shift per axis. The forward map
 * takes source coordinate u to destination coordinate u*factor + shift; each destination voxel
 * d is computed at the source position
 *     s = d * (1/factor) + (-shift/factor)
 * (both terms in double precision, rounded as written): the inverse of the forward map,
 * applied to destination indices as voxel centres. vtqrGetResizeCuboid and the destination
 * region below apply the same forward map to the VOI's faces, so a VOI whose origin maps onto
 * a whole voxel starts its region on the voxel that samples exactly that origin.
 *
 * Shared checks of the resize functions, in this order (the first failure is returned and
 * nothing is written):
 *  1. pSrc, pDst or pBuffer null: vtqStsErrNullPtr;
 *  2. srcVolume width, height or depth below 1, or a srcVOI or dstVOI origin coordinate below
 *     0 or extent below 1: vtqStsErrSize;
 *  3. a factor that is not a positive number (<= 0, or NaN): vtqStsErrResizeFactor;
 *  4. interpolation not one of the VtqInterpolation codes: vtqStsErrInterpolation;
 *  5. srcVOI origin outside srcVolume (x >= width, y >= height or z >= depth):
 *     vtqStsWarnVoiOutside, nothing written;
 *  6. an empty destination region (below): vtqStsWarnNoOperation, nothing written.
 *
 * Geometry: the source VOI is trimmed to the volume (width = min(srcVOI.width,
 * srcVolume.width - srcVOI.x), likewise height and depth); only voxels of the trimmed VOI are
 * ever read. Per axis, with o the VOI origin and e its trimmed extent, the destination region
 *     start = trunc(max(o*factor + shift, dstOrigin) + 0.4999999999),
 *     end   = trunc(min((o + e)*factor + shift, dstOrigin + dstExtent) + 0.5000000001)
 * is written, [start, end) on each axis, and no other destination voxel. A region with
 * start >= end on any axis (also when a shift is infinite or NaN) is empty.
 *
 * Positions beyond the trimmed VOI replicate its edge voxels: every tap index is clamped to
 * the VOI per axis. A position further than two voxels out (one, past the upper edge) is moved
 * to that distance first, where every tap already reads the edge voxel; this keeps index
 * arithmetic in range for any factor and shift and changes only the weights of equal taps.
 *
 * Interpolation, per axis, at the position s:
 *  - nearest: the voxel ceil(s - 0.5), clamped to the VOI: the nearest voxel centre, a
 *    position exactly halfway taking the lower voxel (as the start of the region rounds), so
 *    that enlarging by 2 repeats every voxel exactly twice. The voxel's value is copied.
 *  - trilinear: i = floor(s), w = (float)(s - i), taps i and i+1; two values combine as
 *    r0*(1 - w) + r1*w in single precision.
 *  - cubic (4 to 7): i = floor(s), t = s - i; the four weights of the code (see above) are
 *    computed in double and rounded to float; four values combine in single precision as
 *    (w0*r0 + w1*r1) + (w2*r2 + w3*r3).
 * The passes run along x, then y, then z: each source row is resampled along x, rows are
 * combined along y into resampled slices, slices along z into the destination. Sums and
 * products are single-precision operations in exactly this order, never fused.
 *
 * Storing: 32f stores the float. 8u and 16u clamp it to [0, 255] or [0, 65535] and round to
 * the nearest integer, halves to even (in the processor's default rounding mode).
 *
 * Results are bit-identical whatever the thread count, the code path, the alignment of the
 * arrays and the layout (V or PV) of the same data, and a destination resized in parts (one
 * call per dstVOI, the same source and parameters) equals one call over all of it.
 * Destination regions of 16 MiB and more are written with non-temporal stores (same values;
 * they bypass the caches).
 *
 * Threads: when ownGetNumThreads() is above 1, the destination region's slices are divided
 * into contiguous runs, as even as possible, one per thread of one OpenMP parallel region of
 * ownGetNumThreads() threads (the later threads taking one slice more when the count does not
 * divide evenly); each thread uses its own part of pBuffer. Called from inside a parallel
 * region, the function runs on the calling thread alone.
 *
 * Work buffer: pBuffer holds at least the bytes vtqrResizeGetBufSize gives for the same dstVOI
 * and interpolation at the same ownGetNumThreads(); it may have any alignment. The functions
 * allocate nothing. Source and destination must not overlap. */

/* Size of the work buffer, in bytes. With W, H, D the dstVOI width, height and depth,
 * al16(n) = (n+15) & ~15, al64(n) = (n+63) & ~63, the per-thread size is
 *   nearest:   ((W+15)/16 + (H+15)/16 + (D+15)/16)*64 + 64;
 *   trilinear: ((8(W+H)+127) & ~63)*4 + ((2W+127) & ~63)*4 + A + 2H*al64(W)*4 + 64;
 *   cubic:     ((128(W+H)+255) & ~63)*4 + ((16D+1020) & ~255) + ((4H+255)/64)*256 + 8R + A
 *              + 16H*al64(W) + 64, with R = (4W+255) & ~63;
 * A = (al16(W) + al16(H) + al16(D) + al64(W) + al64(H) + al64(D))*4, and the value written is
 * the per-thread size times ownGetNumThreads(). The arithmetic is signed 32-bit and wraps
 * without notice. The sizes grow with the area of a destination slice (16*H*W*T bytes for the
 * cubic codes, 8*H*W*T for trilinear), so slices of tens of millions of voxels make the value
 * meaningless (negative, or too small): resize such volumes in bands of fewer rows, a dstVOI
 * of smaller height per call, which gives the same voxels as one call.
 * The size depends only on dstVOI, interpolation and the thread count; srcVOI is checked but
 * plays no part.
 * Checks, in order: pSize, srcVOI or dstVOI null: vtqStsErrNullPtr; an origin coordinate of
 * either cuboid below 0 or an extent below 1: vtqStsErrSize; nChannel other than 1:
 * vtqStsErrChannels; interpolation not a VtqInterpolation code: vtqStsErrInterpolation. On
 * success writes *pSize and returns vtqStsOk; on failure writes nothing. */
VTQR_API VtqStatus vtqrResizeGetBufSize(const VtqCuboid* srcVOI, const VtqCuboid* dstVOI,
                                        int nChannel, int interpolation, int* pSize);

/* The destination cuboid a resize maps the source cuboid to, without a destination VOI to
 * clip it: per axis, with o and e the srcVOI origin and extent,
 *     start = trunc(o*factor + shift + 0.4999999999),
 *     end   = trunc((o + e)*factor + shift + 0.5000000001),
 * both in double and clamped to [0, 2^31 - 1]. A mapped edge exactly on a half rounds down at
 * the start and up at the end; factor 1 with shift 0 gives the source cuboid back.
 * Checks, in order: pDstCuboid or srcVOI null: vtqStsErrNullPtr; a srcVOI origin coordinate
 * below 0 or an extent below 1: vtqStsErrSize; a factor not positive (<= 0 or NaN):
 * vtqStsErrResizeFactor; interpolation not a VtqInterpolation code (it plays no other part):
 * vtqStsErrInterpolation. If start >= end on any axis (also for an infinite or NaN shift) the
 * function returns vtqStsWarnNoOperation and leaves *pDstCuboid untouched; otherwise it writes
 * (start x, y, z, end - start along x, y, z) and returns vtqStsOk. */
VTQR_API VtqStatus vtqrGetResizeCuboid(const VtqCuboid* srcVOI, VtqCuboid* pDstCuboid,
                                       double xFactor, double yFactor, double zFactor,
                                       double xShift, double yShift, double zShift,
                                       int interpolation);

/* Resize of a V volume (one block with row and plane steps). See the shared description and
 * checks above. */
VTQR_API VtqStatus vtqrResize_8u_C1V(const Vtq8u* pSrc, VtqVolumeSize srcVolume, int srcStep,
                                     int srcPlaneStep, VtqCuboid srcVOI, Vtq8u* pDst, int dstStep,
                                     int dstPlaneStep, VtqCuboid dstVOI, double xFactor,
                                     double yFactor, double zFactor, double xShift, double yShift,
                                     double zShift, int interpolation, Vtq8u* pBuffer);
VTQR_API VtqStatus vtqrResize_16u_C1V(const Vtq16u* pSrc, VtqVolumeSize srcVolume, int srcStep,
                                      int srcPlaneStep, VtqCuboid srcVOI, Vtq16u* pDst, int dstStep,
                                      int dstPlaneStep, VtqCuboid dstVOI, double xFactor,
                                      double yFactor, double zFactor, double xShift, double yShift,
                                      double zShift, int interpolation, Vtq8u* pBuffer);
VTQR_API VtqStatus vtqrResize_32f_C1V(const Vtq32f* pSrc, VtqVolumeSize srcVolume, int srcStep,
                                      int srcPlaneStep, VtqCuboid srcVOI, Vtq32f* pDst, int dstStep,
                                      int dstPlaneStep, VtqCuboid dstVOI, double xFactor,
                                      double yFactor, double zFactor, double xShift, double yShift,
                                      double zShift, int interpolation, Vtq8u* pBuffer);

/* Resize of a PV volume (arrays of slice pointers with a row step): pSrc holds at least
 * srcVOI.z + (trimmed depth) pointers, pDst at least the region's end z; only the slices of
 * the source VOI and of the destination region are read. From C, declare the source array as
 * `const Vtq8u* slices[n]` to pass it without a cast. See the shared description and checks
 * above; only the arrays themselves are tested for null. */
VTQR_API VtqStatus vtqrResize_8u_C1PV(const Vtq8u* const* pSrc, VtqVolumeSize srcVolume,
                                      int srcStep, VtqCuboid srcVOI, Vtq8u* const* pDst,
                                      int dstStep, VtqCuboid dstVOI, double xFactor, double yFactor,
                                      double zFactor, double xShift, double yShift, double zShift,
                                      int interpolation, Vtq8u* pBuffer);
VTQR_API VtqStatus vtqrResize_16u_C1PV(const Vtq16u* const* pSrc, VtqVolumeSize srcVolume,
                                       int srcStep, VtqCuboid srcVOI, Vtq16u* const* pDst,
                                       int dstStep, VtqCuboid dstVOI, double xFactor,
                                       double yFactor, double zFactor, double xShift, double yShift,
                                       double zShift, int interpolation, Vtq8u* pBuffer);
VTQR_API VtqStatus vtqrResize_32f_C1PV(const Vtq32f* const* pSrc, VtqVolumeSize srcVolume,
                                       int srcStep, VtqCuboid srcVOI, Vtq32f* const* pDst,
                                       int dstStep, VtqCuboid dstVOI, double xFactor,
                                       double yFactor, double zFactor, double xShift, double yShift,
                                       double zShift, int interpolation, Vtq8u* pBuffer);

/* Remap -------------------------------------------------------------------------------------
 *
 * Samples the source at an arbitrary position per destination voxel: for the voxel (x, y, z)
 * of the destination volume, the three maps give the source position
 *     mx = pxMap[z][y][x],  my = pyMap[z][y][x],  mz = pzMap[z][y][x]
 * (32f, in source voxel coordinates; map voxel (x, y) of slice z lies at
 * pxMap[z] + y*mapStep + x*4 bytes, likewise for the other two maps). Every voxel of
 * dstVolume is visited; source, destination and maps are PV volumes (arrays of slice
 * pointers, steps in bytes, 64-bit addressing as above).
 *
 * Checks, in this order (the first failure is returned and nothing is written):
 *  1. pSrc or pDst null: vtqStsErrNullPtr;
 *  2. pxMap, pyMap or pzMap null: vtqStsErrNullPtr;
 *  3. srcVolume width, height or depth below 1, a srcVOI origin coordinate below 0 or extent
 *     below 1, or dstVolume width, height or depth below 1: vtqStsErrSize;
 *  4. interpolation not a VtqInterpolation code: vtqStsErrInterpolation.
 *
 * A source of depth 1 is remapped in two dimensions: the call becomes a planar remap of
 * pSrc[0] (srcVolume width and height, the x/y part of srcVOI) through pxMap[0] and pyMap[0]
 * into pDst[0] (dstVolume width and height), whose result is returned. It tests pSrc[0],
 * pDst[0], then pxMap[0] and pyMap[0] for null (vtqStsErrNullPtr); pzMap is not read beyond
 * the null test above, srcVOI.z and depth and dstVolume.depth play no part, and everything
 * below holds with the z axis left out (no z taps, weights or bounds).
 *
 * Then, in 3-D:
 *  - srcVOI origin outside srcVolume (x >= width, y >= height or z >= depth):
 *    vtqStsWarnVoiOutside, nothing written. Otherwise the VOI is trimmed to the volume
 *    (width = min(srcVOI.width, srcVolume.width - srcVOI.x), likewise height and depth), and
 *    its inclusive bounds are xMin = srcVOI.x, xMax = srcVOI.x + width - 1, likewise y, z.
 *  - Small sources: if srcVolume width, height or depth is below 4, a cubic code is done as
 *    trilinear; then if any of them is below 2, as nearest.
 *  - A voxel whose position fails xMin <= mx <= xMax, yMin <= my <= yMax or
 *    zMin <= mz <= zMax is not written: it keeps whatever the destination held. A NaN or
 *    infinite coordinate fails; no position reads outside the source volume.
 *
 * Interpolation at an inside position (mx, my, mz), single precision throughout:
 *  - nearest: the voxel (rint(mx), rint(my), rint(mz)), rint rounding to nearest with halves
 *    to even. The value is copied (a 32f voxel keeps its bits).
 *  - trilinear: per axis ix = trunc(mx); where ix equals the upper bound (xMax) it is one less,
 *    so that the fraction fx = mx - ix becomes 1 (and where that would give -1, a VOI one voxel
 *    wide at voxel 0, ix stays 0 with fraction 0). The eight voxels ix..ix+1, iy..iy+1,
 *    iz..iz+1 combine along x as a = p0*(1 - fx) + p1*fx for each of the four (y, z) pairs,
 *    then along y with (1 - fy, fy), then along z with (1 - fz, fz).
 *  - cubic (4 to 7): per axis ix = trunc(mx), t = mx - ix; the taps at the offsets k = -1, 0,
 *    1, 2 from ix get the weights w = K[i] + (K[i+1] - K[i])*r, where K is the code's kernel
 *    sampled at the 201 distances 0, 0.01, ..., 2.00 (K[i] = kernel(i/100) rounded to float),
 *    d = min(|k - t|, 2), u = 100*d, i = floor(u) held at most 199, r = u - i (all in float;
 *    a distance of 2 gives weight 0). The taps' voxels are ix-1, ix, ix+1, ix+2, except at
 *    the borders: ix < 1 reads (0, 0, 1, 2); ix = xMax - 1 reads (ix-1, ix, ix+1, ix+1);
 *    ix >= xMax reads (ix-1, ix, ix, ix) (the first rule that applies; the weights stay
 *    those of the offsets). Below xMin the taps may read the volume outside the VOI. The
 *    4 x 4 x 4 taps combine separably: for each (y, z) pair of taps along x as
 *    (w0*p0 + w1*p1) + (w2*p2 + w3*p3), then the four results of each z along y in the same
 *    grouping, then the four along z.
 * Products and sums are single-precision operations in exactly this order, never fused.
 *
 * Storing: 32f stores the float. 16u (and 8u for nearest, trilinear and cubic voxels without
 * replaced taps) clamps to [0, 65535] ([0, 255]) and rounds to nearest, halves to even; the
 * clamp matters for the cubic codes 4, 6 and 7, which overshoot the range of their taps. A
 * cubic 8u voxel where any tap was replaced at a border (ix < 1 or ix >= xMax - 1 on some
 * axis) is instead trunc(double(sum) + 0.5000001) clamped to [0, 255]: the two roundings
 * differ on exact halves (2.5 gives 2 in the interior, 3 at a border), on purpose.
 *
 * Results are bit-identical whatever the thread count and the code path (the u8 and n8
 * builds are separate compilations of one source). A voxel's value depends only on its own
 * position, not on its neighbours in the maps.
 *
 * Threads: when dstVolume width, height and depth are all at least 16 and ownGetNumThreads()
 * is above 1, the destination slices are divided into contiguous runs, as even as possible
 * (the later threads taking one slice more when the count does not divide evenly), one per
 * thread of one OpenMP parallel region of ownGetNumThreads() threads; a planar remap divides
 * its rows the same way when the destination is at least 16 wide and high. Otherwise, or
 * when called from inside a parallel region, the calling thread does all the work. No work
 * buffer is used and nothing is allocated. Source, maps and destination must not overlap. */
VTQR_API VtqStatus vtqrRemap_8u_C1PV(const Vtq8u* const* pSrc, VtqVolumeSize srcVolume, int srcStep,
                                     VtqCuboid srcVOI, const Vtq32f* const* pxMap,
                                     const Vtq32f* const* pyMap, const Vtq32f* const* pzMap,
                                     int mapStep, Vtq8u* const* pDst, int dstStep,
                                     VtqVolumeSize dstVolume, int interpolation);
VTQR_API VtqStatus vtqrRemap_16u_C1PV(const Vtq16u* const* pSrc, VtqVolumeSize srcVolume,
                                      int srcStep, VtqCuboid srcVOI, const Vtq32f* const* pxMap,
                                      const Vtq32f* const* pyMap, const Vtq32f* const* pzMap,
                                      int mapStep, Vtq16u* const* pDst, int dstStep,
                                      VtqVolumeSize dstVolume, int interpolation);
VTQR_API VtqStatus vtqrRemap_32f_C1PV(const Vtq32f* const* pSrc, VtqVolumeSize srcVolume,
                                      int srcStep, VtqCuboid srcVOI, const Vtq32f* const* pxMap,
                                      const Vtq32f* const* pyMap, const Vtq32f* const* pzMap,
                                      int mapStep, Vtq32f* const* pDst, int dstStep,
                                      VtqVolumeSize dstVolume, int interpolation);

/* Affine warp -------------------------------------------------------------------------------
 *
 * Transforms the source by an affine map. coeffs maps source coordinates to destination
 * coordinates:
 *     dst = A * src + b,  A[i][j] = coeffs[i][j] (i, j < 3),  b[i] = coeffs[i][3],
 * with voxel coordinates as above, absolute in each volume (not relative to a VOI). Every
 * voxel (x, y, z) of dstVOI is sampled at its source position, the inverse map applied to
 * it. The inverse is computed once per call in double: the cofactors
 * c[i][j] = a[i+1][j+1]*a[i+2][j+2] - a[i+1][j+2]*a[i+2][j+1] (indices mod 3, written out as
 * products in that order), det = a[0][0]*c[0][0] + a[0][1]*c[0][1] + a[0][2]*c[0][2] summed
 * left to right, M[i][j] = c[j][i] / det, and t[i] = -((M[i][0]*b[0] + M[i][1]*b[1]) +
 * M[i][2]*b[2]). The source position of the voxel is then, per axis i, in double,
 *     s[i] = M[i][0]*x + ((M[i][1]*y + M[i][2]*z) + t[i]),
 * rounded to float once. From there the voxel is exactly a remap voxel whose maps hold those
 * floats: the same bounds (srcVOI trimmed to the volume; a voxel whose position falls outside
 * is not written and keeps its value), the same reduction of the mode on small sources, the
 * same interpolation, rounding and storing for each code. A position of an infinite or NaN
 * value falls outside.
 *
 * Checks, in this order (the first failure is returned and nothing is written):
 *  1. pSrc, pDst or coeffs null: vtqStsErrNullPtr;
 *  2. srcVolume width, height or depth below 1, or a srcVOI or dstVOI origin coordinate below
 *     0 or extent below 1: vtqStsErrSize;
 *  3. the coefficient test: vtqStsErrCoeff when |A[0][0]|, |A[1][1]| and |A[2][2]| are all at
 *     or below 1e-100 (a matrix with no diagonal left, invertible or not; a 90-degree rotation
 *     about one axis keeps one diagonal entry and passes), or when A cannot be inverted in
 *     double: det is 0 or not finite, or an entry of M or t is not finite (which any infinite
 *     or NaN coefficient causes);
 *  4. interpolation not a VtqInterpolation code: vtqStsErrInterpolation.
 *
 * A source of depth 1 is warped in two dimensions: the call becomes a planar warp of pSrc[0]
 * into pDst[0] by the x/y part of the coefficients (the 2 x 2 block A[0..1][0..1] and
 * b[0..1]; the third row and column play no part after check 3), with the x/y parts of
 * srcVOI and dstVOI, whose result is returned. The planar warp tests pSrc[0] and pDst[0] for
 * null (vtqStsErrNullPtr), then whether its 2 x 2 block can be inverted (det = A[0][0]*A[1][1]
 * - A[0][1]*A[1][0] zero or not finite, or a non-finite inverse: vtqStsErrCoeff; the diagonal
 * test is not repeated, so a quarter turn of the slice is a valid planar warp), then proceeds
 * with the z axis left out:
 * M = (A[1][1], -A[0][1]; -A[1][0], A[0][0]) / det entry by entry, t[i] = -(M[i][0]*b[0] +
 * M[i][1]*b[1]), s[i] = M[i][0]*x + (M[i][1]*y + t[i]).
 *
 * Then: srcVOI origin outside srcVolume: vtqStsWarnVoiOutside, nothing written. Otherwise the
 * voxels of dstVOI are written (those whose position falls inside the source VOI); nothing
 * outside dstVOI is touched, and pDst must hold its slices and rows (there is no destination
 * volume size to trim it to).
 *
 * Results are bit-identical whatever the thread count. Threads: the dstVOI slices are split as
 * for remap, when dstVOI is at least 16 voxels on every axis (a planar warp: its rows, when at
 * least 16 wide and high). Source and destination must not overlap.
 *
 * pBuffer: the work buffer of the size query's pattern. The warp needs none: the pointer is
 * never read and may be null. */

/* Size of the warp's work buffer: always 0. Checks, in order: pSize, srcVOI or dstVOI null:
 * vtqStsErrNullPtr; an origin coordinate of either cuboid below 0 or an extent below 1:
 * vtqStsErrSize; nChannel other than 1: vtqStsErrChannels; interpolation not a
 * VtqInterpolation code: vtqStsErrInterpolation. On success writes 0 to *pSize and returns
 * vtqStsOk; on failure writes nothing. */
VTQR_API VtqStatus vtqrWarpAffineGetBufSize(const VtqCuboid* srcVOI, const VtqCuboid* dstVOI,
                                            int nChannel, int interpolation, int* pSize);

VTQR_API VtqStatus vtqrWarpAffine_8u_C1PV(const Vtq8u* const* pSrc, VtqVolumeSize srcVolume,
                                          int srcStep, VtqCuboid srcVOI, Vtq8u* const* pDst,
                                          int dstStep, VtqCuboid dstVOI, const double coeffs[3][4],
                                          int interpolation, Vtq8u* pBuffer);
VTQR_API VtqStatus vtqrWarpAffine_16u_C1PV(const Vtq16u* const* pSrc, VtqVolumeSize srcVolume,
                                           int srcStep, VtqCuboid srcVOI, Vtq16u* const* pDst,
                                           int dstStep, VtqCuboid dstVOI, const double coeffs[3][4],
                                           int interpolation, Vtq8u* pBuffer);
VTQR_API VtqStatus vtqrWarpAffine_32f_C1PV(const Vtq32f* const* pSrc, VtqVolumeSize srcVolume,
                                           int srcStep, VtqCuboid srcVOI, Vtq32f* const* pDst,
                                           int dstStep, VtqCuboid dstVOI, const double coeffs[3][4],
                                           int interpolation, Vtq8u* pBuffer);

/* Filter ------------------------------------------------------------------------------------
 *
 * Convolves a signed 16-bit volume with a 3-D kernel of signed 16-bit weights, divides by an
 * integer divisor with rounding and saturates to 16 bits.
 *
 * Kernel: kernelVolume.width * height * depth weights, x fastest, without padding: weight
 * (i, j, k) is pKernel[(k*height + j)*width + i]. The anchor names the kernel element that lies
 * over the destination voxel. The kernel is applied as a true convolution (mirrored), so that
 * with W, H, D the destination size and (ax, ay, az) the anchor,
 *     sum(x, y, z) = sum over i, j, k of  K(i, j, k) * S(x + ax - i, y + ay - j, z + az - k)
 * for 0 <= x < W, 0 <= y < H, 0 <= z < D. Source and destination share their coordinates:
 * S(x, y, z) is the voxel at pSrc[z] + y*srcStep + x*2 bytes, with negative coordinates
 * allowed. The filter adds no border of its own: the caller supplies it, and exactly the
 * source voxels
 *     x in [ax - (kernel width - 1), W - 1 + ax],
 *     y in [ay - (kernel height - 1), H - 1 + ay],
 *     z in [az - (kernel depth - 1), D - 1 + az]
 * are read, no other. For a centred kernel of odd size n (anchor (n-1)/2 on each axis) that is
 * a border of (n-1)/2 voxels on every side. Along z this means that pSrc may point inside a
 * larger array of slice pointers: entries pSrc[az - (depth - 1)] to pSrc[D - 1 + az] are read,
 * and negative indices are fine, for example
 *     const Vtq16s* slices[D + 4];   // a 5x5x5 kernel with anchor (2, 2, 2)
 *     ... vtqrFilter_16s_C1PV(slices + 2, ...);
 * The anchor is not checked; one outside the kernel simply moves the region read (a kernel
 * applied to the source shifted by that much). Mirroring means that a kernel which is
 * symmetric about its anchor gives the same result either way, and that a correlation with
 * kernel C and anchor a is the convolution with C mirrored on every axis and anchor
 * (size - 1 - a).
 *
 * Exact sums: the sum of products is formed exactly for every kernel and source. When the
 * weights cannot carry a sum outside the signed 32-bit range, that is when
 *     32767 * P + 32768 * N <= 2^31 - 1  and  32768 * P + 32767 * N <= 2^31
 * with P the sum of the positive weights and N the sum of the magnitudes of the negative ones
 * (about: the magnitudes add up to at most 65535), the sums are accumulated in 32 bits;
 * otherwise in 64 bits, with the same exactness at a quarter to a fifth of the speed.
 *
 * Division: each sum is divided by `divisor` (any int but 0, negative ones included) and the
 * quotient rounded to the nearest integer, an exact half to the even neighbour, then saturated
 * to [-32768, 32767]:
 *  - when |divisor| is a power of two 2^s, the sum is shifted right arithmetically by s with
 *    the bits shifted out deciding the rounding (more than half rounds up, exactly half rounds
 *    to the even result); a negative divisor then negates the rounded value (halves to even
 *    are symmetric, so this is the rounding of the negative quotient);
 *  - otherwise the quotient q = sum / divisor is formed in double precision; q >= 32767 gives
 *    32767 and q <= -32768 gives -32768; for 0.5 < q it is trunc(q + 0.5), for q < -0.5
 *    trunc(q - 0.5), an exact tie going to the even neighbour; -0.5 <= q <= 0.5 gives 0.
 * Both rules give the correctly rounded quotient of the exact sum: a double quotient of such
 * integers never lands on a half unless the exact quotient does. (This takes the processor's
 * default rounding mode as given, as every function of the library does.)
 *
 * Threads: when the destination is at least 16 voxels along every axis and ownGetNumThreads()
 * is above 1, its rows (all H*D of them, slice by slice) are divided into contiguous runs, as
 * even as possible, one per thread of one OpenMP parallel region of ownGetNumThreads()
 * threads, each with its own part of pBuffer. Otherwise, or called from inside a parallel
 * region, the calling thread does all rows. Results are bit-identical whatever the thread
 * count, code path and alignment of the arrays.
 *
 * Work buffer: pBuffer holds at least the bytes vtqrFilterGetBufSize gives for the same
 * destination and kernel sizes at the same ownGetNumThreads(); it may have any alignment. The
 * kernel is repacked into it once per call (pairs of weights of neighbouring kernel columns,
 * in two arrangements offset by one column), and each thread keeps one destination row of
 * 32-bit sums there. The function allocates nothing. Source and destination must not overlap;
 * rows of both start on even addresses (steps are even). Steps are bytes, signed, unchecked,
 * and every address is formed in 64-bit arithmetic. */

/* A point or offset in voxels, passed by value. */
typedef struct VtqPoint3D {
  int32_t x;
  int32_t y;
  int32_t z;
} VtqPoint3D;

/* Size of the filter's work buffer, in bytes. With W the destination width and (kW, kH, kD)
 * the kernel size, the per-thread size is
 *     ((W + 15) / 16) * 64 + ((kW + 1) / 2) * 16 * kH * kD * 2 + 64
 * (one row of 32-bit sums rounded up to 16 voxels, the repacked kernel: 16 bytes per pair of
 * kernel columns, per kernel row and slice, in two arrangements, and room for alignment), and
 * the value written is that times ownGetNumThreads(). The arithmetic is signed 32-bit and
 * wraps without notice; only kernels of millions of weights or rows of hundreds of millions
 * of voxels come near that.
 * Checks, in order: pSize, dstVolume or kernelVolume null: vtqStsErrNullPtr; a dstVolume
 * width, height or depth below 1: vtqStsErrSize; a kernelVolume width, height or depth below
 * 1: vtqStsErrSize; nChannel other than 1: vtqStsErrChannels. On success writes *pSize and
 * returns vtqStsOk; on failure writes nothing. */
VTQR_API VtqStatus vtqrFilterGetBufSize(const VtqVolumeSize* dstVolume,
                                        const VtqVolumeSize* kernelVolume, int nChannel,
                                        int* pSize);

/* Convolution of a PV volume of 16s voxels into a PV destination of dstVolume's size (see the
 * description above): destination voxel (x, y, z), at pDst[z] + y*dstStep + x*2 bytes, becomes
 * the rounded and saturated quotient of sum(x, y, z) by divisor.
 * Checks, in order (the first failure is returned and nothing is written):
 *  1. pSrc, pDst or pKernel null: vtqStsErrNullPtr;
 *  2. pBuffer null: vtqStsErrNullPtr;
 *  3. dstVolume width, height or depth below 1: vtqStsErrSize;
 *  4. kernelVolume width, height or depth below 1, or divisor 0: vtqStsErrSize (a zero divisor
 *     counts as a size error).
 * Returns vtqStsOk after writing every destination voxel. The slice pointers inside pSrc and
 * pDst are not checked. */
VTQR_API VtqStatus vtqrFilter_16s_C1PV(const Vtq16s* const* pSrc, int srcStep, Vtq16s* const* pDst,
                                       int dstStep, VtqVolumeSize dstVolume, const Vtq16s* pKernel,
                                       VtqVolumeSize kernelVolume, VtqPoint3D anchor, int divisor,
                                       Vtq8u* pBuffer);

#ifdef __cplusplus
}
#endif

#endif /* VTQR_VOLUME_H */
