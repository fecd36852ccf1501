#include "port_device.h"

#include <winternl.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "minifilter_wire.h"
#include "util/unique_handle.h"

namespace ostrel::lab {

namespace {

constexpr NTSTATUS PENDING = 0x00000103;
constexpr NTSTATUS FILE_DELETED = static_cast<NTSTATUS>(0xC0000123);
constexpr NTSTATUS NO_SUCH_DEVICE = static_cast<NTSTATUS>(0xC000000E);
constexpr NTSTATUS DEVICE_REMOVED = static_cast<NTSTATUS>(0xC00002B6);
constexpr ULONG FILTER_MANAGER_FACILITY = 0xC01C0000;
constexpr ULONG FILTER_MANAGER_HRESULT = 0x801F0000;

// A port whose driver has gone is a port with an invalid handle, as the filter manager has it.
bool IsDriverGone(NTSTATUS status) {
  return status == FILE_DELETED || status == NO_SUCH_DEVICE || status == DEVICE_REMOVED;
}

HRESULT ToResult(NTSTATUS status) {
  if (NT_SUCCESS(status)) return S_OK;
  if (IsDriverGone(status)) return HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE);
  const ULONG code = static_cast<ULONG>(status);
  if ((code & 0xFFFF0000) == FILTER_MANAGER_FACILITY) {
    return static_cast<HRESULT>(FILTER_MANAGER_HRESULT | (code & 0xFFFF));
  }
  return HRESULT_FROM_WIN32(RtlNtStatusToDosError(status));
}

HRESULT LastError() {
  return HRESULT_FROM_WIN32(GetLastError());
}

}  // namespace

HRESULT Request(HANDLE port, std::uint32_t controlCode, Buffer input, Buffer output, DWORD* returned) {
  const UniqueKernelHandle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  if (!event) return LastError();
  IO_STATUS_BLOCK block{};
  NTSTATUS status = NtDeviceIoControlFile(port, event.Get(), nullptr, nullptr, &block, controlCode,
                                          input.data, input.length, output.data, output.length);
  if (status == PENDING) {
    // On the event, not on the port: another thread may close the port meanwhile.
    if (WaitForSingleObject(event.Get(), INFINITE) != WAIT_OBJECT_0) return LastError();
    status = block.Status;
  }
  if (returned != nullptr) *returned = NT_SUCCESS(status) ? static_cast<DWORD>(block.Information) : 0;
  return ToResult(status);
}

HRESULT SendInParts(HANDLE port, Buffer message) {
  std::vector<std::uint8_t> request;
  OstrelLabPart part{message.length, 0};
  do {
    const DWORD length = std::min<DWORD>(message.length - part.offset, OSTREL_LAB_PART_CAPACITY);
    request.resize(sizeof(part) + length);
    std::memcpy(request.data(), &part, sizeof(part));
    if (length != 0) {
      std::memcpy(request.data() + sizeof(part), static_cast<const std::uint8_t*>(message.data) + part.offset,
                  length);
    }
    const HRESULT result = Request(port, OSTREL_LAB_PORT_SEND,
                                   {request.data(), static_cast<DWORD>(request.size())}, {}, nullptr);
    if (FAILED(result)) return result;
    part.offset += length;
  } while (part.offset < message.length);
  return S_OK;
}

HRESULT StartRequest(HANDLE port, std::uint32_t controlCode, Buffer output, OVERLAPPED* overlapped) {
  overlapped->Internal = static_cast<ULONG_PTR>(PENDING);
  const NTSTATUS status = NtDeviceIoControlFile(port, overlapped->hEvent, nullptr, overlapped,
                                                reinterpret_cast<IO_STATUS_BLOCK*>(&overlapped->Internal),
                                                controlCode, nullptr, 0, output.data, output.length);
  return status == PENDING ? HRESULT_FROM_WIN32(ERROR_IO_PENDING) : ToResult(status);
}

HRESULT ConnectPort(std::wstring_view portName, bool synchronousHandle, const void* context,
                    WORD contextLength, SECURITY_ATTRIBUTES* security, HANDLE* port) {
  OstrelLabConnect connect{};
  if (portName.size() >= OSTREL_LAB_PORT_NAME_CAPACITY || contextLength > OSTREL_LAB_CONTEXT_CAPACITY) {
    return E_INVALIDARG;
  }
  std::copy(portName.begin(), portName.end(), connect.portName);
  connect.contextLength = contextLength;
  if (contextLength != 0) std::memcpy(connect.context, context, contextLength);

  UniqueFileHandle device(CreateFileW(OSTREL_LAB_PORT_PATH, GENERIC_READ | GENERIC_WRITE,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE, security, OPEN_EXISTING,
                                      synchronousHandle ? 0 : FILE_FLAG_OVERLAPPED, nullptr));
  if (!device) return LastError();
  const HRESULT result =
      Request(device.Get(), OSTREL_LAB_PORT_CONNECT, {&connect, sizeof(connect)}, {}, nullptr);
  if (SUCCEEDED(result)) *port = device.Release();
  return result;
}

}  // namespace ostrel::lab
