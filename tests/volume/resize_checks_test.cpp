// Resize checks and queries: the order of every check of the six entry points, with nothing
// written on failure or warning; the size and cuboid queries; and the work buffer, which must
// be enough at exactly its size and at the worst alignment, for every destination size.
#include <gtest/gtest.h>

#include <limits>

#include "volume/resize_scratch.h"
#include "volume/resize_test_util.h"

namespace vtqr::test {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

class ResizeChecks : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(ResizeChecks);

// A resize call's arguments; each row of the check table breaks some of them.
struct Call {
  bool nullSrc = false, nullDst = false, nullBuffer = false;
  VtqVolumeSize srcVolume = {6, 5, 4};
  VtqCuboid srcVOI = {0, 0, 0, 6, 5, 4};
  VtqCuboid dstVOI = {0, 0, 0, 9, 8, 7};
  double f[3] = {1.5, 1.5, 1.5}, s[3] = {0, 0, 0};
  int interpolation = vtqInterCubicCatmullRom;
};

template <class T>
VtqStatus Run(CodePath path, Layout layout, const Call& c, Volume<T>& src, Volume<T>& dst,
              Vtq8u* buffer) {
  Vtq8u* b = c.nullBuffer ? nullptr : buffer;
  if (layout == Layout::kBlock) {
    return BlockResize<T>(path)(c.nullSrc ? nullptr : src.base(), c.srcVolume, src.rowStep(),
                                src.planeStep(), c.srcVOI, c.nullDst ? nullptr : dst.base(),
                                dst.rowStep(), dst.planeStep(), c.dstVOI, c.f[0], c.f[1], c.f[2],
                                c.s[0], c.s[1], c.s[2], c.interpolation, b);
  }
  return SliceResize<T>(path)(c.nullSrc ? nullptr : src.constSlices(), c.srcVolume, src.rowStep(),
                              c.srcVOI, c.nullDst ? nullptr : dst.slices(), dst.rowStep(), c.dstVOI,
                              c.f[0], c.f[1], c.f[2], c.s[0], c.s[1], c.s[2], c.interpolation, b);
}

// In check order; rows that break two things expect the earlier check to win.
const struct {
  const char* name;
  void (*breakArgs)(Call&);
  VtqStatus status;
} kCheckRows[] = {
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
    {"srcVOI z at the depth before an empty region", [](Call& c) { c.srcVOI.z = 4, c.s[0] = -100; },
     vtqStsWarnVoiOutside},
    {"region before the dstVOI", [](Call& c) { c.s[0] = -20; }, vtqStsWarnNoOperation},
    {"dstVOI past the region", [](Call& c) { c.dstVOI.z = 9; }, vtqStsWarnNoOperation},
    {"region rounds to nothing", [](Call& c) { c.f[1] = 0.01, c.s[1] = 0.2; },
     vtqStsWarnNoOperation},
    {"NaN shift", [](Call& c) { c.s[2] = kNaN; }, vtqStsWarnNoOperation},
    {"infinite shift", [](Call& c) { c.s[0] = kInf; }, vtqStsWarnNoOperation},
    {"infinite factor", [](Call& c) { c.f[1] = kInf; }, vtqStsWarnNoOperation},
};

template <class T>
void CheckOrder(CodePath path, Layout layout) {
  Volume<T> src({6, 5, 4});
  FillRandom(src, 5);
  const Call valid;
  const size_t size = Buffer(valid.srcVOI, valid.dstVOI, valid.interpolation).size();
  auto untouched = [](const std::vector<uint8_t>& v) {
    return std::count(v.begin(), v.end(), kUntouched) == ptrdiff_t(v.size());
  };
  for (const auto& row : kCheckRows) {
    Call call;
    row.breakArgs(call);
    Volume<T> dst({10, 9, 8});
    std::fill(dst.bytes().begin(), dst.bytes().end(), kUntouched);
    std::vector<Vtq8u> buffer(size, kUntouched);
    EXPECT_EQ(row.status, Run(path, layout, call, src, dst, buffer.data()))
        << row.name << " layout " << int(layout) << " size " << sizeof(T);
    if (row.status != vtqStsOk) {
      EXPECT_TRUE(untouched(dst.bytes()) && untouched(buffer)) << row.name << " wrote";
    }
  }
}

TEST_P(ResizeChecks, OrderAndNothingWrittenOnFailureOrWarning) {
  ThreadCount one(1);
  for (Layout layout : {Layout::kBlock, Layout::kSlices}) {
    CheckOrder<Vtq8u>(path(), layout);
    CheckOrder<Vtq16u>(path(), layout);
    CheckOrder<Vtq32f>(path(), layout);
  }
}

TEST_P(ResizeChecks, BufferSizes) {
  const VtqCuboid one = {0, 0, 0, 1, 1, 1}, bad = {0, -1, 0, 1, 1, 1}, flat = {0, 0, 0, 1, 0, 1};
  const VtqCuboid huge = {0, 0, 0, 8192, 8192, 1};
  // Sizes for one thread, worked out by hand from the formula.
  const struct {
    const VtqCuboid *src, *dst;
    int channels, interpolation;
    bool nullSize;
    VtqStatus status;
    int size;
  } rows[] = {
      {&one, &one, 1, vtqInterNearest, false, vtqStsOk, 256},
      {&one, &one, 1, vtqInterLinear, false, vtqStsOk, 2560},
      {&one, &one, 1, vtqInterCubicBSpline, false, vtqStsOk, 7936},
      // 2^30 for the four slices alone: with two threads the sum wraps to a negative value.
      {&one, &huge, 1, vtqInterCubicLagrange, false, vtqStsOk, 1082659200},
      {&one, &one, 1, 1, true, vtqStsErrNullPtr, 0},
      {nullptr, &bad, 2, 3, false, vtqStsErrNullPtr, 0},
      {&one, nullptr, 1, 1, false, vtqStsErrNullPtr, 0},
      {&bad, &one, 2, 3, false, vtqStsErrSize, 0},
      {&one, &flat, 2, 3, false, vtqStsErrSize, 0},
      {&one, &one, 2, 3, false, vtqStsErrChannels, 0},
      {&one, &one, 1, 3, false, vtqStsErrInterpolation, 0},
  };
  for (int threads : {1, 2}) {
    ThreadCount count(threads);
    for (const auto& r : rows) {
      int size = -12345;
      EXPECT_EQ(r.status,
                kDispatchTable.ResizeGetBufSize[path()](r.src, r.dst, r.channels, r.interpolation,
                                                        r.nullSize ? nullptr : &size));
      const auto wrapped = static_cast<int32_t>(static_cast<uint32_t>(r.size) * threads);
      EXPECT_EQ(r.status == vtqStsOk ? wrapped : -12345, size);
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

// A call with exactly the reported buffer, starting one byte past a cache line: under
// AddressSanitizer the bytes past its end are poisoned, and in any build they must keep
// their pattern.
TEST_P(ResizeChecks, ExactBufferIsEnough) {
  const VtqCuboid srcVOI = {0, 0, 0, 11, 7, 6};
  const VtqCuboid dstVOIs[] = {{0, 0, 0, 1, 1, 1},
                               {2, 1, 0, 5, 3, 2},
                               {0, 0, 0, 17, 9, 4},
                               {1, 0, 2, 33, 1, 3},
                               {0, 0, 0, 4, 21, 9}};
  Volume<Vtq32f> src({11, 7, 6});
  FillRandom(src, 3);
  constexpr size_t kTail = 64;
  for (int threads : {1, 2}) {
    ThreadCount count(threads);
    for (const VtqCuboid& d : dstVOIs) {
      for (int code : kCodes) {
        const size_t size = Buffer(srcVOI, d, code).size();
        std::vector<Vtq8u> block(size + 64 + kTail, kUntouched);
        Vtq8u* buffer = block.data() + (65 - reinterpret_cast<uintptr_t>(block.data()) % 64) % 64;
        VTQR_POISON(buffer + size, kTail);
        Volume<Vtq32f> dst({d.x + d.width, d.y + d.height, d.z + d.depth});
        // Factors that map the source onto the whole dstVOI: the widest region for it.
        const ResizeParams p = {
            {(d.x + d.width) / 11.0, (d.y + d.height) / 7.0, (d.z + d.depth) / 6.0},
            {0, 0, 0},
            code};
        EXPECT_EQ(vtqStsOk, CallResize(path(), Layout::kBlock, src, srcVOI, dst, d, p, buffer));
        VTQR_UNPOISON(buffer + size, kTail);
        EXPECT_EQ(ptrdiff_t(kTail), std::count(buffer + size, buffer + size + kTail, kUntouched))
            << "code " << code << " threads " << threads << " dst width " << d.width;
      }
    }
  }
}

TEST_P(ResizeChecks, CuboidQuery) {
  const VtqCuboid kSentinel = {-7, -7, -7, -7, -7, -7};
  const struct {
    const char* name;
    VtqCuboid src;
    double f[3], s[3];
    int interpolation;
    VtqStatus status;
    VtqCuboid expected;  // the untouched sentinel unless vtqStsOk
  } rows[] = {
      // clang-format off
      {"factor 1 gives the cuboid back", {2, 3, 4, 5, 6, 7}, {1, 1, 1}, {0, 0, 0}, 1, vtqStsOk,
       {2, 3, 4, 5, 6, 7}},
      // 1 * 1.5 = 1.5 starts at 1, 3 * 1.5 = 4.5 ends at 5.
      {"halves round outwards", {1, 1, 1, 2, 2, 2}, {1.5, 1.5, 1.5}, {0, 0, 0}, 2, vtqStsOk,
       {1, 1, 1, 4, 4, 4}},
      {"shifts and mixed factors", {4, 0, 2, 6, 3, 5}, {0.5, 2.5, 1.25}, {0.3, -0.4, 2.2}, 6,
       vtqStsOk, {2, 0, 5, 3, 7, 6}},
      {"clamped at 0", {0, 0, 0, 4, 4, 4}, {1, 1, 1}, {-2, 0, 0}, 4, vtqStsOk, {0, 0, 0, 2, 4, 4}},
      {"clamped at INT32_MAX", {0, 0, 0, 3, 1, 1}, {1e10, 1, 1}, {0, 0, 0}, 5, vtqStsOk,
       {0, 0, 0, INT32_MAX, 1, 1}},
      {"mapped before 0", {0, 0, 0, 4, 4, 4}, {1, 1, 1}, {0, -10, 0}, 7, vtqStsWarnNoOperation,
       kSentinel},
      {"rounds to nothing", {3, 0, 0, 1, 1, 1}, {0.2, 1, 1}, {0, 0, 0}, 1, vtqStsWarnNoOperation,
       kSentinel},
      {"NaN shift", {0, 0, 0, 4, 4, 4}, {1, 1, 1}, {0, 0, kNaN}, 1, vtqStsWarnNoOperation,
       kSentinel},
      {"size before factor", {0, 0, -1, 4, 4, 4}, {0, 1, 1}, {0, 0, 0}, 3, vtqStsErrSize,
       kSentinel},
      {"NaN factor before interpolation", {0, 0, 0, 4, 4, 4}, {1, kNaN, 1}, {0, 0, 0}, 3,
       vtqStsErrResizeFactor, kSentinel},
      {"interpolation 3", {0, 0, 0, 4, 4, 4}, {1, 1, 1}, {0, 0, 0}, 3, vtqStsErrInterpolation,
       kSentinel},
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
  EXPECT_EQ(vtqStsErrNullPtr, query(&rows[0].src, nullptr, 0, 0, 0, 0, 0, 0, 3));
  EXPECT_EQ(vtqStsErrNullPtr, query(nullptr, &out, 1, 1, 1, 0, 0, 0, 1));
}

}  // namespace
}  // namespace vtqr::test
