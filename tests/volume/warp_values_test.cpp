// Affine warp results: identity and whole-voxel translations exactly; the same bits as remap
// through maps of the same positions; a general map against the double-precision reference
// (its inverse by elimination in long double); a rotation undone by its inverse; one and two
// threads alike.
#include <gtest/gtest.h>

#include <cmath>

#include "volume/remap_test_util.h"

namespace vtqr::test {
namespace {

class Warp : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(Warp);

using Coeffs = double[3][4];

// The inverse of dst = A src + b, by Gauss-Jordan elimination with partial pivoting.
struct Inverse {
  long double m[3][4];  // src = m[..][0..2] dst + m[..][3]
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

void Rotation(double degrees, const double (&centre)[3], Coeffs& c) {
  const double r = degrees * M_PI / 180, cs = std::cos(r), sn = std::sin(r);
  const double a[3][3] = {{cs, -sn, 0}, {sn, cs, 0}, {0, 0, 1}};
  for (int i = 0; i < 3; ++i) {
    c[i][3] = centre[i];
    for (int j = 0; j < 3; ++j) {
      c[i][j] = a[i][j];
      c[i][3] -= a[i][j] * centre[j];
    }
  }
}

// Whole-voxel maps: the identity, and translations, which move the source by whole voxels.
// Voxels whose source lies outside keep their bytes; nothing outside the dstVOI is written.
template <class T>
void CheckWholeVoxelMaps(CodePath path, VtqVolumeSize size) {
  const bool planar = size.depth == 1;
  Volume<T> src(size);
  FillRandom(src, 41);
  const VtqCuboid srcVOI = {0, 0, 0, size.width, size.height, size.depth};
  const VtqCuboid dstVOIs[] = {srcVOI, {2, 1, 0, size.width - 3, size.height - 2, size.depth}};
  const int shifts[][3] = {{0, 0, 0}, {2, -1, 3}, {-3, 4, -1}};
  for (const auto& shift : shifts) {
    const Coeffs c = {
        {1, 0, 0, double(shift[0])}, {0, 1, 0, double(shift[1])}, {0, 0, 1, double(shift[2])}};
    for (const VtqCuboid& dstVOI : dstVOIs) {
      for (int code : {1, 2, 4, 6}) {
        Volume<T> dst(size);
        std::fill(dst.bytes().begin(), dst.bytes().end(), kUntouched);
        ASSERT_EQ(vtqStsOk, CallWarp(path, src, srcVOI, dst, dstVOI, c, code));
        for (int z = 0; z < size.depth; ++z)
          for (int y = 0; y < size.height; ++y)
            for (int x = 0; x < size.width; ++x) {
              const int sx = x - shift[0], sy = y - shift[1], sz = planar ? 0 : z - shift[2];
              const bool inVOI = x >= dstVOI.x && x < dstVOI.x + dstVOI.width && y >= dstVOI.y &&
                                 y < dstVOI.y + dstVOI.height && (planar ? z == 0 : z >= dstVOI.z);
              const bool inSource = sx >= 0 && sx < size.width && sy >= 0 && sy < size.height &&
                                    sz >= 0 && sz < size.depth;
              T want;
              if (inVOI && inSource) {
                want = src.at(sx, sy, sz);
              } else {
                std::memset(&want, kUntouched, sizeof(T));
              }
              const T got = dst.at(x, y, z);
              ASSERT_EQ(0, std::memcmp(&want, &got, sizeof(T)))
                  << "shift " << shift[0] << "," << shift[1] << "," << shift[2] << " code " << code
                  << " voxel " << x << "," << y << "," << z << " size " << sizeof(T);
            }
      }
    }
  }
}

TEST_P(Warp, WholeVoxelMapsMoveTheSourceExactly) {
  for (VtqVolumeSize size : {VtqVolumeSize{11, 9, 8}, VtqVolumeSize{13, 10, 1}}) {
    CheckWholeVoxelMaps<Vtq8u>(path(), size);
    CheckWholeVoxelMaps<Vtq16u>(path(), size);
    CheckWholeVoxelMaps<Vtq32f>(path(), size);
  }
}

// Maps whose inverse and positions are exact in double: the warp then equals, bit for bit, a
// remap through maps holding the same positions (as floats), in every mode, over the dstVOI.
template <class T>
void CheckEqualsRemap(CodePath path, VtqVolumeSize size) {
  const Coeffs kMaps[] = {
      {{2, 0, 0, 3}, {0, 0.5, 0, -1.5}, {0, 0, 1, 2}},      // scales with half-voxel positions
      {{0, -1, 0, 12}, {1, 0, 0, -2}, {0, 0, 1, 0}},        // 90 degrees about z
      {{0, 0, 1, 1}, {0, 1, 0, 0.25}, {1, 0, 0, -0.5}},     // x and z exchanged
      {{1, 0.5, 0, -2}, {0, 1, 0, 0.75}, {0, 0, 0.25, 1}},  // a shear
  };
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
      return std::array<float, 3>{float(s[0]), float(s[1]), float(s[2])};
    });
    for (int code : kCodes) {
      Volume<T> warped(dstSize), remapped(dstSize);
      ASSERT_EQ(vtqStsOk, CallWarp(path, src, srcVOI, warped, dstVOI, c, code));
      ASSERT_EQ(vtqStsOk, CallRemap(path, src, srcVOI, maps, remapped, code));
      for (int z = dstVOI.z; z < dstVOI.z + dstVOI.depth; ++z)
        for (int y = dstVOI.y; y < dstVOI.y + dstVOI.height; ++y)
          for (int x = dstVOI.x; x < dstVOI.x + dstVOI.width; ++x) {
            const T a = warped.at(x, y, z), b = remapped.at(x, y, z);
            ASSERT_EQ(0, std::memcmp(&a, &b, sizeof(T)))
                << "map " << &c - kMaps << " code " << code << " voxel " << x << "," << y << ","
                << z << " size " << sizeof(T) << " depth " << size.depth;
          }
    }
  }
}

TEST_P(Warp, EqualsRemapThroughTheSamePositions) {
  for (VtqVolumeSize size : {VtqVolumeSize{10, 9, 8}, VtqVolumeSize{10, 9, 1}}) {
    CheckEqualsRemap<Vtq8u>(path(), size);
    CheckEqualsRemap<Vtq16u>(path(), size);
    CheckEqualsRemap<Vtq32f>(path(), size);
  }
}

// A general map (rotation, anisotropic scale, shear, translation) against the reference at
// the positions of the long-double inverse. The library rounds its own double positions to
// float, which may land one float away: voxels within 1e-3 of a bound, or for nearest of a
// half, could go either way and are skipped; elsewhere the values move by at most a float's
// step times the gradient, hence a looser bound for floats than remap's.
template <class T>
void CheckAgainstReference(CodePath path, VtqVolumeSize size) {
  const bool planar = size.depth == 1;
  const int axes = planar ? 2 : 3;
  Volume<T> src(size);
  FillRandom(src, 47);
  const VtqCuboid srcVOI = {1, 2, 0, size.width - 3, size.height - 2, size.depth};
  const VtqVolumeSize dstSize = {23, 21, planar ? 1 : 19};
  const VtqCuboid dstVOI = {1, 0, 0, 21, 21, planar ? 1 : 18};
  Coeffs c;
  Rotation(23, {7, 6, 5}, c);
  c[0][0] *= 1.2, c[0][1] += 0.3, c[1][2] -= 0.2, c[2][2] = 0.9, c[2][0] = 0.1, c[2][3] += 1.3;
  const Inverse inv = Invert(c, axes);
  for (int code : kCodes) {
    const RefSource s = MakeRefSource(size, srcVOI, code);
    Volume<T> dst(dstSize);
    std::fill(dst.bytes().begin(), dst.bytes().end(), kUntouched);
    ASSERT_EQ(vtqStsOk, CallWarp(path, src, srcVOI, dst, dstVOI, c, code));
    int compared = 0;
    EXPECT_TRUE(MatchesReference(
        src, s, dst, {0, 0, 0, dstSize.width, dstSize.height, dstSize.depth},
        [&](int x, int y, int z, double(&m)[3]) {
          const bool inVOI = x >= dstVOI.x && y >= dstVOI.y && z < dstVOI.z + dstVOI.depth;
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
        std::is_same_v<T, Vtq32f> ? 4 * kFloatBound : 1.0))
        << "code " << code << " size " << sizeof(T) << " depth " << size.depth;
    EXPECT_GT(compared, 100);
  }
}

TEST_P(Warp, MatchesTheReference) {
  ThreadCount one(1);
  for (VtqVolumeSize size : {VtqVolumeSize{16, 15, 14}, VtqVolumeSize{16, 15, 1}}) {
    CheckAgainstReference<Vtq8u>(path(), size);
    CheckAgainstReference<Vtq16u>(path(), size);
    CheckAgainstReference<Vtq32f>(path(), size);
  }
}

// A rotation by 10 degrees about the z axis through the centre, then the inverse rotation,
// gives back a smooth source in the central region within the interpolation error of two
// passes. The matrices are computed independently (cos and -sin), not by inverting.
TEST_P(Warp, RotationThenItsInverseStaysClose) {
  const VtqVolumeSize size = {40, 40, 24};
  Volume<Vtq32f> src(size), there(size), back(size);
  src.Fill([](int x, int y, int z) { return std::sin(x / 6.0) * std::cos(y / 7.0) + z / 24.0; });
  const VtqCuboid all = {0, 0, 0, 40, 40, 24};
  Coeffs forward, inverse;
  Rotation(10, {19.5, 19.5, 0}, forward);
  Rotation(-10, {19.5, 19.5, 0}, inverse);
  const struct {
    int code;
    double tolerance;
  } rows[] = {{2, 0.02}, {4, 2e-4}, {6, 2e-4}};
  for (const auto& row : rows) {
    ASSERT_EQ(vtqStsOk, CallWarp(path(), src, all, there, all, forward, row.code));
    ASSERT_EQ(vtqStsOk, CallWarp(path(), there, all, back, all, inverse, row.code));
    double worst = 0;
    for (int z = 0; z < 24; ++z)
      for (int y = 8; y < 32; ++y)
        for (int x = 8; x < 32; ++x)
          worst = std::max(worst, double(std::abs(back.at(x, y, z) - src.at(x, y, z))));
    EXPECT_LT(worst, row.tolerance) << "code " << row.code;
    EXPECT_GT(worst, 0.0) << "code " << row.code;  // the test would not see a no-op
  }
}

// Two threads split the slices (or, planar, the rows) and give the bits of one.
TEST_P(Warp, TwoThreadsGiveTheBitsOfOne) {
  for (VtqVolumeSize size : {VtqVolumeSize{20, 18, 17}, VtqVolumeSize{40, 33, 1}}) {
    Volume<Vtq16u> src(size);
    FillRandom(src, 53);
    Coeffs c;
    Rotation(17, {9, 8, 7}, c);
    const VtqCuboid all = {0, 0, 0, size.width, size.height, size.depth};
    for (int code : kCodes) {
      auto run = [&](int threads) {
        ThreadCount count(threads);
        Volume<Vtq16u> dst(size);
        EXPECT_EQ(vtqStsOk, CallWarp(path(), src, all, dst, all, c, code));
        return dst.voxels();
      };
      EXPECT_TRUE(run(1) == run(2)) << "code " << code << " depth " << size.depth;
    }
  }
}

}  // namespace
}  // namespace vtqr::test
