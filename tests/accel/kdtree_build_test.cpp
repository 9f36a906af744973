// vtqrKDTreeBuildAlloc: argument checks and their order, one-leaf layouts, compact leaves, the
// SAH build's memory budget, its split search against brute force, and every tree it builds
// against the exact checker.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "accel/kdtree_events.h"
#include "accel/kdtree_node.h"
#include "accel/kdtree_sah.h"
#include "support/kdtree_check.h"
#include "support/mesh_loader.h"
#include "test_util.h"
#include "vtqr.h"

namespace vtqr::test {
namespace {

namespace kd = vtqr::u8::kdtree;

VtqrKDTreeBuildParams KDParams(uint32_t algorithm, unsigned maxDepth = 30, float factor = 0.5f,
                               unsigned memoryMB = 512) {
  return {algorithm, maxDepth, factor, memoryMB, 0};
}

// One call of the builder; each argument can be changed before Run(). The outputs start as
// sentinels, so a failed call that wrote anything is noticed, and a built tree is freed.
struct BuildCall {
  static inline const Vtq32f kNoVert[3] = {};  // non-null arrays of an empty mesh
  static inline const Vtq32s kNoTri[4] = {};
  static inline VtqrKDTreeNode* const kTreeSentinel =
      reinterpret_cast<VtqrKDTreeNode*>(uintptr_t{0xA5A5A5A0});

  VtqrKDTreeBuildParams params;
  VtqrKDTreeNode* tree = kTreeSentinel;
  int treeSize = 0x5A5A5A5A;
  VtqrKDTreeNode** ppTree = &tree;
  const Vtq32f* pVert;
  const Vtq32s* pTriIndex;
  int vertCount, triCount;
  int* pTreeSize = &treeSize;
  const VtqrKDTreeBuildParams* pParams = &params;

  BuildCall(const Mesh& m, const VtqrKDTreeBuildParams& p)
      : params(p),
        pVert(m.vert.empty() ? kNoVert : m.vert.data()),
        pTriIndex(m.tri.empty() ? kNoTri : m.tri.data()),
        vertCount(m.VertCount()),
        triCount(m.TriCount()) {}
  BuildCall(const BuildCall&) = delete;
  ~BuildCall() {
    if (!Untouched()) kDispatchTable.KDTreeFree[kPathU8](tree);
  }
  VtqStatus Run() {
    return kDispatchTable.KDTreeBuildAlloc[kPathU8](ppTree, pVert, pTriIndex, vertCount, triCount,
                                                    pTreeSize, pParams);
  }
  bool Untouched() const { return tree == kTreeSentinel && treeSize == 0x5A5A5A5A; }
  const int32_t* Words() const { return reinterpret_cast<const int32_t*>(tree); }
  std::string Check(const Mesh& mesh, KDTreeCheckOptions options, KDTreeStats* stats) const {
    KDTreeMesh view{mesh.vert.data(), mesh.tri.data(), mesh.VertCount(), mesh.TriCount()};
    return CheckKDTree(tree, treeSize, view, options, stats);
  }
};

TEST(KDTreeBuildAlloc, ChecksInOrderAndWriteNothingOnFailure) {
  const Mesh mesh = RandomSoup(2, 1);
  using C = BuildCall;
  struct Row {
    const char* name;
    std::function<void(C&)> change;
    VtqStatus expected;
  };
  const Row rows[] = {
      {"ppTree null", [](C& c) { c.ppTree = nullptr; }, vtqStsErrNullPtr},
      {"pVert null", [](C& c) { c.pVert = nullptr; }, vtqStsErrNullPtr},
      {"pTriIndex null", [](C& c) { c.pTriIndex = nullptr; }, vtqStsErrNullPtr},
      {"pTreeSize null", [](C& c) { c.pTreeSize = nullptr; }, vtqStsErrNullPtr},
      {"vertCount < 0", [](C& c) { c.vertCount = -1; }, vtqStsErrSize},
      {"triCount < 0", [](C& c) { c.triCount = INT_MIN; }, vtqStsErrSize},
      {"pParams null", [](C& c) { c.pParams = nullptr; }, vtqStsErrNullPtr},
      {"bad selector", [](C& c) { c.params.algorithm = 0; }, vtqStsErrBadArg},
      {"maxDepth 51", [](C& c) { c.params.maxDepth = 51; }, vtqStsErrOutOfRange},
      {"maxDepth 2^31", [](C& c) { c.params.maxDepth = 0x80000000u; }, vtqStsErrOutOfRange},
      {"factor below 0", [](C& c) { c.params.factor = -1e-7f; }, vtqStsErrOutOfRange},
      {"factor above 1", [](C& c) { c.params.factor = 1.0000001f; }, vtqStsErrOutOfRange},
      {"factor NaN", [](C& c) { c.params.factor = NAN; }, vtqStsErrOutOfRange},
      {"memoryMB 31", [](C& c) { c.params.memoryMB = 31; }, vtqStsErrNoMem},
      {"memoryMB 8192 (wraps to 0)", [](C& c) { c.params.memoryMB = 8192; }, vtqStsErrNoMem},
      // 32 MiB passes the parameter check but is always 480 bytes short of the fixed need.
      {"memoryMB 32", [](C& c) { c.params.memoryMB = 32; }, vtqStsErrNoMem},
      // Combinations: the earlier check decides.
      {"null before size", [](C& c) { c.pVert = nullptr, c.triCount = -1; }, vtqStsErrNullPtr},
      {"size before params", [](C& c) { c.vertCount = -1, c.pParams = nullptr; }, vtqStsErrSize},
      {"selector before depth",
       [](C& c) { c.params.algorithm = KDTreeAlgSimple + 1, c.params.maxDepth = 99; },
       vtqStsErrBadArg},
      {"depth before factor", [](C& c) { c.params.maxDepth = 51, c.params.factor = 2; },
       vtqStsErrOutOfRange},
      {"factor before memory", [](C& c) { c.params.factor = 2, c.params.memoryMB = 0; },
       vtqStsErrOutOfRange},
      {"Simple checks depth", [](C& c) { c.params = KDParams(KDTreeAlgSimple, 51); },
       vtqStsErrOutOfRange},
      // The bounds themselves are accepted.
      {"maxDepth 50", [](C& c) { c.params.maxDepth = 50; }, vtqStsOk},
      {"factor 0", [](C& c) { c.params.factor = 0; }, vtqStsOk},
      {"factor 1", [](C& c) { c.params.factor = 1; }, vtqStsOk},
      {"Simple ignores factor and budget",
       [](C& c) { c.params = KDParams(KDTreeAlgSimple, 50, NAN, 0); }, vtqStsOk},
      {"reserved ignored", [](C& c) { c.params.reserved = ~Vtq64u{0}; }, vtqStsOk},
  };
  for (const Row& row : rows) {
    BuildCall call(mesh, KDParams(KDTreeAlgSAH));
    row.change(call);
    EXPECT_EQ(call.Run(), row.expected) << row.name;
    EXPECT_EQ(call.Untouched(), row.expected != vtqStsOk) << row.name;
  }
}

// The Simple tree, and an SAH tree of depth 0: one leaf listing every triangle in order.
TEST(KDTreeBuildAlloc, OneLeafLayouts) {
  const struct {
    uint32_t algorithm;
    int triCount;
    std::vector<int32_t> head;  // the leaf node and its padding
  } rows[] = {{KDTreeAlgSimple, 0, {-16, 0, 0, 0}},
              {KDTreeAlgSimple, 7, {-16, 7, 0, 0}},
              {KDTreeAlgSAH, 10, {-8, 10}}};
  for (const auto& row : rows) {
    const Mesh mesh = RandomSoup(row.triCount, 3);
    BuildCall call(mesh, KDParams(row.algorithm, 0, 1.0f));
    ASSERT_EQ(call.Run(), vtqStsOk);
    std::vector<int32_t> expected = row.head;
    for (int i = 0; i < row.triCount; ++i) expected.push_back(i);
    ASSERT_EQ(call.treeSize, static_cast<int>(4 * expected.size()));
    EXPECT_EQ(std::vector<int32_t>(call.Words(), call.Words() + expected.size()), expected);
  }
}

TEST(KDTreeNode, CompactLeavesRoundTripAtTheirLimits) {
  constexpr int32_t kM = (1 << 29) - 1;  // largest number the second word holds
  const std::pair<std::vector<int32_t>, bool> rows[] = {
      {{INT_MAX}, true},
      {{5, kM}, true},
      {{5, kM + 1}, false},
      {{100, 100 + 32767, 100 + 32767 + 65535}, true},
      {{100, 100 + 32768, 100 + 32769}, false},
      {{100, 101, 101 + 65536}, false},
      {{kM - 1, kM, kM + 1}, true},
      {{kM, kM + 1, kM + 2}, false},
      {{1, 2, 3, 4}, false},
  };
  for (const auto& [ids, fits] : rows) {
    VtqrKDTreeNode leaf = {0, 0};
    ASSERT_EQ(kdnode::EncodeCompactLeaf(ids.data(), static_cast<int>(ids.size()), &leaf), fits)
        << ids.size() << " ids from " << ids[0];
    if (!fits) continue;
    // Decoded as the public header describes the format, and through the library's reader.
    int32_t a = leaf.w0 & 0x7FFFFFFF, m = (leaf.w1 & 0x7FFFFFFC) >> 2, scratch[3];
    std::vector<int32_t> decoded = {a};
    if ((leaf.w1 & 3) == 2) decoded = {a, m};
    if ((leaf.w1 & 3) == 3) decoded = {m - (a >> 16), m, m + (a & 0xFFFF)};
    EXPECT_TRUE(leaf.w0 < 0 && leaf.w1 < 0);
    EXPECT_EQ(decoded, ids);
    kdnode::LeafTriangles read = kdnode::ReadLeaf(&leaf, scratch);
    EXPECT_EQ(std::vector<int32_t>(read.ids, read.ids + read.count), ids);
  }
}

// Each boundary of the budget rule met exactly, and missed by the least a budget can miss it.
TEST(KDTreeBuildAlloc, BudgetBoundaries) {
  constexpr int64_t kMiB = 1 << 20, kArenaBlock = 0x1000028;
  // Bytes charged before the first arena block: the context, thirteen per-triangle arrays and
  // the two pools.
  auto fixedCharge = [](const Mesh& m) {
    auto pool = [](int64_t need) { return (need & ~int64_t{0xFFFFFF}) + (int64_t{1} << 24); };
    return 400 + 13 * 4 * m.TriCount() + pool(36 * m.TriCount()) + pool(48 * m.VertCount());
  };
  // Required bytes 12 v + 84 t + 33554912 with no triangles: 2883544 vertices need exactly
  // 65 MiB, which passes (then the vertex pool overdraws it); one vertex more does not.
  Mesh many;
  many.vert.assign(3 * 2883545, 0.0f);
  ASSERT_EQ(12 * 2883544 + 33554912, 65 * kMiB);
  // No triangles and a vertex pool need of exactly 3 pool units: the pools are 1 and 4 units
  // (a need on a unit boundary still gets a unit more), so one arena block fits in 97 MiB, not
  // in 96.
  Mesh noTriangles;
  noTriangles.vert.assign(3 * 1048576, 0.0f);
  ASSERT_EQ(48 * 1048576, 3 << 24);
  // A one-leaf tree needs one arena block beyond the fixed charges; for this triangle count both
  // add up to exactly 71 MiB, and a block is opened while that much is left.
  const Mesh soup = RandomSoup(141146, 1), small = RandomSoup(2, 1);
  ASSERT_EQ(fixedCharge(soup) + kArenaBlock, 71 * kMiB);
  // A budget for exactly one arena block, for a tree that needs more: the build stops midway
  // and releases everything it took (the sanitizer build reports any leak).
  const Mesh fine = RandomSoup(150000, 7, 1.0f, 0.02f);
  const unsigned oneBlock = static_cast<unsigned>((fixedCharge(fine) + kArenaBlock + kMiB - 1) >>
                                                  20);
  ASSERT_LT(int64_t{oneBlock} << 20, fixedCharge(fine) + 2 * kArenaBlock);
  const struct {
    const char* name;
    const Mesh* mesh;
    int vertCount;
    unsigned maxDepth, memoryMB;
    VtqStatus expected;
  } rows[] = {
      {"required 12 bytes over", &many, 2883545, 30, 65, vtqStsErrNoMem},
      {"required exactly the budget", &many, 2883544, 30, 65, vtqStsErrMemBudget},
      {"pools on unit boundaries, one MiB short", &noTriangles, 1048576, 30, 96,
       vtqStsErrMemBudget},
      {"pools on unit boundaries", &noTriangles, 1048576, 30, 97, vtqStsOk},
      {"block one MiB short", &soup, soup.VertCount(), 0, 70, vtqStsErrMemBudget},
      {"block exactly left", &soup, soup.VertCount(), 0, 71, vtqStsOk},
      // Passes the parameter check but leaves no room for a block.
      {"33 MiB", &small, small.VertCount(), 30, 33, vtqStsErrMemBudget},
      {"arena exhausted mid-build", &fine, fine.VertCount(), 50, oneBlock, vtqStsErrMemBudget},
      {"same tree with room", &fine, fine.VertCount(), 50, 1024, vtqStsOk},
  };
  for (const auto& row : rows) {
    BuildCall call(*row.mesh, KDParams(KDTreeAlgSAH, row.maxDepth, 1.0f, row.memoryMB));
    call.vertCount = row.vertCount;
    EXPECT_EQ(call.Run(), row.expected) << row.name;
    EXPECT_EQ(call.Untouched(), row.expected != vtqStsOk) << row.name;
    if (row.mesh != &fine || call.Untouched()) continue;
    // The roomy build indeed outgrows one block: 48 bytes a node, 4 a listed triangle.
    KDTreeStats stats;
    EXPECT_EQ(call.Check(fine, {.checkCoverage = false}, &stats), "");
    EXPECT_GT(48 * stats.nodes + 4 * stats.triangleRefs, int64_t{1} << 24);
  }
}

const kd::Box kCell = {{0, 0, 0}, {8, 8, 8}};

// The split search as the builder runs it at the root: event lists, then the sweep.
kd::AxisSplit SearchEvents(const std::vector<kd::Box>& boxes, int axis) {
  const int n = static_cast<int>(boxes.size());
  std::vector<int32_t> ids(boxes.size());
  for (int i = 0; i < n; ++i) ids[i] = i;
  std::vector<kd::Event> lists(7 * boxes.size());
  kd::BuildRootEvents(boxes.data(), ids.data(), n, lists.data(), lists.data() + 6 * n);
  const kd::Event* starts = lists.data() + 2 * axis * n;
  return kd::SearchAxisEvents(starts, starts + n, n, kCell, axis, 1e9);
}

// Triangles each side of a split receives.
std::pair<int, int> Sides(const std::vector<kd::Box>& boxes, int axis, float x, bool planarBelow) {
  int below = 0, above = 0;
  for (const kd::Box& box : boxes) {
    int side = kd::Side(std::max(0.0f, box.lo[axis]), std::min(8.0f, box.hi[axis]), x, planarBelow);
    below += side & 1;
    above += side >> 1;
  }
  return {below, above};
}

// Boxes on a coarse grid (so starts, ends and flat triangles often coincide), some reaching out
// of the cell, one spanning it so that no face has empty space: the sweep's cost is the minimum
// over every candidate the rules allow, each costed here in long double by brute force (faces
// carry the 0.7 discount for flat triangles lying in them), and the counts it reports are those
// of its own plane.
TEST(KDTreeSplitSearch, SweepFindsCheapestPlane) {
  for (uint32_t seed = 0; seed < 100; ++seed) {
    std::mt19937 rng(1000 + seed);
    std::uniform_int_distribution<int> grid(0, 8);
    std::vector<kd::Box> boxes(2 + seed % 60);
    for (kd::Box& box : boxes) {
      for (int axis = 0; axis < 3; ++axis) {
        int a = grid(rng), b = rng() % 3 == 0 ? a : grid(rng);  // a third flat on each axis
        box.lo[axis] = 0.5f * std::min(a, b) - 1.0f;
        box.hi[axis] = 0.5f * std::max(a, b) + (rng() % 2 ? 3.0f : 0.0f);
        if (a == b) box.hi[axis] = box.lo[axis] = std::clamp(box.lo[axis], 0.0f, 8.0f);
      }
    }
    boxes[0] = {{-1, -1, -1}, {9, 9, 9}};
    for (int axis = 0; axis < 3; ++axis) {
      long double best = 1e30L;
      for (float x = 0; x <= 8; x += 0.5f) {
        bool flatFace = false;
        for (const kd::Box& box : boxes) flatFace |= box.lo[axis] == x && box.hi[axis] == x;
        for (bool planarBelow : {true, false}) {
          auto [below, above] = Sides(boxes, axis, x, planarBelow);
          // 4 = ab / (a + b) for the other two extents, both 8.
          long double cost = 16 * (below * (x + 4.0L) + above * (12.0L - x));
          if (flatFace && ((x == 0 && planarBelow) || (x == 8 && !planarBelow))) cost *= 0.7L;
          best = std::min(best, cost);
        }
      }
      const kd::AxisSplit found = SearchEvents(boxes, axis);
      ASSERT_NEAR(static_cast<double>(best), found.cost, 1e-9 * found.cost) << seed << " " << axis;
      ASSERT_EQ(std::make_pair(found.countBelow, found.countAbove),
                Sides(boxes, axis, found.position, found.planarBelow));
    }
  }
}

TEST(KDTreeSplitSearch, EmptySpaceIsCutFirst) {
  // Two clusters in x, [4.5, 5] and [7.5, 8]: a sweep would split between them, but the empty
  // space below 4.5 is cut first, with the discount.
  std::vector<kd::Box> boxes;
  for (int i = 0; i < 20; ++i) {
    float x = i % 2 ? 4.5f : 7.5f;
    boxes.push_back({{x, 0, 0}, {x + 0.5f, 8, 8}});
  }
  kd::AxisSplit split = SearchEvents(boxes, 0);
  EXPECT_EQ(split.position, 4.5f);
  EXPECT_EQ(std::make_pair(split.countBelow, split.countAbove), std::make_pair(0, 20));
  EXPECT_DOUBLE_EQ(split.cost, 0.7 * 16.0 * 20 * (8.0 - 4.5 + 4.0));
  // Exactly a tenth of the extent empty is not enough: the sweep decides, without the discount.
  for (kd::Box& box : boxes) box.lo[0] = std::max(box.lo[0] - 3.7f, 0.8f);
  split = SearchEvents(boxes, 0);
  EXPECT_EQ(split.position, 0.8f);
  EXPECT_DOUBLE_EQ(split.cost, 16.0 * 20 * ((8.0 - double{0.8f}) + 4.0));
}

// Ties between axes, on scenes made symmetric by swapping axes: each triangle of a soup comes
// with its images, so the swapped axes have the same event lists and their best costs tie to the
// bit, while squashing the remaining axis makes it the dearest. x wins a tie with y; z wins a
// tie with the cheapest. The root's split axis shows the choice.
TEST(KDTreeSplitSearch, AxisTiesOnSymmetricScenes) {
  const struct {
    std::vector<std::array<int, 3>> images;  // axis permutations applied to each triangle
    int dearAxis;                            // squashed; -1 when all three axes tie
    int expectedAxis;
  } scenes[] = {
      {{{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}}, -1, 2},
      {{{0, 1, 2}, {1, 0, 2}}, 2, 0},
      {{{0, 1, 2}, {0, 2, 1}}, 0, 2},
      {{{0, 1, 2}, {2, 1, 0}}, 1, 2},
  };
  for (const auto& scene : scenes) {
    Mesh soup = RandomSoup(60, 17, 1.0f, 0.3f), mesh;
    for (size_t i = scene.dearAxis; scene.dearAxis >= 0 && i < soup.vert.size(); i += 3) {
      soup.vert[i] *= 0.1f;
    }
    for (const auto& image : scene.images) {
      for (int t = 0; t < soup.TriCount(); ++t) {
        int32_t corner[3];
        for (int c = 0; c < 3; ++c) {
          const float* v = &soup.vert[3 * size_t(soup.tri[4 * t + c])];
          corner[c] = mesh.AddVertex(v[image[0]], v[image[1]], v[image[2]]);
        }
        mesh.AddTriangle(corner[0], corner[1], corner[2]);
      }
    }
    BuildCall call(mesh, KDParams(KDTreeAlgSAH, 1, 1.0f));
    ASSERT_EQ(call.Run(), vtqStsOk);
    ASSERT_FALSE(kdnode::IsLeaf(call.tree[0])) << scene.dearAxis;
    EXPECT_EQ(kdnode::SplitAxis(call.tree[0]), scene.expectedAxis) << scene.dearAxis;
  }
}

// Every tree passes the exact checker, which proves that no ray can pass through a triangle its
// leaves fail to list. A deep SAH tree over a surface must also be worth walking: far fewer
// expected triangle tests than one leaf of every triangle.
TEST(KDTreeBuildAlloc, TreesPassTheChecker) {
  Mesh mixed = UvSphere(10, 20, 1.5f, 4, 4, 1);
  mixed.Append(AxisAlignedGrid(8));
  mixed.Append(RandomSoup(150, 3, 4.0f, 0.5f));
  mixed.Append(Duplicated(UvSphere(4, 6, 0.5f, 2, 6, 0.5f), 3));
  const std::pair<const char*, Mesh> meshes[] = {{"mixed scene", mixed},
                                                 {"axis-aligned grid", AxisAlignedGrid(12)},
                                                 {"soup", RandomSoup(2000, 21, 1.0f, 0.2f)},
                                                 {"scan-like", BumpySphere(60, 90, 0.15f, 1)},
                                                 {"single", RandomSoup(1, 4)},
                                                 {"empty", Mesh()}};
  const VtqrKDTreeBuildParams params[] = {
      KDParams(KDTreeAlgSimple, 50),  KDParams(KDTreeAlgSAH, 50, 0),
      KDParams(KDTreeAlgSAH, 50, 1),  KDParams(KDTreeAlgSAH, 12, 0.5f),
      KDParams(KDTreeAlgSAH, 8, 1),   KDParams(KDTreeAlgSAH, 1, 0.3f),
      KDParams(KDTreeAlgSAH, 0, 0.5f)};
  for (const auto& [name, mesh] : meshes) {
    for (const VtqrKDTreeBuildParams& p : params) {
      SCOPED_TRACE(::testing::Message() << name << " algorithm " << p.algorithm << " depth "
                                        << p.maxDepth << " factor " << p.factor);
      BuildCall call(mesh, p);
      ASSERT_EQ(call.Run(), vtqStsOk);
      KDTreeStats stats;
      ASSERT_EQ(call.Check(mesh, {.maxDepth = p.maxDepth}, &stats), "");
      if (p.algorithm == KDTreeAlgSAH && p.maxDepth >= 8 && mesh.TriCount() > 100) {
        EXPECT_LT(stats.sahCost, 0.1 * mesh.TriCount());
      }
    }
  }
}

}  // namespace
}  // namespace vtqr::test
