// Shared by the SH tests: a long-double reference for the real spherical harmonics, state buffers
// and test directions.
//
// The reference takes a different road than either of the library's methods: the associated
// Legendre three-term recurrence in z, and the azimuth from atan2 with cos/sin of m*phi. It is the
// function of (x, y, z) that both methods compute, Y(l, m) = N(l, m) * R(l, m)(z) * rho^m *
// trig(m*phi), with rho = hypot(x, y) and R(l, m)(z) = P(l, m)(z) / (1-z^2)^(m/2). Float inputs are
// never exactly unit vectors; keeping rho^m instead of sin(theta)^m makes the reference agree with
// the polynomials on every input, so comparisons measure evaluation error alone.
#ifndef VTQR_TESTS_SH_SH_TEST_UTIL_H_
#define VTQR_TESTS_SH_SH_TEST_UTIL_H_

#include <cmath>
#include <random>
#include <vector>

#include "test_util.h"
#include "vtqr/sh.h"

namespace vtqr::test {

inline constexpr int kMethods[] = {vtqrSHDirect, vtqrSHRecurrence};

inline size_t SetSize(Vtq32u order) { return size_t{order + 1} * (order + 1); }

// sqrt((2l+1)/(4 pi) (l-m)!/(l+m)!) for m >= 0; for m = 0 it bounds every |Y(l, m)|.
inline long double ShNormalisation(int l, int m) {
  long double ratio = 1.0L;
  for (int k = l - m + 1; k <= l + m; ++k) ratio /= k;
  return std::sqrt((2 * l + 1) / (4 * 3.141592653589793238462643383279502884L) * ratio);
}

// Y(l, m) at (x, y, z), |m| <= l. R(l, m) by the recurrence in l from R(m, m) = (-1)^m (2m-1)!!,
// R(m+1, m) = (2m+1) z R(m, m), (l-m) R(l, m) = (2l-1) z R(l-1, m) - (l+m-1) R(l-2, m).
inline long double ShReference(int l, int m, long double x, long double y, long double z) {
  const int am = std::abs(m);
  long double prev = 0.0L, cur = 1.0L;
  for (int k = 1; k <= am; ++k) cur *= -(2.0L * k - 1.0L);
  for (int k = am + 1; k <= l; ++k) {
    const long double next = ((2.0L * k - 1.0L) * z * cur - (k + am - 1.0L) * prev) / (k - am);
    prev = cur;
    cur = next;
  }
  const long double value = ShNormalisation(l, am) * cur;
  if (am == 0) return value;
  const long double phi = std::atan2(y, x);
  return std::sqrt(2.0L) * value * std::pow(std::hypot(x, y), static_cast<long double>(am)) *
         (m > 0 ? std::cos(am * phi) : std::sin(am * phi));
}

// The full set of bands 0..order, Y(l, m) at l*l + l + m.
inline std::vector<long double> ShReferenceSet(int order, long double x, long double y,
                                               long double z) {
  std::vector<long double> set;
  for (int l = 0; l <= order; ++l) {
    for (int m = -l; m <= l; ++m) set.push_back(ShReference(l, m, x, y, z));
  }
  return set;
}

// An initialised state in a buffer of its own, 8-byte aligned as the size query assumes.
struct State {
  std::vector<Vtq64u> buffer = std::vector<Vtq64u>(512);
  State(Vtq32u order, int method) {
    EXPECT_EQ(vtqStsOk, kDispatchTable.SHInit_32f[kPathU8](get(), order, method));
  }
  VtqrSHState *get() { return reinterpret_cast<VtqrSHState *>(buffer.data()); }
};

inline VtqStatus Eval(const float *x, const float *y, const float *z, int n, float *dst,
                      Vtq32u order, const VtqrSHState *state) {
  return kDispatchTable.SH_32f[kPathU8](x, y, z, n, dst, order, state);
}

// Random unit directions; with `special`, followed by the places evaluation goes wrong first:
// poles, axes, diagonals (x^2 - y^2 cancels) and directions a hair off a pole.
struct Directions {
  std::vector<float> x, y, z;
  Directions(int randomCount, unsigned seed, bool special = false) {
    std::mt19937 rng(seed);
    std::normal_distribution<double> normal;
    for (int i = 0; i < randomCount; ++i) Add(normal(rng), normal(rng), normal(rng));
    for (int i = 0; special && i < 27; ++i) {
      if (i != 13) Add(i % 3 - 1, i / 3 % 3 - 1, i / 9 - 1);
    }
    for (double tiny : {1e-3, 1e-7, 1e-20}) {
      if (special) Add(tiny, -tiny, 1), Add(-tiny, 2 * tiny, -1);
    }
  }
  void Add(double dx, double dy, double dz) {
    const double r = std::sqrt(dx * dx + dy * dy + dz * dz);
    x.push_back(static_cast<float>(dx / r));
    y.push_back(static_cast<float>(dy / r));
    z.push_back(static_cast<float>(dz / r));
  }
  int count() const { return static_cast<int>(x.size()); }
};

}  // namespace vtqr::test

#endif  // VTQR_TESTS_SH_SH_TEST_UTIL_H_
