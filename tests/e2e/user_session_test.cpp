// What the library learns through OstrelUserHelper.exe: from the session of the user, in both ways of
// starting the helper, and when nobody is there. The windows need an X display under Wine.

#include <string>

#include "e2e/lab_fixture.h"
#include "e2e/session_setting.h"

namespace ostrel::test {

namespace {

using nlohmann::json;

constexpr wchar_t WATCH_BROWSER[] = L"--watch browser.exe --log-level 7 --for 300";
constexpr wchar_t WATCH_ALL[] = L"--watch browser.exe,renderer.exe,pscp.exe --log-level 7 --for 300";
constexpr wchar_t WATCH_EDGE[] = L"--watch MicrosoftEdge.exe --log-level 7 --for 300";
constexpr char STARTED_IN_APPLICATION[] =
    "Created Ostrel user proc successfully when running as an application.";
constexpr char STARTED_IN_SERVICE[] = "Created Ostrel user proc successfully.";

class UserSession : public LabFixture {
 protected:
  // Until the host has asked about everything in the scenario, also about what it does not report.
  void PlayAll(const Program& host) {
    const std::filesystem::path scenario = Scenario("user_session.json");
    ASSERT_EQ(Play(scenario), 0U);
    EXPECT_EQ(Check(scenario), 0U) << host.Errors();
    EXPECT_TRUE(host.WaitForError("Incomplete upload for ", PROGRAM_PATIENCE));
  }

  static std::size_t CountOf(const std::string& text, const std::string& log) {
    std::size_t count = 0;
    for (std::size_t i = log.find(text); i != std::string::npos; i = log.find(text, i + 1)) ++count;
    return count;
  }
};

// Six files were touched, and three of them, one incompletely read, lie on a network drive.
constexpr std::size_t QUESTIONS = 6 + 3;

TEST_F(UserSession, AnApplicationAsksTheHelperBesideIt) {
  const SessionSetting setting(L"application");
  const auto host = StartHost(WATCH_ALL);
  PlayAll(*host);
  EXPECT_EQ(CountOf(STARTED_IN_APPLICATION, host->Errors()), QUESTIONS);
  EXPECT_EQ(CountOf(STARTED_IN_SERVICE, host->Errors()), 0U);
}

TEST_F(UserSession, AServiceAsksTheHelperInTheFolderNlib) {
  const SessionSetting setting(L"service");
  const auto host = StartHost(WATCH_ALL);
  PlayAll(*host);
  EXPECT_EQ(CountOf(STARTED_IN_SERVICE, host->Errors()), QUESTIONS);
  EXPECT_EQ(CountOf(STARTED_IN_APPLICATION, host->Errors()), 0U);
}

TEST_F(UserSession, OfAFileOnANetworkDriveNineTenthsOfWhatTheHelperFoundMustBeRead) {
  const auto host = StartHost(WATCH_ALL);
  PlayAll(*host);
  const std::string log = host->Errors();
  EXPECT_EQ(CountOf("Incomplete upload for ", log), 1U);
  EXPECT_EQ(CountOf("Incomplete upload for \\\\lab-server\\team\\e2e\\archive.zip", log), 1U);
  EXPECT_EQ(CountOf("Uploaded file \\\\lab-server\\team\\e2e\\archive.zip. 26999 of 30000", log), 1U);
  EXPECT_EQ(CountOf("Uploaded file \\\\lab-server\\team\\e2e\\minutes.docx. 27000 of 30000", log), 1U);
}

TEST_F(UserSession, WithNobodyLoggedOnUploadsAreReportedWithThatStatus) {
  const SessionSetting setting(L"none");
  const auto host = StartHost(WATCH_BROWSER);
  ASSERT_EQ(Play(Scenario("no_answers.json")), 0U);
  ASSERT_EQ(Check(Scenario("no_answers.json")), 0U) << host->Errors();
  for (const json& upload : Detections()) {
    EXPECT_EQ(upload["tabTitleStatus"], "NO_LOGGEDIN_USER");
    EXPECT_EQ(upload["metadataStatus"], upload["isNetworkDrive"] ? "NO_LOGGEDIN_USER" : "");
    EXPECT_EQ(upload["sha256"], "");
    EXPECT_EQ(upload["metadataFileSize"], 0);
  }
  EXPECT_EQ(CountOf("No one logged in", host->Errors()), 3U);
  EXPECT_EQ(CountOf("Created Ostrel user proc", host->Errors()), 0U);
}

TEST_F(UserSession, WithoutTabTitlesOnlyFilesOnNetworkDrivesAreAskedFor) {
  const auto host = StartHost(std::wstring(WATCH_BROWSER) + L" --no-tab-titles");
  ASSERT_EQ(Play(Scenario("no_answers.json")), 0U);
  ASSERT_EQ(Check(Scenario("no_answers.json")), 0U) << host->Errors();
  for (const json& upload : Detections()) {
    EXPECT_EQ(upload["tabTitleStatus"], "");
    EXPECT_EQ(upload["metadataStatus"], upload["isNetworkDrive"] ? "METADATA_SUCCESS" : "");
  }
  EXPECT_EQ(CountOf(STARTED_IN_APPLICATION, host->Errors()), 1U);
}

TEST_F(UserSession, ATitleOfTheLegacyEdgeBrowserIsThatOfItsFrameHost) {
  const auto host = StartHost(WATCH_EDGE);
  ASSERT_EQ(Play(Scenario("frame_host.json")), 0U);
  EXPECT_EQ(Check(Scenario("frame_host.json")), 0U) << host->Errors();
}

TEST_F(UserSession, WithoutItsFrameHostTheLegacyEdgeBrowserHasNoTitle) {
  const auto host = StartHost(WATCH_EDGE);
  ASSERT_EQ(Play(Scenario("no_frame_host.json")), 0U);
  EXPECT_EQ(Check(Scenario("no_frame_host.json")), 0U) << host->Errors();
}

TEST_F(UserSession, ATitleThatTheReplyCannotHoldIsShortened) {
  const json scenario = json::parse(ReadFile(Scenario("long_title.json")));
  const std::string title = scenario["processes"]["browser"]["window"];
  const auto host = StartHost(WATCH_BROWSER);
  ASSERT_EQ(Play(Scenario("long_title.json")), 0U);
  ASSERT_EQ(Check(Scenario("long_title.json")), 0U) << host->Errors();
  const json hints = Detections().front()["destinationHints"];
  ASSERT_EQ(hints.size(), 1U);
  const std::string hint = hints[0];
  // The reply's 1023 characters less its head, of which the identifier varies: 32 to 64 of 81.
  EXPECT_TRUE(title.starts_with(hint));
  EXPECT_GE(hint.size(), 1023U - 17 - 64);
  EXPECT_LE(hint.size(), 1023U - 17 - 32);
}

TEST_F(UserSession, TheHostFindsItsHelperAndItsLogFileFromAnyCurrentDirectory) {
  const std::filesystem::path before = std::filesystem::current_path();
  const std::filesystem::path elsewhere = std::filesystem::temp_directory_path() / "ostrel-e2e" / "elsewhere";
  std::filesystem::remove_all(elsewhere);
  std::filesystem::create_directories(elsewhere);
  std::filesystem::current_path(elsewhere);
  const auto host = StartHost(std::wstring(WATCH_BROWSER) + L" --log-file host.log");
  std::filesystem::current_path(before);
  ASSERT_EQ(Play(Scenario("long_title.json")), 0U);
  EXPECT_EQ(Check(Scenario("long_title.json")), 0U) << host->Errors();
  EXPECT_EQ(CountOf(STARTED_IN_APPLICATION, ReadFile(elsewhere / "host.log")), 1U);
}

}  // namespace

}  // namespace ostrel::test
