// SH state: size query, check order, buffer layout and table entries.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "test_util.h"
#include "vtqr/sh.h"

namespace vtqr::test {
namespace {

constexpr uint8_t kFill = 0xAB;

VtqStatus GetSize(CodePath path, Vtq32u order, int method, Vtq32u* size) {
  return kDispatchTable.SHGetSize_32f[path](order, method, size);
}
VtqStatus Init(CodePath path, void* buffer, Vtq32u order, int method) {
  return kDispatchTable.SHInit_32f[path](static_cast<VtqrSHState*>(buffer), order, method);
}

TEST(SHState, SizeQuery) {
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
      {1, vtqrSHRecurrence, vtqStsOk, 64},
      {15, vtqrSHRecurrence, vtqStsOk, 1120},
      {20, vtqrSHRecurrence, vtqStsOk, 1888},  // no order limit for the recurrence
      // (order+1)(order+2) wraps in 32 bits: 65536 * 65537 -> 65536, T = 32768.
      {65535, vtqrSHRecurrence, vtqStsOk, 262176},
      {2, 2, vtqStsErrBadValue, 0},
      {16, 2, vtqStsErrBadValue, 0},  // the order limit belongs to the direct method only
      {2, -1, vtqStsErrBadValue, 0},
  };
  for (CodePath path : kBothPaths) {
    for (const Row& row : rows) {
      Vtq32u size = 0;
      EXPECT_EQ(row.status, GetSize(path, row.order, row.method, &size))
          << PathName(path) << " order " << row.order << " method " << row.method;
      EXPECT_EQ(row.size, size) << "order " << row.order << " method " << row.method;
    }
    EXPECT_EQ(vtqStsErrNullPtr, GetSize(path, 16, 2, nullptr));
  }
}

TEST(SHState, InitChecksInOrderAndWritesNothingOnFailure) {
  struct Row {
    bool nullState;
    Vtq32u order;
    int method;
    VtqStatus status;
  };
  const Row rows[] = {
      {true, 16, 2, vtqStsErrNullPtr},
      {false, 16, vtqrSHDirect, vtqStsErrSize},
      {false, 16, 2, vtqStsErrBadValue},
      {false, 0, -1, vtqStsErrBadValue},
      {false, 1000, 5, vtqStsErrBadValue},
  };
  for (CodePath path : kBothPaths) {
    for (const Row& row : rows) {
      std::vector<uint8_t> buffer(256, kFill);
      EXPECT_EQ(row.status, Init(path, row.nullState ? nullptr : buffer.data(), row.order,
                                 row.method));
      for (uint8_t byte : buffer) ASSERT_EQ(kFill, byte);
    }
  }
}

// Table entries recomputed from their definitions, in the precision each one is defined in.
void ExpectedTables(Vtq32u order, std::vector<float>& a, std::vector<float>& b) {
  a.assign(3 + (order + 1) * (order + 2) / 2, 0.0f);
  b.assign(a.size(), 0.0f);
  a[0] = FromBits(0x3E906EBB);
  a[1] = FromBits(0x3EFA2A1D);
  a[2] = FromBits(0xBEFA2A1D);
  for (int l = 2; l <= static_cast<int>(order); ++l) {
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

uintptr_t Align16(uintptr_t address) { return (address + 15) & ~uintptr_t{15}; }

TEST(SHState, RecurrenceLayoutAndTables) {
  const Vtq32u orders[] = {0, 1, 2, 3, 15, 20};
  for (CodePath path : kBothPaths) {
    for (Vtq32u order : orders) {
      for (size_t misalign : {0u, 8u, 24u}) {  // buffers 8- and 16-byte aligned
        SCOPED_TRACE(::testing::Message() << PathName(path) << " order " << order
                                          << " misalign " << misalign);
        Vtq32u size = 0;
        ASSERT_EQ(vtqStsOk, GetSize(path, order, vtqrSHRecurrence, &size));
        alignas(64) static uint8_t storage[4096];
        std::memset(storage, kFill, sizeof(storage));
        uint8_t* base = storage + misalign;
        ASSERT_EQ(vtqStsOk, Init(path, base, order, vtqrSHRecurrence));

        VtqrSHState state;
        std::memcpy(&state, base, sizeof(state));
        EXPECT_EQ(order, state.maxOrder);
        EXPECT_EQ(1u, state.method);
        const size_t t = (order + 1) * (order + 2) / 2;
        const auto begin = reinterpret_cast<uintptr_t>(base);
        const auto tableA = reinterpret_cast<uintptr_t>(state.tableA);
        const auto tableB = reinterpret_cast<uintptr_t>(state.tableB);
        ASSERT_EQ(Align16(begin + sizeof(VtqrSHState)), tableA);
        ASSERT_EQ(Align16(tableA + t * sizeof(float)), tableB);
        ASSERT_LE(tableB + t * sizeof(float), begin + size);

        // Every byte inside the size is either a record field, a table entry or zero; the
        // buffer beyond the size is untouched. Band 0 writes three entries into table A even
        // though T = 1: they fit into the gap before table B.
        std::vector<float> a, b;
        ExpectedTables(order, a, b);
        const size_t aCount = order == 0 ? 3 : t;
        std::vector<uint8_t> expected(size, 0);
        std::memcpy(expected.data(), &state, sizeof(state));
        std::memcpy(expected.data() + (tableA - begin), a.data(), aCount * sizeof(float));
        std::memcpy(expected.data() + (tableB - begin), b.data(), t * sizeof(float));
        for (size_t i = 0; i < size; ++i) ASSERT_EQ(expected[i], base[i]) << "byte " << i;
        for (size_t i = size; i < size + 32; ++i) ASSERT_EQ(kFill, base[i]) << "byte " << i;
      }
    }
  }
}

TEST(SHState, DirectStateWritesOnlyItsSixteenBytes) {
  for (CodePath path : kBothPaths) {
    uint8_t buffer[32];
    std::memset(buffer, kFill, sizeof(buffer));
    ASSERT_EQ(vtqStsOk, Init(path, buffer, 7, vtqrSHDirect));
    Vtq32u fields[2];
    std::memcpy(fields, buffer, sizeof(fields));
    EXPECT_EQ(7u, fields[0]);
    EXPECT_EQ(0u, fields[1]);
    for (int i = 8; i < 16; ++i) EXPECT_EQ(0, buffer[i]);  // tableA stays null
    for (int i = 16; i < 32; ++i) EXPECT_EQ(kFill, buffer[i]);
  }
}

TEST(SHState, HighOrderRecurrenceStateEvaluatesUpToFifteen) {
  // A state built for order 20 has the same band 0..15 tables as one built for 15, so its
  // order-15 sets match bit for bit; above 15 evaluation is refused.
  alignas(16) static uint8_t big[2048], small[2048];
  ASSERT_EQ(vtqStsOk, Init(kPathU8, big, 20, vtqrSHRecurrence));
  ASSERT_EQ(vtqStsOk, Init(kPathU8, small, 15, vtqrSHRecurrence));
  const auto* bigState = reinterpret_cast<const VtqrSHState*>(big);
  const auto* smallState = reinterpret_cast<const VtqrSHState*>(small);
  const float x[] = {0.48f, -0.6f, 0.0f}, y[] = {0.64f, 0.0f, 0.0f}, z[] = {0.6f, 0.8f, 1.0f};
  std::vector<float> fromBig(3 * 256), fromSmall(3 * 256);
  ASSERT_EQ(vtqStsOk, kDispatchTable.SH_32f[kPathU8](x, y, z, 3, fromBig.data(), 15, bigState));
  ASSERT_EQ(vtqStsOk,
            kDispatchTable.SH_32f[kPathU8](x, y, z, 3, fromSmall.data(), 15, smallState));
  EXPECT_TRUE(SameBits(fromSmall.data(), fromBig.data(), fromBig.size()));
  for (Vtq32u order : {16u, 20u}) {
    EXPECT_EQ(vtqStsErrBadValue,
              kDispatchTable.SH_32f[kPathU8](x, y, z, 1, fromBig.data(), order, bigState));
  }
}

}  // namespace
}  // namespace vtqr::test
