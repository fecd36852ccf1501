#ifndef OSTREL_LAB_PLAYER_STATUS_REPORT_H
#define OSTREL_LAB_PLAYER_STATUS_REPORT_H

#include <optional>
#include <string>
#include <vector>

#include "filtering_objects.h"
#include "minifilter_wire.h"
#include "network_wire.h"

namespace ostrel::lab {

// Both drivers and the filtering engine, as one JSON object: the minifilter's counters and kept configuration
// messages (newest first), then what the network driver and the filtering engine hold. A driver that is not
// loaded is null.
struct LabState {
  std::optional<OstrelLabStatus> minifilter;
  std::vector<OstrelLabConfiguration> configurations;
  std::optional<OstrelLabNetworkStatus> network;
  std::optional<OstrelLabConfiguration> processList;
  FilteringState filtering;
};

std::string StatusReport(const LabState& state);

}  // namespace ostrel::lab

#endif
