// Remap: values against the double-precision reference on sources that exercise the planar
// hand-off and the reduced modes of small sources; exact cases (ties, the upper-bound rule, the
// two 8-bit roundings); the same bits on either path, any thread count and any position of a
// voxel within its row.
#include <gtest/gtest.h>

#include <tuple>

#include "volume/volume_test_util.h"

namespace vtqr::test {
namespace {

class Remap : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(Remap);

// The source as the reference sees it: trimmed bounds and the mode that applies.
struct RefSource {
  int axes;  // 2 for a single-slice source
  int lo[3], hi[3];
  int code;
};

RefSource MakeRefSource(VtqVolumeSize v, VtqCuboid voi, int code) {
  const int axes = v.depth == 1 ? 2 : 3;
  if (axes == 2) voi.z = 0, voi.depth = 1;
  RefSource r = {axes,
                 {voi.x, voi.y, voi.z},
                 {voi.x + std::min(voi.width, v.width - voi.x) - 1,
                  voi.y + std::min(voi.height, v.height - voi.y) - 1,
                  voi.z + std::min(voi.depth, v.depth - voi.z) - 1},
                 code};
  const int smallest = std::min({v.width, v.height, axes == 3 ? v.depth : v.width});
  if (r.code >= 4 && smallest < 4) r.code = 2;
  if (smallest < 2) r.code = 1;
  return r;
}

// Weight of a cubic tap at distance d, interpolated between the kernel's samples every 1/100;
// the kernel itself comes from the tap weights of a fraction.
double RefTableWeight(int code, double d) {
  auto kernel = [code](double d) {
    double w[4];
    ReferenceCubicWeights(code, d < 1 ? d : d - 1, w);
    return d < 1 ? w[1] : w[0];
  };
  const double u = 100 * std::min(d, 2.0);
  const double i = std::min(std::floor(u), 199.0);
  const double lo = kernel(i / 100), hi = kernel((i + 1) / 100);
  return lo + (hi - lo) * (u - i);
}

AxisTaps RemapTaps(int code, double m, int hi) {
  const int i = static_cast<int>(m);
  if (code == 1) return {1, {static_cast<int>(std::nearbyint(m))}, {1}};
  if (code == 2) {
    const int j = std::max(i == hi ? i - 1 : i, 0);
    return {2, {j, j + 1}, {1 - (m - j), m - j}};
  }
  const double t = m - i;
  AxisTaps a = {4, {i - 1, i, i + 1, i + 2}, {}};
  if (i < 1) {
    a = {4, {0, 0, 1, 2}, {}, true};
  } else if (i == hi - 1) {
    a.index[3] = i + 1, a.border = true;
  } else if (i >= hi) {
    a.index[2] = a.index[3] = i, a.border = true;
  }
  for (int k = 0; k < 4; ++k) a.weight[k] = RefTableWeight(code, std::abs(k - 1 - t));
  return a;
}

// The stored value of one voxel sampled at m (z ignored for a planar source) as a double, or
// false when the position is outside the bounds.
template <class T>
bool RefSample(const Volume<T>& src, const RefSource& s, const std::array<float, 3>& m,
               double* out) {
  for (int a = 0; a < s.axes; ++a) {
    if (!(m[a] >= s.lo[a] && m[a] <= s.hi[a])) return false;
  }
  AxisTaps ax[3];
  for (int a = 0; a < 3; ++a)
    ax[a] = a < s.axes ? RemapTaps(s.code, m[a], s.hi[a]) : AxisTaps{1, {0}, {1}};
  const double sum = SumOfTaps(src, ax);
  if constexpr (std::is_same_v<T, Vtq32f>) {
    *out = sum;
  } else if (std::is_same_v<T, Vtq8u> && s.code >= 4 &&
             (ax[0].border || ax[1].border || ax[2].border)) {
    *out = std::clamp(std::trunc(sum + 0.5000001), 0.0, 255.0);
  } else {
    *out = std::nearbyint(std::clamp(sum, 0.0, Highest<T>()));
  }
  return true;
}

// Positions around the VOI [lo, hi] of one axis: anywhere from a voxel and a half before to a
// voxel and a half after, with a good share of whole voxels, halves, the bounds themselves,
// NaN and infinities, where the rules have their edges.
float RandomCoordinate(std::mt19937& rng, int lo, int hi) {
  std::uniform_int_distribution<int> kind(0, 15), voxel(lo - 1, hi + 1);
  const int k = kind(rng);
  if (k < 3) return float(voxel(rng)) + (k == 2 ? 0.5f : 0.0f);
  if (k < 5) return float(k == 3 ? lo : hi);
  if (k == 5) return std::array{kNaNf, kInff, -kInff}[kind(rng) % 3];
  return std::uniform_real_distribution<float>(lo - 1.5f, hi + 1.5f)(rng);
}

// Random maps (one position in eight on a whole voxel of the VOI, where the interpolating modes
// copy it), or smooth ones: positions that follow the destination, shifted by fractions, as
// deformation fields do, so that most groups of four voxels share their source rows and read
// their taps as runs.
Maps TestMaps(bool smooth, VtqVolumeSize dstSize, const RefSource& s, uint32_t seed) {
  std::mt19937 rng(seed);
  Maps maps(dstSize);
  maps.Fill([&](int x, int y, int z) {
    if (smooth) {
      return std::array{s.lo[0] + 0.25f + float(x) + 0.125f * float(y % 3),
                        s.lo[1] + 0.4f + 0.7f * float(y), s.lo[2] + 0.35f + 0.6f * float(z)};
    }
    auto voxel = [&](int a) { return float(std::uniform_int_distribution(s.lo[a], s.hi[a])(rng)); };
    if (rng() % 8 == 0) return std::array{voxel(0), voxel(1), voxel(2)};
    return std::array{RandomCoordinate(rng, s.lo[0], s.hi[0]),
                      RandomCoordinate(rng, s.lo[1], s.hi[1]),
                      RandomCoordinate(rng, s.lo[2], s.hi[2])};
  });
  return maps;
}

const struct {
  const char* name;
  VtqVolumeSize size;
  VtqCuboid voi;
} kSources[] = {
    {"whole volume", {9, 8, 7}, {0, 0, 0, 9, 8, 7}},
    // Positions mostly away from the borders, where groups read their taps as whole runs.
    {"large volume", {48, 40, 36}, {0, 0, 0, 48, 40, 36}},
    {"interior VOI", {9, 8, 7}, {2, 3, 1, 5, 3, 4}},
    {"VOI past the far corner", {9, 8, 7}, {5, 6, 4, 20, 20, 20}},
    {"VOI one voxel wide at 0", {9, 8, 7}, {0, 0, 0, 1, 1, 1}},
    {"VOI one voxel wide inside", {9, 8, 7}, {4, 2, 6, 1, 5, 1}},
    {"planar", {9, 8, 1}, {1, 0, 0, 8, 8, 1}},
    {"planar, VOI z ignored", {6, 5, 1}, {0, 1, 7, 6, 9, 3}},
    {"3x3x3: cubic as trilinear", {3, 3, 3}, {0, 0, 0, 3, 3, 3}},
    {"depth 2: cubic as trilinear", {6, 7, 2}, {0, 0, 0, 6, 7, 2}},
    {"width 1: nearest", {1, 6, 5}, {0, 0, 0, 1, 6, 5}},
    {"height 1: nearest", {6, 1, 5}, {0, 0, 0, 6, 1, 5}},
    {"planar 3x5: cubic as trilinear", {3, 5, 1}, {0, 0, 0, 3, 5, 1}},
    {"planar 4x4 stays cubic", {4, 4, 1}, {0, 0, 0, 4, 4, 1}},
};

// Bound of a 32f result relative to the largest source magnitude (1 here): the float weights
// and sums of 64 taps stay well below it. Integers within 1, as a sum near a half may round
// either way in float; nearest, and the interpolating modes on a whole voxel, copy exactly.
// Voxels sampled outside, and (planar) the slices past 0, stay untouched.
TEST_P(Remap, MatchesTheReference) {
  ThreadCount one(1);
  const VtqVolumeSize dstSize = {13, 6, 5};  // rows of three groups of four and a single voxel
  ForEachType([&]<class T>() {
    for (const auto& c : kSources) {
      Volume<T> src(c.size);
      FillRandom(src, 3 + sizeof(T));
      for (int code : kCodes) {
        for (bool smooth : {false, true}) {
          SCOPED_TRACE(::testing::Message() << c.name << ", code " << code << ", " << sizeof(T)
                                            << (smooth ? ", smooth maps" : ""));
          const RefSource s = MakeRefSource(c.size, c.voi, code);
          const Maps maps = TestMaps(smooth, dstSize, s, 11 * code + c.size.width);
          Volume<T> dst(dstSize);
          ASSERT_EQ(vtqStsOk, CallRemap(path(), src, c.voi, maps, dst, code));
          for (int z = 0; z < dstSize.depth; ++z)
            for (int y = 0; y < dstSize.height; ++y)
              for (int x = 0; x < dstSize.width; ++x) {
                std::array<float, 3> m = maps.at(x, y, z);
                if (c.size.depth == 1 && z > 0) m[0] = kNaNf;
                const T got = dst.at(x, y, z);
                double want = 0;
                bool ok;
                if (!RefSample(src, s, m, &want)) {
                  ok = AllUntouched(reinterpret_cast<const uint8_t*>(&got), sizeof(T));
                } else if (s.code == 1 || (s.code != 5 && s.code != 7 && m[0] == std::trunc(m[0]) &&
                                           m[1] == std::trunc(m[1]) && m[2] == std::trunc(m[2]))) {
                  ok = double(got) == want || (std::isnan(want) && std::isnan(double(got)));
                } else {
                  ok = std::abs(double(got) - want) <= (std::is_same_v<T, Vtq32f> ? 0x1p-17 : 1.0);
                }
                ASSERT_TRUE(ok) << x << "," << y << "," << z << " at " << m[0] << "," << m[1] << ","
                                << m[2] << ": got " << double(got) << ", want " << want;
              }
        }
      }
    }
  });
}

// Single voxels whose value the rules fix exactly, in 32f and 8u. The source is 8 x 8 x 8 with
// voxel (x, y, z) = x + 10 y + 20 z, except where a row sets a voxel (in 8u, a whole column of
// x). NaN stands for "not the sentinel, and NaN"; the sentinel for a voxel left as it was.
TEST_P(Remap, ExactCases) {
  struct Voxel {
    int x, y, z;
    float value;
  };
  // The 8u cubic rows sum to exactly 2.5 along x: taps 16, 4, 4, 16 at t = 0.5 weigh -1/16,
  // 9/16, 9/16, -1/16 (exact in the tables); along y and z every position is on a voxel, where
  // the weights are 0, 1, 0, 0. At a border of the VOI such a sum is truncated after adding
  // 0.5000001 (3), inside it rounds half to even (2).
  const std::vector<Voxel> k2_5 = {{0, 0, 0, 16}, {1, 0, 0, 4}, {2, 0, 0, 4},  {3, 0, 0, 16},
                                   {4, 0, 0, 4},  {5, 0, 0, 4}, {6, 0, 0, 16}, {7, 0, 0, 4}};
  const struct {
    const char* name;
    int code;
    std::array<float, 3> position;
    std::vector<Voxel> set;
    float want;  // as a float; 8u rows store it as an integer
    bool eightBit = false;
    VtqCuboid voi = {0, 0, 0, 8, 8, 8};
  } rows[] = {
      // clang-format off
      {"nearest: halves to even", 1, {2.5f, 1.5f, 2.5f}, {}, 62},
      {"nearest: just above a half", 1, {2.5000002f, 0, 0}, {}, 3},
      {"trilinear on the upper bound reads the voxel below with weight 0", 2, {7, 0, 0},
       {{6, 0, 0, kInff}}, kNaNf},
      {"trilinear on a VOI's upper bound", 2, {3, 1, 1}, {{2, 1, 1, kInff}}, kNaNf, false,
       {0, 0, 0, 4, 6, 5}},
      {"trilinear on voxel 0 of a one-voxel VOI", 2, {0, 0, 0}, {{1, 0, 0, 50}}, 0, false,
       {0, 0, 0, 1, 6, 5}},
      {"Catmull-Rom at x = 0 takes taps (0, 0, 1, 2)", 6, {0.5f, 0, 0}, {{0, 0, 0, 16}},
       16 * (-0.0625f + 0.5625f) + 0.5625f - 0.125f},
      {"a NaN position keeps the voxel", 6, {kNaNf, 0, 0}, {}, Sentinel()},
      {"a position just below the VOI keeps the voxel", 2, {0.9999999f, 1, 1}, {}, Sentinel(),
       false, {1, 0, 0, 7, 6, 5}},
      {"8u: 2.5 inside rounds to even", 6, {1.5f, 3, 3}, k2_5, 2, true},
      {"8u: 2.5 with taps replaced at y = 0", 6, {1.5f, 0, 3}, k2_5, 3, true},
      {"8u: 2.5 one below the upper z bound", 6, {1.5f, 3, 6}, k2_5, 3, true},
      {"8u: 2.5 on the upper y bound", 6, {1.5f, 7, 3}, k2_5, 3, true},
      {"8u: 2.5 on taps 3..6", 6, {4.5f, 2, 5}, k2_5, 2, true},
      // clang-format on
  };
  for (const auto& row : rows) {
    Maps maps({1, 1, 1});
    maps.Fill([&](int, int, int) { return row.position; });
    auto run = [&]<class T>(T untouched) {
      Volume<T> src({8, 8, 8}), dst({1, 1, 1});
      src.Fill([&](int x, int y, int z) {
        for (const Voxel& v : row.set) {
          if (v.x == x && (row.eightBit || (v.y == y && v.z == z))) return v.value;
        }
        return float(x + 10 * y + 20 * z);
      });
      dst.at(0, 0, 0) = untouched;
      EXPECT_EQ(vtqStsOk, CallRemap(path(), src, row.voi, maps, dst, row.code)) << row.name;
      return dst.at(0, 0, 0);
    };
    if (row.eightBit) {
      EXPECT_EQ(Vtq8u(row.want), run(Vtq8u{kUntouched})) << row.name;
    } else if (const float got = run(Sentinel());
               std::isnan(row.want) && Bits(row.want) != kSentinelBits) {
      EXPECT_TRUE(std::isnan(got) && Bits(got) != kSentinelBits) << row.name << ": " << got;
    } else {
      EXPECT_EQ(Bits(row.want), Bits(got)) << row.name << ": " << got;
    }
  }
}

// The bits of u8 on one thread, on both paths with one and two threads; and a voxel's bits do
// not depend on where its row puts it: a destination one voxel wider, whose maps hold the
// same positions one voxel later, holds the same values one voxel later.
TEST_P(Remap, SameBitsOnEveryPathThreadAndLane) {
  auto check = [&]<class T>(T, VtqVolumeSize dstSize, VtqVolumeSize srcSize) {
    Volume<T> src(srcSize);
    FillRandom(src, 23);
    const VtqCuboid voi = {0, 1, 0, srcSize.width, srcSize.height - 1, srcSize.depth};
    const VtqVolumeSize wider = {dstSize.width + 1, dstSize.height, dstSize.depth};
    for (int code : kCodes) {
      for (bool smooth : {false, true}) {
        const Maps maps = TestMaps(smooth, dstSize, MakeRefSource(srcSize, voi, code), 5 + code);
        Maps shifted(wider);
        shifted.Fill([&](int x, int y, int z) {
          return x == 0 ? std::array{kNaNf, 0.f, 0.f} : maps.at(x - 1, y, z);
        });
        ExpectSameOnPathsAndThreads(
            path(),
            [&](CodePath p) {
              Volume<T> dst(dstSize), shiftedDst(wider);
              EXPECT_EQ(vtqStsOk, CallRemap(p, src, voi, maps, dst, code));
              EXPECT_EQ(vtqStsOk, CallRemap(p, src, voi, shifted, shiftedDst, code));
              // The shifted result without its first column: the same bits.
              const std::vector<T> voxels = dst.voxels(), all = shiftedDst.voxels();
              std::vector<T> back;
              for (size_t i = 0; i < all.size(); ++i)
                if (i % size_t(wider.width) != 0) back.push_back(all[i]);
              EXPECT_EQ(0, std::memcmp(voxels.data(), back.data(), back.size() * sizeof(T)))
                  << "a voxel one lane later";
              return voxels;
            },
            ::testing::PrintToString(std::tuple{code, sizeof(T), smooth}));
      }
    }
  };
  check(Vtq8u{}, {19, 17, 16}, {12, 11, 10});
  check(Vtq16u{}, {18, 16, 17}, {9, 12, 6});
  check(Vtq32f{}, {21, 16, 16}, {10, 10, 10});
  check(Vtq32f{}, {37, 33, 1}, {20, 18, 1});
}

}  // namespace
}  // namespace vtqr::test
