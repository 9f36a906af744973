// The integer lanes whose code is more than one instruction: the unsigned saturating pack
// built from the signed one, and the widenings, each against plain scalar conversions.
#include "simd/int16.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <limits>
#include <vector>

namespace vtqr::test {
namespace {

using namespace vtqr::u8::simd;

std::vector<int32_t> Lanes32(__m128i v) {
  std::vector<int32_t> lanes(4);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(lanes.data()), v);
  return lanes;
}

std::vector<uint16_t> Lanes16(__m128i v) {
  std::vector<uint16_t> lanes(8);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(lanes.data()), v);
  return lanes;
}

// Each input is packed in every one of the eight result lanes, so a pack that mixes up the
// order of its two halves or of the lanes within them fails as surely as one that clamps
// wrongly.
TEST(IntLanes, PackSat16uClampsEveryLane) {
  const int32_t inputs[] = {0,      1,     -1,    32767,     32768,     65534,
                            65535,  65536, 70000, -32768,    -32769,    -65536,
                            -65535, 98303, 98304, INT32_MAX, INT32_MIN, INT32_MIN + 32768};
  const int count = static_cast<int>(std::size(inputs));
  for (int shift = 0; shift < count; ++shift) {
    int32_t in[8];
    for (int k = 0; k < 8; ++k) in[k] = inputs[(k + shift) % count];
    __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
    __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 4));
    std::vector<uint16_t> u = Lanes16(PackSat16u(lo, hi));
    std::vector<uint16_t> s = Lanes16(PackSat16s(lo, hi));
    for (int k = 0; k < 8; ++k) {
      const int64_t v = in[k];
      EXPECT_EQ(static_cast<uint16_t>(std::clamp<int64_t>(v, 0, 65535)), u[k]) << v;
      EXPECT_EQ(static_cast<uint16_t>(std::clamp<int64_t>(v, -32768, 32767)), s[k]) << v;
    }
  }
}

// Lanes already within 0..65535 pack as the saturating pack packs them.
TEST(IntLanes, Pack16uInRangeMatchesPackSat16u) {
  const int32_t in[8] = {0, 1, 32767, 32768, 32769, 65534, 65535, 12345};
  for (int shift = 0; shift < 8; ++shift) {
    int32_t lanes[8];
    for (int k = 0; k < 8; ++k) lanes[k] = in[(k + shift) % 8];
    const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(lanes));
    const __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i*>(lanes + 4));
    EXPECT_EQ(Lanes16(PackSat16u(lo, hi)), Lanes16(Pack16uInRange(lo, hi)));
  }
}

// 8u and 16u widen with zeros, 16s with its sign; the float forms are the same integers.
TEST(IntLanes, Widening) {
  const uint16_t words[8] = {0, 1, 0x7F, 0x80, 0x7FFF, 0x8000, 0xFFFE, 0xFFFF};
  const Vtq8u bytes[4] = {0x00, 0x7F, 0x80, 0xFF};
  __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(words));
  const std::vector<int32_t> u16[2] = {Lanes32(Widen16uLo(v)), Lanes32(Widen16uHi(v))};
  const std::vector<int32_t> s16[2] = {Lanes32(Widen16sLo(v)), Lanes32(Widen16sHi(v))};
  for (int k = 0; k < 8; ++k) {
    EXPECT_EQ(int32_t{words[k]}, u16[k / 4][k % 4]) << k;
    EXPECT_EQ(int32_t{static_cast<int16_t>(words[k])}, s16[k / 4][k % 4]) << k;
  }
  const std::vector<int32_t> u8 = Lanes32(Widen8uTo32(Load4x8u(bytes)));
  float f[4];
  _mm_storeu_ps(f, ToFloat(Widen8uTo32(Load4x8u(bytes))));
  for (int k = 0; k < 4; ++k) {
    EXPECT_EQ(int32_t{bytes[k]}, u8[k]) << k;
    EXPECT_EQ(static_cast<float>(bytes[k]), f[k]) << k;
  }
}

// Ties go to the even neighbour; NaN and the values outside int32 give INT32_MIN.
TEST(IntLanes, RoundToIntTiesToEven) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inputs[] = {0.5f,          1.5f,           2.5f,          -0.5f,
                          -1.5f,         -2.5f,          0.49999997f,   8388609.0f,
                          2147483520.0f, -2147483648.0f, 2147483648.0f, -2147483904.0f,
                          nan,           INFINITY,       -INFINITY,     1e-45f};
  for (size_t k = 0; k < std::size(inputs); k += 4) {
    const std::vector<int32_t> r = Lanes32(RoundToInt(_mm_loadu_ps(inputs + k)));
    for (int j = 0; j < 4; ++j) {
      const double x = inputs[k + j];
      // Reference in double: the nearest integer, with the exact tie rule written out.
      double expected = std::floor(x);
      const double fraction = x - expected;
      if (fraction > 0.5 || (fraction == 0.5 && std::fmod(expected, 2.0) != 0.0)) expected += 1;
      const bool fits = !std::isnan(x) && expected >= INT32_MIN && expected <= INT32_MAX;
      EXPECT_EQ(fits ? static_cast<int32_t>(expected) : INT32_MIN, r[j]) << inputs[k + j];
    }
  }
}

}  // namespace
}  // namespace vtqr::test
