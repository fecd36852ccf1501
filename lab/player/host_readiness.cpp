#include "host_readiness.h"

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
  for (const Step& step : scenario.steps) {
    const auto* const event = std::get_if<EventStep>(&step);
    if (event == nullptr) continue;
    AddOnce(IsCloudDriveEvent(event->type) ? needed.cloudDrive : needed.activity,
            LowerCase(scenario.processes[event->process].image));
  }
  return needed;
}

std::string WhatIsMissing(const NeededProcesses& needed, const OstrelLabStatus& status,
                          const std::vector<OstrelLabConfiguration>& configurations) {
  if (status.clientConnected == 0) return "is not connected";
  const std::string activity = WhatIsMissing(needed.activity, OSTREL_LAB_KIND_ACTIVITY, "activity",
                                             status.client.processId, configurations);
  if (!activity.empty()) return activity;
  return WhatIsMissing(needed.cloudDrive, OSTREL_LAB_KIND_CLOUD_DRIVE, "cloud-drive", status.client.processId,
                       configurations);
}

std::string HostArguments(const NeededProcesses& needed, const WorkDirectory& workDirectory) {
  std::string arguments;
  if (!needed.activity.empty()) arguments += " --watch " + Joined(needed.activity);
  if (!needed.cloudDrive.empty()) {
    const std::string folder = ToUtf8(workDirectory.Root()) + "\\files";
    const std::string quote = folder.find(' ') == std::string::npos ? "" : "\"";
    arguments += " --cloud-process " + Joined(needed.cloudDrive) + " --cloud-path " + quote + folder + quote;
  }
  return arguments;
}

}  // namespace ostrel::lab
