// The ray/triangle test as the library's header documents it, written apart from the library's
// code: the reference that the intersection tests and the benchmark's result check hold the
// walk's hits against.
#ifndef VTQR_TESTS_SUPPORT_TRIANGLE_REFERENCE_H_
#define VTQR_TESTS_SUPPORT_TRIANGLE_REFERENCE_H_

#include "vtqr/accel.h"

namespace vtqr::test {

struct TriangleHit {
  float t, u, v;
};

// Whether the ray E + tD passes inside record `tri`, and then its t, u and v. Any t is returned:
// the caller decides which distances count as hits.
inline bool TriangleReference(const VtqrTriangleAccel& tri, const float e[3], const float d[3],
                              TriangleHit* hit) {
  if (tri.axes == 0) return false;  // zero area: never hit
  const unsigned a0 = tri.axes & 3, a1 = (tri.axes >> 2) & 3, a2 = (tri.axes >> 4) & 3;
  const float den = tri.nu * d[a1] + tri.nv * d[a0] + d[a2];
  const float p = tri.pu - e[a1], q = tri.pv - e[a0];
  const float num = tri.pk + tri.nu * p + tri.nv * q - e[a2];
  const float s = d[a1] * num - p * den, r = d[a0] * num - q * den;
  const float beta = tri.e2v * s - tri.e2u * r, gamma = tri.e1u * r - tri.e1v * s;
  const float rest = den - beta - gamma;
  if (!(rest * beta >= 0 && beta * gamma >= 0 && rest * gamma >= 0)) return false;
  *hit = {num / den, beta / den, gamma / den};
  return true;
}

}  // namespace vtqr::test

#endif  // VTQR_TESTS_SUPPORT_TRIANGLE_REFERENCE_H_
