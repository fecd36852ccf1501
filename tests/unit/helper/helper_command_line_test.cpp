#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "command_line.h"

namespace {

using ostrel::helper::CommandLine;
using ostrel::helper::ExitCode;
using ostrel::helper::ParseCommandLine;
using ::testing::HasSubstr;
using ::testing::StartsWith;

const std::wstring LONGEST(64, L'f');
const std::wstring TOO_LONG(65, L'f');

void ExpectLaunch(const std::wstring& whole, const std::wstring& commandId, const std::wstring& channelName) {
  const CommandLine commandLine = ParseCommandLine(whole);
  ASSERT_TRUE(commandLine.launch) << commandLine.text;
  EXPECT_EQ(commandLine.launch->commandId, commandId);
  EXPECT_EQ(commandLine.launch->channelName, channelName);
}

void ExpectUsage(const std::wstring& whole) {
  const CommandLine commandLine = ParseCommandLine(whole);
  EXPECT_FALSE(commandLine.launch);
  EXPECT_EQ(commandLine.exitCode, ExitCode::Usage);
  EXPECT_THAT(commandLine.text,
              StartsWith("OstrelUserHelper: the command line must be COMMAND-ID CHANNEL-NAME"));
}

void ExpectHelp(const std::wstring& whole) {
  const CommandLine commandLine = ParseCommandLine(whole);
  EXPECT_FALSE(commandLine.launch);
  EXPECT_EQ(commandLine.exitCode, ExitCode::Answered);
  EXPECT_THAT(commandLine.text, HasSubstr("Exit codes:\n  0  answered"));
}

TEST(HelperCommandLine, HasTheCommandIdFirstAndTheChannelNameSecond) {
  ExpectLaunch(L"9f3a 07c2", L"9f3a", L"07c2");
}

TEST(HelperCommandLine, MayHaveBlanksAroundItsWords) {
  ExpectLaunch(L" \t9f3a \t 07c2 ", L"9f3a", L"07c2");
}

TEST(HelperCommandLine, TakesIdentifiersOf1And64Units) {
  ExpectLaunch(L"a " + LONGEST, L"a", LONGEST);
  ExpectLaunch(LONGEST + L" a", LONGEST, L"a");
}

TEST(HelperCommandLine, RefusesIdentifiersOf65Units) {
  ExpectUsage(TOO_LONG + L" a");
  ExpectUsage(L"a " + TOO_LONG);
}

TEST(HelperCommandLine, RefusesAnyOtherNumberOfWords) {
  ExpectUsage(L"");
  ExpectUsage(L"  ");
  ExpectUsage(L"9f3a");
  ExpectUsage(L"9f3a 07c2 1b");
}

TEST(HelperCommandLine, RefusesWhatLeadsElsewhereInAPipesName) {
  ExpectUsage(L"9f3a ..\\other");
  ExpectUsage(L"9f3a a/b");
  ExpectUsage(L"9f3a \"07c2\"");
  ExpectUsage(L"9f3a \x00e4\x00f6");
}

TEST(HelperCommandLine, RefusesAProgramNameInFront) {
  ExpectUsage(L"OstrelUserHelper.exe 9f3a");
  ExpectUsage(L"C:\\nlib\\OstrelUserHelper.exe 9f3a 07c2");
}

TEST(HelperCommandLine, RefusesAnUnknownOption) {
  ExpectUsage(L"OstrelUserHelper.exe --verbose");
}

TEST(HelperCommandLine, GivesHelpWhereverItIsAskedFor) {
  ExpectHelp(L"--help");
  ExpectHelp(L"\"C:\\Program Files\\OstrelUserHelper.exe\" --help");
  ExpectHelp(L"OstrelUserHelper.exe -h");
  ExpectHelp(L"OstrelUserHelper.exe /?");
}

}  // namespace
