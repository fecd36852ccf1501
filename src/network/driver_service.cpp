#include "network/driver_service.h"

#include <windows.h>

#include "log/log.h"
#include "util/installed_names.h"
#include "util/unique_handle.h"

namespace ostrel {

namespace {

struct OpenedService {
  UniqueServiceHandle manager;
  UniqueServiceHandle service;

  explicit operator bool() const { return static_cast<bool>(service); }

  // Leaves the last error as closing left it.
  void Close() {
    service.Close();
    manager.Close();
  }
};

OpenedService OpenNetworkDriverService() {
  OpenedService opened;
  opened.manager = UniqueServiceHandle(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
  if (!opened.manager) {
    Log(LOG_ERROR, L"OpenSCManager failed (%d).", GetLastError());
    return opened;
  }
  opened.service = UniqueServiceHandle(
      OpenServiceW(opened.manager.Get(), NETWORK_DRIVER_SERVICE_NAME, SERVICE_ALL_ACCESS));
  if (!opened.service) Log(LOG_ERROR, L"OpenService failed (%d).", GetLastError());
  return opened;
}

}  // namespace

bool StartNetworkDriverService() {
  StopNetworkDriverService();
  OpenedService opened = OpenNetworkDriverService();
  if (!opened) return false;
  if (!StartServiceW(opened.service.Get(), 0, nullptr)) {
    Log(LOG_ERROR, L"StartService failed (%d).", GetLastError());
    return false;
  }
  opened.Close();
  Log(LOG_NOTABLE, L"Started nw filter driver successfully.");
  return true;
}

bool StopNetworkDriverService() {
  OpenedService opened = OpenNetworkDriverService();
  if (!opened) return false;
  SERVICE_STATUS_PROCESS state{};
  DWORD needed = 0;
  if (!QueryServiceStatusEx(opened.service.Get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&state),
                            sizeof(state), &needed)) {
    // The code is read after closing, here and below, and so may be closing's own.
    opened.Close();
    Log(LOG_ERROR, L"QueryServiceStatusEx failed. %d", GetLastError());
    return false;
  }
  SERVICE_STATUS stopped{};
  if (!ControlService(opened.service.Get(), SERVICE_CONTROL_STOP, &stopped)) {
    opened.Close();
    Log(LOG_NOTABLE, L"ControlService failed to stop network filter or it wasn't running. %d",
        GetLastError());
    return false;
  }
  opened.Close();
  Log(LOG_NOTABLE, L"Stopped nw filter driver successfully.");
  return true;
}

}  // namespace ostrel
