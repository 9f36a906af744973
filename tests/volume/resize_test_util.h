// Shared by the resize tests: volumes in either layout, calls through either column of the
// dispatch table, and a per-voxel reference in double.
//
// The reference evaluates each destination voxel directly: its source position from the
// inverse map, then the sum over all taps of the product of the three axis weights times the
// voxel, with tap indices clamped to the VOI. Its weights come from other formulas than the
// library's kernels of the distance: the Lagrange basis polynomials through -1, 0, 1, 2, and
// the Mitchell-Netravali family written as polynomials in the fraction t.
#ifndef VTQR_TESTS_VOLUME_RESIZE_TEST_UTIL_H_
#define VTQR_TESTS_VOLUME_RESIZE_TEST_UTIL_H_

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <type_traits>
#include <vector>

#include "test_util.h"
#include "vtqcore.h"
#include "vtqr/volume.h"

namespace vtqr::test {

inline constexpr int kCodes[] = {vtqInterNearest,       vtqInterLinear,
                                 vtqInterCubicLagrange,  vtqInterCubicBSpline,
                                 vtqInterCubicCatmullRom, vtqInterCubicB05C03};

class ThreadCount {
 public:
  explicit ThreadCount(int count) { vtqSetNumThreads(count); }
  ~ThreadCount() { vtqSetNumThreads(0); }
};

enum class Layout { kBlock, kSlices };

// A volume with padded rows, in one block, viewable as V or PV. With `flipped`, rows and
// planes are stored last-first and addressed through negative steps from the last ones.
template <class T>
class Volume {
 public:
  Volume(VtqVolumeSize size, bool flipped = false, int rowPad = 3)
      : size_(size),
        rowStride_(static_cast<size_t>(size.width + rowPad) * sizeof(T)),
        planeStride_(rowStride_ * static_cast<size_t>(size.height) + 16),
        bytes_(planeStride_ * static_cast<size_t>(size.depth) + 64),
        flipped_(flipped) {
    for (int z = 0; z < size.depth; ++z) slices_.push_back(SliceStart(z));
  }

  VtqVolumeSize size() const { return size_; }
  T* base() { return SliceStart(0); }
  const T* base() const { return const_cast<Volume*>(this)->SliceStart(0); }
  int rowStep() const { return Signed(rowStride_); }
  int planeStep() const { return Signed(planeStride_); }
  T* const* slices() { return slices_.data(); }
  const T* const* constSlices() const {
    constSlices_.assign(slices_.begin(), slices_.end());
    return constSlices_.data();
  }

  T& at(int x, int y, int z) {
    return reinterpret_cast<T*>(reinterpret_cast<char*>(slices_[z]) +
                                static_cast<ptrdiff_t>(y) * rowStep())[x];
  }
  T at(int x, int y, int z) const { return const_cast<Volume*>(this)->at(x, y, z); }

  // Every byte of the storage, padding included: what a call may not touch.
  std::vector<uint8_t>& bytes() { return bytes_; }

  template <class F>
  void Fill(F value) {
    for (int z = 0; z < size_.depth; ++z)
      for (int y = 0; y < size_.height; ++y)
        for (int x = 0; x < size_.width; ++x) at(x, y, z) = value(x, y, z);
  }

 private:
  int Signed(size_t stride) const {
    return flipped_ ? -static_cast<int>(stride) : static_cast<int>(stride);
  }
  T* SliceStart(int z) {
    const size_t plane = flipped_ ? static_cast<size_t>(size_.depth - 1 - z) : z;
    const size_t lastRow = flipped_ ? static_cast<size_t>(size_.height - 1) * rowStride_ : 0;
    return reinterpret_cast<T*>(bytes_.data() + 16 + plane * planeStride_ + lastRow);
  }

  VtqVolumeSize size_;
  size_t rowStride_, planeStride_;
  std::vector<uint8_t> bytes_;
  bool flipped_;
  std::vector<T*> slices_;
  mutable std::vector<const T*> constSlices_;
};

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

// One resize call through column `path`, in either layout.
template <class T>
VtqStatus CallResize(CodePath path, Layout layout, const Volume<T>& src, VtqCuboid srcVOI,
                     Volume<T>& dst, VtqCuboid dstVOI, const ResizeParams& p, Vtq8u* buffer) {
  if (layout == Layout::kBlock) {
    return BlockResize<T>(path)(src.base(), src.size(), src.rowStep(), src.planeStep(), srcVOI,
                                dst.base(), dst.rowStep(), dst.planeStep(), dstVOI, p.factor[0],
                                p.factor[1], p.factor[2], p.shift[0], p.shift[1], p.shift[2],
                                p.interpolation, buffer);
  }
  return SliceResize<T>(path)(src.constSlices(), src.size(), src.rowStep(), srcVOI,
                              dst.slices(), dst.rowStep(), dstVOI, p.factor[0], p.factor[1],
                              p.factor[2], p.shift[0], p.shift[1], p.shift[2], p.interpolation,
                              buffer);
}

inline int BufferSize(VtqCuboid srcVOI, VtqCuboid dstVOI, int interpolation) {
  int size = -1;
  EXPECT_EQ(vtqStsOk, kDispatchTable.ResizeGetBufSize[kPathU8](&srcVOI, &dstVOI, 1,
                                                                interpolation, &size));
  return size;
}

// Destination region along one axis, written from the formula as a user would: [start, end).
struct Span {
  int64_t start, end;
};
inline Span RegionAxis(int o, int e, int dO, int dE, double f, double shift) {
  const double a = std::max(o * f + shift, double(dO));
  const double b = std::min((o + e) * f + shift, double(dO) + dE);
  return {static_cast<int64_t>(std::trunc(a + 0.4999999999)),
          static_cast<int64_t>(std::trunc(b + 0.5000000001))};
}

// Axis weights of the reference for a fraction t of the position i + t, taps i-1 .. i+2.
inline void ReferenceCubicWeights(int code, double t, double w[4]) {
  if (code == vtqInterCubicLagrange) {
    w[0] = -t * (t - 1) * (t - 2) / 6;
    w[1] = (t + 1) * (t - 1) * (t - 2) / 2;
    w[2] = -(t + 1) * t * (t - 2) / 2;
    w[3] = (t + 1) * t * (t - 1) / 6;
    return;
  }
  const double b = code == vtqInterCubicBSpline ? 1.0 : code == vtqInterCubicCatmullRom ? 0.0 : 0.5;
  const double c = code == vtqInterCubicBSpline ? 0.0 : code == vtqInterCubicCatmullRom ? 0.5 : 0.3;
  const double t2 = t * t, t3 = t2 * t;
  w[0] = (-b / 6 - c) * t3 + (b / 2 + 2 * c) * t2 + (-b / 2 - c) * t + b / 6;
  w[1] = (2 - 1.5 * b - c) * t3 + (-3 + 2 * b + c) * t2 + (1 - b / 3);
  w[2] = (-2 + 1.5 * b + c) * t3 + (3 - 2.5 * b - 2 * c) * t2 + (b / 2 + c) * t + b / 6;
  w[3] = (b / 6 + c) * t3 - c * t2;
}

// Taps (clamped voxel indices) and weights along one axis for destination index d.
struct AxisTaps {
  int count = 0;
  int64_t index[4];
  double weight[4];
};
inline AxisTaps ReferenceTaps(int code, int64_t d, double f, double shift, int lo, int hi) {
  const double s = static_cast<double>(d) * (1.0 / f) + (-shift / f);
  auto clamp = [&](double i) { return static_cast<int64_t>(std::clamp(i, double(lo), double(hi))); };
  AxisTaps taps;
  const double i = std::floor(s), t = s - i;
  if (code == vtqInterNearest) {
    taps.count = 1;
    taps.index[0] = clamp(std::ceil(s - 0.5));
    taps.weight[0] = 1.0;
  } else if (code == vtqInterLinear) {
    taps.count = 2;
    taps.index[0] = clamp(i);
    taps.index[1] = clamp(i + 1);
    taps.weight[0] = 1 - t;
    taps.weight[1] = t;
  } else {
    taps.count = 4;
    ReferenceCubicWeights(code, t, taps.weight);
    for (int k = 0; k < 4; ++k) taps.index[k] = clamp(i - 1 + k);
  }
  return taps;
}

// Reference resize: the value of every voxel of the destination region, x fastest, in
// double, before any rounding to T. Also returns the region.
template <class T>
std::vector<double> ReferenceResize(const Volume<T>& src, VtqCuboid srcVOI, VtqCuboid dstVOI,
                                    const ResizeParams& p, Span region[3]) {
  const VtqVolumeSize vs = src.size();
  const int o[3] = {srcVOI.x, srcVOI.y, srcVOI.z};
  const int e[3] = {std::min(srcVOI.width, vs.width - srcVOI.x),
                    std::min(srcVOI.height, vs.height - srcVOI.y),
                    std::min(srcVOI.depth, vs.depth - srcVOI.z)};
  const int dO[3] = {dstVOI.x, dstVOI.y, dstVOI.z};
  const int dE[3] = {dstVOI.width, dstVOI.height, dstVOI.depth};
  std::vector<AxisTaps> taps[3];
  for (int a = 0; a < 3; ++a) {
    region[a] = RegionAxis(o[a], e[a], dO[a], dE[a], p.factor[a], p.shift[a]);
    for (int64_t d = region[a].start; d < region[a].end; ++d) {
      taps[a].push_back(ReferenceTaps(p.interpolation, d, p.factor[a], p.shift[a], o[a],
                                      o[a] + e[a] - 1));
    }
  }
  std::vector<double> out;
  for (const AxisTaps& tz : taps[2]) {
    for (const AxisTaps& ty : taps[1]) {
      for (const AxisTaps& tx : taps[0]) {
        double sum = 0.0;
        for (int kz = 0; kz < tz.count; ++kz)
          for (int ky = 0; ky < ty.count; ++ky)
            for (int kx = 0; kx < tx.count; ++kx)
              sum += tz.weight[kz] * ty.weight[ky] * tx.weight[kx] *
                     static_cast<double>(src.at(static_cast<int>(tx.index[kx]),
                                                static_cast<int>(ty.index[ky]),
                                                static_cast<int>(tz.index[kz])));
        out.push_back(sum);
      }
    }
  }
  return out;
}

// Random voxels: the full range of the integer types, [-1, 1) for floats.
template <class T>
void FillRandom(Volume<T>& v, uint32_t seed) {
  std::mt19937 rng(seed);
  v.Fill([&](int, int, int) {
    if constexpr (std::is_same_v<T, Vtq32f>) {
      return std::uniform_real_distribution<float>(-1.0f, 1.0f)(rng);
    } else {
      return static_cast<T>(std::uniform_int_distribution<int>(0, (1 << (8 * sizeof(T))) - 1)(rng));
    }
  });
}

// The byte every destination voxel starts as, so that untouched voxels can be recognised.
inline constexpr uint8_t kUntouched = 0xA5;

}  // namespace vtqr::test

#endif  // VTQR_TESTS_VOLUME_RESIZE_TEST_UTIL_H_
