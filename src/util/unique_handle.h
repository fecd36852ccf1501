#ifndef OSTREL_UTIL_UNIQUE_HANDLE_H
#define OSTREL_UTIL_UNIQUE_HANDLE_H

#include <windows.h>

#include <utility>

namespace ostrel {

// Owns one handle of the kind that `Policy` describes: its type, the value that stands for "none", and how it
// is closed. Destruction and Reset keep the last error, which the caller may still have to read; Close does
// not.
template <typename Policy>
class UniqueHandle {
 public:
  using Handle = typename Policy::Handle;

  UniqueHandle() noexcept : handle_(Policy::Invalid()) {}
  explicit UniqueHandle(Handle handle) noexcept : handle_(handle) {}
  UniqueHandle(UniqueHandle&& other) noexcept : handle_(other.Release()) {}
  UniqueHandle& operator=(UniqueHandle&& other) noexcept {
    if (this != &other) Reset(other.Release());
    return *this;
  }
  UniqueHandle(const UniqueHandle&) = delete;
  UniqueHandle& operator=(const UniqueHandle&) = delete;
  ~UniqueHandle() { Reset(); }

  explicit operator bool() const noexcept { return handle_ != Policy::Invalid(); }
  Handle Get() const noexcept { return handle_; }
  Handle Release() noexcept { return std::exchange(handle_, Policy::Invalid()); }

  // Closes what is held, leaving the last error as closing left it.
  void Close() noexcept {
    const Handle old = Release();
    if (old != Policy::Invalid()) Policy::Close(old);
  }

  void Reset(Handle handle = Policy::Invalid()) noexcept {
    const Handle old = std::exchange(handle_, handle);
    if (old == Policy::Invalid()) return;
    const DWORD error = GetLastError();
    Policy::Close(old);
    SetLastError(error);
  }

 private:
  Handle handle_;
};

// Events, threads, processes, tokens: null is none.
struct KernelHandlePolicy {
  using Handle = HANDLE;
  static Handle Invalid() noexcept { return nullptr; }
  static void Close(Handle handle) noexcept { CloseHandle(handle); }
};
using UniqueKernelHandle = UniqueHandle<KernelHandlePolicy>;

// Files and snapshots: minus one is none.
struct FileHandlePolicy {
  using Handle = HANDLE;
  static Handle Invalid() noexcept { return INVALID_HANDLE_VALUE; }
  static void Close(Handle handle) noexcept { CloseHandle(handle); }
};
using UniqueFileHandle = UniqueHandle<FileHandlePolicy>;

struct ServiceHandlePolicy {
  using Handle = SC_HANDLE;
  static Handle Invalid() noexcept { return nullptr; }
  static void Close(Handle handle) noexcept { CloseServiceHandle(handle); }
};
using UniqueServiceHandle = UniqueHandle<ServiceHandlePolicy>;

// Blocks of the process heap.
struct HeapBlockPolicy {
  using Handle = void*;
  static Handle Invalid() noexcept { return nullptr; }
  static void Close(Handle block) noexcept { HeapFree(GetProcessHeap(), 0, block); }
};
using UniqueHeapBlock = UniqueHandle<HeapBlockPolicy>;

}  // namespace ostrel

#endif
