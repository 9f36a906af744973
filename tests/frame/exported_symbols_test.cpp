// The shared libraries export exactly their own names: every row of the dispatch table under
// its vtqr name from libvtqr.so, and the core API from libvtqcore.so; nothing else leaks out.

#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>

#include "frame/exports.h"

namespace {

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

TEST(ExportedSymbols, EachLibraryExportsExactlyItsApi) {
  std::set<std::string> rows;
#define VTQR_NAME(name, columns, ret, params, args) rows.insert("vtqr" #name);
  VTQR_FOR_EACH_EXPORT(VTQR_NAME)
#undef VTQR_NAME
  EXPECT_EQ(DynamicSymbols(VTQR_LIBRARY_PATH), rows);
  const std::set<std::string> core = {"vtqGetEnabledCpuFeatures", "vtqSetEnabledCpuFeatures",
                                      "vtqMalloc", "vtqFree", "ownGetNumThreads",
                                      "vtqSetNumThreads"};
  EXPECT_EQ(DynamicSymbols(VTQCORE_LIBRARY_PATH), core);
}

}  // namespace
