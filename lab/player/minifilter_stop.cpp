#include "minifilter_stop.h"

#include "text.h"
#include "util/unique_handle.h"

namespace ostrel::lab {

namespace {

// Longer than the driver waits for its client to acknowledge the unload notice.
constexpr ULONGLONG STOP_LIMIT_MS = 15000;
constexpr DWORD POLL_MS = 10;

}  // namespace

void StopMinifilter() {
  const UniqueServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  if (!manager) throw SystemError("open the service manager");
  const UniqueServiceHandle service(
      OpenServiceW(manager.Get(), L"OstrelFilter", SERVICE_STOP | SERVICE_QUERY_STATUS));
  if (!service) throw SystemError("open the service OstrelFilter");
  SERVICE_STATUS status{};
  if (!ControlService(service.Get(), SERVICE_CONTROL_STOP, &status)) throw SystemError("stop OstrelFilter");
  const ULONGLONG deadline = GetTickCount64() + STOP_LIMIT_MS;
  for (;;) {
    if (!QueryServiceStatus(service.Get(), &status)) throw SystemError("ask for the state of OstrelFilter");
    if (status.dwCurrentState == SERVICE_STOPPED) return;
    if (GetTickCount64() >= deadline) throw LabError("OstrelFilter did not stop within 15 seconds");
    Sleep(POLL_MS);
  }
}

}  // namespace ostrel::lab
