// Three planes per argument: P3 plane pointers and the x, y, z vectors of the rays in a step.
#ifndef VTQR_SIMD_VEC3_H_
#define VTQR_SIMD_VEC3_H_

#include <xmmintrin.h>

#include <cstddef>

#include "frame/code_path.h"
#include "simd/lanes.h"
#include "simd/select.h"
#include "vtqr/types.h"

VTQR_PATH_BEGIN
namespace simd {

// The three planes of a P3 argument, copied out of the caller's pointer array once: intrinsic
// stores may alias anything, so planes read through the array would be reloaded after every
// store.
template <class T>
struct Planes {
  explicit Planes(T* const p[3]) : x(p[0]), y(p[1]), z(p[2]) {}
  // Element i of every plane lies on a 16-byte boundary.
  bool Aligned16At(int i) const { return Aligned16(x + i) && Aligned16(y + i) && Aligned16(z + i); }
  T* x;
  T* y;
  T* z;
};

template <class T>
bool Aligned16(const Planes<T>& p) {
  return p.Aligned16At(0);
}

// x, y and z of the rays in a step.
struct Vec3 {
  __m128 x, y, z;
};

template <class Lanes, class T>
Vec3 Load3(const Planes<T>& p, ptrdiff_t i) {
  return {Lanes::Load(p.x + i), Lanes::Load(p.y + i), Lanes::Load(p.z + i)};
}

template <class Lanes>
void Store3(const Planes<Vtq32f>& p, ptrdiff_t i, Vec3 v) {
  Lanes::Store(p.x + i, v.x);
  Lanes::Store(p.y + i, v.y);
  Lanes::Store(p.z + i, v.z);
}

// Select on each of x, y and z, hiding cond from the optimiser once for all three.
inline Vec3 Select(__m128 cond, Vec3 a, Vec3 b) {
  cond = Opaque(cond);
  return {detail::BitSelect(cond, a.x, b.x), detail::BitSelect(cond, a.y, b.y),
          detail::BitSelect(cond, a.z, b.z)};
}

// v in live lanes, (+0, +0, +0) in dead ones.
inline Vec3 LiveOrZero(__m128 dead, Vec3 v) {
  return {LiveOrZero(dead, v.x), LiveOrZero(dead, v.y), LiveOrZero(dead, v.z)};
}

// One constant vector (a light position, a colour) in every lane.
inline Vec3 Broadcast(const Vtq32f v[3]) {
  return {_mm_set1_ps(v[0]), _mm_set1_ps(v[1]), _mm_set1_ps(v[2])};
}

inline Vec3 Add(Vec3 a, Vec3 b) {
  return {_mm_add_ps(a.x, b.x), _mm_add_ps(a.y, b.y), _mm_add_ps(a.z, b.z)};
}

inline Vec3 Sub(Vec3 a, Vec3 b) {
  return {_mm_sub_ps(a.x, b.x), _mm_sub_ps(a.y, b.y), _mm_sub_ps(a.z, b.z)};
}

// Each component of v times s, v on the left as the formulas write it.
inline Vec3 Scale(Vec3 v, __m128 s) {
  return {_mm_mul_ps(v.x, s), _mm_mul_ps(v.y, s), _mm_mul_ps(v.z, s)};
}

// a.x*b.x + a.y*b.y + a.z*b.z, summed left to right like the scalar formula.
inline __m128 Dot(Vec3 a, Vec3 b) {
  return _mm_add_ps(_mm_add_ps(_mm_mul_ps(a.x, b.x), _mm_mul_ps(a.y, b.y)), _mm_mul_ps(a.z, b.z));
}

}  // namespace simd
VTQR_PATH_END

#endif  // VTQR_SIMD_VEC3_H_
