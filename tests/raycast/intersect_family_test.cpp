// The intersection functions on whole blocks of the ray sets that make walks diverge, over real
// meshes, coplanar grids, ties, empty trees and single leaves, on both code paths:
//   - the four-ray path (2x2 tiles) gives every output bit of the one-ray path, and n8 gives
//     u8's bits;
//   - the nearest hit is the brute-force nearest (or a triangle tied with it), with the test's
//     bits;
//   - any hit is nearest hit without the box: occluded exactly when nearest finds a hit;
//   - rays with their own origins equal eye rays when every origin is the eye;
//   - several objects equal casting each separately and keeping the nearest, ties to the lower.
#include <functional>

#include "raycast/intersect_scene.h"

namespace vtqr::test {
namespace {

// World to object for the second instance in the several-object calls: a rotation about z, a
// shift, and a scale of 1.25 along z.
const float kTransform[12] = {0.8f, -0.6f, 0, 0.25f, 0.6f, 0.8f, 0, -0.5f, 0, 0, 1.25f, 0.125f};

// Every sampled ray the nearest-hit walk reports against brute force. A ray lying in a split
// plane (a direction component of at most 1.1920929e-7) is walked on one side of the plane
// only, so at an edge in that plane it may report a farther triangle or none; such rays are
// counted. Rays are sampled so that each block costs a few million reference tests.
void ExpectBruteForce(const Object& object, RaySet& set, RayBlock& got) {
  RayBlock& in = set.block;
  const size_t work = in.Count() * size_t(std::max(1, object.mesh.TriCount()));
  int inPlane = 0;
  for (size_t k = 0; k < in.Count(); k += std::max<size_t>(1, work / 3000000)) {
    if (!set.common && in.index()[k] < 0) continue;  // masked out
    const float e[3] = {in.org(0)[k], in.org(1)[k], in.org(2)[k]};
    const float d[3] = {in.dir(0)[k], in.dir(1)[k], in.dir(2)[k]};
    const RefNearest ref = BruteForce(object, e, d, in.dist()[k]);
    const int32_t t = got.index()[k];
    TriangleHit hit{in.dist()[k], Sentinel(), Sentinel()};
    SCOPED_TRACE(::testing::Message() << "ray " << k << " reported " << t);
    ASSERT_TRUE(t < 0 || TriangleReference(object.accel[size_t(t)], e, d, &hit));
    ASSERT_EQ(HexBits(hit.t) + HexBits(hit.u) + HexBits(hit.v),
              HexBits(got.dist()[k]) + HexBits(got.u()[k]) + HexBits(got.v()[k]));
    if (std::find(ref.tied.begin(), ref.tied.end(), t) != ref.tied.end()) continue;
    if (t < 0 && ref.tied.empty()) continue;
    ++inPlane;
    ASSERT_TRUE(std::fabs(d[0]) <= 1.1920929e-7f || std::fabs(d[1]) <= 1.1920929e-7f ||
                std::fabs(d[2]) <= 1.1920929e-7f);
    ASSERT_TRUE(t < 0 || hit.t >= ref.t);
  }
  EXPECT_LE(inPlane, 2 * in.width) << "rays in split planes that kept another triangle";
}

Mesh Scaled(Mesh mesh, float s) {
  for (float& x : mesh.vert) x *= s;
  return mesh;
}

// The bunny from the shared data folder, or a sphere where the folder is absent.
Mesh Bunny() {
  Mesh mesh;
  std::string error, path = SharedDataFile("stanford-bunny.obj");
  return !path.empty() && LoadMesh(path, &mesh, &error) ? mesh : UvSphere(96, 96);
}

class IntersectFamily : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(IntersectFamily);

TEST_P(IntersectFamily, PathsAndReferencesAgree) {
  const struct {
    const char* name;
    std::function<Object()> object;
    int size;
    // A leaf of a million triangles costs a million tests per walk: there only the first ray
    // set, the functions with one origin, and the four-ray path against the one-ray path.
    bool heavy = false;
  } scenes[] = {
      {"bunny", [] { return Object(Bunny()); }, 32},
      {"grid", [] { return Object(AxisAlignedGrid(12)); }, 32},
      // Far from the origin, float steps of t exceed the split tolerance: the far end of each
      // stretch needs its widening to reach the floor, which lies in the box's lowest plane.
      {"grid at 256x scale", [] { return Object(Scaled(AxisAlignedGrid(8), 256.0f)); }, 16},
      {"duplicated sphere", [] { return Object(Duplicated(UvSphere(12, 16), 3)); }, 16},
      {"soup", [] { return Object(RandomSoup(3000, 7, 1.0f, 0.15f)); }, 16},
      {"empty tree", [] { return Object(Mesh()); }, 8},
      {"single leaf", [] { return Object(UvSphere(32, 32), KDTreeAlgSimple); }, 8},
      {"single leaf of 1M triangles",
       [] { return Object(RandomSoup(1 << 20, 3, 1.0f, 0.002f), KDTreeAlgSimple); }, 4, true},
  };
  const float everywhere[6] = {-kInf, -kInf, -kInf, kInf, kInf, kInf};
  uint32_t seed = 11;
  for (const auto& scene : scenes) {
    const Object object = scene.object();
    VtqrIntersectContext unclipped = object.context;
    unclipped.pBound = everywhere;
    const std::vector<const VtqrIntersectContext*> twice = {&object.context, &object.context};
    const float* const transforms[2] = {nullptr, kTransform};
    std::vector<RaySet> sets = RaySets(object, scene.size, ++seed);
    for (size_t s = 0; s < (scene.heavy ? 1 : sets.size()); ++s) {
      RaySet& set = sets[s];
      SCOPED_TRACE(::testing::Message() << scene.name << ", " << set.name);
      // Each function as a call on a block; the reference is u8's one-ray walk.
      const std::function<VtqStatus(CodePath, RayBlock&)> calls[] = {
          [&](CodePath p, RayBlock& b) { return b.Eye(p, set.origin, object.context); },
          [&](CodePath p, RayBlock& b) { return b.Any(p, set.origin, object.context); },
          [&](CodePath p, RayBlock& b) { return b.Multiple(p, object.context); },
          [&](CodePath p, RayBlock& b) { return b.MO(p, twice, transforms, 2); },
      };
      std::vector<RayBlock> ref;
      for (size_t c = 0; c < (scene.heavy ? 2 : 4); ++c) {
        ref.push_back(set.block.CopyAt(1));
        ASSERT_EQ(vtqStsOk, calls[c](kPathU8, ref.back()));
        for (size_t offset : {0, 1}) {
          if (scene.heavy && offset == 1) continue;
          RayBlock got = set.block.CopyAt(offset);
          ASSERT_EQ(vtqStsOk, calls[c](path(), got));
          ASSERT_TRUE(SameResults(ref.back(), got)) << "call " << c << ", offset " << offset;
        }
      }
      if (scene.heavy) continue;
      RayBlock &eye = ref[0], &any = ref[1], &own = ref[2];
      ExpectBruteForce(object, set, set.common ? eye : own);
      // Any hit against nearest hit with a box that clips nothing; masked rays keep their value.
      RayBlock withoutBox = set.block.CopyAt(1);
      ASSERT_EQ(vtqStsOk, withoutBox.Eye(kPathU8, set.origin, unclipped));
      for (size_t k = 0; k < set.block.Count(); ++k) {
        const int32_t mask = set.block.index()[k];
        ASSERT_EQ(mask < 0 || withoutBox.index()[k] < 0 ? mask : -1, any.index()[k]) << k;
      }

      // Own origins that all equal the eye: eye rays. Several objects: each instance separately,
      // the second on rays mapped as the header documents, the nearest kept, ties to the first.
      // Masked rays keep their inputs.
      RayBlock local = set.block.CopyAt(1), expected = set.block.CopyAt(1);
      for (size_t k = 0; k < local.Count(); ++k) {
        const float o[3] = {local.org(0)[k], local.org(1)[k], local.org(2)[k]};
        const float d[3] = {local.dir(0)[k], local.dir(1)[k], local.dir(2)[k]};
        for (int row = 0; row < 3; ++row) {
          const float* w = kTransform + 4 * row;
          local.org(row)[k] = w[0] * o[0] + w[1] * o[1] + w[2] * o[2] + w[3];
          local.dir(row)[k] = w[0] * d[0] + w[1] * d[1] + w[2] * d[2];
        }
      }
      ASSERT_EQ(vtqStsOk, local.Multiple(kPathU8, object.context));
      const auto take = [](RayBlock& to, RayBlock& from, size_t k) {
        to.index()[k] = from.index()[k], to.dist()[k] = from.dist()[k];
        to.u()[k] = from.u()[k], to.v()[k] = from.v()[k];
      };
      RayBlock expectedOwn = set.block.CopyAt(1);
      for (size_t k = 0; k < expected.Count(); ++k) {
        if (expected.index()[k] < 0) continue;
        take(expectedOwn, eye, k);
        const bool second = local.index()[k] >= 0 &&
                            !(own.index()[k] >= 0 && own.dist()[k] <= local.dist()[k]);
        take(expected, second ? local : own, k);
        expected.object()[k] = expected.index()[k] < 0 ? -1 : second;
      }
      if (set.common) {
        ASSERT_TRUE(SameResults(expectedOwn, own)) << "own origins all at the eye";
      }
      ASSERT_TRUE(SameResults(expected, ref[3])) << "several objects";
    }
  }
}

}  // namespace
}  // namespace vtqr::test
