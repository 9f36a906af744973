// Affine warp: the same values as remap through maps of the positions of the exact inverse (the
// same bits where those positions are exact); the same bits on either path and thread count;
// the order of the checks, the coefficient test and the buffer query.
#include <gtest/gtest.h>

#include <utility>

#include "volume/volume_test_util.h"

namespace vtqr::test {
namespace {

class Warp : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(Warp);

using Coeffs = double[3][4];

template <class T>
VtqStatus CallWarp(CodePath path, const Volume<T>& src, VtqCuboid srcVOI, Volume<T>& dst,
                   VtqCuboid dstVOI, const Coeffs& coeffs, int code) {
  return VTQR_TYPED(T, WarpAffine, C1PV)[path](src.constSlices(), src.size(), src.rowStep(), srcVOI,
                                               dst.slices(), dst.rowStep(), dstVOI, coeffs, code,
                                               nullptr);
}

// Source position of destination voxel d under the inverse of dst = A src + b, by cofactors in
// long double (a planar warp inverts the x/y block alone and keeps z = 0).
std::array<long double, 3> SourcePosition(const Coeffs& c, bool planar, int x, int y, int z) {
  long double a[3][3], r[3] = {x - c[0][3], y - c[1][3], z - c[2][3]};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) a[i][j] = planar && (i == 2 || j == 2) ? i == j : c[i][j];
  if (planar) r[2] = 0;
  auto cof = [&](int i, int j) {  // cofactor of a[i][j]
    return a[(i + 1) % 3][(j + 1) % 3] * a[(i + 2) % 3][(j + 2) % 3] -
           a[(i + 1) % 3][(j + 2) % 3] * a[(i + 2) % 3][(j + 1) % 3];
  };
  const long double det = a[0][0] * cof(0, 0) + a[0][1] * cof(0, 1) + a[0][2] * cof(0, 2);
  std::array<long double, 3> s = {};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) s[i] += cof(j, i) / det * r[j];
  return s;
}

// Maps whose positions are exact in double give, bit for bit, the remap through maps holding
// them as floats, in every mode, over the dstVOI. A general map (rotation, anisotropic scale,
// shear, translation) gives positions the library rounds from its own double inverse, which may
// land one float away: voxels within 1e-3 of a bound, or for nearest of a half, could go either
// way and are skipped; elsewhere values move by at most a float's step times the gradient.
TEST_P(Warp, MatchesRemapThroughTheSamePositions) {
  const struct {
    Coeffs c;
    bool exact;
  } kMaps[] = {
      {{{1, 0, 0, 2}, {0, 1, 0, -1}, {0, 0, 1, 3}}, true},          // a copy, moved
      {{{2, 0, 0, 3}, {0, 0.5, 0, -1.5}, {0, 0, 1, 2}}, true},      // scales, half-voxel positions
      {{{0, -1, 0, 12}, {1, 0, 0, -2}, {0, 0, 1, 0}}, true},        // 90 degrees about z
      {{{0, 0, 1, 1}, {0, 1, 0, 0.25}, {1, 0, 0, -0.5}}, true},     // x and z exchanged
      {{{1, 0.5, 0, -2}, {0, 1, 0, 0.75}, {0, 0, 0.25, 1}}, true},  // a shear
      {{{1.1046, -0.0907, 0, 2.9009}, {0.3907, 0.9205, -0.2, -2.2581}, {0.1, 0, 0.9, 1.3}}, false},
  };
  ThreadCount one(1);
  ForEachType([&]<class T>() {
    for (VtqVolumeSize size : {VtqVolumeSize{16, 15, 14}, VtqVolumeSize{16, 15, 1}}) {
      const bool planar = size.depth == 1;
      Volume<T> src(size);
      FillRandom(src, 43);
      const VtqCuboid srcVOI = {1, 2, 0, size.width - 3, size.height - 2, size.depth};
      const VtqVolumeSize dstSize = {23, 21, planar ? 1 : 19};
      const VtqCuboid dstVOI = {1, 2, 0, 21, 19, planar ? 1 : 18};
      const int lo[2] = {srcVOI.x, srcVOI.y}, hi[2] = {size.width - 3, size.height - 1};
      for (const auto& [c, exact] : kMaps) {
        if (planar && c[0][0] == 0 && c[1][0] == 0) continue;  // its x/y block is singular
        Maps maps(dstSize);
        maps.Fill([&](int x, int y, int z) {
          const std::array<long double, 3> s = SourcePosition(c, planar, x, y, z);
          return std::array{float(s[0]), float(s[1]), float(s[2])};
        });
        for (int code : kCodes) {
          SCOPED_TRACE(::testing::Message() << "map " << &c - &kMaps[0].c << " code " << code
                                            << ", " << sizeof(T) << ", depth " << size.depth);
          Volume<T> warped(dstSize), remapped(dstSize);
          ASSERT_EQ(vtqStsOk, CallWarp(path(), src, srcVOI, warped, dstVOI, c, code));
          ASSERT_EQ(vtqStsOk, CallRemap(path(), src, srcVOI, maps, remapped, code));
          int compared = 0;
          for (int z = dstVOI.z; z < dstVOI.z + dstVOI.depth; ++z)
            for (int y = dstVOI.y; y < dstVOI.y + dstVOI.height; ++y)
              for (int x = dstVOI.x; x < dstVOI.x + dstVOI.width; ++x) {
                const T a = warped.at(x, y, z), b = remapped.at(x, y, z);
                if (exact) {
                  ASSERT_EQ(0, std::memcmp(&a, &b, sizeof(T))) << x << "," << y << "," << z;
                  continue;
                }
                const std::array<long double, 3> p = SourcePosition(c, planar, x, y, z);
                bool edge = false;
                for (int k = 0; k < (planar ? 2 : 3); ++k) {
                  edge |= std::fabs(p[k] - (k < 2 ? lo[k] : 0)) < 1e-3 ||
                          std::fabs(p[k] - (k < 2 ? hi[k] : size.depth - 1)) < 1e-3 ||
                          (code == 1 && std::fabs(p[k] - std::floor(p[k]) - 0.5) < 1e-3);
                }
                if (edge) continue;
                ++compared;
                ASSERT_LE(std::abs(double(a) - double(b)),
                          (std::is_same_v<T, Vtq32f> ? 0x1p-15 : 1.0))
                    << x << "," << y << "," << z;
              }
          EXPECT_TRUE(exact || compared > 100);
        }
      }
    }
  });
}

// Two threads split the slices (or, planar, the rows).
TEST_P(Warp, SameBitsOnEveryPathAndThreadCount) {
  for (VtqVolumeSize size : {VtqVolumeSize{20, 18, 17}, VtqVolumeSize{40, 33, 1}}) {
    Volume<Vtq16u> src(size);
    FillRandom(src, 53);
    // A rotation by 17 degrees about (9, 8, 7).
    const Coeffs c = {{0.9563, -0.2924, 0, 2.7322}, {0.2924, 0.9563, 0, -2.2818}, {0, 0, 1, 0}};
    const VtqCuboid all = {0, 0, 0, size.width, size.height, size.depth};
    for (int code : kCodes) {
      ExpectSameOnPathsAndThreads(
          path(),
          [&](CodePath p) {
            Volume<Vtq16u> dst(size);
            EXPECT_EQ(vtqStsOk, CallWarp(p, src, all, dst, all, c, code));
            return dst.voxels();
          },
          "code " + std::to_string(code) + ", depth " + std::to_string(size.depth));
    }
  }
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

const CheckRow<WarpCall> kWarpRows[] = {
    // clang-format off
    {"valid", [](WarpCall&) {}, vtqStsOk},
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
     }, vtqStsErrCoeff},
    {"singular", [](WarpCall& c) { c.c[2][0] = 1, c.c[2][2] = 0; }, vtqStsErrCoeff},
    {"NaN translation", [](WarpCall& c) { c.c[1][3] = NAN; }, vtqStsErrCoeff},
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
    {"planar: VOI z plays no part", [](WarpCall& c) { c.srcVolume.depth = 1, c.srcVOI.z = 3; },
     vtqStsOk},
    // clang-format on
};

TEST_P(Warp, CheckOrderAndNothingWrittenOnFailureOrWarning) {
  ForEachType([&]<class T>() {
    Volume<T> src({6, 5, 4});
    FillRandom(src, 7);
    ExpectChecksInOrder(
        kWarpRows,
        [&](const WarpCall& c) {
          Volume<T> dst({6, 5, 4});
          std::vector<const T*> srcSlices(src.constSlices(), src.constSlices() + 4);
          if (c.nullSlice0) srcSlices[0] = nullptr;
          const VtqStatus status = VTQR_TYPED(T, WarpAffine, C1PV)[path()](
              c.nullSrc ? nullptr : srcSlices.data(), c.srcVolume, src.rowStep(), c.srcVOI,
              c.nullDst ? nullptr : dst.slices(), dst.rowStep(), c.dstVOI,
              c.nullCoeffs ? nullptr : c.c, c.interpolation, nullptr);
          return std::pair{status, dst.Untouched()};
        },
        std::to_string(sizeof(T)));
  });
}

// The query writes 0 (the warp needs no buffer) after its checks, in order.
TEST_P(Warp, BufferSizeQuery) {
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
