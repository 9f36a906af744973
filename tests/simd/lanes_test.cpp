// The shared SIMD vocabulary against plain scalar code: the integer lanes whose code is more than
// one instruction, the rounding rule, the operator lanes against their one-value forms, and the
// packet schemes against the rule each promises.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <limits>
#include <type_traits>
#include <vector>

#include "simd/int16.h"
#include "simd/operator_lanes.h"
#include "simd/schemes.h"
#include "test_util.h"

namespace vtqr::test {
namespace {

using namespace vtqr::u8::simd;

template <class T>
std::array<T, 16 / sizeof(T)> Lanes(__m128i v) {
  std::array<T, 16 / sizeof(T)> lanes;
  _mm_storeu_si128(reinterpret_cast<__m128i*>(lanes.data()), v);
  return lanes;
}

__m128i Load(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }

// Each input passes through every one of the eight result lanes, so a pack that mixes up its
// two halves or the lanes within them fails as surely as one that clamps wrongly. The in-range
// pack must agree with the saturating one on inputs already clamped.
TEST(IntLanes, PacksClampEveryLane) {
  const int32_t inputs[] = {0,      1,     -1,    32767,     32768,     65534,
                            65535,  65536, 70000, -32768,    -32769,    -65536,
                            -65535, 98303, 98304, INT32_MAX, INT32_MIN, INT32_MIN + 32768};
  const int count = static_cast<int>(std::size(inputs));
  for (int shift = 0; shift < count; ++shift) {
    int32_t in[8], clamped[8];
    for (int k = 0; k < 8; ++k) {
      in[k] = inputs[(k + shift) % count];
      clamped[k] = std::clamp(in[k], 0, 65535);
    }
    const auto u = Lanes<uint16_t>(PackSat16u(Load(in), Load(in + 4)));
    const auto s = Lanes<int16_t>(PackSat16s(Load(in), Load(in + 4)));
    for (int k = 0; k < 8; ++k) {
      EXPECT_EQ(clamped[k], u[k]) << in[k];
      EXPECT_EQ(std::clamp(in[k], -32768, 32767), s[k]) << in[k];
    }
    EXPECT_EQ(u, Lanes<uint16_t>(Pack16uInRange(Load(clamped), Load(clamped + 4))));
  }
}

// 16s widens with its sign, 8u with zeros (and as float, the same integers).
TEST(IntLanes, Widening) {
  const uint16_t words[8] = {0, 0x8000, 0x7FFF, 0xFFFF, 1, 2, 3, 4};  // both signs in the low half
  const Vtq8u bytes[4] = {0x00, 0x7F, 0x80, 0xFF};
  const auto lo = Lanes<int32_t>(Widen16sLo(Load(words)));
  for (int k = 0; k < 4; ++k) EXPECT_EQ(int16_t(words[k]), lo[k]) << k;
  const auto u8 = Lanes<int32_t>(Widen8uTo32(Load4x8u(bytes)));
  float f[4];
  _mm_storeu_ps(f, ToFloat(Widen8uTo32(Load4x8u(bytes))));
  for (int k = 0; k < 4; ++k) EXPECT_TRUE(u8[k] == bytes[k] && f[k] == bytes[k]) << k;
}

// Ties go to the even neighbour (a truncating conversion would pass most other inputs); NaN and
// the values outside int32 give INT32_MIN.
TEST(IntLanes, RoundToIntTiesToEven) {
  const float inputs[] = {0.5f,          1.5f,           2.5f,          -0.5f,
                          -1.5f,         -2.5f,          0.49999997f,   8388609.0f,
                          2147483520.0f, -2147483648.0f, 2147483648.0f, -2147483904.0f,
                          NAN,           INFINITY,       -INFINITY,     1e-45f};
  for (size_t k = 0; k < std::size(inputs); k += 4) {
    const auto r = Lanes<int32_t>(RoundToInt(_mm_loadu_ps(inputs + k)));
    for (int j = 0; j < 4; ++j) {
      const double x = inputs[k + j], below = std::floor(x), fraction = x - below;
      const double nearest = below +
                             (fraction > 0.5 || (fraction == 0.5 && std::fmod(below, 2.0) != 0.0));
      const bool fits = !std::isnan(x) && nearest >= INT32_MIN && nearest <= INT32_MAX;
      EXPECT_EQ(fits ? static_cast<int32_t>(nearest) : INT32_MIN, r[j]) << inputs[k + j];
    }
  }
}

// Every helper gives, in each lane, the bits its one-value form gives, on the inputs where the
// obvious scalar spellings part from the SSE instruction (NaN in either operand, zeros of both
// signs, signalling NaN payloads through a select). The select's mask varies per lane, so one
// that ignored it or swapped its operands fails.
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
      const F4 fa(_mm_setr_ps(a, a, a, a)), fb(b);
      const struct {
        const char* name;
        F4 four;
        float lane0, lane1;
      } rows[] = {
          {"Min", Min(fa, fb), Min(a, b), Min(a, b)},
          {"Max", Max(fa, fb), Max(a, b), Max(a, b)},
          {"Abs", Abs(fa), Abs(a), Abs(a)},
          {"Select", Select(LaneMask(0x5), fa, fb), Select(true, a, b), Select(false, a, b)},
      };
      for (const auto& row : rows) {
        alignas(16) float lanes[4];
        _mm_store_ps(lanes, row.four.v);
        const float expected[3] = {row.lane0, row.lane1, row.lane0};
        EXPECT_TRUE(SameBits(expected, lanes, 3))
            << row.name << " " << HexBits(a) << ", " << HexBits(b);
      }
      EXPECT_EQ(LaneBits(fa > fb) & 1, LaneBits(a > b));
    }
  }
  for (int bits = 0; bits < 16; ++bits) EXPECT_EQ(bits, LaneBits(LaneMask(bits)));
  EXPECT_EQ(0xA, NegativeBits(I4(_mm_setr_epi32(0, -1, INT32_MAX, INT32_MIN))));
}

// One step as a scheme called it: the first ray, the width and the aligned policy.
struct Step {
  int first, width;
  bool aligned;
};

template <class Scheme>
std::vector<Step> Record(Scheme scheme) {
  std::vector<Step> steps;
  scheme([&](auto lanes, int i) {
    using Lanes = decltype(lanes);
    steps.push_back({i, Lanes::kWidth, std::is_same_v<Lanes, AlignedFour>});
  });
  return steps;
}

// Every count up to 13 and every 4-byte misalignment of the destination and of a second array:
// every ray is handled exactly once, in order; aligned fours only where both arrays are aligned;
// fours wherever the scheme's rule asks for them, single rays elsewhere.
TEST(PacketSchemes, EveryRayOnceFoursWhereTheRuleSays) {
  alignas(16) static float dst[32];
  alignas(16) static Vtq32s other[32];
  for (int dstOffset = 0; dstOffset < 4; ++dstOffset) {
    for (int otherOffset = 0; otherOffset < 4; ++otherOffset) {
      float* d = dst + dstOffset;
      auto arrays = Touches(other + otherOffset, d);
      const bool bothAligned = dstOffset == 0 && otherOffset == 0;
      for (int len = 0; len <= 13; ++len) {
        const int peel = std::min(len, (4 - dstOffset) % 4);
        // The first ray of every four-wide step each scheme should take, and their alignment.
        const struct {
          const char* name;
          std::vector<Step> steps;
          int foursBegin, foursEnd;
          bool alignedFours;
        } rows[] = {
            {"PeelToBoundary", Record([&](auto step) { PeelToBoundary(len, d, arrays, step); }),
             peel, peel + (len - peel) / 4 * 4, dstOffset == otherOffset},
            {"AlignedFoursOrSingle",
             Record([&](auto step) { AlignedFoursOrSingle(len, arrays, step); }), 0,
             bothAligned && len % 4 == 0 ? len : 0, true},
            {"FoursThenSingle", Record([&](auto step) { FoursThenSingle(len, arrays, step); }), 0,
             len / 4 * 4, bothAligned},
            {"FoursOrSingle", Record([&](auto step) { FoursOrSingle(len, arrays, step); }), 0,
             len % 4 == 0 ? len : 0, bothAligned},
        };
        for (const auto& row : rows) {
          int next = 0;
          for (const Step& step : row.steps) {
            const bool four = step.first >= row.foursBegin && step.first < row.foursEnd;
            ASSERT_TRUE(step.first == next && step.width == (four ? 4 : 1) &&
                        (!four || step.aligned == row.alignedFours))
                << row.name << " len " << len << " offsets " << dstOffset << "," << otherOffset
                << " at ray " << step.first;
            next += step.width;
          }
          EXPECT_EQ(len, next) << row.name << " len " << len;
        }
      }
    }
  }
}

}  // namespace
}  // namespace vtqr::test
