#include "watchdog.h"

#include <utility>

#include "system_failure.h"

namespace ostrel::helper {

Watchdog::Watchdog(std::chrono::milliseconds patience, std::function<void()> bark)
    : calledOff_(NewEvent()), thread_([calledOff = calledOff_.Get(), patience, bark = std::move(bark)] {
        if (WaitForSingleObject(calledOff, static_cast<DWORD>(patience.count())) == WAIT_TIMEOUT) bark();
      }) {}

Watchdog::~Watchdog() {
  SetEvent(calledOff_.Get());
}

}  // namespace ostrel::helper
