// Argument checks and region geometry that every volume family shares: what makes a volume
// size, a cuboid and an interpolation code acceptable, the source-VOI-outside warning, and
// the trimming of a source VOI to its volume.
#ifndef VTQR_VOLUME_VOLUME_CHECKS_H_
#define VTQR_VOLUME_VOLUME_CHECKS_H_

#include <cstdint>

#include "frame/code_path.h"
#include "volume/interpolation.h"
#include "vtqr/volume.h"

VTQR_PATH_BEGIN
namespace volume {

inline bool IsValidVolumeSize(const VtqVolumeSize& size) {
  return size.width >= 1 && size.height >= 1 && size.depth >= 1;
}

// Origin inside the first octant, extents at least one voxel.
inline bool IsValidCuboid(const VtqCuboid& c) {
  return c.x >= 0 && c.y >= 0 && c.z >= 0 && c.width >= 1 && c.height >= 1 && c.depth >= 1;
}

// A factor passes only if it is a positive number; the comparison is written so that NaN fails.
inline bool IsPositiveFactor(double factor) { return factor > 0.0; }

// Whether the VOI's origin voxel lies in the volume. A VOI whose origin is outside is not an
// error but a warning (vtqStsWarnVoiOutside): there is nothing to read, so nothing is written.
inline bool OriginInside(const VtqCuboid& voi, const VtqVolumeSize& volume) {
  return voi.x < volume.width && voi.y < volume.height && voi.z < volume.depth;
}

// The VOI cut to the volume: its extents shrink so that it ends at the volume's far faces.
// Needs a VOI that passed IsValidCuboid and OriginInside, so every extent stays at least 1.
inline VtqCuboid TrimToVolume(VtqCuboid voi, const VtqVolumeSize& volume) {
  if (voi.width > volume.width - voi.x) voi.width = volume.width - voi.x;
  if (voi.height > volume.height - voi.y) voi.height = volume.height - voi.y;
  if (voi.depth > volume.depth - voi.z) voi.depth = volume.depth - voi.z;
  return voi;
}

// The checks of the buffer-size queries that take a source and a destination cuboid, in their
// documented order: pointers, cuboids, channels, interpolation code.
inline VtqStatus CheckCuboidQuery(const VtqCuboid* srcVOI, const VtqCuboid* dstVOI, int nChannel,
                                  int interpolation, const int* pSize) {
  if (pSize == nullptr || srcVOI == nullptr || dstVOI == nullptr) return vtqStsErrNullPtr;
  if (!IsValidCuboid(*srcVOI) || !IsValidCuboid(*dstVOI)) return vtqStsErrSize;
  if (nChannel != 1) return vtqStsErrChannels;
  if (!IsInterpolationCode(interpolation)) return vtqStsErrInterpolation;
  return vtqStsOk;
}

// Inclusive voxel bounds of a trimmed VOI along one axis: the voxels a kernel may read.
struct AxisBounds {
  int32_t lo;
  int32_t hi;
};

// Bounds of a trimmed VOI, x, y, z.
struct VoiBounds {
  AxisBounds axis[3];
};

inline VoiBounds BoundsOf(const VtqCuboid& trimmed) {
  return {{{trimmed.x, trimmed.x + (trimmed.width - 1)},
           {trimmed.y, trimmed.y + (trimmed.height - 1)},
           {trimmed.z, trimmed.z + (trimmed.depth - 1)}}};
}

}  // namespace volume
VTQR_PATH_END

#endif  // VTQR_VOLUME_VOLUME_CHECKS_H_
