#include <functional>
#include <set>

#include "library_test.h"
#include "string_getter.h"
#include "support/heap_watch.h"
#include "support/scripted_wmi.h"

namespace ostrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

const std::string NO_NOTIFICATION_THREAD = "log 3 Could not start receive notification thread. Code: 8";
const std::string NO_DISK_EVENT_THREAD = "log 3 Could not start Disk Event thread. Code: 8";

class OutOfMemory : public LibraryTest {
 protected:
  // Loads the library, because the compiler's thread runtime makes its locks at their first use and does not
  // look whether it gets the memory.
  OutOfMemory() {
    system_.Fail("CreateThread", 8, 2);  // the disk event thread has no part in this
    system_.drives = {{L"C:", L"\\Device\\V3"}};
    system_.shortPaths[L"c:\\skip"] = L"c:\\skip";
    system_.longPaths[L"c:\\skip"] = L"C:\\Skip";
    system_.processes = {{42, L"chrome.exe", L"a name longer than a short string holds.exe"}};
    EXPECT_TRUE(Load());
    EXPECT_TRUE(system_.WaitUntilHandled());
    handles_ = system_.OpenHandles();
    FailureLedger::OfThisProgram().SetTheStage();
  }

  bool Logged(const std::string& line) const { return !system_.transcript.StartingWith(line).empty(); }

  // Makes the call with each of its allocations refused in turn, until none is left to refuse. `refused`
  // looks at what came of a refusal and takes the call back.
  void RefuseEach(const std::function<int()>& call, const std::function<void()>& refused) {
    const HeapWatch heap(library_.Module());
    for (int allocation = 1;; ++allocation) {
      SCOPED_TRACE(allocation);
      const std::size_t sent = system_.SentMessages().size();
      Forget();
      HeapWatch::Begin(allocation);
      const int result = call();
      const bool wasRefused = HeapWatch::HasRefused();
      HeapWatch::Begin();
      EXPECT_EQ(system_.OpenHandles(), handles_);
      if (!wasRefused) {
        EXPECT_EQ(result, 1);
        EXPECT_THAT(system_.SentMessages(), SizeIs(sent + 1));
        EXPECT_GT(allocation, 3) << "the call allocates names, ids and a message";
        return;
      }
      EXPECT_EQ(result, 0);
      EXPECT_THAT(system_.SentMessages(), SizeIs(sent)) << "nothing is sent half made";
      refused();
    }
  }

  const wchar_t* names_[1] = {L"A name longer than a short string holds.exe"};
  const wchar_t* paths_[1] = {L"c:\\skip"};
  Lines handles_;
};

TEST_F(OutOfMemory, LoadDriverFailsWithoutAnExceptionAndWithoutALeak) {
  ASSERT_EQ(library_.UnloadDriver(), 1);
  ASSERT_TRUE(system_.WaitForThreadEnd(0));
  std::set<std::string> threadsMissed;
  const HeapWatch heap(library_.Module());
  for (int allocation = 1;; ++allocation) {
    SCOPED_TRACE(allocation);
    const std::size_t threads = system_.ThreadIds().size();
    Forget();
    HeapWatch::Begin(allocation);
    const bool isLoaded = Load();
    const bool wasRefused = HeapWatch::HasRefused();
    HeapWatch::Begin();
    if (!wasRefused) {
      EXPECT_TRUE(isLoaded);
      EXPECT_THAT(system_.OpenHandles(), ElementsAre("event", "notification port", "thread"));
      break;
    }
    if (isLoaded) {
      // Without the one thing that is not needed to be loaded.
      EXPECT_TRUE(Logged(NO_DISK_EVENT_THREAD));
      threadsMissed.insert(NO_DISK_EVENT_THREAD);
      EXPECT_THAT(system_.OpenHandles(), ElementsAre("notification port"));
      ASSERT_EQ(library_.UnloadDriver(), 1);
      ASSERT_TRUE(system_.WaitForThreadEnd(threads));
      continue;
    }
    EXPECT_THAT(system_.ThreadIds(), SizeIs(threads));
    if (Logged(NO_NOTIFICATION_THREAD)) {
      threadsMissed.insert(NO_NOTIFICATION_THREAD);
      EXPECT_THAT(system_.OpenHandles(), ElementsAre("notification port"));
    } else {
      EXPECT_THAT(system_.OpenHandles(), IsEmpty());
    }
  }
  EXPECT_THAT(threadsMissed, ElementsAre(NO_DISK_EVENT_THREAD, NO_NOTIFICATION_THREAD));
}

TEST_F(OutOfMemory, EnableActivityDetectionFailsWithoutAnException) {
  RefuseEach(
      [this] {
        return Returned("EnableActivityDetection",
                        library_.EnableActivityDetection(nullptr, L"ann", names_, 1, paths_, 1, 0, 0, 1));
      },
      // On all the same, as after any failure.
      [this] { EXPECT_EQ(library_.DisableActivityDetection(), 1); });
}

TEST_F(OutOfMemory, DisableActivityDetectionFailsWithoutAnException) {
  const auto enable = [this] {
    return library_.EnableActivityDetection(nullptr, L"ann", names_, 1, nullptr, 0, 0, 0, 1);
  };
  ASSERT_EQ(enable(), 1);
  const HeapWatch heap(library_.Module());
  HeapWatch::Begin(1);
  EXPECT_EQ(Returned("DisableActivityDetection", library_.DisableActivityDetection()), 0);
  HeapWatch::Begin();
  EXPECT_EQ(enable(), 1) << "off all the same";
}

TEST_F(OutOfMemory, EnablePcdDetectionFailsWithoutAnException) {
  RefuseEach(
      [this] {
        return Returned("EnablePCDDetection",
                        library_.EnablePCDDetection(nullptr, names_, 1, paths_, 1, paths_, 1));
      },
      [this] { EXPECT_EQ(library_.DisablePCDDetection(), 1); });
}

TEST_F(OutOfMemory, DisablePcdDetectionFailsWithoutAnException) {
  const auto enable = [this] {
    return library_.EnablePCDDetection(nullptr, names_, 1, nullptr, 0, nullptr, 0);
  };
  ASSERT_EQ(enable(), 1);
  const HeapWatch heap(library_.Module());
  HeapWatch::Begin(1);
  EXPECT_EQ(Returned("DisablePCDDetection", library_.DisablePCDDetection()), 0);
  const std::size_t sent = system_.SentMessages().size();
  HeapWatch::Begin();
  EXPECT_EQ(library_.DisablePCDDetection(), 1) << "off all the same";
  EXPECT_THAT(system_.SentMessages(), SizeIs(sent)) << "the driver is not told any more";
  EXPECT_EQ(enable(), 1);
}

// Those that end something must not fail for want of memory. Each is made once before, because the
// compiler's locks take theirs at their first use.
TEST_F(OutOfMemory, CannotHappenToTheCallsThatEndSomething) {
  library_.EnableTabTitles();
  library_.EnableRemoteAddressInfo(names_, 1);
  library_.DisableRemoteAddressInfo();
  library_.EnableRemoteAddressInfo(names_, 1);
  const std::pair<const char*, std::function<void()>> calls[] = {
      {"EnableTabTitles", [this] { library_.EnableTabTitles(); }},
      {"DisableTabTitles", [this] { library_.DisableTabTitles(); }},
      {"DisableRemoteAddressInfo", [this] { library_.DisableRemoteAddressInfo(); }},
      {"LoadDriver, the second time", [this] { EXPECT_TRUE(Load()); }},
      {"UnloadDriver", [this] { EXPECT_EQ(library_.UnloadDriver(), 1); }},
      {"UnloadDriver, the second time", [this] { EXPECT_EQ(library_.UnloadDriver(), 1); }},
  };
  const HeapWatch heap(library_.Module());
  for (const auto& [name, call] : calls) {
    HeapWatch::Begin(1);
    call();
    EXPECT_FALSE(HeapWatch::HasRefused()) << name;
  }
}

TEST_F(OutOfMemory, UpdateProcessesDoesNothingWithoutAnException) {
  const std::string done = "log 6 Successfully updated processes to monitor.";
  RefuseEach(
      [&] {
        library_.UpdateProcesses(names_, 1, 0);
        const auto successes = system_.transcript.StartingWith(done).size();
        CameTo("UpdateProcesses: " + std::string(successes == 0 ? "does nothing" : "says that it succeeded"));
        return static_cast<int>(successes);
      },
      [] {});
}

// Asks the helper with each of the library's allocations refused in turn. The helper never gets half a
// question, and the host gets the error or, when even that has no room, nothing.
std::string TextOrNull(const wchar_t* text) {
  return text == nullptr ? "(untouched)" : Quoted(Narrow(text));
}

template <typename Getter>
void RefuseEachOf(const std::string& name, Getter getter, HMODULE module, ScriptedUserSession& session,
                  const std::function<void(wchar_t**)>& release, const std::wstring& answer,
                  const std::wstring& error) {
  const std::wstring id(32, L'1');
  session.randomBytes = std::vector<std::uint8_t>(32, 1);
  session.answer = [&](const std::wstring&) { return answer.substr(0, 2) + L"32," + id + answer.substr(1); };
  session.LogOn();
  // The first exception on a thread, and the first use of a stream, take memory for good.
  wchar_t* texts[2] = {};
  getter(&texts[0], &texts[1]);
  for (wchar_t*& text : texts) release(&text);
  std::set<std::wstring> errors;
  const HeapWatch heap(module);
  for (int allocation = 1;; ++allocation) {
    SCOPED_TRACE(allocation);
    wchar_t* results[2] = {};
    HeapWatch::Begin(allocation);
    getter(&results[0], &results[1]);
    CameTo(name + ": result " + TextOrNull(results[0]) + ", error " + TextOrNull(results[1]));
    const bool wasRefused = HeapWatch::HasRefused();
    HeapWatch::Begin();
    EXPECT_THAT(session.OpenHandles(), IsEmpty());
    if (results[1] != nullptr) errors.insert(results[1]);
    if (!wasRefused) {
      EXPECT_STREQ(results[0], L"answer");
      EXPECT_EQ(results[1], nullptr);
    } else {
      // The compiler's library can do without some of its blocks.
      EXPECT_TRUE(results[0] == nullptr || results[0] == std::wstring(L"answer"));
    }
    for (wchar_t*& result : results) release(&result);
    if (!wasRefused) break;
  }
  EXPECT_THAT(errors, ElementsAre(error));
  ASSERT_FALSE(session.Requests().empty());
  for (const std::wstring& request : session.Requests()) EXPECT_EQ(request, session.Requests().back());
}

TEST_F(OutOfMemory, TheProxyUrlIsAnErrorOrNothing) {
  RefuseEachOf(
      "GetAutoProxyConfigUrlForSystem",
      library_.Find<decltype(&GetAutoProxyConfigUrlForSystem)>("GetAutoProxyConfigUrlForSystem"),
      library_.Module(), session_, [this](wchar_t** text) { library_.DeallocStringPointer(text); },
      L"2,0,6,answer",
      L"PROXY:: Exception occurred while attempting to get Windows auto proxy configuration url.");
}

TEST_F(OutOfMemory, TheCloudLoginIsAnErrorOrNothing) {
  const auto getter = library_.Find<decltype(&GetCloudStorageProviderLoginForSystem)>(
      "GetCloudStorageProviderLoginForSystem");
  RefuseEachOf(
      "GetCloudStorageProviderLoginForSystem",
      [getter](wchar_t** result, wchar_t** error) {
        getter(L"OneDrive Business", L"C:\\Users\\ann", result, error);
      },
      library_.Module(), session_, [this](wchar_t** text) { library_.DeallocStringPointer(text); },
      L"3,0,6,answer", L"CLOUDLOGIN:: Exception occurred while attempting to get cloud Login.");
}

TEST_F(OutOfMemory, AStringForTheHostIsNull) {
  const auto allocate = library_.Find<void (*)(wchar_t**, const wchar_t*, ...)>(
      "_ZN19OstrelFilterLibUtil18AllocStringPointerEPPwPKwz");
  wchar_t* text = nullptr;
  {
    const HeapWatch heap(library_.Module());
    HeapWatch::Begin(1);
    allocate(&text, L"%s", L"user");
    CameTo("AllocStringPointer: null");
  }
  EXPECT_EQ(text, nullptr);
}

class OutOfMemoryInAGetter : public OutOfMemory, public ::testing::WithParamInterface<const char*> {
 protected:
  OutOfMemoryInAGetter() {
    // The first exception on a thread, and the first use of a stream, take memory for good.
    Ask(library_, "GetAutoProxyConfigUrlForSystem");
    wmi_.objects = {L"VM\\a name longer than a short string holds",
                    L"VM\\another such name, and a longer one"};
    session_.LogOn();
    // Otherwise each identifier is another, and in time a longer one.
    session_.randomBytes.assign(32, 1);
    session_.answer = [](const std::wstring& request) {
      // The second identifier of the request is that of the answer; the kind is the request's own.
      const std::wstring kind = request.substr(2, 1);
      const std::wstring identifier = request.substr(43, 32);
      return kind + L",32," + identifier + L",0,36,an answer longer than a short string";
    };
    Forget();
  }

  ScriptedWmi wmi_{library_.Module(), system_.transcript};
};

INSTANTIATE_TEST_SUITE_P(Every, OutOfMemoryInAGetter, ::testing::ValuesIn(GETTERS),
                         [](const auto& getter) { return std::string(getter.param); });

TEST_P(OutOfMemoryInAGetter, IsAnErrorOrNoAnswerAndLeavesNothingBehind) {
  const Answer answer = Ask(library_, GetParam());
  const HeapWatch heap(library_.Module());
  bool wasRefused = true;
  for (int allocation = 1; wasRefused; ++allocation) {
    SCOPED_TRACE(allocation);
    HeapWatch::Begin(allocation);
    const Answer refused = Ask(library_, GetParam());
    wasRefused = HeapWatch::HasRefused();
    EXPECT_EQ(HeapWatch::HeldBlocks(), 0);
    EXPECT_THAT(system_.OpenHandles(), handles_);
    EXPECT_THAT(session_.OpenHandles(), IsEmpty());
    EXPECT_THAT(wmi_.HeldObjects(), IsEmpty());
    EXPECT_EQ(wmi_.HeldTexts(), 0);
    if (!wasRefused) {
      EXPECT_EQ(refused, answer);
    } else {
      EXPECT_NE(refused, answer);
      EXPECT_TRUE(refused.first == UNTOUCHED || refused.second == UNTOUCHED);
    }
  }
}

}  // namespace

}  // namespace ostrel::test
