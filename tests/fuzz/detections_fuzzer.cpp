// Any bytes as the host's output: detections and errors of one line each, and a comparison that accounts for
// all of them.
#include <algorithm>
#include <string>
#include <vector>

#include "detections.h"
#include "fuzzer.h"

namespace {

using ostrel_test::Promise;
using namespace ostrel::lab;

// Expects what the corpus reports, so that names and processes are compared as well.
Scenario Expecting() {
  Scenario scenario;
  scenario.processes = {{"c", "chrome.exe"}, {"p", "pscp.exe"}};
  scenario.files.resize(2);
  scenario.files[0].path = "a";
  scenario.files[1].deviceName = "d";
  scenario.files[1].reportedName = "r";
  scenario.expectations = {{DetectionKind::Upload, 0, {0, 1}, EVENT_READ, true},
                           {DetectionKind::Download, 1, {1}, EVENT_WRITE, std::nullopt},
                           {DetectionKind::CloudDrive, 0, {0}, EVENT_CLOUD_DRIVE_FIRST, std::nullopt}};
  return scenario;
}

std::size_t CountOf(const std::vector<ComparisonRow>& rows, Verdict verdict) {
  return static_cast<std::size_t>(std::count_if(
      rows.begin(), rows.end(), [&](const ComparisonRow& row) { return row.verdict == verdict; }));
}

void CheckResult(const DetectionsResult& result, std::size_t lines) {
  Promise(result.detections.size() <= lines, "a line is one detection at most");
  Promise(result.errors.size() <= 51, "errors are bounded");
  for (const std::string& error : result.errors) {
    Promise(error.compare(0, 8, "f.jsonl:") == 0, "an error names its file");
    Promise(error.find('\n') == std::string::npos, "an error is one line");
  }
  for (const Detection& detection : result.detections) {
    Promise(detection.fileEventType >= 0 && detection.fileEventType <= UINT32_MAX, "a type has 32 bits");
  }
}

void CheckComparison(const std::vector<Detection>& detections) {
  static const Scenario SCENARIO = Expecting();
  const std::vector<ComparisonRow> rows = Compare(SCENARIO, "C:\\lab", detections);
  const std::size_t fine = CountOf(rows, Verdict::Ok);
  Promise(fine + CountOf(rows, Verdict::Missing) == SCENARIO.expectations.size(),
          "each expectation has a row");
  Promise(fine + CountOf(rows, Verdict::Unexpected) == detections.size(),
          "each detection is accounted for once");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const DetectionsResult result = ReadDetections("f.jsonl", {reinterpret_cast<const char*>(data), size});
  CheckResult(result, static_cast<std::size_t>(std::count(data, data + size, '\n')));
  CheckComparison(result.detections);
  return 0;
}
