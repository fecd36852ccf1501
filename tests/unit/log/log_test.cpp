#include "log/log.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "util/integers.h"

namespace {

using ostrel::Log;
using ostrel::SetLogSink;
using ostrel_test::LogCapture;
using ostrel_test::LogLine;

// The raw lines, prefix included.
std::vector<std::wstring> rawLines;

void KeepRaw(const wchar_t* text, std::uint32_t) {
  rawLines.emplace_back(text);
}

void Throw(const wchar_t*, std::uint32_t) {
  throw std::runtime_error("sink");
}

class LogTest : public testing::Test {
 protected:
  LogTest() { rawLines.clear(); }
  ~LogTest() override { SetLogSink(nullptr, 0); }

  std::wstring RawLine(const std::wstring& message) {
    SetLogSink(KeepRaw, 7);
    Log(3, L"%s", message.c_str());
    return rawLines.at(0);
  }
};

TEST_F(LogTest, EveryLineStartsWithTheLibrarysPrefix) {
  EXPECT_EQ(RawLine(L"Driver unloaded."), L"OstrelFilterDriver: Driver unloaded.");
}

TEST_F(LogTest, AnEmptyMessageIsThePrefixAlone) {
  EXPECT_EQ(RawLine(L""), L"OstrelFilterDriver: ");
}

TEST_F(LogTest, WithoutASinkNothingHappens) {
  SetLogSink(nullptr, 7);
  Log(3, L"%s", L"nobody listens");
  EXPECT_TRUE(rawLines.empty());
}

TEST_F(LogTest, AMessageReachesTheSinkOnlyUpToTheConfiguredLevel) {
  LogCapture log(6);
  Log(3, L"error");
  Log(6, L"notable");
  Log(7, L"detail");
  EXPECT_EQ(log.Take(), (std::vector<LogLine>{{3, L"error"}, {6, L"notable"}}));
}

// An argument that cannot be read is not read.
TEST_F(LogTest, NothingIsFormattedThatNobodyWillSee) {
  const auto* const unreadable = reinterpret_cast<const wchar_t*>(std::uintptr_t{16});
  SetLogSink(KeepRaw, 6);
  Log(7, L"%s", unreadable);
  SetLogSink(nullptr, 7);
  Log(7, L"%s", unreadable);
  EXPECT_TRUE(rawLines.empty());
}

TEST_F(LogTest, LevelZeroSilencesEveryLevelInUse) {
  LogCapture log(0);
  Log(ostrel::LOG_ERROR, L"error");
  Log(ostrel::LOG_NOTABLE, L"notable");
  Log(ostrel::LOG_DETAIL, L"detail");
  EXPECT_TRUE(log.Take().empty());
}

TEST_F(LogTest, LevelsCompareSigned) {
  {
    LogCapture log(-1);
    Log(0, L"above");
    EXPECT_TRUE(log.Take().empty());
  }
  LogCapture log(0);
  Log(-1, L"below");
  EXPECT_EQ(log.Take(), (std::vector<LogLine>{{0xFFFFFFFF, L"below"}}));
}

TEST_F(LogTest, TheLevelsInUseAreThreeSixAndSeven) {
  EXPECT_EQ(ostrel::LOG_ERROR, 3);
  EXPECT_EQ(ostrel::LOG_NOTABLE, 6);
  EXPECT_EQ(ostrel::LOG_DETAIL, 7);
}

TEST_F(LogTest, ConversionsMeanWhatTheyMeanOnWindows) {
  LogCapture log;
  Log(3, L"%s|%lu|%d|%x|%llu|%%", L"wide \x4E2D", ostrel::ULong32{4294967295}, -5, 0x80070006U,
      18446744073709551615ULL);
  EXPECT_EQ(log.Take(),
            (std::vector<LogLine>{{3, L"wide \x4E2D|4294967295|-5|80070006|18446744073709551615|%"}}));
}

TEST_F(LogTest, AMessageOf1003CharactersArrivesWhole) {
  const std::wstring message(1003, L'x');
  EXPECT_EQ(RawLine(message), L"OstrelFilterDriver: " + message);
}

TEST_F(LogTest, ALongerMessageIsCutTo1003Characters) {
  for (const std::size_t length : {std::size_t{1004}, std::size_t{1005}, std::size_t{5000}}) {
    rawLines.clear();
    EXPECT_EQ(RawLine(std::wstring(length, L'x')), L"OstrelFilterDriver: " + std::wstring(1003, L'x'));
  }
}

TEST_F(LogTest, TheCutFallsInTheFormattedTextNotInTheArguments) {
  SetLogSink(KeepRaw, 7);
  const std::wstring first(600, L'a');
  const std::wstring second(600, L'b');
  Log(7, L"%s-%s-%d", first.c_str(), second.c_str(), 5);
  EXPECT_EQ(rawLines.at(0), L"OstrelFilterDriver: " + first + L"-" + std::wstring(402, L'b'));
}

TEST_F(LogTest, ALaterSinkReplacesTheEarlierOne) {
  LogCapture log;
  SetLogSink(KeepRaw, 7);
  Log(3, L"second");
  EXPECT_TRUE(log.Take().empty());
  EXPECT_EQ(rawLines, std::vector<std::wstring>{L"OstrelFilterDriver: second"});
}

TEST_F(LogTest, AnExceptionOfTheSinkEndsInTheLog) {
  SetLogSink(Throw, 7);
  EXPECT_NO_THROW(Log(3, L"lost"));
  SetLogSink(KeepRaw, 7);
  Log(3, L"arrives");
  EXPECT_EQ(rawLines, std::vector<std::wstring>{L"OstrelFilterDriver: arrives"});
}

}  // namespace
