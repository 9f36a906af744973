// Lane policies: how a kernel step takes rays from its planes and puts results back.
//
// A kernel is written once, as a step over rays i, i+1, ... that loads through a lane policy,
// computes in SSE registers and stores through the same policy. The policy fixes the width:
// four rays from aligned planes, four from unaligned planes, or one ray in lane 0. Because the
// one-ray step runs the very same instruction sequence as the four-wide step, only on one
// lane, the two cannot drift apart: every ray sees the same operations in the same order
// whichever way its arrays happen to be aligned.
#ifndef VTQR_SIMD_LANES_H_
#define VTQR_SIMD_LANES_H_

#include <tmmintrin.h>

#include <cstdint>

#include "frame/code_path.h"
#include "vtqr/types.h"

VTQR_PATH_BEGIN
namespace simd {

// Four rays from planes whose element i is 16-byte aligned.
struct AlignedFour {
  static constexpr int kWidth = 4;
  static constexpr int kLaneBits = 0xF;  // the lanes of _mm_movemask_ps that hold rays
  static __m128 Load(const float* p) { return _mm_load_ps(p); }
  static void Store(float* p, __m128 v) { _mm_store_ps(p, v); }
  static __m128i LoadMask(const Vtq32s* p) {
    return _mm_load_si128(reinterpret_cast<const __m128i*>(p));
  }
  static void StoreMask(Vtq32s* p, __m128i v) { _mm_store_si128(reinterpret_cast<__m128i*>(p), v); }
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

inline bool Aligned16(const void* p) { return (reinterpret_cast<uintptr_t>(p) & 15) == 0; }

}  // namespace simd
VTQR_PATH_END

#endif  // VTQR_SIMD_LANES_H_
