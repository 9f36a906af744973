// Resize: values against the double-precision reference, integers as the rounded float results,
// the same bits in every way of calling and with streamed destinations; the order of the checks,
// the size and cuboid queries, and the buffer plan within the reported size.
#include <gtest/gtest.h>

#include <tuple>
#include <utility>

#include "volume/resize_scratch.h"
#include "volume/volume_test_util.h"

namespace vtqr::test {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

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

// A resize call's arguments; each row of the check table breaks some of them.
struct Call {
  bool nullSrc = false, nullDst = false, nullBuffer = false;
  VtqVolumeSize srcVolume = {6, 5, 4};
  VtqCuboid srcVOI = {0, 0, 0, 6, 5, 4};
  VtqCuboid dstVOI = {0, 0, 0, 9, 8, 7};
  double f[3] = {1.5, 1.5, 1.5}, s[3] = {0, 0, 0};
  int interpolation = vtqInterCubicCatmullRom;
};

const CheckRow<Call> kCheckRows[] = {
    // clang-format off
    {"valid", [](Call&) {}, vtqStsOk},
    {"VOI past the volume is trimmed", [](Call& c) { c.srcVOI = {2, 1, 1, 40, 40, 40}; }, vtqStsOk},
    {"null pSrc", [](Call& c) { c.nullSrc = true; }, vtqStsErrNullPtr},
    {"null pDst", [](Call& c) { c.nullDst = true; }, vtqStsErrNullPtr},
    {"null pBuffer before size", [](Call& c) { c.nullBuffer = true, c.srcVolume.width = 0; },
     vtqStsErrNullPtr},
    {"srcVolume height -1", [](Call& c) { c.srcVolume.height = -1; }, vtqStsErrSize},
    {"srcVOI x -1", [](Call& c) { c.srcVOI.x = -1; }, vtqStsErrSize},
    {"srcVOI depth 0", [](Call& c) { c.srcVOI.depth = 0; }, vtqStsErrSize},
    {"dstVOI y -1", [](Call& c) { c.dstVOI.y = -1; }, vtqStsErrSize},
    {"dstVOI width 0 before factor", [](Call& c) { c.dstVOI.width = 0, c.f[0] = 0; },
     vtqStsErrSize},
    {"yFactor -2", [](Call& c) { c.f[1] = -2; }, vtqStsErrResizeFactor},
    {"zFactor NaN", [](Call& c) { c.f[2] = kNaN; }, vtqStsErrResizeFactor},
    {"xFactor -0 before interpolation", [](Call& c) { c.f[0] = -0.0, c.interpolation = 3; },
     vtqStsErrResizeFactor},
    {"interpolation 0", [](Call& c) { c.interpolation = 0; }, vtqStsErrInterpolation},
    {"interpolation 8", [](Call& c) { c.interpolation = 8; }, vtqStsErrInterpolation},
    {"interpolation 3 before VOI outside", [](Call& c) { c.interpolation = 3, c.srcVOI.x = 6; },
     vtqStsErrInterpolation},
    {"srcVOI x at the width", [](Call& c) { c.srcVOI.x = 6; }, vtqStsWarnVoiOutside},
    {"srcVOI z at the depth before an empty region", [](Call& c) { c.srcVOI.z = 4, c.s[0] = -100; },
     vtqStsWarnVoiOutside},
    {"region before the dstVOI", [](Call& c) { c.s[0] = -20; }, vtqStsWarnNoOperation},
    {"dstVOI past the region", [](Call& c) { c.dstVOI.z = 9; }, vtqStsWarnNoOperation},
    {"region rounds to nothing", [](Call& c) { c.f[1] = 0.01, c.s[1] = 0.2; },
     vtqStsWarnNoOperation},
    {"NaN shift", [](Call& c) { c.s[2] = kNaN; }, vtqStsWarnNoOperation},
    {"infinite factor", [](Call& c) { c.f[1] = kInf; }, vtqStsWarnNoOperation},
    // clang-format on
};

TEST_P(Resize, CheckOrderAndNothingWrittenOnFailureOrWarning) {
  ThreadCount one(1);
  const Call valid;
  const int bytes = ResizeBufferSize(valid.srcVOI, valid.dstVOI, valid.interpolation);
  ForEachType([&]<class T>() {
    Volume<T> src({6, 5, 4});
    FillRandom(src, 5);
    for (Layout layout : {Layout::kBlock, Layout::kSlices}) {
      ExpectChecksInOrder(
          kCheckRows,
          [&](const Call& c) {
            Volume<T> dst({10, 9, 8});
            ExactBuffer buffer(bytes);
            Vtq8u* b = c.nullBuffer ? nullptr : buffer.data();
            const VtqStatus status =
                layout == Layout::kBlock
                    ? VTQR_TYPED(T, Resize, C1V)[path()](
                          c.nullSrc ? nullptr : src.base(), c.srcVolume, src.rowStep(),
                          src.planeStep(), c.srcVOI, c.nullDst ? nullptr : dst.base(),
                          dst.rowStep(), dst.planeStep(), c.dstVOI, c.f[0], c.f[1], c.f[2], c.s[0],
                          c.s[1], c.s[2], c.interpolation, b)
                    : VTQR_TYPED(T, Resize, C1PV)[path()](
                          c.nullSrc ? nullptr : src.constSlices(), c.srcVolume, src.rowStep(),
                          c.srcVOI, c.nullDst ? nullptr : dst.slices(), dst.rowStep(), c.dstVOI,
                          c.f[0], c.f[1], c.f[2], c.s[0], c.s[1], c.s[2], c.interpolation, b);
            return std::pair{status, dst.Untouched() && buffer.Untouched()};
          },
          ::testing::PrintToString(std::pair{int(layout), sizeof(T)}));
    }
  });
}

// The documented sizes, worked out by hand, for one and two threads; then the checks in order.
TEST_P(Resize, BufferSizeQuery) {
  const VtqCuboid one = {0, 0, 0, 1, 1, 1}, bad = {0, -1, 0, 1, 1, 1}, flat = {0, 0, 0, 1, 0, 1};
  const VtqCuboid huge = {0, 0, 0, 8192, 8192, 1};
  int size;
  const struct {
    const VtqCuboid *src, *dst;
    int channels, interpolation;
    int* pSize;
    VtqStatus status;
    int size;
  } rows[] = {
      {&one, &one, 1, vtqInterNearest, &size, vtqStsOk, 256},
      {&one, &one, 1, vtqInterLinear, &size, vtqStsOk, 2560},
      {&one, &one, 1, vtqInterCubicBSpline, &size, vtqStsOk, 7936},
      // 2^30 for the four slices alone: with two threads the sum wraps to a negative value.
      {&one, &huge, 1, vtqInterCubicLagrange, &size, vtqStsOk, 1082659200},
      {&one, &one, 1, 1, nullptr, vtqStsErrNullPtr, 0},
      {nullptr, &bad, 2, 3, &size, vtqStsErrNullPtr, 0},
      {&one, nullptr, 1, 1, &size, vtqStsErrNullPtr, 0},
      {&bad, &one, 2, 3, &size, vtqStsErrSize, 0},
      {&one, &flat, 2, 3, &size, vtqStsErrSize, 0},
      {&one, &one, 2, 3, &size, vtqStsErrChannels, 0},
      {&one, &one, 1, 3, &size, vtqStsErrInterpolation, 0},
  };
  for (int threads : {1, 2}) {
    ThreadCount count(threads);
    for (const auto& r : rows) {
      size = -12345;
      EXPECT_EQ(r.status, kDispatchTable.ResizeGetBufSize[path()](r.src, r.dst, r.channels,
                                                                  r.interpolation, r.pSize));
      EXPECT_EQ(r.status == vtqStsOk ? int32_t(uint32_t(r.size) * threads) : -12345, size);
    }
  }
}

// The plan every call carves its buffer by fits in what the size query promises, for every
// destination size here and any thread count, with the worst start alignment counted.
TEST(ResizeBuffer, ThePlanFitsTheReportedSize) {
  const int sides[] = {1,  2,  3,  4,  5,  7,  8,   9,   15,  16,  17,  31,  32,
                       33, 47, 63, 64, 65, 95, 127, 128, 129, 255, 256, 257, 1000};
  for (int code : kCodes)
    for (int w : sides)
      for (int h : sides)
        for (int d : {1, 2, 3, 5, 16, 17, 300}) {
          const int32_t perThread = u8::volume::ResizeBufferPerThread(code, w, h, d);
          const auto plan = u8::volume::PlanResizeScratch(code, w, h, d);
          for (int threads = 1; threads <= 4; ++threads) {
            ASSERT_LE(u8::volume::ResizeScratchBytes(plan, threads), size_t(perThread) * threads)
                << "code " << code << " " << w << "x" << h << "x" << d << " threads " << threads;
          }
        }
}

TEST_P(Resize, CuboidQuery) {
  const VtqCuboid kSentinel = {-7, -7, -7, -7, -7, -7}, k444 = {0, 0, 0, 4, 4, 4};
  const struct {
    const char* name;
    VtqCuboid src;
    double f[3], s[3];
    int interpolation;
    VtqStatus status;
    VtqCuboid expected;  // the untouched sentinel unless vtqStsOk
  } rows[] = {
      // clang-format off
      // 1 * 1.5 = 1.5 starts at 1, 3 * 1.5 = 4.5 ends at 5.
      {"halves round outwards", {1, 1, 1, 2, 2, 2}, {1.5, 1.5, 1.5}, {}, 2,
     vtqStsOk, {1, 1, 1, 4, 4, 4}},
      {"shifts and mixed factors", {4, 0, 2, 6, 3, 5}, {0.5, 2.5, 1.25}, {0.3, -0.4, 2.2}, 6,
     vtqStsOk, {2, 0, 5, 3, 7, 6}},
      {"clamped at 0", k444, {1, 1, 1}, {-2, 0, 0}, 4, vtqStsOk, {0, 0, 0, 2, 4, 4}},
      {"clamped at INT32_MAX", {0, 0, 0, 3, 1, 1}, {1e10, 1, 1}, {}, 5,
     vtqStsOk, {0, 0, 0, INT32_MAX, 1, 1}},
      {"mapped before 0", k444, {1, 1, 1}, {0, -10, 0}, 7, vtqStsWarnNoOperation, kSentinel},
      {"rounds to nothing", {3, 0, 0, 1, 1, 1}, {0.2, 1, 1}, {}, 1,
     vtqStsWarnNoOperation, kSentinel},
      {"NaN shift", k444, {1, 1, 1}, {0, 0, kNaN}, 1, vtqStsWarnNoOperation, kSentinel},
      {"size before factor", {0, 0, -1, 4, 4, 4}, {0, 1, 1}, {}, 3, vtqStsErrSize, kSentinel},
      {"NaN factor before interpolation", k444, {1, kNaN, 1}, {}, 3,
     vtqStsErrResizeFactor, kSentinel},
      {"interpolation 3", k444, {1, 1, 1}, {}, 3, vtqStsErrInterpolation, kSentinel},
      // clang-format on
  };
  const auto query = kDispatchTable.GetResizeCuboid[path()];
  for (const auto& r : rows) {
    VtqCuboid out = kSentinel;
    EXPECT_EQ(r.status,
              query(&r.src, &out, r.f[0], r.f[1], r.f[2], r.s[0], r.s[1], r.s[2], r.interpolation))
        << r.name;
    EXPECT_EQ(0, std::memcmp(&r.expected, &out, sizeof(out))) << r.name;
  }
  VtqCuboid out;
  EXPECT_EQ(vtqStsErrNullPtr, query(&k444, nullptr, 0, 0, 0, 0, 0, 0, 3));
  EXPECT_EQ(vtqStsErrNullPtr, query(nullptr, &out, 1, 1, 1, 0, 0, 0, 1));
}

}  // namespace
}  // namespace vtqr::test
