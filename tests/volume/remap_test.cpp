// Remap: values against the double-precision reference on sources that exercise the planar
// hand-off and the reduced modes of small sources; exact cases (ties, the upper-bound rule, the
// two 8-bit roundings); the same bits on either path, any thread count and any position of a
// voxel within its row; the order of the checks.
#include <gtest/gtest.h>

#include "volume/volume_test_util.h"

namespace vtqr::test {
namespace {

class Remap : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(Remap);

// Positions around the VOI [lo, hi] of one axis: anywhere from a voxel and a half before to a
// voxel and a half after, with a good share of whole voxels, halves, the bounds themselves,
// NaN and infinities, where the rules have their edges.
float RandomCoordinate(std::mt19937& rng, int lo, int hi) {
  std::uniform_int_distribution<int> kind(0, 15), voxel(lo - 1, hi + 1);
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
      return std::array{kNaNf, kInff, -kInff}[kind(rng) % 3];
    default:
      return std::uniform_real_distribution<float>(lo - 1.5f, hi + 1.5f)(rng);
  }
}

Maps RandomMaps(VtqVolumeSize dstSize, const RefSource& s, uint32_t seed) {
  std::mt19937 rng(seed);
  Maps maps(dstSize);
  maps.Fill([&](int, int, int) {
    // One position in eight on a whole voxel of the VOI, where the interpolating modes copy it.
    auto voxel = [&](int a) { return float(std::uniform_int_distribution(s.lo[a], s.hi[a])(rng)); };
    if (rng() % 8 == 0) return std::array{voxel(0), voxel(1), voxel(2)};
    return std::array{RandomCoordinate(rng, s.lo[0], s.hi[0]),
                      RandomCoordinate(rng, s.lo[1], s.hi[1]),
                      RandomCoordinate(rng, s.lo[2], s.hi[2])};
  });
  return maps;
}

// Positions that follow the destination, shifted by fractions, as smooth deformation fields do:
// most groups of four voxels then share their source rows and read their taps as runs.
Maps SmoothMaps(VtqVolumeSize dstSize, const RefSource& s) {
  Maps maps(dstSize);
  maps.Fill([&](int x, int y, int z) {
    return std::array{s.lo[0] + 0.25f + float(x) + 0.125f * float(y % 3),
                      s.lo[1] + 0.4f + 0.7f * float(y), s.lo[2] + 0.35f + 0.6f * float(z)};
  });
  return maps;
}

Maps TestMaps(bool smooth, VtqVolumeSize dstSize, const RefSource& s, uint32_t seed) {
  return smooth ? SmoothMaps(dstSize, s) : RandomMaps(dstSize, s, seed);
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

TEST_P(Remap, MatchesTheReference) {
  ThreadCount one(1);
  ForEachType([&]<class T>() {
    for (const auto& c : kSources) {
      Volume<T> src(c.size);
      FillRandom(src, 3 + sizeof(T));
      for (int code : kCodes) {
        for (bool smooth : {false, true}) {
          SCOPED_TRACE(::testing::Message() << c.name << ", code " << code << ", " << sizeof(T)
                                            << (smooth ? ", smooth maps" : ""));
          const RefSource s = MakeRefSource(c.size, c.voi, code);
          // 13 voxels a row: three groups of four and a single voxel.
          const VtqVolumeSize dstSize = {13, 6, 5};
          const Maps maps = TestMaps(smooth, dstSize, s, 11 * code + c.size.width);
          Volume<T> dst(dstSize);
          ASSERT_EQ(vtqStsOk, CallRemap(path(), src, c.voi, maps, dst, code));
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
  });
}

// Single voxels whose value the rules fix exactly, in 32f and 8u. The source is 8 x 8 x 8 with
// voxel (x, y, z) = x + 10 y + 20 z, except where a row sets a voxel; the VOI is all of it
// unless the row says otherwise. NaN stands for "not the sentinel, and NaN"; the sentinel (or
// 0xA5 in 8u) for a voxel left as it was.
TEST_P(Remap, ExactCases) {
  struct Voxel {
    int x, y, z;
    float value;
  };
  // The 8u cubic rows sum to exactly 2.5 along x: taps 16, 4, 4, 16 at t = 0.5 weigh -1/16,
  // 9/16, 9/16, -1/16 (exact in the tables); along y and z every position is on a voxel, where
  // the weights are 0, 1, 0, 0. At a border of the VOI such a sum is truncated after adding
  // 0.5000001 (3), inside it rounds half to even (2).
  const std::vector<Voxel> kTwoAndAHalf = {{0, 0, 0, 16}, {1, 0, 0, 4}, {2, 0, 0, 4},
                                           {3, 0, 0, 16}, {4, 0, 0, 4}, {5, 0, 0, 4},
                                           {6, 0, 0, 16}, {7, 0, 0, 4}};
  const VtqCuboid kAll = {0, 0, 0, 8, 8, 8};
  const struct {
    const char* name;
    int code;
    std::array<float, 3> position;
    std::vector<Voxel> set;
    float want;  // as a float; 8u rows store it as an integer
    bool eightBit = false;
    VtqCuboid voi = {0, 0, 0, 8, 8, 8};
  } rows[] = {
      {"nearest: halves to even", 1, {2.5f, 1.5f, 2.5f}, {}, 62},
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
       false,
       {0, 0, 0, 4, 6, 5}},
      {"trilinear on voxel 0 of a one-voxel VOI",
       2,
       {0, 0, 0},
       {{1, 0, 0, 50}},
       0,
       false,
       {0, 0, 0, 1, 6, 5}},
      {"Catmull-Rom at x = 0 takes taps (0, 0, 1, 2)",
       6,
       {0.5f, 0, 0},
       {{0, 0, 0, 16}},
       16 * (-0.0625f + 0.5625f) + 0.5625f - 0.125f},
      {"a NaN position keeps the voxel", 6, {kNaNf, 0, 0}, {}, Sentinel()},
      {"a position just below the VOI keeps the voxel",
       2,
       {0.9999999f, 1, 1},
       {},
       Sentinel(),
       false,
       {1, 0, 0, 7, 6, 5}},
      {"8u: 2.5 inside rounds to even", 6, {1.5f, 3, 3}, kTwoAndAHalf, 2, true, kAll},
      {"8u: 2.5 with taps replaced at y = 0", 6, {1.5f, 0, 3}, kTwoAndAHalf, 3, true, kAll},
      {"8u: 2.5 one below the upper z bound", 6, {1.5f, 3, 6}, kTwoAndAHalf, 3, true, kAll},
      {"8u: 2.5 on the upper y bound", 6, {1.5f, 7, 3}, kTwoAndAHalf, 3, true, kAll},
      {"8u: 2.5 on taps 3..6", 6, {4.5f, 2, 5}, kTwoAndAHalf, 2, true, kAll},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
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
      EXPECT_EQ(vtqStsOk, CallRemap(path(), src, row.voi, maps, dst, row.code));
      return dst.at(0, 0, 0);
    };
    if (row.eightBit) {
      EXPECT_EQ(Vtq8u(row.want), run(Vtq8u{kUntouched}));
    } else if (const float got = run(Sentinel());
               std::isnan(row.want) && Bits(row.want) != kSentinelBits) {
      EXPECT_TRUE(std::isnan(got) && Bits(got) != kSentinelBits) << got;
    } else {
      EXPECT_EQ(Bits(row.want), Bits(got)) << got;
    }
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
    for (bool smooth : {false, true}) {
      SCOPED_TRACE(::testing::Message()
                   << "code " << code << ", " << sizeof(T) << (smooth ? ", smooth maps" : ""));
      const Maps maps = TestMaps(smooth, dstSize, MakeRefSource(srcSize, voi, code), 5 + code);
      auto run = [&](CodePath p, int threads) {
        ThreadCount count(threads);
        Volume<T> dst(dstSize);
        EXPECT_EQ(vtqStsOk, CallRemap(p, src, voi, maps, dst, code));
        return dst.voxels();
      };
      const std::vector<T> expected = run(kPathU8, 1);
      EXPECT_TRUE(expected == run(path, 1));
      EXPECT_TRUE(expected == run(path, 2)) << "two threads";

      Maps shifted({dstSize.width + 1, dstSize.height, dstSize.depth});
      shifted.Fill([&](int x, int y, int z) {
        return x == 0 ? std::array{kNaNf, 0.f, 0.f} : maps.at(x - 1, y, z);
      });
      Volume<T> dst(shifted.axis[0].size());
      ASSERT_EQ(vtqStsOk, CallRemap(path, src, voi, shifted, dst, code));
      size_t i = 0;
      for (int z = 0; z < dstSize.depth; ++z)
        for (int y = 0; y < dstSize.height; ++y)
          for (int x = 0; x < dstSize.width; ++x, ++i) {
            const T a = expected[i], b = dst.at(x + 1, y, z);
            ASSERT_EQ(0, std::memcmp(&a, &b, sizeof(T))) << "voxel " << x;
          }
    }
  }
}

TEST_P(Remap, SameBitsOnEveryPathThreadAndLane) {
  CheckSameBitsEverywhere<Vtq8u>(path(), {19, 17, 16}, {12, 11, 10});
  CheckSameBitsEverywhere<Vtq16u>(path(), {18, 16, 17}, {9, 12, 6});
  CheckSameBitsEverywhere<Vtq32f>(path(), {21, 16, 16}, {10, 10, 10});
  CheckSameBitsEverywhere<Vtq32f>(path(), {37, 33, 1}, {20, 18, 1});
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

// In check order; rows that break two things expect the earlier check to win.
const CheckRow<RemapCall> kRemapRows[] = {
    // clang-format off
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
    // clang-format on
};

TEST_P(Remap, CheckOrderAndNothingWrittenOnFailureOrWarning) {
  Maps maps({4, 3, 2});
  maps.Fill([](int x, int y, int z) { return std::array{float(x), float(y), float(z)}; });
  ForEachType([&]<class T>() {
    Volume<T> src({6, 5, 4});
    FillRandom(src, 5);
    for (const auto& row : kRemapRows) {
      SCOPED_TRACE(::testing::Message() << row.name << ", " << sizeof(T));
      RemapCall c;
      row.breakArgs(c);
      Volume<T> dst({4, 3, 2});
      const Vtq32f* const* m[3];
      for (int a = 0; a < 3; ++a) m[a] = c.nullMap[a] ? nullptr : maps.axis[a].constSlices();
      std::vector<const T*> srcSlices(src.constSlices(), src.constSlices() + 4);
      if (c.nullSlice0) srcSlices[0] = nullptr;
      EXPECT_EQ(row.status,
                RemapFn<T>(path())(c.nullSrc ? nullptr : srcSlices.data(), c.srcVolume,
                                   src.rowStep(), c.srcVOI, m[0], m[1], m[2],
                                   maps.axis[0].rowStep(), c.nullDst ? nullptr : dst.slices(),
                                   dst.rowStep(), c.dstVolume, c.interpolation));
      EXPECT_EQ(row.status != vtqStsOk, dst.Untouched());
    }
  });
}

}  // namespace
}  // namespace vtqr::test
