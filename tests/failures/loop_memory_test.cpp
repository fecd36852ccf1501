// The loops on a machine without memory: each allocation of theirs is refused in turn.

#include <algorithm>
#include <set>
#include <utility>

#include "library_test.h"
#include "support/heap_watch.h"

namespace ostrel::test {

namespace {

using ::testing::Contains;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

constexpr std::uint64_t LONG_AGO = 1000;

const std::string ACKNOWLEDGEMENT = "FilterReplyMessage(notification port";
const std::string EXCEPTION = "log 3 Exception caught in filter loop";
const std::string USER_LOOK_UP = "OpenProcessToken(process 42, 0x8)";

EventMessage Event(std::int32_t type, const std::string& fileName) {
  EventMessage message{};
  message.messageId = 7;
  message.processId = 42;
  message.eventTime = LONG_AGO;
  message.eventType = type;
  message.streamFlag = 1;
  message.deviceSourceType = 2;
  std::copy(fileName.begin(), fileName.end(), message.fileName);
  message.readSize = 1000;
  return message;
}

// Longer than a short string holds.
std::string FileName(const std::string& purpose, int number) {
  return "\\a folder for " + purpose + "\\file " + std::to_string(number);
}

class TheNotificationLoopWithoutMemory : public LibraryTest {
 protected:
  TheNotificationLoopWithoutMemory() {
    // Without the disk event thread, which would empty the caches.
    system_.Fail("CreateThread", 8, 2);
    // No rule of any browser applies to this process.
    system_.imageNames = {{42, L"\\a program with a long name.exe"}};
    session_.LogOn();
    EXPECT_TRUE(Load());
    EXPECT_TRUE(system_.WaitUntilHandled());
    FailureLedger::OfThisProgram().SetTheStage();
    handles_ = system_.OpenHandles();
    // The compiler's thread runtime makes its locks at their first use, and does not look whether it gets the
    // memory.
    for (const std::int32_t type : {0, 1, 2, 3, 4}) Handle(Event(type, "\\first"));
  }

  void Handle(const EventMessage& message) {
    Forget();
    system_.Send(message);
    ASSERT_TRUE(system_.WaitUntilHandled());
    CameTo("The notification loop: asks for the next message");
    EXPECT_THAT(system_.transcript.StartingWith(ACKNOWLEDGEMENT), SizeIs(1));
    EXPECT_EQ(system_.OpenHandles(), handles_);
    EXPECT_THAT(session_.OpenHandles(), IsEmpty());
  }

  Lines Loop() const { return system_.transcript.Of(system_.ThreadIds().at(0)); }

  Lines handles_;
};

class HandlingAMessageWithoutMemory : public TheNotificationLoopWithoutMemory,
                                      public ::testing::WithParamInterface<std::int32_t> {};

TEST_P(HandlingAMessageWithoutMemory, AcknowledgesTheMessageGoesOnAndFilesNothingHalf) {
  const bool isCached = GetParam() <= 1 || GetParam() == 4;
  const HeapWatch heap(library_.Module(), system_.ThreadIds().at(0));
  int exceptions = 0;
  for (int allocation = 1;; ++allocation) {
    SCOPED_TRACE(allocation);
    const EventMessage message = Event(GetParam(), FileName("messages", allocation));
    HeapWatch::Begin(allocation);
    ASSERT_NO_FATAL_FAILURE(Handle(message));
    const bool wasRefused = HeapWatch::HasRefused();
    HeapWatch::Begin();
    const Lines lines = Loop();
    if (!wasRefused) {
      EXPECT_THAT(lines, Not(Contains(EXCEPTION)));
      break;
    }
    const auto caught = std::count(lines.begin(), lines.end(), EXCEPTION);
    // Without memory for the titles, an event has none.
    EXPECT_LE(caught, 1);
    exceptions += static_cast<int>(caught);

    // The same message once more: new when it got lost, and filed in any case.
    ASSERT_NO_FATAL_FAILURE(Handle(message));
    EXPECT_THAT(Loop(), Not(Contains(EXCEPTION)));
    if (isCached) {
      EXPECT_EQ(std::ranges::count(Loop(), USER_LOOK_UP), caught);
    }
  }
  EXPECT_GE(exceptions, 2) << "a file name and its entry take memory";
}

INSTANTIATE_TEST_SUITE_P(ForEveryTypeThatIsFiled, HandlingAMessageWithoutMemory,
                         ::testing::Values(0, 1, 2, 3, 4));

// A query of this program withdraws its read, or does nothing and the next one does.
TEST_F(TheNotificationLoopWithoutMemory, WithdrawsAReadWithTheNextQueryWhenThereIsNoMemoryForTheFirst) {
  system_.imageNames = {{42, L"\\firefox.exe"}};
  const std::string withdrawn = "log 7 Removed from Upload cache: ";
  const HeapWatch heap(library_.Module(), system_.ThreadIds().at(0));
  int exceptions = 0;
  bool wasRefused = true;
  for (int allocation = 1; wasRefused; ++allocation) {
    SCOPED_TRACE(allocation);
    const std::string file = FileName("queries", allocation);
    HeapWatch::Begin();
    ASSERT_NO_FATAL_FAILURE(Handle(Event(2, file)));
    ASSERT_NO_FATAL_FAILURE(Handle(Event(0, file)));
    HeapWatch::Begin(allocation);
    ASSERT_NO_FATAL_FAILURE(Handle(Event(2, file)));
    wasRefused = HeapWatch::HasRefused();
    HeapWatch::Begin();
    if (system_.transcript.StartingWith(EXCEPTION).size() == 1) {
      ++exceptions;
      ASSERT_NO_FATAL_FAILURE(Handle(Event(2, file)));
    }
    EXPECT_THAT(system_.transcript.StartingWith(withdrawn), SizeIs(1));
  }
  EXPECT_GE(exceptions, 2) << "the names take memory";
}

// The host's callbacks get no context, so what they are told goes to the newest transcript.
Transcript* told = nullptr;

void OnActivity(const wchar_t* fileName, const wchar_t*, const wchar_t*, std::uint64_t, std::uint32_t,
                std::int32_t, wchar_t**, std::uint32_t*, wchar_t**, std::int32_t, wchar_t**, const wchar_t*,
                std::uint8_t, const wchar_t*, const wchar_t*, std::uint32_t, const wchar_t*, const wchar_t*) {
  told->Add("told " + Narrow(fileName));
}

void OnCloud(const wchar_t* fileName, const wchar_t*, const wchar_t*, std::uint64_t, std::uint32_t) {
  told->Add("told " + Narrow(fileName));
}

class TheDiskEventLoopWithoutMemory : public LibraryTest, public ::testing::WithParamInterface<std::int32_t> {
 protected:
  TheDiskEventLoopWithoutMemory() {
    told = &system_.transcript;
    system_.waitDivisor = 50;
    system_.imageNames = {{42, L"\\a program with a long name.exe"}};
    const wchar_t* names[] = {L"a program with a long name.exe"};
    EXPECT_TRUE(Load());
    EXPECT_TRUE(system_.WaitUntilHandled());
    EXPECT_EQ(library_.EnableActivityDetection(&OnActivity, L"ann", names, 1, nullptr, 0, 0, 0, 0), 1);
    EXPECT_EQ(library_.EnablePCDDetection(&OnCloud, names, 1, nullptr, 0, nullptr, 0), 1);
    handles_ = system_.OpenHandles();
    // Locks are made at their first use.
    for (const std::int32_t type : {0, 1, 4}) Report(type, "\\first of type " + std::to_string(type));
  }

  // Returns when the pass that took the event has ended: then the thread waits again.
  void Report(std::int32_t type, const std::string& fileName) {
    Forget();
    system_.fileSizes = {{std::wstring(fileName.begin(), fileName.end()), 1000}};
    system_.Send(Event(type, fileName));
    const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
    while (!HasPassEnded(fileName)) {
      ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "the loop has ended";
      Sleep(5);
    }
    CameTo("The disk event thread: goes on with the next pass");
    EXPECT_EQ(system_.OpenHandles(), handles_);
  }

  bool HasPassEnded(const std::string& fileName) const {
    const Lines lines = system_.transcript.Of(system_.ThreadIds().at(1));
    const auto taken = std::find(lines.begin(), lines.end(), "PathIsDirectoryW(" + fileName + ")");
    return std::any_of(taken, lines.end(),
                       [](const std::string& line) { return line.starts_with("WaitForSingleObject"); });
  }

  std::size_t Told(const std::string& fileName) const {
    return system_.transcript.StartingWith("told " + fileName).size();
  }

  Lines handles_;
};

// A pass that runs out of memory loses what it has taken out of the caches, but tells nothing twice and ends
// nothing.
TEST_P(TheDiskEventLoopWithoutMemory, TellsAnEventAtMostOnceAndTheNextOneInAnyCase) {
  const HeapWatch heap(library_.Module(), system_.ThreadIds().at(1));
  int allocation = 1;
  for (bool wasRefused = true; wasRefused; ++allocation) {
    SCOPED_TRACE(allocation);
    const std::string file = FileName("reports", allocation);
    HeapWatch::Begin(allocation);
    ASSERT_NO_FATAL_FAILURE(Report(GetParam(), file));
    wasRefused = HeapWatch::HasRefused();
    HeapWatch::Begin();
    if (wasRefused) {
      EXPECT_LE(Told(file), 1U);
    } else {
      EXPECT_EQ(Told(file), 1U);
    }
    ASSERT_NO_FATAL_FAILURE(Report(GetParam(), FileName("what follows", allocation)));
    EXPECT_EQ(Told(FileName("what follows", allocation)), 1U);
  }
  EXPECT_GT(allocation, 10) << "a report takes several texts";
}

INSTANTIATE_TEST_SUITE_P(ForEveryCache, TheDiskEventLoopWithoutMemory, ::testing::Values(0, 1, 4));

}  // namespace

}  // namespace ostrel::test
