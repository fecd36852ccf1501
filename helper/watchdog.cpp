#include "watchdog.h"

#include <utility>

#include "system_failure.h"

namespace ostrel::helper {

Watchdog::Watchdog(std::chrono::milliseconds patience, std::function<void()> bark)
    : counts_(NewEvent()),
      calledOff_(NewEvent()),
      thread_([counts = counts_.Get(), calledOff = calledOff_.Get(), patience, bark = std::move(bark)] {
        SetEvent(counts);
        // Also when it cannot wait: what nobody watches must not go on.
        if (WaitForSingleObject(calledOff, static_cast<DWORD>(patience.count())) != WAIT_OBJECT_0) bark();
      }) {
  // A thread starts only when nobody loads a library: what is watched may hang in just that.
  WaitForSingleObject(counts_.Get(), INFINITE);
}

Watchdog::~Watchdog() {
  SetEvent(calledOff_.Get());
}

}  // namespace ostrel::helper
