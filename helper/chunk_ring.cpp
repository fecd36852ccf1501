#include "chunk_ring.h"

#include <algorithm>

namespace ostrel::helper {

ChunkRing::ChunkRing(std::size_t chunkCount, std::size_t chunkSize, std::size_t consumerCount)
    : chunkCount_(chunkCount),
      chunkSize_(chunkSize),
      storage_(std::make_unique_for_overwrite<std::byte[]>(chunkCount * chunkSize)),
      sizes_(chunkCount),
      released_(consumerCount) {}

std::span<std::byte> ChunkRing::WaitForFree() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return published_ - ReleasedByAll() < chunkCount_; });
  return {&storage_[published_ % chunkCount_ * chunkSize_], chunkSize_};
}

void ChunkRing::Publish(std::size_t size) {
  const std::lock_guard lock(mutex_);
  sizes_[published_ % chunkCount_] = size;
  ++published_;
  changed_.notify_all();
}

void ChunkRing::Close() {
  const std::lock_guard lock(mutex_);
  isClosed_ = true;
  changed_.notify_all();
}

std::optional<std::span<const std::byte>> ChunkRing::WaitForNext(std::size_t consumer) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return isClosed_ || released_[consumer] < published_; });
  if (released_[consumer] == published_) return std::nullopt;
  const std::size_t slot = released_[consumer] % chunkCount_;
  return std::span<const std::byte>(&storage_[slot * chunkSize_], sizes_[slot]);
}

void ChunkRing::Release(std::size_t consumer) {
  const std::lock_guard lock(mutex_);
  ++released_[consumer];
  changed_.notify_all();
}

std::uint64_t ChunkRing::ReleasedByAll() const {
  return *std::min_element(released_.begin(), released_.end());
}

}  // namespace ostrel::helper
