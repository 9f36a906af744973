// Affine warp: the same values as remap through maps of the positions of the exact inverse (the
// same bits where those positions are exact); the same bits on either path and thread count.
#include <gtest/gtest.h>

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
      for (const auto& map : kMaps) {
        const auto& c = map.c;
        const bool exact = map.exact;
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

}  // namespace
}  // namespace vtqr::test
