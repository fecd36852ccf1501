#include "api/library.h"

#include <windows.h>
// Needs windows.h before it.
#include <fltuser.h>

#include <utility>

#include "filter/cache_hooks.h"
#include "filter/driver_installer.h"
#include "filter/load_driver_privilege.h"
#include "network/driver_service.h"
#include "util/installed_names.h"

namespace ostrel {

namespace {

// From here on threads of the library may run at any time, also after UnloadDriver: what they run must stay
// in the process, however often the host frees the library.
void StayInTheProcess() {
  HMODULE module = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                     reinterpret_cast<const wchar_t*>(&StayInTheProcess), &module);
}

// HRESULT of loading a filter whose service already runs.
constexpr HRESULT SERVICE_ALREADY_RUNNING = static_cast<HRESULT>(0x80070420);

ReadEventCache MakeReadEventCache() {
  UserLookup userLookup = GetUserOfProcess;
  TabTitleLookup tabTitleLookup = GetTabTitlesOfProcess;
  DirectoryTest directoryTest = IsDirectory;
  return ReadEventCache(userLookup, tabTitleLookup, directoryTest);
}

}  // namespace

Library& Library::Instance() {
  static Library& instance = *new Library;
  return instance;
}

Library::Library()
    : ignoredSuffixes_{L".part", L".crdownload", L".partial", L".opdownload", L".tmp", L".lnk"},
      uploads_(MakeReadEventCache()),
      downloads_(MakeReadEventCache()),
      cloudDrive_(MakeReadEventCache()),
      uploadStreams_(1),
      downloadStreams_(0),
      tabTitles_(uploads_, downloads_),
      remoteAddressInfo_(uploadStreams_, downloadStreams_),
      configuration_(callbacks_, tabTitles_, remoteAddressInfo_),
      reporter_(callbacks_),
      worker_({uploads_, downloads_, cloudDrive_, uploadStreams_, downloadStreams_, sentEvents_}, reporter_),
      diskEventThread_(worker_),
      port_(std::make_shared<NotificationPort>()) {
  StayInTheProcess();
}

bool Library::Load(LogSink logCallback, std::uint32_t logLevel) {
  const std::lock_guard lock(apiMutex_);
  if (started_) {
    Log(LOG_NOTABLE, L"Ostrel filtering library already started.");
    return true;
  }
  SetLogSink(logCallback, static_cast<std::int32_t>(logLevel));
  configuration_.ForgetSwitches();
  cloudDrive_.DisableTabTitleCapture();
  if (!InstallDrivers() || !LoadMinifilter()) return false;
  remoteAddressInfo_.RestartServiceIfOn();
  if (!ConnectToMinifilter()) return false;
  diskEventThread_.Start();
  started_ = true;
  Log(LOG_NOTABLE, L"LoadDriver was successful.");
  return true;
}

bool Library::InstallDrivers() {
  if (!InstallDriver(MINIFILTER_INF, MINIFILTER_SYS)) {
    Log(LOG_ERROR, L"Could not install OstrelFilter driver");
    return false;
  }
  StopNetworkDriverService();
  if (!InstallDriver(NETWORK_DRIVER_INF, NETWORK_DRIVER_SYS)) {
    Log(LOG_ERROR, L"Could not install OstrelNWFilter driver");
    return false;
  }
  return true;
}

bool Library::LoadMinifilter() {
  if (EnableLoadDriverPrivilege() != 0) {
    Log(LOG_ERROR, L"Could not enable SE_LOAD_DRIVER_NAME privilege");
    return false;
  }
  const HRESULT result = FilterLoad(MINIFILTER_SERVICE_NAME);
  if (result == S_OK || result == SERVICE_ALREADY_RUNNING) return true;
  Log(LOG_ERROR, L"Could not start driver service: HResult: %x", result);
  return false;
}

bool Library::ConnectToMinifilter() {
  auto port = std::make_shared<NotificationPort>();
  const HRESULT result = port->Connect();
  if (FAILED(result)) {
    Log(LOG_ERROR, L"Could not connect to driver communication port: HResult: %x", result);
    return false;
  }
  port_ = port;
  if (!StartNotificationThread(
          port, {uploads_, downloads_, cloudDrive_, irpQueries_, irpQueriesMutex_, ignoredSuffixes_})) {
    // The port stays open and counts as connected.
    Log(LOG_ERROR, L"Could not start receive notification thread. Code: %lu", GetLastError());
    return false;
  }
  return true;
}

bool Library::Unload() {
  const std::lock_guard lock(apiMutex_);
  if (!started_) {
    Log(LOG_NOTABLE, L"Ostrel filtering library already unloaded.");
    return true;
  }
  started_ = false;
  const bool unloaded = UnloadMinifilter();
  diskEventThread_.Stop();
  const bool suspended = remoteAddressInfo_.Suspend();
  return unloaded && suspended;
}

bool Library::UnloadMinifilter() {
  if (!port_->IsConnected()) return true;
  if (EnableLoadDriverPrivilege() != 0) {
    Log(LOG_ERROR, L"Could not enable privilege");
    return false;
  }
  const HRESULT result = FilterUnload(MINIFILTER_SERVICE_NAME);
  if (result != S_OK) Log(LOG_ERROR, L"Could not unload driver. %x", result);
  // Whether or not the driver went: without its port the notification loop ends too.
  if (port_->Close()) {
    Log(LOG_NOTABLE, L"Closed driver handle successfully");
  } else {
    Log(LOG_NOTABLE, L"Failed to close driver handle: %d", GetLastError());
  }
  return result == S_OK;
}

bool Library::EnableActivity(const ActivityRequest& request) {
  const std::lock_guard lock(apiMutex_);
  return configuration_.EnableActivity(request);
}

bool Library::DisableActivity() {
  const std::lock_guard lock(apiMutex_);
  return configuration_.DisableActivity();
}

bool Library::EnablePcd(const PcdRequest& request) {
  const std::lock_guard lock(apiMutex_);
  return configuration_.EnablePcd(request);
}

bool Library::DisablePcd() {
  const std::lock_guard lock(apiMutex_);
  return configuration_.DisablePcd();
}

void Library::EnableRemoteAddressInfo(const TextList& processNames) {
  const std::lock_guard lock(apiMutex_);
  configuration_.EnableRemoteAddressInfo(processNames);
}

void Library::DisableRemoteAddressInfo() {
  const std::lock_guard lock(apiMutex_);
  remoteAddressInfo_.Disable();
}

void Library::UpdateProcesses(const TextList& processNames, std::uint8_t driverOption) {
  const std::lock_guard lock(apiMutex_);
  configuration_.UpdateProcesses(processNames, driverOption);
}

void Library::EnableTabTitles() {
  tabTitles_.Enable();
}

void Library::DisableTabTitles() {
  tabTitles_.Disable();
}

}  // namespace ostrel
