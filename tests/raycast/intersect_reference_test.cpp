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
      {"bunny", [] { return SharedMeshOr("stanford-bunny.obj", UvSphere(96, 96)); }, 12},
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
      std::vector<RefNearest> refs;
      for (size_t i = 0; i < views[k].Count(); ++i) {
        const float d[3] = {views[k].dir[0][i], views[k].dir[1][i], views[k].dir[2][i]};
        refs.push_back(BruteForce(object, eyes[k], d, views[k].dist[i]));
      }
      for (size_t offset : {0, 1}) {  // four-ray and one-ray paths
        SCOPED_TRACE(::testing::Message() << scene.name << " view " << k << " offset " << offset);
        RayBlock block = views[k].CopyAt(offset);
        ASSERT_EQ(vtqStsOk, block.Eye(kPathU8, eyes[k], object.context));
        int hits = 0, inPlane = 0;
        for (size_t i = 0; i < block.Count(); ++i) {
          const float d[3] = {block.dir[0][i], block.dir[1][i], block.dir[2][i]};
          const RefNearest& ref = refs[i];
          const int32_t got = block.index[i];
          const bool flat = d[0] == 0 || d[1] == 0 || d[2] == 0;
          if (got < 0) {
            if (flat && !ref.tied.empty()) {
              ++inPlane;
            } else {
              ASSERT_TRUE(ref.tied.empty()) << "ray " << i << " missed " << ref.tied[0];
            }
            ASSERT_EQ(Bits(views[k].dist[i]), Bits(block.dist[i])) << "ray " << i;
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
        // At most the image's centre row and column lie in split planes.
        EXPECT_LE(inPlane, 2 * scene.size) << "rays in split planes that kept another triangle";
      }
    }
  }
}

// Shadow-like rays: from a point outside the box towards random points around the mesh, ends
// spread over (0, 1.2] so that some stop short of the surface and some pass it. Every fifth
// ray is masked out with a negative value other than -1.
RayBlock ShadowRays(const Object& object, const float light[3], int size, uint32_t seed) {
  float centre[3], radius;
  BoxCentre(object, centre, &radius);
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
  RayBlock block(size, size);
  for (size_t i = 0; i < block.Count(); ++i) {
    for (int a = 0; a < 3; ++a) {
      block.org[a][i] = light[a];
      block.dir[a][i] = centre[a] + 0.8f * radius * unit(rng) - light[a];
    }
    block.dist[i] = i % 7 == 0 ? 0.999f : 0.6f + 0.6f * unit(rng);
    block.index[i] = i % 5 == 0 ? -3 : static_cast<int32_t>(i % 4);
  }
  return block;
}

const std::vector<SceneCase>& SmallScenes() {
  static const std::vector<SceneCase> scenes(Scenes().begin(), Scenes().begin() + 4);
  return scenes;
}

// Any hit is the nearest-hit walk stopped at its first hit: a ray is occluded exactly when
// vtqrIntersectEyeSO_32f, given a box that clips nothing and the ray's end as its distance,
// finds a hit. Masked rays keep their value, occluded rays get -1, the others keep theirs.
TEST(IntersectAny, OccludedExactlyWhenNearestHitBeforeEnd) {
  uint32_t seed = 40;
  for (const SceneCase& scene : SmallScenes()) {
    const Object object(scene.mesh());
    float centre[3], radius;
    BoxCentre(object, centre, &radius);
    const float lights[2][3] = {
        {centre[0] + 2.0f * radius, centre[1] + 1.5f * radius, centre[2] + 0.5f * radius},
        {centre[0], centre[1], centre[2]}};
    const float everywhere[6] = {-kInf, -kInf, -kInf, kInf, kInf, kInf};
    VtqrIntersectContext unclipped = object.context;
    unclipped.pBound = everywhere;
    for (const auto& light : lights) {
      const RayBlock rays = ShadowRays(object, light, 32, ++seed);
      RayBlock nearest = rays.CopyAt(0);
      ASSERT_EQ(vtqStsOk, nearest.Eye(kPathU8, light, unclipped));
      for (CodePath path : kBothPaths) {
        for (size_t offset : {0, 1}) {
          SCOPED_TRACE(::testing::Message() << scene.name << " " << PathName(path) << " offset "
                                            << offset);
          RayBlock any = rays.CopyAt(offset);
          ASSERT_EQ(vtqStsOk, any.Any(path, light, object.context));
          int occluded = 0;
          for (size_t i = 0; i < rays.Count(); ++i) {
            const int32_t mask = rays.index.data[i];
            const int32_t expected = mask < 0 || nearest.index[i] < 0 ? mask : -1;
            ASSERT_EQ(expected, any.index[i]) << "ray " << i;
            ASSERT_EQ(Bits(rays.dist.data[i]), Bits(any.dist[i])) << "ray " << i;
            occluded += mask >= 0 && expected == -1;
          }
          EXPECT_GT(occluded, 0);
        }
      }
    }
  }
}

// With every origin at the eye and every mask live, rays with their own origins give the eye
// rays' bits; masked rays are left alone.
TEST(IntersectMultiple, EqualsEyeRaysFromTheEye) {
  uint32_t seed = 60;
  for (const SceneCase& scene : SmallScenes()) {
    const Object object(scene.mesh());
    float eyes[3][3];
    std::vector<RayBlock> views = Views(object, 16, ++seed, eyes);
    for (size_t k = 0; k < views.size(); ++k) {
      RayBlock eye = views[k].CopyAt(0);
      ASSERT_EQ(vtqStsOk, eye.Eye(kPathU8, eyes[k], object.context));
      for (size_t i = 0; i < eye.Count(); ++i) views[k].index[i] = i % 6 == 0 ? -2 : 0;
      for (size_t offset : {0, 1}) {
        SCOPED_TRACE(::testing::Message() << scene.name << " view " << k << " offset " << offset);
        RayBlock multiple = views[k].CopyAt(offset);
        ASSERT_EQ(vtqStsOk, multiple.Multiple(kPathN8, object.context));
        for (size_t i = 0; i < eye.Count(); i += 6) {  // the masked rays, as they were
          eye.index[i] = -2;
          eye.dist[i] = views[k].dist[i];
          eye.u[i] = eye.v[i] = Sentinel();
        }
        ASSERT_TRUE(SameResults(eye, multiple));
      }
    }
  }
}

// Rays in an object's space, as the multi-object function documents the transform.
void ToObject(const float* m, RayBlock& rays) {
  if (m == nullptr) return;
  for (size_t i = 0; i < rays.Count(); ++i) {
    const float o[3] = {rays.org[0][i], rays.org[1][i], rays.org[2][i]};
    const float d[3] = {rays.dir[0][i], rays.dir[1][i], rays.dir[2][i]};
    for (int row = 0; row < 3; ++row) {
      const float* r = m + 4 * row;
      rays.org[row][i] = r[0] * o[0] + r[1] * o[1] + r[2] * o[2] + r[3];
      rays.dir[row][i] = r[0] * d[0] + r[1] * d[1] + r[2] * d[2];
    }
  }
}

// Several objects, with and without transforms: the same bits as casting each object in turn
// with vtqrIntersectMultipleSO_32f on the transformed rays, handing the distance on, and the
// same hits as casting each separately and keeping the nearest (ties to the lower object).
TEST(IntersectMO, EqualsObjectsInTurn) {
  const Object sphere(UvSphere(24, 32, 1.0f));
  const Object soup(RandomSoup(2000, 5, 1.0f, 0.2f));
  const Object bunny(SharedMeshOr("stanford-bunny.obj", UvSphere(64, 64)));
  float centre[3], radius;
  BoxCentre(bunny, centre, &radius);
  // World to object: the bunny scaled up and moved to the origin, the soup rotated about x.
  const float s = 1.0f / radius;
  const float toBunny[12] = {s, 0, 0, -s * centre[0], 0, s, 0, -s * centre[1],
                             0, 0, s, -s * centre[2]};
  const float toSoup[12] = {1, 0, 0, 0.5f, 0, 0.6f, -0.8f, 0, 0, 0.8f, 0.6f, -0.25f};
  const std::vector<const VtqrIntersectContext*> objects = {&sphere.context, &soup.context,
                                                            &bunny.context, &sphere.context};
  const std::vector<const float*> transforms = {nullptr, toSoup, toBunny, toSoup};
  std::mt19937 rng(77);
  std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
  RayBlock rays(32, 32);
  for (size_t i = 0; i < rays.Count(); ++i) {
    for (int a = 0; a < 3; ++a) {
      rays.org[a][i] = 3.0f * unit(rng);
      rays.dir[a][i] = 0.5f * unit(rng) - rays.org[a][i];
    }
    rays.dist[i] = i % 9 == 0 ? 0.5f : kInf;
    rays.index[i] = i % 7 == 0 ? -5 : 0;
  }
  for (const std::vector<const float*>* xf : {&transforms, (const std::vector<const float*>*)0}) {
    // Objects in turn.
    RayBlock inTurn = rays.CopyAt(0);
    RayBlock separate = rays.CopyAt(0);
    for (size_t k = 0; k < objects.size(); ++k) {
      RayBlock local = inTurn.CopyAt(0);
      RayBlock alone = rays.CopyAt(0);
      ToObject(xf == nullptr ? nullptr : (*xf)[k], local);
      ToObject(xf == nullptr ? nullptr : (*xf)[k], alone);
      for (size_t i = 0; i < rays.Count(); ++i) {
        if (rays.index.data[i] >= 0) local.index[i] = alone.index[i] = 0;
      }
      ASSERT_EQ(vtqStsOk, local.Multiple(kPathU8, *objects[k]));
      ASSERT_EQ(vtqStsOk, alone.Multiple(kPathU8, *objects[k]));
      for (size_t i = 0; i < rays.Count(); ++i) {
        if (rays.index.data[i] < 0) continue;
        if (k == 0) inTurn.object[i] = separate.object[i] = inTurn.index[i] = separate.index[i] = -1;
        if (local.index[i] >= 0) {
          inTurn.index[i] = local.index[i];
          inTurn.object[i] = static_cast<int32_t>(k);
          inTurn.dist[i] = local.dist[i];
          inTurn.u[i] = local.u[i];
          inTurn.v[i] = local.v[i];
        }
        if (alone.index[i] >= 0 && alone.dist[i] < separate.dist[i]) {
          separate.index[i] = alone.index[i];
          separate.object[i] = static_cast<int32_t>(k);
          separate.dist[i] = alone.dist[i];
          separate.u[i] = alone.u[i];
          separate.v[i] = alone.v[i];
        }
      }
    }
    ASSERT_TRUE(SameResults(inTurn, separate));
    int hits = 0;
    for (size_t i = 0; i < rays.Count(); ++i) hits += inTurn.object[i] > 0;
    EXPECT_GT(hits, 20);
    for (CodePath path : kBothPaths) {
      for (size_t offset : {0, 1}) {
        SCOPED_TRACE(::testing::Message() << (xf ? "transformed " : "") << PathName(path)
                                          << " offset " << offset);
        RayBlock mo = rays.CopyAt(offset);
        ASSERT_EQ(vtqStsOk, mo.MO(path, objects, xf));
        ASSERT_TRUE(SameResults(inTurn, mo));
      }
    }
  }
}

}  // namespace
}  // namespace vtqr::test
