#include "detect/file_event_reporter.h"

#include <winsock2.h>
// Needs winsock2.h before it.
#include <ws2tcpip.h>

#include <algorithm>
#include <cwchar>
#include <mutex>
#include <stdexcept>

#include "detect/disk_event_worker.h"
#include "filter/cache_hooks.h"
#include "platform_test.h"
#include "support/failure_rows.h"
#include "support/scripted_user_session.h"

namespace ostrel::test {

namespace {

using ostrel_test::EnterFailure;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

const std::wstring FILE_NAME = L"C:\\a.txt";
const std::wstring PROCESS_NAME = L"\\Device\\HarddiskVolume3\\chrome.exe";

// What the host was told, argument by argument.
struct Reported {
  std::wstring fileName, processName, user;
  std::uint64_t endTime = 0;
  std::uint32_t type = 0;
  std::vector<std::wstring> addresses;
  std::vector<std::uint32_t> ports;
  std::vector<std::wstring> hostNames;
  std::vector<std::wstring> hints;
  std::wstring tabTitleStatus;
  int isNetworkDrive = 0;
  std::wstring sha256, md5;
  std::uint32_t fileSize = 0;
  std::wstring metadataStatus, extraText;
  bool hasAllArrays = false;
};

struct Host {
  std::vector<Reported> activity;
  std::vector<Reported> cloud;
  bool throws = false;
  std::mutex* reportMutex = nullptr;
};
Host* host = nullptr;

// Whether another thread could take the report mutex now.
bool IsFree(std::mutex& mutex) {
  const auto tryIt = [](void* parameter) -> DWORD {
    auto& tried = *static_cast<std::mutex*>(parameter);
    if (!tried.try_lock()) return 0;
    tried.unlock();
    return 1;
  };
  const HANDLE thread = CreateThread(nullptr, 0, tryIt, &mutex, 0, nullptr);
  WaitForSingleObject(thread, INFINITE);
  DWORD result = 0;
  GetExitCodeThread(thread, &result);
  CloseHandle(thread);
  return result == 1;
}

void OnActivity(const wchar_t* fileName, const wchar_t* processName, const wchar_t* user,
                std::uint64_t endTime, std::uint32_t type, std::int32_t streamCount, wchar_t** addresses,
                std::uint32_t* ports, wchar_t** hostNames, std::int32_t hintCount, wchar_t** hints,
                const wchar_t* tabTitleStatus, std::uint8_t isNetworkDrive, const wchar_t* sha256,
                const wchar_t* md5, std::uint32_t fileSize, const wchar_t* metadataStatus,
                const wchar_t* extraText) {
  EXPECT_FALSE(IsFree(*host->reportMutex));
  host->activity.push_back({fileName,
                            processName,
                            user,
                            endTime,
                            type,
                            {addresses, addresses + streamCount},
                            {ports, ports + streamCount},
                            {hostNames, hostNames + streamCount},
                            {hints, hints + hintCount},
                            tabTitleStatus,
                            isNetworkDrive,
                            sha256,
                            md5,
                            fileSize,
                            metadataStatus,
                            extraText});
  host->activity.back().hasAllArrays =
      addresses != nullptr && ports != nullptr && hostNames != nullptr && hints != nullptr;
  if (host->throws) throw std::runtime_error("the host throws");
}

void OnCloud(const wchar_t* fileName, const wchar_t* processName, const wchar_t* user, std::uint64_t endTime,
             std::uint32_t type) {
  EXPECT_FALSE(IsFree(*host->reportMutex));
  Reported reported;
  reported.fileName = fileName;
  reported.processName = processName;
  reported.user = user;
  reported.endTime = endTime;
  reported.type = type;
  host->cloud.push_back(reported);
  if (host->throws) throw std::runtime_error("the host throws");
}

ReadEventMetaData Event(std::int32_t type, ULong32 readSize, std::vector<std::wstring> hints = {},
                        unsigned char isNetwork = 0) {
  return {L"ann",  PROCESS_NAME, FILE_NAME,          42,        1000,
          2000,    hints,        L"TABTITLE_STATUS", isNetwork, static_cast<FILE_EVENT_TYPE>(type),
          readSize};
}

// Tries at each file that is opened and each name that is looked up whether another report could begin then.
class ReportMutexProbe {
 public:
  explicit ReportMutexProbe(std::mutex& mutex) : mutex_(mutex) { current = this; }
  ~ReportMutexProbe() { current = nullptr; }
  ReportMutexProbe(const ReportMutexProbe&) = delete;
  ReportMutexProbe& operator=(const ReportMutexProbe&) = delete;

  Lines tries;

 private:
  static HANDLE WINAPI CreateFileW(const wchar_t* path, DWORD access, DWORD share,
                                   SECURITY_ATTRIBUTES* security, DWORD disposition, DWORD flags,
                                   HANDLE pattern) {
    current->Try("CreateFileW");
    return reinterpret_cast<decltype(&::CreateFileW)>(current->createFile_.Original())(
        path, access, share, security, disposition, flags, pattern);
  }

  static INT WINAPI GetNameInfoW(const SOCKADDR* address, socklen_t length, wchar_t* hostName, DWORD capacity,
                                 wchar_t* service, DWORD serviceCapacity, INT flags) {
    current->Try("GetNameInfoW");
    return reinterpret_cast<decltype(&::GetNameInfoW)>(current->getNameInfo_.Original())(
        address, length, hostName, capacity, service, serviceCapacity, flags);
  }

  void Try(const std::string& call) { tries.push_back(call + (IsFree(mutex_) ? ": free" : ": held")); }

  static inline ReportMutexProbe* current = nullptr;

  std::mutex& mutex_;
  ImportPatch createFile_{GetModuleHandleW(nullptr), "CreateFileW", reinterpret_cast<void*>(&CreateFileW)};
  ImportPatch getNameInfo_{GetModuleHandleW(nullptr), "GetNameInfoW", reinterpret_cast<void*>(&GetNameInfoW)};
};

class Reporting : public PlatformTest {
 protected:
  Reporting() {
    host = &host_;
    host_.reportMutex = &callbacks_.reportMutex;
    callbacks_.activity = &OnActivity;
    callbacks_.pcd = &OnCloud;
    system_.fileSizes = {{FILE_NAME, 1000}};
  }
  ~Reporting() override {
    EXPECT_TRUE(IsFree(callbacks_.reportMutex));
    EXPECT_THAT(system_.OpenHandles(), IsEmpty());
  }

  // The callback of these tests makes calls too: it starts a thread.
  Lines StepsBeforeTheCallback() const {
    Lines steps = Calls();
    steps.erase(std::find_if(steps.begin(), steps.end(),
                             [](const std::string& step) { return step.starts_with("CreateThread("); }),
                steps.end());
    return steps;
  }

  void AddStream(ULong32 address, int port, unsigned long long bytes) {
    streams_.AddEvent(PROCESS_NAME, address, nullptr, IPV4, port, 1500, bytes);
  }

  Host host_;
  // Nobody is logged on.
  ScriptedUserSession session_{GetModuleHandleW(nullptr), [](std::string) {}};
  HostCallbacks callbacks_;
  NetworkEventCache streams_{1};
  FileEventReporter reporter_{callbacks_};
};

TEST_F(Reporting, TellsTheHostAllEighteenArguments) {
  AddStream(0x0A000001, 443, 1000);
  system_.hostNames = {{L"10.0.0.1", L"files.example"}};
  reporter_.ReportFileEvent(streams_, Event(0, 1000, {L"Mail", L"Drive"}));
  ASSERT_EQ(host_.activity.size(), 1U);
  const Reported& told = host_.activity[0];
  EXPECT_EQ(told.fileName, FILE_NAME);
  EXPECT_EQ(told.processName, PROCESS_NAME);
  EXPECT_EQ(told.user, L"ann");
  EXPECT_EQ(told.endTime, 2000U);
  EXPECT_EQ(told.type, 0U);
  EXPECT_THAT(told.addresses, ElementsAre(L"10.0.0.1"));
  EXPECT_THAT(told.ports, ElementsAre(443));
  EXPECT_THAT(told.hostNames, ElementsAre(L"files.example"));
  EXPECT_THAT(told.hints, ElementsAre(L"Mail", L"Drive"));
  EXPECT_EQ(told.tabTitleStatus, L"TABTITLE_STATUS");
  EXPECT_EQ(told.isNetworkDrive, 0);
  EXPECT_EQ(told.sha256, L"");
  EXPECT_EQ(told.md5, L"");
  EXPECT_EQ(told.fileSize, 0U);
  EXPECT_EQ(told.metadataStatus, L"");
  EXPECT_EQ(told.extraText, L"");
}

TEST_F(Reporting, TakesItsStepsInOrder) {
  AddStream(0x0A000001, 443, 1000);
  system_.hostNames = {{L"10.0.0.1", L"files.example"}};
  system_.transcript.Clear();
  reporter_.ReportFileEvent(streams_, Event(0, 1000, {L"Mail"}));
  EXPECT_THAT(StepsBeforeTheCallback(),
              ElementsAre("CreateFileW(C:\\a.txt, 0x80000000, share 3, disposition 3, 0x110080)",
                          "GetFileSizeEx(file C:\\a.txt)", "CloseHandle(file C:\\a.txt)",
                          "log 6 Detected file use by monitored process C:\\a.txt: "
                          "\\Device\\HarddiskVolume3\\chrome.exe: UPLOAD   tab title: Mail",
                          "InetNtopW(2, 65)", "InetPtonW(2, 10.0.0.1)",
                          "GetNameInfoW(family 2, 10.0.0.1, length 16, 1025, no service 0, flags 4)",
                          "log 7 Possible stream info: 10.0.0.1:443  files.example",
                          "log 7 Uploaded file C:\\a.txt. 1000 of 1000"));
}

TEST_F(Reporting, HoldsTheReportMutexWhileItReadsTheSizeAndLooksNamesUp) {
  AddStream(0x0A000001, 443, 5000);
  AddStream(0x0A000002, 443, 5000);
  const ReportMutexProbe probe(callbacks_.reportMutex);
  reporter_.ReportFileEvent(streams_, Event(0, 1000));
  EXPECT_THAT(probe.tries, ElementsAre("CreateFileW: held", "GetNameInfoW: held", "GetNameInfoW: held"));
}

TEST_F(Reporting, HoldsTheReportMutexWhileItReadsTheSizeOfACloudDriveFile) {
  const ReportMutexProbe probe(callbacks_.reportMutex);
  reporter_.ReportPcdEvent(Event(4, 0));
  EXPECT_THAT(probe.tries, ElementsAre("CreateFileW: held"));
}

TEST_F(Reporting, LogsTheFirstOfSeveralTabTitles) {
  reporter_.ReportFileEvent(streams_, Event(1, 1, {L"Mail", L"Drive", L"News"}));
  EXPECT_THAT(Logs(), ElementsAre("log 6 Detected file use by monitored process C:\\a.txt: "
                                  "\\Device\\HarddiskVolume3\\chrome.exe: DOWNLOAD   tab title: Mail"));
}

TEST_F(Reporting, LogsEachStreamRightAfterItsOwnLookUp) {
  AddStream(0x0A000001, 1, 5000);
  AddStream(0x0A000002, 2, 9000);
  system_.hostNames = {{L"10.0.0.2", L"two"}, {L"10.0.0.1", L"one"}};
  reporter_.ReportFileEvent(streams_, Event(1, 1));
  Lines lookUps;
  for (const std::string& step : Calls()) {
    if (step.starts_with("GetNameInfoW(") || step.starts_with("log 7 Possible")) lookUps.push_back(step);
  }
  EXPECT_THAT(lookUps, ElementsAre(StartsWith("GetNameInfoW(family 2, 10.0.0.2,"),
                                   "log 7 Possible stream info: 10.0.0.2:2  two",
                                   StartsWith("GetNameInfoW(family 2, 10.0.0.1,"),
                                   "log 7 Possible stream info: 10.0.0.1:1  one"));
}

TEST_F(Reporting, LeavesTheHostNameEmptyWhenTheLookUpFailsHalfWay) {
  const auto failHalfWay = [](const SOCKADDR*, socklen_t, wchar_t* hostName, DWORD, wchar_t*, DWORD, INT)
                               WINAPI -> INT {
    std::wcscpy(hostName, L"half a na");
    FailureLedger::OfThisProgram().Failed("GetNameInfoW", WSATRY_AGAIN);
    return WSATRY_AGAIN;
  };
  const ImportPatch patch(GetModuleHandleW(nullptr), "GetNameInfoW",
                          reinterpret_cast<void*>(static_cast<decltype(&::GetNameInfoW)>(failHalfWay)));
  AddStream(0x0A000001, 443, 1000);
  reporter_.ReportFileEvent(streams_, Event(1, 1));
  ASSERT_EQ(host_.activity.size(), 1U);
  EXPECT_THAT(host_.activity[0].hostNames, ElementsAre(L""));
  CameTo("ReportFileEvent: reported, the host name empty");
  EXPECT_THAT(Logs(), Contains("log 7 Possible stream info: 10.0.0.1:443  "));
}

// A failing conversion between addresses and their texts, of a stream of either family.
struct Family {
  const char* name;
  IP_VERSION version;
  const wchar_t* address;
  const wchar_t* hostName;  // the look-up of the longer address is bound to fail
};

const Family FAMILIES[] = {{"IPv4", IPV4, L"10.0.0.1", L"files.example"},
                           {"IPv6", IPV6, L"2001:db8::1", L""}};

class ReportingAStream : public Reporting, public ::testing::WithParamInterface<Family> {
 protected:
  ReportingAStream() {
    unsigned char address[16] = {0x20, 0x01, 0x0D, 0xB8};
    address[15] = 1;
    streams_.AddEvent(PROCESS_NAME, 0x0A000001, address, GetParam().version, 443, 1500, 1000);
    system_.hostNames = {{L"10.0.0.1", L"files.example"}, {L"2001:db8::1", L"six.example"}};
  }

  // In spite of the failure of a call.
  void ExpectReported(const std::string& call, DWORD failure, const std::wstring& address,
                      const std::wstring& hostName) {
    reporter_.ReportFileEvent(streams_, Event(1, 1));
    ASSERT_EQ(host_.activity.size(), 1U);
    EXPECT_THAT(host_.activity[0].addresses, ElementsAre(address));
    EXPECT_THAT(host_.activity[0].ports, ElementsAre(443));
    EXPECT_THAT(host_.activity[0].hostNames, ElementsAre(hostName));
    const Lines streams = system_.transcript.StartingWith("log 7 Possible stream info: ");
    EXPECT_THAT(streams,
                ElementsAre("log 7 Possible stream info: " + Narrow(address) + ":443  " + Narrow(hostName)));
    EnterFailure(call, CodeText(failure), streams,
                 "ReportFileEvent: reported, address \"" + Narrow(address) + "\", host name \"" +
                     Narrow(hostName) + "\"");
  }
};

INSTANTIATE_TEST_SUITE_P(OfEitherFamily, ReportingAStream, ::testing::ValuesIn(FAMILIES),
                         [](const auto& family) { return std::string(family.param.name); });

TEST_P(ReportingAStream, LeavesAnAddressThatCannotBeFormattedEmpty) {
  const auto fail = [](INT, const void*, wchar_t*, std::size_t) WINAPI -> const wchar_t* { return nullptr; };
  const ImportPatch patch(GetModuleHandleW(nullptr), "InetNtopW",
                          reinterpret_cast<void*>(static_cast<decltype(&::InetNtopW)>(fail)));
  // What cannot be read back leaves the address to look up as it is.
  ExpectReported("InetNtopW", WSAEINVAL, L"", GetParam().hostName);
}

// The address to look up is there without it.
TEST_P(ReportingAStream, LooksUpAnAddressWhoseTextCannotBeReadBack) {
  const auto fail = [](INT, const wchar_t*, void*) WINAPI -> INT { return -1; };
  const ImportPatch patch(GetModuleHandleW(nullptr), "InetPtonW",
                          reinterpret_cast<void*>(static_cast<decltype(&::InetPtonW)>(fail)));
  ExpectReported("InetPtonW", WSAEFAULT, GetParam().address, GetParam().hostName);
}

TEST_F(Reporting, LeavesTheHostNameEmptyWhenItCannotBeFound) {
  FailureLedger::OfThisProgram().Concerns("GetNameInfoW");
  AddStream(0x0A000001, 443, 1000);
  reporter_.ReportFileEvent(streams_, Event(1, 1));
  ASSERT_EQ(host_.activity.size(), 1U);
  EXPECT_THAT(host_.activity[0].hostNames, ElementsAre(L""));
  CameTo("ReportFileEvent: reported, the host name empty");
  EXPECT_THAT(Logs(), Contains("log 7 Possible stream info: 10.0.0.1:443  "));
}

// The length is that of the other family's address, so the look-up is bound to fail.
TEST_F(Reporting, GivesIpV6StreamsNoHostName) {
  FailureLedger::OfThisProgram().Concerns("GetNameInfoW");
  unsigned char address[16] = {0x20, 0x01, 0x0D, 0xB8};
  address[15] = 1;
  streams_.AddEvent(PROCESS_NAME, 0, address, IPV6, 8443, 1500, 1000);
  system_.hostNames = {{L"2001:db8::1", L"six.example"}};
  reporter_.ReportFileEvent(streams_, Event(1, 1));
  ASSERT_EQ(host_.activity.size(), 1U);
  EXPECT_THAT(host_.activity[0].addresses, ElementsAre(L"2001:db8::1"));
  EXPECT_THAT(host_.activity[0].ports, ElementsAre(8443));
  EXPECT_THAT(host_.activity[0].hostNames, ElementsAre(L""));
  CameTo("ReportFileEvent: reported, the host name empty");
  EXPECT_THAT(Calls(), Contains("InetPtonW(23, 2001:db8::1)"));
  EXPECT_THAT(Calls(),
              Contains("GetNameInfoW(family 23, 2001:db8::1, length 16, 1025, no service 0, flags 4)"));
}

TEST_F(Reporting, ListsEveryStreamLargestFirstWhenNoneMatches) {
  AddStream(0x0A000001, 1, 5000);
  AddStream(0x0A000002, 2, 9000);
  AddStream(0x0A000003, 3, 7000);
  system_.hostNames = {{L"10.0.0.3", L"three"}};
  reporter_.ReportFileEvent(streams_, Event(1, 1));
  ASSERT_EQ(host_.activity.size(), 1U);
  EXPECT_THAT(host_.activity[0].addresses, ElementsAre(L"10.0.0.2", L"10.0.0.3", L"10.0.0.1"));
  EXPECT_THAT(host_.activity[0].ports, ElementsAre(2, 3, 1));
  EXPECT_THAT(host_.activity[0].hostNames, ElementsAre(L"", L"three", L""));
}

TEST_F(Reporting, ReportsAnEventWithoutStreamsOrHints) {
  reporter_.ReportFileEvent(streams_, Event(1, 1));
  ASSERT_EQ(host_.activity.size(), 1U);
  EXPECT_EQ(host_.activity[0].type, 1U);
  EXPECT_THAT(host_.activity[0].addresses, IsEmpty());
  EXPECT_THAT(host_.activity[0].hints, IsEmpty());
  EXPECT_TRUE(host_.activity[0].hasAllArrays);
  EXPECT_THAT(Logs(), ElementsAre("log 6 Detected file use by monitored process C:\\a.txt: "
                                  "\\Device\\HarddiskVolume3\\chrome.exe: DOWNLOAD   tab title: none"));
}

TEST_F(Reporting, AcceptsAnUploadOfNineTenthsOfTheFile) {
  reporter_.ReportFileEvent(streams_, Event(0, 900));
  EXPECT_EQ(host_.activity.size(), 1U);
  EXPECT_THAT(Logs(), Contains("log 7 Uploaded file C:\\a.txt. 900 of 1000"));
}

TEST_F(Reporting, DropsAnUploadOfOneByteLess) {
  reporter_.ReportFileEvent(streams_, Event(0, 899));
  EXPECT_THAT(host_.activity, IsEmpty());
  EXPECT_THAT(Logs(), ElementsAre(StartsWith("log 6 Detected file use by monitored process C:\\a.txt"),
                                  "log 7 Uploaded file C:\\a.txt. 899 of 1000",
                                  "log 6 Incomplete upload for C:\\a.txt"));
  Lines lines = Logs();
  lines.erase(lines.begin());
  EnterFailure("Upload", "of 899 bytes of 1000", lines, "ReportFileEvent: an upload is not reported");
}

TEST_F(Reporting, NeverReportsAnUploadOfADeletedFile) {
  FailureLedger::OfThisProgram().Concerns("CreateFileW");
  system_.fileSizes.clear();
  reporter_.ReportFileEvent(streams_, Event(0, 0xFFFFFFFF));
  EXPECT_THAT(host_.activity, IsEmpty());
  CameTo("ReportFileEvent: an upload is not reported");
  EXPECT_THAT(Logs(), Contains("log 7 Uploaded file C:\\a.txt. 4294967295 of 18446744073709551615"));
}

TEST_F(Reporting, NeverReportsAnUploadOfAFileThatCannotBeSized) {
  system_.Fail("GetFileSizeEx", 5);
  reporter_.ReportFileEvent(streams_, Event(0, 1000));
  EXPECT_THAT(host_.activity, IsEmpty());
  CameTo("ReportFileEvent: an upload is not reported");
}

TEST_F(Reporting, ReportsADownloadWhateverItsSize) {
  FailureLedger::OfThisProgram().Concerns("CreateFileW");
  system_.fileSizes.clear();
  reporter_.ReportFileEvent(streams_, Event(1, 0));
  EXPECT_EQ(host_.activity.size(), 1U);
  CameTo("ReportFileEvent: a download is reported");
}

TEST_F(Reporting, AsksForTheMetadataOfAFileOnANetworkDrive) {
  system_.fileSizes = {{FILE_NAME, 5000}};
  reporter_.ReportFileEvent(streams_, Event(0, 10, {}, 1));
  // The size in the metadata counts, not the one read here; without metadata it is 0.
  ASSERT_EQ(host_.activity.size(), 1U);
  EXPECT_EQ(host_.activity[0].isNetworkDrive, 1);
  EXPECT_EQ(host_.activity[0].metadataStatus, L"NO_LOGGEDIN_USER");
  EXPECT_EQ(host_.activity[0].fileSize, 0U);
  EnterFailure("Metadata of a file on a network drive", "nobody is logged on",
               system_.transcript.StartingWith("log 7 Uploaded file"),
               "ReportFileEvent: reported, with status NO_LOGGEDIN_USER and size 0");
  EXPECT_THAT(Logs(), ElementsAre(StartsWith("log 6 Detected file use"), "log 6 No one logged in",
                                  "log 3 Could not successfully spawn a sub-process",
                                  "log 7 Getting metadata for file : C:\\a.txt\n",
                                  "log 7 Uploaded file C:\\a.txt. 10 of 0"));
}

TEST_F(Reporting, TellsTheHostTheMetadataOfAFileOnANetworkDrive) {
  session_.LogOn();
  session_.answer = [](const std::wstring&) {
    return L"1,32," + ScriptedUserSession::Identifier(2) + L",0," + std::wstring(64, L'a') + L"," +
           std::wstring(32, L'b') + L",4294967297,5,extra";
  };
  reporter_.ReportFileEvent(streams_, Event(1, 10, {}, 1));
  ASSERT_EQ(host_.activity.size(), 1U);
  EXPECT_EQ(host_.activity[0].isNetworkDrive, 1);
  EXPECT_EQ(host_.activity[0].sha256, std::wstring(64, L'a'));
  EXPECT_EQ(host_.activity[0].md5, std::wstring(32, L'b'));
  EXPECT_EQ(host_.activity[0].fileSize, 1U);
  EXPECT_EQ(host_.activity[0].metadataStatus, L"METADATA_SUCCESS");
  EXPECT_EQ(host_.activity[0].extraText, L"extra");
}

TEST_F(Reporting, ComparesAnUploadFromANetworkDriveWithTheSizeInTheMetadata) {
  session_.LogOn();
  session_.answer = [](const std::wstring&) {
    return L"1,32," + ScriptedUserSession::Identifier(2) + L",0," + std::wstring(64, L'a') + L"," +
           std::wstring(32, L'b') + L",2000,0";
  };
  reporter_.ReportFileEvent(streams_, Event(0, 1799, {}, 1));
  EXPECT_THAT(host_.activity, IsEmpty());
  EXPECT_THAT(Logs(), Contains("log 7 Uploaded file C:\\a.txt. 1799 of 2000"));
}

// The answer of a helper that found a file of that size.
std::wstring MetaDataOf(unsigned long long size) {
  return L"1,32," + ScriptedUserSession::Identifier(2) + L",0," + std::wstring(64, L'a') + L"," +
         std::wstring(32, L'b') + L"," + std::to_wstring(size) + L",5,extra";
}

TEST_F(Reporting, TellsTheHostOfACompleteUploadFromANetworkDrive) {
  session_.LogOn();
  session_.answer = [](const std::wstring&) { return MetaDataOf(2000); };
  reporter_.ReportFileEvent(streams_, Event(0, 1800, {L"Mail"}, 1));
  ASSERT_EQ(host_.activity.size(), 1U);
  const Reported& told = host_.activity[0];
  EXPECT_EQ(told.type, 0U);
  EXPECT_EQ(told.isNetworkDrive, 1);
  EXPECT_EQ(told.sha256, std::wstring(64, L'a'));
  EXPECT_EQ(told.md5, std::wstring(32, L'b'));
  EXPECT_EQ(told.fileSize, 2000U);
  EXPECT_EQ(told.metadataStatus, L"METADATA_SUCCESS");
  EXPECT_EQ(told.extraText, L"extra");
  EXPECT_THAT(told.hints, ElementsAre(L"Mail"));
  EXPECT_EQ(told.tabTitleStatus, L"TABTITLE_STATUS");
}

// The host is told 32 bits of the size, which are all that was read here.
TEST_F(Reporting, ComparesAnUploadWithAllBitsOfTheSizeInTheMetadata) {
  session_.LogOn();
  session_.answer = [](const std::wstring&) { return MetaDataOf(0x1'0000'0064); };
  reporter_.ReportFileEvent(streams_, Event(0, 100, {}, 1));
  EXPECT_THAT(host_.activity, IsEmpty());
  EXPECT_THAT(Logs(), Contains("log 7 Uploaded file C:\\a.txt. 100 of 4294967396"));
}

// Digests have a fixed length, so an answer without them is one that cannot be read.
TEST_F(Reporting, TellsTheHostOfAnUploadWhoseDigestsAreMissing) {
  session_.LogOn();
  session_.answer = [](const std::wstring&) {
    return L"1,32," + ScriptedUserSession::Identifier(2) + L",0,,,2000,0";
  };
  reporter_.ReportFileEvent(streams_, Event(0, 1, {}, 1));
  ASSERT_EQ(host_.activity.size(), 1U);
  EXPECT_EQ(host_.activity[0].sha256, L"");
  EXPECT_EQ(host_.activity[0].md5, L"");
  EXPECT_EQ(host_.activity[0].fileSize, 0U);
  EXPECT_EQ(host_.activity[0].metadataStatus, L"METADATA_DESERIALIZE_FAILURE");
  EXPECT_EQ(host_.activity[0].extraText, L"");
  EnterFailure("Metadata of a file on a network drive", "an answer without digests",
               system_.transcript.StartingWith("log 3"),
               "ReportFileEvent: reported, with status METADATA_DESERIALIZE_FAILURE and size 0");
}

TEST_F(Reporting, AsksForMetadataAfterTheLookUpsAndUnderTheReportMutex) {
  AddStream(0x0A000001, 443, 1000);
  session_.LogOn();
  system_.transcript.Clear();
  Lines before;
  bool isHeld = false;
  session_.answer = [&](const std::wstring&) {
    before = Logs();  // so far
    isHeld = !IsFree(callbacks_.reportMutex);
    return MetaDataOf(1000);
  };
  reporter_.ReportFileEvent(streams_, Event(0, 1000, {}, 1));
  EXPECT_TRUE(isHeld);
  ASSERT_GE(before.size(), 2U);
  EXPECT_THAT(before[0], StartsWith("log 6 Detected file use"));
  EXPECT_EQ(before[1], "log 7 Possible stream info: 10.0.0.1:443  ");
  EXPECT_THAT(before, Not(Contains(StartsWith("log 7 Getting metadata"))));
  EXPECT_THAT(before, Not(Contains(StartsWith("log 7 Uploaded file"))));
  EXPECT_EQ(host_.activity.size(), 1U);
}

TEST_F(Reporting, AsksForNoMetadataOfALocalFile) {
  session_.LogOn();
  reporter_.ReportFileEvent(streams_, Event(0, 1000));
  EXPECT_EQ(host_.activity.size(), 1U);
  EXPECT_THAT(session_.Requests(), IsEmpty());
}

TEST_F(Reporting, AsksForNoMetadataWithoutACallback) {
  session_.LogOn();
  callbacks_.activity = nullptr;
  reporter_.ReportFileEvent(streams_, Event(0, 1000, {}, 1));
  EXPECT_THAT(session_.Requests(), IsEmpty());
}

TEST_F(Reporting, DoesNothingWithoutACallback) {
  callbacks_.activity = nullptr;
  callbacks_.pcd = nullptr;
  reporter_.ReportFileEvent(streams_, Event(0, 1000));
  reporter_.ReportPcdEvent(Event(4, 0));
  EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(Reporting, ReleasesTheReportMutexWhenTheCallbackThrows) {
  host_.throws = true;
  EXPECT_THROW(reporter_.ReportFileEvent(streams_, Event(1, 1)), std::runtime_error);
  EXPECT_THROW(reporter_.ReportPcdEvent(Event(4, 0)), std::runtime_error);
  EXPECT_TRUE(IsFree(callbacks_.reportMutex));
}

TEST_F(Reporting, TellsTheHostOfACloudDriveEventOfEveryType) {
  for (std::int32_t type = 4; type <= 9; ++type) reporter_.ReportPcdEvent(Event(type, 0));
  ASSERT_EQ(host_.cloud.size(), 6U);
  for (std::uint32_t i = 0; i < 6; ++i) {
    EXPECT_EQ(host_.cloud[i].fileName, FILE_NAME);
    EXPECT_EQ(host_.cloud[i].processName, PROCESS_NAME);
    EXPECT_EQ(host_.cloud[i].user, L"ann");
    EXPECT_EQ(host_.cloud[i].endTime, 2000U);
    EXPECT_EQ(host_.cloud[i].type, 4 + i);
  }
}

TEST_F(Reporting, TellsTheHostOfACloudDriveFileThatHasVanished) {
  FailureLedger::OfThisProgram().Concerns("CreateFileW");
  system_.fileSizes.clear();
  reporter_.ReportPcdEvent(Event(7, 0));
  EXPECT_EQ(host_.cloud.size(), 1U);
  EXPECT_THAT(StepsBeforeTheCallback(),
              ElementsAre("CreateFileW(C:\\a.txt, 0x80000000, share 3, disposition 3, 0x110080)",
                          "log 6 Detected PCD event use by monitored process C:\\a.txt: "
                          "\\Device\\HarddiskVolume3\\chrome.exe"));
  CameTo("ReportPcdEvent: reported all the same");
}

// The caches of the library, with the times that a test gives them.
class APass : public Reporting {
 protected:
  APass() { system_.imageNames = {{42, PROCESS_NAME}}; }

  static ReadEventCache MakeCache() {
    UserLookup userLookup = [](void*, std::wstring& user) -> unsigned char {
      user = L"ann";
      return 1;
    };
    TabTitleLookup tabTitleLookup = [](ULong32, std::wstring, std::wstring&) {
      return std::vector<std::wstring>();
    };
    DirectoryTest directoryTest = IsDirectory;
    return {userLookup, tabTitleLookup, directoryTest};
  }

  static void Add(ReadEventCache& cache, const std::wstring& file, int type, unsigned long long time) {
    cache.AddEvent(file, nullptr, PROCESS_NAME, 42, time, 0, static_cast<FILE_EVENT_TYPE>(type), 1000);
  }

  std::vector<std::wstring> Told() const {
    std::vector<std::wstring> told;
    for (const Reported& reported : host_.activity) {
      told.push_back((reported.type == 0 ? L"up " : L"down ") + reported.fileName);
    }
    for (const Reported& reported : host_.cloud) told.push_back(L"cloud " + reported.fileName);
    return told;
  }

  ReadEventCache uploads_ = MakeCache();
  ReadEventCache downloads_ = MakeCache();
  ReadEventCache cloudDrive_ = MakeCache();
  NetworkEventCache downloadStreams_{0};
  SentEventCache sentEvents_;
  DiskEventWorker worker_{{uploads_, downloads_, cloudDrive_, streams_, downloadStreams_, sentEvents_},
                          reporter_};
};

TEST_F(APass, ReportsDownloadsThenUploadsThenCloudDriveEvents) {
  system_.fileSizes = {{L"C:\\up", 1000}, {L"C:\\down", 1000}, {L"C:\\cloud", 1000}};
  Add(cloudDrive_, L"C:\\cloud", 5, 1000);
  Add(uploads_, L"C:\\up", 0, 1000);
  Add(downloads_, L"C:\\down", 1, 1000);
  worker_.RunPass(61001);
  EXPECT_THAT(system_.transcript.StartingWith("log 6"),
              ElementsAre(StartsWith("log 6 Detected file use by monitored process C:\\down"),
                          StartsWith("log 6 Detected file use by monitored process C:\\up"),
                          StartsWith("log 6 Detected PCD event use by monitored process C:\\cloud")));
  EXPECT_THAT(Told(), ElementsAre(L"down C:\\down", L"up C:\\up", L"cloud C:\\cloud"));
}

TEST_F(APass, LeavesWhatHasNotBeenQuietForAMinute) {
  Add(uploads_, FILE_NAME, 0, 1000);
  worker_.RunPass(61000);
  EXPECT_THAT(Told(), IsEmpty());
  EXPECT_EQ(uploads_.GetCacheCount(), 1U);
}

TEST_F(APass, ReportsAFileThatWasDownloadedAndReadOnceAsADownload) {
  Add(downloads_, FILE_NAME, 1, 1000);
  Add(uploads_, FILE_NAME, 0, 1000);
  worker_.RunPass(61001);
  EXPECT_THAT(Told(), ElementsAre(L"down C:\\a.txt"));
  EXPECT_THAT(Logs(), Not(Contains(::testing::HasSubstr("UPLOAD"))));
}

TEST_F(APass, StillReportsAnUploadMoreThanTenSecondsAfterTheDownload) {
  Add(downloads_, FILE_NAME, 1, 1000);
  Add(uploads_, FILE_NAME, 0, 11001);
  worker_.RunPass(100000);
  EXPECT_THAT(Told(), ElementsAre(L"down C:\\a.txt", L"up C:\\a.txt"));
}

// Of events that were merged from several reads the last one counts.
TEST_F(APass, ComparesTheEndOfADownloadWithTheEndOfTheUpload) {
  Add(downloads_, FILE_NAME, 1, 1000);
  Add(downloads_, FILE_NAME, 1, 20000);
  Add(uploads_, FILE_NAME, 0, 25000);
  Add(uploads_, FILE_NAME, 0, 30000);
  worker_.RunPass(100000);
  EXPECT_THAT(Told(), ElementsAre(L"down C:\\a.txt"));
}

TEST_F(APass, ReportsAnUploadThatEndsMoreThanTenSecondsAfterTheDownloadAlthoughItBeganSooner) {
  Add(downloads_, FILE_NAME, 1, 1000);
  Add(downloads_, FILE_NAME, 1, 20000);
  Add(uploads_, FILE_NAME, 0, 25000);
  Add(uploads_, FILE_NAME, 0, 30001);
  worker_.RunPass(100000);
  EXPECT_THAT(Told(), ElementsAre(L"down C:\\a.txt", L"up C:\\a.txt"));
}

TEST_F(APass, RemembersADownloadAlsoWhenNobodyIsTold) {
  callbacks_.activity = nullptr;
  Add(downloads_, FILE_NAME, 1, 1000);
  worker_.RunPass(61001);
  callbacks_.activity = &OnActivity;
  Add(uploads_, FILE_NAME, 0, 2000);
  worker_.RunPass(62001);
  EXPECT_THAT(Told(), IsEmpty());
  EXPECT_EQ(sentEvents_.GetCacheCount(), 1U);
  EXPECT_EQ(uploads_.GetCacheCount(), 0U);
}

TEST_F(APass, MatchesDownloadsWithIncomingAndUploadsWithOutgoingStreams) {
  system_.fileSizes = {{L"C:\\up", 1000}, {L"C:\\down", 1000}};
  AddStream(0x0A000001, 1, 1000);
  downloadStreams_.AddEvent(PROCESS_NAME, 0x0A000002, nullptr, IPV4, 2, 1500, 1000);
  Add(downloads_, L"C:\\down", 1, 1000);
  Add(uploads_, L"C:\\up", 0, 1000);
  worker_.RunPass(61001);
  ASSERT_EQ(host_.activity.size(), 2U);
  EXPECT_THAT(host_.activity[0].ports, ElementsAre(2));
  EXPECT_THAT(host_.activity[1].ports, ElementsAre(1));
}

TEST_F(APass, StillMatchesStreamsThatItThenPurges) {
  system_.fileSizes = {{L"C:\\up", 1000}, {L"C:\\down", 1000}};
  AddStream(0x0A000001, 1, 1000);
  downloadStreams_.AddEvent(PROCESS_NAME, 0x0A000002, nullptr, IPV4, 2, 1500, 1000);
  Add(downloads_, L"C:\\down", 1, 1500);
  Add(uploads_, L"C:\\up", 0, 1500);
  Add(cloudDrive_, L"C:\\cloud", 4, 1500);
  system_.transcript.Clear();
  worker_.RunPass(71501);
  ASSERT_EQ(host_.activity.size(), 2U);
  EXPECT_THAT(host_.activity[0].ports, ElementsAre(2));
  EXPECT_THAT(host_.activity[1].ports, ElementsAre(1));
  EXPECT_EQ(downloadStreams_.GetStreamCount(PROCESS_NAME), 0U);
  EXPECT_EQ(streams_.GetStreamCount(PROCESS_NAME), 0U);
  Lines last = Logs();
  ASSERT_GE(last.size(), 3U);
  last.erase(last.begin(), last.end() - 3);
  EXPECT_THAT(last, ElementsAre(StartsWith("log 6 Detected PCD event use"),
                                StartsWith("log 7 purged network event: download"),
                                StartsWith("log 7 purged network event: upload")));
}

TEST_F(APass, PurgesTheStreamsOfDownloadsThenOfUploads) {
  AddStream(0x0A000001, 1, 10);
  downloadStreams_.AddEvent(PROCESS_NAME, 0x0A000002, nullptr, IPV4, 2, 1500, 20);
  system_.transcript.Clear();
  worker_.RunPass(71500);
  EXPECT_THAT(Logs(), IsEmpty());
  worker_.RunPass(71501);
  EXPECT_THAT(
      Logs(),
      ElementsAre("log 7 purged network event: download \\Device\\HarddiskVolume3\\chrome.exe 167772162:2 20",
                  "log 7 purged network event: upload \\Device\\HarddiskVolume3\\chrome.exe 167772161:1 10"));
}

TEST_F(APass, LosesOnlyTheReportsWhoseCallbackThrows) {
  system_.fileSizes = {{L"C:\\1", 1000}, {L"C:\\2", 1000}};
  host_.throws = true;
  Add(downloads_, L"C:\\1", 1, 1000);
  Add(downloads_, L"C:\\2", 1, 1000);
  Add(uploads_, L"C:\\2", 0, 1000);
  Add(cloudDrive_, L"C:\\1", 4, 1000);
  worker_.RunPass(61001);
  // The second download is remembered although its callback threw, so its read is no upload.
  EXPECT_THAT(Told(), ElementsAre(L"down C:\\2", L"down C:\\1", L"cloud C:\\1"));
  const Lines errors = system_.transcript.StartingWith("log 3");
  EXPECT_THAT(errors, IsEmpty());
  EnterFailure("Callback of the host for an event", "an exception", errors,
               "The disk event thread: goes on with the next event",
               "the report counts as made, and nothing says that it failed");
}

}  // namespace

}  // namespace ostrel::test
