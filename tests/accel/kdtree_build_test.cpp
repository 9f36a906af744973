// vtqrKDTreeBuildAlloc: argument checks and their order, the single-leaf layout, the SAH
// build's memory budget, its split rules, and its trees against the checker.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <algorithm>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "accel/kdtree_check.h"
#include "accel/kdtree_events.h"
#include "accel/kdtree_layout.h"
#include "accel/kdtree_sah.h"
#include "tools/mesh/mesh_loader.h"
#include "test_util.h"
#include "vtqr.h"

namespace vtqr::test {
namespace {

namespace kd = vtqr::u8::kdtree;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

VtqrKDTreeBuildParams SahParams(unsigned maxDepth = 30, float factor = 0.5f,
                                unsigned memoryMB = 512) {
  VtqrKDTreeBuildParams params{};
  params.algorithm = KDTreeAlgSAH;
  params.maxDepth = maxDepth;
  params.factor = factor;
  params.memoryMB = memoryMB;
  return params;
}

VtqrKDTreeBuildParams SimpleParams() {
  VtqrKDTreeBuildParams params{};
  params.algorithm = KDTreeAlgSimple;
  return params;
}

// Non-null stand-ins for the arrays of an empty mesh.
const Vtq32f kNoVert[3] = {};
const Vtq32s kNoTri[4] = {};

// One call of the builder through the dispatch table, with sentinels in both outputs.
struct BuildCall {
  const Mesh* mesh;
  VtqrKDTreeBuildParams params;
  VtqrKDTreeNode** ppTree;
  const Vtq32f* pVert;
  const Vtq32s* pTriIndex;
  int vertCount;
  int triCount;
  int* pTreeSize;
  const VtqrKDTreeBuildParams* pParams;

  VtqrKDTreeNode* tree = reinterpret_cast<VtqrKDTreeNode*>(uintptr_t{0xA5A5A5A0});
  int treeSize = 0x5A5A5A5A;

  explicit BuildCall(const Mesh& m, const VtqrKDTreeBuildParams& p)
      : mesh(&m), params(p), ppTree(&tree), pVert(m.vert.empty() ? kNoVert : m.vert.data()),
        pTriIndex(m.tri.empty() ? kNoTri : m.tri.data()),
        vertCount(m.VertCount()), triCount(m.TriCount()), pTreeSize(&treeSize),
        pParams(&params) {}
  BuildCall(const BuildCall&) = delete;

  VtqStatus Run() {
    return kDispatchTable.KDTreeBuildAlloc[kPathU8](ppTree, pVert, pTriIndex, vertCount,
                                                    triCount, pTreeSize, pParams);
  }
  bool Untouched() const {
    return tree == reinterpret_cast<VtqrKDTreeNode*>(uintptr_t{0xA5A5A5A0}) &&
           treeSize == 0x5A5A5A5A;
  }
  const int32_t* Words() const { return reinterpret_cast<const int32_t*>(tree); }
  ~BuildCall() {
    if (!Untouched()) kDispatchTable.KDTreeFree[kPathU8](tree);
  }
};

Mesh TwoTriangles() {
  Mesh mesh;
  mesh.AddTriangle(mesh.AddVertex(0, 0, 0), mesh.AddVertex(1, 0, 0), mesh.AddVertex(0, 1, 0));
  mesh.AddTriangle(mesh.AddVertex(0, 0, 1), mesh.AddVertex(1, 0, 1), mesh.AddVertex(0, 1, 2));
  return mesh;
}

TEST(KDTreeBuildAlloc, ChecksInOrderAndWriteNothingOnFailure) {
  Mesh mesh = TwoTriangles();
  struct Row {
    const char* name;
    std::function<void(BuildCall&)> change;
    VtqStatus expected;
  };
  const Row rows[] = {
      {"ppTree null", [](BuildCall& c) { c.ppTree = nullptr; }, vtqStsErrNullPtr},
      {"pVert null", [](BuildCall& c) { c.pVert = nullptr; }, vtqStsErrNullPtr},
      {"pTriIndex null", [](BuildCall& c) { c.pTriIndex = nullptr; }, vtqStsErrNullPtr},
      {"pTreeSize null", [](BuildCall& c) { c.pTreeSize = nullptr; }, vtqStsErrNullPtr},
      {"vertCount < 0", [](BuildCall& c) { c.vertCount = -1; }, vtqStsErrSize},
      {"triCount < 0", [](BuildCall& c) { c.triCount = INT_MIN; }, vtqStsErrSize},
      {"pParams null", [](BuildCall& c) { c.pParams = nullptr; }, vtqStsErrNullPtr},
      {"bad selector", [](BuildCall& c) { c.params.algorithm = 0; }, vtqStsErrBadArg},
      {"maxDepth 51", [](BuildCall& c) { c.params.maxDepth = 51; }, vtqStsErrOutOfRange},
      {"maxDepth huge (unsigned)", [](BuildCall& c) { c.params.maxDepth = 0x80000000u; },
       vtqStsErrOutOfRange},
      {"factor below 0", [](BuildCall& c) { c.params.factor = -1e-7f; }, vtqStsErrOutOfRange},
      {"factor above 1", [](BuildCall& c) { c.params.factor = 1.0000001f; },
       vtqStsErrOutOfRange},
      {"factor NaN", [](BuildCall& c) { c.params.factor = kNaN; }, vtqStsErrOutOfRange},
      {"memoryMB 31", [](BuildCall& c) { c.params.memoryMB = 31; }, vtqStsErrNoMem},
      {"memoryMB 0", [](BuildCall& c) { c.params.memoryMB = 0; }, vtqStsErrNoMem},
      // 8192 << 19 wraps to 0 in 32 bits.
      {"memoryMB 8192", [](BuildCall& c) { c.params.memoryMB = 8192; }, vtqStsErrNoMem},
      // 32 MiB passes the parameter test but is always 480 bytes short of the fixed need.
      {"memoryMB 32", [](BuildCall& c) { c.params.memoryMB = 32; }, vtqStsErrNoMem},
      // Combinations: the earlier check decides.
      {"null before size", [](BuildCall& c) { c.pVert = nullptr; c.triCount = -1; },
       vtqStsErrNullPtr},
      {"size before params null", [](BuildCall& c) { c.vertCount = -1; c.pParams = nullptr; },
       vtqStsErrSize},
      {"selector before depth",
       [](BuildCall& c) { c.params.algorithm = KDTreeAlgSimple + 1; c.params.maxDepth = 99; },
       vtqStsErrBadArg},
      {"depth before factor",
       [](BuildCall& c) { c.params.maxDepth = 51; c.params.factor = 2; }, vtqStsErrOutOfRange},
      {"factor before memory",
       [](BuildCall& c) { c.params.factor = 2; c.params.memoryMB = 0; }, vtqStsErrOutOfRange},
      {"Simple checks depth",
       [](BuildCall& c) { c.params = SimpleParams(); c.params.maxDepth = 51; },
       vtqStsErrOutOfRange},
  };
  for (const Row& row : rows) {
    BuildCall call(mesh, SahParams());
    row.change(call);
    EXPECT_EQ(call.Run(), row.expected) << row.name;
    EXPECT_TRUE(call.Untouched()) << row.name;
  }
}

TEST(KDTreeBuildAlloc, AcceptsParameterBounds) {
  Mesh mesh = TwoTriangles();
  struct Row {
    const char* name;
    VtqrKDTreeBuildParams params;
  };
  VtqrKDTreeBuildParams simpleIgnoresSahFields = SimpleParams();
  simpleIgnoresSahFields.factor = kNaN;
  simpleIgnoresSahFields.maxDepth = 50;
  VtqrKDTreeBuildParams reservedSet = SahParams();
  reservedSet.reserved = ~Vtq64u{0};
  const Row rows[] = {
      {"maxDepth 50", SahParams(50)},
      {"factor 0", SahParams(30, 0.0f)},
      {"factor 1", SahParams(30, 1.0f)},
      {"factor -0", SahParams(30, -0.0f)},
      {"Simple ignores factor and budget", simpleIgnoresSahFields},
      {"fifth field ignored", reservedSet},
  };
  for (const Row& row : rows) {
    BuildCall call(mesh, row.params);
    EXPECT_EQ(call.Run(), vtqStsOk) << row.name;
    EXPECT_FALSE(call.Untouched()) << row.name;
  }
}

TEST(KDTreeBuildAlloc, SimpleTreeLayout) {
  for (int triCount : {0, 1, 7}) {
    Mesh mesh;
    int32_t v = mesh.AddVertex(0, 0, 0);
    for (int i = 0; i < triCount; ++i) mesh.AddTriangle(v, v, v);
    BuildCall call(mesh, SimpleParams());
    ASSERT_EQ(call.Run(), vtqStsOk);
    ASSERT_EQ(call.treeSize, 4 * triCount + 16);
    std::vector<int32_t> expected = {-16, triCount, 0, 0};
    for (int i = 0; i < triCount; ++i) expected.push_back(i);
    EXPECT_EQ(std::vector<int32_t>(call.Words(), call.Words() + expected.size()), expected)
        << triCount << " triangles";
  }
}

// Decodes a compact leaf the way the traversal reads it.
std::vector<int32_t> DecodeCompact(int32_t w0, int32_t w1) {
  int n = w1 & 3;
  int32_t a = w0 & 0x7FFFFFFF;
  int32_t m = (w1 & 0x7FFFFFFC) >> 2;
  if (n == 1) return {a};
  if (n == 2) return {a, m};
  return {m - (a >> 16), m, m + (a & 0xFFFF)};
}

TEST(KDTreeLayout, CompactLeavesRoundTripAtTheirLimits) {
  constexpr int32_t kM = (1 << 29) - 1;  // largest number the second word holds
  struct Row {
    std::vector<int32_t> ids;
    bool fits;
  };
  const Row rows[] = {
      {{0}, true},
      {{INT_MAX}, true},
      {{5, kM}, true},
      {{5, kM + 1}, false},
      {{INT_MAX - 1, INT_MAX}, false},
      {{100, 100 + 32767, 100 + 32767 + 65535}, true},
      {{100, 100 + 32768, 100 + 32769}, false},
      {{100, 101, 101 + 65536}, false},
      {{kM - 1, kM, kM + 1}, true},
      {{kM, kM + 1, kM + 2}, false},
      {{kM - 2, kM - 1, kM}, true},
      {{1, 2, 3, 4}, false},
  };
  for (const Row& row : rows) {
    int32_t w0 = 0;
    int32_t w1 = 0;
    bool fits = kd::EncodeCompactLeaf(row.ids.data(), static_cast<int>(row.ids.size()), &w0, &w1);
    EXPECT_EQ(fits, row.fits) << row.ids.size() << " ids from " << row.ids[0];
    if (!fits || !row.fits) continue;
    EXPECT_LT(w0, 0);
    EXPECT_LT(w1, 0);
    EXPECT_EQ(DecodeCompact(w0, w1), row.ids);
  }
}

// Bytes charged before the first arena block: the context, thirteen per-triangle arrays and
// the two pools.
int64_t FixedCharge(int64_t vertCount, int64_t triCount) {
  auto pool = [](int64_t need) { return (need & ~int64_t{0xFFFFFF}) + (int64_t{1} << 24); };
  return 400 + 13 * 4 * triCount + pool(36 * triCount) + pool(48 * vertCount);
}

TEST(KDTreeBuildAlloc, BudgetBoundaries) {
  constexpr int64_t kBlock = 0x1000028;
  // Required bytes 12 v + 84 t + 33554912 against a 64 MiB budget: with no triangles, 2796162
  // vertices need 8 bytes less than the budget, one more vertex 4 bytes more.
  Mesh many;
  many.vert.assign(3 * 2796163, 0.0f);
  {
    BuildCall call(many, SahParams(30, 0.5f, 64));
    call.vertCount = 2796163;
    EXPECT_EQ(call.Run(), vtqStsErrNoMem);
    EXPECT_TRUE(call.Untouched());
  }
  {
    // Passes the up-front test, then the per-vertex pool overdraws the budget.
    BuildCall call(many, SahParams(30, 0.5f, 64));
    call.vertCount = 2796162;
    EXPECT_EQ(call.Run(), vtqStsErrMemBudget);
    EXPECT_TRUE(call.Untouched());
  }
  // A small mesh needs one arena block beyond the fixed charges: 33 MiB pass the parameter
  // test but leave no block; the smallest budget that leaves one builds.
  Mesh small = TwoTriangles();
  int64_t need = FixedCharge(small.VertCount(), small.TriCount()) + kBlock;
  unsigned enough = static_cast<unsigned>((need + (1 << 20) - 1) >> 20);
  struct Row {
    unsigned memoryMB;
    VtqStatus expected;
  };
  for (Row row : {Row{33, vtqStsErrMemBudget}, Row{enough - 1, vtqStsErrMemBudget},
                  Row{enough, vtqStsOk}}) {
    BuildCall call(small, SahParams(30, 0.5f, row.memoryMB));
    EXPECT_EQ(call.Run(), row.expected) << row.memoryMB << " MiB";
    EXPECT_EQ(call.Untouched(), row.expected != vtqStsOk) << row.memoryMB << " MiB";
  }
}

TEST(KDTreeBuildAlloc, ArenaExhaustedMidBuild) {
  // Enough budget for exactly one 16 MiB block of build nodes and leaf lists, for a mesh whose
  // tree needs more: the build must stop with the budget error and release what it took.
  Mesh mesh = RandomSoup(150000, 7, 1.0f, 0.02f);
  int64_t fixed = FixedCharge(mesh.VertCount(), mesh.TriCount());
  unsigned memoryMB = static_cast<unsigned>((fixed + 0x1000028 + (1 << 20) - 1) >> 20);
  ASSERT_LT(int64_t{memoryMB} << 20, fixed + 2 * 0x1000028);
  {
    BuildCall call(mesh, SahParams(50, 1.0f, memoryMB));
    EXPECT_EQ(call.Run(), vtqStsErrMemBudget);
    EXPECT_TRUE(call.Untouched());
  }
  BuildCall call(mesh, SahParams(50, 1.0f, 1024));
  ASSERT_EQ(call.Run(), vtqStsOk);
  KDTreeStats stats;
  KDTreeCheckOptions options;
  options.checkCoverage = false;
  KDTreeMesh checked{mesh.vert.data(), mesh.tri.data(), mesh.VertCount(), mesh.TriCount()};
  EXPECT_EQ(CheckKDTree(call.tree, call.treeSize, checked, options, &stats), "");
  // Every node was a 48-byte build record, every listed triangle a 4-byte entry.
  EXPECT_GT(48 * stats.nodes + 4 * stats.triangleRefs, int64_t{1} << 24);
}

TEST(KDTreeBuildAlloc, MaxDepthZeroGivesOneLeaf) {
  Mesh mesh = RandomSoup(10, 3);
  BuildCall call(mesh, SahParams(0, 1.0f));
  ASSERT_EQ(call.Run(), vtqStsOk);
  ASSERT_EQ(call.treeSize, 8 + 4 * 10);
  EXPECT_EQ(call.Words()[0], -8);
  EXPECT_EQ(call.Words()[1], 10);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(call.Words()[2 + i], i);

  Mesh three = RandomSoup(3, 4);
  BuildCall compact(three, SahParams(0, 1.0f));
  ASSERT_EQ(compact.Run(), vtqStsOk);
  ASSERT_EQ(compact.treeSize, 8);
  EXPECT_EQ(DecodeCompact(compact.Words()[0], compact.Words()[1]),
            (std::vector<int32_t>{0, 1, 2}));
}

// A node for the split search: `count` triangles with coordinates on a coarse grid (so starts,
// ends and flat triangles coincide often) inside `cell`.
struct SearchNode {
  std::vector<kd::Box> boxes;
  std::vector<int32_t> ids;
  kd::Box cell;
};

SearchNode RandomNode(int count, uint32_t seed) {
  std::mt19937 rng(seed);
  std::uniform_int_distribution<int> grid(0, 8);
  SearchNode node;
  node.cell = {{0, 0, 0}, {8, 8, 8}};
  for (int i = 0; i < count; ++i) {
    kd::Box box;
    for (int axis = 0; axis < 3; ++axis) {
      int a = grid(rng);
      int b = rng() % 3 == 0 ? a : grid(rng);  // a third flat on each axis
      box.lo[axis] = 0.5f * std::min(a, b) - 1.0f;  // some reach out of the cell
      box.hi[axis] = 0.5f * std::max(a, b) + (rng() % 2 ? 3.0f : 0.0f);
      if (a == b) box.hi[axis] = box.lo[axis] = std::clamp(box.lo[axis], 0.0f, 8.0f);
    }
    node.boxes.push_back(box);
    node.ids.push_back(i);
  }
  return node;
}

// The exact sweep written out plainly: the node's own clamped starts, ends and in-plane
// positions, sorted on the spot (ends before in-plane before starts at one position), fed to the
// same candidate rules. The builder's presorted lists must reproduce it exactly.
kd::AxisSplit SearchSorted(const SearchNode& node, int axis, double leafCost) {
  int n = static_cast<int>(node.ids.size());
  kd::AxisSearch search(kd::MakeAxisFrame(node.cell, axis, n));
  float lo = node.cell.lo[axis];
  float hi = node.cell.hi[axis];
  std::vector<std::pair<float, int>> events;  // 0 end, 1 in plane, 2 start
  float lowest = hi;
  float highest = lo;
  int flatLo = 0;
  int flatHi = 0;
  for (int id : node.ids) {
    const kd::Box& box = node.boxes[id];
    float start = std::max(lo, box.lo[axis]);
    float end = std::min(hi, box.hi[axis]);
    lowest = std::min(lowest, start);
    highest = std::max(highest, end);
    if (box.lo[axis] == box.hi[axis]) {
      events.push_back({start, 1});
      flatLo += start == lo;
      flatHi += start == hi;
    } else {
      events.push_back({start, 2});
      events.push_back({end, 0});
    }
  }
  if (search.TryEmptySpace(lowest, highest)) return search.Result(leafCost);
  search.FlatCandidates(flatLo, flatHi);
  std::sort(events.begin(), events.end());
  for (size_t i = 0; i < events.size();) {
    float x = events[i].first;
    int counts[3] = {0, 0, 0};
    for (; i < events.size() && events[i].first == x; ++i) ++counts[events[i].second];
    search.Position(x, counts[0], counts[1], counts[2]);
  }
  return search.Result(leafCost);
}

kd::AxisSplit SearchEvents(const SearchNode& node, int axis, double leafCost) {
  int n = static_cast<int>(node.ids.size());
  std::vector<kd::Event> lists(7 * n);
  kd::BuildRootEvents(node.boxes.data(), node.ids.data(), n, lists.data(), lists.data() + 6 * n);
  const kd::Event* starts = lists.data() + 2 * axis * n;
  return kd::SearchAxisEvents(starts, starts + n, n, node.cell, axis, leafCost);
}

TEST(KDTreeSplitSearch, EventListsMatchExactSweep) {
  for (uint32_t seed = 0; seed < 300; ++seed) {
    // Small and large nodes alike, up to 150 triangles.
    SearchNode node = RandomNode(1 + seed % 150, seed);
    for (int axis = 0; axis < 3; ++axis) {
      kd::AxisSplit sorted = SearchSorted(node, axis, 1e9);
      kd::AxisSplit events = SearchEvents(node, axis, 1e9);
      ASSERT_EQ(Bits(sorted.position), Bits(events.position)) << seed << " axis " << axis;
      ASSERT_EQ(sorted.cost, events.cost) << seed << " axis " << axis;
      ASSERT_EQ(sorted.countBelow, events.countBelow) << seed;
      ASSERT_EQ(sorted.countAbove, events.countAbove) << seed;
      ASSERT_EQ(sorted.planarBelow, events.planarBelow) << seed;
      // The counts name the triangles each side receives.
      int below = 0;
      int above = 0;
      for (const kd::Box& box : node.boxes) {
        float lo = std::max(node.cell.lo[axis], box.lo[axis]);
        float hi = std::min(node.cell.hi[axis], box.hi[axis]);
        int side = kd::Side(lo, hi, sorted.position, sorted.planarBelow);
        below += side & 1;
        above += side >> 1;
      }
      ASSERT_EQ(below, sorted.countBelow) << seed << " axis " << axis;
      ASSERT_EQ(above, sorted.countAbove) << seed << " axis " << axis;
    }
  }
}

// Brute force over every candidate the rules allow, in long double, for nodes without empty
// space: the sweep's cost must be the minimum.
TEST(KDTreeSplitSearch, SweepFindsCheapestPlane) {
  for (uint32_t seed = 0; seed < 100; ++seed) {
    SearchNode node = RandomNode(2 + seed % 60, 1000 + seed);
    // Widen the node's triangles so that none leaves empty space at the cell's faces.
    node.boxes[0] = {{-1, -1, -1}, {9, 9, 9}};
    for (int axis = 0; axis < 3; ++axis) {
      kd::AxisSplit found = SearchEvents(node, axis, 1e9);
      long double a = 8, b = 8, g = a * b / (a + b);
      long double best = 1e30L;
      for (int step = 0; step <= 16; ++step) {
        float x = 0.5f * step;
        for (bool planarBelow : {true, false}) {
          int below = 0;
          int above = 0;
          for (const kd::Box& box : node.boxes) {
            float lo = std::max(0.0f, box.lo[axis]);
            float hi = std::min(8.0f, box.hi[axis]);
            int side = kd::Side(lo, hi, x, planarBelow);
            below += side & 1;
            above += side >> 1;
          }
          long double cost = below * (x + g) + above * (8 - x + g);
          // Faces carry the 0.7 discount when flat triangles lie in them.
          bool flatFace = false;
          for (const kd::Box& box : node.boxes) {
            flatFace |= box.lo[axis] == box.hi[axis] && box.lo[axis] == x && (x == 0 || x == 8);
          }
          if (flatFace && ((x == 0 && planarBelow) || (x == 8 && !planarBelow))) cost *= 0.7L;
          best = std::min(best, cost * (a + b));
        }
      }
      EXPECT_NEAR(static_cast<double>(best), found.cost, 1e-9 * found.cost) << seed;
    }
  }
}

TEST(KDTreeSplitSearch, EmptySpaceIsCutFirst) {
  // Two clusters in x: [4.5, 5] and [7.5, 8] of the cell [0, 8]. A sweep would split between
  // them, but the empty space below 4.5 is cut first, whatever the sweep could offer.
  SearchNode node;
  node.cell = {{0, 0, 0}, {8, 8, 8}};
  for (int i = 0; i < 20; ++i) {
    float x = i % 2 ? 4.5f : 7.5f;
    node.boxes.push_back({{x, 0, 0}, {x + 0.5f, 8, 8}});
    node.ids.push_back(i);
  }
  int n = 20;
  for (bool events : {false, true}) {
    kd::AxisSplit split = events ? SearchEvents(node, 0, 1e9) : SearchSorted(node, 0, 1e9);
    EXPECT_EQ(split.position, 4.5f);
    EXPECT_EQ(split.countBelow, 0);
    EXPECT_EQ(split.countAbove, n);
    double g = 64.0 / 16.0;
    EXPECT_DOUBLE_EQ(split.cost, 0.7 * 16.0 * n * (8.0 - 4.5 + g));
  }
  // Exactly a tenth of empty space is not enough: the sweep decides, without the discount.
  for (kd::Box& box : node.boxes) box.lo[0] = std::max(box.lo[0] - 3.7f, 0.8f);
  kd::AxisSplit split = SearchEvents(node, 0, 1e9);
  EXPECT_EQ(split.position, 0.8f);
  EXPECT_DOUBLE_EQ(split.cost, 16.0 * n * ((8.0 - double{0.8f}) + 4.0));
}

// SAH trees of generated meshes, read back by the checker.
TEST(KDTreeBuildAlloc, SahTreesPassTheChecker) {
  struct Row {
    const char* name;
    Mesh mesh;
    VtqrKDTreeBuildParams params;
  };
  Mesh sphereGrid = UvSphere(24, 48, 1.5f, 4, 4, 0.5f);
  sphereGrid.Append(AxisAlignedGrid(8));
  const Row rows[] = {
      {"sphere", UvSphere(40, 80), SahParams(30, 0.5f)},
      {"sphere factor 0", UvSphere(40, 80), SahParams(30, 0.0f)},
      {"sphere factor 1, depth 8", UvSphere(40, 80), SahParams(8, 1.0f)},
      {"soup", RandomSoup(3000, 11, 1.0f, 0.2f), SahParams(50, 1.0f)},
      {"axis-aligned grid", AxisAlignedGrid(12), SahParams(40, 1.0f)},
      {"sphere in a grid", sphereGrid, SahParams(50, 0.7f)},
      {"duplicates", Duplicated(UvSphere(8, 16), 5), SahParams(50, 1.0f)},
      {"empty mesh", Mesh(), SahParams(30, 0.5f)},
  };
  for (const Row& row : rows) {
    BuildCall call(row.mesh, row.params);
    ASSERT_EQ(call.Run(), vtqStsOk) << row.name;
    KDTreeMesh mesh{row.mesh.vert.data(), row.mesh.tri.data(), row.mesh.VertCount(),
                    row.mesh.TriCount()};
    KDTreeCheckOptions options;
    options.maxDepth = row.params.maxDepth;
    KDTreeStats stats;
    EXPECT_EQ(CheckKDTree(call.tree, call.treeSize, mesh, options, &stats), "") << row.name;
    if (row.mesh.TriCount() > 100) {
      EXPECT_GT(stats.leaves, 10) << row.name;
    }
  }
}

}  // namespace
}  // namespace vtqr::test
