#include "monitor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <string>
#include <vector>

#include "call_errors.h"
#include "machine.h"
#include "recorded_library.h"
#include "temporary_folder.h"
#include "utf8.h"
#include "windows_handle.h"

namespace {

using namespace ostrel::host;
using ostrel_test::MakeFile;
using ostrel_test::ReadWholeFile;
using ostrel_test::RecordedLibrary;
using ostrel_test::TemporaryFolder;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

// The log callback carries no context.
CallErrors* callErrors = nullptr;

void NoteError(const wchar_t* text, std::uint32_t level) {
  callErrors->Note(level, ToUtf8(text));
}

Options WatchingOptions() {
  Options options;
  options.watchedProcesses = {L"chrome.exe", L"firefox.exe"};
  options.userName = L"anna";
  options.remoteAddressInfo = true;
  return options;
}

// One run of the monitor on a recorded library, which is told to stop before it starts to wait.
class MonitorTest : public testing::Test {
 protected:
  // The monitor looks for the driver files beside the library.
  static void SetUpTestSuite() {
    const std::filesystem::path folder = ModuleFolder(L"OstrelFilterLib.dll");
    for (const std::wstring& name : MissingDriverFiles(folder.wstring())) MakeFile(folder / name);
  }

  MonitorTest()
      : stop_(CreateEventW(nullptr, TRUE, TRUE, nullptr)),
        minifilterGone_(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
        logFile_(CreateFileW((folder_ / L"log").c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_NEW,
                             FILE_ATTRIBUTE_NORMAL, nullptr)) {
    callErrors = &errors_;
  }
  ~MonitorTest() override { callErrors = nullptr; }

  ExitCode Run(const Options& options) {
    LineWriter console(logFile_.get());
    LogWriter log(LEVEL_NOTABLE, console, nullptr);
    return Monitor(options, {NoteError, nullptr, nullptr}, log, errors_, stop_.get(), minifilterGone_.get())
        .Run();
  }

  std::string LogText() const { return ReadWholeFile(folder_ / L"log"); }

  RecordedLibrary library_;
  const TemporaryFolder folder_;
  const WindowsHandle stop_;
  const WindowsHandle minifilterGone_;
  const WindowsHandle logFile_;
  CallErrors errors_;
};

TEST_F(MonitorTest, RemoteAddressInfoGoesOnWithDetectionAndOffBeforeTheUnload) {
  EXPECT_EQ(Run(WatchingOptions()), ExitCode::Success);
  EXPECT_THAT(
      library_.calls,
      ElementsAre("LoadDriver",
                  "EnableActivityDetection user=anna processes=chrome.exe,firefox.exe remoteAddressInfo=1",
                  "DisableActivityDetection", "DisableRemoteAddressInfo", "UnloadDriver"));
}

TEST_F(MonitorTest, WithoutTheOptionRemoteAddressInfoIsNotTouched) {
  Options options = WatchingOptions();
  options.remoteAddressInfo = false;
  EXPECT_EQ(Run(options), ExitCode::Success);
  EXPECT_THAT(
      library_.calls,
      ElementsAre("LoadDriver",
                  "EnableActivityDetection user=anna processes=chrome.exe,firefox.exe remoteAddressInfo=0",
                  "DisableActivityDetection", "UnloadDriver"));
}

TEST_F(MonitorTest, RemoteAddressInfoGoesOffAfterEveryDetection) {
  Options options = WatchingOptions();
  options.cloudProcesses = {L"client.exe"};
  EXPECT_EQ(Run(options), ExitCode::Success);
  EXPECT_THAT(
      library_.calls,
      ElementsAre("LoadDriver",
                  "EnableActivityDetection user=anna processes=chrome.exe,firefox.exe remoteAddressInfo=1",
                  "EnablePCDDetection processes=client.exe", "DisableActivityDetection",
                  "DisablePCDDetection", "DisableRemoteAddressInfo", "UnloadDriver"));
}

TEST_F(MonitorTest, WithoutEndpointsItWatchesAllTheSameAndTheExitCodeTells) {
  library_.errorLines["EnableActivityDetection"] = L"OstrelFilterDriver: StartService failed (2).";
  EXPECT_EQ(Run(WatchingOptions()), ExitCode::RemoteAddressInfoFailed);
  EXPECT_THAT(LogText(), HasSubstr("OstrelHost: Detections may lack endpoints. The network driver's service "
                                   "could not be started. (StartService failed (2).) "));
  EXPECT_THAT(LogText(), HasSubstr("OstrelHost: watching; Ctrl+C ends it."));
}

TEST_F(MonitorTest, TheSameErrorWithoutTheOptionIsNotItsBusiness) {
  Options options = WatchingOptions();
  options.remoteAddressInfo = false;
  library_.errorLines["EnableActivityDetection"] = L"OstrelFilterDriver: StartService failed (2).";
  EXPECT_EQ(Run(options), ExitCode::Success);
  EXPECT_THAT(LogText(), Not(HasSubstr("endpoints")));
}

TEST_F(MonitorTest, RemoteAddressInfoGoesOffAlsoWhenTheMinifilterRefusesTheConfiguration) {
  library_.errorLines["EnableActivityDetection"] =
      L"OstrelFilterDriver: Error opening port for updating monitored processes: HResult: 80070002";
  library_.results["EnableActivityDetection"] = 0;
  EXPECT_EQ(Run(WatchingOptions()), ExitCode::PortRefused);
  EXPECT_THAT(LogText(), Not(HasSubstr("OstrelHost: watching")));
  EXPECT_THAT(
      library_.calls,
      ElementsAre("LoadDriver",
                  "EnableActivityDetection user=anna processes=chrome.exe,firefox.exe remoteAddressInfo=1",
                  "DisableActivityDetection", "DisableRemoteAddressInfo", "UnloadDriver"));
}

TEST_F(MonitorTest, RemoteAddressInfoGoesOffAlsoWhenTheMinifilterIsGone) {
  SetEvent(minifilterGone_.get());
  EXPECT_EQ(Run(WatchingOptions()), ExitCode::Success);
  EXPECT_THAT(
      library_.calls,
      ElementsAre("LoadDriver",
                  "EnableActivityDetection user=anna processes=chrome.exe,firefox.exe remoteAddressInfo=1",
                  "DisableRemoteAddressInfo", "UnloadDriver"));
}

TEST_F(MonitorTest, AFailureOfSwitchingRemoteAddressInfoOffIsExplainedAndTheLibraryStillUnloaded) {
  library_.errorLines["DisableRemoteAddressInfo"] =
      L"OstrelFilterDriver: GetNWPacketInfo thread never ended.";
  EXPECT_EQ(Run(WatchingOptions()), ExitCode::RemoteAddressInfoFailed);
  EXPECT_EQ(library_.calls.back(), "UnloadDriver");
  EXPECT_THAT(LogText(), HasSubstr("OstrelHost: The thread that reads the network driver's records did not "
                                   "end. (GetNWPacketInfo thread never ended.) "));
  EXPECT_THAT(LogText(), HasSubstr("OstrelHost: unloaded."));
}

TEST_F(MonitorTest, ALoadThatFailsSwitchesNothing) {
  library_.errorLines["LoadDriver"] = L"OstrelFilterDriver: Could not install OstrelNWFilter driver";
  library_.results["LoadDriver"] = 0;
  EXPECT_EQ(Run(WatchingOptions()), ExitCode::LoadFailed);
  EXPECT_THAT(library_.calls, ElementsAre("LoadDriver"));
}

}  // namespace
