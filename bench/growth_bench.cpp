// How time and memory grow: of the caches with their entries, of a whole detection pass with the events that
// are due.
#include <windows.h>
// Needs windows.h before it.
#include <winsock2.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "cache/irp_cache.h"
#include "cache/sent_event_cache.h"
#include "counted_memory.h"
#include "detect/disk_event_worker.h"
#include "figures.h"
#include "network/network_event_cache.h"
#include "sample_events.h"
#include "stopwatch.h"

namespace {

using namespace ostrel::bench;
using ostrel::ULong32;

constexpr std::size_t CACHE_SIZES[] = {1'000, 3'000, 10'000, 30'000, 100'000, 300'000, 1'000'000};
constexpr std::size_t PASS_SIZES[] = {10, 100, 1'000, 10'000, 100'000};
constexpr std::size_t LARGEST_OF_MANY_ROUNDS = 100'000;
constexpr int ROUNDS = 3;

void Fill(ReadEventCache& cache, std::size_t count) {
  FillWithFresh(cache, count);
}

void Fill(BareMap& map, std::size_t count) {
  FillWithFresh(map, count);
}

void Fill(IrpCache& cache, std::size_t count) {
  const std::wstring processName = L"C:\\Program Files\\Browser\\chrome.exe";
  for (std::size_t i = 0; i < count; ++i) cache.AddNetworkInfoQuery(FileName(i), 100, FRESH, processName);
}

void Fill(SentEventCache& cache, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) cache.AddEvent(FileName(i), static_cast<long long>(FRESH));
}

void Fill(NetworkEventCache& cache, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    cache.AddEvent(PROCESS_NAME, static_cast<ULong32>(i) * 2654435761U, nullptr, IPV4, 443, FRESH, 1000);
  }
}

// Nanoseconds per entry, as the median of a few rounds, and bytes per entry.
template <typename MakeCache>
void PlotCache(Figures& figures, const std::string& name, MakeCache makeCache) {
  for (const std::size_t entries : CACHE_SIZES) {
    std::vector<double> nanoseconds;
    const int rounds = entries > LARGEST_OF_MANY_ROUNDS ? 1 : ROUNDS;
    for (int round = 0; round < rounds; ++round) {
      const auto cache = makeCache();
      const Stopwatch watch;
      Fill(*cache, entries);
      nanoseconds.push_back(watch.Seconds() * 1e9 / static_cast<double>(entries));
    }
    figures.AddPoint(name + "_time", static_cast<double>(entries), Quantile(nanoseconds, 0.5));

    const CountedMemory memory;
    const auto cache = makeCache();
    Fill(*cache, entries);
    figures.AddPoint(name + "_memory", static_cast<double>(entries),
                     static_cast<double>(memory.Bytes()) / static_cast<double>(entries));
  }
}

void AddMemoryOfReadEvent(Figures& figures) {
  constexpr std::size_t EVENTS = 100'000;
  const auto bytesPerEvent = [](auto cache) {
    const CountedMemory memory;
    Fill(*cache, EVENTS);
    return std::vector<double>{static_cast<double>(memory.Bytes()) / static_cast<double>(EVENTS)};
  };
  figures.Add("read_event_memory", "bytes", bytesPerEvent(MakeReadEventCache()),
              bytesPerEvent(std::make_unique<BareMap>()));
}

// One file of 1000 bytes with as many names as letters can be capital or small: a file of its own for every
// event would take longer to make than everything else here.
class FileOfManyNames {
 public:
  FileOfManyNames() : folder_(std::filesystem::temp_directory_path() / L"ostrel-growth-bench") {
    std::filesystem::create_directories(folder_);
    std::ofstream(folder_ / LETTERS) << std::string(SIZE, 'x');
  }
  FileOfManyNames(const FileOfManyNames&) = delete;
  FileOfManyNames& operator=(const FileOfManyNames&) = delete;
  ~FileOfManyNames() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }

  std::wstring Name(std::size_t number) const {
    std::wstring letters = LETTERS;
    for (std::size_t i = 0; i < letters.size(); ++i) {
      if ((number >> i & 1U) != 0) letters[i] = static_cast<wchar_t>(letters[i] - L'a' + L'A');
    }
    return (folder_ / letters).wstring();
  }

  static constexpr std::size_t SIZE = 1000;

 private:
  static constexpr wchar_t LETTERS[] = L"abcdefghijklmnopqr";

  std::filesystem::path folder_;
};

// The callback comes without a context.
std::size_t reports = 0;

void CountReport(const wchar_t*, const wchar_t*, const wchar_t*, std::uint64_t, std::uint32_t, std::int32_t,
                 wchar_t**, std::uint32_t*, wchar_t**, std::int32_t, wchar_t**, const wchar_t*, std::uint8_t,
                 const wchar_t*, const wchar_t*, std::uint32_t, const wchar_t*, const wchar_t*) {
  ++reports;
}

// Downloads and uploads in equal parts, each reported with one stream.
double MicrosecondsOfPass(const FileOfManyNames& file, std::size_t due) {
  const auto uploads = MakeReadEventCache();
  const auto downloads = MakeReadEventCache();
  const auto cloudDrive = MakeReadEventCache();
  NetworkEventCache uploadStreams(1);
  NetworkEventCache downloadStreams(0);
  // The look-up of a version 6 address ends at once, whatever the network is like.
  unsigned char address[16] = {0xFE, 0x80, 1};
  for (NetworkEventCache* streams : {&uploadStreams, &downloadStreams})
    streams->AddEvent(PROCESS_NAME, 0, address, IPV6, 443, NOW, FileOfManyNames::SIZE);
  for (std::size_t i = 0; i < due; ++i) {
    ReadEventCache& cache = i % 2 == 0 ? *downloads : *uploads;
    cache.AddEvent(file.Name(i), nullptr, PROCESS_NAME, 100, DUE, 0,
                   i % 2 == 0 ? FILE_EVENT_WRITE : FILE_EVENT_READ, FileOfManyNames::SIZE);
  }
  SentEventCache sentEvents;
  ostrel::HostCallbacks callbacks;
  callbacks.activity = CountReport;
  ostrel::FileEventReporter reporter(callbacks);
  ostrel::DiskEventWorker worker(
      {*uploads, *downloads, *cloudDrive, uploadStreams, downloadStreams, sentEvents}, reporter);
  reports = 0;
  const Stopwatch watch;
  worker.RunPass(NOW);
  const double microseconds = watch.Seconds() * 1e6;
  if (reports != due) throw std::runtime_error("the pass did not report every event");
  return microseconds;
}

// Microseconds per due event.
void PlotDetectionPass(Figures& figures) {
  const FileOfManyNames file;
  for (const std::size_t due : PASS_SIZES) {
    std::vector<double> values;
    const int rounds = due >= LARGEST_OF_MANY_ROUNDS ? 1 : ROUNDS;
    for (int round = 0; round < rounds; ++round)
      values.push_back(MicrosecondsOfPass(file, due) / static_cast<double>(due));
    figures.AddPoint("detection_pass", static_cast<double>(due), Quantile(values, 0.5));
  }
}

}  // namespace

int wmain(int argumentCount, wchar_t** arguments) {
  if (argumentCount != 2) {
    std::fputs("Usage: growth_bench.exe FIGURES.json\n", stderr);
    return 2;
  }
  try {
    WSADATA data{};
    WSAStartup(MAKEWORD(2, 2), &data);
    Figures figures;
    AddMemoryOfReadEvent(figures);
    PlotCache(figures, "read_event_cache", MakeReadEventCache);
    PlotCache(figures, "bare_map", [] { return std::make_unique<BareMap>(); });
    PlotCache(figures, "irp_cache", [] { return std::make_unique<IrpCache>(); });
    PlotCache(figures, "sent_event_cache", [] { return std::make_unique<SentEventCache>(); });
    PlotCache(figures, "network_event_cache", [] { return std::make_unique<NetworkEventCache>(1); });
    PlotDetectionPass(figures);
    figures.Write(arguments[1]);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "growth_bench: %s\n", error.what());
    return 1;
  }
}
