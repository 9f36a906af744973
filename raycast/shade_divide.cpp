// Masked in-place division with defined results for zero divisors.
#include <bit>
#include <cstdint>
#include <limits>

#include "frame/code_path.h"
#include "frame/kernels.h"

VTQR_PATH_BEGIN
namespace {

// The quotient of a zero or NaN dividend by zero: the quiet NaN the processor itself returns
// for 0/0, whatever NaN the dividend held.
constexpr uint32_t kZeroByZeroBits = 0xFFC00000u;

// x / 0 by the sign of x alone; the sign of the zero divisor plays no part, unlike in IEEE
// division, so -0 and +0 divisors agree.
inline float DivideByZero(float x) {
  if (x > 0.0f) return std::numeric_limits<float>::infinity();
  if (x < 0.0f) return -std::numeric_limits<float>::infinity();
  return std::bit_cast<float>(kZeroByZeroBits);
}

}  // namespace

// The mask is read but not tested: only the two value planes are required.
VtqStatus Div_32f_C1IM(const Vtq32f* pSrc, const Vtq32s* pMask, Vtq32f* pSrcDst, int len) {
  if (pSrc == nullptr || pSrcDst == nullptr) return vtqStsErrNullPtr;
  if (len < 1) return vtqStsOk;

  bool divByZero = false;
  for (int i = 0; i < len; ++i) {
    if (pMask[i] < 0) {
      pSrcDst[i] = 0.0f;
    } else if (pSrc[i] != 0.0f) {
      pSrcDst[i] = pSrcDst[i] / pSrc[i];
    } else {
      // Go on with the other rays; the warning only reports that it happened.
      pSrcDst[i] = DivideByZero(pSrcDst[i]);
      divByZero = true;
    }
  }
  return divByZero ? vtqStsWarnDivByZero : vtqStsOk;
}

VTQR_PATH_END
