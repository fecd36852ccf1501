#include "stand_in_process.h"

#include "text.h"

namespace ostrel::lab {

namespace {

constexpr DWORD END_LIMIT_MS = 10000;

std::wstring StandInProgram() {
  wchar_t path[MAX_PATH];
  const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
  if (length == 0 || length == MAX_PATH) throw SystemError("find the player's own path");
  const std::wstring own(path, length);
  return own.substr(0, own.rfind(L'\\') + 1) + L"OstrelLabProcess.exe";
}

}  // namespace

StandInProcess::StandInProcess(const std::wstring& directory, const std::wstring& image)
    : path_(directory + L"\\" + image) {
  if (!CopyFileW(StandInProgram().c_str(), path_.c_str(), FALSE))
    throw SystemError("copy to " + ToUtf8(path_));
  std::wstring commandLine = L"\"" + path_ + L"\" " + std::to_wstring(GetCurrentProcessId());
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION started{};
  if (!CreateProcessW(path_.c_str(), commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                      &startup, &started)) {
    const LabError error = SystemError("start " + ToUtf8(path_));
    DeleteFileW(path_.c_str());
    throw error;
  }
  CloseHandle(started.hThread);
  process_.Reset(started.hProcess);
  id_ = started.dwProcessId;
}

StandInProcess::~StandInProcess() {
  if (process_) End();
  if (!path_.empty()) DeleteFileW(path_.c_str());
}

void StandInProcess::End() {
  TerminateProcess(process_.Get(), 0);
  WaitForSingleObject(process_.Get(), END_LIMIT_MS);
  process_.Reset();
}

void StandInProcess::Vanish() {
  End();
  const ULONGLONG deadline = GetTickCount64() + END_LIMIT_MS;
  while (UniqueKernelHandle(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id_))) {
    if (GetTickCount64() > deadline)
      throw LabError("process " + std::to_string(id_) + " has ended but does not go away");
    Sleep(10);
  }
}

}  // namespace ostrel::lab
