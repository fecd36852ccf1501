#include "cache/tab_title_switch.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/log_capture.h"

namespace {

using ostrel::ULong32;
using ostrel_test::LogCapture;
using ostrel_test::LogLine;

unsigned char NamedUser(void*, std::wstring& user) {
  user = L"user";
  return 1;
}

std::vector<std::wstring> OneTitle(ULong32, std::wstring, std::wstring&) {
  return {L"title"};
}

unsigned char NoDirectory(std::wstring) {
  return 0;
}

class TabTitleSwitchTest : public testing::Test {
 protected:
  bool Captures(ReadEventCache& cache) {
    cache.AddEvent(L"C:\\f", nullptr, L"chrome.exe", 1, 0, 0, FILE_EVENT_READ, 0);
    return !cache.GetEvents(100000).at(0).GetDestHints().empty();
  }

  ostrel::UserLookup userLookup_ = NamedUser;
  ostrel::TabTitleLookup tabTitleLookup_ = OneTitle;
  ostrel::DirectoryTest directoryTest_ = NoDirectory;
  ReadEventCache uploads_{userLookup_, tabTitleLookup_, directoryTest_};
  ReadEventCache downloads_{userLookup_, tabTitleLookup_, directoryTest_};
  ostrel::TabTitleSwitch switch_{uploads_, downloads_};
  LogCapture log_;
};

TEST_F(TabTitleSwitchTest, DisablingTurnsCaptureOffInBothCachesAndSaysSo) {
  switch_.Disable();
  EXPECT_EQ(log_.Take(), (std::vector<LogLine>{{6, L"Turning off tab title capture."}}));
  EXPECT_FALSE(Captures(uploads_));
  EXPECT_FALSE(Captures(downloads_));
}

TEST_F(TabTitleSwitchTest, EnablingTurnsCaptureOnInBothCachesAndSaysSo) {
  uploads_.DisableTabTitleCapture();
  downloads_.DisableTabTitleCapture();
  switch_.Enable();
  EXPECT_EQ(log_.Take(), (std::vector<LogLine>{{6, L"Turning on tab title capture."}}));
  EXPECT_TRUE(Captures(uploads_));
  EXPECT_TRUE(Captures(downloads_));
}

TEST_F(TabTitleSwitchTest, ASwitchThatChangesNothingIsLoggedAllTheSame) {
  switch_.Enable();
  EXPECT_EQ(log_.Take(), (std::vector<LogLine>{{6, L"Turning on tab title capture."}}));
  EXPECT_TRUE(Captures(uploads_));
}

}  // namespace
