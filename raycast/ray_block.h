// How the intersection functions go through a block of rays, and the per-ray arrays they share.
//
// A block is row-major. When its width and height are multiples of 4 and every per-ray array is
// 16-byte aligned, its rays go in 2x2 tiles (two pixels of a row and the two below them: the
// most coherent four rays of a row-major block), otherwise one at a time in row-major order.
// Each function writes its per-ray work once, as a generic lambda over the lane policy.
#ifndef VTQR_RAYCAST_RAY_BLOCK_H_
#define VTQR_RAYCAST_RAY_BLOCK_H_

#include <cstddef>
#include <cstdint>

#include "frame/code_path.h"
#include "raycast/hit_keep.h"
#include "raycast/kdtree_walk.h"
#include "raycast/walk_lanes.h"
#include "simd/schemes.h"
#include "simd/vec3.h"
#include "vtqr/types.h"

VTQR_PATH_BEGIN
namespace rays {

// Calls cast(TileLanes{}, TileAt) for every 2x2 tile when the block's sides are multiples of 4
// and every per-ray array in `arrays` is 16-byte aligned, otherwise cast(OneLane{}, index) for
// every ray.
template <class... Arrays, class Cast>
void ForEachRayGroup(VtqSize size, const simd::Touched<Arrays...>& arrays, Cast&& cast) {
  if (size.width % 4 == 0 && size.height % 4 == 0 && arrays.Aligned16At(0)) {
    for (int y = 0; y < size.height; y += 2) {
      const ptrdiff_t upper = static_cast<ptrdiff_t>(y) * size.width;
      const ptrdiff_t lower = upper + size.width;
      for (int x = 0; x < size.width; x += 2) cast(TileLanes{}, TileAt{upper + x, lower + x});
    }
  } else {
    const ptrdiff_t count = static_cast<ptrdiff_t>(size.width) * size.height;
    for (ptrdiff_t i = 0; i < count; ++i) cast(OneLane{}, i);
  }
}

// A P3 argument's three planes at `at`, as the walk's per-axis entries (the fourth is padding).
template <class L>
[[gnu::always_inline]] inline void LoadAxes(typename L::F axes[4], const Planes<const Vtq32f>& p,
                                            typename L::At at) {
  axes[0] = L::Load(p.x, at);
  axes[1] = L::Load(p.y, at);
  axes[2] = L::Load(p.z, at);
  axes[3] = 0.0f;
}

// Origins and directions of the rays at `at`, each ray with its own origin or all with one.
template <class L>
[[gnu::always_inline]] inline void LoadRays(RayAxes<L>& ray, const Planes<const Vtq32f>& org,
                                            const Planes<const Vtq32f>& dir, typename L::At at) {
  LoadAxes<L>(ray.org, org, at);
  LoadAxes<L>(ray.dir, dir, at);
}
template <class L>
[[gnu::always_inline]] inline void LoadRays(RayAxes<L>& ray, const float origin[3],
                                            const Planes<const Vtq32f>& dir, typename L::At at) {
  for (int axis = 0; axis < 3; ++axis) ray.org[axis] = origin[axis];
  ray.org[3] = 0.0f;
  LoadAxes<L>(ray.dir, dir, at);
}

// Lanes whose mask value is zero or positive.
template <class L>
[[gnu::always_inline]] inline int LiveLanes(typename L::I mask) {
  return L::kLaneBits & ~NegativeBits(mask);
}

// The outputs of a nearest-hit function.
struct NearestPlanes {
  Vtq32f* dist;
  Vtq32f* u;
  Vtq32f* v;
  Vtq32s* index;
};

// Loads the kept hit of the rays at `at`: their distance of interest and their current
// weights, which a miss hands back unchanged; the triangle number starts as -1.
template <class L>
[[gnu::always_inline]] inline KeepNearest<L> LoadNearest(const NearestPlanes& out,
                                                         typename L::At at) {
  return {L::Load(out.dist, at), L::Load(out.u, at), L::Load(out.v, at), -1};
}

template <class L>
[[gnu::always_inline]] inline void StoreNearest(const NearestPlanes& out, typename L::At at,
                                                const KeepNearest<L>& keep) {
  L::Store(out.dist, at, keep.dist);
  L::Store(out.u, at, keep.u);
  L::Store(out.v, at, keep.v);
  L::Store(out.index, at, keep.index);
}

}  // namespace rays
VTQR_PATH_END

#endif  // VTQR_RAYCAST_RAY_BLOCK_H_
