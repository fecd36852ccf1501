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

// A few buffers that one producer fills in turn and of which every consumer sees every one, in order.
// Consumers are no threads: any thread takes the next task of a consumer that no other thread is busy with,
// so that a thread which the system leaves waiting holds up nothing but the one task it has.
class ChunkRing {
 public:
  struct Task {
    std::size_t consumer;
    std::span<const std::byte> chunk;
  };

  ChunkRing(std::size_t chunkCount, std::size_t chunkSize, std::size_t consumerCount);
  ChunkRing(const ChunkRing&) = delete;
  ChunkRing& operator=(const ChunkRing&) = delete;

  // The producer: waits for a buffer or a task, and gives the task only if there is no buffer.
  std::optional<Task> TakeUnlessFree();
  // The producer, once there is a buffer: fill it, and publish how much of it.
  std::span<std::byte> Free();
  void Publish(std::size_t size);
  // The producer: nothing more will come. May be called again.
  void Close();

  // Any thread: waits for a task; nothing once the ring is closed and all tasks are done.
  std::optional<Task> Take();
  void Done(const Task& task);

 private:
  struct Consumer {
    std::uint64_t done = 0;
    bool isBusy = false;
  };

  bool HasFree() const;
  bool IsAllDone() const;
  std::optional<std::size_t> NextConsumer() const;
  Task Start(std::size_t consumer);

  const std::size_t chunkCount_;
  const std::size_t chunkSize_;
  const std::unique_ptr<std::byte[]> storage_;
  std::vector<std::size_t> sizes_;

  // The system's own: with the runtime library's lock a change of thread costs more than the work on a chunk.
  SRWLOCK lock_ = SRWLOCK_INIT;
  CONDITION_VARIABLE changed_ = CONDITION_VARIABLE_INIT;
  std::uint64_t published_ = 0;
  std::vector<Consumer> consumers_;
  bool isClosed_ = false;
};

}  // namespace ostrel::helper

#endif
