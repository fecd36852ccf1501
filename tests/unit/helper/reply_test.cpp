#include "reply.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "userhelper/response_messages.h"

namespace {

using namespace ostrel;
using namespace ostrel::helper;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

using Texts = std::vector<std::wstring>;

const std::wstring ID(64, L'e');

// As the library reads it: up to the first zero unit.
template <typename Message>
Message Read(const std::wstring& reply) {
  Message message(ID);
  std::wistringstream stream(std::wstring(reply.c_str()));
  message.Deserialize(stream);
  return message;
}

// Titles that the library takes from the reply, which must be valid and fit.
Texts TitlesFor(const Texts& titles) {
  const std::wstring reply = TitlesReply(ID, {SUCCESS, titles});
  EXPECT_LE(reply.size(), 1023U);
  const auto message = Read<ResponseMessageTabTitles>(reply);
  EXPECT_EQ(message.responseCode, SUCCESS);
  EXPECT_TRUE(message.isValid);
  return message.titles;
}

ResponseMessageMetaData MetadataFor(const MetadataAnswer& answer) {
  const std::wstring reply = MetadataReply(ID, answer);
  EXPECT_LE(reply.size(), 5119U);
  return Read<ResponseMessageMetaData>(reply);
}

ResponseMessageAutoProxyConfigUrl UrlFor(const TextAnswer& answer) {
  const std::wstring reply = AutoProxyConfigUrlReply(ID, answer);
  EXPECT_LE(reply.size(), 2199U);
  const auto message = Read<ResponseMessageAutoProxyConfigUrl>(reply);
  EXPECT_TRUE(message.isValid);
  return message;
}

ResponseMessageCloudStorageProviderLogin LoginFor(const TextAnswer& answer) {
  const std::wstring reply = CloudLoginReply(ID, answer);
  EXPECT_LE(reply.size(), 2199U);
  const auto message = Read<ResponseMessageCloudStorageProviderLogin>(reply);
  EXPECT_TRUE(message.isValid);
  return message;
}

MetadataAnswer AnswerWithExtraText(const std::wstring& extraText) {
  return {SUCCESS, std::wstring(64, L'a'), std::wstring(32, L'b'), 18446744073709551615U, extraText};
}

TEST(ATitlesReply, HasAllTitles) {
  EXPECT_EQ(TitlesReply(L"07c2", {SUCCESS, {L"a", L"b, c"}}), L"0,4,07c2,0,2,1,a,4,b, c");
}

TEST(ATitlesReply, HasNoTitleWithACode) {
  EXPECT_EQ(TitlesReply(L"07c2", {TABTITLE_MAIN_WINDOWS_NOT_FOUND, {}}), L"0,4,07c2,4,0");
}

TEST(ATitlesReply, ShortensATitleToWhatFits) {
  // 1023 units, less the head with up to four digits for the count, less the title's own length and commas.
  const std::size_t room =
      1023 - std::wstring(L"0,64,,0,1024").size() - ID.size() - std::wstring(L",942,").size();
  EXPECT_THAT(TitlesFor({std::wstring(room, L'x')}), ElementsAre(std::wstring(room, L'x')));
  EXPECT_THAT(TitlesFor({std::wstring(room + 1, L'x')}), ElementsAre(std::wstring(room, L'x')));
  EXPECT_THAT(TitlesFor({std::wstring(100'000, L'x')}), ElementsAre(std::wstring(room, L'x')));
}

TEST(ATitlesReply, DropsTitlesFromTheEnd) {
  EXPECT_THAT(TitlesFor({L"first", std::wstring(2000, L'x'), L"last"}),
              ElementsAre(L"first", ::testing::StartsWith(L"xxx")));
}

TEST(ATitlesReply, IsValidForEveryLengthOfATitleAroundTheLimit) {
  for (std::size_t length = 900; length < 1100; ++length) {
    EXPECT_THAT(TitlesFor({std::wstring(length, L'x'), L"y", L"z"}), ::testing::Not(IsEmpty())) << length;
  }
}

TEST(ATitlesReply, HoldsAsManyShortTitlesAsFit) {
  // Each takes four units: comma, 1, comma, and itself.
  const std::size_t room = 1023 - std::wstring(L"0,64,,0,1024").size() - ID.size();
  EXPECT_THAT(TitlesFor(Texts(5000, L"x")), SizeIs(room / 4));
}

TEST(ATitlesReply, PassesOverEmptyTitles) {
  EXPECT_THAT(TitlesFor({L"", L"a", L""}), ElementsAre(L"a"));
}

TEST(ATitlesReply, EndsATitleAtAZeroUnit) {
  using std::string_literals::operator""s;
  EXPECT_THAT(TitlesFor({L"a\0b"s, L"\0c"s, L"d"}), ElementsAre(L"a", L"d"));
}

TEST(ATitlesReply, DoesNotCutACharacterInHalf) {
  std::wstring pairs;
  for (int i = 0; i < 1000; ++i) pairs += {static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDE00)};
  for (const std::wstring& title : {pairs, L"x" + pairs}) {
    const Texts titles = TitlesFor({title});
    ASSERT_THAT(titles, SizeIs(1));
    EXPECT_EQ(titles[0].back(), static_cast<wchar_t>(0xDE00));
  }
}

TEST(AMetadataReply, HasDigestsSizeAndExtraText) {
  const auto message = MetadataFor({SUCCESS, std::wstring(64, L'a'), std::wstring(32, L'b'), 3, L"C:\\a"});
  EXPECT_TRUE(message.isValid);
  EXPECT_EQ(message.responseCode, SUCCESS);
  EXPECT_EQ(message.sha256Hex, std::wstring(64, L'a'));
  EXPECT_EQ(message.md5Hex, std::wstring(32, L'b'));
  EXPECT_EQ(message.fileSize, 3U);
  EXPECT_EQ(message.extraText, L"C:\\a");
}

TEST(AMetadataReply, IsValidWithoutExtraText) {
  const auto message = MetadataFor(AnswerWithExtraText(L""));
  EXPECT_TRUE(message.isValid);
  EXPECT_EQ(message.fileSize, 18446744073709551615U);
  EXPECT_EQ(message.extraText, L"");
}

TEST(AMetadataReply, ShortensTheExtraTextToWhatFits) {
  const auto message = MetadataFor(AnswerWithExtraText(std::wstring(40'000, L'x')));
  EXPECT_TRUE(message.isValid);
  EXPECT_EQ(MetadataReply(ID, AnswerWithExtraText(std::wstring(40'000, L'x'))).size(), 5119U);
  EXPECT_EQ(message.extraText, std::wstring(message.extraText.size(), L'x'));
  const auto whole = MetadataFor(AnswerWithExtraText(message.extraText));
  EXPECT_EQ(whole.extraText, message.extraText);
}

TEST(AMetadataReply, HasNothingButItsCodeInCaseOfAnError) {
  EXPECT_EQ(MetadataReply(L"07c2", {METADATA_CANNOT_READ_FILE, L"a", L"b", 3, L"c"}),
            L"1,4,07c2,19,0000000000000000000000000000000000000000000000000000000000000000,"
            L"00000000000000000000000000000000,0,0,");
}

TEST(AMetadataReply, IsWholeAlsoInCaseOfAnError) {
  const auto message = MetadataFor(MetadataAnswer::Failed(METADATA_FILE_DOES_NOT_EXIST));
  EXPECT_EQ(message.responseCode, METADATA_FILE_DOES_NOT_EXIST);
  EXPECT_TRUE(message.isValid);
}

TEST(AMetadataReply, FillsTheBufferButForTheZeroAtItsEnd) {
  // The digests, the greatest size and the longest response id.
  const std::size_t room =
      5119 - std::wstring(L"1,64,,0,,,18446744073709551615,4923,").size() - ID.size() - 64 - 32;
  EXPECT_EQ(MetadataFor(AnswerWithExtraText(std::wstring(room, L'x'))).extraText, std::wstring(room, L'x'));
  EXPECT_EQ(MetadataFor(AnswerWithExtraText(std::wstring(room + 1, L'x'))).extraText,
            std::wstring(room, L'x'));
}

TEST(AProxyReply, HasTheUrlOrNone) {
  EXPECT_EQ(AutoProxyConfigUrlReply(L"07c2", {SUCCESS, L"http://p/"}), L"2,4,07c2,0,9,http://p/");
  EXPECT_EQ(AutoProxyConfigUrlReply(L"07c2", {}), L"2,4,07c2,0,0,");
  EXPECT_EQ(UrlFor({SUCCESS, L"http://p/"}).url, L"http://p/");
}

TEST(AProxyReply, HasTheExplanationOfAnError) {
  const auto message = UrlFor({PROXY_ERROR_GETTING_AUTO_CONFIG_URL, L"because"});
  EXPECT_EQ(message.responseCode, PROXY_ERROR_GETTING_AUTO_CONFIG_URL);
  EXPECT_EQ(message.url, L"because");
}

TEST(AProxyReply, RefusesAUrlThatDoesNotFitRatherThanCutIt) {
  // What the library's own strings hold: it would cut the 2047th unit off.
  EXPECT_EQ(UrlFor({SUCCESS, std::wstring(2046, L'u')}).url, std::wstring(2046, L'u'));
  for (const std::size_t length : {2047U, 2122U, 2123U, 100'000U}) {
    const auto refused = UrlFor({SUCCESS, std::wstring(length, L'u')});
    EXPECT_EQ(refused.responseCode, PROXY_ERROR_GETTING_AUTO_CONFIG_URL);
    EXPECT_EQ(refused.url,
              L"The automatic proxy configuration URL is longer than 2046 characters or has a zero inside.");
  }
}

TEST(AProxyReply, RefusesAUrlWithAZeroRatherThanEndItThere) {
  using std::string_literals::operator""s;
  const auto refused = UrlFor({SUCCESS, L"http://p\0/"s});
  EXPECT_EQ(refused.responseCode, PROXY_ERROR_GETTING_AUTO_CONFIG_URL);
}

TEST(ACloudLoginReply, HasTheLogin) {
  EXPECT_EQ(CloudLoginReply(L"07c2", {SUCCESS, L"a@b"}), L"3,4,07c2,0,3,a@b");
  EXPECT_EQ(LoginFor({SUCCESS, L"a@b"}).login, L"a@b");
}

TEST(ACloudLoginReply, ShortensAnExplanation) {
  const auto message = LoginFor({CLOUDLOGIN_ERROR_GETTING_CLOUD_LOGIN, std::wstring(5000, L'x')});
  EXPECT_EQ(message.responseCode, CLOUDLOGIN_ERROR_GETTING_CLOUD_LOGIN);
  EXPECT_EQ(message.login, std::wstring(2046, L'x'));
}

TEST(ACloudLoginReply, RefusesALoginThatDoesNotFitRatherThanCutIt) {
  EXPECT_EQ(LoginFor({SUCCESS, std::wstring(2046, L'x')}).login, std::wstring(2046, L'x'));
  const auto message = LoginFor({SUCCESS, std::wstring(2047, L'x')});
  EXPECT_EQ(message.responseCode, CLOUDLOGIN_ERROR_GETTING_CLOUD_LOGIN);
  EXPECT_EQ(message.login, L"The login name is longer than 2046 characters or has a zero inside.");
}

}  // namespace
