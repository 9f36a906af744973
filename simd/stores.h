// Store policies for finished vectors: whole-vector stores, aligned or not, or streamed.
//
// Kernels that fill a large destination (a block of basis sets, a volume slice) pick how their
// whole vectors reach memory once per call and compile their store loop once per choice.
#ifndef VTQR_SIMD_STORES_H_
#define VTQR_SIMD_STORES_H_

#include <emmintrin.h>

#include "frame/code_path.h"
#include "simd/lanes.h"

VTQR_PATH_BEGIN
namespace simd {

// Four lanes with non-temporal stores, to a 16-byte-aligned address. They bypass the cache,
// so an output too large to stay there does not first read every destination line. The
// caller issues StreamFence() after its last streaming store, before anyone reads the data.
struct StreamFour {
  static constexpr int kWidth = 4;
  static void Store(float* p, __m128 v) { _mm_stream_ps(p, v); }
};

// Sixteen bytes of integer lanes with a non-temporal store, to a 16-byte-aligned address.
inline void StreamBytes(void* p, __m128i v) { _mm_stream_si128(static_cast<__m128i*>(p), v); }

inline void StreamFence() { _mm_sfence(); }

// The three ways to store whole vectors; the aligned ones need 16-byte-aligned addresses.
// Aligned stores are not only a formality: the u8 path is tuned for an older core, where the
// compiler splits every unaligned 16-byte store into two 8-byte halves.
enum class Stores { kUnaligned, kAligned, kStream };

// Calls body(policy) with the lane policy that `stores` names (UnalignedFour, AlignedFour or
// StreamFour), so the body is compiled once per policy and the choice is made once, outside
// its loops.
template <class Body>
void WithStores(Stores stores, Body&& body) {
  switch (stores) {
    case Stores::kStream:
      body(StreamFour{});
      break;
    case Stores::kAligned:
      body(AlignedFour{});
      break;
    case Stores::kUnaligned:
      body(UnalignedFour{});
      break;
  }
}

}  // namespace simd
VTQR_PATH_END

#endif  // VTQR_SIMD_STORES_H_
