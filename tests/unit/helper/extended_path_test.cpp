#include "extended_path.h"

#include <gtest/gtest.h>

namespace {

using ostrel::helper::ExtendedPath;
using ostrel::helper::IsTooLong;
using ostrel::helper::PlainPath;

const std::wstring LONG_NAME(300, L'a');

TEST(AnExtendedPath, LeavesAPathOf259UnitsAsItIs) {
  const std::wstring longest = L"C:\\" + std::wstring(256, L'a');
  EXPECT_EQ(ExtendedPath(longest), longest);
  EXPECT_EQ(ExtendedPath(longest + L"a"), L"\\\\?\\" + longest + L"a");
}

TEST(AnExtendedPath, IsForAPathThatIsTooLongInAnyOtherForm) {
  EXPECT_FALSE(IsTooLong(std::wstring(259, L'a')));
  EXPECT_TRUE(IsTooLong(std::wstring(260, L'a')));
  EXPECT_FALSE(IsTooLong(L"\\\\?\\C:\\" + LONG_NAME));
  EXPECT_FALSE(IsTooLong(L"\\\\.\\" + LONG_NAME));
}

TEST(AnExtendedPath, TakesADriveAndAShare) {
  EXPECT_EQ(ExtendedPath(L"c:\\" + LONG_NAME), L"\\\\?\\c:\\" + LONG_NAME);
  EXPECT_EQ(ExtendedPath(L"\\\\server\\share\\" + LONG_NAME), L"\\\\?\\UNC\\server\\share\\" + LONG_NAME);
}

TEST(AnExtendedPath, LeavesWhatIsNoFullPathAsItIs) {
  for (const std::wstring& path : {L"\\\\?\\C:\\" + LONG_NAME, L"\\\\.\\" + LONG_NAME, LONG_NAME,
                                   L"C:" + LONG_NAME, L"\\" + LONG_NAME, L"1:\\" + LONG_NAME}) {
    EXPECT_EQ(ExtendedPath(path), path);
  }
  EXPECT_EQ(ExtendedPath(L""), L"");
}

TEST(APlainPath, HasNoExtension) {
  EXPECT_EQ(PlainPath(L"\\\\?\\C:\\a"), L"C:\\a");
  EXPECT_EQ(PlainPath(L"\\\\?\\UNC\\server\\share\\a"), L"\\\\server\\share\\a");
  EXPECT_EQ(PlainPath(L"C:\\a"), L"C:\\a");
  EXPECT_EQ(PlainPath(L""), L"");
}

}  // namespace
