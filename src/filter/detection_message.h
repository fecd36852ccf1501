#ifndef OSTREL_FILTER_DETECTION_MESSAGE_H
#define OSTREL_FILTER_DETECTION_MESSAGE_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "filter/port_messages.h"

namespace ostrel {

// The paths that every message carries, in device form. They only grow: a second enabling sends the first
// one's too.
struct DetectionPaths {
  std::vector<std::wstring> excluded;
  std::vector<std::wstring> cloud;
  std::vector<std::wstring> cloudExclusion;
};

struct DetectionContent {
  std::uint32_t hostProcessId;
  std::span<const std::wstring> processNames;  // lower-cased; the first 64 are sent
  std::span<const std::uint32_t> processIds;   // the first 512 are sent
  std::uint8_t driverOption;
  bool enabled;
  DetectionKind kind;
};

// Writes the message. An activity message leaves the cloud regions and their counts as they are.
//
// A path of 300 characters or more, up to 511, runs on into the next slot, and the next path overwrites it
// there: that is the driver's layout. It never reaches the counts and switches at the end of the message.
void FillDetectionMessage(DetectionMessage& message, const DetectionContent& content,
                          const DetectionPaths& paths);

}  // namespace ostrel

#endif
