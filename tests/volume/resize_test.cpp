// Resize: values against the double-precision reference, integers as the rounded float results,
// the same bits in every way of calling and with streamed destinations.
#include <gtest/gtest.h>

#include <tuple>

#include "volume/volume_test_util.h"

namespace vtqr::test {
namespace {

class Resize : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(Resize);

enum class Layout { kBlock, kSlices };

struct ResizeParams {
  double factor[3];
  double shift[3];
  int interpolation = 0;
};

int ResizeBufferSize(VtqCuboid srcVOI, VtqCuboid dstVOI, int interpolation) {
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
    return VTQR_TYPED(T, Resize, C1V)[path](src.base(), src.size(), src.rowStep(), src.planeStep(),
                                            srcVOI, dst.base(), dst.rowStep(), dst.planeStep(),
                                            dstVOI, f[0], f[1], f[2], s[0], s[1], s[2],
                                            p.interpolation, buffer.data());
  }
  return VTQR_TYPED(T, Resize, C1PV)[path](src.constSlices(), src.size(), src.rowStep(), srcVOI,
                                           dst.slices(), dst.rowStep(), dstVOI, f[0], f[1], f[2],
                                           s[0], s[1], s[2], p.interpolation, buffer.data());
}

// Taps along one axis for destination index d, clamped to the VOI [lo, hi].
AxisTaps ResizeTaps(int code, int64_t d, double f, double shift, int lo, int hi) {
  const double s = static_cast<double>(d) * (1.0 / f) + (-shift / f);
  const double i = std::floor(s), t = s - i;
  auto clamp = [&](double v) { return static_cast<int>(std::clamp(v, double(lo), double(hi))); };
  if (code == vtqInterNearest) return {1, {clamp(std::ceil(s - 0.5))}, {1.0}};
  if (code == vtqInterLinear) return {2, {clamp(i), clamp(i + 1)}, {1 - t, t}};
  AxisTaps taps = {4, {clamp(i - 1), clamp(i), clamp(i + 1), clamp(i + 2)}, {}};
  ReferenceCubicWeights(code, t, taps.weight);
  return taps;
}

// The value of every voxel of the destination region, x fastest, in double before any rounding
// to T; the region [start, end) of each axis goes to `region`.
template <class T>
std::vector<double> ReferenceResize(const Volume<T>& src, VtqCuboid srcVOI, VtqCuboid dstVOI,
                                    const ResizeParams& p, int64_t (&region)[3][2]) {
  const VtqVolumeSize v = src.size();
  const int o[3] = {srcVOI.x, srcVOI.y, srcVOI.z}, dO[3] = {dstVOI.x, dstVOI.y, dstVOI.z};
  const int e[3] = {std::min(srcVOI.width, v.width - o[0]),
                    std::min(srcVOI.height, v.height - o[1]),
                    std::min(srcVOI.depth, v.depth - o[2])};
  const int dE[3] = {dstVOI.width, dstVOI.height, dstVOI.depth};
  std::vector<AxisTaps> taps[3];
  for (int a = 0; a < 3; ++a) {
    const double first = std::max(o[a] * p.factor[a] + p.shift[a], double(dO[a]));
    const double last = std::min((o[a] + e[a]) * p.factor[a] + p.shift[a], double(dO[a]) + dE[a]);
    region[a][0] = int64_t(std::trunc(first + 0.4999999999));
    region[a][1] = int64_t(std::trunc(last + 0.5000000001));
    for (int64_t d = region[a][0]; d < region[a][1]; ++d)
      taps[a].push_back(
          ResizeTaps(p.interpolation, d, p.factor[a], p.shift[a], o[a], o[a] + e[a] - 1));
  }
  std::vector<double> out;
  for (const AxisTaps& tz : taps[2])
    for (const AxisTaps& ty : taps[1])
      for (const AxisTaps& tx : taps[0]) out.push_back(SumOfTaps(src, {tx, ty, tz}));
  return out;
}

// Bound against the reference, relative to the data's largest value (1 for floats in [-1, 1]):
// the float passes of three axes, with weights rounded to float, measure below 2^-22.
// Integers are the reference clamped and rounded, so they may also be off by half a unit.
constexpr double kRelativeBound = 0x1p-20;

constexpr VtqCuboid kWholeDst = {0, 0, 0, 30, 28, 24};
const struct {
  const char* name;
  VtqCuboid srcVOI;  // in a 9 x 8 x 7 source
  ResizeParams p;    // interpolation filled in per code
  VtqCuboid dstVOI;  // in a 30 x 28 x 24 destination
} kGeometry[] = {
    // clang-format off
    {"shrink", {0, 0, 0, 9, 8, 7}, {{0.5, 0.6, 0.75}, {0, 0, 0}}, kWholeDst},
    {"strong shrink", {0, 0, 0, 9, 8, 7}, {{0.3, 0.25, 0.45}, {1.1, 0, 0.4}}, kWholeDst},
    {"enlarge with shifts", {0, 0, 0, 9, 8, 7}, {{1.5, 2.0, 2.5}, {0.25, -0.5, 1.0}}, kWholeDst},
    {"mixed, interior VOI", {2, 1, 1, 5, 5, 4}, {{3.0, 0.4, 1.0}, {-2.3, 0.7, 0.5}}, kWholeDst},
    {"VOI at the low corner", {0, 0, 0, 3, 2, 4}, {{1.7, 1.3, 0.9}, {0, 0, 0}}, kWholeDst},
    {"past the high corner", {6, 5, 4, 10, 10, 10}, {{2.2, 1.25, 1.6},
     {0.1, 0.3, -0.2}}, kWholeDst},
    {"clipped by the dstVOI", {0, 0, 0, 9, 8, 7}, {{1.5, 1.5, 1.5}, {0, 0, 0}}, {3, 2, 4, 7, 9, 5}},
    // Halves: nearest takes the lower voxel, so that enlarging by 2 repeats every voxel twice.
    {"half-voxel shifts", {0, 0, 0, 9, 8, 7}, {{1, 1, 1}, {0.5, -0.25, 0.75}}, kWholeDst},
    {"one voxel thick, x2", {4, 0, 3, 1, 8, 1}, {{2.0, 1.0, 3.0}, {0, 0, 0}}, kWholeDst},
    // Every position on a voxel centre: the interpolating modes copy the source bit for bit.
    {"factor 1 copies", {1, 0, 2, 8, 8, 5}, {{1, 1, 1}, {2, 3, 0}}, kWholeDst},
    // clang-format on
};

// Every voxel of the region within the bound (exactly where the mode copies voxels), every
// other byte of the destination untouched. Integer results are also, bit for bit, the float
// results of the same values clamped and rounded half to even: the types differ only in loading
// and storing. Two threads, so that each thread's part of the exactly sized buffer is used.
TEST_P(Resize, MatchesTheReference) {
  ThreadCount two(2);
  ForEachType([&]<class T>() {
    Volume<T> src({9, 8, 7});
    Volume<Vtq32f> asFloats({9, 8, 7});
    FillRandom(src, sizeof(T));
    asFloats.Fill([&](int x, int y, int z) { return src.at(x, y, z); });
    for (const auto& g : kGeometry) {
      for (int code : kCodes) {
        SCOPED_TRACE(::testing::Message() << g.name << ", code " << code << ", " << sizeof(T));
        ResizeParams p = g.p;
        p.interpolation = code;
        int64_t r[3][2];
        const std::vector<double> expected = ReferenceResize(src, g.srcVOI, g.dstVOI, p, r);
        Volume<T> dst({30, 28, 24});
        Volume<Vtq32f> floatDst({30, 28, 24});
        ASSERT_EQ(vtqStsOk, CallResize(path(), Layout::kBlock, src, g.srcVOI, dst, g.dstVOI, p));
        ASSERT_EQ(vtqStsOk,
                  CallResize(path(), Layout::kBlock, asFloats, g.srcVOI, floatDst, g.dstVOI, p));
        bool onCentres = true;
        for (int a = 0; a < 3; ++a)
          onCentres &= p.factor[a] == 1 && p.shift[a] == std::trunc(p.shift[a]);
        const bool exact = code == vtqInterNearest || (onCentres && code != 5 && code != 7);
        const double bound = exact                       ? 0.0
                             : std::is_same_v<T, Vtq32f> ? kRelativeBound
                                                         : 0.5 + Highest<T>() * kRelativeBound;
        size_t i = 0;
        for (int64_t z = r[2][0]; z < r[2][1]; ++z)
          for (int64_t y = r[1][0]; y < r[1][1]; ++y)
            for (int64_t x = r[0][0]; x < r[0][1]; ++x, ++i) {
              T& voxel = dst.at(int(x), int(y), int(z));
              const double want = std::is_same_v<T, Vtq32f>
                                      ? expected[i]
                                      : std::clamp(expected[i], 0.0, Highest<T>());
              ASSERT_LE(std::abs(double(voxel) - want), bound) << x << "," << y << "," << z;
              if constexpr (!std::is_same_v<T, Vtq32f>) {
                const double f = floatDst.at(int(x), int(y), int(z));
                ASSERT_EQ(std::nearbyint(std::clamp(f, 0.0, Highest<T>())), voxel)
                    << x << "," << y << "," << z;
              }
              std::memset(&voxel, kUntouched, sizeof(T));
            }
        EXPECT_TRUE(dst.Untouched()) << "a byte outside the destination region was written";
      }
    }
  });
}

// The bits of u8 on one thread with V volumes in every way of calling: V and PV, one and two
// threads, volumes stored upside down and back to front (negative steps), any buffer alignment.
TEST_P(Resize, SameBitsInEveryWayOfCalling) {
  const VtqCuboid srcVOI = {1, 0, 1, 12, 11, 7}, dstVOI = {1, 2, 0, 22, 17, 17};
  ForEachType([&]<class T>() {
    Volume<T> src({13, 11, 9}), flippedSrc({13, 11, 9}, true);
    FillRandom(src, 7);
    flippedSrc.Fill([&](int x, int y, int z) { return src.at(x, y, z); });
    for (int code : kCodes) {
      const ResizeParams p = {{1.7, 1.4, 2.1}, {-0.3, 0.6, 0.2}, code};
      auto run = [&](CodePath path, Layout layout, int threads, bool flipped, size_t misalign) {
        ThreadCount count(threads);
        Volume<T> dst({23, 19, 17}, flipped);
        EXPECT_EQ(vtqStsOk, CallResize(path, layout, flipped ? flippedSrc : src, srcVOI, dst,
                                       dstVOI, p, misalign));
        return dst.voxels();
      };
      const std::vector<T> expected = run(kPathU8, Layout::kBlock, 1, false, 0);
      for (auto [layout, threads, flipped, misalign] : {std::tuple{Layout::kBlock, 1, false, 0},
                                                        {Layout::kSlices, 1, false, 37},
                                                        {Layout::kBlock, 2, false, 1},
                                                        {Layout::kSlices, 2, true, 0},
                                                        {Layout::kBlock, 1, true, 0}}) {
        EXPECT_TRUE(expected == run(path(), layout, threads, flipped, misalign))
            << ::testing::PrintToString(
                   std::tuple{code, sizeof(T), int(layout), threads, flipped, misalign});
      }
    }
  });
}

// A destination of 16 MiB or more goes out with non-temporal stores in 16-byte blocks; in slabs
// of a few slices each call keeps normal stores. The map is absolute, so both give the same
// bits. Rows start off 16-byte boundaries, with heads and tails of every length.
TEST_P(Resize, SlabsEqualOneCall) {
  ThreadCount one(1);
  auto check = [&]<class T>(T, int code, VtqVolumeSize size) {
    SCOPED_TRACE(::testing::Message() << "code " << code << " size " << sizeof(T));
    const VtqCuboid srcVOI = {0, 0, 0, 23, 19, 17};
    const VtqCuboid dstVOI = {3, 1, 0, size.width - 3, size.height - 1, size.depth};
    ASSERT_GE(sizeof(T) * dstVOI.width * dstVOI.height * dstVOI.depth, 16u << 20);
    const ResizeParams p = {
        {size.width / 23.0, size.height / 19.0, size.depth / 17.0}, {0.3, -0.2, 0.1}, code};
    Volume<T> src({23, 19, 17}), whole(size), slabs(size);
    FillRandom(src, 21);
    ASSERT_EQ(vtqStsOk, CallResize(path(), Layout::kBlock, src, srcVOI, whole, dstVOI, p));
    for (VtqCuboid slab = dstVOI; slab.z < size.depth; slab.z += 7) {
      slab.depth = std::min(7, size.depth - slab.z);
      ASSERT_EQ(vtqStsOk, CallResize(path(), Layout::kBlock, src, srcVOI, slabs, slab, p));
    }
    EXPECT_TRUE(whole.bytes() == slabs.bytes());
  };
  check(Vtq8u{}, vtqInterNearest, {255, 259, 260});
  check(Vtq8u{}, vtqInterLinear, {255, 259, 260});
  check(Vtq8u{}, vtqInterCubicB05C03, {255, 259, 260});
  check(Vtq16u{}, vtqInterCubicLagrange, {183, 181, 262});
  check(Vtq32f{}, vtqInterLinear, {133, 131, 252});
}

}  // namespace
}  // namespace vtqr::test
