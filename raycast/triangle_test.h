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
template <class L>
struct TriangleCut {
  typename L::F den, beta, gamma, num;
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

// Lane bits of the rays that pass the test of record `tri` (words 0 to 9 as c1 to c9 of the
// record's layout), their quantities in *cut. The caller skips records whose axes word is 0.
template <class L>
[[gnu::always_inline]] inline int TestTriangle(const VtqrTriangleAccel& tri, const RayAxes<L>& ray,
                                               TriangleCut<L>* cut) {
  using F = typename L::F;
  const uint32_t axes = tri.axes;
  const int a0 = static_cast<int>(axes & 3);         // v
  const int a1 = static_cast<int>((axes >> 2) & 3);  // u
  const int a2 = static_cast<int>((axes >> 4) & 3);  // k
  const auto c = ReadCoefficients(tri, L{});
  const F den = c.nu * ray.dir[a1] + c.nv * ray.dir[a0] + ray.dir[a2];
  const F p = c.pu - ray.org[a1];
  const F q = c.pv - ray.org[a0];
  const F num = c.pk + c.nu * p + c.nv * q - ray.org[a2];
  const F s = ray.dir[a1] * num - p * den;
  const F r = ray.dir[a0] * num - q * den;
  const F beta = c.e2v * s - c.e2u * r;
  const F gamma = c.e1u * r - c.e1v * s;
  const F rest = den - beta - gamma;
  *cut = {den, beta, gamma, num};
  return LaneBits((rest * beta >= 0.0f) & (beta * gamma >= 0.0f) & (rest * gamma >= 0.0f));
}

}  // namespace rays
VTQR_PATH_END

#endif  // VTQR_RAYCAST_TRIANGLE_TEST_H_
