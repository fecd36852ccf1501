// The smallest host that does something: prints what chrome.exe uploads and downloads until Ctrl+C is
// pressed.
#include <windows.h>

#include <api/exports.h>

#include <clocale>
#include <cstdio>
#include <filesystem>

namespace {

// Windows gives the control handler no context.
HANDLE stop = nullptr;

BOOL WINAPI OnControl(DWORD) {
  return SetEvent(stop);
}

// Runs on whatever thread of the library has something to say, on several at once.
void OnLog(const wchar_t* text, std::uint32_t level) {
  std::fwprintf(stderr, L"%u %ls\n", level, text);
}

// Runs on the library's disk event thread, one call at a time. Everything it is given is gone when it
// returns.
void OnActivity(const wchar_t* fileName, const wchar_t* processName, const wchar_t* user, std::uint64_t,
                std::uint32_t fileEventType, std::int32_t, wchar_t**, std::uint32_t*, wchar_t**, std::int32_t,
                wchar_t**, const wchar_t*, std::uint8_t, const wchar_t*, const wchar_t*, std::uint32_t,
                const wchar_t*, const wchar_t*) {
  const wchar_t* const kind = fileEventType == 0 ? L"Upload" : L"Download";
  std::wprintf(L"%ls of %ls by %ls (%ls)\n", kind, fileName, user, processName);
  std::fflush(stdout);
}

// The library starts OstrelUserHelper.exe from the current directory.
void EnterProgramFolder() {
  wchar_t program[32768];
  GetModuleFileNameW(nullptr, program, 32768);
  std::filesystem::current_path(std::filesystem::path(program).parent_path());
}

}  // namespace

int main() {
  std::setlocale(LC_ALL, "");  // for file names beyond ASCII
  stop = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  SetConsoleCtrlHandler(OnControl, TRUE);
  EnterProgramFolder();

  // Level 3 shows failures only; 6 shows what happens, 7 every event.
  if (!LoadDriver(OnLog, 3)) return 1;
  const wchar_t* processes[] = {L"chrome.exe"};
  const bool isOn = EnableActivityDetection(OnActivity, L"", processes, 1, nullptr, 0, 0, false, true) != 0;
  if (isOn) {
    std::puts("Watching. Ctrl+C ends it.");
    std::fflush(stdout);
    // The minifilter is told which processes run, so it must be told again when more have started.
    while (WaitForSingleObject(stop, 5000) == WAIT_TIMEOUT) UpdateProcesses(processes, 1, 0);
    DisableActivityDetection();
  }
  return UnloadDriver() && isOn ? 0 : 1;
}
