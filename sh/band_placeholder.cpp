// Placeholder until the kernel lands.
#include "frame/code_path.h"
#include "frame/kernels.h"

VTQR_PATH_BEGIN
VtqStatus SHBand_32f(const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ, int n, Vtq32f* pDst, Vtq32u band) { return vtqStsErrNullPtr; }
VTQR_PATH_END
