// Dot product of two direction planes under a mask.
#include "frame/code_path.h"
#include "frame/kernels.h"
#include "simd/lanes.h"
#include "simd/schemes.h"
#include "simd/select.h"
#include "simd/vec3.h"

VTQR_PATH_BEGIN

using namespace simd;

// dst = src1 . src2 for live rays, 0 for dead ones.
VtqStatus Dot_32f_P3C1M(const Vtq32f* const pSrc1[3], const Vtq32f* const pSrc2[3],
                        const Vtq32s* pMask, Vtq32f* pDst, int len) {
  if (pSrc1 == nullptr || pSrc2 == nullptr || pMask == nullptr || pDst == nullptr) {
    return vtqStsErrNullPtr;
  }
  if (len < 1) return vtqStsOk;

  Planes<const Vtq32f> a(pSrc1), b(pSrc2);
  AlignedFoursOrSingle(len, Touches(a, b, pMask, pDst), [&](auto lanes, int i) {
    using Lanes = decltype(lanes);
    __m128 dead = DeadLanes(Lanes::LoadMask(pMask + i));
    __m128 d = Dot(Load3<Lanes>(a, i), Load3<Lanes>(b, i));
    Lanes::Store(pDst + i, LiveOrZero(dead, d));
  });
  return vtqStsOk;
}

VTQR_PATH_END
