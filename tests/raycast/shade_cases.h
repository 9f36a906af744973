// The nine shading kernels as rows of one table, so every property can be checked against all
// of them: each row knows how many float planes its call touches, how to call either column of
// the dispatch table on a window of those planes, and which of its pointer parameters are
// tested for null.
#ifndef VTQR_TESTS_RAYCAST_SHADE_CASES_H_
#define VTQR_TESTS_RAYCAST_SHADE_CASES_H_

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "test_util.h"

namespace vtqr::test {

// Constant three-value vectors passed to the kernels that take one.
inline constexpr float kScale[3] = {0.75f, -1.5f, 3.0f};
inline constexpr float kPoint[3] = {0.5f, -2.0f, 1.25f};
inline constexpr float kLight[3] = {-3.0f, 4.0f, 0.5f};

// Elements past the last ray of every array, holding the sentinel, to catch a packet that
// runs over the end.
inline constexpr int kGuard = 4;

// Where the arrays of one call start, in elements past a 64-byte boundary: plane j at
// planes[j % planes.size()], the mask at `mask`.
struct Layout {
  std::vector<int> planes;
  int mask;

  // Every array at `offset`.
  static Layout All(int offset) { return {{offset}, offset}; }
  // Every array aligned but one, a float off: plane `off`, or the mask when off == planeCount.
  static Layout OneOff(int planeCount, int off) {
    Layout layout{std::vector<int>(static_cast<size_t>(planeCount), 0), off == planeCount};
    if (off < planeCount) layout.planes[static_cast<size_t>(off)] = 1;
    return layout;
  }
};

// The float planes and the mask of one call.
struct Rays {
  Rays(int planeCount, int len, const Layout& layout)
      : maskStorage(static_cast<size_t>(len) + kGuard + 32) {
    for (int j = 0; j < planeCount; ++j) {
      planes.emplace_back(len + kGuard, layout.planes[j % layout.planes.size()]);
      std::fill(planes.back().begin(), planes.back().end(), Sentinel());
    }
    auto address = reinterpret_cast<uintptr_t>(maskStorage.data());
    size_t skip = ((64 - address % 64) % 64) / sizeof(int32_t) + layout.mask;
    mask = maskStorage.data() + skip;
    std::fill_n(mask, len + kGuard, static_cast<int32_t>(kSentinelBits));
  }
  float* operator[](int j) { return planes[j].data(); }

  std::vector<AlignedFloats> planes;
  std::vector<int32_t> maskStorage;
  int32_t* mask;
};

// A pointer argument, or null when it is the one being tested.
template <class T>
T Or(int nullParam, int param, T pointer) {
  return nullParam == param ? nullptr : pointer;
}

struct ShadeCase {
  const char* name;
  int planeCount;
  // Calls the kernel on rays [first, first + len) with parameter `nullParam` (0-based, in
  // argument order) replaced by null, or none when it is -1.
  VtqStatus (*run)(CodePath path, Rays& r, int first, int len, int nullParam);
  std::vector<int> tested;    // parameters tested for null
  std::vector<int> untested;  // pointer parameters deliberately not tested
};

// clang-format off
inline const std::vector<ShadeCase>& ShadeCases() {
  static const std::vector<ShadeCase> cases = {
    {"Dot_32f_P3C1M", 7, [](CodePath p, Rays& r, int f, int len, int n) {
       const float* a[3] = {r[0] + f, r[1] + f, r[2] + f};
       const float* b[3] = {r[3] + f, r[4] + f, r[5] + f};
       return kDispatchTable.Dot_32f_P3C1M[p](Or(n, 0, a), Or(n, 1, b), Or(n, 2, r.mask + f),
                                              Or(n, 3, r[6] + f), len);
     }, {0, 1, 2, 3}, {}},
    {"DotChangeNorm_32f_IM", 7, [](CodePath p, Rays& r, int f, int len, int n) {
       const float* ray[3] = {r[0] + f, r[1] + f, r[2] + f};
       float* nrm[3] = {r[3] + f, r[4] + f, r[5] + f};
       return kDispatchTable.DotChangeNorm_32f_IM[p](Or(n, 0, ray), Or(n, 1, r.mask + f),
                                                     Or(n, 2, nrm), Or(n, 3, r[6] + f), len);
     }, {0, 1, 2, 3}, {}},
    {"Mul_32f_C1IM", 2, [](CodePath p, Rays& r, int f, int len, int n) {
       return kDispatchTable.Mul_32f_C1IM[p](Or(n, 0, r[0] + f), Or(n, 1, r.mask + f),
                                             Or(n, 2, r[1] + f), len);
     }, {}, {0, 1, 2}},
    {"Mul_32f_C1P3IM", 4, [](CodePath p, Rays& r, int f, int len, int n) {
       float* dst[3] = {r[1] + f, r[2] + f, r[3] + f};
       return kDispatchTable.Mul_32f_C1P3IM[p](Or(n, 0, r[0] + f), Or(n, 1, r.mask + f),
                                               Or(n, 2, dst), len);
     }, {0, 1, 2}, {}},
    {"Div_32f_C1IM", 2, [](CodePath p, Rays& r, int f, int len, int n) {
       return kDispatchTable.Div_32f_C1IM[p](Or(n, 0, r[0] + f), Or(n, 1, r.mask + f),
                                             Or(n, 2, r[1] + f), len);
     }, {0, 2}, {1}},
    {"AddMulMul_32f_AC1P3IM", 7, [](CodePath p, Rays& r, int f, int len, int n) {
       const float* src2[3] = {r[1] + f, r[2] + f, r[3] + f};
       float* dst[3] = {r[4] + f, r[5] + f, r[6] + f};
       return kDispatchTable.AddMulMul_32f_AC1P3IM[p](Or(n, 0, kScale), Or(n, 1, r[0] + f),
                                                      Or(n, 2, src2), Or(n, 3, r.mask + f),
                                                      Or(n, 4, dst), len);
     }, {1, 2, 3, 4}, {0}},
    {"DistAttenuationSO_32f_M", 4, [](CodePath p, Rays& r, int f, int len, int n) {
       const float* pos[3] = {r[0] + f, r[1] + f, r[2] + f};
       return kDispatchTable.DistAttenuationSO_32f_M[p](Or(n, 0, kPoint), Or(n, 1, pos),
                                                        Or(n, 2, r.mask + f),
                                                        Or(n, 3, r[3] + f), len);
     }, {1, 2, 3}, {0}},
    {"CastShadowSO_32f", 11, [](CodePath p, Rays& r, int f, int len, int n) {
       const float* nrm[3] = {r[1] + f, r[2] + f, r[3] + f};
       const float* hit[3] = {r[4] + f, r[5] + f, r[6] + f};
       float* dir[3] = {r[8] + f, r[9] + f, r[10] + f};
       return kDispatchTable.CastShadowSO_32f[p](Or(n, 0, kLight), Or(n, 1, r[0] + f),
                                                 Or(n, 2, nrm), Or(n, 3, hit),
                                                 Or(n, 4, r.mask + f), Or(n, 5, r[7] + f),
                                                 Or(n, 6, dir), len);
     }, {1, 2, 3, 4, 6, 5}, {0}},
    {"CastReflectionRay_32f", 9, [](CodePath p, Rays& r, int f, int len, int n) {
       const float* inc[3] = {r[0] + f, r[1] + f, r[2] + f};
       const float* nrm[3] = {r[3] + f, r[4] + f, r[5] + f};
       float* dst[3] = {r[6] + f, r[7] + f, r[8] + f};
       return kDispatchTable.CastReflectionRay_32f[p](Or(n, 0, inc), Or(n, 1, r.mask + f),
                                                      Or(n, 2, nrm), Or(n, 3, dst), len);
     }, {0, 1, 2, 3}, {}},
  };
  return cases;
}
// clang-format on

// Fills every plane and the mask with the sentinel pattern, runs, and checks nothing moved.
inline void ExpectUntouched(const ShadeCase& c, CodePath path, int len, int nullParam,
                            VtqStatus expected) {
  const int fill = 8;
  Rays r(c.planeCount, fill, Layout::All(0));
  for (auto& plane : r.planes) std::fill(plane.begin(), plane.end(), Sentinel());
  std::fill_n(r.mask, fill, static_cast<int32_t>(kSentinelBits));
  EXPECT_EQ(expected, c.run(path, r, 0, len, nullParam));
  for (int j = 0; j < c.planeCount; ++j) {
    for (int i = 0; i < fill; ++i) EXPECT_EQ(kSentinelBits, Bits(r[j][i])) << j << "," << i;
  }
  for (int i = 0; i < fill; ++i) EXPECT_EQ(static_cast<int32_t>(kSentinelBits), r.mask[i]);
}

// Every tested pointer, null, fails whatever the count; every untested one goes unnoticed when
// there are no rays; a count below 1 does nothing.
inline void ExpectChecksWriteNothing(const ShadeCase& c, CodePath path) {
  SCOPED_TRACE(c.name);
  for (int param : c.tested) {
    for (int len : {5, 0, -1}) ExpectUntouched(c, path, len, param, vtqStsErrNullPtr);
  }
  for (int param : c.untested) ExpectUntouched(c, path, 0, param, vtqStsOk);
  for (int len : {0, -1, INT32_MIN}) ExpectUntouched(c, path, len, -1, vtqStsOk);
}

// Fills every plane and the mask from `seed`. Values mix signs and magnitudes, with zeros
// (zero divisors, zero dot products), infinities and NaNs sprinkled in; every NaN carries the
// same bits so that results never depend on which of two NaN operands an instruction keeps.
// Masks mix live values with several negative ones, not only -1.
inline void FillRays(Rays& r, int len, uint32_t seed, bool specials = true) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> value(-4.0f, 4.0f);
  std::uniform_int_distribution<int> pick(0, 39);
  const float nan = FromBits(0xFFC00000u);
  const float specialValues[] = {0.0f, -0.0f, 1.0f, INFINITY, -INFINITY, nan};
  for (auto& plane : r.planes) {
    for (int i = 0; i < len; ++i) {
      int k = pick(rng);
      plane[i] = k < 6 && specials ? specialValues[k] : k < 10 ? 0.0f : value(rng);
    }
  }
  const int32_t maskValues[] = {0, 1, 17, INT32_MAX, -1, -1, -2, INT32_MIN};
  for (int i = 0; i < len; ++i) r.mask[i] = maskValues[pick(rng) % 8];
}

}  // namespace vtqr::test

#endif  // VTQR_TESTS_RAYCAST_SHADE_CASES_H_
