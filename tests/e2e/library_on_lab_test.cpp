// The library loaded into this program, on the lab's driver: load and unload in loops, with events in flight.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cwchar>
#include <string>
#include <vector>

#include "api/exports.h"
#include "driver_link.h"
#include "minifilter_wire.h"
#include "support/lock.h"
#include "support/open_handles.h"
#include "text.h"
#include "util/unique_handle.h"

namespace ostrel::test {

namespace {

using lab::DriverLink;

std::atomic<int> receivedLines{0};
std::atomic<int> errorLines{0};

void CountLines(const wchar_t* text, std::uint32_t level) {
  if (level == 3 && std::wcsstr(text, L"OpenService failed") == nullptr) ++errorLines;
  if (std::wcsstr(text, L"Received event: ") != nullptr) ++receivedLines;
}

void IgnoreActivity(const wchar_t*, const wchar_t*, const wchar_t*, std::uint64_t, std::uint32_t,
                    std::int32_t, wchar_t**, std::uint32_t*, wchar_t**, std::int32_t, wchar_t**,
                    const wchar_t*, std::uint8_t, const wchar_t*, const wchar_t*, std::uint32_t,
                    const wchar_t*, const wchar_t*) {}

// A read by this process of file number `number`, just now.
OstrelLabEvent Read(std::size_t number) {
  OstrelLabEvent event{};
  event.processId = GetCurrentProcessId();
  event.eventTime = static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                                   std::chrono::system_clock::now().time_since_epoch())
                                                   .count());
  event.streamFlag = 1;
  event.deviceSourceType = 2;
  const std::wstring name = L"\\file" + std::to_wstring(number);
  std::copy(name.begin(), name.end(), event.fileName);
  return event;
}

std::vector<OstrelLabEvent> Reads(std::size_t count) {
  std::vector<OstrelLabEvent> events;
  for (std::size_t i = 0; i < count; ++i) events.push_back(Read(i));
  return events;
}

bool WaitUntilAcknowledged(DriverLink& driver, std::uint64_t count) {
  const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
  while (driver.Status().acknowledged < count) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    Sleep(10);
  }
  return true;
}

void Load() {
  ASSERT_EQ(LoadDriver(CountLines, 7), 1);
  const wchar_t* names[] = {L"anything.exe"};
  // Without tab titles, which would start a helper for each file.
  ASSERT_EQ(EnableActivityDetection(IgnoreActivity, L"user", names, 1, nullptr, 0, 0, 0, 0), 1);
}

void Cycle(std::size_t events) {
  Load();
  auto driver = DriverLink::TryOpen();
  ASSERT_TRUE(driver.has_value());
  driver->Submit(Reads(events));
  ASSERT_EQ(UnloadDriver(), 1);
}

TEST(LibraryOnLab, AFloodIsAcknowledgedAndHandledMessageByMessage) {
  constexpr std::size_t FLOOD = 10'000;
  constexpr std::size_t PORTION = 50;
  receivedLines = 0;
  Load();
  auto driver = DriverLink::TryOpen();
  ASSERT_TRUE(driver.has_value());
  driver->Reset();
  for (std::size_t sent = 0; sent < FLOOD; sent += PORTION) driver->Submit(Reads(PORTION));
  ASSERT_TRUE(WaitUntilAcknowledged(*driver, FLOOD));
  const OstrelLabStatus status = driver->Status();
  EXPECT_EQ(status.delivered, FLOOD);
  EXPECT_EQ(status.acknowledged, FLOOD);
  EXPECT_EQ(status.badAcknowledgements, 0U);
  EXPECT_EQ(status.doubleAcknowledgements, 0U);
  EXPECT_EQ(UnloadDriver(), 1);
  // The last message is acknowledged before it is handled, and unloading waits for the loop to take the
  // notice after it.
  EXPECT_EQ(receivedLines, static_cast<int>(FLOOD));
}

TEST(LibraryOnLab, LoadingAndUnloadingInALoopLeavesOneStopEventOpenPerCycle) {
  constexpr std::size_t CYCLES = 20;
  constexpr std::size_t EVENTS = 20;
  for (int warmUp = 0; warmUp < 3; ++warmUp) ASSERT_NO_FATAL_FAILURE(Cycle(EVENTS));
  HandleCounts expected = OpenHandles();
  for (std::size_t cycle = 0; cycle < CYCLES; ++cycle) ASSERT_NO_FATAL_FAILURE(Cycle(EVENTS));
  // Each start of the disk event thread makes a stop event that stays open. The notification thread may still
  // be on its way out of the last cycle.
  expected[L"Event"] += CYCLES;
  const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
  while (!AreAsExpected(OpenHandles(), expected) && std::chrono::steady_clock::now() < deadline) Sleep(10);
  EXPECT_TRUE(AreAsExpected(OpenHandles(), expected))
      << ::testing::PrintToString(OpenHandles()) << " instead of " << ::testing::PrintToString(expected);
}

TEST(LibraryOnLab, UnloadingDuringAFloodEndsInTimeWithoutAnError) {
  errorLines = 0;
  for (int round = 0; round < 5; ++round) {
    Load();
    auto driver = DriverLink::TryOpen();
    ASSERT_TRUE(driver.has_value());
    for (int portion = 0; portion < 20; ++portion) driver->Submit(Reads(50));
    EXPECT_EQ(UnloadDriver(), 1);
  }
  EXPECT_EQ(errorLines, 0);
}

// Reads back what the library has configured, as fast as it can, until the driver is gone.
DWORD WINAPI ReadConfigurations(void* driver) {
  try {
    for (;;) static_cast<DriverLink*>(driver)->Configurations();
  } catch (const lab::LabError&) {
    return 0;
  }
}

TEST(LibraryOnLab, TheDriverGoesWhileItsConfigurationIsBeingRead) {
  for (int round = 0; round < 10; ++round) {
    ASSERT_NO_FATAL_FAILURE(Load());
    auto driver = DriverLink::TryOpen();
    ASSERT_TRUE(driver.has_value());
    const UniqueKernelHandle reader(CreateThread(nullptr, 0, ReadConfigurations, &*driver, 0, nullptr));
    ASSERT_TRUE(reader);
    Sleep(20);
    EXPECT_EQ(UnloadDriver(), 1);
    ASSERT_EQ(WaitForSingleObject(reader.Get(), static_cast<DWORD>(PATIENCE.count())), WAIT_OBJECT_0);
  }
}

}  // namespace

}  // namespace ostrel::test
