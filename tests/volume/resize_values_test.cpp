// Resize results: against the double-precision reference for every element type, layout and
// mode; bit-identical across layouts, code paths, thread counts, flipped volumes and buffer
// alignments; and the properties users rely on (constants stay constant, a ramp stays a ramp,
// factor 1 copies, nearest enlarging by 2 repeats every voxel twice).
#include <gtest/gtest.h>

#include "volume/resize_test_util.h"

namespace vtqr::test {
namespace {

// Error bound against the reference, relative to the largest value of the data: 2^-20 (the
// float passes of three axes, with weights rounded to float, measure below 2^-22 here).
// Integers are the reference clamped to the type's range and rounded, so they may also be off
// by the half that rounding allows.
constexpr double kRelativeBound = 0x1p-20;

struct GeometryCase {
  const char* name;
  VtqCuboid srcVOI;
  double factor[3];
  double shift[3];
  VtqCuboid dstVOI;  // within a 30 x 28 x 24 destination
};

constexpr VtqVolumeSize kSrcSize = {9, 8, 7};
constexpr VtqVolumeSize kDstSize = {30, 28, 24};
constexpr VtqCuboid kWholeDst = {0, 0, 0, 30, 28, 24};

const GeometryCase kGeometry[] = {
    {"shrink", {0, 0, 0, 9, 8, 7}, {0.5, 0.6, 0.75}, {0, 0, 0}, kWholeDst},
    {"enlarge with shifts", {0, 0, 0, 9, 8, 7}, {1.5, 2.0, 2.5}, {0.25, -0.5, 1.0}, kWholeDst},
    {"mixed, interior VOI", {2, 1, 1, 5, 5, 4}, {3.0, 0.4, 1.0}, {-2.3, 0.7, 0.5}, kWholeDst},
    {"VOI at the low corner", {0, 0, 0, 3, 2, 4}, {1.7, 1.3, 0.9}, {0, 0, 0}, kWholeDst},
    {"VOI past the high corner", {6, 5, 4, 10, 10, 10}, {2.2, 1.25, 1.6}, {0.1, 0.3, -0.2},
     kWholeDst},
    {"clipped by the dstVOI", {0, 0, 0, 9, 8, 7}, {1.5, 1.5, 1.5}, {0, 0, 0},
     {3, 2, 4, 7, 9, 5}},
    {"half-voxel shifts", {0, 0, 0, 9, 8, 7}, {1, 1, 1}, {0.5, -0.25, 0.75}, kWholeDst},
    {"one voxel thick", {4, 0, 3, 1, 8, 1}, {2.0, 1.0, 3.0}, {0, 0, 0}, kWholeDst},
    {"strong shrink", {0, 0, 0, 9, 8, 7}, {0.3, 0.25, 0.45}, {1.1, 0, 0.4}, kWholeDst},
};

template <class T>
double Highest() {
  return std::is_same_v<T, Vtq32f> ? 0.0 : double((1 << (8 * sizeof(T))) - 1);
}

template <class T>
void CheckAgainstReference(Layout layout, uint32_t seed) {
  Volume<T> src(kSrcSize);
  FillRandom(src, seed);
  for (const GeometryCase& g : kGeometry) {
    for (int code : kCodes) {
      SCOPED_TRACE(::testing::Message() << g.name << " code " << code << " layout "
                                        << static_cast<int>(layout) << " size " << sizeof(T));
      const ResizeParams p = {{g.factor[0], g.factor[1], g.factor[2]},
                              {g.shift[0], g.shift[1], g.shift[2]},
                              code};
      Span region[3];
      const std::vector<double> expected = ReferenceResize(src, g.srcVOI, g.dstVOI, p, region);
      ASSERT_FALSE(expected.empty());

      Volume<T> dst(kDstSize);
      std::fill(dst.bytes().begin(), dst.bytes().end(), kUntouched);
      std::vector<Vtq8u> buffer(BufferSize(g.srcVOI, g.dstVOI, code));
      ASSERT_EQ(vtqStsOk, CallResize(ActivePath(), layout, src, g.srcVOI, dst, g.dstVOI, p,
                                     buffer.data()));

      // Every voxel of the region within the bound; then it is reset, so that afterwards
      // every byte of the storage must be untouched.
      double worst = 0.0;
      size_t i = 0;
      for (int64_t z = region[2].start; z < region[2].end; ++z) {
        for (int64_t y = region[1].start; y < region[1].end; ++y) {
          for (int64_t x = region[0].start; x < region[0].end; ++x, ++i) {
            T& voxel = dst.at(int(x), int(y), int(z));
            double want = expected[i];
            if (!std::is_same_v<T, Vtq32f>) want = std::clamp(want, 0.0, Highest<T>());
            const double error = std::abs(double(voxel) - want);
            worst = std::max(worst, error);
            if (code == vtqInterNearest) {
              ASSERT_EQ(want, double(voxel)) << "at " << x << "," << y << "," << z;
            }
            std::memset(&voxel, kUntouched, sizeof(T));
          }
        }
      }
      const double bound =
          std::is_same_v<T, Vtq32f> ? kRelativeBound : 0.5 + Highest<T>() * kRelativeBound;
      EXPECT_LE(worst, bound);
      EXPECT_TRUE(std::all_of(dst.bytes().begin(), dst.bytes().end(),
                              [](uint8_t b) { return b == kUntouched; }))
          << "a byte outside the destination region was written";
    }
  }
}

// One thread: a parallel region per call costs more than these small volumes take, and the
// thread split is checked bit for bit below.
TEST(Resize, MatchesTheReference) {
  ThreadCount one(1);
  for (Layout layout : {Layout::kBlock, Layout::kSlices}) {
    CheckAgainstReference<Vtq8u>(layout, 1);
    CheckAgainstReference<Vtq16u>(layout, 2);
    CheckAgainstReference<Vtq32f>(layout, 3);
  }
}

// The same data and geometry give the same bits in every way of calling: V and PV, both code
// paths, one and two threads, volumes stored upside down and back to front (negative steps),
// and a work buffer at any alignment.
template <class T>
void CheckSameBitsEverywhere(int code) {
  SCOPED_TRACE(::testing::Message() << "code " << code << " size " << sizeof(T));
  const VtqVolumeSize srcSize = {13, 11, 9};
  const VtqCuboid srcVOI = {1, 0, 1, 12, 11, 7};
  const VtqVolumeSize dstSize = {23, 19, 17};
  const VtqCuboid dstVOI = {1, 2, 0, 22, 17, 17};
  const ResizeParams p = {{1.7, 1.4, 2.1}, {-0.3, 0.6, 0.2}, code};
  Volume<T> src(srcSize), flippedSrc(srcSize, true);
  FillRandom(src, 7);
  flippedSrc.Fill([&](int x, int y, int z) { return src.at(x, y, z); });

  std::vector<Vtq8u> buffer;
  {
    ThreadCount two(2);
    buffer.resize(static_cast<size_t>(BufferSize(srcVOI, dstVOI, code)) + 64);
  }

  auto run = [&](CodePath path, Layout layout, int threads, bool flipped, size_t misalign) {
    ThreadCount count(threads);
    Volume<T> dst(dstSize, flipped);
    std::fill(dst.bytes().begin(), dst.bytes().end(), kUntouched);
    EXPECT_EQ(vtqStsOk, CallResize(path, layout, flipped ? flippedSrc : src, srcVOI, dst,
                                   dstVOI, p, buffer.data() + misalign));
    std::vector<T> voxels;
    for (int z = 0; z < dstSize.depth; ++z)
      for (int y = 0; y < dstSize.height; ++y)
        for (int x = 0; x < dstSize.width; ++x) voxels.push_back(dst.at(x, y, z));
    return voxels;
  };
  const std::vector<T> expected = run(kPathU8, Layout::kBlock, 1, false, 0);
  struct Variant {
    CodePath path;
    Layout layout;
    int threads;
    bool flipped;
    size_t misalign;
  };
  const Variant variants[] = {
      {kPathN8, Layout::kBlock, 1, false, 0}, {kPathU8, Layout::kSlices, 1, false, 0},
      {kPathU8, Layout::kBlock, 2, false, 0}, {kPathN8, Layout::kSlices, 2, false, 0},
      {kPathU8, Layout::kBlock, 1, true, 0},  {kPathU8, Layout::kSlices, 2, true, 0},
      {kPathU8, Layout::kBlock, 2, false, 1}, {kPathU8, Layout::kBlock, 1, false, 37},
  };
  for (const Variant& v : variants) {
    const std::vector<T> got = run(v.path, v.layout, v.threads, v.flipped, v.misalign);
    EXPECT_EQ(0, std::memcmp(expected.data(), got.data(), got.size() * sizeof(T)))
        << PathName(v.path) << " layout " << static_cast<int>(v.layout) << " threads "
        << v.threads << " flipped " << v.flipped << " misalign " << v.misalign;
  }
}

TEST(Resize, SameBitsInEveryWayOfCalling) {
  for (int code : kCodes) {
    CheckSameBitsEverywhere<Vtq8u>(code);
    CheckSameBitsEverywhere<Vtq16u>(code);
    CheckSameBitsEverywhere<Vtq32f>(code);
  }
}

// An integer volume gives the float result of the same values, clamped and rounded half to
// even: the element types differ only in how voxels are loaded and stored. Factors 0.5, 1 and
// 2 put taps on zero weights, which integer types skip.
template <class T>
void CheckIntegersAreRoundedFloats(int code) {
  SCOPED_TRACE(::testing::Message() << "code " << code << " size " << sizeof(T));
  const VtqVolumeSize size = {14, 9, 8};
  const VtqCuboid voi = {1, 0, 0, 13, 9, 8};
  Volume<T> ints(size);
  FillRandom(ints, 31);
  Volume<Vtq32f> floats(size);
  floats.Fill([&](int x, int y, int z) { return float(ints.at(x, y, z)); });
  const double factors[][3] = {{0.5, 2.0, 1.0}, {2.0, 0.5, 0.5}, {1.3, 0.7, 2.6}};
  for (const auto& f : factors) {
    const ResizeParams p = {{f[0], f[1], f[2]}, {0, 0, 0}, code};
    const VtqCuboid dstVOI = {0, 0, 0, 28, 18, 20};
    std::vector<Vtq8u> buffer(BufferSize(voi, dstVOI, code));
    Volume<T> intOut({28, 18, 20});
    Volume<Vtq32f> floatOut({28, 18, 20});
    ASSERT_EQ(vtqStsOk, CallResize(ActivePath(), Layout::kBlock, ints, voi, intOut, dstVOI, p,
                                   buffer.data()));
    ASSERT_EQ(vtqStsOk, CallResize(ActivePath(), Layout::kBlock, floats, voi, floatOut, dstVOI,
                                   p, buffer.data()));
    for (int z = 0; z < 20; ++z)
      for (int y = 0; y < 18; ++y)
        for (int x = 0; x < 28; ++x) {
          const double rounded = std::nearbyint(std::clamp<double>(floatOut.at(x, y, z), 0, Highest<T>()));
          ASSERT_EQ(rounded, intOut.at(x, y, z)) << x << "," << y << "," << z << " factor " << f[0];
        }
  }
}

TEST(Resize, IntegersAreRoundedFloats) {
  ThreadCount one(1);
  for (int code : kCodes) {
    CheckIntegersAreRoundedFloats<Vtq8u>(code);
    CheckIntegersAreRoundedFloats<Vtq16u>(code);
  }
}

// A destination of more than 16 MiB goes out with non-temporal stores in 16-byte blocks; in
// slabs of a few slices each call keeps normal stores. The map is absolute, so both must give
// the same bits. Rows start off any 16-byte boundary, with heads and tails of every length.
template <class T>
void CheckSlabsEqualOneCall(int code, VtqVolumeSize dstSize) {
  SCOPED_TRACE(::testing::Message() << "code " << code << " size " << sizeof(T));
  ThreadCount one(1);
  const VtqVolumeSize srcSize = {23, 19, 17};
  const VtqCuboid srcVOI = {0, 0, 0, 23, 19, 17};
  const VtqCuboid dstVOI = {3, 1, 0, dstSize.width - 3, dstSize.height - 1, dstSize.depth};
  ASSERT_GE(uint64_t{sizeof(T)} * dstVOI.width * dstVOI.height * dstVOI.depth, 16u << 20);
  const ResizeParams p = {{dstSize.width / 23.0, dstSize.height / 19.0, dstSize.depth / 17.0},
                          {0.3, -0.2, 0.1},
                          code};
  Volume<T> src(srcSize);
  FillRandom(src, 21);
  Volume<T> whole(dstSize, false, 5), slabs(dstSize, false, 5);
  std::vector<Vtq8u> buffer(BufferSize(srcVOI, dstVOI, code));
  ASSERT_EQ(vtqStsOk, CallResize(ActivePath(), Layout::kBlock, src, srcVOI, whole, dstVOI, p,
                                 buffer.data()));
  for (int z = 0; z < dstSize.depth; z += 7) {
    const VtqCuboid slab = {dstVOI.x, dstVOI.y, z, dstVOI.width, dstVOI.height,
                            std::min(7, dstSize.depth - z)};
    ASSERT_EQ(vtqStsOk, CallResize(ActivePath(), Layout::kBlock, src, srcVOI, slabs, slab, p,
                                   buffer.data()));
  }
  EXPECT_TRUE(whole.bytes() == slabs.bytes());
}

TEST(Resize, SlabsEqualOneCall) {
  CheckSlabsEqualOneCall<Vtq8u>(vtqInterNearest, {255, 259, 260});
  CheckSlabsEqualOneCall<Vtq8u>(vtqInterLinear, {255, 259, 260});
  CheckSlabsEqualOneCall<Vtq8u>(vtqInterCubicB05C03, {255, 259, 260});
  CheckSlabsEqualOneCall<Vtq16u>(vtqInterCubicLagrange, {183, 181, 262});
  CheckSlabsEqualOneCall<Vtq32f>(vtqInterLinear, {133, 131, 252});
}

// Runs one resize of `src` over its whole volume into a destination the size of the mapped
// cuboid, returning the destination.
template <class T>
Volume<T> ResizeWhole(const Volume<T>& src, const ResizeParams& p, VtqCuboid* region) {
  const VtqVolumeSize s = src.size();
  const VtqCuboid srcVOI = {0, 0, 0, s.width, s.height, s.depth};
  EXPECT_EQ(vtqStsOk, kDispatchTable.GetResizeCuboid[kPathU8](
                          &srcVOI, region, p.factor[0], p.factor[1], p.factor[2], p.shift[0],
                          p.shift[1], p.shift[2], p.interpolation));
  Volume<T> dst({region->x + region->width, region->y + region->height,
                 region->z + region->depth});
  std::vector<Vtq8u> buffer(BufferSize(srcVOI, *region, p.interpolation));
  EXPECT_EQ(vtqStsOk, CallResize(ActivePath(), Layout::kBlock, src, srcVOI, dst, *region, p,
                                 buffer.data()));
  return dst;
}

TEST(Resize, ConstantsStayConstant) {
  ThreadCount one(1);
  for (int code : kCodes) {
    const ResizeParams p = {{1.6, 0.7, 2.3}, {0.4, -0.2, 0.0}, code};
    VtqCuboid r;
    Volume<Vtq8u> bytes({7, 6, 5});
    bytes.Fill([](int, int, int) { return Vtq8u{201}; });
    Volume<Vtq16u> words({7, 6, 5});
    words.Fill([](int, int, int) { return Vtq16u{54321}; });
    Volume<Vtq32f> floats({7, 6, 5});
    floats.Fill([](int, int, int) { return 0.3f; });
    const Volume<Vtq8u> b = ResizeWhole(bytes, p, &r);
    const Volume<Vtq16u> w = ResizeWhole(words, p, &r);
    const Volume<Vtq32f> f = ResizeWhole(floats, p, &r);
    for (int z = r.z; z < r.z + r.depth; ++z)
      for (int y = r.y; y < r.y + r.height; ++y)
        for (int x = r.x; x < r.x + r.width; ++x) {
          ASSERT_EQ(201, b.at(x, y, z)) << "code " << code;
          ASSERT_EQ(54321, w.at(x, y, z)) << "code " << code;
          // The float weights of one axis need not sum to exactly 1.
          ASSERT_NEAR(0.3f, f.at(x, y, z), 4e-7f) << "code " << code;
        }
  }
}

// Trilinear interpolation of a linear function is that function: a ramp stays a ramp wherever
// no tap is clamped, and swapped weights or off-by-one taps would bend it.
TEST(Resize, TrilinearKeepsARamp) {
  ThreadCount one(1);
  auto ramp = [](double x, double y, double z) { return 1000.0 + 300.0 * x - 170.0 * y + 90.0 * z; };
  Volume<Vtq32f> src({10, 9, 8});
  src.Fill([&](int x, int y, int z) { return float(ramp(x, y, z)); });
  const ResizeParams p = {{1.7, 2.4, 0.6}, {0.3, -0.8, 0.1}, vtqInterLinear};
  VtqCuboid r;
  const Volume<Vtq32f> dst = ResizeWhole(src, p, &r);
  int inside = 0;
  for (int z = r.z; z < r.z + r.depth; ++z)
    for (int y = r.y; y < r.y + r.height; ++y)
      for (int x = r.x; x < r.x + r.width; ++x) {
        const double sx = x / p.factor[0] - p.shift[0] / p.factor[0];
        const double sy = y / p.factor[1] - p.shift[1] / p.factor[1];
        const double sz = z / p.factor[2] - p.shift[2] / p.factor[2];
        if (sx < 0 || sx > 9 || sy < 0 || sy > 8 || sz < 0 || sz > 7) continue;
        ++inside;
        ASSERT_NEAR(ramp(sx, sy, sz), dst.at(x, y, z), 2e-3) << x << "," << y << "," << z;
      }
  EXPECT_GT(inside, 500);
}

// Factor 1 and shift 0 put every position on a voxel centre: the interpolating modes copy the
// source bit for bit, whatever the type.
TEST(Resize, FactorOneCopiesTheSource) {
  ThreadCount one(1);
  for (int code : {vtqInterNearest, vtqInterLinear, vtqInterCubicLagrange,
                   vtqInterCubicCatmullRom}) {
    const ResizeParams p = {{1, 1, 1}, {0, 0, 0}, code};
    Volume<Vtq16u> words({9, 5, 4});
    FillRandom(words, 11);
    Volume<Vtq32f> floats({9, 5, 4});
    FillRandom(floats, 12);
    VtqCuboid r;
    const Volume<Vtq16u> w = ResizeWhole(words, p, &r);
    const Volume<Vtq32f> f = ResizeWhole(floats, p, &r);
    for (int z = 0; z < 4; ++z)
      for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 9; ++x) {
          ASSERT_EQ(words.at(x, y, z), w.at(x, y, z)) << "code " << code;
          ASSERT_EQ(Bits(floats.at(x, y, z)), Bits(f.at(x, y, z))) << "code " << code;
        }
  }
}

// Nearest at factor 2 falls exactly halfway between voxel centres every other voxel; halves
// going to the lower voxel make every source voxel appear exactly twice.
TEST(Resize, NearestTimesTwoRepeatsEveryVoxelTwice) {
  ThreadCount one(1);
  Volume<Vtq8u> src({5, 3, 2});
  src.Fill([](int x, int y, int z) { return Vtq8u(x + 10 * y + 100 * z); });
  const ResizeParams p = {{2, 2, 2}, {0, 0, 0}, vtqInterNearest};
  VtqCuboid r;
  const Volume<Vtq8u> dst = ResizeWhole(src, p, &r);
  ASSERT_EQ(10, r.width);
  for (int z = 0; z < 4; ++z)
    for (int y = 0; y < 6; ++y)
      for (int x = 0; x < 10; ++x) ASSERT_EQ(src.at(x / 2, y / 2, z / 2), dst.at(x, y, z));
}

}  // namespace
}  // namespace vtqr::test
