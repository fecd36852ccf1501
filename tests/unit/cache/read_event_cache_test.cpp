#include "cache/read_event_cache.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "cache/cache_callbacks.h"
#include "support/log_capture.h"

namespace {

using ostrel::ULong32;
using ostrel_test::cacheCallbacks;
using ostrel_test::LogCapture;
using ostrel_test::LogLine;

constexpr wchar_t FILE_NAME[] = L"C:\\dir\\file.txt";

// Every event with an end time below 40001 is due at this time.
constexpr unsigned long long NOW = 100001;
constexpr unsigned long long DUE = 40000;
constexpr unsigned long long NOT_DUE = 40001;

LogLine OutgoingSuppressed(const std::wstring& name) {
  return {7, L"Outgoing Event suppressed. Duplicate event. " + name};
}

LogLine SuppressedFromOutgoing(const std::wstring& name) {
  return {7, L"Event suppressed from outgoing events. Duplicate event. " + name};
}

LogLine SuppressedFromCache(const std::wstring& name) {
  return {7, L"Event suppressed from cache. Duplicate event. " + name};
}

// Two names to which the standard library gives the same hash. It hashes bytes, so the width of a character
// matters.
constexpr bool HAS_WIDE_CHARACTERS = sizeof(wchar_t) == 4;
const std::wstring COLLIDING = HAS_WIDE_CHARACTERS ? L"C:\\dhuct\u53EE\u504B" : L"C:\\d99bkke20";
const std::wstring COLLIDED = HAS_WIDE_CHARACTERS ? L"C:\\dcfmn\u5264\u51BD" : L"C:\\d7mwjo5bu";

std::vector<ULong32> ProcessIds(const std::vector<ReadEventMetaData>& events) {
  std::vector<ULong32> ids;
  for (const ReadEventMetaData& event : events) ids.push_back(event.GetProcessId());
  return ids;
}

std::vector<std::wstring> FileNames(const std::vector<ReadEventMetaData>& events) {
  std::vector<std::wstring> names;
  for (const ReadEventMetaData& event : events) names.push_back(event.GetFileName());
  return names;
}

class ReadEventCacheTest : public testing::Test {
 protected:
  ReadEventCacheTest() {
    cacheCallbacks = ostrel_test::OrdinaryCallbacks();
    cacheCallbacks.titles = [this](ULong32 processId, const std::wstring& processName, std::wstring& status) {
      titleCalls_.push_back({processId, processName});
      const bool hasTitles = std::find(hinted_.begin(), hinted_.end(), processId) != hinted_.end();
      status = hasTitles ? L"TABTITLE_SUCCESS" : L"TABTITLE_NO_TITLE_FOUND";
      return hasTitles ? std::vector<std::wstring>{L"Drive", L"Mail"} : std::vector<std::wstring>{};
    };
  }

  void Add(const std::wstring& name, ULong32 processId, unsigned long long time, ULong32 readSize = 1) {
    cache_.AddEvent(name, nullptr, L"\\Device\\chrome.exe", processId, time, 0, FILE_EVENT_READ, readSize);
  }

  struct TitleCall {
    ULong32 processId;
    std::wstring processName;
    bool operator==(const TitleCall&) const = default;
  };

  // The processes that have titles.
  std::vector<ULong32> hinted_;
  std::vector<TitleCall> titleCalls_;
  LogCapture log_;
  ReadEventCache cache_{ostrel_test::userLookup, ostrel_test::tabTitleLookup, ostrel_test::directoryTest};
};

TEST_F(ReadEventCacheTest, TheQuietTimeIsOneMinute) {
  static_assert(ReadEventCache::MILLISECOND_THRESHOLD == 60000);
  const int& threshold = ReadEventCache::MILLISECOND_THRESHOLD;
  EXPECT_EQ(threshold, 60000);
}

TEST_F(ReadEventCacheTest, ANewCacheIsEmpty) {
  EXPECT_EQ(cache_.GetCacheCount(), 0U);
  EXPECT_TRUE(cache_.GetEvents(NOW).empty());
  EXPECT_TRUE(cache_.GetEvents(0).empty());
}

TEST_F(ReadEventCacheTest, AnEventCarriesEverythingItWasCreatedWith) {
  int process = 0;
  void* passed = nullptr;
  cacheCallbacks.user = [&](void* handle, std::wstring& user) {
    passed = handle;
    EXPECT_EQ(user, L"");
    user = L"alice";
    return static_cast<unsigned char>(1);
  };
  hinted_ = {7};
  cache_.AddEvent(FILE_NAME, &process, L"\\Device\\chrome.exe", 7, 1234, 1, FILE_EVENT_WRITE, 42);
  EXPECT_EQ(cache_.GetCacheCount(), 1U);

  std::vector<ReadEventMetaData> events = cache_.GetEvents(NOW);
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].GetUser(), L"alice");
  EXPECT_EQ(events[0].GetProcessName(), L"\\Device\\chrome.exe");
  EXPECT_EQ(events[0].GetFileName(), FILE_NAME);
  EXPECT_EQ(events[0].GetProcessId(), 7U);
  EXPECT_EQ(events[0].GetStartTime(), 1234U);
  EXPECT_EQ(events[0].GetEndTime(), 1234U);
  EXPECT_EQ(events[0].GetDestHints(), (std::vector<std::wstring>{L"Drive", L"Mail"}));
  EXPECT_EQ(events[0].GetTabTitleStatus(), L"TABTITLE_SUCCESS");
  EXPECT_EQ(events[0].IsNetworkEvent(), 1);
  EXPECT_EQ(events[0].GetFileEventType(), FILE_EVENT_WRITE);
  EXPECT_EQ(events[0].GetReadSize(), 42U);
  EXPECT_EQ(passed, &process);
  EXPECT_EQ(titleCalls_, (std::vector<TitleCall>{{7, L"\\Device\\chrome.exe"}}));
  EXPECT_EQ(cache_.GetCacheCount(), 0U);
  EXPECT_TRUE(log_.Take().empty());
}

TEST_F(ReadEventCacheTest, AFurtherReadMovesTheEndAddsItsSizeAndAsksNobody) {
  int userCalls = 0;
  cacheCallbacks.user = [&](void*, std::wstring& user) {
    user = ++userCalls == 1 ? L"first" : L"second";
    return static_cast<unsigned char>(1);
  };
  hinted_ = {7};
  cache_.AddEvent(FILE_NAME, nullptr, L"first.exe", 7, 1000, 1, FILE_EVENT_READ, 10);
  hinted_.clear();
  cache_.AddEvent(FILE_NAME, nullptr, L"second.exe", 7, 5000, 0, FILE_EVENT_WRITE, 20);

  EXPECT_EQ(cache_.GetCacheCount(), 1U);
  std::vector<ReadEventMetaData> events = cache_.GetEvents(NOW);
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].GetStartTime(), 1000U);
  EXPECT_EQ(events[0].GetEndTime(), 5000U);
  EXPECT_EQ(events[0].GetReadSize(), 30U);
  EXPECT_EQ(events[0].GetUser(), L"first");
  EXPECT_EQ(events[0].GetProcessName(), L"first.exe");
  EXPECT_EQ(events[0].GetDestHints().size(), 2U);
  EXPECT_EQ(events[0].GetTabTitleStatus(), L"TABTITLE_SUCCESS");
  EXPECT_EQ(events[0].IsNetworkEvent(), 1);
  EXPECT_EQ(events[0].GetFileEventType(), FILE_EVENT_READ);
  EXPECT_EQ(userCalls, 1);
  EXPECT_EQ(titleCalls_.size(), 1U);
}

// A late message of an old read makes the event due sooner.
TEST_F(ReadEventCacheTest, AnEarlierTimeMovesTheEndBackwards) {
  Add(FILE_NAME, 7, 50000);
  EXPECT_TRUE(cache_.GetEvents(NOW).empty());
  Add(FILE_NAME, 7, 3);
  const std::vector<ReadEventMetaData> events = cache_.GetEvents(NOW);
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].GetStartTime(), 50000U);
  EXPECT_EQ(events[0].GetEndTime(), 3U);
}

TEST_F(ReadEventCacheTest, AReadMergesWhateverTheGapAndPostponesTheEvent) {
  Add(FILE_NAME, 7, 1000);
  Add(FILE_NAME, 7, 90000000);
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
  EXPECT_TRUE(cache_.GetEvents(90060000).empty());
  const std::vector<ReadEventMetaData> events = cache_.GetEvents(90060001);
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].GetStartTime(), 1000U);
}

TEST_F(ReadEventCacheTest, TheReadSizeWrapsAt32Bits) {
  Add(FILE_NAME, 7, 1000, 2);
  Add(FILE_NAME, 7, 1000, 0xFFFFFFFF);
  EXPECT_EQ(cache_.GetEvents(NOW).at(0).GetReadSize(), 1U);
}

TEST_F(ReadEventCacheTest, AReadAfterTheEventWasHandedOutStartsANewOne) {
  Add(FILE_NAME, 7, 1000, 5);
  EXPECT_EQ(cache_.GetEvents(NOW).size(), 1U);
  Add(FILE_NAME, 7, 2000, 6);
  std::vector<ReadEventMetaData> events = cache_.GetEvents(NOW);
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].GetStartTime(), 2000U);
  EXPECT_EQ(events[0].GetReadSize(), 6U);
  EXPECT_EQ(titleCalls_.size(), 2U);
}

TEST_F(ReadEventCacheTest, EachProcessHasItsOwnEventOfAFile) {
  Add(FILE_NAME, 4, 1000);
  Add(FILE_NAME, 8, 1000);
  EXPECT_EQ(cache_.GetCacheCount(), 2U);
}

TEST_F(ReadEventCacheTest, AProcessWhoseUserCannotBeFoundIsMarkedAndLogged) {
  cacheCallbacks.user = [](void*, std::wstring& user) {
    user = L"half-read name";
    return static_cast<unsigned char>(0);
  };
  Add(FILE_NAME, 7, 1000);
  EXPECT_EQ(log_.Take(), (std::vector<LogLine>{{7, L"User not identified"}}));
  EXPECT_EQ(cache_.GetEvents(NOW).at(0).GetUser(), L"User not identified");
}

TEST_F(ReadEventCacheTest, AnyNonZeroAnswerOfTheUserLookupIsAYes) {
  cacheCallbacks.user = [](void*, std::wstring& user) {
    user = L"bob";
    return static_cast<unsigned char>(200);
  };
  Add(FILE_NAME, 7, 1000);
  EXPECT_TRUE(log_.Take().empty());
  EXPECT_EQ(cache_.GetEvents(NOW).at(0).GetUser(), L"bob");
}

TEST_F(ReadEventCacheTest, WithCaptureOffNoTitlesAreAskedForAndHintsAndStatusAreEmpty) {
  hinted_ = {7};
  cache_.DisableTabTitleCapture();
  Add(FILE_NAME, 7, 1000);
  std::vector<ReadEventMetaData> events = cache_.GetEvents(NOW);
  ASSERT_EQ(events.size(), 1U);
  EXPECT_TRUE(events[0].GetDestHints().empty());
  EXPECT_EQ(events[0].GetTabTitleStatus(), L"");
  EXPECT_TRUE(titleCalls_.empty());
}

TEST_F(ReadEventCacheTest, SwitchingCaptureLeavesCachedEventsAsTheyAre) {
  hinted_ = {1, 2};
  Add(L"C:\\on", 1, 1000);
  cache_.DisableTabTitleCapture();
  Add(L"C:\\on", 1, 1000);
  Add(L"C:\\off", 2, 1000);
  cache_.EnableTabTitleCapture();
  Add(L"C:\\off", 2, 1000);
  std::vector<ReadEventMetaData> events = cache_.GetEvents(NOW);
  ASSERT_EQ(ProcessIds(events), (std::vector<ULong32>{2, 1}));
  EXPECT_TRUE(events[0].GetDestHints().empty());
  EXPECT_EQ(events[1].GetDestHints().size(), 2U);
  EXPECT_EQ(titleCalls_.size(), 1U);
}

TEST_F(ReadEventCacheTest, AStatusWithoutTitlesIsKept) {
  Add(FILE_NAME, 7, 1000);
  EXPECT_EQ(cache_.GetEvents(NOW).at(0).GetTabTitleStatus(), L"TABTITLE_NO_TITLE_FOUND");
}

TEST_F(ReadEventCacheTest, RemovingForgetsTheEventOfThatProcessOnly) {
  Add(FILE_NAME, 4, 1000);
  Add(FILE_NAME, 8, 1000);
  cache_.RemoveEvent(FILE_NAME, 8);
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
  EXPECT_EQ(ProcessIds(cache_.GetEvents(NOW)), std::vector<ULong32>{4});
}

TEST_F(ReadEventCacheTest, RemovingAnAbsentEventDoesNothing) {
  Add(FILE_NAME, 4, 1000);
  cache_.RemoveEvent(FILE_NAME, 5);
  cache_.RemoveEvent(L"C:\\DIR\\FILE.TXT", 4);
  cache_.RemoveEvent(L"", 0);
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
  EXPECT_TRUE(log_.Take().empty());
}

TEST_F(ReadEventCacheTest, ARemovedEventIsNeverHandedOut) {
  Add(FILE_NAME, 4, 1000);
  cache_.RemoveEvent(FILE_NAME, 4);
  EXPECT_TRUE(cache_.GetEvents(NOW).empty());
}

TEST_F(ReadEventCacheTest, AnEventIsDueWhenItsEndLiesMoreThanAMinuteBack) {
  Add(FILE_NAME, 7, 40000);
  EXPECT_TRUE(cache_.GetEvents(100000).empty());
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
  EXPECT_EQ(cache_.GetEvents(100001).size(), 1U);
  EXPECT_EQ(cache_.GetCacheCount(), 0U);
}

TEST_F(ReadEventCacheTest, TheEndDecidesNotTheStart) {
  Add(FILE_NAME, 7, 1);
  Add(FILE_NAME, 7, NOT_DUE);
  EXPECT_TRUE(cache_.GetEvents(NOW).empty());
}

// A clock that stands near 1970 empties the cache at every pass.
TEST_F(ReadEventCacheTest, BelowOneMinuteTheThresholdWrapsAndEveryEventIsDue) {
  Add(L"C:\\a", 1, 0);
  Add(L"C:\\b", 2, 5000000000000);
  EXPECT_EQ(ProcessIds(cache_.GetEvents(0)), (std::vector<ULong32>{2, 1}));
  Add(L"C:\\a", 1, 59998);
  EXPECT_EQ(cache_.GetEvents(59999).size(), 1U);
  Add(L"C:\\a", 1, 0);
  EXPECT_TRUE(cache_.GetEvents(60000).empty());
  EXPECT_EQ(cache_.GetEvents(60001).size(), 1U);
}

TEST_F(ReadEventCacheTest, AWrappedThresholdStillLeavesATimeThatIsNotBelowIt) {
  Add(L"C:\\a", 1, ~0ULL);
  EXPECT_TRUE(cache_.GetEvents(0).empty());
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
}

TEST_F(ReadEventCacheTest, EventsComeOutFromTheHighestProcessIdAndTheGreatestPathDown) {
  Add(L"C:\\a", 1, DUE);
  Add(L"C:\\c", 9, DUE);
  Add(L"C:\\d", 9, DUE);
  Add(L"C:\\b", 0xFFFFFFFF, DUE);
  Add(L"C:\\da", 9, DUE);
  EXPECT_EQ(FileNames(cache_.GetEvents(NOW)),
            (std::vector<std::wstring>{L"C:\\b", L"C:\\da", L"C:\\d", L"C:\\c", L"C:\\a"}));
}

TEST_F(ReadEventCacheTest, OnlyTheDueEventsAreTaken) {
  Add(L"C:\\due", 1, DUE);
  Add(L"C:\\later", 2, NOT_DUE);
  EXPECT_EQ(FileNames(cache_.GetEvents(NOW)), std::vector<std::wstring>{L"C:\\due"});
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
  EXPECT_EQ(FileNames(cache_.GetEvents(NOW + 1)), std::vector<std::wstring>{L"C:\\later"});
}

TEST_F(ReadEventCacheTest, ADirectoryIsDroppedAndLogged) {
  cacheCallbacks.directory = [](const std::wstring& name) {
    return static_cast<unsigned char>(name == L"C:\\dir" ? 2 : 0);
  };
  Add(L"C:\\dir", 1, DUE);
  Add(L"C:\\dir\\f", 1, DUE);
  EXPECT_EQ(FileNames(cache_.GetEvents(NOW)), std::vector<std::wstring>{L"C:\\dir\\f"});
  EXPECT_EQ(log_.Take(), (std::vector<LogLine>{{7, L"Event suppressed. Filename is a directory."}}));
  EXPECT_EQ(cache_.GetCacheCount(), 0U);
}

TEST_F(ReadEventCacheTest, OnlyDueEventsAreTestedForBeingADirectoryInTheOrderOfTheCache) {
  std::vector<std::wstring> tested;
  cacheCallbacks.directory = [&](const std::wstring& name) {
    tested.push_back(name);
    return static_cast<unsigned char>(1);
  };
  Add(L"C:\\a", 1, DUE);
  Add(L"C:\\b", 2, DUE);
  Add(L"C:\\c", 3, NOT_DUE);
  EXPECT_TRUE(cache_.GetEvents(NOW).empty());
  EXPECT_EQ(tested, (std::vector<std::wstring>{L"C:\\b", L"C:\\a"}));
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
}

TEST_F(ReadEventCacheTest, ADueDirectoryDoesNotSuppressTheCachedEventOfItsPath) {
  cacheCallbacks.directory = [](const std::wstring&) { return static_cast<unsigned char>(1); };
  hinted_ = {2};
  Add(FILE_NAME, 1, NOT_DUE);
  Add(FILE_NAME, 2, DUE);
  EXPECT_TRUE(cache_.GetEvents(NOW).empty());
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
}

TEST_F(ReadEventCacheTest, OfTwoDueEventsWithoutHintsTheLaterInOrderComesOut) {
  Add(FILE_NAME, 4, DUE);
  Add(FILE_NAME, 8, DUE);
  EXPECT_EQ(ProcessIds(cache_.GetEvents(NOW)), std::vector<ULong32>{4});
  EXPECT_EQ(log_.Take(), std::vector<LogLine>{OutgoingSuppressed(FILE_NAME)});
  EXPECT_EQ(cache_.GetCacheCount(), 0U);
}

TEST_F(ReadEventCacheTest, OfTwoDueEventsTheOneWithHintsComesOut) {
  hinted_ = {8};
  Add(FILE_NAME, 4, DUE);
  Add(FILE_NAME, 8, DUE);
  EXPECT_EQ(ProcessIds(cache_.GetEvents(NOW)), std::vector<ULong32>{8});
  EXPECT_EQ(log_.Take(), std::vector<LogLine>{SuppressedFromOutgoing(FILE_NAME)});

  hinted_ = {4};
  Add(FILE_NAME, 4, DUE);
  Add(FILE_NAME, 8, DUE);
  EXPECT_EQ(ProcessIds(cache_.GetEvents(NOW)), std::vector<ULong32>{4});
  EXPECT_EQ(log_.Take(), std::vector<LogLine>{OutgoingSuppressed(FILE_NAME)});
}

TEST_F(ReadEventCacheTest, OfSeveralDueEventsWithHintsTheFirstComesOut) {
  hinted_ = {6, 4, 3};
  for (const ULong32 processId : {3U, 4U, 5U, 6U, 7U, 8U}) Add(FILE_NAME, processId, DUE);
  EXPECT_EQ(ProcessIds(cache_.GetEvents(NOW)), std::vector<ULong32>{6});
  EXPECT_EQ(log_.Take(),
            (std::vector<LogLine>{OutgoingSuppressed(FILE_NAME), OutgoingSuppressed(FILE_NAME),
                                  SuppressedFromOutgoing(FILE_NAME), SuppressedFromOutgoing(FILE_NAME),
                                  SuppressedFromOutgoing(FILE_NAME)}));
}

TEST_F(ReadEventCacheTest, LinesOfInterleavedFilesComeInTheOrderOfTheFirstOfEachPair) {
  hinted_ = {9};
  Add(L"C:\\a", 9, DUE);
  Add(L"C:\\b", 8, DUE);
  Add(L"C:\\a", 7, DUE);
  Add(L"C:\\b", 6, DUE);
  Add(L"C:\\a", 5, DUE);
  EXPECT_EQ(ProcessIds(cache_.GetEvents(NOW)), (std::vector<ULong32>{9, 6}));
  EXPECT_EQ(log_.Take(),
            (std::vector<LogLine>{SuppressedFromOutgoing(L"C:\\a"), SuppressedFromOutgoing(L"C:\\a"),
                                  OutgoingSuppressed(L"C:\\b")}));
}

TEST_F(ReadEventCacheTest, DuplicatesAreFoundByTheExactName) {
  Add(L"C:\\a", 4, DUE);
  Add(L"C:\\A", 8, DUE);
  EXPECT_EQ(cache_.GetEvents(NOW).size(), 2U);
  EXPECT_TRUE(log_.Take().empty());
}

TEST_F(ReadEventCacheTest, ADueEventWithoutHintsIsDroppedWhileItsFileIsStillCached) {
  Add(FILE_NAME, 4, DUE);
  Add(FILE_NAME, 8, NOT_DUE);
  Add(FILE_NAME, 9, NOT_DUE);
  EXPECT_TRUE(cache_.GetEvents(NOW).empty());
  EXPECT_EQ(log_.Take(), std::vector<LogLine>{OutgoingSuppressed(FILE_NAME)});
  EXPECT_EQ(cache_.GetCacheCount(), 2U);
}

TEST_F(ReadEventCacheTest, ADueEventWithHintsComesOutAndErasesTheCachedOnesOfItsFile) {
  hinted_ = {4, 9};
  Add(FILE_NAME, 4, DUE);
  Add(FILE_NAME, 8, NOT_DUE);
  Add(FILE_NAME, 9, NOT_DUE);
  Add(L"C:\\other", 8, NOT_DUE);
  EXPECT_EQ(ProcessIds(cache_.GetEvents(NOW)), std::vector<ULong32>{4});
  EXPECT_EQ(log_.Take(),
            (std::vector<LogLine>{SuppressedFromCache(FILE_NAME), SuppressedFromCache(FILE_NAME)}));
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
  EXPECT_EQ(FileNames(cache_.GetEvents(NOW + 1)), std::vector<std::wstring>{L"C:\\other"});
}

TEST_F(ReadEventCacheTest, AnEventErasedByADuplicateCanBeReadAnew) {
  hinted_ = {4};
  Add(FILE_NAME, 4, DUE);
  Add(FILE_NAME, 8, NOT_DUE);
  EXPECT_EQ(cache_.GetEvents(NOW).size(), 1U);
  Add(FILE_NAME, 8, NOT_DUE, 77);
  EXPECT_TRUE(cache_.GetEvents(NOW).empty());
  EXPECT_EQ(cache_.GetEvents(NOW + 1).at(0).GetReadSize(), 77U);
}

TEST_F(ReadEventCacheTest, LinesOfTheCacheStepFollowTheOrderOfTheOutgoingEvents) {
  hinted_ = {9, 7};
  Add(L"C:\\a", 9, DUE);
  Add(L"C:\\b", 8, DUE);
  Add(L"C:\\c", 7, DUE);
  Add(L"C:\\c", 20, NOT_DUE);
  Add(L"C:\\b", 19, NOT_DUE);
  Add(L"C:\\a", 18, NOT_DUE);
  Add(L"C:\\c", 17, NOT_DUE);
  EXPECT_EQ(ProcessIds(cache_.GetEvents(NOW)), (std::vector<ULong32>{9, 7}));
  EXPECT_EQ(log_.Take(),
            (std::vector<LogLine>{SuppressedFromCache(L"C:\\a"), OutgoingSuppressed(L"C:\\b"),
                                  SuppressedFromCache(L"C:\\c"), SuppressedFromCache(L"C:\\c")}));
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
}

TEST_F(ReadEventCacheTest, DirectoryLinesComeBeforeOutgoingDuplicatesAndTheseBeforeCachedOnes) {
  cacheCallbacks.directory = [](const std::wstring& name) {
    return static_cast<unsigned char>(name == L"C:\\dir" ? 1 : 0);
  };
  hinted_ = {9};
  Add(L"C:\\f", 9, DUE);
  Add(L"C:\\f", 8, DUE);
  Add(L"C:\\f", 7, NOT_DUE);
  Add(L"C:\\dir", 1, DUE);
  EXPECT_EQ(cache_.GetEvents(NOW).size(), 1U);
  EXPECT_EQ(log_.Take(), (std::vector<LogLine>{{7, L"Event suppressed. Filename is a directory."},
                                               SuppressedFromOutgoing(L"C:\\f"),
                                               SuppressedFromCache(L"C:\\f")}));
}

TEST_F(ReadEventCacheTest, CachedEventsAreDuplicatesOnlyOfOutgoingOnes) {
  Add(FILE_NAME, 4, NOT_DUE);
  Add(FILE_NAME, 8, NOT_DUE);
  Add(L"C:\\due", 1, DUE);
  EXPECT_EQ(cache_.GetEvents(NOW).size(), 1U);
  EXPECT_EQ(cache_.GetCacheCount(), 2U);
  EXPECT_TRUE(log_.Take().empty());
}

TEST_F(ReadEventCacheTest, ThePointersAreCopiedAtConstruction) {
  ostrel::UserLookup user = ostrel_test::userLookup;
  ostrel::TabTitleLookup titles = ostrel_test::tabTitleLookup;
  ostrel::DirectoryTest directory = ostrel_test::directoryTest;
  ReadEventCache cache(user, titles, directory);
  user = nullptr;
  titles = nullptr;
  directory = nullptr;
  cache.AddEvent(FILE_NAME, nullptr, L"chrome.exe", 7, DUE, 0, FILE_EVENT_READ, 1);
  EXPECT_EQ(cache.GetEvents(NOW).size(), 1U);
}

// A library that hashes otherwise needs another pair of names; the tests of colliding names prove nothing
// without one.
TEST_F(ReadEventCacheTest, TheCollidingNamesHaveOneHash) {
  const std::hash<std::wstring_view> hash;
  ASSERT_EQ(hash(COLLIDING), hash(COLLIDED));
  ASSERT_NE(COLLIDING, COLLIDED);
}

TEST_F(ReadEventCacheTest, OutgoingEventsOfDifferentFilesAreNoDuplicatesWhenTheirHashesCollide) {
  Add(COLLIDING, 2, DUE);
  Add(COLLIDED, 1, DUE);
  EXPECT_EQ(FileNames(cache_.GetEvents(NOW)), (std::vector<std::wstring>{COLLIDING, COLLIDED}));
  EXPECT_TRUE(log_.Take().empty());

  hinted_ = {1, 2};
  Add(COLLIDING, 2, DUE);
  Add(COLLIDED, 1, DUE);
  EXPECT_EQ(FileNames(cache_.GetEvents(NOW)), (std::vector<std::wstring>{COLLIDING, COLLIDED}));
  EXPECT_TRUE(log_.Take().empty());
}

TEST_F(ReadEventCacheTest, DuplicatesAreFoundAlsoBesideAFileWhoseHashCollides) {
  Add(COLLIDING, 4, DUE);
  Add(COLLIDED, 3, DUE);
  Add(COLLIDING, 2, DUE);
  Add(COLLIDED, 1, DUE);
  EXPECT_EQ(ProcessIds(cache_.GetEvents(NOW)), (std::vector<ULong32>{2, 1}));
  EXPECT_EQ(log_.Take().size(), 2U);
}

TEST_F(ReadEventCacheTest, ACachedEventOfAnotherFileIsNoDuplicateWhenTheHashesCollide) {
  Add(COLLIDING, 1, DUE);
  Add(COLLIDED, 1, NOT_DUE);
  EXPECT_EQ(FileNames(cache_.GetEvents(NOW)), std::vector<std::wstring>{COLLIDING});
  EXPECT_EQ(cache_.GetCacheCount(), 1U);

  hinted_ = {2};
  Add(COLLIDING, 2, DUE);
  EXPECT_EQ(FileNames(cache_.GetEvents(NOW)), std::vector<std::wstring>{COLLIDING});
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
  EXPECT_TRUE(log_.Take().empty());
}

}  // namespace
