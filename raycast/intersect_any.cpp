// Any hit before each ray's end, for shadow rays: every ray starts at one point (the light).
#include "frame/code_path.h"
#include "frame/kernels.h"
#include "raycast/ray_block.h"

VTQR_PATH_BEGIN

VtqStatus IntersectAnySO_32f(const Vtq32f originEye[3], const Vtq32f* const pDirection[3],
                             const Vtq32f* pDist, Vtq32s* pMask, VtqSize blockSize,
                             const VtqrIntersectContext* pContext) {
  using namespace rays;
  if (pDirection == nullptr || pDist == nullptr || pMask == nullptr || pContext == nullptr) {
    return vtqStsErrNullPtr;
  }
  if (blockSize.width < 1 || blockSize.height < 1) return vtqStsOk;

  const Planes<const Vtq32f> dir(pDirection);
  // Only the records and the root: shadow rays are walked over [0, end] as they are.
  const VtqrIntersectContext object{nullptr, pContext->pAccel, pContext->pRootNode};
  const float origin[3] = {originEye[0], originEye[1], originEye[2]};
  ForEachRayGroup(blockSize, Touches(dir, pDist, pMask), [&](auto lanes, auto at) {
    using L = decltype(lanes);
    const typename L::I mask = L::Load(pMask, at);
    const int live = LiveLanes<L>(mask);
    if (live == 0) return;
    WalkRay<L> ray;
    LoadRays(ray, origin, dir, at);
    KeepAny<L> keep{L::Load(pDist, at)};
    CastRays(object, ray, live, keep);
    if (keep.occluded != 0) {
      L::Store(pMask, at, Select(L::Mask(keep.occluded), typename L::I(-1), mask));
    }
  });
  return vtqStsOk;
}

VTQR_PATH_END
