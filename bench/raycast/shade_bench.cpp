// Throughput of the shading exports against the plain loops an application would write, at a
// cache-resident packet (4096 rays) and a memory-bound one (1M rays), plus a memcpy of the
// bytes each export moves at 1M rays as the memory-bandwidth yardstick.
//
// Ratios to read off (medians): export vs plain loop at 4096 rays; export vs copy at 1M rays.
// The copies come in two sizes: "Copy" copies as many bytes as the export reads plus writes,
// "CopyHalf" half as many, so that its traffic (read + write) equals the export's.
#include <benchmark/benchmark.h>

#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "raycast/shade_plain_loops.h"
#include "vtqcore.h"
#include "vtqr.h"

namespace {

constexpr int kPlaneCount = 12;
const float kScale[3] = {0.75f, 0.5f, 0.25f};
const float kPoint[3] = {0.5f, -2.0f, 1.25f};

// Twelve 64-byte aligned float planes and a mask, filled with values that stay tame under
// repeated in-place calls: magnitudes near one, multipliers and divisors of exactly +-1, so
// nothing drifts into denormals or infinities over millions of iterations.
struct Packet {
  explicit Packet(int n) : len(n) {
    std::mt19937 rng(42);
    std::uniform_real_distribution<float> value(-2.0f, 2.0f);
    for (float*& plane : planes) {
      plane = static_cast<float*>(vtqMalloc(static_cast<int>(sizeof(float)) * n));
      for (int i = 0; i < n; ++i) plane[i] = value(rng);
    }
    for (int i = 0; i < n; ++i) planes[0][i] = (rng() & 1) ? 1.0f : -1.0f;
    mask = static_cast<int32_t*>(vtqMalloc(static_cast<int>(sizeof(int32_t)) * n));
    // About three rays in four hit something.
    for (int i = 0; i < n; ++i) mask[i] = (rng() % 4 == 0) ? -1 : static_cast<int32_t>(i);
  }
  ~Packet() {
    for (float* plane : planes) vtqFree(plane);
    vtqFree(mask);
  }
  const float* const* In(int first) { return ConstPlanes(first); }
  float* const* Out(int first) { return planes + first; }
  const float* const* ConstPlanes(int first) {
    for (int j = 0; j < kPlaneCount; ++j) constPlanes[j] = planes[j];
    return constPlanes + first;
  }

  int len;
  float* planes[kPlaneCount];
  const float* constPlanes[kPlaneCount];
  int32_t* mask;
};

struct Kernel {
  const char* name;
  int bytesPerRay;  // read + written
  std::function<void(Packet&)> exported;
  std::function<void(Packet&)> plainLoop;
};

// Plane 0 is a per-ray scalar (src, eyeDot); the others are P3 groups starting at 1, 4, 7.
// clang-format off
const std::vector<Kernel>& Kernels() {
  static const std::vector<Kernel> kernels = {
    {"Dot", 32,
     [](Packet& p) { vtqrDot_32f_P3C1M(p.In(1), p.In(4), p.mask, p.planes[7], p.len); },
     [](Packet& p) { plain::Dot(p.In(1), p.In(4), p.mask, p.planes[7], p.len); }},
    {"DotChangeNorm", 44,
     [](Packet& p) { vtqrDotChangeNorm_32f_IM(p.In(1), p.mask, p.Out(4), p.planes[7], p.len); },
     [](Packet& p) { plain::DotChangeNorm(p.In(1), p.mask, p.Out(4), p.planes[7], p.len); }},
    {"Mul_C1", 16,
     [](Packet& p) { vtqrMul_32f_C1IM(p.planes[0], p.mask, p.planes[1], p.len); },
     [](Packet& p) { plain::Mul(p.planes[0], p.mask, p.planes[1], p.len); }},
    {"Mul_C1P3", 32,
     [](Packet& p) { vtqrMul_32f_C1P3IM(p.planes[0], p.mask, p.Out(1), p.len); },
     [](Packet& p) { plain::MulP3(p.planes[0], p.mask, p.Out(1), p.len); }},
    {"Div", 16,
     [](Packet& p) { vtqrDiv_32f_C1IM(p.planes[0], p.mask, p.planes[1], p.len); },
     [](Packet& p) { plain::Div(p.planes[0], p.mask, p.planes[1], p.len); }},
    {"AddMulMul", 44,
     [](Packet& p) { vtqrAddMulMul_32f_AC1P3IM(kScale, p.planes[0], p.In(1), p.mask, p.Out(4), p.len); },
     [](Packet& p) { plain::AddMulMul(kScale, p.planes[0], p.In(1), p.mask, p.Out(4), p.len); }},
    {"DistAttenuation", 20,
     [](Packet& p) { vtqrDistAttenuationSO_32f_M(kPoint, p.In(1), p.mask, p.planes[4], p.len); },
     [](Packet& p) { plain::DistAttenuation(kPoint, p.In(1), p.mask, p.planes[4], p.len); }},
    {"CastShadow", 52,
     [](Packet& p) {
       vtqrCastShadowSO_32f(kPoint, p.planes[0], p.In(1), p.In(4), p.mask, p.planes[7], p.Out(8), p.len);
     },
     [](Packet& p) {
       plain::CastShadow(kPoint, p.planes[0], p.In(1), p.In(4), p.mask, p.planes[7], p.Out(8), p.len);
     }},
    {"CastReflection", 40,
     [](Packet& p) { vtqrCastReflectionRay_32f(p.In(1), p.mask, p.In(4), p.Out(7), p.len); },
     [](Packet& p) { plain::CastReflection(p.In(1), p.mask, p.In(4), p.Out(7), p.len); }},
  };
  return kernels;
}
// clang-format on

void RunKernel(benchmark::State& state, const std::function<void(Packet&)>& body) {
  Packet packet(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    body(packet);
    benchmark::ClobberMemory();
  }
  state.counters["rays/s"] = benchmark::Counter(static_cast<double>(state.range(0)),
                                                benchmark::Counter::kIsIterationInvariantRate);
}

void RunCopy(benchmark::State& state, size_t bytes) {
  std::vector<char> from(bytes, 1), to(bytes, 0);
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), bytes);
    benchmark::ClobberMemory();
  }
  state.counters["rays/s"] = benchmark::Counter(static_cast<double>(state.range(0)),
                                                benchmark::Counter::kIsIterationInvariantRate);
}

}  // namespace

int main(int argc, char** argv) {
  constexpr int kSmall = 4096, kLarge = 1 << 20;
  for (const Kernel& k : Kernels()) {
    std::string name = k.name;
    for (int len : {kSmall, kLarge}) {
      benchmark::RegisterBenchmark((name + "/Export").c_str(), RunKernel, k.exported)->Arg(len);
      benchmark::RegisterBenchmark((name + "/PlainLoop").c_str(), RunKernel, k.plainLoop)->Arg(len);
    }
    size_t bytes = static_cast<size_t>(k.bytesPerRay) * kLarge;
    benchmark::RegisterBenchmark((name + "/Copy").c_str(), RunCopy, bytes)->Arg(kLarge);
    benchmark::RegisterBenchmark((name + "/CopyHalf").c_str(), RunCopy, bytes / 2)->Arg(kLarge);
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
