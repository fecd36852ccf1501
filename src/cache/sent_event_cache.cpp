#include "cache/sent_event_cache.h"

#include <utility>

namespace {

// The times come from a driver and may be anything; wrapping keeps the sums defined.
long long AddWrapping(long long left, long long right) {
  return static_cast<long long>(static_cast<unsigned long long>(left) +
                                static_cast<unsigned long long>(right));
}

long long SubtractWrapping(long long left, long long right) {
  return static_cast<long long>(static_cast<unsigned long long>(left) -
                                static_cast<unsigned long long>(right));
}

}  // namespace

SentEventCache::SentEventCache() : window_(10000), lastPurgeTime_(0) {}

SentEventCache::~SentEventCache() = default;

void SentEventCache::AddEvent(std::wstring fileName, long long time) {
  const std::lock_guard lock(mutex_);
  if (time > AddWrapping(lastPurgeTime_, window_)) {
    lastPurgeTime_ = time;
    PurgeEvents(time);
  }
  events_[std::move(fileName)] = time;
}

unsigned char SentEventCache::EventExists(std::wstring fileName, long long time) {
  const std::lock_guard lock(mutex_);
  const auto found = events_.find(fileName);
  if (found == events_.end()) return 0;
  return SubtractWrapping(time, found->second) <= window_ ? 1 : 0;
}

void SentEventCache::PurgeEvents(long long now) {
  const long long oldest = SubtractWrapping(now, window_);
  std::erase_if(events_, [oldest](const auto& entry) { return entry.second < oldest; });
}

unsigned long long SentEventCache::GetCacheCount() {
  return events_.size();
}
