// The intersection functions against independent references: brute force over every triangle
// for the nearest hit, and the functions against each other where their contracts meet (any
// hit and nearest hit, rays with their own origins and eye rays, several objects and one).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <vector>

#include "raycast/intersect_scene.h"

namespace vtqr::test {
namespace {

struct Scene {
  const char* name;
  std::function<Mesh()> mesh;
  int size;  // block side: brute force costs rays x triangles
};
const Scene kScenes[] = {
    {"sphere", [] { return UvSphere(24, 32); }, 16},
    {"soup", [] { return RandomSoup(3000, 7, 1.0f, 0.15f); }, 16},
    {"grid", [] { return AxisAlignedGrid(8); }, 16},
    {"bunny", [] { return SharedMeshOr("stanford-bunny.obj", UvSphere(96, 96)); }, 8},
    {"igea", [] { return SharedMeshOr("igea.ply", UvSphere(160, 160)); }, 4},
};

// The walk reports the nearest triangle of the brute-force search, or one tied with it, with
// the test's bits. Rays inside a split plane are the exception the walk's rules make: a ray
// parallel to an axis (a direction component of magnitude at most 1.1920929e-7) is walked on
// one side of the plane it lies in. Where it meets an edge shared with a triangle on the other
// side it can only find the triangle on its side, which the test (not watertight) may round
// out: it may report a farther triangle or none. Such rays are accepted when the reported
// triangle is hit as reported, and counted.
class IntersectEye : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(IntersectEye);

TEST_P(IntersectEye, NearestEqualsBruteForce) {
  uint32_t seed = 1;
  for (const Scene& scene : kScenes) {
    const Object object(scene.mesh());
    int hits = 0;
    for (RaySet& set : RaySets(object, scene.size, ++seed)) {
      RayBlock& rays = set.block;
      for (size_t offset : {0, 1}) {  // four-ray and one-ray paths
        SCOPED_TRACE(::testing::Message()
                     << scene.name << ", " << set.name << ", offset " << offset);
        RayBlock got = rays.CopyAt(offset);
        ASSERT_EQ(vtqStsOk, set.common ? got.Eye(path(), set.origin, object.context)
                                       : got.Multiple(path(), object.context));
        int inPlane = 0;
        for (size_t i = 0; i < rays.Count(); ++i) {
          if (!set.common && rays.index[i] < 0) continue;  // masked out
          const float e[3] = {rays.org[0][i], rays.org[1][i], rays.org[2][i]};
          const float d[3] = {rays.dir[0][i], rays.dir[1][i], rays.dir[2][i]};
          const RefNearest ref = BruteForce(object, e, d, rays.dist[i]);
          const bool parallel = std::fabs(d[0]) <= 1.1920929e-7f ||
                                std::fabs(d[1]) <= 1.1920929e-7f ||
                                std::fabs(d[2]) <= 1.1920929e-7f;
          const int32_t k = got.index[i];
          RefHit hit{rays.dist[i], Sentinel(), Sentinel()};
          if (k >= 0) {
            ASSERT_TRUE(RefTriangleTest(object.accel[k], e, d, &hit)) << "ray " << i;
          }
          ASSERT_EQ(Bits(hit.t), Bits(got.dist[i])) << "ray " << i;
          ASSERT_EQ(Bits(hit.u), Bits(got.u[i])) << "ray " << i;
          ASSERT_EQ(Bits(hit.v), Bits(got.v[i])) << "ray " << i;
          hits += k >= 0;
          if (std::find(ref.tied.begin(), ref.tied.end(), k) != ref.tied.end() ||
              (k < 0 && ref.tied.empty())) {
            continue;
          }
          ++inPlane;
          ASSERT_TRUE(parallel) << "ray " << i << " reported " << k << ", nearest "
                                << (ref.tied.empty() ? -1 : ref.tied[0]);
          ASSERT_TRUE(k < 0 || hit.t >= ref.t) << "ray " << i;
        }
        // At most the centre row and column of a view lie in split planes.
        EXPECT_LE(inPlane, 2 * scene.size) << "rays in split planes that kept another triangle";
      }
    }
    EXPECT_GT(hits, 0) << scene.name;
  }
}

// Any hit is the nearest-hit walk stopped at its first hit: a ray is occluded exactly when
// vtqrIntersectEyeSO_32f, given a box that clips nothing and the ray's end as its distance,
// finds a hit. Masked rays keep their value, occluded rays get -1, the others keep theirs.
// Rays with their own origins equal eye rays when every origin is the eye.
class IntersectAnyAndMultiple : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(IntersectAnyAndMultiple);

TEST_P(IntersectAnyAndMultiple, AgreeWithEyeRays) {
  const float everywhere[6] = {-kInf, -kInf, -kInf, kInf, kInf, kInf};
  uint32_t seed = 40;
  for (const Scene& scene : kScenes) {
    if (scene.size < 8) continue;  // igea: covered by the paths and brute-force tests
    const Object object(scene.mesh());
    VtqrIntersectContext unclipped = object.context;
    unclipped.pBound = everywhere;
    for (RaySet& set : RaySets(object, 16, ++seed)) {
      RayBlock nearest = set.block.CopyAt(0), unclippedNearest = set.block.CopyAt(0);
      ASSERT_EQ(vtqStsOk, nearest.Eye(kPathU8, set.origin, object.context));
      ASSERT_EQ(vtqStsOk, unclippedNearest.Eye(kPathU8, set.origin, unclipped));
      for (size_t offset : {0, 1}) {
        SCOPED_TRACE(::testing::Message()
                     << scene.name << ", " << set.name << ", offset " << offset);
        RayBlock any = set.block.CopyAt(offset);
        ASSERT_EQ(vtqStsOk, any.Any(path(), set.origin, object.context));
        int occluded = 0;
        for (size_t i = 0; i < any.Count(); ++i) {
          const int32_t mask = set.block.index[i];
          ASSERT_EQ(mask < 0 || unclippedNearest.index[i] < 0 ? mask : -1, any.index[i]) << i;
          occluded += mask >= 0 && any.index[i] == -1;
        }
        EXPECT_GT(occluded, 0);
        if (!set.common) continue;
        RayBlock multiple = set.block.CopyAt(offset);
        ASSERT_EQ(vtqStsOk, multiple.Multiple(path(), object.context));
        for (size_t i = 0; i < any.Count(); ++i) {  // masked rays keep their values
          if (set.block.index[i] >= 0) continue;
          nearest.index[i] = set.block.index[i];
          nearest.dist[i] = set.block.dist[i];
          nearest.u[i] = nearest.v[i] = Sentinel();
        }
        ASSERT_TRUE(SameResults(nearest, multiple));
      }
    }
  }
}

// Several objects, with and without transforms: the same bits as casting each object in turn
// with vtqrIntersectMultipleSO_32f on the transformed rays (the transform applied here as
// documented), handing the distance on; and the same as casting each object separately and
// keeping the nearest hit, ties to the lower object.
class IntersectMO : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(IntersectMO);

TEST_P(IntersectMO, EqualsObjectsInTurnAndSeparately) {
  const Object sphere(UvSphere(24, 32, 1.0f)), soup(RandomSoup(2000, 5, 1.0f, 0.2f));
  const Object bunny(SharedMeshOr("stanford-bunny.obj", UvSphere(64, 64)));
  float c[3], r;
  BoxCentre(bunny, c, &r);
  const float s = 1.0f / r;  // the bunny scaled up to the origin; the soup rotated about x
  const float toBunny[12] = {s, 0, 0, -s * c[0], 0, s, 0, -s * c[1], 0, 0, s, -s * c[2]};
  const float toSoup[12] = {1, 0, 0, 0.5f, 0, 0.6f, -0.8f, 0, 0, 0.8f, 0.6f, -0.25f};
  const std::vector<const VtqrIntersectContext*> objects = {&sphere.context, &soup.context,
                                                            &bunny.context, &sphere.context};
  const std::vector<const float*> transforms = {nullptr, toSoup, toBunny, toSoup};
  RaySet set = std::move(RaySets(sphere, 32, 77)[3]);  // own origins all over
  for (const std::vector<const float*>* xf : {&transforms, (decltype(&transforms))nullptr}) {
    RayBlock inTurn = set.block.CopyAt(0), separate = set.block.CopyAt(0);
    for (size_t k = 0; k < objects.size(); ++k) {
      RayBlock local = inTurn.CopyAt(0), alone = set.block.CopyAt(0);
      for (RayBlock* b : {&local, &alone}) {
        const float* m = xf == nullptr ? nullptr : (*xf)[k];
        for (size_t i = 0; i < b->Count(); ++i) {
          b->index[i] = set.block.index[i];
          if (m == nullptr) continue;
          const float o[3] = {b->org[0][i], b->org[1][i], b->org[2][i]};
          const float d[3] = {b->dir[0][i], b->dir[1][i], b->dir[2][i]};
          for (int row = 0; row < 3; ++row) {
            const float* w = m + 4 * row;
            b->org[row][i] = w[0] * o[0] + w[1] * o[1] + w[2] * o[2] + w[3];
            b->dir[row][i] = w[0] * d[0] + w[1] * d[1] + w[2] * d[2];
          }
        }
        ASSERT_EQ(vtqStsOk, b->Multiple(kPathU8, *objects[k]));
      }
      for (size_t i = 0; i < set.block.Count(); ++i) {
        if (set.block.index[i] < 0) continue;
        if (k == 0)
          inTurn.index[i] = separate.index[i] = inTurn.object[i] = separate.object[i] = -1;
        auto keep = [&](RayBlock& into, RayBlock& from) {
          into.index[i] = from.index[i], into.object[i] = static_cast<int32_t>(k);
          into.dist[i] = from.dist[i], into.u[i] = from.u[i], into.v[i] = from.v[i];
        };
        if (local.index[i] >= 0) keep(inTurn, local);
        if (alone.index[i] >= 0 && alone.dist[i] < separate.dist[i]) keep(separate, alone);
      }
    }
    ASSERT_TRUE(SameResults(inTurn, separate));
    int hits = 0;
    for (size_t i = 0; i < inTurn.Count(); ++i) hits += inTurn.object[i] > 0;
    EXPECT_GT(hits, 20);
    for (size_t offset : {0, 1}) {
      SCOPED_TRACE(::testing::Message() << (xf ? "transformed, " : "") << "offset " << offset);
      RayBlock mo = set.block.CopyAt(offset);
      ASSERT_EQ(vtqStsOk, mo.MO(path(), objects, xf));
      ASSERT_TRUE(SameResults(inTurn, mo));
    }
  }
}

}  // namespace
}  // namespace vtqr::test
