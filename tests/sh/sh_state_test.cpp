// SH state: the size query and init checks, and every byte init writes into 8- and 16-byte-aligned
// buffers.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
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
      const float q = float((2 * l + 1) * ((l - 1) * (l - 1) - m * m)) /
                      float((2 * l - 3) * (l * l - m * m));
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
      {20, vtqrSHRecurrence, vtqStsOk, 1888},            // no evaluation limit for the recurrence
      {32766, vtqrSHRecurrence, vtqStsOk, 4294836256u},  // the largest size that fits
      {32767, vtqrSHRecurrence, vtqStsErrSize, 0},       // would wrap to 131104
      {0xFFFFFFFFu, vtqrSHRecurrence, vtqStsErrSize, 0},
      {0xFFFFFFFFu, 2, vtqStsErrBadValue, 0},
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
    if (row.size > sizeof(storage) - 64) continue;
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

// A caller that sizes its buffer by the query never gets a write past it: every order up to a
// few hundred fits a heap block of exactly the reported size (the sanitizer build watches its
// end), and the orders whose size would wrap 32 bits are refused by both calls, which write
// nothing, not even into a block of the size the wrapped arithmetic would have reported.
TEST(SHState, InitStaysInsideTheReportedSize) {
  for (Vtq32u order = 0; order <= 300; ++order) {
    Vtq32u size = 0;
    ASSERT_EQ(vtqStsOk, kDispatchTable.SHGetSize_32f[kPathU8](order, vtqrSHRecurrence, &size));
    for (size_t misalign : {0, 8}) {
      auto block = std::make_unique<uint8_t[]>(size + misalign);
      uint8_t *base = block.get() + misalign;
      auto *state = reinterpret_cast<VtqrSHState *>(base);
      ASSERT_EQ(vtqStsOk, kDispatchTable.SHInit_32f[kPathU8](state, order, vtqrSHRecurrence));
      const size_t t = size_t{order + 1} * (order + 2) / 2;
      ASSERT_LE(reinterpret_cast<uint8_t *>(state->tableB + t), base + size) << order;
    }
  }
  const Vtq32u wrapping[] = {32767, 65535, 65536, 92681, 0x80000000u, 0xFFFFFFFEu, 0xFFFFFFFFu};
  for (Vtq32u order : wrapping) {
    SCOPED_TRACE(::testing::Message() << "order " << order);
    Vtq32u size = 12345;
    EXPECT_EQ(vtqStsErrSize, kDispatchTable.SHGetSize_32f[kPathU8](order, vtqrSHRecurrence, &size));
    EXPECT_EQ(12345u, size);
    const Vtq32u t = (order + 1u) * (order + 2u) / 2u;
    const Vtq32u wrappedSize = ((t * 8u + 30u) & ~31u) + 32u;
    std::vector<uint8_t> block(wrappedSize, kFill);
    EXPECT_EQ(vtqStsErrSize,
              kDispatchTable.SHInit_32f[kPathU8](reinterpret_cast<VtqrSHState *>(block.data()),
                                                 order, vtqrSHRecurrence));
    EXPECT_EQ(block.end(),
              std::find_if(block.begin(), block.end(), [](uint8_t byte) { return byte != kFill; }));
  }
}

}  // namespace
}  // namespace vtqr::test
