// Triangle records and bound box over the scanned meshes. Each benchmark times the export and,
// in the same run, a plain-loop baseline doing comparable work (a float-only record without the
// dominant-axis logic; a std::min/std::max fold), and reports the ratio baseline / export.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <string>
#include <vector>

#include "support/mesh_loader.h"
#include "vtqr.h"

namespace {

using vtqr::test::Mesh;

const Mesh& SharedMesh(const char* name) {
  static Mesh bunny, igea;
  Mesh& mesh = std::string(name) == "igea.ply" ? igea : bunny;
  if (mesh.vert.empty()) {
    std::string error;
    vtqr::test::LoadMesh(std::string(VTQR_SHARED_DATA_DIR) + "/" + name, &mesh, &error);
  }
  return mesh;
}

// Baseline record: float cross product and plain scaling along z, no axis choice.
void BaselineRecords(const Mesh& mesh, std::vector<VtqrTriangleAccel>* out) {
  for (int t = 0; t < mesh.TriCount(); ++t) {
    const float* p = &mesh.vert[3 * mesh.tri[4 * t + 2]];
    const float* a = &mesh.vert[3 * mesh.tri[4 * t]];
    const float* b = &mesh.vert[3 * mesh.tri[4 * t + 1]];
    float e1[3] = {a[0] - p[0], a[1] - p[1], a[2] - p[2]};
    float e2[3] = {b[0] - p[0], b[1] - p[1], b[2] - p[2]};
    float nz = e1[0] * e2[1] - e1[1] * e2[0];
    float q = 1.0f / nz;
    VtqrTriangleAccel& r = (*out)[t];
    r = {0x01u,     (e1[1] * e2[2] - e1[2] * e2[1]) * q,
         p[2],      (e1[2] * e2[0] - e1[0] * e2[2]) * q,
         p[0],      p[1],
         e2[0] * q, e2[1] * q,
         e1[0] * q, e1[1] * q};
  }
}

void BaselineBox(const Mesh& mesh, float box[6]) {
  float lo[3] = {INFINITY, INFINITY, INFINITY}, hi[3] = {-INFINITY, -INFINITY, -INFINITY};
  for (size_t i = 0; i < mesh.vert.size(); i += 3) {
    for (int j = 0; j < 3; ++j) {
      lo[j] = std::min(lo[j], mesh.vert[i + j]);
      hi[j] = std::max(hi[j], mesh.vert[i + j]);
    }
  }
  std::copy(lo, lo + 3, box);
  std::copy(hi, hi + 3, box + 3);
}

template <class Fn>
double SecondsFor(benchmark::IterationCount iterations, Fn fn) {
  auto start = std::chrono::steady_clock::now();
  for (benchmark::IterationCount i = 0; i < iterations; ++i) fn();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void BM_TriangleAccelInit(benchmark::State& state, const char* name) {
  const Mesh& mesh = SharedMesh(name);
  if (mesh.tri.empty()) return state.SkipWithError("shared mesh not found");
  std::vector<VtqrTriangleAccel> records(static_cast<size_t>(mesh.TriCount()));
  auto run = [&] {
    vtqrTriangleAccelInit(records.data(), mesh.vert.data(), mesh.tri.data(), mesh.TriCount());
    benchmark::DoNotOptimize(records.data());
  };
  auto start = std::chrono::steady_clock::now();
  for (auto _ : state) run();
  double kernel = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  double baseline = SecondsFor(state.iterations(), [&] {
    BaselineRecords(mesh, &records);
    benchmark::DoNotOptimize(records.data());
  });
  state.counters["tris/s"] = benchmark::Counter(
      static_cast<double>(mesh.TriCount()) * state.iterations(), benchmark::Counter::kIsRate);
  state.counters["baseline/kernel"] = baseline / kernel;
}

void BM_SetBoundBox(benchmark::State& state, const char* name) {
  const Mesh& mesh = SharedMesh(name);
  if (mesh.vert.empty()) return state.SkipWithError("shared mesh not found");
  float box[6];
  auto start = std::chrono::steady_clock::now();
  for (auto _ : state) {
    vtqrSetBoundBox_32f(mesh.vert.data(), mesh.VertCount(), box);
    benchmark::DoNotOptimize(box);
  }
  double kernel = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  double baseline = SecondsFor(state.iterations(), [&] {
    BaselineBox(mesh, box);
    benchmark::DoNotOptimize(box);
  });
  state.counters["verts/s"] = benchmark::Counter(
      static_cast<double>(mesh.VertCount()) * state.iterations(), benchmark::Counter::kIsRate);
  state.counters["baseline/kernel"] = baseline / kernel;
}

BENCHMARK_CAPTURE(BM_TriangleAccelInit, bunny, "stanford-bunny.obj")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_TriangleAccelInit, igea, "igea.ply")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_SetBoundBox, bunny, "stanford-bunny.obj")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_SetBoundBox, igea, "igea.ply")->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
