// The library-wide thread count that every parallel kernel opens its region with.

#include <sched.h>

#include <atomic>

#include "vtqcore.h"

namespace {

// The processors this process may run on: its affinity mask, not the machine's processor
// count, so that a process pinned by taskset or a container's cpuset does not oversubscribe.
int AvailableProcessors() {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof(set), &set) != 0) return 1;
  const int count = CPU_COUNT(&set);
  return count > 0 ? count : 1;
}

const int kDefaultThreads = AvailableProcessors();
std::atomic<int> gNumThreads{kDefaultThreads};

}  // namespace

extern "C" VTQ_API int ownGetNumThreads(void) {
  return gNumThreads.load(std::memory_order_relaxed);
}

extern "C" VTQ_API void vtqSetNumThreads(int numThreads) {
  gNumThreads.store(numThreads >= 1 ? numThreads : kDefaultThreads, std::memory_order_relaxed);
}
