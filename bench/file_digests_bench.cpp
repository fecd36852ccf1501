// The helper's digests of a file against the platform's own, made one after the other of the same amount of
// memory: what the helper adds by reading the file is to be less than what it saves by working on two digests
// at once.
#include <benchmark/benchmark.h>
#include <windows.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <vector>

#include "digest.h"
#include "file_digests.h"
#include "util/unique_handle.h"

namespace {

using namespace ostrel::helper;

constexpr std::size_t PART = 1024 * 1024;
constexpr std::size_t PARTS = 1024;

std::vector<std::byte> Part() {
  std::vector<std::byte> part(PART);
  std::uint32_t state = 1;
  for (std::byte& byte : part) {
    state = state * 1664525U + 1013904223U;
    byte = static_cast<std::byte>(state >> 24U);
  }
  return part;
}

// One gibibyte, gone at the end.
class LargeFile {
 public:
  LargeFile() : path_(std::filesystem::temp_directory_path() / L"ostrel-digest-bench") {
    const std::vector<std::byte> part = Part();
    std::ofstream file(path_, std::ios::binary);
    for (std::size_t i = 0; i < PARTS; ++i) {
      file.write(reinterpret_cast<const char*>(part.data()), static_cast<std::streamsize>(part.size()));
    }
    if (!file) throw std::runtime_error("there is no room for a file of 1 GiB");
  }
  ~LargeFile() {
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
  }
  LargeFile(const LargeFile&) = delete;
  LargeFile& operator=(const LargeFile&) = delete;

  ostrel::UniqueFileHandle Open() const {
    return ostrel::UniqueFileHandle(CreateFileW(path_.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                                OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
  }

 private:
  std::filesystem::path path_;
};

void DigestMemory(const wchar_t* algorithm, const std::vector<std::byte>& part) {
  Digest digest(algorithm);
  for (std::size_t i = 0; i < PARTS; ++i) digest.Add(part);
  benchmark::DoNotOptimize(digest.Finish());
}

void PlatformDigestsOfMemory(benchmark::State& state) {
  const std::vector<std::byte> part = Part();
  for (auto _ : state) {
    DigestMemory(BCRYPT_SHA256_ALGORITHM, part);
    DigestMemory(BCRYPT_MD5_ALGORITHM, part);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * PARTS * PART));
}
BENCHMARK(PlatformDigestsOfMemory)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime()
    ->Iterations(1);

void HelperDigestsOfFile(benchmark::State& state) {
  const LargeFile file;
  for (auto _ : state) {
    const ostrel::UniqueFileHandle opened = file.Open();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(10);
    benchmark::DoNotOptimize(DigestFile(opened.Get(), PARTS * PART, deadline));
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * PARTS * PART));
}
BENCHMARK(HelperDigestsOfFile)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime()
    ->Iterations(1);

}  // namespace
