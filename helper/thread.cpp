#include "thread.h"

#include <system_error>
#include <utility>

namespace ostrel::helper {

Thread::Thread(std::function<void()> work)
    : work_(std::move(work)), handle_(CreateThread(nullptr, 0, &Thread::Run, this, 0, nullptr)) {
  if (!handle_) {
    throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "CreateThread");
  }
}

Thread::~Thread() {
  WaitForSingleObject(handle_.Get(), INFINITE);
}

DWORD WINAPI Thread::Run(void* thread) {
  static_cast<Thread*>(thread)->work_();
  return 0;
}

}  // namespace ostrel::helper
