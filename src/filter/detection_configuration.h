#ifndef OSTREL_FILTER_DETECTION_CONFIGURATION_H
#define OSTREL_FILTER_DETECTION_CONFIGURATION_H

#include <array>
#include <cstdint>

#include "cache/tab_title_switch.h"
#include "detect/host_callbacks.h"
#include "filter/detection_message_builder.h"
#include "network/remote_address_info.h"
#include "util/text.h"

namespace ostrel {

// What the host asks for, in its own arrays: nothing is read or copied before it is known that the call does
// anything.
struct ActivityRequest {
  ActivityCallback callback = nullptr;
  const wchar_t* userName = nullptr;  // null is empty
  TextList processNames;
  TextList excludePaths;
  std::uint8_t driverOption = 0;
  bool remoteAddressInfo = false;
  bool tabTitles = false;
};

struct PcdRequest {
  PcdCallback callback = nullptr;
  TextList processNames;
  TextList cloudPaths;
  TextList cloudExcludePaths;
};

// Switches the two kinds of detection by sending the minifilter what to watch. A switch is set before the
// message is sent and stays set when sending fails; the results tell only whether the control port could be
// opened.
//
// Not synchronised: the caller serialises.
class DetectionConfiguration {
 public:
  DetectionConfiguration(HostCallbacks& callbacks, TabTitleSwitch& tabTitles,
                         RemoteAddressInfo& remoteAddressInfo);

  // Without sending anything.
  void ForgetSwitches();

  bool EnableActivity(const ActivityRequest& request);
  bool DisableActivity();
  bool EnablePcd(const PcdRequest& request);
  bool DisablePcd();
  void EnableRemoteAddressInfo(const TextList& processNames);
  void UpdateProcesses(const TextList& processNames, std::uint8_t driverOption);

 private:
  HostCallbacks& callbacks_;
  TabTitleSwitch& tabTitles_;
  RemoteAddressInfo& remoteAddressInfo_;
  DetectionMessageBuilder builder_;
  bool activityOn_ = false;
  bool pcdOn_ = false;
  // The monitored user's account name. Never cleared.
  std::array<wchar_t, 256> userName_{};
};

}  // namespace ostrel

#endif
