// The sampling loop of the per-voxel families: destination rows in groups of four voxels, each
// group's positions from the family's position source, voxels whose position lies outside the
// VOI left as they are, and the destination's rows split over threads.
//
// A position source (the three maps of remap, the affine map of warp) names the tiles it is
// best walked in (kTile: voxels along x, y, z; 0 for whole rows, whole slices, single slices)
// and gives, per destination row (Row(y, z)), an object with
//   Load(x, pos)            the positions of voxels x .. x+3 of the row (relative to its start)
//   LoadPartial(x, n, pos)  the same for the last n < 4 voxels; lanes n..3 are NaN.
#ifndef VTQR_VOLUME_POINT_ROWS_H_
#define VTQR_VOLUME_POINT_ROWS_H_

#include <emmintrin.h>

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "frame/code_path.h"
#include "frame/parallel.h"
#include "simd/select.h"
#include "volume/element.h"
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
    Element<T>::StoreRounded4(dst, lanes);
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
__attribute__((always_inline)) inline void SampleGroup(const PointSource<T, kAxes>& src,
                                                       __m128 (&pos)[kAxes], T* dst) {
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

// The destination voxels [x0, x1) of one row (relative to the region), in groups of four.
template <class Mode, class T, int kAxes, class Row>
void SampleSegment(const PointSource<T, kAxes>& src, const Row& positions, int64_t x0, int64_t x1,
                   T* dst) {
  __m128 pos[kAxes];
  int64_t x = x0;
  for (; x + 4 <= x1; x += 4) {
    positions.Load(x, pos);
    SampleGroup<Mode>(src, pos, dst + x);
  }
  if (x < x1) {
    positions.LoadPartial(x, static_cast<int>(x1 - x), pos);
    SampleGroup<Mode>(src, pos, dst + x);
  }
}

// Destination slices [zBegin, zEnd) and rows [yBegin, yEnd) of the region (relative to its
// origin), in tiles of the position source's kTile voxels along x, y and z. Where neighbouring
// destination rows and slices sample far-apart source rows (an oblique warp), tiles keep the
// source rows a tile reads in the caches until its neighbours come back to them; positions
// that follow the destination closely (most remaps) take whole rows and slices. Every voxel
// gets the same bits in any order, so the tiling changes nothing but the speed.
template <class Mode, class Job>
void SampleRegion(const Job& job, int64_t zBegin, int64_t zEnd, int64_t yBegin, int64_t yEnd) {
  using Positions = decltype(job.positions);
  const PointRegion& r = job.region;
  const int64_t width = r.extent[0];
  const int64_t tileX = Positions::kTile[0] > 0 ? Positions::kTile[0] : width;
  const int64_t tileY = Positions::kTile[1] > 0 ? Positions::kTile[1] : yEnd - yBegin;
  const int64_t tileZ = Positions::kTile[2] > 0 ? Positions::kTile[2] : 1;
  for (int64_t tz = zBegin; tz < zEnd; tz += tileZ) {
    for (int64_t ty = yBegin; ty < yEnd; ty += tileY) {
      for (int64_t tx = 0; tx < width; tx += tileX) {
        const int64_t xEnd = tx + tileX < width ? tx + tileX : width;
        for (int64_t z = tz; z < zEnd && z < tz + tileZ; ++z) {
          for (int64_t y = ty; y < yEnd && y < ty + tileY; ++y) {
            const int64_t dy = r.origin[1] + y, dz = r.origin[2] + z;
            SampleSegment<Mode>(job.src, job.positions.Row(dy, dz), tx, xEnd,
                                job.dst.Row(dy, dz) + r.origin[0]);
          }
        }
      }
    }
  }
}

// The routine of each interpolation code, indexed by the code itself (0 and 3 are no codes).
// Constant data: the addresses are fixed when the library is linked.
template <class Job>
using RegionRoutine = void (*)(const Job&, int64_t, int64_t, int64_t, int64_t);

template <class Job>
inline constexpr RegionRoutine<Job> kRegionRoutines[8] = {nullptr,
                                                          SampleRegion<Nearest, Job>,
                                                          SampleRegion<Linear, Job>,
                                                          nullptr,
                                                          SampleRegion<Cubic, Job>,
                                                          SampleRegion<Cubic, Job>,
                                                          SampleRegion<Cubic, Job>,
                                                          SampleRegion<Cubic, Job>};

// Runs a job with the routine of `code` (a code the source supports). A 3-D region's slices
// are split over the threads when the region is at least 16 voxels on every axis; a planar
// region's rows, when it is at least 16 voxels wide and high.
template <class Job>
void RunPointJob(const Job& job, int code) {
  const RegionRoutine<Job> routine = kRegionRoutines<Job>[code];
  const PointRegion& r = job.region;
  if (decltype(job.src)::kAxisCount == 2) {
    const Fork fork = WhenThreadedAndLarge(static_cast<int>(r.extent[0]),
                                           static_cast<int>(r.extent[1]), kMinParallelExtent);
    ParallelChunks(r.extent[1], fork,
                   [&](int64_t begin, int64_t end) { routine(job, 0, 1, begin, end); });
    return;
  }
  const Fork fork = WhenThreadedAndLarge(
      static_cast<int>(r.extent[0]), static_cast<int>(r.extent[1]), static_cast<int>(r.extent[2]));
  ParallelChunks(r.extent[2], fork,
                 [&](int64_t begin, int64_t end) { routine(job, begin, end, 0, r.extent[1]); });
}

}  // namespace volume
VTQR_PATH_END

#endif  // VTQR_VOLUME_POINT_ROWS_H_
