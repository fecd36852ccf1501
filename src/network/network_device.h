#ifndef OSTREL_NETWORK_NETWORK_DEVICE_H
#define OSTREL_NETWORK_NETWORK_DEVICE_H

#include <windows.h>

#include <cstdint>

#include "filter/port_messages.h"

namespace ostrel {

// The network driver's device. Not synchronised: the caller serialises; the packet reader works on the handle
// it was given at its start.
class NetworkDevice {
 public:
  NetworkDevice() = default;
  NetworkDevice(const NetworkDevice&) = delete;
  NetworkDevice& operator=(const NetworkDevice&) = delete;

  // Opens the device for overlapped requests, in place of a handle held before. 0, or the system's error
  // code.
  std::uint32_t Open();

  // Tells the driver to start monitoring. 0, or the system's error code.
  std::uint32_t EnableMonitoring();

  // Tells the driver which processes to monitor.
  void SendProcessList(const DetectionMessage& message);

  // Closes the handle. A second closing fails and says so, without touching anything.
  void Close();

  HANDLE Get() const { return device_; }

 private:
  HANDLE device_ = nullptr;
};

}  // namespace ostrel

#endif
