// vtqrSH_32f with both methods: check order, exact values, accuracy against a long-double
// reference, and agreement of the four-wide recurrence with the one-direction recurrence.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "sh/sh_reference.h"
#include "test_util.h"
#include "vtqr/sh.h"

namespace vtqr::test {
namespace {

// An initialised state in a buffer of its own.
class State {
 public:
  State(Vtq32u order, int method) : buffer_(4096) {
    EXPECT_EQ(vtqStsOk, kDispatchTable.SHInit_32f[kPathU8](get(), order, method));
  }
  VtqrSHState* get() { return reinterpret_cast<VtqrSHState*>(buffer_.data()); }

 private:
  std::vector<Vtq64u> buffer_;  // 8-byte aligned, as the size query assumes
};

VtqStatus Eval(const float* x, const float* y, const float* z, int n, float* dst, Vtq32u order,
               const VtqrSHState* state, CodePath path = kPathU8) {
  return kDispatchTable.SH_32f[path](x, y, z, n, dst, order, state);
}

// Unit directions, a few on the axes and the rest random.
void Directions(int n, uint32_t seed, float* x, float* y, float* z) {
  std::mt19937 rng(seed);
  std::normal_distribution<double> normal;
  for (int i = 0; i < n; ++i) {
    double v[3] = {normal(rng), normal(rng), normal(rng)};
    if (i % 7 == 3) v[0] = v[1] = 0.0;  // the poles
    if (i % 7 == 5) v[2] = 0.0;         // the equator
    const double r = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    x[i] = static_cast<float>(v[0] / r);
    y[i] = static_cast<float>(v[1] / r);
    z[i] = static_cast<float>(v[2] / r);
  }
}

TEST(SHEval, ChecksInOrderAndWritesNothingOnFailure) {
  State direct(2, vtqrSHDirect), recurrence(2, vtqrSHRecurrence);
  // Hand-made records reach the kernels' own order limits, which the init never produces
  // for the direct method and the size of any real buffer forbids for huge recurrence orders.
  State base15(15, vtqrSHRecurrence);
  VtqrSHState directHigh = {20, vtqrSHDirect, nullptr, nullptr};
  VtqrSHState recurrenceHuge = *base15.get();
  recurrenceHuge.maxOrder = 0xFFFFFFFFu;
  VtqrSHState garbage = {15, 7, nullptr, nullptr};

  const float x[] = {0.0f}, y[] = {0.0f}, z[] = {1.0f};
  struct Row {
    const char* name;
    int nullArg;  // 0..4 = pX, pY, pZ, pDst, pState; -1 none
    const VtqrSHState* state;
    int n;
    Vtq32u order;
    VtqStatus status;
  };
  const Row rows[] = {
      {"null pX before count", 0, direct.get(), 0, 3, vtqStsErrNullPtr},
      {"null pY", 1, direct.get(), 1, 0, vtqStsErrNullPtr},
      {"null pZ", 2, direct.get(), 1, 0, vtqStsErrNullPtr},
      {"null pDst", 3, direct.get(), 1, 0, vtqStsErrNullPtr},
      {"null state", 4, nullptr, 1, 0, vtqStsErrNullPtr},
      {"count before order", -1, direct.get(), 0, 3, vtqStsErrSize},
      {"count before method", -1, &garbage, 0, 1, vtqStsErrSize},
      {"order above maxOrder", -1, direct.get(), 1, 3, vtqStsErrBadValue},
      {"order above maxOrder, negative n", -1, recurrence.get(), -1, 3, vtqStsErrBadValue},
      {"uninitialised state", -1, &garbage, 1, 1, vtqStsErrBadValue},
      {"uninitialised state, negative n", -1, &garbage, -3, 1, vtqStsErrBadValue},
      {"direct kernel limit", -1, &directHigh, 1, 16, vtqStsErrBadValue},
      {"direct limit before count", -1, &directHigh, -1, 16, vtqStsErrBadValue},
      {"recurrence limit", -1, &recurrenceHuge, 1, 16, vtqStsErrBadValue},
      {"recurrence order negative as int", -1, &recurrenceHuge, -1, 0x80000000u,
       vtqStsErrBadValue},
      {"negative n, direct", -1, direct.get(), -5, 2, vtqStsOk},
      {"negative n, recurrence", -1, recurrence.get(), INT_MIN, 2, vtqStsOk},
  };
  for (CodePath path : kBothPaths) {
    for (const Row& row : rows) {
      std::vector<float> dst(16, Sentinel());
      const float* px = row.nullArg == 0 ? nullptr : x;
      const float* py = row.nullArg == 1 ? nullptr : y;
      const float* pz = row.nullArg == 2 ? nullptr : z;
      float* pd = row.nullArg == 3 ? nullptr : dst.data();
      EXPECT_EQ(row.status, Eval(px, py, pz, row.n, pd, row.order, row.state, path))
          << PathName(path) << ": " << row.name;
      for (float v : dst) ASSERT_EQ(kSentinelBits, Bits(v)) << row.name;
    }
  }
}

TEST(SHEval, ListedValues) {
  struct Row {
    float x, y, z;
    Vtq32u order;
    std::vector<float> values;
  };
  const Row rows[] = {
      {0, 0, 1, 2, {0.28209479f, 0, 0.48860252f, 0, 0, 0, 0.63078313f, 0, 0}},
      {1, 0, 0, 1, {0.28209479f, 0, 0, -0.48860252f}},
  };
  State direct(2, vtqrSHDirect), recurrence(2, vtqrSHRecurrence);
  for (const Row& row : rows) {
    std::vector<float> out(row.values.size());
    ASSERT_EQ(vtqStsOk, Eval(&row.x, &row.y, &row.z, 1, out.data(), row.order, direct.get()));
    for (size_t k = 0; k < out.size(); ++k) EXPECT_FLOAT_EQ(row.values[k], out[k]) << k;
    // The recurrence starts from the table's own constants, 0x3EFA2A1D for band 1 where the
    // direct method rounds 0.4886025119029199 * 1 to 0x3EFA2A1C; otherwise close.
    ASSERT_EQ(vtqStsOk,
              Eval(&row.x, &row.y, &row.z, 1, out.data(), row.order, recurrence.get()));
    EXPECT_EQ(0x3E906EBBu, Bits(out[0]));
    for (size_t k = 0; k < out.size(); ++k) EXPECT_NEAR(row.values[k], out[k], 1e-7) << k;
  }
}

// Maximum error of the method against the long-double reference over random directions, per
// band, in units of 2^-23 times the band's scale sqrt((2l+1)/(4 pi)), a bound of its values.
//
// Neither method is correctly rounded. The direct method evaluates in double but rounds the
// squares of the components to float before use, so a band-l polynomial carries about l/2
// such relative errors: observed up to 0.26 (l+1), bound (l+1)/2. The recurrence adds a few
// float roundings per band, each relative to values of the band's scale; the forward
// recurrence in l is stable for associated Legendre functions, so the error grows about
// linearly with l: observed up to 0.7 (l+1), bound 2 (l+1).
TEST(SHEval, AgreesWithReference) {
  constexpr int kCount = 400;
  std::vector<float> x(kCount), y(kCount), z(kCount);
  Directions(kCount, 7, x.data(), y.data(), z.data());
  const double ulp = std::ldexp(1.0, -23);
  for (int method : {vtqrSHDirect, vtqrSHRecurrence}) {
    State state(15, method);
    for (Vtq32u order : {0u, 1u, 2u, 15u}) {
      const size_t setSize = (order + 1) * (order + 1);
      std::vector<float> out(kCount * setSize);
      ASSERT_EQ(vtqStsOk, Eval(x.data(), y.data(), z.data(), kCount, out.data(), order,
                               state.get()));
      for (int i = 0; i < kCount; ++i) {
        const auto reference = ShReferenceSet(static_cast<int>(order), x[i], y[i], z[i]);
        for (int l = 0; l <= static_cast<int>(order); ++l) {
          const double scale = std::sqrt((2.0 * l + 1.0) / (4.0 * M_PI));
          const double bound = (method == vtqrSHDirect ? 0.5 : 2.0) * (l + 1) * ulp * scale;
          for (int m = -l; m <= l; ++m) {
            const size_t k = l * l + l + m;
            const double error = std::abs(out[i * setSize + k] - double(reference[k]));
            ASSERT_LE(error, bound) << "method " << method << " direction " << i << " l "
                                    << l << " m " << m;
          }
        }
      }
    }
  }
}

// The recurrence runs eight or four directions side by side in SSE registers and the
// leftovers one at a time; any direction must come out the same whichever way it went,
// whatever the arrays' alignment.
TEST(SHEval, BatchedRecurrenceMatchesOneDirection) {
  State state(15, vtqrSHRecurrence);
  for (Vtq32u order : {0u, 1u, 2u, 3u, 6u, 7u, 15u}) {
    const size_t setSize = (order + 1) * (order + 1);
    for (int n : {1, 2, 3, 4, 5, 6, 7, 8, 9, 13, 17}) {
      for (size_t offset : {0u, 1u, 3u}) {
        AlignedFloats x(n, offset), y(n, offset + 1), z(n, 2 * offset), dst(n * setSize, offset);
        Directions(n, 100 + n, x.data(), y.data(), z.data());
        ASSERT_EQ(vtqStsOk, Eval(x.data(), y.data(), z.data(), n, dst.data(), order,
                                 state.get()));
        for (int i = 0; i < n; ++i) {
          std::vector<float> alone(setSize);
          ASSERT_EQ(vtqStsOk, Eval(&x[i], &y[i], &z[i], 1, alone.data(), order, state.get()));
          ASSERT_TRUE(SameBits(alone.data(), dst.data() + i * setSize, setSize))
              << "order " << order << " n " << n << " direction " << i;
        }
      }
    }
  }
}

// Outputs of 16 MiB and more leave through non-temporal stores when the destination allows.
TEST(SHEval, StreamedOutputMatchesCachedOutput) {
  State state(15, vtqrSHRecurrence);
  constexpr int kCount = 16384 + 5;
  constexpr size_t kSet = 256;
  std::vector<float> x(kCount), y(kCount), z(kCount);
  Directions(kCount, 3, x.data(), y.data(), z.data());
  AlignedFloats streamed(kCount * kSet), cached(kCount * kSet, 1);  // aligned vs not
  ASSERT_EQ(vtqStsOk,
            Eval(x.data(), y.data(), z.data(), kCount, streamed.data(), 15, state.get()));
  ASSERT_EQ(vtqStsOk,
            Eval(x.data(), y.data(), z.data(), kCount, cached.data(), 15, state.get()));
  EXPECT_TRUE(SameBits(cached.data(), streamed.data(), kCount * kSet));
  std::vector<float> alone(kSet);
  ASSERT_EQ(vtqStsOk, Eval(&x[4321], &y[4321], &z[4321], 1, alone.data(), 15, state.get()));
  EXPECT_TRUE(SameBits(alone.data(), streamed.data() + 4321 * kSet, kSet));
}

}  // namespace
}  // namespace vtqr::test
