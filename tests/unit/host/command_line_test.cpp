#include "command_line.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

using ostrel::host::CommandLine;
using ostrel::host::ExitCode;
using ostrel::host::Options;
using ostrel::host::ParseCommandLine;

using Texts = std::vector<std::wstring>;

Options Accepted(const Texts& arguments) {
  const CommandLine commandLine = ParseCommandLine(arguments, {});
  EXPECT_TRUE(commandLine.options) << commandLine.text;
  return commandLine.options.value_or(Options{});
}

// The first line of the error.
std::string Refused(const Texts& arguments) {
  const CommandLine commandLine = ParseCommandLine(arguments, {});
  EXPECT_FALSE(commandLine.options);
  EXPECT_EQ(commandLine.exitCode, ExitCode::Usage);
  EXPECT_NE(commandLine.text.find("\nRun with --help for more information."), std::string::npos)
      << commandLine.text;
  return commandLine.text.substr(0, commandLine.text.find('\n'));
}

Texts Repeated(const wchar_t* option, int times) {
  Texts arguments{L"--watch", L"a.exe", L"--cloud-process", L"b.exe"};
  for (int i = 0; i < times; ++i) {
    arguments.emplace_back(option);
    arguments.push_back(L"x" + std::to_wstring(i));
  }
  return arguments;
}

TEST(CommandLineTest, WatchAloneIsEnoughAndTheRestHasItsDefaults) {
  const Options options = Accepted({L"--watch", L"chrome.exe"});
  EXPECT_EQ(options.watchedProcesses, Texts{L"chrome.exe"});
  EXPECT_TRUE(options.excludedPaths.empty());
  EXPECT_TRUE(options.cloudProcesses.empty());
  EXPECT_TRUE(options.cloudPaths.empty());
  EXPECT_TRUE(options.excludedCloudPaths.empty());
  EXPECT_EQ(options.userName, L"");
  EXPECT_EQ(options.driverOption, 0);
  EXPECT_FALSE(options.remoteAddressInfo);
  EXPECT_TRUE(options.tabTitles);
  EXPECT_EQ(options.logLevel, 6U);
  EXPECT_EQ(options.logFile, L"");
  EXPECT_EQ(options.seconds, std::nullopt);
  EXPECT_EQ(options.refreshSeconds, 5U);
}

TEST(CommandLineTest, EveryOptionReachesItsPlace) {
  const Options options = Accepted({L"--watch",
                                    L"a.exe",
                                    L"--exclude",
                                    L"C:\\x",
                                    L"--user",
                                    L"J\u00f6rg",
                                    L"--remote-address-info",
                                    L"--driver-option",
                                    L"255",
                                    L"--no-tab-titles",
                                    L"--cloud-process",
                                    L"c.exe",
                                    L"--cloud-path",
                                    L"C:\\Cloud",
                                    L"--cloud-exclude",
                                    L"C:\\Cloud\\tmp",
                                    L"--log-level",
                                    L"3",
                                    L"--log-file",
                                    L"\u65e5.log",
                                    L"--for",
                                    L"600",
                                    L"--refresh",
                                    L"0"});
  EXPECT_EQ(options.watchedProcesses, Texts{L"a.exe"});
  EXPECT_EQ(options.excludedPaths, Texts{L"C:\\x"});
  EXPECT_EQ(options.userName, L"J\u00f6rg");
  EXPECT_TRUE(options.remoteAddressInfo);
  EXPECT_EQ(options.driverOption, 255);
  EXPECT_FALSE(options.tabTitles);
  EXPECT_EQ(options.cloudProcesses, Texts{L"c.exe"});
  EXPECT_EQ(options.cloudPaths, Texts{L"C:\\Cloud"});
  EXPECT_EQ(options.excludedCloudPaths, Texts{L"C:\\Cloud\\tmp"});
  EXPECT_EQ(options.logLevel, 3U);
  EXPECT_EQ(options.logFile, L"\u65e5.log");
  EXPECT_EQ(options.seconds, 600U);
  EXPECT_EQ(options.refreshSeconds, 0U);
}

TEST(CommandLineTest, NamesArePartedByCommasOrGivenAgainAndSpacesAroundThemDropped) {
  EXPECT_EQ(Accepted({L"--watch", L"chrome.exe, firefox.exe", L"--watch", L"my app.exe"}).watchedProcesses,
            (Texts{L"chrome.exe", L"firefox.exe", L"my app.exe"}));
}

TEST(CommandLineTest, PathsMayHoldCommasBracketsAndLeadingSlashes) {
  EXPECT_EQ(
      Accepted({L"--watch", L"a.exe", L"--exclude", L"C:\\a,b", L"--exclude", L"[c,d]", L"--exclude", L"/e"})
          .excludedPaths,
      (Texts{L"C:\\a,b", L"[c,d]", L"/e"}));
}

TEST(CommandLineTest, CloudProcessesAloneAreEnough) {
  EXPECT_EQ(Accepted({L"--cloud-process", L"a.exe,b.exe"}).cloudProcesses, (Texts{L"a.exe", L"b.exe"}));
}

TEST(CommandLineTest, TabTitlesCanBeAskedForInWords) {
  EXPECT_TRUE(Accepted({L"--watch", L"a.exe", L"--tab-titles"}).tabTitles);
}

TEST(CommandLineTest, TheSelfCheckStandsAlone) {
  EXPECT_TRUE(Accepted({L"--self-check"}).selfCheck);
  EXPECT_FALSE(Accepted({L"--watch", L"a.exe"}).selfCheck);
  EXPECT_EQ(Refused({L"--self-check", L"--watch", L"a.exe"}), "--watch excludes --self-check");
  EXPECT_EQ(Refused({L"--self-check", L"--log-level", L"7"}), "--log-level excludes --self-check");
  EXPECT_EQ(Refused({L"--self-check", L"--provider", L"OneDrive"}), "--provider excludes --self-check");
}

TEST(CommandLineTest, TabTitlesCannotBeBothOnAndOff) {
  EXPECT_EQ(Refused({L"--watch", L"a.exe", L"--tab-titles", L"--no-tab-titles"}),
            "--no-tab-titles excludes --tab-titles");
}

TEST(CommandLineTest, WithNothingToWatchTheErrorSaysHowToNameIt) {
  const std::string error =
      "Nothing to watch: name programs with --watch, such as --watch chrome.exe, or cloud clients with "
      "--cloud-process";
  EXPECT_EQ(Refused({}), error);
  EXPECT_EQ(Refused({L"--for", L"5"}), error);
}

TEST(CommandLineTest, APathInPlaceOfAnImageNameIsRefused) {
  EXPECT_EQ(Refused({L"--watch", L"ok.exe,C:\\bin\\chrome.exe"}),
            "--watch: \"C:\\bin\\chrome.exe\" is a path; give the image name alone, such as chrome.exe");
}

TEST(CommandLineTest, EmptyNamesAndPathsAreRefused) {
  EXPECT_EQ(Refused({L"--watch", L""}), "--watch: an image name is empty");
  EXPECT_EQ(Refused({L"--watch", L" , "}), "--watch: an image name is empty");
  EXPECT_EQ(Refused({L"--watch", L"a.exe", L"--exclude", L""}), "--exclude: a path is empty");
  EXPECT_EQ(Refused({L"--watch", L"a.exe", L"--log-file", L""}), "--log-file: a path is empty");
}

TEST(CommandLineTest, AnOptionWithoutItsValueIsRefused) {
  EXPECT_EQ(Refused({L"--watch"}), "--watch: 1 required NAMES missing");
}

TEST(CommandLineTest, AnOptionThatMakesNoSenseAloneSaysWhatItNeeds) {
  EXPECT_EQ(Refused({L"--cloud-process", L"a.exe", L"--exclude", L"C:\\"}), "--exclude requires --watch");
  EXPECT_EQ(Refused({L"--watch", L"a.exe", L"--cloud-path", L"C:\\"}),
            "--cloud-path requires --cloud-process");
  EXPECT_EQ(Refused({L"--watch", L"a.exe", L"--cloud-exclude", L"C:\\"}),
            "--cloud-exclude requires --cloud-process");
  EXPECT_EQ(Refused({L"--watch", L"a.exe", L"--remote-address-info"}),
            "--remote-address-info requires --user");
  EXPECT_EQ(Refused({L"--cloud-process", L"a.exe", L"--user", L"anna", L"--remote-address-info"}),
            "--user requires --watch");
}

TEST(CommandLineTest, AUserWithoutANameIsRefused) {
  EXPECT_EQ(Refused({L"--watch", L"a.exe", L"--user", L"", L"--remote-address-info"}),
            "--user: an account name is empty");
}

TEST(CommandLineTest, UnknownWordsAreNamed) {
  EXPECT_EQ(Refused({L"--watch", L"a.exe", L"--wach"}), "The following argument was not expected: --wach");
  EXPECT_EQ(Refused({L"--watch", L"a.exe", L"b.exe"}), "The following argument was not expected: b.exe");
}

TEST(CommandLineTest, NumbersOutsideTheirRangeAreRefused) {
  EXPECT_EQ(Refused({L"--watch", L"a", L"--for", L"0"}), "--for: Value 0 not in range 1 to 4000000");
  EXPECT_EQ(Refused({L"--watch", L"a", L"--for", L"4000001"}),
            "--for: Value 4000001 not in range 1 to 4000000");
  EXPECT_EQ(Refused({L"--watch", L"a", L"--for", L"soon"}), "--for: Value soon not in range 1 to 4000000");
  EXPECT_EQ(Refused({L"--watch", L"a", L"--refresh", L"-1"}),
            "--refresh: Value -1 not in range 0 to 4000000");
  EXPECT_EQ(Refused({L"--watch", L"a", L"--driver-option", L"256"}),
            "--driver-option: Value 256 not in range 0 to 255");
  EXPECT_EQ(Refused({L"--watch", L"a", L"--log-level", L"5"}), "--log-level: 5 not in {3,6,7}");
}

TEST(CommandLineTest, WhatTheMinifilterCannotHoldIsRefusedRatherThanDropped) {
  EXPECT_EQ(Accepted(Repeated(L"--watch", 63)).watchedProcesses.size(), 64U);
  EXPECT_EQ(Refused(Repeated(L"--watch", 64)), "--watch: at most 64 are possible, 65 are given");
  EXPECT_EQ(Accepted(Repeated(L"--exclude", 200)).excludedPaths.size(), 200U);
  EXPECT_EQ(Refused(Repeated(L"--exclude", 201)), "--exclude: at most 200 are possible, 201 are given");
  EXPECT_EQ(Refused(Repeated(L"--cloud-process", 64)),
            "--cloud-process: at most 64 are possible, 65 are given");
  EXPECT_EQ(Accepted(Repeated(L"--cloud-path", 10)).cloudPaths.size(), 10U);
  EXPECT_EQ(Refused(Repeated(L"--cloud-path", 11)), "--cloud-path: at most 10 are possible, 11 are given");
  EXPECT_EQ(Refused(Repeated(L"--cloud-exclude", 11)),
            "--cloud-exclude: at most 10 are possible, 11 are given");
}

TEST(CommandLineTest, AUserNameHas255CharactersAtMost) {
  EXPECT_EQ(Accepted({L"--watch", L"a", L"--user", std::wstring(255, L'\u00e9')}).userName.size(), 255U);
  EXPECT_EQ(Refused({L"--watch", L"a", L"--user", std::wstring(256, L'u')}),
            "--user: longer than 255 characters");
}

TEST(CommandLineTest, HelpNamesEveryOptionAndEveryExitCode) {
  const CommandLine help = ParseCommandLine({L"--help"}, {});
  EXPECT_FALSE(help.options);
  EXPECT_EQ(help.exitCode, ExitCode::Success);
  for (const char* part : {"--watch",
                           "--exclude",
                           "--cloud-process",
                           "--cloud-path",
                           "--cloud-exclude",
                           "--driver-option",
                           "--user",
                           "--tab-titles",
                           "--no-tab-titles",
                           "--log-level",
                           "--log-file",
                           "--for",
                           "--refresh",
                           "--help",
                           "--version",
                           "Examples:",
                           "\n  0  ",
                           "\n  1  ",
                           "\n  2  ",
                           "\n  3  ",
                           "\n  4  ",
                           "\n  5  ",
                           "\n  6  ",
                           "\n  7  ",
                           "\n  8  ",
                           "\n  9  ",
                           "\n  10 ",
                           "\n  11 ",
                           "\n  12 ",
                           "--self-check",
                           "--remote-address-info"}) {
    EXPECT_NE(help.text.find(part), std::string::npos) << part;
  }
}

TEST(CommandLineTest, HelpFitsAConsoleOfHundredColumns) {
  std::istringstream help(ParseCommandLine({L"--help"}, {}).text);
  for (std::string line; std::getline(help, line);) EXPECT_LE(line.size(), 100U) << line;
}

TEST(CommandLineTest, VersionIsTheProgramsNameAndNumber) {
  const CommandLine version = ParseCommandLine({L"--version"}, {});
  EXPECT_FALSE(version.options);
  EXPECT_EQ(version.exitCode, ExitCode::Success);
  EXPECT_EQ(version.text, "OstrelHost " OSTREL_EXPECTED_VERSION "\n");
}

TEST(ExitCodeTest, TheNumbersStayAsTheyAre) {
  EXPECT_EQ(static_cast<int>(ExitCode::Success), 0);
  EXPECT_EQ(static_cast<int>(ExitCode::Internal), 1);
  EXPECT_EQ(static_cast<int>(ExitCode::Usage), 2);
  EXPECT_EQ(static_cast<int>(ExitCode::DriverFilesMissing), 3);
  EXPECT_EQ(static_cast<int>(ExitCode::NotElevated), 4);
  EXPECT_EQ(static_cast<int>(ExitCode::InstallFailed), 5);
  EXPECT_EQ(static_cast<int>(ExitCode::LoadFailed), 6);
  EXPECT_EQ(static_cast<int>(ExitCode::PortRefused), 7);
  EXPECT_EQ(static_cast<int>(ExitCode::UnloadFailed), 8);
  EXPECT_EQ(static_cast<int>(ExitCode::OutputFailed), 9);
  EXPECT_EQ(static_cast<int>(ExitCode::RemoteAddressInfoFailed), 10);
  EXPECT_EQ(static_cast<int>(ExitCode::QueryFailed), 11);
  EXPECT_EQ(static_cast<int>(ExitCode::SelfCheckFailed), 12);
}

}  // namespace
