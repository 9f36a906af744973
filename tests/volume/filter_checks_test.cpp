// Filter checks and the work buffer: the order of every check of both entry points, nothing
// written on failure, the size formula, and the buffer plan within the reported size.
#include <gtest/gtest.h>

#include "volume/filter_scratch.h"
#include "volume/filter_test_util.h"

namespace vtqr::test {
namespace {

class FilterChecks : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(FilterChecks);

struct Call {
  bool nullSrc = false, nullDst = false, nullKernel = false, nullBuffer = false;
  VtqVolumeSize dst = {5, 4, 3};
  VtqVolumeSize kernel = {3, 2, 2};
  int divisor = 5;
};

// In check order; rows that break two things expect the earlier check to win.
const struct {
  const char* name;
  void (*breakArgs)(Call&);
  VtqStatus status;
} kCheckRows[] = {
    {"valid", [](Call&) {}, vtqStsOk},
    {"null pSrc", [](Call& c) { c.nullSrc = true; }, vtqStsErrNullPtr},
    {"null pDst", [](Call& c) { c.nullDst = true; }, vtqStsErrNullPtr},
    {"null pKernel before the buffer", [](Call& c) { c.nullKernel = c.nullBuffer = true; },
     vtqStsErrNullPtr},
    {"null pBuffer before sizes", [](Call& c) { c.nullBuffer = true, c.dst.width = 0; },
     vtqStsErrNullPtr},
    {"null pBuffer before divisor 0", [](Call& c) { c.nullBuffer = true, c.divisor = 0; },
     vtqStsErrNullPtr},
    {"dst width 0", [](Call& c) { c.dst.width = 0; }, vtqStsErrSize},
    {"dst depth -1 before the kernel", [](Call& c) { c.dst.depth = -1, c.kernel.height = 0; },
     vtqStsErrSize},
    {"kernel height 0", [](Call& c) { c.kernel.height = 0; }, vtqStsErrSize},
    {"kernel depth -2", [](Call& c) { c.kernel.depth = -2; }, vtqStsErrSize},
    {"divisor 0", [](Call& c) { c.divisor = 0; }, vtqStsErrSize},
};

TEST_P(FilterChecks, OrderAndNothingWrittenOnFailure) {
  ThreadCount one(1);
  const Call valid;
  const VtqPoint3D a = {1, 1, 1};
  Block16s src = SourceFor(valid.dst, valid.kernel, a);
  src.Fill([](int x, int y, int z) { return Vtq16s(x + 3 * y - 7 * z); });
  const std::vector<Vtq16s> kernel(12, 2);
  int bytes = 0;
  ASSERT_EQ(vtqStsOk,
            kDispatchTable.FilterGetBufSize[path()](&valid.dst, &valid.kernel, 1, &bytes));
  for (const auto& row : kCheckRows) {
    Call c;
    row.breakArgs(c);
    Block16s dst = DestinationFor(valid.dst);
    std::vector<Vtq8u> buffer(size_t(bytes), 0xA5);
    const VtqStatus status = kDispatchTable.Filter_16s_C1PV[path()](
        c.nullSrc ? nullptr : src.constSlices(), src.rowStep(), c.nullDst ? nullptr : dst.slices(),
        dst.rowStep(), c.dst, c.nullKernel ? nullptr : kernel.data(), c.kernel, a, c.divisor,
        c.nullBuffer ? nullptr : buffer.data());
    EXPECT_EQ(row.status, status) << row.name;
    if (row.status == vtqStsOk) continue;
    bool untouched = std::count(buffer.begin(), buffer.end(), 0xA5) == ptrdiff_t(buffer.size());
    for (int z = 0; z < valid.dst.depth; ++z)
      for (int y = 0; y < valid.dst.height; ++y)
        for (int x = 0; x < valid.dst.width; ++x) untouched &= dst.at(x, y, z) == kUntouched16;
    EXPECT_TRUE(untouched) << row.name << " wrote";
  }
}

TEST_P(FilterChecks, BufferSizes) {
  const VtqVolumeSize one = {1, 1, 1}, flat = {4, 0, 4}, negative = {4, 4, -1};
  // Per-thread sizes worked out by hand from the formula; the last wraps in 32 bits.
  const struct {
    VtqVolumeSize dst, kernel;
    bool nullDst, nullKernel, nullSize;
    int channels;
    VtqStatus status;
    int size;
  } rows[] = {
      {one, one, false, false, false, 1, vtqStsOk, 160},
      {{17, 2, 2}, {5, 5, 5}, false, false, false, 1, vtqStsOk, 2592},
      {{256, 9, 9}, {4, 3, 2}, false, false, false, 1, vtqStsOk, 1472},
      {{1000, 1, 1}, {601, 601, 601}, false, false, false, 1, vtqStsOk, -815875168},
      {one, one, false, false, true, 1, vtqStsErrNullPtr, 0},
      {flat, one, true, false, false, 2, vtqStsErrNullPtr, 0},
      {flat, one, false, true, false, 2, vtqStsErrNullPtr, 0},
      {flat, flat, false, false, false, 2, vtqStsErrSize, 0},
      {one, negative, false, false, false, 2, vtqStsErrSize, 0},
      {one, one, false, false, false, 2, vtqStsErrChannels, 0},
      {one, one, false, false, false, 0, vtqStsErrChannels, 0},
  };
  for (int threads : {1, 2}) {
    ThreadCount count(threads);
    for (const auto& r : rows) {
      int size = -12345;
      EXPECT_EQ(r.status, kDispatchTable.FilterGetBufSize[path()](
                              r.nullDst ? nullptr : &r.dst, r.nullKernel ? nullptr : &r.kernel,
                              r.channels, r.nullSize ? nullptr : &size));
      const auto wrapped = static_cast<int32_t>(static_cast<uint32_t>(r.size) * threads);
      EXPECT_EQ(r.status == vtqStsOk ? wrapped : -12345, size);
    }
  }
}

// What a call carves from its buffer, counted with the worst start alignment, fits in what
// the size query reports, for widths and kernels on both sides of every rounding step.
TEST(FilterBuffer, ThePlanFitsTheReportedSize) {
  for (int w : {1, 2, 15, 16, 17, 31, 33, 64, 1000})
    for (int kw : {1, 2, 3, 4, 7, 8})
      for (int kh : {1, 2, 5})
        for (int kd : {1, 3, 7})
          for (int threads = 1; threads <= 4; ++threads) {
            const u8::volume::KernelGeometry g({kw, kh, kd}, {0, 0, 0});
            const auto plan = u8::volume::PlanFilterScratch(w, g, threads);
            const int32_t perThread = u8::volume::FilterBufferPerThread(w, kw, kh, kd);
            ASSERT_LE(63 + plan.totalBytes, size_t(perThread) * threads)
                << w << " " << kw << "x" << kh << "x" << kd << " threads " << threads;
          }
}

}  // namespace
}  // namespace vtqr::test
