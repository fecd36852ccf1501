// The library and its own helper, started as an application and as a service.

#include <array>
#include <memory>

#include "support/internet_settings.h"
#include "support/scratch_key.h"
#include "support/test_thread.h"
#include "temporary_folder.h"
#include "user_session.h"

namespace ostrel::test {

namespace {

using ::testing::ElementsAre;

constexpr wchar_t ONE_DRIVE[] = L"SOFTWARE\\Microsoft\\OneDrive";
constexpr wchar_t HOME[] = L"C:\\Users\\ann";

struct Mode {
  const wchar_t* session;
  const char* name;
  std::string started;
};

class TheHelper : public UserSession, public ::testing::WithParamInterface<Mode> {
 protected:
  TheHelper() {
    GoTo(Stage());
    SetSession(GetParam().session);
  }
  ~TheHelper() override { EXPECT_THAT(Errors(), ::testing::IsEmpty()); }
};

TEST_P(TheHelper, IsStartedInItsOwnWay) {
  AskForProxy();
  EXPECT_THAT(Logs(), ElementsAre("log 7 " + GetParam().started));
}

TEST_P(TheHelper, TellsTheProxyScriptOfTheUsersSettings) {
  InternetSettings settings;
  settings.Set(NO_PROXY | PROXY_SCRIPT, "", "http://proxy.example/script.pac");
  EXPECT_EQ(AskForProxy(), (Answer{"http://proxy.example/script.pac", std::nullopt}));
}

TEST_P(TheHelper, TellsNeitherResultNorErrorWithoutAProxyScript) {
  InternetSettings settings;
  settings.Set(NO_PROXY | FIXED_PROXY, "fixed:8080", "");
  EXPECT_EQ(AskForProxy(), Answer{});
}

TEST_P(TheHelper, TellsTheLoginOfTheCloudClient) {
  ScratchKey oneDrive(ONE_DRIVE);
  oneDrive.Set(L"", L"CurrentVersionPath", L"C:\\Program Files\\OneDrive");
  oneDrive.Set(L"Accounts\\Personal", L"UserEmail", L"ann@example.com");
  oneDrive.Set(L"Accounts\\Personal", L"UserFolder", L"C:\\Users\\ann\\OneDrive");
  oneDrive.Set(L"Accounts\\Business1", L"UserEmail", L"ann@company.example");
  oneDrive.Set(L"Accounts\\Business1", L"UserFolder", L"C:\\Users\\ann\\OneDrive - Company");
  EXPECT_EQ(AskForLogin(L"OneDrive", HOME), (Answer{"ann@example.com", std::nullopt}));
  EXPECT_EQ(AskForLogin(L"OneDrive Business", HOME), (Answer{"ann@company.example", std::nullopt}));
  EXPECT_EQ(
      AskForLogin(L"OneDrive", L"C:\\Users\\bob"),
      (Answer{std::nullopt, "CLOUDLOGIN:: OneDrive Installation Path does not match Registry entries"}));
}

TEST_P(TheHelper, TellsThatTheCloudClientHasNoAccount) {
  ScratchKey oneDrive(ONE_DRIVE);
  oneDrive.Set(L"", L"CurrentVersionPath", L"C:\\Program Files\\OneDrive");
  EXPECT_EQ(AskForLogin(L"OneDrive", HOME),
            (Answer{std::nullopt, "CLOUDLOGIN:: No OneDrive Accounts found in Registry"}));
}

TEST_P(TheHelper, TellsThatItDoesNotKnowTheProvider) {
  EXPECT_EQ(AskForLogin(L"Floppy", HOME),
            (Answer{std::nullopt, "CLOUDLOGIN:: Incorrect CloudStorageProvider Type"}));
}

TEST_P(TheHelper, TellsDigestsAndSizeOfAFile) {
  const ostrel_test::TemporaryFolder folder;
  ostrel_test::WriteWholeFile(folder / L"minutes.txt", "abc");
  const MetaData file = AskForMetaData(folder / L"minutes.txt");
  EXPECT_EQ(file.status, "METADATA_SUCCESS");
  EXPECT_EQ(file.metaData.sha256Hex, L"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(file.metaData.md5Hex, L"900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(file.metaData.fileSize, 3U);
}

TEST_P(TheHelper, AnswersEachOfManyThreads) {
  constexpr std::size_t THREADS = 4;
  const ostrel_test::TemporaryFolder folder;
  std::array<MetaData, THREADS> answers;
  std::vector<std::unique_ptr<ostrel_test::TestThread>> threads;
  for (std::size_t i = 0; i < THREADS; ++i) {
    const auto file = folder / (std::to_wstring(i) + L".txt").c_str();
    ostrel_test::WriteWholeFile(file, std::string(i + 1, 'a'));
    threads.push_back(std::make_unique<ostrel_test::TestThread>(
        [this, file, &answer = answers[i]] { answer = AskForMetaData(file); }));
  }
  threads.clear();
  for (std::size_t i = 0; i < THREADS; ++i) {
    EXPECT_EQ(answers[i].status, "METADATA_SUCCESS");
    EXPECT_EQ(answers[i].metaData.fileSize, i + 1);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Modes, TheHelper,
    ::testing::Values(Mode{L"application", "Application",
                           "Created Ostrel user proc successfully when running as an application."},
                      Mode{L"service", "Service", "Created Ostrel user proc successfully."}),
    [](const ::testing::TestParamInfo<Mode>& mode) { return std::string(mode.param.name); });

class TheHelpersError : public UserSession {
 protected:
  TheHelpersError() { GoTo(Stage()); }
};

TEST_F(TheHelpersError, ForAMissingFileIsTheStatus) {
  const ostrel_test::TemporaryFolder folder;
  EXPECT_EQ(AskForMetaData(folder / L"none.txt").status, "METADATA_FILE_DOES_NOT_EXIST");
  EXPECT_THAT(Errors(), ElementsAre("log 3 Couldn't get metadata. Error code: 18"));
}

TEST_F(TheHelpersError, ForAProcessWithoutAWindowIsTheStatus) {
  EXPECT_EQ(AskForTitles(), (Titles{"TABTITLE_MAIN_WINDOWS_NOT_FOUND", {}}));
  EXPECT_THAT(Errors(), ElementsAre("log 3 Couldn't get tab titles. Error code: 4"));
}

}  // namespace

}  // namespace ostrel::test
