// Shared by the resize, remap and warp tests: volumes in either layout, work buffers of exactly
// the reported size, calls through either column of the dispatch table, and per-voxel
// references in double.
//
// The references evaluate each destination voxel on its own: all taps summed at once in double,
// tap weights from other formulas than the library's kernels of the distance (the Lagrange
// basis polynomials through -1, 0, 1, 2, the Mitchell-Netravali family as polynomials in the
// fraction t), tap indices and border substitutions from the documented rules.
#ifndef VTQR_TESTS_VOLUME_VOLUME_TEST_UTIL_H_
#define VTQR_TESTS_VOLUME_VOLUME_TEST_UTIL_H_

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <type_traits>
#include <vector>

#include "test_util.h"
#include "vtqcore.h"
#include "vtqr/volume.h"

namespace vtqr::test {

inline constexpr int kCodes[] = {1, 2, 4, 5, 6, 7};
inline constexpr float kNaNf = std::numeric_limits<float>::quiet_NaN();
inline constexpr float kInff = std::numeric_limits<float>::infinity();

// The byte every destination and buffer starts as, so that untouched bytes can be recognised.
inline constexpr uint8_t kUntouched = 0xA5;

inline bool AllUntouched(const uint8_t* bytes, size_t count) {
  return std::count(bytes, bytes + count, kUntouched) == ptrdiff_t(count);
}

// Runs f.template operator()<T>() for each element type.
template <class F>
void ForEachType(F&& f) {
  f.template operator()<Vtq8u>();
  f.template operator()<Vtq16u>();
  f.template operator()<Vtq32f>();
}

template <class T>
double Highest() {
  return std::is_same_v<T, Vtq32f> ? 0.0 : double((1 << (8 * sizeof(T))) - 1);
}

enum class Layout { kBlock, kSlices };

// A volume with padded rows and planes in one block of kUntouched bytes, viewable as V or PV.
// A flipped volume stores its rows and planes last-first and is addressed through negative steps.
template <class T>
class Volume {
 public:
  explicit Volume(VtqVolumeSize size, bool flipped = false)
      : size_(size),
        row_(static_cast<int>((size.width + 3) * sizeof(T))),
        plane_(row_ * size.height + 16),
        bytes_(static_cast<size_t>(plane_) * size.depth + 64, kUntouched) {
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
  bool Untouched() const { return AllUntouched(bytes_.data(), bytes_.size()); }

 private:
  VtqVolumeSize size_;
  int row_, plane_;
  std::vector<uint8_t> bytes_;
  std::vector<T*> slices_;
};

// A row of a check-order table: a name, a mutation of valid arguments, the expected status.
template <class Call>
struct CheckRow {
  const char* name;
  void (*breakArgs)(Call&);
  VtqStatus status;
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

// A work buffer of exactly `bytes`, starting `misalign` bytes past a cache line. The 64 bytes
// after it are poisoned under AddressSanitizer and, in any build, must keep their pattern.
class ExactBuffer {
 public:
  explicit ExactBuffer(int bytes, size_t misalign = 1)
      : block_(size_t(bytes) + 64 + kTail, kUntouched), bytes_(size_t(bytes)) {
    data_ = block_.data() + (64 + misalign - reinterpret_cast<uintptr_t>(block_.data()) % 64) % 64;
    VTQR_POISON(data_ + bytes_, kTail);
  }
  ~ExactBuffer() {
    VTQR_UNPOISON(data_ + bytes_, kTail);
    EXPECT_TRUE(AllUntouched(data_ + bytes_, kTail)) << "wrote past the reported buffer size";
  }
  ExactBuffer(const ExactBuffer&) = delete;
  ExactBuffer& operator=(const ExactBuffer&) = delete;
  Vtq8u* data() { return data_; }
  bool Untouched() const { return AllUntouched(data_, bytes_); }

 private:
  static constexpr size_t kTail = 64;
  std::vector<Vtq8u> block_;
  size_t bytes_;
  Vtq8u* data_;
};

// Entry points of element type T in column `path`.
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

struct ResizeParams {
  double factor[3];
  double shift[3];
  int interpolation = 0;
};

inline int ResizeBufferSize(VtqCuboid srcVOI, VtqCuboid dstVOI, int interpolation) {
  int size = 0;
  EXPECT_EQ(vtqStsOk,
            kDispatchTable.ResizeGetBufSize[kPathU8](&srcVOI, &dstVOI, 1, interpolation, &size));
  return size;
}

// A resize with a buffer of exactly the reported size for the current thread count.
template <class T>
VtqStatus CallResize(CodePath path, Layout layout, const Volume<T>& src, VtqCuboid srcVOI,
                     Volume<T>& dst, VtqCuboid dstVOI, const ResizeParams& p, size_t misalign = 1) {
  ExactBuffer buffer(ResizeBufferSize(srcVOI, dstVOI, p.interpolation), misalign);
  const double *f = p.factor, *s = p.shift;
  if (layout == Layout::kBlock) {
    return BlockResize<T>(path)(src.base(), src.size(), src.rowStep(), src.planeStep(), srcVOI,
                                dst.base(), dst.rowStep(), dst.planeStep(), dstVOI, f[0], f[1],
                                f[2], s[0], s[1], s[2], p.interpolation, buffer.data());
  }
  return SliceResize<T>(path)(src.constSlices(), src.size(), src.rowStep(), srcVOI, dst.slices(),
                              dst.rowStep(), dstVOI, f[0], f[1], f[2], s[0], s[1], s[2],
                              p.interpolation, buffer.data());
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

// Taps of one axis: indices and weights, and (remap) whether a border replaced a tap.
struct AxisTaps {
  int count;
  int index[4];
  double weight[4];
  bool border = false;
};

template <class T>
double SumOfTaps(const Volume<T>& src, const AxisTaps (&ax)[3]) {
  double sum = 0;
  for (int kz = 0; kz < ax[2].count; ++kz)
    for (int ky = 0; ky < ax[1].count; ++ky)
      for (int kx = 0; kx < ax[0].count; ++kx)
        sum += ax[0].weight[kx] * ax[1].weight[ky] * ax[2].weight[kz] *
               double(src.at(ax[0].index[kx], ax[1].index[ky], ax[2].index[kz]));
  return sum;
}

// Resize: taps along one axis for destination index d, clamped to the VOI [lo, hi].
inline AxisTaps ResizeTaps(int code, int64_t d, double f, double shift, int lo, int hi) {
  const double s = static_cast<double>(d) * (1.0 / f) + (-shift / f);
  const double i = std::floor(s), t = s - i;
  auto clamp = [&](double v) { return static_cast<int>(std::clamp(v, double(lo), double(hi))); };
  if (code == vtqInterNearest) return {1, {clamp(std::ceil(s - 0.5))}, {1.0}};
  if (code == vtqInterLinear) return {2, {clamp(i), clamp(i + 1)}, {1 - t, t}};
  AxisTaps taps = {4, {clamp(i - 1), clamp(i), clamp(i + 1), clamp(i + 2)}, {}};
  ReferenceCubicWeights(code, t, taps.weight);
  return taps;
}

// Destination region [start, end) along one axis.
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
          ResizeTaps(p.interpolation, d, p.factor[a], p.shift[a], o[a], o[a] + e[a] - 1));
    }
  }
  std::vector<double> out;
  for (const AxisTaps& tz : taps[2])
    for (const AxisTaps& ty : taps[1])
      for (const AxisTaps& tx : taps[0]) out.push_back(SumOfTaps(src, {tx, ty, tz}));
  return out;
}

// Remap: the source as the reference sees it, trimmed bounds and the mode that applies.
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

// Weight of a cubic tap at distance d, interpolated between the kernel's samples every 1/100;
// the kernel itself comes from the tap weights of a fraction.
inline double RefTableWeight(int code, double d) {
  auto kernel = [code](double d) {
    double w[4];
    ReferenceCubicWeights(code, d < 1 ? d : d - 1, w);
    return d < 1 ? w[1] : w[0];
  };
  const double u = 100 * std::min(d, 2.0);
  const double i = std::min(std::floor(u), 199.0);
  const double lo = kernel(i / 100), hi = kernel((i + 1) / 100);
  return lo + (hi - lo) * (u - i);
}

inline AxisTaps RemapTaps(int code, double m, int hi) {
  const int i = static_cast<int>(m);
  if (code == 1) return {1, {static_cast<int>(std::nearbyint(m))}, {1}};
  if (code == 2) {
    const int j = std::max(i == hi ? i - 1 : i, 0);
    return {2, {j, j + 1}, {1 - (m - j), m - j}};
  }
  const double t = m - i;
  AxisTaps a = {4, {i - 1, i, i + 1, i + 2}, {}};
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
  AxisTaps ax[3];
  for (int a = 0; a < 3; ++a)
    ax[a] = a < s.axes ? RemapTaps(s.code, m[a], s.hi[a]) : AxisTaps{1, {0}, {1}};
  const double sum = SumOfTaps(src, ax);
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

// Compares a destination with the remap reference at every voxel of `region`: voxels sampled
// inside within the bound (exact for nearest and on whole voxels; integers within 1, as a sum near
// a half may round either way in float), voxels outside untouched. `position(x, y, z, m)` gives the
// source position of a destination voxel, or false for a voxel not to compare.
template <class T, class Position>
::testing::AssertionResult MatchesReference(const Volume<T>& src, const RefSource& s,
                                            const Volume<T>& dst, VtqCuboid region,
                                            Position position, double floatBound = kFloatBound) {
  for (int z = region.z; z < region.z + region.depth; ++z)
    for (int y = region.y; y < region.y + region.height; ++y)
      for (int x = region.x; x < region.x + region.width; ++x) {
        double m[3], want = 0;
        if (!position(x, y, z, m)) continue;
        const T got = dst.at(x, y, z);
        const bool inside = RefSample(src, s, m, &want);
        bool ok;
        if (!inside) {
          ok = AllUntouched(reinterpret_cast<const uint8_t*>(&got), sizeof(T));
        } else if (s.code == 1 || (s.code != 5 && s.code != 7 && m[0] == std::trunc(m[0]) &&
                                   m[1] == std::trunc(m[1]) && m[2] == std::trunc(m[2]))) {
          // Nearest, and the interpolating modes on a whole voxel, copy a voxel.
          ok = double(got) == want || (std::isnan(want) && std::isnan(double(got)));
        } else {
          ok = std::abs(double(got) - want) <= (std::is_same_v<T, Vtq32f> ? floatBound : 1.0);
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

#endif  // VTQR_TESTS_VOLUME_VOLUME_TEST_UTIL_H_
