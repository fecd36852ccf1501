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
      consumers_(consumerCount) {}

std::optional<ChunkRing::Task> ChunkRing::TakeUnlessFree() {
  LockHolder lock(lock_);
  lock.WaitFor(changed_, [this] { return HasFree() || NextConsumer(); });
  if (HasFree()) return std::nullopt;
  return Start(*NextConsumer());
}

std::span<std::byte> ChunkRing::Free() {
  const LockHolder lock(lock_);
  return {&storage_[published_ % chunkCount_ * chunkSize_], chunkSize_};
}

void ChunkRing::Publish(std::size_t size) {
  const LockHolder lock(lock_);
  sizes_[published_ % chunkCount_] = size;
  ++published_;
  WakeAllConditionVariable(&changed_);
}

void ChunkRing::Close() {
  const LockHolder lock(lock_);
  isClosed_ = true;
  WakeAllConditionVariable(&changed_);
}

std::optional<ChunkRing::Task> ChunkRing::Take() {
  LockHolder lock(lock_);
  lock.WaitFor(changed_, [this] { return NextConsumer() || (isClosed_ && IsAllDone()); });
  const std::optional<std::size_t> consumer = NextConsumer();
  if (!consumer) return std::nullopt;
  return Start(*consumer);
}

void ChunkRing::Done(const Task& task) {
  const LockHolder lock(lock_);
  ++consumers_[task.consumer].done;
  consumers_[task.consumer].isBusy = false;
  WakeAllConditionVariable(&changed_);
}

bool ChunkRing::HasFree() const {
  return std::all_of(consumers_.begin(), consumers_.end(),
                     [this](const Consumer& consumer) { return published_ - consumer.done < chunkCount_; });
}

bool ChunkRing::IsAllDone() const {
  return std::all_of(consumers_.begin(), consumers_.end(),
                     [this](const Consumer& consumer) { return consumer.done == published_; });
}

// The one that is furthest behind, among those that nobody is busy with.
std::optional<std::size_t> ChunkRing::NextConsumer() const {
  std::optional<std::size_t> next;
  for (std::size_t i = 0; i < consumers_.size(); ++i) {
    if (consumers_[i].isBusy || consumers_[i].done == published_) continue;
    if (!next || consumers_[i].done < consumers_[*next].done) next = i;
  }
  return next;
}

ChunkRing::Task ChunkRing::Start(std::size_t consumer) {
  consumers_[consumer].isBusy = true;
  const std::size_t slot = consumers_[consumer].done % chunkCount_;
  return {consumer, {&storage_[slot * chunkSize_], sizes_[slot]}};
}

}  // namespace ostrel::helper
