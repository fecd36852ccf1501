#include "bare_message_loop.h"

// Need windows.h before them.
#include <fltuser.h>
#include <psapi.h>

#include <cwchar>

#include "filter/port_messages.h"

namespace ostrel::bench {

namespace {

bool Receive(HANDLE port, EventMessage& message) {
  return SUCCEEDED(
      FilterGetMessage(port, reinterpret_cast<PFILTER_MESSAGE_HEADER>(&message), sizeof(message), nullptr));
}

void Acknowledge(HANDLE port, const EventMessage& message) {
  Acknowledgement acknowledgement{0, 0, message.messageId};
  FilterReplyMessage(port, reinterpret_cast<PFILTER_REPLY_HEADER>(&acknowledgement), sizeof(acknowledgement));
}

// The drives are asked until one fits.
void FindDrive(const wchar_t* deviceName) {
  wchar_t roots[513] = {};
  GetLogicalDriveStringsW(511, roots);
  for (const wchar_t* root = roots; *root != L'\0'; root += std::wcslen(root) + 1) {
    const wchar_t drive[] = {root[0], L':', L'\0'};
    wchar_t target[512];
    if (QueryDosDeviceW(drive, target, 512) == 0) continue;
    if (std::wcsncmp(deviceName, target, std::wcslen(target)) == 0) return;
  }
}

void NameProcess(std::uint32_t processId) {
  const HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId);
  if (process == nullptr) return;
  wchar_t name[512];
  K32GetProcessImageFileNameW(process, name, 512);
  CloseHandle(process);
}

}  // namespace

void RunBareMessageLoop(HANDLE port) {
  EventMessage message{};
  while (Receive(port, message) && message.unloadNotice != 1) {
    FindDrive(reinterpret_cast<const wchar_t*>(message.fileName));
    Acknowledge(port, message);
    NameProcess(message.processId);
  }
  Acknowledge(port, message);
}

}  // namespace ostrel::bench
