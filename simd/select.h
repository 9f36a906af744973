// Lane masks and selects: which rays are dead, and moving bits by a mask.
#ifndef VTQR_SIMD_SELECT_H_
#define VTQR_SIMD_SELECT_H_

#include <emmintrin.h>

#include <cstdint>

#include "frame/code_path.h"

VTQR_PATH_BEGIN
namespace simd {

// All ones in the lanes of dead rays, zeros in live ones. A ray is dead when its mask value is
// negative, so spreading the sign bit over the lane is the whole test.
inline __m128 DeadLanes(__m128i mask) { return _mm_castsi128_ps(_mm_srai_epi32(mask, 31)); }

// v in live lanes, +0.0 in dead ones.
inline __m128 LiveOrZero(__m128 dead, __m128 v) { return _mm_andnot_ps(dead, v); }

// v, with the optimiser told nothing about its bits: the empty asm claims to rewrite the
// register, so the compiler can no longer prove that every lane is all ones or all zeros.
inline __m128 Opaque(__m128 v) {
  __asm__("" : "+x"(v));
  return v;
}

namespace detail {
// The bit select itself, for callers that have made cond opaque already.
inline __m128 BitSelect(__m128 cond, __m128 a, __m128 b) {
  return _mm_or_ps(_mm_and_ps(cond, a), _mm_andnot_ps(cond, b));
}
}  // namespace detail

// a where cond is all ones, b where it is zero. The bits are moved, never computed on, so NaN
// payloads (signalling ones included) and signed zeros pass through unchanged.
//
// That promise needs the condition to be opaque. An optimiser that sees cond come from a
// comparison or a sign spread recognises and/andnot/or as a lane select, and may then fold a
// select between x and an arithmetic result of x into arithmetic on x: Select(dead, n, n * s)
// becomes n * Select(dead, 1, s), and Select(dead, c, c + t) becomes c + Select(dead, -0, t).
// Those are exact for every value but a signalling NaN, which the multiply or add quiets, so
// a dead ray's payload would change (clang's optimiser does exactly this; GCC's happens not
// to, which is no promise). Hiding cond costs no instruction of its own, at most a
// register copy when cond is used again afterwards.
inline __m128 Select(__m128 cond, __m128 a, __m128 b) {
  return detail::BitSelect(Opaque(cond), a, b);
}

inline __m128 SignBits() { return _mm_castsi128_ps(_mm_set1_epi32(INT32_MIN)); }
inline __m128 Abs(__m128 v) { return _mm_andnot_ps(SignBits(), v); }

}  // namespace simd
VTQR_PATH_END

#endif  // VTQR_SIMD_SELECT_H_
