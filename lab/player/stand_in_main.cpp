// OstrelLabProcess.exe: a process that does nothing under whatever image name it is started. It ends when the
// player ends it, when the player itself has ended, or after an hour.
#include <windows.h>

#include <cwchar>

#include "util/unique_handle.h"

namespace {

constexpr DWORD LONGEST_LIFE_MS = 3600000;
constexpr int BAD_COMMAND_LINE = 2;

}  // namespace

int WINAPI WinMain(HINSTANCE, HINSTANCE, char*, int) {
  // The last word of the command line is the player's process id.
  const wchar_t* const space = std::wcsrchr(GetCommandLineW(), L' ');
  if (space == nullptr) return BAD_COMMAND_LINE;
  const DWORD playerId = std::wcstoul(space + 1, nullptr, 10);
  const ostrel::UniqueKernelHandle player(OpenProcess(SYNCHRONIZE, FALSE, playerId));
  if (!player) return BAD_COMMAND_LINE;
  WaitForSingleObject(player.Get(), LONGEST_LIFE_MS);
  return 0;
}
