#include "request_reader.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <sstream>

#include "userhelper/request_message.h"

namespace {

using ostrel::RequestMessage;
using ostrel::helper::RequestHead;
using ostrel::helper::RequestReader;

std::wstring TextOf(const RequestMessage& message) {
  std::wostringstream stream;
  message.Serialize(stream);
  return stream.str();
}

bool IsReadable(const std::wstring& head) {
  return RequestReader(head).ReadHead().has_value();
}

std::wstring Counted(const std::wstring& text) {
  return std::to_wstring(text.size()) + L"," + text;
}

// A reader that stands behind the head.
struct Body {
  explicit Body(const std::wstring& body) : text(L"1,0,1,a,1,b," + body), reader(text) {
    EXPECT_TRUE(reader.ReadHead());
  }
  std::wstring text;
  RequestReader reader;
};

bool IsTitlesBody(const std::wstring& body) {
  return Body(body).reader.ReadTitlesBody().has_value();
}

bool IsFilePathBody(const std::wstring& body) {
  return Body(body).reader.ReadFilePathBody().has_value();
}

bool IsCloudLoginBody(const std::wstring& body) {
  return Body(body).reader.ReadCloudLoginBody().has_value();
}

TEST(TheHeadOfARequest, HasVersionTypeAndBothIdentifiers) {
  const std::optional<RequestHead> head = RequestReader(L"1,0,4,9f3a,4,07c2,4512,10,chrome.exe").ReadHead();
  ASSERT_TRUE(head);
  EXPECT_EQ(head->version, 1U);
  EXPECT_EQ(head->messageType, 0U);
  EXPECT_EQ(head->commandId, L"9f3a");
  EXPECT_EQ(head->responseId, L"07c2");
}

TEST(TheHeadOfARequest, IsReadWhateverVersionAndTypeAre) {
  const std::optional<RequestHead> head = RequestReader(L"4294967295,4294967295,1,a,1,b,").ReadHead();
  ASSERT_TRUE(head);
  EXPECT_EQ(head->version, std::numeric_limits<std::uint32_t>::max());
  EXPECT_EQ(head->messageType, std::numeric_limits<std::uint32_t>::max());
}

TEST(TheHeadOfARequest, CountsItsIdentifiersSoThatTheyMayHoldCommas) {
  const std::optional<RequestHead> head = RequestReader(L"1,2,3,a,b,3,,,,,").ReadHead();
  ASSERT_TRUE(head);
  EXPECT_EQ(head->commandId, L"a,b");
  EXPECT_EQ(head->responseId, L",,,");
}

TEST(TheHeadOfARequest, TakesIdentifiersOf1To64Units) {
  const std::wstring longest = Counted(std::wstring(64, L'f'));
  const std::wstring tooLong = Counted(std::wstring(65, L'f'));
  EXPECT_TRUE(IsReadable(L"1,2," + longest + L"," + longest + L","));
  EXPECT_FALSE(IsReadable(L"1,2," + tooLong + L",1,b,"));
  EXPECT_FALSE(IsReadable(L"1,2,1,a," + tooLong + L","));
  EXPECT_FALSE(IsReadable(L"1,2,0,,1,b,"));
  EXPECT_FALSE(IsReadable(L"1,2,1,a,0,,"));
}

TEST(TheHeadOfARequest, IsUnreadableWhereverItIsCut) {
  const std::wstring whole = L"1,2,4,9f3a,4,07c2,";
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_FALSE(IsReadable(whole.substr(0, length))) << length;
  }
  EXPECT_TRUE(IsReadable(whole));
}

TEST(TheHeadOfARequest, IsUnreadableWithoutAnyOneComma) {
  const std::wstring whole = L"1,2,4,9f3a,4,07c2,";
  for (std::size_t comma = whole.find(L','); comma != std::wstring::npos;
       comma = whole.find(L',', comma + 1)) {
    std::wstring without = whole;
    without[comma] = L';';
    EXPECT_FALSE(IsReadable(without)) << comma;
  }
}

TEST(ANumberOfARequest, HasNoSignBlankPaddingOrOtherBase) {
  for (const wchar_t* number : {L"", L"-1", L"+1", L" 1", L"1 ", L"01", L"00", L"0x1", L"1e0", L"\x0661"}) {
    EXPECT_FALSE(IsReadable(std::wstring(number) + L",2,1,a,1,b,")) << "version";
    EXPECT_FALSE(IsReadable(L"1," + std::wstring(number) + L",1,a,1,b,")) << "type";
    EXPECT_FALSE(IsReadable(L"1,2," + std::wstring(number) + L",a,1,b,")) << "length";
    EXPECT_FALSE(IsTitlesBody(std::wstring(number) + L",0,")) << "process";
  }
}

TEST(ANumberOfARequest, FitsInto32Bits) {
  EXPECT_TRUE(IsTitlesBody(L"4294967295,0,"));
  EXPECT_FALSE(IsTitlesBody(L"4294967296,0,"));
  EXPECT_FALSE(IsTitlesBody(L"9999999999,0,"));
  EXPECT_FALSE(IsTitlesBody(L"18446744073709551617,0,"));
  EXPECT_FALSE(IsTitlesBody(std::wstring(1000, L'9') + L",0,"));
}

TEST(ALengthOfARequest, IsHeldAgainstWhatIsThere) {
  EXPECT_FALSE(IsReadable(L"1,2,64,a,1,b,"));
  EXPECT_FALSE(IsFilePathBody(L"4294967295,a"));
  EXPECT_FALSE(IsFilePathBody(L"2147483647,a"));
  EXPECT_FALSE(IsFilePathBody(L"2,a"));
  EXPECT_FALSE(IsCloudLoginBody(L"4294967295,a,0,"));
}

TEST(ATextOfARequest, HasNoZeroUnit) {
  using std::string_literals::operator""s;
  EXPECT_FALSE(IsReadable(L"1,2,3,a\0c,1,b,"s));
  EXPECT_FALSE(IsReadable(L"1,2,1,a,3,b\0d,"s));
  EXPECT_FALSE(IsFilePathBody(L"3,a\0c"s));
}

TEST(TheBodyOfATitlesRequest, HasTheProcess) {
  const auto body = Body(L"4512,10,chrome.exe").reader.ReadTitlesBody();
  ASSERT_TRUE(body);
  EXPECT_EQ(body->processId, 4512U);
  EXPECT_EQ(body->processName, L"chrome.exe");
}

TEST(TheBodyOfATitlesRequest, IsReadWholeOrNotAtAll) {
  const std::wstring whole = L"4512,10,chrome.exe";
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_FALSE(IsTitlesBody(whole.substr(0, length))) << length;
  }
  EXPECT_FALSE(IsTitlesBody(whole + L","));
  EXPECT_FALSE(IsTitlesBody(L"4512;10,chrome.exe"));
  EXPECT_FALSE(IsTitlesBody(L"4512,10;chrome.exe"));
}

TEST(TheBodyOfAMetadataRequest, HasThePath) {
  EXPECT_EQ(Body(L"8,C:\\a,b,c").reader.ReadFilePathBody(), L"C:\\a,b,c");
  EXPECT_EQ(Body(L"0,").reader.ReadFilePathBody(), L"");
}

TEST(TheBodyOfAMetadataRequest, IsReadWholeOrNotAtAll) {
  EXPECT_FALSE(IsFilePathBody(L""));
  EXPECT_FALSE(IsFilePathBody(L"0"));
  EXPECT_FALSE(IsFilePathBody(L"4,C:\\"));
  EXPECT_FALSE(IsFilePathBody(L"2,C:\\"));
}

TEST(TheBodyOfAProxyRequest, IsEmpty) {
  EXPECT_TRUE(Body(L"").reader.ReadEmptyBody());
  EXPECT_FALSE(Body(L" ").reader.ReadEmptyBody());
}

TEST(TheBodyOfACloudLoginRequest, HasProviderAndHomeDirectory) {
  const auto body = Body(L"3,a,b,12,C:\\Users\\ann").reader.ReadCloudLoginBody();
  ASSERT_TRUE(body);
  EXPECT_EQ(body->provider, L"a,b");
  EXPECT_EQ(body->homeDirectory, L"C:\\Users\\ann");
  EXPECT_TRUE(IsCloudLoginBody(L"0,,0,"));
}

TEST(TheBodyOfACloudLoginRequest, IsReadWholeOrNotAtAll) {
  const std::wstring whole = L"8,OneDrive,12,C:\\Users\\ann";
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_FALSE(IsCloudLoginBody(whole.substr(0, length))) << length;
  }
  EXPECT_FALSE(IsCloudLoginBody(whole + L"x"));
  EXPECT_FALSE(IsCloudLoginBody(L"8,OneDrive;12,C:\\Users\\ann"));
}

// What the library writes is what the helper reads.
TEST(TheLibrarysRequests, AreReadBack) {
  const std::wstring commandId(64, L'c');
  const std::wstring responseId(32, L'd');

  const std::wstring titles = TextOf(RequestMessage(commandId, responseId, 4294967295U, L"a b,c.exe"));
  RequestReader titlesReader(titles);
  const std::optional<RequestHead> head = titlesReader.ReadHead();
  ASSERT_TRUE(head);
  EXPECT_EQ(head->version, 1U);
  EXPECT_EQ(head->messageType, 0U);
  EXPECT_EQ(head->commandId, commandId);
  EXPECT_EQ(head->responseId, responseId);
  const auto titlesBody = titlesReader.ReadTitlesBody();
  ASSERT_TRUE(titlesBody);
  EXPECT_EQ(titlesBody->processId, 4294967295U);
  EXPECT_EQ(titlesBody->processName, L"a b,c.exe");

  const std::wstring metadata = TextOf(RequestMessage(commandId, responseId, std::wstring(L"C:\\a")));
  RequestReader metadataReader(metadata);
  ASSERT_EQ(metadataReader.ReadHead().value_or(RequestHead{}).messageType, 1U);
  EXPECT_EQ(metadataReader.ReadFilePathBody(), L"C:\\a");

  const std::wstring proxy = TextOf(RequestMessage(commandId, responseId));
  RequestReader proxyReader(proxy);
  ASSERT_EQ(proxyReader.ReadHead().value_or(RequestHead{}).messageType, 2U);
  EXPECT_TRUE(proxyReader.ReadEmptyBody());

  const std::wstring login =
      TextOf(RequestMessage(commandId, responseId, std::wstring(L"iCloud"), std::wstring(L"C:\\Users\\ann")));
  RequestReader loginReader(login);
  ASSERT_EQ(loginReader.ReadHead().value_or(RequestHead{}).messageType, 3U);
  const auto loginBody = loginReader.ReadCloudLoginBody();
  ASSERT_TRUE(loginBody);
  EXPECT_EQ(loginBody->provider, L"iCloud");
  EXPECT_EQ(loginBody->homeDirectory, L"C:\\Users\\ann");
}

}  // namespace
