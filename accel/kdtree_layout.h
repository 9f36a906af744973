// The SAH build's node records and their layout into the final tree block.
#ifndef VTQR_ACCEL_KDTREE_LAYOUT_H_
#define VTQR_ACCEL_KDTREE_LAYOUT_H_

#include <cstdint>

#include "accel/kdtree_budget.h"
#include "accel/kdtree_sah.h"
#include "frame/code_path.h"
#include "vtqr/accel.h"

VTQR_PATH_BEGIN
namespace kdtree {

inline constexpr int32_t kLeafAxis = -1;

// One node while the tree is being built (a work item from the arena). Children come in
// pairs, lower child first.
struct WorkItem {
  Box cell;
  int32_t depth;
  int32_t count;  // leaf: triangles in `list`
  int32_t axis;   // split axis, or kLeafAxis
  float split;
  union {
    WorkItem* children;
    int32_t* list;  // ascending triangle numbers
  };
};
static_assert(sizeof(WorkItem) == kWorkItemBytes);

// Writes the tree under `root` into one block from vtqMalloc: nodes depth first with each
// child pair adjacent, then the out-of-line leaf lists. Returns vtqStsErrMemBudget when the
// block cannot be allocated or would outgrow a 32-bit size.
VtqStatus LayoutTree(const WorkItem& root, VtqrKDTreeNode** ppTree, int* pTreeSize);

}  // namespace kdtree
VTQR_PATH_END

#endif  // VTQR_ACCEL_KDTREE_LAYOUT_H_
