// A flood of records: each that the driver gave to the library is filed exactly once, or was dropped because
// its process had gone.

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "e2e/library_log.h"
#include "e2e/network_on_lab.h"
#include "util/unique_handle.h"

namespace ostrel::test {

namespace {

constexpr std::uint64_t FLOOD = 100'000;
constexpr std::uint32_t PORTS = 50;
constexpr std::uint64_t PORTIONS = 40;
constexpr std::uint64_t GONE_PER_PORTION = 50;
constexpr std::uint64_t RECEIVED_PER_PORTION = 10;

// A process id that was a process's a moment ago.
DWORD IdOfAnEndedProcess() {
  wchar_t program[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, program, MAX_PATH);
  const std::wstring path =
      std::filesystem::path(program).replace_filename(L"OstrelLabProcess.exe").wstring();
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION information{};
  if (!CreateProcessW(path.c_str(), nullptr, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                      &information)) {
    ADD_FAILURE() << "the process cannot be started: " << GetLastError();
    return 0;
  }
  const UniqueKernelHandle process(information.hProcess);
  const UniqueKernelHandle thread(information.hThread);
  EXPECT_TRUE(TerminateProcess(process.Get(), 0));
  EXPECT_EQ(WaitForSingleObject(process.Get(), 60'000), WAIT_OBJECT_0);
  return information.dwProcessId;
}

bool CanBeOpened(DWORD processId) {
  return static_cast<bool>(
      UniqueKernelHandle(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId)));
}

class NetworkFlood : public NetworkOnLab {
 protected:
  NetworkFlood() : NetworkOnLab(LibraryLog::Take) {}

  // A record of an hour ahead: on a machine that needs more than 70 seconds for the flood, streams of now
  // would age out midway.
  static OstrelLabPacketRecord Sent(std::uint64_t bytes) {
    constexpr std::uint64_t HOUR = 3'600'000;
    OstrelLabPacketRecord record = NetworkOnLab::Sent(bytes);
    record.time += HOUR;
    return record;
  }

  // The flood's records are of 1 to FLOOD bytes, sent, and by this process.
  static void StartFlood(lab::NetworkLink& player) {
    OstrelLabFlood flood{};
    flood.count = FLOOD;
    flood.bytesStep = 1;
    flood.ports = PORTS;
    flood.first = Sent(1);
    player.Flood(flood);
  }

  // Goes in between the flood's records: some of a process that has gone, some that this process received.
  static void SubmitPortion(lab::NetworkLink& player, DWORD goneProcess, std::uint64_t number) {
    std::vector<OstrelLabPacketRecord> records;
    for (std::uint64_t i = 0; i < GONE_PER_PORTION; ++i) {
      records.push_back(Sent(1'000'000 + i));
      records.back().processId = goneProcess;
    }
    for (std::uint64_t i = 0; i < RECEIVED_PER_PORTION; ++i) {
      records.push_back(Sent(2'000'000 + number * RECEIVED_PER_PORTION + i));
      records.back().isUpload = 0;
    }
    player.Submit(std::move(records));
  }

  static void PlayAll(lab::NetworkLink& player, DWORD goneProcess) {
    StartFlood(player);
    for (std::uint64_t portion = 0; portion < PORTIONS; ++portion) {
      ASSERT_TRUE(WaitFor([&] { return player.Status().flooded > portion * FLOOD / PORTIONS; }));
      SubmitPortion(player, goneProcess, portion);
    }
    WaitUntilHandled(player);
  }
};

struct Stream {
  std::uint64_t records = 0;
  std::uint64_t newStreams = 0;
  std::uint64_t bytes = 0;
  std::int64_t lastTotal = 0;
};

TEST_F(NetworkFlood, EveryRecordIsFiledOnceOrDroppedBecauseItsProcessHasGone) {
  const DWORD goneProcess = IdOfAnEndedProcess();
  ASSERT_TRUE(WaitFor([goneProcess] { return !CanBeOpened(goneProcess); }));
  Enable();
  LibraryLog::Forget();
  lab::NetworkLink player = Player();
  ASSERT_NO_FATAL_FAILURE(PlayAll(player, goneProcess));
  ASSERT_FALSE(CanBeOpened(goneProcess)) << "another process got its id";

  std::map<int, Stream> uploads;
  Stream download;
  std::set<std::uint64_t> distinct;
  for (const FiledRecord& record : LibraryLog::FiledRecords()) {
    EXPECT_TRUE(distinct.insert(record.bytes).second) << record.bytes << " is filed twice";
    Stream& stream = record.isUpload ? uploads[record.port] : download;
    ++stream.records;
    stream.newStreams += record.isNewStream ? 1 : 0;
    stream.bytes += record.bytes;
    stream.lastTotal = record.streamBytes;
  }

  ASSERT_EQ(uploads.size(), PORTS);
  std::uint64_t sent = 0;
  for (const auto& [port, stream] : uploads) {
    EXPECT_EQ(stream.records, FLOOD / PORTS);
    EXPECT_EQ(stream.newStreams, 1U);
    EXPECT_EQ(stream.lastTotal, static_cast<std::int64_t>(stream.bytes)) << "port " << port;
    sent += stream.bytes;
  }
  EXPECT_EQ(sent, FLOOD * (FLOOD + 1) / 2);
  constexpr std::uint64_t RECEIVED = PORTIONS * RECEIVED_PER_PORTION;
  EXPECT_EQ(download.records, RECEIVED);
  EXPECT_EQ(download.newStreams, 1U);
  EXPECT_EQ(download.bytes, RECEIVED * 2'000'000 + RECEIVED * (RECEIVED - 1) / 2);
  EXPECT_EQ(download.lastTotal, static_cast<std::int64_t>(download.bytes));

  constexpr std::uint64_t GONE = PORTIONS * GONE_PER_PORTION;
  const OstrelLabNetworkStatus status = player.Status();
  EXPECT_EQ(status.flooded, FLOOD);
  EXPECT_EQ(status.submitted, GONE + RECEIVED);
  EXPECT_EQ(status.dropped, 0U);
  EXPECT_EQ(status.completed, distinct.size() + GONE);
  EXPECT_EQ(LibraryLog::Errors(), std::vector<std::wstring>());
}

}  // namespace

}  // namespace ostrel::test
