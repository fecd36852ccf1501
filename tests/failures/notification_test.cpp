#include <atomic>

#include "library_test.h"
#include "support/heap_watch.h"

namespace ostrel::test {

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Gt;
using ::testing::IsEmpty;
using ::testing::Not;

const std::string GET = "FilterGetMessage(notification port, 1080, synchronous)";
const std::string ACKNOWLEDGE = "FilterReplyMessage(notification port, status 0, id 7, 16 bytes)";
const std::string OPEN_PROCESS = "OpenProcess(0x1000, not inherited, 42)";
const std::string CLOSE_PROCESS = "CloseHandle(process 42)";
const std::string PROCESS_NAME = "\\Device\\HarddiskVolume3\\chrome.exe";
const Lines USER_LOOK_UP = {"OpenProcessToken(process 42, 0x8)",
                            "GetTokenInformation(token, 1, 0)",
                            "HeapAlloc(zeroed, 104)",
                            "GetTokenInformation(token, 1, 104)",
                            "LookupAccountSidW(null, 512, one length)",
                            "HeapFree()",
                            "CloseHandle(token)"};
const Lines LOOK_UPS = USER_LOOK_UP + TitlesLookUp();
const Lines OPENED = {OPEN_PROCESS, "K32GetProcessImageFileNameW(process 42, 512)"};

EventMessage Event(std::int32_t type, const std::u16string& fileName, std::uint64_t time = 1000) {
  EventMessage message{};
  message.messageId = 7;
  message.processId = 42;
  message.eventTime = time;
  message.eventType = type;
  message.detail = -3;
  message.streamFlag = 1;
  message.deviceSourceType = 2;
  std::copy(fileName.begin(), fileName.end(), message.fileName);
  message.readSize = 10;
  return message;
}

std::string ReceivedLine(int type, const std::string& fileName) {
  return "log 7 Received event: 42 " + fileName + " " + PROCESS_NAME + " " + std::to_string(type) +
         " -3 0 10";
}

class TheDriverSends : public LibraryTest {
 protected:
  TheDriverSends() {
    // Without the disk event thread, which would empty the caches after a second.
    system_.Fail("CreateThread", 8, 2);
    EXPECT_TRUE(Load());
    EXPECT_TRUE(system_.WaitUntilHandled());
    FailureLedger::OfThisProgram().SetTheStage();
    handles_ = system_.OpenHandles();
    Forget();
  }

  // What handling the message came to, up to asking for the next.
  Lines Handle(const EventMessage& message) {
    Forget();
    system_.Send(message);
    EXPECT_TRUE(system_.WaitUntilHandled());
    EXPECT_EQ(system_.OpenHandles(), handles_);
    Lines lines = Loop();
    EXPECT_THAT(lines, Contains(GET));
    CameTo("The notification loop: asks for the next message");
    if (!lines.empty()) lines.pop_back();
    return lines;
  }

  Lines Loop() const { return system_.transcript.Of(system_.ThreadIds().at(0)); }

  Lines handles_;
};

TEST_F(TheDriverSends, AWriteThatIsAcknowledgedBeforeAnyLookUpAndFiledAsADownload) {
  EXPECT_THAT(Handle(Event(1, u"\\a.txt")), Lines({ACKNOWLEDGE}) + OPENED +
                                                Lines({ReceivedLine(1, "\\a.txt")}) + LOOK_UPS +
                                                Lines({CLOSE_PROCESS}));
}

TEST_F(TheDriverSends, ASecondWriteOfTheSameFileThatIsMergedWithoutALookUp) {
  Handle(Event(1, u"\\a.txt"));
  EXPECT_THAT(Handle(Event(1, u"\\a.txt")),
              Lines({ACKNOWLEDGE}) + OPENED + Lines({ReceivedLine(1, "\\a.txt"), CLOSE_PROCESS}));
}

TEST_F(TheDriverSends, ALocalNameThatIsConvertedBeforeTheAcknowledgement) {
  system_.drives = {{L"C:", L"\\Device\\HarddiskVolume3"}};
  EventMessage message = Event(1, u"\\Device\\HarddiskVolume3\\a.txt");
  message.deviceSourceType = 0;
  EXPECT_THAT(Handle(message),
              Lines({"GetLogicalDriveStringsW(511)", "QueryDosDeviceW(C:, 512)", ACKNOWLEDGE}) + OPENED +
                  Lines({ReceivedLine(1, "C:\\a.txt")}) + LOOK_UPS + Lines({CLOSE_PROCESS}));
}

TEST_F(TheDriverSends, ANetworkNameThatIsConvertedAndMarked) {
  EventMessage message = Event(1, u"\\Device\\Mup\\server\\share\\a.txt");
  message.deviceSourceType = 1;
  EXPECT_THAT(Handle(message),
              Contains("log 7 Received event: 42 \\\\server\\share\\a.txt " + PROCESS_NAME + " 1 -3 1 10"));
}

TEST_F(TheDriverSends, AWriteWhoseStreamSuffixIsCut) {
  EventMessage message = Event(1, u"C:\\dir\\file.txt:Zone.Identifier");
  message.streamFlag = 0;
  EXPECT_THAT(Handle(message), Contains(ReceivedLine(1, "C:\\dir\\file.txt")));
}

TEST_F(TheDriverSends, AWriteWithTheStreamFlagSetWhoseNameStays) {
  EXPECT_THAT(Handle(Event(1, u"C:\\dir\\file.txt:Zone.Identifier")),
              Contains(ReceivedLine(1, "C:\\dir\\file.txt:Zone.Identifier")));
}

TEST_F(TheDriverSends, ACloudDriveEventWhoseStreamSuffixStays) {
  EventMessage message = Event(4, u"C:\\dir\\file.txt:Zone.Identifier");
  message.streamFlag = 0;
  EXPECT_THAT(Handle(message), Contains(ReceivedLine(4, "C:\\dir\\file.txt:Zone.Identifier")));
}

// The flag promises a stream suffix. Without one the drive's own colon is the last of the converted name.
TEST_F(TheDriverSends, AWriteWithoutTheSuffixItPromisesWhoseConvertedNameIsCutToTheDriveLetter) {
  system_.drives = {{L"C:", L"\\Device\\HarddiskVolume3"}};
  EventMessage message = Event(1, u"\\Device\\HarddiskVolume3\\a.txt");
  message.deviceSourceType = 0;
  message.streamFlag = 0;
  EXPECT_THAT(Handle(message), Contains(ReceivedLine(1, "C")));
}

TEST_F(TheDriverSends, FilesOfNoInterestThatAreAcknowledgedAndDropped) {
  for (const char16_t* name : {u"\\a.part", u"\\download.CRDOWNLOAD", u"\\a.partial", u"\\a.opDownload",
                               u"\\a.tmp", u"\\a.LNK", u".tmp"}) {
    EXPECT_THAT(Handle(Event(1, name)), ElementsAre(ACKNOWLEDGE));
  }
  EXPECT_THAT(Handle(Event(1, u"\\a.tmpx")), Contains(ReceivedLine(1, "\\a.tmpx")));
  EXPECT_THAT(Handle(Event(1, u"tmp")), Contains(ReceivedLine(1, "tmp")));
}

// The suffix is tested after the stream's name is cut off.
TEST_F(TheDriverSends, AStreamOfAFileOfNoInterestThatIsDropped) {
  EventMessage message = Event(1, u"C:\\a.tmp:Zone.Identifier");
  message.streamFlag = 0;
  EXPECT_THAT(Handle(message), ElementsAre(ACKNOWLEDGE));
}

TEST_F(TheDriverSends, AnEventOfAProcessThatHasGoneWhichIsDroppedSilently) {
  FailureLedger::OfThisProgram().Concerns("OpenProcess");
  EventMessage message = Event(1, u"\\a.txt");
  message.processId = 43;
  EXPECT_THAT(Handle(message), ElementsAre(ACKNOWLEDGE, "OpenProcess(0x1000, not inherited, 43)"));
}

TEST_F(TheDriverSends, AnEventOfAProcessWithoutAName) {
  system_.Fail("K32GetProcessImageFileNameW", 31);
  EXPECT_THAT(Handle(Event(1, u"\\a.txt")),
              Lines({ACKNOWLEDGE}) + OPENED + Lines({"log 3 Could not get process name. 31", CLOSE_PROCESS}));
}

TEST_F(TheDriverSends, AnEventThatCannotBeAcknowledgedAndIsHandledAllTheSame) {
  system_.Fail("FilterReplyMessage", 0x80070001);
  EXPECT_THAT(Handle(Event(1, u"\\a.txt")),
              Lines({ACKNOWLEDGE, "log 3 Error sending ACK message: HResult: 80070001"}) + OPENED +
                  Lines({ReceivedLine(1, "\\a.txt")}) + LOOK_UPS + Lines({CLOSE_PROCESS}));
}

TEST_F(TheDriverSends, AReadThatIsNoRealUpload) {
  EXPECT_THAT(
      Handle(Event(0, u"\\a.txt")),
      Lines({ACKNOWLEDGE}) + OPENED +
          Lines({ReceivedLine(0, "\\a.txt"),
                 "log 7 Ignore Upload event. Not a real upload for file: \\a.txt process " + PROCESS_NAME,
                 CLOSE_PROCESS}));
}

TEST_F(TheDriverSends, QueriesAndThenAReadThatIsFiled) {
  const Lines query = Lines({ACKNOWLEDGE}) + OPENED + Lines({ReceivedLine(2, "\\a.txt"), CLOSE_PROCESS});
  EXPECT_THAT(Handle(Event(2, u"\\a.txt")), query);
  EXPECT_THAT(Handle(Event(2, u"\\a.txt")), query);
  EXPECT_THAT(Handle(Event(0, u"\\a.txt")), Lines({ACKNOWLEDGE}) + OPENED +
                                                Lines({ReceivedLine(0, "\\a.txt")}) + LOOK_UPS +
                                                Lines({CLOSE_PROCESS}));
}

TEST_F(TheDriverSends, AStandardQueryThatTurnsTheNextReadDown) {
  Handle(Event(2, u"\\a.txt"));
  Handle(Event(2, u"\\a.txt"));
  EXPECT_THAT(Handle(Event(3, u"\\a.txt", 1500)),
              Lines({ACKNOWLEDGE}) + OPENED + Lines({ReceivedLine(3, "\\a.txt"), CLOSE_PROCESS}));
  EXPECT_THAT(
      Handle(Event(0, u"\\a.txt", 2000)),
      Lines({ACKNOWLEDGE}) + OPENED +
          Lines({ReceivedLine(0, "\\a.txt"), "log 6 Event negated for \\a.txt",
                 "log 7 Ignore Upload event. Not a real upload for file: \\a.txt process " + PROCESS_NAME,
                 CLOSE_PROCESS}));
}

// Of this program every process counts for itself.
TEST_F(TheDriverSends, AQueryThatAllowsTheReadsOfItsOwnProcessOnly) {
  system_.imageNames = {{42, L"\\winscp.exe"}, {43, L"\\winscp.exe"}};
  Handle(Event(3, u"\\a.txt"));
  EventMessage read = Event(0, u"\\a.txt");
  read.processId = 43;
  EXPECT_THAT(
      Handle(read),
      Contains("log 7 Ignore Upload event. Not a real upload for file: \\a.txt process \\winscp.exe"));
  EXPECT_THAT(Handle(Event(0, u"\\a.txt")), Contains("OpenProcessToken(process 42, 0x8)"));
}

TEST_F(TheDriverSends, AQueryThatWithdrawsTheReadBeforeIt) {
  system_.imageNames = {{42, L"\\Device\\HarddiskVolume3\\firefox.exe"}};
  Handle(Event(2, u"\\a.txt", 1000));
  Handle(Event(0, u"\\a.txt", 1100));
  EXPECT_THAT(Handle(Event(2, u"\\a.txt", 1200)),
              Contains("log 7 Removed from Upload cache: \\a.txt \\Device\\HarddiskVolume3\\firefox.exe"));
  // Gone from the cache: the next read is a new event, with a look-up of its own.
  Handle(Event(2, u"\\a.txt", 1300));
  EXPECT_THAT(Handle(Event(0, u"\\a.txt", 1400)), Contains("OpenProcessToken(process 42, 0x8)"));
}

// What a process writes it does not upload: its pending read of the file is forgotten.
TEST_F(TheDriverSends, AWriteThatWithdrawsTheReadOfTheSameProcess) {
  system_.imageNames = {{42, L"\\app.exe"}};
  EXPECT_THAT(Handle(Event(0, u"\\a.txt")), Contains("OpenProcessToken(process 42, 0x8)"));
  EXPECT_THAT(Handle(Event(0, u"\\a.txt")), Not(Contains("OpenProcessToken(process 42, 0x8)")));
  Handle(Event(1, u"\\a.txt"));
  EXPECT_THAT(Handle(Event(0, u"\\a.txt")), Contains("OpenProcessToken(process 42, 0x8)"));
}

TEST_F(TheDriverSends, CloudDriveEventsOfEveryType) {
  for (int type = 4; type <= 9; ++type) {
    const std::u16string name = u"\\" + std::u16string(1, static_cast<char16_t>(u'0' + type));
    EXPECT_THAT(Handle(Event(type, name)), Lines({ACKNOWLEDGE}) + OPENED +
                                               Lines({ReceivedLine(type, "\\" + std::to_string(type))}) +
                                               USER_LOOK_UP + Lines({CLOSE_PROCESS}));
  }
}

TEST_F(TheDriverSends, TypesThatItDoesNotKnow) {
  for (const int type : {10, 255, -1, -2147483647 - 1}) {
    EXPECT_THAT(Handle(Event(type, u"\\a")),
                Lines({ACKNOWLEDGE}) + OPENED +
                    Lines({ReceivedLine(type, "\\a"),
                           "log 3 Unhandled message from driver: " + std::to_string(type), CLOSE_PROCESS}));
  }
}

TEST_F(TheDriverSends, ANameWithoutATerminatorWhichIsCut) {
  EventMessage message = Event(1, std::u16string(512, u'n'));
  message.readSize = 0xFFFFFFFF;
  EXPECT_THAT(Handle(message), Contains("log 7 Received event: 42 " + std::string(511, 'n') + " " +
                                        PROCESS_NAME + " 1 -3 0 4294967295"));
}

TEST_F(TheDriverSends, AnEmptyName) {
  EXPECT_THAT(Handle(Event(1, u"")), Contains(ReceivedLine(1, "")));
}

TEST_F(TheDriverSends, AnEventOfAUserWhoCannotBeIdentified) {
  system_.Fail("OpenProcessToken", 5);
  EXPECT_THAT(Handle(Event(1, u"\\a.txt")),
              Lines({ACKNOWLEDGE}) + OPENED +
                  Lines({ReceivedLine(1, "\\a.txt"), "OpenProcessToken(process 42, 0x8)",
                         "log 3 Could not open process token. 5", "log 7 User not identified"}) +
                  TitlesLookUp() + Lines({CLOSE_PROCESS}));
}

// Any value of the notice but 1 means a file event.
TEST_F(TheDriverSends, ANoticeOfAnotherValueThatIsAFileEvent) {
  EventMessage message = Event(1, u"\\a.txt");
  message.unloadNotice = 2;
  EXPECT_THAT(Handle(message), Contains(ReceivedLine(1, "\\a.txt")));
}

TEST_F(TheDriverSends, ItsUnloadNoticeWhichEndsTheLoopAndLeavesThePortOpen) {
  EventMessage notice = Event(1, u"\\a.txt");
  notice.unloadNotice = 1;
  system_.Send(notice);
  ASSERT_TRUE(system_.WaitForThreadEnd(0));
  EXPECT_THAT(Loop(), ElementsAre(ACKNOWLEDGE, "log 6 Driver unloaded."));
  EXPECT_EQ(system_.OpenHandles(), handles_);
}

TEST_F(TheDriverSends, AnUnloadNoticeThatCannotBeAcknowledgedAndEndsTheLoopAllTheSame) {
  system_.Fail("FilterReplyMessage", 0x80070001);
  EventMessage notice = Event(1, u"\\a.txt");
  notice.unloadNotice = 1;
  system_.Send(notice);
  ASSERT_TRUE(system_.WaitForThreadEnd(0));
  CameTo("The notification loop: ends, and leaves the port open");
  EXPECT_THAT(Loop(), ElementsAre(ACKNOWLEDGE, "log 3 Error sending ACK message: HResult: 80070001",
                                  "log 6 Driver unloaded."));
}

TEST_F(TheDriverSends, NothingForSomeReasonAndTheLoopAsksAgain) {
  system_.FailReceive(static_cast<HRESULT>(0x800703E3));
  system_.FailReceive(static_cast<HRESULT>(0x80070057));
  ASSERT_TRUE(system_.WaitUntilHandled());
  CameTo("The notification loop: asks for the next message");
  EXPECT_THAT(
      Loop(),
      ElementsAre("log 3 Error getting message while receiving notifications: HResult: 800703e3", GET,
                  "log 3 Error getting message while receiving notifications: HResult: 80070057", GET));
  EXPECT_THAT(Handle(Event(1, u"\\a.txt")), Contains(ReceivedLine(1, "\\a.txt")));
}

// Only one code means that the port is no more.
TEST_F(TheDriverSends, FailuresOfManyKindsBetweenItsMessagesAndEveryMessageIsHandled) {
  for (const std::uint32_t code : {0x80070001U, 0x80070005U, 0x8007000EU, 0x8007001FU, 0x80070032U,
                                   0x8007007AU, 0x800703E5U, 0x800705AAU, 0x80070490U, 0x801F0013U,
                                   0x801F0020U, 0x80004005U, 0x8000FFFFU, 0x80000006U, 0xD0000006U}) {
    SCOPED_TRACE(code);
    system_.FailReceive(static_cast<HRESULT>(code));
    EXPECT_THAT(Handle(Event(10, u"\\a")), Contains("log 3 Unhandled message from driver: 10"));
  }
}

TEST_F(TheDriverSends, AMessageAfterAThousandFailures) {
  constexpr std::size_t FAILURES = 1000;
  for (std::size_t i = 0; i < FAILURES; ++i) system_.FailReceive(static_cast<HRESULT>(0x800703E3));
  EXPECT_THAT(Handle(Event(10, u"\\a")), Contains("log 3 Unhandled message from driver: 10"));
}

TEST_F(TheDriverSends, AnEventWhoseAcknowledgementFindsThePortInvalidAndIsHandledAllTheSame) {
  system_.Fail("FilterReplyMessage", 0x80070006);
  EXPECT_THAT(Handle(Event(1, u"\\a.txt")),
              Lines({ACKNOWLEDGE, "log 3 Error sending ACK message: HResult: 80070006"}) + OPENED +
                  Lines({ReceivedLine(1, "\\a.txt")}) + LOOK_UPS + Lines({CLOSE_PROCESS}));
  system_.Succeed("FilterReplyMessage");
  EXPECT_THAT(Handle(Event(10, u"\\a")), Contains("log 3 Unhandled message from driver: 10"));
}

TEST_F(TheDriverSends, AnInvalidPortWhichEndsTheLoopAndIsClosed) {
  system_.FailReceive(static_cast<HRESULT>(0x80070006));
  ASSERT_TRUE(system_.WaitForThreadEnd(0));
  CameTo("The notification loop: closes the port and ends");
  EXPECT_THAT(Loop(),
              ElementsAre("log 3 Error getting message while receiving notifications: HResult: 80070006",
                          "CloseHandle(notification port)"));
  EXPECT_THAT(system_.OpenHandles(), IsEmpty());
  Forget();
  // No longer connected, so there is nothing to unload or to close.
  EXPECT_TRUE(Unload());
  EXPECT_THAT(Calls(), ElementsAre("SetEvent(null)", "log 3 Disk Event thread is null, and can't be ended."));
}

// Stands before the scripted function and looks at the heap's count when the acknowledgement goes out.
class AcknowledgementWatch {
 public:
  explicit AcknowledgementWatch(HMODULE library)
      : patch_(library, "FilterReplyMessage", reinterpret_cast<void*>(&Reply)) {
    scripted_ = reinterpret_cast<Function>(patch_.Original());
  }

  static int AllocationsBefore() { return before_; }

 private:
  using Function = HRESULT(WINAPI*)(HANDLE, void*, DWORD);

  static HRESULT WINAPI Reply(HANDLE port, void* reply, DWORD size) {
    before_ = HeapWatch::Count();
    return scripted_(port, reply, size);
  }

  static inline Function scripted_ = nullptr;
  static inline std::atomic<int> before_{-1};
  ImportPatch patch_;
};

TEST_F(TheDriverSends, EventsThatAreAcknowledgedBeforeAnythingIsAllocated) {
  system_.drives = {{L"C:", L"\\Device\\HarddiskVolume3"}};
  const HeapWatch heap(library_.Module(), system_.ThreadIds().at(0));
  const AcknowledgementWatch acknowledgement(library_.Module());
  for (std::uint32_t source = 0; source <= 2; ++source) {
    EventMessage message =
        Event(1, u"\\Device\\HarddiskVolume3\\file with a longer name than a short string.txt");
    message.deviceSourceType = source;
    HeapWatch::Begin();
    system_.Send(message);
    ASSERT_TRUE(system_.WaitUntilHandled());
    EXPECT_EQ(AcknowledgementWatch::AllocationsBefore(), 0);
    EXPECT_THAT(HeapWatch::Count(), Gt(0)) << "handling an event allocates, or nothing was counted";
  }
}

class WhileTheLibraryIsLoading : public LibraryTest {};

TEST_F(WhileTheLibraryIsLoading, MessagesThatWaitAlreadyAreHandled) {
  for (int i = 0; i < 3; ++i) system_.Send(Event(10, u"\\a"));
  ASSERT_TRUE(Load());
  ASSERT_TRUE(system_.WaitUntilHandled());
  EXPECT_EQ(system_.transcript.StartingWith("log 3 Unhandled message from driver: 10").size(), 3U);
  EXPECT_THAT(system_.transcript.StartingWith("buffer not zeroed"), IsEmpty());
}

}  // namespace

}  // namespace ostrel::test
