// Loading the taps of four voxels at once. Each voxel (lane) has a run of consecutive taps
// along x in the source, starting wherever its own position puts it; the loads fetch the four
// runs and turn them around, so that vector k holds tap k of every lane, ready for a Blend.
//
// Floats and 16-bit cubic runs load each run whole and transpose; bytes, and 16-bit pairs,
// gather all four runs into one register and pick each tap's lanes with a byte shuffle, which
// widens them in the same step. Every tap value is exact as a float.
#ifndef VTQR_VOLUME_TAP_RUNS_H_
#define VTQR_VOLUME_TAP_RUNS_H_

#include <tmmintrin.h>

#include <cstdint>

#include "frame/code_path.h"
#include "volume/element.h"

VTQR_PATH_BEGIN
namespace volume {

// Lane l of taps[k] = runs[l][k], for runs of four taps.
template <class T>
inline void LoadTapRuns(const T* const (&runs)[4], __m128 (&taps)[4]) {
  __m128 a = Element<T>::Load4(runs[0]);
  __m128 b = Element<T>::Load4(runs[1]);
  __m128 c = Element<T>::Load4(runs[2]);
  __m128 d = Element<T>::Load4(runs[3]);
  _MM_TRANSPOSE4_PS(a, b, c, d);
  taps[0] = a;
  taps[1] = b;
  taps[2] = c;
  taps[3] = d;
}

// The same for runs of two taps.
template <class T>
inline void LoadTapRuns(const T* const (&runs)[4], __m128 (&taps)[2]) {
  const __m128 a = Element<T>::Load2(runs[0]);  // a0 a1 0 0
  const __m128 b = Element<T>::Load2(runs[1]);
  const __m128 c = Element<T>::Load2(runs[2]);
  const __m128 d = Element<T>::Load2(runs[3]);
  const __m128 ab = _mm_unpacklo_ps(a, b);  // a0 b0 a1 b1
  const __m128 cd = _mm_unpacklo_ps(c, d);  // c0 d0 c1 d1
  taps[0] = _mm_movelh_ps(ab, cd);
  taps[1] = _mm_movehl_ps(cd, ab);
}

// Four runs of `Bits` (the bytes of a run of taps), one per 32-bit lane.
template <class Bits, class T>
inline __m128i GatherRuns(const T* const (&runs)[4]) {
  return _mm_setr_epi32(LoadBits<Bits>(runs[0]), LoadBits<Bits>(runs[1]), LoadBits<Bits>(runs[2]),
                        LoadBits<Bits>(runs[3]));
}

// Byte k of each 32-bit lane, widened to the lane.
inline __m128 ByteOfEachLane(__m128i v, int k) {
  const char z = -1;  // a shuffle index with the top bit set writes a zero
  const char b = static_cast<char>(k);
  return _mm_cvtepi32_ps(_mm_shuffle_epi8(
      v, _mm_setr_epi8(b, z, z, z, b + 4, z, z, z, b + 8, z, z, z, b + 12, z, z, z)));
}

template <>
inline void LoadTapRuns(const Vtq8u* const (&runs)[4], __m128 (&taps)[4]) {
  const __m128i all = GatherRuns<int32_t>(runs);
  for (int k = 0; k < 4; ++k) taps[k] = ByteOfEachLane(all, k);
}

template <>
inline void LoadTapRuns(const Vtq8u* const (&runs)[4], __m128 (&taps)[2]) {
  const __m128i all = GatherRuns<uint16_t>(runs);
  taps[0] = ByteOfEachLane(all, 0);
  taps[1] = ByteOfEachLane(all, 1);
}

template <>
inline void LoadTapRuns(const Vtq16u* const (&runs)[4], __m128 (&taps)[2]) {
  const __m128i all = GatherRuns<int32_t>(runs);
  taps[0] = _mm_cvtepi32_ps(_mm_and_si128(all, _mm_set1_epi32(0xFFFF)));
  taps[1] = _mm_cvtepi32_ps(_mm_srli_epi32(all, 16));
}

}  // namespace volume
VTQR_PATH_END

#endif  // VTQR_VOLUME_TAP_RUNS_H_
