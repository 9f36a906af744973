// Eye rays: block placement in 32-bit integers, the one-pixel and row-base forms bit for bit,
// partial blocks, alignment, the null check and empty blocks; both code paths.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "test_util.h"
#include "vtqr.h"

namespace vtqr::test {
namespace {

const float kOrg[3] = {-0.71f, 0.43f, -1.0f};
const float kDW[3] = {0.0013f, -0.0002f, 0.0007f};
const float kDH[3] = {0.0001f, -0.0011f, 0.0003f};

class CastEye : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(CastEye);

TEST_P(CastEye, MatchesTheDocumentedForms) {
  const struct {
    const char* name;
    int wB, hB;
    VtqSize cBlock, blockSize;
    size_t offset;  // misalignment of the planes, in floats
    bool nullDst = false;
  } cases[] = {
      {"first block, row base", 0, 0, {16, 16}, {16, 8}, 0},
      {"row base on unaligned planes", 3, 2, {16, 8}, {16, 8}, 1},
      {"width 7: one pixel at a time", 5, 1, {7, 3}, {7, 3}, 0},
      {"width 6 on unaligned planes", 1, 4, {6, 6}, {6, 5}, 3},
      {"partial last block: placed by cBlock", 4, 3, {32, 32}, {12, 5}, 0},
      {"placement wraps in 32 bits", 70000, -3, {70000, 3}, {8, 2}, 0},
      {"null dst, checked before the size", 0, 0, {4, 2}, {0, 2}, 0, true},
      {"height negative", 0, 0, {4, 2}, {4, -1}, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const int width = std::max(0, c.blockSize.width), height = std::max(0, c.blockSize.height);
    const size_t count = size_t(width) * size_t(height);
    std::vector<AlignedFloats> planes;
    for (int p = 0; p < 3; ++p) {
      planes.emplace_back(count + 4, c.offset);
      std::fill(planes[p].begin(), planes[p].end(), Sentinel());
    }
    float* dst[3] = {planes[0].data(), planes[1].data(), planes[2].data()};
    // The vectors are not tested: with nothing to write, null ones go unread.
    const bool nothing = c.nullDst || count == 0;
    ASSERT_EQ(c.nullDst ? vtqStsErrNullPtr : vtqStsOk,
              kDispatchTable.CastEye_32f[path()](nothing ? nullptr : kOrg, nothing ? nullptr : kDW,
                                                 nothing ? nullptr : kDH, c.wB, c.hB, c.cBlock,
                                                 c.nullDst ? nullptr : dst, c.blockSize));
    const auto start = [](int index, int extent) {  // 32-bit integer product, then float
      return float(int32_t(uint32_t(index) * uint32_t(extent)));
    };
    const float x0 = start(c.wB, c.cBlock.width), y0 = start(c.hB, c.cBlock.height);
    for (int comp = 0; comp < 3; ++comp) {
      float base = kDH[comp] * y0 + kOrg[comp] + kDW[comp] * x0;
      for (int j = 0; j < (c.nullDst ? 0 : height); ++j) {
        for (int i = 0; i < width; ++i) {
          const float x = static_cast<float>(i) + x0, y = static_cast<float>(j) + y0;
          const float expected = width % 4 == 0 ? kDW[comp] * static_cast<float>(i) + base
                                                : kDH[comp] * y + kOrg[comp] + kDW[comp] * x;
          const float got = dst[comp][j * width + i];
          ASSERT_EQ(Bits(expected), Bits(got)) << "pixel " << i << ", " << j << " c " << comp;
        }
        base = base + kDH[comp];
      }
      for (size_t k = c.nullDst ? 0 : count; k < count + 4; ++k) {
        EXPECT_EQ(kSentinelBits, Bits(dst[comp][k]));
      }
    }
  }
}

}  // namespace
}  // namespace vtqr::test
