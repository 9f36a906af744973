// SH state: the size query and init checks, the bytes init writes into 8- and 16-byte-aligned
// buffers, and the orders whose size would wrap 32 bits.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "sh/sh_test_util.h"

namespace vtqr::test {
namespace {

constexpr uint8_t kFill = 0xAB;

// The table entries exactly as the public header defines them, each in its stated precision.
void ExpectedTables(int order, std::vector<float> &a, std::vector<float> &b) {
  a.assign(3 + (order + 1) * (order + 2) / 2, 0.0f);
  b.assign(a.size(), 0.0f);
  a[0] = FromBits(0x3E906EBB), a[1] = FromBits(0x3EFA2A1D), a[2] = FromBits(0xBEFA2A1D);
  for (int l = 2; l <= order; ++l) {
    const int s = l * (l + 1) / 2;
    a[s] = static_cast<float>(std::sqrt(4.0 * l * l - 1.0) / l);
    a[s + l] = static_cast<float>(-std::sqrt((2.0 * l + 1.0) / (2.0 * l)));
    b[s] = static_cast<float>((1.0 / l - 1.0) *
                              std::sqrt(double{float(2 * l + 1) / float(2 * l - 3)}));
    for (int m = 1; m < l; ++m) {
      a[s + m] = std::sqrt(float(4 * l * l - 1) / float(l * l - m * m));
      b[s + m] = static_cast<float>(-std::sqrt(double{float((2 * l + 1) * ((l - 1) * (l - 1) - m * m)) /
                                                      float((2 * l - 3) * (l * l - m * m))}));
    }
  }
}

uint8_t *Align16(uint8_t *p) {
  return reinterpret_cast<uint8_t *>((reinterpret_cast<uintptr_t>(p) + 15) & ~uintptr_t{15});
}

// The size query and init share their checks; a failed init writes nothing, a successful one
// writes the record, the tables and zeros up to the size, and nothing past it.
TEST(SHState, SizeChecksAndLayout) {
  const struct {
    Vtq32u order;
    int method;
    VtqStatus status;
    Vtq32u size;
  } rows[] = {
      {15, vtqrSHDirect, vtqStsOk, 16},
      {16, vtqrSHDirect, vtqStsErrSize, 0},
      {0, vtqrSHRecurrence, vtqStsOk, 64},
      {2, vtqrSHRecurrence, vtqStsOk, 96},
      {15, vtqrSHRecurrence, vtqStsOk, 1120},
      {20, vtqrSHRecurrence, vtqStsOk, 1888},            // no evaluation limit for the recurrence
      {32766, vtqrSHRecurrence, vtqStsOk, 4294836256u},  // the largest size that fits
      {0xFFFFFFFFu, 2, vtqStsErrBadValue, 0},
      {16, 2, vtqStsErrBadValue, 0},  // the order limit belongs to the direct method only
      {2, -1, vtqStsErrBadValue, 0},
  };
  EXPECT_EQ(vtqStsErrNullPtr, kDispatchTable.SHGetSize_32f[kPathU8](16, 2, nullptr));
  EXPECT_EQ(vtqStsErrNullPtr, kDispatchTable.SHInit_32f[kPathU8](nullptr, 16, 2));
  alignas(16) static uint8_t storage[2048];
  for (const auto &row : rows) {
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
        // The tables sit where the header says: the first 16-byte boundaries after the record
        // and after table A. Band 0 still writes three entries into A, into the gap before B.
        VtqrSHState state = {row.order, static_cast<Vtq32u>(row.method), nullptr, nullptr};
        std::fill_n(expected.begin(), size, 0);
        const size_t t = (row.order + 1) * (row.order + 2) / 2;
        if (row.method == vtqrSHRecurrence) {
          state.tableA = reinterpret_cast<float *>(Align16(base + sizeof(VtqrSHState)));
          state.tableB = reinterpret_cast<float *>(Align16(reinterpret_cast<uint8_t *>(state.tableA + t)));
          std::vector<float> a, b;
          ExpectedTables(static_cast<int>(row.order), a, b);
          std::memcpy(&expected[reinterpret_cast<uint8_t *>(state.tableA) - base], a.data(),
                      (row.order == 0 ? 3 : t) * sizeof(float));
          std::memcpy(&expected[reinterpret_cast<uint8_t *>(state.tableB) - base], b.data(),
                      t * sizeof(float));
        }
        std::memcpy(expected.data(), &state, std::min<size_t>(size, sizeof(state)));
      }
      for (size_t i = 0; i < expected.size(); ++i) {
        ASSERT_EQ(expected[i], base[i]) << "byte " << i << " misalign " << misalign;
      }
    }
  }
}

// Regression: from order 32767 up the recurrence state's size wraps 32 bits. A caller that sizes its buffer by the query never gets a
// write past it: every order up to a few hundred fits a heap block of exactly the reported size
// (the sanitizer build watches its end), and the wrapping orders are refused with vtqStsErrSize
// by both calls, which write nothing, not even into a block of the wrapped size.
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
    std::vector<uint8_t> block(((t * 8u + 30u) & ~31u) + 32u, kFill);
    EXPECT_EQ(vtqStsErrSize,
              kDispatchTable.SHInit_32f[kPathU8](reinterpret_cast<VtqrSHState *>(block.data()),
                                                 order, vtqrSHRecurrence));
    EXPECT_EQ(block.end(), std::find_if(block.begin(), block.end(),
                                        [](uint8_t byte) { return byte != kFill; }));
  }
}

}  // namespace
}  // namespace vtqr::test
