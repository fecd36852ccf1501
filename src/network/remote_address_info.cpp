#include "network/remote_address_info.h"

#include <memory>
#include <new>

#include "log/log.h"
#include "network/driver_service.h"
#include "network/filtering_platform.h"

namespace ostrel {

namespace {

// Null when memory is short, which must not keep the steps after it from being taken.
std::unique_ptr<DetectionMessage> BuildProcessList(const DetectionMessageBuilder& builder,
                                                   const TextList& processNames, bool activityOn) {
  try {
    return builder.Build(DetectionKind::Activity, {processNames.Copy(), 0, activityOn});
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace

RemoteAddressInfo::RemoteAddressInfo(NetworkEventCache& uploads, NetworkEventCache& downloads)
    : uploads_(uploads), downloads_(downloads), reader_(uploads, downloads) {}

void RemoteAddressInfo::Enable(const wchar_t* user, const DetectionMessageBuilder& builder,
                               const TextList& processNames, bool activityOn) {
  if (isOn_) {
    Log(LOG_DETAIL, L"Remote address capturing already enabled.");
    return;
  }
  isOn_ = true;
  Log(LOG_NOTABLE, L"Turning on tracking of remote address info.");
  StartNetworkDriverService();
  const auto processList = BuildProcessList(builder, processNames, activityOn);
  AddCallouts(IPV4_CALLOUTS);
  AddCallouts(IPV6_CALLOUTS);
  MonitorTraffic(user);
  reader_.Start(device_.Get());
  Log(LOG_NOTABLE, L"Connected to NW driver successfully.");
  if (processList) {
    device_.SendProcessList(*processList);
  } else {
    Log(LOG_NOTABLE, L"Failed to send proc names to nw filter: %d", ERROR_NOT_ENOUGH_MEMORY);
  }
}

void RemoteAddressInfo::MonitorTraffic(const wchar_t* user) {
  if (OpenMonitoringSession(monitoringSession_) != ERROR_SUCCESS || device_.Open() != ERROR_SUCCESS) return;
  std::uint32_t status = AddFilters(monitoringSession_, IPV4_FILTERS, user);
  if (status != ERROR_SUCCESS) {
    Log(LOG_ERROR, L"Could not add filters. %ld", status);
    return;
  }
  status = AddFilters(monitoringSession_, IPV6_FILTERS, user);
  if (status != ERROR_SUCCESS) {
    Log(LOG_ERROR, L"Could not add V6 filters. %ld", status);
    return;
  }
  device_.EnableMonitoring();
}

void RemoteAddressInfo::Disable() {
  if (!isOn_) {
    Log(LOG_DETAIL, L"Remote address capturing already disabled.");
    return;
  }
  isOn_ = false;
  Log(LOG_NOTABLE, L"Turning off tracking of remote address info.");
  StopServiceAndReader();
  uploads_.PurgeAllEvents();
  downloads_.PurgeAllEvents();
}

void RemoteAddressInfo::RestartServiceIfOn() {
  if (isOn_) StartNetworkDriverService();
}

bool RemoteAddressInfo::Suspend() {
  return !isOn_ || StopServiceAndReader();
}

bool RemoteAddressInfo::StopServiceAndReader() {
  const bool stopped = StopNetworkDriverService();
  reader_.Stop();
  device_.Close();
  monitoringSession_ = nullptr;
  Log(LOG_NOTABLE, L"Disconnected from NW driver successfully.");
  return stopped;
}

void RemoteAddressInfo::SendProcessListIfOn(const DetectionMessage& processList) {
  if (isOn_) device_.SendProcessList(processList);
}

}  // namespace ostrel
