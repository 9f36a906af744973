// Dot product of two direction planes under a mask.
#include "frame/code_path.h"
#include "frame/kernels.h"
#include "raycast/shade_simd.h"

VTQR_PATH_BEGIN
namespace {

using namespace shade;

// dst = src1 . src2 for live rays, 0 for dead ones.
template <class Lanes>
void DotRays(Planes<const Vtq32f> a, Planes<const Vtq32f> b, const Vtq32s* mask, Vtq32f* dst,
             int len) {
  for (int i = 0; i < len; i += Lanes::kWidth) {
    __m128 dead = DeadLanes(Lanes::LoadMask(mask + i));
    __m128 d = Dot(Load3<Lanes>(a, i), Load3<Lanes>(b, i));
    Lanes::Store(dst + i, LiveOrZero(dead, d));
  }
}

}  // namespace

VtqStatus Dot_32f_P3C1M(const Vtq32f* const pSrc1[3], const Vtq32f* const pSrc2[3],
                        const Vtq32s* pMask, Vtq32f* pDst, int len) {
  if (pSrc1 == nullptr || pSrc2 == nullptr || pMask == nullptr || pDst == nullptr) {
    return vtqStsErrNullPtr;
  }
  if (len < 1) return vtqStsOk;

  Planes<const Vtq32f> src1(pSrc1), src2(pSrc2);
  bool aligned = Aligned16(src1) && Aligned16(src2) && Aligned16(pMask) && Aligned16(pDst);
  if (aligned && len % 4 == 0) {
    DotRays<AlignedFour>(src1, src2, pMask, pDst, len);
  } else {
    DotRays<OneRay>(src1, src2, pMask, pDst, len);
  }
  return vtqStsOk;
}

VTQR_PATH_END
