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
void CastShadowRays(const Vtq32f lightPos[3], const Vtq32f* eyeDot, Planes<const Vtq32f> normal,
                    Planes<const Vtq32f> hit, Vtq32s* mask, Vtq32f* dstDot, Planes<Vtq32f> dstDir,
                    int begin, int end) {
  const Vec3 light = Broadcast(lightPos);
  const __m128 grazing = _mm_set1_ps(kGrazingCosine);
  const __m128 zero = _mm_setzero_ps();
  for (int i = begin; i < end; i += Lanes::kWidth) {
    __m128i m = Lanes::LoadMask(mask + i);
    __m128 dead = DeadLanes(m);
    Vec3 dir = Sub(Load3<Lanes>(hit, i), light);
    __m128 c = Dot(Load3<Lanes>(normal, i), dir);
    c = _mm_andnot_ps(_mm_cmplt_ps(Abs(c), grazing), c);
    // Comparisons with a NaN are false, so a NaN anywhere fails the ray.
    __m128 pass = _mm_andnot_ps(dead, _mm_cmpgt_ps(_mm_mul_ps(Lanes::Load(eyeDot + i), c), zero));

    Lanes::Store(dstDot + i, _mm_and_ps(pass, Abs(c)));
    Store3<Lanes>(dstDir, i,
                  {_mm_and_ps(pass, dir.x), _mm_and_ps(pass, dir.y), _mm_and_ps(pass, dir.z)});

    // OR-ing all ones into a lane makes it -1; the lanes left alone keep their value.
    __m128 keep = kDeadMasks == DeadMasks::kKeep ? _mm_or_ps(pass, dead) : pass;
    __m128i rewrite = _mm_xor_si128(_mm_castps_si128(keep), _mm_set1_epi32(-1));
    Lanes::StoreMask(mask + i, _mm_or_si128(m, rewrite));
  }
}

// dst = incident - n * (d + d) with d = incident . n for live rays, (0, 0, 0) for dead ones.
template <class Lanes>
void ReflectRays(Planes<const Vtq32f> incident, const Vtq32s* mask, Planes<const Vtq32f> normal,
                 Planes<Vtq32f> dst, int len) {
  for (int i = 0; i < len; i += Lanes::kWidth) {
    __m128 dead = DeadLanes(Lanes::LoadMask(mask + i));
    Vec3 in = Load3<Lanes>(incident, i);
    Vec3 n = Load3<Lanes>(normal, i);
    __m128 d = Dot(in, n);
    __m128 twoD = _mm_add_ps(d, d);
    Store3<Lanes>(dst, i,
                  {LiveOrZero(dead, _mm_sub_ps(in.x, _mm_mul_ps(n.x, twoD))),
                   LiveOrZero(dead, _mm_sub_ps(in.y, _mm_mul_ps(n.y, twoD))),
                   LiveOrZero(dead, _mm_sub_ps(in.z, _mm_mul_ps(n.z, twoD)))});
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
  Planes<const Vtq32f> normal(pNormal), hit(pHitPoint);
  Planes<Vtq32f> dir(pDstDir);
  bool aligned = Aligned16(pEyeDot) && Aligned16(normal) && Aligned16(hit) &&
                 Aligned16(pMask) && Aligned16(pDstDot) && Aligned16(dir);
  if (aligned) {
    CastShadowRays<AlignedFour, DeadMasks::kRewrite>(pLightPos, pEyeDot, normal, hit, pMask,
                                                     pDstDot, dir, 0, packed);
  } else {
    CastShadowRays<UnalignedFour, DeadMasks::kRewrite>(pLightPos, pEyeDot, normal, hit, pMask,
                                                       pDstDot, dir, 0, packed);
  }
  CastShadowRays<OneRay, DeadMasks::kKeep>(pLightPos, pEyeDot, normal, hit, pMask, pDstDot, dir,
                                           packed, len);
  return vtqStsOk;
}

VtqStatus CastReflectionRay_32f(const Vtq32f* const pIncident[3], const Vtq32s* pMask,
                                const Vtq32f* const pNormal[3], Vtq32f* const pDst[3], int len) {
  if (pIncident == nullptr || pMask == nullptr || pNormal == nullptr || pDst == nullptr) {
    return vtqStsErrNullPtr;
  }
  if (len < 1) return vtqStsOk;

  // Packets of four whenever the count allows, aligned or not.
  Planes<const Vtq32f> incident(pIncident), normal(pNormal);
  Planes<Vtq32f> dst(pDst);
  bool aligned = Aligned16(incident) && Aligned16(pMask) && Aligned16(normal) && Aligned16(dst);
  if (len % 4 != 0) {
    ReflectRays<OneRay>(incident, pMask, normal, dst, len);
  } else if (aligned) {
    ReflectRays<AlignedFour>(incident, pMask, normal, dst, len);
  } else {
    ReflectRays<UnalignedFour>(incident, pMask, normal, dst, len);
  }
  return vtqStsOk;
}

VTQR_PATH_END
