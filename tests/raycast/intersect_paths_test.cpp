// Every intersection function gives the same bits on its four-ray path (2x2 tiles) as on its
// one-ray path, on both code paths, over whole blocks of rays chosen to make the walks diverge:
// eyes on split planes, rays inside split planes and parallel to axes, eyes inside the box and
// on triangles, distances that cut walks short, directions with NaN, infinite, tiny and zero
// components, masks that skip rays; on real meshes, empty trees and a single leaf of a
// million triangles.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "raycast/intersect_scene.h"

namespace vtqr::test {
namespace {

// A block of rays for one object: which rays, and where the origin of the functions that take
// one origin lies.
struct RaySet {
  RayBlock block;
  float origin[3];
};

// The functions, each run on a block for one object (several objects for MO: the object itself
// plus a transformed copy of it).
struct Function {
  const char* name;
  std::function<VtqStatus(CodePath, RayBlock&, const float*, const Object&)> run;
};

const float kTransform[12] = {0.8f, -0.6f, 0.0f, 0.25f,  // a rotation about z, a shift and
                              0.6f, 0.8f,  0.0f, -0.5f,  // a scale of 1.25 in z
                              0.0f, 0.0f,  1.25f, 0.125f};

const std::vector<Function>& Functions() {
  static const std::vector<Function> functions = {
      {"Eye", [](CodePath p, RayBlock& b, const float* o,
                 const Object& ob) { return b.Eye(p, o, ob.context); }},
      {"Multiple", [](CodePath p, RayBlock& b, const float*,
                      const Object& ob) { return b.Multiple(p, ob.context); }},
      {"Any", [](CodePath p, RayBlock& b, const float* o,
                 const Object& ob) { return b.Any(p, o, ob.context); }},
      {"MO", [](CodePath p, RayBlock& b, const float*, const Object& ob) {
         const std::vector<const VtqrIntersectContext*> objects = {&ob.context, &ob.context};
         const std::vector<const float*> transforms = {nullptr, kTransform};
         return b.MO(p, objects, &transforms);
       }}};
  return functions;
}

// Rays of a camera at `eye` aimed at the object's centre, origins at the eye.
RaySet CameraRays(const Object& object, const float eye[3], int size, float span) {
  float centre[3], radius;
  BoxCentre(object, centre, &radius);
  RaySet set{RayBlock(size, size), {eye[0], eye[1], eye[2]}};
  const float up[3] = {0.0f, 1.0f, 0.0f};
  const float upZ[3] = {0.0f, 0.0f, 1.0f};
  const bool alongY = eye[0] == centre[0] && eye[2] == centre[2];
  CastEyeRays(set.block, Aim(eye, centre, span, size, size, alongY ? upZ : up), eye);
  return set;
}

// The ray sets of one object.
std::vector<RaySet> RaySets(const Object& object, int size, uint32_t seed) {
  float centre[3], radius;
  BoxCentre(object, centre, &radius);
  std::vector<RaySet> sets;
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> unit(-1.0f, 1.0f);

  // 1. A slanted view from outside the box.
  const float slanted[3] = {centre[0] + 1.1f * radius, centre[1] + 0.7f * radius,
                            centre[2] + 1.9f * radius};
  sets.push_back(CameraRays(object, slanted, size, 1.1f));

  // 2. Straight down the z axis with the image's centre row and column exactly axis-parallel
  // (a power-of-two pixel step), the eye moved onto the root's split plane when it splits x or
  // y: rays that lie in a split plane and rays that graze it.
  {
    float eye[3] = {centre[0], centre[1], centre[2] + 2.5f * radius};
    const VtqrKDTreeNode root = *object.context.pRootNode;
    if (root.w0 >= 0 && (root.w0 & 3) != 2) eye[root.w0 & 3] = FromBits(root.w1);
    RaySet set{RayBlock(size, size), {eye[0], eye[1], eye[2]}};
    const float step = std::ldexp(1.0f, -std::ilogb(static_cast<float>(size)) - 1);
    const float org[3] = {-step * static_cast<float>(size / 2), step * static_cast<float>(size / 2),
                          -1.0f};
    const float dW[3] = {step, 0.0f, 0.0f}, dH[3] = {0.0f, -step, 0.0f};
    float* dst[3] = {set.block.dir[0].data, set.block.dir[1].data, set.block.dir[2].data};
    kDispatchTable.CastEye_32f[kPathU8](org, dW, dH, 0, 0, set.block.Size(), dst,
                                        set.block.Size());
    for (size_t i = 0; i < set.block.Count(); ++i) {
      for (int a = 0; a < 3; ++a) set.block.org[a][i] = eye[a];
    }
    sets.push_back(std::move(set));
  }

  // 3. From inside the box, all around.
  {
    RaySet set{RayBlock(size, size), {centre[0], centre[1], centre[2]}};
    for (size_t i = 0; i < set.block.Count(); ++i) {
      for (int a = 0; a < 3; ++a) {
        set.block.dir[a][i] = unit(rng);
        set.block.org[a][i] = centre[a];
      }
    }
    sets.push_back(std::move(set));
  }

  // 4. Origins on triangles (a vertex of one, the midpoint of another's edge) and scattered
  // through the box, towards random points: every ray its own origin, walks that diverge at
  // once. The functions with one origin use the first vertex.
  if (object.mesh.TriCount() > 0) {
    RaySet set{RayBlock(size, size), {}};
    std::uniform_int_distribution<int> pick(0, object.mesh.TriCount() - 1);
    for (size_t i = 0; i < set.block.Count(); ++i) {
      const int32_t* tri = &object.mesh.tri[4 * static_cast<size_t>(pick(rng))];
      for (int a = 0; a < 3; ++a) {
        const float p = object.mesh.vert[3 * static_cast<size_t>(tri[0]) + a];
        const float q = object.mesh.vert[3 * static_cast<size_t>(tri[1]) + a];
        const float inBox = centre[a] + unit(rng) * radius;
        set.block.org[a][i] = i % 3 == 0 ? p : i % 3 == 1 ? 0.5f * (p + q) : inBox;
        set.block.dir[a][i] = centre[a] + unit(rng) * radius - set.block.org[a][i];
      }
    }
    for (int a = 0; a < 3; ++a) set.origin[a] = set.block.org[a][0];
    sets.push_back(std::move(set));
  }

  // 5. Inputs users do send, mixed into the slanted view: distances of 0, negative, NaN,
  // infinite or cutting the walk short; NaN, infinite, zero and tiny direction components.
  // Every third ray is masked out for the functions that take a mask.
  {
    RaySet set = CameraRays(object, slanted, size, 1.3f);
    const float nan = FromBits(0x7FC00000u);
    const float dists[] = {0.0f, -1.0f, nan, kInf, -0.0f};
    const float components[] = {nan, kInf, -kInf, 0.0f, -0.0f, 1e-8f, -1.1920929e-7f, 1e30f};
    std::uniform_int_distribution<int> pick(0, 15);
    const int32_t masks[] = {-1, -7, INT32_MIN};
    for (size_t i = 0; i < set.block.Count(); ++i) {
      const int k = pick(rng);
      if (k < 5) set.block.dist[i] = dists[k];
      if (k >= 5 && k < 10) set.block.dist[i] = (unit(rng) + 1.0f) * 2.0f * radius;
      if (k >= 10) set.block.dir[k % 3][i] = components[(k + static_cast<int>(i)) % 8];
      if (k == 15) set.block.dir[0][i] = set.block.dir[1][i] = set.block.dir[2][i] = 0.0f;
      if (i % 3 == 0) set.block.index[i] = masks[i % 9 / 3];
    }
    sets.push_back(std::move(set));
  }
  // The functions that read a mask see live rays as 0 and the masked ones above.
  for (RaySet& set : sets) {
    for (size_t i = 0; i < set.block.Count(); ++i) {
      if (set.block.index[i] >= 0) set.block.index[i] = static_cast<int32_t>(i % 5);
    }
  }
  return sets;
}

struct SceneCase {
  const char* name;
  std::function<Object()> object;
  int size;
  // A walk through a leaf of a million triangles costs a million tests: one ray set, the
  // functions with one origin, the four-ray path against the one-ray path only.
  bool heavy = false;
};

TEST(IntersectPaths, TilesMatchSingleRays) {
  const std::vector<SceneCase> scenes = {
      {"bunny", [] { return Object(SharedMeshOr("stanford-bunny.obj", UvSphere(96, 96))); }, 32},
      {"igea", [] { return Object(SharedMeshOr("igea.ply", UvSphere(160, 160))); }, 32},
      {"grid", [] { return Object(AxisAlignedGrid(12)); }, 32},
      {"duplicated sphere", [] { return Object(Duplicated(UvSphere(12, 16), 3)); }, 16},
      {"empty tree", [] { return Object(Mesh()); }, 8},
      {"single leaf", [] { return Object(UvSphere(32, 32), KDTreeAlgSimple); }, 16},
      {"single leaf of 1M triangles",
       [] { return Object(RandomSoup(1 << 20, 3, 1.0f, 0.002f), KDTreeAlgSimple); }, 4, true},
  };
  uint32_t seed = 11;
  for (const SceneCase& scene : scenes) {
    const Object object = scene.object();
    std::vector<RaySet> sets = RaySets(object, scene.size, ++seed);
    for (size_t k = 0; k < (scene.heavy ? 1 : sets.size()); ++k) {
      RaySet& set = sets[k];
      for (const Function& function : Functions()) {
        if (scene.heavy && function.name != std::string("Eye") &&
            function.name != std::string("Any")) {
          continue;
        }
        SCOPED_TRACE(::testing::Message() << scene.name << " " << function.name << " set " << k);
        RayBlock expected = set.block.CopyAt(1);  // one float off alignment: one ray at a time
        ASSERT_EQ(vtqStsOk, function.run(kPathU8, expected, set.origin, object));
        for (CodePath path : kBothPaths) {
          for (size_t offset : {0, 1}) {
            if (scene.heavy && offset == 1) continue;
            SCOPED_TRACE(::testing::Message() << PathName(path) << " offset " << offset);
            RayBlock actual = set.block.CopyAt(offset);
            ASSERT_EQ(vtqStsOk, function.run(path, actual, set.origin, object));
            ASSERT_TRUE(SameResults(expected, actual));
          }
        }
      }
    }
  }
}

}  // namespace
}  // namespace vtqr::test
