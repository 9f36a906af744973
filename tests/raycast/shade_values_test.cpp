// What the shading kernels compute: against the formulas written out once more, one ray at a
// time in plain scalar code; the special values; and the argument checks.
#include <cmath>
#include <iterator>
#include <map>
#include <string>

#include "raycast/shade_cases.h"

namespace vtqr::test {
namespace {

float Dot(float ax, float ay, float az, float bx, float by, float bz) {
  return ax * bx + ay * by + az * bz;
}

// Expected state of ray i after the call, computed in place on a copy of the input. `packed`
// tells the shadow reference whether the ray sits in a packet of four.
using Reference = void (*)(Rays& r, int i, bool packed);

// clang-format off
const std::map<std::string, Reference>& References() {
  static const std::map<std::string, Reference> references = {
    {"Dot_32f_P3C1M", [](Rays& r, int i, bool) {
       r[6][i] = r.mask[i] < 0 ? 0.0f : Dot(r[0][i], r[1][i], r[2][i], r[3][i], r[4][i], r[5][i]);
     }},
    {"DotChangeNorm_32f_IM", [](Rays& r, int i, bool) {
       if (r.mask[i] < 0) { r[6][i] = 0.0f; return; }
       float d = Dot(r[0][i], r[1][i], r[2][i], r[3][i], r[4][i], r[5][i]);
       float s = d > 0.0f ? -1.0f : 1.0f;
       for (int j = 3; j < 6; ++j) r[j][i] = r[j][i] * s;
       r[6][i] = d * s;
     }},
    {"Mul_32f_C1IM", [](Rays& r, int i, bool) {
       r[1][i] = r[1][i] * r[0][i] * (r.mask[i] < 0 ? 0.0f : 1.0f);
     }},
    {"Mul_32f_C1P3IM", [](Rays& r, int i, bool) {
       for (int j = 1; j < 4; ++j) r[j][i] = r[j][i] * r[0][i] * (r.mask[i] < 0 ? 0.0f : 1.0f);
     }},
    {"Div_32f_C1IM", [](Rays& r, int i, bool) {
       float& x = r[1][i];
       if (r.mask[i] < 0) x = 0.0f;
       else if (r[0][i] != 0.0f) x = x / r[0][i];
       else x = x > 0.0f ? INFINITY : x < 0.0f ? -INFINITY : FromBits(0xFFC00000u);
     }},
    {"AddMulMul_32f_AC1P3IM", [](Rays& r, int i, bool) {
       if (r.mask[i] < 0) return;
       for (int c = 0; c < 3; ++c) r[4 + c][i] += r[1 + c][i] * kScale[c] * r[0][i];
     }},
    {"DistAttenuationSO_32f_M", [](Rays& r, int i, bool) {
       float dx = r[0][i] - kPoint[0], dy = r[1][i] - kPoint[1], dz = r[2][i] - kPoint[2];
       float q = dx * dx + dy * dy + dz * dz;
       // The double square root, rounded once, is the correctly rounded float one.
       r[3][i] = r.mask[i] >= 0 && q >= 1.0f ? static_cast<float>(std::sqrt(double{q})) : 1.0f;
     }},
    {"CastShadowSO_32f", [](Rays& r, int i, bool packed) {
       float d[3] = {r[4][i] - kLight[0], r[5][i] - kLight[1], r[6][i] - kLight[2]};
       float c = Dot(r[1][i], r[2][i], r[3][i], d[0], d[1], d[2]);
       if (std::fabs(c) < 0.0017453292f) c = 0.0f;
       bool pass = r.mask[i] >= 0 && r[0][i] * c > 0.0f;
       r[7][i] = pass ? std::fabs(c) : 0.0f;
       for (int j = 0; j < 3; ++j) r[8 + j][i] = pass ? d[j] : 0.0f;
       if (!pass && (packed || r.mask[i] >= 0)) r.mask[i] = -1;
     }},
    {"CastReflectionRay_32f", [](Rays& r, int i, bool) {
       float d = Dot(r[0][i], r[1][i], r[2][i], r[3][i], r[4][i], r[5][i]);
       for (int j = 0; j < 3; ++j) r[6 + j][i] = r.mask[i] < 0 ? 0.0f : r[j][i] - r[3 + j][i] * (d + d);
     }},
  };
  return references;
}
// clang-format on

class ShadeKernels : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(ShadeKernels);

TEST_P(ShadeKernels, MatchPlainFormulas) {
  for (const ShadeCase& c : ShadeCases()) {
    for (int len : {64, 13}) {
      for (int offset : {0, 1}) {
        SCOPED_TRACE(::testing::Message() << c.name << " len " << len << " offset " << offset);
        Rays actual(c.planeCount, len, Layout::All(offset));
        Rays expected(c.planeCount, len, Layout::All(offset));
        FillRays(actual, len, 7 * len + offset);
        FillRays(expected, len, 7 * len + offset);
        c.run(path(), actual, 0, len, -1);
        for (int i = 0; i < len; ++i) References().at(c.name)(expected, i, i < len / 4 * 4);
        for (int j = 0; j < c.planeCount; ++j) EXPECT_TRUE(SameBits(expected[j], actual[j], len));
        EXPECT_TRUE(std::equal(expected.mask, expected.mask + len, actual.mask));
      }
    }
  }
}

// Null pointers are tested before the count, one failure is enough, and the pointers left
// untested really are: with no rays to process a null one goes unnoticed.
TEST_P(ShadeKernels, ChecksWriteNothing) {
  for (const ShadeCase& c : ShadeCases()) ExpectChecksWriteNothing(c, path());
}

// Zero divisors: the result goes by the dividend's sign alone, any NaN dividend gives the one
// fixed NaN, and the warning covers the whole call but only live rays.
TEST_P(ShadeKernels, DivZeroDivisors) {
  const uint32_t qnan = 0xFFC00000u;
  struct Row {
    int32_t mask;
    float divisor, dividend;
    uint32_t expectedBits;
    VtqStatus status;
  } rows[] = {
      {0, 0.0f, 3.0f, Bits(INFINITY), vtqStsWarnDivByZero},
      {4, -0.0f, -2.0f, Bits(-INFINITY), vtqStsWarnDivByZero},
      {0, 0.0f, -0.0f, qnan, vtqStsWarnDivByZero},
      {0, -0.0f, FromBits(0x7FC01234u), qnan, vtqStsWarnDivByZero},
      {-5, 0.0f, 3.0f, Bits(0.0f), vtqStsOk},
  };
  for (const Row& row : rows) {
    // The zero divisor is the last of five rays, so the other rays are done before it.
    float src[5] = {1, 2, 4, 8, row.divisor}, srcDst[5] = {1, 1, 1, 1, row.dividend};
    int32_t mask[5] = {0, 0, 0, 0, row.mask};
    EXPECT_EQ(row.status, kDispatchTable.Div_32f_C1IM[path()](src, mask, srcDst, 5));
    EXPECT_EQ(row.expectedBits, Bits(srcDst[4])) << row.dividend << " / " << row.divisor;
    EXPECT_EQ(0.125f, srcDst[3]);
  }
}

// A cosine of exactly zero, of either sign, leaves the normal as it is and keeps its own sign
// in dst; the smallest positive one turns the normal. Each row runs as one lane of an aligned
// packet and as a single ray.
TEST_P(ShadeKernels, DotChangeNormAtZero) {
  constexpr float kTiny = 0x1p-149f;
  struct Row {
    const char* what;
    float ray[3], normal[3];
    float expectedNormal[3], expectedDot;
  } rows[] = {
      {"perpendicular", {1, 0, 0}, {0, 2, 0}, {0, 2, 0}, 0.0f},
      {"sum of negative zeros", {-1, -1, -1}, {0, 0, 0}, {0, 0, 0}, -0.0f},
      {"smallest positive", {kTiny, 0, 0}, {1, 0, 0}, {-1, -0.0f, -0.0f}, -kTiny},
      {"smallest negative", {-kTiny, 0, 0}, {1, 0, 0}, {1, 0, 0}, -kTiny},
  };
  constexpr int kLen = 4;
  static_assert(std::size(rows) == kLen);
  for (int len : {kLen, 1}) {
    for (int first = 0; first < kLen; first += len) {
      alignas(16) float ray[3][kLen], normal[3][kLen], dst[kLen];
      alignas(16) int32_t mask[kLen] = {0, 0, 0, 0};
      for (int i = 0; i < kLen; ++i) {
        for (int k = 0; k < 3; ++k) ray[k][i] = rows[i].ray[k], normal[k][i] = rows[i].normal[k];
      }
      const float* rayPlanes[3] = {ray[0] + first, ray[1] + first, ray[2] + first};
      float* normalPlanes[3] = {normal[0] + first, normal[1] + first, normal[2] + first};
      ASSERT_EQ(vtqStsOk, kDispatchTable.DotChangeNorm_32f_IM[path()](
                              rayPlanes, mask + first, normalPlanes, dst + first, len));
      for (int i = first; i < first + len; ++i) {
        SCOPED_TRACE(::testing::Message() << rows[i].what << ", len " << len);
        EXPECT_EQ(Bits(rows[i].expectedDot), Bits(dst[i]));
        for (int k = 0; k < 3; ++k) EXPECT_EQ(Bits(rows[i].expectedNormal[k]), Bits(normal[k][i]));
      }
    }
  }
}

TEST_P(ShadeKernels, DistAttenuationClampsBelowOne) {
  // Offsets from the point along x: squared distances 0.36, exactly 1, 25, and a dead ray.
  alignas(16) float x[4] = {kPoint[0] + 0.6f, kPoint[0] + 1.0f, kPoint[0] + 5.0f, 100.0f};
  alignas(16) float y[4] = {kPoint[1], kPoint[1], kPoint[1], 100.0f};
  alignas(16) float z[4] = {kPoint[2], kPoint[2], kPoint[2], 100.0f};
  alignas(16) int32_t mask[4] = {0, 0, 0, -3};
  const float* pos[3] = {x, y, z};
  alignas(16) float dst[4];
  EXPECT_EQ(vtqStsOk, kDispatchTable.DistAttenuationSO_32f_M[path()](kPoint, pos, mask, dst, 4));
  const float expected[4] = {1.0f, 1.0f, 5.0f, 1.0f};
  EXPECT_TRUE(SameBits(expected, dst, 4));
}

// The cull's thresholds, exactly: a cosine of magnitude 0.0017453292 is lit, the float below it
// grazes; eyeDot * c must be positive, so a zero eyeDot fails. Failing rays: whole packets set
// the mask to -1 even for rays already dead with another negative value; the rays after the
// last packet leave a dead ray's value alone. Rows 0-7 are two packets, 8-10 the single rays.
TEST_P(ShadeKernels, CastShadowThresholdsAndMasks) {
  const float kGrazing = 0.0017453292f;
  const float kBelow = std::nextafter(kGrazing, 0.0f);
  // The normal is (0, 0, nz) and hit - light = (0, 0, -1), so c = -nz exactly.
  struct Ray {
    const char* what;
    int32_t mask;
    float eyeDot, nz;
    int32_t expectedMask;
    float expectedDot;
  } rays[] = {
      {"dead in packet", -7, -0.5f, 2.0f, -1, 0.0f},
      {"grazing", 0, -0.5f, 0.001f, -1, 0.0f},
      {"lit", 3, -0.5f, 2.0f, 3, 2.0f},
      {"lit from behind", 0, -0.5f, -2.0f, -1, 0.0f},
      {"at the grazing threshold", 0, -0.5f, kGrazing, 0, kGrazing},
      {"just below the threshold", 5, -0.5f, kBelow, -1, 0.0f},
      {"zero eyeDot", 0, 0.0f, 2.0f, -1, 0.0f},
      {"negative zero eyeDot", 0, -0.0f, -2.0f, -1, 0.0f},
      {"dead after packets", -7, -0.5f, 2.0f, -7, 0.0f},
      {"at the threshold after packets", 9, -0.5f, kGrazing, 9, kGrazing},
      {"below the threshold after packets", 9, -0.5f, kBelow, -1, 0.0f},
  };
  constexpr int kLen = static_cast<int>(std::size(rays));
  alignas(16) float eyeDot[kLen], nx[kLen], ny[kLen], nz[kLen], hx[kLen], hy[kLen], hz[kLen];
  alignas(16) float dot[kLen], dx[kLen], dy[kLen], dz[kLen];
  alignas(16) int32_t mask[kLen];
  for (int i = 0; i < kLen; ++i) {
    eyeDot[i] = rays[i].eyeDot, nx[i] = 0.0f, ny[i] = 0.0f, nz[i] = rays[i].nz;
    mask[i] = rays[i].mask;
    hx[i] = kLight[0], hy[i] = kLight[1], hz[i] = kLight[2] - 1.0f;
  }
  const float* normal[3] = {nx, ny, nz};
  const float* hit[3] = {hx, hy, hz};
  float* dir[3] = {dx, dy, dz};
  ASSERT_EQ(vtqStsOk, kDispatchTable.CastShadowSO_32f[path()](kLight, eyeDot, normal, hit, mask,
                                                              dot, dir, kLen));
  for (int i = 0; i < kLen; ++i) {
    EXPECT_EQ(rays[i].expectedMask, mask[i]) << rays[i].what;
    EXPECT_EQ(Bits(rays[i].expectedDot), Bits(dot[i])) << rays[i].what;
    EXPECT_EQ(Bits(rays[i].expectedDot == 0 ? 0.0f : -1.0f), Bits(dz[i])) << rays[i].what;
  }
}

// A dead ray's values pass through bit for bit where the kernel keeps them, whatever the
// optimiser made of the select: signalling NaNs stay signalling (a multiply by 1 or an add of
// -0 would quiet them) and -0 stays -0. Every packet mixes dead and live rays, on every scheme
// the kernel has: aligned fours, peeled and unaligned fours, single rays.
TEST_P(ShadeKernels, DeadRaysKeepTheirBits) {
  const std::map<std::string, std::vector<int>> keptPlanes = {
      {"DotChangeNorm_32f_IM", {3, 4, 5}},   // the normals
      {"AddMulMul_32f_AC1P3IM", {4, 5, 6}},  // the colour sums
  };
  const uint32_t deadBits[] = {0x7FA00001u, 0xFF800001u, 0x80000000u, 0x7FBFFFFFu};
  // All aligned, all a float off, and planes alternately off and aligned.
  const Layout layouts[] = {Layout::All(0), Layout::All(1), {{1, 0}, 0}};
  for (const ShadeCase& c : ShadeCases()) {
    auto kept = keptPlanes.find(c.name);
    if (kept == keptPlanes.end()) continue;
    for (int len : {8, 13}) {
      for (const Layout& layout : layouts) {
        SCOPED_TRACE(::testing::Message() << c.name << " len " << len << " layout "
                                          << layout.planes.size() << "/" << layout.planes[0]);
        Rays r(c.planeCount, len, layout);
        FillRays(r, len, 11 * len, /*specials=*/false);
        for (int i = 0; i < len; ++i) {
          r.mask[i] = i % 3 == 1 ? -1 - i : i;
          if (r.mask[i] >= 0) continue;
          for (int j : kept->second) r[j][i] = FromBits(deadBits[(i + j) % 4]);
        }
        c.run(path(), r, 0, len, -1);
        for (int i = 0; i < len; ++i) {
          if (r.mask[i] >= 0) continue;
          for (int j : kept->second) {
            EXPECT_EQ(deadBits[(i + j) % 4], Bits(r[j][i])) << "ray " << i << " plane " << j;
          }
        }
      }
    }
  }
}

}  // namespace
}  // namespace vtqr::test
