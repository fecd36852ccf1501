#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>

#include "network_test.h"
#include "support/heap_watch.h"
#include "support/test_thread.h"

namespace ostrel::test {

namespace {

using ostrel_test::TestThread;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

const std::string TURNING_ON = "log 6 Turning on tracking of remote address info.";
const std::string TURNING_OFF = "log 6 Turning off tracking of remote address info.";
const std::string CONNECTED = "log 6 Connected to NW driver successfully.";
const std::string DISCONNECTED = "log 6 Disconnected from NW driver successfully.";
const std::string STARTED = "log 6 Started NW receive notification thread.";
const std::string SENT = "log 6 Sent proc names to nw filter. Existing proc count: 1 ProcName Count: 2";
const std::string SUB_LAYER = "{b3241f1d-7cd2-4e7a-8721-2e97d07702e5}";

const Lines PROCESSES_FOUND = {"CreateToolhelp32Snapshot(0x2, 0)",
                               "Process32FirstW(process snapshot)",
                               "CreateToolhelp32Snapshot(0x8, 42)",
                               "Module32FirstW(modules of 42)",
                               "log 7 Added process 42 chrome.exe to list of processes to monitor",
                               "CloseHandle(modules of 42)",
                               "Process32NextW(process snapshot)",
                               "CloseHandle(process snapshot)"};

const Lines CALLOUTS_ADDED = {
    "log 7 Opening filtering engine.",
    "FwpmEngineOpen0(null, 10, null, 'Monitor Sample Non-Dynamic Session', 'For Adding callouts', flags 0x0)",
    "FwpmTransactionBegin0(Monitor Sample Non-Dynamic Session, 0)",
    "FwpmCalloutAdd0(Monitor Sample Non-Dynamic Session, {3aaccbc0-2c29-455f-bb91-0e801c8994a4}, "
    "'Established Callout', 'Established Callout', flags 0x10000, layer "
    "{af80470a-5596-4c13-9992-539e6fe57967}, null, null)",
    "FwpmCalloutAdd0(Monitor Sample Non-Dynamic Session, {cea0131a-6ed3-4ed6-b40c-8a8fe8434b0a}, "
    "'Stream Callout', 'Stream Callout', flags 0x10000, layer {3b89653c-c170-49e4-b1cd-e0eeeee19a3e}, null, "
    "null)",
    "FwpmTransactionCommit0(Monitor Sample Non-Dynamic Session)",
    "FwpmEngineClose0(Monitor Sample Non-Dynamic Session)"};

const Lines CALLOUTS_ADDED_V6 = {
    "log 7 Opening filtering engine V6.",
    "FwpmEngineOpen0(null, 10, null, 'Monitor Sample Non-Dynamic Session V6', 'For Adding callouts V6', "
    "flags "
    "0x0)",
    "FwpmTransactionBegin0(Monitor Sample Non-Dynamic Session V6, 0)",
    "FwpmCalloutAdd0(Monitor Sample Non-Dynamic Session V6, {30d7c71e-d02d-4f3e-86bd-116b09d6fd38}, "
    "'Established Callout', 'Established Callout', flags 0x10000, layer "
    "{7021d2b3-dfa4-406e-afeb-6afaf7e70efd}, null, null)",
    "FwpmCalloutAdd0(Monitor Sample Non-Dynamic Session V6, {27135921-0583-4eb9-a737-7b2ec4316859}, "
    "'Stream V6 Callout', 'Stream V6 Callout', flags 0x10000, layer {47c9137a-7ec4-46b3-b6e4-48e926b1eda4}, "
    "null, null)",
    "FwpmTransactionCommit0(Monitor Sample Non-Dynamic Session V6)",
    "FwpmEngineClose0(Monitor Sample Non-Dynamic Session V6)"};

const Lines SESSION_OPENED = {
    "FwpmEngineOpen0(null, 10, null, 'Monitor Sample Session', 'Monitors traffic at the Stream layer.', "
    "flags "
    "0x1)"};

const Lines DEVICE_OPENED = {
    "CreateFileW(\\\\.\\OstrelNWFilter, 0xc0000000, share 3, null, disposition 3, 0x40000000, null)"};

const std::string BEGIN = "FwpmTransactionBegin0(Monitor Sample Session, 0)";
const std::string COMMIT = "FwpmTransactionCommit0(Monitor Sample Session)";
const std::string ABORT = "FwpmTransactionAbort0(Monitor Sample Session)";

const Lines FILTERS_ADDED = {
    BEGIN,
    "FwpmSubLayerAdd0(Monitor Sample Session, " + SUB_LAYER +
        ", 'Monitor Sample Sub layer', 'Monitor Sample Sub layer', flags 0x0, weight 0, null)",
    "BuildExplicitAccessWithNameW('ann', permissions 0x1, mode 1, inheritance 0)",
    "BuildSecurityDescriptorW(null, null, 1 for name 'ann' with 0x1, 0, null, null)",
    "FwpmFilterAdd0(Monitor Sample Session, 'Flow established filter.', 'Sets up flow for traffic that we "
    "are "
    "interested in.', flags 0x0, layer {af80470a-5596-4c13-9992-539e6fe57967}, sub-layer " +
        SUB_LAYER +
        ", weight type 0, action 0x6004 {3aaccbc0-2c29-455f-bb91-0e801c8994a4}, condition "
        "{af043a0a-b34d-4f86-979c-c90371af6e66} match 0 type 14 descriptor of 20 bytes, condition "
        "{3971ef2b-623e-4f9a-8cb1-6e79b806b9a7} match 0 type 1 6, null, null)",
    "LocalFree(descriptor)",
    "FwpmFilterAdd0(Monitor Sample Session, 'Stream Layer Filter', 'Monitors TCP traffic.', flags 0x0, layer "
    "{3b89653c-c170-49e4-b1cd-e0eeeee19a3e}, sub-layer " +
        SUB_LAYER + ", weight type 0, action 0x6004 {cea0131a-6ed3-4ed6-b40c-8a8fe8434b0a}, null, null)",
    COMMIT,
    "log 6 Successfully configured NW monitoring."};

const std::string ADD_SUB_LAYER_V6 =
    "FwpmSubLayerAdd0(Monitor Sample Session, " + SUB_LAYER +
    ", 'V6 Monitor Sample Sub layer', 'V6 Monitor Sample Sub layer', flags 0x0, weight 0, null)";

// The sub-layer's key is taken.
const Lines FILTERS_REFUSED_V6 = {BEGIN, ADD_SUB_LAYER_V6, ABORT};

const std::string TELL_TO_MONITOR =
    "DeviceIoControl(device, 0x120004, 01 00 00 00 00 00 00 00, null of 0, returned, synchronous)";
const Lines MONITORING = {TELL_TO_MONITOR, "log 6 Ostrel NW monitoring enabled."};

const Lines STARTING_THE_READER = {"CreateEventW(manual reset, not set, null)",
                                   "CreateThread(null, stack 0, flags 0)", STARTED};

const Lines EVERYTHING = Lines{TURNING_ON} + STARTING_THE_SERVICE + PROCESSES_FOUND + CALLOUTS_ADDED +
                         CALLOUTS_ADDED_V6 + SESSION_OPENED + DEVICE_OPENED + FILTERS_ADDED +
                         FILTERS_REFUSED_V6 + MONITORING + STARTING_THE_READER +
                         Lines({CONNECTED, SEND_LIST, SENT});

std::uint32_t Number(const std::vector<std::uint8_t>& bytes, std::size_t offset) {
  return static_cast<std::uint32_t>(bytes.at(offset) | bytes.at(offset + 1) << 8 |
                                    bytes.at(offset + 2) << 16) |
         static_cast<std::uint32_t>(bytes.at(offset + 3)) << 24;
}

class RemoteAddressInfo : public NetworkTest {
 protected:
  // With the monitored user on record, and remote address info off.
  void Prepare() {
    ASSERT_NO_FATAL_FAILURE(TakeTheLogOnly());
    ASSERT_TRUE(EnableActivity(false));
    Forget();
  }

  // The log from that line on.
  Lines LogsFrom(const std::string& line) const {
    const Lines logs = Logs();
    return Lines(std::find(logs.begin(), logs.end(), line), logs.end());
  }
};

TEST_F(RemoteAddressInfo, TakesEveryStepInOrder) {
  ASSERT_NO_FATAL_FAILURE(Prepare());
  EnableRemote();
  EXPECT_EQ(Calls(), EVERYTHING);
}

TEST_F(RemoteAddressInfo, SendsTheNetworkDriverTheListThatItWasGiven) {
  ASSERT_NO_FATAL_FAILURE(Prepare());
  EnableRemote();
  ASSERT_EQ(network_.ProcessLists().size(), 1U);
  const auto list = network_.ProcessLists()[0];
  ASSERT_EQ(list.size(), 138176U);
  EXPECT_EQ(Number(list, 0), 7U);
  EXPECT_EQ(Number(list, 4), GetCurrentProcessId());
  EXPECT_EQ(Number(list, 8), 42U);
  EXPECT_EQ(list[2056], 'c');
  EXPECT_EQ(list[2056 + 64], 'f');
  EXPECT_EQ(Number(list, 138152), 1U);
  EXPECT_EQ(Number(list, 138156), 2U);
  EXPECT_EQ(list[138172], 0) << "the option";
  EXPECT_EQ(list[138173], 1) << "activity detection is on";
  EXPECT_EQ(list[138174], 1) << "the kind";
  EXPECT_EQ(system_.SentMessages().size(), 1U) << "nothing for the minifilter but what came before";
}

TEST_F(RemoteAddressInfo, SendsTheNetworkDriverThatActivityDetectionIsOff) {
  ASSERT_NO_FATAL_FAILURE(TakeTheLogOnly());
  EnableRemote();
  EXPECT_EQ(network_.ProcessLists().at(0).at(138173), 0);
  EXPECT_THAT(system_.SentMessages(), IsEmpty());
}

TEST_F(RemoteAddressInfo, IsOnAlreadyWithoutReadingTheList) {
  ASSERT_NO_FATAL_FAILURE(Prepare());
  EnableRemote();
  Forget();
  FailureLedger::OfThisProgram().FailedOtherwise("Remote address info", "is on already");
  // An array that nobody may touch.
  library_.EnableRemoteAddressInfo(reinterpret_cast<const wchar_t**>(8), 1000);
  CameTo("EnableRemoteAddressInfo: it is on already");
  EXPECT_THAT(Calls(), ElementsAre("log 7 Remote address capturing already enabled."));
}

TEST_F(RemoteAddressInfo, IsOffAlready) {
  ASSERT_NO_FATAL_FAILURE(Prepare());
  FailureLedger::OfThisProgram().FailedOtherwise("Remote address info", "is off already");
  DisableRemote();
  EXPECT_THAT(Calls(), ElementsAre("log 7 Remote address capturing already disabled."));
}

TEST_F(RemoteAddressInfo, TakesAListOf2147483648AndMoreForEmpty) {
  ASSERT_NO_FATAL_FAILURE(TakeTheLogOnly());
  for (const std::uint32_t count : {0x80000000U, 0xFFFFFFFFU}) {
    library_.EnableRemoteAddressInfo(reinterpret_cast<const wchar_t**>(8), count);
    EXPECT_EQ(Number(network_.ProcessLists().back(), 138156), 0U);
    DisableRemote();
    library_.UpdateProcesses(reinterpret_cast<const wchar_t**>(8), count, 0);
    EXPECT_EQ(Number(system_.SentMessages().back(), 138156), 0U);
  }
}

TEST_F(RemoteAddressInfo, CannotResolveAUserThatWasNeverNamed) {
  FailureLedger::OfThisProgram().Concerns("BuildSecurityDescriptorW");
  FailureLedger::OfThisProgram().Chosen("BuildSecurityDescriptorW",
                                        "the condition on the user stays, with an empty descriptor");
  ASSERT_NO_FATAL_FAILURE(TakeTheLogOnly());
  EnableRemote();
  EXPECT_THAT(Calls(), Contains("BuildExplicitAccessWithNameW('', permissions 0x1, mode 1, inheritance 0)"));
  EXPECT_THAT(
      LogsFrom("log 3 Couldn't resolve user. 1332\n"),
      ElementsAre("log 3 Couldn't resolve user. 1332\n", "log 6 Successfully configured NW monitoring.",
                  "log 6 Ostrel NW monitoring enabled.", STARTED, CONNECTED, SENT));
}

TEST_F(RemoteAddressInfo, IsSwitchedOffInOrder) {
  ASSERT_NO_FATAL_FAILURE(Prepare());
  EnableRemote();
  ASSERT_TRUE(WaitUntilReading());
  Forget();
  DisableRemote();
  EXPECT_EQ(Calls(), Lines{TURNING_OFF} + STOPPING_THE_SERVICE + STOPPING_THE_READER);
}

// The session keeps the filters in force; thread and events may still be used by a reader that is late.
TEST_F(RemoteAddressInfo, LeavesItsSessionItsThreadAndItsEventsOpenAndNothingElse) {
  ASSERT_NO_FATAL_FAILURE(Prepare());
  for (std::size_t round = 1; round <= 3; ++round) {
    EnableRemote();
    ASSERT_TRUE(WaitUntilReading(round));
    DisableRemote();
    EXPECT_EQ(system_.OpenHandles(),
              Lines(round, "Monitor Sample Session") + Lines(64 * round, "event") + Lines(round, "thread"));
  }
}

// Callouts outlive everything, and the first session still holds the sub-layer's key.
TEST_F(RemoteAddressInfo, SwitchedOnAgainFindsItsCalloutsAndOpensASecondSession) {
  ASSERT_NO_FATAL_FAILURE(Prepare());
  EnableRemote();
  ASSERT_TRUE(WaitUntilReading());
  DisableRemote();
  Forget();
  EnableRemote();
  const auto exist = [](Lines added, const std::string& line) {
    added.resize(4);
    std::string session = added[2].substr(std::string("FwpmTransactionBegin0(").size());
    session.resize(session.size() - std::string(", 0)").size());
    return added +
           Lines({line, "FwpmTransactionAbort0(" + session + ")", "FwpmEngineClose0(" + session + ")"});
  };
  EXPECT_EQ(Calls(), Lines{TURNING_ON} + STARTING_THE_SERVICE + PROCESSES_FOUND +
                         exist(CALLOUTS_ADDED, "log 6 Callouts already exist. This is OK.") +
                         exist(CALLOUTS_ADDED_V6, "log 6 V6 Callouts already exist. This is OK.") +
                         SESSION_OPENED + DEVICE_OPENED + Lines({BEGIN, FILTERS_ADDED[1], ABORT}) +
                         FILTERS_REFUSED_V6 + MONITORING + STARTING_THE_READER +
                         Lines({CONNECTED, SEND_LIST, SENT}));
}

TEST_F(RemoteAddressInfo, ReadsRecordsAgainAfterItWasSwitchedOffAndOn) {
  ASSERT_NO_FATAL_FAILURE(Prepare());
  EnableRemote();
  ASSERT_TRUE(WaitUntilReading());
  DisableRemote();
  EnableRemote();
  ASSERT_TRUE(WaitUntilReading(2));
  network_.Complete(62, Packet());
  EXPECT_TRUE(
      system_.transcript.WaitFor("log 7 added network event: upload "
                                 "\\Device\\HarddiskVolume3\\chrome.exe: 16777343:443 1000"));
}

TEST_F(RemoteAddressInfo, SwitchedOffForgetsTheStreamsOfBothDirections) {
  ASSERT_NO_FATAL_FAILURE(Prepare());
  Packet download;
  download.direction = 0;
  for (int round = 1; round <= 2; ++round) {
    Forget();
    EnableRemote();
    ASSERT_TRUE(WaitUntilReading());
    network_.Complete(0, Packet());
    network_.Complete(1, download);
    EXPECT_TRUE(system_.transcript.WaitFor("log 7 added network event: upload"));
    EXPECT_TRUE(system_.transcript.WaitFor("log 7 added network event: download"));
    DisableRemote();
    EXPECT_THAT(system_.transcript.StartingWith("log 7 added to existing"), IsEmpty());
  }
}

TEST_F(RemoteAddressInfo, SwitchedOffSaysSoWhenTheServiceCannotBeStopped) {
  ASSERT_NO_FATAL_FAILURE(Prepare());
  EnableRemote();
  ASSERT_TRUE(WaitUntilReading());
  Forget();
  system_.Fail("OpenServiceW", 1060);
  DisableRemote();
  EXPECT_THAT(Logs(), ElementsAre(TURNING_OFF, "log 3 OpenService failed (1060).",
                                  "log 7 GetNWPacketInfo thread ended", "log 7 Closed handle to NW driver.",
                                  DISCONNECTED));
  Forget();
  DisableRemote();
  EXPECT_THAT(Logs(), ElementsAre("log 7 Remote address capturing already disabled."));
}

// The reader may still be in the driver.
TEST_F(RemoteAddressInfo, SwitchedOffClosesTheDeviceAlthoughTheReaderDoesNotEnd) {
  FailureLedger::OfThisProgram().Concerns("WaitForSingleObject");
  ASSERT_NO_FATAL_FAILURE(Prepare());
  system_.waitDivisor = 50;
  EnableRemote();
  ASSERT_TRUE(WaitUntilReading());
  network_.Hold("GetOverlappedResult");
  network_.Complete(0, Packet());
  ASSERT_TRUE(network_.WaitUntilHeld());
  Forget();
  DisableRemote();
  EXPECT_THAT(LogsFrom("log 3 GetNWPacketInfo thread never ended."),
              ElementsAre("log 3 GetNWPacketInfo thread never ended.", "log 7 Closed handle to NW driver.",
                          DISCONNECTED));
  FailureLedger::OfThisProgram().Concerns("CancelIo");
  FailureLedger::OfThisProgram().Chosen(
      "CancelIo", "nothing is waited for any more, and what the driver still has is kept");
  network_.LetGo();
  EXPECT_TRUE(system_.WaitForThreadEnd(0));
  CameTo("The packet reader: ends, although the device was closed under it");
  EXPECT_EQ(system_.transcript.Of(system_.ThreadIds().at(0)).back(),
            "log 3 Could not cancel pending IO in NW driver. Code: 6");
}

// One step that fails, and the log that is left from it on.
struct FailingStep {
  const char* name;
  std::string function;
  DWORD code;
  int call;
  Lines logs;
};

void PrintTo(const FailingStep& step, std::ostream* stream) {
  *stream << step.name;
}

const std::string CONFIGURED = "log 6 Successfully configured NW monitoring.";
const std::string ENABLED = "log 6 Ostrel NW monitoring enabled.";
const std::string ADDED_PROCESS = "log 7 Added process 42 chrome.exe to list of processes to monitor";
const std::string OPENING = "log 7 Opening filtering engine.";
const std::string OPENING_V6 = "log 7 Opening filtering engine V6.";
const std::string SERVICE_IS_STOPPED = "log 6 Stopped nw filter driver successfully.";
const std::string NOT_SENT = "log 6 Failed to send proc names to nw filter: 6";
const Lines REST_AFTER_FILTERS = {ENABLED, STARTED, CONNECTED, SENT};
const Lines REST_AFTER_PROCESSES =
    Lines({ADDED_PROCESS, OPENING, OPENING_V6, CONFIGURED}) + REST_AFTER_FILTERS;

const FailingStep FAILING_STEPS[] = {
    {"TheManager", "OpenSCManagerW", 5, 0,
     Lines({"log 3 OpenSCManager failed (5).", "log 3 OpenSCManager failed (5)."}) + REST_AFTER_PROCESSES},
    {"TheService", "OpenServiceW", 1060, 0,
     Lines({"log 3 OpenService failed (1060).", "log 3 OpenService failed (1060)."}) + REST_AFTER_PROCESSES},
    {"StartingTheService", "StartServiceW", 1058, 0,
     Lines({SERVICE_IS_STOPPED, "log 3 StartService failed (1058)."}) + REST_AFTER_PROCESSES},
    {"TheListOfProcesses", "CreateToolhelp32Snapshot", 8, 0,
     Lines({SERVICE_IS_STOPPED, "log 6 Started nw filter driver successfully.",
            "log 3 Could not get system snapshot. 8", OPENING, OPENING_V6, CONFIGURED, ENABLED, STARTED,
            CONNECTED, "log 6 Sent proc names to nw filter. Existing proc count: 0 ProcName Count: 2"})},
    {"EveryEngine",
     "FwpmEngineOpen0",
     1753,
     0,
     {OPENING, "log 3 Could not open filtering engine. 1753", OPENING_V6,
      "log 3 Could not open filtering engine V6. 1753", "log 3 Could not open filtering engine. 1753",
      STARTED, CONNECTED, NOT_SENT}},
    {"TheFirstEngine", "FwpmEngineOpen0", 1753, 1,
     Lines({OPENING, "log 3 Could not open filtering engine. 1753", OPENING_V6, CONFIGURED}) +
         REST_AFTER_FILTERS},
    {"TheSecondEngine", "FwpmEngineOpen0", 1753, 2,
     Lines({OPENING_V6, "log 3 Could not open filtering engine V6. 1753", CONFIGURED}) + REST_AFTER_FILTERS},
    {"EveryTransaction",
     "FwpmTransactionBegin0",
     31,
     0,
     {OPENING, "log 3 Could not start transaction for adding callouts. 31", OPENING_V6,
      "log 3 Could not start transaction for adding V6 callouts. 31",
      "log 3 Could not add filters. -2144206835", STARTED, CONNECTED, SENT}},
    {"TheTransactionOfTheSecondFilters",
     "FwpmTransactionBegin0",
     31,
     4,
     {CONFIGURED, "log 3 Could not add V6 filters. -2144206835", STARTED, CONNECTED, SENT}},
    {"EveryCallout", "FwpmCalloutAdd0", 31, 0,
     Lines({OPENING, "log 3 Could not add persistent flow callout. 31", OPENING_V6,
            "log 3 Could not add persistent flow callout V6. 31", CONFIGURED}) +
         REST_AFTER_FILTERS},
    {"EveryCommit",
     "FwpmTransactionCommit0",
     31,
     0,
     {OPENING, "log 3 Could not commit transaction. 31", OPENING_V6,
      "log 3 Could not commit V6 transaction. 31", "log 3 Could not add filters. 31", STARTED, CONNECTED,
      SENT}},
    {"EveryAbort",
     "FwpmTransactionAbort0",
     31,
     0,
     {CONFIGURED, "log 3 Could not add V6 filters. 31", STARTED, CONNECTED, SENT}},
    {"TheSubLayer", "FwpmSubLayerAdd0", 31, 0, REST_AFTER_FILTERS},
    {"EveryFilter", "FwpmFilterAdd0", 31, 0, REST_AFTER_FILTERS},
    {"TheUser", "BuildSecurityDescriptorW", 1332, 1,
     Lines({"log 3 Couldn't resolve user. 1332\n", CONFIGURED}) + REST_AFTER_FILTERS},
    {"TheDevice", "CreateFileW", 2, 0, {"log 3 Could not open monitoring. 2", STARTED, CONNECTED, NOT_SENT}},
    {"TheDeviceWithoutACode",
     "CreateFileW",
     0,
     0,
     {CONFIGURED, "log 3 Could not enable monitoring. 6", STARTED, CONNECTED, NOT_SENT}},
    {"Monitoring",
     TELL_TO_MONITOR,
     50,
     0,
     {"log 3 Could not enable monitoring. 50", STARTED, CONNECTED, SENT}},
    {"MonitoringWithoutACode", TELL_TO_MONITOR, 0, 0, REST_AFTER_FILTERS},
    {"TheReadersStopEvent",
     "CreateEventW",
     1450,
     0,
     {"log 3 Could not start receive notification thread. Code: 1450", CONNECTED, SENT}},
    {"TheReadersThread",
     "CreateThread",
     8,
     0,
     {"log 3 Could not start receive notification thread. Code: 8", CONNECTED, SENT}},
    {"SendingTheList", SEND_LIST, 1117, 0, {"log 6 Failed to send proc names to nw filter: 1117"}},
};

class RemoteAddressInfoWithout : public RemoteAddressInfo,
                                 public ::testing::WithParamInterface<FailingStep> {};

TEST_P(RemoteAddressInfoWithout, TakesTheStepsThatFollowAndIsOn) {
  FailureLedger::OfThisProgram().Chosen("BuildSecurityDescriptorW",
                                        "the condition on the user stays, with an empty descriptor");
  ASSERT_NO_FATAL_FAILURE(Prepare());
  system_.Fail(GetParam().function, GetParam().code, GetParam().call);
  EnableRemote();
  Lines end = Logs();
  ASSERT_GE(end.size(), GetParam().logs.size());
  end.erase(end.begin(), end.end() - static_cast<std::ptrdiff_t>(GetParam().logs.size()));
  EXPECT_EQ(end, GetParam().logs);
  system_.Succeed(GetParam().function);
  Forget();
  EnableRemote();
  EXPECT_THAT(Logs(), ElementsAre("log 7 Remote address capturing already enabled."));
  Forget();
  DisableRemote();
  EXPECT_EQ(Logs().front(), TURNING_OFF);
  EXPECT_EQ(Logs().back(), DISCONNECTED);
}

INSTANTIATE_TEST_SUITE_P(AStep, RemoteAddressInfoWithout, ::testing::ValuesIn(FAILING_STEPS),
                         [](const auto& step) { return std::string(step.param.name); });

TEST_F(RemoteAddressInfo, CannotMonitorThroughADeviceWithoutAHandle) {
  ASSERT_NO_FATAL_FAILURE(Prepare());
  network_.opensNull = true;
  FailureLedger::OfThisProgram().FailedOtherwise("Handle of the network driver's device", "null");
  EnableRemote();
  EXPECT_THAT(LogsFrom("log 3 Could not enable monitoring. 87"),
              ElementsAre("log 3 Could not enable monitoring. 87", STARTED, CONNECTED, NOT_SENT));
}

// The device was never opened, and is not closed in vain only for that.
TEST_F(RemoteAddressInfo, SwitchedOffSaysThatThereIsNoDeviceToClose) {
  ASSERT_NO_FATAL_FAILURE(Prepare());
  system_.Fail("FwpmEngineOpen0", 1753);
  EnableRemote();
  ASSERT_TRUE(WaitUntilReading());
  FailureLedger::OfThisProgram().SetTheStage();
  FailureLedger::OfThisProgram().Concerns("CloseHandle");
  Forget();
  DisableRemote();
  EXPECT_THAT(LogsFrom("log 7 GetNWPacketInfo thread ended"),
              ElementsAre("log 7 GetNWPacketInfo thread ended",
                          "log 3 Could not close handle to NW driver. Code: 6", DISCONNECTED));
  EXPECT_THAT(system_.transcript.StartingWith("log 3 Could not cancel"),
              ElementsAre("log 3 Could not cancel pending IO in NW driver. Code: 6"));
}

TEST_F(RemoteAddressInfo, IsSwitchedOnByActivityDetectionBeforeTheMinifilterIsTold) {
  ASSERT_NO_FATAL_FAILURE(TakeTheLogOnly());
  EXPECT_TRUE(EnableActivity(true));
  EXPECT_EQ(Calls(),
            Lines({"log 6 Created filter processor with pCount=2, exCount=0",
                   "log 7 Monitoring process: Chrome.exe", "log 7 Monitoring process: FIREFOX.EXE"}) +
                PROCESSES_FOUND + EVERYTHING +
                Lines({"log 6 Enabled Application Activity Detection.",
                       "FilterConnectCommunicationPort(\\FB6CBA80-7A14-42C2-8697-0D4F43B3405F, 0, 0 bytes)",
                       "FilterSendMessage(control port, 138176 bytes, no reply 0)", SEND_LIST, SENT,
                       "CloseHandle(control port)"}));
  const auto lists = network_.ProcessLists();
  ASSERT_EQ(lists.size(), 2U);
  EXPECT_EQ(lists[0][138172], 0) << "its own message carries no option";
  EXPECT_EQ(lists[0][138173], 1);
  EXPECT_EQ(lists[1], system_.SentMessages().at(0));
  EXPECT_EQ(lists[1][138172], 9);
}

TEST_F(RemoteAddressInfo, IsLeftAsItIsByActivityDetectionThatDoesNotAskForIt) {
  ASSERT_NO_FATAL_FAILURE(TakeTheLogOnly());
  EXPECT_TRUE(EnableActivity(false));
  EXPECT_THAT(Logs(), Not(Contains(TURNING_ON)));
  library_.DisableActivityDetection();
  EnableRemote();
  EXPECT_TRUE(EnableActivity(false));
  EXPECT_TRUE(library_.DisableActivityDetection());
  EXPECT_THAT(Logs(), Not(Contains(TURNING_OFF)));
}

TEST_F(RemoteAddressInfo, IsNotSwitchedOnByActivityDetectionThatIsOnAlready) {
  ASSERT_NO_FATAL_FAILURE(Prepare());
  FailureLedger::OfThisProgram().FailedOtherwise("Activity detection", "is on already");
  EXPECT_FALSE(EnableActivity(true));
  EXPECT_THAT(Calls(), ElementsAre("log 6 Application activity already turned on."));
}

TEST_F(RemoteAddressInfo, IsForTheUserWhoWasNamedLast) {
  ASSERT_NO_FATAL_FAILURE(TakeTheLogOnly());
  EXPECT_TRUE(EnableActivity(false, L"ann"));
  EXPECT_TRUE(library_.DisableActivityDetection());
  EXPECT_TRUE(EnableActivity(true, L"bob"));
  EXPECT_THAT(system_.transcript.StartingWith("BuildExplicitAccessWithNameW"),
              ElementsAre("BuildExplicitAccessWithNameW('bob', permissions 0x1, mode 1, inheritance 0)"));
}

TEST_F(RemoteAddressInfo, IsStoppedByUnloadingAfterTheDiskEventThread) {
  ASSERT_NO_FATAL_FAILURE(LoadAndForget());
  EnableRemote();
  ASSERT_TRUE(WaitUntilReading());
  Forget();
  EXPECT_TRUE(Unload());
  EXPECT_EQ(Calls(), PrivilegeCalls() +
                         Lines({"FilterUnload(OstrelFilter)", "CloseHandle(notification port)",
                                "log 6 Closed driver handle successfully", "SetEvent(event)",
                                "WaitForSingleObject(thread, 3000)", "log 7 Disk Event thread ended",
                                "CloseHandle(thread)"}) +
                         STOPPING_THE_SERVICE + STOPPING_THE_READER);
}

TEST_F(RemoteAddressInfo, StaysOnAcrossUnloading) {
  ASSERT_NO_FATAL_FAILURE(LoadAndForget());
  EnableRemote();
  ASSERT_TRUE(WaitUntilReading());
  ASSERT_TRUE(Unload());
  Forget();
  EnableRemote();
  EXPECT_THAT(Calls(), ElementsAre("log 7 Remote address capturing already enabled."));
}

// Only switching it off forgets them. A record that is being filed while unloading waits for the reader in
// vain shows what the cache still has.
TEST_F(RemoteAddressInfo, KeepsItsStreamsAcrossUnloading) {
  ostrel_test::Signal late;
  ostrel_test::Signal letGo;
  std::atomic<int> look_ups = 0;
  system_.onImageName = [&] {
    if (++look_ups != 2) return;
    late.Set();
    letGo.WaitFor(ostrel_test::DEADLINE);
  };
  ASSERT_NO_FATAL_FAILURE(LoadAndForget());
  system_.waitDivisor = 50;
  EnableRemote();
  ASSERT_TRUE(WaitUntilReading());
  Packet packet;
  packet.time = ~std::uint64_t{0} - 100000;  // never too old
  network_.Complete(0, packet);
  ASSERT_TRUE(system_.transcript.WaitFor("log 7 added network event: upload"));
  // The request is pending again only then.
  ASSERT_TRUE(WaitUntilReading(2));
  network_.Complete(0, packet);
  ASSERT_TRUE(late.WaitFor(ostrel_test::DEADLINE));
  ASSERT_TRUE(Unload());
  letGo.Set();
  EXPECT_TRUE(system_.transcript.WaitFor("log 7 added to existing networkevent: upload"));
}

// What the reader still files while it is being stopped is forgotten as well.
TEST_F(RemoteAddressInfo, SwitchedOffForgetsOnlyOnceTheReaderHasEnded) {
  ASSERT_NO_FATAL_FAILURE(Prepare());
  for (int round = 1; round <= 2; ++round) {
    Forget();
    EnableRemote();
    ASSERT_TRUE(WaitUntilReading());
    network_.Hold("GetOverlappedResult");
    network_.Complete(0, Packet());
    ASSERT_TRUE(network_.WaitUntilHeld());
    const ostrel_test::TestThread switchingOff([this] { DisableRemote(); });
    ASSERT_TRUE(system_.transcript.WaitFor("WaitForSingleObject(thread, 3000)"));
    network_.LetGo();
    EXPECT_TRUE(system_.transcript.WaitFor(DISCONNECTED));
    EXPECT_THAT(system_.transcript.StartingWith("log 7 added network event"), SizeIs(1)) << round;
  }
}

TEST_F(RemoteAddressInfo, IsLeftRunningByUnloadingWhatIsNotLoaded) {
  ASSERT_NO_FATAL_FAILURE(TakeTheLogOnly());
  EnableRemote();
  ASSERT_TRUE(WaitUntilReading());
  Forget();
  EXPECT_TRUE(Unload());
  EXPECT_THAT(Calls(), ElementsAre("log 6 Ostrel filtering library already unloaded."));
}

TEST_F(RemoteAddressInfo, CutsTheUsersNameAt255Characters) {
  ASSERT_NO_FATAL_FAILURE(TakeTheLogOnly());
  EXPECT_TRUE(EnableActivity(true, std::wstring(256, L'u').c_str()));
  EXPECT_THAT(system_.transcript.StartingWith("BuildExplicitAccessWithNameW"),
              ElementsAre("BuildExplicitAccessWithNameW('" + std::string(255, 'u') +
                          "', permissions 0x1, mode 1, inheritance 0)"));
}

// Memory that the list or the reader lacks keeps no step that needs none from being taken.
TEST_F(RemoteAddressInfo, TakesItsOtherStepsWithAnyOfItsAllocationsRefused) {
  ASSERT_NO_FATAL_FAILURE(Prepare());
  const HeapWatch heap(library_.Module());
  bool wasRefused = true;
  for (int allocation = 1; wasRefused; ++allocation) {
    SCOPED_TRACE(allocation);
    Forget();
    network_.ForgetKeys();
    HeapWatch::Begin(allocation);
    EnableRemote();
    wasRefused = HeapWatch::HasRefused();
    HeapWatch::Begin();
    EXPECT_THAT(Logs(), Contains("log 6 Ostrel NW monitoring enabled."));
    EXPECT_THAT(Logs(), Contains("log 6 Connected to NW driver successfully."));
    const bool listFailed = Logs().back() == "log 6 Failed to send proc names to nw filter: 8";
    const bool readerFailed =
        !system_.transcript.StartingWith("log 3 Could not start receive notification thread. Code: 8")
             .empty();
    EXPECT_EQ(listFailed || readerFailed, wasRefused) << "every refusal is told";
    DisableRemote();
  }
}

TEST_F(RemoteAddressInfo, MakesUnloadingFailWhenItsServiceCannotBeStopped) {
  ASSERT_NO_FATAL_FAILURE(LoadAndForget());
  EnableRemote();
  ASSERT_TRUE(WaitUntilReading());
  Forget();
  system_.Fail("ControlService", 1062);
  EXPECT_FALSE(Unload());
  EXPECT_THAT(
      Logs(),
      ElementsAre("log 6 Closed driver handle successfully", "log 7 Disk Event thread ended",
                  "log 6 ControlService failed to stop network filter or it wasn't running. 1062",
                  "log 7 GetNWPacketInfo thread ended", "log 7 Closed handle to NW driver.", DISCONNECTED));
}

TEST_F(RemoteAddressInfo, DoesNotMakeUpForAMinifilterThatCannotBeUnloaded) {
  ASSERT_NO_FATAL_FAILURE(LoadAndForget());
  EnableRemote();
  ASSERT_TRUE(WaitUntilReading());
  Forget();
  system_.Fail("FilterUnload", 0x801F0010);
  EXPECT_FALSE(Unload());
  FailureLedger::OfThisProgram().SetTheStage();
  EXPECT_THAT(Logs(), Contains("log 6 Stopped nw filter driver successfully."));
  EXPECT_EQ(Logs().back(), DISCONNECTED);
}

TEST_F(RemoteAddressInfo, IsLeftAloneByUnloadingWhileItIsOff) {
  ASSERT_NO_FATAL_FAILURE(LoadAndForget());
  system_.Fail("ControlService", 1062);
  EXPECT_TRUE(Unload());
  EXPECT_THAT(Logs(),
              ElementsAre("log 6 Closed driver handle successfully", "log 7 Disk Event thread ended"));
}

TEST_F(RemoteAddressInfo, HasItsServiceStartedByTheNextLoadBeforeThePortIsOpened) {
  ASSERT_NO_FATAL_FAILURE(LoadAndForget());
  EnableRemote();
  ASSERT_TRUE(WaitUntilReading());
  ASSERT_TRUE(Unload());
  Forget();
  ASSERT_TRUE(Load());
  const Lines calls = Calls();
  const auto load = std::find(calls.begin(), calls.end(), "FilterLoad(OstrelFilter)");
  ASSERT_GE(calls.end() - load, static_cast<std::ptrdiff_t>(STARTING_THE_SERVICE.size()) + 2);
  const auto end = load + 1 + static_cast<std::ptrdiff_t>(STARTING_THE_SERVICE.size());
  EXPECT_EQ(Lines(load + 1, end), STARTING_THE_SERVICE);
  EXPECT_THAT(*end, ::testing::StartsWith("FilterConnectCommunicationPort("));
  EXPECT_THAT(calls, Not(Contains(::testing::StartsWith("Fwpm"))));
  EXPECT_THAT(calls, Not(Contains(DEVICE_OPENED[0])));
}

TEST_F(RemoteAddressInfo, DoesNotKeepALoadFromSucceedingWhenItsServiceCannotBeStarted) {
  ASSERT_NO_FATAL_FAILURE(LoadAndForget());
  EnableRemote();
  ASSERT_TRUE(WaitUntilReading());
  ASSERT_TRUE(Unload());
  Forget();
  system_.Fail("StartServiceW", 1058);
  EXPECT_TRUE(Load());
  EXPECT_THAT(Logs(), Contains("log 3 StartService failed (1058)."));
}

TEST_F(RemoteAddressInfo, IsNotStartedByALoadWhileItIsOff) {
  ASSERT_TRUE(Load());
  EXPECT_THAT(Calls(), Not(Contains("StartServiceW(service, 0, null)")));
}

TEST_F(RemoteAddressInfo, SwitchedOffAfterUnloadingHasNothingLeftToClose) {
  ASSERT_NO_FATAL_FAILURE(LoadAndForget());
  EnableRemote();
  ASSERT_TRUE(WaitUntilReading());
  ASSERT_TRUE(Unload());
  Forget();
  FailureLedger::OfThisProgram().Concerns("CloseHandle");
  DisableRemote();
  EXPECT_EQ(Calls(), Lines{TURNING_OFF} + STOPPING_THE_SERVICE +
                         Lines({"SetEvent(event)", "WaitForSingleObject(thread, 3000)",
                                "log 7 GetNWPacketInfo thread ended", "CloseHandle(null)",
                                "log 3 Could not close handle to NW driver. Code: 6", DISCONNECTED}));
}

TEST_F(RemoteAddressInfo, HasNoDeviceToSendAListToAfterUnloading) {
  ASSERT_NO_FATAL_FAILURE(LoadAndForget());
  EnableRemote();
  ASSERT_TRUE(WaitUntilReading());
  ASSERT_TRUE(Unload());
  Forget();
  FailureLedger::OfThisProgram().Concerns("DeviceIoControl");
  library_.UpdateProcesses(names_, 2, 0);
  CameTo("UpdateProcesses: returns nothing, and says that it succeeded");
  EXPECT_THAT(Logs(),
              ElementsAre(ADDED_PROCESS, NOT_SENT, "log 6 Successfully updated processes to monitor."));
}

class TheApiLockAndRemoteAddressInfo : public RemoteAddressInfo {
 protected:
  // `call` is held in the system's function; others come in only when it has returned.
  void ExpectHeldBy(const std::function<void()>& call, const std::string& function) {
    Forget();
    network_.Hold(function);
    const TestThread calling(call);
    ASSERT_TRUE(network_.WaitUntilHeld());
    std::vector<std::unique_ptr<TestThread>> others;
    for (const auto& other : {std::function<void()>([this] { EnableRemote(); }),
                              std::function<void()>([this] { DisableRemote(); }),
                              std::function<void()>([this] { library_.UpdateProcesses(names_, 2, 0); })}) {
      others.push_back(std::make_unique<TestThread>([this, other] {
        system_.transcript.Add("calling");
        other();
        system_.transcript.Add("returned");
      }));
    }
    ASSERT_TRUE(system_.transcript.WaitFor("calling", 3));
    // Long enough for a call that finds the lock free to come back many times over.
    Sleep(200);
    EXPECT_THAT(system_.transcript.StartingWith("returned"), IsEmpty());
    network_.LetGo();
    EXPECT_TRUE(system_.transcript.WaitFor("returned", 3));
  }
};

TEST_F(TheApiLockAndRemoteAddressInfo, IsHeldWhileItIsSwitchedOn) {
  ASSERT_NO_FATAL_FAILURE(Prepare());
  ExpectHeldBy([this] { EnableRemote(); }, "FwpmSubLayerAdd0");
}

TEST_F(TheApiLockAndRemoteAddressInfo, IsHeldWhileItIsSwitchedOff) {
  ASSERT_NO_FATAL_FAILURE(Prepare());
  EnableRemote();
  ASSERT_TRUE(WaitUntilReading());
  ExpectHeldBy([this] { DisableRemote(); }, "CancelIo");
}

}  // namespace

}  // namespace ostrel::test
