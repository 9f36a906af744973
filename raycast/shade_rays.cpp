// Secondary rays: shadow rays from a light towards the hit points, and mirror reflections.
#include "frame/code_path.h"
#include "frame/kernels.h"
#include "simd/lanes.h"
#include "simd/schemes.h"
#include "simd/select.h"
#include "simd/vec3.h"

VTQR_PATH_BEGIN
namespace {

using namespace simd;

// Below a tenth of a degree (in radians) between the light direction and the surface plane the
// light is taken as grazing: the cosine counts as zero and the point as unlit.
constexpr float kGrazingCosine = 0.0017453292f;

}  // namespace

// dir = hit - light; c = normal . dir, zeroed when grazing. A live ray whose eyeDot * c is
// positive (the light is on the side the normal faces) passes with dstDot = |c| and that
// direction; every other ray gets zeros and a negative mask.
VtqStatus CastShadowSO_32f(const Vtq32f pLightPos[3], const Vtq32f* pEyeDot,
                           const Vtq32f* const pNormal[3], const Vtq32f* const pHitPoint[3],
                           Vtq32s* pMask, Vtq32f* pDstDot, Vtq32f* const pDstDir[3], int len) {
  if (pEyeDot == nullptr || pNormal == nullptr || pHitPoint == nullptr || pMask == nullptr ||
      pDstDir == nullptr || pDstDot == nullptr) {
    return vtqStsErrNullPtr;
  }
  if (len < 1) return vtqStsOk;

  Planes<const Vtq32f> normal(pNormal), hit(pHitPoint);
  Planes<Vtq32f> dstDir(pDstDir);
  const Vec3 light = Broadcast(pLightPos);
  const __m128 grazing = _mm_set1_ps(kGrazingCosine);
  const __m128 zero = _mm_setzero_ps();
  const auto arrays = Touches(pEyeDot, normal, hit, pMask, pDstDot, dstDir);
  FoursThenSingle(len, arrays, [&](auto lanes, int i) {
    using Lanes = decltype(lanes);
    __m128i m = Lanes::LoadMask(pMask + i);
    __m128 dead = DeadLanes(m);
    Vec3 dir = Sub(Load3<Lanes>(hit, i), light);
    __m128 c = Dot(Load3<Lanes>(normal, i), dir);
    c = _mm_andnot_ps(_mm_cmplt_ps(Abs(c), grazing), c);
    // Comparisons with a NaN are false, so a NaN anywhere fails the ray.
    __m128 pass = _mm_andnot_ps(dead, _mm_cmpgt_ps(_mm_mul_ps(Lanes::Load(pEyeDot + i), c), zero));

    Lanes::Store(pDstDot + i, _mm_and_ps(pass, Abs(c)));
    Store3<Lanes>(dstDir, i,
                  {_mm_and_ps(pass, dir.x), _mm_and_ps(pass, dir.y), _mm_and_ps(pass, dir.z)});

    // How a failing ray's mask is rewritten: packets of four set every failing lane to -1, a
    // dead ray with another negative value included; single rays touch only rays that were
    // live, so a dead ray keeps its value. Either way a failing ray ends up negative. OR-ing
    // all ones into a lane makes it -1; the lanes left alone keep their value.
    __m128 keep = Lanes::kWidth == 4 ? pass : _mm_or_ps(pass, dead);
    __m128i rewrite = _mm_xor_si128(_mm_castps_si128(keep), _mm_set1_epi32(-1));
    Lanes::StoreMask(pMask + i, _mm_or_si128(m, rewrite));
  });
  return vtqStsOk;
}

// dst = incident - n * (d + d) with d = incident . n for live rays, (0, 0, 0) for dead ones.
VtqStatus CastReflectionRay_32f(const Vtq32f* const pIncident[3], const Vtq32s* pMask,
                                const Vtq32f* const pNormal[3], Vtq32f* const pDst[3], int len) {
  if (pIncident == nullptr || pMask == nullptr || pNormal == nullptr || pDst == nullptr) {
    return vtqStsErrNullPtr;
  }
  if (len < 1) return vtqStsOk;

  Planes<const Vtq32f> incident(pIncident), normal(pNormal);
  Planes<Vtq32f> dst(pDst);
  FoursOrSingle(len, Touches(incident, pMask, normal, dst), [&](auto lanes, int i) {
    using Lanes = decltype(lanes);
    __m128 dead = DeadLanes(Lanes::LoadMask(pMask + i));
    Vec3 in = Load3<Lanes>(incident, i);
    Vec3 n = Load3<Lanes>(normal, i);
    __m128 d = Dot(in, n);
    __m128 twoD = _mm_add_ps(d, d);
    Store3<Lanes>(dst, i, LiveOrZero(dead, Sub(in, Scale(n, twoD))));
  });
  return vtqStsOk;
}

VTQR_PATH_END
