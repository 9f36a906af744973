// The integer lanes whose code is more than one instruction (the unsigned saturating pack built
// from the signed one, the widenings) and the rounding rule, each against plain scalar code.
#include "simd/int16.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <limits>

namespace vtqr::test {
namespace {

using namespace vtqr::u8::simd;

template <class T>
std::array<T, 16 / sizeof(T)> Lanes(__m128i v) {
  std::array<T, 16 / sizeof(T)> lanes;
  _mm_storeu_si128(reinterpret_cast<__m128i*>(lanes.data()), v);
  return lanes;
}

__m128i Load(const int32_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }

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

// 8u and 16u widen with zeros, 16s with its sign; the float forms are the same integers.
TEST(IntLanes, Widening) {
  const uint16_t words[8] = {0, 1, 0x7F, 0x80, 0x7FFF, 0x8000, 0xFFFE, 0xFFFF};
  const Vtq8u bytes[4] = {0x00, 0x7F, 0x80, 0xFF};
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(words));
  const std::array<int32_t, 4> u16[2] = {Lanes<int32_t>(Widen16uLo(v)),
                                         Lanes<int32_t>(Widen16uHi(v))};
  const std::array<int32_t, 4> s16[2] = {Lanes<int32_t>(Widen16sLo(v)),
                                         Lanes<int32_t>(Widen16sHi(v))};
  for (int k = 0; k < 8; ++k) {
    EXPECT_EQ(int32_t{words[k]}, u16[k / 4][k % 4]) << k;
    EXPECT_EQ(int32_t{static_cast<int16_t>(words[k])}, s16[k / 4][k % 4]) << k;
  }
  const auto u8 = Lanes<int32_t>(Widen8uTo32(Load4x8u(bytes)));
  float f[4];
  _mm_storeu_ps(f, ToFloat(Widen8uTo32(Load4x8u(bytes))));
  for (int k = 0; k < 4; ++k) {
    EXPECT_EQ(int32_t{bytes[k]}, u8[k]) << k;
    EXPECT_EQ(static_cast<float>(bytes[k]), f[k]) << k;
  }
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
      const double nearest =
          below + (fraction > 0.5 || (fraction == 0.5 && std::fmod(below, 2.0) != 0.0));
      const bool fits = !std::isnan(x) && nearest >= INT32_MIN && nearest <= INT32_MAX;
      EXPECT_EQ(fits ? static_cast<int32_t>(nearest) : INT32_MIN, r[j]) << inputs[k + j];
    }
  }
}

}  // namespace
}  // namespace vtqr::test
