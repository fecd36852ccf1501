#include "chunk_ring.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

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

void Produce(ChunkRing& ring, const Bytes& bytes) {
  for (std::size_t done = 0; done < bytes.size();) {
    const std::span<std::byte> buffer = ring.WaitForFree();
    // Sometimes less than there is room for, as when a file is read.
    const std::size_t size = std::min({buffer.size() - done % 3, bytes.size() - done});
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(done), size, buffer.begin());
    ring.Publish(size);
    done += size;
  }
  ring.Close();
}

Bytes Consume(ChunkRing& ring, std::size_t consumer) {
  Bytes all;
  while (const auto chunk = ring.WaitForNext(consumer)) {
    all.insert(all.end(), chunk->begin(), chunk->end());
    ring.Release(consumer);
  }
  return all;
}

TEST(TheChunkRing, ShowsEveryConsumerEveryByteInOrder) {
  const Bytes bytes = SomeBytes(100'000);
  ChunkRing ring(3, 64, 2);
  Bytes first;
  Bytes second;
  {
    const TestThread firstThread([&] { first = Consume(ring, 0); });
    const TestThread secondThread([&] { second = Consume(ring, 1); });
    Produce(ring, bytes);
  }
  EXPECT_EQ(first, bytes);
  EXPECT_EQ(second, bytes);
}

TEST(TheChunkRing, KeepsTheProducerFromOverwritingWhatTheSlowestConsumerHasNotReleased) {
  ChunkRing ring(2, 1, 2);
  Signal thirdIsFree;
  for (int i = 0; i < 2; ++i) {
    ring.WaitForFree()[0] = static_cast<std::byte>(i);
    ring.Publish(1);
  }
  const TestThread producer([&] {
    ring.WaitForFree();
    thirdIsFree.Set();
  });
  ASSERT_TRUE(ring.WaitForNext(0));
  ring.Release(0);
  EXPECT_FALSE(thirdIsFree.WaitFor(std::chrono::milliseconds(50)));
  ASSERT_TRUE(ring.WaitForNext(1));
  ring.Release(1);
  EXPECT_TRUE(thirdIsFree.WaitFor(DEADLINE));
}

TEST(TheChunkRing, ReusesItsBuffers) {
  ChunkRing ring(2, 8, 1);
  const std::byte* const first = ring.WaitForFree().data();
  for (int i = 0; i < 2; ++i) {
    ring.WaitForFree();
    ring.Publish(8);
    ASSERT_TRUE(ring.WaitForNext(0));
    ring.Release(0);
  }
  EXPECT_EQ(ring.WaitForFree().data(), first);
  EXPECT_EQ(ring.WaitForFree().size(), 8U);
}

TEST(TheChunkRing, StillHandsOutWhatWasPublishedBeforeItWasClosed) {
  ChunkRing ring(2, 8, 1);
  ring.Publish(3);
  ring.Close();
  const auto chunk = ring.WaitForNext(0);
  ASSERT_TRUE(chunk);
  EXPECT_EQ(chunk->size(), 3U);
  ring.Release(0);
  EXPECT_FALSE(ring.WaitForNext(0));
}

TEST(TheChunkRing, EndsAWaitingConsumerWhenItIsClosed) {
  ChunkRing ring(2, 8, 1);
  Signal ended;
  const TestThread consumer([&] {
    if (!ring.WaitForNext(0)) ended.Set();
  });
  ring.Close();
  EXPECT_TRUE(ended.WaitFor(DEADLINE));
}

}  // namespace
