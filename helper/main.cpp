// OstrelUserHelper.exe: answers one request of OstrelFilterLib.dll in the session of the logged-in user, and
// ends. docs/helper-protocol.md describes what goes over the pipe.
#include <windows.h>

#include "program.h"

int main() {
  // A drive without a medium must not open a dialogue box that waits for the user.
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
  return static_cast<int>(ostrel::helper::RunProgram(GetCommandLineW()));
}
