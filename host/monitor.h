#ifndef OSTREL_HOST_MONITOR_H
#define OSTREL_HOST_MONITOR_H

#include <windows.h>

#include <cstdint>
#include <optional>
#include <set>

#include "api/exports.h"
#include "call_errors.h"
#include "command_line.h"
#include "diagnosis.h"
#include "log_writer.h"

namespace ostrel::host {

struct Callbacks {
  LogCallback log;
  ActivityEventCallback activity;
  PcdEventCallback cloudDrive;
};

// One run of the library: load, switch detection on, wait, switch it off, unload. This is the part to copy
// from.
class Monitor {
 public:
  // Two events: the run ends when `stop` is set, and soon after the log says that the minifilter is gone.
  Monitor(const Options& options, const Callbacks& callbacks, LogWriter& log, CallErrors& errors, HANDLE stop,
          HANDLE minifilterGone);

  // The first failure decides the result; each is logged.
  ExitCode Run();

 private:
  bool Load();
  bool SwitchOn();
  // False when the minifilter was not told. Without remote address info it goes on, only with an error.
  bool WatchActivity();
  bool WatchCloudDrive(bool withPaths);
  void WaitUntilStopped();
  void WaitForCachedReports(std::uint64_t end);
  // False when the minifilter can no longer be told.
  bool TellAboutNewProcesses();
  void SwitchOff();
  void SwitchOffRemoteAddressInfo();
  void Unload();

  std::set<std::uint32_t> RunningPrograms() const;
  // Calls the library and gathers what the call came to.
  template <typename Call>
  CallFacts Observe(Call call);
  // False when there is a diagnosis.
  bool Accept(const std::optional<Diagnosis>& diagnosis);

  const Options& options_;
  Callbacks callbacks_;
  LogWriter& log_;
  CallErrors& errors_;
  HANDLE stop_;
  HANDLE minifilterGone_;
  std::set<std::uint32_t> knownPrograms_;
  ExitCode result_ = ExitCode::Success;
};

}  // namespace ostrel::host

#endif
