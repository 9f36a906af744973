// KD-tree blocks: the checker on small hand-written trees, good and broken; the builder's trees
// against the checker and, through a plain recursive walk, against brute force.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "kdtree_test_util.h"

namespace vtqr::test {
namespace {

int32_t FloatWord(float f) { return static_cast<int32_t>(Bits(f)); }

// Makes node `slot` a leaf listing `tris` out of line (appended to the block), or an empty leaf.
void AppendLeaf(std::vector<int32_t>* words, size_t slot, const std::vector<int32_t>& tris) {
  (*words)[2 * slot] = tris.empty() ? INT_MIN : -static_cast<int32_t>(4 * words->size() - 8 * slot);
  (*words)[2 * slot + 1] = static_cast<int32_t>(tris.size());
  words->insert(words->end(), tris.begin(), tris.end());
}

Mesh Triangles(const std::vector<std::array<float, 9>>& corners) {
  Mesh mesh;
  for (const auto& c : corners) {
    mesh.AddTriangle(mesh.AddVertex(c[0], c[1], c[2]), mesh.AddVertex(c[3], c[4], c[5]),
                     mesh.AddVertex(c[6], c[7], c[8]));
  }
  return mesh;
}

// The root splits [-2, 2]^3 at x = 0, both children split again at y = 0. Leaves: 0 below/y<0,
// 1 below/y>0, 2 above/y<0, 3 above/y>0. Which contacts with the planes oblige a listing.
TEST(KDTreeCheck, BoundaryContactRules) {
  const float box[6] = {-2, -2, -2, 2, 2, 2};
  const std::array<float, 9> crossing = {-1, 0, 0, 1, 0, 0, 0, 1, 1};     // edge in y = 0
  const std::array<float, 9> flat = {0, 0, 0, 0, 1, 0, 0, 0, 1};          // in x = 0, y >= 0
  const std::array<float, 9> wideFlat = {0, -1, -1, 0, 1, -1, 0, -1, 1};  // in x = 0, both y
  struct Case {
    const char* name;
    std::array<float, 9> corners;
    std::vector<int32_t> lists[4];
    const char* expected;  // substring of the error, "" for a good tree
  };
  const Case cases[] = {
      {"crossing, listed on both sides", crossing, {{}, {0}, {}, {0}}, ""},
      {"crossing, missing above", crossing, {{}, {0}, {}, {}}, "crosses the cell"},
      {"touches x = 0 with a vertex", {-1, 0, 0, 0, 0, 0.5f, -1, 1, 1}, {{}, {0}, {}, {}}, ""},
      {"flat, below only", flat, {{}, {0}, {}, {}}, ""},
      {"flat, above only", flat, {{}, {}, {}, {0}}, ""},
      {"flat, nowhere", flat, {{}, {}, {}, {}}, "flat in x = 0"},
      {"flat, its halves from both sides", wideFlat, {{0}, {}, {}, {0}}, ""},
      {"flat, half y > 0 nowhere", wideFlat, {{0}, {}, {0}, {}}, "flat in x = 0"},
      {"sliver past x = 0", {-1, 0, 0, 0x1p-20f, 0, 0, -1, 1, 1}, {{}, {0}, {}, {}}, "crosses"},
      {"zero area, nowhere", {-1, 0, 0, 1, 0, 0, 0.5f, 0, 0}, {{}, {}, {}, {}}, ""},
  };
  for (const Case& c : cases) {
    std::vector<int32_t> words = {8, FloatWord(0), 17, FloatWord(0), 25, FloatWord(0)};
    words.resize(14);
    for (size_t leaf = 0; leaf < 4; ++leaf) AppendLeaf(&words, 3 + leaf, c.lists[leaf]);
    KDTreeCheckOptions options;
    options.rootBox = box;
    std::string error = CheckTree(words.data(), 4 * words.size(), Triangles({c.corners}), options);
    EXPECT_TRUE(*c.expected ? error.find(c.expected) != std::string::npos : error.empty())
        << c.name << ": " << error;
  }
}

// Box [0,2]x[0,1]x[0,1] split at x = 0.5: triangle 0 below in an out-of-line list, 1 and 2 above
// in a compact pair. Half surface areas: root 5, lower cell 2, upper 4.
TEST(KDTreeCheck, StatisticsAndStructuralFaults) {
  const float box[6] = {0, 0, 0, 2, 1, 1};
  const Mesh mesh = Triangles(
      {{0, 0, 0, 0.25f, 1, 0, 0, 0, 1}, {1, 0, 0, 2, 1, 0, 1, 0, 1}, {1, 0, 0, 2, 0, 1, 1, 1, 1}});
  const std::vector<int32_t> good = {8,           FloatWord(0.5f),        -16, 1,
                                     INT_MIN | 1, INT_MIN | (2 << 2) | 2, 0};
  KDTreeCheckOptions options;
  options.rootBox = box;
  KDTreeStats stats;
  ASSERT_EQ(CheckTree(good.data(), 4 * good.size(), mesh, options, &stats), "");
  EXPECT_EQ(stats.nodes, 3);
  EXPECT_EQ(stats.compactLeaves, 1);
  EXPECT_EQ(stats.maxDepth, 1);
  EXPECT_DOUBLE_EQ(stats.expectedTriangleTests, (1 * 2.0 + 2 * 4.0) / 5.0);
  EXPECT_DOUBLE_EQ(stats.sahCost, 1.0 + 10.0 / 5.0);

  using Words = std::vector<int32_t>;
  struct Fault {
    const char* name;
    std::function<void(Words&)> damage;
    unsigned maxDepth;
    const char* expected;
  };
  const Fault faults[] = {
      {"children past the end", [](Words& w) { w[0] = 0x7FFFFF00; }, 50, "past the end"},
      {"children at the node itself", [](Words& w) { w[0] = 0; }, 50, "reached twice"},
      {"axis 3", [](Words& w) { w[0] |= 3; }, 50, "axis 3"},
      {"too deep", [](Words&) {}, 0, "deeper than the limit"},
      {"list over a node", [](Words& w) { w[2] = -8; }, 50, "overlaps the node"},
      {"list past the end", [](Words& w) { w[3] = 2; }, 50, "past the end"},
      {"index out of range", [](Words& w) { w[6] = 3; }, 50, "outside the"},
      {"compact count 0", [](Words& w) { w[5] = INT_MIN; }, 50, "count of 0"},
      {"compact triple below zero",
       [](Words& w) { w[4] = INT_MIN | (3 << 16) | 1, w[5] = INT_MIN | (1 << 2) | 3; }, 50,
       "decodes to index"},
      {"triangle dropped", [](Words& w) { w[2] = INT_MIN, w[3] = 0; }, 50, "is not listed there"},
  };
  for (const Fault& fault : faults) {
    Words words = good;
    fault.damage(words);
    options.maxDepth = fault.maxDepth;
    std::string error = CheckTree(words.data(), 4 * words.size(), mesh, options);
    EXPECT_NE(error.find(fault.expected), std::string::npos) << fault.name << ": " << error;
  }
}

// Library trees against brute force ----------------------------------------------------------

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
// order: a deliberately plain walk that relies on nothing but the node format.
void Walk(const char* base, int64_t at, std::array<double, 6> cell, const Ray& ray, double slack,
          const Mesh& mesh, Nearest* nearest) {
  double t0 = 0, t1 = INFINITY;
  for (int j = 0; j < 3; ++j) {
    double lo = cell[j] - slack - ray.org[j], hi = cell[j + 3] + slack - ray.org[j];
    if (ray.dir[j] == 0 && (lo > 0 || hi < 0)) return;
    if (ray.dir[j] == 0) continue;
    t0 = std::max(t0, std::min(lo / ray.dir[j], hi / ray.dir[j]));
    t1 = std::min(t1, std::max(lo / ray.dir[j], hi / ray.dir[j]));
  }
  if (t0 > t1) return;
  int32_t w[2];
  std::memcpy(w, base + at, 8);
  if (w[0] >= 0) {
    int axis = w[0] & 3;
    std::array<double, 6> lower = cell, upper = cell;
    lower[axis + 3] = std::min<double>(cell[axis + 3], FromBits(static_cast<uint32_t>(w[1])));
    upper[axis] = std::max<double>(cell[axis], FromBits(static_cast<uint32_t>(w[1])));
    Walk(base, at + (w[0] & ~7), lower, ray, slack, mesh, nearest);
    Walk(base, at + (w[0] & ~7) + 8, upper, ray, slack, mesh, nearest);
  } else if (w[1] > 0) {
    std::vector<int32_t> list(static_cast<size_t>(w[1]));
    std::memcpy(list.data(), base + at - int64_t{w[0]}, 4 * list.size());
    for (int32_t t : list) nearest->Offer(ray, mesh, t);
  } else if (w[1] < 0) {
    // Compact: n = 1 {a}, n = 2 {a, m}, n = 3 {m - (a >> 16), m, m + (a & 0xFFFF)}.
    int32_t a = w[0] & 0x7FFFFFFF, m = (w[1] & 0x7FFFFFFC) >> 2, n = w[1] & 3;
    for (int32_t t : {n == 3 ? m - (a >> 16) : a, m, m + (a & 0xFFFF)}) {
      if (n-- > 0) nearest->Offer(ray, mesh, t);
    }
  }
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
      {"single", Triangles({{0, 0, 0, 1, 0, 0, 0, 1, 0.5f}})},
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
        Walk(reinterpret_cast<const char*>(call.tree), 0,
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
