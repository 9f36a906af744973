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
 * stands at index l*l + l + m of a set. Directions must be unit vectors. */

/* Method selectors. */
enum VtqrSHMethod {
  vtqrSHDirect = 0,    /* closed-form polynomials evaluated in double precision */
  vtqrSHRecurrence = 1 /* single-precision recurrence over precomputed tables */
};

/* SH state at the start of a caller-owned buffer sized by vtqrSHGetSize_32f. */
typedef struct VtqrSHState {
  Vtq32u maxOrder;
  Vtq32u method;
  Vtq32f* tableA;
  Vtq32f* tableB;
} VtqrSHState;

VTQR_API VtqStatus vtqrSHGetSize_32f(Vtq32u order, int method, Vtq32u* pSize);
VTQR_API VtqStatus vtqrSHInit_32f(VtqrSHState* pState, Vtq32u order, int method);
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

/* Transforms --------------------------------------------------------------------------------- */

VTQR_API VtqStatus vtqrSHTFwd_32f_C1I(const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ,
                                      const Vtq32f* pSrc, int n, Vtq32f* pSrcDst, Vtq32u order,
                                      const VtqrSHState* pState);
VTQR_API VtqStatus vtqrSHTFwd_32f_C3P3I(const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ,
                                        const Vtq32f* pSrc, int n, Vtq32f* const pSrcDst[3],
                                        Vtq32u order, const VtqrSHState* pState);
VTQR_API VtqStatus vtqrSHTFwd_32f_P3I(const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ,
                                      const Vtq32f* const pSrc[3], int n,
                                      Vtq32f* const pSrcDst[3], Vtq32u order,
                                      const VtqrSHState* pState);
VTQR_API VtqStatus vtqrSHTInv_32f_C1(const Vtq32f* pSrc, Vtq32u order, const Vtq32f* pX,
                                     const Vtq32f* pY, const Vtq32f* pZ, Vtq32f* pDst, int n,
                                     const VtqrSHState* pState);
VTQR_API VtqStatus vtqrSHTInv_32f_P3(const Vtq32f* const pSrc[3], Vtq32u order,
                                     const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ,
                                     Vtq32f* const pDst[3], int n, const VtqrSHState* pState);
VTQR_API VtqStatus vtqrSHTInv_32f_P3C3(const Vtq32f* const pSrc[3], Vtq32u order,
                                       const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ,
                                       Vtq32f* pDst, int n, const VtqrSHState* pState);

#ifdef __cplusplus
}
#endif

#endif /* VTQR_SH_H */
