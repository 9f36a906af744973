// Shared by the remap and warp tests: calls through either column of the dispatch table, and a
// per-voxel reference in double.
//
// The reference follows the documented rules (bounds, the reduced mode of small sources, the
// taps and their border substitutions, the roundings) with its own arithmetic: sums of all
// taps at once in double, and cubic samples taken from the weights of the resize reference
// (Lagrange basis polynomials, the Mitchell-Netravali family as polynomials in the fraction)
// rather than from the kernels of the distance.
#ifndef VTQR_TESTS_VOLUME_REMAP_TEST_UTIL_H_
#define VTQR_TESTS_VOLUME_REMAP_TEST_UTIL_H_

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <vector>

#include "volume/resize_test_util.h"

namespace vtqr::test {

inline constexpr float kNaNf = std::numeric_limits<float>::quiet_NaN();
inline constexpr float kInff = std::numeric_limits<float>::infinity();

template <class T>
auto RemapFn(CodePath path) {
  if constexpr (std::is_same_v<T, Vtq8u>) return kDispatchTable.Remap_8u_C1PV[path];
  if constexpr (std::is_same_v<T, Vtq16u>) return kDispatchTable.Remap_16u_C1PV[path];
  if constexpr (std::is_same_v<T, Vtq32f>) return kDispatchTable.Remap_32f_C1PV[path];
}
template <class T>
auto WarpFn(CodePath path) {
  if constexpr (std::is_same_v<T, Vtq8u>) return kDispatchTable.WarpAffine_8u_C1PV[path];
  if constexpr (std::is_same_v<T, Vtq16u>) return kDispatchTable.WarpAffine_16u_C1PV[path];
  if constexpr (std::is_same_v<T, Vtq32f>) return kDispatchTable.WarpAffine_32f_C1PV[path];
}

// The three maps of a destination volume.
struct Maps {
  explicit Maps(VtqVolumeSize size)
      : axis{Volume<Vtq32f>(size), Volume<Vtq32f>(size), Volume<Vtq32f>(size)} {}
  template <class F>  // f(x, y, z) -> std::array<float, 3>
  void Fill(F f) {
    for (int a = 0; a < 3; ++a) axis[a].Fill([&](int x, int y, int z) { return f(x, y, z)[a]; });
  }
  std::array<float, 3> at(int x, int y, int z) const {
    return {axis[0].at(x, y, z), axis[1].at(x, y, z), axis[2].at(x, y, z)};
  }
  Volume<Vtq32f> axis[3];
};

template <class T>
VtqStatus CallRemap(CodePath path, const Volume<T>& src, VtqCuboid srcVOI, const Maps& maps,
                    Volume<T>& dst, int code) {
  return RemapFn<T>(path)(src.constSlices(), src.size(), src.rowStep(), srcVOI,
                          maps.axis[0].constSlices(), maps.axis[1].constSlices(),
                          maps.axis[2].constSlices(), maps.axis[0].rowStep(), dst.slices(),
                          dst.rowStep(), dst.size(), code);
}

template <class T>
VtqStatus CallWarp(CodePath path, const Volume<T>& src, VtqCuboid srcVOI, Volume<T>& dst,
                   VtqCuboid dstVOI, const double (&coeffs)[3][4], int code) {
  return WarpFn<T>(path)(src.constSlices(), src.size(), src.rowStep(), srcVOI, dst.slices(),
                         dst.rowStep(), dstVOI, coeffs, code, nullptr);
}

// The source as the reference sees it: trimmed bounds and the mode that applies.
struct RefSource {
  int axes;  // 2 for a single-slice source
  int lo[3], hi[3];
  int code;
};

inline RefSource MakeRefSource(VtqVolumeSize v, VtqCuboid voi, int code) {
  const int axes = v.depth == 1 ? 2 : 3;
  if (axes == 2) voi.z = 0, voi.depth = 1;
  RefSource r = {axes,
                 {voi.x, voi.y, voi.z},
                 {voi.x + std::min(voi.width, v.width - voi.x) - 1,
                  voi.y + std::min(voi.height, v.height - voi.y) - 1,
                  voi.z + std::min(voi.depth, v.depth - voi.z) - 1},
                 code};
  const int smallest = std::min({v.width, v.height, axes == 3 ? v.depth : v.width});
  if (r.code >= 4 && smallest < 4) r.code = 2;
  if (smallest < 2) r.code = 1;
  return r;
}

// Kernel of a cubic code at distance d in [0, 2], from the tap weights of a fraction.
inline double RefKernel(int code, double d) {
  double w[4];
  if (d < 1) {
    ReferenceCubicWeights(code, d, w);
    return w[1];
  }
  ReferenceCubicWeights(code, d - 1, w);
  return w[0];
}

// Weight of a tap at distance d, interpolated between the kernel's samples every 1/100.
inline double RefTableWeight(int code, double d) {
  const double u = 100 * std::min(d, 2.0);
  const double i = std::min(std::floor(u), 199.0);
  const double lo = RefKernel(code, i / 100), hi = RefKernel(code, (i + 1) / 100);
  return lo + (hi - lo) * (u - i);
}

// Taps and weights of one axis.
struct RefAxis {
  int count;
  int index[4];
  double weight[4];
  bool border;
};

inline RefAxis RefTaps(int code, double m, int hi) {
  const int i = static_cast<int>(m);
  if (code == 1) return {1, {static_cast<int>(std::nearbyint(m))}, {1}, false};
  if (code == 2) {
    int j = i == hi ? i - 1 : i;
    if (j < 0) j = 0;
    return {2, {j, j + 1}, {1 - (m - j), m - j}, false};
  }
  const double t = m - i;
  RefAxis a = {4, {i - 1, i, i + 1, i + 2}, {}, false};
  if (i < 1) {
    a = {4, {0, 0, 1, 2}, {}, true};
  } else if (i == hi - 1) {
    a.index[3] = i + 1, a.border = true;
  } else if (i >= hi) {
    a.index[2] = a.index[3] = i, a.border = true;
  }
  for (int k = 0; k < 4; ++k) a.weight[k] = RefTableWeight(code, std::abs(k - 1 - t));
  return a;
}

// The stored value of one voxel sampled at m (x, y, z; z ignored for a planar source), as a
// double, or false when the position is outside the bounds.
template <class T>
bool RefSample(const Volume<T>& src, const RefSource& s, const double (&m)[3], double* out) {
  for (int a = 0; a < s.axes; ++a) {
    if (!(m[a] >= s.lo[a] && m[a] <= s.hi[a])) return false;
  }
  RefAxis ax[3];
  for (int a = 0; a < 3; ++a) {
    ax[a] = a < s.axes ? RefTaps(s.code, m[a], s.hi[a]) : RefAxis{1, {0}, {1}, false};
  }
  double sum = 0;
  for (int kz = 0; kz < ax[2].count; ++kz)
    for (int ky = 0; ky < ax[1].count; ++ky)
      for (int kx = 0; kx < ax[0].count; ++kx)
        sum += ax[0].weight[kx] * ax[1].weight[ky] * ax[2].weight[kz] *
               double(src.at(ax[0].index[kx], ax[1].index[ky], ax[2].index[kz]));
  if constexpr (std::is_same_v<T, Vtq32f>) {
    *out = sum;
  } else if (std::is_same_v<T, Vtq8u> && s.code >= 4 &&
             (ax[0].border || ax[1].border || ax[2].border)) {
    *out = std::clamp(std::trunc(sum + 0.5000001), 0.0, 255.0);
  } else {
    *out = std::nearbyint(std::clamp(sum, 0.0, Highest<T>()));
  }
  return true;
}

// Bound of a 32f result against the reference, relative to the largest source magnitude
// (1 here): the float weights and sums of 64 taps stay well below it.
inline constexpr double kFloatBound = 0x1p-17;

// Compares a destination with the reference at every voxel: voxels sampled inside within the
// bound (exact for nearest; integers within 1, a sum near a half may round either way in
// float), voxels outside untouched (their bytes still kUntouched). `position(x, y, z, m)`
// gives the source position of a destination voxel, or false for a voxel not to compare.
template <class T, class Position>
::testing::AssertionResult MatchesReference(const Volume<T>& src, const RefSource& s,
                                            const Volume<T>& dst, VtqCuboid region,
                                            Position position, double floatBound = kFloatBound) {
  for (int z = region.z; z < region.z + region.depth; ++z)
    for (int y = region.y; y < region.y + region.height; ++y)
      for (int x = region.x; x < region.x + region.width; ++x) {
        double m[3];
        if (!position(x, y, z, m)) continue;
        double want = 0;
        const T got = dst.at(x, y, z);
        const bool inside = RefSample(src, s, m, &want);
        T untouched;
        std::memset(&untouched, kUntouched, sizeof(T));
        bool ok;
        if (!inside) {
          ok = std::memcmp(&got, &untouched, sizeof(T)) == 0;
        } else if (s.code == 1) {
          ok = double(got) == want || (std::isnan(want) && std::isnan(double(got)));
        } else {
          const double bound = std::is_same_v<T, Vtq32f> ? floatBound : 1.0;
          ok = std::abs(double(got) - want) <= bound;
        }
        if (!ok) {
          return ::testing::AssertionFailure()
                 << "voxel " << x << "," << y << "," << z << " at " << m[0] << "," << m[1] << ","
                 << m[2] << (inside ? " inside" : " outside") << ": got " << double(got)
                 << ", want " << want;
        }
      }
  return ::testing::AssertionSuccess();
}

}  // namespace vtqr::test

#endif  // VTQR_TESTS_VOLUME_REMAP_TEST_UTIL_H_
