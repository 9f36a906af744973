// Every shading kernel gives the same bits whichever way its arrays are laid out and whichever
// code path runs it: packets of four (aligned, unaligned, after peeling to a boundary) against
// the one-ray loop, and n8 against u8.
#include <algorithm>

#include "raycast/shade_cases.h"

namespace vtqr::test {
namespace {

class ShadeKernels : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(ShadeKernels);

void CopyRays(Rays& from, Rays& to, int len) {
  for (size_t j = 0; j < from.planes.size(); ++j) {
    std::copy_n(from[static_cast<int>(j)], len, to[static_cast<int>(j)]);
  }
  std::copy_n(from.mask, len, to.mask);
}

// Lengths and layouts of one call. Each kernel is run on every common layout at every length,
// and once more per array with that array alone a float off: a fast path that forgets to test
// one array's alignment then loads or stores it as aligned, and faults.
std::vector<std::pair<int, Layout>> Calls(int planeCount) {
  std::vector<std::pair<int, Layout>> calls;
  const Layout common[] = {
      Layout::All(0), Layout::All(1), Layout::All(2), Layout::All(3), {{1, 2, 3, 0}, 0}};
  for (int len : {1, 3, 4, 5, 7, 8, 13, 64}) {
    for (const Layout& layout : common) calls.push_back({len, layout});
  }
  for (int off = 0; off <= planeCount; ++off) calls.push_back({8, Layout::OneOff(planeCount, off)});
  return calls;
}

TEST_P(ShadeKernels, PacketsMatchSingleRays) {
  uint32_t seed = 1;
  for (const ShadeCase& c : ShadeCases()) {
    for (const auto& [len, layout] : Calls(c.planeCount)) {
      ++seed;
      SCOPED_TRACE(::testing::Message() << c.name << " len " << len << " seed " << seed);
      Rays input(c.planeCount, len, layout);
      FillRays(input, len, seed);

      // Expected: u8 run on one ray at a time, which takes the one-ray loop.
      Rays single(c.planeCount, len, layout);
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

      Rays bulk(c.planeCount, len, layout);
      CopyRays(input, bulk, len);
      EXPECT_EQ(expectedStatus, c.run(path(), bulk, 0, len, -1));
      // The guard elements past the end take part: nothing may land there.
      for (int j = 0; j < c.planeCount; ++j) {
        EXPECT_TRUE(SameBits(single[j], bulk[j], len + kGuard)) << "plane " << j;
      }
      EXPECT_TRUE(std::equal(single.mask, single.mask + len + kGuard, bulk.mask));
    }
  }
}

}  // namespace
}  // namespace vtqr::test
