// Argument checks of every evaluating call, and the transforms: the forward transform's exact
// rounding sequence and the sample value rules.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <vector>

#include "sh/sh_test_util.h"

namespace vtqr::test {
namespace {

enum Fn { kSH, kBand, kFwdC1I, kFwdC3P3I, kFwdP3I, kInvC1, kInvP3, kInvP3C3 };
const char *const kFnNames[] = {"SH",     "Band",  "FwdC1I", "FwdC3P3I",
                                "FwdP3I", "InvC1", "InvP3",  "InvP3C3"};

// Directions, three sample planes (the interleaved form reads them as one array), three coefficient
// arrays of 256 and three output planes.
struct Buffers {
  static constexpr int kN = 64;
  Directions d;
  std::vector<float> samples, coeff, out;
  explicit Buffers(unsigned seed) : d(kN, seed), samples(3 * kN), coeff(3 * 256), out(3 * kN) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> uniform(-2.0f, 2.0f);
    for (float &v : samples) v = uniform(rng);
    for (float &v : coeff) v = uniform(rng);
  }
  float *sample(int c) { return &samples[c * kN]; }
  float *coeffs(int c) { return &coeff[c * 256]; }
  float *outs(int c) { return &out[c * kN]; }
  // Outputs filled with the sentinel, to show that a call wrote nothing.
  void Poison() {
    std::fill(coeff.begin(), coeff.end(), Sentinel());
    std::fill(out.begin(), out.end(), Sentinel());
  }
  bool Untouched() const {
    auto sentinel = [](float f) { return Bits(f) == kSentinelBits; };
    return std::all_of(coeff.begin(), coeff.end(), sentinel) &&
           std::all_of(out.begin(), out.end(), sentinel);
  }
};

// Hands out the pointer arguments of a call in turn, nulling the one numbered `target`.
struct Nuller {
  int target = -1, next = 0;
  template <class T>
  T *operator()(T *p) {
    return next++ == target ? nullptr : p;
  }
};

VtqStatus Call(Fn fn, Buffers &b, int n, Vtq32u order, const VtqrSHState *state,
               Nuller *nuller = nullptr) {
  Nuller none, &p = nuller ? *nuller : none;
  const DispatchTable &t = kDispatchTable;
  const float *x = p(b.d.x.data()), *y = p(b.d.y.data()), *z = p(b.d.z.data());
  switch (fn) {
    case kSH:
      return t.SH_32f[kPathU8](x, y, z, n, p(b.out.data()), order, p(state));
    case kBand:
      return t.SHBand_32f[kPathU8](x, y, z, n, p(b.out.data()), order);
    case kFwdC1I:
      return t.SHTFwd_32f_C1I[kPathU8](x, y, z, p(b.samples.data()), n, p(b.coeffs(0)), order,
                                       p(state));
    case kFwdC3P3I: {
      float *const dst[3] = {p(b.coeffs(0)), p(b.coeffs(1)), p(b.coeffs(2))};
      return t.SHTFwd_32f_C3P3I[kPathU8](x, y, z, p(b.samples.data()), n, p(dst), order, p(state));
    }
    case kFwdP3I: {
      const float *const src[3] = {p(b.sample(0)), p(b.sample(1)), p(b.sample(2))};
      float *const dst[3] = {p(b.coeffs(0)), p(b.coeffs(1)), p(b.coeffs(2))};
      return t.SHTFwd_32f_P3I[kPathU8](x, y, z, p(src), n, p(dst), order, p(state));
    }
    case kInvC1:
      return t.SHTInv_32f_C1[kPathU8](p(b.coeffs(0)), order, x, y, z, p(b.out.data()), n, p(state));
    case kInvP3: {
      const float *const src[3] = {p(b.coeffs(0)), p(b.coeffs(1)), p(b.coeffs(2))};
      float *const dst[3] = {p(b.outs(0)), p(b.outs(1)), p(b.outs(2))};
      return t.SHTInv_32f_P3[kPathU8](p(src), order, x, y, z, p(dst), n, p(state));
    }
    case kInvP3C3: {
      const float *const src[3] = {p(b.coeffs(0)), p(b.coeffs(1)), p(b.coeffs(2))};
      return t.SHTInv_32f_P3C3[kPathU8](p(src), order, x, y, z, p(b.out.data()), n, p(state));
    }
  }
  return -99;
}

// Every call checks its pointers first, each one nulled in turn (each plane of a three-plane
// argument too), then its own sequence of count, order and state: the rows give the status of
// vtqrSH_32f, of vtqrSHBand_32f (the order is its band; it has no state) and of the six transforms.
// A failed call, or one with a negative count, writes nothing.
TEST(SHCalls, ChecksInOrderAndWritesNothingOnFailure) {
  State direct(2, vtqrSHDirect), recurrence20(20, vtqrSHRecurrence);
  // Hand-made records reach the kernels' own order limits, which init never produces.
  const VtqrSHState directHigh = {20, vtqrSHDirect, nullptr, nullptr};
  const VtqrSHState garbage = {15, 9, nullptr, nullptr};
  VtqrSHState recurrenceHuge = *recurrence20.get();
  recurrenceHuge.maxOrder = 0xFFFFFFFFu;
  constexpr VtqStatus kOk = vtqStsOk, kSize = vtqStsErrSize, kBad = vtqStsErrBadValue;
  struct Row {
    const char *what;
    const VtqrSHState *state;
    int n;
    Vtq32u order;
    VtqStatus sh, band, transform;
  };
  const Row rows[] = {
      {"zero count before order", direct.get(), 0, 3, kSize, kSize, kSize},
      {"zero count, band 16", direct.get(), 0, 16, kSize, kBad, kSize},
      {"zero count before method", &garbage, 0, 1, kSize, kSize, kSize},
      {"order above maxOrder", direct.get(), 1, 3, kBad, kOk, kBad},
      {"order above maxOrder, negative count", direct.get(), -5, 3, kBad, kOk, kBad},
      {"negative count", direct.get(), -5, 2, kOk, kOk, kOk},
      {"most negative count", recurrence20.get(), INT_MIN, 2, kOk, kOk, kOk},
      {"uninitialised state", &garbage, 1, 1, kBad, kOk, kBad},
      {"uninitialised state, negative count", &garbage, -3, 1, kBad, kOk, kOk},
      {"order 16", recurrence20.get(), 1, 16, kBad, kBad, kBad},
      {"order 16, negative count", recurrence20.get(), -5, 16, kBad, kBad, kOk},
      {"direct order 16, negative count", &directHigh, -1, 16, kBad, kBad, kOk},
      {"order negative as int", &recurrenceHuge, -1, 0x80000000u, kBad, kBad, kOk},
  };
  Buffers b(1);
  for (Fn fn : {kSH, kBand, kFwdC1I, kFwdC3P3I, kFwdP3I, kInvC1, kInvP3, kInvP3C3}) {
    SCOPED_TRACE(kFnNames[fn]);
    Nuller counter;
    Call(fn, b, -1, 0, direct.get(), &counter);
    for (Nuller null{0}; null.target < counter.next; null = {null.target + 1}) {
      b.Poison();
      EXPECT_EQ(vtqStsErrNullPtr, Call(fn, b, 0, 99, direct.get(), &null)) << null.target;
      EXPECT_TRUE(b.Untouched()) << "slot " << null.target;
    }
    for (const Row &row : rows) {
      b.Poison();
      const VtqStatus want = fn == kSH ? row.sh : fn == kBand ? row.band : row.transform;
      EXPECT_EQ(want, Call(fn, b, row.n, row.order, row.state)) << row.what;
      EXPECT_TRUE((want == kOk && row.n >= 0) || b.Untouched()) << row.what;
    }
  }
}

// coefficient[k] += round(basis[k] * value), where 1.0 adds the basis and +-0.0 adds +0.0.
void SequentialForward(const float *basis, float value, float *coeff, size_t count) {
  for (size_t k = 0; k < count; ++k)
    coeff[k] = coeff[k] + (value == 1.0f ? basis[k] : value == 0.0f ? 0.0f : basis[k] * value);
}

// The inverse's documented order: eight partial sums p_r of the products at k = r (mod 8), each
// product rounded before its add, then ((p0 + p4) + (p2 + p6)) + ((p1 + p5) + (p3 + p7)).
float InverseModel(const float *basis, const float *coeff, size_t count) {
  float p[8] = {};
  for (size_t k = 0; k < count; ++k) p[k % 8] = p[k % 8] + basis[k] * coeff[k];
  return ((p[0] + p[4]) + (p[2] + p[6])) + ((p[1] + p[5]) + (p[3] + p[7]));
}

// The three forward forms give exactly the sequential float loop over samples on the basis of one
// direction at a time, for counts below, at and past a block of four, with the special sample
// values among random ones; the inverse of the result gives exactly its documented order of sums.
// Orders below the state's touch only their coefficients, and the inverse reads only those: the
// NaN past them stays out of its results.
TEST(SHTransform, ForwardAndInverseFollowTheirDocumentedOrder) {
  for (int method : kMethods) {
    State state(15, method);
    for (Vtq32u order : {1u, 2u, 15u}) {
      const size_t set = SetSize(order);
      for (int n : {3, 4, 37}) {
        SCOPED_TRACE(::testing::Message()
                     << "method " << method << " order " << order << " n " << n);
        Buffers b(n);
        b.samples[0] = b.sample(1)[2] = 1.0f;
        b.samples[4] = 0.0f;
        b.samples[8] = b.sample(2)[n - 1] = b.coeff[1] = -0.0f;
        for (int c = 0; c < 3; ++c) std::fill(b.coeffs(c) + set, b.coeffs(c) + 256, Sentinel());
        const std::vector<float> initial = b.coeff;
        std::vector<float> want[3] = {initial, initial, initial};
        std::vector<std::vector<float>> bases(n, std::vector<float>(set));
        for (int i = 0; i < n; ++i) {
          float *basis = bases[i].data();
          ASSERT_EQ(vtqStsOk, Eval(&b.d.x[i], &b.d.y[i], &b.d.z[i], 1, basis, order, state.get()));
          SequentialForward(basis, b.samples[i], want[0].data(), set);
          for (int c = 0; c < 3; ++c) {
            SequentialForward(basis, b.samples[3 * i + c], &want[1][c * 256], set);
            SequentialForward(basis, b.sample(c)[i], &want[2][c * 256], set);
          }
        }
        for (Fn fn : {kFwdC1I, kFwdC3P3I, kFwdP3I}) {
          b.coeff = initial;
          ASSERT_EQ(vtqStsOk, Call(fn, b, n, order, state.get()));
          EXPECT_TRUE(SameBits(want[fn - kFwdC1I].data(), b.coeff.data(), 768)) << kFnNames[fn];
        }
        // The inverse of those planes: every form gives the documented order's bits, the
        // one-channel form also from unaligned coefficients.
        ASSERT_EQ(vtqStsOk, Call(kInvP3, b, n, order, state.get()));
        const std::vector<float> planes = b.out;
        ASSERT_EQ(vtqStsOk, Call(kInvP3C3, b, n, order, state.get()));
        std::vector<float> one(n), shifted(257);
        for (int c = 0; c < 3; ++c) {
          std::copy_n(b.coeffs(c), 256, &shifted[1]);
          ASSERT_EQ(vtqStsOk, kDispatchTable.SHTInv_32f_C1[kPathU8](
                                  &shifted[1], order, b.d.x.data(), b.d.y.data(), b.d.z.data(),
                                  one.data(), n, state.get()));
          for (int i = 0; i < n; ++i) {
            const uint32_t want = Bits(InverseModel(bases[i].data(), b.coeffs(c), set));
            ASSERT_TRUE(want == Bits(one[i]) && want == Bits(planes[c * Buffers::kN + i]) &&
                        want == Bits(b.out[3 * i + c]))
                << "channel " << c << ", direction " << i;
          }
        }
      }
    }
  }
}

// A direction far off the sphere makes the basis overflow to inf and NaN; a zero sample still adds
// exact +0.0, which also clears a -0.0 coefficient. An infinite or NaN sample reaches every
// coefficient, the basis's zeros included.
TEST(SHTransform, SampleValueRules) {
  const float big = 1e30f, zero = 0.0f, one = 1.0f;
  for (int method : kMethods) {
    State state(15, method);
    for (float value : {0.0f, -0.0f, INFINITY, -INFINITY, NAN}) {
      float coeff[9];
      std::fill_n(coeff, 9, value == 0 ? -0.0f : 0.5f);
      const float *x = value == 0 ? &big : &zero, *z = value == 0 ? &big : &one;
      ASSERT_EQ(vtqStsOk,
                kDispatchTable.SHTFwd_32f_C1I[kPathU8](x, x, z, &value, 1, coeff, 2, state.get()));
      for (float c : coeff) {
        EXPECT_TRUE(value == 0 ? Bits(c) == 0
                               : !std::isfinite(c) && (std::isnan(c) || !std::isnan(value)))
            << "method " << method << " sample " << value;
      }
    }
  }
}

}  // namespace
}  // namespace vtqr::test
