// Unit normals of a mesh's triangles, in double precision from the float vertices.
#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

#include "frame/code_path.h"
#include "frame/kernels.h"
#include "frame/parallel.h"
#include "simd/gather.h"

VTQR_PATH_BEGIN
namespace {

using namespace simd;

// Below this squared length (the double epsilon) the triangle counts as degenerate: its
// vertices are collinear or coincide, and its normal is (0, 0, 0) rather than NaN or a
// direction made of rounding noise.
constexpr double kMinSquaredLength = 2.220446049250313e-16;

// x, y, z of up to two triangles in double lanes: lane 0 the first triangle, lane 1 the
// second (zeros when only one is done).
struct Vec3d {
  __m128d x, y, z;
};

inline Vec3d Sub(Vec3d a, Vec3d b) {
  return {_mm_sub_pd(a.x, b.x), _mm_sub_pd(a.y, b.y), _mm_sub_pd(a.z, b.z)};
}

// Corner `corner` of kCount consecutive triangles whose index records start at `record`,
// widened to double (exactly).
template <int kCount>
Vec3d LoadCorner(const Vtq32f* vertex, const Vtq32s* record, int corner) {
  auto at = [&](int t) { return vertex + 3 * static_cast<ptrdiff_t>(record[4 * t + corner]); };
  const __m128 first = LoadTriple(at(0));
  const __m128 second = kCount == 2 ? LoadTriple(at(1)) : _mm_setzero_ps();
  const __m128 xy = _mm_unpacklo_ps(first, second);  // x0 x1 y0 y1
  const __m128 z = _mm_unpackhi_ps(first, second);   // z0 z1 0 0
  return {_mm_cvtps_pd(xy), _mm_cvtps_pd(_mm_movehl_ps(xy, xy)), _mm_cvtps_pd(z)};
}

// Normals of triangles t .. t + kCount - 1 (kCount 1 or 2). Each lane runs the one-triangle
// formula with the same operations in the same order, so a triangle's bits do not depend on
// whether it was paired, and hence not on how the triangles were split over threads.
template <int kCount>
void TriangleNormals(const Vtq32f* vertex, const Vtq32s* index, Vtq32f* normal, ptrdiff_t t) {
  const Vtq32s* record = index + 4 * t;
  const Vec3d v2 = LoadCorner<kCount>(vertex, record, 2);
  const Vec3d e1 = Sub(LoadCorner<kCount>(vertex, record, 0), v2);
  const Vec3d e2 = Sub(LoadCorner<kCount>(vertex, record, 1), v2);

  // n = e1 x e2, each product with its operands in the order of the formula
  //   nx = e1.y e2.z - e1.z e2.y,  ny = e1.z e2.x - e2.z e1.x,  nz = e2.y e1.x - e1.y e2.x.
  const __m128d nx = _mm_sub_pd(_mm_mul_pd(e1.y, e2.z), _mm_mul_pd(e1.z, e2.y));
  const __m128d ny = _mm_sub_pd(_mm_mul_pd(e1.z, e2.x), _mm_mul_pd(e2.z, e1.x));
  const __m128d nz = _mm_sub_pd(_mm_mul_pd(e2.y, e1.x), _mm_mul_pd(e1.y, e2.x));
  const __m128d squared = _mm_add_pd(_mm_add_pd(_mm_mul_pd(nx, nx), _mm_mul_pd(ny, ny)),
                                     _mm_mul_pd(nz, nz));

  // Three true divisions by the root, not one reciprocal and three products, so that each
  // component is the correctly rounded double quotient before it is rounded to float. A NaN
  // squared length is not below the epsilon and passes its NaN on.
  const __m128d length = _mm_sqrt_pd(squared);
  const __m128d degenerate = _mm_cmplt_pd(squared, _mm_set1_pd(kMinSquaredLength));
  auto unit = [&](__m128d c) {
    return _mm_cvtpd_ps(_mm_andnot_pd(degenerate, _mm_div_pd(c, length)));
  };
  const __m128 x = unit(nx), y = unit(ny), z = unit(nz);  // lane t: triangle t's component

  // Back to x, y, z triples: the first triangle's x and y, then its z; the same for the second.
  const __m128 xy = _mm_unpacklo_ps(x, y);  // x0 y0 x1 y1
  Vtq32f* out = normal + 3 * t;
  _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_castps_si128(xy));
  _mm_store_ss(out + 2, z);
  if constexpr (kCount == 2) {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 3), _mm_castps_si128(_mm_movehl_ps(xy, xy)));
    _mm_store_ss(out + 5, _mm_shuffle_ps(z, z, _MM_SHUFFLE(1, 1, 1, 1)));
  }
}

}  // namespace

// Unit normal of every triangle, (e1 x e2) / |e1 x e2| with e1 = V[i0] - V[i2] and
// e2 = V[i1] - V[i2], in double, rounded to float once per component.
VtqStatus TriangleNormal_32f(const Vtq32f* pVertexCoord, const Vtq32s* pTrianIndex,
                             Vtq32f* pTrianNorm, int nTrian) {
  if (pVertexCoord == nullptr || pTrianIndex == nullptr || pTrianNorm == nullptr) {
    return vtqStsErrNullPtr;
  }
  if (nTrian < 1) return vtqStsOk;

  // Always a team, even of one thread: each thread writes its own contiguous triangles.
  ParallelChunks(nTrian, Fork::kAlways, [&](int64_t begin, int64_t end) {
    ptrdiff_t t = begin;
    for (; t + 1 < end; t += 2) TriangleNormals<2>(pVertexCoord, pTrianIndex, pTrianNorm, t);
    if (t < end) TriangleNormals<1>(pVertexCoord, pTrianIndex, pTrianNorm, t);
  });
  return vtqStsOk;
}

VTQR_PATH_END
