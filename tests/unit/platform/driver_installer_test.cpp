#include "filter/driver_installer.h"

#include <filesystem>

#include "filter/load_driver_privilege.h"
#include "platform_test.h"

namespace ostrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::wstring OwnPath() {
  wchar_t path[1024] = {};
  GetModuleFileNameW(nullptr, path, 1024);
  return path;
}

std::string OwnDirectory() {
  return Narrow(std::filesystem::path(OwnPath()).parent_path().wstring());
}

class LoadDriverPrivilege : public PlatformTest {
 protected:
  static std::uint32_t Enable() { return Returned("EnableLoadDriverPrivilege", EnableLoadDriverPrivilege()); }
};

TEST_F(LoadDriverPrivilege, IsEnabledInTheTokenOfThisProcess) {
  EXPECT_EQ(Enable(), 0U);
  EXPECT_THAT(Calls(),
              ElementsAre("OpenProcessToken(current process, 0x28)",
                          "LookupPrivilegeValueW(null, SeLoadDriverPrivilege)",
                          "AdjustTokenPrivileges(token, disable all 0, count 1, privilege 10, attributes 2)",
                          "CloseHandle(token)"));
}

TEST_F(LoadDriverPrivilege, CountsAsEnabledWhenTheAccountDoesNotHoldIt) {
  system_.adjustPrivilegesLastError = ERROR_NOT_ALL_ASSIGNED;
  EXPECT_EQ(Enable(), 0U);
  EXPECT_THAT(Logs(), IsEmpty());
  EXPECT_THAT(system_.OpenHandles(), IsEmpty());
}

TEST_F(LoadDriverPrivilege, FailsWithTheCodeOfAnUnopenableToken) {
  system_.Fail("OpenProcessToken", 5);
  EXPECT_EQ(Enable(), 5U);
  EXPECT_THAT(Calls(), ElementsAre("OpenProcessToken(current process, 0x28)",
                                   "log 3 Could not open current process. 5"));
}

TEST_F(LoadDriverPrivilege, FailsWithTheCodeOfAnUnknownPrivilegeAndClosesTheToken) {
  system_.Fail("LookupPrivilegeValueW", 1313);
  EXPECT_EQ(Enable(), 1313U);
  EXPECT_THAT(Calls(), ElementsAre("OpenProcessToken(current process, 0x28)",
                                   "LookupPrivilegeValueW(null, SeLoadDriverPrivilege)",
                                   "log 3 Could not look up privilege. 1313", "CloseHandle(token)"));
}

TEST_F(LoadDriverPrivilege, FailsWithTheCodeOfARefusedAdjustmentAndClosesTheToken) {
  system_.Fail("AdjustTokenPrivileges", 87);
  EXPECT_EQ(Enable(), 87U);
  EXPECT_THAT(Logs(), ElementsAre("log 3 Could not adjust token privilege. 87"));
  EXPECT_EQ(Calls().back(), "CloseHandle(token)");
  EXPECT_THAT(system_.OpenHandles(), IsEmpty());
}

class InstallingADriver : public PlatformTest {
 protected:
  static bool Install() {
    return Returned("InstallDriver", InstallDriver(L"OstrelNWFilter.inf", L"OstrelNWFilter.sys"));
  }

  // The calls behind those that enable the privilege.
  Lines CallsAfterThePrivilege() const {
    Lines calls = Calls();
    calls.erase(calls.begin() + 1, calls.begin() + 5);
    return calls;
  }

  const std::string ownPath_ = "GetModuleFileNameW(own module, 512)";
  const std::string cutPath_ = "PathRemoveFileSpecW(" + Narrow(OwnPath()) + ")";
  const std::string inf_ = "SetupOpenInfFileW(" + OwnDirectory() + "\\OstrelNWFilter.inf, null, 2)";
  const std::string target_ = "S:\\system\\drivers\\OstrelNWFilter.sys";
  const std::string copy_ =
      "SetupInstallFileW(inf, null, OstrelNWFilter.sys, " + OwnDirectory() + ", " + target_ + ", 0x4, null)";
  const std::string services_ = "SetupInstallServicesFromInfSectionW(inf, DefaultInstall.Services, 0)";
  const std::string begin_ = "log 6 Installing and setting up service: OstrelNWFilter.sys";
};

TEST_F(InstallingADriver, TakesEveryStepInOrder) {
  EXPECT_TRUE(Install());
  EXPECT_THAT(Calls(),
              ElementsAre(begin_, "OpenProcessToken(current process, 0x28)",
                          "LookupPrivilegeValueW(null, SeLoadDriverPrivilege)",
                          "AdjustTokenPrivileges(token, disable all 0, count 1, privilege 10, attributes 2)",
                          "CloseHandle(token)", "FilterUnload(OstrelFilter)", ownPath_, cutPath_,
                          "GetSystemDirectoryW(512)", inf_, "PathFileExistsW(" + target_ + ")", copy_,
                          services_, "log 6 Setup service successfully.", "SetupCloseInfFile(inf)"));
  EXPECT_THAT(system_.OpenHandles(), IsEmpty());
}

TEST_F(InstallingADriver, DeletesTheOldFileBeforeItCopiesTheNew) {
  system_.existingFiles = {L"S:\\system\\drivers\\OstrelNWFilter.sys"};
  EXPECT_TRUE(Install());
  EXPECT_THAT(
      CallsAfterThePrivilege(),
      ElementsAre(begin_, "FilterUnload(OstrelFilter)", ownPath_, cutPath_, "GetSystemDirectoryW(512)", inf_,
                  "PathFileExistsW(" + target_ + ")", "DeleteFileW(" + target_ + ")", copy_, services_,
                  "log 6 Setup service successfully.", "SetupCloseInfFile(inf)"));
}

TEST_F(InstallingADriver, GoesOnWhenTheOldFileCannotBeDeleted) {
  system_.existingFiles = {L"S:\\system\\drivers\\OstrelNWFilter.sys"};
  system_.Fail("DeleteFileW", 32);
  EXPECT_TRUE(Install());
  EXPECT_THAT(Logs(), ElementsAre(begin_, "log 6 Could not delete " + target_ + ".  32",
                                  "log 6 Setup service successfully."));
}

TEST_F(InstallingADriver, StopsWithoutThePrivilege) {
  system_.Fail("OpenProcessToken", 5);
  EXPECT_FALSE(Install());
  EXPECT_THAT(Calls(),
              ElementsAre(begin_, "OpenProcessToken(current process, 0x28)",
                          "log 3 Could not open current process. 5", "log 3 Could not enable privilege"));
}

TEST_F(InstallingADriver, GoesOnWhenTheMinifilterIsNotLoaded) {
  system_.Fail("FilterUnload", 0x801F0013);
  EXPECT_TRUE(Install());
  EXPECT_THAT(Logs(), ElementsAre(begin_, "log 6 Setup service successfully."));
}

TEST_F(InstallingADriver, StopsWhenTheMinifilterCannotBeUnloaded) {
  system_.Fail("FilterUnload", 0x80070005);
  EXPECT_FALSE(Install());
  EXPECT_THAT(CallsAfterThePrivilege(),
              ElementsAre(begin_, "FilterUnload(OstrelFilter)",
                          "log 3 Could not unload driver during InstallDriver: HResult: 80070005"));
}

TEST_F(InstallingADriver, TellsTheErrorLineOfAnUnopenableInfAndLeavesTheOldFileInPlace) {
  system_.existingFiles = {L"S:\\system\\drivers\\OstrelNWFilter.sys"};
  system_.Fail("SetupOpenInfFileW", 0xE0000100);
  system_.infErrorLine = 17;
  EXPECT_FALSE(Install());
  EXPECT_THAT(CallsAfterThePrivilege(), ElementsAre(begin_, "FilterUnload(OstrelFilter)", ownPath_, cutPath_,
                                                    "GetSystemDirectoryW(512)", inf_,
                                                    "log 3 Could not open INF file. Error on line 17"));
}

TEST_F(InstallingADriver, FailsAfterTheDeletionWhenTheFileCannotBeCopiedAndStillSetsTheServiceUp) {
  system_.existingFiles = {L"S:\\system\\drivers\\OstrelNWFilter.sys"};
  system_.Fail("SetupInstallFileW", 2);
  EXPECT_FALSE(Install());
  EXPECT_THAT(CallsAfterThePrivilege(),
              ElementsAre(begin_, "FilterUnload(OstrelFilter)", ownPath_, cutPath_,
                          "GetSystemDirectoryW(512)", inf_, "PathFileExistsW(" + target_ + ")",
                          "DeleteFileW(" + target_ + ")", copy_, "log 3 Could not copy driver file. 2",
                          services_, "log 6 Setup service successfully.", "SetupCloseInfFile(inf)"));
}

// A host that needs the service must look for it itself.
TEST_F(InstallingADriver, SucceedsAlthoughTheServiceCannotBeSetUp) {
  system_.Fail("SetupInstallServicesFromInfSectionW", 1072);
  EXPECT_TRUE(Install());
  EXPECT_THAT(Logs(), ElementsAre(begin_, "log 3 Could not setup service. 1072"));
  EXPECT_THAT(system_.OpenHandles(), IsEmpty());
}

// The next step then says what is missing.
TEST_F(InstallingADriver, SeeksTheInfWithoutAFolderWhenItsOwnPathIsNotTold) {
  FailureLedger::OfThisProgram().Chosen("GetModuleFileNameW",
                                        "nothing is said of it; the INF is not found, which is");
  system_.Fail("GetModuleFileNameW", 8);
  system_.Fail("SetupOpenInfFileW", 2);
  EXPECT_FALSE(Install());
  EXPECT_THAT(CallsAfterThePrivilege(),
              ElementsAre(begin_, "FilterUnload(OstrelFilter)", ownPath_, "PathRemoveFileSpecW()",
                          "GetSystemDirectoryW(512)", "SetupOpenInfFileW(\\OstrelNWFilter.inf, null, 2)",
                          "log 3 Could not open INF file. Error on line 0"));
}

// There is nowhere to copy the file to, and nothing is deleted or copied elsewhere.
TEST_F(InstallingADriver, FailsWhenTheSystemsFolderIsNotTold) {
  FailureLedger::OfThisProgram().Chosen(
      "GetSystemDirectoryW", "as when copying fails, but nothing is deleted or set up: there is no target");
  system_.Fail("GetSystemDirectoryW", 8);
  EXPECT_FALSE(Install());
  EXPECT_THAT(CallsAfterThePrivilege(),
              ElementsAre(begin_, "FilterUnload(OstrelFilter)", ownPath_, cutPath_,
                          "GetSystemDirectoryW(512)", "log 3 Could not copy driver file. 8"));
}

TEST_F(InstallingADriver, CutsATargetPathThatExceeds511Characters) {
  system_.systemDirectory = L"S:\\" + std::wstring(497, L'd');
  EXPECT_TRUE(Install());
  const std::string cut = ("S:\\" + std::string(497, 'd') + "\\drivers\\OstrelNWFilter.sys").substr(0, 511);
  EXPECT_THAT(Calls(), ::testing::Contains("PathFileExistsW(" + cut + ")"));
}

TEST_F(InstallingADriver, CutsAnInfPathThatExceeds511Characters) {
  const std::wstring directory = L"S:\\" + std::wstring(497, L'd');
  system_.modulePath = directory + L"\\a.dll";
  EXPECT_TRUE(Install());
  const std::string cut = (Narrow(directory) + "\\OstrelNWFilter.inf").substr(0, 511);
  EXPECT_THAT(Calls(), ::testing::Contains("SetupOpenInfFileW(" + cut + ", null, 2)"));
}

}  // namespace

}  // namespace ostrel::test
