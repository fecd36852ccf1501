#include <gtest/gtest.h>

#include <array>
#include <string>

#include "util/ostrel_filter_lib_util.h"

namespace {

using Conversion = void (*)(wchar_t*, wchar_t*);

// The conversions are private and the public ConvertFileName calls Windows. An explicit instantiation may
// name a private member, which lets these two be tested where there is no Windows.
Conversion NetworkConversion();
Conversion OtherConversion();

template <Conversion NETWORK, Conversion OTHER>
struct PrivateMembers {
  friend Conversion NetworkConversion() { return NETWORK; }
  friend Conversion OtherConversion() { return OTHER; }
};
template struct PrivateMembers<&OstrelFilterLibUtil::ConvertNetworkDriveFileName,
                               &OstrelFilterLibUtil::ConvertOtherFileName>;

// Converts into a buffer of exactly the promised 512 characters, which a sanitizer watches.
std::wstring Convert(Conversion conversion, std::wstring source) {
  std::wstring destination(511, L'?');
  conversion(source.data(), destination.data());
  return destination.c_str();
}

TEST(ConvertNetworkDriveFileName, TheFirstTwoComponentsGiveWayToTwoBackslashes) {
  EXPECT_EQ(Convert(NetworkConversion(), L"\\Device\\Mup\\server\\share\\dir\\file.txt"),
            L"\\\\server\\share\\dir\\file.txt");
}

TEST(ConvertNetworkDriveFileName, WhateverTheFirstTwoComponentsAreTheyGo) {
  EXPECT_EQ(Convert(NetworkConversion(), L"\\x\\y\\server\\share"), L"\\\\server\\share");
  EXPECT_EQ(Convert(NetworkConversion(), L"\\\\\\server"), L"\\\\server");
  EXPECT_EQ(Convert(NetworkConversion(), L"C:\\a\\b\\c"), L"\\\\c");
}

TEST(ConvertNetworkDriveFileName, FewerThanThreeBackslashesLeaveTheNameUnchanged) {
  EXPECT_EQ(Convert(NetworkConversion(), L"\\Device\\Mup"), L"\\Device\\Mup");
  EXPECT_EQ(Convert(NetworkConversion(), L"\\Device"), L"\\Device");
  EXPECT_EQ(Convert(NetworkConversion(), L"file"), L"file");
  EXPECT_EQ(Convert(NetworkConversion(), L"\\\\"), L"\\\\");
  EXPECT_EQ(Convert(NetworkConversion(), L""), L"");
}

TEST(ConvertNetworkDriveFileName, ThreeBackslashesAreEnough) {
  EXPECT_EQ(Convert(NetworkConversion(), L"\\Device\\Mup\\server"), L"\\\\server");
  EXPECT_EQ(Convert(NetworkConversion(), L"\\Device\\Mup\\"), L"\\\\");
}

TEST(ConvertNetworkDriveFileName, ALongNameIsCutTo511Characters) {
  const std::wstring rest(600, L'x');
  EXPECT_EQ(Convert(NetworkConversion(), L"\\Device\\Mup\\" + rest), L"\\\\" + rest.substr(0, 509));
  EXPECT_EQ(Convert(NetworkConversion(), L"\\Device\\Mup\\" + rest.substr(0, 509)),
            L"\\\\" + rest.substr(0, 509));
  EXPECT_EQ(Convert(NetworkConversion(), rest), rest.substr(0, 511));
}

TEST(ConvertOtherFileName, TheNameIsCopiedUnchangedAndCutTo511Characters) {
  EXPECT_EQ(Convert(OtherConversion(), L"\\Device\\Mup\\server\\share"), L"\\Device\\Mup\\server\\share");
  EXPECT_EQ(Convert(OtherConversion(), L""), L"");
  EXPECT_EQ(Convert(OtherConversion(), std::wstring(511, L'x')), std::wstring(511, L'x'));
  EXPECT_EQ(Convert(OtherConversion(), std::wstring(512, L'x')), std::wstring(511, L'x'));
}

}  // namespace
