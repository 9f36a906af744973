// The source of the per-voxel families (remap and warp): the region they may sample, the mode
// that a small source can support, and the record their sampling loops read.
//
// These families sample at a position per destination voxel rather than along separable axes.
// A single-slice source is sampled in two dimensions (kAxes = 2): the same code with the z
// axis compiled out, so that nothing is read, weighted or rounded along z.
#ifndef VTQR_VOLUME_POINT_SOURCE_H_
#define VTQR_VOLUME_POINT_SOURCE_H_

#include <emmintrin.h>

#include <cmath>
#include <cstdint>

#include "frame/code_path.h"
#include "volume/interpolation.h"
#include "volume/table_weights.h"
#include "volume/volume_checks.h"
#include "volume/volume_view.h"

VTQR_PATH_BEGIN
namespace volume {

// A planar call sees its slice as a volume of depth 1 and its VOI as the x/y part of the
// caller's: the z part plays no role.
inline VtqVolumeSize PlanarVolume(int width, int height) { return {width, height, 1}; }
inline VtqCuboid PlanarVOI(const VtqCuboid& voi) {
  return {voi.x, voi.y, 0, voi.width, voi.height, 1};
}

// The mode a source of this size can support: the cubic taps reach up to voxel 2 at a
// volume's low edge, so a source narrower than 4 voxels on some axis falls back to trilinear,
// and one with a single voxel on some axis, where no pair of taps exists, to nearest. Only the
// sampled axes count, so a planar source is judged by its width and height.
inline int SupportedCode(int code, const VtqVolumeSize& volume, int axes) {
  int smallest = volume.width < volume.height ? volume.width : volume.height;
  if (axes == 3 && volume.depth < smallest) smallest = volume.depth;
  if (IsCubicCode(code) && smallest < 4) code = vtqInterLinear;
  if (smallest < 2) code = vtqInterNearest;
  return code;
}

// What the sampling loops read about the source: its slices, and the inclusive bounds of the
// trimmed VOI, as integers and as floats broadcast to four lanes (x, y and, in 3-D, z).
template <class T, int kAxes>
struct PointSource {
  static constexpr int kAxisCount = kAxes;
  SliceVolume<const T> volume;
  int32_t upper[kAxes];
  __m128 lowerLanes[kAxes];
  __m128 upperLanes[kAxes];
  __m128i upperIndex[kAxes];
  const float* samples;  // the code's sampled kernel (cubic codes only)

  const T* Row(int64_t y, int64_t z) const { return volume.Row(y, z); }
  const T* NextRow(const T* row) const { return volume.NextRow(row); }
};

// A bound as a float, rounded towards the inside of the VOI. Indices up to 2^24 are exact
// floats; beyond, the nearest float could lie outside, and a position on it would then read
// past the VOI (or the volume).
inline float FloatAtOrAbove(int32_t bound) {
  const float f = static_cast<float>(bound);
  return static_cast<double>(f) < bound ? std::nextafter(f, INFINITY) : f;
}
inline float FloatAtOrBelow(int32_t bound) {
  const float f = static_cast<float>(bound);
  return static_cast<double>(f) > bound ? std::nextafter(f, 0.0f) : f;
}

// The source record for a VOI whose origin lies inside the volume (the caller has checked):
// the VOI trimmed to the volume and its bounds, for the mode `code` (already supported).
template <class T, int kAxes>
PointSource<T, kAxes> MakePointSource(const T* const* slices, int rowStep,
                                      const VtqVolumeSize& volume, const VtqCuboid& voi, int code) {
  const VoiBounds bounds = BoundsOf(TrimToVolume(voi, volume));
  PointSource<T, kAxes> src{SliceVolume<const T>(slices, rowStep), {}, {}, {}, {}, nullptr};
  for (int a = 0; a < kAxes; ++a) {
    src.upper[a] = bounds.axis[a].hi;
    src.lowerLanes[a] = _mm_set1_ps(FloatAtOrAbove(bounds.axis[a].lo));
    src.upperLanes[a] = _mm_set1_ps(FloatAtOrBelow(bounds.axis[a].hi));
    src.upperIndex[a] = _mm_set1_epi32(bounds.axis[a].hi);
  }
  if (IsCubicCode(code)) src.samples = SampledCubic(code);
  return src;
}

}  // namespace volume
VTQR_PATH_END

#endif  // VTQR_VOLUME_POINT_SOURCE_H_
