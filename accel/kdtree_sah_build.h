// The surface-area-heuristic build behind vtqrKDTreeBuildAlloc.
#ifndef VTQR_ACCEL_KDTREE_SAH_BUILD_H_
#define VTQR_ACCEL_KDTREE_SAH_BUILD_H_

#include <cstdint>

#include "frame/code_path.h"
#include "vtqr/accel.h"

VTQR_PATH_BEGIN
namespace kdtree {

// Builds the tree once the arguments have passed their checks. Returns vtqStsErrNoMem when the
// mesh needs more than `budgetBytes` up front, vtqStsErrMemBudget when the build runs out of
// budget or memory on the way; *ppTree and *pTreeSize are written only on success.
VtqStatus BuildSah(const Vtq32f* pVert, const Vtq32s* pTriIndex, int vertCount, int triCount,
                   uint32_t maxDepth, float factor, uint32_t budgetBytes, VtqrKDTreeNode** ppTree,
                   int* pTreeSize);

}  // namespace kdtree
VTQR_PATH_END

#endif  // VTQR_ACCEL_KDTREE_SAH_BUILD_H_
