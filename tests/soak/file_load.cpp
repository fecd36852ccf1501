#include "soak/file_load.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "support/lock.h"

namespace ostrel::test {

namespace {

constexpr std::int32_t READ = 0;
constexpr std::int32_t WRITE = 1;
constexpr std::int32_t NETWORK_INFO_QUERY = 2;
constexpr std::int32_t FIRST_CLOUD = 4;
constexpr std::int32_t CLOUD_TYPES = 6;
constexpr std::int32_t UNKNOWN_TYPES[] = {10, 255, -1, -2147483647 - 1};

constexpr std::uint32_t FILES_PER_KIND = 12;
constexpr std::uint32_t CLOSED_PER_ROUND = 6;
constexpr std::uintmax_t LARGE = 1'000'000'000;
// So far apart that a file reported in one round can be reported again in the next.
constexpr std::uint32_t NUMBERS_BETWEEN_ROUNDS = 20'000;

constexpr std::uint32_t LOCAL_DRIVE = 0;
constexpr std::uint32_t NO_DRIVE = 2;

lab::StandInProcess Start(const std::filesystem::path& folder, const char* image) {
  return lab::StandInProcess::Start(folder.wstring(), {"", image}, nullptr);
}

lab::DriverLink OpenDriver() {
  auto driver = lab::DriverLink::TryOpen();
  if (!driver) throw std::runtime_error("the minifilter does not run");
  return std::move(*driver);
}

// The name by which the driver would report a file of the first drive.
std::wstring DeviceName(const std::wstring& path) {
  wchar_t device[512] = {};
  if (QueryDosDeviceW(path.substr(0, 2).c_str(), device, 512) == 0) throw std::runtime_error("no drive");
  return device + path.substr(2);
}

}  // namespace

Actors::Actors(const std::filesystem::path& folder)
    : folder_(folder),
      app_(Start(folder, "app.exe")),
      other_(Start(folder, "other.exe")),
      chrome_(Start(folder, "chrome.exe")),
      firefox_(Start(folder, "firefox.exe")),
      talker_(Start(folder, "talker.exe")) {}

lab::StandInProcess Actors::StartMortal() const {
  return Start(folder_, "mortal.exe");
}

const wchar_t* Actors::ImageOf(DWORD process) const {
  if (process == App()) return L"app.exe";
  if (process == Other()) return L"other.exe";
  if (process == Chrome()) return L"chrome.exe";
  if (process == Firefox()) return L"firefox.exe";
  if (process == Talker()) return L"talker.exe";
  return process == Gone() ? L"gone.exe" : L"mortal.exe";
}

FileLoad::FileLoad(FileBooks& books, const Actors& actors, std::filesystem::path folder, std::uint64_t now)
    : books_(books), actors_(actors), folder_(std::move(folder)), now_(now), driver_(OpenDriver()) {
  MakeFiles();
}

// An upload is complete when a file's size was read, which is one byte here, or a large file's by no read.
void FileLoad::MakeFiles() const {
  for (std::uint32_t i = 0; i < FILES_PER_KIND; ++i) {
    for (const auto* kind : {L"complete", L"kept", L"both", L"written-then-read", L"chrome", L"firefox"}) {
      std::ofstream(std::filesystem::path(Path(kind, i))) << 'x';
    }
    std::ofstream(std::filesystem::path(Path(L"large", i))) << 'x';
    std::filesystem::resize_file(Path(L"large", i), LARGE);
    std::filesystem::create_directory(Path(L"directory", i));
  }
}

void FileLoad::SendBurst(std::size_t count, DWORD mortal, bool mortalRuns) {
  while (burst_.size() < count) AddDrawn(mortal, mortalRuns);
  Submit();
}

void FileLoad::AddDrawn(DWORD mortal, bool mortalRuns) {
  const std::uint32_t drawn = Draw(100);
  if (drawn < 80) {
    AddOfOrdinaryKind(drawn);
  } else {
    AddOfLostKind(drawn - 80, mortal, mortalRuns);
  }
}

void FileLoad::AddOfOrdinaryKind(std::uint32_t drawn) {
  const DWORD app = actors_.App();
  const DWORD eitherApp = Draw(2) == 0 ? app : actors_.Other();
  if (drawn < 20) {
    Add({app, AnyOf(L"complete", FILES_PER_KIND), READ});
  } else if (drawn < 26) {
    Add({app, AnyOf(L"large", FILES_PER_KIND), READ});
  } else if (drawn < 42) {
    const std::wstring kind = L"written" + std::to_wstring(eitherApp);
    Add({eitherApp, Draw(2) == 0 ? AnyOf(kind, FILES_PER_KIND) : OnlyOne(kind), WRITE});
  } else if (drawn < 54) {
    const auto type = static_cast<std::int32_t>(Draw(CLOUD_TYPES));
    Add({app, Draw(2) == 0 ? AnyOf(L"cloud", FILES_PER_KIND) : OnlyOne(L"cloud"), FIRST_CLOUD + type});
  } else if (drawn < 60) {
    Add({eitherApp, AnyOf(L"both", CLOSED_PER_ROUND), READ}, When::LATER, Silence::DUPLICATE);
  } else if (drawn < 64) {
    Add({app, AnyOf(L"directory", CLOSED_PER_ROUND), READ}, When::LATER, Silence::DIRECTORY);
  } else if (drawn < 70) {
    Add({app, AnyOf(L"read-then-written", CLOSED_PER_ROUND), READ}, When::LATER);
  } else {
    // Two queries before each read on the average, so that some reads are uploads and some are not.
    const bool isChrome = Draw(2) == 0;
    const auto type = static_cast<std::int32_t>(std::min(Draw(5), 3U));
    Add({isChrome ? actors_.Chrome() : actors_.Firefox(), AnyOf(isChrome ? L"chrome" : L"firefox", 3),
         type == 1 ? NETWORK_INFO_QUERY : type});
  }
}

void FileLoad::AddOfLostKind(std::uint32_t drawn, DWORD mortal, bool mortalRuns) {
  const DWORD app = actors_.App();
  if (drawn < 6) {
    static constexpr const wchar_t* SUFFIXES[] = {L".part", L".CRDOWNLOAD", L".tmp", L".lnk"};
    Add({app, AnyOf(L"temporary", 3) + SUFFIXES[Draw(4)], WRITE}, When::DUE, Silence::OF_NO_INTEREST);
  } else if (drawn < 10) {
    Add({app, AnyOf(L"unknown", 3), UNKNOWN_TYPES[Draw(4)]});
  } else if (drawn < 14) {
    Add({actors_.Gone(), AnyOf(L"complete", 3), READ}, When::DUE, Silence::GONE);
  } else if (drawn < 19) {
    Add({mortal, AnyOf(L"of-mortal", 3), WRITE}, When::DUE, mortalRuns ? Silence::MAYBE_GONE : Silence::GONE);
  } else {
    Add({app, AnyOf(L"kept", 2), READ}, When::LATER, Silence::KEPT);
  }
}

void FileLoad::SendReadsOfNewFile(std::size_t count) {
  const std::wstring file = Path(L"new", newFiles_++ % FILES_PER_KIND);
  std::ofstream(std::filesystem::path(file)) << 'x';
  for (std::size_t i = 0; i < count; ++i) {
    Add({actors_.App(), file, READ}, When::LATER, Silence::DUPLICATE);
    Add({actors_.Other(), file, READ}, When::LATER, Silence::DUPLICATE);
  }
  Add({actors_.App(), file, READ}, When::DUE, Silence::DUPLICATE);
  Add({actors_.Other(), file, READ}, When::DUE, Silence::DUPLICATE);
  Submit();
}

void FileLoad::SendLastOfRound() {
  const DWORD app = actors_.App();
  lastNumber_ += NUMBERS_BETWEEN_ROUNDS;
  ++rounds_;
  for (std::uint32_t i = 0; i < CLOSED_PER_ROUND; ++i) {
    Add({app, Path(L"both", i), READ}, When::DUE, Silence::DUPLICATE);
    Add({actors_.Other(), Path(L"both", i), READ}, When::DUE, Silence::DUPLICATE);
    Add({app, Path(L"directory", i), READ}, When::DUE, Silence::DIRECTORY);
    Add({app, Path(L"read-then-written", i), WRITE});
    Add({app, WrittenInRound(rounds_, i), WRITE});
    // The read that was held back in the round before is no longer cached: this one is reported by itself.
    Add({app, WrittenInRound(rounds_ - 1, i), READ});
  }
  Submit();
}

void FileLoad::SendReadsOfReportedFiles() {
  for (std::uint32_t i = 0; i < CLOSED_PER_ROUND; ++i) {
    Add({actors_.App(), WrittenInRound(rounds_, i), READ}, When::DUE, Silence::ALREADY_REPORTED);
  }
  Submit();
}

std::wstring FileLoad::WrittenInRound(std::uint32_t round, std::uint32_t number) const {
  return Path(L"written-then-read", number + round % 2 * CLOSED_PER_ROUND);
}

void FileLoad::SendLastOfKept() {
  for (std::uint32_t i = 0; i < 2; ++i) Add({actors_.App(), Path(L"kept", i), READ});
  Submit();
}

std::uint32_t FileLoad::SendSentinel() {
  const std::uint32_t number = Add({actors_.App(), Path(L"sentinel", sentinels_++ % 2), FIRST_CLOUD});
  Submit();
  return number;
}

bool FileLoad::WaitUntilHandled() {
  const auto deadline = std::chrono::steady_clock::now() + 6 * PATIENCE;
  while (std::chrono::steady_clock::now() < deadline) {
    const OstrelLabStatus status = driver_.Status();
    if (status.queued == 0 && status.outstanding == 0 && status.waitingRequests == 1) return true;
    Sleep(5);
  }
  return false;
}

std::uint32_t FileLoad::Add(const Sender& sender, When when, Silence silence) {
  const std::uint32_t number = ++lastNumber_;
  const bool isDownload = sender.type == WRITE && silence == Silence::NONE;
  const std::wstring name = isDownload ? DeviceName(sender.file) : sender.file;
  OstrelLabEvent event{};
  event.processId = sender.process;
  event.eventTime = (when == When::DUE ? DueTime(now_) : now_ + DAY_MILLISECONDS) + number;
  event.eventType = sender.type;
  event.detail = static_cast<std::int32_t>(number);
  event.streamFlag = 1;
  event.deviceSourceType = isDownload ? LOCAL_DRIVE : NO_DRIVE;
  event.readSize = 1;
  if (name.size() >= OSTREL_LAB_FILE_NAME_LENGTH) throw std::runtime_error("the name is too long");
  std::copy(name.begin(), name.end(), event.fileName);
  books_.Send(number, actors_.ImageOf(sender.process), silence);
  burst_.push_back(event);
  return number;
}

// Waits for room: the driver's queue holds what the library has not taken.
void FileLoad::Submit() {
  constexpr std::size_t PORTION = 50;
  for (std::size_t sent = 0; sent < burst_.size(); sent += PORTION) {
    const auto begin = burst_.begin() + static_cast<std::ptrdiff_t>(sent);
    const auto end = burst_.begin() + static_cast<std::ptrdiff_t>(std::min(sent + PORTION, burst_.size()));
    while (!driver_.TrySubmit({begin, end})) Sleep(5);
  }
  burst_.clear();
}

std::wstring FileLoad::AnyOf(const std::wstring& kind, std::uint32_t count) {
  return Path(kind, Draw(count));
}

// Merges with nothing, so what becomes of it is its own.
std::wstring FileLoad::OnlyOne(const std::wstring& kind) {
  return Path(kind + L"-only", ++onlyOnes_);
}

std::wstring FileLoad::Path(const std::wstring& kind, std::uint32_t number) const {
  return (folder_ / (kind + L"-" + std::to_wstring(number))).wstring();
}

std::uint32_t FileLoad::Draw(std::uint32_t below) {
  return static_cast<std::uint32_t>(random_() % below);
}

}  // namespace ostrel::test
