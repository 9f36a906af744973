// The filter's kernel as the sums read it: mirrored, split into rows, and repacked into pairs of
// neighbouring weights for the pairwise multiply-add.
//
// The convolution sum(x) = sum_i K(i) S(x + a - i) is, with the kernel mirrored on every axis
// (R(c) = K(n - 1 - c)), the correlation sum(x) = sum_c R(c) S(x - o + c) with o = n - 1 - a.
// Along x, with s the source row shifted by o:
//   an even output x = 2m takes the pairs (s[2m + 2q], s[2m + 2q + 1]) times (R[2q], R[2q + 1]);
//   the odd output 2m + 1 takes the very same pairs times (R[2q - 1], R[2q]).
// So one load of eight source words at s + x + 2q feeds four even and four odd outputs: the
// 16-bit lanes pair up as (s[x + 2q + 2j], s[x + 2q + 2j + 1]) for j = 0..3, and one
// multiply-add with each arrangement of the weights gives both. The kernel is therefore kept
// twice, once per arrangement ("even" and the "odd" one, offset by one column), each weight
// pair broadcast to the four 32-bit lanes: 16 bytes per pair and arrangement.
//
// With an odd width n both arrangements cover every column in (n + 1) / 2 pairs: the even one
// ends with (R[n - 1], 0), the odd one starts with (0, R[0]). With an even width the odd
// arrangement has one term left over, R[n - 1] for the odd outputs, which the sums add from a
// load at s + x + n - 1 (see OddTail); no load ever reaches past the region the output reads.
#ifndef VTQR_VOLUME_FILTER_KERNEL_H_
#define VTQR_VOLUME_FILTER_KERNEL_H_

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

#include "frame/code_path.h"
#include "simd/int16.h"
#include "vtqr/volume.h"

VTQR_PATH_BEGIN
namespace volume {

// Kernel extents and the offsets from a destination voxel to the first source voxel its sum
// reads (o = n - 1 - anchor per axis), in 64 bits: any anchor is accepted.
struct KernelGeometry {
  int64_t width, height, depth;
  int64_t originX, originY, originZ;

  KernelGeometry(VtqVolumeSize size, VtqPoint3D anchor)
      : width(size.width),
        height(size.height),
        depth(size.depth),
        originX(width - 1 - anchor.x),
        originY(height - 1 - anchor.y),
        originZ(depth - 1 - anchor.z) {}

  int64_t pairs() const { return (width + 1) / 2; }
  int64_t rows() const { return height * depth; }
  bool evenWidth() const { return width % 2 == 0; }
  // Bytes of the two arrangements of every row.
  size_t packedBytes() const { return static_cast<size_t>(pairs() * rows()) * 2 * 16; }
};

// For each kernel row (mirrored slices, then mirrored rows), for q = 0 .. pairs - 1, the even
// pair q and the odd pair q next to each other, as the sums walk them.
inline void PackKernel(const Vtq16s* kernel, const KernelGeometry& g, __m128i* packed) {
  const int64_t n = g.width;
  for (int64_t k = g.depth - 1; k >= 0; --k) {
    for (int64_t j = g.height - 1; j >= 0; --j) {
      const Vtq16s* row = kernel + (k * g.height + j) * n;
      // Mirrored weight c of this row; zero outside the kernel.
      auto r = [&](int64_t c) -> int16_t { return c >= 0 && c < n ? row[n - 1 - c] : 0; };
      for (int64_t q = 0; q < g.pairs(); ++q) {
        *packed++ = simd::BroadcastPair(r(2 * q), r(2 * q + 1));
        *packed++ = simd::BroadcastPair(r(2 * q - 1), r(2 * q));
      }
    }
  }
}

// The leftover term of an even width: (0, R[n - 1]) from the row's last even pair
// (R[n - 2], R[n - 1]), to multiply the load at s + x + n - 1, whose odd words are the
// s[x + 2j + n] that the odd outputs x + 2j + 1 need.
inline __m128i OddTail(__m128i lastEvenPair) {
  return _mm_and_si128(lastEvenPair, _mm_set1_epi32(static_cast<int32_t>(0xFFFF0000u)));
}

// Whether every sum of this kernel fits in a signed 32-bit integer for any source: the largest
// takes 32767 under every positive weight and -32768 under every negative one, the smallest
// the reverse. Then 32-bit lanes hold the sums exactly, even where a partial sum wraps on the
// way: wrapping addition is exact modulo 2^32, and the final value is in range.
inline bool SumsFit32(const Vtq16s* kernel, const KernelGeometry& g) {
  int64_t positive = 0, negative = 0;
  const int64_t count = g.width * g.rows();
  for (int64_t i = 0; i < count; ++i) {
    if (kernel[i] > 0) positive += kernel[i];
    if (kernel[i] < 0) negative -= kernel[i];
  }
  const int64_t largest = 32767 * positive + 32768 * negative;
  const int64_t smallest = -(32768 * positive + 32767 * negative);
  return largest <= INT32_MAX && smallest >= INT32_MIN;
}

}  // namespace volume
VTQR_PATH_END

#endif  // VTQR_VOLUME_FILTER_KERNEL_H_
