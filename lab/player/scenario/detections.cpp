#include "detections.h"

#include <algorithm>
#include <exception>

#include "json_document.h"
#include "object_reader.h"

namespace ostrel::lab {

namespace {

constexpr const char* KIND_WORDS[] = {"upload", "download", "cloud-drive"};

const char* WordOf(DetectionKind kind) {
  return KIND_WORDS[static_cast<std::size_t>(kind)];
}

std::optional<DetectionKind> KindOf(std::string_view word) {
  for (std::size_t i = 0; i < std::size(KIND_WORDS); ++i) {
    if (word == KIND_WORDS[i]) return static_cast<DetectionKind>(i);
  }
  return std::nullopt;
}

constexpr const char* MEANING_WORDS[] = {"none", "match", "fallback"};

std::optional<EndpointsMeaning> MeaningOf(std::string_view word) {
  for (std::size_t i = 0; i < std::size(MEANING_WORDS); ++i) {
    if (word == MEANING_WORDS[i]) return static_cast<EndpointsMeaning>(i);
  }
  return std::nullopt;
}

// A line of the host's output is parsed by itself, as a document of one line.
void SetLine(JsonValue& value, std::size_t line) {
  value.line = line;
  for (JsonValue& element : value.elements) SetLine(element, line);
}

std::vector<ReportedEndpoint> ReadEndpoints(const JsonValue& list, const std::string& place,
                                            ErrorList& errors) {
  std::vector<ReportedEndpoint> endpoints;
  for (std::size_t i = 0; i < list.elements.size(); ++i) {
    ObjectReader reader(list.elements[i], place + "/" + std::to_string(i), errors);
    reader.Required("port");
    const auto address = reader.RequiredText("address");
    const auto port = reader.Integer("port", 0, UINT32_MAX);
    const auto hostName = reader.RequiredText("hostName");
    endpoints.push_back({address.value_or(""), port.value_or(0), hostName.value_or("")});
  }
  return endpoints;
}

// Absent from cloud-drive detections.
void ReadEndpointMembers(ObjectReader& reader, ErrorList& errors, Detection& detection) {
  if (const JsonValue* const list = reader.OptionalOf("endpoints", JsonKind::Array)) {
    detection.endpoints = ReadEndpoints(*list, reader.PlaceOf("endpoints"), errors);
  }
  const auto word = reader.Text("endpointsAre");
  if (!word) return;
  detection.endpointsMeaning = MeaningOf(*word);
  if (!detection.endpointsMeaning)
    reader.Complain("endpointsAre", "must be match, fallback or none, is \"" + *word + "\"");
}

// The host may report more than is read here, so unknown keys are fine.
void ReadDetection(const JsonValue& value, std::size_t line, ErrorList& errors,
                   std::vector<Detection>& detections) {
  JsonValue atLine = value;
  SetLine(atLine, line);
  ObjectReader reader(atLine, "", errors);
  const auto word = reader.RequiredText("detection");
  const auto fileName = reader.RequiredText("fileName");
  const auto processName = reader.RequiredText("processName");
  reader.Required("fileEventType");
  const auto type = reader.Integer("fileEventType", 0, UINT32_MAX);
  const auto isNetworkDrive = reader.Boolean("isNetworkDrive");
  if (!word || !fileName || !processName || !type) return;
  const auto kind = KindOf(*word);
  if (!kind) {
    reader.Complain("detection", "must be upload, download or cloud-drive, is \"" + *word + "\"");
    return;
  }
  Detection detection{*kind, *fileName, *processName, *type, isNetworkDrive};
  ReadEndpointMembers(reader, errors, detection);
  detections.push_back(std::move(detection));
}

DetectionsResult ReadDetectionsOrThrow(std::string_view fileName, std::string_view text) {
  DetectionsResult result;
  ErrorList errors(fileName);
  for (std::size_t line = 1;; ++line) {
    const std::size_t end = text.find('\n');
    if (end == std::string_view::npos) break;
    const std::string_view content = text.substr(0, end);
    text.remove_prefix(end + 1);
    if (content.find_first_not_of(" \t\r") == std::string_view::npos) continue;
    const JsonResult parsed = ParseJson(content);
    if (parsed.value) {
      ReadDetection(*parsed.value, line, errors, result.detections);
    } else {
      errors.Add(line, "", "not a JSON object: " + parsed.error);
    }
  }
  result.errors = errors.Take();
  return result;
}

char Lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool EndsWithIgnoringCase(std::string_view text, std::string_view tail) {
  if (text.size() < tail.size()) return false;
  text.remove_prefix(text.size() - tail.size());
  return std::equal(text.begin(), text.end(), tail.begin(),
                    [](char a, char b) { return Lower(a) == Lower(b); });
}

std::string ReportedName(std::string_view workDirectory, const FileEntry& file) {
  return file.path.empty() ? file.reportedName : FilePath(workDirectory, file);
}

bool Matches(const ExpectedEndpoint& expected, const ReportedEndpoint& reported) {
  return reported.port == expected.port && ParseAddress(reported.address) == expected.address &&
         (!expected.hostName || reported.hostName == *expected.hostName);
}

bool EndpointsMatch(const Expectation& expectation, const Detection& detection) {
  if (expectation.endpointsMeaning && detection.endpointsMeaning != expectation.endpointsMeaning)
    return false;
  if (!expectation.endpoints) return true;
  return detection.endpoints &&
         std::equal(expectation.endpoints->begin(), expectation.endpoints->end(),
                    detection.endpoints->begin(), detection.endpoints->end(),
                    [](const ExpectedEndpoint& expected, const ReportedEndpoint& reported) {
                      return Matches(expected, reported);
                    });
}

bool Matches(const Scenario& scenario, std::string_view workDirectory, const Expectation& expectation,
             const Detection& detection) {
  if (detection.kind != expectation.kind || detection.fileEventType != expectation.fileEventType)
    return false;
  if (expectation.isNetworkDrive && detection.isNetworkDrive != expectation.isNetworkDrive) return false;
  if (detection.fileName != ReportedName(workDirectory, scenario.files[expectation.file])) return false;
  if (!EndpointsMatch(expectation, detection)) return false;
  return std::any_of(expectation.processes.begin(), expectation.processes.end(), [&](std::size_t process) {
    return EndsWithIgnoringCase(detection.processName, ImagePathTail(scenario.processes[process]));
  });
}

std::string Described(const std::string& address, std::int64_t port, const std::string& hostName) {
  const bool isIpv6 = address.find(':') != std::string::npos;
  const std::string text = isIpv6 ? "[" + address + "]" : address;
  return text + ":" + std::to_string(port) + (hostName.empty() ? "" : " (" + hostName + ")");
}

std::string Described(const ExpectedEndpoint& endpoint) {
  return Described(endpoint.addressText, endpoint.port, endpoint.hostName.value_or(""));
}

std::string Described(const ReportedEndpoint& endpoint) {
  return Described(endpoint.address, endpoint.port, endpoint.hostName);
}

// Nothing where nothing is said about endpoints.
template <typename Endpoint>
std::string DescribedEndpoints(const std::optional<std::vector<Endpoint>>& endpoints,
                               std::optional<EndpointsMeaning> meaning) {
  std::string text;
  if (endpoints) {
    for (const Endpoint& endpoint : *endpoints) text += (text.empty() ? ", " : " or ") + Described(endpoint);
    if (endpoints->empty()) text = ", no endpoint";
  }
  if (meaning && *meaning != EndpointsMeaning::None)
    text += std::string(", ") + MEANING_WORDS[static_cast<std::size_t>(*meaning)];
  return text;
}

std::string Described(DetectionKind kind, std::int64_t type, const std::string& file,
                      const std::string& process, std::optional<bool> isNetworkDrive) {
  const bool isUsualType = type == (kind == DetectionKind::Upload ? EVENT_READ : EVENT_WRITE);
  std::string text = WordOf(kind);
  if (kind == DetectionKind::CloudDrive || !isUsualType) text += " " + std::to_string(type);
  text += " " + file + " by " + process;
  return isNetworkDrive ? text + (*isNetworkDrive ? ", network drive" : ", local drive") : text;
}

std::string Described(const Scenario& scenario, const Expectation& expectation) {
  std::string processes;
  for (const std::size_t process : expectation.processes) {
    processes += (processes.empty() ? "" : " or ") + scenario.processes[process].image;
  }
  const FileEntry& file = scenario.files[expectation.file];
  return Described(expectation.kind, expectation.fileEventType,
                   file.path.empty() ? file.reportedName : file.path, processes, expectation.isNetworkDrive) +
         DescribedEndpoints(expectation.endpoints, expectation.endpointsMeaning);
}

// Names below the work directory are shown as the scenario writes them.
std::string Described(std::string_view workDirectory, const Detection& detection) {
  std::string file = detection.fileName;
  const std::string root = FilePath(workDirectory, FileEntry{});
  if (file.compare(0, root.size(), root) == 0) file.erase(0, root.size());
  const std::size_t separator = detection.processName.rfind('\\');
  const std::string process =
      separator == std::string::npos ? detection.processName : detection.processName.substr(separator + 1);
  // Most detections are of local files, which is not worth the room.
  const std::optional<bool> shown =
      detection.isNetworkDrive.value_or(false) ? detection.isNetworkDrive : std::nullopt;
  const std::string endpoints = detection.endpoints.value_or(std::vector<ReportedEndpoint>()).empty()
                                    ? std::string()
                                    : DescribedEndpoints(detection.endpoints, detection.endpointsMeaning);
  return Described(detection.kind, detection.fileEventType, file, process, shown) + endpoints;
}

}  // namespace

std::string FilePath(std::string_view workDirectory, const FileEntry& file) {
  return std::string(workDirectory).append("\\files\\").append(file.path);
}

std::string ImagePathTail(const ProcessEntry& process) {
  return "\\processes\\" + process.id + "\\" + process.image;
}

DetectionsResult ReadDetections(std::string_view fileName, std::string_view text) noexcept {
  try {
    return ReadDetectionsOrThrow(fileName, text);
  } catch (const std::exception&) {
    DetectionsResult result;
    result.errors.resize(1);
    result.errors.front() = "out of memory";
    return result;
  }
}

std::vector<ComparisonRow> Compare(const Scenario& scenario, std::string_view workDirectory,
                                   const std::vector<Detection>& detections) {
  std::vector<ComparisonRow> rows;
  std::vector<bool> accounted(detections.size(), false);
  for (const Expectation& expectation : scenario.expectations) {
    ComparisonRow row{Described(scenario, expectation), "nothing", Verdict::Missing};
    for (std::size_t i = 0; i < detections.size(); ++i) {
      if (accounted[i] || !Matches(scenario, workDirectory, expectation, detections[i])) continue;
      accounted[i] = true;
      row.reported = Described(workDirectory, detections[i]);
      row.verdict = Verdict::Ok;
      break;
    }
    rows.push_back(std::move(row));
  }
  for (std::size_t i = 0; i < detections.size(); ++i) {
    if (!accounted[i])
      rows.push_back({"nothing", Described(workDirectory, detections[i]), Verdict::Unexpected});
  }
  return rows;
}

}  // namespace ostrel::lab
