// The threading rule: even static chunks covering the range once, one per thread with its own
// rank, the size gate and the single-thread case run inline, and a serial run when called from
// inside another parallel region.
#include <omp.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "frame/parallel.h"
#include "test_util.h"

namespace vtqr::test {
namespace {

TEST(ParallelChunks, CoversTheRangeOnceWithOneRankPerChunk) {
  const struct {
    const char* name;
    int threads;
    int64_t count;
    Fork fork;
    int chunks;  // calls expected: one per thread (never an empty one), or 1 when inline
  } cases[] = {
      {"one thread, always", 1, 10, Fork::kAlways, 1},
      {"three threads", 3, 10, Fork::kAlways, 3},
      {"more threads than items", 4, 3, Fork::kAlways, 3},
      {"nothing to do", 4, 0, Fork::kAlways, 0},
      {"one thread, when threaded", 1, 7, Fork::kWhenThreaded, 1},
      {"never", 4, 100, Fork::kNever, 1},
      // The size gate: every axis at least 16 opens the region, one short keeps it closed.
      {"gate 16 x 16 x 16", 4, 16, WhenThreadedAndLarge(16, 16, 16), 4},
      {"gate width 15", 4, 16, WhenThreadedAndLarge(15, 16, 16), 1},
      {"gate height 15", 4, 16, WhenThreadedAndLarge(16, 15, 16), 1},
      {"gate depth 15", 4, 16, WhenThreadedAndLarge(16, 16, 15), 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ThreadCount threads(c.threads);
    const std::thread::id caller = std::this_thread::get_id();
    std::mutex lock;
    std::set<int> ranks;
    int chunks = 0;
    std::vector<std::atomic<int>> visits(static_cast<size_t>(c.count));
    ParallelChunks(c.count, c.fork, [&](int64_t begin, int64_t end, int rank) {
      for (int64_t i = begin; i < end; ++i) visits[i]++;
      std::lock_guard<std::mutex> hold(lock);
      ++chunks;
      ranks.insert(rank);
      // Even split: no chunk more than one item longer than another.
      EXPECT_TRUE(rank >= 0 && rank < c.threads && end - begin <= c.count / c.chunks + 1 &&
                  end - begin >= std::max<int64_t>(1, c.count / c.chunks))
          << rank << ": " << begin << ".." << end;
      // Inline: the caller does the whole range itself, without a region.
      if (c.chunks == 1 && c.fork != Fork::kAlways) {
        EXPECT_TRUE(std::this_thread::get_id() == caller && rank == 0 && omp_get_level() == 0);
      }
    });
    for (int64_t i = 0; i < c.count; ++i) ASSERT_EQ(visits[i], 1) << "item " << i;
    EXPECT_EQ(chunks, c.chunks);
    EXPECT_EQ(static_cast<int>(ranks.size()), chunks) << "each chunk has a rank of its own";
  }
}

// Each of the two outer threads runs the whole loop itself, in one chunk, even where nesting is
// allowed. The body without the rank is accepted too.
TEST(ParallelChunks, RunsOnTheCallerInsideAParallelRegion) {
  ThreadCount threads(2);
  omp_set_max_active_levels(4);
  std::atomic<int> calls{0}, wholeRangeCalls{0};
#pragma omp parallel num_threads(2)
  ParallelChunks(100, Fork::kAlways, [&](int64_t begin, int64_t end) {
    calls++;
    if (begin == 0 && end == 100) wholeRangeCalls++;
  });
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(wholeRangeCalls, 2);
}

}  // namespace
}  // namespace vtqr::test
