#include "support/test_thread.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <thread>
#endif

#include <stdexcept>
#include <utility>

namespace ostrel_test {

void Signal::Set() {
  const std::lock_guard lock(mutex_);
  set_ = true;
  changed_.notify_all();
}

bool Signal::WaitFor(std::chrono::milliseconds duration) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, duration, [this] { return set_; });
}

#ifdef _WIN32

class TestThread::Platform {
 public:
  explicit Platform(std::function<void()> body) : body_(std::move(body)) {
    const auto run = [](void* parameter) -> DWORD {
      static_cast<Platform*>(parameter)->body_();
      return 0;
    };
    thread_ = CreateThread(nullptr, 0, run, this, 0, nullptr);
    if (thread_ == nullptr) throw std::runtime_error("CreateThread failed");
  }

  ~Platform() {
    WaitForSingleObject(thread_, INFINITE);
    CloseHandle(thread_);
  }

  Platform(const Platform&) = delete;
  Platform& operator=(const Platform&) = delete;

 private:
  std::function<void()> body_;
  HANDLE thread_;
};

#else

class TestThread::Platform {
 public:
  explicit Platform(std::function<void()> body) : thread_(std::move(body)) {}
  ~Platform() { thread_.join(); }

 private:
  std::thread thread_;
};

#endif

TestThread::TestThread(std::function<void()> body) : platform_(std::make_unique<Platform>(std::move(body))) {}

TestThread::~TestThread() = default;

}  // namespace ostrel_test
