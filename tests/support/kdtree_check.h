// Structural and geometric checker for KD-tree blocks.
//
// A tree block is only ever read by the traversal, which trusts it completely: a bad child
// offset or a triangle missing from a leaf shows up as a crash or as a ray that passes through a
// surface. CheckKDTree() reads a block the way the traversal does, but verifies every offset
// first, and then proves, with exact arithmetic, that no triangle can be missed.
//
// Test support, not part of the library: the builder's tests and the benchmarks call it, and
// the traversal's tests can check the trees they walk.
#ifndef VTQR_TESTS_SUPPORT_KDTREE_CHECK_H_
#define VTQR_TESTS_SUPPORT_KDTREE_CHECK_H_

#include <cstdint>
#include <string>

#include "accel/kdtree_node.h"
#include "vtqr/accel.h"

namespace vtqr {

// The mesh the tree was built over (packed xyz vertices, four int32 per triangle).
struct KDTreeMesh {
  const Vtq32f* vert = nullptr;
  const Vtq32s* triIndex = nullptr;
  int vertCount = 0;
  int triCount = 0;
};

struct KDTreeCheckOptions {
  // Deepest allowed node; the root has depth 0. Defaults to the deepest a build may create.
  unsigned maxDepth = kdnode::kMaxDepth;
  // Root cell (x min, y min, z min, x max, y max, z max), normally the box from
  // vtqrSetBoundBox_32f. Null: the exact bounds of the triangles' vertices. Any box holding the
  // whole mesh gives the same verdict; the box only scales the cost figures below.
  const Vtq32f* rootBox = nullptr;
  // Also prove that every triangle is listed wherever a ray could meet it. This walks the tree
  // once per triangle; turn it off to read only the statistics of a large tree.
  bool checkCoverage = true;
};

struct KDTreeStats {
  int64_t nodes = 0;  // every node reached from the root
  int64_t interiorNodes = 0;
  int64_t leaves = 0;
  int64_t emptyLeaves = 0;
  int64_t compactLeaves = 0;   // leaves holding their one to three indices in the node itself
  int64_t triangleRefs = 0;    // total length of all leaf lists
  double averageLeafSize = 0;  // triangleRefs / non-empty leaves
  int maxDepth = 0;            // deepest leaf
  // Surface-area estimates for a random ray that meets the root cell: the expected number of
  // interior nodes it visits and of triangle tests it makes. sahCost is their sum (unit costs),
  // the usual figure for comparing two trees over the same mesh.
  double expectedTraversals = 0;
  double expectedTriangleTests = 0;
  double sahCost = 0;
};

// Checks the block of treeSize bytes that starts with the root node. Returns an empty string for
// a good tree, otherwise a description of the first fault found. The statistics are filled
// whenever the structure could be read (even if the coverage check then fails).
//
// Structure: every node lies inside the block; interior nodes name axis 0..2, a non-NaN split
// and a child pair inside the block; no node is reached twice (which also rules out cycles);
// no node is deeper than maxDepth; leaf lists are 4-byte aligned, inside the block, not on top
// of a node, and compact leaves count 1 to 3; every index is below triCount.
//
// Coverage: each leaf owns a closed cell, the root box cut by the splits above it. A triangle
// must be listed in every leaf whose cell interior it meets. A triangle that only touches a
// cell's boundary need not be listed there, because the neighbouring cell holds the same points
// and the traversal visits one or the other. A triangle lying flat in an axis plane that
// coincides with cell faces (typically a split plane) meets no interior; it must instead be
// covered up to a set of zero area by the closed cells of the leaves listing it, so one side of
// the split is enough. Zero-area triangles and triangles with non-finite vertices are exempt:
// the ray/triangle test never reports them. All decisions use exact arithmetic (a filtered
// double evaluation falling back to floating-point expansions), so the verdict is independent
// of rounding; only coordinates so small that their cubes underflow a double are outside that
// promise.
std::string CheckKDTree(const VtqrKDTreeNode* tree, int64_t treeSize, const KDTreeMesh& mesh,
                        const KDTreeCheckOptions& options = {}, KDTreeStats* stats = nullptr);

}  // namespace vtqr

#endif  // VTQR_TESTS_SUPPORT_KDTREE_CHECK_H_
