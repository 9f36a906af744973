// Long-double reference for the real spherical harmonics, by a different road than the library's
// closed-form polynomials: the associated Legendre three-term recurrence in z, and the azimuth
// from atan2 with cos/sin of m*phi.
//
// The value is taken as the function of the given (x, y, z) that both of the library's methods
// compute, which for a unit vector is the spherical harmonic: Y(l, m) = N(l, m) * R(l, m)(z) *
// rho^m * trig(m*phi), where rho = hypot(x, y), phi = atan2(y, x) and R(l, m)(z) =
// P(l, m)(z) / (1-z^2)^(m/2) is the polynomial part of the associated Legendre function. Float
// inputs are never exactly unit vectors; keeping rho^m instead of sin(theta)^m makes the
// reference agree with the polynomials on every input, so comparisons measure evaluation
// error alone and not the inputs' distance from the sphere.
#ifndef VTQR_TESTS_SH_SH_REFERENCE_H_
#define VTQR_TESTS_SH_SH_REFERENCE_H_

#include <cmath>
#include <vector>

namespace vtqr::test {

inline constexpr int kShMaxBand = 15;

// sqrt((2l+1)/(4 pi) (l-m)!/(l+m)!) for m >= 0.
inline long double ShNormalisation(int l, int m) {
  long double ratio = 1.0L;  // (l-m)!/(l+m)!
  for (int k = l - m + 1; k <= l + m; ++k) ratio /= k;
  const long double pi = 3.141592653589793238462643383279502884L;
  return std::sqrt((2 * l + 1) / (4 * pi) * ratio);
}

// R(l, m)(z) for m >= 0 by the recurrence in l, starting from
// R(m, m) = (-1)^m (2m-1)!!, R(m+1, m) = (2m+1) z R(m, m),
// (l-m) R(l, m) = (2l-1) z R(l-1, m) - (l+m-1) R(l-2, m).
inline long double ShLegendrePart(int l, int m, long double z) {
  long double diag = 1.0L;
  for (int k = 1; k <= m; ++k) diag *= -(2.0L * k - 1.0L);
  if (l == m) return diag;
  long double prev = diag;
  long double cur = (2.0L * m + 1.0L) * z * diag;
  for (int k = m + 2; k <= l; ++k) {
    const long double next = ((2.0L * k - 1.0L) * z * cur - (k + m - 1.0L) * prev) / (k - m);
    prev = cur;
    cur = next;
  }
  return cur;
}

// Y(l, m) at (x, y, z), |m| <= l <= 15.
inline long double ShReference(int l, int m, long double x, long double y, long double z) {
  const int am = m < 0 ? -m : m;
  long double value = ShNormalisation(l, am) * ShLegendrePart(l, am, z);
  if (am == 0) return value;
  const long double rho = std::hypot(x, y);
  const long double phi = std::atan2(y, x);
  const long double trig = m > 0 ? std::cos(am * phi) : std::sin(am * phi);
  return std::sqrt(2.0L) * value * std::pow(rho, static_cast<long double>(am)) * trig;
}

// The full set of bands 0..order, Y(l, m) at l*l + l + m.
inline std::vector<long double> ShReferenceSet(int order, long double x, long double y,
                                               long double z) {
  std::vector<long double> set;
  set.reserve(static_cast<size_t>((order + 1) * (order + 1)));
  for (int l = 0; l <= order; ++l) {
    for (int m = -l; m <= l; ++m) set.push_back(ShReference(l, m, x, y, z));
  }
  return set;
}

}  // namespace vtqr::test

#endif  // VTQR_TESTS_SH_SH_REFERENCE_H_
