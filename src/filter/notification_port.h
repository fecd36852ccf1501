#ifndef OSTREL_FILTER_NOTIFICATION_PORT_H
#define OSTREL_FILTER_NOTIFICATION_PORT_H

#include <windows.h>

#include <atomic>

namespace ostrel {

// One connection to the minifilter's notification port, shared by the thread that reads it and the thread
// that unloads the driver. A new connection is a new object, so that a reader that is late to end sees its
// own handle gone and cannot close its successor's. What nobody closed, as after a driver that left by
// itself, is closed with the last owner.
class NotificationPort {
 public:
  NotificationPort() = default;
  NotificationPort(const NotificationPort&) = delete;
  NotificationPort& operator=(const NotificationPort&) = delete;
  ~NotificationPort();

  // Connects with this process's id and marks the port connected.
  HRESULT Connect();

  // Null once closed.
  HANDLE Get() const { return handle_; }

  bool IsConnected() const { return connected_; }
  void MarkDisconnected() { connected_ = false; }

  // Closes the handle. Once it is closed this fails, without touching anything, with the last error of an
  // invalid handle.
  bool Close();

 private:
  std::atomic<HANDLE> handle_{nullptr};
  std::atomic<bool> connected_{false};
};

}  // namespace ostrel

#endif
