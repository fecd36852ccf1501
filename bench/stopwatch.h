#ifndef OSTREL_BENCH_STOPWATCH_H
#define OSTREL_BENCH_STOPWATCH_H

#include <chrono>

namespace ostrel::bench {

// Runs from its construction on.
class Stopwatch {
 public:
  double Seconds() const { return std::chrono::duration<double>(Clock::now() - start_).count(); }

 private:
  using Clock = std::chrono::steady_clock;
  Clock::time_point start_ = Clock::now();
};

}  // namespace ostrel::bench

#endif
