// How the filter turns a sum of products into a voxel: division by the caller's divisor, rounded
// to the nearest integer with halves to even, saturated to 16 bits.
//
// Two rules, chosen once per call from the divisor. A divisor of magnitude 2^s is an arithmetic
// shift whose shifted-out bits decide the rounding; any other divisor divides in double
// precision. Both give the correctly rounded quotient of the exact sum: the double quotient of
// two integers (the sum exact in double up to 2^53) sits at least 1/(2|divisor|) from any half
// unless the exact quotient is one, far more than its rounding error below 32768.
//
// Sums that fit in 32 bits are rounded four lanes at a time (ShiftRounding, DoubleRounding);
// 64-bit sums, which only kernels with very large weights produce, one at a time
// (RoundQuotient). Both forms are the same arithmetic, and tests hold both to an exact reference.
#ifndef VTQR_VOLUME_FILTER_DIVISOR_H_
#define VTQR_VOLUME_FILTER_DIVISOR_H_

#include <emmintrin.h>

#include <bit>
#include <cmath>
#include <cstdint>

#include "frame/code_path.h"

VTQR_PATH_BEGIN
namespace volume {

// The divisor as the rounding needs it.
struct Divisor {
  bool powerOfTwo;  // |divisor| = 2^shift
  bool negative;
  int shift;
  double value;

  explicit Divisor(int divisor)
      : powerOfTwo(false), negative(divisor < 0), shift(0), value(divisor) {
    // In unsigned arithmetic, so that INT_MIN = -2^31 is a power of two like the others.
    const uint32_t magnitude = negative ? 0u - static_cast<uint32_t>(divisor)
                                        : static_cast<uint32_t>(divisor);
    powerOfTwo = std::has_single_bit(magnitude);
    if (powerOfTwo) shift = std::countr_zero(magnitude);
  }
};

// |divisor| = 2^s: q = sum >> s (floor), then one up when the fraction f (the s bits shifted
// out) is more than half, or exactly half with q odd: f > half - (q & 1). Written that way the
// comparison cannot overflow even for s = 31. For s = 0 the fraction mask is 0 and `half` 1, so
// nothing ever rounds. A negative divisor negates the result (rounding halves to even is
// symmetric); the one negation that overflows, -INT32_MIN for divisor -1, is turned into
// INT32_MAX, which saturates as 2^31 would.
class ShiftRounding {
 public:
  explicit ShiftRounding(const Divisor& d)
      : count_(_mm_cvtsi32_si128(d.shift)),
        fraction_(_mm_set1_epi32(static_cast<int32_t>((uint32_t{1} << d.shift) - 1))),
        half_(_mm_set1_epi32(d.shift == 0 ? 1 : int32_t{1} << (d.shift - 1))),
        negate_(_mm_set1_epi32(d.negative ? -1 : 0)) {}

  // Four 32-bit sums to four rounded quotients (32-bit lanes, not yet saturated).
  __m128i Round(__m128i sum) const {
    const __m128i one = _mm_set1_epi32(1);
    const __m128i floor = _mm_sra_epi32(sum, count_);
    const __m128i fraction = _mm_and_si128(sum, fraction_);
    const __m128i up = _mm_cmpgt_epi32(fraction, _mm_sub_epi32(half_, _mm_and_si128(floor, one)));
    const __m128i rounded = _mm_sub_epi32(floor, up);  // up is -1 where it rounds up
    // (r ^ -1) - (-1) = -r where the divisor is negative; r where it is not.
    const __m128i signed_ = _mm_sub_epi32(_mm_xor_si128(rounded, negate_), negate_);
    const __m128i wrapped = _mm_and_si128(_mm_cmpeq_epi32(signed_, _mm_set1_epi32(INT32_MIN)),
                                          negate_);
    return _mm_add_epi32(signed_, wrapped);
  }

 private:
  __m128i count_, fraction_, half_, negate_;
};

// Any other divisor: the quotient in double, held to [-32768, 32767] and converted with the
// processor's rounding to nearest, halves to even. Clamping first keeps every value within the
// conversion's range, and since the bounds are integers it does not change a result.
class DoubleRounding {
 public:
  explicit DoubleRounding(const Divisor& d) : divisor_(_mm_set1_pd(d.value)) {}

  __m128i Round(__m128i sum) const {
    const __m128i lo = _mm_cvtpd_epi32(Quotient(_mm_cvtepi32_pd(sum)));
    const __m128i hi = _mm_cvtpd_epi32(Quotient(_mm_cvtepi32_pd(_mm_srli_si128(sum, 8))));
    return _mm_unpacklo_epi64(lo, hi);
  }

 private:
  __m128d Quotient(__m128d sum) const {
    const __m128d q = _mm_div_pd(sum, divisor_);
    return _mm_min_pd(_mm_max_pd(q, _mm_set1_pd(-32768.0)), _mm_set1_pd(32767.0));
  }

  __m128d divisor_;
};

// One 64-bit sum, by the same two rules, written out step by step.
inline int16_t RoundQuotient(int64_t sum, const Divisor& d) {
  int64_t r;
  if (d.powerOfTwo) {
    const int64_t floor = sum >> d.shift;
    const int64_t fraction = sum & ((int64_t{1} << d.shift) - 1);
    const int64_t half = d.shift == 0 ? 1 : int64_t{1} << (d.shift - 1);
    r = floor + (fraction > half - (floor & 1) ? 1 : 0);
    if (d.negative) r = -r;
  } else {
    const double q = static_cast<double>(sum) / d.value;
    if (q >= 32767.0) return 32767;
    if (q <= -32768.0) return -32768;
    if (q > 0.5) {
      r = static_cast<int64_t>(std::trunc(q + 0.5));
      if (static_cast<double>(r) - q == 0.5) r &= ~int64_t{1};  // a tie: clear the lowest bit
    } else if (q < -0.5) {
      r = static_cast<int64_t>(std::trunc(q - 0.5));
      if (q - static_cast<double>(r) == 0.5) r += r & 1;  // a tie: add the lowest bit
    } else {
      r = 0;
    }
  }
  return static_cast<int16_t>(r < -32768 ? -32768 : r > 32767 ? 32767 : r);
}

}  // namespace volume
VTQR_PATH_END

#endif  // VTQR_VOLUME_FILTER_DIVISOR_H_
