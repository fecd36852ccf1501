// OstrelUserHelper.exe itself, asked as the library asks it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "helper_process.h"
#include "temporary_folder.h"

namespace {

using ostrel_test::Ask;
using ostrel_test::AskInBytes;
using ostrel_test::Connect;
using ostrel_test::Exchange;
using ostrel_test::HelperProcess;
using ostrel_test::NewChannelName;
using ostrel_test::PipeName;
using ostrel_test::TemporaryFolder;
using ostrel_test::WaitForPipe;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr DWORD TITLES_BUFFER = 2048;
constexpr DWORD METADATA_BUFFER = 10240;
constexpr DWORD TEXT_BUFFER = 4400;

const std::wstring COMMAND_ID = L"c0ffee";

std::wstring Counted(const std::wstring& text) {
  return std::to_wstring(text.size()) + L"," + text;
}

std::wstring Head(const std::wstring& versionAndType) {
  return versionAndType + L"," + Counted(COMMAND_ID) + L"," + Counted(L"ab12") + L",";
}

class TheHelper : public ::testing::Test {
 protected:
  // The exit code must follow once the reply was fetched.
  std::wstring ReplyTo(const std::wstring& request, DWORD buffer) {
    const Exchange exchange = Ask(channel_, request, buffer);
    EXPECT_EQ(exchange.error, 0U);
    EXPECT_EQ(helper_.ExitCode(), 0U) << helper_.Errors();
    return exchange.reply;
  }

  // Closes the pipe without a reply and says why.
  void ExpectNoReplyTo(const std::wstring& request, const std::string& reason) {
    const Exchange exchange = Ask(channel_, request, METADATA_BUFFER);
    EXPECT_NE(exchange.error, 0U) << "it replied";
    EXPECT_EQ(helper_.ExitCode(), 5U);
    EXPECT_EQ(helper_.Errors(), "OstrelUserHelper: " + reason + "\n");
  }

  std::wstring channel_ = NewChannelName();
  HelperProcess helper_{COMMAND_ID + L" " + channel_};
};

const char* const NOT_UNDERSTOOD = "the request cannot be understood";

TEST_F(TheHelper, TellsThatAProcessHasNoTitle) {
  EXPECT_EQ(ReplyTo(Head(L"1,0") + L"4294967295,10,chrome.exe", TITLES_BUFFER), L"0,4,ab12,4,0");
}

TEST_F(TheHelper, GivesDigestsSizeAndPlaceOfAFile) {
  const TemporaryFolder folder;
  const std::filesystem::path file = folder / L"a,b.txt";
  std::ofstream(file, std::ios::binary) << "abc";
  const std::wstring path = file.wstring();
  EXPECT_EQ(ReplyTo(Head(L"1,1") + Counted(path), METADATA_BUFFER),
            L"1,4,ab12,0,"
            L"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad,"
            L"900150983cd24fb0d6963f7d28e17f72,3," +
                Counted(path));
}

TEST_F(TheHelper, TellsThatAFileDoesNotExist) {
  EXPECT_EQ(ReplyTo(Head(L"1,1") + Counted(L"C:\\no such file"), METADATA_BUFFER), L"1,4,ab12,18,,,0,0,");
}

TEST_F(TheHelper, TellsThatAFolderCannotBeReadAsAFile) {
  EXPECT_EQ(ReplyTo(Head(L"1,1") + Counted(L"C:\\windows"), METADATA_BUFFER), L"1,4,ab12,19,,,0,0,");
}

TEST_F(TheHelper, GivesNoProxyUrlToAUserWithoutOne) {
  EXPECT_EQ(ReplyTo(Head(L"1,2"), TEXT_BUFFER), L"2,4,ab12,0,0,");
}

TEST_F(TheHelper, TellsThatItDoesNotKnowACloudProvider) {
  EXPECT_EQ(ReplyTo(Head(L"1,3") + L"4,Nope,2,C:", TEXT_BUFFER), L"3,4,ab12,8,0,");
}

TEST_F(TheHelper, TellsThatThereIsNoCloudClient) {
  EXPECT_EQ(ReplyTo(Head(L"1,3") + L"8,OneDrive,12,C:\\Users\\ann", TEXT_BUFFER), L"3,4,ab12,9,0,");
}

TEST_F(TheHelper, RefusesAnotherVersion) {
  EXPECT_EQ(ReplyTo(Head(L"2,0") + L"4512,10,chrome.exe", TITLES_BUFFER), L"0,4,ab12,1,0");
}

TEST_F(TheHelper, RefusesAnotherCommandId) {
  EXPECT_EQ(ReplyTo(L"1,2,6,c0ffe0,4,ab12,", TEXT_BUFFER),
            L"2,4,ab12,2,61,The request does not carry the command id of the user helper.");
}

TEST_F(TheHelper, RefusesAnUnknownType) {
  EXPECT_EQ(ReplyTo(Head(L"1,4"), TITLES_BUFFER), L"0,4,ab12,5,0");
}

TEST_F(TheHelper, RefusesABodyThatDoesNotBelongToTheType) {
  EXPECT_EQ(ReplyTo(Head(L"1,1") + L"5,abcd", METADATA_BUFFER), L"1,4,ab12,6,,,0,0,");
}

TEST_F(TheHelper, GivesNoReplyToAnIdentifierOfNoUnits) {
  ExpectNoReplyTo(L"1,2,0,,4,ab12,", NOT_UNDERSTOOD);
}

TEST_F(TheHelper, GivesNoReplyToAResponseIdOf65Units) {
  ExpectNoReplyTo(L"1,2,6,c0ffee," + Counted(std::wstring(65, L'a')) + L",", NOT_UNDERSTOOD);
}

TEST_F(TheHelper, GivesNoReplyToANegativeLength) {
  ExpectNoReplyTo(L"1,2,-6,c0ffee,4,ab12,", NOT_UNDERSTOOD);
}

TEST_F(TheHelper, GivesNoReplyToAnEnormousLength) {
  ExpectNoReplyTo(L"1,2,6,c0ffee,18446744073709551615,ab12,", NOT_UNDERSTOOD);
}

TEST_F(TheHelper, GivesNoReplyToATruncatedRequest) {
  ExpectNoReplyTo(L"1,2,6,c0ffee,4,ab1", NOT_UNDERSTOOD);
}

TEST_F(TheHelper, GivesNoReplyToHalfAUnit) {
  const char request[] = "abc";
  EXPECT_NE(AskInBytes(channel_, request, 3, TEXT_BUFFER).error, 0U);
  EXPECT_EQ(helper_.ExitCode(), 5U);
  EXPECT_EQ(helper_.Errors(), "OstrelUserHelper: the request is no UTF-16 text\n");
}

TEST_F(TheHelper, GivesNoReplyToARequestOfMoreThan128Kibibytes) {
  ExpectNoReplyTo(Head(L"1,1") + Counted(std::wstring(66'000, L'a')), "the request is too long");
}

TEST_F(TheHelper, TakesAPathOfNearlyTheGreatestLength) {
  EXPECT_EQ(ReplyTo(Head(L"1,1") + Counted(L"C:\\" + std::wstring(32'700, L'a')), METADATA_BUFFER),
            L"1,4,ab12,18,,,0,0,");
}

TEST_F(TheHelper, EndsWhenItsClientLeavesWithoutAWord) {
  Connect(channel_).Close();
  EXPECT_EQ(helper_.ExitCode(), 5U);
}

TEST_F(TheHelper, RefusesAPipeThatIsThereAlready) {
  ASSERT_TRUE(WaitForPipe(channel_));
  HelperProcess second(L"another " + channel_);
  EXPECT_EQ(second.ExitCode(), 3U);
  EXPECT_THAT(second.Errors(), StartsWith("OstrelUserHelper: the pipe cannot be created (error "));
  // The first one is none the worse for it.
  EXPECT_EQ(ReplyTo(Head(L"1,2"), TEXT_BUFFER), L"2,4,ab12,0,0,");
}

TEST_F(TheHelper, TakesASecondClientNeitherDuringNorAfterTheFirst) {
  const ostrel::UniqueFileHandle first = Connect(channel_);
  ASSERT_TRUE(first);
  EXPECT_EQ(CreateFileW(PipeName(channel_).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                        0, nullptr),
            INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_PIPE_BUSY));
}

// All at once, since each takes its time.
TEST(TheHelpersPatience, EndsWithWhoeverDoesNotDoHisPart) {
  const std::wstring channels[] = {NewChannelName(), NewChannelName(), NewChannelName()};
  HelperProcess alone(COMMAND_ID + L" " + channels[0]);
  HelperProcess unasked(COMMAND_ID + L" " + channels[1]);
  HelperProcess unheard(COMMAND_ID + L" " + channels[2]);

  const ostrel::UniqueFileHandle silent = Connect(channels[1]);
  ASSERT_TRUE(silent);
  const ostrel::UniqueFileHandle deaf = Connect(channels[2]);
  const std::wstring request = Head(L"1,2");
  DWORD written = 0;
  ASSERT_TRUE(WriteFile(deaf.Get(), request.data(), static_cast<DWORD>(request.size() * sizeof(wchar_t)),
                        &written, nullptr));

  EXPECT_EQ(unasked.ExitCode(), 5U);
  EXPECT_EQ(unasked.Errors(), "OstrelUserHelper: no request came in time\n");
  EXPECT_EQ(unheard.ExitCode(), 6U);
  EXPECT_EQ(unheard.Errors(), "OstrelUserHelper: the reply was not fetched in time\n");
  EXPECT_EQ(alone.ExitCode(), 4U);
  EXPECT_EQ(alone.Errors(), "OstrelUserHelper: nobody connected in time\n");
}

TEST(TheHelpersCommandLine, WithHelpIsAnsweredOnStandardOutput) {
  HelperProcess helper(L"OstrelUserHelper.exe --help");
  EXPECT_EQ(helper.ExitCode(), 0U);
  EXPECT_THAT(helper.Output(), HasSubstr("COMMAND-ID CHANNEL-NAME"));
  EXPECT_EQ(helper.Errors(), "");
}

TEST(TheHelpersCommandLine, WithoutAnIdentifierIsAnErrorOnStandardError) {
  HelperProcess helper(L"OstrelUserHelper.exe");
  EXPECT_EQ(helper.ExitCode(), 2U);
  EXPECT_EQ(helper.Output(), "");
  EXPECT_THAT(helper.Errors(),
              StartsWith("OstrelUserHelper: the command line must be COMMAND-ID CHANNEL-NAME"));
}

}  // namespace
