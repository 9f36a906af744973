// The dispatch table: row order, column wiring, the path rule, the two version records, and the
// shared libraries exporting exactly their own names.

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>

#include "frame/dispatch.h"
#include "frame/exports.h"
#include "vtqcore.h"

namespace vtqr {
namespace {

// Rows in byte-wise name order, both columns filled. A shared row points both columns at one
// implementation and a distinct row must not: otherwise the n8 build of a kernel is silently
// never run (or u8's is run twice).
TEST(DispatchTable, RowsAreOrderedFilledAndWiredByKind) {
  const char* previous = "";
#define VTQR_ROW(name, columns, ret, params, args)                                           \
  {                                                                                          \
    const void* u8 = reinterpret_cast<const void*>(kDispatchTable.name[kPathU8]);            \
    const void* n8 = reinterpret_cast<const void*>(kDispatchTable.name[kPathN8]);            \
    EXPECT_LT(std::strcmp(previous, #name), 0) << previous << " must come before " << #name; \
    EXPECT_TRUE(u8 != nullptr && n8 != nullptr) << #name;                                    \
    EXPECT_EQ(u8 != n8, std::strcmp(#columns, "DISTINCT") == 0) << #name;                    \
    previous = #name;                                                                        \
  }
  VTQR_FOR_EACH_EXPORT(VTQR_ROW)
#undef VTQR_ROW
}

// n8 needs both SSSE3 and MOVBE (0x10 | 0x20); any other bit is irrelevant.
TEST(DispatchTable, PathRuleNeedsSsse3AndMovbe) {
  const std::pair<uint64_t, CodePath> cases[] = {
      {0x0, kPathU8},  {VTQ_CPU_MOVBE, kPathU8}, {VTQ_CPU_SSSE3, kPathU8},
      {0x30, kPathN8}, {~0ull, kPathN8},         {~0ull & ~VTQ_CPU_MOVBE, kPathU8},
  };
  for (const auto& [mask, path] : cases) EXPECT_EQ(ChoosePath(mask), path) << std::hex << mask;
  EXPECT_EQ(ActivePath(), ChoosePath(vtqGetEnabledCpuFeatures()));
}

// Each column describes its path; both share the version and date strings themselves.
TEST(VersionRecord, EachColumnDescribesItsPath) {
  const VtqLibVersion* u8 = kDispatchTable.GetLibVersion[kPathU8]();
  const VtqLibVersion* n8 = kDispatchTable.GetLibVersion[kPathN8]();
  for (const VtqLibVersion* v : {u8, n8}) {
    EXPECT_EQ((std::array{v->major, v->minor, v->majorBuild, v->build}),
              (std::array{7, 1, 0, 36264}));
    EXPECT_STREQ(v->version, "7.1.0 (r36264)");
    EXPECT_STREQ(v->buildDate, "Jul 23 2012");
    EXPECT_STREQ(v->name, v == u8 ? "vtqRR SSSE3 (u8)" : "vtqRR Vell (n8)");
    EXPECT_EQ(std::memcmp(v->targetCpu, v == u8 ? "u8\0\0" : "n8\0\0", 4), 0);
  }
  EXPECT_TRUE(u8->version == n8->version && u8->buildDate == n8->buildDate);
}

// Defined dynamic symbols of a shared library, as the dynamic linker sees them.
std::set<std::string> DynamicSymbols(const std::string& library) {
  std::set<std::string> names;
  FILE* pipe = popen(("nm -D --defined-only --format=posix '" + library + "'").c_str(), "r");
  char line[512];
  while (pipe != nullptr && std::fgets(line, sizeof(line), pipe) != nullptr) {
    names.insert(std::string(line).substr(0, std::string(line).find(' ')));
  }
  if (pipe != nullptr) pclose(pipe);
  return names;
}

// Every row of the table under its vtqr name from libvtqr.so, the core API from libvtqcore.so;
// nothing else leaks out.
TEST(ExportedSymbols, EachLibraryExportsExactlyItsApi) {
  std::set<std::string> rows;
#define VTQR_NAME(name, columns, ret, params, args) rows.insert("vtqr" #name);
  VTQR_FOR_EACH_EXPORT(VTQR_NAME)
#undef VTQR_NAME
  EXPECT_EQ(DynamicSymbols(VTQR_LIBRARY_PATH), rows);
  const std::set<std::string> core = {
      "vtqGetEnabledCpuFeatures", "vtqSetEnabledCpuFeatures", "vtqMalloc", "vtqFree",
      "ownGetNumThreads",         "vtqSetNumThreads"};
  EXPECT_EQ(DynamicSymbols(VTQCORE_LIBRARY_PATH), core);
}

}  // namespace
}  // namespace vtqr
