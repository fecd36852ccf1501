#include "filter/detection_message.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

using ostrel::DetectionContent;
using ostrel::DetectionKind;
using ostrel::DetectionMessage;
using ostrel::DetectionPaths;

constexpr std::size_t NAMES = 2056;
constexpr std::size_t EXCLUDED = 6152;
constexpr std::size_t CLOUD = 126152;
constexpr std::size_t CLOUD_EXCLUSION = 132152;
constexpr std::size_t COUNTS = 138152;
constexpr std::size_t SIZE = 138176;
constexpr std::size_t PATH_STRIDE = 600;

constexpr unsigned char PATTERN = 0xA5;

std::wstring Path(wchar_t fill, std::size_t length) {
  return std::wstring(length, fill);
}

std::vector<std::wstring> Numbered(const wchar_t* prefix, std::size_t count) {
  std::vector<std::wstring> texts;
  for (std::size_t i = 0; i < count; ++i) texts.push_back(prefix + std::to_wstring(i));
  return texts;
}

// A message full of a pattern between two guards, read back by byte offset alone.
class DetectionMessageTest : public testing::Test {
 protected:
  DetectionMessageTest() { std::memset(static_cast<void*>(guarded_.get()), PATTERN, sizeof(Guarded)); }

  ~DetectionMessageTest() override {
    const auto isPattern = [](unsigned char byte) { return byte == PATTERN; };
    EXPECT_TRUE(std::all_of(std::begin(guarded_->before), std::end(guarded_->before), isPattern));
    EXPECT_TRUE(std::all_of(std::begin(guarded_->after), std::end(guarded_->after), isPattern));
    EXPECT_TRUE(IsUntouched(SIZE - 1, 1));
  }

  void Fill(DetectionKind kind) {
    FillDetectionMessage(guarded_->message, {hostProcessId_, names_, ids_, driverOption_, enabled_, kind},
                         paths_);
  }

  template <typename Value>
  Value At(std::size_t offset) const {
    Value value;
    std::memcpy(&value, reinterpret_cast<const unsigned char*>(&guarded_->message) + offset, sizeof(value));
    return value;
  }
  std::uint32_t Number(std::size_t offset) const { return At<std::uint32_t>(offset); }

  // The text that a reader finds there; it ends at its terminator, wherever that lies.
  std::wstring TextAt(std::size_t offset) const {
    std::wstring text;
    for (; offset + 1 < SIZE; offset += 2) {
      const char16_t character = At<char16_t>(offset);
      if (character == u'\0') break;
      text.push_back(static_cast<wchar_t>(character));
    }
    return text;
  }

  bool IsUntouched(std::size_t offset, std::size_t length) const {
    for (std::size_t i = 0; i < length; ++i) {
      if (At<unsigned char>(offset + i) != PATTERN) return false;
    }
    return true;
  }

  std::uint32_t hostProcessId_ = 4321;
  std::vector<std::wstring> names_;
  std::vector<std::uint32_t> ids_;
  std::uint8_t driverOption_ = 0;
  bool enabled_ = false;
  DetectionPaths paths_;

  struct Guarded {
    unsigned char before[2048];
    DetectionMessage message;
    unsigned char after[2048];
  };
  std::unique_ptr<Guarded> guarded_ = std::make_unique<Guarded>();
};

TEST_F(DetectionMessageTest, EveryFieldOfACloudDriveMessageStandsAtItsOffset) {
  names_ = {L"chrome.exe", L"firefox.exe"};
  ids_ = {11, 22, 33};
  driverOption_ = 0x5A;
  enabled_ = true;
  paths_ = {
      {L"\\Device\\A", L"\\Device\\B"}, {L"\\Device\\C", L"\\Device\\D"}, {L"\\Device\\E", L"\\Device\\F"}};
  Fill(DetectionKind::CloudDrive);

  EXPECT_EQ(Number(0), 7U);
  EXPECT_EQ(Number(4), 4321U);
  EXPECT_EQ(Number(8), 11U);
  EXPECT_EQ(Number(12), 22U);
  EXPECT_EQ(Number(16), 33U);
  EXPECT_TRUE(IsUntouched(20, NAMES - 20));
  EXPECT_EQ(TextAt(NAMES), L"chrome.exe");
  EXPECT_EQ(TextAt(NAMES + 64), L"firefox.exe");
  EXPECT_TRUE(IsUntouched(NAMES + 128, EXCLUDED - NAMES - 128));
  EXPECT_EQ(TextAt(EXCLUDED), L"\\Device\\A");
  EXPECT_EQ(TextAt(EXCLUDED + PATH_STRIDE), L"\\Device\\B");
  EXPECT_TRUE(IsUntouched(EXCLUDED + 2 * PATH_STRIDE, CLOUD - EXCLUDED - 2 * PATH_STRIDE));
  EXPECT_EQ(TextAt(CLOUD), L"\\Device\\C");
  EXPECT_EQ(TextAt(CLOUD + PATH_STRIDE), L"\\Device\\D");
  EXPECT_TRUE(IsUntouched(CLOUD + 2 * PATH_STRIDE, CLOUD_EXCLUSION - CLOUD - 2 * PATH_STRIDE));
  EXPECT_EQ(TextAt(CLOUD_EXCLUSION), L"\\Device\\E");
  EXPECT_EQ(TextAt(CLOUD_EXCLUSION + PATH_STRIDE), L"\\Device\\F");
  EXPECT_TRUE(IsUntouched(CLOUD_EXCLUSION + 2 * PATH_STRIDE, COUNTS - CLOUD_EXCLUSION - 2 * PATH_STRIDE));
  EXPECT_EQ(Number(138152), 3U);
  EXPECT_EQ(Number(138156), 2U);
  EXPECT_EQ(Number(138160), 2U);
  EXPECT_EQ(Number(138164), 2U);
  EXPECT_EQ(Number(138168), 2U);
  EXPECT_EQ(At<std::uint8_t>(138172), 0x5A);
  EXPECT_EQ(At<std::uint8_t>(138173), 1);
  EXPECT_EQ(At<std::uint8_t>(138174), 0);
}

TEST_F(DetectionMessageTest, AnActivityMessageLeavesTheCloudRegionsAndCountsUntouched) {
  paths_ = {Numbered(L"\\x", 250), Numbered(L"\\c", 3), Numbered(L"\\e", 3)};
  enabled_ = true;
  Fill(DetectionKind::Activity);
  EXPECT_TRUE(IsUntouched(CLOUD, COUNTS - CLOUD));
  EXPECT_TRUE(IsUntouched(138164, 8));
  EXPECT_EQ(Number(138160), 200U);
  EXPECT_EQ(At<std::uint8_t>(138173), 1);
  EXPECT_EQ(At<std::uint8_t>(138174), 1);
}

TEST_F(DetectionMessageTest, AMessageWithNothingToSendStillHasItsCountsCodeAndSwitches) {
  Fill(DetectionKind::CloudDrive);
  EXPECT_EQ(Number(0), 7U);
  EXPECT_TRUE(IsUntouched(8, COUNTS - 8));
  for (std::size_t offset = 138152; offset <= 138168; offset += 4) EXPECT_EQ(Number(offset), 0U);
  EXPECT_EQ(At<std::uint8_t>(138172), 0);
  EXPECT_EQ(At<std::uint8_t>(138173), 0);
  EXPECT_EQ(At<std::uint8_t>(138174), 0);
}

TEST_F(DetectionMessageTest, AtMost64NamesAreSent) {
  names_ = Numbered(L"p", 70);
  Fill(DetectionKind::Activity);
  EXPECT_EQ(Number(138156), 64U);
  for (std::size_t i = 0; i < 64; ++i) EXPECT_EQ(TextAt(NAMES + 64 * i), names_[i]);
  EXPECT_TRUE(IsUntouched(EXCLUDED, 64));
}

TEST_F(DetectionMessageTest, ANameIsCutTo31CharactersAndNeverRunsOn) {
  names_ = {Path(L'a', 40), Path(L'b', 32), Path(L'c', 31), L""};
  Fill(DetectionKind::Activity);
  EXPECT_EQ(TextAt(NAMES), Path(L'a', 31));
  EXPECT_EQ(TextAt(NAMES + 64), Path(L'b', 31));
  EXPECT_EQ(TextAt(NAMES + 128), Path(L'c', 31));
  EXPECT_EQ(TextAt(NAMES + 192), L"");
  EXPECT_TRUE(IsUntouched(NAMES + 194, 64));
}

TEST_F(DetectionMessageTest, ALongNameInTheLastSlotLeavesTheFirstPathAlone) {
  names_.assign(64, Path(L'a', 600));
  Fill(DetectionKind::Activity);
  EXPECT_EQ(TextAt(NAMES + 64 * 63), Path(L'a', 31));
  EXPECT_TRUE(IsUntouched(EXCLUDED, 64));
}

TEST_F(DetectionMessageTest, AtMost512ProcessIdsAreSent) {
  for (std::uint32_t id = 0; id < 600; ++id) ids_.push_back(1000 + id);
  Fill(DetectionKind::Activity);
  EXPECT_EQ(Number(138152), 512U);
  for (std::size_t i = 0; i < 512; ++i) EXPECT_EQ(Number(8 + 4 * i), 1000 + i);
  EXPECT_TRUE(IsUntouched(NAMES, 64));
}

TEST_F(DetectionMessageTest, AtMost200ExcludedPathsAreSent) {
  paths_.excluded = Numbered(L"\\x", 250);
  Fill(DetectionKind::Activity);
  EXPECT_EQ(Number(138160), 200U);
  for (std::size_t i = 0; i < 200; ++i) EXPECT_EQ(TextAt(EXCLUDED + PATH_STRIDE * i), paths_.excluded[i]);
}

TEST_F(DetectionMessageTest, AtMostTenCloudPathsAndTenCloudExclusionPathsAreSent) {
  paths_.cloud = Numbered(L"\\c", 12);
  paths_.cloudExclusion = Numbered(L"\\e", 11);
  Fill(DetectionKind::CloudDrive);
  EXPECT_EQ(Number(138164), 10U);
  EXPECT_EQ(Number(138168), 10U);
  for (std::size_t i = 0; i < 10; ++i) {
    EXPECT_EQ(TextAt(CLOUD + PATH_STRIDE * i), paths_.cloud[i]);
    EXPECT_EQ(TextAt(CLOUD_EXCLUSION + PATH_STRIDE * i), paths_.cloudExclusion[i]);
  }
}

TEST_F(DetectionMessageTest, APathOf299CharactersStaysInItsSlotAndOneOf300PutsItsTerminatorIntoTheNext) {
  paths_.excluded = {Path(L'a', 299)};
  Fill(DetectionKind::Activity);
  EXPECT_EQ(TextAt(EXCLUDED), Path(L'a', 299));
  EXPECT_TRUE(IsUntouched(EXCLUDED + PATH_STRIDE, PATH_STRIDE));

  paths_.excluded = {Path(L'b', 300)};
  Fill(DetectionKind::Activity);
  EXPECT_EQ(TextAt(EXCLUDED), Path(L'b', 300));
  EXPECT_EQ(At<char16_t>(EXCLUDED + PATH_STRIDE), u'\0');
  EXPECT_TRUE(IsUntouched(EXCLUDED + PATH_STRIDE + 2, PATH_STRIDE - 2));
}

TEST_F(DetectionMessageTest, ALongPathRunsOnUpTo511Characters) {
  for (const std::size_t length : {std::size_t{510}, std::size_t{511}, std::size_t{512}, std::size_t{600}}) {
    paths_.excluded = {Path(L'a', length)};
    Fill(DetectionKind::Activity);
    EXPECT_EQ(TextAt(EXCLUDED), Path(L'a', std::min<std::size_t>(length, 511)));
    EXPECT_TRUE(IsUntouched(EXCLUDED + 1024, 2 * PATH_STRIDE));
  }
}

// What the driver's buffer looks like too: the first path reads on into the second, whose own tail is left of
// the first.
TEST_F(DetectionMessageTest, TheNextPathOverwritesWhatRanIntoItsSlot) {
  paths_.excluded = {Path(L'a', 600), L"\\bb", L"\\cc"};
  Fill(DetectionKind::Activity);
  EXPECT_EQ(TextAt(EXCLUDED), Path(L'a', 300) + L"\\bb");
  EXPECT_EQ(TextAt(EXCLUDED + PATH_STRIDE), L"\\bb");
  EXPECT_EQ(TextAt(EXCLUDED + PATH_STRIDE + 8), Path(L'a', 511 - 300 - 4));
  EXPECT_EQ(TextAt(EXCLUDED + 2 * PATH_STRIDE), L"\\cc");
  EXPECT_EQ(Number(138160), 3U);
}

TEST_F(DetectionMessageTest, LongPathsInEverySlotChainWithoutATerminatorBetween) {
  paths_.excluded = {Path(L'a', 400), Path(L'b', 400), Path(L'c', 400)};
  Fill(DetectionKind::Activity);
  EXPECT_EQ(TextAt(EXCLUDED), Path(L'a', 300) + Path(L'b', 300) + Path(L'c', 400));
}

// The cloud regions of an activity message have no meaning to the driver, so nothing is lost there.
TEST_F(DetectionMessageTest, TheLastExcludedPathRunsOnIntoTheFirstCloudSlot) {
  paths_.excluded = Numbered(L"\\x", 200);
  paths_.excluded.back() = Path(L'z', 350);
  Fill(DetectionKind::Activity);
  EXPECT_EQ(TextAt(EXCLUDED + PATH_STRIDE * 199), Path(L'z', 350));
  EXPECT_TRUE(IsUntouched(CLOUD + 2 * 51, PATH_STRIDE));
}

TEST_F(DetectionMessageTest, InACloudDriveMessageTheFirstCloudPathOverwritesThatRunOn) {
  paths_.excluded = Numbered(L"\\x", 200);
  paths_.excluded.back() = Path(L'z', 350);
  paths_.cloud = {L"\\cloud"};
  Fill(DetectionKind::CloudDrive);
  EXPECT_EQ(TextAt(CLOUD), L"\\cloud");
  EXPECT_EQ(TextAt(CLOUD + 14), Path(L'z', 50 - 7));
}

TEST_F(DetectionMessageTest, TheLastCloudPathRunsOnIntoTheFirstCloudExclusionSlot) {
  paths_.cloud = Numbered(L"\\c", 10);
  paths_.cloud.back() = Path(L'z', 350);
  Fill(DetectionKind::CloudDrive);
  EXPECT_EQ(TextAt(CLOUD + PATH_STRIDE * 9), Path(L'z', 350));
  paths_.cloudExclusion = {L"\\ee"};
  Fill(DetectionKind::CloudDrive);
  EXPECT_EQ(TextAt(CLOUD_EXCLUSION), L"\\ee");
}

TEST_F(DetectionMessageTest, TheLastCloudExclusionPathIsCutWhereTheCountsBegin) {
  for (const std::size_t length : {std::size_t{299}, std::size_t{300}, std::size_t{511}, std::size_t{600}}) {
    names_ = Numbered(L"p", 3);
    ids_ = {1, 2};
    driverOption_ = 9;
    enabled_ = true;
    paths_.excluded = {L"\\x"};
    paths_.cloud = {L"\\c"};
    paths_.cloudExclusion = Numbered(L"\\e", 10);
    paths_.cloudExclusion.back() = Path(L'z', length);
    Fill(DetectionKind::CloudDrive);
    EXPECT_EQ(TextAt(CLOUD_EXCLUSION + PATH_STRIDE * 9), Path(L'z', 299));
    EXPECT_EQ(Number(138152), 2U);
    EXPECT_EQ(Number(138156), 3U);
    EXPECT_EQ(Number(138160), 1U);
    EXPECT_EQ(Number(138164), 1U);
    EXPECT_EQ(Number(138168), 10U);
    EXPECT_EQ(At<std::uint8_t>(138172), 9);
    EXPECT_EQ(At<std::uint8_t>(138173), 1);
    EXPECT_EQ(At<std::uint8_t>(138174), 0);
  }
}

TEST_F(DetectionMessageTest, NoPathReachesTheCountsFromAnySlot) {
  paths_ = {std::vector<std::wstring>(250, Path(L'x', 600)), std::vector<std::wstring>(12, Path(L'c', 600)),
            std::vector<std::wstring>(12, Path(L'e', 600))};
  Fill(DetectionKind::CloudDrive);
  EXPECT_EQ(Number(138152), 0U);
  EXPECT_EQ(Number(138156), 0U);
  EXPECT_EQ(Number(138160), 200U);
  EXPECT_EQ(Number(138164), 10U);
  EXPECT_EQ(Number(138168), 10U);
  EXPECT_EQ(At<char16_t>(COUNTS - 2), u'\0');
}

TEST_F(DetectionMessageTest, TextIsUtf16OfTheGivenCharacters) {
  names_ = {L"\x4E2D\x6587.exe"};
  Fill(DetectionKind::Activity);
  EXPECT_EQ(At<std::uint16_t>(NAMES), 0x4E2D);
  EXPECT_EQ(At<std::uint16_t>(NAMES + 2), 0x6587);
  EXPECT_EQ(At<std::uint16_t>(NAMES + 4), u'.');
}

}  // namespace
