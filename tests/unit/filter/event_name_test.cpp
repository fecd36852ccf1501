#include "filter/event_name.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cwchar>
#include <iterator>
#include <string>

namespace {

using ostrel::CopyDeviceName;
using ostrel::CutStreamSuffix;
using ostrel::DEVICE_NAME_CAPACITY;
using ostrel::EventMessage;

EventMessage Named(const std::u16string& name) {
  EventMessage message{};
  std::copy(name.begin(), name.end(), message.fileName);
  return message;
}

std::wstring Copied(const EventMessage& message) {
  wchar_t name[DEVICE_NAME_CAPACITY];
  std::fill(std::begin(name), std::end(name), L'?');
  CopyDeviceName(message, name);
  return name;
}

std::wstring Cut(std::wstring name, std::int32_t eventType, std::uint8_t streamFlag) {
  EventMessage message{};
  message.eventType = eventType;
  message.streamFlag = streamFlag;
  CutStreamSuffix(message, name.data());
  return name.c_str();
}

TEST(EventName, ANameIsCopiedUpToItsTerminator) {
  EXPECT_EQ(Copied(Named(u"\\Device\\Mup\\\u4E2D")), L"\\Device\\Mup\\\x4E2D");
  EXPECT_EQ(Copied(Named(u"")), L"");
  EventMessage message = Named(u"ab");
  message.fileName[3] = u'c';
  EXPECT_EQ(Copied(message), L"ab");
}

TEST(EventName, ANameThatFillsTheFieldKeepsAll512Characters) {
  const std::u16string name(512, u'x');
  EXPECT_EQ(Copied(Named(name)), std::wstring(512, L'x'));
  EXPECT_EQ(Copied(Named(name.substr(1))), std::wstring(511, L'x'));
}

TEST(EventName, AWrittenNameWithAStreamEndsAtItsLastColon) {
  EXPECT_EQ(Cut(L"C:\\dir\\file.txt:Zone.Identifier", 1, 0), L"C:\\dir\\file.txt");
  EXPECT_EQ(Cut(L"C:\\dir\\file.txt:stream:$DATA", 1, 0), L"C:\\dir\\file.txt:stream");
}

TEST(EventName, AnyOtherStreamFlagLeavesTheNameAlone) {
  EXPECT_EQ(Cut(L"C:\\file.txt:Zone.Identifier", 1, 1), L"C:\\file.txt:Zone.Identifier");
  EXPECT_EQ(Cut(L"C:\\file.txt:Zone.Identifier", 1, 255), L"C:\\file.txt:Zone.Identifier");
}

TEST(EventName, OnlyWritesLoseTheirStream) {
  for (const std::int32_t eventType : {-1, 0, 2, 3, 4, 9, 10, 257}) {
    EXPECT_EQ(Cut(L"C:\\file.txt:stream", eventType, 0), L"C:\\file.txt:stream") << eventType;
  }
}

// The driver's flag is believed: without a stream the drive's own colon is the last one, and only the letter
// remains.
TEST(EventName, AWrittenNameWithoutAStreamIsCutBehindItsDriveLetter) {
  EXPECT_EQ(Cut(L"C:\\dir\\file.txt", 1, 0), L"C");
}

TEST(EventName, ANameWithoutAColonIsKept) {
  EXPECT_EQ(Cut(L"\\\\server\\share\\file.txt", 1, 0), L"\\\\server\\share\\file.txt");
  EXPECT_EQ(Cut(L"", 1, 0), L"");
}

}  // namespace
