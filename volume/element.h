// Element-type policies of the volume kernels: how a voxel of each type becomes a float and how
// a float goes back. The kernels compute in single precision and are templates over one of
// these policies, so the three (four, with the filter's 16s) element types share one source.
//
// Storing to an integer type clamps to the type's range, then rounds to the nearest integer
// with halves to even (cvtps2dq under the default rounding mode). Clamping first makes the
// conversion exact for any in-range float and keeps out-of-range values away from the
// conversion's 0x80000000 result; the bounds are integers, so clamp-then-round equals
// round-then-saturate. The one-voxel Store runs lane 0 of the four-voxel sequence, and Pack
// (the voxels of one 16-byte store, kPerBlock of them) the same steps on more lanes, so a voxel
// gets the same bits whichever of them writes it.
#ifndef VTQR_VOLUME_ELEMENT_H_
#define VTQR_VOLUME_ELEMENT_H_

#include <tmmintrin.h>

#include <cstdint>
#include <cstring>

#include "frame/code_path.h"
#include "vtqr/types.h"

VTQR_PATH_BEGIN
namespace volume {

// Unaligned little loads of raw bits, without type-punning through a misaligned pointer.
template <class Bits>
inline Bits LoadBits(const void* p) {
  Bits bits;
  std::memcpy(&bits, p, sizeof(bits));
  return bits;
}

// Rounds four floats, already clamped to the type's range, to int32 lanes.
inline __m128i RoundClamped(__m128 v, float lowest, float highest) {
  return _mm_cvtps_epi32(_mm_min_ps(_mm_max_ps(v, _mm_set1_ps(lowest)), _mm_set1_ps(highest)));
}

template <class T>
struct Element;

template <>
struct Element<Vtq8u> {
  static constexpr float kLowest = 0.0f;
  static constexpr float kHighest = 255.0f;

  static float Load(const Vtq8u* p) { return static_cast<float>(*p); }
  // Voxels p[0..3] as floats.
  static __m128 Load4(const Vtq8u* p) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i bytes = _mm_cvtsi32_si128(LoadBits<int32_t>(p));
    return _mm_cvtepi32_ps(_mm_unpacklo_epi16(_mm_unpacklo_epi8(bytes, zero), zero));
  }
  // Voxels p[0..1] in lanes 0 and 1; lanes 2 and 3 hold zeros.
  static __m128 Load2(const Vtq8u* p) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i bytes = _mm_cvtsi32_si128(LoadBits<uint16_t>(p));
    return _mm_cvtepi32_ps(_mm_unpacklo_epi16(_mm_unpacklo_epi8(bytes, zero), zero));
  }
  static constexpr int kPerBlock = 16;
  static __m128i Narrow(__m128 v) {
    const __m128i words = _mm_packs_epi32(RoundClamped(v, kLowest, kHighest), _mm_setzero_si128());
    return _mm_packus_epi16(words, words);
  }
  // Sixteen voxels, v[0] first, as the 16 bytes of one store.
  static __m128i Pack(const __m128 (&v)[4]) {
    const __m128i low = _mm_packs_epi32(RoundClamped(v[0], kLowest, kHighest),
                                        RoundClamped(v[1], kLowest, kHighest));
    const __m128i high = _mm_packs_epi32(RoundClamped(v[2], kLowest, kHighest),
                                         RoundClamped(v[3], kLowest, kHighest));
    return _mm_packus_epi16(low, high);
  }
  static void Store4(Vtq8u* p, __m128 v) {
    const int32_t bytes = _mm_cvtsi128_si32(Narrow(v));
    std::memcpy(p, &bytes, sizeof(bytes));
  }
  static void Store(Vtq8u* p, float v) {
    *p = static_cast<Vtq8u>(_mm_cvtsi128_si32(Narrow(_mm_set_ss(v))));
  }
};

template <>
struct Element<Vtq16u> {
  static constexpr float kLowest = 0.0f;
  static constexpr float kHighest = 65535.0f;

  static float Load(const Vtq16u* p) { return static_cast<float>(*p); }
  static __m128 Load4(const Vtq16u* p) {
    const __m128i words = _mm_loadl_epi64(static_cast<const __m128i*>(static_cast<const void*>(p)));
    return _mm_cvtepi32_ps(_mm_unpacklo_epi16(words, _mm_setzero_si128()));
  }
  static __m128 Load2(const Vtq16u* p) {
    const __m128i words = _mm_cvtsi32_si128(LoadBits<int32_t>(p));
    return _mm_cvtepi32_ps(_mm_unpacklo_epi16(words, _mm_setzero_si128()));
  }
  // SSSE3 has no unsigned 32-to-16 pack: shift the range down by 32768, use the signed pack
  // and flip the top bit back.
  static constexpr int kPerBlock = 8;
  static __m128i Narrow(__m128 v) {
    const __m128 twice[2] = {v, v};
    return Pack(twice);
  }
  static __m128i Pack(const __m128 (&v)[2]) {
    const __m128i bias = _mm_set1_epi32(32768);
    const __m128i low = _mm_sub_epi32(RoundClamped(v[0], kLowest, kHighest), bias);
    const __m128i high = _mm_sub_epi32(RoundClamped(v[1], kLowest, kHighest), bias);
    return _mm_xor_si128(_mm_packs_epi32(low, high), _mm_set1_epi16(INT16_MIN));
  }
  static void Store4(Vtq16u* p, __m128 v) {
    _mm_storel_epi64(static_cast<__m128i*>(static_cast<void*>(p)), Narrow(v));
  }
  static void Store(Vtq16u* p, float v) {
    *p = static_cast<Vtq16u>(_mm_cvtsi128_si32(Narrow(_mm_set_ss(v))));
  }
};

template <>
struct Element<Vtq16s> {
  static constexpr float kLowest = -32768.0f;
  static constexpr float kHighest = 32767.0f;

  static float Load(const Vtq16s* p) { return static_cast<float>(*p); }
  static __m128 Load4(const Vtq16s* p) {
    const __m128i words = _mm_loadl_epi64(static_cast<const __m128i*>(static_cast<const void*>(p)));
    return _mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpacklo_epi16(words, words), 16));
  }
  static __m128 Load2(const Vtq16s* p) {
    const __m128i words = _mm_cvtsi32_si128(LoadBits<int32_t>(p));
    return _mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpacklo_epi16(words, words), 16));
  }
  static constexpr int kPerBlock = 8;
  static __m128i Narrow(__m128 v) {
    const __m128i lanes = RoundClamped(v, kLowest, kHighest);
    return _mm_packs_epi32(lanes, lanes);
  }
  static __m128i Pack(const __m128 (&v)[2]) {
    return _mm_packs_epi32(RoundClamped(v[0], kLowest, kHighest),
                           RoundClamped(v[1], kLowest, kHighest));
  }
  static void Store4(Vtq16s* p, __m128 v) {
    _mm_storel_epi64(static_cast<__m128i*>(static_cast<void*>(p)), Narrow(v));
  }
  static void Store(Vtq16s* p, float v) {
    *p = static_cast<Vtq16s>(_mm_cvtsi128_si32(Narrow(_mm_set_ss(v))));
  }
};

template <>
struct Element<Vtq32f> {
  static float Load(const Vtq32f* p) { return *p; }
  static __m128 Load4(const Vtq32f* p) { return _mm_loadu_ps(p); }
  static __m128 Load2(const Vtq32f* p) {
    return _mm_castsi128_ps(
        _mm_loadl_epi64(static_cast<const __m128i*>(static_cast<const void*>(p))));
  }
  static constexpr int kPerBlock = 4;
  static __m128i Pack(const __m128 (&v)[1]) { return _mm_castps_si128(v[0]); }
  static void Store4(Vtq32f* p, __m128 v) { _mm_storeu_ps(p, v); }
  static void Store(Vtq32f* p, float v) { *p = v; }
};

}  // namespace volume
VTQR_PATH_END

#endif  // VTQR_VOLUME_ELEMENT_H_
