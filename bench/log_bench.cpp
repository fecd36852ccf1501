// A log line that nobody wants to see, beside the comparison that it cannot do without.

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdint>

#include "log/log.h"
#include "sample_events.h"

namespace {

void NoSink(const wchar_t* /*text*/, std::uint32_t /*level*/) {}

void LineAboveTheLevel(benchmark::State& state) {
  ostrel::SetLogSink(NoSink, ostrel::LOG_NOTABLE);
  const wchar_t* process = ostrel::bench::PROCESS_NAME;
  unsigned long long bytes = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(bytes);
    ostrel::Log(ostrel::LOG_DETAIL, L"added network event: %s: %llu", process, bytes);
  }
  ostrel::SetLogSink(nullptr, 0);
}
BENCHMARK(LineAboveTheLevel)->Name("log/library")->Iterations(10'000'000)->UseRealTime();

std::atomic<std::int32_t> wantedLevel{ostrel::LOG_NOTABLE};

void Comparison(benchmark::State& state) {
  unsigned long long bytes = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(bytes);
    if (ostrel::LOG_DETAIL <= wantedLevel.load(std::memory_order_relaxed)) benchmark::ClobberMemory();
  }
}
BENCHMARK(Comparison)->Name("log/alternative")->Iterations(10'000'000)->UseRealTime();

}  // namespace
