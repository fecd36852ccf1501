#include <gtest/gtest.h>

#include <string>

#include "util/ostrel_filter_lib_util.h"

namespace {

// What a host would read, with the string given back.
std::wstring Formatted(const std::wstring& text) {
  wchar_t* returned = nullptr;
  OstrelFilterLibUtil::AllocStringPointer(&returned, L"%s", text.c_str());
  const std::wstring copy(returned);
  OstrelFilterLibUtil::DeallocStringPointer(&returned);
  return copy;
}

TEST(StringReturn, AStringIsFormattedIntoAFreshBuffer) {
  wchar_t* first = nullptr;
  wchar_t* second = nullptr;
  OstrelFilterLibUtil::AllocStringPointer(&first, L"%s is %d of %lu", L"one", -1, ostrel::ULong32{2});
  OstrelFilterLibUtil::AllocStringPointer(&second, L"two");
  EXPECT_NE(first, second);
  EXPECT_EQ(std::wstring(first), L"one is -1 of 2");
  EXPECT_EQ(std::wstring(second), L"two");
  OstrelFilterLibUtil::DeallocStringPointer(&first);
  OstrelFilterLibUtil::DeallocStringPointer(&second);
}

TEST(StringReturn, TheBufferHolds2048Characters) {
  wchar_t* returned = nullptr;
  OstrelFilterLibUtil::AllocStringPointer(&returned, L"");
  for (int i = 0; i < 2048; ++i) returned[i] = L'x';  // under a sanitizer a smaller buffer fails here
  EXPECT_EQ(returned[2047], L'x');
  OstrelFilterLibUtil::DeallocStringPointer(&returned);
}

TEST(StringReturn, ALongTextIsCutTo2046Characters) {
  EXPECT_EQ(Formatted(std::wstring(2045, L'x')), std::wstring(2045, L'x'));
  EXPECT_EQ(Formatted(std::wstring(2046, L'x')), std::wstring(2046, L'x'));
  EXPECT_EQ(Formatted(std::wstring(2047, L'x')), std::wstring(2046, L'x'));
  EXPECT_EQ(Formatted(std::wstring(2048, L'x')), std::wstring(2046, L'x'));
  EXPECT_EQ(Formatted(std::wstring(9000, L'x')), std::wstring(2046, L'x'));
}

TEST(StringReturn, AnEmptyTextIsAnEmptyString) {
  EXPECT_EQ(Formatted(L""), L"");
}

TEST(StringReturn, GivingBackANullStringDoesNothing) {
  wchar_t* none = nullptr;
  OstrelFilterLibUtil::DeallocStringPointer(&none);
  EXPECT_EQ(none, nullptr);
  OstrelFilterLibUtil::DeallocStringPointer(nullptr);
}

}  // namespace
