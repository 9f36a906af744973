// Eye rays: block placement in 32-bit integers, the one-pixel and row-base forms bit for bit,
// partial blocks, alignment, the null check; both code paths. Each expected direction is
// formed here from the documented formula, and also compared in double precision with the
// exact pixel position, so that a formula that matches itself but places pixels wrongly fails.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "test_util.h"
#include "vtqr.h"

namespace vtqr::test {
namespace {

const float kOrg[3] = {-0.71f, 0.43f, -1.0f};
const float kDW[3] = {0.0013f, -0.0002f, 0.0007f};
const float kDH[3] = {0.0001f, -0.0011f, 0.0003f};

struct EyeCase {
  const char* name;
  int wB, hB;
  VtqSize cBlock, blockSize;
  size_t offset;  // misalignment of the planes, in floats
};

// The block's first pixel: products in 32-bit integers (wrapping), then float.
float Start(int index, int extent) {
  return static_cast<float>(
      static_cast<int32_t>(static_cast<uint32_t>(index) * static_cast<uint32_t>(extent)));
}

class CastEye : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(CastEye);

TEST_P(CastEye, MatchesTheDocumentedForms) {
  const EyeCase cases[] = {
      {"first block, row base", 0, 0, {16, 16}, {16, 8}, 0},
      {"inner block, row base", 3, 2, {16, 8}, {16, 8}, 0},
      {"row base on unaligned planes", 3, 2, {16, 8}, {16, 8}, 1},
      {"width 7: one pixel at a time", 5, 1, {7, 3}, {7, 3}, 0},
      {"width 6 on unaligned planes", 1, 4, {6, 6}, {6, 5}, 3},
      {"partial last block: placed by cBlock", 4, 3, {32, 32}, {12, 5}, 0},
      {"single pixel", 2, 9, {1, 1}, {1, 1}, 0},
      {"placement wraps in 32 bits", 70000, -3, {70000, 3}, {8, 2}, 0},
  };
  for (const EyeCase& c : cases) {
    const size_t count = static_cast<size_t>(c.blockSize.width) * c.blockSize.height;
    {
      const CodePath path = PerPath::path();
      SCOPED_TRACE(c.name);
      std::vector<AlignedFloats> planes;
      for (int p = 0; p < 3; ++p) {
        planes.emplace_back(count + 4, c.offset);
        std::fill(planes[p].begin(), planes[p].end(), Sentinel());
      }
      float* dst[3] = {planes[0].data(), planes[1].data(), planes[2].data()};
      ASSERT_EQ(vtqStsOk, kDispatchTable.CastEye_32f[path](kOrg, kDW, kDH, c.wB, c.hB, c.cBlock,
                                                           dst, c.blockSize));
      const float x0 = Start(c.wB, c.cBlock.width), y0 = Start(c.hB, c.cBlock.height);
      const bool rowBase = c.blockSize.width % 4 == 0;
      for (int comp = 0; comp < 3; ++comp) {
        float base = kDH[comp] * y0 + kOrg[comp] + kDW[comp] * x0;
        for (int j = 0; j < c.blockSize.height; ++j) {
          for (int i = 0; i < c.blockSize.width; ++i) {
            const float x = static_cast<float>(i) + x0, y = static_cast<float>(j) + y0;
            const float expected = rowBase ? kDW[comp] * static_cast<float>(i) + base
                                           : kDH[comp] * y + kOrg[comp] + kDW[comp] * x;
            const float got = dst[comp][j * c.blockSize.width + i];
            ASSERT_EQ(Bits(expected), Bits(got)) << "pixel " << i << ", " << j << " c " << comp;
            const double exact = double(kOrg[comp]) + double(kDW[comp]) * (double(x0) + i) +
                                 double(kDH[comp]) * (double(y0) + j);
            ASSERT_NEAR(exact, got, 1e-6 * (1 + std::fabs(double(x0)) + std::fabs(double(y0))));
          }
          base = base + kDH[comp];
        }
        if (c.wB == 0 && c.hB == 0) {
          EXPECT_EQ(Bits(kOrg[comp]), Bits(dst[comp][0]));
        }
        for (size_t k = count; k < count + 4; ++k) EXPECT_EQ(kSentinelBits, Bits(dst[comp][k]));
      }
    }
  }
}

TEST_P(CastEye, NullAndEmpty) {
  AlignedFloats x(8), y(8), z(8);
  for (AlignedFloats* p : {&x, &y, &z}) std::fill(p->begin(), p->end(), Sentinel());
  float* dst[3] = {x.data(), y.data(), z.data()};
  struct Case {
    float* const* dst;
    VtqSize size;
    VtqStatus expected;
  } cases[] = {{nullptr, {4, 2}, vtqStsErrNullPtr},
               {dst, {0, 2}, vtqStsOk},
               {dst, {4, 0}, vtqStsOk},
               {dst, {-4, 2}, vtqStsOk},
               {dst, {4, -1}, vtqStsOk}};
  for (const Case& c : cases) {
    {
      const CodePath path = PerPath::path();
      // The vectors are not tested: a null one goes unread when there is nothing to write.
      EXPECT_EQ(c.expected, kDispatchTable.CastEye_32f[path](nullptr, nullptr, nullptr, 0, 0,
                                                             {4, 2}, c.dst, c.size));
      for (AlignedFloats* p : {&x, &y, &z}) {
        for (float v : *p) EXPECT_EQ(kSentinelBits, Bits(v));
      }
    }
  }
}

}  // namespace
}  // namespace vtqr::test
