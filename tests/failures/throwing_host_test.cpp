#include <stdexcept>

#include "network_test.h"
#include "string_getter.h"
#include "support/scripted_wmi.h"

namespace ostrel::test {

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::StartsWith;

// Set before the library calls back, and read by its threads.
Transcript* told = nullptr;

void ThrowingLog(const wchar_t* text, std::uint32_t level) {
  Transcript::RecordLog(text, level);
  throw std::runtime_error("the log throws");
}

void ThrowingActivity(const wchar_t* fileName, const wchar_t*, const wchar_t*, std::uint64_t, std::uint32_t,
                      std::int32_t, wchar_t**, std::uint32_t*, wchar_t**, std::int32_t, wchar_t**,
                      const wchar_t*, std::uint8_t, const wchar_t*, const wchar_t*, std::uint32_t,
                      const wchar_t*, const wchar_t*) {
  told->Add("told of activity " + Narrow(fileName));
  throw 1;  // not every exception has a class
}

void ThrowingCloud(const wchar_t* fileName, const wchar_t*, const wchar_t*, std::uint64_t, std::uint32_t) {
  told->Add("told of cloud " + Narrow(fileName));
  throw std::string("a host throws what it likes");
}

EventMessage Event(std::int32_t type, const std::u16string& fileName) {
  EventMessage message{};
  message.processId = 42;
  message.eventTime = 1000;
  message.eventType = type;
  message.streamFlag = 1;
  message.deviceSourceType = 2;
  std::copy(fileName.begin(), fileName.end(), message.fileName);
  return message;
}

// Every callback throws, each time.
class AHostWhoseCallbacksThrow : public NetworkTest {
 protected:
  AHostWhoseCallbacksThrow() {
    told = &system_.transcript;
    system_.waitDivisor = 10;
    wmi_.objects = {L"VM"};
  }

  bool EnableActivityThrowing() {
    return library_.EnableActivityDetection(&ThrowingActivity, L"ann", names_, 2, nullptr, 0, 0, 1, 1) == 1;
  }

  ScriptedWmi wmi_{library_.Module(), system_.transcript};
};

TEST_F(AHostWhoseCallbacksThrow, GetsTheResultsOfOneThatDoesNot) {
  EXPECT_EQ(library_.UnloadDriver(), 1);
  EXPECT_EQ(library_.LoadDriver(&ThrowingLog, 7), 1);
  EXPECT_EQ(library_.LoadDriver(&ThrowingLog, 7), 1);
  EXPECT_TRUE(EnableActivityThrowing());
  EXPECT_FALSE(EnableActivityThrowing());
  EXPECT_EQ(library_.EnablePCDDetection(&ThrowingCloud, names_, 2, names_, 2, names_, 2), 1);
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

TEST_F(AHostWhoseCallbacksThrow, EndsNoneOfTheLibrarysThreads) {
  ASSERT_EQ(library_.LoadDriver(&ThrowingLog, 7), 1);
  ASSERT_TRUE(EnableActivityThrowing());
  ASSERT_EQ(library_.EnablePCDDetection(&ThrowingCloud, names_, 2, nullptr, 0, nullptr, 0), 1);
  ASSERT_TRUE(WaitUntilReading());
  for (std::size_t round = 1; round <= 2; ++round) {
    network_.Complete(0, Packet());
    ASSERT_TRUE(WaitUntilReading(round + 1));
    const std::u16string name = round == 1 ? u"\\first" : u"\\second";
    system_.Send(Event(1, name));
    system_.Send(Event(4, name));
    ASSERT_TRUE(system_.transcript.WaitFor("told of activity", round));
    ASSERT_TRUE(system_.transcript.WaitFor("told of cloud", round));
  }
  EXPECT_EQ(library_.UnloadDriver(), 1);
  EXPECT_THAT(system_.transcript.StartingWith("told of activity"),
              ElementsAre("told of activity \\first", "told of activity \\second"));
  EXPECT_THAT(system_.transcript.StartingWith("told of cloud"),
              ElementsAre("told of cloud \\first", "told of cloud \\second"));
  EXPECT_THAT(system_.transcript.StartingWith("log 7 "),
              Contains(StartsWith("log 7 added network event: upload ")));
}

}  // namespace

}  // namespace ostrel::test
