// The read event cache beside a bare map of the same records.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "sample_events.h"
#include "stopwatch.h"

namespace {

using namespace ostrel::bench;

constexpr std::size_t CACHED = 100'000;
constexpr std::size_t BATCH = 1000;

// Filled once, since that takes longer than a measurement; every measurement leaves it as it was.
template <typename Cache>
auto& Filled() {
  if constexpr (std::is_same_v<Cache, BareMap>) {
    static BareMap map = [] {
      BareMap filled;
      FillWithFresh(filled, CACHED);
      return filled;
    }();
    return map;
  } else {
    static const auto cache = [] {
      auto filled = MakeReadEventCache();
      FillWithFresh(*filled, CACHED);
      return filled;
    }();
    return *cache;
  }
}

void Remove(ReadEventCache& cache, const std::wstring& fileName) {
  cache.RemoveEvent(fileName, 100);
}

void Remove(BareMap& map, const std::wstring& fileName) {
  map.erase(DiskCacheKey(fileName, 100));
}

// Names spread over the whole cache, in no order.
std::vector<std::wstring> Names(std::size_t first) {
  std::vector<std::wstring> names;
  for (std::size_t i = 0; i < BATCH; ++i) names.push_back(FileName(first + i * 7919 % CACHED));
  return names;
}

template <typename Cache>
void Merge(benchmark::State& state) {
  auto& cache = Filled<Cache>();
  const std::wstring processName = PROCESS_NAME;
  const std::vector<std::wstring> names = Names(0);
  std::size_t i = 0;
  unsigned long long time = FRESH;
  for (auto _ : state) Add(cache, names[i++ % BATCH], processName, 100, ++time);
}
BENCHMARK_TEMPLATE(Merge, ReadEventCache)->Name("merge/library")->Iterations(100'000)->UseRealTime();
BENCHMARK_TEMPLATE(Merge, BareMap)->Name("merge/alternative")->Iterations(100'000)->UseRealTime();

// The time is that of a batch, without what takes the new events out again.
template <typename Cache>
void Create(benchmark::State& state) {
  auto& cache = Filled<Cache>();
  const std::wstring processName = PROCESS_NAME;
  const std::vector<std::wstring> names = Names(CACHED);
  for (auto _ : state) {
    const Stopwatch watch;
    for (const std::wstring& name : names) Add(cache, name, processName, 100, FRESH);
    state.SetIterationTime(watch.Seconds() / static_cast<double>(BATCH));
    for (const std::wstring& name : names) Remove(cache, name);
  }
}
BENCHMARK_TEMPLATE(Create, ReadEventCache)->Name("create/library")->UseManualTime()->Iterations(20);
BENCHMARK_TEMPLATE(Create, BareMap)->Name("create/alternative")->UseManualTime()->Iterations(20);

void TakeDue(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  for (auto _ : state) {
    const auto cache = MakeReadEventCache();
    FillWithAFifthDue(*cache, count);
    const Stopwatch watch;
    const auto events = cache->GetEvents(NOW);
    state.SetIterationTime(watch.Seconds());
    if (events.size() != count / 10) state.SkipWithError("wrong number of events");
  }
}
BENCHMARK(TakeDue)
    ->Name("take_due/library")
    ->Arg(100'000)
    ->Arg(200'000)
    ->UseManualTime()
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

// An event with every field that a record has, its name within reach.
struct PlainEvent {
  std::wstring user;
  std::wstring processName;
  std::wstring fileName;
  unsigned long long startTime = 0;
  unsigned long long endTime = 0;
  ostrel::ULong32 processId = 0;
  std::vector<std::wstring> hints;
  std::wstring status;
  unsigned char isNetworkEvent = 0;
  FILE_EVENT_TYPE type = FILE_EVENT_READ;
  ostrel::ULong32 readSize = 0;
};
using PlainMap = std::map<DiskCacheKey, PlainEvent>;

void Add(PlainMap& map, const std::wstring& fileName, const std::wstring& processName,
         ostrel::ULong32 processId, unsigned long long time) {
  map.emplace(
      DiskCacheKey(fileName, processId),
      PlainEvent{USER, processName, fileName, time, time, processId, {}, {}, 0, FILE_EVENT_READ, 4096});
}

void WalkAndSortDueNames(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  for (auto _ : state) {
    PlainMap map;
    FillWithAFifthDue(map, count);
    const Stopwatch watch;
    std::vector<std::wstring_view> due;
    for (const auto& [key, event] : map) {
      if (event.endTime < NOW - 60'000) due.emplace_back(event.fileName);
    }
    std::sort(due.begin(), due.end());
    state.SetIterationTime(watch.Seconds());
    if (due.size() != count / 5) state.SkipWithError("wrong number of names");
  }
}
BENCHMARK(WalkAndSortDueNames)
    ->Name("take_due/alternative")
    ->Arg(100'000)
    ->Arg(200'000)
    ->UseManualTime()
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

template <std::size_t COUNT>
void TakeNothing(benchmark::State& state) {
  static const auto cache = [] {
    auto filled = MakeReadEventCache();
    FillWithFresh(*filled, COUNT);
    return filled;
  }();
  for (auto _ : state) {
    auto events = cache->GetEvents(NOW);
    benchmark::DoNotOptimize(events);
  }
}
BENCHMARK_TEMPLATE(TakeNothing, 1'000'000)->Name("idle/library")->Iterations(1'000'000)->UseRealTime();
BENCHMARK_TEMPLATE(TakeNothing, 1'000)->Name("idle/alternative")->Iterations(1'000'000)->UseRealTime();

}  // namespace
