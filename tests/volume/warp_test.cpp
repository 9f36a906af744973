// Affine warp: the same bits as remap through maps of the same positions; a general map against the
// double-precision reference (its inverse by elimination in long double); the same bits on either
// path and thread count; the order of the checks, the coefficient test and the buffer query.
#include <gtest/gtest.h>

#include "volume/volume_test_util.h"

namespace vtqr::test {
namespace {

class Warp : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(Warp);

using Coeffs = double[3][4];

// The inverse of dst = A src + b, by Gauss-Jordan elimination with partial pivoting:
// src = m[..][0..2] dst + m[..][3].
struct Inverse {
  long double m[3][4];
};
Inverse Invert(const Coeffs& c, int axes) {
  long double a[3][6] = {};
  for (int i = 0; i < axes; ++i) {
    for (int j = 0; j < axes; ++j) a[i][j] = c[i][j];
    a[i][3 + i] = 1;
  }
  for (int col = 0; col < axes; ++col) {
    int pivot = col;
    for (int r = col + 1; r < axes; ++r)
      if (std::fabs(a[r][col]) > std::fabs(a[pivot][col])) pivot = r;
    std::swap(a[col], a[pivot]);
    const long double p = a[col][col];
    for (long double& v : a[col]) v /= p;
    for (int r = 0; r < axes; ++r) {
      if (r == col) continue;
      const long double f = a[r][col];
      for (int k = 0; k < 6; ++k) a[r][k] -= f * a[col][k];
    }
  }
  Inverse inv = {};
  for (int i = 0; i < axes; ++i) {
    for (int j = 0; j < axes; ++j) inv.m[i][j] = a[i][3 + j];
    for (int j = 0; j < axes; ++j) inv.m[i][3] -= inv.m[i][j] * c[j][3];
  }
  return inv;
}

// Source position of destination voxel (x, y, z), in long double.
void Position(const Inverse& inv, int axes, int x, int y, int z, long double (&s)[3]) {
  const long double d[3] = {static_cast<long double>(x), static_cast<long double>(y),
                            static_cast<long double>(z)};
  for (int i = 0; i < 3; ++i) {
    s[i] = inv.m[i][3];
    for (int j = 0; j < axes; ++j) s[i] += inv.m[i][j] * d[j];
  }
  if (axes == 2) s[2] = 0;
}

bool Inside(const VtqCuboid& c, int x, int y, int z) {
  return x >= c.x && x < c.x + c.width && y >= c.y && y < c.y + c.height && z >= c.z &&
         z < c.z + c.depth;
}

// Maps whose inverse and positions are exact in double: the warp then equals, bit for bit, a
// remap through maps holding the same positions (as floats), in every mode, over the dstVOI.
TEST_P(Warp, EqualsRemapThroughTheSamePositions) {
  const Coeffs kMaps[] = {
      {{1, 0, 0, 2}, {0, 1, 0, -1}, {0, 0, 1, 3}},          // whole voxels: a copy, moved
      {{2, 0, 0, 3}, {0, 0.5, 0, -1.5}, {0, 0, 1, 2}},      // scales with half-voxel positions
      {{0, -1, 0, 12}, {1, 0, 0, -2}, {0, 0, 1, 0}},        // 90 degrees about z
      {{0, 0, 1, 1}, {0, 1, 0, 0.25}, {1, 0, 0, -0.5}},     // x and z exchanged
      {{1, 0.5, 0, -2}, {0, 1, 0, 0.75}, {0, 0, 0.25, 1}},  // a shear
  };
  ForEachType([&]<class T>() {
    for (VtqVolumeSize size : {VtqVolumeSize{10, 9, 8}, VtqVolumeSize{10, 9, 1}}) {
      const bool planar = size.depth == 1;
      Volume<T> src(size);
      FillRandom(src, 43);
      const VtqCuboid srcVOI = {1, 0, 0, size.width - 1, size.height, size.depth};
      const VtqCuboid dstVOI = {1, 2, 0, 13, 9, planar ? 1 : 7};
      const VtqVolumeSize dstSize = {15, 12, planar ? 1 : 8};
      for (const Coeffs& c : kMaps) {
        if (planar && c[0][0] == 0 && c[1][0] == 0) continue;  // its x/y block is singular
        const Inverse inv = Invert(c, planar ? 2 : 3);
        Maps maps(dstSize);
        maps.Fill([&](int x, int y, int z) {
          long double s[3];
          Position(inv, planar ? 2 : 3, x, y, z, s);
          return std::array{float(s[0]), float(s[1]), float(s[2])};
        });
        for (int code : kCodes) {
          SCOPED_TRACE(::testing::Message() << "map " << &c - kMaps << " code " << code << ", "
                                            << sizeof(T) << ", depth " << size.depth);
          Volume<T> warped(dstSize), remapped(dstSize);
          ASSERT_EQ(vtqStsOk, CallWarp(path(), src, srcVOI, warped, dstVOI, c, code));
          ASSERT_EQ(vtqStsOk, CallRemap(path(), src, srcVOI, maps, remapped, code));
          for (int z = dstVOI.z; z < dstVOI.z + dstVOI.depth; ++z)
            for (int y = dstVOI.y; y < dstVOI.y + dstVOI.height; ++y)
              for (int x = dstVOI.x; x < dstVOI.x + dstVOI.width; ++x) {
                const T a = warped.at(x, y, z), b = remapped.at(x, y, z);
                ASSERT_EQ(0, std::memcmp(&a, &b, sizeof(T))) << x << "," << y << "," << z;
              }
        }
      }
    }
  });
}

// A general map (rotation, anisotropic scale, shear, translation) against the reference at
// the positions of the long-double inverse. The library rounds its own double positions to
// float, which may land one float away: voxels within 1e-3 of a bound, or for nearest of a
// half, could go either way and are skipped; elsewhere the values move by at most a float's
// step times the gradient, hence a looser bound for floats than remap's.
TEST_P(Warp, MatchesTheReference) {
  ThreadCount one(1);
  ForEachType([&]<class T>() {
    for (VtqVolumeSize size : {VtqVolumeSize{16, 15, 14}, VtqVolumeSize{16, 15, 1}}) {
      const int axes = size.depth == 1 ? 2 : 3;
      Volume<T> src(size);
      FillRandom(src, 47);
      const VtqCuboid srcVOI = {1, 2, 0, size.width - 3, size.height - 2, size.depth};
      const VtqVolumeSize dstSize = {23, 21, axes == 2 ? 1 : 19};
      const VtqCuboid dstVOI = {1, 0, 0, 21, 21, axes == 2 ? 1 : 18};
      // A rotation by 23 degrees about (7, 6, 5), scaled, sheared and moved.
      const Coeffs c = {
          {1.1046, -0.0907, 0, 2.9009}, {0.3907, 0.9205, -0.2, -2.2581}, {0.1, 0, 0.9, 1.3}};
      const Inverse inv = Invert(c, axes);
      for (int code : kCodes) {
        SCOPED_TRACE(::testing::Message()
                     << "code " << code << ", " << sizeof(T) << ", depth " << size.depth);
        const RefSource s = MakeRefSource(size, srcVOI, code);
        Volume<T> dst(dstSize);
        ASSERT_EQ(vtqStsOk, CallWarp(path(), src, srcVOI, dst, dstVOI, c, code));
        int compared = 0;
        EXPECT_TRUE(MatchesReference(
            src, s, dst, {0, 0, 0, dstSize.width, dstSize.height, dstSize.depth},
            [&](int x, int y, int z, double(&m)[3]) {
              const bool inVOI = Inside(dstVOI, x, y, z);
              long double p[3];
              Position(inv, axes, x, y, z, p);
              for (int a = 0; a < 3; ++a) {
                m[a] = inVOI ? double(float(p[a])) : NAN;
                if (a >= axes) continue;
                const bool nearBound = std::fabs(p[a] - s.lo[a]) < 1e-3 ||
                                       std::fabs(p[a] - s.hi[a]) < 1e-3;
                const bool nearHalf = code == 1 && std::fabs(p[a] - std::floor(p[a]) - 0.5) < 1e-3;
                if (inVOI && (nearBound || nearHalf)) return false;
              }
              compared += inVOI;
              return true;
            },
            std::is_same_v<T, Vtq32f> ? 4 * kFloatBound : 1.0));
        EXPECT_GT(compared, 100);
      }
    }
  });
}

// Two threads split the slices (or, planar, the rows); both paths and thread counts give the
// bits of u8 on one thread.
TEST_P(Warp, SameBitsOnEveryPathAndThreadCount) {
  for (VtqVolumeSize size : {VtqVolumeSize{20, 18, 17}, VtqVolumeSize{40, 33, 1}}) {
    Volume<Vtq16u> src(size);
    FillRandom(src, 53);
    // A rotation by 17 degrees about (9, 8, 7).
    const Coeffs c = {{0.9563, -0.2924, 0, 2.7322}, {0.2924, 0.9563, 0, -2.2818}, {0, 0, 1, 0}};
    const VtqCuboid all = {0, 0, 0, size.width, size.height, size.depth};
    for (int code : kCodes) {
      auto run = [&](CodePath p, int threads) {
        ThreadCount count(threads);
        Volume<Vtq16u> dst(size);
        EXPECT_EQ(vtqStsOk, CallWarp(p, src, all, dst, all, c, code));
        return dst.voxels();
      };
      const std::vector<Vtq16u> expected = run(kPathU8, 1);
      EXPECT_TRUE(expected == run(path(), 1)) << "code " << code << " depth " << size.depth;
      EXPECT_TRUE(expected == run(path(), 2)) << "code " << code << " depth " << size.depth;
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

// In check order; rows that break two things expect the earlier check to win.
const CheckRow<WarpCall> kWarpRows[] = {
    // clang-format off
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
    {"planar: quarter turn of the slice",
     [](WarpCall& c) {
       c.srcVolume.depth = 1, c.c[0][0] = c.c[1][1] = 0, c.c[0][1] = -1, c.c[1][0] = 1,
       c.c[0][3] = 4;
     },
     vtqStsOk},
    {"planar: VOI z plays no part", [](WarpCall& c) { c.srcVolume.depth = 1, c.srcVOI.z = 3; },
     vtqStsOk},
    // clang-format on
};

TEST_P(Warp, CheckOrderAndNothingWrittenOnFailureOrWarning) {
  ForEachType([&]<class T>() {
    Volume<T> src({6, 5, 4});
    FillRandom(src, 7);
    for (const auto& row : kWarpRows) {
      SCOPED_TRACE(::testing::Message() << row.name << ", " << sizeof(T));
      WarpCall c;
      row.breakArgs(c);
      Volume<T> dst({6, 5, 4});
      std::vector<const T*> srcSlices(src.constSlices(), src.constSlices() + 4);
      if (c.nullSlice0) srcSlices[0] = nullptr;
      EXPECT_EQ(row.status, WarpFn<T>(path())(
                                c.nullSrc ? nullptr : srcSlices.data(), c.srcVolume, src.rowStep(),
                                c.srcVOI, c.nullDst ? nullptr : dst.slices(), dst.rowStep(),
                                c.dstVOI, c.nullCoeffs ? nullptr : c.c, c.interpolation, nullptr));
      EXPECT_EQ(row.status != vtqStsOk, dst.Untouched());
    }
  });
}

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
