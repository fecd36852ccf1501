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
using Clock = std::chrono::steady_clock;
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

std::wstring FailedMetadata(const std::wstring& code) {
  return L"1,4,ab12," + code + L"," + std::wstring(64, L'0') + L"," + std::wstring(32, L'0') + L",0,0,";
}

const wchar_t* const NO_PROXY = L"2,4,ab12,0,0,";

class TheHelper : public ::testing::Test {
 protected:
  // The exit code must follow once the reply was fetched.
  std::wstring ReplyTo(const std::wstring& request, DWORD buffer) {
    const Exchange exchange = Ask(channel_, request, buffer);
    EXPECT_EQ(exchange.error, 0U);
    EXPECT_EQ(helper_.ExitCode(), 0U) << helper_.Errors();
    return exchange.reply;
  }

  // Sends the client away without a reply, says why, and serves the next one.
  void ExpectNoReplyTo(const void* request, std::size_t bytes, const std::string& reason) {
    const Exchange exchange = AskInBytes(channel_, request, static_cast<DWORD>(bytes), METADATA_BUFFER);
    EXPECT_NE(exchange.error, 0U) << "it replied";
    EXPECT_EQ(ReplyTo(Head(L"1,2"), TEXT_BUFFER), NO_PROXY);
    EXPECT_EQ(helper_.Errors(), "OstrelUserHelper: " + reason + "\n");
  }
  void ExpectNoReplyTo(const std::wstring& request, const std::string& reason) {
    ExpectNoReplyTo(request.data(), request.size() * sizeof(wchar_t), reason);
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
  EXPECT_EQ(ReplyTo(Head(L"1,1") + Counted(L"C:\\no such file"), METADATA_BUFFER), FailedMetadata(L"18"));
}

TEST_F(TheHelper, TellsThatAFolderCannotBeReadAsAFile) {
  EXPECT_EQ(ReplyTo(Head(L"1,1") + Counted(L"C:\\windows"), METADATA_BUFFER), FailedMetadata(L"19"));
}

TEST_F(TheHelper, GivesNoProxyUrlToAUserWithoutOne) {
  EXPECT_EQ(ReplyTo(Head(L"1,2"), TEXT_BUFFER), NO_PROXY);
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

TEST_F(TheHelper, RefusesAnotherCommandIdAndServesTheNextClient) {
  EXPECT_EQ(Ask(channel_, L"1,2,6,c0ffe0,4,ab12,", TEXT_BUFFER).reply,
            L"2,4,ab12,2,61,The request does not carry the command id of the user helper.");
  EXPECT_EQ(ReplyTo(Head(L"1,2"), TEXT_BUFFER), NO_PROXY);
}

TEST_F(TheHelper, RefusesAnUnknownType) {
  EXPECT_EQ(ReplyTo(Head(L"1,4"), TITLES_BUFFER), L"0,4,ab12,5,0");
}

TEST_F(TheHelper, RefusesABodyThatDoesNotBelongToTheType) {
  EXPECT_EQ(ReplyTo(Head(L"1,1") + L"5,abcd", METADATA_BUFFER), FailedMetadata(L"6"));
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
  ExpectNoReplyTo("abc", 3, "the request is no UTF-16 text");
}

TEST_F(TheHelper, GivesNoReplyToARequestOfMoreThan128Kibibytes) {
  ExpectNoReplyTo(Head(L"1,1") + Counted(std::wstring(66'000, L'a')), "the request is too long");
}

TEST_F(TheHelper, TakesAPathOfNearlyTheGreatestLength) {
  EXPECT_EQ(ReplyTo(Head(L"1,1") + Counted(L"C:\\" + std::wstring(32'700, L'a')), METADATA_BUFFER),
            FailedMetadata(L"18"));
}

TEST_F(TheHelper, ServesTheNextClientAfterOneThatLeftWithoutAWord) {
  Connect(channel_).Close();
  EXPECT_EQ(ReplyTo(Head(L"1,2"), TEXT_BUFFER), NO_PROXY);
}

TEST_F(TheHelper, ServesTheNextClientAfterOneThatWritesNothing) {
  const ostrel::UniqueFileHandle silent = Connect(channel_);
  ASSERT_TRUE(silent);
  EXPECT_EQ(ReplyTo(Head(L"1,2"), TEXT_BUFFER), NO_PROXY);
  EXPECT_EQ(helper_.Errors(), "OstrelUserHelper: no request came in time\n");
}

TEST_F(TheHelper, HasNotAnsweredWhoDoesNotFetchTheReply) {
  const std::wstring request = Head(L"1,2");
  {
    const ostrel::UniqueFileHandle leaving = Connect(channel_);
    DWORD written = 0;
    ASSERT_TRUE(WriteFile(leaving.Get(), request.data(), static_cast<DWORD>(request.size() * sizeof(wchar_t)),
                          &written, nullptr));
    ASSERT_TRUE(ostrel_test::WaitForBytes(leaving.Get()));
  }
  EXPECT_EQ(helper_.ExitCode(), 6U);
  EXPECT_THAT(helper_.Errors(), StartsWith("OstrelUserHelper: the reply was not fetched (error "));
}

// A stranger that knows the name could otherwise have the helper join it.
TEST(TheHelpersName, IsNotSharedWithAPipeThatAllowsMoreOfItsKind) {
  const std::wstring channel = NewChannelName();
  const ostrel::UniqueFileHandle stranger(CreateNamedPipeW(
      PipeName(channel).c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT,
      PIPE_UNLIMITED_INSTANCES, 0, 0, 0, nullptr));
  ASSERT_TRUE(stranger);
  HelperProcess helper(COMMAND_ID + L" " + channel);
  EXPECT_EQ(helper.ExitCode(), 3U);
  EXPECT_THAT(helper.Errors(), StartsWith("OstrelUserHelper: the pipe "));
}

TEST_F(TheHelper, RefusesAPipeThatIsThereAlready) {
  ASSERT_TRUE(WaitForPipe(channel_));
  HelperProcess second(L"another " + channel_);
  EXPECT_EQ(second.ExitCode(), 3U);
  EXPECT_THAT(second.Errors(), StartsWith("OstrelUserHelper: the pipe cannot be created (error "));
  // The first one is none the worse for it.
  EXPECT_EQ(ReplyTo(Head(L"1,2"), TEXT_BUFFER), NO_PROXY);
}

TEST_F(TheHelper, TakesNoSecondClientWhileTheFirstIsThere) {
  const ostrel::UniqueFileHandle first = Connect(channel_);
  ASSERT_TRUE(first);
  EXPECT_EQ(CreateFileW(PipeName(channel_).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                        0, nullptr),
            INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_PIPE_BUSY));
}

TEST_F(TheHelper, TakesNoSecondClientAfterTheLauncher) {
  EXPECT_EQ(ReplyTo(Head(L"1,2"), TEXT_BUFFER), NO_PROXY);
  EXPECT_FALSE(WaitNamedPipeW(PipeName(channel_).c_str(), 1));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

// Longer than anybody could digest in time, and yet it takes no room.
class TheHelpersTime : public ::testing::Test {
 protected:
  TheHelpersTime() {
    const ostrel::UniqueFileHandle file(
        CreateFileW(path_.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr));
    LARGE_INTEGER size{};
    size.QuadPart = 1LL << 38;
    EXPECT_TRUE(SetFilePointerEx(file.Get(), size, nullptr, FILE_BEGIN) && SetEndOfFile(file.Get()));
  }

  std::wstring Request() const { return Head(L"1,1") + Counted(path_.wstring()); }

  TemporaryFolder folder_;
  std::filesystem::path path_ = folder_ / L"endless";
  std::wstring channel_ = NewChannelName();
  HelperProcess helper_{COMMAND_ID + L" " + channel_};
};

// The library's time-out for metadata is ten seconds.
TEST_F(TheHelpersTime, IsNotExceededByAFileThatIsTooLong) {
  ASSERT_TRUE(WaitForPipe(channel_));
  const auto start = Clock::now();
  EXPECT_EQ(Ask(channel_, Request(), METADATA_BUFFER).reply, FailedMetadata(L"19"));
  EXPECT_GE(Clock::now() - start, std::chrono::seconds(9));
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(10));
  EXPECT_EQ(helper_.ExitCode(), 0U);
}

// As if a call of the system did not return.
TEST_F(TheHelpersTime, IsNotExceededByACallThatDoesNotReturn) {
  const ostrel::UniqueFileHandle client = Connect(channel_);
  const std::size_t idle = helper_.ThreadCount();
  const std::wstring request = Request();
  DWORD written = 0;
  ASSERT_TRUE(WriteFile(client.Get(), request.data(), static_cast<DWORD>(request.size() * sizeof(wchar_t)),
                        &written, nullptr));
  const auto start = Clock::now();
  // The watchdog and the one that helps with the digests.
  while (helper_.ThreadCount() < idle + 2) {
    ASSERT_LT(Clock::now() - start, ostrel_test::PATIENCE);
    Sleep(1);
  }
  helper_.SuspendFirstThread();
  wchar_t reply[16];
  DWORD read = 0;
  EXPECT_FALSE(ReadFile(client.Get(), reply, sizeof(reply), &read, nullptr));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_BROKEN_PIPE));
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(12));
  EXPECT_EQ(helper_.ExitCode(), 7U);
  EXPECT_EQ(helper_.Errors(), "OstrelUserHelper: the answer took too long\n");
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

  EXPECT_EQ(unheard.ExitCode(), 6U);
  EXPECT_EQ(unheard.Errors(), "OstrelUserHelper: the reply was not fetched in time\n");
  EXPECT_EQ(alone.ExitCode(), 4U);
  EXPECT_EQ(alone.Errors(), "OstrelUserHelper: the launcher did not connect in time\n");
  EXPECT_EQ(unasked.ExitCode(), 5U);
  EXPECT_EQ(unasked.Errors(),
            "OstrelUserHelper: no request came in time\n"
            "OstrelUserHelper: the launcher did not connect in time\n");
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
