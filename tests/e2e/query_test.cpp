// The library's queries and the host's, on Wine's own management instrumentation and Internet settings. Of
// the lab only the property system is needed.

#include <windows.h>
// Needs windows.h before it.
#include <objbase.h>

#include <fstream>
#include <optional>

#include "api/exports.h"
#include "e2e/lab_fixture.h"
#include "e2e/session_setting.h"
#include "support/internet_settings.h"
#include "support/scratch_key.h"

namespace ostrel::test {

namespace {

struct Answer {
  std::optional<std::wstring> result;
  std::optional<std::wstring> error;

  bool operator==(const Answer&) const = default;
};

std::optional<std::wstring> Take(wchar_t* text) {
  if (text == nullptr) return std::nullopt;
  std::optional<std::wstring> copy(text);
  DeallocStringPointer(&text);
  return copy;
}

template <typename Getter>
Answer Ask(Getter getter) {
  wchar_t* result = nullptr;
  wchar_t* error = nullptr;
  getter(&result, &error);
  return {Take(result), Take(error)};
}

// This machine and the account that runs the test, who is logged on under Wine.
std::wstring WhoIsLoggedOn() {
  wchar_t computer[256] = {};
  DWORD length = 256;
  GetComputerNameW(computer, &length);
  wchar_t user[256] = {};
  length = 256;
  GetUserNameW(user, &length);
  return std::wstring(computer) + L"\\" + user;
}

TEST(LibraryQueries, TheUserLoggedOnIsNamedWithTheMachine) {
  for (int time = 0; time < 3; ++time) {
    const Answer answer = Ask(GetCurrentUserName);
    EXPECT_EQ(answer.result, WhoIsLoggedOn());
    EXPECT_EQ(answer.error, std::nullopt);
  }
}

// A query leaves COM for this thread as it found it: either kind of apartment can be chosen afterwards.
TEST(LibraryQueries, TheThreadsApartmentIsLeftAgain) {
  ASSERT_TRUE(Ask(GetCurrentUserName).result);
  ASSERT_TRUE(Ask(GetAllUserDirectories).result);
  EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
  CoUninitialize();
}

TEST(LibraryQueries, WithoutProfilesTheDirectoriesAreAnEmptyText) {
  // Wine's management instrumentation knows no profile.
  EXPECT_EQ(Ask(GetAllUserDirectories), (Answer{L"", std::nullopt}));
}

TEST(LibraryQueries, TheProxyScriptIsTheOneInTheUsersSettings) {
  InternetSettings settings;
  settings.Set(NO_PROXY | PROXY_SCRIPT, "", "http://proxy.example/script.pac");
  EXPECT_EQ(Ask(GetAutoProxyConfigUrlForUser), (Answer{L"http://proxy.example/script.pac", std::nullopt}));
  settings.Set(NO_PROXY | FIXED_PROXY | PROXY_SCRIPT, "fixed:8080", "http://proxy.example/other.pac");
  EXPECT_EQ(Ask(GetAutoProxyConfigUrlForUser), (Answer{L"http://proxy.example/other.pac", std::nullopt}));
}

TEST(LibraryQueries, WithoutAProxyScriptThereIsNeitherResultNorError) {
  InternetSettings settings;
  settings.Set(NO_PROXY, "", "");
  EXPECT_EQ(Ask(GetAutoProxyConfigUrlForUser), Answer{});
  settings.Set(NO_PROXY | FIXED_PROXY, "fixed:8080", "");
  EXPECT_EQ(Ask(GetAutoProxyConfigUrlForUser), Answer{});
}

class HostQuery : public LabFixture {
 protected:
  // Its one line of output.
  static nlohmann::json AnswerOf(Program& host, DWORD exitCode) {
    EXPECT_EQ(host.Wait(PROGRAM_PATIENCE), exitCode) << host.Errors();
    EXPECT_EQ(host.Errors(), "");
    const std::string output = host.Output();
    EXPECT_EQ(output.find('\n'), output.size() - 1) << output;
    return nlohmann::json::parse(output);
  }

  nlohmann::json AskHost(const std::wstring& query, DWORD exitCode = 0) {
    return AnswerOf(*StartHost(L"--query " + query), exitCode);
  }

  // A new folder with what a query needs at least, and the lab's sessions.
  static std::filesystem::path BareFolder() {
    const std::filesystem::path bare = std::filesystem::temp_directory_path() / "ostrel-e2e" / "query";
    std::filesystem::remove_all(bare);
    std::filesystem::create_directories(bare);
    for (const char* file : {"OstrelHost.exe", "OstrelFilterLib.dll", "propsys.dll", "wtsapi32.dll"}) {
      std::filesystem::copy_file(StageDirectory() / file, bare / file);
    }
    return bare;
  }

  static nlohmann::json AskIn(const std::filesystem::path& folder, const std::wstring& query, DWORD exitCode,
                              const wchar_t* program = L"OstrelHost.exe") {
    Program host(L"\"" + (folder / program).wstring() + L"\" --query " + query, folder / "host");
    return AnswerOf(host, exitCode);
  }

  static nlohmann::json Failed(const char* query, const char* error) {
    return {{"query", query}, {"result", nullptr}, {"error", error}};
  }

  static nlohmann::json NoProxyFromTheHelper() {
    return Failed("proxy-system",
                  "PROXY:: Exception occurred while attempting to get Windows auto proxy configuration url.");
  }

  static nlohmann::json NoLoginFromTheHelper() {
    return Failed("cloud-login", "CLOUDLOGIN:: Exception occurred while attempting to get cloud Login.");
  }
};

std::string Narrow(const std::wstring& text) {
  return std::filesystem::path(text).string();
}

TEST_F(HostQuery, PrintsTheUser) {
  EXPECT_EQ(AskHost(L"user"),
            (nlohmann::json{{"query", "user"}, {"result", Narrow(WhoIsLoggedOn())}, {"error", nullptr}}));
}

TEST_F(HostQuery, PrintsTheDirectories) {
  EXPECT_EQ(AskHost(L"directories"),
            (nlohmann::json{{"query", "directories"}, {"result", ""}, {"error", nullptr}}));
}

TEST_F(HostQuery, PrintsTheProxyScriptOrThatThereIsNone) {
  InternetSettings settings;
  settings.Set(NO_PROXY | PROXY_SCRIPT, "", "http://proxy.example/script.pac");
  EXPECT_EQ(AskHost(L"proxy"),
            (nlohmann::json{
                {"query", "proxy"}, {"result", "http://proxy.example/script.pac"}, {"error", nullptr}}));
  settings.Set(NO_PROXY, "", "");
  EXPECT_EQ(AskHost(L"proxy"), (nlohmann::json{{"query", "proxy"}, {"result", nullptr}, {"error", nullptr}}));
}

// Where the class that management instrumentation begins with is said to lie in a library that is not there.
TEST_F(HostQuery, EndsWithItsCodeAndTheErrorWhenThereIsNoManagementInstrumentation) {
  const std::filesystem::path folder = BareFolder();
  std::ofstream(folder / "OstrelHost.exe.manifest")
      << R"(<assembly xmlns="urn:schemas-microsoft-com:asm.v1" manifestVersion="1.0">)"
         R"(<assemblyIdentity type="win32" name="OstrelHost" version="1.0.0.0"/><file name="no-such.dll">)"
         R"(<comClass clsid="{4590F811-1D3A-11D0-891F-00AA004B2E24}" threadingModel="Both"/></file></assembly>)";
  EXPECT_EQ(AskIn(folder, L"user", 11),
            Failed("user", "GetCurrentUserNameAndDomain. Failed to CreateInstance. -2147024891"));
  EXPECT_EQ(AskIn(folder, L"directories", 11),
            Failed("directories", "GetAllUserDirectories. Failed to CreateInstance. -2147024891"));
}

TEST_F(HostQuery, EndsWithItsCodeAndTheErrorWhenTheProxySettingsCannotBeRead) {
  constexpr wchar_t PROGRAM[] = L"OstrelHostWithoutSettings.exe";
  const std::filesystem::path folder = BareFolder();
  std::filesystem::rename(folder / "OstrelHost.exe", folder / PROGRAM);
  std::filesystem::copy_file(StageDirectory() / "e2e" / "winhttp.dll", folder / "winhttp.dll");
  // Otherwise Wine takes its own.
  ScratchKey wine(std::wstring(L"Software\\Wine\\AppDefaults\\") + PROGRAM);
  wine.Set(L"DllOverrides", L"winhttp", L"native,builtin");
  EXPECT_EQ(
      AskIn(folder, L"proxy", 11, PROGRAM),
      Failed("proxy", "PROXY:: WinHttpGetIEProxyConfigForCurrentUser call returned FALSE with error 2."));
}

TEST_F(HostQuery, EndsWithItsCodeAndTheErrorWhenThereIsNoHelperToAsk) {
  const std::filesystem::path folder = BareFolder();
  EXPECT_EQ(AskIn(folder, L"proxy-system", 11), NoProxyFromTheHelper());
  EXPECT_EQ(AskIn(folder, L"cloud-login --provider OneDrive --home-directory C:\\Users\\ann", 11),
            NoLoginFromTheHelper());
}

TEST_F(HostQuery, EndsWithItsCodeAndTheErrorWhenNobodyIsLoggedOn) {
  const SessionSetting setting(L"none");
  EXPECT_EQ(AskHost(L"proxy-system", 11), NoProxyFromTheHelper());
  EXPECT_EQ(AskHost(L"cloud-login --provider OneDrive --home-directory C:\\Users\\ann", 11),
            NoLoginFromTheHelper());
}

// Through the helper beside the host, which is started relative to the current directory.
class HostQueryThroughTheHelper : public HostQuery {
 protected:
  HostQueryThroughTheHelper() { std::filesystem::current_path(StageDirectory()); }
  ~HostQueryThroughTheHelper() override { std::filesystem::current_path(before_); }

 private:
  std::filesystem::path before_ = std::filesystem::current_path();
};

TEST_F(HostQueryThroughTheHelper, PrintsTheProxyScriptOfTheLoggedInUser) {
  InternetSettings settings;
  settings.Set(NO_PROXY | PROXY_SCRIPT, "", "http://proxy.example/script.pac");
  EXPECT_EQ(AskHost(L"proxy-system"), (nlohmann::json{{"query", "proxy-system"},
                                                      {"result", "http://proxy.example/script.pac"},
                                                      {"error", nullptr}}));
  settings.Set(NO_PROXY, "", "");
  EXPECT_EQ(AskHost(L"proxy-system"),
            (nlohmann::json{{"query", "proxy-system"}, {"result", nullptr}, {"error", nullptr}}));
}

TEST_F(HostQueryThroughTheHelper, PrintsTheCloudLogin) {
  ScratchKey oneDrive(L"SOFTWARE\\Microsoft\\OneDrive");
  oneDrive.Set(L"", L"CurrentVersionPath", L"C:\\Program Files\\OneDrive");
  oneDrive.Set(L"Accounts\\Personal", L"UserEmail", L"ann@example.com");
  oneDrive.Set(L"Accounts\\Personal", L"UserFolder", L"C:\\Users\\ann\\OneDrive");
  EXPECT_EQ(AskHost(L"cloud-login --provider OneDrive --home-directory C:\\Users\\ann"),
            (nlohmann::json{{"query", "cloud-login"}, {"result", "ann@example.com"}, {"error", nullptr}}));
}

TEST_F(HostQueryThroughTheHelper, EndsWithItsCodeAndTheErrorWhenThereIsNoLogin) {
  EXPECT_EQ(AskHost(L"cloud-login --provider Floppy --home-directory C:\\Users\\ann", 11),
            Failed("cloud-login", "CLOUDLOGIN:: Incorrect CloudStorageProvider Type"));
}

TEST_F(HostQuery, NeedsNoDriverFile) {
  EXPECT_EQ(AskIn(BareFolder(), L"user", 0)["error"], nullptr);
}

TEST_F(HostQuery, IsNotKnownUnderAnyOtherName) {
  const auto host = StartHost(L"--query weather");
  EXPECT_EQ(host->Wait(PROGRAM_PATIENCE), 2U);
  EXPECT_TRUE(
      host->Errors().starts_with("--query: weather not in {user,directories,proxy,proxy-system,cloud-login}"))
      << host->Errors();
}

}  // namespace

}  // namespace ostrel::test
