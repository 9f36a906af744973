// The SAH build's main loop: pending nodes on a last-in first-out stack, each either split by
// the cheapest plane the search finds or turned into a leaf.
#include "accel/kdtree_sah_build.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "accel/kdtree_budget.h"
#include "accel/kdtree_events.h"
#include "accel/kdtree_layout.h"
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

// Deepest tree allowed plus the sibling each level may leave pending.
constexpr int kStackSize = 64;

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
  bool PrepareTriangles(const Vtq32f* pVert, const Vtq32s* pTriIndex, int vertCount,
                        int triCount, WorkItem* root);
  VtqStatus Process(const Pending& node);
  VtqStatus MakeLeaf(const Pending& node);
  VtqStatus Split(const Pending& node, const AxisSplit& split, int axis);
  Event* Lists(const Pending& node) { return &events_[node.offset]; }

  Arena arena_;
  int maxDepth_;
  float scale_;
  Scratch<Box> boxes_;
  Scratch<uint8_t> side_;
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
      !usable.Reserve(std::max(triCount, 1))) {
    return false;
  }
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
  // The root's event lists, plus room for the sort's scratch behind them. The store grows from
  // there as the lists of pending nodes pile up (about twice the root's for a balanced tree).
  size_t listSize = 6 * size_t(count);
  if (!events_.Reserve(2 * listSize + size_t(count) + 1)) return false;
  BuildRootEvents(boxes_.data(), ids, count, events_.data(), events_.data() + listSize);
  stack_[stackSize_++] = {root, 0};
  return true;
}

VtqStatus SahBuilder::Run(const Vtq32f* pVert, const Vtq32s* pTriIndex, int vertCount,
                          int triCount, VtqrKDTreeNode** ppTree, int* pTreeSize) {
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
      const Event* lists = Lists(node) + 2 * axis * size_t(n);
      best[axis] = SearchAxisEvents(lists, lists + n, n, item.cell, axis, leafCost);
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
  // Sort every triangle of the node to its side(s) of the plane.
  int below = 0;
  int above = 0;
  auto classify = [&](uint32_t tri, float start) {
    float end = std::min(hi, boxes_[tri].hi[axis]);
    int side = Side(std::max(lo, start), end, x, split.planarBelow);
    side_[tri] = static_cast<uint8_t>(side);
    below += side & 1;
    above += side >> 1;
  };
  const Event* axisStarts = Lists(node) + 2 * axis * size_t(n);
  for (int i = 0; i < n; ++i) classify(axisStarts[i].tri & ~kFlatBit, axisStarts[i].key);

  auto* children = static_cast<WorkItem*>(arena_.Take(2 * sizeof(WorkItem)));
  if (children == nullptr) return vtqStsErrMemBudget;
  WorkItem& lower = children[0];
  WorkItem& upper = children[1];
  lower = {};
  lower.cell = item.cell;
  lower.cell.hi[axis] = x;
  lower.depth = item.depth + 1;
  lower.count = below;
  lower.axis = kLeafAxis;
  upper = lower;
  upper.cell = item.cell;
  upper.cell.lo[axis] = x;
  upper.count = above;
  item.axis = axis;
  item.split = x;
  item.children = children;

  // Children are written behind the parent and then moved down over it; the upper child goes
  // first so that the lower one, pushed last, is on top of both stack and store.
  size_t parentEnd = node.offset + 6 * size_t(n);
  size_t upperSize = 6 * size_t(above);
  size_t lowerSize = 6 * size_t(below);
  // One spare event for the list split's last stray store.
  if (!events_.Reserve(parentEnd + upperSize + lowerSize + 1)) return vtqStsErrMemBudget;
  SplitEventLists(Lists(node), n, side_.data(), &events_[parentEnd], above,
                  &events_[parentEnd + upperSize], below);
  std::memmove(&events_[node.offset], &events_[parentEnd],
               sizeof(Event) * (upperSize + lowerSize));
  Pending upperPending{&upper, node.offset};
  Pending lowerPending{&lower, node.offset + upperSize};
  stack_[stackSize_++] = upperPending;
  stack_[stackSize_++] = lowerPending;
  return vtqStsOk;
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
    if (!budget.Charge(4 * int64_t{triCount})) return vtqStsErrMemBudget;
  }
  if (!budget.Charge(PoolBytes(36 * int64_t{triCount})) ||
      !budget.Charge(PoolBytes(48 * int64_t{vertCount}))) {
    return vtqStsErrMemBudget;
  }
  SahBuilder builder(&budget, maxDepth, factor);
  return builder.Run(pVert, pTriIndex, vertCount, triCount, ppTree, pTreeSize);
}

}  // namespace kdtree
VTQR_PATH_END
