#ifndef OSTREL_TESTS_FAILURES_HELD_CALLBACK_H
#define OSTREL_TESTS_FAILURES_HELD_CALLBACK_H

#include <cstdint>

#include "support/scripted_system.h"

namespace ostrel::test {

// A host's callback for cloud-drive events that does not return until it is let go, and so holds the disk
// event thread. Its state outlives every thread that may still be in it.
//
// One at a time.
class HeldCallback {
 public:
  HeldCallback() { Set(false, false); }
  HeldCallback(const HeldCallback&) = delete;
  HeldCallback& operator=(const HeldCallback&) = delete;
  ~HeldCallback() { LetGo(); }

  static void OnCloud(const wchar_t*, const wchar_t*, const wchar_t*, std::uint64_t, std::uint32_t) {
    Lock::Holder holder(lock);
    isHeld = true;
    holder.Changed();
    holder.WaitFor([] { return letGo; });
  }

  // Has the driver send an event of process 42 that is due at once, and waits until the callback has it.
  static bool Hold(ScriptedSystem& system) {
    EventMessage message{};
    message.processId = 42;
    message.eventTime = 1000;
    message.eventType = 4;
    message.deviceSourceType = 2;
    message.fileName[0] = u'f';
    system.Send(message);
    Lock::Holder holder(lock);
    return holder.WaitFor([] { return isHeld; });
  }

  static void LetGo() { Set(isHeld, true); }

 private:
  static void Set(bool held, bool go) {
    Lock::Holder holder(lock);
    isHeld = held;
    letGo = go;
    holder.Changed();
  }

  static inline Lock lock;
  static inline bool isHeld = false;
  static inline bool letGo = false;
};

}  // namespace ostrel::test

#endif
