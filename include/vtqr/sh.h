/* vtqr: spherical harmonics. */
#ifndef VTQR_SH_H
#define VTQR_SH_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Basis evaluation ----------------------------------------------------------------------------
 *
 * Real orthonormal spherical harmonics with the Condon-Shortley phase, orders 0 to 15. Y(l, m)
 * stands at index l*l + l + m of a set, so a set of order L holds (L+1)^2 values, band after
 * band with m ascending. Directions must be unit vectors: nothing normalises them, and a
 * direction of another length gives values that are not harmonics of that direction.
 * None of the SH functions uses threads; both code paths run the same code. */

/* Method selectors, chosen when the state is built. Both give the same harmonics up to
 * rounding; the direct method is the more accurate (double evaluation, one rounding), the
 * recurrence the faster at high orders. */
enum VtqrSHMethod {
  vtqrSHDirect = 0,    /* closed-form polynomials evaluated in double precision, no tables */
  vtqrSHRecurrence = 1 /* single-precision three-term recurrence over precomputed tables */
};

/* SH state, a record at the start of a caller-owned buffer sized by vtqrSHGetSize_32f and
 * filled by vtqrSHInit_32f. It never changes afterwards and needs no release; any number of
 * calls on any threads may share it. The table pointers are absolute addresses inside the
 * buffer, so the buffer must not be moved or copied after init.
 *
 * For vtqrSHRecurrence each table holds T = (maxOrder+1)(maxOrder+2)/2 floats. tableA starts
 * at the first 16-byte-aligned address at or after the end of the record, tableB at the first
 * 16-byte-aligned address at or after the end of tableA. Entries 0..2 of tableA are the
 * constants of bands 0 and 1 (floats 0x3E906EBB, 0x3EFA2A1D, 0xBEFA2A1D); entries 0..2 of
 * tableB are zero. Band l >= 2 owns entries s..s+l of both tables, s = l(l+1)/2:
 *   tableA[s]   = sqrt(4l^2-1)/l in double, stored as float;
 *   tableA[s+m] = sqrtf((float)(4l^2-1) / (float)(l^2-m^2)), m = 1..l-1, single precision;
 *   tableA[s+l] = -sqrt((2l+1)/(2l)) in double, stored as float;
 *   tableB[s]   = (1/l - 1) * sqrt((double)((float)(2l+1) / (float)(2l-3))), stored as float;
 *   tableB[s+m] = -sqrt((double)((float)((2l+1)((l-1)^2-m^2)) / (float)((2l-3)(l^2-m^2)))),
 *                 m = 1..l-1, stored as float; for m = l-1 this is -0.0 (never read);
 *   tableB[s+l] = 0 (never read).
 * With order 0, tableA still receives its three leading entries; they fit in the gap before
 * tableB. */
typedef struct VtqrSHState {
  Vtq32u maxOrder; /* highest order any later call may ask for */
  Vtq32u method;   /* a VtqrSHMethod */
  Vtq32f* tableA;  /* recurrence tables inside the buffer; null for vtqrSHDirect */
  Vtq32f* tableB;  /* for vtqrSHDirect this field lies beyond the 16-byte buffer: unused */
} VtqrSHState;

/* Writes to *pSize the size in bytes of the state buffer for `order` and `method`.
 * Checks, in order: pSize null: vtqStsErrNullPtr. method vtqrSHDirect: order > 15 gives
 * vtqStsErrSize, otherwise the size is 16. method vtqrSHRecurrence: the size is
 * ((T*8 + 30) & ~31) + 32 with T = (order+1)(order+2)/2, in unsigned 32-bit arithmetic (order
 * 15 gives 1120, order 20 gives 1888). The order has no limit of its own, but a size must fit
 * in 32 bits: for order 32767 and above (up to 0xFFFFFFFF) that arithmetic would wrap to a
 * size too small for the tables, so those orders give vtqStsErrSize and *pSize is not
 * written. The largest order accepted, 32766, gives 4294836256. Any other method:
 * vtqStsErrBadValue. The size covers the alignment gaps of the tables for any buffer that is
 * at least 8-byte aligned. */
VTQR_API VtqStatus vtqrSHGetSize_32f(Vtq32u order, int method, Vtq32u* pSize);

/* Builds the SH state in the buffer at pState, which holds at least the size from
 * vtqrSHGetSize_32f for the same arguments.
 * Checks, in order: pState null: vtqStsErrNullPtr; method vtqrSHDirect with order > 15:
 * vtqStsErrSize; method neither vtqrSHDirect nor vtqrSHRecurrence: vtqStsErrBadValue; method
 * vtqrSHRecurrence with an order the size query refuses (32767 and above): vtqStsErrSize.
 * Nothing is written on failure.
 * Then clears the first S bytes of the buffer (S = that size, rounded down to even), stores
 * maxOrder and method and, for the recurrence, sets tableA and tableB and fills the tables as
 * described at VtqrSHState. The recurrence accepts orders above 15 here (evaluation then
 * refuses them). A direct state writes only its first 16 bytes. */
VTQR_API VtqStatus vtqrSHInit_32f(VtqrSHState* pState, Vtq32u order, int method);

/* Writes n sets of (order+1)^2 values, direction i's set at pDst + i*(order+1)^2, no padding,
 * for the directions (pX[i], pY[i], pZ[i]) with the state's method.
 * Checks, in order: pX, pY, pZ, pDst or pState null: vtqStsErrNullPtr; n == 0: vtqStsErrSize;
 * order > maxOrder: vtqStsErrBadValue; stored method unknown (a buffer never initialised):
 * vtqStsErrBadValue. Then the method's own limit: the direct method returns
 * vtqStsErrBadValue for order > 15, the recurrence for order > 15 or order negative as a
 * signed 32-bit number. Last, a negative n returns vtqStsOk and writes nothing. Nothing is
 * written on failure.
 * Direct: each value is its closed-form polynomial in double precision, rounded to float once
 * (see vtqrSHBand_32f). Recurrence, single precision, per direction: Y(0,0) = A[0];
 * Y(1,-1) = A[2]*y, Y(1,0) = A[1]*z, Y(1,1) = A[2]*x; for l >= 2 with s = l(l+1)/2:
 *   Y(l, l) = (Y(l-1,l-1)*x - Y(l-1,-(l-1))*y) * A[s+l],
 *   Y(l,-l) = (Y(l-1,l-1)*y + Y(l-1,-(l-1))*x) * A[s+l],
 *   Y(l,+-(l-1)) = (A[s+l-1]*z) * Y(l-1,+-(l-1)),
 *   Y(l,+-m) = (A[s+m]*z) * Y(l-1,+-m) + B[s+m] * Y(l-2,+-m), m = 0..l-2,
 * each operation rounded to float, no fused multiply-add. Eight, four or one direction(s) run
 * side by side in SSE lanes with identical per-lane arithmetic, so every direction's bits are
 * the same whatever its position in the arrays and whatever their alignment. Outputs of
 * 16 MiB or more, with pDst 16-byte aligned and (order+1)^2 a multiple of 4, are written with
 * non-temporal stores (same values; they bypass the cache). Its error grows about linearly
 * with l: below 2*(l+1) float ulps of the band's scale sqrt((2l+1)/(4 pi)). */
VTQR_API VtqStatus vtqrSH_32f(const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ, int n,
                              Vtq32f* pDst, Vtq32u order, const VtqrSHState* pState);
/* One band of the basis, needing no state: for each of the n directions writes the 2*band+1
 * values Y(band, -band..band) at pDst + i*(2*band+1), with the same bits as the same values of
 * the direct method. Closed-form polynomials in x, y, z with r^2 = 1: the components are
 * widened to double, x^2, y^2 and z^2 are rounded to float once and widened back, the rest
 * (powers of z^2, the parts of (x+iy)^m, the constant factors, which are the correctly rounded
 * doubles of K(l,m), times sqrt(2) for m != 0) stays in double, and each value is rounded to
 * float once. The error is below one float ulp plus about 0.12*l*l*2^-24*sqrt((2l+1)/(4 pi))
 * (the rounded squares), measured against a long-double reference.
 * Checks, in order: pX, pY, pZ or pDst null: vtqStsErrNullPtr; band > 15: vtqStsErrBadValue;
 * n == 0: vtqStsErrSize. A negative n returns vtqStsOk and writes nothing. No threads. */
VTQR_API VtqStatus vtqrSHBand_32f(const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ, int n,
                                  Vtq32f* pDst, Vtq32u band);

/* Transforms ---------------------------------------------------------------------------------
 *
 * A coefficient array holds (order+1)^2 floats in the index order of a basis set. The forward
 * transforms add value * Y(l,m)(direction) of every sample into the caller's coefficients;
 * weighting (quadrature or solid-angle weights) is the caller's business, applied to the
 * sample values. The inverse transforms evaluate coefficients at directions. The basis comes
 * from the state's method, with the values of vtqrSH_32f. All six run on the caller's thread.
 *
 * Checks, the same for all six, in order:
 *   1. any pointer argument null, including each of the three pointers of a P3 argument:
 *      vtqStsErrNullPtr;
 *   2. n == 0: vtqStsErrSize;
 *   3. order > maxOrder of the state: vtqStsErrBadValue;
 *   4. n < 0: vtqStsOk, nothing done;
 *   5. order > 15 (possible with a recurrence state built for a higher order), or a state
 *      never initialised: vtqStsErrBadValue. The basis of such an order cannot be evaluated,
 *      so these calls fail up front rather than transform with stale basis values.
 * Nothing is written when a check fails.
 *
 * Forward rounding sequence, per sample i in order, per channel c = 0, 1, 2 in order:
 * scaled[k] = Y_k * v rounded to float (exactly Y_k when v == 1.0; +0.0 when v is +-0.0, even
 * where Y_k is infinite or NaN), then coeff[c][k] = coeff[c][k] + scaled[k], one float add per
 * sample and coefficient. The result is exactly that of this sequential float loop; the
 * coefficients are never cleared, so sums carry on across calls. An infinite or NaN sample
 * value reaches every coefficient of the call. Only the first (order+1)^2 coefficients are
 * read or written.
 *
 * Inverse dot product, single precision: with K = (order+1)^2 and p_r the sum of
 * Y_k * coeff[k] over k = r (mod 8) in increasing k (each product rounded, sums starting at
 * +0.0), the value is ((p0 + p4) + (p2 + p6)) + ((p1 + p5) + (p3 + p7)). The grouping is fixed:
 * it does not depend on the alignment of any array, and the three-channel forms give each
 * channel the bits of vtqrSHTInv_32f_C1 on the same coefficients. */

/* Forward, one channel: pSrc[i] is the value of sample i; accumulates into pSrcDst. */

VTQR_API VtqStatus vtqrSHTFwd_32f_C1I(const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ,
                                      const Vtq32f* pSrc, int n, Vtq32f* pSrcDst, Vtq32u order,
                                      const VtqrSHState* pState);
/* Forward, three interleaved channels: pSrc[3i+c] is channel c of sample i; accumulates
 * into the three coefficient arrays pSrcDst[0..2]. The basis is evaluated once per sample. */
VTQR_API VtqStatus vtqrSHTFwd_32f_C3P3I(const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ,
                                        const Vtq32f* pSrc, int n, Vtq32f* const pSrcDst[3],
                                        Vtq32u order, const VtqrSHState* pState);
/* Forward, three channel planes: pSrc[c][i] is channel c of sample i; accumulates into
 * pSrcDst[0..2]. */
VTQR_API VtqStatus vtqrSHTFwd_32f_P3I(const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ,
                                      const Vtq32f* const pSrc[3], int n, Vtq32f* const pSrcDst[3],
                                      Vtq32u order, const VtqrSHState* pState);
/* Inverse, one channel: pDst[i] = dot(basis of direction i, pSrc). */
VTQR_API VtqStatus vtqrSHTInv_32f_C1(const Vtq32f* pSrc, Vtq32u order, const Vtq32f* pX,
                                     const Vtq32f* pY, const Vtq32f* pZ, Vtq32f* pDst, int n,
                                     const VtqrSHState* pState);
/* Inverse, three channels to planes: pDst[c][i] = dot(basis of direction i, pSrc[c]). */
VTQR_API VtqStatus vtqrSHTInv_32f_P3(const Vtq32f* const pSrc[3], Vtq32u order, const Vtq32f* pX,
                                     const Vtq32f* pY, const Vtq32f* pZ, Vtq32f* const pDst[3],
                                     int n, const VtqrSHState* pState);
/* Inverse, three channels interleaved: pDst[3i+c] = dot(basis of direction i, pSrc[c]). */
VTQR_API VtqStatus vtqrSHTInv_32f_P3C3(const Vtq32f* const pSrc[3], Vtq32u order, const Vtq32f* pX,
                                       const Vtq32f* pY, const Vtq32f* pZ, Vtq32f* pDst, int n,
                                       const VtqrSHState* pState);

#ifdef __cplusplus
}
#endif

#endif /* VTQR_SH_H */
