// Surface normals per ray: the normal of the triangle hit (flat shading), or the vertex
// normals of its corners blended with the hit's barycentric weights (smooth shading).
#include <cstddef>

#include "frame/code_path.h"
#include "frame/kernels.h"
#include "simd/gather.h"
#include "simd/lanes.h"
#include "simd/schemes.h"
#include "simd/select.h"
#include "simd/vec3.h"

VTQR_PATH_BEGIN
namespace {

using namespace simd;

// A blended normal whose squared length is below the float epsilon has no direction worth
// keeping (the corner normals cancel out): such a ray gets (0, 0, 0) rather than a unit vector
// blown up from rounding noise.
constexpr float kMinSquaredLength = 1.1920929e-7f;

}  // namespace

// dst = trianNorm[3k .. 3k+2] for a ray that hit triangle k, moved bit for bit; (0, 0, 0)
// for a ray that missed.
VtqStatus SurfFlatNormal_32f(const Vtq32f* pTrianNorm, const Vtq32s* pTrianIndex,
                             Vtq32f* const pDst[3], int len) {
  if (pTrianNorm == nullptr || pTrianIndex == nullptr) return vtqStsErrNullPtr;
  if (len < 1) return vtqStsOk;

  Planes<Vtq32f> dst(pDst);
  AlignedFoursOrSingle(len, Touches(pTrianIndex, dst), [&](auto lanes, int i) {
    using Lanes = decltype(lanes);
    Store3<Lanes>(dst, i, GatherTriples<Lanes>(pTrianNorm, pTrianIndex + i));
  });
  return vtqStsOk;
}

// With A, B, C the vertex normals of the corners of the triangle hit and u, v the weights of
// corners 0 and 1: N = (B * v + A * u) + w * C, w = (1 - u) - v, then N / |N| in float; zeros
// for a ray that missed or whose N is too short to normalise.
VtqStatus SurfSmoothNormal_32f(const Vtq32f* pVertNorm, const Vtq32s* pNormIndex,
                               const Vtq32s* pTrianIndex, const Vtq32f* const pHit[2],
                               Vtq32f* const pDst[3], int len, int stride) {
  if (pVertNorm == nullptr || pNormIndex == nullptr || pTrianIndex == nullptr || pHit == nullptr ||
      pDst == nullptr) {
    return vtqStsErrNullPtr;
  }
  if (len < 1) return vtqStsOk;

  const Vtq32f* weightU = pHit[0];
  const Vtq32f* weightV = pHit[1];
  Planes<Vtq32f> dst(pDst);
  const __m128 one = _mm_set1_ps(1.0f);
  const __m128 minSquared = _mm_set1_ps(kMinSquaredLength);
  const auto arrays = Touches(pTrianIndex, weightU, weightV, dst);
  AlignedFoursOrSingle(len, arrays, [&](auto lanes, int i) {
    using Lanes = decltype(lanes);
    const Vtq32s* triangle = pTrianIndex + i;
    // The normal numbers of each live ray's three corners; a dead ray's stay -1 and its
    // triangle's row of the index array is never read.
    Vtq32s corner[3][4] = {{-1, -1, -1, -1}, {-1, -1, -1, -1}, {-1, -1, -1, -1}};
    for (int lane = 0; lane < Lanes::kWidth; ++lane) {
      if (triangle[lane] < 0) continue;
      const Vtq32s* row = pNormIndex + static_cast<ptrdiff_t>(triangle[lane]) * stride;
      for (int k = 0; k < 3; ++k) corner[k][lane] = row[k];
    }
    const Vec3 a = GatherTriples<Lanes>(pVertNorm, corner[0]);
    const Vec3 b = GatherTriples<Lanes>(pVertNorm, corner[1]);
    const Vec3 c = GatherTriples<Lanes>(pVertNorm, corner[2]);

    const __m128 u = Lanes::Load(weightU + i);
    const __m128 v = Lanes::Load(weightV + i);
    const __m128 w = _mm_sub_ps(_mm_sub_ps(one, u), v);
    auto blend = [&](__m128 ca, __m128 cb, __m128 cc) {
      return _mm_add_ps(_mm_add_ps(_mm_mul_ps(cb, v), _mm_mul_ps(ca, u)), _mm_mul_ps(w, cc));
    };
    const Vec3 n = {blend(a.x, b.x, c.x), blend(a.y, b.y, c.y), blend(a.z, b.z, c.z)};

    // A NaN squared length is not "below the epsilon": such a ray keeps its NaN normal.
    const __m128 squared = Dot(n, n);
    const __m128 length = _mm_sqrt_ps(squared);
    const __m128 zero = _mm_or_ps(DeadLanes(Lanes::LoadMask(triangle)),
                                  _mm_cmplt_ps(squared, minSquared));
    const Vec3 unit = {_mm_div_ps(n.x, length), _mm_div_ps(n.y, length), _mm_div_ps(n.z, length)};
    Store3<Lanes>(dst, i, LiveOrZero(zero, unit));
  });
  return vtqStsOk;
}

VTQR_PATH_END
