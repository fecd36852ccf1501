// What the library takes from the heap it gives back, however often it is loaded and unloaded.

#include "network_test.h"
#include "support/heap_watch.h"

namespace ostrel::test {

namespace {

class TheLibrarysHeap : public NetworkTest {
 protected:
  // Everything on, a file event handled and a record filed; then everything off.
  void Cycle() {
    const std::size_t threads = system_.ThreadIds().size();
    Forget();
    ASSERT_TRUE(Load());
    ASSERT_TRUE(system_.WaitUntilHandled());
    ASSERT_TRUE(EnableActivity(true));
    ASSERT_EQ(library_.EnablePCDDetection(nullptr, names_, 2, nullptr, 0, nullptr, 0), 1);
    ASSERT_TRUE(WaitUntilReading());
    EventMessage message{};
    message.processId = 42;
    message.eventTime = ~std::uint64_t{0};  // never due
    message.eventType = 1;
    message.streamFlag = 1;
    message.deviceSourceType = 2;
    message.fileName[0] = u'f';
    system_.Send(message);
    ASSERT_TRUE(system_.WaitUntilHandled());
    network_.Complete(0, Packet());
    ASSERT_TRUE(WaitUntilReading(2));
    ASSERT_EQ(library_.UnloadDriver(), 1);
    library_.DisableRemoteAddressInfo();
    for (std::size_t thread = threads; thread < threads + 3; ++thread) {
      ASSERT_TRUE(system_.WaitForThreadEnd(thread));
    }
  }
};

TEST_F(TheLibrarysHeap, HoldsTheSameBlocksAfterEveryCycle) {
  const HeapWatch heap(library_.Module());
  // Locks and caches are made at their first use.
  for (int warmUp = 0; warmUp < 2; ++warmUp) ASSERT_NO_FATAL_FAILURE(Cycle());
  const long before = HeapWatch::ModuleBlocks();
  EXPECT_GT(before, 0) << "the caches hold something, or nothing was counted";
  constexpr int CYCLES = 20;
  for (int cycle = 0; cycle < CYCLES; ++cycle) ASSERT_NO_FATAL_FAILURE(Cycle());
  EXPECT_EQ(HeapWatch::ModuleBlocks(), before);
}

}  // namespace

}  // namespace ostrel::test
