// The filter's work buffer: the size the caller is told to provide, and how a call carves it.
//
// The size query promises, per thread, one destination row of 32-bit sums rounded up to 16
// voxels, the repacked kernel (two arrangements of 16 bytes per pair of kernel columns, per
// kernel row and slice) and 64 bytes. A call needs the kernel only once, whatever the thread
// count, so it lays out from the 64-byte-aligned start:
//   one row of sums per thread (each a multiple of 64 bytes: no two threads share a line),
//   then the packed kernel, shared read-only by the threads,
// which with at most 63 bytes of alignment fits in what one thread's share alone provides.
#ifndef VTQR_VOLUME_FILTER_SCRATCH_H_
#define VTQR_VOLUME_FILTER_SCRATCH_H_

#include <cstddef>
#include <cstdint>

#include "frame/code_path.h"
#include "volume/filter_kernel.h"
#include "volume/wrapping32.h"

VTQR_PATH_BEGIN
namespace volume {

// Per-thread bytes of the size query, in its wrapping 32-bit arithmetic.
inline constexpr int32_t FilterBufferPerThread(int32_t width, int32_t kernelWidth,
                                               int32_t kernelHeight, int32_t kernelDepth) {
  const Wrapping32 W(width), kW(kernelWidth), kH(kernelHeight), kD(kernelDepth);
  return ((W + 15) / 16 * 64 + (kW + 1) / 2 * 16 * kH * kD * 2 + 64).value();
}

struct FilterScratch {
  size_t rowBytes;     // one thread's row of sums
  size_t kernelStart;  // offset of the packed kernel
  size_t totalBytes;   // with `threads` rows, from the aligned start
};

inline FilterScratch PlanFilterScratch(int64_t width, const KernelGeometry& g, int threads) {
  FilterScratch s{};
  s.rowBytes = static_cast<size_t>((width + 15) / 16) * 64;
  s.kernelStart = static_cast<size_t>(threads) * s.rowBytes;
  s.totalBytes = s.kernelStart + g.packedBytes();
  return s;
}

}  // namespace volume
VTQR_PATH_END

#endif  // VTQR_VOLUME_FILTER_SCRATCH_H_
