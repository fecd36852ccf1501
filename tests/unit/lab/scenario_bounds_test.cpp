#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "scenario_reader.h"
#include "scenario_text.h"

namespace {

using ostrel_test::ErrorsOf;
using ostrel_test::ExpectationErrors;
using ostrel_test::Lines;
using ostrel_test::ScenarioText;
using ostrel_test::StepErrors;

std::string Repeated(const std::string& text, std::size_t count) {
  std::string repeated;
  for (std::size_t i = 0; i < count; ++i) repeated += text;
  return repeated;
}

Lines FileErrors(const std::string& members) {
  ScenarioText text;
  text.files = "\"f\": {" + members + "}";
  return ErrorsOf(text.Text());
}

Lines PathErrors(const std::string& path) {
  return FileErrors("\"path\": \"" + path + "\"");
}

Lines ImageErrors(const std::string& image) {
  ScenarioText text;
  text.processes = R"("p": {"image": ")" + image + "\"}";
  return ErrorsOf(text.Text());
}

Lines IdErrors(const std::string& id) {
  ScenarioText text;
  text.processes = "\"" + id + R"(": {"image": "a.exe"})";
  return ErrorsOf(text.Text());
}

const Lines PATH_REFUSED{
    "s.json:1: files/f/path: must be a relative path of plain names, at most 200 bytes long"};
const Lines IMAGE_REFUSED{"s.json:1: processes/p/image: must be a plain file name such as chrome.exe"};

struct Range {
  std::string key;
  std::int64_t least;
  std::int64_t most;
};

// Both ends are in, their neighbours are out, and so is what does not fit into 64 bits or is no whole number.
void ExpectRange(const Range& range, const std::string& place, Lines (*errorsOf)(const std::string&),
                 const std::string& members) {
  const auto errors = [&](const std::string& value) {
    return errorsOf("{" + members + "\"" + range.key + "\": " + value + "}");
  };
  const std::string complaint = "s.json:1: " + place + "/" + range.key + ": must be from " +
                                std::to_string(range.least) + " to " + std::to_string(range.most) + ", is ";
  EXPECT_EQ(errors(std::to_string(range.least)), Lines{});
  EXPECT_EQ(errors(std::to_string(range.most)), Lines{});
  for (const std::int64_t outside : {range.least - 1, range.most + 1, INT64_MIN, INT64_MAX}) {
    EXPECT_EQ(errors(std::to_string(outside)), Lines{complaint + std::to_string(outside)});
  }
}

TEST(ScenarioBounds, EveryNumberOfAnEventHasItsRange) {
  const Range ranges[] = {
      {"streamFlag", 0, 255},          {"readSize", 0, 4294967295},
      {"deviceSource", 0, 4294967295}, {"detail", -2147483648LL, 2147483647},
      {"time", -86400000, 86400000},   {"repeat", 1, 1000000},
  };
  for (const Range& range : ranges) {
    SCOPED_TRACE(range.key);
    ExpectRange(range, "steps/0", StepErrors, R"("event": "read", "process": "chrome", "file": "report", )");
  }
}

TEST(ScenarioBounds, AnEventTypeIsA32BitNumber) {
  ExpectRange({"event", -2147483648LL, 2147483647}, "steps/0", StepErrors,
              R"("process": "chrome", "file": "report", )");
}

TEST(ScenarioBounds, CloudDriveCodesAre4To9) {
  ExpectRange({"code", 4, 9}, "steps/0", StepErrors,
              R"("event": "cloud-drive", "process": "chrome", "file": "report", )");
  ExpectRange({"fileEventType", 4, 9}, "expect/0", ExpectationErrors,
              R"("detection": "cloud-drive", "process": "chrome", "file": "report", )");
}

TEST(ScenarioBounds, AnUploadIsOfType0AndADownloadOfType1) {
  ExpectRange({"fileEventType", 0, 0}, "expect/0", ExpectationErrors,
              R"("detection": "upload", "process": "chrome", "file": "report", )");
  ExpectRange({"fileEventType", 1, 1}, "expect/0", ExpectationErrors,
              R"("detection": "download", "process": "chrome", "file": "report", )");
}

TEST(ScenarioBounds, AWaitLastsUpToTenMinutes) {
  ExpectRange({"wait", 0, 600000}, "steps/0", StepErrors, "");
}

TEST(ScenarioBounds, AFileHasUpToAGibibyte) {
  EXPECT_EQ(FileErrors(R"("path": "a", "size": 0)"), Lines{});
  EXPECT_EQ(FileErrors(R"("path": "a", "size": 1073741824)"), Lines{});
  EXPECT_EQ(FileErrors(R"("path": "a", "size": -1)"),
            Lines{"s.json:1: files/f/size: must be from 0 to 1073741824, is -1"});
  EXPECT_EQ(FileErrors(R"("path": "a", "size": 1073741825)"),
            Lines{"s.json:1: files/f/size: must be from 0 to 1073741824, is 1073741825"});
}

TEST(ScenarioBounds, ADefaultReadSizeIsNeverMoreThanAFileMayHave) {
  ScenarioText text;
  text.files = R"("f": {"path": "a", "size": 1073741824})";
  text.steps = R"({"event": "read", "process": "chrome", "file": "f"})";
  const ostrel::lab::Scenario scenario = ostrel_test::ReadValid(text.Text());
  ASSERT_EQ(scenario.steps.size(), 1U);
  EXPECT_EQ(std::get<ostrel::lab::EventStep>(scenario.steps[0]).readSize, 1073741824U);
}

TEST(ScenarioBounds, AnIdHas1To40OfItsCharacters) {
  EXPECT_EQ(IdErrors("a"), Lines{});
  EXPECT_EQ(IdErrors("abcdefghijklmnopqrstuvwxyz0123456789-_xx"), Lines{});
  EXPECT_EQ(IdErrors("ABCDEFGHIJKLMNOPQRSTUVWXYZ"), Lines{});
  for (const std::string& id : {std::string(41, 'a'), std::string(), std::string("a b"), std::string("a.b"),
                                std::string("a/b"), std::string("\xC3\xA9")}) {
    EXPECT_EQ(IdErrors(id), Lines{"s.json:1: processes/" + id +
                                  ": an id is 1 to 40 letters, digits, hyphens or underscores"});
  }
}

TEST(ScenarioBounds, FileIdsFollowTheSameRule) {
  ScenarioText text;
  text.files = R"("a b": {"path": "a"})";
  EXPECT_EQ(ErrorsOf(text.Text()),
            Lines{"s.json:1: files/a b: an id is 1 to 40 letters, digits, hyphens or underscores"});
}

TEST(ScenarioBounds, AnImageIsAPlainNameOfAtMost200Bytes) {
  EXPECT_EQ(ImageErrors(std::string(200, 'a')), Lines{});
  EXPECT_EQ(ImageErrors("a b.c.exe"), Lines{});
  EXPECT_EQ(ImageErrors("\xE4\xB8\xAD.exe"), Lines{});
  EXPECT_EQ(ImageErrors(std::string(201, 'a')), IMAGE_REFUSED);
  for (const char* const image : {"", ".", "..", "a.", "a ", "a/b", "a\\\\b", "C:", "a<b", "a>b", "a|b",
                                  "a?b", "a*b", "a\\\"b", "a\\u0000b", "a\\u001fb", "a\\tb"}) {
    EXPECT_EQ(ImageErrors(image), IMAGE_REFUSED) << image;
  }
}

TEST(ScenarioBounds, APathHasAtMost200BytesAndStaysBelowTheWorkDirectory) {
  EXPECT_EQ(PathErrors(std::string(200, 'a')), Lines{});
  EXPECT_EQ(PathErrors("a/b\\\\c.d/.e"), Lines{});
  EXPECT_EQ(PathErrors(std::string(201, 'a')), PATH_REFUSED);
  for (const char* const path : {"", "/", "/a", "\\\\a", "a/", "a//b", ".", "..", "../a", "a/../b", "a/./b",
                                 "a\\\\..\\\\b", "C:/a", "a:b", "a./b", "a /b", "a/b ", "a|b", "a\\u0000"}) {
    EXPECT_EQ(PathErrors(path), PATH_REFUSED) << path;
  }
}

TEST(ScenarioBounds, ADeviceNameHasAtMost2048Bytes) {
  EXPECT_EQ(FileErrors("\"deviceName\": \"" + std::string(2048, 'n') + "\""), Lines{});
  EXPECT_EQ(FileErrors("\"deviceName\": \"" + std::string(2049, 'n') + "\""),
            Lines{"s.json:1: files/f/deviceName: is longer than 2048 bytes"});
}

TEST(ScenarioBounds, AListHasAtMost100000Entries) {
  const std::string step = R"({"wait": 0})";
  const std::string most = Repeated(step + ",", 99999) + step;
  EXPECT_EQ(StepErrors(most), Lines{});
  EXPECT_EQ(StepErrors(most + "," + step), Lines{"s.json:1: steps: holds more than 100000 entries"});
  EXPECT_EQ(ExpectationErrors(Repeated("0,", 100000) + "0"),
            Lines{"s.json:1: expect: holds more than 100000 entries"});
}

TEST(ScenarioBounds, AScenarioHasAtMost16Mebibytes) {
  std::string text = R"({"steps": [], "expect": []})";
  text.resize(16u << 20, ' ');
  EXPECT_EQ(ErrorsOf(text), Lines{});
  EXPECT_EQ(ErrorsOf(text + ' '), Lines{"s.json: larger than 16 MiB"});
}

TEST(ScenarioBounds, ValuesNestAtMost16Deep) {
  const auto nested = [](std::size_t depth) {
    // The scenario itself is one level.
    return R"({"steps": [], "expect": [], "x": )" + std::string(depth - 1, '[') +
           std::string(depth - 1, ']') + "}";
  };
  EXPECT_EQ(
      ErrorsOf(nested(16)),
      Lines{"s.json:1: x: unknown key; known here: description, expect, files, name, processes, steps"});
  EXPECT_EQ(ErrorsOf(nested(17)), Lines{"s.json:1:49: nested deeper than 16 levels"});
  EXPECT_EQ(ErrorsOf(std::string(1000000, '[')), Lines{"s.json:1:17: nested deeper than 16 levels"});
  EXPECT_EQ(ErrorsOf(Repeated("{\"a\":", 100000)), Lines{"s.json:1:81: nested deeper than 16 levels"});
}

TEST(ScenarioBounds, ANumberBeyond63BitsIsRefusedWhereverItStands) {
  EXPECT_EQ(ErrorsOf(R"({"x": 9223372036854775808})"),
            Lines{"s.json:1:26: number too large: 9223372036854775808"});
  EXPECT_EQ(ErrorsOf(R"({"x": 18446744073709551615})"),
            Lines{"s.json:1:27: number too large: 18446744073709551615"});
  for (const char* const number :
       {"18446744073709551616", "-9223372036854775809", "99999999999999999999999999999999"}) {
    EXPECT_EQ(
        ErrorsOf(std::string("\n") + number),
        Lines{"s.json:2:" + std::to_string(std::string(number).size()) + ": number too large: " + number});
  }
  EXPECT_EQ(ErrorsOf(R"({"x": 1e400})"), Lines{"s.json:1:12: number overflow parsing '1e400'"});
}

}  // namespace
