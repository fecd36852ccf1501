// What one pass over a read event cache costs, beside the plainest thing that could do a comparable amount of
// work.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "cache/read_event_cache.h"

namespace {

constexpr unsigned long long NOW = 1'700'000'060'001;
constexpr unsigned long long DUE = NOW - 60'001;
constexpr unsigned long long FRESH = NOW;

unsigned char NoUser(void* /*processHandle*/, std::wstring& user) {
  user = L"user";
  return 1;
}

std::vector<std::wstring> NoTitles(ostrel::ULong32 /*processId*/, std::wstring /*processName*/,
                                   std::wstring& /*status*/) {
  return {};
}

unsigned char NoDirectory(std::wstring /*fileName*/) {
  return 0;
}

std::unique_ptr<ReadEventCache> MakeCache() {
  ostrel::UserLookup userLookup = NoUser;
  ostrel::TabTitleLookup tabTitleLookup = NoTitles;
  ostrel::DirectoryTest directoryTest = NoDirectory;
  return std::make_unique<ReadEventCache>(userLookup, tabTitleLookup, directoryTest);
}

std::wstring FileName(std::size_t number) {
  return L"C:\\Users\\someone\\Documents\\Projects\\report-" + std::to_wstring(number) + L".docx";
}

void Add(ReadEventCache& cache, std::size_t file, ostrel::ULong32 process, unsigned long long time) {
  cache.AddEvent(FileName(file), nullptr, L"\\Device\\HarddiskVolume3\\Program Files\\browser.exe", process,
                 time, 0, FILE_EVENT_READ, 4096);
}

// `count` events; a fifth of them due, of which every second is the same file as its neighbour, read by
// another process.
void Fill(ReadEventCache& cache, std::size_t count) {
  const std::size_t due = count / 5;
  for (std::size_t i = 0; i < due; ++i) Add(cache, i / 2, static_cast<ostrel::ULong32>(100 + i % 2), DUE);
  for (std::size_t i = due; i < count; ++i) Add(cache, i, 100, FRESH);
}

void GetEventsWithAFifthDue(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    auto cache = MakeCache();
    Fill(*cache, static_cast<std::size_t>(state.range(0)));
    state.ResumeTiming();
    auto events = cache->GetEvents(NOW);
    benchmark::DoNotOptimize(events);
    state.PauseTiming();
    if (events.size() != static_cast<std::size_t>(state.range(0)) / 10)
      state.SkipWithError("wrong number of events");
    cache.reset();
    state.ResumeTiming();
  }
}
BENCHMARK(GetEventsWithAFifthDue)
    ->Arg(25'000)
    ->Arg(50'000)
    ->Arg(100'000)
    ->Arg(200'000)
    ->Unit(benchmark::kMillisecond);

// What comparing every pair of due events and every due event with every cached one costs, without any cache
// around it.
void ComparingEveryPair(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  std::vector<std::wstring> due;
  std::vector<std::wstring> cached;
  for (std::size_t i = 0; i < count / 5; ++i) due.push_back(FileName(i / 2));
  for (std::size_t i = count / 5; i < count; ++i) cached.push_back(FileName(i));
  for (auto _ : state) {
    std::size_t equal = 0;
    for (std::size_t i = 0; i < due.size(); ++i) {
      for (std::size_t j = i + 1; j < due.size(); ++j) equal += due[i] == due[j] ? 1 : 0;
    }
    for (std::size_t i = 0; i < due.size(); i += 2) {
      equal += static_cast<std::size_t>(std::count(cached.begin(), cached.end(), due[i]));
    }
    benchmark::DoNotOptimize(equal);
  }
}
BENCHMARK(ComparingEveryPair)->Arg(25'000)->Arg(100'000)->Unit(benchmark::kMillisecond)->Iterations(1);

void GetEventsWithNothingDue(benchmark::State& state) {
  auto cache = MakeCache();
  for (std::size_t i = 0; i < static_cast<std::size_t>(state.range(0)); ++i) Add(*cache, i, 100, FRESH);
  for (auto _ : state) {
    auto events = cache->GetEvents(NOW);
    benchmark::DoNotOptimize(events);
  }
}
BENCHMARK(GetEventsWithNothingDue)->Arg(1'000)->Arg(1'000'000);

}  // namespace
