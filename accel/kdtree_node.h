// The KD-tree block format: how one VtqrKDTreeNode encodes an interior node or a leaf, and the
// limits a walk over a tree can rely on. The builder writes nodes through the encoders below;
// the traversal, the tree checker and the benchmarks read them through the readers, so the
// format is written down once.
//
// Plain integer code, always inlined: sources of both code paths and the path-free checker
// include it, and no out-of-line copy exists that the linker could share between them.
#ifndef VTQR_ACCEL_KDTREE_NODE_H_
#define VTQR_ACCEL_KDTREE_NODE_H_

#include <bit>
#include <cstdint>

#include "vtqr/accel.h"

#define VTQR_NODE_INLINE [[gnu::always_inline]] inline

namespace vtqr::kdnode {

// Deepest node a build may create; the root has depth 0.
inline constexpr uint32_t kMaxDepth = 50;

// Entries of a walk's explicit stack. A front-to-back walk defers at most one far child per
// level it descends, so a tree of kMaxDepth levels never needs more than kMaxDepth entries;
// the walks do not test for overflow.
inline constexpr int kWalkStackSize = 64;
static_assert(kWalkStackSize >= static_cast<int>(kMaxDepth));

// Interior nodes ---------------------------------------------------------------------------
//
// w0 >= 0: bits 0-1 the split axis, bits 3-30 the byte offset from the node to its pair of
// children (lower child first; pairs are 8-byte aligned, so the offset's low bits are free).
// w1: the split coordinate's float bits.

VTQR_NODE_INLINE bool IsLeaf(VtqrKDTreeNode node) { return node.w0 < 0; }
VTQR_NODE_INLINE int SplitAxis(VtqrKDTreeNode node) { return node.w0 & 3; }
VTQR_NODE_INLINE float SplitPosition(VtqrKDTreeNode node) { return std::bit_cast<float>(node.w1); }
VTQR_NODE_INLINE int32_t ChildOffset(VtqrKDTreeNode node) { return node.w0 & ~7; }

// The child below the split plane; the one above it is the next node.
VTQR_NODE_INLINE const VtqrKDTreeNode* LowerChild(const VtqrKDTreeNode* node) {
  return reinterpret_cast<const VtqrKDTreeNode*>(reinterpret_cast<const char*>(node) +
                                                 ChildOffset(*node));
}

// childOffset: a positive multiple of 8 below 2^31.
VTQR_NODE_INLINE VtqrKDTreeNode InteriorNode(int64_t childOffset, int axis, float split) {
  return {static_cast<int32_t>(childOffset) | axis, std::bit_cast<int32_t>(split)};
}

// Leaves -----------------------------------------------------------------------------------
//
// w0 < 0. w1 == 0: empty. w1 > 0: w1 triangle numbers at byte offset -w0 from the node.
// w1 < 0: compact, n = w1 & 3 (1 to 3) numbers held in the node itself. With a = w0 & 0x7FFFFFFF
// and m = (w1 & 0x7FFFFFFC) >> 2 they are a (n = 1); a, m (n = 2); m - (a >> 16), m,
// m + (a & 0xFFFF) (n = 3).

enum class LeafKind { kEmpty, kList, kCompact };

VTQR_NODE_INLINE LeafKind KindOfLeaf(VtqrKDTreeNode leaf) {
  return leaf.w1 == 0 ? LeafKind::kEmpty : leaf.w1 > 0 ? LeafKind::kList : LeafKind::kCompact;
}

// Out-of-line list: byte offset from the node to its first number, and the count. Widened
// before negating, so that even a corrupt w0 of INT32_MIN reads without overflow.
VTQR_NODE_INLINE int64_t ListOffset(VtqrKDTreeNode leaf) { return -static_cast<int64_t>(leaf.w0); }
VTQR_NODE_INLINE int32_t ListCount(VtqrKDTreeNode leaf) { return leaf.w1; }

// Compact leaf: the count (1 to 3 in a good tree) and the numbers, written to ids[0 .. count).
VTQR_NODE_INLINE int CompactCount(VtqrKDTreeNode leaf) { return leaf.w1 & 3; }
VTQR_NODE_INLINE void DecodeCompact(VtqrKDTreeNode leaf, int32_t ids[3]) {
  const int32_t a = leaf.w0 & 0x7FFFFFFF;
  const int32_t m = (leaf.w1 & 0x7FFFFFFC) >> 2;
  if (CompactCount(leaf) == 3) {
    ids[0] = m - (a >> 16);
    ids[1] = m;
    ids[2] = m + (a & 0xFFFF);
  } else {
    ids[0] = a;
    ids[1] = m;
  }
}

// The triangle numbers of any leaf, in list order.
struct LeafTriangles {
  const int32_t* ids;
  int32_t count;
};

// Reads a leaf of a trusted tree: an out-of-line list is read in place, a compact leaf is
// decoded into `scratch`.
VTQR_NODE_INLINE LeafTriangles ReadLeaf(const VtqrKDTreeNode* leaf, int32_t scratch[3]) {
  switch (KindOfLeaf(*leaf)) {
    case LeafKind::kEmpty:
      return {scratch, 0};
    case LeafKind::kList:
      return {
          reinterpret_cast<const int32_t*>(reinterpret_cast<const char*>(leaf) + ListOffset(*leaf)),
          ListCount(*leaf)};
    case LeafKind::kCompact:
      break;
  }
  DecodeCompact(*leaf, scratch);
  return {scratch, CompactCount(*leaf)};
}

// The empty leaf as the builder writes it.
VTQR_NODE_INLINE VtqrKDTreeNode EmptyLeaf() { return {INT32_MIN, 0}; }

// listOffset: positive, 4-byte aligned, below 2^31; count: a count of 0 reads as an empty leaf.
VTQR_NODE_INLINE VtqrKDTreeNode ListLeaf(int64_t listOffset, int32_t count) {
  return {static_cast<int32_t>(-listOffset), count};
}

// The second word keeps 29 bits for a triangle number; a leaf of three keeps the outer two as
// distances of 15 and 16 bits from the middle one.
inline constexpr uint32_t kCompactNumberLimit = 1u << 29;
inline constexpr uint32_t kCompactBelowLimit = 1u << 15;
inline constexpr uint32_t kCompactAboveLimit = 1u << 16;

// Packs one to three ascending triangle numbers into a compact leaf. Returns false, leaving
// *leaf alone, when they do not fit the form.
VTQR_NODE_INLINE bool EncodeCompactLeaf(const int32_t* ids, int count, VtqrKDTreeNode* leaf) {
  constexpr uint32_t kLeafBit = 0x80000000u;
  auto pack = [leaf](uint32_t first, uint32_t middle, int n) {
    leaf->w0 = static_cast<int32_t>(kLeafBit | first);
    leaf->w1 = static_cast<int32_t>(kLeafBit | (middle << 2) | static_cast<uint32_t>(n));
    return true;
  };
  switch (count) {
    case 1:
      return pack(static_cast<uint32_t>(ids[0]), 0, 1);
    case 2:
      if (static_cast<uint32_t>(ids[1]) >= kCompactNumberLimit) return false;
      return pack(static_cast<uint32_t>(ids[0]), static_cast<uint32_t>(ids[1]), 2);
    case 3: {
      const uint32_t below = static_cast<uint32_t>(ids[1] - ids[0]);
      const uint32_t above = static_cast<uint32_t>(ids[2] - ids[1]);
      if (static_cast<uint32_t>(ids[1]) >= kCompactNumberLimit || below >= kCompactBelowLimit ||
          above >= kCompactAboveLimit) {
        return false;
      }
      return pack((below << 16) | above, static_cast<uint32_t>(ids[1]), 3);
    }
    default:
      return false;
  }
}

}  // namespace vtqr::kdnode

#undef VTQR_NODE_INLINE

#endif  // VTQR_ACCEL_KDTREE_NODE_H_
