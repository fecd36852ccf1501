#include "current_directory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

using ostrel::host::EnterProgramFolder;
using ostrel::host::MakePathsAbsolute;
using ostrel::host::Options;
using Paths = std::vector<std::wstring>;

// The current directory is the process's, and so the other tests'.
class CurrentDirectory : public ::testing::Test {
 protected:
  ~CurrentDirectory() override { std::filesystem::current_path(before_); }

  const std::filesystem::path before_ = std::filesystem::current_path();
};

TEST_F(CurrentDirectory, RelativePathsCountFromTheDirectoryInWhichTheHostWasStarted) {
  std::filesystem::current_path("C:\\windows");
  Options options;
  options.excludedPaths = {L"system32", L"..\\data"};
  options.cloudPaths = {L"Cloud"};
  options.excludedCloudPaths = {L"C:Cloud\\old"};
  options.logFile = L"host.log";
  MakePathsAbsolute(options);
  EXPECT_EQ(options.excludedPaths, (Paths{L"C:\\windows\\system32", L"C:\\data"}));
  EXPECT_EQ(options.cloudPaths, Paths{L"C:\\windows\\Cloud"});
  EXPECT_EQ(options.excludedCloudPaths, Paths{L"C:\\windows\\Cloud\\old"});
  EXPECT_EQ(options.logFile, L"C:\\windows\\host.log");
}

TEST_F(CurrentDirectory, FoldersThatDoNotDependOnItStayAsTheyAre) {
  const Paths folders = {L"D:\\data", L"\\\\server\\share\\x", L"\\Device\\HarddiskVolume3\\data", L"\\data"};
  Options options;
  options.excludedPaths = folders;
  options.cloudPaths = folders;
  options.excludedCloudPaths = folders;
  MakePathsAbsolute(options);
  EXPECT_EQ(options.excludedPaths, folders);
  EXPECT_EQ(options.cloudPaths, folders);
  EXPECT_EQ(options.excludedCloudPaths, folders);
  EXPECT_EQ(options.logFile, L"");
}

TEST_F(CurrentDirectory, ALogFilesPathWithoutADriveIsOnTheDriveInUse) {
  std::filesystem::current_path("C:\\windows");
  Options options;
  options.logFile = L"\\logs\\host.log";
  MakePathsAbsolute(options);
  EXPECT_EQ(options.logFile, L"C:\\logs\\host.log");
}

TEST_F(CurrentDirectory, TheProgramsFolderBecomesTheCurrentOne) {
  std::filesystem::current_path("C:\\windows");
  EnterProgramFolder();
  EXPECT_TRUE(std::filesystem::exists("host_tests.exe"));
}

}  // namespace
