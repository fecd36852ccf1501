// What OstrelUserHelper.exe needs, and that it lies where the library looks for it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>

#include "helper_process.h"
#include "portable_executable.h"
#include "temporary_folder.h"

namespace {

using ostrel::test::PortableExecutable;
using ostrel_test::HelperProgram;
using ostrel_test::ReadWholeFile;
using ::testing::IsEmpty;
using ::testing::IsSubsetOf;

class TheHelpersFile : public ::testing::Test {
 protected:
  const PortableExecutable file_{HelperProgram().wstring()};
};

TEST_F(TheHelpersFile, IsFor64Bit) {
  EXPECT_TRUE(file_.Is64Bit());
}

// Not even from the library: it works where nothing else of ours lies.
TEST_F(TheHelpersFile, ImportsOnlyFromWindowsOwnLibraries) {
  std::vector<std::string> libraries = file_.ImportedLibraries();
  for (std::string& name : libraries) {
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
  }
  EXPECT_THAT(libraries, ::testing::Not(IsEmpty()));
  EXPECT_THAT(libraries, IsSubsetOf({"advapi32.dll", "bcrypt.dll", "kernel32.dll", "msvcrt.dll", "psapi.dll",
                                     "user32.dll", "winhttp.dll"}));
}

TEST_F(TheHelpersFile, ExportsNothing) {
  EXPECT_THAT(file_.ExportedNames(), IsEmpty());
}

// In a service the library starts it from the folder nlib.
TEST_F(TheHelpersFile, LiesInBothPlacesFromWhichTheLibraryStartsIt) {
  const std::filesystem::path inService =
      HelperProgram().parent_path() / L"nlib" / HelperProgram().filename();
  EXPECT_EQ(ReadWholeFile(HelperProgram()), ReadWholeFile(inService));
}

}  // namespace
