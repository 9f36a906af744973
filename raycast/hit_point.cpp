// Hit points: where each ray met the surface, moved a little along the ray by a scale on the
// distance so that rays leaving the point start on the chosen side of the surface.
#include "frame/code_path.h"
#include "frame/kernels.h"
#include "simd/lanes.h"
#include "simd/schemes.h"
#include "simd/select.h"
#include "simd/vec3.h"

VTQR_PATH_BEGIN
namespace {

using namespace simd;

// origin + direction * eps * dist per component, the two products in that order, for live
// rays; (0, 0, 0) for dead ones.
inline Vec3 PointAlong(__m128 dead, Vec3 origin, Vec3 direction, __m128 eps, __m128 dist) {
  return LiveOrZero(dead, Add(Scale(Scale(direction, eps), dist), origin));
}

}  // namespace

// Rays from one common origin (eye rays).
VtqStatus HitPoint3DEpsS0_32f_M(const Vtq32f pOrigin[3], const Vtq32f* const pDirection[3],
                                const Vtq32f* pDist, const Vtq32s* pMask, Vtq32f* const pDst[3],
                                int len, Vtq32f eps) {
  if (pDist == nullptr || pMask == nullptr || pDirection == nullptr || pDst == nullptr) {
    return vtqStsErrNullPtr;
  }
  if (len < 1) return vtqStsOk;

  Planes<const Vtq32f> direction(pDirection);
  Planes<Vtq32f> dst(pDst);
  const Vec3 origin = Broadcast(pOrigin);
  const __m128 scale = _mm_set1_ps(eps);
  AlignedFoursOrSingle(len, Touches(direction, pDist, pMask, dst), [&](auto lanes, int i) {
    using Lanes = decltype(lanes);
    __m128 dead = DeadLanes(Lanes::LoadMask(pMask + i));
    Vec3 d = Load3<Lanes>(direction, i);
    Store3<Lanes>(dst, i, PointAlong(dead, origin, d, scale, Lanes::Load(pDist + i)));
  });
  return vtqStsOk;
}

// Rays with one origin each (reflection and shadow rays leaving earlier hit points).
VtqStatus HitPoint3DEpsM0_32f_M(const Vtq32f* const pOrigin[3], const Vtq32f* const pDirection[3],
                                const Vtq32f* pDist, const Vtq32s* pMask, Vtq32f* const pDst[3],
                                int len, Vtq32f eps) {
  if (pDist == nullptr || pMask == nullptr || pDirection == nullptr || pDst == nullptr ||
      pOrigin == nullptr) {
    return vtqStsErrNullPtr;
  }
  if (len < 1) return vtqStsOk;

  Planes<const Vtq32f> origin(pOrigin), direction(pDirection);
  Planes<Vtq32f> dst(pDst);
  const __m128 scale = _mm_set1_ps(eps);
  const auto arrays = Touches(origin, direction, pDist, pMask, dst);
  AlignedFoursOrSingle(len, arrays, [&](auto lanes, int i) {
    using Lanes = decltype(lanes);
    __m128 dead = DeadLanes(Lanes::LoadMask(pMask + i));
    Vec3 o = Load3<Lanes>(origin, i);
    Vec3 d = Load3<Lanes>(direction, i);
    Store3<Lanes>(dst, i, PointAlong(dead, o, d, scale, Lanes::Load(pDist + i)));
  });
  return vtqStsOk;
}

VTQR_PATH_END
