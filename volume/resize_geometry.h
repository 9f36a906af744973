// Resize geometry: which destination voxels a call writes, where each one samples the source,
// and the per-axis tables of taps and weights built from that once per call.
#ifndef VTQR_VOLUME_RESIZE_GEOMETRY_H_
#define VTQR_VOLUME_RESIZE_GEOMETRY_H_

#include <cmath>
#include <cstdint>

#include "frame/code_path.h"
#include "volume/interpolation.h"
#include "volume/volume_checks.h"

VTQR_PATH_BEGIN
namespace volume {

// Rounding of mapped region edges: a start that falls exactly on a half goes down, an end
// goes up, so an edge computed with a little rounding error still lands where exact
// arithmetic would put it.
inline constexpr double kStartRounding = 0.4999999999;
inline constexpr double kEndRounding = 0.5000000001;

// One axis of a resize: the destination region [start, start + count) and the inverse map
// s = d * inverse + offset from destination index d to source position s.
struct ResizeAxis {
  int64_t start;
  int64_t count;
  double inverse;  // 1 / factor
  double offset;   // -shift / factor
  AxisBounds src;  // the trimmed source VOI, the only voxels read
};

// Plans one axis; returns false when the destination region is empty along it. Written with
// comparisons that are false for NaN, so a NaN or infinite mapped edge empties the region
// instead of reaching an integer conversion.
inline bool PlanResizeAxis(int32_t srcOrigin, int32_t srcExtent, int32_t dstOrigin,
                           int32_t dstExtent, double factor, double shift, ResizeAxis* axis) {
  const double mappedStart = static_cast<double>(srcOrigin) * factor + shift;
  const double mappedEnd = static_cast<double>(int64_t{srcOrigin} + srcExtent) * factor + shift;
  const double dstStart = dstOrigin;
  const double dstEnd = static_cast<double>(dstOrigin) + static_cast<double>(dstExtent);
  const double start =
      std::trunc((mappedStart < dstStart ? dstStart : mappedStart) + kStartRounding);
  const double end = std::trunc((mappedEnd > dstEnd ? dstEnd : mappedEnd) + kEndRounding);
  if (!(start < end)) return false;
  // Both now lie within [dstOrigin, dstOrigin + dstExtent], so they convert exactly.
  axis->start = static_cast<int64_t>(start);
  axis->count = static_cast<int64_t>(end) - axis->start;
  axis->inverse = 1.0 / factor;
  axis->offset = -shift / factor;
  axis->src = {srcOrigin, srcOrigin + (srcExtent - 1)};
  return true;
}

// Source position of destination index d. Positions more than two voxels before the VOI or
// one voxel past it are pulled in to that distance: there every tap of every mode already
// reads the edge voxel, and the tap indices stay well inside int32 whatever the factor and
// shift (a NaN position, from a factor so small that its inverse overflows, goes to the
// lower edge).
inline double SourcePosition(const ResizeAxis& axis, int64_t d) {
  double s = static_cast<double>(d) * axis.inverse + axis.offset;
  const double lowest = static_cast<double>(axis.src.lo) - 2.0;
  const double highest = static_cast<double>(axis.src.hi) + 1.0;
  if (!(s >= lowest)) s = lowest;
  if (s > highest) s = highest;
  return s;
}

inline int64_t ClampTap(int64_t index, AxisBounds b) {
  return index < b.lo ? b.lo : index > b.hi ? b.hi : index;
}

// Fills the tables of one axis for the destination indices axis.start + i, i < count, and
// pads them to `padded` entries with copies of the last one (so that whole vector groups can
// be computed past the end).
//  - nearest: first[i] is the voxel to copy, ceil(s - 0.5) clamped to the VOI;
//  - trilinear: first[i] = floor(s), weights one per index, w = (float)(s - floor(s));
//  - cubic: first[i] = floor(s) - 1, four weights per index.
// Tap k of index i is voxel ClampTap(first[i] + k). `laneMajor` lays the weights of four
// consecutive indices out tap by tap (w0 of the four, then w1, ...), as the x pass loads
// them; otherwise each index's weights are contiguous.
inline void FillAxisTable(int code, const ResizeAxis& axis, int64_t padded, bool laneMajor,
                          int32_t* first, float* weights) {
  const int perIndex = code == vtqInterLinear ? 1 : 4;
  for (int64_t i = 0; i < padded; ++i) {
    const int64_t d = axis.start + (i < axis.count ? i : axis.count - 1);
    const double s = SourcePosition(axis, d);
    if (code == vtqInterNearest) {
      first[i] = static_cast<int32_t>(ClampTap(static_cast<int64_t>(std::ceil(s - 0.5)), axis.src));
      continue;
    }
    const double floorS = std::floor(s);
    const double t = s - floorS;
    float w[4] = {static_cast<float>(t)};
    if (IsCubicCode(code)) CubicTapWeights(code, t, w);
    first[i] = static_cast<int32_t>(floorS) - (perIndex == 4 ? 1 : 0);
    for (int k = 0; k < perIndex; ++k) {
      const int64_t slot = laneMajor ? (i / 4) * 4 * perIndex + k * 4 + i % 4 : i * perIndex + k;
      weights[slot] = w[k];
    }
  }
}

}  // namespace volume
VTQR_PATH_END

#endif  // VTQR_VOLUME_RESIZE_GEOMETRY_H_
