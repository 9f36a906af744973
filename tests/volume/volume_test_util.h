// Shared by the volume tests: volumes in either layout, work buffers of exactly the reported
// size, entry points by element type, the runners of check tables and of path and thread
// comparisons, and the pieces the per-voxel double references are built from.
#ifndef VTQR_TESTS_VOLUME_VOLUME_TEST_UTIL_H_
#define VTQR_TESTS_VOLUME_VOLUME_TEST_UTIL_H_

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
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
  if constexpr (std::is_same_v<T, Vtq32f>)
    return 0.0;
  else
    return double(std::numeric_limits<T>::max());
}

// The entry of element type T among the 8u, 16u and 32f columns of one family.
template <class T, class E8, class E16, class E32>
const auto& ByType(const E8& e8, const E16& e16, const E32& e32) {
  if constexpr (std::is_same_v<T, Vtq8u>)
    return e8;
  else if constexpr (std::is_same_v<T, Vtq16u>)
    return e16;
  else
    return e32;
}
#define VTQR_TYPED(T, family, layout)                                                  \
  ByType<T>(kDispatchTable.family##_8u_##layout, kDispatchTable.family##_16u_##layout, \
            kDispatchTable.family##_32f_##layout)

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
  const std::vector<uint8_t>& bytes() const { return bytes_; }
  bool Untouched() const { return AllUntouched(bytes_.data(), bytes_.size()); }

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

// A row of a check-order table: a name, a mutation of valid arguments, the expected status.
// Rows that break two things expect the earlier check to win.
template <class Args>
struct CheckRow {
  using Arguments = Args;
  const char* name;
  void (*breakArgs)(Args&);
  VtqStatus status;
};

// Runs every row of the tables through call(args), which returns the status and whether every
// output byte (destination and work buffer) is still untouched; nothing may be written unless
// vtqStsOk.
template <class Call, class... Tables>
void ExpectChecksInOrder(Call call, const std::string& what, const Tables&... tables) {
  auto runTable = [&](const auto& rows) {
    for (const auto& row : rows) {
      typename std::remove_cvref_t<decltype(row)>::Arguments args;
      row.breakArgs(args);
      const auto [status, untouched] = call(args);
      EXPECT_EQ(row.status, status) << row.name << ", " << what;
      EXPECT_TRUE(row.status == vtqStsOk || untouched) << "wrote: " << row.name << ", " << what;
    }
  };
  (runTable(tables), ...);
}

// run(path) on `path` with one and two threads gives what it gives on u8 with one thread.
template <class Run>
void ExpectSameOnPathsAndThreads(CodePath path, Run run, const std::string& what) {
  const auto expected = [&] {
    ThreadCount one(1);
    return run(kPathU8);
  }();
  for (int threads : {1, 2}) {
    ThreadCount count(threads);
    EXPECT_TRUE(expected == run(path)) << what << ", " << threads << " threads";
  }
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
  return VTQR_TYPED(T, Remap, C1PV)[path](src.constSlices(), src.size(), src.rowStep(), srcVOI,
                                          maps.axis[0].constSlices(), maps.axis[1].constSlices(),
                                          maps.axis[2].constSlices(), maps.axis[0].rowStep(),
                                          dst.slices(), dst.rowStep(), dst.size(), code);
}

// Weights of the taps i-1 .. i+2 for the position i + t: the Lagrange basis polynomials through
// -1, 0, 1, 2, or the Mitchell-Netravali family as polynomials in t, not the library's kernels
// of the distance.
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

// All taps of a voxel summed at once in double.
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

}  // namespace vtqr::test

#endif  // VTQR_TESTS_VOLUME_VOLUME_TEST_UTIL_H_
