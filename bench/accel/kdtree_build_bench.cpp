// SAH KD-tree build time and tree figures, against Embree 3's BVH build of the same mesh in the
// same run (when Embree is available), on one thread.
//
// Every build runs five times; the summary printed at the end gives medians and the ratios to
// read off: our build time over Embree's high- and medium-quality builds, and our tree block
// over the memory Embree's scene keeps after commit. The "sphere" rows at three sizes show how
// the build time grows with the mesh (N log N: time per triangle should grow only slowly).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <ctime>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "accel/kdtree_check.h"
#include "tools/mesh/mesh_loader.h"
#include "vtqcore.h"
#include "vtqr.h"

#if defined(VTQR_BENCH_EMBREE)
#include <embree3/rtcore.h>
#endif

namespace {

using vtqr::test::Mesh;

struct Row {
  std::string mesh;
  int triangles = 0;
  std::map<std::string, std::vector<double>> seconds;  // per builder
  std::map<std::string, int64_t> bytes;                // memory each builder's result keeps
  vtqr::KDTreeStats stats;
};
std::vector<Row> gRows;

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values.empty() ? 0.0 : values[values.size() / 2];
}

// Process CPU time: the machine is shared, and CPU time is what a contended core still measures
// fairly. Both builders run on this one thread (Embree with threads=1).
double Now() {
  timespec now;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

void BuildSah(benchmark::State& state, const Mesh* mesh, Row* row) {
  VtqrKDTreeBuildParams params{};
  params.algorithm = KDTreeAlgSAH;
  params.maxDepth = 50;
  params.factor = 1.0f;
  params.memoryMB = 2048;
  for (auto _ : state) {
    VtqrKDTreeNode* tree = nullptr;
    int size = 0;
    double start = Now();
    VtqStatus status = vtqrKDTreeBuildAlloc(&tree, mesh->vert.data(), mesh->tri.data(),
                                            mesh->VertCount(), mesh->TriCount(), &size, &params);
    double seconds = Now() - start;
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
    }
    vtqrKDTreeFree(tree);
  }
  state.counters["tree MB"] = row->bytes["kdtree"] / 1048576.0;
  state.counters["leaves"] = static_cast<double>(row->stats.leaves);
  state.counters["avg leaf"] = row->stats.averageLeafSize;
  state.counters["depth"] = row->stats.maxDepth;
  state.counters["SAH"] = row->stats.sahCost;
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
    double start = Now();
    RTCScene scene = rtcNewScene(device);
    rtcSetSceneBuildQuality(scene, quality);
    RTCGeometry geometry = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_TRIANGLE);
    rtcSetGeometryBuildQuality(geometry, quality);
    rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3,
                               vert.data(), 0, 12, mesh->VertCount());
    rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3,
                               mesh->tri.data(), 0, 16, mesh->TriCount());
    rtcCommitGeometry(geometry);
    rtcAttachGeometry(scene, geometry);
    rtcReleaseGeometry(geometry);
    rtcCommitScene(scene);
    double seconds = Now() - start;
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
  std::printf("%-18s %9s %9s %8s %8s %7s %7s %5s %8s", "mesh", "triangles", "kd s", "ns/tri",
              "tree MB", "leaves", "avgleaf", "depth", "SAH");
#if defined(VTQR_BENCH_EMBREE)
  std::printf(" %9s %9s %8s %8s %9s", "emb hi s", "emb med s", "kd/hi", "kd/med", "mem kd/hi");
#endif
  std::printf("\n");
  for (const Row& row : gRows) {
    double kd = Median(row.seconds.at("kdtree"));
    std::printf("%-18s %9d %9.3f %8.0f %8.2f %7.0fk %7.2f %5d %8.1f", row.mesh.c_str(),
                row.triangles, kd, 1e9 * kd / row.triangles, row.bytes.at("kdtree") / 1048576.0,
                row.stats.leaves / 1000.0, row.stats.averageLeafSize, row.stats.maxDepth,
                row.stats.sahCost);
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
    configure(benchmark::RegisterBenchmark(("KDTreeSAH/" + row->mesh).c_str(), BuildSah, mesh, row));
#if defined(VTQR_BENCH_EMBREE)
    configure(benchmark::RegisterBenchmark(("EmbreeHigh/" + row->mesh).c_str(), BuildEmbree,
                                           mesh, row, RTC_BUILD_QUALITY_HIGH, "embree high"));
    configure(benchmark::RegisterBenchmark(("EmbreeMedium/" + row->mesh).c_str(), BuildEmbree,
                                           mesh, row, RTC_BUILD_QUALITY_MEDIUM, "embree medium"));
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
