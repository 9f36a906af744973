// Resize: values against the double-precision reference, the same bits in every way of calling,
// integers as the rounded float results, streamed destinations; the order of the checks, the
// size and cuboid queries, and the buffer plan within the reported size.
#include <gtest/gtest.h>

#include <tuple>

#include "volume/resize_scratch.h"
#include "volume/volume_test_util.h"

namespace vtqr::test {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

class Resize : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(Resize);

// Bound against the reference, relative to the data's largest value (1 for floats in [-1, 1]):
// 2^-20; the float passes of three axes, with weights rounded to float, measure below 2^-22.
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
    {"past the high corner", {6, 5, 4, 10, 10, 10}, {{2.2, 1.25, 1.6}, {0.1, 0.3, -0.2}}, kWholeDst},
    {"clipped by the dstVOI", {0, 0, 0, 9, 8, 7}, {{1.5, 1.5, 1.5}, {0, 0, 0}}, {3, 2, 4, 7, 9, 5}},
    // Halves: nearest takes the lower voxel, so that enlarging by 2 repeats every voxel twice.
    {"half-voxel shifts", {0, 0, 0, 9, 8, 7}, {{1, 1, 1}, {0.5, -0.25, 0.75}}, kWholeDst},
    {"one voxel thick, x2", {4, 0, 3, 1, 8, 1}, {{2.0, 1.0, 3.0}, {0, 0, 0}}, kWholeDst},
    // Every position on a voxel centre: the interpolating modes copy the source bit for bit.
    {"factor 1 copies", {1, 0, 2, 8, 8, 5}, {{1, 1, 1}, {2, 3, 0}}, kWholeDst},
    // clang-format on
};

// Whether every destination voxel samples a source voxel centre: factors 1, whole shifts.
bool OnCentres(const ResizeParams& p) {
  for (int a = 0; a < 3; ++a) {
    if (p.factor[a] != 1 || p.shift[a] != std::trunc(p.shift[a])) return false;
  }
  return true;
}

// Every voxel of the region within the bound (exactly where the mode copies voxels), and every
// other byte of the destination, padding included, untouched. Integer results are also, bit for
// bit, the float results of the same values clamped and rounded half to even: the types differ
// only in loading and storing (factors 0.5, 1 and 2 put taps on zero weights, which integer
// types skip). Two threads, so that each thread's part of the exactly sized buffer is used.
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
        Span r[3];
        const std::vector<double> expected = ReferenceResize(src, g.srcVOI, g.dstVOI, p, r);
        Volume<T> dst({30, 28, 24});
        Volume<Vtq32f> floatDst({30, 28, 24});
        ASSERT_EQ(vtqStsOk, CallResize(path(), Layout::kBlock, src, g.srcVOI, dst, g.dstVOI, p));
        ASSERT_EQ(vtqStsOk,
                  CallResize(path(), Layout::kBlock, asFloats, g.srcVOI, floatDst, g.dstVOI, p));
        const bool exact = code == vtqInterNearest || (OnCentres(p) && code != 5 && code != 7);
        const double bound = exact                       ? 0.0
                             : std::is_same_v<T, Vtq32f> ? kRelativeBound
                                                         : 0.5 + Highest<T>() * kRelativeBound;
        size_t i = 0;
        for (int64_t z = r[2].start; z < r[2].end; ++z)
          for (int64_t y = r[1].start; y < r[1].end; ++y)
            for (int64_t x = r[0].start; x < r[0].end; ++x, ++i) {
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

// The same bits as u8 on one thread with V volumes, in every way of calling: V and PV, one and
// two threads, volumes stored upside down and back to front (negative steps), any buffer
// alignment.
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
      // Layout, threads, flipped, buffer misalignment.
      for (auto [layout, threads, flipped, misalign] : {std::tuple{Layout::kBlock, 1, false, 0},
                                                        {Layout::kSlices, 1, false, 0},
                                                        {Layout::kBlock, 2, false, 0},
                                                        {Layout::kSlices, 2, true, 0},
                                                        {Layout::kBlock, 1, true, 0},
                                                        {Layout::kBlock, 2, false, 1},
                                                        {Layout::kBlock, 1, false, 37}}) {
        EXPECT_TRUE(expected == run(path(), layout, threads, flipped, misalign))
            << "code " << code << " size " << sizeof(T) << " layout " << int(layout) << " threads "
            << threads << " flipped " << flipped << " misalign " << misalign;
      }
    }
  });
}

// A destination of 16 MiB or more goes out with non-temporal stores in 16-byte blocks; in slabs
// of a few slices each call keeps normal stores. The map is absolute, so both give the same
// bits. Rows start off 16-byte boundaries, with heads and tails of every length.
template <class T>
void CheckSlabsEqualOneCall(CodePath path, int code, VtqVolumeSize size) {
  SCOPED_TRACE(::testing::Message() << "code " << code << " size " << sizeof(T));
  const VtqCuboid srcVOI = {0, 0, 0, 23, 19, 17};
  const VtqCuboid dstVOI = {3, 1, 0, size.width - 3, size.height - 1, size.depth};
  ASSERT_GE(sizeof(T) * dstVOI.width * dstVOI.height * dstVOI.depth, 16u << 20);
  const ResizeParams p = {
      {size.width / 23.0, size.height / 19.0, size.depth / 17.0}, {0.3, -0.2, 0.1}, code};
  Volume<T> src({23, 19, 17}), whole(size), slabs(size);
  FillRandom(src, 21);
  ASSERT_EQ(vtqStsOk, CallResize(path, Layout::kBlock, src, srcVOI, whole, dstVOI, p));
  for (int z = 0; z < size.depth; z += 7) {
    const VtqCuboid slab = {dstVOI.x,     dstVOI.y,      z,
                            dstVOI.width, dstVOI.height, std::min(7, size.depth - z)};
    ASSERT_EQ(vtqStsOk, CallResize(path, Layout::kBlock, src, srcVOI, slabs, slab, p));
  }
  EXPECT_TRUE(whole.bytes() == slabs.bytes());
}

TEST_P(Resize, SlabsEqualOneCall) {
  ThreadCount one(1);
  CheckSlabsEqualOneCall<Vtq8u>(path(), vtqInterNearest, {255, 259, 260});
  CheckSlabsEqualOneCall<Vtq8u>(path(), vtqInterLinear, {255, 259, 260});
  CheckSlabsEqualOneCall<Vtq8u>(path(), vtqInterCubicB05C03, {255, 259, 260});
  CheckSlabsEqualOneCall<Vtq16u>(path(), vtqInterCubicLagrange, {183, 181, 262});
  CheckSlabsEqualOneCall<Vtq32f>(path(), vtqInterLinear, {133, 131, 252});
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

// In check order; rows that break two things expect the earlier check to win.
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
    {"srcVOI y past the height", [](Call& c) { c.srcVOI.y = 9; }, vtqStsWarnVoiOutside},
    {"srcVOI z at the depth before an empty region",
     [](Call& c) { c.srcVOI.z = 4, c.s[0] = -100; }, vtqStsWarnVoiOutside},
    {"region before the dstVOI", [](Call& c) { c.s[0] = -20; }, vtqStsWarnNoOperation},
    {"dstVOI past the region", [](Call& c) { c.dstVOI.z = 9; }, vtqStsWarnNoOperation},
    {"region rounds to nothing", [](Call& c) { c.f[1] = 0.01, c.s[1] = 0.2; },
     vtqStsWarnNoOperation},
    {"NaN shift", [](Call& c) { c.s[2] = kNaN; }, vtqStsWarnNoOperation},
    {"infinite shift", [](Call& c) { c.s[0] = kInf; }, vtqStsWarnNoOperation},
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
      for (const auto& row : kCheckRows) {
        SCOPED_TRACE(::testing::Message()
                     << row.name << ", layout " << int(layout) << ", " << sizeof(T));
        Call c;
        row.breakArgs(c);
        Volume<T> dst({10, 9, 8});
        ExactBuffer buffer(bytes);
        Vtq8u* b = c.nullBuffer ? nullptr : buffer.data();
        const VtqStatus status =
            layout == Layout::kBlock
                ? BlockResize<T>(path())(
                      c.nullSrc ? nullptr : src.base(), c.srcVolume, src.rowStep(), src.planeStep(),
                      c.srcVOI, c.nullDst ? nullptr : dst.base(), dst.rowStep(), dst.planeStep(),
                      c.dstVOI, c.f[0], c.f[1], c.f[2], c.s[0], c.s[1], c.s[2], c.interpolation, b)
                : SliceResize<T>(path())(
                      c.nullSrc ? nullptr : src.constSlices(), c.srcVolume, src.rowStep(), c.srcVOI,
                      c.nullDst ? nullptr : dst.slices(), dst.rowStep(), c.dstVOI, c.f[0], c.f[1],
                      c.f[2], c.s[0], c.s[1], c.s[2], c.interpolation, b);
        EXPECT_EQ(row.status, status);
        if (row.status != vtqStsOk) {
          EXPECT_TRUE(dst.Untouched() && buffer.Untouched());
        }
      }
    }
  });
}

TEST_P(Resize, BufferSizeQuery) {
  const VtqCuboid one = {0, 0, 0, 1, 1, 1}, bad = {0, -1, 0, 1, 1, 1}, flat = {0, 0, 0, 1, 0, 1};
  const VtqCuboid huge = {0, 0, 0, 8192, 8192, 1};
  int size;
  // Sizes for one thread, worked out by hand from the formula; in check order after the first
  // four.
  const struct {
    const VtqCuboid *src, *dst;
    int channels, interpolation;
    int* pSize;
    VtqStatus status;
    int size;
  } rows[] = {
      // clang-format off
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
      // clang-format on
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
      {"factor 1 gives the cuboid back", {2, 3, 4, 5, 6, 7}, {1, 1, 1}, {}, 1, vtqStsOk,
       {2, 3, 4, 5, 6, 7}},
      // 1 * 1.5 = 1.5 starts at 1, 3 * 1.5 = 4.5 ends at 5.
      {"halves round outwards", {1, 1, 1, 2, 2, 2}, {1.5, 1.5, 1.5}, {}, 2, vtqStsOk,
       {1, 1, 1, 4, 4, 4}},
      {"shifts and mixed factors", {4, 0, 2, 6, 3, 5}, {0.5, 2.5, 1.25}, {0.3, -0.4, 2.2}, 6,
       vtqStsOk, {2, 0, 5, 3, 7, 6}},
      {"clamped at 0", k444, {1, 1, 1}, {-2, 0, 0}, 4, vtqStsOk, {0, 0, 0, 2, 4, 4}},
      {"clamped at INT32_MAX", {0, 0, 0, 3, 1, 1}, {1e10, 1, 1}, {}, 5, vtqStsOk,
       {0, 0, 0, INT32_MAX, 1, 1}},
      {"mapped before 0", k444, {1, 1, 1}, {0, -10, 0}, 7, vtqStsWarnNoOperation, kSentinel},
      {"rounds to nothing", {3, 0, 0, 1, 1, 1}, {0.2, 1, 1}, {}, 1, vtqStsWarnNoOperation, kSentinel},
      {"NaN shift", k444, {1, 1, 1}, {0, 0, kNaN}, 1, vtqStsWarnNoOperation, kSentinel},
      {"size before factor", {0, 0, -1, 4, 4, 4}, {0, 1, 1}, {}, 3, vtqStsErrSize, kSentinel},
      {"NaN factor before interpolation", k444, {1, kNaN, 1}, {}, 3, vtqStsErrResizeFactor,
       kSentinel},
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
