#ifndef OSTREL_HELPER_WATCHDOG_H
#define OSTREL_HELPER_WATCHDOG_H

#include <chrono>
#include <functional>

#include "thread.h"
#include "util/unique_handle.h"

namespace ostrel::helper {

// Runs `bark` once when it has not been destroyed within `patience`. It stands against calls of the system
// that never return, such as opening a file on a server that is gone: what can be waited for has a deadline
// of its own. Once it is destroyed it does not bark any more: what follows cannot be cut short by it.
class Watchdog {
 public:
  Watchdog(std::chrono::milliseconds patience, std::function<void()> bark);
  ~Watchdog();
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

 private:
  UniqueKernelHandle counts_;
  UniqueKernelHandle calledOff_;
  Thread thread_;
};

}  // namespace ostrel::helper

#endif
