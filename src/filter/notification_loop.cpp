#include "filter/notification_loop.h"

#include <windows.h>
// Needs windows.h before it.
#include <fltuser.h>

#include <new>
#include <string>
#include <utility>

#include "filter/event_name.h"
#include "log/log.h"
#include "util/name_capacity.h"
#include "util/ostrel_filter_lib_util.h"
#include "util/text.h"
#include "util/unique_handle.h"

namespace ostrel {

namespace {

// HRESULT of using a port whose handle was closed.
constexpr HRESULT INVALID_PORT_HANDLE = static_cast<HRESULT>(0x80070006);

unsigned char IsNetworkEvent(const EventMessage& message) {
  return message.deviceSourceType == DEVICE_SOURCE_NETWORK_DRIVE ? 1 : 0;
}

}  // namespace

NotificationLoop::NotificationLoop(std::shared_ptr<NotificationPort> port, NotificationTargets targets)
    : port_(std::move(port)), targets_(targets) {}

void NotificationLoop::Run() {
  Log(LOG_NOTABLE, L"Notification procedure started.");
  for (bool goOn = true; goOn;) {
    try {
      goOn = HandleNextMessage();
    } catch (...) {
      Log(LOG_ERROR, L"Exception caught in filter loop");
    }
  }
}

bool NotificationLoop::HandleNextMessage() {
  EventMessage message{};
  const HRESULT result = FilterGetMessage(port_->Get(), reinterpret_cast<PFILTER_MESSAGE_HEADER>(&message),
                                          sizeof(message), nullptr);
  if (FAILED(result)) return ReceiveFailed(result);
  if (message.unloadNotice == 1) {
    Acknowledge(message);
    port_->MarkDisconnected();
    Log(LOG_NOTABLE, L"Driver unloaded.");
    return false;
  }
  Handle(message);
  return true;
}

bool NotificationLoop::ReceiveFailed(HRESULT result) {
  Log(LOG_ERROR, L"Error getting message while receiving notifications: HResult: %x", result);
  if (result != INVALID_PORT_HANDLE) return true;
  port_->MarkDisconnected();
  port_->Close();
  return false;
}

void NotificationLoop::Handle(const EventMessage& message) {
  wchar_t deviceName[DEVICE_NAME_CAPACITY];
  wchar_t fileName[NAME_CAPACITY];
  CopyDeviceName(message, deviceName);
  OstrelFilterLibUtil::ConvertFileName(static_cast<DEVICE_SOURCE_TYPE>(message.deviceSourceType), deviceName,
                                       fileName);
  CutStreamSuffix(message, fileName);
  // The driver holds the file operation until here.
  Acknowledge(message);
  // The rule of ExcludeBasedOnExtension, which would copy the list for every message.
  if (EndsWithAnyIgnoringAsciiCase(fileName, targets_.ignoredSuffixes)) return;

  wchar_t processName[NAME_CAPACITY];
  HANDLE opened = nullptr;
  const bool isNamed = OstrelFilterLibUtil::GetProcessName(message.processId, processName, &opened);
  const UniqueKernelHandle process(opened);
  if (!isNamed) return;
  Log(LOG_DETAIL, L"Received event: %lu %s %s %d %d %d %lu", message.processId, fileName, processName,
      message.eventType, message.detail, IsNetworkEvent(message), message.readSize);
  File(message, fileName, process.Get(), processName);
}

void NotificationLoop::File(const EventMessage& message, const wchar_t* fileName, HANDLE process,
                            const wchar_t* processName) {
  switch (message.eventType) {
    case FILE_EVENT_READ:
      FileRead(message, fileName, process, processName);
      return;
    case FILE_EVENT_WRITE:
      FileWrite(message, fileName, process, processName);
      return;
    case FILE_EVENT_NETWORK_INFO_QUERY:
      FileNetworkInfoQuery(message, fileName, processName);
      return;
    case FILE_EVENT_STANDARD_INFO_QUERY:
      FileStdInfoQuery(message, fileName, processName);
      return;
    default:
      break;
  }
  if (message.eventType < FILE_EVENT_CLOUD_DRIVE_FIRST || message.eventType > FILE_EVENT_CLOUD_DRIVE_LAST) {
    Log(LOG_ERROR, L"Unhandled message from driver: %d", message.eventType);
    return;
  }
  targets_.cloudDrive.AddEvent(fileName, process, processName, message.processId, message.eventTime,
                               IsNetworkEvent(message), static_cast<FILE_EVENT_TYPE>(message.eventType), 0);
}

void NotificationLoop::FileRead(const EventMessage& message, const wchar_t* fileName, HANDLE process,
                                const wchar_t* processName) {
  if (!IsRealRead(message, fileName, processName)) {
    Log(LOG_DETAIL, L"Ignore Upload event. Not a real upload for file: %s process %s", fileName, processName);
    return;
  }
  // Most reads are further ones of a file.
  if (MergeEvent(targets_.uploads, fileName, message.processId, message.eventTime, message.readSize)) return;
  targets_.uploads.AddEvent(fileName, process, processName, message.processId, message.eventTime,
                            IsNetworkEvent(message), FILE_EVENT_READ, message.readSize);
}

bool NotificationLoop::IsRealRead(const EventMessage& message, const wchar_t* fileName,
                                  const wchar_t* processName) {
  const std::lock_guard lock(targets_.irpQueriesMutex);
  return ShouldAllowRead(targets_.irpQueries, fileName, message.processId, message.eventTime, processName);
}

// A file that a process writes is no longer an upload candidate of that process, even when the write itself
// cannot be filed for want of memory: the name to withdraw it by is there before.
void NotificationLoop::FileWrite(const EventMessage& message, const wchar_t* fileName, HANDLE process,
                                 const wchar_t* processName) {
  std::wstring withdrawn = fileName;
  try {
    if (!MergeEvent(targets_.downloads, fileName, message.processId, message.eventTime, message.readSize)) {
      targets_.downloads.AddEvent(fileName, process, processName, message.processId, message.eventTime,
                                  IsNetworkEvent(message), FILE_EVENT_WRITE, message.readSize);
    }
  } catch (...) {
    targets_.uploads.RemoveEvent(std::move(withdrawn), message.processId);
    throw;
  }
  targets_.uploads.RemoveEvent(std::move(withdrawn), message.processId);
}

void NotificationLoop::FileNetworkInfoQuery(const EventMessage& message, const wchar_t* fileName,
                                            const wchar_t* processName) {
  // There before the query is filed, so that short memory cannot come between the two.
  std::wstring withdrawn = fileName;
  {
    const std::lock_guard lock(targets_.irpQueriesMutex);
    if (targets_.irpQueries.AddNetworkInfoQuery(fileName, message.processId, message.eventTime, processName))
      return;
  }
  targets_.uploads.RemoveEvent(std::move(withdrawn), message.processId);
  Log(LOG_DETAIL, L"Removed from Upload cache: %s %s", fileName, processName);
}

void NotificationLoop::FileStdInfoQuery(const EventMessage& message, const wchar_t* fileName,
                                        const wchar_t* processName) {
  const std::lock_guard lock(targets_.irpQueriesMutex);
  targets_.irpQueries.AddStdInfoQuery(fileName, message.processId, message.eventTime, processName);
}

void NotificationLoop::Acknowledge(const EventMessage& message) {
  Acknowledgement acknowledgement{0, 0, message.messageId};
  const HRESULT result = FilterReplyMessage(
      port_->Get(), reinterpret_cast<PFILTER_REPLY_HEADER>(&acknowledgement), sizeof(acknowledgement));
  if (FAILED(result)) Log(LOG_ERROR, L"Error sending ACK message: HResult: %x", result);
}

bool StartNotificationThread(std::shared_ptr<NotificationPort> port, const NotificationTargets& targets) {
  std::unique_ptr<NotificationLoop> loop(new (std::nothrow) NotificationLoop(std::move(port), targets));
  if (!loop) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return false;
  }
  const auto run = [](void* parameter) -> DWORD {
    const std::unique_ptr<NotificationLoop> own(static_cast<NotificationLoop*>(parameter));
    own->Run();
    return 0;
  };
  const UniqueKernelHandle thread(CreateThread(nullptr, 0, run, loop.get(), 0, nullptr));
  if (!thread) {
    const DWORD error = GetLastError();
    loop.reset();
    SetLastError(error);
    return false;
  }
  static_cast<void>(loop.release());
  return true;
}

}  // namespace ostrel
