#include "userhelper/request_message.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <sstream>
#include <type_traits>

namespace {

using ostrel::RequestMessage;

std::wstring TextOf(const RequestMessage& request) {
  std::wostringstream stream;
  EXPECT_EQ(&request.Serialize(stream), &stream);
  return stream.str();
}

TEST(ARequest, ForTitlesCarriesTheProcessIdBeforeTheCountedName) {
  const RequestMessage request(L"9f3a", L"07c2", 4512U, L"chrome.exe");
  EXPECT_EQ(TextOf(request), L"1,0,4,9f3a,4,07c2,4512,10,chrome.exe");
  EXPECT_EQ(request.version, 1U);
  EXPECT_EQ(request.messageType, 0U);
  EXPECT_EQ(request.commandId, L"9f3a");
  EXPECT_EQ(request.responseId, L"07c2");
  EXPECT_EQ(request.processId, 4512U);
  EXPECT_EQ(request.firstText, L"chrome.exe");
  EXPECT_EQ(request.secondText, L"");
}

TEST(ARequest, ForMetadataCarriesTheCountedPath) {
  const RequestMessage request(L"a", L"bc", L"\\\\server\\share\\a,b.txt");
  EXPECT_EQ(TextOf(request), L"1,1,1,a,2,bc,22,\\\\server\\share\\a,b.txt");
  EXPECT_EQ(request.version, 1U);
  EXPECT_EQ(request.messageType, 1U);
  EXPECT_EQ(request.processId, 0U);
  EXPECT_EQ(request.firstText, L"");
  EXPECT_EQ(request.secondText, L"\\\\server\\share\\a,b.txt");
}

TEST(ARequest, ForTheProxyEndsWithTheCommaBehindTheResponseIdentifier) {
  const RequestMessage request(L"a", L"bc");
  EXPECT_EQ(TextOf(request), L"1,2,1,a,2,bc,");
  EXPECT_EQ(request.version, 1U);
  EXPECT_EQ(request.messageType, 2U);
  EXPECT_EQ(request.processId, 0U);
  EXPECT_EQ(request.firstText, L"");
  EXPECT_EQ(request.secondText, L"");
}

TEST(ARequest, ForACloudLoginCarriesBothCountedTexts) {
  const RequestMessage request(L"a", L"bc", L"OneDrive", L"C:\\Users\\ann");
  EXPECT_EQ(TextOf(request), L"1,3,1,a,2,bc,8,OneDrive,12,C:\\Users\\ann");
  EXPECT_EQ(request.version, 1U);
  EXPECT_EQ(request.messageType, 3U);
  EXPECT_EQ(request.processId, 0U);
  EXPECT_EQ(request.firstText, L"OneDrive");
  EXPECT_EQ(request.secondText, L"C:\\Users\\ann");
}

TEST(ARequest, OfAnotherTypeEndsBehindTheResponseIdentifier) {
  RequestMessage request(L"a", L"bc", L"provider", L"home");
  request.messageType = 4;
  EXPECT_EQ(TextOf(request), L"1,4,1,a,2,bc,");
}

TEST(ARequest, IsAPlainRecordOfFieldsInTheirOrder) {
  EXPECT_FALSE(std::is_polymorphic_v<RequestMessage>);
  const RequestMessage request(L"a", L"bc");
  const auto place = [&request](const auto& field) {
    return static_cast<std::size_t>(reinterpret_cast<const char*>(&field) -
                                    reinterpret_cast<const char*>(&request));
  };
  const std::size_t text = sizeof(std::wstring);
  EXPECT_EQ(place(request.version), 0U);
  EXPECT_EQ(place(request.messageType), 4U);
  EXPECT_EQ(place(request.commandId), 8U);
  EXPECT_EQ(place(request.responseId), 8U + text);
  EXPECT_EQ(place(request.processId), 8U + 2 * text);
  EXPECT_EQ(place(request.firstText), 16U + 2 * text);
  EXPECT_EQ(place(request.secondText), 16U + 3 * text);
}

TEST(ARequest, WritesTheLargestProcessIdWithoutASign) {
  EXPECT_EQ(TextOf({L"a", L"b", 0xFFFFFFFFU, L""}), L"1,0,1,a,1,b,4294967295,0,");
}

}  // namespace
