// Operator lanes: four floats or int32s in one register, spelled like a number, so that a formula
// written once as a template over its float type reads the same for one value (a plain float)
// and for four (an F4).
//
// Each F4 operator is one SSE instruction that performs, in every lane, exactly the IEEE
// operation the scalar operator performs on one value. The build forbids contraction
// (-ffp-contract=off) and fast-math, so neither form is fused or reordered, and a lane's bits
// are the one-value result. The helpers without an operator come in both forms with one rule:
//   Min(a, b) = a < b ? a : b and Max(a, b) = a > b ? a : b, the rule of MINPS and MAXPS: b
//   when either is NaN or both are zeros. (std::min has its operands the other way round and
//   would part from the four-wide result on exactly those inputs.)
//   Select moves bits, never computes on them, so NaN payloads and signed zeros pass through;
//   the four-wide Select is the layer's opaque select (select.h).
// A value common to all lanes (a constant, a shared origin) converts implicitly from float by
// broadcast: each lane then holds the very bits the one-value code uses.
#ifndef VTQR_SIMD_OPERATOR_LANES_H_
#define VTQR_SIMD_OPERATOR_LANES_H_

#include <tmmintrin.h>

#include <cstdint>

#include "frame/code_path.h"
#include "simd/select.h"

// Kernels built from these stay one expression per formula only if every helper is inlined.
#define VTQR_LANES_INLINE [[gnu::always_inline]] inline

VTQR_PATH_BEGIN
namespace simd {

// Four floats.
struct F4 {
  __m128 v;
  F4() = default;
  VTQR_LANES_INLINE explicit F4(__m128 x) : v(x) {}
  VTQR_LANES_INLINE F4(float s) : v(_mm_set1_ps(s)) {}  // NOLINT: implicit broadcast
};

// A lane mask: all ones where a condition holds, zeros elsewhere.
struct M4 {
  __m128 v;
};

// Four int32s (indices, masks).
struct I4 {
  __m128i v;
  I4() = default;
  VTQR_LANES_INLINE explicit I4(__m128i x) : v(x) {}
  VTQR_LANES_INLINE I4(int32_t s) : v(_mm_set1_epi32(s)) {}  // NOLINT: implicit broadcast
};

VTQR_LANES_INLINE F4 operator+(F4 a, F4 b) { return F4(_mm_add_ps(a.v, b.v)); }
VTQR_LANES_INLINE F4 operator-(F4 a, F4 b) { return F4(_mm_sub_ps(a.v, b.v)); }
VTQR_LANES_INLINE F4 operator*(F4 a, F4 b) { return F4(_mm_mul_ps(a.v, b.v)); }
VTQR_LANES_INLINE F4 operator/(F4 a, F4 b) { return F4(_mm_div_ps(a.v, b.v)); }

VTQR_LANES_INLINE M4 operator>(F4 a, F4 b) { return {_mm_cmpgt_ps(a.v, b.v)}; }
VTQR_LANES_INLINE M4 operator>=(F4 a, F4 b) { return {_mm_cmpge_ps(a.v, b.v)}; }
VTQR_LANES_INLINE M4 operator<(F4 a, F4 b) { return {_mm_cmplt_ps(a.v, b.v)}; }
VTQR_LANES_INLINE M4 operator<=(F4 a, F4 b) { return {_mm_cmple_ps(a.v, b.v)}; }
VTQR_LANES_INLINE M4 operator&(M4 a, M4 b) { return {_mm_and_ps(a.v, b.v)}; }
// a and not b.
VTQR_LANES_INLINE M4 AndNot(M4 a, M4 b) { return {_mm_andnot_ps(b.v, a.v)}; }

VTQR_LANES_INLINE F4 Min(F4 a, F4 b) { return F4(_mm_min_ps(a.v, b.v)); }
VTQR_LANES_INLINE F4 Max(F4 a, F4 b) { return F4(_mm_max_ps(a.v, b.v)); }
VTQR_LANES_INLINE float Min(float a, float b) { return a < b ? a : b; }
VTQR_LANES_INLINE float Max(float a, float b) { return a > b ? a : b; }

VTQR_LANES_INLINE F4 Abs(F4 a) { return F4(Abs(a.v)); }
VTQR_LANES_INLINE float Abs(float a) { return __builtin_fabsf(a); }  // clears the sign bit too

VTQR_LANES_INLINE F4 Select(M4 m, F4 a, F4 b) { return F4(Select(m.v, a.v, b.v)); }
VTQR_LANES_INLINE I4 Select(M4 m, I4 a, I4 b) {
  return I4(_mm_castps_si128(Select(m.v, _mm_castsi128_ps(a.v), _mm_castsi128_ps(b.v))));
}
VTQR_LANES_INLINE float Select(bool m, float a, float b) { return m ? a : b; }
VTQR_LANES_INLINE int32_t Select(bool m, int32_t a, int32_t b) { return m ? a : b; }

// Lane i of the result is lane index[i] of v, for indices 0 to 3: a byte shuffle whose control
// sends the four bytes of the chosen lane to each lane (the one permute with a variable index
// that SSSE3 has).
VTQR_LANES_INLINE F4 Permute(F4 v, I4 index) {
  const __m128i byteOfLane = _mm_slli_epi32(index.v, 2);
  const __m128i firstByte = _mm_shuffle_epi8(
      byteOfLane, _mm_setr_epi8(0, 0, 0, 0, 4, 4, 4, 4, 8, 8, 8, 8, 12, 12, 12, 12));
  const __m128i control =
      _mm_add_epi8(firstByte, _mm_setr_epi8(0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3));
  return F4(_mm_castsi128_ps(_mm_shuffle_epi8(_mm_castps_si128(v.v), control)));
}

// Masks as the low bits of an int (bit i for lane i), the currency of control flow, and back.
VTQR_LANES_INLINE int LaneBits(M4 m) { return _mm_movemask_ps(m.v); }
VTQR_LANES_INLINE int LaneBits(bool m) { return m ? 1 : 0; }
VTQR_LANES_INLINE int LaneBits(int m) { return m != 0 ? 1 : 0; }  // bool & bool is an int
VTQR_LANES_INLINE M4 LaneMask(int bits) {
  const __m128i lane = _mm_setr_epi32(1, 2, 4, 8);
  return {_mm_castsi128_ps(_mm_cmpeq_epi32(_mm_and_si128(_mm_set1_epi32(bits), lane), lane))};
}
// Bit i set when int lane i is negative.
VTQR_LANES_INLINE int NegativeBits(I4 v) { return _mm_movemask_ps(_mm_castsi128_ps(v.v)); }
VTQR_LANES_INLINE int NegativeBits(int32_t v) { return v < 0 ? 1 : 0; }

}  // namespace simd
VTQR_PATH_END

#undef VTQR_LANES_INLINE

#endif  // VTQR_SIMD_OPERATOR_LANES_H_
