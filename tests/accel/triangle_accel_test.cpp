// Triangle acceleration records and the scene bound box, against references computed here in
// long double by a different route (first index of the largest |N|, plain division).
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

using Vec = std::array<float, 3>;

struct Record {
  uint32_t axes;
  float c[9];  // nu, pk, nv, pu, pv, e2u, e2v, e1u, e1v
};
static_assert(sizeof(Record) == sizeof(VtqrTriangleAccel));

// Record of the triangle (A, B, P) = index entries (0, 1, 2), computed in long double.
Record Reference(const Vec& a, const Vec& b, const Vec& p) {
  long double e1[3], e2[3];
  for (int j = 0; j < 3; ++j) {
    e1[j] = static_cast<long double>(a[j]) - p[j];
    e2[j] = static_cast<long double>(b[j]) - p[j];
  }
  long double n[3] = {e1[1] * e2[2] - e1[2] * e2[1], e1[2] * e2[0] - e1[0] * e2[2],
                      e1[0] * e2[1] - e1[1] * e2[0]};
  int k = 0;
  for (int j = 1; j < 3; ++j) {
    if (std::fabs(n[j]) > std::fabs(n[k])) k = j;  // first index of the largest wins ties
  }
  Record r{};
  if (n[k] == 0) return r;
  int u = k == 0 ? 1 : 0;
  int v = k == 2 ? 1 : 2;
  long double s = k == 1 ? -1.0L : 1.0L;
  r.axes = static_cast<uint32_t>((k << 4) | (u << 2) | v);
  const long double eps = 0x1p-52L;
  bool perpendicular = std::fabs(n[u]) < eps && std::fabs(n[v]) < eps;
  if (perpendicular) r.axes |= 0x80000000u;
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

Record Build(CodePath path, const Vec& a, const Vec& b, const Vec& p) {
  const float vert[9] = {p[0], p[1], p[2], a[0], a[1], a[2], b[0], b[1], b[2]};
  const int32_t index[4] = {1, 2, 0, 0};  // A, B, then the base point P
  Record r;
  std::memset(&r, 0xA5, sizeof(r));
  EXPECT_EQ(kDispatchTable.TriangleAccelInit[path](reinterpret_cast<VtqrTriangleAccel*>(&r), vert,
                                                   index, 1),
            vtqStsOk);
  return r;
}

TEST(TriangleAccel, SizeQuery) {
  for (CodePath path : kBothPaths) {
    int32_t size = 0;
    EXPECT_EQ(kDispatchTable.TriangleAccelGetSize[path](&size), vtqStsOk);
    EXPECT_EQ(size, 40);
    EXPECT_EQ(kDispatchTable.TriangleAccelGetSize[path](nullptr), vtqStsErrNullPtr);
  }
}

// Hand-made triangles on dyadic coordinates: every quantity is exact, so records compare
// bit for bit; the axes word is spelled out as well.
TEST(TriangleAccel, HandMadeTrianglesMatchReference) {
  struct Case {
    const char* name;
    Vec a, b, p;
    uint32_t axes;  // expected word 0
  };
  const uint32_t kPerp = 0x80000000u;
  const Case cases[] = {
      // Normal mostly along one axis, both windings (swap A and B).
      {"x dominant", {1, 2, 0.5f}, {1.5f, 0, 2}, {0.25f, 0, 0}, 0},
      {"x dominant, reversed", {1.5f, 0, 2}, {1, 2, 0.5f}, {0.25f, 0, 0}, 0},
      {"y dominant", {0, 1, 2}, {2, 0.5f, 0.5f}, {0, 0, 0}, 0},
      {"y dominant, reversed", {2, 0.5f, 0.5f}, {0, 1, 2}, {0, 0, 0}, 0},
      {"z dominant", {2, 0, 1}, {0, 2, 0.75f}, {0, 0, 0.5f}, 0},
      {"z dominant, reversed", {0, 2, 0.75f}, {2, 0, 1}, {0, 0, 0.5f}, 0},
      // In axis planes: the minor components vanish and bit 31 is set.
      {"perpendicular to x", {3, 1, 0}, {3, 0, 1}, {3, 0, 0}, kPerp | (0 << 4) | (1 << 2) | 2},
      {"perpendicular to y", {1, -2, 0}, {0, -2, 1}, {0, -2, 0}, kPerp | (1 << 4) | (0 << 2) | 2},
      {"perpendicular to z", {0, 1, 4}, {1, 0, 4}, {0, 0, 4}, kPerp | (2 << 4) | (0 << 2) | 1},
      // Ties of |N| components: x before y before z.
      {"|Nx| = |Ny| > |Nz|", {0, 0, 1}, {1, -1, 0}, {0, 0, 0}, 0},
      {"|Nx| = |Nz| > |Ny|", {0, 1, 0}, {1, 0, 1}, {0, 0, 0}, 0},
      {"|Ny| = |Nz| > |Nx|", {1, 0, 0}, {0, 1, 1}, {0, 0, 0}, 0},
      {"all equal", {1, 0, 0}, {0, 1, 0}, {0, 0, 1}, 0},
      // The negligibility threshold is strict and applies to both minor components.
      {"minor component 2^-53",
       {0, 1, 0},
       {0x1p-53f, 0, 1},
       {0, 0, 0},
       kPerp | (0 << 4) | (1 << 2) | 2},
      {"minor component 2^-52", {0, 1, 0}, {0x1p-52f, 0, 1}, {0, 0, 0}, 0},
      {"other minor component 2^-53",
       {0x1p-53f, 1, 0},
       {0, 0, 1},
       {0, 0, 0},
       kPerp | (0 << 4) | (1 << 2) | 2},
      {"other minor component 2^-52", {0x1p-52f, 1, 0}, {0, 0, 1}, {0, 0, 0}, 0},
      // Zero area: all 40 bytes zero.
      {"collinear", {1, 1, 1}, {2, 2, 2}, {0, 0, 0}, 0},
      {"repeated vertex", {1, 2, 3}, {1, 2, 3}, {4, 5, 6}, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Record expected = Reference(c.a, c.b, c.p);
    if (c.axes != 0) {
      EXPECT_EQ(expected.axes, c.axes) << std::hex;  // the reference itself
    }
    for (CodePath path : kBothPaths) {
      Record actual = Build(path, c.a, c.b, c.p);
      EXPECT_EQ(actual.axes, expected.axes) << std::hex << PathName(path);
      EXPECT_TRUE(SameBits(expected.c, actual.c, 9)) << PathName(path);
    }
  }
  // Spot-check the tie winners directly: the dominant axis sits in bits 4-5.
  EXPECT_EQ((Reference({0, 0, 1}, {1, -1, 0}, {0, 0, 0}).axes >> 4) & 3, 0u);
  EXPECT_EQ((Reference({1, 0, 0}, {0, 1, 1}, {0, 0, 0}).axes >> 4) & 3, 1u);
}

// Random triangles over many magnitudes: within one float step of the long-double reference
// (the library rounds in double first), identical axes words.
TEST(TriangleAccel, RandomTrianglesWithinOneUlp) {
  std::mt19937 rng(12345);
  std::uniform_real_distribution<float> unit(-1, 1), exponent(-20, 20);
  const int kCount = 2000;
  std::vector<float> vert;
  std::vector<int32_t> index;
  for (int t = 0; t < kCount; ++t) {
    float scale = std::exp2(std::floor(exponent(rng)));
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 3; ++j)
        vert.push_back(scale * unit(rng) + (j == 0 ? 4 * scale * t / kCount : 0));
    }
    index.insert(index.end(), {3 * t, 3 * t + 1, 3 * t + 2, 0});
  }
  for (CodePath path : kBothPaths) {
    std::vector<Record> records(kCount);
    ASSERT_EQ(
        kDispatchTable.TriangleAccelInit[path](reinterpret_cast<VtqrTriangleAccel*>(records.data()),
                                               vert.data(), index.data(), kCount),
        vtqStsOk);
    for (int t = 0; t < kCount; ++t) {
      auto vertex = [&](int i) {
        return Vec{vert[9 * t + 3 * i], vert[9 * t + 3 * i + 1], vert[9 * t + 3 * i + 2]};
      };
      Record expected = Reference(vertex(0), vertex(1), vertex(2));
      ASSERT_EQ(records[t].axes, expected.axes) << "triangle " << t;
      for (int i = 0; i < 9; ++i) {
        float e = expected.c[i], a = records[t].c[i];
        ASSERT_LE(std::fabs(a - e), std::fabs(std::nextafter(e, INFINITY) - e))
            << "triangle " << t << " coefficient " << i;
      }
    }
  }
}

TEST(TriangleAccel, CountBelowOneWritesNothing) {
  const float vert[9] = {0, 0, 0, 1, 0, 0, 0, 1, 0};
  const int32_t index[4] = {0, 1, 2, 0};
  for (int count : {0, -1}) {
    Record r;
    std::memset(&r, 0xA5, sizeof(r));
    EXPECT_EQ(kDispatchTable.TriangleAccelInit[kPathU8](reinterpret_cast<VtqrTriangleAccel*>(&r),
                                                        vert, index, count),
              vtqStsOk);
    EXPECT_EQ(r.axes, 0xA5A5A5A5u);
  }
}

// Bound box ---------------------------------------------------------------------------------

// Each step rounded to float, computed in long double: min/max by sorting, then the margin.
std::array<float, 6> ReferenceBox(const std::vector<float>& vert) {
  std::array<float, 6> box;
  float largest = FLT_MIN;
  float lo[3], hi[3];
  for (int j = 0; j < 3; ++j) {
    std::vector<float> column;
    for (size_t i = j; i < vert.size(); i += 3) column.push_back(vert[i]);
    std::sort(column.begin(), column.end());
    lo[j] = column.empty() ? FLT_MAX : column.front();
    hi[j] = column.empty() ? -FLT_MAX : column.back();
    largest = std::max({largest, std::fabs(lo[j]), std::fabs(hi[j])});
  }
  float margin = static_cast<float>(static_cast<long double>(1e-4f) * largest);
  for (int j = 0; j < 3; ++j) {
    box[j] = static_cast<float>(static_cast<long double>(lo[j]) - margin);
    box[j + 3] = static_cast<float>(static_cast<long double>(hi[j]) + margin);
  }
  return box;
}

TEST(BoundBox, MatchesReferenceForEveryTailLength) {
  EXPECT_EQ(Bits(1e-4f), 0x38D1B717u);
  std::mt19937 rng(99);
  std::uniform_real_distribution<float> unit(-10, 10);
  for (int count = 1; count <= 25; ++count) {
    // The extremes sit in the last vertex, so a loop that drops its tail is caught.
    for (bool extremeLast : {false, true}) {
      std::vector<float> vert(3 * static_cast<size_t>(count));
      for (float& x : vert) x = unit(rng);
      if (extremeLast) {
        vert[3 * (count - 1)] = -1000;
        vert[3 * (count - 1) + 2] = 500;
      }
      std::array<float, 6> expected = ReferenceBox(vert);
      for (CodePath path : kBothPaths) {
        std::array<float, 6> box;
        ASSERT_EQ(kDispatchTable.SetBoundBox_32f[path](vert.data(), count, box.data()), vtqStsOk);
        EXPECT_TRUE(SameBits(expected.data(), box.data(), 6))
            << count << " vertices, " << PathName(path);
      }
    }
  }
}

TEST(BoundBox, SpecialInputs) {
  const float kMargin = static_cast<float>(static_cast<long double>(1e-4f) * FLT_MAX);
  struct Case {
    const char* name;
    std::vector<float> vert;
    int count;
    std::array<float, 6> expected;
  };
  const float tiny = static_cast<float>(static_cast<long double>(1e-4f) * FLT_MIN);  // subnormal
  const Case cases[] = {
      {"no vertices",
       {},
       0,
       {FLT_MAX - kMargin, FLT_MAX - kMargin, FLT_MAX - kMargin, -FLT_MAX + kMargin,
        -FLT_MAX + kMargin, -FLT_MAX + kMargin}},
      {"negative count",
       {1, 2, 3},
       -5,
       {FLT_MAX - kMargin, FLT_MAX - kMargin, FLT_MAX - kMargin, -FLT_MAX + kMargin,
        -FLT_MAX + kMargin, -FLT_MAX + kMargin}},
      {"origin only: margin of the smallest normal",
       {0, 0, 0},
       1,
       {-tiny, -tiny, -tiny, tiny, tiny, tiny}},
      {"largest magnitude on the min side",
       {-200, 1, 1, 2, 3, 4},
       2,
       {-200.02f, 1 - 0.02f, 1 - 0.02f, 2 + 0.02f, 3 + 0.02f, 4 + 0.02f}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<float> vert = c.vert;
    vert.resize(std::max<size_t>(vert.size(), 3));
    std::array<float, 6> box;
    ASSERT_EQ(kDispatchTable.SetBoundBox_32f[kPathU8](vert.data(), c.count, box.data()), vtqStsOk);
    if (c.count > 0) {
      EXPECT_TRUE(SameBits(ReferenceBox(c.vert).data(), box.data(), 6));
      for (int j = 0; j < 6; ++j)
        EXPECT_NEAR(box[j], c.expected[j], 1e-5f * std::fabs(c.expected[j]) + 1e-45f);
    } else {
      EXPECT_TRUE(SameBits(c.expected.data(), box.data(), 6));
    }
  }
  // Null vertices: -8 and the box untouched.
  float box[6];
  std::fill(box, box + 6, Sentinel());
  EXPECT_EQ(kDispatchTable.SetBoundBox_32f[kPathU8](nullptr, 3, box), vtqStsErrNullPtr);
  for (float x : box) EXPECT_EQ(Bits(x), kSentinelBits);
}

}  // namespace
}  // namespace vtqr::test
