// A host whose every callback throws, always.

#include <stdexcept>

#include "network_test.h"

namespace ostrel::test {

namespace {

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

TEST_F(AHostThatThrows, IsToldEveryEventOfEveryKind) {
  ASSERT_NO_FATAL_FAILURE(Start());
  ASSERT_NO_FATAL_FAILURE(ReportOneOfEachKind(u"\\1", u"\\w1", u"\\c1"));
  EXPECT_THAT(Told(), ElementsAre("told \\1", "told \\w1", "told \\c1"));
  ASSERT_NO_FATAL_FAILURE(ReportOneOfEachKind(u"\\2", u"\\w2", u"\\c2"));
  EXPECT_THAT(Told(), ElementsAre("told \\2", "told \\w2", "told \\c2"));
  EXPECT_EQ(library_.UnloadDriver(), 1);
}

TEST_F(AHostThatThrows, GetsEveryRecordFiled) {
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
