// OstrelUserHelper.exe: answers one request of OstrelFilterLib.dll in the session of the logged-in user, and
// ends. docs/helper-protocol.md describes what goes over the pipe.
#include <windows.h>

#include "program.h"

int main() {
  // A drive without a medium must not open a dialogue box that waits for the user.
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
  // What the system still loads later comes from the system's own folder, whatever lies beside the program.
  // For what is imported that comes too late: whoever may write into this folder could replace the program
  // just as well.
  SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
  return static_cast<int>(ostrel::helper::RunProgram(GetCommandLineW()));
}
