// The caches with all the threads that use them at once. Under ThreadSanitizer these tests find unlocked
// state; everywhere they check that the books balance: what was added was handed out, removed, or is still
// there.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "cache/cache_callbacks.h"
#include "cache/read_event_cache.h"
#include "cache/sent_event_cache.h"
#include "cache/tab_title_switch.h"
#include "log/log.h"
#include "network/network_event_cache.h"
#include "support/log_capture.h"
#include "support/test_thread.h"

namespace {

using ostrel::ULong32;
using ostrel_test::LogCapture;
using ostrel_test::LogLine;
using ostrel_test::TestThread;

// Events at DUE are handed out at NOW, those at NOT_DUE stay.
constexpr unsigned long long NOW = 100001;
constexpr unsigned long long DUE = 40000;
constexpr unsigned long long NOT_DUE = 40001;

// Runs the writers to their end, all others over and over until then and at least once.
void RunTogether(const std::vector<std::function<void()>>& writers,
                 const std::vector<std::function<void()>>& others) {
  std::atomic<bool> written{false};
  std::vector<std::unique_ptr<TestThread>> otherThreads;
  for (const auto& other : others) {
    otherThreads.push_back(std::make_unique<TestThread>([&written, other] {
      do {
        other();
      } while (!written);
    }));
  }
  std::vector<std::unique_ptr<TestThread>> writerThreads;
  for (const auto& writer : writers) writerThreads.push_back(std::make_unique<TestThread>(writer));
  writerThreads.clear();
  written = true;
}

std::wstring Name(unsigned number) {
  return L"C:\\f" + std::to_wstring(number);
}

// The real callers of the cache of reads: the notification loop adds and removes, the disk event thread
// takes, the host switches the capture of tab titles.
class ReadEventCacheRaces : public testing::Test {
 protected:
  ReadEventCacheRaces() {
    ostrel_test::cacheCallbacks = ostrel_test::OrdinaryCallbacks();
    ostrel_test::cacheCallbacks.titles = [](ULong32, const std::wstring&, std::wstring& status) {
      status = L"TABTITLE_SUCCESS";
      return std::vector<std::wstring>{L"title"};
    };
  }

  // Runs in the one thread that takes events, and at the end in the test's own.
  void Take(unsigned long long now) {
    for (ReadEventMetaData& event : cache_.GetEvents(now)) {
      ++taken_[event.GetFileName()];
      takenBytes_ += event.GetReadSize();
      const bool hasTitles = !event.GetDestHints().empty();
      EXPECT_EQ(event.GetTabTitleStatus(), hasTitles ? L"TABTITLE_SUCCESS" : L"");
      EXPECT_EQ(event.GetUser(), L"somebody");
    }
  }

  void Add(const std::wstring& name, unsigned long long time) {
    cache_.AddEvent(name, nullptr, L"chrome.exe", 1, time, 0, FILE_EVENT_READ, 1);
  }

  LogCapture log_;
  ReadEventCache cache_{ostrel_test::userLookup, ostrel_test::tabTitleLookup, ostrel_test::directoryTest};
  ReadEventCache downloads_{ostrel_test::userLookup, ostrel_test::tabTitleLookup, ostrel_test::directoryTest};
  ostrel::TabTitleSwitch titles_{cache_, downloads_};
  std::map<std::wstring, unsigned> taken_;
  unsigned long long takenBytes_ = 0;
};

TEST_F(ReadEventCacheRaces, EveryFileIsTakenOnceOrWasRemovedOrIsStillThere) {
  constexpr unsigned files = 20000;
  const auto write = [this] {
    for (unsigned i = 0; i < files; ++i) {
      Add(Name(i), i % 2 == 0 ? DUE : NOT_DUE);
      if (i % 4 == 3) cache_.RemoveEvent(Name(i), 1);
    }
  };
  const auto log = [this] {
    ostrel::Log(ostrel::LOG_ERROR, L"%s", L"another thread's line");
    log_.Take();  // else they would pile up
  };
  RunTogether({write},
              {[this] { Take(NOW); }, [this] { titles_.Disable(); }, [this] { titles_.Enable(); }, log});
  Take(NOW);
  EXPECT_EQ(taken_.size(), files / 2);
  EXPECT_EQ(cache_.GetCacheCount(), files / 4);
  Take(NOW + 1);
  EXPECT_EQ(cache_.GetCacheCount(), 0U);

  for (unsigned i = 0; i < files; ++i) {
    const auto found = taken_.find(Name(i));
    const unsigned times = found == taken_.end() ? 0 : found->second;
    ASSERT_EQ(times, i % 4 == 3 ? 0U : 1U) << i;
  }
}

TEST_F(ReadEventCacheRaces, EveryReadOfAFileIsCountedOnceWhetherItMergedOrStartedAnew) {
  constexpr unsigned files = 20;
  constexpr unsigned readsOfEach = 2000;
  const auto write = [this](unsigned firstFile) {
    for (unsigned i = 0; i < files * readsOfEach; ++i)
      Add(Name(firstFile + i % files), i % 3 == 0 ? DUE : NOT_DUE);
  };
  const auto switchTitles = [this] {
    titles_.Disable();
    titles_.Enable();
    log_.Take();
  };
  RunTogether({[write] { write(0); }, [write] { write(files); }}, {[this] { Take(NOW); }, switchTitles});
  Take(NOW + 1);
  EXPECT_EQ(takenBytes_, 2ULL * files * readsOfEach);
  EXPECT_EQ(taken_.size(), 2 * files);
  EXPECT_EQ(cache_.GetCacheCount(), 0U);
}

// The bytes that the lines of purged streams name.
unsigned long long PurgedBytes(const std::vector<LogLine>& lines) {
  unsigned long long bytes = 0;
  for (const LogLine& line : lines) {
    if (line.text.rfind(L"purged network event: ", 0) != 0) continue;
    bytes += std::wcstoull(line.text.c_str() + line.text.rfind(L' '), nullptr, 10);
  }
  return bytes;
}

constexpr unsigned STREAMS = 16;
constexpr unsigned REPORTS = 30000;

// The packet reader's part: one byte per report, every stream with a time of its own.
void ReportPackets(NetworkEventCache& cache) {
  std::array<unsigned char, 16> address{};
  for (unsigned i = 0; i < REPORTS; ++i) {
    const unsigned stream = i % STREAMS;
    address.back() = static_cast<unsigned char>(stream);
    cache.AddEvent(stream % 2 == 0 ? L"chrome.exe" : L"firefox.exe", stream, address.data(),
                   stream % 4 < 2 ? IPV4 : IPV6, 443, stream < STREAMS / 2 ? DUE : 10 * NOW, 1);
  }
}

// The disk event thread's part.
void AskForStreams(NetworkEventCache& cache) {
  for (const IpPort& endpoint : cache.GetLikelyEvents(L"chrome.exe", 0, 0, 100)) {
    EXPECT_LT(endpoint.GetIpV4Address(), STREAMS);
    EXPECT_EQ(endpoint.GetIpV4Address() % 2, 0U);
  }
}

TEST(NetworkEventCacheRaces, EveryByteIsInAPurgedStreamOrStillThere) {
  LogCapture log;
  NetworkEventCache cache(1);
  unsigned long long purgedStreams = 0;
  RunTogether({[&] { ReportPackets(cache); }}, {[&] {
                purgedStreams += static_cast<unsigned long long>(cache.PurgeEvents(NOW + 70000));
                AskForStreams(cache);
              }});
  purgedStreams += static_cast<unsigned long long>(cache.PurgeEvents(NOW + 70000));
  EXPECT_EQ(cache.GetStreamCount(L"chrome.exe") + cache.GetStreamCount(L"firefox.exe"), STREAMS / 2);
  purgedStreams += static_cast<unsigned long long>(cache.PurgeEvents(~0ULL));

  const std::vector<LogLine> lines = log.Take();
  EXPECT_EQ(PurgedBytes(lines), REPORTS);
  EXPECT_EQ(cache.GetStreamCount(L"chrome.exe") + cache.GetStreamCount(L"firefox.exe"), 0U);
  EXPECT_EQ(cache.GetCacheCount(), 2U);
  const auto added = std::count_if(lines.begin(), lines.end(), [](const LogLine& line) {
    return line.text.rfind(L"added network event: ", 0) == 0;
  });
  EXPECT_EQ(static_cast<unsigned long long>(added), purgedStreams);
}

TEST(NetworkEventCacheRaces, PurgingEverythingAmongTheOthersLeavesAWholeCache) {
  LogCapture log;
  NetworkEventCache cache(0);
  RunTogether({[&] { ReportPackets(cache); }}, {[&] { cache.PurgeAllEvents(); },
                                                [&] {
                                                  cache.PurgeEvents(NOW + 70000);
                                                  AskForStreams(cache);
                                                }});
  EXPECT_LE(cache.GetStreamCount(L"chrome.exe"), STREAMS / 2);
  cache.PurgeEvents(~0ULL);
  EXPECT_LE(PurgedBytes(log.Take()), REPORTS);
  cache.PurgeAllEvents();
  EXPECT_EQ(cache.GetCacheCount(), 0U);
  ReportPackets(cache);
  EXPECT_EQ(cache.GetStreamCount(L"chrome.exe"), STREAMS / 2);
}

TEST(SentEventCacheRaces, WhatOneThreadRecordsTheOthersFind) {
  SentEventCache cache;
  constexpr unsigned files = 10000;
  std::atomic<unsigned> recorded{0};
  const auto record = [&] {
    for (unsigned i = 0; i < files; ++i) {
      cache.AddEvent(Name(i), 1000 + i);
      recorded = i + 1;
    }
  };
  const auto find = [&] {
    const unsigned known = recorded;
    if (known > 0) {
      EXPECT_EQ(cache.EventExists(Name(known - 1), 1000 + known - 1), 1);
    }
    EXPECT_EQ(cache.EventExists(Name(files), 1000), 0);
  };
  RunTogether({record}, {find, find});
  EXPECT_EQ(cache.GetCacheCount(), files);
}

TEST(LogRaces, LinesOfSeveralThreadsArriveWholeAndAllOfThem) {
  LogCapture log;
  constexpr int linesOfEach = 2000;
  std::vector<std::function<void()>> writers;
  for (const wchar_t letter : {L'a', L'b', L'c'}) {
    writers.push_back([letter] {
      const std::wstring text(200, letter);
      for (int i = 0; i < linesOfEach; ++i) ostrel::Log(ostrel::LOG_NOTABLE, L"%s", text.c_str());
    });
  }
  RunTogether(writers, {});
  std::map<std::wstring, int> counts;
  for (const LogLine& line : log.Take()) ++counts[line.text];
  EXPECT_EQ(counts, (std::map<std::wstring, int>{{std::wstring(200, L'a'), linesOfEach},
                                                 {std::wstring(200, L'b'), linesOfEach},
                                                 {std::wstring(200, L'c'), linesOfEach}}));
}

}  // namespace
