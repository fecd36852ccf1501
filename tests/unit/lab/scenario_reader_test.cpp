#include "scenario_reader.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "scenario_text.h"

namespace {

using ostrel::lab::DetectionKind;
using ostrel::lab::EndpointsMeaning;
using ostrel::lab::EventStep;
using ostrel::lab::ExitStep;
using ostrel::lab::Expectation;
using ostrel::lab::FileEntry;
using ostrel::lab::FloodStep;
using ostrel::lab::ParseAddress;
using ostrel::lab::Scenario;
using ostrel::lab::Step;
using ostrel::lab::TrafficStep;
using ostrel::lab::UnloadStep;
using ostrel::lab::WaitStep;
using ostrel_test::ReadValid;
using ostrel_test::ScenarioText;

// The usual processes and files, by their place in ScenarioText.
constexpr std::size_t CHROME = 0;
constexpr std::size_t PSCP = 1;
constexpr std::size_t REPORT = 1;
constexpr std::size_t SHARE = 3;

std::vector<Step> Steps(const std::string& steps) {
  ScenarioText text;
  text.steps = steps;
  return ReadValid(text.Text()).steps;
}

EventStep Event(const std::string& members) {
  const std::vector<Step> steps = Steps("{" + members + "}");
  const EventStep* const event = steps.size() == 1 ? std::get_if<EventStep>(&steps.front()) : nullptr;
  EXPECT_NE(event, nullptr);
  return event == nullptr ? EventStep{} : *event;
}

TrafficStep Traffic(const std::string& members) {
  const std::vector<Step> steps =
      Steps(R"({"process": "pscp", "address": "192.0.2.7", "port": 443, "bytes": 1000, )" + members + "}");
  const TrafficStep* const traffic = steps.size() == 1 ? std::get_if<TrafficStep>(&steps.front()) : nullptr;
  EXPECT_NE(traffic, nullptr);
  return traffic == nullptr ? TrafficStep{} : *traffic;
}

FloodStep Flood(const std::string& members) {
  const std::vector<Step> steps =
      Steps(R"({"flood": 500, "process": "pscp", "address": "192.0.2.7", "port": 443, )" + members + "}");
  const FloodStep* const flood = steps.size() == 1 ? std::get_if<FloodStep>(&steps.front()) : nullptr;
  EXPECT_NE(flood, nullptr);
  return flood == nullptr ? FloodStep{} : *flood;
}

Expectation Expected(const std::string& members) {
  ScenarioText text;
  text.expect = "{" + members + "}";
  const Scenario scenario = ReadValid(text.Text());
  EXPECT_EQ(scenario.expectations.size(), 1U);
  return scenario.expectations.empty() ? Expectation{} : scenario.expectations.front();
}

TEST(ScenarioReader, StepsAndExpectationsAreEnoughAndMayBeEmpty) {
  const Scenario scenario = ReadValid(R"({"steps": [], "expect": []})");
  EXPECT_EQ(scenario.name, "");
  EXPECT_EQ(scenario.description, "");
  EXPECT_TRUE(scenario.processes.empty());
  EXPECT_TRUE(scenario.files.empty());
  EXPECT_TRUE(scenario.steps.empty());
  EXPECT_TRUE(scenario.expectations.empty());
}

TEST(ScenarioReader, NameAndDescriptionAreKeptAsTheyStand) {
  const Scenario scenario =
      ReadValid(R"({"name": "n \u4e2d", "description": "two\nlines", "steps": [], "expect": []})");
  EXPECT_EQ(scenario.name, "n \xE4\xB8\xAD");
  EXPECT_EQ(scenario.description, "two\nlines");
}

TEST(ScenarioReader, AByteOrderMarkIsSkipped) {
  ReadValid("\xEF\xBB\xBF{\"steps\": [], \"expect\": []}");
}

TEST(ScenarioReader, ProcessesKeepTheOrderOfTheFile) {
  const Scenario scenario = ReadValid(
      R"({"processes": {"z": {"image": "b.exe"}, "A-1_x": {"image": "r\u00e9 x.exe"}}, "steps": [], "expect": []})");
  ASSERT_EQ(scenario.processes.size(), 2U);
  EXPECT_EQ(scenario.processes[0].id, "z");
  EXPECT_EQ(scenario.processes[0].image, "b.exe");
  EXPECT_EQ(scenario.processes[1].id, "A-1_x");
  EXPECT_EQ(scenario.processes[1].image, "r\xC3\xA9 x.exe");
}

TEST(ScenarioReader, AFileHasAPathASizeAndNothingElse) {
  const Scenario scenario = ReadValid(ScenarioText{}.Text());
  ASSERT_EQ(scenario.files.size(), 5U);
  const FileEntry& file = scenario.files[REPORT];
  EXPECT_EQ(file.id, "report");
  EXPECT_EQ(file.path, "team\\report.pdf");
  EXPECT_EQ(file.size, 3000U);
  EXPECT_FALSE(file.isDirectory);
  EXPECT_EQ(file.deviceName, "");
  EXPECT_EQ(file.reportedName, "");
}

TEST(ScenarioReader, AFileIsEmptyAndNoDirectoryUnlessGiven) {
  const Scenario scenario = ReadValid(ScenarioText{}.Text());
  ASSERT_EQ(scenario.files.size(), 5U);
  EXPECT_EQ(scenario.files[0].size, 0U);
  EXPECT_FALSE(scenario.files[0].isDirectory);
  EXPECT_EQ(scenario.files[2].path, "holiday");
  EXPECT_TRUE(scenario.files[2].isDirectory);
}

TEST(ScenarioReader, ADirectoryMayBeDenied) {
  ScenarioText text;
  text.files = R"("f": {"path": "a\\b", "directory": false, "size": 1})";
  const Scenario scenario = ReadValid(text.Text());
  ASSERT_EQ(scenario.files.size(), 1U);
  EXPECT_EQ(scenario.files[0].path, "a\\b");
  EXPECT_FALSE(scenario.files[0].isDirectory);
  EXPECT_EQ(scenario.files[0].size, 1U);
}

TEST(ScenarioReader, ADeviceNameStandsAsItIsWithOrWithoutAReportedName) {
  const Scenario scenario = ReadValid(ScenarioText{}.Text());
  ASSERT_EQ(scenario.files.size(), 5U);
  EXPECT_EQ(scenario.files[SHARE].deviceName, "\\Device\\Mup\\s\\x\\a.txt");
  EXPECT_EQ(scenario.files[SHARE].reportedName, "\\\\s\\x\\a.txt");
  EXPECT_EQ(scenario.files[SHARE].path, "");
  EXPECT_EQ(scenario.files[4].deviceName, "\\Device\\Mup");
  EXPECT_EQ(scenario.files[4].reportedName, "");
}

TEST(ScenarioReader, AnEventNeedsOnlyItsTypeItsProcessAndItsFile) {
  const EventStep event = Event(R"("event": "network-info", "process": "pscp", "file": "report")");
  EXPECT_EQ(event.type, 2);
  EXPECT_EQ(event.process, PSCP);
  EXPECT_EQ(event.file, REPORT);
  EXPECT_EQ(event.stream, "");
  EXPECT_EQ(event.streamFlag, 1);
  EXPECT_EQ(event.readSize, 0U);
  EXPECT_EQ(event.deviceSource, 0U);
  EXPECT_EQ(event.detail, 0);
  EXPECT_EQ(event.timeOffset, -57000);
  EXPECT_EQ(event.repeat, 1U);
}

TEST(ScenarioReader, EveryKeyOfAnEventIsRead) {
  const EventStep event = Event(
      R"("event": "write", "process": "chrome", "file": "share", "stream": ":Zone.Identifier", "streamFlag": 7,
         "readSize": 26, "deviceSource": "network", "detail": -3, "time": 250, "repeat": 4)");
  EXPECT_EQ(event.type, 1);
  EXPECT_EQ(event.process, CHROME);
  EXPECT_EQ(event.file, SHARE);
  EXPECT_EQ(event.stream, ":Zone.Identifier");
  EXPECT_EQ(event.streamFlag, 7);
  EXPECT_EQ(event.readSize, 26U);
  EXPECT_EQ(event.deviceSource, 1U);
  EXPECT_EQ(event.detail, -3);
  EXPECT_EQ(event.timeOffset, 250);
  EXPECT_EQ(event.repeat, 4U);
}

TEST(ScenarioReader, EveryEventTypeHasAWord) {
  const std::pair<const char*, std::int32_t> words[] = {
      {R"("read")", 0},
      {R"("write")", 1},
      {R"("network-info")", 2},
      {R"("standard-info")", 3},
  };
  for (const auto& [word, type] : words) {
    EXPECT_EQ(Event(std::string("\"event\": ") + word + R"(, "process": "chrome", "file": "report")").type,
              type)
        << word;
  }
}

TEST(ScenarioReader, ACloudDriveEventHasTheTypeOfItsCode) {
  for (std::int32_t code = 4; code <= 9; ++code) {
    EXPECT_EQ(Event(R"("event": "cloud-drive", "process": "chrome", "file": "report", "code": )" +
                    std::to_string(code))
                  .type,
              code);
  }
}

TEST(ScenarioReader, AnEventTypeMayBeAnyNumberAndNeedsNoCode) {
  for (const std::int32_t type : {std::numeric_limits<std::int32_t>::min(), -1, 0, 4, 9, 10,
                                  std::numeric_limits<std::int32_t>::max()}) {
    EXPECT_EQ(Event(R"("process": "chrome", "file": "report", "event": )" + std::to_string(type)).type, type);
  }
}

TEST(ScenarioReader, ReadsAndWritesMoveTheWholeFileUnlessGiven) {
  for (const char* const event : {R"("read")", R"("write")", "0", "1"}) {
    const std::string members = std::string("\"event\": ") + event + R"(, "process": "chrome", )";
    EXPECT_EQ(Event(members + R"("file": "report")").readSize, 3000U) << event;
    EXPECT_EQ(Event(members + R"("file": "report", "readSize": 0)").readSize, 0U) << event;
    EXPECT_EQ(Event(members + R"("file": "share")").readSize, 0U) << event;
  }
  for (const char* const event :
       {R"("network-info")", R"("standard-info")", R"("cloud-drive", "code": 4)", "10"}) {
    EXPECT_EQ(
        Event(std::string("\"event\": ") + event + R"(, "process": "chrome", "file": "report")").readSize, 0U)
        << event;
  }
}

TEST(ScenarioReader, AStreamIsFlaggedWithZeroUnlessGiven) {
  const std::string members = R"("event": "write", "process": "chrome", "file": "report", )";
  EXPECT_EQ(Event(members + R"("stream": ":s")").streamFlag, 0);
  EXPECT_EQ(Event(members + R"("stream": ":s", "streamFlag": 1)").streamFlag, 1);
  EXPECT_EQ(Event(members + R"("streamFlag": 0)").streamFlag, 0);
  EXPECT_EQ(Event(members + R"("stream": "")").streamFlag, 1);
}

TEST(ScenarioReader, EveryDeviceSourceHasAWordAndMayBeANumber) {
  const std::pair<const char*, std::uint32_t> sources[] = {
      {R"("local")", 0}, {R"("network")", 1}, {R"("other")", 2}, {"0", 0}, {"4294967295", 4294967295},
  };
  for (const auto& [source, value] : sources) {
    EXPECT_EQ(Event(R"("event": "read", "process": "chrome", "file": "report", "deviceSource": )" +
                    std::string(source))
                  .deviceSource,
              value)
        << source;
  }
}

TEST(ScenarioReader, StepsKeepTheirOrder) {
  const std::vector<Step> steps = Steps(
      R"({"wait": 500}, {"exit": "pscp"}, {"event": "read", "process": "pscp", "file": "report"}, {"unload": true})");
  ASSERT_EQ(steps.size(), 4U);
  ASSERT_TRUE(std::holds_alternative<WaitStep>(steps[0]));
  EXPECT_EQ(std::get<WaitStep>(steps[0]).milliseconds, 500U);
  ASSERT_TRUE(std::holds_alternative<ExitStep>(steps[1]));
  EXPECT_EQ(std::get<ExitStep>(steps[1]).process, PSCP);
  ASSERT_TRUE(std::holds_alternative<EventStep>(steps[2]));
  EXPECT_EQ(std::get<EventStep>(steps[2]).process, PSCP);
  EXPECT_TRUE(std::holds_alternative<UnloadStep>(steps[3]));
}

TEST(ScenarioReader, AnUploadIsExpectedOnceOfAnyDriveWithTheTypeOfARead) {
  const Expectation expected = Expected(R"("detection": "upload", "file": "report", "process": "pscp")");
  EXPECT_EQ(expected.kind, DetectionKind::Upload);
  EXPECT_EQ(expected.file, REPORT);
  EXPECT_EQ(expected.processes, std::vector<std::size_t>{PSCP});
  EXPECT_EQ(expected.fileEventType, 0);
  EXPECT_EQ(expected.isNetworkDrive, std::nullopt);
}

TEST(ScenarioReader, ADownloadIsExpectedWithTheTypeOfAWrite) {
  const Expectation expected = Expected(R"("detection": "download", "file": "share", "process": "chrome")");
  EXPECT_EQ(expected.kind, DetectionKind::Download);
  EXPECT_EQ(expected.file, SHARE);
  EXPECT_EQ(expected.fileEventType, 1);
}

TEST(ScenarioReader, TheUsualTypesMayBeWrittenOut) {
  EXPECT_EQ(Expected(R"("detection": "upload", "file": "report", "process": "pscp", "fileEventType": 0)")
                .fileEventType,
            0);
  EXPECT_EQ(Expected(R"("detection": "download", "file": "report", "process": "pscp", "fileEventType": 1)")
                .fileEventType,
            1);
}

TEST(ScenarioReader, ACloudDriveDetectionIsExpectedWithItsOwnType) {
  for (std::int32_t type = 4; type <= 9; ++type) {
    const Expectation expected =
        Expected(R"("detection": "cloud-drive", "file": "report", "process": "pscp", "fileEventType": )" +
                 std::to_string(type));
    EXPECT_EQ(expected.kind, DetectionKind::CloudDrive);
    EXPECT_EQ(expected.fileEventType, type);
  }
}

TEST(ScenarioReader, AListOfProcessesKeepsItsOrder) {
  EXPECT_EQ(Expected(R"("detection": "upload", "file": "report", "process": ["pscp", "chrome"])").processes,
            (std::vector<std::size_t>{PSCP, CHROME}));
}

TEST(ScenarioReader, TheNetworkFlagIsComparedOnlyWhenGiven) {
  const std::string members =
      R"("detection": "upload", "file": "report", "process": "pscp", "isNetworkDrive": )";
  EXPECT_EQ(Expected(members + "true").isNetworkDrive, std::optional<bool>(true));
  EXPECT_EQ(Expected(members + "false").isNetworkDrive, std::optional<bool>(false));
}

// ---- Streams ----

TEST(ScenarioReader, TrafficNamesItsStreamAndItsBytes) {
  const TrafficStep traffic = Traffic(R"("traffic": "upload")");
  EXPECT_EQ(traffic.stream.process, PSCP);
  EXPECT_TRUE(traffic.stream.isUpload);
  EXPECT_EQ(traffic.stream.addressText, "192.0.2.7");
  EXPECT_EQ(traffic.stream.address, ParseAddress("192.0.2.7"));
  EXPECT_EQ(traffic.stream.port, 443);
  EXPECT_EQ(traffic.bytes, 1000U);
  EXPECT_EQ(traffic.records, 1U);
  EXPECT_EQ(traffic.timeOffset, 0);
  EXPECT_EQ(traffic.timeStep, 0);
}

TEST(ScenarioReader, TrafficCanBeADownloadInManyRecordsOverTime) {
  const TrafficStep traffic =
      Traffic(R"("traffic": "download", "records": 100000, "time": -86400000, "timeStep": 250)");
  EXPECT_FALSE(traffic.stream.isUpload);
  EXPECT_EQ(traffic.records, 100000U);
  EXPECT_EQ(traffic.timeOffset, -86400000);
  EXPECT_EQ(traffic.timeStep, 250);
}

TEST(ScenarioReader, AFloodHasDefaultsForAllButItsCountItsDirectionAndItsStream) {
  const FloodStep flood = Flood(R"("direction": "download")");
  EXPECT_EQ(flood.count, 500U);
  EXPECT_FALSE(flood.stream.isUpload);
  EXPECT_EQ(flood.stream.process, PSCP);
  EXPECT_EQ(flood.stream.port, 443);
  EXPECT_EQ(flood.bytes, 1U);
  EXPECT_EQ(flood.bytesStep, 0U);
  EXPECT_EQ(flood.ports, 1U);
  EXPECT_EQ(flood.timeOffset, 0);
  EXPECT_EQ(flood.timeStep, 0);
}

TEST(ScenarioReader, AFloodCanGrowAndGoRoundPortsOverTime) {
  const FloodStep flood =
      Flood(R"("direction": "upload", "bytes": 7, "bytesStep": 3, "ports": 100, "time": -9, "timeStep": 2)");
  EXPECT_TRUE(flood.stream.isUpload);
  EXPECT_EQ(flood.bytes, 7U);
  EXPECT_EQ(flood.bytesStep, 3U);
  EXPECT_EQ(flood.ports, 100U);
  EXPECT_EQ(flood.timeOffset, -9);
  EXPECT_EQ(flood.timeStep, 2);
}

TEST(ScenarioReader, AnExpectationSaysNothingAboutEndpointsUnlessItDoes) {
  const Expectation expected = Expected(R"("detection": "upload", "file": "report", "process": "chrome")");
  EXPECT_FALSE(expected.endpoints.has_value());
  EXPECT_EQ(expected.endpointsMeaning, std::nullopt);
}

TEST(ScenarioReader, AnExpectationCanNameItsEndpointsAndWhatTheyAre) {
  const Expectation expected = Expected(
      R"("detection": "upload", "file": "report", "process": "chrome", "endpointsAre": "fallback",
         "endpoints": [{"address": "2001:db8::1", "port": 443, "hostName": ""}, {"address": "192.0.2.1", "port": 0}])");
  EXPECT_EQ(expected.endpointsMeaning, EndpointsMeaning::Fallback);
  ASSERT_TRUE(expected.endpoints.has_value());
  ASSERT_EQ(expected.endpoints->size(), 2U);
  EXPECT_EQ(expected.endpoints->front().addressText, "2001:db8::1");
  EXPECT_EQ(expected.endpoints->front().address, ParseAddress("2001:db8::1"));
  EXPECT_EQ(expected.endpoints->front().port, 443);
  EXPECT_EQ(expected.endpoints->front().hostName, "");
  EXPECT_EQ(expected.endpoints->back().port, 0);
  EXPECT_EQ(expected.endpoints->back().hostName, std::nullopt);
}

TEST(ScenarioReader, EachMeaningOfEndpointsHasItsWord) {
  const std::pair<const char*, EndpointsMeaning> words[] = {{"none", EndpointsMeaning::None},
                                                            {"match", EndpointsMeaning::Match},
                                                            {"fallback", EndpointsMeaning::Fallback}};
  for (const auto& [word, meaning] : words) {
    EXPECT_EQ(Expected(R"("detection": "upload", "file": "report", "process": "chrome", "endpointsAre": ")" +
                       std::string(word) + "\"")
                  .endpointsMeaning,
              meaning);
  }
}

}  // namespace
