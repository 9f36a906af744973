// Triangle normals: vtqrTriangleNormal_32f against the plain double loop an application would
// write for the same result, timed in the same run on the same mesh (igea.ply from the shared
// data when present, and always a generated bumpy sphere of 500k triangles).
//
// Rows: Export/threads:N runs the export with the library's thread count at N; each row also
// times the plain loop (one thread) for as many iterations and reports
//   tris/s         the export's rate (wall time)
//   plain/export   the plain loop's time over the export's: above 1, the export is faster.
// The plain loop's results are checked against the export's, bit for bit, before timing.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "support/mesh_loader.h"
#include "vtqcore.h"
#include "vtqr.h"

namespace {

using vtqr::test::Mesh;

const Mesh& BenchMesh(const std::string& name) {
  static Mesh igea, sphere;
  if (name == "igea") {
    if (igea.vert.empty()) {
      std::string error;
      vtqr::test::LoadMesh(std::string(VTQR_SHARED_DATA_DIR) + "/igea.ply", &igea, &error);
    }
    return igea;
  }
  if (sphere.vert.empty()) sphere = vtqr::test::BumpySphere(500, 500, 0.2f, 7);
  return sphere;
}

// The normal as an application would compute it: the same double formula, one triangle at a
// time.
void PlainNormals(const Mesh& mesh, float* out) {
  const float* v = mesh.vert.data();
  for (int t = 0; t < mesh.TriCount(); ++t) {
    const float* a = v + 3 * mesh.tri[4 * t];
    const float* b = v + 3 * mesh.tri[4 * t + 1];
    const float* c = v + 3 * mesh.tri[4 * t + 2];
    double e1[3], e2[3];
    for (int k = 0; k < 3; ++k) {
      e1[k] = static_cast<double>(a[k]) - c[k];
      e2[k] = static_cast<double>(b[k]) - c[k];
    }
    const double n[3] = {e1[1] * e2[2] - e1[2] * e2[1], e1[2] * e2[0] - e2[2] * e1[0],
                         e2[1] * e1[0] - e1[1] * e2[0]};
    const double s = n[0] * n[0] + n[1] * n[1] + n[2] * n[2];
    const double r = std::sqrt(s);
    for (int k = 0; k < 3; ++k) {
      out[3 * t + k] = s < 2.220446049250313e-16 ? 0.0f : static_cast<float>(n[k] / r);
    }
  }
}

void BM_TriangleNormal(benchmark::State& state, std::string name) {
  const Mesh& mesh = BenchMesh(name);
  if (mesh.tri.empty()) return state.SkipWithError("shared mesh not found");
  const int threads = static_cast<int>(state.range(0));
  std::vector<float> normals(3 * mesh.tri.size() / 4);
  std::vector<float> plain(normals.size());
  vtqSetNumThreads(threads);
  vtqrTriangleNormal_32f(mesh.vert.data(), mesh.tri.data(), normals.data(), mesh.TriCount());
  PlainNormals(mesh, plain.data());
  if (std::memcmp(normals.data(), plain.data(), normals.size() * sizeof(float)) != 0) {
    return state.SkipWithError("the plain loop and the export disagree");
  }

  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) {
    vtqrTriangleNormal_32f(mesh.vert.data(), mesh.tri.data(), normals.data(), mesh.TriCount());
    benchmark::DoNotOptimize(normals.data());
  }
  const auto middle = std::chrono::steady_clock::now();
  for (benchmark::IterationCount i = 0; i < state.iterations(); ++i) {
    PlainNormals(mesh, plain.data());
    benchmark::DoNotOptimize(plain.data());
  }
  const auto end = std::chrono::steady_clock::now();
  vtqSetNumThreads(0);

  const double exported = std::chrono::duration<double>(middle - start).count();
  const double baseline = std::chrono::duration<double>(end - middle).count();
  state.counters["tris/s"] = static_cast<double>(mesh.TriCount()) *
                             static_cast<double>(state.iterations()) / exported;
  state.counters["plain/export"] = baseline / exported;
}

BENCHMARK_CAPTURE(BM_TriangleNormal, igea, std::string("igea"))
    ->ArgName("threads")
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_TriangleNormal, sphere, std::string("sphere"))
    ->ArgName("threads")
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
