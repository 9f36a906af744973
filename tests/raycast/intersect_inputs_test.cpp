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
      RefHit hit{c.dist, Sentinel(), Sentinel()};
      if (c.expected >= 0) {
        ASSERT_TRUE(RefTriangleTest(object.accel[size_t(c.expected)], c.origin, c.dir, &hit));
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

// Pointer arguments are tested for null in argument order, then the object count, then the
// context entries; an empty block comes last. A failed check writes nothing.
TEST_P(IntersectInputs, ArgumentChecks) {
  const Object object(UvSphere(8, 8));
  const float eye[3] = {0.0f, 0.0f, 3.0f};
  const auto& t = kDispatchTable;
  const CodePath p = path();
  // Each function with its pointer parameter n (in argument order) made null.
  using Contexts = const VtqrIntersectContext* const*;
  using Call = std::function<VtqStatus(RayBlock&, int n, Contexts, int count, VtqSize)>;
  const auto Or = [](int n, int param, auto pointer) { return n == param ? nullptr : pointer; };
  const Call multiple = [&](RayBlock& b, int n, Contexts o, int, VtqSize size) {
    return t.IntersectMultipleSO_32f[p](Or(n, 0, b.Org()), Or(n, 1, b.Dir()),
                                        Or(n, 2, b.dist().data), Or(n, 3, b.Hit()),
                                        Or(n, 4, b.index().data), Or(n, 5, o[0]), size);
  };
  const Call any = [&](RayBlock& b, int n, Contexts o, int, VtqSize size) {
    return t.IntersectAnySO_32f[p](eye, Or(n, 0, b.Dir()), Or(n, 1, b.dist().data),
                                   Or(n, 2, b.index().data), size, Or(n, 3, o[0]));
  };
  const Call mo = [&](RayBlock& b, int n, Contexts o, int count, VtqSize size) {
    return t.IntersectMO_32f[p](Or(n, 0, b.Org()), Or(n, 1, b.Dir()), Or(n, 2, b.dist().data),
                                Or(n, 3, b.Hit()), Or(n, 4, b.index().data),
                                Or(n, 5, b.object().data), Or(n, 6, o), nullptr, count, size);
  };
  const Call eyeRays = [&](RayBlock& b, int, Contexts o, int, VtqSize size) {
    return t.IntersectEyeSO_32f[p](eye, b.Dir(), b.dist().data, b.Hit(), b.index().data, o[0],
                                   size);
  };
  const VtqrIntersectContext* objects[2] = {&object.context, &object.context};
  const VtqrIntersectContext* withNull[2] = {&object.context, nullptr};
  const struct {
    const char* name;
    const Call* call;
    int nulls;  // pointer parameters 0 .. nulls-1 are each made null in turn
    Contexts contexts;
    int count;
    VtqSize size;
    VtqStatus expected;
  } cases[] = {
      {"Multiple", &multiple, 6, objects, 2, {4, 4}, vtqStsErrNullPtr},
      {"Any", &any, 4, objects, 2, {4, 4}, vtqStsErrNullPtr},
      {"MO", &mo, 7, objects, -1, {4, 4}, vtqStsErrNullPtr},  // before the count
      {"MO negative count before a null entry", &mo, 0, withNull, -1, {4, 4}, vtqStsErrSize},
      {"MO null entry before an empty block", &mo, 0, withNull, 2, {0, 4}, vtqStsErrNullPtr},
      {"MO empty block", &mo, 0, objects, 2, {4, 0}, vtqStsOk},
      {"Multiple empty block", &multiple, 0, objects, 2, {-4, 4}, vtqStsOk},
      {"Any empty block", &any, 0, objects, 2, {4, -1}, vtqStsOk},
      {"Eye empty block", &eyeRays, 0, objects, 2, {0, 0}, vtqStsOk},
  };
  for (const auto& c : cases) {
    for (int n = c.nulls == 0 ? -1 : 0; n < c.nulls; ++n) {
      SCOPED_TRACE(::testing::Message() << c.name << ", null parameter " << n);
      RayBlock b(4, 4);
      for (size_t k = 0; k < b.Count(); ++k) b.dir(2)[k] = -1.0f;
      RayBlock before = b.CopyAt(0);
      EXPECT_EQ(c.expected, (*c.call)(b, n, c.contexts, c.count, c.size));
      EXPECT_TRUE(SameResults(before, b));
    }
  }
}

}  // namespace
}  // namespace vtqr::test
