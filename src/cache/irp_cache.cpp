#include "cache/irp_cache.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <string_view>
#include <utility>

#include "log/log.h"
#include "util/text.h"

using ostrel::ULong32;

struct IrpCache::Views {
  static bool RecordRead(IrpCache& cache, const wchar_t* filePath, ULong32 processId, unsigned long long time,
                         std::wstring_view processName);
  static ApplicationType TypeOf(std::wstring_view processName);
  static bool IsChromiumUpload(IrpCacheMetaData& counts, unsigned long long time, const wchar_t* filePath);
};

IrpCache::IrpCache() : purgeAge_(10000), lastPurgeTime_(0) {}

IrpCache::IrpCache(const IrpCache& other) = default;

IrpCache::~IrpCache() = default;

void IrpCache::AddStdInfoQuery(std::wstring filePath, ULong32 processId, unsigned long long time,
                               std::wstring processName) {
  PurgeEvents(time);
  const ApplicationType type = Views::TypeOf(processName);
  events_[DiskCacheKey(std::move(filePath), GetProcessIdToUse(processId, type))].AddStdInfo(time);
}

bool IrpCache::AddNetworkInfoQuery(std::wstring filePath, ULong32 processId, unsigned long long time,
                                   std::wstring processName) {
  PurgeEvents(time);
  const ApplicationType type = Views::TypeOf(processName);
  const auto [entry, isNew] =
      events_.try_emplace(DiskCacheKey(std::move(filePath), GetProcessIdToUse(processId, type)));
  IrpCacheMetaData& counts = entry->second;
  if (!isNew && type == Firefox && counts.GetReadCount() > 0 && counts.GetNetworkInfoCount() >= 1 &&
      counts.GetLastReadTime() >= counts.GetLastNetworkInfoTime()) {
    events_.erase(entry);
    return false;
  }
  counts.AddNetworkInfo(time);
  return true;
}

bool IrpCache::ShouldAllowRead(std::wstring filePath, ULong32 processId, unsigned long long time,
                               std::wstring processName) {
  return Views::RecordRead(*this, filePath.c_str(), processId, time, processName);
}

bool ostrel::ShouldAllowRead(IrpCache& cache, const wchar_t* filePath, ULong32 processId,
                             unsigned long long time, std::wstring_view processName) {
  return IrpCache::Views::RecordRead(cache, filePath, processId, time, processName);
}

bool IrpCache::Views::RecordRead(IrpCache& cache, const wchar_t* filePath, ULong32 processId,
                                 unsigned long long time, std::wstring_view processName) {
  cache.PurgeEvents(time);
  const ApplicationType type = TypeOf(processName);
  if (type == Other) return true;
  const auto entry = cache.events_.find(DiskCacheKey(filePath, cache.GetProcessIdToUse(processId, type)));
  if (entry == cache.events_.end()) return false;

  IrpCacheMetaData& counts = entry->second;
  counts.AddReadEvent(time);
  // A refused Chromium read keeps its counts, so that a later query and read are still let through.
  if (type == Chromium) return IsChromiumUpload(counts, time, filePath);

  const bool allowed = (type == EdgeLegacy && counts.GetStdInfoCount() >= 3) ||
                       (type == Firefox && counts.GetNetworkInfoCount() >= 1) ||
                       (type == InternetExplorer && counts.GetStdInfoCount() >= 6) ||
                       (type == WinScp && counts.GetStdInfoCount() >= 1);
  if (!allowed) cache.events_.erase(entry);
  return allowed;
}

bool IrpCache::Views::IsChromiumUpload(IrpCacheMetaData& counts, unsigned long long time,
                                       const wchar_t* filePath) {
  if (counts.GetNetworkInfoCount() < 2) return false;
  // Unsigned: a query later than the read wraps to a large difference and negates nothing.
  if (counts.GetStdInfoCount() > 0 && time - counts.GetLastStdInfoTime() < 1000) {
    ostrel::Log(ostrel::LOG_NOTABLE, L"Event negated for %s", filePath);
    return false;
  }
  return true;
}

void IrpCache::PurgeEvents(unsigned long long now) {
  if (now <= lastPurgeTime_ + purgeAge_) return;
  lastPurgeTime_ = now;
  const unsigned long long oldest = now - purgeAge_;
  for (auto entry = events_.begin(); entry != events_.end();) {
    entry = entry->second.GetLatestEventTime() < oldest ? events_.erase(entry) : std::next(entry);
  }
}

IrpCache::ApplicationType IrpCache::GetApplicationType(std::wstring processName) {
  return Views::TypeOf(processName);
}

IrpCache::ApplicationType IrpCache::Views::TypeOf(std::wstring_view processName) {
  static constexpr std::array<std::pair<std::wstring_view, ApplicationType>, 8> TYPES{{
      {L"chrome.exe", Chromium},
      {L"opera.exe", Chromium},
      {L"slack.exe", Chromium},
      {L"firefox.exe", Firefox},
      {L"microsoftedgecp.exe", EdgeLegacy},
      {L"iexplore.exe", InternetExplorer},
      {L"msedge.exe", Chromium},
      {L"winscp.exe", WinScp},
  }};
  // From the start when there is no backslash: then rfind returns the largest number.
  const std::wstring_view component = processName.substr(processName.rfind(L'\\') + 1);
  // Only the low byte of each character counts, so a name whose low bytes spell one of these matches too.
  const auto spells = [](wchar_t character, wchar_t expected) {
    return ostrel::FoldAsciiCase(static_cast<wchar_t>(character & 0xFF)) == expected;
  };
  for (const auto& [name, type] : TYPES) {
    if (std::equal(component.begin(), component.end(), name.begin(), name.end(), spells)) return type;
  }
  return Other;
}

unsigned long long IrpCache::GetProcessIdToUse(ULong32 processId, ApplicationType type) {
  switch (type) {
    case Firefox:
      return 0xFFFFFFFFFFFFFFFF;
    case EdgeLegacy:
      return 0xFFFFFFFFFFFFFFFE;
    case Chromium:
      return 0xFFFFFFFFFFFFFFFD;
    case InternetExplorer:
      return 0xFFFFFFFFFFFFFFFC;
    default:
      return processId;
  }
}

unsigned long long IrpCache::GetCacheCount() {
  return events_.size();
}
