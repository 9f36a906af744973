// What a walk keeps of the triangles it tests: the nearest hit below each ray's distance, or
// only whether any hit lies before each ray's end. The walk tests every leaf it reaches with
// TestTriangles and asks the keeper's Finished after it, both for the lanes it names.
#ifndef VTQR_RAYCAST_HIT_KEEP_H_
#define VTQR_RAYCAST_HIT_KEEP_H_

#include <cstdint>

#include "accel/kdtree_node.h"
#include "frame/code_path.h"
#include "raycast/triangle_test.h"
#include "raycast/walk_lanes.h"
#include "vtqr/accel.h"

VTQR_PATH_BEGIN
namespace rays {

// One ray against a leaf of several triangles, four at a time, one per lane. Each lane computes
// what the one-triangle test computes, so the candidates are the same; they are then taken in
// list order against the keeper's current limit, as one triangle after the other would be.
template <class Keep>
[[gnu::always_inline]] inline int TestTrianglesInFours(kdnode::LeafTriangles leaf,
                                                       const VtqrTriangleAccel* accel,
                                                       const RayAxes<OneLane>& ray, Keep& keep) {
  for (int32_t first = 0; first < leaf.count; first += 4) {
    // A short last group repeats its last triangle in the lanes it does not fill.
    const int32_t last = leaf.count - 1;
    const int32_t* ids = leaf.ids + first;
    const int32_t id[4] = {ids[0], ids[1 < last - first ? 1 : last - first],
                           ids[2 < last - first ? 2 : last - first],
                           ids[3 < last - first ? 3 : last - first]};
    const VtqrTriangleAccel* const tri[4] = {accel + id[0], accel + id[1], accel + id[2],
                                             accel + id[3]};
    const int filled = (1 << (last - first < 3 ? last - first + 1 : 4)) - 1;
    TriangleCut<F4> cut;
    int inside = TestFourTriangles(tri, ray, &cut) & filled;
    if (inside == 0) continue;
    const F4 t = cut.num / cut.den;
    inside &= LaneBits((F4(keep.Limit()) > t) & (t > 0.0f));
    alignas(16) float lane[4][4];
    _mm_store_ps(lane[0], t.v);
    _mm_store_ps(lane[1], cut.den.v);
    _mm_store_ps(lane[2], cut.beta.v);
    _mm_store_ps(lane[3], cut.gamma.v);
    for (; inside != 0; inside &= inside - 1) {
      const int k = __builtin_ctz(static_cast<unsigned>(inside));
      // An earlier lane of this group may have taken a nearer hit meanwhile.
      if (!(keep.Limit() > lane[0][k])) continue;
      const TriangleCut<float> one = {lane[1][k], lane[2][k], lane[3][k], 0.0f};
      if (keep.Take(1, id[k], one, lane[0][k], 1) == 0) return 1;
    }
  }
  return 0;
}

// Tests a leaf's triangles in list order for lanes `active`. For each triangle that some of
// them hit at 0 < t < keep.Limit() (strictly), calls keep.Take(lanes, triangle, cut, t), which
// returns the lanes that go on testing. Returns the lanes that stopped in this leaf.
template <class L, class Keep>
[[gnu::always_inline]] inline int TestTriangles(kdnode::LeafTriangles leaf,
                                                const VtqrTriangleAccel* accel,
                                                const RayAxes<L>& ray, int active, Keep& keep) {
  if constexpr (L::kWidth == 1) {
    if (leaf.count > 2) return TestTrianglesInFours(leaf, accel, ray, keep);
  }
  const int entered = active;
  for (int32_t i = 0; i < leaf.count; ++i) {
    const int32_t id = leaf.ids[i];
    const VtqrTriangleAccel& tri = accel[id];
    if (tri.axes == 0) continue;  // zero area: never hit
    TriangleCut<typename L::F> cut;
    const int inside = TestTriangle(tri, ray, &cut) & active;
    if (inside == 0) continue;
    const typename L::F t = cut.num / cut.den;
    const int take = inside & LaneBits((keep.Limit() > t) & (t > 0.0f));
    if (take == 0) continue;
    active = keep.Take(take, id, cut, t, active);
    if (active == 0) break;
  }
  return entered & ~active;
}

// Nearest hit: distance (in: the largest distance of interest), the two barycentric weights
// and the triangle number, per ray. A hit replaces the kept one only when strictly nearer, so
// of two triangles at the same distance the one tested first stays; no lane stops inside a
// leaf, since a later triangle of the list may still be nearer.
template <class L>
struct KeepNearest {
  using F = typename L::F;
  F dist, u, v;
  typename L::I index;
  int taken = 0;  // lanes that took a hit since the caller last cleared this

  F Limit() const { return dist; }
  [[gnu::always_inline]] int Take(int lanes, int32_t id, const TriangleCut<F>& cut, F t,
                                  int active) {
    const auto m = L::Mask(lanes);
    dist = Select(m, t, dist);
    u = Select(m, cut.beta / cut.den, u);
    v = Select(m, cut.gamma / cut.den, v);
    index = Select(m, typename L::I(id), index);
    taken |= lanes;
    return active;
  }
  // After a leaf: lanes whose stretch of the ray ends at or beyond their nearest hit.
  int Finished(F tfar) const { return LaneBits(tfar >= dist); }
};

// Any hit: per ray, whether some triangle is hit at 0 < t < end. A lane stops at its first hit.
template <class L>
struct KeepAny {
  using F = typename L::F;
  F end;
  int occluded = 0;

  F Limit() const { return end; }
  [[gnu::always_inline]] int Take(int lanes, int32_t, const TriangleCut<F>&, F, int active) {
    occluded |= lanes;
    return active & ~lanes;
  }
  int Finished(F tfar) const { return LaneBits(tfar >= end); }
};

}  // namespace rays
VTQR_PATH_END

#endif  // VTQR_RAYCAST_HIT_KEEP_H_
