#ifndef OSTREL_CACHE_READ_EVENT_CACHE_H
#define OSTREL_CACHE_READ_EVENT_CACHE_H

#include <cstddef>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "cache/event_records.h"
#include "util/export.h"
#include "util/integers.h"

class ReadEventCache;

namespace ostrel {

// Merges into the event of (fileName, processId) as ReadEventCache::AddEvent does, if there is one: without
// copies of the names, for a caller to whom every message counts. False when there is none. Not exported: for
// the library itself.
bool MergeEvent(ReadEventCache& cache, std::wstring_view fileName, ULong32 processId, unsigned long long time,
                ULong32 readSize);

// Fills `user` with the account name behind an open process handle; zero when it cannot.
using UserLookup = unsigned char (*)(void* processHandle, std::wstring& user);
// Returns the window (tab) titles of a process and fills `status` with how the look-up went.
using TabTitleLookup = std::vector<std::wstring> (*)(ULong32 processId, std::wstring processName,
                                                     std::wstring& status);
// Non-zero when the path names a directory.
using DirectoryTest = unsigned char (*)(std::wstring fileName);

}  // namespace ostrel

// Merges single file events into one event per file and process, holds each until it has been quiet for a
// minute and hands it out once, free of duplicates.
//
// Every member but GetCacheCount holds the cache's own mutex for its whole run, the three callbacks included:
// a slow callback holds up the other threads, and a callback must not call back into the same cache. What a
// callback throws leaves the member after the mutex is released.
class OSTREL_EXPORT ReadEventCache {
 public:
  // The quiet time in milliseconds.
  static const int MILLISECOND_THRESHOLD = 60000;

  // The callbacks are copied and must stay callable for the life of the cache. Tab title capture starts on.
  ReadEventCache(ostrel::UserLookup& userLookup, ostrel::TabTitleLookup& tabTitleLookup,
                 ostrel::DirectoryTest& directoryTest);

  // Creates the event of (fileName, processId), asking for its user and its tab titles, or merges into it:
  // then only the end time (also backwards) and the read size (adding, modulo 2^32) change and no callback
  // runs. `processHandle` is an open handle of the process, only passed on; `time` is in milliseconds,
  // `readSize` in bytes.
  void AddEvent(std::wstring fileName, void* processHandle, std::wstring processName,
                ostrel::ULong32 processId, unsigned long long time, unsigned char isNetworkEvent,
                FILE_EVENT_TYPE fileEventType, ostrel::ULong32 readSize);

  // Forgets the event of exactly this file and process, if there is one.
  void RemoveEvent(std::wstring fileName, ostrel::ULong32 processId);

  // Takes out the events whose end time is less than `now` - 60000 (unsigned: below 60000 every event goes)
  // and returns them from the highest process id down and, within one process, from the greatest path down,
  // without directories and without duplicates. Costs next to nothing while no event is due.
  std::vector<ReadEventMetaData> GetEvents(unsigned long long now);

  // Only events created later are affected.
  void EnableTabTitleCapture();
  void DisableTabTitleCapture();

  // Number of cached events. Takes no lock: a momentary count.
  unsigned long long GetCacheCount();

 private:
  friend bool ostrel::MergeEvent(ReadEventCache& cache, std::wstring_view fileName, ostrel::ULong32 processId,
                                 unsigned long long time, ostrel::ULong32 readSize);

  // All end times in order, so that a pass sees at once whether anything is due.
  using EndTimes = std::multiset<unsigned long long>;

  struct CachedEvent {
    ReadEventMetaData event;
    EndTimes::iterator endTime;
    std::size_t nameHash;  // a pass looks at every name; this spares it the text
  };

  // A key whose path is somebody else's.
  struct KeyView {
    std::wstring_view filePath;
    unsigned long long processId;
  };

  // The order of DiskCacheKey, for keys of both kinds.
  struct ByKey {
    using is_transparent = void;
    bool operator()(const DiskCacheKey& left, const DiskCacheKey& right) const { return left < right; }
    bool operator()(const DiskCacheKey& left, const KeyView& right) const {
      return IsBefore({left.filePath_, left.processId_}, right);
    }
    bool operator()(const KeyView& left, const DiskCacheKey& right) const {
      return IsBefore(left, {right.filePath_, right.processId_});
    }
    static bool IsBefore(const KeyView& left, const KeyView& right) {
      if (right.processId != left.processId) return right.processId < left.processId;
      return right.filePath < left.filePath;
    }
  };
  using Events = std::map<DiskCacheKey, CachedEvent, ByKey>;

  void Merge(CachedEvent& cached, unsigned long long time, ostrel::ULong32 readSize);
  void Create(const DiskCacheKey& key, void* processHandle, std::wstring processName,
              ostrel::ULong32 processId, unsigned long long time, unsigned char isNetworkEvent,
              FILE_EVENT_TYPE fileEventType, ostrel::ULong32 readSize);
  Events::iterator Erase(Events::iterator position);
  std::vector<ReadEventMetaData> TakeDueEvents(unsigned long long threshold);
  void RemoveDuplicatesFromOutExpiringEvents(std::vector<ReadEventMetaData>& events);
  void RemoveDuplicatesFromCachedEvents(std::vector<ReadEventMetaData>& events);

  ostrel::UserLookup userLookup_;
  ostrel::DirectoryTest directoryTest_;
  ostrel::TabTitleLookup tabTitleLookup_;
  Events events_;
  std::mutex mutex_;
  bool captureTabTitles_;
  EndTimes endTimes_;
};

#endif
