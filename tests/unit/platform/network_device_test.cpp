#include "network/network_device.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "platform_test.h"
#include "support/scripted_network.h"

namespace ostrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string OPEN =
    "CreateFileW(\\\\.\\OstrelNWFilter, 0xc0000000, share 3, null, disposition 3, 0x40000000, null)";
const std::string ENABLE =
    "DeviceIoControl(device, 0x120004, 01 00 00 00 00 00 00 00, null of 0, returned, synchronous)";
const std::string SEND = "DeviceIoControl(device, 0x222008, 138176 bytes, null of 0, returned, synchronous)";

class TheNetworkDevice : public PlatformTest {
 protected:
  std::uint32_t Open() { return Returned("Opening the device", device_.Open()); }
  std::uint32_t EnableMonitoring() { return Returned("Enabling monitoring", device_.EnableMonitoring()); }
  void OpenAndForget() {
    ASSERT_EQ(Open(), 0U);
    system_.transcript.Clear();
  }

  ScriptedNetwork network_{GetModuleHandleW(nullptr), system_};
  NetworkDevice device_;
};

TEST_F(TheNetworkDevice, IsOpenedForOverlappedRequestsAndClosed) {
  EXPECT_EQ(Open(), 0U);
  EXPECT_THAT(system_.OpenHandles(), ElementsAre("device"));
  device_.Close();
  EXPECT_THAT(Calls(), ElementsAre(OPEN, "CloseHandle(device)", "log 7 Closed handle to NW driver."));
  EXPECT_THAT(system_.OpenHandles(), IsEmpty());
}

TEST_F(TheNetworkDevice, SaysWhyItCannotBeOpened) {
  system_.Fail("CreateFileW", 2);
  EXPECT_EQ(Open(), 2U);
  EXPECT_THAT(Calls(), ElementsAre(OPEN, "log 3 Could not open monitoring. 2"));
}

TEST_F(TheNetworkDevice, CountsAsOpenedWhenFailingLeavesNoCode) {
  system_.Fail("CreateFileW", 0);
  EXPECT_EQ(Open(), 0U);
  EXPECT_THAT(Calls(), ElementsAre(OPEN));
  EXPECT_EQ(device_.Get(), INVALID_HANDLE_VALUE);
}

TEST_F(TheNetworkDevice, IsToldToMonitor) {
  OpenAndForget();
  EXPECT_EQ(EnableMonitoring(), 0U);
  EXPECT_THAT(Calls(), ElementsAre(ENABLE, "log 6 Ostrel NW monitoring enabled."));
}

TEST_F(TheNetworkDevice, SaysWhyItDoesNotMonitor) {
  OpenAndForget();
  system_.Fail("DeviceIoControl", 31);
  EXPECT_EQ(EnableMonitoring(), 31U);
  EXPECT_THAT(Calls(), ElementsAre(ENABLE, "log 3 Could not enable monitoring. 31"));
}

TEST_F(TheNetworkDevice, CountsAsMonitoringWhenFailingLeavesNoCode) {
  OpenAndForget();
  system_.Fail("DeviceIoControl", 0);
  EXPECT_EQ(EnableMonitoring(), 0U);
  EXPECT_THAT(Calls(), ElementsAre(ENABLE, "log 6 Ostrel NW monitoring enabled."));
}

TEST_F(TheNetworkDevice, CannotMonitorWithoutAHandle) {
  FailureLedger::OfThisProgram().FailedOtherwise("Handle of the network driver's device", "null");
  EXPECT_EQ(EnableMonitoring(), 87U);
  EXPECT_THAT(Calls(), ElementsAre("log 3 Could not enable monitoring. 87"));
}

TEST_F(TheNetworkDevice, IsSentTheMessageByteForByte) {
  OpenAndForget();
  const auto message = std::make_unique<DetectionMessage>();
  std::uint32_t next = 12345;
  auto* const bytes = reinterpret_cast<std::uint8_t*>(message.get());
  std::generate_n(bytes, sizeof(*message), [&next] {
    next = next * 1664525 + 1013904223;
    return static_cast<std::uint8_t>(next >> 24);
  });
  const std::uint32_t ids = 7;
  const std::uint32_t names = 64;
  std::memcpy(bytes + 138152, &ids, sizeof(ids));
  std::memcpy(bytes + 138156, &names, sizeof(names));
  device_.SendProcessList(*message);
  EXPECT_THAT(
      Calls(),
      ElementsAre(SEND, "log 6 Sent proc names to nw filter. Existing proc count: 7 ProcName Count: 64"));
  EXPECT_THAT(network_.ProcessLists(),
              ElementsAre(std::vector<std::uint8_t>(bytes, bytes + sizeof(*message))));
}

TEST_F(TheNetworkDevice, SaysAsNotableThatTheMessageWasRefused) {
  OpenAndForget();
  system_.Fail("DeviceIoControl", 1117);
  device_.SendProcessList(*std::make_unique<DetectionMessage>());
  CameTo("Sending the process list: gives nothing back");
  EXPECT_THAT(Calls(), ElementsAre(SEND, "log 6 Failed to send proc names to nw filter: 1117"));
}

TEST_F(TheNetworkDevice, SaysWhyItCannotBeClosed) {
  OpenAndForget();
  system_.Fail("CloseHandle(device)", 6);
  device_.Close();
  CameTo("Closing the device: counts as closed");
  EXPECT_THAT(Calls(),
              ElementsAre("CloseHandle(device)", "log 3 Could not close handle to NW driver. Code: 6"));
}

TEST_F(TheNetworkDevice, SaysAsNotableThatAClosedOneIsSentNothing) {
  FailureLedger::OfThisProgram().Concerns("DeviceIoControl");
  OpenAndForget();
  device_.Close();
  system_.transcript.Clear();
  device_.SendProcessList(*std::make_unique<DetectionMessage>());
  CameTo("Sending the process list: gives nothing back");
  EXPECT_THAT(Logs(), ElementsAre("log 6 Failed to send proc names to nw filter: 6"));
}

// The number of the closed handle may be somebody else's by now.
TEST_F(TheNetworkDevice, IsClosedASecondTimeWithoutTouchingAnything) {
  OpenAndForget();
  device_.Close();
  system_.transcript.Clear();
  FailureLedger::OfThisProgram().Concerns("CloseHandle");
  device_.Close();
  CameTo("Closing the device: counts as closed");
  EXPECT_THAT(Calls(),
              ElementsAre("CloseHandle(null)", "log 3 Could not close handle to NW driver. Code: 6"));
}

}  // namespace

}  // namespace ostrel::test
