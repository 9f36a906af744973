// The threading rule: even static chunks covering the range once, one per thread, and a
// serial run when called from inside another parallel region.

#include <omp.h>

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "frame/parallel.h"

namespace vtqr {
namespace {

class ThreadCount {
 public:
  explicit ThreadCount(int count) { vtqSetNumThreads(count); }
  ~ThreadCount() { vtqSetNumThreads(0); }
};

TEST(ParallelChunks, CoversTheRangeOnceInEvenChunks) {
  struct Case {
    int threads;
    int64_t count;
    Fork fork;
  };
  const Case cases[] = {{1, 10, Fork::kAlways}, {3, 10, Fork::kAlways},
                        {4, 3, Fork::kAlways},  {3, 1000, Fork::kWhenThreaded},
                        {1, 7, Fork::kWhenThreaded}};
  for (const Case& c : cases) {
    ThreadCount threads(c.threads);
    std::vector<std::atomic<int>> visits(c.count);
    std::atomic<int64_t> smallest{c.count}, largest{0};
    ParallelChunks(c.count, c.fork, [&](int64_t begin, int64_t end) {
      for (int64_t i = begin; i < end; ++i) visits[i]++;
      smallest = std::min<int64_t>(smallest, end - begin);
      largest = std::max<int64_t>(largest, end - begin);
    });
    for (int64_t i = 0; i < c.count; ++i) ASSERT_EQ(visits[i], 1) << "item " << i;
    if (c.count >= c.threads) {
      EXPECT_LE(largest - smallest, 1) << c.threads << " threads";
    }
  }
}

TEST(ParallelChunks, RunsOnTheCallerInsideAParallelRegion) {
  ThreadCount threads(2);
  omp_set_max_active_levels(4);  // even where nesting is allowed
  std::atomic<int> calls{0}, wholeRangeCalls{0};
#pragma omp parallel num_threads(2)
  {
    ParallelChunks(100, Fork::kAlways, [&](int64_t begin, int64_t end) {
      calls++;
      if (begin == 0 && end == 100) wholeRangeCalls++;
    });
  }
  // Each of the two outer threads ran the whole loop itself, in one chunk.
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(wholeRangeCalls, calls);
}

}  // namespace
}  // namespace vtqr
