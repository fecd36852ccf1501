#include "lab_network_driver.h"

#include <stdexcept>

namespace ostrel::bench {

namespace {

constexpr wchar_t SERVICE_NAME[] = L"OstrelNWFilterBenchmark";

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

LabNetworkDriver::LabNetworkDriver(const std::wstring& driverFile)
    : manager_(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)) {
  if (!manager_) ThrowLastError("opening the service manager");
  // Left behind by a run that was ended.
  if (const UniqueServiceHandle old(OpenServiceW(manager_.Get(), SERVICE_NAME, SERVICE_ALL_ACCESS)); old) {
    StopAndDelete(old.Get());
  }
  service_.Reset(CreateServiceW(manager_.Get(), SERVICE_NAME, SERVICE_NAME, SERVICE_ALL_ACCESS,
                                SERVICE_KERNEL_DRIVER, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                                driverFile.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
  if (!service_) ThrowLastError("creating the driver's service");
  if (StartServiceW(service_.Get(), 0, nullptr)) {
    player_.Reset(CreateFileW(OSTREL_LAB_NETWORK_PLAYER_PATH, GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                              OPEN_EXISTING, 0, nullptr));
    if (player_) return;
  }
  const DWORD error = GetLastError();
  StopAndDelete(service_.Get());
  SetLastError(error);
  ThrowLastError("starting the lab's network driver");
}

LabNetworkDriver::~LabNetworkDriver() {
  player_.Reset();
  StopAndDelete(service_.Get());
}

void LabNetworkDriver::Flood(const OstrelLabFlood& flood) {
  Control(OSTREL_LAB_NETWORK_PLAYER_FLOOD, &flood, sizeof(flood), nullptr, 0);
}

OstrelLabNetworkStatus LabNetworkDriver::Status() {
  OstrelLabNetworkStatus status{};
  Control(OSTREL_LAB_NETWORK_PLAYER_STATUS, nullptr, 0, &status, sizeof(status));
  return status;
}

void LabNetworkDriver::Control(std::uint32_t code, const void* input, std::size_t inputSize, void* output,
                               std::size_t outputSize) {
  DWORD returned = 0;
  if (!DeviceIoControl(player_.Get(), code, const_cast<void*>(input), static_cast<DWORD>(inputSize), output,
                       static_cast<DWORD>(outputSize), &returned, nullptr)) {
    ThrowLastError("a request to the lab's network driver");
  }
}

}  // namespace ostrel::bench
