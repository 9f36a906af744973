// Aligned allocation for blocks the libraries hand to the caller (for example KD-trees).

#include <cstdlib>

#include "vtqcore.h"

namespace {
// A cache line: blocks never share a line with a neighbour, and every SIMD width up to 512 bits
// can use aligned loads from the start of a block.
constexpr size_t kAlignment = 64;
}  // namespace

extern "C" VTQ_API void* vtqMalloc(size_t size) {
  if (size == 0) return nullptr;
  void* block = nullptr;
  if (posix_memalign(&block, kAlignment, size) != 0) return nullptr;
  return block;
}

extern "C" VTQ_API void vtqFree(void* ptr) { std::free(ptr); }
