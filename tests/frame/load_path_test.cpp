// The code path chosen through the real loading path: restrict the feature mask in vtqcore,
// then load libvtqr.so and ask it which path it took. Each case runs in a forked child, since a
// library chooses its path only once per load.

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>

#include "vtqcore.h"
#include "vtqr/types.h"

namespace {

// Exit codes of the child.
enum : int { kMatch = 0, kMismatch = 1, kLoadFailed = 2, kNoSymbol = 3 };

int LoadAndCompare(uint64_t mask, const char* expectedCpu, const char* expectedName) {
  vtqSetEnabledCpuFeatures(mask);
  void* library = dlopen(VTQR_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) return kLoadFailed;
  using GetLibVersion = const VtqLibVersion* (*)();
  auto getVersion = reinterpret_cast<GetLibVersion>(dlsym(library, "vtqrGetLibVersion"));
  if (getVersion == nullptr) return kNoSymbol;
  const VtqLibVersion* version = getVersion();
  const bool match = std::memcmp(version->targetCpu, expectedCpu, 4) == 0 &&
                     std::strcmp(version->name, expectedName) == 0;
  return match ? kMatch : kMismatch;
}

int RunInChild(uint64_t mask, const char* expectedCpu, const char* expectedName) {
  const pid_t child = fork();
  if (child == 0) _exit(LoadAndCompare(mask, expectedCpu, expectedName));
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(LoadTimePath, FeatureMaskChoosesTheVersionRecord) {
  const uint64_t processor = vtqGetEnabledCpuFeatures();
  if ((processor & (VTQ_CPU_SSSE3 | VTQ_CPU_MOVBE)) != (VTQ_CPU_SSSE3 | VTQ_CPU_MOVBE)) {
    GTEST_SKIP() << "this processor lacks SSSE3 or MOVBE, so n8 cannot be selected here";
  }
  struct Case {
    uint64_t mask;
    const char* cpu;
    const char* name;
  };
  const Case cases[] = {
      {0x20, "u8\0", "vtqRR SSSE3 (u8)"},
      {0x10, "u8\0", "vtqRR SSSE3 (u8)"},
      {0x30, "n8\0", "vtqRR Vell (n8)"},
      {~0ull, "n8\0", "vtqRR Vell (n8)"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(RunInChild(c.mask, c.cpu, c.name), kMatch) << "mask 0x" << std::hex << c.mask;
  }
}

TEST(LoadTimePath, RestrictingNeverEnablesMissingFeatures) {
  const uint64_t processor = vtqGetEnabledCpuFeatures();
  EXPECT_EQ(vtqSetEnabledCpuFeatures(~0ull), processor);
  EXPECT_EQ(vtqSetEnabledCpuFeatures(0x30), processor & 0x30);
  EXPECT_EQ(vtqGetEnabledCpuFeatures(), processor & 0x30);
  vtqSetEnabledCpuFeatures(~0ull);
}

}  // namespace
