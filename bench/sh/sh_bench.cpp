// Spherical-harmonic evaluation and transforms against what a user would write by hand.
//
// Baseline: the textbook double-precision road, the associated Legendre recurrence in
// cos(theta) with (l-m)!/(l+m)! normalisations precomputed once, azimuth from atan2 and
// cos/sin(m phi) by the angle-addition recurrence, each value rounded to float when stored.
// The baseline's results are checked against the library's before anything is timed.
//
//   taskset -c 0 build/<dir>/bench/sh/sh_bench --benchmark_repetitions=5
//       --benchmark_report_aggregates_only=true
//
// Rates: directions/s for the basis, samples/s for the transforms; the 1 GiB runs also give
// the rate of a memset, of a streaming-store loop and of a plain store loop over the same bytes.
#include <benchmark/benchmark.h>
#include <emmintrin.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "vtqcore.h"
#include "vtqr.h"

namespace {

// Hand-written double-precision evaluation of bands 0..order at one direction.
class BaselineSH {
 public:
  explicit BaselineSH(int order) : order_(order), scale_((order + 1) * (order + 2) / 2) {
    for (int l = 0; l <= order; ++l) {
      for (int m = 0; m <= l; ++m) {
        double ratio = 1.0;  // (l-m)!/(l+m)!
        for (int k = l - m + 1; k <= l + m; ++k) ratio /= k;
        const double k = std::sqrt((2 * l + 1) / (4 * M_PI) * ratio);
        scale_[l * (l + 1) / 2 + m] = m == 0 ? k : std::sqrt(2.0) * k;
      }
    }
  }

  void Eval(float fx, float fy, float fz, float* out) const {
    const double x = fx, y = fy, z = fz;
    const double sinTheta = std::sqrt(std::max(0.0, 1.0 - z * z));
    const double phi = std::atan2(y, x);
    const double c1 = std::cos(phi), s1 = std::sin(phi);
    double cosM = 1.0, sinM = 0.0;  // cos(m phi), sin(m phi)
    double pmm = 1.0;               // P(m, m), Condon-Shortley phase included
    for (int m = 0; m <= order_; ++m) {
      if (m > 0) {
        pmm *= -(2 * m - 1) * sinTheta;
        const double c = cosM * c1 - sinM * s1;
        sinM = sinM * c1 + cosM * s1;
        cosM = c;
      }
      double p0 = 0.0, p1 = pmm;
      for (int l = m; l <= order_; ++l) {
        if (l == m + 1) {
          p0 = p1;
          p1 = (2 * m + 1) * z * pmm;
        } else if (l > m + 1) {
          const double p2 = ((2 * l - 1) * z * p1 - (l + m - 1) * p0) / (l - m);
          p0 = p1;
          p1 = p2;
        }
        const double k = scale_[l * (l + 1) / 2 + m] * p1;
        if (m == 0) {
          out[l * l + l] = static_cast<float>(k);
        } else {
          out[l * l + l + m] = static_cast<float>(k * cosM);
          out[l * l + l - m] = static_cast<float>(k * sinM);
        }
      }
    }
  }

 private:
  int order_;
  std::vector<double> scale_;
};

struct Directions {
  std::vector<float> x, y, z;
  explicit Directions(size_t n) : x(n), y(n), z(n) {
    std::mt19937 rng(1);
    std::normal_distribution<double> normal;
    for (size_t i = 0; i < n; ++i) {
      const double v[3] = {normal(rng), normal(rng), normal(rng)};
      const double r = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
      x[i] = static_cast<float>(v[0] / r);
      y[i] = static_cast<float>(v[1] / r);
      z[i] = static_cast<float>(v[2] / r);
    }
  }
};

struct StateBuffer {
  std::vector<Vtq64u> storage = std::vector<Vtq64u>(256);
  StateBuffer(int order, int method) {
    if (vtqrSHInit_32f(get(), order, method) != vtqStsOk) std::abort();
  }
  VtqrSHState* get() { return reinterpret_cast<VtqrSHState*>(storage.data()); }
};

float* AllocFloats(size_t count) {
  auto* p = static_cast<float*>(vtqMalloc(count * sizeof(float)));
  if (!p) std::abort();
  std::memset(p, 0, count * sizeof(float));  // fault the pages in before timing
  return p;
}

// The library and the baseline must agree before either is worth timing.
void Validate(const float* library, const float* baseline, size_t count, const char* what) {
  for (size_t i = 0; i < count; ++i) {
    if (!(std::abs(library[i] - baseline[i]) <= 2e-5f)) {
      std::fprintf(stderr, "%s: element %zu differs: %g vs %g\n", what, i, library[i], baseline[i]);
      std::abort();
    }
  }
}

constexpr int kBlock = 64;  // 64 sets of 256 floats = 64 KiB of output, resident in L2

// Basis evaluation, cached block ----------------------------------------------------------

void BM_SH(benchmark::State& st) {
  const int order = static_cast<int>(st.range(0)), method = static_cast<int>(st.range(1));
  const size_t setSize = (order + 1) * (order + 1);
  Directions d(kBlock);
  StateBuffer s(order, method);
  float* out = AllocFloats(kBlock * setSize);
  std::vector<float> check(kBlock * setSize);
  BaselineSH baseline(order);
  for (int i = 0; i < kBlock; ++i) baseline.Eval(d.x[i], d.y[i], d.z[i], &check[i * setSize]);
  vtqrSH_32f(d.x.data(), d.y.data(), d.z.data(), kBlock, out, order, s.get());
  Validate(out, check.data(), check.size(), "vtqrSH_32f");
  for (auto _ : st) {
    vtqrSH_32f(d.x.data(), d.y.data(), d.z.data(), kBlock, out, order, s.get());
    benchmark::DoNotOptimize(out);
    benchmark::ClobberMemory();
  }
  st.counters["dirs/s"] = benchmark::Counter(double(kBlock) * st.iterations(),
                                             benchmark::Counter::kIsRate);
  vtqFree(out);
}
BENCHMARK(BM_SH)->ArgNames({"order", "method"})->ArgsProduct({{3, 7, 15}, {0, 1}});

void BM_SHBaseline(benchmark::State& st) {
  const int order = static_cast<int>(st.range(0));
  const size_t setSize = (order + 1) * (order + 1);
  Directions d(kBlock);
  BaselineSH baseline(order);
  std::vector<float> out(kBlock * setSize);
  for (auto _ : st) {
    for (int i = 0; i < kBlock; ++i) baseline.Eval(d.x[i], d.y[i], d.z[i], &out[i * setSize]);
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  st.counters["dirs/s"] = benchmark::Counter(double(kBlock) * st.iterations(),
                                             benchmark::Counter::kIsRate);
}
BENCHMARK(BM_SHBaseline)->ArgName("order")->Arg(3)->Arg(7)->Arg(15);

// Basis evaluation, 1M directions at order 15: 1 GiB of output ----------------------------

constexpr size_t kHuge = size_t{1} << 20;
constexpr size_t kHugeFloats = kHuge * 256;

float* HugeOutput() {
  static float* out = AllocFloats(kHugeFloats);
  return out;
}

void BM_SHHuge(benchmark::State& st) {
  const int method = static_cast<int>(st.range(0));
  static Directions d(kHuge);
  StateBuffer s(15, method);
  float* out = HugeOutput();
  for (auto _ : st) {
    vtqrSH_32f(d.x.data(), d.y.data(), d.z.data(), static_cast<int>(kHuge), out, 15, s.get());
    benchmark::ClobberMemory();
  }
  st.counters["dirs/s"] = benchmark::Counter(double(kHuge) * st.iterations(),
                                             benchmark::Counter::kIsRate);
}
BENCHMARK(BM_SHHuge)
    ->ArgName("method")
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// Plain stores of the same 1 GiB, counted in the same direction units (1 KiB each).
void BM_StoreMemset(benchmark::State& st) {
  float* out = HugeOutput();
  int value = 0;
  for (auto _ : st) {
    std::memset(out, ++value & 1, kHugeFloats * sizeof(float));
    benchmark::ClobberMemory();
  }
  st.counters["dirs/s"] = benchmark::Counter(double(kHuge) * st.iterations(),
                                             benchmark::Counter::kIsRate);
}
BENCHMARK(BM_StoreMemset)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_StoreStream(benchmark::State& st) {
  float* out = HugeOutput();
  float value = 0.0f;
  for (auto _ : st) {
    const __m128 v = _mm_set1_ps(value += 1.0f);
    for (size_t i = 0; i < kHugeFloats; i += 16) {
      _mm_stream_ps(out + i, v);
      _mm_stream_ps(out + i + 4, v);
      _mm_stream_ps(out + i + 8, v);
      _mm_stream_ps(out + i + 12, v);
    }
    _mm_sfence();
    benchmark::ClobberMemory();
  }
  st.counters["dirs/s"] = benchmark::Counter(double(kHuge) * st.iterations(),
                                             benchmark::Counter::kIsRate);
}
BENCHMARK(BM_StoreStream)->Unit(benchmark::kMillisecond)->UseRealTime();

// The plain store loop an application would write to fill its own 1 GiB: ordinary stores,
// which read each destination line before overwriting it.
void BM_StorePlain(benchmark::State& st) {
  float* out = HugeOutput();
  float value = 0.0f;
  for (auto _ : st) {
    std::fill_n(out, kHugeFloats, value += 1.0f);
    benchmark::ClobberMemory();
  }
  st.counters["dirs/s"] = benchmark::Counter(double(kHuge) * st.iterations(),
                                             benchmark::Counter::kIsRate);
}
BENCHMARK(BM_StorePlain)->Unit(benchmark::kMillisecond)->UseRealTime();

// Transforms at order 15 -------------------------------------------------------------------

constexpr int kSamples = 1024;

void BM_SHTFwd(benchmark::State& st) {
  const int method = static_cast<int>(st.range(0));
  Directions d(kSamples);
  std::vector<float> values(kSamples, 0.37f), coeff(256, 0.0f);
  StateBuffer s(15, method);
  for (auto _ : st) {
    vtqrSHTFwd_32f_C1I(d.x.data(), d.y.data(), d.z.data(), values.data(), kSamples, coeff.data(),
                       15, s.get());
    benchmark::ClobberMemory();
  }
  st.counters["samples/s"] = benchmark::Counter(double(kSamples) * st.iterations(),
                                                benchmark::Counter::kIsRate);
}
BENCHMARK(BM_SHTFwd)->ArgName("method")->Arg(0)->Arg(1);

void BM_SHTFwdBaseline(benchmark::State& st) {
  Directions d(kSamples);
  std::vector<float> values(kSamples, 0.37f), coeff(256, 0.0f), basis(256);
  BaselineSH baseline(15);
  for (auto _ : st) {
    for (int i = 0; i < kSamples; ++i) {
      baseline.Eval(d.x[i], d.y[i], d.z[i], basis.data());
      for (int k = 0; k < 256; ++k) coeff[k] += basis[k] * values[i];
    }
    benchmark::ClobberMemory();
  }
  st.counters["samples/s"] = benchmark::Counter(double(kSamples) * st.iterations(),
                                                benchmark::Counter::kIsRate);
}
BENCHMARK(BM_SHTFwdBaseline);

void BM_SHTInv(benchmark::State& st) {
  const int method = static_cast<int>(st.range(0));
  Directions d(kSamples);
  std::vector<float> coeff(256, 0.01f), out(kSamples);
  StateBuffer s(15, method);
  for (auto _ : st) {
    vtqrSHTInv_32f_C1(coeff.data(), 15, d.x.data(), d.y.data(), d.z.data(), out.data(), kSamples,
                      s.get());
    benchmark::ClobberMemory();
  }
  st.counters["samples/s"] = benchmark::Counter(double(kSamples) * st.iterations(),
                                                benchmark::Counter::kIsRate);
}
BENCHMARK(BM_SHTInv)->ArgName("method")->Arg(0)->Arg(1);

void BM_SHTInvBaseline(benchmark::State& st) {
  Directions d(kSamples);
  std::vector<float> coeff(256, 0.01f), out(kSamples), basis(256);
  BaselineSH baseline(15);
  for (auto _ : st) {
    for (int i = 0; i < kSamples; ++i) {
      baseline.Eval(d.x[i], d.y[i], d.z[i], basis.data());
      float sum = 0.0f;
      for (int k = 0; k < 256; ++k) sum += basis[k] * coeff[k];
      out[i] = sum;
    }
    benchmark::ClobberMemory();
  }
  st.counters["samples/s"] = benchmark::Counter(double(kSamples) * st.iterations(),
                                                benchmark::Counter::kIsRate);
}
BENCHMARK(BM_SHTInvBaseline);

}  // namespace

BENCHMARK_MAIN();
