// Every intersection function gives the same bits on its four-ray path (2x2 tiles) as on its
// one-ray path, on both code paths, over whole blocks of the ray sets that make walks diverge,
// on real meshes, empty trees and a single leaf of a million triangles.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "raycast/intersect_scene.h"

namespace vtqr::test {
namespace {

// A rotation about z, a shift and a scale of 1.25 along z, world to object.
const float kTransform[12] = {0.8f, -0.6f, 0, 0.25f, 0.6f, 0.8f, 0, -0.5f, 0, 0, 1.25f, 0.125f};

// Each function on a block for one object; MO sees the object twice, once transformed.
struct Function {
  const char* name;
  std::function<VtqStatus(CodePath, RayBlock&, const float*, const Object&)> run;
};
const Function kFunctions[] = {
    {"Eye", [](CodePath p, RayBlock& b, const float* o,
               const Object& ob) { return b.Eye(p, o, ob.context); }},
    {"Multiple", [](CodePath p, RayBlock& b, const float*,
                    const Object& ob) { return b.Multiple(p, ob.context); }},
    {"Any", [](CodePath p, RayBlock& b, const float* o,
               const Object& ob) { return b.Any(p, o, ob.context); }},
    {"MO", [](CodePath p, RayBlock& b, const float*, const Object& ob) {
       const std::vector<const float*> transforms = {nullptr, kTransform};
       return b.MO(p, {&ob.context, &ob.context}, &transforms);
     }}};

class IntersectPaths : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(IntersectPaths);

// The reference is u8's one-ray walk, so the n8 instance also proves both columns agree.
TEST_P(IntersectPaths, TilesMatchSingleRays) {
  struct Scene {
    const char* name;
    std::function<Object()> object;
    int size;
    // A walk through a leaf of a million triangles costs a million tests: there only the first
    // ray set, the functions with one origin, and the four-ray path against the one-ray path.
    bool heavy = false;
  };
  const Scene scenes[] = {
      {"bunny", [] { return Object(SharedMeshOr("stanford-bunny.obj", UvSphere(96, 96))); }, 32},
      {"igea", [] { return Object(SharedMeshOr("igea.ply", UvSphere(160, 160))); }, 32},
      {"grid", [] { return Object(AxisAlignedGrid(12)); }, 32},
      {"duplicated sphere", [] { return Object(Duplicated(UvSphere(12, 16), 3)); }, 16},
      {"empty tree", [] { return Object(Mesh()); }, 8},
      {"single leaf", [] { return Object(UvSphere(32, 32), KDTreeAlgSimple); }, 8},
      {"single leaf of 1M triangles",
       [] { return Object(RandomSoup(1 << 20, 3, 1.0f, 0.002f), KDTreeAlgSimple); }, 4, true},
  };
  uint32_t seed = 11;
  for (const Scene& scene : scenes) {
    const Object object = scene.object();
    std::vector<RaySet> sets = RaySets(object, scene.size, ++seed);
    for (size_t k = 0; k < (scene.heavy ? 1 : sets.size()); ++k) {
      for (const Function& function : kFunctions) {
        const std::string name = function.name;
        if (scene.heavy && name != "Eye" && name != "Any") continue;
        SCOPED_TRACE(::testing::Message() << scene.name << ", " << sets[k].name << ", " << name);
        RayBlock expected = sets[k].block.CopyAt(1);  // one float off alignment: one ray at a time
        ASSERT_EQ(vtqStsOk, function.run(kPathU8, expected, sets[k].origin, object));
        for (size_t offset : {0, 1}) {
          if (scene.heavy && offset == 1) continue;
          SCOPED_TRACE(::testing::Message() << "offset " << offset);
          RayBlock actual = sets[k].block.CopyAt(offset);
          ASSERT_EQ(vtqStsOk, function.run(path(), actual, sets[k].origin, object));
          ASSERT_TRUE(SameResults(expected, actual));
        }
      }
    }
  }
}

}  // namespace
}  // namespace vtqr::test
