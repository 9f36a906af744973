// Volume filter: a 256^3 16s volume convolved with 3x3x3 and 5x5x5 kernels, on one and two
// threads, with a power-of-two divisor (binomial weights, the shift rule) and another (a box,
// the double rule), and once with weights large enough for 64-bit sums.
//
// In the same run, when /usr/bin/python3 has scipy: scipy.ndimage.convolve on a volume of the
// same size and the same kernel sizes (scipy_convolve.py beside this file, one thread).
// Before timing, sampled voxels of every case are checked against a direct exact sum.
//
//   taskset -c 0 build/release/bench/volume/filter_bench        (one core: 1-thread figures)
//   taskset -c 0,1 build/release/bench/volume/filter_bench      (both: 1 -> 2 thread scaling)
//
// Every case runs eleven times; the summary gives medians: Mvox/s of destination voxels,
// GMAC/s (kernel weights times voxels per second), the 1 -> 2 thread speed-up and the speed-up
// over scipy.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "bench/bench_clock.h"
#include "vtqcore.h"
#include "vtqr.h"

#ifndef VTQR_BENCH_SOURCE_DIR
#define VTQR_BENCH_SOURCE_DIR "."
#endif

namespace {

using vtqr::bench::Median;
using vtqr::bench::WallNow;

constexpr int kSide = 256;
constexpr int kBorder = 3;  // enough for every kernel here, centred
constexpr int kPadded = kSide + 2 * kBorder;

std::map<std::string, std::vector<double>> gSeconds;

struct KernelCase {
  const char* name;
  int n;
  enum { kBinomial, kBox, kLarge } weights;
};
const KernelCase kKernels[] = {
    {"3x3x3 binomial /64", 3, KernelCase::kBinomial},   {"3x3x3 box /27", 3, KernelCase::kBox},
    {"5x5x5 binomial /4096", 5, KernelCase::kBinomial}, {"5x5x5 box /125", 5, KernelCase::kBox},
    {"5x5x5 64-bit sums", 5, KernelCase::kLarge},
};

// Weights (x fastest) and the divisor of a case.
std::vector<Vtq16s> Weights(const KernelCase& c, int* divisor) {
  const int n = c.n;
  const int binomial[2][5] = {{1, 2, 1}, {1, 4, 6, 4, 1}};
  std::vector<Vtq16s> w;
  *divisor = 0;
  for (int z = 0; z < n; ++z)
    for (int y = 0; y < n; ++y)
      for (int x = 0; x < n; ++x) {
        const int* b = binomial[n == 5];
        const int v = c.weights == KernelCase::kBinomial ? b[x] * b[y] * b[z]
                      : c.weights == KernelCase::kBox    ? 1
                                                         : 1000 + 97 * ((x + 2 * y + 3 * z) % 11);
        w.push_back(static_cast<Vtq16s>(v));
        *divisor += v;
      }
  return w;
}

// A smooth volume with noise and a border of kBorder voxels, packed, x fastest.
const std::vector<Vtq16s>& Source() {
  static std::vector<Vtq16s> volume;
  if (volume.empty()) {
    volume.resize(size_t{kPadded} * kPadded * kPadded);
    std::mt19937 rng(1);
    std::uniform_int_distribution<int> noise(-500, 500);
    size_t i = 0;
    for (int z = 0; z < kPadded; ++z)
      for (int y = 0; y < kPadded; ++y)
        for (int x = 0; x < kPadded; ++x)
          volume[i++] = static_cast<Vtq16s>(
              12000 * std::sin(0.05 * x + 0.03 * y) * std::cos(0.04 * z) + noise(rng));
  }
  return volume;
}

// Slice pointers of the source at voxel (0, 0, z) of the destination's frame, with kBorder
// entries before slice 0 as the filter reads them.
std::vector<const Vtq16s*> SourceSlices() {
  const std::vector<Vtq16s>& v = Source();
  std::vector<const Vtq16s*> slices;
  for (int z = 0; z < kPadded; ++z) {
    slices.push_back(v.data() + (size_t(z) * kPadded + kBorder) * kPadded + kBorder);
  }
  return slices;
}

struct Run {
  std::vector<const Vtq16s*> src = SourceSlices();
  std::vector<Vtq16s> out = std::vector<Vtq16s>(size_t{kSide} * kSide * kSide);
  std::vector<Vtq16s*> dst;
  std::vector<Vtq8u> buffer;
  Run() {
    for (int z = 0; z < kSide; ++z) dst.push_back(out.data() + size_t(z) * kSide * kSide);
  }
  VtqStatus Filter(const std::vector<Vtq16s>& w, int n, int divisor) {
    const VtqVolumeSize size = {kSide, kSide, kSide}, kernel = {n, n, n};
    int bytes = 0;
    vtqrFilterGetBufSize(&size, &kernel, 1, &bytes);
    buffer.resize(size_t(bytes));
    const VtqPoint3D anchor = {n / 2, n / 2, n / 2};
    return vtqrFilter_16s_C1PV(src.data() + kBorder, kPadded * 2, dst.data(), kSide * 2, size,
                               w.data(), kernel, anchor, divisor, buffer.data());
  }
};

// Sampled voxels against a direct exact sum, rounded to nearest with halves to even.
bool Valid(const KernelCase& c) {
  int divisor = 0;
  const std::vector<Vtq16s> w = Weights(c, &divisor);
  Run run;
  if (run.Filter(w, c.n, divisor) != vtqStsOk) return false;
  const std::vector<Vtq16s>& v = Source();
  const int a = c.n / 2;
  for (size_t i = 0; i < run.out.size(); i += 7919) {
    const int x = int(i % kSide), y = int(i / kSide % kSide), z = int(i / kSide / kSide);
    int64_t sum = 0;
    for (int k = 0; k < c.n; ++k)
      for (int j = 0; j < c.n; ++j)
        for (int l = 0; l < c.n; ++l) {
          const size_t at = (size_t(z + a - k + kBorder) * kPadded + (y + a - j + kBorder)) *
                                kPadded +
                            (x + a - l + kBorder);
          sum += int64_t{w[(size_t(k) * c.n + j) * c.n + l]} * v[at];
        }
    const double q = double(sum) / divisor;
    const double expected = std::clamp(std::nearbyint(q), -32768.0, 32767.0);
    if (run.out[i] != expected) {
      std::fprintf(stderr, "%s: voxel %zu is %d, expected %g\n", c.name, i, run.out[i], expected);
      return false;
    }
  }
  return true;
}

void BM_Filter(benchmark::State& state, const KernelCase* c, int threads) {
  int divisor = 0;
  const std::vector<Vtq16s> w = Weights(*c, &divisor);
  Run run;
  vtqSetNumThreads(threads);
  const std::string name = std::string(c->name) + (threads == 1 ? " 1t" : " 2t");
  double seconds = 0;
  for (auto _ : state) {
    const double start = WallNow();
    run.Filter(w, c->n, divisor);
    seconds = WallNow() - start;
    state.SetIterationTime(seconds);
    gSeconds[name].push_back(seconds);
  }
  vtqSetNumThreads(0);
  state.counters["Mvox/s"] = double(run.out.size()) / seconds / 1e6;
}

// scipy's medians by kernel size ("3x3x3"), from the companion script; empty without scipy.
std::map<std::string, double> ScipySeconds() {
  std::map<std::string, double> seconds;
  const std::string command = "/usr/bin/python3 " VTQR_BENCH_SOURCE_DIR
                              "/volume/scipy_convolve.py 5 2>/dev/null";
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return seconds;
  char name[32];
  double s = 0;
  while (std::fscanf(pipe, "%31s %lf", name, &s) == 2) seconds[name] = s;
  pclose(pipe);
  return seconds;
}

void PrintSummary(const std::map<std::string, double>& scipy) {
  const double voxels = double(kSide) * kSide * kSide;
  std::printf("\nMedians, %d^3 16s destination voxels\n", kSide);
  std::printf("%-22s %9s %9s %9s %9s %6s %10s %8s\n", "case", "1t Mvox/s", "1t GMAC/s", "2t Mvox/s",
              "2t GMAC/s", "2t/1t", "scipy Mv/s", "x scipy");
  for (const KernelCase& c : kKernels) {
    const double macs = voxels * c.n * c.n * c.n;
    const double one = Median(gSeconds[std::string(c.name) + " 1t"]);
    const double two = Median(gSeconds[std::string(c.name) + " 2t"]);
    std::printf("%-22s %9.1f %9.2f %9.1f %9.2f %6.2f", c.name, voxels / one / 1e6, macs / one / 1e9,
                voxels / two / 1e6, macs / two / 1e9, one / two);
    const std::string size = std::to_string(c.n) + "x" + std::to_string(c.n) + "x" +
                             std::to_string(c.n);
    const auto theirs = scipy.find(size);
    if (theirs == scipy.end()) {
      std::printf(" %10s %8s\n", "-", "-");
    } else {
      std::printf(" %10.1f %8.1f\n", voxels / theirs->second / 1e6, theirs->second / one);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  for (const KernelCase& c : kKernels) {
    if (!Valid(c)) return 1;
  }
  for (const KernelCase& c : kKernels) {
    for (int threads : {1, 2}) {
      const std::string name = std::string("Filter/") + c.name + (threads == 1 ? "/1t" : "/2t");
      benchmark::RegisterBenchmark(name.c_str(), BM_Filter, &c, threads)
          ->UseManualTime()
          ->Iterations(1)
          ->Repetitions(11)
          ->Unit(benchmark::kMillisecond);
    }
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::printf("\nscipy.ndimage.convolve (five runs per kernel size)...\n");
  std::fflush(stdout);
  PrintSummary(ScipySeconds());
  return 0;
}
