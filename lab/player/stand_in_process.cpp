#include "stand_in_process.h"

#include "parent_attribute.h"
#include "text.h"

namespace ostrel::lab {

namespace {

constexpr DWORD END_LIMIT_MS = 10000;
constexpr DWORD WINDOWS_LIMIT_MS = 30000;
constexpr DWORD POLL_MS = 10;

std::wstring StandInProgram() {
  wchar_t path[MAX_PATH];
  const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
  if (length == 0 || length == MAX_PATH) throw SystemError("find the player's own path");
  const std::wstring own(path, length);
  return own.substr(0, own.rfind(L'\\') + 1) + L"OstrelLabProcess.exe";
}

// As stand_in_main.cpp reads it.
std::wstring CommandLine(const std::wstring& path, const ProcessEntry& entry) {
  std::wstring commandLine = L"\"" + path + L"\" " + std::to_wstring(GetCurrentProcessId());
  for (const std::string& title : entry.windowTitles) commandLine += L'\x1F' + ToWide(title);
  return commandLine;
}

struct WindowCount {
  DWORD processId = 0;
  std::size_t count = 0;
};

BOOL CALLBACK CountWindow(HWND window, LPARAM parameter) {
  auto* const windows = reinterpret_cast<WindowCount*>(parameter);
  DWORD processId = 0;
  GetWindowThreadProcessId(window, &processId);
  if (processId == windows->processId && IsWindowVisible(window)) ++windows->count;
  return TRUE;
}

std::size_t VisibleWindowsOf(DWORD processId) {
  WindowCount windows{processId};
  EnumWindows(CountWindow, reinterpret_cast<LPARAM>(&windows));
  return windows.count;
}

}  // namespace

StandInProcess StandInProcess::Start(const std::wstring& directory, const ProcessEntry& entry,
                                     const StandInProcess* parent) {
  StandInProcess process(directory + L"\\" + ToWide(entry.image));
  process.Run(entry, parent);
  process.WaitForWindows(entry.windowTitles.size());
  return process;
}

StandInProcess::~StandInProcess() {
  if (process_) End();
  if (!path_.empty()) DeleteFileW(path_.c_str());
}

void StandInProcess::Run(const ProcessEntry& entry, const StandInProcess* parent) {
  if (!CopyFileW(StandInProgram().c_str(), path_.c_str(), FALSE))
    throw SystemError("copy to " + ToUtf8(path_));
  std::wstring commandLine = CommandLine(path_, entry);
  ParentAttribute attribute(parent == nullptr ? nullptr : parent->process_.Get());
  STARTUPINFOEXW startup{};
  startup.StartupInfo.cb = sizeof(startup);
  startup.lpAttributeList = attribute.List();
  PROCESS_INFORMATION started{};
  if (!CreateProcessW(path_.c_str(), commandLine.data(), nullptr, nullptr, FALSE,
                      EXTENDED_STARTUPINFO_PRESENT, nullptr, nullptr, &startup.StartupInfo, &started)) {
    throw SystemError("start " + ToUtf8(path_));
  }
  CloseHandle(started.hThread);
  process_.Reset(started.hProcess);
  id_ = started.dwProcessId;
}

void StandInProcess::WaitForWindows(std::size_t count) {
  const ULONGLONG deadline = GetTickCount64() + WINDOWS_LIMIT_MS;
  while (VisibleWindowsOf(id_) < count) {
    if (WaitForSingleObject(process_.Get(), POLL_MS) == WAIT_OBJECT_0 || GetTickCount64() > deadline) {
      throw LabError(ToUtf8(path_) +
                     " cannot open its windows. Under Wine they need an X display: is DISPLAY set?");
    }
  }
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
    Sleep(POLL_MS);
  }
}

}  // namespace ostrel::lab
