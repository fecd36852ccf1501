#ifndef OSTREL_HOST_WINDOWS_HANDLE_H
#define OSTREL_HOST_WINDOWS_HANDLE_H

#include <windows.h>

#include <memory>

namespace ostrel::host {

struct CloseHandleDeleter {
  using pointer = HANDLE;
  void operator()(HANDLE handle) const noexcept {
    if (handle != INVALID_HANDLE_VALUE) CloseHandle(handle);
  }
};
using WindowsHandle = std::unique_ptr<HANDLE, CloseHandleDeleter>;

}  // namespace ostrel::host

#endif
