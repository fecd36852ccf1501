#include "chunk_ring.h"

#include <algorithm>

namespace ostrel::helper {

namespace {

class LockHolder {
 public:
  explicit LockHolder(SRWLOCK& lock) : lock_(lock) { AcquireSRWLockExclusive(&lock_); }
  ~LockHolder() { ReleaseSRWLockExclusive(&lock_); }
  LockHolder(const LockHolder&) = delete;
  LockHolder& operator=(const LockHolder&) = delete;

  template <typename Condition>
  void WaitFor(CONDITION_VARIABLE& changed, Condition condition) {
    while (!condition()) SleepConditionVariableSRW(&changed, &lock_, INFINITE, 0);
  }

 private:
  SRWLOCK& lock_;
};

}  // namespace

ChunkRing::ChunkRing(std::size_t chunkCount, std::size_t chunkSize, std::size_t consumerCount)
    : chunkCount_(chunkCount),
      chunkSize_(chunkSize),
      storage_(std::make_unique_for_overwrite<std::byte[]>(chunkCount * chunkSize)),
      sizes_(chunkCount),
      released_(consumerCount) {}

std::span<std::byte> ChunkRing::WaitForFree() {
  LockHolder lock(lock_);
  lock.WaitFor(hasFree_, [this] { return published_ - ReleasedByAll() < chunkCount_; });
  return {&storage_[published_ % chunkCount_ * chunkSize_], chunkSize_};
}

void ChunkRing::Publish(std::size_t size) {
  const LockHolder lock(lock_);
  sizes_[published_ % chunkCount_] = size;
  ++published_;
  WakeAllConditionVariable(&hasNext_);
}

void ChunkRing::Close() {
  const LockHolder lock(lock_);
  isClosed_ = true;
  WakeAllConditionVariable(&hasNext_);
}

std::optional<std::span<const std::byte>> ChunkRing::WaitForNext(std::size_t consumer) {
  LockHolder lock(lock_);
  lock.WaitFor(hasNext_, [&] { return isClosed_ || released_[consumer] < published_; });
  if (released_[consumer] == published_) return std::nullopt;
  const std::size_t slot = released_[consumer] % chunkCount_;
  return std::span<const std::byte>(&storage_[slot * chunkSize_], sizes_[slot]);
}

void ChunkRing::Release(std::size_t consumer) {
  const LockHolder lock(lock_);
  ++released_[consumer];
  WakeAllConditionVariable(&hasFree_);
}

std::uint64_t ChunkRing::ReleasedByAll() const {
  return *std::min_element(released_.begin(), released_.end());
}

}  // namespace ostrel::helper
