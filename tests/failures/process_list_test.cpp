#include "network_test.h"

namespace ostrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string OPEN = "FilterConnectCommunicationPort(\\FB6CBA80-7A14-42C2-8697-0D4F43B3405F, 0, 0 bytes)";
const std::string SEND = "FilterSendMessage(control port, 138176 bytes, no reply 0)";
const std::string CLOSE = "CloseHandle(control port)";

class ForwardingTheProcessList : public NetworkTest {
 protected:
  void SwitchOn() {
    ASSERT_NO_FATAL_FAILURE(TakeTheLogOnly());
    EnableRemote();
    lists_ = network_.ProcessLists().size();
    Forget();
  }

  // From opening the control port on.
  Lines Sending() const {
    const Lines calls = Calls();
    return Lines(std::find(calls.begin(), calls.end(), OPEN), calls.end());
  }

  std::size_t Forwarded() const { return network_.ProcessLists().size() - lists_; }
  void ExpectLastIsTheMinifilters() const {
    EXPECT_EQ(network_.ProcessLists().back(), system_.SentMessages().back());
  }

  std::size_t lists_ = 0;
};

TEST_F(ForwardingTheProcessList, GivesTheNetworkDriverTheMinifiltersMessageWhileThePortIsOpen) {
  ASSERT_NO_FATAL_FAILURE(SwitchOn());
  library_.UpdateProcesses(names_, 2, 5);
  EXPECT_THAT(Sending(),
              ElementsAre(OPEN, SEND, SEND_LIST,
                          "log 6 Sent proc names to nw filter. Existing proc count: 1 ProcName Count: 2",
                          CLOSE, "log 6 Successfully updated processes to monitor."));
  ASSERT_EQ(Forwarded(), 1U);
  ExpectLastIsTheMinifilters();
  EXPECT_EQ(network_.ProcessLists().back().at(138172), 5);
}

TEST_F(ForwardingTheProcessList, TellsWithTheCountsOfTheMessage) {
  ASSERT_NO_FATAL_FAILURE(SwitchOn());
  for (std::uint32_t id = 100; id < 700; ++id)
    system_.processes.push_back({id, L"firefox.exe", L"firefox.exe"});
  std::vector<const wchar_t*> names(70, L"firefox.exe");
  library_.UpdateProcesses(names.data(), 70, 0);
  EXPECT_THAT(system_.transcript.StartingWith("log 6 Sent"),
              ElementsAre("log 6 Sent proc names to nw filter. Existing proc count: 512 ProcName Count: 64"));
}

TEST_F(ForwardingTheProcessList, HappensForActivityDetectionSwitchedOnAndOff) {
  ASSERT_NO_FATAL_FAILURE(SwitchOn());
  ASSERT_TRUE(EnableActivity(false));
  ASSERT_EQ(Forwarded(), 1U);
  ExpectLastIsTheMinifilters();
  EXPECT_EQ(network_.ProcessLists().back().at(138173), 1);
  ASSERT_EQ(library_.DisableActivityDetection(), 1);
  ASSERT_EQ(Forwarded(), 2U);
  ExpectLastIsTheMinifilters();
  EXPECT_EQ(network_.ProcessLists().back().at(138173), 0);
}

TEST_F(ForwardingTheProcessList, DoesNotHappenForCloudDetection) {
  ASSERT_NO_FATAL_FAILURE(SwitchOn());
  ASSERT_EQ(library_.EnablePCDDetection(nullptr, names_, 2, nullptr, 0, nullptr, 0), 1);
  EXPECT_THAT(Sending(), ElementsAre(OPEN, SEND, CLOSE));
  ASSERT_EQ(library_.DisablePCDDetection(), 1);
  EXPECT_EQ(Forwarded(), 0U);
}

TEST_F(ForwardingTheProcessList, DoesNotHappenWhileRemoteAddressInfoIsOff) {
  ASSERT_NO_FATAL_FAILURE(SwitchOn());
  library_.DisableRemoteAddressInfo();
  Forget();
  ASSERT_TRUE(EnableActivity(false));
  library_.UpdateProcesses(names_, 2, 0);
  ASSERT_EQ(library_.DisableActivityDetection(), 1);
  EXPECT_EQ(Forwarded(), 0U);
  EXPECT_THAT(system_.transcript.StartingWith("DeviceIoControl"), IsEmpty());
}

TEST_F(ForwardingTheProcessList, DoesNotHappenWhenTheMinifiltersPortCannotBeOpened) {
  ASSERT_NO_FATAL_FAILURE(SwitchOn());
  system_.Fail("FilterConnectCommunicationPort", 0x80070002);
  library_.UpdateProcesses(names_, 2, 0);
  FailureLedger::OfThisProgram().SetTheStage();
  EXPECT_EQ(Forwarded(), 0U);
}

TEST_F(ForwardingTheProcessList, HappensAlthoughTheMinifilterRefusesTheMessage) {
  ASSERT_NO_FATAL_FAILURE(SwitchOn());
  system_.Fail("FilterSendMessage", 0x80070057);
  EXPECT_TRUE(EnableActivity(false));
  EXPECT_THAT(
      Sending(),
      ElementsAre(OPEN, SEND, "log 3 Error getting message while updating kernel filter: HResult: 80070057",
                  SEND_LIST, "log 6 Sent proc names to nw filter. Existing proc count: 1 ProcName Count: 2",
                  CLOSE));
}

TEST_F(ForwardingTheProcessList, ThatTheNetworkDriverRefusesChangesNoResult) {
  ASSERT_NO_FATAL_FAILURE(SwitchOn());
  system_.Fail(SEND_LIST, 1117);
  EXPECT_TRUE(EnableActivity(false));
  EXPECT_THAT(Sending(), ElementsAre(OPEN, SEND, SEND_LIST,
                                     "log 6 Failed to send proc names to nw filter: 1117", CLOSE));
  EXPECT_EQ(Returned("DisableActivityDetection", library_.DisableActivityDetection()), 1);
}

}  // namespace

}  // namespace ostrel::test
