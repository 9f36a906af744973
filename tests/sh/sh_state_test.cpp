// SH state: the size query and init checks, where init puts the record and the tables in 8- and
// 16-byte-aligned buffers, and the orders whose size would wrap 32 bits.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "sh/sh_test_util.h"

namespace vtqr::test {
namespace {

const uint8_t *Align16(const void *p) {
  return reinterpret_cast<const uint8_t *>((reinterpret_cast<uintptr_t>(p) + 15) & ~uintptr_t{15});
}

// The size query and init share their checks; a successful init stays inside the reported size
// and puts the tables at the first 16-byte boundaries after the record and after table A (their
// entries are checked by evaluation); a failed one writes nothing.
// Regression: from order 32767 up the recurrence state's size wraps 32 bits. Those orders are
// refused with vtqStsErrSize by both calls, and init writes nothing, not even into a block of
// the wrapped size; every order up to a few hundred fits a block of exactly the reported size.
TEST(SHState, InitStaysInsideTheReportedSize) {
  struct Row {
    Vtq32u order;
    int method;
    VtqStatus status;
    Vtq32u size;  // 0: not checked
  };
  constexpr int kRec = vtqrSHRecurrence;
  std::vector<Row> rows = {
      {15, vtqrSHDirect, vtqStsOk, 16},
      {16, vtqrSHDirect, vtqStsErrSize, 0},
      {0, kRec, vtqStsOk, 64},
      {2, kRec, vtqStsOk, 96},
      {15, kRec, vtqStsOk, 1120},
      {20, kRec, vtqStsOk, 1888},            // no evaluation limit for the recurrence
      {32766, kRec, vtqStsOk, 4294836256u},  // the largest size that fits
      {0xFFFFFFFFu, 2, vtqStsErrBadValue, 0},
      {16, 2, vtqStsErrBadValue, 0},  // the order limit belongs to the direct method only
      {2, -1, vtqStsErrBadValue, 0},
  };
  for (Vtq32u order : {32767u, 65535u, 65536u, 92681u, 0x80000000u, 0xFFFFFFFEu, 0xFFFFFFFFu}) {
    rows.push_back({order, kRec, vtqStsErrSize, 0});
  }
  for (Vtq32u order = 21; order <= 300; ++order) rows.push_back({order, kRec, vtqStsOk, 0});
  EXPECT_EQ(vtqStsErrNullPtr, kDispatchTable.SHGetSize_32f[kPathU8](16, 2, nullptr));
  EXPECT_EQ(vtqStsErrNullPtr, kDispatchTable.SHInit_32f[kPathU8](nullptr, 16, 2));
  for (const Row &row : rows) {
    SCOPED_TRACE(::testing::Message() << "order " << row.order << " method " << row.method);
    Vtq32u size = 0;
    EXPECT_EQ(row.status, kDispatchTable.SHGetSize_32f[kPathU8](row.order, row.method, &size));
    EXPECT_EQ(row.size != 0 || row.status != vtqStsOk ? row.size : size, size);
    const Vtq32u t = (row.order + 1u) * (row.order + 2u) / 2u;
    const size_t bytes = row.status == vtqStsOk ? size
                         : row.method == kRec   ? ((t * 8u + 30u) & ~31u) + 32u  // wrapped
                                                : 64;
    for (size_t misalign = 0; misalign <= 8 && bytes < (1u << 24); misalign += 8) {
      // 64 bytes past the reported size show a write beyond it.
      std::vector<uint8_t> block(misalign + bytes + 64, 0xAB);
      auto *state = reinterpret_cast<VtqrSHState *>(block.data() + misalign);
      ASSERT_EQ(row.status, kDispatchTable.SHInit_32f[kPathU8](state, row.order, row.method));
      const auto isFill = [](uint8_t byte) { return byte == 0xAB; };
      EXPECT_TRUE(std::all_of(row.status == vtqStsOk ? block.end() - 64 : block.begin(),
                              block.end(), isFill));
      if (row.status != vtqStsOk) continue;
      EXPECT_TRUE(state->maxOrder == row.order && state->method == Vtq32u(row.method));
      if (row.method == vtqrSHDirect) {
        EXPECT_EQ(nullptr, state->tableA);
        continue;
      }
      const uint8_t *tableA = Align16(state + 1), *tableB = Align16(tableA + 4 * t);
      EXPECT_EQ(tableA, reinterpret_cast<uint8_t *>(state->tableA));
      EXPECT_EQ(tableB, reinterpret_cast<uint8_t *>(state->tableB));
      EXPECT_LE(tableB + 4 * t, block.data() + misalign + size);
    }
  }
}

}  // namespace
}  // namespace vtqr::test
