#ifndef OSTREL_CACHE_SENT_EVENT_CACHE_H
#define OSTREL_CACHE_SENT_EVENT_CACHE_H

#include <map>
#include <mutex>
#include <string>

#include "util/export.h"

// Remembers for ten seconds which downloads were handed on, whether or not a host was told, so that the read
// that follows is not reported as an upload too. Times are signed milliseconds since 1970; any thread may
// call.
class OSTREL_EXPORT SentEventCache {
 public:
  SentEventCache();
  ~SentEventCache();

  // Records the file, or records it again: the new time counts even when it is earlier. At most once in ten
  // seconds of `time` it also forgets the entries that are more than ten seconds older than `time`.
  void AddEvent(std::wstring fileName, long long time);

  // Non-zero when the file (exact, case-sensitive name) was recorded at most 10000 ms before `time`, or after
  // it.
  unsigned char EventExists(std::wstring fileName, long long time);

  // Number of entries. Takes no lock: a momentary count.
  unsigned long long GetCacheCount();

 private:
  void PurgeEvents(long long now);

  int window_;
  long long lastPurgeTime_;
  std::map<std::wstring, long long> events_;
  std::mutex mutex_;
};

#endif
