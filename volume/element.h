// Element-type policies of the volume kernels: how a voxel of each type becomes a float and how
// a float goes back. The kernels compute in single precision and are templates over one of
// these policies, so the three (four, with the filter's 16s) element types share one source.
//
// Storing to an integer type clamps to the type's range, then rounds to the nearest integer
// with halves to even. Clamping first makes the conversion exact for any in-range float and
// keeps NaN and out-of-range values away from the conversion's INT32_MIN; the bounds are
// integers, so clamp-then-round equals round-then-saturate. The one-voxel Store runs lane 0 of
// the four-voxel sequence, and Pack (the kPerBlock voxels of one 16-byte store) the same steps
// on more lanes, so a voxel gets the same bits whichever of them writes it.
#ifndef VTQR_VOLUME_ELEMENT_H_
#define VTQR_VOLUME_ELEMENT_H_

#include <tmmintrin.h>

#include <cstdint>
#include <cstring>

#include "frame/code_path.h"
#include "simd/int16.h"
#include "vtqr/types.h"

VTQR_PATH_BEGIN
namespace volume {

// Raw bits from memory of any alignment, without type-punning through a misaligned pointer.
template <class Bits>
inline Bits LoadBits(const void* p) {
  Bits bits;
  std::memcpy(&bits, p, sizeof(bits));
  return bits;
}

// Four floats clamped to [lowest, highest] and rounded to int32 lanes.
inline __m128i ClampRound(__m128 v, float lowest, float highest) {
  return simd::RoundToInt(_mm_min_ps(_mm_max_ps(v, _mm_set1_ps(lowest)), _mm_set1_ps(highest)));
}

// 16-bit lanes 0..3 as floats: zero-extended, or sign-extended for `Signed`.
template <bool Signed>
inline __m128 Words4ToFloat(__m128i words) {
  return simd::ToFloat(Signed ? simd::Widen16sLo(words) : simd::Widen16uLo(words));
}

template <class T>
struct Element;

template <>
struct Element<Vtq8u> {
  static constexpr int kPerBlock = 16;
  static constexpr float kLowest = 0.0f;
  static constexpr float kHighest = 255.0f;

  static float Load(const Vtq8u* p) { return static_cast<float>(*p); }
  // Voxels p[0..3] as floats.
  static __m128 Load4(const Vtq8u* p) {
    return simd::ToFloat(simd::Widen8uTo32(simd::Load4x8u(p)));
  }
  // Voxels p[0..1] in lanes 0 and 1; lanes 2 and 3 hold zeros.
  static __m128 Load2(const Vtq8u* p) {
    return simd::ToFloat(simd::Widen8uTo32(_mm_cvtsi32_si128(LoadBits<uint16_t>(p))));
  }
  // Sixteen voxels, v[0] first, as the 16 bytes of one store.
  static __m128i Pack(const __m128 (&v)[4]) {
    return simd::PackSat8u(simd::PackSat16s(Round(v[0]), Round(v[1])),
                           simd::PackSat16s(Round(v[2]), Round(v[3])));
  }
  static void Store4(Vtq8u* p, __m128 v) { StoreRounded4(p, Round(v)); }
  static void Store(Vtq8u* p, float v) {
    *p = static_cast<Vtq8u>(_mm_cvtsi128_si32(Narrow(_mm_set_ss(v))));
  }
  // Four floats clamped to the type's range and rounded, as int32 lanes.
  static __m128i Round(__m128 v) { return ClampRound(v, kLowest, kHighest); }
  // Four int32 lanes already in the type's range, stored as voxels p[0..3].
  static void StoreRounded4(Vtq8u* p, __m128i lanes) {
    const __m128i words = simd::PackSat16s(lanes, lanes);
    const int32_t bytes = _mm_cvtsi128_si32(simd::PackSat8u(words, words));
    std::memcpy(p, &bytes, sizeof(bytes));
  }

 private:
  // The four voxels of v in bytes 0..3.
  static __m128i Narrow(__m128 v) {
    const __m128i words = simd::PackSat16s(Round(v), _mm_setzero_si128());
    return simd::PackSat8u(words, words);
  }
};

// 16u and 16s: the same steps, zero- or sign-extended and packed to their own range.
template <class T, bool Signed>
struct Element16 {
  static constexpr int kPerBlock = 8;
  static constexpr float kLowest = Signed ? -32768.0f : 0.0f;
  static constexpr float kHighest = Signed ? 32767.0f : 65535.0f;

  static float Load(const T* p) { return static_cast<float>(*p); }
  static __m128 Load4(const T* p) {
    return Words4ToFloat<Signed>(
        _mm_loadl_epi64(static_cast<const __m128i*>(static_cast<const void*>(p))));
  }
  static __m128 Load2(const T* p) {
    return Words4ToFloat<Signed>(_mm_cvtsi32_si128(LoadBits<int32_t>(p)));
  }
  static __m128i Pack(const __m128 (&v)[2]) { return PackWords(Round(v[0]), Round(v[1])); }
  static void Store4(T* p, __m128 v) { StoreRounded4(p, Round(v)); }
  static void Store(T* p, float v) {
    const __m128i lanes = Round(_mm_set_ss(v));
    *p = static_cast<T>(_mm_cvtsi128_si32(PackWords(lanes, lanes)));
  }
  static __m128i Round(__m128 v) { return ClampRound(v, kLowest, kHighest); }
  static void StoreRounded4(T* p, __m128i lanes) {
    _mm_storel_epi64(static_cast<__m128i*>(static_cast<void*>(p)), PackWords(lanes, lanes));
  }

 private:
  // The lanes are clamped already, so the unsigned pack needs no saturation of its own.
  static __m128i PackWords(__m128i lo, __m128i hi) {
    return Signed ? simd::PackSat16s(lo, hi) : simd::Pack16uInRange(lo, hi);
  }
};

template <>
struct Element<Vtq16u> : Element16<Vtq16u, false> {};
template <>
struct Element<Vtq16s> : Element16<Vtq16s, true> {};

template <>
struct Element<Vtq32f> {
  static constexpr int kPerBlock = 4;

  static float Load(const Vtq32f* p) { return *p; }
  static __m128 Load4(const Vtq32f* p) { return _mm_loadu_ps(p); }
  static __m128 Load2(const Vtq32f* p) {
    return _mm_castsi128_ps(
        _mm_loadl_epi64(static_cast<const __m128i*>(static_cast<const void*>(p))));
  }
  static __m128i Pack(const __m128 (&v)[1]) { return _mm_castps_si128(v[0]); }
  static void Store4(Vtq32f* p, __m128 v) { _mm_storeu_ps(p, v); }
  // A float voxel's "rounded" lanes are its bits.
  static void StoreRounded4(Vtq32f* p, __m128i lanes) { Store4(p, _mm_castsi128_ps(lanes)); }
  static void Store(Vtq32f* p, float v) { *p = v; }
};

}  // namespace volume
VTQR_PATH_END

#endif  // VTQR_VOLUME_ELEMENT_H_
