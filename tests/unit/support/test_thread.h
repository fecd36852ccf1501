#ifndef OSTREL_TESTS_SUPPORT_TEST_THREAD_H
#define OSTREL_TESTS_SUPPORT_TEST_THREAD_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

namespace ostrel_test {

// How long a test waits for what must happen before it fails.
constexpr std::chrono::seconds DEADLINE{30};

// A condition that threads wait for with a deadline. Once set it stays set.
class Signal {
 public:
  void Set();
  bool WaitFor(std::chrono::milliseconds duration);

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool set_ = false;
};

// A thread that its owner always joins. On Windows a plain CreateThread, as the library itself uses.
class TestThread {
 public:
  explicit TestThread(std::function<void()> body);
  ~TestThread();
  TestThread(const TestThread&) = delete;
  TestThread& operator=(const TestThread&) = delete;

 private:
  class Platform;
  std::unique_ptr<Platform> platform_;
};

}  // namespace ostrel_test

#endif
