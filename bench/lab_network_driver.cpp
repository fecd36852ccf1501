#include "lab_network_driver.h"

namespace ostrel::bench {

LabNetworkDriver::LabNetworkDriver(const std::wstring& driverFile)
    : driver_(L"OstrelNWFilterBenchmark", driverFile),
      player_(CreateFileW(OSTREL_LAB_NETWORK_PLAYER_PATH, GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                          OPEN_EXISTING, 0, nullptr)) {
  if (!player_) ThrowLastError("opening the lab's network driver");
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
