#ifndef OSTREL_CACHE_EVENT_RECORDS_H
#define OSTREL_CACHE_EVENT_RECORDS_H

// The value records that the caches and the detection pass between them. Every time is a count of
// milliseconds since 1970-01-01 00:00 UTC. All records copy and move member by member and are not
// synchronised.

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "util/export.h"
#include "util/integers.h"

enum IP_VERSION : std::int32_t {
  IPV4 = 1,  // the IPv4 address field is meaningful
  IPV6 = 2,  // the 16-byte IPv6 address field is meaningful
};

// What a file event is, exactly as the minifilter numbers it. The records store any other value unchanged.
enum FILE_EVENT_TYPE : std::int32_t {
  FILE_EVENT_READ = 0,                 // read by a watched process: an upload candidate
  FILE_EVENT_WRITE = 1,                // written by a watched process: a download candidate
  FILE_EVENT_NETWORK_INFO_QUERY = 2,   // network-open information asked for
  FILE_EVENT_STANDARD_INFO_QUERY = 3,  // standard information asked for
  FILE_EVENT_CLOUD_DRIVE_FIRST = 4,    // 4 to 9: cloud-drive events, all handled alike
  FILE_EVENT_CLOUD_DRIVE_LAST = 9,
};

// Under which the file activity of one process is remembered.
class OSTREL_EXPORT DiskCacheKey {
 public:
  // `filePath` is compared exactly; `processId` is a real process id or a browser family's pseudo id.
  DiskCacheKey(std::wstring filePath, unsigned long long processId);

  std::wstring GetFilePath() const;
  unsigned long long GetProcessId() const;

  // Descending, so that a map visits the highest process id first and, within one process, the greatest path.
  bool operator<(const DiskCacheKey& other) const;

 private:
  friend class ReadEventCache;  // looks at 100,000 paths in a pass and cannot afford a copy of each

  std::wstring filePath_;
  unsigned long long processId_;
};

// One remote endpoint of a TCP stream.
class OSTREL_EXPORT IpPort {
 public:
  // `ipv6` points to 16 bytes in network order, or is null. They are copied only for an IPV6 record; every
  // other record has an all-zero IPv6 address. `ipv4` is in host order.
  IpPort(ostrel::ULong32 ipv4, int port, unsigned char* ipv6, IP_VERSION version);

  ostrel::ULong32 GetIpV4Address() const;
  std::array<unsigned char, 16> GetIpV6Address() const;
  IP_VERSION GetIpVersion() const;
  int GetPort() const;

  // IPV6 records do not compare their IPv4 field. Records of a version other than IPV4 and IPV6 equal
  // nothing.
  bool operator==(const IpPort& other) const;

  // Descending within a version; every other record sorts before every IPV4 record.
  bool operator<(const IpPort& other) const;

 private:
  ostrel::ULong32 ipv4_;
  std::array<unsigned char, 16> ipv6_;
  IP_VERSION version_;
  int port_;
};

// All reads (or writes) of one file by one process, merged.
class OSTREL_EXPORT ReadEventMetaData {
 public:
  // `user` is an account name, `processName` an image name, `fileName` a full path, `destHints` the tab
  // titles open when the event was created (copied), `readSize` a number of bytes.
  ReadEventMetaData(std::wstring user, std::wstring processName, std::wstring fileName,
                    ostrel::ULong32 processId, unsigned long long startTime, unsigned long long endTime,
                    std::vector<std::wstring>& destHints, std::wstring tabTitleStatus,
                    unsigned char isNetworkEvent, FILE_EVENT_TYPE fileEventType, ostrel::ULong32 readSize);

  std::wstring GetUser() const;
  std::wstring GetProcessName() const;
  std::wstring GetFileName() const;
  unsigned long long GetStartTime() const;  // time of the first event merged
  unsigned long long GetEndTime() const;    // time of the latest event merged
  ostrel::ULong32 GetProcessId() const;
  std::vector<std::wstring> GetDestHints() const;
  std::wstring GetTabTitleStatus();
  unsigned char IsNetworkEvent();
  FILE_EVENT_TYPE GetFileEventType();
  ostrel::ULong32 GetReadSize();  // total bytes, modulo 2^32

  // Takes `time` even when it is earlier than the end time held.
  void UpdateEndTime(unsigned long long time);
  // Adds `size`, wrapping at 2^32; it does not replace.
  void UpdateReadSize(ostrel::ULong32 size);

 private:
  friend class ReadEventCache;  // compares 100,000 names in a pass and cannot afford a copy of each

  std::wstring user_;
  std::wstring processName_;
  std::wstring fileName_;
  unsigned long long startTime_;
  unsigned long long endTime_;
  ostrel::ULong32 processId_;
  std::vector<std::wstring> destHints_;
  std::wstring tabTitleStatus_;
  unsigned char isNetworkEvent_;
  FILE_EVENT_TYPE fileEventType_;
  ostrel::ULong32 readSize_;
};

// Byte count and time span of one network stream.
class OSTREL_EXPORT BytesTimeStamps {
 public:
  BytesTimeStamps(unsigned long long bytes, unsigned long long time);

  // Adds `bytes` and takes `time` as the end time even when it is earlier than the one held.
  void UpdateBytesEndTime(unsigned long long bytes, unsigned long long time);

  unsigned long long GetBytes() const;
  unsigned long long GetStartTime() const;
  unsigned long long GetEndTime() const;

  // By bytes alone.
  bool operator<(const BytesTimeStamps& other) const;

 private:
  unsigned long long bytes_;
  unsigned long long startTime_;
  unsigned long long endTime_;
};

// Counts and last times of the queries and reads of one file by one program. A last time never moves
// backwards.
class OSTREL_EXPORT IrpCacheMetaData {
 public:
  IrpCacheMetaData();

  void AddNetworkInfo(unsigned long long time);
  void AddStdInfo(unsigned long long time);
  void AddReadEvent(unsigned long long time);

  ostrel::ULong32 GetNetworkInfoCount();
  ostrel::ULong32 GetReadCount();
  ostrel::ULong32 GetStdInfoCount();
  unsigned long long GetLastNetworkInfoTime();
  unsigned long long GetLastStdInfoTime();
  unsigned long long GetLastReadTime();
  unsigned long long GetLatestEventTime();  // the largest of the three last times

 private:
  ostrel::ULong32 networkInfoCount_;
  ostrel::ULong32 readCount_;
  ostrel::ULong32 stdInfoCount_;
  unsigned long long lastNetworkInfoTime_;
  unsigned long long lastStdInfoTime_;
  unsigned long long lastReadTime_;
};

#endif
