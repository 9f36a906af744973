// Closed-form evaluation of the real spherical harmonics ("direct" method): each Y(l, m) is its
// polynomial in x, y, z, evaluated in double precision and rounded to float once. Used by the
// direct method of the SH state, by the transforms through it, and by the one-band export.
#ifndef VTQR_SH_SH_DIRECT_H_
#define VTQR_SH_SH_DIRECT_H_

#include "frame/code_path.h"

VTQR_PATH_BEGIN
namespace sh {

// Writes n consecutive sets of (order+1)^2 floats to dst, direction i's set at
// dst + i*(order+1)^2, Y(l, m) at index l*l + l + m. order <= 15, n >= 1.
void EvalDirect(const float* x, const float* y, const float* z, int n, float* dst, unsigned order);

// Writes n consecutive sets of 2*band+1 floats, Y(band, -band..band). band <= 15, n >= 1.
// Each value has the same bits as in EvalDirect's set.
void EvalDirectBand(const float* x, const float* y, const float* z, int n, float* dst,
                    unsigned band);

}  // namespace sh
VTQR_PATH_END

#endif  // VTQR_SH_SH_DIRECT_H_
