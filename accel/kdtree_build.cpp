// vtqrKDTreeBuildAlloc and vtqrKDTreeFree: argument checks, the single-leaf tree, and the hand
// over to the SAH build.
#include <climits>

#include "accel/kdtree_node.h"
#include "accel/kdtree_sah_build.h"
#include "frame/code_path.h"
#include "frame/kernels.h"
#include "vtqcore.h"

VTQR_PATH_BEGIN
namespace {

// Budgets below this many MiB cannot hold the two pools' minimum size.
constexpr uint32_t kMinMemoryShifted = uint32_t{1} << 24;

// One leaf listing every triangle: the leaf node, a node's worth of zero padding, then the
// numbers. An empty mesh keeps the same form, since a count of 0 reads as an empty leaf.
VtqStatus BuildSimple(int triCount, VtqrKDTreeNode** ppTree, int* pTreeSize) {
  constexpr int64_t kListOffset = 2 * sizeof(VtqrKDTreeNode);
  int64_t bytes = kListOffset + 4 * int64_t{triCount};
  // The size is reported in 32 bits.
  if (bytes > INT_MAX) return vtqStsErrNoMem;
  size_t units = static_cast<size_t>(bytes >> 3) + 1;
  auto* leaf = static_cast<VtqrKDTreeNode*>(vtqMalloc(units * 8));
  if (leaf == nullptr) return vtqStsErrNoMem;
  leaf[0] = kdnode::ListLeaf(kListOffset, triCount);
  leaf[1] = {0, 0};
  auto* list = reinterpret_cast<int32_t*>(reinterpret_cast<char*>(leaf) + kListOffset);
  for (int i = 0; i < triCount; ++i) list[i] = i;
  *ppTree = leaf;
  *pTreeSize = static_cast<int>(bytes);
  return vtqStsOk;
}

}  // namespace

VtqStatus KDTreeBuildAlloc(VtqrKDTreeNode** ppTree, const Vtq32f* pVert, const Vtq32s* pTriIndex,
                           int vertCount, int triCount, int* pTreeSize,
                           const VtqrKDTreeBuildParams* pParams) {
  if (ppTree == nullptr || pVert == nullptr || pTriIndex == nullptr || pTreeSize == nullptr) {
    return vtqStsErrNullPtr;
  }
  if (vertCount < 0 || triCount < 0) return vtqStsErrSize;
  if (pParams == nullptr) return vtqStsErrNullPtr;
  bool sah = pParams->algorithm == KDTreeAlgSAH;
  if (!sah && pParams->algorithm != KDTreeAlgSimple) return vtqStsErrBadArg;
  if (pParams->maxDepth > kdnode::kMaxDepth) return vtqStsErrOutOfRange;
  if (!sah) return BuildSimple(triCount, ppTree, pTreeSize);

  // Written so that a NaN factor is out of range too.
  float factor = pParams->factor;
  if (!(factor >= 0.0f && factor <= 1.0f)) return vtqStsErrOutOfRange;
  // Both the minimum test and the budget are 32-bit shifts: budgets of 4096 MiB and more wrap.
  uint32_t memoryMB = pParams->memoryMB;
  if ((memoryMB << 19) < kMinMemoryShifted) return vtqStsErrNoMem;
  uint32_t budgetBytes = memoryMB << 20;
  return kdtree::BuildSah(pVert, pTriIndex, vertCount, triCount, pParams->maxDepth, factor,
                          budgetBytes, ppTree, pTreeSize);
}

VtqStatus KDTreeFree(VtqrKDTreeNode* pTree) {
  vtqFree(pTree);
  return vtqStsOk;
}

VTQR_PATH_END
