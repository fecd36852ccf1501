#include "chunk_ring.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "support/test_thread.h"

namespace {

using ostrel::helper::ChunkRing;
using ostrel_test::DEADLINE;
using ostrel_test::Signal;
using ostrel_test::TestThread;

using Bytes = std::vector<std::byte>;

Bytes SomeBytes(std::size_t size) {
  Bytes bytes(size);
  std::uint32_t state = 1;
  for (std::byte& byte : bytes) {
    state = state * 1664525U + 1013904223U;
    byte = static_cast<std::byte>(state >> 24U);
  }
  return bytes;
}

void PublishOne(ChunkRing& ring, int value) {
  ring.Free()[0] = static_cast<std::byte>(value);
  ring.Publish(1);
}

// What every consumer saw.
class Seen {
 public:
  void Do(ChunkRing& ring, const ChunkRing::Task& task) {
    bytes_[task.consumer].insert(bytes_[task.consumer].end(), task.chunk.begin(), task.chunk.end());
    ring.Done(task);
  }
  void DoAll(ChunkRing& ring) {
    while (const auto task = ring.Take()) Do(ring, *task);
  }
  const Bytes& operator[](std::size_t consumer) const { return bytes_[consumer]; }

 private:
  std::array<Bytes, 2> bytes_;
};

void Produce(ChunkRing& ring, const Bytes& bytes, Seen& seen) {
  for (std::size_t done = 0; done < bytes.size();) {
    while (const auto task = ring.TakeUnlessFree()) seen.Do(ring, *task);
    const std::span<std::byte> buffer = ring.Free();
    // Sometimes less than there is room for, as when a file is read.
    const std::size_t size = std::min(buffer.size() - done % 3, bytes.size() - done);
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(done), size, buffer.begin());
    ring.Publish(size);
    done += size;
  }
  ring.Close();
  seen.DoAll(ring);
}

TEST(TheChunkRing, ShowsEveryConsumerEveryByteInOrderHoweverManyThreadsThereAre) {
  const Bytes bytes = SomeBytes(100'000);
  for (std::size_t helpers = 0; helpers < 4; ++helpers) {
    ChunkRing ring(3, 64, 2);
    Seen seen;
    {
      std::vector<std::unique_ptr<TestThread>> threads;
      for (std::size_t i = 0; i < helpers; ++i) {
        threads.push_back(std::make_unique<TestThread>([&] { seen.DoAll(ring); }));
      }
      Produce(ring, bytes, seen);
    }
    EXPECT_EQ(seen[0], bytes) << helpers;
    EXPECT_EQ(seen[1], bytes) << helpers;
  }
}

TEST(TheChunkRing, GivesTheProducerABufferBeforeATask) {
  ChunkRing ring(2, 1, 1);
  PublishOne(ring, 1);
  EXPECT_FALSE(ring.TakeUnlessFree());
  PublishOne(ring, 2);
  const auto task = ring.TakeUnlessFree();
  ASSERT_TRUE(task);
  EXPECT_EQ(task->chunk[0], std::byte{1});
}

TEST(TheChunkRing, FreesABufferWhenAllConsumersAreDoneWithIt) {
  ChunkRing ring(1, 1, 2);
  PublishOne(ring, 1);
  for (int i = 0; i < 2; ++i) {
    const auto task = ring.TakeUnlessFree();
    ASSERT_TRUE(task) << i;
    ring.Done(*task);
  }
  EXPECT_FALSE(ring.TakeUnlessFree());
}

TEST(TheChunkRing, GivesTheConsumerThatIsFurthestBehind) {
  ChunkRing ring(2, 1, 2);
  PublishOne(ring, 1);
  const auto first = ring.Take();
  ASSERT_TRUE(first);
  ring.Done(*first);
  PublishOne(ring, 2);
  const auto second = ring.Take();
  ASSERT_TRUE(second);
  EXPECT_NE(second->consumer, first->consumer);
  EXPECT_EQ(second->chunk[0], std::byte{1});
}

TEST(TheChunkRing, GivesNoSecondTaskOfAConsumerThatIsBusy) {
  ChunkRing ring(2, 1, 1);
  PublishOne(ring, 1);
  PublishOne(ring, 2);
  const auto first = ring.Take();
  ASSERT_TRUE(first);
  Signal hasSecond;
  const TestThread other([&] {
    const auto second = ring.Take();
    if (second && second->chunk[0] == std::byte{2}) hasSecond.Set();
  });
  EXPECT_FALSE(hasSecond.WaitFor(std::chrono::milliseconds(50)));
  ring.Done(*first);
  EXPECT_TRUE(hasSecond.WaitFor(DEADLINE));
}

TEST(TheChunkRing, StillGivesWhatWasPublishedBeforeItWasClosed) {
  ChunkRing ring(2, 8, 1);
  ring.Publish(3);
  ring.Close();
  const auto task = ring.Take();
  ASSERT_TRUE(task);
  EXPECT_EQ(task->chunk.size(), 3U);
  ring.Done(*task);
  EXPECT_FALSE(ring.Take());
}

TEST(TheChunkRing, EndsAWaitingThreadWhenItIsClosed) {
  ChunkRing ring(2, 8, 1);
  Signal ended;
  const TestThread waiting([&] {
    if (!ring.Take()) ended.Set();
  });
  ring.Close();
  EXPECT_TRUE(ended.WaitFor(DEADLINE));
}

}  // namespace
