// The ray/triangle test on the per-triangle acceleration records, for one ray or four.
//
// A record holds the triangle's plane scaled so that its dominant normal component k is 1
// (nu, nv at the minor axes u, v), its base vertex P, and both edges in the (u, v) projection
// divided by the normal's k component. For a ray E + tD:
//   den = n . D and num = n . (P - E), so t = num / den;
//   s, r = den times the hit point's (u, v) offset from P, so that
//   beta, gamma = den times the barycentric weights of the record's first and second vertex.
// The weights are compared without dividing: the hit lies inside exactly when den - beta -
// gamma, beta and gamma all have the sign of den, which the three products test. Every
// comparison is false for a NaN, so a NaN anywhere rejects the triangle.
#ifndef VTQR_RAYCAST_TRIANGLE_TEST_H_
#define VTQR_RAYCAST_TRIANGLE_TEST_H_

#include <cstdint>
#include <type_traits>

#include "frame/code_path.h"
#include "raycast/walk_lanes.h"
#include "vtqr/accel.h"

VTQR_PATH_BEGIN
namespace rays {

// Origin and direction of the rays as the triangle test reads them: indexed by axis, with a
// fourth entry so that no axis field of a record can reach past the arrays. A common origin
// is broadcast to every lane, which then computes with the very bits one ray would.
template <class L>
struct RayAxes {
  typename L::F org[4];
  typename L::F dir[4];
};

// What a passing triangle test leaves for the hit: t = num / den, the weights beta / den and
// gamma / den.
template <class F>
struct TriangleCut {
  F den, beta, gamma, num;
};

// A record's nine coefficients c1..c9 in the policy's float type: plain loads for one ray; for
// four, two 16-byte loads whose words are spread over the lanes by shuffles, cheaper than nine
// separate broadcasts.
template <class F>
struct Coefficients {
  F nu, pk, nv, pu, pv, e2u, e2v, e1u, e1v;
};
[[gnu::always_inline]] inline Coefficients<float> ReadCoefficients(const VtqrTriangleAccel& tri,
                                                                   OneLane) {
  return {tri.nu, tri.pk, tri.nv, tri.pu, tri.pv, tri.e2u, tri.e2v, tri.e1u, tri.e1v};
}
[[gnu::always_inline]] inline Coefficients<F4> ReadCoefficients(const VtqrTriangleAccel& tri,
                                                                TileLanes) {
  const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(&tri.nu));   // c1..c4
  const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(&tri.pv));  // c5..c8
  auto lane = [](__m128i words, auto k) {
    return F4(_mm_castsi128_ps(_mm_shuffle_epi32(words, decltype(k)::value * 0x55)));
  };
  using std::integral_constant;
  return {lane(low, integral_constant<int, 0>{}),
          lane(low, integral_constant<int, 1>{}),
          lane(low, integral_constant<int, 2>{}),
          lane(low, integral_constant<int, 3>{}),
          lane(high, integral_constant<int, 0>{}),
          lane(high, integral_constant<int, 1>{}),
          lane(high, integral_constant<int, 2>{}),
          lane(high, integral_constant<int, 3>{}),
          F4(tri.e1v)};
}

// The ray as the test of one record sees it: direction and origin components on the record's
// axes a1 (u), a0 (v) and a2 (k).
template <class F>
struct RayOnAxes {
  F du, dv, dk, eu, ev, ek;
};

// The test itself, written once for every way its inputs are gathered: in each lane, whether
// the ray passes the triangle, with its quantities in *cut.
template <class F>
[[gnu::always_inline]] inline auto PassesTriangle(const Coefficients<F>& c, const RayOnAxes<F>& ray,
                                                  TriangleCut<F>* cut) {
  const F den = c.nu * ray.du + c.nv * ray.dv + ray.dk;
  const F p = c.pu - ray.eu;
  const F q = c.pv - ray.ev;
  const F num = c.pk + c.nu * p + c.nv * q - ray.ek;
  const F s = ray.du * num - p * den;
  const F r = ray.dv * num - q * den;
  const F beta = c.e2v * s - c.e2u * r;
  const F gamma = c.e1u * r - c.e1v * s;
  const F rest = den - beta - gamma;
  *cut = {den, beta, gamma, num};
  return (rest * beta >= 0.0f) & (beta * gamma >= 0.0f) & (rest * gamma >= 0.0f);
}

// Lane bits of the rays that pass the test of record `tri`, their quantities in *cut. The
// caller skips records whose axes word is 0.
template <class L>
[[gnu::always_inline]] inline int TestTriangle(const VtqrTriangleAccel& tri, const RayAxes<L>& ray,
                                               TriangleCut<typename L::F>* cut) {
  const uint32_t axes = tri.axes;
  const int a0 = static_cast<int>(axes & 3);         // v
  const int a1 = static_cast<int>((axes >> 2) & 3);  // u
  const int a2 = static_cast<int>((axes >> 4) & 3);  // k
  const RayOnAxes<typename L::F> seen = {ray.dir[a1], ray.dir[a0], ray.dir[a2],
                                         ray.org[a1], ray.org[a0], ray.org[a2]};
  return LaneBits(PassesTriangle(ReadCoefficients(tri, L{}), seen, cut));
}

// One ray against four records, one per lane. The records' words are loaded as rows and
// transposed into lanes; the ray's components are picked per lane by the lane's axes, from
// its per-axis arrays (whose fourth entry, 0, is what an axis number 3 reads, as with one
// record). Returns the axes words in *axes.
[[gnu::always_inline]] inline Coefficients<F4> ReadFourRecords(
    const VtqrTriangleAccel* const tri[4], I4* axes) {
  auto words = [&](int k, int first) {
    return _mm_loadu_ps(reinterpret_cast<const float*>(tri[k]) + first);
  };
  __m128 w0 = words(0, 0), w1 = words(1, 0), w2 = words(2, 0), w3 = words(3, 0);  // axes, c1..c3
  __m128 x0 = words(0, 4), x1 = words(1, 4), x2 = words(2, 4), x3 = words(3, 4);  // c4..c7
  __m128 y0 = words(0, 6), y1 = words(1, 6), y2 = words(2, 6), y3 = words(3, 6);  // c6..c9
  _MM_TRANSPOSE4_PS(w0, w1, w2, w3);
  _MM_TRANSPOSE4_PS(x0, x1, x2, x3);
  _MM_TRANSPOSE4_PS(y0, y1, y2, y3);
  *axes = I4(_mm_castps_si128(w0));
  return {F4(w1), F4(w2), F4(w3), F4(x0), F4(x1), F4(x2), F4(x3), F4(y2), F4(y3)};
}

[[gnu::always_inline]] inline int TestFourTriangles(const VtqrTriangleAccel* const tri[4],
                                                    const RayAxes<OneLane>& ray,
                                                    TriangleCut<F4>* cut) {
  I4 axes;
  const Coefficients<F4> c = ReadFourRecords(tri, &axes);
  const I4 a0(_mm_and_si128(axes.v, _mm_set1_epi32(3)));
  const I4 a1(_mm_and_si128(_mm_srli_epi32(axes.v, 2), _mm_set1_epi32(3)));
  const I4 a2(_mm_and_si128(_mm_srli_epi32(axes.v, 4), _mm_set1_epi32(3)));
  const F4 dir(_mm_loadu_ps(ray.dir));
  const F4 org(_mm_loadu_ps(ray.org));
  const RayOnAxes<F4> seen = {Permute(dir, a1), Permute(dir, a0), Permute(dir, a2),
                              Permute(org, a1), Permute(org, a0), Permute(org, a2)};
  const int zeroArea = NegativeBits(I4(_mm_cmpeq_epi32(axes.v, _mm_setzero_si128())));
  return LaneBits(PassesTriangle(c, seen, cut)) & ~zeroArea;
}

}  // namespace rays
VTQR_PATH_END

#endif  // VTQR_RAYCAST_TRIANGLE_TEST_H_
