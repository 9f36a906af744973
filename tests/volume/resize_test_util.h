// Shared by the resize tests: volumes in either layout, calls through either column of the
// dispatch table, and a per-voxel reference in double.
//
// The reference evaluates each destination voxel directly: its source position from the
// inverse map, then the sum over all taps of the product of the three axis weights times the
// voxel, tap indices clamped to the VOI. Its weights come from other formulas than the
// library's kernels of the distance: the Lagrange basis polynomials through -1, 0, 1, 2, and
// the Mitchell-Netravali family as polynomials in the fraction t.
#ifndef VTQR_TESTS_VOLUME_RESIZE_TEST_UTIL_H_
#define VTQR_TESTS_VOLUME_RESIZE_TEST_UTIL_H_

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <type_traits>
#include <vector>

#include "test_util.h"
#include "vtqcore.h"
#include "vtqr/volume.h"

namespace vtqr::test {

inline constexpr int kCodes[] = {1, 2, 4, 5, 6, 7};

// The byte every destination starts as, so that untouched voxels can be recognised.
inline constexpr uint8_t kUntouched = 0xA5;

template <class T>
double Highest() {
  return std::is_same_v<T, Vtq32f> ? 0.0 : double((1 << (8 * sizeof(T))) - 1);
}

enum class Layout { kBlock, kSlices };

// A volume with padded rows and planes in one block, viewable as V or PV. A flipped volume
// stores its rows and planes last-first and is addressed through negative steps.
template <class T>
class Volume {
 public:
  explicit Volume(VtqVolumeSize size, bool flipped = false)
      : size_(size),
        row_(static_cast<int>((size.width + 3) * sizeof(T))),
        plane_(row_ * size.height + 16),
        bytes_(static_cast<size_t>(plane_) * size.depth + 64, 0) {
    for (int z = 0; z < size.depth; ++z) {
      const int plane = flipped ? size.depth - 1 - z : z;
      const int row = flipped ? size.height - 1 : 0;
      slices_.push_back(reinterpret_cast<T*>(&bytes_[16 + size_t(plane) * plane_ + row * row_]));
    }
    if (flipped) row_ = -row_, plane_ = -plane_;
  }
  VtqVolumeSize size() const { return size_; }
  int rowStep() const { return row_; }
  int planeStep() const { return plane_; }
  T* base() const { return slices_[0]; }
  T* const* slices() const { return slices_.data(); }
  const T* const* constSlices() const { return const_cast<const T* const*>(slices_.data()); }
  T& at(int x, int y, int z) const {
    return reinterpret_cast<T*>(reinterpret_cast<char*>(slices_[z]) + ptrdiff_t{y} * row_)[x];
  }
  template <class F>
  void Fill(F value) {
    for (int z = 0; z < size_.depth; ++z)
      for (int y = 0; y < size_.height; ++y)
        for (int x = 0; x < size_.width; ++x) at(x, y, z) = static_cast<T>(value(x, y, z));
  }
  // The voxels, x fastest.
  std::vector<T> voxels() const {
    std::vector<T> all;
    for (int z = 0; z < size_.depth; ++z)
      for (int y = 0; y < size_.height; ++y)
        for (int x = 0; x < size_.width; ++x) all.push_back(at(x, y, z));
    return all;
  }
  // Every byte of the storage, padding included.
  std::vector<uint8_t>& bytes() { return bytes_; }

 private:
  VtqVolumeSize size_;
  int row_, plane_;
  std::vector<uint8_t> bytes_;
  std::vector<T*> slices_;
};

// Random voxels: the full range of the integer types, [-1, 1) for floats.
template <class T>
void FillRandom(Volume<T>& v, uint32_t seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> unit(-1.0, 1.0);
  v.Fill([&](int, int, int) {
    const double u = unit(rng);
    return std::is_same_v<T, Vtq32f> ? u : std::floor((u + 1) / 2 * (Highest<T>() + 1));
  });
}

struct ResizeParams {
  double factor[3];
  double shift[3];
  int interpolation;
};

// The V and PV entry points of element type T in column `path`.
template <class T>
auto BlockResize(CodePath path) {
  if constexpr (std::is_same_v<T, Vtq8u>) return kDispatchTable.Resize_8u_C1V[path];
  if constexpr (std::is_same_v<T, Vtq16u>) return kDispatchTable.Resize_16u_C1V[path];
  if constexpr (std::is_same_v<T, Vtq32f>) return kDispatchTable.Resize_32f_C1V[path];
}
template <class T>
auto SliceResize(CodePath path) {
  if constexpr (std::is_same_v<T, Vtq8u>) return kDispatchTable.Resize_8u_C1PV[path];
  if constexpr (std::is_same_v<T, Vtq16u>) return kDispatchTable.Resize_16u_C1PV[path];
  if constexpr (std::is_same_v<T, Vtq32f>) return kDispatchTable.Resize_32f_C1PV[path];
}

template <class T>
VtqStatus CallResize(CodePath path, Layout layout, const Volume<T>& src, VtqCuboid srcVOI,
                     Volume<T>& dst, VtqCuboid dstVOI, const ResizeParams& p, Vtq8u* buffer) {
  const double* f = p.factor;
  const double* s = p.shift;
  if (layout == Layout::kBlock) {
    return BlockResize<T>(path)(src.base(), src.size(), src.rowStep(), src.planeStep(), srcVOI,
                                dst.base(), dst.rowStep(), dst.planeStep(), dstVOI, f[0], f[1],
                                f[2], s[0], s[1], s[2], p.interpolation, buffer);
  }
  return SliceResize<T>(path)(src.constSlices(), src.size(), src.rowStep(), srcVOI, dst.slices(),
                              dst.rowStep(), dstVOI, f[0], f[1], f[2], s[0], s[1], s[2],
                              p.interpolation, buffer);
}

// A work buffer for the current thread count.
inline std::vector<Vtq8u> Buffer(VtqCuboid srcVOI, VtqCuboid dstVOI, int interpolation) {
  int size = 0;
  EXPECT_EQ(vtqStsOk,
            kDispatchTable.ResizeGetBufSize[kPathU8](&srcVOI, &dstVOI, 1, interpolation, &size));
  return std::vector<Vtq8u>(static_cast<size_t>(size));
}

// Weights of the taps i-1 .. i+2 for the position i + t.
inline void ReferenceCubicWeights(int code, double t, double w[4]) {
  if (code == vtqInterCubicLagrange) {
    w[0] = -t * (t - 1) * (t - 2) / 6;
    w[1] = (t + 1) * (t - 1) * (t - 2) / 2;
    w[2] = -(t + 1) * t * (t - 2) / 2;
    w[3] = (t + 1) * t * (t - 1) / 6;
    return;
  }
  const double b = code == 5 ? 1.0 : code == 6 ? 0.0 : 0.5;
  const double c = code == 5 ? 0.0 : code == 6 ? 0.5 : 0.3;
  const double t2 = t * t, t3 = t2 * t;
  w[0] = (-b / 6 - c) * t3 + (b / 2 + 2 * c) * t2 + (-b / 2 - c) * t + b / 6;
  w[1] = (2 - 1.5 * b - c) * t3 + (-3 + 2 * b + c) * t2 + (1 - b / 3);
  w[2] = (-2 + 1.5 * b + c) * t3 + (3 - 2.5 * b - 2 * c) * t2 + (b / 2 + c) * t + b / 6;
  w[3] = (b / 6 + c) * t3 - c * t2;
}

// Clamped tap indices and weights along one axis for destination index d.
struct AxisTaps {
  int count;
  int index[4];
  double weight[4];
};
inline AxisTaps ReferenceTaps(int code, int64_t d, double f, double shift, int lo, int hi) {
  const double s = static_cast<double>(d) * (1.0 / f) + (-shift / f);
  const double i = std::floor(s), t = s - i;
  auto clamp = [&](double v) { return static_cast<int>(std::clamp(v, double(lo), double(hi))); };
  if (code == vtqInterNearest) return {1, {clamp(std::ceil(s - 0.5))}, {1.0}};
  if (code == vtqInterLinear) return {2, {clamp(i), clamp(i + 1)}, {1 - t, t}};
  AxisTaps taps = {4, {clamp(i - 1), clamp(i), clamp(i + 1), clamp(i + 2)}, {}};
  ReferenceCubicWeights(code, t, taps.weight);
  return taps;
}

// Destination region [start, end) along one axis, from the documented formula.
struct Span {
  int64_t start, end;
};

// The value of every voxel of the destination region, x fastest, in double before any
// rounding to T; the region goes to `region`.
template <class T>
std::vector<double> ReferenceResize(const Volume<T>& src, VtqCuboid srcVOI, VtqCuboid dstVOI,
                                    const ResizeParams& p, Span region[3]) {
  const VtqVolumeSize v = src.size();
  const int o[3] = {srcVOI.x, srcVOI.y, srcVOI.z};
  const int e[3] = {std::min(srcVOI.width, v.width - o[0]),
                    std::min(srcVOI.height, v.height - o[1]),
                    std::min(srcVOI.depth, v.depth - o[2])};
  const int dO[3] = {dstVOI.x, dstVOI.y, dstVOI.z};
  const int dE[3] = {dstVOI.width, dstVOI.height, dstVOI.depth};
  std::vector<AxisTaps> taps[3];
  for (int a = 0; a < 3; ++a) {
    const double first = std::max(o[a] * p.factor[a] + p.shift[a], double(dO[a]));
    const double last = std::min((o[a] + e[a]) * p.factor[a] + p.shift[a], double(dO[a]) + dE[a]);
    region[a] = {int64_t(std::trunc(first + 0.4999999999)),
                 int64_t(std::trunc(last + 0.5000000001))};
    for (int64_t d = region[a].start; d < region[a].end; ++d) {
      taps[a].push_back(
          ReferenceTaps(p.interpolation, d, p.factor[a], p.shift[a], o[a], o[a] + e[a] - 1));
    }
  }
  std::vector<double> out;
  for (const AxisTaps& tz : taps[2])
    for (const AxisTaps& ty : taps[1])
      for (const AxisTaps& tx : taps[0]) {
        double sum = 0.0;
        for (int kz = 0; kz < tz.count; ++kz)
          for (int ky = 0; ky < ty.count; ++ky)
            for (int kx = 0; kx < tx.count; ++kx)
              sum += tz.weight[kz] * ty.weight[ky] * tx.weight[kx] *
                     double(src.at(tx.index[kx], ty.index[ky], tz.index[kz]));
        out.push_back(sum);
      }
  return out;
}

}  // namespace vtqr::test

#endif  // VTQR_TESTS_VOLUME_RESIZE_TEST_UTIL_H_
