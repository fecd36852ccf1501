#include "detections.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

using ostrel::lab::Detection;
using ostrel::lab::DetectionKind;
using ostrel::lab::DetectionsResult;
using ostrel::lab::EndpointsMeaning;
using Lines = std::vector<std::string>;

DetectionsResult Read(std::string_view text) {
  return ostrel::lab::ReadDetections("d.jsonl", text);
}

std::string Line(const std::string& detection, const std::string& members) {
  return "{\"detection\": \"" + detection + R"(", "fileName": "C:\\f", "processName": "\\p", )" + members +
         "}\n";
}

Lines ErrorsOfLine(std::string_view line) {
  return Read(std::string(line) + "\n").errors;
}

TEST(ReadDetections, NothingReportedIsNoError) {
  for (const std::string_view text :
       {std::string_view(), std::string_view("\n"), std::string_view("\r\n \t\n\n")}) {
    const DetectionsResult result = Read(text);
    EXPECT_TRUE(result.detections.empty());
    EXPECT_TRUE(result.errors.empty());
  }
}

TEST(ReadDetections, EachLineIsADetectionInTheOrderOfTheFile) {
  const DetectionsResult result = Read(
      R"({"detection": "upload", "fileName": "C:\\a \u4e2d", "processName": "\\Device\\p", "fileEventType": 0, "isNetworkDrive": true})"
      "\n\n"
      R"({"detection": "download", "fileName": "b", "processName": "q", "fileEventType": 1, "isNetworkDrive": false})"
      "\r\n"
      R"({"detection": "cloud-drive", "fileName": "", "processName": "", "fileEventType": 9})"
      "\n");
  EXPECT_EQ(result.errors, Lines{});
  ASSERT_EQ(result.detections.size(), 3U);
  const Detection& upload = result.detections[0];
  EXPECT_EQ(upload.kind, DetectionKind::Upload);
  EXPECT_EQ(upload.fileName, "C:\\a \xE4\xB8\xAD");
  EXPECT_EQ(upload.processName, "\\Device\\p");
  EXPECT_EQ(upload.fileEventType, 0);
  EXPECT_EQ(upload.isNetworkDrive, std::optional<bool>(true));
  const Detection& download = result.detections[1];
  EXPECT_EQ(download.kind, DetectionKind::Download);
  EXPECT_EQ(download.fileName, "b");
  EXPECT_EQ(download.processName, "q");
  EXPECT_EQ(download.fileEventType, 1);
  EXPECT_EQ(download.isNetworkDrive, std::optional<bool>(false));
  const Detection& cloudDrive = result.detections[2];
  EXPECT_EQ(cloudDrive.kind, DetectionKind::CloudDrive);
  EXPECT_EQ(cloudDrive.fileName, "");
  EXPECT_EQ(cloudDrive.fileEventType, 9);
  EXPECT_EQ(cloudDrive.isNetworkDrive, std::nullopt);
}

TEST(ReadDetections, ALastLineWithoutItsEndIsStillBeingWritten) {
  const std::string line = Line("upload", "\"fileEventType\": 0");
  EXPECT_EQ(Read(line + line.substr(0, line.size() - 1)).detections.size(), 1U);
  EXPECT_EQ(Read(line + "{\"detec").detections.size(), 1U);
  EXPECT_EQ(Read(line + "{\"detec").errors, Lines{});
}

TEST(ReadDetections, MoreMembersThanAreKnownAreFine) {
  const DetectionsResult result = Read(
      Line("upload",
           R"("fileEventType": 0, "user": "u", "destinationHints": [{"port": 443}], "extraText": null)"));
  EXPECT_EQ(result.errors, Lines{});
  EXPECT_EQ(result.detections.size(), 1U);
}

TEST(ReadDetections, AFileEventTypeHas32Bits) {
  for (const std::int64_t type : {std::int64_t{0}, std::int64_t{4294967295}}) {
    const DetectionsResult result = Read(Line("upload", "\"fileEventType\": " + std::to_string(type)));
    ASSERT_EQ(result.detections.size(), 1U);
    EXPECT_EQ(result.detections[0].fileEventType, type);
  }
  for (const char* const type : {"-1", "4294967296", "9223372036854775807"}) {
    const DetectionsResult result = Read(Line("upload", std::string("\"fileEventType\": ") + type));
    EXPECT_TRUE(result.detections.empty());
    EXPECT_EQ(result.errors,
              Lines{std::string("d.jsonl:1: fileEventType: must be from 0 to 4294967295, is ") + type});
  }
}

TEST(ReadDetections, EveryMissingMemberIsNamed) {
  EXPECT_EQ(ErrorsOfLine("{}"),
            (Lines{"d.jsonl:1: \"detection\" is missing", "d.jsonl:1: \"fileName\" is missing",
                   "d.jsonl:1: \"processName\" is missing", "d.jsonl:1: \"fileEventType\" is missing"}));
}

TEST(ReadDetections, EveryMemberHasItsType) {
  EXPECT_EQ(
      ErrorsOfLine(
          R"({"detection": 1, "fileName": null, "processName": [], "fileEventType": "0", "isNetworkDrive": 1})"),
      (Lines{"d.jsonl:1: detection: must be a text, is a whole number",
             "d.jsonl:1: fileName: must be a text, is null",
             "d.jsonl:1: processName: must be a text, is a list",
             "d.jsonl:1: fileEventType: must be a whole number, is a text",
             "d.jsonl:1: isNetworkDrive: must be true or false, is a whole number"}));
}

TEST(ReadDetections, AnUnknownDetectionIsRefused) {
  EXPECT_EQ(Read(Line("Upload", "\"fileEventType\": 0")).errors,
            Lines{"d.jsonl:1: detection: must be upload, download or cloud-drive, is \"Upload\""});
  EXPECT_EQ(Read(Line("a\\nb", "\"fileEventType\": 0")).errors,
            Lines{"d.jsonl:1: detection: must be upload, download or cloud-drive, is \"a?b\""});
}

TEST(ReadDetections, AnErrorNamesItsLineAndLeavesTheOthersAlone) {
  const std::string good = Line("upload", "\"fileEventType\": 0");
  const DetectionsResult result = Read(good + "\n\n" + good + good + "\n[1]\n" + good);
  EXPECT_EQ(result.detections.size(), 4U);
  EXPECT_EQ(result.errors, Lines{"d.jsonl:7: must be an object, is a list"});
}

TEST(ReadDetections, ALineThatIsNoJsonIsSaidToBeNone) {
  EXPECT_EQ(ErrorsOfLine("xx"),
            Lines{"d.jsonl:1: not a JSON object: 1:1: syntax error while parsing value - invalid "
                  "literal; last read: 'x'"});
  EXPECT_EQ(ErrorsOfLine("{\"a\":1,\"a\":2}"), Lines{"d.jsonl:1: not a JSON object: 1:10: key \"a\" twice"});
  EXPECT_EQ(ErrorsOfLine(R"({"a\nb":1,"a\nb":2})"),
            Lines{"d.jsonl:1: not a JSON object: 1:16: key \"a?b\" twice"});
  EXPECT_EQ(
      ErrorsOfLine("{\"fileName\":\"\xFF\"}"),
      Lines{
          "d.jsonl:1: not a JSON object: 1:14: syntax error while parsing value - invalid string: ill-formed "
          "UTF-8 byte; last read: '\"\xFF'"});
  EXPECT_EQ(ErrorsOfLine(std::string(17, '[')),
            Lines{"d.jsonl:1: not a JSON object: 1:17: nested deeper than 16 levels"});
  EXPECT_EQ(ErrorsOfLine("9223372036854775808"),
            Lines{"d.jsonl:1: not a JSON object: 1:19: number too large: 9223372036854775808"});
}

TEST(ReadDetections, AfterFiftyErrorsTheRestIsOnlyMentioned) {
  std::string text;
  for (int i = 0; i < 60; ++i) text += "[]\n";
  const Lines errors = Read(text).errors;
  ASSERT_EQ(errors.size(), 51U);
  EXPECT_EQ(errors[49], "d.jsonl:50: must be an object, is a list");
  EXPECT_EQ(errors[50], "d.jsonl: more errors are not shown");
}

TEST(ReadDetections, EndpointsAreReadInTheirOrderWithWhatTheyAre) {
  const DetectionsResult result = Read(Line(
      "upload",
      R"("fileEventType": 0, "endpointsAre": "fallback", "endpoints": [{"address": "192.0.2.1", "port": 443, "hostName": "h"}, )"
      R"({"address": "", "port": 4294967295, "hostName": "", "more": 1}])"));
  EXPECT_EQ(result.errors, (Lines{}));
  ASSERT_EQ(result.detections.size(), 1U);
  const Detection& upload = result.detections.front();
  EXPECT_EQ(upload.endpointsMeaning, EndpointsMeaning::Fallback);
  ASSERT_TRUE(upload.endpoints.has_value());
  ASSERT_EQ(upload.endpoints->size(), 2U);
  EXPECT_EQ(upload.endpoints->front().address, "192.0.2.1");
  EXPECT_EQ(upload.endpoints->front().port, 443);
  EXPECT_EQ(upload.endpoints->front().hostName, "h");
  EXPECT_EQ(upload.endpoints->back().port, 4294967295);
}

TEST(ReadDetections, ADetectionMayHaveNoWordAboutEndpoints) {
  const DetectionsResult result = Read(Line("upload", "\"fileEventType\": 0"));
  ASSERT_EQ(result.detections.size(), 1U);
  EXPECT_FALSE(result.detections.front().endpoints.has_value());
  EXPECT_EQ(result.detections.front().endpointsMeaning, std::nullopt);
}

TEST(ReadDetections, EndpointsHaveTheirMembersAndTypes) {
  EXPECT_EQ(Read("\n" + Line("upload", R"("fileEventType": 0, "endpointsAre": "all", )"
                                       R"("endpoints": [1, {"address": 2, "hostName": null, "port": -1}])"))
                .errors,
            (Lines{"d.jsonl:2: endpoints/0: must be an object, is a whole number",
                   "d.jsonl:2: endpoints/1/address: must be a text, is a whole number",
                   "d.jsonl:2: endpoints/1/port: must be from 0 to 4294967295, is -1",
                   "d.jsonl:2: endpoints/1/hostName: must be a text, is null",
                   "d.jsonl:2: endpointsAre: must be match, fallback or none, is \"all\""}));
}

}  // namespace
