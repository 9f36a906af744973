// Light accumulation and distance attenuation.
#include "frame/code_path.h"
#include "frame/kernels.h"
#include "simd/lanes.h"
#include "simd/schemes.h"
#include "simd/select.h"
#include "simd/vec3.h"

VTQR_PATH_BEGIN
namespace {

using namespace simd;

// max(1, distance) from q, the squared distance: sqrt(q) where q >= 1, else 1. A NaN q is not
// "at least one" and so gives 1 as well, on every path.
inline __m128 ClampedDistance(__m128 q) {
  const __m128 one = _mm_set1_ps(1.0f);
  return Select(_mm_cmpge_ps(q, one), _mm_sqrt_ps(q), one);
}

}  // namespace

// srcDst.c += (src2.c * scale[c]) * src for live rays; dead rays keep their colour bit for bit.
VtqStatus AddMulMul_32f_AC1P3IM(const Vtq32f pScale[3], const Vtq32f* pSrc,
                                const Vtq32f* const pSrc2[3], const Vtq32s* pMask,
                                Vtq32f* const pSrcDst[3], int len) {
  if (pSrc == nullptr || pSrc2 == nullptr || pMask == nullptr || pSrcDst == nullptr) {
    return vtqStsErrNullPtr;
  }
  if (len < 1) return vtqStsOk;

  // The x plane of the sums sets the boundary.
  Planes<const Vtq32f> light(pSrc2);
  Planes<Vtq32f> sum(pSrcDst);
  const Vec3 k = Broadcast(pScale);
  PeelToBoundary(len, sum.x, Touches(pSrc, pMask, light, sum), [&](auto lanes, int i) {
    using Lanes = decltype(lanes);
    __m128 dead = DeadLanes(Lanes::LoadMask(pMask + i));
    __m128 s = Lanes::Load(pSrc + i);
    Vec3 l = Load3<Lanes>(light, i);
    Vec3 c = Load3<Lanes>(sum, i);
    Vec3 added = {_mm_add_ps(c.x, _mm_mul_ps(_mm_mul_ps(l.x, k.x), s)),
                  _mm_add_ps(c.y, _mm_mul_ps(_mm_mul_ps(l.y, k.y), s)),
                  _mm_add_ps(c.z, _mm_mul_ps(_mm_mul_ps(l.z, k.z), s))};
    Store3<Lanes>(sum, i, Select(dead, c, added));
  });
  return vtqStsOk;
}

// dst = max(1, |pos - point|) for live rays, 1 for dead ones.
VtqStatus DistAttenuationSO_32f_M(const Vtq32f pPoint[3], const Vtq32f* const pPos[3],
                                  const Vtq32s* pMask, Vtq32f* pDst, int len) {
  if (pPos == nullptr || pMask == nullptr || pDst == nullptr) return vtqStsErrNullPtr;
  if (len < 1) return vtqStsOk;

  Planes<const Vtq32f> pos(pPos);
  const __m128 one = _mm_set1_ps(1.0f);
  const Vec3 origin = Broadcast(pPoint);
  AlignedFoursOrSingle(len, Touches(pos, pMask, pDst), [&](auto lanes, int i) {
    using Lanes = decltype(lanes);
    __m128 dead = DeadLanes(Lanes::LoadMask(pMask + i));
    // A packet of rays that all missed costs one store: the positions are not even read.
    if (_mm_movemask_ps(dead) == Lanes::kLaneBits) {
      Lanes::Store(pDst + i, one);
      return;
    }
    Vec3 d = Sub(Load3<Lanes>(pos, i), origin);
    __m128 q = Dot(d, d);
    Lanes::Store(pDst + i, Select(dead, one, ClampedDistance(q)));
  });
  return vtqStsOk;
}

VTQR_PATH_END
