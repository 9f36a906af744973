// Shared by the intersection tests: objects built through the library, blocks of rays with their
// per-ray arrays at a chosen alignment, the ray sets that make walks diverge, and the
// brute-force nearest hit.
#ifndef VTQR_TESTS_RAYCAST_INTERSECT_SCENE_H_
#define VTQR_TESTS_RAYCAST_INTERSECT_SCENE_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
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

inline constexpr float kInf = std::numeric_limits<float>::infinity();

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
  struct FreeTree {
    void operator()(VtqrKDTreeNode* t) const { kDispatchTable.KDTreeFree[kPathU8](t); }
  };

  Mesh mesh;
  std::vector<VtqrTriangleAccel> accel;
  float box[6], centre[3], radius;
  std::unique_ptr<VtqrKDTreeNode, FreeTree> tree;
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
inline ::testing::AssertionResult SameResults(RayBlock& expected, RayBlock& actual) {
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
inline RaySet CameraRays(const char* name, const Object& object, const float eye[3], int size,
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
// parallel to axes, an eye inside the box, origins on triangles, distances that cut walks
// short, NaN, infinite, tiny and zero direction components, masked rays. Live masks are 0..4.
inline std::vector<RaySet> RaySets(const Object& object, int size, uint32_t seed) {
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

  // From the centre, and with own origins: a triangle's vertex, an edge midpoint, or anywhere.
  RaySet inside{"from inside", RayBlock(size, size), {centre[0], centre[1], centre[2]}};
  RaySet own{"own origins on triangles", RayBlock(size, size), {}, false};
  std::uniform_int_distribution<int> pick(0, std::max(0, object.mesh.TriCount() - 1));
  for (size_t k = 0; k < inside.block.Count(); ++k) {
    const int32_t* tri = object.mesh.tri.empty() ? nullptr
                                                 : &object.mesh.tri[4 * size_t(pick(rng))];
    for (int a = 0; a < 3; ++a) {
      inside.block.dir(a)[k] = unit(rng);
      inside.block.org(a)[k] = centre[a];
      const float p = tri ? object.mesh.vert[3 * size_t(tri[0]) + size_t(a)] : centre[a];
      const float q = tri ? object.mesh.vert[3 * size_t(tri[1]) + size_t(a)] : centre[a];
      const float o = k % 3 == 0 ? p : k % 3 == 1 ? 0.5f * (p + q) : centre[a] + unit(rng) * radius;
      own.block.org(a)[k] = o;
      own.block.dir(a)[k] = centre[a] + unit(rng) * radius - o;
    }
  }
  for (int a = 0; a < 3; ++a) own.origin[a] = own.block.org(a)[0];
  sets.push_back(std::move(inside));
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

// Brute force over every triangle: the nearest t with 0 < t < dist, and every triangle hit at
// exactly that distance (the walk may report any of them, depending on its order).
struct RefNearest {
  float t;
  std::vector<int32_t> tied;
};
inline RefNearest BruteForce(const Object& object, const float e[3], const float d[3], float dist) {
  RefNearest best{dist, {}};
  for (int k = 0; k < object.mesh.TriCount(); ++k) {
    TriangleHit hit;
    if (!TriangleReference(object.accel[size_t(k)], e, d, &hit) || !(hit.t > 0)) continue;
    if (hit.t < best.t) best = {hit.t, {}};
    if (hit.t == best.t && hit.t < dist) best.tied.push_back(k);
  }
  return best;
}

}  // namespace vtqr::test

#endif  // VTQR_TESTS_RAYCAST_INTERSECT_SCENE_H_
