#include "filter/notification_port.h"

// Needs windows.h before it.
#include <fltuser.h>

#include "filter/port_messages.h"
#include "util/installed_names.h"

namespace ostrel {

NotificationPort::~NotificationPort() {
  if (handle_ != nullptr) Close();
}

HRESULT NotificationPort::Connect() {
  const ConnectionContext context{GetCurrentProcessId(), PROTOCOL_CODE};
  HANDLE handle = nullptr;
  const HRESULT result =
      FilterConnectCommunicationPort(NOTIFICATION_PORT_NAME, 0, &context, sizeof(context), nullptr, &handle);
  if (FAILED(result)) return result;
  handle_ = handle;
  connected_ = true;
  return result;
}

bool NotificationPort::Close() {
  return CloseHandle(handle_.exchange(nullptr)) != FALSE;
}

}  // namespace ostrel
