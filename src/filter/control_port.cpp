#include "filter/control_port.h"

#include <windows.h>
// Needs windows.h before it.
#include <fltuser.h>

#include "log/log.h"
#include "util/installed_names.h"
#include "util/unique_handle.h"

namespace ostrel {

bool SendToDrivers(const DetectionMessage& message, RemoteAddressInfo& remoteAddressInfo) {
  HANDLE opened = nullptr;
  const HRESULT connected =
      FilterConnectCommunicationPort(CONTROL_PORT_NAME, 0, nullptr, 0, nullptr, &opened);
  if (FAILED(connected)) {
    Log(LOG_ERROR, L"Error opening port for updating monitored processes: HResult: %x", connected);
    return false;
  }
  const UniqueKernelHandle port(opened);
  DWORD returned = 0;
  const HRESULT sent = FilterSendMessage(port.Get(), const_cast<DetectionMessage*>(&message), sizeof(message),
                                         nullptr, 0, &returned);
  if (FAILED(sent)) Log(LOG_ERROR, L"Error getting message while updating kernel filter: HResult: %x", sent);
  if (message.kind == static_cast<std::uint8_t>(DetectionKind::Activity))
    remoteAddressInfo.SendProcessListIfOn(message);
  return true;
}

}  // namespace ostrel
