#include "network/network_event_cache.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <utility>

#include "log/log.h"

using ostrel::Log;
using ostrel::LOG_DETAIL;
using ostrel::ULong32;

const int NetworkEventCache::MILLISECOND_THRESHOLD;

namespace {

// `size` times `factor` in single precision, whose rounding of large sizes is part of the rule. What exceeds
// 64 bits, as for the size of a file that could not be read, becomes the largest value.
unsigned long long Bound(unsigned long long size, float factor) {
  const float bound = static_cast<float>(size) * factor;
  constexpr float two_to_the_64 = 18446744073709551616.0F;
  if (bound >= two_to_the_64) return std::numeric_limits<unsigned long long>::max();
  return static_cast<unsigned long long>(bound);
}

// A process comes with its first stream: for want of memory neither is there.
template <typename Processes>
auto AddStream(Processes& processes, const std::wstring& processName, const IpPort& endpoint,
               const BytesTimeStamps& first) {
  const auto process = processes.find(processName);
  if (process != processes.end()) return process->second.try_emplace(endpoint, first);
  typename Processes::mapped_type streams;
  const auto stream = streams.try_emplace(endpoint, first);
  processes.try_emplace(processName, std::move(streams));
  return stream;
}

}  // namespace

NetworkEventCache::NetworkEventCache(int upload) : direction_(upload != 0 ? L"upload" : L"download") {}

NetworkEventCache::~NetworkEventCache() = default;

void NetworkEventCache::AddEvent(std::wstring processName, ULong32 ipv4, unsigned char* ipv6,
                                 IP_VERSION version, int port, unsigned long long time,
                                 unsigned long long bytes) {
  const std::lock_guard lock(mutex_);
  const IpPort endpoint(ipv4, port, ipv6, version);
  const auto [stream, isNew] = AddStream(events_, processName, endpoint, BytesTimeStamps(bytes, time));
  if (isNew) {
    Log(LOG_DETAIL, L"added network event: %s %s: %lu:%d %llu", direction_.c_str(), processName.c_str(), ipv4,
        port, bytes);
    return;
  }
  stream->second.UpdateBytesEndTime(bytes, time);
  // The line shows the low 32 bits of the total, as a signed number: it turns negative from 2 GiB on.
  Log(LOG_DETAIL, L"added to existing networkevent: %s %s: %lu:%d %llu currentBytes: %d", direction_.c_str(),
      processName.c_str(), ipv4, port, bytes,
      static_cast<std::int32_t>(static_cast<std::uint32_t>(stream->second.GetBytes())));
}

int NetworkEventCache::PurgeEvents(unsigned long long now) {
  const std::lock_guard lock(mutex_);
  int purged = 0;
  for (auto& [processName, streams] : events_) {
    for (auto stream = streams.begin(); stream != streams.end();) {
      if (now <= stream->second.GetEndTime() + 70000) {
        ++stream;
        continue;
      }
      Log(LOG_DETAIL, L"purged network event: %s %s %lu:%d %llu", direction_.c_str(), processName.c_str(),
          stream->first.GetIpV4Address(), stream->first.GetPort(), stream->second.GetBytes());
      stream = streams.erase(stream);
      ++purged;
    }
  }
  return purged;
}

void NetworkEventCache::PurgeAllEvents() {
  const std::lock_guard lock(mutex_);
  events_.clear();
}

std::vector<IpPort> NetworkEventCache::GetLikelyEvents(std::wstring processName,
                                                       unsigned long long /*startTime*/,
                                                       unsigned long long /*endTime*/,
                                                       unsigned long long size) {
  if (size == 0) return {};
  const std::lock_guard lock(mutex_);
  const auto found = events_.find(processName);
  if (found == events_.end()) return {};
  const Streams& streams = found->second;

  const unsigned long long lower = Bound(size, 0.75F);
  const unsigned long long upper = Bound(size, size < 50000 ? 2.5F : 1.25F);
  auto best = streams.end();
  unsigned long long bestDifference = 2147483647;
  for (auto stream = streams.begin(); stream != streams.end(); ++stream) {
    const unsigned long long bytes = stream->second.GetBytes();
    const unsigned long long difference = bytes > size ? bytes - size : size - bytes;
    if (bytes > lower && bytes < upper && difference < bestDifference) {
      best = stream;
      bestDifference = difference;
    }
  }
  if (best != streams.end()) return {best->first};

  Log(LOG_DETAIL, L"Could not find any good match. Returning all possibilities.");
  std::vector<std::pair<IpPort, BytesTimeStamps>> candidates(streams.begin(), streams.end());
  std::sort(candidates.begin(), candidates.end(),
            [](const auto& left, const auto& right) { return right.second < left.second; });
  std::vector<IpPort> likely;
  likely.reserve(candidates.size());
  for (const auto& candidate : candidates) likely.push_back(candidate.first);
  return likely;
}

unsigned long long NetworkEventCache::GetStreamCount(std::wstring processName) {
  const auto found = events_.find(processName);
  return found == events_.end() ? 0 : found->second.size();
}

unsigned long long NetworkEventCache::GetCacheCount() {
  return events_.size();
}
