// Placeholders until the kernels land; each returns vtqStsErrNullPtr.
#include "frame/code_path.h"
#include "frame/kernels.h"

VTQR_PATH_BEGIN
VtqStatus SHGetSize_32f(Vtq32u order, int method, Vtq32u* pSize) { return vtqStsErrNullPtr; }
VtqStatus SHInit_32f(VtqrSHState* pState, Vtq32u order, int method) { return vtqStsErrNullPtr; }
VtqStatus SHTFwd_32f_C1I(const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ, const Vtq32f* pSrc, int n, Vtq32f* pSrcDst, Vtq32u order, const VtqrSHState* pState) { return vtqStsErrNullPtr; }
VtqStatus SHTFwd_32f_C3P3I(const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ, const Vtq32f* pSrc, int n, Vtq32f* const pSrcDst[3], Vtq32u order, const VtqrSHState* pState) { return vtqStsErrNullPtr; }
VtqStatus SHTFwd_32f_P3I(const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ, const Vtq32f* const pSrc[3], int n, Vtq32f* const pSrcDst[3], Vtq32u order, const VtqrSHState* pState) { return vtqStsErrNullPtr; }
VtqStatus SHTInv_32f_C1(const Vtq32f* pSrc, Vtq32u order, const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ, Vtq32f* pDst, int n, const VtqrSHState* pState) { return vtqStsErrNullPtr; }
VtqStatus SHTInv_32f_P3(const Vtq32f* const pSrc[3], Vtq32u order, const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ, Vtq32f* const pDst[3], int n, const VtqrSHState* pState) { return vtqStsErrNullPtr; }
VtqStatus SHTInv_32f_P3C3(const Vtq32f* const pSrc[3], Vtq32u order, const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ, Vtq32f* pDst, int n, const VtqrSHState* pState) { return vtqStsErrNullPtr; }
VtqStatus SH_32f(const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ, int n, Vtq32f* pDst, Vtq32u order, const VtqrSHState* pState) { return vtqStsErrNullPtr; }
VTQR_PATH_END
