#include "monitor.h"

#include <algorithm>
#include <string>
#include <vector>

#include "machine.h"
#include "utf8.h"

namespace ostrel::host {

namespace {

// A list of texts as the library takes it: an array of pointers and a count. The texts must stay where they
// are.
class TextArray {
 public:
  explicit TextArray(const std::vector<std::wstring>& texts) {
    for (const std::wstring& text : texts) pointers_.push_back(text.c_str());
  }
  const wchar_t** Data() { return pointers_.data(); }
  std::int32_t Count() const { return static_cast<std::int32_t>(pointers_.size()); }

 private:
  std::vector<const wchar_t*> pointers_;
};

constexpr std::uint64_t FOREVER = UINT64_MAX;

DWORD WaitTime(std::uint64_t milliseconds) {
  return milliseconds < INFINITE ? static_cast<DWORD>(milliseconds) : INFINITE;
}

MachineFacts LookAtMachine() {
  const std::wstring folder = ModuleFolder(L"OstrelFilterLib.dll");
  MachineFacts facts{ToUtf8(folder), {}, HoldsLoadDriverPrivilege()};
  for (const std::wstring& name : MissingDriverFiles(folder))
    facts.missingDriverFiles.push_back(ToUtf8(name));
  return facts;
}

}  // namespace

Monitor::Monitor(const Options& options, const Callbacks& callbacks, LogWriter& log, CallErrors& errors,
                 HANDLE stop, HANDLE minifilterGone)
    : options_(options),
      callbacks_(callbacks),
      log_(log),
      errors_(errors),
      stop_(stop),
      minifilterGone_(minifilterGone) {}

ExitCode Monitor::Run() {
  if (!Accept(DiagnoseMachine(LookAtMachine())) || !Load()) return result_;
  if (SwitchOn()) {
    log_.Write(LEVEL_NOTABLE, "OstrelHost: watching; Ctrl+C ends it.");
    WaitUntilStopped();
  }
  SwitchOff();
  Unload();
  return result_;
}

bool Monitor::Load() {
  // What the host has to know about the minifilter comes at this level, whether or not it is to be shown.
  const std::uint32_t level = std::max(options_.logLevel, LEVEL_NOTABLE);
  const CallFacts facts = Observe([&] { return LoadDriver(callbacks_.log, level); });
  if (Accept(DiagnoseLoad(facts))) return true;
  if (facts.succeeded) Unload();
  return false;
}

bool Monitor::SwitchOn() {
  // Before the minifilter is told: a program that starts in between counts as new at the first refresh.
  knownPrograms_ = RunningPrograms();
  return WatchActivity() && WatchCloudDrive(true);
}

bool Monitor::WatchActivity() {
  if (options_.watchedProcesses.empty()) return true;
  TextArray processes(options_.watchedProcesses);
  TextArray excludedPaths(options_.excludedPaths);
  const CallFacts facts = Observe([&] {
    return EnableActivityDetection(callbacks_.activity, options_.userName.c_str(), processes.Data(),
                                   processes.Count(), excludedPaths.Data(), excludedPaths.Count(),
                                   options_.driverOption, options_.remoteAddressInfo ? 1 : 0,
                                   options_.tabTitles ? 1 : 0);
  });
  const bool isWatching = Accept(DiagnoseConfiguration(facts));
  if (options_.remoteAddressInfo) Accept(DiagnoseRemoteAddressInfoOn(facts));
  return isWatching;
}

// The library adds the paths of each call to those it has, so they are passed only once.
bool Monitor::WatchCloudDrive(bool withPaths) {
  if (options_.cloudProcesses.empty()) return true;
  const std::vector<std::wstring> none;
  TextArray processes(options_.cloudProcesses);
  TextArray paths(withPaths ? options_.cloudPaths : none);
  TextArray excludedPaths(withPaths ? options_.excludedCloudPaths : none);
  return Accept(DiagnoseConfiguration(Observe([&] {
    return EnablePCDDetection(callbacks_.cloudDrive, processes.Data(), processes.Count(), paths.Data(),
                              paths.Count(), excludedPaths.Data(), excludedPaths.Count());
  })));
}

void Monitor::WaitUntilStopped() {
  const HANDLE events[] = {stop_, minifilterGone_};
  const std::uint64_t refresh = options_.refreshSeconds == 0 ? FOREVER : options_.refreshSeconds * 1000ULL;
  const std::uint64_t start = GetTickCount64();
  const std::uint64_t end = options_.seconds ? start + *options_.seconds * 1000ULL : FOREVER;
  for (std::uint64_t now = start; now < end; now = GetTickCount64()) {
    const DWORD event = WaitForMultipleObjects(2, events, FALSE, WaitTime(std::min(refresh, end - now)));
    if (event == WAIT_OBJECT_0 + 1) return WaitForCachedReports(end);
    if (event != WAIT_TIMEOUT) return;
    if (refresh != FOREVER && !TellAboutNewProcesses()) return;
  }
}

void Monitor::WaitForCachedReports(std::uint64_t end) {
  // An event is reported after 60 seconds without another one of the same file, and a pass is made every
  // second.
  constexpr std::uint64_t UNTIL_THE_LAST_REPORT = 65000;
  Accept(MinifilterIsGone());
  const std::uint64_t now = GetTickCount64();
  WaitForSingleObject(stop_, WaitTime(std::min(UNTIL_THE_LAST_REPORT, end - std::min(now, end))));
}

// The minifilter is told the ids of the programs that run at the moment, so it must be told again when others
// start.
bool Monitor::TellAboutNewProcesses() {
  std::set<std::uint32_t> running = RunningPrograms();
  if (running == knownPrograms_) return true;
  knownPrograms_ = std::move(running);
  if (!options_.watchedProcesses.empty()) {
    TextArray processes(options_.watchedProcesses);
    const CallFacts facts = Observe([&] {
      UpdateProcesses(processes.Data(), static_cast<std::uint32_t>(processes.Count()), options_.driverOption);
      return true;
    });
    if (!Accept(DiagnoseConfiguration(facts))) return false;
  }
  return WatchCloudDrive(false);
}

void Monitor::SwitchOff() {
  // The results do not matter: what was never switched on is off, and the minifilter is unloaded next. One
  // that is gone may have come back for another host, which is not to be disturbed.
  if (WaitForSingleObject(minifilterGone_, 0) != WAIT_OBJECT_0) {
    if (!options_.watchedProcesses.empty()) DisableActivityDetection();
    if (!options_.cloudProcesses.empty()) DisablePCDDetection();
  }
  if (options_.remoteAddressInfo) SwitchOffRemoteAddressInfo();
}

// After detection, whose last reports still name endpoints, and before the library is unloaded: unloading
// also stops the network driver's service, but cannot tell a failure of that from one of the minifilter.
void Monitor::SwitchOffRemoteAddressInfo() {
  Accept(DiagnoseRemoteAddressInfoOff(Observe([] {
    DisableRemoteAddressInfo();
    return true;
  })));
}

void Monitor::Unload() {
  if (Accept(DiagnoseUnload(Observe([] { return UnloadDriver(); })))) {
    log_.Write(LEVEL_NOTABLE, "OstrelHost: unloaded.");
  }
}

std::set<std::uint32_t> Monitor::RunningPrograms() const {
  std::vector<std::wstring> names = options_.watchedProcesses;
  names.insert(names.end(), options_.cloudProcesses.begin(), options_.cloudProcesses.end());
  return RunningProcesses(names);
}

template <typename Call>
CallFacts Monitor::Observe(Call call) {
  errors_.Begin();
  const bool succeeded = call() != 0;
  return {succeeded, errors_.Take()};
}

bool Monitor::Accept(const std::optional<Diagnosis>& diagnosis) {
  if (!diagnosis) return true;
  log_.Write(LEVEL_ERROR, "OstrelHost: " + diagnosis->message);
  if (result_ == ExitCode::Success) result_ = diagnosis->exitCode;
  return false;
}

}  // namespace ostrel::host
