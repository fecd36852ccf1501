// What the packet reader adds to a bare loop that issues the same requests and looks up the same processes.
// Both take turns on the lab's network driver, which floods them, so that whatever else the machine does
// meets both alike.
#include <windows.h>
// Needs windows.h before it.
#include <psapi.h>

#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "bare_packet_loop.h"
#include "figures.h"
#include "lab_network_driver.h"
#include "network/network_device.h"
#include "network/network_event_cache.h"
#include "network/packet_reader.h"
#include "util/unique_handle.h"

namespace {

using ostrel::UniqueKernelHandle;
using namespace ostrel::bench;

constexpr std::uint32_t REQUESTS = MAXIMUM_WAIT_OBJECTS - 1;
constexpr std::uint32_t STREAMS = 20;
constexpr int PAIRS = 61;
constexpr DWORD ROUND_MILLISECONDS = 250;
// A round on a busy machine goes on until it has so many.
constexpr std::uint64_t LEAST_RECORDS = 200;
constexpr DWORD PATIENCE_MILLISECONDS = 10000;

// Reads until the event is signalled. True when it dealt with the records of every stream.
using Reader = std::function<bool(HANDLE device, HANDLE stop)>;

bool ReadWithLibrary(HANDLE device, HANDLE stop) {
  NetworkEventCache uploads(1);
  NetworkEventCache downloads(0);
  const auto givenUp = std::make_shared<std::atomic<bool>>(false);
  const DWORD exitCode = ostrel::PacketReader(device, stop, givenUp, uploads, downloads).Run();
  wchar_t processName[512] = {};
  K32GetProcessImageFileNameW(GetCurrentProcess(), processName, 512);
  return exitCode == 0 && uploads.GetStreamCount(processName) == STREAMS;
}

bool ReadBare(HANDLE device, HANDLE stop) {
  return RunBarePacketLoop(device, stop) >= STREAMS;
}

// A reader on its own thread, ended with this object.
class ReadingThread {
 public:
  ReadingThread(const Reader& reader, HANDLE device)
      : reader_(reader), device_(device), stop_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
    if (!stop_) ThrowLastError("creating an event");
    thread_.Reset(CreateThread(nullptr, 0, Run, this, 0, nullptr));
    if (!thread_) ThrowLastError("creating a thread");
  }
  ReadingThread(const ReadingThread&) = delete;
  ReadingThread& operator=(const ReadingThread&) = delete;
  ~ReadingThread() { Stop(); }

  // What the reader returned.
  bool Stop() {
    SetEvent(stop_.Get());
    WaitForSingleObject(thread_.Get(), INFINITE);
    return succeeded_;
  }

 private:
  static DWORD WINAPI Run(void* parameter) {
    auto* const self = static_cast<ReadingThread*>(parameter);
    self->succeeded_ = self->reader_(self->device_, self->stop_.Get());
    return 0;
  }

  const Reader& reader_;
  HANDLE device_;
  UniqueKernelHandle stop_;
  UniqueKernelHandle thread_;
  bool succeeded_ = false;
};

// The library's device, open and enabled.
class EnabledDevice {
 public:
  EnabledDevice() {
    if (const std::uint32_t error = device_.Open(); error != ERROR_SUCCESS) {
      throw std::runtime_error("the network driver's device cannot be opened: " + std::to_string(error));
    }
    if (const std::uint32_t error = device_.EnableMonitoring(); error != ERROR_SUCCESS) {
      device_.Close();
      throw std::runtime_error("the network driver cannot be enabled: " + std::to_string(error));
    }
  }
  EnabledDevice(const EnabledDevice&) = delete;
  EnabledDevice& operator=(const EnabledDevice&) = delete;
  ~EnabledDevice() { device_.Close(); }

  HANDLE Get() const { return device_.Get(); }

 private:
  ostrel::NetworkDevice device_;
};

void WaitUntilAllRequestsPend(LabNetworkDriver& driver) {
  const std::uint64_t deadline = GetTickCount64() + PATIENCE_MILLISECONDS;
  while (driver.Status().pendingRequests != REQUESTS) {
    if (GetTickCount64() > deadline) throw std::runtime_error("the reader did not issue all its requests");
    Sleep(10);
  }
}

// Records of this process's uploads to STREAMS ports of one address, without an end.
OstrelLabFlood EndlessFlood() {
  OstrelLabFlood flood{};
  flood.count = UINT64_MAX;
  flood.bytesStep = 1;
  flood.timeStep = 1;
  flood.ports = STREAMS;
  flood.first.bytes = 1000;
  flood.first.ipv4 = 0xC0000201;
  flood.first.port = 1000;
  flood.first.isUpload = 1;
  flood.first.processId = GetCurrentProcessId();
  flood.first.time = 1'700'000'000'000;
  flood.first.ipVersion = OSTREL_LAB_IPV4;
  return flood;
}

double MicrosecondsNow() {
  LARGE_INTEGER frequency;
  LARGE_INTEGER now;
  QueryPerformanceFrequency(&frequency);
  QueryPerformanceCounter(&now);
  return static_cast<double>(now.QuadPart) * 1e6 / static_cast<double>(frequency.QuadPart);
}

// Waits until the driver has completed `count` requests and returns how many it has.
std::uint64_t WaitForCompleted(LabNetworkDriver& driver, std::uint64_t count) {
  const std::uint64_t deadline = GetTickCount64() + PATIENCE_MILLISECONDS;
  for (;;) {
    const std::uint64_t completed = driver.Status().completed;
    if (completed >= count) return completed;
    if (GetTickCount64() > deadline) throw std::runtime_error("the reader came to a halt");
    Sleep(10);
  }
}

double MicrosecondsPerRecord(LabNetworkDriver& driver, const Reader& reader) {
  const EnabledDevice device;
  ReadingThread thread(reader, device.Get());
  WaitUntilAllRequestsPend(driver);
  const std::uint64_t before = driver.Status().completed;
  driver.Flood(EndlessFlood());
  // Every stream is known by then, and every buffer touched.
  const std::uint64_t atStart = WaitForCompleted(driver, before + LEAST_RECORDS);
  const double start = MicrosecondsNow();
  Sleep(ROUND_MILLISECONDS);
  const std::uint64_t atEnd = WaitForCompleted(driver, atStart + LEAST_RECORDS);
  const double time = MicrosecondsNow() - start;
  if (!thread.Stop()) throw std::runtime_error("the reader did not deal with what it had read");
  return time / static_cast<double>(atEnd - atStart);
}

}  // namespace

int wmain(int argumentCount, wchar_t** arguments) {
  if (argumentCount != 3) {
    std::fputs("Usage: packet_reader_bench.exe PATH\\OstrelNWFilter.sys FIGURES.json\n", stderr);
    return 2;
  }
  try {
    LabNetworkDriver driver(std::filesystem::absolute(arguments[1]));
    const auto time = [&driver](const Reader& reader) {
      return [&driver, reader](std::vector<double>& values) {
        values.push_back(MicrosecondsPerRecord(driver, reader));
      };
    };
    const Rounds rounds = TakeTurns(PAIRS, time(ReadWithLibrary), time(ReadBare));
    Figures figures;
    figures.Add("packet", "us", rounds.library, rounds.alternative);
    figures.Write(arguments[2]);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "packet_reader_bench: %s\n", error.what());
    return 1;
  }
}
