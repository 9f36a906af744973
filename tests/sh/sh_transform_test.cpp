// SH transforms: check order, the forward transform's exact rounding sequence, the sample
// value rules, and a forward/inverse round trip on an exact quadrature of the sphere.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "sh/sh_reference.h"
#include "test_util.h"
#include "vtqr/sh.h"

namespace vtqr::test {
namespace {

class State {
 public:
  State(Vtq32u order, int method) : buffer_(4096) {
    EXPECT_EQ(vtqStsOk, kDispatchTable.SHInit_32f[kPathU8](get(), order, method));
  }
  VtqrSHState* get() { return reinterpret_cast<VtqrSHState*>(buffer_.data()); }

 private:
  std::vector<Vtq64u> buffer_;
};

constexpr int kMethods[] = {vtqrSHDirect, vtqrSHRecurrence};

void Directions(int n, uint32_t seed, float* x, float* y, float* z) {
  std::mt19937 rng(seed);
  std::normal_distribution<double> normal;
  for (int i = 0; i < n; ++i) {
    const double v[3] = {normal(rng), normal(rng), i % 5 == 2 ? 0.0 : normal(rng)};
    const double r = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    x[i] = static_cast<float>(v[0] / r);
    y[i] = static_cast<float>(v[1] / r);
    z[i] = static_cast<float>(v[2] / r);
  }
}

// The six transforms behind one call, with every pointer argument, including each plane of a
// three-plane argument, passing through `ptr` so that a test can null any one of them.
enum Variant { kFwdC1I, kFwdC3P3I, kFwdP3I, kInvC1, kInvP3, kInvP3C3, kVariantCount };
const char* const kVariantNames[] = {"FwdC1I", "FwdC3P3I", "FwdP3I", "InvC1", "InvP3", "InvP3C3"};

struct Buffers {
  static constexpr int kMaxN = 64;
  std::vector<float> x, y, z, samples, coeff, out;
  explicit Buffers(uint32_t seed)
      : x(kMaxN), y(kMaxN), z(kMaxN), samples(3 * kMaxN), coeff(3 * 256), out(3 * kMaxN) {
    Directions(kMaxN, seed, x.data(), y.data(), z.data());
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> uniform(-2.0f, 2.0f);
    for (float& v : samples) v = uniform(rng);
    for (float& v : coeff) v = uniform(rng);
  }
  float* samplePlane(int c) { return samples.data() + c * kMaxN; }
  float* coeffPlane(int c) { return coeff.data() + c * 256; }
  float* outPlane(int c) { return out.data() + c * kMaxN; }
};

struct Nuller {
  int target = -1;
  int next = 0;
  template <class T>
  T* operator()(T* p) { return next++ == target ? nullptr : p; }
};

VtqStatus Call(CodePath path, Variant variant, Buffers& b, int n, Vtq32u order,
               VtqrSHState* state, Nuller& ptr) {
  const DispatchTable& t = kDispatchTable;
  const float* x = ptr(b.x.data());
  const float* y = ptr(b.y.data());
  const float* z = ptr(b.z.data());
  const VtqrSHState* s = ptr(state);
  switch (variant) {
    case kFwdC1I:
      return t.SHTFwd_32f_C1I[path](x, y, z, ptr(b.samples.data()), n, ptr(b.coeff.data()),
                                    order, s);
    case kFwdC3P3I: {
      float* const dst[3] = {ptr(b.coeffPlane(0)), ptr(b.coeffPlane(1)), ptr(b.coeffPlane(2))};
      return t.SHTFwd_32f_C3P3I[path](x, y, z, ptr(b.samples.data()), n, ptr(dst), order, s);
    }
    case kFwdP3I: {
      const float* const src[3] = {ptr(b.samplePlane(0)), ptr(b.samplePlane(1)),
                                   ptr(b.samplePlane(2))};
      float* const dst[3] = {ptr(b.coeffPlane(0)), ptr(b.coeffPlane(1)), ptr(b.coeffPlane(2))};
      return t.SHTFwd_32f_P3I[path](x, y, z, ptr(src), n, ptr(dst), order, s);
    }
    case kInvC1:
      return t.SHTInv_32f_C1[path](ptr(b.coeff.data()), order, x, y, z, ptr(b.out.data()), n, s);
    case kInvP3: {
      const float* const src[3] = {ptr(b.coeffPlane(0)), ptr(b.coeffPlane(1)),
                                   ptr(b.coeffPlane(2))};
      float* const dst[3] = {ptr(b.outPlane(0)), ptr(b.outPlane(1)), ptr(b.outPlane(2))};
      return t.SHTInv_32f_P3[path](ptr(src), order, x, y, z, ptr(dst), n, s);
    }
    case kInvP3C3: {
      const float* const src[3] = {ptr(b.coeffPlane(0)), ptr(b.coeffPlane(1)),
                                   ptr(b.coeffPlane(2))};
      return t.SHTInv_32f_P3C3[path](ptr(src), order, x, y, z, ptr(b.out.data()), n, s);
    }
    default:
      return 99;
  }
}

VtqStatus Call(Variant variant, Buffers& b, int n, Vtq32u order, VtqrSHState* state) {
  Nuller none;
  return Call(kPathU8, variant, b, n, order, state, none);
}

TEST(SHTransform, ChecksInOrderAndWritesNothingOnFailure) {
  State direct(2, vtqrSHDirect), recurrence20(20, vtqrSHRecurrence);
  VtqrSHState garbage = {15, 9, nullptr, nullptr};
  for (CodePath path : kBothPaths) {
    for (int v = 0; v < kVariantCount; ++v) {
      const auto variant = static_cast<Variant>(v);
      SCOPED_TRACE(::testing::Message() << PathName(path) << " " << kVariantNames[v]);
      auto expectUntouched = [](VtqStatus expected, VtqStatus actual, const Buffers& b,
                                const char* what) {
        EXPECT_EQ(expected, actual) << what;
        for (float c : b.coeff) ASSERT_EQ(kSentinelBits, Bits(c)) << what;
        for (float o : b.out) ASSERT_EQ(kSentinelBits, Bits(o)) << what;
      };
      Buffers b(1);
      std::fill(b.coeff.begin(), b.coeff.end(), Sentinel());
      std::fill(b.out.begin(), b.out.end(), Sentinel());
      // Forward coefficients double as inverse sources; a failed check must not read them
      // into outputs either, which the sentinel in both catches.
      Nuller counter;
      Call(path, variant, b, -1, 0, direct.get(), counter);
      for (int slot = 0; slot < counter.next; ++slot) {
        Nuller null{slot};
        // A null pointer wins over a zero count and an order above maxOrder.
        expectUntouched(vtqStsErrNullPtr, Call(path, variant, b, 0, 3, direct.get(), null), b,
                        "null pointer");
      }
      Nuller none;
      expectUntouched(vtqStsErrSize, Call(path, variant, b, 0, 3, direct.get(), none), b,
                      "zero count before order");
      expectUntouched(vtqStsErrBadValue, Call(path, variant, b, 1, 3, direct.get(), none), b,
                      "order above maxOrder");
      expectUntouched(vtqStsErrBadValue, Call(path, variant, b, -5, 3, direct.get(), none), b,
                      "order before negative count");
      expectUntouched(vtqStsOk, Call(path, variant, b, -5, 2, direct.get(), none), b,
                      "negative count");
      // Orders the basis scratch cannot hold, and states never initialised, are refused
      // before any work; a negative count still wins.
      expectUntouched(vtqStsErrBadValue,
                      Call(path, variant, b, 3, 16, recurrence20.get(), none), b,
                      "recurrence order 16");
      expectUntouched(vtqStsOk, Call(path, variant, b, -5, 16, recurrence20.get(), none), b,
                      "recurrence order 16, negative count");
      expectUntouched(vtqStsErrBadValue, Call(path, variant, b, 3, 1, &garbage, none), b,
                      "uninitialised state");
    }
  }
}

// coefficient[k] += round(basis[k] * value), with 1.0 adding the basis and +-0.0 adding +0.0.
void SequentialForward(const float* basis, float value, float* coeff, size_t count) {
  for (size_t k = 0; k < count; ++k) {
    const float scaled = value == 1.0f ? basis[k] : value == 0.0f ? 0.0f : basis[k] * value;
    coeff[k] = coeff[k] + scaled;
  }
}

TEST(SHTransform, ForwardIsTheSequentialFloatSum) {
  for (int method : kMethods) {
    State state(15, method);
    for (Vtq32u order : {1u, 2u, 15u}) {
      const size_t setSize = (order + 1) * (order + 1);
      for (int n : {1, 3, 4, 5, 9, 37}) {
        SCOPED_TRACE(::testing::Message() << "method " << method << " order " << order
                                          << " n " << n);
        Buffers b(n);
        // Exact values that take the special roads, among the random ones.
        b.samples[0] = 1.0f;
        b.samples[4] = 0.0f;
        b.samples[8] = -0.0f;
        b.samplePlane(1)[2] = 1.0f;
        b.samplePlane(2)[n - 1] = -0.0f;
        b.coeff[1] = -0.0f;
        for (size_t k = setSize; k < 256; ++k) {
          for (int c = 0; c < 3; ++c) b.coeffPlane(c)[k] = Sentinel();
        }
        const std::vector<float> initial = b.coeff;

        // The expected sums, from the basis of one direction at a time.
        std::vector<float> expectC1(initial), expectC3(initial), expectP3(initial);
        for (int i = 0; i < n; ++i) {
          std::vector<float> basis(setSize);
          ASSERT_EQ(vtqStsOk, kDispatchTable.SH_32f[kPathU8](&b.x[i], &b.y[i], &b.z[i], 1,
                                                             basis.data(), order, state.get()));
          SequentialForward(basis.data(), b.samples[i], expectC1.data(), setSize);
          for (int c = 0; c < 3; ++c) {
            SequentialForward(basis.data(), b.samples[3 * i + c], expectC3.data() + c * 256,
                              setSize);
            SequentialForward(basis.data(), b.samplePlane(c)[i], expectP3.data() + c * 256,
                              setSize);
          }
        }
        const std::pair<Variant, const std::vector<float>*> cases[] = {
            {kFwdC1I, &expectC1}, {kFwdC3P3I, &expectC3}, {kFwdP3I, &expectP3}};
        for (const auto& [variant, expected] : cases) {
          b.coeff = initial;
          ASSERT_EQ(vtqStsOk, Call(variant, b, n, order, state.get()));
          EXPECT_TRUE(SameBits(expected->data(), b.coeff.data(), b.coeff.size()))
              << kVariantNames[variant];
        }
      }
    }
  }
}

TEST(SHTransform, SampleValueRules) {
  const float kInf = INFINITY;
  for (int method : kMethods) {
    State state(2, method);
    float coeff[9];
    // A direction far off the sphere makes the basis overflow to inf and, where infinities
    // meet, NaN; a zero sample still adds exact +0.0, which also clears a -0.0 coefficient.
    const float big = 1e30f;
    for (float zero : {0.0f, -0.0f}) {
      std::fill(coeff, coeff + 9, -0.0f);
      ASSERT_EQ(vtqStsOk, kDispatchTable.SHTFwd_32f_C1I[kPathU8](&big, &big, &big, &zero, 1,
                                                                 coeff, 2, state.get()));
      for (float c : coeff) EXPECT_EQ(0u, Bits(c)) << "method " << method;
    }
    // An infinite or NaN sample reaches every coefficient, zeros of the basis included.
    const float x = 0.0f, y = 0.0f, z = 1.0f;
    for (float value : {kInf, -kInf, NAN}) {
      std::fill(coeff, coeff + 9, 0.5f);
      ASSERT_EQ(vtqStsOk, kDispatchTable.SHTFwd_32f_C1I[kPathU8](&x, &y, &z, &value, 1, coeff,
                                                                 2, state.get()));
      for (float c : coeff) EXPECT_FALSE(std::isfinite(c)) << value;
      if (std::isnan(value)) {
        for (float c : coeff) EXPECT_TRUE(std::isnan(c));
      }
    }
  }
}

TEST(SHTransform, ListedValues) {
  for (int method : kMethods) {
    State state(15, method);
    const float x = 0.0f, y = 0.0f, z = 1.0f, two = 2.0f;
    float coeff[4] = {0, 0, 0, 0};
    ASSERT_EQ(vtqStsOk, kDispatchTable.SHTFwd_32f_C1I[kPathU8](&x, &y, &z, &two, 1, coeff, 1,
                                                               state.get()));
    const float expected[4] = {0.56418958f, 0.0f, 0.97720504f, 0.0f};
    for (int k = 0; k < 4; ++k) EXPECT_NEAR(expected[k], coeff[k], 2e-7) << k;

    // Forward of value 1 at d, then inverse at d: the sum of squares of the basis at d,
    // (order+1)^2 / (4 pi) by the addition theorem.
    float dx[1], dy[1], dz[1];
    Directions(1, 11, dx, dy, dz);
    for (Vtq32u order = 0; order <= 15; ++order) {
      std::vector<float> c((order + 1) * (order + 1), 0.0f);
      const float one = 1.0f;
      ASSERT_EQ(vtqStsOk, kDispatchTable.SHTFwd_32f_C1I[kPathU8](dx, dy, dz, &one, 1, c.data(),
                                                                 order, state.get()));
      float value = 0.0f;
      ASSERT_EQ(vtqStsOk, kDispatchTable.SHTInv_32f_C1[kPathU8](c.data(), order, dx, dy, dz,
                                                                &value, 1, state.get()));
      const double exact = (order + 1.0) * (order + 1.0) / (4.0 * M_PI);
      EXPECT_NEAR(exact, value, 1e-5 * exact) << "method " << method << " order " << order;
    }
  }
}

// Gauss-Legendre nodes and weights on [-1, 1], by Newton's method in long double.
void GaussLegendre(int count, std::vector<long double>& nodes, std::vector<long double>& weights) {
  nodes.resize(count);
  weights.resize(count);
  for (int i = 0; i < count; ++i) {
    long double t = std::cos(M_PI * (i + 0.75) / (count + 0.5));
    long double derivative = 0;
    for (int iteration = 0; iteration < 100; ++iteration) {
      long double p0 = 1, p1 = t;
      for (int k = 2; k <= count; ++k) {
        const long double p2 = ((2 * k - 1) * t * p1 - (k - 1) * p0) / k;
        p0 = p1;
        p1 = p2;
      }
      derivative = count * (t * p1 - p0) / (t * t - 1);
      const long double step = p1 / derivative;
      t -= step;
      if (std::abs(step) < 1e-19L) break;
    }
    nodes[i] = t;
    weights[i] = 2 / ((1 - t * t) * derivative * derivative);
  }
}

// 16 Gauss-Legendre nodes in z times 32 equally spaced azimuths integrate products of two
// band-15 harmonics exactly, so the forward transform of a weighted band-limited function
// returns its coefficients up to float rounding.
TEST(SHTransform, RoundTripOnQuadrature) {
  constexpr int kOrder = 15, kSet = 256, kRings = 16, kAzimuths = 32;
  std::vector<long double> nodes, weights;
  GaussLegendre(kRings, nodes, weights);
  std::mt19937 rng(5);
  std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
  std::vector<float> truth(kSet);
  for (float& c : truth) c = uniform(rng);

  std::vector<float> x, y, z, samples;
  auto function = [&](float px, float py, float pz) {
    const auto basis = ShReferenceSet(kOrder, px, py, pz);
    long double value = 0;
    for (int k = 0; k < kSet; ++k) value += truth[k] * basis[k];
    return value;
  };
  for (int i = 0; i < kRings; ++i) {
    for (int j = 0; j < kAzimuths; ++j) {
      const long double phi = 2 * M_PI * j / kAzimuths, r = std::sqrt(1 - nodes[i] * nodes[i]);
      x.push_back(static_cast<float>(r * std::cos(phi)));
      y.push_back(static_cast<float>(r * std::sin(phi)));
      z.push_back(static_cast<float>(nodes[i]));
      const long double weight = weights[i] * 2 * M_PI / kAzimuths;
      samples.push_back(static_cast<float>(weight * function(x.back(), y.back(), z.back())));
    }
  }
  const int n = static_cast<int>(samples.size());

  for (int method : kMethods) {
    State state(kOrder, method);
    std::vector<float> coeff(kSet, 0.0f);
    ASSERT_EQ(vtqStsOk, kDispatchTable.SHTFwd_32f_C1I[kPathU8](
                            x.data(), y.data(), z.data(), samples.data(), n, coeff.data(),
                            kOrder, state.get()));
    // 512 float adds of terms up to about 0.3: a few times 512 * 2^-24 * 0.3, plus the
    // basis error. Observed below 1e-5.
    for (int k = 0; k < kSet; ++k) EXPECT_NEAR(truth[k], coeff[k], 4e-5) << "coefficient " << k;

    // Inverse on fresh directions against the long-double evaluation of the same
    // coefficients: a 256-term float dot product of values up to ~12.
    constexpr int kProbe = 29;
    AlignedFloats px(kProbe), py(kProbe), pz(kProbe), out(kProbe, 1);
    Directions(kProbe, 17, px.data(), py.data(), pz.data());
    ASSERT_EQ(vtqStsOk, kDispatchTable.SHTInv_32f_C1[kPathU8](
                            coeff.data(), kOrder, px.data(), py.data(), pz.data(), out.data(),
                            kProbe, state.get()));
    for (int i = 0; i < kProbe; ++i) {
      const auto basis = ShReferenceSet(kOrder, px[i], py[i], pz[i]);
      long double exact = 0;
      for (int k = 0; k < kSet; ++k) exact += coeff[k] * basis[k];
      EXPECT_NEAR(static_cast<double>(exact), out[i], 2e-5) << "direction " << i;
    }

    // The grouping of the dot product is fixed: other alignments, and the three-channel
    // forms on the same coefficients, give the same bits.
    std::vector<float> shifted(kSet + 3);
    std::copy(coeff.begin(), coeff.end(), shifted.begin() + 3);
    AlignedFloats qx(kProbe, 2), qy(kProbe, 1), qz(kProbe, 3), again(kProbe, 2);
    std::copy(px.begin(), px.end(), qx.begin());
    std::copy(py.begin(), py.end(), qy.begin());
    std::copy(pz.begin(), pz.end(), qz.begin());
    ASSERT_EQ(vtqStsOk, kDispatchTable.SHTInv_32f_C1[kPathU8](
                            shifted.data() + 3, kOrder, qx.data(), qy.data(), qz.data(),
                            again.data(), kProbe, state.get()));
    EXPECT_TRUE(SameBits(out.data(), again.data(), kProbe));
    std::vector<float> planes[3] = {std::vector<float>(kProbe), std::vector<float>(kProbe),
                                    std::vector<float>(kProbe)};
    std::vector<float> interleaved(3 * kProbe);
    const float* const src[3] = {coeff.data(), shifted.data() + 3, coeff.data()};
    float* const dst[3] = {planes[0].data(), planes[1].data(), planes[2].data()};
    ASSERT_EQ(vtqStsOk, kDispatchTable.SHTInv_32f_P3[kPathU8](src, kOrder, px.data(), py.data(),
                                                              pz.data(), dst, kProbe,
                                                              state.get()));
    ASSERT_EQ(vtqStsOk, kDispatchTable.SHTInv_32f_P3C3[kPathU8](
                            src, kOrder, px.data(), py.data(), pz.data(), interleaved.data(),
                            kProbe, state.get()));
    for (int c = 0; c < 3; ++c) {
      EXPECT_TRUE(SameBits(out.data(), planes[c].data(), kProbe)) << "plane " << c;
      for (int i = 0; i < kProbe; ++i) {
        EXPECT_EQ(Bits(out[i]), Bits(interleaved[3 * i + c])) << "channel " << c;
      }
    }
  }
}

TEST(SHTransform, LowerOrderTouchesOnlyItsCoefficients) {
  for (int method : kMethods) {
    State state(15, method);
    Buffers b(2);
    for (float& c : b.coeff) c = Sentinel();
    for (int c = 0; c < 3; ++c) std::fill(b.coeffPlane(c), b.coeffPlane(c) + 9, 0.0f);
    for (Variant variant : {kFwdC1I, kFwdC3P3I, kFwdP3I}) {
      ASSERT_EQ(vtqStsOk, Call(variant, b, 7, 2, state.get()));
    }
    for (int c = 0; c < 3; ++c) {
      for (int k = 0; k < 256; ++k) {
        if (k < 9) {
          EXPECT_TRUE(std::isfinite(b.coeffPlane(c)[k]));
        } else {
          ASSERT_EQ(kSentinelBits, Bits(b.coeffPlane(c)[k]));
        }
      }
    }
    // The inverse reads only the first nine: the NaN sentinels past them stay out.
    for (Variant variant : {kInvC1, kInvP3, kInvP3C3}) {
      ASSERT_EQ(vtqStsOk, Call(variant, b, 7, 2, state.get()));
      for (int i = 0; i < 7; ++i) EXPECT_TRUE(std::isfinite(b.out[i]));
    }
  }
}

}  // namespace
}  // namespace vtqr::test
