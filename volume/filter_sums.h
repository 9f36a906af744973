// The filter's sums of products: a block of neighbouring outputs of one destination row at a
// time, every kernel row in turn, with the accumulators kept in registers throughout.
//
// Two accumulators share the walk over the kernel. Sums32 keeps 32-bit lanes, exact when the
// kernel's sums fit (SumsFit32), 32 or 8 outputs at a time. Sums64 keeps 64-bit lanes for the
// other kernels, eight outputs at a time: each multiply-add result is moved into 0..2^32 - 2^16
// by a bias and zero-extended, because a single product pair can reach 2^31 (both weights and
// both voxels -32768), one past the 32-bit range; the biases come off at the end.
//
// A direct scalar sum (SumOne) serves rows narrower than one block.
#ifndef VTQR_VOLUME_FILTER_SUMS_H_
#define VTQR_VOLUME_FILTER_SUMS_H_

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

#include "frame/code_path.h"
#include "simd/int16.h"
#include "volume/filter_kernel.h"
#include "volume/volume_view.h"

VTQR_PATH_BEGIN
namespace volume {

// What one call's sums read.
struct FilterSource {
  SliceVolume<const Vtq16s> volume;
  const Vtq16s* kernel;  // the caller's weights, for SumOne
  const __m128i* packed;
  KernelGeometry geometry;
};

// 8 * kVectors outputs in 32-bit lanes, by parity: even[i] holds outputs 8i, 8i+2, 8i+4, 8i+6.
// Rows take four vectors (32 outputs) where they are wide enough: four source loads per weight
// pair then share the two weight registers, which with the eight accumulators fills 14 of the
// 16 registers and spreads the per-row work over twice as many outputs as two vectors would.
template <int kVectors>
class Sums32 {
 public:
  static constexpr int kOutputs = 8 * kVectors;

  Sums32() {
    for (int i = 0; i < kVectors; ++i) even_[i] = odd_[i] = _mm_setzero_si128();
  }
  // The eight source words from s + 8i feed outputs 8i..8i+7 through one pair of weights.
  void Add(const Vtq16s* s, __m128i evenPair, __m128i oddPair) {
    for (int i = 0; i < kVectors; ++i) {
      const __m128i words = simd::Load8x16(s + 8 * i);
      even_[i] = _mm_add_epi32(even_[i], simd::MulAddPairs(words, evenPair));
      odd_[i] = _mm_add_epi32(odd_[i], simd::MulAddPairs(words, oddPair));
    }
  }
  void AddOdd(const Vtq16s* s, __m128i oddPair) {
    for (int i = 0; i < kVectors; ++i) {
      odd_[i] = _mm_add_epi32(odd_[i], simd::MulAddPairs(simd::Load8x16(s + 8 * i), oddPair));
    }
  }
  // The sums in order.
  void Store(int32_t* out) const {
    for (int i = 0; i < kVectors; ++i) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8 * i),
                       simd::InterleaveLo32(even_[i], odd_[i]));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8 * i + 4),
                       simd::InterleaveHi32(even_[i], odd_[i]));
    }
  }

 private:
  __m128i even_[kVectors], odd_[kVectors];
};

// Eight outputs in 64-bit lanes: even[0] holds outputs 0 and 2, even[1] 4 and 6, odd[0] 1 and
// 3, odd[1] 5 and 7. A multiply-add result lies in [-2147418112, 2^31]; the bias 2147418112
// moves that to [0, 2^32 - 2^16], where it is its own unsigned 32-bit value.
class Sums64 {
 public:
  static constexpr int kOutputs = 8;
  static constexpr int64_t kBias = 2147418112;  // 2 * 32768 * 32767

  Sums64() {
    for (int i = 0; i < 2; ++i) even_[i] = odd_[i] = _mm_setzero_si128();
  }
  void Add(const Vtq16s* s, __m128i evenPair, __m128i oddPair) {
    const __m128i words = simd::Load8x16(s);
    Accumulate(even_, simd::MulAddPairs(words, evenPair));
    Accumulate(odd_, simd::MulAddPairs(words, oddPair));
    ++evenTerms_;
    ++oddTerms_;
  }
  void AddOdd(const Vtq16s* s, __m128i oddPair) {
    Accumulate(odd_, simd::MulAddPairs(simd::Load8x16(s), oddPair));
    ++oddTerms_;
  }
  // The eight sums in order, biases removed.
  void Store(int64_t* out) const {
    int64_t lanes[2][4];
    for (int i = 0; i < 2; ++i) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(&lanes[0][2 * i]), even_[i]);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(&lanes[1][2 * i]), odd_[i]);
    }
    for (int j = 0; j < 4; ++j) {
      out[2 * j] = lanes[0][j] - evenTerms_ * kBias;
      out[2 * j + 1] = lanes[1][j] - oddTerms_ * kBias;
    }
  }

 private:
  static void Accumulate(__m128i (&sums)[2], __m128i products) {
    const __m128i biased = _mm_add_epi32(products, _mm_set1_epi32(static_cast<int32_t>(kBias)));
    sums[0] = _mm_add_epi64(sums[0], simd::Widen32uLo(biased));
    sums[1] = _mm_add_epi64(sums[1], simd::Widen32uHi(biased));
  }

  __m128i even_[2], odd_[2];
  int64_t evenTerms_ = 0, oddTerms_ = 0;
};

// Sums of the outputs x .. x + Acc::kOutputs - 1 of destination row (y, z): every kernel row,
// every pair of kernel columns. The source words read are exactly those the outputs need.
template <class Acc>
void SumBlock(const FilterSource& src, int64_t x, int64_t y, int64_t z, Acc& acc) {
  const KernelGeometry& g = src.geometry;
  const int64_t pairs = g.pairs();
  const __m128i* packed = src.packed;
  for (int64_t k = 0; k < g.depth; ++k) {
    for (int64_t j = 0; j < g.height; ++j) {
      const Vtq16s* s = src.volume.Row(y - g.originY + j, z - g.originZ + k) + (x - g.originX);
      for (int64_t q = 0; q < pairs; ++q, packed += 2) acc.Add(s + 2 * q, packed[0], packed[1]);
      if (g.evenWidth()) acc.AddOdd(s + g.width - 1, OddTail(packed[-2]));
    }
  }
}

// The sum of output (x, y, z) straight from the definition, in 64 bits.
inline int64_t SumOne(const FilterSource& src, int64_t x, int64_t y, int64_t z) {
  const KernelGeometry& g = src.geometry;
  const Vtq16s* weight = src.kernel;
  int64_t sum = 0;
  // Weight (i, j, k) meets source voxel (x + a - i, ...) = (x - o + (n - 1 - i), ...).
  for (int64_t k = 0; k < g.depth; ++k) {
    for (int64_t j = 0; j < g.height; ++j) {
      const Vtq16s* s = src.volume.Row(y - g.originY + (g.height - 1 - j),
                                       z - g.originZ + (g.depth - 1 - k)) +
                        (x - g.originX + (g.width - 1));
      for (int64_t i = 0; i < g.width; ++i) sum += int64_t{*weight++} * s[-i];
    }
  }
  return sum;
}

}  // namespace volume
VTQR_PATH_END

#endif  // VTQR_VOLUME_FILTER_SUMS_H_
