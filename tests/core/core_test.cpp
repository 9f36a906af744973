// vtqcore: allocation alignment and the thread count setting.

#include <gtest/gtest.h>

#include <cstdint>

#include "vtqcore.h"

namespace {

TEST(VtqMalloc, AlignsToACacheLineAndRefusesZero) {
  EXPECT_EQ(vtqMalloc(0), nullptr);
  for (size_t size : {1u, 3u, 64u, 1000u, 1u << 20}) {
    void* block = vtqMalloc(size);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 64, 0u) << size << " bytes";
    vtqFree(block);
  }
  EXPECT_EQ(vtqMalloc(SIZE_MAX), nullptr);
  vtqFree(nullptr);
}

TEST(NumThreads, SetterOverridesAndNonPositiveRestoresTheDefault) {
  const int defaultCount = ownGetNumThreads();
  EXPECT_GE(defaultCount, 1);
  vtqSetNumThreads(3);
  EXPECT_EQ(ownGetNumThreads(), 3);
  vtqSetNumThreads(0);
  EXPECT_EQ(ownGetNumThreads(), defaultCount);
  vtqSetNumThreads(5);
  vtqSetNumThreads(-2);
  EXPECT_EQ(ownGetNumThreads(), defaultCount);
}

TEST(CpuFeatures, BaselineOfX86_64IsAlwaysPresent) {
  const uint64_t features = vtqGetEnabledCpuFeatures();
  EXPECT_EQ(features & (VTQ_CPU_SSE | VTQ_CPU_SSE2), VTQ_CPU_SSE | VTQ_CPU_SSE2);
  // FMA and AVX2 are only reported with a usable AVX state.
  if (features & (VTQ_CPU_FMA | VTQ_CPU_AVX2)) {
    EXPECT_TRUE(features & VTQ_CPU_AVX);
  }
}

}  // namespace
