// SAH KD-tree build time and tree figures, against Embree 3's BVH build of the same mesh in the
// same run (when Embree is available), on one thread.
//
// Every build runs five times; the summary printed at the end gives medians and the ratios to
// read off: our build time over Embree's high- and medium-quality builds, and our tree block
// over the memory Embree's scene keeps after commit. The "sphere" rows at three sizes show how
// the build time grows with the mesh (N log N: time per triangle should grow only slowly).
//
// The SAH figure is an estimate; "nodes/ray" and "tris/ray" measure what a tree costs its users:
// a plain front-to-back walk of 4096 random rays through the mesh's bounds, counting the nodes
// each ray visits and the triangle tests it makes before its first hit ends the walk.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "accel/kdtree_node.h"
#include "bench/bench_clock.h"
#include "support/kdtree_check.h"
#include "support/mesh_loader.h"
#include "vtqcore.h"
#include "vtqr.h"

#if defined(VTQR_BENCH_EMBREE)
#include <embree3/rtcore.h>
#endif

namespace {

using vtqr::bench::CpuNow;
using vtqr::bench::Median;
namespace kdnode = vtqr::kdnode;
using vtqr::test::Mesh;

struct Row {
  std::string mesh;
  int triangles = 0;
  std::map<std::string, std::vector<double>> seconds;  // per builder
  std::map<std::string, int64_t> bytes;                // memory each builder's result keeps
  vtqr::KDTreeStats stats;
  double nodesPerRay = 0;
  double trisPerRay = 0;
};
std::vector<Row> gRows;

// Ray/triangle test in double precision (Moller-Trumbore); the hit distance or +inf.
double HitDistance(const Mesh& mesh, int32_t tri, const double o[3], const double d[3]) {
  const float* p[3];
  for (int k = 0; k < 3; ++k) p[k] = &mesh.vert[3 * size_t(mesh.tri[4 * size_t(tri) + k])];
  double e1[3], e2[3], s[3];
  for (int k = 0; k < 3; ++k) {
    e1[k] = double(p[1][k]) - p[0][k];
    e2[k] = double(p[2][k]) - p[0][k];
    s[k] = o[k] - p[0][k];
  }
  double h[3] = {d[1] * e2[2] - d[2] * e2[1], d[2] * e2[0] - d[0] * e2[2],
                 d[0] * e2[1] - d[1] * e2[0]};
  double det = e1[0] * h[0] + e1[1] * h[1] + e1[2] * h[2];
  if (det == 0) return INFINITY;
  double u = (s[0] * h[0] + s[1] * h[1] + s[2] * h[2]) / det;
  double q[3] = {s[1] * e1[2] - s[2] * e1[1], s[2] * e1[0] - s[0] * e1[2],
                 s[0] * e1[1] - s[1] * e1[0]};
  double v = (d[0] * q[0] + d[1] * q[1] + d[2] * q[2]) / det;
  double t = (e2[0] * q[0] + e2[1] * q[1] + e2[2] * q[2]) / det;
  if (u < 0 || v < 0 || u + v > 1 || t < 0) return INFINITY;
  return t;
}

// Per-ray work of a front-to-back walk: near child first, the far one deferred while the ray's
// interval reaches past the plane; the walk ends at the first leaf whose interval holds a hit.
void MeasureRays(const VtqrKDTreeNode* tree, const Mesh& mesh, Row* row) {
  double lo[3] = {INFINITY, INFINITY, INFINITY};
  double hi[3] = {-INFINITY, -INFINITY, -INFINITY};
  for (size_t i = 0; i < mesh.tri.size(); i += 4) {
    for (int k = 0; k < 3; ++k) {
      for (int axis = 0; axis < 3; ++axis) {
        double x = mesh.vert[3 * size_t(mesh.tri[i + k]) + axis];
        lo[axis] = std::min(lo[axis], x);
        hi[axis] = std::max(hi[axis], x);
      }
    }
  }
  double diagonal = std::hypot(hi[0] - lo[0], hi[1] - lo[1], hi[2] - lo[2]);
  std::mt19937 rng(12345);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::normal_distribution<double> normal;
  constexpr int kRays = 4096;
  int64_t nodes = 0;
  int64_t tests = 0;
  struct Entry {
    const VtqrKDTreeNode* node;
    double tmin, tmax;
  };
  for (int r = 0; r < kRays; ++r) {
    // A random point of the box and a random direction; the ray starts outside the box.
    double d[3], o[3];
    double len = 0;
    for (int k = 0; k < 3; ++k) {
      d[k] = normal(rng);
      len += d[k] * d[k];
    }
    len = std::sqrt(len);
    double tmin = 0;
    double tmax = INFINITY;
    for (int k = 0; k < 3; ++k) {
      d[k] /= len;
      o[k] = lo[k] + unit(rng) * (hi[k] - lo[k]) - diagonal * d[k];
      double t0 = (lo[k] - o[k]) / d[k];
      double t1 = (hi[k] - o[k]) / d[k];
      tmin = std::max(tmin, std::min(t0, t1));
      tmax = std::min(tmax, std::max(t0, t1));
    }
    if (!(tmin <= tmax)) continue;
    Entry stack[kdnode::kWalkStackSize];
    int depth = 0;
    Entry at{tree, tmin, tmax};
    double best = INFINITY;
    for (;;) {
      const VtqrKDTreeNode* node = at.node;
      ++nodes;
      if (!kdnode::IsLeaf(*node)) {
        int axis = kdnode::SplitAxis(*node);
        float split = kdnode::SplitPosition(*node);
        const VtqrKDTreeNode* below = kdnode::LowerChild(node);
        bool originBelow = o[axis] < split || (o[axis] == split && d[axis] <= 0);
        const VtqrKDTreeNode* nearChild = originBelow ? below : below + 1;
        const VtqrKDTreeNode* farChild = originBelow ? below + 1 : below;
        double tPlane = (split - o[axis]) / d[axis];
        if (tPlane > at.tmax || tPlane <= 0) {
          at.node = nearChild;
        } else if (tPlane < at.tmin) {
          at.node = farChild;
        } else {
          stack[depth++] = {farChild, tPlane, at.tmax};
          at = {nearChild, at.tmin, tPlane};
        }
        continue;
      }
      int32_t scratch[3];
      kdnode::LeafTriangles leaf = kdnode::ReadLeaf(node, scratch);
      for (int i = 0; i < leaf.count; ++i) {
        best = std::min(best, HitDistance(mesh, leaf.ids[i], o, d));
      }
      tests += leaf.count;
      if (best <= at.tmax || depth == 0) break;
      at = stack[--depth];
    }
  }
  row->nodesPerRay = static_cast<double>(nodes) / kRays;
  row->trisPerRay = static_cast<double>(tests) / kRays;
}

void BuildSah(benchmark::State& state, const Mesh* mesh, Row* row) {
  VtqrKDTreeBuildParams params{};
  params.algorithm = KDTreeAlgSAH;
  params.maxDepth = kdnode::kMaxDepth;
  params.factor = 1.0f;
  params.memoryMB = 2048;
  for (auto _ : state) {
    VtqrKDTreeNode* tree = nullptr;
    int size = 0;
    double start = CpuNow();
    VtqStatus status = vtqrKDTreeBuildAlloc(&tree, mesh->vert.data(), mesh->tri.data(),
                                            mesh->VertCount(), mesh->TriCount(), &size, &params);
    double seconds = CpuNow() - start;
    state.SetIterationTime(seconds);
    if (status != vtqStsOk) {
      state.SkipWithError("build failed");
      return;
    }
    row->seconds["kdtree"].push_back(seconds);
    row->bytes["kdtree"] = size;
    if (row->stats.nodes == 0) {
      // Structure and cost only: the full coverage proof would take far longer than the build.
      vtqr::KDTreeCheckOptions options;
      options.checkCoverage = false;
      vtqr::KDTreeMesh checked{mesh->vert.data(), mesh->tri.data(), mesh->VertCount(),
                               mesh->TriCount()};
      std::string fault = vtqr::CheckKDTree(tree, size, checked, options, &row->stats);
      if (!fault.empty()) state.SkipWithError(fault.c_str());
      MeasureRays(tree, *mesh, row);
    }
    vtqrKDTreeFree(tree);
  }
  state.counters["tree MB"] = row->bytes["kdtree"] / 1048576.0;
  state.counters["leaves"] = static_cast<double>(row->stats.leaves);
  state.counters["avg leaf"] = row->stats.averageLeafSize;
  state.counters["depth"] = row->stats.maxDepth;
  state.counters["SAH"] = row->stats.sahCost;
  state.counters["nodes/ray"] = row->nodesPerRay;
  state.counters["tris/ray"] = row->trisPerRay;
}

#if defined(VTQR_BENCH_EMBREE)
// Bytes Embree holds, followed through its memory monitor.
int64_t gEmbreeBytes = 0;
bool CountEmbreeBytes(void*, ssize_t bytes, bool) {
  gEmbreeBytes += bytes;
  return true;
}

void BuildEmbree(benchmark::State& state, const Mesh* mesh, Row* row, RTCBuildQuality quality,
                 const char* name) {
  RTCDevice device = rtcNewDevice("threads=1");
  rtcSetDeviceMemoryMonitorFunction(device, CountEmbreeBytes, nullptr);
  // Embree reads vertices as 16-byte loads: one float of padding behind the last one.
  std::vector<float> vert(mesh->vert);
  vert.push_back(0.0f);
  for (auto _ : state) {
    int64_t before = gEmbreeBytes;
    double start = CpuNow();
    RTCScene scene = rtcNewScene(device);
    rtcSetSceneBuildQuality(scene, quality);
    RTCGeometry geometry = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_TRIANGLE);
    rtcSetGeometryBuildQuality(geometry, quality);
    rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, vert.data(),
                               0, 12, mesh->VertCount());
    rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3,
                               mesh->tri.data(), 0, 16, mesh->TriCount());
    rtcCommitGeometry(geometry);
    rtcAttachGeometry(scene, geometry);
    rtcReleaseGeometry(geometry);
    rtcCommitScene(scene);
    double seconds = CpuNow() - start;
    state.SetIterationTime(seconds);
    row->seconds[name].push_back(seconds);
    row->bytes[name] = gEmbreeBytes - before;
    rtcReleaseScene(scene);
  }
  state.counters["scene MB"] = row->bytes[name] / 1048576.0;
  rtcReleaseDevice(device);
}
#endif

void PrintSummary() {
  std::printf("\nMedians of 5 builds, one thread, process CPU seconds\n");
  std::printf("%-18s %9s %9s %8s %8s %7s %7s %5s %8s %9s %8s", "mesh", "triangles", "kd s",
              "ns/tri", "tree MB", "leaves", "avgleaf", "depth", "SAH", "nodes/ray", "tris/ray");
#if defined(VTQR_BENCH_EMBREE)
  std::printf(" %9s %9s %8s %8s %9s", "emb hi s", "emb med s", "kd/hi", "kd/med", "mem kd/hi");
#endif
  std::printf("\n");
  for (const Row& row : gRows) {
    double kd = Median(row.seconds.at("kdtree"));
    std::printf("%-18s %9d %9.3f %8.0f %8.2f %7.0fk %7.2f %5d %8.1f %9.2f %8.2f", row.mesh.c_str(),
                row.triangles, kd, 1e9 * kd / row.triangles, row.bytes.at("kdtree") / 1048576.0,
                row.stats.leaves / 1000.0, row.stats.averageLeafSize, row.stats.maxDepth,
                row.stats.sahCost, row.nodesPerRay, row.trisPerRay);
#if defined(VTQR_BENCH_EMBREE)
    if (row.seconds.count("embree high") != 0) {
      double high = Median(row.seconds.at("embree high"));
      double medium = Median(row.seconds.at("embree medium"));
      std::printf(" %9.3f %9.3f %8.2f %8.2f %9.2f", high, medium, kd / high, kd / medium,
                  static_cast<double>(row.bytes.at("kdtree")) /
                      static_cast<double>(row.bytes.at("embree high")));
    }
#endif
    std::printf("\n");
  }
}

}  // namespace

int main(int argc, char** argv) {
  // The meshes: generated spheres at three sizes, then the shared scans when present.
  std::vector<std::pair<std::string, Mesh>> meshes;
  meshes.emplace_back("sphere 25k", vtqr::test::UvSphere(112, 112));
  meshes.emplace_back("sphere 100k", vtqr::test::UvSphere(224, 224));
  meshes.emplace_back("sphere 400k", vtqr::test::UvSphere(448, 448));
  meshes.emplace_back("soup 100k", vtqr::test::RandomSoup(100000, 1, 1.0f, 0.02f));
  for (const char* name : {"stanford-bunny.obj", "igea.ply", "igea-x4.ply"}) {
    std::string path = std::string(VTQR_SHARED_DATA_DIR) + "/" + name;
    Mesh mesh;
    std::string error;
    if (vtqr::test::LoadMesh(path, &mesh, &error)) {
      meshes.emplace_back(name, std::move(mesh));
    } else {
      std::fprintf(stderr, "skipping %s: %s\n", name, error.c_str());
    }
  }
  gRows.resize(meshes.size());
  for (size_t i = 0; i < meshes.size(); ++i) {
    const Mesh* mesh = &meshes[i].second;
    Row* row = &gRows[i];
    row->mesh = meshes[i].first;
    row->triangles = mesh->TriCount();
    auto configure = [](benchmark::internal::Benchmark* b) {
      b->UseManualTime()->Iterations(1)->Repetitions(5)->Unit(benchmark::kMillisecond);
    };
    configure(
        benchmark::RegisterBenchmark(("KDTreeSAH/" + row->mesh).c_str(), BuildSah, mesh, row));
#if defined(VTQR_BENCH_EMBREE)
    configure(benchmark::RegisterBenchmark(("EmbreeHigh/" + row->mesh).c_str(), BuildEmbree, mesh,
                                           row, RTC_BUILD_QUALITY_HIGH, "embree high"));
    configure(benchmark::RegisterBenchmark(("EmbreeMedium/" + row->mesh).c_str(), BuildEmbree, mesh,
                                           row, RTC_BUILD_QUALITY_MEDIUM, "embree medium"));
#endif
  }
  vtqSetNumThreads(1);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  // Rows whose builds were filtered out have nothing to report.
  std::erase_if(gRows, [](const Row& row) { return row.seconds.count("kdtree") == 0; });
  PrintSummary();
  return 0;
}
