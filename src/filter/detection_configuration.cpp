#include "filter/detection_configuration.h"

#include <string>
#include <vector>

#include "filter/control_port.h"
#include "log/log.h"

namespace ostrel {

namespace {

void LogEach(const wchar_t* format, const std::vector<std::wstring>& names) {
  for (const std::wstring& name : names) Log(LOG_DETAIL, format, name.c_str());
}

}  // namespace

DetectionConfiguration::DetectionConfiguration(HostCallbacks& callbacks, TabTitleSwitch& tabTitles,
                                               RemoteAddressInfo& remoteAddressInfo)
    : callbacks_(callbacks), tabTitles_(tabTitles), remoteAddressInfo_(remoteAddressInfo) {}

void DetectionConfiguration::ForgetSwitches() {
  pcdOn_ = false;
  activityOn_ = false;
}

bool DetectionConfiguration::EnableActivity(const ActivityRequest& request) {
  if (activityOn_) {
    Log(LOG_NOTABLE, L"Application activity already turned on.");
    return false;
  }
  activityOn_ = true;
  callbacks_.activity = request.callback;
  CopyBounded(request.userName == nullptr ? L"" : request.userName, userName_.data(), userName_.size());
  // Asking for titles switches nothing on: capture stays as it is.
  if (!request.tabTitles) tabTitles_.Disable();
  for (const std::wstring& path : request.excludePaths.Copy()) {
    Log(LOG_DETAIL, L"Excluding path: %s", builder_.AddExcludedPath(path).c_str());
  }
  Log(LOG_NOTABLE, L"Created filter processor with pCount=%d, exCount=%d", request.processNames.count,
      request.excludePaths.count);
  const std::vector<std::wstring> names = request.processNames.Copy();
  LogEach(L"Monitoring process: %s", names);
  const auto message = builder_.Build(DetectionKind::Activity, {names, request.driverOption, true});
  if (request.remoteAddressInfo) EnableRemoteAddressInfo(request.processNames);
  Log(LOG_NOTABLE, L"Enabled Application Activity Detection.");
  return SendToDrivers(*message, remoteAddressInfo_);
}

bool DetectionConfiguration::DisableActivity() {
  if (!activityOn_) {
    Log(LOG_NOTABLE, L"Application activity already disabled.");
    // Unlike DisablePcd: switching off what is off is a failure here and a success there.
    return false;
  }
  // Not taken back, whatever becomes of the message: for want of memory the driver is not told.
  activityOn_ = false;
  const auto message = builder_.Build(DetectionKind::Activity, {});
  Log(LOG_NOTABLE, L"Disabled Application Activity Detection.");
  return SendToDrivers(*message, remoteAddressInfo_);
}

bool DetectionConfiguration::EnablePcd(const PcdRequest& request) {
  if (request.processNames.count == 0) {
    Log(LOG_NOTABLE, L"No cloud processes. Turning PCD off");
    return DisablePcd();
  }
  // No guard against a second call: its paths are appended and everything is sent again.
  pcdOn_ = true;
  callbacks_.pcd = request.callback;
  for (const std::wstring& path : request.cloudPaths.Copy()) {
    Log(LOG_DETAIL, L"Cloud path: %s", builder_.AddCloudPath(path).c_str());
  }
  for (const std::wstring& path : request.cloudExcludePaths.Copy()) {
    Log(LOG_DETAIL, L"Cloud exclude path: %s", builder_.AddCloudExclusionPath(path).c_str());
  }
  // "exCount" is the number of cloud paths, not of cloud exclude paths.
  Log(LOG_NOTABLE, L"Created filter processor with cloud pCount=%d, exCount=%d", request.processNames.count,
      request.cloudPaths.count);
  const std::vector<std::wstring> names = request.processNames.Copy();
  LogEach(L"Monitoring cloud process: %s", names);
  const auto message = builder_.Build(DetectionKind::CloudDrive, {names, 0, true});
  Log(LOG_NOTABLE, L"Enabled PCD Detection.");
  return SendToDrivers(*message, remoteAddressInfo_);
}

bool DetectionConfiguration::DisablePcd() {
  if (!pcdOn_) {
    Log(LOG_NOTABLE, L"PCD already turned off.");
    return true;
  }
  pcdOn_ = false;
  const auto message = builder_.Build(DetectionKind::CloudDrive, {});
  Log(LOG_NOTABLE, L"Disabled PCD detection.");
  return SendToDrivers(*message, remoteAddressInfo_);
}

void DetectionConfiguration::EnableRemoteAddressInfo(const TextList& processNames) {
  remoteAddressInfo_.Enable(userName_.data(), builder_, processNames, activityOn_);
}

void DetectionConfiguration::UpdateProcesses(const TextList& processNames, std::uint8_t driverOption) {
  const auto message =
      builder_.Build(DetectionKind::Activity, {processNames.Copy(), driverOption, activityOn_});
  SendToDrivers(*message, remoteAddressInfo_);
  Log(LOG_NOTABLE, L"Successfully updated processes to monitor.");
}

}  // namespace ostrel
