#include "network/network_device.h"

#include <utility>

#include "log/log.h"
#include "network/packet_messages.h"
#include "util/installed_names.h"

namespace ostrel {

std::uint32_t NetworkDevice::Open() {
  device_ = CreateFileW(NETWORK_DEVICE_PATH, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                        nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
  if (device_ != INVALID_HANDLE_VALUE) return ERROR_SUCCESS;
  const DWORD error = GetLastError();
  if (error != ERROR_SUCCESS) Log(LOG_ERROR, L"Could not open monitoring. %ld", error);
  return error;
}

std::uint32_t NetworkDevice::EnableMonitoring() {
  DWORD error = ERROR_INVALID_PARAMETER;
  if (device_ != nullptr) {
    ostrel::EnableMonitoring input{1, 0};
    DWORD returned = 0;
    const BOOL sent = DeviceIoControl(device_, CONTROL_ENABLE_MONITORING, &input, sizeof(input), nullptr, 0,
                                      &returned, nullptr);
    error = sent ? ERROR_SUCCESS : GetLastError();
  }
  if (error != ERROR_SUCCESS) {
    Log(LOG_ERROR, L"Could not enable monitoring. %ld", error);
    return error;
  }
  Log(LOG_NOTABLE, L"Ostrel NW monitoring enabled.");
  return ERROR_SUCCESS;
}

void NetworkDevice::SendProcessList(const DetectionMessage& message) {
  DWORD returned = 0;
  if (DeviceIoControl(device_, CONTROL_PROCESS_LIST, const_cast<DetectionMessage*>(&message), sizeof(message),
                      nullptr, 0, &returned, nullptr)) {
    Log(LOG_NOTABLE, L"Sent proc names to nw filter. Existing proc count: %d ProcName Count: %d",
        message.processIdCount, message.processNameCount);
  } else {
    Log(LOG_NOTABLE, L"Failed to send proc names to nw filter: %d", GetLastError());
  }
}

void NetworkDevice::Close() {
  // A handle that was closed before is none: its number may be somebody else's by now.
  if (CloseHandle(std::exchange(device_, nullptr))) {
    Log(LOG_DETAIL, L"Closed handle to NW driver.");
  } else {
    Log(LOG_ERROR, L"Could not close handle to NW driver. Code: %lu", GetLastError());
  }
}

}  // namespace ostrel
