// Shared by the filter tests: a source holding exactly the border the filter may read, a
// destination whose padding must stay untouched, calls through either column, and the exact
// reference.
//
// The reference follows the documented formula literally (kernel weight (i, j, k) times source
// voxel (x + ax - i, ...), summed in 64 bits) and rounds the exact rational quotient with
// integer floor division, a method neither of the library's two rules uses.
#ifndef VTQR_TESTS_VOLUME_FILTER_TEST_UTIL_H_
#define VTQR_TESTS_VOLUME_FILTER_TEST_UTIL_H_

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "test_util.h"
#include "vtqcore.h"
#include "vtqr/volume.h"

namespace vtqr::test {

inline constexpr Vtq16s kUntouched16 = -23131;  // 0xA5A5

// Voxels (x, y, z) for x in [lo.x, hi.x], likewise y and z, addressed as the filter addresses
// them: slices()[z] + y * rowStep() + x * 2 bytes, with negative coordinates where lo is
// negative. Rows are padded to a multiple of 8 bytes plus 16, and the padding and the space
// between slices are poisoned under AddressSanitizer, so that any read outside the region
// fails there, even one multiplied by a zero weight.
class Block16s {
 public:
  Block16s(VtqPoint3D lo, VtqPoint3D hi)
      : lo_(lo),
        width_(hi.x - lo.x + 1),
        height_(hi.y - lo.y + 1),
        depth_(hi.z - lo.z + 1),
        rowWords_((width_ + 3) / 4 * 4 + 8),
        sliceWords_(rowWords_ * height_ + 8),
        words_(static_cast<size_t>(sliceWords_) * depth_ + 8, kUntouched16) {
    for (int z = 0; z < depth_; ++z) {
      // The address of voxel (0, 0, z); only ever used with offsets back into the region.
      const intptr_t origin = reinterpret_cast<intptr_t>(&words_[size_t(z) * sliceWords_]) -
                              (intptr_t{lo.y} * rowWords_ + lo.x) * 2;
      slices_.push_back(reinterpret_cast<Vtq16s*>(origin));
    }
    for (int z = 0; z < depth_; ++z) {
      for (int y = 0; y < height_; ++y) {
        Vtq16s* row = &words_[size_t(z) * sliceWords_ + size_t(y) * rowWords_];
        VTQR_POISON(row + width_, (rowWords_ - width_) * 2);
      }
      VTQR_POISON(&words_[size_t(z) * sliceWords_ + size_t(height_) * rowWords_], 16);
    }
  }
  ~Block16s() { VTQR_UNPOISON(words_.data(), words_.size() * 2); }
  Block16s(const Block16s&) = delete;
  Block16s& operator=(const Block16s&) = delete;

  int rowStep() const { return rowWords_ * 2; }
  // The slice pointers, indexed by z (negative z allowed where lo.z is).
  Vtq16s* const* slices() const { return slices_.data() - lo_.z; }
  const Vtq16s* const* constSlices() const { return const_cast<const Vtq16s* const*>(slices()); }
  Vtq16s& at(int64_t x, int64_t y, int64_t z) const {
    return reinterpret_cast<Vtq16s*>(reinterpret_cast<intptr_t>(slices()[z]) + y * rowStep())[x];
  }
  template <class F>
  void Fill(F value) {
    for (int z = lo_.z; z < lo_.z + depth_; ++z)
      for (int y = lo_.y; y < lo_.y + height_; ++y)
        for (int x = lo_.x; x < lo_.x + width_; ++x) at(x, y, z) = value(x, y, z);
  }
  // Whether every padding word still holds kUntouched16 (unpoisoned to look).
  bool PaddingUntouched() {
    VTQR_UNPOISON(words_.data(), words_.size() * 2);
    bool untouched = true;
    for (size_t i = 0; i < words_.size(); ++i) {
      const size_t inSlice = i % size_t(sliceWords_);
      const bool padding = i / size_t(sliceWords_) >= size_t(depth_) ||
                           inSlice >= size_t(rowWords_) * height_ ||
                           inSlice % rowWords_ >= size_t(width_);
      if (padding && words_[i] != kUntouched16) untouched = false;
    }
    return untouched;
  }

 private:
  VtqPoint3D lo_;
  int width_, height_, depth_, rowWords_, sliceWords_;
  std::vector<Vtq16s> words_;
  std::vector<Vtq16s*> slices_;
};

// The source region a filter call reads: [a - (n - 1), size - 1 + a] per axis.
inline Block16s SourceFor(VtqVolumeSize dst, VtqVolumeSize kernel, VtqPoint3D a) {
  return Block16s({a.x - (kernel.width - 1), a.y - (kernel.height - 1), a.z - (kernel.depth - 1)},
                  {dst.width - 1 + a.x, dst.height - 1 + a.y, dst.depth - 1 + a.z});
}
inline Block16s DestinationFor(VtqVolumeSize dst) {
  return Block16s({0, 0, 0}, {dst.width - 1, dst.height - 1, dst.depth - 1});
}

// The exact quotient sum / divisor rounded to nearest, halves to even, saturated.
inline Vtq16s ReferenceRound(int64_t sum, int64_t divisor) {
  if (divisor < 0) sum = -sum, divisor = -divisor;
  int64_t q = sum / divisor, r = sum % divisor;
  if (r < 0) q -= 1, r += divisor;  // floor division: 0 <= r < divisor
  if (2 * r > divisor || (2 * r == divisor && (q & 1) != 0)) q += 1;
  return static_cast<Vtq16s>(std::clamp<int64_t>(q, -32768, 32767));
}

inline int64_t ReferenceSum(const Block16s& src, const std::vector<Vtq16s>& kernel, VtqVolumeSize k,
                            VtqPoint3D a, int64_t x, int64_t y, int64_t z) {
  int64_t sum = 0;
  for (int kz = 0; kz < k.depth; ++kz)
    for (int ky = 0; ky < k.height; ++ky)
      for (int kx = 0; kx < k.width; ++kx) {
        sum += int64_t{kernel[(size_t(kz) * k.height + ky) * k.width + kx]} *
               src.at(x + a.x - kx, y + a.y - ky, z + a.z - kz);
      }
  return sum;
}

// One filter call with a buffer of exactly the reported size, starting one byte past a cache
// line; the bytes after it are poisoned and must keep their pattern.
inline VtqStatus CallFilter(CodePath path, const Block16s& src, Block16s& dst, VtqVolumeSize size,
                            const std::vector<Vtq16s>& kernel, VtqVolumeSize k, VtqPoint3D anchor,
                            int divisor) {
  int bytes = 0;
  EXPECT_EQ(vtqStsOk, kDispatchTable.FilterGetBufSize[path](&size, &k, 1, &bytes));
  constexpr size_t kTail = 64;
  std::vector<Vtq8u> block(size_t(bytes) + 64 + kTail, 0xA5);
  Vtq8u* buffer = block.data() + (65 - reinterpret_cast<uintptr_t>(block.data()) % 64) % 64;
  VTQR_POISON(buffer + bytes, kTail);
  const VtqStatus status = kDispatchTable.Filter_16s_C1PV[path](
      src.constSlices(), src.rowStep(), dst.slices(), dst.rowStep(), size, kernel.data(), k, anchor,
      divisor, buffer);
  VTQR_UNPOISON(buffer + bytes, kTail);
  EXPECT_EQ(ptrdiff_t(kTail), std::count(buffer + bytes, buffer + bytes + kTail, 0xA5))
      << "wrote past the reported buffer size";
  return status;
}

}  // namespace vtqr::test

#endif  // VTQR_TESTS_VOLUME_FILTER_TEST_UTIL_H_
