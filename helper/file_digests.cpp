#include "file_digests.h"

#include <algorithm>
#include <array>
#include <exception>
#include <utility>

#include "chunk_ring.h"
#include "digest.h"
#include "thread.h"

namespace ostrel::helper {

namespace {

constexpr std::size_t CHUNK_COUNT = 16;
constexpr std::size_t CHUNK_SIZE = std::size_t{256} * 1024;

// Both digests of what is put into the ring, made by the thread that puts it there and by one more.
class DigestPair {
 public:
  // Whatever happens, the other thread has to come to an end.
  ~DigestPair() { ring_.Close(); }
  DigestPair() = default;
  DigestPair(const DigestPair&) = delete;
  DigestPair& operator=(const DigestPair&) = delete;

  // A buffer for the next part of the file. Makes itself useful until there is one.
  std::span<std::byte> WaitForFree() {
    while (const auto task = ring_.TakeUnlessFree()) Do(*task);
    return ring_.Free();
  }
  void Publish(std::size_t size) { ring_.Publish(size); }

  // After the last part; the digests SHA-256 first.
  std::array<std::wstring, 2> Finish() {
    ring_.Close();
    DoAll();
    for (const std::exception_ptr& error : errors_) {
      if (error) std::rethrow_exception(error);
    }
    return {digests_[0].Finish(), digests_[1].Finish()};
  }

 private:
  void DoAll() noexcept {
    while (const auto task = ring_.Take()) Do(*task);
  }

  // After an error a digest only passes on its parts, so that nobody waits for it.
  void Do(const ChunkRing::Task& task) noexcept {
    try {
      if (!errors_[task.consumer]) digests_[task.consumer].Add(task.chunk);
    } catch (...) {
      errors_[task.consumer] = std::current_exception();
    }
    ring_.Done(task);
  }

  ChunkRing ring_{CHUNK_COUNT, CHUNK_SIZE, 2};
  Digest digests_[2] = {Digest(BCRYPT_SHA256_ALGORITHM), Digest(BCRYPT_MD5_ALGORITHM)};
  std::exception_ptr errors_[2];
  Thread thread_{[this] { DoAll(); }};
};

std::size_t Read(HANDLE file, std::span<std::byte> buffer) {
  DWORD length = 0;
  if (!ReadFile(file, buffer.data(), static_cast<DWORD>(buffer.size()), &length, nullptr)) {
    throw FileReadError("the file cannot be read, error " + std::to_string(GetLastError()));
  }
  return length;
}

}  // namespace

FileDigests DigestFile(HANDLE file, std::uint64_t longest, std::chrono::steady_clock::time_point deadline) {
  DigestPair digests;
  std::uint64_t size = 0;
  while (size < longest) {
    if (std::chrono::steady_clock::now() >= deadline) throw FileReadError("the file takes too long");
    const std::span<std::byte> buffer = digests.WaitForFree();
    const std::size_t length = Read(
        file, buffer.first(static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), longest - size))));
    if (length == 0) break;
    digests.Publish(length);
    size += length;
  }
  auto [sha256Hex, md5Hex] = digests.Finish();
  return {std::move(sha256Hex), std::move(md5Hex), size};
}

}  // namespace ostrel::helper
