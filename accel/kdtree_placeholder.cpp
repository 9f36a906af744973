// Placeholders until the kernels land; each returns vtqStsErrNullPtr.
#include "frame/code_path.h"
#include "frame/kernels.h"

VTQR_PATH_BEGIN
VtqStatus KDTreeBuildAlloc(VtqrKDTreeNode** ppTree, const Vtq32f* pVert, const Vtq32s* pTriIndex, int vertCount, int triCount, int* pTreeSize, const VtqrKDTreeBuildParams* pParams) { return vtqStsErrNullPtr; }
VtqStatus KDTreeFree(VtqrKDTreeNode* pTree) { return vtqStsErrNullPtr; }
VTQR_PATH_END
