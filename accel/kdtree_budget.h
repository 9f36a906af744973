// Memory budget of the SAH build: the ledger every temporary is charged to, and the arena that
// hands out build nodes and leaf index lists.
#ifndef VTQR_ACCEL_KDTREE_BUDGET_H_
#define VTQR_ACCEL_KDTREE_BUDGET_H_

#include <cstddef>
#include <cstdint>

#include "frame/code_path.h"

VTQR_PATH_BEGIN
namespace kdtree {

// Fixed charges of a build, in bytes.
inline constexpr int64_t kContextBytes = 400;
inline constexpr int kWorkArrayCount = 13;  // per-triangle work arrays of 32-bit entries
inline constexpr int64_t kWorkArrayBytesPerTriangle = 4;
inline constexpr int64_t kArenaPayloadBytes = int64_t{1} << 24;
inline constexpr int64_t kArenaHeaderBytes = 40;
inline constexpr int64_t kArenaBlockCharge = kArenaPayloadBytes + kArenaHeaderBytes;  // 0x1000028

// Per-element needs of the two pools, and the pools' unit: a pool is its need rounded down to
// the unit, plus one unit.
inline constexpr int64_t kTrianglePoolBytesPerTriangle = 36;
inline constexpr int64_t kVertexPoolBytesPerVertex = 48;
inline constexpr int64_t kPoolUnitBytes = int64_t{1} << 24;

// Bytes a mesh must be allowed before the build starts at all: its vertices (three floats each),
// the triangle pool's need and a 48-byte work item per triangle, plus the two pools' minimum
// size and 480 bytes of fixed records.
inline constexpr int64_t kVertexBytes = 12;
inline constexpr int64_t kWorkItemBytes = 48;
inline constexpr int64_t kRequiredFixedBytes = 2 * kPoolUnitBytes + 480;  // 33,554,912
inline int64_t RequiredBytes(int vertCount, int triCount) {
  return kVertexBytes * vertCount + kTrianglePoolBytesPerTriangle * triCount +
         kWorkItemBytes * triCount + kRequiredFixedBytes;
}

// Always strictly larger than the need, so a pool never runs dry for the data it was sized for;
// an empty mesh still gets one unit.
inline int64_t PoolBytes(int64_t need) { return (need & ~(kPoolUnitBytes - 1)) + kPoolUnitBytes; }

// The ledger. Charges are refused, never partially applied, once they would overdraw it.
class Budget {
 public:
  explicit Budget(int64_t bytes) : remaining_(bytes) {}
  bool Charge(int64_t bytes) {
    if (bytes > remaining_) return false;
    remaining_ -= bytes;
    return true;
  }
  int64_t Remaining() const { return remaining_; }

 private:
  int64_t remaining_;
};

// Bump allocator over 16 MiB blocks. A block is opened only while the ledger still holds a whole
// block's charge; the blocks are released together when the arena goes away, on every path out
// of the build.
class Arena {
 public:
  explicit Arena(Budget* budget) : budget_(budget) {}
  ~Arena();
  Arena(const Arena&) = delete;
  Arena& operator=(const Arena&) = delete;

  // `bytes` from the current block, 8-byte aligned, or nullptr when the budget (or the system)
  // refuses a new block.
  void* Take(size_t bytes);

  struct Block;  // header in front of each block

 private:
  Budget* budget_;
  Block* head_ = nullptr;
  char* cursor_ = nullptr;
  char* limit_ = nullptr;
};

}  // namespace kdtree
VTQR_PATH_END

#endif  // VTQR_ACCEL_KDTREE_BUDGET_H_
