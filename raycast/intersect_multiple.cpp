// Nearest hits of rays with their own origins.
#include "frame/code_path.h"
#include "frame/kernels.h"
#include "raycast/ray_block.h"

VTQR_PATH_BEGIN

VtqStatus IntersectMultipleSO_32f(const Vtq32f* const pOrigin[3], const Vtq32f* const pDirection[3],
                                  Vtq32f* pDist, Vtq32f* const pHit[2], Vtq32s* pTrianIndex,
                                  const VtqrIntersectContext* pContext, VtqSize blockSize) {
  using namespace rays;
  if (pOrigin == nullptr || pDirection == nullptr || pDist == nullptr || pHit == nullptr ||
      pTrianIndex == nullptr || pContext == nullptr) {
    return vtqStsErrNullPtr;
  }
  if (blockSize.width < 1 || blockSize.height < 1) return vtqStsOk;

  const Planes<const Vtq32f> org(pOrigin);
  const Planes<const Vtq32f> dir(pDirection);
  const NearestPlanes out{pDist, pHit[0], pHit[1], pTrianIndex};
  const VtqrIntersectContext object = *pContext;
  const auto arrays = Touches(org, dir, out.dist, out.u, out.v, out.index);
  ForEachRayGroup(blockSize, arrays, [&](auto lanes, auto at) {
    using L = decltype(lanes);
    // A negative triangle number masks the ray out; it keeps all its values.
    const typename L::I mask = L::Load(out.index, at);
    const int live = LiveLanes<L>(mask);
    if (live == 0) return;
    WalkRay<L> ray;
    LoadRays(ray, org, dir, at);
    KeepNearest<L> keep = LoadNearest<L>(out, at);
    keep.index = Select(L::Mask(live), keep.index, mask);
    CastRays(object, ray, live, keep);
    StoreNearest(out, at, keep);
  });
  return vtqStsOk;
}

VTQR_PATH_END
