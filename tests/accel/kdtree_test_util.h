// Shared by the KD-tree tests: one builder call with sentinel outputs, and the checker on a Mesh.
#ifndef VTQR_TESTS_ACCEL_KDTREE_TEST_UTIL_H_
#define VTQR_TESTS_ACCEL_KDTREE_TEST_UTIL_H_

#include <cstdint>
#include <string>

#include "support/kdtree_check.h"
#include "support/mesh_loader.h"
#include "test_util.h"
#include "vtqr.h"

namespace vtqr::test {

inline VtqrKDTreeBuildParams KDParams(uint32_t algorithm, unsigned maxDepth = 30,
                                      float factor = 0.5f, unsigned memoryMB = 512) {
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
};

inline std::string CheckTree(const void* tree, int64_t bytes, const Mesh& mesh,
                             KDTreeCheckOptions options = {}, KDTreeStats* stats = nullptr) {
  KDTreeMesh view{mesh.vert.data(), mesh.tri.data(), mesh.VertCount(), mesh.TriCount()};
  return CheckKDTree(static_cast<const VtqrKDTreeNode*>(tree), bytes, view, options, stats);
}

}  // namespace vtqr::test

#endif  // VTQR_TESTS_ACCEL_KDTREE_TEST_UTIL_H_
