// The operator lanes' promise: every helper gives, in each lane, the bits its one-value form
// gives, on the inputs where the obvious scalar spellings part from the SSE instruction (NaN in
// either operand, zeros of both signs, signalling NaN payloads through a select).
#include "simd/operator_lanes.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "test_util.h"

namespace vtqr::test {
namespace {

using namespace vtqr::u8::simd;

float Lane(F4 v, int lane) {
  alignas(16) float lanes[4];
  _mm_store_ps(lanes, v.v);
  return lanes[lane];
}

TEST(OperatorLanes, FourWideEqualsOneValue) {
  const float values[] = {FromBits(0x7FC00001u),
                          FromBits(0xFFA00002u),  // quiet, signalling NaN
                          0.0f,
                          -0.0f,
                          1.0f,
                          -2.5f,
                          std::numeric_limits<float>::infinity()};
  for (float a : values) {
    for (float b : values) {
      SCOPED_TRACE(::testing::Message() << HexBits(a) << ", " << HexBits(b));
      // The mask varies per lane, so a select that ignored it or swapped its operands fails.
      const F4 fa(_mm_setr_ps(a, a, a, a)), fb(b);
      const M4 m = LaneMask(0x5);
      const struct {
        const char* name;
        F4 four;
        float lane0, lane1;
      } rows[] = {
          {"Min", Min(fa, fb), Min(a, b), Min(a, b)},
          {"Max", Max(fa, fb), Max(a, b), Max(a, b)},
          {"Abs", Abs(fa), Abs(a), Abs(a)},
          {"Select", Select(m, fa, fb), Select(true, a, b), Select(false, a, b)},
      };
      for (const auto& row : rows) {
        EXPECT_EQ(Bits(row.lane0), Bits(Lane(row.four, 0))) << row.name;
        EXPECT_EQ(Bits(row.lane1), Bits(Lane(row.four, 1))) << row.name;
        EXPECT_EQ(Bits(row.lane0), Bits(Lane(row.four, 2))) << row.name;
      }
      EXPECT_EQ(LaneBits(fa > fb) & 1, LaneBits(a > b));
    }
  }
  for (int bits = 0; bits < 16; ++bits) EXPECT_EQ(bits, LaneBits(LaneMask(bits)));
  EXPECT_EQ(0xA, NegativeBits(I4(_mm_setr_epi32(0, -1, INT32_MAX, INT32_MIN))));
}

}  // namespace
}  // namespace vtqr::test
