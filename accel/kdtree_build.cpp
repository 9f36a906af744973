// vtqrKDTreeBuildAlloc and vtqrKDTreeFree: argument checks, the single-leaf tree, and the hand
// over to the SAH build.
#include <climits>
#include <cstring>

#include "accel/kdtree_sah_build.h"
#include "frame/code_path.h"
#include "frame/kernels.h"
#include "vtqcore.h"

VTQR_PATH_BEGIN
namespace {

constexpr uint32_t kMaxDepthLimit = 50;
// Budgets below this many MiB cannot hold the two pools' minimum size.
constexpr uint32_t kMinMemoryShifted = uint32_t{1} << 24;

// One leaf listing every triangle: the leaf node, eight bytes of padding, then the numbers.
VtqStatus BuildSimple(int triCount, VtqrKDTreeNode** ppTree, int* pTreeSize) {
  int64_t bytes = 4 * int64_t{triCount} + 16;
  // The size is reported in 32 bits.
  if (bytes > INT_MAX) return vtqStsErrNoMem;
  size_t units = static_cast<size_t>(bytes >> 3) + 1;
  auto* block = static_cast<int32_t*>(vtqMalloc(units * 8));
  if (block == nullptr) return vtqStsErrNoMem;
  block[0] = -16;  // the list starts 16 bytes past the node
  block[1] = triCount;
  block[2] = 0;
  block[3] = 0;
  for (int i = 0; i < triCount; ++i) block[4 + i] = i;
  *ppTree = reinterpret_cast<VtqrKDTreeNode*>(block);
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
  if (pParams->maxDepth > kMaxDepthLimit) return vtqStsErrOutOfRange;
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
