// Cost of one call through an exported forwarder (read the column, jump through the table)
// against a direct call of the same kernel. Both call a kernel that does almost nothing (four
// rays, or none), so the difference is the forwarder itself.

#include <benchmark/benchmark.h>

#include "frame/kernels.h"
#include "vtqr.h"

namespace {

alignas(16) float gSrc[4] = {1, 2, 3, 4};
alignas(16) float gDst[4] = {1, 1, 1, 1};
alignas(16) int32_t gMask[4] = {0, 0, 0, 0};

template <class Call>
void CallLoop(benchmark::State& state, Call call) {
  const int len = static_cast<int>(state.range(0));
  for (auto _ : state) {
    benchmark::DoNotOptimize(call(gSrc, gMask, gDst, len));
    benchmark::ClobberMemory();
  }
}

void BM_ThroughExport(benchmark::State& state) { CallLoop(state, vtqrMul_32f_C1IM); }
void BM_DirectCall(benchmark::State& state) { CallLoop(state, vtqr::u8::Mul_32f_C1IM); }

BENCHMARK(BM_ThroughExport)->Arg(0)->Arg(4);
BENCHMARK(BM_DirectCall)->Arg(0)->Arg(4);

}  // namespace

BENCHMARK_MAIN();
