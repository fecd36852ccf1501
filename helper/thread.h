#ifndef OSTREL_HELPER_THREAD_H
#define OSTREL_HELPER_THREAD_H

#include <windows.h>

#include <functional>

#include "util/unique_handle.h"

namespace ostrel::helper {

// Runs `work`, which must not throw, on a thread of its own; waits for its end when destroyed.
class Thread {
 public:
  // Throws std::system_error when there is no thread to be had.
  explicit Thread(std::function<void()> work);
  ~Thread();
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

 private:
  static DWORD WINAPI Run(void* thread);

  std::function<void()> work_;
  UniqueKernelHandle handle_;
};

}  // namespace ostrel::helper

#endif
