// Remote address info switched on and off, and the library unloaded, hundreds of times while records come.

#include <windows.h>
// Needs windows.h before it.
#include <psapi.h>

#include <algorithm>
#include <atomic>
#include <cwchar>
#include <string>
#include <vector>

#include "e2e/network_on_lab.h"
#include "support/lock.h"
#include "support/open_handles.h"

namespace ostrel::test {

namespace {

// Nothing is kept of a line: what the program takes from the heap is watched.
struct {
  std::atomic<std::size_t> filed{0};
  std::atomic<std::size_t> endedReaders{0};
  std::atomic<std::size_t> closedBefore{0};
  std::atomic<std::size_t> otherErrors{0};
} logged;

void CountLine(const wchar_t* text, std::uint32_t level) {
  if (std::wcsstr(text, L"added ") != nullptr) ++logged.filed;
  if (std::wcsstr(text, L"GetNWPacketInfo thread ended") != nullptr) ++logged.endedReaders;
  if (level != 3) return;
  const bool closedBefore = std::wcsstr(text, L"Could not close handle to NW driver. Code: 6") != nullptr;
  ++(closedBefore ? logged.closedBefore : logged.otherErrors);
}

std::size_t PrivateBytes() {
  PROCESS_MEMORY_COUNTERS counters{};
  counters.cb = sizeof(counters);
  EXPECT_TRUE(K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters)));
  // The same as PrivateUsage, which Wine leaves at zero.
  return counters.PagefileUsage;
}

std::size_t Median(std::vector<std::size_t>::const_iterator begin,
                   std::vector<std::size_t>::const_iterator end) {
  std::vector<std::size_t> values(begin, end);
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2),
                   values.end());
  return values[values.size() / 2];
}

class NetworkEndurance : public NetworkOnLab {
 protected:
  NetworkEndurance() : NetworkOnLab(CountLine) {}

  // Switches on and lets the driver send records without end, of which the library is handling one or another
  // when this returns.
  static void EnableInAFlood() {
    Enable();
    lab::NetworkLink player = Player();
    OstrelLabFlood flood{};
    flood.count = 100'000'000;
    flood.bytesStep = 1;
    flood.ports = 8;
    flood.first = Sent(1);
    const std::size_t before = logged.filed;
    player.Flood(flood);
    ASSERT_TRUE(WaitFor([before] { return logged.filed > before; })) << "no record is filed";
  }

  void CycleOfUnloading() {
    ASSERT_NO_FATAL_FAILURE(EnableInAFlood());
    ASSERT_EQ(UnloadDriver(), 1);
    ASSERT_NO_FATAL_FAILURE(Load());
    DisableRemoteAddressInfo();
  }

  void Cycle(std::size_t number) {
    if (number % UNLOADING_EVERY == 0) {
      ASSERT_NO_FATAL_FAILURE(CycleOfUnloading());
    } else {
      ASSERT_NO_FATAL_FAILURE(EnableInAFlood());
      DisableRemoteAddressInfo();
    }
  }

  static constexpr std::size_t UNLOADING_EVERY = 20;
};

// What a cycle leaves open, and nothing else: the reader's 63 request events and its stop event, and the
// handle of its thread. (The filtering session that stays open too is no kernel object in the lab.) A start
// of the disk event thread leaves a stop event.
HandleCounts After(HandleCounts handles, std::size_t cycles, std::size_t loads) {
  handles[L"Event"] += (OSTREL_LAB_NETWORK_READ_REQUESTS + 1) * cycles + loads;
  handles[L"Thread"] += cycles;
  return handles;
}

TEST_F(NetworkEndurance, TwoHundredCyclesDuringAFloodEndInTimeAndLeaveNothingButTheReadersOwnHandles) {
  constexpr std::size_t CYCLES = 200;
  constexpr std::size_t UNLOADINGS = CYCLES / UNLOADING_EVERY;
  for (std::size_t warmUp = 0; warmUp <= UNLOADING_EVERY; ++warmUp) ASSERT_NO_FATAL_FAILURE(Cycle(warmUp));
  logged.endedReaders = 0;
  logged.closedBefore = 0;
  logged.otherErrors = 0;
  const HandleCounts handlesBefore = OpenHandles();
  std::vector<std::size_t> privateBytes;
  for (std::size_t cycle = 0; cycle < CYCLES; ++cycle) {
    ASSERT_NO_FATAL_FAILURE(Cycle(cycle));
    privateBytes.push_back(PrivateBytes());
  }

  // Unloading ends the reader, and the switching off that follows waits for it once more and finds its device
  // closed. A stop that took longer than its 3000 milliseconds would be an error line.
  EXPECT_EQ(logged.endedReaders, CYCLES + UNLOADINGS);
  EXPECT_EQ(logged.closedBefore, UNLOADINGS);
  EXPECT_EQ(logged.otherErrors, 0U);

  // The notification thread of the last load may still be on its way out.
  const HandleCounts expected = After(handlesBefore, CYCLES, UNLOADINGS);
  EXPECT_TRUE(WaitFor([&expected] { return AreAsExpected(OpenHandles(), expected); }, PATIENCE))
      << ::testing::PrintToString(OpenHandles()) << " instead of " << ::testing::PrintToString(expected);

  // The lab's filtering platform keeps half a kilobyte for each session that stays open. What the library
  // itself would leak, such as its request blocks of 6 KiB, comes on top.
  constexpr std::size_t QUARTER = CYCLES / 4;
  constexpr std::size_t CYCLES_BETWEEN = CYCLES - QUARTER;
  EXPECT_LT(Median(privateBytes.end() - QUARTER, privateBytes.end()),
            Median(privateBytes.begin(), privateBytes.begin() + QUARTER) + CYCLES_BETWEEN * 1024);
}

}  // namespace

}  // namespace ostrel::test
