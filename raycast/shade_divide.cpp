// Masked in-place division with defined results for zero divisors.
#include "frame/code_path.h"
#include "frame/kernels.h"
#include "raycast/shade_simd.h"

VTQR_PATH_BEGIN
namespace {

using namespace shade;

// The quotient of a zero or NaN dividend by zero: the quiet NaN the processor itself returns
// for 0/0, whatever NaN the dividend held.
constexpr int32_t kZeroByZeroBits = static_cast<int32_t>(0xFFC00000u);
constexpr int32_t kInfinityBits = 0x7F800000;

// srcDst = srcDst / src for live rays over [begin, end), 0 for dead ones. A zero divisor
// gives x / 0 by the sign of x alone; the sign of the zero plays no part, unlike in IEEE
// division, so -0 and +0 divisors agree. Returns whether a live ray had a zero divisor.
//
// Lanes that take no quotient divide by 1 instead, so no division by zero happens at all and
// the processor's exception flags see only what the caller's data asks for.
template <class Lanes>
bool DivRays(const Vtq32f* src, const Vtq32s* mask, Vtq32f* srcDst, int begin, int end) {
  const __m128 zero = _mm_setzero_ps();
  const __m128 one = _mm_set1_ps(1.0f);
  const __m128 inf = _mm_castsi128_ps(_mm_set1_epi32(kInfinityBits));
  const __m128 zeroByZero = _mm_castsi128_ps(_mm_set1_epi32(kZeroByZeroBits));
  __m128 anyByZero = zero;
  for (int i = begin; i < end; i += Lanes::kWidth) {
    __m128 dead = DeadLanes(Lanes::LoadMask(mask + i));
    __m128 x = Lanes::Load(srcDst + i);
    __m128 s = Lanes::Load(src + i);
    __m128 byZero = _mm_andnot_ps(dead, _mm_cmpeq_ps(s, zero));
    __m128 quotient = _mm_div_ps(x, Select(_mm_or_ps(dead, byZero), one, s));
    // +inf or -inf carrying the dividend's sign; zero and NaN dividends get the fixed NaN.
    __m128 signedInf = _mm_or_ps(inf, _mm_and_ps(x, SignBits()));
    __m128 nonZero = _mm_or_ps(_mm_cmpgt_ps(x, zero), _mm_cmplt_ps(x, zero));
    __m128 special = Select(nonZero, signedInf, zeroByZero);
    Lanes::Store(srcDst + i, LiveOrZero(dead, Select(byZero, special, quotient)));
    anyByZero = _mm_or_ps(anyByZero, byZero);
  }
  // The zero lanes above a single ray look like live zero divisors; they do not count.
  return (_mm_movemask_ps(anyByZero) & Lanes::kLaneBits) != 0;
}

}  // namespace

// The mask is read but not tested: only the two value planes are required.
VtqStatus Div_32f_C1IM(const Vtq32f* pSrc, const Vtq32s* pMask, Vtq32f* pSrcDst, int len) {
  if (pSrc == nullptr || pSrcDst == nullptr) return vtqStsErrNullPtr;
  if (len < 1) return vtqStsOk;

  // Single rays up to the destination's 16-byte boundary, then fours, then the tail. Every
  // ray is finished even after a zero divisor; the warning only reports that one occurred.
  int head = RaysToBoundary(pSrcDst, len);
  int bodyEnd = head + (len - head) / 4 * 4;
  bool byZero = DivRays<OneRay>(pSrc, pMask, pSrcDst, 0, head);
  if (Aligned16(pSrc + head) && Aligned16(pMask + head)) {
    byZero |= DivRays<AlignedFour>(pSrc, pMask, pSrcDst, head, bodyEnd);
  } else {
    byZero |= DivRays<UnalignedFour>(pSrc, pMask, pSrcDst, head, bodyEnd);
  }
  byZero |= DivRays<OneRay>(pSrc, pMask, pSrcDst, bodyEnd, len);
  return byZero ? vtqStsWarnDivByZero : vtqStsOk;
}

VTQR_PATH_END
