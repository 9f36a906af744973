// Closed-form spherical harmonics: accuracy against an independent long-double reference, the
// listed values of bands 0 to 2, the paired (two-lane) path against the one-direction path, the
// one-band export against the full set, and the one-band export's argument checks.

// The internal kernels live in the u8 namespace, the only path this subsystem is built for.
#define VTQR_PATH u8
#define VTQR_PATH_INDEX 0
#include "sh/sh_direct.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <random>
#include <vector>

#include "sh/sh_reference.h"
#include "test_util.h"

namespace vtqr {
namespace {

using test::Bits;
using test::FromBits;
using test::kBothPaths;
using test::PathName;
using test::SameBits;
using test::Sentinel;

constexpr int kMaxBand = 15;
constexpr size_t SetSize(int order) { return static_cast<size_t>((order + 1) * (order + 1)); }

struct Directions {
  std::vector<float> x, y, z;
  void Add(double dx, double dy, double dz) {
    const double r = std::sqrt(dx * dx + dy * dy + dz * dz);
    x.push_back(static_cast<float>(dx / r));
    y.push_back(static_cast<float>(dy / r));
    z.push_back(static_cast<float>(dz / r));
  }
  int Count() const { return static_cast<int>(x.size()); }
};

// Uniform random unit directions, plus the places polynomials go wrong first: poles, axes,
// diagonals (where x^2 - y^2 cancels), the cone z^2 = 1/3 (3z^2 - 1 cancels) and directions a
// hair off a pole.
Directions TestDirections(int randomCount, unsigned seed) {
  Directions d;
  for (int sx : {-1, 0, 1}) {
    for (int sy : {-1, 0, 1}) {
      for (int sz : {-1, 0, 1}) {
        if (sx != 0 || sy != 0 || sz != 0) d.Add(sx, sy, sz);
      }
    }
  }
  for (double tiny : {1e-3, 1e-7, 1e-20}) {
    d.Add(tiny, -tiny, 1);
    d.Add(-tiny, 2 * tiny, -1);
  }
  std::mt19937 rng(seed);
  std::normal_distribution<double> normal;
  while (d.Count() < randomCount) d.Add(normal(rng), normal(rng), normal(rng));
  return d;
}

// Error budget of the direct method against the exact value of its polynomial. The rounding
// of x^2, y^2 and z^2 to float moves each value by up to the polynomial's slope times a relative
// 2^-25 of the input; that slope grows like l^2 (Markov's inequality), which measured 27 units
// of 2^-24 * N(l) at band 15 (3000 directions) and 0.12 * l^2 at every band. The bound allows
// twice that plus one float ulp for the final rounding, where N(l) = sqrt((2l+1)/(4 pi)) bounds
// every |Y(l, m)| on the sphere. A wrong constant, sign or polynomial term misses by ~N(l).
long double AllowedError(int l, long double reference) {
  const float r = static_cast<float>(std::fabs(reference));
  const long double ulp = std::nextafter(r, INFINITY) - r;
  return ulp + (l * l / 4.0L + 2.0L) * 0x1p-24L * test::ShNormalisation(l, 0);
}

TEST(ShDirect, MatchesLongDoubleReference) {
  const Directions d = TestDirections(3000, 11);
  std::vector<float> out(SetSize(kMaxBand) * d.Count());
  u8::sh::EvalDirect(d.x.data(), d.y.data(), d.z.data(), d.Count(), out.data(), kMaxBand);
  for (int i = 0; i < d.Count(); ++i) {
    const std::vector<long double> ref = test::ShReferenceSet(kMaxBand, d.x[i], d.y[i], d.z[i]);
    const float* set = out.data() + i * SetSize(kMaxBand);
    for (int l = 0; l <= kMaxBand; ++l) {
      for (int m = -l; m <= l; ++m) {
        const size_t k = static_cast<size_t>(l * l + l + m);
        ASSERT_LE(std::fabs(set[k] - ref[k]), AllowedError(l, ref[k]))
            << "Y(" << l << ", " << m << ") at (" << d.x[i] << ", " << d.y[i] << ", " << d.z[i]
            << "): got " << set[k] << ", want " << static_cast<double>(ref[k]);
      }
    }
  }
}

// Values with known bits: Y(0,0) is the float 0x3E906EBB; the others are the nearest floats
// to the listed decimals.
TEST(ShDirect, ListedValues) {
  const float kY00 = FromBits(0x3E906EBB);
  struct Case {
    float x, y, z;
    unsigned order;
    std::vector<float> want;
  };
  const Case cases[] = {
      {0, 0, 1, 0, {kY00}},
      {0, 0, 1, 2, {kY00, 0, 0.48860252f, 0, 0, 0, 0.63078313f, 0, 0}},
      {1, 0, 0, 1, {kY00, 0, 0, -0.48860252f}},
      {0, 1, 0, 2, {kY00, -0.48860252f, 0, 0, 0, 0, -0.31539156525252f, 0, -0.5462742152960396f}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << "(" << c.x << ", " << c.y << ", " << c.z << ") order "
                                      << c.order);
    std::vector<float> got(SetSize(static_cast<int>(c.order)));
    ASSERT_EQ(got.size(), c.want.size());
    u8::sh::EvalDirect(&c.x, &c.y, &c.z, 1, got.data(), c.order);
    // +0 and -0 both stand for the listed zeros.
    for (float& v : got) v = v == 0 ? 0.0f : v;
    EXPECT_TRUE(SameBits(c.want.data(), got.data(), got.size()));
  }
}

// Directions travel in pairs through the two-lane path and alone through the one-lane path;
// every count must give each direction the same bits, and write nothing past the last set.
// A lower order's set is the leading part of a higher order's.
TEST(ShDirect, PairedLanesMatchOneDirectionPath) {
  const Directions d = TestDirections(40, 5);
  std::vector<float> full(SetSize(kMaxBand) * d.Count());
  for (int i = 0; i < d.Count(); ++i) {
    u8::sh::EvalDirect(&d.x[i], &d.y[i], &d.z[i], 1, &full[i * SetSize(kMaxBand)], kMaxBand);
  }
  for (int n : {1, 2, 3, 17}) {
    for (unsigned order : {0u, 1u, 2u, 3u, 8u, 14u, 15u}) {
      SCOPED_TRACE(::testing::Message() << "n " << n << ", order " << order);
      const size_t setSize = SetSize(static_cast<int>(order));
      std::vector<float> out(setSize * n + 4, Sentinel());
      // Start at an odd direction so the pairs differ from the ones above.
      u8::sh::EvalDirect(&d.x[3], &d.y[3], &d.z[3], n, out.data(), order);
      for (int i = 0; i < n; ++i) {
        ASSERT_TRUE(SameBits(&full[(i + 3) * SetSize(kMaxBand)], &out[i * setSize], setSize))
            << "direction " << i;
      }
      for (size_t k = setSize * n; k < out.size(); ++k) ASSERT_EQ(Bits(out[k]), Bits(Sentinel()));
    }
  }
}

// The one-band export gives each band's values with the bits of vtqrSH_32f's direct set, on
// both paths, for pairs and an odd tail, and writes exactly n * (2 band + 1) values.
TEST(ShBand, MatchesSliceOfDirectSet) {
  const Directions d = TestDirections(17, 9);
  const int n = d.Count();
  for (CodePath path : kBothPaths) {
    VtqrSHState state[2];  // more than the 16 bytes a direct state needs
    ASSERT_EQ(kDispatchTable.SHInit_32f[path](state, kMaxBand, vtqrSHDirect), vtqStsOk);
    std::vector<float> full(SetSize(kMaxBand) * n);
    ASSERT_EQ(kDispatchTable.SH_32f[path](d.x.data(), d.y.data(), d.z.data(), n, full.data(),
                                          kMaxBand, state),
              vtqStsOk);
    for (unsigned band = 0; band <= kMaxBand; ++band) {
      SCOPED_TRACE(::testing::Message() << PathName(path) << ", band " << band);
      const size_t width = 2 * band + 1;
      std::vector<float> out(width * n + 4, Sentinel());
      ASSERT_EQ(kDispatchTable.SHBand_32f[path](d.x.data(), d.y.data(), d.z.data(), n,
                                                out.data(), band),
                vtqStsOk);
      for (int i = 0; i < n; ++i) {
        ASSERT_TRUE(SameBits(&full[i * SetSize(kMaxBand) + band * band], &out[i * width], width))
            << "direction " << i;
      }
      for (size_t k = width * n; k < out.size(); ++k) ASSERT_EQ(Bits(out[k]), Bits(Sentinel()));
    }
  }
}

// Null pointers first, then the band, then the count; a negative count succeeds doing
// nothing. No failed or empty call writes.
TEST(ShBand, ChecksArgumentsInOrder) {
  const float x[1] = {0}, y[1] = {0}, z[1] = {1};
  struct Case {
    const char* what;
    bool nullX, nullY, nullZ, nullDst;
    Vtq32u band;
    int n;
    VtqStatus want;
  };
  const Case cases[] = {
      {"null x before bad band and zero count", true, false, false, false, 16, 0, vtqStsErrNullPtr},
      {"null y", false, true, false, false, 2, 1, vtqStsErrNullPtr},
      {"null z", false, false, true, false, 2, 1, vtqStsErrNullPtr},
      {"null dst before bad band", false, false, false, true, 99, 1, vtqStsErrNullPtr},
      {"band 16 before zero count", false, false, false, false, 16, 0, vtqStsErrBadValue},
      {"huge band with negative count", false, false, false, false, 0x80000000u, -1,
       vtqStsErrBadValue},
      {"zero count", false, false, false, false, 15, 0, vtqStsErrSize},
      {"negative count", false, false, false, false, 15, -5, vtqStsOk},
      {"most negative count", false, false, false, false, 0, INT32_MIN, vtqStsOk},
  };
  for (CodePath path : kBothPaths) {
    for (const Case& c : cases) {
      SCOPED_TRACE(::testing::Message() << PathName(path) << ": " << c.what);
      std::vector<float> dst(64, Sentinel());
      const VtqStatus got = kDispatchTable.SHBand_32f[path](
          c.nullX ? nullptr : x, c.nullY ? nullptr : y, c.nullZ ? nullptr : z, c.n,
          c.nullDst ? nullptr : dst.data(), c.band);
      EXPECT_EQ(got, c.want);
      for (float v : dst) ASSERT_EQ(Bits(v), Bits(Sentinel()));
    }
  }
}

}  // namespace
}  // namespace vtqr
