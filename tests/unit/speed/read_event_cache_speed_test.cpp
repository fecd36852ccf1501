// Guards against costs that grow with the square of the cache, or with the cache when nothing is due.
// Durations are only compared with each other, each as the best of several runs, so that the speed of the
// machine does not matter.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

#include "cache/cache_callbacks.h"
#include "cache/read_event_cache.h"

namespace {

using Clock = std::chrono::steady_clock;
using ostrel::ULong32;

constexpr unsigned long long NOW = 100001;
constexpr unsigned long long DUE = 40000;
constexpr unsigned long long NOT_DUE = 40001;

std::unique_ptr<ReadEventCache> EmptyCache() {
  ostrel_test::cacheCallbacks = ostrel_test::OrdinaryCallbacks();
  return std::make_unique<ReadEventCache>(ostrel_test::userLookup, ostrel_test::tabTitleLookup,
                                          ostrel_test::directoryTest);
}

std::wstring Name(std::size_t number) {
  return L"C:\\Users\\somebody\\Documents\\" + std::to_wstring(number);
}

void Add(ReadEventCache& cache, std::size_t number, ULong32 processId, unsigned long long time) {
  cache.AddEvent(Name(number), nullptr, L"chrome.exe", processId, time, 0, FILE_EVENT_READ, 1);
}

// A fifth of the events is due, in pairs of one file.
Clock::duration TimeOfOnePass(std::size_t cached) {
  const std::unique_ptr<ReadEventCache> cache = EmptyCache();
  const std::size_t due = cached / 5;
  for (std::size_t i = 0; i < due / 2; ++i) {
    Add(*cache, i, 1, DUE);
    Add(*cache, i, 2, DUE);
  }
  for (std::size_t i = due; i < cached; ++i) Add(*cache, i, 3, NOT_DUE);
  const Clock::time_point start = Clock::now();
  const std::size_t taken = cache->GetEvents(NOW).size();
  const Clock::duration duration = Clock::now() - start;
  EXPECT_EQ(taken, due / 2);
  EXPECT_EQ(cache->GetCacheCount(), cached - due);
  return duration;
}

Clock::duration TimeOfIdlePasses(std::size_t cached) {
  const std::unique_ptr<ReadEventCache> cache = EmptyCache();
  for (std::size_t i = 0; i < cached; ++i) Add(*cache, i, 1, NOT_DUE);
  const Clock::time_point start = Clock::now();
  for (int pass = 0; pass < 200; ++pass) EXPECT_TRUE(cache->GetEvents(NOW).empty());
  return Clock::now() - start;
}

Clock::duration BestOf(int runs, Clock::duration (*measure)(std::size_t), std::size_t cached) {
  Clock::duration best = measure(cached);
  for (int run = 1; run < runs; ++run) best = std::min(best, measure(cached));
  return best;
}

// Whether four or a hundred times the events cost less than `limit` times the time, in one of a few attempts.
bool CostGrowsBelow(double limit, Clock::duration (*measure)(std::size_t), std::size_t few,
                    std::size_t many) {
  for (int attempt = 0; attempt < 3; ++attempt) {
    const auto ofFew = static_cast<double>(BestOf(3, measure, few).count());
    const auto ofMany = static_cast<double>(BestOf(3, measure, many).count());
    if (ofMany < limit * std::max(ofFew, 1.0)) return true;
  }
  return false;
}

TEST(ReadEventCacheSpeed, FourTimesTheEventsCostFarLessThanSixteenTimesTheTime) {
  EXPECT_TRUE(CostGrowsBelow(10, TimeOfOnePass, 25000, 100000));
}

TEST(ReadEventCacheSpeed, APassWithNothingDueDoesNotGrowWithTheCache) {
  EXPECT_TRUE(CostGrowsBelow(10, TimeOfIdlePasses, 1000, 100000));
}

}  // namespace
