// Shared by the intersection tests: objects built through the library (records, box, tree),
// blocks of rays with their per-ray arrays at a chosen alignment, the ray sets that make walks
// diverge, and a brute-force reference that runs the triangle test over every triangle.
#ifndef VTQR_TESTS_RAYCAST_INTERSECT_SCENE_H_
#define VTQR_TESTS_RAYCAST_INTERSECT_SCENE_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "support/mesh_loader.h"
#include "test_util.h"
#include "vtqr.h"

namespace vtqr::test {

inline constexpr float kInf = std::numeric_limits<float>::infinity();

// One object: the mesh, its records, bound box and tree, and the context naming them.
struct Object {
  explicit Object(Mesh m, uint32_t algorithm = KDTreeAlgSAH, float factor = 0.0f)
      : mesh(std::move(m)), accel(std::max(1, mesh.TriCount())) {
    kDispatchTable.TriangleAccelInit[kPathU8](accel.data(), mesh.vert.data(), mesh.tri.data(),
                                              mesh.TriCount());
    kDispatchTable.SetBoundBox_32f[kPathU8](mesh.vert.data(), mesh.VertCount(), box);
    static const Vtq32f kNoVert[3] = {};
    static const Vtq32s kNoTri[4] = {};
    const VtqrKDTreeBuildParams params{algorithm, 50, factor, 1024, 0};
    VtqrKDTreeNode* root = nullptr;
    int size = 0;
    const VtqStatus status = kDispatchTable.KDTreeBuildAlloc[kPathU8](
        &root, mesh.vert.empty() ? kNoVert : mesh.vert.data(),
        mesh.tri.empty() ? kNoTri : mesh.tri.data(), mesh.VertCount(), mesh.TriCount(), &size,
        &params);
    EXPECT_EQ(vtqStsOk, status);
    tree.reset(root);
    context = {box, accel.data(), root};
  }
  Object(const Object&) = delete;  // the context points into the object itself
  struct FreeTree {
    void operator()(VtqrKDTreeNode* t) const { kDispatchTable.KDTreeFree[kPathU8](t); }
  };

  Mesh mesh;
  std::vector<VtqrTriangleAccel> accel;
  float box[6];
  std::unique_ptr<VtqrKDTreeNode, FreeTree> tree;
  VtqrIntersectContext context;
};

// A mesh from the shared data folder, or `fallback` when the folder is absent.
inline Mesh SharedMeshOr(const char* name, const Mesh& fallback) {
  const std::string path = SharedDataFile(name);
  Mesh mesh;
  std::string error;
  if (path.empty() || !LoadMesh(path, &mesh, &error)) return fallback;
  return mesh;
}

// An aligned array whose element 0 sits `offset` elements past a 64-byte boundary. Copies keep
// the offset from their own boundary.
template <class T>
struct Plane {
  Plane(size_t n, size_t offset) : storage(n + offset + 64 / sizeof(T)), size(n), offset(offset) {
    const auto address = reinterpret_cast<uintptr_t>(storage.data());
    data = storage.data() + ((64 - address % 64) % 64) / sizeof(T) + offset;
  }
  Plane(const Plane& other) : Plane(other.size, other.offset) {
    std::copy_n(other.data, size, data);
  }
  Plane(Plane&& other) noexcept = default;
  Plane& operator=(const Plane&) = delete;
  T& operator[](size_t i) { return data[i]; }
  std::vector<T> storage;
  T* data;
  size_t size, offset;
};

// The per-ray arrays of one call on a width x height block. `offset` misaligns every array by
// that many elements: 0 lets the library take the four-ray path (for sizes that are multiples
// of 4), 1 forces the one-ray path.
struct RayBlock {
  RayBlock(int w, int h, size_t offset = 0)
      : width(w),
        height(h),
        f(9, Plane<float>(Count(), offset)),
        i(2, Plane<int32_t>(Count(), offset)) {
    for (size_t k = 0; k < Count(); ++k) {
      dist[k] = kInf;
      u[k] = v[k] = Sentinel();
      index[k] = object[k] = 0x5A5A5A5A;
    }
  }
  // The named planes below refer into f and i, whose buffers a move hands over; a copy would
  // not, so blocks are only moved (CopyAt makes a real copy).
  RayBlock(const RayBlock&) = delete;
  RayBlock(RayBlock&&) = default;
  size_t Count() const { return static_cast<size_t>(width) * static_cast<size_t>(height); }
  VtqSize Size() const { return {width, height}; }
  // The same rays and inputs at another alignment.
  RayBlock CopyAt(size_t offset) const {
    RayBlock copy(width, height, offset);
    for (size_t p = 0; p < f.size(); ++p) std::copy_n(f[p].data, Count(), copy.f[p].data);
    for (size_t p = 0; p < i.size(); ++p) std::copy_n(i[p].data, Count(), copy.i[p].data);
    return copy;
  }
  const float* const* Org() { return Pointers(0, orgPtr); }
  const float* const* Dir() { return Pointers(3, dirPtr); }
  float* const* Hit() {
    hitPtr[0] = u.data, hitPtr[1] = v.data;
    return hitPtr;
  }
  const float* const* Pointers(int first, const float* p[3]) {
    for (int a = 0; a < 3; ++a) p[a] = f[first + a].data;
    return p;
  }

  VtqStatus Eye(CodePath path, const float eye[3], const VtqrIntersectContext& ob) {
    return kDispatchTable.IntersectEyeSO_32f[path](eye, Dir(), dist.data, Hit(), index.data, &ob,
                                                   Size());
  }
  VtqStatus Multiple(CodePath path, const VtqrIntersectContext& ob) {
    return kDispatchTable.IntersectMultipleSO_32f[path](Org(), Dir(), dist.data, Hit(), index.data,
                                                        &ob, Size());
  }
  // dist serves as each ray's end, index as the mask.
  VtqStatus Any(CodePath path, const float origin[3], const VtqrIntersectContext& ob) {
    return kDispatchTable.IntersectAnySO_32f[path](origin, Dir(), dist.data, index.data, Size(),
                                                   &ob);
  }
  VtqStatus MO(CodePath path, const std::vector<const VtqrIntersectContext*>& objects,
               const std::vector<const float*>* transforms) {
    return kDispatchTable.IntersectMO_32f[path](
        Org(), Dir(), dist.data, Hit(), index.data, object.data, objects.data(),
        transforms == nullptr ? nullptr : transforms->data(), static_cast<int>(objects.size()),
        Size());
  }

  int width, height;
  std::vector<Plane<float>> f;  // origin x, y, z, direction x, y, z, dist, u, v
  std::vector<Plane<int32_t>> i;
  Plane<float>*org = &f[0], *dir = &f[3], &dist = f[6], &u = f[7], &v = f[8];
  Plane<int32_t>&index = i[0], &object = i[1];
  const float* orgPtr[3];
  const float* dirPtr[3];
  float* hitPtr[2];
};

// Every output of two blocks agrees bit for bit.
inline ::testing::AssertionResult SameResults(RayBlock& expected, RayBlock& actual) {
  for (size_t k = 0; k < expected.Count(); ++k) {
    auto text = [k](RayBlock& b) {
      return ::testing::Message() << "triangle " << b.index[k] << " object " << b.object[k]
                                  << " at " << HexBits(b.dist[k]) << " u " << HexBits(b.u[k])
                                  << " v " << HexBits(b.v[k]);
    };
    if (expected.index[k] != actual.index[k] || expected.object[k] != actual.object[k] ||
        Bits(expected.dist[k]) != Bits(actual.dist[k]) ||
        Bits(expected.u[k]) != Bits(actual.u[k]) || Bits(expected.v[k]) != Bits(actual.v[k])) {
      return ::testing::AssertionFailure()
             << "ray " << k << ": expected " << text(expected) << ", got " << text(actual);
    }
  }
  return ::testing::AssertionSuccess();
}

// Centre and half the diagonal of an object's box; the origin and 1 for the inverted box of an
// empty mesh.
inline void BoxCentre(const Object& object, float centre[3], float* radius) {
  if (object.box[0] > object.box[3]) {
    centre[0] = centre[1] = centre[2] = 0.0f;
    *radius = 1.0f;
    return;
  }
  double sum = 0;
  for (int a = 0; a < 3; ++a) {
    centre[a] = 0.5f * (object.box[a] + object.box[a + 3]);
    const double half = 0.5 * (double(object.box[a + 3]) - object.box[a]);
    sum += half * half;
  }
  *radius = static_cast<float>(std::sqrt(sum));
}

// A block of rays for one object, and the origin the functions with one origin use. When
// `common`, every ray's own origin is that origin too.
struct RaySet {
  const char* name;
  RayBlock block;
  float origin[3];
  bool common = true;
};

// Eye rays of a pinhole camera at `eye` aimed at the object's centre, its image `span` wide at
// unit distance, through vtqrCastEye_32f.
inline RaySet CameraRays(const char* name, const Object& object, const float eye[3], int size,
                         float span) {
  float centre[3], radius;
  BoxCentre(object, centre, &radius);
  RaySet set{name, RayBlock(size, size), {eye[0], eye[1], eye[2]}};
  // The view, a right and an up vector: the right one perpendicular to the view and z.
  const double f[3] = {double(centre[0]) - eye[0], double(centre[1]) - eye[1],
                       double(centre[2]) - eye[2]};
  const double n = std::sqrt(f[0] * f[0] + f[1] * f[1] + f[2] * f[2]);
  double r[3] = {f[1], -f[0], 0.0};
  const double rn = std::hypot(r[0], r[1]);
  r[0] = rn == 0 ? 1.0 : r[0] / rn;
  r[1] = rn == 0 ? 0.0 : r[1] / rn;
  const double u[3] = {(r[1] * f[2]) / n, (-r[0] * f[2]) / n, (r[0] * f[1] - r[1] * f[0]) / n};
  const double step = span / size;
  float org[3], dW[3], dH[3];
  for (int a = 0; a < 3; ++a) {
    dW[a] = static_cast<float>(r[a] * step);
    dH[a] = static_cast<float>(-u[a] * step);
    org[a] = static_cast<float>(f[a] / n - (r[a] - u[a]) * step * size / 2);
  }
  float* dst[3] = {set.block.dir[0].data, set.block.dir[1].data, set.block.dir[2].data};
  kDispatchTable.CastEye_32f[kPathU8](org, dW, dH, 0, 0, set.block.Size(), dst, set.block.Size());
  for (size_t i = 0; i < set.block.Count(); ++i) {
    for (int a = 0; a < 3; ++a) set.block.org[a][i] = eye[a];
  }
  return set;
}

// Blocks that make the walks diverge: an eye on a split plane, rays inside split planes and
// parallel to axes, an eye inside the box, origins on triangles, distances that cut walks
// short, NaN, infinite, tiny and zero direction components, masked rays. Live masks are 0..4.
inline std::vector<RaySet> RaySets(const Object& object, int size, uint32_t seed) {
  float centre[3], radius;
  BoxCentre(object, centre, &radius);
  std::vector<RaySet> sets;
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> unit(-1.0f, 1.0f);

  const float slanted[3] = {centre[0] + 1.1f * radius, centre[1] + 0.7f * radius,
                            centre[2] + 1.9f * radius};
  sets.push_back(CameraRays("slanted view", object, slanted, size, 1.1f));

  // Down the z axis with a power-of-two pixel step, so that the centre row and column are
  // exactly axis-parallel, from an eye moved onto the root's split plane (x or y).
  float above[3] = {centre[0], centre[1], centre[2] + 2.5f * radius};
  const VtqrKDTreeNode root = *object.context.pRootNode;
  if (root.w0 >= 0 && (root.w0 & 3) != 2) above[root.w0 & 3] = FromBits(root.w1);
  sets.push_back(CameraRays("down z from a split plane", object, above, size, 1.0f));
  const float step = std::ldexp(1.0f, -std::ilogb(static_cast<float>(size)) - 1);
  for (size_t i = 0; i < sets.back().block.Count(); ++i) {
    sets.back().block.dir[0][i] = step * static_cast<float>(static_cast<int>(i) % size - size / 2);
    sets.back().block.dir[1][i] = step * static_cast<float>(size / 2 - static_cast<int>(i) / size);
    sets.back().block.dir[2][i] = -1.0f;
  }

  RaySet inside{"from inside", RayBlock(size, size), {centre[0], centre[1], centre[2]}};
  for (size_t i = 0; i < inside.block.Count(); ++i) {
    for (int a = 0; a < 3; ++a) {
      inside.block.dir[a][i] = unit(rng);
      inside.block.org[a][i] = centre[a];
    }
  }
  sets.push_back(std::move(inside));

  // Own origins: a triangle's vertex, the midpoint of its edge, or anywhere in the box.
  if (object.mesh.TriCount() > 0) {
    RaySet own{"own origins on triangles", RayBlock(size, size), {}, false};
    std::uniform_int_distribution<int> pick(0, object.mesh.TriCount() - 1);
    for (size_t i = 0; i < own.block.Count(); ++i) {
      const int32_t* tri = &object.mesh.tri[4 * static_cast<size_t>(pick(rng))];
      for (int a = 0; a < 3; ++a) {
        const float p = object.mesh.vert[3 * static_cast<size_t>(tri[0]) + a];
        const float q = object.mesh.vert[3 * static_cast<size_t>(tri[1]) + a];
        own.block.org[a][i] = i % 3 == 0   ? p
                              : i % 3 == 1 ? 0.5f * (p + q)
                                           : centre[a] + unit(rng) * radius;
        own.block.dir[a][i] = centre[a] + unit(rng) * radius - own.block.org[a][i];
      }
    }
    for (int a = 0; a < 3; ++a) own.origin[a] = own.block.org[a][0];
    sets.push_back(std::move(own));
  }

  RaySet odd = CameraRays("inputs users send", object, slanted, size, 1.3f);
  const float nan = FromBits(0x7FC00000u);
  const float dists[] = {0.0f, -1.0f, nan, kInf, -0.0f};
  const float components[] = {nan, kInf, -kInf, 0.0f, -0.0f, 1e-8f, -1.1920929e-7f, 1e30f};
  const int32_t masks[] = {-1, -7, INT32_MIN};
  std::uniform_int_distribution<int> pick(0, 15);
  for (size_t i = 0; i < odd.block.Count(); ++i) {
    const int k = pick(rng);
    if (k < 5) odd.block.dist[i] = dists[k];
    if (k >= 5 && k < 10) odd.block.dist[i] = (unit(rng) + 1.0f) * 2.0f * radius;
    if (k >= 10) odd.block.dir[k % 3][i] = components[(k + static_cast<int>(i)) % 8];
    if (k == 15) odd.block.dir[0][i] = odd.block.dir[1][i] = odd.block.dir[2][i] = 0.0f;
    if (i % 3 == 0) odd.block.index[i] = masks[i % 9 / 3];
  }
  sets.push_back(std::move(odd));
  for (RaySet& set : sets) {
    for (size_t i = 0; i < set.block.Count(); ++i) {
      if (set.block.index[i] >= 0) set.block.index[i] = static_cast<int32_t>(i % 5);
    }
  }
  return sets;
}

// The triangle test as the library documents it, evaluated in the test on record `tri`: returns
// whether the ray is inside and fills t, u, v. Kept apart from the library's code on purpose.
struct RefHit {
  float t, u, v;
};
inline bool RefTriangleTest(const VtqrTriangleAccel& tri, const float e[3], const float d[3],
                            RefHit* hit) {
  if (tri.axes == 0) return false;
  const int a0 = tri.axes & 3, a1 = (tri.axes >> 2) & 3, a2 = (tri.axes >> 4) & 3;
  const float c1 = tri.nu, c2 = tri.pk, c3 = tri.nv, c4 = tri.pu, c5 = tri.pv, c6 = tri.e2u,
              c7 = tri.e2v, c8 = tri.e1u, c9 = tri.e1v;
  const float den = c1 * d[a1] + c3 * d[a0] + d[a2];
  const float p = c4 - e[a1], q = c5 - e[a0];
  const float num = c2 + c1 * p + c3 * q - e[a2];
  const float s = d[a1] * num - p * den, r = d[a0] * num - q * den;
  const float beta = c7 * s - c6 * r, gamma = c8 * r - c9 * s;
  const float rest = den - beta - gamma;
  if (!(rest * beta >= 0 && beta * gamma >= 0 && rest * gamma >= 0)) return false;
  *hit = {num / den, beta / den, gamma / den};
  return true;
}

// Brute force over every triangle: the nearest hit with 0 < t < dist, and every triangle
// hit at exactly that distance (the walk may report any of them, depending on its order).
struct RefNearest {
  float t = 0;
  std::vector<int32_t> tied;
  std::vector<RefHit> hits;
};
inline RefNearest BruteForce(const Object& object, const float e[3], const float d[3], float dist) {
  RefNearest best;
  best.t = dist;
  for (int k = 0; k < object.mesh.TriCount(); ++k) {
    RefHit hit;
    if (!RefTriangleTest(object.accel[k], e, d, &hit) || !(hit.t > 0)) continue;
    if (hit.t < best.t) {
      best.t = hit.t;
      best.tied.clear();
      best.hits.clear();
    }
    if (hit.t == best.t && hit.t < dist) {
      best.tied.push_back(k);
      best.hits.push_back(hit);
    }
  }
  return best;
}

}  // namespace vtqr::test

#endif  // VTQR_TESTS_RAYCAST_INTERSECT_SCENE_H_
