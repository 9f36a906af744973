// Shared by the intersection tests: objects built through the library (records, box, tree),
// blocks of rays with their per-ray arrays at a chosen alignment, cameras that aim at a mesh,
// and a brute-force reference that runs the triangle test over every triangle.
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
#include <vector>

#include "test_util.h"
#include "tools/mesh/mesh_loader.h"
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
      : width(w), height(h), org(3, Plane<float>(Count(), offset)),
        dir(3, Plane<float>(Count(), offset)), dist(Count(), offset), u(Count(), offset),
        v(Count(), offset), index(Count(), offset), object(Count(), offset) {
    for (size_t i = 0; i < Count(); ++i) {
      dist[i] = kInf;
      u[i] = v[i] = Sentinel();
      index[i] = object[i] = 0x5A5A5A5A;
    }
  }
  size_t Count() const { return static_cast<size_t>(width) * static_cast<size_t>(height); }
  VtqSize Size() const { return {width, height}; }
  // The same rays and inputs at another alignment.
  RayBlock CopyAt(size_t offset) const {
    RayBlock copy(width, height, offset);
    for (size_t i = 0; i < Count(); ++i) {
      for (int a = 0; a < 3; ++a) {
        copy.org[a][i] = org[a].data[i];
        copy.dir[a][i] = dir[a].data[i];
      }
      copy.dist[i] = dist.data[i];
      copy.u[i] = u.data[i];
      copy.v[i] = v.data[i];
      copy.index[i] = index.data[i];
      copy.object[i] = object.data[i];
    }
    return copy;
  }
  const float* const* Org() {
    orgPtr[0] = org[0].data, orgPtr[1] = org[1].data, orgPtr[2] = org[2].data;
    return orgPtr;
  }
  const float* const* Dir() {
    dirPtr[0] = dir[0].data, dirPtr[1] = dir[1].data, dirPtr[2] = dir[2].data;
    return dirPtr;
  }
  float* const* Hit() {
    hitPtr[0] = u.data, hitPtr[1] = v.data;
    return hitPtr;
  }

  VtqStatus Eye(CodePath path, const float eye[3], const VtqrIntersectContext& object) {
    return kDispatchTable.IntersectEyeSO_32f[path](eye, Dir(), dist.data, Hit(), index.data,
                                                   &object, Size());
  }
  VtqStatus Multiple(CodePath path, const VtqrIntersectContext& object) {
    return kDispatchTable.IntersectMultipleSO_32f[path](Org(), Dir(), dist.data, Hit(),
                                                        index.data, &object, Size());
  }
  // dist serves as each ray's end, index as the mask.
  VtqStatus Any(CodePath path, const float origin[3], const VtqrIntersectContext& object) {
    return kDispatchTable.IntersectAnySO_32f[path](origin, Dir(), dist.data, index.data, Size(),
                                                   &object);
  }
  VtqStatus MO(CodePath path, const std::vector<const VtqrIntersectContext*>& objects,
               const std::vector<const float*>* transforms) {
    return kDispatchTable.IntersectMO_32f[path](
        Org(), Dir(), dist.data, Hit(), index.data, object.data, objects.data(),
        transforms == nullptr ? nullptr : transforms->data(), static_cast<int>(objects.size()),
        Size());
  }

  int width, height;
  std::vector<Plane<float>> org, dir;
  Plane<float> dist, u, v;
  Plane<int32_t> index, object;
  const float* orgPtr[3];
  const float* dirPtr[3];
  float* hitPtr[2];
};

// Every output of two blocks agrees bit for bit.
inline ::testing::AssertionResult SameResults(RayBlock& expected, RayBlock& actual) {
  for (size_t i = 0; i < expected.Count(); ++i) {
    if (expected.index[i] != actual.index[i] || expected.object[i] != actual.object[i] ||
        Bits(expected.dist[i]) != Bits(actual.dist[i]) ||
        Bits(expected.u[i]) != Bits(actual.u[i]) || Bits(expected.v[i]) != Bits(actual.v[i])) {
      return ::testing::AssertionFailure()
             << "ray " << i << " (" << i % expected.width << ", " << i / expected.width
             << "): expected triangle " << expected.index[i] << " object " << expected.object[i]
             << " at " << HexBits(expected.dist[i]) << " u " << HexBits(expected.u[i]) << " v "
             << HexBits(expected.v[i]) << ", got " << actual.index[i] << " object "
             << actual.object[i] << " at " << HexBits(actual.dist[i]) << " u "
             << HexBits(actual.u[i]) << " v " << HexBits(actual.v[i]);
    }
  }
  return ::testing::AssertionSuccess();
}

// A pinhole camera at `eye` looking at `target`, its image `span` wide at unit distance, as
// the three vectors of vtqrCastEye_32f. `up` should not be parallel to the view.
struct Camera {
  float org[3], dW[3], dH[3];
};
inline Camera Aim(const float eye[3], const float target[3], float span, int width, int height,
                  const float up[3]) {
  double f[3], r[3], u[3];
  for (int a = 0; a < 3; ++a) f[a] = double(target[a]) - eye[a];
  auto normalize = [](double* x) {
    const double n = std::sqrt(x[0] * x[0] + x[1] * x[1] + x[2] * x[2]);
    for (int a = 0; a < 3; ++a) x[a] /= n;
  };
  normalize(f);
  r[0] = f[1] * up[2] - f[2] * up[1];
  r[1] = f[2] * up[0] - f[0] * up[2];
  r[2] = f[0] * up[1] - f[1] * up[0];
  normalize(r);
  u[0] = r[1] * f[2] - r[2] * f[1];
  u[1] = r[2] * f[0] - r[0] * f[2];
  u[2] = r[0] * f[1] - r[1] * f[0];
  Camera c;
  const double step = span / width;
  for (int a = 0; a < 3; ++a) {
    c.dW[a] = static_cast<float>(r[a] * step);
    c.dH[a] = static_cast<float>(-u[a] * step);
    c.org[a] = static_cast<float>(f[a] - r[a] * step * width / 2 + u[a] * step * height / 2);
  }
  return c;
}

// Fills the block's directions with the camera's eye rays and every origin with the eye.
inline void CastEyeRays(RayBlock& block, const Camera& camera, const float eye[3]) {
  float* dst[3] = {block.dir[0].data, block.dir[1].data, block.dir[2].data};
  const VtqSize size = block.Size();
  EXPECT_EQ(vtqStsOk, kDispatchTable.CastEye_32f[kPathU8](camera.org, camera.dW, camera.dH, 0, 0,
                                                          size, dst, size));
  for (size_t i = 0; i < block.Count(); ++i) {
    for (int a = 0; a < 3; ++a) block.org[a][i] = eye[a];
  }
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
inline RefNearest BruteForce(const Object& object, const float e[3], const float d[3],
                             float dist) {
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
