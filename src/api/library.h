#ifndef OSTREL_API_LIBRARY_H
#define OSTREL_API_LIBRARY_H

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "cache/irp_cache.h"
#include "cache/read_event_cache.h"
#include "cache/sent_event_cache.h"
#include "cache/tab_title_switch.h"
#include "detect/disk_event_thread.h"
#include "detect/disk_event_worker.h"
#include "detect/file_event_reporter.h"
#include "detect/host_callbacks.h"
#include "filter/detection_configuration.h"
#include "filter/notification_loop.h"
#include "filter/notification_port.h"
#include "log/log.h"
#include "network/network_event_cache.h"
#include "network/remote_address_info.h"

namespace ostrel {

// The process-wide state and the order in which its parts start and stop. The one composition root: every
// other class gets what it uses from here.
//
// Every public member but Instance and the tab title switches holds the API mutex for its whole run.
class Library {
 public:
  // The library's own, made at its first use and never destroyed: its threads may outlive every orderly end.
  static Library& Instance();

  bool Load(LogSink logCallback, std::uint32_t logLevel);
  bool Unload();
  bool EnableActivity(const ActivityRequest& request);
  bool DisableActivity();
  bool EnablePcd(const PcdRequest& request);
  bool DisablePcd();
  void EnableRemoteAddressInfo(const TextList& processNames);
  void DisableRemoteAddressInfo();
  void UpdateProcesses(const TextList& processNames, std::uint8_t driverOption);
  void EnableTabTitles();
  void DisableTabTitles();

 private:
  Library();

  static bool InstallDrivers();
  static bool LoadMinifilter();
  bool ConnectToMinifilter();
  bool UnloadMinifilter();

  // Recursive, so that a host that calls again from within a call, out of its log callback, does not stop
  // itself.
  std::recursive_mutex apiMutex_;
  bool started_ = false;

  const std::vector<std::wstring> ignoredSuffixes_;
  ReadEventCache uploads_;
  ReadEventCache downloads_;
  ReadEventCache cloudDrive_;
  NetworkEventCache uploadStreams_;
  NetworkEventCache downloadStreams_;
  IrpCache irpQueries_;
  std::mutex irpQueriesMutex_;
  SentEventCache sentEvents_;

  HostCallbacks callbacks_;
  TabTitleSwitch tabTitles_;
  RemoteAddressInfo remoteAddressInfo_;
  DetectionConfiguration configuration_;
  FileEventReporter reporter_;
  DiskEventWorker worker_;
  DiskEventThread diskEventThread_;
  std::shared_ptr<NotificationPort> port_;
};

}  // namespace ostrel

#endif
