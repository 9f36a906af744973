// Lane helpers shared by the per-ray shading kernels.
//
// Every shading kernel is written once, as a loop over "steps" that each take rays from the
// planes, compute in SSE registers and store the result. The step width comes from a lane
// policy: four rays from aligned planes, four from unaligned planes, or one ray in lane 0.
// Because the one-ray loop runs the very same instruction sequence as the four-wide loop,
// only on one lane, the two paths cannot drift apart: every ray sees the same operations in
// the same order whichever way its array happens to be aligned.
#ifndef VTQR_RAYCAST_SHADE_SIMD_H_
#define VTQR_RAYCAST_SHADE_SIMD_H_

#include <tmmintrin.h>

#include <cstdint>

#include "frame/code_path.h"
#include "vtqr/types.h"

VTQR_PATH_BEGIN
namespace shade {

// Four rays from planes whose element i is 16-byte aligned.
struct AlignedFour {
  static constexpr int kWidth = 4;
  static constexpr int kLaneBits = 0xF;  // the lanes of _mm_movemask_ps that hold rays
  static __m128 Load(const float* p) { return _mm_load_ps(p); }
  static void Store(float* p, __m128 v) { _mm_store_ps(p, v); }
  static __m128i LoadMask(const Vtq32s* p) {
    return _mm_load_si128(reinterpret_cast<const __m128i*>(p));
  }
  static void StoreMask(Vtq32s* p, __m128i v) {
    _mm_store_si128(reinterpret_cast<__m128i*>(p), v);
  }
};

// Four rays from planes with any 4-byte alignment.
struct UnalignedFour {
  static constexpr int kWidth = 4;
  static constexpr int kLaneBits = 0xF;
  static __m128 Load(const float* p) { return _mm_loadu_ps(p); }
  static void Store(float* p, __m128 v) { _mm_storeu_ps(p, v); }
  static __m128i LoadMask(const Vtq32s* p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  }
  static void StoreMask(Vtq32s* p, __m128i v) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
  }
};

// One ray in lane 0. The upper lanes hold zeros, are computed on and never stored.
struct OneRay {
  static constexpr int kWidth = 1;
  static constexpr int kLaneBits = 0x1;
  static __m128 Load(const float* p) { return _mm_load_ss(p); }
  static void Store(float* p, __m128 v) { _mm_store_ss(p, v); }
  static __m128i LoadMask(const Vtq32s* p) { return _mm_cvtsi32_si128(*p); }
  static void StoreMask(Vtq32s* p, __m128i v) { *p = _mm_cvtsi128_si32(v); }
};

// All ones in the lanes of dead rays, zeros in live ones. A ray is dead when its mask value is
// negative, so spreading the sign bit over the lane is the whole test.
inline __m128 DeadLanes(__m128i mask) { return _mm_castsi128_ps(_mm_srai_epi32(mask, 31)); }

// v in live lanes, +0.0 in dead ones.
inline __m128 LiveOrZero(__m128 dead, __m128 v) { return _mm_andnot_ps(dead, v); }

// a where cond is all ones, b where it is zero; bits are moved, never computed on, so NaN
// payloads and signed zeros pass through unchanged.
inline __m128 Select(__m128 cond, __m128 a, __m128 b) {
  return _mm_or_ps(_mm_and_ps(cond, a), _mm_andnot_ps(cond, b));
}

inline __m128 SignBits() { return _mm_castsi128_ps(_mm_set1_epi32(INT32_MIN)); }
inline __m128 Abs(__m128 v) { return _mm_andnot_ps(SignBits(), v); }

inline bool Aligned16(const void* p) { return (reinterpret_cast<uintptr_t>(p) & 15) == 0; }

// The three planes of a P3 argument, copied out of the caller's pointer array once: intrinsic
// stores may alias anything, so planes read through the array would be reloaded after every
// store.
template <class T>
struct Planes {
  explicit Planes(T* const p[3]) : x(p[0]), y(p[1]), z(p[2]) {}
  // Element i of every plane lies on a 16-byte boundary.
  bool Aligned16At(int i) const {
    return Aligned16(x + i) && Aligned16(y + i) && Aligned16(z + i);
  }
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
Vec3 Load3(const Planes<T>& p, int i) {
  return {Lanes::Load(p.x + i), Lanes::Load(p.y + i), Lanes::Load(p.z + i)};
}

template <class Lanes>
void Store3(const Planes<Vtq32f>& p, int i, Vec3 v) {
  Lanes::Store(p.x + i, v.x);
  Lanes::Store(p.y + i, v.y);
  Lanes::Store(p.z + i, v.z);
}

// One constant vector (a light position, a colour) in every lane.
inline Vec3 Broadcast(const Vtq32f v[3]) {
  return {_mm_set1_ps(v[0]), _mm_set1_ps(v[1]), _mm_set1_ps(v[2])};
}

inline Vec3 Sub(Vec3 a, Vec3 b) {
  return {_mm_sub_ps(a.x, b.x), _mm_sub_ps(a.y, b.y), _mm_sub_ps(a.z, b.z)};
}

// a.x*b.x + a.y*b.y + a.z*b.z, summed left to right like the scalar formula.
inline __m128 Dot(Vec3 a, Vec3 b) {
  return _mm_add_ps(_mm_add_ps(_mm_mul_ps(a.x, b.x), _mm_mul_ps(a.y, b.y)),
                    _mm_mul_ps(a.z, b.z));
}

// Number of single rays to run before the destination reaches a 16-byte boundary. A plane that
// is not even 4-byte aligned never gets there, so all of it runs singly.
inline int RaysToBoundary(const float* dst, int len) {
  auto address = reinterpret_cast<uintptr_t>(dst);
  if ((address & 3) != 0) return len;
  int rays = static_cast<int>(((16 - (address & 15)) & 15) / sizeof(float));
  return rays < len ? rays : len;
}

}  // namespace shade
VTQR_PATH_END

#endif  // VTQR_RAYCAST_SHADE_SIMD_H_
