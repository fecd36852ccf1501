// What the notification loop adds to the platform calls that it must make: beside a bare loop of them on the
// lab's minifilter, and by itself, when those calls answer at once.
#include <windows.h>
// Needs windows.h before it.
#include <fltuser.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "bare_message_loop.h"
#include "cache/irp_cache.h"
#include "driver_link.h"
#include "figures.h"
#include "filter/cache_hooks.h"
#include "filter/notification_loop.h"
#include "filter/notification_port.h"
#include "filter/port_messages.h"
#include "lab_driver.h"
#include "sample_events.h"
#include "stopwatch.h"
#include "support/import_table.h"

namespace {

using namespace ostrel;
using namespace ostrel::bench;
using test::ImportPatch;

constexpr std::size_t FILES = 500;
constexpr int LAB_ROUNDS = 21;
constexpr std::size_t LAB_MESSAGES = FILES;
constexpr int REPLACED_ROUNDS = 31;
constexpr std::size_t REPLACED_MESSAGES = 100'000;

std::wstring DeviceOfDriveC() {
  wchar_t target[512];
  if (QueryDosDeviceW(L"C:", target, 512) == 0) ThrowLastError("looking drive C: up");
  return target;
}

// A read by this process of the numbered file, in the form of the driver.
EventMessage Read(std::size_t number) {
  static const std::wstring device = DeviceOfDriveC();
  EventMessage message{};
  message.processId = GetCurrentProcessId();
  message.eventTime = FRESH;
  message.streamFlag = 1;
  const std::wstring name = device + FileName(number).substr(2);
  std::copy(name.begin(), name.end(), message.fileName);
  message.readSize = 1;
  return message;
}

EventMessage UnloadNotice() {
  EventMessage message{};
  message.unloadNotice = 1;
  return message;
}

// What the loop files into, as the library has it, but for the titles, which a process of its own answers.
class Targets {
 public:
  Targets() {
    for (ReadEventCache* cache : {&uploads_, &downloads_, &cloudDrive_}) cache->DisableTabTitleCapture();
  }

  NotificationTargets Get() {
    return {uploads_, downloads_, cloudDrive_, irpQueries_, irpQueriesMutex_, suffixes_};
  }

  void RequireAllFiles() {
    if (uploads_.GetCacheCount() != FILES) throw std::runtime_error("the loop did not file what it received");
  }

 private:
  static ReadEventCache MakeCache() {
    UserLookup userLookup = &GetUserOfProcess;
    TabTitleLookup tabTitleLookup = &GetTabTitlesOfProcess;
    DirectoryTest directoryTest = &IsDirectory;
    return {userLookup, tabTitleLookup, directoryTest};
  }

  ReadEventCache uploads_ = MakeCache();
  ReadEventCache downloads_ = MakeCache();
  ReadEventCache cloudDrive_ = MakeCache();
  IrpCache irpQueries_;
  std::mutex irpQueriesMutex_;
  const std::vector<std::wstring> suffixes_{L".part",       L".crdownload", L".partial",
                                            L".opdownload", L".tmp",        L".lnk"};
};

// A connection to the lab's minifilter with messages waiting on it, the unload notice last.
class WaitingMessages {
 public:
  explicit WaitingMessages(std::size_t count) : port_(std::make_shared<NotificationPort>()) {
    if (FAILED(port_->Connect())) throw std::runtime_error("the lab's minifilter does not take a connection");
    auto player = lab::DriverLink::TryOpen();
    if (!player) throw std::runtime_error("the lab's minifilter is not loaded");
    std::vector<OstrelLabEvent> portion;
    for (std::size_t i = 0; i <= count; ++i) {
      const EventMessage message = i < count ? Read(i % FILES) : UnloadNotice();
      std::memcpy(&portion.emplace_back(), &message.processId, sizeof(OstrelLabEvent));
      if (portion.size() < PORTION && i < count) continue;
      player->Submit(std::move(portion));
      portion.clear();
    }
  }
  WaitingMessages(const WaitingMessages&) = delete;
  WaitingMessages& operator=(const WaitingMessages&) = delete;
  ~WaitingMessages() { port_->Close(); }

  const std::shared_ptr<NotificationPort>& Port() const { return port_; }

 private:
  static constexpr std::size_t PORTION = OSTREL_LAB_PART_CAPACITY / sizeof(OstrelLabEvent);

  std::shared_ptr<NotificationPort> port_;
};

// When the last message came, and how long each had to wait for its acknowledgement. The calls that this
// stands before have no room for a context.
struct {
  decltype(&FilterGetMessage) getMessage = nullptr;
  decltype(&FilterReplyMessage) replyMessage = nullptr;
  Stopwatch sinceMessage;
  std::vector<double> waits;
} acknowledgements;

HRESULT WINAPI GetMessageAndNoteTime(HANDLE port, PFILTER_MESSAGE_HEADER message, DWORD size,
                                     LPOVERLAPPED overlapped) {
  const HRESULT result = acknowledgements.getMessage(port, message, size, overlapped);
  acknowledgements.sinceMessage = Stopwatch();
  return result;
}

HRESULT WINAPI NoteTimeAndReply(HANDLE port, PFILTER_REPLY_HEADER reply, DWORD size) {
  acknowledgements.waits.push_back(acknowledgements.sinceMessage.Seconds() * 1e6);
  return acknowledgements.replyMessage(port, reply, size);
}

// While it lives, the time from each message to its acknowledgement is noted.
class AcknowledgementWatch {
 public:
  AcknowledgementWatch()
      : getMessage_(GetModuleHandleW(nullptr), "FilterGetMessage",
                    reinterpret_cast<void*>(&GetMessageAndNoteTime)),
        replyMessage_(GetModuleHandleW(nullptr), "FilterReplyMessage",
                      reinterpret_cast<void*>(&NoteTimeAndReply)) {
    acknowledgements.getMessage = reinterpret_cast<decltype(&FilterGetMessage)>(getMessage_.Original());
    acknowledgements.replyMessage = reinterpret_cast<decltype(&FilterReplyMessage)>(replyMessage_.Original());
    acknowledgements.waits.clear();
  }

  // Without that of the unload notice, for which nothing has to be looked up.
  std::vector<double> Microseconds() const {
    return {acknowledgements.waits.begin(), acknowledgements.waits.end() - 1};
  }

 private:
  ImportPatch getMessage_;
  ImportPatch replyMessage_;
};

using Loop = std::function<void(const std::shared_ptr<NotificationPort>&)>;

// One side on the lab's minifilter; each round adds to all three.
struct LabSide {
  Loop loop;
  std::vector<double> messages{};
  std::vector<double> medianWaits{};
  std::vector<double> longWaits{};

  void RunRound() {
    const WaitingMessages waiting(LAB_MESSAGES);
    const AcknowledgementWatch acknowledgement;
    const Stopwatch watch;
    loop(waiting.Port());
    messages.push_back(watch.Seconds() * 1e6 / static_cast<double>(LAB_MESSAGES));
    medianWaits.push_back(Quantile(acknowledgement.Microseconds(), 0.5));
    longWaits.push_back(Quantile(acknowledgement.Microseconds(), 0.99));
  }
};

void AddFiguresOfLab(Figures& figures, Targets& targets) {
  LabSide library{[&](const auto& port) { NotificationLoop(port, targets.Get()).Run(); }};
  LabSide bare{[](const auto& port) { RunBareMessageLoop(port->Get()); }};
  // Every file is known from then on.
  LabSide(library).RunRound();
  targets.RequireAllFiles();
  for (int round = 0; round < LAB_ROUNDS; ++round) {
    // Each goes first every other time.
    (round % 2 == 0 ? library : bare).RunRound();
    (round % 2 == 0 ? bare : library).RunRound();
  }
  figures.Add("message", "us", library.messages, bare.messages);
  figures.Add("acknowledgement_median", "us", library.medianWaits, bare.medianWaits);
  figures.Add("acknowledgement_p99", "us", library.longWaits, bare.longWaits);
}

// What the replaced calls answer.
struct {
  std::vector<EventMessage> messages;
  std::wstring device;
  std::size_t next = 0;
  std::size_t end = 0;
} replaced;

HRESULT WINAPI GiveNextMessage(HANDLE, PFILTER_MESSAGE_HEADER message, DWORD, LPOVERLAPPED) {
  const std::size_t i = replaced.next++;
  const EventMessage& source =
      i < replaced.end ? replaced.messages[i * 7919 % FILES] : replaced.messages.back();
  std::memcpy(message, &source, sizeof(source));
  return S_OK;
}

HRESULT WINAPI TakeReply(HANDLE, PFILTER_REPLY_HEADER, DWORD) {
  return S_OK;
}

DWORD WINAPI GiveOneDrive(DWORD, LPWSTR buffer) {
  constexpr wchar_t roots[] = L"C:\\\0";
  std::copy(std::begin(roots), std::end(roots), buffer);
  return 4;
}

DWORD WINAPI GiveDevice(LPCWSTR, LPWSTR target, DWORD) {
  *std::copy(replaced.device.begin(), replaced.device.end(), target) = L'\0';
  return static_cast<DWORD>(replaced.device.size() + 2);
}

HANDLE WINAPI GiveProcess(DWORD, BOOL, DWORD) {
  return reinterpret_cast<HANDLE>(std::uintptr_t{4});
}

DWORD WINAPI GiveProcessName(HANDLE, LPWSTR name, DWORD) {
  std::copy(std::begin(PROCESS_NAME), std::end(PROCESS_NAME), name);
  return static_cast<DWORD>(std::size(PROCESS_NAME) - 1);
}

BOOL WINAPI CloseNothing(HANDLE) {
  return TRUE;
}

std::vector<ImportPatch> ReplaceCalls() {
  const std::pair<const char*, void*> replacements[] = {
      {"FilterGetMessage", reinterpret_cast<void*>(&GiveNextMessage)},
      {"FilterReplyMessage", reinterpret_cast<void*>(&TakeReply)},
      {"GetLogicalDriveStringsW", reinterpret_cast<void*>(&GiveOneDrive)},
      {"QueryDosDeviceW", reinterpret_cast<void*>(&GiveDevice)},
      {"OpenProcess", reinterpret_cast<void*>(&GiveProcess)},
      {"K32GetProcessImageFileNameW", reinterpret_cast<void*>(&GiveProcessName)},
      {"CloseHandle", reinterpret_cast<void*>(&CloseNothing)},
  };
  std::vector<ImportPatch> patches;
  for (const auto& [function, replacement] : replacements)
    patches.emplace_back(GetModuleHandleW(nullptr), function, replacement);
  return patches;
}

void AddFigureOfReplacedCalls(Figures& figures, Targets& targets) {
  replaced.device = DeviceOfDriveC();
  for (std::size_t i = 0; i < FILES; ++i) replaced.messages.push_back(Read(i));
  replaced.messages.push_back(UnloadNotice());

  const auto library = [&](std::vector<double>& values) {
    replaced.next = 0;
    replaced.end = REPLACED_MESSAGES;
    const auto port = std::make_shared<NotificationPort>();
    const std::vector<ImportPatch> patches = ReplaceCalls();
    const Stopwatch watch;
    NotificationLoop(port, targets.Get()).Run();
    values.push_back(watch.Seconds() * 1e9 / static_cast<double>(REPLACED_MESSAGES));
  };

  BareMap map;
  std::vector<DiskCacheKey> keys;
  // Through a pointer, or the compiler would leave a copy out that nobody reads.
  decltype(&std::memcpy) volatile copy = &std::memcpy;
  for (std::size_t i = 0; i < FILES; ++i) {
    keys.emplace_back(FileName(i), GetCurrentProcessId());
    Add(map, FileName(i), PROCESS_NAME, GetCurrentProcessId(), FRESH);
  }
  const auto alternative = [&](std::vector<double>& values) {
    std::size_t found = 0;
    EventMessage message{};
    const Stopwatch watch;
    for (std::size_t i = 0; i < REPLACED_MESSAGES; ++i) {
      const std::size_t file = i * 7919 % FILES;
      copy(&message, &replaced.messages[file], sizeof(message));
      if (map.find(keys[file]) != map.end()) ++found;
    }
    values.push_back(watch.Seconds() * 1e9 / static_cast<double>(REPLACED_MESSAGES));
    if (found != REPLACED_MESSAGES) throw std::runtime_error("an event is not in the map");
  };
  const Rounds rounds = TakeTurns(REPLACED_ROUNDS, library, alternative);
  targets.RequireAllFiles();
  figures.Add("message_alone", "ns", rounds.library, rounds.alternative);
}

}  // namespace

int wmain(int argumentCount, wchar_t** arguments) {
  if (argumentCount != 3) {
    std::fputs("Usage: message_loop_bench.exe PATH\\OstrelFilter.sys FIGURES.json\n", stderr);
    return 2;
  }
  try {
    Figures figures;
    Targets targets;
    {
      const LabDriver driver(L"OstrelFilterBenchmark", std::filesystem::absolute(arguments[1]));
      AddFiguresOfLab(figures, targets);
    }
    AddFigureOfReplacedCalls(figures, targets);
    figures.Write(arguments[2]);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "message_loop_bench: %s\n", error.what());
    return 1;
  }
}
