// The threading rule every parallel kernel follows: one OpenMP region with ownGetNumThreads()
// threads, the outer loop split statically into even contiguous chunks, one per thread. Called
// from inside another parallel region, the whole loop runs on the calling thread with the same
// results: the caller already owns the machine's threads, and nesting would oversubscribe it
// even where the application has enabled nested parallelism.
#ifndef VTQR_FRAME_PARALLEL_H_
#define VTQR_FRAME_PARALLEL_H_

#include <omp.h>

#include <cstdint>
#include <type_traits>

#include "vtqcore.h"

namespace vtqr {

enum class Fork {
  kAlways,        // open the region even for one thread
  kWhenThreaded,  // open it only when ownGetNumThreads() > 1, else run inline
  kNever,         // run inline: the work is too small to be worth a team
};

// The volume kernels' rule: a destination shorter than 16 voxels on any axis is done by the
// calling thread alone, since waking a team would cost more than it saves.
inline constexpr int kMinParallelExtent = 16;
inline Fork WhenThreadedAndLarge(int width, int height, int depth) {
  const bool large = width >= kMinParallelExtent && height >= kMinParallelExtent &&
                     depth >= kMinParallelExtent;
  return large ? Fork::kWhenThreaded : Fork::kNever;
}

// Calls body(begin, end) or body(begin, end, rank) on disjoint chunks that cover [0, count),
// each from its own thread. Chunk t of T is [count * t / T, count * (t + 1) / T): even to
// within one item. rank is the thread's number in the team, below ownGetNumThreads(), so a
// kernel can give each thread its own slice of a work buffer sized for ownGetNumThreads()
// threads. Empty chunks are not called.
//
// When the region stays closed the caller's thread runs the whole range as one chunk of rank 0,
// without entering OpenMP at all: a serialised region would still cost a team's setup, which
// is exactly what kNever and a single thread are meant to save.
template <class Body>
void ParallelChunks(int64_t count, Fork fork, Body&& body) {
  auto chunk = [&body](int64_t begin, int64_t end, int rank) {
    if (begin >= end) return;
    if constexpr (std::is_invocable_v<Body&, int64_t, int64_t, int>) {
      body(begin, end, rank);
    } else {
      body(begin, end);
    }
  };
  const int requested = ownGetNumThreads();
  const bool open = (fork == Fork::kAlways || (fork == Fork::kWhenThreaded && requested > 1)) &&
                    !omp_in_parallel();
  if (!open) {
    chunk(0, count, 0);
    return;
  }
#pragma omp parallel num_threads(requested)
  {
    // The runtime may grant fewer threads than asked for; the split follows the actual team.
    const int64_t team = omp_get_num_threads();
    const int rank = omp_get_thread_num();
    chunk(count * rank / team, count * (rank + 1) / team, rank);
  }
}

}  // namespace vtqr

#endif  // VTQR_FRAME_PARALLEL_H_
