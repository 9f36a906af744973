// The dispatch table: row order, column wiring, the path rule and the two version records.

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "frame/dispatch.h"
#include "vtqcore.h"

namespace vtqr {
namespace {

struct Row {
  std::string name;
  bool distinct;
  const void* column[kPathCount];
};

std::vector<Row> TableRows() {
  std::vector<Row> rows;
#define VTQR_ROW(name, columns, ret, params, args)                              \
  rows.push_back({"vtqr" #name,                                                 \
                  std::string(#columns) == "DISTINCT",                          \
                  {reinterpret_cast<const void*>(kDispatchTable.name[kPathU8]), \
                   reinterpret_cast<const void*>(kDispatchTable.name[kPathN8])}});
  VTQR_FOR_EACH_EXPORT(VTQR_ROW)
#undef VTQR_ROW
  return rows;
}

TEST(DispatchTable, RowsAreInByteWiseNameOrder) {
  const std::vector<Row> rows = TableRows();
  for (size_t i = 1; i < rows.size(); ++i) {
    EXPECT_LT(std::strcmp(rows[i - 1].name.c_str(), rows[i].name.c_str()), 0)
        << rows[i - 1].name << " must come before " << rows[i].name;
  }
}

// A shared row must point both columns at one implementation, and a distinct row must not:
// otherwise the n8 build of a kernel is silently never run (or u8's is run twice).
TEST(DispatchTable, EveryColumnIsFilledAndWiredByRowKind) {
  for (const Row& row : TableRows()) {
    SCOPED_TRACE(row.name);
    ASSERT_NE(row.column[kPathU8], nullptr);
    ASSERT_NE(row.column[kPathN8], nullptr);
    EXPECT_EQ(row.column[kPathU8] != row.column[kPathN8], row.distinct);
  }
}

TEST(DispatchTable, PathRuleNeedsSsse3AndMovbe) {
  struct Case {
    uint64_t mask;
    CodePath path;
  };
  const Case cases[] = {
      {0x0, kPathU8},           {VTQ_CPU_MOVBE, kPathU8},
      {VTQ_CPU_SSSE3, kPathU8}, {0x30, kPathN8},
      {~0ull, kPathN8},         {~0ull & ~VTQ_CPU_MOVBE, kPathU8},
      {0x4, kPathU8},           {VTQ_CPU_SSE2 | VTQ_CPU_SSSE3, kPathU8},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ChoosePath(c.mask), c.path) << "mask 0x" << std::hex << c.mask;
  }
}

TEST(DispatchTable, ActivePathFollowsTheProcessorAtLoad) {
  EXPECT_EQ(ActivePath(), ChoosePath(vtqGetEnabledCpuFeatures()));
}

TEST(VersionRecord, EachColumnDescribesItsPath) {
  const VtqLibVersion* u8 = kDispatchTable.GetLibVersion[kPathU8]();
  const VtqLibVersion* n8 = kDispatchTable.GetLibVersion[kPathN8]();
  for (const VtqLibVersion* v : {u8, n8}) {
    EXPECT_EQ(v->major, 7);
    EXPECT_EQ(v->minor, 1);
    EXPECT_EQ(v->majorBuild, 0);
    EXPECT_EQ(v->build, 36264);
    EXPECT_STREQ(v->version, "7.1.0 (r36264)");
    EXPECT_STREQ(v->buildDate, "Jul 23 2012");
  }
  EXPECT_EQ(std::memcmp(u8->targetCpu, "u8\0\0", 4), 0);
  EXPECT_EQ(std::memcmp(n8->targetCpu, "n8\0\0", 4), 0);
  EXPECT_STREQ(u8->name, "vtqRR SSSE3 (u8)");
  EXPECT_STREQ(n8->name, "vtqRR Vell (n8)");
  // The records share the version and date strings themselves, not copies of them.
  EXPECT_EQ(u8->version, n8->version);
  EXPECT_EQ(u8->buildDate, n8->buildDate);
}

}  // namespace
}  // namespace vtqr
