// OstrelHost.exe as its user meets it.

#include <fstream>

#include "e2e/lab_fixture.h"

namespace ostrel::test {

namespace {

class HostProgram : public LabFixture {
 protected:
  static constexpr wchar_t WATCH[] = L"--watch pscp.exe,gone.exe --log-level 7 --for 300";
};

TEST_F(HostProgram, EndsByItselfAfterTheTimeItWasGivenAndUnloadsTheDriver) {
  const auto host = StartHost(L"--watch pscp.exe --log-level 7 --for 1");
  EXPECT_EQ(host->Wait(PROGRAM_PATIENCE), 0U) << host->Errors();
  const std::string log = host->Errors();
  EXPECT_NE(log.find("Driver unloaded."), std::string::npos);
  EXPECT_NE(log.find("Closed driver handle successfully"), std::string::npos);
  EXPECT_NE(log.find("Disk Event thread ended"), std::string::npos);
}

TEST_F(HostProgram, ForeignInputEndsQuietlyAndTheFileAfterItIsReported) {
  const auto host = StartHost(WATCH);
  ASSERT_EQ(Play(Scenario("foreign_input.json")), 0U);
  EXPECT_EQ(Check(Scenario("foreign_input.json")), 0U) << host->Errors();
  const std::string log = host->Errors();
  EXPECT_NE(log.find("Unhandled message from driver: 10"), std::string::npos);
  EXPECT_NE(log.find("Unhandled message from driver: -1"), std::string::npos);
  // 512 characters without a terminator: 24 of device name become 2 of drive letter.
  EXPECT_NE(log.find(" C:\\" + std::string(488, 'n') + " "), std::string::npos) << log;
}

TEST_F(HostProgram, GoesOnReportingWhenTheDriverLeavesByItself) {
  const auto host = StartHost(WATCH);
  ASSERT_EQ(Play(Scenario("driver_leaves.json")), 0U);
  EXPECT_EQ(Check(Scenario("driver_leaves.json")), 0U) << host->Errors();
  EXPECT_TRUE(host->WaitForError("Driver unloaded.", PROGRAM_PATIENCE));
}

TEST_F(HostProgram, NamesTheDriverFilesThatAreMissing) {
  const std::filesystem::path bare = std::filesystem::temp_directory_path() / "ostrel-e2e" / "bare";
  std::filesystem::remove_all(bare);
  std::filesystem::create_directories(bare);
  for (const char* file : {"OstrelHost.exe", "OstrelFilterLib.dll", "fltlib.dll", "OstrelFilter.inf"}) {
    std::filesystem::copy_file(StageDirectory() / file, bare / file);
  }
  Program host(L"\"" + (bare / "OstrelHost.exe").wstring() + L"\" --watch pscp.exe", bare / "host");
  EXPECT_EQ(host.Wait(PROGRAM_PATIENCE), 3U);
  const std::string said = host.Errors();
  EXPECT_NE(said.find("OstrelFilter.sys"), std::string::npos) << said;
  EXPECT_NE(said.find("OstrelNWFilter.inf"), std::string::npos) << said;
  EXPECT_NE(said.find("OstrelNWFilter.sys"), std::string::npos) << said;
  EXPECT_EQ(said.find("OstrelFilter.inf"), std::string::npos) << said;
}

TEST_F(HostProgram, TellsAWrongCommandLineWithItsOwnExitCode) {
  EXPECT_EQ(StartHost(L"")->Wait(PROGRAM_PATIENCE), 2U);
  EXPECT_EQ(StartHost(L"--watch pscp.exe --log-level 5")->Wait(PROGRAM_PATIENCE), 2U);
}

TEST_F(HostProgram, AScenarioWithAFaultInLineSevenIsRefusedWithThatLine) {
  const std::filesystem::path faulty = std::filesystem::temp_directory_path() / "ostrel-e2e" / "faulty.json";
  std::ofstream(faulty)
      << "{\n\"processes\": {\n},\n\"files\": {\n},\n\"steps\": [\n{ \"wait\": \"long\" }\n]\n}\n";
  Program lab(
      L"\"" + (StageDirectory() / "OstrelLab.exe").wstring() + L"\" play \"" + faulty.wstring() + L"\"",
      std::filesystem::temp_directory_path() / "ostrel-e2e" / "faulty");
  EXPECT_EQ(lab.Wait(PROGRAM_PATIENCE), 2U);
  EXPECT_NE(lab.Errors().find("faulty.json:7: steps/0/wait"), std::string::npos) << lab.Errors();
}

}  // namespace

}  // namespace ostrel::test
