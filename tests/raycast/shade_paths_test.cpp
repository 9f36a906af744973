// Every shading kernel gives the same bits whichever way its arrays are laid out and whichever
// code path runs it: packets of four (aligned, unaligned, after peeling to a boundary) against
// the one-ray loop, and u8 against n8.
#include <algorithm>

#include "raycast/shade_cases.h"

namespace vtqr::test {
namespace {

void CopyRays(Rays& from, Rays& to, int len) {
  for (size_t j = 0; j < from.planes.size(); ++j) {
    std::copy_n(from[static_cast<int>(j)], len, to[static_cast<int>(j)]);
  }
  std::copy_n(from.mask, len, to.mask);
}

TEST(ShadeKernels, PacketsMatchSingleRays) {
  const int lens[] = {1, 3, 4, 5, 7, 8, 13, 64};
  // Misalignment in floats per plane (cycled); the last entry also misaligns the mask.
  const std::vector<int> layouts[] = {{0}, {1}, {2}, {3}, {1, 2, 3, 0}, {0, 0, 1}, {0, 1}};
  uint32_t seed = 1;
  for (const ShadeCase& c : ShadeCases()) {
    for (int len : lens) {
      for (const auto& offsets : layouts) {
        ++seed;
        Rays input(c.planeCount, len, offsets);
        FillRays(input, len, seed);

        // Expected: the kernel run on one ray at a time, which takes the one-ray loop.
        Rays single(c.planeCount, len, offsets);
        CopyRays(input, single, len);
        VtqStatus expectedStatus = vtqStsOk;
        for (int i = 0; i < len; ++i) {
          expectedStatus = std::max(expectedStatus, c.run(kPathU8, single, i, 1, -1));
        }
        // Shadow packets turn every failing ray's mask to -1, dead ones included.
        if (c.name == std::string("CastShadowSO_32f")) {
          for (int i = 0; i < len / 4 * 4; ++i) {
            if (single.mask[i] < 0) single.mask[i] = -1;
          }
        }

        for (CodePath path : kBothPaths) {
          SCOPED_TRACE(::testing::Message() << c.name << " " << PathName(path) << " len " << len
                                            << " layout " << offsets.size() << "/" << offsets[0]
                                            << " seed " << seed);
          Rays bulk(c.planeCount, len, offsets);
          CopyRays(input, bulk, len);
          EXPECT_EQ(expectedStatus, c.run(path, bulk, 0, len, -1));
          // The guard elements past the end take part: nothing may land there.
          for (int j = 0; j < c.planeCount; ++j) {
            EXPECT_TRUE(SameBits(single[j], bulk[j], len + kGuard)) << "plane " << j;
            for (int k = len; k < len + kGuard; ++k) EXPECT_EQ(kSentinelBits, Bits(bulk[j][k]));
          }
          EXPECT_TRUE(std::equal(single.mask, single.mask + len + kGuard, bulk.mask));
        }
      }
    }
  }
}

}  // namespace
}  // namespace vtqr::test
