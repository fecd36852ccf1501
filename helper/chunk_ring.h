#ifndef OSTREL_HELPER_CHUNK_RING_H
#define OSTREL_HELPER_CHUNK_RING_H

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace ostrel::helper {

// A few buffers that one producer fills in turn and of which every consumer sees every one, in order. The
// producer waits for the slowest consumer, a consumer for the producer. One thread for each.
class ChunkRing {
 public:
  ChunkRing(std::size_t chunkCount, std::size_t chunkSize, std::size_t consumerCount);
  ChunkRing(const ChunkRing&) = delete;
  ChunkRing& operator=(const ChunkRing&) = delete;

  // The producer: fill the free buffer, publish how much of it, and so on; close at the end, which is not to
  // be omitted.
  std::span<std::byte> WaitForFree();
  void Publish(std::size_t size);
  void Close();

  // A consumer, by its number: take the next chunk, release it when done with it, and so on; nothing after
  // the last one.
  std::optional<std::span<const std::byte>> WaitForNext(std::size_t consumer);
  void Release(std::size_t consumer);

 private:
  std::uint64_t ReleasedByAll() const;

  const std::size_t chunkCount_;
  const std::size_t chunkSize_;
  const std::unique_ptr<std::byte[]> storage_;
  std::vector<std::size_t> sizes_;

  // The system's own: a change of thread for each chunk makes the runtime library's cost more than the
  // digests.
  SRWLOCK lock_ = SRWLOCK_INIT;
  CONDITION_VARIABLE hasFree_ = CONDITION_VARIABLE_INIT;
  CONDITION_VARIABLE hasNext_ = CONDITION_VARIABLE_INIT;
  std::uint64_t published_ = 0;
  std::vector<std::uint64_t> released_;
  bool isClosed_ = false;
};

}  // namespace ostrel::helper

#endif
