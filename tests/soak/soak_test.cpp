// Hours of work in minutes: file events and packet records of every kind, in bursts and with pauses, while
// processes die, the helper is slow and the host's callback is too. At the end the books balance: every event
// and every record is accounted for, and nothing has grown.
//
// OSTREL_SOAK_EVENTS and OSTREL_SOAK_MINUTES, where set, say how many file events (and as many records) and
// how many minutes a run takes at least.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <numeric>
#include <optional>
#include <string>
#include <vector>

#include "api/exports.h"
#include "soak/file_books.h"
#include "soak/file_load.h"
#include "soak/record_books.h"
#include "soak/record_load.h"
#include "soak/setting.h"
#include "support/open_handles.h"
#include "support/private_bytes.h"
#include "user_session/stand_in_helper.h"

namespace ostrel::test {

namespace {

using ::testing::IsEmpty;

constexpr std::size_t ROUND_EVENTS = 5'000;
constexpr std::size_t BURST_EVENTS = 250;
// With the warm-up, which counts too: short enough for the test command.
constexpr std::uint64_t SHORT_RUN_EVENTS = 20'000;
constexpr std::uint64_t FEWEST_ROUNDS = 3;

std::uint64_t Now() {
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch).count());
}

// Where the library's callbacks, which get no context, find the books.
struct {
  FileBooks* files = nullptr;
  RecordBooks* records = nullptr;
  std::atomic<std::uint64_t> reports{0};
  std::atomic<std::uint64_t> helpers{0};
  std::atomic<std::uint64_t> titles{0};
  std::atomic<std::uint64_t> unavailableHelpers{0};
  Lock lock;
  std::vector<std::wstring> unexpectedErrors;
  std::vector<std::wstring> unexpectedReports;
} told;

// What the load itself brings about, and what the first loading on a new machine does.
bool IsExpectedError(std::wstring_view line) {
  for (const auto* beginning :
       {L"Unhandled message from driver: ", L"Could not get process name. ",
        L"Could not open process token. ", L"Could not get information. Remote pipe not available",
        L"OpenService failed (1060)."}) {
    if (line.starts_with(beginning)) return true;
  }
  return false;
}

void TakeLine(const wchar_t* text, std::uint32_t level) {
  constexpr std::wstring_view PREFIX = L"OstrelFilterDriver: ";
  const std::wstring_view line = std::wstring_view(text).substr(PREFIX.size());
  told.files->TakeLine(line);
  told.records->TakeLine(line);
  if (line.starts_with(L"Created Ostrel user proc successfully")) ++told.helpers;
  if (line.starts_with(L"Received application title information")) ++told.titles;
  if (line.starts_with(L"Could not get information. Remote pipe")) ++told.unavailableHelpers;
  if (level != 3 || IsExpectedError(line)) return;
  const Lock::Holder holder(told.lock);
  told.unexpectedErrors.emplace_back(line);
}

// Now and then slower than a pass of the disk event thread.
void BeSlow() {
  constexpr std::uint64_t REPORTS_BETWEEN = 32;
  constexpr std::uint64_t REPORTS_BETWEEN_LONG = 512;
  const std::uint64_t report = ++told.reports;
  if (report % REPORTS_BETWEEN == 0) Sleep(50);
  if (report % REPORTS_BETWEEN_LONG == 0) Sleep(1500);
}

// Titles are asked for about new files only, and some helpers give none.
bool AreExpectedTitles(std::wstring_view file, std::int32_t count, wchar_t** titles,
                       std::wstring_view status) {
  if (file.find(L"\\new-") == std::wstring_view::npos) return count == 0 && status.empty();
  if (status == L"TABTITLE_SUCCESS") return count == 1 && std::wstring_view(titles[0]) == L"News";
  return count == 0 && (status == L"PIPE_NOT_AVAILABLE" || status == L"TABTITLE_CONNECT_PIPE_FAILED");
}

// One program has both uploads and streams that go out; it may have none left by now.
bool AreExpectedStreams(std::wstring_view process, std::uint32_t type, std::int32_t count,
                        wchar_t** addresses, const std::uint32_t* ports) {
  if (count == 0) return true;
  return count == 1 && type == 0 && process.ends_with(L"\\app.exe") &&
         std::wstring_view(addresses[0]) == L"127.0.0.1" && ports[0] == RecordLoad::APP_PORT;
}

void TakeActivity(const wchar_t* file, const wchar_t* process, const wchar_t* user, std::uint64_t endTime,
                  std::uint32_t type, std::int32_t streams, wchar_t** addresses, std::uint32_t* ports,
                  wchar_t**, std::int32_t hints, wchar_t** titles, const wchar_t* titleStatus,
                  std::uint8_t isNetworkDrive, const wchar_t* sha256, const wchar_t* md5, std::uint32_t size,
                  const wchar_t* status, const wchar_t* extra) {
  told.files->TakeReport({file, process, user, endTime, type});
  const bool hasNoMetadata =
      isNetworkDrive == 0 && *sha256 == 0 && *md5 == 0 && size == 0 && *status == 0 && *extra == 0;
  if (!hasNoMetadata || !AreExpectedTitles(file, hints, titles, titleStatus) ||
      !AreExpectedStreams(process, type, streams, addresses, ports)) {
    const Lock::Holder holder(told.lock);
    told.unexpectedReports.push_back(file + std::wstring(L" of ") + process + L" " + titleStatus);
  }
  BeSlow();
}

void TakeCloud(const wchar_t* file, const wchar_t* process, const wchar_t* user, std::uint64_t endTime,
               std::uint32_t type) {
  told.files->TakeReport({file, process, user, endTime, type});
  BeSlow();
}

std::wstring UserName() {
  wchar_t user[256] = {};
  DWORD length = 256;
  return GetUserNameW(user, &length) ? user : L"";
}

template <typename Condition>
bool WaitFor(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + 6 * PATIENCE;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    Sleep(5);
  }
  return true;
}

// The library on the lab's drivers with everything switched on, started from the folder of a helper whose
// behaviour the test chooses.
class Soak : public ::testing::Test {
 protected:
  Soak() {
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_);
    std::filesystem::current_path(HelperFolder());
    actors_ = std::make_unique<Actors>(folder_);
    told.files = &files_;
    told.records = &records_;
    SetEnvironmentVariableW(REPLY_VARIABLE, L"0,{id},0,1,4,News");
  }

  ~Soak() override {
    std::filesystem::current_path(formerFolder_);
    actors_.reset();
    std::filesystem::remove_all(folder_);
    SetEnvironmentVariableW(REPLY_VARIABLE, nullptr);
    SetEnvironmentVariableW(BEHAVIOUR_VARIABLE, nullptr);
  }

  void SetUp() override {
    ASSERT_NE(UserName(), L"");
    const wchar_t* names[] = {L"app.exe", L"other.exe", L"chrome.exe", L"firefox.exe", L"talker.exe"};
    ASSERT_EQ(LoadDriver(TakeLine, 7), 1);
    ASSERT_EQ(EnableActivityDetection(TakeActivity, UserName().c_str(), names, 5, nullptr, 0, 0, 1, 0), 1);
    ASSERT_EQ(EnablePCDDetection(TakeCloud, names, 1, nullptr, 0, nullptr, 0), 1);
    fileLoad_.emplace(files_, *actors_, folder_, now_);
    recordLoad_.emplace(records_, *actors_, now_);
  }

  void TearDown() override {
    DisableRemoteAddressInfo();
    EXPECT_EQ(UnloadDriver(), 1);
    told.files = nullptr;
  }

  void PlayRound(std::uint64_t round) {
    recordLoad_->StartFlood(ROUND_EVENTS);
    PlayBursts();
    PlayTitles(round);
    ASSERT_TRUE(recordLoad_->WaitUntilHandled());
    recordLoad_->SendLastOfRound();
    fileLoad_->SendLastOfRound();
    ASSERT_NO_FATAL_FAILURE(Settle());
    fileLoad_->SendReadsOfReportedFiles();
    ASSERT_NO_FATAL_FAILURE(Settle());
    ASSERT_TRUE(recordLoad_->WaitUntilHandled());
    ASSERT_TRUE(WaitFor([this] { return records_.IsAllPurged(); })) << "streams are left";
    files_.CloseRound();
    records_.CloseRound();
    EXPECT_THAT(files_.Errors(), IsEmpty());
    EXPECT_THAT(records_.Errors(), IsEmpty());
  }

  // Halfway through the round a process dies with its events under way.
  void PlayBursts() {
    constexpr std::size_t BURSTS = ROUND_EVENTS / BURST_EVENTS;
    lab::StandInProcess mortal = actors_->StartMortal();
    for (std::size_t burst = 0; burst < BURSTS; ++burst) {
      if (burst == BURSTS / 2) mortal.Vanish();
      const bool runs = burst < BURSTS / 2;
      fileLoad_->SendBurst(BURST_EVENTS, mortal.Id(), runs);
      recordLoad_->SendPortion(mortal.Id(), runs);
      // A pause.
      if (burst % 8 == 3) {
        ASSERT_TRUE(fileLoad_->WaitUntilHandled());
      }
    }
    ASSERT_TRUE(fileLoad_->WaitUntilHandled());
  }

  // Helpers that answer, and one that does not or not in time.
  void PlayTitles(std::uint64_t round) {
    static constexpr const wchar_t* BEHAVIOURS[] = {END_AT_ONCE, MAKE_THE_PIPE_LATE, ANSWER_LATE};
    constexpr int MORE_FILES = 6;
    EnableTabTitles();
    SetEnvironmentVariableW(BEHAVIOUR_VARIABLE, ANSWER);
    for (int file = 0; file < MORE_FILES; ++file) fileLoad_->SendReadsOfNewFile(1);
    ASSERT_TRUE(fileLoad_->WaitUntilHandled());
    for (const wchar_t* behaviour : {ANSWER, BEHAVIOURS[round % 3]}) {
      SetEnvironmentVariableW(BEHAVIOUR_VARIABLE, behaviour);
      fileLoad_->SendReadsOfNewFile(20);
      ASSERT_TRUE(fileLoad_->WaitUntilHandled());
    }
    DisableTabTitles();
  }

  // What was handled before the first sentinel is reported or dropped at the second: its pass begins when
  // that of the first has ended, and cloud-drive events come last in a pass.
  void Settle() {
    ASSERT_TRUE(fileLoad_->WaitUntilHandled());
    for (int pass = 0; pass < 2; ++pass) {
      const std::uint32_t sentinel = fileLoad_->SendSentinel();
      ASSERT_TRUE(WaitFor([&] { return files_.HasEnded(sentinel); })) << "the sentinel is not reported";
    }
  }

  void ShowProgress(std::uint64_t round) {
    std::printf(
        "round %llu after %llu s: %llu file events, %llu records, %llu KiB private\n",
        static_cast<unsigned long long>(round + 1), static_cast<unsigned long long>((Now() - now_) / 1000),
        static_cast<unsigned long long>(files_.Sent()), static_cast<unsigned long long>(records_.Read().sent),
        static_cast<unsigned long long>(PrivateBytes() / 1024));
    std::fflush(stdout);
  }

  void ShowBooks() {
    const FileBooks::Counts ended = files_.Ended();
    for (std::size_t i = 0; i < ENDINGS; ++i) {
      std::printf("%12llu file events %s\n", static_cast<unsigned long long>(ended[i]),
                  NameOf(static_cast<Ending>(i)));
    }
    const RecordBooks::Counts records = records_.Read();
    std::printf("%12llu file events still cached\n", static_cast<unsigned long long>(files_.Cached()));
    std::printf("%12llu records filed\n%12llu records dropped with their process\n",
                static_cast<unsigned long long>(records.filed),
                static_cast<unsigned long long>(records.dropped));
  }

  static std::filesystem::path HelperFolder() {
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return std::filesystem::path(path).parent_path() / OSTREL_HELPER_FROM_STAGE;
  }

  const std::filesystem::path formerFolder_ = std::filesystem::current_path();
  const std::filesystem::path folder_ = std::filesystem::temp_directory_path() / "ostrel-soak";
  const std::uint64_t now_ = Now();
  FileBooks files_{FileLoad::DueTime(now_), UserName()};
  RecordBooks records_;
  std::unique_ptr<Actors> actors_;
  std::optional<FileLoad> fileLoad_;
  std::optional<RecordLoad> recordLoad_;
};

std::uint64_t Sum(const FileBooks::Counts& counts) {
  return std::accumulate(counts.begin(), counts.end(), std::uint64_t{0});
}

TEST_F(Soak, EveryEventAndEveryRecordIsAccountedForAndNothingGrows) {
  const std::uint64_t events = Setting("OSTREL_SOAK_EVENTS", SHORT_RUN_EVENTS);
  const std::uint64_t end = GetTickCount64() + Setting("OSTREL_SOAK_MINUTES", 0) * 60'000;
  HandleCounts handles;
  std::size_t privateBytes = 0;
  std::uint64_t helpers = 0;
  for (std::uint64_t round = 0; round < FEWEST_ROUNDS || files_.Sent() < events ||
                                records_.Read().sent < events || GetTickCount64() < end;
       ++round) {
    ASSERT_NO_FATAL_FAILURE(PlayRound(round));
    ShowProgress(round);
    if (round > 1) continue;
    handles = OpenHandles();
    privateBytes = PrivateBytes();
    helpers = told.helpers;
  }

  EXPECT_TRUE(AreAsExpected(OpenHandles(), handles))
      << ::testing::PrintToString(OpenHandles()) << " instead of " << ::testing::PrintToString(handles);
  EXPECT_GT(told.helpers, helpers + MOST_EVENTS_OF_LOCKS) << "too few for a handle of each to show";
  EXPECT_LT(PrivateBytes(), privateBytes + 1024 * 1024);

  ShowBooks();
  EXPECT_GT(files_.Cached(), 0U);
  EXPECT_EQ(Sum(files_.Ended()) + files_.Cached(), files_.Sent());
  const FileBooks::Counts ended = files_.Ended();
  for (std::size_t i = 0; i < ENDINGS; ++i) EXPECT_GT(ended[i], 0U) << NameOf(static_cast<Ending>(i));

  // What was cached all the time was: it is reported, all of it, when an event that is due joins it.
  fileLoad_->SendLastOfKept();
  ASSERT_NO_FATAL_FAILURE(Settle());
  files_.CloseRound();
  EXPECT_THAT(files_.Errors(), IsEmpty());
  EXPECT_EQ(files_.Cached(), 0U);
  EXPECT_EQ(Sum(files_.Ended()), files_.Sent());

  const OstrelLabStatus driver = fileLoad_->Status();
  EXPECT_EQ(driver.submitted, files_.Sent());
  EXPECT_EQ(driver.delivered, files_.Sent());
  EXPECT_EQ(driver.acknowledged, files_.Sent());
  EXPECT_EQ(driver.badAcknowledgements, 0U);
  EXPECT_EQ(driver.doubleAcknowledgements, 0U);
  EXPECT_EQ(driver.abandoned, 0U);

  const RecordBooks::Counts records = records_.Read();
  const OstrelLabNetworkStatus network = recordLoad_->Status();
  EXPECT_EQ(records.filed + records.dropped, records.sent);
  EXPECT_EQ(network.submitted + network.flooded, records.sent);
  EXPECT_EQ(network.completed, records.sent);
  EXPECT_EQ(network.dropped, 0U);
  EXPECT_GT(records.dropped, 0U);

  EXPECT_GT(told.titles, 0U);
  EXPECT_GT(told.unavailableHelpers, 0U);
  EXPECT_THAT(told.unexpectedErrors, IsEmpty());
  EXPECT_THAT(told.unexpectedReports, IsEmpty());
}

}  // namespace

}  // namespace ostrel::test
