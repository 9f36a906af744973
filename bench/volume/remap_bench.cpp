// Volume remap and affine warp on a 256^3 source: remap through a smooth displacement field
// (up to 3 voxels) and warp by a 10-degree rotation about the oblique axis (1, 1, 1) through the
// centre, for the three element types, trilinear and Catmull-Rom, on one and two threads.
//
// In the same run, where available: ITK's WarpImageFilter through the same displacement field
// and ResampleImageFilter with the same map as an AffineTransform (linear, one thread; every
// voxel compared with the library's first), and scipy's map_coordinates and affine_transform
// (order 1 and order 3 without prefilter, one thread), which the companion script
// scipy_remap.py measures, run with /usr/bin/python3 once the library's cases are done; its
// order-1 values at a few voxels are checked against the library's.
//
//   taskset -c 0 build/release/bench/volume/remap_bench       (one core: 1-thread figures)
//   taskset -c 0,1 build/release/bench/volume/remap_bench     (both: 1 -> 2 thread scaling)
//
// The library's cases run seven times, ITK's and scipy's three; the summary at the end gives
// medians: destination Mvox/s, the speed-up over each peer and from one to two threads.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "bench/bench_clock.h"
#include "itk_remap.h"
#include "vtqcore.h"
#include "vtqr.h"

namespace {

using vtqr::bench::CpuNow;
using vtqr::bench::Median;
using vtqr::bench::ItkPixel;
using vtqr::bench::WallNow;

constexpr int kSide = 256;
constexpr size_t kVoxels = size_t{kSide} * kSide * kSide;
constexpr double kTau = 6.283185307179586;

// Seconds of every run, by case name: CPU and wall time.
std::map<std::string, std::vector<double>> gCpu, gWall;
bool gLibraryOnly = false;

template <class T>
struct Type;
template <>
struct Type<Vtq8u> {
  static constexpr const char* kName = "8u";
  static constexpr ItkPixel kItk = ItkPixel::k8u;
  static constexpr double kScale = 200.0;
  static constexpr auto kRemap = vtqrRemap_8u_C1PV;
  static constexpr auto kWarp = vtqrWarpAffine_8u_C1PV;
};
template <>
struct Type<Vtq16u> {
  static constexpr const char* kName = "16u";
  static constexpr ItkPixel kItk = ItkPixel::k16u;
  static constexpr double kScale = 60000.0;
  static constexpr auto kRemap = vtqrRemap_16u_C1PV;
  static constexpr auto kWarp = vtqrWarpAffine_16u_C1PV;
};
template <>
struct Type<Vtq32f> {
  static constexpr const char* kName = "32f";
  static constexpr ItkPixel kItk = ItkPixel::k32f;
  static constexpr double kScale = 1.0;
  static constexpr auto kRemap = vtqrRemap_32f_C1PV;
  static constexpr auto kWarp = vtqrWarpAffine_32f_C1PV;
};

size_t Index(int x, int y, int z) { return (size_t(z) * kSide + y) * kSide + x; }

// A smooth wave with a fine ripple (the formula scipy_remap.py uses too).
template <class T>
const std::vector<T>& Source() {
  static std::vector<T> volume;
  if (volume.empty()) {
    volume.resize(kVoxels);
    for (int z = 0; z < kSide; ++z)
      for (int y = 0; y < kSide; ++y)
        for (int x = 0; x < kSide; ++x) {
          const double s = 0.45 + 0.4 * std::sin(0.05 * x + 0.03 * y) * std::cos(0.04 * z) +
                           0.05 * std::sin(1.9 * x + 2.7 * y + 1.3 * z);
          volume[Index(x, y, z)] = static_cast<T>(static_cast<float>(s) * Type<T>::kScale);
        }
  }
  return volume;
}

// The displacement field's source positions, one map per axis, and the displacements
// interleaved per voxel for ITK.
struct Field {
  std::vector<float> map[3];
  std::vector<float> displacement;
};
const Field& DisplacementField() {
  static Field f;
  if (f.displacement.empty()) {
    for (auto& m : f.map) m.resize(kVoxels);
    f.displacement.resize(3 * kVoxels);
    for (int z = 0; z < kSide; ++z)
      for (int y = 0; y < kSide; ++y)
        for (int x = 0; x < kSide; ++x) {
          const double p[3] = {x + 3 * std::sin(kTau * y / 97) * std::cos(kTau * z / 131),
                               y + 3 * std::sin(kTau * z / 89) * std::cos(kTau * x / 113),
                               z + 2 * std::sin(kTau * x / 103) * std::cos(kTau * y / 71)};
          const int d[3] = {x, y, z};
          for (int a = 0; a < 3; ++a) {
            f.map[a][Index(x, y, z)] = static_cast<float>(p[a]);
            f.displacement[3 * Index(x, y, z) + a] = static_cast<float>(p[a] - d[a]);
          }
        }
  }
  return f;
}

// The rotation by 10 degrees about (1, 1, 1) through the volume's centre, as the library's
// coefficients (source to destination) and as the inverse (destination to source) the peers
// take.
struct Rotation {
  double coeffs[3][4];
  double inverse[3][3];
  double inverseOffset[3];
};
const Rotation& TenDegrees() {
  static Rotation r;
  static bool done = false;
  if (!done) {
    const double angle = 10 * kTau / 360, c = std::cos(angle), s = std::sin(angle);
    const double u = 1 / std::sqrt(3.0), centre = (kSide - 1) / 2.0;
    double m[3][3];
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) m[i][j] = (i == j ? c : 0) + u * u * (1 - c);
    // The cross-product part: s * [u]x.
    m[0][1] -= s * u, m[0][2] += s * u, m[1][0] += s * u, m[1][2] -= s * u, m[2][0] -= s * u,
        m[2][1] += s * u;
    for (int i = 0; i < 3; ++i) {
      r.coeffs[i][3] = centre;
      r.inverseOffset[i] = centre;
      for (int j = 0; j < 3; ++j) {
        r.coeffs[i][j] = m[i][j];
        r.inverse[i][j] = m[j][i];  // a rotation's inverse is its transpose
        r.coeffs[i][3] -= m[i][j] * centre;
        r.inverseOffset[i] -= m[j][i] * centre;
      }
    }
    done = true;
  }
  return r;
}

template <class T>
std::vector<const T*> Slices(const T* volume) {
  std::vector<const T*> slices(kSide);
  for (int z = 0; z < kSide; ++z) slices[z] = volume + size_t(z) * kSide * kSide;
  return slices;
}
template <class T>
std::vector<T*> Slices(T* volume) {
  std::vector<T*> slices(kSide);
  for (int z = 0; z < kSide; ++z) slices[z] = volume + size_t(z) * kSide * kSide;
  return slices;
}

enum class Op { kRemap, kWarp };

template <class T>
VtqStatus Run(Op op, int code, T* dst) {
  static const std::vector<const T*> src = Slices(Source<T>().data());
  static const std::vector<const Vtq32f*> maps[3] = {Slices(DisplacementField().map[0].data()),
                                                     Slices(DisplacementField().map[1].data()),
                                                     Slices(DisplacementField().map[2].data())};
  const std::vector<T*> out = Slices(dst);
  const VtqVolumeSize size = {kSide, kSide, kSide};
  const VtqCuboid all = {0, 0, 0, kSide, kSide, kSide};
  const int step = kSide * sizeof(T);
  if (op == Op::kRemap) {
    return Type<T>::kRemap(src.data(), size, step, all, maps[0].data(), maps[1].data(),
                           maps[2].data(), kSide * sizeof(float), out.data(), step, size, code);
  }
  return Type<T>::kWarp(src.data(), size, step, all, out.data(), step, all, TenDegrees().coeffs,
                        code, nullptr);
}

const char* OpName(Op op) { return op == Op::kRemap ? "remap" : "warp"; }
const char* ModeName(int code) { return code == vtqInterLinear ? "linear" : "catmull-rom"; }

std::string CaseName(Op op, const char* type, const char* mode) {
  return std::string(OpName(op)) + " " + type + " " + mode;
}

template <class T>
void BM_Library(benchmark::State& state, Op op, int code, int threads) {
  std::vector<T> dst(kVoxels);
  Run(op, code, dst.data());  // builds the source and the field outside the timed runs
  vtqSetNumThreads(threads);
  const std::string name = CaseName(op, Type<T>::kName, ModeName(code)) +
                           (threads == 1 ? " 1t" : " 2t");
  double seconds = 0;
  for (auto _ : state) {
    const double cpu = CpuNow(), wall = WallNow();
    const VtqStatus status = Run(op, code, dst.data());
    gCpu[name].push_back(CpuNow() - cpu);
    gWall[name].push_back(WallNow() - wall);
    if (status != vtqStsOk) return state.SkipWithError("the call failed");
    seconds = threads == 1 ? gCpu[name].back() : gWall[name].back();
    state.SetIterationTime(seconds);
  }
  vtqSetNumThreads(0);
  state.counters["Mvox/s"] = double(kVoxels) / seconds / 1e6;
}

template <class T>
double RunItk(Op op, T* dst) {
  const Rotation& r = TenDegrees();
  return op == Op::kRemap ? vtqr::bench::ItkWarpField(Type<T>::kItk, Source<T>().data(), kSide,
                                                      DisplacementField().displacement.data(), dst)
                          : vtqr::bench::ItkResampleAffine(Type<T>::kItk, Source<T>().data(), kSide,
                                                           r.inverse, r.inverseOffset, dst);
}

template <class T>
void BM_Itk(benchmark::State& state, Op op) {
  std::vector<T> dst(kVoxels);
  const std::string name = CaseName(op, Type<T>::kName, "linear") + " itk";
  double seconds = 0;
  for (auto _ : state) {
    const double cpu = CpuNow();
    if (RunItk(op, dst.data()) < 0) return state.SkipWithError("built without ITK");
    seconds = CpuNow() - cpu;
    state.SetIterationTime(seconds);
    gCpu[name].push_back(seconds);
  }
  state.counters["Mvox/s"] = double(kVoxels) / seconds / 1e6;
}

// Whether the source position of a destination voxel lies a voxel or more inside the source.
bool WellInside(Op op, int x, int y, int z) {
  const Rotation& r = TenDegrees();
  const int d[3] = {x, y, z};
  for (int a = 0; a < 3; ++a) {
    double p = DisplacementField().map[a][Index(x, y, z)];
    if (op == Op::kWarp) {
      p = r.inverseOffset[a];
      for (int j = 0; j < 3; ++j) p += r.inverse[a][j] * d[j];
    }
    if (!(p >= 1 && p <= kSide - 2)) return false;
  }
  return true;
}

// The library's trilinear result against ITK's at every voxel whose position lies well inside
// the source (ITK extrapolates the last half voxel, where the library leaves the voxel
// unchanged). ITK interpolates in double, so they agree to the float passes' rounding, or one
// unit.
template <class T>
bool MatchesItk(Op op) {
  std::vector<T> ours(kVoxels), theirs(kVoxels);
  if (Run(op, vtqInterLinear, ours.data()) != vtqStsOk) return false;
  if (RunItk(op, theirs.data()) < 0) return true;
  const double tolerance = std::is_same_v<T, Vtq32f> ? 1e-5 : 1.0;
  size_t worse = 0;
  for (int z = 0; z < kSide; ++z)
    for (int y = 0; y < kSide; ++y)
      for (int x = 0; x < kSide; ++x) {
        if (!WellInside(op, x, y, z)) continue;
        const size_t i = Index(x, y, z);
        if (std::abs(double(ours[i]) - double(theirs[i])) > tolerance && worse++ == 0) {
          std::fprintf(stderr, "%s %s: voxel %d,%d,%d differs from ITK: %g vs %g\n", OpName(op),
                       Type<T>::kName, x, y, z, double(ours[i]), double(theirs[i]));
        }
      }
  return worse == 0;
}

// scipy's figures and probe values, from the companion script.
struct ScipyResults {
  std::map<std::string, std::vector<double>> seconds;
  std::vector<std::string> probes;  // "map_coordinates x y z value"
};

ScipyResults RunScipy() {
  ScipyResults results;
  const Rotation& r = TenDegrees();
  std::ostringstream command;
  command.precision(17);
  command << "/usr/bin/python3 " << VTQR_BENCH_SCIPY_SCRIPT << " " << kSide;
  for (const auto& row : r.inverse)
    for (double v : row) command << " " << v;
  for (double v : r.inverseOffset) command << " " << v;
  command << " 2>/dev/null";
  FILE* pipe = popen(command.str().c_str(), "r");
  if (pipe == nullptr) return results;
  char line[512];
  while (std::fgets(line, sizeof(line), pipe) != nullptr) {
    std::istringstream in(line);
    std::string word, name;
    in >> word;
    if (word == "value") {
      std::string rest;
      std::getline(in, rest);
      results.probes.push_back(rest);
      continue;
    }
    in >> name;
    const std::string key = word + " " + name;
    double s;
    while (in >> s) results.seconds[key].push_back(s);
  }
  pclose(pipe);
  return results;
}

// The library's 32f trilinear values at scipy's probes: the same positions up to the
// rounding of the field (numpy's and the C library's sines) and of the double interpolation.
bool MatchesScipy(const ScipyResults& scipy) {
  std::vector<Vtq32f> remapped(kVoxels), warped(kVoxels);
  Run(Op::kRemap, vtqInterLinear, remapped.data());
  Run(Op::kWarp, vtqInterLinear, warped.data());
  bool ok = true;
  for (const std::string& probe : scipy.probes) {
    std::istringstream in(probe);
    std::string op;
    int x, y, z;
    double value;
    in >> op >> x >> y >> z >> value;
    const double ours = (op == "map_coordinates" ? remapped : warped)[Index(x, y, z)];
    if (std::abs(ours - value) > 1e-4) {
      std::fprintf(stderr, "%s at %d,%d,%d: scipy %g, library %g\n", op.c_str(), x, y, z, value,
                   ours);
      ok = false;
    }
  }
  return ok;
}

void PrintSummary(const ScipyResults& scipy) {
  const char* peers[2][3] = {{"map_coordinates o1", "map_coordinates o3", "WarpImageFilter"},
                             {"affine_transform o1", "affine_transform o3", "ResampleImageFilter"}};
  std::printf(
      "\nMedians, Mvox/s of destination voxels (256^3); one thread in CPU time, two in "
      "wall time, 2t/1t in wall time.\nPeers on one thread, CPU time: scipy (order 1 "
      "against linear, order 3 without prefilter against Catmull-Rom) and ITK (linear).\n");
  std::printf("%-26s %9s %9s %6s %11s %8s %10s %8s\n", "case", "1t Mvox/s", "2t Mvox/s", "2t/1t",
              "scipy Mvox/s", "x scipy", "ITK Mvox/s", "x ITK");
  for (Op op : {Op::kRemap, Op::kWarp}) {
    for (const char* type : {"8u", "16u", "32f"}) {
      for (int code : {vtqInterLinear, vtqInterCubicCatmullRom}) {
        const std::string name = CaseName(op, type, ModeName(code));
        const double one = Median(gCpu[name + " 1t"]);
        const double two = Median(gWall[name + " 2t"]);
        std::printf("%-26s %9.1f %9.1f %6.2f", name.c_str(), kVoxels / one / 1e6,
                    kVoxels / two / 1e6, Median(gWall[name + " 1t"]) / two);
        const bool linear = code == vtqInterLinear;
        const auto found = scipy.seconds.find(peers[int(op)][linear ? 0 : 1]);
        if (std::string(type) == "32f" && found != scipy.seconds.end()) {
          const double s = Median(found->second);
          std::printf(" %11.1f %8.1f", kVoxels / s / 1e6, s / one);
        } else {
          std::printf(" %11s %8s", "-", "-");
        }
        const double itk = linear ? Median(gCpu[name + " itk"]) : NAN;
        if (std::isnan(itk)) {
          std::printf(" %10s %8s\n", "-", "-");
        } else {
          std::printf(" %10.1f %8.1f\n", kVoxels / itk / 1e6, itk / one);
        }
      }
    }
  }
  std::printf("ITK peers: remap against %s, warp against %s.\n", peers[0][2], peers[1][2]);
}

void Configure(benchmark::internal::Benchmark* b, int repetitions) {
  b->UseManualTime()->Iterations(1)->Repetitions(repetitions)->Unit(benchmark::kMillisecond);
}

template <class T>
void Register() {
  for (Op op : {Op::kRemap, Op::kWarp}) {
    for (int code : {vtqInterLinear, vtqInterCubicCatmullRom}) {
      for (int threads : {1, 2}) {
        const std::string name = std::string("Library/") +
                                 CaseName(op, Type<T>::kName, ModeName(code)) +
                                 (threads == 1 ? "/1t" : "/2t");
        Configure(benchmark::RegisterBenchmark(name.c_str(), BM_Library<T>, op, code, threads), 7);
      }
    }
    if (vtqr::bench::ItkBuiltIn() && !gLibraryOnly) {
      const std::string name = std::string("ITK/") + CaseName(op, Type<T>::kName, "linear");
      Configure(benchmark::RegisterBenchmark(name.c_str(), BM_Itk<T>, op), 3);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  // --library-only: the library's cases alone, for quick comparisons of its own versions.
  bool libraryOnly = false;
  for (int i = 1; i < argc; ++i)
    libraryOnly = libraryOnly || std::strcmp(argv[i], "--library-only") == 0;
  bool valid = true;
  for (Op op : {Op::kRemap, Op::kWarp}) {
    if (libraryOnly) break;
    valid = MatchesItk<Vtq8u>(op) && valid;
    valid = MatchesItk<Vtq16u>(op) && valid;
    valid = MatchesItk<Vtq32f>(op) && valid;
  }
  if (!valid) return 1;
  gLibraryOnly = libraryOnly;
  Register<Vtq8u>();
  Register<Vtq16u>();
  Register<Vtq32f>();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  ScipyResults scipy;
  if (!libraryOnly) {
    std::printf("\nscipy (%s) ...\n", VTQR_BENCH_SCIPY_SCRIPT);
    std::fflush(stdout);
    scipy = RunScipy();
  }
  if (scipy.seconds.empty()) std::printf("scipy not available: its columns stay empty\n");
  if (!MatchesScipy(scipy)) return 1;
  PrintSummary(scipy);
  return 0;
}
