// Light accumulation and distance attenuation.
#include "frame/code_path.h"
#include "frame/kernels.h"
#include "raycast/shade_simd.h"

VTQR_PATH_BEGIN
namespace {

using namespace shade;

// srcDst.c += (src2.c * scale[c]) * src for live rays over [begin, end); dead rays keep their
// colour bit for bit.
template <class Lanes>
void AddMulMulRays(const Vtq32f scale[3], const Vtq32f* src, const Vtq32f* const src2[3],
                   const Vtq32s* mask, Vtq32f* const srcDst[3], int begin, int end) {
  const Vtq32f* src2X = src2[0];
  const Vtq32f* src2Y = src2[1];
  const Vtq32f* src2Z = src2[2];
  Vtq32f* srcDstX = srcDst[0];
  Vtq32f* srcDstY = srcDst[1];
  Vtq32f* srcDstZ = srcDst[2];
  const __m128 scaleX = _mm_set1_ps(scale[0]);
  const __m128 scaleY = _mm_set1_ps(scale[1]);
  const __m128 scaleZ = _mm_set1_ps(scale[2]);
  for (int i = begin; i < end; i += Lanes::kWidth) {
    __m128 dead = DeadLanes(Lanes::LoadMask(mask + i));
    __m128 s = Lanes::Load(src + i);
    __m128 x = Lanes::Load(srcDstX + i);
    __m128 y = Lanes::Load(srcDstY + i);
    __m128 z = Lanes::Load(srcDstZ + i);
    __m128 addX = _mm_mul_ps(_mm_mul_ps(Lanes::Load(src2X + i), scaleX), s);
    __m128 addY = _mm_mul_ps(_mm_mul_ps(Lanes::Load(src2Y + i), scaleY), s);
    __m128 addZ = _mm_mul_ps(_mm_mul_ps(Lanes::Load(src2Z + i), scaleZ), s);
    Lanes::Store(srcDstX + i, Select(dead, x, _mm_add_ps(x, addX)));
    Lanes::Store(srcDstY + i, Select(dead, y, _mm_add_ps(y, addY)));
    Lanes::Store(srcDstZ + i, Select(dead, z, _mm_add_ps(z, addZ)));
  }
}

// max(1, distance) from q, the squared distance: sqrt(q) where q >= 1, else 1. A NaN q is not
// "at least one" and so gives 1 as well, on every path.
inline __m128 ClampedDistance(__m128 q) {
  const __m128 one = _mm_set1_ps(1.0f);
  return Select(_mm_cmpge_ps(q, one), _mm_sqrt_ps(q), one);
}

// dst = max(1, |pos - point|) for live rays, 1 for dead ones.
template <class Lanes>
void DistAttenuationRays(const Vtq32f point[3], const Vtq32f* const pos[3], const Vtq32s* mask,
                         Vtq32f* dst, int len) {
  const Vtq32f* posX = pos[0];
  const Vtq32f* posY = pos[1];
  const Vtq32f* posZ = pos[2];
  const __m128 one = _mm_set1_ps(1.0f);
  const __m128 px = _mm_set1_ps(point[0]);
  const __m128 py = _mm_set1_ps(point[1]);
  const __m128 pz = _mm_set1_ps(point[2]);
  for (int i = 0; i < len; i += Lanes::kWidth) {
    __m128 dead = DeadLanes(Lanes::LoadMask(mask + i));
    // A packet of rays that all missed costs one store: the positions are not even read.
    if (_mm_movemask_ps(dead) == Lanes::kLaneBits) {
      Lanes::Store(dst + i, one);
      continue;
    }
    __m128 dx = _mm_sub_ps(Lanes::Load(posX + i), px);
    __m128 dy = _mm_sub_ps(Lanes::Load(posY + i), py);
    __m128 dz = _mm_sub_ps(Lanes::Load(posZ + i), pz);
    __m128 q = Dot3(dx, dy, dz, dx, dy, dz);
    Lanes::Store(dst + i, Select(dead, one, ClampedDistance(q)));
  }
}

}  // namespace

VtqStatus AddMulMul_32f_AC1P3IM(const Vtq32f pScale[3], const Vtq32f* pSrc,
                                const Vtq32f* const pSrc2[3], const Vtq32s* pMask,
                                Vtq32f* const pSrcDst[3], int len) {
  if (pSrc == nullptr || pSrc2 == nullptr || pMask == nullptr || pSrcDst == nullptr) {
    return vtqStsErrNullPtr;
  }
  if (len < 1) return vtqStsOk;

  // Single rays up to the x plane's 16-byte boundary, then fours, then the tail.
  int head = RaysToBoundary(pSrcDst[0], len);
  int bodyEnd = head + (len - head) / 4 * 4;
  AddMulMulRays<OneRay>(pScale, pSrc, pSrc2, pMask, pSrcDst, 0, head);
  bool aligned = Aligned16(pSrc + head) && Aligned16(pMask + head) &&
                 Aligned16(pSrc2[0] + head) && Aligned16(pSrc2[1] + head) &&
                 Aligned16(pSrc2[2] + head) && Aligned16(pSrcDst[1] + head) &&
                 Aligned16(pSrcDst[2] + head);
  if (aligned) {
    AddMulMulRays<AlignedFour>(pScale, pSrc, pSrc2, pMask, pSrcDst, head, bodyEnd);
  } else {
    AddMulMulRays<UnalignedFour>(pScale, pSrc, pSrc2, pMask, pSrcDst, head, bodyEnd);
  }
  AddMulMulRays<OneRay>(pScale, pSrc, pSrc2, pMask, pSrcDst, bodyEnd, len);
  return vtqStsOk;
}

VtqStatus DistAttenuationSO_32f_M(const Vtq32f pPoint[3], const Vtq32f* const pPos[3],
                                  const Vtq32s* pMask, Vtq32f* pDst, int len) {
  if (pPos == nullptr || pMask == nullptr || pDst == nullptr) return vtqStsErrNullPtr;
  if (len < 1) return vtqStsOk;

  bool aligned = Aligned16(pPos[0]) && Aligned16(pPos[1]) && Aligned16(pPos[2]) &&
                 Aligned16(pMask) && Aligned16(pDst);
  if (aligned && len % 4 == 0) {
    DistAttenuationRays<AlignedFour>(pPoint, pPos, pMask, pDst, len);
  } else {
    DistAttenuationRays<OneRay>(pPoint, pPos, pMask, pDst, len);
  }
  return vtqStsOk;
}

VTQR_PATH_END
