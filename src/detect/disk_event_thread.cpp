#include "detect/disk_event_thread.h"

#include <winsock2.h>

#include <ctime>
#include <memory>
#include <new>

#include "log/log.h"
#include "util/unique_handle.h"

namespace ostrel {

namespace {

constexpr DWORD PASS_INTERVAL_MILLISECONDS = 1000;
constexpr DWORD STOP_TIMEOUT_MILLISECONDS = 3000;

// Calendar time in milliseconds since 1970, in whole seconds.
unsigned long long Now() {
  return static_cast<unsigned long long>(std::time(nullptr)) * 1000;
}

void StartWinsock() {
  WSADATA data{};
  const int error = WSAStartup(MAKEWORD(2, 2), &data);
  if (error != 0) Log(LOG_ERROR, L"WSAStartup failed. Code: %d", error);
}

}  // namespace

// What one thread works with, apart from the members that a later start overwrites.
struct DiskEventThread::Run {
  Run(DiskEventWorker& ownWorker, HANDLE ownStopEvent) : worker(ownWorker), stopEvent(ownStopEvent) {}

  DiskEventWorker& worker;
  HANDLE stopEvent;

  // Only the stop event ends it. A wait that fails returns at once, and the passes would follow each other
  // without a break.
  static DWORD WINAPI Entry(void* parameter) {
    const std::unique_ptr<Run> run(static_cast<Run*>(parameter));
    for (;;) {
      const DWORD waited = WaitForSingleObject(run->stopEvent, PASS_INTERVAL_MILLISECONDS);
      if (waited == WAIT_OBJECT_0) return 0;
      if (waited == WAIT_FAILED) Sleep(PASS_INTERVAL_MILLISECONDS);
      run->worker.RunPass(Now());
    }
  }
};

DiskEventThread::DiskEventThread(DiskEventWorker& worker) : worker_(worker) {}

bool DiskEventThread::Start() {
  if (thread_ != nullptr) {
    Log(LOG_ERROR, L"Disk Event thread already started!");
    return false;
  }
  UniqueKernelHandle stopEvent(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  std::unique_ptr<Run> run(stopEvent ? new (std::nothrow) Run(worker_, stopEvent.Get()) : nullptr);
  if (run) {
    thread_ = CreateThread(nullptr, 0, Run::Entry, run.get(), 0, nullptr);
  } else if (stopEvent) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  }
  if (thread_ == nullptr) {
    Log(LOG_ERROR, L"Could not start Disk Event thread. Code: %lu", GetLastError());
    return false;
  }
  static_cast<void>(run.release());
  stopEvent_ = stopEvent.Release();
  StartWinsock();
  return true;
}

void DiskEventThread::Stop() {
  SetEvent(stopEvent_);
  if (thread_ == nullptr) {
    Log(LOG_ERROR, L"Disk Event thread is null, and can't be ended.");
    return;
  }
  if (WaitForSingleObject(thread_, STOP_TIMEOUT_MILLISECONDS) != WAIT_OBJECT_0) {
    Log(LOG_ERROR, L"Disk Event thread never ended.");
    return;
  }
  Log(LOG_DETAIL, L"Disk Event thread ended");
  CloseHandle(thread_);
  thread_ = nullptr;
}

}  // namespace ostrel
