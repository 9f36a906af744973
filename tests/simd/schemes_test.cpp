// The packet schemes against what each promises, for every count up to 13 and every 4-byte
// misalignment of the destination and of a second array: every ray is handled exactly once,
// in order; aligned fours only where both arrays are aligned; fours wherever the scheme's rule
// asks for them, single rays elsewhere.
#include "simd/schemes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <type_traits>
#include <vector>

namespace vtqr::test {
namespace {

using namespace vtqr::u8::simd;

// One step as a scheme called it: the first ray and the policy.
struct Step {
  int first;
  int width;
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

TEST(PacketSchemes, EveryRayOnceFoursWhereTheRuleSays) {
  alignas(16) static float dst[32];
  alignas(16) static Vtq32s other[32];
  for (int dstOffset = 0; dstOffset < 4; ++dstOffset) {
    for (int otherOffset = 0; otherOffset < 4; ++otherOffset) {
      float* d = dst + dstOffset;
      const Vtq32s* o = other + otherOffset;
      auto arrays = Touches(o, d);
      const bool sameAlignment = dstOffset == otherOffset;
      for (int len = 0; len <= 13; ++len) {
        const int peel = std::min(len, (4 - dstOffset) % 4);
        // The first ray of every four-wide step each scheme should take, and their alignment.
        struct Row {
          const char* name;
          std::vector<Step> steps;
          int foursBegin, foursEnd;
          bool alignedFours;
        } rows[] = {
            {"PeelToBoundary", Record([&](auto step) { PeelToBoundary(len, d, arrays, step); }),
             peel, peel + (len - peel) / 4 * 4, sameAlignment},
            {"AlignedFoursOrSingle",
             Record([&](auto step) { AlignedFoursOrSingle(len, arrays, step); }), 0,
             dstOffset == 0 && otherOffset == 0 && len % 4 == 0 ? len : 0, true},
            {"FoursThenSingle", Record([&](auto step) { FoursThenSingle(len, arrays, step); }), 0,
             len / 4 * 4, dstOffset == 0 && otherOffset == 0},
            {"FoursOrSingle", Record([&](auto step) { FoursOrSingle(len, arrays, step); }), 0,
             len % 4 == 0 ? len : 0, dstOffset == 0 && otherOffset == 0},
        };
        for (const Row& row : rows) {
          SCOPED_TRACE(::testing::Message() << row.name << " len " << len << " offsets "
                                            << dstOffset << "," << otherOffset);
          int next = 0;
          for (const Step& step : row.steps) {
            ASSERT_EQ(next, step.first);
            const bool four = step.first >= row.foursBegin && step.first < row.foursEnd;
            EXPECT_EQ(four ? 4 : 1, step.width) << "at ray " << step.first;
            if (four) {
              EXPECT_EQ(row.alignedFours, step.aligned) << "at ray " << step.first;
            }
            next += step.width;
          }
          EXPECT_EQ(len, next);
        }
      }
    }
  }
}

}  // namespace
}  // namespace vtqr::test
