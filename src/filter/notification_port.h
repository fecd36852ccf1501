#ifndef OSTREL_FILTER_NOTIFICATION_PORT_H
#define OSTREL_FILTER_NOTIFICATION_PORT_H

#include <windows.h>

#include <atomic>

namespace ostrel {

// One connection to the minifilter's notification port, shared by the thread that reads it and the thread that unloads
// the driver. A new connection is a new object, so that a reader that is late to end can neither read from nor close its
// successor's handle. The destructor closes nothing: a port whose driver unloaded by itself stays open.
class NotificationPort {
 public:
  NotificationPort() = default;
  NotificationPort(const NotificationPort&) = delete;
  NotificationPort& operator=(const NotificationPort&) = delete;

  // Connects with this process's id and marks the port connected.
  HRESULT Connect();

  // Null once closed.
  HANDLE Get() const { return handle_; }

  bool IsConnected() const { return connected_; }
  void MarkDisconnected() { connected_ = false; }

  // Closes the handle, once whoever calls; the last error is that of closing.
  bool Close();

 private:
  std::atomic<HANDLE> handle_{nullptr};
  std::atomic<bool> connected_{false};
};

}  // namespace ostrel

#endif
