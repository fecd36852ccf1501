#include "util/text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

namespace {

using ostrel::CopyBounded;
using ostrel::EndsWithIgnoringAsciiCase;
using ostrel::EqualsIgnoringAsciiCase;
using ostrel::FoldAsciiCase;
using ostrel::StartsWithIgnoringAsciiCase;
using ostrel::TextList;

TEST(Text, FoldingChangesTheAsciiCapitalsAndNothingElse) {
  for (unsigned code = 0; code < 0xFFFF; ++code) {
    const wchar_t character = static_cast<wchar_t>(code);
    const bool isCapital = code >= 0x41 && code <= 0x5A;
    ASSERT_EQ(FoldAsciiCase(character), static_cast<wchar_t>(isCapital ? code + 0x20 : code)) << code;
  }
}

TEST(Text, EqualityNeedsTheSameLength) {
  EXPECT_TRUE(EqualsIgnoringAsciiCase(L"aBc", L"AbC"));
  EXPECT_FALSE(EqualsIgnoringAsciiCase(L"abc", L"ab"));
  EXPECT_FALSE(EqualsIgnoringAsciiCase(L"ab", L"abc"));
  EXPECT_TRUE(EqualsIgnoringAsciiCase(L"", L""));
}

TEST(Text, PrefixAndSuffixMayBeTheWholeTextOrEmptyButNotLonger) {
  EXPECT_TRUE(StartsWithIgnoringAsciiCase(L"\\DEVICE\\x", L"\\Device"));
  EXPECT_TRUE(StartsWithIgnoringAsciiCase(L"ab", L"AB"));
  EXPECT_TRUE(StartsWithIgnoringAsciiCase(L"ab", L""));
  EXPECT_FALSE(StartsWithIgnoringAsciiCase(L"ab", L"abc"));
  EXPECT_FALSE(StartsWithIgnoringAsciiCase(L"xab", L"ab"));
  EXPECT_TRUE(EndsWithIgnoringAsciiCase(L"x.TMP", L".tmp"));
  EXPECT_TRUE(EndsWithIgnoringAsciiCase(L"ab", L""));
  EXPECT_FALSE(EndsWithIgnoringAsciiCase(L"bc", L"abc"));
  EXPECT_FALSE(EndsWithIgnoringAsciiCase(L"abx", L"ab"));
}

TEST(Text, ABoundedCopyFillsItsCapacityAndWritesNoFurther) {
  wchar_t buffer[6];
  std::fill(std::begin(buffer), std::end(buffer), L'?');
  CopyBounded(L"abcdefgh", buffer, 4);
  EXPECT_EQ(std::wstring(buffer), L"abc");
  EXPECT_EQ(buffer[4], L'?');
  CopyBounded(L"abc", buffer, 4);
  EXPECT_EQ(std::wstring(buffer), L"abc");
  CopyBounded(L"ab", buffer, 4);
  EXPECT_EQ(std::wstring(buffer), L"ab");
  CopyBounded(L"ab", buffer, 1);
  EXPECT_EQ(std::wstring(buffer), L"");
}

TEST(Text, AnArrayOfTextsIsCopiedInItsOrder) {
  const wchar_t* const texts[] = {L"b", nullptr, L"a"};
  EXPECT_EQ((TextList{texts, 3}.Copy()), (std::vector<std::wstring>{L"b", L"", L"a"}));
  EXPECT_EQ((TextList{texts, 1}.Copy()), std::vector<std::wstring>{L"b"});
}

TEST(Text, NoArrayAndNoPositiveCountAreTheEmptyList) {
  const wchar_t* const texts[] = {L"a"};
  EXPECT_TRUE((TextList{texts, 0}.Copy()).empty());
  EXPECT_TRUE((TextList{texts, -1}.Copy()).empty());
  EXPECT_TRUE((TextList{nullptr, 5}.Copy()).empty());
}

}  // namespace
