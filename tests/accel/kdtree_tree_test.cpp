// KD-tree blocks: the checker against hand-made good and broken trees, the builder's trees
// against the checker, and a reference traversal against brute force.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "accel/kdtree_check.h"
#include "tools/mesh/mesh_loader.h"
#include "test_util.h"
#include "vtqr.h"

namespace vtqr::test {
namespace {

// A tree block held as 32-bit words (node w0, w1 pairs, then index lists).
struct TreeBlock {
  std::vector<int32_t> words;
  const VtqrKDTreeNode* Root() const {
    return reinterpret_cast<const VtqrKDTreeNode*>(words.data());
  }
  int64_t Bytes() const { return 4 * static_cast<int64_t>(words.size()); }
};

int32_t FloatWord(float f) { return static_cast<int32_t>(Bits(f)); }

// Leaf words for a triangle list: the compact forms when allowed and representable, otherwise
// an out-of-line list appended to the block.
void WriteLeaf(TreeBlock* block, size_t slot, std::vector<int32_t> tris, bool compact) {
  std::sort(tris.begin(), tris.end());
  int32_t& w0 = block->words[2 * slot];
  int32_t& w1 = block->words[2 * slot + 1];
  size_t n = tris.size();
  if (n == 0) {
    w0 = INT_MIN;
    w1 = 0;
    return;
  }
  if (compact && n == 1) {
    w0 = INT_MIN | tris[0];
    w1 = INT_MIN | 1;
    return;
  }
  if (compact && n == 2) {
    w0 = INT_MIN | tris[0];
    w1 = INT_MIN | (tris[1] << 2) | 2;
    return;
  }
  if (compact && n == 3 && tris[1] - tris[0] < (1 << 15) && tris[2] - tris[1] < (1 << 16)) {
    w0 = INT_MIN | ((tris[1] - tris[0]) << 16) | (tris[2] - tris[1]);
    w1 = INT_MIN | (tris[1] << 2) | 3;
    return;
  }
  int64_t distance = 4 * static_cast<int64_t>(block->words.size()) - 8 * static_cast<int64_t>(slot);
  w0 = static_cast<int32_t>(-distance);
  w1 = static_cast<int32_t>(n);
  block->words.insert(block->words.end(), tris.begin(), tris.end());
}

// Midpoint splits on the longest axis, triangles sent to every child their bounding box
// touches: generous but correct, written independently of the library's builder.
TreeBlock BuildMidpointTree(const Mesh& mesh, const float box[6], int maxDepth, size_t leafSize,
                            bool compact) {
  struct Proto {
    int axis = -1;
    float split = 0;
    size_t child = 0;
    std::vector<int32_t> tris;
  };
  std::vector<Proto> protos;
  std::function<size_t(std::vector<int32_t>, std::array<float, 6>, int)> build =
      [&](std::vector<int32_t> tris, std::array<float, 6> cell, int depth) -> size_t {
    size_t index = protos.size();
    protos.emplace_back();
    int axis = 0;
    for (int j = 1; j < 3; ++j) {
      if (cell[j + 3] - cell[j] > cell[axis + 3] - cell[axis]) axis = j;
    }
    if (depth >= maxDepth || tris.size() <= leafSize) {
      protos[index].tris = std::move(tris);
      return index;
    }
    float split = 0.5f * (cell[axis] + cell[axis + 3]);
    std::vector<int32_t> below, above;
    for (int32_t t : tris) {
      float lo = INFINITY, hi = -INFINITY;
      for (int i = 0; i < 3; ++i) {
        float x = mesh.vert[3 * mesh.tri[4 * t + i] + axis];
        lo = std::min(lo, x);
        hi = std::max(hi, x);
      }
      if (lo <= split) below.push_back(t);
      if (hi >= split) above.push_back(t);
    }
    std::array<float, 6> lowerCell = cell, upperCell = cell;
    lowerCell[axis + 3] = split;
    upperCell[axis] = split;
    size_t lower = build(std::move(below), lowerCell, depth + 1);
    build(std::move(above), upperCell, depth + 1);
    protos[index].axis = axis;
    protos[index].split = split;
    protos[index].child = lower;
    return index;
  };
  std::vector<int32_t> all(static_cast<size_t>(mesh.TriCount()));
  for (int32_t t = 0; t < mesh.TriCount(); ++t) all[static_cast<size_t>(t)] = t;
  build(all, {box[0], box[1], box[2], box[3], box[4], box[5]}, 0);

  // Lay out breadth first: each interior node's children take the next two free slots. The
  // upper child of proto p is the proto built right after p's lower subtree; find it by order.
  std::vector<size_t> upperOf(protos.size(), 0);
  std::function<size_t(size_t)> subtreeEnd = [&](size_t p) -> size_t {
    if (protos[p].axis < 0) return p + 1;
    size_t upper = subtreeEnd(protos[p].child);
    upperOf[p] = upper;
    return subtreeEnd(upper);
  };
  subtreeEnd(0);
  TreeBlock block;
  block.words.assign(2 * protos.size(), 0);
  std::vector<std::pair<size_t, size_t>> queue{{0, 0}};  // (proto, slot)
  size_t nextSlot = 1;
  for (size_t q = 0; q < queue.size(); ++q) {
    auto [p, slot] = queue[q];
    if (protos[p].axis < 0) continue;
    size_t pair = nextSlot;
    nextSlot += 2;
    block.words[2 * slot] = static_cast<int32_t>(8 * (pair - slot)) | protos[p].axis;
    block.words[2 * slot + 1] = FloatWord(protos[p].split);
    queue.push_back({protos[p].child, pair});
    queue.push_back({upperOf[p], pair + 1});
  }
  for (auto [p, slot] : queue) {
    if (protos[p].axis < 0) WriteLeaf(&block, slot, protos[p].tris, compact);
  }
  return block;
}

// Bound box as the library defines it, recomputed here in double: exact min/max, then a margin
// of 1e-4 of the largest magnitude.
std::array<float, 6> MeshBox(const Mesh& mesh) {
  std::array<float, 6> box;
  VtqStatus status =
      kDispatchTable.SetBoundBox_32f[kPathU8](mesh.vert.data(), mesh.VertCount(), box.data());
  EXPECT_EQ(status, vtqStsOk);
  return box;
}

std::string Check(const TreeBlock& block, const Mesh& mesh, unsigned maxDepth = 50,
                  KDTreeStats* stats = nullptr) {
  KDTreeMesh view{mesh.vert.data(), mesh.tri.data(), mesh.VertCount(), mesh.TriCount()};
  KDTreeCheckOptions options;
  options.maxDepth = maxDepth;
  return CheckKDTree(block.Root(), block.Bytes(), view, options, stats);
}

// Hand-made trees ------------------------------------------------------------------------------

Mesh NamedMesh(const std::string& name) {
  if (name == "sphere") return UvSphere(12, 24);
  if (name == "soup") return RandomSoup(400, 7, 1.0f, 0.2f);
  if (name == "grid") return AxisAlignedGrid(8);
  if (name == "duplicates") return Duplicated(UvSphere(6, 8), 3);
  if (name == "single") {
    Mesh mesh;
    mesh.AddTriangle(mesh.AddVertex(0, 0, 0), mesh.AddVertex(1, 0, 0), mesh.AddVertex(0, 1, 0.5f));
    return mesh;
  }
  return Mesh();  // "empty"
}

TEST(KDTreeCheck, AcceptsCorrectHandBuiltTrees) {
  for (const char* name : {"sphere", "soup", "grid", "duplicates", "single", "empty"}) {
    Mesh mesh = NamedMesh(name);
    std::array<float, 6> box = mesh.TriCount() > 0 ? MeshBox(mesh) : std::array<float, 6>{};
    for (int depth : {0, 3, 9}) {
      for (bool compact : {false, true}) {
        TreeBlock block = BuildMidpointTree(mesh, box.data(), depth, 2, compact);
        SCOPED_TRACE(std::string(name) + " depth " + std::to_string(depth) +
                     (compact ? " compact" : " lists"));
        KDTreeStats stats;
        EXPECT_EQ(Check(block, mesh, static_cast<unsigned>(depth), &stats), "");
        EXPECT_LE(stats.maxDepth, depth);
        EXPECT_GE(stats.triangleRefs, mesh.TriCount() > 0 ? 1 : 0);
      }
    }
  }
}

// Two-leaf tree split at x = 0 over the given triangles, with explicit leaf lists.
struct SplitCase {
  const char* name;
  std::vector<std::array<float, 9>> triangles;
  std::vector<int32_t> below, above;
  const char* expected;  // substring of the error, "" for a good tree
};

TEST(KDTreeCheck, BoundaryContactRules) {
  const SplitCase cases[] = {
      {"crossing listed on both sides", {{-1, 0, 0, 1, 0, 0, 0, 1, 1}}, {0}, {0}, ""},
      {"crossing missing above", {{-1, 0, 0, 1, 0, 0, 0, 1, 1}}, {0}, {}, "crosses the cell"},
      {"crossing missing below", {{-1, 0, 0, 1, 0, 0, 0, 1, 1}}, {}, {0}, "crosses the cell"},
      {"touches the plane with a vertex", {{-1, 0, 0, 0, 0, 0.5f, -1, 1, 1}}, {0}, {}, ""},
      {"touches the plane with an edge", {{-1, 0, 0, 0, 0, 0, 0, 1, 1}}, {0}, {}, ""},
      {"flat in the plane, below only", {{0, 0, 0, 0, 1, 0, 0, 0, 1}}, {0}, {}, ""},
      {"flat in the plane, above only", {{0, 0, 0, 0, 1, 0, 0, 0, 1}}, {}, {0}, ""},
      {"flat in the plane, nowhere", {{0, 0, 0, 0, 1, 0, 0, 0, 1}}, {}, {}, "flat in x = 0"},
      // Crosses the open cell only by one float step past the plane.
      {"sliver above the plane", {{-1, 0, 0, 0x1p-20f, 0, 0, -1, 1, 1}}, {0}, {}, "crosses"},
      {"degenerate triangle nowhere", {{-1, 0, 0, 1, 0, 0, 0.5f, 0, 0}}, {}, {}, ""},
  };
  for (const SplitCase& c : cases) {
    SCOPED_TRACE(c.name);
    Mesh mesh;
    for (const auto& t : c.triangles) {
      mesh.AddTriangle(mesh.AddVertex(t[0], t[1], t[2]), mesh.AddVertex(t[3], t[4], t[5]),
                       mesh.AddVertex(t[6], t[7], t[8]));
    }
    TreeBlock block;
    block.words = {8, FloatWord(0.0f), 0, 0, 0, 0};
    WriteLeaf(&block, 1, c.below, false);
    WriteLeaf(&block, 2, c.above, false);
    const float box[6] = {-2, -2, -2, 2, 2, 2};
    KDTreeMesh view{mesh.vert.data(), mesh.tri.data(), mesh.VertCount(), mesh.TriCount()};
    KDTreeCheckOptions options;
    options.rootBox = box;
    std::string error = CheckKDTree(block.Root(), block.Bytes(), view, options);
    if (*c.expected == '\0') {
      EXPECT_EQ(error, "");
    } else {
      EXPECT_NE(error.find(c.expected), std::string::npos) << error;
    }
  }
}

// A flat triangle whose plane is a split plane further subdivided differently on each side:
// coverage must be judged on the union of both sides' pieces.
TEST(KDTreeCheck, FlatTriangleCoveredByPiecesOfBothSides) {
  Mesh mesh;
  mesh.AddTriangle(mesh.AddVertex(0, -1, -1), mesh.AddVertex(0, 1, -1), mesh.AddVertex(0, -1, 1));
  // Root: x at 0. Below: y at 0 (two leaves). Above: y at 0 (two leaves).
  for (int missing = -1; missing < 4; ++missing) {
    // Leaves 0..3: below/y<0, below/y>0, above/y<0, above/y>0. Listing pattern: below-low and
    // above-high always; below-high and above-low together cover the rest unless one is
    // dropped *and* its partner is too.
    std::vector<int32_t> lists[4] = {{0}, {}, {0}, {0}};
    if (missing >= 0) lists[missing].clear();
    TreeBlock block;
    block.words.assign(14, 0);
    block.words[0] = 8;  // root, children at slots 1, 2
    block.words[1] = FloatWord(0.0f);
    block.words[2] = 8 * 2 + 1;  // slot 1 -> slots 3, 4
    block.words[3] = FloatWord(0.0f);
    block.words[4] = 8 * 3 + 1;  // slot 2 -> slots 5, 6
    block.words[5] = FloatWord(0.0f);
    for (int leaf = 0; leaf < 4; ++leaf)
      WriteLeaf(&block, 3 + static_cast<size_t>(leaf), lists[leaf], false);
    const float box[6] = {-2, -2, -2, 2, 2, 2};
    KDTreeMesh view{mesh.vert.data(), mesh.tri.data(), mesh.VertCount(), mesh.TriCount()};
    KDTreeCheckOptions options;
    options.rootBox = box;
    std::string error = CheckKDTree(block.Root(), block.Bytes(), view, options);
    // Half y < 0 is covered by leaves 0 or 2, half y > 0 only by leaf 3 (leaf 1 is empty).
    bool good = missing != 3;
    SCOPED_TRACE(missing);
    EXPECT_EQ(error.empty(), good) << error;
  }
}

TEST(KDTreeCheck, ReportsStructuralFaults) {
  Mesh mesh = UvSphere(6, 8);
  std::array<float, 6> box = MeshBox(mesh);
  const TreeBlock good = BuildMidpointTree(mesh, box.data(), 4, 3, false);
  ASSERT_EQ(Check(good, mesh), "");
  // Node slots run up to the first index list; damage the first leaf with an out-of-line list.
  size_t listLeaf = 0;
  int64_t firstList = good.Bytes();
  for (size_t slot = 0; 8 * static_cast<int64_t>(slot) < firstList; ++slot) {
    int32_t w0 = good.words[2 * slot], w1 = good.words[2 * slot + 1];
    if (w0 < 0 && w1 > 0) {
      firstList = std::min(firstList, 8 * static_cast<int64_t>(slot) - w0);
      if (listLeaf == 0) listLeaf = slot;
    }
  }
  ASSERT_LT(8 * static_cast<int64_t>(listLeaf + 1), firstList);
  ASSERT_GT(listLeaf, 0u);
  struct Fault {
    const char* name;
    std::function<void(TreeBlock*)> damage;
    unsigned maxDepth;
    const char* expected;
  };
  const Fault faults[] = {
      {"children past the end", [](TreeBlock* b) { b->words[0] = 0x7FFFFF00; }, 50, "past the end"},
      {"children point at the node", [](TreeBlock* b) { b->words[0] = 0; }, 50, "reached twice"},
      {"axis 3", [](TreeBlock* b) { b->words[0] |= 3; }, 50, "axis 3"},
      {"NaN split", [](TreeBlock* b) { b->words[1] = 0x7FC00000; }, 50, "NaN"},
      {"too deep", [](TreeBlock*) {}, 3, "deeper than the limit"},
      {"list not aligned", [=](TreeBlock* b) { b->words[2 * listLeaf] -= 2; }, 50, "multiple of 4"},
      {"list past the end", [=](TreeBlock* b) { b->words[2 * listLeaf + 1] += 1000; }, 50,
       "past the end"},
      {"list over a node", [=](TreeBlock* b) { b->words[2 * listLeaf] = -8; }, 50,
       "overlaps the node"},
      {"index out of range", [=](TreeBlock* b) { b->words.back() = 1000; }, 50, "outside the"},
      {"negative index", [=](TreeBlock* b) { b->words.back() = -1; }, 50, "outside the"},
      {"compact count 0", [=](TreeBlock* b) { b->words[2 * listLeaf + 1] = INT_MIN; }, 50,
       "count of 0"},
      {"compact index out of range",
       [=](TreeBlock* b) {
         b->words[2 * listLeaf] = INT_MIN | 5000;
         b->words[2 * listLeaf + 1] = INT_MIN | 1;
       },
       50, "outside the"},
      {"compact triple below zero",
       [=](TreeBlock* b) {
         b->words[2 * listLeaf] = INT_MIN | (3 << 16) | 1;
         b->words[2 * listLeaf + 1] = INT_MIN | (1 << 2) | 3;
       },
       50, "decodes to index"},
      {"triangle dropped from a leaf",
       [=](TreeBlock* b) {
         b->words[2 * listLeaf] = INT_MIN;
         b->words[2 * listLeaf + 1] = 0;
       },
       50, "is not listed there"},
      {"truncated block", [](TreeBlock* b) { b->words.resize(4); }, 50, "past the end"},
  };
  for (const Fault& fault : faults) {
    SCOPED_TRACE(fault.name);
    TreeBlock block = good;
    fault.damage(&block);
    std::string error = Check(block, mesh, fault.maxDepth);
    EXPECT_NE(error.find(fault.expected), std::string::npos) << error;
  }
}

TEST(KDTreeCheck, StatisticsOfKnownTree) {
  // Root box [0,2]x[0,1]x[0,1] split at x = 0.5: lower cell half-area 0.5*1+1*1+1*0.5 = 2,
  // upper 1.5+1+1.5 = 4, root 2+1+2 = 5.
  Mesh mesh;
  mesh.AddTriangle(mesh.AddVertex(0, 0, 0), mesh.AddVertex(0.25f, 1, 0), mesh.AddVertex(0, 0, 1));
  mesh.AddTriangle(mesh.AddVertex(1, 0, 0), mesh.AddVertex(2, 1, 0), mesh.AddVertex(1, 0, 1));
  mesh.AddTriangle(mesh.AddVertex(1, 0, 0), mesh.AddVertex(2, 0, 1), mesh.AddVertex(1, 1, 1));
  TreeBlock block;
  block.words = {8, FloatWord(0.5f), 0, 0, 0, 0};
  WriteLeaf(&block, 1, {0}, true);
  WriteLeaf(&block, 2, {1, 2}, false);
  const float box[6] = {0, 0, 0, 2, 1, 1};
  KDTreeMesh view{mesh.vert.data(), mesh.tri.data(), mesh.VertCount(), mesh.TriCount()};
  KDTreeCheckOptions options;
  options.rootBox = box;
  KDTreeStats stats;
  ASSERT_EQ(CheckKDTree(block.Root(), block.Bytes(), view, options, &stats), "");
  EXPECT_EQ(stats.nodes, 3);
  EXPECT_EQ(stats.interiorNodes, 1);
  EXPECT_EQ(stats.leaves, 2);
  EXPECT_EQ(stats.emptyLeaves, 0);
  EXPECT_EQ(stats.compactLeaves, 1);
  EXPECT_EQ(stats.triangleRefs, 3);
  EXPECT_DOUBLE_EQ(stats.averageLeafSize, 1.5);
  EXPECT_EQ(stats.maxDepth, 1);
  EXPECT_DOUBLE_EQ(stats.expectedTraversals, 1.0);
  EXPECT_DOUBLE_EQ(stats.expectedTriangleTests, (1 * 2.0 + 2 * 4.0) / 5.0);
  EXPECT_DOUBLE_EQ(stats.sahCost, 1.0 + 10.0 / 5.0);
}

// Library trees against brute force ---------------------------------------------------------

struct Ray {
  double org[3];
  double dir[3];
};

struct Hit {
  double t = INFINITY;
  int32_t id = -1;
  // Nearest first; among equal distances the lowest triangle number, so the answer does not
  // depend on the order in which triangles are met.
  void Offer(double tNew, int32_t idNew) {
    if (tNew < t || (tNew == t && idNew < id)) {
      t = tNew;
      id = idNew;
    }
  }
};

// Double-precision ray/triangle test by barycentric solve (independent of the library's
// projected test); returns the distance or NaN.
double IntersectTriangle(const Ray& ray, const Mesh& mesh, int32_t t) {
  double v[3][3];
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) v[i][j] = mesh.vert[3 * mesh.tri[4 * t + i] + j];
  }
  double e1[3], e2[3], s[3];
  for (int j = 0; j < 3; ++j) {
    e1[j] = v[1][j] - v[0][j];
    e2[j] = v[2][j] - v[0][j];
    s[j] = ray.org[j] - v[0][j];
  }
  auto cross = [](const double a[3], const double b[3], double out[3]) {
    out[0] = a[1] * b[2] - a[2] * b[1];
    out[1] = a[2] * b[0] - a[0] * b[2];
    out[2] = a[0] * b[1] - a[1] * b[0];
  };
  auto dot = [](const double a[3], const double b[3]) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
  };
  double p[3], q[3];
  cross(ray.dir, e2, p);
  double det = dot(e1, p);
  if (det == 0) return NAN;
  double u = dot(s, p) / det;
  cross(s, e1, q);
  double w = dot(ray.dir, q) / det;
  double dist = dot(e2, q) / det;
  if (u < 0 || w < 0 || u + w > 1 || !(dist > 1e-9)) return NAN;
  return dist;
}

// Visits every leaf whose cell, widened by `slack`, the ray passes through, whatever the order:
// a deliberately plain walk that only relies on the node format.
void WalkTree(const unsigned char* base, int64_t offset, std::array<double, 6> cell, const Ray& ray,
              double slack, const Mesh& mesh, Hit* hit) {
  double t0 = 0, t1 = INFINITY;
  for (int j = 0; j < 3; ++j) {
    double lo = cell[j] - slack - ray.org[j], hi = cell[j + 3] + slack - ray.org[j];
    if (ray.dir[j] == 0) {
      if (lo > 0 || hi < 0) return;
      continue;
    }
    double a = lo / ray.dir[j], b = hi / ray.dir[j];
    t0 = std::max(t0, std::min(a, b));
    t1 = std::min(t1, std::max(a, b));
  }
  if (t0 > t1) return;
  int32_t w0, w1;
  std::memcpy(&w0, base + offset, 4);
  std::memcpy(&w1, base + offset + 4, 4);
  if (w0 >= 0) {
    int axis = w0 & 3;
    float split;
    std::memcpy(&split, &w1, 4);
    std::array<double, 6> lower = cell, upper = cell;
    lower[axis + 3] = std::min<double>(cell[axis + 3], split);
    upper[axis] = std::max<double>(cell[axis], split);
    WalkTree(base, offset + (w0 & ~7), lower, ray, slack, mesh, hit);
    WalkTree(base, offset + (w0 & ~7) + 8, upper, ray, slack, mesh, hit);
    return;
  }
  std::vector<int64_t> tris;
  if (w1 > 0) {
    for (int32_t i = 0; i < w1; ++i) {
      int32_t index;
      std::memcpy(&index, base + offset - static_cast<int64_t>(w0) + 4 * i, 4);
      tris.push_back(index);
    }
  } else if (w1 < 0) {
    int64_t a = w0 & 0x7FFFFFFF, m = (w1 & 0x7FFFFFFC) >> 2;
    int n = w1 & 3;
    if (n == 1) tris = {a};
    if (n == 2) tris = {a, m};
    if (n == 3) tris = {m - (a >> 16), m, m + (a & 0xFFFF)};
  }
  for (int64_t t : tris) {
    double dist = IntersectTriangle(ray, mesh, static_cast<int32_t>(t));
    if (!std::isnan(dist)) hit->Offer(dist, static_cast<int32_t>(t));
  }
}

// Rays from around the box towards points inside it, some of them along the axes.
std::vector<Ray> RandomRays(const std::array<float, 6>& box, int count, uint32_t seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> unit(0, 1);
  std::vector<Ray> rays(static_cast<size_t>(count));
  for (int r = 0; r < count; ++r) {
    Ray& ray = rays[static_cast<size_t>(r)];
    for (int j = 0; j < 3; ++j) {
      double extent = box[j + 3] - box[j];
      ray.org[j] = box[j] + extent * (2 * unit(rng) - 0.5);
      ray.dir[j] = box[j] + extent * unit(rng) - ray.org[j];
    }
    if (r % 8 == 0) ray.dir[r / 8 % 3] = 0;
    if (r % 16 == 0) ray.dir[(r / 8 + 1) % 3] = 0;
  }
  return rays;
}

// Owns a tree from the library's builder.
struct LibraryTree {
  VtqrKDTreeNode* root = nullptr;
  int size = 0;
  VtqStatus status;
  LibraryTree(const Mesh& mesh, uint32_t algorithm, unsigned maxDepth, float factor) {
    static const float kNoVert[3] = {};
    static const int32_t kNoTri[4] = {};
    VtqrKDTreeBuildParams params{algorithm, maxDepth, factor, 256, 0};
    status = kDispatchTable.KDTreeBuildAlloc[kPathU8](
        &root, mesh.vert.empty() ? kNoVert : mesh.vert.data(),
        mesh.tri.empty() ? kNoTri : mesh.tri.data(), mesh.VertCount(), mesh.TriCount(), &size,
        &params);
  }
  ~LibraryTree() {
    if (status == vtqStsOk) kDispatchTable.KDTreeFree[kPathU8](root);
  }
};

// Every library tree passes the checker, and a walk over it finds for each ray the same nearest
// triangle as testing all triangles.
TEST(KDTreeTraversal, LibraryTreesMatchBruteForce) {
  Mesh mixed = UvSphere(10, 20, 1.5f, 4, 4, 1);
  mixed.Append(AxisAlignedGrid(8));
  mixed.Append(RandomSoup(150, 3, 4.0f, 0.5f));
  mixed.Append(Duplicated(UvSphere(4, 6, 0.5f, 2, 6, 0.5f), 2));
  struct Row {
    const char* name;
    Mesh mesh;
  };
  const Row meshes[] = {{"mixed scene", mixed},
                        {"soup", RandomSoup(500, 21, 1.0f, 0.3f)},
                        {"single", NamedMesh("single")},
                        {"empty", Mesh()}};
  struct Params {
    uint32_t algorithm;
    unsigned maxDepth;
    float factor;
  };
  const Params params[] = {{KDTreeAlgSimple, 50, 0}, {KDTreeAlgSAH, 50, 0},
                           {KDTreeAlgSAH, 50, 1},    {KDTreeAlgSAH, 12, 0.5f},
                           {KDTreeAlgSAH, 1, 0.3f},  {KDTreeAlgSAH, 0, 0.5f}};
  for (const Row& row : meshes) {
    std::array<float, 6> box =
        row.mesh.TriCount() > 0 ? MeshBox(row.mesh) : std::array<float, 6>{0, 0, 0, 1, 1, 1};
    std::vector<Ray> rays = RandomRays(box, 1500, 5);
    std::vector<Hit> expected(rays.size());
    for (size_t r = 0; r < rays.size(); ++r) {
      for (int32_t t = 0; t < row.mesh.TriCount(); ++t) {
        double dist = IntersectTriangle(rays[r], row.mesh, t);
        if (!std::isnan(dist)) expected[r].Offer(dist, t);
      }
    }
    for (const Params& p : params) {
      SCOPED_TRACE(std::string(row.name) + (p.algorithm == KDTreeAlgSAH ? " SAH" : " simple") +
                   " depth " + std::to_string(p.maxDepth) + " factor " + std::to_string(p.factor));
      LibraryTree tree(row.mesh, p.algorithm, p.maxDepth, p.factor);
      ASSERT_EQ(tree.status, vtqStsOk);
      KDTreeMesh view{row.mesh.vert.data(), row.mesh.tri.data(), row.mesh.VertCount(),
                      row.mesh.TriCount()};
      KDTreeCheckOptions options;
      options.maxDepth = p.maxDepth;
      options.rootBox = box.data();
      ASSERT_EQ(CheckKDTree(tree.root, tree.size, view, options), "");
      const double slack = 1e-6 * std::max({box[3] - box[0], box[4] - box[1], box[5] - box[2]});
      int mismatches = 0;
      for (size_t r = 0; r < rays.size() && mismatches < 5; ++r) {
        Hit hit;
        std::array<double, 6> cell;
        for (int j = 0; j < 6; ++j) cell[j] = box[j];
        WalkTree(reinterpret_cast<const unsigned char*>(tree.root), 0, cell, rays[r], slack,
                 row.mesh, &hit);
        if (hit.id != expected[r].id || hit.t != expected[r].t) {
          ++mismatches;
          ADD_FAILURE() << "ray " << r << ": walk finds " << hit.id << " at " << hit.t
                        << ", brute force " << expected[r].id << " at " << expected[r].t;
        }
      }
    }
  }
}

// The midpoint trees of this file take the same walk: a check that the walk itself reads the
// format as the checker does, on trees with compact leaves of every size.
TEST(KDTreeTraversal, HandBuiltTreesMatchBruteForce) {
  Mesh mesh = UvSphere(8, 12);
  mesh.Append(AxisAlignedGrid(4));
  std::array<float, 6> box = MeshBox(mesh);
  std::vector<Ray> rays = RandomRays(box, 1000, 9);
  for (bool compact : {false, true}) {
    TreeBlock block = BuildMidpointTree(mesh, box.data(), 8, 3, compact);
    ASSERT_EQ(Check(block, mesh), "");
    for (size_t r = 0; r < rays.size(); ++r) {
      Hit expected, hit;
      for (int32_t t = 0; t < mesh.TriCount(); ++t) {
        double dist = IntersectTriangle(rays[r], mesh, t);
        if (!std::isnan(dist)) expected.Offer(dist, t);
      }
      std::array<double, 6> cell;
      for (int j = 0; j < 6; ++j) cell[j] = box[j];
      WalkTree(reinterpret_cast<const unsigned char*>(block.words.data()), 0, cell, rays[r], 1e-6,
               mesh, &hit);
      ASSERT_EQ(hit.id, expected.id) << "ray " << r;
      ASSERT_EQ(hit.t, expected.t) << "ray " << r;
    }
  }
}

// The shared scanned meshes: SAH trees pass the checker.
TEST(KDTreeBuildAlloc, ScannedMeshesPassTheChecker) {
  for (const char* name : {"stanford-bunny.obj", "igea.ply"}) {
    std::string path = SharedDataFile(name);
    if (path.empty()) GTEST_SKIP() << "shared mesh " << name << " not found; skipping";
    Mesh mesh;
    std::string error;
    ASSERT_TRUE(LoadMesh(path, &mesh, &error)) << error;
    ASSERT_GT(mesh.TriCount(), 60000);
    std::array<float, 6> box = MeshBox(mesh);
    LibraryTree tree(mesh, KDTreeAlgSAH, 50, 0.5f);
    ASSERT_EQ(tree.status, vtqStsOk);
    KDTreeMesh view{mesh.vert.data(), mesh.tri.data(), mesh.VertCount(), mesh.TriCount()};
    KDTreeCheckOptions options;
    options.rootBox = box.data();
    KDTreeStats stats;
    EXPECT_EQ(CheckKDTree(tree.root, tree.size, view, options, &stats), "");
    EXPECT_GT(stats.leaves, 1000);
    EXPECT_LT(stats.sahCost, 200.0);  // a useful tree, far below the triangle count of one leaf
    std::printf("%s: %lld nodes, %lld leaves (%lld empty), %.2f per leaf, depth %d, SAH %.2f\n",
                name, static_cast<long long>(stats.nodes), static_cast<long long>(stats.leaves),
                static_cast<long long>(stats.emptyLeaves), stats.averageLeafSize, stats.maxDepth,
                stats.sahCost);
  }
}

}  // namespace
}  // namespace vtqr::test
