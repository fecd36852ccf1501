#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "detections.h"
#include "scenario.h"

namespace {

using ostrel::lab::Compare;
using ostrel::lab::ComparisonRow;
using ostrel::lab::Detection;
using ostrel::lab::DetectionKind;
using ostrel::lab::EndpointsMeaning;
using ostrel::lab::Expectation;
using ostrel::lab::ExpectedEndpoint;
using ostrel::lab::ParseAddress;
using ostrel::lab::ReportedEndpoint;
using ostrel::lab::Scenario;
using ostrel::lab::Verdict;
using Lines = std::vector<std::string>;

constexpr const char* WORK_DIRECTORY = "C:\\lab";
constexpr std::size_t CHROME = 0;
constexpr std::size_t PSCP = 1;
constexpr std::size_t REPORT = 0;
constexpr std::size_t SHARE = 1;

Scenario Expecting(std::vector<Expectation> expectations) {
  Scenario scenario;
  scenario.processes = {{"c", "chrome.exe"}, {"p", "pscp.exe"}};
  scenario.files.resize(2);
  scenario.files[REPORT].path = "team\\report.pdf";
  scenario.files[SHARE].deviceName = "\\Device\\Mup\\s\\x\\a.txt";
  scenario.files[SHARE].reportedName = "\\\\s\\x\\a.txt";
  scenario.expectations = std::move(expectations);
  return scenario;
}

Expectation Upload(std::size_t file, std::vector<std::size_t> processes,
                   std::optional<bool> isNetworkDrive = {}) {
  return {DetectionKind::Upload, file, std::move(processes), 0, isNetworkDrive};
}

const std::string REPORT_NAME = "C:\\lab\\files\\team\\report.pdf";
const std::string CHROME_IMAGE = "\\Device\\HarddiskVolume1\\lab\\processes\\c\\chrome.exe";
const std::string PSCP_IMAGE = "\\Device\\HarddiskVolume1\\lab\\processes\\p\\pscp.exe";

Detection Uploaded(std::string file, std::string process, std::optional<bool> isNetworkDrive = false) {
  return {DetectionKind::Upload, std::move(file), std::move(process), 0, isNetworkDrive};
}

// One text per row: the verdict, what was expected and what was reported.
Lines Compared(const Scenario& scenario, const std::vector<Detection>& detections) {
  Lines lines;
  for (const ComparisonRow& row : Compare(scenario, WORK_DIRECTORY, detections)) {
    const char* const verdict = row.verdict == Verdict::Ok        ? "ok: "
                                : row.verdict == Verdict::Missing ? "missing: "
                                                                  : "unexpected: ";
    lines.push_back(verdict + row.expected + " / " + row.reported);
  }
  return lines;
}

TEST(Compare, NothingExpectedAndNothingReportedIsAnEmptyTable) {
  EXPECT_EQ(Compared(Expecting({}), {}), Lines{});
}

TEST(Compare, AnExpectedDetectionIsFine) {
  EXPECT_EQ(Compared(Expecting({Upload(REPORT, {CHROME})}), {Uploaded(REPORT_NAME, CHROME_IMAGE)}),
            Lines{"ok: upload team\\report.pdf by chrome.exe / upload team\\report.pdf by chrome.exe"});
}

TEST(Compare, AnExpectationThatNothingAccountsForIsMissing) {
  EXPECT_EQ(Compared(Expecting({Upload(REPORT, {CHROME}), Upload(SHARE, {PSCP})}), {}),
            (Lines{"missing: upload team\\report.pdf by chrome.exe / nothing",
                   "missing: upload \\\\s\\x\\a.txt by pscp.exe / nothing"}));
}

TEST(Compare, ADetectionThatNobodyExpectsIsUnexpected) {
  EXPECT_EQ(Compared(Expecting({}), {Uploaded(REPORT_NAME, CHROME_IMAGE), Uploaded("D:\\other", "x.exe")}),
            (Lines{"unexpected: nothing / upload team\\report.pdf by chrome.exe",
                   "unexpected: nothing / upload D:\\other by x.exe"}));
}

TEST(Compare, ADetectionReportedTwiceIsUnexpectedTheSecondTime) {
  EXPECT_EQ(Compared(Expecting({Upload(REPORT, {CHROME})}),
                     {Uploaded(REPORT_NAME, CHROME_IMAGE), Uploaded(REPORT_NAME, CHROME_IMAGE)}),
            (Lines{"ok: upload team\\report.pdf by chrome.exe / upload team\\report.pdf by chrome.exe",
                   "unexpected: nothing / upload team\\report.pdf by chrome.exe"}));
}

TEST(Compare, OneDetectionAccountsForOnlyOneOfTwoEqualExpectations) {
  const Scenario twice = Expecting({Upload(REPORT, {CHROME}), Upload(REPORT, {CHROME})});
  const std::string text = "upload team\\report.pdf by chrome.exe";
  EXPECT_EQ(Compared(twice, {Uploaded(REPORT_NAME, CHROME_IMAGE)}),
            (Lines{"ok: " + text + " / " + text, "missing: " + text + " / nothing"}));
  EXPECT_EQ(Compared(twice, {Uploaded(REPORT_NAME, CHROME_IMAGE), Uploaded(REPORT_NAME, CHROME_IMAGE)}),
            (Lines{"ok: " + text + " / " + text, "ok: " + text + " / " + text}));
}

TEST(Compare, TheOrderOfDetectionsDoesNotMatter) {
  EXPECT_EQ(Compared(Expecting({Upload(REPORT, {CHROME}), Upload(SHARE, {PSCP})}),
                     {Uploaded("\\\\s\\x\\a.txt", PSCP_IMAGE), Uploaded(REPORT_NAME, CHROME_IMAGE)}),
            (Lines{"ok: upload team\\report.pdf by chrome.exe / upload team\\report.pdf by chrome.exe",
                   "ok: upload \\\\s\\x\\a.txt by pscp.exe / upload \\\\s\\x\\a.txt by pscp.exe"}));
}

TEST(Compare, AnyOfTheListedProcessesMayBeReportedButOnlyOnce) {
  const Scenario scenario = Expecting({Upload(REPORT, {CHROME, PSCP})});
  const std::string expected = "upload team\\report.pdf by chrome.exe or pscp.exe";
  EXPECT_EQ(Compared(scenario, {Uploaded(REPORT_NAME, CHROME_IMAGE)}),
            Lines{"ok: " + expected + " / upload team\\report.pdf by chrome.exe"});
  EXPECT_EQ(Compared(scenario, {Uploaded(REPORT_NAME, PSCP_IMAGE)}),
            Lines{"ok: " + expected + " / upload team\\report.pdf by pscp.exe"});
  EXPECT_EQ(Compared(scenario, {Uploaded(REPORT_NAME, PSCP_IMAGE), Uploaded(REPORT_NAME, CHROME_IMAGE)}),
            (Lines{"ok: " + expected + " / upload team\\report.pdf by pscp.exe",
                   "unexpected: nothing / upload team\\report.pdf by chrome.exe"}));
}

TEST(Compare, AnotherProcessIsBothMissingAndUnexpected) {
  EXPECT_EQ(Compared(Expecting({Upload(REPORT, {CHROME})}), {Uploaded(REPORT_NAME, PSCP_IMAGE)}),
            (Lines{"missing: upload team\\report.pdf by chrome.exe / nothing",
                   "unexpected: nothing / upload team\\report.pdf by pscp.exe"}));
}

TEST(Compare, AProcessIsKnownByTheEndOfItsImagePathInAnyCase) {
  const Scenario scenario = Expecting({Upload(REPORT, {CHROME})});
  const auto verdict = [&](const char* image) {
    return Compare(scenario, WORK_DIRECTORY, {Uploaded(REPORT_NAME, image)}).front().verdict;
  };
  EXPECT_EQ(verdict("\\Device\\X\\PROCESSES\\C\\Chrome.EXE"), Verdict::Ok);
  EXPECT_EQ(verdict("\\processes\\c\\chrome.exe"), Verdict::Ok);
  EXPECT_EQ(verdict("processes\\c\\chrome.exe"), Verdict::Missing);
  EXPECT_EQ(verdict("\\Device\\X\\processes\\d\\chrome.exe"), Verdict::Missing);
  EXPECT_EQ(verdict("\\Device\\X\\processes\\c\\chrome.exe2"), Verdict::Missing);
  EXPECT_EQ(verdict(""), Verdict::Missing);
}

TEST(Compare, AFileNameMustBeTheSameCharacterByCharacter) {
  const Scenario scenario = Expecting({Upload(REPORT, {CHROME})});
  const auto verdict = [&](const char* file) {
    return Compare(scenario, WORK_DIRECTORY, {Uploaded(file, CHROME_IMAGE)}).front().verdict;
  };
  EXPECT_EQ(verdict("C:\\lab\\files\\team\\report.pdf"), Verdict::Ok);
  EXPECT_EQ(verdict("C:\\lab\\files\\team\\Report.pdf"), Verdict::Missing);
  EXPECT_EQ(verdict("C:\\lab\\files\\team\\report.pdf:s"), Verdict::Missing);
  EXPECT_EQ(verdict("D:\\lab\\files\\team\\report.pdf"), Verdict::Missing);
  EXPECT_EQ(verdict("team\\report.pdf"), Verdict::Missing);
}

TEST(Compare, AFileWithADeviceNameIsComparedByItsReportedName) {
  const Scenario scenario = Expecting({Upload(SHARE, {CHROME})});
  EXPECT_EQ(Compared(scenario, {Uploaded("\\\\s\\x\\a.txt", CHROME_IMAGE)}),
            Lines{"ok: upload \\\\s\\x\\a.txt by chrome.exe / upload \\\\s\\x\\a.txt by chrome.exe"});
  EXPECT_EQ(Compared(scenario, {Uploaded("\\Device\\Mup\\s\\x\\a.txt", CHROME_IMAGE)}),
            (Lines{"missing: upload \\\\s\\x\\a.txt by chrome.exe / nothing",
                   "unexpected: nothing / upload \\Device\\Mup\\s\\x\\a.txt by chrome.exe"}));
}

TEST(Compare, AnUnstatedNetworkFlagMatchesAny) {
  const Scenario scenario = Expecting({Upload(SHARE, {CHROME})});
  EXPECT_EQ(
      Compared(scenario, {Uploaded("\\\\s\\x\\a.txt", CHROME_IMAGE, true)}),
      Lines{
          "ok: upload \\\\s\\x\\a.txt by chrome.exe / upload \\\\s\\x\\a.txt by chrome.exe, network drive"});
  EXPECT_EQ(Compared(scenario, {Uploaded("\\\\s\\x\\a.txt", CHROME_IMAGE, std::nullopt)}),
            Lines{"ok: upload \\\\s\\x\\a.txt by chrome.exe / upload \\\\s\\x\\a.txt by chrome.exe"});
}

TEST(Compare, AStatedNetworkFlagMustBeReported) {
  const std::string name = "\\\\s\\x\\a.txt";
  const std::string text = "upload " + name + " by chrome.exe";
  const Scenario network = Expecting({Upload(SHARE, {CHROME}, true)});
  EXPECT_EQ(Compared(network, {Uploaded(name, CHROME_IMAGE, true)}),
            Lines{"ok: " + text + ", network drive / " + text + ", network drive"});
  EXPECT_EQ(Compared(network, {Uploaded(name, CHROME_IMAGE, false)}),
            (Lines{"missing: " + text + ", network drive / nothing", "unexpected: nothing / " + text}));
  EXPECT_EQ(Compared(network, {Uploaded(name, CHROME_IMAGE, std::nullopt)}),
            (Lines{"missing: " + text + ", network drive / nothing", "unexpected: nothing / " + text}));
  const Scenario local = Expecting({Upload(SHARE, {CHROME}, false)});
  EXPECT_EQ(Compared(local, {Uploaded(name, CHROME_IMAGE, false)}),
            Lines{"ok: " + text + ", local drive / " + text});
  EXPECT_EQ(Compared(local, {Uploaded(name, CHROME_IMAGE, true)}),
            (Lines{"missing: " + text + ", local drive / nothing",
                   "unexpected: nothing / " + text + ", network drive"}));
}

TEST(Compare, KindAndTypeMustAgree) {
  Detection download = Uploaded(REPORT_NAME, CHROME_IMAGE);
  download.kind = DetectionKind::Download;
  download.fileEventType = 1;
  EXPECT_EQ(Compared(Expecting({Upload(REPORT, {CHROME})}), {download}),
            (Lines{"missing: upload team\\report.pdf by chrome.exe / nothing",
                   "unexpected: nothing / download team\\report.pdf by chrome.exe"}));
  Detection odd = Uploaded(REPORT_NAME, CHROME_IMAGE);
  odd.fileEventType = 2;
  EXPECT_EQ(Compared(Expecting({Upload(REPORT, {CHROME})}), {odd}),
            (Lines{"missing: upload team\\report.pdf by chrome.exe / nothing",
                   "unexpected: nothing / upload 2 team\\report.pdf by chrome.exe"}));
}

TEST(Compare, ACloudDriveDetectionIsShownWithItsType) {
  const Scenario scenario = Expecting({{DetectionKind::CloudDrive, REPORT, {CHROME}, 5, std::nullopt}});
  Detection detection{DetectionKind::CloudDrive, REPORT_NAME, CHROME_IMAGE, 5, std::nullopt};
  EXPECT_EQ(Compared(scenario, {detection}), Lines{"ok: cloud-drive 5 team\\report.pdf by chrome.exe / "
                                                   "cloud-drive 5 team\\report.pdf by chrome.exe"});
  detection.fileEventType = 6;
  EXPECT_EQ(Compared(scenario, {detection}),
            (Lines{"missing: cloud-drive 5 team\\report.pdf by chrome.exe / nothing",
                   "unexpected: nothing / cloud-drive 6 team\\report.pdf by chrome.exe"}));
}

TEST(FilePath, FilesAndImagesLieBelowTheWorkDirectory) {
  ostrel::lab::FileEntry file;
  file.path = "a\\b.txt";
  EXPECT_EQ(ostrel::lab::FilePath("C:\\lab", file), "C:\\lab\\files\\a\\b.txt");
  EXPECT_EQ(ostrel::lab::ImagePathTail({"id", "a.exe"}), "\\processes\\id\\a.exe");
}

// ---- Endpoints ----

ExpectedEndpoint To(const std::string& address, std::uint16_t port,
                    std::optional<std::string> hostName = {}) {
  return {address, ParseAddress(address).value(), port, std::move(hostName)};
}

Verdict EndpointVerdict(std::vector<ExpectedEndpoint> expected, std::vector<ReportedEndpoint> reported) {
  Expectation expectation = Upload(REPORT, {CHROME});
  expectation.endpoints = std::move(expected);
  Detection detection = Uploaded(REPORT_NAME, CHROME_IMAGE);
  detection.endpoints = std::move(reported);
  return Compare(Expecting({expectation}), WORK_DIRECTORY, {detection}).front().verdict;
}

Verdict MeaningVerdict(std::optional<EndpointsMeaning> expected, std::optional<EndpointsMeaning> reported) {
  Expectation expectation = Upload(REPORT, {CHROME});
  expectation.endpointsMeaning = expected;
  Detection detection = Uploaded(REPORT_NAME, CHROME_IMAGE);
  detection.endpointsMeaning = reported;
  return Compare(Expecting({expectation}), WORK_DIRECTORY, {detection}).front().verdict;
}

TEST(Compare, ExpectedEndpointsAreAllThatIsReportedInTheirOrder) {
  const std::vector<ReportedEndpoint> reported{{"192.0.2.1", 443, "a"}, {"2001:db8::1", 22, ""}};
  EXPECT_EQ(EndpointVerdict({To("192.0.2.1", 443), To("2001:db8::1", 22)}, reported), Verdict::Ok);
  EXPECT_EQ(EndpointVerdict({To("2001:db8::1", 22), To("192.0.2.1", 443)}, reported), Verdict::Missing);
  EXPECT_EQ(EndpointVerdict({To("192.0.2.1", 443)}, reported), Verdict::Missing);
  EXPECT_EQ(EndpointVerdict({}, reported), Verdict::Missing);
  EXPECT_EQ(EndpointVerdict({}, {}), Verdict::Ok);
}

TEST(Compare, AnEndpointIsItsAddressHoweverWrittenAndItsPort) {
  EXPECT_EQ(EndpointVerdict({To("2001:db8::1", 443)}, {{"2001:DB8:0:0::1", 443, ""}}), Verdict::Ok);
  EXPECT_EQ(EndpointVerdict({To("192.0.2.1", 443)}, {{"1.2.0.192", 443, ""}}), Verdict::Missing);
  EXPECT_EQ(EndpointVerdict({To("192.0.2.1", 443)}, {{"192.0.2.1", 444, ""}}), Verdict::Missing);
  EXPECT_EQ(EndpointVerdict({To("0.0.0.0", 0)}, {{"", 0, ""}}), Verdict::Missing);
}

TEST(Compare, AHostNameIsComparedOnlyWhenItIsExpected) {
  EXPECT_EQ(EndpointVerdict({To("192.0.2.1", 443)}, {{"192.0.2.1", 443, "a"}}), Verdict::Ok);
  EXPECT_EQ(EndpointVerdict({To("192.0.2.1", 443, "a")}, {{"192.0.2.1", 443, "a"}}), Verdict::Ok);
  EXPECT_EQ(EndpointVerdict({To("192.0.2.1", 443, "")}, {{"192.0.2.1", 443, "a"}}), Verdict::Missing);
}

TEST(Compare, ADetectionWithoutEndpointsIsNotOneWithNone) {
  Expectation expectation = Upload(REPORT, {CHROME});
  expectation.endpoints.emplace();
  EXPECT_EQ(Compare(Expecting({expectation}), WORK_DIRECTORY, {Uploaded(REPORT_NAME, CHROME_IMAGE)})
                .front()
                .verdict,
            Verdict::Missing);
}

TEST(Compare, WhatEndpointsAreIsComparedOnlyWhenItIsExpected) {
  EXPECT_EQ(MeaningVerdict({}, EndpointsMeaning::Fallback), Verdict::Ok);
  EXPECT_EQ(MeaningVerdict(EndpointsMeaning::Match, EndpointsMeaning::Match), Verdict::Ok);
  EXPECT_EQ(MeaningVerdict(EndpointsMeaning::Match, EndpointsMeaning::Fallback), Verdict::Missing);
  EXPECT_EQ(MeaningVerdict(EndpointsMeaning::None, {}), Verdict::Missing);
}

TEST(Compare, RowsShowEndpointsWithWhatTheyAre) {
  Expectation expectation = Upload(REPORT, {CHROME});
  expectation.endpoints = {{To("192.0.2.1", 443), To("2001:db8::1", 22, "h")}};
  expectation.endpointsMeaning = EndpointsMeaning::Fallback;
  Detection detection = Uploaded(REPORT_NAME, CHROME_IMAGE);
  detection.endpoints = {{{"192.0.2.1", 443, "a"}}};
  detection.endpointsMeaning = EndpointsMeaning::Match;
  const std::string upload = "upload team\\report.pdf by chrome.exe";
  EXPECT_EQ(Compared(Expecting({expectation}), {detection}),
            (Lines{"missing: " + upload + ", 192.0.2.1:443 or [2001:db8::1]:22 (h), fallback / nothing",
                   "unexpected: nothing / " + upload + ", 192.0.2.1:443 (a), match"}));
  expectation.endpoints.emplace();
  expectation.endpointsMeaning.reset();
  detection.endpoints.emplace();
  detection.endpointsMeaning = EndpointsMeaning::None;
  EXPECT_EQ(Compared(Expecting({expectation}), {detection}),
            Lines{"ok: " + upload + ", no endpoint / " + upload});
}

}  // namespace
