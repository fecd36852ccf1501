#ifndef OSTREL_LAB_PLAYER_STATUS_REPORT_H
#define OSTREL_LAB_PLAYER_STATUS_REPORT_H

#include <string>
#include <vector>

#include "minifilter_wire.h"

namespace ostrel::lab {

// The driver's counters and its kept configuration messages, newest first, as one JSON object.
std::string StatusReport(const OstrelLabStatus& status,
                         const std::vector<OstrelLabConfiguration>& configurations);

}  // namespace ostrel::lab

#endif
