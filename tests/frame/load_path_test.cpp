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

// The child's exit code: 0 when the loaded library reports the expected record.
int LoadAndCompare(uint64_t mask, const char* expectedCpu, const char* expectedName) {
  vtqSetEnabledCpuFeatures(mask);
  void* library = dlopen(VTQR_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) return 2;
  using GetLibVersion = const VtqLibVersion* (*)();
  auto getVersion = reinterpret_cast<GetLibVersion>(dlsym(library, "vtqrGetLibVersion"));
  if (getVersion == nullptr) return 3;
  const VtqLibVersion* version = getVersion();
  const bool same = std::memcmp(version->targetCpu, expectedCpu, 4) == 0 &&
                    std::strcmp(version->name, expectedName) == 0;
  return same ? 0 : 1;
}

TEST(LoadTimePath, FeatureMaskChoosesTheVersionRecord) {
  if ((vtqGetEnabledCpuFeatures() & 0x30) != 0x30) GTEST_SKIP() << "without SSSE3 and MOVBE n8 is never chosen";
  const struct {
    uint64_t mask;
    const char *cpu, *name;
  } cases[] = {{0x20, "u8\0", "vtqRR SSSE3 (u8)"},
               {0x10, "u8\0", "vtqRR SSSE3 (u8)"},
               {~0ull, "n8\0", "vtqRR Vell (n8)"}};
  for (const auto& c : cases) {
    const pid_t child = fork();
    if (child == 0) _exit(LoadAndCompare(c.mask, c.cpu, c.name));
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << std::hex << c.mask;
  }
}

}  // namespace
