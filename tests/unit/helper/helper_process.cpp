#include "helper_process.h"

#include <gtest/gtest.h>
#include <windows.h>
// Needs windows.h before it.
#include <tlhelp32.h>

#include <atomic>
#include <stdexcept>
#include <vector>

namespace ostrel_test {

namespace {

using Clock = std::chrono::steady_clock;

DWORD Milliseconds(std::chrono::milliseconds duration) {
  return static_cast<DWORD>(duration.count());
}

// The reading end for the test, the writing end for the program.
std::pair<ostrel::UniqueKernelHandle, ostrel::UniqueKernelHandle> NewPipe() {
  SECURITY_ATTRIBUTES inheritable{sizeof(inheritable), nullptr, TRUE};
  HANDLE reading = nullptr;
  HANDLE writing = nullptr;
  if (!CreatePipe(&reading, &writing, &inheritable, 64 * 1024)) throw std::runtime_error("no pipe");
  SetHandleInformation(reading, HANDLE_FLAG_INHERIT, 0);
  return {ostrel::UniqueKernelHandle(reading), ostrel::UniqueKernelHandle(writing)};
}

std::string ReadAll(HANDLE pipe) {
  std::string all;
  char part[1024];
  DWORD length = 0;
  while (ReadFile(pipe, part, sizeof(part), &length, nullptr) && length != 0) all.append(part, length);
  return all;
}

}  // namespace

std::wstring NewChannelName() {
  static std::atomic<int> number{0};
  return L"test" + std::to_wstring(GetCurrentProcessId()) + L"x" + std::to_wstring(++number);
}

std::wstring PipeName(const std::wstring& channelName) {
  return L"\\\\.\\pipe\\OstrelUserHelper\\" + channelName;
}

bool WaitForPipe(const std::wstring& channelName) {
  const auto deadline = Clock::now() + PATIENCE;
  while (!WaitNamedPipeW(PipeName(channelName).c_str(), 100)) {
    if (Clock::now() > deadline) return false;
    Sleep(10);
  }
  return true;
}

Exchange Ask(const std::wstring& channelName, const std::wstring& request, DWORD replyBytes) {
  return AskInBytes(channelName, request.data(), static_cast<DWORD>(request.size() * sizeof(wchar_t)),
                    replyBytes);
}

Exchange AskInBytes(const std::wstring& channelName, const void* request, DWORD requestBytes,
                    DWORD replyBytes) {
  if (!WaitForPipe(channelName)) return {ERROR_SEM_TIMEOUT, {}};
  std::vector<wchar_t> reply(replyBytes / sizeof(wchar_t) + 1);
  DWORD read = 0;
  if (!CallNamedPipeW(PipeName(channelName).c_str(), const_cast<void*>(request), requestBytes, reply.data(),
                      replyBytes, &read, 2000)) {
    return {GetLastError(), {}};
  }
  EXPECT_LE(read, replyBytes - sizeof(wchar_t)) << "no room for the zero at the end";
  return {ERROR_SUCCESS, std::wstring(reply.data())};
}

ostrel::UniqueFileHandle Connect(const std::wstring& channelName) {
  EXPECT_TRUE(WaitForPipe(channelName));
  return ostrel::UniqueFileHandle(CreateFileW(PipeName(channelName).c_str(), GENERIC_READ | GENERIC_WRITE, 0,
                                              nullptr, OPEN_EXISTING, 0, nullptr));
}

bool WaitForBytes(HANDLE pipe) {
  const auto deadline = Clock::now() + PATIENCE;
  DWORD available = 0;
  while (PeekNamedPipe(pipe, nullptr, 0, nullptr, &available, nullptr) && available == 0) {
    if (Clock::now() > deadline) return false;
    Sleep(1);
  }
  return available != 0;
}

HelperProcess::HelperProcess(const std::wstring& wholeCommandLine) {
  auto [output, outputEnd] = NewPipe();
  auto [errors, errorsEnd] = NewPipe();
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = outputEnd.Get();
  startup.hStdError = errorsEnd.Get();
  PROCESS_INFORMATION information{};
  std::wstring words = wholeCommandLine;
  if (!CreateProcessW(HelperProgram().c_str(), words.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW,
                      nullptr, nullptr, &startup, &information)) {
    throw std::runtime_error("the helper cannot be started: " + std::to_string(GetLastError()));
  }
  firstThread_.Reset(information.hThread);
  process_.Reset(information.hProcess);
  output_ = std::move(output);
  errors_ = std::move(errors);
}

HelperProcess::~HelperProcess() {
  TerminateProcess(process_.Get(), 99);
  WaitForSingleObject(process_.Get(), INFINITE);
}

std::size_t HelperProcess::ThreadCount() const {
  const DWORD processId = GetProcessId(process_.Get());
  const ostrel::UniqueFileHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
  THREADENTRY32 thread{};
  thread.dwSize = sizeof(thread);
  std::size_t count = 0;
  for (BOOL isThere = Thread32First(snapshot.Get(), &thread); isThere;
       isThere = Thread32Next(snapshot.Get(), &thread)) {
    if (thread.th32OwnerProcessID == processId) ++count;
  }
  return count;
}

void HelperProcess::SuspendFirstThread() {
  EXPECT_NE(SuspendThread(firstThread_.Get()), static_cast<DWORD>(-1));
}

std::optional<DWORD> HelperProcess::ExitCode() {
  if (WaitForSingleObject(process_.Get(), Milliseconds(PATIENCE)) != WAIT_OBJECT_0) return std::nullopt;
  DWORD exitCode = 0;
  GetExitCodeProcess(process_.Get(), &exitCode);
  return exitCode;
}

std::string HelperProcess::Output() {
  return ReadAll(output_.Get());
}

std::string HelperProcess::Errors() {
  return ReadAll(errors_.Get());
}

std::filesystem::path HelperProgram() {
  wchar_t program[MAX_PATH];
  GetModuleFileNameW(nullptr, program, MAX_PATH);
  return (std::filesystem::path(program).parent_path() / OSTREL_STAGE_FROM_PROGRAM / L"OstrelUserHelper.exe")
      .lexically_normal();
}

}  // namespace ostrel_test
