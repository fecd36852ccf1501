// Random histories, run through the cache and through a reference that compares every pair of events the
// plain way. The events handed out, the log with its order and what stays cached must agree.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "cache/cache_callbacks.h"
#include "cache/read_event_cache.h"
#include "support/log_capture.h"

namespace {

using ostrel::ULong32;
using ostrel_test::cacheCallbacks;
using ostrel_test::LogCapture;
using ostrel_test::LogLine;

struct Event {
  std::wstring name;
  ULong32 processId;
  unsigned long long start;
  unsigned long long end;
  std::uint32_t readSize;
  std::vector<std::wstring> hints;
  std::wstring user;

  bool operator==(const Event& other) const = default;
};

void PrintTo(const Event& event, std::ostream* stream) {
  *stream << testing::PrintToString(event.name) << " of " << event.processId << ", " << event.start << " to "
          << event.end << ", " << event.readSize << " bytes, " << event.hints.size() << " hints";
}

std::vector<Event> ToEvents(const std::vector<ReadEventMetaData>& records) {
  std::vector<Event> events;
  for (ReadEventMetaData record : records) {
    events.push_back({record.GetFileName(), record.GetProcessId(), record.GetStartTime(), record.GetEndTime(),
                      record.GetReadSize(), record.GetDestHints(), record.GetUser()});
  }
  return events;
}

class ReferenceCache {
 public:
  void Add(const Event& read) {
    const auto found = Find(read.name, read.processId);
    if (found == cached_.end()) {
      cached_.push_back(read);
      std::sort(cached_.begin(), cached_.end(), [](const Event& left, const Event& right) {
        return left.processId != right.processId ? left.processId > right.processId : left.name > right.name;
      });
      return;
    }
    found->end = read.end;
    found->readSize += read.readSize;
  }

  bool Remove(const std::wstring& name, ULong32 processId) {
    const auto found = Find(name, processId);
    if (found == cached_.end()) return false;
    cached_.erase(found);
    return true;
  }

  std::vector<Event> Get(unsigned long long now, const std::wstring& directory, std::vector<LogLine>& log) {
    std::vector<Event> events;
    for (std::size_t i = 0; i < cached_.size();) {
      if (cached_[i].end >= now - 60000) {
        ++i;
        continue;
      }
      if (cached_[i].name == directory) {
        log.push_back({7, L"Event suppressed. Filename is a directory."});
      } else {
        events.push_back(cached_[i]);
      }
      Erase(cached_, i);
    }
    RemoveOutgoingDuplicates(events, log);
    RemoveCachedDuplicates(events, log);
    return events;
  }

  const std::vector<Event>& Cached() const { return cached_; }

 private:
  static void Erase(std::vector<Event>& events, std::size_t position) {
    events.erase(events.begin() + static_cast<std::ptrdiff_t>(position));
  }

  static void RemoveOutgoingDuplicates(std::vector<Event>& events, std::vector<LogLine>& log) {
    for (std::size_t i = 0; i < events.size();) {
      bool erasedFirst = false;
      for (std::size_t j = i + 1; j < events.size();) {
        if (events[j].name != events[i].name) {
          ++j;
        } else if (events[i].hints.empty()) {
          log.push_back({7, L"Outgoing Event suppressed. Duplicate event. " + events[i].name});
          Erase(events, i);
          erasedFirst = true;
          break;
        } else {
          log.push_back({7, L"Event suppressed from outgoing events. Duplicate event. " + events[j].name});
          Erase(events, j);
        }
      }
      if (!erasedFirst) ++i;
    }
  }

  void RemoveCachedDuplicates(std::vector<Event>& events, std::vector<LogLine>& log) {
    for (std::size_t k = 0; k < events.size();) {
      bool erasedOutgoing = false;
      for (std::size_t c = 0; c < cached_.size();) {
        if (cached_[c].name != events[k].name) {
          ++c;
        } else if (events[k].hints.empty()) {
          log.push_back({7, L"Outgoing Event suppressed. Duplicate event. " + events[k].name});
          Erase(events, k);
          erasedOutgoing = true;
          break;
        } else {
          log.push_back({7, L"Event suppressed from cache. Duplicate event. " + cached_[c].name});
          Erase(cached_, c);
        }
      }
      if (!erasedOutgoing) ++k;
    }
  }

  std::vector<Event>::iterator Find(const std::wstring& name, ULong32 processId) {
    return std::find_if(cached_.begin(), cached_.end(), [&](const Event& event) {
      return event.name == name && event.processId == processId;
    });
  }

  std::vector<Event> cached_;
};

// One history of a seed: how many names, processes and steps it has, and all that happens in it.
class History {
 public:
  // How many lines of each kind all histories together have logged; the file name at the end does not count.
  using Lines = std::map<std::wstring, unsigned>;

  History(unsigned seed, Lines& lines)
      : lines_(lines), random_(seed), names_(1 + Below(8)), processes_(1 + Below(5)) {
    cacheCallbacks = ostrel_test::OrdinaryCallbacks();
    cacheCallbacks.titles = [this](ULong32, const std::wstring&, std::wstring&) { return hints_; };
    cacheCallbacks.user = [this](void*, std::wstring& user) {
      user = user_;
      return static_cast<unsigned char>(1);
    };
    cacheCallbacks.directory = [this](const std::wstring& name) {
      return static_cast<unsigned char>(name == directory_ ? 1 : 0);
    };
    if (Below(2) == 0) directory_ = Name(Below(names_));
  }

  void Run() {
    for (unsigned step = 0, steps = 5 + Below(60); step < steps && !testing::Test::HasFailure(); ++step) {
      const unsigned choice = Below(20);
      if (choice < 16) {
        AddOne();
      } else if (choice == 16) {
        RemoveOne(Name(Below(names_)), Process());
      } else {
        GetAndCompare(Now());
      }
    }
    CompareWhatIsLeft();
  }

 private:
  unsigned Below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
  static std::wstring Name(unsigned index) { return L"C:\\f" + std::to_wstring(index); }
  ULong32 Process() { return 1 + Below(processes_); }

  // Around the threshold that belongs to the times of Now, now and then at the ends of the range.
  unsigned long long Time() { return Below(50) == 0 ? ~0ULL - Below(70000) : 100 + Below(8); }
  unsigned long long Now() { return Below(12) == 0 ? Below(60000) : 60100 + Below(9); }

  void AddOne() {
    hints_.assign(Below(3) == 0 ? 1 : 0, L"title " + std::to_wstring(Below(100)));
    user_ = L"user " + std::to_wstring(Below(100));
    const unsigned long long time = Time();
    const Event read{
        Name(Below(names_)), Process(), time, time, static_cast<std::uint32_t>(random_()), hints_, user_};
    // As the notification loop does, or as a host may.
    if (Below(2) == 0 || !ostrel::MergeEvent(cache_, read.name, read.processId, read.start, read.readSize)) {
      cache_.AddEvent(read.name, nullptr, L"chrome.exe", read.processId, time, 0, FILE_EVENT_READ,
                      read.readSize);
    }
    reference_.Add(read);
    ASSERT_EQ(cache_.GetCacheCount(), reference_.Cached().size());
  }

  // The count tells whether exactly this event was cached.
  void RemoveOne(const std::wstring& name, ULong32 processId) {
    cache_.RemoveEvent(name, processId);
    reference_.Remove(name, processId);
    ASSERT_EQ(cache_.GetCacheCount(), reference_.Cached().size());
  }

  void GetAndCompare(unsigned long long now) {
    std::vector<LogLine> expectedLog;
    const std::vector<Event> expected = reference_.Get(now, directory_, expectedLog);
    ASSERT_EQ(ToEvents(cache_.GetEvents(now)), expected);
    ASSERT_EQ(log_.Take(), expectedLog);
    for (const LogLine& line : expectedLog) ++lines_[line.text.substr(0, line.text.find(L" C:"))];
    ASSERT_EQ(cache_.GetCacheCount(), reference_.Cached().size());
  }

  // Takes away every event but one of each file, which shows that exactly the right ones are there, and lets
  // the others come out, which shows what is in them.
  void CompareWhatIsLeft() {
    directory_.clear();
    for (unsigned index = 0; index < names_; ++index) {
      const ULong32 kept = Process();
      for (ULong32 processId = 1; processId <= processes_; ++processId) {
        if (processId != kept) RemoveOne(Name(index), processId);
      }
    }
    GetAndCompare(59999);
  }

  Lines& lines_;
  std::mt19937 random_;
  unsigned names_;
  unsigned processes_;
  std::vector<std::wstring> hints_;
  std::wstring user_;
  std::wstring directory_;
  LogCapture log_;
  ReadEventCache cache_{ostrel_test::userLookup, ostrel_test::tabTitleLookup, ostrel_test::directoryTest};
  ReferenceCache reference_;
};

TEST(ReadEventCacheReference, RandomHistoriesEndAsInTheReferenceThatComparesEveryPair) {
  History::Lines lines;
  for (unsigned seed = 0; seed < 5000 && !HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    History(seed, lines).Run();
  }
  // The histories would prove nothing if they never came to suppress anything.
  EXPECT_EQ(lines.size(), 4U);
  for (const auto& [text, count] : lines) EXPECT_GT(count, 1000U) << testing::PrintToString(text);
}

}  // namespace
