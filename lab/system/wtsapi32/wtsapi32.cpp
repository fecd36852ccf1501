// The three functions of the terminal services library that the products use. The environment variable
// OSTREL_LAB_SESSION of the calling process says what they stand in for:
//
//   application  (or not set) one user is logged on, and the caller is an ordinary program, which may not
//   have
//                the user's token
//   service      one user is logged on, and the caller is a service, which may
//   none         nobody is logged on
#include <windows.h>
// Needs windows.h before it.
#include <wtsapi32.h>

#include <cwchar>

namespace {

constexpr DWORD SERVICES_SESSION = 0;
constexpr DWORD USER_SESSION = 1;

enum class Setting { Application, Service, Nobody };

Setting CurrentSetting() {
  wchar_t value[32]{};
  GetEnvironmentVariableW(L"OSTREL_LAB_SESSION", value, ARRAYSIZE(value));
  if (std::wcscmp(value, L"service") == 0) return Setting::Service;
  if (std::wcscmp(value, L"none") == 0) return Setting::Nobody;
  return Setting::Application;
}

struct SessionList {
  WTS_SESSION_INFOW sessions[2];
  wchar_t services[16];
  wchar_t console[16];
};

BOOL Refuse(DWORD error) {
  SetLastError(error);
  return FALSE;
}

}  // namespace

// Session 0 comes first, as on Windows; services live there and nobody is active in it.
BOOL WINAPI WTSEnumerateSessionsW(HANDLE server, DWORD reserved, DWORD version, PWTS_SESSION_INFOW* sessions,
                                  DWORD* count) {
  if (server != WTS_CURRENT_SERVER_HANDLE) return Refuse(ERROR_INVALID_HANDLE);
  if (reserved != 0 || version != 1 || sessions == nullptr || count == nullptr) {
    return Refuse(ERROR_INVALID_PARAMETER);
  }
  auto* const list =
      static_cast<SessionList*>(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, sizeof(SessionList)));
  if (list == nullptr) return Refuse(ERROR_NOT_ENOUGH_MEMORY);
  std::wcscpy(list->services, L"Services");
  std::wcscpy(list->console, L"Console");
  list->sessions[0] = {SERVICES_SESSION, list->services, WTSDisconnected};
  list->sessions[1] = {USER_SESSION, list->console,
                       CurrentSetting() == Setting::Nobody ? WTSConnected : WTSActive};
  *sessions = list->sessions;
  *count = ARRAYSIZE(list->sessions);
  return TRUE;
}

void WINAPI WTSFreeMemory(PVOID memory) {
  HeapFree(GetProcessHeap(), 0, memory);
}

// The user is the one that runs Wine: its processes all belong to one account.
BOOL WINAPI WTSQueryUserToken(ULONG session, PHANDLE token) {
  if (token == nullptr) return Refuse(ERROR_INVALID_PARAMETER);
  const Setting setting = CurrentSetting();
  if (setting == Setting::Application) return Refuse(ERROR_PRIVILEGE_NOT_HELD);
  if (session != USER_SESSION || setting == Setting::Nobody) return Refuse(ERROR_NO_TOKEN);
  HANDLE own = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_DUPLICATE | TOKEN_QUERY, &own)) return FALSE;
  const BOOL duplicated =
      DuplicateTokenEx(own, TOKEN_ALL_ACCESS, nullptr, SecurityImpersonation, TokenPrimary, token);
  const DWORD error = GetLastError();
  CloseHandle(own);
  if (!duplicated) SetLastError(error);
  return duplicated;
}
