// The SAH build's main loop: pending nodes on a last-in first-out stack, each either split by
// the cheapest plane the search finds or turned into a leaf.
#include "accel/kdtree_sah_build.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "accel/kdtree_budget.h"
#include "accel/kdtree_events.h"
#include "accel/kdtree_layout.h"
#include "accel/kdtree_node.h"
#include "accel/kdtree_sah.h"

VTQR_PATH_BEGIN
namespace kdtree {
namespace {

// A growable array of plain values that reports allocation failure instead of throwing.
template <class T>
class Scratch {
 public:
  Scratch() = default;
  ~Scratch() { std::free(data_); }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  bool Reserve(size_t count) {
    if (count <= capacity_) return true;
    size_t grown = std::max(count, capacity_ + capacity_ / 2);
    void* moved = std::realloc(data_, grown * sizeof(T));
    if (moved == nullptr) return false;
    data_ = static_cast<T*>(moved);
    capacity_ = grown;
    return true;
  }
  T* data() { return data_; }
  T& operator[](size_t i) { return data_[i]; }

 private:
  T* data_ = nullptr;
  size_t capacity_ = 0;
};

// A node waiting on the stack. Its six event lists sit at `offset` in the event store, on top of
// those of every node pushed before it.
struct Pending {
  WorkItem* item;
  size_t offset;
};

// Each split pops its node and pushes both children, so the stack holds at most one pending
// sibling per level above the deepest node plus that node: the same bound as a walk's stack.
constexpr int kStackSize = kdnode::kWalkStackSize;
static_assert(kStackSize >= static_cast<int>(kdnode::kMaxDepth) + 1);

// Marks a straddler of a clipped node: it takes no side of the parent's lists, since its events
// in the children come from its clipped bounds.
constexpr uint8_t kSideClipped = 4;
static_assert((kSideClipped & kSideBoth) == 0);

// The event store starts at this many times the root's lists: the lists of pending nodes pile
// up on top of them, to about twice the root's for a balanced tree.
constexpr size_t kRootStoreFactor = 2;

// Triangles straddling the plane of a node this large are clipped to each child's cell, and
// their events in the children come from the clipped polygon's bounds instead of the parent's.
// Smaller nodes hand their bounds down unchanged, so their splits follow the fixed rules of the
// exact sweep over the node's own starts and ends.
//
// Clipping is kept because it pays off where a tree is used, in every ray's walk, while the
// build is paid once. Measured with the build benchmark (one thread; 4096 random rays through
// the mesh bounds, counted by a plain front-to-back walk), clipping against not clipping:
//   mesh         build time   SAH cost   triangle tests/ray   nodes/ray   tree size
//   spheres      +26..+30%    -4..-5%    -4..-6%              -2..-3%     +1..-1%
//   bunny        +19%         -7%        -6%                  -4%         -8%
//   igea         +27%         -7%        -9%                  -4%         -7%
//   igea-x4      +25%         -7%        -10%                 -3%         -7%
// Acceptance rule: keep clipping when it lowers both the SAH cost and the triangle tests per ray
// on every mesh, and the large scan's build stays within twice a high-quality BVH build of the
// same mesh (it went from 1.37 to 1.56 times). Building with VTQR_KDTREE_CLIP_STRADDLERS=0
// turns it off, to repeat the comparison.
#ifndef VTQR_KDTREE_CLIP_STRADDLERS
#define VTQR_KDTREE_CLIP_STRADDLERS 1
#endif
constexpr int kClipMinTriangles = VTQR_KDTREE_CLIP_STRADDLERS ? 76 : INT32_MAX;

class SahBuilder {
 public:
  SahBuilder(Budget* budget, uint32_t maxDepth, float factor)
      : arena_(budget), maxDepth_(static_cast<int>(maxDepth)) {
    // The scale is kept in single precision, as the factor is handed in.
    scale_ = static_cast<float>((10.0 - 9.0 * static_cast<double>(factor)) * 0.5057569742202759);
  }

  VtqStatus Run(const Vtq32f* pVert, const Vtq32s* pTriIndex, int vertCount, int triCount,
                VtqrKDTreeNode** ppTree, int* pTreeSize);

 private:
  bool PrepareTriangles(const Vtq32f* pVert, const Vtq32s* pTriIndex, int vertCount, int triCount,
                        WorkItem* root);
  VtqStatus Process(const Pending& node);
  VtqStatus MakeLeaf(const Pending& node);
  VtqStatus Split(const Pending& node, const AxisSplit& split, int axis);
  int ClipStraddlers(int straddlerCount, const Box& lowerCell, const Box& upperCell,
                     int* upperKept);
  Event* Lists(const Pending& node) { return &events_[node.offset]; }
  const Event* AxisLists(const Pending& node, int axis) {
    return AxisStarts(Lists(node), node.item->count, axis);
  }

  Arena arena_;
  int maxDepth_;
  float scale_;
  const Vtq32f* vert_ = nullptr;
  const Vtq32s* triIndex_ = nullptr;
  Scratch<Box> boxes_;
  Scratch<uint8_t> side_;
  Scratch<float> end_;                // a node's end keys on its split axis, by triangle
  Scratch<uint32_t> straddlers_;      // triangles of a large node crossing its plane
  Scratch<ClippedTriangle> clipped_;  // their bounds in the upper child, then the lower
  Scratch<Event> clippedEvents_;
  Scratch<Event> events_;
  Pending stack_[kStackSize];
  int stackSize_ = 0;
};

// Bounds of every usable triangle, and the root's triangle list. Triangles with a vertex number
// outside the vertex array or a coordinate that is not finite cannot be hit and are left out.
bool SahBuilder::PrepareTriangles(const Vtq32f* pVert, const Vtq32s* pTriIndex, int vertCount,
                                  int triCount, WorkItem* root) {
  Scratch<int32_t> usable;
  if (!boxes_.Reserve(std::max(triCount, 1)) || !side_.Reserve(std::max(triCount, 1)) ||
      !end_.Reserve(std::max(triCount, 1)) || !usable.Reserve(std::max(triCount, 1))) {
    return false;
  }
  vert_ = pVert;
  triIndex_ = pTriIndex;
  Box scene = {{INFINITY, INFINITY, INFINITY}, {-INFINITY, -INFINITY, -INFINITY}};
  int32_t* ids = usable.data();
  int count = 0;
  for (int t = 0; t < triCount; ++t) {
    const Vtq32s* corner = pTriIndex + 4 * size_t(t);
    if (corner[0] < 0 || corner[0] >= vertCount || corner[1] < 0 || corner[1] >= vertCount ||
        corner[2] < 0 || corner[2] >= vertCount) {
      continue;
    }
    Box box;
    bool finite = true;
    for (int axis = 0; axis < 3; ++axis) {
      float a = pVert[3 * size_t(corner[0]) + axis];
      float b = pVert[3 * size_t(corner[1]) + axis];
      float c = pVert[3 * size_t(corner[2]) + axis];
      // Adding +0 turns -0 into +0, so equal positions also have equal bits.
      box.lo[axis] = std::min(std::min(a, b), c) + 0.0f;
      box.hi[axis] = std::max(std::max(a, b), c) + 0.0f;
      finite = finite && std::isfinite(a) && std::isfinite(b) && std::isfinite(c);
    }
    if (!finite) continue;
    boxes_[t] = box;
    for (int axis = 0; axis < 3; ++axis) {
      scene.lo[axis] = std::min(scene.lo[axis], box.lo[axis]);
      scene.hi[axis] = std::max(scene.hi[axis], box.hi[axis]);
    }
    ids[count++] = t;
  }
  if (count == 0) scene = {{0, 0, 0}, {0, 0, 0}};
  *root = {};
  root->cell = scene;
  root->count = count;
  root->axis = kLeafAxis;
  // The root's event lists, plus room for the sort's scratch behind them.
  size_t listSize = NodeEvents(count);
  if (!events_.Reserve(kRootStoreFactor * listSize + size_t(count) + kSplitSpareEvents)) {
    return false;
  }
  BuildRootEvents(boxes_.data(), ids, count, events_.data(), events_.data() + listSize);
  stack_[stackSize_++] = {root, 0};
  return true;
}

VtqStatus SahBuilder::Run(const Vtq32f* pVert, const Vtq32s* pTriIndex, int vertCount, int triCount,
                          VtqrKDTreeNode** ppTree, int* pTreeSize) {
  auto* root = static_cast<WorkItem*>(arena_.Take(sizeof(WorkItem)));
  if (root == nullptr) return vtqStsErrMemBudget;
  if (!PrepareTriangles(pVert, pTriIndex, vertCount, triCount, root)) return vtqStsErrMemBudget;
  while (stackSize_ > 0) {
    VtqStatus status = Process(stack_[--stackSize_]);
    if (status != vtqStsOk) return status;
  }
  return LayoutTree(*root, ppTree, pTreeSize);
}

VtqStatus SahBuilder::Process(const Pending& node) {
  WorkItem& item = *node.item;
  int n = item.count;
  if (n == 0 || item.depth >= maxDepth_) return MakeLeaf(node);

  float extent[3];
  for (int axis = 0; axis < 3; ++axis) extent[axis] = item.cell.hi[axis] - item.cell.lo[axis];
  double dx = extent[0];
  double dy = extent[1];
  double dz = extent[2];
  // Keeping the node costs its triangle count times its half surface area.
  double leafCost = n * (dx * (dy + dz) + dy * dz);
  double bound = std::max(1e-5, static_cast<double>(scale_) * leafCost);

  AxisSplit best[3];
  for (int axis = 0; axis < 3; ++axis) {
    if (extent[axis] <= kThinExtent) {
      best[axis] = {leafCost, item.cell.lo[axis], 0, 0, true};
    } else {
      const Event* starts = AxisLists(node, axis);
      best[axis] = SearchAxisEvents(starts, starts + n, n, item.cell, axis, leafCost);
    }
  }
  // x wins a tie with y; z wins a tie with the cheapest.
  double cx = best[0].cost;
  double cy = best[1].cost;
  double cz = best[2].cost;
  int axis = 2;
  if (cx > cy) {
    axis = cy < cz ? 1 : 2;
  } else if (cx < cz) {
    axis = 0;
  }
  // Split only when the saving, weighted by the triangle count, beats the scaled leaf cost.
  if (!(n * (leafCost - best[axis].cost) > bound)) return MakeLeaf(node);
  return Split(node, best[axis], axis);
}

VtqStatus SahBuilder::MakeLeaf(const Pending& node) {
  WorkItem& item = *node.item;
  int n = item.count;
  item.axis = kLeafAxis;
  item.list = nullptr;
  if (n == 0) return vtqStsOk;
  auto* list = static_cast<int32_t*>(arena_.Take(sizeof(int32_t) * size_t(n)));
  if (list == nullptr) return vtqStsErrMemBudget;
  const Event* starts = Lists(node);
  for (int i = 0; i < n; ++i) list[i] = static_cast<int32_t>(starts[i].tri & ~kFlatBit);
  std::sort(list, list + n);
  item.list = list;
  return vtqStsOk;
}

VtqStatus SahBuilder::Split(const Pending& node, const AxisSplit& split, int axis) {
  WorkItem& item = *node.item;
  int n = item.count;
  float lo = item.cell.lo[axis];
  float hi = item.cell.hi[axis];
  float x = split.position;
  bool clip = n >= kClipMinTriangles;
  // Sort every triangle of the node to its side(s) of the plane, by its bounds in this node
  // (which clipping above may have made tighter than the triangle's own).
  const Event* axisStarts = AxisLists(node, axis);
  const Event* axisEnds = axisStarts + n;
  for (int i = 0; i < n; ++i) end_[axisEnds[i].tri & ~kFlatBit] = axisEnds[i].key;
  if (clip && !straddlers_.Reserve(size_t(n))) return vtqStsErrMemBudget;
  int below = 0;
  int above = 0;
  int straddlerCount = 0;
  for (int i = 0; i < n; ++i) {
    uint32_t tri = axisStarts[i].tri & ~kFlatBit;
    uint8_t side = Side(std::max(lo, axisStarts[i].key), std::min(hi, end_[tri]), x,
                        split.planarBelow);
    side_[tri] = side;
    // Counted as shifted bits rather than compared: this loop runs over every triangle of
    // every node.
    below += side & kSideBelow;
    above += (side & kSideAbove) >> 1;
    if (clip && side == kSideBoth) straddlers_[straddlerCount++] = tri;
  }

  auto* children = static_cast<WorkItem*>(arena_.Take(2 * sizeof(WorkItem)));
  if (children == nullptr) return vtqStsErrMemBudget;
  WorkItem& lower = children[0];
  WorkItem& upper = children[1];
  lower = {};
  lower.cell = item.cell;
  lower.cell.hi[axis] = x;
  lower.depth = item.depth + 1;
  lower.axis = kLeafAxis;
  upper = lower;
  upper.cell = item.cell;
  upper.cell.lo[axis] = x;
  item.axis = axis;
  item.split = x;
  item.children = children;

  // Straddlers leave the lists that are handed down and come back with events of their own.
  int upperClipped = 0;
  int lowerClipped = 0;
  if (straddlerCount > 0) {
    if (!clipped_.Reserve(2 * size_t(straddlerCount))) return vtqStsErrMemBudget;
    lowerClipped = ClipStraddlers(straddlerCount, lower.cell, upper.cell, &upperClipped);
    below -= straddlerCount;
    above -= straddlerCount;
  }
  lower.count = below + lowerClipped;
  upper.count = above + upperClipped;

  // Children are written behind the parent and then moved down over it; the upper child goes
  // first so that the lower one, pushed last, is on top of both stack and store.
  size_t parentEnd = node.offset + NodeEvents(n);
  size_t upperSize = NodeEvents(upper.count);
  size_t lowerSize = NodeEvents(lower.count);
  if (straddlerCount == 0) {
    if (!events_.Reserve(parentEnd + upperSize + lowerSize + kSplitSpareEvents)) {
      return vtqStsErrMemBudget;
    }
    SplitEventLists(Lists(node), n, side_.data(), &events_[parentEnd], above,
                    &events_[parentEnd + upperSize], below);
    std::memmove(&events_[node.offset], &events_[parentEnd],
                 sizeof(Event) * (upperSize + lowerSize));
  } else {
    // The lists of the triangles on one side only, then the children's merged lists behind
    // them: a linear merge with the clipped triangles' own sorted events.
    size_t passUpper = parentEnd;
    size_t passLower = passUpper + NodeEvents(above);
    size_t merged = passLower + NodeEvents(below) + kSplitSpareEvents;
    int clippedCount = upperClipped + lowerClipped;
    if (!events_.Reserve(merged + upperSize + lowerSize) ||
        !clippedEvents_.Reserve(NodeEvents(std::max(clippedCount, 1)))) {
      return vtqStsErrMemBudget;
    }
    SplitEventLists(Lists(node), n, side_.data(), &events_[passUpper], above, &events_[passLower],
                    below);
    Event* upperEvents = clippedEvents_.data();
    Event* lowerEvents = upperEvents + NodeEvents(upperClipped);
    ClippedEvents(clipped_.data(), upperClipped, upperEvents);
    ClippedEvents(clipped_.data() + upperClipped, lowerClipped, lowerEvents);
    MergeEventLists(&events_[passUpper], above, upperEvents, upperClipped, &events_[merged]);
    MergeEventLists(&events_[passLower], below, lowerEvents, lowerClipped,
                    &events_[merged + upperSize]);
    std::memmove(&events_[node.offset], &events_[merged], sizeof(Event) * (upperSize + lowerSize));
  }
  Pending upperPending{&upper, node.offset};
  Pending lowerPending{&lower, node.offset + upperSize};
  stack_[stackSize_++] = upperPending;
  stack_[stackSize_++] = lowerPending;
  return vtqStsOk;
}

// Clips each straddler to both child cells: its bounds in the upper child go to the front of
// clipped_, those in the lower child behind them, and a child that the triangle turns out to
// miss does not get it. Marks the straddlers so that the list split passes them over. Returns
// the lower child's count; *upperKept receives the upper's.
int SahBuilder::ClipStraddlers(int straddlerCount, const Box& lowerCell, const Box& upperCell,
                               int* upperKept) {
  int upperCount = 0;
  int lowerCount = 0;
  ClippedTriangle* upperOut = clipped_.data();
  ClippedTriangle* lowerOut = upperOut + straddlerCount;
  for (int s = 0; s < straddlerCount; ++s) {
    uint32_t tri = straddlers_[s];
    const Vtq32s* corner = triIndex_ + 4 * size_t(tri);
    const float* a = vert_ + 3 * size_t(corner[0]);
    const float* b = vert_ + 3 * size_t(corner[1]);
    const float* c = vert_ + 3 * size_t(corner[2]);
    const Box& box = boxes_[tri];
    uint32_t flatAxes = 0;
    for (int axis = 0; axis < 3; ++axis) flatAxes |= (box.lo[axis] == box.hi[axis]) << axis;
    ClippedTriangle* upper = &upperOut[upperCount];
    ClippedTriangle* lower = &lowerOut[lowerCount];
    if (ClipTriangle(a, b, c, box, upperCell, &upper->box)) {
      upper->tri = tri;
      upper->flatAxes = flatAxes;
      ++upperCount;
    }
    if (ClipTriangle(a, b, c, box, lowerCell, &lower->box)) {
      lower->tri = tri;
      lower->flatAxes = flatAxes;
      ++lowerCount;
    }
    side_[tri] = kSideClipped;
  }
  // Close the gap between the two runs.
  std::memmove(upperOut + upperCount, lowerOut, sizeof(ClippedTriangle) * size_t(lowerCount));
  *upperKept = upperCount;
  return lowerCount;
}

}  // namespace

VtqStatus BuildSah(const Vtq32f* pVert, const Vtq32s* pTriIndex, int vertCount, int triCount,
                   uint32_t maxDepth, float factor, uint32_t budgetBytes, VtqrKDTreeNode** ppTree,
                   int* pTreeSize) {
  // Nothing is allocated before the mesh is known to fit the budget at all.
  if (RequiredBytes(vertCount, triCount) > int64_t{budgetBytes}) return vtqStsErrNoMem;
  Budget budget(budgetBytes);
  if (!budget.Charge(kContextBytes)) return vtqStsErrMemBudget;
  for (int i = 0; i < kWorkArrayCount; ++i) {
    if (!budget.Charge(kWorkArrayBytesPerTriangle * triCount)) return vtqStsErrMemBudget;
  }
  if (!budget.Charge(PoolBytes(kTrianglePoolBytesPerTriangle * triCount)) ||
      !budget.Charge(PoolBytes(kVertexPoolBytesPerVertex * vertCount))) {
    return vtqStsErrMemBudget;
  }
  SahBuilder builder(&budget, maxDepth, factor);
  return builder.Run(pVert, pTriIndex, vertCount, triCount, ppTree, pTreeSize);
}

}  // namespace kdtree
VTQR_PATH_END
