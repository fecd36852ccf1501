#ifndef OSTREL_TESTS_SUPPORT_LOCK_H
#define OSTREL_TESTS_SUPPORT_LOCK_H

#include <windows.h>

#include <chrono>

namespace ostrel::test {

// How long a test waits for a condition before it fails.
constexpr std::chrono::milliseconds PATIENCE{60000};

// The system's own lock and condition variable: the threads that meet here were started by a module with a
// C++ runtime of its own.
class Lock {
 public:
  Lock() = default;
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  class Holder {
   public:
    explicit Holder(Lock& lock) : lock_(lock) { AcquireSRWLockExclusive(&lock_.lock_); }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;
    ~Holder() { ReleaseSRWLockExclusive(&lock_.lock_); }

    // False when the condition does not come true in time. The lock is held while it is looked at.
    template <typename Condition>
    bool WaitFor(Condition condition, std::chrono::milliseconds patience = PATIENCE) {
      const auto deadline = std::chrono::steady_clock::now() + patience;
      while (!condition()) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) return false;
        SleepConditionVariableSRW(&lock_.changed_, &lock_.lock_, static_cast<DWORD>(left.count()), 0);
      }
      return true;
    }

    void Changed() { WakeAllConditionVariable(&lock_.changed_); }

   private:
    Lock& lock_;
  };

 private:
  SRWLOCK lock_ = SRWLOCK_INIT;
  CONDITION_VARIABLE changed_ = CONDITION_VARIABLE_INIT;
};

}  // namespace ostrel::test

#endif
