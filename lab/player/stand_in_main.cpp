// OstrelLabProcess.exe: a process that does nothing but show its windows, under whatever image name it is
// started. It ends when the player ends it, when the player itself has ended, or after an hour.
#include <windows.h>

#include <cwchar>
#include <string>
#include <vector>

#include "util/unique_handle.h"

namespace {

constexpr DWORD LONGEST_LIFE_MS = 3600000;
constexpr int BAD_COMMAND_LINE = 2;
constexpr int NO_WINDOW = 3;
constexpr wchar_t TITLE_MARK = L'\x1F';
constexpr wchar_t WINDOW_CLASS[] = L"OstrelLabProcess";

struct Arguments {
  DWORD playerId = 0;
  std::vector<std::wstring> titles;
};

// "path" PLAYER-ID, and before each title a mark that no title holds.
Arguments ReadArguments(const std::wstring& commandLine) {
  Arguments arguments;
  std::size_t mark = commandLine.find(TITLE_MARK);
  const std::size_t space = commandLine.rfind(L' ', mark);
  if (space == std::wstring::npos) return arguments;
  arguments.playerId = std::wcstoul(commandLine.c_str() + space + 1, nullptr, 10);
  while (mark != std::wstring::npos) {
    const std::size_t next = commandLine.find(TITLE_MARK, mark + 1);
    arguments.titles.push_back(commandLine.substr(mark + 1, next - mark - 1));
    mark = next;
  }
  return arguments;
}

// A new window is the topmost one, so the first title comes last.
bool OpenWindows(HINSTANCE instance, const std::vector<std::wstring>& titles) {
  WNDCLASSW windowClass{};
  windowClass.lpfnWndProc = DefWindowProcW;
  windowClass.hInstance = instance;
  windowClass.lpszClassName = WINDOW_CLASS;
  RegisterClassW(&windowClass);
  for (auto title = titles.rbegin(); title != titles.rend(); ++title) {
    if (CreateWindowExW(0, WINDOW_CLASS, title->c_str(), WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, 200, 100,
                        nullptr, nullptr, instance, nullptr) == nullptr) {
      return false;
    }
  }
  return true;
}

void ServeWindowsUntilEndOf(HANDLE player) {
  const ULONGLONG deadline = GetTickCount64() + LONGEST_LIFE_MS;
  for (ULONGLONG now = GetTickCount64(); now < deadline; now = GetTickCount64()) {
    const DWORD left = static_cast<DWORD>(deadline - now);
    if (MsgWaitForMultipleObjects(1, &player, FALSE, left, QS_ALLINPUT) != WAIT_OBJECT_0 + 1) return;
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&message);
  }
}

}  // namespace

int WINAPI WinMain(HINSTANCE instance, HINSTANCE, char*, int) {
  const Arguments arguments = ReadArguments(GetCommandLineW());
  const ostrel::UniqueKernelHandle player(OpenProcess(SYNCHRONIZE, FALSE, arguments.playerId));
  if (!player) return BAD_COMMAND_LINE;
  if (arguments.titles.empty()) {
    WaitForSingleObject(player.Get(), LONGEST_LIFE_MS);
    return 0;
  }
  if (!OpenWindows(instance, arguments.titles)) return NO_WINDOW;
  ServeWindowsUntilEndOf(player.Get());
  return 0;
}
