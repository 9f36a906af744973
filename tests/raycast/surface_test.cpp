// Hit points and normals: the per-ray functions against their formulas, one ray at a time in
// plain scalar code, on every layout (so packets of four against single rays); the smooth
// normal's cancel threshold; triangle normals against a long-double cross product taken
// another way, on degenerate triangles and over any number of threads; the argument checks.
#include <omp.h>

#include <cfloat>
#include <cmath>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "raycast/shade_cases.h"
#include "vtqcore.h"

namespace vtqr::test {
namespace {

constexpr float kEps = 0.999f;
constexpr float kOrigin[3] = {0.25f, -3.0f, 7.5f};
const float kNaN = FromBits(0xFFC00000u);  // the one NaN pattern that is computed on

// Normals read through the rays' triangle numbers. The triangle normals are only copied, so
// they carry patterns a copy must keep (signalling NaN, -0, a denormal, infinity); the vertex
// normals are blended, so their only NaN is the common one.
constexpr int kTriangles = 6;
const std::vector<float>& TrianNorm() {
  static const std::vector<float> normals = {
      0.6f, 0.8f,        0.0f,  -0.0f,    FromBits(0x7FA00001u),
      1.0f, FromBits(1), -1.0f, INFINITY, 0.0f,
      0.0f, -1.0f,       0.36f, 0.48f,    0.8f,
      kNaN, 0.5f,        -0.5f};
  return normals;
}
const std::vector<float>& VertNorm() {
  static const std::vector<float> normals = {0.6f,  0.8f,  0.0f, 0.0f,  0.0f,     1.0f, -0.6f,
                                             -0.8f, 0.0f,  0.3f, -0.4f, 0.866f,   kNaN, 0.0f,
                                             0.0f,  1e-4f, 0.0f, 0.0f,  INFINITY, 0.0f, 0.0f};
  return normals;
}
// Stride 5: the two entries after each triangle's three normal numbers would crash or give
// other normals if read, so a kernel that ignores the stride is caught.
constexpr int kStride = 5;
constexpr int32_t kNormIndex[kTriangles * kStride] = {0, 1, 3, -99, 1 << 30, 0, 2, 1, -99, 1 << 30,
                                                      4, 1, 2, -99, 1 << 30, 5, 5, 5, -99, 1 << 30,
                                                      6, 0, 1, -99, 1 << 30, 3, 3, 1, -99, 1 << 30};

// clang-format off
// The four per-ray functions as rows of the shading-kernel table (planes, pointers tested).
const std::vector<ShadeCase>& SurfaceCases() {
  static const std::vector<ShadeCase> cases = {
    {"HitPoint3DEpsS0_32f_M", 7, [](CodePath p, Rays& r, int f, int len, int n) {
       const float* dir[3] = {r[0] + f, r[1] + f, r[2] + f};
       float* dst[3] = {r[4] + f, r[5] + f, r[6] + f};
       return kDispatchTable.HitPoint3DEpsS0_32f_M[p](Or(n, 0, kOrigin), Or(n, 1, dir),
                                                      Or(n, 2, r[3] + f), Or(n, 3, r.mask + f),
                                                      Or(n, 4, dst), len, kEps);
     }, {2, 3, 1, 4}, {0}},
    {"HitPoint3DEpsM0_32f_M", 10, [](CodePath p, Rays& r, int f, int len, int n) {
       const float* org[3] = {r[0] + f, r[1] + f, r[2] + f};
       const float* dir[3] = {r[3] + f, r[4] + f, r[5] + f};
       float* dst[3] = {r[7] + f, r[8] + f, r[9] + f};
       return kDispatchTable.HitPoint3DEpsM0_32f_M[p](Or(n, 0, org), Or(n, 1, dir),
                                                      Or(n, 2, r[6] + f), Or(n, 3, r.mask + f),
                                                      Or(n, 4, dst), len, kEps);
     }, {2, 3, 1, 4, 0}, {}},
    {"SurfFlatNormal_32f", 3, [](CodePath p, Rays& r, int f, int len, int n) {
       float* dst[3] = {r[0] + f, r[1] + f, r[2] + f};
       return kDispatchTable.SurfFlatNormal_32f[p](Or(n, 0, TrianNorm().data()),
                                                   Or(n, 1, r.mask + f), Or(n, 2, dst), len);
     }, {0, 1}, {2}},
    {"SurfSmoothNormal_32f", 5, [](CodePath p, Rays& r, int f, int len, int n) {
       const float* hit[2] = {r[0] + f, r[1] + f};
       float* dst[3] = {r[2] + f, r[3] + f, r[4] + f};
       return kDispatchTable.SurfSmoothNormal_32f[p](
           Or(n, 0, VertNorm().data()), Or(n, 1, kNormIndex), Or(n, 2, r.mask + f),
           Or(n, 3, hit), Or(n, 4, dst), len, kStride);
     }, {0, 1, 2, 3, 4}, {}},
  };
  return cases;
}

// Expected planes of ray i after the call, computed in place on a copy of the input.
using Reference = void (*)(Rays& r, int i);
const std::map<std::string, Reference>& References() {
  static const std::map<std::string, Reference> references = {
    {"HitPoint3DEpsS0_32f_M", [](Rays& r, int i) {
       for (int c = 0; c < 3; ++c) {
         r[4 + c][i] = r.mask[i] < 0 ? 0.0f : r[c][i] * kEps * r[3][i] + kOrigin[c];
       }
     }},
    {"HitPoint3DEpsM0_32f_M", [](Rays& r, int i) {
       for (int c = 0; c < 3; ++c) {
         r[7 + c][i] = r.mask[i] < 0 ? 0.0f : r[3 + c][i] * kEps * r[6][i] + r[c][i];
       }
     }},
    {"SurfFlatNormal_32f", [](Rays& r, int i) {
       for (int c = 0; c < 3; ++c) r[c][i] = r.mask[i] < 0 ? 0.0f : TrianNorm()[3 * r.mask[i] + c];
     }},
    {"SurfSmoothNormal_32f", [](Rays& r, int i) {
       float n[3] = {0, 0, 0};
       if (r.mask[i] >= 0) {
         const int32_t* corner = kNormIndex + r.mask[i] * kStride;
         const float u = r[0][i], v = r[1][i], w = 1.0f - u - v;
         for (int c = 0; c < 3; ++c) {
           const float* vn = VertNorm().data();
           n[c] = vn[3 * corner[1] + c] * v + vn[3 * corner[0] + c] * u + w * vn[3 * corner[2] + c];
         }
         const float s = n[0] * n[0] + n[1] * n[1] + n[2] * n[2];
         for (float& c : n) c = s < FLT_EPSILON ? 0.0f : c / std::sqrt(s);
       }
       for (int c = 0; c < 3; ++c) r[2 + c][i] = n[c];
     }},
  };
  return references;
}
// clang-format on

// Ray values from the shading tests' filler; masks are triangle numbers the tables hold, or
// negative values of several kinds.
void FillSurfaceRays(Rays& r, int len, uint32_t seed) {
  FillRays(r, len, seed);
  std::mt19937 rng(seed);
  const int32_t dead[] = {-1, -2, INT32_MIN};
  for (int i = 0; i < len; ++i) {
    const uint32_t k = rng() % (kTriangles + 3);
    r.mask[i] = k < kTriangles ? static_cast<int32_t>(k) : dead[k - kTriangles];
  }
}

class SurfaceKernels : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(SurfaceKernels);

// Every length and layout, against the scalar formula: aligned packets of four, and single
// rays when one array is off or the length is not a multiple of four, must give the same
// bits; dead rays get zeros; nothing lands past the last ray.
TEST_P(SurfaceKernels, MatchScalarFormulaOnEveryLayout) {
  uint32_t seed = 100;
  for (const ShadeCase& c : SurfaceCases()) {
    std::vector<std::pair<int, Layout>> calls;
    for (int len : {1, 3, 4, 8, 13, 64}) {
      for (const Layout& layout : {Layout::All(0), Layout::All(1), Layout{{1, 2, 3, 0}, 0}}) {
        calls.push_back({len, layout});
      }
    }
    for (int off = 0; off <= c.planeCount; ++off) {
      calls.push_back({8, Layout::OneOff(c.planeCount, off)});
    }
    for (const auto& [len, layout] : calls) {
      SCOPED_TRACE(::testing::Message() << c.name << " len " << len << " seed " << ++seed);
      Rays actual(c.planeCount, len, layout), expected(c.planeCount, len, layout);
      FillSurfaceRays(actual, len, seed);
      FillSurfaceRays(expected, len, seed);
      ASSERT_EQ(vtqStsOk, c.run(path(), actual, 0, len, -1));
      for (int i = 0; i < len; ++i) References().at(c.name)(expected, i);
      for (int j = 0; j < c.planeCount; ++j) {
        EXPECT_TRUE(SameBits(expected[j], actual[j], len + kGuard)) << "plane " << j;
      }
      EXPECT_TRUE(std::equal(expected.mask, expected.mask + len + kGuard, actual.mask));
    }
  }
}

TEST_P(SurfaceKernels, ChecksWriteNothing) {
  for (const ShadeCase& c : SurfaceCases()) ExpectChecksWriteNothing(c, path());
}

// The smooth normal's zero rule at its edges: corner normals that cancel, a squared length of
// exactly the float epsilon (kept) and the float below it (zeroed), and a NaN weight, which is
// not "short" and stays NaN. Each row is one lane of an aligned packet of four.
TEST_P(SurfaceKernels, SmoothNormalCancelThreshold) {
  const float h = 0x1p-12f;  // (h, h, 0) has squared length 2^-23, the float epsilon
  struct Row {
    const char* what;
    float a[3], b[3], u, v;
    bool zero;
  } rows[] = {
      {"opposite corners, halfway", {0.6f, 0.8f, 0}, {-0.6f, -0.8f, 0}, 0.5f, 0.5f, true},
      {"at the epsilon", {h, h, 0}, {1, 0, 0}, 1.0f, 0.0f, false},
      {"below the epsilon", {h, std::nextafter(h, 0.0f), 0}, {1, 0, 0}, 1.0f, 0.0f, true},
      {"NaN weight", {0, 0, 1}, {1, 0, 0}, kNaN, 0.0f, false},
  };
  alignas(16) float vertNorm[4 * 9], u[4], v[4], x[4], y[4], z[4];
  alignas(16) int32_t normIndex[4 * 4], triangle[4];
  for (int r = 0; r < 4; ++r) {
    for (int c = 0; c < 3; ++c) {
      vertNorm[9 * r + c] = rows[r].a[c];
      vertNorm[9 * r + 3 + c] = rows[r].b[c];
      vertNorm[9 * r + 6 + c] = 7.0f;  // C, weighted by w = 0 in every row
    }
    for (int k = 0; k < 3; ++k) normIndex[4 * r + k] = 3 * r + k;
    triangle[r] = r, u[r] = rows[r].u, v[r] = rows[r].v;
  }
  const float* hit[2] = {u, v};
  float* dst[3] = {x, y, z};
  ASSERT_EQ(vtqStsOk, kDispatchTable.SurfSmoothNormal_32f[path()](vertNorm, normIndex, triangle,
                                                                  hit, dst, 4, 4));
  for (int r = 0; r < 4; ++r) {
    SCOPED_TRACE(rows[r].what);
    const float n[3] = {x[r], y[r], z[r]};
    if (rows[r].zero) {
      for (float c : n) EXPECT_EQ(0u, Bits(c));
    } else if (std::isnan(rows[r].u)) {
      for (float c : n) EXPECT_TRUE(std::isnan(c));
    } else {
      EXPECT_NEAR(1.0, std::hypot(n[0], n[1], n[2]), 1e-6);
    }
  }
}

// Triangle normals --------------------------------------------------------------------------

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

std::vector<float> Normals(CodePath path, const Triangles& t) {
  std::vector<float> normals(3 * t.count() + kGuard, Sentinel());
  EXPECT_EQ(vtqStsOk, kDispatchTable.TriangleNormal_32f[path](t.vert.data(), t.index.data(),
                                                              normals.data(), t.count()));
  for (int g = 0; g < kGuard; ++g) EXPECT_EQ(kSentinelBits, Bits(normals[3 * t.count() + g]));
  normals.resize(3 * t.count());
  return normals;
}

// Random triangles at log-uniform positions and sizes (1e-3 to 1e3), none thinner than an
// angle of about 0.06 degrees, so that double precision leaves the normal well below a float
// rounding step, and none small enough to count as degenerate.
Triangles RandomTriangles(int count, uint32_t seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> unit(-1.0f, 1.0f), exponent(-3.0f, 3.0f);
  Triangles t;
  while (t.count() < count) {
    const float scale = std::pow(10.0f, exponent(rng)), size = std::pow(10.0f, exponent(rng));
    float v[3][3];
    for (int c = 0; c < 3; ++c) v[0][c] = unit(rng) * scale;
    for (int k = 1; k < 3; ++k) {
      for (int c = 0; c < 3; ++c) v[k][c] = v[0][c] + unit(rng) * size;
    }
    long double e1[3], e2[3];
    for (int c = 0; c < 3; ++c) e1[c] = v[1][c] - v[0][c], e2[c] = v[2][c] - v[0][c];
    const long double cross = std::hypot(e1[1] * e2[2] - e1[2] * e2[1],
                                         e1[2] * e2[0] - e1[0] * e2[2],
                                         e1[0] * e2[1] - e1[1] * e2[0]);
    const long double edges = std::hypot(e1[0], e1[1], e1[2]) * std::hypot(e2[0], e2[1], e2[2]);
    if (cross > 1e-3L * edges && cross > 1e-6L) {
      t.Add(v);
    }
  }
  return t;
}

// Within half a float step (plus the double computation's own error) of the exact normal,
// taken in long double as (V1 - V0) x (V2 - V0), another pair of edges than the library's;
// and bit for bit the double formula the header gives.
TEST_P(SurfaceKernels, TriangleNormalMatchesLongDouble) {
  const Triangles t = RandomTriangles(2001, 3);
  const std::vector<float> normals = Normals(path(), t);
  for (int k = 0; k < t.count(); ++k) {
    const float* v = t.vert.data() + 9 * k;
    long double e1[3], e2[3];
    double d1[3], d2[3];
    for (int c = 0; c < 3; ++c) {
      e1[c] = static_cast<long double>(v[3 + c]) - v[c];
      e2[c] = static_cast<long double>(v[6 + c]) - v[c];
      d1[c] = static_cast<double>(v[c]) - v[6 + c];
      d2[c] = static_cast<double>(v[3 + c]) - v[6 + c];
    }
    const long double n[3] = {e1[1] * e2[2] - e1[2] * e2[1], e1[2] * e2[0] - e1[0] * e2[2],
                              e1[0] * e2[1] - e1[1] * e2[0]};
    const double m[3] = {d1[1] * d2[2] - d1[2] * d2[1], d1[2] * d2[0] - d2[2] * d1[0],
                         d2[1] * d1[0] - d1[1] * d2[0]};
    const long double length = std::hypot(n[0], n[1], n[2]);
    const double root = std::sqrt(m[0] * m[0] + m[1] * m[1] + m[2] * m[2]);
    for (int c = 0; c < 3; ++c) {
      const float got = normals[3 * k + c];
      const long double exact = n[c] / length;
      const long double step = std::nextafter(std::fabs(got), INFINITY) - std::fabs(got);
      EXPECT_LE(std::fabs(got - exact), 0.5L * step + 1e-12L) << "triangle " << k << " c " << c;
      EXPECT_EQ(Bits(static_cast<float>(m[c] / root)), Bits(got)) << "triangle " << k;
    }
  }
}

// Degenerate and boundary triangles, each with its exact result. The right triangle with legs
// a and b has n = (0, 0, a b), so legs of 2^-13 put s exactly at the double epsilon (kept) and
// a leg one float shorter puts it below (zero).
TEST_P(SurfaceKernels, TriangleNormalDegenerateCases) {
  const float a = 0x1p-13f, shorter = std::nextafter(a, 0.0f);
  struct Row {
    const char* what;
    float v[3][3];
    float expected[3];  // NaN: some component must be NaN
  } rows[] = {
      {"collinear", {{0, 0, 0}, {1, 1, 1}, {2, 2, 2}}, {0, 0, 0}},
      {"coincident", {{5, -2, 1}, {5, -2, 1}, {5, -2, 1}}, {0, 0, 0}},
      {"tiny", {{1e-9f, 0, 0}, {0, 1e-9f, 0}, {0, 0, 0}}, {0, 0, 0}},
      {"at the epsilon", {{a, 0, 0}, {0, a, 0}, {0, 0, 0}}, {0, 0, 1}},
      {"below the epsilon", {{a, 0, 0}, {0, shorter, 0}, {0, 0, 0}}, {0, 0, 0}},
      {"clockwise", {{0, 1, 0}, {1, 0, 0}, {0, 0, 0}}, {0, 0, -1}},
      {"huge", {{3e38f, 0, 0}, {0, 3e38f, 0}, {0, 0, 0}}, {0, 0, 1}},
      {"infinite corner", {{INFINITY, 0, 0}, {0, 1, 0}, {0, 0, 0}}, {kNaN, kNaN, kNaN}},
      {"NaN corner", {{0, 0, 0}, {0, kNaN, 0}, {1, 0, 0}}, {kNaN, kNaN, kNaN}},
  };
  Triangles t;
  for (const Row& row : rows) t.Add(row.v);
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
TEST_P(SurfaceKernels, TriangleNormalSameBitsOnAnyThreadCount) {
  for (int count : {1, 2, 3, 5, 1001}) {
    const Triangles t = RandomTriangles(count, static_cast<uint32_t>(count));
    vtqSetNumThreads(1);
    const std::vector<float> one = Normals(path(), t);
    for (int threads : {2, 3, 4}) {
      vtqSetNumThreads(threads);
      EXPECT_TRUE(SameBits(one.data(), Normals(path(), t).data(), one.size()))
          << count << " triangles, " << threads << " threads";
    }
    vtqSetNumThreads(2);
    std::vector<float> nested[2];
#pragma omp parallel num_threads(2)
    nested[omp_get_thread_num()] = Normals(path(), t);
    for (const auto& n : nested) {
      if (!n.empty()) {
        EXPECT_TRUE(SameBits(one.data(), n.data(), one.size()));
      }
    }
  }
  vtqSetNumThreads(0);
}

// Null pointers fail before the count is looked at; no count below 1 writes anything.
TEST_P(SurfaceKernels, TriangleNormalChecks) {
  const Triangles t = RandomTriangles(2, 9);
  float normals[6];
  std::fill_n(normals, 6, Sentinel());
  const auto call = [&](int nullParam, int count) {
    return kDispatchTable.TriangleNormal_32f[path()](Or(nullParam, 0, t.vert.data()),
                                                     Or(nullParam, 1, t.index.data()),
                                                     Or(nullParam, 2, normals), count);
  };
  for (int param : {0, 1, 2}) {
    for (int count : {2, 0, -1}) EXPECT_EQ(vtqStsErrNullPtr, call(param, count));
  }
  for (int count : {0, -1, INT32_MIN}) EXPECT_EQ(vtqStsOk, call(-1, count));
  for (float n : normals) EXPECT_EQ(kSentinelBits, Bits(n));
}

}  // namespace
}  // namespace vtqr::test
