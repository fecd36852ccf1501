// OstrelUserHelper.exe: answers one request of OstrelFilterLib.dll in the session of the logged-in user, and
// ends. docs/helper-protocol.md describes what goes over the pipe.
#include <windows.h>

#include <chrono>
#include <exception>
#include <optional>
#include <string>

#include "command_line.h"
#include "failure.h"
#include "pipe_server.h"
#include "responder.h"
#include "watchdog.h"
#include "windows_registry.h"
#include "windows_session.h"

namespace {

using namespace ostrel::helper;
using namespace std::chrono_literals;

// The library looks for the pipe for a few seconds, and asks at once.
constexpr std::chrono::milliseconds CONNECT_PATIENCE = 20s;
constexpr std::chrono::milliseconds REQUEST_PATIENCE = 5s;
constexpr std::chrono::milliseconds FILE_PATIENCE = 60s;
constexpr std::chrono::milliseconds DELIVERY_PATIENCE = 5s;
constexpr std::chrono::milliseconds LONGEST_LIFE =
    CONNECT_PATIENCE + REQUEST_PATIENCE + FILE_PATIENCE + DELIVERY_PATIENCE + 5s;

int End(ExitCode exitCode) {
  return static_cast<int>(exitCode);
}

// Started by the library there is no console, and nobody reads it.
void Say(DWORD standardHandle, const std::string& text) {
  DWORD written = 0;
  WriteFile(GetStdHandle(standardHandle), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

void Complain(const std::string& message) {
  Say(STD_ERROR_HANDLE, "OstrelUserHelper: " + message + "\n");
}

// Some call of the system does not return, so nothing is left to be cleaned up in order.
void EndAtOnce() {
  Complain("took longer than it may live");
  TerminateProcess(GetCurrentProcess(), static_cast<UINT>(ExitCode::TimeUp));
}

void Serve(const Launch& launch) {
  PipeServer pipe(launch.channelName);
  const WindowsRegistry registry;
  WindowsSession session(registry, FILE_PATIENCE);
  const Responder responder(launch.commandId, session);
  pipe.WaitForClient(CONNECT_PATIENCE);
  const std::optional<std::wstring> reply = responder.Reply(pipe.ReadRequest(REQUEST_PATIENCE));
  if (!reply) throw Failure(ExitCode::NoRequest, "the request cannot be understood");
  pipe.Deliver(*reply, DELIVERY_PATIENCE);
}

}  // namespace

int main() {
  // A drive without a medium must not open a dialogue box that waits for the user.
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
  // What the system still loads later comes from the system's own folder, whatever lies beside the program.
  SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
  try {
    const CommandLine commandLine = ParseCommandLine(GetCommandLineW());
    if (!commandLine.launch) {
      const bool isError = commandLine.exitCode != ExitCode::Answered;
      Say(isError ? STD_ERROR_HANDLE : STD_OUTPUT_HANDLE, commandLine.text);
      return End(commandLine.exitCode);
    }
    const Watchdog watchdog(LONGEST_LIFE, EndAtOnce);
    Serve(*commandLine.launch);
    return End(ExitCode::Answered);
  } catch (const Failure& failure) {
    Complain(failure.what());
    return End(failure.Code());
  } catch (const std::exception& error) {
    Complain(std::string("unexpected error: ") + error.what());
    return End(ExitCode::Internal);
  }
}
