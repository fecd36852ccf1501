#include "detect/disk_event_thread.h"

#include <atomic>
#include <ctime>
#include <stdexcept>

#include "filter/cache_hooks.h"
#include "platform_test.h"
#include "support/failure_rows.h"
#include "support/import_table.h"

namespace ostrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string MAKE_EVENT = "CreateEventW(manual reset, not set, null)";
const std::string MAKE_THREAD = "CreateThread(null, stack 0, flags 0)";

// Holds a pass up inside the directory test until it is let go.
class Gate {
 public:
  static bool WaitUntilReached() {
    Lock::Holder holder(lock_);
    return holder.WaitFor([] { return reached_; });
  }
  static void Reset() {
    const Lock::Holder holder(lock_);
    isOpen_ = true;
    reached_ = false;
    secondReached_ = 0;
  }
  // The second since 1970 in which the last pass reached the gate.
  static std::time_t SecondReached() {
    const Lock::Holder holder(lock_);
    return secondReached_;
  }
  static void Close() {
    const Lock::Holder holder(lock_);
    isOpen_ = false;
  }
  static void Open() {
    Lock::Holder holder(lock_);
    isOpen_ = true;
    holder.Changed();
  }
  static unsigned char Pass(std::wstring) {
    Lock::Holder holder(lock_);
    reached_ = true;
    secondReached_ = std::time(nullptr);
    holder.Changed();
    holder.WaitFor([] { return isOpen_; });
    return 1;
  }

 private:
  static inline Lock lock_;
  static inline bool isOpen_ = true;
  static inline bool reached_ = false;
  static inline std::time_t secondReached_ = 0;
};

ReadEventCache MakeCache(DirectoryTest directoryTest) {
  UserLookup userLookup = [](void*, std::wstring&) -> unsigned char { return 1; };
  TabTitleLookup tabTitleLookup = [](ULong32, std::wstring, std::wstring&) {
    return std::vector<std::wstring>();
  };
  return {userLookup, tabTitleLookup, directoryTest};
}

class TheDiskEventThread : public PlatformTest {
 protected:
  TheDiskEventThread() { Gate::Reset(); }
  ~TheDiskEventThread() override {
    Gate::Open();
    thread_.Stop();
  }

  bool Start() { return Returned("Starting the disk event thread", thread_.Start()); }

  // Real seconds are not needed to see what is asked for.
  void Hurry() { system_.waitDivisor = 50; }

  void AddOldUpload() { uploads_.AddEvent(L"C:\\a", nullptr, L"chrome.exe", 42, 1, 0, FILE_EVENT_READ, 1); }

  ReadEventCache uploads_ = MakeCache(&Gate::Pass);
  ReadEventCache others_ = MakeCache(&IsDirectory);
  NetworkEventCache streams_{1};
  SentEventCache sentEvents_;
  HostCallbacks callbacks_;
  FileEventReporter reporter_{callbacks_};
  DiskEventWorker worker_{{uploads_, others_, others_, streams_, streams_, sentEvents_}, reporter_};
  DiskEventThread thread_{worker_};
};

TEST_F(TheDiskEventThread, StartsItsEventItsThreadAndWinsock) {
  Hurry();
  EXPECT_TRUE(Start());
  EXPECT_THAT(Calls(), ElementsAre(MAKE_EVENT, MAKE_THREAD, "WSAStartup(0x202)"));
  EXPECT_THAT(system_.OpenHandles(), ElementsAre("event", "thread"));
  thread_.Stop();
}

TEST_F(TheDiskEventThread, EndsWhenStoppedAndKeepsItsEvent) {
  Hurry();
  ASSERT_TRUE(Start());
  system_.transcript.Clear();
  thread_.Stop();
  EXPECT_THAT(Calls(), ElementsAre("SetEvent(event)", "WaitForSingleObject(thread, 3000)",
                                   "log 7 Disk Event thread ended", "CloseHandle(thread)"));
  // A thread that did not end in time may still wait on the event, so no stop closes it.
  EXPECT_THAT(system_.OpenHandles(), ElementsAre("event"));
}

TEST_F(TheDiskEventThread, GoesOnAfterAnExceptionOfTheDirectoryTest) {
  static std::atomic<int> asked;
  asked = 0;
  auto uploads = MakeCache([](std::wstring) -> unsigned char {
    if (++asked == 2) throw std::runtime_error("a test throws");
    return 0;
  });
  DiskEventWorker worker({uploads, others_, others_, streams_, streams_, sentEvents_}, reporter_);
  for (const wchar_t* file : {L"C:\\a", L"C:\\b"}) {
    uploads.AddEvent(file, nullptr, L"chrome.exe", 42, 1, 0, FILE_EVENT_READ, 1);
  }
  EXPECT_NO_THROW(worker.RunPass(100000));
  EXPECT_EQ(asked, 2);
  EXPECT_EQ(uploads.GetCacheCount(), 1U);
  EXPECT_NO_THROW(worker.RunPass(100000));
  EXPECT_EQ(asked, 3);
  EXPECT_EQ(uploads.GetCacheCount(), 0U);
  const Lines errors = system_.transcript.StartingWith("log 3");
  EXPECT_THAT(errors, IsEmpty());
  ostrel_test::EnterFailure("Directory test of an event", "an exception", errors,
                            "The disk event thread: tries that event again in its next pass",
                            "what the pass had already taken of that kind is lost, and nothing says so");
}

std::atomic<DWORD> pause{0};

void WINAPI NotePause(DWORD milliseconds) {
  pause = milliseconds;
}

// Only its stop event ends it. Without the pause it would never be idle.
TEST_F(TheDiskEventThread, PausesAndGoesOnAfterAWaitThatFails) {
  FailureLedger::OfThisProgram().Chosen("WaitForSingleObject",
                                        "the thread sleeps for the second that it did not wait, and goes on");
  Hurry();
  pause = 0;
  const ImportPatch sleep(GetModuleHandleW(nullptr), "Sleep", reinterpret_cast<void*>(&NotePause));
  system_.Fail("WaitForSingleObject(event, 1000)", 6, 1);
  AddOldUpload();
  ASSERT_TRUE(Start());
  EXPECT_TRUE(Gate::WaitUntilReached());
  CameTo("The disk event thread: a pass like any other");
  EXPECT_EQ(pause, 1000U);
  system_.transcript.Clear();
  thread_.Stop();
  EXPECT_EQ(Calls().at(2), "log 7 Disk Event thread ended");
}

TEST_F(TheDiskEventThread, StartsAgainWithAnEventOfItsOwn) {
  Hurry();
  ASSERT_TRUE(Start());
  thread_.Stop();
  EXPECT_TRUE(Start());
  EXPECT_THAT(system_.OpenHandles(), ElementsAre("event", "event", "thread"));
  AddOldUpload();
  EXPECT_TRUE(Gate::WaitUntilReached());
  thread_.Stop();
  EXPECT_EQ(system_.transcript.StartingWith("log 7 Disk Event thread ended").size(), 2U);
}

TEST_F(TheDiskEventThread, RefusesASecondStart) {
  Hurry();
  ASSERT_TRUE(Start());
  system_.transcript.Clear();
  FailureLedger::OfThisProgram().FailedOtherwise("Disk event thread", "runs already");
  EXPECT_FALSE(Start());
  EXPECT_THAT(Calls(), ElementsAre("log 3 Disk Event thread already started!"));
  thread_.Stop();
}

TEST_F(TheDiskEventThread, ReportsThatItsThreadCannotBeMadeAndReleasesTheEvent) {
  system_.Fail("CreateThread", 8);
  EXPECT_FALSE(Start());
  EXPECT_THAT(Calls(), ElementsAre(MAKE_EVENT, MAKE_THREAD,
                                   "log 3 Could not start Disk Event thread. Code: 8", "CloseHandle(event)"));
  EXPECT_THAT(system_.OpenHandles(), IsEmpty());
}

TEST_F(TheDiskEventThread, ReportsThatItsEventCannotBeMadeAndStartsNoThread) {
  system_.Fail("CreateEventW", 1450);
  FailureLedger::OfThisProgram().Chosen("CreateEventW", "without its stop event the thread is not started");
  EXPECT_FALSE(Start());
  EXPECT_THAT(Calls(), ElementsAre(MAKE_EVENT, "log 3 Could not start Disk Event thread. Code: 1450"));
  EXPECT_THAT(system_.OpenHandles(), IsEmpty());
}

TEST_F(TheDiskEventThread, CanBeStartedAfterAFailedStart) {
  Hurry();
  system_.Fail("CreateThread", 8, 1);
  EXPECT_FALSE(Start());
  EXPECT_TRUE(Start());
  thread_.Stop();
}

TEST_F(TheDiskEventThread, StartsWithoutWinsock) {
  Hurry();
  system_.Fail("WSAStartup", 10091);
  EXPECT_TRUE(Start());
  EXPECT_THAT(Calls(), ElementsAre(MAKE_EVENT, MAKE_THREAD, "WSAStartup(0x202)",
                                   "log 3 WSAStartup failed. Code: 10091"));
  thread_.Stop();
}

TEST_F(TheDiskEventThread, CannotBeStoppedBeforeItWasStarted) {
  FailureLedger::OfThisProgram().FailedOtherwise("Disk event thread", "never started");
  thread_.Stop();
  CameTo("Stopping the disk event thread: nothing to wait for");
  EXPECT_THAT(Calls(), ElementsAre("SetEvent(null)", "log 3 Disk Event thread is null, and can't be ended."));
}

TEST_F(TheDiskEventThread, CannotBeStoppedTwice) {
  Hurry();
  ASSERT_TRUE(Start());
  thread_.Stop();
  system_.transcript.Clear();
  FailureLedger::OfThisProgram().FailedOtherwise("Disk event thread", "ended already");
  thread_.Stop();
  CameTo("Stopping the disk event thread: nothing to wait for");
  EXPECT_THAT(Calls(),
              ElementsAre("SetEvent(event)", "log 3 Disk Event thread is null, and can't be ended."));
}

// In real time: the first pass comes a second after the start, and not at once.
TEST_F(TheDiskEventThread, MakesItsFirstPassAfterASecond) {
  AddOldUpload();
  const ULONGLONG start = GetTickCount64();
  ASSERT_TRUE(Start());
  ASSERT_TRUE(Gate::WaitUntilReached());
  EXPECT_GE(GetTickCount64() - start, 900U);
  thread_.Stop();
  const DWORD worker = system_.ThreadIds().at(0);
  EXPECT_EQ(system_.transcript.Of(worker).at(0), "WaitForSingleObject(event, 1000)");
}

// In real time: an event that has been quiet for a minute and less than a second waits for the next second.
TEST_F(TheDiskEventThread, TellsTheTimeInWholeSeconds) {
  Hurry();
  ASSERT_TRUE(Start());
  const std::time_t before = std::time(nullptr);
  std::time_t now = before;
  for (int tries = 0; now == before && tries < 20000; ++tries) {
    Sleep(1);
    now = std::time(nullptr);
  }
  ASSERT_NE(now, before);
  const auto aMinuteAgo = static_cast<unsigned long long>(now - 60) * 1000;
  uploads_.AddEvent(L"C:\\a", nullptr, L"chrome.exe", 42, aMinuteAgo, 0, FILE_EVENT_READ, 1);
  ASSERT_TRUE(Gate::WaitUntilReached());
  EXPECT_GT(Gate::SecondReached(), now);
  thread_.Stop();
}

// In real time: a pass that is held up, as by a host's callback, is waited for three seconds and then kept.
TEST_F(TheDiskEventThread, StaysHeldWhenItDoesNotEndInThreeSeconds) {
  FailureLedger::OfThisProgram().Concerns("WaitForSingleObject");
  Gate::Close();
  AddOldUpload();
  ASSERT_TRUE(Start());
  ASSERT_TRUE(Gate::WaitUntilReached());
  const ULONGLONG start = GetTickCount64();
  thread_.Stop();
  EXPECT_GE(GetTickCount64() - start, 2900U);
  CameTo("Stopping the disk event thread: the thread stays held");
  EXPECT_FALSE(Start());
  EXPECT_THAT(Logs(), ElementsAre("log 3 Disk Event thread never ended.",
                                  "log 3 Disk Event thread already started!"));
}

decltype(&::WaitForSingleObject) scriptedWait = nullptr;

// Whether the thread has ended is not known then.
TEST_F(TheDiskEventThread, StaysHeldWhenItCannotBeWaitedFor) {
  Hurry();
  ASSERT_TRUE(Start());
  const auto fail = [](HANDLE handle, DWORD milliseconds) WINAPI -> DWORD {
    if (milliseconds != 3000) return scriptedWait(handle, milliseconds);
    FailureLedger::OfThisProgram().Failed("WaitForSingleObject", ERROR_INVALID_HANDLE);
    SetLastError(ERROR_INVALID_HANDLE);
    return WAIT_FAILED;
  };
  FailureLedger::OfThisProgram().Chosen("WaitForSingleObject",
                                        "a thread that cannot be waited for counts as one that did not end");
  {
    const ImportPatch patch(GetModuleHandleW(nullptr), "WaitForSingleObject",
                            reinterpret_cast<void*>(static_cast<decltype(&::WaitForSingleObject)>(fail)));
    scriptedWait = reinterpret_cast<decltype(scriptedWait)>(patch.Original());
    thread_.Stop();
    // The thread, which has ended by now, is in none of its waits when they are put back.
    ASSERT_TRUE(system_.WaitForThreadEnd(0));
  }
  CameTo("Stopping the disk event thread: the thread stays held");
  EXPECT_FALSE(Start());
  EXPECT_THAT(Logs(), ElementsAre("log 3 Disk Event thread never ended.",
                                  "log 3 Disk Event thread already started!"));
  EXPECT_THAT(system_.OpenHandles(), ElementsAre("event", "thread"));
  thread_.Stop();
  EXPECT_TRUE(Start());
  thread_.Stop();
}

TEST_F(TheDiskEventThread, StaysHeldWhenItsEventCannotBeSet) {
  Hurry();
  ASSERT_TRUE(Start());
  const auto fail = [](HANDLE) WINAPI -> BOOL {
    FailureLedger::OfThisProgram().Failed("SetEvent", ERROR_INVALID_HANDLE);
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  };
  {
    const ImportPatch patch(GetModuleHandleW(nullptr), "SetEvent",
                            reinterpret_cast<void*>(static_cast<decltype(&::SetEvent)>(fail)));
    thread_.Stop();
  }
  CameTo("Stopping the disk event thread: the thread stays held");
  EXPECT_THAT(Logs(), ElementsAre("log 3 Disk Event thread never ended."));
  // It works on, and can be stopped the next time.
  AddOldUpload();
  EXPECT_TRUE(Gate::WaitUntilReached());
  thread_.Stop();
  EXPECT_EQ(system_.transcript.StartingWith("log 7 Disk Event thread ended").size(), 1U);
}

TEST_F(TheDiskEventThread, CanBeStoppedForGoodOnceTheHeldPassEnds) {
  Hurry();
  Gate::Close();
  AddOldUpload();
  ASSERT_TRUE(Start());
  ASSERT_TRUE(Gate::WaitUntilReached());
  thread_.Stop();
  Gate::Open();
  ASSERT_TRUE(system_.WaitForThreadEnd(0));
  thread_.Stop();
  EXPECT_TRUE(Start());
  thread_.Stop();
  EXPECT_THAT(Logs(), ElementsAre("log 3 Disk Event thread never ended.",
                                  "log 7 Event suppressed. Filename is a directory.",
                                  "log 7 Disk Event thread ended", "log 7 Disk Event thread ended"));
}

}  // namespace

}  // namespace ostrel::test
