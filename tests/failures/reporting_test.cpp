#include <stdexcept>
#include <utility>

#include "library_test.h"

namespace ostrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr std::uint64_t LONG_AGO = 1000;

EventMessage Event(std::int32_t type, const std::u16string& fileName, std::uint64_t time = LONG_AGO) {
  EventMessage message{};
  message.messageId = 7;
  message.processId = 42;
  message.eventTime = time;
  message.eventType = type;
  message.streamFlag = 1;
  message.deviceSourceType = 2;
  std::copy(fileName.begin(), fileName.end(), message.fileName);
  message.readSize = 1000;
  return message;
}

// The host's callbacks get no context, so what they are told goes to the newest transcript.
Transcript* told = nullptr;
bool throwFirst = false;

void Tell(const std::string& line) {
  told->Add(line);
  if (std::exchange(throwFirst, false)) throw std::runtime_error("the host throws");
}

void OnActivity(const wchar_t* fileName, const wchar_t* processName, const wchar_t* user,
                std::uint64_t endTime, std::uint32_t type, std::int32_t streamCount, wchar_t**,
                std::uint32_t*, wchar_t**, std::int32_t hintCount, wchar_t**, const wchar_t* tabTitleStatus,
                std::uint8_t isNetworkDrive, const wchar_t*, const wchar_t*, std::uint32_t, const wchar_t*,
                const wchar_t*) {
  Tell("told " + std::to_string(type) + " " + Narrow(fileName) + " " + Narrow(processName) + " " +
       Narrow(user) + " " + std::to_string(endTime) + " streams " + std::to_string(streamCount) + " hints " +
       std::to_string(hintCount) + " [" + Narrow(tabTitleStatus) + "] network " +
       std::to_string(isNetworkDrive));
}

void OnCloud(const wchar_t* fileName, const wchar_t* processName, const wchar_t* user, std::uint64_t endTime,
             std::uint32_t type) {
  Tell("told " + std::to_string(type) + " " + Narrow(fileName) + " " + Narrow(processName) + " " +
       Narrow(user) + " " + std::to_string(endTime));
}

// Others, to tell which one is in use.
void OnOtherActivity(const wchar_t* fileName, const wchar_t*, const wchar_t*, std::uint64_t,
                     std::uint32_t type, std::int32_t, wchar_t**, std::uint32_t*, wchar_t**, std::int32_t,
                     wchar_t**, const wchar_t*, std::uint8_t, const wchar_t*, const wchar_t*, std::uint32_t,
                     const wchar_t*, const wchar_t*) {
  Tell("told other " + std::to_string(type) + " " + Narrow(fileName));
}

void OnOtherCloud(const wchar_t* fileName, const wchar_t*, const wchar_t*, std::uint64_t,
                  std::uint32_t type) {
  Tell("told other " + std::to_string(type) + " " + Narrow(fileName));
}

// The whole road inside the DLL: from the driver's message through the caches and the disk event thread to
// the host.
class ReportingToTheHost : public LibraryTest {
 protected:
  // Every wait of the library is that much shorter.
  explicit ReportingToTheHost(DWORD waitDivisor = 10) {
    told = &system_.transcript;
    throwFirst = false;
    // No rule of any browser applies to this process.
    system_.imageNames = {{42, L"\\app.exe"}};
    system_.fileSizes = {{L"\\a.txt", 1000}};
    system_.waitDivisor = waitDivisor;
    EXPECT_TRUE(Load());
    EXPECT_TRUE(system_.WaitUntilHandled());
  }

  void EnableBoth(bool tabTitles = true) {
    const wchar_t* names[] = {L"app.exe"};
    EXPECT_EQ(
        library_.EnableActivityDetection(&OnActivity, L"ann", names, 1, nullptr, 0, 0, 0, tabTitles ? 1 : 0),
        1);
    EXPECT_EQ(library_.EnablePCDDetection(&OnCloud, names, 1, nullptr, 0, nullptr, 0), 1);
  }

  void Send(const EventMessage& message) {
    system_.Send(message);
    ASSERT_TRUE(system_.WaitUntilHandled());
  }

  Lines Told() const { return system_.transcript.StartingWith("told "); }
  bool WaitForReports(std::size_t count) const { return system_.transcript.WaitFor("told ", count); }

  // Ends the disk event thread, so that nothing comes after.
  void Unload() { EXPECT_EQ(library_.UnloadDriver(), 1); }
};

TEST_F(ReportingToTheHost, AnUploadReachesTheActivityCallback) {
  EnableBoth();
  Send(Event(0, u"\\a.txt"));
  ASSERT_TRUE(WaitForReports(1));
  Unload();
  EXPECT_THAT(Told(), ElementsAre("told 0 \\a.txt \\app.exe ann 1000 streams 0 hints 0 "
                                  "[NO_LOGGEDIN_USER] network 0"));
}

TEST_F(ReportingToTheHost, WithoutTabTitleCaptureTheStatusIsEmpty) {
  EnableBoth(false);
  Send(Event(1, u"\\a.txt"));
  ASSERT_TRUE(WaitForReports(1));
  Unload();
  EXPECT_THAT(Told(), ElementsAre("told 1 \\a.txt \\app.exe ann 1000 streams 0 hints 0 [] network 0"));
}

TEST_F(ReportingToTheHost, ACloudDriveEventReachesTheOtherCallback) {
  EnableBoth();
  Send(Event(9, u"\\gone.txt"));
  ASSERT_TRUE(WaitForReports(1));
  Unload();
  EXPECT_THAT(Told(), ElementsAre("told 9 \\gone.txt \\app.exe ann 1000"));
}

TEST_F(ReportingToTheHost, WhatIsCachedIsReportedAfterDetectionIsSwitchedOff) {
  EnableBoth();
  EXPECT_EQ(library_.DisableActivityDetection(), 1);
  EXPECT_EQ(library_.DisablePCDDetection(), 1);
  Send(Event(1, u"\\a.txt"));
  Send(Event(4, u"\\b.txt"));
  ASSERT_TRUE(WaitForReports(2));
  Unload();
  EXPECT_THAT(Told(), ElementsAre("told 1 \\a.txt \\app.exe ann 1000 streams 0 hints 0 "
                                  "[NO_LOGGEDIN_USER] network 0",
                                  "told 4 \\b.txt \\app.exe ann 1000"));
}

// The disk event thread waits for the helper, and nobody waits for that thread.
TEST_F(ReportingToTheHost, AHelperThatHangsOverMetadataHoldsUpNoEvent) {
  EnableBoth(false);
  session_.LogOn();
  session_.Hang();
  EventMessage onNetworkDrive = Event(1, u"\\a.txt");
  onNetworkDrive.deviceSourceType = 1;
  Send(onNetworkDrive);
  ASSERT_TRUE(system_.transcript.WaitFor("CallNamedPipeW("));
  for (std::uint64_t id = 8; id <= 10; ++id) {
    EventMessage next = Event(1, u"\\b.txt");
    next.messageId = id;
    Send(next);
    EXPECT_THAT(system_.transcript.StartingWith("FilterReplyMessage("),
                ::testing::Contains("FilterReplyMessage(notification port, status 0, id " +
                                    std::to_string(id) + ", 16 bytes)"));
  }
  EXPECT_THAT(Told(), IsEmpty());
  session_.Release();
  ASSERT_TRUE(WaitForReports(2));
  Unload();
  EXPECT_THAT(Told(), ElementsAre(::testing::EndsWith("[] network 1"), ::testing::EndsWith("[] network 0")));
}

TEST_F(ReportingToTheHost, WithoutCallbacksEventsPassUnseen) {
  Send(Event(1, u"\\a.txt"));
  Send(Event(4, u"\\b.txt"));
  ASSERT_TRUE(system_.transcript.WaitFor("PathIsDirectoryW(\\b.txt)"));
  Unload();
  EXPECT_THAT(Told(), IsEmpty());
  EXPECT_THAT(system_.transcript.StartingWith("log 6 Detected"), IsEmpty());
  EXPECT_THAT(system_.transcript.StartingWith("CreateFileW"), IsEmpty());
}

TEST_F(ReportingToTheHost, ADirectoryIsNotReported) {
  system_.directories = {L"\\a.txt"};
  EnableBoth();
  Send(Event(1, u"\\a.txt"));
  ASSERT_TRUE(system_.transcript.WaitFor("log 7 Event suppressed. Filename is a directory."));
  Unload();
  EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(ReportingToTheHost, ACallbackThatThrowsLosesItsReportOnly) {
  throwFirst = true;
  EnableBoth();
  Send(Event(4, u"\\1"));
  ASSERT_TRUE(WaitForReports(1));
  Send(Event(4, u"\\2"));
  ASSERT_TRUE(WaitForReports(2));
  Unload();
  EXPECT_THAT(Told(), ElementsAre("told 4 \\1 \\app.exe ann 1000", "told 4 \\2 \\app.exe ann 1000"));
}

TEST_F(ReportingToTheHost, EnablingActivityThatIsOnKeepsTheCallback) {
  EnableBoth();
  EXPECT_EQ(library_.EnableActivityDetection(&OnOtherActivity, L"", nullptr, 0, nullptr, 0, 0, 0, 1), 0);
  Send(Event(1, u"\\a.txt"));
  ASSERT_TRUE(WaitForReports(1));
  Unload();
  EXPECT_THAT(Told(), ElementsAre(StartsWith("told 1 \\a.txt")));
}

TEST_F(ReportingToTheHost, EnablingActivityAnewReplacesTheCallback) {
  EnableBoth();
  EXPECT_EQ(library_.DisableActivityDetection(), 1);
  EXPECT_EQ(library_.EnableActivityDetection(&OnOtherActivity, L"", nullptr, 0, nullptr, 0, 0, 0, 1), 1);
  Send(Event(1, u"\\a.txt"));
  ASSERT_TRUE(WaitForReports(1));
  Unload();
  EXPECT_THAT(Told(), ElementsAre("told other 1 \\a.txt"));
}

TEST_F(ReportingToTheHost, EnablingCloudDetectionForNoProcessKeepsTheCallback) {
  EnableBoth();
  for (int times = 0; times < 2; ++times) {
    EXPECT_EQ(library_.EnablePCDDetection(&OnOtherCloud, nullptr, 0, nullptr, 0, nullptr, 0), 1);
  }
  Send(Event(4, u"\\a.txt"));
  ASSERT_TRUE(WaitForReports(1));
  Unload();
  EXPECT_THAT(Told(), ElementsAre(StartsWith("told 4 \\a.txt")));
}

TEST_F(ReportingToTheHost, EnablingCloudDetectionThatIsOnReplacesTheCallback) {
  EnableBoth();
  const wchar_t* names[] = {L"app.exe"};
  EXPECT_EQ(library_.EnablePCDDetection(&OnOtherCloud, names, 1, nullptr, 0, nullptr, 0), 1);
  Send(Event(4, u"\\a.txt"));
  ASSERT_TRUE(WaitForReports(1));
  Unload();
  EXPECT_THAT(Told(), ElementsAre("told other 4 \\a.txt"));
}

// In real time, so that the first disk event thread has its three seconds to end in.
class ReportingAfterALaterLoad : public ReportingToTheHost {
 protected:
  ReportingAfterALaterLoad() : ReportingToTheHost(1) {}
};

TEST_F(ReportingAfterALaterLoad, BothCallbacksAreStillInUse) {
  EnableBoth();
  Unload();
  ASSERT_TRUE(system_.WaitForThreadEnd(0));
  ASSERT_TRUE(Load());
  Send(Event(1, u"\\a.txt"));
  Send(Event(4, u"\\b.txt"));
  ASSERT_TRUE(WaitForReports(2));
  Unload();
  EXPECT_THAT(Told(), ElementsAre(StartsWith("told 1 \\a.txt"), StartsWith("told 4 \\b.txt")));
}

// An event of this moment has a minute to go.
TEST_F(ReportingToTheHost, TheClockIsMillisecondsSince1970) {
  EnableBoth();
  FILETIME now{};
  GetSystemTimeAsFileTime(&now);
  const std::uint64_t ticks = static_cast<std::uint64_t>(now.dwHighDateTime) << 32 | now.dwLowDateTime;
  const std::uint64_t milliseconds = (ticks - 116444736000000000ULL) / 10000;
  Send(Event(4, u"\\now", milliseconds));
  Send(Event(4, u"\\quiet", milliseconds - 62000));
  ASSERT_TRUE(WaitForReports(1));
  Unload();
  EXPECT_THAT(Told(), ElementsAre("told 4 \\quiet \\app.exe ann " + std::to_string(milliseconds - 62000)));
}

}  // namespace

}  // namespace ostrel::test
