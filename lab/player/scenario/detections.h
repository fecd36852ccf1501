#ifndef OSTREL_LAB_PLAYER_SCENARIO_DETECTIONS_H
#define OSTREL_LAB_PLAYER_SCENARIO_DETECTIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "scenario.h"

namespace ostrel::lab {

struct ReportedEndpoint {
  std::string address;
  std::int64_t port = 0;
  std::string hostName;
};

// One line of the host's output, as far as a scenario can say anything about it.
struct Detection {
  DetectionKind kind = DetectionKind::Upload;
  std::string fileName;
  std::string processName;
  std::int64_t fileEventType = 0;
  std::optional<bool> isNetworkDrive;
  std::optional<std::vector<ReportedEndpoint>> endpoints = std::nullopt;
  std::optional<EndpointsMeaning> endpointsMeaning = std::nullopt;
};

struct DetectionsResult {
  std::vector<Detection> detections;
  std::vector<std::string> errors;
};

// Reads one JSON object per line. A last line without its line end is still being written and is left out.
DetectionsResult ReadDetections(std::string_view fileName, std::string_view text) noexcept;

// Where the player puts a scenario's files and process images, both below its work directory.
std::string FilePath(std::string_view workDirectory, const FileEntry& file);
std::string ImagePathTail(const ProcessEntry& process);

enum class Verdict { Ok, Missing, Unexpected };

struct ComparisonRow {
  std::string expected;
  std::string reported;
  Verdict verdict = Verdict::Ok;
};

// One row per expectation, in order, then one per detection that no expectation accounts for.
std::vector<ComparisonRow> Compare(const Scenario& scenario, std::string_view workDirectory,
                                   const std::vector<Detection>& detections);

}  // namespace ostrel::lab

#endif
