#include "platform_test.h"
#include "support/failure_rows.h"
#include "util/ostrel_filter_lib_util.h"

namespace ostrel::test {

namespace {

using ostrel_test::EnterFailure;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::wstring Convert(std::uint32_t type, std::wstring source) {
  // One character more than the function may touch.
  wchar_t destination[513];
  destination[512] = L'#';
  OstrelFilterLibUtil::ConvertFileName(static_cast<DEVICE_SOURCE_TYPE>(type), source.data(), destination);
  EXPECT_EQ(destination[512], L'#');
  return Returned("ConvertFileName", std::wstring(destination));
}

std::wstring Raw(std::wstring directory) {
  return Returned("GetRawDirectoryName", OstrelFilterLibUtil::GetRawDirectoryName(directory.data()));
}

class ConvertingALocalName : public PlatformTest {
 protected:
  ConvertingALocalName() {
    system_.drives = {{L"C:", L"\\Device\\HarddiskVolume3"}, {L"D:", L"\\Device\\HarddiskVolume1"}};
  }
};

TEST_F(ConvertingALocalName, PutsTheDriveInPlaceOfItsDevice) {
  EXPECT_EQ(Convert(0, L"\\Device\\HarddiskVolume3\\Users\\ann\\a.txt"), L"C:\\Users\\ann\\a.txt");
  EXPECT_THAT(Calls(), ElementsAre("GetLogicalDriveStringsW(511)", "QueryDosDeviceW(C:, 512)"));
}

TEST_F(ConvertingALocalName, AsksTheDrivesInListOrderAndTheFirstMatchWins) {
  system_.drives.emplace_back(L"E:", L"\\Device\\HarddiskVolume1");
  EXPECT_EQ(Convert(0, L"\\Device\\HarddiskVolume1\\b"), L"D:\\b");
  EXPECT_THAT(Calls(), ElementsAre("GetLogicalDriveStringsW(511)", "QueryDosDeviceW(C:, 512)",
                                   "QueryDosDeviceW(D:, 512)"));
}

// A file of volume 10 gets the letter of volume 1, with the rest of the number as part of its name.
TEST_F(ConvertingALocalName, MatchesTheBarePrefix) {
  EXPECT_EQ(Convert(0, L"\\Device\\HarddiskVolume10\\b"), L"D:0\\b");
}

TEST_F(ConvertingALocalName, IgnoresTheCaseOfTheDevice) {
  EXPECT_EQ(Convert(0, L"\\DEVICE\\harddiskvolume3\\B.txt"), L"C:\\B.txt");
}

TEST_F(ConvertingALocalName, LeavesAVolumeWithoutALetterAsItIs) {
  EXPECT_EQ(Convert(0, L"\\Device\\HarddiskVolume7\\b"), L"\\Device\\HarddiskVolume7\\b");
}

TEST_F(ConvertingALocalName, PassesOverADriveThatCannotBeLookedUp) {
  system_.Fail("QueryDosDeviceW(C:, 512)", 5);
  EXPECT_EQ(Convert(0, L"\\Device\\HarddiskVolume3\\b"), L"\\Device\\HarddiskVolume3\\b");
  EXPECT_EQ(Convert(0, L"\\Device\\HarddiskVolume1\\b"), L"D:\\b");
}

TEST_F(ConvertingALocalName, LeavesTheNameAsItIsWhenThereIsNoDriveList) {
  system_.Fail("GetLogicalDriveStringsW", 8);
  EXPECT_EQ(Convert(0, L"\\Device\\HarddiskVolume3\\b"), L"\\Device\\HarddiskVolume3\\b");
  EXPECT_THAT(Calls(), ElementsAre("GetLogicalDriveStringsW(511)"));
}

TEST_F(ConvertingALocalName, CutsWhatExceeds511Characters) {
  const std::wstring tail(600, L'x');
  EXPECT_EQ(Convert(0, L"\\Device\\HarddiskVolume3\\" + tail), L"C:\\" + tail.substr(0, 508));
  EXPECT_EQ(Convert(0, L"\\Device\\None\\" + tail), (L"\\Device\\None\\" + tail).substr(0, 511));
  const std::wstring share = L"\\server\\share\\" + tail;
  EXPECT_EQ(Convert(1, L"\\Device\\Mup" + share), (L"\\" + share).substr(0, 511));
  EXPECT_THAT(Logs(), IsEmpty());
  EnterFailure("Converted name", "more than 511 characters", Logs(),
               "ConvertFileName: its first 511 characters", "it is cut, and nothing says so");
}

TEST_F(ConvertingALocalName, IsNotTriedForOtherSources) {
  EXPECT_EQ(Convert(1, L"\\Device\\Mup\\server\\share\\a"), L"\\\\server\\share\\a");
  EXPECT_EQ(Convert(2, L"\\Device\\HarddiskVolume3\\a"), L"\\Device\\HarddiskVolume3\\a");
  EXPECT_EQ(Convert(0xFFFFFFFF, L"\\Device\\HarddiskVolume3\\a"), L"\\Device\\HarddiskVolume3\\a");
  EXPECT_THAT(Calls(), IsEmpty());
}

const std::string DIRECTORY_COMES_BACK = "GetRawDirectoryName: the directory as it was given";

class RawDirectoryName : public PlatformTest {
 protected:
  RawDirectoryName() {
    system_.drives = {{L"C:", L"\\Device\\HarddiskVolume3"}};
    system_.shortPaths = {{L"c:\\users\\ANN", L"C:\\USERS\\ANN~1"}};
    system_.longPaths = {{L"C:\\USERS\\ANN~1", L"C:\\Users\\ann"}};
  }
};

TEST_F(RawDirectoryName, IsTheDeviceAndThePathSpelledAsOnDisk) {
  EXPECT_EQ(Raw(L"c:\\users\\ANN"), L"\\Device\\HarddiskVolume3\\Users\\ann");
  EXPECT_THAT(Calls(), ElementsAre("GetShortPathNameW(c:\\users\\ANN, 300)",
                                   "GetLongPathNameW(C:\\USERS\\ANN~1, 300)", "QueryDosDeviceW(C:, 300)"));
}

TEST_F(RawDirectoryName, OfADirectoryThatDoesNotExistIsTheDirectory) {
  FailureLedger::OfThisProgram().Concerns("GetShortPathNameW");
  EXPECT_EQ(Raw(L"c:\\none"), L"c:\\none");
  EXPECT_THAT(Calls(),
              ElementsAre("GetShortPathNameW(c:\\none, 300)", "log 7 Could not find directory: c:\\none"));
}

TEST_F(RawDirectoryName, WithoutALongFormIsTheDirectoryAndSaysNothing) {
  FailureLedger::OfThisProgram().Concerns("GetLongPathNameW");
  system_.longPaths.clear();
  EXPECT_EQ(Raw(L"c:\\users\\ANN"), L"c:\\users\\ANN");
  EXPECT_THAT(Logs(), IsEmpty());
}

TEST_F(RawDirectoryName, WithoutAColonIsTheDirectory) {
  system_.longPaths = {{L"C:\\USERS\\ANN~1", L"\\\\server\\Ann"}};
  EXPECT_EQ(Raw(L"c:\\users\\ANN"), L"c:\\users\\ANN");
  EXPECT_THAT(Logs(), ElementsAre("log 7 Improperly formated drive letter \\\\server\\Ann"));
  EnterFailure("Long form of a directory", "without a colon", Logs(), DIRECTORY_COMES_BACK);
}

// The line shows the path from the colon on and not the letter.
TEST_F(RawDirectoryName, OfAnUnknownDriveIsTheDirectory) {
  FailureLedger::OfThisProgram().Concerns("QueryDosDeviceW");
  system_.drives.clear();
  EXPECT_EQ(Raw(L"c:\\users\\ANN"), L"c:\\users\\ANN");
  EXPECT_THAT(Logs(), ElementsAre("log 7 Could not look up drive letter :\\Users\\ann"));
}

TEST_F(RawDirectoryName, WithMoreThanALetterBeforeTheColonIsTheDirectory) {
  FailureLedger::OfThisProgram().Concerns("QueryDosDeviceW");
  FailureLedger::OfThisProgram().Chosen(
      "QueryDosDeviceW", "of more than a letter before the colon the first two characters are looked up");
  const std::pair<std::wstring, std::string> forms[] = {{L"\\\\?\\C:\\Users\\ann", "\\\\"},
                                                        {L"AB:\\Users\\ann", "AB"}};
  for (const auto& [longPath, lookedUp] : forms) {
    system_.transcript.Clear();
    system_.longPaths = {{L"C:\\USERS\\ANN~1", longPath}};
    EXPECT_EQ(Raw(L"c:\\users\\ANN"), L"c:\\users\\ANN");
    EXPECT_THAT(Calls(), ElementsAre("GetShortPathNameW(c:\\users\\ANN, 300)",
                                     "GetLongPathNameW(C:\\USERS\\ANN~1, 300)",
                                     "QueryDosDeviceW(" + lookedUp + ", 300)",
                                     "log 7 Could not look up drive letter :\\Users\\ann"));
  }
}

// As of a stream; the drive's colon is the first.
TEST_F(RawDirectoryName, KeepsASecondColonInThePath) {
  system_.longPaths = {{L"C:\\USERS\\ANN~1", L"C:\\Users\\ann:x"}};
  EXPECT_EQ(Raw(L"c:\\users\\ANN"), L"\\Device\\HarddiskVolume3\\Users\\ann:x");
}

TEST_F(RawDirectoryName, IsFoundForShortAndLongFormsOf299Characters) {
  const std::wstring shortForm = L"C:\\" + std::wstring(296, L'd');
  const std::wstring longForm = L"C:\\" + std::wstring(296, L'D');
  system_.shortPaths[L"c:\\d"] = shortForm;
  system_.longPaths[shortForm] = longForm;
  EXPECT_EQ(Raw(L"c:\\d"), L"\\Device\\HarddiskVolume3" + longForm.substr(2));
  EXPECT_THAT(Logs(), IsEmpty());
}

TEST_F(RawDirectoryName, OfADirectoryWhoseShortFormExceeds299CharactersIsTheDirectory) {
  const std::wstring directory = L"C:\\" + std::wstring(297, L'd');
  system_.shortPaths[directory] = directory;
  EXPECT_EQ(Raw(directory), directory);
  EXPECT_THAT(Logs(), ElementsAre("log 7 Could not find directory: " + Narrow(directory)));
  EnterFailure("Short form of a directory", "more than 299 characters", Logs(), DIRECTORY_COMES_BACK,
               "it counts as a directory that does not exist");
}

TEST_F(RawDirectoryName, OfADirectoryWhoseLongFormExceeds299CharactersIsTheDirectory) {
  system_.longPaths = {{L"C:\\USERS\\ANN~1", L"C:\\" + std::wstring(297, L'd')}};
  EXPECT_EQ(Raw(L"c:\\users\\ANN"), L"c:\\users\\ANN");
  EXPECT_THAT(Logs(), IsEmpty());
  EnterFailure("Long form of a directory", "more than 299 characters", Logs(), DIRECTORY_COMES_BACK,
               "it counts as a directory without a long form");
}

// On the system that the test runs on.
TEST(RawDirectoryNameOnThisSystem, SpellsTheWindowsDirectoryAsOnDisk) {
  wchar_t device[300] = {};
  ASSERT_NE(QueryDosDeviceW(L"C:", device, 300), 0U);
  WIN32_FIND_DATAW found{};
  const HANDLE search = FindFirstFileW(L"C:\\windows", &found);
  ASSERT_NE(search, INVALID_HANDLE_VALUE);
  FindClose(search);
  EXPECT_EQ(Raw(L"c:\\WINDOWS"), std::wstring(device) + L"\\" + found.cFileName);
}

TEST(RawDirectoryNameOnThisSystem, ComesBackThroughTheLocalConversion) {
  const std::wstring raw = Raw(L"C:\\windows\\system32");
  ASSERT_TRUE(raw.starts_with(L"\\Device\\")) << Narrow(raw);
  EXPECT_EQ(_wcsicmp(Convert(0, raw).c_str(), L"C:\\windows\\system32"), 0);
}

}  // namespace

}  // namespace ostrel::test
