// Triangle normals: against a long-double cross product of another pair of edges, degenerate
// triangles with their exact results, and the one-thread bits on any thread count. The
// argument checks run with the per-ray kernels' table.
#include <omp.h>

#include <cmath>
#include <random>
#include <vector>

#include "test_util.h"
#include "vtqcore.h"

namespace vtqr::test {
namespace {

struct Triangles {
  std::vector<float> vert;
  std::vector<int32_t> index;  // four per triangle; the fourth would crash if read
  int count() const { return static_cast<int>(index.size() / 4); }
  void Add(const float (&v)[3][3]) {
    const int32_t first = static_cast<int32_t>(vert.size() / 3);
    for (const auto& corner : v) vert.insert(vert.end(), corner, corner + 3);
    index.insert(index.end(), {first, first + 1, first + 2, INT32_MIN});
  }
};

// The normals of `t`, checking that nothing lands past the last one.
std::vector<float> Normals(CodePath path, const Triangles& t) {
  std::vector<float> normals(3 * size_t(t.count()) + 4, Sentinel());
  EXPECT_EQ(vtqStsOk, kDispatchTable.TriangleNormal_32f[path](t.vert.data(), t.index.data(),
                                                              normals.data(), t.count()));
  for (size_t g = 3 * size_t(t.count()); g < normals.size(); ++g) {
    EXPECT_EQ(kSentinelBits, Bits(normals[g]));
  }
  normals.resize(3 * size_t(t.count()));
  return normals;
}

// (V1 - V0) x (V2 - V0) in long double, another pair of edges than the library's; its length.
long double ExactNormal(const float* v, long double n[3]) {
  long double e1[3], e2[3];
  for (int c = 0; c < 3; ++c) {
    e1[c] = static_cast<long double>(v[3 + c]) - v[c];
    e2[c] = static_cast<long double>(v[6 + c]) - v[c];
  }
  for (int c = 0, a = 1, b = 2; c < 3; ++c, a = (c + 1) % 3, b = (c + 2) % 3) {
    n[c] = e1[a] * e2[b] - e1[b] * e2[a];
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

// Within half a float step (plus the double computation's own error) of the exact normal; and
// bit for bit the documented double formula, whose edges run from V2.
TEST_P(TriangleNormal, MatchesLongDouble) {
  const Triangles t = RandomTriangles(2001, 3);
  const std::vector<float> normals = Normals(path(), t);
  for (int k = 0; k < t.count(); ++k) {
    const float* v = t.vert.data() + 9 * k;
    long double n[3];
    const long double length = ExactNormal(v, n);
    double e1[3], e2[3];
    for (int c = 0; c < 3; ++c) {
      e1[c] = double(v[c]) - v[6 + c], e2[c] = double(v[3 + c]) - v[6 + c];
    }
    const double m[3] = {e1[1] * e2[2] - e1[2] * e2[1], e1[2] * e2[0] - e2[2] * e1[0],
                         e2[1] * e1[0] - e1[1] * e2[0]};
    const double root = std::sqrt(m[0] * m[0] + m[1] * m[1] + m[2] * m[2]);
    for (int c = 0; c < 3; ++c) {
      const float got = normals[3 * size_t(k) + size_t(c)];
      const long double step = std::nextafter(std::fabs(got), INFINITY) - std::fabs(got);
      EXPECT_LE(std::fabs(got - n[c] / length), 0.5L * step + 1e-12L) << k << "," << c;
      EXPECT_EQ(Bits(static_cast<float>(m[c] / root)), Bits(got)) << k << "," << c;
    }
  }
}

// The right triangle with legs a and b has n = (0, 0, a b), so legs of 2^-13 put s exactly at
// the double epsilon (kept) and a leg one float shorter puts it below (zero).
TEST_P(TriangleNormal, DegenerateCases) {
  const float a = 0x1p-13f, shorter = std::nextafter(a, 0.0f), nan = FromBits(0xFFC00000u);
  const struct {
    const char* what;
    float v[3][3];
    float expected[3];  // NaN: some component must be NaN
  } rows[] = {
      {"collinear", {{0, 0, 0}, {1, 1, 1}, {2, 2, 2}}, {0, 0, 0}},
      {"coincident", {{5, -2, 1}, {5, -2, 1}, {5, -2, 1}}, {0, 0, 0}},
      {"at the epsilon", {{a, 0, 0}, {0, a, 0}, {0, 0, 0}}, {0, 0, 1}},
      {"below the epsilon", {{a, 0, 0}, {0, shorter, 0}, {0, 0, 0}}, {0, 0, 0}},
      {"clockwise", {{0, 1, 0}, {1, 0, 0}, {0, 0, 0}}, {0, 0, -1}},
      {"huge", {{3e38f, 0, 0}, {0, 3e38f, 0}, {0, 0, 0}}, {0, 0, 1}},
      {"infinite corner", {{INFINITY, 0, 0}, {0, 1, 0}, {0, 0, 0}}, {nan}},
      {"NaN corner", {{0, 0, 0}, {0, nan, 0}, {1, 0, 0}}, {nan}},
  };
  Triangles t;
  for (const auto& row : rows) t.Add(row.v);
  const std::vector<float> normals = Normals(path(), t);
  for (int k = 0; k < t.count(); ++k) {
    SCOPED_TRACE(rows[k].what);
    const float* n = normals.data() + 3 * k;
    if (std::isnan(rows[k].expected[0])) {
      EXPECT_TRUE(std::isnan(n[0]) || std::isnan(n[1]) || std::isnan(n[2]));
    } else {
      EXPECT_TRUE(SameBits(rows[k].expected, n, 3));
    }
  }
}

// Any thread count, any triangle count (odd ones leave a triangle without a partner in some
// thread's share), and a call from inside a parallel region give the one-thread bits.
TEST_P(TriangleNormal, SameBitsOnAnyThreadCount) {
  for (int count : {1, 3, 5, 1001}) {
    const Triangles t = RandomTriangles(count, static_cast<uint32_t>(count));
    std::vector<float> one, nested[2];
    {
      ThreadCount threads(1);
      one = Normals(path(), t);
    }
    for (int threads : {2, 3}) {
      ThreadCount scope(threads);
      EXPECT_TRUE(SameBits(one.data(), Normals(path(), t).data(), one.size())) << threads;
    }
    ThreadCount scope(2);
#pragma omp parallel num_threads(2)
    nested[omp_get_thread_num()] = Normals(path(), t);
    for (const auto& n : nested) {
      EXPECT_TRUE(n.empty() || SameBits(one.data(), n.data(), one.size()));
    }
  }
}

}  // namespace
}  // namespace vtqr::test
