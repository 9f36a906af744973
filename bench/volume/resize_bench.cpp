// Volume resize: a 256^3 source enlarged by 1.5 and shrunk by 0.5 on every axis, for the three
// element types and the modes nearest, trilinear and Catmull-Rom, on one and two threads.
//
// In the same run: ITK's ResampleImageFilter with the same map (linear and nearest, one
// thread) when the benchmark was built with ITK, and a plain copy of the source volume. Before
// timing, the trilinear and nearest results are compared with ITK's on every voxel.
//
//   taskset -c 0 build/release/bench/volume/resize_bench        (one core: 1-thread figures)
//   taskset -c 0,1 build/release/bench/volume/resize_bench      (both: 1 -> 2 thread scaling)
//
// Every case runs eleven times (ITK's five); the summary at the end gives medians: destination
// Mvox/s, bytes moved per second (source read plus destination written) as a fraction of the
// copy's, the speed-up over ITK and from one to two threads.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "bench/bench_clock.h"
#include "itk_resize.h"
#include "vtqcore.h"
#include "vtqr.h"

namespace {

using vtqr::bench::Median;
using vtqr::bench::WallNow;

using vtqr::bench::ItkPixel;

constexpr int kSide = 256;

// Seconds of every run, by case name.
std::map<std::string, std::vector<double>> gSeconds;

template <class T>
struct Type;
template <>
struct Type<Vtq8u> {
  static constexpr const char* kName = "8u";
  static constexpr ItkPixel kItk = ItkPixel::k8u;
  static constexpr auto kResize = vtqrResize_8u_C1V;
};
template <>
struct Type<Vtq16u> {
  static constexpr const char* kName = "16u";
  static constexpr ItkPixel kItk = ItkPixel::k16u;
  static constexpr auto kResize = vtqrResize_16u_C1V;
};
template <>
struct Type<Vtq32f> {
  static constexpr const char* kName = "32f";
  static constexpr ItkPixel kItk = ItkPixel::k32f;
  static constexpr auto kResize = vtqrResize_32f_C1V;
};

// A smooth volume with some texture, so that no mode meets only constant rows.
template <class T>
const std::vector<T>& Source() {
  static std::vector<T> volume;
  if (volume.empty()) {
    volume.resize(size_t{kSide} * kSide * kSide);
    std::mt19937 rng(1);
    std::uniform_real_distribution<double> noise(0.0, 0.1);
    const double scale = std::is_same_v<T, Vtq32f>  ? 1.0
                         : std::is_same_v<T, Vtq8u> ? 200.0
                                                    : 60000.0;
    size_t i = 0;
    for (int z = 0; z < kSide; ++z)
      for (int y = 0; y < kSide; ++y)
        for (int x = 0; x < kSide; ++x)
          volume[i++] = static_cast<T>(
              scale *
              (0.45 + 0.45 * std::sin(0.05 * x + 0.03 * y) * std::cos(0.04 * z) + noise(rng)));
  }
  return volume;
}

int DstSide(double factor) {
  const VtqCuboid src = {0, 0, 0, kSide, kSide, kSide};
  VtqCuboid dst;
  vtqrGetResizeCuboid(&src, &dst, factor, factor, factor, 0, 0, 0, 1);
  return dst.width;
}

const char* ModeName(int code) {
  return code == vtqInterNearest ? "nearest" : code == vtqInterLinear ? "linear" : "catmull-rom";
}

std::string CaseName(const char* type, double factor, const char* mode) {
  char text[64];
  std::snprintf(text, sizeof(text), "%s x%.1f %s", type, factor, mode);
  return text;
}

template <class T>
void Resize(const std::vector<T>& src, double factor, int code, std::vector<T>* dst,
            std::vector<Vtq8u>* buffer) {
  const int side = DstSide(factor);
  const VtqVolumeSize srcSize = {kSide, kSide, kSide};
  const VtqCuboid srcVOI = {0, 0, 0, kSide, kSide, kSide};
  const VtqCuboid dstVOI = {0, 0, 0, side, side, side};
  const int row = kSide * sizeof(T), dstRow = side * sizeof(T);
  VtqStatus status = Type<T>::kResize(src.data(), srcSize, row, row * kSide, srcVOI, dst->data(),
                                      dstRow, dstRow * side, dstVOI, factor, factor, factor, 0, 0,
                                      0, code, buffer->data());
  if (status != vtqStsOk) std::fprintf(stderr, "resize failed: %d\n", status);
}

template <class T>
void BM_Resize(benchmark::State& state, double factor, int code, int threads) {
  const std::vector<T>& src = Source<T>();
  const int side = DstSide(factor);
  std::vector<T> dst(size_t(side) * side * side);
  vtqSetNumThreads(2);  // a buffer for either thread count
  const VtqCuboid srcVOI = {0, 0, 0, kSide, kSide, kSide};
  const VtqCuboid dstVOI = {0, 0, 0, side, side, side};
  int bytes = 0;
  vtqrResizeGetBufSize(&srcVOI, &dstVOI, 1, code, &bytes);
  std::vector<Vtq8u> buffer(static_cast<size_t>(bytes));
  vtqSetNumThreads(threads);
  const std::string name = CaseName(Type<T>::kName, factor, ModeName(code)) +
                           (threads == 1 ? " 1t" : " 2t");
  double seconds = 0;
  for (auto _ : state) {
    const double start = WallNow();
    Resize(src, factor, code, &dst, &buffer);
    seconds = WallNow() - start;
    state.SetIterationTime(seconds);
    gSeconds[name].push_back(seconds);
  }
  vtqSetNumThreads(0);
  state.counters["Mvox/s"] = double(dst.size()) / seconds / 1e6;
}

// Compares the library's result with ITK's on every voxel. ITK interpolates in double and
// treats the last half voxel like the library (edge replicated), so the two agree to the
// rounding of the float passes, and exactly for nearest.
template <class T>
bool MatchesItk(double factor, int code) {
  const std::vector<T>& src = Source<T>();
  const int side = DstSide(factor);
  std::vector<T> ours(size_t(side) * side * side), theirs(ours.size());
  std::vector<Vtq8u> buffer;
  const VtqCuboid srcVOI = {0, 0, 0, kSide, kSide, kSide};
  const VtqCuboid dstVOI = {0, 0, 0, side, side, side};
  int bytes = 0;
  vtqrResizeGetBufSize(&srcVOI, &dstVOI, 1, code, &bytes);
  buffer.resize(static_cast<size_t>(bytes));
  Resize(src, factor, code, &ours, &buffer);
  if (vtqr::bench::ItkResize(Type<T>::kItk, src.data(), kSide, factor, side, code == vtqInterLinear,
                             theirs.data()) < 0) {
    return true;
  }
  const double tolerance = std::is_same_v<T, Vtq32f> ? 1e-5 : code == vtqInterLinear ? 1.0 : 0.0;
  for (size_t i = 0; i < ours.size(); ++i) {
    if (std::abs(double(ours[i]) - double(theirs[i])) > tolerance) {
      std::fprintf(stderr, "%s: voxel %zu differs from ITK: %g vs %g\n",
                   CaseName(Type<T>::kName, factor, ModeName(code)).c_str(), i, double(ours[i]),
                   double(theirs[i]));
      return false;
    }
  }
  return true;
}

template <class T>
void BM_Itk(benchmark::State& state, double factor, bool linear) {
  const std::vector<T>& src = Source<T>();
  const int side = DstSide(factor);
  std::vector<T> dst(size_t(side) * side * side);
  const std::string name = CaseName(Type<T>::kName, factor, linear ? "linear" : "nearest") + " itk";
  double seconds = 0;
  for (auto _ : state) {
    seconds = vtqr::bench::ItkResize(Type<T>::kItk, src.data(), kSide, factor, side, linear,
                                     dst.data());
    if (seconds < 0) return state.SkipWithError("built without ITK");
    state.SetIterationTime(seconds);
    gSeconds[name].push_back(seconds);
  }
  state.counters["Mvox/s"] = double(dst.size()) / seconds / 1e6;
}

// The bytes-moved yardstick: a plain copy of the 32f source (64 MiB read, 64 MiB written).
void BM_Copy(benchmark::State& state) {
  const std::vector<Vtq32f>& src = Source<Vtq32f>();
  std::vector<Vtq32f> dst(src.size());
  double seconds = 0;
  for (auto _ : state) {
    const double start = WallNow();
    std::memcpy(dst.data(), src.data(), src.size() * sizeof(Vtq32f));
    benchmark::DoNotOptimize(dst.data());
    seconds = WallNow() - start;
    state.SetIterationTime(seconds);
    gSeconds["copy"].push_back(seconds);
  }
  state.counters["GB/s"] = 2.0 * src.size() * sizeof(Vtq32f) / seconds / 1e9;
}

template <class T>
void PrintRows(double copyBytesPerSecond) {
  for (double factor : {1.5, 0.5}) {
    const int side = DstSide(factor);
    const double voxels = double(side) * side * side;
    const double bytes = (double(kSide) * kSide * kSide + voxels) * sizeof(T);
    for (int code : {vtqInterNearest, vtqInterLinear, vtqInterCubicCatmullRom}) {
      const std::string name = CaseName(Type<T>::kName, factor, ModeName(code));
      const double one = Median(gSeconds[name + " 1t"]);
      const double two = Median(gSeconds[name + " 2t"]);
      const double itk = Median(gSeconds[name + " itk"]);
      std::printf("%-24s %9.1f %9.1f %10.2f %9.2f", name.c_str(), voxels / one / 1e6,
                  voxels / two / 1e6, bytes / one / copyBytesPerSecond, one / two);
      if (std::isnan(itk)) {
        std::printf(" %10s %9s\n", "-", "-");  // ITK has no such mode, or was not built in
      } else {
        std::printf(" %10.1f %9.1f\n", voxels / itk / 1e6, itk / one);
      }
    }
  }
}

void PrintSummary() {
  const double copy = 2.0 * kSide * kSide * kSide * sizeof(Vtq32f) / Median(gSeconds["copy"]);
  std::printf(
      "\nMedians. Mvox/s of destination voxels; bytes/copy: (source + destination bytes) "
      "per second over the copy's %.1f GB/s\n",
      copy / 1e9);
  std::printf("%-24s %9s %9s %10s %9s %10s %9s\n", "case", "1t Mvox/s", "2t Mvox/s", "bytes/copy",
              "2t/1t", "ITK Mvox/s", "x ITK");
  PrintRows<Vtq8u>(copy);
  PrintRows<Vtq16u>(copy);
  PrintRows<Vtq32f>(copy);
}

// Repetitions: the library's runs take milliseconds, so eleven of them keep the median clear
// of a stray disturbance on a shared machine; ITK's take up to a second each.
void Configure(benchmark::internal::Benchmark* b, int repetitions) {
  b->UseManualTime()->Iterations(1)->Repetitions(repetitions)->Unit(benchmark::kMillisecond);
}

template <class T>
void Register() {
  for (double factor : {1.5, 0.5}) {
    for (int code : {vtqInterNearest, vtqInterLinear, vtqInterCubicCatmullRom}) {
      for (int threads : {1, 2}) {
        const std::string name = std::string("Resize/") +
                                 CaseName(Type<T>::kName, factor, ModeName(code)) +
                                 (threads == 1 ? "/1t" : "/2t");
        Configure(benchmark::RegisterBenchmark(name.c_str(), BM_Resize<T>, factor, code, threads),
                  11);
      }
    }
    for (bool linear : {false, true}) {
      if (!vtqr::bench::ItkBuiltIn()) break;
      const std::string name = std::string("ITK/") +
                               CaseName(Type<T>::kName, factor, linear ? "linear" : "nearest");
      Configure(benchmark::RegisterBenchmark(name.c_str(), BM_Itk<T>, factor, linear), 5);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  bool valid = true;
  for (double factor : {1.5, 0.5}) {
    for (int code : {vtqInterNearest, vtqInterLinear}) {
      valid = MatchesItk<Vtq8u>(factor, code) && valid;
      valid = MatchesItk<Vtq16u>(factor, code) && valid;
      valid = MatchesItk<Vtq32f>(factor, code) && valid;
    }
  }
  if (!valid) return 1;
  Configure(benchmark::RegisterBenchmark("Copy/32f 256^3", BM_Copy), 11);
  Register<Vtq8u>();
  Register<Vtq16u>();
  Register<Vtq32f>();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  PrintSummary();
  return 0;
}
