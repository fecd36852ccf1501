// The six functions of the filter manager's port library that the products use, over the stand-in minifilter
// and the real service control manager.
#include <windows.h>
// Needs windows.h before it.
#include <fltuser.h>

#include <new>

#include "minifilter_service.h"
#include "minifilter_wire.h"
#include "port_device.h"

using ostrel::lab::Buffer;

namespace {

constexpr DWORD SYNCHRONOUS_HANDLE = 1;

}  // namespace

HRESULT WINAPI FilterLoad(LPCWSTR filterName) {
  return ostrel::lab::LoadMinifilter(filterName);
}

HRESULT WINAPI FilterUnload(LPCWSTR filterName) {
  return ostrel::lab::UnloadMinifilter(filterName);
}

HRESULT WINAPI FilterConnectCommunicationPort(LPCWSTR portName, DWORD options, LPCVOID context,
                                              WORD contextLength, LPSECURITY_ATTRIBUTES security,
                                              HANDLE* port) {
  if (port == nullptr) return E_INVALIDARG;
  *port = INVALID_HANDLE_VALUE;
  const bool contextFits = (context == nullptr) == (contextLength == 0);
  if (portName == nullptr || !contextFits || (options & ~SYNCHRONOUS_HANDLE) != 0) return E_INVALIDARG;
  return ostrel::lab::ConnectPort(portName, options == SYNCHRONOUS_HANDLE, context, contextLength, security,
                                  port);
}

HRESULT WINAPI FilterGetMessage(HANDLE port, PFILTER_MESSAGE_HEADER message, DWORD messageLength,
                                LPOVERLAPPED overlapped) {
  const Buffer output{message, messageLength};
  if (overlapped != nullptr) {
    return ostrel::lab::StartRequest(port, OSTREL_LAB_PORT_GET_MESSAGE, output, overlapped);
  }
  return ostrel::lab::Request(port, OSTREL_LAB_PORT_GET_MESSAGE, {}, output, nullptr);
}

HRESULT WINAPI FilterReplyMessage(HANDLE port, PFILTER_REPLY_HEADER reply, DWORD replyLength) {
  return ostrel::lab::Request(port, OSTREL_LAB_PORT_REPLY, {reply, replyLength}, {}, nullptr);
}

// The driver answers no message, so nothing is ever returned.
HRESULT WINAPI FilterSendMessage(HANDLE port, LPVOID input, DWORD inputLength, LPVOID, DWORD,
                                 LPDWORD returned) {
  if (returned == nullptr || (input == nullptr && inputLength != 0)) return E_INVALIDARG;
  *returned = 0;
  try {
    return ostrel::lab::SendInParts(port, {input, inputLength});
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}
