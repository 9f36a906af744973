// Resize results: against the double-precision reference for every element type, layout and
// mode; the same bits in every way of calling; integer results as the rounded float results;
// streamed destinations; and properties that do not lean on the reference.
#include <gtest/gtest.h>

#include <array>

#include "volume/resize_test_util.h"

namespace vtqr::test {
namespace {

// Bound against the reference, relative to the data's largest value (1 for floats in [-1, 1]):
// 2^-20; the float passes of three axes, with weights rounded to float, measure below 2^-22.
// Integers are the reference clamped and rounded, so they may also be off by half a unit.
constexpr double kRelativeBound = 0x1p-20;

class Resize : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(Resize);

struct GeometryCase {
  const char* name;
  VtqCuboid srcVOI;  // in a 9 x 8 x 7 source
  double factor[3], shift[3];
  VtqCuboid dstVOI;  // in a 30 x 28 x 24 destination
};

constexpr VtqCuboid kWholeDst = {0, 0, 0, 30, 28, 24};
const GeometryCase kGeometry[] = {
    {"shrink", {0, 0, 0, 9, 8, 7}, {0.5, 0.6, 0.75}, {0, 0, 0}, kWholeDst},
    {"strong shrink", {0, 0, 0, 9, 8, 7}, {0.3, 0.25, 0.45}, {1.1, 0, 0.4}, kWholeDst},
    {"enlarge with shifts", {0, 0, 0, 9, 8, 7}, {1.5, 2.0, 2.5}, {0.25, -0.5, 1.0}, kWholeDst},
    {"mixed, interior VOI", {2, 1, 1, 5, 5, 4}, {3.0, 0.4, 1.0}, {-2.3, 0.7, 0.5}, kWholeDst},
    {"VOI at the low corner", {0, 0, 0, 3, 2, 4}, {1.7, 1.3, 0.9}, {0, 0, 0}, kWholeDst},
    {"past the high corner", {6, 5, 4, 10, 10, 10}, {2.2, 1.25, 1.6}, {0.1, 0.3, -0.2}, kWholeDst},
    {"clipped by the dstVOI", {0, 0, 0, 9, 8, 7}, {1.5, 1.5, 1.5}, {0, 0, 0}, {3, 2, 4, 7, 9, 5}},
    {"half-voxel shifts", {0, 0, 0, 9, 8, 7}, {1, 1, 1}, {0.5, -0.25, 0.75}, kWholeDst},
    {"one voxel thick", {4, 0, 3, 1, 8, 1}, {2.0, 1.0, 3.0}, {0, 0, 0}, kWholeDst},
};

// Every voxel of the region within the bound (nearest exactly), and every other byte of the
// destination, padding included, untouched.
template <class T>
void CheckAgainstReference(CodePath path, Layout layout) {
  Volume<T> src({9, 8, 7});
  FillRandom(src, sizeof(T));
  for (const GeometryCase& g : kGeometry) {
    for (int code : kCodes) {
      SCOPED_TRACE(::testing::Message() << g.name << " code " << code << " layout " << int(layout)
                                        << " size " << sizeof(T));
      const ResizeParams p = {
          {g.factor[0], g.factor[1], g.factor[2]}, {g.shift[0], g.shift[1], g.shift[2]}, code};
      Span r[3];
      const std::vector<double> expected = ReferenceResize(src, g.srcVOI, g.dstVOI, p, r);
      Volume<T> dst({30, 28, 24});
      std::fill(dst.bytes().begin(), dst.bytes().end(), kUntouched);
      std::vector<Vtq8u> buffer = Buffer(g.srcVOI, g.dstVOI, code);
      ASSERT_EQ(vtqStsOk, CallResize(path, layout, src, g.srcVOI, dst, g.dstVOI, p, buffer.data()));
      const double bound = code == vtqInterNearest     ? 0.0
                           : std::is_same_v<T, Vtq32f> ? kRelativeBound
                                                       : 0.5 + Highest<T>() * kRelativeBound;
      size_t i = 0;
      for (int64_t z = r[2].start; z < r[2].end; ++z)
        for (int64_t y = r[1].start; y < r[1].end; ++y)
          for (int64_t x = r[0].start; x < r[0].end; ++x, ++i) {
            T& voxel = dst.at(int(x), int(y), int(z));
            const double want = std::is_same_v<T, Vtq32f>
                                    ? expected[i]
                                    : std::clamp(expected[i], 0.0, Highest<T>());
            ASSERT_LE(std::abs(double(voxel) - want), bound) << x << "," << y << "," << z;
            std::memset(&voxel, kUntouched, sizeof(T));
          }
      EXPECT_EQ(std::count(dst.bytes().begin(), dst.bytes().end(), kUntouched),
                ptrdiff_t(dst.bytes().size()))
          << "a byte outside the destination region was written";
    }
  }
}

// One thread: a parallel region per call costs more than these small volumes take, and the
// thread split is checked bit for bit below.
TEST_P(Resize, MatchesTheReference) {
  ThreadCount one(1);
  for (Layout layout : {Layout::kBlock, Layout::kSlices}) {
    CheckAgainstReference<Vtq8u>(path(), layout);
    CheckAgainstReference<Vtq16u>(path(), layout);
    CheckAgainstReference<Vtq32f>(path(), layout);
  }
}

// The same bits as u8 on one thread with V volumes, in every way of calling: V and PV, one and
// two threads, volumes stored upside down and back to front (negative steps), any buffer
// alignment.
template <class T>
void CheckSameBitsEverywhere(CodePath path, int code) {
  const VtqCuboid srcVOI = {1, 0, 1, 12, 11, 7}, dstVOI = {1, 2, 0, 22, 17, 17};
  const ResizeParams p = {{1.7, 1.4, 2.1}, {-0.3, 0.6, 0.2}, code};
  Volume<T> src({13, 11, 9}), flippedSrc({13, 11, 9}, true);
  FillRandom(src, 7);
  flippedSrc.Fill([&](int x, int y, int z) { return src.at(x, y, z); });
  std::vector<Vtq8u> buffer;
  {
    ThreadCount two(2);
    buffer = Buffer(srcVOI, dstVOI, code);
    buffer.resize(buffer.size() + 64);
  }
  auto run = [&](CodePath path, Layout layout, int threads, bool flipped, size_t misalign) {
    ThreadCount count(threads);
    Volume<T> dst({23, 19, 17}, flipped);
    EXPECT_EQ(vtqStsOk, CallResize(path, layout, flipped ? flippedSrc : src, srcVOI, dst, dstVOI, p,
                                   buffer.data() + misalign));
    return dst.voxels();
  };
  const std::vector<T> expected = run(kPathU8, Layout::kBlock, 1, false, 0);
  const struct {
    Layout layout;
    int threads;
    bool flipped;
    size_t misalign;
  } variants[] = {
      {Layout::kBlock, 1, false, 0},  {Layout::kSlices, 1, false, 0}, {Layout::kBlock, 2, false, 0},
      {Layout::kSlices, 2, true, 0},  {Layout::kBlock, 1, true, 0},   {Layout::kBlock, 2, false, 1},
      {Layout::kBlock, 1, false, 37},
  };
  for (const auto& v : variants) {
    EXPECT_TRUE(expected == run(path, v.layout, v.threads, v.flipped, v.misalign))
        << "code " << code << " size " << sizeof(T) << " layout " << int(v.layout) << " threads "
        << v.threads << " flipped " << v.flipped << " misalign " << v.misalign;
  }
}

TEST_P(Resize, SameBitsInEveryWayOfCalling) {
  for (int code : kCodes) {
    CheckSameBitsEverywhere<Vtq8u>(path(), code);
    CheckSameBitsEverywhere<Vtq16u>(path(), code);
    CheckSameBitsEverywhere<Vtq32f>(path(), code);
  }
}

// An integer volume gives the float result of the same values, clamped and rounded half to
// even: the types differ only in loading and storing. Factors 0.5, 1 and 2 put taps on zero
// weights, which integer types skip.
template <class T>
void CheckIntegersAreRoundedFloats(CodePath path, int code) {
  const VtqCuboid voi = {1, 0, 0, 13, 9, 8}, dstVOI = {0, 0, 0, 28, 18, 20};
  Volume<T> ints({14, 9, 8}), intOut({28, 18, 20});
  Volume<Vtq32f> floats({14, 9, 8}), floatOut({28, 18, 20});
  FillRandom(ints, 31);
  floats.Fill([&](int x, int y, int z) { return ints.at(x, y, z); });
  std::vector<Vtq8u> buffer = Buffer(voi, dstVOI, code);
  for (const auto& f : {std::array{0.5, 2.0, 1.0}, {2.0, 0.5, 0.5}, {1.3, 0.7, 2.6}}) {
    const ResizeParams p = {{f[0], f[1], f[2]}, {0, 0, 0}, code};
    ASSERT_EQ(vtqStsOk,
              CallResize(path, Layout::kBlock, ints, voi, intOut, dstVOI, p, buffer.data()));
    ASSERT_EQ(vtqStsOk,
              CallResize(path, Layout::kBlock, floats, voi, floatOut, dstVOI, p, buffer.data()));
    const std::vector<Vtq32f> want = floatOut.voxels();
    const std::vector<T> got = intOut.voxels();
    for (size_t i = 0; i < got.size(); ++i) {
      ASSERT_EQ(std::nearbyint(std::clamp<double>(want[i], 0, Highest<T>())), got[i])
          << "code " << code << " size " << sizeof(T) << " voxel " << i << " factor " << f[0];
    }
  }
}

TEST_P(Resize, IntegersAreRoundedFloats) {
  ThreadCount one(1);
  for (int code : kCodes) {
    CheckIntegersAreRoundedFloats<Vtq8u>(path(), code);
    CheckIntegersAreRoundedFloats<Vtq16u>(path(), code);
  }
}

// A destination of 16 MiB or more goes out with non-temporal stores in 16-byte blocks; in slabs
// of a few slices each call keeps normal stores. The map is absolute, so both give the same
// bits. Rows start off 16-byte boundaries, with heads and tails of every length.
template <class T>
void CheckSlabsEqualOneCall(CodePath path, int code, VtqVolumeSize size) {
  const VtqCuboid srcVOI = {0, 0, 0, 23, 19, 17};
  const VtqCuboid dstVOI = {3, 1, 0, size.width - 3, size.height - 1, size.depth};
  ASSERT_GE(sizeof(T) * dstVOI.width * dstVOI.height * dstVOI.depth, 16u << 20);
  const ResizeParams p = {
      {size.width / 23.0, size.height / 19.0, size.depth / 17.0}, {0.3, -0.2, 0.1}, code};
  Volume<T> src({23, 19, 17}), whole(size), slabs(size);
  FillRandom(src, 21);
  std::vector<Vtq8u> buffer = Buffer(srcVOI, dstVOI, code);
  ASSERT_EQ(vtqStsOk,
            CallResize(path, Layout::kBlock, src, srcVOI, whole, dstVOI, p, buffer.data()));
  for (int z = 0; z < size.depth; z += 7) {
    const VtqCuboid slab = {dstVOI.x,     dstVOI.y,      z,
                            dstVOI.width, dstVOI.height, std::min(7, size.depth - z)};
    ASSERT_EQ(vtqStsOk,
              CallResize(path, Layout::kBlock, src, srcVOI, slabs, slab, p, buffer.data()));
  }
  EXPECT_TRUE(whole.bytes() == slabs.bytes()) << "code " << code << " size " << sizeof(T);
}

TEST_P(Resize, SlabsEqualOneCall) {
  ThreadCount one(1);
  CheckSlabsEqualOneCall<Vtq8u>(path(), vtqInterNearest, {255, 259, 260});
  CheckSlabsEqualOneCall<Vtq8u>(path(), vtqInterLinear, {255, 259, 260});
  CheckSlabsEqualOneCall<Vtq8u>(path(), vtqInterCubicB05C03, {255, 259, 260});
  CheckSlabsEqualOneCall<Vtq16u>(path(), vtqInterCubicLagrange, {183, 181, 262});
  CheckSlabsEqualOneCall<Vtq32f>(path(), vtqInterLinear, {133, 131, 252});
}

// Properties of float results that do not lean on the reference. Each row fills a source,
// resizes all of it into its mapped cuboid, and checks the voxels whose source position lies
// inside the volume against the value they must have there.
double Ramp(double x, double y, double z) { return 1000 + 300 * x - 170 * y + 90 * z; }
double Wave(double x, double y, double z) { return std::sin(x + 3 * y + 7 * z); }
double Constant(double, double, double) { return 0.3; }

TEST_P(Resize, Properties) {
  const struct {
    const char* name;
    std::vector<int> codes;
    double factor[3], shift[3];
    double (*source)(double x, double y, double z);
    bool atVoxel;  // the voxel at the truncated position, bit for bit; else source(position)
    double tolerance;
  } rows[] = {
      // The weights of one axis, rounded to float, need not sum to exactly 1.
      {"constants stay constant",
       {1, 2, 4, 5, 6, 7},
       {1.6, 0.7, 2.3},
       {0.4, -0.2, 0},
       Constant,
       false,
       4e-7},
      // Trilinear interpolation of a linear function is that function: swapped weights or taps
      // one voxel off would bend it.
      {"trilinear keeps a ramp", {2}, {1.7, 2.4, 0.6}, {0.3, -0.8, 0.1}, Ramp, false, 2e-3},
      // Every position on a voxel centre: the interpolating modes copy the source.
      {"factor 1 copies", {1, 2, 4, 6}, {1, 1, 1}, {0, 0, 0}, Wave, true, 0},
      // Every other position halfway between centres; halves taking the lower voxel repeat
      // every voxel exactly twice (d / 2, truncated).
      {"nearest x2 repeats every voxel twice", {1}, {2, 2, 2}, {0, 0, 0}, Wave, true, 0},
  };
  ThreadCount one(1);
  const VtqCuboid srcVOI = {0, 0, 0, 10, 9, 8};
  Volume<Vtq32f> src({10, 9, 8});
  for (const auto& row : rows) {
    src.Fill(row.source);
    for (int code : row.codes) {
      const ResizeParams p = {{row.factor[0], row.factor[1], row.factor[2]},
                              {row.shift[0], row.shift[1], row.shift[2]},
                              code};
      VtqCuboid r;
      ASSERT_EQ(vtqStsOk, kDispatchTable.GetResizeCuboid[path()](
                              &srcVOI, &r, p.factor[0], p.factor[1], p.factor[2], p.shift[0],
                              p.shift[1], p.shift[2], code));
      Volume<Vtq32f> dst({r.x + r.width, r.y + r.height, r.z + r.depth});
      std::vector<Vtq8u> buffer = Buffer(srcVOI, r, code);
      ASSERT_EQ(vtqStsOk,
                CallResize(path(), Layout::kBlock, src, srcVOI, dst, r, p, buffer.data()));
      int checked = 0;
      for (int z = r.z; z < r.z + r.depth; ++z)
        for (int y = r.y; y < r.y + r.height; ++y)
          for (int x = r.x; x < r.x + r.width; ++x) {
            const double sx = x / p.factor[0] - p.shift[0] / p.factor[0];
            const double sy = y / p.factor[1] - p.shift[1] / p.factor[1];
            const double sz = z / p.factor[2] - p.shift[2] / p.factor[2];
            if (sx < 0 || sx > 9 || sy < 0 || sy > 8 || sz < 0 || sz > 7) continue;
            ++checked;
            const float got = dst.at(x, y, z);
            if (row.atVoxel) {
              ASSERT_EQ(Bits(src.at(int(sx), int(sy), int(sz))), Bits(got))
                  << row.name << " " << code;
            } else {
              ASSERT_NEAR(row.source(sx, sy, sz), got, row.tolerance) << row.name << " " << code;
            }
          }
      EXPECT_GT(checked, 400) << row.name;
    }
  }
}

}  // namespace
}  // namespace vtqr::test
