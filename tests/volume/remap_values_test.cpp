// Remap results: against the double-precision reference for every element type and mode, on
// sources that exercise the planar hand-off and the reduced modes of small sources; exact
// cases (ties, the upper-bound rule, the two 8-bit roundings, identity maps); and the same
// bits on either code path, any thread count and any position of a voxel within its row.
#include <gtest/gtest.h>

#include <random>

#include "volume/remap_test_util.h"

namespace vtqr::test {
namespace {

class Remap : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(Remap);

// Positions around the VOI [lo, hi] of one axis: anywhere from a voxel and a half before to a
// voxel and a half after, with a good share of whole voxels, halves, the bounds themselves,
// NaN and infinities, where the rules have their edges.
float RandomCoordinate(std::mt19937& rng, int lo, int hi) {
  std::uniform_int_distribution<int> kind(0, 15), voxel(lo - 1, hi + 1);
  std::uniform_real_distribution<float> any(lo - 1.5f, hi + 1.5f);
  switch (kind(rng)) {
    case 0:
    case 1:
      return float(voxel(rng));
    case 2:
      return voxel(rng) + 0.5f;
    case 3:
      return float(lo);
    case 4:
      return float(hi);
    case 5:
      return std::uniform_int_distribution<int>(0, 2)(rng) == 0 ? kNaNf
             : kind(rng) < 8                                    ? kInff
                                                                : -kInff;
    default:
      return any(rng);
  }
}

Maps RandomMaps(VtqVolumeSize dstSize, const RefSource& s, uint32_t seed) {
  std::mt19937 rng(seed);
  Maps maps(dstSize);
  maps.Fill([&](int, int, int) {
    return std::array<float, 3>{RandomCoordinate(rng, s.lo[0], s.hi[0]),
                                RandomCoordinate(rng, s.lo[1], s.hi[1]),
                                RandomCoordinate(rng, s.lo[2], s.hi[2])};
  });
  return maps;
}

struct SourceCase {
  const char* name;
  VtqVolumeSize size;
  VtqCuboid voi;
};

const SourceCase kSources[] = {
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

template <class T>
void CheckAgainstReference(CodePath path) {
  for (const SourceCase& c : kSources) {
    Volume<T> src(c.size);
    FillRandom(src, 3 + sizeof(T));
    for (int code : kCodes) {
      SCOPED_TRACE(::testing::Message() << c.name << " code " << code << " size " << sizeof(T));
      const RefSource s = MakeRefSource(c.size, c.voi, code);
      // 13 voxels a row: three groups of four and a single voxel.
      const VtqVolumeSize dstSize = {13, 6, 5};
      const Maps maps = RandomMaps(dstSize, s, 11 * code + c.size.width);
      Volume<T> dst(dstSize);
      std::fill(dst.bytes().begin(), dst.bytes().end(), kUntouched);
      ASSERT_EQ(vtqStsOk, CallRemap(path, src, c.voi, maps, dst, code));
      EXPECT_TRUE(MatchesReference(src, s, dst, {0, 0, 0, 13, 6, 5},
                                   [&](int x, int y, int z, double(&m)[3]) {
                                     // A planar remap writes slice 0 only.
                                     const bool written = c.size.depth > 1 || z == 0;
                                     const auto p = maps.at(x, y, z);
                                     for (int a = 0; a < 3; ++a) m[a] = written ? p[a] : kNaNf;
                                     return true;
                                   }));
    }
  }
}

TEST_P(Remap, MatchesTheReference) {
  ThreadCount one(1);
  CheckAgainstReference<Vtq8u>(path());
  CheckAgainstReference<Vtq16u>(path());
  CheckAgainstReference<Vtq32f>(path());
}

// Single voxels whose value the rules fix exactly. The source is 8 x 6 x 5 with voxel
// (x, y, z) = x + 10 y + 100 z, except where a row sets a voxel; the VOI is all of it unless
// the row says otherwise.
TEST_P(Remap, ExactCases) {
  struct Voxel {
    int x, y, z;
    float value;
  };
  const struct {
    const char* name;
    int code;
    std::array<float, 3> position;
    std::vector<Voxel> set;
    float want;
    VtqCuboid voi = {0, 0, 0, 8, 6, 5};
  } rows[] = {
      {"nearest: 2.5 to 2", 1, {2.5f, 1, 0}, {}, 12},
      {"nearest: 3.5 to 4", 1, {3.5f, 1.5f, 2.5f}, {}, 224},
      {"nearest: just above a half", 1, {2.5000002f, 0, 0}, {}, 3},
      {"trilinear on the upper bound reads the voxel below with weight 0",
       2,
       {7, 0, 0},
       {{6, 0, 0, kInff}},
       kNaNf},
      {"trilinear on a VOI's upper bound",
       2,
       {3, 1, 1},
       {{2, 1, 1, kInff}},
       kNaNf,
       {0, 0, 0, 4, 6, 5}},
      {"trilinear below the upper bound has no zero weight", 2, {6.5f, 0, 0}, {}, 6.5f},
      {"trilinear on voxel 0 of a one-voxel VOI",
       2,
       {0, 0, 0},
       {{1, 0, 0, 50}},
       0,
       {0, 0, 0, 1, 6, 5}},
      {"Catmull-Rom at a voxel centre", 6, {3, 2, 1}, {}, 123},
      {"Catmull-Rom at x = 0 takes taps (0, 0, 1, 2)",
       6,
       {0.5f, 0, 0},
       {{0, 0, 0, 16}},
       16 * (-0.0625f + 0.5625f) + 0.5625f - 0.125f},
      {"Catmull-Rom on the upper bound: taps (6, 7, 7, 7)", 6, {7, 0, 0}, {}, 7},
      {"a NaN position keeps the voxel", 6, {kNaNf, 0, 0}, {}, Sentinel()},
      {"a position just below the VOI keeps the voxel",
       2,
       {0.9999999f, 1, 1},
       {},
       Sentinel(),
       {1, 0, 0, 7, 6, 5}},
  };
  for (const auto& row : rows) {
    Volume<Vtq32f> src({8, 6, 5});
    src.Fill([](int x, int y, int z) { return x + 10 * y + 100 * z; });
    for (const Voxel& v : row.set) src.at(v.x, v.y, v.z) = v.value;
    Maps maps({1, 1, 1});
    maps.Fill([&](int, int, int) { return row.position; });
    Volume<Vtq32f> dst({1, 1, 1});
    dst.at(0, 0, 0) = Sentinel();
    ASSERT_EQ(vtqStsOk, CallRemap(path(), src, row.voi, maps, dst, row.code)) << row.name;
    const float got = dst.at(0, 0, 0);
    if (std::isnan(row.want) && !(Bits(row.want) == kSentinelBits)) {
      EXPECT_TRUE(std::isnan(got) && Bits(got) != kSentinelBits) << row.name << ": " << got;
    } else {
      EXPECT_EQ(Bits(row.want), Bits(got)) << row.name << ": " << got;
    }
  }
}

// 8u cubic sums of exactly 2.5: at a border of the VOI they are truncated after adding
// 0.5000001 (3), inside they round half to even (2). Along x, the taps 16, 4, 4, 16 at t = 0.5
// weigh -1/16, 9/16, 9/16, -1/16 (exact in the tables) and sum to 2.5; along y and z every
// position is on a voxel, where the weights are 0, 1, 0, 0.
TEST_P(Remap, EightBitRoundingDependsOnBorderTaps) {
  Volume<Vtq8u> src({8, 8, 8});
  src.Fill([](int x, int, int) { return x % 3 == 0 ? 16 : 4; });  // 16 4 4 16 4 4 16 4
  const struct {
    std::array<float, 3> position;
    Vtq8u want;
  } rows[] = {
      {{1.5f, 3, 3}, 2},  // taps 0..3 inside on every axis
      {{1.5f, 0, 3}, 3},  // y = 0: the taps below are replaced
      {{1.5f, 3, 6}, 3},  // z one below the upper bound
      {{1.5f, 7, 3}, 3},  // y on the upper bound
      {{4.5f, 2, 5}, 2},  // taps 3..6
  };
  for (const auto& row : rows) {
    Maps maps({1, 1, 1});
    maps.Fill([&](int, int, int) { return row.position; });
    Volume<Vtq8u> dst({1, 1, 1});
    ASSERT_EQ(vtqStsOk,
              CallRemap(path(), src, {0, 0, 0, 8, 8, 8}, maps, dst, vtqInterCubicCatmullRom));
    EXPECT_EQ(row.want, dst.at(0, 0, 0))
        << row.position[0] << "," << row.position[1] << "," << row.position[2];
  }
}

// Maps of whole voxels copy the source for the modes that pass through their samples, in
// every type, on the borders too.
template <class T>
void CheckIdentity(CodePath path, VtqVolumeSize size) {
  Volume<T> src(size);
  FillRandom(src, 17);
  Maps maps(size);
  maps.Fill([](int x, int y, int z) { return std::array<float, 3>{float(x), float(y), float(z)}; });
  for (int code : {1, 2, 4, 6}) {
    Volume<T> dst(size);
    ASSERT_EQ(vtqStsOk, CallRemap(path, src, {0, 0, 0, size.width, size.height, size.depth}, maps,
                                  dst, code));
    EXPECT_TRUE(src.voxels() == dst.voxels())
        << "code " << code << " size " << sizeof(T) << " depth " << size.depth;
  }
}

TEST_P(Remap, IdentityMapsCopyTheSource) {
  for (VtqVolumeSize size : {VtqVolumeSize{11, 7, 6}, VtqVolumeSize{10, 9, 1}}) {
    CheckIdentity<Vtq8u>(path(), size);
    CheckIdentity<Vtq16u>(path(), size);
    CheckIdentity<Vtq32f>(path(), size);
  }
}

// The bits of u8 on one thread, on both paths with one and two threads; and a voxel's bits do
// not depend on where its row puts it: a destination one voxel wider, whose maps hold the
// same positions one voxel later, holds the same values one voxel later.
template <class T>
void CheckSameBitsEverywhere(CodePath path, VtqVolumeSize dstSize, VtqVolumeSize srcSize) {
  Volume<T> src(srcSize);
  FillRandom(src, 23);
  const VtqCuboid voi = {0, 1, 0, srcSize.width, srcSize.height - 1, srcSize.depth};
  for (int code : kCodes) {
    const RefSource s = MakeRefSource(srcSize, voi, code);
    const Maps maps = RandomMaps(dstSize, s, 5 + code);
    auto run = [&](CodePath p, int threads) {
      ThreadCount count(threads);
      Volume<T> dst(dstSize);
      EXPECT_EQ(vtqStsOk, CallRemap(p, src, voi, maps, dst, code));
      return dst.voxels();
    };
    const std::vector<T> expected = run(kPathU8, 1);
    EXPECT_TRUE(expected == run(path, 1)) << "code " << code;
    EXPECT_TRUE(expected == run(path, 2)) << "code " << code << ", two threads";

    const VtqVolumeSize wider = {dstSize.width + 1, dstSize.height, dstSize.depth};
    Maps shifted(wider);
    shifted.Fill([&](int x, int y, int z) {
      return x == 0 ? std::array<float, 3>{kNaNf, 0, 0} : maps.at(x - 1, y, z);
    });
    Volume<T> dst(wider);
    ASSERT_EQ(vtqStsOk, CallRemap(path, src, voi, shifted, dst, code));
    for (int z = 0; z < dstSize.depth; ++z)
      for (int y = 0; y < dstSize.height; ++y)
        for (int x = 0; x < dstSize.width; ++x) {
          T a = expected[(size_t(z) * dstSize.height + y) * dstSize.width + x];
          T b = dst.at(x + 1, y, z);
          ASSERT_EQ(0, std::memcmp(&a, &b, sizeof(T))) << "code " << code << " voxel " << x;
        }
  }
}

TEST_P(Remap, SameBitsOnEveryPathThreadAndLane) {
  CheckSameBitsEverywhere<Vtq8u>(path(), {19, 17, 16}, {12, 11, 10});
  CheckSameBitsEverywhere<Vtq16u>(path(), {18, 16, 17}, {9, 12, 6});
  CheckSameBitsEverywhere<Vtq32f>(path(), {21, 16, 16}, {10, 10, 10});
  CheckSameBitsEverywhere<Vtq32f>(path(), {37, 33, 1}, {20, 18, 1});
}

}  // namespace
}  // namespace vtqr::test
