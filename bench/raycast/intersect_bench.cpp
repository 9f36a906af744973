// Ray casting throughput: primary rays of a 1024x1024 image of each mesh and shadow rays from
// their hits to a point light, through this library's SAH KD-tree (factor 0) and, in the same
// run, through Embree 3 (when installed) on the very same rays.
//
// Every method runs the whole frame, five times; the summary prints medians in Mrays/s and the
// ratios to read off:
//   kd 1     vtqrIntersectEyeSO_32f, one-ray path (arrays one float off 16-byte alignment)
//   kd 4     vtqrIntersectEyeSO_32f, four-ray path (2x2 tiles)
//   kd any   vtqrIntersectAnySO_32f on the shadow rays (four-ray path)
//   kd 4 x2  the four-ray path with the frame's blocks split over two threads (wall time);
//            "scale" is its rate over the same path's one-thread rate in wall time
//   emb 1, emb 4, emb 8, emb 16   rtcIntersect1/4/8/16 (packets from 2x2, 4x2, 4x4 tiles)
//   emb occ 1, emb occ 16          rtcOccluded1/16 on the shadow rays
// Single-thread figures are process CPU time (the machine may be shared); the two-thread
// figure is wall time. Shadow-ray rates count the rays cast (live after the shadow test).
// --embree-isa=sse4.2 restricts Embree to the 4-wide SIMD this library uses.
//
// Before timing, the results are checked: the one-ray and four-ray paths must agree bit for
// bit, and each ray's triangle is compared with Embree's. Differences are counted by kind:
// exact ties (this library's test gives Embree's triangle the same distance), shared edges
// (the library's test, which is not watertight, rejects Embree's triangle or finds it farther
// than its own, at the same point), and anything else, which fails the benchmark.
#include <benchmark/benchmark.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench/bench_clock.h"
#include "support/mesh_loader.h"
#include "support/triangle_reference.h"
#include "vtqcore.h"
#include "vtqr.h"

#if defined(VTQR_BENCH_EMBREE)
#include <embree3/rtcore.h>
#endif

namespace {

using vtqr::bench::CpuNow;
using vtqr::bench::Median;
using vtqr::bench::WallNow;
using vtqr::test::Mesh;

constexpr int kImage = 1024;
constexpr int kBlock = 64;
constexpr int kBlocksPerSide = kImage / kBlock;
constexpr int kBlockRays = kBlock * kBlock;
constexpr int kRays = kImage * kImage;
constexpr float kShadowEnd = 0.999f;

// A 64-byte aligned array (vtqMalloc), optionally `offset` elements past the boundary.
template <class T>
struct Array {
  Array(size_t n, size_t offset = 0) {
    base = static_cast<T*>(vtqMalloc(static_cast<int>((n + 16) * sizeof(T))));
    data = base + offset;
  }
  ~Array() { vtqFree(base); }
  Array(const Array&) = delete;
  T* base;
  T* data;
};

// The per-ray arrays of the whole frame, block after block (block b's rays at b * 4096).
struct FrameRays {
  explicit FrameRays(size_t offset)
      : dx(kRays, offset),
        dy(kRays, offset),
        dz(kRays, offset),
        dist(kRays, offset),
        u(kRays, offset),
        v(kRays, offset),
        index(kRays, offset) {}
  Array<float> dx, dy, dz, dist, u, v;
  Array<int32_t> index;
};

struct Scene {
  std::string name;
  Mesh mesh;
  std::vector<VtqrTriangleAccel> accel;
  float box[6];
  VtqrKDTreeNode* tree = nullptr;
  VtqrIntersectContext context;
  float eye[3], light[3];
  std::unique_ptr<FrameRays> aligned, offset;  // primary rays for the four- and one-ray paths
  // Shadow rays: from the light towards each primary hit; mask negative where none is cast.
  std::unique_ptr<Array<float>> sx, sy, sz, send;
  std::unique_ptr<Array<int32_t>> smask;
  int64_t shadowRays = 0;
  int64_t hits = 0;
  std::map<std::string, std::vector<double>> seconds;
  std::map<std::string, int64_t> counts;  // result check
#if defined(VTQR_BENCH_EMBREE)
  RTCScene embree = nullptr;
#endif
};
std::vector<std::unique_ptr<Scene>> gScenes;

// Builds records, box and tree (SAH, factor 0), and aims the camera along -z so that the mesh's
// box fills the image.
bool Prepare(Scene* s) {
  const int tris = s->mesh.TriCount();
  s->accel.resize(static_cast<size_t>(tris));
  vtqrTriangleAccelInit(s->accel.data(), s->mesh.vert.data(), s->mesh.tri.data(), tris);
  vtqrSetBoundBox_32f(s->mesh.vert.data(), s->mesh.VertCount(), s->box);
  VtqrKDTreeBuildParams params{KDTreeAlgSAH, 50, 0.0f, 2047, 0};
  int size = 0;
  if (vtqrKDTreeBuildAlloc(&s->tree, s->mesh.vert.data(), s->mesh.tri.data(), s->mesh.VertCount(),
                           tris, &size, &params) != vtqStsOk) {
    return false;
  }
  s->context = {s->box, s->accel.data(), s->tree};

  float centre[3], extent[3];
  for (int a = 0; a < 3; ++a) {
    centre[a] = 0.5f * (s->box[a] + s->box[a + 3]);
    extent[a] = s->box[a + 3] - s->box[a];
  }
  const float distance = 2.0f * std::max(extent[0], extent[1]) + 0.5f * extent[2];
  s->eye[0] = centre[0];
  s->eye[1] = centre[1];
  s->eye[2] = centre[2] + distance;
  // Light above, to the right, in front.
  s->light[0] = centre[0] + 0.8f * distance;
  s->light[1] = centre[1] + 1.0f * distance;
  s->light[2] = centre[2] + 0.6f * distance;
  // Image plane at unit distance spanning the box's front face.
  const float span = std::max(extent[0], extent[1]) / (distance - 0.5f * extent[2]);
  const float step = span / kImage;
  const float org[3] = {-0.5f * span, 0.5f * span, -1.0f};
  const float dW[3] = {step, 0, 0}, dH[3] = {0, -step, 0};

  s->aligned = std::make_unique<FrameRays>(0);
  s->offset = std::make_unique<FrameRays>(1);
  for (int b = 0; b < kBlocksPerSide * kBlocksPerSide; ++b) {
    const size_t first = static_cast<size_t>(b) * kBlockRays;
    float* dst[3] = {s->aligned->dx.data + first, s->aligned->dy.data + first,
                     s->aligned->dz.data + first};
    vtqrCastEye_32f(org, dW, dH, b % kBlocksPerSide, b / kBlocksPerSide, {kBlock, kBlock}, dst,
                    {kBlock, kBlock});
  }
  std::memcpy(s->offset->dx.data, s->aligned->dx.data, kRays * sizeof(float));
  std::memcpy(s->offset->dy.data, s->aligned->dy.data, kRays * sizeof(float));
  std::memcpy(s->offset->dz.data, s->aligned->dz.data, kRays * sizeof(float));
  return true;
}

// One frame of primary rays through the library, block by block; `threads` > 1 splits the
// blocks over an OpenMP team as a caller would.
void CastFrame(Scene* s, FrameRays* r, int threads) {
  const int blocks = kBlocksPerSide * kBlocksPerSide;
#pragma omp parallel for num_threads(threads) schedule(static) if (threads > 1)
  for (int b = 0; b < blocks; ++b) {
    const size_t first = static_cast<size_t>(b) * kBlockRays;
    float* dist = r->dist.data + first;
    std::fill_n(dist, kBlockRays, INFINITY);
    const float* dir[3] = {r->dx.data + first, r->dy.data + first, r->dz.data + first};
    float* hit[2] = {r->u.data + first, r->v.data + first};
    vtqrIntersectEyeSO_32f(s->eye, dir, dist, hit, r->index.data + first, &s->context,
                           {kBlock, kBlock});
  }
}

// Shadow rays from the primary hits of the four-ray frame: hit points on the rays, the hit
// triangles' normals turned towards the eye, then the library's shadow-ray construction.
void PrepareShadows(Scene* s) {
  s->sx = std::make_unique<Array<float>>(kRays);
  s->sy = std::make_unique<Array<float>>(kRays);
  s->sz = std::make_unique<Array<float>>(kRays);
  s->send = std::make_unique<Array<float>>(kRays);
  s->smask = std::make_unique<Array<int32_t>>(kRays);
  std::vector<float> normals(3 * s->accel.size());
  for (size_t t = 0; t < s->accel.size(); ++t) {
    const float* p[3];
    for (int k = 0; k < 3; ++k) p[k] = &s->mesh.vert[3 * size_t(s->mesh.tri[4 * t + k])];
    double e1[3], e2[3];
    for (int a = 0; a < 3; ++a) {
      e1[a] = double(p[0][a]) - p[2][a];
      e2[a] = double(p[1][a]) - p[2][a];
    }
    double n[3] = {e1[1] * e2[2] - e1[2] * e2[1], e1[2] * e2[0] - e2[2] * e1[0],
                   e2[1] * e1[0] - e1[1] * e2[0]};
    double len = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    for (int a = 0; a < 3; ++a) normals[3 * t + a] = len > 0 ? static_cast<float>(n[a] / len) : 0;
  }
  Array<float> hx(kBlockRays), hy(kBlockRays), hz(kBlockRays), nx(kBlockRays), ny(kBlockRays),
      nz(kBlockRays), eyeDot(kBlockRays), dstDot(kBlockRays);
  const FrameRays* r = s->aligned.get();
  for (int b = 0; b < kBlocksPerSide * kBlocksPerSide; ++b) {
    const size_t first = static_cast<size_t>(b) * kBlockRays;
    for (int i = 0; i < kBlockRays; ++i) {
      const size_t k = first + i;
      const int32_t tri = r->index.data[k];
      const float t = tri >= 0 ? r->dist.data[k] : 0.0f;
      hx.data[i] = s->eye[0] + r->dx.data[k] * t;
      hy.data[i] = s->eye[1] + r->dy.data[k] * t;
      hz.data[i] = s->eye[2] + r->dz.data[k] * t;
      const float* n = tri >= 0 ? &normals[3 * size_t(tri)] : &normals[0];
      nx.data[i] = n[0];
      ny.data[i] = n[1];
      nz.data[i] = n[2];
      s->smask->data[k] = tri;
      s->send->data[k] = kShadowEnd;
    }
    const float* dir[3] = {r->dx.data + first, r->dy.data + first, r->dz.data + first};
    float* normal[3] = {nx.data, ny.data, nz.data};
    vtqrDotChangeNorm_32f_IM(dir, s->smask->data + first, normal, eyeDot.data, kBlockRays);
    const float* cnormal[3] = {nx.data, ny.data, nz.data};
    const float* hit[3] = {hx.data, hy.data, hz.data};
    float* sdir[3] = {s->sx->data + first, s->sy->data + first, s->sz->data + first};
    vtqrCastShadowSO_32f(s->light, eyeDot.data, cnormal, hit, s->smask->data + first, dstDot.data,
                         sdir, kBlockRays);
  }
  s->shadowRays = std::count_if(s->smask->data, s->smask->data + kRays,
                                [](int32_t m) { return m >= 0; });
}

// Shadow rays through the library; the mask is restored from `mask` first.
void CastShadowFrame(Scene* s, Array<int32_t>* mask) {
  for (int b = 0; b < kBlocksPerSide * kBlocksPerSide; ++b) {
    const size_t first = static_cast<size_t>(b) * kBlockRays;
    std::memcpy(mask->data + first, s->smask->data + first, kBlockRays * sizeof(int32_t));
    const float* dir[3] = {s->sx->data + first, s->sy->data + first, s->sz->data + first};
    vtqrIntersectAnySO_32f(s->light, dir, s->send->data + first, mask->data + first,
                           {kBlock, kBlock}, &s->context);
  }
}

#if defined(VTQR_BENCH_EMBREE)
RTCDevice gDevice = nullptr;

void BuildEmbree(Scene* s) {
  // Embree reads vertices as 16-byte loads: one float of padding behind the last one.
  static std::vector<std::vector<float>> kept;
  kept.emplace_back(s->mesh.vert);
  kept.back().push_back(0.0f);
  s->embree = rtcNewScene(gDevice);
  rtcSetSceneBuildQuality(s->embree, RTC_BUILD_QUALITY_HIGH);
  RTCGeometry g = rtcNewGeometry(gDevice, RTC_GEOMETRY_TYPE_TRIANGLE);
  rtcSetGeometryBuildQuality(g, RTC_BUILD_QUALITY_HIGH);
  rtcSetSharedGeometryBuffer(g, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, kept.back().data(), 0,
                             12, s->mesh.VertCount());
  rtcSetSharedGeometryBuffer(g, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, s->mesh.tri.data(), 0,
                             16, s->mesh.TriCount());
  rtcCommitGeometry(g);
  rtcAttachGeometry(s->embree, g);
  rtcReleaseGeometry(g);
  rtcCommitScene(s->embree);
}

// Ray k of the frame as Embree's single ray.
void FillRay(const Scene& s, const float* o, const float* const d[3], size_t k, float tfar,
             RTCRay* ray) {
  ray->org_x = o[0];
  ray->org_y = o[1];
  ray->org_z = o[2];
  ray->tnear = 0.0f;
  ray->dir_x = d[0][k];
  ray->dir_y = d[1][k];
  ray->dir_z = d[2][k];
  ray->time = 0.0f;
  ray->tfar = tfar;
  ray->mask = 0xFFFFFFFFu;
  ray->id = 0;
  ray->flags = 0;
  (void)s;
}

void EmbreeFrame1(Scene* s, std::vector<int32_t>* prim) {
  RTCIntersectContext context;
  rtcInitIntersectContext(&context);
  const float* d[3] = {s->aligned->dx.data, s->aligned->dy.data, s->aligned->dz.data};
  for (size_t k = 0; k < kRays; ++k) {
    RTCRayHit rh;
    FillRay(*s, s->eye, d, k, INFINITY, &rh.ray);
    rh.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(s->embree, &context, &rh);
    if (prim != nullptr) {
      (*prim)[k] = rh.hit.geomID == RTC_INVALID_GEOMETRY_ID ? -1 : int32_t(rh.hit.primID);
    }
  }
}

// Packets of N rays from W x (N / W) tiles of each block.
template <int N, int W, class RayHitN, class Intersect>
void EmbreeFramePackets(Scene* s, Intersect intersect) {
  RTCIntersectContext context;
  rtcInitIntersectContext(&context);
  alignas(64) int valid[N];
  std::fill_n(valid, N, -1);
  alignas(64) RayHitN rh;
  constexpr int H = N / W;
  for (int b = 0; b < kBlocksPerSide * kBlocksPerSide; ++b) {
    const size_t first = static_cast<size_t>(b) * kBlockRays;
    for (int y = 0; y < kBlock; y += H) {
      for (int x = 0; x < kBlock; x += W) {
        for (int j = 0; j < N; ++j) {
          const size_t k = first + static_cast<size_t>((y + j / W) * kBlock + x + j % W);
          rh.ray.org_x[j] = s->eye[0];
          rh.ray.org_y[j] = s->eye[1];
          rh.ray.org_z[j] = s->eye[2];
          rh.ray.tnear[j] = 0.0f;
          rh.ray.dir_x[j] = s->aligned->dx.data[k];
          rh.ray.dir_y[j] = s->aligned->dy.data[k];
          rh.ray.dir_z[j] = s->aligned->dz.data[k];
          rh.ray.time[j] = 0.0f;
          rh.ray.tfar[j] = INFINITY;
          rh.ray.mask[j] = 0xFFFFFFFFu;
          rh.ray.id[j] = 0;
          rh.ray.flags[j] = 0;
          rh.hit.geomID[j] = RTC_INVALID_GEOMETRY_ID;
        }
        intersect(valid, s->embree, &context, &rh);
        benchmark::DoNotOptimize(rh.hit.primID[0]);
      }
    }
  }
}

void EmbreeOccluded1(Scene* s, int64_t* occluded) {
  RTCIntersectContext context;
  rtcInitIntersectContext(&context);
  const float* d[3] = {s->sx->data, s->sy->data, s->sz->data};
  int64_t count = 0;
  for (size_t k = 0; k < kRays; ++k) {
    if (s->smask->data[k] < 0) continue;
    RTCRay ray;
    FillRay(*s, s->light, d, k, kShadowEnd, &ray);
    rtcOccluded1(s->embree, &context, &ray);
    count += ray.tfar < 0 ? 1 : 0;
  }
  if (occluded != nullptr) *occluded = count;
}

void EmbreeOccluded16(Scene* s, int64_t* occluded) {
  RTCIntersectContext context;
  rtcInitIntersectContext(&context);
  alignas(64) int valid[16];
  alignas(64) RTCRay16 ray;
  int64_t count = 0;
  for (int b = 0; b < kBlocksPerSide * kBlocksPerSide; ++b) {
    const size_t first = static_cast<size_t>(b) * kBlockRays;
    for (int y = 0; y < kBlock; y += 4) {
      for (int x = 0; x < kBlock; x += 4) {
        bool any = false;
        for (int j = 0; j < 16; ++j) {
          const size_t k = first + static_cast<size_t>((y + j / 4) * kBlock + x + j % 4);
          valid[j] = s->smask->data[k] >= 0 ? -1 : 0;
          any |= valid[j] != 0;
          ray.org_x[j] = s->light[0];
          ray.org_y[j] = s->light[1];
          ray.org_z[j] = s->light[2];
          ray.tnear[j] = 0.0f;
          ray.dir_x[j] = s->sx->data[k];
          ray.dir_y[j] = s->sy->data[k];
          ray.dir_z[j] = s->sz->data[k];
          ray.time[j] = 0.0f;
          ray.tfar[j] = kShadowEnd;
          ray.mask[j] = 0xFFFFFFFFu;
          ray.id[j] = 0;
          ray.flags[j] = 0;
        }
        if (!any) continue;
        rtcOccluded16(valid, s->embree, &context, &ray);
        for (int j = 0; j < 16; ++j) count += valid[j] != 0 && ray.tfar[j] < 0 ? 1 : 0;
      }
    }
  }
  if (occluded != nullptr) *occluded = count;
}

// Compares the library's primary hits with Embree's and counts the kinds of difference.
void CheckAgainstEmbree(Scene* s) {
  std::vector<int32_t> prim(kRays);
  EmbreeFrame1(s, &prim);
  const FrameRays* r = s->aligned.get();
  for (size_t k = 0; k < kRays; ++k) {
    const int32_t ours = r->index.data[k];
    const int32_t theirs = prim[k];
    if (ours == theirs) {
      ++s->counts["same"];
      continue;
    }
    const float d[3] = {r->dx.data[k], r->dy.data[k], r->dz.data[k]};
    // Whether this library's test, on its own, takes Embree's triangle, and at what distance.
    vtqr::test::TriangleHit hit{};
    const bool weHitTheirs =
        theirs >= 0 &&
        vtqr::test::TriangleReference(s->accel[static_cast<size_t>(theirs)], s->eye, d, &hit) &&
        hit.t > 0;
    const float tTheirs = hit.t;
    if (ours >= 0 && weHitTheirs && tTheirs == r->dist.data[k]) {
      ++s->counts["tie"];
    } else if (ours >= 0 && theirs >= 0 && (!weHitTheirs || tTheirs > r->dist.data[k])) {
      ++s->counts["edge"];
    } else if (ours < 0 && theirs >= 0 && !weHitTheirs) {
      ++s->counts["edge hole"];  // our test rejects the triangle Embree reports
    } else {
      ++s->counts["other"];
    }
  }
  Array<int32_t> mask(kRays);
  CastShadowFrame(s, &mask);
  int64_t occludedOurs = 0;
  for (size_t k = 0; k < kRays; ++k) occludedOurs += s->smask->data[k] >= 0 && mask.data[k] < 0;
  int64_t occludedTheirs = 0;
  EmbreeOccluded1(s, &occludedTheirs);
  s->counts["occluded"] = occludedOurs;
  s->counts["emb occluded"] = occludedTheirs;
}
#endif

void Run(benchmark::State& state, Scene* s, const char* method) {
  const std::string m = method;
  for (auto _ : state) {
    double start = CpuNow(), wall = WallNow();
    if (m == "kd 1") {
      CastFrame(s, s->offset.get(), 1);
    } else if (m == "kd 4") {
      CastFrame(s, s->aligned.get(), 1);
    } else if (m == "kd 4 wall") {
      CastFrame(s, s->aligned.get(), 1);
    } else if (m == "kd 4 x2") {
      CastFrame(s, s->aligned.get(), 2);
    } else if (m == "kd any") {
      static Array<int32_t>* mask = new Array<int32_t>(kRays);
      CastShadowFrame(s, mask);
#if defined(VTQR_BENCH_EMBREE)
    } else if (m == "emb 1") {
      EmbreeFrame1(s, nullptr);
    } else if (m == "emb 4") {
      EmbreeFramePackets<4, 2, RTCRayHit4>(s, [](const int* v, RTCScene sc, RTCIntersectContext* c,
                                                 RTCRayHit4* r) { rtcIntersect4(v, sc, c, r); });
    } else if (m == "emb 8") {
      EmbreeFramePackets<8, 4, RTCRayHit8>(s, [](const int* v, RTCScene sc, RTCIntersectContext* c,
                                                 RTCRayHit8* r) { rtcIntersect8(v, sc, c, r); });
    } else if (m == "emb 16") {
      EmbreeFramePackets<16, 4, RTCRayHit16>(s,
                                             [](const int* v, RTCScene sc, RTCIntersectContext* c,
                                                RTCRayHit16* r) { rtcIntersect16(v, sc, c, r); });
    } else if (m == "emb occ 1") {
      EmbreeOccluded1(s, nullptr);
    } else if (m == "emb occ 16") {
      EmbreeOccluded16(s, nullptr);
#endif
    }
    const bool wallTime = m == "kd 4 x2" || m == "kd 4 wall";
    const double seconds = wallTime ? WallNow() - wall : CpuNow() - start;
    state.SetIterationTime(seconds);
    s->seconds[m].push_back(seconds);
  }
  const bool shadow = m == "kd any" || m.rfind("emb occ", 0) == 0;
  const double rays = shadow ? static_cast<double>(s->shadowRays) : kRays;
  state.counters["Mrays/s"] = rays * 1e-6 / Median(s->seconds[m]);
}

double Rate(const Scene& s, const char* m, bool shadow = false) {
  auto it = s.seconds.find(m);
  if (it == s.seconds.end()) return 0;
  const double rays = shadow ? static_cast<double>(s.shadowRays) : kRays;
  return rays * 1e-6 / Median(it->second);
}

void PrintSummary() {
  std::printf("\nMrays/s, medians of 5 frames of %dx%d, one thread unless noted\n", kImage, kImage);
  std::printf("%-20s %9s %6s %7s %7s %7s %7s %7s", "mesh", "triangles", "hit%", "kd 1", "kd 4",
              "kd any", "kd4 x2", "scale");
#if defined(VTQR_BENCH_EMBREE)
  std::printf(" %7s %7s %7s %7s %7s %7s | %6s %6s %6s %8s", "emb 1", "emb 4", "emb 8", "emb 16",
              "occ 1", "occ 16", "1/e1", "4/e4", "4/best", "any/o16");
#endif
  std::printf("\n");
  for (const auto& sp : gScenes) {
    const Scene& s = *sp;
    const double one = Rate(s, "kd 1"), four = Rate(s, "kd 4"), any = Rate(s, "kd any", true);
    const double two = Rate(s, "kd 4 x2"), oneWall = Rate(s, "kd 4 wall");
    std::printf("%-20s %9d %6.1f %7.2f %7.2f %7.2f %7.2f %7.2f", s.name.c_str(), s.mesh.TriCount(),
                100.0 * static_cast<double>(s.hits) / kRays, one, four, any, two,
                oneWall > 0 ? two / oneWall : 0.0);
#if defined(VTQR_BENCH_EMBREE)
    const double e1 = Rate(s, "emb 1"), e4 = Rate(s, "emb 4"), e8 = Rate(s, "emb 8"),
                 e16 = Rate(s, "emb 16"), o1 = Rate(s, "emb occ 1", true),
                 o16 = Rate(s, "emb occ 16", true);
    const double best = std::max({e1, e4, e8, e16});
    std::printf(" %7.2f %7.2f %7.2f %7.2f %7.2f %7.2f | %6.2f %6.2f %6.2f %8.2f", e1, e4, e8, e16,
                o1, o16, e1 > 0 ? one / e1 : 0, e4 > 0 ? four / e4 : 0, best > 0 ? four / best : 0,
                o16 > 0 ? any / o16 : 0);
#endif
    std::printf("\n");
  }
#if defined(VTQR_BENCH_EMBREE)
  std::printf("\nResult check against Embree (primary rays; shadow rays occluded)\n");
  for (const auto& sp : gScenes) {
    std::printf("%-20s", sp->name.c_str());
    for (const auto& [kind, count] : sp->counts)
      std::printf("  %s %lld", kind.c_str(), (long long)count);
    std::printf("\n");
  }
#endif
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::pair<std::string, Mesh>> meshes;
  for (const char* name : {"stanford-bunny.obj", "igea.ply", "igea-x4.ply"}) {
    Mesh mesh;
    std::string error;
    if (vtqr::test::LoadMesh(std::string(VTQR_SHARED_DATA_DIR) + "/" + name, &mesh, &error)) {
      meshes.emplace_back(name, std::move(mesh));
    } else {
      std::fprintf(stderr, "skipping %s: %s\n", name, error.c_str());
    }
  }
  if (meshes.empty()) meshes.emplace_back("sphere 100k", vtqr::test::UvSphere(224, 224));
#if defined(VTQR_BENCH_EMBREE)
  // --embree-isa=sse4.2 (or avx2, ...) pins Embree to one instruction set, to compare at equal
  // SIMD width; by default Embree takes the widest the processor has.
  std::string config = "threads=1";
  for (int i = 1; i < argc; ++i) {
    if (std::strncmp(argv[i], "--embree-isa=", 13) == 0) {
      config += std::string(",isa=") + (argv[i] + 13);
      std::copy(argv + i + 1, argv + argc, argv + i);
      --argc;
      --i;
    }
  }
  gDevice = rtcNewDevice(config.c_str());
  if (gDevice == nullptr) {
    std::fprintf(stderr, "Embree refused the configuration \"%s\"\n", config.c_str());
    return 1;
  }
#endif
  vtqSetNumThreads(1);
  for (auto& [name, mesh] : meshes) {
    auto s = std::make_unique<Scene>();
    s->name = name;
    s->mesh = std::move(mesh);
    if (!Prepare(s.get())) {
      std::fprintf(stderr, "skipping %s: tree build failed\n", name.c_str());
      continue;
    }
    // Results first: both paths must agree bit for bit.
    CastFrame(s.get(), s->aligned.get(), 1);
    CastFrame(s.get(), s->offset.get(), 1);
    const FrameRays &a = *s->aligned, &o = *s->offset;
    for (size_t k = 0; k < kRays; ++k) {
      if (a.index.data[k] != o.index.data[k] ||
          std::memcmp(&a.dist.data[k], &o.dist.data[k], 4) != 0) {
        std::fprintf(stderr, "%s: one-ray and four-ray paths differ at ray %zu\n", name.c_str(), k);
        return 1;
      }
      s->hits += a.index.data[k] >= 0 ? 1 : 0;
    }
    PrepareShadows(s.get());
#if defined(VTQR_BENCH_EMBREE)
    BuildEmbree(s.get());
    CheckAgainstEmbree(s.get());
    if (s->counts["other"] != 0) {
      std::fprintf(stderr, "%s: %lld rays differ from Embree beyond ties and shared edges\n",
                   name.c_str(), (long long)s->counts["other"]);
      return 1;
    }
#endif
    gScenes.push_back(std::move(s));
  }
  for (auto& sp : gScenes) {
    Scene* s = sp.get();
    std::vector<const char*> methods = {"kd 1", "kd 4", "kd any", "kd 4 wall", "kd 4 x2"};
#if defined(VTQR_BENCH_EMBREE)
    for (const char* m : {"emb 1", "emb 4", "emb 8", "emb 16", "emb occ 1", "emb occ 16"}) {
      methods.push_back(m);
    }
#endif
    for (const char* m : methods) {
      benchmark::RegisterBenchmark((std::string(m) + "/" + s->name).c_str(), Run, s, m)
          ->UseManualTime()
          ->Iterations(1)
          ->Repetitions(5)
          ->ReportAggregatesOnly(true)
          ->Unit(benchmark::kMillisecond);
    }
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  PrintSummary();
  return 0;
}
