#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string_view>
#include <utility>

#include "held_callback.h"
#include "network_test.h"
#include "string_getter.h"
#include "support/scripted_wmi.h"
#include "support/test_thread.h"

namespace ostrel::test {

namespace {

using ostrel_test::Signal;
using ostrel_test::TestThread;
using ::testing::IsEmpty;
using ::testing::SizeIs;

// Long enough for a call that finds the lock free to come back many times over.
constexpr std::chrono::milliseconds SHUT_OUT{200};

class TheApiLock : public NetworkTest {
 protected:
  // Every control function but the tab title switches.
  std::vector<std::pair<std::string, std::function<void()>>> LockedCalls() {
    return {{"LoadDriver", [this] { Load(); }},
            {"UnloadDriver", [this] { library_.UnloadDriver(); }},
            {"EnableActivityDetection",
             [this] { library_.EnableActivityDetection(nullptr, L"", nullptr, 0, nullptr, 0, 0, 0, 1); }},
            {"DisableActivityDetection", [this] { library_.DisableActivityDetection(); }},
            {"EnablePCDDetection",
             [this] { library_.EnablePCDDetection(nullptr, nullptr, 0, nullptr, 0, nullptr, 0); }},
            {"DisablePCDDetection", [this] { library_.DisablePCDDetection(); }},
            {"EnableRemoteAddressInfo", [this] { library_.EnableRemoteAddressInfo(nullptr, 0); }},
            {"DisableRemoteAddressInfo", [this] { library_.DisableRemoteAddressInfo(); }},
            {"UpdateProcesses", [this] { library_.UpdateProcesses(nullptr, 0, 0); }}};
  }

  std::unique_ptr<TestThread> OnAThread(const std::string& name, const std::function<void()>& call) {
    return std::make_unique<TestThread>([this, name, call] {
      system_.transcript.Add("calling " + name);
      call();
      system_.transcript.Add("returned from " + name);
    });
  }

  Lines Returned() const { return system_.transcript.StartingWith("returned from"); }
};

// In real time: UnloadDriver waits at most three seconds for the held callback.
TEST_F(TheApiLock, KeepsEveryOtherCallOutUntilTheOneInsideReturns) {
  HeldCallback held;
  ASSERT_TRUE(Load());
  const wchar_t* cloud[] = {L"chrome.exe"};
  ASSERT_EQ(library_.EnablePCDDetection(&HeldCallback::OnCloud, cloud, 1, nullptr, 0, nullptr, 0), 1);
  ASSERT_TRUE(HeldCallback::Hold(system_));
  Forget();

  const auto unloading = OnAThread("the first UnloadDriver", [this] { library_.UnloadDriver(); });
  ASSERT_TRUE(system_.transcript.WaitFor("WaitForSingleObject(thread, 3000)"));
  std::vector<std::unique_ptr<TestThread>> others;
  for (const auto& [name, call] : LockedCalls()) others.push_back(OnAThread(name, call));
  ASSERT_TRUE(system_.transcript.WaitFor("calling", others.size() + 1));
  system_.transcript.WaitFor("returned from", 1, SHUT_OUT);
  EXPECT_THAT(Returned(), IsEmpty());

  library_.DisableTabTitles();
  library_.EnableTabTitles();
  wchar_t* text = nullptr;
  library_.DeallocStringPointer(&text);
  EXPECT_THAT(system_.transcript.StartingWith("log 6 Turning"), SizeIs(2));
  EXPECT_THAT(Returned(), IsEmpty()) << "the tab titles waited for the lock";

  HeldCallback::LetGo();
  EXPECT_TRUE(system_.transcript.WaitFor("returned from", others.size() + 1));
}

// Calls the library again out of the log callback, once.
struct Reentry {
  static inline LibraryCopy* library = nullptr;
  static inline int result = -1;

  static void OnLine(const wchar_t* text, std::uint32_t level) {
    Transcript::RecordLog(text, level);
    if (std::wstring_view(text).find(L"Created filter processor") == std::wstring_view::npos) return;
    result = library->DisablePCDDetection();
  }
};

TEST_F(TheApiLock, LetsTheThreadThatHoldsItInAgain) {
  Reentry::library = &library_;
  Reentry::result = -1;
  ASSERT_EQ(library_.LoadDriver(&Reentry::OnLine, 7), 1);
  Signal returned;
  int result = -1;
  const TestThread calling([&] {
    result = library_.EnableActivityDetection(nullptr, L"", nullptr, 0, nullptr, 0, 0, 0, 1);
    returned.Set();
  });
  if (!returned.WaitFor(PATIENCE)) {
    // A thread that waits for itself cannot be ended.
    std::fprintf(stderr, "the library locked its own caller out\n");
    std::abort();
  }
  EXPECT_EQ(Reentry::result, 1);
  EXPECT_EQ(result, 1);
}

// Keeps a LoadDriver, and with it the lock, inside its first log line.
//
// One at a time.
class BusyLoader {
 public:
  explicit BusyLoader(LibraryCopy& library) {
    current_ = this;
    thread_ = std::make_unique<TestThread>([&library] {
      loaderId_ = GetCurrentThreadId();
      library.LoadDriver(&OnLine, 7);
      loaderId_ = 0;
    });
  }
  BusyLoader(const BusyLoader&) = delete;
  BusyLoader& operator=(const BusyLoader&) = delete;
  ~BusyLoader() { leave_.Set(); }

  bool WaitUntilInside() { return inside_.WaitFor(PATIENCE); }

 private:
  // Other threads of the library come here too, also after the loader has gone.
  static void OnLine(const wchar_t*, std::uint32_t) {
    if (GetCurrentThreadId() != loaderId_) return;
    current_->inside_.Set();
    current_->leave_.WaitFor(ostrel_test::DEADLINE);
  }

  static inline std::atomic<DWORD> loaderId_{0};
  static inline BusyLoader* current_ = nullptr;

  Signal inside_;
  Signal leave_;
  std::unique_ptr<TestThread> thread_;  // joined first
};

class AGetter : public LibraryTest, public ::testing::WithParamInterface<const char*> {
 protected:
  AGetter() { session_.LogOn(); }

  ScriptedWmi wmi_{library_.Module(), system_.transcript};
};

INSTANTIATE_TEST_SUITE_P(Every, AGetter, ::testing::ValuesIn(GETTERS),
                         [](const auto& getter) { return std::string(getter.param); });

// So that a control function that takes long holds none of them up.
TEST_P(AGetter, IsAnsweredWhileAControlFunctionIsBusyAndSetsOneStringAtMost) {
  BusyLoader loader(library_);
  ASSERT_TRUE(loader.WaitUntilInside());
  Signal answered;
  Answer answer;
  const TestThread asker([&] {
    answer = Ask(library_, GetParam());
    answered.Set();
  });
  ASSERT_TRUE(answered.WaitFor(ostrel_test::DEADLINE / 2));
  EXPECT_TRUE(answer.first == UNTOUCHED || answer.second == UNTOUCHED)
      << answer.first << " and " << answer.second;
}

}  // namespace

}  // namespace ostrel::test
