// Argument checks of resize, remap, warp and filter and of their queries: each family's valid
// call broken one way per row, in the order the checks run, nothing written unless the call
// succeeds; the sizes the queries report; the buffer plans within those sizes.
#include <gtest/gtest.h>

#include <utility>

#include "volume/filter_scratch.h"
#include "volume/resize_scratch.h"
#include "volume/volume_test_util.h"

namespace vtqr::test {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

class VolumeChecks : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(VolumeChecks);

// The arguments of resize, remap and warp default to one valid call of each (every family
// reads the fields it takes); each row breaks some of them. Rows that break two things expect
// the earlier check to win.
struct VolumeCall {
  bool nullSrc = false, nullDst = false, nullBuffer = false, nullMap[3] = {}, nullCoeffs = false;
  bool nullSlice0 = false;
  VtqVolumeSize srcVolume = {6, 5, 4}, dstVolume = {4, 3, 2};  // dstVolume: remap's
  VtqCuboid srcVOI = {0, 0, 0, 6, 5, 4}, dstVOI = {0, 0, 0, 9, 8, 7};
  double f[3] = {1.5, 1.5, 1.5}, s[3] = {};                    // resize's
  double m[3][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}};  // warp's: the identity
  int code = vtqInterCubicCatmullRom;
};
constexpr VtqStatus kOk = vtqStsOk, kNull = vtqStsErrNullPtr, kSize = vtqStsErrSize,
                    kFactor = vtqStsErrResizeFactor, kCode = vtqStsErrInterpolation,
                    kCoeff = vtqStsErrCoeff, kChannels = vtqStsErrChannels,
                    kOutside = vtqStsWarnVoiOutside, kNoOp = vtqStsWarnNoOperation;
// clang-format off
const CheckRow<VolumeCall> kSharedRows[] = {
    {"valid", [](auto&) {}, kOk},
    {"null pSrc", [](auto& c) { c.nullSrc = true; }, kNull},
    {"null pDst", [](auto& c) { c.nullDst = true; }, kNull},
    {"srcVolume depth 0", [](auto& c) { c.srcVolume.depth = 0; }, kSize},
    {"srcVOI y -1", [](auto& c) { c.srcVOI.y = -1; }, kSize},
    {"interpolation 3 before VOI outside", [](auto& c) { c.code = 3, c.srcVOI.x = 6; }, kCode},
    {"VOI x at the width", [](auto& c) { c.srcVOI.x = 6; }, kOutside},
    {"VOI y at the height", [](auto& c) { c.srcVOI.y = 5; }, kOutside},
    {"VOI z at the depth, before no region", [](auto& c) { c.srcVOI.z = 4, c.s[0] = -99; }, kOutside},
};
const CheckRow<VolumeCall> kResizeRows[] = {
    {"null pBuffer before size", [](auto& c) { c.nullBuffer = true, c.srcVOI.x = -1; }, kNull},
    {"dstVOI width 0 before factor", [](auto& c) { c.dstVOI.width = 0, c.f[0] = 0; }, kSize},
    {"zFactor NaN", [](auto& c) { c.f[2] = kNaN; }, kFactor},
    {"xFactor -0 before interpolation", [](auto& c) { c.f[0] = -0.0, c.code = 3; }, kFactor},
    {"region before the dstVOI", [](auto& c) { c.s[0] = -20; }, kNoOp},
    {"NaN shift", [](auto& c) { c.s[2] = kNaN; }, kNoOp},
};
// Remap and warp read only slice 0 of a planar source, and ignore its VOI's z.
const CheckRow<VolumeCall> kPlanarRows[] = {
    {"planar, slice 0 null", [](auto& c) { c.srcVolume.depth = 1, c.nullSlice0 = true; }, kNull},
    {"planar, VOI z plays no part", [](auto& c) { c.srcVolume.depth = 1, c.srcVOI.z = 9; }, kOk},
    {"planar, VOI y at height", [](auto& c) { c.srcVolume.depth = 1, c.srcVOI.y = 5; }, kOutside},
};
const CheckRow<VolumeCall> kRemapRows[] = {
    {"null pDst before a map", [](auto& c) { c.nullDst = c.nullMap[0] = true; }, kNull},
    {"null pyMap before size", [](auto& c) { c.nullMap[1] = true, c.srcVolume.width = 0; }, kNull},
    {"planar, null pzMap", [](auto& c) { c.nullMap[2] = true, c.srcVolume.depth = 1; }, kNull},
    {"dstVolume height 0 before code", [](auto& c) { c.dstVolume.height = 0, c.code = 3; }, kSize},
};
const CheckRow<VolumeCall> kWarpRows[] = {
    {"diagonal at 1e-100 but one",
     [](auto& c) { c.m[0][0] = c.m[1][1] = 1e-100, c.m[0][1] = c.m[1][0] = 1; }, kOk},
    {"null coeffs before size", [](auto& c) { c.nullCoeffs = true, c.dstVOI.depth = 0; }, kNull},
    {"dstVOI height 0 before coeffs", [](auto& c) { c.dstVOI.height = 0, c.m[0][0] = 0; }, kSize},
    {"no diagonal left (a cyclic exchange)", [](auto& c) {
       c.m[0][0] = c.m[1][1] = 0, c.m[0][1] = c.m[1][2] = 1;
       c.m[2][0] = 1e-100, c.m[2][2] = -1e-100;
     }, kCoeff},
    {"singular", [](auto& c) { c.m[2][0] = 1, c.m[2][2] = 0; }, kCoeff},
    {"NaN translation", [](auto& c) { c.m[1][3] = kNaN; }, kCoeff},
    {"infinite coefficient", [](auto& c) { c.m[0][2] = INFINITY; }, kCoeff},
    {"coefficients before code", [](auto& c) { c.m[1][1] = c.m[1][2] = 0, c.code = 0; }, kCoeff},
    {"planar, x/y block singular (not in 3-D)",
     [](auto& c) { c.srcVolume.depth = 1, c.m[0][0] = 0, c.m[0][2] = c.m[2][0] = 1; }, kCoeff},
};

struct FilterCall {
  bool nullSrc = false, nullDst = false, nullKernel = false, nullBuffer = false;
  VtqVolumeSize dst = {5, 4, 3}, kernel = {3, 2, 2};
  int divisor = 5;
};
const CheckRow<FilterCall> kFilterRows[] = {
    {"valid", [](auto&) {}, kOk},
    {"null pSrc", [](auto& c) { c.nullSrc = true; }, kNull},
    {"null pDst", [](auto& c) { c.nullDst = true; }, kNull},
    {"null pKernel before pBuffer", [](auto& c) { c.nullKernel = c.nullBuffer = true; }, kNull},
    {"null pBuffer before sizes",
     [](auto& c) { c.nullBuffer = true, c.dst.width = c.divisor = 0; }, kNull},
    {"dst before kernel and divisor",
     [](auto& c) { c.dst.depth = -1, c.kernel.height = c.divisor = 0; }, kSize},
    {"kernel depth -2", [](auto& c) { c.kernel.depth = -2; }, kSize},
    {"divisor 0", [](auto& c) { c.divisor = 0; }, kSize},
};

// The buffer queries of resize and warp share their checks.
struct CuboidQuery {
  bool nullSize = false, nullSrc = false, nullDst = false;
  VtqCuboid src = {0, 0, 0, 4, 4, 4}, dst = {3, 2, 1, 9, 9, 9};
  int channels = 1, code = vtqInterCubicB05C03;
};
const CheckRow<CuboidQuery> kCuboidQueryRows[] = {
    {"valid", [](auto&) {}, kOk},
    {"null pSize first", [](auto& c) { c.nullSize = true, c.src.z = -1; }, kNull},
    {"null srcVOI", [](auto& c) { c.nullSrc = true; }, kNull},
    {"null dstVOI", [](auto& c) { c.nullDst = true; }, kNull},
    {"srcVOI depth 0 before channels", [](auto& c) { c.src.depth = 0, c.channels = 2; }, kSize},
    {"dstVOI x -1", [](auto& c) { c.dst.x = -1; }, kSize},
    {"two channels before interpolation", [](auto& c) { c.channels = 2, c.code = 0; }, kChannels},
    {"interpolation 3", [](auto& c) { c.code = 3; }, kCode},
};

struct FilterQuery {
  bool nullSize = false, nullDst = false, nullKernel = false;
  VtqVolumeSize dst = {4, 4, 4}, kernel = {3, 3, 3};
  int channels = 1;
};
const CheckRow<FilterQuery> kFilterQueryRows[] = {
    {"valid", [](auto&) {}, kOk},
    {"null pSize first", [](auto& c) { c.nullSize = true, c.dst.height = 0; }, kNull},
    {"null dstVolume", [](auto& c) { c.nullDst = true; }, kNull},
    {"null kernelVolume", [](auto& c) { c.nullKernel = true; }, kNull},
    {"dst size before kernel size", [](auto& c) { c.dst.height = 0, c.kernel.width = 0; }, kSize},
    {"kernel size before channels", [](auto& c) { c.kernel.depth = -1, c.channels = 2; }, kSize},
    {"channels 0", [](auto& c) { c.channels = 0; }, kChannels},
};
// clang-format on

TEST_P(VolumeChecks, InOrderAndNothingWrittenUnlessOk) {
  ThreadCount one(1);
  const VolumeCall valid;
  int resizeBytes = 0;
  ASSERT_EQ(kOk, kDispatchTable.ResizeGetBufSize[path()](&valid.srcVOI, &valid.dstVOI, 1,
                                                          valid.code, &resizeBytes));
  Maps maps(valid.dstVolume);
  maps.Fill([](int x, int y, int z) { return std::array{float(x), float(y), float(z)}; });
  ForEachType([&]<class T>() {
    Volume<T> src({6, 5, 4});
    FillRandom(src, 5);
    const T* const noSlice0[1] = {nullptr};
    auto slices = [&](const VolumeCall& c) {
      return c.nullSrc ? nullptr : c.nullSlice0 ? noSlice0 : src.constSlices();
    };
    auto resize = [&](bool sliced) {
      return [&, sliced](const VolumeCall& c) {
        Volume<T> dst({10, 9, 8});
        ExactBuffer buffer(resizeBytes);
        Vtq8u* b = c.nullBuffer ? nullptr : buffer.data();
        const VtqStatus status =
            sliced ? VTQR_TYPED(T, Resize, C1PV)[path()](
                         slices(c), c.srcVolume, src.rowStep(), c.srcVOI,
                         c.nullDst ? nullptr : dst.slices(), dst.rowStep(), c.dstVOI, c.f[0],
                         c.f[1], c.f[2], c.s[0], c.s[1], c.s[2], c.code, b)
                   : VTQR_TYPED(T, Resize, C1V)[path()](
                         c.nullSrc ? nullptr : src.base(), c.srcVolume, src.rowStep(),
                         src.planeStep(), c.srcVOI, c.nullDst ? nullptr : dst.base(), dst.rowStep(),
                         dst.planeStep(), c.dstVOI, c.f[0], c.f[1], c.f[2], c.s[0], c.s[1], c.s[2],
                         c.code, b);
        return std::pair{status, dst.Untouched() && buffer.Untouched()};
      };
    };
    auto remap = [&](const VolumeCall& c) {
      Volume<T> dst({10, 9, 8});
      const Vtq32f* const* m[3];
      for (int a = 0; a < 3; ++a) m[a] = c.nullMap[a] ? nullptr : maps.axis[a].constSlices();
      const VtqStatus status = VTQR_TYPED(T, Remap, C1PV)[path()](
          slices(c), c.srcVolume, src.rowStep(), c.srcVOI, m[0], m[1], m[2],
          maps.axis[0].rowStep(), c.nullDst ? nullptr : dst.slices(), dst.rowStep(), c.dstVolume,
          c.code);
      return std::pair{status, dst.Untouched()};
    };
    auto warp = [&](const VolumeCall& c) {
      Volume<T> dst({10, 9, 8});
      const VtqStatus status = VTQR_TYPED(T, WarpAffine, C1PV)[path()](
          slices(c), c.srcVolume, src.rowStep(), c.srcVOI, c.nullDst ? nullptr : dst.slices(),
          dst.rowStep(), c.dstVOI, c.nullCoeffs ? nullptr : c.m, c.code, nullptr);
      return std::pair{status, dst.Untouched()};
    };
    const std::string type = std::to_string(sizeof(T));
    ExpectChecksInOrder(resize(false), "resize V " + type, kSharedRows, kResizeRows);
    ExpectChecksInOrder(resize(true), "resize PV " + type, kSharedRows, kResizeRows);
    ExpectChecksInOrder(remap, "remap " + type, kSharedRows, kPlanarRows, kRemapRows);
    ExpectChecksInOrder(warp, "warp " + type, kSharedRows, kPlanarRows, kWarpRows);
  });

  const FilterCall filter;
  int filterBytes = 0;
  ASSERT_EQ(kOk,
            kDispatchTable.FilterGetBufSize[path()](&filter.dst, &filter.kernel, 1, &filterBytes));
  // With the anchor at the kernel's far corner the valid call reads voxels from 0 on.
  Volume<Vtq16s> src({7, 5, 4});
  src.Fill([](int x, int y, int z) { return x + 3 * y - 7 * z; });
  const std::vector<Vtq16s> kernel(12, 2);
  ExpectChecksInOrder(
      [&](const FilterCall& c) {
        Volume<Vtq16s> dst(filter.dst);
        ExactBuffer buffer(filterBytes);
        const VtqStatus status = kDispatchTable.Filter_16s_C1PV[path()](
            c.nullSrc ? nullptr : src.constSlices(), src.rowStep(),
            c.nullDst ? nullptr : dst.slices(), dst.rowStep(), c.dst,
            c.nullKernel ? nullptr : kernel.data(), c.kernel, {2, 1, 1}, c.divisor,
            c.nullBuffer ? nullptr : buffer.data());
        return std::pair{status, dst.Untouched() && buffer.Untouched()};
      },
      "filter", kFilterRows);

  for (auto query : {kDispatchTable.ResizeGetBufSize[path()],
                     kDispatchTable.WarpAffineGetBufSize[path()]}) {
    ExpectChecksInOrder(
        [&](const CuboidQuery& c) {
          int size = -1;
          const VtqStatus status = query(c.nullSrc ? nullptr : &c.src, c.nullDst ? nullptr : &c.dst,
                                         c.channels, c.code, c.nullSize ? nullptr : &size);
          return std::pair{status, size == -1};
        },
        query == kDispatchTable.ResizeGetBufSize[path()] ? "resize query" : "warp query",
        kCuboidQueryRows);
  }
  ExpectChecksInOrder(
      [&](const FilterQuery& c) {
        int size = -1;
        const VtqStatus status = kDispatchTable.FilterGetBufSize[path()](
            c.nullDst ? nullptr : &c.dst, c.nullKernel ? nullptr : &c.kernel, c.channels,
            c.nullSize ? nullptr : &size);
        return std::pair{status, size == -1};
      },
      "filter query", kFilterQueryRows);
}

// The documented sizes, worked out by hand, for one and two threads; the products wrap in 32
// bits. The warp needs no buffer.
TEST_P(VolumeChecks, QueriesReportTheDocumentedSizes) {
  const VtqCuboid one = {0, 0, 0, 1, 1, 1}, huge = {0, 0, 0, 8192, 8192, 1};
  int none = -1;
  EXPECT_EQ(kOk, kDispatchTable.WarpAffineGetBufSize[path()](&one, &huge, 1, 7, &none));
  EXPECT_EQ(0, none);
  auto resize = [&](const VtqCuboid& dst, int code) {
    int size = -1;
    EXPECT_EQ(kOk, kDispatchTable.ResizeGetBufSize[path()](&one, &dst, 1, code, &size));
    return size;
  };
  auto filter = [&](VtqVolumeSize dst, VtqVolumeSize kernel) {
    int size = -1;
    EXPECT_EQ(kOk, kDispatchTable.FilterGetBufSize[path()](&dst, &kernel, 1, &size));
    return size;
  };
  // 2^30 for the four slices of the huge resize alone: with two threads the sum wraps.
  const int32_t perThread[] = {256, 2560, 7936, 1082659200, 160, 2592, 1472, -815875168};
  for (int threads : {1, 2}) {
    ThreadCount count(threads);
    const int32_t sizes[] = {resize(one, vtqInterNearest),     resize(one, vtqInterLinear),
                             resize(one, vtqInterCubicBSpline), resize(huge, vtqInterCubicLagrange),
                             filter({1, 1, 1}, {1, 1, 1}),      filter({17, 2, 2}, {5, 5, 5}),
                             filter({256, 9, 9}, {4, 3, 2}),    filter({1000, 1, 1}, {601, 601, 601})};
    for (size_t i = 0; i < std::size(sizes); ++i)
      EXPECT_EQ(int32_t(uint32_t(perThread[i]) * uint32_t(threads)), sizes[i]) << i << ", " << threads;
  }
}

TEST_P(VolumeChecks, ResizeCuboidQuery) {
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
      {"halves round outwards", {1, 1, 1, 2, 2, 2}, {1.5, 1.5, 1.5}, {}, 2, vtqStsOk,
       {1, 1, 1, 4, 4, 4}},
      {"shifts and mixed factors", {4, 0, 2, 6, 3, 5}, {0.5, 2.5, 1.25}, {0.3, -0.4, 2.2}, 6,
       vtqStsOk, {2, 0, 5, 3, 7, 6}},
      {"clamped at 0", k444, {1, 1, 1}, {-2, 0, 0}, 4, vtqStsOk, {0, 0, 0, 2, 4, 4}},
      {"clamped at INT32_MAX", {0, 0, 0, 3, 1, 1}, {1e10, 1, 1}, {}, 5, vtqStsOk,
       {0, 0, 0, INT32_MAX, 1, 1}},
      {"rounds to nothing", {3, 0, 0, 1, 1, 1}, {0.2, 1, 1}, {}, 1, vtqStsWarnNoOperation,
       kSentinel},
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

// What a call carves from its buffer, counted with the worst start alignment, fits in what the
// size query reports, for any thread count and sizes on both sides of every rounding step.
TEST(VolumeScratch, ThePlansFitTheReportedSizes) {
  const std::vector<int> sides = {1,  2,  3,  4,  5,  7,  8,   9,   15,  16,  17,  31,  32,
                                  33, 47, 63, 64, 65, 95, 127, 128, 129, 255, 256, 257, 1000};
  const struct {
    const char* name;
    std::vector<int> axis[4];  // resize: code and sizes; filter: width and kernel sizes
    int32_t (*perThread)(int, int, int, int);
    size_t (*planned)(int, int, int, int, int threads);
  } plans[] = {
      {"resize", {{1, 2, 4, 5, 6, 7}, sides, sides, {1, 2, 3, 5, 16, 17, 300}},
       u8::volume::ResizeBufferPerThread,
       [](int code, int w, int h, int d, int threads) {
         return u8::volume::ResizeScratchBytes(u8::volume::PlanResizeScratch(code, w, h, d),
                                               threads);
       }},
      {"filter", {{1, 2, 15, 16, 17, 31, 33, 64, 1000}, {1, 2, 3, 4, 7, 8}, {1, 2, 5}, {1, 3, 7}},
       u8::volume::FilterBufferPerThread,
       [](int w, int kw, int kh, int kd, int threads) {
         const u8::volume::KernelGeometry g({kw, kh, kd}, {0, 0, 0});
         return 63 + u8::volume::PlanFilterScratch(w, g, threads).totalBytes;
       }},
  };
  for (const auto& p : plans)
    for (int a : p.axis[0])
      for (int b : p.axis[1])
        for (int c : p.axis[2])
          for (int d : p.axis[3])
            for (int threads = 1; threads <= 4; ++threads)
              ASSERT_LE(p.planned(a, b, c, d, threads), size_t(p.perThread(a, b, c, d)) * threads)
                  << p.name << " " << a << " " << b << "x" << c << "x" << d << ", " << threads;
}

}  // namespace
}  // namespace vtqr::test
