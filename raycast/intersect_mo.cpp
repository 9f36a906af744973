// Nearest hits over several objects, each with its own tree and an optional affine transform
// from world to object space (instancing).
#include "frame/code_path.h"
#include "frame/kernels.h"
#include "raycast/ray_block.h"

VTQR_PATH_BEGIN
namespace {

using namespace rays;

// The world rays in an object's space: o' = M o + m, d' = M d with the row-major 3x4 matrix m,
// each row summed left to right. An affine map keeps the parameter of every point on the ray,
// so distances and weights found in object space hold in world space.
template <class L>
[[gnu::always_inline]] inline void ToObject(const Vtq32f* m, const RayAxes<L>& world,
                                            WalkRay<L>& ray) {
  if (m == nullptr) {
    for (int axis = 0; axis < 4; ++axis) {
      ray.org[axis] = world.org[axis];
      ray.dir[axis] = world.dir[axis];
    }
    return;
  }
  for (int row = 0; row < 3; ++row) {
    const Vtq32f* r = m + 4 * row;
    ray.org[row] = r[0] * world.org[0] + r[1] * world.org[1] + r[2] * world.org[2] + r[3];
    ray.dir[row] = r[0] * world.dir[0] + r[1] * world.dir[1] + r[2] * world.dir[2];
  }
  ray.org[3] = 0.0f;
  ray.dir[3] = 0.0f;
}

}  // namespace

VtqStatus IntersectMO_32f(const Vtq32f* const pOrigin[3], const Vtq32f* const pDirection[3],
                          Vtq32f* pDist, Vtq32f* const pHit[2], Vtq32s* pTrianIndex,
                          Vtq32s* pObjectIndex, const VtqrIntersectContext* const pContext[],
                          const Vtq32f* const pTransform[], int objectCount, VtqSize blockSize) {
  if (pOrigin == nullptr || pDirection == nullptr || pDist == nullptr || pHit == nullptr ||
      pTrianIndex == nullptr || pObjectIndex == nullptr || pContext == nullptr) {
    return vtqStsErrNullPtr;
  }
  if (objectCount < 0) return vtqStsErrSize;
  for (int k = 0; k < objectCount; ++k) {
    if (pContext[k] == nullptr) return vtqStsErrNullPtr;
  }
  if (blockSize.width < 1 || blockSize.height < 1) return vtqStsOk;

  const Planes<const Vtq32f> org(pOrigin);
  const Planes<const Vtq32f> dir(pDirection);
  const NearestPlanes out{pDist, pHit[0], pHit[1], pTrianIndex};
  const auto arrays = Touches(org, dir, out.dist, out.u, out.v, out.index, pObjectIndex);
  ForEachRayGroup(blockSize, arrays, [&](auto lanes, auto at) {
    using L = decltype(lanes);
    using I = typename L::I;
    const I mask = L::Load(out.index, at);
    const int live = LiveLanes<L>(mask);
    if (live == 0) return;
    const auto liveLanes = L::Mask(live);
    RayAxes<L> world;
    LoadRays(world, org, dir, at);
    KeepNearest<L> keep = LoadNearest<L>(out, at);
    keep.index = Select(liveLanes, keep.index, mask);
    I object = Select(liveLanes, I(-1), L::Load(pObjectIndex, at));
    // Each object in turn, with the nearest hit so far as the distance of interest.
    for (int k = 0; k < objectCount; ++k) {
      WalkRay<L> ray;
      ToObject(pTransform == nullptr ? nullptr : pTransform[k], world, ray);
      keep.taken = 0;
      CastRays(*pContext[k], ray, live, keep);
      if (keep.taken != 0) object = Select(L::Mask(keep.taken), I(k), object);
    }
    StoreNearest(out, at, keep);
    L::Store(pObjectIndex, at, object);
  });
  return vtqStsOk;
}

VTQR_PATH_END
