// A host whose every callback throws, always.

#include <stdexcept>

#include "network_test.h"
#include "string_getter.h"
#include "support/scripted_wmi.h"

namespace ostrel::test {

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

EventMessage Event(std::int32_t type, const std::u16string& fileName) {
  EventMessage message{};
  message.messageId = 7;
  message.processId = 42;
  message.eventTime = 1000;
  message.eventType = type;
  message.streamFlag = 1;
  message.deviceSourceType = 2;
  std::copy(fileName.begin(), fileName.end(), message.fileName);
  message.readSize = 1000;
  return message;
}

// The host's callbacks get no context, so what they are told goes to the newest transcript.
Transcript* told = nullptr;

void OnLine(const wchar_t* text, std::uint32_t level) {
  Transcript::RecordLog(text, level);
  throw std::runtime_error("the host cannot log");
}

void OnActivity(const wchar_t* fileName, const wchar_t*, const wchar_t*, std::uint64_t, std::uint32_t,
                std::int32_t, wchar_t**, std::uint32_t*, wchar_t**, std::int32_t, wchar_t**, const wchar_t*,
                std::uint8_t, const wchar_t*, const wchar_t*, std::uint32_t, const wchar_t*, const wchar_t*) {
  told->Add("told " + Narrow(fileName));
  throw std::runtime_error("the host cannot take it");
}

// Not every exception is one of the standard library's.
void OnCloud(const wchar_t* fileName, const wchar_t*, const wchar_t*, std::uint64_t, std::uint32_t) {
  told->Add("told " + Narrow(fileName));
  throw 17;
}

class AHostThatThrows : public NetworkTest {
 protected:
  AHostThatThrows() {
    told = &system_.transcript;
    system_.waitDivisor = 10;
    system_.imageNames = {{42, L"\\app.exe"}};
    system_.fileSizes = {{L"\\1", 1000}, {L"\\2", 1000}};
  }

  void Start() {
    ASSERT_EQ(library_.LoadDriver(&OnLine, 7), 1);
    ASSERT_TRUE(system_.WaitUntilHandled());
    ASSERT_EQ(library_.EnableActivityDetection(&OnActivity, L"ann", names_, 2, nullptr, 0, 0, 1, 1), 1);
    ASSERT_EQ(library_.EnablePCDDetection(&OnCloud, names_, 2, nullptr, 0, nullptr, 0), 1);
    ASSERT_TRUE(WaitUntilReading());
  }

  void Send(std::int32_t type, const std::u16string& fileName) {
    system_.Send(Event(type, fileName));
    ASSERT_TRUE(system_.WaitUntilHandled());
  }

  void ReportOneOfEachKind(const std::u16string& upload, const std::u16string& download,
                           const std::u16string& cloud) {
    Forget();
    Send(0, upload);
    ASSERT_TRUE(system_.transcript.WaitFor("told ", 1));
    Send(1, download);
    ASSERT_TRUE(system_.transcript.WaitFor("told ", 2));
    Send(4, cloud);
    ASSERT_TRUE(system_.transcript.WaitFor("told ", 3));
  }

  Lines Told() const { return system_.transcript.StartingWith("told "); }
};

TEST_F(AHostThatThrows, GetsTheResultsOfOneThatDoesNot) {
  FailureLedger::OfThisProgram().FailedOtherwise("The host's log callback", "an exception");
  CameTo("Every function: its result is that with a callback that does not throw");
  ScriptedWmi wmi(library_.Module(), system_.transcript);
  wmi.objects = {L"VM"};
  const auto enableActivity = [this] {
    return library_.EnableActivityDetection(&OnActivity, L"ann", names_, 2, nullptr, 0, 0, 1, 1);
  };
  EXPECT_EQ(library_.UnloadDriver(), 1);
  EXPECT_EQ(library_.LoadDriver(&OnLine, 7), 1);
  EXPECT_EQ(library_.LoadDriver(&OnLine, 7), 1);
  EXPECT_EQ(enableActivity(), 1);
  EXPECT_EQ(enableActivity(), 0);
  EXPECT_EQ(library_.EnablePCDDetection(&OnCloud, names_, 2, names_, 2, names_, 2), 1);
  library_.UpdateProcesses(names_, 2, 0);
  EnableRemote();
  library_.DisableTabTitles();
  library_.EnableTabTitles();
  EXPECT_EQ(Ask(library_, "GetCurrentUserName"), Result("VM"));
  EXPECT_EQ(Ask(library_, "GetAllUserDirectories"), Result("VM;"));
  // Nobody is logged on.
  EXPECT_EQ(Ask(library_, "GetAutoProxyConfigUrlForSystem").first, UNTOUCHED);
  EXPECT_EQ(Ask(library_, "GetCloudStorageProviderLoginForSystem").first, UNTOUCHED);
  EXPECT_EQ(library_.DisableActivityDetection(), 1);
  EXPECT_EQ(library_.DisableActivityDetection(), 0);
  EXPECT_EQ(library_.DisablePCDDetection(), 1);
  EXPECT_EQ(library_.DisablePCDDetection(), 1);
  library_.DisableRemoteAddressInfo();
  library_.DisableRemoteAddressInfo();
  EXPECT_EQ(library_.UnloadDriver(), 1);
  EXPECT_EQ(library_.UnloadDriver(), 1);
  // One of each of these functions, so that each had an exception to stop.
  for (const char* line :
       {"log 6 LoadDriver was successful.", "log 6 Ostrel filtering library already started.",
        "log 6 Enabled Application Activity Detection.", "log 6 Application activity already turned on.",
        "log 6 Enabled PCD Detection.", "log 6 Successfully updated processes to monitor.",
        "log 7 Remote address capturing already enabled.", "log 6 Turning off tab title capture.",
        "log 6 Turning on tab title capture.", "log 7 Domain with username: VM",
        "log 7 List of all Directories (semi-colon delimited): VM;",
        "log 6 Disabled Application Activity Detection.", "log 6 Application activity already disabled.",
        "log 6 Disabled PCD detection.", "log 6 PCD already turned off.",
        "log 7 Remote address capturing already disabled.",
        "log 6 Ostrel filtering library already unloaded."}) {
    EXPECT_THAT(Logs(), Contains(line));
  }
}

TEST_F(AHostThatThrows, IsToldEveryEventOfEveryKind) {
  FailureLedger::OfThisProgram().FailedOtherwise("The host's callback for events", "an exception");
  CameTo("The disk event thread: counts the event as told, and tells the next one");
  ASSERT_NO_FATAL_FAILURE(Start());
  ASSERT_NO_FATAL_FAILURE(ReportOneOfEachKind(u"\\1", u"\\w1", u"\\c1"));
  EXPECT_THAT(Told(), ElementsAre("told \\1", "told \\w1", "told \\c1"));
  ASSERT_NO_FATAL_FAILURE(ReportOneOfEachKind(u"\\2", u"\\w2", u"\\c2"));
  EXPECT_THAT(Told(), ElementsAre("told \\2", "told \\w2", "told \\c2"));
  EXPECT_EQ(library_.UnloadDriver(), 1);
}

TEST_F(AHostThatThrows, GetsEveryRecordFiled) {
  FailureLedger::OfThisProgram().FailedOtherwise("The host's log callback", "an exception");
  CameTo("The packet reader: files every record");
  ASSERT_NO_FATAL_FAILURE(Start());
  for (std::size_t i = 0; i < 3; ++i) {
    network_.Complete(i, Packet());
    ASSERT_TRUE(WaitUntilReading(2 + i));
  }
  EXPECT_THAT(system_.transcript.StartingWith("log 7 added "), SizeIs(3));
  EXPECT_EQ(library_.UnloadDriver(), 1);
}

TEST_F(AHostThatThrows, CanUnloadAndLoadAgain) {
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(library_.LoadDriver(&OnLine, 7), 1);
    EXPECT_EQ(library_.UnloadDriver(), 1);
  }
  EXPECT_THAT(system_.OpenHandles(), ElementsAre("event", "event", "event"))
      << "the stop events of three disk event threads";
}

}  // namespace

}  // namespace ostrel::test
