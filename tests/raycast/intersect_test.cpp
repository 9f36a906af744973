// The intersection functions on blocks of rays that make walks diverge over real meshes,
// coplanar grids, ties, empty trees and single leaves, and at the borders of the hit rule, on
// both code paths: the four-ray path (2x2 tiles) gives the one-ray path's bits and n8 gives
// u8's; the nearest hit is the brute-force nearest (or tied with it); any hit occludes exactly
// when nearest hit finds a hit without the box; own origins all at the eye give eye rays;
// several objects give each cast separately, nearest kept, ties to the lower.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "accel/kdtree_node.h"
#include "support/mesh_loader.h"
#include "support/triangle_reference.h"
#include "test_util.h"
#include "vtqr.h"

namespace vtqr::test {
namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();

// One object: the mesh, its records, bound box and tree, and the context naming them.
struct Object {
  explicit Object(Mesh m, uint32_t algorithm = KDTreeAlgSAH)
      : mesh(std::move(m)), accel(size_t(std::max(1, mesh.TriCount()))) {
    const auto& t = kDispatchTable;
    t.TriangleAccelInit[kPathU8](accel.data(), mesh.vert.data(), mesh.tri.data(), mesh.TriCount());
    t.SetBoundBox_32f[kPathU8](mesh.vert.data(), mesh.VertCount(), box);
    static const Vtq32f kNoVert[3] = {};
    static const Vtq32s kNoTri[4] = {};
    const VtqrKDTreeBuildParams params{algorithm, 50, 0.0f, 1024, 0};
    VtqrKDTreeNode* root = nullptr;
    int size = 0;
    EXPECT_EQ(vtqStsOk,
              t.KDTreeBuildAlloc[kPathU8](&root, mesh.vert.empty() ? kNoVert : mesh.vert.data(),
                                          mesh.tri.empty() ? kNoTri : mesh.tri.data(),
                                          mesh.VertCount(), mesh.TriCount(), &size, &params));
    tree.reset(root);
    context = {box, accel.data(), root};
    // Centre and half the diagonal of the box (the origin and 1 for an empty mesh's).
    const bool empty = box[0] > box[3];
    for (int a = 0; a < 3; ++a) centre[a] = empty ? 0.0f : 0.5f * (box[a] + box[a + 3]);
    radius = empty ? 1.0f : 0.5f * std::hypot(box[3] - box[0], box[4] - box[1], box[5] - box[2]);
  }
  Object(const Object&) = delete;  // the context points into the object itself

  Mesh mesh;
  std::vector<VtqrTriangleAccel> accel;
  float box[6], centre[3], radius;
  std::unique_ptr<VtqrKDTreeNode, VtqStatus (*)(VtqrKDTreeNode*)> tree{
      nullptr, kDispatchTable.KDTreeFree[kPathU8]};
  VtqrIntersectContext context;
};

// An array whose element 0 sits `offset` elements past a 64-byte boundary.
template <class T>
struct Plane {
  Plane(size_t n, size_t offset) : storage(n + offset + 64 / sizeof(T)) {
    const auto address = reinterpret_cast<uintptr_t>(storage.data());
    data = storage.data() + (64 - address % 64) % 64 / sizeof(T) + offset;
  }
  T& operator[](size_t k) { return data[k]; }
  std::vector<T> storage;
  T* data;  // into the heap block, so it survives moves of the plane
};

// The per-ray arrays of one call on a width x height block. Offset 0 lets the library take the
// four-ray path (for sides that are multiples of 4), 1 forces the one-ray path.
struct RayBlock {
  RayBlock(int w, int h, size_t offset = 0) : width(w), height(h) {
    for (int p = 0; p < 9; ++p) f.emplace_back(Count(), offset);
    for (int p = 0; p < 2; ++p) i.emplace_back(Count(), offset);
    for (size_t k = 0; k < Count(); ++k) {
      dist()[k] = kInf;
      u()[k] = v()[k] = Sentinel();
      index()[k] = object()[k] = 0x5A5A5A5A;
    }
    for (int a = 0; a < 3; ++a) org3[a] = f[size_t(a)].data, dir3[a] = f[size_t(a) + 3].data;
    hit[0] = u().data, hit[1] = v().data;
  }
  size_t Count() const { return size_t(width) * size_t(height); }
  // The same rays and inputs at another alignment.
  RayBlock CopyAt(size_t offset) const {
    RayBlock copy(width, height, offset);
    for (size_t p = 0; p < f.size(); ++p) std::copy_n(f[p].data, Count(), copy.f[p].data);
    for (size_t p = 0; p < i.size(); ++p) std::copy_n(i[p].data, Count(), copy.i[p].data);
    return copy;
  }
  Plane<float>& org(int a) { return f[size_t(a)]; }
  Plane<float>& dir(int a) { return f[3 + size_t(a)]; }
  Plane<float>& dist() { return f[6]; }
  Plane<float>& u() { return f[7]; }
  Plane<float>& v() { return f[8]; }
  Plane<int32_t>& index() { return i[0]; }  // the mask, for the functions that read one
  Plane<int32_t>& object() { return i[1]; }

  // The calls, with argument `nullArg` passed as null for the argument checks.
  VtqStatus Eye(CodePath path, const float eye[3], const VtqrIntersectContext& ob) {
    return kDispatchTable.IntersectEyeSO_32f[path](eye, dir3, dist().data, hit, index().data, &ob,
                                                   size);
  }
  VtqStatus Multiple(CodePath path, const VtqrIntersectContext& ob) {
    return kDispatchTable.IntersectMultipleSO_32f[path](
        Or(kOrg, org3), Or(kDir, dir3), Or(kDist, dist().data), Or(kHit, hit),
        Or(kIndex, index().data), Or(kContext, &ob), size);
  }
  // dist serves as each ray's end, index as the mask.
  VtqStatus Any(CodePath path, const float origin[3], const VtqrIntersectContext& ob) {
    return kDispatchTable.IntersectAnySO_32f[path](origin, Or(kDir, dir3), Or(kDist, dist().data),
                                                   Or(kIndex, index().data), size,
                                                   Or(kContext, &ob));
  }
  VtqStatus MO(CodePath path, const std::vector<const VtqrIntersectContext*>& objects,
               const float* const* transforms, int count) {
    return kDispatchTable.IntersectMO_32f[path](
        Or(kOrg, org3), Or(kDir, dir3), Or(kDist, dist().data), Or(kHit, hit),
        Or(kIndex, index().data), Or(kObject, object().data), Or(kContext, objects.data()),
        transforms, count, size);
  }
  enum Arg { kOrg, kDir, kDist, kHit, kIndex, kObject, kContext, kNone };
  template <class T>
  T* Or(Arg arg, T* pointer) const {
    return arg == nullArg ? nullptr : pointer;
  }

  int width, height;
  VtqSize size{width, height};  // the block size passed to the calls
  Arg nullArg = kNone;
  std::vector<Plane<float>> f;  // origin x, y, z, direction x, y, z, dist, u, v
  std::vector<Plane<int32_t>> i;
  const float* org3[3];
  const float* dir3[3];
  float* hit[2];
};

// Every output of two blocks agrees bit for bit.
::testing::AssertionResult SameResults(RayBlock& expected, RayBlock& actual) {
  for (size_t k = 0; k < expected.Count(); ++k) {
    auto text = [k](RayBlock& b) {  // triangle/object at t u v
      return std::to_string(b.index()[k]) + "/" + std::to_string(b.object()[k]) + " at " +
             HexBits(b.dist()[k]) + " " + HexBits(b.u()[k]) + " " + HexBits(b.v()[k]);
    };
    if (text(expected) != text(actual)) {
      return ::testing::AssertionFailure()
             << "ray " << k << ": expected " << text(expected) << ", got " << text(actual);
    }
  }
  return ::testing::AssertionSuccess();
}

// A block of rays for one object, and the origin of the functions with one origin. When
// `common`, every ray's own origin is that origin too.
struct RaySet {
  const char* name;
  RayBlock block;
  float origin[3];
  bool common = true;
};

// Rays from `eye` through a pinhole image `span` wide at unit distance, aimed at the object's
// centre: a coherent block, as eye rays are. The image axes need only be roughly perpendicular
// to the view from the eyes used here.
RaySet CameraRays(const char* name, const Object& object, const float eye[3], int size,
                  float span) {
  RaySet set{name, RayBlock(size, size), {eye[0], eye[1], eye[2]}};
  const float right[3] = {0.54f, -0.84f, 0.0f}, up[3] = {-0.7f, -0.44f, 0.57f};
  float view[3];
  for (int a = 0; a < 3; ++a) view[a] = object.centre[a] - eye[a];
  const float n = std::hypot(view[0], view[1], view[2]);
  for (size_t k = 0; k < set.block.Count(); ++k) {
    const float x = span * (float(k % size_t(size)) / float(size) - 0.5f);
    const float y = span * (0.5f - float(k / size_t(size)) / float(size));
    for (int a = 0; a < 3; ++a) {
      set.block.dir(a)[k] = view[a] / n + x * right[a] + y * up[a];
      set.block.org(a)[k] = eye[a];
    }
  }
  return set;
}

// Blocks that make walks diverge: an eye on a split plane, rays inside split planes and
// parallel to axes, origins inside the box and on triangles, distances that cut walks short,
// NaN, infinite, tiny and zero direction components, masked rays. Live masks are 0..4.
std::vector<RaySet> RaySets(const Object& object, int size, uint32_t seed) {
  const float* centre = object.centre;
  const float radius = object.radius;
  std::vector<RaySet> sets;
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> unit(-1.0f, 1.0f);

  const float slanted[3] = {centre[0] + 1.1f * radius, centre[1] + 0.7f * radius,
                            centre[2] + 1.9f * radius};
  sets.push_back(CameraRays("slanted view", object, slanted, size, 1.1f));

  // Down the z axis from an eye moved onto the root's split plane (x or y), with a power-of-two
  // pixel step, so that the centre row and column are exactly axis-parallel.
  float above[3] = {centre[0], centre[1], centre[2] + 2.5f * radius};
  const VtqrKDTreeNode root = *object.context.pRootNode;
  if (!kdnode::IsLeaf(root) && kdnode::SplitAxis(root) != 2) {
    above[kdnode::SplitAxis(root)] = kdnode::SplitPosition(root);
  }
  RaySet down{"down z from a split plane", RayBlock(size, size), {above[0], above[1], above[2]}};
  const float step = std::ldexp(1.0f, -std::ilogb(static_cast<float>(size)) - 1);
  for (int k = 0; k < size * size; ++k) {
    const float d[3] = {step * float(k % size - size / 2), step * float(size / 2 - k / size), -1};
    for (int a = 0; a < 3; ++a) down.block.dir(a)[size_t(k)] = d[a];
    for (int a = 0; a < 3; ++a) down.block.org(a)[size_t(k)] = above[a];
  }
  sets.push_back(std::move(down));

  // Own origins: the centre (also the one origin: eye rays from inside the box), a triangle's
  // vertex, an edge midpoint, or anywhere near the object.
  RaySet own{"own origins", RayBlock(size, size), {centre[0], centre[1], centre[2]}, false};
  std::uniform_int_distribution<int> pick(0, std::max(0, object.mesh.TriCount() - 1));
  for (size_t k = 0; k < own.block.Count(); ++k) {
    const int32_t* tri = object.mesh.tri.empty() ? nullptr
                                                 : &object.mesh.tri[4 * size_t(pick(rng))];
    for (int a = 0; a < 3; ++a) {
      const float p = tri ? object.mesh.vert[3 * size_t(tri[0]) + size_t(a)] : centre[a];
      const float q = tri ? object.mesh.vert[3 * size_t(tri[1]) + size_t(a)] : centre[a];
      const float anywhere = centre[a] + unit(rng) * radius;
      const float o = k % 4 == 0   ? centre[a]
                      : k % 4 == 1 ? p
                      : k % 4 == 2 ? 0.5f * (p + q)
                                   : anywhere;
      own.block.org(a)[k] = o;
      own.block.dir(a)[k] = centre[a] + unit(rng) * radius - o;
    }
  }
  sets.push_back(std::move(own));

  RaySet odd = CameraRays("inputs users send", object, slanted, size, 1.3f);
  const float nan = FromBits(0x7FC00000u);
  const float dists[] = {0.0f, -1.0f, nan, kInf, -0.0f};
  const float components[] = {nan, kInf, -kInf, 0.0f, -0.0f, 1e-8f, -1.1920929e-7f, 1e30f};
  const int32_t masks[] = {-1, -7, INT32_MIN};
  std::uniform_int_distribution<int> kind(0, 15);
  for (size_t k = 0; k < odd.block.Count(); ++k) {
    const int c = kind(rng);
    if (c < 5) odd.block.dist()[k] = dists[c];
    if (c >= 5 && c < 10) odd.block.dist()[k] = (unit(rng) + 1.0f) * 2.0f * radius;
    if (c >= 10) odd.block.dir(c % 3)[k] = components[(size_t(c) + k) % 8];
    if (c == 15) odd.block.dir(0)[k] = odd.block.dir(1)[k] = odd.block.dir(2)[k] = 0.0f;
    if (k % 3 == 0) odd.block.index()[k] = masks[k % 9 / 3];
  }
  sets.push_back(std::move(odd));
  for (RaySet& set : sets) {
    for (size_t k = 0; k < set.block.Count(); ++k) {
      if (set.block.index()[k] >= 0) set.block.index()[k] = static_cast<int32_t>(k % 5);
    }
  }
  return sets;
}

// Every sampled ray the nearest-hit walk reports against brute force over every triangle: the
// nearest t with 0 < t < dist, or any triangle hit at exactly that distance. A ray lying in a
// split plane (a direction component of at most 1.1920929e-7) is walked on one side of the
// plane only, so at an edge in that plane it may report a farther triangle or none; such rays
// are counted. Rays are sampled so that each block costs a few million reference tests.
void ExpectBruteForce(const Object& object, RaySet& set, RayBlock& got) {
  RayBlock& in = set.block;
  const size_t work = in.Count() * size_t(std::max(1, object.mesh.TriCount()));
  int inPlane = 0;
  for (size_t k = 0; k < in.Count(); k += std::max<size_t>(1, work / 3000000)) {
    if (!set.common && in.index()[k] < 0) continue;  // masked out
    const float e[3] = {in.org(0)[k], in.org(1)[k], in.org(2)[k]};
    const float d[3] = {in.dir(0)[k], in.dir(1)[k], in.dir(2)[k]};
    float nearest = in.dist()[k];
    std::vector<int32_t> tied;
    for (int n = 0; n < object.mesh.TriCount(); ++n) {
      TriangleHit hit;
      if (!TriangleReference(object.accel[size_t(n)], e, d, &hit) || !(hit.t > 0)) continue;
      if (hit.t < nearest) nearest = hit.t, tied.clear();
      if (hit.t == nearest && hit.t < in.dist()[k]) tied.push_back(n);
    }
    const int32_t t = got.index()[k];
    TriangleHit hit{in.dist()[k], Sentinel(), Sentinel()};
    SCOPED_TRACE(::testing::Message() << "ray " << k << " reported " << t);
    ASSERT_TRUE(t < 0 || TriangleReference(object.accel[size_t(t)], e, d, &hit));
    ASSERT_EQ(HexBits(hit.t) + HexBits(hit.u) + HexBits(hit.v),
              HexBits(got.dist()[k]) + HexBits(got.u()[k]) + HexBits(got.v()[k]));
    if (std::find(tied.begin(), tied.end(), t) != tied.end() || (t < 0 && tied.empty())) continue;
    ++inPlane;
    ASSERT_TRUE(std::fabs(d[0]) <= 1.1920929e-7f || std::fabs(d[1]) <= 1.1920929e-7f ||
                std::fabs(d[2]) <= 1.1920929e-7f);
    ASSERT_TRUE(t < 0 || hit.t >= nearest);
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

// World to object for the second instance in the several-object calls: a rotation about z, a
// shift, and a scale of 1.25 along z.
const float kTransform[12] = {0.8f, -0.6f, 0, 0.25f, 0.6f, 0.8f, 0, -0.5f, 0, 0, 1.25f, 0.125f};

class Intersect : public PerPath {};
VTQR_INSTANTIATE_PER_PATH(Intersect);

TEST_P(Intersect, PathsAndReferencesAgree) {
  const struct {
    const char* name;
    std::function<Object()> object;
    int size;
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
  };
  const float everywhere[6] = {-kInf, -kInf, -kInf, kInf, kInf, kInf};
  uint32_t seed = 11;
  for (const auto& scene : scenes) {
    const Object object = scene.object();
    VtqrIntersectContext unclipped = object.context;
    unclipped.pBound = everywhere;
    const std::vector<const VtqrIntersectContext*> twice = {&object.context, &object.context};
    const float* const transforms[2] = {nullptr, kTransform};
    for (RaySet& set : RaySets(object, scene.size, ++seed)) {
      SCOPED_TRACE(::testing::Message() << scene.name << ", " << set.name);
      // Each function as a call on a block; the reference is u8's one-ray walk.
      const std::function<VtqStatus(CodePath, RayBlock&)> calls[] = {
          [&](CodePath p, RayBlock& b) { return b.Eye(p, set.origin, object.context); },
          [&](CodePath p, RayBlock& b) { return b.Any(p, set.origin, object.context); },
          [&](CodePath p, RayBlock& b) { return b.Multiple(p, object.context); },
          [&](CodePath p, RayBlock& b) { return b.MO(p, twice, transforms, 2); },
      };
      std::vector<RayBlock> ref;
      for (size_t c = 0; c < 4; ++c) {
        ref.push_back(set.block.CopyAt(1));
        ASSERT_EQ(vtqStsOk, calls[c](kPathU8, ref.back()));
        for (size_t offset : {0, 1}) {
          RayBlock got = set.block.CopyAt(offset);
          ASSERT_EQ(vtqStsOk, calls[c](path(), got));
          ASSERT_TRUE(SameResults(ref.back(), got)) << "call " << c << ", offset " << offset;
        }
      }
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
      ASSERT_TRUE(!set.common || SameResults(expectedOwn, own)) << "own origins all at the eye";
      ASSERT_TRUE(SameResults(expected, ref[3])) << "several objects";
    }
  }
}

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

// Every ray of a 4x4 block alike, on both alignments and both tree builds: eye rays and own
// origins report the expected triangle with the reference test's bits, any hit occludes
// exactly then.
TEST_P(Intersect, DefinedResults) {
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
      TriangleHit hit{c.dist, Sentinel(), Sentinel()};
      ASSERT_TRUE(c.expected < 0 ||
                  TriangleReference(object.accel[size_t(c.expected)], c.origin, c.dir, &hit));
      RayBlock expected = rays.CopyAt(1);
      for (size_t k = 0; k < rays.Count(); ++k) {
        for (int a = 0; a < 3; ++a) rays.org(a)[k] = c.origin[a], rays.dir(a)[k] = c.dir[a];
        rays.dist()[k] = c.dist;
        rays.index()[k] = 0;
        expected.index()[k] = c.expected, expected.dist()[k] = hit.t;
        expected.u()[k] = hit.u, expected.v()[k] = hit.v;
      }
      for (size_t offset : {0, 1}) {
        SCOPED_TRACE(::testing::Message()
                     << c.name << ", offset " << offset << ", tree " << std::hex << algorithm);
        RayBlock eye = rays.CopyAt(offset), own = rays.CopyAt(offset), any = rays.CopyAt(offset);
        ASSERT_EQ(vtqStsOk, eye.Eye(path(), c.origin, object.context));
        ASSERT_EQ(vtqStsOk, own.Multiple(path(), object.context));
        ASSERT_EQ(vtqStsOk, any.Any(path(), c.origin, object.context));
        for (size_t k = 0; k < rays.Count(); ++k) {
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
TEST_P(Intersect, ArgumentChecks) {
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
