#ifndef OSTREL_TESTS_UNIT_SPEED_GROWTH_H
#define OSTREL_TESTS_UNIT_SPEED_GROWTH_H

#include <algorithm>
#include <chrono>
#include <cstddef>

namespace ostrel_test {

using Clock = std::chrono::steady_clock;

// What that many of something take.
using Measure = Clock::duration (*)(std::size_t count);

inline Clock::duration BestOf(int runs, Measure measure, std::size_t count) {
  Clock::duration best = measure(count);
  for (int run = 1; run < runs; ++run) best = std::min(best, measure(count));
  return best;
}

// Whether many cost less than `limit` times the time that few do, in one of a few attempts. Durations are
// only compared with each other, each as the best of several runs, so that the speed of the machine does not
// matter.
inline bool CostGrowsBelow(double limit, Measure measure, std::size_t few, std::size_t many) {
  for (int attempt = 0; attempt < 3; ++attempt) {
    const auto ofFew = static_cast<double>(BestOf(3, measure, few).count());
    const auto ofMany = static_cast<double>(BestOf(3, measure, many).count());
    if (ofMany < limit * std::max(ofFew, 1.0)) return true;
  }
  return false;
}

}  // namespace ostrel_test

#endif
