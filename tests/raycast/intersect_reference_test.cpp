// The intersection functions against independent references: brute force over every triangle
// for the nearest hit, and the functions against each other where their contracts meet (any
// hit and nearest hit, rays with their own origins and eye rays, several objects and one).
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>
#include <vector>

#include "raycast/intersect_scene.h"

namespace vtqr::test {
namespace {

struct SceneCase {
  const char* name;
  std::function<Mesh()> mesh;
  int size;  // block side: brute force costs rays x triangles
};

const std::vector<SceneCase>& Scenes() {
  static const std::vector<SceneCase> scenes = {
      {"sphere", [] { return UvSphere(24, 32); }, 32},
      {"soup", [] { return RandomSoup(3000, 7, 1.0f, 0.15f); }, 32},
      {"grid", [] { return AxisAlignedGrid(8); }, 32},
      {"bunny", [] { return SharedMeshOr("stanford-bunny.obj", UvSphere(96, 96)); }, 16},
      {"igea", [] { return SharedMeshOr("igea.ply", UvSphere(160, 160)); }, 8},
  };
  return scenes;
}

// Rays from outside (a view along a slanted axis and one straight down z, whose centre rays
// have zero components) and from the box centre, with distances of interest that cut some
// walks short.
std::vector<RayBlock> Views(const Object& object, int size, uint32_t seed, float eyes[][3]) {
  float centre[3], radius;
  BoxCentre(object, centre, &radius);
  const float up[3] = {0, 1, 0}, upZ[3] = {0, 0, 1};
  std::vector<RayBlock> views;
  struct View {
    float offset[3];
    const float* up;
    float span;
  } kViews[] = {{{0.9f, 1.3f, 2.1f}, up, 1.2f}, {{0, 0, 2.5f}, up, 1.0f}, {{0, 0, 0}, upZ, 3.0f}};
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> cut(0.0f, 4.0f);
  for (int k = 0; k < 3; ++k) {
    float* eye = eyes[k];
    for (int a = 0; a < 3; ++a) eye[a] = centre[a] + kViews[k].offset[a] * radius;
    const float target[3] = {centre[0] + (k == 2 ? 1.0f : 0.0f), centre[1], centre[2]};
    RayBlock block(size, size);
    CastEyeRays(block, Aim(eye, target, kViews[k].span, size, size, kViews[k].up), eye);
    for (size_t i = 0; i < block.Count(); i += 3) block.dist[i] = cut(rng) * radius;
    views.push_back(std::move(block));
  }
  return views;
}

// The walk reports the nearest triangle of the brute-force search, or one tied with it. Rays
// that run inside a split plane are the exception the walk's rules make: such a ray (a zero
// direction component, the origin in the plane) is walked on one side of the plane only. Where
// it meets an edge shared by triangles on both sides it can only find the triangle on its side,
// which the test (not watertight) may round out, so it may report a farther triangle or none.
// For rays with a zero direction component the test accepts any reported triangle that is hit
// as reported and no nearer than the nearest, or none, and counts the differences.
TEST(IntersectEye, NearestEqualsBruteForce) {
  uint32_t seed = 1;
  for (const SceneCase& scene : Scenes()) {
    const Object object(scene.mesh());
    float eyes[3][3];
    std::vector<RayBlock> views = Views(object, scene.size, ++seed, eyes);
    for (size_t k = 0; k < views.size(); ++k) {
      for (size_t offset : {0, 1}) {  // four-ray and one-ray paths
        SCOPED_TRACE(::testing::Message() << scene.name << " view " << k << " offset " << offset);
        RayBlock block = views[k].CopyAt(offset);
        ASSERT_EQ(vtqStsOk, block.Eye(kPathU8, eyes[k], object.context));
        int hits = 0, inPlane = 0;
        for (size_t i = 0; i < block.Count(); ++i) {
          const float d[3] = {block.dir[0][i], block.dir[1][i], block.dir[2][i]};
          const float limit = views[k].dist[i];
          const RefNearest ref = BruteForce(object, eyes[k], d, limit);
          const int32_t got = block.index[i];
          const bool flat = d[0] == 0 || d[1] == 0 || d[2] == 0;
          if (got < 0) {
            if (flat && !ref.tied.empty()) {
              ++inPlane;
            } else {
              ASSERT_TRUE(ref.tied.empty()) << "ray " << i << " missed " << ref.tied[0];
            }
            ASSERT_EQ(Bits(limit), Bits(block.dist[i])) << "ray " << i;
            ASSERT_EQ(kSentinelBits, Bits(block.u[i])) << "ray " << i;
            ASSERT_EQ(kSentinelBits, Bits(block.v[i])) << "ray " << i;
            continue;
          }
          ++hits;
          ASSERT_FALSE(ref.tied.empty()) << "ray " << i << " reported " << got;
          RefHit hit;
          ASSERT_TRUE(RefTriangleTest(object.accel[got], eyes[k], d, &hit)) << "ray " << i;
          ASSERT_EQ(Bits(hit.t), Bits(block.dist[i])) << "ray " << i;
          ASSERT_EQ(Bits(hit.u), Bits(block.u[i])) << "ray " << i;
          ASSERT_EQ(Bits(hit.v), Bits(block.v[i])) << "ray " << i;
          if (std::find(ref.tied.begin(), ref.tied.end(), got) == ref.tied.end()) {
            ++inPlane;
            ASSERT_TRUE(flat) << "ray " << i << " reported " << got << ", nearest " << ref.tied[0];
            ASSERT_GE(hit.t, ref.t) << "ray " << i;
          }
        }
        EXPECT_GT(hits, 0);
        EXPECT_LE(inPlane, 2 * scene.size) << "rays in split planes that kept another triangle";
      }
    }
  }
}

}  // namespace
}  // namespace vtqr::test
