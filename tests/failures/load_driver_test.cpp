#include "library_test.h"

namespace ostrel::test {

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

const Lines OWN_DIRECTORY = {"GetModuleFileNameW(own module, 512)",
                             "PathRemoveFileSpecW(<library>\\OstrelFilterLib.dll)"};

Lines InstallCalls(const std::string& name) {
  return Lines({"log 6 Installing and setting up service: " + name + ".sys"}) + PrivilegeCalls() +
         Lines({"FilterUnload(OstrelFilter)"}) + OWN_DIRECTORY +
         Lines({"GetSystemDirectoryW(512)", "SetupOpenInfFileW(<library>\\" + name + ".inf, null, 2)",
                "PathFileExistsW(S:\\system\\drivers\\" + name + ".sys)",
                "SetupInstallFileW(inf, null, " + name + ".sys, <library>, S:\\system\\drivers\\" + name +
                    ".sys, 0x4, null)",
                "SetupInstallServicesFromInfSectionW(inf, DefaultInstall.Services, 0)",
                "log 6 Setup service successfully.", "SetupCloseInfFile(inf)"});
}

Lines StopServiceCalls() {
  return {"OpenSCManagerW(null, null, 0xf003f)",
          "OpenServiceW(manager, OstrelNWFilter, 0xf01ff)",
          "QueryServiceStatusEx(service, 0, 36)",
          "ControlService(service, 1)",
          "CloseServiceHandle(service)",
          "CloseServiceHandle(manager)",
          "log 6 Stopped nw filter driver successfully."};
}

const std::string CONNECT =
    "FilterConnectCommunicationPort(\\6E6F3D7A-21A2-4B5F-ABD3-5DCED10CD793, 0, 8 bytes own id 7)";
const std::string CLOSE_PORT = "CloseHandle(notification port)";
const std::string MAKE_THREAD = "CreateThread(null, stack 0, flags 0)";

Lines ConnectedCalls() {
  return InstallCalls("OstrelFilter") + StopServiceCalls() + InstallCalls("OstrelNWFilter") +
         PrivilegeCalls() + Lines({"FilterLoad(OstrelFilter)", CONNECT});
}

class LoadingTheDriver : public LibraryTest {
 protected:
  LoadingTheDriver() { system_.waitDivisor = 50; }

  void SendUnloadNotice() {
    EventMessage notice{};
    notice.unloadNotice = 1;
    system_.Send(notice);
  }
};

TEST_F(LoadingTheDriver, TakesEveryStepInOrder) {
  EXPECT_TRUE(Load());
  EXPECT_THAT(Calls(), ConnectedCalls() + Lines({MAKE_THREAD, "CloseHandle(thread)",
                                                 "CreateEventW(manual reset, not set, null)", MAKE_THREAD,
                                                 "WSAStartup(0x202)", "log 6 LoadDriver was successful."}));
  EXPECT_THAT(system_.OpenHandles(), ElementsAre("event", "notification port", "thread"));
}

TEST_F(LoadingTheDriver, StartsTheNotificationLoopOnAThreadOfItsOwn) {
  ASSERT_TRUE(Load());
  ASSERT_TRUE(system_.WaitUntilHandled());
  EXPECT_THAT(system_.transcript.Of(system_.ThreadIds().at(0)),
              ElementsAre("log 6 Notification procedure started.",
                          "FilterGetMessage(notification port, 1080, synchronous)"));
}

TEST_F(LoadingTheDriver, ASecondTimeInstallsNothingAndSucceeds) {
  ASSERT_TRUE(Load());
  Forget();
  FailureLedger::OfThisProgram().FailedOtherwise("The library", "is loaded already");
  EXPECT_TRUE(Load());
  EXPECT_THAT(Calls(), ElementsAre("log 6 Ostrel filtering library already started."));
}

// The callback and level of the first call stay.
TEST_F(LoadingTheDriver, ASecondTimeDoesNotChangeTheLog) {
  ASSERT_TRUE(Load());
  Forget();
  EXPECT_EQ(library_.LoadDriver(nullptr, 0), 1);
  EXPECT_THAT(Calls(), ElementsAre("log 6 Ostrel filtering library already started."));
}

TEST_F(LoadingTheDriver, LogsNothingAtLevelZero) {
  system_.Fail("FilterLoad", 0x80070002);
  EXPECT_FALSE(Load(0));
  FailureLedger::OfThisProgram().SetTheStage();
  EXPECT_THAT(Logs(), IsEmpty());
}

TEST_F(LoadingTheDriver, LogsErrorsOnlyAtLevelThree) {
  system_.Fail("FilterLoad", 0x80070002);
  EXPECT_FALSE(Load(3));
  EXPECT_THAT(Logs(), ElementsAre("log 3 Could not start driver service: HResult: 80070002"));
}

TEST_F(LoadingTheDriver, WorksWithoutALogCallback) {
  EXPECT_EQ(library_.LoadDriver(nullptr, 7), 1);
  EXPECT_THAT(Logs(), IsEmpty());
}

TEST_F(LoadingTheDriver, StopsWhenTheMinifilterCannotBeInstalled) {
  system_.Fail("SetupInstallFileW", 2, 1);
  EXPECT_FALSE(Load());
  Lines expected = InstallCalls("OstrelFilter");
  expected.insert(expected.end() - 3, "log 3 Could not copy driver file. 2");
  EXPECT_THAT(Calls(), expected + Lines({"log 3 Could not install OstrelFilter driver"}));
  EXPECT_THAT(system_.OpenHandles(), IsEmpty());
}

TEST_F(LoadingTheDriver, StopsWhenThePrivilegeToInstallIsMissing) {
  system_.Fail("OpenProcessToken", 5);
  EXPECT_FALSE(Load());
  EXPECT_THAT(
      Calls(),
      ElementsAre("log 6 Installing and setting up service: OstrelFilter.sys",
                  "OpenProcessToken(current process, 0x28)", "log 3 Could not open current process. 5",
                  "log 3 Could not enable privilege", "log 3 Could not install OstrelFilter driver"));
}

// Keeps the library from staying in the process.
class RefusedStay {
 public:
  explicit RefusedStay(HMODULE library)
      : patch_(library, "GetModuleHandleExW", reinterpret_cast<void*>(&Refuse)) {
    refusals_ = 0;
  }

  static int Refusals() { return refusals_; }

 private:
  static BOOL WINAPI Refuse(DWORD, const wchar_t*, HMODULE*) {
    ++refusals_;
    FailureLedger::OfThisProgram().Failed("GetModuleHandleExW", ERROR_MOD_NOT_FOUND);
    SetLastError(ERROR_MOD_NOT_FOUND);
    return FALSE;
  }

  static inline int refusals_ = 0;
  ImportPatch patch_;
};

TEST_F(LoadingTheDriver, SucceedsAlthoughTheLibraryCannotBeKeptInTheProcess) {
  FailureLedger::OfThisProgram().Chosen(
      "GetModuleHandleExW",
      "loading goes on, and from then on the library leaves with the last FreeLibrary, as any other does");
  const RefusedStay stay(library_.Module());
  EXPECT_TRUE(Load());
  EXPECT_EQ(RefusedStay::Refusals(), 1);
  EXPECT_THAT(system_.transcript.StartingWith("log 3"), IsEmpty());
  EXPECT_EQ(Logs().back(), "log 6 LoadDriver was successful.");
  EXPECT_THAT(system_.OpenHandles(), ElementsAre("event", "notification port", "thread"));
}

TEST_F(LoadingTheDriver, StopsWhenTheNetworkDriverCannotBeInstalled) {
  system_.Fail("SetupOpenInfFileW", 2, 2);
  system_.infErrorLine = 3;
  EXPECT_FALSE(Load());
  EXPECT_THAT(Calls(), InstallCalls("OstrelFilter") + StopServiceCalls() +
                           Lines({"log 6 Installing and setting up service: OstrelNWFilter.sys"}) +
                           PrivilegeCalls() + Lines({"FilterUnload(OstrelFilter)"}) + OWN_DIRECTORY +
                           Lines({"GetSystemDirectoryW(512)",
                                  "SetupOpenInfFileW(<library>\\OstrelNWFilter.inf, null, 2)",
                                  "log 3 Could not open INF file. Error on line 3",
                                  "log 3 Could not install OstrelNWFilter driver"}));
  EXPECT_THAT(system_.OpenHandles(), IsEmpty());
}

TEST_F(LoadingTheDriver, GoesOnWhenTheNetworkDriversServiceCannotBeStopped) {
  system_.Fail("OpenSCManagerW", 5);
  EXPECT_TRUE(Load());
  EXPECT_THAT(system_.transcript.StartingWith("log 3"), ElementsAre("log 3 OpenSCManager failed (5)."));
  EXPECT_EQ(Logs().back(), "log 6 LoadDriver was successful.");
}

TEST_F(LoadingTheDriver, StopsWithoutThePrivilege) {
  system_.Fail("LookupPrivilegeValueW", 1313, 3);
  EXPECT_FALSE(Load());
  EXPECT_THAT(Calls(), InstallCalls("OstrelFilter") + StopServiceCalls() + InstallCalls("OstrelNWFilter") +
                           Lines({"OpenProcessToken(current process, 0x28)",
                                  "LookupPrivilegeValueW(null, SeLoadDriverPrivilege)",
                                  "log 3 Could not look up privilege. 1313", "CloseHandle(token)",
                                  "log 3 Could not enable SE_LOAD_DRIVER_NAME privilege"}));
  EXPECT_THAT(system_.OpenHandles(), IsEmpty());
}

TEST_F(LoadingTheDriver, AcceptsAMinifilterThatRunsAlready) {
  system_.Fail("FilterLoad", 0x80070420);
  EXPECT_TRUE(Load());
  EXPECT_EQ(Logs().back(), "log 6 LoadDriver was successful.");
}

TEST_F(LoadingTheDriver, StopsWhenTheMinifilterCannotBeLoaded) {
  system_.Fail("FilterLoad", 0x80070002);
  EXPECT_FALSE(Load());
  EXPECT_EQ(Calls().back(), "log 3 Could not start driver service: HResult: 80070002");
  EXPECT_THAT(Calls(), Not(Contains(CONNECT)));
  EXPECT_THAT(system_.OpenHandles(), IsEmpty());
}

TEST_F(LoadingTheDriver, StopsWhenThePortRefuses) {
  system_.Fail("FilterConnectCommunicationPort", 0x80070005);
  EXPECT_FALSE(Load());
  EXPECT_THAT(
      Calls(),
      ConnectedCalls() + Lines({"log 3 Could not connect to driver communication port: HResult: 80070005"}));
  EXPECT_THAT(system_.OpenHandles(), IsEmpty());
  EXPECT_THAT(system_.ThreadIds(), IsEmpty());
}

// The port stays open, and nothing else is started.
TEST_F(LoadingTheDriver, StopsWithThePortOpenWhenThereIsNoNotificationThread) {
  system_.Fail("CreateThread", 8, 1);
  EXPECT_FALSE(Load());
  EXPECT_THAT(
      Calls(),
      ConnectedCalls() + Lines({MAKE_THREAD, "log 3 Could not start receive notification thread. Code: 8"}));
  EXPECT_THAT(system_.OpenHandles(), ElementsAre("notification port"));
  Forget();
  // Not started, so there is nothing to unload.
  EXPECT_TRUE(Unload());
  EXPECT_THAT(Calls(), ElementsAre("log 6 Ostrel filtering library already unloaded."));
  EXPECT_THAT(system_.OpenHandles(), ElementsAre("notification port"));
}

TEST_F(LoadingTheDriver, SucceedsWithoutTheDiskEventThread) {
  system_.Fail("CreateThread", 8, 2);
  EXPECT_TRUE(Load());
  EXPECT_THAT(Logs(), Contains("log 3 Could not start Disk Event thread. Code: 8"));
  EXPECT_EQ(Logs().back(), "log 6 LoadDriver was successful.");
  EXPECT_THAT(system_.OpenHandles(), ElementsAre("notification port"));
}

TEST_F(LoadingTheDriver, CanBeTriedAgainAfterAFailure) {
  system_.Fail("FilterLoad", 0x80070002);
  ASSERT_FALSE(Load());
  FailureLedger::OfThisProgram().SetTheStage();
  system_.Succeed("FilterLoad");
  Forget();
  EXPECT_TRUE(Load());
  EXPECT_THAT(Calls(), Contains("FilterLoad(OstrelFilter)"));
  EXPECT_EQ(Calls().back(), "log 6 LoadDriver was successful.");
}

TEST_F(LoadingTheDriver, AgainAfterUnloadingStartsEverythingAgain) {
  ASSERT_TRUE(Load());
  ASSERT_TRUE(system_.WaitUntilHandled());
  ASSERT_TRUE(Unload());
  ASSERT_TRUE(system_.WaitForThreadEnd(0));
  Forget();
  EXPECT_TRUE(Load());
  EXPECT_EQ(Calls().back(), "log 6 LoadDriver was successful.");
  ASSERT_TRUE(system_.WaitUntilHandled());
  EXPECT_THAT(system_.OpenHandles(), ElementsAre("event", "event", "notification port", "thread"));
}

// Each of the next three leaves a port behind that nobody has closed.

TEST_F(LoadingTheDriver, AgainAfterTheDriverLeftByItselfLeaksNothing) {
  ASSERT_TRUE(Load());
  SendUnloadNotice();
  ASSERT_TRUE(system_.WaitForThreadEnd(0));
  ASSERT_TRUE(Unload());
  EXPECT_THAT(system_.OpenHandles(), ElementsAre("event", "notification port"));
  ASSERT_TRUE(Load());
  // Only the stop event of the first load remains, as after every load.
  EXPECT_THAT(system_.OpenHandles(), ElementsAre("event", "event", "notification port", "thread"));
  EXPECT_THAT(system_.transcript.StartingWith(CLOSE_PORT), SizeIs(1));
}

TEST_F(LoadingTheDriver, AgainAfterThereWasNoNotificationThreadLeaksNothing) {
  system_.Fail("CreateThread", 8, 1);
  ASSERT_FALSE(Load());
  FailureLedger::OfThisProgram().SetTheStage();
  ASSERT_THAT(system_.OpenHandles(), ElementsAre("notification port"));
  ASSERT_TRUE(Load());
  EXPECT_THAT(system_.OpenHandles(), ElementsAre("event", "notification port", "thread"));
  EXPECT_THAT(system_.transcript.StartingWith(CLOSE_PORT), SizeIs(1));
}

// Here the first loop still reads the port, and so it is closed with the loop.
TEST_F(LoadingTheDriver, AgainAfterUnloadingWithoutThePrivilegeLeaksNothing) {
  ASSERT_TRUE(Load());
  system_.Fail("OpenProcessToken", 5);
  ASSERT_FALSE(Unload());
  FailureLedger::OfThisProgram().SetTheStage();
  system_.Succeed("OpenProcessToken");
  ASSERT_THAT(system_.OpenHandles(), ElementsAre("event", "notification port"));
  ASSERT_TRUE(Load());
  SendUnloadNotice();
  SendUnloadNotice();
  ASSERT_TRUE(system_.WaitForThreadEnd(0));
  ASSERT_TRUE(system_.WaitForThreadEnd(2));
  EXPECT_THAT(system_.OpenHandles(), ElementsAre("event", "event", "notification port", "thread"));
  EXPECT_THAT(system_.transcript.StartingWith(CLOSE_PORT), SizeIs(1));
}

// Detection starts off, also after a load that follows on an earlier one.
TEST_F(LoadingTheDriver, SwitchesBothDetectionsOff) {
  ASSERT_EQ(library_.EnableActivityDetection(nullptr, L"", nullptr, 0, nullptr, 0, 0, 0, 1), 1);
  const wchar_t* cloud[] = {L"cloud.exe"};
  ASSERT_EQ(library_.EnablePCDDetection(nullptr, cloud, 1, nullptr, 0, nullptr, 0), 1);
  ASSERT_TRUE(Load());
  Forget();
  EXPECT_EQ(library_.DisableActivityDetection(), 0);
  EXPECT_EQ(library_.DisablePCDDetection(), 1);
  EXPECT_THAT(Calls(),
              ElementsAre("log 6 Application activity already disabled.", "log 6 PCD already turned off."));
}

}  // namespace

}  // namespace ostrel::test
