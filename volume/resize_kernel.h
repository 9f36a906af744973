// The resize kernel, one template over the element type and the two volume layouts.
//
// The destination region's slices are split over threads. Each thread walks its slices in
// order and keeps two rings: source rows resampled along x, and source slices resampled along
// x and y. A destination slice blends the ring slices its z taps name, computing only those
// not already there; a resampled slice blends ring rows the same way. Neighbouring outputs
// share most taps, so when enlarging every source row and slice is resampled once per thread,
// and when shrinking none is resampled that no output needs.
#ifndef VTQR_VOLUME_RESIZE_KERNEL_H_
#define VTQR_VOLUME_RESIZE_KERNEL_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "frame/code_path.h"
#include "frame/parallel.h"
#include "simd/stores.h"
#include "volume/buffer_align.h"
#include "volume/element.h"
#include "volume/resize_geometry.h"
#include "volume/resize_passes.h"
#include "volume/resize_scratch.h"

VTQR_PATH_BEGIN
namespace volume {

// Resampled rows or slices of one thread, kept by source index. The clamped taps of one output
// are consecutive indices, at most as many as the ring has places, so index mod size gives
// them distinct places and filling one never evicts another that the same output needs.
class Ring {
 public:
  Ring(float* base, size_t stride, int size) : base_(base), stride_(stride), size_(size) {
    Clear();
  }
  void Clear() {
    for (int64_t& index : held_) index = -1;
  }
  // The place of source index `index` (>= 0); *missing tells whether it must be computed.
  float* Place(int64_t index, bool* missing) {
    const int place = static_cast<int>(index % size_);
    *missing = held_[place] != index;
    held_[place] = index;
    return base_ + static_cast<size_t>(place) * stride_;
  }

 private:
  float* base_;
  size_t stride_;
  int size_;
  int64_t held_[4];
};

// Tables built once per call, shared read-only by the threads.
struct ResizeTables {
  XTable x;
  const int32_t* firstY;
  const float* weightsY;
  const int32_t* firstZ;
  const float* weightsZ;
};

template <class SrcView, class DstView>
struct ResizeJob {
  SrcView src;
  DstView dst;
  ResizeAxis axis[3];
  ResizeScratch plan;
  ResizeTables tables;
  bool stream;  // non-temporal stores for the destination
};

// Destinations of at least this many bytes are written with non-temporal stores: they cannot
// stay in the caches anyway, and streaming spares reading every destination line before it is
// overwritten, which for enlargements is most of the memory traffic. Smaller ones keep normal
// stores, so a caller that reads them soon after finds them in cache.
inline constexpr uint64_t kStreamBytes = uint64_t{16} << 20;

// One destination row of nearest voxels: out[x] = in[xs[x]]. Streamed rows gather each 16-byte
// block in two general registers before storing it whole.
template <class T>
void GatherRow(const T* in, const int32_t* xs, size_t width, T* out, bool stream) {
  size_t x = stream ? VoxelsToBoundary(out, width) : width;
  for (size_t i = 0; i < x; ++i) out[i] = in[xs[i]];
  if (!stream) return;
  using Bits = std::conditional_t<sizeof(T) == 1, uint8_t,
                                  std::conditional_t<sizeof(T) == 2, uint16_t, uint32_t>>;
  constexpr size_t kHalf = 8 / sizeof(T);
  for (; x + 2 * kHalf <= width; x += 2 * kHalf) {
    uint64_t half[2] = {0, 0};
    for (size_t j = 0; j < 2 * kHalf; ++j) {
      half[j / kHalf] |= uint64_t{LoadBits<Bits>(in + xs[x + j])} << (8 * sizeof(T) * (j % kHalf));
    }
    simd::StreamBytes(out + x,
                      _mm_set_epi64x(static_cast<int64_t>(half[1]), static_cast<int64_t>(half[0])));
  }
  for (; x < width; ++x) out[x] = in[xs[x]];
}

// Nearest: copies voxels. A destination row whose source row is the one the row before it
// used (or a slice whose source slice repeats) is a copy of that earlier row, which is much
// cheaper than gathering it again when enlarging; not so when streaming, as the earlier row
// has then left the caches.
template <class Job>
void NearestSlices(const Job& job, int64_t zBegin, int64_t zEnd) {
  using T = typename decltype(job.dst)::Element;
  const ResizeAxis& ax = job.axis[0];
  const ResizeAxis& ay = job.axis[1];
  const ResizeAxis& az = job.axis[2];
  const size_t rowBytes = static_cast<size_t>(ax.count) * sizeof(T);
  const int32_t* xs = job.tables.x.first;
  for (int64_t z = zBegin; z < zEnd; ++z) {
    const int32_t zs = job.tables.firstZ[z];
    const bool repeatSlice = !job.stream && z > zBegin && job.tables.firstZ[z - 1] == zs;
    for (int64_t y = 0; y < ay.count; ++y) {
      T* out = job.dst.Row(ay.start + y, az.start + z) + ax.start;
      const int32_t ys = job.tables.firstY[y];
      if (repeatSlice) {
        std::memcpy(out, job.dst.Row(ay.start + y, az.start + z - 1) + ax.start, rowBytes);
      } else if (!job.stream && y > 0 && job.tables.firstY[y - 1] == ys) {
        std::memcpy(out, job.dst.Row(ay.start + y - 1, az.start + z) + ax.start, rowBytes);
      } else {
        GatherRow(job.src.Row(ys, zs), xs, static_cast<size_t>(ax.count), out, job.stream);
      }
    }
  }
}

// The places of one output's taps along y or z: `first` is its first tap, `weights` its
// weights in the table, and fill(index, place) computes a tap that is missing from the ring.
//
// Integer voxel types skip taps whose weight is exactly zero (with factors like 0.5 or 2 that
// is every other row and slice for trilinear, three in four for Catmull-Rom): such a tap takes
// the place of one that is computed, whose finite values times zero add a zero as the skipped
// ones would have. The sums then differ at most in the sign of a zero, which no conversion to
// an integer can see. Floats compute every tap, as infinities and NaNs must reach the output.
template <class T, int kTaps, class Fill>
void PlaceTaps(Ring& ring, int32_t first, AxisBounds bounds, const float* weights,
               const float* (&places)[kTaps], Fill&& fill) {
  float w[kTaps];
  if constexpr (kTaps == 2) {
    w[0] = 1.0f - weights[0];
    w[1] = weights[0];
  } else {
    for (int k = 0; k < kTaps; ++k) w[k] = weights[k];
  }
  const float* computed = nullptr;
  for (int k = 0; k < kTaps; ++k) {
    places[k] = nullptr;
    if (std::is_integral_v<T> && w[k] == 0.0f) continue;
    const int64_t index = ClampTap(int64_t{first} + k, bounds);
    bool missing = false;
    float* place = ring.Place(index, &missing);
    if (missing) fill(index, place);
    places[k] = computed = place;
  }
  for (const float*& place : places) {
    if (place == nullptr) place = computed;
  }
}

// Resamples source slice zs along x and y into `out` (plan.sliceStride floats).
template <int kTaps, class Job>
void ResampleSlice(const Job& job, int64_t zs, Ring& rows, float* out) {
  using T = typename decltype(job.src)::Element;
  using B = Blend<kTaps>;
  const ResizeAxis& ay = job.axis[1];
  rows.Clear();
  for (int64_t y = 0; y < ay.count; ++y) {
    const float* weights = job.tables.weightsY + y * B::kWeights;
    const float* tapRows[kTaps];
    PlaceTaps<T>(rows, job.tables.firstY[y], ay.src, weights, tapRows,
                 [&](int64_t ys, float* place) {
                   ResampleRow<T, kTaps>(job.src.Row(ys, zs), job.tables.x, place);
                 });
    BlendRows<kTaps>(tapRows, weights, job.plan.groupsX,
                     out + static_cast<size_t>(y) * job.plan.sliceRowStride);
  }
}

// Trilinear and cubic: destination slices [zBegin, zEnd) with the rings in `part`.
template <int kTaps, class Job>
void SeparableSlices(const Job& job, int64_t zBegin, int64_t zEnd, char* part) {
  using T = typename decltype(job.dst)::Element;
  using B = Blend<kTaps>;
  const ResizeAxis& ax = job.axis[0];
  const ResizeAxis& ay = job.axis[1];
  const ResizeAxis& az = job.axis[2];
  Ring rows(reinterpret_cast<float*>(part + job.plan.rowRing), job.plan.rowStride, kTaps);
  Ring slices(reinterpret_cast<float*>(part + job.plan.sliceRing), job.plan.sliceStride, kTaps);
  for (int64_t z = zBegin; z < zEnd; ++z) {
    const float* weights = job.tables.weightsZ + z * B::kWeights;
    const float* tapSlices[kTaps];
    PlaceTaps<T>(slices, job.tables.firstZ[z], az.src, weights, tapSlices,
                 [&](int64_t zs, float* place) { ResampleSlice<kTaps>(job, zs, rows, place); });
    for (int64_t y = 0; y < ay.count; ++y) {
      const size_t rowOffset = static_cast<size_t>(y) * job.plan.sliceRowStride;
      const float* tapRows[kTaps];
      for (int k = 0; k < kTaps; ++k) tapRows[k] = tapSlices[k] + rowOffset;
      BlendRowsToVoxels<T, kTaps>(tapRows, weights, static_cast<size_t>(ax.count),
                                  job.dst.Row(ay.start + y, az.start + z) + ax.start, job.stream);
    }
  }
}

// Builds the tables in the caller's buffer, then runs the mode's slices on the threads. The
// axes describe a non-empty region.
template <class SrcView, class DstView>
void RunResize(const SrcView& src, const DstView& dst, const ResizeAxis (&axis)[3], int code,
               Vtq8u* buffer) {
  using T = typename DstView::Element;
  const uint64_t dstBytes = static_cast<uint64_t>(axis[0].count * axis[1].count) *
                            static_cast<uint64_t>(axis[2].count) * sizeof(T);
  ResizeJob<SrcView, DstView> job{
      src,
      dst,
      {axis[0], axis[1], axis[2]},
      PlanResizeScratch(code, axis[0].count, axis[1].count, axis[2].count),
      {},
      dstBytes >= kStreamBytes};
  const ResizeScratch& plan = job.plan;
  char* base = AlignUp64(buffer);
  auto* firstX = reinterpret_cast<int32_t*>(base + plan.firstX);
  auto* firstY = reinterpret_cast<int32_t*>(base + plan.firstY);
  auto* firstZ = reinterpret_cast<int32_t*>(base + plan.firstZ);
  auto* weightsX = reinterpret_cast<float*>(base + plan.weightsX);
  auto* weightsY = reinterpret_cast<float*>(base + plan.weightsY);
  auto* weightsZ = reinterpret_cast<float*>(base + plan.weightsZ);
  const int64_t paddedX = static_cast<int64_t>(plan.groupsX) * 4;
  FillAxisTable(code, axis[0], code == vtqInterNearest ? axis[0].count : paddedX, true, firstX,
                weightsX);
  FillAxisTable(code, axis[1], axis[1].count, false, firstY, weightsY);
  FillAxisTable(code, axis[2], axis[2].count, false, firstZ, weightsZ);
  job.tables = {
      {firstX, weightsX, plan.groupsX, 0, 0, axis[0].src}, firstY, weightsY, firstZ, weightsZ};
  if (code != vtqInterNearest) FindInteriorGroups(&job.tables.x, plan.taps);

  char* parts = base + plan.tableBytes;
  ParallelChunks(axis[2].count, Fork::kWhenThreaded, [&](int64_t begin, int64_t end, int rank) {
    char* part = parts + static_cast<size_t>(rank) * plan.threadBytes;
    if (code == vtqInterNearest) {
      NearestSlices(job, begin, end);
    } else if (code == vtqInterLinear) {
      SeparableSlices<2>(job, begin, end, part);
    } else {
      SeparableSlices<4>(job, begin, end, part);
    }
    // Non-temporal stores are weakly ordered: make them visible before the threads join.
    if (job.stream) simd::StreamFence();
  });
}

}  // namespace volume
VTQR_PATH_END

#endif  // VTQR_VOLUME_RESIZE_KERNEL_H_
