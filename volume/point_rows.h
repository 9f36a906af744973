// The sampling loop of the per-voxel families: destination rows in groups of four voxels, each
// group's positions from the family's position source, voxels whose position lies outside the
// VOI left as they are, and the destination's rows split over threads.
//
// A position source (the three maps of remap, the affine map of warp) gives, per destination
// row, an object with
//   Load(x, pos)            the positions of voxels x .. x+3 of the row (relative to its start)
//   LoadPartial(x, n, pos)  the same for the last n < 4 voxels; lanes n..3 are NaN
// and must be copyable into each thread.
#ifndef VTQR_VOLUME_POINT_ROWS_H_
#define VTQR_VOLUME_POINT_ROWS_H_

#include <emmintrin.h>

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "frame/code_path.h"
#include "frame/parallel.h"
#include "simd/int16.h"
#include "simd/select.h"
#include "volume/point_modes.h"
#include "volume/point_source.h"
#include "volume/volume_view.h"

VTQR_PATH_BEGIN
namespace volume {

// Writes the lanes of laneBits (bit l for lane l) of finished lanes to dst[0..3]; the other
// voxels are not written at all, not even with their old values.
template <class T>
void StoreLanes(T* dst, __m128i lanes, int laneBits) {
  if (laneBits == 0xF) {
    if constexpr (std::is_same_v<T, Vtq8u>) {
      const __m128i words = simd::PackSat16s(lanes, lanes);
      const int32_t bytes = _mm_cvtsi128_si32(simd::PackSat8u(words, words));
      std::memcpy(dst, &bytes, sizeof(bytes));
    } else if constexpr (std::is_same_v<T, Vtq16u>) {
      _mm_storel_epi64(reinterpret_cast<__m128i*>(dst), simd::Pack16uInRange(lanes, lanes));
    } else {
      _mm_storeu_ps(dst, _mm_castsi128_ps(lanes));
    }
    return;
  }
  alignas(16) int32_t v[4];
  _mm_store_si128(reinterpret_cast<__m128i*>(v), lanes);
  for (int l = 0; l < 4; ++l) {
    if ((laneBits >> l & 1) == 0) continue;
    if constexpr (std::is_same_v<T, Vtq32f>) {
      std::memcpy(dst + l, &v[l], sizeof(float));
    } else {
      dst[l] = static_cast<T>(v[l]);
    }
  }
}

// One group: the lanes whose positions lie in the VOI's bounds on every axis are sampled and
// stored. The test is written so that a NaN position fails it; an infinite one fails a bound.
// Lanes that fail take the VOI's lower corner before sampling, so that they too read only
// inside the volume, whatever their position was; their results are dropped.
template <class Mode, class T, int kAxes>
void SampleGroup(const PointSource<T, kAxes>& src, __m128 (&pos)[kAxes], T* dst) {
  __m128 inside = _mm_castsi128_ps(_mm_set1_epi32(-1));
  for (int a = 0; a < kAxes; ++a) {
    inside = _mm_and_ps(inside, _mm_and_ps(_mm_cmpge_ps(pos[a], src.lowerLanes[a]),
                                           _mm_cmple_ps(pos[a], src.upperLanes[a])));
  }
  const int laneBits = _mm_movemask_ps(inside);
  if (laneBits == 0) return;
  if (laneBits != 0xF) {
    for (int a = 0; a < kAxes; ++a) pos[a] = simd::Select(inside, pos[a], src.lowerLanes[a]);
  }
  StoreLanes(dst, Finish<T, Mode>(Mode::Sample(src, pos)), laneBits);
}

// The destination region of a call: its origin and extents in the destination volume (depth 1
// for a planar call).
struct PointRegion {
  int64_t origin[3];
  int64_t extent[3];
};

template <class T, int kAxes, class Positions>
struct PointJob {
  PointSource<T, kAxes> src;
  SliceVolume<T> dst;
  PointRegion region;
  Positions positions;
};

// Destination rows [rowBegin, rowEnd) of the region, counted slice by slice.
template <class Mode, class Job>
void SampleRows(const Job& job, int64_t rowBegin, int64_t rowEnd) {
  constexpr int kAxes = decltype(job.src)::kAxisCount;
  const PointRegion& r = job.region;
  const int64_t width = r.extent[0];
  for (int64_t row = rowBegin; row < rowEnd; ++row) {
    const int64_t y = r.origin[1] + row % r.extent[1];
    const int64_t z = r.origin[2] + row / r.extent[1];
    const auto positions = job.positions.Row(y, z);
    auto* dst = job.dst.Row(y, z) + r.origin[0];
    __m128 pos[kAxes];
    int64_t x = 0;
    for (; x + 4 <= width; x += 4) {
      positions.Load(x, pos);
      SampleGroup<Mode>(job.src, pos, dst + x);
    }
    if (x < width) {
      positions.LoadPartial(x, static_cast<int>(width - x), pos);
      SampleGroup<Mode>(job.src, pos, dst + x);
    }
  }
}

// The row routine of each interpolation code, indexed by the code itself (0 and 3 are no
// codes). Constant data: the addresses are fixed when the library is linked.
template <class Job>
using RowsRoutine = void (*)(const Job&, int64_t, int64_t);

template <class Job>
inline constexpr RowsRoutine<Job> kRowsRoutines[8] = {
    nullptr,
    SampleRows<Nearest, Job>,
    SampleRows<Linear, Job>,
    nullptr,
    SampleRows<Cubic, Job>,
    SampleRows<Cubic, Job>,
    SampleRows<Cubic, Job>,
    SampleRows<Cubic, Job>};

// Runs a job with the routine of `code` (a code the source supports). A 3-D region's slices
// are split over the threads when the region is at least 16 voxels on every axis; a planar
// region's rows, when it is at least 16 voxels wide and high.
template <class Job>
void RunPointJob(const Job& job, int code) {
  const RowsRoutine<Job> rows = kRowsRoutines<Job>[code];
  const PointRegion& r = job.region;
  const bool planar = decltype(job.src)::kAxisCount == 2;
  const int64_t rowsPerUnit = planar ? 1 : r.extent[1];
  const Fork fork = WhenThreadedAndLarge(static_cast<int>(r.extent[0]),
                                         static_cast<int>(r.extent[1]),
                                         planar ? kMinParallelExtent : static_cast<int>(r.extent[2]));
  ParallelChunks(planar ? r.extent[1] : r.extent[2], fork, [&](int64_t begin, int64_t end) {
    rows(job, begin * rowsPerUnit, end * rowsPerUnit);
  });
}

}  // namespace volume
VTQR_PATH_END

#endif  // VTQR_VOLUME_POINT_ROWS_H_
