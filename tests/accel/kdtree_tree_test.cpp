// The builder's trees against the checker and, through a plain recursive walk, against brute
// force; the shared scans against the checker.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "kdtree_test_util.h"

namespace vtqr::test {
namespace {

struct Ray {
  double org[3], dir[3];
};

// Distance along the ray to triangle t by a barycentric solve in double (a different route from
// the library's projected test), or infinity for a miss.
double Distance(const Ray& ray, const Mesh& mesh, int32_t t) {
  auto corner = [&](int i, int j) { return double{mesh.vert[3 * mesh.tri[4 * t + i] + j]}; };
  double e1[3], e2[3], s[3], p[3], q[3];
  for (int j = 0; j < 3; ++j) {
    e1[j] = corner(1, j) - corner(0, j), e2[j] = corner(2, j) - corner(0, j);
    s[j] = ray.org[j] - corner(0, j);
  }
  auto cross = [](const double* a, const double* b, double* out) {
    for (int j = 0; j < 3; ++j)
      out[j] = a[(j + 1) % 3] * b[(j + 2) % 3] - a[(j + 2) % 3] * b[(j + 1) % 3];
  };
  auto dot = [](const double* a, const double* b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
  };
  cross(ray.dir, e2, p);
  cross(s, e1, q);
  double det = dot(e1, p);
  double u = dot(s, p) / det, w = dot(ray.dir, q) / det, dist = dot(e2, q) / det;
  return det == 0 || u < 0 || w < 0 || u + w > 1 || !(dist > 1e-9) ? INFINITY : dist;
}

// Nearest first; among equal distances the lowest triangle number, so the answer does not
// depend on the order in which triangles are met.
struct Nearest {
  double t = INFINITY;
  int32_t id = -1;
  void Offer(const Ray& ray, const Mesh& mesh, int32_t tri) {
    double d = Distance(ray, mesh, tri);
    if (d < t || (d == t && tri < id)) t = d, id = tri;
  }
};

// Visits every leaf whose cell, widened by `slack`, the ray passes through, in no particular
// order: a deliberately plain recursive walk, unlike the library's stack-based traversal.
void Walk(const VtqrKDTreeNode* tree, int64_t at, std::array<double, 6> cell, const Ray& ray,
          double slack, const Mesh& mesh, Nearest* nearest) {
  double t0 = 0, t1 = INFINITY;
  for (int j = 0; j < 3; ++j) {
    double lo = cell[j] - slack - ray.org[j], hi = cell[j + 3] + slack - ray.org[j];
    if (ray.dir[j] == 0 && (lo > 0 || hi < 0)) return;
    if (ray.dir[j] == 0) continue;
    t0 = std::max(t0, std::min(lo / ray.dir[j], hi / ray.dir[j]));
    t1 = std::min(t1, std::max(lo / ray.dir[j], hi / ray.dir[j]));
  }
  if (t0 > t1) return;
  const VtqrKDTreeNode* node = tree + at;
  if (!kdnode::IsLeaf(*node)) {
    const int axis = kdnode::SplitAxis(*node);
    std::array<double, 6> lower = cell, upper = cell;
    lower[axis + 3] = std::min<double>(cell[axis + 3], kdnode::SplitPosition(*node));
    upper[axis] = std::max<double>(cell[axis], kdnode::SplitPosition(*node));
    const int64_t child = kdnode::LowerChild(node) - tree;
    Walk(tree, child, lower, ray, slack, mesh, nearest);
    Walk(tree, child + 1, upper, ray, slack, mesh, nearest);
    return;
  }
  int32_t scratch[3];
  const kdnode::LeafTriangles leaf = kdnode::ReadLeaf(node, scratch);
  for (int32_t i = 0; i < leaf.count; ++i) nearest->Offer(ray, mesh, leaf.ids[i]);
}

// Every library tree passes the checker, and a walk over it finds for each ray the same nearest
// triangle as testing all triangles.
TEST(KDTreeTraversal, LibraryTreesPassCheckerAndMatchBruteForce) {
  Mesh mixed = UvSphere(10, 20, 1.5f, 4, 4, 1);
  mixed.Append(AxisAlignedGrid(8));
  mixed.Append(RandomSoup(150, 3, 4.0f, 0.5f));
  mixed.Append(Duplicated(UvSphere(4, 6, 0.5f, 2, 6, 0.5f), 3));
  const std::pair<const char*, Mesh> meshes[] = {
      {"mixed scene", mixed},
      {"axis-aligned grid", AxisAlignedGrid(12)},
      {"soup", RandomSoup(2000, 21, 1.0f, 0.2f)},
      {"single", RandomSoup(1, 4)},
      {"empty", Mesh()}};
  const VtqrKDTreeBuildParams params[] = {
      KDParams(KDTreeAlgSimple, 50),  KDParams(KDTreeAlgSAH, 50, 0),
      KDParams(KDTreeAlgSAH, 50, 1),  KDParams(KDTreeAlgSAH, 12, 0.5f),
      KDParams(KDTreeAlgSAH, 8, 1),   KDParams(KDTreeAlgSAH, 1, 0.3f),
      KDParams(KDTreeAlgSAH, 0, 0.5f)};
  std::mt19937 rng(5);
  std::uniform_real_distribution<double> unit(0, 1);
  for (const auto& [name, mesh] : meshes) {
    std::array<float, 6> box = {0, 0, 0, 1, 1, 1};
    if (mesh.TriCount() > 0)
      kDispatchTable.SetBoundBox_32f[kPathU8](mesh.vert.data(), mesh.VertCount(), box.data());
    // Rays from around the box towards points inside it, one in eight along an axis plane.
    std::vector<Ray> rays(2000);
    std::vector<Nearest> expected(rays.size());
    for (size_t r = 0; r < rays.size(); ++r) {
      for (int j = 0; j < 3; ++j) {
        double extent = box[j + 3] - box[j];
        rays[r].org[j] = box[j] + extent * (2 * unit(rng) - 0.5);
        rays[r].dir[j] = box[j] + extent * unit(rng) - rays[r].org[j];
      }
      if (r % 8 == 0) rays[r].dir[r / 8 % 3] = 0;
      if (r % 16 == 0) rays[r].dir[(r / 8 + 1) % 3] = 0;
      for (int32_t t = 0; t < mesh.TriCount(); ++t) expected[r].Offer(rays[r], mesh, t);
    }
    const double slack = 1e-6 * std::max({box[3] - box[0], box[4] - box[1], box[5] - box[2]});
    for (const VtqrKDTreeBuildParams& p : params) {
      SCOPED_TRACE(std::string(name) + (p.algorithm == KDTreeAlgSAH ? " SAH" : " simple") +
                   " depth " + std::to_string(p.maxDepth) + " factor " + std::to_string(p.factor));
      BuildCall call(mesh, p);
      ASSERT_EQ(call.Run(), vtqStsOk);
      KDTreeCheckOptions options;
      options.maxDepth = p.maxDepth;
      options.rootBox = box.data();
      ASSERT_EQ(CheckTree(call.tree, call.treeSize, mesh, options), "");
      for (size_t r = 0, mismatches = 0; r < rays.size() && mismatches < 5; ++r) {
        Nearest found;
        Walk(call.tree, 0,
             {box[0], box[1], box[2], box[3], box[4], box[5]}, rays[r], slack, mesh, &found);
        if (found.id != expected[r].id || found.t != expected[r].t) {
          ++mismatches;
          ADD_FAILURE() << "ray " << r << ": walk finds " << found.id << " at " << found.t
                        << ", brute force " << expected[r].id << " at " << expected[r].t;
        }
      }
    }
  }
}

// The shared scans, or where they are missing a generated surface of the same kind (uneven
// triangles, no axis-aligned structure) in their place, so that the test always runs.
TEST(KDTreeBuildAlloc, ScannedMeshesPassTheChecker) {
  const std::pair<const char*, uint32_t> scans[] = {{"stanford-bunny.obj", 1}, {"igea.ply", 2}};
  for (const auto& [name, seed] : scans) {
    SCOPED_TRACE(name);
    Mesh mesh;
    std::string path = SharedDataFile(name);
    if (path.empty()) {
      mesh = BumpySphere(150, 240, 0.15f, seed);
    } else {
      std::string error;
      ASSERT_TRUE(LoadMesh(path, &mesh, &error)) << error;
    }
    ASSERT_GT(mesh.TriCount(), 60000);
    BuildCall call(mesh, KDParams(KDTreeAlgSAH, 50, 0.5f, 256));
    ASSERT_EQ(call.Run(), vtqStsOk);
    KDTreeStats stats;
    EXPECT_EQ(CheckTree(call.tree, call.treeSize, mesh, {}, &stats), "");
    EXPECT_GT(stats.leaves, 1000);
    EXPECT_LT(stats.sahCost, 200.0);  // a useful tree, far below one leaf of every triangle
  }
}

}  // namespace
}  // namespace vtqr::test
