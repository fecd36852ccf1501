#include "network/packet_reader.h"

#include <algorithm>
#include <array>
#include <functional>
#include <utility>

#include "network/network_device.h"
#include "platform_test.h"
#include "support/packet.h"

namespace ostrel::test {

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

constexpr wchar_t NAME[] = L"\\Device\\HarddiskVolume3\\Program Files\\chrome.exe";
constexpr int BLOCK_COUNT = 63;

const std::string WAIT = "WaitForMultipleObjects(any of 64: event, blocks in order, endless, 63 pending)";
const std::string CANCEL = "CancelIo(device)";
const std::string STOP = "SetEvent(event)";
const std::string OPEN = "OpenProcess(0x1000, not inherited, 42)";
const std::string GET_NAME = "K32GetProcessImageFileNameW(process 42, 512)";
const std::string CLOSE = "CloseHandle(process 42)";

const std::string WAIT_CHOICE =
    "the reader ends with one line and -1; an abandoned wait leaves no code, and counts as 735";

std::string Issue(int block) {
  return "DeviceIoControl(device, 0x222004, no input, 64 bytes of block " + std::to_string(block) +
         ", null, overlapped)";
}

std::string Result(int block) {
  return "GetOverlappedResult(device, block " + std::to_string(block) + ", wait)";
}

Lines operator+(Lines left, const Lines& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

Lines Started() {
  Lines lines = {"log 7 GetNWPacketInfo thread started"};
  for (int i = 0; i < BLOCK_COUNT; ++i) {
    lines.push_back("CreateEventW(auto reset, not set, null)");
    lines.push_back(Issue(i));
  }
  return lines;
}

Lines Ended() {
  Lines lines = {STOP, CANCEL};
  for (int i = 0; i < BLOCK_COUNT; ++i) lines.push_back(Result(i));
  return lines;
}

// Run on the test's own thread, so that everything that it does is in one order.
class ThePacketReader : public PlatformTest {
 protected:
  ThePacketReader() {
    system_.imageNames = {{42, NAME}, {43, L"\\Device\\Mup\\server\\b.exe"}};
    device_.Open();
    stop_ = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    system_.transcript.Clear();
  }
  ~ThePacketReader() override {
    CloseHandle(stop_);
    device_.Close();
  }

  using Step = std::function<void()>;

  // Each wait of the reader takes a step first; the wait after the last one gets the stop event.
  DWORD Run(std::deque<Step> steps) {
    network_.onWaits = std::move(steps);
    network_.onWaits.push_back([this] { SetEvent(stop_); });
    const DWORD exitCode = PacketReader(device_.Get(), stop_, givenUp_, uploads_, downloads_).Run();
    CameTo("The packet reader: exit code " + std::to_string(exitCode));
    return exitCode;
  }

  Step Report(const Packet& packet, std::size_t block = 0) {
    return [this, packet, block] { network_.Complete(block, packet); };
  }

  // What the reader did from its first wait to the stop.
  Lines Work() const {
    const Lines calls = Calls();
    const auto first = std::find(calls.begin(), calls.end(), WAIT);
    return Lines(first, std::find(first, calls.end(), STOP));
  }

  std::vector<IpPort> Streams(NetworkEventCache& cache, const wchar_t* name = NAME) {
    return cache.GetLikelyEvents(name, 0, 0, 1);
  }

  ScriptedNetwork network_{GetModuleHandleW(nullptr), system_};
  NetworkEventCache uploads_{1};
  NetworkEventCache downloads_{0};
  NetworkDevice device_;
  GivenUpFlag givenUp_ = std::make_shared<std::atomic<bool>>(false);
  HANDLE stop_ = nullptr;
};

TEST_F(ThePacketReader, KeepsSixtyThreeRequestsPendingAndTakesThemBackWhenItIsStopped) {
  EXPECT_EQ(Run({}), 0U);
  EXPECT_EQ(Calls(), Started() + Lines{WAIT} + Ended());
  EXPECT_EQ(network_.PendingCount(), 0U);
}

TEST_F(ThePacketReader, LeavesItsRequestsEventsOpenAndNothingElse) {
  EXPECT_EQ(Run({Report({})}), 0U);
  EXPECT_EQ(system_.OpenHandles(), Lines{"device"} + Lines(BLOCK_COUNT + 1, "event"));
}

TEST_F(ThePacketReader, ServesARequestAndMakesItAgainBeforeTheProcessIsClosed) {
  EXPECT_EQ(Run({Report({}, 7)}), 0U);
  EXPECT_THAT(Work(), ElementsAre(WAIT, Result(7), OPEN, GET_NAME,
                                  "log 7 added network event: upload \\Device\\HarddiskVolume3\\Program "
                                  "Files\\chrome.exe: 16777343:443 1000",
                                  Issue(7), CLOSE, WAIT));
}

TEST_F(ThePacketReader, HasSixtyThreeRequestsPendingBeforeEveryWait) {
  EXPECT_EQ(Run({Report({}, 0), Report({}, 62), Report({}, 31), Report({}, 0)}), 0U);
  EXPECT_EQ(system_.transcript.StartingWith("WaitForMultipleObjects"), Lines(5, WAIT));
}

TEST_F(ThePacketReader, ServesTheLowestOfSeveralCompletedRequestsFirst) {
  const auto reportThree = [this] {
    network_.Complete(62, Packet());
    network_.Complete(5, Packet());
    network_.Complete(20, Packet());
  };
  EXPECT_EQ(Run({reportThree, [] {}, [] {}}), 0U);
  Lines results = system_.transcript.StartingWith("GetOverlappedResult");
  results.resize(3);
  EXPECT_THAT(results, ElementsAre(Result(5), Result(20), Result(62)));
  EXPECT_EQ(downloads_.GetCacheCount(), 0U);
  EXPECT_EQ(uploads_.GetStreamCount(NAME), 1U);
}

TEST_F(ThePacketReader, ServesNothingMoreOnceItIsStopped) {
  const auto reportAndStop = [this] {
    for (std::size_t block = 0; block < BLOCK_COUNT; ++block) network_.Complete(block, Packet());
    SetEvent(stop_);
  };
  EXPECT_EQ(Run({reportAndStop}), 0U);
  EXPECT_THAT(system_.transcript.StartingWith("OpenProcess"), IsEmpty());
  EXPECT_EQ(uploads_.GetCacheCount(), 0U);
  EXPECT_EQ(network_.PendingCount(), 0U);
}

TEST_F(ThePacketReader, FilesARecordByEveryOneOfItsFields) {
  Packet packet;
  packet.bytes = 0x123456789ABC;
  packet.ipv4 = 0xFE01A8C0;
  packet.port = 50123;
  packet.time = 1795262400123;
  EXPECT_EQ(Run({Report(packet)}), 0U);
  EXPECT_THAT(Logs(), Contains("log 7 added network event: upload \\Device\\HarddiskVolume3\\Program "
                               "Files\\chrome.exe: 4261521600:50123 20015998343868"));
  const auto streams = Streams(uploads_);
  ASSERT_THAT(streams, SizeIs(1));
  EXPECT_EQ(streams[0].GetIpV4Address(), 0xFE01A8C0U);
  EXPECT_EQ(streams[0].GetPort(), 50123);
  EXPECT_EQ(streams[0].GetIpVersion(), IPV4);
  EXPECT_EQ(uploads_.PurgeEvents(1795262400123 + 70000), 0);
  EXPECT_EQ(uploads_.PurgeEvents(1795262400123 + 70001), 1);
}

TEST_F(ThePacketReader, FilesAnIpv4RecordWithoutWhatItsIpv6BytesHold) {
  Packet packet;
  packet.ipv6.fill(0xAB);
  EXPECT_EQ(Run({Report(packet)}), 0U);
  const auto streams = Streams(uploads_);
  ASSERT_THAT(streams, SizeIs(1));
  EXPECT_THAT(streams[0].GetIpV6Address(), ::testing::Each(0));
}

TEST_F(ThePacketReader, FilesAnIpv6RecordWithItsAddress) {
  Packet packet;
  packet.ipVersion = 2;
  packet.ipv6 = {0x20, 0x01, 0x0D, 0xB8, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  EXPECT_EQ(Run({Report(packet)}), 0U);
  const auto streams = Streams(uploads_);
  ASSERT_THAT(streams, SizeIs(1));
  EXPECT_EQ(streams[0].GetIpVersion(), IPV6);
  EXPECT_EQ(streams[0].GetIpV6Address(), packet.ipv6);
  EXPECT_EQ(streams[0].GetIpV4Address(), packet.ipv4);
}

TEST_F(ThePacketReader, FilesARecordOfAnUnknownIpVersionAsItIs) {
  Packet packet;
  packet.ipVersion = 77;
  packet.ipv6.fill(0xAB);
  EXPECT_EQ(Run({Report(packet)}), 0U);
  const auto streams = Streams(uploads_);
  ASSERT_THAT(streams, SizeIs(1));
  EXPECT_EQ(static_cast<int>(streams[0].GetIpVersion()), 77);
  EXPECT_THAT(streams[0].GetIpV6Address(), ::testing::Each(0));
}

TEST_F(ThePacketReader, FilesANegativePortAsItIs) {
  Packet packet;
  packet.port = -2;
  EXPECT_EQ(Run({Report(packet)}), 0U);
  const auto streams = Streams(uploads_);
  ASSERT_THAT(streams, SizeIs(1));
  EXPECT_EQ(streams[0].GetPort(), -2);
}

TEST_F(ThePacketReader, FilesDirectionZeroAsADownload) {
  Packet packet;
  packet.direction = 0;
  EXPECT_EQ(Run({Report(packet)}), 0U);
  EXPECT_EQ(downloads_.GetStreamCount(NAME), 1U);
  EXPECT_EQ(uploads_.GetCacheCount(), 0U);
}

TEST_F(ThePacketReader, FilesEveryOtherDirectionAsAnUpload) {
  for (const int direction : {1, 2, 0x80, 0xFF}) {
    SCOPED_TRACE(direction);
    ResetEvent(stop_);
    uploads_.PurgeAllEvents();
    Packet packet;
    packet.direction = static_cast<std::uint8_t>(direction);
    EXPECT_EQ(Run({Report(packet)}), 0U);
    EXPECT_EQ(uploads_.GetStreamCount(NAME), 1U);
    EXPECT_EQ(downloads_.GetCacheCount(), 0U);
  }
}

TEST_F(ThePacketReader, FilesUnderTheDevicePathOfEachProcess) {
  Packet other;
  other.processId = 43;
  EXPECT_EQ(Run({Report({}), Report(other)}), 0U);
  EXPECT_EQ(uploads_.GetCacheCount(), 2U);
  EXPECT_EQ(uploads_.GetStreamCount(NAME), 1U);
  EXPECT_EQ(uploads_.GetStreamCount(L"\\Device\\Mup\\server\\b.exe"), 1U);
}

TEST_F(ThePacketReader, AddsUpWhatOneStreamReports) {
  Packet second;
  second.bytes = 500;
  second.time = 6000;
  EXPECT_EQ(Run({Report({}), Report(second)}), 0U);
  EXPECT_THAT(Logs(), Contains("log 7 added to existing networkevent: upload "
                               "\\Device\\HarddiskVolume3\\Program Files\\chrome.exe: 16777343:443 500 "
                               "currentBytes: 1500"));
  EXPECT_EQ(uploads_.PurgeEvents(76000), 0);
  EXPECT_EQ(uploads_.PurgeEvents(76001), 1);
}

TEST_F(ThePacketReader, DropsTheRecordOfAProcessThatIsGoneWithoutAWord) {
  FailureLedger::OfThisProgram().Concerns("OpenProcess");
  Packet gone;
  gone.processId = 44;
  EXPECT_EQ(Run({Report(gone, 3)}), 0U);
  EXPECT_THAT(Work(), ElementsAre(WAIT, Result(3), "OpenProcess(0x1000, not inherited, 44)", Issue(3), WAIT));
  EXPECT_EQ(uploads_.GetCacheCount() + downloads_.GetCacheCount(), 0U);
}

TEST_F(ThePacketReader, DropsTheRecordOfAProcessWhoseNameCannotBeRead) {
  system_.Fail("K32GetProcessImageFileNameW", 31);
  EXPECT_EQ(Run({Report({}, 3)}), 0U);
  EXPECT_THAT(Work(), ElementsAre(WAIT, Result(3), OPEN, GET_NAME, "log 3 Could not get process name. 31",
                                  Issue(3), CLOSE, WAIT));
  EXPECT_EQ(uploads_.GetCacheCount() + downloads_.GetCacheCount(), 0U);
}

TEST_F(ThePacketReader, FilesNothingForARequestThatEndsWithoutARecord) {
  FailureLedger::OfThisProgram().Concerns("GetOverlappedResult");
  FailureLedger::OfThisProgram().Chosen(
      "GetOverlappedResult",
      "a record is zeroed before each request, so that one without a record names no process");
  EXPECT_EQ(Run({Report({}, 3), [this] { network_.CompleteWithoutRecord(3); }}), 0U);
  EXPECT_THAT(Logs(), Not(Contains(::testing::HasSubstr("added to existing"))));
  EXPECT_EQ(uploads_.PurgeEvents(5000 + 70001), 1);
  const Lines issued = system_.transcript.StartingWith(Issue(3));
  EXPECT_THAT(issued, SizeIs(3)) << "made again after each end";
}

// By then the device is closed, and the handle's number may be somebody else's.
TEST_F(ThePacketReader, NeitherFilesNorAsksForARecordOnceItIsGivenUp) {
  const Step giveUpAndReport = [this] {
    *givenUp_ = true;
    network_.Complete(3, Packet());
  };
  EXPECT_EQ(Run({giveUpAndReport}), 0U);
  EXPECT_THAT(Work(), Not(Contains(Issue(3))));
  EXPECT_EQ(uploads_.GetCacheCount(), 0U);
}

TEST_F(ThePacketReader, FilesRecordsThatTheDriverHasAtOnce) {
  Packet second;
  second.direction = 0;
  network_.Queue(Packet());
  network_.Queue(second);
  EXPECT_EQ(Run({[] {}, [] {}}), 0U);
  EXPECT_EQ(uploads_.GetStreamCount(NAME), 1U);
  EXPECT_EQ(downloads_.GetStreamCount(NAME), 1U);
}

// A refused request never completes: waiting for it would be endless.
TEST_F(ThePacketReader, WaitsAtItsEndForNoRequestThatTheDriverRefused) {
  FailureLedger::OfThisProgram().Chosen("DeviceIoControl", "a request that was refused is never made again");
  network_.readError = ERROR_INVALID_FUNCTION;
  EXPECT_EQ(Run({}), 0U);
  EXPECT_EQ(
      Calls(),
      Started() + Lines({"WaitForMultipleObjects(any of 64: event, blocks in order, endless, 0 pending)",
                         STOP, CANCEL}));
}

TEST_F(ThePacketReader, WaitsAtItsEndForAllButTheRequestThatWasRefused) {
  FailureLedger::OfThisProgram().Chosen("DeviceIoControl", "a request that was refused is never made again");
  const auto reportAndRefuse = [this] {
    network_.Complete(3, Packet());
    network_.readError = ERROR_GEN_FAILURE;
  };
  EXPECT_EQ(Run({reportAndRefuse}), 0U);
  EXPECT_THAT(system_.transcript.StartingWith("GetOverlappedResult"), SizeIs(1 + BLOCK_COUNT - 1));
  EXPECT_THAT(system_.transcript.StartingWith(Result(3)), SizeIs(1)) << "for its record only";
  EXPECT_EQ(network_.PendingCount(), 0U);
}

// Nothing may be waited for that nobody cancels.
TEST_F(ThePacketReader, SaysThatItsRequestsCannotBeCancelledAndEnds) {
  FailureLedger::OfThisProgram().Chosen(
      "CancelIo",
      "nothing is waited for that nobody cancels, and blocks that the driver still has are not freed");
  system_.Fail("CancelIo", 6);
  EXPECT_EQ(Run({}), 0U);
  EXPECT_EQ(Calls(), Started() + Lines({WAIT, STOP, CANCEL,
                                        "log 3 Could not cancel pending IO in NW driver. Code: 6"}));
}

TEST_F(ThePacketReader, EndsWhenItCannotWait) {
  FailureLedger::OfThisProgram().Chosen("WaitForMultipleObjects", WAIT_CHOICE);
  system_.Fail("WaitForMultipleObjects", 87, 2);
  EXPECT_EQ(Run({Report({}), [] {}, [] {}}), 0xFFFFFFFFU);
  Lines calls = Calls();
  calls.erase(calls.begin(), std::find(calls.begin(), calls.end(), Issue(0)) + 1);
  calls.erase(calls.begin(), std::find(calls.begin(), calls.end(), Issue(0)));
  Lines ended = Ended();
  ended.erase(ended.begin());
  EXPECT_EQ(calls, Lines({Issue(0), CLOSE, WAIT, "log 3 Could not wait for NW driver. Code: 87"}) + ended);
  EXPECT_EQ(network_.PendingCount(), 0U);
}

TEST_F(ThePacketReader, EndsWhenAWaitIsAbandoned) {
  FailureLedger::OfThisProgram().Chosen("WaitForMultipleObjects", WAIT_CHOICE);
  for (const DWORD result : {WAIT_ABANDONED_0, WAIT_ABANDONED_0 + 63}) {
    network_.waitResult = result;
    EXPECT_EQ(Run({}), 0xFFFFFFFFU);
    EXPECT_THAT(Logs(), Contains("log 3 Could not wait for NW driver. Code: 735"));
    EXPECT_THAT(system_.transcript.StartingWith("OpenProcess"), IsEmpty());
    EXPECT_EQ(network_.PendingCount(), 0U);
    system_.transcript.Clear();
  }
}

TEST_F(ThePacketReader, EndsWhenARequestHasNoEventToWaitOn) {
  FailureLedger::OfThisProgram().Chosen(
      "CreateEventW", "making it goes unchecked; the first wait then fails for the missing event");
  system_.Fail("CreateEventW", 8, 5);
  EXPECT_EQ(Run({}), 0xFFFFFFFFU);
  EXPECT_THAT(Logs(), Contains("log 3 Could not wait for NW driver. Code: 6"));
  EXPECT_EQ(network_.PendingCount(), 0U);
}

class ThePacketReaderThread : public PlatformTest {
 protected:
  ThePacketReaderThread() {
    system_.imageNames = {{42, NAME}};
    device_.Open();
    system_.transcript.Clear();
  }
  ~ThePacketReaderThread() override { device_.Close(); }

  DWORD ExitCode(std::size_t thread) const {
    const HANDLE handle = OpenThread(THREAD_QUERY_LIMITED_INFORMATION, FALSE, system_.ThreadIds().at(thread));
    DWORD code = 12345;
    GetExitCodeThread(handle, &code);
    CloseHandle(handle);
    return code;
  }

  bool Start() { return Returned("Starting the packet reader", thread_.Start(device_.Get())); }
  bool WaitUntilReading() const { return system_.transcript.WaitFor(WAIT); }

  // Keeps the reader at a completed request until it is let go.
  void Hold() {
    network_.Hold("GetOverlappedResult");
    network_.Complete(0, Packet());
    ASSERT_TRUE(network_.WaitUntilHeld());
  }

  NetworkEventCache uploads_{1};
  NetworkEventCache downloads_{0};
  NetworkDevice device_;
  ScriptedNetwork network_{GetModuleHandleW(nullptr), system_};
  PacketReaderThread thread_{uploads_, downloads_};
};

TEST_F(ThePacketReaderThread, StartsAndStops) {
  EXPECT_TRUE(Start());
  ASSERT_TRUE(WaitUntilReading());
  thread_.Stop();
  EXPECT_THAT(Calls(),
              ElementsAre("CreateEventW(manual reset, not set, null)", "CreateThread(null, stack 0, flags 0)",
                          "log 6 Started NW receive notification thread.", "SetEvent(event)",
                          "WaitForSingleObject(thread, 3000)", "log 7 GetNWPacketInfo thread ended"));
  ASSERT_TRUE(system_.WaitForThreadEnd(0));
  EXPECT_EQ(ExitCode(0), 0U);
  Lines ended = Ended();
  ended.erase(ended.begin());
  EXPECT_EQ(system_.transcript.Of(system_.ThreadIds().at(0)), Started() + Lines{WAIT} + ended);
  EXPECT_EQ(network_.PendingCount(), 0U);
}

TEST_F(ThePacketReaderThread, LeavesItsEventsAndItsHandleOpenAndNothingElse) {
  for (std::size_t round = 1; round <= 3; ++round) {
    ASSERT_TRUE(Start());
    ASSERT_TRUE(system_.transcript.WaitFor(WAIT, round));
    thread_.Stop();
    ASSERT_TRUE(system_.WaitForThreadEnd(round - 1));
    EXPECT_EQ(system_.OpenHandles(),
              Lines{"device"} + Lines(round * (BLOCK_COUNT + 1), "event") + Lines(round, "thread"));
  }
}

TEST_F(ThePacketReaderThread, FilesRecordsIntoTheTwoCaches) {
  ASSERT_TRUE(Start());
  ASSERT_TRUE(WaitUntilReading());
  Packet download;
  download.direction = 0;
  network_.Complete(1, Packet());
  network_.Complete(2, download);
  ASSERT_TRUE(system_.transcript.WaitFor("log 7 added network event: upload"));
  ASSERT_TRUE(system_.transcript.WaitFor("log 7 added network event: download"));
  thread_.Stop();
  EXPECT_EQ(uploads_.GetStreamCount(NAME), 1U);
  EXPECT_EQ(downloads_.GetStreamCount(NAME), 1U);
}

TEST_F(ThePacketReaderThread, ReadsAgainAfterAStop) {
  ASSERT_TRUE(Start());
  ASSERT_TRUE(WaitUntilReading());
  thread_.Stop();
  ASSERT_TRUE(system_.WaitForThreadEnd(0));
  system_.transcript.Clear();
  ASSERT_TRUE(Start());
  ASSERT_TRUE(WaitUntilReading());
  network_.Complete(62, Packet());
  EXPECT_TRUE(system_.transcript.WaitFor("log 7 added network event: upload"));
  thread_.Stop();
}

TEST_F(ThePacketReaderThread, SaysWhyItCannotBeStarted) {
  system_.Fail("CreateThread", 8);
  EXPECT_FALSE(Start());
  EXPECT_THAT(Calls(),
              ElementsAre("CreateEventW(manual reset, not set, null)", "CreateThread(null, stack 0, flags 0)",
                          "log 3 Could not start receive notification thread. Code: 8"));
}

// Only a time-out means that the reader goes on.
TEST_F(ThePacketReaderThread, CountsAsEndedWhenItCannotBeWaitedFor) {
  FailureLedger::OfThisProgram().Chosen("WaitForSingleObject", "any result but a time-out counts as the end");
  ASSERT_TRUE(Start());
  ASSERT_TRUE(WaitUntilReading());
  system_.transcript.Clear();
  system_.Fail("WaitForSingleObject", 6);
  thread_.Stop();
  CameTo("Stopping the packet reader: counts as ended");
  EXPECT_THAT(Calls(), ElementsAre("SetEvent(event)", "WaitForSingleObject(thread, 3000)",
                                   "log 7 GetNWPacketInfo thread ended"));
  EXPECT_TRUE(system_.WaitForThreadEnd(0));
}

TEST_F(ThePacketReaderThread, SaysWhyItHasNoStopEvent) {
  system_.Fail("CreateEventW", 1450);
  EXPECT_FALSE(Start());
  EXPECT_THAT(Calls(), ElementsAre("CreateEventW(manual reset, not set, null)",
                                   "log 3 Could not start receive notification thread. Code: 1450"));
}

// Only a wait that times out says that it goes on.
TEST_F(ThePacketReaderThread, CountsAsEndedWhenItNeverStarted) {
  system_.Fail("CreateThread", 8);
  ASSERT_FALSE(Start());
  FailureLedger::OfThisProgram().SetTheStage();
  system_.transcript.Clear();
  thread_.Stop();
  EXPECT_THAT(Logs(), ElementsAre("log 7 GetNWPacketInfo thread ended"));
}

// A stop that follows would otherwise reach for the reader of before.
TEST_F(ThePacketReaderThread, ForgetsTheReaderBeforeWhenItCannotBeStartedAgain) {
  ASSERT_TRUE(Start());
  ASSERT_TRUE(WaitUntilReading());
  thread_.Stop();
  ASSERT_TRUE(system_.WaitForThreadEnd(0));
  system_.Fail("CreateEventW", 1450);
  ASSERT_FALSE(Start());
  FailureLedger::OfThisProgram().SetTheStage();
  FailureLedger::OfThisProgram().Concerns("SetEvent");
  system_.transcript.Clear();
  thread_.Stop();
  CameTo("Stopping the packet reader: counts as ended");
  EXPECT_THAT(Calls(), ElementsAre("SetEvent(null)", "log 7 GetNWPacketInfo thread ended"));
}

TEST_F(ThePacketReaderThread, IsGivenUpOnAfterThreeSeconds) {
  FailureLedger::OfThisProgram().Concerns("WaitForSingleObject");
  FailureLedger::OfThisProgram().Chosen("WaitForSingleObject",
                                        "the reader asks for nothing more, and of what it has only a record "
                                        "that it is filing already is filed");
  system_.waitDivisor = 50;
  ASSERT_TRUE(Start());
  ASSERT_TRUE(WaitUntilReading());
  ASSERT_NO_FATAL_FAILURE(Hold());
  system_.transcript.Clear();
  thread_.Stop();
  EXPECT_THAT(Calls(), ElementsAre("SetEvent(event)", "WaitForSingleObject(thread, 3000)",
                                   "log 3 GetNWPacketInfo thread never ended."));
  CameTo("Stopping the packet reader: goes on without it");
  network_.LetGo();
  ASSERT_TRUE(system_.WaitForThreadEnd(0));
  EXPECT_EQ(network_.PendingCount(), 0U) << "it ends by itself once it can";
  // The device may be closed by then, and what it cancels somebody else's.
  const std::vector<std::string> results = system_.transcript.StartingWith("GetOverlappedResult");
  EXPECT_EQ(
      std::ranges::count_if(results, [](const std::string& call) { return call.ends_with(", no wait)"); }),
      BLOCK_COUNT - 1);
  EXPECT_EQ(uploads_.GetCacheCount(), 0U) << "what it held then comes too late";
}

// Its handles and blocks are not the new reader's.
TEST_F(ThePacketReaderThread, MayStillBeEndingWhenTheNextOneStarts) {
  system_.waitDivisor = 50;
  ASSERT_TRUE(Start());
  ASSERT_TRUE(WaitUntilReading());
  ASSERT_NO_FATAL_FAILURE(Hold());
  thread_.Stop();
  ASSERT_TRUE(Start());
  ASSERT_TRUE(system_.transcript.WaitFor(WAIT, 2));
  network_.LetGo();
  ASSERT_TRUE(system_.WaitForThreadEnd(0));
  EXPECT_EQ(network_.PendingCount(), static_cast<std::size_t>(BLOCK_COUNT));
  system_.waitDivisor = 1;
  thread_.Stop();
  EXPECT_EQ(Logs().back(), "log 7 GetNWPacketInfo thread ended");
  EXPECT_EQ(network_.PendingCount(), 0U);
}

}  // namespace

}  // namespace ostrel::test
