// Guards against costs that grow with the square of the cache, or with the cache when nothing is due.

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "cache/cache_callbacks.h"
#include "cache/read_event_cache.h"
#include "speed/growth.h"

namespace {

using ostrel::ULong32;
using ostrel_test::Clock;
using ostrel_test::CostGrowsBelow;

constexpr unsigned long long NOW = 100001;
constexpr unsigned long long DUE = 40000;
constexpr unsigned long long NOT_DUE = 40001;

std::unique_ptr<ReadEventCache> EmptyCache() {
  ostrel_test::cacheCallbacks = ostrel_test::OrdinaryCallbacks();
  return std::make_unique<ReadEventCache>(ostrel_test::userLookup, ostrel_test::tabTitleLookup,
                                          ostrel_test::directoryTest);
}

void GiveEveryProcessATitle() {
  ostrel_test::cacheCallbacks.titles = [](ULong32, const std::wstring&, std::wstring&) {
    return std::vector<std::wstring>{L"a title"};
  };
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

Clock::duration TimeOfTaking(ReadEventCache& cache, std::size_t expected, std::size_t left) {
  const Clock::time_point start = Clock::now();
  const std::size_t taken = cache.GetEvents(NOW).size();
  const Clock::duration duration = Clock::now() - start;
  EXPECT_EQ(taken, expected);
  EXPECT_EQ(cache.GetCacheCount(), left);
  return duration;
}

// Every event is due and of the same file.
Clock::duration TimeOfTakingOneFile(std::size_t processes) {
  const std::unique_ptr<ReadEventCache> cache = EmptyCache();
  for (std::size_t i = 0; i < processes; ++i) Add(*cache, 0, static_cast<ULong32>(i), DUE);
  return TimeOfTaking(*cache, 1, 0);
}

Clock::duration TimeOfTakingOneFileWithHints(std::size_t processes) {
  const std::unique_ptr<ReadEventCache> cache = EmptyCache();
  GiveEveryProcessATitle();
  for (std::size_t i = 0; i < processes; ++i) Add(*cache, 0, static_cast<ULong32>(i), DUE);
  return TimeOfTaking(*cache, 1, 0);
}

void AddDueAndCached(ReadEventCache& cache, std::size_t files) {
  for (std::size_t i = 0; i < files; ++i) {
    Add(cache, i, 1, DUE);
    Add(cache, i, 2, NOT_DUE);
  }
}

// Every due event gives way to a cached one.
Clock::duration TimeOfHoldingBack(std::size_t files) {
  const std::unique_ptr<ReadEventCache> cache = EmptyCache();
  AddDueAndCached(*cache, files);
  return TimeOfTaking(*cache, 0, files);
}

// Every due event takes a cached one out.
Clock::duration TimeOfSuperseding(std::size_t files) {
  const std::unique_ptr<ReadEventCache> cache = EmptyCache();
  GiveEveryProcessATitle();
  AddDueAndCached(*cache, files);
  return TimeOfTaking(*cache, files, 0);
}

TEST(ReadEventCacheSpeed, FourTimesTheEventsCostFarLessThanSixteenTimesTheTime) {
  EXPECT_TRUE(CostGrowsBelow(10, TimeOfOnePass, 25000, 100000));
}

TEST(ReadEventCacheSpeed, DroppingAllDueEventsOfAFileButOneDoesNotGrowWithTheirSquare) {
  EXPECT_TRUE(CostGrowsBelow(10, TimeOfTakingOneFile, 25000, 100000));
  EXPECT_TRUE(CostGrowsBelow(10, TimeOfTakingOneFileWithHints, 25000, 100000));
}

TEST(ReadEventCacheSpeed, ComparingDueEventsWithCachedOnesDoesNotGrowWithTheirSquare) {
  EXPECT_TRUE(CostGrowsBelow(10, TimeOfHoldingBack, 10000, 40000));
  EXPECT_TRUE(CostGrowsBelow(10, TimeOfSuperseding, 10000, 40000));
}

TEST(ReadEventCacheSpeed, APassWithNothingDueDoesNotGrowWithTheCache) {
  EXPECT_TRUE(CostGrowsBelow(10, TimeOfIdlePasses, 1000, 100000));
}

}  // namespace
