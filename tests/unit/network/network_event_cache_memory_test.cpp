// What a cache of streams holds after it found no memory.

#include <gtest/gtest.h>

#include <cstddef>
#include <new>
#include <string>

#include "network/network_event_cache.h"
#include "support/allocations.h"

namespace ostrel::test {

namespace {

const std::wstring PROCESS = L"\\Device\\V3\\a name longer than a short string holds.exe";

void Add(NetworkEventCache& cache, const std::wstring& processName) {
  cache.AddEvent(processName, 0xC0000201, nullptr, IPV4, 443, 1000, 5);
}

// A process without streams would be a line about a missing match later on, where there should be none.
TEST(NetworkEventCacheWithoutMemory, HasNeitherTheProcessNorItsFirstStream) {
  bool wasRefused = true;
  std::size_t refusals = 0;
  while (wasRefused) {
    NetworkEventCache cache(1);
    {
      const Allocations allocations(refusals + 1);
      try {
        Add(cache, PROCESS);
      } catch (const std::bad_alloc&) {
      }
      wasRefused = allocations.HasRefused();
    }
    EXPECT_EQ(cache.GetCacheCount(), wasRefused ? 0U : 1U);
    EXPECT_EQ(cache.GetStreamCount(PROCESS), wasRefused ? 0U : 1U);
    Add(cache, PROCESS);
    EXPECT_EQ(cache.GetStreamCount(PROCESS), 1U);
    if (wasRefused) ++refusals;
  }
  EXPECT_GE(refusals, 3U) << "its name, its entry and the stream take memory";
}

}  // namespace

}  // namespace ostrel::test
