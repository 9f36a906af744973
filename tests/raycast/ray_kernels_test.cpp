// Every per-ray kernel (shading arithmetic, hit points, surface normals) as a row of one table:
// its float planes, its call, the pointers it tests, and its formula one ray at a time in the
// documented operation order, checked on every length and layout (packets of four, aligned,
// unaligned or after peeling, against single rays; n8 against u8), for its argument checks,
// and for dead rays that keep their bits.
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "test_util.h"

namespace vtqr::test {
namespace {

constexpr float kScale[3] = {0.75f, -1.5f, 3.0f};
constexpr float kPoint[3] = {0.5f, -2.0f, 1.25f};
constexpr float kLight[3] = {-3.0f, 4.0f, 0.5f};
constexpr float kOrigin[3] = {0.25f, -3.0f, 7.5f};
constexpr float kEps = 0.999f;
const float kNaN = FromBits(0xFFC00000u);  // the one NaN pattern computed on
const float kGrazing = 0.0017453292f, kBelowGrazing = std::nextafter(kGrazing, 0.0f);
constexpr float kHalfEps = 0x1p-12f;  // (h, h, 0) has squared length FLT_EPSILON

// Normals read through the rays' triangle numbers (0..5 from the filler, 6 and 7 hand-picked).
// Triangle normals are only copied, so they carry patterns a copy must keep (signalling NaN,
// -0, a denormal, infinity). Vertex normals 7 and 8 have squared lengths of exactly the float
// epsilon (kept) and the float below it (zeroed).
// clang-format off
const float kTrianNorm[] = {0.6f, 0.8f, 0.0f,  -0.0f, FromBits(0x7FA00001u), 1.0f,
                            FromBits(1), -1.0f, INFINITY,  0.0f, 0.0f, -1.0f,
                            0.36f, 0.48f, 0.8f,  kNaN, 0.5f, -0.5f};
const float kVertNorm[] = {0.6f, 0.8f, 0.0f,  0.0f, 0.0f, 1.0f,  -0.6f, -0.8f, 0.0f,
                           0.3f, -0.4f, 0.866f,  kNaN, 0.0f, 0.0f,  1e-4f, 0.0f, 0.0f,
                           INFINITY, 0.0f, 0.0f,  kHalfEps, kHalfEps, 0.0f,
                           kHalfEps, std::nextafter(kHalfEps, 0.0f), 0.0f};
// Stride 5: the two entries after each triangle's three normal numbers would crash if read.
constexpr int kStride = 5;
constexpr int32_t kNormIndex[] = {0, 1, 3, -99, 1 << 30,  0, 2, 1, -99, 1 << 30,
                                  4, 1, 2, -99, 1 << 30,  5, 5, 5, -99, 1 << 30,
                                  6, 0, 1, -99, 1 << 30,  3, 3, 1, -99, 1 << 30,
                                  7, 1, 1, -99, 1 << 30,  8, 1, 1, -99, 1 << 30};
// clang-format on

constexpr int kGuard = 4;  // sentinel elements past the last ray, to catch an overrun

// Where the arrays of one call start, in elements past a 64-byte boundary: plane j at
// planes[j % planes.size()], the mask at `mask`.
struct Layout {
  std::vector<int> planes;
  int mask;
};

// The float planes and the mask of one call, every element the sentinel.
struct Rays {
  Rays(int planeCount, int len, const Layout& layout) : maskStorage(size_t(len) + kGuard + 16) {
    for (int j = 0; j < planeCount; ++j) {
      planes.emplace_back(len + kGuard, layout.planes[j % layout.planes.size()]);
      std::fill(planes.back().begin(), planes.back().end(), Sentinel());
    }
    const auto address = reinterpret_cast<uintptr_t>(maskStorage.data());
    mask = maskStorage.data() + (64 - address % 64) % 64 / 4 + layout.mask;
    std::fill_n(mask, len + kGuard, static_cast<int32_t>(kSentinelBits));
  }
  float* operator[](int j) { return planes[size_t(j)].data(); }
  std::vector<AlignedFloats> planes;
  std::vector<int32_t> maskStorage;
  int32_t* mask;
};

// The arguments of one call: pointer parameter `nullParam` (0-based, in argument order) comes
// out null.
struct Args {
  struct P3 {
    float* p[3];
    operator float* const*() { return p[0] ? p : nullptr; }
  };
  Rays& r;
  int nullParam;
  template <class T>
  T* Or(int param, T* pointer) const {
    return param == nullParam ? nullptr : pointer;
  }
  float* F(int param, int plane) const { return Or(param, r[plane]); }
  int32_t* Mask(int param) const { return Or(param, r.mask); }
  P3 Planes(int param, int plane) const {
    return param == nullParam ? P3{} : P3{{r[plane], r[plane + 1], r[plane + 2]}};
  }
};

float Dot(Rays& r, int a, int b, int i) {
  return r[a][i] * r[b][i] + r[a + 1][i] * r[b + 1][i] + r[a + 2][i] * r[b + 2][i];
}

struct Kernel {
  const char* name;
  int planeCount;
  VtqStatus (*run)(CodePath path, const Args& a, int len);
  std::vector<int> tested;    // pointer parameters tested for null, in check order
  std::vector<int> untested;  // pointer parameters deliberately not tested
  // Ray i after the call, in place; `packed`: the ray is in a group of four (the shadow cull's
  // masks depend on it). Null: no per-ray formula.
  void (*reference)(Rays& r, int i, bool packed);
  // Rays at the front of every call that random values would not reach: the mask, then the
  // values of the first planes.
  std::vector<std::vector<float>> borders = {};
  // Planes whose values a dead ray keeps: signalling NaNs and -0 there must come through bit
  // for bit. Regression: clang turned the dead-ray select into arithmetic (a multiply by 1, an
  // add of -0), which quiets signalling NaNs and loses -0.
  std::vector<int> kept = {};
};

// clang-format off
const std::vector<Kernel>& Kernels() {
  const auto& t = kDispatchTable;
  static const std::vector<Kernel> kernels = {
    {"Dot_32f_P3C1M", 7, [](CodePath p, const Args& a, int len) {
       return t.Dot_32f_P3C1M[p](a.Planes(0, 0), a.Planes(1, 3), a.Mask(2), a.F(3, 6), len);
     }, {0, 1, 2, 3}, {}, [](Rays& r, int i, bool) {
       r[6][i] = r.mask[i] < 0 ? 0.0f : Dot(r, 0, 3, i);
     }},
    {"DotChangeNorm_32f_IM", 7, [](CodePath p, const Args& a, int len) {
       return t.DotChangeNorm_32f_IM[p](a.Planes(0, 0), a.Mask(1), a.Planes(2, 3), a.F(3, 6), len);
     }, {0, 1, 2, 3}, {}, [](Rays& r, int i, bool) {
       if (r.mask[i] < 0) { r[6][i] = 0.0f; return; }
       const float d = Dot(r, 0, 3, i), s = d > 0.0f ? -1.0f : 1.0f;
       for (int j = 3; j < 6; ++j) r[j][i] = r[j][i] * s;
       r[6][i] = d * s;
     }, {}, {3, 4, 5}},
    {"Mul_32f_C1IM", 2, [](CodePath p, const Args& a, int len) {
       return t.Mul_32f_C1IM[p](a.F(0, 0), a.Mask(1), a.F(2, 1), len);
     }, {}, {0, 1, 2}, [](Rays& r, int i, bool) {
       r[1][i] = r[1][i] * r[0][i] * (r.mask[i] < 0 ? 0.0f : 1.0f);
     }},
    {"Mul_32f_C1P3IM", 4, [](CodePath p, const Args& a, int len) {
       return t.Mul_32f_C1P3IM[p](a.F(0, 0), a.Mask(1), a.Planes(2, 1), len);
     }, {0, 1, 2}, {}, [](Rays& r, int i, bool) {
       for (int j = 1; j < 4; ++j) r[j][i] = r[j][i] * r[0][i] * (r.mask[i] < 0 ? 0.0f : 1.0f);
     }},
    // A dead ray's zero divisor is no division: alone in the calls of one ray, it must not warn.
    {"Div_32f_C1IM", 2, [](CodePath p, const Args& a, int len) {
       return t.Div_32f_C1IM[p](a.F(0, 0), a.Mask(1), a.F(2, 1), len);
     }, {0, 2}, {1}, [](Rays& r, int i, bool) {
       float& x = r[1][i];
       if (r.mask[i] < 0) x = 0.0f;
       else if (r[0][i] != 0.0f) x = x / r[0][i];
       else x = x > 0.0f ? INFINITY : x < 0.0f ? -INFINITY : kNaN;
     }, {{-5, 0.0f, 3}}},
    {"AddMulMul_32f_AC1P3IM", 7, [](CodePath p, const Args& a, int len) {
       return t.AddMulMul_32f_AC1P3IM[p](a.Or(0, kScale), a.F(1, 0), a.Planes(2, 1), a.Mask(3),
                                         a.Planes(4, 4), len);
     }, {1, 2, 3, 4}, {0}, [](Rays& r, int i, bool) {
       if (r.mask[i] < 0) return;
       for (int c = 0; c < 3; ++c) r[4 + c][i] += r[1 + c][i] * kScale[c] * r[0][i];
     }, {}, {4, 5, 6}},
    {"DistAttenuationSO_32f_M", 4, [](CodePath p, const Args& a, int len) {
       return t.DistAttenuationSO_32f_M[p](a.Or(0, kPoint), a.Planes(1, 0), a.Mask(2), a.F(3, 3),
                                           len);
     }, {1, 2, 3}, {0}, [](Rays& r, int i, bool) {
       const float dx = r[0][i] - kPoint[0], dy = r[1][i] - kPoint[1], dz = r[2][i] - kPoint[2];
       const float q = dx * dx + dy * dy + dz * dz;
       // The double square root, rounded once, is the correctly rounded float one.
       r[3][i] = r.mask[i] >= 0 && q >= 1.0f ? static_cast<float>(std::sqrt(double{q})) : 1.0f;
     }},
    // With normal (0, 0, nz) and hit - light = (0, 0, -1), c = -nz: the grazing threshold is
    // lit, the float below it is not.
    {"CastShadowSO_32f", 11, [](CodePath p, const Args& a, int len) {
       return t.CastShadowSO_32f[p](a.Or(0, kLight), a.F(1, 0), a.Planes(2, 1), a.Planes(3, 4),
                                    a.Mask(4), a.F(5, 7), a.Planes(6, 8), len);
     }, {1, 2, 3, 4, 6, 5}, {0}, [](Rays& r, int i, bool packed) {
       const float d[3] = {r[4][i] - kLight[0], r[5][i] - kLight[1], r[6][i] - kLight[2]};
       float c = r[1][i] * d[0] + r[2][i] * d[1] + r[3][i] * d[2];
       if (std::fabs(c) < kGrazing) c = 0.0f;
       const bool pass = r.mask[i] >= 0 && r[0][i] * c > 0.0f;
       r[7][i] = pass ? std::fabs(c) : 0.0f;
       for (int j = 0; j < 3; ++j) r[8 + j][i] = pass ? d[j] : 0.0f;
       if (!pass && (packed || r.mask[i] >= 0)) r.mask[i] = -1;
     }, {{0, -0.5f, 0, 0, kGrazing, kLight[0], kLight[1], kLight[2] - 1},
         {5, -0.5f, 0, 0, kBelowGrazing, kLight[0], kLight[1], kLight[2] - 1}}},
    {"CastReflectionRay_32f", 9, [](CodePath p, const Args& a, int len) {
       return t.CastReflectionRay_32f[p](a.Planes(0, 0), a.Mask(1), a.Planes(2, 3),
                                         a.Planes(3, 6), len);
     }, {0, 1, 2, 3}, {}, [](Rays& r, int i, bool) {
       const float d = Dot(r, 0, 3, i);
       for (int j = 0; j < 3; ++j) {
         r[6 + j][i] = r.mask[i] < 0 ? 0.0f : r[j][i] - r[3 + j][i] * (d + d);
       }
     }},
    {"HitPoint3DEpsS0_32f_M", 7, [](CodePath p, const Args& a, int len) {
       return t.HitPoint3DEpsS0_32f_M[p](a.Or(0, kOrigin), a.Planes(1, 0), a.F(2, 3), a.Mask(3),
                                         a.Planes(4, 4), len, kEps);
     }, {2, 3, 1, 4}, {0}, [](Rays& r, int i, bool) {
       for (int c = 0; c < 3; ++c) {
         r[4 + c][i] = r.mask[i] < 0 ? 0.0f : r[c][i] * kEps * r[3][i] + kOrigin[c];
       }
     }},
    {"HitPoint3DEpsM0_32f_M", 10, [](CodePath p, const Args& a, int len) {
       return t.HitPoint3DEpsM0_32f_M[p](a.Planes(0, 0), a.Planes(1, 3), a.F(2, 6), a.Mask(3),
                                         a.Planes(4, 7), len, kEps);
     }, {2, 3, 1, 4, 0}, {}, [](Rays& r, int i, bool) {
       for (int c = 0; c < 3; ++c) {
         r[7 + c][i] = r.mask[i] < 0 ? 0.0f : r[3 + c][i] * kEps * r[6][i] + r[c][i];
       }
     }},
    {"SurfFlatNormal_32f", 3, [](CodePath p, const Args& a, int len) {
       return t.SurfFlatNormal_32f[p](a.Or(0, kTrianNorm), a.Mask(1), a.Planes(2, 0), len);
     }, {0, 1}, {2}, [](Rays& r, int i, bool) {
       for (int c = 0; c < 3; ++c) r[c][i] = r.mask[i] < 0 ? 0.0f : kTrianNorm[3 * r.mask[i] + c];
     }},
    {"SurfSmoothNormal_32f", 5, [](CodePath p, const Args& a, int len) {
       return t.SurfSmoothNormal_32f[p](a.Or(0, kVertNorm), a.Or(1, kNormIndex), a.Mask(2),
                                        a.Planes(3, 0), a.Planes(4, 2), len, kStride);
     }, {0, 1, 2, 3, 4}, {}, [](Rays& r, int i, bool) {
       float n[3] = {0, 0, 0};
       if (r.mask[i] >= 0) {
         const int32_t* k = kNormIndex + r.mask[i] * kStride;
         const float u = r[0][i], v = r[1][i], w = 1.0f - u - v;
         const float *A = kVertNorm + 3 * k[0], *B = kVertNorm + 3 * k[1];
         const float* C = kVertNorm + 3 * k[2];
         for (int c = 0; c < 3; ++c) n[c] = B[c] * v + A[c] * u + w * C[c];
         const float s = n[0] * n[0] + n[1] * n[1] + n[2] * n[2];
         for (float& c : n) c = s < FLT_EPSILON ? 0.0f : c / std::sqrt(s);
       }
       for (int c = 0; c < 3; ++c) r[2 + c][i] = n[c];
     }, {{6, 1, 0}, {7, 1, 0}}},
    // Not per ray (normals of a mesh): only its checks go through the table.
    {"TriangleNormal_32f", 1, [](CodePath p, const Args& a, int len) {
       static const int32_t index[4] = {0, 1, 2, 0};
       return t.TriangleNormal_32f[p](a.Or(0, kVertNorm), a.Or(1, index), a.F(2, 0), len);
     }, {0, 1, 2}, {}, nullptr},
  };
  return kernels;
}
// clang-format on

// Fills every plane and the mask from `seed`, then the hand-picked rays. Zeros, infinities and
// NaNs are sprinkled in; every NaN carries the same bits so that results never depend on which
// of two NaN operands an instruction keeps. Live masks are triangle numbers; dead ones vary.
void FillRays(const Kernel& k, Rays& r, int len, uint32_t seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> value(-4.0f, 4.0f);
  std::uniform_int_distribution<int> pick(0, 39);
  const float specialValues[] = {0.0f, -0.0f, 1.0f, INFINITY, -INFINITY, kNaN};
  for (auto& plane : r.planes) {
    for (int i = 0; i < len; ++i) {
      const int c = pick(rng);
      plane[size_t(i)] = c < 6 ? specialValues[c] : c < 10 ? 0.0f : value(rng);
    }
  }
  const int32_t masks[] = {0, 1, 5, 3, -1, -1, -2, INT32_MIN};
  for (int i = 0; i < len; ++i) r.mask[i] = masks[pick(rng) % 8];
  for (int i = 0; i < std::min<int>(len, int(k.borders.size())); ++i) {
    const std::vector<float>& row = k.borders[size_t(i)];
    r.mask[i] = static_cast<int32_t>(row[0]);
    for (size_t j = 1; j < row.size(); ++j) r[int(j) - 1][i] = row[j];
  }
  const uint32_t deadBits[] = {0x7FA00001u, 0xFF800001u, 0x80000000u, 0x7FBFFFFFu};
  for (int j : k.kept) {
    for (int i = 0; i < len; ++i)
      r[j][i] = r.mask[i] < 0 ? FromBits(deadBits[(i + j) % 4]) : r[j][i];
  }
}

class RayKernels : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(RayKernels);

// Each kernel runs on every common layout at every length, and once more per array with that
// array alone a float off: a fast path that forgets to test one array's alignment then loads or
// stores it as aligned, and faults. The guard elements past the end take part in the compare.
TEST_P(RayKernels, MatchFormulaOnEveryLayout) {
  uint32_t seed = 1;
  for (const Kernel& k : Kernels()) {
    if (!k.reference) continue;
    std::vector<std::pair<int, Layout>> calls;
    for (int len : {1, 3, 4, 5, 7, 8, 13, 64}) {
      for (int off : {0, 1, 2, 3}) calls.push_back({len, {{off}, off}});
      calls.push_back({len, {{1, 2, 3, 0}, 0}});
    }
    for (int off = 0; off <= k.planeCount; ++off) {  // plane `off` alone a float off, or the mask
      calls.push_back({8, {std::vector<int>(size_t(k.planeCount), 0), off == k.planeCount}});
      if (off < k.planeCount) calls.back().second.planes[size_t(off)] = 1;
    }
    for (const auto& [len, layout] : calls) {
      SCOPED_TRACE(::testing::Message() << k.name << " len " << len << " seed " << ++seed);
      Rays actual(k.planeCount, len, layout), expected(k.planeCount, len, layout);
      FillRays(k, actual, len, seed);
      FillRays(k, expected, len, seed);
      const VtqStatus status = k.run(path(), {actual, -1}, len);
      bool divByZero = false;
      for (int i = 0; i < len; ++i) {
        divByZero |= expected.mask[i] >= 0 && expected[0][i] == 0.0f;
        k.reference(expected, i, i < len / 4 * 4);
      }
      const bool warns = divByZero && k.name == std::string("Div_32f_C1IM");
      EXPECT_EQ(warns ? vtqStsWarnDivByZero : vtqStsOk, status);
      for (int j = 0; j < k.planeCount; ++j) {
        EXPECT_TRUE(SameBits(expected[j], actual[j], len + kGuard)) << "plane " << j;
      }
      EXPECT_TRUE(std::equal(expected.mask, expected.mask + len + kGuard, actual.mask));
    }
  }
}

// Every tested pointer, null, fails whatever the count, before anything is written; every
// untested one goes unnoticed when there are no rays; a count below 1 does nothing.
TEST_P(RayKernels, ChecksWriteNothing) {
  for (const Kernel& k : Kernels()) {
    std::vector<std::tuple<int, int, VtqStatus>> calls;  // null parameter, len, status
    for (int param : k.tested) {
      for (int len : {5, 0, -1}) calls.push_back({param, len, vtqStsErrNullPtr});
    }
    for (int param : k.untested) calls.push_back({param, 0, vtqStsOk});
    for (int len : {0, -1, INT32_MIN}) calls.push_back({-1, len, vtqStsOk});
    for (const auto& [param, len, status] : calls) {
      SCOPED_TRACE(::testing::Message() << k.name << " null " << param << " len " << len);
      Rays r(k.planeCount, 8, {{0}, 0});
      EXPECT_EQ(status, k.run(path(), {r, param}, len));
      for (int i = 0; i < 8 + kGuard; ++i) {
        for (int j = 0; j < k.planeCount; ++j) EXPECT_EQ(kSentinelBits, Bits(r[j][i]));
        EXPECT_EQ(int32_t(kSentinelBits), r.mask[i]);
      }
    }
  }
}

}  // namespace
}  // namespace vtqr::test
