// Nearest hits of eye rays: every ray of the block starts at the eye.
#include "frame/code_path.h"
#include "frame/kernels.h"
#include "raycast/ray_block.h"

VTQR_PATH_BEGIN

VtqStatus IntersectEyeSO_32f(const Vtq32f originEye[3], const Vtq32f* const pDirection[3],
                             Vtq32f* pDist, Vtq32f* const pHit[2], Vtq32s* pTrianIndex,
                             const VtqrIntersectContext* pContext, VtqSize blockSize) {
  using namespace rays;
  if (blockSize.width < 1 || blockSize.height < 1) return vtqStsOk;

  const Planes<const Vtq32f> dir(pDirection);
  const NearestPlanes out{pDist, pHit[0], pHit[1], pTrianIndex};
  const VtqrIntersectContext object = *pContext;
  const float eye[3] = {originEye[0], originEye[1], originEye[2]};
  const auto arrays = Touches(dir, out.dist, out.u, out.v, out.index);
  ForEachRayGroup(blockSize, arrays, [&](auto lanes, auto at) {
    using L = decltype(lanes);
    WalkRay<L> ray;
    LoadRays(ray, eye, dir, at);
    KeepNearest<L> keep = LoadNearest<L>(out, at);
    CastRays(object, ray, L::kLaneBits, keep);
    StoreNearest(out, at, keep);
  });
  return vtqStsOk;
}

VTQR_PATH_END
