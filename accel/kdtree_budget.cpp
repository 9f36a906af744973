// Arena blocks of the SAH build.
#include "accel/kdtree_budget.h"

#include <cstdlib>

VTQR_PATH_BEGIN
namespace kdtree {

// The 40-byte header in front of each block's payload.
struct Arena::Block {
  Block* next;
  size_t payloadBytes;
  uint64_t reserved[3];
};
static_assert(sizeof(Arena::Block) == kArenaHeaderBytes);

Arena::~Arena() {
  while (head_ != nullptr) {
    Block* next = head_->next;
    std::free(head_);
    head_ = next;
  }
}

void* Arena::Take(size_t bytes) {
  bytes = (bytes + 7) & ~size_t{7};
  if (static_cast<size_t>(limit_ - cursor_) < bytes) {
    // A leaf list longer than a block gets a block of its own, charged at least a whole block.
    size_t payload = bytes > size_t{kArenaPayloadBytes} ? bytes : size_t{kArenaPayloadBytes};
    int64_t charge = static_cast<int64_t>(payload) + kArenaHeaderBytes;
    if (budget_->Remaining() < charge) return nullptr;
    auto* block = static_cast<Block*>(std::malloc(sizeof(Block) + payload));
    if (block == nullptr) return nullptr;
    budget_->Charge(charge);
    block->next = head_;
    block->payloadBytes = payload;
    head_ = block;
    cursor_ = reinterpret_cast<char*>(block + 1);
    limit_ = cursor_ + payload;
  }
  void* result = cursor_;
  cursor_ += bytes;
  return result;
}

}  // namespace kdtree
VTQR_PATH_END
