#include "cache/event_records.h"

#include <algorithm>
#include <utility>

DiskCacheKey::DiskCacheKey(std::wstring filePath, unsigned long long processId)
    : filePath_(std::move(filePath)), processId_(processId) {}

std::wstring DiskCacheKey::GetFilePath() const {
  return filePath_;
}

unsigned long long DiskCacheKey::GetProcessId() const {
  return processId_;
}

bool DiskCacheKey::operator<(const DiskCacheKey& other) const {
  if (other.processId_ != processId_) return other.processId_ < processId_;
  return other.filePath_ < filePath_;
}

IpPort::IpPort(ostrel::ULong32 ipv4, int port, unsigned char* ipv6, IP_VERSION version)
    : ipv4_(ipv4), ipv6_{}, version_(version), port_(port) {
  if (version == IPV6 && ipv6 != nullptr) std::copy_n(ipv6, ipv6_.size(), ipv6_.begin());
}

ostrel::ULong32 IpPort::GetIpV4Address() const {
  return ipv4_;
}

std::array<unsigned char, 16> IpPort::GetIpV6Address() const {
  return ipv6_;
}

IP_VERSION IpPort::GetIpVersion() const {
  return version_;
}

int IpPort::GetPort() const {
  return port_;
}

bool IpPort::operator==(const IpPort& other) const {
  if (version_ != other.version_ || port_ != other.port_) return false;
  if (version_ == IPV4) return ipv4_ == other.ipv4_;
  return version_ == IPV6 && ipv6_ == other.ipv6_;
}

bool IpPort::operator<(const IpPort& other) const {
  if (version_ == IPV4 && other.version_ == IPV4) {
    if (other.ipv4_ != ipv4_) return other.ipv4_ < ipv4_;
    return other.port_ < port_;
  }
  if (version_ == IPV6 && other.version_ == IPV6) {
    if (other.ipv6_ != ipv6_) return other.ipv6_ < ipv6_;
    return other.port_ < port_;
  }
  return other.version_ == IPV4;
}

ReadEventMetaData::ReadEventMetaData(std::wstring user, std::wstring processName, std::wstring fileName,
                                     ostrel::ULong32 processId, unsigned long long startTime,
                                     unsigned long long endTime, std::vector<std::wstring>& destHints,
                                     std::wstring tabTitleStatus, unsigned char isNetworkEvent,
                                     FILE_EVENT_TYPE fileEventType, ostrel::ULong32 readSize)
    : user_(std::move(user)),
      processName_(std::move(processName)),
      fileName_(std::move(fileName)),
      startTime_(startTime),
      endTime_(endTime),
      processId_(processId),
      destHints_(destHints),
      tabTitleStatus_(std::move(tabTitleStatus)),
      isNetworkEvent_(isNetworkEvent),
      fileEventType_(fileEventType),
      readSize_(readSize) {}

std::wstring ReadEventMetaData::GetUser() const {
  return user_;
}

std::wstring ReadEventMetaData::GetProcessName() const {
  return processName_;
}

std::wstring ReadEventMetaData::GetFileName() const {
  return fileName_;
}

unsigned long long ReadEventMetaData::GetStartTime() const {
  return startTime_;
}

unsigned long long ReadEventMetaData::GetEndTime() const {
  return endTime_;
}

ostrel::ULong32 ReadEventMetaData::GetProcessId() const {
  return processId_;
}

std::vector<std::wstring> ReadEventMetaData::GetDestHints() const {
  return destHints_;
}

std::wstring ReadEventMetaData::GetTabTitleStatus() {
  return tabTitleStatus_;
}

unsigned char ReadEventMetaData::IsNetworkEvent() {
  return isNetworkEvent_;
}

FILE_EVENT_TYPE ReadEventMetaData::GetFileEventType() {
  return fileEventType_;
}

ostrel::ULong32 ReadEventMetaData::GetReadSize() {
  return readSize_;
}

void ReadEventMetaData::UpdateEndTime(unsigned long long time) {
  endTime_ = time;
}

void ReadEventMetaData::UpdateReadSize(ostrel::ULong32 size) {
  readSize_ += size;
}

BytesTimeStamps::BytesTimeStamps(unsigned long long bytes, unsigned long long time)
    : bytes_(bytes), startTime_(time), endTime_(time) {}

void BytesTimeStamps::UpdateBytesEndTime(unsigned long long bytes, unsigned long long time) {
  bytes_ += bytes;
  endTime_ = time;
}

unsigned long long BytesTimeStamps::GetBytes() const {
  return bytes_;
}

unsigned long long BytesTimeStamps::GetStartTime() const {
  return startTime_;
}

unsigned long long BytesTimeStamps::GetEndTime() const {
  return endTime_;
}

bool BytesTimeStamps::operator<(const BytesTimeStamps& other) const {
  return bytes_ < other.bytes_;
}

IrpCacheMetaData::IrpCacheMetaData()
    : networkInfoCount_(0),
      readCount_(0),
      stdInfoCount_(0),
      lastNetworkInfoTime_(0),
      lastStdInfoTime_(0),
      lastReadTime_(0) {}

void IrpCacheMetaData::AddNetworkInfo(unsigned long long time) {
  ++networkInfoCount_;
  lastNetworkInfoTime_ = std::max(lastNetworkInfoTime_, time);
}

void IrpCacheMetaData::AddStdInfo(unsigned long long time) {
  ++stdInfoCount_;
  lastStdInfoTime_ = std::max(lastStdInfoTime_, time);
}

void IrpCacheMetaData::AddReadEvent(unsigned long long time) {
  ++readCount_;
  lastReadTime_ = std::max(lastReadTime_, time);
}

ostrel::ULong32 IrpCacheMetaData::GetNetworkInfoCount() {
  return networkInfoCount_;
}

ostrel::ULong32 IrpCacheMetaData::GetReadCount() {
  return readCount_;
}

ostrel::ULong32 IrpCacheMetaData::GetStdInfoCount() {
  return stdInfoCount_;
}

unsigned long long IrpCacheMetaData::GetLastNetworkInfoTime() {
  return lastNetworkInfoTime_;
}

unsigned long long IrpCacheMetaData::GetLastStdInfoTime() {
  return lastStdInfoTime_;
}

unsigned long long IrpCacheMetaData::GetLastReadTime() {
  return lastReadTime_;
}

unsigned long long IrpCacheMetaData::GetLatestEventTime() {
  return std::max({lastNetworkInfoTime_, lastStdInfoTime_, lastReadTime_});
}
