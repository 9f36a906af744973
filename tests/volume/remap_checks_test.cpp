// Remap and warp checks: the order of every check, with nothing written on a failure or a
// warning, including the checks of the planar hand-off; the coefficient test; the warp's
// work-buffer query.
#include <gtest/gtest.h>

#include <limits>

#include "volume/remap_test_util.h"

namespace vtqr::test {
namespace {

class RemapChecks : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(RemapChecks);

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

bool Untouched(const std::vector<uint8_t>& bytes) {
  return std::count(bytes.begin(), bytes.end(), kUntouched) == ptrdiff_t(bytes.size());
}

// A remap call's arguments; each row of the table breaks some of them. Maps of whole voxels
// make a valid call write every voxel.
struct RemapCall {
  bool nullSrc = false, nullDst = false, nullMap[3] = {}, nullSlice0 = false;
  VtqVolumeSize srcVolume = {6, 5, 4};
  VtqCuboid srcVOI = {0, 0, 0, 6, 5, 4};
  VtqVolumeSize dstVolume = {4, 3, 2};
  int interpolation = vtqInterCubicCatmullRom;
};

const struct {
  const char* name;
  void (*breakArgs)(RemapCall&);
  VtqStatus status;
} kRemapRows[] = {
    {"valid", [](RemapCall&) {}, vtqStsOk},
    {"VOI past the volume is trimmed", [](RemapCall& c) { c.srcVOI = {1, 1, 1, 40, 40, 40}; },
     vtqStsOk},
    {"null pSrc", [](RemapCall& c) { c.nullSrc = true; }, vtqStsErrNullPtr},
    {"null pDst before a map", [](RemapCall& c) { c.nullDst = true, c.nullMap[0] = true; },
     vtqStsErrNullPtr},
    {"null pyMap before size", [](RemapCall& c) { c.nullMap[1] = true, c.srcVolume.width = 0; },
     vtqStsErrNullPtr},
    {"null pzMap of a planar source",
     [](RemapCall& c) { c.nullMap[2] = true, c.srcVolume.depth = 1; }, vtqStsErrNullPtr},
    {"srcVolume depth 0", [](RemapCall& c) { c.srcVolume.depth = 0; }, vtqStsErrSize},
    {"srcVOI y -1", [](RemapCall& c) { c.srcVOI.y = -1; }, vtqStsErrSize},
    {"srcVOI width 0", [](RemapCall& c) { c.srcVOI.width = 0; }, vtqStsErrSize},
    {"dstVolume height 0 before interpolation",
     [](RemapCall& c) { c.dstVolume.height = 0, c.interpolation = 3; }, vtqStsErrSize},
    {"interpolation 3", [](RemapCall& c) { c.interpolation = 3; }, vtqStsErrInterpolation},
    {"interpolation 8 before the VOI warning",
     [](RemapCall& c) { c.interpolation = 8, c.srcVOI.z = 4; }, vtqStsErrInterpolation},
    {"srcVOI z at the depth", [](RemapCall& c) { c.srcVOI.z = 4; }, vtqStsWarnVoiOutside},
    {"srcVOI x past the width", [](RemapCall& c) { c.srcVOI.x = 7; }, vtqStsWarnVoiOutside},
    {"planar: slice 0 null", [](RemapCall& c) { c.srcVolume.depth = 1, c.nullSlice0 = true; },
     vtqStsErrNullPtr},
    {"planar: VOI z plays no part", [](RemapCall& c) { c.srcVolume.depth = 1, c.srcVOI.z = 9; },
     vtqStsOk},
    {"planar: VOI y at the height", [](RemapCall& c) { c.srcVolume.depth = 1, c.srcVOI.y = 5; },
     vtqStsWarnVoiOutside},
};

template <class T>
void CheckRemapOrder(CodePath path) {
  Volume<T> src({6, 5, 4});
  FillRandom(src, 5);
  for (const auto& row : kRemapRows) {
    RemapCall call;
    row.breakArgs(call);
    Volume<T> dst({4, 3, 2});
    std::fill(dst.bytes().begin(), dst.bytes().end(), kUntouched);
    Maps maps({4, 3, 2});
    maps.Fill([](int x, int y, int z) {
      return std::array<float, 3>{float(x), float(y), float(z)};
    });
    const Vtq32f* const* m[3];
    for (int a = 0; a < 3; ++a) m[a] = call.nullMap[a] ? nullptr : maps.axis[a].constSlices();
    std::vector<const T*> srcSlices(src.constSlices(), src.constSlices() + 4);
    if (call.nullSlice0) srcSlices[0] = nullptr;
    const VtqStatus status = RemapFn<T>(path)(
        call.nullSrc ? nullptr : srcSlices.data(), call.srcVolume, src.rowStep(), call.srcVOI, m[0],
        m[1], m[2], maps.axis[0].rowStep(), call.nullDst ? nullptr : dst.slices(), dst.rowStep(),
        call.dstVolume, call.interpolation);
    EXPECT_EQ(row.status, status) << row.name << " size " << sizeof(T);
    EXPECT_EQ(row.status != vtqStsOk, Untouched(dst.bytes())) << row.name << " size " << sizeof(T);
  }
}

TEST_P(RemapChecks, RemapOrderAndNothingWrittenOnFailureOrWarning) {
  CheckRemapOrder<Vtq8u>(path());
  CheckRemapOrder<Vtq16u>(path());
  CheckRemapOrder<Vtq32f>(path());
}

// A warp call's arguments: a valid call maps the source onto itself.
struct WarpCall {
  bool nullSrc = false, nullDst = false, nullCoeffs = false, nullSlice0 = false;
  VtqVolumeSize srcVolume = {6, 5, 4};
  VtqCuboid srcVOI = {0, 0, 0, 6, 5, 4};
  VtqCuboid dstVOI = {0, 0, 0, 6, 5, 4};
  double c[3][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}};
  int interpolation = vtqInterLinear;
};

const struct {
  const char* name;
  void (*breakArgs)(WarpCall&);
  VtqStatus status;
} kWarpRows[] = {
    {"valid", [](WarpCall&) {}, vtqStsOk},
    {"90 degrees about z",
     [](WarpCall& c) { c.c[0][0] = c.c[1][1] = 0, c.c[0][1] = -1, c.c[1][0] = 1, c.c[0][3] = 4; },
     vtqStsOk},
    {"diagonal at 1e-100 but one",
     [](WarpCall& c) { c.c[0][0] = c.c[1][1] = 1e-100, c.c[0][1] = c.c[1][0] = 1; }, vtqStsOk},
    {"null pSrc", [](WarpCall& c) { c.nullSrc = true; }, vtqStsErrNullPtr},
    {"null pDst", [](WarpCall& c) { c.nullDst = true; }, vtqStsErrNullPtr},
    {"null coeffs before size", [](WarpCall& c) { c.nullCoeffs = true, c.dstVOI.depth = 0; },
     vtqStsErrNullPtr},
    {"srcVolume width 0", [](WarpCall& c) { c.srcVolume.width = 0; }, vtqStsErrSize},
    {"srcVOI z -1", [](WarpCall& c) { c.srcVOI.z = -1; }, vtqStsErrSize},
    {"dstVOI height 0 before coefficients",
     [](WarpCall& c) { c.dstVOI.height = 0, c.c[0][0] = 0, c.c[0][1] = 0; }, vtqStsErrSize},
    {"no diagonal left (a cyclic exchange)",
     [](WarpCall& c) {
       double m[3][4] = {{0, 1, 0, 0}, {0, 0, 1, 0}, {1e-100, 0, -1e-100, 0}};
       std::memcpy(c.c, m, sizeof(m));
     },
     vtqStsErrCoeff},
    {"singular", [](WarpCall& c) { c.c[2][0] = 1, c.c[2][2] = 0; }, vtqStsErrCoeff},
    {"NaN translation", [](WarpCall& c) { c.c[1][3] = kNaN; }, vtqStsErrCoeff},
    {"infinite coefficient", [](WarpCall& c) { c.c[0][2] = INFINITY; }, vtqStsErrCoeff},
    {"determinant underflows", [](WarpCall& c) { c.c[0][0] = c.c[1][1] = c.c[2][2] = 1e-110; },
     vtqStsErrCoeff},
    {"coefficients before interpolation",
     [](WarpCall& c) { c.c[1][1] = 0, c.c[1][2] = 0, c.interpolation = 0; }, vtqStsErrCoeff},
    {"interpolation 3", [](WarpCall& c) { c.interpolation = 3; }, vtqStsErrInterpolation},
    {"srcVOI y at the height", [](WarpCall& c) { c.srcVOI.y = 5; }, vtqStsWarnVoiOutside},
    {"planar: slice 0 null", [](WarpCall& c) { c.srcVolume.depth = 1, c.nullSlice0 = true; },
     vtqStsErrNullPtr},
    {"planar: x/y block singular",
     [](WarpCall& c) { c.srcVolume.depth = 1, c.c[0][0] = 0, c.c[0][2] = 1, c.c[2][0] = 1; },
     vtqStsErrCoeff},
    {"planar: quarter turn of the slice",
     [](WarpCall& c) {
       c.srcVolume.depth = 1, c.c[0][0] = c.c[1][1] = 0, c.c[0][1] = -1, c.c[1][0] = 1,
       c.c[0][3] = 4;
     },
     vtqStsOk},
    {"planar: VOI z plays no part", [](WarpCall& c) { c.srcVolume.depth = 1, c.srcVOI.z = 3; },
     vtqStsOk},
};

template <class T>
void CheckWarpOrder(CodePath path) {
  Volume<T> src({6, 5, 4});
  FillRandom(src, 7);
  for (const auto& row : kWarpRows) {
    WarpCall call;
    row.breakArgs(call);
    Volume<T> dst({6, 5, 4});
    std::fill(dst.bytes().begin(), dst.bytes().end(), kUntouched);
    std::vector<const T*> srcSlices(src.constSlices(), src.constSlices() + 4);
    if (call.nullSlice0) srcSlices[0] = nullptr;
    const VtqStatus status = WarpFn<T>(path)(
        call.nullSrc ? nullptr : srcSlices.data(), call.srcVolume, src.rowStep(), call.srcVOI,
        call.nullDst ? nullptr : dst.slices(), dst.rowStep(), call.dstVOI,
        call.nullCoeffs ? nullptr : call.c, call.interpolation, nullptr);
    EXPECT_EQ(row.status, status) << row.name << " size " << sizeof(T);
    EXPECT_EQ(row.status != vtqStsOk, Untouched(dst.bytes())) << row.name << " size " << sizeof(T);
  }
}

TEST_P(RemapChecks, WarpOrderAndNothingWrittenOnFailureOrWarning) {
  CheckWarpOrder<Vtq8u>(path());
  CheckWarpOrder<Vtq16u>(path());
  CheckWarpOrder<Vtq32f>(path());
}

TEST_P(RemapChecks, WarpBufferSizeQuery) {
  const VtqCuboid ok = {0, 0, 0, 4, 4, 4};
  const struct {
    const char* name;
    bool nullSize, nullSrc;
    VtqCuboid src, dst;
    int nChannel, interpolation;
    VtqStatus status;
  } rows[] = {
      {"valid", false, false, ok, {3, 2, 1, 9, 9, 9}, 1, 7, vtqStsOk},
      {"null pSize first", true, false, {0, 0, -1, 4, 4, 4}, ok, 2, 0, vtqStsErrNullPtr},
      {"null srcVOI", false, true, ok, ok, 1, 1, vtqStsErrNullPtr},
      {"srcVOI depth 0 before channels", false, false, {0, 0, 0, 4, 4, 0}, ok, 2, 1, vtqStsErrSize},
      {"dstVOI x -1", false, false, ok, {-1, 0, 0, 4, 4, 4}, 1, 1, vtqStsErrSize},
      {"two channels before interpolation", false, false, ok, ok, 2, 0, vtqStsErrChannels},
      {"interpolation 3", false, false, ok, ok, 1, 3, vtqStsErrInterpolation},
  };
  for (const auto& row : rows) {
    int size = -1;
    EXPECT_EQ(row.status, kDispatchTable.WarpAffineGetBufSize[path()](
                              row.nullSrc ? nullptr : &row.src, &row.dst, row.nChannel,
                              row.interpolation, row.nullSize ? nullptr : &size))
        << row.name;
    EXPECT_EQ(row.status == vtqStsOk ? 0 : -1, size) << row.name;
  }
}

}  // namespace
}  // namespace vtqr::test
