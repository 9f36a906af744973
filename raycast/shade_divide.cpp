// Masked in-place division with defined results for zero divisors.
#include "frame/code_path.h"
#include "frame/kernels.h"
#include "simd/lanes.h"
#include "simd/schemes.h"
#include "simd/select.h"

VTQR_PATH_BEGIN
namespace {

using namespace simd;

// The quotient of a zero or NaN dividend by zero: the quiet NaN the processor itself returns
// for 0/0, whatever NaN the dividend held.
constexpr int32_t kZeroByZeroBits = static_cast<int32_t>(0xFFC00000u);
constexpr int32_t kInfinityBits = 0x7F800000;

}  // namespace

// srcDst = srcDst / src for live rays, 0 for dead ones. A zero divisor gives x / 0 by the sign
// of x alone; the sign of the zero plays no part, unlike in IEEE division, so -0 and +0
// divisors agree. The mask is read but not tested: only the two value planes are required.
VtqStatus Div_32f_C1IM(const Vtq32f* pSrc, const Vtq32s* pMask, Vtq32f* pSrcDst, int len) {
  if (pSrc == nullptr || pSrcDst == nullptr) return vtqStsErrNullPtr;
  if (len < 1) return vtqStsOk;

  const __m128 zero = _mm_setzero_ps();
  const __m128 one = _mm_set1_ps(1.0f);
  const __m128 inf = _mm_castsi128_ps(_mm_set1_epi32(kInfinityBits));
  const __m128 zeroByZero = _mm_castsi128_ps(_mm_set1_epi32(kZeroByZeroBits));
  // Every ray is finished even after a zero divisor; the warning only reports that one
  // occurred. Single-ray steps keep their own record: the zero lanes above the ray look like
  // live zero divisors, so only lane 0 of theirs counts.
  __m128 byZeroFours = zero, byZeroSingles = zero;
  PeelToBoundary(len, pSrcDst, Touches(pSrc, pMask), [&](auto lanes, int i) {
    using Lanes = decltype(lanes);
    __m128 dead = DeadLanes(Lanes::LoadMask(pMask + i));
    __m128 x = Lanes::Load(pSrcDst + i);
    __m128 s = Lanes::Load(pSrc + i);
    __m128 byZero = _mm_andnot_ps(dead, _mm_cmpeq_ps(s, zero));
    // Lanes that take no quotient divide by 1 instead, so no division by zero happens at all
    // and the processor's exception flags see only what the caller's data asks for.
    __m128 quotient = _mm_div_ps(x, Select(_mm_or_ps(dead, byZero), one, s));
    // +inf or -inf carrying the dividend's sign; zero and NaN dividends get the fixed NaN.
    __m128 signedInf = _mm_or_ps(inf, _mm_and_ps(x, SignBits()));
    __m128 nonZero = _mm_or_ps(_mm_cmpgt_ps(x, zero), _mm_cmplt_ps(x, zero));
    __m128 special = Select(nonZero, signedInf, zeroByZero);
    Lanes::Store(pSrcDst + i, LiveOrZero(dead, Select(byZero, special, quotient)));
    if constexpr (Lanes::kWidth == 4) {
      byZeroFours = _mm_or_ps(byZeroFours, byZero);
    } else {
      byZeroSingles = _mm_or_ps(byZeroSingles, byZero);
    }
  });
  bool anyByZero = _mm_movemask_ps(byZeroFours) != 0 || (_mm_movemask_ps(byZeroSingles) & 1) != 0;
  return anyByZero ? vtqStsWarnDivByZero : vtqStsOk;
}

VTQR_PATH_END
