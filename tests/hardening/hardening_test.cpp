#include <gtest/gtest.h>
#include <windows.h>

#include <cctype>
#include <filesystem>
#include <string>

#include "portable_executable.h"

namespace ostrel::test {

namespace {

std::wstring Staged(const std::string& name) {
  wchar_t program[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, program, MAX_PATH);
  return (std::filesystem::path(program).parent_path() / OSTREL_STAGE_FROM_PROGRAM / name).wstring();
}

std::string NameOf(const testing::TestParamInfo<const char*>& file) {
  std::string name(file.param);
  for (char& character : name) {
    if (std::isalnum(static_cast<unsigned char>(character)) == 0) character = '_';
  }
  return name;
}

class BuiltFile : public testing::TestWithParam<const char*> {
 protected:
  const PortableExecutable file_{Staged(GetParam())};
};

TEST_P(BuiltFile, IsLoadedAtAnAddressDrawnFromAllThatThereAre) {
  constexpr unsigned wanted =
      IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE | IMAGE_DLLCHARACTERISTICS_HIGH_ENTROPY_VA;
  EXPECT_EQ(file_.Characteristics() & wanted, wanted);
  EXPECT_FALSE(file_.LostItsRelocations());
}

TEST_P(BuiltFile, IsNotAllowedToExecuteData) {
  EXPECT_NE(file_.Characteristics() & IMAGE_DLLCHARACTERISTICS_NX_COMPAT, 0);
}

TEST_P(BuiltFile, HasNoSectionThatIsBothWritableAndExecutable) {
  int executable = 0;
  int writable = 0;
  for (const SectionRights& section : file_.Sections()) {
    EXPECT_FALSE(section.isWritable && section.isExecutable);
    executable += section.isExecutable ? 1 : 0;
    writable += section.isWritable ? 1 : 0;
  }
  EXPECT_GE(executable, 1);
  EXPECT_GE(writable, 1);
}

class BuiltProgram : public BuiltFile {};

TEST_P(BuiltProgram, SaysWhereItsAddressesStand) {
  EXPECT_TRUE(file_.HasRelocations());
}

// Only a protected function calls it, and the linker takes it only when it is called.
TEST_P(BuiltProgram, ChecksItsStackBeforeAFunctionReturns) {
  EXPECT_TRUE(file_.HasLongSymbol("__stack_chk_fail"));
  EXPECT_FALSE(file_.HasLongSymbol("__stack_chk_fai"));
}

constexpr const char* PROGRAMS[] = {"OstrelFilterLib.dll", "OstrelHost.exe",       "OstrelUserHelper.exe",
                                    "OstrelLab.exe",       "OstrelLabProcess.exe", "fltlib.dll",
                                    "fwpuclnt.dll",        "wtsapi32.dll",         "propsys.dll"};
// Nothing in them could end a driver whose stack is damaged: the checks need a runtime that drivers do not
// have here.
constexpr const char* DRIVERS[] = {"OstrelFilter.sys", "OstrelNWFilter.sys"};

INSTANTIATE_TEST_SUITE_P(Programs, BuiltFile, testing::ValuesIn(PROGRAMS), NameOf);
INSTANTIATE_TEST_SUITE_P(Drivers, BuiltFile, testing::ValuesIn(DRIVERS), NameOf);
INSTANTIATE_TEST_SUITE_P(Programs, BuiltProgram, testing::ValuesIn(PROGRAMS), NameOf);

}  // namespace

}  // namespace ostrel::test
