// In-place scaling of per-ray values: turning normals to face the ray, and the masked
// multiplies. These three rows have their own build for the in-order low-power path; the
// formulas and their order are the same on both paths, only instruction selection differs.
#include "frame/code_path.h"
#include "frame/kernels.h"
#include "simd/lanes.h"
#include "simd/schemes.h"
#include "simd/select.h"
#include "simd/vec3.h"

VTQR_PATH_BEGIN
namespace {

using namespace simd;

// 1.0 for live rays, 0.0 for dead ones: the factor m of the masked multiplies.
inline __m128 LiveFactor(__m128i mask) { return LiveOrZero(DeadLanes(mask), _mm_set1_ps(1.0f)); }

}  // namespace

// d = ray . n; s = -1 when d > 0, else +1; n *= s and dst = d * s for live rays. A dead ray
// keeps its normal bit for bit and gets dst = 0. s is applied as a real multiply rather than a
// sign flip so that the arithmetic is the one the formula names, NaN quieting included.
VtqStatus DotChangeNorm_32f_IM(const Vtq32f* const pSrc[3], const Vtq32s* pMask,
                               Vtq32f* const pSrcDst[3], Vtq32f* pDst, int len) {
  if (pSrc == nullptr || pMask == nullptr || pSrcDst == nullptr || pDst == nullptr) {
    return vtqStsErrNullPtr;
  }
  if (len < 1) return vtqStsOk;

  Planes<const Vtq32f> ray(pSrc);
  Planes<Vtq32f> normal(pSrcDst);
  const __m128 one = _mm_set1_ps(1.0f);
  const __m128 zero = _mm_setzero_ps();
  AlignedFoursOrSingle(len, Touches(ray, pMask, normal, pDst), [&](auto lanes, int i) {
    using Lanes = decltype(lanes);
    __m128 dead = DeadLanes(Lanes::LoadMask(pMask + i));
    Vec3 n = Load3<Lanes>(normal, i);
    __m128 d = Dot(Load3<Lanes>(ray, i), n);
    // A NaN d compares false and keeps s = +1.
    __m128 s = _mm_or_ps(one, _mm_and_ps(_mm_cmpgt_ps(d, zero), SignBits()));
    Store3<Lanes>(normal, i, Select(dead, n, Scale(n, s)));
    Lanes::Store(pDst + i, LiveOrZero(dead, _mm_mul_ps(d, s)));
  });
  return vtqStsOk;
}

// srcDst = srcDst * src * m. A dead ray is multiplied by zero rather than skipped, so
// infinities and NaNs there turn into NaN and negative values into -0. No pointer is tested
// here: a caller passing len < 1 may pass anything.
VtqStatus Mul_32f_C1IM(const Vtq32f* pSrc, const Vtq32s* pMask, Vtq32f* pSrcDst, int len) {
  if (len < 1) return vtqStsOk;

  PeelToBoundary(len, pSrcDst, Touches(pSrc, pMask), [&](auto lanes, int i) {
    using Lanes = decltype(lanes);
    __m128 m = LiveFactor(Lanes::LoadMask(pMask + i));
    __m128 v = _mm_mul_ps(Lanes::Load(pSrcDst + i), Lanes::Load(pSrc + i));
    Lanes::Store(pSrcDst + i, _mm_mul_ps(v, m));
  });
  return vtqStsOk;
}

// The same for three planes sharing one src and mask; each plane is (p * src) * m.
VtqStatus Mul_32f_C1P3IM(const Vtq32f* pSrc, const Vtq32s* pMask, Vtq32f* const pSrcDst[3],
                         int len) {
  if (pSrc == nullptr || pMask == nullptr || pSrcDst == nullptr) return vtqStsErrNullPtr;
  if (len < 1) return vtqStsOk;

  // The x plane sets the boundary; the planes of one packet usually share their alignment.
  Planes<Vtq32f> p(pSrcDst);
  PeelToBoundary(len, p.x, Touches(pSrc, pMask, p), [&](auto lanes, int i) {
    using Lanes = decltype(lanes);
    __m128 m = LiveFactor(Lanes::LoadMask(pMask + i));
    __m128 s = Lanes::Load(pSrc + i);
    Store3<Lanes>(p, i, Scale(Scale(Load3<Lanes>(p, i), s), m));
  });
  return vtqStsOk;
}

VTQR_PATH_END
