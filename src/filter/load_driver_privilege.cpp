#include "filter/load_driver_privilege.h"

#include <windows.h>

#include "log/log.h"
#include "util/unique_handle.h"

namespace ostrel {

namespace {

std::uint32_t LogFailure(const wchar_t* format) {
  const DWORD error = GetLastError();
  Log(LOG_ERROR, format, error);
  return error;
}

}  // namespace

std::uint32_t EnableLoadDriverPrivilege() {
  HANDLE opened = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &opened)) {
    return LogFailure(L"Could not open current process. %lu");
  }
  const UniqueKernelHandle token(opened);
  TOKEN_PRIVILEGES privileges{};
  privileges.PrivilegeCount = 1;
  privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
  if (!LookupPrivilegeValueW(nullptr, L"SeLoadDriverPrivilege", &privileges.Privileges[0].Luid)) {
    return LogFailure(L"Could not look up privilege. %lu");
  }
  if (!AdjustTokenPrivileges(token.Get(), FALSE, &privileges, 0, nullptr, nullptr)) {
    return LogFailure(L"Could not adjust token privilege. %lu");
  }
  return 0;
}

}  // namespace ostrel
