#include "machine.h"

#include <gtest/gtest.h>
#include <windows.h>

#include "temporary_folder.h"
#include "windows_handle.h"

namespace {

using namespace ostrel::host;
using ostrel_test::MakeFile;
using ostrel_test::TemporaryFolder;
using Texts = std::vector<std::wstring>;

std::wstring OwnImagePath() {
  wchar_t path[512] = {};
  GetModuleFileNameW(nullptr, path, 512);
  return path;
}

std::wstring OwnImageName() {
  const std::wstring path = OwnImagePath();
  return path.substr(path.find_last_of(L'\\') + 1);
}

TEST(MachineTest, AFolderWithoutDriverFilesMissesAllFour) {
  const TemporaryFolder folder;
  EXPECT_EQ(MissingDriverFiles(folder.Path()),
            (Texts{L"OstrelFilter.inf", L"OstrelFilter.sys", L"OstrelNWFilter.inf", L"OstrelNWFilter.sys"}));
}

TEST(MachineTest, OnlyFilesCount) {
  const TemporaryFolder folder;
  MakeFile(folder / L"OstrelFilter.inf");
  MakeFile(folder / L"OstrelFilter.sys");
  MakeFile(folder / L"OstrelNWFilter.inf");
  std::filesystem::create_directory(folder / L"OstrelNWFilter.sys");
  EXPECT_EQ(MissingDriverFiles(folder.Path()), Texts{L"OstrelNWFilter.sys"});
}

TEST(MachineTest, WithAllFourNothingIsMissing) {
  const TemporaryFolder folder;
  for (const wchar_t* name :
       {L"OstrelFilter.inf", L"OstrelFilter.sys", L"OstrelNWFilter.inf", L"OstrelNWFilter.sys"}) {
    MakeFile(folder / name);
  }
  EXPECT_TRUE(MissingDriverFiles(folder.Path()).empty());
}

TEST(MachineTest, AModulesFolderIsWhereItsFileLies) {
  const std::wstring path = OwnImagePath();
  EXPECT_EQ(ModuleFolder(OwnImageName().c_str()), path.substr(0, path.find_last_of(L'\\')));
  EXPECT_EQ(ModuleFolder(L"OstrelNotLoaded.dll"), L"");
}

TEST(MachineTest, AProcessIsFoundByItsImageNameInAnyCase) {
  std::wstring name = OwnImageName();
  CharUpperW(name.data());
  const std::set<std::uint32_t> found = RunningProcesses({L"no-such-program.exe", name});
  EXPECT_EQ(found.count(GetCurrentProcessId()), 1U);
}

TEST(MachineTest, AProgramThatDoesNotRunIsNotFound) {
  EXPECT_TRUE(RunningProcesses({L"no-such-program.exe"}).empty());
  EXPECT_TRUE(RunningProcesses({}).empty());
}

// Tokens with and without the privilege, made from this process's own, whatever that holds.
class PrivilegeTest : public testing::Test {
 protected:
  static WindowsHandle OwnToken() {
    HANDLE token = nullptr;
    EXPECT_TRUE(
        OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY | TOKEN_DUPLICATE | TOKEN_ASSIGN_PRIMARY, &token));
    return WindowsHandle(token);
  }

  static WindowsHandle Without(const wchar_t* privilege) {
    LUID_AND_ATTRIBUTES removed{};
    EXPECT_TRUE(LookupPrivilegeValueW(nullptr, privilege, &removed.Luid));
    HANDLE token = nullptr;
    EXPECT_TRUE(CreateRestrictedToken(OwnToken().get(), 0, 0, nullptr, 1, &removed, 0, nullptr, &token));
    return WindowsHandle(token);
  }
};

TEST_F(PrivilegeTest, ATokenThatLostThePrivilegeDoesNotHoldIt) {
  EXPECT_FALSE(HoldsLoadDriverPrivilege(Without(L"SeLoadDriverPrivilege").get()));
}

TEST_F(PrivilegeTest, ATokenThatLostAnotherPrivilegeHoldsItAsTheProcessDoes) {
  EXPECT_EQ(HoldsLoadDriverPrivilege(Without(L"SeDebugPrivilege").get()), HoldsLoadDriverPrivilege());
}

TEST_F(PrivilegeTest, SomethingThatIsNoTokenHoldsNothing) {
  EXPECT_FALSE(HoldsLoadDriverPrivilege(nullptr));
}

}  // namespace
