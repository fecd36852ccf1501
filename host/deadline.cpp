#include "deadline.h"

#include <windows.h>

#include <exception>
#include <stdexcept>
#include <string>

#include "windows_handle.h"

namespace ostrel::host {

namespace {

struct Work {
  std::function<void()> run;
  std::exception_ptr thrown;
};

DWORD WINAPI RunWork(void* parameter) {
  const std::unique_ptr<std::shared_ptr<Work>> work(static_cast<std::shared_ptr<Work>*>(parameter));
  try {
    (*work)->run();
  } catch (...) {
    (*work)->thrown = std::current_exception();
  }
  return 0;
}

}  // namespace

bool IsDoneWithin(std::chrono::milliseconds patience, std::function<void()> work) {
  const auto shared = std::make_shared<Work>(Work{std::move(work), nullptr});
  auto ofThread = std::make_unique<std::shared_ptr<Work>>(shared);
  const WindowsHandle thread(CreateThread(nullptr, 0, RunWork, ofThread.get(), 0, nullptr));
  if (!thread) {
    throw std::runtime_error("no thread could be started, error " + std::to_string(GetLastError()));
  }
  static_cast<void>(ofThread.release());
  if (WaitForSingleObject(thread.get(), static_cast<DWORD>(patience.count())) != WAIT_OBJECT_0) return false;
  if (shared->thrown) std::rethrow_exception(shared->thrown);
  return true;
}

}  // namespace ostrel::host
