#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "util/ostrel_filter_lib_util.h"

namespace {

const std::vector<std::wstring> IGNORED = {L".part",       L".crdownload", L".partial",
                                           L".opdownload", L".tmp",        L".lnk"};

bool ExcludedByExtension(std::wstring fileName, const std::vector<std::wstring>& extensions = IGNORED) {
  return OstrelFilterLibUtil::ExcludeBasedOnExtension(fileName.data(), extensions);
}

bool ExcludedByProcess(std::wstring processName, const std::vector<std::wstring>& processes) {
  return OstrelFilterLibUtil::ExcludeBasedOnProcess(processName.data(), processes);
}

TEST(ExcludeBasedOnExtension, EveryIgnoredSuffixIsRecognisedWhateverItsCase) {
  for (const wchar_t* name : {L"C:\\f.part", L"C:\\f.PART", L"download.CRDOWNLOAD", L"f.Partial",
                              L"f.opdownload", L"archive.TMP", L"shortcut.lnk"}) {
    EXPECT_TRUE(ExcludedByExtension(name)) << testing::PrintToString(std::wstring(name));
  }
}

TEST(ExcludeBasedOnExtension, ItIsATestOfTheEndOfTheName) {
  EXPECT_FALSE(ExcludedByExtension(L"notes.lnkx"));
  EXPECT_FALSE(ExcludedByExtension(L"f.tmp.txt"));
  EXPECT_FALSE(ExcludedByExtension(L"f.tmp "));
  EXPECT_FALSE(ExcludedByExtension(L"ftmp"));
  EXPECT_TRUE(ExcludedByExtension(L"f.txt.tmp"));
}

TEST(ExcludeBasedOnExtension, ANameThatIsTheSuffixAloneIsExcluded) {
  EXPECT_TRUE(ExcludedByExtension(L".tmp"));
}

TEST(ExcludeBasedOnExtension, ANameShorterThanTheSuffixNeverMatches) {
  EXPECT_FALSE(ExcludedByExtension(L"part"));
  EXPECT_FALSE(ExcludedByExtension(L"tmp"));
  EXPECT_FALSE(ExcludedByExtension(L""));
}

TEST(ExcludeBasedOnExtension, AnEmptyListExcludesNothing) {
  EXPECT_FALSE(ExcludedByExtension(L"f.tmp", {}));
}

TEST(ExcludeBasedOnExtension, EveryEntryOfTheListCounts) {
  EXPECT_TRUE(ExcludedByExtension(L"f.b", {L".a", L".b"}));
  EXPECT_TRUE(ExcludedByExtension(L"f.a", {L".a", L".b"}));
  EXPECT_FALSE(ExcludedByExtension(L"f.c", {L".a", L".b"}));
}

TEST(ExcludeBasedOnExtension, OnlyAsciiLettersAreFolded) {
  EXPECT_FALSE(ExcludedByExtension(L"f.l\x0144k", {L".l\x0143k"}));
  EXPECT_FALSE(ExcludedByExtension(L"f.ln\x212A", {L".lnk"}));
  EXPECT_FALSE(ExcludedByExtension(L"f@", {L"`"}));
  EXPECT_FALSE(ExcludedByExtension(L"f[", {L"{"}));
}

TEST(ExcludeBasedOnProcess, AWatchedProcessIsNotExcludedWhateverItsCase) {
  EXPECT_FALSE(ExcludedByProcess(L"Chrome.EXE", {L"chrome.exe"}));
  EXPECT_FALSE(ExcludedByProcess(L"chrome.exe", {L"CHROME.exe"}));
}

TEST(ExcludeBasedOnProcess, EveryOtherProcessIsExcluded) {
  EXPECT_TRUE(ExcludedByProcess(L"firefox.exe", {L"chrome.exe", L"msedge.exe"}));
  EXPECT_FALSE(ExcludedByProcess(L"msedge.exe", {L"chrome.exe", L"msedge.exe"}));
}

TEST(ExcludeBasedOnProcess, AnEmptyListExcludesEveryProcess) {
  EXPECT_TRUE(ExcludedByProcess(L"chrome.exe", {}));
}

TEST(ExcludeBasedOnProcess, TheWholeNameMustBeEqual) {
  EXPECT_TRUE(ExcludedByProcess(L"C:\\chrome.exe", {L"chrome.exe"}));
  EXPECT_TRUE(ExcludedByProcess(L"chrome.exe2", {L"chrome.exe"}));
  EXPECT_TRUE(ExcludedByProcess(L"chrome.ex", {L"chrome.exe"}));
  EXPECT_TRUE(ExcludedByProcess(L"", {L"chrome.exe"}));
}

}  // namespace
