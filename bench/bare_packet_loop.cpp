#include "bare_packet_loop.h"

// Needs windows.h before it.
#include <psapi.h>

#include <array>

#include "network/packet_messages.h"

namespace ostrel::bench {

namespace {

struct Request {
  OVERLAPPED overlapped;
  PacketRecord record;
};

void Issue(HANDLE device, Request& request) {
  DeviceIoControl(device, CONTROL_READ_PACKET, nullptr, 0, &request.record, sizeof(request.record), nullptr,
                  &request.overlapped);
}

void WaitForCompletion(HANDLE device, Request& request) {
  DWORD transferred = 0;
  GetOverlappedResult(device, &request.overlapped, &transferred, TRUE);
}

bool HasProcessName(std::uint32_t processId) {
  const HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId);
  if (process == nullptr) return false;
  wchar_t name[512];
  const bool hasName = K32GetProcessImageFileNameW(process, name, 512) != 0;
  CloseHandle(process);
  return hasName;
}

}  // namespace

std::uint64_t RunBarePacketLoop(HANDLE device, HANDLE stop) {
  std::array<Request, MAXIMUM_WAIT_OBJECTS - 1> requests{};
  std::array<HANDLE, MAXIMUM_WAIT_OBJECTS> waitHandles{stop};
  for (std::size_t i = 0; i < requests.size(); ++i) {
    requests[i].overlapped.hEvent = waitHandles[i + 1] = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    Issue(device, requests[i]);
  }
  std::uint64_t named = 0;
  for (;;) {
    const DWORD signalled = WaitForMultipleObjects(MAXIMUM_WAIT_OBJECTS, waitHandles.data(), FALSE, INFINITE);
    if (signalled == WAIT_OBJECT_0 || signalled >= MAXIMUM_WAIT_OBJECTS) break;
    Request& request = requests[signalled - 1];
    WaitForCompletion(device, request);
    if (HasProcessName(request.record.processId)) ++named;
    Issue(device, request);
  }
  CancelIo(device);
  for (Request& request : requests) {
    WaitForCompletion(device, request);
    CloseHandle(request.overlapped.hEvent);
  }
  return named;
}

}  // namespace ostrel::bench
