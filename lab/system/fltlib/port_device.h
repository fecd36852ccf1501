#ifndef OSTREL_LAB_SYSTEM_FLTLIB_PORT_DEVICE_H
#define OSTREL_LAB_SYSTEM_FLTLIB_PORT_DEVICE_H

#include <windows.h>

#include <cstdint>
#include <string_view>

namespace ostrel::lab {

// A buffer that goes to, or comes from, the stand-in driver.
struct Buffer {
  void* data = nullptr;
  DWORD length = 0;
};

// Opens the stand-in driver's port device and makes the handle a client of the named port.
HRESULT ConnectPort(std::wstring_view portName, bool synchronousHandle, const void* context,
                    WORD contextLength, SECURITY_ATTRIBUTES* security, HANDLE* port);

// Runs one request on a port handle and waits for its end, also on an overlapped handle. A request that waits
// ends when the handle is closed or the driver unloads.
HRESULT Request(HANDLE port, std::uint32_t controlCode, Buffer input, Buffer output, DWORD* returned);

// Sends a message to the control port, in as many parts as the driver's host can take.
HRESULT SendInParts(HANDLE port, Buffer message);

// Starts one request and leaves its end to `overlapped`.
HRESULT StartRequest(HANDLE port, std::uint32_t controlCode, Buffer output, OVERLAPPED* overlapped);

}  // namespace ostrel::lab

#endif
