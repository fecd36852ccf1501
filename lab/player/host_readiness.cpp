#include "host_readiness.h"

#include <windows.h>
// Needs windows.h before it.
#include <lmcons.h>

#include <algorithm>
#include <string_view>

#include "text.h"

namespace ostrel::lab {

namespace {

std::string LowerCase(std::string_view text) {
  std::wstring wide = ToWide(text);
  CharLowerBuffW(wide.data(), static_cast<DWORD>(wide.size()));
  return ToUtf8(wide);
}

void AddOnce(std::vector<std::string>& names, const std::string& name) {
  if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
}

std::string Joined(const std::vector<std::string>& names) {
  std::string joined;
  for (const std::string& name : names) joined += (joined.empty() ? "" : ",") + name;
  return joined;
}

std::string Quoted(const std::string& word) {
  return word.find(' ') == std::string::npos ? word : "\"" + word + "\"";
}

// Whose traffic the played streams would be.
std::string UserName() {
  wchar_t name[UNLEN + 1];
  DWORD length = UNLEN + 1;
  if (!GetUserNameW(name, &length)) throw SystemError("ask for the user's name");
  return ToUtf8(name);
}

// A configuration slot holds a name's first 31 characters.
bool Names(const OstrelLabConfiguration& configuration, const std::string& image) {
  const std::wstring wanted = ToWide(image).substr(0, OSTREL_LAB_PROCESS_NAME_LENGTH - 1);
  const std::uint32_t count =
      std::min<std::uint32_t>(configuration.processNameCount, OSTREL_LAB_PROCESS_NAME_SLOTS);
  for (std::uint32_t i = 0; i < count; ++i) {
    const auto* const slot = configuration.processNames[i];
    const auto* const end = std::find(slot, slot + OSTREL_LAB_PROCESS_NAME_LENGTH, 0);
    if (std::equal(slot, end, wanted.begin(), wanted.end())) return true;
  }
  return false;
}

std::string WhatIsMissing(const std::vector<std::string>& images, std::uint8_t kind,
                          const std::string& kindName, std::uint32_t hostProcessId,
                          const std::vector<OstrelLabConfiguration>& configurations) {
  if (images.empty()) return {};
  const auto newest =
      std::find_if(configurations.begin(), configurations.end(), [&](const OstrelLabConfiguration& one) {
        // An earlier host's messages say nothing about this one.
        return one.kind == kind && one.hostProcessId == hostProcessId;
      });
  if (newest == configurations.end() || newest->enabled == 0)
    return "has not enabled " + kindName + " detection";
  std::vector<std::string> missing;
  for (const std::string& image : images) {
    if (!Names(*newest, image)) missing.push_back(image);
  }
  return missing.empty() ? std::string()
                         : "does not watch " + Joined(missing) + " for " + kindName + " detection";
}

}  // namespace

NeededProcesses FindNeededProcesses(const Scenario& scenario) {
  NeededProcesses needed;
  const auto add = [&](std::vector<std::string>& names, std::size_t process) {
    AddOnce(names, LowerCase(scenario.processes[process].image));
  };
  for (const Step& step : scenario.steps) {
    if (const auto* const event = std::get_if<EventStep>(&step)) {
      add(IsCloudDriveEvent(event->type) ? needed.cloudDrive : needed.activity, event->process);
    } else if (const auto* const traffic = std::get_if<TrafficStep>(&step)) {
      add(needed.network, traffic->stream.process);
    } else if (const auto* const flood = std::get_if<FloodStep>(&step)) {
      add(needed.network, flood->stream.process);
    }
  }
  return needed;
}

std::string WhatIsMissing(const NeededProcesses& needed, const OstrelLabStatus& status,
                          const std::vector<OstrelLabConfiguration>& configurations) {
  if (status.clientConnected == 0) return "is not connected";
  std::string activity = WhatIsMissing(needed.activity, OSTREL_LAB_KIND_ACTIVITY, "activity",
                                       status.client.processId, configurations);
  if (!activity.empty()) return activity;
  return WhatIsMissing(needed.cloudDrive, OSTREL_LAB_KIND_CLOUD_DRIVE, "cloud-drive", status.client.processId,
                       configurations);
}

std::string WhatNetworkLacks(const NeededProcesses& needed, std::uint32_t hostProcessId,
                             const OstrelLabNetworkStatus& status,
                             const std::optional<OstrelLabConfiguration>& processList) {
  if (needed.network.empty()) return {};
  if (status.enabled == 0 || !processList) return "has not enabled network monitoring";
  if (status.pendingRequests == 0) return "does not read packet records";
  return WhatIsMissing(needed.network, OSTREL_LAB_KIND_ACTIVITY, "network", hostProcessId, {*processList});
}

std::string HostArguments(const NeededProcesses& needed, const WorkDirectory& workDirectory) {
  std::string arguments;
  // One list for both drivers.
  std::vector<std::string> watched = needed.activity;
  for (const std::string& image : needed.network) AddOnce(watched, image);
  if (!watched.empty()) arguments += " --watch " + Joined(watched);
  if (!needed.cloudDrive.empty()) {
    const std::string folder = ToUtf8(workDirectory.Root()) + "\\files";
    arguments += " --cloud-process " + Joined(needed.cloudDrive) + " --cloud-path " + Quoted(folder);
  }
  if (!needed.network.empty()) arguments += " --user " + Quoted(UserName()) + " --remote-address-info";
  return arguments;
}

}  // namespace ostrel::lab
