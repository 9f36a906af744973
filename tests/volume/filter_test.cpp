// Filter: results against an exact reference (the documented sum in 64 bits, its quotient
// rounded by integer floor division, a method neither of the library's two rules uses) for
// kernels from 1x1x1 to 7x7x7, anchors at corners, centre and outside, divisors of both rules
// and signs, ties, saturation, 32- and 64-bit sums; the same bits on either path and thread
// count.
#include <gtest/gtest.h>

#include "volume/volume_test_util.h"

namespace vtqr::test {
namespace {

constexpr Vtq16s kUntouched16 = -23131;  // 0xA5A5, as Volume's kUntouched bytes

// The source region [a - (n - 1), size - 1 + a] per axis of a filter call, addressed as the
// filter addresses it (slices()[z] + y * rowStep() + x * 2 bytes, coordinates negative where
// the region's are). Everything outside it is poisoned under AddressSanitizer, so that any
// read there fails, even one multiplied by a zero weight.
class Source16s {
 public:
  Source16s(VtqVolumeSize dst, VtqVolumeSize k, VtqPoint3D a)
      : lo_{a.x - (k.width - 1), a.y - (k.height - 1), a.z - (k.depth - 1)},
        hi_{dst.width - 1 + a.x, dst.height - 1 + a.y, dst.depth - 1 + a.z},
        row_((hi_.x - lo_.x + 4) / 4 * 4 + 8),
        slice_(row_ * (hi_.y - lo_.y + 1) + 8),
        words_(size_t(slice_) * (hi_.z - lo_.z + 1) + 8) {
    VTQR_POISON(words_.data(), words_.size() * 2);
    for (int z = lo_.z; z <= hi_.z; ++z) {  // where voxel (0, 0, z) would be
      const auto first = reinterpret_cast<intptr_t>(&words_[size_t(z - lo_.z) * slice_]);
      slices_.push_back(reinterpret_cast<Vtq16s*>(first - (intptr_t{lo_.y} * row_ + lo_.x) * 2));
      for (int y = lo_.y; y <= hi_.y; ++y) VTQR_UNPOISON(&at(lo_.x, y, z), (hi_.x - lo_.x + 1) * 2);
    }
  }
  ~Source16s() { VTQR_UNPOISON(words_.data(), words_.size() * 2); }
  Source16s(const Source16s&) = delete;

  int rowStep() const { return row_ * 2; }
  const Vtq16s* const* constSlices() const { return slices_.data() - lo_.z; }
  Vtq16s& at(int64_t x, int64_t y, int64_t z) const {
    return reinterpret_cast<Vtq16s*>(reinterpret_cast<intptr_t>(slices_[z - lo_.z]) +
                                     y * rowStep())[x];
  }
  template <class F>
  void Fill(F value) {
    for (int z = lo_.z; z <= hi_.z; ++z)
      for (int y = lo_.y; y <= hi_.y; ++y)
        for (int x = lo_.x; x <= hi_.x; ++x) at(x, y, z) = value(x, y, z);
  }

 private:
  VtqPoint3D lo_, hi_;
  int row_, slice_;
  std::vector<Vtq16s> words_;
  std::vector<Vtq16s*> slices_;
};

// The exact quotient sum / divisor rounded to nearest, halves to even, saturated.
Vtq16s ReferenceRound(int64_t sum, int64_t divisor) {
  if (divisor < 0) sum = -sum, divisor = -divisor;
  int64_t q = sum / divisor, r = sum % divisor;
  if (r < 0) q -= 1, r += divisor;  // floor division: 0 <= r < divisor
  if (2 * r > divisor || (2 * r == divisor && (q & 1) != 0)) q += 1;
  return static_cast<Vtq16s>(std::clamp<int64_t>(q, -32768, 32767));
}

// One filter call with a buffer of exactly the reported size.
VtqStatus CallFilter(CodePath path, const Source16s& src, Volume<Vtq16s>& dst, VtqVolumeSize size,
                     const std::vector<Vtq16s>& kernel, VtqVolumeSize k, VtqPoint3D anchor,
                     int divisor) {
  int bytes = 0;
  EXPECT_EQ(vtqStsOk, kDispatchTable.FilterGetBufSize[path](&size, &k, 1, &bytes));
  ExactBuffer buffer(bytes);
  return kDispatchTable.Filter_16s_C1PV[path](src.constSlices(), src.rowStep(), dst.slices(),
                                              dst.rowStep(), size, kernel.data(), k, anchor,
                                              divisor, buffer.data());
}

// Weights uniform in [-weights, weights], voxels likewise in [-voxels, voxels]; full-range
// voxels also come in runs of both extremes, so that the largest sums and saturation occur.
std::vector<Vtq16s> RandomData(Source16s& src, VtqVolumeSize k, int weights, int voxels,
                               uint32_t seed) {
  std::mt19937 rng(seed);
  std::uniform_int_distribution<int> weight(-weights, weights), voxel(-voxels, voxels), pick(0, 9);
  src.Fill([&](int, int, int) {
    const int p = voxels == 32767 ? pick(rng) : 9;
    return static_cast<Vtq16s>(p == 0 ? -32768 : p == 1 ? 32767 : voxel(rng));
  });
  std::vector<Vtq16s> kernel(size_t(k.width) * k.height * k.depth);
  for (Vtq16s& w : kernel) w = static_cast<Vtq16s>(weight(rng));
  if (weights == 32767) kernel[0] = -32768;  // the one product pair that reaches 2^31
  return kernel;
}

class Filter : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(Filter);

// Small voxels keep most quotients in range, so the rounding shows, with ties in about one
// voxel in |divisor| for the small divisors; full-range voxels saturate both ends. Weight
// limits up to 40 keep sums in 32 bits for every kernel here (7^3 * 40 < 65535); 32767 forces
// 64-bit sums. Divisors mix powers of two (1, 2, 4, 2^20, INT_MIN) with others.
const struct {
  const char* name;
  VtqVolumeSize dst, kernel;
  VtqPoint3D anchor;
  int weights, voxels;  // limits, as RandomData takes them
  int divisors[4];
} kCases[] = {
    // clang-format off
    {"1x1x1", {19, 3, 2}, {1, 1, 1}, {0, 0, 0}, 3, 32767, {1, -1, 2, -6}},
    {"2x1x1 narrow rows", {7, 5, 3}, {2, 1, 1}, {0, 0, 0}, 40, 300, {1, 3, -4, 2}},
    {"3x3x3 centred", {33, 6, 4}, {3, 3, 3}, {1, 1, 1}, 40, 100, {27, 16, -2, 6}},
    {"4x3x2 high corner", {17, 4, 3}, {4, 3, 2}, {3, 2, 1}, 40, 100, {24, -8, 1, -5}},
    {"5x5x5 low corner", {16, 5, 5}, {5, 5, 5}, {0, 0, 0}, 40, 100, {125, 4, -3, 1 << 20}},
    {"6x2x7 outside", {45, 3, 4}, {6, 2, 7}, {-2, 3, 1}, 40, 100, {7, -2, 1, 64}},
    {"7x7x7 centred", {15, 4, 3}, {7, 7, 7}, {3, 3, 3}, 20, 100, {343, 2, -7, INT32_MIN}},
    {"8x1x1 even width", {40, 2, 2}, {8, 1, 1}, {4, 0, 0}, 40, 300, {8, 5, -1, 3}},
    {"1x7x1 column", {9, 6, 3}, {1, 7, 1}, {0, 6, 0}, 40, 300, {7, 2, 1, -9}},
    {"saturating", {24, 3, 2}, {3, 2, 2}, {1, 1, 1}, 4000, 32767, {1, -1, 2, 3}},
    {"full range 7x7x7", {17, 2, 2}, {7, 7, 7}, {3, 3, 3}, 40, 32767, {1 << 16, -3000, 3, 1}},
    {"64-bit sums, 3x3x3", {18, 3, 3}, {3, 3, 3}, {1, 1, 1}, 32767, 32767,
     {1 << 20, 3 << 12, -(1 << 16), 24}},
    {"64-bit sums, 4x2x1", {23, 4, 2}, {4, 2, 1}, {0, 0, 0}, 32767, 3, {2, 6, -2, 1}},
    {"64-bit sums, narrow", {5, 3, 2}, {5, 3, 1}, {4, 2, 0}, 32767, 32767,
     {4096, 5, -3, INT32_MIN}},
    // clang-format on
};

TEST_P(Filter, MatchesTheExactReference) {
  ThreadCount one(1);
  uint32_t seed = 1;
  for (const auto& c : kCases) {
    const VtqPoint3D a = c.anchor;
    const VtqVolumeSize k = c.kernel;
    Source16s src(c.dst, k, a);
    const std::vector<Vtq16s> kernel = RandomData(src, k, c.weights, c.voxels, seed++);
    for (int divisor : c.divisors) {
      Volume<Vtq16s> dst(c.dst);
      ASSERT_EQ(vtqStsOk, CallFilter(path(), src, dst, c.dst, kernel, k, a, divisor));
      for (int z = 0; z < c.dst.depth; ++z)
        for (int y = 0; y < c.dst.height; ++y)
          for (int x = 0; x < c.dst.width; ++x) {
            int64_t sum = 0;
            for (int kz = 0; kz < k.depth; ++kz)
              for (int ky = 0; ky < k.height; ++ky)
                for (int kx = 0; kx < k.width; ++kx)
                  sum += int64_t{kernel[(size_t(kz) * k.height + ky) * k.width + kx]} *
                         src.at(x + a.x - kx, y + a.y - ky, z + a.z - kz);
            ASSERT_EQ(ReferenceRound(sum, divisor), dst.at(x, y, z))
                << c.name << ", divisor " << divisor << ", voxel " << x << "," << y << "," << z;
            dst.at(x, y, z) = kUntouched16;
          }
      EXPECT_TRUE(dst.Untouched()) << c.name << ": wrote outside the destination";
    }
  }
}

// The split over two threads, which only large destinations get, changes no bit, and neither
// does the path.
TEST_P(Filter, SameBitsOnEveryPathAndThreadCount) {
  const VtqVolumeSize size = {37, 17, 16}, k = {4, 3, 3};
  const VtqPoint3D a = {1, 1, 2};
  Source16s src(size, k, a);
  const std::vector<Vtq16s> kernel = RandomData(src, k, 50, 32767, 99);
  for (int divisor : {16, 37}) {
    ExpectSameOnPathsAndThreads(
        path(),
        [&](CodePath p) {
          Volume<Vtq16s> dst(size);
          EXPECT_EQ(vtqStsOk, CallFilter(p, src, dst, size, kernel, k, a, divisor));
          return dst.bytes();
        },
        "divisor " + std::to_string(divisor));
  }
}

}  // namespace
}  // namespace vtqr::test
