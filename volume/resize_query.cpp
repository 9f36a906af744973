// The two resize queries: the work-buffer size and the destination cuboid of a source cuboid.
#include <cmath>
#include <cstdint>

#include "frame/code_path.h"
#include "frame/kernels.h"
#include "volume/resize_geometry.h"
#include "volume/resize_scratch.h"
#include "volume/volume_checks.h"
#include "vtqcore.h"

VTQR_PATH_BEGIN
namespace volume {
namespace {

// A mapped edge rounded with the given constant, truncated toward zero and held to the range
// of a cuboid coordinate. NaN becomes 0, which leaves that axis empty.
double CuboidEdge(int64_t coordinate, double factor, double shift, double rounding) {
  const double edge = std::trunc(static_cast<double>(coordinate) * factor + shift + rounding);
  if (!(edge > 0.0)) return 0.0;
  return edge < INT32_MAX ? edge : INT32_MAX;
}

}  // namespace
}  // namespace volume

VtqStatus ResizeGetBufSize(const VtqCuboid* srcVOI, const VtqCuboid* dstVOI, int nChannel,
                           int interpolation, int* pSize) {
  const VtqStatus status = volume::CheckCuboidQuery(srcVOI, dstVOI, nChannel, interpolation, pSize);
  if (status != vtqStsOk) return status;
  const volume::Wrapping32 perThread = volume::ResizeBufferPerThread(interpolation, dstVOI->width,
                                                                     dstVOI->height, dstVOI->depth);
  *pSize = (perThread * ownGetNumThreads()).value();
  return vtqStsOk;
}

VtqStatus GetResizeCuboid(const VtqCuboid* srcVOI, VtqCuboid* pDstCuboid, double xFactor,
                          double yFactor, double zFactor, double xShift, double yShift,
                          double zShift, int interpolation) {
  if (pDstCuboid == nullptr || srcVOI == nullptr) return vtqStsErrNullPtr;
  if (!volume::IsValidCuboid(*srcVOI)) return vtqStsErrSize;
  const double factor[3] = {xFactor, yFactor, zFactor};
  for (double f : factor) {
    if (!volume::IsPositiveFactor(f)) return vtqStsErrResizeFactor;
  }
  if (!volume::IsInterpolationCode(interpolation)) return vtqStsErrInterpolation;

  const double shift[3] = {xShift, yShift, zShift};
  const int64_t origin[3] = {srcVOI->x, srcVOI->y, srcVOI->z};
  const int64_t extent[3] = {srcVOI->width, srcVOI->height, srcVOI->depth};
  int32_t start[3], size[3];
  for (int a = 0; a < 3; ++a) {
    const double first = volume::CuboidEdge(origin[a], factor[a], shift[a], volume::kStartRounding);
    const double end = volume::CuboidEdge(origin[a] + extent[a], factor[a], shift[a],
                                          volume::kEndRounding);
    if (!(first < end)) return vtqStsWarnNoOperation;
    start[a] = static_cast<int32_t>(first);
    size[a] = static_cast<int32_t>(end) - start[a];
  }
  *pDstCuboid = {start[0], start[1], start[2], size[0], size[1], size[2]};
  return vtqStsOk;
}

VTQR_PATH_END
