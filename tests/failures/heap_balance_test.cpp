// What the library takes from the heap it gives back, however often it is loaded and unloaded.

#include <atomic>
#include <cstdlib>

#include "network_test.h"

namespace ostrel::test {

namespace {

std::atomic<long> blocks{0};

// Not called by name: they are what the library called before.
decltype(&std::malloc) originalMalloc = nullptr;
decltype(&std::calloc) originalCalloc = nullptr;
decltype(&std::realloc) originalRealloc = nullptr;
decltype(&std::free) originalFree = nullptr;

void* Malloc(std::size_t size) {
  void* const block = originalMalloc(size);
  if (block != nullptr) ++blocks;
  return block;
}

void* Calloc(std::size_t count, std::size_t size) {
  void* const block = originalCalloc(count, size);
  if (block != nullptr) ++blocks;
  return block;
}

void* Realloc(void* block, std::size_t size) {
  void* const moved = originalRealloc(block, size);
  if (block == nullptr && moved != nullptr) ++blocks;
  return moved;
}

void Free(void* block) {
  if (block != nullptr) --blocks;
  originalFree(block);
}

template <typename Function>
void* Replace(Function& original, HMODULE module, const char* name, Function replacement) {
  original = reinterpret_cast<Function>(ImportPatch::Imported(module, name));
  return reinterpret_cast<void*>(replacement);
}

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

 private:
  ImportPatch malloc_{library_.Module(), "malloc",
                      Replace(originalMalloc, library_.Module(), "malloc", &Malloc)};
  ImportPatch calloc_{library_.Module(), "calloc",
                      Replace(originalCalloc, library_.Module(), "calloc", &Calloc)};
  ImportPatch realloc_{library_.Module(), "realloc",
                       Replace(originalRealloc, library_.Module(), "realloc", &Realloc)};
  ImportPatch free_{library_.Module(), "free", Replace(originalFree, library_.Module(), "free", &Free)};
};

TEST_F(TheLibrarysHeap, HoldsTheSameBlocksAfterEveryCycle) {
  // Locks and caches are made at their first use.
  for (int warmUp = 0; warmUp < 2; ++warmUp) ASSERT_NO_FATAL_FAILURE(Cycle());
  const long before = blocks;
  EXPECT_GT(before, 0) << "the caches hold something, or nothing was counted";
  constexpr int CYCLES = 20;
  for (int cycle = 0; cycle < CYCLES; ++cycle) ASSERT_NO_FATAL_FAILURE(Cycle());
  EXPECT_EQ(blocks, before);
}

}  // namespace

}  // namespace ostrel::test
