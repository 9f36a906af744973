// Integer lanes for 16-bit pixel work: widening to 32 bits and floats, pairwise multiply-add,
// saturating packs back to 16 and 8 bits, rounding floats to integers, and the 64-bit lanes
// that sums too large for 32 bits are carried in.
//
// Only SSE2 to SSSE3 is available, so the one pack the hardware lacks (32-bit signed to 16-bit
// unsigned, SSE4.1's packus_epi32) is built from the signed pack.
#ifndef VTQR_SIMD_INT16_H_
#define VTQR_SIMD_INT16_H_

#include <emmintrin.h>

#include <cstdint>
#include <cstring>

#include "frame/code_path.h"
#include "vtqr/types.h"

VTQR_PATH_BEGIN
namespace simd {

// Four bytes from memory of any alignment into bytes 0..3 of a vector.
inline __m128i Load4x8u(const Vtq8u* p) {
  int32_t bits;
  std::memcpy(&bits, p, sizeof(bits));
  return _mm_cvtsi32_si128(bits);
}

// Bytes 0..3 of v as four 32-bit lanes.
inline __m128i Widen8uTo32(__m128i v) {
  const __m128i zero = _mm_setzero_si128();
  return _mm_unpacklo_epi16(_mm_unpacklo_epi8(v, zero), zero);
}

// 16-bit lanes 0..3 of v as four 32-bit lanes, zero- or sign-extended.
inline __m128i Widen16uLo(__m128i v) { return _mm_unpacklo_epi16(v, _mm_setzero_si128()); }
// Each value lands in the upper half of its 32-bit lane, and the arithmetic shift brings it
// down with its sign.
inline __m128i Widen16sLo(__m128i v) { return _mm_srai_epi32(_mm_unpacklo_epi16(v, v), 16); }

// 32-bit integer lanes as floats; exact for every widened 8- or 16-bit value.
inline __m128 ToFloat(__m128i v) { return _mm_cvtepi32_ps(v); }

// Floats rounded to the nearest 32-bit integer, ties to even (the processor's default rounding,
// which the library never changes and, like every float operation here, takes as given). NaN
// and values outside the int32 range give INT32_MIN.
inline __m128i RoundToInt(__m128 v) { return _mm_cvtps_epi32(v); }

// Lane k of the result is a[2k] * b[2k] + a[2k+1] * b[2k+1] of the signed 16-bit lanes, exact
// in 32 bits except for -32768 * -32768 twice, which wraps to INT32_MIN.
inline __m128i MulAddPairs(__m128i a, __m128i b) { return _mm_madd_epi16(a, b); }

// Eight 16-bit lanes from memory of any (2-byte) alignment.
inline __m128i Load8x16(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
inline void Store8x16(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }

// The pair (first, second) in every 32-bit lane: the second operand of MulAddPairs that weights
// the even 16-bit lanes of the first by `first` and the odd ones by `second`.
inline __m128i BroadcastPair(int16_t first, int16_t second) {
  return _mm_set1_epi32(
      static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint16_t>(first)) |
                           static_cast<uint32_t>(static_cast<uint16_t>(second)) << 16));
}

// 32-bit lanes 0, 1 (Lo) or 2, 3 (Hi) of v as two 64-bit lanes, zero-extended.
inline __m128i Widen32uLo(__m128i v) { return _mm_unpacklo_epi32(v, _mm_setzero_si128()); }
inline __m128i Widen32uHi(__m128i v) { return _mm_unpackhi_epi32(v, _mm_setzero_si128()); }

// Four results kept apart by parity, even = (r0, r2, r4, r6) and odd = (r1, r3, r5, r7), back
// in order: r0..r3 (Lo) and r4..r7 (Hi).
inline __m128i InterleaveLo32(__m128i even, __m128i odd) { return _mm_unpacklo_epi32(even, odd); }
inline __m128i InterleaveHi32(__m128i even, __m128i odd) { return _mm_unpackhi_epi32(even, odd); }

// The signed 32-bit lanes of lo (results 0..3) and hi (4..7) as 16-bit lanes, saturated to
// -32768..32767.
inline __m128i PackSat16s(__m128i lo, __m128i hi) { return _mm_packs_epi32(lo, hi); }

// The signed 16-bit lanes of lo (results 0..7) and hi (8..15) as bytes, saturated to 0..255.
inline __m128i PackSat8u(__m128i lo, __m128i hi) { return _mm_packus_epi16(lo, hi); }

namespace detail {
// v with negative lanes set to 0, then moved down by 32768 into the signed pack's range. The
// order matters: biasing first would wrap lanes near INT32_MIN round to large positives.
inline __m128i ZeroNegativesAndBias(__m128i v) {
  const __m128i nonNegative = _mm_and_si128(v, _mm_cmpgt_epi32(v, _mm_set1_epi32(-1)));
  return _mm_sub_epi32(nonNegative, _mm_set1_epi32(32768));
}
}  // namespace detail

// The signed 32-bit lanes of lo (results 0..3) and hi (4..7) as 16-bit lanes, saturated to
// 0..65535. Clamped below at zero and biased by -32768, every lane fits the signed pack
// except those above 65535, which that pack saturates to 32767; flipping the top bit of each
// 16-bit result then removes the bias.
inline __m128i PackSat16u(__m128i lo, __m128i hi) {
  const __m128i packed = _mm_packs_epi32(detail::ZeroNegativesAndBias(lo),
                                         detail::ZeroNegativesAndBias(hi));
  return _mm_xor_si128(packed, _mm_set1_epi16(INT16_MIN));
}

// The 32-bit lanes of lo (results 0..3) and hi (4..7), each already within 0..65535 (after a
// clamp), as 16-bit lanes. The bias alone brings them into the signed pack's range: three
// instructions fewer than PackSat16u, and the same result for such lanes.
inline __m128i Pack16uInRange(__m128i lo, __m128i hi) {
  const __m128i bias = _mm_set1_epi32(32768);
  const __m128i packed = _mm_packs_epi32(_mm_sub_epi32(lo, bias), _mm_sub_epi32(hi, bias));
  return _mm_xor_si128(packed, _mm_set1_epi16(INT16_MIN));
}

}  // namespace simd
VTQR_PATH_END

#endif  // VTQR_SIMD_INT16_H_
