// The six resize entry points: the checks they share, the geometry step, and the hand-off to
// the kernel template for their element type and layout.
#include "frame/code_path.h"
#include "frame/kernels.h"
#include "volume/resize_kernel.h"
#include "volume/volume_checks.h"
#include "volume/volume_view.h"

VTQR_PATH_BEGIN
namespace volume {
namespace {

struct ResizeRequest {
  VtqVolumeSize srcVolume;
  VtqCuboid srcVOI;
  VtqCuboid dstVOI;
  double factor[3];
  double shift[3];
  int interpolation;
};

// Every check after the null pointers, in order, then the geometry. On vtqStsOk the three
// axes describe a region with at least one voxel.
VtqStatus PrepareResize(const ResizeRequest& r, ResizeAxis (&axis)[3]) {
  if (!IsValidVolumeSize(r.srcVolume) || !IsValidCuboid(r.srcVOI) || !IsValidCuboid(r.dstVOI)) {
    return vtqStsErrSize;
  }
  for (double factor : r.factor) {
    if (!IsPositiveFactor(factor)) return vtqStsErrResizeFactor;
  }
  if (!IsInterpolationCode(r.interpolation)) return vtqStsErrInterpolation;
  if (!OriginInside(r.srcVOI, r.srcVolume)) return vtqStsWarnVoiOutside;

  const VtqCuboid src = TrimToVolume(r.srcVOI, r.srcVolume);
  const VtqCuboid& dst = r.dstVOI;
  const bool nonEmpty =
      PlanResizeAxis(src.x, src.width, dst.x, dst.width, r.factor[0], r.shift[0], &axis[0]) &&
      PlanResizeAxis(src.y, src.height, dst.y, dst.height, r.factor[1], r.shift[1], &axis[1]) &&
      PlanResizeAxis(src.z, src.depth, dst.z, dst.depth, r.factor[2], r.shift[2], &axis[2]);
  return nonEmpty ? vtqStsOk : vtqStsWarnNoOperation;
}

// The whole call once the layout is fixed: the null check of the three pointers (as
// `pointersSet`), the rest of the checks and the geometry, then the kernel.
template <class SrcView, class DstView>
VtqStatus Resize(bool pointersSet, const SrcView& src, const DstView& dst, VtqVolumeSize srcVolume,
                 VtqCuboid srcVOI, VtqCuboid dstVOI, double xFactor, double yFactor, double zFactor,
                 double xShift, double yShift, double zShift, int interpolation, Vtq8u* buffer) {
  if (!pointersSet) return vtqStsErrNullPtr;
  const ResizeRequest request = {
      srcVolume,    srcVOI, dstVOI, {xFactor, yFactor, zFactor}, {xShift, yShift, zShift},
      interpolation};
  ResizeAxis axis[3];
  const VtqStatus status = PrepareResize(request, axis);
  if (status != vtqStsOk) return status;
  RunResize(src, dst, axis, interpolation, buffer);
  return vtqStsOk;
}

}  // namespace
}  // namespace volume

// The entry points differ only in element type and layout, so one macro writes each pair.
#define VTQR_RESIZE_ENTRY_POINTS(suffix, T)                                                      \
  VtqStatus Resize_##suffix##_C1V(const T* pSrc, VtqVolumeSize srcVolume, int srcStep,           \
                                  int srcPlaneStep, VtqCuboid srcVOI, T* pDst, int dstStep,      \
                                  int dstPlaneStep, VtqCuboid dstVOI, double xFactor,            \
                                  double yFactor, double zFactor, double xShift, double yShift,  \
                                  double zShift, int interpolation, Vtq8u* pBuffer) {            \
    return volume::Resize(                                                                       \
        pSrc && pDst && pBuffer, volume::BlockVolume<const T>(pSrc, srcStep, srcPlaneStep),      \
        volume::BlockVolume<T>(pDst, dstStep, dstPlaneStep), srcVolume, srcVOI, dstVOI, xFactor, \
        yFactor, zFactor, xShift, yShift, zShift, interpolation, pBuffer);                       \
  }                                                                                              \
  VtqStatus Resize_##suffix##_C1PV(const T* const* pSrc, VtqVolumeSize srcVolume, int srcStep,   \
                                   VtqCuboid srcVOI, T* const* pDst, int dstStep,                \
                                   VtqCuboid dstVOI, double xFactor, double yFactor,             \
                                   double zFactor, double xShift, double yShift, double zShift,  \
                                   int interpolation, Vtq8u* pBuffer) {                          \
    return volume::Resize(pSrc && pDst && pBuffer, volume::SliceVolume<const T>(pSrc, srcStep),  \
                          volume::SliceVolume<T>(pDst, dstStep), srcVolume, srcVOI, dstVOI,      \
                          xFactor, yFactor, zFactor, xShift, yShift, zShift, interpolation,      \
                          pBuffer);                                                              \
  }

VTQR_RESIZE_ENTRY_POINTS(8u, Vtq8u)
VTQR_RESIZE_ENTRY_POINTS(16u, Vtq16u)
VTQR_RESIZE_ENTRY_POINTS(32f, Vtq32f)

#undef VTQR_RESIZE_ENTRY_POINTS

VTQR_PATH_END
