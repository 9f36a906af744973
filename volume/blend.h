// How the taps of one axis combine into one value, four voxels at a time: the single-precision
// formulas of trilinear and cubic interpolation, shared by every volume family so that a mode
// means the same arithmetic wherever it is used.
#ifndef VTQR_VOLUME_BLEND_H_
#define VTQR_VOLUME_BLEND_H_

#include <xmmintrin.h>

#include "frame/code_path.h"

VTQR_PATH_BEGIN
namespace volume {

// How the taps of one mode combine, lane by lane, in single precision and in this order.
template <int kTaps>
struct Blend;

// Trilinear: r0 * (1 - w) + r1 * w, one weight w per output.
template <>
struct Blend<2> {
  static constexpr int kWeights = 1;
  static __m128 Apply(const __m128 (&r)[2], const __m128 (&w)[1]) {
    const __m128 rest = _mm_sub_ps(_mm_set1_ps(1.0f), w[0]);
    return _mm_add_ps(_mm_mul_ps(r[0], rest), _mm_mul_ps(r[1], w[0]));
  }
};

// Cubic: (w0 * r0 + w1 * r1) + (w2 * r2 + w3 * r3).
template <>
struct Blend<4> {
  static constexpr int kWeights = 4;
  static __m128 Apply(const __m128 (&r)[4], const __m128 (&w)[4]) {
    const __m128 inner = _mm_add_ps(_mm_mul_ps(w[0], r[0]), _mm_mul_ps(w[1], r[1]));
    const __m128 outer = _mm_add_ps(_mm_mul_ps(w[2], r[2]), _mm_mul_ps(w[3], r[3]));
    return _mm_add_ps(inner, outer);
  }
};

}  // namespace volume
VTQR_PATH_END

#endif  // VTQR_VOLUME_BLEND_H_
