#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "scenario_reader.h"
#include "scenario_text.h"

namespace {

using namespace std::string_view_literals;
using ostrel_test::ErrorsOf;
using ostrel_test::ExpectationErrors;
using ostrel_test::Lines;
using ostrel_test::ScenarioText;
using ostrel_test::StepErrors;

// A scenario whose member `key` is `value`, the others being right.
Lines WithMember(const std::string& key, const std::string& value) {
  std::string text = "{";
  for (const char* const required : {"steps", "expect"}) {
    if (key != required) text += std::string("\"") + required + "\": [], ";
  }
  return ErrorsOf(text + "\"" + key + "\": " + value + "}");
}

Lines EventErrors(const std::string& members) {
  return StepErrors(R"({"event": "read", "process": "chrome", "file": "report", )" + members + "}");
}

Lines UploadErrors(const std::string& members) {
  return ExpectationErrors(R"({"detection": "upload", "process": "chrome", "file": "report", )" + members +
                           "}");
}

// ---- Places ----

TEST(ScenarioErrors, AnErrorNamesItsFileItsLineAndItsPlace) {
  const ostrel::lab::ScenarioResult result = ostrel::lab::ReadScenario("dir/default.json", R"({
  "processes": { "chrome": { "image": "chrome.exe" }, "filezilla": { "image": "filezilla.exe" } },
  "files": { "report": { "path": "report.pdf" } },
  "steps": [
    { "wait": 1 },
    { "wait": 2 },
    { "event": "read", "process": "chrom", "file": "report" }
  ],
  "expect": []
})");
  EXPECT_FALSE(result.scenario.has_value());
  EXPECT_EQ(result.errors,
            Lines{"dir/default.json:7: steps/2/process: no process \"chrom\"; known: chrome, filezilla"});
}

TEST(ScenarioErrors, ALineIsTheOneOnWhichTheValueBegins) {
  EXPECT_EQ(ErrorsOf("{\n\"steps\":\n[\n{\n\"wait\"\n:\n600001\n}\n],\n\"expect\": []\n}\n"),
            Lines{"s.json:7: steps/0/wait: must be from 0 to 600000, is 600001"});
  EXPECT_EQ(ErrorsOf("{\"steps\": [],\n\"expect\": [\n\n{\n\n}]}"),
            (Lines{"s.json:4: expect/0: \"detection\" is missing", "s.json:4: expect/0: \"file\" is missing",
                   "s.json:4: expect/0: \"process\" is missing"}));
}

TEST(ScenarioErrors, ACarriageReturnDoesNotEndALine) {
  EXPECT_EQ(ErrorsOf("{\r\n\"steps\": 1,\r\n\"expect\": 2\r\n}\r\n"),
            (Lines{"s.json:2: steps: must be a list, is a whole number",
                   "s.json:3: expect: must be a list, is a whole number"}));
}

TEST(ScenarioErrors, EverythingWrongIsSaidAtOnceInTheOrderOfReading) {
  EXPECT_EQ(ErrorsOf(R"({
"name": 1,
"processes": {"p": {"image": "?"}},
"files": {"f": {}},
"steps": [{"wait": -1}, {"exit": "q"}],
"expect": [7]
})"),
            (Lines{"s.json:2: name: must be a text, is a whole number",
                   "s.json:3: processes/p/image: must be a plain file name such as chrome.exe",
                   "s.json:4: files/f: \"path\" is missing",
                   "s.json:5: steps/0/wait: must be from 0 to 600000, is -1",
                   "s.json:5: steps/1/exit: no process \"q\"; known: p",
                   "s.json:6: expect/0: must be an object, is a whole number"}));
}

TEST(ScenarioErrors, AfterFiftyErrorsTheRestIsOnlyMentioned) {
  std::string steps = "0";
  for (int i = 1; i < 50; ++i) steps += ",0";
  Lines errors = StepErrors(steps);
  ASSERT_EQ(errors.size(), 50U);
  EXPECT_EQ(errors.back(), "s.json:1: steps/49: must be an object, is a whole number");
  errors = StepErrors(steps + ",0,0,0");
  ASSERT_EQ(errors.size(), 51U);
  EXPECT_EQ(errors[49], "s.json:1: steps/49: must be an object, is a whole number");
  EXPECT_EQ(errors[50], "s.json: more errors are not shown");
}

TEST(ScenarioErrors, AnErrorIsOneLineWhateverItQuotes) {
  EXPECT_EQ(StepErrors(R"({"exit": "a\nb\u0000c\u001f"})"),
            Lines{"s.json:1: steps/0/exit: no process \"a?b?c?\"; known: chrome, pscp"});
  EXPECT_EQ(
      WithMember(R"(a\r\nb)", "0"),
      Lines{"s.json:1: a??b: unknown key; known here: description, expect, files, name, processes, steps"});
}

// ---- Text that is no JSON ----

TEST(ScenarioErrors, AnEmptyTextIsNoJson) {
  constexpr const char* EXPECTED =
      "s.json:1:1: syntax error while parsing value - unexpected end of input; expected '[', '{', or a "
      "literal";
  EXPECT_EQ(ErrorsOf({}), Lines{EXPECTED});
  EXPECT_EQ(ErrorsOf(""), Lines{EXPECTED});
}

TEST(ScenarioErrors, ASyntaxErrorNamesItsLineAndColumn) {
  EXPECT_EQ(ErrorsOf("{"),
            Lines{"s.json:1:1: syntax error while parsing object key - unexpected end of input; "
                  "expected string literal"});
  EXPECT_EQ(
      ErrorsOf("{\n\"steps\": [],\n  }"),
      Lines{"s.json:3:3: syntax error while parsing object key - unexpected '}'; expected string literal"});
  EXPECT_EQ(
      ErrorsOf("{\n\n\n\n\n\n  \"steps\": }"),
      Lines{
          "s.json:7:12: syntax error while parsing value - unexpected '}'; expected '[', '{', or a literal"});
  EXPECT_EQ(ErrorsOf("// remark\n{}"),
            Lines{"s.json:1:1: syntax error while parsing value - invalid literal; last read: '/'"});
}

TEST(ScenarioErrors, NothingMayFollowTheScenario) {
  EXPECT_EQ(ErrorsOf("{} {}"),
            Lines{"s.json:1:4: syntax error while parsing value - unexpected '{'; expected end of input"});
}

TEST(ScenarioErrors, ATextMustBeClosedAndFreeOfBareControlCharacters) {
  EXPECT_EQ(ErrorsOf("{\"name\":\"abc"),
            Lines{"s.json:1:12: syntax error while parsing value - invalid string: "
                  "missing closing quote; last read: '\"abc'"});
  EXPECT_EQ(
      ErrorsOf("{\"name\":\"abc\n\"}"),
      Lines{"s.json:2:1: syntax error while parsing value - invalid string: control character U+000A (LF) "
            "must be escaped to \\u000A or \\n; last read: '\"abc<U+000A>'"});
}

TEST(ScenarioErrors, AZeroByteDoesNotEndTheText) {
  EXPECT_EQ(ErrorsOf("{\"steps\":[],\n\"expect\":[]}\0 more"sv), Lines{"s.json:2:13: zero byte"});
}

TEST(ScenarioErrors, BytesThatAreNoUtf8AreRefused) {
  constexpr const char* ILL_FORMED =
      "syntax error while parsing value - invalid string: ill-formed UTF-8 byte";
  // A byte that begins nothing, an overlong form, a surrogate, a code point beyond the last, a torn sequence.
  for (const std::string_view bytes :
       {"\xFF"sv, "\xC0\x80"sv, "\xED\xA0\x80"sv, "\xF4\x90\x80\x80"sv, "\xE4\xB8"sv}) {
    const Lines errors = ErrorsOf("{\"name\":\"" + std::string(bytes) + "\"}");
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_NE(errors[0].find(ILL_FORMED), std::string::npos) << errors[0];
  }
  EXPECT_EQ(ErrorsOf("{\n\"name\":\"\xFF\"}"),
            Lines{std::string("s.json:2:9: ") + ILL_FORMED + "; last read: '\"\xFF'"});
}

TEST(ScenarioErrors, AnEscapedHalfOfASurrogatePairIsRefused) {
  EXPECT_EQ(
      ErrorsOf(R"({"name":"\ud800"})"),
      Lines{
          "s.json:1:16: syntax error while parsing value - invalid string: surrogate U+D800..U+DBFF must be "
          "followed by U+DC00..U+DFFF; last read: '\"\\ud800\"'"});
}

TEST(ScenarioErrors, AKeyStandsOnlyOnce) {
  EXPECT_EQ(ErrorsOf("{\"steps\":[],\n\"steps\":[]}"), Lines{"s.json:2:7: key \"steps\" twice"});
  EXPECT_EQ(ErrorsOf(R"({"processes":{"p":{"image":"a"},"p":{"image":"b"}}})"),
            Lines{"s.json:1:35: key \"p\" twice"});
  // The same key is no other key for being written differently, and none of its own in another object.
  EXPECT_EQ(ErrorsOf(R"({"a":1,"\u0061":2})"), Lines{"s.json:1:15: key \"a\" twice"});
  EXPECT_EQ(StepErrors(R"({"wait": 1}, {"wait": 1})"), Lines{});
}

// ---- Wrong types, missing and unknown members ----

TEST(ScenarioErrors, EveryKindOfValueHasAName) {
  constexpr const char* KNOWN_AS[][2] = {{"null", "null"},           {"true", "true or false"},
                                         {"false", "true or false"}, {"7", "a whole number"},
                                         {"-7", "a whole number"},   {"1.5", "a number with a fraction"},
                                         {"[]", "a list"},           {"{}", "an object"}};
  for (const auto& [value, name] : KNOWN_AS) {
    EXPECT_EQ(WithMember("name", value), Lines{std::string("s.json:1: name: must be a text, is ") + name});
  }
  EXPECT_EQ(WithMember("steps", R"("read")"), Lines{"s.json:1: steps: must be a list, is a text"});
}

TEST(ScenarioErrors, AScenarioIsAnObject) {
  EXPECT_EQ(ErrorsOf("[]"), Lines{"s.json:1: must be an object, is a list"});
  EXPECT_EQ(ErrorsOf("\n1"), Lines{"s.json:2: must be an object, is a whole number"});
}

TEST(ScenarioErrors, StepsAndExpectationsAreRequired) {
  EXPECT_EQ(ErrorsOf("\n{}"), (Lines{"s.json:2: \"steps\" is missing", "s.json:2: \"expect\" is missing"}));
}

TEST(ScenarioErrors, EveryMemberOfAScenarioHasItsType) {
  EXPECT_EQ(WithMember("description", "[]"), Lines{"s.json:1: description: must be a text, is a list"});
  EXPECT_EQ(WithMember("processes", "[]"), Lines{"s.json:1: processes: must be an object, is a list"});
  EXPECT_EQ(WithMember("files", "null"), Lines{"s.json:1: files: must be an object, is null"});
  EXPECT_EQ(WithMember("expect", "{}"), Lines{"s.json:1: expect: must be a list, is an object"});
}

TEST(ScenarioErrors, AnUnknownKeyIsNamedWithTheOnesThatAreKnown) {
  EXPECT_EQ(
      WithMember("proceses", "{}"),
      Lines{
          "s.json:1: proceses: unknown key; known here: description, expect, files, name, processes, steps"});
  EXPECT_EQ(WithMember("processes", R"({"p": {"image": "a", "path": "b"}})"),
            Lines{"s.json:1: processes/p/path: unknown key; known here: image"});
  EXPECT_EQ(WithMember("files", R"({"f": {"path": "a", "name": "b"}})"),
            Lines{"s.json:1: files/f/name: unknown key; known here: directory, path, size"});
  EXPECT_EQ(WithMember("files", R"({"f": {"deviceName": "a", "path": "b"}})"),
            Lines{"s.json:1: files/f/path: unknown key; known here: deviceName, reportedName"});
  EXPECT_EQ(StepErrors(R"({"wait": 1, "until": 2})"),
            Lines{"s.json:1: steps/0/until: unknown key; known here: wait"});
  EXPECT_EQ(StepErrors(R"({"exit": "chrome", "code": 4})"),
            Lines{"s.json:1: steps/0/code: unknown key; known here: exit"});
  EXPECT_EQ(StepErrors(R"({"unload": true, "file": "report"})"),
            Lines{"s.json:1: steps/0/file: unknown key; known here: unload"});
  EXPECT_EQ(
      EventErrors(R"("size": 4)"),
      Lines{"s.json:1: steps/0/size: unknown key; known here: detail, deviceSource, event, file, process, "
            "readSize, repeat, stream, streamFlag, time"});
  EXPECT_EQ(UploadErrors(R"("user": "me")"),
            Lines{"s.json:1: expect/0/user: unknown key; known here: detection, endpoints, endpointsAre, "
                  "file, fileEventType, isNetworkDrive, "
                  "process"});
}

TEST(ScenarioErrors, ProcessesAndFilesAreObjectsWithAnImageOrAPath) {
  EXPECT_EQ(WithMember("processes", R"({"p": "a.exe"})"),
            Lines{"s.json:1: processes/p: must be an object, is a text"});
  EXPECT_EQ(WithMember("processes", R"({"p": {}})"), Lines{"s.json:1: processes/p: \"image\" is missing"});
  EXPECT_EQ(WithMember("processes", R"({"p": {"image": 1}})"),
            Lines{"s.json:1: processes/p/image: must be a text, is a whole number"});
  EXPECT_EQ(WithMember("files", R"({"f": "a.txt"})"),
            Lines{"s.json:1: files/f: must be an object, is a text"});
  EXPECT_EQ(WithMember("files", R"({"f": {"size": 1}})"), Lines{"s.json:1: files/f: \"path\" is missing"});
  EXPECT_EQ(WithMember("files", R"({"f": {"path": false}})"),
            Lines{"s.json:1: files/f/path: must be a text, is true or false"});
}

TEST(ScenarioErrors, EveryMemberOfAFileHasItsType) {
  EXPECT_EQ(WithMember("files", R"({"f": {"path": "a", "size": "1"}})"),
            Lines{"s.json:1: files/f/size: must be a whole number, is a text"});
  EXPECT_EQ(WithMember("files", R"({"f": {"path": "a", "size": 1.0}})"),
            Lines{"s.json:1: files/f/size: must be a whole number, is a number with a fraction"});
  EXPECT_EQ(WithMember("files", R"({"f": {"path": "a", "directory": 1}})"),
            Lines{"s.json:1: files/f/directory: must be true or false, is a whole number"});
  EXPECT_EQ(WithMember("files", R"({"f": {"deviceName": 1}})"),
            Lines{"s.json:1: files/f/deviceName: must be a text, is a whole number"});
  EXPECT_EQ(WithMember("files", R"({"f": {"deviceName": "a", "reportedName": {}}})"),
            Lines{"s.json:1: files/f/reportedName: must be a text, is an object"});
}

TEST(ScenarioErrors, ADirectoryHasNoSize) {
  EXPECT_EQ(WithMember("files", R"({"f": {"path": "a", "directory": true, "size": 0}})"),
            Lines{"s.json:1: files/f/size: a directory has no size"});
}

// ---- Steps ----

TEST(ScenarioErrors, AStepIsExactlyOneThing) {
  constexpr const char* EXPECTED =
      "s.json:1: steps/0: a step has exactly one of event, exit, flood, traffic, unload, wait";
  EXPECT_EQ(StepErrors("{}"), Lines{EXPECTED});
  EXPECT_EQ(StepErrors(R"({"file": "report"})"), Lines{EXPECTED});
  EXPECT_EQ(StepErrors(R"({"wait": 1, "exit": "chrome"})"), Lines{EXPECTED});
  EXPECT_EQ(StepErrors(R"({"event": "read", "wait": 1, "exit": "chrome", "unload": true})"), Lines{EXPECTED});
}

TEST(ScenarioErrors, AStepIsAnObject) {
  EXPECT_EQ(StepErrors(R"({"wait": 1}, "wait")"), Lines{"s.json:1: steps/1: must be an object, is a text"});
}

TEST(ScenarioErrors, WaitAndExitHaveTheirTypes) {
  EXPECT_EQ(StepErrors(R"({"wait": "1"})"),
            Lines{"s.json:1: steps/0/wait: must be a whole number, is a text"});
  EXPECT_EQ(StepErrors(R"({"exit": 1})"),
            Lines{"s.json:1: steps/0/exit: must be the id of a process, is a whole number"});
  EXPECT_EQ(StepErrors(R"({"exit": "report"})"),
            Lines{"s.json:1: steps/0/exit: no process \"report\"; known: chrome, pscp"});
}

TEST(ScenarioErrors, UnloadIsTrueAndTheLastStep) {
  EXPECT_EQ(StepErrors(R"({"unload": false})"), Lines{"s.json:1: steps/0/unload: can only be true"});
  EXPECT_EQ(StepErrors(R"({"unload": 1})"),
            Lines{"s.json:1: steps/0/unload: must be true or false, is a whole number"});
  EXPECT_EQ(StepErrors(R"({"unload": true}, {"wait": 1}, {"unload": true})"),
            (Lines{"s.json:1: steps/1: no step can follow \"unload\"",
                   "s.json:1: steps/2: no step can follow \"unload\""}));
}

TEST(ScenarioErrors, AnEventNeedsAProcessAndAFileThatAreKnown) {
  EXPECT_EQ(StepErrors(R"({"event": "read"})"),
            (Lines{"s.json:1: steps/0: \"process\" is missing", "s.json:1: steps/0: \"file\" is missing"}));
  EXPECT_EQ(StepErrors(R"({"event": "read", "process": [], "file": null})"),
            (Lines{"s.json:1: steps/0/process: must be the id of a process, is a list",
                   "s.json:1: steps/0/file: must be the id of a file, is null"}));
  EXPECT_EQ(
      StepErrors(R"({"event": "read", "process": "Chrome", "file": "Report"})"),
      (Lines{"s.json:1: steps/0/process: no process \"Chrome\"; known: chrome, pscp",
             "s.json:1: steps/0/file: no file \"Report\"; known: empty, folder, nameless, report, share"}));
}

TEST(ScenarioErrors, WithoutAnyIdNoneIsKnown) {
  EXPECT_EQ(WithMember("steps", R"([{"exit": "p"}])"),
            Lines{"s.json:1: steps/0/exit: no process \"p\"; known: none"});
}

TEST(ScenarioErrors, OfManyKnownIdsTheFirstTwentyAreShown) {
  const auto errors = [](char last) {
    ScenarioText text;
    text.processes.clear();
    for (char id = 'a'; id <= last; ++id) {
      text.processes += (id == 'a' ? "\"" : ", \"") + std::string(1, id) + R"(": {"image": "i"})";
    }
    text.steps = R"({"exit": "z"})";
    return ErrorsOf(text.Text());
  };
  const std::string twenty =
      "s.json:1: steps/0/exit: no process \"z\"; known: a, b, c, d, e, f, g, h, i, j, k, l, m, n, o, p, q, "
      "r, s, t";
  EXPECT_EQ(errors('t'), Lines{twenty});
  EXPECT_EQ(errors('u'), Lines{twenty + ", ..."});
}

TEST(ScenarioErrors, AnEventTypeIsAKnownWordOrANumber) {
  constexpr const char* EXPECTED =
      "s.json:1: steps/0/event: must be one of read, write, network-info, standard-info, cloud-drive, or a "
      "number";
  for (const char* const type : {R"("delete")", R"("Read")", R"("")", "1.5", "null", "true", "[]", "{}"}) {
    EXPECT_EQ(StepErrors(std::string(R"({"process": "chrome", "file": "report", "event": )") + type + "}"),
              Lines{EXPECTED})
        << type;
  }
}

TEST(ScenarioErrors, ACodeBelongsToTheWordCloudDriveAlways) {
  EXPECT_EQ(StepErrors(R"({"event": "cloud-drive", "process": "chrome", "file": "report"})"),
            Lines{"s.json:1: steps/0: \"code\" is missing"});
  EXPECT_EQ(StepErrors(R"({"event": "cloud-drive", "code": "4", "process": "chrome", "file": "report"})"),
            Lines{"s.json:1: steps/0/code: must be a whole number, is a text"});
  EXPECT_EQ(
      StepErrors(R"({"event": 4, "code": 4, "process": "chrome", "file": "report", "deviceSource": 0})"),
      Lines{"s.json:1: steps/0/code: unknown key; known here: detail, deviceSource, event, file, process, "
            "readSize, repeat, stream, streamFlag, time"});
}

TEST(ScenarioErrors, EveryMemberOfAnEventHasItsType) {
  for (const char* const key : {"streamFlag", "readSize", "detail", "time", "repeat"}) {
    EXPECT_EQ(EventErrors(std::string("\"") + key + "\": \"1\""),
              Lines{std::string("s.json:1: steps/0/") + key + ": must be a whole number, is a text"});
  }
  EXPECT_EQ(EventErrors(R"("stream": 1)"),
            Lines{"s.json:1: steps/0/stream: must be a text, is a whole number"});
  EXPECT_EQ(EventErrors(R"("stream": "s")"), Lines{"s.json:1: steps/0/stream: must begin with ':'"});
  for (const char* const source : {R"("usb")", "1.5", "null", "[]"}) {
    EXPECT_EQ(EventErrors(std::string("\"deviceSource\": ") + source),
              Lines{"s.json:1: steps/0/deviceSource: must be one of local, network, other, or a number"})
        << source;
  }
}

// ---- Expectations ----

TEST(ScenarioErrors, AnExpectationIsOfOneOfTheThreeKinds) {
  EXPECT_EQ(ExpectationErrors(R"({"detection": "copy", "process": "chrome", "file": "report"})"),
            Lines{"s.json:1: expect/0/detection: must be one of upload, download, cloud-drive"});
  EXPECT_EQ(ExpectationErrors(R"({"detection": 0, "process": "chrome", "file": "report"})"),
            Lines{"s.json:1: expect/0/detection: must be a text, is a whole number"});
}

TEST(ScenarioErrors, AnExpectationNamesKnownFilesAndProcesses) {
  EXPECT_EQ(ExpectationErrors(R"({"detection": "upload", "process": "x", "file": "y"})"),
            (Lines{"s.json:1: expect/0/file: no file \"y\"; known: empty, folder, nameless, report, share",
                   "s.json:1: expect/0/process: no process \"x\"; known: chrome, pscp"}));
  EXPECT_EQ(ExpectationErrors(R"({"detection": "upload", "process": ["pscp", "x", 1], "file": "report"})"),
            (Lines{"s.json:1: expect/0/process/1: no process \"x\"; known: chrome, pscp",
                   "s.json:1: expect/0/process/2: must be the id of a process, is a whole number"}));
  EXPECT_EQ(ExpectationErrors(R"({"detection": "upload", "process": [], "file": "report"})"),
            Lines{"s.json:1: expect/0/process: the list is empty"});
}

TEST(ScenarioErrors, ACloudDriveDetectionNeedsItsTypeAndHasNoNetworkFlag) {
  EXPECT_EQ(ExpectationErrors(R"({"detection": "cloud-drive", "process": "chrome", "file": "report"})"),
            Lines{"s.json:1: expect/0: \"fileEventType\" is missing"});
  EXPECT_EQ(
      ExpectationErrors(
          R"({"detection": "cloud-drive", "process": "chrome", "file": "report", "fileEventType": 4, "isNetworkDrive": false})"),
      Lines{"s.json:1: expect/0/isNetworkDrive: is not part of a cloud-drive detection"});
}

TEST(ScenarioErrors, EveryMemberOfAnExpectationHasItsType) {
  EXPECT_EQ(UploadErrors(R"("fileEventType": "0")"),
            Lines{"s.json:1: expect/0/fileEventType: must be a whole number, is a text"});
  EXPECT_EQ(UploadErrors(R"("isNetworkDrive": 0)"),
            Lines{"s.json:1: expect/0/isNetworkDrive: must be true or false, is a whole number"});
}

TEST(ScenarioErrors, ADetectionCanOnlyBeComparedWithANameThatIsReported) {
  EXPECT_EQ(ExpectationErrors(R"({"detection": "upload", "process": "chrome", "file": "share"})"), Lines{});
  EXPECT_EQ(ExpectationErrors(R"({"detection": "upload", "process": "chrome", "file": "nameless"})"),
            Lines{"s.json:1: expect/0/file: has a deviceName but no reportedName, so no detection can be "
                  "compared with "
                  "it"});
}

// ---- Streams ----

constexpr const char* ADDRESS_REFUSED = "must be an address such as 192.0.2.1 or 2001:db8::1, is \"";

Lines TrafficErrors(const std::string& members) {
  return StepErrors(R"({"traffic": "upload", "process": "chrome", "bytes": 1, )" + members + "}");
}

TEST(ScenarioErrors, TrafficNeedsItsStreamAndItsBytes) {
  EXPECT_EQ(StepErrors(R"({"traffic": "upload"})"),
            (Lines{"s.json:1: steps/0: \"process\" is missing", "s.json:1: steps/0: \"address\" is missing",
                   "s.json:1: steps/0: \"port\" is missing", "s.json:1: steps/0: \"bytes\" is missing"}));
}

TEST(ScenarioErrors, AFloodNeedsItsDirectionAndItsStream) {
  EXPECT_EQ(StepErrors(R"({"flood": 1})"),
            (Lines{"s.json:1: steps/0: \"direction\" is missing", "s.json:1: steps/0: \"process\" is missing",
                   "s.json:1: steps/0: \"address\" is missing", "s.json:1: steps/0: \"port\" is missing"}));
}

TEST(ScenarioErrors, TrafficGoesUpOrDown) {
  for (const char* const word : {"\"sideways\"", "1", "true"}) {
    EXPECT_EQ(StepErrors(std::string("{\"traffic\": ") + word +
                         R"(, "process": "chrome", "address": "::", "port": 1, "bytes": 1})"),
              Lines{"s.json:1: steps/0/traffic: must be one of upload, download"});
  }
}

TEST(ScenarioErrors, ATextThatIsNoAddressIsRefusedAsItStands) {
  for (const std::string address :
       {"", "192.0.2", "192.0.2.256", "192.0.02.1", "1:2", "::1%eth0", "example.org"}) {
    EXPECT_EQ(TrafficErrors(R"("port": 1, "address": ")" + address + "\""),
              Lines{"s.json:1: steps/0/address: " + (ADDRESS_REFUSED + address) + "\""});
  }
  EXPECT_EQ(TrafficErrors(R"("port": 1, "address": 7)"),
            Lines{"s.json:1: steps/0/address: must be a text, is a whole number"});
}

TEST(ScenarioErrors, AStepOfOneKindHasNoKeysOfAnother) {
  EXPECT_EQ(
      TrafficErrors(R"("port": 1, "address": "::", "ports": 2)"),
      Lines{"s.json:1: steps/0/ports: unknown key; known here: address, bytes, port, process, records, time, "
            "timeStep, traffic"});
  EXPECT_EQ(StepErrors(R"({"flood": 1, "traffic": "upload"})"),
            Lines{"s.json:1: steps/0: a step has exactly one of event, exit, flood, traffic, unload, wait"});
}

TEST(ScenarioErrors, AnExpectedEndpointNeedsAnAddressAndAPortAndNothingUnknown) {
  EXPECT_EQ(UploadErrors(R"("endpoints": [{}, 7, {"address": "x", "port": 65536, "name": ""}])"),
            (Lines{"s.json:1: expect/0/endpoints/0: \"address\" is missing",
                   "s.json:1: expect/0/endpoints/0: \"port\" is missing",
                   "s.json:1: expect/0/endpoints/1: must be an object, is a whole number",
                   std::string("s.json:1: expect/0/endpoints/2/address: ") + ADDRESS_REFUSED + "x\"",
                   "s.json:1: expect/0/endpoints/2/port: must be from 0 to 65535, is 65536",
                   "s.json:1: expect/0/endpoints/2/name: unknown key; known here: address, hostName, port"}));
  EXPECT_EQ(UploadErrors(R"("endpoints": {})"),
            Lines{"s.json:1: expect/0/endpoints: must be a list, is an object"});
  EXPECT_EQ(UploadErrors(R"("endpointsAre": "all")"),
            Lines{"s.json:1: expect/0/endpointsAre: must be one of match, fallback, none"});
}

TEST(ScenarioErrors, ACloudDriveDetectionHasNoEndpoints) {
  EXPECT_EQ(ExpectationErrors(
                R"({"detection": "cloud-drive", "fileEventType": 4, "process": "chrome", "file": "report",
                                  "endpoints": [], "endpointsAre": "none"})"),
            (Lines{"s.json:1: expect/0/endpoints: is not part of a cloud-drive detection",
                   "s.json:1: expect/0/endpointsAre: is not part of a cloud-drive detection"}));
}

}  // namespace
