#include "minifilter_service.h"

#include "util/unique_handle.h"

namespace ostrel::lab {

namespace {

constexpr HRESULT FILTER_NOT_FOUND = static_cast<HRESULT>(0x801F0013);

// Longer than the driver waits for its client to acknowledge the unload notice.
constexpr ULONGLONG STATE_CHANGE_LIMIT_MS = 15000;
constexpr DWORD STATE_POLL_MS = 10;

HRESULT LastError() {
  return HRESULT_FROM_WIN32(GetLastError());
}

HRESULT OpenEffectiveToken(UniqueKernelHandle& token) {
  HANDLE opened = nullptr;
  if (!OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &opened)) {
    if (GetLastError() != ERROR_NO_TOKEN) return LastError();
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened)) return LastError();
  }
  token.Reset(opened);
  return S_OK;
}

HRESULT RequireLoadDriverPrivilege() {
  UniqueKernelHandle token;
  const HRESULT opened = OpenEffectiveToken(token);
  if (FAILED(opened)) return opened;
  PRIVILEGE_SET needed{};
  needed.PrivilegeCount = 1;
  needed.Control = PRIVILEGE_SET_ALL_NECESSARY;
  if (!LookupPrivilegeValueW(nullptr, L"SeLoadDriverPrivilege", &needed.Privilege[0].Luid))
    return LastError();
  BOOL held = FALSE;
  if (!PrivilegeCheck(token.Get(), &needed, &held)) return LastError();
  return held ? S_OK : HRESULT_FROM_WIN32(ERROR_PRIVILEGE_NOT_HELD);
}

HRESULT OpenDriverService(const wchar_t* name, UniqueServiceHandle& service) {
  const UniqueServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  if (!manager) return LastError();
  service.Reset(OpenServiceW(manager.Get(), name, SERVICE_START | SERVICE_STOP | SERVICE_QUERY_STATUS));
  return service ? S_OK : LastError();
}

HRESULT WaitForState(SC_HANDLE service, DWORD wanted) {
  const ULONGLONG deadline = GetTickCount64() + STATE_CHANGE_LIMIT_MS;
  for (;;) {
    SERVICE_STATUS status{};
    if (!QueryServiceStatus(service, &status)) return LastError();
    if (status.dwCurrentState == wanted) return S_OK;
    // A driver that fails to start goes back to stopped with the reason.
    if (status.dwCurrentState == SERVICE_STOPPED && status.dwWin32ExitCode != NO_ERROR) {
      return HRESULT_FROM_WIN32(status.dwWin32ExitCode);
    }
    if (GetTickCount64() >= deadline) return HRESULT_FROM_WIN32(ERROR_SERVICE_REQUEST_TIMEOUT);
    Sleep(STATE_POLL_MS);
  }
}

}  // namespace

HRESULT LoadMinifilter(const wchar_t* serviceName) {
  if (serviceName == nullptr) return E_INVALIDARG;
  const HRESULT privileged = RequireLoadDriverPrivilege();
  if (FAILED(privileged)) return privileged;
  UniqueServiceHandle service;
  const HRESULT opened = OpenDriverService(serviceName, service);
  if (FAILED(opened)) return opened;
  if (!StartServiceW(service.Get(), 0, nullptr)) return LastError();
  return WaitForState(service.Get(), SERVICE_RUNNING);
}

HRESULT UnloadMinifilter(const wchar_t* serviceName) {
  if (serviceName == nullptr) return E_INVALIDARG;
  const HRESULT privileged = RequireLoadDriverPrivilege();
  if (FAILED(privileged)) return privileged;
  UniqueServiceHandle service;
  const HRESULT opened = OpenDriverService(serviceName, service);
  if (opened == HRESULT_FROM_WIN32(ERROR_SERVICE_DOES_NOT_EXIST)) return FILTER_NOT_FOUND;
  if (FAILED(opened)) return opened;
  SERVICE_STATUS status{};
  if (!ControlService(service.Get(), SERVICE_CONTROL_STOP, &status)) {
    return GetLastError() == ERROR_SERVICE_NOT_ACTIVE ? FILTER_NOT_FOUND : LastError();
  }
  return WaitForState(service.Get(), SERVICE_STOPPED);
}

}  // namespace ostrel::lab
