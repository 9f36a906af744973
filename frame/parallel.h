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
  const bool large =
      width >= kMinParallelExtent && height >= kMinParallelExtent && depth >= kMinParallelExtent;
  return large ? Fork::kWhenThreaded : Fork::kNever;
}

// Calls body(begin, end) or body(begin, end, rank) on disjoint chunks that cover [0, count),
// each from its own thread. Chunk t of T is [count * t / T, count * (t + 1) / T): even to
// within one item. rank is the thread's number in the team, below ownGetNumThreads() (0 when
// the loop runs inline), so a kernel can give each thread its own slice of a work buffer sized
// for ownGetNumThreads() threads.
template <class Body>
void ParallelChunks(int64_t count, Fork fork, Body&& body) {
  const int requested = ownGetNumThreads();
  const bool open = (fork == Fork::kAlways || (fork == Fork::kWhenThreaded && requested > 1)) &&
                    !omp_in_parallel();
#pragma omp parallel num_threads(requested) if (open)
  {
    const int64_t team = omp_get_num_threads();
    const int rank = omp_get_thread_num();
    const int64_t begin = count * rank / team;
    const int64_t end = count * (rank + 1) / team;
    if (begin < end) {
      if constexpr (std::is_invocable_v<Body&, int64_t, int64_t, int>) {
        body(begin, end, rank);
      } else {
        body(begin, end);
      }
    }
  }
}

}  // namespace vtqr

#endif  // VTQR_FRAME_PARALLEL_H_
