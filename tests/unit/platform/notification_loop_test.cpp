#include "filter/notification_loop.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "filter/cache_hooks.h"
#include "platform_test.h"

namespace ostrel::test {

namespace {

using ::testing::ElementsAre;

EventMessage Message(std::int32_t type, std::uint64_t id, const std::u16string& fileName) {
  EventMessage message{};
  message.messageId = id;
  message.processId = 42;
  message.eventTime = 1000;
  message.eventType = type;
  message.streamFlag = 1;
  message.deviceSourceType = 2;
  std::copy(fileName.begin(), fileName.end(), message.fileName);
  message.readSize = 10;
  return message;
}

EventMessage UnloadNotice() {
  EventMessage message{};
  message.messageId = 99;
  message.unloadNotice = 1;
  return message;
}

// The loop with caches whose look-ups the test chooses. It runs on the test's own thread until the notice it
// is sent.
class TheNotificationLoop : public PlatformTest {
 protected:
  TheNotificationLoop() { system_.imageNames = {{42, L"\\Device\\HarddiskVolume3\\app.exe"}}; }

  static ReadEventCache MakeCache(UserLookup userLookup) {
    TabTitleLookup tabTitleLookup = [](ULong32, std::wstring, std::wstring&) {
      return std::vector<std::wstring>();
    };
    DirectoryTest directoryTest = IsDirectory;
    return {userLookup, tabTitleLookup, directoryTest};
  }

  void Run(const std::vector<EventMessage>& messages, ReadEventCache& downloads) {
    for (const EventMessage& message : messages) system_.Send(message);
    system_.Send(UnloadNotice());
    const auto port = std::make_shared<NotificationPort>();
    ASSERT_EQ(port->Connect(), S_OK);
    NotificationLoop(port, {uploads_, downloads, cloudDrive_, irpQueries_, irpQueriesMutex_, suffixes_})
        .Run();
    EXPECT_FALSE(port->IsConnected());
    port->Close();
  }

  ReadEventCache uploads_ = MakeCache(&GetUserOfProcess);
  ReadEventCache cloudDrive_ = MakeCache(&GetUserOfProcess);
  IrpCache irpQueries_;
  std::mutex irpQueriesMutex_;
  const std::vector<std::wstring> suffixes_{L".tmp"};
};

TEST_F(TheNotificationLoop, GoesOnAfterAnExceptionAndClosesTheProcess) {
  FailureLedger::OfThisProgram().FailedOtherwise("Handling a message", "an exception");
  static bool throwNext;
  throwNext = true;
  auto downloads = MakeCache([](void*, std::wstring& user) -> unsigned char {
    if (std::exchange(throwNext, false)) throw std::runtime_error("a look-up throws");
    user = L"ann";
    return 1;
  });
  Run({Message(1, 7, u"\\first"), Message(1, 8, u"\\second")}, downloads);
  CameTo("The notification loop: goes on with the next message");
  EXPECT_THAT(Logs(),
              ElementsAre("log 6 Notification procedure started.",
                          "log 7 Received event: 42 \\first \\Device\\HarddiskVolume3\\app.exe 1 0 0 10",
                          "log 3 Exception caught in filter loop",
                          "log 7 Received event: 42 \\second \\Device\\HarddiskVolume3\\app.exe 1 0 0 10",
                          "log 6 Driver unloaded."));
  EXPECT_EQ(downloads.GetCacheCount(), 1U);
  EXPECT_THAT(system_.OpenHandles(), ::testing::IsEmpty());
}

TEST_F(TheNotificationLoop, GoesOnAfterAnExceptionOfTheTabTitleLookUp) {
  FailureLedger::OfThisProgram().FailedOtherwise("Look-up of tab titles", "an exception");
  static bool throwNext;
  throwNext = true;
  UserLookup userLookup = [](void*, std::wstring&) -> unsigned char { return 1; };
  TabTitleLookup tabTitleLookup = [](ULong32, std::wstring, std::wstring&) -> std::vector<std::wstring> {
    if (std::exchange(throwNext, false)) throw std::runtime_error("a look-up throws");
    return {};
  };
  DirectoryTest directoryTest = &IsDirectory;
  ReadEventCache downloads(userLookup, tabTitleLookup, directoryTest);
  Run({Message(1, 7, u"\\first"), Message(1, 8, u"\\second")}, downloads);
  CameTo("The notification loop: goes on with the next message");
  EXPECT_THAT(system_.transcript.StartingWith("log 3"), ElementsAre("log 3 Exception caught in filter loop"));
  EXPECT_EQ(downloads.GetCacheCount(), 1U);
  EXPECT_THAT(system_.OpenHandles(), ::testing::IsEmpty());
}

TEST_F(TheNotificationLoop, GoesOnAfterAnEventOfATypeThatItDoesNotKnow) {
  auto downloads = MakeCache(&GetUserOfProcess);
  FailureLedger::OfThisProgram().FailedOtherwise("Message of the minifilter", "of an unknown type");
  Run({Message(10, 7, u"\\first"), Message(1, 8, u"\\second")}, downloads);
  CameTo("The notification loop: goes on with the next message");
  EXPECT_THAT(Logs(), ::testing::Contains("log 3 Unhandled message from driver: 10"));
  EXPECT_EQ(downloads.GetCacheCount(), 1U);
  EXPECT_THAT(system_.OpenHandles(), ::testing::IsEmpty());
}

TEST_F(TheNotificationLoop, FilesTheEventAsTheDriverReportedIt) {
  auto downloads = MakeCache([](void*, std::wstring& user) -> unsigned char {
    user = L"ann";
    return 1;
  });
  EventMessage message = Message(1, 7, u"\\Device\\Mup\\server\\share\\a.bin");
  message.deviceSourceType = 1;
  message.eventTime = 123456789;
  message.readSize = 0xFFFFFFFF;
  Run({message}, downloads);
  auto events = downloads.GetEvents(0);
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].GetFileName(), L"\\\\server\\share\\a.bin");
  EXPECT_EQ(events[0].GetProcessName(), L"\\Device\\HarddiskVolume3\\app.exe");
  EXPECT_EQ(events[0].GetUser(), L"ann");
  EXPECT_EQ(events[0].GetProcessId(), 42U);
  EXPECT_EQ(events[0].GetStartTime(), 123456789U);
  EXPECT_EQ(events[0].GetEndTime(), 123456789U);
  EXPECT_EQ(events[0].IsNetworkEvent(), 1);
  EXPECT_EQ(events[0].GetFileEventType(), FILE_EVENT_WRITE);
  EXPECT_EQ(events[0].GetReadSize(), 0xFFFFFFFFU);
}

TEST_F(TheNotificationLoop, FilesCloudDriveEventsOfEveryTypeWithoutASize) {
  auto downloads = MakeCache(&GetUserOfProcess);
  std::vector<EventMessage> messages;
  for (std::int32_t type = 4; type <= 9; ++type) {
    messages.push_back(Message(type, 7, u"\\" + std::u16string(1, static_cast<char16_t>(u'0' + type))));
  }
  Run(messages, downloads);
  auto events = cloudDrive_.GetEvents(0);
  ASSERT_EQ(events.size(), 6U);
  for (auto& event : events) {
    EXPECT_EQ(event.GetFileName(), L"\\" + std::to_wstring(static_cast<int>(event.GetFileEventType())));
    EXPECT_EQ(event.GetReadSize(), 0U);
    EXPECT_EQ(event.IsNetworkEvent(), 0);
  }
  EXPECT_EQ(downloads.GetCacheCount() + uploads_.GetCacheCount(), 0U);
}

TEST_F(TheNotificationLoop, MarksACloudDriveEventOnANetworkDrive) {
  auto downloads = MakeCache(&GetUserOfProcess);
  EventMessage message = Message(4, 7, u"\\Device\\Mup\\server\\share\\a");
  message.deviceSourceType = 1;
  Run({message}, downloads);
  auto events = cloudDrive_.GetEvents(0);
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].IsNetworkEvent(), 1);
}

}  // namespace

}  // namespace ostrel::test
