#ifndef OSTREL_FILTER_DETECTION_MESSAGE_BUILDER_H
#define OSTREL_FILTER_DETECTION_MESSAGE_BUILDER_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "filter/detection_message.h"

namespace ostrel {

// What changes from one configuration message to the next.
struct DetectionRequest {
  std::vector<std::wstring> processNames;
  std::uint8_t driverOption = 0;
  bool enabled = false;
};

// Holds the accumulated paths and builds configuration messages from them and from the processes that run at
// the moment.
class DetectionMessageBuilder {
 public:
  // Converts the directory to its device form, appends it to the list and returns it.
  const std::wstring& AddExcludedPath(std::wstring directory);
  const std::wstring& AddCloudPath(std::wstring directory);
  const std::wstring& AddCloudExclusionPath(std::wstring directory);

  std::unique_ptr<DetectionMessage> Build(DetectionKind kind, const DetectionRequest& request) const;

 private:
  DetectionPaths paths_;
};

}  // namespace ostrel

#endif
