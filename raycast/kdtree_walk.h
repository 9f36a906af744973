// The front-to-back KD-tree walk shared by every intersection function, for one ray or for the
// four rays of a 2x2 tile.
//
// One ray: clip [0, limit] to the object's box (slabs), widen the far end by 1e-4, then walk
// from the root. At an interior node the split's distance along the ray is
// tsplit = (split - origin[axis]) * inverse[axis]; the near child is the one the direction's
// sign flag names. If the stretch starts beyond the plane (tnear - tsplit > 1e-5) only the far
// child is visited; otherwise the near child is, and when the plane is not beyond the stretch
// (tsplit - tfar <= 1e-5, or NaN) the far child is deferred on a stack with the current tfar,
// which is cut to max(tnear, min(tsplit, tfar)). After a leaf the walk ends when nothing is
// deferred or when the stretch reaches the ray's kept hit (tfar >= limit); otherwise it resumes
// the last deferred child with tnear = the finished stretch's tfar.
//
// Four rays: why the packet gives every ray the bits of its own walk.
// A ray's result depends only on the sequence of (node, tnear, tfar) its walk goes through and
// on the triangles it tests at the leaves of that sequence, in order. The packet walk keeps
// tnear, tfar and the hit state per lane, and a set of active lanes for the node it is at:
//  1. It runs only for lanes whose direction sign flags agree on all three axes, so every lane
//     names the same near child. (A tile whose lanes disagree is walked once per group of
//     agreeing lanes; the groups do not share any state.)
//  2. At an interior node each active lane makes its own decision, with its own tnear and
//     tfar: far only, near only, or near with the far child deferred. The packet visits the
//     near child with the lanes that chose it, after pushing one entry that records, for the
//     far child, the lanes that deferred it (with their tfar) and the lanes that go there
//     alone. A lane's registers change only while it is active, so a lane that waits keeps the
//     values its own walk has at that point.
//  3. Entries are popped last in, first out. For any lane, the entries naming it lie in the
//     stack in the order its own stack would hold them, so it resumes its deferred children in
//     its own order; entries of other lanes popped in between leave its registers alone. A
//     lane that was sent to the far child alone resumes with its tnear and tfar untouched, as
//     its own walk, which went there directly, would have them; a lane that deferred the child
//     resumes with tnear = its tfar at its last leaf and tfar = the value it pushed.
//     A lane that is active has no such far-only entry pending: it became inactive when the
//     entry was pushed and stays so until it is popped.
//  4. At a leaf the active lanes test the leaf's triangles, in list order, with the same
//     operations as one ray (the lane policies guarantee per-lane IEEE results); a lane that
//     looks for any hit stops at its first, inside the leaf, as one ray does. After the leaf
//     each active lane applies its own termination rule; a finished lane is left out of every
//     later entry.
// By induction over the packet's steps, every lane is active at exactly the nodes of its own
// walk, in the same order and with the same tnear and tfar, and it tests the same triangles in
// the same order against the same kept hit: hits, distances, weights and triangle numbers are
// bit for bit those of the one-ray walk. Lanes whose decisions diverge cost only speed.
//
// Trees come from this library's builder and are trusted: nodes are read through
// accel/kdtree_node.h without checks, and the stack holds kWalkStackSize entries, more than the
// depth limit (a walk defers at most one child per level of its current path).
#ifndef VTQR_RAYCAST_KDTREE_WALK_H_
#define VTQR_RAYCAST_KDTREE_WALK_H_

#include <cstdint>

#include "accel/kdtree_node.h"
#include "frame/code_path.h"
#include "raycast/hit_keep.h"
#include "raycast/triangle_test.h"
#include "raycast/walk_lanes.h"
#include "vtqr/raycast.h"

VTQR_PATH_BEGIN
namespace rays {

// A direction component of magnitude at most this (the float epsilon) does not clip the ray
// against the box's slab; the walk treats the ray as parallel to that axis' planes, with this
// inverse and the lower child as its near side.
inline constexpr float kFlatComponent = 1.1920929e-7f;
inline constexpr float kFlatInverse = 838860800.0f;  // 0x4E480000
inline constexpr float kFloatMax = 3.4028234663852886e38f;
// Widening of each ray's far end after clipping, and the tolerance of the near/far decisions.
inline constexpr float kStretchMargin = 0.0001f;
inline constexpr float kSplitTolerance = 0.00001f;

// A ray, or four, ready to walk: origin and direction for the triangle test, per-axis inverse
// direction, the stretch [tnear, tfar] and the sign flags the current walk follows (1: the
// upper child is near). Entries [3] of the per-axis arrays are padding, never used by a tree
// of the builder's.
template <class L>
struct WalkRay : RayAxes<L> {
  typename L::F inv[4];
  typename L::F tnear, tfar;
  int signs;  // bit a: the sign flag of axis a
};

// Fills inverses and stretches for lanes `live`, clipping [0, limit] to `box` unless it is
// null. Returns sign-flag lane bits per axis in signs[] and the lanes that enter the walk:
// those with limit > 0 (no hit can be nearer than a non-positive or NaN limit) and a finite
// origin and direction whose stretch the box test keeps.
template <class L>
[[gnu::always_inline]] inline int PrepareRays(WalkRay<L>& ray, const Vtq32f* box,
                                              typename L::F limit, int live, int signs[3]) {
  using F = typename L::F;
  live &= LaneBits(limit > 0.0f);
  // A NaN or infinite component in the origin or the direction makes every candidate's t NaN,
  // infinite or zero, so such a ray hits nothing. Leaving it out is invisible in the results
  // and spares a walk whose NaN stretch would visit every node of the tree.
  for (int axis = 0; axis < 3; ++axis) {
    live &= LaneBits(Abs(ray.dir[axis]) <= kFloatMax);
    live &= LaneBits(Abs(ray.org[axis]) <= kFloatMax);
  }
  ray.tnear = 0.0f;
  ray.tfar = limit;
  int missed = 0;
  for (int axis = 0; axis < 3; ++axis) {
    const F d = ray.dir[axis];
    const auto flat = Abs(d) <= kFlatComponent;
    signs[axis] = LaneBits(d < -kFlatComponent);
    ray.inv[axis] = Select(flat, F(kFlatInverse), 1.0f / d);
    if (box == nullptr) continue;
    const F t0 = (box[axis] - ray.org[axis]) / d;
    const F t1 = (box[axis + 3] - ray.org[axis]) / d;
    ray.tnear = Select(flat, ray.tnear, Max(ray.tnear, Min(t0, t1)));
    ray.tfar = Select(flat, ray.tfar, Min(ray.tfar, Max(t0, t1)));
    missed |= LaneBits(ray.tnear > ray.tfar) & ~LaneBits(flat);
  }
  ray.tfar = ray.tfar + kStretchMargin;
  ray.inv[3] = 0.0f;
  return live & ~missed;
}

// One ray: its three axes side by side in the lanes of one register (the fourth holds the
// padding entries, 0), so that the nine divisions of the box test take three instructions.
// Every lane computes what the scalar code computes for its axis; the stretch is then narrowed
// axis by axis, in the same order and with the same Min and Max, as for four rays.
template <>
[[gnu::always_inline]] inline int PrepareRays<OneLane>(WalkRay<OneLane>& ray, const Vtq32f* box,
                                                       float limit, int live, int signs[3]) {
  // Gathered from the scalars rather than loaded as a vector: the scalars were just stored one
  // by one, and a wide load of narrow stores would wait for them to reach the cache.
  const F4 d(_mm_setr_ps(ray.dir[0], ray.dir[1], ray.dir[2], 0.0f));
  const F4 o(_mm_setr_ps(ray.org[0], ray.org[1], ray.org[2], 0.0f));
  // Stored back whole, for the triangle tests that read them four lanes at a time.
  _mm_storeu_ps(ray.dir, d.v);
  _mm_storeu_ps(ray.org, o.v);
  live &= LaneBits(limit > 0.0f);
  if (LaneBits((Abs(d) <= kFloatMax) & (Abs(o) <= kFloatMax)) != 0xF) live = 0;
  const M4 flatLanes = Abs(d) <= kFlatComponent;
  const int flat = LaneBits(flatLanes);
  const int negative = LaneBits(d < -kFlatComponent);
  _mm_storeu_ps(ray.inv, Select(flatLanes, F4(kFlatInverse), 1.0f / d).v);
  ray.inv[3] = 0.0f;
  for (int axis = 0; axis < 3; ++axis) signs[axis] = (negative >> axis) & 1;
  ray.tnear = 0.0f;
  ray.tfar = limit;
  int missed = 0;
  if (box != nullptr) {
    // The box's maxima are words 3 to 5: loaded from word 2 and moved down a lane, so that
    // nothing past the six words is read.
    const __m128 fromTwo = _mm_loadu_ps(box + 2);
    const F4 lo(_mm_loadu_ps(box));
    const F4 hi(_mm_castsi128_ps(_mm_srli_si128(_mm_castps_si128(fromTwo), 4)));
    const F4 t0 = (lo - o) / d;
    const F4 t1 = (hi - o) / d;
    alignas(16) float enter[4], leave[4];
    _mm_store_ps(enter, Min(t0, t1).v);
    _mm_store_ps(leave, Max(t0, t1).v);
    for (int axis = 0; axis < 3; ++axis) {
      if ((flat >> axis) & 1) continue;
      ray.tnear = Max(ray.tnear, enter[axis]);
      ray.tfar = Min(ray.tfar, leave[axis]);
      missed |= LaneBits(ray.tnear > ray.tfar);
    }
  }
  ray.tfar = ray.tfar + kStretchMargin;
  return live & ~missed;
}

// A deferred far child. One ray needs only its tfar; a packet also records which lanes deferred
// the child and which were sent there alone.
template <class L>
struct Deferred {
  typename L::F tfar;
  const VtqrKDTreeNode* node;
  int deferred;
  int farOnly;
};
template <>
struct Deferred<OneLane> {
  float tfar;
  const VtqrKDTreeNode* node;
};

// Walks the tree for lanes `lanes`, whose sign flags ray.signs all share.
template <class L, class Keep>
[[gnu::always_inline]] inline void Walk(const VtqrKDTreeNode* root, const VtqrTriangleAccel* accel,
                                        WalkRay<L>& ray, int lanes, Keep& keep) {
  constexpr bool kOne = L::kWidth == 1;
  Deferred<L> stack[kdnode::kWalkStackSize];
  int top = 0;
  const VtqrKDTreeNode* node = root;
  int active = kOne ? 1 : lanes;  // a constant for one ray
  [[maybe_unused]] auto activeLanes = L::Mask(active);
  int done = 0;
  for (;;) {
    // Down to a leaf.
    while (!kdnode::IsLeaf(*node)) {
      const int axis = kdnode::SplitAxis(*node);
      const auto tsplit = (kdnode::SplitPosition(*node) - ray.org[axis]) * ray.inv[axis];
      // Near and far as a choice between the two nodes of the pair rather than as arithmetic on
      // the sign flag: the compiler makes the choice a branch, well predicted, which takes the
      // flag off the path from one node's load to the next (measured 3% faster for one ray).
      const VtqrKDTreeNode* lower = kdnode::LowerChild(node);
      const bool upperNear = ((ray.signs >> axis) & 1) != 0;
      const VtqrKDTreeNode* nearChild = upperNear ? lower + 1 : lower;
      const VtqrKDTreeNode* farChild = upperNear ? lower : lower + 1;
      if constexpr (kOne) {
        if (ray.tnear - tsplit > kSplitTolerance) {
          node = farChild;
          continue;
        }
        if (!(tsplit - ray.tfar > kSplitTolerance)) {
          stack[top++] = {ray.tfar, farChild};
          ray.tfar = Max(ray.tnear, Min(tsplit, ray.tfar));
        }
        node = nearChild;
      } else {
        // The decisions as lane masks (for the registers) and as bits (for the control flow).
        const auto farOnlyLanes = (ray.tnear - tsplit > kSplitTolerance) & activeLanes;
        const int farOnly = LaneBits(farOnlyLanes);
        const int wantsNear = active & ~farOnly;
        if (wantsNear == 0) {
          node = farChild;
          continue;
        }
        const auto nearLanes = AndNot(activeLanes, farOnlyLanes);
        const auto deferLanes = AndNot(nearLanes, tsplit - ray.tfar > kSplitTolerance);
        const int defer = LaneBits(deferLanes);
        if ((defer | farOnly) != 0) {
          stack[top++] = {ray.tfar, farChild, defer, farOnly};
          ray.tfar = Select(deferLanes, Max(ray.tnear, Min(tsplit, ray.tfar)), ray.tfar);
        }
        active = wantsNear;
        activeLanes = nearLanes;
        node = nearChild;
      }
    }

    // The leaf's triangles, then the termination rule of the lanes that were here.
    // Most leaves a walk reaches are empty (the builder cuts empty space off): they only end
    // the stretch. One ray gains from that path being laid out as the likely one (6% on a
    // scanned mesh); four rays, whose leaves are more often shared non-empty ones, do not.
    int hit = 0;
    const bool empty = kdnode::KindOfLeaf(*node) == kdnode::LeafKind::kEmpty;
    if (kOne ? __builtin_expect(!empty, 0) : !empty) {
      int32_t scratch[3];
      hit = TestTriangles(kdnode::ReadLeaf(node, scratch), accel, ray, active, keep);
    }
    done |= active & (hit | keep.Finished(ray.tfar));
    if constexpr (kOne) {
      if (done != 0 || top == 0) return;
      --top;
      ray.tnear = ray.tfar;
      ray.tfar = stack[top].tfar;
      node = stack[top].node;
    } else {
      if (done == lanes) return;
      // Resume the last entry that names an unfinished lane.
      for (;;) {
        if (top == 0) return;
        const Deferred<L>& entry = stack[--top];
        const int resumed = entry.deferred & ~done;
        active = (resumed | entry.farOnly) & ~done;
        if (active == 0) continue;
        activeLanes = L::Mask(active);
        const auto m = L::Mask(resumed);
        ray.tnear = Select(m, ray.tfar, ray.tnear);
        ray.tfar = Select(m, entry.tfar, ray.tfar);
        node = entry.node;
        break;
      }
    }
  }
}

// Casts lanes `live` of `ray` against one object: prepares them (clipped to the object's box
// unless it has none) and walks each group of lanes whose sign flags agree.
template <class L, class Keep>
[[gnu::always_inline]] inline void CastRays(const VtqrIntersectContext& object, WalkRay<L>& ray,
                                            int live, Keep& keep) {
  int signs[3];
  live = PrepareRays(ray, object.pBound, keep.Limit(), live, signs);
  while (live != 0) {
    // The group of the lowest live lane: every live lane with its three sign flags.
    const int first = live & -live;
    int group = live;
    ray.signs = 0;
    for (int axis = 0; axis < 3; ++axis) {
      const bool negative = (signs[axis] & first) != 0;
      group &= negative ? signs[axis] : ~signs[axis];
      ray.signs |= negative ? 1 << axis : 0;
    }
    Walk(object.pRootNode, object.pAccel, ray, group, keep);
    live &= ~group;
  }
}

}  // namespace rays
VTQR_PATH_END

#endif  // VTQR_RAYCAST_KDTREE_WALK_H_
