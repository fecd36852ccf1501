#include "userhelper/helper_launcher.h"

#include <windows.h>
// Need windows.h before them.
#include <userenv.h>
#include <wtsapi32.h>

#include "log/log.h"
#include "util/installed_names.h"
#include "util/unique_handle.h"

namespace ostrel {

namespace {

constexpr DWORD CREATION_FLAGS = CREATE_NO_WINDOW | CREATE_UNICODE_ENVIRONMENT | NORMAL_PRIORITY_CLASS;

struct SessionListPolicy {
  using Handle = WTS_SESSION_INFOW*;
  static Handle Invalid() noexcept { return nullptr; }
  static void Close(Handle list) noexcept { WTSFreeMemory(list); }
};
using UniqueSessionList = UniqueHandle<SessionListPolicy>;

struct EnvironmentPolicy {
  using Handle = void*;
  static Handle Invalid() noexcept { return nullptr; }
  static void Close(Handle block) noexcept { DestroyEnvironmentBlock(block); }
};
using UniqueEnvironment = UniqueHandle<EnvironmentPolicy>;

struct StartedProcess {
  UniqueKernelHandle process;
  UniqueKernelHandle thread;  // closed first
  DWORD id = 0;

  explicit operator bool() const { return static_cast<bool>(process); }
};

// How the helper is started, whoever it runs as. No program name stands in front of the command line.
class Launch {
 public:
  Launch(const std::wstring& commandId, const std::wstring& channelName)
      : commandLine_(commandId + L' ' + channelName) {
    startup_.cb = sizeof(startup_);
    startup_.lpDesktop = desktop_.data();
  }

  StartedProcess AsUser(HANDLE token, void* environment) {
    PROCESS_INFORMATION started{};
    const BOOL isStarted =
        CreateProcessAsUserW(token, SERVICE_MODE_HELPER, commandLine_.data(), nullptr, nullptr, FALSE,
                             CREATION_FLAGS, environment, nullptr, &startup_, &started);
    return isStarted ? Own(started) : StartedProcess{};
  }

  StartedProcess AsSelf() {
    PROCESS_INFORMATION started{};
    const BOOL isStarted = CreateProcessW(APPLICATION_MODE_HELPER, commandLine_.data(), nullptr, nullptr,
                                          FALSE, CREATION_FLAGS, nullptr, nullptr, &startup_, &started);
    return isStarted ? Own(started) : StartedProcess{};
  }

 private:
  static StartedProcess Own(const PROCESS_INFORMATION& started) {
    return {UniqueKernelHandle(started.hProcess), UniqueKernelHandle(started.hThread), started.dwProcessId};
  }

  std::wstring commandLine_;
  std::wstring desktop_ = L"winsta0\\default";
  STARTUPINFOW startup_{};
};

StartedProcess StartAsUser(Launch& launch, UniqueKernelHandle token, std::wstring& status) {
  void* block = nullptr;
  if (!CreateEnvironmentBlock(&block, token.Get(), TRUE)) {
    status = L"NO_ENV_CREATED";
    Log(LOG_ERROR, L"No environment could be created.");
    return {};
  }
  UniqueEnvironment environment(block);
  StartedProcess started = launch.AsUser(token.Get(), environment.Get());
  environment.Reset();
  token.Reset();
  if (started) {
    Log(LOG_DETAIL, L"Created Ostrel user proc successfully.");
  } else {
    status = L"PROCCREATE_FAILURE";
    Log(LOG_ERROR, L"Could not create process when running as a service");
  }
  return started;
}

StartedProcess StartAsSelf(Launch& launch, std::wstring& status) {
  StartedProcess started = launch.AsSelf();
  if (started) {
    Log(LOG_DETAIL, L"Created Ostrel user proc successfully when running as an application.");
  } else {
    const DWORD error = GetLastError();
    status = L"PROCCREATE_FAILURE";
    Log(LOG_ERROR, L"couldn't create proc as non service (lastError=%d)", error);
  }
  return started;
}

}  // namespace

ULong32 GetActiveSessionId() {
  WTS_SESSION_INFOW* sessions = nullptr;
  DWORD count = 0;
  if (!WTSEnumerateSessionsW(WTS_CURRENT_SERVER_HANDLE, 0, 1, &sessions, &count)) return 0;
  const UniqueSessionList list(sessions);
  for (DWORD i = 0; i < count; ++i) {
    if (sessions[i].State == WTSActive) return sessions[i].SessionId;
  }
  return 0;
}

ULong32 SpawnUserHelper(const std::wstring& commandId, const std::wstring& channelName,
                        std::wstring& status) {
  if (commandId.empty()) {
    status = L"INVALID_COMMANDID";
    Log(LOG_ERROR, L"invalid sub-process commandId");
    return 0;
  }
  if (channelName.empty()) {
    status = L"INVALID_CHANNELNAME";
    Log(LOG_ERROR, L"invalid channel name");
    return 0;
  }
  Launch launch(commandId, channelName);
  const ULong32 session = GetActiveSessionId();
  if (session == 0) {
    status = L"NO_LOGGEDIN_USER";
    Log(LOG_NOTABLE, L"No one logged in");
    return 0;
  }
  // Only a service of the local system account may have a user's token.
  HANDLE token = nullptr;
  const StartedProcess started = WTSQueryUserToken(session, &token)
                                     ? StartAsUser(launch, UniqueKernelHandle(token), status)
                                     : StartAsSelf(launch, status);
  return started.id;
}

}  // namespace ostrel
