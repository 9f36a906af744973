// The clocks and the summary statistic every benchmark reports with.
//
// One-thread figures are process CPU time, which a shared machine disturbs least; figures over
// several threads, and the scaling between thread counts, are wall time.
#ifndef VTQR_BENCH_BENCH_CLOCK_H_
#define VTQR_BENCH_BENCH_CLOCK_H_

#include <time.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace vtqr::bench {

inline double SecondsOf(clockid_t clock) {
  timespec now;
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}
inline double CpuNow() { return SecondsOf(CLOCK_PROCESS_CPUTIME_ID); }
inline double WallNow() { return SecondsOf(CLOCK_MONOTONIC); }

// The middle of the repetitions (the upper middle for an even count); NaN when there are none.
inline double Median(std::vector<double> v) {
  if (v.empty()) return NAN;
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

}  // namespace vtqr::bench

#endif  // VTQR_BENCH_BENCH_CLOCK_H_
