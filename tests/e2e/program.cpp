#include "e2e/program.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace ostrel::test {

namespace {

constexpr DWORD POLL_MILLISECONDS = 50;

std::filesystem::path WithSuffix(std::filesystem::path path, const wchar_t* suffix) {
  return path += suffix;
}

UniqueFileHandle CreateOutput(const std::filesystem::path& path) {
  SECURITY_ATTRIBUTES inheritable{sizeof(inheritable), nullptr, TRUE};
  return UniqueFileHandle(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                      &inheritable, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
}

}  // namespace

Program::Program(const std::wstring& commandLine, const std::filesystem::path& output) : output_(output) {
  const UniqueFileHandle standardOutput = CreateOutput(WithSuffix(output, L".out"));
  const UniqueFileHandle standardError = CreateOutput(WithSuffix(output, L".err"));
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = standardOutput.Get();
  startup.hStdError = standardError.Get();
  PROCESS_INFORMATION information{};
  std::wstring words = commandLine;
  if (!CreateProcessW(nullptr, words.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                      &information)) {
    throw std::runtime_error("a program cannot be started: " + std::to_string(GetLastError()));
  }
  CloseHandle(information.hThread);
  process_.Reset(information.hProcess);
}

Program::~Program() {
  if (!IsRunning()) return;
  TerminateProcess(process_.Get(), 99);
  WaitForSingleObject(process_.Get(), INFINITE);
}

std::optional<DWORD> Program::Wait(std::chrono::seconds patience) {
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(patience).count();
  if (WaitForSingleObject(process_.Get(), static_cast<DWORD>(milliseconds)) != WAIT_OBJECT_0)
    return std::nullopt;
  DWORD exitCode = 0;
  GetExitCodeProcess(process_.Get(), &exitCode);
  return exitCode;
}

bool Program::IsRunning() const {
  return WaitForSingleObject(process_.Get(), 0) == WAIT_TIMEOUT;
}

std::string Program::Output() const {
  return ReadFile(WithSuffix(output_, L".out"));
}

std::string Program::Errors() const {
  return ReadFile(WithSuffix(output_, L".err"));
}

bool Program::WaitForError(const std::string& text, std::chrono::seconds patience) const {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (Errors().find(text) == std::string::npos) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    Sleep(POLL_MILLISECONDS);
  }
  return true;
}

std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace ostrel::test
