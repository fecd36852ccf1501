#include "lab_driver.h"

#include <stdexcept>

namespace ostrel::bench {

namespace {

// Both marks a service for deletion, which happens when its last handle closes, and lets the driver go.
void StopAndDelete(SC_HANDLE service) {
  SERVICE_STATUS status{};
  ControlService(service, SERVICE_CONTROL_STOP, &status);
  DeleteService(service);
}

}  // namespace

void ThrowLastError(const std::string& what) {
  throw std::runtime_error(what + " failed with " + std::to_string(GetLastError()));
}

LabDriver::LabDriver(std::wstring serviceName, const std::wstring& driverFile)
    : manager_(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)) {
  if (!manager_) ThrowLastError("opening the service manager");
  // Left behind by a run that was ended.
  if (const UniqueServiceHandle old(OpenServiceW(manager_.Get(), serviceName.c_str(), SERVICE_ALL_ACCESS));
      old) {
    StopAndDelete(old.Get());
  }
  service_.Reset(CreateServiceW(manager_.Get(), serviceName.c_str(), serviceName.c_str(), SERVICE_ALL_ACCESS,
                                SERVICE_KERNEL_DRIVER, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                                driverFile.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
  if (!service_) ThrowLastError("creating the driver's service");
  if (StartServiceW(service_.Get(), 0, nullptr)) return;
  const DWORD error = GetLastError();
  StopAndDelete(service_.Get());
  SetLastError(error);
  ThrowLastError("starting the lab's driver");
}

LabDriver::~LabDriver() {
  StopAndDelete(service_.Get());
}

}  // namespace ostrel::bench
