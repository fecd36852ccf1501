#include "held_callback.h"
#include "library_test.h"

namespace ostrel::test {

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;

const Lines STOP_CALLS = {"SetEvent(event)", "WaitForSingleObject(thread, 3000)",
                          "log 7 Disk Event thread ended", "CloseHandle(thread)"};
const std::string CLOSE_PORT = "CloseHandle(notification port)";
const std::string CLOSED = "log 6 Closed driver handle successfully";

class UnloadingTheDriver : public LibraryTest {
 protected:
  UnloadingTheDriver() { system_.waitDivisor = 50; }

  void LoadAndForget() {
    ASSERT_TRUE(Load());
    ASSERT_TRUE(system_.WaitUntilHandled());
    Forget();
  }

  DWORD LoopThread() const { return system_.ThreadIds().at(0); }
};

TEST_F(UnloadingTheDriver, TakesEveryStepInOrder) {
  LoadAndForget();
  EXPECT_TRUE(Unload());
  EXPECT_THAT(Calls(),
              PrivilegeCalls() + Lines({"FilterUnload(OstrelFilter)", CLOSE_PORT, CLOSED}) + STOP_CALLS);
  EXPECT_THAT(system_.OpenHandles(), ElementsAre("event"));
}

TEST_F(UnloadingTheDriver, EndsTheNotificationLoopThroughTheClosedPort) {
  LoadAndForget();
  EXPECT_TRUE(Unload());
  ASSERT_TRUE(system_.WaitForThreadEnd(0));
  EXPECT_THAT(system_.transcript.Of(LoopThread()),
              ElementsAre("log 3 Error getting message while receiving notifications: HResult: 80070006",
                          "CloseHandle(null)"));
}

TEST_F(UnloadingTheDriver, EndsANotificationLoopThatGetsNothingButFailures) {
  LoadAndForget();
  constexpr int FAILURES = 20'000;
  for (int i = 0; i < FAILURES; ++i) system_.FailReceive(static_cast<HRESULT>(0x8007001F));
  EXPECT_EQ(library_.UnloadDriver(), 1);
  EXPECT_TRUE(system_.WaitForThreadEnd(0));
  CameTo("The notification loop: ends once the port is closed");
}

TEST_F(UnloadingTheDriver, ThatWasNeverLoadedSucceeds) {
  FailureLedger::OfThisProgram().FailedOtherwise("The library", "is not loaded");
  EXPECT_TRUE(Unload());
  EXPECT_THAT(Calls(), ::testing::IsEmpty());
}

TEST_F(UnloadingTheDriver, TwiceSaysSoAndSucceeds) {
  LoadAndForget();
  ASSERT_TRUE(Unload());
  Forget();
  FailureLedger::OfThisProgram().FailedOtherwise("The library", "is unloaded already");
  EXPECT_TRUE(Unload());
  EXPECT_THAT(Calls(), ElementsAre("log 6 Ostrel filtering library already unloaded."));
}

// Unlike in installing, a minifilter that is not there is a failure too.
TEST_F(UnloadingTheDriver, FailsWhenTheMinifilterIsNotLoaded) {
  LoadAndForget();
  system_.Fail("FilterUnload", 0x801F0013);
  EXPECT_FALSE(Unload());
  EXPECT_THAT(Calls(), PrivilegeCalls() +
                           Lines({"FilterUnload(OstrelFilter)", "log 3 Could not unload driver. 801f0013",
                                  CLOSE_PORT, CLOSED}) +
                           STOP_CALLS);
}

TEST_F(UnloadingTheDriver, SkipsMinifilterAndPortWithoutTheRightToOpenItsToken) {
  LoadAndForget();
  system_.Fail("OpenProcessToken", 5);
  EXPECT_FALSE(Unload());
  EXPECT_THAT(Calls(),
              Lines({"OpenProcessToken(current process, 0x28)", "log 3 Could not open current process. 5",
                     "log 3 Could not enable privilege"}) +
                  STOP_CALLS);
}

// Its thread is then held, as one that does not end in time.
TEST_F(UnloadingTheDriver, SucceedsAlthoughTheDiskEventThreadCannotBeWaitedFor) {
  LoadAndForget();
  system_.Fail("WaitForSingleObject(thread, 3000)", 6);
  EXPECT_TRUE(Unload());
  EXPECT_EQ(Logs().back(), "log 3 Disk Event thread never ended.");
  EXPECT_THAT(system_.OpenHandles(), ElementsAre("event", "thread"));
}

TEST_F(UnloadingTheDriver, GivesUpOnADiskEventThreadThatCannotBeToldToEnd) {
  LoadAndForget();
  system_.Fail("SetEvent", 6);
  EXPECT_TRUE(Unload());
  EXPECT_EQ(Logs().back(), "log 3 Disk Event thread never ended.");
  system_.Succeed("SetEvent");
}

TEST_F(UnloadingTheDriver, ClosesThePortAlthoughTheMinifilterCannotBeUnloaded) {
  LoadAndForget();
  system_.Fail("FilterUnload", 0x801F0010);
  EXPECT_FALSE(Unload());
  EXPECT_THAT(Calls(), PrivilegeCalls() +
                           Lines({"FilterUnload(OstrelFilter)", "log 3 Could not unload driver. 801f0010",
                                  CLOSE_PORT, CLOSED}) +
                           STOP_CALLS);
}

TEST_F(UnloadingTheDriver, SkipsMinifilterAndPortWithoutThePrivilege) {
  LoadAndForget();
  system_.Fail("AdjustTokenPrivileges", 5);
  EXPECT_FALSE(Unload());
  EXPECT_THAT(
      Calls(),
      Lines({"OpenProcessToken(current process, 0x28)", "LookupPrivilegeValueW(null, SeLoadDriverPrivilege)",
             "AdjustTokenPrivileges(token, disable all 0, count 1, privilege 10, attributes 2)",
             "log 3 Could not adjust token privilege. 5", "CloseHandle(token)",
             "log 3 Could not enable privilege"}) +
          STOP_CALLS);
  EXPECT_THAT(system_.OpenHandles(), ElementsAre("event", "notification port"));
  Forget();
  EXPECT_TRUE(Unload());
  EXPECT_THAT(Calls(), ElementsAre("log 6 Ostrel filtering library already unloaded."));
}

TEST_F(UnloadingTheDriver, SucceedsAlthoughThePortCannotBeClosed) {
  LoadAndForget();
  system_.Fail(CLOSE_PORT, 6);
  EXPECT_TRUE(Unload());
  EXPECT_THAT(Calls(), PrivilegeCalls() +
                           Lines({"FilterUnload(OstrelFilter)", CLOSE_PORT,
                                  "log 6 Failed to close driver handle: 6"}) +
                           STOP_CALLS);
}

// The driver went by itself: the port is neither unloaded nor closed again.
TEST_F(UnloadingTheDriver, LeavesAPortAloneThatIsNoLongerConnected) {
  LoadAndForget();
  EventMessage notice{};
  notice.messageId = 5;
  notice.unloadNotice = 1;
  system_.Send(notice);
  ASSERT_TRUE(system_.WaitForThreadEnd(0));
  Forget();
  EXPECT_TRUE(Unload());
  EXPECT_THAT(Calls(), STOP_CALLS);
}

TEST_F(UnloadingTheDriver, SaysThatThereIsNoDiskEventThread) {
  system_.Fail("CreateThread", 8, 2);
  LoadAndForget();
  FailureLedger::OfThisProgram().SetTheStage();
  FailureLedger::OfThisProgram().Concerns("SetEvent");
  EXPECT_TRUE(Unload());
  EXPECT_THAT(Calls(),
              PrivilegeCalls() + Lines({"FilterUnload(OstrelFilter)", CLOSE_PORT, CLOSED, "SetEvent(null)",
                                        "log 3 Disk Event thread is null, and can't be ended."}));
}

// Starting and stopping leave nothing behind but the stop events, which are never closed.
TEST_F(UnloadingTheDriver, ReleasesEverythingEveryTime) {
  for (std::size_t round = 1; round <= 5; ++round) {
    ASSERT_TRUE(Load());
    ASSERT_TRUE(system_.WaitUntilHandled());
    ASSERT_TRUE(Unload());
    ASSERT_TRUE(system_.WaitForThreadEnd(2 * round - 2));
    EXPECT_THAT(system_.OpenHandles(), Lines(round, "event"));
  }
}

// In real time.
TEST_F(UnloadingTheDriver, GivesUpOnABlockedCallbackAfterThreeSecondsAndTheNextLoadKeepsTheThread) {
  FailureLedger::OfThisProgram().Concerns("WaitForSingleObject");
  HeldCallback held;
  system_.waitDivisor = 1;
  LoadAndForget();
  const wchar_t* cloud[] = {L"chrome.exe"};
  ASSERT_EQ(library_.EnablePCDDetection(&HeldCallback::OnCloud, cloud, 1, nullptr, 0, nullptr, 0), 1);
  ASSERT_TRUE(HeldCallback::Hold(system_));
  Forget();
  const ULONGLONG start = GetTickCount64();
  EXPECT_TRUE(Unload());
  EXPECT_GE(GetTickCount64() - start, 2900U);
  EXPECT_THAT(Calls(), PrivilegeCalls() + Lines({"FilterUnload(OstrelFilter)", CLOSE_PORT, CLOSED,
                                                 "SetEvent(event)", "WaitForSingleObject(thread, 3000)",
                                                 "log 3 Disk Event thread never ended."}));
  Forget();
  EXPECT_TRUE(Load());
  EXPECT_THAT(Logs(), Contains("log 3 Disk Event thread already started!"));
  EXPECT_EQ(Logs().back(), "log 6 LoadDriver was successful.");
  HeldCallback::LetGo();
  ASSERT_TRUE(system_.WaitForThreadEnd(1));
  Forget();
  EXPECT_TRUE(Unload());
  EXPECT_THAT(Logs(), Contains("log 7 Disk Event thread ended"));
}

}  // namespace

}  // namespace ostrel::test
