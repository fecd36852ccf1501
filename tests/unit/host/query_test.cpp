#include "query.h"

#include <gtest/gtest.h>

#include "command_line.h"

namespace {

using ostrel::host::CommandLine;
using ostrel::host::ExitCode;
using ostrel::host::Options;
using ostrel::host::ParseCommandLine;
using ostrel::host::Queries;
using ostrel::host::QueryAnswer;
using ostrel::host::QueryJson;

const Queries QUERIES{
    {"weather", "what it is like outside",
     [](const Options&) {
       return QueryAnswer{L"rain", {}};
     }},
    {"time", "what the clock shows",
     [](const Options&) {
       return QueryAnswer{{}, L"no clock"};
     }},
    {"account", "who somebody is there",
     [](const Options& options) {
       return QueryAnswer{options.provider + L":" + options.homeDirectory, {}};
     },
     true},
};

CommandLine Parse(const std::vector<std::wstring>& arguments) {
  return ParseCommandLine(arguments, QUERIES);
}

// The first line of the error.
std::string Refused(const std::vector<std::wstring>& arguments) {
  const CommandLine commandLine = Parse(arguments);
  EXPECT_FALSE(commandLine.options);
  EXPECT_EQ(commandLine.exitCode, ExitCode::Usage);
  return commandLine.text.substr(0, commandLine.text.find('\n'));
}

TEST(QueryTest, IsTheOneWithTheNameOnTheCommandLine) {
  const CommandLine commandLine = Parse({L"--query", L"time"});
  ASSERT_TRUE(commandLine.options) << commandLine.text;
  ASSERT_TRUE(commandLine.options->query);
  EXPECT_STREQ(commandLine.options->query->name, "time");
  EXPECT_EQ(commandLine.options->query->ask(*commandLine.options).error, L"no clock");
}

TEST(QueryTest, IsNoneWithoutTheOption) {
  const CommandLine commandLine = Parse({L"--watch", L"a.exe"});
  ASSERT_TRUE(commandLine.options) << commandLine.text;
  EXPECT_FALSE(commandLine.options->query);
}

TEST(QueryTest, OfAnUnknownNameIsRefusedWithTheKnownOnes) {
  EXPECT_EQ(Refused({L"--query", L"tide"}), "--query: tide not in {weather,time,account}");
  EXPECT_EQ(Refused({L"--query", L"Time"}), "--query: Time not in {weather,time,account}");
  EXPECT_EQ(Refused({L"--query", L""}), "--query:  not in {weather,time,account}");
  EXPECT_EQ(Refused({L"--query"}), "--query: 1 required NAME missing");
}

TEST(QueryTest, TakesNoOptionOfWatching) {
  for (const std::wstring option :
       {L"--watch", L"--cloud-process", L"--log-file", L"--for", L"--log-level"}) {
    const std::wstring value = option == L"--for" || option == L"--log-level" ? L"6" : L"a.exe";
    const std::string error = Refused({L"--query", L"time", option, value});
    EXPECT_EQ(error, std::string(option.begin(), option.end()) + " excludes --query");
  }
  EXPECT_EQ(Refused({L"--query", L"time", L"--no-tab-titles"}), "--no-tab-titles excludes --query");
  EXPECT_EQ(Refused({L"--query", L"time", L"--self-check"}), "--query excludes --self-check");
}

TEST(QueryTest, AboutALoginIsAskedWithProviderAndHomeDirectory) {
  const CommandLine commandLine =
      Parse({L"--query", L"account", L"--provider", L"One Drive", L"--home-directory", L"/users/J\u00f6rg"});
  ASSERT_TRUE(commandLine.options) << commandLine.text;
  EXPECT_EQ(commandLine.options->query->ask(*commandLine.options).result, L"One Drive:/users/J\u00f6rg");
}

TEST(QueryTest, AboutALoginNeedsProviderAndHomeDirectory) {
  const std::string error = "--query account: needs --provider and --home-directory";
  EXPECT_EQ(Refused({L"--query", L"account"}), error);
  EXPECT_EQ(Refused({L"--query", L"account", L"--provider", L"OneDrive"}), error);
  EXPECT_EQ(Refused({L"--query", L"account", L"--home-directory", L"C:\\"}), error);
  EXPECT_EQ(Refused({L"--query", L"account", L"--provider", L"", L"--home-directory", L"C:\\"}),
            "--provider: a provider is empty");
  EXPECT_EQ(Refused({L"--query", L"account", L"--provider", L"OneDrive", L"--home-directory", L""}),
            "--home-directory: a path is empty");
}

TEST(QueryTest, AboutNoLoginTakesNeitherProviderNorHomeDirectory) {
  const std::string error = "--provider and --home-directory: only a query about a login takes them";
  EXPECT_EQ(Refused({L"--query", L"time", L"--provider", L"OneDrive"}), error);
  EXPECT_EQ(Refused({L"--query", L"time", L"--home-directory", L"C:\\"}), error);
  EXPECT_EQ(Refused({L"--watch", L"a.exe", L"--provider", L"OneDrive"}), error);
}

TEST(QueryTest, IsExplainedByTheHelp) {
  const CommandLine help = Parse({L"--query", L"time", L"--help"});
  EXPECT_EQ(help.exitCode, ExitCode::Success);
  for (const char* part : {"--query NAME", "weather: what it is like outside", "time: what the clock shows",
                           "\n  11 ", "--query user", "--provider NAME", "--home-directory FOLDER"}) {
    EXPECT_NE(help.text.find(part), std::string::npos) << part << "\n" << help.text;
  }
}

TEST(QueryTest, AnswersWithItsResultAsJson) {
  EXPECT_EQ(QueryJson("user", {L"VM\\J\u00f6rg", {}}),
            "{\"query\":\"user\",\"result\":\"VM\\\\J\xC3\xB6"
            "rg\",\"error\":null}");
}

TEST(QueryTest, AnswersWithAnEmptyResultAsSuch) {
  EXPECT_EQ(QueryJson("directories", {L"", {}}), R"({"query":"directories","result":"","error":null})");
}

TEST(QueryTest, AnswersWithItsErrorAsJson) {
  EXPECT_EQ(QueryJson("proxy", {{}, L"PROXY:: no."}),
            R"({"query":"proxy","result":null,"error":"PROXY:: no."})");
}

TEST(QueryTest, AnswersWithTwoNullsWhenThereIsNothingToTell) {
  EXPECT_EQ(QueryJson("proxy", {}), R"({"query":"proxy","result":null,"error":null})");
}

TEST(QueryTest, FailsWithAnExitCodeOfItsOwn) {
  EXPECT_EQ(static_cast<int>(ExitCode::QueryFailed), 11);
}

}  // namespace
