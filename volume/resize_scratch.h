// The resize work buffer: the size the caller is told to provide, and how a call carves it.
//
// The size query promises a per-thread formula (below, in its own wrapping 32-bit arithmetic);
// the kernels lay their scratch out inside what that formula gives for the destination VOI:
//   - once per call, shared by the threads: per axis, the first tap of every destination
//     index (int32) and its weights (floats);
//   - per thread: a ring of source rows resampled along x, and a ring of source slices
//     resampled along x and y (two of each for trilinear, four for the cubic codes; none for
//     nearest, which only reads the index tables).
// Every piece starts on a 64-byte boundary of the aligned buffer and is a multiple of 64 bytes
// long, so a thread's part starts on a cache line of its own. A test holds the plan against
// the formula for sizes on both sides of every rounding step.
#ifndef VTQR_VOLUME_RESIZE_SCRATCH_H_
#define VTQR_VOLUME_RESIZE_SCRATCH_H_

#include <cstddef>
#include <cstdint>

#include "frame/code_path.h"
#include "volume/interpolation.h"
#include "volume/wrapping32.h"

VTQR_PATH_BEGIN
namespace volume {

// Per-thread bytes of the size query for a destination VOI of w x h x d voxels.
inline constexpr int32_t ResizeBufferPerThread(int code, int32_t w, int32_t h, int32_t d) {
  const Wrapping32 W(w), H(h), D(d);
  auto al16 = [](Wrapping32 n) { return (n + 15) & ~15; };
  auto al64 = [](Wrapping32 n) { return (n + 63) & ~63; };
  if (code == vtqInterNearest) {
    return (((W + 15) / 16 + (H + 15) / 16 + (D + 15) / 16) * 64 + 64).value();
  }
  // Index and weight tables per axis.
  const Wrapping32 a = (al16(W) + al16(H) + al16(D) + al64(W) + al64(H) + al64(D)) * 4;
  if (code == vtqInterLinear) {
    return ((((W + H) * 8 + 127) & ~63) * 4 + ((W * 2 + 127) & ~63) * 4 + a + H * 2 * al64(W) * 4 +
            64)
        .value();
  }
  const Wrapping32 r = (W * 4 + 255) & ~63;
  return ((((W + H) * 128 + 255) & ~63) * 4 + ((D * 16 + 1020) & ~255) + (H * 4 + 255) / 64 * 256 +
          r * 4 + r * 4 + a + H * 4 * al64(W) * 4 + 64)
      .value();
}

// Where a call's pieces lie, in bytes from the 64-byte-aligned start of the buffer (tables)
// or of a thread's part (rings), for a destination region of w x h x d voxels.
struct ResizeScratch {
  int taps;        // 1 (nearest), 2 or 4
  size_t groupsX;  // destination x in groups of four: the x pass works on whole groups
  size_t firstX, firstY, firstZ;        // int32 tables
  size_t weightsX, weightsY, weightsZ;  // float tables
  size_t tableBytes;                    // shared part, once per call
  size_t rowStride;                     // floats between rows of the row ring
  size_t sliceRowStride;                // floats between rows of a resampled slice
  size_t sliceStride;                   // floats between slices of the slice ring
  size_t rowRing, sliceRing;            // offsets within a thread's part
  size_t threadBytes;                   // one thread's part
};

inline constexpr size_t RoundUp(size_t n, size_t multiple) {
  return (n + multiple - 1) / multiple * multiple;
}

inline constexpr ResizeScratch PlanResizeScratch(int code, int64_t w, int64_t h, int64_t d) {
  const size_t W = static_cast<size_t>(w), H = static_cast<size_t>(h), D = static_cast<size_t>(d);
  ResizeScratch s{};
  s.taps = TapCount(code);
  s.groupsX = RoundUp(W, 4) / 4;
  // Index tables, 16 entries (a cache line) at a time.
  s.firstX = 0;
  s.firstY = s.firstX + RoundUp(W, 16) * 4;
  s.firstZ = s.firstY + RoundUp(H, 16) * 4;
  size_t end = s.firstZ + RoundUp(D, 16) * 4;
  if (code == vtqInterNearest) {
    s.tableBytes = end;
    return s;
  }
  // Weights: one per index for trilinear (the other is 1 - w), four for the cubic codes; x
  // covers whole groups, since the x pass computes every lane of its last group.
  const size_t perIndex = code == vtqInterLinear ? 1 : 4;
  s.weightsX = end;
  s.weightsY = s.weightsX + RoundUp(s.groupsX * 4 * perIndex, 16) * 4;
  s.weightsZ = s.weightsY + RoundUp(H * perIndex, 16) * 4;
  s.tableBytes = s.weightsZ + RoundUp(D * perIndex, 16) * 4;
  // Rings: rows hold whole x groups; resampled slices are h such rows.
  const size_t ring = static_cast<size_t>(s.taps);
  s.rowStride = RoundUp(W, 16);
  s.sliceRowStride = RoundUp(W, 64);
  s.sliceStride = H * s.sliceRowStride;
  s.rowRing = 0;
  s.sliceRing = s.rowRing + ring * s.rowStride * 4;
  s.threadBytes = s.sliceRing + ring * s.sliceStride * 4;
  return s;
}

// Bytes a call needs from the caller's buffer with `threads` threads: the tables once, a part
// per thread, and up to 63 bytes to reach a 64-byte boundary.
inline constexpr size_t ResizeScratchBytes(const ResizeScratch& s, int threads) {
  return 63 + s.tableBytes + static_cast<size_t>(threads) * s.threadBytes;
}

}  // namespace volume
VTQR_PATH_END

#endif  // VTQR_VOLUME_RESIZE_SCRATCH_H_
