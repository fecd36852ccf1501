#include "userhelper/response_messages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <sstream>
#include <type_traits>
#include <vector>

#include "support/failure_rows.h"

namespace {

using namespace ostrel;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::wstring ID = L"9f3a";
const std::wstring SHA256(64, L'a');
const std::wstring MD5(32, L'b');

template <typename Response>
Response Read(const std::wstring& text, const std::wstring& id = ID) {
  Response response(id);
  std::wistringstream stream(text);
  EXPECT_EQ(&response.Deserialize(stream), &stream);
  return response;
}

template <typename Response>
std::wstring Written(const Response& response) {
  std::wostringstream stream;
  EXPECT_EQ(&response.Serialize(stream), &stream);
  return stream.str();
}

ResponseMessageTabTitles Titles(const std::wstring& text) {
  return Read<ResponseMessageTabTitles>(text);
}
ResponseMessageMetaData MetaData(const std::wstring& text) {
  return Read<ResponseMessageMetaData>(text);
}
ResponseMessageAutoProxyConfigUrl Proxy(const std::wstring& text) {
  return Read<ResponseMessageAutoProxyConfigUrl>(text);
}
ResponseMessageCloudStorageProviderLogin Cloud(const std::wstring& text) {
  return Read<ResponseMessageCloudStorageProviderLogin>(text);
}

// What stands in a class's column of the head's failures; the proxy's constructor sets 27, the others' 0.
template <typename Response>
struct Column;
template <>
struct Column<ResponseMessageTabTitles> {
  static constexpr const char* content = "titles";
  static constexpr int type = 0, constructed = 0, wrongType = 5;
  static constexpr bool isProxy = false;
};
template <>
struct Column<ResponseMessageMetaData> {
  static constexpr const char* content = "metadata";
  static constexpr int type = 1, constructed = 0, wrongType = 6;
  static constexpr bool isProxy = false;
};
template <>
struct Column<ResponseMessageAutoProxyConfigUrl> {
  static constexpr const char* content = "a proxy URL";
  static constexpr int type = 2, constructed = 27, wrongType = 21;
  static constexpr bool isProxy = true;
};
template <>
struct Column<ResponseMessageCloudStorageProviderLogin> {
  static constexpr const char* content = "a cloud login";
  static constexpr int type = 3, constructed = 0, wrongType = 7;
  static constexpr bool isProxy = false;
};

// What is wrong with the text of a response, and what reading it came to, for the page of failures.
template <typename Response>
void Enter(const std::string& flaw, const Response& response, const std::string& chosen = {}) {
  ostrel_test::EnterFailure(std::string("Answer with ") + Column<Response>::content, flaw, {},
                            "Deserialize: code " + std::to_string(static_cast<int>(response.responseCode)) +
                                (response.isValid ? ", valid" : ", not valid"),
                            chosen);
}

const char* const OTHER_IDENTIFIER = "with an identifier that differs";
const char* const NO_NUMBER_CHOSEN = "no number at all is not the number 0, so the answer cannot be read";

template <typename Response>
class TheHead : public ::testing::Test {
 protected:
  using Of = Column<Response>;

  static std::wstring Type() { return std::to_wstring(Of::type); }
  static int OfProxyElse(int proxyCode, int otherCode) { return Of::isProxy ? proxyCode : otherCode; }

  static void ExpectStops(const std::wstring& text, int code, const std::string& flaw,
                          const std::string& chosen = {}) {
    const auto response = Read<Response>(text);
    EXPECT_EQ(static_cast<int>(response.responseCode), code) << testing::PrintToString(text);
    EXPECT_FALSE(response.isValid) << testing::PrintToString(text);
    EXPECT_EQ(response.responseId, ID);
    Enter(flaw, response, chosen);
  }
};

using Responses =
    ::testing::Types<ResponseMessageTabTitles, ResponseMessageMetaData, ResponseMessageAutoProxyConfigUrl,
                     ResponseMessageCloudStorageProviderLogin>;
struct NamesOfResponses {
  template <typename Response>
  static std::string GetName(int) {
    const char* const names[] = {"Titles", "MetaData", "ProxyUrl", "CloudLogin"};
    return names[Column<Response>::type];
  }
};
TYPED_TEST_SUITE(TheHead, Responses, NamesOfResponses);

TYPED_TEST(TheHead, IsWhatTheConstructorSaysBeforeAnythingIsRead) {
  const TypeParam response(ID);
  EXPECT_EQ(response.messageType, TestFixture::Of::isProxy ? 2U : 0U);
  EXPECT_EQ(static_cast<int>(response.responseCode), TestFixture::Of::constructed);
  EXPECT_EQ(response.responseId, ID);
  EXPECT_FALSE(response.isValid);
  EXPECT_FALSE(std::has_virtual_destructor_v<TypeParam>);
}

TYPED_TEST(TheHead, OfAnotherTypeStopsWithTheTypesOwnCode) {
  for (const int type : {-1, 0, 1, 2, 3, 4, 2147483647}) {
    if (type == TestFixture::Of::type) continue;
    const auto response = Read<TypeParam>(std::to_wstring(type) + L",4,9f3a,0,");
    EXPECT_EQ(response.messageType, static_cast<std::uint32_t>(type));
    EXPECT_EQ(static_cast<int>(response.responseCode), TestFixture::Of::wrongType);
    EXPECT_FALSE(response.isValid);
    Enter("of another type", response);
  }
}

// Nothing to read is the number 0, which is the titles' type.
TYPED_TEST(TheHead, WithoutATypeIsOfTypeZero) {
  const int code = TestFixture::Of::type == 0 ? 0 : TestFixture::Of::wrongType;
  for (const wchar_t* text : {L"", L" ", L",", L"x", L",4,9f3a,0,"}) {
    this->ExpectStops(text, code, "without a type", "a missing type counts as 0, the type of titles");
  }
}

TYPED_TEST(TheHead, WithoutAnyOfItsCommasStops) {
  const std::wstring type = this->Type();
  const int code = this->OfProxyElse(22, TestFixture::Of::constructed);
  const char* const flaw = "without a comma of its head";
  this->ExpectStops(type + L";4,9f3a,0,", code, flaw);
  this->ExpectStops(type + L",4;9f3a,0,", code, flaw);
  this->ExpectStops(type + L",4,9f3a;0,", code, flaw);
  this->ExpectStops(type + L",4,9f3a,0;", this->OfProxyElse(22, 0), flaw);
  // The helper's code was read already.
  this->ExpectStops(type + L",4,9f3a,19;", this->OfProxyElse(22, 19), "without a comma behind the code 19");
}

TYPED_TEST(TheHead, RefusesIdentifiersOfOtherLengthsThan1To64) {
  const int code = this->OfProxyElse(23, TestFixture::Of::constructed);
  const char* const flaw = "with an identifier outside of 1 to 64 units";
  for (const wchar_t* length :
       {L"0", L"-1", L"65", L"2147483647", L"99999999999", L"-99999999999", L"x", L""}) {
    this->ExpectStops(this->Type() + L"," + length + L",9f3a,0,", code, flaw);
  }
  this->ExpectStops(this->Type() + L",65," + std::wstring(65, L'9') + L",0,", code, flaw);
}

TYPED_TEST(TheHead, TakesIdentifiersOf1And64Units) {
  for (const std::size_t length : {std::size_t{1}, std::size_t{64}}) {
    const std::wstring id(length, L'9');
    const auto response =
        Read<TypeParam>(this->Type() + L"," + std::to_wstring(length) + L"," + id + L",19,", id);
    EXPECT_EQ(static_cast<int>(response.responseCode), this->OfProxyElse(22, 19));
  }
}

TYPED_TEST(TheHead, StopsAtAnIdentifierThatTheTextCutsShort) {
  const int code = this->OfProxyElse(24, TestFixture::Of::constructed);
  for (const wchar_t* rest : {L",4,9f3", L",4,"}) {
    this->ExpectStops(this->Type() + rest, code, "with an identifier that is cut short");
  }
}

TYPED_TEST(TheHead, WithAnIdentifierThatDiffersInOneUnitStopsWithCode2) {
  for (const wchar_t* id : {L"8f3a", L"9f3b", L"9F3a"}) {
    this->ExpectStops(this->Type() + L",4," + id + L",0,", 2, OTHER_IDENTIFIER);
  }
  this->ExpectStops(this->Type() + L",3,9f3,0,", 2, OTHER_IDENTIFIER);
  this->ExpectStops(this->Type() + L",5,9f3a0,0,", 2, OTHER_IDENTIFIER);
}

TYPED_TEST(TheHead, TakesTheHelpersCodeWhateverItIs) {
  for (const int code : {0, 1, 17, 27, 28, -1, 2147483647}) {
    const auto response = Read<TypeParam>(this->Type() + L",4,9f3a," + std::to_wstring(code) + L",");
    // Of the proxy's response nothing but the comma behind the length is missing then.
    EXPECT_EQ(static_cast<int>(response.responseCode), this->OfProxyElse(22, code));
    EXPECT_FALSE(response.isValid);
  }
}

TYPED_TEST(TheHead, KeepsTheNearestNumberToACodeThatIsTooLarge) {
  this->ExpectStops(this->Type() + L",4,9f3a,99999999999,", this->OfProxyElse(22, 2147483647),
                    "with a code of more than 31 bits and nothing behind it");
}

TYPED_TEST(TheHead, MayHaveWhiteSpaceBeforeNumbersAndCommasButNotInTheIdentifier) {
  this->ExpectStops(L" \t" + this->Type() + L"\n, 4 ,9f3a ,\r\n19 , 1;", this->OfProxyElse(22, 19),
                    "with nothing behind the code 19");
  this->ExpectStops(this->Type() + L",4, 9f3a,0,", 2, OTHER_IDENTIFIER);
}

TEST(TheBaseResponse, LeavesBothStreamsUntouched) {
  ResponseMessage response(ID);
  std::wistringstream input(L"0,4,9f3a,0,0");
  EXPECT_EQ(&response.Deserialize(input), &input);
  EXPECT_EQ(input.tellg(), 0);
  EXPECT_EQ(Written(response), L"");
  EXPECT_FALSE(response.isValid);
  EXPECT_EQ(response.responseId, ID);
}

// Titles

TEST(TitlesResponse, HoldsTheTitlesInOrderWithTheirCommas) {
  const auto response = Titles(L"0,4,9f3a,0,2,3,a,b,5, c, ,");
  EXPECT_TRUE(response.isValid);
  EXPECT_EQ(response.responseCode, SUCCESS);
  EXPECT_THAT(response.titles, ElementsAre(L"a,b", L" c, ,"));
}

TEST(TitlesResponse, WithoutTitlesIsValid) {
  for (const wchar_t* text : {L"0,4,9f3a,0,0", L"0,4,9f3a,0,0,", L"0,4,9f3a,0, 0x"}) {
    const auto response = Titles(text);
    EXPECT_TRUE(response.isValid);
    EXPECT_THAT(response.titles, IsEmpty());
  }
}

TEST(TitlesResponse, KeepsTheHelpersCodeAlsoWhenItIsValid) {
  const auto response = Titles(L"0,4,9f3a,4,0");
  EXPECT_TRUE(response.isValid);
  EXPECT_EQ(response.responseCode, TABTITLE_MAIN_WINDOWS_NOT_FOUND);
}

void ExpectNoTitles(const wchar_t* count, const char* flaw, const char* chosen = "") {
  const auto response = Titles(std::wstring(L"0,4,9f3a,0,") + count + L",1,a");
  EXPECT_FALSE(response.isValid) << testing::PrintToString(count);
  EXPECT_THAT(response.titles, IsEmpty());
  EXPECT_EQ(response.responseCode, SUCCESS);
  Enter(flaw, response, chosen);
}

TEST(TitlesResponse, IsInvalidWithACountOutside0To1024) {
  for (const wchar_t* count : {L"-1", L"1025", L"2147483647", L"99999999999"}) {
    ExpectNoTitles(count, "with a count outside of 0 to 1024");
  }
}

TEST(TitlesResponse, IsInvalidWithNoNumberAsItsCount) {
  for (const wchar_t* count : {L"x", L""}) {
    ExpectNoTitles(count, "with no number as its count", NO_NUMBER_CHOSEN);
  }
}

std::wstring ManyTitles(int count) {
  std::wstring text = L"0,4,9f3a,0," + std::to_wstring(count);
  for (int i = 0; i < count; ++i) text += L",1,t";
  return text;
}

TEST(TitlesResponse, Holds1024TitlesAndNotOneMore) {
  const auto most = Titles(ManyTitles(1024));
  EXPECT_TRUE(most.isValid);
  EXPECT_EQ(most.titles, std::vector<std::wstring>(1024, L"t"));
  EXPECT_FALSE(Titles(ManyTitles(1025)).isValid);
}

TEST(TitlesResponse, IsInvalidWithFewerTitlesThanItsCount) {
  for (const wchar_t* text : {L"0,4,9f3a,0,1", L"0,4,9f3a,0,2,1,a"}) {
    const auto response = Titles(text);
    EXPECT_FALSE(response.isValid);
    Enter("with fewer titles than its count", response);
  }
}

TEST(TitlesResponse, HoldsATitleOf1024UnitsAndNoLonger) {
  const std::wstring title(1024, L't');
  const auto longest = Titles(L"0,4,9f3a,0,1,1024," + title);
  EXPECT_TRUE(longest.isValid);
  EXPECT_THAT(longest.titles, ElementsAre(title));
  const auto tooLong = Titles(L"0,4,9f3a,0,1,1025," + title + L"t");
  EXPECT_FALSE(tooLong.isValid);
  EXPECT_THAT(tooLong.titles, IsEmpty());
}

TEST(TitlesResponse, IsInvalidWithATitleOfNoLength) {
  for (const wchar_t* length : {L"0", L"-1", L"2147483647", L"99999999999", L"x", L""}) {
    const auto response = Titles(std::wstring(L"0,4,9f3a,0,1,") + length + L",a");
    EXPECT_FALSE(response.isValid) << testing::PrintToString(length);
    Enter("with a title outside of 1 to 1024 units", response);
  }
}

TEST(TitlesResponse, IsInvalidWithoutAnyOfItsCommas) {
  for (const wchar_t* text : {L"0,4,9f3a,0,1;1,a", L"0,4,9f3a,0,1,1;a", L"0,4,9f3a,0,2,1,a;1,b"}) {
    const auto response = Titles(text);
    EXPECT_FALSE(response.isValid);
    Enter("without a comma of its content", response);
  }
}

TEST(TitlesResponse, KeepsALastTitleThatIsCutShortWithZerosAtItsEnd) {
  const auto response = Titles(L"0,4,9f3a,0,2,1,a,5,bc");
  EXPECT_TRUE(response.isValid);
  EXPECT_THAT(response.titles, ElementsAre(L"a", std::wstring(L"bc\0\0\0", 5)));
  Enter("with a last title that is cut short", response);
}

TEST(TitlesResponse, IsInvalidWithAnEarlierTitleCutShort) {
  const auto response = Titles(L"0,4,9f3a,0,2,5,bc");
  EXPECT_FALSE(response.isValid);
  EXPECT_THAT(response.titles, ElementsAre(std::wstring(L"bc\0\0\0", 5)));
  Enter("with an earlier title that is cut short", response);
}

TEST(TitlesResponse, IsInvalidWhenNothingOfALastTitleIsThere) {
  const auto response = Titles(L"0,4,9f3a,0,1,3,");
  EXPECT_FALSE(response.isValid);
  EXPECT_THAT(response.titles, IsEmpty());
}

TEST(TitlesResponse, CutAnywhereIsInvalidUnlessOnlyTheLastTitleIsShorter) {
  const std::wstring whole = L"0,4,9f3a,0,2,3,one,3,two";
  const std::size_t lastTitle = whole.size() - 3;
  for (std::size_t length = 0; length <= whole.size(); ++length) {
    EXPECT_EQ(Titles(whole.substr(0, length)).isValid, length > lastTitle) << length;
  }
}

TEST(TitlesResponse, ReadsWhatItWrites) {
  ResponseMessageTabTitles written(ID);
  written.responseCode = TABTITLE_BAD_VERSION;
  written.titles = {L"a,b", L" "};
  EXPECT_EQ(Written(written), L"0,4,9f3a,1,2,3,a,b,1, ");
  const auto read = Titles(Written(written));
  EXPECT_TRUE(read.isValid);
  EXPECT_EQ(read.responseCode, TABTITLE_BAD_VERSION);
  EXPECT_EQ(read.titles, written.titles);
}

// Metadata

std::wstring MetaDataText(const std::wstring& rest) {
  return L"1,4,9f3a,0," + SHA256 + L"," + MD5 + rest;
}

TEST(MetaDataResponse, HoldsDigestsSizeAndExtraText) {
  const auto response = MetaData(MetaDataText(L",18446744073709551615,4,a,b "));
  EXPECT_TRUE(response.isValid);
  EXPECT_EQ(response.sha256Hex, SHA256);
  EXPECT_EQ(response.md5Hex, MD5);
  EXPECT_EQ(response.fileSize, 18446744073709551615U);
  EXPECT_EQ(response.extraLength, 4U);
  EXPECT_EQ(response.extraText, L"a,b ");
}

TEST(MetaDataResponse, WithoutExtraTextIsValidWithAndWithoutACommaAtItsEnd) {
  for (const wchar_t* rest : {L",10,0", L",10,0,", L",10,0;"}) {
    const auto response = MetaData(MetaDataText(rest));
    EXPECT_TRUE(response.isValid);
    EXPECT_EQ(response.fileSize, 10U);
    EXPECT_EQ(response.extraText, L"");
  }
}

TEST(MetaDataResponse, IsInvalidWithAShorterDigest) {
  const auto shortSha = MetaData(L"1,4,9f3a,0," + SHA256.substr(1) + L"," + MD5 + L",10,0");
  EXPECT_FALSE(shortSha.isValid);
  EXPECT_EQ(shortSha.responseCode, SUCCESS);
  Enter("with a digest that is too short", shortSha);
  EXPECT_FALSE(MetaData(L"1,4,9f3a,0," + SHA256 + L"," + MD5.substr(1) + L",10,0").isValid);
  const auto cutSha = MetaData(L"1,4,9f3a,0," + SHA256.substr(1));
  EXPECT_FALSE(cutSha.isValid);
  EXPECT_EQ(cutSha.sha256Hex, L"");
  const auto cutMd5 = MetaData(L"1,4,9f3a,0," + SHA256 + L"," + MD5.substr(1));
  EXPECT_FALSE(cutMd5.isValid);
  EXPECT_EQ(cutMd5.sha256Hex, SHA256);
  EXPECT_EQ(cutMd5.md5Hex, L"");
}

TEST(MetaDataResponse, IsInvalidWithoutAnyOfItsCommas) {
  for (const std::wstring& text :
       {L"1,4,9f3a,0," + SHA256 + L";" + MD5 + L",10,1,x", MetaDataText(L";10,1,x"), MetaDataText(L",10;1,x"),
        MetaDataText(L",10,1;x")}) {
    const auto response = MetaData(text);
    EXPECT_FALSE(response.isValid);
    Enter("without a comma of its content", response);
  }
}

TEST(MetaDataResponse, IsInvalidWithLessExtraTextThanItAnnounces) {
  // A negative length is that much below 2^64.
  for (const wchar_t* length :
       {L"2", L"2147483647", L"4294967297", L"18446744073709551615", L"18446744073709551616", L"-1", L"-2"}) {
    const auto response = MetaData(MetaDataText(std::wstring(L",10,") + length + L",x"));
    EXPECT_FALSE(response.isValid) << testing::PrintToString(length);
    EXPECT_EQ(response.extraText, L"");
    Enter("with less extra text than it announces", response);
  }
  EXPECT_EQ(MetaData(MetaDataText(L",10,-1,x")).extraLength, 18446744073709551615U);
}

TEST(MetaDataResponse, IsInvalidWithoutANumber) {
  for (const wchar_t* rest : {L",x,0", L",,0", L",10,x", L",10,"}) {
    const auto response = MetaData(MetaDataText(rest));
    EXPECT_FALSE(response.isValid) << testing::PrintToString(rest);
    Enter("with no number as a size or length", response, NO_NUMBER_CHOSEN);
  }
}

TEST(MetaDataResponse, CutAnywhereIsInvalid) {
  const std::wstring whole = MetaDataText(L",10,3,abc");
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_FALSE(MetaData(whole.substr(0, length)).isValid) << length;
  }
  EXPECT_TRUE(MetaData(whole).isValid);
}

TEST(MetaDataResponse, ReadsWhatItWrites) {
  ResponseMessageMetaData written(ID);
  written.messageType = 1;
  written.responseCode = METADATA_CANNOT_READ_FILE;
  written.sha256Hex = SHA256;
  written.md5Hex = MD5;
  written.fileSize = 4294967296;
  written.extraLength = 3;
  written.extraText = L"a,b";
  EXPECT_EQ(Written(written), L"1,4,9f3a,19," + SHA256 + L"," + MD5 + L",4294967296,3,a,b");
  const auto read = MetaData(Written(written));
  EXPECT_TRUE(read.isValid);
  EXPECT_EQ(read.responseCode, METADATA_CANNOT_READ_FILE);
  EXPECT_EQ(read.fileSize, 4294967296U);
  EXPECT_EQ(read.extraText, L"a,b");
}

// Proxy

TEST(ProxyResponse, HoldsTheUrl) {
  const auto response = Proxy(L"2,4,9f3a,0,14,http://a/,b;c ");
  EXPECT_TRUE(response.isValid);
  EXPECT_EQ(response.responseCode, SUCCESS);
  EXPECT_EQ(response.url, L"http://a/,b;c ");
}

TEST(ProxyResponse, KeepsTheHelpersCodeBesideItsExplanation) {
  const auto response = Proxy(L"2,4,9f3a,26,3,why");
  EXPECT_TRUE(response.isValid);
  EXPECT_EQ(response.responseCode, PROXY_ERROR_GETTING_AUTO_CONFIG_URL);
  EXPECT_EQ(response.url, L"why");
}

TEST(ProxyResponse, WithoutAUrlIsValid) {
  const auto response = Proxy(L"2,4,9f3a,0,0,");
  EXPECT_TRUE(response.isValid);
  EXPECT_EQ(response.responseCode, SUCCESS);
  EXPECT_EQ(response.url, L"");
}

TEST(ProxyResponse, OfANegativeLengthStopsWithCode25) {
  for (const wchar_t* length : {L"-1", L"-2147483648", L"-99999999999"}) {
    const auto response = Proxy(std::wstring(L"2,4,9f3a,0,") + length + L",a");
    EXPECT_FALSE(response.isValid);
    EXPECT_EQ(response.responseCode, PROXY_RESULT_SIZE_IS_NEGATIVE);
    Enter("with a negative length", response);
  }
}

TEST(ProxyResponse, WithoutTheCommaBehindTheLengthStopsWithCode22) {
  for (const wchar_t* rest : {L"1;a", L"1", L"x", L"", L"99999999999,a"}) {
    const auto response = Proxy(std::wstring(L"2,4,9f3a,0,") + rest);
    EXPECT_FALSE(response.isValid);
    EXPECT_EQ(response.responseCode, PROXY_PARSE_FAILURE) << testing::PrintToString(rest);
    Enter("without the comma behind the length", response);
  }
}

TEST(ProxyResponse, OfAUrlThatIsCutShortStopsWithCode24) {
  for (const wchar_t* rest : {L"2,a", L"1,", L"2147483647,a"}) {
    const auto response = Proxy(std::wstring(L"2,4,9f3a,0,") + rest);
    EXPECT_FALSE(response.isValid);
    EXPECT_EQ(response.responseCode, PROXY_CANNOT_READ_MESSAGE);
    EXPECT_EQ(response.url, L"");
    Enter("with a text that is cut short", response);
  }
}

TEST(ProxyResponse, CutAnywhereIsInvalid) {
  const std::wstring whole = L"2,4,9f3a,0,8,http://a";
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_FALSE(Proxy(whole.substr(0, length)).isValid) << length;
  }
  EXPECT_TRUE(Proxy(whole).isValid);
}

TEST(ProxyResponse, ReadsWhatItWrites) {
  ResponseMessageAutoProxyConfigUrl written(ID);
  written.url = L"a,b";
  EXPECT_EQ(Written(written), L"2,4,9f3a,27,3,a,b");
  const auto read = Proxy(Written(written));
  EXPECT_TRUE(read.isValid);
  EXPECT_EQ(read.responseCode, PROXY_UNKNOWN);
  EXPECT_EQ(read.url, L"a,b");
}

// Cloud login

TEST(CloudResponse, HoldsTheLogin) {
  const auto response = Cloud(L"3,4,9f3a,0,6, ann,b");
  EXPECT_TRUE(response.isValid);
  EXPECT_EQ(response.responseCode, SUCCESS);
  EXPECT_EQ(response.login, L" ann,b");
}

TEST(CloudResponse, OfALengthBelow1IsValidAndEmpty) {
  for (const wchar_t* length : {L"0", L"-1", L"-2147483648"}) {
    const auto response = Cloud(std::wstring(L"3,4,9f3a,0,") + length + L",a");
    EXPECT_TRUE(response.isValid);
    EXPECT_EQ(response.responseCode, SUCCESS);
    EXPECT_EQ(response.login, L"");
    Enter("with a length below 1", response);
  }
}

TEST(CloudResponse, IsInvalidWithoutTheCommaBehindTheLength) {
  for (const wchar_t* rest : {L"1;a", L"0", L"-1", L"x", L"", L"99999999999,a", L"-99999999999,a"}) {
    const auto response = Cloud(std::wstring(L"3,4,9f3a,0,") + rest);
    EXPECT_FALSE(response.isValid) << testing::PrintToString(rest);
    EXPECT_EQ(response.responseCode, SUCCESS);
    Enter("without the comma behind the length", response);
  }
}

TEST(CloudResponse, IsInvalidWithALoginThatIsCutShort) {
  for (const wchar_t* rest : {L"2,a", L"1,", L"2147483647,a"}) {
    const auto response = Cloud(std::wstring(L"3,4,9f3a,17,") + rest);
    EXPECT_FALSE(response.isValid);
    EXPECT_EQ(response.responseCode, CLOUDLOGIN_ERROR_GETTING_CLOUD_LOGIN);
    EXPECT_EQ(response.login, L"");
    Enter("with a text that is cut short", response);
  }
}

TEST(CloudResponse, CutAnywhereIsInvalid) {
  const std::wstring whole = L"3,4,9f3a,0,3,ann";
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_FALSE(Cloud(whole.substr(0, length)).isValid) << length;
  }
  EXPECT_TRUE(Cloud(whole).isValid);
}

TEST(CloudResponse, ReadsWhatItWrites) {
  ResponseMessageCloudStorageProviderLogin written(ID);
  written.messageType = 3;
  written.responseCode = CLOUDLOGIN_NO_SIGNIN_VALUE_IN_REGISTRY;
  written.login = L"ann";
  EXPECT_EQ(Written(written), L"3,4,9f3a,16,3,ann");
  const auto read = Cloud(Written(written));
  EXPECT_TRUE(read.isValid);
  EXPECT_EQ(read.responseCode, CLOUDLOGIN_NO_SIGNIN_VALUE_IN_REGISTRY);
  EXPECT_EQ(read.login, L"ann");
}

// Layout

// Where a record keeps its fields, from its start.
template <typename Record, typename... Fields>
std::vector<std::ptrdiff_t> Places(const Record& record, const Fields&... fields) {
  const auto* const start = reinterpret_cast<const char*>(&record);
  return {reinterpret_cast<const char*>(&fields) - start...};
}

template <typename Response>
void ExpectHeadFirst(const Response& response, std::ptrdiff_t firstExtra) {
  // Behind the pointer to the virtual functions.
  const auto places =
      Places(response, response.messageType, response.responseCode, response.responseId, response.isValid);
  const auto pointer = static_cast<std::ptrdiff_t>(sizeof(void*));
  EXPECT_THAT(places, ElementsAre(pointer, pointer + 4, pointer + 8,
                                  pointer + 8 + static_cast<std::ptrdiff_t>(sizeof(std::wstring))));
  EXPECT_GT(firstExtra, places.back());
}

TEST(TheFieldsOfAResponse, StandInTheirOrder) {
  const ResponseMessageTabTitles titles(ID);
  ExpectHeadFirst(titles, Places(titles, titles.titles)[0]);
  const ResponseMessageMetaData metaData(ID);
  const auto places = Places(metaData, metaData.sha256Hex, metaData.md5Hex, metaData.fileSize,
                             metaData.extraLength, metaData.extraText);
  ExpectHeadFirst(metaData, places[0]);
  EXPECT_TRUE(std::is_sorted(places.begin(), places.end()));
  const ResponseMessageAutoProxyConfigUrl proxy(ID);
  ExpectHeadFirst(proxy, Places(proxy, proxy.url)[0]);
  const ResponseMessageCloudStorageProviderLogin cloud(ID);
  ExpectHeadFirst(cloud, Places(cloud, cloud.login)[0]);
}

TEST(TheFieldsOfAResponse, AreInTheSamePlacesForAUrlAsForALogin) {
  const ResponseMessageAutoProxyConfigUrl proxy(ID);
  const ResponseMessageCloudStorageProviderLogin cloud(ID);
  EXPECT_EQ(sizeof(proxy), sizeof(cloud));
  EXPECT_EQ(Places(proxy, proxy.url), Places(cloud, cloud.login));
}

// A pointer to a virtual member function holds one more than the place of its slot.
template <typename Function>
std::size_t SlotOf(Function function) {
  std::size_t place = 0;
  std::memcpy(&place, &function, sizeof(place));
  EXPECT_EQ(place % sizeof(void*), 1U) << "the function is not virtual";
  return place / sizeof(void*);
}

TEST(TheVirtualFunctionsOfAResponse, AreSerializeThenDeserialize) {
  EXPECT_EQ(SlotOf(&ResponseMessage::Serialize), 0U);
  EXPECT_EQ(SlotOf(&ResponseMessage::Deserialize), 1U);
}

// The stream afterwards

TEST(AReadThatTheTextIsTooShortFor, LeavesTheStreamAtItsEndAndFailed) {
  ResponseMessageAutoProxyConfigUrl response(ID);
  std::wistringstream stream(L"2,4,9f3a,0,5,abc");
  response.Deserialize(stream);
  EXPECT_TRUE(stream.eof());
  EXPECT_TRUE(stream.fail());
  EXPECT_FALSE(stream.bad());
  EXPECT_EQ(stream.gcount(), 3);
  stream.clear();
  EXPECT_EQ(stream.tellg(), 16);
}

TEST(AReadThatTheTextIsLongEnoughFor, LeavesTheRestInTheStream) {
  ResponseMessageAutoProxyConfigUrl response(ID);
  std::wistringstream stream(L"2,4,9f3a,0,3,abcdef");
  response.Deserialize(stream);
  EXPECT_TRUE(stream.good());
  std::wstring rest;
  stream >> rest;
  EXPECT_EQ(rest, L"def");
}

}  // namespace
