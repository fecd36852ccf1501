// The network event cache beside the two bare maps that it consists of.

#include <benchmark/benchmark.h>

#include <cstddef>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "network/network_event_cache.h"
#include "sample_events.h"
#include "stopwatch.h"

namespace {

using namespace ostrel::bench;
using ostrel::ULong32;

constexpr std::size_t STREAMS = 10'000;
constexpr std::size_t BATCH = 1000;
constexpr unsigned long long OLD = NOW - 70'001;

using BareStreams = std::map<IpPort, BytesTimeStamps>;
using BareMap = std::map<std::wstring, BareStreams>;

// The addresses come in no order.
ULong32 Address(std::size_t number) {
  return static_cast<ULong32>(number) * 2654435761U;
}

void Add(NetworkEventCache& cache, const std::wstring& processName, std::size_t number,
         unsigned long long time) {
  cache.AddEvent(processName, Address(number), nullptr, IPV4, 443, time, 1000 + number);
}

void Add(BareMap& map, const std::wstring& processName, std::size_t number, unsigned long long time) {
  const auto [stream, isNew] = map[processName].try_emplace(IpPort(Address(number), 443, nullptr, IPV4),
                                                            BytesTimeStamps(1000 + number, time));
  if (!isNew) stream->second.UpdateBytesEndTime(1000 + number, time);
}

void RemoveOld(NetworkEventCache& cache) {
  cache.PurgeEvents(NOW);
}

void RemoveOld(BareMap& map) {
  for (auto& [processName, streams] : map)
    std::erase_if(streams, [](const auto& stream) { return stream.second.GetEndTime() == OLD; });
}

template <typename Cache>
std::unique_ptr<Cache> MakeCache() {
  if constexpr (std::is_same_v<Cache, BareMap>) {
    return std::make_unique<BareMap>();
  } else {
    return std::make_unique<NetworkEventCache>(1);
  }
}

// The streams of one process.
template <typename Cache>
Cache& Filled() {
  static const std::unique_ptr<Cache> cache = [] {
    auto filled = MakeCache<Cache>();
    for (std::size_t i = 0; i < STREAMS; ++i) Add(*filled, PROCESS_NAME, i, NOW);
    return filled;
  }();
  return *cache;
}

// The time is that of a batch, without what takes the new streams out again.
template <typename Cache>
void AddNew(benchmark::State& state) {
  Cache& cache = Filled<Cache>();
  const std::wstring processName = PROCESS_NAME;
  for (auto _ : state) {
    const Stopwatch watch;
    for (std::size_t i = 0; i < BATCH; ++i) Add(cache, processName, STREAMS + i, OLD);
    state.SetIterationTime(watch.Seconds() / static_cast<double>(BATCH));
    RemoveOld(cache);
  }
}
BENCHMARK_TEMPLATE(AddNew, NetworkEventCache)->Name("stream_new/library")->UseManualTime()->Iterations(50);
BENCHMARK_TEMPLATE(AddNew, BareMap)->Name("stream_new/alternative")->UseManualTime()->Iterations(50);

template <typename Cache>
void Grow(benchmark::State& state) {
  Cache& cache = Filled<Cache>();
  const std::wstring processName = PROCESS_NAME;
  std::size_t i = 0;
  for (auto _ : state) Add(cache, processName, i++ * 7919 % STREAMS, NOW);
}
BENCHMARK_TEMPLATE(Grow, NetworkEventCache)->Name("stream_grow/library")->Iterations(300'000)->UseRealTime();
BENCHMARK_TEMPLATE(Grow, BareMap)->Name("stream_grow/alternative")->Iterations(300'000)->UseRealTime();

// Streams of 1000 to 10,999 bytes.
std::unique_ptr<NetworkEventCache> CacheOfSizes() {
  auto cache = std::make_unique<NetworkEventCache>(1);
  for (std::size_t i = 0; i < STREAMS; ++i) Add(*cache, PROCESS_NAME, i, NOW);
  return cache;
}

void FindLikely(benchmark::State& state) {
  static const auto cache = CacheOfSizes();
  const std::wstring processName = PROCESS_NAME;
  for (auto _ : state) {
    auto likely = cache->GetLikelyEvents(processName, 0, 0, 5000);
    if (likely.size() != 1) state.SkipWithError("wrong number of streams");
  }
}
BENCHMARK(FindLikely)->Name("likely/library")->Iterations(300)->UseRealTime();

void ScanForNearest(benchmark::State& state) {
  static const BareStreams streams = [] {
    BareMap map;
    for (std::size_t i = 0; i < STREAMS; ++i) Add(map, PROCESS_NAME, i, NOW);
    return std::move(map[PROCESS_NAME]);
  }();
  for (auto _ : state) {
    auto best = streams.end();
    unsigned long long least = std::numeric_limits<unsigned long long>::max();
    for (auto stream = streams.begin(); stream != streams.end(); ++stream) {
      const unsigned long long bytes = stream->second.GetBytes();
      const unsigned long long difference = bytes > 5000 ? bytes - 5000 : 5000 - bytes;
      if (difference >= least) continue;
      best = stream;
      least = difference;
    }
    benchmark::DoNotOptimize(best);
  }
}
BENCHMARK(ScanForNearest)->Name("likely/alternative")->Iterations(300)->UseRealTime();

constexpr std::size_t PURGED_STREAMS = 100'000;
constexpr std::size_t PROCESSES = 10;

std::wstring ProcessName(std::size_t stream) {
  return PROCESS_NAME + std::to_wstring(stream % PROCESSES);
}

template <typename Cache>
void AddOldHundredth(Cache& cache) {
  for (std::size_t i = 0; i < PURGED_STREAMS; i += 100) Add(cache, ProcessName(i / 100), i, OLD);
}

template <typename Cache>
std::unique_ptr<Cache> FreshStreams() {
  auto cache = MakeCache<Cache>();
  for (std::size_t i = 0; i < PURGED_STREAMS; ++i) {
    if (i % 100 != 0) Add(*cache, ProcessName(i / 100), i, NOW);
  }
  return cache;
}

void Purge(benchmark::State& state) {
  static const auto cache = FreshStreams<NetworkEventCache>();
  for (auto _ : state) {
    AddOldHundredth(*cache);
    const Stopwatch watch;
    const int purged = cache->PurgeEvents(NOW);
    state.SetIterationTime(watch.Seconds());
    if (purged != PURGED_STREAMS / 100) state.SkipWithError("wrong number of streams");
  }
}
BENCHMARK(Purge)->Name("purge/library")->UseManualTime()->Iterations(10)->Unit(benchmark::kMillisecond);

void WalkStreams(benchmark::State& state) {
  static const auto map = FreshStreams<BareMap>();
  AddOldHundredth(*map);
  for (auto _ : state) {
    const Stopwatch watch;
    std::size_t old = 0;
    for (const auto& [processName, streams] : *map) {
      for (const auto& [endpoint, stream] : streams) old += stream.GetEndTime() + 70'000 < NOW ? 1U : 0U;
    }
    state.SetIterationTime(watch.Seconds());
    if (old != PURGED_STREAMS / 100) state.SkipWithError("wrong number of streams");
  }
}
BENCHMARK(WalkStreams)
    ->Name("purge/alternative")
    ->UseManualTime()
    ->Iterations(10)
    ->Unit(benchmark::kMillisecond);

}  // namespace
