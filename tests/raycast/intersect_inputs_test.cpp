// The intersection functions at the borders of the hit rule (t equal to dist, t = 0, ties,
// zero-area triangles) and on inputs that must miss, and their argument checks.
#include <functional>

#include "raycast/intersect_scene.h"

namespace vtqr::test {
namespace {

// Two unit squares, in z = 0 and z = -1, each as two triangles split along x = y. Triangle 2
// repeats triangle 0 (a tie at every distance) and triangle 3 has zero area across the rays.
Mesh TwoSquares() {
  Mesh mesh;
  for (float z : {0.0f, -1.0f}) {
    const int32_t a = mesh.AddVertex(0, 0, z), b = mesh.AddVertex(1, 0, z);
    const int32_t c = mesh.AddVertex(1, 1, z), d = mesh.AddVertex(0, 1, z);
    mesh.AddTriangle(a, b, c);
    mesh.AddTriangle(a, c, d);
    if (z != 0.0f) continue;
    mesh.AddTriangle(a, b, c);
    mesh.AddTriangle(mesh.AddVertex(0, 0, -0.5f), mesh.AddVertex(1, 1, -0.5f),
                     mesh.AddVertex(0.5f, 0.5f, -0.5f));
  }
  return mesh;
}

class IntersectInputs : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(IntersectInputs);

// Every ray of a 4x4 block alike, on both paths and both tree builds: eye rays and own origins
// report the expected triangle with the documented test's bits, any hit occludes exactly then.
TEST_P(IntersectInputs, DefinedResults) {
  const float nan = FromBits(0x7FC00000u);
  const struct {
    const char* name;
    float origin[3], dir[3], dist;
    int32_t expected;  // triangle, or -1
  } cases[] = {
      {"hit, the first of two equal triangles", {0.75f, 0.25f, 1}, {0, 0, -1}, kInf, 0},
      {"t equal to dist is no hit", {0.75f, 0.25f, 1}, {0, 0, -1}, 1.0f, -1},
      {"t just below dist", {0.75f, 0.25f, 1}, {0, 0, -1}, std::nextafter(1.0f, 2.0f), 0},
      {"origin on a triangle: t = 0 is no hit", {0.75f, 0.25f, 0}, {0, 0, -1}, kInf, 4},
      {"origin between the squares", {0.25f, 0.75f, -0.5f}, {0, 0, 1}, kInf, 1},
      {"through the zero-area triangle", {0.5f, 0.5f, -0.75f}, {0.1f, -0.1f, 1}, kInf, 0},
      {"dist zero", {0.75f, 0.25f, 1}, {0, 0, -1}, 0.0f, -1},
      {"dist NaN", {0.75f, 0.25f, 1}, {0, 0, -1}, nan, -1},
      {"direction NaN", {0.75f, 0.25f, 1}, {nan, 0, -1}, kInf, -1},
      {"direction zero", {0.75f, 0.25f, 1}, {0, 0, 0}, kInf, -1},
      {"origin infinite", {0.75f, 0.25f, kInf}, {0, 0, -1}, kInf, -1},
      {"parallel to the squares, outside their slab", {0.5f, 0.25f, 5}, {1, 0, 0}, kInf, -1},
      {"from below, the lower square first", {0.25f, 0.75f, -3}, {0, 0, 1}, kInf, 5},
  };
  for (uint32_t algorithm : {uint32_t{KDTreeAlgSAH}, uint32_t{KDTreeAlgSimple}}) {
    const Object object(TwoSquares(), algorithm);
    for (const auto& c : cases) {
      RayBlock rays(4, 4);
      for (size_t k = 0; k < rays.Count(); ++k) {
        for (int a = 0; a < 3; ++a) rays.org(a)[k] = c.origin[a], rays.dir(a)[k] = c.dir[a];
        rays.dist()[k] = c.dist;
        rays.index()[k] = 0;
      }
      TriangleHit hit{c.dist, Sentinel(), Sentinel()};
      if (c.expected >= 0) {
        ASSERT_TRUE(TriangleReference(object.accel[size_t(c.expected)], c.origin, c.dir, &hit));
      }
      for (size_t offset : {0, 1}) {
        SCOPED_TRACE(::testing::Message()
                     << c.name << ", offset " << offset << ", tree " << std::hex << algorithm);
        RayBlock eye = rays.CopyAt(offset), own = rays.CopyAt(offset), any = rays.CopyAt(offset);
        ASSERT_EQ(vtqStsOk, eye.Eye(path(), c.origin, object.context));
        ASSERT_EQ(vtqStsOk, own.Multiple(path(), object.context));
        ASSERT_EQ(vtqStsOk, any.Any(path(), c.origin, object.context));
        RayBlock expected = rays.CopyAt(1);
        for (size_t k = 0; k < rays.Count(); ++k) {
          expected.index()[k] = c.expected, expected.dist()[k] = hit.t;
          expected.u()[k] = hit.u, expected.v()[k] = hit.v;
          ASSERT_EQ(c.expected >= 0 ? -1 : 0, any.index()[k]);
        }
        ASSERT_TRUE(SameResults(expected, eye));
        ASSERT_TRUE(SameResults(expected, own));
      }
    }
  }
}

// Each tested pointer made null in turn, then the several-object call's count and entries, then
// empty blocks: checks come in that order, and a failed check writes nothing.
TEST_P(IntersectInputs, ArgumentChecks) {
  const Object object(UvSphere(8, 8));
  const float eye[3] = {0.0f, 0.0f, 3.0f};
  const std::vector<const VtqrIntersectContext*> two = {&object.context, &object.context};
  const std::vector<const VtqrIntersectContext*> withNull = {&object.context, nullptr};
  using B = RayBlock;
  using enum RayBlock::Arg;
  const auto multiple = [&](B& b) { return b.Multiple(path(), object.context); };
  const auto any = [&](B& b) { return b.Any(path(), eye, object.context); };
  const auto eyeRays = [&](B& b) { return b.Eye(path(), eye, object.context); };
  const auto mo = [](const auto& objects, int count) {
    return [list = &objects, count](B& b) { return b.MO(path(), *list, nullptr, count); };
  };
  // The pointers each function tests, in argument order.
  const std::vector<B::Arg> none = {kNone}, anyArgs = {kDir, kDist, kIndex, kContext};
  const std::vector<B::Arg> multipleArgs = {kOrg, kDir, kDist, kHit, kIndex, kContext};
  const std::vector<B::Arg> moArgs = {kOrg, kDir, kDist, kHit, kIndex, kObject, kContext};
  const struct {
    const char* name;
    const std::vector<B::Arg>& nulls;
    VtqSize size;
    std::function<VtqStatus(B&)> call;
    VtqStatus expected;
  } cases[] = {
      {"Multiple", multipleArgs, {4, 4}, multiple, vtqStsErrNullPtr},
      {"Any", anyArgs, {4, 4}, any, vtqStsErrNullPtr},
      {"MO, before the count", moArgs, {4, 4}, mo(two, -1), vtqStsErrNullPtr},
      {"MO negative count before a null entry", none, {4, 4}, mo(withNull, -1), vtqStsErrSize},
      {"MO null entry before an empty block", none, {0, 4}, mo(withNull, 2), vtqStsErrNullPtr},
      {"MO empty block", none, {4, 0}, mo(two, 2), vtqStsOk},
      {"Multiple empty block", none, {-4, 4}, multiple, vtqStsOk},
      {"Any empty block", none, {4, -1}, any, vtqStsOk},
      {"Eye empty block", none, {0, 0}, eyeRays, vtqStsOk},
  };
  for (const auto& c : cases) {
    for (B::Arg arg : c.nulls) {
      SCOPED_TRACE(::testing::Message() << c.name << ", null argument " << arg);
      B b(4, 4);
      for (size_t k = 0; k < b.Count(); ++k) b.dir(2)[k] = -1.0f;
      B before = b.CopyAt(0);
      b.nullArg = arg, b.size = c.size;
      EXPECT_EQ(c.expected, c.call(b));
      EXPECT_TRUE(SameResults(before, b));
    }
  }
}

}  // namespace
}  // namespace vtqr::test
