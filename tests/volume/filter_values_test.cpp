// Filter results against the exact reference: kernels of every shape from 1x1x1 to 7x7x7 with
// anchors at corners, centre and outside, divisors of both rules and signs, ties, saturation,
// 32- and 64-bit sums, rows narrower and wider than a block; 1 and 2 threads give the same bits.
#include <gtest/gtest.h>

#include "volume/filter_test_util.h"

namespace vtqr::test {
namespace {

class Filter : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(Filter);

enum class Anchor { kLowCorner, kHighCorner, kCentre, kOutside };

struct Case {
  const char* name;
  VtqVolumeSize dst, kernel;
  Anchor anchor;
  int weightLimit;  // weights uniform in [-limit, limit]
  int voxelLimit;   // voxels likewise; 32767 adds runs of both extremes
  int divisors[4];
};

// Small voxels keep most quotients in range, so the rounding shows, with ties in about one
// voxel in |divisor| for the small divisors; full-range voxels saturate both ends. Weight
// limits up to 40 keep sums in 32 bits for every kernel here (7^3 * 40 < 65535); 32767 forces
// 64-bit sums. Divisors mix powers of two (1, 2, 4, 2^20, INT_MIN) with others.
const Case kCases[] = {
    // clang-format off
    {"1x1x1", {19, 3, 2}, {1, 1, 1}, Anchor::kCentre, 3, 32767, {1, -1, 2, -6}},
    {"2x1x1 narrow rows", {7, 5, 3}, {2, 1, 1}, Anchor::kLowCorner, 40, 300, {1, 3, -4, 2}},
    {"3x3x3 centred", {33, 6, 4}, {3, 3, 3}, Anchor::kCentre, 40, 100, {27, 16, -2, 6}},
    {"4x3x2 high corner", {17, 4, 3}, {4, 3, 2}, Anchor::kHighCorner, 40, 100, {24, -8, 1, -5}},
    {"5x5x5 low corner", {16, 5, 5}, {5, 5, 5}, Anchor::kLowCorner, 40, 100, {125, 4, -3, 1 << 20}},
    {"6x2x7 outside", {45, 3, 4}, {6, 2, 7}, Anchor::kOutside, 40, 100, {7, -2, 1, 64}},
    {"7x7x7 centred", {15, 4, 3}, {7, 7, 7}, Anchor::kCentre, 20, 100, {343, 2, -7, INT32_MIN}},
    {"8x1x1 even width", {40, 2, 2}, {8, 1, 1}, Anchor::kCentre, 40, 300, {8, 5, -1, 3}},
    {"1x7x1 column", {9, 6, 3}, {1, 7, 1}, Anchor::kHighCorner, 40, 300, {7, 2, 1, -9}},
    {"saturating", {24, 3, 2}, {3, 2, 2}, Anchor::kCentre, 4000, 32767, {1, -1, 2, 3}},
    {"full range 7x7x7", {17, 2, 2}, {7, 7, 7}, Anchor::kCentre, 40, 32767, {1 << 16, -3000, 3, 1}},
    {"64-bit sums, 3x3x3", {18, 3, 3}, {3, 3, 3}, Anchor::kCentre, 32767, 32767,
     {1 << 20, 3 << 12, -(1 << 16), 24}},
    {"64-bit sums, 4x2x1", {23, 4, 2}, {4, 2, 1}, Anchor::kLowCorner, 32767, 3, {2, 6, -2, 1}},
    {"64-bit sums, narrow", {5, 3, 2}, {5, 3, 1}, Anchor::kHighCorner, 32767, 32767,
     {4096, 5, -3, INT32_MIN}},
    // clang-format on
};

VtqPoint3D AnchorOf(Anchor a, VtqVolumeSize k) {
  switch (a) {
    case Anchor::kLowCorner:
      return {0, 0, 0};
    case Anchor::kHighCorner:
      return {k.width - 1, k.height - 1, k.depth - 1};
    case Anchor::kCentre:
      return {k.width / 2, k.height / 2, k.depth / 2};
    case Anchor::kOutside:
      return {-2, k.height + 1, 1};
  }
  return {};
}

// Voxels uniform in [-limit, limit]; at full range also runs of both extremes, so that the
// largest sums and saturation occur.
void FillSource(Block16s& src, int limit, uint32_t seed) {
  std::mt19937 rng(seed);
  std::uniform_int_distribution<int> voxel(-limit, limit), pick(0, 9);
  src.Fill([&](int, int, int) {
    const int p = limit == 32767 ? pick(rng) : 9;
    return static_cast<Vtq16s>(p == 0 ? -32768 : p == 1 ? 32767 : voxel(rng));
  });
}

TEST_P(Filter, MatchesTheExactReference) {
  ThreadCount one(1);
  uint32_t seed = 1;
  for (const Case& c : kCases) {
    const VtqPoint3D a = AnchorOf(c.anchor, c.kernel);
    Block16s src = SourceFor(c.dst, c.kernel, a);
    FillSource(src, c.voxelLimit, seed++);
    std::mt19937 rng(seed++);
    std::uniform_int_distribution<int> weight(-c.weightLimit, c.weightLimit);
    std::vector<Vtq16s> kernel(size_t(c.kernel.width) * c.kernel.height * c.kernel.depth);
    for (Vtq16s& w : kernel) w = static_cast<Vtq16s>(weight(rng));
    if (c.weightLimit == 32767) kernel[0] = -32768;  // the one product pair that reaches 2^31
    for (int divisor : c.divisors) {
      Block16s dst = DestinationFor(c.dst);
      ASSERT_EQ(vtqStsOk, CallFilter(path(), src, dst, c.dst, kernel, c.kernel, a, divisor));
      int mismatches = 0;
      for (int z = 0; z < c.dst.depth; ++z)
        for (int y = 0; y < c.dst.height; ++y)
          for (int x = 0; x < c.dst.width; ++x) {
            const int64_t sum = ReferenceSum(src, kernel, c.kernel, a, x, y, z);
            const Vtq16s expected = ReferenceRound(sum, divisor);
            if (dst.at(x, y, z) != expected && ++mismatches <= 3) {
              ADD_FAILURE() << c.name << ", divisor " << divisor << ": voxel (" << x << ", " << y
                            << ", " << z << ") sum " << sum << ": expected " << expected << ", got "
                            << dst.at(x, y, z);
            }
          }
      EXPECT_TRUE(dst.PaddingUntouched()) << c.name << ": wrote outside the destination";
    }
  }
}

// Every quotient from -6 to 6 in steps of a half, through both rules and both signs: a 1x1x1
// kernel of weight 1 over sums chosen to land exactly on them, in rows long enough for the
// four-lane rounding and in a row of three voxels for the one-lane form.
TEST_P(Filter, TiesGoToTheEvenNeighbour) {
  // n / 2 for n = -12 .. 12, rounded to nearest, halves to even.
  const int kNearestEven[25] = {-6, -6, -5, -4, -4, -4, -3, -2, -2, -2, -1, 0, 0,
                                0,  1,  2,  2,  2,  3,  4,  4,  4,  5,  6,  6};
  ThreadCount one(1);
  const std::vector<Vtq16s> unit = {1};
  for (int divisor : {2, -2, 4, -4, 6, -6, 10, -10}) {
    for (int width : {25, 3}) {
      const VtqVolumeSize size = {width, 1, 1};
      Block16s src = SourceFor(size, {1, 1, 1}, {0, 0, 0});
      // Sum n * |divisor| / 2 for n = -12 .. 12: quotient n / 2 times the divisor's sign.
      src.Fill([&](int x, int, int) { return Vtq16s((x % 25 - 12) * std::abs(divisor) / 2); });
      Block16s dst = DestinationFor(size);
      ASSERT_EQ(vtqStsOk, CallFilter(path(), src, dst, size, unit, {1, 1, 1}, {0, 0, 0}, divisor));
      for (int x = 0; x < width; ++x) {
        const int n = (x % 25 - 12) * (divisor < 0 ? -1 : 1);  // quotient n / 2
        EXPECT_EQ(kNearestEven[n + 12], dst.at(x, 0, 0)) << n << "/2, divisor " << divisor;
      }
    }
  }
}

// The split over two threads, which only large destinations get, changes no bit.
TEST_P(Filter, TwoThreadsGiveTheSameBits) {
  const VtqVolumeSize size = {37, 17, 16}, k = {4, 3, 3};
  const VtqPoint3D a = {1, 1, 2};
  Block16s src = SourceFor(size, k, a);
  FillSource(src, 32767, 99);
  std::vector<Vtq16s> kernel(36);
  std::mt19937 rng(7);
  std::uniform_int_distribution<int> weight(-50, 50);
  for (Vtq16s& w : kernel) w = static_cast<Vtq16s>(weight(rng));
  for (int divisor : {16, 37}) {
    Block16s one = DestinationFor(size), two = DestinationFor(size);
    {
      ThreadCount threads(1);
      ASSERT_EQ(vtqStsOk, CallFilter(path(), src, one, size, kernel, k, a, divisor));
    }
    {
      ThreadCount threads(2);
      ASSERT_EQ(vtqStsOk, CallFilter(path(), src, two, size, kernel, k, a, divisor));
    }
    for (int z = 0; z < size.depth; ++z)
      for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x)
          ASSERT_EQ(one.at(x, y, z), two.at(x, y, z)) << x << " " << y << " " << z;
  }
}

}  // namespace
}  // namespace vtqr::test
