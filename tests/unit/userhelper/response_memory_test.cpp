// What reading an answer costs in memory, whatever lengths the answer announces.

#include <gtest/gtest.h>

#include <cstddef>
#include <sstream>
#include <string>

#include "support/allocations.h"
#include "userhelper/response_messages.h"

namespace {

using namespace ostrel;

// What a stream may allocate to read the numbers of one answer: some libraries take a short string for each.
constexpr std::size_t NUMBERS = 256;

// Bytes allocated by reading the text, whose identifier is short enough to need none, each block counted
// whether or not it was freed again.
template <typename Response>
std::size_t BytesToRead(const std::wstring& text) {
  Response response(L"9f3");
  std::wistringstream stream(text);
  const ostrel::test::Allocations allocations;
  response.Deserialize(stream);
  return allocations.Bytes();
}

TEST(TheCountOfAllocatedBytes, SeesTheTextThatAReaderKeeps) {
  EXPECT_GE(BytesToRead<ResponseMessageAutoProxyConfigUrl>(L"2,3,9f3,0,1000," + std::wstring(1000, L'u')),
            1000 * sizeof(wchar_t));
}

TEST(AnnouncedLengths, NeverMakeTheTitlesReaderAllocateForThem) {
  for (const wchar_t* rest : {L"1,2147483647,a", L"1024", L"1024,", L"2147483647,1,a", L"1,-2147483648,a"}) {
    EXPECT_LE(BytesToRead<ResponseMessageTabTitles>(std::wstring(L"0,3,9f3,0,") + rest), NUMBERS);
  }
}

TEST(AnnouncedLengths, OfACutTitleCostNoMoreThanTheLongestTitleOnce) {
  for (const wchar_t* rest : {L"1,1024,a", L"1024,1024,a"}) {
    EXPECT_LE(BytesToRead<ResponseMessageTabTitles>(std::wstring(L"0,3,9f3,0,") + rest),
              1025 * sizeof(wchar_t) + sizeof(std::wstring) + NUMBERS);
  }
}

TEST(AnnouncedLengths, NeverMakeTheMetaDataReaderAllocateMoreThanTheDigests) {
  const std::wstring start = L"1,3,9f3,0," + std::wstring(64, L'a') + L"," + std::wstring(32, L'b') + L",10,";
  for (const wchar_t* rest :
       {L"18446744073709551615,a", L"-1,a", L"9223372036854775807,a", L"2147483647,a"}) {
    EXPECT_LE(BytesToRead<ResponseMessageMetaData>(start + rest), (65 + 33) * sizeof(wchar_t) + NUMBERS);
  }
}

TEST(AnnouncedLengths, NeverMakeTheProxyAndCloudReadersAllocateForThem) {
  for (const wchar_t* rest : {L"2147483647,a", L"-2147483648,a", L"99999999999,a"}) {
    EXPECT_LE(BytesToRead<ResponseMessageAutoProxyConfigUrl>(std::wstring(L"2,3,9f3,0,") + rest), NUMBERS);
    EXPECT_LE(BytesToRead<ResponseMessageCloudStorageProviderLogin>(std::wstring(L"3,3,9f3,0,") + rest),
              NUMBERS);
  }
}

TEST(AnnouncedLengths, OfTheIdentifierNeverMakeAReaderAllocateForIt) {
  for (const wchar_t* text : {L"2,2147483647,9f3,0,0,", L"2,65,9f3"}) {
    EXPECT_LE(BytesToRead<ResponseMessageAutoProxyConfigUrl>(text), NUMBERS);
  }
}

}  // namespace
