// The intersection functions on whole blocks of the ray sets that make walks diverge, over real
// meshes, coplanar grids, ties, empty trees and single leaves, on both code paths:
//   - the four-ray path (2x2 tiles) gives every output bit of the one-ray path, and n8 gives
//     u8's bits;
//   - the nearest hit is the brute-force nearest (or a triangle tied with it), with the test's
//     bits;
//   - any hit is nearest hit without the box: occluded exactly when nearest finds a hit;
//   - rays with their own origins equal eye rays when every origin is the eye;
//   - several objects equal casting each separately and keeping the nearest, ties to the lower.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <utility>
#include <vector>

#include "raycast/intersect_scene.h"

namespace vtqr::test {
namespace {

// World to object for the second instance in the several-object calls: a rotation about z, a
// shift, and a scale of 1.25 along z.
const float kTransform[12] = {0.8f, -0.6f, 0, 0.25f, 0.6f, 0.8f, 0, -0.5f, 0, 0, 1.25f, 0.125f};

// The rays of `block` in the space that `m` maps them to, as the header documents it.
RayBlock Transformed(const RayBlock& block, const float* m) {
  RayBlock out = block.CopyAt(1);
  for (size_t k = 0; k < out.Count(); ++k) {
    const float o[3] = {out.org(0)[k], out.org(1)[k], out.org(2)[k]};
    const float d[3] = {out.dir(0)[k], out.dir(1)[k], out.dir(2)[k]};
    for (int row = 0; row < 3; ++row) {
      const float* w = m + 4 * row;
      out.org(row)[k] = w[0] * o[0] + w[1] * o[1] + w[2] * o[2] + w[3];
      out.dir(row)[k] = w[0] * d[0] + w[1] * d[1] + w[2] * d[2];
    }
  }
  return out;
}

Mesh Scaled(Mesh mesh, float s) {
  for (float& x : mesh.vert) x *= s;
  return mesh;
}

// Every ray the nearest-hit walk reports against brute force. A ray lying in a split plane (a
// direction component of at most 1.1920929e-7) is walked on one side of the plane only, so at
// an edge in that plane it may report a farther triangle or none; such rays are counted. Rays
// are sampled so that each block costs a few million reference tests.
void ExpectBruteForce(const Object& object, RaySet& set, RayBlock& got) {
  RayBlock& in = set.block;
  const size_t work = in.Count() * size_t(std::max(1, object.mesh.TriCount()));
  const size_t stride = std::max<size_t>(1, work / 3000000);
  int inPlane = 0;
  for (size_t k = 0; k < in.Count(); k += stride) {
    if (!set.common && in.index()[k] < 0) continue;  // masked out
    const float e[3] = {in.org(0)[k], in.org(1)[k], in.org(2)[k]};
    const float d[3] = {in.dir(0)[k], in.dir(1)[k], in.dir(2)[k]};
    const RefNearest ref = BruteForce(object, e, d, in.dist()[k]);
    const int32_t t = got.index()[k];
    RefHit hit{in.dist()[k], Sentinel(), Sentinel()};
    if (t >= 0) {
      ASSERT_TRUE(RefTriangleTest(object.accel[size_t(t)], e, d, &hit)) << "ray " << k;
    }
    ASSERT_EQ(Bits(hit.t), Bits(got.dist()[k])) << "ray " << k;
    ASSERT_EQ(Bits(hit.u), Bits(got.u()[k])) << "ray " << k;
    ASSERT_EQ(Bits(hit.v), Bits(got.v()[k])) << "ray " << k;
    if (std::find(ref.tied.begin(), ref.tied.end(), t) != ref.tied.end()) continue;
    if (t < 0 && ref.tied.empty()) continue;
    ++inPlane;
    const bool parallel = std::fabs(d[0]) <= 1.1920929e-7f || std::fabs(d[1]) <= 1.1920929e-7f ||
                          std::fabs(d[2]) <= 1.1920929e-7f;
    ASSERT_TRUE(parallel) << "ray " << k << " reported " << t << ", nearest "
                          << (ref.tied.empty() ? -1 : ref.tied[0]);
    ASSERT_TRUE(t < 0 || hit.t >= ref.t) << "ray " << k;
  }
  EXPECT_LE(inPlane, 2 * in.width) << "rays in split planes that kept another triangle";
}

class IntersectFamily : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(IntersectFamily);

TEST_P(IntersectFamily, PathsAndReferencesAgree) {
  struct Scene {
    const char* name;
    std::function<Object()> object;
    int size;
    // A leaf of a million triangles costs a million tests per walk: there only the first ray
    // set, the functions with one origin, and the four-ray path against the one-ray path.
    bool heavy = false;
  };
  const Scene scenes[] = {
      {"bunny", [] { return Object(SharedMeshOr("stanford-bunny.obj", UvSphere(96, 96))); }, 32},
      {"igea", [] { return Object(SharedMeshOr("igea.ply", UvSphere(160, 160))); }, 32},
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
  for (const Scene& scene : scenes) {
    const Object object = scene.object();
    VtqrIntersectContext unclipped = object.context;
    unclipped.pBound = everywhere;
    const std::vector<const VtqrIntersectContext*> twice = {&object.context, &object.context};
    const float* const transforms[2] = {nullptr, kTransform};
    std::vector<RaySet> sets = RaySets(object, scene.size, ++seed);
    for (size_t s = 0; s < (scene.heavy ? 1 : sets.size()); ++s) {
      RaySet& set = sets[s];
      // Each function as a call on a block; the reference is u8's one-ray walk.
      const std::function<VtqStatus(CodePath, RayBlock&)> calls[] = {
          [&](CodePath p, RayBlock& b) { return b.Eye(p, set.origin, object.context); },
          [&](CodePath p, RayBlock& b) { return b.Any(p, set.origin, object.context); },
          [&](CodePath p, RayBlock& b) { return b.Multiple(p, object.context); },
          [&](CodePath p, RayBlock& b) { return b.MO(p, twice, transforms); },
      };
      std::vector<RayBlock> reference;
      for (size_t c = 0; c < (scene.heavy ? 2 : 4); ++c) {
        SCOPED_TRACE(::testing::Message() << scene.name << ", " << set.name << ", call " << c);
        reference.push_back(set.block.CopyAt(1));
        ASSERT_EQ(vtqStsOk, calls[c](kPathU8, reference.back()));
        for (size_t offset : {0, 1}) {
          if (scene.heavy && offset == 1) continue;
          RayBlock got = set.block.CopyAt(offset);
          ASSERT_EQ(vtqStsOk, calls[c](path(), got));
          ASSERT_TRUE(SameResults(reference.back(), got)) << "offset " << offset;
        }
      }
      if (scene.heavy) continue;
      SCOPED_TRACE(::testing::Message() << scene.name << ", " << set.name);
      RayBlock &eye = reference[0], &any = reference[1], &own = reference[2];
      ExpectBruteForce(object, set, set.common ? eye : own);

      // Any hit against nearest hit with a box that clips nothing; masked rays keep their value.
      RayBlock withoutBox = set.block.CopyAt(1);
      ASSERT_EQ(vtqStsOk, withoutBox.Eye(kPathU8, set.origin, unclipped));
      for (size_t k = 0; k < set.block.Count(); ++k) {
        const int32_t mask = set.block.index()[k];
        ASSERT_EQ(mask < 0 || withoutBox.index()[k] < 0 ? mask : -1, any.index()[k]) << k;
      }

      // Rays keep their inputs where masked, and elsewhere take the outputs of the block `from`
      // names, and with `objects` the object number it names (-1 for a miss).
      auto expect = [&](bool objects, auto from) {
        RayBlock expected = set.block.CopyAt(1);
        for (size_t k = 0; k < expected.Count(); ++k) {
          if (expected.index()[k] < 0) continue;
          auto [b, object] = from(k);
          expected.index()[k] = b->index()[k], expected.dist()[k] = b->dist()[k];
          expected.u()[k] = b->u()[k], expected.v()[k] = b->v()[k];
          if (objects) expected.object()[k] = b->index()[k] < 0 ? -1 : object;
        }
        return expected;
      };
      // Own origins that all equal the eye: eye rays.
      if (set.common) {
        RayBlock expected = expect(false, [&](size_t) { return std::pair(&eye, 0); });
        ASSERT_TRUE(SameResults(expected, own)) << "own origins";
      }
      // Several objects: each instance separately, the nearest kept, ties to the first.
      RayBlock local = Transformed(set.block, kTransform);
      ASSERT_EQ(vtqStsOk, local.Multiple(kPathU8, object.context));
      RayBlock expected = expect(true, [&](size_t k) {
        const bool second = local.index()[k] >= 0 &&
                            !(own.index()[k] >= 0 && own.dist()[k] <= local.dist()[k]);
        return second ? std::pair(&local, 1) : std::pair(&own, 0);
      });
      ASSERT_TRUE(SameResults(expected, reference[3])) << "several objects";
    }
  }
}

}  // namespace
}  // namespace vtqr::test
