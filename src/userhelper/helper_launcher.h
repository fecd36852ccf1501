#ifndef OSTREL_USERHELPER_HELPER_LAUNCHER_H
#define OSTREL_USERHELPER_HELPER_LAUNCHER_H

#include <string>

#include "util/integers.h"

namespace ostrel {

// Id of the first active terminal session, 0 when there is none; session 0 itself, that of the services,
// counts as none.
ULong32 GetActiveSessionId();

// Starts a user helper for one request: from a service of the local system account, as the user of the active
// session; from any other program, as itself. The executable is sought relative to the current directory.
// Nobody waits for the helper: it answers one request and ends.
//
// Returns its process id. On a failure returns 0, writes a log line and overwrites the status with a word.
ULong32 SpawnUserHelper(const std::wstring& commandId, const std::wstring& channelName, std::wstring& status);

}  // namespace ostrel

#endif
