// The library's queries and the host's, on Wine's own management instrumentation and Internet settings. Of
// the lab only the property system is needed.

#include <windows.h>
// Needs windows.h before it.
#include <objbase.h>

#include <optional>

#include "api/exports.h"
#include "e2e/lab_fixture.h"

namespace ostrel::test {

namespace {

constexpr wchar_t CONNECTIONS[] =
    L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings\\Connections";
constexpr wchar_t SETTINGS[] = L"DefaultConnectionSettings";

// What the settings say is in use, and in which order their texts follow.
enum SettingsInUse : std::uint8_t { NO_PROXY = 1, FIXED_PROXY = 2, PROXY_SCRIPT = 4 };

// The Internet settings of this user, put back at the end.
class InternetSettings {
 public:
  InternetSettings() {
    EXPECT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, CONNECTIONS, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key_,
                              nullptr),
              ERROR_SUCCESS);
    DWORD size = 0;
    if (RegQueryValueExW(key_, SETTINGS, nullptr, nullptr, nullptr, &size) != ERROR_SUCCESS) return;
    before_.emplace(size);
    RegQueryValueExW(key_, SETTINGS, nullptr, nullptr, before_->data(), &size);
  }
  InternetSettings(const InternetSettings&) = delete;
  InternetSettings& operator=(const InternetSettings&) = delete;
  ~InternetSettings() {
    if (before_) {
      Write(*before_);
    } else {
      RegDeleteValueW(key_, SETTINGS);
    }
    RegCloseKey(key_);
  }

  void Set(std::uint8_t inUse, const std::string& proxy, const std::string& scriptUrl) {
    std::vector<BYTE> settings{0x46, 0, 0, 0, 1, 0, 0, 0, inUse, 0, 0, 0};
    for (const std::string& text : {proxy, std::string(), scriptUrl}) {
      settings.insert(settings.end(), {static_cast<BYTE>(text.size()), 0, 0, 0});
      settings.insert(settings.end(), text.begin(), text.end());
    }
    settings.resize(settings.size() + 32);
    Write(settings);
  }

 private:
  void Write(const std::vector<BYTE>& settings) {
    EXPECT_EQ(
        RegSetValueExW(key_, SETTINGS, 0, REG_BINARY, settings.data(), static_cast<DWORD>(settings.size())),
        ERROR_SUCCESS);
  }

  HKEY key_ = nullptr;
  std::optional<std::vector<BYTE>> before_;
};

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
  nlohmann::json AskHost(const std::wstring& query) {
    const auto host = StartHost(L"--query " + query);
    EXPECT_EQ(host->Wait(PROGRAM_PATIENCE), 0U) << host->Errors();
    EXPECT_EQ(host->Errors(), "");
    const std::string output = host->Output();
    EXPECT_EQ(output.find('\n'), output.size() - 1) << output;
    return nlohmann::json::parse(output);
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

TEST_F(HostQuery, NeedsNoDriverFile) {
  const std::filesystem::path bare = std::filesystem::temp_directory_path() / "ostrel-e2e" / "query";
  std::filesystem::remove_all(bare);
  std::filesystem::create_directories(bare);
  for (const char* file : {"OstrelHost.exe", "OstrelFilterLib.dll", "propsys.dll"}) {
    std::filesystem::copy_file(StageDirectory() / file, bare / file);
  }
  Program host(L"\"" + (bare / "OstrelHost.exe").wstring() + L"\" --query user", bare / "host");
  EXPECT_EQ(host.Wait(PROGRAM_PATIENCE), 0U) << host.Errors();
}

TEST_F(HostQuery, IsNotKnownUnderAnyOtherName) {
  const auto host = StartHost(L"--query weather");
  EXPECT_EQ(host->Wait(PROGRAM_PATIENCE), 2U);
  EXPECT_TRUE(host->Errors().starts_with("--query: weather not in {user,directories,proxy"))
      << host->Errors();
}

}  // namespace

}  // namespace ostrel::test
