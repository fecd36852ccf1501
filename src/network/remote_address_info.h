#ifndef OSTREL_NETWORK_REMOTE_ADDRESS_INFO_H
#define OSTREL_NETWORK_REMOTE_ADDRESS_INFO_H

#include "filter/detection_message_builder.h"
#include "network/network_device.h"
#include "network/network_event_cache.h"
#include "network/packet_reader.h"
#include "util/text.h"

namespace ostrel {

// The network driver's side of the library: starts and stops everything that makes detections name their
// endpoints. Each step logs what fails; only a filter that is refused shows nowhere but in what the filtering
// platform then holds. Not synchronised: the caller serialises.
class RemoteAddressInfo {
 public:
  RemoteAddressInfo(NetworkEventCache& uploads, NetworkEventCache& downloads);

  bool IsOn() const { return isOn_; }

  // For the traffic of `user` (an account name) and the named processes. A step that fails keeps none of the
  // next from being taken, except that monitoring is not enabled without session, device and filters.
  void Enable(const wchar_t* user, const DetectionMessageBuilder& builder, const TextList& processNames,
              bool activityOn);

  void Disable();

  // The driver's service is stopped while drivers are installed. When this feature is on, the service starts
  // again, and only it: reading goes on after the next enabling.
  void RestartServiceIfOn();

  // Stops service and reader when on, and stays on. False when the service could not be stopped.
  bool Suspend();

  void SendProcessListIfOn(const DetectionMessage& processList);

 private:
  void MonitorTraffic(const wchar_t* user);
  bool StopServiceAndReader();

  NetworkEventCache& uploads_;
  NetworkEventCache& downloads_;
  NetworkDevice device_;
  PacketReaderThread reader_;
  bool isOn_ = false;
  // Never closed: the filters must stay in force until the process ends, also after this handle is forgotten.
  HANDLE monitoringSession_ = nullptr;
};

}  // namespace ostrel

#endif
