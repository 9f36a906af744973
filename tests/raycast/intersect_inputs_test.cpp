// The intersection functions on the inputs users do send (distances of zero, negative, NaN,
// exactly at a hit; origins on a triangle; NaN, infinite and zero directions; ties; zero-area
// triangles) and their argument checks.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

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
    if (z == 0.0f) {
      mesh.AddTriangle(a, b, c);
      mesh.AddTriangle(mesh.AddVertex(0, 0, -0.5f), mesh.AddVertex(1, 1, -0.5f),
                       mesh.AddVertex(0.5f, 0.5f, -0.5f));
    }
  }
  return mesh;
}

TEST(IntersectInputs, DefinedResults) {
  const float nan = FromBits(0x7FC00000u);
  struct Case {
    const char* name;
    float origin[3], dir[3], dist;
    int32_t expected;  // triangle, or -1
  };
  const Case cases[] = {
      {"hit, the first of two equal triangles", {0.75f, 0.25f, 1}, {0, 0, -1}, kInf, 0},
      {"t equal to dist is no hit", {0.75f, 0.25f, 1}, {0, 0, -1}, 1.0f, -1},
      {"t just below dist", {0.75f, 0.25f, 1}, {0, 0, -1}, std::nextafter(1.0f, 2.0f), 0},
      {"origin on a triangle: t = 0 is no hit", {0.75f, 0.25f, 0}, {0, 0, -1}, kInf, 4},
      {"origin between the squares", {0.25f, 0.75f, -0.5f}, {0, 0, 1}, kInf, 1},
      {"through the zero-area triangle", {0.5f, 0.5f, -0.75f}, {0.1f, -0.1f, 1}, kInf, 0},
      {"dist zero", {0.75f, 0.25f, 1}, {0, 0, -1}, 0.0f, -1},
      {"dist negative", {0.75f, 0.25f, 1}, {0, 0, -1}, -2.0f, -1},
      {"dist NaN", {0.75f, 0.25f, 1}, {0, 0, -1}, nan, -1},
      {"direction NaN", {0.75f, 0.25f, 1}, {nan, 0, -1}, kInf, -1},
      {"direction infinite", {0.75f, 0.25f, 1}, {0, 0, -kInf}, kInf, -1},
      {"direction zero", {0.75f, 0.25f, 1}, {0, 0, 0}, kInf, -1},
      {"origin infinite", {0.75f, 0.25f, kInf}, {0, 0, -1}, kInf, -1},
      {"parallel to the squares, outside their slab", {0.5f, 0.25f, 5}, {1, 0, 0}, kInf, -1},
      {"from below, the lower square first", {0.25f, 0.75f, -3}, {0, 0, 1}, kInf, 5},
  };
  for (uint32_t algorithm : {uint32_t{KDTreeAlgSAH}, uint32_t{KDTreeAlgSimple}}) {
    const Object object(TwoSquares(), algorithm);
    for (const Case& c : cases) {
      RayBlock rays(4, 4);
      for (size_t i = 0; i < rays.Count(); ++i) {
        for (int a = 0; a < 3; ++a) {
          rays.org[a][i] = c.origin[a];
          rays.dir[a][i] = c.dir[a];
        }
        rays.dist[i] = c.dist;
        rays.index[i] = 0;
      }
      RefHit hit{c.dist, Sentinel(), Sentinel()};
      if (c.expected >= 0) {
        ASSERT_TRUE(RefTriangleTest(object.accel[static_cast<size_t>(c.expected)], c.origin,
                                    c.dir, &hit));
      }
      for (CodePath path : kBothPaths) {
        for (size_t offset : {0, 1}) {
          SCOPED_TRACE(::testing::Message() << c.name << ", " << PathName(path) << " offset "
                                            << offset << " tree " << std::hex << algorithm);
          RayBlock eye = rays.CopyAt(offset), multiple = rays.CopyAt(offset);
          RayBlock any = rays.CopyAt(offset);
          ASSERT_EQ(vtqStsOk, eye.Eye(path, c.origin, object.context));
          ASSERT_EQ(vtqStsOk, multiple.Multiple(path, object.context));
          ASSERT_EQ(vtqStsOk, any.Any(path, c.origin, object.context));
          for (size_t i = 0; i < rays.Count(); ++i) {
            for (RayBlock* b : {&eye, &multiple}) {
              ASSERT_EQ(c.expected, b->index[i]);
              ASSERT_EQ(Bits(hit.t), Bits(b->dist[i]));
              ASSERT_EQ(Bits(hit.u), Bits(b->u[i]));
              ASSERT_EQ(Bits(hit.v), Bits(b->v[i]));
            }
            ASSERT_EQ(c.expected >= 0 ? -1 : 0, any.index[i]);
          }
        }
      }
    }
  }
}

// Pointer arguments, in order, tested for null, then counts; a failed check writes nothing.
TEST(IntersectInputs, ArgumentChecks) {
  const Object object(UvSphere(8, 8));
  const float eye[3] = {0.0f, 0.0f, 3.0f};
  const VtqrIntersectContext* objects[2] = {&object.context, &object.context};
  const VtqrIntersectContext* withNull[2] = {&object.context, nullptr};
  struct Case {
    const char* name;
    VtqStatus expected;
    VtqStatus (*run)(RayBlock& b, const float* eye, const VtqrIntersectContext* const* objects,
                     int count, VtqSize size);
  };
#define CASE(name, status, call)                                                             \
  {                                                                                          \
    name, status, [](RayBlock& b, const float* e, const VtqrIntersectContext* const* o, int n, \
                     VtqSize size) -> VtqStatus {                                            \
      (void)e, (void)o, (void)n, (void)size;                                                 \
      return call;                                                                           \
    }                                                                                        \
  }
  const auto& t = kDispatchTable;
  const Case cases[] = {
      CASE("Multiple origin", vtqStsErrNullPtr,
           t.IntersectMultipleSO_32f[kPathU8](nullptr, b.Dir(), b.dist.data, b.Hit(), b.index.data,
                                               o[0], size)),
      CASE("Multiple direction", vtqStsErrNullPtr,
           t.IntersectMultipleSO_32f[kPathU8](b.Org(), nullptr, b.dist.data, b.Hit(), b.index.data,
                                               o[0], size)),
      CASE("Multiple dist", vtqStsErrNullPtr,
           t.IntersectMultipleSO_32f[kPathU8](b.Org(), b.Dir(), nullptr, b.Hit(), b.index.data,
                                               o[0], size)),
      CASE("Multiple hit", vtqStsErrNullPtr,
           t.IntersectMultipleSO_32f[kPathU8](b.Org(), b.Dir(), b.dist.data, nullptr, b.index.data,
                                               o[0], size)),
      CASE("Multiple index", vtqStsErrNullPtr,
           t.IntersectMultipleSO_32f[kPathU8](b.Org(), b.Dir(), b.dist.data, b.Hit(), nullptr,
                                               o[0], size)),
      CASE("Multiple context", vtqStsErrNullPtr,
           t.IntersectMultipleSO_32f[kPathU8](b.Org(), b.Dir(), b.dist.data, b.Hit(), b.index.data,
                                               nullptr, size)),
      CASE("Any direction", vtqStsErrNullPtr,
           t.IntersectAnySO_32f[kPathU8](e, nullptr, b.dist.data, b.index.data, size, o[0])),
      CASE("Any dist", vtqStsErrNullPtr,
           t.IntersectAnySO_32f[kPathU8](e, b.Dir(), nullptr, b.index.data, size, o[0])),
      CASE("Any mask", vtqStsErrNullPtr,
           t.IntersectAnySO_32f[kPathU8](e, b.Dir(), b.dist.data, nullptr, size, o[0])),
      CASE("Any context", vtqStsErrNullPtr,
           t.IntersectAnySO_32f[kPathU8](e, b.Dir(), b.dist.data, b.index.data, size, nullptr)),
      CASE("MO origin", vtqStsErrNullPtr,
           t.IntersectMO_32f[kPathU8](nullptr, b.Dir(), b.dist.data, b.Hit(), b.index.data,
                                      b.object.data, o, nullptr, n, size)),
      CASE("MO direction", vtqStsErrNullPtr,
           t.IntersectMO_32f[kPathU8](b.Org(), nullptr, b.dist.data, b.Hit(), b.index.data,
                                      b.object.data, o, nullptr, n, size)),
      CASE("MO dist", vtqStsErrNullPtr,
           t.IntersectMO_32f[kPathU8](b.Org(), b.Dir(), nullptr, b.Hit(), b.index.data,
                                      b.object.data, o, nullptr, n, size)),
      CASE("MO hit", vtqStsErrNullPtr,
           t.IntersectMO_32f[kPathU8](b.Org(), b.Dir(), b.dist.data, nullptr, b.index.data,
                                      b.object.data, o, nullptr, n, size)),
      CASE("MO index", vtqStsErrNullPtr,
           t.IntersectMO_32f[kPathU8](b.Org(), b.Dir(), b.dist.data, b.Hit(), nullptr,
                                      b.object.data, o, nullptr, n, size)),
      CASE("MO object", vtqStsErrNullPtr,
           t.IntersectMO_32f[kPathU8](b.Org(), b.Dir(), b.dist.data, b.Hit(), b.index.data,
                                      nullptr, o, nullptr, n, size)),
      CASE("MO context array before a negative count", vtqStsErrNullPtr,
           t.IntersectMO_32f[kPathU8](b.Org(), b.Dir(), b.dist.data, b.Hit(), b.index.data,
                                      b.object.data, nullptr, nullptr, -1, size)),
      CASE("MO negative count before a null context", vtqStsErrSize,
           t.IntersectMO_32f[kPathU8](b.Org(), b.Dir(), b.dist.data, b.Hit(), b.index.data,
                                      b.object.data, o, nullptr, -1, size)),
      CASE("MO null context before an empty block", vtqStsErrNullPtr,
           t.IntersectMO_32f[kPathU8](b.Org(), b.Dir(), b.dist.data, b.Hit(), b.index.data,
                                      b.object.data, o, nullptr, 2, (VtqSize{0, 4}))),
      CASE("Eye, empty block", vtqStsOk,
           t.IntersectEyeSO_32f[kPathU8](e, b.Dir(), b.dist.data, b.Hit(), b.index.data, o[0],
                                         (VtqSize{4, 0}))),
      CASE("Multiple, empty block", vtqStsOk,
           t.IntersectMultipleSO_32f[kPathU8](b.Org(), b.Dir(), b.dist.data, b.Hit(), b.index.data,
                                               o[0], (VtqSize{-4, 4}))),
      CASE("Any, empty block", vtqStsOk,
           t.IntersectAnySO_32f[kPathU8](e, b.Dir(), b.dist.data, b.index.data, (VtqSize{4, -1}),
                                         o[0])),
      CASE("MO, empty block", vtqStsOk,
           t.IntersectMO_32f[kPathU8](b.Org(), b.Dir(), b.dist.data, b.Hit(), b.index.data,
                                      b.object.data, o, nullptr, n, (VtqSize{0, 0}))),
  };
#undef CASE
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    RayBlock b(4, 4);
    for (size_t i = 0; i < b.Count(); ++i) {
      for (int a = 0; a < 3; ++a) b.dir[a][i] = -eye[a];
    }
    RayBlock before = b.CopyAt(0);
    const bool nullEntry = std::string(c.name).find("null context") != std::string::npos;
    EXPECT_EQ(c.expected, c.run(b, eye, nullEntry ? withNull : objects, 2, b.Size()));
    EXPECT_TRUE(SameResults(before, b));
  }
}

}  // namespace
}  // namespace vtqr::test
