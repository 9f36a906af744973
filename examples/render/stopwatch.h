// Timing the library's intersection calls.
#ifndef VTQR_EXAMPLES_RENDER_STOPWATCH_H_
#define VTQR_EXAMPLES_RENDER_STOPWATCH_H_

#include <time.h>

namespace render {

// The calling thread's processor time since construction: on a machine shared with other
// work, time the thread spent waiting for a core does not count against the library.
class Stopwatch {
 public:
  double Seconds() const { return Now() - start_; }

 private:
  static double Now() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
  }
  double start_ = Now();
};

}  // namespace render

#endif  // VTQR_EXAMPLES_RENDER_STOPWATCH_H_
