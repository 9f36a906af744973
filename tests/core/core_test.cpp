// vtqcore: allocation alignment, the thread count setting and the processor feature mask, and
// the code path libvtqr.so chooses from that mask when it is loaded.

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "vtqcore.h"
#include "vtqr/types.h"

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

// The real loading path: restrict the mask, then load libvtqr.so and ask it which path it took.
// Each case runs in a forked child, since a library chooses its path only once per load; the
// child's exit code is 0 when the loaded library reports the expected record.
TEST(LoadTimePath, FeatureMaskChoosesTheVersionRecord) {
  if ((vtqGetEnabledCpuFeatures() & 0x30) != 0x30) GTEST_SKIP() << "n8 is never chosen here";
  const struct {
    uint64_t mask;
    const char *cpu, *name;
  } cases[] = {{0x20, "u8\0", "vtqRR SSSE3 (u8)"},
               {0x10, "u8\0", "vtqRR SSSE3 (u8)"},
               {~0ull, "n8\0", "vtqRR Vell (n8)"}};
  for (const auto& c : cases) {
    const pid_t child = fork();
    if (child == 0) {
      vtqSetEnabledCpuFeatures(c.mask);
      void* library = dlopen(VTQR_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
      auto get = reinterpret_cast<const VtqLibVersion* (*)()>(
          library ? dlsym(library, "vtqrGetLibVersion") : nullptr);
      const VtqLibVersion* v = get ? get() : nullptr;
      _exit(v && std::memcmp(v->targetCpu, c.cpu, 4) == 0 && !std::strcmp(v->name, c.name) ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << std::hex << c.mask;
  }
}

}  // namespace
