// Final block of the SAH build.
#include "accel/kdtree_layout.h"

#include <bit>
#include <climits>
#include <cstring>

#include "vtqcore.h"

VTQR_PATH_BEGIN
namespace kdtree {
namespace {

constexpr uint32_t kLeafBit = 0x80000000u;

struct Writer {
  VtqrKDTreeNode* nodes;
  int64_t nextNode;  // index of the next free node
  int64_t nextList;  // byte offset of the next free list word
};

// Node count and out-of-line list words of the subtree below `item` (not counting `item`).
void Measure(const WorkItem& item, int64_t* nodes, int64_t* listWords) {
  if (item.axis != kLeafAxis) {
    *nodes += 2;
    Measure(item.children[0], nodes, listWords);
    Measure(item.children[1], nodes, listWords);
    return;
  }
  int32_t w0;
  int32_t w1;
  if (item.count > 0 && !EncodeCompactLeaf(item.list, item.count, &w0, &w1)) {
    *listWords += item.count;
  }
}

// Places the children of `item` next to each other and descends into the lower child first, so
// a walk that goes down the lower side finds its nodes close together.
void Place(const WorkItem& item, int64_t index, Writer* out) {
  VtqrKDTreeNode& node = out->nodes[index];
  if (item.axis != kLeafAxis) {
    int64_t pair = out->nextNode;
    out->nextNode += 2;
    node.w0 = static_cast<int32_t>((pair - index) * 8) | item.axis;
    node.w1 = std::bit_cast<int32_t>(item.split);
    Place(item.children[0], pair, out);
    Place(item.children[1], pair + 1, out);
    return;
  }
  if (item.count == 0) {
    node.w0 = INT32_MIN;
    node.w1 = 0;
    return;
  }
  if (EncodeCompactLeaf(item.list, item.count, &node.w0, &node.w1)) return;
  int64_t distance = out->nextList - index * 8;
  node.w0 = static_cast<int32_t>(-distance);
  node.w1 = item.count;
  std::memcpy(reinterpret_cast<char*>(out->nodes) + out->nextList, item.list,
              sizeof(int32_t) * item.count);
  out->nextList += sizeof(int32_t) * int64_t{item.count};
}

}  // namespace

bool EncodeCompactLeaf(const int32_t* ids, int count, int32_t* w0, int32_t* w1) {
  // The second word keeps 29 bits for a triangle number, the first 31.
  constexpr uint32_t kWideLimit = 1u << 29;
  auto pack = [&](uint32_t first, uint32_t middle, int n) {
    *w0 = static_cast<int32_t>(kLeafBit | first);
    *w1 = static_cast<int32_t>(kLeafBit | (middle << 2) | static_cast<uint32_t>(n));
    return true;
  };
  switch (count) {
    case 1:
      return pack(static_cast<uint32_t>(ids[0]), 0, 1);
    case 2:
      if (static_cast<uint32_t>(ids[1]) >= kWideLimit) return false;
      return pack(static_cast<uint32_t>(ids[0]), static_cast<uint32_t>(ids[1]), 2);
    case 3: {
      // The middle number in full, the other two as distances of 15 and 16 bits from it.
      uint32_t below = static_cast<uint32_t>(ids[1] - ids[0]);
      uint32_t above = static_cast<uint32_t>(ids[2] - ids[1]);
      if (static_cast<uint32_t>(ids[1]) >= kWideLimit || below >= (1u << 15) ||
          above >= (1u << 16)) {
        return false;
      }
      return pack((below << 16) | above, static_cast<uint32_t>(ids[1]), 3);
    }
    default:
      return false;
  }
}

VtqStatus LayoutTree(const WorkItem& root, VtqrKDTreeNode** ppTree, int* pTreeSize) {
  int64_t nodeCount = 1;
  int64_t listWords = 0;
  Measure(root, &nodeCount, &listWords);
  // Sizes and list distances are 32-bit signed in the node format.
  int64_t bytes = 8 * nodeCount + 4 * listWords;
  if (bytes > INT32_MAX) return vtqStsErrMemBudget;
  auto* nodes = static_cast<VtqrKDTreeNode*>(vtqMalloc(static_cast<size_t>(bytes)));
  if (nodes == nullptr) return vtqStsErrMemBudget;
  Writer writer{nodes, 1, 8 * nodeCount};
  Place(root, 0, &writer);
  *ppTree = nodes;
  *pTreeSize = static_cast<int>(bytes);
  return vtqStsOk;
}

}  // namespace kdtree
VTQR_PATH_END
