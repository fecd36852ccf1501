#ifndef OSTREL_BENCH_SAMPLE_EVENTS_H
#define OSTREL_BENCH_SAMPLE_EVENTS_H

#include <cstddef>
#include <map>
#include <memory>
#include <string>

#include "cache/read_event_cache.h"

namespace ostrel::bench {

// A moment, the latest end time that is due at it, and one that is not.
constexpr unsigned long long NOW = 1'700'000'060'001;
constexpr unsigned long long DUE = NOW - 60'001;
constexpr unsigned long long FRESH = NOW;

constexpr wchar_t USER[] = L"someone";
constexpr wchar_t PROCESS_NAME[] = L"\\Device\\HarddiskVolume3\\Program Files\\Browser\\browser.exe";

// As long as a path in somebody's documents mostly is.
std::wstring FileName(std::size_t number);

// A cache whose look-ups answer at once, and that captures no tab titles.
std::unique_ptr<ReadEventCache> MakeReadEventCache();

// One read of 4096 bytes by the process.
void Add(ReadEventCache& cache, const std::wstring& fileName, const std::wstring& processName,
         ULong32 processId, unsigned long long time);

// What the cache would be with nothing around it, and what an event would be filed in it by.
using BareMap = std::map<DiskCacheKey, ReadEventMetaData>;
void Add(BareMap& map, const std::wstring& fileName, const std::wstring& processName, ULong32 processId,
         unsigned long long time);

// `count` events, a fifth of them due, of which each is of the same file as its neighbour, read by another
// process.
template <typename Cache>
void FillWithAFifthDue(Cache& cache, std::size_t count) {
  const std::wstring processName = PROCESS_NAME;
  const std::size_t due = count / 5;
  for (std::size_t i = 0; i < due; ++i)
    Add(cache, FileName(i / 2), processName, static_cast<ULong32>(100 + i % 2), DUE);
  for (std::size_t i = due; i < count; ++i) Add(cache, FileName(i), processName, 100, FRESH);
}

// `count` events of one process, none of them due.
template <typename Cache>
void FillWithFresh(Cache& cache, std::size_t count) {
  const std::wstring processName = PROCESS_NAME;
  for (std::size_t i = 0; i < count; ++i) Add(cache, FileName(i), processName, 100, FRESH);
}

}  // namespace ostrel::bench

#endif
