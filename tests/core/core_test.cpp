// vtqcore: allocation alignment, the thread count setting and the processor feature mask.

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "vtqcore.h"

namespace {

TEST(VtqMalloc, AlignsToACacheLineAndRefusesZero) {
  EXPECT_EQ(vtqMalloc(0), nullptr);
  EXPECT_EQ(vtqMalloc(SIZE_MAX), nullptr);
  for (size_t size : {1u, 1000u, 1u << 20}) {
    void* block = vtqMalloc(size);
    EXPECT_TRUE(block != nullptr && reinterpret_cast<uintptr_t>(block) % 64 == 0) << size;
    vtqFree(block);
  }
  vtqFree(nullptr);
}

TEST(NumThreads, SetterOverridesAndNonPositiveRestoresTheDefault) {
  const int defaultCount = ownGetNumThreads();
  EXPECT_GE(defaultCount, 1);
  for (int count : {3, 0, 5, -2}) {
    vtqSetNumThreads(count);
    EXPECT_EQ(ownGetNumThreads(), count > 0 ? count : defaultCount) << count;
  }
}

// The mask against an independent source: the flags the operating system's kernel reports in
// /proc/cpuinfo, which also drops AVX and what depends on it when the YMM state is not saved.
TEST(CpuFeatures, MatchTheKernelsCpuFlags) {
  std::ifstream cpuinfo("/proc/cpuinfo");
  if (!cpuinfo) GTEST_SKIP() << "no /proc/cpuinfo on this system";
  std::set<std::string> flags;
  for (std::string line; flags.empty() && std::getline(cpuinfo, line);) {
    if (line.rfind("flags", 0) != 0) continue;
    std::istringstream words(line.substr(line.find(':') + 1));
    for (std::string word; words >> word;) flags.insert(word);
  }
  ASSERT_FALSE(flags.empty()) << "no flags line";
  const std::pair<uint64_t, const char*> bits[] = {
      {VTQ_CPU_MMX, "mmx"},      {VTQ_CPU_SSE, "sse"},         {VTQ_CPU_SSE2, "sse2"},
      {VTQ_CPU_SSE3, "pni"},     {VTQ_CPU_SSSE3, "ssse3"},     {VTQ_CPU_MOVBE, "movbe"},
      {VTQ_CPU_SSE41, "sse4_1"}, {VTQ_CPU_SSE42, "sse4_2"},    {VTQ_CPU_AVX, "avx"},
      {VTQ_CPU_AES, "aes"},      {VTQ_CPU_CLMUL, "pclmulqdq"}, {VTQ_CPU_F16C, "f16c"},
      {VTQ_CPU_FMA, "fma"},      {VTQ_CPU_AVX2, "avx2"},       {VTQ_CPU_POPCNT, "popcnt"}};
  const uint64_t features = vtqSetEnabledCpuFeatures(~0ull);
  EXPECT_EQ(features, vtqGetEnabledCpuFeatures());
  uint64_t known = 0;
  for (const auto& [bit, flag] : bits) {
    EXPECT_EQ((features & bit) != 0, flags.count(flag) != 0) << flag;
    known |= bit;
  }
  EXPECT_EQ(features & ~known, 0u) << "bits with no meaning";
  // FMA and AVX2 are only reported with a usable AVX state.
  EXPECT_TRUE(!(features & (VTQ_CPU_FMA | VTQ_CPU_AVX2)) || (features & VTQ_CPU_AVX));
  // Restricting only clears bits: a feature the processor lacks is never switched on.
  EXPECT_EQ(vtqSetEnabledCpuFeatures(0x30), features & 0x30);
  EXPECT_EQ(vtqGetEnabledCpuFeatures(), features & 0x30);
  vtqSetEnabledCpuFeatures(~0ull);
}

}  // namespace
