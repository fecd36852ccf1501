#include "player.h"

#include <algorithm>
#include <cstdio>

#include "host_readiness.h"
#include "minifilter_stop.h"
#include "text.h"

namespace ostrel::lab {

namespace {

constexpr DWORD POLL_MS = 10;
constexpr ULONGLONG PROGRESS_INTERVAL_MS = 5000;
constexpr ULONGLONG HANDLING_LIMIT_MS = 60000;
// As many as stay well below what one request can carry through Wine.
constexpr std::uint32_t EVENTS_PER_REQUEST = OSTREL_LAB_PART_CAPACITY / sizeof(OstrelLabEvent);

constexpr std::int64_t FILETIME_TICKS_PER_MS = 10000;
constexpr std::int64_t UNIX_EPOCH_AS_FILETIME_MS = 11644473600000;

std::int64_t NowInMilliseconds() {
  FILETIME time;
  GetSystemTimeAsFileTime(&time);
  ULARGE_INTEGER ticks;
  ticks.LowPart = time.dwLowDateTime;
  ticks.HighPart = time.dwHighDateTime;
  return static_cast<std::int64_t>(ticks.QuadPart) / FILETIME_TICKS_PER_MS - UNIX_EPOCH_AS_FILETIME_MS;
}

void Print(const std::string& line) {
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

std::string NameOfType(std::int32_t type) {
  switch (type) {
    case EVENT_READ:
      return "read";
    case EVENT_WRITE:
      return "write";
    case EVENT_NETWORK_INFO:
      return "network-info";
    case EVENT_STANDARD_INFO:
      return "standard-info";
    default:
      return (IsCloudDriveEvent(type) ? "cloud-drive " : "event ") + std::to_string(type);
  }
}

std::string Described(const Scenario& scenario, const EventStep& step) {
  const FileEntry& file = scenario.files[step.file];
  std::string line = NameOfType(step.type) + " " + (file.path.empty() ? file.id : file.path) + step.stream +
                     " by " + scenario.processes[step.process].image;
  if (step.readSize != 0) line += ", " + std::to_string(step.readSize) + " bytes";
  if (step.repeat != 1) line += ", " + std::to_string(step.repeat) + " times";
  return line;
}

// A host that takes messages makes room in time; the last try says what is wrong when it does not.
void SubmitWhenThereIsRoom(DriverLink& driver, const std::vector<OstrelLabEvent>& events) {
  const ULONGLONG deadline = GetTickCount64() + HANDLING_LIMIT_MS;
  while (GetTickCount64() < deadline) {
    if (driver.TrySubmit(events)) return;
    Sleep(POLL_MS);
  }
  driver.Submit(events);
}

// A host that starts unloads a driver that is still loaded, so that the link may break while it is being
// used.
std::string WhatHostLacks(const NeededProcesses& needed, std::optional<DriverLink>& driver) {
  try {
    if (!driver) driver = DriverLink::TryOpen();
    if (!driver) return "has not loaded OstrelFilter";
    return WhatIsMissing(needed, driver->Status(), driver->Configurations());
  } catch (const LabError& error) {
    driver.reset();
    return std::string("has no usable OstrelFilter: ") + error.what();
  }
}

}  // namespace

Player::Player(const Scenario& scenario, const WorkDirectory& workDirectory, std::uint32_t hostWaitSeconds)
    : scenario_(scenario), workDirectory_(workDirectory), hostWaitSeconds_(hostWaitSeconds) {}

void Player::Play() {
  Prepare();
  DriverLink driver = WaitForHost();
  now_ = NowInMilliseconds();
  bool unloaded = false;
  for (const Step& step : scenario_.steps) {
    std::visit([&](const auto& one) { Run(driver, one); }, step);
    unloaded = std::holds_alternative<UnloadStep>(step);
  }
  if (!unloaded) WaitUntilHandled(driver);
  Print("done: the host has acknowledged and handled every event");
}

void Player::Prepare() {
  for (const FileEntry& file : scenario_.files) workDirectory_.Create(file);
  for (const ProcessEntry& process : scenario_.processes) {
    processes_.emplace_back(workDirectory_.CreateProcessDirectory(process), ToWide(process.image));
  }
  Print("prepared " + std::to_string(scenario_.files.size()) + " files and " +
        std::to_string(processes_.size()) + " processes in " + ToUtf8(workDirectory_.Root()));
}

DriverLink Player::WaitForHost() {
  const NeededProcesses needed = FindNeededProcesses(scenario_);
  const ULONGLONG start = GetTickCount64();
  ULONGLONG nextProgress = start;
  std::optional<DriverLink> driver;
  for (;; Sleep(POLL_MS)) {
    const std::string missing = WhatHostLacks(needed, driver);
    if (missing.empty()) return std::move(*driver);
    const ULONGLONG now = GetTickCount64();
    if (now - start >= std::uint64_t{hostWaitSeconds_} * 1000) {
      throw LabError("no host to play to: the host " + missing + " (run OstrelHost" +
                     HostArguments(needed, workDirectory_) + ")");
    }
    if (now >= nextProgress) {
      Print("waiting for the host: it " + missing);
      nextProgress = now + PROGRESS_INTERVAL_MS;
    }
  }
}

OstrelLabEvent Player::MakeEvent(const EventStep& step) const {
  OstrelLabEvent event{};
  event.processId = processes_[step.process].Id();
  event.eventTime = static_cast<std::uint64_t>(now_ + step.timeOffset);
  event.eventType = step.type;
  event.detail = step.detail;
  event.streamFlag = step.streamFlag;
  event.deviceSourceType = step.deviceSource;
  event.readSize = step.readSize;
  // A longer name fills the field to its last character and is not terminated, as a careless driver might
  // send it.
  const std::wstring name = workDirectory_.DeviceName(scenario_.files[step.file]) + ToWide(step.stream);
  std::copy_n(name.begin(), std::min<std::size_t>(name.size(), OSTREL_LAB_FILE_NAME_LENGTH), event.fileName);
  return event;
}

void Player::Run(DriverLink& driver, const EventStep& step) {
  Print(Described(scenario_, step));
  const OstrelLabEvent event = MakeEvent(step);
  for (std::uint32_t left = step.repeat; left != 0;) {
    const std::uint32_t count = std::min(left, EVENTS_PER_REQUEST);
    SubmitWhenThereIsRoom(driver, std::vector<OstrelLabEvent>(count, event));
    left -= count;
  }
}

void Player::Run(DriverLink&, const WaitStep& step) {
  Print("wait " + std::to_string(step.milliseconds) + " ms");
  Sleep(step.milliseconds);
}

void Player::Run(DriverLink& driver, const ExitStep& step) {
  WaitUntilHandled(driver);
  Print("exit of " + scenario_.processes[step.process].image);
  processes_[step.process].Vanish();
}

void Player::Run(DriverLink& driver, const UnloadStep&) {
  WaitUntilHandled(driver);
  Print("unload of the minifilter");
  StopMinifilter();
}

void Player::WaitUntilHandled(DriverLink& driver) const {
  ULONGLONG lastAdvance = GetTickCount64();
  ULONGLONG nextProgress = lastAdvance + PROGRESS_INTERVAL_MS;
  std::uint64_t acknowledged = 0;
  for (;; Sleep(POLL_MS)) {
    const OstrelLabStatus status = driver.Status();
    if (status.queued == 0 && status.outstanding == 0 && status.waitingRequests != 0) return;
    if (status.clientConnected == 0) throw LabError("the host went away before it had handled every event");
    const std::string left = std::to_string(status.queued) + " events queued, " +
                             std::to_string(status.outstanding) + " not acknowledged";
    const ULONGLONG now = GetTickCount64();
    if (status.acknowledged != acknowledged) lastAdvance = now;
    acknowledged = status.acknowledged;
    if (now - lastAdvance >= HANDLING_LIMIT_MS) throw LabError("the host does not go on: " + left);
    if (now >= nextProgress) {
      Print("waiting for the host to finish: " + left);
      nextProgress = now + PROGRESS_INTERVAL_MS;
    }
  }
}

}  // namespace ostrel::lab
