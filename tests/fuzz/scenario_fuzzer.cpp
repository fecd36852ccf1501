// Any bytes as a scenario file: an errorless scenario that the player can play as it stands, or errors of one
// line each.
#include <algorithm>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "detections.h"
#include "fuzzer.h"
#include "scenario_reader.h"

namespace {

using ostrel_test::Promise;
using namespace ostrel::lab;

void CheckErrors(const std::vector<std::string>& errors) {
  for (const std::string& error : errors) {
    Promise(error.compare(0, 7, "f.json:") == 0, "an error names its file");
    Promise(error.find('\n') == std::string::npos, "an error is one line");
  }
}

void CheckStream(const Scenario& scenario, const StreamEntry& stream) {
  Promise(stream.process < scenario.processes.size(), "a stream names a process");
  Promise(ParseAddress(stream.addressText) == stream.address, "a stream has the address that it names");
}

void CheckStep(const Scenario& scenario, const Step& step) {
  if (const auto* const event = std::get_if<EventStep>(&step)) {
    Promise(event->process < scenario.processes.size(), "an event names a process");
    Promise(event->file < scenario.files.size(), "an event names a file");
    Promise(event->repeat >= 1 && event->repeat <= 1000000, "an event repeats within bounds");
    Promise(event->timeOffset >= -86400000 && event->timeOffset <= 86400000, "an event is within a day");
    Promise(event->stream.empty() || event->stream.front() == ':', "a stream begins with a colon");
  } else if (const auto* const wait = std::get_if<WaitStep>(&step)) {
    Promise(wait->milliseconds <= 600000, "a wait is within bounds");
  } else if (const auto* const exit = std::get_if<ExitStep>(&step)) {
    Promise(exit->process < scenario.processes.size(), "an exit names a process");
  } else if (const auto* const traffic = std::get_if<TrafficStep>(&step)) {
    CheckStream(scenario, traffic->stream);
    Promise(traffic->records >= 1 && traffic->records <= 100000, "traffic has records within bounds");
    Promise(traffic->timeStep >= 0, "traffic does not go back in time");
  } else if (const auto* const flood = std::get_if<FloodStep>(&step)) {
    CheckStream(scenario, flood->stream);
    Promise(flood->count >= 1 && flood->count <= 100000000, "a flood is within bounds");
    Promise(flood->ports >= 1 && flood->stream.port + flood->ports <= 65536, "a flood's ports are ports");
  } else {
    Promise(&step == &scenario.steps.back(), "an unload is the last step");
  }
}

void CheckFile(const FileEntry& file) {
  Promise(file.path.empty() || file.deviceName.empty(), "a file is made or only named");
  Promise(file.size <= (1u << 30), "a file has up to a gibibyte");
  Promise(file.path.find("..\\") == std::string::npos && file.path.find(':') == std::string::npos,
          "a file is below the work directory");
}

void CheckScenario(const Scenario& scenario) {
  for (const FileEntry& file : scenario.files) CheckFile(file);
  for (const Step& step : scenario.steps) CheckStep(scenario, step);
  for (const Expectation& expectation : scenario.expectations) {
    Promise(expectation.file < scenario.files.size(), "an expectation names a file");
    Promise(!expectation.processes.empty(), "an expectation names a process");
    for (const std::size_t process : expectation.processes) {
      Promise(process < scenario.processes.size(), "an expectation names processes that are there");
    }
  }
  const std::vector<ComparisonRow> rows = Compare(scenario, "C:\\lab", {});
  Promise(rows.size() == scenario.expectations.size(), "each expectation has a row");
  Promise(std::all_of(rows.begin(), rows.end(),
                      [](const ComparisonRow& row) { return row.verdict == Verdict::Missing; }),
          "without detections everything is missing");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ScenarioResult result = ReadScenario("f.json", {reinterpret_cast<const char*>(data), size});
  Promise(result.scenario.has_value() == result.errors.empty(), "a scenario or errors");
  CheckErrors(result.errors);
  if (result.scenario) CheckScenario(*result.scenario);
  return 0;
}
