// Dot product of two direction planes under a mask.
#include "frame/code_path.h"
#include "frame/kernels.h"
#include "raycast/shade_simd.h"

VTQR_PATH_BEGIN
namespace {

using namespace shade;

// dst = src1 . src2 for live rays, 0 for dead ones.
template <class Lanes>
void DotRays(const Vtq32f* const a[3], const Vtq32f* const b[3], const Vtq32s* mask, Vtq32f* dst,
             int len) {
  // Plane pointers in locals: intrinsic stores may alias anything, so pointers read
  // through the arrays would be reloaded after every store.
  const Vtq32f* aX = a[0];
  const Vtq32f* aY = a[1];
  const Vtq32f* aZ = a[2];
  const Vtq32f* bX = b[0];
  const Vtq32f* bY = b[1];
  const Vtq32f* bZ = b[2];
  for (int i = 0; i < len; i += Lanes::kWidth) {
    __m128 dead = DeadLanes(Lanes::LoadMask(mask + i));
    __m128 d = Dot3(Lanes::Load(aX + i), Lanes::Load(aY + i), Lanes::Load(aZ + i),
                    Lanes::Load(bX + i), Lanes::Load(bY + i), Lanes::Load(bZ + i));
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

  bool aligned = Aligned16(pSrc1[0]) && Aligned16(pSrc1[1]) && Aligned16(pSrc1[2]) &&
                 Aligned16(pSrc2[0]) && Aligned16(pSrc2[1]) && Aligned16(pSrc2[2]) &&
                 Aligned16(pMask) && Aligned16(pDst);
  if (aligned && len % 4 == 0) {
    DotRays<AlignedFour>(pSrc1, pSrc2, pMask, pDst, len);
  } else {
    DotRays<OneRay>(pSrc1, pSrc2, pMask, pDst, len);
  }
  return vtqStsOk;
}

VTQR_PATH_END
