#include "file_digests.h"

#include <algorithm>
#include <exception>
#include <optional>

#include "chunk_ring.h"
#include "digest.h"
#include "thread.h"

namespace ostrel::helper {

namespace {

constexpr std::size_t CHUNK_COUNT = 4;
constexpr std::size_t CHUNK_SIZE = 1024 * 1024;

// Feeds one digest from the ring on a thread of its own.
class DigestWorker {
 public:
  DigestWorker(ChunkRing& ring, std::size_t consumer, const wchar_t* algorithm)
      : ring_(ring), consumer_(consumer), digest_(algorithm), thread_(std::in_place, [this] { Run(); }) {}
  // Lets the thread end even if the producer did not get to the end.
  ~DigestWorker() { ring_.Close(); }
  DigestWorker(const DigestWorker&) = delete;
  DigestWorker& operator=(const DigestWorker&) = delete;

  // Once the ring is closed.
  std::wstring Finish() {
    thread_.reset();
    if (error_) std::rethrow_exception(error_);
    return digest_.Finish();
  }

 private:
  void Run() noexcept {
    while (const auto chunk = ring_.WaitForNext(consumer_)) {
      Add(*chunk);
      ring_.Release(consumer_);
    }
  }

  // After an error chunks are only passed on, so that nobody waits for this thread.
  void Add(std::span<const std::byte> chunk) noexcept {
    if (error_) return;
    try {
      digest_.Add(chunk);
    } catch (...) {
      error_ = std::current_exception();
    }
  }

  ChunkRing& ring_;
  const std::size_t consumer_;
  Digest digest_;
  std::exception_ptr error_;
  std::optional<Thread> thread_;
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
  ChunkRing ring(CHUNK_COUNT, CHUNK_SIZE, 2);
  DigestWorker sha256(ring, 0, BCRYPT_SHA256_ALGORITHM);
  DigestWorker md5(ring, 1, BCRYPT_MD5_ALGORITHM);
  std::uint64_t size = 0;
  while (size < longest) {
    if (std::chrono::steady_clock::now() >= deadline) throw FileReadError("the file takes too long");
    const std::span<std::byte> buffer = ring.WaitForFree();
    const std::size_t length = Read(
        file, buffer.first(static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), longest - size))));
    if (length == 0) break;
    ring.Publish(length);
    size += length;
  }
  ring.Close();
  return {sha256.Finish(), md5.Finish(), size};
}

}  // namespace ostrel::helper
