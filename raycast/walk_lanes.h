// Lane policies of the ray walks: one ray in plain floats, or a 2x2 tile of four rays in operator
// lanes (simd/operator_lanes.h). The walk and the triangle test are templates over a policy;
// the policy names the float and int types and moves a ray's values between the caller's
// row-major planes and those types.
#ifndef VTQR_RAYCAST_WALK_LANES_H_
#define VTQR_RAYCAST_WALK_LANES_H_

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

#include "frame/code_path.h"
#include "simd/operator_lanes.h"

VTQR_PATH_BEGIN
namespace rays {

// The walks are written in the layer's vocabulary; its scalar and four-wide forms overload.
using namespace simd;

// Where a 2x2 tile lies in a row-major block: its two pixels in the upper row start at element
// `upper`, the two below at `lower`.
struct TileAt {
  ptrdiff_t upper, lower;
};

// One ray, element `at` of each per-ray array.
struct OneLane {
  static constexpr int kWidth = 1;
  static constexpr int kLaneBits = 1;
  using F = float;
  using I = int32_t;
  using At = ptrdiff_t;
  [[gnu::always_inline]] static F Load(const float* p, At at) { return p[at]; }
  [[gnu::always_inline]] static void Store(float* p, At at, F v) { p[at] = v; }
  [[gnu::always_inline]] static I Load(const int32_t* p, At at) { return p[at]; }
  [[gnu::always_inline]] static void Store(int32_t* p, At at, I v) { p[at] = v; }
  [[gnu::always_inline]] static bool Mask(int bits) { return bits != 0; }
};

// A 2x2 tile: lanes 0, 1 from the upper row, lanes 2, 3 from the row below. Each half is moved
// with one 8-byte load or store, so any 4-byte alignment works.
struct TileLanes {
  static constexpr int kWidth = 4;
  static constexpr int kLaneBits = 0xF;
  using F = F4;
  using I = I4;
  using At = TileAt;
  [[gnu::always_inline]] static F Load(const float* p, At at) {
    const __m128 upper =
        _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p + at.upper)));
    return F4(_mm_loadh_pi(upper, reinterpret_cast<const __m64*>(p + at.lower)));
  }
  [[gnu::always_inline]] static void Store(float* p, At at, F v) {
    _mm_storel_pi(reinterpret_cast<__m64*>(p + at.upper), v.v);
    _mm_storeh_pi(reinterpret_cast<__m64*>(p + at.lower), v.v);
  }
  [[gnu::always_inline]] static I Load(const int32_t* p, At at) {
    return I4(_mm_castps_si128(Load(reinterpret_cast<const float*>(p), at).v));
  }
  [[gnu::always_inline]] static void Store(int32_t* p, At at, I v) {
    Store(reinterpret_cast<float*>(p), at, F4(_mm_castsi128_ps(v.v)));
  }
  [[gnu::always_inline]] static M4 Mask(int bits) { return LaneMask(bits); }
};

}  // namespace rays
VTQR_PATH_END

#endif  // VTQR_RAYCAST_WALK_LANES_H_
