// Final block of the SAH build.
#include "accel/kdtree_layout.h"

#include <climits>
#include <cstring>

#include "accel/kdtree_node.h"
#include "vtqcore.h"

VTQR_PATH_BEGIN
namespace kdtree {
namespace {

struct Writer {
  VtqrKDTreeNode* nodes;
  int64_t nextNode;  // index of the next free node
  int64_t nextList;  // byte offset of the next free list word
};

// A leaf's numbers packed into the node itself, when they fit the compact form.
bool FitsInNode(const WorkItem& leaf, VtqrKDTreeNode* node) {
  return kdnode::EncodeCompactLeaf(leaf.list, leaf.count, node);
}

// Node count and out-of-line list words of the subtree below `item` (not counting `item`).
void Measure(const WorkItem& item, int64_t* nodes, int64_t* listWords) {
  if (item.axis != kLeafAxis) {
    *nodes += 2;
    Measure(item.children[0], nodes, listWords);
    Measure(item.children[1], nodes, listWords);
    return;
  }
  VtqrKDTreeNode unused;
  if (item.count > 0 && !FitsInNode(item, &unused)) *listWords += item.count;
}

// Places the children of `item` next to each other and descends into the lower child first, so
// a walk that goes down the lower side finds its nodes close together.
void Place(const WorkItem& item, int64_t index, Writer* out) {
  VtqrKDTreeNode& node = out->nodes[index];
  if (item.axis != kLeafAxis) {
    int64_t pair = out->nextNode;
    out->nextNode += 2;
    node = kdnode::InteriorNode((pair - index) * int64_t{sizeof(VtqrKDTreeNode)}, item.axis,
                                item.split);
    Place(item.children[0], pair, out);
    Place(item.children[1], pair + 1, out);
    return;
  }
  if (item.count == 0) {
    node = kdnode::EmptyLeaf();
    return;
  }
  if (FitsInNode(item, &node)) return;
  node = kdnode::ListLeaf(out->nextList - index * int64_t{sizeof(VtqrKDTreeNode)}, item.count);
  std::memcpy(reinterpret_cast<char*>(out->nodes) + out->nextList, item.list,
              sizeof(int32_t) * item.count);
  out->nextList += sizeof(int32_t) * int64_t{item.count};
}

}  // namespace

VtqStatus LayoutTree(const WorkItem& root, VtqrKDTreeNode** ppTree, int* pTreeSize) {
  int64_t nodeCount = 1;
  int64_t listWords = 0;
  Measure(root, &nodeCount, &listWords);
  // Sizes and list distances are 32-bit signed in the node format.
  int64_t nodeBytes = int64_t{sizeof(VtqrKDTreeNode)} * nodeCount;
  int64_t bytes = nodeBytes + int64_t{sizeof(int32_t)} * listWords;
  if (bytes > INT32_MAX) return vtqStsErrMemBudget;
  auto* nodes = static_cast<VtqrKDTreeNode*>(vtqMalloc(static_cast<size_t>(bytes)));
  if (nodes == nullptr) return vtqStsErrMemBudget;
  Writer writer{nodes, 1, nodeBytes};
  Place(root, 0, &writer);
  *ppTree = nodes;
  *pTreeSize = static_cast<int>(bytes);
  return vtqStsOk;
}

}  // namespace kdtree
VTQR_PATH_END
