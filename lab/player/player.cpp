#include "player.h"

#include <algorithm>
#include <optional>

#include "host_readiness.h"
#include "minifilter_stop.h"
#include "progress.h"
#include "text.h"

namespace ostrel::lab {

namespace {

constexpr DWORD POLL_MS = 10;
// As many as stay well below what one request can carry through Wine.
constexpr std::uint32_t EVENTS_PER_REQUEST = OSTREL_LAB_PART_CAPACITY / sizeof(OstrelLabEvent);
constexpr std::uint32_t RECORDS_PER_REQUEST = OSTREL_LAB_PART_CAPACITY / sizeof(OstrelLabPacketRecord);

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

std::string Described(const Scenario& scenario, const StreamEntry& stream) {
  const std::string address = stream.address.isIpv6 ? "[" + stream.addressText + "]" : stream.addressText;
  return (stream.isUpload ? "to " : "from ") + address + ":" + std::to_string(stream.port) + " by " +
         scenario.processes[stream.process].image;
}

// What a host needs before the scenario can be played, and the links to the drivers as they appear. A host
// that starts unloads drivers that are still loaded, so that a link may break while it is being used.
class HostWait {
 public:
  explicit HostWait(const Scenario& scenario) : needed_(FindNeededProcesses(scenario)) {}

  const NeededProcesses& Needed() const { return needed_; }

  // In words; empty when nothing is missing, and then both links stand.
  std::string WhatIsMissing() {
    const std::string missing = WhatMinifilterLacks();
    return missing.empty() && !needed_.network.empty() ? WhatNetworkDriverLacks() : missing;
  }

  Drivers TakeDrivers() { return {std::move(*minifilter_), std::move(network_)}; }

 private:
  std::string WhatMinifilterLacks() {
    try {
      if (!minifilter_) minifilter_ = DriverLink::TryOpen();
      if (!minifilter_) return "has not loaded OstrelFilter";
      const OstrelLabStatus status = minifilter_->Status();
      hostProcessId_ = status.client.processId;
      return lab::WhatIsMissing(needed_, status, minifilter_->Configurations());
    } catch (const LabError& error) {
      minifilter_.reset();
      return std::string("has no usable OstrelFilter: ") + error.what();
    }
  }

  std::string WhatNetworkDriverLacks() {
    try {
      if (!network_) network_ = NetworkLink::TryOpen();
      if (!network_) return "has not started OstrelNWFilter";
      return WhatNetworkLacks(needed_, hostProcessId_, network_->Status(), network_->ProcessList());
    } catch (const LabError& error) {
      network_.reset();
      return std::string("has no usable OstrelNWFilter: ") + error.what();
    }
  }

  const NeededProcesses needed_;
  std::optional<DriverLink> minifilter_;
  std::optional<NetworkLink> network_;
  std::uint32_t hostProcessId_ = 0;
};

}  // namespace

Player::Player(const Scenario& scenario, const WorkDirectory& workDirectory, std::uint32_t hostWaitSeconds)
    : scenario_(scenario), workDirectory_(workDirectory), hostWaitSeconds_(hostWaitSeconds) {}

void Player::Play() {
  Prepare();
  Drivers drivers = WaitForHost();
  now_ = NowInMilliseconds();
  bool unloaded = false;
  for (const Step& step : scenario_.steps) {
    std::visit([&](const auto& one) { Run(drivers, one); }, step);
    unloaded = std::holds_alternative<UnloadStep>(step);
  }
  if (!unloaded) drivers.WaitUntilHandled();
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

Drivers Player::WaitForHost() {
  HostWait host(scenario_);
  const ULONGLONG start = GetTickCount64();
  Progress progress(0);
  for (;; Sleep(POLL_MS)) {
    const std::string missing = host.WhatIsMissing();
    if (missing.empty()) return host.TakeDrivers();
    if (GetTickCount64() - start >= std::uint64_t{hostWaitSeconds_} * 1000) {
      throw LabError("no host to play to: the host " + missing + " (run OstrelHost" +
                     HostArguments(host.Needed(), workDirectory_) + ")");
    }
    progress.Say("waiting for the host: it " + missing);
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

OstrelLabPacketRecord Player::MakeRecord(const StreamEntry& stream, std::uint64_t bytes,
                                         std::int64_t time) const {
  OstrelLabPacketRecord record{};
  record.bytes = bytes;
  record.port = stream.port;
  record.isUpload = stream.isUpload ? 1 : 0;
  record.processId = processes_[stream.process].Id();
  record.time = static_cast<std::uint64_t>(now_ + time);
  const auto& address = stream.address.bytes;
  if (stream.address.isIpv6) {
    record.ipVersion = OSTREL_LAB_IPV6;
    std::copy(address.begin(), address.end(), record.ipv6);
  } else {
    record.ipVersion = OSTREL_LAB_IPV4;
    for (std::size_t i = 0; i < sizeof(record.ipv4); ++i) record.ipv4 = record.ipv4 << 8 | address[i];
  }
  return record;
}

void Player::Run(Drivers& drivers, const EventStep& step) {
  Print(Described(scenario_, step));
  const OstrelLabEvent event = MakeEvent(step);
  for (std::uint32_t left = step.repeat; left != 0;) {
    const std::uint32_t count = std::min(left, EVENTS_PER_REQUEST);
    drivers.Submit(std::vector<OstrelLabEvent>(count, event));
    left -= count;
  }
}

void Player::Run(Drivers&, const WaitStep& step) {
  Print("wait " + std::to_string(step.milliseconds) + " ms");
  Sleep(step.milliseconds);
}

void Player::Run(Drivers& drivers, const ExitStep& step) {
  drivers.WaitUntilHandled();
  Print("exit of " + scenario_.processes[step.process].image);
  processes_[step.process].Vanish();
}

void Player::Run(Drivers& drivers, const UnloadStep&) {
  drivers.WaitUntilHandled();
  Print("unload of the minifilter");
  StopMinifilter();
}

void Player::Run(Drivers& drivers, const TrafficStep& step) {
  std::string line = std::to_string(step.bytes) + " bytes " + Described(scenario_, step.stream);
  if (step.records != 1) line += ", in " + std::to_string(step.records) + " records";
  Print(line);
  std::vector<OstrelLabPacketRecord> records;
  std::int64_t time = step.timeOffset;
  for (std::uint32_t i = 0; i < step.records; ++i, time += step.timeStep) {
    // The first ones carry what does not divide evenly.
    const std::uint64_t bytes = step.bytes / step.records + (i < step.bytes % step.records ? 1 : 0);
    records.push_back(MakeRecord(step.stream, bytes, time));
    if (records.size() < RECORDS_PER_REQUEST && i + 1 != step.records) continue;
    drivers.Submit(records);
    records.clear();
  }
}

void Player::Run(Drivers& drivers, const FloodStep& step) {
  // One flood at a time, and after what was sent before it.
  drivers.WaitUntilHandled();
  Print("flood of " + std::to_string(step.count) + " packet records " + Described(scenario_, step.stream));
  OstrelLabFlood flood{};
  flood.count = step.count;
  flood.bytesStep = step.bytesStep;
  flood.timeStep = static_cast<std::uint64_t>(step.timeStep);
  flood.ports = step.ports;
  flood.first = MakeRecord(step.stream, step.bytes, step.timeOffset);
  drivers.network->Flood(flood);
  drivers.WaitUntilHandled();
}

}  // namespace ostrel::lab
