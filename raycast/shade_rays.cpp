// Secondary rays: shadow rays from a light towards the hit points, and mirror reflections.
#include "frame/code_path.h"
#include "frame/kernels.h"
#include "raycast/shade_simd.h"

VTQR_PATH_BEGIN
namespace {

using namespace shade;

// Below a tenth of a degree (in radians) between the light direction and the surface plane the
// light is taken as grazing: the cosine counts as zero and the point as unlit.
constexpr float kGrazingCosine = 0.0017453292f;

// How a failing ray's mask is rewritten. Whole packets set every failing lane to -1, a dead
// ray with another negative value included; the single rays at the end touch only rays that
// were live, so a dead ray keeps its value. Either way a failing ray ends up negative.
enum class DeadMasks { kRewrite, kKeep };

// dir = hit - light; c = normal . dir, zeroed when grazing. A live ray whose eyeDot * c is
// positive (the light is on the side the normal faces) passes with dstDot = |c| and that
// direction; every other ray gets zeros.
template <class Lanes, DeadMasks kDeadMasks>
void CastShadowRays(const Vtq32f light[3], const Vtq32f* eyeDot, const Vtq32f* const normal[3],
                    const Vtq32f* const hit[3], Vtq32s* mask, Vtq32f* dstDot,
                    Vtq32f* const dstDir[3], int begin, int end) {
  const Vtq32f* normalX = normal[0];
  const Vtq32f* normalY = normal[1];
  const Vtq32f* normalZ = normal[2];
  const Vtq32f* hitX = hit[0];
  const Vtq32f* hitY = hit[1];
  const Vtq32f* hitZ = hit[2];
  Vtq32f* dstDirX = dstDir[0];
  Vtq32f* dstDirY = dstDir[1];
  Vtq32f* dstDirZ = dstDir[2];
  const __m128 lightX = _mm_set1_ps(light[0]);
  const __m128 lightY = _mm_set1_ps(light[1]);
  const __m128 lightZ = _mm_set1_ps(light[2]);
  const __m128 grazing = _mm_set1_ps(kGrazingCosine);
  const __m128 zero = _mm_setzero_ps();
  for (int i = begin; i < end; i += Lanes::kWidth) {
    __m128i m = Lanes::LoadMask(mask + i);
    __m128 dead = DeadLanes(m);
    __m128 dx = _mm_sub_ps(Lanes::Load(hitX + i), lightX);
    __m128 dy = _mm_sub_ps(Lanes::Load(hitY + i), lightY);
    __m128 dz = _mm_sub_ps(Lanes::Load(hitZ + i), lightZ);
    __m128 c = Dot3(Lanes::Load(normalX + i), Lanes::Load(normalY + i),
                    Lanes::Load(normalZ + i), dx, dy, dz);
    c = _mm_andnot_ps(_mm_cmplt_ps(Abs(c), grazing), c);
    // Comparisons with a NaN are false, so a NaN anywhere fails the ray.
    __m128 pass = _mm_andnot_ps(dead, _mm_cmpgt_ps(_mm_mul_ps(Lanes::Load(eyeDot + i), c), zero));

    Lanes::Store(dstDot + i, _mm_and_ps(pass, Abs(c)));
    Lanes::Store(dstDirX + i, _mm_and_ps(pass, dx));
    Lanes::Store(dstDirY + i, _mm_and_ps(pass, dy));
    Lanes::Store(dstDirZ + i, _mm_and_ps(pass, dz));

    // OR-ing all ones into a lane makes it -1; the lanes left alone keep their value.
    __m128 keep = kDeadMasks == DeadMasks::kKeep ? _mm_or_ps(pass, dead) : pass;
    __m128i rewrite = _mm_xor_si128(_mm_castps_si128(keep), _mm_set1_epi32(-1));
    Lanes::StoreMask(mask + i, _mm_or_si128(m, rewrite));
  }
}

// dst = incident - n * (d + d) with d = incident . n for live rays, (0, 0, 0) for dead ones.
template <class Lanes>
void ReflectRays(const Vtq32f* const incident[3], const Vtq32s* mask,
                 const Vtq32f* const normal[3], Vtq32f* const dst[3], int len) {
  const Vtq32f* incidentX = incident[0];
  const Vtq32f* incidentY = incident[1];
  const Vtq32f* incidentZ = incident[2];
  const Vtq32f* normalX = normal[0];
  const Vtq32f* normalY = normal[1];
  const Vtq32f* normalZ = normal[2];
  Vtq32f* dstX = dst[0];
  Vtq32f* dstY = dst[1];
  Vtq32f* dstZ = dst[2];
  for (int i = 0; i < len; i += Lanes::kWidth) {
    __m128 dead = DeadLanes(Lanes::LoadMask(mask + i));
    __m128 ix = Lanes::Load(incidentX + i);
    __m128 iy = Lanes::Load(incidentY + i);
    __m128 iz = Lanes::Load(incidentZ + i);
    __m128 nx = Lanes::Load(normalX + i);
    __m128 ny = Lanes::Load(normalY + i);
    __m128 nz = Lanes::Load(normalZ + i);
    __m128 d = Dot3(ix, iy, iz, nx, ny, nz);
    __m128 twoD = _mm_add_ps(d, d);
    Lanes::Store(dstX + i, LiveOrZero(dead, _mm_sub_ps(ix, _mm_mul_ps(nx, twoD))));
    Lanes::Store(dstY + i, LiveOrZero(dead, _mm_sub_ps(iy, _mm_mul_ps(ny, twoD))));
    Lanes::Store(dstZ + i, LiveOrZero(dead, _mm_sub_ps(iz, _mm_mul_ps(nz, twoD))));
  }
}

}  // namespace

VtqStatus CastShadowSO_32f(const Vtq32f pLightPos[3], const Vtq32f* pEyeDot,
                           const Vtq32f* const pNormal[3], const Vtq32f* const pHitPoint[3],
                           Vtq32s* pMask, Vtq32f* pDstDot, Vtq32f* const pDstDir[3], int len) {
  if (pEyeDot == nullptr || pNormal == nullptr || pHitPoint == nullptr || pMask == nullptr ||
      pDstDir == nullptr || pDstDot == nullptr) {
    return vtqStsErrNullPtr;
  }
  if (len < 1) return vtqStsOk;

  // Packets of four from the first ray on, whatever the alignment; the rest one by one.
  int packed = len / 4 * 4;
  bool aligned = Aligned16(pEyeDot) && Aligned16(pNormal[0]) && Aligned16(pNormal[1]) &&
                 Aligned16(pNormal[2]) && Aligned16(pHitPoint[0]) && Aligned16(pHitPoint[1]) &&
                 Aligned16(pHitPoint[2]) && Aligned16(pMask) && Aligned16(pDstDot) &&
                 Aligned16(pDstDir[0]) && Aligned16(pDstDir[1]) && Aligned16(pDstDir[2]);
  if (aligned) {
    CastShadowRays<AlignedFour, DeadMasks::kRewrite>(pLightPos, pEyeDot, pNormal, pHitPoint,
                                                     pMask, pDstDot, pDstDir, 0, packed);
  } else {
    CastShadowRays<UnalignedFour, DeadMasks::kRewrite>(pLightPos, pEyeDot, pNormal, pHitPoint,
                                                       pMask, pDstDot, pDstDir, 0, packed);
  }
  CastShadowRays<OneRay, DeadMasks::kKeep>(pLightPos, pEyeDot, pNormal, pHitPoint, pMask,
                                           pDstDot, pDstDir, packed, len);
  return vtqStsOk;
}

VtqStatus CastReflectionRay_32f(const Vtq32f* const pIncident[3], const Vtq32s* pMask,
                                const Vtq32f* const pNormal[3], Vtq32f* const pDst[3], int len) {
  if (pIncident == nullptr || pMask == nullptr || pNormal == nullptr || pDst == nullptr) {
    return vtqStsErrNullPtr;
  }
  if (len < 1) return vtqStsOk;

  // Packets of four whenever the count allows, aligned or not.
  bool aligned = Aligned16(pIncident[0]) && Aligned16(pIncident[1]) &&
                 Aligned16(pIncident[2]) && Aligned16(pMask) && Aligned16(pNormal[0]) &&
                 Aligned16(pNormal[1]) && Aligned16(pNormal[2]) && Aligned16(pDst[0]) &&
                 Aligned16(pDst[1]) && Aligned16(pDst[2]);
  if (len % 4 != 0) {
    ReflectRays<OneRay>(pIncident, pMask, pNormal, pDst, len);
  } else if (aligned) {
    ReflectRays<AlignedFour>(pIncident, pMask, pNormal, pDst, len);
  } else {
    ReflectRays<UnalignedFour>(pIncident, pMask, pNormal, pDst, len);
  }
  return vtqStsOk;
}

VTQR_PATH_END
