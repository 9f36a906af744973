// SH state: the size query and init checks, and every byte init writes into 8- and 16-byte-aligned
// buffers.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "sh/sh_test_util.h"

namespace vtqr::test {
namespace {

constexpr uint8_t kFill = 0xAB;

// Table entries recomputed from their definitions, in the precision each one is defined in.
void ExpectedTables(int order, std::vector<float> &a, std::vector<float> &b) {
  a.assign(3 + (order + 1) * (order + 2) / 2, 0.0f);
  b.assign(a.size(), 0.0f);
  a[0] = FromBits(0x3E906EBB);
  a[1] = FromBits(0x3EFA2A1D);
  a[2] = FromBits(0xBEFA2A1D);
  for (int l = 2; l <= order; ++l) {
    const int s = l * (l + 1) / 2;
    a[s] = static_cast<float>(std::sqrt(4.0 * l * l - 1.0) / l);
    a[s + l] = static_cast<float>(-std::sqrt((2.0 * l + 1.0) / (2.0 * l)));
    b[s] = static_cast<float>((1.0 / l - 1.0) *
                              std::sqrt(double{float(2 * l + 1) / float(2 * l - 3)}));
    for (int m = 1; m < l; ++m) {
      a[s + m] = std::sqrt(float(4 * l * l - 1) / float(l * l - m * m));
      const float q =
          float((2 * l + 1) * ((l - 1) * (l - 1) - m * m)) / float((2 * l - 3) * (l * l - m * m));
      b[s + m] = static_cast<float>(-std::sqrt(double{q}));
    }
  }
}

const uint8_t *Align16(const void *p) {
  return reinterpret_cast<const uint8_t *>((reinterpret_cast<uintptr_t>(p) + 15) & ~uintptr_t{15});
}

// The size query and init share their checks; a failed init writes nothing, a successful one writes
// the record, the tables and zeros up to the size, and nothing past it.
TEST(SHState, SizeChecksAndLayout) {
  struct Row {
    Vtq32u order;
    int method;
    VtqStatus status;
    Vtq32u size;
  };
  const Row rows[] = {
      {0, vtqrSHDirect, vtqStsOk, 16},
      {15, vtqrSHDirect, vtqStsOk, 16},
      {16, vtqrSHDirect, vtqStsErrSize, 0},
      {0, vtqrSHRecurrence, vtqStsOk, 64},
      {2, vtqrSHRecurrence, vtqStsOk, 96},
      {15, vtqrSHRecurrence, vtqStsOk, 1120},
      {20, vtqrSHRecurrence, vtqStsOk, 1888},       // no order limit for the recurrence
      {65535, vtqrSHRecurrence, vtqStsOk, 262176},  // (order+1)(order+2) wraps to 65536
      {2, 2, vtqStsErrBadValue, 0},
      {16, 2, vtqStsErrBadValue, 0},  // the order limit belongs to the direct method only
      {2, -1, vtqStsErrBadValue, 0},
  };
  EXPECT_EQ(vtqStsErrNullPtr, kDispatchTable.SHGetSize_32f[kPathU8](16, 2, nullptr));
  EXPECT_EQ(vtqStsErrNullPtr, kDispatchTable.SHInit_32f[kPathU8](nullptr, 16, 2));
  alignas(16) static uint8_t storage[2048];
  for (const Row &row : rows) {
    SCOPED_TRACE(::testing::Message() << "order " << row.order << " method " << row.method);
    Vtq32u size = 0;
    EXPECT_EQ(row.status, kDispatchTable.SHGetSize_32f[kPathU8](row.order, row.method, &size));
    EXPECT_EQ(row.size, size);
    if (row.order > 20) continue;  // the wrapped size cannot hold that many bands
    for (size_t misalign : {0, 8}) {
      std::memset(storage, kFill, sizeof(storage));
      uint8_t *base = storage + misalign;
      ASSERT_EQ(row.status, kDispatchTable.SHInit_32f[kPathU8](
                                reinterpret_cast<VtqrSHState *>(base), row.order, row.method));
      std::vector<uint8_t> expected(size + 64, kFill);
      if (row.status == vtqStsOk) {
        std::fill_n(expected.begin(), size, 0);
        const Vtq32u fields[2] = {row.order, static_cast<Vtq32u>(row.method)};
        std::memcpy(expected.data(), fields, sizeof(fields));
      }
      if (row.status == vtqStsOk && row.method == vtqrSHRecurrence) {
        VtqrSHState state;
        std::memcpy(&state, base, sizeof(state));
        const size_t t = (row.order + 1) * (row.order + 2) / 2;
        const auto *tableA = reinterpret_cast<const uint8_t *>(state.tableA);
        const auto *tableB = reinterpret_cast<const uint8_t *>(state.tableB);
        ASSERT_EQ(Align16(base + sizeof(VtqrSHState)), tableA);
        ASSERT_EQ(Align16(tableA + t * sizeof(float)), tableB);
        ASSERT_LE(tableB + t * sizeof(float), base + size);
        // Band 0 still writes three entries into table A; they fit in the gap before table B.
        std::vector<float> a, b;
        ExpectedTables(static_cast<int>(row.order), a, b);
        std::memcpy(expected.data(), &state, sizeof(state));
        std::memcpy(&expected[tableA - base], a.data(), (row.order == 0 ? 3 : t) * sizeof(float));
        std::memcpy(&expected[tableB - base], b.data(), t * sizeof(float));
      }
      for (size_t i = 0; i < expected.size(); ++i) {
        ASSERT_EQ(expected[i], base[i]) << "byte " << i << " misalign " << misalign;
      }
    }
  }
}

}  // namespace
}  // namespace vtqr::test
