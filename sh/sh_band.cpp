// vtqrSHBand_32f: the values of one band at each direction, with no state. The band is tested
// before the count, unlike the state-based evaluation, so band 16 with n = 0 is a bad value.
#include "frame/code_path.h"
#include "frame/kernels.h"
#include "sh/sh_direct.h"

VTQR_PATH_BEGIN

VtqStatus SHBand_32f(const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ, int n, Vtq32f* pDst,
                     Vtq32u band) {
  if (pX == nullptr || pY == nullptr || pZ == nullptr || pDst == nullptr) {
    return vtqStsErrNullPtr;
  }
  if (band > 15) return vtqStsErrBadValue;
  if (n == 0) return vtqStsErrSize;
  // A negative count is no error: there is simply nothing to evaluate.
  if (n < 0) return vtqStsOk;
  sh::EvalDirectBand(pX, pY, pZ, n, pDst, band);
  return vtqStsOk;
}

VTQR_PATH_END
