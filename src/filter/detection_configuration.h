#ifndef OSTREL_FILTER_DETECTION_CONFIGURATION_H
#define OSTREL_FILTER_DETECTION_CONFIGURATION_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "cache/tab_title_switch.h"
#include "detect/host_callbacks.h"
#include "filter/detection_message_builder.h"

namespace ostrel {

struct ActivityRequest {
  ActivityCallback callback = nullptr;
  std::wstring userName;
  std::vector<std::wstring> processNames;
  int processCount = 0;  // as the host gave it, for the log
  std::vector<std::wstring> excludePaths;
  int excludeCount = 0;  // likewise
  std::uint8_t driverOption = 0;
  bool tabTitles = false;
};

struct PcdRequest {
  PcdCallback callback = nullptr;
  std::vector<std::wstring> processNames;
  int processCount = 0;  // as the host gave it, for the log and for "none means off"
  std::vector<std::wstring> cloudPaths;
  int cloudPathCount = 0;  // likewise
  std::vector<std::wstring> cloudExcludePaths;
};

// Switches the two kinds of detection by sending the minifilter what to watch. A switch is set before the message is sent
// and stays set when sending fails; the results tell only whether the control port could be opened.
//
// Not synchronised: the caller serialises.
class DetectionConfiguration {
 public:
  DetectionConfiguration(HostCallbacks& callbacks, TabTitleSwitch& tabTitles);

  // Without sending anything.
  void ForgetSwitches();

  bool EnableActivity(const ActivityRequest& request);
  bool DisableActivity();
  bool EnablePcd(const PcdRequest& request);
  bool DisablePcd();
  void UpdateProcesses(std::vector<std::wstring> processNames, std::uint8_t driverOption);

 private:
  HostCallbacks& callbacks_;
  TabTitleSwitch& tabTitles_;
  DetectionMessageBuilder builder_;
  bool activityOn_ = false;
  bool pcdOn_ = false;
  std::array<wchar_t, 256> userName_{};  // at most 255 characters of the monitored user's account name
};

}  // namespace ostrel

#endif
