#ifndef OSTREL_NETWORK_NETWORK_EVENT_CACHE_H
#define OSTREL_NETWORK_NETWORK_EVENT_CACHE_H

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "cache/event_records.h"
#include "util/export.h"
#include "util/integers.h"

// The TCP streams of each process, by process image name (compared exactly), with their byte counts. Times
// are milliseconds since 1970. Any thread may call, except that GetStreamCount and GetCacheCount take no lock
// and must not run while another thread adds or removes.
class OSTREL_EXPORT NetworkEventCache {
 public:
  // The age in milliseconds beyond which PurgeEvents removes a stream.
  static const int MILLISECOND_THRESHOLD = 70000;

  // Non-zero for the cache of outgoing streams; only its log lines tell the difference.
  NetworkEventCache(int upload);
  ~NetworkEventCache();

  // Adds the stream to this endpoint or, when there is one, grows it by `bytes` and moves its end time to
  // `time`. `ipv6` points to 16 bytes in network order, or is null; it counts only for an IPV6 stream.
  void AddEvent(std::wstring processName, ostrel::ULong32 ipv4, unsigned char* ipv6, IP_VERSION version,
                int port, unsigned long long time, unsigned long long bytes);

  // Removes every stream whose end time lies more than 70000 ms before `now` and returns how many those were.
  // A process keeps its entry when its last stream goes.
  int PurgeEvents(unsigned long long now);

  // Removes everything, the processes' entries included.
  void PurgeAllEvents();

  // The one stream whose byte count comes closest to `size` among those from 0.75 to 1.25 times (below 50000
  // bytes: 2.5 times) as large, both bounds excluded, and less than 2147483647 bytes off; when there is none,
  // all streams, largest first. Empty for a size of 0 or an unknown process. The times are not consulted:
  // byte counts alone decide.
  std::vector<IpPort> GetLikelyEvents(std::wstring processName, unsigned long long startTime,
                                      unsigned long long endTime, unsigned long long size);

  unsigned long long GetStreamCount(std::wstring processName);
  unsigned long long GetCacheCount();

 private:
  using Streams = std::map<IpPort, BytesTimeStamps>;

  std::map<std::wstring, Streams> events_;
  std::mutex mutex_;
  std::wstring direction_;
};

#endif
