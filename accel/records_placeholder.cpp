// Placeholders until the kernels land; each returns vtqStsErrNullPtr.
#include "frame/code_path.h"
#include "frame/kernels.h"

VTQR_PATH_BEGIN
VtqStatus SetBoundBox_32f(const Vtq32f* pVert, int vertCount, Vtq32f pBound[6]) { return vtqStsErrNullPtr; }
VtqStatus TriangleAccelGetSize(Vtq32s* pSize) { return vtqStsErrNullPtr; }
VtqStatus TriangleAccelInit(VtqrTriangleAccel* pAccel, const Vtq32f* pVert, const Vtq32s* pTriIndex, int triCount) { return vtqStsErrNullPtr; }
VTQR_PATH_END
