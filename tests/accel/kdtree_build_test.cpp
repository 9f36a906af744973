// vtqrKDTreeBuildAlloc: argument checks and their order, one-leaf layouts, compact leaves, the
// SAH build's memory budget, and its split search against a plain sort-per-node sweep.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <functional>
#include <random>
#include <vector>

#include "accel/kdtree_events.h"
#include "accel/kdtree_node.h"
#include "accel/kdtree_sah.h"
#include "kdtree_test_util.h"

namespace vtqr::test {
namespace {

namespace kd = vtqr::u8::kdtree;
namespace kdnode = vtqr::kdnode;

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
  struct Row {
    uint32_t algorithm;
    int triCount;
    std::vector<int32_t> head;  // the leaf node and its padding
  };
  const Row rows[] = {{KDTreeAlgSimple, 0, {-16, 0, 0, 0}},
                      {KDTreeAlgSimple, 1, {-16, 1, 0, 0}},
                      {KDTreeAlgSimple, 7, {-16, 7, 0, 0}},
                      {KDTreeAlgSAH, 10, {-8, 10}}};
  for (const Row& row : rows) {
    Mesh mesh = RandomSoup(row.triCount, 3);
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
    int32_t a = leaf.w0 & 0x7FFFFFFF, m = (leaf.w1 & 0x7FFFFFFC) >> 2;
    std::vector<int32_t> decoded = {a};
    if ((leaf.w1 & 3) == 2) decoded = {a, m};
    if ((leaf.w1 & 3) == 3) decoded = {m - (a >> 16), m, m + (a & 0xFFFF)};
    EXPECT_TRUE(leaf.w0 < 0 && leaf.w1 < 0);
    EXPECT_EQ(decoded, ids);
    int32_t scratch[3];
    kdnode::LeafTriangles read = kdnode::ReadLeaf(&leaf, scratch);
    EXPECT_EQ(std::vector<int32_t>(read.ids, read.ids + read.count), ids);
  }
}

// Bytes charged before the first arena block: the context, thirteen per-triangle arrays and
// the two pools.
int64_t FixedCharge(int64_t vertCount, int64_t triCount) {
  auto pool = [](int64_t need) { return (need & ~int64_t{0xFFFFFF}) + (int64_t{1} << 24); };
  return 400 + 13 * 4 * triCount + pool(36 * triCount) + pool(48 * vertCount);
}
constexpr int64_t kArenaBlock = 0x1000028;

// Each boundary of the budget rule met exactly, and missed by the least a budget can miss it.
TEST(KDTreeBuildAlloc, BudgetBoundaries) {
  constexpr int64_t kMiB = 1 << 20;
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
  const Mesh soup = RandomSoup(141146, 1);
  ASSERT_EQ(FixedCharge(soup.VertCount(), soup.TriCount()) + kArenaBlock, 71 * kMiB);
  const Mesh small = RandomSoup(2, 1);
  struct Row {
    const char* name;
    const Mesh* mesh;
    int vertCount;
    unsigned maxDepth, memoryMB;
    VtqStatus expected;
  };
  const Row rows[] = {
      {"required 12 bytes over", &many, 2883545, 30, 65, vtqStsErrNoMem},
      {"required exactly the budget", &many, 2883544, 30, 65, vtqStsErrMemBudget},
      {"pools on unit boundaries, one MiB short", &noTriangles, 1048576, 30, 96,
       vtqStsErrMemBudget},
      {"pools on unit boundaries", &noTriangles, 1048576, 30, 97, vtqStsOk},
      {"block one MiB short", &soup, soup.VertCount(), 0, 70, vtqStsErrMemBudget},
      {"block exactly left", &soup, soup.VertCount(), 0, 71, vtqStsOk},
      // Passes the parameter check but leaves no room for a block.
      {"33 MiB", &small, small.VertCount(), 30, 33, vtqStsErrMemBudget},
  };
  for (const Row& row : rows) {
    BuildCall call(*row.mesh, KDParams(KDTreeAlgSAH, row.maxDepth, 0.5f, row.memoryMB));
    call.vertCount = row.vertCount;
    EXPECT_EQ(call.Run(), row.expected) << row.name;
    EXPECT_EQ(call.Untouched(), row.expected != vtqStsOk) << row.name;
  }
}

TEST(KDTreeBuildAlloc, ArenaExhaustedMidBuild) {
  // Budget for exactly one arena block, for a mesh whose tree needs more: the build stops with
  // the budget error and releases everything it took (ASan reports any leak).
  Mesh mesh = RandomSoup(150000, 7, 1.0f, 0.02f);
  int64_t fixed = FixedCharge(mesh.VertCount(), mesh.TriCount());
  unsigned memoryMB = static_cast<unsigned>((fixed + kArenaBlock + (1 << 20) - 1) >> 20);
  ASSERT_LT(int64_t{memoryMB} << 20, fixed + 2 * kArenaBlock);
  BuildCall tight(mesh, KDParams(KDTreeAlgSAH, 50, 1.0f, memoryMB));
  EXPECT_EQ(tight.Run(), vtqStsErrMemBudget);
  EXPECT_TRUE(tight.Untouched());
  // With room, the same tree indeed outgrows one block: 48 bytes a node, 4 a listed triangle.
  BuildCall roomy(mesh, KDParams(KDTreeAlgSAH, 50, 1.0f, 1024));
  ASSERT_EQ(roomy.Run(), vtqStsOk);
  KDTreeStats stats;
  KDTreeCheckOptions options;
  options.checkCoverage = false;
  EXPECT_EQ(CheckTree(roomy.tree, roomy.treeSize, mesh, options, &stats), "");
  EXPECT_GT(48 * stats.nodes + 4 * stats.triangleRefs, int64_t{1} << 24);
}

// Split search ---------------------------------------------------------------------------------

// `count` triangle boxes on a coarse grid (so starts, ends and flat triangles often coincide) in
// the cell [0, 8]^3, some reaching out of it.
std::vector<kd::Box> RandomBoxes(int count, uint32_t seed) {
  std::mt19937 rng(seed);
  std::uniform_int_distribution<int> grid(0, 8);
  std::vector<kd::Box> boxes(static_cast<size_t>(count));
  for (kd::Box& box : boxes) {
    for (int axis = 0; axis < 3; ++axis) {
      int a = grid(rng), b = rng() % 3 == 0 ? a : grid(rng);  // a third flat on each axis
      box.lo[axis] = 0.5f * std::min(a, b) - 1.0f;
      box.hi[axis] = 0.5f * std::max(a, b) + (rng() % 2 ? 3.0f : 0.0f);
      if (a == b) box.hi[axis] = box.lo[axis] = std::clamp(box.lo[axis], 0.0f, 8.0f);
    }
  }
  return boxes;
}

const kd::Box kCell = {{0, 0, 0}, {8, 8, 8}};

// The exact sweep written out plainly: the node's own clamped starts, ends and in-plane
// positions, sorted on the spot (ends before in-plane before starts at one position), fed to the
// same candidate rules.
kd::AxisSplit SearchSorted(const std::vector<kd::Box>& boxes, int axis) {
  kd::AxisSearch search(kd::MakeAxisFrame(kCell, axis, static_cast<int>(boxes.size())));
  float lo = kCell.lo[axis], hi = kCell.hi[axis], lowest = hi, highest = lo;
  std::vector<std::pair<float, int>> events;  // kind 0 end, 1 in plane, 2 start
  int flatLo = 0, flatHi = 0;
  for (const kd::Box& box : boxes) {
    float start = std::max(lo, box.lo[axis]), end = std::min(hi, box.hi[axis]);
    lowest = std::min(lowest, start);
    highest = std::max(highest, end);
    bool flat = box.lo[axis] == box.hi[axis];
    flatLo += flat && start == lo;
    flatHi += flat && start == hi;
    if (flat) events.push_back({start, 1});
    if (!flat) events.insert(events.end(), {{start, 2}, {end, 0}});
  }
  if (search.TryEmptySpace(lowest, highest)) return search.Result(1e9);
  search.FlatCandidates(flatLo, flatHi);
  std::sort(events.begin(), events.end());
  for (size_t i = 0; i < events.size();) {
    int counts[3] = {0, 0, 0};
    float x = events[i].first;
    for (; i < events.size() && events[i].first == x; ++i) ++counts[events[i].second];
    search.Position(x, counts[0], counts[1], counts[2]);
  }
  return search.Result(1e9);
}

kd::AxisSplit SearchEvents(const std::vector<kd::Box>& boxes, int axis,
                           const kd::Box& cell = kCell) {
  int n = static_cast<int>(boxes.size());
  std::vector<int32_t> ids(boxes.size());
  for (int i = 0; i < n; ++i) ids[i] = i;
  std::vector<kd::Event> lists(7 * boxes.size());
  kd::BuildRootEvents(boxes.data(), ids.data(), n, lists.data(), lists.data() + 6 * n);
  const kd::Event* starts = lists.data() + 2 * axis * n;
  return kd::SearchAxisEvents(starts, starts + n, n, cell, axis, 1e9);
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

TEST(KDTreeSplitSearch, EventListsMatchSortPerNodeSweep) {
  for (uint32_t seed = 0; seed < 300; ++seed) {
    std::vector<kd::Box> boxes = RandomBoxes(1 + seed % 150, seed);
    for (int axis = 0; axis < 3; ++axis) {
      kd::AxisSplit sorted = SearchSorted(boxes, axis), events = SearchEvents(boxes, axis);
      ASSERT_EQ(Bits(sorted.position), Bits(events.position)) << seed << " axis " << axis;
      ASSERT_EQ(sorted.cost, events.cost) << seed << " axis " << axis;
      ASSERT_EQ(sorted.planarBelow, events.planarBelow) << seed << " axis " << axis;
      ASSERT_EQ(std::make_pair(sorted.countBelow, sorted.countAbove),
                Sides(boxes, axis, sorted.position, sorted.planarBelow));
      ASSERT_EQ(std::make_pair(events.countBelow, events.countAbove),
                Sides(boxes, axis, sorted.position, sorted.planarBelow));
    }
  }
}

// Nodes without empty space: the sweep's cost is the minimum over every candidate the rules
// allow, each costed here in long double (faces carry the 0.7 discount for flat triangles lying
// in them).
TEST(KDTreeSplitSearch, SweepFindsCheapestPlane) {
  for (uint32_t seed = 0; seed < 100; ++seed) {
    std::vector<kd::Box> boxes = RandomBoxes(2 + seed % 60, 1000 + seed);
    boxes[0] = {{-1, -1, -1}, {9, 9, 9}};  // leaves no empty space at any face
    for (int axis = 0; axis < 3; ++axis) {
      const long double g = 4;  // ab / (a + b) for the other two extents, both 8
      long double best = 1e30L;
      for (int step = 0; step <= 16; ++step) {
        float x = 0.5f * step;
        bool flatFace = false;
        for (const kd::Box& box : boxes) flatFace |= box.lo[axis] == x && box.hi[axis] == x;
        for (bool planarBelow : {true, false}) {
          auto [below, above] = Sides(boxes, axis, x, planarBelow);
          long double cost = 16 * (below * (x + g) + above * (8 - x + g));
          if (flatFace && ((x == 0 && planarBelow) || (x == 8 && !planarBelow))) cost *= 0.7L;
          best = std::min(best, cost);
        }
      }
      double found = SearchEvents(boxes, axis).cost;
      EXPECT_NEAR(static_cast<double>(best), found, 1e-9 * found) << seed << " axis " << axis;
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
  for (const kd::AxisSplit& split : {SearchSorted(boxes, 0), SearchEvents(boxes, 0)}) {
    EXPECT_EQ(split.position, 4.5f);
    EXPECT_EQ(std::make_pair(split.countBelow, split.countAbove), std::make_pair(0, 20));
    EXPECT_DOUBLE_EQ(split.cost, 0.7 * 16.0 * 20 * (8.0 - 4.5 + 4.0));
  }
  // Exactly a tenth of the extent empty is not enough: the sweep decides, without the discount.
  for (kd::Box& box : boxes) box.lo[0] = std::max(box.lo[0] - 3.7f, 0.8f);
  kd::AxisSplit split = SearchEvents(boxes, 0);
  EXPECT_EQ(split.position, 0.8f);
  EXPECT_DOUBLE_EQ(split.cost, 16.0 * 20 * ((8.0 - double{0.8f}) + 4.0));
}

// Ties between axes, on scenes made symmetric by swapping axes: each triangle of a soup comes
// with its images, so the swapped axes have the same event lists and their best costs tie to the
// bit, while squashing the remaining axis makes it the dearest. x wins a tie with y; z wins a
// tie with the cheapest. The root's split axis shows the choice.
TEST(KDTreeSplitSearch, AxisTiesOnSymmetricScenes) {
  using Images = std::vector<std::array<int, 3>>;  // axis permutations applied to each triangle
  struct Scene {
    const char* name;
    Images images;
    int dearAxis;  // squashed; -1 when all three axes tie
    int expectedAxis;
  };
  const Images all = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
  const Scene scenes[] = {
      {"x, y and z alike", all, -1, 2},
      {"x and y alike, z dearer", {{0, 1, 2}, {1, 0, 2}}, 2, 0},
      {"y and z alike, x dearer", {{0, 1, 2}, {0, 2, 1}}, 0, 2},
      {"x and z alike, y dearer", {{0, 1, 2}, {2, 1, 0}}, 1, 2},
  };
  for (const Scene& scene : scenes) {
    SCOPED_TRACE(scene.name);
    Mesh soup = RandomSoup(60, 17, 1.0f, 0.3f);
    if (scene.dearAxis >= 0) {
      for (size_t i = scene.dearAxis; i < soup.vert.size(); i += 3) soup.vert[i] *= 0.1f;
    }
    Mesh mesh;
    std::vector<kd::Box> boxes;
    kd::Box cell = {{INFINITY, INFINITY, INFINITY}, {-INFINITY, -INFINITY, -INFINITY}};
    for (const auto& image : scene.images) {
      for (int t = 0; t < soup.TriCount(); ++t) {
        int32_t corner[3];
        kd::Box box = {{INFINITY, INFINITY, INFINITY}, {-INFINITY, -INFINITY, -INFINITY}};
        for (int c = 0; c < 3; ++c) {
          const float* v = &soup.vert[3 * size_t(soup.tri[4 * t + c])];
          corner[c] = mesh.AddVertex(v[image[0]], v[image[1]], v[image[2]]);
          for (int k = 0; k < 3; ++k) {
            box.lo[k] = std::min(box.lo[k], v[image[k]]);
            box.hi[k] = std::max(box.hi[k], v[image[k]]);
          }
        }
        mesh.AddTriangle(corner[0], corner[1], corner[2]);
        boxes.push_back(box);
        for (int k = 0; k < 3; ++k) {
          cell.lo[k] = std::min(cell.lo[k], box.lo[k]);
          cell.hi[k] = std::max(cell.hi[k], box.hi[k]);
        }
      }
    }
    // The premise: the tied axes' best costs are equal to the bit, the dear one's higher.
    double cost[3];
    for (int axis = 0; axis < 3; ++axis) cost[axis] = SearchEvents(boxes, axis, cell).cost;
    for (int axis = 0; axis < 3; ++axis) {
      const int other = (axis + 1) % 3;
      if (axis != scene.dearAxis && other != scene.dearAxis) {
        ASSERT_EQ(cost[axis], cost[other]) << "axes " << axis << " and " << other;
      }
      if (axis == scene.dearAxis) {
        ASSERT_GT(cost[axis], cost[other]);
      }
    }
    BuildCall call(mesh, KDParams(KDTreeAlgSAH, 1, 1.0f));
    ASSERT_EQ(call.Run(), vtqStsOk);
    ASSERT_FALSE(kdnode::IsLeaf(call.tree[0]));
    EXPECT_EQ(kdnode::SplitAxis(call.tree[0]), scene.expectedAxis);
  }
}

// Bounds of triangle ∩ box from the polygon's possible corners, in long double: triangle corners
// inside the box, triangle edges through the box's faces, box edges through the triangle. No
// corner means the triangle misses the box.
bool ReferenceClip(const std::array<long double, 9>& t, const kd::Box& box, long double lo[3],
                   long double hi[3]) {
  using P = std::array<long double, 3>;
  P v[3] = {{t[0], t[1], t[2]}, {t[3], t[4], t[5]}, {t[6], t[7], t[8]}};
  std::vector<P> corners;
  auto inside = [&](const P& p) {
    for (int k = 0; k < 3; ++k) {
      if (p[k] < box.lo[k] - 1e-12L || p[k] > box.hi[k] + 1e-12L) return false;
    }
    return true;
  };
  for (const P& p : v) {
    if (inside(p)) corners.push_back(p);
  }
  for (int e = 0; e < 3; ++e) {
    const P& p = v[e];
    const P& q = v[(e + 1) % 3];
    for (int k = 0; k < 3; ++k) {
      for (long double plane : {(long double)box.lo[k], (long double)box.hi[k]}) {
        if (p[k] == q[k]) continue;
        long double s = (plane - p[k]) / (q[k] - p[k]);
        if (s < 0 || s > 1) continue;
        P x;
        for (int j = 0; j < 3; ++j) x[j] = p[j] + s * (q[j] - p[j]);
        x[k] = plane;
        if (inside(x)) corners.push_back(x);
      }
    }
  }
  // Box edges along axis k at the corners (a, b) of the other two axes, against the triangle's
  // plane, kept when the barycentric coordinates lie in [0, 1].
  for (int k = 0; k < 3; ++k) {
    int ka = (k + 1) % 3, kb = (k + 2) % 3;
    for (long double a : {(long double)box.lo[ka], (long double)box.hi[ka]}) {
      for (long double b : {(long double)box.lo[kb], (long double)box.hi[kb]}) {
        // Solve v0 + u e1 + w e2 = (x along k, a, b) in the two fixed coordinates.
        long double e1a = v[1][ka] - v[0][ka], e2a = v[2][ka] - v[0][ka];
        long double e1b = v[1][kb] - v[0][kb], e2b = v[2][kb] - v[0][kb];
        long double det = e1a * e2b - e2a * e1b;
        if (det == 0) continue;
        long double ra = a - v[0][ka], rb = b - v[0][kb];
        long double u = (ra * e2b - e2a * rb) / det, w = (e1a * rb - ra * e1b) / det;
        if (u < 0 || w < 0 || u + w > 1) continue;
        P x;
        x[k] = v[0][k] + u * (v[1][k] - v[0][k]) + w * (v[2][k] - v[0][k]);
        x[ka] = a;
        x[kb] = b;
        if (inside(x)) corners.push_back(x);
      }
    }
  }
  if (corners.empty()) return false;
  for (int k = 0; k < 3; ++k) {
    lo[k] = hi[k] = corners[0][k];
    for (const P& p : corners) lo[k] = std::min(lo[k], p[k]), hi[k] = std::max(hi[k], p[k]);
  }
  return true;
}

// Clipped bounds hold every point of the triangle in the cell, lie within a few float steps of
// the exact bounds, and a triangle is dropped only when it misses the cell. Flat triangles stay
// flat. Grid coordinates make corners and edges land exactly on cell faces.
TEST(KDTreeClip, ClippedBoundsAreConservativeAndTight) {
  std::mt19937 rng(7);
  std::uniform_int_distribution<int> grid(-8, 8);
  std::uniform_real_distribution<float> real(-1.0f, 1.0f);
  int dropped = 0, tightened = 0;
  for (int i = 0; i < 20000; ++i) {
    bool onGrid = i % 2 == 0;
    auto coordinate = [&] { return onGrid ? grid(rng) / 8.0f : real(rng); };
    std::array<float, 9> t;
    for (float& x : t) x = coordinate();
    if (i % 5 == 0) t[2] = t[5] = t[8];  // flat in z
    kd::Box box, cell;
    for (int k = 0; k < 3; ++k) {
      box.lo[k] = std::min({t[k], t[3 + k], t[6 + k]});
      box.hi[k] = std::max({t[k], t[3 + k], t[6 + k]});
      float a = coordinate(), b = coordinate();
      cell.lo[k] = std::min(a, b);
      cell.hi[k] = std::max(a, b);
    }
    std::array<long double, 9> exact;
    for (int j = 0; j < 9; ++j) exact[j] = t[j];
    long double lo[3], hi[3];
    bool meets = ReferenceClip(exact, cell, lo, hi);
    kd::Box clipped;
    bool kept = kd::ClipTriangle(&t[0], &t[3], &t[6], box, cell, &clipped);
    ASSERT_TRUE(kept || !meets) << "case " << i;
    dropped += !kept;
    if (!kept || !meets) continue;
    for (int k = 0; k < 3; ++k) {
      ASSERT_LE(clipped.lo[k], lo[k]) << "case " << i << " axis " << k;
      ASSERT_GE(clipped.hi[k], hi[k]) << "case " << i << " axis " << k;
      ASSERT_LE(lo[k] - clipped.lo[k], 0x1p-22L) << "case " << i << " axis " << k;
      ASSERT_LE(clipped.hi[k] - hi[k], 0x1p-22L) << "case " << i << " axis " << k;
      tightened += clipped.hi[k] - clipped.lo[k] < box.hi[k] - box.lo[k];
    }
    if (i % 5 == 0) {
      ASSERT_EQ(Bits(clipped.lo[2]), Bits(clipped.hi[2])) << "case " << i;
    }
  }
  // The cases must exercise both outcomes.
  EXPECT_GT(dropped, 1000);
  EXPECT_GT(tightened, 1000);
}

}  // namespace
}  // namespace vtqr::test
