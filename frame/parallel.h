// The threading rule every parallel kernel follows: one OpenMP region with ownGetNumThreads()
// threads, the outer loop split statically into even contiguous chunks, one per thread. Called
// from inside another parallel region, the whole loop runs on the calling thread with the same
// results: the caller already owns the machine's threads, and nesting would oversubscribe it
// even where the application has enabled nested parallelism.
#ifndef VTQR_FRAME_PARALLEL_H_
#define VTQR_FRAME_PARALLEL_H_

#include <omp.h>

#include <cstdint>

#include "vtqcore.h"

namespace vtqr {

enum class Fork {
  kAlways,        // open the region even for one thread
  kWhenThreaded,  // open it only when ownGetNumThreads() > 1, else run inline
};

// Calls body(begin, end) on disjoint chunks that cover [0, count), each from its own thread.
// Chunk t of T is [count * t / T, count * (t + 1) / T): even to within one item.
template <class Body>
void ParallelChunks(int64_t count, Fork fork, Body&& body) {
  const int requested = ownGetNumThreads();
  const bool open = (fork == Fork::kAlways || requested > 1) && !omp_in_parallel();
#pragma omp parallel num_threads(requested) if (open)
  {
    const int64_t team = omp_get_num_threads();
    const int64_t rank = omp_get_thread_num();
    const int64_t begin = count * rank / team;
    const int64_t end = count * (rank + 1) / team;
    if (begin < end) body(begin, end);
  }
}

}  // namespace vtqr

#endif  // VTQR_FRAME_PARALLEL_H_
