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
void AddMulMulRays(const Vtq32f scale[3], const Vtq32f* src, Planes<const Vtq32f> src2,
                   const Vtq32s* mask, Planes<Vtq32f> srcDst, int begin, int end) {
  const Vec3 k = Broadcast(scale);
  for (int i = begin; i < end; i += Lanes::kWidth) {
    __m128 dead = DeadLanes(Lanes::LoadMask(mask + i));
    __m128 s = Lanes::Load(src + i);
    Vec3 light = Load3<Lanes>(src2, i);
    Vec3 sum = Load3<Lanes>(srcDst, i);
    __m128 addX = _mm_mul_ps(_mm_mul_ps(light.x, k.x), s);
    __m128 addY = _mm_mul_ps(_mm_mul_ps(light.y, k.y), s);
    __m128 addZ = _mm_mul_ps(_mm_mul_ps(light.z, k.z), s);
    Store3<Lanes>(srcDst, i,
                  {Select(dead, sum.x, _mm_add_ps(sum.x, addX)),
                   Select(dead, sum.y, _mm_add_ps(sum.y, addY)),
                   Select(dead, sum.z, _mm_add_ps(sum.z, addZ))});
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
void DistAttenuationRays(const Vtq32f point[3], Planes<const Vtq32f> pos, const Vtq32s* mask,
                         Vtq32f* dst, int len) {
  const __m128 one = _mm_set1_ps(1.0f);
  const Vec3 origin = Broadcast(point);
  for (int i = 0; i < len; i += Lanes::kWidth) {
    __m128 dead = DeadLanes(Lanes::LoadMask(mask + i));
    // A packet of rays that all missed costs one store: the positions are not even read.
    if (_mm_movemask_ps(dead) == Lanes::kLaneBits) {
      Lanes::Store(dst + i, one);
      continue;
    }
    Vec3 d = Sub(Load3<Lanes>(pos, i), origin);
    __m128 q = Dot(d, d);
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
  Planes<const Vtq32f> light(pSrc2);
  Planes<Vtq32f> sum(pSrcDst);
  int head = RaysToBoundary(sum.x, len);
  int bodyEnd = head + (len - head) / 4 * 4;
  AddMulMulRays<OneRay>(pScale, pSrc, light, pMask, sum, 0, head);
  bool aligned = Aligned16(pSrc + head) && Aligned16(pMask + head) &&
                 light.Aligned16At(head) && sum.Aligned16At(head);
  if (aligned) {
    AddMulMulRays<AlignedFour>(pScale, pSrc, light, pMask, sum, head, bodyEnd);
  } else {
    AddMulMulRays<UnalignedFour>(pScale, pSrc, light, pMask, sum, head, bodyEnd);
  }
  AddMulMulRays<OneRay>(pScale, pSrc, light, pMask, sum, bodyEnd, len);
  return vtqStsOk;
}

VtqStatus DistAttenuationSO_32f_M(const Vtq32f pPoint[3], const Vtq32f* const pPos[3],
                                  const Vtq32s* pMask, Vtq32f* pDst, int len) {
  if (pPos == nullptr || pMask == nullptr || pDst == nullptr) return vtqStsErrNullPtr;
  if (len < 1) return vtqStsOk;

  Planes<const Vtq32f> pos(pPos);
  bool aligned = Aligned16(pos) && Aligned16(pMask) && Aligned16(pDst);
  if (aligned && len % 4 == 0) {
    DistAttenuationRays<AlignedFour>(pPoint, pos, pMask, pDst, len);
  } else {
    DistAttenuationRays<OneRay>(pPoint, pos, pMask, pDst, len);
  }
  return vtqStsOk;
}

VTQR_PATH_END
