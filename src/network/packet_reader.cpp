#include "network/packet_reader.h"

// Needs windows.h before it.
#include <psapi.h>

#include <array>
#include <cstddef>
#include <memory>
#include <new>
#include <utility>

#include "log/log.h"
#include "network/packet_filing.h"
#include "network/packet_messages.h"
#include "util/name_capacity.h"
#include "util/unique_handle.h"

namespace ostrel {

namespace {

constexpr DWORD STOP_TIMEOUT_MILLISECONDS = 3000;
constexpr DWORD FAILED_EXIT_CODE = 0xFFFFFFFF;

// One less than a wait can take: the stop event has the first place.
constexpr std::size_t REQUEST_COUNT = MAXIMUM_WAIT_OBJECTS - 1;

struct RequestBlock {
  OVERLAPPED overlapped;
  PacketRecord record;
};
static_assert(sizeof(RequestBlock) == 96);
static_assert(offsetof(RequestBlock, record) == 32);

}  // namespace

// The request blocks and the handles to wait on. A block belongs to the driver from Issue to its completion,
// so it is freed only then; the blocks' events are left open.
class PacketReader::Requests {
 public:
  Requests(HANDLE device, HANDLE stop) : device_(device) { waitHandles_[0] = stop; }

  // False when memory is short.
  bool IssueAll() {
    for (std::size_t i = 0; i < REQUEST_COUNT; ++i) {
      blocks_[i].reset(new (std::nothrow) RequestBlock{});
      if (!blocks_[i]) return false;
      blocks_[i]->overlapped.hEvent = waitHandles_[i + 1] = CreateEventW(nullptr, FALSE, FALSE, nullptr);
      Issue(i);
    }
    return true;
  }

  // Returns the place of the lowest signalled handle: 0 the stop event, i + 1 request i. Everything else is a
  // failed wait.
  DWORD Wait() const {
    return WaitForMultipleObjects(static_cast<DWORD>(waitHandles_.size()), waitHandles_.data(), FALSE,
                                  INFINITE);
  }

  const PacketRecord& Complete(std::size_t i) {
    DWORD transferred = 0;
    GetOverlappedResult(device_, &blocks_[i]->overlapped, &transferred, TRUE);
    isPending_[i] = false;
    return blocks_[i]->record;
  }

  void Issue(std::size_t i) {
    RequestBlock& block = *blocks_[i];
    // A request that ends without a record then names no process, and cannot pass for the record before.
    block.record = {};
    const BOOL done = DeviceIoControl(device_, CONTROL_READ_PACKET, nullptr, 0, &block.record,
                                      sizeof(block.record), nullptr, &block.overlapped);
    // A request that was refused never completes, and must not be waited for at the end.
    isPending_[i] = !done && GetLastError() == ERROR_IO_PENDING;
  }

  // Cancels what is pending and frees every block that the driver has let go of. Once the device is closed
  // the number of its handle may be somebody else's: cancelling does no harm then, but may end nothing.
  void CancelAll(bool deviceIsOpen) {
    const bool cancelled = CancelIo(device_) != FALSE;
    if (!cancelled) Log(LOG_ERROR, L"Could not cancel pending IO in NW driver. Code: %lu", GetLastError());
    for (std::size_t i = 0; i < REQUEST_COUNT; ++i) {
      if (!isPending_[i]) continue;
      DWORD transferred = 0;
      if (cancelled) GetOverlappedResult(device_, &blocks_[i]->overlapped, &transferred, deviceIsOpen);
      // The driver may still write to it.
      if (!HasOverlappedIoCompleted(&blocks_[i]->overlapped)) static_cast<void>(blocks_[i].release());
    }
  }

  // Leaves the blocks to the driver, which may still write to them.
  void Abandon() {
    for (auto& block : blocks_) static_cast<void>(block.release());
  }

 private:
  HANDLE device_;
  std::array<HANDLE, MAXIMUM_WAIT_OBJECTS> waitHandles_{};
  std::array<std::unique_ptr<RequestBlock>, REQUEST_COUNT> blocks_;
  std::array<bool, REQUEST_COUNT> isPending_{};
};

PacketReader::PacketReader(HANDLE device, HANDLE stop, GivenUpFlag givenUp, NetworkEventCache& uploads,
                           NetworkEventCache& downloads)
    : device_(device), stop_(stop), givenUp_(std::move(givenUp)), uploads_(uploads), downloads_(downloads) {}

DWORD PacketReader::Run() {
  Log(LOG_DETAIL, L"GetNWPacketInfo thread started");
  Requests requests(device_, stop_);
  if (!requests.IssueAll()) {
    Log(LOG_ERROR, L"Could not allocate buffer. Ending thread.");
    requests.Abandon();
    return FAILED_EXIT_CODE;
  }
  DWORD signalled = requests.Wait();
  for (; signalled > WAIT_OBJECT_0 && signalled <= WAIT_OBJECT_0 + REQUEST_COUNT;
       signalled = requests.Wait()) {
    const std::size_t i = signalled - WAIT_OBJECT_0 - 1;
    const PacketRecord& record = requests.Complete(i);
    const UniqueKernelHandle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, record.processId));
    if (process && !*givenUp_) File(record, process.Get());
    // Once given up, the device is closed, and its handle's number may be somebody else's.
    if (!*givenUp_) requests.Issue(i);
  }
  const bool stopped = signalled == WAIT_OBJECT_0;
  if (!stopped) {
    // An abandoned wait leaves no code.
    const DWORD error = signalled == WAIT_FAILED ? GetLastError() : ERROR_ABANDONED_WAIT_0;
    Log(LOG_ERROR, L"Could not wait for NW driver. Code: %lu", error);
  }
  requests.CancelAll(!*givenUp_);
  return stopped ? 0 : FAILED_EXIT_CODE;
}

void PacketReader::File(const PacketRecord& record, HANDLE process) {
  wchar_t processName[NAME_CAPACITY];
  if (K32GetProcessImageFileNameW(process, processName, static_cast<DWORD>(NAME_CAPACITY)) == 0) {
    Log(LOG_ERROR, L"Could not get process name. %lu", GetLastError());
    return;
  }
  try {
    FilePacket(record, processName, uploads_, downloads_);
  } catch (...) {
    // Memory is short: the record is lost, its request goes on.
  }
}

PacketReaderThread::PacketReaderThread(NetworkEventCache& uploads, NetworkEventCache& downloads)
    : uploads_(uploads), downloads_(downloads), givenUp_(std::make_shared<std::atomic<bool>>(false)) {}

bool PacketReaderThread::Start(HANDLE device) {
  // Those of the start before stay open: a reader that did not end in time may still use them.
  stopEvent_ = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  thread_ = stopEvent_ == nullptr ? nullptr : StartReader(device);
  if (thread_ == nullptr) {
    Log(LOG_ERROR, L"Could not start receive notification thread. Code: %lu", GetLastError());
    return false;
  }
  Log(LOG_NOTABLE, L"Started NW receive notification thread.");
  return true;
}

HANDLE PacketReaderThread::StartReader(HANDLE device) {
  std::unique_ptr<PacketReader> reader;
  try {
    givenUp_ = std::make_shared<std::atomic<bool>>(false);
    reader = std::make_unique<PacketReader>(device, stopEvent_, givenUp_, uploads_, downloads_);
  } catch (const std::bad_alloc&) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  const auto run = [](void* parameter) -> DWORD {
    const std::unique_ptr<PacketReader> own(static_cast<PacketReader*>(parameter));
    return own->Run();
  };
  const HANDLE thread = CreateThread(nullptr, 0, run, reader.get(), 0, nullptr);
  if (thread != nullptr) {
    static_cast<void>(reader.release());
    return thread;
  }
  const DWORD error = GetLastError();
  reader.reset();
  SetLastError(error);
  return nullptr;
}

void PacketReaderThread::Stop() {
  SetEvent(stopEvent_);
  if (WaitForSingleObject(thread_, STOP_TIMEOUT_MILLISECONDS) == WAIT_TIMEOUT) {
    *givenUp_ = true;
    Log(LOG_ERROR, L"GetNWPacketInfo thread never ended.");
  } else {
    Log(LOG_DETAIL, L"GetNWPacketInfo thread ended");
  }
}

}  // namespace ostrel
