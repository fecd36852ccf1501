#ifndef OSTREL_USERHELPER_HELPER_CHANNEL_H
#define OSTREL_USERHELPER_HELPER_CHANNEL_H

#include <string>

#include "util/integers.h"

namespace ostrel {

// Launches a user helper that listens on a pipe whose name only it and the library know, and waits until the
// pipe is there. Returns the pipe's name.
//
// Throws ProcUtilException when the helper cannot be launched or its pipe does not appear in time; the status
// then holds the reason's word. A helper that is only late is left running.
std::wstring ConnectToUserHelper(std::wstring commandId, std::wstring responseId, std::wstring& status);

// Room for the answer of one type of request, and how long to wait for a pipe that is busy. The answer itself
// is waited for until the other end of the pipe closes: it is the helper that ends in time.
struct ExchangeLimits {
  ULong32 replyBytes;
  ULong32 timeOutMilliseconds;
};

// Writes the request into the pipe and reads the answer, up to its first zero. False with the system's code
// in `error` when the call fails, as it does for an answer larger than the room.
bool Exchange(const std::wstring& pipeName, const std::wstring& request, const ExchangeLimits& limits,
              std::wstring& reply, ULong32& error);

}  // namespace ostrel

#endif
