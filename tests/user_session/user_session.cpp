#include "user_session.h"

#include <windows.h>
// Needs windows.h before it.
#include <tlhelp32.h>

#include <cwchar>

#include "log/log.h"
#include "userhelper/helper_requests.h"
#include "util/unique_handle.h"

namespace ostrel::test {

namespace {

constexpr wchar_t SESSION_VARIABLE[] = L"OSTREL_LAB_SESSION";

template <typename Getter>
Answer AnswerOf(const LibraryCopy& library, Getter getter) {
  wchar_t* result = nullptr;
  wchar_t* error = nullptr;
  getter(&result, &error);
  const auto take = [&](wchar_t* text) -> std::optional<std::string> {
    if (text == nullptr) return std::nullopt;
    std::string taken = Narrow(text);
    library.DeallocStringPointer(&text);
    return taken;
  };
  return {take(result), take(error)};
}

bool IsHelperOfOurs(const PROCESSENTRY32W& process) {
  return process.th32ParentProcessID == GetCurrentProcessId() &&
         _wcsicmp(process.szExeFile, L"OstrelUserHelper.exe") == 0;
}

}  // namespace

void PrintTo(const Answer& answer, std::ostream* stream) {
  *stream << "result " << answer.result.value_or("(none)") << ", error " << answer.error.value_or("(none)");
}

void PrintTo(const Titles& titles, std::ostream* stream) {
  *stream << titles.status << " " << ::testing::PrintToString(titles.titles);
}

UserSession::UserSession() : formerFolder_(std::filesystem::current_path()) {
  SetSession(L"application");
  SetLogSink(&Transcript::RecordLog, LOG_DETAIL);
  // Lies without the drivers here, and so fails, but not before it has kept the log callback.
  EXPECT_EQ(library_.LoadDriver(&Transcript::RecordLog, LOG_DETAIL), 0);
  transcript_.Clear();
}

UserSession::~UserSession() {
  EXPECT_TRUE(WaitUntilNoHelperRuns());
  SetLogSink(nullptr, 0);
  for (const std::wstring& name : variables_) SetEnvironmentVariableW(name.c_str(), nullptr);
  std::filesystem::current_path(formerFolder_);
}

void UserSession::SetSession(const wchar_t* session) {
  SetVariable(SESSION_VARIABLE, session);
}

void UserSession::SetVariable(const wchar_t* name, const std::wstring& value) {
  variables_.insert(name);
  ASSERT_TRUE(SetEnvironmentVariableW(name, value.c_str()));
}

void UserSession::GoTo(const std::filesystem::path& folder) {
  std::filesystem::current_path(folder);
}

std::filesystem::path UserSession::Stage() {
  return std::filesystem::path(LibraryCopy::OriginalPath()).parent_path();
}

Answer UserSession::AskForProxy() {
  return AnswerOf(library_,
                  library_.Find<decltype(&GetAutoProxyConfigUrlForSystem)>("GetAutoProxyConfigUrlForSystem"));
}

Answer UserSession::AskForLogin(const std::wstring& provider, const std::wstring& homeDirectory) {
  const auto getter = library_.Find<decltype(&GetCloudStorageProviderLoginForSystem)>(
      "GetCloudStorageProviderLoginForSystem");
  return AnswerOf(library_, [&](wchar_t** result, wchar_t** error) {
    getter(provider.c_str(), homeDirectory.c_str(), result, error);
  });
}

Titles UserSession::AskForTitles() {
  std::wstring status;
  Titles titles;
  for (const std::wstring& title : GetTabTitlesFromUserHelper(GetCurrentProcessId(), L"chrome.exe", status)) {
    titles.titles.push_back(Narrow(title));
  }
  titles.status = Narrow(status);
  return titles;
}

MetaData UserSession::AskForMetaData(const std::filesystem::path& file) {
  std::wstring status;
  FileMetaData metaData = GetFileMetaDataFromUserHelper(file.wstring(), status);
  return {Narrow(status), std::move(metaData)};
}

Lines UserSession::Logs() const {
  Lines lines;
  // The texts of the request and of the reply hold random identifiers.
  for (const std::string& line : transcript_.Logs()) {
    if (line.find("Sending ") == std::string::npos && line.find("Received buffer ") == std::string::npos) {
      lines.push_back(line);
    }
  }
  return lines;
}

std::string UserSession::Received() const {
  for (const std::string& line : transcript_.Logs()) {
    if (line.find("Received buffer ") != std::string::npos) return line.substr(line.rfind(": ") + 2);
  }
  ADD_FAILURE() << "nothing was received";
  return {};
}

bool UserSession::DoesAHelperRun() {
  const UniqueFileHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  PROCESSENTRY32W process{};
  process.dwSize = sizeof(process);
  for (BOOL more = Process32FirstW(snapshot.Get(), &process); more;
       more = Process32NextW(snapshot.Get(), &process)) {
    if (IsHelperOfOurs(process)) return true;
  }
  return false;
}

bool UserSession::WaitUntilNoHelperRuns() const {
  const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
  while (DoesAHelperRun()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    Sleep(10);
  }
  return true;
}

}  // namespace ostrel::test
