#include "cache/sent_event_cache.h"

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <random>
#include <string>

namespace {

constexpr long long LATEST = std::numeric_limits<long long>::max();

TEST(SentEventCache, AFileIsRecognisedUpToTenSecondsLater) {
  SentEventCache cache;
  cache.AddEvent(L"C:\\f", 50000);
  EXPECT_EQ(cache.EventExists(L"C:\\f", 50000), 1);
  EXPECT_EQ(cache.EventExists(L"C:\\f", 60000), 1);
  EXPECT_EQ(cache.EventExists(L"C:\\f", 60001), 0);
}

TEST(SentEventCache, AFileRecordedLaterThanTheTimeAskedForIsRecognisedToo) {
  SentEventCache cache;
  cache.AddEvent(L"C:\\f", 50000);
  EXPECT_EQ(cache.EventExists(L"C:\\f", 20000), 1);
  EXPECT_EQ(cache.EventExists(L"C:\\f", -20000), 1);
}

TEST(SentEventCache, AFileNeverAddedIsNotRecognised) {
  SentEventCache cache;
  EXPECT_EQ(cache.EventExists(L"C:\\g", 0), 0);
  cache.AddEvent(L"C:\\f", 50000);
  EXPECT_EQ(cache.EventExists(L"C:\\g", 50000), 0);
}

TEST(SentEventCache, NamesCompareCaseSensitively) {
  SentEventCache cache;
  cache.AddEvent(L"C:\\A.txt", 50000);
  EXPECT_EQ(cache.EventExists(L"C:\\a.txt", 50000), 0);
  cache.AddEvent(L"C:\\a.txt", 50000);
  EXPECT_EQ(cache.GetCacheCount(), 2U);
}

TEST(SentEventCache, AskingNeitherRemovesAStaleEntryNorAddsAnAbsentOne) {
  SentEventCache cache;
  cache.AddEvent(L"C:\\f", 50000);
  EXPECT_EQ(cache.EventExists(L"C:\\f", 90000), 0);
  EXPECT_EQ(cache.EventExists(L"C:\\g", 90000), 0);
  EXPECT_EQ(cache.GetCacheCount(), 1U);
  EXPECT_EQ(cache.EventExists(L"C:\\f", 60000), 1);
}

TEST(SentEventCache, AnEarlierTimeReplacesALaterOne) {
  SentEventCache cache;
  cache.AddEvent(L"C:\\f", 9000);
  cache.AddEvent(L"C:\\f", 5000);
  EXPECT_EQ(cache.GetCacheCount(), 1U);
  EXPECT_EQ(cache.EventExists(L"C:\\f", 15000), 1);
  EXPECT_EQ(cache.EventExists(L"C:\\f", 15001), 0);
}

TEST(SentEventCache, AnAddMoreThanTenSecondsAfterTheLastPurgeForgetsOldEntries) {
  SentEventCache cache;
  cache.AddEvent(L"C:\\f", 1000);
  cache.AddEvent(L"C:\\g", 12000);
  EXPECT_EQ(cache.GetCacheCount(), 1U);
  EXPECT_EQ(cache.EventExists(L"C:\\f", 1000), 0);
  EXPECT_EQ(cache.EventExists(L"C:\\g", 12000), 1);
}

TEST(SentEventCache, AnAddExactlyTenSecondsAfterTheLastPurgePurgesNothing) {
  SentEventCache cache;
  cache.AddEvent(L"C:\\f", -5);
  cache.AddEvent(L"C:\\g", 10000);
  EXPECT_EQ(cache.GetCacheCount(), 2U);
  cache.AddEvent(L"C:\\h", 10001);
  EXPECT_EQ(cache.GetCacheCount(), 2U);
  EXPECT_EQ(cache.EventExists(L"C:\\f", 0), 0);
}

TEST(SentEventCache, APurgeKeepsAnEntryThatIsExactlyTenSecondsOld) {
  SentEventCache cache;
  cache.AddEvent(L"C:\\stays", 2000);
  cache.AddEvent(L"C:\\goes", 1999);
  cache.AddEvent(L"C:\\new", 12000);
  EXPECT_EQ(cache.GetCacheCount(), 2U);
  EXPECT_EQ(cache.EventExists(L"C:\\stays", 2000), 1);
  EXPECT_EQ(cache.EventExists(L"C:\\goes", 1999), 0);
}

TEST(SentEventCache, TheNextPurgeIsDueTenSecondsAfterTheLastOne) {
  SentEventCache cache;
  cache.AddEvent(L"C:\\a", 20000);  // purges; the next is due after 30000
  cache.AddEvent(L"C:\\b", 5);
  cache.AddEvent(L"C:\\c", 30000);
  EXPECT_EQ(cache.GetCacheCount(), 3U);
  cache.AddEvent(L"C:\\d", 30001);
  EXPECT_EQ(cache.EventExists(L"C:\\a", 20000), 0);
  EXPECT_EQ(cache.EventExists(L"C:\\b", 5), 0);
  EXPECT_EQ(cache.GetCacheCount(), 2U);
}

// A driver whose clock jumps far ahead once stops all purging until the real time catches up.
TEST(SentEventCache, AfterATimeFarAheadNothingIsPurgedAtRealTimes) {
  SentEventCache cache;
  cache.AddEvent(L"C:\\ahead", 1000000000);
  cache.AddEvent(L"C:\\a", 20000);
  cache.AddEvent(L"C:\\b", 90000);
  EXPECT_EQ(cache.GetCacheCount(), 3U);
}

TEST(SentEventCache, TimesAtTheEndsOfTheRangeAreDefined) {
  SentEventCache cache;
  cache.AddEvent(L"C:\\f", LATEST);
  EXPECT_EQ(cache.EventExists(L"C:\\f", LATEST), 1);
  cache.AddEvent(L"C:\\g", std::numeric_limits<long long>::min());
  EXPECT_EQ(cache.EventExists(L"C:\\g", std::numeric_limits<long long>::min() + 10001), 0);
}

// The rules once more, without purging: what a purge forgets is recomputed from the list of everything
// recorded.
TEST(SentEventCache, AgreesWithAReferenceOnRandomHistories) {
  for (unsigned seed = 0; seed < 500; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    SentEventCache cache;
    std::map<std::wstring, long long> recorded;
    long long lastPurge = 0;
    for (int step = 0; step < 100; ++step) {
      const std::wstring name(1, static_cast<wchar_t>(L'a' + random() % 5));
      const long long time = step * 700 + static_cast<long long>(random() % 14) * 1000 - 4000;
      if (random() % 2 == 0) {
        const auto found = recorded.find(name);
        const bool expected = found != recorded.end() && time - found->second <= 10000;
        ASSERT_EQ(cache.EventExists(name, time), expected ? 1 : 0);
        continue;
      }
      cache.AddEvent(name, time);
      if (time - lastPurge > 10000) {
        lastPurge = time;
        for (auto entry = recorded.begin(); entry != recorded.end();) {
          entry = time - entry->second > 10000 ? recorded.erase(entry) : ++entry;
        }
      }
      recorded[name] = time;
      ASSERT_EQ(cache.GetCacheCount(), recorded.size());
    }
  }
}

}  // namespace
