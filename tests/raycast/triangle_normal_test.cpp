// Triangle normals against a long-double cross product of another pair of edges, degenerate
// triangles with their exact results, and the one-thread bits on any thread count. The
// argument checks run with the per-ray kernels' table.
#include <omp.h>

#include <cmath>
#include <random>
#include <vector>

#include "test_util.h"

namespace vtqr::test {
namespace {

// Corners packed three by three; index entries four per triangle, the fourth a number that
// would crash if read.
struct Triangles {
  std::vector<float> vert;
  std::vector<int32_t> index;
  int count() const { return static_cast<int>(index.size() / 4); }
  void Add(const float (&v)[3][3]) {
    const auto first = static_cast<int32_t>(vert.size() / 3);
    for (const auto& corner : v) vert.insert(vert.end(), corner, corner + 3);
    index.insert(index.end(), {first, first + 1, first + 2, INT32_MIN});
  }
  // The normals of the first `n`, checking that nothing lands past the last one.
  std::vector<float> Normals(CodePath path, int n) const {
    std::vector<float> out(3 * size_t(n) + 4, Sentinel());
    EXPECT_EQ(vtqStsOk,
              kDispatchTable.TriangleNormal_32f[path](vert.data(), index.data(), out.data(), n));
    for (size_t g = out.size() - 4; g < out.size(); ++g) EXPECT_EQ(kSentinelBits, Bits(out[g]));
    out.resize(out.size() - 4);
    return out;
  }
};

// (V1 - V0) x (V2 - V0) in long double, another pair of edges than the library's; its length.
long double ExactNormal(const float* v, long double n[3]) {
  const auto e = [v](int k, int c) { return static_cast<long double>(v[3 * k + c]) - v[c]; };
  for (int c = 0, a = 1, b = 2; c < 3; ++c, a = (c + 1) % 3, b = (c + 2) % 3) {
    n[c] = e(1, a) * e(2, b) - e(1, b) * e(2, a);
  }
  return std::hypot(n[0], n[1], n[2]);
}

// Random triangles at log-uniform positions and sizes (1e-3 to 1e3), none thinner than an
// angle of about 0.02 degrees, so that double precision leaves the normal well below a float
// rounding step, and none small enough to count as degenerate.
Triangles RandomTriangles(int count, uint32_t seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> unit(-1.0f, 1.0f), exponent(-3.0f, 3.0f);
  Triangles t;
  while (t.count() < count) {
    const float scale = std::pow(10.0f, exponent(rng)), size = std::pow(10.0f, exponent(rng));
    float v[3][3];
    for (int k = 0; k < 3; ++k) {
      for (int c = 0; c < 3; ++c) v[k][c] = (k ? v[0][c] : 0.0f) + unit(rng) * (k ? size : scale);
    }
    long double n[3];
    const long double length = ExactNormal(v[0], n);
    if (length > 1e-3L * size * size && length > 1e-6L) t.Add(v);
  }
  return t;
}

class TriangleNormal : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(TriangleNormal);

// Random triangles within half a float step (plus the double computation's own error) of the
// exact normal; degenerate ones exact. Legs of 2^-13 put s exactly at the double epsilon (kept),
// a leg one float shorter below it (zero). Any thread count, any triangle count (odd ones leave
// a triangle without a partner in some thread's share), and a call from inside a parallel
// region give the one-thread bits.
TEST_P(TriangleNormal, AgainstLongDoubleOnAnyThreadCount) {
  const float a = 0x1p-13f, shorter = std::nextafter(a, 0.0f), nan = FromBits(0xFFC00000u);
  const struct {
    const char* what;
    float v[3][3];
    float expected[3];  // NaN: some component must be NaN
  } rows[] = {
      {"collinear", {{0, 0, 0}, {1, 1, 1}, {2, 2, 2}}, {0, 0, 0}},
      {"at the epsilon", {{a, 0, 0}, {0, a, 0}, {0, 0, 0}}, {0, 0, 1}},
      {"below the epsilon", {{a, 0, 0}, {0, shorter, 0}, {0, 0, 0}}, {0, 0, 0}},
      {"clockwise", {{0, 1, 0}, {1, 0, 0}, {0, 0, 0}}, {0, 0, -1}},
      {"huge", {{3e38f, 0, 0}, {0, 3e38f, 0}, {0, 0, 0}}, {0, 0, 1}},
      {"NaN corner", {{0, 0, 0}, {0, nan, 0}, {1, 0, 0}}, {nan}},
  };
  Triangles t = RandomTriangles(2001, 3);
  const int random = t.count();
  for (const auto& row : rows) t.Add(row.v);
  std::vector<float> one, nested[2];
  {
    ThreadCount threads(1);
    one = t.Normals(path(), t.count());
  }
  for (int k = 0; k < t.count(); ++k) {
    long double n[3];
    const long double length = ExactNormal(t.vert.data() + 9 * k, n);
    const float* got = one.data() + 3 * k;
    for (int c = 0; c < 3 && k < random; ++c) {
      const long double step = std::nextafter(std::fabs(got[c]), INFINITY) - std::fabs(got[c]);
      EXPECT_LE(std::fabs(got[c] - n[c] / length), 0.5L * step + 1e-12L) << k << "," << c;
    }
    if (k < random) continue;
    const auto& row = rows[k - random];
    if (std::isnan(row.expected[0])) {
      EXPECT_TRUE(std::isnan(got[0]) || std::isnan(got[1]) || std::isnan(got[2])) << row.what;
    } else {
      EXPECT_TRUE(SameBits(row.expected, got, 3)) << row.what;
    }
  }
  for (int count : {1, 3, 5, t.count()}) {
    for (int threads : {2, 3}) {
      ThreadCount scope(threads);
      EXPECT_TRUE(SameBits(one.data(), t.Normals(path(), count).data(), 3 * size_t(count)));
    }
  }
  ThreadCount scope(2);
#pragma omp parallel num_threads(2)
  nested[omp_get_thread_num()] = t.Normals(path(), t.count());
  for (const auto& n : nested) EXPECT_TRUE(n.empty() || SameBits(one.data(), n.data(), one.size()));
}

}  // namespace
}  // namespace vtqr::test
