#include "watched_session.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <functional>

#include "scripted_session.h"
#include "util/unique_handle.h"

namespace {

using namespace ostrel::helper;
using namespace std::chrono_literals;
using ostrel::UniqueKernelHandle;

// A session that is stuck until somebody barks, and that nobody helps unless it takes too long.
class StuckSession final : public UserSession {
 public:
  TitlesAnswer Titles(std::uint32_t, const std::wstring&) override { return Stick(TitlesAnswer{}); }
  MetadataAnswer Metadata(const std::wstring&) override { return Stick(MetadataAnswer{}); }
  TextAnswer AutoProxyConfigUrl() override { return Stick(TextAnswer{}); }
  TextAnswer CloudLogin(const std::wstring&, const std::wstring&) override { return Stick(TextAnswer{}); }

  void Bark() { SetEvent(barked_.Get()); }
  bool WasFreed() const { return wasFreed_; }

 private:
  template <typename Answer>
  Answer Stick(Answer answer) {
    wasFreed_ = WaitForSingleObject(barked_.Get(), 30'000) == WAIT_OBJECT_0;
    ResetEvent(barked_.Get());
    return answer;
  }

  UniqueKernelHandle barked_{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
  bool wasFreed_ = false;
};

class TheWatchedSession : public ::testing::Test {
 protected:
  WatchedSession Watched(WatchedSession::Patience patience) {
    return {stuck_, patience, [this] { stuck_.Bark(); }};
  }

  StuckSession stuck_;
};

TEST_F(TheWatchedSession, TakesNoLongerOverMetadataThanItMay) {
  Watched({.metadata = 1ms, .anythingElse = 1h}).Metadata(L"C:\\a");
  EXPECT_TRUE(stuck_.WasFreed());
}

TEST_F(TheWatchedSession, TakesNoLongerOverAnythingElseThanItMay) {
  WatchedSession session = Watched({.metadata = 1h, .anythingElse = 1ms});
  const std::function<void()> questions[] = {[&] { session.Titles(1, L"a"); },
                                             [&] { session.AutoProxyConfigUrl(); },
                                             [&] { session.CloudLogin(L"a", L"b"); }};
  for (const auto& ask : questions) {
    ask();
    EXPECT_TRUE(stuck_.WasFreed());
  }
}

TEST(AWatchedSessionInTime, AnswersAsTheSessionDoes) {
  ostrel_test::ScriptedSession scripted;
  scripted.titles.titles = {L"News"};
  scripted.metadata.fileSize = 7;
  scripted.url.text = L"http://p/";
  scripted.login.text = L"a@b";
  bool hasBarked = false;
  WatchedSession session(scripted, {.metadata = 1h, .anythingElse = 1h}, [&] { hasBarked = true; });
  EXPECT_EQ(session.Titles(1, L"a").titles, std::vector<std::wstring>{L"News"});
  EXPECT_EQ(session.Metadata(L"C:\\a").fileSize, 7U);
  EXPECT_EQ(session.AutoProxyConfigUrl().text, L"http://p/");
  EXPECT_EQ(session.CloudLogin(L"a", L"b").text, L"a@b");
  EXPECT_EQ(scripted.questions, (std::vector<std::wstring>{L"titles of 1 a", L"metadata of C:\\a", L"proxy",
                                                           L"login of a in b"}));
  EXPECT_FALSE(hasBarked);
}

}  // namespace
