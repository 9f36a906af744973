// Lane policies of the ray walks: one ray in plain floats, or a 2x2 tile of four rays in SSE
// registers.
//
// The walk and the triangle test are written once, as templates over a policy whose float type
// is either `float` or `F4`. F4 spells its arithmetic as operators, so a formula reads the same
// for one ray and for four, and each lane of an F4 operation performs exactly the IEEE
// operation the scalar code performs on that ray: the compiler never fuses or reorders (the
// build uses -ffp-contract=off), so a lane's bits cannot differ from the one-ray result.
// Min and Max keep the SSE operand rule on both sides (a < b ? a : b: the second operand
// when either is NaN) so that even NaN inputs travel identically.
#ifndef VTQR_RAYCAST_RAY_LANES_H_
#define VTQR_RAYCAST_RAY_LANES_H_

#include <tmmintrin.h>

#include <cstddef>
#include <cstdint>

#include "frame/code_path.h"

#define VTQR_LANES_INLINE inline __attribute__((always_inline))

VTQR_PATH_BEGIN
namespace rays {

// Four floats, one per ray. Constructible from a float, so a value common to all rays (the
// eye, a triangle's coefficients) mixes with per-ray values by broadcast: the broadcast lane
// holds the same bits the scalar code uses.
struct F4 {
  __m128 v;
  F4() = default;
  VTQR_LANES_INLINE explicit F4(__m128 x) : v(x) {}
  VTQR_LANES_INLINE F4(float s) : v(_mm_set1_ps(s)) {}  // NOLINT: implicit broadcast
};

// A lane mask: all ones where the condition holds.
struct M4 {
  __m128 v;
};

// Four int32, one per ray (triangle and object numbers).
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
VTQR_LANES_INLINE M4 operator<=(F4 a, F4 b) { return {_mm_cmple_ps(a.v, b.v)}; }
VTQR_LANES_INLINE M4 operator<(F4 a, F4 b) { return {_mm_cmplt_ps(a.v, b.v)}; }
VTQR_LANES_INLINE M4 operator&(M4 a, M4 b) { return {_mm_and_ps(a.v, b.v)}; }
VTQR_LANES_INLINE M4 operator|(M4 a, M4 b) { return {_mm_or_ps(a.v, b.v)}; }
// a and not b.
VTQR_LANES_INLINE M4 AndNot(M4 a, M4 b) { return {_mm_andnot_ps(b.v, a.v)}; }

// a < b ? a : b and a > b ? a : b per lane, exactly what MINPS and MAXPS compute.
VTQR_LANES_INLINE F4 Min(F4 a, F4 b) { return F4(_mm_min_ps(a.v, b.v)); }
VTQR_LANES_INLINE F4 Max(F4 a, F4 b) { return F4(_mm_max_ps(a.v, b.v)); }
VTQR_LANES_INLINE float Min(float a, float b) { return a < b ? a : b; }
VTQR_LANES_INLINE float Max(float a, float b) { return a > b ? a : b; }

VTQR_LANES_INLINE F4 Abs(F4 a) {
  return F4(_mm_andnot_ps(_mm_castsi128_ps(_mm_set1_epi32(INT32_MIN)), a.v));
}
VTQR_LANES_INLINE float Abs(float a) { return __builtin_fabsf(a); }  // clears the sign bit too

// Bits are moved, never computed on: NaN payloads and signed zeros pass through.
VTQR_LANES_INLINE F4 Select(M4 m, F4 a, F4 b) {
  return F4(_mm_or_ps(_mm_and_ps(m.v, a.v), _mm_andnot_ps(m.v, b.v)));
}
VTQR_LANES_INLINE I4 Select(M4 m, I4 a, I4 b) {
  const __m128i mi = _mm_castps_si128(m.v);
  return I4(_mm_or_si128(_mm_and_si128(mi, a.v), _mm_andnot_si128(mi, b.v)));
}
VTQR_LANES_INLINE float Select(bool m, float a, float b) { return m ? a : b; }
VTQR_LANES_INLINE int32_t Select(bool m, int32_t a, int32_t b) { return m ? a : b; }

// Lane masks as the low bits of an int (bit i = lane i), the currency of the walks' control
// flow, and back.
VTQR_LANES_INLINE int LaneBits(M4 m) { return _mm_movemask_ps(m.v); }
VTQR_LANES_INLINE int LaneBits(bool m) { return m ? 1 : 0; }
VTQR_LANES_INLINE int LaneBits(int m) { return m != 0 ? 1 : 0; }  // bool & bool is an int
VTQR_LANES_INLINE M4 LaneMask(int bits) {
  const __m128i lane = _mm_setr_epi32(1, 2, 4, 8);
  return {_mm_castsi128_ps(_mm_cmpeq_epi32(_mm_and_si128(_mm_set1_epi32(bits), lane), lane))};
}

// Where a 2x2 tile lies in a row-major block: its two pixels in the upper row start at element
// `upper`, the two below at `lower`.
struct TileAt {
  ptrdiff_t upper, lower;
};

// One ray, element `at` of each per-ray array.
struct OneLane {
  static constexpr int kWidth = 1;
  static constexpr int kAll = 1;
  using F = float;
  using I = int32_t;
  using At = ptrdiff_t;
  static VTQR_LANES_INLINE F Load(const float* p, At at) { return p[at]; }
  static VTQR_LANES_INLINE void Store(float* p, At at, F v) { p[at] = v; }
  static VTQR_LANES_INLINE I Load(const int32_t* p, At at) { return p[at]; }
  static VTQR_LANES_INLINE void Store(int32_t* p, At at, I v) { p[at] = v; }
  // Bit 0 set when the ray's int value is negative.
  static VTQR_LANES_INLINE int NegativeBits(I v) { return v < 0 ? 1 : 0; }
  static VTQR_LANES_INLINE bool Mask(int bits) { return bits != 0; }
};

// A 2x2 tile: lanes 0, 1 from the upper row, lanes 2, 3 from the row below. The two halves are
// moved with 8-byte loads and stores, so any 4-byte alignment works.
struct TileLanes {
  static constexpr int kWidth = 4;
  static constexpr int kAll = 0xF;
  using F = F4;
  using I = I4;
  using At = TileAt;
  static VTQR_LANES_INLINE F Load(const float* p, At at) {
    const __m128 upper =
        _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p + at.upper)));
    return F4(_mm_loadh_pi(upper, reinterpret_cast<const __m64*>(p + at.lower)));
  }
  static VTQR_LANES_INLINE void Store(float* p, At at, F v) {
    _mm_storel_pi(reinterpret_cast<__m64*>(p + at.upper), v.v);
    _mm_storeh_pi(reinterpret_cast<__m64*>(p + at.lower), v.v);
  }
  static VTQR_LANES_INLINE I Load(const int32_t* p, At at) {
    return I4(_mm_castps_si128(Load(reinterpret_cast<const float*>(p), at).v));
  }
  static VTQR_LANES_INLINE void Store(int32_t* p, At at, I v) {
    Store(reinterpret_cast<float*>(p), at, F4(_mm_castsi128_ps(v.v)));
  }
  static VTQR_LANES_INLINE int NegativeBits(I v) { return _mm_movemask_ps(_mm_castsi128_ps(v.v)); }
  static VTQR_LANES_INLINE M4 Mask(int bits) { return LaneMask(bits); }
};

}  // namespace rays
VTQR_PATH_END

#undef VTQR_LANES_INLINE

#endif  // VTQR_RAYCAST_RAY_LANES_H_
