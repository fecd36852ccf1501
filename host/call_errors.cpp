#include "call_errors.h"

#include <windows.h>

#include <utility>

#include "log_writer.h"

namespace ostrel::host {

void CallErrors::Begin() {
  const std::lock_guard lock(mutex_);
  callingThread_ = GetCurrentThreadId();
  lines_.clear();
}

void CallErrors::Note(std::uint32_t level, const std::string& line) {
  if (level > LEVEL_ERROR) return;
  const std::lock_guard lock(mutex_);
  if (GetCurrentThreadId() == callingThread_) lines_.push_back(line);
}

std::vector<std::string> CallErrors::Take() {
  const std::lock_guard lock(mutex_);
  callingThread_ = 0;
  return std::exchange(lines_, {});
}

}  // namespace ostrel::host
