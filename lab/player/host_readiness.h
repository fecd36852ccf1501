#ifndef OSTREL_LAB_PLAYER_HOST_READINESS_H
#define OSTREL_LAB_PLAYER_HOST_READINESS_H

#include <optional>
#include <string>
#include <vector>

#include "minifilter_wire.h"
#include "network_wire.h"
#include "scenario.h"
#include "work_directory.h"

namespace ostrel::lab {

// The image names whose events and streams a scenario plays, lower-cased, each once.
struct NeededProcesses {
  std::vector<std::string> activity;
  std::vector<std::string> cloudDrive;
  std::vector<std::string> network;
};
NeededProcesses FindNeededProcesses(const Scenario& scenario);

// What is still missing before the scenario can be played, in words; empty when nothing is. `configurations`
// are newest first.
std::string WhatIsMissing(const NeededProcesses& needed, const OstrelLabStatus& status,
                          const std::vector<OstrelLabConfiguration>& configurations);

// The same for the network driver, which a scenario without streams does not need. `processList` is the
// newest.
std::string WhatNetworkLacks(const NeededProcesses& needed, std::uint32_t hostProcessId,
                             const OstrelLabNetworkStatus& status,
                             const std::optional<OstrelLabConfiguration>& processList);

// The command line words that make a host watch what the scenario needs, with its files as the cloud folder.
std::string HostArguments(const NeededProcesses& needed, const WorkDirectory& workDirectory);

}  // namespace ostrel::lab

#endif
