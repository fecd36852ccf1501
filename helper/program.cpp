#include "program.h"

#include <windows.h>

#include <chrono>
#include <exception>
#include <string>
#include <string_view>

#include "command_line.h"
#include "failure.h"
#include "pipe_server.h"
#include "responder.h"
#include "service.h"
#include "system_failure.h"
#include "watched_session.h"
#include "windows_registry.h"
#include "windows_session.h"

namespace ostrel::helper {

namespace {

using namespace std::chrono_literals;

// The library looks for the pipe for a few seconds, and asks at once.
constexpr Service::Patience SERVICE_PATIENCE{.launcher = 20s, .client = 1s, .delivery = 5s};
// Nothing but the end of the pipe can free the library of a request that takes longer than it has time for.
constexpr WatchedSession::Patience ANSWER_PATIENCE{.metadata = 10s, .anythingElse = 2s};
// Leaves time to say that it was not enough.
constexpr std::chrono::milliseconds FILE_PATIENCE = 9s;

// Started by the library there is no console, and nobody reads it.
void Say(DWORD standardHandle, std::string_view text) {
  DWORD written = 0;
  WriteFile(GetStdHandle(standardHandle), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

void Complain(const std::string& message) {
  Say(STD_ERROR_HANDLE, "OstrelUserHelper: " + message + "\n");
}

// Some call of the system does not return, so nothing is left to be cleaned up in order. Takes no memory:
// that call may hold the lock. The pipe comes first: a process keeps its handles until its last thread has
// left the kernel, and writing a line may have to wait for whoever reads it.
void EndAtOnce(PipeServer& pipe) {
  pipe.Break();
  Say(STD_ERROR_HANDLE, "OstrelUserHelper: the answer took too long\n");
  TerminateProcess(GetCurrentProcess(), static_cast<UINT>(ExitCode::TimeUp));
}

// What the system still loads later comes from the system's own folder, whatever lies beside the program. For
// what is imported that comes too late: whoever may write into this folder could replace the program just as
// well.
void LoadFromTheSystemsFolderOnly() {
  if (!SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32)) {
    throw SystemFailure(ExitCode::Internal, "other folders than the system's cannot be shut out",
                        GetLastError());
  }
}

void Serve(const Launch& launch) {
  LoadFromTheSystemsFolderOnly();
  PipeServer pipe(launch.channelName);
  const WindowsRegistry registry;
  WindowsSession windows(registry, FILE_PATIENCE);
  WatchedSession session(windows, ANSWER_PATIENCE, [&pipe] { EndAtOnce(pipe); });
  const Responder responder(launch.commandId, session);
  Service(pipe, responder, SERVICE_PATIENCE, Complain).ServeLauncher();
}

}  // namespace

ExitCode RunProgram(std::wstring_view whole) {
  try {
    const CommandLine commandLine = ParseCommandLine(whole);
    if (!commandLine.launch) {
      const bool isError = commandLine.exitCode != ExitCode::Answered;
      Say(isError ? STD_ERROR_HANDLE : STD_OUTPUT_HANDLE, commandLine.text);
      return commandLine.exitCode;
    }
    Serve(*commandLine.launch);
    return ExitCode::Answered;
  } catch (const Failure& failure) {
    Complain(failure.what());
    return failure.Code();
  } catch (const std::exception& error) {
    Complain(std::string("unexpected error: ") + error.what());
    return ExitCode::Internal;
  }
}

}  // namespace ostrel::helper
