#include "cache/read_event_cache.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "log/log.h"

using ostrel::Log;
using ostrel::LOG_DETAIL;
using ostrel::ULong32;

const int ReadEventCache::MILLISECOND_THRESHOLD;

namespace {

std::size_t HashOf(std::wstring_view name) {
  return std::hash<std::wstring_view>()(name);
}

// For each of `count` names the position of the next equal one, or `count` when there is none.
template <typename NameAt>
std::vector<std::size_t> NextOfSameName(std::size_t count, NameAt nameAt) {
  std::vector<std::pair<std::size_t, std::size_t>> hashAndPosition;
  hashAndPosition.reserve(count);
  for (std::size_t i = 0; i < count; ++i) hashAndPosition.emplace_back(HashOf(nameAt(i)), i);
  std::sort(hashAndPosition.begin(), hashAndPosition.end(), [nameAt](const auto& left, const auto& right) {
    if (left.first != right.first) return left.first < right.first;
    const int order = nameAt(left.second).compare(nameAt(right.second));
    return order != 0 ? order < 0 : left.second < right.second;
  });
  std::vector<std::size_t> next(count, count);
  for (std::size_t i = 1; i < count; ++i) {
    const auto& [previousHash, previous] = hashAndPosition[i - 1];
    const auto& [hash, position] = hashAndPosition[i];
    if (previousHash == hash && nameAt(previous) == nameAt(position)) next[previous] = position;
  }
  return next;
}

// Drops the marked events; the others keep their order.
void EraseMarked(std::vector<ReadEventMetaData>& events, const std::vector<bool>& marked) {
  std::size_t kept = 0;
  for (std::size_t i = 0; i < events.size(); ++i) {
    if (marked[i]) continue;
    if (kept != i) events[kept] = std::move(events[i]);
    ++kept;
  }
  events.erase(events.begin() + static_cast<std::ptrdiff_t>(kept), events.end());
}

}  // namespace

ReadEventCache::ReadEventCache(ostrel::UserLookup& userLookup, ostrel::TabTitleLookup& tabTitleLookup,
                               ostrel::DirectoryTest& directoryTest)
    : userLookup_(userLookup),
      directoryTest_(directoryTest),
      tabTitleLookup_(tabTitleLookup),
      captureTabTitles_(true) {}

void ReadEventCache::AddEvent(std::wstring fileName, void* processHandle, std::wstring processName,
                              ULong32 processId, unsigned long long time, unsigned char isNetworkEvent,
                              FILE_EVENT_TYPE fileEventType, ULong32 readSize) {
  const std::lock_guard lock(mutex_);
  const DiskCacheKey key(std::move(fileName), processId);
  const auto found = events_.find(key);
  if (found != events_.end()) {
    Merge(found->second, time, readSize);
  } else {
    Create(key, processHandle, std::move(processName), processId, time, isNetworkEvent, fileEventType,
           readSize);
  }
}

bool ostrel::MergeEvent(ReadEventCache& cache, std::wstring_view fileName, ULong32 processId,
                        unsigned long long time, ULong32 readSize) {
  const std::lock_guard lock(cache.mutex_);
  const auto found = cache.events_.find(ReadEventCache::KeyView{fileName, processId});
  if (found == cache.events_.end()) return false;
  cache.Merge(found->second, time, readSize);
  return true;
}

void ReadEventCache::Merge(CachedEvent& cached, unsigned long long time, ULong32 readSize) {
  cached.event.UpdateEndTime(time);
  cached.event.UpdateReadSize(readSize);
  // Events mostly arrive in order of time, so the end is the likely place.
  auto node = endTimes_.extract(cached.endTime);
  node.value() = time;
  cached.endTime = endTimes_.insert(endTimes_.end(), std::move(node));
}

void ReadEventCache::Create(const DiskCacheKey& key, void* processHandle, std::wstring processName,
                            ULong32 processId, unsigned long long time, unsigned char isNetworkEvent,
                            FILE_EVENT_TYPE fileEventType, ULong32 readSize) {
  std::wstring user;
  if (userLookup_(processHandle, user) == 0) {
    user = L"User not identified";
    Log(LOG_DETAIL, L"User not identified");
  }
  std::vector<std::wstring> titles;
  std::wstring status;
  if (captureTabTitles_) titles = tabTitleLookup_(processId, processName, status);

  ReadEventMetaData event(std::move(user), std::move(processName), key.filePath_, processId, time, time,
                          titles, std::move(status), isNetworkEvent, fileEventType, readSize);
  const auto position =
      events_.emplace(key, CachedEvent{std::move(event), endTimes_.end(), HashOf(key.filePath_)}).first;
  try {
    position->second.endTime = endTimes_.insert(endTimes_.end(), time);
  } catch (...) {
    events_.erase(position);
    throw;
  }
}

void ReadEventCache::RemoveEvent(std::wstring fileName, ULong32 processId) {
  const std::lock_guard lock(mutex_);
  const auto found = events_.find(DiskCacheKey(std::move(fileName), processId));
  if (found != events_.end()) Erase(found);
}

ReadEventCache::Events::iterator ReadEventCache::Erase(Events::iterator position) {
  endTimes_.erase(position->second.endTime);
  return events_.erase(position);
}

std::vector<ReadEventMetaData> ReadEventCache::GetEvents(unsigned long long now) {
  const std::lock_guard lock(mutex_);
  const unsigned long long threshold = now - 60000;
  if (endTimes_.empty() || *endTimes_.begin() >= threshold) return {};
  std::vector<ReadEventMetaData> events = TakeDueEvents(threshold);
  RemoveDuplicatesFromOutExpiringEvents(events);
  RemoveDuplicatesFromCachedEvents(events);
  return events;
}

std::vector<ReadEventMetaData> ReadEventCache::TakeDueEvents(unsigned long long threshold) {
  std::vector<ReadEventMetaData> due;
  for (auto position = events_.begin(); position != events_.end();) {
    ReadEventMetaData& event = position->second.event;
    if (event.endTime_ >= threshold) {
      ++position;
      continue;
    }
    if (directoryTest_(event.fileName_) != 0) {
      Log(LOG_DETAIL, L"Event suppressed. Filename is a directory.");
    } else {
      due.push_back(std::move(event));
    }
    position = Erase(position);
  }
  return due;
}

// For one file the first event with hints survives or, when none has hints, the last event. The lines come in
// the order of comparing each event with all that follow it, but each event only ever meets the next of its
// own file.
void ReadEventCache::RemoveDuplicatesFromOutExpiringEvents(std::vector<ReadEventMetaData>& events) {
  const std::size_t none = events.size();
  const std::vector<std::size_t> nextOfSameFile = NextOfSameName(
      events.size(), [&events](std::size_t i) -> std::wstring_view { return events[i].fileName_; });
  std::vector<bool> dropped(events.size(), false);
  for (std::size_t i = 0; i < events.size(); ++i) {
    if (dropped[i] || nextOfSameFile[i] == none) continue;
    if (events[i].destHints_.empty()) {
      Log(LOG_DETAIL, L"Outgoing Event suppressed. Duplicate event. %s", events[i].fileName_.c_str());
      dropped[i] = true;
      continue;
    }
    for (std::size_t j = nextOfSameFile[i]; j != none; j = nextOfSameFile[j]) {
      Log(LOG_DETAIL, L"Event suppressed from outgoing events. Duplicate event. %s",
          events[j].fileName_.c_str());
      dropped[j] = true;
    }
  }
  EraseMarked(events, dropped);
}

// An outgoing event without hints gives way to any cached event of its file; one with hints deletes them all.
// Each file occurs once in `events` by now, so one walk of the cache finds every pair.
void ReadEventCache::RemoveDuplicatesFromCachedEvents(std::vector<ReadEventMetaData>& events) {
  if (events.empty()) return;
  std::unordered_multimap<std::size_t, std::size_t> indexByHash;
  indexByHash.reserve(events.size());
  for (std::size_t i = 0; i < events.size(); ++i) indexByHash.emplace(HashOf(events[i].fileName_), i);

  std::vector<std::pair<std::size_t, Events::iterator>> pairs;
  for (auto cached = events_.begin(); cached != events_.end(); ++cached) {
    auto [candidate, end] = indexByHash.equal_range(cached->second.nameHash);
    for (; candidate != end; ++candidate) {
      if (events[candidate->second].fileName_ == cached->first.filePath_)
        pairs.emplace_back(candidate->second, cached);
    }
  }
  std::stable_sort(pairs.begin(), pairs.end(),
                   [](const auto& left, const auto& right) { return left.first < right.first; });

  std::vector<bool> heldBack(events.size(), false);
  for (const auto& [index, cached] : pairs) {
    const ReadEventMetaData& event = events[index];
    if (heldBack[index]) continue;
    if (event.destHints_.empty()) {
      Log(LOG_DETAIL, L"Outgoing Event suppressed. Duplicate event. %s", event.fileName_.c_str());
      heldBack[index] = true;
    } else {
      Log(LOG_DETAIL, L"Event suppressed from cache. Duplicate event. %s",
          cached->second.event.fileName_.c_str());
      Erase(cached);
    }
  }
  EraseMarked(events, heldBack);
}

void ReadEventCache::EnableTabTitleCapture() {
  const std::lock_guard lock(mutex_);
  captureTabTitles_ = true;
}

void ReadEventCache::DisableTabTitleCapture() {
  const std::lock_guard lock(mutex_);
  captureTabTitles_ = false;
}

unsigned long long ReadEventCache::GetCacheCount() {
  return events_.size();
}
