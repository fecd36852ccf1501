// OstrelHost.exe --self-check on the lab. This program does not load the library, or it would be a host in
// the eyes of the check.

#include <windows.h>
// Needs windows.h before it.
#include <fltuser.h>

#include <sstream>

#include "e2e/lab_fixture.h"
#include "e2e/session_setting.h"
#include "filter/port_messages.h"
#include "util/installed_names.h"
#include "util/unique_handle.h"

namespace ostrel::test {

namespace {

using Lines = std::vector<std::string>;

constexpr char START_A_HOST[] =
    ". A host installs and starts it, such as OstrelHost.exe --watch chrome.exe; its log says why when it "
    "cannot.";

UniqueServiceHandle OpenDriverService(const wchar_t* name, DWORD access) {
  const UniqueServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  return UniqueServiceHandle(OpenServiceW(manager.Get(), name, access));
}

// As on a machine on which no host has ever run. The next host installs it anew.
void RemoveService(const wchar_t* name) {
  const UniqueServiceHandle service = OpenDriverService(name, SERVICE_STOP | DELETE);
  if (!service) return;
  SERVICE_STATUS status{};
  ControlService(service.Get(), SERVICE_CONTROL_STOP, &status);
  EXPECT_TRUE(DeleteService(service.Get())) << GetLastError();
}

class SelfCheck : public LabFixture {
 protected:
  struct Said {
    std::optional<DWORD> exitCode;
    Lines lines;
  };

  Said CheckIn(const std::filesystem::path& folder) {
    Program check(L"\"" + (folder / "OstrelHost.exe").wstring() + L"\" --self-check",
                  std::filesystem::temp_directory_path() / "ostrel-e2e" / "self-check");
    Said said{check.Wait(PROGRAM_PATIENCE), {}};
    EXPECT_EQ(check.Errors(), "");
    std::istringstream output(check.Output());
    for (std::string line; std::getline(output, line);) said.lines.push_back(line);
    return said;
  }

  Said CheckInStage() { return CheckIn(StageDirectory()); }

  // The stage folder's files that a host needs, but for one.
  static std::filesystem::path FolderWithout(const std::string& missing) {
    const std::filesystem::path folder = std::filesystem::temp_directory_path() / "ostrel-e2e" / "lacking";
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder / "nlib");
    for (const char* file :
         {"OstrelHost.exe", "OstrelFilterLib.dll", "OstrelUserHelper.exe", "nlib\\OstrelUserHelper.exe",
          "OstrelFilter.inf", "OstrelFilter.sys", "OstrelNWFilter.inf", "OstrelNWFilter.sys", "fltlib.dll",
          "fwpuclnt.dll", "propsys.dll", "wtsapi32.dll"}) {
      if (file != missing) std::filesystem::copy_file(StageDirectory() / file, folder / file);
    }
    return folder;
  }

  static std::string In(const std::filesystem::path& folder, const char* file) {
    return (folder / file).string();
  }

  std::unique_ptr<Program> StartWatchingHost(const std::wstring& more) {
    auto host = StartHost(L"--watch pscp.exe --log-level 7 --for 300" + more);
    EXPECT_TRUE(host->WaitForError("OstrelHost: watching", PROGRAM_PATIENCE)) << host->Errors();
    return host;
  }

  // Both drivers run and nobody uses them, as after a host that was ended by force.
  void LeaveDriversRunning() {
    wchar_t user[256] = {};
    DWORD length = 256;
    ASSERT_TRUE(GetUserNameW(user, &length));
    StartWatchingHost(L" --remote-address-info --user " + std::wstring(user));
  }

  // Runs a host from its start to its end, which installs the services and leaves the drivers unloaded.
  void RunAHost() {
    const auto host = StartHost(L"--watch pscp.exe --for 1");
    EXPECT_EQ(host->Wait(PROGRAM_PATIENCE), 0U) << host->Errors();
  }

  // What is there in the stage folder whatever the drivers do.
  static Lines FirstLinesInStage() {
    const std::filesystem::path stage = StageDirectory();
    return {
        "ok      rights: this process is elevated and may load drivers",
        "ok      driver files: all four lie beside OstrelFilterLib.dll in " + stage.string(),
        "ok      filtering engine: the Windows Filtering Platform answers",
        "ok      user session: session 1 is active",
        "ok      helper of an application: " + In(stage, "OstrelUserHelper.exe"),
        "ok      helper of a service: " + In(stage, "nlib\\OstrelUserHelper.exe"),
    };
  }

  static Lines FirstLinesAnd(const Lines& more) {
    Lines lines = FirstLinesInStage();
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
  }
};

TEST_F(SelfCheck, BeforeTheFirstHostTheServicesAreNotInstalled) {
  RemoveService(MINIFILTER_SERVICE_NAME);
  RemoveService(NETWORK_DRIVER_SERVICE_NAME);
  const Said said = CheckInStage();
  EXPECT_EQ(said.exitCode, 12U);
  EXPECT_EQ(said.lines,
            FirstLinesAnd({
                std::string("fail    minifilter service: OstrelFilter is not installed") + START_A_HOST,
                std::string("fail    network driver service: OstrelNWFilter is not installed") + START_A_HOST,
                "skipped event port: not tried, since the minifilter does not run",
                "skipped control port: not tried, since the minifilter does not run",
                "skipped network device: not tried, since the network driver does not run",
            }));
}

TEST_F(SelfCheck, AfterAHostTheServicesAreInstalledAndDoNotRun) {
  RunAHost();
  const Said said = CheckInStage();
  EXPECT_EQ(said.exitCode, 12U);
  EXPECT_EQ(
      said.lines,
      FirstLinesAnd({
          std::string("fail    minifilter service: OstrelFilter is installed and does not run") +
              START_A_HOST,
          "skipped network driver service: OstrelNWFilter is installed; it runs only while a host wants "
          "remote address info",
          "skipped event port: not tried, since the minifilter does not run",
          "skipped control port: not tried, since the minifilter does not run",
          "skipped network device: not tried, since the network driver does not run",
      }));
}

TEST_F(SelfCheck, WithDriversThatNobodyUsesPortsAndDeviceOpen) {
  ASSERT_NO_FATAL_FAILURE(LeaveDriversRunning());
  const Said said = CheckInStage();
  EXPECT_EQ(said.exitCode, 0U);
  EXPECT_EQ(said.lines, FirstLinesAnd({
                            "ok      minifilter service: OstrelFilter runs",
                            "ok      network driver service: OstrelNWFilter runs",
                            "ok      event port: the minifilter accepts a connection",
                            "ok      control port: the minifilter accepts a connection",
                            "ok      network device: the network driver's device opens",
                        }));
  // It has let go of everything and told the minifilter nothing.
  const nlohmann::json status = LabStatus();
  EXPECT_EQ(status["clientConnected"], false) << status;
  EXPECT_EQ(status["network"]["handles"], 0) << status;
  EXPECT_EQ(CheckInStage().lines, said.lines);
  RunAHost();
}

TEST_F(SelfCheck, WhileAHostRunsPortsAndDeviceAreLeftToIt) {
  const auto host = StartWatchingHost(L"");
  const nlohmann::json before = LabStatus();
  const Said said = CheckInStage();
  EXPECT_EQ(said.exitCode, 0U);
  ASSERT_EQ(said.lines.size(), 11U);
  EXPECT_EQ(said.lines[6], "ok      minifilter service: OstrelFilter runs");
  for (const std::size_t port : {8U, 9U}) {
    const std::string& line = said.lines[port];
    EXPECT_TRUE(line.starts_with(std::string(port == 8 ? "skipped event port" : "skipped control port") +
                                 ": left to OstrelHost.exe (process "))
        << line;
    EXPECT_TRUE(line.ends_with("), which has the library loaded: opening it could get in that host's way"))
        << line;
  }
  EXPECT_EQ(LabStatus(), before);
}

TEST_F(SelfCheck, AHostGoesOnDetectingWhileItIsChecked) {
  const auto host = StartHost(L"--watch pscp.exe,gone.exe --log-level 7 --for 300");
  ASSERT_TRUE(host->WaitForError("OstrelHost: watching", PROGRAM_PATIENCE)) << host->Errors();
  EXPECT_EQ(CheckInStage().exitCode, 0U);
  ASSERT_EQ(Play(Scenario("foreign_input.json")), 0U);
  EXPECT_EQ(CheckInStage().exitCode, 0U);
  EXPECT_EQ(Check(Scenario("foreign_input.json")), 0U) << host->Errors();
  EXPECT_TRUE(host->IsRunning());
}

TEST_F(SelfCheck, AHostThatCannotBeSeenShowsAtTheEventPort) {
  ASSERT_NO_FATAL_FAILURE(LeaveDriversRunning());
  const ConnectionContext context{GetCurrentProcessId(), PROTOCOL_CODE};
  HANDLE opened = nullptr;
  ASSERT_EQ(
      FilterConnectCommunicationPort(NOTIFICATION_PORT_NAME, 0, &context, sizeof(context), nullptr, &opened),
      S_OK);
  UniqueKernelHandle port(opened);
  const Said said = CheckInStage();
  EXPECT_EQ(said.exitCode, 0U);
  EXPECT_EQ(
      said.lines,
      FirstLinesAnd({
          "ok      minifilter service: OstrelFilter runs",
          "ok      network driver service: OstrelNWFilter runs",
          "ok      event port: a host is connected already, and there can be one only",
          "skipped control port: left to the host that is connected to the event port: opening it could "
          "get in that host's way",
          "skipped network device: left to the host that is connected to the event port: opening it "
          "could get in that host's way",
      }));
  // The connection is as it was.
  EXPECT_EQ(LabStatus()["clientConnected"], true);
  port.Close();
  RunAHost();
}

TEST_F(SelfCheck, NamesTheDriverFileThatIsMissing) {
  const std::filesystem::path folder = FolderWithout("OstrelNWFilter.sys");
  const Said said = CheckIn(folder);
  EXPECT_EQ(said.exitCode, 12U);
  ASSERT_EQ(said.lines.size(), 11U);
  EXPECT_EQ(said.lines[1], "fail    driver files: not beside OstrelFilterLib.dll in " + folder.string() +
                               ": OstrelNWFilter.sys. Put all four driver files there.");
}

TEST_F(SelfCheck, AnApplicationMissesTheHelperBesideIt) {
  const SessionSetting setting(L"application");
  const std::filesystem::path folder = FolderWithout("OstrelUserHelper.exe");
  const Said said = CheckIn(folder);
  ASSERT_EQ(said.lines.size(), 11U);
  EXPECT_EQ(said.lines[4],
            "fail    helper of an application: not found as " + In(folder, "OstrelUserHelper.exe") +
                ". Put OstrelUserHelper.exe there: the library looks for it from the current directory on.");
  EXPECT_EQ(said.lines[5], "ok      helper of a service: " + In(folder, "nlib\\OstrelUserHelper.exe"));
}

TEST_F(SelfCheck, AServiceMissesTheHelperInTheFolderNlib) {
  const std::filesystem::path folder = FolderWithout("nlib\\OstrelUserHelper.exe");
  {
    const SessionSetting setting(L"service");
    const Said said = CheckIn(folder);
    ASSERT_EQ(said.lines.size(), 11U);
    EXPECT_EQ(
        said.lines[5],
        "fail    helper of a service: not found as " + In(folder, "nlib\\OstrelUserHelper.exe") +
            ". Put OstrelUserHelper.exe there: the library looks for it from the current directory on.");
  }
  const SessionSetting setting(L"application");
  const Said said = CheckIn(folder);
  ASSERT_EQ(said.lines.size(), 11U);
  EXPECT_EQ(said.lines[5], "skipped helper of a service: not found as " +
                               In(folder, "nlib\\OstrelUserHelper.exe") +
                               ", and needed only by a host that is a service");
}

TEST_F(SelfCheck, SaysWhenNobodyIsLoggedOn) {
  const SessionSetting setting(L"none");
  const Said said = CheckInStage();
  EXPECT_EQ(said.exitCode, 12U);
  ASSERT_EQ(said.lines.size(), 11U);
  EXPECT_EQ(said.lines[3],
            "fail    user session: nobody is logged on. Log on: tab titles and digests of files on network "
            "drives come from the session of a user.");
}

}  // namespace

}  // namespace ostrel::test
