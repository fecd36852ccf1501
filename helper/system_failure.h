#ifndef OSTREL_HELPER_SYSTEM_FAILURE_H
#define OSTREL_HELPER_SYSTEM_FAILURE_H

#include <windows.h>

#include <string>

#include "failure.h"
#include "util/unique_handle.h"

namespace ostrel::helper {

inline Failure SystemFailure(ExitCode exitCode, const std::string& what, DWORD error) {
  return Failure(exitCode, what + " (error " + std::to_string(error) + ")");
}

// Signalled by hand, and not yet.
inline UniqueKernelHandle NewEvent() {
  UniqueKernelHandle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  if (!event) throw SystemFailure(ExitCode::Internal, "no event could be created", GetLastError());
  return event;
}

}  // namespace ostrel::helper

#endif
