// Triangle acceleration records and the scene bound box, against references computed here in
// long double by a different route (first index of the largest |N|, plain division, sorting).
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "test_util.h"
#include "vtqr.h"

namespace vtqr::test {
namespace {

struct Record {
  uint32_t axes;
  float c[9];  // nu, pk, nv, pu, pv, e2u, e2v, e1u, e1v
};
static_assert(sizeof(Record) == sizeof(VtqrTriangleAccel));

// Record of the triangle (A, B, P) = index entries (0, 1, 2), from its nine coordinates.
Record Reference(const float* t) {
  const float *a = t, *b = t + 3, *p = t + 6;
  long double e1[3], e2[3];
  for (int j = 0; j < 3; ++j) e1[j] = (long double)a[j] - p[j], e2[j] = (long double)b[j] - p[j];
  const long double n[3] = {e1[1] * e2[2] - e1[2] * e2[1], e1[2] * e2[0] - e1[0] * e2[2],
                            e1[0] * e2[1] - e1[1] * e2[0]};
  int k = 0;
  for (int j = 1; j < 3; ++j) k = std::fabs(n[j]) > std::fabs(n[k]) ? j : k;
  Record r{};
  if (n[k] == 0) return r;
  const int u = k == 0 ? 1 : 0, v = k == 2 ? 1 : 2;
  const long double s = k == 1 ? -1.0L : 1.0L;
  const bool perpendicular = std::fabs(n[u]) < 0x1p-52L && std::fabs(n[v]) < 0x1p-52L;
  r.axes = static_cast<uint32_t>((k << 4) | (u << 2) | v) | (perpendicular ? 0x80000000u : 0);
  const long double values[9] = {perpendicular ? 0 : n[u] / n[k],
                                 p[k],
                                 perpendicular ? 0 : n[v] / n[k],
                                 p[u],
                                 p[v],
                                 s * e2[u] / n[k],
                                 s * e2[v] / n[k],
                                 s * e1[u] / n[k],
                                 s * e1[v] / n[k]};
  for (int i = 0; i < 9; ++i) r.c[i] = static_cast<float>(values[i]);
  return r;
}

// Records of the triangles whose vertices are stored A, B, P; the index names them so that P
// is the base point. The rows are shared by both code paths, so u8's column stands for both.
std::vector<Record> Build(const std::vector<float>& vert, int count) {
  std::vector<int32_t> index;
  for (int t = 0; t < std::max(count, 1); ++t)
    index.insert(index.end(), {3 * t, 3 * t + 1, 3 * t + 2, 0});
  std::vector<Record> records(std::max(count, 1));
  std::memset(records.data(), 0xA5, sizeof(Record) * records.size());
  EXPECT_EQ(
      kDispatchTable.TriangleAccelInit[kPathU8](
          reinterpret_cast<VtqrTriangleAccel*>(records.data()), vert.data(), index.data(), count),
      vtqStsOk);
  return records;
}

// Hand-made triangles (A, B, P) on dyadic coordinates: every quantity is exact, so records
// compare bit for bit. The axes word is spelled out too, which checks the reference itself.
// A count below 1 writes nothing.
TEST(TriangleAccel, HandMadeTrianglesMatchReference) {
  int32_t size = 0;
  EXPECT_EQ(kDispatchTable.TriangleAccelGetSize[kPathU8](&size), vtqStsOk);
  EXPECT_EQ(size, 40);
  EXPECT_EQ(kDispatchTable.TriangleAccelGetSize[kPathU8](nullptr), vtqStsErrNullPtr);
  for (int count : {0, -1})
    EXPECT_EQ(Build({0, 0, 0, 1, 0, 0, 0, 1, 0}, count)[0].axes, 0xA5A5A5A5u);
  const uint32_t kX = 0x06, kY = 0x12, kZ = 0x21, kPerp = 0x80000000u;  // k << 4 | u << 2 | v
  const struct {
    const char* name;
    std::vector<float> abp;
    uint32_t axes;
  } cases[] = {
      {"x dominant", {1, 2, 0.5f, 1.5f, 0, 2, 0.25f, 0, 0}, kX},
      {"y dominant", {0, 1, 2, 2, 0.5f, 0.5f, 0, 0, 0}, kY},
      {"y dominant, reversed", {2, 0.5f, 0.5f, 0, 1, 2, 0, 0, 0}, kY},
      {"z dominant", {2, 0, 1, 0, 2, 0.75f, 0, 0, 0.5f}, kZ},
      {"perpendicular to x", {3, 1, 0, 3, 0, 1, 3, 0, 0}, kPerp | kX},
      {"perpendicular to y", {1, -2, 0, 0, -2, 1, 0, -2, 0}, kPerp | kY},
      {"perpendicular to z", {0, 1, 4, 1, 0, 4, 0, 0, 4}, kPerp | kZ},
      // Ties of |N| components: x before y before z.
      {"|Nx| = |Ny| > |Nz|", {0, 0, 1, 1, -1, 0, 0, 0, 0}, kX},
      {"|Nx| = |Nz| > |Ny|", {0, 1, 0, 1, 0, 1, 0, 0, 0}, kX},
      {"|Ny| = |Nz| > |Nx|", {1, 0, 0, 0, 1, 1, 0, 0, 0}, kY},
      // The negligibility threshold is strict and must hold for both minor components.
      {"minor component 2^-53", {0, 1, 0, 0x1p-53f, 0, 1, 0, 0, 0}, kPerp | kX},
      {"minor component 2^-52", {0, 1, 0, 0x1p-52f, 0, 1, 0, 0, 0}, kX},
      {"other minor component 2^-52", {0x1p-52f, 1, 0, 0, 0, 1, 0, 0, 0}, kX},
      {"collinear: all zero", {1, 1, 1, 2, 2, 2, 0, 0, 0}, 0},
  };
  for (const auto& c : cases) {
    const Record expected = Reference(c.abp.data()), actual = Build(c.abp, 1)[0];
    EXPECT_EQ(expected.axes, c.axes) << c.name;
    EXPECT_EQ(actual.axes, expected.axes) << c.name;
    EXPECT_TRUE(SameBits(expected.c, actual.c, 9)) << c.name;
  }
}

// Random triangles over many magnitudes: identical axes words, coefficients within one float step
// of the long-double reference (the library rounds in double first).
TEST(TriangleAccel, RandomTrianglesWithinOneStep) {
  std::mt19937 rng(12345);
  std::uniform_real_distribution<float> unit(-1, 1), exponent(-20, 20);
  const int kCount = 500;
  std::vector<float> vert;
  for (int t = 0; t < kCount; ++t) {
    const float scale = std::exp2(std::floor(exponent(rng)));
    for (int i = 0; i < 9; ++i)
      vert.push_back(scale * unit(rng) + (i % 3 == 0 ? 4 * scale * t / kCount : 0));
  }
  const std::vector<Record> records = Build(vert, kCount);
  for (int t = 0; t < kCount; ++t) {
    const Record expected = Reference(&vert[9 * t]);
    ASSERT_EQ(records[t].axes, expected.axes) << "triangle " << t;
    for (int i = 0; i < 9; ++i) {
      const float e = expected.c[i];
      ASSERT_LE(std::fabs(records[t].c[i] - e), std::fabs(std::nextafter(e, INFINITY) - e))
          << "triangle " << t << " coefficient " << i;
    }
  }
}

// Each step rounded to float as the library does, but found by sorting each column (NaNs left
// out), with the margin product in long double. No vertices: the inverted box.
std::array<float, 6> ReferenceBox(const std::vector<float>& vert, int count) {
  float lo[3], hi[3], largest = FLT_MIN;
  for (int j = 0; j < 3; ++j) {
    std::vector<float> column;
    for (int i = 0; i < count; ++i) {
      if (!std::isnan(vert[3 * i + j])) column.push_back(vert[3 * i + j]);
    }
    std::sort(column.begin(), column.end());
    lo[j] = column.empty() ? FLT_MAX : column.front();
    hi[j] = column.empty() ? -FLT_MAX : column.back();
    largest = std::max({largest, std::fabs(lo[j]), std::fabs(hi[j])});
  }
  const float margin = static_cast<float>(static_cast<long double>(1e-4f) * largest);
  return {lo[0] - margin, lo[1] - margin, lo[2] - margin,
          hi[0] + margin, hi[1] + margin, hi[2] + margin};
}

// Every length of the unrolled loop's tail, with the extremes in the last vertex, and with a NaN
// in the first and in the last vertex; the margin of the smallest normal float for a box of
// zeros; NaN-only input. Null vertices: -8 and the box untouched.
TEST(BoundBox, MatchesReference) {
  std::mt19937 rng(99);
  std::uniform_real_distribution<float> unit(-10, 10);
  for (int count = -5; count <= 17; ++count) {
    std::vector<float> vert(3 * std::max(count, 1));
    for (float& x : vert) x = unit(rng);
    vert[vert.size() - 3] = -1000;
    vert[vert.size() - 1] = 500;
    for (int variant = 0; variant < 4; ++variant) {
      if (variant == 1) vert[1] = vert[vert.size() - 2] = NAN;
      if (variant == 2) std::fill(vert.begin(), vert.end(), 0.0f);
      if (variant == 3) std::fill(vert.begin(), vert.end(), NAN);
      std::array<float, 6> box;
      ASSERT_EQ(kDispatchTable.SetBoundBox_32f[kPathU8](vert.data(), count, box.data()), vtqStsOk);
      const std::array<float, 6> expected = ReferenceBox(vert, std::max(count, 0));
      EXPECT_TRUE(SameBits(expected.data(), box.data(), 6)) << count << " vertices, " << variant;
    }
  }
  float box[6];
  std::fill(box, box + 6, Sentinel());
  EXPECT_EQ(kDispatchTable.SetBoundBox_32f[kPathU8](nullptr, 3, box), vtqStsErrNullPtr);
  for (float x : box) EXPECT_EQ(Bits(x), kSentinelBits);
}

}  // namespace
}  // namespace vtqr::test
