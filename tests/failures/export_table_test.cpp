#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <fstream>

#include "portable_executable.h"
#include "support/library_copy.h"

namespace ostrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsSubsetOf;

std::vector<std::string> ListedExports() {
  std::ifstream file(std::filesystem::path(ProgramDirectory()) / "exports.txt");
  std::vector<std::string> names;
  for (std::string line; std::getline(file, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (!line.empty() && line.front() != '#') names.push_back(line);
  }
  return names;
}

bool IsDecorated(const std::string& name) {
  return name.starts_with("_Z");
}

class TheLibrarysFile : public ::testing::Test {
 protected:
  const PortableExecutable file_{LibraryCopy::OriginalPath()};
};

TEST_F(TheLibrarysFile, IsFor64Bit) {
  EXPECT_TRUE(file_.Is64Bit());
}

TEST_F(TheLibrarysFile, ExportsExactlyTheListedNames) {
  ASSERT_FALSE(ListedExports().empty());
  EXPECT_THAT(file_.ExportedNames(), ElementsAreArray(ListedExports()));
}

TEST_F(TheLibrarysFile, ExportsItsFunctionsUndecorated) {
  std::vector<std::string> functions;
  for (const std::string& name : file_.ExportedNames()) {
    if (!IsDecorated(name)) functions.push_back(name);
  }
  EXPECT_THAT(functions,
              ElementsAre("DeallocStringPointer", "DisableActivityDetection", "DisablePCDDetection",
                          "DisableRemoteAddressInfo", "DisableTabTitles", "EnableActivityDetection",
                          "EnablePCDDetection", "EnableRemoteAddressInfo", "EnableTabTitles",
                          "GetAllUserDirectories", "GetAutoProxyConfigUrlForUser", "GetCurrentUserName",
                          "LoadDriver", "UnloadDriver", "UpdateProcesses"));
}

TEST_F(TheLibrarysFile, ImportsOnlyFromWindowsOwnLibraries) {
  std::vector<std::string> libraries;
  for (std::string name : file_.ImportedLibraries()) {
    for (char& character : name)
      character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    libraries.push_back(name);
  }
  EXPECT_THAT(libraries, IsSubsetOf({"advapi32.dll", "fltlib.dll", "fwpuclnt.dll", "kernel32.dll",
                                     "msvcrt.dll", "ole32.dll", "oleaut32.dll", "propsys.dll", "psapi.dll",
                                     "setupapi.dll", "shlwapi.dll", "winhttp.dll", "ws2_32.dll"}));
  EXPECT_THAT(libraries, ::testing::IsSupersetOf({"fltlib.dll", "fwpuclnt.dll"}));
}

}  // namespace

}  // namespace ostrel::test
